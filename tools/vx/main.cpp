// vx - Inspects and edits what applications built on Vx store.
#include "Commands.h"

#include <fcntl.h>

/// Gives closed standard streams descriptors that fail. The next file opened would become one, and
/// messages would be written into it.
static void occupyStandardStreams()
{
    for (int stream = 0; stream <= 2; ++stream)
        if (fcntl(stream, F_GETFD) == -1)
            open("/dev/null", stream == 0 ? O_WRONLY : O_RDONLY); // the lowest number is free
}

int main(int argc, char** argv)
{
    occupyStandardStreams();
    return tool::runVx(argc, argv);
}
