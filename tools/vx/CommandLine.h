// CommandLine.h - what each command takes and does. Behind it stands the parser, which takes long
// to compile and is compiled once.
#pragma once

#include "Tool.h"

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace tool {

/// A command on its way onto the command line. What it reads goes into variables of the caller's,
/// which live until the action has run.
class Command {
public:
    /// Its \p action becomes \p chosen when the command stands on the line.
    Command(CLI::App& app, Action& chosen) : app_(&app), chosen_(&chosen) {}

    Command add(const char* name, const char* description);
    /// One of the commands below this one must follow.
    void needsCommand();

    /// Words in the order in which they are declared; an optional one may be missing.
    void argument(const char* name, std::string& value, const char* help);
    void argument(const char* name, std::optional<std::string>& value, const char* help);
    /// \p what follows it, in one word for the help.
    void option(const char* names, std::string& value, const char* what, const char* help);
    /// A number from 1 to \p most.
    void option(const char* names, unsigned int& value, unsigned int most, const char* what,
                const char* help);
    void flag(const char* names, bool& value, const char* help);
    /// The flags that several commands have.
    void jsonFlag(bool& value);
    void caseFlag(bool& value);
    void needs(const char* name, const char* other);
    void excludes(const char* name, const char* other);

    void footer(const char* text);
    /// What it does, unless a command below it follows.
    void runs(Action action);

private:
    CLI::App* app_;
    Action* chosen_;
};

/// Reads the whole line. \returns what it asks for; empty when nothing is left to do, with the
/// \p status to end with
Action readCommandLine(int argc, char** argv, Status& status);

} // namespace tool
