// Generating, parsing and printing UUIDs.
#include "Inputs.h"
#include "Table.h"

#include <Vx/Image/UUID.h>
#include <Vx/platform/OS.h>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/random.h>

#if BENCH_QT
#include <QUuid>
#endif
#if BENCH_BOOST
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_generators.hpp>
#include <boost/uuid/uuid_io.hpp>
#endif
#if BENCH_UUID
#include <uuid/uuid.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::run;
using bench::State;

constexpr std::size_t kFetched = 64 * 1024;
constexpr const char* kText = "0123abcd-4567-89ef-0123-456789abcdef";

// The least code that generates identifiers in a platform. Threads share the fetched bytes, so taking
// some is an atomic operation. A forked child must not repeat what its parent generates: the kernel
// clears a word in the child, which then fetches bytes of its own.
class LeastGenerator {
public:
    LeastGenerator()
    {
        void* const page = mmap(nullptr, sizeof *fetched_, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page != MAP_FAILED && madvise(page, sizeof *fetched_, MADV_WIPEONFORK) == 0)
            fetched_ = new (page) std::uint64_t(0);
    }
    bool usable() const { return fetched_ != nullptr; }

    virtual SimpleUUID generateUUID()
    {
        SimpleUUID id;
        if (inUse_.test_and_set(std::memory_order_acquire)) {
            keep(getrandom(&id, sizeof id, 0));
            return id;
        }
        if (left_ == 0 || *fetched_ == 0) {
            keep(getrandom(random_, sizeof random_, 0));
            left_ = std::size(random_);
            *fetched_ = 1;
        }
        id = random_[--left_];
        inUse_.clear(std::memory_order_release);
        return id;
    }

private:
    std::atomic_flag inUse_ = ATOMIC_FLAG_INIT;
    std::uint64_t* fetched_ = nullptr;
    std::size_t left_ = 0;
    SimpleUUID random_[kFetched / sizeof(SimpleUUID)] = {};
};

void addLeastGenerator(Row& row)
{
    row.floor("the platform's calls, in batches", [](State& state) {
        static LeastGenerator generator;
        LeastGenerator* called = &generator;
        benchmark::DoNotOptimize(called); // or else the compiler knows which function it calls
        SimpleUUID id;
        run(state, generator.usable(), [&] {
            keep(OS()->systemUtils());
            new (&id) SimpleUUID(called->generateUUID());
            keep(id);
        });
    });
}

void addGenerate()
{
    Row row("identifiers", "UUID, generate", {1.25, "getrandom in batches"});
    row.ours([](State& state) {
        Vx::UUID id;
        id.generate();
        const Vx::UUID first = id;
        id.generate();
        run(state, id.valid() && id != first, [&] {
            id.generate();
            keep(id);
        });
    });
    row.peer("getrandom", [](State& state) {
        unsigned char bytes[16] = {};
        const auto fill = [&] { return getrandom(bytes, sizeof bytes, 0); };
        run(state, fill() == sizeof bytes, [&] { keep(fill()); });
    });
    row.peer("std::mt19937_64", [](State& state) {
        std::mt19937_64 generator(1);
        std::uint64_t halves[2] = {};
        run(state, generator() != generator(), [&] {
            halves[0] = generator();
            halves[1] = generator();
            keep(halves);
        });
    });
    row.peer("getrandom in batches", [](State& state) {
        static unsigned char bytes[kFetched];
        const auto fill = [&] { return getrandom(bytes, kFetched, 0); };
        std::size_t left = 0;
        run(state, fill() == kFetched, [&] {
            if (left == 0) {
                keep(fill());
                left = kFetched;
            }
            left -= 16;
        });
    });
    addLeastGenerator(row);
#if BENCH_QT
    row.peer("QUuid", [](State& state) {
        run(state, QUuid::createUuid() != QUuid::createUuid(), [] { keep(QUuid::createUuid()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::uuids::random_generator", [](State& state) {
        boost::uuids::random_generator generator;
        run(state, generator() != generator(), [&] { keep(generator()); });
    });
#endif
#if BENCH_UUID
    row.peer("libuuid", [](State& state) {
        uuid_t a, b;
        uuid_generate_random(a);
        uuid_generate_random(b);
        run(state, uuid_compare(a, b) != 0, [&] { uuid_generate_random(a); });
    });
#endif
}

void addParse()
{
    Row row("identifiers", "UUID, parse", {0.44});
    row.ours([](State& state) {
        Vx::UUID id(kText);
        run(state, id.asString() == kText, [&] {
            benchmark::ClobberMemory();
            id.initFromString(kText, 36);
            keep(id);
        });
    });
#if BENCH_QT
    row.peer("QUuid", [](State& state) {
        const auto parse = [] { return QUuid::fromString(QLatin1StringView(kText)); };
        run(state, parse().toByteArray(QUuid::WithoutBraces) == kText, [&] { keep(parse()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::uuids::string_generator", [](State& state) {
        const auto parse = [] { return boost::uuids::string_generator()(kText, kText + 36); };
        run(state, boost::uuids::to_string(parse()) == kText, [&] { keep(parse()); });
    });
#endif
#if BENCH_UUID
    row.peer("libuuid", [](State& state) {
        uuid_t id;
        const auto parse = [&] { return uuid_parse(kText, id); };
        char text[37];
        const bool right = parse() == 0;
        uuid_unparse_lower(id, text);
        run(state, right && std::strcmp(text, kText) == 0, [&] {
            keep(parse());
            keep(id);
        });
    });
#endif
}

void addPrint()
{
    Row row("identifiers", "UUID, print to a buffer", {0.5});
    row.ours([](State& state) {
        const Vx::UUID id(kText);
        char text[37] = {};
        run(state, id.asString(text) == 36 && std::strcmp(text, kText) == 0, [&] {
            keep(id.asString(text));
            keep(text);
        });
    });
#if BENCH_QT
    row.peer("QUuid", [](State& state) {
        const QUuid id = QUuid::fromString(QLatin1StringView(kText));
        const auto print = [&] { return id.toByteArray(QUuid::WithoutBraces); };
        run(state, print() == kText, [&] { keep(print().constData()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::uuids::to_string", [](State& state) {
        const auto id = boost::uuids::string_generator()(kText, kText + 36);
        run(state, boost::uuids::to_string(id) == kText,
            [&] { keep(boost::uuids::to_string(id).data()); });
    });
#endif
#if BENCH_UUID
    row.peer("libuuid", [](State& state) {
        uuid_t id;
        uuid_parse(kText, id);
        char text[37] = {};
        uuid_unparse_lower(id, text);
        run(state, std::strcmp(text, kText) == 0, [&] {
            uuid_unparse_lower(id, text);
            keep(text);
        });
    });
#endif
}

} // namespace

void bench::addIdentifiers()
{
    addGenerate();
    addParse();
    addPrint();
}
