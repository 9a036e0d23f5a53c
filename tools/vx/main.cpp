// vx - for people who support an application that stands on Vx.
#include "Commands.h"
#include "Terminal.h"

#include <Vx/VxVersion.h>

namespace {

constexpr const char* kExamples = R"(Examples:
  vx ini check editor.ini               what loads differently from what it looks like
  vx ini set editor.ini Video rate 50   changes one line and leaves the others alone
  vx fcc xd5c                           the playout code of a stored essence
  vx pools --plot PooledObjects.log     peak demand over the runs

Exit status: 0 yes, done; 1 no, not found, different, findings; 2 usage; 3 failed.
See 'vx COMMAND --help' for one command, and 'man vx'.)";

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("vx - inspects and edits what applications built on Vx store", "vx");
    // The help is for people: what is required shows by the brackets that are not there.
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->label("TEXT", "");
    app.footer(kExamples);
    app.set_version_flag("--version", vxDllVersionStr());
    std::string colour = "auto";
    app.add_option("--color", colour, "Colour: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.require_subcommand(1);

    tool::Action chosen;
    tool::addIni(app, chosen);
    tool::addUuid(app, chosen);
    tool::addFcc(app, chosen);
    tool::addMeta(app, chosen);
    tool::addPools(app, chosen);
    tool::addVersion(app, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? tool::kYes : tool::kUsage;
    }
    tool::chooseColour(colour);
    auto* host = new tool::Tool(std::move(chosen)); // lives until the process ends
    host->run();
    host->shutdown();
    return host->status();
}
