// detail/AssertFailure.cpp - What the checks of standard containers call when they fail.
//
// g++ 12 and later expect it in the C++ library. With a copy of its own, which no other module
// sees, each of our libraries also loads beside an older C++ library.
#include <cstdio>
#include <cstdlib>

#if defined(_GLIBCXX_ASSERTIONS) && _GLIBCXX_RELEASE >= 12
void std::__glibcxx_assert_fail(const char* file, int line, const char* function,
                                const char* condition) noexcept
{
    std::fprintf(stderr, "%s:%d: %s: Assertion '%s' failed.\n", file, line, function, condition);
    std::abort();
}
#endif
