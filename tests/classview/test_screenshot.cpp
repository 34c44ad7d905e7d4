#include "classroom.h"
#include "democlass.h"
#include "program.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <numeric>
#include <optional>

namespace {

/// What the viewer wrote into its screenshot.
QJsonObject told(const QString &file)
{
    return QJsonDocument::fromJson(QImage(file).text("marks").toUtf8()).object();
}

cv::Rect rectangle(const QJsonValue &value)
{
    const QJsonArray sides = value.toArray();
    return {sides[0].toInt(), sides[1].toInt(), sides[2].toInt(), sides[3].toInt()};
}

/// The share of 32 by 18 fields that have the colour of the demo class; people move, and marks lie over them.
double likeness(const cv::Mat &shown, const cv::Mat &frame)
{
    cv::Mat3b left, right;
    cv::resize(shown, left, {32, 18}, 0, 0, cv::INTER_AREA);
    cv::resize(frame, right, {32, 18}, 0, 0, cv::INTER_AREA);
    const auto areAlike = [](const cv::Vec3i &a, const cv::Vec3i &b) { return cv::norm(a - b) < 40; };
    return std::inner_product(left.begin(), left.end(), right.begin(), 0.0, std::plus<>(), areAlike) /
           double(left.total());
}

/// Whether a PNG file shows the viewer over the demo class: the camera's picture, at least three names at
/// their faces and a raised hand.
void expectDemoClass(const QString &file)
{
    const cv::Mat shown = cv::imread(file.toStdString());
    const cv::Mat grey = cv::imread(file.toStdString(), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(shown.empty()) << file.toStdString();
    const DemoClass demo(DemoClass::findPhotographs());
    ASSERT_TRUE(demo.isValid());

    const cv::Rect picture = rectangle(told(file)["picture"]);
    ASSERT_GE(picture.width, 400);
    EXPECT_GT(likeness(shown(picture), demo.frame(0)), 0.7);

    // All but the walker stay near their places.
    const auto people = demo.truth(0);
    const auto isAtAFace = [&](const cv::Rect &place) {
        return std::any_of(people.begin(), people.end(), [&](const DemoClass::Person &person) {
            return (person.face & place).area() > person.face.area() / 2;
        });
    };
    // The brightness of text on its ground scatters, that of an empty field does not.
    const auto isText = [&](const cv::Rect &label) {
        cv::Scalar mean, deviation;
        cv::meanStdDev(grey(label), mean, deviation);
        return deviation[0] > 25;
    };
    QSet<QString> names;
    int hands = 0;
    for (const auto &value : told(file)["marks"].toArray()) {
        const QJsonObject mark = value.toObject();
        const cv::Rect place = rectangle(mark["place"]), label = rectangle(mark["label"]);
        if (mark["kind"] == "hand" && isAtAFace(place))
            ++hands;
        if (!label.empty() && isAtAFace(place) && isText(label))
            names.insert(mark["student"].toString());
    }
    EXPECT_GE(names.size(), 3);
    EXPECT_GE(hands, 1);
}

/// The demo class before the service's camera, and the real viewer.
class ScreenshotTest : public ClassroomTest<ServiceProcess>
{
protected:
    void startCamera()
    {
        demo.emplace(CAMERAFEED, QStringList("--demo"), QByteArray(), service.home());
        ASSERT_TRUE(demo->hasLines(1));
    }
    /// The exit code; what it complained of goes to output.
    int runViewer(const QStringList &arguments)
    {
        Program viewer(CLASSVIEW, arguments, {}, service.home());
        const int code = viewer.exitCode();
        output = viewer.errors();
        return code;
    }

    std::optional<Program> demo;
    std::string output;
};

TEST_F(ScreenshotTest, WithoutAServiceTheCameraIsShownAndWithoutACameraHowToStartOne)
{
    const QString shown = service.filePath("shown.png");
    EXPECT_EQ(runViewer({"--screenshot", shown, "--after", "0.5", "--language", "zh"}), 0) << output;
    EXPECT_EQ(told(shown)["frames"].toInt(), 0);

    startCamera();
    for (const bool hasOpenGL : {true, false}) {
        if (!hasOpenGL)
            qputenv("QT_XCB_GL_INTEGRATION", "none");
        EXPECT_EQ(runViewer({"--screenshot", shown, "--after", "2"}), 0) << output;
        EXPECT_EQ(output.find("no OpenGL") == std::string::npos, hasOpenGL) << output;
        EXPECT_GT(told(shown)["frames"].toInt(), 0);
    }
    qunsetenv("QT_XCB_GL_INTEGRATION");
    EXPECT_EQ(runViewer({"--screenshot", shown, "--show", "names=1", "--at-most", "0.2"}), 1)
        << "what does not come is told";
    EXPECT_EQ(runViewer({"--start", "everything"}), 2);
}

/// With a file in CLASSVIEW_SCREENSHOT that one is checked; else one is made, as ./run --view --screenshot
/// does.
TEST_F(ScreenshotTest, OverTheDemoClassItShowsThePictureNamesAndARaisedHand)
{
    const QString given = qEnvironmentVariable("CLASSVIEW_SCREENSHOT");
    if (!given.isEmpty()) {
        expectDemoClass(given);
        return;
    }
    startCamera();
    startService();
    openClass();
    QVariantList faces;
    while (faces.size() < 3) {
        ASSERT_EQ(code(1021), 0);
        faces = client->event(1011)["event_info"].toMap()["galleries"].toList();
    }
    for (int i = 0; i < faces.size(); ++i) {
        QVariantMap face = faces[i].toMap();
        face["stuID"] = QString("Student %1").arg(i + 1);
        faces[i] = face;
    }
    ASSERT_GE(enrolFaces(faces).size(), 3);

    const QString file = service.filePath("class.png");
    ASSERT_EQ(runViewer({"--start", "faces,hands", "--show", "names=3,hands=1", "--screenshot", file,
                         "--at-most", "3600", "--size", "1280x800"}),
              0)
        << output;
    expectDemoClass(file);
}

} // namespace
