// Runs a fuzz target over the files of a folder: the tests' way to keep what fuzzing found.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv)
{
    unsigned int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout); // the last line names the input of a run that ends here
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            // In a block of its own size: bytes behind it are not to be read.
            std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
            LLVMFuzzerTestOneInput(exact.data(), exact.size());
            ++count;
        }
    }
    std::printf("%u inputs\n", count);
    return count != 0 ? 0 : 1;
}
