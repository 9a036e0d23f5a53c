// Commands.h - Each function adds one command below another.
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
