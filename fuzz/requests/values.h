#pragma once

#include "source.h"

#include <QString>
#include <QVariant>

/**
 * Request maps from the bytes of an input: those that a client could send, with the keys of each command, and
 * now and then a missing key, a value of another type, or anything that the payload decoder lets through.
 */
namespace values {

/// The parameters of a command. No path and no name in them leads out of the folder.
QVariantMap parameters(unsigned int code, Source &bytes, const QString &folder);

/// One of a few request identifiers.
QString requestID(Source &bytes);

} // namespace values
