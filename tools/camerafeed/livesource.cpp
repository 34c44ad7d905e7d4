#include "livesource.h"

#include "address.h"
#include "noiselog.h"

#include <opencv2/videoio.hpp>

#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr int stallTimeout = 5000;         // milliseconds without a byte
constexpr int segmentStallTimeout = 20000; // the same of a stream in segments, each of which takes its time
constexpr int firstPause = 500;            // milliseconds
constexpr int longestPause = 10000;        // milliseconds
constexpr int steadyAfter = 5000;          // milliseconds of pictures, after which pauses begin anew

/// HLS, whose server gives pictures out in segments of some seconds.
bool comesInSegments(const QString &source)
{
    return address::isNetwork(source) && source.section('?', 0, 0).endsWith(".m3u8", Qt::CaseInsensitive);
}

// One that takes the wishes for size and rate; the first of all that open a device need not.
#ifdef Q_OS_LINUX
constexpr int deviceBackEnd = cv::CAP_V4L2;
#else
constexpr int deviceBackEnd = cv::CAP_ANY;
#endif

bool openCapture(cv::VideoCapture &capture, const QString &source, const LiveSource::Wanted &wanted)
{
    if (address::isNetwork(source)) {
        const int timeout = comesInSegments(source) ? segmentStallTimeout : stallTimeout;
        return capture.open(
            source.toStdString(), cv::CAP_FFMPEG,
            {cv::CAP_PROP_OPEN_TIMEOUT_MSEC, stallTimeout, cv::CAP_PROP_READ_TIMEOUT_MSEC, timeout});
    }
    bool isNumber = false;
    const int number = source.toInt(&isNumber);
    const bool opened = isNumber ? capture.open(number, deviceBackEnd)
                                 : capture.open(source.toLocal8Bit().toStdString(), deviceBackEnd);
    if (!opened)
        return false;
    const cv::Size size = wanted.size.empty() ? cv::Size(1920, 1080) : wanted.size;
    // Few devices have the bandwidth for large pictures that are not compressed.
    if (size.area() > 640 * 480)
        capture.set(cv::CAP_PROP_FOURCC, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'));
    capture.set(cv::CAP_PROP_FRAME_WIDTH, size.width);
    capture.set(cv::CAP_PROP_FRAME_HEIGHT, size.height);
    capture.set(cv::CAP_PROP_FPS, wanted.rate);
    // With one, the device would drop the picture that begins while the one before it is decoded.
    capture.set(cv::CAP_PROP_BUFFERSIZE, 2);
    return true;
}

/// When pictures of a stream in segments are due: as far apart as they were taken.
class Pace
{
public:
    /// Milliseconds until the picture is due, 0 for at once.
    /// @param position when it was taken, in milliseconds since any time
    int wait(double position)
    {
        constexpr int mostLate = 200;   // milliseconds; beyond them the next segment was late
        constexpr int mostAhead = 5000; // milliseconds; beyond them the stream has left something out
        const double ahead = position - m_first - double(m_clock.isValid() ? m_clock.elapsed() : 0);
        if (m_clock.isValid() && ahead > -mostLate && ahead < mostAhead)
            return std::max(0, int(ahead));
        m_first = position;
        m_clock.start();
        return 0;
    }

private:
    QElapsedTimer m_clock; ///< since the first picture
    double m_first = 0;    ///< the position of that one
};

} // namespace

struct LiveSource::Shared
{
    QString source, shown;
    Wanted wanted;
    std::mutex mutex; // guards what follows
    std::condition_variable end;
    bool ending = false;
    cv::Mat newest; // empty once it was taken

    void run()
    {
        int pause = firstPause;
        while (!isEnding()) {
            const int steady = receive();
            if (steady >= steadyAfter)
                pause = firstPause;
            if (isEnding())
                return;
            const QString what =
                steady < 0 ? QStringLiteral("cannot be opened") : QStringLiteral("gives no more pictures");
            noiselog::say(QStringLiteral("waiting for %1: it %2; next try in %3 s")
                              .arg(shown, what)
                              .arg(pause / 1000.0));
            waitFor(pause);
            pause = std::min(2 * pause, longestPause);
        }
    }

    /// Takes pictures until there are no more.
    /// @return for how many milliseconds they came, -1 when there was none
    int receive()
    {
        cv::VideoCapture capture;
        cv::Mat picture;
        if (!openCapture(capture, source, wanted) || !capture.read(picture) || picture.empty())
            return -1;
        noiselog::say(
            QStringLiteral("receiving %1, %2 by %3").arg(shown).arg(picture.cols).arg(picture.rows));
        const bool inSegments = comesInSegments(source);
        Pace pace;
        QElapsedTimer clock;
        clock.start();
        do {
            if (inSegments)
                waitFor(pace.wait(capture.get(cv::CAP_PROP_POS_MSEC)));
            std::lock_guard<std::mutex> lock(mutex);
            if (ending)
                break;
            cv::swap(newest, picture);
            // What the consumer holds now shares no pixels with what is read next.
            picture.release();
        } while (capture.read(picture) && !picture.empty());
        return int(clock.elapsed());
    }

    /// Shorter when the source ends.
    void waitFor(int milliseconds)
    {
        std::unique_lock<std::mutex> lock(mutex);
        end.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return ending; });
    }

    bool isEnding()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return ending;
    }
};

LiveSource::LiveSource(const QString &source, const Wanted &wanted) : m_shared(std::make_shared<Shared>())
{
    m_shared->source = source;
    m_shared->shown = address::shown(source);
    m_shared->wanted = wanted;
    std::thread([shared = m_shared] { shared->run(); }).detach();
}

LiveSource::~LiveSource()
{
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->ending = true;
    m_shared->end.notify_all();
}

cv::Mat LiveSource::next()
{
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    cv::Mat picture;
    cv::swap(picture, m_shared->newest);
    return picture;
}

void LiveSource::configure(const QString &transport)
{
    if (!qEnvironmentVariableIsSet("OPENCV_FFMPEG_CAPTURE_OPTIONS"))
        qputenv("OPENCV_FFMPEG_CAPTURE_OPTIONS", "rtsp_transport;" + transport.toLatin1() +
                                                     "|live_start_index;-1|fflags;nobuffer|flags;low_delay");
}

bool LiveSource::canOpen(const QString &device, QString &error)
{
    cv::VideoCapture capture;
    if (openCapture(capture, device, {}))
        return true;
    bool isNumber = false;
    device.toUInt(&isNumber);
    const QFileInfo entry(isNumber ? "/dev/video" + device : device);
    const char *const reason = !entry.exists() ? "it is not there"
                               : !entry.isReadable() || !entry.isWritable()
                                   ? "this user may not use it; the group video may"
                                   : "it is no camera, or another program uses it";
    error = QStringLiteral("cannot open the camera %1: %2").arg(entry.filePath(), reason);
    return false;
}
