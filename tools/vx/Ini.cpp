#include "Commands.h"

namespace tool {

void addIni(CLI::App& app, Action& chosen)
{
    CLI::App* ini = app.add_subcommand("ini", "Inspects and edits INI files");
    ini->require_subcommand(1);
    ini->footer("A SECTION of '-' stands for the lines above the first header. A word that"
                " begins with '-'\ngoes behind '--'.");
    addIniShow(*ini, chosen);
    addIniGet(*ini, chosen);
    addIniSet(*ini, chosen);
    addIniUnset(*ini, chosen);
    addIniCheck(*ini, chosen);
    addIniDiff(*ini, chosen);
}

} // namespace tool
