#include "Text.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace tool {

void printJson(const nlohmann::ordered_json& data)
{
    const std::string text =
        data.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::fputs((text + "\n").c_str(), stdout);
}

} // namespace tool
