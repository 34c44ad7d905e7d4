#pragma once

#include <QImage>
#include <QObject>

#include <atomic>

/// Sends frames as the controller does.
class Camera : public QObject
{
    Q_OBJECT

signals:
    void newImageSignal(const QImage &image);
};

/// Counts frames: the bare receiver of a queued signal.
class Receiver : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> frames{0};

public slots:
    void onFrame(const QImage &) { ++frames; }
};
