// The reader of `vx inspect` on a process whose memory is damaged in any way, and changes while it
// is read: it ends, stays within bounds, and what it reports fits together.
#include "Fuzz.h"

#include <Vx/VxNamedObjects.h>
#include <Vx/VxPooledObjectDebug.h>
#include <Vx/VxShutdown.h>
#include <Vx/detail/Inspect.h>
#include <algorithm>
#include <inspect/Snapshot.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct MediaCache {};

// Something of everything, in this process. Built once and never freed.
void makeHost()
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    static auto& plugin = *new Vx::NamedObjectsNamespace("plugin");
    names.create<Vx::NamedObjectsNamespace>("plugin", &plugin);
    plugin.lock<MediaCache>("inside");
    names.findOrCreate<CriticalSection>("published");
    std::thread([&names] { names.lock<MediaCache>("left"); }).join();
    for (unsigned int priority : {50u, 100u, 300u, 400u})
        Shutdown::addCallback([] {}, priority);
    new Vx::PooledObjectDebug::LoggingTraitsBase("frames");
}

struct Edit {
    std::size_t read; // the number of the read that it changes
    std::uint8_t kind;
    std::uint8_t offset;
    std::uint64_t value;
};

// This process, read as another one would be. Reads are numbered, so that an input means the same
// wherever the memory is.
class DamagedProcess final : public inspect::Process {
public:
    DamagedProcess(const inspect::Process& real, const inspect::Snapshot& intact, Input& input)
        : real_(real), intact_(intact), threadChoices_(input.take<std::uint32_t>())
    {
        // Code, and what has the descriptors: searching all of the program takes too long.
        for (const inspect::Mapping& mapping : real.mappings())
            if (mapping.executable || contains(mapping, &Vx_inspectDescriptor) ||
                contains(mapping, &Vx_inspectPlatform))
                mappings_.push_back(mapping);
        name_ = real.name();
        while (!input.empty() && edits_.size() < 16)
            edits_.push_back({input.take<std::uint16_t>() % 512u, input.take<std::uint8_t>(),
                              input.take<std::uint8_t>(), input.take<std::uint64_t>()});
    }

    bool read(inspect::Address from, void* to, std::size_t size) const override
    {
        if (!real_.read(from, to, size))
            return false;
        if (size > kLargest)
            return true; // the search for descriptors
        FUZZ_CLAIM(++reads_ < kMostReads);
        addresses_.push_back(from);
        bool fails = false;
        const auto apply = [&](const Edit& edit, inspect::Address at) {
            if (at >= from + size || at < from)
                return;
            const std::size_t offset = static_cast<std::size_t>(at - from);
            // A failure, or bytes: any, 4 of them, or the address of an earlier read.
            std::uint64_t bytes = edit.value;
            if (edit.kind / 2 % 4 == 3)
                bytes = addresses_[bytes % addresses_.size()] + (bytes >> 32) % 64;
            const std::size_t width = edit.kind / 2 % 4 == 2 ? 4 : 8;
            if (edit.kind / 2 % 4 == 0)
                fails = true;
            else
                std::memcpy(static_cast<char*>(to) + offset, &bytes,
                            std::min(width, size - offset));
        };
        for (const auto& [edit, at] : lasting_)
            apply(edit, at);
        for (const Edit& edit : edits_) {
            if (edit.read != reads_)
                continue;
            const inspect::Address at = from + edit.offset % size;
            apply(edit, at);
            if (edit.kind % 2 == 1)
                lasting_.emplace_back(edit, at);
        }
        return !fails;
    }

    // Sleep on any lock, and change at each look if the input says so.
    std::vector<inspect::Thread> threads() const override
    {
        std::uint32_t choices = threadChoices_;
        if (++looks_ > 1 && choices % 2 == 1)
            choices /= 3;
        std::vector<inspect::Thread> threads;
        for (choices /= 2; choices != 0; choices /= 256) {
            inspect::Thread thread;
            const auto& owner = intact_.locks[choices / 16 % 16 % intact_.locks.size()];
            const auto& wanted = intact_.locks[choices % 16 % intact_.locks.size()];
            thread.id = thread.innerId = owner.owner;
            thread.futex = wanted.futex;
            threads.push_back(thread);
        }
        return threads;
    }

    std::string fileOf(const inspect::Mapping&) const override { return {}; }
    bool live() const override { return true; }
    unsigned int id() const override { return real_.id(); }

private:
    static constexpr std::size_t kLargest = 4096;
    static constexpr std::size_t kMostReads = 1 << 20; // an intact process takes a few hundred

    static bool contains(const inspect::Mapping& mapping, const void* object)
    {
        const auto address = reinterpret_cast<inspect::Address>(object);
        return mapping.start <= address && address < mapping.end;
    }

    const inspect::Process& real_;
    const inspect::Snapshot& intact_;
    const std::uint32_t threadChoices_;
    std::vector<Edit> edits_;
    mutable std::vector<std::pair<Edit, inspect::Address>> lasting_;
    mutable std::vector<inspect::Address> addresses_;
    mutable std::size_t reads_ = 0;
    mutable int looks_ = 0;
};

void checkDeadlocks(const inspect::Snapshot& snapshot)
{
    for (const inspect::Deadlock& deadlock : snapshot.deadlocks) {
        FUZZ_CLAIM(!deadlock.steps.empty());
        for (std::size_t i = 0; i < deadlock.steps.size(); ++i) {
            const auto& step = deadlock.steps[i];
            const auto& next = deadlock.steps[(i + 1) % deadlock.steps.size()];
            FUZZ_CLAIM(step.holds < snapshot.locks.size() && step.waitsFor < snapshot.locks.size());
            FUZZ_CLAIM(snapshot.locks[step.holds].owner == step.thread);
            FUZZ_CLAIM(step.waitsFor == next.holds);
            const auto& waiting = snapshot.locks[step.waitsFor].waiting;
            FUZZ_CLAIM(std::count(waiting.begin(), waiting.end(), step.thread) >= 1);
        }
    }
}

void check(const inspect::Snapshot& snapshot)
{
    for (const inspect::Lock& lock : snapshot.locks) {
        FUZZ_CLAIM(!lock.changing || (lock.owner == 0 && !lock.ownerEnded));
        FUZZ_CLAIM(!lock.ownerEnded || threadOf(snapshot, lock.owner) == nullptr);
        for (const unsigned int thread : lock.waiting)
            FUZZ_CLAIM(threadOf(snapshot, thread) != nullptr);
    }
    for (const inspect::NamedObject& name : snapshot.names)
        FUZZ_CLAIM(name.lock < snapshot.locks.size());
    checkDeadlocks(snapshot);
}

} // namespace

// The input: how threads sleep, then edits.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto real = (makeHost(), inspect::openProcess(static_cast<unsigned>(getpid())));
    static const inspect::Snapshot intact = inspect::takeSnapshot(*real);
    FUZZ_CLAIM(intact.names.size() == 4 && intact.pools.size() == 1 && intact.notes.empty());
    FUZZ_CLAIM(intact.shutdown->complete && intact.shutdown->callbacks.size() == 5);
    FUZZ_CLAIM(intact.platformKnown);

    Input input(data, size);
    const DamagedProcess process(*real, intact, input);
    try {
        check(inspect::takeSnapshot(process));
    } catch (const inspect::CannotInspect&) {
        // The damage is in a descriptor.
    }
    return 0;
}
