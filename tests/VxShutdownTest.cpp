#include <Vx/VxShutdown.h>

#include <stdio_ext.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

using Shutdown::CallbackItem;
using Shutdown::CallbackItemList;
using Shutdown::eExitType;
using Shutdown::kOrderlyExit;
using Handle = Vx::Ptr<Shutdown::Callback>;

// Events in order.
std::string events;

void note(const std::string& word) { events += (events.empty() ? "" : " ") + word; }

std::string takeEvents() { return std::exchange(events, std::string()); }

std::function<void()> noting(const char* word)
{
    return [word] { note(word); };
}

struct Noting : Shutdown::Callback {
    explicit Noting(std::string word) : word(std::move(word)) {}
    ~Noting() override { note("~" + word); }
    void execute(const eExitType& type) override { note(word + std::to_string(type)); }
    std::string word;
};

// A callback whose destructor does something.
struct Ending : Shutdown::Callback {
    explicit Ending(std::function<void()> last) : last(std::move(last)) {}
    ~Ending() override { last(); }
    void execute(const eExitType&) override {}
    std::function<void()> last;
};

} // namespace

TEST(Shutdown, RunsByPriorityThenByAgeInTwoPasses)
{
    Shutdown::addCallback(noting("300"), 300);
    Shutdown::addCallback(noting("5a"), 5);
    Shutdown::addCallback(noting("201"), 201);
    Shutdown::addCallback(noting("200"), 200);
    Shutdown::addCallback(noting("5b"), 5);
    for (unsigned int priority : {0u, 0xFFFFFFFFu})
        Shutdown::addCallback([](eExitType type) { note("type" + std::to_string(type)); },
                              priority);
    for (unsigned int priority : {200u, 201u})
        Shutdown::addCallback([] { note("status" + std::to_string(Shutdown::status)); }, priority);
    EXPECT_FALSE(Shutdown::isExiting());
    EXPECT_EQ(Shutdown::status, 0);
    Shutdown::executeCallbacks(static_cast<eExitType>(9));
    EXPECT_EQ(takeEvents(), "type9 5a 5b 200 status1 201 status2 300 type9");
    EXPECT_TRUE(Shutdown::isExiting());

    Shutdown::addCallback(noting("late"), 1);
    Shutdown::addCallback([](eExitType) { note("late"); }, 1);
    Shutdown::addCallback(Handle(new Noting("late")), 1);
    EXPECT_EQ(takeEvents(), "~late") << "refused callbacks are released";
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "");
}

TEST(Shutdown, CallbackAddedInTheFirstPassRunsInTheFinalOne)
{
    const auto add = [](unsigned int priority) {
        return [priority] {
            note("adds" + std::to_string(priority));
            Shutdown::addCallback(noting("added"), priority);
        };
    };
    Shutdown::addCallback(add(1), 10);
    Shutdown::addCallback(add(250), 20);
    Shutdown::addCallback(noting("200"), 200);
    Shutdown::addCallback(add(400), 240); // refused
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "adds1 adds250 200 added adds400 added");
}

TEST(Shutdown, RemovesTheFirstInOrderByIdentityEvenWhileRunning)
{
    const Handle first(new Noting("first")), twice(new Noting("twice")), twin(new Noting("twice"));
    const auto remove = [&] {
        Shutdown::removeCallback(first); // too late: not listed any more
        Shutdown::removeCallback(twice);
    };
    Shutdown::addCallback(twice, 230);
    Shutdown::addCallback(twice, 210);
    Shutdown::addCallback(noting("220"), 220);
    Shutdown::addCallback(remove, 1);
    Shutdown::addCallback(first, 2);
    Shutdown::removeCallback(twin);
    Shutdown::removeCallback(Handle());
    EXPECT_EQ(twice.useCount(), 3u);
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "first0 220 twice0");
    EXPECT_EQ(twice.useCount(), 1u);
}

TEST(Shutdown, ExceptionReleasesTheRestOfTheFirstPassAndKeepsThatOfTheFinalOne)
{
    Shutdown::addCallback(Handle(), 0); // skipped
    Shutdown::addCallback(std::function<void()>(), 1);
    Shutdown::addCallback(Handle(new Noting("unrun")), 2);
    Shutdown::addCallback(Handle(), 201);
    Shutdown::addCallback(std::function<void(eExitType)>(), 201);
    Shutdown::addCallback(Handle(new Noting("kept")), 202);
    for (const char* after : {"~unrun", ""}) {
        EXPECT_THROW(Shutdown::executeCallbacks(kOrderlyExit), std::bad_function_call);
        EXPECT_EQ(takeEvents(), after);
        EXPECT_EQ(Shutdown::status, *after != 0 ? 1 : 2);
    }
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "kept0 ~kept");
}

TEST(Shutdown, FlushesStandardOutputBetweenThePasses)
{
    static std::vector<std::size_t> pending;
    const auto measure = [] { pending.push_back(__fpending(stdout)); };
    Shutdown::addCallback([measure] { std::fputs("four", stdout), measure(); }, 200);
    Shutdown::addCallback(measure, 201);
    EXPECT_EQ(printed([] { Shutdown::executeCallbacks(kOrderlyExit); }), "four");
    EXPECT_EQ(pending, (std::vector<std::size_t>{4, 0}));
}

TEST(Shutdown, SeparateListRunsWholeAndEndsEmpty)
{
    CallbackItemList list;
    list.add(CallbackItem([](eExitType) { note("late"); }, 300));
    const CallbackItem first([](eExitType) { note("first"); }, 5);
    list.add(first);
    list.add(first); // listed already
    list.execute(kOrderlyExit);
    list.execute(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "first late");
}

TEST(Shutdown, DestroyedListReleasesOneCallbackAtATimeAndRejectsOthers)
{
    const Handle removed(new Noting("removed"));
    {
        CallbackItemList list;
        const auto change = [&] {
            note("change");
            list.remove(removed);
            list.add({Handle(new Noting("added")), 0});
            note("end");
        };
        list.add({Handle(new Ending(change)), 1});
        list.add({removed, 2});
        list.add({Handle(new Ending(change)), 3});
    }
    EXPECT_EQ(takeEvents(), "change ~added end change ~added end");
    EXPECT_EQ(removed.useCount(), 1u);
}

TEST(ShutdownDeathTest, ExitWithCallbacksReleasesThem)
{
    const auto leave = [] {
        static const Handle removed(new Ending([] {}));
        const auto last = [] {
            Shutdown::removeCallback(removed);
            Shutdown::addCallback(noting("never"), 0);
            addSplatCallback([](const char* text) { std::fputs(text, stderr); });
            callSplatCallbacks("splat ");
        };
        Shutdown::addCallback(Handle(new Ending(last)), 1);
        Shutdown::addCallback(removed, 2);
        Shutdown::addCallback(Handle(new Ending(last)), 3);
        std::exit(0);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "^splat splat splat $");
}

TEST(Shutdown, ThreadsAddAndRemoveTogether)
{
    constexpr int kThreads = 4, kRounds = 500;
    CallbackItemList list;
    std::atomic<int> runs{0};
    onThreads(kThreads, [&](int) {
        for (int n = 0; n < kRounds; ++n) {
            const Handle kept(new Shutdown::FunctionCallback([&](eExitType) { ++runs; }));
            const Handle removed(new Shutdown::FunctionCallback([&](eExitType) { runs = -1; }));
            list.add(CallbackItem(removed, 7));
            list.add(CallbackItem(kept, 7));
            list.remove(removed);
            EXPECT_EQ(removed.useCount(), 1u);
            Shutdown::addCallback(kept, 7);
            Shutdown::removeCallback(kept);
            EXPECT_FALSE(Shutdown::isExiting());
        }
    });
    list.execute(kOrderlyExit);
    EXPECT_EQ(runs, kThreads * kRounds) << "sequence numbers are unique";
}

TEST(SplatCallbacks, RunInOrderWithRepetitions)
{
    static std::string expected;
    static const auto splat = +[](const char* text) { note(std::string("splat:") + text); };
    const auto adding = +[](const char* text) {
        note(std::string("adds:") + text);
        for (int i = 0; i < 100; ++i) { // reallocates the list
            addSplatCallback(splat);
            expected += " splat:x";
        }
    };
    callSplatCallbacks("none");
    for (const auto callback : {splat, adding, splat})
        addSplatCallback(callback);
    callSplatCallbacks("x");
    EXPECT_EQ(takeEvents(), "splat:x adds:x splat:x" + expected);
}
