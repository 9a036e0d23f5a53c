// Folders and settings.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <thread>

namespace {

using Text = LightweightString<char>;

Vx::Ptr<iSettings> settings(int scope)
{
    Vx::Ptr<iSettings> store = OS()->shell()->getSettings(scope);
    require(bool(store), "getSettings returns an empty pointer");
    return store;
}

void folders()
{
    const LightweightString<wchar_t> folder = OS()->shell()->getFolder(iShell::kUserDataFolder);
    require(!folder.empty(), "the user's data folder is empty");
    require(folder.back() == OS()->fileSystem()->pathSeparator(),
            "the path of the user's data folder does not end with a separator");
    require(folder == OS()->shell()->getFolder(iShell::kUserDataFolder),
            "the folder differs between two calls");
    LightweightString<wchar_t> file = folder;
    file += L"platform-check";
    const Vx::Ptr<iFile> opened = OS()->fileSystem()->openFile(file, 2, 3, 0, 0);
    require(bool(opened), "no file can be created in the user's data folder");
}

void diagnostics()
{
    LightweightString<wchar_t> folder = OS()->shell()->getFolder(iShell::kUserDataFolder);
    folder += L"Application/Logs/";
    OS()->shell()->setOutputDiagnosticsFolder(folder);
    OS()->shell()->setOutputDiagnosticsFolder(folder);
}

void defaults()
{
    const auto store = settings(0);
    require(store->getValue("no such key", "default", "S") == "default",
            "a missing value does not give the default");
    store->setValue("key", "", "S");
    require(store->getValue("key", "default", "S").empty(), "an empty value counts as missing");
    store->setValue("key", "second", "S");
    require(store->getValue("key", "", "S") == "second",
            "a second value does not replace the first");
    require(store->getValue("key", "none", "T") == "none", "two sections share their values");
    require(settings(0)->getValue("key", "", "S") == "second",
            "a second store of the same scope does not see the value");
}

void scopes()
{
    settings(0)->setValue("key", "user", "S");
    settings(1)->setValue("key", "second", "S");
    require(settings(0)->getValue("key", "", "S") == "user", "the scopes share their values");
}

const char* const kOdd[][2] = {
    {"plain", "value"},
    {"with = sign", "a=b=c"},
    {" blanks ", "  both ends  "},
    {"[bracket]", "[x]\r\ny"},
    {";comment", "# no comment"},
    {"utf \xC3\xA9", "\xE6\x97\xA5\xC3\xA9"},
    {"empty", ""},
    {"broken \xFF", "\x80\xFE"},
    {"back\\slash", "a\\nb\tc"},
};

void survives()
{
    const int status = inChild([] {
        for (const auto& [key, value] : kOdd)
            settings(0)->setValue(key, value, "Odd ]section");
        settings(0)->save();
        return 0;
    });
    require(status == 0, "the saving process died");
    const auto store = settings(0);
    for (const auto& [key, value] : kOdd)
        require(store->getValue(key, "lost", "Odd ]section") == value,
                std::string("the value of \"") + key + "\" came back as \"" +
                    store->getValue(key, "lost", "Odd ]section").c_str() + "\"");
}

void twoProcesses()
{
    constexpr int kProcesses = 4;
    constexpr int kKeys = 25;
    std::vector<std::thread> parents; // one per child, so that all run at once
    std::vector<int> statuses(kProcesses, 1);
    for (int p = 0; p < kProcesses; ++p)
        parents.emplace_back([p, &statuses] {
            statuses[static_cast<std::size_t>(p)] = inChild([p] {
                for (int k = 0; k < kKeys; ++k) {
                    const std::string key = std::to_string(p) + "." + std::to_string(k);
                    settings(0)->setValue(Text(key), Text(key), "Shared");
                    settings(0)->save();
                }
                return 0;
            });
        });
    for (std::thread& parent : parents)
        parent.join();
    for (int status : statuses)
        require(status == 0, "a saving process died");
    const auto store = settings(0);
    for (int p = 0; p < kProcesses; ++p)
        for (int k = 0; k < kKeys; ++k) {
            const std::string key = std::to_string(p) + "." + std::to_string(k);
            require(store->getValue(Text(key), "lost", "Shared") == Text(key),
                    "the setting " + key + " was lost among " + std::to_string(kProcesses) +
                        " processes that saved at once");
        }
}

} // namespace

std::vector<Check> shellChecks()
{
    return {
        {"folders", "the user's data folder exists and ends with a separator", folders},
        {"folders.diagnostics", "a folder for diagnostics is accepted", diagnostics},
        {"settings.values", "values, defaults and sections", defaults},
        {"settings.scopes", "scopes are separate stores", scopes},
        {"settings.bytes", "every text survives a save byte for byte", survives},
        {"settings.processes", "processes that save at once lose nothing", twoProcesses},
    };
}
