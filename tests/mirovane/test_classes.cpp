#include "democlass.h"

#include <gmock/gmock.h>
#include <mirovane/recognisers.h>

#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <QDir>

using namespace ::testing;

namespace {

const std::string models = MODEL_FOLDER "/";

template <typename Class>
std::unique_ptr<Class> make(const std::string &file)
{
    return std::unique_ptr<Class>(Class::create(models + file, models + "model-config.ini"));
}

const DemoClass &demo()
{
    static const DemoClass theClass(QStringLiteral(PHOTOGRAPHS "/opencv4/html"));
    return theClass;
}

/// The demo person's face as a detector would give it, padded as the service does.
cv::Rect faceRect(const DemoClass::Person &person)
{
    const int side = person.face.width * 13 / 10;
    const cv::Point middle = (person.face.tl() + person.face.br()) / 2;
    return cv::Rect(middle.x - side / 2, middle.y - side / 2, side, side) & cv::Rect(0, 0, 1920, 1080);
}

struct Handled
{
    cv::Mat frame;
    std::map<QString, DemoClass::Person> people;
    std::map<QString, cv::Rect> bodies;
};

/// A frame of the demo class, with the body that wholly covers each face.
Handled handled(int number)
{
    static const auto detection = make<mirovane::BodyDetectionSSD>("body_detection.yml");
    Handled result;
    result.frame = demo().frame(number);
    std::vector<cv::Rect> bodies;
    std::vector<float> scores;
    detection->detect(result.frame, bodies, scores, false);
    EXPECT_EQ(bodies.size(), scores.size());
    for (const DemoClass::Person &person : demo().truth(number)) {
        result.people[person.name] = person;
        for (const cv::Rect &body : bodies)
            if ((body & faceRect(person)) == faceRect(person) && !result.bodies.count(person.name))
                result.bodies[person.name] = body;
    }
    return result;
}

/// The number of a frame in which the person's hand has been up, or down, for a while.
int frameWithHand(const QString &name, bool up)
{
    const int place = int(demo().names().indexOf(name));
    for (int number = 45; number < 1800; number += 45) {
        const auto is = [&](int other) { return demo().truth(other)[place].handUp == up; };
        if (is(number - 30) && is(number) && is(number + 30))
            return number;
    }
    return -1;
}

/// Pictures and rectangles that a careless caller may pass.
std::vector<cv::Mat> oddPictures()
{
    return {cv::Mat(),
            cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(90)),
            cv::Mat(7, 300, CV_8UC3, cv::Scalar::all(0)),
            cv::Mat(200, 200, CV_8UC1, cv::Scalar(128)),
            cv::Mat(200, 200, CV_8UC4, cv::Scalar::all(255)),
            cv::Mat(200, 200, CV_32FC3, cv::Scalar::all(0.5))};
}

std::vector<cv::Rect> oddRects()
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    return {{0, 0, 0, 0},         {10, 10, -5, 40},         {-50, -50, 20, 20},
            {-50, -50, 400, 400}, {150, 150, 500, 5},       {500, 500, 80, 80},
            {0, 0, 1, 1},         {most, most, most, most}, {least, least, most, most},
            {0, 0, most, most}};
}

} // namespace

TEST(Classes, NeedTheirModelFile)
{
    const std::string torn = QDir::temp().filePath("torn.yml").toStdString();
    std::ofstream(torn) << "%YAML:1.0\n---\nclass: \"HandupClassify\"\nface: \"absent.xml\"\n";
    for (const std::string &file :
         {std::string(), std::string("/nowhere/at.all"), torn, models + "smile.xml"}) {
        SCOPED_TRACE(file);
        EXPECT_EQ(mirovane::BodyDetectionSSD::create(file, ""), nullptr);
        EXPECT_EQ(mirovane::HandupClassify::create(file, ""), nullptr);
        EXPECT_EQ(mirovane::BodyPoseClassify::create(file, ""), nullptr);
        EXPECT_EQ(mirovane::FaceEmotionClassify::create(file, ""), nullptr);
        EXPECT_EQ(mirovane::FaceAttrDetection::create(file, ""), nullptr);
    }
}

TEST(Classes, GiveOneResultForEachRectangleOfAnyPicture)
{
    const auto bodies = make<mirovane::BodyDetectionSSD>("body_detection.yml");
    const auto hands = make<mirovane::HandupClassify>("handup.yml");
    const auto poses = make<mirovane::BodyPoseClassify>("body_pose.yml");
    const auto emotions = make<mirovane::FaceEmotionClassify>("face_emotion.yml");
    const auto attributes = make<mirovane::FaceAttrDetection>("face_attr.yml");
    ASSERT_TRUE(bodies && hands && poses && emotions && attributes);

    const std::size_t count = oddRects().size();
    for (const cv::Mat &picture : oddPictures()) {
        SCOPED_TRACE(Message() << picture.size() << " type " << picture.type());
        std::vector<cv::Rect> rects;
        std::vector<float> scores;
        bodies->detect(picture, rects, scores, false);
        EXPECT_THAT(rects, IsEmpty());

        std::vector<int> labels;
        hands->classify(picture, oddRects(), labels, scores, false);
        EXPECT_THAT(labels, AllOf(SizeIs(count), Each(Ne(0))));
        EXPECT_THAT(scores, AllOf(SizeIs(count), Each(Ge(0.8F))));

        labels.clear();
        scores.clear();
        poses->classify(picture, oddRects(), labels, scores, false);
        EXPECT_THAT(labels, AllOf(SizeIs(count), Each(1)));
        EXPECT_THAT(scores, SizeIs(count));

        int label = 7;
        float score = 7;
        emotions->classify(picture, &label, &score, false);
        EXPECT_EQ(label, 0);
        EXPECT_TRUE(score >= 0 && score <= 1) << score;

        std::vector<mirovane::FaceAttrResult> results;
        attributes->detect(picture, oddRects(), results, false);
        EXPECT_THAT(results,
                    AllOf(SizeIs(count), Each(Field(&mirovane::FaceAttrResult::labels, ElementsAre(0)))));
    }
}

class DemoPeople : public Test
{
protected:
    void SetUp() override
    {
        if (!demo().isValid())
            GTEST_SKIP() << demo().error().toStdString();
    }
};

TEST_F(DemoPeople, WhoRaiseAHandAreTold)
{
    const auto hands = make<mirovane::HandupClassify>("handup.yml");
    for (const char *name : {"Adrian", "Carl", "Emma", "Flora"}) {
        for (const bool up : {true, false}) {
            SCOPED_TRACE(Message() << name << (up ? " up" : " down"));
            const int number = frameWithHand(name, up);
            ASSERT_GE(number, 0);
            const Handled frame = handled(number);
            ASSERT_EQ(frame.bodies.count(name), 1U);
            // The service shows crops that grow upwards by some pixels.
            const cv::Rect body = frame.bodies.at(name);
            std::vector<int> labels;
            std::vector<float> scores;
            hands->classify(frame.frame,
                            {body, {body.x - 3, body.y - 12, body.width + 6, body.height + 12}, body}, labels,
                            scores, false);
            ASSERT_THAT(labels, SizeIs(3));
            EXPECT_THAT(labels, up ? Each(0) : Each(1));
            EXPECT_THAT(scores, Each(Ge(0.8F)));
        }
    }
}

TEST_F(DemoPeople, SmilesAndGlassesAreTold)
{
    const auto emotions = make<mirovane::FaceEmotionClassify>("face_emotion.yml");
    const auto attributes = make<mirovane::FaceAttrDetection>("face_attr.yml");
    const Handled frame = handled(100);
    std::vector<cv::Rect> faces;
    std::vector<int> glasses;
    for (const auto &[name, person] : frame.people) {
        int label = -1;
        float score = -1;
        EXPECT_EQ(emotions->classify(frame.frame(faceRect(person)), &label, &score, false), 0);
        EXPECT_EQ(label == 1 && score >= 0.75F, person.smiling) << name.toStdString() << " " << score;
        faces.push_back(faceRect(person));
        glasses.push_back(person.glasses ? 1 : 0);
    }
    std::vector<mirovane::FaceAttrResult> results;
    attributes->detect(frame.frame, faces, results, false);
    ASSERT_THAT(results, SizeIs(faces.size()));
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_THAT(results[i].labels, ElementsAre(glasses[i])) << faces[i];
}

TEST_F(DemoPeople, TakePosesByTheirFaces)
{
    const auto poses = make<mirovane::BodyPoseClassify>("body_pose.yml");
    const Handled frame = handled(40);
    const cv::Rect body = frame.bodies.at("Dora");
    const cv::Point2f middle = cv::Point2f(body.tl() + body.br()) / 2;
    const auto pose = [&](const std::function<void(cv::Mat &)> &change) {
        cv::Mat picture = frame.frame.clone();
        change(picture);
        std::vector<int> labels;
        std::vector<float> scores;
        poses->classify(picture, {body}, labels, scores, false);
        return labels.at(0);
    };
    const auto turned = [&](double degrees) {
        return [=](cv::Mat &picture) {
            cv::warpAffine(picture.clone(), picture, cv::getRotationMatrix2D(middle, degrees, 1),
                           picture.size());
        };
    };
    EXPECT_EQ(pose([](cv::Mat &) {}), 2) << "upright";
    EXPECT_EQ(pose(turned(25)), 3) << "leaning";
    EXPECT_EQ(pose(turned(180)), 1) << "no face";
    EXPECT_EQ(pose([&](cv::Mat &picture) { picture(body).setTo(cv::Scalar(90, 60, 40)); }), 1) << "covered";
}

TEST_F(DemoPeople, GetTheSamePosesFromSeveralThreads)
{
    const auto poses = make<mirovane::BodyPoseClassify>("body_pose.yml");
    const Handled frame = handled(40);
    std::vector<cv::Rect> bodies;
    for (const auto &entry : frame.bodies)
        bodies.push_back(entry.second);
    const auto classify = [&] {
        std::vector<int> labels;
        std::vector<float> scores;
        poses->classify(frame.frame, bodies, labels, scores, false);
        return labels;
    };
    const auto expected = classify();
    std::vector<std::future<std::vector<int>>> calls;
    for (int i = 0; i < 4; ++i)
        calls.push_back(std::async(std::launch::async, classify));
    for (auto &call : calls)
        EXPECT_EQ(call.get(), expected);
}
