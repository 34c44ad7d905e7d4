#pragma once

#include <QJsonObject>
#include <QVariant>

/**
 * Holds messages against docs/asyncapi.json. Stricter than JSON Schema asks for: a key that isn't listed is a
 * complaint, and so is a keyword of the schema that this class doesn't know.
 */
class Schema
{
public:
    enum Strictness
    {
        Json, ///< a message that went through JSON: all whole numbers are alike
        Wire  ///< a message of the socket: int, unsigned int and double are told apart
    };

    /// The document as it is checked in.
    static const Schema &published();

    explicit Schema(const QByteArray &document);

    /// What is wrong with the message; empty when nothing is. A reply is held against the command, question
    /// or kind of its request.
    QString complaints(const QVariantMap &request, const QVariantMap &reply, Strictness strictness) const;
    QString requestComplaints(const QVariantMap &request, Strictness strictness) const;
    QString eventComplaints(const QVariantMap &event, Strictness strictness) const;

private:
    QString check(const QString &message, const QVariant &value, Strictness strictness) const;

    QJsonObject m_messages;
};
