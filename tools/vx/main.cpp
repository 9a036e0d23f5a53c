// vx - for people who support an application that stands on Vx.
#include "CommandLine.h"

int main(int argc, char** argv)
{
    tool::Status status = tool::kFailed;
    tool::Action action = tool::readCommandLine(argc, argv, status);
    if (!action)
        return status;
    auto* host = new tool::Tool(std::move(action)); // lives until the process ends
    host->run();
    host->shutdown();
    return host->status();
}
