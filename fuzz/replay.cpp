#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// Gives a fuzz target the files of the folders in the arguments, each once.
/// A finding ends the process, as it does under the fuzzer. Fails when there is no file at all.
int main(int argc, char **argv)
{
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            ++files;
        }
    }
    std::printf("%d inputs\n", files);
    return files > 0 ? 0 : 1;
}
