#include "imagewritter.h"

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace {

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int frameBytes = width * height * 3;
constexpr int segmentBlocks = 3;

/// A picture in which every pixel changes from frame to frame.
void paint(QByteArray &pixels, int number)
{
    char *pixel = pixels.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            *pixel++ = static_cast<char>(x + number);
            *pixel++ = static_cast<char>(y + number);
            *pixel++ = static_cast<char>(x + y);
        }
    }
}

} // namespace

/// A camera for tests: `framesource INTERVAL [FILE]` puts a frame into the segment "Camera" every INTERVAL
/// milliseconds until it is killed. The frames are a moving pattern, or else the 1920 by 1080 RGB pixels that
/// FILE holds. Says "writing" when the segment is there.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    QByteArray pixels(frameBytes, '\0');
    if (arguments.size() > 2) {
        QFile file(arguments[2]);
        if (!file.open(QIODevice::ReadOnly) || file.size() != frameBytes)
            return EXIT_FAILURE;
        pixels = file.readAll();
    }
    ImageWritter writer("Camera", segmentBlocks, frameBytes);
    if (arguments.size() < 2 || !writer.isAttached())
        return EXIT_FAILURE;
    std::puts("writing");
    std::fflush(stdout);

    ImageBlock frame;
    frame.size = frameBytes;
    frame.width = width;
    frame.height = height;
    frame.format = RGB;
    int number = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (arguments.size() == 2)
            paint(pixels, ++number);
        frame.data = pixels.data();
        writer.writeImageBlock(frame);
    });
    timer.start(arguments[1].toInt());
    return QCoreApplication::exec();
}
