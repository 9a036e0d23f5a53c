// Folders.h - where the user's and the machine's things are.
#pragma once

#include <string>
#include <sys/types.h>

/// The path of a folder of Shell::getFolder(), UTF-8, ending with a separator. Made by
/// nobody yet. \throws std::bad_alloc
std::string folderPath(int kind);

/// Whether folders of \p kind are this user's to make: not the home folder, for example.
bool isOwnFolder(int kind);

/// The folder "Vx" of the machine's configuration: in the first absolute folder of
/// XDG_CONFIG_DIRS, /etc/xdg when there is none. An administrator makes it.
std::string machineSettingsFolder();

/// Puts the names in \p path on the medium, as far as this user and the file system can.
void syncFolder(const std::string& path);

/// Makes \p path and the folders above it where missing, for this user alone, and puts their
/// names on the medium: what is saved in a new folder must not go with it.
/// \returns 0 when the folder stands, an errno value otherwise
int makeFolders(const std::string& path);
