// Shell.h - The user's folders and settings.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>

/// Finds the user's folders (files/Folders.h) and settings (settings/Settings.h).
///
/// Errors: a folder that cannot be created is reported on standard error; using it then fails.
///   Memory exhaustion throws std::bad_alloc.
/// Thread safety: any thread. There is no state, so nothing can be locked across a fork.
class Shell final : public iShell {
public:
    /// Returns the path of the folder of this FolderKind, ending in a separator. Creates it, for
    /// this user alone, unless it is the home or the temporary folder. A path that is not UTF-8
    /// is reported; the result is then a path that FileSystem refuses to open.
    LightweightString<wchar_t> getFolder(int kind) override;

    /// Creates \p folder and its parents. An empty path does nothing; one that is no valid
    /// string is reported.
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override;

    /// Returns the store of \p scope: 0 is the program's, 1 the machine's; null for others.
    Vx::Ptr<iSettings> getSettings(int scope) override;
};
