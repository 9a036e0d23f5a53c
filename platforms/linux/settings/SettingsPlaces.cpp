#include "settings/SettingsPlaces.h"

#include "files/Folders.h"
#include "files/SystemCalls.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMaxNameLength = 200; // leaves room for the longest suffix

std::string userFolder() { return folderPath(FolderKind::kUserData) + "Vx/"; }

SettingsPlace placeIn(const std::string& folder, const std::string& name, const std::string& lock)
{
    SettingsPlace place;
    place.folder = folder;
    place.store = folder + name + ".ini";
    place.journal = folder + name + ".journal";
    place.lock = folder + lock;
    return place;
}

/// Returns whether this user may create, replace and remove files in the folder.
bool isOurs(const std::string& folder, struct stat& status)
{
    if (retried(systemCalls.faccessat, AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0 ||
        retried(systemCalls.fstatat, AT_FDCWD, folder.c_str(), &status, 0) != 0)
        return false;
    const uid_t user = geteuid();
    return (status.st_mode & S_ISVTX) == 0 || user == 0 || user == status.st_uid;
}

} // namespace

std::string settingsProgramName()
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string name;
    for (const char* c = program_invocation_short_name; *c != '\0'; ++c) {
        const unsigned char byte = static_cast<unsigned char>(*c);
        if (byte < 0x20 || byte == 0x7F || *c == '/' || *c == '%' || (*c == '.' && name.empty()))
            name.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
        else
            name += *c;
    }
    if (name.empty())
        name = "program";
    name.resize(std::min(name.size(), kMaxNameLength));
    return name;
}

SettingsPlace programSettings(const std::string& program)
{
    SettingsPlace place = placeIn(userFolder() + "programs/", program, program + ".lock");
    place.former = userFolder() + "user.ini";
    return place;
}

SettingsPlace machineSettings()
{
    const std::string folder = machineSettingsFolder();
    struct stat status;
    if (isOurs(folder, status)) {
        SettingsPlace place = placeIn(folder, "machine", "lock");
        place.mode = 0600 | (status.st_mode & 0066);
        place.lockMode = 0600 | ((status.st_mode & S_IWGRP) != 0 ? 0060 : 0) |
                         ((status.st_mode & S_IWOTH) != 0 ? 0006 : 0);
        return place;
    }
    SettingsPlace place = placeIn(userFolder(), "machine", "lock");
    place.inherited = folder + "machine.ini";
    return place;
}
