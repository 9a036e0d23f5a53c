// platform/iShell.h - The user's folders and settings.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

/// The user's folders and settings.
///
/// Thread safety: every operation may be called from any thread at any time.
class VX_API iShell {
public:
    /// The getFolder() kind that the library uses: the parent of every application's data
    /// folder for this user. All other kinds are the platform's choice.
    static constexpr int kUserDataFolder = 4;

    /// Returns the path of a standard folder. It ends with a path separator, so callers append
    /// a name directly. The platform creates the user's data folder if it is missing, and files
    /// can be created in it.
    virtual LightweightString<wchar_t> getFolder(int kind) = 0;

    /// Tells the platform where diagnostic output goes. A platform may create the folder, or
    /// remember it for its own logs. Must not throw if it can do neither. The default does
    /// nothing.
    virtual void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder);

    /// Returns the settings store of \p scope, never null for scopes 0 and 1. The library keeps
    /// the clean-exit marker in scope 0, which should therefore belong to one program. All
    /// objects of the same scope share their values; different scopes share none.
    virtual Vx::Ptr<iSettings> getSettings(int scope) = 0;

protected:
    ~iShell() = default;
};
