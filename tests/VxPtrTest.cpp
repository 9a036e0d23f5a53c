#include <Vx/VxPtr.h>

#include <Vx/VxTypeManip.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

int living = 0;

struct Shared : iObject {
    Shared() { ++living; }
    ~Shared() override { --living; }
    int answer = 42;
};
struct SharedTwice : Shared {
    ~SharedTwice() override { living += 100; }
};
struct Plain {
    Plain() { ++living; }
    ~Plain() { --living; }
};
using External = Vx::Ptr<Plain, Vx::DtorTraits, Vx::ExternalRefCountTraits>;

} // namespace

TEST(VxPtr, LastPointerDestroysOnce)
{
    living = 0;
    Vx::Ptr<Shared> first(new Shared);
    EXPECT_EQ(first.useCount(), 1u);
    {
        Vx::Ptr<Shared> second(first);
        Vx::Ptr<Shared> again(second.get()); // finds the count in the object
        EXPECT_EQ(first.useCount(), 3u);
        EXPECT_TRUE(first == second && again == first);
        EXPECT_FALSE(first != second || first == Vx::Ptr<Shared>() || nullptr == first);
        EXPECT_TRUE(first != Vx::Ptr<Shared>() && first != nullptr && nullptr != first);
        EXPECT_EQ(living, 1);
    }
    EXPECT_EQ(first.useCount(), 1u);
    first.reset();
    EXPECT_EQ(living, 0);
    EXPECT_TRUE(first == nullptr);
}

TEST(VxPtr, EmptyPointerTouchesNothing)
{
    Vx::Ptr<Shared> empty(static_cast<Shared*>(nullptr));
    Vx::Ptr<Shared> copy(empty);
    copy = empty;
    copy.incRef();
    copy.decRef();
    EXPECT_FALSE(copy);
    EXPECT_EQ(copy.useCount(), 0u);
    unsigned int counter = 5;
    Vx::Ptr<Shared> none(&counter, nullptr);
    none.reset();
    EXPECT_EQ(counter, 5u);
}

TEST(VxPtr, ExternalCountFreesCounterAndObject)
{
    living = 0;
    ScriptedPlatform platform;
    {
        External first(new Plain);
        External second(first);
        EXPECT_EQ(platform.liveBlocks(), 2);
        EXPECT_EQ(second.useCount(), 2u);
    }
    Plain* const object = new Plain;
    platform.failAllocation(1);
    EXPECT_THROW(External{object}, std::bad_alloc);
    EXPECT_EQ(platform.liveBlocks(), 0);
    EXPECT_EQ(living, 0);
}

TEST(VxPtr, CountsPlatformObjectsAndRunsTheDerivedDestructor)
{
    living = 0;
    unsigned int counter = 0;
    {
        Vx::Ptr<SharedTwice> first(&counter, new SharedTwice);
        EXPECT_EQ(counter, 1u);
        Vx::Ptr<iObject> base(first);
        EXPECT_EQ(counter, 2u);
        first.reset();
        EXPECT_EQ(living, 1);
    }
    EXPECT_EQ(counter, 0u);
    EXPECT_EQ(living, 100);
}

TEST(VxPtr, AssignmentInstallsBeforeItReleases)
{
    static iObject* seen;
    struct Watcher : iObject {
        explicit Watcher(Vx::Ptr<iObject>& holder) : holder(holder) {}
        ~Watcher() override { seen = holder.get(); }
        Vx::Ptr<iObject>& holder;
    };
    Vx::Ptr<iObject> holder;
    holder = Vx::Ptr<Watcher>(new Watcher(holder));
    const Vx::Ptr<iObject> next{Vx::Ptr<Shared>(new Shared)};
    holder = next;
    EXPECT_EQ(seen, next.get());
    Vx::Ptr<iObject>& itself = holder;
    holder = itself;
    EXPECT_EQ(next.useCount(), 2u);
    holder = std::move(itself);
    EXPECT_EQ(next.useCount(), 2u);
}

TEST(VxPtr, DecRefDeliberatelyKeepsTheAddressesWhileOthersHold)
{
    Vx::Ptr<Shared> first(new Shared);
    first.incRef();
    first.decRef();
    EXPECT_EQ(first->answer, 42);
    first.decRef();
    EXPECT_EQ(first.get(), nullptr);
}

TEST(VxPtr, CopyingAnObjectDoesNotCopyItsCount)
{
    Vx::Ptr<Shared> original(new Shared);
    Vx::Ptr<Shared> copy(new Shared(*original));
    EXPECT_EQ(copy.useCount(), 1u);
    *copy = *original;
    EXPECT_EQ(copy.useCount(), 1u);
}

TEST(VxPtr, PointersOnManyThreadsDestroyOnce)
{
    constexpr int kThreads = 4;
    struct Counted : iObject {
        explicit Counted(std::atomic<int>& deaths) : deaths(deaths) {}
        ~Counted() override { ++deaths; }
        std::atomic<int>& deaths;
    };
    std::atomic<int> deaths{0};
    for (int round = 0; round < 50; ++round) {
        std::vector<Vx::Ptr<Counted>> holders(kThreads, Vx::Ptr<Counted>(new Counted(deaths)));
        onThreads(kThreads, [&](int i) {
            Vx::Ptr<Counted>& mine = holders[static_cast<std::size_t>(i)];
            for (int n = 0; n < 200; ++n)
                Vx::Ptr<Counted> copy(mine);
            mine.reset();
        });
        ASSERT_EQ(deaths, round + 1);
    }
}

static_assert(sizeof(Vx::Ptr<Shared>) == 2 * sizeof(void*), "two pointers and nothing else");
static_assert(!std::is_convertible_v<Shared*, Vx::Ptr<Shared>>, "taking ownership is explicit");
static_assert(!std::is_constructible_v<Vx::Ptr<Shared>, Vx::Ptr<iObject>>, "no implicit downcast");

TEST(TypeManip, CreatesObjectsThroughAFunctionPointer)
{
    living = 0;
    void* (*const factory)() = Vx::TypeManip::TemplatedNew<Plain>::new_;
    delete static_cast<Plain*>(factory());
    EXPECT_EQ(living, 0);
}
