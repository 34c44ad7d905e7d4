#pragma once

#include <QJsonObject>
#include <QVariant>

/// Between the values of the protocol and JSON.
namespace json {

/// Whole numbers become int where they fit, else 64-bit int, else double; null an invalid value; objects
/// and arrays maps and lists.
QVariant toVariant(const QJsonValue &value);

/// Every value type that the protocol carries. A byte array becomes base64 text, a time ISO 8601 text, an
/// invalid value or a value of a type without JSON form null; so do the numbers that JSON cannot hold
/// (infinities, not-a-number).
QJsonValue fromVariant(const QVariant &value);

/// One line of compact JSON.
QString line(const QJsonObject &object);

/// The parameters of a request: a JSON text, or "-" for standard input.
/// @return an invalid value for an empty text; *error tells why a text does not parse
QVariant parse(const QByteArray &text, QString *error);

} // namespace json
