#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <opencv2/videoio.hpp>
#include <QImage>
#include <QMutex>
#include <QObject>
#include <QThread>
#include <string>

/// What a recording is like. Sizes in pixels; frames of another size are not written.
struct RecordParam
{
    int width = 1920;
    int height = 1080;
    /// Frame rate of the file, pictures a second.
    int fps = 1;
    /// Length of a file in whole seconds; the next one begins with the first picture after that.
    int duration = 1800;
    /// Folder of the files; empty means one on the disk with the most free space.
    std::string recordPath;
};

/**
 * Writes a low-rate video of the class: one frame in 30, stamped with the time, as H.264 in ".mp4" files of
 * a fixed length. Each new file is announced by event 1020.
 *
 * Threads: frames arrive at onRecvFrame on the recorder's own thread, by a queued connection. start, stop
 * and isRunning may be called from any thread; start and stop wait while a picture is being written. Closing
 * a long file takes the encoder seconds, and a file plays only once it was closed: whoever ends the process
 * calls stop first.
 *
 * Errors: a folder or disk that is no good leaves the recording off, with a warning. A file that can't be
 * opened or written is no failure: it is announced, and its pictures are lost.
 */
class VideoRecorder : public QObject
{
    Q_OBJECT

public:
    static VideoRecorder *instance();
    ~VideoRecorder() override;

    /// Turns recording on; the next recorded frame opens the file. An empty folder in param is replaced by
    /// the one that was picked. On a running recording, a file that is open stays until its time is up.
    void start(RecordParam &param);
    /// Turns recording off; the open file is complete when this returns.
    void stop();
    bool isRunning() const { return m_running.load(std::memory_order_relaxed); }

public slots:
    /// One frame of the camera (RGB888). Costs a counter for 29 frames in 30.
    void onRecvFrame(const QImage &image);

private:
    VideoRecorder();

    // With the lock held.
    void recordFrame(const QImage &image);
    void createWriter();
    void closeWriter();

    QMutex m_lock; ///< guards the writer and the parameters
    /// Frames seen while recording was on, since the object was born; moved by the recorder's thread only.
    std::atomic<int> m_frameCounter{0};
    RecordParam m_record;
    std::unique_ptr<cv::VideoWriter> m_writer; ///< the open file, null between files
    std::atomic<bool> m_running{false};
    std::chrono::steady_clock::time_point m_fileStart;
    QThread *m_thread;
};
