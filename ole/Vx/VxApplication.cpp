#include <Vx/VxApplication.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <utility>

void iShell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>&) {}

namespace {

constexpr int kUserScope = 0;
constexpr int kSecondScope = 1;

using Text = LightweightString<char>;

bool readMarker()
{
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(kUserScope);
    return settings->getValue(Text("Normal Exit"), Text("false"), Text("Configuration")) == "true";
}

void writeMarker(const char* value)
{
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(kUserScope);
    settings->setValue(Text("Normal Exit"), Text(value), Text("Configuration"));
}

} // namespace

namespace Vx {

// Read from any thread, hence accessed atomically.
constinit Application* Application::instance_ = nullptr;

Application::Application(const LightweightString<wchar_t>& appName,
                         const LightweightString<wchar_t>& version)
    : appName(appName), version(version), previousExitWasNormal_(false)
{
    // The instance is known before the platform is asked for anything: a platform may look
    // for it while it answers.
    Application* const previous = instance();
    __atomic_store_n(&instance_, this, __ATOMIC_RELEASE);
    try {
        settleFoldersAndMarker();
    } catch (...) {
        // This object is about to be gone; its address must not stay.
        __atomic_store_n(&instance_, previous, __ATOMIC_RELEASE);
        throw;
    }
}

// The platform sees the order of these calls and hosts rely on it.
void Application::settleFoldersAndMarker()
{
    userDataPath = OS()->shell()->getFolder(iShell::kUserDataFolder);
    userDataPath += appName;
    userDataPath += OS()->fileSystem()->pathSeparator();
    logsPath = userDataPath;
    logsPath += L"Logs";
    logsPath += OS()->fileSystem()->pathSeparator();
    OS()->shell()->setOutputDiagnosticsFolder(logsPath);
    if (readMarker()) {
        previousExitWasNormal_ = true;
        writeMarker("false"); // what a crash of this run leaves to the next
    }
}

Application* Application::instance() { return __atomic_load_n(&instance_, __ATOMIC_ACQUIRE); }

LightweightString<wchar_t> Application::getUserDataPath() const { return userDataPath; }

LightweightString<wchar_t> Application::getLogsPath() const { return logsPath; }

LightweightString<wchar_t> Application::getVersion() const { return version; }

void Application::shutdown()
{
    Shutdown::executeCallbacks(Shutdown::kOrderlyExit);
    writeMarker("true");
}

void Application::start()
{
    run();
    shutdown();
    saveSettings();
}

void Application::saveSettings()
{
    for (const int scope : {kUserScope, kSecondScope})
        OS()->shell()->getSettings(scope)->save();
}

void Application::atShutdown(std::function<void(Shutdown::eExitType)> function,
                             unsigned int priority)
{
    Shutdown::addCallback(std::move(function), priority);
}

void Application::atShutdown(std::function<void()> function, unsigned int priority)
{
    Shutdown::addCallback(std::move(function), priority);
}

void Application::atShutdown(const Vx::Ptr<iCallbackBase<void, Shutdown::eExitType>>& callback,
                             unsigned int priority)
{
    Shutdown::addCallback(callback, priority);
}

} // namespace Vx
