// VxException.h - the two exceptions that the library throws.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxMemory.h>
#include <vector>

namespace Vx {
namespace Exception {

/// What a failure was, where it was raised and, for a RuntimeError, by which calls.
///
///     catch (const Vx::Exception::Base& e) {
///         report(e.typeName, e.message, e.file, e.line);
///     }
///
/// Deliberate: no descendant of std::exception, no what().
///
/// Ownership: the call stack is the exception's; the three texts are not. They must live as
///   long as any copy of the exception: literals, or memory that nobody frees.
/// Errors: copying may run out of memory, as copying any vector.
class VX_API Base {
public:
    /// A text for each frame, in the platform's own words.
    using CallStack = std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>;

    Base(const Base&) = default;
    Base(Base&&) noexcept = default;
    Base& operator=(const Base&) = default;
    Base& operator=(Base&&) noexcept = default;
    virtual ~Base();

    CallStack callStack;  ///< a text for each frame, innermost first; may be empty
    const char* typeName; ///< "RuntimeError" or "LogicError"
    const char* message;  ///< what went wrong, for people
    const char* file;     ///< the source file that raised it
    int line;             ///< the line in it

protected:
    /// Keeps the three pointers; no call stack.
    Base(const char* type, const char* text, const char* sourceFile, int sourceLine) noexcept
        : typeName(type), message(text), file(sourceFile), line(sourceLine)
    {}
};
static_assert(sizeof(Base) == 64,
              "a virtual-table pointer and the five members are part of the binary interface");

/// Something went wrong while running: bad input, misuse, a failed check.
class VX_API RuntimeError : public Base {
public:
    /// Keeps the three pointers and asks the platform for the call stack. A failure of the
    /// platform in there ends the process.
    RuntimeError(const char* message, const char* file, int line) noexcept;

    RuntimeError(const RuntimeError&) = default;
    RuntimeError(RuntimeError&&) noexcept = default;
    RuntimeError& operator=(const RuntimeError&) = default;
    RuntimeError& operator=(RuntimeError&&) noexcept = default;
    ~RuntimeError() override;
};

/// A mistake in the program itself. Carries no call stack.
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
              "the descendants add nothing");

} // namespace Exception
} // namespace Vx
