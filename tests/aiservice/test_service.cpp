#include "aiservice.h"
#include "atonce.h"
#include "fixture.h"
#include "logcapture.h"

namespace {

/// Services with scripted recognisers. Like in the process, nobody deletes one.
class ServiceObject : public ::testing::Test
{
protected:
    ServiceObject()
    {
        QDir::setCurrent(QDir::tempPath());
        config.setModelLoadFlag(0);
    }
    ~ServiceObject() override
    {
        ImageWritter camera("Camera", 1, 64, nullptr); // a close waits for one
        for (AIService *service : services)
            service->close("end");
    }
    static AIService &makeService() { return *services.emplace_back(new AIService); }
    static int state(AIService &service)
    {
        return service.info(1001, {}, "r")["rsp_data"].toMap()["status"].toInt();
    }

    inline static auto &services = *new std::vector<AIService *>;
    AIConfig &config = AIConfig::instance();
    ModelManagerTestAccess::Recognisers recognisers;
};

TEST_F(ServiceObject, StatesDecideWhatPasses)
{
    const QVariantMap notOpen{
        {"rsp_error", -15}, {"rsp_error_detail", "aiservice not open"}, {"rsp_data", QVariant()}};
    QVariantMap notInit = notOpen;
    notInit["rsp_error_detail"] = "aiservice not init";
    AIService &service = makeService();
    for (unsigned int code : {1001, 1028})
        EXPECT_EQ(service.execute(code, {}, "r"), notOpen);
    EXPECT_EQ(service.close("r"), notOpen);
    service.open("r");
    for (unsigned int code : {0, 1020, 1029, 1040})
        EXPECT_EQ(service.execute(code, {}, "r"), notInit);
    EXPECT_EQ(service.execute(1028, {}, "r"), error(0));
    EXPECT_EQ(state(service), 1);
    EXPECT_EQ(service.info(7, {}, "r"),
              (QVariantMap{{"rsp_error", -10}, {"rsp_data", QVariantMap{{"command_code", 7U}}}}));

    // In state 2, looking for a camera in vain, it refuses just the commands that need one.
    ASSERT_EQ(service.execute(1001, {}, "r")["rsp_error"], QVariant(0));
    LogCapture log;
    ASSERT_TRUE(eventually([&] { return service.execute(1038, {}, "r") == error(-9); }));
    EXPECT_TRUE(log.takeLines().contains("warning: [startAttributeDetection] controller is invalid"));
    const QVariantMap folder{{"recordPath", QDir::tempPath()}};
    QList<unsigned int> refused;
    for (unsigned int code = 1000; code < 1050; ++code) {
        if (service.execute(code, folder, "r") == error(-9))
            refused.append(code);
    }
    QStringList lines = log.takeLines();
    EXPECT_EQ(lines.filter("controller is invalid").size(), refused.size());
    EXPECT_EQ(lines.count("warning: controller is invalid"), 2); // the game's line has no name
    EXPECT_EQ(refused,
              (QList<unsigned int>{1021, 1022, 1030, 1031, 1032, 1033, 1034, 1035, 1036, 1037, 1038}));
}

TEST_F(ServiceObject, TheFirstInitialisationIsWhatARecoveryLoads)
{
    AIService &service = makeService();
    service.open("r");
    QVariantMap params{{"cmu", true}, {"identify", "room1"}, {"enableEmotion", false}};
    EXPECT_EQ(service.execute(1001, params, "r"),
              (QVariantMap{{"rsp_error", 0},
                           {"rsp_error_detail", ""},
                           {"rsp_data", QVariantMap{{"command_code", 1001U}}}}));
    EXPECT_EQ(service.execute(1029, {}, "r"), error(-10));
    params = {{"cmuPose", true}, {"identify", "room2"}};
    EXPECT_EQ(service.execute(1001, params, "r")["rsp_error"], QVariant(0));
    EXPECT_EQ(config.identify(), "room2");
    EXPECT_FALSE(config.enableEmotion);
    config.setEnableEmotion(true);

    AIService &next = makeService();
    EXPECT_TRUE(next.recover());
    EXPECT_EQ(config.modelLoadFlag, 0x200U);
    EXPECT_EQ(state(next), 2);
    EXPECT_EQ(next.open("r")["rsp_error_detail"], "aiservice already open");

    QFile::remove("ai.data");
    ModelManagerTestAccess::clear();
    config.ssdModelPath = "/nowhere";
    AIService &last = makeService();
    EXPECT_FALSE(last.recover());
    EXPECT_EQ(state(last), 1);
    QSqliteStorage::instance()->addFaceMat("a", "img", {}); // there was no file, and now it has its tables
    EXPECT_EQ(QSqliteStorage::instance()->getStudentInfo().size(), 1);
    EXPECT_EQ(config.modelLoadFlag, loadableMasks());
    config.setModelLoadFlag(0);
    EXPECT_EQ(last.execute(1001, {}, "r")["rsp_error"], QVariant(0));

    AIService &thrown = makeService();
    recognisers.install();
    ImageWritter camera("Camera", 1, 64, nullptr); // without one no student is registered and told
    const auto thrower =
        QObject::connect(&EventCatcher::fresh(), &IService::serviceMessgeSignal, [] { throw 7; });
    LogCapture log;
    EXPECT_FALSE(thrown.recover());
    EXPECT_EQ(log.takeLines().filter("critical: [recover] failed: unknown exception").size(), 1);
    QObject::disconnect(thrower);
}

TEST_F(ServiceObject, OneCommandAtATime)
{
    EventCatcher &catcher = EventCatcher::fresh();
    AIService &service = makeService();
    service.open("r");
    service.execute(1001, {}, "r");
    std::atomic<size_t> meanwhile{0};
    recognisers.ids->onCall = [&] {
        const size_t before = catcher.events(1021).size();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        meanwhile += catcher.events(1021).size() - before;
    };
    const QVariantMap guests{{"galleries", QVariantList{gallery("guest", 90)}}};
    atOnce(100, {[&](int round) {
                     if (round < 5)
                         service.execute(1020, guests, "r");
                 },
                 [&](int) {
                     service.execute(1026, {}, "r");
                     std::this_thread::sleep_for(std::chrono::milliseconds(1)); // so they meet all five
                 }});
    EXPECT_EQ(meanwhile, 0U);
    EXPECT_EQ(catcher.events(1021).size(), 100U);
}

} // namespace
