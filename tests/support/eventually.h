#pragma once

#include <QEventLoop>
#include <QTimer>

/// Runs the event loop until the condition holds, and tells that it does. There is no limit of its own: a
/// busy machine may take its time, and what never comes is ended by CTest.
template <class Condition>
bool eventually(Condition condition)
{
    while (!condition()) {
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}
