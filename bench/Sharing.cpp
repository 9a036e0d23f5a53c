// Counted pointers and recursive locks.
#include "Inputs.h"
#include "Table.h"

#include <Vx/CriticalSection.h>
#include <Vx/VxObject.h>
#include <Vx/VxPtr.h>
#include <memory>
#include <mutex>

#if BENCH_QT
#include <QMutex>
#include <QSharedPointer>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::run;
using bench::State;

struct Counted : Vx::InternalRefCount {
    int value = 1;
};
struct Plain {
    int value = 1;
};

template <class Pointer> void copyAndDrop(State& state, const Pointer& source)
{
    run(state, Pointer(source).get() == source.get() && source->value == 1, [&] {
        const Pointer copy(source);
        keep(copy->value);
    });
}

// Enters a lock Depth times before leaving it as often.
template <int Depth, class Enter, class Leave>
void enterAndLeave(State& state, Enter enter, Leave leave)
{
    int inside = 0;
    run(state, true, [&] {
        for (int i = 0; i < Depth; ++i)
            enter();
        keep(++inside);
        for (int i = 0; i < Depth; ++i)
            leave();
    });
}

template <int Depth> void addLock(const char* operation)
{
    Row row("sharing", operation, {1.5, "std::recursive_mutex"});
    row.ours([](State& state) {
        CriticalSection lock;
        enterAndLeave<Depth>(
            state, [&] { lock.enter(); }, [&] { lock.leave(); });
    });
    row.peer("std::recursive_mutex", [](State& state) {
        std::recursive_mutex lock;
        enterAndLeave<Depth>(
            state, [&] { lock.lock(); }, [&] { lock.unlock(); });
    });
#if BENCH_QT
    row.peer("QRecursiveMutex", [](State& state) {
        QRecursiveMutex lock;
        enterAndLeave<Depth>(
            state, [&] { lock.lock(); }, [&] { lock.unlock(); });
    });
#endif
#if BENCH_GLIB
    row.peer("GRecMutex", [](State& state) {
        GRecMutex lock;
        g_rec_mutex_init(&lock);
        enterAndLeave<Depth>(
            state, [&] { g_rec_mutex_lock(&lock); }, [&] { g_rec_mutex_unlock(&lock); });
        g_rec_mutex_clear(&lock);
    });
#endif
}

} // namespace

void bench::addSharing()
{
    Row pointer("sharing", "pointer, copy and drop", {1.0});
    pointer.ours([](State& state) { copyAndDrop(state, Vx::Ptr<Counted>(new Counted)); });
    pointer.peer("std::shared_ptr",
                 [](State& state) { copyAndDrop(state, std::make_shared<Plain>()); });
#if BENCH_QT
    pointer.peer("QSharedPointer", [](State& state) {
        const auto source = QSharedPointer<Plain>::create();
        copyAndDrop(state, source);
    });
#endif
#if BENCH_BOOST
    struct Intrusive : boost::intrusive_ref_counter<Intrusive> {
        int value = 1;
    };
    pointer.peer("boost::intrusive_ptr", [](State& state) {
        copyAndDrop(state, boost::intrusive_ptr<Intrusive>(new Intrusive));
    });
#endif
    addLock<1>("lock, uncontended");
    addLock<3>("lock, uncontended, three deep");
}
