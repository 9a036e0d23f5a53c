// SettingsStore.h - The values of one scope, in memory and in files.
#pragma once

#include "settings/SettingsText.h"

#include <mutex>
#include <string>
#include <string_view>

class SettingsFile;
class SettingsJournal;

/// The settings of one scope, as Settings.h describes them. Constant-initialised and without a
/// destructor, so that it works as long as the process lives.
class SettingsStore {
public:
    constexpr explicit SettingsStore(int scope) : scope_(scope) {}

    void set(const SettingsKey& key, std::string_view value);

    /// \returns false if no value is stored; \p value is unchanged then
    bool get(const SettingsKey& key, std::string& value);

    void save();

    // Handlers for fork(): the child finds consistent values and free locks.
    void beforeFork() { mutex_.lock(); }
    void afterForkInParent() { mutex_.unlock(); }
    void afterForkInChild();

private:
    struct State;
    struct Save;

    State& loaded();
    static void load(State& state);
    static bool change(State& state, const SettingsKey& key, std::string_view value);
    static bool replaceStore(Save& save);
    static bool merge(Save& save, SettingsFile& file, SettingsJournal& journal, bool hasJournal);

    const int scope_;
    std::mutex saving_; // taken before mutex_; held while the store is replaced
    std::mutex mutex_;  // guards state_; held while the journal is read or appended to, but not
                        // while the store is replaced
    State* state_ = nullptr;
};
