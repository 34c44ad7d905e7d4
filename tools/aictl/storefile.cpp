#include "storefile.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {

const QString connection = QStringLiteral("store");
const QString students = QStringLiteral("ai_student");
const QString externals = QStringLiteral("ai_galleries_history");

QSqlDatabase database()
{
    return QSqlDatabase::database(connection, false);
}

} // namespace

StoreFile::StoreFile(const QString &path)
{
    QSqlDatabase file = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
    file.setDatabaseName(path);
    if (!file.open())
        m_error = file.lastError().text();
    else
        run(QStringLiteral("PRAGMA secure_delete=ON"));
}

StoreFile::~StoreFile()
{
    database().close();
    QSqlDatabase::removeDatabase(connection);
}

bool StoreFile::read(QList<Row> *rows)
{
    if (!database().isOpen())
        return false;
    const auto readTable = [&](const QString &table, const QString &pictures, bool isExternal) {
        QSqlQuery query(database());
        query.setForwardOnly(true);
        if (!query.exec(QStringLiteral("select stuID,%1 from %2").arg(pictures, table))) {
            m_error = query.lastError().text();
            return false;
        }
        while (query.next())
            rows->append({query.value(0).toString(),
                          {query.value(1).toString(), query.value(2).toString()},
                          isExternal});
        m_error = query.lastError().text();
        return !query.lastError().isValid();
    };
    // A store that was never opened has no tables.
    const QStringList tables = database().tables();
    return (!tables.contains(students) || readTable(students, "faceImg,bestGallery", false)) &&
           (!tables.contains(externals) || readTable(externals, "faceImg,null", true));
}

bool StoreFile::erase(const QString &student)
{
    const QStringList tables = database().tables();
    for (const QString &table : {students, externals}) {
        if (tables.contains(table) &&
            !run(QStringLiteral("delete from %1 where stuID=?").arg(table), student))
            return false;
    }
    return true;
}

bool StoreFile::compact()
{
    return run(QStringLiteral("VACUUM"));
}

bool StoreFile::run(const QString &statement, const QString &student)
{
    QSqlQuery query(database());
    bool done = query.prepare(statement);
    if (done && !student.isNull())
        query.addBindValue(student);
    done = done && query.exec();
    if (!done)
        m_error = query.lastError().text();
    return done;
}
