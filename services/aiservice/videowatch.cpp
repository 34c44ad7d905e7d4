#include "videowatch.h"

#include "messageSender.h"
#include "protocol.h"
#include "threadtimer.h"

#include <QDebug>

#include <chrono>

namespace {

constexpr int checkInterval = 3000; // ms
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

} // namespace

VideoWatch::VideoWatch(std::function<bool()> isExpected) : m_isExpected(std::move(isExpected)) {}

void VideoWatch::start(QThread *thread)
{
    m_checkTimer = addTimer(thread, checkInterval, [this] { check(); });
    m_checkTime = now();
}

void VideoWatch::stop()
{
    delete m_checkTimer;
    m_checkTimer = nullptr;
}

void VideoWatch::frameCame()
{
    m_lastFrameTime = now();
}

void VideoWatch::check()
{
    if (!m_isExpected())
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
