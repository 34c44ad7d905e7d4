#include "schema.h"

#include "json.h"
#include "messages.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {

bool hasFormat(const QVariant &value, const QString &format)
{
    static const QMap<QString, int> types{{"int32", QMetaType::Int},
                                          {"uint32", QMetaType::UInt},
                                          {"int64", QMetaType::LongLong},
                                          {"double", QMetaType::Double}};
    return value.userType() == types.value(format);
}

bool hasType(const QVariant &value, const QString &type)
{
    static const QMap<QString, int> types{{"null", QMetaType::UnknownType},
                                          {"boolean", QMetaType::Bool},
                                          {"string", QMetaType::QString},
                                          {"object", QMetaType::QVariantMap},
                                          {"array", QMetaType::QVariantList}};
    if (types.contains(type))
        return value.userType() == types[type];
    const bool whole = value.userType() == QMetaType::Int || value.userType() == QMetaType::UInt ||
                       value.userType() == QMetaType::LongLong;
    return whole || (type == "number" && value.userType() == QMetaType::Double);
}

QString complain(const QString &path, const QString &what)
{
    return path + ": " + what + '\n';
}

QString compare(const QJsonObject &schema, const QVariant &value, Schema::Strictness strictness,
                const QString &path);

QString compareKeys(const QJsonObject &schema, const QVariantMap &map, Schema::Strictness strictness,
                    const QString &path)
{
    QString problems;
    const QJsonObject properties = schema["properties"].toObject();
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        const QString place = path + '.' + entry.key();
        if (properties.contains(entry.key()))
            problems += compare(properties[entry.key()].toObject(), entry.value(), strictness, place);
        else
            problems += complain(place, "not in the schema");
    }
    for (const auto &name : schema["required"].toArray()) {
        if (!map.contains(name.toString()))
            problems += complain(path + '.' + name.toString(), "is missing");
    }
    return problems;
}

QString compare(const QJsonObject &schema, const QVariant &value, Schema::Strictness strictness,
                const QString &path)
{
    QString problems;
    for (auto entry = schema.begin(); entry != schema.end(); ++entry) {
        const QString keyword = entry.key();
        const QJsonValue wanted = entry.value();
        if (keyword == "description" || keyword == "required") {
            continue;
        } else if (keyword == "type") {
            if (!hasType(value, wanted.toString()))
                problems += complain(path, "is no " + wanted.toString());
        } else if (keyword == "format") {
            if (strictness == Schema::Wire && !hasFormat(value, wanted.toString()))
                problems += complain(path, QString("a %1 is no ").arg(value.typeName()) + wanted.toString());
        } else if (keyword == "const") {
            if (json::fromVariant(value) != wanted)
                problems += complain(path, "is not the constant");
        } else if (keyword == "enum") {
            if (!wanted.toArray().contains(json::fromVariant(value)))
                problems += complain(path, "is none of the values");
        } else if (keyword == "pattern") {
            if (!QRegularExpression(wanted.toString()).match(value.toString()).hasMatch())
                problems += complain(path, "does not match");
        } else if (keyword == "properties") {
            problems += compareKeys(schema, value.toMap(), strictness, path);
        } else if (keyword == "items") {
            int index = 0;
            for (const QVariant &item : value.toList())
                problems +=
                    compare(wanted.toObject(), item, strictness, path + '[' + QString::number(index++) + ']');
        } else if (keyword == "anyOf") {
            QString all;
            bool one = false;
            for (const auto &choice : wanted.toArray()) {
                const QString some = compare(choice.toObject(), value, strictness, path);
                one = one || some.isEmpty();
                all += some;
            }
            if (!one)
                problems += all;
        } else {
            problems += complain(path, "unknown keyword " + keyword);
        }
    }
    return problems;
}

/// The name under which the document has the messages of this request.
QString nameOf(const QVariantMap &request)
{
    const unsigned code = request["req_data"].toMap()["command_code"].toUInt();
    switch (ai::Kind{request["req_code"].toInt()}) {
    case ai::Kind::Open:
        return "open";
    case ai::Kind::Close:
        return "close";
    case ai::Kind::Execute:
        if (const auto *row = ai::find(ai::Command{code}))
            return row->name;
        break;
    case ai::Kind::Info:
        if (const auto *row = ai::find(ai::Question{code}))
            return row->name;
        break;
    }
    return "unknown";
}

} // namespace

const Schema &Schema::published()
{
    static const Schema schema = [] {
        QFile file(DOCS "/asyncapi.json");
        if (!file.open(QFile::ReadOnly))
            qFatal("there is no asyncapi.json");
        return Schema(file.readAll());
    }();
    return schema;
}

Schema::Schema(const QByteArray &document)
    : m_messages(QJsonDocument::fromJson(document).object()["components"].toObject()["messages"].toObject())
{
}

QString Schema::complaints(const QVariantMap &request, const QVariantMap &reply, Strictness strictness) const
{
    return check(nameOf(request) + "-reply", reply, strictness);
}

QString Schema::requestComplaints(const QVariantMap &request, Strictness strictness) const
{
    return check(nameOf(request) + "-request", request, strictness);
}

QString Schema::eventComplaints(const QVariantMap &event, Strictness strictness) const
{
    const auto *row = ai::find(ai::Event{event["msg"].toUInt()});
    return row ? check(QString(row->name) + "-event", event, strictness) : complain("msg", "no such event");
}

QString Schema::check(const QString &message, const QVariant &value, Strictness strictness) const
{
    if (!m_messages.contains(message))
        return complain(message, "not in the document");
    const QJsonObject payload = m_messages[message].toObject()["payload"].toObject();
    return compare(payload, value, strictness, message);
}
