// VxExport.h - The export macro.
#pragma once

/// Marks a function or class as part of a library's binary interface. Everything else is
/// built with hidden visibility.
#define VX_API __attribute__((visibility("default")))
