// What the analyses add to the recognisers, which cost nothing here, and to the bare operations on pictures:
// a handled frame, a skipped one, a registration, a tracking pass. Times are processor times of the threads
// at work, and OpenCV keeps to one thread, so that a busy machine changes little.
#include "heap.h"
#include "rectutil.h"
#include "support.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QTemporaryDir>

namespace {

thread_local int messages = 0;

void countAndDrop(QtMsgType, const QMessageLogContext &, const QString &)
{
    ++messages;
}

double secondsOfAMessage()
{
    constexpr int count = 5000;
    const cv::Rect rect(100, 200, 90, 90);
    const int before = messages;
    const double seconds = processorSecondsOf([&] {
        // The short line of a wrapper and the long one of an analysis take turns.
        for (int i = 0; i < count; i += 2) {
            qDebug().nospace() << "faceid action:" << i << " time: " << 0;
            qInfo().noquote().nospace() << "Frame: " << i << " match face id: " << i << rect_util::text(rect);
        }
    });
    messages = before;
    return seconds / count;
}

} // namespace

void dropped_log::install()
{
    qInstallMessageHandler(countAndDrop);
}

double dropped_log::takeSeconds()
{
    static const double price = secondsOfAMessage();
    const double seconds = messages * price;
    messages = 0;
    return seconds;
}

int main(int argc, char **argv)
{
    heap::keepFreed(); // as the service does
    QTemporaryDir home;
    qputenv("TMPDIR", home.path().toLocal8Bit());
    if (!home.isValid() || !QDir::setCurrent(home.path()))
        return 1;
    cv::setNumThreads(1);
    QCoreApplication application(argc, argv);
    dropped_log::install();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
