// Runs a fuzz target on every file of a folder, so that the tests keep what fuzzing found, and on
// random variations of these files, the same ones in every run.
//
//     replay-NAME FOLDER COUNT
#include "Fuzz.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes current;

// Prints the input of a claim that does not hold as an argument of printf.
extern "C" void printCurrent(int)
{
    std::fputs("input: '", stderr);
    for (const std::uint8_t byte : current)
        std::fprintf(stderr, "\\x%02x", byte);
    std::fputs("'\n", stderr);
}

void run(const Bytes& input)
{
    // In a block of exactly this size, so that sanitizers see reads beyond the end.
    current = Bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(current.data(), current.size());
}

std::vector<Bytes> inputsIn(const char* folder)
{
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    std::vector<Bytes> inputs;
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return inputs;
}

/// Makes variations of the inputs: pieces of one in another, pieces lost, bytes changed.
class Variations {
public:
    explicit Variations(const std::vector<Bytes>& inputs) : inputs_(inputs) {}

    Bytes next()
    {
        Bytes result = any();
        for (std::size_t edits = below(6); edits != 0; --edits) {
            const auto at = result.begin() + static_cast<std::ptrdiff_t>(below(result.size() + 1));
            switch (below(4)) {
            case 0: {
                const Bytes piece = pieceOf(any());
                result.insert(at, piece.begin(), piece.end());
                break;
            }
            case 1:
                result.erase(at, at + std::min<std::ptrdiff_t>(length(), result.end() - at));
                break;
            case 2:
                if (at != result.end())
                    *at = static_cast<std::uint8_t>(random_());
                break;
            default:
                if (const Bytes piece = pieceOf(any()); at != result.end() && !piece.empty())
                    *at = piece[0];
            }
        }
        return result;
    }

private:
    std::size_t below(std::size_t n) { return random_() % n; }
    std::ptrdiff_t length() { return static_cast<std::ptrdiff_t>(1 + below(8)); }
    const Bytes& any() { return inputs_[below(inputs_.size())]; }
    Bytes pieceOf(const Bytes& input)
    {
        const auto start = input.begin() + static_cast<std::ptrdiff_t>(below(input.size() + 1));
        return Bytes(start, start + std::min<std::ptrdiff_t>(length(), input.end() - start));
    }

    const std::vector<Bytes>& inputs_;
    std::mt19937_64 random_{1};
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    std::signal(SIGABRT, printCurrent);
    const std::vector<Bytes> inputs = inputsIn(argv[1]);
    if (inputs.empty())
        return 1;
    for (const Bytes& input : inputs)
        run(input);
    const char* const scale = std::getenv("VX_DIFFERENTIAL_SCALE");
    const long count = std::atol(argv[2]) * (scale != nullptr ? std::atol(scale) : 1);
    Variations variations(inputs);
    for (long i = 0; i < count; ++i)
        run(variations.next());
    std::printf("%zu inputs and %ld variations\n", inputs.size(), count);
    return 0;
}
