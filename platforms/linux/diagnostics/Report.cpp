#include "diagnostics/Report.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <locale.h>
#include <unistd.h>

namespace {

// The reader of our standard error, a launcher or a log collector, may have gone. That must not
// kill the process, least of all while it has work to save elsewhere.
class WithoutPipeSignal {
public:
    WithoutPipeSignal()
    {
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&pipeSignal_);
        sigaddset(&pipeSignal_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal_, &before_);
    }
    ~WithoutPipeSignal()
    {
        const timespec atOnce = {};
        if (!wasPending_) // otherwise it is not ours to consume
            while (sigtimedwait(&pipeSignal_, nullptr, &atOnce) == -1 && errno == EINTR) {
            }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    WithoutPipeSignal(const WithoutPipeSignal&) = delete;
    WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

private:
    sigset_t before_;
    sigset_t pipeSignal_;
    bool wasPending_;
};

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
        const WithoutPipeSignal guard;
        // A failure of standard error cannot be reported anywhere.
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text_, length_);
    }

private:
    void put(char c)
    {
        if (length_ + 1 < sizeof(text_))
            text_[length_++] = c;
    }

    // Enough for the longest path, 4096 bytes. One with many escaped bytes is cut.
    char text_[8192];
    std::size_t length_ = 0;
};

// As the rest of the line is. The host's language would also allocate, for the translations; the
// C locale is static.
const char* inEnglish(int error) noexcept
{
    return strerror_l(error, newlocale(LC_ALL_MASK, "C", nullptr));
}

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
        line.add(": ");
        line.add(inEnglish(error));
    }
    if (detail != nullptr) {
        line.add(error != 0 ? "; " : ": ");
        line.add(detail);
    }
    line.send();
    errno = keptErrno;
}
