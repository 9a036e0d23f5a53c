// ScratchLocales.h - locales with other decimal points, made for a test in a folder of its own.
#pragma once

#include "Testing.h"
#include <clocale>

/// The numeric category of a locale, for the lifetime of the object; the rest is "C.UTF-8".
/// Built on the spot from the C library's locale sources: nothing on the machine changes.
class ScratchLocale {
public:
    /// Fails the test when it cannot be made. \p source names a locale source ("de_DE"), or is "C".
    explicit ScratchLocale(const std::string& source)
        : folder_(std::filesystem::path(::testing::TempDir()) /
                  ("vx-locale-" + source + "-" + std::to_string(::getpid()))),
          name_(source)
    {
        if (source != "C") {
            std::filesystem::create_directories(folder_);
            const std::string recipe = (folder_ / "recipe").string();
            std::ofstream(recipe) << "LC_NUMERIC\ncopy \"" << source << "\"\nEND LC_NUMERIC\n";
            // Its exit code tells of the categories left out; whether the locale works shows
            // below.
            [[maybe_unused]] const int code =
                std::system(("localedef --no-archive -c -f UTF-8 -i '" + recipe + "' '" +
                             (folder_ / source).string() + "' >/dev/null 2>&1")
                                .c_str());
            ::setenv("LOCPATH", folder_.c_str(), 1);
        }
        EXPECT_TRUE(std::setlocale(LC_ALL, "C.UTF-8") != nullptr && choose())
            << "needs localedef and the locale sources (package locales)";
    }
    ~ScratchLocale()
    {
        std::setlocale(LC_ALL, "C");
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    ScratchLocale(const ScratchLocale&) = delete;
    ScratchLocale& operator=(const ScratchLocale&) = delete;

    /// Makes it the process's numeric locale, again if need be.
    bool choose() const { return std::setlocale(LC_NUMERIC, name_.c_str()) != nullptr; }

private:
    std::filesystem::path folder_;
    std::string name_;
};
