#include "classroom.h"
#include "conforms.h"
#include "democlass.h"
#include "eventually.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>

namespace {

/// All that the service says is looked at.
class ClassTest : public ClassroomTest<ServiceProcess>
{
protected:
    void startService(const QStringList &arguments = {}) override
    {
        ClassroomTest::startService(arguments);
        client->inspect = expectConforms;
    }

    QVariantMap fetch()
    {
        EXPECT_EQ(code(1021), 0);
        return client->event(1011)["event_info"].toMap();
    }
};

/// Who of these people has the face of an event's entry; empty for nobody.
QString nameOf(const QVariantMap &entry, const QVector<DemoClass::Person> &people)
{
    const cv::Rect face(entry["x"].toInt(), entry["y"].toInt(), entry["width"].toInt(),
                        entry["height"].toInt());
    for (const DemoClass::Person &person : people) {
        if ((person.face & face).area() > person.face.area() / 2)
            return person.name;
    }
    return {};
}

TEST_F(ClassTest, FacesAreFoundEnrolledAndBackAfterAKill)
{
    const DemoClass demo(DemoClass::findPhotographs());
    ASSERT_TRUE(demo.isValid()) << qPrintable(demo.error());
    cv::Mat rgb;
    cv::cvtColor(demo.frame(0), rgb, cv::COLOR_BGR2RGB);
    QFile pixels(service.filePath("pixels"));
    ASSERT_TRUE(pixels.open(QFile::WriteOnly));
    pixels.write(reinterpret_cast<const char *>(rgb.data), 3 * static_cast<qint64>(rgb.total()));
    pixels.close();
    ASSERT_TRUE(camera.start(40, pixels.fileName()));
    startService();
    openClass();

    const QVariantMap seen = fetch();
    EXPECT_EQ(ai_image::convertBase642Mat(seen["image"].toString()).size(), cv::Size(1920, 1080));
    QVariantList enrolment;
    QStringList names;
    for (const QVariant &value : seen["galleries"].toList()) {
        QVariantMap gallery = value.toMap();
        EXPECT_EQ(gallery["stuID"], QString());
        EXPECT_EQ(ai_image::convertBase642Mat(gallery["faceImg"].toString()).size(), cv::Size(128, 128));
        const QString name = nameOf(gallery, demo.truth(0));
        if (name.isEmpty())
            continue;
        names.append(name);
        gallery["stuID"] = name;
        enrolment.append(gallery);
    }
    names.sort();
    EXPECT_GE(names.size(), demo.names().size() * 9 / 10);
    EXPECT_EQ(enrolFaces(enrolment).size(), names.size());

    service.crash();
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), names);
    QStringList known;
    for (const QVariant &value : fetch()["galleries"].toList()) {
        const QVariantMap gallery = value.toMap();
        if (gallery["isDetected"] == true && gallery["stuID"] == nameOf(gallery, demo.truth(0)))
            known.append(gallery["stuID"].toString());
    }
    known.sort();
    EXPECT_EQ(known, names);
}

TEST_F(ClassTest, AClientThatGoesEndsTheAnalysesOfAll)
{
    startClass(40);
    EXPECT_EQ(code(1030), 0);
    EXPECT_EQ(client->execute(1030)["rsp_error_detail"], "handup already start");
    EXPECT_TRUE(TestClient(service.socketPath()).isConnected());
    ASSERT_TRUE(service.waitForOutput("disconnectReset"));
    EXPECT_TRUE(eventually([&] { return client->execute(1031)["rsp_error_detail"] == "handup not start"; }));
    EXPECT_EQ(client->info(1001)["rsp_data"].toMap()["status"], 2);
}

TEST_F(ClassTest, ACloseWithoutACameraWaitsForOne)
{
    startService();
    ASSERT_EQ(client->open()["rsp_error"], 0);
    ASSERT_TRUE(client->send(makeRequest(ai::Kind::Close)));
    ASSERT_TRUE(service.waitForOutput("AIService is closing"));
    const int attempts = service.standardOutput().count("ipc conn failed");
    ASSERT_TRUE(service.waitForOutput("ipc conn failed", attempts + 2));
    EXPECT_EQ(client->info(1001)["rsp_error"], 0); // answers all the while
    EXPECT_TRUE(client->others.isEmpty());
    ASSERT_TRUE(camera.start());
    EXPECT_EQ(client->receive()["rsp_error"], 0);
    EXPECT_EQ(client->info(1001)["rsp_data"].toMap()["status"], 0);
    openClass({}); // and it opens again
}

/// Analyses that end by themselves while the client starts the next ones: every start that was answered with
/// 0 runs, and is told of by an event under its identifier. A long run by hand: AI_STARTS_SECONDS=600
TEST_F(ClassTest, AStartThatWasAnsweredRuns)
{
    const qint64 seconds = qEnvironmentVariable("AI_STARTS_SECONDS", "3").toInt();
    startClass(10, {});
    for (const auto &[command, event] : {std::pair(1038, 1017), std::pair(1021, 1011)}) {
        QSet<QString> started, ran;
        QString last;
        int asked = 0, waiting = 0;
        const auto ask = [&, command = command] {
            const QString id = QString::number(++asked);
            QVariantMap request = makeRequest(ai::Kind::Execute, command, {}, id);
            request["req_id2"] = id;
            client->send(request);
            ++waiting;
        };
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < 4; ++i)
            ask();
        // An analysis ends behind its event, and the next one of its kind starts behind its end: with the
        // event of the last start, those of all earlier ones have come.
        while (waiting > 0 || !ran.contains(last)) {
            const QVariantMap message = client->receive();
            ASSERT_FALSE(message.isEmpty()) << started.size() << " started, " << ran.size() << " ran";
            if (message["msg"] == event)
                ran.insert(message["event_req_id"].toString());
            if (message["msg"].isValid())
                continue;
            --waiting;
            if (message["rsp_error"] == 0) {
                last = message["rsp_id"].toString();
                started.insert(last);
            }
            if (clock.elapsed() < 1000 * seconds || started.size() < 2)
                ask();
        }
        EXPECT_EQ(started - ran, QSet<QString>()) << command;
    }
}

/// A gallery command, the class once it is carried out, and whom a kill in the middle of it may cost.
struct Command
{
    QVariantMap request;
    QSet<QString> students;
    QSet<QString> risked;
};

Command randomCommand(QRandomGenerator &random, const QSet<QString> &students, const QString &newcomer)
{
    const QStringList known = students.values();
    const int chosen = known.isEmpty() ? 0 : random.bounded(known.size());
    const QString student = known.value(chosen, newcomer);
    const QSet<QString> one{student};
    const auto rename = [&](const QString &name, const QSet<QString> &risked) -> Command {
        const QVariantMap names{{"oldStuID", student}, {"newStuID", name}};
        return {makeRequest(ai::Kind::Execute, 1024, names), students - one + QSet<QString>{name}, risked};
    };
    switch (known.isEmpty() ? 0 : random.bounded(5)) {
    case 0: {
        const QVariantMap galleries{{"galleries", QVariantList{galleryOf(newcomer)}}};
        return {makeRequest(ai::Kind::Execute, 1022, galleries), students + QSet<QString>{newcomer}, {}};
    }
    case 1:
        return {makeRequest(ai::Kind::Execute, 1025, QVariantMap{{"stuID", student}}), students - one, {}};
    case 2:
        return rename(newcomer, {});
    case 3:
        if (known.size() > 1) {
            const QString &taken = known[(chosen + 1) % known.size()];
            return rename(taken, {taken});
        }
        [[fallthrough]];
    default:
        return {makeRequest(ai::Kind::Execute, 1023, galleryOf(student)), students, one};
    }
}

using Loss = ClassTest;

/// Whatever was answered is in the store: random commands, a kill at a random moment, a recovery.
TEST_F(Loss, AnAnsweredCommandSurvivesAKillAtAnyMoment)
{
    const int rounds = qEnvironmentVariable("AI_KILL_ROUNDS", "6").toInt();
    QRandomGenerator random(20190102);
    startClass(40);
    QSet<QString> students;
    int made = 0;
    const auto next = [&] { return randomCommand(random, students, QString("student%1").arg(++made)); };
    for (int round = 0; round < rounds; ++round) {
        for (int left = random.bounded(1, 12); left > 0; --left) {
            const Command command = next();
            ASSERT_EQ(client->request(command.request)["rsp_error"], 0);
            students = command.students;
        }
        // This one is under way when the process dies.
        const Command last = next();
        client->send(last.request);
        client->receive(random.bounded(4));
        service.crash();

        startService({"--recovery"});
        const QStringList back = studentsOf(*client);
        const QSet<QString> found(back.begin(), back.end());
        ASSERT_TRUE(found == students || found == last.students || found == students - last.risked)
            << "round " << round << ": " << qPrintable(back.join(' '));
        ASSERT_EQ(back.size(), found.size());
        students = found;
    }
}

} // namespace
