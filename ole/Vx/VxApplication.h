// VxApplication.h - the application object: folders, the clean-exit marker, start and stop.
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
/// Marker: the setting "Normal Exit" in section "Configuration" of scope 0. A shutdown
///   stores "true"; the next application finds it, remembers it and stores "false". So
///   whoever finds anything else knows that the run before did not come to its shutdown.
///   "false" reaches the medium with the next save only, so a host calls saveSettings()
///   early in run(): else a crash before its first save looks like a clean end.
/// Errors: what the platform or run() throws passes through. A constructor that fails
///   leaves nothing behind: the application before stays the instance.
/// Threads: construction, start, shutdown and saveSettings on the host's main thread; the
///   rest from any, once construction is done.
/// Ownership: the host's. The library keeps the address for ever and never destroys the
///   object. Nor does the host, not even by a static object: the loggers of pools ask it for
///   the logs folder when they are destroyed themselves, which may be as late as that.
class VX_API Application {
public:
    /// Becomes the instance, settles the folders, tells the shell where diagnostic output
    /// goes, and reads and resets the clean-exit marker, in this order.
    /// \param appName the folder of the application under the user's data folder
    /// \param version what getVersion() answers
    Application(const LightweightString<wchar_t>& appName,
                const LightweightString<wchar_t>& version);

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// The application constructed last, null before the first.
    static Application* instance();

    /// The folder of this user's data, with a path separator at its end.
    virtual LightweightString<wchar_t> getUserDataPath() const;

    /// The folder "Logs" in it, with a path separator at its end.
    virtual LightweightString<wchar_t> getLogsPath() const;

    /// What the constructor was given.
    virtual LightweightString<wchar_t> getVersion() const;

    /// The host's work: from start to stop.
    virtual void run() = 0;

    /// Runs the shutdown callbacks with Shutdown::kOrderlyExit, then sets the clean-exit
    /// marker. Saving it is left to saveSettings().
    virtual void shutdown();

    /// The whole life: run(), shutdown(), saveSettings(). An exception of one keeps the
    /// others from being called.
    void start();

    /// Saves the settings of scope 0, then those of scope 1.
    void saveSettings();

    /// What the constructor was given.
    const LightweightString<wchar_t>& getName() const noexcept { return appName; }

    /// Whether the previous run came to its shutdown.
    bool previousExitWasNormal() const noexcept { return previousExitWasNormal_; }

    /// Shutdown::addCallback() in its three forms.
    void atShutdown(std::function<void(Shutdown::eExitType)> function, unsigned int priority);
    void atShutdown(std::function<void()> function, unsigned int priority);
    void atShutdown(const Vx::Ptr<iCallbackBase<void, Shutdown::eExitType>>& callback,
                    unsigned int priority);

protected:
    // Deliberate: not virtual. The object lives until the process ends, and the slots of
    // the virtual operations are part of the binary interface.
    ~Application() = default;

private:
    void settleFoldersAndMarker();

    static Application* instance_;

    LightweightString<wchar_t> appName;
    LightweightString<wchar_t> version;
    LightweightString<wchar_t> logsPath;
    LightweightString<wchar_t> userDataPath;
    bool previousExitWasNormal_;
};
static_assert(sizeof(Application) == 80, "host applications derive from this layout");

} // namespace Vx
