#include "text/Utf8Vector.h"

#if VX_UTF8_VECTOR

#include "text/Utf8.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <smmintrin.h>

namespace {

__m128i load(const void* from) noexcept
{
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

void store(void* to, __m128i value) noexcept { _mm_storeu_si128(static_cast<__m128i*>(to), value); }

void widen16(__m128i bytes, wchar_t* out) noexcept
{
    store(out, _mm_cvtepu8_epi32(bytes));
    store(out + 4, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 4)));
    store(out + 8, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 8)));
    store(out + 12, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 12)));
}

// One bit for each byte that continues a character: as signed numbers these are the lowest
// 64.
unsigned int continuationsOf16(__m128i bytes) noexcept
{
    const __m128i trails = _mm_cmplt_epi8(bytes, _mm_set1_epi8(-64));
    return static_cast<unsigned int>(_mm_movemask_epi8(trails));
}

// --- Is it well-formed, and how many code points are there?
//
// Every kind of fault but one shows in two neighbouring bytes, in three of their four
// half-bytes. Three tables give, for each half-byte, the set of faults that it admits; what
// is in all three sets is there. The remaining kind, a third or fourth byte that is missing
// or in excess, follows from the bytes two and three places back.

enum Fault : unsigned char {
    kTooShort = 1 << 0,  // a lead byte without its continuation
    kTooLong = 1 << 1,   // ASCII followed by a continuation
    kOverlong3 = 1 << 2, // E0 with 80..9F
    kTooLarge = 1 << 3,  // F4 with 90..BF, F5 and above with A0..BF
    kSurrogate = 1 << 4, // ED with A0..BF
    kOverlong2 = 1 << 5, // C0 or C1 with a continuation
    kTooLarge8 = 1 << 6, // F5 and above with 80..8F
    kOverlong4 = 1 << 6, // F0 with 80..8F
    kTwoTrails = 1 << 7, // two continuations: no fault behind a long lead byte
    kAnyLow = kTooShort | kTooLong | kTwoTrails
};

__m128i faultsOfPairs(__m128i bytes, __m128i before1) noexcept
{
    const auto set = [](int faults) { return static_cast<char>(faults); };
    const char ascii = set(kTooLong), trail = set(kTwoTrails);
    const __m128i byFirstHigh = _mm_setr_epi8(
        ascii, ascii, ascii, ascii, ascii, ascii, ascii, ascii, trail, trail, trail, trail,
        set(kTooShort | kOverlong2), set(kTooShort), set(kTooShort | kOverlong3 | kSurrogate),
        set(kTooShort | kTooLarge | kTooLarge8 | kOverlong4));
    const char large = set(kAnyLow | kTooLarge | kTooLarge8);
    const __m128i byFirstLow = _mm_setr_epi8(
        set(kAnyLow | kOverlong2 | kOverlong3 | kOverlong4), set(kAnyLow | kOverlong2),
        set(kAnyLow), set(kAnyLow), set(kAnyLow | kTooLarge), large, large, large, large, large,
        large, large, large, set(kAnyLow | kTooLarge | kTooLarge8 | kSurrogate), large, large);
    const char lone = set(kTooShort);
    const int anyTrail = kTooLong | kOverlong2 | kTwoTrails;
    const __m128i bySecondHigh = _mm_setr_epi8(
        lone, lone, lone, lone, lone, lone, lone, lone,
        set(anyTrail | kOverlong3 | kTooLarge8 | kOverlong4),
        set(anyTrail | kOverlong3 | kTooLarge), set(anyTrail | kSurrogate | kTooLarge),
        set(anyTrail | kSurrogate | kTooLarge), lone, lone, lone, lone);

    const __m128i half = _mm_set1_epi8(0x0F);
    const auto high = [half](__m128i of) { return _mm_and_si128(_mm_srli_epi16(of, 4), half); };
    const __m128i first = _mm_and_si128(_mm_shuffle_epi8(byFirstHigh, high(before1)),
                                        _mm_shuffle_epi8(byFirstLow, _mm_and_si128(before1, half)));
    return _mm_and_si128(first, _mm_shuffle_epi8(bySecondHigh, high(bytes)));
}

class Scanner {
public:
    void feed(__m128i bytes) noexcept
    {
        if (_mm_movemask_epi8(bytes) == 0) {
            faults_ = _mm_or_si128(faults_, openEnd_);
            openEnd_ = _mm_setzero_si128();
        } else {
            feedMixed(bytes);
        }
        before_ = bytes;
    }

    bool wellFormed() const noexcept
    {
        return _mm_testz_si128(faults_, faults_) && _mm_testz_si128(openEnd_, openEnd_);
    }

    /// Bytes seen so far that continue a character.
    std::size_t continuations() const noexcept { return continuations_; }

private:
    void feedMixed(__m128i bytes) noexcept
    {
        const __m128i before1 = _mm_alignr_epi8(bytes, before_, 15);
        const __m128i before2 = _mm_alignr_epi8(bytes, before_, 14);
        const __m128i before3 = _mm_alignr_epi8(bytes, before_, 13);
        // The top bit is set where a third or fourth byte is due: E0 and above two places
        // back, F0 and above three places back. There two trails in a row are right, and
        // nowhere else.
        const __m128i due = _mm_or_si128(_mm_subs_epu8(before2, _mm_set1_epi8(0xE0 - 0x80)),
                                         _mm_subs_epu8(before3, _mm_set1_epi8(0xF0 - 0x80)));
        const __m128i dueTop = _mm_and_si128(due, _mm_set1_epi8(static_cast<char>(0x80)));
        faults_ = _mm_or_si128(faults_, _mm_xor_si128(dueTop, faultsOfPairs(bytes, before1)));

        // Non-zero where a character begins that these 16 bytes do not finish.
        const char any = static_cast<char>(0xFF);
        const __m128i highestClosed = _mm_setr_epi8(
            any, any, any, any, any, any, any, any, any, any, any, any, any,
            static_cast<char>(0xF0 - 1), static_cast<char>(0xE0 - 1), static_cast<char>(0xC0 - 1));
        openEnd_ = _mm_subs_epu8(bytes, highestClosed);

        continuations_ += static_cast<unsigned int>(__builtin_popcount(continuationsOf16(bytes)));
    }

    __m128i before_ = _mm_setzero_si128();
    __m128i openEnd_ = _mm_setzero_si128();
    __m128i faults_ = _mm_setzero_si128();
    std::size_t continuations_ = 0;
};

// --- Decoding well-formed text.
//
// Where characters end is one bit per byte. The next 12 of these bits choose, from a table,
// how many bytes to take and a shuffle that puts each character's bytes into a lane of its
// own, last byte lowest: 6 characters of at most 2 bytes, or 4 of at most 3, or 3 of any.

constexpr int kWindow = 12;
constexpr int kSixShort = 64;               // shuffles of the first kind: 2^6
constexpr int kFourMiddle = kSixShort + 81; // then of the second: 3^4
constexpr int kShuffles = kFourMiddle + 64; // then of the third: 4^3

struct DecodeTables {
    struct Step {
        std::uint8_t shuffle;
        std::uint8_t bytes;
    };
    std::array<Step, 1 << kWindow> steps{};
    alignas(16) std::array<std::array<std::uint8_t, 16>, kShuffles> shuffles{};
};

constexpr DecodeTables makeDecodeTables()
{
    DecodeTables tables;
    for (unsigned int ends = 0; ends < 1u << kWindow; ++ends) {
        int sizes[kWindow] = {};
        int characters = 0;
        for (int i = 0, size = 1; i < kWindow; ++i, ++size)
            if (ends >> i & 1) {
                sizes[characters++] = size;
                size = 0;
            }
        const struct {
            int characters, longest, laneBytes, firstShuffle;
        } kinds[] = {{6, 2, 2, 0}, {4, 3, 4, kSixShort}, {3, 4, 4, kFourMiddle}};
        for (const auto& kind : kinds) {
            bool fits = characters >= kind.characters;
            for (int i = 0; fits && i < kind.characters; ++i)
                fits = sizes[i] <= kind.longest;
            if (!fits)
                continue;
            int number = 0;
            for (int i = 0; i < kind.characters; ++i)
                number = number * kind.longest + sizes[i] - 1;
            const int index = kind.firstShuffle + number;
            auto& shuffle = tables.shuffles[static_cast<std::size_t>(index)];
            shuffle.fill(0x80); // a zero in the lane
            int taken = 0;
            for (int i = 0; i < kind.characters; ++i) {
                for (int k = 0; k < sizes[i]; ++k) {
                    const int to = i * kind.laneBytes + k;
                    shuffle[static_cast<std::size_t>(to)] =
                        static_cast<std::uint8_t>(taken + sizes[i] - 1 - k);
                }
                taken += sizes[i];
            }
            tables.steps[ends] = {static_cast<std::uint8_t>(index),
                                  static_cast<std::uint8_t>(taken)};
            break;
        }
    }
    return tables;
}

constexpr DecodeTables kDecode = makeDecodeTables();

__m128i keep(__m128i bits, int mask) noexcept { return _mm_and_si128(bits, _mm_set1_epi32(mask)); }

// Writes up to 8 slots, says how many of them count.
unsigned int decodeWindow(__m128i bytes, unsigned int shuffleIndex, wchar_t* out) noexcept
{
    const __m128i lanes = _mm_shuffle_epi8(bytes, load(kDecode.shuffles[shuffleIndex].data()));
    if (shuffleIndex < kSixShort) {
        const __m128i low = _mm_and_si128(lanes, _mm_set1_epi16(0x007F));
        const __m128i high = _mm_and_si128(lanes, _mm_set1_epi16(0x1F00));
        const __m128i six = _mm_or_si128(low, _mm_srli_epi16(high, 2));
        store(out, _mm_cvtepu16_epi32(six));
        store(out + 4, _mm_cvtepu16_epi32(_mm_srli_si128(six, 8)));
        return 6;
    }
    const __m128i low = _mm_or_si128(keep(lanes, 0x7F), _mm_srli_epi32(keep(lanes, 0x3F00), 2));
    if (shuffleIndex < kFourMiddle) {
        store(out, _mm_or_si128(low, _mm_srli_epi32(keep(lanes, 0x0F0000), 4)));
        return 4;
    }
    // The third byte from the end has 6 bits when it continues and 4 when it leads; the bit
    // above them tells which, and takes the excess bit of a lead away.
    const __m128i third =
        _mm_xor_si128(keep(lanes, 0x3F0000), _mm_srli_epi32(keep(lanes, 0x400000), 1));
    const __m128i fourth = keep(lanes, 0x07000000);
    store(out,
          _mm_or_si128(low, _mm_or_si128(_mm_srli_epi32(third, 4), _mm_srli_epi32(fourth, 6))));
    return 3;
}

std::uint64_t continuationsOf64(const char* bytes) noexcept
{
    std::uint64_t mask = 0;
    for (int i = 3; i >= 0; --i)
        mask = mask << 16 | continuationsOf16(load(bytes + 16 * i));
    return mask;
}

// --- Encoding.

// Shuffles that close the gaps between the lanes. A key has one bit for each character that
// takes 2 bytes or more and, for 4 characters, above them one for each that takes 3.
struct EncodeTables {
    struct Table {
        alignas(16) std::array<std::array<std::uint8_t, 16>, 256> shuffles{};
        std::array<std::uint8_t, 256> bytes{};
    };
    Table eightShort;
    Table fourMiddle;
};

constexpr EncodeTables::Table makeEncodeTable(unsigned int lanes)
{
    const unsigned int laneBytes = 16 / lanes;
    EncodeTables::Table table;
    for (unsigned int key = 0; key < 256; ++key) {
        auto& shuffle = table.shuffles[key];
        shuffle.fill(0x80);
        std::size_t taken = 0;
        for (unsigned int lane = 0; lane < lanes; ++lane) {
            const unsigned int third = lanes == 4 ? key >> (lane + 4) & 1 : 0;
            const unsigned int size = 1 + (key >> lane & 1) + third;
            for (unsigned int k = 0; k < size; ++k)
                shuffle[taken++] = static_cast<std::uint8_t>(laneBytes * lane + k);
        }
        table.bytes[key] = static_cast<std::uint8_t>(taken);
    }
    return table;
}

constexpr EncodeTables kEncode = {makeEncodeTable(8), makeEncodeTable(4)};

__m128i isSurrogate(__m128i values) noexcept
{
    return _mm_cmpeq_epi32(keep(values, static_cast<int>(0xFFFFF800u)), _mm_set1_epi32(0xD800));
}

__m128i isAbove(__m128i values, int limit) noexcept
{
    return _mm_cmpgt_epi32(values, _mm_set1_epi32(limit));
}

bool fitIn(int bits, __m128i values) noexcept
{
    return _mm_testz_si128(values, _mm_set1_epi32(~bits));
}

char* compact(__m128i lanes, const EncodeTables::Table& table, int key, char* out) noexcept
{
    const unsigned int index = static_cast<unsigned int>(key);
    store(out, _mm_shuffle_epi8(lanes, load(table.shuffles[index].data())));
    return out + table.bytes[index];
}

// The encoders of a few characters each write 16 bytes and return where theirs end.

// 8 characters of at most 2 bytes.
char* encodeShort(__m128i values, char* out) noexcept
{
    const __m128i two = _mm_cmpgt_epi16(values, _mm_set1_epi16(0x7F));
    const __m128i lead = _mm_srli_epi16(values, 6);
    const __m128i trail = _mm_slli_epi16(_mm_and_si128(values, _mm_set1_epi16(0x3F)), 8);
    const __m128i asTwo =
        _mm_or_si128(_mm_or_si128(lead, trail), _mm_set1_epi16(static_cast<short>(0x80C0)));
    const int key = _mm_movemask_epi8(_mm_packs_epi16(two, _mm_setzero_si128()));
    return compact(_mm_blendv_epi8(values, asTwo, two), kEncode.eightShort, key, out);
}

// 4 characters of at most 3 bytes.
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
    return compact(lanes, kEncode.fourMiddle, key, out);
}

} // namespace

Utf8::Vector::Scan Utf8::Vector::scan(const char* bytes, std::size_t count) noexcept
{
    Scanner scanner;
    std::size_t at = 0;
    for (; count - at >= 64; at += 64) {
        const __m128i b0 = load(bytes + at), b1 = load(bytes + at + 16);
        const __m128i b2 = load(bytes + at + 32), b3 = load(bytes + at + 48);
        if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(b0, b1), _mm_or_si128(b2, b3))) == 0) {
            // The last of four blocks without a high bit stands for all of them, but the
            // first must close what came before.
            scanner.feed(b0);
            scanner.feed(b3);
            continue;
        }
        scanner.feed(b0);
        scanner.feed(b1);
        scanner.feed(b2);
        scanner.feed(b3);
    }
    for (; count - at >= 16; at += 16)
        scanner.feed(load(bytes + at));
    if (at < count) {
        // Zeros behind the text: a character that it leaves open is a fault all the same.
        char tail[16] = {};
        std::memcpy(tail, bytes + at, count - at);
        scanner.feed(load(tail));
    }
    return {scanner.wellFormed(), count - scanner.continuations()};
}

void Utf8::Vector::decodeWellFormed(const char* bytes, std::size_t count, wchar_t* out) noexcept
{
    // The last window of a block begins 13 bytes before its end and writes up to 8 slots, or
    // 16 for ASCII. 96 bytes ahead leave 44 behind it, which are 11 characters at least, so
    // the slots written in excess belong to characters that are still to come.
    constexpr std::size_t kAhead = 96;
    const char* const end = bytes + count;
    while (static_cast<std::size_t>(end - bytes) >= kAhead) {
        std::uint64_t continuations = continuationsOf64(bytes);
        // Without a continuation only the last byte can still be a lead.
        if (continuations == 0 && static_cast<signed char>(bytes[63]) >= 0) {
            for (int i = 0; i < 64; i += 16)
                widen16(load(bytes + i), out + i);
            bytes += 64;
            out += 64;
            continue;
        }
        // A byte ends a character when the next one continues none; of the 64th we cannot
        // know.
        std::uint64_t ends = ~continuations >> 1;
        unsigned int taken = 0;
        while (taken <= 63 - kWindow) {
            if ((ends & 0xFFFF) == 0xFFFF) {
                widen16(load(bytes + taken), out);
                out += 16;
                taken += 16;
                ends >>= 16;
                continue;
            }
            const DecodeTables::Step step = kDecode.steps[ends & ((1u << kWindow) - 1)];
            out += decodeWindow(load(bytes + taken), step.shuffle, out);
            taken += step.bytes;
            ends >>= step.bytes;
        }
        bytes += taken;
    }
    // The same, window by window: 32 bytes hold 8 characters at least.
    while (end - bytes >= 32) {
        const __m128i window = load(bytes);
        const unsigned int ends = ~continuationsOf16(window) >> 1 & 0x7FFF;
        if (_mm_movemask_epi8(window) == 0) {
            widen16(window, out);
            out += 16;
            bytes += 16;
            continue;
        }
        const DecodeTables::Step step = kDecode.steps[ends & ((1u << kWindow) - 1)];
        out += decodeWindow(window, step.shuffle, out);
        bytes += step.bytes;
    }
    if (end - bytes >= 16 && _mm_movemask_epi8(load(bytes)) == 0) {
        widen16(load(bytes), out);
        out += 16;
        bytes += 16;
    }
    Plain::decode(bytes, static_cast<std::size_t>(end - bytes), out);
}

std::size_t Utf8::Vector::encodedLength(const wchar_t* chars, std::size_t count) noexcept
{
    // Three at most are added to a lane for every 4 characters, so for 2^32 characters, more
    // than a string can have, a lane does not overflow.
    __m128i extra = _mm_setzero_si128();
    std::size_t i = 0;
    for (; count - i >= 16; i += 16) {
        const __m128i all = _mm_or_si128(_mm_or_si128(load(chars + i), load(chars + i + 4)),
                                         _mm_or_si128(load(chars + i + 8), load(chars + i + 12)));
        if (fitIn(0x7F, all))
            continue;
        if (fitIn(0x7FF, all)) {
            // A comparison that holds is -1.
            for (std::size_t k = i; k < i + 16; k += 4)
                extra = _mm_sub_epi32(extra, isAbove(load(chars + k), 0x7F));
            continue;
        }
        for (std::size_t k = i; k < i + 16; k += 4) {
            __m128i values = load(chars + k);
            const __m128i tooLarge =
                _mm_cmpeq_epi32(_mm_max_epu32(values, _mm_set1_epi32(0x110000)), values);
            const __m128i bad = _mm_or_si128(tooLarge, isSurrogate(values));
            values = _mm_blendv_epi8(values, _mm_set1_epi32(0xFFFD), bad);
            extra = _mm_sub_epi32(extra, isAbove(values, 0x7F));
            extra = _mm_sub_epi32(extra, isAbove(values, 0x7FF));
            extra = _mm_sub_epi32(extra, isAbove(values, 0xFFFF));
        }
    }
    alignas(16) std::uint32_t lanes[4];
    store(lanes, extra);
    return i + lanes[0] + std::size_t(lanes[1]) + lanes[2] + lanes[3] +
           Plain::encodedLength(chars + i, count - i);
}

void Utf8::Vector::encode(const wchar_t* chars, std::size_t count, char* out,
                          const char* outEnd) noexcept
{
    const wchar_t* const end = chars + count;
    // 16 characters take 64 bytes at most. What a store writes in excess lies within these,
    // since each advances by what its characters take and writes 16.
    while (end - chars >= 16 && outEnd - out >= 64) {
        const __m128i c0 = load(chars), c1 = load(chars + 4);
        const __m128i c2 = load(chars + 8), c3 = load(chars + 12);
        const __m128i all = _mm_or_si128(_mm_or_si128(c0, c1), _mm_or_si128(c2, c3));
        if (fitIn(0x7FF, all)) {
            const __m128i low = _mm_packus_epi32(c0, c1), high = _mm_packus_epi32(c2, c3);
            if (fitIn(0x7F, all)) {
                store(out, _mm_packus_epi16(low, high));
                out += 16;
            } else {
                out = encodeShort(high, encodeShort(low, out));
            }
            chars += 16;
            continue;
        }
        for (const wchar_t* const stop = chars + 16; chars != stop; chars += 4) {
            const __m128i values = load(chars);
            const __m128i surrogates = isSurrogate(values);
            if (fitIn(0xFFFF, values) && _mm_testz_si128(surrogates, surrogates)) {
                out = encodeMiddle(values, out);
            } else {
                Plain::encode(chars, 4, out);
                out += Plain::encodedLength(chars, 4);
            }
        }
    }
    Plain::encode(chars, static_cast<std::size_t>(end - chars), out);
}

void Utf8::Vector::widen(const char* bytes, std::size_t count, wchar_t* out) noexcept
{
    std::size_t i = 0;
    for (; count - i >= 16; i += 16)
        widen16(load(bytes + i), out + i);
    for (; i < count; ++i)
        out[i] = static_cast<unsigned char>(bytes[i]);
}

#endif
