#pragma once

#include <QString>
#include <QStringList>

/// Addresses of network cameras, and the passwords in them.
namespace address {

/// True for what comes over the network: rtsp, rtsps, rtmp, http, https, udp, rtp, srt or tcp.
bool isNetwork(const QString &source);

/// The address as it may be shown: user and password give way to stars, and so do the values of a query,
/// where many cameras take them. Any other source stays as it is.
QString shown(const QString &source);

/// What must never be shown of an address, in every form in which a library may print it. Longest first.
QStringList secrets(const QString &source);

/// True when showing the address would tell a secret.
bool hasSecret(const QString &source);

/// The first line of a file. Empty, with a reason, when there is none or when others can read the file.
QString fromFile(const QString &path, QString &error);

} // namespace address
