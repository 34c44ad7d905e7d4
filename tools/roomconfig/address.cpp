#include "address.h"

#include "roomconfig.h"

#include <QFile>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>

namespace address {

namespace {

/// Where user and password stand in the text. By hand: a password with characters that belong escaped makes
/// no valid URL, and has to be hidden all the same.
struct Credentials
{
    int begin = 0;
    int length = -1;
};

Credentials findCredentials(const QString &source)
{
    const int begin = source.indexOf("://") + 3;
    // Up to the last @ before the path: an @ may be part of a password. So may a slash, which ends nothing
    // when an @ follows before the query.
    const int query = source.indexOf('?', begin);
    const int at = source.lastIndexOf('@', query < 0 ? -1 : query);
    return at > begin ? Credentials{begin, at - begin} : Credentials{};
}

} // namespace

bool isNetwork(const QString &source)
{
    static const QStringList schemes{"rtsp", "rtsps", "rtmp", "http", "https", "udp", "rtp", "srt", "tcp"};
    const int end = source.indexOf("://");
    return end > 0 && schemes.contains(source.left(end).toLower());
}

QString shown(const QString &source)
{
    if (!isNetwork(source))
        return source;
    QString text = source;
    const int query = text.indexOf('?');
    if (query >= 0)
        text = text.left(query) + "?***";
    const Credentials credentials = findCredentials(text);
    if (credentials.length >= 0)
        text.replace(credentials.begin, credentials.length, "***");
    return text;
}

QStringList secrets(const QString &source)
{
    if (!isNetwork(source))
        return {};
    QStringList found;
    const auto add = [&found](const QString &text) {
        for (const QString &form : {text, QUrl::fromPercentEncoding(text.toUtf8()),
                                    QString::fromLatin1(QUrl::toPercentEncoding(text))})
            if (!form.isEmpty() && !found.contains(form))
                found.append(form);
    };
    const Credentials credentials = findCredentials(source);
    if (credentials.length >= 0) {
        const QString text = source.mid(credentials.begin, credentials.length);
        add(text);
        // HTTP and RTSP send the pair in base64.
        found.append(QString::fromLatin1(QUrl::fromPercentEncoding(text.toUtf8()).toUtf8().toBase64()));
        if (text.contains(':'))
            add(text.section(':', 1));
    }
    const int query = source.indexOf('?');
    if (query >= 0) {
        const QString text = source.mid(query + 1);
        add(text);
        for (const auto &item : QUrlQuery(text).queryItems(QUrl::FullyEncoded))
            add(item.second);
    }
    std::sort(found.begin(), found.end(),
              [](const QString &a, const QString &b) { return a.size() > b.size(); });
    return found;
}

bool hasSecret(const QString &source)
{
    return !secrets(source).isEmpty();
}

QString fromFile(const QString &path, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return {};
    }
    const QString line = QString::fromUtf8(file.readLine()).trimmed();
    if (line.isEmpty())
        error = QStringLiteral("the first line of %1 holds no address").arg(path);
    else if (hasSecret(line))
        error = RoomConfig::exposure(path);
    return error.isEmpty() ? line : QString();
}

} // namespace address
