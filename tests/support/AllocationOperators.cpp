// AllocationOperators.cpp - for sanitizers and Valgrind: the library's operators in the test program
// itself, in front of the sanitizers' own, and the sized forms as the C++ library has them.
// They forward to the unsized ones, so that every block goes back to the platform.
#include <Vx/VxMemory.cpp>

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete[](block); }
