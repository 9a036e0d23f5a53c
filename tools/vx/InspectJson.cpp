#include "InspectReport.h"
#include "Json.h"

#include <fmt/format.h>

namespace tool {
namespace {

using namespace inspect;

std::string hex(Address address) { return fmt::format("{:#x}", address); }

Json locksOf(const InspectReport& report)
{
    Json locks = Json::array();
    for (const Lock& lock : report.snapshot.locks) {
        Json waiting = Json::array();
        for (const unsigned int thread : lock.waiting)
            waiting.push_back(thread);
        const Json owner = lock.changing ? Json(nullptr) : Json(lock.owner);
        locks.push_back({{"name", lock.name},
                         {"place", lock.place},
                         {"owner", owner},
                         {"ownerEnded", lock.ownerEnded},
                         {"depth", lock.changing ? Json(nullptr) : Json(lock.depth)},
                         {"changing", lock.changing},
                         {"waiting", lock.futex != 0 ? waiting : Json(nullptr)}});
    }
    return locks;
}

Json deadlocksOf(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    Json deadlocks = Json::array();
    for (const Deadlock& deadlock : snapshot.deadlocks) {
        Json steps = Json::array();
        for (const Deadlock::Step& step : deadlock.steps)
            steps.push_back({{"thread", step.thread},
                             {"holds", snapshot.locks[step.holds].name},
                             {"waitsFor", snapshot.locks[step.waitsFor].name}});
        deadlocks.push_back({{"sentence", deadlockText(snapshot, deadlock)}, {"steps", steps}});
    }
    return snapshot.platformKnown ? deadlocks : Json(nullptr);
}

Json applicationOf(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    const Json state = snapshot.shutdown ? Json(stateText(*snapshot.shutdown)) : Json(nullptr);
    if (!snapshot.application)
        return {{"library", snapshot.libraryVersion}, {"state", state}};
    const Application& application = *snapshot.application;
    return {{"name", application.name},
            {"version", application.version},
            {"userData", application.userDataPath},
            {"logs", application.logsPath},
            {"previousExitWasNormal", application.previousExitWasNormal},
            {"library", snapshot.libraryVersion},
            {"state", state}};
}

Json shutdownOf(const InspectReport& report)
{
    if (!report.snapshot.shutdown)
        return nullptr;
    const ShutdownList& shutdown = *report.snapshot.shutdown;
    Json callbacks = Json::array();
    for (const Callback& callback : shutdown.callbacks)
        callbacks.push_back({{"priority", callback.priority},
                             {"function", callbackText(report, callback)},
                             {"module", report.symbols.module(callback.function)},
                             {"firstPass", callback.firstPass},
                             {"running", callback.running}});
    return {{"status", shutdown.status},
            {"ended", shutdown.ended},
            {"complete", shutdown.complete},
            {"callbacks", callbacks}};
}

Json namesOf(const InspectReport& report)
{
    Json names = Json::array();
    for (const NamedObject& name : report.snapshot.names) {
        const Lock& lock = report.snapshot.locks[name.lock];
        names.push_back({{"namespace", name.space},
                         {"type", demangled(name.type)},
                         {"name", name.name},
                         {"object", name.object != 0 ? Json(hex(name.object)) : Json(nullptr)},
                         {"lockOwner", lock.changing ? Json(nullptr) : Json(lock.owner)}});
    }
    return names;
}

Json poolsOf(const InspectReport& report)
{
    Json pools = Json::array();
    for (const Pool& pool : report.snapshot.pools)
        pools.push_back({{"pool", pool.name},
                         {"inUse", pool.inUse},
                         {"mostInUse", pool.maxInUse},
                         {"peakPerSecond", pool.peakDemand},
                         {"peakMsecs", pool.peakTime},
                         {"peakWallTime", pool.peakWallTime}});
    return pools;
}

Json memoryOf(const InspectReport& report)
{
    const Memory& memory = report.snapshot.memory;
    Json sizes = Json::array();
    for (const BlockSize& size : memory.sizes)
        sizes.push_back({{"blockSize", size.size},
                         {"spans", size.spans},
                         {"liveOrCached", size.blocks - size.free},
                         {"free", size.free}});
    const Json spans = memory.known ? Json(memory.spans * memory.spanSize) : Json(nullptr);
    return {{"smallBlocks", memory.known ? sizes : Json(nullptr)},
            {"bytesOfSpans", spans},
            {"privateBytes", memory.anonymous ? Json(*memory.anonymous) : Json(nullptr)}};
}

Json threadsOf(const InspectReport& report)
{
    Json threads = Json::array();
    for (const Thread& thread : report.snapshot.threads) {
        Json stack = Json::array();
        if (report.stacks)
            for (const Symbols::Frame& frame : report.symbols.stack(thread))
                stack.push_back({{"address", hex(frame.address)},
                                 {"function", frame.function},
                                 {"module", frame.module}});
        threads.push_back({{"thread", thread.innerId},
                           {"name", thread.name},
                           {"state", thread.state != 0 ? std::string(1, thread.state) : ""},
                           {"stack", report.stacks ? stack : Json(nullptr)}});
    }
    return threads;
}

} // namespace

void printJson(const InspectReport& report)
{
    static constexpr Json (*kSections[])(const InspectReport&) = {
        deadlocksOf, locksOf, applicationOf, shutdownOf, namesOf, poolsOf, memoryOf, threadsOf};
    if (!report.section.empty()) {
        for (std::size_t i = 0; i < std::size(kSections); ++i)
            if (report.has(kInspectSections[i]))
                printJson(kSections[i](report));
        return;
    }
    Json notes = Json::array();
    for (const std::string& note : report.snapshot.notes)
        notes.push_back(note);
    printJson({{"process", report.process.id()},
               {"name", report.process.name()},
               {"deadlocks", deadlocksOf(report)},
               {"locks", locksOf(report)},
               {"application", applicationOf(report)},
               {"shutdown", shutdownOf(report)},
               {"names", namesOf(report)},
               {"pools", poolsOf(report)},
               {"memory", memoryOf(report)},
               {"threads", threadsOf(report)},
               {"notes", notes}});
}

} // namespace tool
