// Reads a core file, and what it leaves out from the files that were mapped.
#include "BuildId.h"
#include "Process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <map>
#include <sys/procfs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace inspect {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::uint64_t kMostNotes = 1 << 28; // bytes
constexpr std::size_t kMostSegments = 1 << 20;
constexpr std::size_t kMostThreads = 1 << 15;

/// A regular file. Others, which a core file may name as well, might block or never end.
class File {
public:
    explicit File(const std::string& path)
        : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        struct stat status;
        regular_ = descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    }
    ~File()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }
    bool isRegular() const { return regular_; }

    /// Reads all of it or returns false.
    bool read(std::uint64_t offset, void* to, std::size_t size) const
    {
        auto* at = static_cast<char*>(to);
        while (size != 0) {
            const ssize_t got = pread(descriptor_, at, size, static_cast<off_t>(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            at += got;
            offset += static_cast<std::uint64_t>(got);
            size -= static_cast<std::size_t>(got);
        }
        return true;
    }

private:
    const int descriptor_;
    bool regular_;
};

/// The first page of a program or library.
struct FirstPage {
    alignas(Elf64_Ehdr) char bytes[kPage];

    bool isModule() const { return std::memcmp(bytes, ELFMAG, SELFMAG) == 0; }

    /// Whether it is of the same build. Stripping a file changes its first page, but not its ID.
    bool isOf(FirstPage& other, const std::string& id)
    {
        return std::memcmp(bytes, other.bytes, kPage) == 0 ||
               (!id.empty() && buildIdIn(bytes, kPage) == id);
    }
};

/// A part of memory: in the core file, or left out of it.
struct Segment {
    Address start;
    std::uint64_t size;   ///< in memory
    std::uint64_t stored; ///< in the core file
    std::uint64_t offset; ///< in the core file
    std::uint32_t flags;
};

struct FileMapping {
    Address start;
    Address end;
    std::uint64_t offset;
    std::string path;
};

constexpr const char* kIncomplete =
    "Give a complete core file: check 'ulimit -c', and the disk of the machine that wrote it.";

class CoreFile final : public Process {
public:
    CoreFile(const std::string& path, const std::string& sysroot)
        : path_(path), sysroot_(sysroot), core_(path)
    {
        if (!core_.isOpen())
            throw CannotInspect(
                fmt::format("'{}' cannot be opened: {}", path, std::strerror(errno)),
                "Check the name and the permissions of the file.");
        name_ = std::string(fileName(path));
        readHeaders();
        makeMappings();
    }

    bool read(Address from, void* to, std::size_t size) const override
    {
        auto* at = static_cast<char*>(to);
        while (size != 0) {
            const std::size_t done = readPiece(from, at, size);
            if (done == 0)
                return false;
            from += done;
            at += done;
            size -= done;
        }
        return true;
    }

    std::vector<Thread> threads() const override { return threads_; }

    std::string fileOf(const Mapping& mapping) const override
    {
        const auto known = files_.find(mapping.path);
        return known != files_.end() ? known->second
                                     : files_[mapping.path] = findFile(mapping.path);
    }

    std::vector<std::string> missingModules() const override
    {
        std::vector<std::string> missing;
        for (const Mapping& mapping : mappings_) {
            FirstPage stored;
            if (isFirstOfPath(mapping) && readFirstPage(mapping.path, stored) &&
                stored.isModule() && fileOf(mapping).empty())
                missing.push_back(mapping.path);
        }
        return missing;
    }

    bool live() const override { return false; }
    unsigned int id() const override { return id_; }

private:
    void readHeaders();
    std::vector<Elf64_Phdr> programHeaders(const Elf64_Ehdr& header) const;
    void readNotes(std::uint64_t offset, std::uint64_t size);
    void readStatus(const char* note, std::size_t size);
    void readFiles(const char* note, std::size_t size);
    void makeMappings();
    void addLeftOut(const FileMapping& file, Address start, Address end);
    bool isCode(const Mapping& mapping) const;
    const Segment* segmentOf(Address address) const;
    std::size_t readPiece(Address from, char* to, std::size_t size) const;
    std::size_t readLeftOut(Address from, char* to, std::size_t size) const;
    bool isFirstOfPath(const Mapping& mapping) const;
    bool readFirstPage(const std::string& path, FirstPage& page) const;
    std::string findFile(const std::string& path) const;

    [[noreturn]] void refuse(const char* why, const char* remedy = kIncomplete) const
    {
        throw CannotInspect(fmt::format("'{}' {}", path_, why), remedy);
    }

    const std::string path_;
    const std::string sysroot_;
    const File core_;
    unsigned int id_ = 0;
    std::vector<Segment> segments_;         // by address
    std::vector<FileMapping> fileMappings_; // by address
    std::vector<Thread> threads_;
    std::uint64_t notesRead_ = 0;                      // bytes
    std::map<std::string, std::uint64_t> firstPages_;  // by path: the offset in the core file
    mutable std::map<std::string, std::string> files_; // the files that were mapped, verified
    mutable std::map<std::string, std::unique_ptr<File>> opened_;
};

void CoreFile::readHeaders()
{
    Elf64_Ehdr header;
    if (!core_.isRegular() || !core_.read(0, &header, sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        refuse("is not a core file", "Name the file that the crashed process left; where systemd "
                                     "keeps them, 'coredumpctl dump PID -o FILE' writes it.");
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_machine != EM_X86_64)
        refuse("is a core file of another kind of processor");
    if (header.e_type != ET_CORE || header.e_phentsize != sizeof(Elf64_Phdr))
        refuse("is not a core file but a program or a library",
               "Name the core file alone: it says which programs and libraries it needs.");
    for (const Elf64_Phdr& segment : programHeaders(header))
        if (segment.p_type == PT_NOTE)
            readNotes(segment.p_offset, segment.p_filesz);
        else if (segment.p_type == PT_LOAD && segment.p_vaddr + segment.p_memsz >= segment.p_vaddr)
            segments_.push_back({segment.p_vaddr, segment.p_memsz,
                                 std::min(segment.p_filesz, segment.p_memsz), segment.p_offset,
                                 segment.p_flags});
    std::sort(segments_.begin(), segments_.end(),
              [](const Segment& a, const Segment& b) { return a.start < b.start; });
    if (threads_.empty())
        refuse("has no threads; it is truncated or damaged");
}

std::vector<Elf64_Phdr> CoreFile::programHeaders(const Elf64_Ehdr& header) const
{
    std::size_t count = header.e_phnum;
    Elf64_Shdr section;
    if (count == PN_XNUM && core_.read(header.e_shoff, &section, sizeof section))
        count = section.sh_info;
    if (count > kMostSegments)
        refuse("is damaged: it has too many segments");
    std::vector<Elf64_Phdr> segments(count);
    if (count == 0 || !core_.read(header.e_phoff, segments.data(), count * sizeof(Elf64_Phdr)))
        refuse("is truncated: its table of segments is missing");
    return segments;
}

void CoreFile::readNotes(std::uint64_t offset, std::uint64_t size)
{
    if (size > kMostNotes - notesRead_)
        refuse("is damaged: its notes are too large");
    notesRead_ += size;
    std::vector<char> notes(size);
    if (!core_.read(offset, notes.data(), size))
        refuse("is truncated: its notes are missing");
    for (std::size_t at = 0; at + sizeof(Elf64_Nhdr) <= size;) {
        Elf64_Nhdr note;
        std::memcpy(&note, notes.data() + at, sizeof note);
        const std::uint64_t contents =
            at + sizeof note + ((std::uint64_t{note.n_namesz} + 3) & ~std::uint64_t{3});
        const std::uint64_t next =
            contents + ((std::uint64_t{note.n_descsz} + 3) & ~std::uint64_t{3});
        if (contents > size || size - contents < note.n_descsz)
            return;
        const char* const start = notes.data() + contents;
        if (note.n_type == NT_PRSTATUS)
            readStatus(start, note.n_descsz);
        else if (note.n_type == NT_FILE)
            readFiles(start, note.n_descsz);
        else if (note.n_type == NT_PRPSINFO && note.n_descsz >= sizeof(elf_prpsinfo)) {
            elf_prpsinfo info;
            std::memcpy(&info, start, sizeof info);
            id_ = static_cast<unsigned int>(info.pr_pid);
            name_.assign(info.pr_fname, strnlen(info.pr_fname, sizeof info.pr_fname));
        }
        at = next;
    }
}

void CoreFile::readStatus(const char* note, std::size_t size)
{
    elf_prstatus status;
    if (size < sizeof status)
        return;
    std::memcpy(&status, note, sizeof status);
    // In the order of the kernel: r15 r14 r13 r12 rbp rbx r11 r10 r9 r8 rax rcx rdx rsi rdi
    // orig_rax rip cs eflags rsp ss.
    constexpr std::size_t kCall = 15;
    constexpr std::size_t kFirstArgument = 14;
    constexpr std::array<std::size_t, 17> kPlaces = {10, 12, 11, 5, 13, 14, 4, 19, 9,
                                                     8,  7,  6,  3, 2,  1,  0, 16};
    Thread thread;
    thread.id = thread.innerId = static_cast<unsigned int>(status.pr_pid);
    for (std::size_t i = 0; i < kPlaces.size(); ++i)
        thread.registers[i] = status.pr_reg[kPlaces[i]];
    if (status.pr_reg[kCall] == SYS_futex)
        thread.futex = status.pr_reg[kFirstArgument];
    if (threads_.empty() && id_ == 0)
        id_ = thread.id;
    if (threads_.size() == kMostThreads)
        refuse("is damaged: it has too many threads");
    threads_.push_back(std::move(thread));
}

// The count and the page size, three numbers for each mapping, and then the paths.
void CoreFile::readFiles(const char* note, std::size_t size)
{
    std::uint64_t counts[2];
    if (size < sizeof counts)
        return;
    std::memcpy(counts, note, sizeof counts);
    const std::uint64_t count = counts[0];
    if (count > kMostSegments || sizeof counts + count * 24 > size)
        return;
    std::size_t path = sizeof counts + count * 24;
    for (std::uint64_t i = 0; i < count && path < size; ++i) {
        std::uint64_t numbers[3];
        std::memcpy(numbers, note + sizeof counts + i * 24, sizeof numbers);
        const std::size_t length = strnlen(note + path, size - path);
        fileMappings_.push_back(
            {numbers[0], numbers[1], numbers[2] * counts[1], std::string(note + path, length)});
        path += length + 1;
    }
    std::sort(fileMappings_.begin(), fileMappings_.end(),
              [](const FileMapping& a, const FileMapping& b) { return a.start < b.start; });
}

// Segments tell permissions, file mappings tell paths. Debuggers leave out the segments of pages
// that are as in the file. Both lists are by address, and are walked side by side.
void CoreFile::makeMappings()
{
    std::size_t next = 0; // the file mapping at or after the segment
    for (const Segment& segment : segments_) {
        Mapping mapping;
        mapping.start = segment.start;
        mapping.end = segment.start + segment.size;
        mapping.readable = (segment.flags & PF_R) != 0;
        mapping.writable = (segment.flags & PF_W) != 0;
        mapping.executable = (segment.flags & PF_X) != 0;
        while (next < fileMappings_.size() && fileMappings_[next].end <= segment.start)
            ++next;
        if (next < fileMappings_.size() && fileMappings_[next].start <= segment.start) {
            const FileMapping& file = fileMappings_[next];
            mapping.path = file.path;
            mapping.offset = file.offset + segment.start - file.start;
            if (mapping.offset == 0 && segment.stored >= kPage)
                firstPages_.emplace(file.path, segment.offset);
        }
        mappings_.push_back(std::move(mapping));
    }
    auto segment = segments_.begin();
    Address done = 0;
    for (const FileMapping& file : fileMappings_) {
        done = std::max(done, file.start);
        for (; segment != segments_.end() && segment->start < file.end; ++segment) {
            if (done < segment->start)
                addLeftOut(file, done, segment->start);
            done = std::max(done, segment->start + segment->size);
        }
        if (done < file.end)
            addLeftOut(file, done, file.end);
        done = std::max(done, file.end);
    }
    std::sort(mappings_.begin(), mappings_.end(),
              [](const Mapping& a, const Mapping& b) { return a.start < b.start; });
}

void CoreFile::addLeftOut(const FileMapping& file, Address start, Address end)
{
    Mapping mapping;
    mapping.start = start;
    mapping.end = end;
    mapping.readable = true;
    mapping.offset = file.offset + (start - file.start);
    mapping.path = file.path;
    mapping.executable = isCode(mapping);
    mappings_.push_back(std::move(mapping));
}

// Whether the module's own headers make this part of it executable.
bool CoreFile::isCode(const Mapping& mapping) const
{
    const std::string path = fileOf(mapping);
    if (path.empty())
        return false;
    const File file(path);
    Elf64_Ehdr header;
    if (!file.isRegular() || !file.read(0, &header, sizeof header) ||
        header.e_phentsize != sizeof(Elf64_Phdr))
        return false;
    for (unsigned int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (!file.read(header.e_phoff + i * sizeof segment, &segment, sizeof segment))
            return false;
        const std::uint64_t start = segment.p_offset / kPage * kPage;
        if (segment.p_type == PT_LOAD && start <= mapping.offset &&
            mapping.offset < segment.p_offset + segment.p_filesz)
            return (segment.p_flags & PF_X) != 0;
    }
    return false;
}

const Segment* CoreFile::segmentOf(Address address) const
{
    const auto after = std::upper_bound(
        segments_.begin(), segments_.end(), address,
        [](Address wanted, const Segment& segment) { return wanted < segment.start; });
    if (after == segments_.begin() || address - (after - 1)->start >= (after - 1)->size)
        return nullptr;
    return &*(after - 1);
}

// Reads as far as one segment or mapping goes. Returns 0 if nothing can be read.
std::size_t CoreFile::readPiece(Address from, char* to, std::size_t size) const
{
    if (const Segment* const segment = segmentOf(from)) {
        const std::uint64_t skipped = from - segment->start;
        size = std::min<std::uint64_t>(size, segment->size - skipped);
        if (skipped < segment->stored) {
            size = std::min<std::uint64_t>(size, segment->stored - skipped);
            return core_.read(segment->offset + skipped, to, size) ? size : 0;
        }
    }
    return readLeftOut(from, to, size);
}

std::size_t CoreFile::readLeftOut(Address from, char* to, std::size_t size) const
{
    const Mapping* const mapping = mappingOf(from);
    if (mapping == nullptr || mapping->path.empty() || mapping->writable)
        return 0;
    size = std::min<std::uint64_t>(size, mapping->end - from);
    const std::string file = fileOf(*mapping);
    if (file.empty())
        return 0;
    auto& opened = opened_[file];
    if (opened == nullptr)
        opened = std::make_unique<File>(file);
    return opened->read(mapping->offset + (from - mapping->start), to, size) ? size : 0;
}

bool CoreFile::isFirstOfPath(const Mapping& mapping) const
{
    return mapping.offset == 0 && firstPages_.count(mapping.path) != 0;
}

// Kernels store the first page of each module, with its build ID.
bool CoreFile::readFirstPage(const std::string& path, FirstPage& page) const
{
    const auto found = firstPages_.find(path);
    return found != firstPages_.end() && core_.read(found->second, page.bytes, kPage);
}

// Looks for a mapped file at its own path below the sysroot, in the sysroot itself, where people
// collect the files of another machine, and by its build ID where debuggers keep such files. A
// file of another build has been replaced since and is not used.
std::string CoreFile::findFile(const std::string& path) const
{
    FirstPage stored;
    if (!readFirstPage(path, stored))
        return {};
    constexpr std::string_view kDeleted = " (deleted)"; // replaced while the process ran
    std::string name = path;
    if (name.size() > kDeleted.size() &&
        name.compare(name.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0)
        name.erase(name.size() - kDeleted.size());
    const std::string id = stored.isModule() ? buildIdIn(stored.bytes, kPage) : "";
    std::vector<std::string> candidates = {sysroot_ + name};
    if (!sysroot_.empty())
        candidates.push_back(fmt::format("{}/{}", sysroot_, fileName(name)));
    if (id.size() > 2)
        candidates.push_back(fmt::format("{}/usr/lib/debug/.build-id/{}/{}", sysroot_,
                                         id.substr(0, 2), id.substr(2)));
    for (const std::string& candidate : candidates) {
        const File opened(candidate);
        FirstPage found;
        if (opened.isRegular() && opened.read(0, found.bytes, kPage) && found.isOf(stored, id))
            return candidate;
    }
    return {};
}

} // namespace

std::unique_ptr<Process> openCore(const std::string& file, const std::string& sysroot)
{
    return std::make_unique<CoreFile>(file, sysroot);
}

} // namespace inspect
