#pragma once

#include <QThread>
#include <QTimer>

/// A timer that lives on a thread, runs as long as it and calls the function there. Belongs to the caller,
/// who deletes it after the thread has ended.
template <class Function>
QTimer *addTimer(QThread *thread, int interval, Function function)
{
    auto *timer = new QTimer;
    timer->moveToThread(thread);
    timer->setInterval(interval);
    QObject::connect(timer, &QTimer::timeout, timer, function, Qt::DirectConnection);
    QObject::connect(thread, &QThread::started, timer, qOverload<>(&QTimer::start));
    // A timer can only be stopped on its own thread: there, when that ends.
    QObject::connect(thread, &QThread::finished, timer, &QTimer::stop, Qt::DirectConnection);
    return timer;
}
