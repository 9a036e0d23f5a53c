// Folders and settings, as far as the headers go.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <atomic>
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
}

void folderExists()
{
    LightweightString<wchar_t> file = OS()->shell()->getFolder(iShell::kUserDataFolder);
    file += L"platform-check";
    require(bool(OS()->fileSystem()->openFile(file, 2, 3, 0, 0)), "no file can be created in it");
}

void diagnostics()
{
    LightweightString<wchar_t> folder = OS()->shell()->getFolder(iShell::kUserDataFolder);
    folder += L"Application/Logs/";
    OS()->shell()->setOutputDiagnosticsFolder(folder);
    OS()->shell()->setOutputDiagnosticsFolder(folder);
    OS()->shell()->setOutputDiagnosticsFolder(L"");
}

void values()
{
    const auto store = settings(0);
    store->setValue("key", "first", "S");
    store->setValue("key", "second", "S");
    require(store->getValue("key", "", "S") == "second",
            "a second value does not replace the first");
    for (int i = 0; i < 500; ++i)
        store->setValue(Text(std::to_string(i)), Text(std::to_string(i * i)), "Many");
    for (int i = 0; i < 500; ++i)
        require(store->getValue(Text(std::to_string(i)), "lost", "Many") ==
                    Text(std::to_string(i * i)),
                "one of 500 values is lost");
}

void defaults()
{
    const auto store = settings(0);
    require(store->getValue("no such key", "default", "S") == "default",
            "a missing value does not give the default");
    require(store->getValue("no such key", "other", "S") == "other", "a default is remembered");
    store->setValue("key", "", "S");
    require(store->getValue("key", "default", "S").empty(), "an empty value counts as missing");
}

void scopes()
{
    settings(0)->setValue("key", "user", "S");
    require(settings(0)->getValue("key", "", "S") == "user",
            "a second store of the same scope does not see the value");
    settings(1)->setValue("key", "second", "S");
    require(settings(0)->getValue("key", "", "S") == "user", "the scopes share their values");
    require(settings(1)->getValue("key", "", "S") == "second", "scope 1 forgets a value");
}

// Every pair of them would be one if keys and sections were folded, cut or joined carelessly.
void keys()
{
    const Text names[][2] = {{"S", "key"},
                             {"S", "Key"},
                             {"s", "key"},
                             {"Sk", "ey"},
                             {"S", "key "},
                             {"S", " key"},
                             {"S ", "key"},
                             {"", "Skey"},
                             {"S", Text("key\0b", 5)},
                             {Text("S\0b", 3), "key"},
                             {"S/", "key"},
                             {"S", "/key"},
                             {"S", "k"},
                             {"S", ""}};
    const auto store = settings(0);
    for (const auto& [section, key] : names) {
        require(store->getValue(key, "none", section) == "none",
                std::string("\"") + section.c_str() + "\", \"" + key.c_str() +
                    "\" has the value of another section or key");
        store->setValue(key, "set", section);
    }
}

void bytes()
{
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    const std::string odd[] = {"a=b=c",
                               "  both ends  ",
                               "[x]\r\ny",
                               "# no comment",
                               "\"quoted\"",
                               "a\\nb\tc\\",
                               "\xE6\x97\xA5",
                               "\x80\xFE",
                               std::string("a\0b", 3),
                               all,
                               std::string(1000001, 'l') + "!"};
    const auto store = settings(0);
    for (const std::string& value : odd) {
        store->setValue("key", Text(std::string_view(value)), "S");
        require(store->getValue("key", "lost", "S") == Text(std::string_view(value)),
                "the value \"" + value.substr(0, 40) + "\" does not come back");
    }
}

void saveKeeps()
{
    settings(0)->setValue("key", "kept", "S");
    settings(0)->save();
    settings(0)->save();
    require(settings(0)->getValue("key", "lost", "S") == "kept", "a save loses a value");
}

void threads()
{
    std::atomic<int> good{0};
    std::vector<std::thread> all;
    for (int id = 0; id < 4; ++id)
        all.emplace_back([id, &good] {
            const Text section(std::to_string(id));
            for (int round = 0; round < 250; ++round) {
                const Text value(std::to_string(round));
                OS()->shell()->getSettings(0)->setValue("key", value, section);
                good += OS()->shell()->getSettings(0)->getValue("key", "", section) == value;
            }
        });
    for (std::thread& thread : all)
        thread.join();
    require(good == 1000, std::to_string(good) + " of 1000 values of four threads are right");
}

} // namespace

std::vector<Check> shellChecks()
{
    static constexpr char kShell[] = "iShell.h";
    static constexpr char kSettings[] = "iSettings.h";
    return {
        {"folders", Contract, kShell, "It ends with a path separator", folders},
        {"folders.exists", Contract, kShell,
         "The platform creates the user's data folder if it is missing, and files can be created "
         "in it.",
         folderExists},
        {"folders.diagnostics", Contract, kShell, "Must not throw if it can do neither.",
         diagnostics},
        {"settings.values", Contract, kSettings,
         "Every getValue() that follows in this process returns it.", values},
        {"settings.defaults", Contract, kSettings,
         "Returns the stored value, or defaultValue if there is none. An empty value is a value.",
         defaults},
        {"settings.scopes", Contract, kShell,
         "All objects of the same scope share their values; different scopes share none.", scopes},
        {"settings.keys", Contract, kSettings, "Two keys or sections are different if any byte is.",
         keys},
        {"settings.bytes", Contract, kSettings,
         "come back exactly as they were stored, embedded zeros included.", bytes},
        {"settings.save", Contract, kSettings, "A failure loses nothing: the values stay set",
         saveKeeps},
        {"settings.threads", Contract, kSettings,
         "every operation may be called from any thread at any time.", threads},
    };
}
