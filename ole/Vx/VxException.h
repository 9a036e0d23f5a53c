// VxException.h - The two exceptions that the library throws.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxMemory.h>
#include <vector>

namespace Vx {
namespace Exception {

/// The base of the library's exceptions: what failed and where.
///
///     catch (const Vx::Exception::Base& e) {
///         report(e.typeName, e.message, e.file, e.line);
///     }
///
/// Deliberate: not derived from std::exception, and without what().
///
/// Ownership: the exception owns its call stack, not the three strings. They must outlive every
///   copy of the exception: use literals, or memory that is never freed.
/// Errors: copying may run out of memory for the call stack.
class VX_API Base {
public:
    /// One string per stack frame, in the platform's format.
    using CallStack = std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>;

    Base(const Base&) = default;
    Base(Base&&) noexcept = default;
    Base& operator=(const Base&) = default;
    Base& operator=(Base&&) noexcept = default;
    virtual ~Base();

    CallStack callStack;  ///< innermost frame first; may be empty
    const char* typeName; ///< "RuntimeError" or "LogicError"
    const char* message;  ///< what went wrong
    const char* file;     ///< the source file that threw it
    int line;             ///< the line in that file

protected:
    /// Keeps the three pointers; no call stack.
    Base(const char* type, const char* text, const char* sourceFile, int sourceLine) noexcept
        : callStack(), typeName(type), message(text), file(sourceFile), line(sourceLine)
    {}
};
static_assert(sizeof(Base) == 64,
              "a virtual table pointer and five members are part of the binary interface, which "
              "-D_GLIBCXX_DEBUG changes");

/// A failure at run time: bad input, misuse, a failed check. Carries a call stack.
class VX_API RuntimeError : public Base {
public:
    /// Keeps the three pointers and captures the call stack. If the platform fails to, the
    /// process terminates.
    RuntimeError(const char* message, const char* file, int line) noexcept;

    RuntimeError(const RuntimeError&) = default;
    RuntimeError(RuntimeError&&) noexcept = default;
    RuntimeError& operator=(const RuntimeError&) = default;
    RuntimeError& operator=(RuntimeError&&) noexcept = default;
    ~RuntimeError() override;
};

/// A mistake in the program. Carries no call stack.
class VX_API LogicError : public Base {
public:
    /// Keeps the three pointers.
    LogicError(const char* text, const char* sourceFile, int sourceLine) noexcept
        : Base("LogicError", text, sourceFile, sourceLine)
    {}

    LogicError(const LogicError&) = default;
    LogicError(LogicError&&) noexcept = default;
    LogicError& operator=(const LogicError&) = default;
    LogicError& operator=(LogicError&&) noexcept = default;
    ~LogicError() override;
};
static_assert(sizeof(RuntimeError) == sizeof(Base) && sizeof(LogicError) == sizeof(Base),
              "the derived classes add nothing");

} // namespace Exception
} // namespace Vx
