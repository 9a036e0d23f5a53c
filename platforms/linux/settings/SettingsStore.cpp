#include "settings/SettingsStore.h"

#include "diagnostics/Report.h"
#include "files/Folders.h"
#include "files/SystemCalls.h"
#include "settings/SettingsFile.h"

#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>

namespace {

struct Pending {
    std::string value;
    unsigned long generation; // of the setting; later settings have higher ones
};

SettingsFile::Place placeOf(int scope)
{
    const std::string userFolder = folderPath(FolderKind::kUserData) + "Vx/";
    if (scope == 0)
        return {userFolder, "user.ini"};
    const std::string machineFolder = machineSettingsFolder();
    const bool writable = retried(systemCalls.faccessat, AT_FDCWD, machineFolder.c_str(),
                                  W_OK | X_OK, AT_EACCESS) == 0;
    return {writable ? machineFolder : userFolder, "machine.ini"};
}

} // namespace

struct SettingsStore::State {
    explicit State(SettingsFile::Place where) : place(std::move(where)) {}

    const SettingsFile::Place place;
    SettingsText text;                      // all values, set and read
    SettingsText inherited;                 // of the machine, under a file of the user's
    std::map<SettingsKey, Pending> pending; // set since the last save
    unsigned long generation = 0;
};

SettingsStore::State& SettingsStore::loaded()
{
    if (state_ != nullptr)
        return *state_;
    std::unique_ptr<State> state(new State(placeOf(scope_)));
    SettingsFile(state->place).readOrSetAside(state->text);
    const std::string machineFolder = machineSettingsFolder();
    if (scope_ == 1 && state->place.folder != machineFolder) {
        SettingsFile machine({machineFolder, "machine.ini"});
        if (machine.read(state->inherited) == SettingsFile::Found::kBroken)
            report("the machine's settings are broken and not used:", machine.path().c_str(),
                   machine.error());
    }
    state_ = state.release();
    return *state_;
}

void SettingsStore::set(const SettingsKey& key, std::string_view value)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    State& state = loaded();
    std::map<SettingsKey, Pending> change;
    change.emplace(key, Pending{std::string(value), ++state.generation});
    state.text.set(key, value);
    // From here on nothing throws: what can be read will be saved.
    state.pending.erase(key);
    state.pending.merge(change);
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
    std::map<SettingsKey, Pending> pending;
    std::string known;
    unsigned long generation;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        State& state = loaded();
        if (state.pending.empty())
            return;
        pending = state.pending;
        known = state.text.bytes();
        generation = state.generation;
    }

    // The file object is this call's own: a child forked now finds nothing half changed.
    SettingsFile file(state_->place);
    if (const int error = file.lock()) {
        report("could not save the settings", file.path().c_str(), error,
               "the next save tries again");
        return;
    }
    SettingsText merged;
    const SettingsFile::Found found = file.read(merged);
    if (found == SettingsFile::Found::kUnreadable) {
        report("could not save the settings", file.path().c_str(), file.error(),
               "the next save tries again");
        return;
    }
    if (found == SettingsFile::Found::kBroken && !file.setAside())
        return; // not over what somebody may want to mend
    if (found != SettingsFile::Found::kText) {
        // Nothing usable stands there, so everything we know goes in.
        merged.parse(known);
    }
    for (const auto& [key, change] : pending)
        merged.set(key, change.value);
    if (!file.write(merged))
        return;
    file.unlock();

    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [key, change] : state_->pending)
        if (change.generation > generation)
            merged.set(key, change.value);
    state_->text.swap(merged);
    std::erase_if(state_->pending, [generation](const auto& change) {
        return change.second.generation <= generation;
    });
}

void SettingsStore::afterForkInChild()
{
    mutex_.unlock();
    // Whoever was saving is not in this process.
    new (&saving_) std::mutex;
}
