// Tool.h - What every command of vx returns, and how it fails.
#pragma once

#include "Messages.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace tool {

/// The exit status of vx. The man page promises these numbers.
enum Status : int {
    kYes = 0,    ///< done, found, equal, no warnings
    kNo = 1,     ///< not found, different, warnings, not valid
    kUsage = 2,  ///< the command line is wrong
    kFailed = 3, ///< a file, memory or the output failed
};

/// An error that ends the command with the exit status of its message.
class Failure : public std::runtime_error {
public:
    explicit Failure(MessageRef message, MessageParts parts = {});
    Status status() const { return status_; }

private:
    Status status_;
};

/// One command, ready to run.
using Action = std::function<Status()>;

/// Runs \p action. Never throws: an exception becomes a message and an exit status.
Status run(const Action& action);

/// Prints a message and its remedy on standard error.
/// \returns the exit status that the message stands for
Status complain(MessageRef message, MessageParts parts = {});

} // namespace tool
