// SettingsStores.h - The settings stores of the reference platform.
#pragma once

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tool {

/// The folder of the user's stores. \throws Failure if there is none
std::filesystem::path userSettingsFolder();
/// The folder of the stores that programs of all users share.
std::filesystem::path machineSettingsFolder();

/// One store: a program's, or the one that programs share.
struct SettingsStore {
    int scope;                  ///< for iShell::getSettings()
    std::string program;        ///< empty if shared
    std::filesystem::path file; ///< where values are saved; it may not exist yet

    /// Whether the store or its journal exists.
    bool exists() const;
};

/// \param program "-" means the settings that programs share.
SettingsStore settingsStore(const std::string& program);

/// Section and key of every setting in the store and its journal, in order.
std::set<std::pair<std::string, std::string>> settingsIn(const SettingsStore& store);

/// Runs \p action in a child process that counts as \p store's program, and returns its exit
/// status or -1. Each process has the settings of one program, as of when it first asks.
int runAs(const SettingsStore& store, const std::function<int()>& action);

} // namespace tool
