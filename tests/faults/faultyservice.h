#pragma once

#include "classroom.h"
#include "eventually.h"
#include "faultcontrol.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>

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
        return eventually([&] { return faults.hanging[recogniser] > 0 || !isRunning(); }) && isRunning();
    }
    /// Waits until the recogniser has been called so many times more.
    bool waitForCalls(RecogniserClass recogniser, int count)
    {
        const int wanted = faults.calls[recogniser] + count;
        return eventually([&] { return faults.calls[recogniser] >= wanted || !isRunning(); }) && isRunning();
    }

    /// Whether the process has obeyed a SIGSTOP.
    bool isStopped() const
    {
        QFile file(QString("/proc/%1/stat").arg(processId()));
        return file.open(QFile::ReadOnly) && file.readAll().contains(") T ");
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

/// A class whose service may fail in so many ways.
class FaultTest : public ClassroomTest<FaultyService>
{
protected:
    void startClassOf(const QStringList &students, int interval = 10)
    {
        startClass(interval);
        ASSERT_EQ(enrol(students), students);
    }
    /// The students of a store's file, as whoever opens it now would see them, those for whose rows a
    /// condition holds; "broken" if the file is.
    static QStringList storedStudents(const QString &file, const QString &condition = "true")
    {
        QStringList students;
        {
            QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "look");
            database.setDatabaseName(file);
            QSqlQuery query(database.open() ? database : QSqlDatabase());
            if (!query.exec("PRAGMA integrity_check") || !query.next() || query.value(0) != "ok")
                students.append("broken");
            query.exec("select stuID from ai_student where " + condition + " order by stuID");
            while (query.next())
                students.append(query.value(0).toString());
        }
        QSqlDatabase::removeDatabase("look");
        return students;
    }
};
