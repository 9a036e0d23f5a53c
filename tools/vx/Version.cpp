#include "Commands.h"
#include "Json.h"
#include "Strings.h"

#include <Vx/VxVersion.h>
#include <fmt/format.h>

namespace tool {

void addVersion(Command top)
{
    Command command = top.add("version", "Prints the version of the Vx library");
    auto json = std::make_shared<bool>(false);
    command.jsonFlag(*json);
    command.footer("Example:\n  vx version --json");
    command.runs([json] {
        const std::string_view version = vxDllVersionStr();
        const std::string_view major = version.substr(0, version.find('.'));
        const auto year = toUtf8(Vx::getVersionDisplayString(vxString(major)));
        if (*json)
            printJson({{"library", version}, {"release", view(year)}});
        else
            fmt::print("libVx.so {}, release {}\n", version, view(year));
        return kYes;
    });
}

} // namespace tool
