// Commands.h - the commands: each adds itself below another. Nothing runs before the whole line
// has been understood.
#pragma once

#include "CommandLine.h"

namespace tool {

void addIni(Command top);
void addIniShow(Command ini);
void addIniGet(Command ini);
void addIniSet(Command ini);
void addIniUnset(Command ini);
void addIniCheck(Command ini);
void addIniDiff(Command ini);
void addUuid(Command top);
void addFcc(Command top);
void addMeta(Command top);
void addPools(Command top);
void addVersion(Command top);

} // namespace tool
