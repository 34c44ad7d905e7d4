#include "rendering.h"

#include <opencv2/core.hpp>

#include <cmath>
#include <functional>

namespace {

constexpr QRgb red = 0xffff0000, green = 0xff00ff00, blue = 0xff0000ff, white = 0xffffffff,
               brown = 0xff604020;

class GeometryTest : public DisplayTest
{
protected:
    /// A grey frame whose corners are red, green, white and blue, clockwise from the top left one.
    void show(const QSize &view, const QSize &frame, int displayModel = DisplayFit)
    {
        showAs(*display, view);
        cv::Mat3b pixels(frame.height(), frame.width(), cv::Vec3b::all(128));
        const int right = frame.width() - 8, bottom = frame.height() - 8;
        for (const auto &[x, y, colour] :
             {std::tuple(0, 0, red), {right, 0, green}, {right, bottom, white}, {0, bottom, blue}})
            pixels(cv::Rect(x, y, 8, 8)).setTo(cv::Scalar(qRed(colour), qGreen(colour), qBlue(colour)));
        display->showBytes(reinterpret_cast<const char *>(pixels.data), qint64(pixels.total()) * 3,
                           frame.width(), frame.height(), 0, RGB, displayModel);
    }
    /// Pixels of the widget, clockwise from the top left one of a rectangle; 2 pixels inside.
    QList<QRgb> corners(const QRect &place)
    {
        const QImage image = shownBy(*display);
        const QRect inner = place.adjusted(2, 2, -2, -2);
        QList<QRgb> colours;
        for (const QPoint &corner :
             {inner.topLeft(), inner.topRight(), inner.bottomRight(), inner.bottomLeft()})
            colours.append(image.pixel(corner));
        return colours;
    }
};

TEST_P(GeometryTest, FitFillAndOneToOnePutTheCornersWhereTheyBelong)
{
    ColourSettings colours;
    colours.background = brown;
    display->setColours(colours);
    show({200, 300}, {100, 50});
    EXPECT_EQ(corners({0, 100, 200, 100}), (QList<QRgb>{red, green, white, blue}));
    EXPECT_EQ(shownBy(*display).pixel(100, 96), brown) << "a bar above";
    EXPECT_EQ(shownBy(*display).pixel(100, 203), brown) << "and below";

    show({200, 300}, {100, 50}, 1);
    EXPECT_EQ(corners({0, 0, 200, 300}), (QList<QRgb>{0xff808080, 0xff808080, 0xff808080, 0xff808080}))
        << "the sides are cut off, nothing above and below";

    display->setMode(GeometryEngine::OneToOne);
    EXPECT_EQ(corners({50, 125, 100, 50}), (QList<QRgb>{red, green, white, blue}));
    EXPECT_EQ(shownBy(*display).pixel(50, 125), red);
    EXPECT_EQ(shownBy(*display).pixel(49, 125), brown) << "exact to the pixel";

    display->followDisplayModel();
    EXPECT_EQ(display->geometryEngine().mode(), GeometryEngine::Fill) << "told by the frame";
    show({200, 300}, {100, 50}, 2);
    EXPECT_EQ(corners({0, 100, 200, 100}), (QList<QRgb>{red, green, white, blue})) << "a value of no meaning";
}

TEST_P(GeometryTest, TurnedAndMirroredFramesAndTheWayBack)
{
    // Clockwise from the top left corner of what is seen.
    const std::tuple<int, bool, QList<QRgb>> cases[] = {
        {0, false, {red, green, white, blue}}, {1, false, {blue, red, green, white}},
        {2, false, {white, blue, red, green}}, {3, false, {green, white, blue, red}},
        {0, true, {green, red, blue, white}},  {1, true, {red, blue, white, green}},
        {6, true, {blue, white, green, red}},  {-1, true, {white, green, red, blue}},
    };
    show({240, 240}, {120, 60});
    for (const auto &[turns, mirrored, expected] : cases) {
        display->setQuarterTurns(turns);
        display->setMirrored(mirrored);
        const QRect place = turns % 2 ? QRect(60, 0, 120, 240) : QRect(0, 60, 240, 120);
        EXPECT_EQ(corners(place), expected) << turns << mirrored;

        QPoint pixel;
        ASSERT_TRUE(display->geometryEngine().pixelAt(place.topLeft() + QPointF(1, 1), &pixel));
        const QPoint frameCorners[] = {{0, 0}, {119, 0}, {119, 59}, {0, 59}};
        EXPECT_EQ(pixel, frameCorners[QList<QRgb>({red, green, white, blue}).indexOf(expected[0])]);
        EXPECT_FALSE(display->geometryEngine().pixelAt(place.topLeft() - QPointF(1, 1), &pixel));
    }
}

TEST_P(GeometryTest, ZoomKeepsThePointUnderTheMouseAndMovingEndsAtTheEdge)
{
    show({200, 100}, {100, 50});
    shownBy(*display);
    const QPointF mouse(150, 30);
    const QPointF before = display->geometryEngine().toFrame(mouse);
    display->zoomAt(mouse, 4);
    const QPointF after = display->geometryEngine().toFrame(mouse);
    EXPECT_NEAR(after.x(), before.x(), 0.1);
    EXPECT_NEAR(after.y(), before.y(), 0.1);

    display->moveBy({100000, 100000});
    EXPECT_EQ(corners({0, 0, 200, 100})[0], red);
    QPoint pixel;
    EXPECT_TRUE(display->geometryEngine().pixelAt({0.5, 0.5}, &pixel));
    EXPECT_EQ(pixel, QPoint(0, 0));

    display->zoomAt(mouse, 0.0001);
    EXPECT_EQ(display->geometryEngine().zoom(), 1);
    EXPECT_EQ(corners({0, 0, 200, 100}), (QList<QRgb>{red, green, white, blue}));
    display->zoomAt(mouse, 1e9);
    for (const double none : {0.0, -1.0, std::nan("")})
        display->zoomAt(mouse, none);
    EXPECT_EQ(display->geometryEngine().zoom(), 32);
    display->resetZoom();
    EXPECT_EQ(corners({0, 0, 200, 100}), (QList<QRgb>{red, green, white, blue}));
}

TEST_P(GeometryTest, EnlargedPixelsAreSmoothAndTheEdgesTheirOwn)
{
    showAs(*display, {200, 200});
    const char pixels[] = {0, 0, 9, char(255), 0, 9, 0, char(255), 9, char(255), char(255), 9};
    display->showBytes(pixels, sizeof pixels, 2, 2, 0, RGB);
    const QImage image = shownBy(*display);
    for (const auto &[at, level] : {std::pair(5, 0), {100, 128}, {194, 255}}) {
        EXPECT_NEAR(qRed(image.pixel(at, 100)), level, 3) << at;
        EXPECT_NEAR(qGreen(image.pixel(100, at)), level, 3) << at;
    }
}

TEST(Geometry, NoBarIsLeftByWhateverChangesAfterAMoveToTheEdge)
{
    GeometryEngine moved;
    moved.setFrameSize({100, 50});
    moved.setView({200, 100}, 1);
    moved.zoomAt({100, 50}, 4);
    moved.moveBy({-1000, -1000});
    const auto place = [](const GeometryEngine &geometry) {
        return geometry.frameToView().mapRect(QRectF({}, geometry.frameSize()));
    };
    EXPECT_EQ(place(moved), QRectF(-600, -300, 800, 400));
    moved.moveBy({1000, 1000});
    const std::function<void(GeometryEngine &)> changes[] = {
        [](auto &geometry) { geometry.setView(QSizeF(150, 75), 1); },
        [](auto &geometry) { geometry.setFrameSize(QSize(50, 50)); },
        [](auto &geometry) { geometry.setMode(GeometryEngine::OneToOne); },
        [](auto &geometry) { geometry.setQuarterTurns(3); },
    };
    for (const auto &change : changes) {
        GeometryEngine changed = moved;
        change(changed);
        EXPECT_EQ(place(changed).topLeft(), QPointF(0, 0)) << &change - changes;
    }
}

TEST(Geometry, DensityCountsInOneToOneAndNothingComesOfEmptySizes)
{
    GeometryEngine geometry;
    QPoint pixel;
    EXPECT_FALSE(geometry.pixelAt({0, 0}, &pixel));
    geometry.zoomAt({0, 0}, 2);
    geometry.moveBy({5, 5});
    EXPECT_TRUE(geometry.frameToView().isIdentity());

    geometry.setFrameSize({100, 50});
    geometry.setView({200, 100}, 2);
    geometry.setMode(GeometryEngine::OneToOne);
    EXPECT_EQ(geometry.frameToView().mapRect(QRectF(0, 0, 100, 50)), QRectF(75, 37.5, 50, 25));
    EXPECT_TRUE(geometry.isPixelExact());
}

INSTANTIATE_TEST_SUITE_P(, GeometryTest, ::testing::Bool(), nameOfWidget);

} // namespace
