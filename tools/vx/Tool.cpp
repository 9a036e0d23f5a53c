#include "Tool.h"

#include <Vx/VxException.h>
#include <cstdio>
#include <fmt/format.h>
#include <new>

namespace tool {
namespace {

std::string printed(const Message& message, MessageParts parts)
{
    return fmt::format("vx: {}\n    {}\n", filled(message.text, parts),
                       filled(message.remedy, parts));
}

Status statusOf(const Message& message)
{
    switch (message.kind) {
    case MessageKind::remark: return kYes;
    case MessageKind::usage: return kUsage;
    case MessageKind::failure: return kFailed;
    default: return kNo;
    }
}

} // namespace

Failure::Failure(MessageRef message, MessageParts parts)
    : std::runtime_error(printed(*message, parts)), status_(statusOf(*message))
{}

Status complain(MessageRef message, MessageParts parts)
{
    // A single write keeps the lines together when standard output is the same terminal.
    std::fputs(printed(*message, parts).c_str(), stderr);
    return statusOf(*message);
}

Status run(const Action& action)
{
    Status status = kFailed;
    try {
        status = action();
    } catch (const Failure& failure) {
        std::fputs(failure.what(), stderr);
        status = failure.status();
    } catch (const Vx::Exception::Base& e) {
        complain("internal",
                 {fmt::format("{}: {} ({}:{})", e.typeName, e.message, e.file, e.line)});
    } catch (const std::bad_alloc&) {
        complain("out-of-memory");
    } catch (const std::exception& e) {
        // fmt throws when standard output fails, which is reported below.
        if (std::ferror(stdout) == 0)
            complain("internal", {e.what()});
    }
    // Output redirected to a full disk must not look like success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        status = complain("output-failed");
    return status;
}

} // namespace tool
