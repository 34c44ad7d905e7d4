#include "roomconfig.h"

#include <QFile>
#include <QSet>
#include <QTextStream>

#ifdef Q_OS_UNIX
#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#endif

namespace {

const QSet<QString> &knownKeys()
{
    static const QSet<QString> keys{
        "room/school",
        "room/room",
        "camera/address",
        "camera/fps",
        "camera/size",
        "camera/fit",
        "camera/transport",
        "run/recognisers",
        "run/analyses",
        "run/hours",
        "run/silence",
        "run/patience",
        "recording/hours",
        "recording/folder",
        "broker/host",
        "broker/port",
        "broker/prefix",
        "broker/user",
        "broker/password-file",
        "broker/ca-file",
        "broker/certificate-file",
        "broker/key-file",
        "broker/keepalive",
        "broker/store",
        "broker/store-bytes",
        "metrics/port",
        "privacy/names",
        "privacy/pictures",
        "privacy/faces",
        "privacy/features",
        "commands/allow",
    };
    return keys;
}

#ifdef Q_OS_UNIX
bool isOwnGroup(gid_t group)
{
    std::vector<gid_t> groups(size_t(std::max(0, getgroups(0, nullptr))));
    const int count = getgroups(int(groups.size()), groups.data());
    groups.resize(size_t(std::max(0, count)));
    return group == getegid() || std::find(groups.begin(), groups.end(), group) != groups.end();
}
#endif

} // namespace

bool RoomConfig::read(const QString &path, QString &error)
{
    m_path = path;
    m_values.clear();
    m_error.clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QTextStream lines(&file);
    lines.setCodec("UTF-8");
    QString section;
    for (int number = 1; !lines.atEnd(); ++number) {
        const QString line = lines.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('[') && line.endsWith(']')) {
            section = line.mid(1, line.size() - 2).trimmed();
            continue;
        }
        const int sign = line.indexOf('=');
        const QString key = section + '/' + line.left(sign).trimmed();
        QString problem;
        if (sign < 0)
            problem = QStringLiteral("neither a [section] nor \"key = value\"");
        else if (!knownKeys().contains(key))
            problem = QStringLiteral("unknown key %1").arg(key);
        else if (m_values.contains(key))
            problem = QStringLiteral("%1 comes twice").arg(key);
        if (!problem.isEmpty()) {
            error = QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(problem);
            return false;
        }
        m_values.insert(key, {line.mid(sign + 1).trimmed(), number});
    }
    return true;
}

QString RoomConfig::text(const QString &key, const QString &otherwise) const
{
    Q_ASSERT(knownKeys().contains(key));
    const auto value = m_values.constFind(key);
    return value == m_values.constEnd() ? otherwise : value->text;
}

QStringList RoomConfig::list(const QString &key) const
{
    QStringList parts;
    for (const QString &part : text(key).split(',', Qt::SkipEmptyParts))
        if (!part.trimmed().isEmpty())
            parts.append(part.trimmed());
    return parts;
}

double RoomConfig::number(const QString &key, double otherwise, double least, double most) const
{
    if (!has(key))
        return otherwise;
    bool isNumber = false;
    const double value = text(key).toDouble(&isNumber);
    if (isNumber && value >= least && value <= most)
        return value;
    complain(key, QStringLiteral("a number from %1 to %2 is wanted").arg(least).arg(most));
    return otherwise;
}

bool RoomConfig::flag(const QString &key, bool otherwise) const
{
    if (!has(key))
        return otherwise;
    const QString word = text(key);
    if (word != "yes" && word != "no")
        complain(key, QStringLiteral("yes or no is wanted"));
    return word == "yes";
}

void RoomConfig::complain(const QString &key, const QString &problem) const
{
    if (!m_error.isEmpty())
        return;
    const QString line = has(key) ? QString::number(m_values[key].line) : QStringLiteral("end");
    m_error = QStringLiteral("%1:%2: %3: %4").arg(m_path, line, key, problem);
}

QString RoomConfig::exposure(const QString &path)
{
#ifdef Q_OS_UNIX
    struct stat state = {};
    if (stat(QFile::encodeName(path).constData(), &state) != 0)
        return QStringLiteral("%1 is not there").arg(path);
    const bool othersRead = (state.st_mode & S_IRWXO) != 0;
    const bool groupReads = (state.st_mode & S_IRWXG) != 0 && !isOwnGroup(state.st_gid);
    if (othersRead || groupReads)
        return QStringLiteral("others can read or change %1; take that away with chmod o= %1").arg(path);
#else
    Q_UNUSED(path)
#endif
    return {};
}
