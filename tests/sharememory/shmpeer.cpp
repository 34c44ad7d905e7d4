// The other process of the shared-memory tests. It tells its doings on standard output, one line each,
// and takes orders, one line each, on standard input.
//
//   shmpeer write KEY BLOCKS SIZE   an ImageWritter; order: the number of the frame to write
//   shmpeer hold KEY                takes the segment's lock and keeps it
#include "imagewritter.h"

#include <QCoreApplication>
#include <QSharedMemory>

#include <iostream>
#include <string>
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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv, argv + argc);
    if (argc == 5 && arguments[1] == "write")
        return write(argv[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
    if (argc == 3 && arguments[1] == "hold")
        return hold(argv[2]);
    return 2;
}
