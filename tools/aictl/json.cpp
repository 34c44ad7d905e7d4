#include "json.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <limits>

namespace json {

namespace {

// Up to here a double holds every whole number.
constexpr double exactLimit = 9007199254740992.0;

QVariant number(double value)
{
    if (value != std::floor(value) || std::abs(value) > exactLimit)
        return value;
    if (value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max())
        return int(value);
    return qlonglong(value);
}

} // namespace

QVariant toVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double:
        return number(value.toDouble());
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const auto &entry : value.toArray())
            list.append(toVariant(entry));
        return list;
    }
    case QJsonValue::Object: {
        QVariantMap map;
        const auto object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry)
            map.insert(entry.key(), toVariant(entry.value()));
        return map;
    }
    default:
        return {};
    }
}

QJsonValue fromVariant(const QVariant &value)
{
    switch (int(value.type())) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        QJsonObject object;
        const auto map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            object.insert(entry.key(), fromVariant(entry.value()));
        return object;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QJsonArray array;
        for (const auto &entry : value.toList())
            array.append(fromVariant(entry));
        return array;
    }
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toBase64());
    default:
        return QJsonValue::fromVariant(value);
    }
}

QString line(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QVariant parse(const QByteArray &text, QString *error)
{
    if (text.trimmed().isEmpty())
        return {};
    // A document is an object or an array; the brackets let a single value be one, too.
    QJsonParseError problem;
    const auto document = QJsonDocument::fromJson('[' + text + ']', &problem);
    if (problem.error != QJsonParseError::NoError || document.array().size() != 1) {
        *error = QStringLiteral("not a JSON value: %1 at character %2")
                     .arg(problem.error != QJsonParseError::NoError ? problem.errorString()
                                                                    : QStringLiteral("more than one value"))
                     .arg(qMax(0, problem.offset - 1));
        return {};
    }
    return toVariant(document.array().first());
}

} // namespace json
