// Symbols.h - Names of functions, and call stacks.
#pragma once

#include "Process.h"

namespace inspect {

/// \p mangled in C++ notation, or unchanged if it is not a mangled name.
std::string demangled(const std::string& mangled);

/// What a std::function's invoker calls: "main::{lambda()#1}" out of
/// "std::_Function_handler<void (), main::{lambda()#1}>::_M_invoke(...)". Other names are
/// returned unchanged.
std::string callableOf(const std::string& function);

/// Looks names up in the modules of a process, and in their separate debug files if there are
/// any. The process must outlive it.
class Symbols {
public:
    explicit Symbols(const Process& process);
    ~Symbols();
    Symbols(const Symbols&) = delete;
    Symbols& operator=(const Symbols&) = delete;

    /// The demangled name, or empty if the module has no symbol there.
    std::string function(Address address) const;
    /// The file name of the module, or empty.
    std::string module(Address address) const;

    struct Frame {
        Address address;
        std::string function;
        std::string module;
    };
    /// The call stack, innermost first. Ends early where a register would be needed that is not
    /// known; empty for a thread that was running.
    std::vector<Frame> stack(const Thread& thread) const;

private:
    struct Modules;
    Modules& modules() const;
    mutable std::unique_ptr<Modules> modules_; // made when first needed
    const Process& process_;
};

} // namespace inspect
