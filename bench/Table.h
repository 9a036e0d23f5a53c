// Table.h - Declares the rows of the table: one operation, by Vx and by its peers.
#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <utility>

/// A family of benchmarks registers its rows like this:
///
///     bench::Row row("strings", "copy and drop, 64 characters", {1.0});
///     row.ours(copyAndDrop<LightweightString<char>>);
///     row.peer("QString", copyAndDrop<QString>);
///
/// Bodies measure one operation through run(), which rejects a wrong answer.
namespace bench {

using State = benchmark::State;

/// The goal of a row: the time of Vx divided by that of the fastest peer is at most `factor`.
/// `against` limits the comparison to some peers, separated by '|'. A factor of 0 means no goal.
struct Goal {
    double factor = 0;
    std::string against = {};
};

/// One operation, by Vx and by its peers.
class Row {
public:
    Row(std::string family, std::string operation, Goal goal = {});

    template <class Body> Row& ours(Body body) { return peer("Vx", std::move(body)); }

    template <class Body> Row& peer(const std::string& name, Body body)
    {
        auto* const added = benchmark::RegisterBenchmark((prefix_ + name).c_str(), std::move(body));
        if (threads_ != 1)
            added->Threads(threads_);
        return *this;
    }

    /// Runs the bodies added from now on in \p count threads at once, and measures the processor
    /// time of all of them.
    Row& onThreads(int count)
    {
        threads_ = count;
        return *this;
    }

    /// The least code that keeps the documented guarantee, such as one block for each string.
    template <class Body> Row& floor(const std::string& name, Body body)
    {
        return peer("floor: " + name, std::move(body));
    }

    /// The common prefix of the names of this row's benchmarks.
    const std::string& prefix() const { return prefix_; }

private:
    std::string prefix_;
    int threads_ = 1;
};

/// How the cost of an operation grows. The body reads the size from state.range(0) and performs
/// one operation of that size per iteration.
class Curve {
public:
    /// \p expected is the expected growth: "constant", "n" or "n log n".
    Curve(const std::string& operation, const std::string& expected);

    template <class Body> Curve& over(std::initializer_list<int> sizes, Body body)
    {
        for (const int size : sizes)
            benchmark::RegisterBenchmark((prefix_ + std::to_string(size)).c_str(), body)->Arg(size);
        return *this;
    }

    /// As over(), for a number of threads that share one object; wall-clock time.
    template <class Body> Curve& overThreads(std::initializer_list<int> threads, Body body)
    {
        for (const int count : threads)
            benchmark::RegisterBenchmark((prefix_ + std::to_string(count)).c_str(), body)
                ->Threads(count)
                ->UseRealTime();
        return *this;
    }

private:
    std::string prefix_;
};

/// Zeroes the upper halves of the vector registers (`vzeroupper`). Some libraries leave them set,
/// and every later mix of SSE and AVX code pays for it; notes.md has the effect.
void cleanVectorRegisters();

/// Measures \p operation. If \p answerIsRight is false, reports an error that fails the whole
/// run instead.
template <class Operation> void run(State& state, bool answerIsRight, Operation operation)
{
    if (!answerIsRight) {
        state.SkipWithError("the answer is wrong");
        return;
    }
    cleanVectorRegisters();
    for (auto _ : state)
        operation();
}

/// As run(), for an operation on \p bytes of input.
template <class Operation>
void runBytes(State& state, std::size_t bytes, bool answerIsRight, Operation operation)
{
    run(state, answerIsRight, std::move(operation));
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

template <class T> void keep(const T& value) { benchmark::DoNotOptimize(value); }

// Each adds the rows of one source file.
void addAllocation();
void addStrings();
void addNumbers();
void addCase();
void addUnicode();
void addLists();
void addDocuments();
void addIdentifiers();
void addSharing();
void addNames();
void addBytes();
void addPlayout();
void addGrowth();
void addStart();

} // namespace bench
