#include "logcapture.h"
#include "rendering.h"

#include <QVBoxLayout>

#include <algorithm>
#include <functional>
#include <thread>

namespace {

/// Shows a frame of one colour.
void give(VideoDisplay &display, const QSize &size, QRgb colour)
{
    const std::vector<QRgb> pixels(std::size_t(size.width() * size.height()), colour);
    display.showBytes(reinterpret_cast<const char *>(pixels.data()), 4 * qint64(pixels.size()), size.width(),
                      size.height(), 0, RGBA);
}

QRgb middleOf(VideoDisplay &display)
{
    const QImage image = shownBy(display);
    return image.pixel(image.width() / 2, image.height() / 2);
}

class StreamTest : public DisplayTest
{
};

TEST_P(StreamTest, SizesAndFormatsMayChangeFromFrameToFrame)
{
    showAs(*display, {160, 90});
    int geometries = 0;
    display->setGeometryWatcher([&geometries] { ++geometries; });
    for (const QSize &size : {QSize(1920, 1080), QSize(1, 1), QSize(333, 777), QSize(16, 16)}) {
        const int before = geometries;
        give(*display, size, 0xff10f020);
        EXPECT_EQ(middleOf(*display), 0xff10f020) << size.width();
        EXPECT_EQ(geometries, before + 1);
        EXPECT_EQ(display->frame().size(), size);
        const QByteArray grey(size.width() * size.height() * 3, char(70));
        display->showBytes(grey.constData(), grey.size(), size.width(), size.height(), 0, BGR);
        EXPECT_EQ(middleOf(*display), 0xff464646);
        EXPECT_EQ(geometries, before + 1) << "only when it changes";
    }
    give(*display, {16, 16}, 0xff10f020);
    const int before = geometries;
    display->clear();
    EXPECT_EQ(geometries, before + 1);
    EXPECT_EQ(middleOf(*display), 0xff000000) << "neither what was shown nor what waits";
    display->widget()->resize(170, 100);
    EXPECT_EQ(display->geometryEngine().viewSize(), QSizeF(170, 100)) << "known before it is painted";
}

TEST_P(StreamTest, EachChangeIsToldAndDrawnWithoutBeingAskedFor)
{
    class Paints : public QObject
    {
    public:
        bool eventFilter(QObject *, QEvent *event) override
        {
            count += event->type() == QEvent::Paint;
            return false;
        }
        int count = 0;
    } paints;
    showAs(*display, {160, 90});
    ColourSettings colours;
    colours.background = Qt::red;
    const std::pair<bool, std::function<void()>> changes[] = {
        {false, [&] { give(*display, QSize(16, 9), 0xff10f020); }},
        {true, [&] { display->setMode(GeometryEngine::OneToOne); }},
        {true, [&] { display->setMirrored(true); }},
        {true, [&] { display->zoomAt(QPointF(9, 9), 20); }},
        {true, [&] { display->moveBy(QPointF(9, 9)); }},
        {true, [&] { display->resetZoom(); }},
        {true, [&] { display->setQuarterTurns(1); }},
        {true, [&] { display->followDisplayModel(); }},
        {false, [&] { display->setColours(colours); }},
        {true, [&] { display->clear(); }},
    };
    int told = 0;
    display->setGeometryWatcher([&told] { ++told; });
    display->widget()->installEventFilter(&paints);
    for (const auto &[tells, change] : changes) {
        QCoreApplication::processEvents();
        const int toldBefore = told, paintsBefore = paints.count;
        change();
        EXPECT_EQ(told - toldBefore, tells) << &change - &changes[0].second;
        EXPECT_TRUE(eventually([&] { return paints.count > paintsBefore; }));
    }
}

TEST_P(StreamTest, ImpossibleBlocksAreRefusedWithALineAndNotRead)
{
    showAs(*display, {64, 64});
    give(*display, {64, 64}, 0xff0000c0);
    shownBy(*display);

    // Nothing lies behind these bytes: the address sanitizer sees each look too far.
    std::vector<char> bytes(12);
    char *const data = bytes.data();
    const ImageBlock impossible[] = {
        {12, 2, 2, 0, 0, RGB, nullptr, {}}, {11, 2, 2, 0, 0, RGB, data, {}},
        {-12, 2, 2, 0, 0, RGB, data, {}},   {12, 0, 2, 0, 0, RGB, data, {}},
        {12, 2, 2, 0, 0, 9, data, {}},      {12, 2147483647, 2147483647, 0, 0, YUYV, data, {}}};
    LogCapture log;
    for (const ImageBlock &refused : impossible) {
        display->showBlock(refused);
        display->showBlock(refused);
        const QStringList lines = log.takeLines();
        EXPECT_EQ(lines.size(), 1) << "for each reason once: " << lines.join('\n').toStdString();
        EXPECT_TRUE(lines.value(0).startsWith("warning: frame refused: ")) << lines.value(0).toStdString();
    }
    EXPECT_EQ(middleOf(*display), 0xff0000c0) << "the last good frame stays";
    display->showBlock({12, 4, 1, 0, 0, RGB, data, {}});
    EXPECT_EQ(middleOf(*display), 0xff000000);
    EXPECT_EQ(display->frame().size(), QSize(4, 1));
}

TEST_P(StreamTest, AGiverIsNeverHeldUpAndTheNewestFrameIsShown)
{
    showAs(*display, {64, 64});
    // Nobody looks at events here, so nothing is shown while the other thread gives.
    std::thread giver([this] {
        for (int i = 0; i <= 200; ++i)
            give(*display, {320, 200}, qRgb(i, 0, 0));
    });
    giver.join();
    EXPECT_EQ(middleOf(*display), qRgb(200, 0, 0));
    display->showFrame({});
    EXPECT_EQ(display->receivedFrames(), 201u);
    EXPECT_LE(display->shownFrames(), 2u);

    // A hidden widget shows the newest when it is seen again.
    const auto before = display->shownFrames();
    display->widget()->hide();
    give(*display, {64, 64}, 0xff000000);
    QCoreApplication::processEvents();
    give(*display, {64, 64}, 0xffff0000);
    display->widget()->show();
    ASSERT_TRUE(eventually([&] { return display->shownFrames() > before; }));
    EXPECT_EQ(middleOf(*display), 0xffff0000);
    EXPECT_EQ(display->shownFrames(), before + 1);
}

TEST_P(StreamTest, TwoWidgetsAtOnceAndALostContext)
{
    QWidget first, second;
    const std::unique_ptr<VideoDisplay> other(makeDisplay(GetParam()));
    for (QWidget *window : {&first, &second}) {
        new QVBoxLayout(window);
        window->resize(200, 300);
        window->show();
    }
    first.layout()->addWidget(display->widget());
    first.layout()->addWidget(other->widget());
    QCoreApplication::processEvents();

    give(*display, {64, 64}, 0xff00ff00);
    give(*other, {64, 64}, 0xffff0000);
    EXPECT_EQ(middleOf(*display), 0xff00ff00);
    EXPECT_EQ(middleOf(*other), 0xffff0000);

    // Another window means another context.
    second.layout()->addWidget(display->widget());
    QCoreApplication::processEvents();
    EXPECT_EQ(middleOf(*display), 0xff00ff00) << "the frame is uploaded again";
    give(*display, {64, 64}, 0xff0000ff);
    EXPECT_EQ(middleOf(*display), 0xff0000ff);
    EXPECT_EQ(middleOf(*other), 0xffff0000);
    display->widget()->setParent(nullptr);
    other->widget()->setParent(nullptr);
}

INSTANTIATE_TEST_SUITE_P(, StreamTest, ::testing::Bool(), nameOfWidget);

TEST(VideoFrame, IsHeldAgainstItsBytesAndTheLimitsOfItsSides)
{
    const std::tuple<int, int, int, int, int> needed[] = {{RGBA, 3, 2, 0, 24},
                                                          {ARGB, 3, 2, 13, 25},
                                                          {BGR, 3, 2, 0, 18},
                                                          {UYVY, 3, 3, 0, 24},
                                                          {NV12, 3, 3, 0, 17},
                                                          {NV12, 5, 5, 7, 35 + 16 + 6},
                                                          {YUV420P, 3, 3, 0, 17},
                                                          {YUV420P, 5, 5, 7, 35 + 12 + 8 + 3},
                                                          {YUYV, 16384, 1, 0, 32768},
                                                          {NV12, 1, 16384, 0, 32768},
                                                          {RGB, 1, 2, 64 * 16384, 64 * 16384 + 3}};
    for (const auto &[format, width, height, stride, bytes] : needed) {
        EXPECT_EQ(VideoFrame::misfit(bytes, width, height, stride, format), QString());
        EXPECT_NE(VideoFrame::misfit(bytes - 1, width, height, stride, format), QString()) << bytes;
    }
    constexpr std::int64_t plenty = 1 << 30;
    for (const auto &[width, height] :
         {std::pair(16385, 1), {1, 16385}, {0, 1}, {1, 0}, {-2, -2}, {46341, 46341}})
        EXPECT_NE(VideoFrame::misfit(plenty, width, height, 0, RGB), QString()) << width;
    for (const int format : {-1, 0, 9})
        EXPECT_NE(VideoFrame::misfit(plenty, 2, 2, 0, format), QString()) << format;
    for (const int stride : {5, -6, 64 * 16384 + 1})
        EXPECT_NE(VideoFrame::misfit(plenty, 2, 2, stride, RGB), QString()) << stride;
}

TEST(FramePool, GivesAgainWhatNobodyHolds)
{
    FramePool pool;
    std::vector<std::shared_ptr<std::vector<char>>> held;
    std::vector<std::weak_ptr<std::vector<char>>> known;
    for (int i = 0; i < 6; ++i) {
        held.push_back(pool.take(10));
        EXPECT_EQ(std::count(held.begin(), held.end(), held.back()), 1);
        known.push_back(held.back());
    }
    held.clear();
    const auto isPooled = [](const auto &buffer) { return !buffer.expired(); };
    EXPECT_EQ(std::count_if(known.begin(), known.end(), isPooled), 4);
    EXPECT_EQ(pool.take(20)->size(), 20u);
}

TEST(VideoRender, IsChosenAndDrawsWhateverFormatIsTheDefaultAndWhicheverBufferIsBound)
{
    const QSurfaceFormat usual = QSurfaceFormat::defaultFormat();
    QSurfaceFormat core;
    core.setVersion(3, 3);
    core.setProfile(QSurfaceFormat::CoreProfile);
    QSurfaceFormat::setDefaultFormat(core);
    EXPECT_EQ(VideoRender::surfaceFormat().version(), qMakePair(2, 1));
    EXPECT_EQ(VideoRender::surfaceFormat().profile(), QSurfaceFormat::NoProfile);
    const std::unique_ptr<VideoDisplay> display(VideoDisplay::create(nullptr));
    QSurfaceFormat::setDefaultFormat(usual);
    auto *const render = dynamic_cast<VideoRender *>(display.get());
    ASSERT_NE(render, nullptr);
    showAs(*render, {64, 64});
    render->makeCurrent();
    auto *const gl = render->context()->functions();
    GLuint buffer = 0;
    gl->glGenBuffers(1, &buffer);
    gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    gl->glBufferData(GL_ARRAY_BUFFER, 64, nullptr, GL_STATIC_DRAW);
    render->doneCurrent();
    give(*render, {64, 64}, 0xff10f020);
    EXPECT_EQ(middleOf(*render), 0xff10f020);
}

} // namespace
