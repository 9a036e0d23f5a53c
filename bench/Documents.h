// Documents.h - INI files for the benchmarks, in a temporary folder.
#pragma once

#include "Inputs.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace bench {

/// A temporary folder, removed by the destructor. In memory if possible, so that no disk is
/// measured.
class Folder {
public:
    Folder()
    {
        std::string pattern =
            (std::filesystem::is_directory("/dev/shm") ? std::filesystem::path("/dev/shm")
                                                       : std::filesystem::temp_directory_path()) /
            "vx-bench-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot create a temporary folder");
        path_ = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// The order of the sections in a file.
enum class Order { kByName, kRandom };

/// \p sections sections of \p pairs pairs, lines of about 40 characters.
inline std::string iniText(std::size_t sections, std::size_t pairs, Order order = Order::kByName)
{
    Numbers numbers(41);
    std::vector<std::size_t> indices(sections);
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    if (order == Order::kRandom)
        for (std::size_t left = sections; left > 1; --left)
            std::swap(indices[left - 1], indices[numbers.below(static_cast<std::uint32_t>(left))]);
    std::string text;
    char line[80];
    for (const std::size_t index : indices) {
        std::snprintf(line, sizeof line, "[Section%05zu]\n", index);
        text += line;
        for (std::size_t j = 0; j < pairs; ++j) {
            std::snprintf(line, sizeof line, "property%04zu=value %u of the clip %05u\n", j,
                          numbers.below(10), numbers.below(100000));
            text += line;
        }
    }
    return text;
}

inline void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline LightweightString<wchar_t> widePath(const std::string& path) { return wide(widened(path)); }

} // namespace bench
