#include "segmentpeek.h"

#include <QCoreApplication>

#include <chrono>
#include <thread>

/// Copies each new frame of the segment "Camera", as the viewer does, and does nothing with it. Runs until it
/// is killed.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    SegmentPeek peek("Camera");
    VideoFrame frame;
    QString error;
    while (true) {
        peek.look(&frame, &error);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
