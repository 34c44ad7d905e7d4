#include "settings.h"

#include "address.h"
#include "codes.h"
#include "roomconfig.h"

#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QUrl>

namespace {

/// One level of a topic: no wildcards, no separators.
void checkLevel(const RoomConfig &file, const char *key, const QString &level, bool mayHaveLevels = false)
{
    if (level.isEmpty() || level.contains('+') || level.contains('#') ||
        (!mayHaveLevels && level.contains('/')) || level.startsWith('/') || level.endsWith('/') ||
        level.startsWith('$') || level.contains(QChar(0)))
        file.complain(key, QStringLiteral("a name without + # $ / is wanted"));
}

Hours hoursFrom(const RoomConfig &file, const char *key, const QString &otherwise)
{
    Hours hours;
    QString problem;
    if (!hours.parse(file.text(key, otherwise), problem))
        file.complain(key, problem);
    return hours;
}

/// The path of a file that only this user may read.
QString secretFile(const RoomConfig &file, const char *key)
{
    QString path = file.text(key);
    const QString problem = path.isEmpty() ? QString() : RoomConfig::exposure(path);
    if (!problem.isEmpty())
        file.complain(key, problem);
    return path;
}

QString publicFile(const RoomConfig &file, const char *key)
{
    QString path = file.text(key);
    if (!path.isEmpty() && !QFileInfo(path).isReadable())
        file.complain(key, QStringLiteral("cannot read %1").arg(path));
    return path;
}

bool isLoopback(const QString &host)
{
    return host == "localhost" || QHostAddress(host).isLoopback();
}

void readRun(const RoomConfig &file, Settings::Run &run)
{
    for (const QString &word : file.list("run/analyses")) {
        bool known = word == "smiles";
        run.smiles = run.smiles || known;
        for (const auto &analysis : codes::analyses())
            if (word == analysis.word) {
                known = true;
                run.analyses.append(word);
                run.recognisers += analysis.recognisers;
            }
        if (!known)
            file.complain("run/analyses",
                          QStringLiteral("no analysis %1; there are hands, attention and smiles").arg(word));
    }
    if (run.smiles)
        run.recognisers.append("emotion");
    if (run.smiles && !run.analyses.contains("attention"))
        file.complain("run/analyses", QStringLiteral("smiles are seen by attention only; name both"));
    for (const QString &key : file.list("run/recognisers")) {
        if (!codes::recognisers().contains(key))
            file.complain(
                "run/recognisers",
                QStringLiteral("no recogniser %1; there are %2").arg(key, codes::recognisers().join(", ")));
        run.recognisers.append(key);
    }
    run.recognisers.removeDuplicates();
    run.hours = hoursFrom(file, "run/hours", "always");
    run.silence = int(1000 * file.number("run/silence", 20, 1, 3600));
    run.patience = int(1000 * file.number("run/patience", 60, 1, 3600));
}

void readBroker(const RoomConfig &file, Settings::Broker &broker)
{
    broker.host = file.text("broker/host");
    broker.caFile = publicFile(file, "broker/ca-file");
    broker.certificateFile = publicFile(file, "broker/certificate-file");
    broker.keyFile = secretFile(file, "broker/key-file");
    const bool encrypted = !broker.caFile.isEmpty();
    broker.port = int(file.number("broker/port", encrypted ? 8883 : 1883, 1, 65535));
    broker.prefix = file.text("broker/prefix", "classroom");
    checkLevel(file, "broker/prefix", broker.prefix, true);
    broker.user = file.text("broker/user");
    broker.keepalive = int(file.number("broker/keepalive", 20, 5, 3600));
    broker.storeCount = int(file.number("broker/store", 10000, 1, 1e7));
    broker.storeBytes = qint64(file.number("broker/store-bytes", 16e6, 1000, 1e10));

    const QString passwordFile = secretFile(file, "broker/password-file");
    QFile password(passwordFile);
    if (!passwordFile.isEmpty() && file.error().isEmpty()) {
        if (password.open(QIODevice::ReadOnly))
            broker.password = QString::fromUtf8(password.readLine()).trimmed();
        if (broker.password.isEmpty())
            file.complain("broker/password-file",
                          QStringLiteral("the first line of %1 holds no password").arg(passwordFile));
    }
    if (broker.user.isEmpty() != passwordFile.isEmpty())
        file.complain("broker/user", QStringLiteral("user and password-file belong together"));
    if (broker.certificateFile.isEmpty() != broker.keyFile.isEmpty())
        file.complain("broker/certificate-file",
                      QStringLiteral("certificate-file and key-file belong together"));
    if (!broker.keyFile.isEmpty() && !encrypted)
        file.complain("broker/ca-file", QStringLiteral("is needed with a client certificate"));
    if (!broker.host.isEmpty() && !encrypted && !isLoopback(broker.host))
        file.complain("broker/ca-file",
                      QStringLiteral("is needed: nothing goes to another machine unencrypted"));
}

} // namespace

bool Settings::read(const QString &path, QString &error)
{
    RoomConfig file;
    if (!file.read(path, error))
        return false;
    school = file.text("room/school");
    room = file.text("room/room");
    checkLevel(file, "room/school", school);
    checkLevel(file, "room/room", room);

    camera = address::shown(file.text("camera/address"));
    if (camera != file.text("camera/address")) {
        const QString problem = RoomConfig::exposure(path);
        if (!problem.isEmpty())
            file.complain("camera/address", problem);
    }
    readRun(file, run);
    recording.hours = hoursFrom(file, "recording/hours", "never");
    recording.folder = file.text("recording/folder");
    readBroker(file, broker);
    metricsPort = int(file.number("metrics/port", 0, 1, 65535));
    privacy.names = file.flag("privacy/names", false);
    privacy.pictures = file.flag("privacy/pictures", false);
    privacy.faces = file.flag("privacy/faces", false);
    privacy.features = file.flag("privacy/features", false);
    for (const QString &word : file.list("commands/allow")) {
        if (word != "status" && !codes::commandWords().contains(word))
            file.complain("commands/allow", QStringLiteral("no command %1; there are status, %2")
                                                .arg(word, codes::commandWords().keys().join(", ")));
        commands.insert(word);
    }
    error = file.error();
    return error.isEmpty();
}
