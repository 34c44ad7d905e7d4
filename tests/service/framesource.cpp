#include "imagewritter.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>

#include <cstdio>

/// A camera for tests: `framesource INTERVAL FILE` puts a frame into the segment "Camera" every INTERVAL
/// milliseconds until it is killed. The frames are the 1920 by 1080 RGB pixels that FILE holds, or a moving
/// pattern if it has no name. Says "writing" when the segment is there.
int main(int argc, char **argv)
{
    constexpr int width = 1920;
    constexpr int height = 1080;
    constexpr int frameBytes = width * height * 3;
    QCoreApplication application(argc, argv);
    QFile file(application.arguments().value(2));
    // A row more than a frame has: one that begins a pixel later looks moved.
    QByteArray pixels(frameBytes + 3 * width, '\0');
    for (int i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<char>(i / 3 % width + i % 3 * (i / 3 / width));
    const bool isPattern = file.fileName().isEmpty();
    if (!isPattern)
        pixels = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    ImageWritter writer("Camera", 3, frameBytes);
    if (pixels.size() < frameBytes || !writer.isAttached())
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
        frame.data = pixels.data() + (isPattern ? 3 * (++number % width) : 0);
        writer.writeImageBlock(frame);
    });
    timer.start(application.arguments().value(1).toInt());
    return QCoreApplication::exec();
}
