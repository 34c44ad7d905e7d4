#include "imageblock.h"
#include "imagewritter.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QSharedMemory>
#include <QTimer>
#include <QUuid>

#include <csignal>
#include <cstdio>
#include <limits>

namespace {

constexpr int frameBytes = 1920 * 1080 * 3;

std::int32_t anyNumber()
{
    const std::int32_t special[] = {0,
                                    1,
                                    3,
                                    -1,
                                    frameBytes,
                                    frameBytes + 136,
                                    std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()};
    QRandomGenerator *random = QRandomGenerator::global();
    const int choice = random->bounded(12);
    return choice < 8 ? special[choice] : static_cast<std::int32_t>(random->generate());
}

/// Sometimes what belongs there, so that one wrong number is not hidden behind another.
std::int32_t perhaps(std::int32_t right)
{
    return QRandomGenerator::global()->bounded(3) == 0 ? anyNumber() : right;
}

/// A header of any values, and records of any values where the blocks would be.
void writeGarbage(QSharedMemory &memory)
{
    const bool polite = QRandomGenerator::global()->bounded(2) == 0;
    if (polite)
        memory.lock();
    ShmHeader header;
    header.stride = perhaps(frameBytes + static_cast<int>(sizeof(ImageBlock)));
    header.capacity = perhaps(3);
    header.used = perhaps(3);
    header.readIndex = perhaps(1);
    header.writeIndex = perhaps(1);
    std::memset(header.changeID, 'x', sizeof header.changeID); // no NUL anywhere
    std::memcpy(header.changeID, QUuid::createUuid().toByteArray().constData(), 38);
    auto *bytes = static_cast<char *>(memory.data());
    for (int i = 0; i < 3; ++i) {
        ImageBlock block;
        block.size = perhaps(frameBytes);
        block.width = perhaps(1920);
        block.height = perhaps(1080);
        block.format = perhaps(RGB);
        std::memset(block.id, 'x', sizeof block.id);
        std::memcpy(block.id, QUuid::createUuid().toByteArray().constData(), 38);
        const std::size_t stride = frameBytes + sizeof block;
        std::memcpy(bytes + sizeof header + static_cast<std::size_t>(i) * stride, &block, sizeof block);
    }
    std::memcpy(bytes, &header, sizeof header);
    if (polite)
        memory.unlock();
}

/// Takes the segment's lock, as a writer does for each frame, and stops with half a frame copied.
int stopInsideACopy()
{
    QSharedMemory memory("Camera");
    if (!memory.attach() || !memory.lock())
        return EXIT_FAILURE;
    std::memset(static_cast<char *>(memory.data()) + sizeof(ShmHeader), 'x', frameBytes / 2);
    std::puts("writing");
    std::fflush(stdout);
    return std::raise(SIGSTOP);
}

volatile std::sig_atomic_t isEnded = 0;

void end(int)
{
    isEnded = 1;
}

} // namespace

/// A camera program that doesn't do as it should: `faultycamera BLOCKS WIDTH HEIGHT FORMAT` writes such
/// frames into a ring of so many blocks, `faultycamera garbage` writes anything at all into a ring of the
/// right size, every 10 milliseconds until it is ended; SIGTERM lets it tidy up. `faultycamera stop` stops
/// inside a copy. Says "writing" when the segment is there.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 2 && arguments.size() != 5)
        return EXIT_FAILURE;
    if (arguments[1] == "stop")
        return stopInsideACopy();
    std::signal(SIGTERM, end);
    const auto number = [&](int index) { return arguments[index].toInt(); };
    const bool garbage = arguments.size() == 2;
    const int bytes = garbage ? frameBytes : number(2) * number(3) * (number(4) == RGBA ? 4 : 3);
    ImageWritter writer("Camera", garbage ? 3 : number(1), static_cast<unsigned int>(bytes));
    if (!writer.isAttached())
        return EXIT_FAILURE;
    QSharedMemory memory("Camera");
    if (garbage && !memory.attach())
        return EXIT_FAILURE;
    std::puts("writing");
    std::fflush(stdout);

    QByteArray pixels(bytes, '\x55');
    ImageBlock frame;
    frame.size = bytes;
    frame.data = pixels.data();
    if (!garbage) {
        frame.width = number(2);
        frame.height = number(3);
        frame.format = number(4);
    }
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (isEnded)
            QCoreApplication::quit();
        else if (garbage)
            writeGarbage(memory);
        else
            writer.writeImageBlock(frame);
    });
    timer.start(10);
    return QCoreApplication::exec();
}
