#include "Shell.h"

#include "files/Folders.h"
#include "diagnostics/Report.h"
#include "settings/Settings.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>
#include <string_view>
#include <type_traits>

static_assert(std::is_trivially_destructible_v<Shell>, "the service outlives every destructor");

LightweightString<wchar_t> Shell::getFolder(int kind)
{
    const std::string path = folderPath(kind);
    if (isOwnFolder(kind))
        if (const int error = makeFolders(path))
            report("could not make the folder", path.c_str(), error);
    LightweightString<wchar_t> wide =
        OS()->systemUtils()->fromUTF8(path.data(), static_cast<unsigned int>(path.size()));
    if (std::string_view(OS()->systemUtils()->toUTF8(wide)) != path)
        report("could not name the folder", path.c_str(), 0,
               "it is not UTF-8, so one with U+FFFD in its name takes its place");
    return wide;
}

void Shell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (diagnosticsFolder_ == nullptr)
            diagnosticsFolder_ = new LightweightString<wchar_t>;
        *diagnosticsFolder_ = folder;
    }
    const LightweightString<char> path = OS()->systemUtils()->toUTF8(folder);
    if (path.empty())
        return;
    if (const int error = makeFolders(path.c_str()))
        report("could not make the folder", path.c_str(), error);
}

LightweightString<wchar_t> Shell::outputDiagnosticsFolder()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return diagnosticsFolder_ != nullptr ? *diagnosticsFolder_ : LightweightString<wchar_t>();
}

Vx::Ptr<iSettings> Shell::getSettings(int scope) { return makeSettings(scope); }
