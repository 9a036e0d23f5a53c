// SettingsStore.h - the values of one scope, in memory and in a file.
#pragma once

#include "settings/SettingsText.h"

#include <mutex>
#include <string>
#include <string_view>

/// What Settings describes, for one scope. Lives as long as the process: constant-
/// initialised, without a destructor.
class SettingsStore {
public:
    constexpr explicit SettingsStore(int scope) : scope_(scope) {}

    void set(const SettingsKey& key, std::string_view value);

    /// \returns false when no value is stored
    bool get(const SettingsKey& key, std::string& value);

    void save();

    // Around fork(): the child must find the values whole and every lock free.
    void beforeFork() { mutex_.lock(); }
    void afterForkInParent() { mutex_.unlock(); }
    void afterForkInChild();

private:
    struct State;

    State& loaded();

    const int scope_;
    std::mutex saving_; // taken first; held while the file is read and written
    std::mutex mutex_;  // guards the values; never held while another process is waited for
                        // except at the first use
    State* state_ = nullptr;
};
