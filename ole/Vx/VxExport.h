// VxExport.h - marks what the shared libraries offer to others.
#pragma once

/// Marks a function or class as part of a library's binary interface. All else
/// is built with hidden visibility.
#define VX_API __attribute__((visibility("default")))
