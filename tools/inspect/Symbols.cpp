#include "Symbols.h"

#include <cstdlib>
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <fmt/format.h>
#include <set>

namespace inspect {
namespace {

constexpr std::size_t kMostFrames = 128;

// What libdwfl's callbacks need of the thread whose stack is unwound.
struct Unwinding {
    const Process* process;
    const Thread* thread = nullptr;
    std::vector<Address> counters;
};

Unwinding& unwindingOf(void* argument) { return *static_cast<Unwinding*>(argument); }

pid_t nextThread(Dwfl*, void* argument, void** threadArgument)
{
    if (*threadArgument != nullptr)
        return 0;
    *threadArgument = argument;
    return static_cast<pid_t>(unwindingOf(argument).thread->id);
}

bool getThread(Dwfl*, pid_t, void* argument, void** threadArgument)
{
    *threadArgument = argument;
    return true;
}

bool readWord(Dwfl*, Dwarf_Addr from, Dwarf_Word* to, void* argument)
{
    return unwindingOf(argument).process->read(from, to, sizeof *to);
}

bool setRegisters(Dwfl_Thread* thread, void* argument)
{
    const Registers& registers = unwindingOf(argument).thread->registers;
    for (std::size_t i = 0; i < registers.size(); ++i)
        if (const Dwarf_Word value = registers[i].value_or(0);
            registers[i] && !dwfl_thread_state_registers(thread, static_cast<int>(i), 1, &value))
            return false;
    if (registers[kProgramCounter])
        dwfl_thread_state_register_pc(thread, *registers[kProgramCounter]);
    return true;
}

int noteFrame(Dwfl_Frame* frame, void* argument)
{
    Unwinding& unwinding = unwindingOf(argument);
    Dwarf_Addr counter = 0;
    bool exact = false;
    if (!dwfl_frame_pc(frame, &counter, &exact))
        return DWARF_CB_ABORT;
    // A return address may be the first one after its function.
    unwinding.counters.push_back(exact ? counter : counter - 1);
    return unwinding.counters.size() < kMostFrames ? DWARF_CB_OK : DWARF_CB_ABORT;
}

const Dwfl_Thread_Callbacks kThreadCallbacks = {nextThread,   getThread, readWord,
                                                setRegisters, nullptr,   nullptr};

} // namespace

std::string demangled(const std::string& mangled)
{
    int status = 0;
    // Types have names without the prefix of symbols, which the demangler takes as well.
    char* const name = abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status);
    if (name == nullptr)
        return mangled;
    const std::string copy(name);
    std::free(name);
    return copy;
}

std::string callableOf(const std::string& function)
{
    const std::string_view handler = "std::_Function_handler<";
    if (function.compare(0, handler.size(), handler) != 0)
        return function;
    int depth = 0;
    std::size_t comma = std::string::npos;
    for (std::size_t i = handler.size(); i < function.size(); ++i) {
        const char c = function[i];
        if (c == '<' || c == '(' || c == '{')
            ++depth;
        else if (c == '>' && depth == 0)
            return comma == std::string::npos ? function
                                              : function.substr(comma + 2, i - comma - 2);
        else if (c == '>' || c == ')' || c == '}')
            --depth;
        else if (c == ',' && depth == 0 && comma == std::string::npos)
            comma = i;
    }
    return function;
}

struct Symbols::Modules {
    explicit Modules(const Process& process);
    ~Modules()
    {
        if (dwfl != nullptr)
            dwfl_end(dwfl);
    }
    Modules(const Modules&) = delete;
    Modules& operator=(const Modules&) = delete;

    Dwfl_Callbacks callbacks = {};
    Dwfl* dwfl = nullptr;
    Unwinding unwinding{};
    bool unwinds = false;
};

Symbols::Modules::Modules(const Process& process)
{
    callbacks.find_debuginfo = dwfl_standard_find_debuginfo;
    callbacks.section_address = dwfl_offline_section_address;
    unwinding.process = &process;
    dwfl = dwfl_begin(&callbacks);
    if (dwfl == nullptr)
        return;
    std::set<std::string> reported;
    for (const Mapping& mapping : process.mappings()) {
        if (mapping.offset != 0 || mapping.path.empty() || mapping.path[0] != '/' ||
            reported.count(mapping.path) != 0)
            continue;
        const std::string file = process.fileOf(mapping);
        if (file.empty())
            continue;
        if (dwfl_report_elf(dwfl, std::string(fileName(mapping.path)).c_str(), file.c_str(), -1,
                            mapping.start, false) != nullptr)
            reported.insert(mapping.path);
    }
    dwfl_report_end(dwfl, nullptr, nullptr);
    unwinds = dwfl_attach_state(dwfl, nullptr, static_cast<pid_t>(process.id()), &kThreadCallbacks,
                                &unwinding);
}

Symbols::Symbols(const Process& process) : process_(process) {}

Symbols::~Symbols() = default;

// Opening the modules takes longer than all the rest, and most reports need few names or none.
auto Symbols::modules() const -> Modules&
{
    if (modules_ == nullptr)
        modules_ = std::make_unique<Modules>(process_);
    return *modules_;
}

std::string Symbols::function(Address address) const
{
    Dwfl_Module* const module =
        modules().dwfl != nullptr ? dwfl_addrmodule(modules().dwfl, address) : nullptr;
    GElf_Off offset = 0;
    GElf_Sym symbol;
    const char* const name =
        module != nullptr
            ? dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr)
            : nullptr;
    // Of a stripped module the nearest exported symbol may be far away.
    if (name == nullptr || (symbol.st_size != 0 && offset >= symbol.st_size))
        return {};
    return demangled(name);
}

std::string Symbols::module(Address address) const
{
    const Mapping* const mapping = process_.mappingOf(address);
    return mapping != nullptr ? std::string(fileName(mapping->path)) : std::string();
}

auto Symbols::stack(const Thread& thread) const -> std::vector<Frame>
{
    std::vector<Frame> frames;
    if (!thread.registers[kProgramCounter] || !modules().unwinds)
        return frames;
    modules().unwinding.thread = &thread;
    modules().unwinding.counters.clear();
    dwfl_getthread_frames(modules().dwfl, static_cast<pid_t>(thread.id), noteFrame,
                          &modules().unwinding);
    for (const Address counter : modules().unwinding.counters)
        frames.push_back({counter, function(counter), module(counter)});
    return frames;
}

} // namespace inspect
