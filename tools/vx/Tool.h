// Tool.h - vx as a host: its application object, its exit statuses, its failures.
#pragma once

#include <Vx/VxApplication.h>
#include <functional>
#include <stdexcept>

namespace tool {

/// What vx answers to the shell; the man page promises these numbers.
enum Status : int {
    kYes = 0,      ///< done, found, equal, nothing to complain about
    kNegative = 1, ///< not found, different, findings, not valid
    kUsage = 2,    ///< the command line makes no sense
    kFailed = 3,   ///< could not be done: a file, the memory, the output
};

/// Why something could not be done. Its text becomes one line on standard error.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One subcommand, ready to run.
using Action = std::function<Status()>;

/// Runs the action. No exception leaves; a failure becomes a message and kFailed.
Status answerOf(const Action& action);

/// The application object of vx.
///
/// The settings are never saved, so Application::start() is not for it: their marker of a
/// normal exit belongs to all hosts of this user, and a tool that looks into the remains of
/// a crash must not be the one that reports a normal exit.
class Tool : public Vx::Application {
public:
    explicit Tool(Action action);

    void run() override;

    Status status() const { return status_; }

private:
    Action action_;
    Status status_ = kFailed;
};

/// Prints a message as `vx: ...` on standard error.
void complain(const std::string& message);

} // namespace tool
