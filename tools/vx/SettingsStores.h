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
    /// The file that gives the values that are missing in the store; empty if none does.
    std::filesystem::path inherited = {};

    /// Whether there are settings. \throws Failure if their files may not be read
    bool exists() const;
};

/// \param program "-" means the settings that programs share.
/// \throws Failure if it is empty
SettingsStore settingsStore(const std::string& program);

/// Section and key of every setting in the store, its journal and what it inherits, in order.
std::set<std::pair<std::string, std::string>> settingsIn(const SettingsStore& store);

/// Whether \p path exists. \throws Failure if it may not be read
bool isReadable(const std::filesystem::path& path);

/// Runs \p action as run() does, in a child process that counts as \p store's program, and returns
/// its exit status. Each process has the settings of one program, as of when it first asks.
int runAs(const SettingsStore& store, const std::function<int()>& action);

} // namespace tool
