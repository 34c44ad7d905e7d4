#include "classroom.h"
#include "democlass.h"
#include "eventually.h"
#include "imageutil.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <QDir>
#include <QFile>

#include <csignal>

namespace {

/// A service, a camera on the demo class, and a client that has initialised the service.
class ClassTest : public ::testing::Test
{
protected:
    /// Writes one frame of the demo class as the camera's picture. False without the photographs.
    bool prepareClass()
    {
        const DemoClass demo(DemoClass::findPhotographs());
        if (!demo.isValid())
            return false;
        truth = demo.truth(0);
        cv::Mat rgb;
        cv::cvtColor(demo.frame(0), rgb, cv::COLOR_BGR2RGB);
        pixelFile = service.filePath("pixels");
        QFile file(pixelFile);
        return file.open(QFile::WriteOnly) &&
               file.write(reinterpret_cast<const char *>(rgb.data), static_cast<qint64>(rgb.total() * 3)) > 0;
    }

    void startService(const QStringList &arguments = {})
    {
        ASSERT_TRUE(service.start(arguments)) << service.standardError().constData();
        client.reset(new TestClient(service.socketPath()));
        ASSERT_TRUE(client->isConnected());
    }

    void openAndInit(const QVariantMap &models = allModels())
    {
        ASSERT_EQ(client->open()["rsp_error"], QVariant(0));
        ASSERT_EQ(client->execute(1001, models)["rsp_error"], QVariant(0));
    }

    QVariantMap fetch()
    {
        EXPECT_EQ(executeWhenConnected(*client, 1021, QVariantMap(), "fetch")["rsp_error"], QVariant(0));
        return client->event(1011)["event_info"].toMap();
    }

    ServiceProcess service;
    FrameSource camera{service.home()};
    std::unique_ptr<TestClient> client;
    QVector<DemoClass::Person> truth;
    QString pixelFile;
};

cv::Rect rectOf(const QVariantMap &map)
{
    return {map["x"].toInt(), map["y"].toInt(), map["width"].toInt(), map["height"].toInt()};
}

/// The person of the demo class whose face this is; null if it is nobody's.
const DemoClass::Person *personAt(const QVector<DemoClass::Person> &people, const cv::Rect &face)
{
    for (const DemoClass::Person &person : people) {
        if ((person.face & face).area() > person.face.area() / 2)
            return &person;
    }
    return nullptr;
}

TEST_F(ClassTest, FacesAreFoundEnrolledAndBackAfterAKill)
{
    if (!prepareClass())
        GTEST_SKIP() << "the photographs of opencv-doc are not here";
    ASSERT_TRUE(camera.start(40, pixelFile));
    startService();
    openAndInit();

    const QVariantMap seen = fetch();
    EXPECT_EQ(ai_image::convertBase642Mat(seen["image"].toString()).size(), cv::Size(1920, 1080));
    QVariantList enrolment;
    QMap<QString, cv::Rect> faces;
    for (const QVariant &value : seen["galleries"].toList()) {
        QVariantMap gallery = value.toMap();
        EXPECT_EQ(gallery["stuID"], QVariant(QString()));
        EXPECT_EQ(ai_image::convertBase642Mat(gallery["faceImg"].toString()).size(), cv::Size(128, 128));
        const DemoClass::Person *person = personAt(truth, rectOf(gallery));
        if (!person)
            continue;
        faces[person->name] = rectOf(gallery);
        gallery["stuID"] = person->name;
        enrolment.append(gallery);
    }
    EXPECT_GE(faces.size(), truth.size() * 9 / 10);
    ASSERT_EQ(client->execute(1022, QVariantMap{{"galleries", enrolment}}, "enrol")["rsp_error"],
              QVariant(0));
    EXPECT_EQ(client->event(1018)["event_info"].toMap()["successList"].toList().size(), faces.size());

    service.crash();
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), QStringList(faces.keys()));
    const QVariantMap again = fetch();
    int named = 0;
    for (const QVariant &value : again["galleries"].toList()) {
        const QVariantMap gallery = value.toMap();
        if (const DemoClass::Person *person = personAt(truth, rectOf(gallery))) {
            EXPECT_EQ(gallery["stuID"], QVariant(person->name));
            EXPECT_EQ(gallery["isDetected"], QVariant(true));
            ++named;
        }
    }
    EXPECT_EQ(named, faces.size());
}

TEST_F(ClassTest, TheVideoWatchTellsThatFramesStoppedAndCameBack)
{
    ASSERT_TRUE(camera.start());
    startService();
    openAndInit({});
    // The watch may have looked before the first frame; the pair of the start is over when it says 1, or
    // never came.
    camera.stop();
    QVariantMap event = client->event(1022);
    EXPECT_EQ(event["event_info"].toMap(), (QVariantMap{{"status", 0}}));
    EXPECT_EQ(event["event_type"], "service");
    EXPECT_EQ(event["event_req_id"], "0");
    ASSERT_TRUE(camera.start());
    event = client->event(1022);
    EXPECT_EQ(event["event_info"].toMap(), (QVariantMap{{"status", 1}}));
}

TEST_F(ClassTest, AClientThatGoesEndsTheAnalysesOfAll)
{
    ASSERT_TRUE(camera.start());
    startService();
    openAndInit();
    EXPECT_EQ(executeWhenConnected(*client, 1030)["rsp_error"], QVariant(0));
    EXPECT_EQ(client->execute(1030)["rsp_error_detail"], "handup already start");
    {
        const TestClient passing(service.socketPath());
        ASSERT_TRUE(passing.isConnected());
    }
    ASSERT_TRUE(service.waitForOutput("disconnectReset"));
    EXPECT_TRUE(eventually([&] { return client->execute(1031)["rsp_error_detail"] == "handup not start"; }));
    EXPECT_EQ(client->info(1001)["rsp_data"].toMap()["status"], QVariant(2));
}

TEST_F(ClassTest, ASegmentationFaultLeavesADumpAndNoProcess)
{
    startService();
    service.signal(SIGSEGV);
    EXPECT_TRUE(service.waitForExit(1000));
    QDir folder(service.filePath("Orelia/logs/dump/aidump"));
    const QStringList dumps = folder.entryList({"*.dmp"});
    ASSERT_EQ(dumps.size(), 1);
    QProcess stackwalk;
    stackwalk.start(MINIDUMP_STACKWALK, {folder.filePath(dumps[0])});
    ASSERT_TRUE(stackwalk.waitForFinished(30000));
    EXPECT_TRUE(stackwalk.readAllStandardOutput().contains("SIGSEGV"));
}

TEST_F(ClassTest, RoundAfterRoundItStartsWorksAndLeavesWithCodeZero)
{
    const int rounds = qEnvironmentVariable("AI_ROUNDS", "4").toInt();
    ASSERT_TRUE(camera.start());
    for (int round = 0; round < rounds; ++round) {
        startService();
        openAndInit();
        executeWhenConnected(*client, 1021, QVariantMap(), "fetch");
        client->send(makeRequest(Kind::close, 0, {}, "self-kill"));
        ASSERT_TRUE(service.waitForExit()) << "round " << round;
        ASSERT_EQ(service.exitCode(), 0) << "round " << round;
        client.reset();
    }
    EXPECT_TRUE(QDir(service.filePath("Orelia/logs/dump/aidump")).entryList({"*.dmp"}).isEmpty());
}

TEST_F(ClassTest, ACloseWithoutACameraWaitsForOne)
{
    startService();
    ASSERT_EQ(client->open()["rsp_error"], QVariant(0));
    ASSERT_TRUE(client->send(makeRequest(Kind::close)));
    EXPECT_EQ(client->info(1001)["rsp_error"], QVariant(0)); // answers all the while
    EXPECT_TRUE(client->receive(700).isEmpty());
    ASSERT_TRUE(camera.start());
    EXPECT_EQ(client->receive()["rsp_error"], QVariant(0));
    EXPECT_EQ(client->info(1001)["rsp_data"].toMap()["status"], QVariant(0));
    openAndInit({}); // and it opens again
    EXPECT_EQ(executeWhenConnected(*client, 1021, QVariantMap())["rsp_error"], QVariant(0));
}

} // namespace
