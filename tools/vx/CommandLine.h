// CommandLine.h - Declares commands and their arguments. CLI11, which compiles slowly, is
// included in CommandLine.cpp only.
#pragma once

#include "Tool.h"

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace tool {

/// A command being declared. The variables that receive its arguments belong to the caller and
/// must live until the action has run.
class Command {
public:
    /// \p chosen receives the action of the command that the command line names.
    Command(CLI::App& app, Action& chosen) : app_(&app), chosen_(&chosen) {}

    Command add(const char* name, const char* description);
    /// Requires one of the subcommands.
    void needsCommand();

    /// Positional arguments, in the order of their declaration; an optional one may be missing.
    void argument(const char* name, std::string& value, const char* help);
    void argument(const char* name, std::optional<std::string>& value, const char* help);
    /// \p what names the option's argument in the help.
    void option(const char* names, std::string& value, const char* what, const char* help);
    /// A number from 1 to \p most.
    void option(const char* names, unsigned int& value, unsigned int most, const char* what,
                const char* help);
    void flag(const char* names, bool& value, const char* help);
    /// Flags that several commands share.
    void jsonFlag(bool& value);
    void caseFlag(bool& value);
    void needs(const char* name, const char* other);
    void excludes(const char* name, const char* other);

    void footer(const char* text);
    /// \p action runs if the command line names this command and none of its subcommands.
    void runs(Action action);

private:
    CLI::App* app_;
    Action* chosen_;
};

/// Parses the command line, runs the command and returns the exit status. \p declare adds the
/// commands.
Status runCommandLine(int argc, const char* const* argv, const char* description,
                      const char* version, const std::function<void(Command)>& declare);

} // namespace tool
