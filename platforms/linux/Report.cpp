#include "Report.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unistd.h>

namespace {

class Line {
public:
    void add(const char* text)
    {
        for (; *text != 0; ++text)
            put(*text);
    }

    void addEscaped(const char* text)
    {
        constexpr char kDigits[] = "0123456789abcdef";
        for (; *text != 0; ++text) {
            const unsigned char byte = static_cast<unsigned char>(*text);
            if (byte >= 0x20 && byte != 0x7F) {
                put(*text);
            } else {
                const char escape[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15], 0};
                add(escape);
            }
        }
    }

    void send()
    {
        text_[length_++] = '\n';
        // Nobody is left to be told when standard error fails.
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text_, length_);
    }

private:
    void put(char c)
    {
        if (length_ + 1 < sizeof(text_))
            text_[length_++] = c;
    }

    // A path, every byte escaped, is cut; the system's own limit is 4096.
    char text_[8192];
    std::size_t length_ = 0;
};

} // namespace

void report(const char* what, const char* path, int error, const char* detail) noexcept
{
    const int keptErrno = errno;
    Line line;
    line.add("Vx: ");
    line.add(what);
    line.add(" ");
    line.addEscaped(path);
    if (error != 0) {
        const char* reason = strerrordesc_np(error);
        line.add(": ");
        line.add(reason != nullptr ? reason : "unknown error");
    }
    if (detail != nullptr) {
        line.add(error != 0 ? "; " : ": ");
        line.add(detail);
    }
    line.send();
    errno = keptErrno;
}
