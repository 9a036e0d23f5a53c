// Process.h - What a reader sees of a process, alive or in a core file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

using Address = std::uint64_t;

/// The process cannot be inspected, and what to do about that.
class CannotInspect : public std::runtime_error {
public:
    CannotInspect(const std::string& why, std::string remedy)
        : std::runtime_error(why), remedy_(std::move(remedy))
    {}
    const std::string& remedy() const { return remedy_; }

private:
    std::string remedy_;
};

struct Mapping {
    Address start = 0;
    Address end = 0; ///< exclusive
    bool readable = false;
    bool writable = false;
    bool executable = false;
    std::uint64_t offset = 0; ///< in the file
    std::string path;         ///< as the process sees it; empty for anonymous memory
};

/// General registers in the numbering of the x86-64 ABI's debug information: 7 is the stack
/// pointer and 16 the program counter.
using Registers = std::array<std::optional<Address>, 17>;
inline constexpr std::size_t kStackPointer = 7;
inline constexpr std::size_t kProgramCounter = 16;

struct Thread {
    unsigned int id = 0;          ///< as this system's /proc shows it
    unsigned int innerId = 0;     ///< as the process itself sees it, which differs in a container
    std::string name;             ///< empty if unknown
    char state = 0;               ///< as in /proc: R, S, D, T, Z; 0 if unknown
    std::optional<Address> futex; ///< the word that the thread sleeps on
    Registers registers = {};
    std::uint64_t switches = 0; ///< how often it was switched out: unchanged while it sleeps
};

/// A process to read. Nothing here stops it or writes to it.
class Process {
public:
    virtual ~Process() = default;

    /// Reads all of it or returns false.
    virtual bool read(Address from, void* to, std::size_t size) const = 0;

    /// Ordered by address.
    const std::vector<Mapping>& mappings() const { return mappings_; }
    const Mapping* mappingOf(Address address) const;

    /// Looks again on every call.
    virtual std::vector<Thread> threads() const = 0;

    /// Where this system has a file of the process, or empty if it has another or none.
    virtual std::string fileOf(const Mapping& mapping) const = 0;

    /// The paths of programs and libraries of the process that this system does not have.
    virtual std::vector<std::string> missingModules() const { return {}; }

    virtual bool live() const = 0;
    virtual unsigned int id() const = 0;
    const std::string& name() const { return name_; }

    /// Memory in bytes, where known.
    virtual std::optional<std::uint64_t> anonymousMemory() const { return std::nullopt; }

    template <class T> std::optional<T> get(Address from) const
    {
        T value;
        return read(from, &value, sizeof value) ? std::optional<T>(value) : std::nullopt;
    }

protected:
    std::vector<Mapping> mappings_;
    std::string name_;
};

/// Whether the system lets this process read that one.
std::unique_ptr<Process> openProcess(unsigned int id);

/// \p sysroot is the folder below which the files of the crashed system are, empty for "/".
std::unique_ptr<Process> openCore(const std::string& file, const std::string& sysroot);

/// A process that has libVx.so loaded.
struct Candidate {
    unsigned int id;
    std::string name;
    std::string library;
};

/// The processes that have libVx.so loaded and that this user may look at, in the order of their
/// identifiers, without this process.
std::vector<Candidate> findCandidates();

/// The last part of a path.
std::string_view fileName(std::string_view path);

} // namespace inspect
