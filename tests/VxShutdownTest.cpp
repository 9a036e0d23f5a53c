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

} // namespace

TEST(Shutdown, RunsByPriorityThenByAgeInTwoPasses)
{
    Shutdown::addCallback(noting("300"), 300);
    Shutdown::addCallback(noting("5a"), 5);
    Shutdown::addCallback(noting("201"), 201);
    Shutdown::addCallback(noting("200"), 200);
    Shutdown::addCallback(noting("5b"), 5);
    Shutdown::addCallback(noting("last"), 0xFFFFFFFFu);
    Shutdown::addCallback([](eExitType type) { note("0:" + std::to_string(type)); }, 0);
    for (unsigned int priority : {200u, 201u})
        Shutdown::addCallback([] { note("status" + std::to_string(Shutdown::status)); }, priority);
    EXPECT_FALSE(Shutdown::isExiting());
    EXPECT_EQ(Shutdown::status, 0);
    Shutdown::executeCallbacks(static_cast<eExitType>(9));
    EXPECT_EQ(takeEvents(), "0:9 5a 5b 200 status1 201 status2 300 last");
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

TEST(Shutdown, CallbacksMayRemoveWhileRunning)
{
    const Handle firstPass(new Noting("first"));
    const Handle finalPass(new Noting("final"));
    Shutdown::addCallback(
        [&] {
            Shutdown::removeCallback(firstPass); // too late: not listed any more
            Shutdown::removeCallback(finalPass);
        },
        1);
    Shutdown::addCallback(firstPass, 2);
    Shutdown::addCallback(finalPass, 202);
    Shutdown::addCallback(noting("end"), 203);
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "first0 end");
}

TEST(Shutdown, RemovesTheFirstInOrderByIdentity)
{
    const Handle twice(new Noting("twice"));
    const Handle twin(new Noting("twice"));
    Shutdown::addCallback(twice, 30);
    Shutdown::addCallback(twice, 10);
    Shutdown::addCallback(noting("20"), 20);
    Shutdown::removeCallback(twin);
    Shutdown::removeCallback(Handle());
    EXPECT_EQ(twice.useCount(), 3u);
    Shutdown::removeCallback(twice);
    EXPECT_EQ(twice.useCount(), 2u);
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "20 twice0");
    EXPECT_EQ(twice.useCount(), 1u);
}

TEST(Shutdown, ExceptionReleasesTheRestOfTheFirstPassAndKeepsThatOfTheFinalOne)
{
    const auto stop = [] { throw std::runtime_error("stop"); };
    Shutdown::addCallback(Handle(), 0); // skipped
    Shutdown::addCallback(stop, 1);
    Shutdown::addCallback(Handle(new Noting("unrun")), 2);
    Shutdown::addCallback(Handle(), 201);
    Shutdown::addCallback(stop, 201);
    Shutdown::addCallback(Handle(new Noting("kept")), 202);
    for (const char* after : {"~unrun", ""}) {
        EXPECT_THROW(Shutdown::executeCallbacks(kOrderlyExit), std::runtime_error);
        EXPECT_EQ(takeEvents(), after);
        EXPECT_EQ(Shutdown::status, *after != 0 ? 1 : 2);
    }
    Shutdown::executeCallbacks(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "kept0 ~kept");
}

TEST(Shutdown, EmptyFunctionsThrowWhenCalled)
{
    Shutdown::addCallback(std::function<void()>(), 1);
    EXPECT_THROW(Shutdown::executeCallbacks(kOrderlyExit), std::bad_function_call);
    Shutdown::beginShutdown();
    Shutdown::addCallback(std::function<void(eExitType)>(), 1);
    EXPECT_THROW(Shutdown::executeCallbacks(kOrderlyExit), std::bad_function_call);
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
    const auto item = [](const char* word, unsigned int priority) {
        return CallbackItem([word](eExitType) { note(word); }, priority);
    };
    CallbackItemList list;
    list.add(item("late", 300));
    list.add(item("first", 5));
    const CallbackItem second = item("second", 5);
    list.add(second);
    list.add(second); // listed already
    list.execute(kOrderlyExit);
    list.execute(kOrderlyExit);
    EXPECT_EQ(takeEvents(), "first second late");
}

namespace {

// A callback whose destructor does something.
struct Ending : Shutdown::Callback {
    explicit Ending(std::function<void()> last) : last(std::move(last)) {}
    ~Ending() override { last(); }
    void execute(const eExitType&) override {}
    std::function<void()> last;
};

} // namespace

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
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
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
    static const auto splat = +[](const char* text) { note(std::string("splat:") + text); };
    const auto splatOnce = +[](const char* text) {
        note(std::string("adds:") + text);
        static bool added = false;
        if (!std::exchange(added, true))
            for (int i = 0; i < 100; ++i) // reallocates the list
                addSplatCallback(splat);
    };
    callSplatCallbacks("none");
    for (const auto callback : {splat, splatOnce, splat})
        addSplatCallback(callback);
    std::string expected = "splat:x adds:x splat:x";
    for (int i = 0; i < 100; ++i)
        expected += " splat:x";
    callSplatCallbacks("x");
    EXPECT_EQ(takeEvents(), expected);
}
