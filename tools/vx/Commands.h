// Commands.h - The commands of vx.
#pragma once

#include "CommandLine.h"

namespace tool {

/// Runs the command that the command line names and returns the exit status.
Status runVx(int argc, const char* const* argv);

// Each adds one command below another.
void addInspect(Command top);
void addIni(Command top);
void addIniShow(Command ini);
void addIniGet(Command ini);
void addIniSet(Command ini);
void addIniUnset(Command ini);
void addIniCheck(Command ini);
void addIniDiff(Command ini);
void addIniMerge(Command ini);
void addIniFmt(Command ini);
void addUuid(Command top);
void addFcc(Command top);
void addMeta(Command top);
void addPools(Command top);
void addSettings(Command top);
void addVersion(Command top);

} // namespace tool
