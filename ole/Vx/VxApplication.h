// VxApplication.h - The application object: folders, clean-exit marker, start and stop.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxShutdown.h>
#include <functional>

namespace Vx {

/// The base of the host's application object.
///
///     class Editor : public Vx::Application {
///     public:
///         Editor() : Application(L"Editor", L"1.0") {}
///         void run() override { ... }
///     };
///
///     int main()
///     {
///         Editor* const editor = new Editor; // never destroyed
///         editor->start();
///     }
///
/// Marker: the setting "Normal Exit" in section "Configuration" of scope 0. shutdown() sets it to
///   "true". The next application remembers that and sets it to "false", so that a run that
///   finds any other value knows that the one before did not get to its shutdown. On the
///   reference platform "false" outlives a crash; where it does not, call saveSettings() early.
/// Ownership: the host's. Neither the library nor the host destroys the object: pool loggers ask
///   it for the logs folder until the process ends.
/// Errors: exceptions of the platform and of run() pass through. After a failed construction the
///   application before stays the instance.
/// Thread safety: construction, start(), shutdown() and saveSettings() on the host's main thread;
///   everything else from any thread after construction.
class VX_API Application {
public:
    /// Becomes the instance, determines the folders, tells the shell where diagnostics go, and
    /// reads and resets the clean-exit marker, in this order.
    /// \param appName the application's folder below the user's data folder, taken literally;
    ///   it may be empty, or lead through several folders
    /// \param version returned by getVersion()
    /// \throws Vx::Exception::RuntimeError if a part of \p appName is "..", which would leave
    ///   the user's data folder; nothing has happened then
    Application(const LightweightString<wchar_t>& appName,
                const LightweightString<wchar_t>& version);

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// Returns the application that was constructed last, null before the first.
    static Application* instance();

    /// Returns the folder of the user's data, with a path separator at the end.
    virtual LightweightString<wchar_t> getUserDataPath() const;

    /// Returns the folder "Logs" in it, with a path separator at the end.
    virtual LightweightString<wchar_t> getLogsPath() const;

    /// Returns the version that the constructor was given.
    virtual LightweightString<wchar_t> getVersion() const;

    /// The host's work, from start to stop.
    virtual void run() = 0;

    /// Runs the shutdown callbacks with Shutdown::kOrderlyExit, then sets the clean-exit marker.
    /// Does not save it: a host that does not use start() calls saveSettings() itself.
    virtual void shutdown();

    /// Calls run(), shutdown() and saveSettings(). An exception skips the rest.
    void start();

    /// Saves the settings of scope 0, then those of scope 1.
    void saveSettings();

    /// Returns the name that the constructor was given.
    const LightweightString<wchar_t>& getName() const noexcept { return appName; }

    /// Returns whether the previous run got to its shutdown.
    bool previousExitWasNormal() const noexcept { return previousExitWasNormal_; }

    /// Calls Shutdown::addCallback().
    void atShutdown(std::function<void(Shutdown::eExitType)> function, unsigned int priority);
    void atShutdown(std::function<void()> function, unsigned int priority);
    void atShutdown(const Vx::Ptr<iCallbackBase<void, Shutdown::eExitType>>& callback,
                    unsigned int priority);

protected:
    // Deliberate: not virtual. The object lives until the process ends, and the slots of the
    // virtual operations are part of the binary interface.
    ~Application() = default;

private:
    friend struct detail::Inspect;

    void initFoldersAndMarker();

    static Application* instance_;

    LightweightString<wchar_t> appName;
    LightweightString<wchar_t> version;
    LightweightString<wchar_t> logsPath;
    LightweightString<wchar_t> userDataPath;
    bool previousExitWasNormal_;
};
static_assert(sizeof(Application) == 80, "host applications derive from this layout");

} // namespace Vx
