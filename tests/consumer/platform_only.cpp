// Refers to nothing but the platform's entry point.
#include <Vx/platform/OS.h>

int main() { return OS() == nullptr; }
