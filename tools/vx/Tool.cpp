#include "Tool.h"

#include "Text.h"

#include <Vx/VxException.h>
#include <Vx/VxVersion.h>
#include <cstdio>
#include <fmt/format.h>
#include <new>

namespace tool {

void complain(const std::string& message)
{
    // One write for the line: nothing of it is torn when standard output is the same terminal.
    std::fputs(("vx: " + message + "\n").c_str(), stderr);
}

/// The tool's version is the library's, without the build number, which labels add.
static LightweightString<wchar_t> ownVersion()
{
    const std::string_view library = vxDllVersionStr();
    return fromUtf8(library.substr(0, library.rfind('.')));
}

Tool::Tool(Action action) : Application(L"vx", ownVersion()), action_(std::move(action)) {}

void Tool::run() { status_ = answerOf(action_); }

Status answerOf(const Action& action)
{
    Status status = kFailed;
    try {
        status = action();
    } catch (const Failure& failure) {
        complain(failure.what());
    } catch (const Vx::Exception::Base& e) {
        complain(fmt::format("{}: {} ({}:{})", e.typeName, e.message, e.file, e.line));
    } catch (const std::bad_alloc&) {
        complain("out of memory");
    } catch (const std::exception& e) {
        complain(e.what());
    }
    // A full disk behind a redirection must not look like success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output could not be written");
        status = kFailed;
    }
    return status;
}

} // namespace tool
