// Defines the library's allocation operators in the test program itself, where they precede those
// of sanitizers and Valgrind. The sized forms forward to the unsized ones, as in libstdc++.
#include <Vx/VxMemory.cpp>

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete[](block); }
