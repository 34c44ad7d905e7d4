#include "aiservice.h"

#include "aiconfig.h"
#include "aiservicecontroller.h"
#include "commandreply.h"
#include "countednames.h"
#include "logline.h"
#include "picturetext.h"
#include "qstorage.h"

#include <QDebug>

using ai::Error;
using ai::State;

namespace {

constexpr int versionMajor = 0;
constexpr int versionMinor = 8;

/// As much of a request's data as fits into a line of the log.
constexpr int longestText = 10000;

/// Appends the value as text, nested values in brackets, and stops when the text is long enough.
void append(QString &text, const QVariant &value)
{
    if (text.size() >= longestText)
        return;
    switch (static_cast<QMetaType::Type>(value.type())) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        text += QLatin1Char('{');
        for (auto entry = map.begin(); entry != map.end() && text.size() < longestText; ++entry) {
            text += entry.key().leftRef(longestText) + QLatin1String(": ");
            append(text, entry.value());
            text += QLatin1String(", ");
        }
        text += QLatin1Char('}');
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        text += QLatin1Char('[');
        for (auto entry = list.begin(); entry != list.end() && text.size() < longestText; ++entry) {
            append(text, *entry);
            text += QLatin1String(", ");
        }
        text += QLatin1Char(']');
        break;
    }
    case QMetaType::QByteArray: // which may be a picture's file
        text += QStringLiteral("<%1 bytes>").arg(value.toByteArray().size());
        break;
    default:
        text += log_text::withoutPictures(value.toString()).leftRef(longestText);
        break;
    }
}

QString describe(const QVariant &data)
{
    QString text;
    append(text, data);
    return text;
}

void setCommandCode(QVariantMap &result, unsigned int code)
{
    QVariant &entry = result[QStringLiteral("rsp_data")];
    QVariantMap data = entry.toMap();
    entry.clear(); // so that the map isn't copied
    data.insert(QStringLiteral("command_code"), code);
    entry = data;
}

} // namespace

AIService::AIService() : IService(QStringLiteral("AI"), false)
{
    qInfo("%s", qUtf8Printable(QStringLiteral("construct %1").arg(serviceName)));
    nameCounters();
    controller = new AIServiceController(nullptr);
    connect(controller, &AIServiceController::serviceMessgeSignal, this, &IService::serviceMessgeSignal);
}

AIService::~AIService()
{
    qInfo("destruct AIService");
    controller->deleteLater();
}

QString AIService::version()
{
    static const QString text = QStringLiteral("%1.%2").arg(versionMajor).arg(versionMinor);
    return text;
}

void AIService::run() {}

QVariantMap AIService::open(const QString &requestID)
{
    qInfo().noquote() << "AIService::open" << requestID;
    allUseQueue = true;
    qInfo("AIService open begin");
    QMutexLocker locker(&m_openMutex);
    if (m_status != State::Closed) {
        qWarning("AIService already open");
        return makeResponse(Error::None, "aiservice already open");
    }
    qInfo("AIService is opening");
    const QVariantMap result = controller->init();
    if (result.value(QStringLiteral("rsp_error")) == 0)
        m_status = State::Open;
    QSqliteStorage::instance()->open(true);
    return result;
}

QVariantMap AIService::close(const QString &requestID)
{
    QMutexLocker locker(&serviceMutex);
    qInfo().noquote() << "AIService::close" << requestID;
    if (m_status == State::Closed) {
        qWarning("AIService not open");
        return makeResponse(Error::WrongState, "aiservice not open");
    }
    qInfo("AIService is closing");
    controller->close();
    qInfo("AIService close end");
    m_status = State::Closed;
    return command::reply(Error::None);
}

QVariantMap AIService::info(unsigned int code, const QVariant &data, const QString &requestID)
{
    LOG_INFO("AIService::info ", code, " ", requestID, " ", describe(data));
    QVariantMap result;
    if (ai::find(ai::Question{code})) {
        result = status();
    } else {
        result = command::reply(Error::Unknown);
        result.insert(QStringLiteral("rsp_data"), QVariant());
    }
    setCommandCode(result, code);
    return result;
}

QVariantMap AIService::execute(unsigned int code, const QVariant &data, const QString &requestID)
{
    QMutexLocker locker(&serviceMutex);
    LOG_INFO("AIService::execute ", requestID, " ", code, " ", describe(data));
    const ai::CommandRow *row = ai::find(ai::Command{code});
    const State needed = row ? row->needs : State::Initialised;
    if (m_status < needed) {
        const char *missing = needed == State::Open ? "aiservice not open" : "aiservice not init";
        qWarning("[excute] %s", missing);
        return makeResponse(Error::WrongState, missing);
    }
    QVariantMap result = row ? run(*row, data.toMap(), requestID) : command::reply(Error::Unknown);
    if (result.contains(QStringLiteral("rsp_data")))
        setCommandCode(result, code);
    LOG_INFO("AIService::execute ", requestID, " end");
    return result;
}

QVariantMap AIService::run(const ai::CommandRow &row, const QVariantMap &params, const QString &requestID)
{
    const CommandEntry &entry = commandEntry(row.command);
    if (row.needsCamera && !controller->isCameraConnected()) {
        qWarning("%scontroller is invalid", entry.logName);
        return command::reply(Error::NoCamera);
    }
    return entry.run(*this, params, requestID);
}

QVariantMap AIService::initAIService(const QVariantMap &params)
{
    AIConfig::instance().setModelFlags(params);
    QVariantMap details;
    if (!controller->loadModel(details)) {
        qCritical("[initAIService] load model failed");
        return makeResponse(Error::Failed, details, "load model failed");
    }
    qInfo("[initAIService] load model finish");
    controller->setConfigData(params);
    m_status = State::Initialised;
    return makeResponse(Error::None, "");
}

QVariantMap AIService::status() const
{
    const QVariantMap data{{QStringLiteral("status"), code(m_status.load())},
                           {QStringLiteral("version"), version()}};
    return makeResponse(Error::None, data, "");
}

bool AIService::recover()
{
    qInfo("[recover] begin");
    QMutexLocker locker(&serviceMutex);
    bool recovered = false;
    try {
        recovered = recoverFromStore();
    } catch (const std::exception &exception) {
        qCritical("[recover] failed: %s", exception.what());
    } catch (...) {
        qCritical("[recover] failed: unknown exception");
    }
    // Only now, since the reading takes the file as it stands.
    QSqliteStorage::instance()->createMissingTables();
    return recovered;
}

bool AIService::recoverFromStore()
{
    m_recovering = true;
    if (controller->init().value(QStringLiteral("rsp_error")).toInt() != 0) {
        qWarning("recover controller init failed");
        return false;
    }
    m_status = State::Open;
    qInfo("recover controller init success");

    QSqliteStorage::instance()->open(false);
    unsigned int modelLoadFlag = loadableMasks(); // for a store that tells none
    QString identify;                             // the client tells it again with its next initialisation
    QSqliteStorage::instance()->getConfig(modelLoadFlag, identify);
    AIConfig::instance().setModelLoadFlag(modelLoadFlag);
    QVariantMap details;
    if (!controller->loadModel(details)) {
        qCritical("load model failed");
        return false;
    }
    m_status = State::Initialised;
    controller->recovery();
    qInfo("[recover] end");
    m_recovering = false;
    return true;
}

bool AIService::disconnectReset()
{
    QMutexLocker locker(&serviceMutex);
    qInfo("disconnectReset");
    controller->resetStrategies();
    return true;
}
