#include "aiservicecontroller.h"

#include "aiconfig.h"
#include "basestrategy.h"
#include "commandreply.h"
#include "datamanager.h"
#include "externalgallery.h"
#include "imagereader.h"
#include "messageSender.h"
#include "modelmanager.h"
#include "qstorage.h"

#include <QDebug>
#include <QThread>
#include <QTimer>

#include <chrono>
#include <vector>

namespace {

constexpr int storageInterval = 360000; // ms
constexpr int checkInterval = 3000;     // ms
constexpr std::chrono::milliseconds connectInterval(500);
constexpr qint64 ticksPerSecond = 10000000;
constexpr qint64 silentSeconds = 4;

qint64 now()
{
    using Ticks = std::chrono::duration<qint64, std::ratio<1, ticksPerSecond>>;
    return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void sendVideoState(int status)
{
    MessageSender::instance()->sendMessage(code(ai::Event::Video),
                                           QVariantMap{{QStringLiteral("status"), status}}, QString());
}

/// A timer that lives on a thread, runs as long as it and calls the slot there.
QTimer *addTimer(QThread *thread, int interval, AIServiceController *controller,
                 void (AIServiceController::*slot)())
{
    auto *timer = new QTimer;
    timer->moveToThread(thread);
    timer->setInterval(interval);
    QObject::connect(timer, &QTimer::timeout, controller, slot, Qt::DirectConnection);
    QObject::connect(thread, &QThread::started, timer, qOverload<>(&QTimer::start));
    // A timer can only be stopped on its own thread: there, when that ends.
    QObject::connect(thread, &QThread::finished, timer, &QTimer::stop, Qt::DirectConnection);
    return timer;
}

} // namespace

AIServiceController::AIServiceController(QObject *parent)
    : QObject(parent), m_reader(new ImageReader(QStringLiteral("Camera"), this)), m_workThread(new QThread)
{
    connect(m_workThread, &QThread::finished, m_workThread, &QObject::deleteLater);
    moveToThread(m_workThread);
    m_workThread->start(QThread::InheritPriority);
    connect(m_reader, &ImageReader::newImageBlockSignal, this, &AIServiceController::onIPCVideoFrame);
    connect(this, &AIServiceController::newImageSignal, this, &AIServiceController::offerFrame,
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
    m_storageTimer = addTimer(m_timerThread, storageInterval, this, &AIServiceController::onStorageTimeDone);
    m_checkTimer = addTimer(m_timerThread, checkInterval, this, &AIServiceController::onCheckTimerDone);
    m_timerThread->start(QThread::InheritPriority);
    m_checkTime = now();
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
    delete m_checkTimer;
    m_checkTimer = nullptr;
    delete m_storageTimer;
    m_storageTimer = nullptr;

    resetStrategies();
    ExternalGallery::instance()->clear();
    deleteAllGalleries();
    stopVideoRecord(QString());
}

void AIServiceController::onIPCVideoFrame(const ImageBlock &block)
{
    const AIConfig &config = AIConfig::instance();
    if (block.width != config.frameWidth || block.height != config.frameHeight) {
        qCritical().nospace() << "[videoframe] frame width: " << block.width << " or height: " << block.height
                              << " not match";
        return;
    }
    const int bytesPerPixel = block.format == RGB ? 3 : 4;
    if (block.format != RGB && block.format != RGBA)
        return;
    // The writer's word for the size must cover the picture that we are about to look at.
    if (block.size < bytesPerPixel * config.frameWidth * config.frameHeight)
        return;

    m_lastFrameTime = now();
    const QImage image(reinterpret_cast<const uchar *>(block.data), block.width, block.height,
                       bytesPerPixel * block.width,
                       bytesPerPixel == 3 ? QImage::Format_RGB888 : QImage::Format_RGB32);
    emit newImageSignal(image);
}

void AIServiceController::onStorageTimeDone()
{
    for (const StudentInfo &student : DataManager::instance()->getAllStudents())
        QSqliteStorage::instance()->updateStudentInfo(student);
    qInfo("storage");
}

void AIServiceController::onCheckTimerDone()
{
    if (!m_valid || !m_modelLoaded)
        return;
    const qint64 time = now();
    m_checkTime = time;
    const bool silent = (time - m_lastFrameTime) / ticksPerSecond >= silentSeconds;
    if (silent && m_videoAlive) {
        sendVideoState(0);
        m_videoAlive = false;
        qInfo("no video frame");
    } else if (!silent && !m_videoAlive) {
        sendVideoState(1);
        m_videoAlive = true;
        qInfo("video frame resume");
    }
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
    if (!m_recovering)
        QSqliteStorage::instance()->setConfig(config.modelLoadFlag, identify);
    return {};
}

QVariantMap AIServiceController::reset(const QString &)
{
    qInfo("reset");
    resetStrategies();
    ExternalGallery::instance()->clear();
    deleteAllGalleries();
    QSqliteStorage::instance()->remove();
    return command::reply(ai::Error::None);
}

std::shared_ptr<BaseStrategy> AIServiceController::registeredStrategy(const QString &name)
{
    QMutexLocker locker(&m_strategyLock);
    return m_strategies[name];
}

bool AIServiceController::addNewStrategy(const QString &name, const QString &requestID)
{
    const std::shared_ptr<BaseStrategy> registered = registeredStrategy(name);
    // One that has ended by itself is on its way out of the registry.
    if (registered && !registered->hasEnded()) {
        qInfo().noquote().nospace() << "addNewStrategy already exist: " << name;
        return true;
    }
    std::shared_ptr<BaseStrategy> strategy(BaseStrategy::createNewStrategy(name, requestID),
                                           [](BaseStrategy *object) {
                                               if (object)
                                                   BaseStrategy::release(object);
                                           });
    if (!strategy) {
        qWarning().noquote().nospace() << "createNewStrategy failed: " << name << " reqID: " << requestID;
        return false;
    }

    connect(
        strategy.get(), &BaseStrategy::finished, this,
        [this, name, object = strategy.get()] { removeStrategy(name, object); }, Qt::DirectConnection);

    QMutexLocker locker(&m_strategyLock);
    m_strategies[name].swap(strategy); // one that has ended is let go of after the lock
    return true;
}

AIServiceController::Started
AIServiceController::startStrategy(const QString &name, const QString &requestID,
                                   const std::function<bool(BaseStrategy &)> &start)
{
    while (addNewStrategy(name, requestID)) {
        const std::shared_ptr<BaseStrategy> strategy = registeredStrategy(name);
        if (strategy && start(*strategy))
            return Started::yes;
        if (strategy && !strategy->hasEnded())
            return Started::refused;
    }
    return Started::notProvided;
}

/// One connection for all strategies. Each of them with one of its own would take down a slot, on its own
/// thread, that the thread of the video may be about to call.
void AIServiceController::offerFrame(const QImage &image)
{
    std::vector<std::shared_ptr<BaseStrategy>> strategies; // let go after the lock
    {
        QMutexLocker locker(&m_strategyLock);
        strategies.assign(m_strategies.cbegin(), m_strategies.cend());
    }
    for (const std::shared_ptr<BaseStrategy> &strategy : strategies) {
        if (strategy)
            strategy->offerFrame(image);
    }
}

void AIServiceController::removeStrategy(const QString &name, const BaseStrategy *strategy)
{
    std::shared_ptr<BaseStrategy> removed; // let go after the lock
    QMutexLocker locker(&m_strategyLock);
    const auto entry = m_strategies.find(name);
    if (entry == m_strategies.end() || (entry.value() && entry.value().get() != strategy)) {
        qWarning().noquote().nospace() << "remove strategy " << name << " failed";
        return;
    }
    removed = entry.value();
    m_strategies.erase(entry);
    qInfo().noquote().nospace() << "remove strategy " << name << " success";
}

void AIServiceController::resetStrategies()
{
    QMap<QString, std::shared_ptr<BaseStrategy>> removed; // let go after the lock
    QMutexLocker locker(&m_strategyLock);
    for (auto entry = m_strategies.begin(); entry != m_strategies.end();) {
        if (!entry.value()) {
            ++entry;
            continue;
        }
        removed.insert(entry.key(), entry.value());
        entry = m_strategies.erase(entry);
    }
}
