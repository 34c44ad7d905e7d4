#include "schema.h"

#include "json.h"
#include "messages.h"
#include "samples.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

/// Whether a value is what a word of "type" or "format" says.
bool isOfType(const QVariant &value, const QString &word)
{
    static const QMap<QString, int> types{
        {"null", QMetaType::UnknownType},   {"boolean", QMetaType::Bool},
        {"string", QMetaType::QString},     {"object", QMetaType::QVariantMap},
        {"array", QMetaType::QVariantList}, {"int32", QMetaType::Int},
        {"uint32", QMetaType::UInt},        {"int64", QMetaType::LongLong},
        {"double", QMetaType::Double}};
    const int type = value.userType();
    const bool isWhole = type == QMetaType::Int || type == QMetaType::UInt || type == QMetaType::LongLong;
    if (word == "integer" || word == "number")
        return isWhole || (word == "number" && type == QMetaType::Double);
    return types.contains(word) && type == types[word];
}

/// Collects what is wrong with a message.
struct Comparison
{
    void compare(const QJsonObject &schema, const QVariant &value, const QString &path)
    {
        for (auto entry = schema.begin(); entry != schema.end(); ++entry) {
            const QString keyword = entry.key();
            const QJsonValue wanted = entry.value();
            if (keyword == "properties") {
                compareKeys(schema, value.toMap(), path);
            } else if (keyword == "items") {
                int index = 0;
                for (const QVariant &item : value.toList())
                    compare(wanted.toObject(), item, path + '[' + QString::number(index++) + ']');
            } else if (keyword == "anyOf") {
                Comparison all{strictness, {}};
                bool fitsOne = false;
                for (const auto &choice : wanted.toArray()) {
                    const QString before = all.problems;
                    all.compare(choice.toObject(), value, path);
                    fitsOne = fitsOne || all.problems == before;
                }
                if (!fitsOne)
                    problems += all.problems;
            } else if (!fits(value, keyword, wanted)) {
                complain(path, QString("a %1 does not fit \"%2\"").arg(value.typeName(), keyword));
            }
        }
    }
    bool fits(const QVariant &value, const QString &keyword, const QJsonValue &wanted) const
    {
        if (keyword == "type")
            return isOfType(value, wanted.toString());
        if (keyword == "format")
            return strictness == schema::Json || isOfType(value, wanted.toString());
        if (keyword == "const")
            return json::fromVariant(value) == wanted;
        if (keyword == "enum")
            return wanted.toArray().contains(json::fromVariant(value));
        if (keyword == "pattern")
            return QRegularExpression(wanted.toString()).match(value.toString()).hasMatch();
        return keyword == "description" || keyword == "required";
    }
    void compareKeys(const QJsonObject &schema, const QVariantMap &map, const QString &path)
    {
        const QJsonObject properties = schema["properties"].toObject();
        for (auto entry = map.begin(); entry != map.end(); ++entry) {
            const QString place = path + '.' + entry.key();
            if (properties.contains(entry.key()))
                compare(properties[entry.key()].toObject(), entry.value(), place);
            else
                complain(place, "not in the schema");
        }
        for (const auto &name : schema["required"].toArray()) {
            if (!map.contains(name.toString()))
                complain(path + '.' + name.toString(), "is missing");
        }
    }
    void complain(const QString &path, const QString &what) { problems += path + ": " + what + '\n'; }

    schema::Strictness strictness;
    QString problems;
};

QString complaints(const QString &name, const QVariant &message, schema::Strictness strictness)
{
    static const auto messages = QJsonDocument::fromJson(document("asyncapi.json"))
                                     .object()["components"]
                                     .toObject()["messages"]
                                     .toObject();
    if (!messages.contains(name))
        return name + " is not in the document";
    Comparison comparison{strictness, {}};
    comparison.compare(messages[name].toObject()["payload"].toObject(), message, name);
    return comparison.problems;
}

/// The name under which the document has the messages of this request.
QString nameOf(const QVariantMap &request)
{
    const unsigned code = request["req_data"].toMap()["command_code"].toUInt();
    const auto *const command = ai::find(ai::Command{code});
    const auto *const question = ai::find(ai::Question{code});
    switch (ai::Kind{request["req_code"].toInt()}) {
    case ai::Kind::Open:
        return "open";
    case ai::Kind::Close:
        return "close";
    case ai::Kind::Execute:
        return command ? command->name : "unknown";
    case ai::Kind::Info:
        return question ? question->name : "unknown";
    }
    return "unknown";
}

} // namespace

QString schema::requestComplaints(const QVariantMap &request, Strictness strictness)
{
    return complaints(nameOf(request) + "-request", request, strictness);
}

QString schema::replyComplaints(const QVariantMap &request, const QVariantMap &reply, Strictness strictness)
{
    return complaints(nameOf(request) + "-reply", reply, strictness);
}

QString schema::eventComplaints(const QVariantMap &event, Strictness strictness)
{
    const auto *const row = ai::find(ai::Event{event["msg"].toUInt()});
    return row ? complaints(QString(row->name) + "-event", event, strictness) : "no such event";
}
