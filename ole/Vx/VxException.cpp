#include <Vx/VxException.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>

namespace Vx {
namespace Exception {

// Out of line, so that virtual tables and type information exist once, in this library.
Base::~Base() = default;
RuntimeError::~RuntimeError() = default;
LogicError::~LogicError() = default;

RuntimeError::RuntimeError(const char* message, const char* file, int line) noexcept
    : Base("RuntimeError", message, file, line)
{
    OS()->systemUtils()->captureCallStack(callStack);
}

} // namespace Exception
} // namespace Vx
