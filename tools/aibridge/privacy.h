#pragma once

#include "settings.h"

#include <QJsonObject>
#include <QVariant>

/**
 * What of a value may leave the machine.
 *
 * Only keys that are known to be harmless pass as they are; names, pictures, faces and features pass when the
 * configuration says so, and give way to empty texts and lists otherwise, so that the form of the message
 * stays. A key that nobody knows is left out.
 *
 * Threads: free functions without state.
 */
namespace privacy {

/// A map of the service, as JSON for the broker.
QJsonObject outgoing(const QVariantMap &map, const Settings::Privacy &allowed);

/// A request identifier: clients put names into theirs.
QString outgoingRequestID(const QString &id, const QString &ownPrefix, const Settings::Privacy &allowed);

} // namespace privacy
