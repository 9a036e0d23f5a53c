// vx - Inspects and edits what applications built on Vx store.
#include "Commands.h"

int main(int argc, char** argv) { return tool::runVx(argc, argv); }
