#include "aiservicecontroller.h"

#include "aiconfig.h"
#include "commandreply.h"
#include "counters.h"
#include "imagereader.h"
#include "modelmanager.h"
#include "qstorage.h"
#include "threadtimer.h"

#include <QDebug>

#include <chrono>

namespace {

constexpr int storageInterval = 360000; // ms
constexpr std::chrono::milliseconds connectInterval(500);

} // namespace

AIServiceController::AIServiceController(QObject *parent)
    : QObject(parent), m_reader(new ImageReader(QStringLiteral("Camera"), this)), m_workThread(new QThread)
{
    connect(m_workThread, &QThread::finished, m_workThread, &QObject::deleteLater);
    moveToThread(m_workThread);
    m_workThread->start(QThread::InheritPriority);
    connect(m_reader, &ImageReader::newImageBlockSignal, this, &AIServiceController::onIPCVideoFrame);
    connect(this, &AIServiceController::newImageSignal, &m_strategies, &StrategyRegistry::offerFrame,
            Qt::DirectConnection);
}

AIServiceController::~AIServiceController()
{
    if (m_timerThread) {
        m_timerThread->quit();
        m_timerThread->deleteLater();
    }
    m_ipcThread.reset();
    m_workThread->quit();
    if (QThread::currentThread() != m_workThread)
        m_workThread->wait();
}

QVariantMap AIServiceController::init()
{
    qDebug("AIService init begin");
    qDebug("AIService init reader start");
    m_valid = true;
    m_ipcThread.reset(new std::thread(&AIServiceController::ipcConnect, this), [](std::thread *thread) {
        if (thread->joinable())
            thread->detach();
        delete thread;
    });

    m_timerThread = new QThread; // deleted by close(), on whichever thread that runs
    m_storageTimer = addTimer(m_timerThread, storageInterval, [this] { onStorageTimeDone(); });
    m_videoWatch.start(m_timerThread);
    m_timerThread->start(QThread::InheritPriority);
    return command::reply(ai::Error::None);
}

void AIServiceController::ipcConnect(void *controller)
{
    qInfo("ipcConnect");
    auto *self = static_cast<AIServiceController *>(controller);
    if (!self || self->m_ipcRunning)
        return;
    while (!self->m_reader->startToRead()) {
        self->m_valid = false;
        qWarning("ipc conn failed");
        std::this_thread::sleep_for(connectInterval);
    }
    self->m_ipcRunning = true;
    self->m_valid = true;
    qInfo("ipcConnect success");
}

void AIServiceController::close()
{
    if (m_reader) {
        m_ipcRunning = false;
        if (m_ipcThread && m_ipcThread->joinable())
            m_ipcThread->join();
        m_ipcThread.reset();
        m_ipcRunning = false; // a connection that came while we waited for it
        m_reader->stopToRead();
    }
    if (m_timerThread) {
        m_timerThread->quit();
        m_timerThread->wait();
        delete m_timerThread;
        m_timerThread = nullptr;
    }
    m_videoWatch.stop();
    delete m_storageTimer;
    m_storageTimer = nullptr;

    resetStrategies();
    m_classroom.clear();
    stopVideoRecord(QString());
}

void AIServiceController::onIPCVideoFrame(const ImageBlock &block)
{
    const AIConfig &config = AIConfig::instance();
    counters::Frames &counted = counters::page().frames;
    counted.read.add();
    if (block.width != config.frameWidth || block.height != config.frameHeight) {
        qCritical().nospace() << "[videoframe] frame width: " << block.width << " or height: " << block.height
                              << " not match";
        counted.skippedSize.add();
        return;
    }
    const int bytesPerPixel = block.format == RGB ? 3 : 4;
    const bool isKnown = block.format == RGB || block.format == RGBA;
    // The writer's word for the size must cover the picture that we are about to look at.
    if (!isKnown || block.size < bytesPerPixel * config.frameWidth * config.frameHeight) {
        counted.skippedFormat.add();
        return;
    }
    counted.taken.add();
    counted.newest.set(counters::now());

    m_videoWatch.frameCame();
    const QImage image(reinterpret_cast<const uchar *>(block.data), block.width, block.height,
                       bytesPerPixel * block.width,
                       bytesPerPixel == 3 ? QImage::Format_RGB888 : QImage::Format_RGB32);
    emit newImageSignal(image);
}

void AIServiceController::onStorageTimeDone()
{
    m_classroom.save();
}

void AIServiceController::onCheckTimerDone()
{
    m_videoWatch.check();
}

bool AIServiceController::loadModel(QVariantMap &)
{
    const bool loaded = ModelManager::instance().init();
    m_modelLoaded = loaded;
    qInfo().nospace() << "[loadModel]: " << loaded;
    return loaded;
}

QVariantMap AIServiceController::setConfigData(const QVariantMap &params)
{
    AIConfig &config = AIConfig::instance();
    const QString identify = params.value(QStringLiteral("identify")).toString();
    config.setIdentify(identify);
    qInfo().noquote().nospace() << "[identify]: " << identify;
    if (params.contains(QStringLiteral("enableEmotion")))
        config.setEnableEmotion(params.value(QStringLiteral("enableEmotion")).toBool());
    if (!m_classroom.isRecovering())
        QSqliteStorage::instance()->setConfig(config.modelLoadFlag, identify);
    return {};
}

QVariantMap AIServiceController::reset(const QString &)
{
    qInfo("reset");
    resetStrategies();
    m_classroom.forget();
    return command::reply(ai::Error::None);
}

bool AIServiceController::addNewStrategy(const QString &name, const QString &requestID)
{
    return m_strategies.provide(name, requestID) != nullptr;
}

void AIServiceController::removeStrategy(const QString &name, const BaseStrategy *strategy)
{
    m_strategies.remove(name, strategy);
}

void AIServiceController::resetStrategies()
{
    m_strategies.reset();
}
