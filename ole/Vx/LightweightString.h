// LightweightString.h - the string type: shared, reference-counted, copied on write.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <Vx/VxMemory.h>
#include <Vx/VxPtr.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <functional>
#include <iosfwd>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
#include <compare>
#endif

namespace Vx {
namespace StringDetail {

struct Access;

/// A type that takes no part in template deduction.
template <class T> struct Same {
    using type = T;
};
template <class Ch> using Chars = const typename Same<Ch>::type*;

[[noreturn]] inline void throwTooLong()
{
    throw std::length_error("LightweightString: the text has more characters than it can count");
}

/// The characters of \p text, none of null; a length beyond 32 bits is the largest number, which
/// no string can have.
template <class Ch> inline unsigned int lengthOf(const Ch* text) noexcept
{
    const std::size_t length = text != nullptr ? std::basic_string_view<Ch>(text).size() : 0;
    return length < 0xFFFFFFFFu ? static_cast<unsigned int>(length) : 0xFFFFFFFFu;
}

/// So many bytes of characters, for the compiler's vector operations. A size that is a parameter
/// of a template would not do.
template <class Ch, std::size_t kBytes> struct CharVector;
template <> struct CharVector<char, 8> {
    using Type = char __attribute__((vector_size(8)));
};
template <> struct CharVector<char, 16> {
    using Type = char __attribute__((vector_size(16)));
};
template <> struct CharVector<wchar_t, 8> {
    using Type = wchar_t __attribute__((vector_size(8)));
};
template <> struct CharVector<wchar_t, 16> {
    using Type = wchar_t __attribute__((vector_size(16)));
};

/// Copies so many bytes of characters.
/// \returns a vector with all bits set where a character is 0
template <std::size_t kBytes, class Ch>
inline auto copyMarkingZeros(Ch* to, const Ch* from) noexcept
{
    typename CharVector<Ch, kBytes>::Type chars;
    static_assert(sizeof chars == kBytes);
    std::memcpy(&chars, from, kBytes);
    std::memcpy(to, &chars, kBytes);
    return chars == Ch(0);
}

/// Copies so many bytes at a time, of which \p count characters have at least as many; the last
/// ones perhaps twice.
/// \returns whether none of the characters is 0
template <std::size_t kBytes, class Ch>
inline bool copyByVectors(Ch* to, const Ch* from, unsigned int count) noexcept
{
    constexpr unsigned int kStep = kBytes / sizeof(Ch);
    const unsigned int last = count - kStep;
    auto zeros = copyMarkingZeros<kBytes>(to + last, from + last);
    for (unsigned int at = 0; at < last; at += kStep)
        zeros |= copyMarkingZeros<kBytes>(to + at, from + at);
    std::uint64_t words[kBytes / sizeof(std::uint64_t)];
    std::memcpy(words, &zeros, kBytes);
    return (words[0] | words[kBytes / sizeof(std::uint64_t) - 1]) == 0;
}

/// Copies like copyUpToZero() where there is no 0 among the characters: a few of them, without
/// a call. All \p count characters are read, those behind a 0 too.
/// \returns false when there is one, or when that is not this function's to answer; any of the
///   \p count characters at \p to may have been written then
template <class Ch> inline bool copyWithoutZero(Ch* to, const Ch* from, unsigned int count) noexcept
{
    const std::uintptr_t bytes = sizeof(Ch) * std::uintptr_t(count);
    // A text that is its own continuation meets what is being written.
    const bool overlap =
        reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from) + bytes <
        2 * bytes;
    if (bytes < 8 || bytes > 64 || overlap)
        return false;
    return bytes < 16 ? copyByVectors<8>(to, from, count) : copyByVectors<16>(to, from, count);
}

/// Copies \p count characters as strncpy and wcsncpy do: from the first 0 on, zeros. What
/// stands behind that 0 is not read, and need not be there.
inline void copyUpToZero(char* to, const char* from, unsigned int count) noexcept
{
    const std::size_t kept = strnlen(from, count);
    std::memmove(to, from, kept);
    if (kept != count)
        std::memset(to + kept, 0, count - kept);
}
inline void copyUpToZero(wchar_t* to, const wchar_t* from, unsigned int count) noexcept
{
    const std::size_t kept = wcsnlen(from, count);
    std::wmemmove(to, from, kept);
    if (kept != count)
        std::wmemset(to + kept, 0, count - kept);
}

/// The same, faster, for a text of which all \p count characters can be read.
template <class Ch>
inline void copyTextUpToZero(Ch* to, const Ch* from, unsigned int count) noexcept
{
    if (!copyWithoutZero(to, from, count))
        copyUpToZero(to, from, count);
}

/// Whether \p size bytes are the same: few of them without a call.
inline bool sameBytes(const char* a, const char* b, std::size_t size) noexcept
{
    using Wide = std::uint64_t __attribute__((vector_size(16)));
    constexpr std::size_t kStep = sizeof(Wide), kFew = 4 * kStep;
    if (size < kStep || size > kFew)
        return std::memcmp(a, b, size) == 0;
    const auto differAt = [&](std::size_t at) {
        Wide x, y;
        std::memcpy(&x, a + at, kStep);
        std::memcpy(&y, b + at, kStep);
        return x ^ y;
    };
    Wide differ = differAt(0) | differAt(size - kStep);
    if (size > 2 * kStep)
        differ |= differAt(kStep) | differAt(size - 2 * kStep);
    return (differ[0] | differ[1]) == 0;
}

/// Negative, 0 or positive: characters as unsigned numbers first, then the length.
inline int compare(const char* a, unsigned int aLength, const char* b,
                   unsigned int bLength) noexcept
{
    const int order = std::memcmp(a, b, aLength < bLength ? aLength : bLength);
    return order != 0 ? order : (aLength > bLength) - (aLength < bLength);
}
inline int compare(const wchar_t* a, unsigned int aLength, const wchar_t* b,
                   unsigned int bLength) noexcept
{
    const unsigned int common = aLength < bLength ? aLength : bLength;
    for (unsigned int i = 0; i < common; ++i)
        if (a[i] != b[i])
            return static_cast<unsigned int>(a[i]) < static_cast<unsigned int>(b[i]) ? -1 : 1;
    return (aLength > bLength) - (aLength < bLength);
}

} // namespace StringDetail
} // namespace Vx

/// Text: `char` for ASCII and UTF-8, `wchar_t` for UTF-32, one code point each.
///
///     LightweightString<char> name("clip");   // one block
///     LightweightString<char> copy(name);     // the same block, counted twice
///     copy += ".mov";                         // copied here, name stays "clip"
///
/// Shape: one handle of 16 bytes to a block that holds the header, the characters and
///   a terminating 0. An empty string has no block and costs no allocation. Lengths
///   and capacities count characters in 32 bits; capacity includes the terminator's
///   slot, so length() < capacity() whenever there is a block.
/// Growth: a new block has the smallest power of two of slots that is greater than
///   the length, except where createImpl() is asked for an exact one.
/// Embedded zeros: constructors and comparisons take them as characters.
///   Deliberate: appending copies as strncpy does, so behind the first 0 of what is
///   appended everything becomes 0, while the length grows by the full count.
/// Errors: memory exhaustion leaves by the platform's exception, a text of 2^31
///   characters or more by std::length_error; the string then keeps its old value.
/// Threads: strings that share a block may be used from different threads at once; a
///   writer that is not the sole owner copies first. One string object is a plain
///   value: share it for reading, guard it for writing.
template <class Ch> class VX_API LightweightString {
public:
    /// The header of a block; the characters follow it in the same block.
    struct Impl {
        /// Gives the block back to the platform allocator.
        struct DtorTraits {
            /// A block is memory only: see Vx::PtrDetail.
            static constexpr bool kPlainMemory = true;
            /// Called by the handle of the last sharer.
            static void destroy(Impl* impl) noexcept { OS()->memoryAllocator()->deallocate(impl); }
        };

        Ch* data;              ///< the first character, right behind the header
        unsigned int length;   ///< characters, terminator not counted
        unsigned int capacity; ///< character slots, terminator's slot included
        unsigned int refCount; ///< strings that share the block; atomic
    };

    /// The standard library's names for the parts of a container that is read.
    using value_type = Ch;
    using size_type = unsigned int;
    using difference_type = std::ptrdiff_t;
    using reference = const Ch&;
    using const_reference = const Ch&;
    using iterator = const Ch*;
    using const_iterator = const Ch*;

    /// What the string converts to, and is made of.
    using View = std::basic_string_view<Ch>;

    /// The empty string.
    LightweightString() noexcept = default;

    /// Copies a zero-terminated text; null reads as empty.
    LightweightString(const Ch* text) : impl_(newCopy(text, checkedLength(text))) {}

    /// Copies \p count characters, zeros included; null reads as empty.
    LightweightString(const Ch* chars, unsigned int count)
        : impl_(newCopy(chars, chars != nullptr ? count : 0))
    {}

    /// Copies the characters of \p view, zeros included.
    explicit LightweightString(View view) : impl_(newCopy(view.data(), checkedLength(view))) {}

    /// Shares the block; never allocates.
    LightweightString(const LightweightString&) noexcept = default;
    LightweightString(LightweightString&&) noexcept = default;
    LightweightString& operator=(const LightweightString&) noexcept = default;
    LightweightString& operator=(LightweightString&&) noexcept = default;

    /// Becomes a copy of a zero-terminated text, in a block of its own; null reads as empty.
    LightweightString& operator=(const Ch* text) { return *this = LightweightString(text); }

    /// Lets go of the block; the last sharer frees it.
    ~LightweightString() {}

    // Reading.

    /// Characters, embedded zeros included, the terminator not.
    unsigned int length() const noexcept { return impl_ ? impl_->length : 0; }
    unsigned int size() const noexcept { return length(); }

    /// Whether there are no characters; then there is no block either.
    bool empty() const noexcept { return length() == 0; }

    /// Character slots of the block, the terminator's included; 0 without a block.
    unsigned int capacity() const noexcept { return impl_ ? impl_->capacity : 0; }

    /// The strings that share the block at this moment; 0 without a block.
    unsigned int useCount() const noexcept { return impl_.useCount(); }

    /// The characters and a terminating 0; never null. Valid until the string is
    /// changed or destroyed.
    const Ch* c_str() const noexcept { return impl_ ? impl_->data : noText(); }
    const Ch* data() const noexcept { return c_str(); }

    /// The character at \p index, which is at most length(): there stands the
    /// terminator.
    const Ch& operator[](unsigned int index) const noexcept { return c_str()[index]; }
    const Ch& front() const noexcept { return c_str()[0]; }
    const Ch& back() const noexcept { return c_str()[length() - 1]; }

    /// The characters as a range, for reading; valid as long as c_str() is.
    const Ch* begin() const noexcept { return c_str(); }
    const Ch* end() const noexcept { return c_str() + length(); }

    /// The same characters, not copied; valid as long as c_str() is.
    operator View() const noexcept { return View(c_str(), length()); }

    // Writing.

    /// Gives a string under construction a fresh block for \p length characters,
    /// which the caller then writes through mutableChars(); \p powerOfTwo chooses the
    /// capacity rule, length + 1 otherwise. Length 0 leaves no block.
    ///
    /// Deliberate: the previous handle is dropped, not released, because a string
    /// under construction has none. Call it on an empty string only. After an
    /// exception the string is empty.
    void createImpl(unsigned int length, bool powerOfTwo);

    /// Makes the string exactly \p length characters long, for the caller to
    /// overwrite. In place, with the first \p length characters kept, when the block
    /// is not shared and has room; otherwise in a new block with unspecified
    /// characters. Length 0 releases the block.
    LightweightString& resizeFor(unsigned int length);

    /// Appends \p count characters from \p chars, as strncpy copies: a 0 among them
    /// and all behind it become 0, the length grows by \p count all the same. In
    /// place, without allocating, when the block is not shared and has room. \p chars
    /// may point into this string, and may end at a 0 before \p count; it is not null
    /// unless \p count is 0.
    LightweightString& append(const Ch* chars, unsigned int count)
    {
        // Where the compiler sees that many characters, as in a literal, all may be read.
        const bool allThere = __builtin_object_size(chars, 2) >= sizeof(Ch) * std::size_t(count);
        return appendBy(chars, count, [allThere](Ch* to, const Ch* from, unsigned int n) noexcept {
            if (allThere)
                Vx::StringDetail::copyTextUpToZero(to, from, n);
            else
                Vx::StringDetail::copyUpToZero(to, from, n);
        });
    }

    /// Appends one character, zero or not.
    void push_back(Ch character)
    {
        Impl* const block = blockWithRoom(1);
        if (block == nullptr)
            return pushInNewBlock(character);
        const unsigned int length = block->length;
        // In one piece with the terminator, which is the upper half.
        using Narrow = std::make_unsigned_t<Ch>;
        using Both = std::conditional_t<sizeof(Ch) == 1, std::uint16_t, std::uint64_t>;
        static_assert(sizeof(Both) == 2 * sizeof(Ch));
        const Both ending = static_cast<Narrow>(character);
        std::memcpy(block->data + length, &ending, sizeof ending);
        block->length = length + 1;
    }

    /// Makes the string empty; releases the block.
    LightweightString& clear() noexcept
    {
        impl_.reset();
        return *this;
    }

    /// The characters for writing in place. Takes a private copy first when the block
    /// is shared. The caller leaves length() and the terminator as they are. An empty
    /// string has no character to write: its pointer is for reading only.
    Ch* mutableChars()
    {
        if (impl_ && !soleOwner())
            *this = LightweightString(impl_->data, impl_->length);
        return impl_ ? impl_->data : const_cast<Ch*>(noText());
    }

private:
    friend struct Vx::StringDetail::Access;

    using Handle = Vx::Ptr<Impl, typename Impl::DtorTraits, Vx::InternalRefCountTraits>;

    static const Ch* noText() noexcept
    {
        static constexpr Ch kNone[1] = {};
        return kNone;
    }

    static unsigned int checkedLength(View view)
    {
        if (view.size() > 0xFFFFFFFFu)
            Vx::StringDetail::throwTooLong();
        return static_cast<unsigned int>(view.size());
    }
    static unsigned int checkedLength(const Ch* text)
    {
        return text != nullptr ? checkedLength(View(text)) : 0;
    }

    /// Slots for \p length characters and a terminator under one of the two rules.
    static unsigned int capacityFor(unsigned int length, bool powerOfTwo)
    {
        // From 2^31 characters on, the next power of two has no 32-bit number.
        if (length >= (powerOfTwo ? 0x80000000u : 0xFFFFFFFFu))
            Vx::StringDetail::throwTooLong();
        if (!powerOfTwo || length == 0)
            return length + 1;
        return 1u << (32 - __builtin_clz(length));
    }

    /// A block of its own, terminated, its characters unwritten.
    static Handle newBlock(unsigned int length, bool powerOfTwo)
    {
        const unsigned int capacity = capacityFor(length, powerOfTwo);
        void* block =
            OS()->memoryAllocator()->allocate(sizeof(Impl) + sizeof(Ch) * std::size_t(capacity));
        Impl* impl = static_cast<Impl*>(block);
        impl->data = reinterpret_cast<Ch*>(impl + 1);
        impl->length = length;
        impl->capacity = capacity;
        impl->refCount = 1;
        impl->data[length] = 0;
        return Handle::adopt(&impl->refCount, impl);
    }

    /// A block with these characters; none for none.
    static Handle newCopy(const Ch* chars, unsigned int count)
    {
        if (count == 0)
            return Handle();
        Handle made = newBlock(count, true);
        std::memcpy(made->data, chars, sizeof(Ch) * std::size_t(count));
        return made;
    }

    /// The block, when \p count more characters can be written into it; null otherwise.
    Impl* blockWithRoom(unsigned int count) const noexcept
    {
        Impl* const block = impl_.get();
        // The owner first: what is read of the block behind that need not be read again.
        return block != nullptr && soleOwner() && count < block->capacity - block->length ? block
                                                                                          : nullptr;
    }

    /// append(), in place with \p copy.
    template <class Copy>
    LightweightString& appendBy(const Ch* chars, unsigned int count, Copy copy)
    {
        if (count == 0)
            return *this;
        Impl* const block = blockWithRoom(count);
        if (block == nullptr)
            return appendInNewBlock(chars, count);
        // The length is read before characters are written: to the compiler they might be it.
        const unsigned int length = block->length;
        Ch* const end = block->data + length;
        copy(end, chars, count);
        end[count] = 0;
        block->length = length + count;
        return *this;
    }

    LightweightString& appendInNewBlock(const Ch* chars, unsigned int count);
    void pushInNewBlock(Ch character);

    /// A block with these characters and \p count unwritten ones.
    Handle grownBy(unsigned int count) const
    {
        const unsigned int oldLength = length();
        if (count > 0xFFFFFFFFu - oldLength)
            Vx::StringDetail::throwTooLong();
        Handle grown = newBlock(oldLength + count, true);
        if (oldLength != 0)
            std::memcpy(grown->data, impl_->data, sizeof(Ch) * std::size_t(oldLength));
        return grown;
    }

    /// Only a sole owner writes in place. Acquires what former sharers did before they
    /// let go.
    bool soleOwner() const noexcept
    {
        return __atomic_load_n(&impl_->refCount, __ATOMIC_ACQUIRE) == 1;
    }

    Handle impl_;
};

template <class Ch> void LightweightString<Ch>::createImpl(unsigned int length, bool powerOfTwo)
{
    new (&impl_) Handle();
    if (length != 0)
        impl_ = newBlock(length, powerOfTwo);
}

template <class Ch> LightweightString<Ch>& LightweightString<Ch>::resizeFor(unsigned int length)
{
    if (length == 0)
        return clear();
    if (impl_ && length < impl_->capacity && soleOwner()) {
        impl_->data[length] = 0;
        impl_->length = length;
        return *this;
    }
    impl_ = newBlock(length, true);
    return *this;
}

template <class Ch>
LightweightString<Ch>& LightweightString<Ch>::appendInNewBlock(const Ch* chars, unsigned int count)
{
    Handle grown = grownBy(count);
    if (chars != nullptr)
        Vx::StringDetail::copyUpToZero(grown->data + length(), chars, count);
    else
        std::memset(grown->data + length(), 0, sizeof(Ch) * std::size_t(count));
    impl_ = std::move(grown);
    return *this;
}

template <class Ch> void LightweightString<Ch>::pushInNewBlock(Ch character)
{
    Handle grown = grownBy(1);
    grown->data[length()] = character;
    impl_ = std::move(grown);
}

namespace Vx {
namespace StringDetail {

/// What the library's own functions may do with a string beyond its public operations.
struct Access {
    /// The block, or null.
    template <class Ch>
    static const typename LightweightString<Ch>::Impl*
    blockOf(const LightweightString<Ch>& text) noexcept
    {
        return text.impl_.get();
    }
    /// append() for a text of which all \p count characters can be read.
    template <class Ch>
    static LightweightString<Ch>& append(LightweightString<Ch>& to, const Ch* chars,
                                         unsigned int count)
    {
        return to.appendBy(chars, count, copyTextUpToZero<Ch>);
    }
    /// Where \p count more characters and a terminator can be written, or null.
    template <class Ch>
    static Ch* roomFor(const LightweightString<Ch>& text, unsigned int count) noexcept
    {
        const auto block = text.blockWithRoom(count);
        return block != nullptr ? block->data + block->length : nullptr;
    }
    /// Adds \p count characters, which were written into the room, to \p text.
    template <class Ch> static void take(LightweightString<Ch>& text, unsigned int count) noexcept
    {
        const auto block = text.impl_.get();
        block->length += count;
        block->data[block->length] = 0;
    }
};

} // namespace StringDetail
} // namespace Vx

// Compiled into the library; other modules may inline them or call them there.
extern template void LightweightString<char>::createImpl(unsigned int, bool);
extern template void LightweightString<wchar_t>::createImpl(unsigned int, bool);
extern template LightweightString<char>& LightweightString<char>::resizeFor(unsigned int);
extern template LightweightString<wchar_t>& LightweightString<wchar_t>::resizeFor(unsigned int);
extern template LightweightString<char>& LightweightString<char>::append(const char*, unsigned int);
extern template LightweightString<char>::~LightweightString();
extern template LightweightString<wchar_t>::~LightweightString();

static_assert(sizeof(LightweightString<char>) == 16 && sizeof(LightweightString<wchar_t>) == 16,
              "a string is one handle, and the handle is part of the binary interface");
static_assert(sizeof(LightweightString<char>::Impl) == 24 &&
                  offsetof(LightweightString<char>::Impl, length) == 8 &&
                  offsetof(LightweightString<char>::Impl, capacity) == 12 &&
                  offsetof(LightweightString<char>::Impl, refCount) == 16,
              "the header of a block is part of the binary interface");

// Appending. Every form appends as LightweightString::append does.

/// Appends all characters of \p text, which may be \p to itself.
template <class Ch>
LightweightString<Ch>& operator+=(LightweightString<Ch>& to, const LightweightString<Ch>& text)
{
    return Vx::StringDetail::Access::append(to, text.c_str(), text.length());
}

/// Null appends nothing.
template <class Ch>
LightweightString<Ch>& operator+=(LightweightString<Ch>& to, Vx::StringDetail::Chars<Ch> text)
{
    return Vx::StringDetail::Access::append(to, text, Vx::StringDetail::lengthOf(text));
}

/// Appends one character. Deliberate: the character 0 appends nothing, so that a
/// separator of 0 joins texts without one.
template <class Ch> LightweightString<Ch>& operator+=(LightweightString<Ch>& to, Ch character)
{
    if (character != 0)
        to.push_back(character);
    return to;
}

/// Appends \p text, decoded as UTF-8 up to its first 0.
VX_API LightweightString<wchar_t>& operator+=(LightweightString<wchar_t>& to,
                                              const LightweightString<char>& text);

/// Appends the UTF-8 form of \p text.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to,
                                           const LightweightString<wchar_t>& text);

// Concatenation: one allocation at most.

/// Never shares the block of \p right; a null \p left reads as empty.
VX_API LightweightString<char> operator+(const char* left, const LightweightString<char>& right);

/// Never shares the block of \p right. Deliberate: unlike the narrow form, \p left
/// must not be null.
VX_API LightweightString<wchar_t> operator+(const wchar_t* left,
                                            const LightweightString<wchar_t>& right);

/// \p left with \p right behind it, as `operator+=` appends; shares the block of \p left
/// when nothing is added.
template <class Ch>
LightweightString<Ch> operator+(LightweightString<Ch> left, const LightweightString<Ch>& right)
{
    left += right;
    return left;
}
template <class Ch>
LightweightString<Ch> operator+(LightweightString<Ch> left, Vx::StringDetail::Chars<Ch> right)
{
    left += right;
    return left;
}
template <class Ch> LightweightString<Ch> operator+(LightweightString<Ch> left, Ch right)
{
    left += right;
    return left;
}

// Comparison.

namespace Vx {
namespace StringDetail {

template <class Ch>
bool equal(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    const auto aBlock = Access::blockOf(a), bBlock = Access::blockOf(b);
    if (aBlock == bBlock)
        return true;
    if (aBlock == nullptr || bBlock == nullptr)
        return a.length() == b.length();
    return aBlock->length == bBlock->length &&
           sameBytes(reinterpret_cast<const char*>(aBlock->data),
                     reinterpret_cast<const char*>(bBlock->data),
                     sizeof(Ch) * std::size_t(aBlock->length));
}
template <class Ch>
bool equal(const LightweightString<Ch>& a, const Ch* b, unsigned int bLength) noexcept
{
    return a.length() == bLength &&
           (a.c_str() == b ||
            sameBytes(reinterpret_cast<const char*>(a.c_str()), reinterpret_cast<const char*>(b),
                      sizeof(Ch) * std::size_t(bLength)));
}
template <class Ch>
int order(const LightweightString<Ch>& a, const Ch* b, unsigned int bLength) noexcept
{
    return a.c_str() == b && a.length() == bLength ? 0 : compare(a.c_str(), a.length(), b, bLength);
}

} // namespace StringDetail
} // namespace Vx

/// Compares characters as unsigned numbers, then lengths; embedded zeros count. A null
/// pointer is the empty text.
template <class Ch>
bool operator==(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return Vx::StringDetail::equal(a, b);
}
template <class Ch>
bool operator==(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return b != nullptr ? Vx::StringDetail::equal(a, b, Vx::StringDetail::lengthOf(b)) : a.empty();
}
template <class Ch>
bool operator==(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return b == a;
}
template <class Ch>
bool operator!=(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return !(a == b);
}
template <class Ch>
bool operator!=(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return !(a == b);
}
template <class Ch>
bool operator!=(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return !(b == a);
}
template <class Ch>
bool operator<(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return Vx::StringDetail::order(a, b.c_str(), b.length()) < 0;
}
template <class Ch>
bool operator<(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return b != nullptr && Vx::StringDetail::order(a, b, Vx::StringDetail::lengthOf(b)) < 0;
}
template <class Ch>
bool operator<(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return a != nullptr ? Vx::StringDetail::order(b, a, Vx::StringDetail::lengthOf(a)) > 0
                        : !b.empty();
}
template <class Ch>
bool operator>(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return b < a;
}
template <class Ch>
bool operator>(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return b < a;
}
template <class Ch>
bool operator>(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return b < a;
}
template <class Ch>
bool operator<=(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return !(b < a);
}
template <class Ch>
bool operator<=(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return !(b < a);
}
template <class Ch>
bool operator<=(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return !(b < a);
}
template <class Ch>
bool operator>=(const LightweightString<Ch>& a, const LightweightString<Ch>& b) noexcept
{
    return !(a < b);
}
template <class Ch>
bool operator>=(const LightweightString<Ch>& a, Vx::StringDetail::Chars<Ch> b) noexcept
{
    return !(a < b);
}
template <class Ch>
bool operator>=(Vx::StringDetail::Chars<Ch> a, const LightweightString<Ch>& b) noexcept
{
    return !(a < b);
}
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
/// The same order, for code that is read as C++20.
template <class Ch>
std::strong_ordering operator<=>(const LightweightString<Ch>& a,
                                 const LightweightString<Ch>& b) noexcept
{
    return Vx::StringDetail::order(a, b.c_str(), b.length()) <=> 0;
}
#endif

// Streams.

/// Writes the characters, padded as a standard string would be.
template <class Ch>
std::basic_ostream<Ch>& operator<<(std::basic_ostream<Ch>& stream,
                                   const LightweightString<Ch>& text)
{
    return stream << std::basic_string_view<Ch>(text);
}

/// Reads one word and appends it to \p word.
///
/// Deliberate: leading white space is not skipped. The word ends at the first white
/// space, which is consumed, so a stream that begins with one gives nothing. Zeros in
/// the stream are left out. A word that the end of the stream ends is there, but the
/// stream has failed as after get(): look at the word, not at the stream.
VX_API std::istream& operator>>(std::istream& stream, LightweightString<char>& word);

/// Equal strings have equal hashes, embedded zeros included.
template <class Ch> struct std::hash<LightweightString<Ch>> {
    /// \returns the hash of the characters, the same as their view's
    std::size_t operator()(const LightweightString<Ch>& text) const noexcept
    {
        return std::hash<std::basic_string_view<Ch>>()(text);
    }
};
