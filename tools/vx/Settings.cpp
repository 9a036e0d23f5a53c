#include "Commands.h"
#include "Json.h"
#include "SettingsStores.h"
#include "Strings.h"
#include "Terminal.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <charconv>
#include <fmt/format.h>
#include <optional>

namespace tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string program, section, key, value;
    bool create = false;
    bool json = false;
};

/// The names of the programs with settings in \p folder, as file names without extension.
std::set<std::string> storesIn(const fs::path& folder)
{
    std::set<std::string> stores;
    if (!isReadable(folder))
        return stores;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        if (const fs::path& file = entry.path();
            file.extension() == ".ini" || file.extension() == ".journal")
            stores.insert(file.stem().string());
    return stores;
}

/// Undoes the %XX escapes of a file name.
std::string programOf(const std::string& store)
{
    std::string program;
    for (std::size_t i = 0; i < store.size(); ++i) {
        unsigned char byte = static_cast<unsigned char>(store[i]);
        if (byte == '%' && i + 2 < store.size()) {
            std::from_chars(&store[i + 1], &store[i + 3], byte, 16);
            i += 2;
        }
        program += static_cast<char>(byte);
    }
    return program;
}

/// Asks the platform for a setting of the process's program.
std::optional<std::string> settingOf(const SettingsStore& store, const std::string& section,
                                     const std::string& key)
{
    // A stored value is the same whatever the default.
    const auto read = [&](const char* fallback) {
        return std::string(
            view(OS()->shell()
                     ->getSettings(store.scope)
                     ->getValue(vxString(key), vxString(fallback), vxString(section))));
    };
    const std::string value = read("a");
    if (value == "a" && read("b") != "a")
        return {};
    return value;
}

/// Whether the last run of a program ended cleanly; empty if there is no such value.
std::optional<bool> endedCleanly(const SettingsStore& store)
{
    const int answer = runAs(store, [&] {
        const auto marker = settingOf(store, "Configuration", "Normal Exit");
        return marker == "true" ? 0 : marker == "false" ? 1 : 2;
    });
    if (answer != 0 && answer != 1)
        return {};
    return answer == 0;
}

Status list(bool json)
{
    const fs::path user = userSettingsFolder();
    const fs::path programs = user / "programs";
    Table table({{"PROGRAM"}, {"LAST EXIT"}, {"STORE"}});
    Json found = Json::array();
    for (const std::string& name : storesIn(programs)) {
        const std::string program = programOf(name), file = programs / (name + ".ini");
        const std::optional<bool> clean = endedCleanly({0, program, file});
        table.add({shown(program),
                   !clean   ? "unknown"
                   : *clean ? "clean"
                            : "crashed, or running",
                   shown(file)});
        found.push_back({{"program", program},
                         {"store", file},
                         {"normalExit", clean ? Json(*clean) : Json(nullptr)}});
    }
    Json shared = Json::array();
    for (const fs::path& file : {user / "machine.ini", machineSettingsFolder() / "machine.ini"}) {
        if (!isReadable(file))
            continue;
        table.add({"(all programs)", "", shown(file.string())});
        shared.push_back(file.string());
    }
    if (json)
        printJson({{"programs", found}, {"shared", shared}});
    if (found.empty() && shared.empty())
        return complain("no-settings", {inQuotes(programs.string())});
    if (!json)
        table.print();
    return kYes;
}

/// \throws Failure unless the store exists
SettingsStore existingStore(const std::string& program)
{
    SettingsStore store = settingsStore(program);
    if (!store.exists())
        throw Failure("no-program", {program == "-" ? "all programs" : inQuotes(program),
                                     inQuotes(store.file.string())});
    return store;
}

Status show(const Options& options)
{
    const SettingsStore store = existingStore(options.program);
    return static_cast<Status>(runAs(store, [&] {
        Json values = Json::array();
        std::string section;
        const bool inherits = !store.inherited.empty() && isReadable(store.inherited);
        if (!options.json)
            fmt::print("{}\n", paint(Colour::dim, shown(store.file.string())));
        if (!options.json && inherits)
            fmt::print("{}\n", paint(Colour::dim, "inherits " + shown(store.inherited.string())));
        for (const auto& setting : settingsIn(store)) {
            const std::string value = settingOf(store, setting.first, setting.second).value_or("");
            if (options.json) {
                values.push_back(
                    {{"section", setting.first}, {"key", setting.second}, {"value", value}});
                continue;
            }
            if (setting.first != section)
                fmt::print("\n{}\n", paint(Colour::bold, "[" + shown(setting.first) + "]"));
            section = setting.first;
            fmt::print("  {} = {}\n", paint(Colour::blue, shown(setting.second)), shown(value));
        }
        if (options.json)
            printJson({{"file", store.file.string()},
                       {"inherits", inherits ? Json(store.inherited.string()) : Json(nullptr)},
                       {"settings", values}});
        return kYes;
    }));
}

Status get(const Options& options)
{
    const SettingsStore store = existingStore(options.program);
    return static_cast<Status>(runAs(store, [&] {
        const auto value = settingOf(store, options.section, options.key);
        if (options.json)
            printJson(
                {{"file", store.file.string()}, {"value", value ? Json(*value) : Json(nullptr)}});
        else if (value)
            fmt::print("{}\n", *value); // unescaped: scripts need the exact bytes
        if (!value)
            return complain("no-setting", {inQuotes(options.key), inQuotes(options.section),
                                           inQuotes(store.file.string())});
        return kYes;
    }));
}

Status set(const Options& options)
{
    const SettingsStore store =
        options.create ? settingsStore(options.program) : existingStore(options.program);
    runAs(store, [&] {
        const auto settings = OS()->shell()->getSettings(store.scope);
        settings->setValue(vxString(options.key), vxString(options.value),
                           vxString(options.section));
        settings->save();
        return 0;
    });
    // The platform has no result, and a process sees its own values in any case.
    const int stored = runAs(store, [&] {
        return settingOf(store, options.section, options.key) == options.value ? 0 : 1;
    });
    if (stored != 0)
        return complain("setting-not-stored", {inQuotes(store.file.string())});
    fmt::print("{}: [{}] {}={}\n", shown(store.file.string()), shown(options.section),
               shown(options.key), shown(options.value));
    return kYes;
}

Offer programs(const Given&)
{
    Offer offer{Offer::words, {{"-", "what all programs share"}}};
    for (const std::string& name : storesIn(userSettingsFolder() / "programs"))
        offer.candidates.push_back({programOf(name), "program"});
    return offer;
}

Offer sectionsAndKeys(const Given& given)
{
    Offer offer;
    std::set<std::string> seen;
    const auto section = given.find("SECTION");
    for (const auto& setting : settingsIn(existingStore(valueOf(given, "PROGRAM")))) {
        if (section == given.end() && seen.insert(setting.first).second)
            offer.candidates.push_back({setting.first, "section"});
        else if (section != given.end() && section->second == setting.first)
            offer.candidates.push_back({setting.second, "key"});
    }
    return offer;
}

void addPlace(Command& command, Options& options)
{
    command.argument("PROGRAM", options.program, "As 'vx settings' lists it; '-': all programs");
    command.argument("SECTION", options.section, "Case and blanks count");
    command.argument("KEY", options.key, "Case and blanks count");
    command.completes("PROGRAM", programs);
    command.completes("SECTION", sectionsAndKeys);
    command.completes("KEY", sectionsAndKeys);
}

} // namespace

void addSettings(Command top)
{
    Command command = top.add("settings", "Shows and changes the settings of programs");
    auto options = std::make_shared<Options>();
    command.jsonFlag(options->json);
    command.footer("Without a command, lists the stores of the reference platform, and how the last"
                   " run of\neach program ended. Exit status 1 if there are none.\n\nExamples:\n"
                   "  vx settings\n  vx settings show Editor\n"
                   "  vx settings set Editor Playback volume 0.6");
    command.runs([options] { return list(options->json); });

    Command shows = command.add("show", "Shows the settings of a program and their file");
    shows.argument("PROGRAM", options->program, "As 'vx settings' lists it; '-': all programs");
    shows.completes("PROGRAM", programs);
    shows.jsonFlag(options->json);
    shows.runs([options] { return show(*options); });

    Command gets = command.add("get", "Prints a setting");
    addPlace(gets, *options);
    gets.jsonFlag(options->json);
    gets.footer("Exit status 1 if there is no such setting.");
    gets.runs([options] { return get(*options); });

    Command sets = command.add("set", "Changes a setting and names its file");
    addPlace(sets, *options);
    sets.argument("VALUE", options->value, "Used unchanged");
    sets.flag("--create", options->create, "Create the store if the program has none");
    sets.footer("The program may be running: it sees the value when it starts or saves.");
    sets.runs([options] { return set(*options); });
}

} // namespace tool
