#include "aiconfig.h"
#include "fixture.h"

namespace {

/// Reads what a strategy keeps to itself.
struct Interval : BaseStrategy
{
    static int of(const BaseStrategy &strategy) { return strategy.*&Interval::m_frameInterval; }
};

/// Runs one frame of an analysis and returns its events.
class ClassAnalysis : public StrategyTest
{
protected:
    /// Students "a", "b", ... with a face inside a body each.
    void seat(int count)
    {
        for (int i = 0; i < count; ++i) {
            students::enrol(*recognisers.ids, QString(QChar('a' + i)), 50 + 20 * i);
            show({200 + 300 * i, 300, 90, 90}, 50 + 20 * i);
            recognisers.bodies->rects.emplace_back(150 + 300 * i, 250, 200, 400);
        }
    }

    size_t run(const char *name)
    {
        events.clear();
        listen(BaseStrategy::createNewStrategy(name, "9"))->handleFrame(frame);
        return events.size();
    }

    /// The payload of the one event of a frame.
    QVariantMap onlyEvent(const char *name, unsigned int code)
    {
        EXPECT_EQ(run(name), 1U);
        if (events.empty())
            return {};
        EXPECT_EQ(events[0].code, code);
        EXPECT_EQ(events[0].requestID, "9");
        return events[0].info;
    }
};

TEST_F(ClassAnalysis, EachLooksAtItsShareOfTheFrames)
{
    const std::pair<const char *, int> intervals[] = {
        {"GalleryStrategyNew", 30}, {"HandupPickStrategy", 30}, {"ConcerntrationStrategy", 30},
        {"CMUHandupStrategy", 30},  {"TrackingStrategy", 10},   {"FunctionGameStrategy", 5},
        {"GalleryStrategy", 5},     {"AttributeStrategy", 1},   {"FaceEmotionStrategy", 1}};
    for (const auto &[name, frames] : intervals)
        EXPECT_EQ(Interval::of(*listen(BaseStrategy::createNewStrategy(name, "9"))), frames) << name;
    EXPECT_EQ(BaseStrategy::createNewStrategy("Strategy", "9"), nullptr);
}

TEST_F(ClassAnalysis, RaisedHandsAreTheStatesOfZero)
{
    EXPECT_EQ(run("HandupPickStrategy"), 0U); // no body
    recognisers.bodies->rects = {{1500, 100, 200, 300}};
    EXPECT_EQ(onlyEvent("HandupPickStrategy", 1013), (QVariantMap{{"handupStudents", QVariantList()}}));
    recognisers.bodies->rects.clear();
    seat(3);
    // Three crops for each: only a sure one among three that see no hand rules it out.
    recognisers.handup->labels = {5, -2, 1, 1, 1, 0, 1, 1, 1};
    recognisers.handup->scores = {0.1F, 0.79F, 0.8F, 0.9F, 0.9F, 0.9F, 0.79F, NAN, 0.79F};
    const QVariantList students = onlyEvent("HandupPickStrategy", 1013)["handupStudents"].toList();
    EXPECT_EQ(students::ids(students), QStringList({"b", "c"}));
    EXPECT_EQ(
        students.value(0),
        (QVariantMap{{"stuID", "b"}, {"state", 0}, {"x", 450}, {"y", 250}, {"width", 200}, {"height", 400}}));
    recognisers.bodies->script = [](const cv::Mat &) { throw std::runtime_error("gone"); };
    EXPECT_EQ(run("HandupPickStrategy"), 0U);
}

TEST_F(ClassAnalysis, RaisedHandsByPoseAreTheStatesOfZeroToo)
{
    recognisers.pose->keyPoints = {cv::Mat::zeros(1, 4, CV_32F)};
    EXPECT_EQ(run("CMUHandupStrategy"), 0U); // one matrix for no body
    recognisers.pose->keyPoints.clear();
    EXPECT_EQ(run("CMUHandupStrategy"), 0U); // no body
    seat(3);
    recognisers.pose->rects = recognisers.bodies->rects;
    recognisers.pose->keyPoints.assign(3, cv::Mat::zeros(1, 4, CV_32F));
    std::size_t judged = 0;
    recognisers.poseClass->answer = [&](std::size_t count, std::vector<int> &labels, std::vector<float> &) {
        judged = count;
        labels = {1, 0, -1};
        return 0;
    };
    const QVariantList students = onlyEvent("CMUHandupStrategy", 1013)["handupStudents"].toList();
    EXPECT_EQ(judged, 3U);
    EXPECT_EQ(frame.at<cv::Vec3b>(250, 450), cv::Vec3b(255, 0, 0)) << "b's body, for a window";
    EXPECT_EQ(students::ids(students), QStringList("b"));
    EXPECT_EQ(students.value(0).toMap()["state"], QVariant(0));
}

TEST_F(ClassAnalysis, ConcentrationIsThePlainSumAndListsEveryStudent)
{
    bool looked = false;
    recognisers.bodies->script = [&](const cv::Mat &) { looked = true; };
    recognisers.bodies->rects = {{1500, 100, 200, 300}}; // a stranger's, which doesn't count
    EXPECT_EQ(run("ConcerntrationStrategy"), 0U);
    EXPECT_FALSE(looked) << "although nobody is enrolled";
    seat(6);
    recognisers.bodyPose->labels = {0, 1, 2, 5, 3, 4};
    const QVariantMap info = onlyEvent("ConcerntrationStrategy", 1012);
    EXPECT_EQ(info.keys(), QStringList({"concerntration", "studentStates"}));
    EXPECT_EQ(info["concerntration"], QVariant(0.9794 + -0.5828 + 1.4348 + 0.0 + 0.877 + 0.1807));
    EXPECT_EQ(students::ids(info["studentStates"]), QStringList({"a", "b", "c", "d", "e", "f"}));
    EXPECT_EQ(info["studentStates"].toList()[3].toMap()["state"], QVariant(5));
    recognisers.bodies->rects.clear();
    EXPECT_EQ(run("ConcerntrationStrategy"), 0U);
}

TEST_F(ClassAnalysis, SmilesGoToEverybodyAndStrayFacesAreClipped)
{
    seat(1);
    recognisers.emotion->label = 1;
    recognisers.emotion->score = 0.75F;
    ASSERT_EQ(run("ConcerntrationStrategy"), 2U);
    EXPECT_EQ(events[1].code, 1019U);
    EXPECT_EQ(events[1].requestID, "");
    EXPECT_EQ(events[1].info,
              (QVariantMap{{"stuID", "a"}, {"x", 195}, {"y", 295}, {"width", 100}, {"height", 100}}));
    EXPECT_EQ(recognisers.emotion->seen, cv::Size(100, 100));

    // Found by place only: the stored face may lie anywhere.
    recognisers.faces->finds({});
    const auto eventsWithFaceAt = [&](const cv::Rect &face) {
        StudentInfo student = students::get("a");
        student.faceRect = face;
        DataManager::instance()->updateStudent(student);
        return run("ConcerntrationStrategy");
    };
    EXPECT_EQ(eventsWithFaceAt({1900, 1060, 100, 100}), 2U);
    EXPECT_EQ(recognisers.emotion->seen, cv::Size(20, 20));
    EXPECT_EQ(eventsWithFaceAt({5000, 5000, 100, 100}), 1U);

    const cv::Rect inside(200, 300, 90, 90);
    AIConfig::instance().setEnableEmotion(false);
    EXPECT_EQ(eventsWithFaceAt(inside), 1U);
    AIConfig::instance().setEnableEmotion(true);
    recognisers.emotion->score = 0.7499F;
    EXPECT_EQ(eventsWithFaceAt(inside), 1U);
    recognisers.emotion->score = 0.99F;
    recognisers.emotion->label = 2;
    EXPECT_EQ(eventsWithFaceAt(inside), 1U);
}

/// In no analysis that there is, whatever it finds.
TEST_F(ClassAnalysis, SmilesLeftOffAreNotLookedFor)
{
    const auto callsInAll = [&] {
        recognisers.emotion->calls = 0;
        for (const char *name : {"GalleryStrategy", "GalleryStrategyNew", "HandupPickStrategy",
                                 "CMUHandupStrategy", "FaceEmotionStrategy", "ConcerntrationStrategy",
                                 "TrackingStrategy", "FunctionGameStrategy", "AttributeStrategy"})
            run(name);
        return recognisers.emotion->calls;
    };
    seat(3);
    AIConfig::instance().setEnableEmotion(false);
    EXPECT_EQ(callsInAll(), 0);
    AIConfig::instance().setEnableEmotion(true);
    EXPECT_EQ(callsInAll(), 3);
}

TEST_F(ClassAnalysis, AttributesListEveryoneAndGlassesStayKnown)
{
    seat(1);
    run("HandupPickStrategy"); // finds him
    students::enrol(*recognisers.ids, "z", 200);
    recognisers.attributes->label = 6; // glasses are bit 0
    const auto attributes = [&] {
        return onlyEvent("AttributeStrategy", 1017)["studentsAttribute"].toList();
    };
    QVariantMap a{{"stuID", "a"}, {"clothColor", "others"}, {"row", 1}, {"glass", false}};
    const QVariantMap z{{"stuID", "z"}, {"clothColor", "others"}, {"row", 2}, {"glass", false}};
    EXPECT_EQ(attributes(), (QVariantList{a, z}));
    recognisers.attributes->label = 1;
    a["glass"] = true;
    EXPECT_EQ(attributes(), (QVariantList{a, z}));

    DataManager::instance()->resetStatus(); // nobody found any more
    recognisers.attributes->label = 6;
    EXPECT_EQ(attributes(), (QVariantList{a, z}));
    DataManager::instance()->clear();
    EXPECT_TRUE(attributes().isEmpty());
}

} // namespace
