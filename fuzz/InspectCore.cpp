// Any file as a core file for `vx inspect`: refused, or read within its bounds.
#include "Fuzz.h"

#include <inspect/Snapshot.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int kCore = 200;
constexpr int kMapped = 201; // the core files of the corpus name it as a file that was mapped

// A file in memory with this descriptor.
void makeFile(int descriptor, const void* bytes, std::size_t size)
{
    const int file = memfd_create("fuzz", 0);
    FUZZ_CLAIM(write(file, bytes, size) == static_cast<ssize_t>(size));
    FUZZ_CLAIM(dup2(file, descriptor) == descriptor && close(file) == 0);
}

void readEdges(const inspect::Process& process)
{
    for (const inspect::Mapping& mapping : process.mappings()) {
        FUZZ_CLAIM(process.mappingOf(mapping.start) != nullptr || mapping.start == mapping.end);
        for (const inspect::Address at : {mapping.start, mapping.start + 4090, mapping.end - 4}) {
            char bytes[8];
            process.read(at, bytes, sizeof bytes);
        }
        process.fileOf(mapping);
    }
    process.missingModules();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool made = [] {
        const std::string page(8192, 'x');
        makeFile(kMapped, page.data(), page.size());
        return true;
    }();
    FUZZ_CLAIM(made);
    makeFile(kCore, data, size);
    try {
        const auto process =
            inspect::openCore("/proc/self/fd/" + std::to_string(kCore), "/proc/self/fd");
        FUZZ_CLAIM(!process->threads().empty());
        readEdges(*process);
        inspect::takeSnapshot(*process);
        FUZZ_CLAIM(false); // nothing in the corpus is of a process with the library
    } catch (const inspect::CannotInspect& refused) {
        FUZZ_CLAIM(*refused.what() != '\0' && !refused.remedy().empty());
    }
    return 0;
}
