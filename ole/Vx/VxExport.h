// VxExport.h - The export macro.
#pragma once

#if __cplusplus < 201703L
#error "Vx needs C++17 or later: compile with -std=c++17"
#elif __SIZEOF_WCHAR_T__ != 4
#error "Vx needs characters of 32 bits in wide strings: compile without -fshort-wchar"
#elif !defined(__LP64__)
#error "Vx needs pointers of 64 bits: compile without -m32 and -mx32"
#endif

/// Marks a function or class as part of a library's binary interface. Everything else is
/// built with hidden visibility.
#define VX_API __attribute__((visibility("default")))
