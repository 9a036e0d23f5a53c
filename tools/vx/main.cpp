// vx - Inspects and edits what applications built on Vx store.
#include "CommandLine.h"

int main(int argc, char** argv) { return tool::runCommandLine(argc, argv); }
