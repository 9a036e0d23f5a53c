// ScratchLocales.h - Temporary locales with other decimal points.
#pragma once

#include "Testing.h"
#include <clocale>

/// Sets the numeric category of a locale for the lifetime of the object, and "C.UTF-8" for the
/// others. Compiles the locale from the C library's sources into a temporary folder.
class ScratchLocale {
public:
    /// Fails the test on errors. \p source names a locale source ("de_DE"), or is "C".
    explicit ScratchLocale(const std::string& source)
        : folder_(std::filesystem::path(::testing::TempDir()) /
                  ("vx-locale-" + source + "-" + std::to_string(::getpid()))),
          name_(source)
    {
        if (source != "C") {
            std::filesystem::create_directories(folder_);
            const std::string recipe = (folder_ / "recipe").string();
            std::ofstream(recipe) << "LC_NUMERIC\ncopy \"" << source << "\"\nEND LC_NUMERIC\n";
            // The exit code only reports the missing categories; choose() checks the result.
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

    /// Selects it as the process's numeric locale. Returns whether that worked.
    bool choose() const { return std::setlocale(LC_NUMERIC, name_.c_str()) != nullptr; }

private:
    std::filesystem::path folder_;
    std::string name_;
};
