#include "imagewritter.h"

#include <QCoreApplication>
#include <QFile>
#include <QRandomGenerator>
#include <QSharedMemory>
#include <QTimer>
#include <QUuid>

#include <climits>
#include <csignal>
#include <cstdio>

namespace {

constexpr int frameBytes = 1920 * 1080 * 3;

void tellWriting()
{
    std::puts("writing");
    std::fflush(stdout);
}

/// Sometimes what belongs there, so that one wrong number is not hidden behind another.
std::int32_t perhaps(std::int32_t right)
{
    QRandomGenerator *random = QRandomGenerator::global();
    const int any[] = {0, 1, 3, -1, frameBytes, frameBytes + 136, INT_MIN, INT_MAX, int(random->generate())};
    return random->bounded(3) == 0 ? any[random->bounded(9)] : right;
}

/// A header of any values, and records of any values where the blocks would be; without a NUL anywhere.
void writeGarbage(QSharedMemory &memory)
{
    ShmHeader header;
    header.stride = perhaps(frameBytes + static_cast<int>(sizeof(ImageBlock)));
    header.capacity = perhaps(3);
    header.used = perhaps(3);
    header.readIndex = perhaps(1);
    header.writeIndex = perhaps(1);
    std::memset(header.changeID, 'x', sizeof header.changeID);
    std::memcpy(header.changeID, QUuid::createUuid().toByteArray().constData(), 38);
    auto *bytes = static_cast<char *>(memory.data());
    for (std::size_t i = 0; i < 3; ++i) {
        ImageBlock block;
        block.size = perhaps(frameBytes);
        block.width = perhaps(1920);
        block.height = perhaps(1080);
        block.format = perhaps(RGB);
        std::memset(block.id, 'x', sizeof block.id);
        std::memcpy(block.id, QUuid::createUuid().toByteArray().constData(), 38);
        std::memcpy(bytes + sizeof header + i * (frameBytes + sizeof block), &block, sizeof block);
    }
    std::memcpy(bytes, &header, sizeof header);
}

/// Takes the segment's lock, as a writer does for each frame, and stops with half a frame copied.
int stopInsideACopy()
{
    QSharedMemory memory("Camera");
    if (!memory.attach() || !memory.lock())
        return EXIT_FAILURE;
    std::memset(static_cast<char *>(memory.data()) + sizeof(ShmHeader), 'x', frameBytes / 2);
    tellWriting();
    return std::raise(SIGSTOP);
}

volatile std::sig_atomic_t isEnded = 0;

} // namespace

/// A camera for tests: `framesource INTERVAL FILE [BLOCKS WIDTH HEIGHT FORMAT]` puts a frame into the segment
/// "Camera" every INTERVAL milliseconds until it is killed; SIGTERM lets it tidy up. The frames are the
/// pixels that FILE holds, or a moving pattern if it has no name; 1920 by 1080, RGB, in a ring of three, if
/// nothing else is said. "garbage" for FILE writes anything at all into the segment, and "stop" stops inside
/// a copy. Says "writing" when the segment is there; a camera that is told its ring says it after each ten
/// frames, too.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    QFile file(arguments.value(2));
    if (file.fileName() == "stop")
        return stopInsideACopy();
    std::signal(SIGTERM, [](int) { isEnded = 1; });
    const auto number = [&](int index, int usual) {
        return index < arguments.size() ? arguments[index].toInt() : usual;
    };
    ImageBlock frame;
    frame.width = number(4, 1920);
    frame.height = number(5, 1080);
    frame.format = number(6, RGB);
    frame.size = frame.width * frame.height * (frame.format == RGBA ? 4 : 3);
    // A row more than a frame has: one that begins a pixel later looks moved.
    QByteArray pixels(frame.size + 3 * frame.width, '\0');
    for (int i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<char>(i / 3 % frame.width + i % 3 * (i / 3 / frame.width));
    const bool isPattern = file.fileName().isEmpty();
    const bool isGarbage = file.fileName() == "garbage";
    if (!isPattern && !isGarbage)
        pixels = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    ImageWritter writer("Camera", number(3, 3), static_cast<unsigned int>(frame.size));
    QSharedMemory memory("Camera");
    if (pixels.size() < frame.size || !writer.isAttached() || !memory.attach())
        return EXIT_FAILURE;
    tellWriting();

    int count = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        ++count;
        frame.data = pixels.data() + (isPattern ? 3 * (count % frame.width) : 0);
        if (isEnded)
            QCoreApplication::quit();
        else if (isGarbage)
            writeGarbage(memory);
        else
            writer.writeImageBlock(frame);
        if (arguments.size() > 3 && count % 10 == 0)
            tellWriting();
    });
    timer.start(arguments.value(1).toInt());
    return QCoreApplication::exec();
}
