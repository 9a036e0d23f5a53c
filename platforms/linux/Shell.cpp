#include "Shell.h"

LightweightString<wchar_t> Shell::getFolder(int) { return LightweightString<wchar_t>(L"/"); }

void Shell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>&) {}

Vx::Ptr<iSettings> Shell::getSettings(int) { return {}; }
