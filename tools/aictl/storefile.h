#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/**
 * The service's store, "ai.data", from outside of the service. What it erases is overwritten in the file. The
 * service may have it open: each statement waits some seconds for the other's.
 *
 * Threads: the one that made it. One at a time.
 */
class StoreFile
{
public:
    struct Row
    {
        QString student;
        QStringList pictures; ///< data texts
        bool isExternal = false;
    };

    /// Opens the file, which is there.
    explicit StoreFile(const QString &path);
    ~StoreFile();
    StoreFile(const StoreFile &) = delete;
    StoreFile &operator=(const StoreFile &) = delete;

    /// Students and external faces. False when the file cannot be read.
    bool read(QList<Row> *rows);
    /// Removes the rows of this name, enrolled or external.
    bool erase(const QString &student);
    /// Writes the file anew without its free pages.
    bool compact();

    /// Why the last operation failed.
    QString errorString() const { return m_error; }

private:
    bool run(const QString &statement, const QString &student = {});

    QString m_error;
};
