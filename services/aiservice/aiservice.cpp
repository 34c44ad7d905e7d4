#include "aiservice.h"

#include "aiconfig.h"
#include "aiservicecontroller.h"
#include "qstorage.h"

#include <QDebug>

namespace {

constexpr int versionMajor = 0;
constexpr int versionMinor = 8;

/// The recognisers that a recovery loads when the store tells none.
constexpr unsigned defaultModelLoadFlag = 0x1241049;

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
    default:
        text += value.toString().leftRef(longestText);
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
    QVariantMap data = result.value(QStringLiteral("rsp_data")).toMap();
    data.insert(QStringLiteral("command_code"), code);
    result.insert(QStringLiteral("rsp_data"), data);
}

} // namespace

AIService::AIService() : IService(QStringLiteral("AI"), false)
{
    qInfo("%s", qUtf8Printable(QStringLiteral("construct %1").arg(serviceName)));
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
    return QStringLiteral("%1.%2").arg(versionMajor).arg(versionMinor);
}

void AIService::run() {}

QVariantMap AIService::open(const QString &requestID)
{
    qInfo().noquote() << "AIService::open" << requestID;
    allUseQueue = true;
    qInfo("AIService open begin");
    QMutexLocker locker(&m_openMutex);
    if (m_status != 0) {
        qWarning("AIService already open");
        return makeResponse(0, QStringLiteral("aiservice already open"));
    }
    qInfo("AIService is opening");
    const QVariantMap result = controller->init();
    if (result.value(QStringLiteral("rsp_error")) == 0)
        m_status = 1;
    QSqliteStorage::instance()->open(true);
    return result;
}

QVariantMap AIService::close(const QString &requestID)
{
    QMutexLocker locker(&serviceMutex);
    qInfo().noquote() << "AIService::close" << requestID;
    if (m_status == 0) {
        qWarning("AIService not open");
        return makeResponse(-15, QStringLiteral("aiservice not open"));
    }
    qInfo("AIService is closing");
    controller->close();
    qInfo("AIService close end");
    m_status = 0;
    return {{QStringLiteral("rsp_error"), 0}};
}

QVariantMap AIService::info(unsigned int code, const QVariant &data, const QString &requestID)
{
    qInfo().noquote() << "AIService::info" << code << requestID << describe(data);
    QVariantMap result;
    if (code == 1001) {
        result = status();
    } else {
        result.insert(QStringLiteral("rsp_error"), -10);
        result.insert(QStringLiteral("rsp_data"), QVariant());
    }
    setCommandCode(result, code);
    return result;
}

QVariantMap AIService::execute(unsigned int code, const QVariant &data, const QString &requestID)
{
    QMutexLocker locker(&serviceMutex);
    qInfo().noquote() << "AIService::execute" << requestID << code << describe(data);
    QVariantMap result;
    if (code == 1001 || code == 1028) {
        if (m_status < 1) {
            qWarning("[excute] aiservice not open");
            return makeResponse(-15, QStringLiteral("aiservice not open"));
        }
        if (code == 1028) {
            result = controller->reset(requestID);
        } else {
            result = initAIService(data.toMap());
            if (result.value(QStringLiteral("rsp_error")).toInt() == 0)
                m_status = 2;
        }
    } else {
        if (m_status < 2) {
            qWarning("[excute] aiservice not init");
            return makeResponse(-15, QStringLiteral("aiservice not init"));
        }
        result = dispatch(code, data.toMap(), requestID);
    }
    if (result.contains(QStringLiteral("rsp_data")))
        setCommandCode(result, code);
    qInfo().noquote() << "AIService::execute" << requestID << "end";
    return result;
}

QVariantMap AIService::dispatch(unsigned int code, const QVariantMap &params, const QString &requestID)
{
    switch (code) {
    case 1020:
        return controller->setExternalGallery(params, requestID);
    case 1021:
        return controller->fetchGalleryNew(params, requestID);
    case 1022:
        return controller->registerGallery(params, requestID);
    case 1023:
        return controller->updateStudentGallery(params);
    case 1024:
        return controller->updateStudentID(params);
    case 1025:
        return controller->deleteGallery(params);
    case 1026:
        return controller->bestGallery(requestID);
    case 1027:
        return controller->clearHistoryGalleries(requestID);
    case 1030:
    case 1031:
        return controller->detectHandup(params, requestID, code == 1030);
    case 1032:
    case 1033:
        return controller->detectConcerntration(params, requestID, code == 1032);
    case 1034:
    case 1035:
        return controller->tracking(params, requestID, code == 1034);
    case 1036:
    case 1037:
        return controller->startFunctionGame(params, requestID, code == 1036);
    case 1038:
        return controller->startAttributeDetection(params, requestID);
    case 1039:
        return controller->startVideoRecord(params, requestID);
    case 1040:
        return controller->stopVideoRecord(requestID);
    default:
        return {{QStringLiteral("rsp_error"), -10}};
    }
}

QVariantMap AIService::initAIService(const QVariantMap &params)
{
    AIConfig::instance().setModelFlags(params);
    QVariantMap details;
    if (!controller->loadModel(details)) {
        qCritical("[initAIService] load model failed");
        return makeResponse(-2, details, QStringLiteral("load model failed"));
    }
    qInfo("[initAIService] load model finish");
    controller->setConfigData(params);
    return makeResponse(0, QString());
}

QVariantMap AIService::status() const
{
    const QVariantMap data{{QStringLiteral("status"), m_status.load()},
                           {QStringLiteral("version"), version()}};
    return makeResponse(0, data, QString());
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
    m_status = 1;
    qInfo("recover controller init success");

    QSqliteStorage::instance()->open(false);
    unsigned int modelLoadFlag = defaultModelLoadFlag;
    QString identify; // the client tells it again with its next initialisation
    QSqliteStorage::instance()->getConfig(modelLoadFlag, identify);
    AIConfig::instance().setModelLoadFlag(modelLoadFlag);
    QVariantMap details;
    if (!controller->loadModel(details)) {
        qCritical("load model failed");
        return false;
    }
    m_status = 2;
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
