#include "Commands.h"

namespace tool {

void addIni(Command top)
{
    Command ini = top.add("ini", "Inspects and edits INI files");
    ini.needsCommand();
    ini.footer("A SECTION of '-' stands for the lines above the first header. A word that"
               " begins with '-'\ngoes behind '--'.");
    addIniShow(ini);
    addIniGet(ini);
    addIniSet(ini);
    addIniUnset(ini);
    addIniCheck(ini);
    addIniDiff(ini);
}

} // namespace tool
