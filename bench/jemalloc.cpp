// jemalloc under names of its own. Its library defines malloc; linked here with hidden symbols, it
// serves only these two functions.
#include <cstdlib>

extern "C" [[gnu::visibility("default")]] void* bench_je_malloc(std::size_t size)
{
    return std::malloc(size);
}
extern "C" [[gnu::visibility("default")]] void bench_je_free(void* block) { std::free(block); }
