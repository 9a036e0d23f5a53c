#include "BuildId.h"

#include <elfutils/libdwelf.h>
#include <fmt/format.h>
#include <iterator>
#include <libelf.h>

namespace inspect {

std::string buildIdIn(char* bytes, std::size_t size)
{
    elf_version(EV_CURRENT);
    Elf* const image = elf_memory(bytes, size);
    const void* id = nullptr;
    const ssize_t length = image != nullptr ? dwelf_elf_gnu_build_id(image, &id) : 0;
    std::string text;
    for (ssize_t i = 0; i < length; ++i)
        fmt::format_to(std::back_inserter(text), "{:02x}",
                       static_cast<const unsigned char*>(id)[i]);
    elf_end(image);
    return text;
}

} // namespace inspect
