#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

/**
 * The configuration file of a room: sections in brackets, "key = value" lines, "#" at the beginning of a line
 * for a comment. The camera program and the bridge read the same file, each its own sections.
 *
 * Strict: a line that says nothing, an unknown section or key, a key that comes twice and a value that is no
 * number are errors, with the number of the line.
 *
 * Threads: a value; read only once it is made.
 */
class RoomConfig
{
public:
    /// Reads a file. False, with a reason for a person, when it can't be read or says something unknown.
    bool read(const QString &path, QString &error);

    /// True when the file has the key, with or without a value. A key is written "section/key".
    bool has(const QString &key) const { return m_values.contains(key); }
    QString text(const QString &key, const QString &otherwise = {}) const;
    /// Parts between commas, without blanks and empty ones.
    QStringList list(const QString &key) const;

    /// Numbers and yes or no; what is wrong with a value is kept for error().
    double number(const QString &key, double otherwise, double least, double most) const;
    bool flag(const QString &key, bool otherwise) const;

    /// Complains about the value of a key, unless there was a complaint already.
    void complain(const QString &key, const QString &problem) const;
    /// The first complaint, empty as long as every value that was asked for is good.
    QString error() const { return m_error; }

    /// Empty when nobody but its owner, and the group of this process, can read the file; otherwise why it
    /// isn't safe.
    static QString exposure(const QString &path);

private:
    struct Value
    {
        QString text;
        int line = 0;
    };

    QString m_path;
    QMap<QString, Value> m_values;
    mutable QString m_error;
};
