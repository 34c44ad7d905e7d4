// Recogniser libraries that fail in every way that a library can.

#include "faultyservice.h"

namespace {

const QStringList theClass = {"Ada", "Ben", "Cleo"};

using RecogniserFaults = FaultTest;

/// Every command that reaches a recogniser is answered, whatever with.
TEST_F(RecogniserFaults, CostAFrameOrACommandAndNothingElse)
{
    startClassOf(theClass);
    const qint64 process = service.processId();
    const QVariantList players{QVariantMap{{"stuID", "Ada"}}, QVariantMap{{"stuID", "Ben"}}};
    for (const Behaviour behaviour : {Behaviour::throws, Behaviour::throwsNumber, Behaviour::garbage}) {
        SCOPED_TRACE(static_cast<int>(behaviour));
        service.behave(behaviour);
        EXPECT_EQ(code(1030), 0);
        EXPECT_EQ(code(1032), 0);
        EXPECT_EQ(code(1034, {{"stuID", "Ada"}}, "track"), 0);
        EXPECT_EQ(code(1036, {{"stuList", players}}, "game"), 0);
        EXPECT_LE(code(1021), 0);
        EXPECT_LE(code(1038), 0);
        EXPECT_LE(code(1020, {{"galleries", QVariantList{galleryOf("Dan")}}}), 0);
        enrol({"new"});
        EXPECT_LE(code(1023, galleryOf("Eve")), 0);
        EXPECT_EQ(code(1026), 0);
        EXPECT_LE(code(1025, {{"stuID", "new"}}), 0);
        EXPECT_TRUE(service.waitForCalls(bodyDetection, 12));
        EXPECT_TRUE(service.waitForCalls(faceDetection, 12));
        for (const int stop : {1031, 1033, 1035, 1037})
            EXPECT_EQ(code(stop, {{"stuID", "Ada"}, {"requestID", "track"}}), 0) << stop;

        service.behave(Behaviour::works);
        client->others.clear();
        ASSERT_EQ(code(1030, {}, "hands"), 0);
        const QVariantMap event = client->event(1013);
        EXPECT_EQ(event["event_req_id"], QVariant("hands"));
        ASSERT_EQ(code(1031), 0);
        ASSERT_EQ(service.processId(), process) << service.standardError().right(2000).constData();
    }
    const QStringList known = studentsOf(*client);
    for (const QString &student : theClass)
        EXPECT_TRUE(known.contains(student));
    service.crash();
    EXPECT_TRUE(service.dumps().isEmpty());

    for (const Behaviour behaviour : {Behaviour::throws, Behaviour::garbage, Behaviour::refusesToLoad}) {
        SCOPED_TRACE(static_cast<int>(behaviour));
        service.behave(behaviour);
        startService({"--recovery"});
        EXPECT_TRUE(service.alive());
        service.crash();
    }
    service.behave(Behaviour::works);
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), known);
}

TEST_F(RecogniserFaults, ACrashLeavesADumpAndARecoveryBringsTheClassBack)
{
    startClassOf(theClass);
    ASSERT_EQ(code(1030), 0);
    service.behave(bodyDetection, Behaviour::crashes);
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), -1);
    EXPECT_EQ(service.dumps().size(), 1);
    service.behave(Behaviour::works);
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), theClass);
}

TEST_F(RecogniserFaults, ARefusedModelCanBeLoadedLater)
{
    startService();
    ASSERT_EQ(client->open()["rsp_error"], QVariant(0));
    service.behave(handup, Behaviour::refusesToLoad);
    const QVariantMap refused = client->execute(1001, allModels());
    EXPECT_EQ(refused["rsp_error"], QVariant(-2));
    EXPECT_EQ(refused["rsp_error_detail"], QVariant("load model failed"));
    EXPECT_EQ(code(1030), -15);
    service.behave(Behaviour::works);
    EXPECT_EQ(code(1001, allModels()), 0);
}

/// A call that doesn't return can't be ended from outside. What needs it waits; what doesn't, goes on.
TEST_F(RecogniserFaults, AHangHoldsUpOnlyWhoNeedsThatRecogniser)
{
    startClassOf(theClass);
    service.behave(bodyDetection, Behaviour::hangs);
    ASSERT_EQ(code(1030), 0);
    ASSERT_TRUE(service.waitForHang(bodyDetection));
    EXPECT_EQ(code(1031), 0);
    EXPECT_EQ(enrol({"Dan"}), QStringList{"Dan"});
    EXPECT_EQ(code(1021), 0);
    EXPECT_FALSE(client->event(1011).isEmpty());
    EXPECT_EQ(code(1030), 0); // a new analysis, which queues behind the old one
    service.behave(Behaviour::works);
    EXPECT_FALSE(client->event(1013).isEmpty());

    // Inside a command all other commands wait, but the state is told.
    service.behave(faceId, Behaviour::hangs);
    const auto enrolment = [](const char *student) {
        const QVariantMap galleries{{"galleries", QVariantList{galleryOf(student)}}};
        return makeRequest(ai::Kind::Execute, 1022, galleries);
    };
    ASSERT_TRUE(client->send(enrolment("Eve")));
    ASSERT_TRUE(service.waitForHang(faceId));
    const int left = service.standardOutput().count("ServiceServer connection disconnect end");
    {
        TestClient other(service.socketPath());
        EXPECT_EQ(other.info(1001)["rsp_data"].toMap()["status"], QVariant(2));
        service.behave(Behaviour::works);
        EXPECT_FALSE(client->event(1018).isEmpty());
    }
    ASSERT_TRUE(service.waitForOutput("ServiceServer connection disconnect end", left + 1));

    // For ever: the process is killed, and nothing that was answered is lost.
    // A client that leaves meanwhile makes the server wait as well.
    service.behave(faceId, Behaviour::hangs);
    ASSERT_TRUE(client->send(enrolment("Finn")));
    ASSERT_TRUE(service.waitForHang(faceId));
    client.reset();
    ASSERT_TRUE(service.waitForOutput("ServiceServer connection disconnect: socket", left + 2));
    service.crash();
    service.behave(Behaviour::works);
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), theClass + QStringList({"Dan", "Eve"}));
}

} // namespace
