#include "CommandLine.h"

#include "Strings.h"
#include "Terminal.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tool {
namespace {

/// Complains about a command line that cannot be parsed.
Status explained(const CLI::App& app, const CLI::Error& error)
{
    std::string command;
    for (const CLI::App* deepest = &app; deepest != nullptr;) {
        command += (command.empty() ? "" : " ") + deepest->get_name();
        const auto chosen = deepest->get_subcommands();
        deepest = chosen.empty() ? nullptr : chosen.front();
    }
    const std::vector<std::string> rest = app.remaining(true);
    // CLI11 reports an unknown command as a missing one.
    const bool unknown =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && !rest.empty();
    const std::string why = unknown ? std::string("unknown ") +
                                          (rest.front()[0] == '-' ? "option " : "command ") +
                                          inQuotes(rest.front())
                                    : shown(error.what());
    return complain("command-line", {why, command});
}

/// \throws Failure unless every argument is valid UTF-8; others could not be printed, and file
///   names would be converted to those of different files
void requireUtf8(int argc, const char* const* argv)
{
    for (int i = 1; i < argc; ++i)
        if (view(toUtf8(fromUtf8(argv[i]))) != argv[i])
            throw Failure("not-utf-8-argument", {inQuotes(argv[i])});
}

/// Parses the command line. \returns what is left to do
Action parsed(CLI::App& app, int argc, const char* const* argv, const Action& chosen)
{
    requireUtf8(argc, argv);
    try {
        app.parse(argc, argv);
        return chosen;
    } catch (const CLI::CallForVersion& e) {
        fmt::print("{}\n", e.what());
    } catch (const CLI::CallForAllHelp&) {
        fmt::print("{}", app.help("", CLI::AppFormatMode::All));
    } catch (const CLI::CallForHelp&) {
        fmt::print("{}", app.help());
    } catch (const CLI::ParseError& e) {
        return [&app, e] { return explained(app, e); };
    }
    return [] { return kYes; };
}

/// complete(), in silence: a message would appear in the middle of the line being typed.
Status completed(const CLI::App& app, const Completers& completers, int argc,
                 const char* const* argv)
{
    try {
        return static_cast<Status>(complete(app, completers, argc, argv));
    } catch (const std::exception&) {
        return kYes; // nothing fits
    }
}

} // namespace

Command Command::add(const char* name, const char* description)
{
    return {*app_->add_subcommand(name, description), *declared_};
}

void Command::needsCommand() { app_->require_subcommand(1); }

void Command::argument(const char* name, std::string& value, const char* help)
{
    app_->add_option(name, value, help)->required();
}

void Command::argument(const char* name, std::optional<std::string>& value, const char* help)
{
    app_->add_option_function<std::string>(
        name, [&value](const std::string& word) { value = word; }, help);
}

void Command::arguments(const char* name, std::vector<std::string>& values, const char* help)
{
    app_->add_option(name, values, help)->required();
}

void Command::option(const char* names, std::string& value, const char* what, const char* help)
{
    app_->add_option(names, value, help)->type_name(what);
}

void Command::option(const char* names, unsigned int& value, unsigned int most, const char* what,
                     const char* help)
{
    CLI::Validator range = CLI::Range(1u, most);
    app_->add_option(names, value, help)->type_name(what)->check(range.description(""));
}

void Command::flag(const char* names, bool& value, const char* help)
{
    app_->add_flag(names, value, help);
}

void Command::jsonFlag(bool& value) { flag("--json", value, "Print JSON"); }

void Command::caseFlag(bool& value)
{
    flag("-c,--case-sensitive", value, "Treat section names that differ in case as different");
}

void Command::needs(const char* name, const char* other)
{
    app_->get_option(name)->needs(app_->get_option(other));
}

void Command::excludes(const char* name, const char* other)
{
    app_->get_option(name)->excludes(app_->get_option(other));
}

void Command::completes(const char* name, Completer completer)
{
    declared_->completers[app_->get_option(name)] = std::move(completer);
}

void Command::footer(const char* text) { app_->footer(text); }

void Command::runs(Action action)
{
    app_->callback([app = app_, declared = declared_, action = std::move(action)] {
        if (app->get_subcommands().empty())
            declared->chosen = action;
    });
}

Status runCommandLine(int argc, const char* const* argv, const char* description,
                      const char* version, const std::function<void(Command)>& declare)
{
    CLI::App app(description, "vx");
    // Brackets already mark optional arguments; the labels would repeat that.
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->label("TEXT", "");
    app.set_version_flag("--version", version);
    std::string colour = "auto";
    Declared declared;
    CLI::Option* const when = app.add_option("--color", colour, "Colour: auto, always or never");
    declared.completers[when] = [](const Given&) {
        return Offer{Offer::words, {{"auto"}, {"always"}, {"never"}}};
    };
    when->type_name("WHEN")->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.require_subcommand(1);

    declare(Command(app, declared));
    if (argc > 3 && std::string_view(argv[1]) == "__complete")
        return completed(app, declared.completers, argc - 2, argv + 2);
    return run([&] {
        const Action action = parsed(app, argc, argv, declared.chosen);
        chooseColour(colour);
        return action();
    });
}

} // namespace tool
