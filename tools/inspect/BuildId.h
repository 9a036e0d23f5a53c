// BuildId.h - The identifier that the linker gives a program or library.
#pragma once

#include <cstddef>
#include <string>

namespace inspect {

/// The build ID in the ELF image that begins with \p bytes, in hexadecimal; empty if it has none
/// or if it lies beyond \p size.
std::string buildIdIn(char* bytes, std::size_t size);

} // namespace inspect
