// Clock, identifiers, call stacks, the number of processors.
#include "Check.h"

#include <Vx/platform/iSystemInfo.h>
#include <Vx/platform/iSystemUtils.h>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <set>
#include <thread>
#include <unistd.h>

namespace {

iSystemUtils* utils() { return OS()->systemUtils(); }

void clock()
{
    constexpr int kReadings = 1000000;
    const auto msecsSince = [](std::chrono::steady_clock::time_point from) {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - from)
            .count();
    };
    const auto before = std::chrono::steady_clock::now();
    const double start = utils()->msecsNow();
    const auto after = std::chrono::steady_clock::now();
    double last = start;
    // Long enough for the tolerance below, however fast the machine is.
    for (int i = 0; i < kReadings || msecsSince(after) < 100; ++i) {
        const double now = utils()->msecsNow();
        require(std::isfinite(now), "a reading is not finite");
        require(now >= last, "runs backwards by " + std::to_string(last - now) + " ms");
        last = now;
    }
    const double lower = msecsSince(after);
    const double elapsed = utils()->msecsNow() - start;
    const double upper = msecsSince(before);
    // Clocks may be adjusted differently, and this one may be coarse.
    require(elapsed >= lower * 0.99 - 16 && elapsed <= upper * 1.01 + 16,
            std::to_string(lower) + " ms are measured as " + std::to_string(elapsed));
}

void clockSteps()
{
    const double start = utils()->msecsNow();
    double last = start;
    int steps = 0;
    for (int i = 0; i < 1000000; ++i) {
        const double now = utils()->msecsNow();
        steps += now > last;
        last = now;
    }
    require(steps > 0, "does not advance");
    require((last - start) / steps < 0.1,
            "advances in steps of " + std::to_string((last - start) / steps) + " ms");
}

using Bytes = std::array<unsigned char, 16>;

Bytes newUUID()
{
    const SimpleUUID uuid = utils()->generateUUID();
    Bytes bytes;
    std::memcpy(bytes.data(), uuid.bytes, 16);
    return bytes;
}

void uuidBits()
{
    for (int i = 0; i < 1000; ++i) {
        const Bytes bytes = newUUID();
        require(bytes[7] >> 4 == 4, "the version (high half of byte 7) is " +
                                        std::to_string(bytes[7] >> 4) + ", expected 4");
        require(bytes[8] >> 6 == 2, "the variant (top bits of byte 8) is not binary 10");
    }
}

void uuidUnique()
{
    std::set<Bytes> seen;
    for (int i = 0; i < 100000; ++i)
        require(seen.insert(newUUID()).second, "an identifier is repeated");
    std::array<std::vector<Bytes>, 4> others;
    std::vector<std::thread> threads;
    for (std::vector<Bytes>& other : others)
        threads.emplace_back([&other] {
            for (int i = 0; i < 20000; ++i)
                other.push_back(newUUID());
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<Bytes>& other : others)
        for (const Bytes& bytes : other)
            require(seen.insert(bytes).second, "two threads got the same identifier");
}

void uuidFork()
{
    std::set<Bytes> seen = {newUUID()};
    for (int child = 0; child < 2; ++child) { // the second must not repeat the first
        int ends[2];
        require(pipe(ends) == 0, "cannot create a pipe");
        const int status = inChild([&] {
            const Bytes bytes = newUUID();
            return write(ends[1], bytes.data(), 16) == 16 ? 0 : 1;
        });
        Bytes theirs = {};
        require(status == 0 && read(ends[0], theirs.data(), 16) == 16, "the child died");
        close(ends[0]);
        close(ends[1]);
        require(seen.insert(theirs).second, "a forked child repeats an identifier");
    }
    require(seen.insert(newUUID()).second, "parent and child got the same identifier after fork");
}

void callStack()
{
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>> frames;
    frames.push_back("kept");
    utils()->captureCallStack(frames); // adding nothing is allowed
    require(!frames.empty() && frames[0] == "kept", "overwrites the list");
    for (const auto& frame : frames)
        require(!frame.empty(), "a frame is empty");
}

void processors()
{
    const int count = OS()->systemInfo()->numProcessors();
    require(count >= 0 && count <= 65536, std::to_string(count) + " processors");
}

void processorsKnown()
{
    require(OS()->systemInfo()->numProcessors() != 0, "the first call returns 0");
}

} // namespace

std::vector<Check> systemChecks()
{
    static constexpr char kUtils[] = "iSystemUtils.h";
    return {
        {"clock", Contract, kUtils,
         "Returns the milliseconds of real time since an origin of the platform's choice, a finite "
         "number. Never runs backwards.",
         clock},
        {"clock.steps", Desktop, kGuide, "The clock advances in steps of less than 0.1 ms.",
         clockSteps},
        {"uuid.unique", Contract, kUtils,
         "Returns a new, globally unique identifier, on any thread.", uuidUnique},
        {"uuid.bits", Desktop, kGuide,
         "Identifiers carry version 4, in the upper half of stored byte 7, and the RFC 4122 "
         "variant.",
         uuidBits},
        {"uuid.fork", Reference, kGuide, "Forked children get identifiers of their own", uuidFork},
        {"call-stack", Contract, kUtils,
         "Appends one non-empty string per stack frame of the caller to frames", callStack},
        {"processors", Contract, "iSystemInfo.h",
         "Returns the number of logical processors that this process may use, never negative.",
         processors},
        {"processors.known", Desktop, kGuide,
         "The number of processors is known from the first call.", processorsKnown},
    };
}
