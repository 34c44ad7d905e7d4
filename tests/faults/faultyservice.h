#pragma once

#include "classroom.h"
#include "eventually.h"
#include "faultcontrol.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <memory>

/// The real service with recognisers, writes and a clock that fail as `faults` says; without a word in there
/// they find the same three people in every picture.
class FaultyService : public ServiceProcess
{
public:
    FaultyService() : faults(*FaultControl::map(filePath("faults").toLocal8Bit().constData()))
    {
        setEnvironment("AI_FAULTS", filePath("faults"));
        setEnvironment("LD_LIBRARY_PATH", FAULTY_RECOGNISERS);
        if (!isSanitized)
            setEnvironment("LD_PRELOAD", INTERCEPT_LIBRARY);
    }

    void behave(Behaviour behaviour)
    {
        for (auto &recogniser : faults.behaviour)
            recogniser = static_cast<int>(behaviour);
    }
    void behave(RecogniserClass recogniser, Behaviour behaviour)
    {
        faults.behaviour[recogniser] = static_cast<int>(behaviour);
    }
    /// Waits until a call of the recogniser hangs, which may be one that was begun before.
    bool waitForHang(RecogniserClass recogniser)
    {
        return eventually([&] { return faults.hanging[recogniser] > 0; }, 20000);
    }
    /// Waits until the recogniser has been called so many times more.
    bool waitForCalls(RecogniserClass recogniser, int count, int milliseconds = 20000)
    {
        const int wanted = faults.calls[recogniser] + count;
        return eventually([&] { return faults.calls[recogniser] >= wanted || !isRunning(); }, milliseconds) &&
               isRunning();
    }

    /// The service lives and serves a new client.
    ::testing::AssertionResult alive()
    {
        TestClient client(socketPath());
        if (isRunning() && client.info(1001)["rsp_error"] == 0)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << standardError().right(2000).constData();
    }
    QStringList dumps() const { return QDir(filePath("Orelia/logs/dump/aidump")).entryList({"*.dmp"}); }
    int entriesOf(const char *list) const
    {
        return QDir(QString("/proc/%1/%2").arg(processId()).arg(list))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
            .size();
    }

    FaultControl &faults;
    /// Whether this is a sanitizer build. Its own library has to be the first one, so nothing is intercepted.
    static constexpr bool isSanitized = AI_SANITIZED;
};

/// A service whose models are loaded, a camera and a client.
class FaultTest : public ::testing::Test
{
protected:
    void startService(const QStringList &arguments = {})
    {
        client.reset();
        ASSERT_TRUE(service.start(arguments)) << service.standardError().constData();
        connectClient();
    }
    void connectClient()
    {
        client.reset(new TestClient(service.socketPath()));
        ASSERT_TRUE(client->isConnected());
    }
    void startClass(int interval = 10)
    {
        ASSERT_TRUE(camera.start(interval));
        startService();
        openClass();
    }
    /// Opens the service, which sees a camera, and loads all models.
    void openClass()
    {
        ASSERT_EQ(client->open()["rsp_error"], QVariant(0));
        QVariantMap models = allModels();
        models["enableEmotion"] = true;
        ASSERT_EQ(client->execute(1001, models)["rsp_error"], QVariant(0));
        // Refused with -12 as soon as there is a camera.
        ASSERT_EQ(executeWhenConnected(*client, 1022)["rsp_error"], QVariant(-12));
    }

    int code(int command, const QVariantMap &data = {}, const QString &requestID = {})
    {
        const QVariantMap answer = client->execute(command, data, requestID);
        return answer.isEmpty() ? unanswered : answer["rsp_error"].toInt();
    }

    /// The students that were taken, in the order of the request.
    QStringList enrol(const QStringList &students)
    {
        QVariantList galleries;
        for (const QString &student : students)
            galleries.append(galleryOf(student));
        QStringList taken;
        if (code(1022, {{"galleries", galleries}}) != 0)
            return {"refused"};
        const QVariantMap event = client->event(1018)["event_info"].toMap();
        for (const QVariant &entry : event["successList"].toList())
            taken.append(entry.toMap()["stuID"].toString());
        return taken;
    }

    /// The students of a store's file, as whoever opens it now would see them; "broken" if the file is.
    static QStringList storedStudents(const QString &file)
    {
        QStringList students;
        {
            QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "look");
            database.setDatabaseName(file);
            QSqlQuery query(database.open() ? database : QSqlDatabase());
            if (!query.exec("PRAGMA integrity_check") || !query.next() || query.value(0) != "ok")
                students.append("broken");
            query.exec("select stuID from ai_student order by stuID");
            while (query.next())
                students.append(query.value(0).toString());
        }
        QSqlDatabase::removeDatabase("look");
        return students;
    }

    static constexpr int unanswered = 1;
    FaultyService service;
    FrameSource camera{service.home()};
    std::unique_ptr<TestClient> client;
};
