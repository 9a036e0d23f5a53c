// Testing.h - Headers and helpers that most tests need.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <utility>
#include <vector>

/// std::bit_cast, which g++ 10 lacks.
template <class To, class From> To bitCast(From from)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

/// std::barrier, which g++ 10 lacks.
class Barrier {
public:
    explicit Barrier(int count) : count_(count) {}

    void arrive_and_wait()
    {
        const unsigned int round = round_;
        if (++arrived_ == count_) {
            arrived_ = 0;
            ++round_;
        } else {
            while (round_ == round)
                std::this_thread::yield();
        }
    }

private:
    const int count_;
    std::atomic<int> arrived_ = 0;
    std::atomic<unsigned int> round_ = 0;
};

/// Runs body(0) to body(count - 1), each on a thread of its own, starting at the same time.
template <class Body> void onThreads(int count, Body&& body)
{
    Barrier start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// Defined in coverage builds. _exit() would lose the counts of a child process.
extern "C" __attribute__((weak)) void __gcov_dump();

/// Runs \p body in a child process and returns its wait status: 0 if it returned true.
template <class Body> int statusOfChild(Body&& body)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool right = body();
        if (__gcov_dump != nullptr)
            __gcov_dump();
        _exit(right ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

/// Whether \p body returned true in a child process, which is killed after a minute.
template <class Body> bool holdsInChild(Body&& body)
{
    return statusOfChild([&] { return alarm(60), body(); }) == 0;
}

/// Returns what \p work prints on standard output.
template <class Work> std::string printed(Work&& work)
{
    testing::internal::CaptureStdout();
    work();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

/// Expects all six comparisons of \p a and \p b to equal those of \p i and \p j.
template <class A, class B, class Place> void expectOrder(const A& a, const B& b, Place i, Place j)
{
    EXPECT_EQ(a == b, i == j);
    EXPECT_EQ(a != b, i != j);
    EXPECT_EQ(a < b, i < j);
    EXPECT_EQ(a > b, i > j);
    EXPECT_EQ(a <= b, i <= j);
    EXPECT_EQ(a >= b, i >= j);
}

/// The number of rounds of a differential test: \p count times VX_DIFFERENTIAL_SCALE, if set.
inline int scaled(int count)
{
    const char* const scale = std::getenv("VX_DIFFERENTIAL_SCALE");
    return scale != nullptr ? count * std::atoi(scale) : count;
}

/// A random generator with a new seed in every run; a failure prints the seed.
class Seeded : public std::mt19937 {
public:
    explicit Seeded(unsigned int seed = std::random_device()())
        : std::mt19937(seed), trace_(__FILE__, __LINE__, "seed " + std::to_string(seed))
    {}

private:
    testing::ScopedTrace trace_;
};
