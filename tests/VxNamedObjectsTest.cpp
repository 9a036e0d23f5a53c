#include <Vx/VxNamedObjects.h>

#include <algorithm>

#include <Failures.h>
#include <Vx/testing/ScriptedPlatform.h>

using Namespace = Vx::NamedObjectsNamespace;

// Entries outlive their namespace.
extern "C" VX_API const char* __lsan_default_suppressions()
{
    return "leak:Vx::NamedObjectsNamespace::prepare\n";
}

namespace {

struct Cache {
    Cache() { ++made; }
    static inline std::atomic<int> made{0};
};
struct Registry {};

Cache one, two;

void* giveOne() { return &one; }
void* throwing() { throw 42; }

// The namespace lock is free for another thread.
void expectFree(Namespace& names)
{
    std::thread([&] { EXPECT_EQ(names.findInfo_(typeid(void), "no such name"), nullptr); }).join();
}

} // namespace

TEST(NamedObjects, EntryHoldsNamesAndChecksumsAndOutlivesItsNamespace)
{
    auto names = std::make_unique<Namespace>(nullptr);
    int number = 0;
    names->create<int>("123456789", &number);
    const Namespace::Entry* const entry = names->findInfo_(typeid(int), "123456789");
    ASSERT_NE(entry, nullptr);
    names.reset();
    EXPECT_EQ(entry->typeName, "i");
    EXPECT_EQ(entry->objectName, "123456789");
    EXPECT_EQ(entry->nameHash, 0xECF6681Eu);
    EXPECT_EQ(entry->typeHash, 0x96u); // the bits of 'i', reversed
    EXPECT_EQ(entry->object, &number);
    EXPECT_EQ(entry->lock.owner(), 0u);
}

TEST(NamedObjects, MisuseIsReportedWithMessageAndLine)
{
    Namespace names("test");
    names.create<Cache>("taken", &one);
    const std::type_info& type = typeid(Cache);
    const struct {
        const char* failure;
        std::function<void()> operation;
    } rows[] = {
        {"(115) Invalid object name!", [&] { names.find_(type, nullptr); }},
        {"(143) Invalid object name!", [&] { names.create_(type, nullptr, nullptr); }},
        {"(148) 'object' cannot be NULL!", [&] { names.create_(type, "n", nullptr); }},
        {"(172) Attempted to create named objects with duplicate names!",
         [&] { names.create_(type, "taken", &two); }},
        {"(195) Invalid object name!", [&] { names.findOrCreate_(type, nullptr, giveOne); }},
        {"(234) Invalid object name!", [&] { names.createOrReplace_(type, nullptr, nullptr); }},
        {"(239) 'object' cannot be NULL!", [&] { names.createOrReplace_(type, "n", nullptr); }},
        {"(269) Invalid object name!", [&] { names.remove_(type, nullptr); }},
        {"(292) Invalid object name!", [&] { names.lock_(type, nullptr, true); }},
        {"(327) Invalid object name!", [&] { names.unlock_(type, nullptr); }},
        {"(337) Attempted to unlock a named object that had not previously been locked!",
         [&] { names.unlock_(type, "n"); }},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(failureOf(row.operation),
                  std::string("RuntimeError: ole/Vx/VxNamedObjects") + row.failure);
        std::thread([&] { EXPECT_EQ(names.find<Cache>("taken"), &one); }).join();
    }
    EXPECT_EQ(names.findInfo_(type, "n"), nullptr);
}

TEST(NamedObjects, LocksAreTakenInTheStatedOrder)
{
    ScriptedPlatform platform;
    static ScriptedPlatform* noted;
    noted = &platform;
    const auto factory = []() -> void* { return noted->note("factory"), &one; };
    Namespace names("test");
    const std::type_info& type = typeid(Cache);
    names.create_(type, "full", &one);
    names.lock_(type, "empty", true);
    names.unlock_(type, "empty");

    const struct {
        const char* order;
        std::function<void()> operation;
    } rows[] = {
        {"lock unlock", [&] { names.find_(type, "x"); }},
        {"lock unlock lock unlock", [&] { names.find_(type, "full"); }},
        {"lock createLock(0) unlock", [&] { names.create_(type, "1", &one); }},
        {"lock unlock lock unlock", [&] { names.create_(type, "empty", &one); }},
        {"lock createLock(0) unlock", [&] { names.createOrReplace_(type, "2", &one); }},
        {"lock unlock lock unlock", [&] { names.createOrReplace_(type, "2", &two); }},
        {"lock createLock(0) factory unlock", [&] { names.findOrCreate_(type, "3", factory); }},
        {"lock unlock lock unlock", [&] { names.findOrCreate_(type, "3", factory); }},
        {"lock unlock lock unlock", [&] { names.remove_(type, "3"); }},
        {"lock unlock lock factory unlock", [&] { names.findOrCreate_(type, "3", factory); }},
        {"lock unlock", [&] { names.remove_(type, "unknown"); }},
        {"lock createLock(0) unlock lock", [&] { names.lock_(type, "4", true); }},
        {"lock unlock unlock", [&] { names.unlock_(type, "4"); }},
        {"lock unlock tryLock", [&] { names.lock_(type, "4", false); }},
        {"lock createLock(0) unlock lock unlock", // left without looking the name up
         [&] { Namespace::ScopedLock<Registry>(names, "4"); }},
    };
    platform.logCalls();
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        platform.takeLog();
        row.operation();
        std::string order = platform.takeLog();
        const std::string asks = " currentThreadId";
        for (std::size_t at; (at = order.find(asks)) != order.npos;)
            order.erase(at, asks.size());
        EXPECT_EQ(order, row.order);
    }
}

TEST(NamedObjects, FailingFactoryLeavesTheEntryFree)
{
    Namespace names("test");
    names.create<Cache>("known", &one);
    names.remove<Cache>("known");
    EXPECT_THROW(names.findOrCreate<Cache>("known", throwing), int);
    std::thread([&] { EXPECT_EQ(names.find<Cache>("known"), nullptr); }).join();
}

TEST(NamedObjects, MemoryFailuresLeaveTheNamespaceAsItWas)
{
    ScriptedPlatform platform;
    Namespace names("test");
    const std::type_info& type = typeid(Cache);
    Cache::made = 0;
    int expected = 0;
    std::string name;
    const std::function<void()> operations[] = {
        [&] { names.findOrCreate<Cache>(name.c_str()); },
        [&] { names.create<Cache>(name.c_str(), &one); },
        [&] { names.createOrReplace<Cache>(name.c_str(), &one); },
        [&] { Namespace::ScopedLock<Cache>(names, name.c_str()); },
    };
    const auto check = [&] {
        EXPECT_EQ(names.findInfo_(type, name.c_str()), nullptr);
        EXPECT_EQ(Cache::made, expected) << "an object without an entry is lost";
        expectFree(names);
    };
    // Enough names for the index to grow, each time without memory for it first.
    std::vector<Cache*> made;
    for (std::size_t round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        name = "object" + std::to_string(round);
        EXPECT_GE(failEachAllocation(platform, operations[round % 4], check), 5u);
        names.create_(typeid(int), name.c_str(), &one); // with memory
        expected += round % 4 == 0;
        made.push_back(names.find<Cache>(name.c_str()));
        EXPECT_EQ(made.back() != nullptr, round % 4 != 3);
        for (std::size_t n = 0; n <= round; ++n)
            ASSERT_EQ(names.find<Cache>(("object" + std::to_string(n)).c_str()), made[n]);
        if (round % 4 == 0)
            delete made.back();
    }
    name = "no lock";
    platform.failCall("createLock");
    EXPECT_THROW(names.create_(type, "no lock", &one), ScriptedFault);
    check();
}

TEST(NamedObjects, OldestOfEqualEntriesIsFound)
{
    Namespace names("test");
    names.addListEntry<Cache>("same", &one);
    for (int n = 0; n < 300000; ++n) // takes minutes if each is compared with all before it
        names.addListEntry_(typeid(Cache), "same", &two);
    EXPECT_EQ(names.find<Cache>("same"), &one);
    EXPECT_EQ(names.addListEntry_(typeid(Cache), nullptr, &two)->objectName, "");
    EXPECT_EQ(names.findInfo<Cache>(nullptr)->object, &two);
}

TEST(NamedObjects, FactoryMayUseTheNamespace)
{
    static Namespace names("test");
    const auto outer = []() -> void* {
        for (int n = 0; n < 100; ++n) // the index grows
            names.create<Cache>(("inner" + std::to_string(n)).c_str(), &two);
        return &one;
    };
    EXPECT_EQ(names.findOrCreate<Cache>("outer", outer), &one);
    EXPECT_EQ(names.find<Cache>("outer"), &one);
    EXPECT_EQ(names.find<Cache>("inner99"), &two);
}

TEST(NamedObjects, NamedLockIsRecursiveAndKeepsOthersOut)
{
    Namespace names("test");
    const auto expectBusy = [&](bool busy) {
        std::thread([&] {
            EXPECT_TRUE(Namespace::ScopedLock<Registry>(names, "a", false)) << "a lock per type";
            EXPECT_EQ(!Namespace::ScopedLock<Cache>(names, "a", false), busy);
            EXPECT_EQ(names.lock<Cache>("a", false), !busy);
            if (!busy)
                names.unlock<Cache>("a");
        }).join();
    };
    EXPECT_TRUE(names.lock<Cache>("a"));
    EXPECT_EQ(names.findInfo_(typeid(Cache), "a")->object, nullptr);
    EXPECT_TRUE(Namespace::ScopedLock<Cache>(names, "a"));
    expectBusy(true);
    names.unlock<Cache>("a");
    expectBusy(false);
}

TEST(NamedObjects, GlobalNamespaceIsOneForAllThreads)
{
    int* objects[8] = {};
    onThreads(8, [&](int i) {
        objects[i] = Namespace::getGlobalNamespaceInstance()->findOrCreate<int>("first use");
    });
    EXPECT_EQ(std::count(objects, objects + 8, objects[0]), 8);
    delete objects[0];
}

TEST(NamedObjects, GlobalNamespaceIsMadeAfterAFailedFirstUse)
{
    ScriptedPlatform platform;
    const auto use = [] { Namespace::getGlobalNamespaceInstance(); };
    for (const char* operation : {"createLock", "lock"}) {
        platform.failCall(operation);
        EXPECT_THROW(use(), ScriptedFault);
    }
    const long before = platform.liveBlocks();
    EXPECT_GT(failEachAllocation(platform, use, [] {}), 0u);
    const long kept = platform.liveBlocks() - before;
    const std::unique_ptr<Namespace> same(new Namespace("GLOBAL"));
    EXPECT_EQ(platform.liveBlocks() - before, 2 * kept) << "the failures leaked";
}

TEST(NamedObjects, ThreadsShareNamesAndLocks)
{
    constexpr int kThreads = 4, kRounds = 1500, kNames = 7;
    Namespace names("test");
    int guarded[kNames] = {}, sum = 0;
    std::atomic<int> made{0};
    onThreads(kThreads, [&](int i) {
        for (int n = 0; n < kRounds; ++n) {
            const int which = (n * 5 + i) % kNames;
            const std::string name = "shared" + std::to_string(which);
            EXPECT_EQ(names.findOrCreate<Cache>(name.c_str(), giveOne), &one);
            if (Namespace::ScopedLock<int> hold(names, name.c_str(), n % 3 != 0); hold) {
                ++guarded[which];
                ++made;
                EXPECT_EQ(names.find<int>(name.c_str()), nullptr);
            }
            const std::string own = std::to_string(i) + "/" + std::to_string(n % 100);
            names.createOrReplace<Cache>(own.c_str(), &two);
            EXPECT_EQ(names.find<Cache>(own.c_str()), &two);
            names.remove<Cache>(own.c_str());
            names.createOrReplace<Registry>(name.c_str(), reinterpret_cast<Registry*>(&two));
            names.remove<Registry>(name.c_str());
            (void)names.find<Registry>(name.c_str());
        }
    });
    for (int count : guarded)
        sum += count;
    EXPECT_EQ(sum, made);
}
