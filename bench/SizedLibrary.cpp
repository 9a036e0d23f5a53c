// A library that does nothing, of a given size and with a given number of relocations.
#include <cstddef>
#include <utility>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

char place;
template <std::size_t> constexpr const char* kPlace = &place;

} // namespace

template <std::size_t> __attribute__((visibility("default"))) void symbol() {}

// The loader adds the library's address to each of these.
struct Relative {
    template <std::size_t... I>
    constexpr explicit Relative(std::index_sequence<I...>) : places{kPlace<I>...}
    {}
    const char* places[BENCH_RELATIVE];
};

// It looks up each of these by name. The names of one library are not those of another.
struct Symbolic {
    template <std::size_t... I>
    constexpr explicit Symbolic(std::index_sequence<I...>) : functions{symbol<BENCH_SIZE + I>...}
    {}
    void (*functions[BENCH_SYMBOLIC])();
};

EXPORTED const Relative relative(std::make_index_sequence<BENCH_RELATIVE>{});
EXPORTED const Symbolic symbolic(std::make_index_sequence<BENCH_SYMBOLIC>{});
EXPORTED const unsigned char text[BENCH_SIZE] = {1};
