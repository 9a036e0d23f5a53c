// Terminal.h - how vx shows things: colour, texts from files, tables, progress.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tool {

enum class Colour { plain, bold, dim, red, green, yellow, blue };

/// "always", "never", or "auto": on a terminal that can, unless NO_COLOR is set.
void chooseColour(const std::string& when);

/// \p text in \p colour where standard output takes colour, otherwise as it is.
std::string paint(Colour colour, std::string_view text);

/// What nobody sees, or what turns the text around: marks, joiners, directions.
bool isInvisible(wchar_t code);

/// Bytes of a file as they may go to a terminal: malformed UTF-8 becomes U+FFFD, control
/// characters \xNN, invisible ones \u{N}. A file cannot move the cursor or hide anything.
std::string shown(std::string_view bytes);

/// The same in single quotes.
std::string inQuotes(std::string_view bytes);

/// Whether the environment promises a terminal that shows UTF-8.
bool utf8Terminal();

/// Columns under headings. Texts are padded by the width that a terminal gives them.
class Table {
public:
    struct Column {
        std::string heading;
        bool right = false; ///< aligned to the right, as numbers are
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// One text for each column; they must fit to print, see shown().
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    /// To standard output.
    void print() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/// Tells a person at the terminal what is going on, once it has taken a second. Silent
/// where standard error is no terminal; nothing of it stays on the screen.
class Progress {
public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// How far it is; cheap enough for every line of a file.
    void at(std::size_t done, std::size_t total)
    {
        if (total != 0)
            percent_.store(
                static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(total)),
                std::memory_order_relaxed);
    }

private:
    void watch();

    std::string what_;
    std::atomic<int> percent_{-1};
    std::mutex mutex_;
    std::condition_variable ended_;
    bool over_ = false; // guarded by mutex_
    std::thread watcher_;
};

} // namespace tool
