#include "Shell.h"

#include "diagnostics/Report.h"
#include "files/Folders.h"
#include "settings/Settings.h"
#include "text/Utf8.h"

#include <cerrno>
#include <string_view>
#include <type_traits>

static_assert(std::is_trivially_destructible_v<Shell>, "the service outlives every destructor");
static_assert(sizeof(Shell) == sizeof(iShell), "state would need care around fork");

namespace {

constexpr wchar_t kNotUtf8 = 0xDC80; // a surrogate: in no path that can be opened

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
    LightweightString<wchar_t> wide = Utf8::decode(path.data(), path.size());
    if (std::string_view(Utf8::encode(wide.c_str(), wide.length())) == path)
        return wide;
    report("could not name the folder", path.c_str(), EILSEQ, "files in it cannot be opened");
    // U+FFFD would name another folder, but FileSystem refuses surrogates.
    wide.clear();
    for (const char c : path)
        wide += static_cast<unsigned char>(c) < 0x80 ? wchar_t(c) : kNotUtf8;
    return wide;
}

void Shell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    const LightweightString<char> encoded = Utf8::encode(folder.c_str(), folder.length());
    const std::string path(encoded.data(), encoded.length());
    if (Utf8::decode(path.data(), path.size()) != folder || path.find('\0') != std::string::npos)
        report("could not make the folder", path.c_str(), EILSEQ);
    else if (!path.empty())
        makeOrReport(path);
}

Vx::Ptr<iSettings> Shell::getSettings(int scope) { return makeSettings(scope); }
