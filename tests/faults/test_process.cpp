// Crowds, silence, stopped processes, jumping clocks and recognisers that are far too slow.

#include "faultyservice.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sys/ioctl.h>
#include <vector>

namespace {

using ProcessFaults = FaultTest;

TEST_F(ProcessFaults, FiveHundredConnectionsComeAndGo)
{
    startClassOf({"Ada"}, 40);
    const int files = service.entriesOf("fd");
    const int threads = service.entriesOf("task");
    {
        std::vector<std::unique_ptr<TestClient>> crowd;
        for (int i = 0; i < 500; ++i) {
            crowd.push_back(std::make_unique<TestClient>(service.socketPath()));
            ASSERT_TRUE(crowd.back()->send(makeRequest(ai::Kind::Info, 1001))) << i;
        }
        for (auto &one : crowd)
            ASSERT_EQ(one->receive()["rsp_error"], QVariant(0));
        ASSERT_EQ(code(1026), 0);
        for (auto &one : crowd)
            ASSERT_FALSE(one->event(1021).isEmpty());
    }
    EXPECT_TRUE(service.alive());
    // The pool's threads come and go, and with each one a file.
    EXPECT_TRUE(eventually([&] { return service.entriesOf("fd") <= files + 4; }));
    EXPECT_LE(service.entriesOf("task"), threads + 4);
    EXPECT_EQ(studentsOf(*client), QStringList{"Ada"});
}

TEST_F(ProcessFaults, AStoppedProcessAnswersWhenItGoesOn)
{
    startClassOf({"Ada"});
    ASSERT_EQ(code(1030), 0);
    ASSERT_TRUE(service.waitForCalls(bodyDetection, 1));
    service.signal(SIGSTOP);
    ASSERT_TRUE(eventually([&] { return service.isStopped(); }));
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(client->send(makeRequest(ai::Kind::Info, 1001)));
    service.faults.clockSeconds = 10; // longer than the watch of the video waits
    service.signal(SIGCONT);
    for (int answers = 0; answers < 20;) {
        const QVariantMap message = client->receive();
        ASSERT_FALSE(message.isEmpty());
        answers += message.contains("rsp_error") ? 1 : 0;
    }
    client->others.clear();
    EXPECT_FALSE(client->event(1013).isEmpty());
    EXPECT_EQ(code(1031), 0);
}

#if !AI_SANITIZED // whose clock can't be intercepted

/// A pair of video events at a jump forward is all that a client sees of it.
TEST_F(ProcessFaults, TheClockMayJump)
{
    startClassOf({"Ada"});
    ASSERT_EQ(code(1030), 0);
    ASSERT_EQ(code(1039, {{"recordPath", service.filePath("video")}}), 0);
    ASSERT_FALSE(client->event(1020).isEmpty());
    for (const long jump : {86400L, -3 * 86400L}) {
        SCOPED_TRACE(jump);
        service.faults.clockSeconds = jump;
        client->others.clear();
        ASSERT_TRUE(service.waitForCalls(bodyDetection, 2));
        EXPECT_FALSE(client->event(1013).isEmpty());
        EXPECT_EQ(code(1026), 0);
    }
    // Frames that stop after a jump back are missed as ever.
    client->others.clear();
    camera.stop();
    EXPECT_EQ(client->event(1022)["event_info"].toMap(), (QVariantMap{{"status", 0}}));
    EXPECT_EQ(code(1040), 0);
    EXPECT_TRUE(service.alive());
}

/// By the steady clock. What wakes the thread of the timers is the watch of the video, every three seconds.
TEST_F(ProcessFaults, StudentsAreSavedEverySixMinutes)
{
    startClassOf({"Ada"});
    const auto saved = [&] {
        return !storedStudents(service.filePath("ai.data"), "bestGallery is not null").isEmpty();
    };
    service.faults.steadySeconds = 300;
    camera.stop();
    EXPECT_EQ(client->event(1022)["event_info"].toMap(), (QVariantMap{{"status", 0}}));
    EXPECT_FALSE(saved());
    service.faults.steadySeconds = 360;
    EXPECT_TRUE(eventually(saved));
}

/// Over two midnights. What wakes the thread that awaits them is the end of an analysis, which is deleted
/// there.
TEST_F(ProcessFaults, LogsAndDumpsAgeAtEachMidnight)
{
    constexpr long moreThanADay = 26 * 3600;
    const QString old = service.filePath("Orelia/logs/AI_2020-01-01_00-00-00.log");
    const QString older =
        service.filePath("Orelia/logs/dump/aidump/01234567-89ab-cdef-0123-456789abcdef.dmp");
    for (const auto &[path, days] : {std::pair(old, -28), std::pair(older, -29)}) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        ASSERT_TRUE(
            file.setFileTime(QDateTime::currentDateTime().addDays(days), QFile::FileModificationTime));
    }
    startClass(40);
    const auto wake = [&] { return code(1030) == 0 && code(1031) == 0; };
    ASSERT_TRUE(wake());
    for (const QString &due : {older, old}) {
        EXPECT_TRUE(QFile::exists(due)) << qPrintable(due);
        service.faults.clockSeconds += moreThanADay;
        service.faults.steadySeconds += moreThanADay;
        EXPECT_TRUE(eventually([&] { return wake() && !QFile::exists(due); })) << qPrintable(due);
        EXPECT_EQ(QFile::exists(old), due == older);
    }
}

/// The log changes its file at midnight. When it can't, lines are lost until it can.
TEST_F(ProcessFaults, MidnightWithoutAFolderForTheLog)
{
    startClass(40);
    ASSERT_EQ(code(1030), 0);
    QDir logs(service.filePath("Orelia/logs"));
    ASSERT_TRUE(logs.removeRecursively());
    QFile inItsPlace(logs.path());
    ASSERT_TRUE(inItsPlace.open(QFile::WriteOnly));
    service.faults.clockSeconds = 86400;
    EXPECT_TRUE(eventually([&] { return service.standardError().contains("LOG ERROR"); }));
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(code(1026), 0);
    std::printf("three requests took %lld ms\n", clock.elapsed());

    ASSERT_TRUE(inItsPlace.remove());
    EXPECT_TRUE(eventually([&] { return service.alive() && service.log().size() > 1000; }));
}

#endif

/// Two seconds a call, all analyses, 30 frames a second: frames are left out, not kept. Ten minutes with
/// AI_OVERLOAD_SECONDS=600.
TEST_F(ProcessFaults, OverloadLeavesMemoryFlatAndStopsAnswered)
{
    const int seconds = qEnvironmentVariable("AI_OVERLOAD_SECONDS", "10").toInt();
    startClass(33);
    ASSERT_EQ(enrol({"Ada", "Ben", "Cleo"}).size(), 3);
    service.behave(Behaviour::slow);
    const QVariantMap players{{"stuList", QVariantList{QVariantMap{{"stuID", "Ada"}}}}};
    for (const int start : {1030, 1032, 1036, 1038})
        ASSERT_EQ(code(start, players), 0) << start;
    ASSERT_EQ(code(1034, {{"stuID", "Ada"}}, "track"), 0);
    ASSERT_EQ(code(1021), 0);

    QElapsedTimer clock;
    clock.start();
    qint64 settled = 0;
    qint64 most = 0;
    while (clock.elapsed() < seconds * 1000L) {
        client->receive(200);
        most = std::max(most, service.residentKilobytes());
        if (clock.elapsed() < std::min(60000, seconds * 500))
            settled = most;
    }
    std::printf("memory: %lld KB when settled, %lld KB at most in %d s\n", settled, most, seconds);
    if (!FaultyService::isSanitized) { // which keeps freed memory back
        EXPECT_LT(most - settled, 20000);
    }

    for (const int stop : {1031, 1033, 1035, 1037}) {
        clock.restart();
        EXPECT_EQ(code(stop, {{"stuID", "Ada"}, {"requestID", "track"}}), 0) << stop;
        std::printf("%d was answered after %lld ms\n", stop, clock.elapsed());
    }
    EXPECT_TRUE(service.alive());
}

/// By design each write waits up to 30 seconds for such a client, and everybody's events with it. Its end
/// ends the wait. AI_SILENT_SECONDS=120 goes on for so long and tells what the others see.
TEST_F(ProcessFaults, AClientThatNeverReadsHoldsUpTheOthersUntilItGoes)
{
    const int seconds = qEnvironmentVariable("AI_SILENT_SECONDS", "0").toInt();
    startClassOf({"Ada"}, 40);
    TestClient silent(service.socketPath());
    ASSERT_EQ(silent.info(1001)["rsp_error"], QVariant(0));
    silent.socket.setReadBufferSize(1); // else Qt reads for it while this thread's event loop runs
    const qint64 memory = service.residentKilobytes();
    QElapsedTimer total, clock;
    total.start();
    while (total.elapsed() < seconds * 1000L) {
        clock.start();
        ASSERT_EQ(code(1021), 0);
        const qint64 answered = clock.elapsed();
        ASSERT_FALSE(client->event(1011).isEmpty());
        std::printf("answer after %lld ms, event after %lld ms, %lld KB more\n", answered, clock.elapsed(),
                    service.residentKilobytes() - memory);
    }

    // A picture more and again one, until the system takes no more for the silent one and everybody waits.
    int asked = 0;
    int seen = 0;
    const auto read = [&](int milliseconds) {
        const QVariantMap message = client->receive(milliseconds);
        seen += message["msg"] == 1021u ? 1 : 0;
        return !message.isEmpty();
    };
    const auto unread = [&] {
        int bytes = 0;
        ioctl(static_cast<int>(silent.socket.socketDescriptor()), FIONREAD, &bytes);
        return bytes;
    };
    do {
        ASSERT_TRUE(client->send(makeRequest(ai::Kind::Execute, 1026)));
        ++asked;
        while (seen < asked && read(500)) {
        }
    } while (seen == asked || unread() < 50000);
    silent.socket.abort();
    while (seen < asked)
        ASSERT_TRUE(read(-1));
    EXPECT_FALSE(service.standardOutput().contains("write response error <5>")) << "a wait of 30 seconds";
    EXPECT_TRUE(service.alive());
}

} // namespace

#ifdef __SANITIZE_ADDRESS__
/// LeakSanitizer takes wrong addresses for the thread-local memory of some libraries here, and then ends the
/// program after its tests.
extern "C" const char *__asan_default_options()
{
    return "detect_leaks=0";
}
#endif
