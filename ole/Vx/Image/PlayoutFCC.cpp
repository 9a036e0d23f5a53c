#include <Vx/Image/PlayoutFCC.h>

#include <Vx/detail/PlayoutTable.h>
#include <array>

namespace {

// A hash table that the compiler builds. The multiplier, found by trial, gives every code a slot
// of its own; an unused slot translates 0 to 0.
constexpr std::uint32_t kMultiplier = 0x940C8BCB;
constexpr int kSlotBits = 8;

constexpr std::size_t slotOf(std::uint32_t code) { return code * kMultiplier >> (32 - kSlotBits); }

struct Table {
    struct Slot {
        std::uint32_t source;
        std::uint32_t playout;
    };
    std::array<Slot, std::size_t(1) << kSlotBits> slots{};
    int codes = 0;
    bool collides = false;
};

constexpr Table kTable = [] {
    Table table;
    Vx::detail::forEachPlayoutCode([&](std::uint32_t source, std::uint32_t playout) {
        Table::Slot& slot = table.slots[slotOf(source)];
        table.collides = table.collides || slot.source != 0;
        slot = {source, playout};
        ++table.codes;
    });
    return table;
}();
static_assert(!kTable.collides, "two codes share a slot: look for another multiplier");
static_assert(kTable.codes == 88, "68 four-character codes and 20 compression identifiers");

} // namespace

unsigned int Vx::lookupPlayoutFCC(unsigned int fourcc) noexcept
{
    const Table::Slot& slot = kTable.slots[slotOf(fourcc)];
    // No branch: hits and misses come in no order that a processor could predict.
    const std::uint32_t ifFound = 0u - static_cast<std::uint32_t>(slot.source == fourcc);
    return (slot.playout & ifFound) | (fourcc & ~ifFound);
}
