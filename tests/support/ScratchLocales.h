// ScratchLocales.h - locales with other decimal points, made for a test in a folder of its own.
#pragma once

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

/// A numeric locale for the lifetime of the object: "C", or one that is built on the spot
/// from the C library's locale sources. Nothing on the machine changes.
class ScratchLocale {
public:
    /// \p source names a locale source ("de_DE"), or is "C".
    explicit ScratchLocale(const std::string& source)
        : folder_(std::filesystem::path(::testing::TempDir()) /
                  ("vx-locale-" + source + "-" + std::to_string(::getpid())))
    {
        if (source == "C") {
            chosen_ = std::setlocale(LC_ALL, "C") != nullptr;
            return;
        }
        std::filesystem::create_directories(folder_);
        const std::string path = (folder_ / source).string();
        // Its exit code tells of warnings; whether the locale works shows below.
        [[maybe_unused]] const int code = std::system(
            ("localedef --no-archive -c -i " + source + " -f UTF-8 '" + path + "' 2>/dev/null")
                .c_str());
        ::setenv("LOCPATH", folder_.c_str(), 1);
        name_ = source;
        chosen_ = choose();
    }
    ~ScratchLocale()
    {
        std::setlocale(LC_ALL, "C");
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    ScratchLocale(const ScratchLocale&) = delete;
    ScratchLocale& operator=(const ScratchLocale&) = delete;

    /// Makes it the process's locale, again if need be.
    bool choose() const { return std::setlocale(LC_ALL, name_.c_str()) != nullptr; }

    /// Whether the locale could be made. A test that needs it fails without.
    bool chosen() const { return chosen_; }

    const char* name() const { return name_.c_str(); }

private:
    std::filesystem::path folder_;
    std::string name_ = "C";
    bool chosen_ = false;
};
