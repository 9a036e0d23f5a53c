#include "Messages.h"

#include <fmt/args.h>
#include <fmt/format.h>

namespace tool {

std::string filled(std::string_view text, MessageParts parts)
{
    fmt::dynamic_format_arg_store<fmt::format_context> arguments;
    for (const std::string& part : parts)
        arguments.push_back(part);
    return fmt::vformat(text, arguments);
}

} // namespace tool
