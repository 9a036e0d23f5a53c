// Runs a fuzz target on every file of a folder, so that the tests keep what fuzzing found.
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
            std::fflush(stdout); // if the target crashes, the last line names its input
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            // In a block of exactly this size, so that sanitizers see reads beyond the end.
            std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
            LLVMFuzzerTestOneInput(exact.data(), exact.size());
            ++count;
        }
    }
    std::printf("%u inputs\n", count);
    return count != 0 ? 0 : 1;
}
