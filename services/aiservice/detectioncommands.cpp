// The commands that start and stop the analyses and the recording.

#include "aiservicecontroller.h"
#include "basestrategy.h"
#include "commandreply.h"
#include "functionGameStrategy.h"
#include "messageSender.h"
#include "trackingstrategy.h"
#include "videorecorder.h"

#include <QDebug>

using ai::Error;
using command::reply;
using Started = StrategyRegistry::Started;

namespace {

/// Sends the strategy's events on to the client, on the thread that emits them. Called before the start on
/// purpose: a refused second start leaves its connection behind, and each event goes out once more from then
/// on.
void connectEvents(BaseStrategy &strategy, int unique = 0)
{
    QObject::connect(&strategy, &BaseStrategy::serviceMessgeSignal, MessageSender::instance(),
                     &MessageSender::sendMessage,
                     static_cast<Qt::ConnectionType>(Qt::DirectConnection | unique));
}

} // namespace

QVariantMap AIServiceController::detect(const DetectionTexts &texts, const QString &requestID, int start)
{
    if (start != 1) {
        const std::shared_ptr<BaseStrategy> running = m_strategies.find(texts.strategy);
        if (!running) {
            qWarning("%s", texts.stopWarning);
            return reply(Error::WrongState, texts.stopDetail);
        }
        running->stop();
        return reply(Error::None);
    }
    const Started started = m_strategies.start(texts.strategy, requestID, [](BaseStrategy &strategy) {
        connectEvents(strategy);
        return strategy.start();
    });
    if (started == Started::notProvided) {
        qWarning("%s", texts.createWarning);
        return reply(Error::NoAnalysis);
    }
    if (started == Started::refused) {
        qWarning("%s", texts.startWarning);
        return reply(Error::WrongState, texts.startDetail);
    }
    return reply(Error::None);
}

QVariantMap AIServiceController::detectHandup(const QVariantMap &, const QString &requestID, int start)
{
    return detect({QStringLiteral("HandupPickStrategy"), "[detectHandup] stop failed,not start",
                   "handup not start", "[detectHandup] failed to create handup strategy",
                   "[detectHandup] start failed", "handup already start"},
                  requestID, start);
}

QVariantMap AIServiceController::detectConcerntration(const QVariantMap &, const QString &requestID,
                                                      int start)
{
    return detect({QStringLiteral("ConcerntrationStrategy"), "[detectConcerntration] stop failed,not start",
                   "concerntration not start",
                   "[detectConcerntration] failed to create concerntration strategy",
                   "[detectConcerntration] start failed", "concerntration already start"},
                  requestID, start);
}

QVariantMap AIServiceController::startAttributeDetection(const QVariantMap &, const QString &requestID)
{
    const Started started =
        m_strategies.start(QStringLiteral("AttributeStrategy"), requestID, [](BaseStrategy &strategy) {
            connectEvents(strategy);
            return strategy.startWithinFrames(1);
        });
    if (started == Started::notProvided) {
        qWarning("[startAttributeDetection] failed to create attribute strategy");
        return reply(Error::NoAnalysis);
    }
    if (started == Started::refused) {
        qWarning("[startAttributeDetection] start failed");
        return reply(Error::Failed, "start failed");
    }
    return reply(Error::None);
}

QVariantMap AIServiceController::tracking(const QVariantMap &params, const QString &requestID, int start)
{
    const QString stuID = params.value(QStringLiteral("stuID")).toString();
    qInfo().noquote().nospace() << "[tracking] stuID: " << stuID << "--------------------" << start;
    if (stuID.isEmpty()) {
        qWarning("[tracking] params error");
        return reply(Error::BadParameters);
    }
    const auto strategy = std::dynamic_pointer_cast<TrackingStrategy>(
        m_strategies.provide(QStringLiteral("TrackingStrategy"), requestID));
    if (!strategy) {
        qWarning("[tracking] failed to create tracking strategy");
        return reply(Error::NoAnalysis);
    }
    if (start == 0) {
        strategy->stopTracking(stuID, params.value(QStringLiteral("requestID")).toString());
        if (strategy->trackerCount() == 0)
            strategy->stop();
        return reply(Error::None);
    }

    const int started = strategy->startTracking(stuID, requestID);
    if (started == -1) {
        qWarning().noquote().nospace() << "[tracking] start failed,stuID : " << stuID << "not found";
        return reply(Error::NoStudent);
    }
    if (started == -2) {
        qWarning().noquote().nospace() << "[tracking] start failed,stuID : " << stuID << "is tracking";
        return reply(Error::WrongState);
    }
    // Once more for every student: with two of them each event goes out twice.
    connectEvents(*strategy);
    if (!strategy->start() && strategy->trackerCount() == 0) {
        qWarning("[tracking] start failed");
        return reply(Error::WrongState, "tracking start failed");
    }
    return reply(Error::None);
}

QVariantMap AIServiceController::startFunctionGame(const QVariantMap &params, const QString &requestID,
                                                   int start)
{
    const auto strategy = std::dynamic_pointer_cast<FunctionGameStrategy>(
        m_strategies.provide(QStringLiteral("FunctionGameStrategy"), requestID));
    if (!strategy) {
        qWarning("failed to create function game strategy");
        return reply(Error::NoAnalysis);
    }
    connectEvents(*strategy, Qt::UniqueConnection);
    if (!strategy->isGameStarted()) {
        strategy->startGame(params.value(QStringLiteral("stuList")).toList());
        strategy->start();
    }
    if (start == 0)
        strategy->stop();
    return reply(Error::None);
}

QVariantMap AIServiceController::startVideoRecord(const QVariantMap &params, const QString &)
{
    if (VideoRecorder::instance()->isRunning()) {
        qWarning("video record already start");
        return reply(Error::WrongState, "video record already start");
    }
    RecordParam record;
    record.recordPath = params.value(QStringLiteral("recordPath")).toString().toStdString();
    VideoRecorder::instance()->start(record);
    // Unique: the connection of a start that found no folder is still there.
    connect(this, &AIServiceController::newImageSignal, VideoRecorder::instance(), &VideoRecorder::offerFrame,
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection));
    return reply(Error::None);
}

QVariantMap AIServiceController::stopVideoRecord(const QString &)
{
    if (!VideoRecorder::instance()->isRunning()) {
        qWarning("video record not start");
        return reply(Error::WrongState, "video record not start");
    }
    disconnect(this, &AIServiceController::newImageSignal, VideoRecorder::instance(),
               &VideoRecorder::offerFrame);
    VideoRecorder::instance()->stop();
    return reply(Error::None);
}
