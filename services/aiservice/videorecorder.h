#pragma once

#include "framebacklog.h"

#include <opencv2/videoio.hpp>

#include <QMutex>
#include <QObject>
#include <QString>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <chrono>
#include <memory>
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
 * Threads: frames arrive at onRecvFrame on the recorder's own thread, and only that thread opens, writes and
 * closes files, so only it waits for the encoder and for the disk. All else may be called from any thread.
 * Closing a long file takes the encoder seconds, and a file plays only once it was closed: whoever ends the
 * process calls finish first.
 *
 * Errors: a folder or disk that is no good leaves the recording off, with a warning. A file that can't be
 * opened or written is no failure: it is announced, and its pictures are lost; of one that can't be opened a
 * warning tells the reason. A file that can't be closed in time stays with the recorder's thread.
 */
class VideoRecorder : public QObject
{
    Q_OBJECT

public:
    /// Its row among the counted analyses.
    static constexpr char countedName[] = "VideoRecorder";

    static VideoRecorder *instance();
    ~VideoRecorder() override;

    /// Turns recording on; the next recorded frame opens the file. An empty folder in param is replaced by
    /// the one that was picked. On a running recording, a file that is open stays until its time is up.
    void start(RecordParam &param);
    /// Turns recording off. The open file is complete when this returns; one that isn't after 5 seconds is
    /// left to the recorder's thread, with a warning. A recording that is started meanwhile begins when that
    /// file is closed.
    void stop();
    /// As stop, before the process ends: waits for a file that an earlier stop has left, too.
    void finish();
    bool isRunning() const { return m_running.load(std::memory_order_relaxed); }

    /// Queues a frame for the recorder's thread, unless its backlog is full.
    void offerFrame(const QImage &image);

public slots:
    /// One frame of the camera (RGB888). Costs a counter for 29 frames in 30.
    void onRecvFrame(const QImage &image);

private:
    VideoRecorder();

    /// Turns recording off and waits for the file, for one that was left only if `evenLeft`.
    void close(bool evenLeft);

    // On the recorder's thread.
    void recordFrame(const QImage &image);
    void createWriter(const RecordParam &record);
    void closeWriter();
    /// False when recording was turned off.
    bool occupy(const QString &path);
    void letGo();

    FrameBacklog m_backlog;
    /// A leaf, never held while the encoder works; guards the parameters and the two names.
    QMutex m_lock;
    RecordParam m_record;
    QString m_openFile; ///< from before a file is opened until it is closed, else empty
    QString m_leftFile; ///< the open file for which a stop has waited in vain, else empty
    QWaitCondition m_fileClosed;
    std::atomic<bool> m_running{false}; ///< set under the lock

    /// Frames seen while recording was on, since the object was born; moved by the recorder's thread only.
    std::atomic<int> m_frameCounter{0};
    std::unique_ptr<cv::VideoWriter> m_writer; ///< null between files; the recorder's thread only
    std::chrono::steady_clock::time_point m_fileStart;
    QThread *m_thread;
};
