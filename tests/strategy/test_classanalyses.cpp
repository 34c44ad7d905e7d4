#include "aiconfig.h"
#include "basestrategy.h"
#include "eventcatcher.h"
#include "students.h"

#include <gmock/gmock.h>

namespace {

using Events = std::vector<EventCatcher::Event>;

/// Runs one frame of an analysis and returns its events.
class ClassAnalysis : public ::testing::Test
{
protected:
    void SetUp() override { DataManager::instance()->clear(); }
    void TearDown() override
    {
        DataManager::instance()->clear();
        AIConfig::instance().setEnableEmotion(true);
    }

    /// Students "a", "b", ... with a face inside a body each.
    void seat(int count)
    {
        std::vector<cv::Rect> faces;
        for (int i = 0; i < count; ++i) {
            const cv::Rect face(200 + 300 * i, 300, 90, 90);
            students::enrol(*recognisers.ids, QString(QChar('a' + i)), 50 + 20 * i);
            students::paint(frame, face, 50 + 20 * i);
            faces.push_back(face);
            recognisers.bodies->rects.emplace_back(150 + 300 * i, 250, 200, 400);
        }
        recognisers.faces->finds(faces);
    }

    Events run(const char *name)
    {
        BaseStrategy *strategy = createStrategy(name);
        Events events;
        QObject::connect(
            strategy, &BaseStrategy::serviceMessgeSignal, strategy,
            [&](unsigned int code, const QVariant &info, const QString &requestID) {
                events.push_back({code, info.toMap(), QString(), requestID});
            },
            Qt::DirectConnection);
        strategy->handleFrame(frame);
        BaseStrategy::release(strategy);
        return events;
    }
    static BaseStrategy *createStrategy(const char *name)
    {
        return BaseStrategy::createNewStrategy(name, "9");
    }

    ModelManagerTestAccess::Recognisers recognisers;
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(10));
};

QStringList ids(const QVariant &list)
{
    QStringList result;
    for (const QVariant &value : list.toList())
        result.append(value.toMap()["stuID"].toString());
    return result;
}

TEST_F(ClassAnalysis, RaisedHandsAreTheStatesOfZero)
{
    seat(3);
    recognisers.handup->labels = {1, 1, 1, 0, 1, 1, 1, 1, 1};
    recognisers.handup->scores = {0.9F, 0.1F, 0.1F, 0.9F, 0.9F, 0.9F, 0.5F, 0.5F, 0.5F};
    const Events events = run("HandupPickStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].code, 1013U);
    EXPECT_EQ(events[0].requestID, "9");
    EXPECT_EQ(events[0].info.keys(), QStringList("handupStudents"));
    EXPECT_EQ(ids(events[0].info["handupStudents"]), QStringList({"b", "c"}));
    const QVariantMap entry = events[0].info["handupStudents"].toList()[0].toMap();
    EXPECT_EQ(
        entry,
        (QVariantMap{{"stuID", "b"}, {"state", 0}, {"x", 450}, {"y", 250}, {"width", 200}, {"height", 400}}));
}

TEST_F(ClassAnalysis, HandsOfNobodyAreAnEmptyListAndNoBodyIsNoEvent)
{
    recognisers.bodies->rects = {{100, 100, 200, 300}};
    Events events = run("HandupPickStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_TRUE(events[0].info.contains("handupStudents"));
    EXPECT_TRUE(events[0].info["handupStudents"].toList().isEmpty());
    recognisers.bodies->rects.clear();
    EXPECT_TRUE(run("HandupPickStrategy").empty());
    recognisers.bodies->script = [](const cv::Mat &) { throw std::runtime_error("gone"); };
    EXPECT_TRUE(run("HandupPickStrategy").empty());
}

TEST_F(ClassAnalysis, AClassifierOfWrongLengthCostsTheFrame)
{
    seat(2);
    recognisers.handup->labels = {1, 1, 1};
    recognisers.handup->scores = {0.9F, 0.9F, 0.9F};
    EXPECT_TRUE(run("HandupPickStrategy").empty());
}

TEST_F(ClassAnalysis, ThePoseNetworkJudgesWhatTheRecordsHold)
{
    seat(2);
    recognisers.pose->rects = recognisers.bodies->rects;
    recognisers.pose->keyPoints = std::vector<cv::Mat>(2, cv::Mat::ones(1, 4, CV_32F));
    recognisers.poseClass->states = {3, 0};
    Events events = run("CMUHandupStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].code, 1013U);
    EXPECT_EQ(ids(events[0].info["handupStudents"]), QStringList("b"));

    recognisers.pose->rects.clear();
    recognisers.pose->keyPoints.clear();
    EXPECT_TRUE(run("CMUHandupStrategy").empty());
    ModelManagerTestAccess::clear();
    EXPECT_TRUE(run("CMUHandupStrategy").empty());
}

TEST_F(ClassAnalysis, ConcentrationIsThePlainSumAndListsEveryStudent)
{
    seat(4);
    recognisers.bodyPose->labels = {0, 1, 2, 7};
    const Events events = run("ConcerntrationStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].code, 1012U);
    EXPECT_EQ(events[0].info.keys(), QStringList({"concerntration", "studentStates"}));
    EXPECT_EQ(events[0].info["concerntration"], QVariant(0.9794 + -0.5828 + 1.4348 + 0.0));
    EXPECT_EQ(ids(events[0].info["studentStates"]), QStringList({"a", "b", "c", "d"}));
    EXPECT_EQ(events[0].info["studentStates"].toList()[3].toMap()["state"], QVariant(7));
}

TEST_F(ClassAnalysis, ConcentrationNeedsStudentsAndBodies)
{
    bool looked = false;
    recognisers.bodies->script = [&](const cv::Mat &) { looked = true; };
    recognisers.bodies->rects = {{900, 100, 200, 300}};
    EXPECT_TRUE(run("ConcerntrationStrategy").empty());
    EXPECT_FALSE(looked);
    students::enrol(*recognisers.ids, "absent", 50);
    const Events events = run("ConcerntrationStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].info["concerntration"], QVariant(0.0));
    EXPECT_TRUE(events[0].info["studentStates"].toList().isEmpty());
    recognisers.bodies->rects.clear();
    EXPECT_TRUE(run("ConcerntrationStrategy").empty());
}

TEST_F(ClassAnalysis, SmilesGoToEverybodyAndStrayFacesAreClipped)
{
    seat(1);
    recognisers.emotion->label = 1;
    recognisers.emotion->score = 0.75F;
    Events events = run("ConcerntrationStrategy");
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1].code, 1019U);
    EXPECT_EQ(events[1].requestID, "");
    EXPECT_EQ(events[1].info,
              (QVariantMap{{"stuID", "a"}, {"x", 195}, {"y", 295}, {"width", 100}, {"height", 100}}));
    EXPECT_EQ(recognisers.emotion->seen, cv::Size(100, 100));

    // Found by place only: the stored face may lie anywhere.
    recognisers.faces->finds({});
    const auto move = [&](const cv::Rect &face) {
        StudentInfo student = students::get("a");
        student.faceRect = face;
        DataManager::instance()->updateStudent(student);
    };
    move({1900, 1060, 100, 100});
    EXPECT_EQ(run("ConcerntrationStrategy").size(), 2U);
    EXPECT_EQ(recognisers.emotion->seen, cv::Size(20, 20));
    for (const cv::Rect &outside : {cv::Rect(5000, 5000, 100, 100), cv::Rect(10, 10, -5, 20), cv::Rect()}) {
        move(outside);
        EXPECT_EQ(run("ConcerntrationStrategy").size(), 1U);
    }

    move({200, 300, 90, 90});
    AIConfig::instance().setEnableEmotion(false);
    EXPECT_EQ(run("ConcerntrationStrategy").size(), 1U);
}

TEST_F(ClassAnalysis, AttributesListEveryoneAndGlassesStayKnown)
{
    seat(2);
    run("HandupPickStrategy"); // finds the two
    students::enrol(*recognisers.ids, "z", 200);
    recognisers.attributes->label = 3;
    Events events = run("AttributeStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].code, 1017U);
    const QVariantList list = events[0].info["studentsAttribute"].toList();
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[0].toMap(),
              (QVariantMap{{"stuID", "a"}, {"clothColor", "others"}, {"row", 1}, {"glass", true}}));
    EXPECT_EQ(list[2].toMap(),
              (QVariantMap{{"stuID", "z"}, {"clothColor", "others"}, {"row", 2}, {"glass", false}}));
    EXPECT_EQ(recognisers.attributes->seen.size(), 1U);

    DataManager::instance()->resetStatus(); // nobody found any more
    recognisers.attributes->label = 2;
    events = run("AttributeStrategy");
    EXPECT_EQ(events[0].info["studentsAttribute"].toList()[0].toMap()["glass"], QVariant(true));
    DataManager::instance()->clear();
    events = run("AttributeStrategy");
    ASSERT_EQ(events.size(), 1U);
    EXPECT_TRUE(events[0].info["studentsAttribute"].toList().isEmpty());
}

TEST_F(ClassAnalysis, FaceEmotionStrategyDoesNothing)
{
    seat(1);
    EXPECT_TRUE(run("FaceEmotionStrategy").empty());
}

} // namespace
