// Table.h - the rows of the table: an operation, what we do, and what its peers do.
#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <utility>

/// The benchmark's own vocabulary. A family registers its rows like this:
///
///     bench::Row row("strings", "copy and drop, 64 characters", {1.0});
///     row.ours(copyAndDrop<LightweightString<char>>);
///     row.peer("QString", copyAndDrop<QString>);
///
/// Bodies measure one operation through run(), which refuses to time a wrong answer.
namespace bench {

using State = benchmark::State;

/// What a row is to reach: our time divided by that of the fastest peer is at most
/// `factor`. Where a row is held against some of its peers only, `against` names them,
/// separated by '|'. A factor of 0 sets no goal: the row informs.
struct Goal {
    double factor = 0;
    std::string against = {};
};

/// One operation: ours and the peers' way to do it.
class Row {
public:
    Row(std::string family, std::string operation, Goal goal = {});

    template <class Body> Row& ours(Body body) { return peer("Vx", std::move(body)); }

    template <class Body> Row& peer(const std::string& name, Body body)
    {
        benchmark::RegisterBenchmark((prefix_ + name).c_str(), std::move(body));
        return *this;
    }

    /// What no way to keep the stated behaviour can undercut, such as one block from the
    /// platform for each string; the table says how near ours comes.
    template <class Body> Row& floor(const std::string& name, Body body)
    {
        return peer("floor: " + name, std::move(body));
    }

    /// What the names of this row's benchmarks begin with.
    const std::string& prefix() const { return prefix_; }

private:
    std::string prefix_;
};

/// How the cost of one operation of ours grows. \p body reads the size from
/// state.range(0) and makes one operation of that size an iteration.
class Curve {
public:
    /// \p expected is the growth to expect, in words: "constant", "n", "n log n".
    Curve(const std::string& operation, const std::string& expected);

    template <class Body> Curve& over(std::initializer_list<int> sizes, Body body)
    {
        for (const int size : sizes)
            benchmark::RegisterBenchmark((prefix_ + std::to_string(size)).c_str(), body)->Arg(size);
        return *this;
    }

    /// The same for a number of threads that work on one object; wall clock.
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

/// Times \p operation, unless \p answerIsRight is false: a wrong answer is an error that
/// makes the whole run fail.
template <class Operation> void run(State& state, bool answerIsRight, Operation operation)
{
    if (!answerIsRight) {
        state.SkipWithError("the answer is wrong");
        return;
    }
    for (auto _ : state)
        operation();
}

/// The same for an operation that takes \p bytes of input.
template <class Operation>
void runBytes(State& state, std::size_t bytes, bool answerIsRight, Operation operation)
{
    run(state, answerIsRight, std::move(operation));
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

template <class T> void keep(const T& value) { benchmark::DoNotOptimize(value); }

// One for each file of the bench: adds the rows of its family.
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
