#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <ostream>

/**
 * How GoogleTest shows Qt's values in a failure: texts as texts; lists, maps and variants as JSON. Every test
 * is compiled with this header in front, so that all of a program's files agree. OpenCV's points and
 * rectangles print themselves.
 */

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

/// What is no printable ASCII, as %XX.
inline void PrintTo(const QByteArray &bytes, std::ostream *out)
{
    *out << '"' << bytes.toPercentEncoding(" !\"#$&'()*+,/:;<=>?@[\\]^`{|}").toStdString() << '"';
}

inline void PrintTo(const QVariant &value, std::ostream *out)
{
    if (!value.isValid()) {
        *out << "invalid";
        return;
    }
    // Only lists and maps are documents of their own.
    const QByteArray list =
        QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson(QJsonDocument::Compact);
    *out << value.typeName() << ' ' << list.mid(1, list.size() - 2).toStdString();
}

inline void PrintTo(const QVariantMap &map, std::ostream *out)
{
    PrintTo(QVariant(map), out);
}

inline void PrintTo(const QVariantList &list, std::ostream *out)
{
    PrintTo(QVariant(list), out);
}

inline void PrintTo(const QStringList &list, std::ostream *out)
{
    PrintTo(QVariant(list), out);
}
