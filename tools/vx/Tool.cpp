#include "Tool.h"

#include <Vx/VxException.h>
#include <cstdio>
#include <fmt/format.h>
#include <new>

namespace tool {

void complain(const std::string& message)
{
    // A single write keeps the line whole when standard output is the same terminal.
    std::fputs(("vx: " + message + "\n").c_str(), stderr);
}

Status run(const Action& action)
{
    Status status = kFailed;
    try {
        status = action();
    } catch (const Failure& failure) {
        complain(failure.what());
        status = failure.status();
    } catch (const Vx::Exception::Base& e) {
        complain(fmt::format("{}: {} ({}:{})", e.typeName, e.message, e.file, e.line));
    } catch (const std::bad_alloc&) {
        complain("out of memory");
    } catch (const std::exception& e) {
        complain(e.what());
    }
    // Output redirected to a full disk must not look like success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("cannot write to standard output");
        status = kFailed;
    }
    return status;
}

} // namespace tool
