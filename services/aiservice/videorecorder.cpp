#include "videorecorder.h"

#include "aiconfig.h"
#include "imageutil.h"
#include "messageSender.h"
#include "protocol.h"

#include <opencv2/imgproc.hpp>

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QVariantMap>

#include <new>

namespace {

constexpr int recordInterval = 30; // frames
constexpr char displayTime[] = "yyyy-MM-dd hh::mm::ss";
constexpr std::chrono::seconds closingTime(5);

#ifdef Q_OS_WIN
const QString separator = "\\";

QString videoFolder(const QString &rootPath)
{
    return rootPath.left(1) + ":\\Mirovane\\Video";
}

bool isMemory(const QStorageInfo &)
{
    return false;
}
#else
const QString separator = "/";

QString videoFolder(const QString &rootPath)
{
    return QDir(rootPath).filePath("Mirovane/Video");
}

/// A file system that is gone after a restart, or after its user's logout.
bool isMemory(const QStorageInfo &volume)
{
    static const QList<QByteArray> kinds{"tmpfs", "ramfs", "devtmpfs"};
    return kinds.contains(volume.fileSystemType());
}
#endif

/// A container has volumes whose root is a single file; no folder can be made in those.
bool canRecordTo(const QStorageInfo &volume)
{
    const QFileInfo root(volume.rootPath());
    return volume.isValid() && volume.isReady() && !volume.isReadOnly() && !isMemory(volume) &&
           root.isDir() && root.isWritable();
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

/// The client's text as a part of a file's name: nothing in it may lead into another folder.
QString asFileName(QString text)
{
    for (QChar &character : text) {
        if (character == '/' || character == '\\' || character.category() == QChar::Other_Control)
            character = '_';
    }
    return text;
}

/// Why a file could not be opened at the path, found out with another one beside it.
QString openingError(const QString &path)
{
    QFile probe(path + ".probe");
    const bool writable = probe.open(QIODevice::WriteOnly) && probe.putChar('\0') && probe.flush();
    const QString error = probe.errorString();
    probe.remove();
    return writable ? QStringLiteral("FFmpeg refuses it, or has no encoder for H.264") : error;
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
    m_backlog.countIn(counters::find(counters::page().analyses, countedName));
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
    // A disk that hangs holds up this caller, and nobody who waits for the lock.
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
    QMutexLocker locker(&m_lock);
    m_record = param;
    m_running.store(true, std::memory_order_relaxed);
}

void VideoRecorder::stop()
{
    close(false);
}

void VideoRecorder::finish()
{
    close(true);
}

void VideoRecorder::close(bool evenLeft)
{
    const QDeadlineTimer deadline(closingTime);
    QMutexLocker locker(&m_lock);
    m_running.store(false, std::memory_order_relaxed);
    const QString file = m_openFile;
    if (file.isEmpty() || (file == m_leftFile && !evenLeft))
        return;
    QMetaObject::invokeMethod(
        this,
        [this, file] {
            if (m_openFile == file)
                closeWriter();
        },
        Qt::QueuedConnection);
    while (m_openFile == file) {
        if (m_fileClosed.wait(&m_lock, deadline))
            continue;
        m_leftFile = file;
        qWarning().noquote().nospace()
            << "[VideoRecorder] file not complete after " << closingTime.count() << " s: " << file;
        return;
    }
}

void VideoRecorder::offerFrame(const QImage &image)
{
    m_backlog.offer(this, &VideoRecorder::onRecvFrame, image);
}

void VideoRecorder::onRecvFrame(const QImage &image)
{
    counters::AnalysisRow &counted = m_backlog.counted();
    if (!isRunning()) {
        counted.skippedStopped.add();
        return;
    }
    if (m_frameCounter.fetch_add(1, std::memory_order_relaxed) % recordInterval != 0) {
        counted.skippedInterval.add();
        return;
    }
    const std::int64_t begin = counters::now();
    guarded([&] { recordFrame(image); });
    counters::addTime(counted.time, counted.longest, counters::now() - begin);
    counted.handled.add();
}

void VideoRecorder::recordFrame(const QImage &image)
{
    const QString time = QDateTime::currentDateTime().toString(displayTime);
    cv::Mat picture = ai_image::convertQImage2Mat(image);
    m_lock.lock();
    const RecordParam record = m_record;
    m_lock.unlock();
    if (!m_writer)
        createWriter(record);
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
    if (std::chrono::duration_cast<std::chrono::seconds>(age).count() > record.duration)
        closeWriter();
}

void VideoRecorder::createWriter(const RecordParam &record)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString fileName =
        asFileName(AIConfig::instance().identify()) + "_" + now.toString("yyyyMMddhhmmss") + ".mp4";
    const QString path = QString::fromStdString(record.recordPath) + separator + fileName;
    if (!occupy(path))
        return;

    // Only FFmpeg knows the codec; another back end would take a path that FFmpeg refused for something else.
    guarded([&] {
        m_writer.reset(new (std::nothrow) cv::VideoWriter(
            path.toStdString(), cv::CAP_FFMPEG, cv::VideoWriter::fourcc('x', '2', '6', '4'),
            static_cast<double>(record.fps), cv::Size(record.width, record.height), true));
    });
    if (!m_writer) {
        qWarning() << "[VideoRecorder] create writer failed";
        letGo();
        return;
    }
    if (!m_writer->isOpened())
        qWarning().noquote().nospace()
            << "[VideoRecorder] file can't be opened: " << path << ": " << openingError(path);
    m_fileStart = std::chrono::steady_clock::now();

    qInfo().noquote().nospace() << "[VideoRecorder] record filepath: " << path;
    const QVariantMap video{
        {"videoName", fileName}, {"startRecordDate", now.toString(displayTime)}, {"videoLocalPath", path}};
    MessageSender::instance()->sendMessage(code(ai::Event::Recording), video, QString());
}

void VideoRecorder::closeWriter()
{
    if (!m_writer)
        return;
    guarded([&] { m_writer->release(); });
    m_writer.reset();
    letGo();
}

bool VideoRecorder::occupy(const QString &path)
{
    QMutexLocker locker(&m_lock);
    // A stop that came meanwhile has found no file to wait for; none may be opened behind it.
    if (!isRunning())
        return false;
    m_openFile = path;
    return true;
}

void VideoRecorder::letGo()
{
    QMutexLocker locker(&m_lock);
    m_openFile.clear();
    m_leftFile.clear();
    m_fileClosed.wakeAll();
}
