#include "videorecorder.h"

#include "aiconfig.h"
#include "imageutil.h"
#include "messageSender.h"

#include <new>
#include <opencv2/imgproc.hpp>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>
#include <QVariantMap>

namespace {

constexpr int recordInterval = 30; // frames
constexpr unsigned int newVideoEvent = 1020;
constexpr char displayTime[] = "yyyy-MM-dd hh::mm::ss";

#ifdef Q_OS_WIN
const QString separator = "\\";

QString videoFolder(const QString &rootPath)
{
    return rootPath.left(1) + ":\\Mirovane\\Video";
}
#else
const QString separator = "/";

QString videoFolder(const QString &rootPath)
{
    return QDir(rootPath).filePath("Mirovane/Video");
}
#endif

/// A container has volumes whose root is a single file; no folder can be made in those.
bool canRecordTo(const QStorageInfo &volume)
{
    const QFileInfo root(volume.rootPath());
    return volume.isValid() && volume.isReady() && !volume.isReadOnly() && root.isDir() && root.isWritable();
}

/// The folder on the disk with the most whole megabytes free, empty if there is none.
QString pickVideoFolder()
{
    QString rootPath;
    qint64 mostMegabytes = 0;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes()) {
        const qint64 megabytes = volume.bytesAvailable() / 1024 / 1024;
        if (megabytes > mostMegabytes && canRecordTo(volume)) {
            mostMegabytes = megabytes;
            rootPath = volume.rootPath();
        }
    }
    return rootPath.isEmpty() ? QString() : videoFolder(rootPath);
}

bool checkFolder(const QString &path)
{
    if (path.isEmpty())
        return false;
    return QDir(path).exists() || QDir().mkpath(path);
}

/// Whatever the encoder throws costs no more than the step that it was thrown in.
template <class Step>
void guarded(Step step)
{
    try {
        step();
    } catch (const std::exception &exception) {
        qWarning().noquote().nospace() << "[VideoRecorder] " << exception.what();
    }
}

} // namespace

VideoRecorder *VideoRecorder::instance()
{
    static VideoRecorder recorder;
    return &recorder;
}

VideoRecorder::VideoRecorder() : m_thread(new QThread)
{
    moveToThread(m_thread);
    m_thread->start(QThread::InheritPriority);
}

VideoRecorder::~VideoRecorder()
{
    stop();
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

void VideoRecorder::start(RecordParam &param)
{
    QMutexLocker locker(&m_lock);
    if (param.recordPath.empty()) {
        const QString folder = pickVideoFolder();
        if (folder.isEmpty()) {
            qWarning() << "record root path empty";
            return;
        }
        param.recordPath = folder.toStdString();
    }
    if (!checkFolder(QString::fromStdString(param.recordPath))) {
        qWarning() << "record path check failed";
        return;
    }
    m_record = param;
    m_running.store(true, std::memory_order_relaxed);
}

void VideoRecorder::stop()
{
    QMutexLocker locker(&m_lock);
    m_running.store(false, std::memory_order_relaxed);
    closeWriter();
}

void VideoRecorder::onRecvFrame(const QImage &image)
{
    if (!isRunning())
        return;
    if (m_frameCounter.fetch_add(1, std::memory_order_relaxed) % recordInterval != 0)
        return;

    QMutexLocker locker(&m_lock);
    // A stop that came meanwhile has closed the last file; no other may be opened behind it.
    if (!isRunning())
        return;
    guarded([&] { recordFrame(image); });
}

void VideoRecorder::recordFrame(const QImage &image)
{
    const QString time = QDateTime::currentDateTime().toString(displayTime);
    cv::Mat picture = ai_image::convertQImage2Mat(image);
    if (!m_writer)
        createWriter();
    if (!m_writer)
        return;

    if (!picture.empty()) {
        guarded([&] {
            cv::putText(picture, time.toStdString(), cv::Point(5, 20), cv::FONT_HERSHEY_PLAIN, 1.0,
                        cv::Scalar(0, 0, 255), 1, cv::LINE_8);
            m_writer->write(picture);
        });
    }
    const auto age = std::chrono::steady_clock::now() - m_fileStart;
    if (std::chrono::duration_cast<std::chrono::seconds>(age).count() > m_record.duration)
        closeWriter();
}

void VideoRecorder::createWriter()
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString fileName = AIConfig::instance().identify() + "_" + now.toString("yyyyMMddhhmmss") + ".mp4";
    const QString path = QString::fromStdString(m_record.recordPath) + separator + fileName;

    // Only FFmpeg knows the codec; another back end would take a path that FFmpeg refused for something else.
    guarded([&] {
        m_writer.reset(new (std::nothrow) cv::VideoWriter(
            path.toStdString(), cv::CAP_FFMPEG, cv::VideoWriter::fourcc('x', '2', '6', '4'),
            static_cast<double>(m_record.fps), cv::Size(m_record.width, m_record.height), true));
    });
    if (!m_writer) {
        qWarning() << "[VideoRecorder] create writer failed";
        return;
    }
    m_fileStart = std::chrono::steady_clock::now();

    qInfo().noquote().nospace() << "[VideoRecorder] record filepath: " << path;
    const QVariantMap video{
        {"videoName", fileName}, {"startRecordDate", now.toString(displayTime)}, {"videoLocalPath", path}};
    MessageSender::instance()->sendMessage(newVideoEvent, video, QString());
}

void VideoRecorder::closeWriter()
{
    if (!m_writer)
        return;
    guarded([&] { m_writer->release(); });
    m_writer.reset();
}
