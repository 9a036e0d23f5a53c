#include "Commands.h"

#include <Vx/VxVersion.h>

namespace tool {

static constexpr const char* kExamples = R"(Examples:
  vx ini check editor.ini               finds lines that load differently than they look
  vx ini set editor.ini Video rate 50   changes one line and no other
  vx fcc xd5c                           translates the code of a stored essence
  vx pools --plot PooledObjects.log     draws the peak demand of each run
  vx settings                           shows which programs crashed
  vx inspect 4107                       tells why a process hangs

Exit status: 0 yes, done; 1 no, not found, different, warnings; 2 usage; 3 failed.
See 'vx COMMAND --help' for one command, and 'man vx'.)";

Status runVx(int argc, const char* const* argv)
{
    return runCommandLine(argc, argv, "vx - inspects and edits what applications built on Vx store",
                          vxDllVersionStr(), [](Command top) {
                              top.footer(kExamples);
                              addIni(top);
                              addUuid(top);
                              addFcc(top);
                              addMeta(top);
                              addPools(top);
                              addSettings(top);
                              addInspect(top);
                              addVersion(top);
                          });
}

} // namespace tool
