// Folders.h - Paths of the user's and the machine's standard folders.
#pragma once

#include <string>

/// The kinds of iShell::getFolder(), by the XDG base-directory rules. A variable is used only
/// if it holds an absolute path. Without HOME the user database supplies the home folder.
namespace FolderKind {
constexpr int kHome = 0;       ///< HOME
constexpr int kDocuments = 1;  ///< HOME/Documents
constexpr int kTemporary = 2;  ///< TMPDIR, or /tmp
constexpr int kCache = 3;      ///< XDG_CACHE_HOME, or HOME/.cache
constexpr int kUserData = 4;   ///< XDG_CONFIG_HOME, or HOME/.config; also any other number
constexpr int kSharedData = 5; ///< XDG_DATA_HOME, or HOME/.local/share
constexpr int kState = 6;      ///< XDG_STATE_HOME, or HOME/.local/state
} // namespace FolderKind

/// Returns the path of a folder, ending in a separator. Does not create the folder.
/// \throws std::bad_alloc
std::string folderPath(int kind);

/// Returns whether the platform may create folders of \p kind: all but the home and the
/// temporary folder.
bool mayCreateFolder(int kind);

/// Returns the folder of the settings that the machine's users share: "Vx" in the first absolute
/// folder of XDG_CONFIG_DIRS, or in /etc/xdg. An administrator creates it.
std::string machineSettingsFolder();

/// Writes the names in folder \p path to the medium, as far as the user and the file system
/// allow.
void syncFolder(const std::string& path);

/// Creates \p path and its parents where missing, with mode 0700, and writes their names to the
/// medium: a power failure must not take a saved file's folder away.
/// \returns 0 if \p path is a folder now, or an errno value
int makeFolders(const std::string& path);
