#include <Vx/LightweightString.h>
#include <Vx/platform/iShell.h>

void iShell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>&) {}
