#pragma once

#include <QThread>
#include <QTimer>

/// Makes a timer that ticks on the thread: from the thread's start to its end, where it is stopped on the
/// thread itself, as Qt demands. The receiver connects to timeout directly.
inline QTimer *createThreadTimer(QThread *thread, int milliseconds)
{
    auto *const timer = new QTimer;
    timer->setInterval(milliseconds);
    timer->moveToThread(thread);
    QObject::connect(thread, &QThread::started, timer, qOverload<>(&QTimer::start));
    QObject::connect(thread, &QThread::finished, timer, &QTimer::stop, Qt::DirectConnection);
    return timer;
}

/// Ends the thread, waits for it and deletes the timer. The thread may never have been started.
inline void endThreadTimer(QTimer *timer, QThread *thread)
{
    if (!thread->isRunning()) {
        delete timer;
        return;
    }
    timer->deleteLater();
    thread->quit();
    thread->wait();
}
