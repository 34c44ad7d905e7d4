#include "fixture.h"

namespace {

/// Like in the process, nobody deletes a service.
AIService &makeService()
{
    static auto *const kept = new std::vector<AIService *>;
    kept->push_back(new AIService);
    return *kept->back();
}

/// The service object with scripted recognisers and a camera; closed at the end.
class ServiceObject : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QDir::setCurrent(QDir::tempPath());
        AIConfig::instance().setModelLoadFlag(0);
        EventCatcher::fresh();
    }
    void TearDown() override
    {
        ImageWritter camera("Camera", 1, 64, nullptr); // a close waits for one
        service.close("end");
    }

    int code(unsigned command, const QVariantMap &params = {})
    {
        return service.execute(command, params, "r")["rsp_error"].toInt();
    }
    int state() { return service.info(1001, {}, "r")["rsp_data"].toMap()["status"].toInt(); }

    ModelManagerTestAccess::Recognisers recognisers;
    AIService &service = makeService();
};

const QVariantMap notOpen{
    {"rsp_error", -15}, {"rsp_error_detail", "aiservice not open"}, {"rsp_data", QVariant()}};
const QVariantMap notInit{
    {"rsp_error", -15}, {"rsp_error_detail", "aiservice not init"}, {"rsp_data", QVariant()}};

TEST_F(ServiceObject, StatesDecideWhatPasses)
{
    EXPECT_EQ(service.close("r"), notOpen);
    EXPECT_EQ(service.execute(1001, {}, "r"), notOpen);
    EXPECT_EQ(service.execute(1028, {}, "r"), notOpen);
    EXPECT_EQ(service.execute(1020, {}, "r"), notInit);
    EXPECT_EQ(service.execute(0, {}, "r"), notInit);
    EXPECT_EQ(state(), 0);

    EXPECT_EQ(service.open("r"), error(0));
    EXPECT_EQ(state(), 1);
    EXPECT_EQ(service.open("r")["rsp_error_detail"], "aiservice already open");
    EXPECT_EQ(service.execute(1029, {}, "r"), notInit);
    EXPECT_EQ(service.execute(1028, {}, "r"), error(0));
    EXPECT_EQ(state(), 1);

    const QVariantMap initialised = service.execute(1001, {}, "r");
    EXPECT_EQ(initialised["rsp_error"], QVariant(0));
    EXPECT_EQ(initialised["rsp_error_detail"], QVariant(QString()));
    EXPECT_EQ(initialised["rsp_data"], QVariant(QVariantMap{{"command_code", 1001U}}));
    EXPECT_EQ(state(), 2);
    EXPECT_EQ(service.execute(1029, {}, "r"), error(-10));
    EXPECT_EQ(code(1040), -15);
    EXPECT_EQ(code(1001), 0); // again
}

TEST_F(ServiceObject, InfoAnswersStatusAndNothingElse)
{
    const QVariantMap status = service.info(1001, {}, "r");
    EXPECT_EQ(status["rsp_error"], QVariant(0));
    EXPECT_EQ(status["rsp_data"],
              QVariant(QVariantMap{{"status", 0}, {"version", "0.8"}, {"command_code", 1001U}}));
    const QVariantMap unknown = service.info(7, {}, "r");
    EXPECT_EQ(unknown, (QVariantMap{{"rsp_error", -10}, {"rsp_data", QVariantMap{{"command_code", 7U}}}}));
}

TEST_F(ServiceObject, ModelsThatCannotBeLoadedLeaveTheServiceOpen)
{
    ModelManagerTestAccess::clear();
    AIConfig::instance().ssdModelPath = "/nowhere";
    service.open("r");
    const QVariantMap reply = service.execute(1001, QVariantMap{{"ssd", true}}, "r");
    EXPECT_EQ(reply["rsp_error"], QVariant(-2));
    EXPECT_EQ(reply["rsp_error_detail"], "load model failed");
    EXPECT_EQ(reply["rsp_data"], QVariant(QVariantMap{{"command_code", 1001U}}));
    EXPECT_EQ(state(), 1);
    AIConfig::instance().setModelLoadFlag(0);
    EXPECT_EQ(code(1001), 0);
}

TEST_F(ServiceObject, ParametersOfAnyTypeAreHarmless)
{
    service.open("r");
    code(1001);
    const QVariantList wild{QVariant(),
                            QVariant(7),
                            QVariant("text"),
                            QVariantList{1, 2},
                            QByteArray(100, 'x'),
                            QVariantMap{{"galleries", "text"},
                                        {"stuID", QVariantList{1}},
                                        {"stuList", 3},
                                        {"recordPath", QVariantMap()}}};
    for (unsigned command = 1019; command <= 1041; ++command) {
        if (command == 1028 || command == 1039)
            continue;
        for (const QVariant &data : wild)
            EXPECT_LE(service.execute(command, data, "r")["rsp_error"].toInt(), 0) << command;
    }
}

TEST_F(ServiceObject, AnInitialisationIsWhatARecoveryLoads)
{
    service.open("r");
    code(1001, {{"cmu", true}, {"identify", "room1"}, {"enableEmotion", false}});
    code(1001, {{"cmuPose", true}, {"identify", "room2"}});
    EXPECT_EQ(AIConfig::instance().identify(), "room2");
    EXPECT_FALSE(AIConfig::instance().enableEmotion);
    unsigned flag = 0;
    QString identify;
    EXPECT_TRUE(QSqliteStorage::instance()->getConfig(flag, identify));
    EXPECT_EQ(flag, 0x200U); // the first one stands
    EXPECT_EQ(identify, "room1");
    AIConfig::instance().setEnableEmotion(true);

    AIService &next = makeService();
    EXPECT_TRUE(next.recover());
    EXPECT_EQ(AIConfig::instance().modelLoadFlag, 0x200U);
    EXPECT_EQ(next.info(1001, {}, "r")["rsp_data"].toMap()["status"], QVariant(2));
    EXPECT_EQ(next.open("r")["rsp_error_detail"], "aiservice already open");
    ImageWritter camera("Camera", 1, 64, nullptr);
    next.close("r");
}

TEST_F(ServiceObject, ARecoveryWithoutModelsStopsAtOpen)
{
    QFile::remove("ai.data");
    ModelManagerTestAccess::clear();
    AIConfig::instance().ssdModelPath = "/nowhere";
    EXPECT_FALSE(service.recover());
    EXPECT_EQ(state(), 1);
    EXPECT_EQ(AIConfig::instance().modelLoadFlag, 0x1241049U);
    AIConfig::instance().setModelLoadFlag(0);
    EXPECT_EQ(code(1001), 0);
}

} // namespace
