#include "text/Utf8Decode.h"

#if VX_UTF8_SSE

#include "text/Utf8Plain.h"

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

// Returns one bit per byte, set for continuation bytes: as signed numbers, the lowest 64.
unsigned int continuationMask(__m128i bytes) noexcept
{
    const __m128i continuations = _mm_cmplt_epi8(bytes, _mm_set1_epi8(-64));
    return static_cast<unsigned int>(_mm_movemask_epi8(continuations));
}

// --- Validation
//
// All errors but one are visible in two adjacent bytes, in three of their four nibbles. For
// each of these nibbles a table gives the set of errors it is compatible with; an error that
// is in all three sets has occurred. The remaining error, a missing or surplus third or
// fourth byte, follows from the bytes two and three positions back.

enum Error : unsigned char {
    kTooShort = 1 << 0,      // a lead byte without its continuation
    kTooLong = 1 << 1,       // ASCII followed by a continuation
    kOverlong3 = 1 << 2,     // E0 80..9F
    kTooLarge = 1 << 3,      // F4 90..BF, F5..FF A0..BF
    kSurrogate = 1 << 4,     // ED A0..BF
    kOverlong2 = 1 << 5,     // C0 or C1 and a continuation
    kTooLarge8 = 1 << 6,     // F5..FF 80..8F
    kOverlong4 = 1 << 6,     // F0 80..8F
    kContinuations = 1 << 7, // two continuations: no error after a lead byte of 3 or 4
    kAnyLow = kTooShort | kTooLong | kContinuations
};

__m128i errorsInPairs(__m128i bytes, __m128i previous) noexcept
{
    const auto set = [](int errors) { return static_cast<char>(errors); };
    const char ascii = set(kTooLong), trail = set(kContinuations);
    const __m128i byFirstHigh = _mm_setr_epi8(
        ascii, ascii, ascii, ascii, ascii, ascii, ascii, ascii, trail, trail, trail, trail,
        set(kTooShort | kOverlong2), set(kTooShort), set(kTooShort | kOverlong3 | kSurrogate),
        set(kTooShort | kTooLarge | kTooLarge8 | kOverlong4));
    const char large = set(kAnyLow | kTooLarge | kTooLarge8);
    const __m128i byFirstLow = _mm_setr_epi8(
        set(kAnyLow | kOverlong2 | kOverlong3 | kOverlong4), set(kAnyLow | kOverlong2),
        set(kAnyLow), set(kAnyLow), set(kAnyLow | kTooLarge), large, large, large, large, large,
        large, large, large, set(kAnyLow | kTooLarge | kTooLarge8 | kSurrogate), large, large);
    const char alone = set(kTooShort);
    const int anyTrail = kTooLong | kOverlong2 | kContinuations;
    const __m128i bySecondHigh = _mm_setr_epi8(
        alone, alone, alone, alone, alone, alone, alone, alone,
        set(anyTrail | kOverlong3 | kTooLarge8 | kOverlong4),
        set(anyTrail | kOverlong3 | kTooLarge), set(anyTrail | kSurrogate | kTooLarge),
        set(anyTrail | kSurrogate | kTooLarge), alone, alone, alone, alone);

    const __m128i nibble = _mm_set1_epi8(0x0F);
    const auto high = [nibble](__m128i of) { return _mm_and_si128(_mm_srli_epi16(of, 4), nibble); };
    const __m128i first =
        _mm_and_si128(_mm_shuffle_epi8(byFirstHigh, high(previous)),
                      _mm_shuffle_epi8(byFirstLow, _mm_and_si128(previous, nibble)));
    return _mm_and_si128(first, _mm_shuffle_epi8(bySecondHigh, high(bytes)));
}

// Collects the errors and counts the continuations of a text given in pieces of 16 bytes.
class Validator {
public:
    void add(__m128i bytes) noexcept
    {
        if (_mm_movemask_epi8(bytes) == 0) {
            errors_ = _mm_or_si128(errors_, incomplete_);
            incomplete_ = _mm_setzero_si128();
        } else {
            addMixed(bytes);
        }
        previous_ = bytes;
    }

    bool wellFormed() const noexcept
    {
        return _mm_testz_si128(errors_, errors_) && _mm_testz_si128(incomplete_, incomplete_);
    }

    std::size_t continuations() const noexcept { return continuations_; }

private:
    void addMixed(__m128i bytes) noexcept
    {
        const __m128i back1 = _mm_alignr_epi8(bytes, previous_, 15);
        const __m128i back2 = _mm_alignr_epi8(bytes, previous_, 14);
        const __m128i back3 = _mm_alignr_epi8(bytes, previous_, 13);
        // The top bit is set where a third or fourth byte is due: after E0 or above two
        // positions back, F0 or above three positions back. Exactly there two adjacent
        // continuations are right.
        const __m128i due = _mm_or_si128(_mm_subs_epu8(back2, _mm_set1_epi8(0xE0 - 0x80)),
                                         _mm_subs_epu8(back3, _mm_set1_epi8(0xF0 - 0x80)));
        const __m128i dueTop = _mm_and_si128(due, _mm_set1_epi8(static_cast<char>(0x80)));
        errors_ = _mm_or_si128(errors_, _mm_xor_si128(dueTop, errorsInPairs(bytes, back1)));

        // Non-zero where a sequence begins that continues beyond these 16 bytes.
        const char any = static_cast<char>(0xFF);
        const __m128i highestComplete = _mm_setr_epi8(
            any, any, any, any, any, any, any, any, any, any, any, any, any,
            static_cast<char>(0xF0 - 1), static_cast<char>(0xE0 - 1), static_cast<char>(0xC0 - 1));
        incomplete_ = _mm_subs_epu8(bytes, highestComplete);

        continuations_ += static_cast<unsigned int>(__builtin_popcount(continuationMask(bytes)));
    }

    __m128i previous_ = _mm_setzero_si128();
    __m128i incomplete_ = _mm_setzero_si128();
    __m128i errors_ = _mm_setzero_si128();
    std::size_t continuations_ = 0;
};

// --- Decoding
//
// One bit per byte tells where characters end. Twelve of these bits select a shuffle from a
// table; it moves the next 6 characters of at most 2 bytes, or 4 of at most 3, to one lane
// each, last byte lowest.

constexpr unsigned int kWindow = 12;
constexpr unsigned int kSixShort = 64;   // 2^6 shuffles for characters of at most 2 bytes,
constexpr unsigned int kFourMiddle = 81; // then 3^4 for those of at most 3

struct DecodeTables {
    struct Step {
        std::uint8_t shuffle;
        std::uint8_t bytes; // 0 if no shuffle fits: a character of 4 bytes
    };
    std::array<Step, 1 << kWindow> steps{};
    alignas(16) std::array<std::array<std::uint8_t, 16>, kSixShort + kFourMiddle> shuffles{};
};

// Adds the shuffle for characters whose sizes, less 1, are the digits of number to the base
// of longest.
constexpr void addShuffle(DecodeTables& tables, unsigned int index, unsigned int number,
                          unsigned int characters, unsigned int longest)
{
    const unsigned int laneSize = characters == 6 ? 2 : 4;
    auto& shuffle = tables.shuffles[index];
    shuffle.fill(0x80); // a zero byte
    unsigned int ends = 0, bytes = 0;
    for (unsigned int lane = 0; lane < characters; ++lane, number /= longest) {
        bytes += number % longest + 1;
        ends |= 1u << (bytes - 1);
        for (unsigned int k = 0; k <= number % longest; ++k)
            shuffle[lane * laneSize + k] = static_cast<std::uint8_t>(bytes - 1 - k);
    }
    for (unsigned int rest = 0; rest < 1u << (kWindow - bytes); ++rest)
        tables.steps[rest << bytes | ends] = {static_cast<std::uint8_t>(index),
                                              static_cast<std::uint8_t>(bytes)};
}

constexpr DecodeTables makeDecodeTables()
{
    DecodeTables tables;
    for (unsigned int number = 0; number < kFourMiddle; ++number)
        addShuffle(tables, kSixShort + number, number, 4, 3);
    // Last, because six characters are preferred to four.
    for (unsigned int number = 0; number < kSixShort; ++number)
        addShuffle(tables, number, number, 6, 2);
    return tables;
}

constexpr DecodeTables kDecode = makeDecodeTables();

wchar_t* decodeAscii(__m128i bytes, wchar_t* out) noexcept
{
    store(out, _mm_cvtepu8_epi32(bytes));
    store(out + 4, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 4)));
    store(out + 8, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 8)));
    store(out + 12, _mm_cvtepu8_epi32(_mm_srli_si128(bytes, 12)));
    return out + 16;
}

wchar_t* decodeSixShort(__m128i lanes, wchar_t* out) noexcept
{
    const __m128i low = _mm_and_si128(lanes, _mm_set1_epi16(0x007F));
    const __m128i high = _mm_and_si128(lanes, _mm_set1_epi16(0x1F00));
    const __m128i six = _mm_or_si128(low, _mm_srli_epi16(high, 2));
    store(out, _mm_cvtepu16_epi32(six));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4),
                     _mm_cvtepu16_epi32(_mm_srli_si128(six, 8)));
    return out + 6;
}

wchar_t* decodeFourMiddle(__m128i lanes, wchar_t* out) noexcept
{
    const __m128i low = _mm_and_si128(lanes, _mm_set1_epi32(0x7F));
    const __m128i middle = _mm_and_si128(lanes, _mm_set1_epi32(0x3F00));
    const __m128i high = _mm_and_si128(lanes, _mm_set1_epi32(0x0F0000));
    store(out, _mm_or_si128(low, _mm_or_si128(_mm_srli_epi32(middle, 2), _mm_srli_epi32(high, 4))));
    return out + 4;
}

} // namespace

std::size_t Utf8::Sse::countWellFormed(const char* bytes, std::size_t count) noexcept
{
    Validator validator;
    std::size_t at = 0;
    for (; count - at >= 16; at += 16)
        validator.add(load(bytes + at));
    if (at < count) {
        // Padded with zeros, which make a sequence that the end cuts off an error.
        char tail[16] = {};
        std::memcpy(tail, bytes + at, count - at);
        validator.add(load(tail));
    }
    return validator.wellFormed() ? count - validator.continuations() : kMalformed;
}

void Utf8::Sse::decodeWellFormed(const char* bytes, std::size_t count, wchar_t* out) noexcept
{
    const char* const end = bytes + count;
    while (end - bytes >= 16) {
        const __m128i window = load(bytes);
        if (_mm_movemask_epi8(window) == 0) {
            out = decodeAscii(window, out);
            bytes += 16;
            continue;
        }
        // A byte ends a character if the next one is no continuation.
        const unsigned int ends = ~continuationMask(window) >> 1;
        const DecodeTables::Step step = kDecode.steps[ends & ((1u << kWindow) - 1)];
        if (step.bytes == 0) {
            const std::size_t size = 1 + static_cast<unsigned int>(__builtin_ctz(ends));
            Plain::decode(bytes, size, out);
            ++out;
            bytes += size;
            continue;
        }
        const __m128i lanes = _mm_shuffle_epi8(window, load(kDecode.shuffles[step.shuffle].data()));
        out = step.shuffle < kSixShort ? decodeSixShort(lanes, out) : decodeFourMiddle(lanes, out);
        bytes += step.bytes;
    }
    Plain::decode(bytes, static_cast<std::size_t>(end - bytes), out);
}

#endif
