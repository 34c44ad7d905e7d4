#include "address.h"
#include "cameralock.h"
#include "framesource.h"
#include "imagewritter.h"
#include "livesource.h"
#include "noiselog.h"
#include "roomconfig.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSystemSemaphore>
#include <QTimer>

#ifdef Q_OS_LINUX
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace {

const cv::Size frameSize(1920, 1080);
const int blockCount = 3;
const unsigned int blockSize = 1920 * 1080 * 4; // room for a fourth channel, as readers expect
const int endCheckInterval = 50;                // milliseconds
const int copyTime = 200;                       // milliseconds; the writer copies every 20

enum ExitCode
{
    Done = 0,
    SourceFailed = 1,
    WrongUse = 2
};

volatile std::sig_atomic_t endAsked = 0;

void askToEnd(int)
{
    endAsked = 1;
}

int fail(ExitCode code, const QString &why)
{
    noiselog::say(why);
    return code;
}

/// Writes the frames of a source at a steady rate until it is told to end. Lives on the main thread.
class Feed
{
public:
    Feed(const QString &key, std::unique_ptr<FrameSource> source, Fit fit, bool once, int frames)
        : m_writer(key, blockCount, blockSize),
          m_source(std::move(source)),
          m_fit(fit),
          m_once(once),
          m_framesLeft(frames)
    {
    }

    bool canWrite() const { return m_writer.isAttached(); }

    /// Returns the exit code; tells how it ended.
    int run(double framesPerSecond)
    {
        QTimer endTimer;
        m_frameTimer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_frameTimer, &QTimer::timeout, [this] { writeFrame(); });
        QObject::connect(&endTimer, &QTimer::timeout, [this] {
            if (endAsked)
                end(Done, QStringLiteral("ended by a signal"));
        });
        m_framesPerMillisecond = framesPerSecond / 1000;
        m_clock.start();
        m_frameTimer.start(qMax(1, qRound(1000 / framesPerSecond)));
        endTimer.start(endCheckInterval);
        return QCoreApplication::exec();
    }

private:
    void writeFrame()
    {
        const int due = int(m_clock.elapsed() * m_framesPerMillisecond);
        if (due > m_shown) {
            m_source->skip(due - m_shown);
            m_shown = due;
        }
        ++m_shown;
        const cv::Mat picture = m_source->next();
        if (picture.empty()) {
            if (m_source->ended())
                endAfterCopy(m_once ? Done : SourceFailed,
                             m_once ? QStringLiteral("the source was shown to its end")
                                    : QStringLiteral("the source gives no more pictures"));
            return;
        }
        cv::Mat frame = fitted(picture, frameSize, m_fit);
        if (frame.empty()) {
            end(SourceFailed, QStringLiteral("the source's pictures are %1 by %2, not 1920 by 1080")
                                  .arg(picture.cols)
                                  .arg(picture.rows));
            return;
        }
        ImageBlock block;
        block.size = static_cast<int>(frame.total() * frame.elemSize());
        block.width = frame.cols;
        block.height = frame.rows;
        block.format = RGB;
        block.data = reinterpret_cast<char *>(frame.data);
        m_writer.writeImageBlock(block);
        ++m_written;
        if (m_framesLeft > 0 && --m_framesLeft == 0)
            endAfterCopy(Done, QStringLiteral("all frames are written"));
    }

    /// The writer's thread needs a moment for the last frame.
    void endAfterCopy(ExitCode code, const QString &why)
    {
        m_frameTimer.stop();
        QTimer::singleShot(copyTime, [this, code, why] { end(code, why); });
    }

    void end(ExitCode code, const QString &why)
    {
        if (std::exchange(m_ended, true))
            return;
        noiselog::say(QStringLiteral("%1, after %2 frames").arg(why).arg(m_written));
        QCoreApplication::exit(code);
    }

    ImageWritter m_writer;
    std::unique_ptr<FrameSource> m_source;
    Fit m_fit;
    bool m_once;      ///< the end of the source is what was asked for
    int m_framesLeft; ///< 0: no end
    QTimer m_frameTimer;
    QElapsedTimer m_clock;
    double m_framesPerMillisecond = 0;
    int m_shown = 0; ///< pictures of the source, with those that were left out
    int m_written = 0;
    bool m_ended = false;
};

/// Takes the semaphore of the key out of the system when nobody has the segment any more. Whoever made it
/// may have died without doing so.
void removeUnusedSemaphore(const QString &key)
{
    QSharedMemory probe(key);
    if (probe.attach(QSharedMemory::ReadOnly))
        return;
    // Its destructor removes what it owns, and with Create it owns what was there.
    QSystemSemaphore owner(key, 1, QSystemSemaphore::Create);
}

/// What the command line and the room's file say; a problem ends the program with WrongUse.
struct Settings
{
    QString source, key, log, transport, problem;
    FrameSource::Options options;
    Fit fit = Fit::Pad;
    std::optional<double> framesPerSecond;
    int frames = 0;
    bool demo = false;
    bool still = false;
    bool takeOver = false;
};

const QMap<QString, Fit> fits{
    {"pad", Fit::Pad}, {"crop", Fit::Crop}, {"stretch", Fit::Stretch}, {"exact", Fit::Exact}};

/// "1280x720"; empty when the text is no size.
cv::Size sizeOf(const QString &text)
{
    bool isWidth = false, isHeight = false;
    const cv::Size size(text.section('x', 0, 0).toInt(&isWidth), text.section('x', 1).toInt(&isHeight));
    const bool isGood =
        isWidth && isHeight && size.width > 0 && size.height > 0 && size.width <= 8192 && size.height <= 8192;
    return isGood ? size : cv::Size();
}

Settings settingsFrom(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Puts pictures into the shared-memory segment of a camera, 1920 by 1080, until it gets Ctrl-C.\n\n"
        "A network camera, or a device, is a stream of which only the newest picture counts. When it\n"
        "breaks or stalls for 5 s (HLS: 20 s, a device: 10 s) it is opened again, after pauses from 0.5 s\n"
        "doubling up to 10 s; nothing is written meanwhile. HLS, an address that ends with .m3u8, is shown\n"
        "at its own pace. Certificates of https and rtsps are not checked. Videos run at their own rate\n"
        "and begin again at their end, pictures and folders at 30 a second; --once ends after one pass.\n\n"
        "An address with a password is taken from a file (--address-file, --config) or from the environment\n"
        "(CAMERAFEED_ADDRESS), never from the command line, which every user can see.\n\n"
        "Standard error tells what is waited for, and last how it ended. Exit code 0 at the end, 1 when the\n"
        "source fails, 2 for wrong use."));
    parser.addHelpOption();
    const auto option = [](const char *name, const char *text, const char *value = "",
                           const char *initial = "") {
        return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(text),
                                  QString::fromLatin1(value), QString::fromLatin1(initial));
    };
    parser.addOptions({
        option("demo", "Show the demo class; SOURCE is then the folder of its photographs, or left out."),
        option("fps",
               "Frames per second, 0.1 to 100 (default: a video's own rate, else 30). A device is asked for "
               "this rate.",
               "RATE"),
        option("frames", "End after so many frames (default: 0, no end).", "N", "0"),
        option("hold", "Show each picture of a folder for so many frames (default: 1).", "N", "1"),
        option("take-over", "End the camerafeed that writes to the segment first."),
        option("once", "End after one pass of a video, a picture or a folder (default: begin again)."),
        option("still", "Repeat the first picture of a file or folder."),
        option("size", "Size that a device is asked for (default: 1920x1080).", "WxH"),
        option("fit",
               "How a picture of another size becomes 1920 by 1080: pad with black, crop, stretch, or exact, "
               "which refuses it (default: pad).",
               "HOW", "pad"),
        option("transport", "How RTSP sends: tcp or udp (default: tcp).", "HOW", "tcp"),
        option("address-file", "Take SOURCE from the first line of a file that only its owner can read.",
               "FILE"),
        option("config",
               "Take what the command line leaves open from the section [camera] of a room's file: "
               "address (\"demo\" for the demo class), fps, size, fit, transport.",
               "FILE"),
        option("log", "Append what OpenCV and FFmpeg say to a file (default: nothing of it is kept).",
               "FILE"),
        option("key", "Name of the segment (default: Camera).", "NAME", "Camera"),
    });
    parser.addPositionalArgument(
        QStringLiteral("SOURCE"),
        QStringLiteral("An address (rtsp://, http://, https:// ...), a camera device "
                       "(/dev/video0 or 0), a video, a picture, or a folder of "
                       "pictures."));
    Settings settings;
    if (!parser.parse(application.arguments())) {
        settings.problem = parser.errorText();
        return settings;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(Done);

    RoomConfig room;
    if (parser.isSet("config") && !room.read(parser.value("config"), settings.problem))
        return settings;
    const auto value = [&](const char *name) {
        const QString key = QStringLiteral("camera/") + name;
        return parser.isSet(name) || !room.has(key) ? parser.value(name) : room.text(key);
    };
    const auto refuse = [&settings](const char *problem) {
        if (settings.problem.isEmpty())
            settings.problem = QString::fromLatin1(problem);
    };

    const QStringList sources = parser.positionalArguments();
    if (sources.size() > 1)
        refuse("one source is needed; --help tells more");
    settings.source = sources.value(0);
    if (address::hasSecret(settings.source))
        refuse("an address on the command line can be seen by every user; put one with a password into a "
               "file, and give that with --address-file");
    settings.demo = parser.isSet("demo");
    if (settings.source.isEmpty() && parser.isSet("address-file"))
        settings.source = address::fromFile(parser.value("address-file"), settings.problem);
    if (settings.source.isEmpty() && !settings.demo) {
        settings.source = room.text("camera/address");
        settings.demo = settings.source == "demo";
        if (settings.demo)
            settings.source.clear();
        if (address::hasSecret(settings.source) && settings.problem.isEmpty())
            settings.problem = RoomConfig::exposure(parser.value("config"));
    }
    if (settings.source.isEmpty() && !settings.demo)
        settings.source = qEnvironmentVariable("CAMERAFEED_ADDRESS");
    if (settings.source.isEmpty() && !settings.demo)
        refuse("a source is needed; --help tells more");

    bool isRate = true, isFrames = false, isHold = false;
    if (!value("fps").isEmpty())
        settings.framesPerSecond = value("fps").toDouble(&isRate);
    if (!isRate ||
        (settings.framesPerSecond && !(*settings.framesPerSecond >= 0.1 && *settings.framesPerSecond <= 100)))
        refuse("--fps takes a number from 0.1 to 100");
    settings.frames = parser.value("frames").toInt(&isFrames);
    settings.options.hold = parser.value("hold").toInt(&isHold);
    if (!isFrames || settings.frames < 0 || !isHold || settings.options.hold < 1)
        refuse("--frames and --hold take a number of frames");
    settings.options.rate = settings.framesPerSecond.value_or(30);
    settings.options.once = parser.isSet("once");
    settings.options.size = sizeOf(value("size"));
    if (!value("size").isEmpty() && settings.options.size.empty())
        refuse("--size takes a width and a height up to 8192, as in 1280x720");
    if (!fits.contains(value("fit")))
        refuse("--fit takes pad, crop, stretch or exact");
    settings.fit = fits.value(value("fit"));
    settings.transport = value("transport");
    if (settings.transport != "tcp" && settings.transport != "udp")
        refuse("--transport takes tcp or udp");
    settings.log = parser.value("log");
    settings.key = parser.value("key");
    settings.still = parser.isSet("still");
    settings.takeOver = parser.isSet("take-over");
    return settings;
}

/// Tells systemd, when it has started this program, that the segment is there: a service that recovers needs
/// it.
void tellReady()
{
#ifdef Q_OS_LINUX
    const QByteArray place = qgetenv("NOTIFY_SOCKET"), message("READY=1");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (place.isEmpty() || place.size() >= int(sizeof address.sun_path))
        return;
    std::copy(place.begin(), place.end(), address.sun_path);
    if (place[0] == '@') // of the abstract namespace
        address.sun_path[0] = 0;
    const auto length = socklen_t(offsetof(sockaddr_un, sun_path)) + socklen_t(place.size());
    const int handle = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (handle < 0)
        return;
    sendto(handle, message.constData(), size_t(message.size()), 0,
           reinterpret_cast<const sockaddr *>(&address), length);
    close(handle);
#endif
}

/// Opens the source and feeds it. Returns the exit code; tells how it ended.
int feed(const Settings &settings, CameraLock &lock)
{
    QString error;
    auto source = settings.demo ? FrameSource::openDemo(settings.source, error)
                                : FrameSource::open(settings.source, settings.options, error);
    if (!source)
        return fail(SourceFailed, error);
    if (settings.still && source->isLive())
        return fail(WrongUse, QStringLiteral("--still takes a file or a folder"));
    if (settings.still)
        source = FrameSource::still(std::move(source));
    const double ownRate = source->rate() > 0 ? source->rate() : 30;

    std::signal(SIGINT, askToEnd);
    std::signal(SIGTERM, askToEnd);
    if (!(settings.takeOver ? lock.takeOver([] { return endAsked != 0; }, error) : lock.take(error)))
        return fail(SourceFailed, error);
    Feed feed(settings.key, std::move(source), settings.fit, settings.options.once, settings.frames);
    if (!feed.canWrite())
        return fail(SourceFailed, QStringLiteral("cannot make the segment %1").arg(settings.key));
    std::printf("camerafeed: writing to \"%s\"\n", qPrintable(settings.key));
    std::fflush(stdout);
    tellReady();
    return feed.run(settings.framesPerSecond.value_or(ownRate));
}

} // namespace

int main(int argc, char **argv)
{
#ifndef Q_OS_WIN
    umask(S_IRWXG | S_IRWXO); // its files are for its user alone
#endif
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("camerafeed"));
    const Settings settings = settingsFrom(application);
    if (!settings.problem.isEmpty())
        return fail(WrongUse, settings.problem);
    QString error;
    if (!noiselog::begin(settings.log, address::secrets(settings.source), error))
        return fail(WrongUse, error);
    if (address::isNetwork(settings.source))
        LiveSource::configure(settings.transport);
    int result = Done;
    {
        CameraLock lock(settings.key); // let go when the segment has been left
        result = feed(settings, lock);
        removeUnusedSemaphore(settings.key);
    }
    // FFmpeg may still be at work on the thread of a stream; nothing is destroyed under its feet.
    std::fflush(nullptr);
    std::_Exit(result);
}
