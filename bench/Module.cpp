// A small module of a host, with strings of Vx or of the C++ library.
#if BENCH_WITH_VX
#include <Vx/LightweightString.h>
using String = LightweightString<char>;
#else
#include <string>
using String = std::string;
#endif

namespace {
const String kName("a module of the host");
}

extern "C" [[gnu::visibility("default")]] bool isModule(const char* name) { return kName == name; }
