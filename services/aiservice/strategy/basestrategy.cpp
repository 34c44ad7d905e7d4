#include "basestrategy.h"

#include "heap.h"
#include "imageutil.h"

#include <QCoreApplication>
#include <QDebug>
#include <QThread>

namespace {

std::atomic<int> seenByAll{0};
std::atomic<int> living{0}; // strategies in memory

} // namespace

BaseStrategy::BaseStrategy(const QString &name, const QString &requestID, QObject *parent)
    : QObject(parent), m_name(name), m_requestID(requestID), m_thread(new QThread)
{
    // Strategies are made on pool threads, which have no event loop in which the thread object could
    // delete itself.
    m_thread->moveToThread(QCoreApplication::instance()->thread());
    connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    moveToThread(m_thread);
    ++living;
}

BaseStrategy::~BaseStrategy()
{
    qInfo().noquote().nospace() << "strategy destroy,name: " << m_name;
    m_state = State::ended;
    if (--living == 0)
        heap::giveBack();
    if (!m_thread->isRunning()) {
        m_thread->deleteLater();
        return;
    }
    m_thread->quit();
    if (QThread::currentThread() != m_thread)
        m_thread->wait();
}

void BaseStrategy::setParameters(const QVariantMap &) {}

void BaseStrategy::onStart() {}

void BaseStrategy::onStop() {}

void BaseStrategy::release(BaseStrategy *strategy)
{
    strategy->m_state = State::ended; // frames that wait before the deletion need no handling any more
    if (strategy->m_thread->isRunning())
        strategy->deleteLater();
    else
        delete strategy;
}

bool BaseStrategy::enterRunning(const char *refusal)
{
    State state = State::fresh;
    if (m_state.compare_exchange_strong(state, State::running))
        return true;
    qWarning().noquote().nospace() << "strategy<" << m_name << "> "
                                   << (state == State::ended ? "has ended" : refusal);
    return false;
}

bool BaseStrategy::start()
{
    if (!enterRunning("is allready running"))
        return false;
    onStart();
    m_thread->start(QThread::InheritPriority);
    return true;
}

bool BaseStrategy::startWithinFrames(int frames)
{
    if (frames < 1) {
        qWarning("%s", qUtf8Printable(
                           QStringLiteral("strategy<%1> startWithinFrames param error,<%s>").arg(m_name)));
        frames = 1;
    }
    if (!enterRunning("is already running"))
        return false;
    m_frameLimit = frames;
    m_thread->start(QThread::InheritPriority);
    return true;
}

bool BaseStrategy::stop()
{
    qInfo().noquote().nospace() << "[BaseStrategy] stop begin: " << m_name;
    m_state = State::ended;
    onStop();
    emit finished();
    qInfo().noquote().nospace() << "[BaseStrategy] stop end: " << m_name;
    return true;
}

void BaseStrategy::offerFrame(const QImage &image)
{
    m_backlog.offer(this, &BaseStrategy::onRecieveFrame, image);
}

int BaseStrategy::frameCount()
{
    return seenByAll.load(std::memory_order_relaxed);
}

void BaseStrategy::onRecieveFrame(const QImage &image)
{
    seenByAll.fetch_add(1, std::memory_order_relaxed);
    counters::AnalysisRow &counted = m_backlog.counted();
    if (m_state != State::running) {
        counted.skippedStopped.add();
        return;
    }
    if (m_frameInterval < 1) {
        qWarning("strategy<1%%> can not get frame every <2%%>");
        counted.skippedUnusable.add();
        return;
    }
    if (m_seenFrames++ % m_frameInterval != 0) {
        counted.skippedInterval.add();
        return;
    }

    const std::int64_t begin = counters::now();
    const cv::Mat frame = ai_image::convertQImage2Mat(image);
    if (frame.empty()) {
        qWarning("strategy<1%%> got an empty frame");
        counted.skippedUnusable.add();
        return;
    }
    m_imageWidth = image.width();
    m_imageHeight = image.height();
    handleFrame(frame);
    counters::addTime(counted.time, counted.longest, counters::now() - begin);
    counted.handled.add();

    ++m_handledFrames;
    const int limit = m_frameLimit;
    if (limit != 0 && m_handledFrames >= limit)
        stop();
}
