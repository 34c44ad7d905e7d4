#pragma once

#include <QVariant>

/**
 * Holds messages against docs/asyncapi.json as it is checked in. Stricter than JSON Schema asks for: a key
 * that isn't listed is a complaint, and so is a keyword of the schema that isn't known here.
 *
 * Each function tells what is wrong with a message; nothing when it is empty.
 */
namespace schema {

enum Strictness
{
    Json, ///< a message that went through JSON: all whole numbers are alike
    Wire  ///< a message of the socket: int, unsigned int and double are told apart
};

QString requestComplaints(const QVariantMap &request, Strictness strictness);
/// A reply is held against the command, question or kind of its request.
QString replyComplaints(const QVariantMap &request, const QVariantMap &reply, Strictness strictness);
QString eventComplaints(const QVariantMap &event, Strictness strictness);

} // namespace schema
