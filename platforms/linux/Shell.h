// Shell.h - the user's folders and settings.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <mutex>

/// The user's folders by the XDG base-directory rules, and the settings (see Settings).
///
/// Errors: a folder that cannot be made gives one line on standard error; what is stored in
///   it later fails in its own way. A path that is not UTF-8 gives one, too: wide text cannot
///   tell it. Memory exhaustion leaves as std::bad_alloc.
/// Threads: any.
class Shell final : public iShell {
public:
    // The kinds of getFolder(). A variable counts when it holds an absolute path; HOME is
    // replaced by the user database's entry.
    static constexpr int kHomeFolder = 0;      ///< HOME
    static constexpr int kDocumentsFolder = 1; ///< HOME/Documents
    static constexpr int kTemporaryFolder = 2; ///< TMPDIR, or /tmp
    static constexpr int kCacheFolder = 3;     ///< XDG_CACHE_HOME, or HOME/.cache
    // kUserDataFolder: XDG_CONFIG_HOME, or HOME/.config; the answer to any kind not listed here.
    static constexpr int kSharedDataFolder = 5; ///< XDG_DATA_HOME, or HOME/.local/share
    static constexpr int kStateFolder = 6;      ///< XDG_STATE_HOME, or HOME/.local/state

    /// The folder's path, a separator at its end. The folder is made when missing, for this
    /// user alone; only the home and the temporary folder are not ours to make.
    LightweightString<wchar_t> getFolder(int kind) override;

    /// Makes \p folder, with the folders above it, and remembers it.
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override;

    /// What setOutputDiagnosticsFolder() was given last; empty before.
    LightweightString<wchar_t> outputDiagnosticsFolder();

    /// The store of \p scope: 0 the user's, 1 the machine's; empty for any other scope.
    Vx::Ptr<iSettings> getSettings(int scope) override;

private:
    std::mutex mutex_;
    LightweightString<wchar_t>* diagnosticsFolder_ = nullptr; // guarded by mutex_, never freed
};
