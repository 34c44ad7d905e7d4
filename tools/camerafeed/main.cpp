#include "cameralock.h"
#include "framesource.h"
#include "imagewritter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSystemSemaphore>
#include <QTimer>

#include <csignal>
#include <cstdio>
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
    std::fprintf(stderr, "camerafeed: %s\n", qPrintable(why));
    return code;
}

/// Writes the frames of a source at a steady rate until it is told to end. Lives on the main thread.
class Feed
{
public:
    Feed(const QString &key, std::unique_ptr<FrameSource> source, int frames)
        : m_writer(key, blockCount, blockSize), m_source(std::move(source)), m_framesLeft(frames)
    {
    }

    bool canWrite() const { return m_writer.isAttached(); }

    /// Returns the exit code.
    int run(double framesPerSecond)
    {
        QTimer frameTimer, endTimer;
        frameTimer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&frameTimer, &QTimer::timeout, [&] {
            if (!writeFrame())
                frameTimer.stop();
        });
        QObject::connect(&endTimer, &QTimer::timeout, [] {
            if (endAsked)
                QCoreApplication::exit(Done);
        });
        m_framesPerMillisecond = framesPerSecond / 1000;
        m_clock.start();
        frameTimer.start(qMax(1, qRound(1000 / framesPerSecond)));
        endTimer.start(endCheckInterval);
        return QCoreApplication::exec();
    }

private:
    /// False when this was the last frame; then the end is under way.
    bool writeFrame()
    {
        const int due = int(m_clock.elapsed() * m_framesPerMillisecond);
        if (due > m_shown) {
            m_source->skip(due - m_shown);
            m_shown = due;
        }
        ++m_shown;
        const cv::Mat picture = m_source->next();
        if (picture.empty()) {
            QCoreApplication::exit(fail(SourceFailed, QStringLiteral("the source gives no more pictures")));
            return false;
        }
        cv::Mat frame = letterboxed(picture, frameSize);
        ImageBlock block;
        block.size = static_cast<int>(frame.total() * frame.elemSize());
        block.width = frame.cols;
        block.height = frame.rows;
        block.format = RGB;
        block.data = reinterpret_cast<char *>(frame.data);
        m_writer.writeImageBlock(block);

        if (m_framesLeft == 0 || --m_framesLeft > 0)
            return true;
        QTimer::singleShot(copyTime, [] { QCoreApplication::exit(Done); });
        return false;
    }

    ImageWritter m_writer;
    std::unique_ptr<FrameSource> m_source;
    int m_framesLeft; ///< 0: no end
    QElapsedTimer m_clock;
    double m_framesPerMillisecond = 0;
    int m_shown = 0; ///< pictures of the source, with those that were left out
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

} // namespace

int main(int argc, char **argv)
{
#ifndef Q_OS_WIN
    umask(S_IRWXG | S_IRWXO); // its files are for its user alone
#endif
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("camerafeed"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Puts pictures into the shared-memory segment of a camera, 1920 by 1080, until it "
                       "gets Ctrl-C.\nExit code 0 at the end, 1 when the source fails, 2 for wrong use."));
    parser.addHelpOption();
    const QCommandLineOption demo(QStringLiteral("demo"),
                                  QStringLiteral("Show the demo class; SOURCE is then the folder of its "
                                                 "photographs, or left out."));
    const QCommandLineOption rate(QStringLiteral("fps"), QStringLiteral("Frames per second, up to 100."),
                                  QStringLiteral("RATE"), QStringLiteral("30"));
    const QCommandLineOption frames(QStringLiteral("frames"), QStringLiteral("End after so many frames."),
                                    QStringLiteral("N"), QStringLiteral("0"));
    const QCommandLineOption hold(QStringLiteral("hold"),
                                  QStringLiteral("Show each picture of a folder for so many frames."),
                                  QStringLiteral("N"), QStringLiteral("1"));
    const QCommandLineOption key(QStringLiteral("key"), QStringLiteral("Name of the segment."),
                                 QStringLiteral("NAME"), QStringLiteral("Camera"));
    const QCommandLineOption still(QStringLiteral("still"), QStringLiteral("Repeat the first picture."));
    const QCommandLineOption takeOver(QStringLiteral("take-over"),
                                      QStringLiteral("End the camerafeed that writes to the segment first."));
    parser.addOptions({demo, rate, frames, hold, key, still, takeOver});
    parser.addPositionalArgument(QStringLiteral("SOURCE"),
                                 QStringLiteral("A camera (/dev/video0 or 0), a video, a picture, or a "
                                                "folder of pictures."));
    if (!parser.parse(application.arguments()))
        return fail(WrongUse, parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(Done);

    bool rateIsNumber = false, framesIsNumber = false, holdIsNumber = false;
    const double framesPerSecond = parser.value(rate).toDouble(&rateIsNumber);
    const int frameCount = parser.value(frames).toInt(&framesIsNumber);
    const int holdCount = parser.value(hold).toInt(&holdIsNumber);
    if (!rateIsNumber || !(framesPerSecond >= 0.1 && framesPerSecond <= 100))
        return fail(WrongUse, QStringLiteral("--fps takes a number from 0.1 to 100"));
    if (!framesIsNumber || frameCount < 0 || !holdIsNumber || holdCount < 1)
        return fail(WrongUse, QStringLiteral("--frames and --hold take a number of frames"));
    const QStringList sources = parser.positionalArguments();
    if (sources.size() > 1 || (sources.isEmpty() && !parser.isSet(demo)))
        return fail(WrongUse, QStringLiteral("one source is needed; --help tells more"));

    QString error;
    auto source = parser.isSet(demo) ? FrameSource::openDemo(sources.value(0), error)
                                     : FrameSource::open(sources.value(0), holdCount, error);
    if (!source)
        return fail(SourceFailed, error);
    if (parser.isSet(still))
        source = FrameSource::still(std::move(source));

    std::signal(SIGINT, askToEnd);
    std::signal(SIGTERM, askToEnd);
    CameraLock lock(parser.value(key)); // let go when the segment has been left
    if (!(parser.isSet(takeOver) ? lock.takeOver([] { return endAsked != 0; }, error) : lock.take(error)))
        return fail(SourceFailed, error);
    int result = Done;
    {
        Feed feed(parser.value(key), std::move(source), frameCount);
        if (!feed.canWrite())
            return fail(SourceFailed, QStringLiteral("cannot make the segment %1").arg(parser.value(key)));
        std::printf("camerafeed: writing to \"%s\"\n", qPrintable(parser.value(key)));
        std::fflush(stdout);
        result = feed.run(framesPerSecond);
    }
    removeUnusedSemaphore(parser.value(key));
    return result;
}
