// CommandLine.h - Declares commands and their arguments. CLI11, which compiles slowly, is included
// in CommandLine.cpp and Completion.cpp only.
#pragma once

#include "Completion.h"
#include "Tool.h"

#include <optional>
#include <string>

namespace tool {

/// What commands declare: the one that the command line names, and what completes its words.
struct Declared {
    Action chosen;
    Completers completers;
};

/// A command being declared. The variables that receive its arguments belong to the caller and
/// must live until the action has run.
class Command {
public:
    Command(CLI::App& app, Declared& declared) : app_(&app), declared_(&declared) {}

    Command add(const char* name, const char* description);
    /// Requires one of the subcommands.
    void needsCommand();

    /// Positional arguments, in the order of their declaration; an optional one may be missing.
    void argument(const char* name, std::string& value, const char* help);
    void argument(const char* name, std::optional<std::string>& value, const char* help);
    /// The last argument, given at least once.
    void arguments(const char* name, std::vector<std::string>& values, const char* help);
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

    /// What the shells offer for an argument or an option. Those named FILE or FOLDER need none.
    void completes(const char* name, Completer completer);

    void footer(const char* text);
    /// \p action runs if the command line names this command and none of its subcommands.
    void runs(Action action);

private:
    CLI::App* app_;
    Declared* declared_;
};

/// Parses the command line, runs the command and returns the exit status. \p declare adds the
/// commands. The hidden command __complete prints what the shells offer, see Completion.h.
Status runCommandLine(int argc, const char* const* argv, const char* description,
                      const char* version, const std::function<void(Command)>& declare);

} // namespace tool
