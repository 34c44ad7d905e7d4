#pragma once

#include "counters.h"
#include "imageutil.h"
#include "studentinfo.h"

#include <QDebug>
#include <QFile>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include <limits>

/// The statements of the store, letter for letter; the tabs are part of them.
namespace storage_sql {

constexpr char databaseFile[] = "ai.data";

constexpr char secureDelete[] = "PRAGMA secure_delete=ON";

constexpr char createStudent[] =
    "create table ai_student (stuID TEXT,faceImg TEXT,faceX int,faceY int, \t\t\t\t\tfaceW int,faceH int,"
    "bodyX int,bodyY int,bodyW int,bodyH int, \t\t\t\t\tgalleryScore double,bestGallery TEXT)";
constexpr char createHistory[] = "create table ai_galleries_history(stuID TEXT,faceImg TEXT)";
constexpr char createConfig[] = "create table ai_config(modelLoadFlag int,identify TEXT)";

constexpr char selectConfig[] = "select * from ai_config";
constexpr char insertConfig[] = "insert into ai_config values(?,?)";
constexpr char deleteConfig[] = "delete from ai_config";

constexpr char insertStudent[] =
    "insert into ai_student(stuID,faceImg,faceX,faceY,faceW,faceH) "
    "\t\t\t\t\t\t\t\t\t\t\t\tvalues(:stuID,:faceImg,:facex,:facey,:facew,:faceh)";
constexpr char updateStudentInfo[] =
    "UPDATE ai_student SET faceX =?,faceY =?,faceW =?,faceH =?,bodyX =?,\t\t\t\t\t\t\t\t\t\t\t bodyY =?,"
    "bodyW =?,bodyH =?,galleryScore =?,bestGallery =?\t\t\t\t\t\t\t\t\t\t\t\t where stuID =?";
constexpr char updateStudentName[] = "UPDATE ai_student SET stuID=? where stuID=?";
constexpr char updateStudentImage[] = "UPDATE ai_student SET faceImg =:mFaceImg where stuID = :mStuID";
constexpr char deleteStudent[] = "delete from ai_student where stuID = ?";
constexpr char deleteStudents[] = "delete from ai_student";
constexpr char selectStudents[] = "select * from ai_student";

constexpr char insertHistory[] = "insert into ai_galleries_history values(?,?)";
constexpr char selectHistory[] = "select * from ai_galleries_history";
constexpr char deleteHistory[] = "delete from ai_galleries_history";

} // namespace storage_sql

/**
 * The one persistent store: the SQLite file "ai.data" in the working directory, from which a restarted
 * service finds its students, external galleries and configuration again. A write-behind copy: it is read
 * only in a recovery.
 *
 * Threads: any; one lock orders every statement. Each operation holds it from before its query is made until
 * after the query is gone, and locks nothing else meanwhile. All threads share one handle under that lock
 * and never ask Qt for the connection by its name, which only the opening thread may do.
 *
 * Durability: no transactions, each statement commits by itself, so the file is readable after a crash at
 * any moment. Errors: a failed write leaves one warning in the log and is lost; a failed read leaves one,
 * too, and gives the same shape with the rows up to there.
 */
class QSqliteStorage
{
public:
    static QSqliteStorage *instance()
    {
        static QSqliteStorage storage;
        return &storage;
    }

    /// Opens the file; with create set, a file that is there is deleted first and the tables are made anew.
    /// Without it, the file is taken as it stands (a missing one becomes an empty one without tables).
    void open(bool create)
    {
        QMutexLocker locker(&m_mutex);
        if (create && QFile::exists(storage_sql::databaseFile)) {
            qInfo() << "remove aidata";
            connectDatabase();
            removeFile();
        }
        connectDatabase();
        if (!m_database.open()) {
            qWarning().noquote().nospace() << "database open failed,error: " << m_database.lastError().text();
            counters::page().store.failed.add();
            return;
        }
        eraseWhatIsDeleted();
        if (create)
            createTables({});
    }

    /// Closes the store and deletes its file; until the next open every write fails.
    void remove()
    {
        QMutexLocker locker(&m_mutex);
        m_database.close();
        if (!QFile::exists(storage_sql::databaseFile))
            return;
        qInfo() << "remove aidata1";
        removeFile();
    }

    /// Makes the tables that an open store lacks, and touches nothing that is there.
    void createMissingTables()
    {
        QMutexLocker locker(&m_mutex);
        if (m_database.isOpen())
            createTables(m_database.tables());
    }

    /// The first configuration that was written. False, with both arguments untouched, if there is none, or
    /// none that a service can have written.
    bool getConfig(unsigned int &modelLoadFlag, QString &identify)
    {
        QMutexLocker locker(&m_mutex);
        Statement select(m_database, storage_sql::selectConfig);
        const bool found = select.next();
        // A whole number, whatever else the file has in that column.
        const QVariant flag = found ? select.query.value(0) : QVariant();
        const qlonglong number = flag.type() == QVariant::LongLong ? flag.toLongLong() : -1;
        if (number < 0 || number > std::numeric_limits<unsigned int>::max()) {
            qWarning() << "config read failed";
            return false;
        }
        modelLoadFlag = static_cast<unsigned int>(number);
        identify = select.query.value(1).toString();
        qInfo().noquote().nospace() << " model: " << modelLoadFlag << " identify: " << identify;
        return true;
    }

    /// Adds a row; an earlier one keeps its precedence.
    void setConfig(unsigned int modelLoadFlag, const QString &identify)
    {
        QMutexLocker locker(&m_mutex);
        Statement insert(m_database, storage_sql::insertConfig);
        insert.query.addBindValue(modelLoadFlag);
        insert.query.addBindValue(identify);
        insert.write("sqlite exec add config failed,error: ");
    }

    /// Adds a student's row with the image text as the client sent it; the columns of the body, the score and
    /// the best gallery stay NULL. An empty id or text does nothing.
    void addFaceMat(const QString &stuID, const QString &faceImg, const cv::Rect_<int> &faceRect)
    {
        if (stuID.isEmpty() || faceImg.isEmpty())
            return;
        QMutexLocker locker(&m_mutex);
        Statement insert(m_database, storage_sql::insertStudent);
        insert.query.bindValue(":stuID", stuID);
        insert.query.bindValue(":faceImg", faceImg);
        insert.query.bindValue(":facex", faceRect.x);
        insert.query.bindValue(":facey", faceRect.y);
        insert.query.bindValue(":facew", faceRect.width);
        insert.query.bindValue(":faceh", faceRect.height);
        insert.write("sqlite exec add student failed,error: ");
    }

    /// Saves rectangles, score and best gallery picture in every row of the student.
    void updateStudentInfo(const StudentInfo &student)
    {
        QMutexLocker locker(&m_mutex);
        if (student.stuID.isEmpty())
            return;
        Statement update(m_database, storage_sql::updateStudentInfo);
        bindRect(update.query, 0, student.faceRect);
        bindRect(update.query, 4, student.bodyRect);
        update.query.bindValue(8, student.galleryScore);
        update.query.bindValue(9, ai_image::convertMat2Base64(student.bestGallery));
        update.query.bindValue(10, student.stuID);
        update.write("sqlite exec add student failed,error: ");
    }

    void updateStudentName(const QString &oldID, const QString &newID)
    {
        QMutexLocker locker(&m_mutex);
        if (oldID.isEmpty() || newID.isEmpty())
            return;
        Statement update(m_database, storage_sql::updateStudentName);
        update.query.bindValue(0, newID);
        update.query.bindValue(1, oldID);
        update.write("sqlite exec update student name student failed,error: ");
    }

    void deleteStudent(const QString &stuID)
    {
        if (stuID.isEmpty())
            return;
        QMutexLocker locker(&m_mutex);
        Statement remove(m_database, storage_sql::deleteStudent);
        remove.query.bindValue(0, stuID);
        remove.write("sqlite exec delete student failed,error: ");
    }

    /// The students in the form of a gallery registration: "galleries", a list of maps with "stuID" and
    /// "faceImg".
    QMap<QString, QVariant> fetchStudentInfo()
    {
        qInfo() << "[storage] fetch student info";
        QMutexLocker locker(&m_mutex);
        return readGalleries(storage_sql::selectStudents, "[storage] fetch galleries, stuID: ");
    }

    /// One map for each student's row, with all that updateStudentInfo saves. NULL reads as 0 or empty text.
    QList<QVariant> getStudentInfo()
    {
        QMutexLocker locker(&m_mutex);
        QList<QVariant> students;
        Statement select(m_database, storage_sql::selectStudents);
        while (select.next()) {
            const auto column = [&](int index) { return select.query.value(index); };
            qInfo().noquote().nospace() << "[storage] fetch galleries, stuID: " << column(0).toString();
            students.append(QVariantMap{{"stuID", column(0).toString()},
                                        {"faceX", column(2).toInt()},
                                        {"faceY", column(3).toInt()},
                                        {"faceW", column(4).toInt()},
                                        {"faceH", column(5).toInt()},
                                        {"bodyX", column(6).toInt()},
                                        {"bodyY", column(7).toInt()},
                                        {"bodyW", column(8).toInt()},
                                        {"bodyH", column(9).toInt()},
                                        {"galleryScore", column(10).toDouble()},
                                        {"bestGallery", column(11).toString()}});
        }
        return students;
    }

    /// Keeps an accepted external gallery. Does nothing unless both texts are there.
    void setHistoryGalleries(const QString &stuID, const QString &faceImg)
    {
        QMutexLocker locker(&m_mutex);
        if (stuID.isEmpty() || faceImg.isEmpty())
            return;
        Statement insert(m_database, storage_sql::insertHistory);
        insert.query.addBindValue(stuID);
        insert.query.addBindValue(faceImg);
        insert.write("sqlite exec add gallery history failed,error: ");
    }

    /// The external galleries in the form in which the client sets them; shaped like fetchStudentInfo.
    QMap<QString, QVariant> getHistoryGalleries()
    {
        QMutexLocker locker(&m_mutex);
        return readGalleries(storage_sql::selectHistory, "[storage] fetch history galleries, stuID: ");
    }

    void clearHistoryGalleries()
    {
        QMutexLocker locker(&m_mutex);
        Statement remove(m_database, storage_sql::deleteHistory);
        remove.write("sqlite exec clear gallery history failed,error: ");
    }

private:
    /// One statement on a query of its own: prepared at once, bound by the caller, then run.
    struct Statement
    {
        /// On a closed handle nothing is prepared: Qt would warn in words of its own.
        Statement(const QSqlDatabase &database, const char *text) : query(database), statement(text)
        {
            prepared = database.isOpen() && query.prepare(text);
            if (!prepared)
                error = database.isOpen() ? query.lastError().text() : QStringLiteral("database not open");
        }

        bool exec()
        {
            const std::int64_t begin = counters::now();
            const bool succeeded = prepared && query.exec();
            if (prepared && !succeeded)
                error = query.lastError().text();
            counters::Store &counted = counters::page().store;
            counters::addTime(counted.time, counted.longest, counters::now() - begin);
            counted.statements.add();
            if (!succeeded)
                counted.failed.add();
            return succeeded;
        }

        /// Runs the statement at the first call. False behind the last row, and, with a warning, where the
        /// file can't be read any further.
        bool next()
        {
            if (query.isActive() ? query.next() : exec() && query.next())
                return true;
            if (error.isEmpty() && query.lastError().isValid())
                error = query.lastError().text();
            if (!error.isEmpty())
                qWarning().noquote().nospace() << "sqlite exec " << statement << " failed,error: " << error;
            return false;
        }

        void write(const char *failure)
        {
            if (!exec())
                qWarning().noquote().nospace() << failure << error;
        }

        QSqlQuery query;
        const char *statement;
        QString error; ///< of the last step, empty after a good one
        bool prepared = false;
    };

    QSqliteStorage() = default;

    /// Leaves the handle with a fresh, closed default connection. The old one goes first, and with it the
    /// last handle: Qt warns of a second connection of the same name and of one that is still in use.
    void connectDatabase()
    {
        const QString connection = QLatin1String(QSqlDatabase::defaultConnection);
        m_database = QSqlDatabase();
        if (QSqlDatabase::contains(connection))
            QSqlDatabase::removeDatabase(connection);
        m_database = QSqlDatabase::addDatabase("QSQLITE", connection);
        m_database.setDatabaseName(storage_sql::databaseFile);
    }

    /// What a statement deletes or replaces is overwritten in the file; SQLite would only mark it as free.
    void eraseWhatIsDeleted()
    {
        QSqlQuery pragma(m_database);
        if (!pragma.exec(storage_sql::secureDelete))
            qWarning().noquote().nospace() << "sqlite exec " << storage_sql::secureDelete
                                           << " failed,error: " << pragma.lastError().text();
    }

    void removeFile()
    {
        m_database.close();
        QFile::remove(storage_sql::databaseFile);
    }

    /// Makes the tables but for those that are there; the first failure is the last attempt.
    void createTables(const QStringList &present)
    {
        const auto provide = [&](const char *table, const char *text, const char *failure) {
            return present.contains(QLatin1String(table), Qt::CaseInsensitive) || createTable(text, failure);
        };
        using namespace storage_sql;
        if (provide("ai_student", createStudent, "sqlite exec create student failed,error: ") &&
            provide("ai_galleries_history", createHistory, "sqlite exec create face history failed,error: "))
            provide("ai_config", createConfig, "sqlite exec create config failed,error: ");
    }

    bool createTable(const char *text, const char *failure)
    {
        Statement create(m_database, text);
        if (create.exec())
            return true;
        qWarning().noquote().nospace() << failure << create.error;
        return false;
    }

    static void bindRect(QSqlQuery &query, int index, const cv::Rect &rect)
    {
        query.bindValue(index, rect.x);
        query.bindValue(index + 1, rect.y);
        query.bindValue(index + 2, rect.width);
        query.bindValue(index + 3, rect.height);
    }

    QMap<QString, QVariant> readGalleries(const char *text, const char *logged)
    {
        QVariantList galleries;
        Statement select(m_database, text);
        while (select.next()) {
            const QString stuID = select.query.value(0).toString();
            const QString faceImg = select.query.value(1).toString();
            qInfo().noquote().nospace() << logged << stuID << " faceImg: " << faceImg;
            galleries.append(QVariantMap{{"stuID", stuID}, {"faceImg", faceImg}});
        }
        return {{"galleries", galleries}};
    }

    QSqlDatabase m_database;
    QMutex m_mutex;
};
