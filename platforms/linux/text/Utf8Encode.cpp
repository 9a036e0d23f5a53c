#include "text/Utf8Encode.h"

#if VX_UTF8_SSE

#include "text/Utf8Plain.h"

#include <array>
#include <cstdint>
#include <smmintrin.h>

namespace {

__m128i load(const void* from) noexcept
{
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

void store(void* to, __m128i value) noexcept { _mm_storeu_si128(static_cast<__m128i*>(to), value); }

__m128i keep(__m128i values, int mask) noexcept
{
    return _mm_and_si128(values, _mm_set1_epi32(mask));
}

// Returns -1 in the lanes whose value is above limit, and 0 in the others. Both are signed.
__m128i isAbove(__m128i values, int limit) noexcept
{
    return _mm_cmpgt_epi32(values, _mm_set1_epi32(limit));
}

__m128i isSurrogate(__m128i values) noexcept
{
    return _mm_cmpeq_epi32(keep(values, static_cast<int>(0xFFFFF800u)), _mm_set1_epi32(0xD800));
}

bool allFitIn(int bits, __m128i values) noexcept
{
    return _mm_testz_si128(values, _mm_set1_epi32(~bits));
}

__m128i pack8(const wchar_t* chars) noexcept
{
    return _mm_packus_epi32(load(chars), load(chars + 4));
}

// Returns the bits that occur in any of 16 characters.
__m128i bitsOf16(const wchar_t* chars) noexcept
{
    return _mm_or_si128(_mm_or_si128(load(chars), load(chars + 4)),
                        _mm_or_si128(load(chars + 8), load(chars + 12)));
}

bool hasSurrogates(const wchar_t* chars) noexcept
{
    const __m128i any =
        _mm_or_si128(_mm_or_si128(isSurrogate(load(chars)), isSurrogate(load(chars + 4))),
                     _mm_or_si128(isSurrogate(load(chars + 8)), isSurrogate(load(chars + 12))));
    return !_mm_testz_si128(any, any);
}

// --- Removing the gaps between lanes
//
// A key has one bit per lane, set if its character takes 2 bytes or more. For lanes of 4 bytes,
// four more bits are set for the characters that take 3.

struct Compaction {
    alignas(16) std::array<std::array<std::uint8_t, 16>, 256> shuffles{};
    std::array<std::uint8_t, 256> bytes{};
};

constexpr Compaction makeCompaction(unsigned int lanes)
{
    const unsigned int laneSize = 16 / lanes;
    Compaction table;
    for (unsigned int key = 0; key < 256; ++key) {
        auto& shuffle = table.shuffles[key];
        shuffle.fill(0x80);
        std::size_t bytes = 0;
        for (unsigned int lane = 0; lane < lanes; ++lane) {
            const unsigned int third = lanes == 4 ? key >> (lane + 4) & 1 : 0;
            const unsigned int size = 1 + (key >> lane & 1) + third;
            for (unsigned int k = 0; k < size; ++k)
                shuffle[bytes++] = static_cast<std::uint8_t>(laneSize * lane + k);
        }
        table.bytes[key] = static_cast<std::uint8_t>(bytes);
    }
    return table;
}

constexpr Compaction kEightLanes = makeCompaction(8);
constexpr Compaction kFourLanes = makeCompaction(4);

// Always writes 16 bytes. Returns the end of those that count, as the two encoders do.
char* compact(__m128i lanes, const Compaction& table, int key, char* out) noexcept
{
    const unsigned int index = static_cast<unsigned int>(key);
    store(out, _mm_shuffle_epi8(lanes, load(table.shuffles[index].data())));
    return out + table.bytes[index];
}

// Encodes 8 characters of at most 2 bytes.
char* encodeShort(__m128i values, char* out) noexcept
{
    const __m128i two = _mm_cmpgt_epi16(values, _mm_set1_epi16(0x7F));
    const __m128i lead = _mm_srli_epi16(values, 6);
    const __m128i trail = _mm_slli_epi16(_mm_and_si128(values, _mm_set1_epi16(0x3F)), 8);
    const __m128i asTwo =
        _mm_or_si128(_mm_or_si128(lead, trail), _mm_set1_epi16(static_cast<short>(0x80C0)));
    const int key = _mm_movemask_epi8(_mm_packs_epi16(two, _mm_setzero_si128()));
    return compact(_mm_blendv_epi8(values, asTwo, two), kEightLanes, key, out);
}

// Encodes 4 characters of at most 3 bytes.
char* encodeMiddle(__m128i values, char* out) noexcept
{
    const __m128i two = isAbove(values, 0x7F);
    const __m128i three = isAbove(values, 0x7FF);
    // The lead byte is the lowest in its lane.
    const __m128i last = keep(values, 0x3F);
    const __m128i asTwo = _mm_or_si128(_mm_srli_epi32(values, 6), _mm_slli_epi32(last, 8));
    const __m128i asThree =
        _mm_or_si128(_mm_or_si128(_mm_srli_epi32(values, 12), _mm_slli_epi32(last, 16)),
                     _mm_slli_epi32(keep(values, 0xFC0), 2));
    __m128i lanes = _mm_blendv_epi8(values, _mm_or_si128(asTwo, _mm_set1_epi32(0x80C0)), two);
    lanes = _mm_blendv_epi8(lanes, _mm_or_si128(asThree, _mm_set1_epi32(0x8080E0)), three);
    const int key =
        _mm_movemask_ps(_mm_castsi128_ps(two)) | _mm_movemask_ps(_mm_castsi128_ps(three)) << 4;
    return compact(lanes, kFourLanes, key, out);
}

} // namespace

std::size_t Utf8::Sse::encodedLength(const wchar_t* chars, std::size_t count) noexcept
{
    // Each lane gains at most 3 per 4 characters. Strings have less than 2^32 characters, so
    // no lane overflows.
    __m128i extra = _mm_setzero_si128();
    std::size_t i = 0;
    for (; count - i >= 16; i += 16) {
        if (allFitIn(0x7F, bitsOf16(chars + i)))
            continue;
        for (std::size_t k = i; k < i + 16; k += 4) {
            // The replacement for a value that is too large takes 3 bytes, not 4. The one for
            // a surrogate takes as many as the surrogate itself would.
            const __m128i values = _mm_min_epu32(load(chars + k), _mm_set1_epi32(0x110000));
            extra = _mm_sub_epi32(extra, isAbove(values, 0x7F));
            extra = _mm_sub_epi32(extra, isAbove(values, 0x7FF));
            extra = _mm_sub_epi32(extra, isAbove(values, 0xFFFF));
            extra = _mm_add_epi32(extra, isAbove(values, 0x10FFFF));
        }
    }
    alignas(16) std::uint32_t lanes[4];
    store(lanes, extra);
    return i + lanes[0] + std::size_t(lanes[1]) + lanes[2] + lanes[3] +
           Plain::encodedLength(chars + i, count - i);
}

void Utf8::Sse::encode(const wchar_t* chars, std::size_t count, char* out,
                       std::size_t length) noexcept
{
    const wchar_t* const end = chars + count;
    const char* const outEnd = out + length;
    for (; end - chars >= 16; chars += 16) {
        const __m128i bits = bitsOf16(chars);
        if (allFitIn(0x7F, bits)) {
            store(out, _mm_packus_epi16(pack8(chars), pack8(chars + 8)));
            out += 16;
        } else if (outEnd - out < 64) {
            // 16 characters take at most 64 bytes. With that much room the stores of 16 bytes
            // below stay within the output; the next characters overwrite the excess.
            out = Plain::encode(chars, 16, out);
        } else if (allFitIn(0x7FF, bits)) {
            out = encodeShort(pack8(chars), out);
            out = encodeShort(pack8(chars + 8), out);
        } else if (allFitIn(0xFFFF, bits) && !hasSurrogates(chars)) {
            for (unsigned int k = 0; k < 16; k += 4)
                out = encodeMiddle(load(chars + k), out);
        } else {
            out = Plain::encode(chars, 16, out);
        }
    }
    Plain::encode(chars, static_cast<std::size_t>(end - chars), out);
}

#endif
