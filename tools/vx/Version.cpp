#include "Commands.h"
#include "Json.h"
#include "Text.h"

#include <Vx/VxVersion.h>
#include <fmt/format.h>

namespace tool {

void addVersion(Command top)
{
    Command command = top.add("version", "Says which Vx this is");
    auto json = std::make_shared<bool>(false);
    command.jsonFlag(*json);
    command.footer("Example:\n  vx version --json");
    command.runs([json] {
        const std::string_view version = vxDllVersionStr();
        const std::string_view major = version.substr(0, version.find('.'));
        const auto label = toUtf8(Vx::getVersionLabel());
        const auto year = toUtf8(Vx::getVersionDisplayString(text(major)));
        if (*json)
            printJson({{"library", version}, {"release", view(year)}, {"label", view(label)}});
        else
            fmt::print("{}\nlibVx.so {}, release {}\n", view(label), version, view(year));
        return kYes;
    });
}

} // namespace tool
