#include "Commands.h"

namespace tool {

void addIni(Command top)
{
    Command ini = top.add("ini", "Inspects and edits INI files");
    ini.needsCommand();
    ini.footer("SECTION '-' means the lines before the first section. An argument that starts"
               " with '-'\nfollows '--'.");
    addIniShow(ini);
    addIniGet(ini);
    addIniSet(ini);
    addIniUnset(ini);
    addIniCheck(ini);
    addIniDiff(ini);
    addIniMerge(ini);
    addIniFmt(ini);
}

} // namespace tool
