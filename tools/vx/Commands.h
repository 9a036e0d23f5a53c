// Commands.h - the subcommands: each adds itself to the command line.
#pragma once

#include "Tool.h"

#include <CLI/CLI.hpp>

namespace tool {

/// Adds a subcommand to \p app. When it stands on the command line, \p chosen becomes what
/// it does; nothing runs before the whole line has been understood.
void addIni(CLI::App& app, Action& chosen);
void addIniShow(CLI::App& ini, Action& chosen);
void addIniGet(CLI::App& ini, Action& chosen);
void addIniSet(CLI::App& ini, Action& chosen);
void addIniUnset(CLI::App& ini, Action& chosen);
void addIniCheck(CLI::App& ini, Action& chosen);
void addIniDiff(CLI::App& ini, Action& chosen);
void addUuid(CLI::App& app, Action& chosen);
void addFcc(CLI::App& app, Action& chosen);
void addMeta(CLI::App& app, Action& chosen);
void addPools(CLI::App& app, Action& chosen);
void addVersion(CLI::App& app, Action& chosen);

} // namespace tool
