// LightweightString.h - The library's string type: shared, reference-counted, copied on write.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxMemory.h>
#include <Vx/VxPtr.h>
#include <Vx/detail/ShortCopy.h>
#include <Vx/detail/StringBlock.h>
#include <functional>
#include <ostream>

/// A string of `char` (ASCII or UTF-8) or of `wchar_t` (UTF-32, one code point per element).
///
///     LightweightString<char> name("clip");   // allocates one block
///     LightweightString<char> copy(name);     // shares it
///     copy += ".mov";                         // copies it first; name is still "clip"
///
/// Layout: one handle of 16 bytes to a block with a header, the characters and a terminating
///   NUL. The empty string has no block. Lengths and capacities are 32-bit counts of
///   characters; a capacity includes the terminator, so length() < capacity() with a block.
/// Growth: a new block has the smallest power of two of slots that is greater than the
///   length, unless createImpl() is asked for an exact size.
/// Embedded zeros: constructors and comparisons treat them as characters.
///   Deliberate: appending copies as strncpy does. From the first zero of the appended
///   characters on, all of them become zeros; the length still grows by the full count.
/// Errors: exhausted memory throws what the platform throws, 2^31 characters or more
///   std::length_error (a block of exact size holds up to 2^32 - 2). The string then keeps its
///   value, except in createImpl().
/// Thread safety: strings that share a block may be used from different threads. A string
///   object is a value type: concurrent reads are safe, writes need a lock.
template <class Ch> class VX_API LightweightString {
public:
    /// The header of a block; the characters follow it in the same allocation.
    struct Impl {
        /// Returns the block to the platform allocator.
        struct DtorTraits {
            /// Frees the block.
            static void destroy(Impl* impl) noexcept { OS()->memoryAllocator()->deallocate(impl); }
        };

        Ch* data;              ///< the first character, directly after the header
        unsigned int length;   ///< characters, without the terminator
        unsigned int capacity; ///< slots, including the terminator's
        unsigned int refCount; ///< strings that share the block; atomic
    };

    // The names that the standard library gives to the parts of a read-only container.
    using value_type = Ch;
    using size_type = unsigned int;
    using difference_type = std::ptrdiff_t;
    using reference = const Ch&;
    using const_reference = const Ch&;
    using iterator = const Ch*;
    using const_iterator = const Ch*;
    /// A view of the characters.
    using View = std::basic_string_view<Ch>;

    /// The empty string.
    LightweightString() noexcept = default;

    /// Copies a NUL-terminated string; null is treated as empty.
    LightweightString(const Ch* chars) : LightweightString(Vx::detail::viewOf<Ch>(chars)) {}

    /// Copies \p count characters, zeros included; null is treated as empty.
    LightweightString(const Ch* chars, unsigned int count)
        : impl_(adopt(newCopy(chars, chars != nullptr ? count : 0)))
    {}

    /// Copies the characters of \p view, zeros included. Takes a std::basic_string, too.
    explicit LightweightString(View view)
        : impl_(adopt(newCopy(view.data(), Vx::detail::checkedLength(view.size()))))
    {}

    /// Shares the block; never allocates.
    LightweightString(const LightweightString&) noexcept = default;
    LightweightString(LightweightString&&) noexcept = default;
    LightweightString& operator=(const LightweightString&) noexcept = default;
    LightweightString& operator=(LightweightString&&) noexcept = default;

    /// Copies the characters into a new block, as the constructors do; they may be the
    /// string's own.
    LightweightString& operator=(const Ch* chars) { return *this = LightweightString(chars); }
    LightweightString& operator=(View view) { return *this = LightweightString(view); }

    /// Releases the block; the last sharer frees it.
    ~LightweightString() {}

    // Reading.

    /// The number of characters, embedded zeros included, without the terminator.
    unsigned int length() const noexcept { return impl_ ? impl_->length : 0; }
    unsigned int size() const noexcept { return length(); }
    /// Returns whether the string is empty.
    bool empty() const noexcept { return length() == 0; }

    /// The slots of the block, including the terminator's; 0 without a block.
    unsigned int capacity() const noexcept { return impl_ ? impl_->capacity : 0; }

    /// The number of strings that share the block right now; 0 without a block.
    unsigned int useCount() const noexcept { return impl_.useCount(); }

    /// The characters and a terminating NUL; never null. Valid until the string is changed or
    /// destroyed.
    const Ch* c_str() const noexcept { return impl_ ? impl_->data : noCharacters(); }
    const Ch* data() const noexcept { return c_str(); }

    /// The character at \p index, which must not exceed length(); at length() it is the
    /// terminator.
    const Ch& operator[](unsigned int index) const noexcept { return c_str()[index]; }
    /// The first character; the terminator if the string is empty.
    const Ch& front() const noexcept { return c_str()[0]; }
    /// The last character; undefined if the string is empty.
    const Ch& back() const noexcept { return c_str()[length() - 1]; }

    /// The characters as a read-only range; valid as long as c_str() is.
    const Ch* begin() const noexcept { return c_str(); }
    const Ch* end() const noexcept { return c_str() + length(); }

    /// A view of the characters; valid as long as c_str() is.
    operator View() const noexcept
    {
        return impl_ ? View(impl_->data, impl_->length) : View(noCharacters(), 0);
    }

    // Writing.

    /// Gives a string under construction a new block for \p length characters, which the
    /// caller then writes through mutableChars(). The capacity is a power of two if
    /// \p powerOfTwo, otherwise length + 1. Length 0 leaves no block.
    ///
    /// Deliberate: forgets the previous block without releasing it, since a string under
    /// construction has none. Call it on an empty string only. If it throws, the string is
    /// empty.
    void createImpl(unsigned int length, bool powerOfTwo);

    /// Makes the string exactly \p length characters long, for the caller to overwrite.
    /// Works in place and keeps the first \p length characters if the block is unshared and
    /// large enough; otherwise allocates a block with unspecified characters. Length 0
    /// releases the block.
    LightweightString& resizeFor(unsigned int length);

    /// Makes the string \p count characters longer and returns the first new one, for the
    /// caller to write: `std::memcpy(text.extendFor(n), digits, n)`. Keeps the others. Allocates
    /// only if the block is shared or too small. 0 does nothing.
    Ch* extendFor(unsigned int count);

    /// Appends \p count characters as strncpy copies them: zeros from the first zero on, while
    /// the length grows by \p count. Allocates only if the block is shared or too small.
    /// \p chars may point into this string and may end at a zero before \p count; it must not
    /// be null unless \p count is 0.
    LightweightString& append(const Ch* chars, unsigned int count)
    {
        return appendBy(Vx::detail::copyUpToZeroPlain<Ch>, chars, count);
    }

    /// Appends all characters of the argument, by the same rule; null appends nothing.
    LightweightString& append(const LightweightString& text)
    {
        return appendBy(Vx::detail::copyUpToZero<Ch>, text.c_str(), text.length());
    }
    LightweightString& append(View view)
    {
        return append(view.data(), Vx::detail::checkedLength(view.size()));
    }
    LightweightString& append(const Ch* chars)
    {
        const View view = Vx::detail::viewOf<Ch>(chars); // without zeros
        return appendBy(View::traits_type::copy, view.data(),
                        Vx::detail::checkedLength(view.size()));
    }

    /// Appends one character, which may be zero.
    void push_back(Ch character) { *extendFor(1) = character; }

    /// Makes the string empty and releases the block.
    LightweightString& clear() noexcept
    {
        impl_.reset();
        return *this;
    }

    /// The characters, for writing in place; copies the block first if it is shared. The
    /// caller must not change the terminator. The pointer of an empty string must not be
    /// written through.
    Ch* mutableChars();

private:
    using Handle = Vx::Ptr<Impl, typename Impl::DtorTraits, Vx::InternalRefCountTraits>;

    // Hidden: the loader never unloads a module that exports a static object of a template.
    [[gnu::visibility("hidden")]] static const Ch* noCharacters() noexcept
    {
        static constexpr Ch kTerminator[1] = {};
        return kTerminator;
    }
    // New blocks are plain pointers until they are complete; nothing throws until then.
    static Handle adopt(Impl* block) noexcept
    {
        return block != nullptr ? Handle::adopt(&block->refCount, block) : Handle();
    }
    void install(Impl* block) noexcept { adopt(block).swap(impl_); }
    static Impl* newBlock(unsigned int length, bool powerOfTwo);
    static Impl* newCopy(const Ch* chars, unsigned int count);
    Impl* newGrownCopy(unsigned int count) const;
    Impl* blockWithRoomFor(unsigned int count) const noexcept;
    template <class Copy>
    LightweightString& appendBy(Copy copy, const Ch* chars, unsigned int count);
    // Out of line, so that the fast path around a call stays short.
    [[gnu::noinline]] LightweightString& appendInNewBlock(const Ch* chars, unsigned int count);
    [[gnu::noinline]] Impl* extendInNewBlock(unsigned int count);

    Handle impl_;
};

// Appending: every form works as LightweightString::append() does.

/// Appends a string, as append() does.
template <class Ch>
LightweightString<Ch>& operator+=(LightweightString<Ch>& to, const LightweightString<Ch>& text)
{
    return to.append(text);
}

/// Appends a `const Ch*` (null appends nothing), a std::basic_string or a
/// std::basic_string_view.
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
LightweightString<Ch>& operator+=(LightweightString<Ch>& to, const Text& text)
{
    return to.append(static_cast<Vx::detail::Operand<Ch, Text>>(text));
}

/// Appends one character.
///
/// Deliberate: appends nothing for the character 0, so that a separator of 0 joins strings
/// without one.
template <class Ch> LightweightString<Ch>& operator+=(LightweightString<Ch>& to, Ch character)
{
    if (character != 0)
        to.push_back(character);
    return to;
}

/// Numbers are appended by the operators of VxStringNumbers.h; without them, `s += 0` does not
/// compile, rather than pass for a null pointer.
template <class Ch> LightweightString<Ch>& operator+=(LightweightString<Ch>& to, int) = delete;

/// Appends \p text decoded from UTF-8, up to its first zero.
VX_API LightweightString<wchar_t>& operator+=(LightweightString<wchar_t>& to,
                                              const LightweightString<char>& text);

/// Appends \p text encoded as UTF-8.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to,
                                           const LightweightString<wchar_t>& text);

// Concatenation: \p right is appended to \p left, as `+=` does.

/// Never shares the block of \p right. Null \p left is treated as empty.
VX_API LightweightString<char> operator+(const char* left, const LightweightString<char>& right);

/// Never shares the block of \p right.
///
/// Deliberate: unlike in the narrow form, \p left must not be null.
VX_API LightweightString<wchar_t> operator+(const wchar_t* left,
                                            const LightweightString<wchar_t>& right);

/// Takes what `+=` takes on the right; shares the block of \p left if nothing is added.
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
LightweightString<Ch> operator+(LightweightString<Ch> left, const Text& right)
{
    left += right;
    return left;
}
template <class Ch> LightweightString<Ch> operator+(LightweightString<Ch> left, Ch right)
{
    left += right;
    return left;
}

/// A std::basic_string or std::basic_string_view on the left.
template <class Ch, class Text, Vx::detail::IfView<Ch, Text> = 0>
LightweightString<Ch> operator+(const Text& left, const LightweightString<Ch>& right)
{
    return LightweightString<Ch>(Vx::detail::viewOf<Ch>(left)) + right;
}

// Comparison: characters as unsigned numbers, then lengths; embedded zeros count. The other
// side is a string, a `const Ch*` (null is treated as empty), a std::basic_string or a
// std::basic_string_view.

template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
inline bool operator==(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return Vx::detail::equal<Ch>(a, Vx::detail::viewOf<Ch>(b));
}
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
bool operator!=(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return !(a == b);
}
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
inline bool operator<(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return Vx::detail::compare(a, Vx::detail::viewOf<Ch>(b)) < 0;
}
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
bool operator>(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return Vx::detail::compare(a, Vx::detail::viewOf<Ch>(b)) > 0;
}
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
bool operator<=(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return !(a > b);
}
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
bool operator>=(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return !(a < b);
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator==(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return b == a;
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator!=(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return !(b == a);
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator<(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return b > a;
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator>(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return b < a;
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator<=(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return b >= a;
}
template <class Ch, class Text, Vx::detail::IfPointerOrView<Ch, Text> = 0>
bool operator>=(const Text& a, const LightweightString<Ch>& b) noexcept
{
    return b <= a;
}
#ifdef __cpp_impl_three_way_comparison
/// The same order, in C++20.
template <class Ch, class Text, Vx::detail::IfText<Ch, Text> = 0>
std::strong_ordering operator<=>(const LightweightString<Ch>& a, const Text& b) noexcept
{
    return Vx::detail::compare(a, Vx::detail::viewOf<Ch>(b)) <=> 0;
}
#endif

// Streams.

/// Writes the characters, padded as a standard string is.
template <class Ch>
std::basic_ostream<Ch>& operator<<(std::basic_ostream<Ch>& stream,
                                   const LightweightString<Ch>& text)
{
    return stream << std::basic_string_view<Ch>(text);
}

/// Reads one word and appends it to \p word.
///
/// Deliberate: does not skip leading white space. The first white space ends the word and is
/// consumed, so a stream that begins with white space yields nothing. Zeros in the stream are
/// dropped. At the end of the stream the word is complete although the stream has failed:
/// test the word, not the stream.
VX_API std::istream& operator>>(std::istream& stream, LightweightString<char>& word);

/// The hash of the characters, embedded zeros included; the same as that of their view.
template <class Ch> struct std::hash<LightweightString<Ch>> {
    std::size_t operator()(const LightweightString<Ch>& text) const noexcept
    {
        return std::hash<std::basic_string_view<Ch>>()(text);
    }
};

static_assert(sizeof(LightweightString<char>) == 16 && sizeof(LightweightString<wchar_t>) == 16,
              "a string is one handle, and the handle is part of the binary interface");
static_assert(sizeof(LightweightString<char>::Impl) == 24 &&
                  offsetof(LightweightString<char>::Impl, length) == 8 &&
                  offsetof(LightweightString<char>::Impl, capacity) == 12 &&
                  offsetof(LightweightString<char>::Impl, refCount) == 16,
              "the header of a block is part of the binary interface");

// The definitions of the templates.

template <class Ch> void LightweightString<Ch>::createImpl(unsigned int length, bool powerOfTwo)
{
    // Built in place: a string under construction has no handle to release. Empty first, as the
    // string is if newBlock() throws.
    new (&impl_) Handle();
    if (length != 0)
        new (&impl_) Handle(adopt(newBlock(length, powerOfTwo)));
}

template <class Ch> LightweightString<Ch>& LightweightString<Ch>::resizeFor(unsigned int length)
{
    if (length == 0)
        return clear();
    if (useCount() == 1 && length < impl_->capacity) {
        impl_->data[length] = 0;
        impl_->length = length;
    } else {
        install(newBlock(length, true));
    }
    return *this;
}

template <class Ch> inline Ch* LightweightString<Ch>::extendFor(unsigned int count)
{
    if (count == 0)
        return const_cast<Ch*>(end());
    Impl* block = blockWithRoomFor(count);
    if (block != nullptr)
        block->length += count;
    else
        block = extendInNewBlock(count);
    Ch* const newEnd = block->data + block->length;
    *newEnd = 0;
    return newEnd - count;
}

template <class Ch> auto LightweightString<Ch>::extendInNewBlock(unsigned int count) -> Impl*
{
    Impl* const grown = newGrownCopy(count);
    install(grown);
    return grown;
}

template <class Ch>
template <class Copy>
inline LightweightString<Ch>& LightweightString<Ch>::appendBy(Copy copy, const Ch* chars,
                                                              unsigned int count)
{
    if (count == 0)
        return *this;
    Impl* const block = blockWithRoomFor(count);
    if (block == nullptr)
        return appendInNewBlock(chars, count);
    Ch* const end = block->data + block->length;
    block->length += count;
    copy(end, chars, count);
    end[count] = 0;
    return *this;
}

template <class Ch>
LightweightString<Ch>& LightweightString<Ch>::appendInNewBlock(const Ch* chars, unsigned int count)
{
    Impl* const grown = newGrownCopy(count);
    Ch* const end = grown->data + length();
    if (chars != nullptr)
        Vx::detail::copyUpToZeroPlain(end, chars, count);
    else
        std::memset(end, 0, sizeof(Ch) * std::size_t(count));
    install(grown);
    return *this;
}

template <class Ch> Ch* LightweightString<Ch>::mutableChars()
{
    if (useCount() > 1)
        install(newCopy(impl_->data, impl_->length));
    return impl_ ? impl_->data : const_cast<Ch*>(noCharacters());
}

/// A block for one string, with a terminator and unwritten characters.
template <class Ch>
auto LightweightString<Ch>::newBlock(unsigned int length, bool powerOfTwo) -> Impl*
{
    const unsigned int capacity = Vx::detail::capacityFor(length, powerOfTwo);
    void* const block =
        OS()->memoryAllocator()->allocate(sizeof(Impl) + sizeof(Ch) * std::size_t(capacity));
    Impl* const impl = static_cast<Impl*>(block);
    impl->data = reinterpret_cast<Ch*>(impl + 1);
    impl->length = length;
    impl->capacity = capacity;
    impl->refCount = 1;
    impl->data[length] = 0;
    return impl;
}

/// A block with these characters; none for no characters.
template <class Ch>
auto LightweightString<Ch>::newCopy(const Ch* chars, unsigned int count) -> Impl*
{
    if (count == 0)
        return nullptr;
    Impl* const copy = newBlock(count, true);
    std::memcpy(copy->data, chars, sizeof(Ch) * std::size_t(count));
    return copy;
}

/// A block with this string's characters and \p count unwritten ones.
template <class Ch> auto LightweightString<Ch>::newGrownCopy(unsigned int count) const -> Impl*
{
    Impl* const grown = newBlock(Vx::detail::checkedLength(std::size_t(length()) + count), true);
    if (!empty())
        std::memcpy(grown->data, impl_->data, sizeof(Ch) * std::size_t(length()));
    return grown;
}

/// The block if \p count more characters can be written into it, else null.
template <class Ch>
auto LightweightString<Ch>::blockWithRoomFor(unsigned int count) const noexcept -> Impl*
{
    Impl* const block = impl_.get();
    if (block == nullptr || Vx::detail::readCount(&block->refCount) != 1)
        return nullptr;
    return count < block->capacity - block->length ? block : nullptr;
}

// Compiled into the library; other modules may inline them or call them there.
extern template void LightweightString<char>::createImpl(unsigned int, bool);
extern template void LightweightString<wchar_t>::createImpl(unsigned int, bool);
extern template LightweightString<char>& LightweightString<char>::resizeFor(unsigned int);
extern template LightweightString<wchar_t>& LightweightString<wchar_t>::resizeFor(unsigned int);
extern template LightweightString<char>& LightweightString<char>::append(const char*, unsigned int);
extern template LightweightString<char>::~LightweightString();
extern template LightweightString<wchar_t>::~LightweightString();
