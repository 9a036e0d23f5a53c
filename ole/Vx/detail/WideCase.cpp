#include <Vx/detail/WideCase.h>

#include <atomic>
#include <cwctype>
#include <locale.h>

namespace {

struct Lower {
    [[maybe_unused]] static constexpr const char* kMapping = "tolower";
    static std::wint_t convert(std::wint_t c) { return std::towlower(c); }
};

struct Upper {
    [[maybe_unused]] static constexpr const char* kMapping = "toupper";
    static std::wint_t convert(std::wint_t c) { return std::towupper(c); }
};

template <class Case> wchar_t convert(wchar_t c)
{
    return static_cast<wchar_t>(Case::convert(static_cast<std::wint_t>(c)));
}

template <class Case> void convertPlain(wchar_t* chars, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        chars[i] = convert<Case>(chars[i]);
}

} // namespace

namespace Vx {

void detail::lowerPlain(wchar_t* chars, std::size_t count) { convertPlain<Lower>(chars, count); }
void detail::raisePlain(wchar_t* chars, std::size_t count) { convertPlain<Upper>(chars, count); }

#ifndef VX_PLAIN

namespace {

// What the mapping of one locale makes of the scripts from Latin to Arabic.
struct CaseTable {
    static constexpr wchar_t kSize = 0x800;

    std::atomic<std::wctrans_t> mapping{nullptr};
    std::atomic<bool> complete{false};
    wchar_t converted[kSize] = {};
};

// Returns the table of the current locale, or null if it has none.
template <class Case> const CaseTable* currentTable()
{
#ifdef __GLIBC__
    // A table is known by the address of the mapping that filled it. Only the mappings of the
    // global locale keep their addresses for the life of the process; another locale may be
    // freed, and a different one allocated in its place. Few processes use a second locale.
    static constinit CaseTable tables[3];
    const auto currentMapping = [] {
        return uselocale(nullptr) == LC_GLOBAL_LOCALE ? std::wctrans(Case::kMapping) : nullptr;
    };
    const std::wctrans_t mapping = currentMapping();
    if (mapping == nullptr)
        return nullptr;
    for (CaseTable& table : tables) {
        std::wctrans_t known = table.mapping.load(std::memory_order_relaxed);
        if (known == nullptr && table.mapping.compare_exchange_strong(known, mapping)) {
            for (wchar_t c = 0; c < CaseTable::kSize; ++c)
                table.converted[c] = convert<Case>(c);
            // Never complete if another thread has changed the locale meanwhile.
            table.complete.store(currentMapping() == mapping, std::memory_order_release);
            known = mapping;
        }
        if (known == mapping)
            return table.complete.load(std::memory_order_acquire) ? &table : nullptr;
    }
#endif
    return nullptr;
}

template <class Case> void convertByTable(wchar_t* chars, std::size_t count)
{
    constexpr std::size_t kWorthwhile = 8; // for fewer characters, finding the table takes longer
    const CaseTable* const table = count >= kWorthwhile ? currentTable<Case>() : nullptr;
    if (table == nullptr)
        return convertPlain<Case>(chars, count);
    const wchar_t* const converted = table->converted;
    const auto inTable = [](wchar_t c) { return c >= 0 && c < CaseTable::kSize; };
    std::size_t i = 0;
    // Reads four before it writes one: as far as the compiler knows, a write changes the table.
    for (; count - i >= 4; i += 4) {
        wchar_t* const four = chars + i;
        if (inTable(four[0] | four[1] | four[2] | four[3])) {
            const wchar_t a = converted[four[0]], b = converted[four[1]];
            const wchar_t c = converted[four[2]], d = converted[four[3]];
            four[0] = a, four[1] = b, four[2] = c, four[3] = d;
        } else {
            convertPlain<Case>(four, 4);
        }
    }
    for (; i < count; ++i)
        chars[i] = inTable(chars[i]) ? converted[chars[i]] : convert<Case>(chars[i]);
}

} // namespace

void detail::lower(wchar_t* chars, std::size_t count) { convertByTable<Lower>(chars, count); }
void detail::raise(wchar_t* chars, std::size_t count) { convertByTable<Upper>(chars, count); }

#endif

} // namespace Vx
