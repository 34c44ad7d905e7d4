// The other process of the shared-memory tests. It tells its doings on standard output, one line each,
// and takes orders, one line each, on standard input.
//
//   shmpeer write KEY BLOCKS SIZE   an ImageWritter; order: the number of the frame to write
//   shmpeer hold KEY                takes the segment's lock and keeps it
//   shmpeer read KEY                an ImageReader; tells the number of each frame
//   shmpeer raw KEYFILE BLOCKS SIZE a writer that knows the layout only, without Qt's classes
#include "imagereader.h"
#include "imagewritter.h"

#include <QCoreApplication>

#include <iostream>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>

namespace {

int write(const QString &key, int blocks, int size)
{
    ImageWritter writer(key, blocks, unsigned(size));
    std::cout << (writer.isAttached() ? "attached" : "failed") << std::endl;
    std::vector<char> pixels(static_cast<std::size_t>(size));
    for (int number; std::cin >> number;) {
        pixels.assign(pixels.size(), char(number));
        ImageBlock ib;
        ib.size = size;
        ib.width = number;
        ib.data = pixels.data();
        writer.writeImageBlock(ib);
    }
    return 0;
}

int hold(const QString &key)
{
    QSharedMemory memory(key);
    if (!memory.attach() || !memory.lock())
        return 1;
    std::cout << "locked" << std::endl;
    std::string line;
    std::getline(std::cin, line);
    return 0;
}

int read(const QString &key)
{
    ImageReader reader(key);
    QObject::connect(
        &reader, &ImageReader::newImageBlockSignal, &reader,
        [](ImageBlock ib) { std::cout << ib.width << std::endl; }, Qt::DirectConnection);
    if (!reader.startToRead())
        return 1;
    std::string line;
    std::getline(std::cin, line);
    return 0;
}

int raw(const char *keyFile, std::int32_t blocks, std::int32_t size)
{
    const std::int32_t stride = size + 136;
    const std::int32_t total = 124 + stride * blocks;
    const int id = shmget(ftok(keyFile, 'Q'), std::size_t(total), 0600);
    char *const segment = id < 0 ? nullptr : static_cast<char *>(shmat(id, nullptr, 0));
    if (!segment || segment == reinterpret_cast<char *>(-1))
        return 1;
    const auto put = [segment](std::int32_t offset, std::int32_t value) {
        std::memcpy(segment + offset, &value, sizeof value);
    };
    std::cout << "attached" << std::endl;

    std::int32_t count = 0;
    for (std::int32_t number; std::cin >> number; ++count) {
        const std::int32_t record = 124 + count % blocks * stride;
        put(record, size);
        put(record + 4, number);
        std::snprintf(segment + record + 32, 104, "raw-%d", number);
        std::memset(segment + record + 136, number, std::size_t(size));

        put(0, total);
        put(4, stride);
        put(8, std::min(count + 1, blocks));
        put(12, blocks);
        put(16, (count + 1) % blocks);
        put(20, count + 1 < blocks ? 0 : (count + 1) % blocks);
        std::snprintf(segment + 24, 100, "change-%d", number);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv, argv + argc);
    if (argc == 5 && arguments[1] == "write")
        return write(argv[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
    if (argc == 3 && arguments[1] == "hold")
        return hold(argv[2]);
    if (argc == 3 && arguments[1] == "read")
        return read(argv[2]);
    if (argc == 5 && arguments[1] == "raw")
        return raw(argv[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
    return 2;
}
