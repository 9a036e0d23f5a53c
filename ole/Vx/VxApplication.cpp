#include <Vx/VxApplication.h>

#include <Vx/VxException.h>
#include <Vx/detail/Inspect.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

void iShell::setOutputDiagnosticsFolder(const LightweightString<wchar_t>&) {}

namespace {

constexpr int kProgramScope = 0;
constexpr int kSharedScope = 1;

using String = LightweightString<char>;

// Takes both slashes for separators, whatever the platform's is.
bool leavesItsFolder(std::wstring_view path)
{
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(L"/\\"), path.size());
        if (path.substr(0, end) == L"..")
            return true;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}

bool readMarker()
{
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(kProgramScope);
    return settings->getValue(String("Normal Exit"), String("false"), String("Configuration")) ==
           "true";
}

void writeMarker(const char* value)
{
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(kProgramScope);
    settings->setValue(String("Normal Exit"), String(value), String("Configuration"));
}

} // namespace

namespace Vx {

// Read from any thread: see instance().
constinit Application* Application::instance_ = nullptr;

Application::Application(const LightweightString<wchar_t>& appName,
                         const LightweightString<wchar_t>& version)
    : appName(appName), version(version), previousExitWasNormal_(false)
{
    if (leavesItsFolder(appName))
        throw Exception::RuntimeError("Application name leaves the user's data folder!",
                                      "ole/Vx/VxApplication", __LINE__);
    // Before the platform is called, which may use the instance.
    const std::atomic_ref current(instance_);
    Application* const previous = current.exchange(this, std::memory_order_acq_rel);
    try {
        initFoldersAndMarker();
    } catch (...) {
        current.store(previous, std::memory_order_release);
        throw;
    }
}

// Hosts rely on the order of the platform calls.
void Application::initFoldersAndMarker()
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
        writeMarker("false"); // until shutdown()
    }
}

Application* Application::instance()
{
    return std::atomic_ref(instance_).load(std::memory_order_acquire);
}

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
    for (const int scope : {kProgramScope, kSharedScope})
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

// Offsets in a class with virtual operations: its members have no other place.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constinit const detail::InspectApplication detail::Inspect::application = {
    .size = sizeof(InspectApplication),
    .name = offsetof(Application, appName),
    .instance = &Application::instance_,
    .version = offsetof(Application, version),
    .logsPath = offsetof(Application, logsPath),
    .userDataPath = offsetof(Application, userDataPath),
    .previousExitWasNormal = offsetof(Application, previousExitWasNormal_),
};
#pragma GCC diagnostic pop

} // namespace Vx
