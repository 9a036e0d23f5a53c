#include "settings/SettingsStore.h"

#include "diagnostics/Report.h"
#include "settings/SettingsFile.h"
#include "settings/SettingsJournal.h"
#include "settings/SettingsPlaces.h"

#include <memory>
#include <new>

namespace {

// A journal of this size is folded into the store, and stays locked meanwhile: otherwise it could
// grow faster than it is folded.
constexpr unsigned long kFoldSize = 4u << 20;

struct Pending {
    std::string value;
    unsigned long generation; // of the change; later changes have higher ones
};
using Changes = std::map<SettingsKey, Pending>;

std::string recordsOf(const Changes& changes)
{
    std::string records;
    for (const auto& [key, change] : changes)
        records += SettingsJournal::record(key, change.value);
    return records;
}

bool reportUnsaved(const SettingsFile& file, int error, const SettingsJournal& journal)
{
    const std::string& path = journal.path();
    return error == EWOULDBLOCK
               ? file.reportUnsaved(0, journal.holder() + " holds the lock of " + path)
               : file.reportUnsaved(error, "the error is in " + path);
}

} // namespace

struct SettingsStore::State {
    explicit State(SettingsPlace where) : place(std::move(where)) {}

    const SettingsPlace place;
    SettingsText text;      // all values
    SettingsText inherited; // values that apply where text has none
    Changes pending;        // set since the last save
    unsigned long generation = 0;
    ino_t journal = 0;         // the identity of the journal that holds what is pending
    bool unrecorded = false;   // some of what is pending may be missing in the journal
    bool hasLeftovers = false; // the journal held changes when it was read
};

/// What one call of save() works on. A child that is forked meanwhile finds nothing half changed.
struct SettingsStore::Save {
    explicit Save(const State& state)
        : place(state.place),
          pending(state.pending),
          known(state.text.bytes()),
          generation(state.generation),
          journalOfPending(state.journal),
          unrecorded(state.unrecorded)
    {}

    const SettingsPlace& place;
    const Changes pending;
    const std::string known; // the bytes of all values
    const unsigned long generation;
    const ino_t journalOfPending;
    const bool unrecorded;
    SettingsText merged; // what is saved
};

SettingsStore::State& SettingsStore::loaded()
{
    if (state_ == nullptr) {
        auto state = std::make_unique<State>(scope_ == 0 ? programSettings(settingsProgramName())
                                                         : machineSettings());
        load(*state);
        state_ = state.release();
    }
    return *state_;
}

void SettingsStore::load(State& state)
{
    const SettingsPlace& place = state.place;
    // While the journal is locked, no process empties it: what is missing in the store is in it.
    SettingsJournal journal(place);
    int error = journal.openToRead();
    SettingsFile file(place);
    if (file.readAndReport(place.store, state.text) == SettingsFile::Found::kNothing &&
        !place.former.empty())
        file.readAndReport(place.former, state.text);
    if (!place.inherited.empty())
        file.readAndReport(place.inherited, state.inherited);
    if (error == 0 || error == EWOULDBLOCK) {
        const SettingsJournal::Content content = journal.read(state.text);
        error = content.error;
        state.hasLeftovers = content.hasChanges || content.isDamaged;
        if (content.isDamaged)
            report("ignored an incomplete change in", place.journal.c_str(), 0,
                   "a process died while it wrote it");
    }
    if (!SettingsJournal::isAbsent(error) && error != 0)
        report("could not read the settings", place.journal.c_str(), error,
               "what was set but not saved is missing");
}

void SettingsStore::set(const SettingsKey& key, std::string_view value)
{
    bool isJournalLarge;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        isJournalLarge = change(loaded(), key, value);
    }
    if (isJournalLarge)
        try {
            save();
        } catch (const std::bad_alloc&) {
            // The value is set and recorded: a later save may find more memory.
        }
}

/// \returns whether the journal has just reached a multiple of kFoldSize
bool SettingsStore::change(State& state, const SettingsKey& key, std::string_view value)
{
    Changes added;
    added.emplace(key, Pending{std::string(value), state.generation + 1});
    std::string records = SettingsJournal::record(key, value);
    SettingsJournal journal(state.place);
    // Wait for a lock once, not again at every change that follows.
    int error = journal.openToAppend(state.unrecorded ? LockedFile::Patience::kNone
                                                      : LockedFile::Patience::kBounded);
    std::string detail = "it is kept in memory";
    if (error == EWOULDBLOCK && !state.unrecorded)
        detail = journal.holder() + " holds the lock; " + detail;
    // A file that someone has removed took the earlier changes along.
    const bool isMissing = !state.pending.empty() && journal.identity() != state.journal;
    if (error == 0 && (state.unrecorded || isMissing))
        records.insert(0, recordsOf(state.pending));
    state.text.set(key, value);

    // From here on nothing throws: what can be read will be saved.
    ++state.generation;
    state.pending.erase(key);
    state.pending.merge(added);
    if (error == 0)
        error = journal.append(records);
    if (error != 0) {
        if (!state.unrecorded)
            report("could not record a setting in", state.place.journal.c_str(),
                   error != EWOULDBLOCK ? error : 0, detail.c_str());
        state.unrecorded = true;
        return false;
    }
    state.unrecorded = false;
    state.journal = journal.identity();
    return journal.size() / kFoldSize != (journal.size() + records.size()) / kFoldSize;
}

bool SettingsStore::get(const SettingsKey& key, std::string& value)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    State& state = loaded();
    const std::string* stored = state.text.find(key);
    if (stored == nullptr)
        stored = state.inherited.find(key);
    if (stored == nullptr)
        return false;
    value = *stored;
    return true;
}

void SettingsStore::save()
{
    const std::lock_guard<std::mutex> savingGuard(saving_);
    std::unique_ptr<Save> save;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const State& state = loaded();
        if (state.pending.empty() && !state.hasLeftovers)
            return;
        save = std::make_unique<Save>(state);
    }
    if (!replaceStore(*save))
        return;

    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [key, change] : state_->pending)
        if (change.generation > save->generation)
            save->merged.set(key, change.value);
    state_->text.swap(save->merged);
    std::erase_if(state_->pending, [&save](const auto& change) {
        return change.second.generation <= save->generation;
    });
    state_->unrecorded = state_->unrecorded && !state_->pending.empty();
    state_->hasLeftovers = false;
}

/// Replaces the store by what it holds, with the changes in the journal. \returns false after a
/// report on standard error
bool SettingsStore::replaceStore(Save& save)
{
    SettingsFile file(save.place);
    if (!file.lock())
        return false;
    SettingsJournal journal(save.place);
    const int error = journal.openToFold();
    const bool hasJournal = !SettingsJournal::isAbsent(error);
    if (error != 0 && hasJournal)
        return reportUnsaved(file, error, journal);
    if (!merge(save, file, journal, hasJournal))
        return false;
    // Changes can go on while the store is replaced, which takes long: they stay in the journal.
    if (journal.size() < kFoldSize && !save.unrecorded)
        journal.unlock();
    if (!file.write(save.merged))
        return false;
    // What stays in the journal by mistake would overrule the store.
    const int clearError = hasJournal ? journal.clear() : 0;
    return clearError == 0 || reportUnsaved(file, clearError, journal);
}

bool SettingsStore::merge(Save& save, SettingsFile& file, SettingsJournal& journal, bool hasJournal)
{
    switch (file.read(save.place.store, save.merged)) {
    case SettingsFile::Found::kText: break;
    case SettingsFile::Found::kNothing: save.merged.parse(save.known); break;
    case SettingsFile::Found::kUnreadable: return file.reportUnsaved(file.error());
    }
    if (hasJournal)
        if (const int error = journal.read(save.merged).error)
            return reportUnsaved(file, error, journal);
    // What is recorded must not be set once more: another process may have changed it since.
    if (save.unrecorded || !hasJournal || journal.identity() != save.journalOfPending)
        for (const auto& [key, change] : save.pending)
            save.merged.set(key, change.value);
    return true;
}

void SettingsStore::afterForkInChild()
{
    mutex_.unlock();
    // The thread that was saving, if any, does not exist in this process.
    new (&saving_) std::mutex;
}
