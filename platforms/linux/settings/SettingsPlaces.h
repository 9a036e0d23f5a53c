// SettingsPlaces.h - The files in which settings are stored.
#pragma once

#include <string>
#include <sys/types.h>

/// The files of one store. All paths are absolute.
struct SettingsPlace {
    std::string folder;     ///< of all these files; ends in a separator
    std::string store;      ///< what was saved, see SettingsText
    std::string journal;    ///< what was set since, see SettingsJournal
    std::string lock;       ///< locked while the store is replaced; empty, never removed
    std::string former;     ///< read as long as there is no store; may be empty
    std::string inherited;  ///< supplies what is missing in the store; may be empty
    mode_t mode = 0600;     ///< of a new store
    mode_t lockMode = 0600; ///< of a new journal and lock: only those who may write need them
};

/// Returns the name that this program's settings go by: the host's choice, or else the name of
/// the executable. The C library keeps it in `program_invocation_short_name`, which a host may
/// assign before it uses settings. Characters that cannot be part of a file name, and a leading
/// dot, become %XX; names are cut at 200 bytes. \throws std::bad_alloc
std::string settingsProgramName();

/// Returns the place of a program's settings: <user data folder>/Vx/programs/<program>.ini.
/// Until this file exists, <user data folder>/Vx/user.ini is read, which all programs of the
/// user once shared. \throws std::bad_alloc
SettingsPlace programSettings(const std::string& program);

/// Returns the place of the machine's settings: <machine settings folder>/machine.ini if this
/// user may replace files there; new files then have the folder's permissions. Otherwise
/// <user data folder>/Vx/machine.ini, which inherits from the former. \throws std::bad_alloc
SettingsPlace machineSettings();
