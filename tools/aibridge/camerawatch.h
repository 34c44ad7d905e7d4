#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QSharedMemory>
#include <QTimer>

/**
 * Sees whether the camera writes frames, by the change identifier of the segment "Camera". It takes no lock
 * and reads no picture, so it can't hold anybody up.
 *
 * Threads: one.
 */
class CameraWatch : public QObject
{
    Q_OBJECT

public:
    explicit CameraWatch(QObject *parent = nullptr);

    /// Milliseconds since a frame was written last; -1 when none was seen.
    qint64 age() const;
    /// True while frames come: the youngest is at most four seconds old, as the service counts it.
    bool isAlive() const;

signals:
    /// Frames come again.
    void resumed();

private:
    void look();

    QSharedMemory m_memory;
    QTimer m_timer;
    QByteArray m_change;
    QElapsedTimer m_seen;
    bool m_wasAlive = false;
};
