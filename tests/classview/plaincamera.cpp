#include "imagewritter.h"

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

/// More than are written at once on a busy machine, which would overwrite the frame that is the newest until
/// then.
constexpr int blocks = 8;

/// A camera for tests: `plaincamera MILLISECONDS` writes frames of 1920 by 1080 until it is killed, all bytes
/// of each alike, so that a torn one shows. Says "writing" when the segment is there.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int interval = QCoreApplication::arguments().value(1).toInt();
    std::vector<char> pixels(1920 * 1080 * 3);
    ImageWritter writer("Camera", blocks, unsigned(pixels.size()));
    if (!writer.isAttached())
        return EXIT_FAILURE;
    ImageBlock frame;
    frame.size = int(pixels.size());
    frame.width = 1920;
    frame.height = 1080;
    frame.format = RGB;
    frame.data = pixels.data();
    for (char value = 1;; ++value) {
        std::fill(pixels.begin(), pixels.end(), value);
        writer.writeImageBlock(frame);
        if (value == 1) {
            std::puts("writing");
            std::fflush(stdout);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(interval));
    }
}
