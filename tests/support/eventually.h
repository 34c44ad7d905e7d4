#pragma once

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

/// Runs the event loop until the condition holds or the time is up. Tells whether it holds.
template <class Condition>
bool eventually(Condition condition, int milliseconds = 10000)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > milliseconds)
            return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}
