#include "asyncapi.h"

#include "messages.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

using ai::Key;
using ai::Rows;
using ai::Type;

const char channel[] = "#/channels/AI";

QJsonObject object(const Rows<Key> &keys);

QJsonObject constant(const QJsonValue &value)
{
    return {{"const", value}};
}

QJsonObject typed(const char *type, const char *format = nullptr)
{
    QJsonObject schema{{"type", type}};
    if (format)
        schema["format"] = format;
    return schema;
}

QJsonObject array(const QJsonObject &items)
{
    return {{"type", "array"}, {"items", items}};
}

QJsonObject anyOf(const QJsonObject &one, const QJsonObject &other)
{
    return {{"anyOf", QJsonArray{one, other}}};
}

QJsonObject valueSchema(const Key &key)
{
    switch (key.type) {
    case Type::Boolean:
        return typed("boolean");
    case Type::Integer:
        return typed("integer", "int32");
    case Type::Unsigned:
        return typed("integer", "uint32");
    case Type::Long:
        return typed("integer", "int64");
    case Type::Real:
        return typed("number", "double");
    case Type::Text:
        return typed("string");
    case Type::Picture: {
        QJsonObject text = typed("string");
        text["pattern"] = "^data:image/jpe?g;base64,";
        return text;
    }
    case Type::Map:
        return object(key.keys);
    case Type::List:
        return array(object(key.keys));
    case Type::Codes:
        return array(typed("integer", "uint32"));
    case Type::BooleanOrZero:
        return anyOf(typed("boolean"), constant(0));
    case Type::Any:
        break;
    }
    return {};
}

QJsonObject object(const Rows<Key> &keys)
{
    QJsonObject properties;
    QJsonArray required;
    for (const Key &key : keys) {
        QJsonObject schema = valueSchema(key);
        schema["description"] = key.meaning;
        properties[key.name] = schema;
        if (!key.optional)
            required.append(key.name);
    }
    return {{"type", "object"}, {"properties", properties}, {"required", required}};
}

/// Narrows a key of the schema of a map; what it meant stays.
void narrow(QJsonObject &schema, const char *key, QJsonObject narrower, bool required = true)
{
    QJsonObject properties = schema["properties"].toObject();
    narrower["description"] = properties[key].toObject()["description"];
    properties[key] = narrower;
    schema["properties"] = properties;
    QJsonArray names = schema["required"].toArray();
    if (required && !names.contains(key)) {
        names.append(key);
        schema["required"] = names;
    }
}

QJsonObject request(ai::Kind kind)
{
    QJsonObject schema = object(ai::requestKeys);
    narrow(schema, "req_code", constant(code(kind)));
    return schema;
}

QJsonObject request(ai::Kind kind, unsigned code, const Rows<Key> &keys)
{
    bool needsData = false;
    for (const Key &key : keys)
        needsData = needsData || !key.optional;
    QJsonObject data = object(ai::requestDataKeys);
    narrow(data, "command_code", constant(qint64{code}));
    if (!keys.empty())
        narrow(data, "data", object(keys), needsData);
    QJsonObject schema = request(kind);
    narrow(schema, "req_data", data);
    return schema;
}

/// A reply whose "rsp_data", if it is there, is null or a map with the keys.
QJsonObject reply(const Rows<Key> &dataKeys)
{
    QJsonArray numbers;
    for (const auto &row : ai::errors)
        numbers.append(code(row.error));
    QJsonObject schema = object(ai::replyKeys);
    narrow(schema, "type", constant(code(ai::MessageType::Reply)));
    narrow(schema, "rsp_error", {{"enum", numbers}});
    narrow(schema, "rsp_data", dataKeys.empty() ? typed("null") : anyOf(typed("null"), object(dataKeys)),
           false);
    return schema;
}

QJsonObject openReply()
{
    QJsonObject schema = reply({});
    const QJsonObject more = object(ai::openReplyKeys);
    QJsonObject properties = schema["properties"].toObject();
    const QJsonObject added = more["properties"].toObject();
    for (auto entry = added.begin(); entry != added.end(); ++entry)
        properties.insert(entry.key(), entry.value());
    schema["properties"] = properties;
    QJsonArray required = schema["required"].toArray();
    for (const auto &name : more["required"].toArray())
        required.append(name);
    schema["required"] = required;
    return schema;
}

QJsonObject event(const ai::EventRow &row)
{
    QJsonObject schema = object(ai::eventKeys);
    narrow(schema, "type", constant(code(ai::MessageType::Event)));
    narrow(schema, "msg", constant(qint64{code(row.event)}));
    narrow(schema, "event_info", object(row.keys));
    if (row.ofService) {
        narrow(schema, "event_type", constant("service"));
        narrow(schema, "event_req_id", constant("0"));
    } else {
        narrow(schema, "event_type", {{"enum", QJsonArray{"execute", "service"}}});
    }
    return schema;
}

/// Collects the parts of the document, which refer to each other by name.
class Document
{
public:
    void addRequest(const QString &name, const QString &summary, const QJsonObject &requestSchema,
                    const QJsonObject &replySchema)
    {
        addMessage(name + "-request", summary, requestSchema);
        addMessage(name + "-reply", "the answer to " + name, replySchema);
        m_operations[name] =
            QJsonObject{{"action", "receive"},
                        {"summary", summary},
                        {"channel", reference(channel)},
                        {"messages", QJsonArray{messageReference(name + "-request")}},
                        {"reply", QJsonObject{{"channel", reference(channel)},
                                              {"messages", QJsonArray{messageReference(name + "-reply")}}}}};
    }
    void addEvent(const QString &name, const QString &summary, const QJsonObject &schema)
    {
        addMessage(name + "-event", summary, schema);
        m_operations["event-" + name] =
            QJsonObject{{"action", "send"},
                        {"summary", summary},
                        {"channel", reference(channel)},
                        {"messages", QJsonArray{messageReference(name + "-event")}}};
    }
    void addMessage(const QString &name, const QString &summary, const QJsonObject &schema)
    {
        m_messages[name] = QJsonObject{{"summary", summary}, {"payload", schema}};
        m_channelMessages[name] = reference("#/components/messages/" + name);
    }

    QByteArray text() const
    {
        const QJsonObject info{
            {"title", "AIService"},
            {"version", "0.8"},
            {"description",
             "Requests, replies and events of the vision service as JSON. On the socket they are maps of "
             "another form (a QDataStream of the version Qt_5_12), which docs/protocol.md tells. An invalid "
             "value is null here. Keys that are not listed are ignored in requests; a value of a request "
             "that is of another type is converted where it can be."}};
        const QJsonObject channels{
            {"AI", QJsonObject{{"address", "AI"},
                               {"description", "the local socket with this name; every event goes to every "
                                               "connection, a reply to the one that asked"},
                               {"messages", m_channelMessages}}}};
        const QJsonObject document{{"asyncapi", "3.0.0"},
                                   {"info", info},
                                   {"defaultContentType", "application/json"},
                                   {"channels", channels},
                                   {"operations", m_operations},
                                   {"components", QJsonObject{{"messages", m_messages}}}};
        return QJsonDocument(document).toJson(QJsonDocument::Indented);
    }

private:
    static QJsonObject reference(const QString &target) { return {{"$ref", target}}; }
    static QJsonObject messageReference(const QString &name)
    {
        return reference(channel + ("/messages/" + name));
    }

    QJsonObject m_messages;
    QJsonObject m_channelMessages;
    QJsonObject m_operations;
};

} // namespace

QByteArray asyncApiDocument()
{
    Document document;
    document.addRequest("open", "open the service", request(ai::Kind::Open), openReply());
    document.addRequest("close", "close the service", request(ai::Kind::Close), reply({}));
    for (const ai::QuestionRow &row : ai::questions)
        document.addRequest(row.name, row.meaning, request(ai::Kind::Info, code(row.question), {}),
                            reply(row.reply));
    for (const ai::CommandRow &row : ai::commands)
        document.addRequest(row.name, row.meaning, request(ai::Kind::Execute, code(row.command), row.request),
                            reply(row.reply));
    document.addMessage("unknown-reply", "the answer to an unknown kind or code", reply(ai::codeKeys));
    for (const ai::EventRow &row : ai::events)
        document.addEvent(row.name, row.meaning, event(row));
    return document.text();
}
