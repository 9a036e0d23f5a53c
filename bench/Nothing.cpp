// A program that does nothing but load modules, to measure the cost of loading the library.
#include <cstdlib>
#include <dlfcn.h>
#include <string>

// usage: bench-start [FOLDER COUNT]: loads 0.so, 1.so, ... from the folder
int main(int argc, char** argv)
{
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    for (int i = 0; i < count; ++i)
        if (dlopen((std::string(argv[1]) + "/" + std::to_string(i) + ".so").c_str(), RTLD_NOW) ==
            nullptr)
            return 1;
}
