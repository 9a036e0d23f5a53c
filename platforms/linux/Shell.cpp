#include "Shell.h"

#include "diagnostics/Report.h"
#include "files/Folders.h"
#include "settings/Settings.h"
#include "text/Utf8.h"

#include <string_view>
#include <type_traits>

static_assert(std::is_trivially_destructible_v<Shell>, "the service outlives every destructor");
static_assert(sizeof(Shell) == sizeof(iShell), "state would need care around fork");

namespace {

void makeOrReport(const std::string& folder)
{
    if (const int error = makeFolders(folder))
        report("could not make the folder", folder.c_str(), error);
}

} // namespace

LightweightString<wchar_t> Shell::getFolder(int kind)
{
    const std::string path = folderPath(kind);
    if (mayCreateFolder(kind))
        makeOrReport(path);
    const LightweightString<wchar_t> wide = Utf8::decode(path.data(), path.size());
    if (std::string_view(Utf8::encode(wide.c_str(), wide.length())) != path)
        report("could not name the folder", path.c_str(), 0,
               "it is not UTF-8, so one with U+FFFD in its name takes its place");
    return wide;
}

void Shell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    const LightweightString<char> path = Utf8::encode(folder.c_str(), folder.length());
    if (!path.empty())
        makeOrReport(path.c_str());
}

Vx::Ptr<iSettings> Shell::getSettings(int scope) { return makeSettings(scope); }
