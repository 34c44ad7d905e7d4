#pragma once

#include "imagereader.h"
#include "imagewritter.h"

#include <QSharedMemory>
#include <QSystemSemaphore>

#include <gtest/gtest.h>

/// Stops the timer thread of a reader or a writer, so that a test alone tells when it polls or copies.
inline void takeOverTimer(QObject &object)
{
    auto *const thread = object.findChild<QThread *>();
    thread->quit();
    ASSERT_TRUE(thread->wait(5000));
}

/// A segment of a test, removed with its semaphore at the end: System V keys come from the inode of a
/// file in the temporary folder, and the next test may get the same one.
class SegmentTest : public ::testing::Test
{
protected:
    SegmentTest() { remove(); }
    ~SegmentTest() override { remove(); }

    void remove()
    {
        const QSystemSemaphore semaphore(m_key, 1, QSystemSemaphore::Create);
        QSharedMemory left(m_key);
        left.attach();
    }

    /// Notes the numbers of delivered frames; a frame with wrong bytes counts as -1.
    void collect(ImageReader &reader)
    {
        QObject::connect(
            &reader, &ImageReader::newImageBlockSignal, &reader,
            [this](ImageBlock ib) {
                const QByteArray expected(ib.size, char(ib.width));
                const bool intact = std::memcmp(ib.data, expected.constData(), std::size_t(ib.size)) == 0;
                QMutexLocker locker(&m_mutex);
                m_frames.append(intact ? ib.width : -1);
            },
            Qt::DirectConnection);
    }

    /// The frames delivered since the last call.
    QList<int> frames()
    {
        QMutexLocker locker(&m_mutex);
        return std::exchange(m_frames, {});
    }

    static constexpr int m_frameSize = 64;
    const QString m_key = "segmenttest";
    QMutex m_mutex;
    QList<int> m_frames;
};
