// platform/iShell.h - the user's folders and settings.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

/// The user's folders and settings.
///
/// Threads: any.
class VX_API iShell {
public:
    /// The kind of getFolder() that the library itself asks for: where an
    /// application keeps its data for this user.
    static constexpr int kUserDataFolder = 4;

    /// The path of a standard folder. It ends with a path separator: callers append
    /// a name directly.
    virtual LightweightString<wchar_t> getFolder(int kind) = 0;

    /// Tells the platform where diagnostic output is to go. The default does
    /// nothing; a platform overrides it to receive the folder.
    virtual void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder);

    /// The settings store of \p scope: 0 is the user's, 1 the second store. Calls
    /// with the same scope reach the same values.
    virtual Vx::Ptr<iSettings> getSettings(int scope) = 0;

protected:
    ~iShell() = default;
};
