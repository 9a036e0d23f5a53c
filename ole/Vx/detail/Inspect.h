// detail/Inspect.h - The descriptors by which diagnostic tools find their way in a process.
#pragma once

#include <Vx/VxExport.h>
#include <cstddef>
#include <cstdint>

/// libVx.so and libOS.so each export one descriptor: constants that the compiler computed, which
/// say where a process keeps its locks, names, callbacks and pools, and how they are laid out.
/// `vx inspect` and the gdb commands read them, and so does a report of the process on itself.
///
/// Versions: a tool refuses a descriptor of another version. Tables grow at the end only, and
///   start with their size, so that a tool knows which members a library has.
/// Addresses are those of the process that is read. Offsets and sizes are in bytes.
/// Core files: every table has an address in it. So the loader writes to it, and the kernel does
///   not leave it out of a core file as it does with read-only data.
namespace Vx {
namespace detail {

constexpr std::uint32_t kInspectVersion = 1;
constexpr char kInspectLibraryMagic[16] = "Vx library 1\n\x1a\x7f";
constexpr char kInspectPlatformMagic[16] = "Vx platform 1\n\x1a";

/// Every handle is a Vx::Ptr: the address of its count, then that of its object.
constexpr std::uint32_t kObjectInPtr = 8;

/// CriticalSection and the strings in it.
struct InspectLocks {
    std::uint32_t size;
    std::uint32_t repInSection; ///< of the pointer to the representation
    const void* self;
    std::uint32_t platformLock;    ///< in the representation: of the pointer to the iLock
    std::uint32_t entryCount;      ///< nested entries of the owner
    std::uint32_t ownerThread;     ///< the platform's identifier of the owner, 0 if free
    std::uint32_t name;            ///< of the name
    std::uint32_t blockInString;   ///< in any string: of the pointer to its block, null if empty
    std::uint32_t dataInBlock;     ///< of the pointer to the first character
    std::uint32_t lengthInBlock;   ///< 32 bits
    std::uint32_t capacityInBlock; ///< 32 bits, greater than the length
    std::uint32_t standardLibrary; ///< 1: nodes of lists and sets are libstdc++'s
};

/// NamedObjectsNamespace.
struct InspectNames {
    std::uint32_t size;
    std::uint32_t entries;       ///< in the namespace: of the std::list of entries
    const void* global;          ///< of the pointer to the namespace "GLOBAL", null before its use
    std::uint32_t namespaceLock; ///< in the namespace
    std::uint32_t namespaceName; ///< in the namespace
    std::uint32_t object;        ///< in an entry, and so on
    std::uint32_t lock;
    std::uint32_t typeName;
    std::uint32_t objectName;
};

/// What Shutdown notes while it runs callbacks.
struct InspectShutdownProgress {
    const void* due;     ///< the std::set of the first pass, null outside of it
    const void* running; ///< the item whose callback runs, null if none does
    std::uint32_t ended; ///< 1 once executeCallbacks() has returned
};

/// The shutdown list of the process.
struct InspectShutdown {
    std::uint32_t size;
    std::uint32_t lockInList;
    const void* status;        ///< of Shutdown::status
    const void* list;          ///< of Shutdown::shutdownCallbacks_
    const void* progress;      ///< of an InspectShutdownProgress
    std::uint32_t itemsInList; ///< of the std::set
    std::uint32_t priority;    ///< in an item, 32 bits
    std::uint32_t sequence;    ///< in an item, 32 bits
    std::uint32_t callback;    ///< in an item: of the pointer to the callback
    std::uint32_t function;    ///< in a Shutdown::FunctionCallback: of the std::function
};

/// Vx::Application. Strings are of wide characters.
struct InspectApplication {
    std::uint32_t size;
    std::uint32_t name;
    const void* instance; ///< of the pointer to the application, null before the first
    std::uint32_t version;
    std::uint32_t logsPath;
    std::uint32_t userDataPath;
    std::uint32_t previousExitWasNormal; ///< one byte
};

/// The pool loggers.
struct InspectPools {
    std::uint32_t size;
    std::uint32_t recordInLogger; ///< of the pointer to the record
    const void* stack;            ///< of PooledObjectDebug::gAllLoggers
    std::uint32_t nextInNode;
    std::uint32_t loggerInNode; ///< null once the logger is destroyed
    std::uint32_t name;         ///< in a record: of the pointer to a NUL-terminated string
    std::uint32_t inUse;        ///< 32 bits, signed
    std::uint32_t maxInUse;     ///< 32 bits, signed
    std::uint32_t peakDemand;   ///< a double, per millisecond
    std::uint32_t peakTime;     ///< a double, milliseconds of msecsNow()
    std::uint32_t peakWallTime; ///< std::time_t
};

/// What libVx.so exports as `Vx_inspectDescriptor`.
struct InspectDescriptor {
    char magic[16];
    std::uint32_t version;
    std::uint32_t size;
    const InspectDescriptor* self; ///< its own address, which tells it from a copy
    char libraryVersion[24];       ///< NUL-terminated
    const InspectLocks* locks;
    const InspectNames* names;
    const InspectShutdown* shutdown;
    const InspectApplication* application;
    const InspectPools* pools;
};

/// The platform's locks.
struct InspectPlatformLocks {
    std::uint32_t size;
    std::uint32_t lockSize;
    const void* self;
    std::uint32_t recursion;    ///< 32 bits: entries of the owner beyond the first
    std::uint32_t owner;        ///< 64 bits: the number of the holder, 0 if free
    std::uint32_t futex;        ///< 32 bits: the word on which waiting threads sleep, 0 if free
    std::uint32_t threadIdBits; ///< how many low bits of the number hold the thread's identifier
};

constexpr std::uint32_t kInspectMostClasses = 96;

/// The platform's small blocks.
struct InspectBlocks {
    std::uint32_t size;
    std::uint32_t spanSize;
    const void* base;        ///< of the address of the first span, 64 bits
    const void* chunksTried; ///< of the number of chunks that may be mapped, 32 bits
    const void* chunks;      ///< of an array with a record for each chunk
    const void* classOfSpan; ///< of an array with a byte for each span, 0 if not in use
    std::uint32_t classes;   ///< including class 0
    std::uint32_t spansPerChunk;
    std::uint32_t maxSpans;
    std::uint32_t chunkSize;     ///< of a chunk's record
    std::uint32_t mappedInChunk; ///< one byte
    std::uint32_t recordSize;    ///< span records are in an array after the last span
    std::uint32_t freeInRecord;  ///< of words of 64 bits, a bit set for each free block
    std::uint32_t wordsInRecord;
    std::uint32_t blockSizes[kInspectMostClasses]; ///< bytes, by class
};

/// What libOS.so exports as `Vx_inspectPlatform`. Other platforms may leave it out.
struct InspectPlatform {
    char magic[16];
    std::uint32_t version;
    std::uint32_t size;
    const InspectPlatform* self;
    const InspectPlatformLocks* locks;
    const InspectBlocks* blocks; ///< null if the platform uses malloc alone
};

/// Each table is defined in the source file of the class that it describes, which makes this
/// struct a friend.
struct Inspect {
    static const InspectLocks locks;
    static const InspectNames names;
    static const InspectShutdown shutdown;
    static const InspectApplication application;
    static const InspectPools pools;
};

} // namespace detail
} // namespace Vx

extern "C" VX_API const Vx::detail::InspectDescriptor Vx_inspectDescriptor;
extern "C" VX_API const Vx::detail::InspectPlatform Vx_inspectPlatform;

/// Copies memory of this process, or returns false and leaves \p into unspecified if a part of it
/// cannot be read. Never faults. Async-signal-safe; keeps errno.
///
/// libOS.so exports it. Other platforms may leave it out; a report of the process on itself then
/// reads directly, and faults where an address is damaged.
extern "C" VX_API bool Vx_readMemory(const void* from, void* into, std::size_t size) noexcept;
