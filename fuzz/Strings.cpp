// Any sequence of operations on strings that may share blocks, in both widths, compared with a
// model: characters, capacities, sharers and addresses.
#include "Fuzz.h"

#include <Vx/testing/ScriptedPlatform.h>
#include <algorithm>
#include <bit>
#include <memory>

namespace {

/// What a string must report: its characters, its capacity, and who shares its block.
template <class Ch> struct Model {
    struct Block {
        std::basic_string<Ch> text;
        unsigned int capacity;
        const Ch* address = nullptr; // as first seen
    };
    std::shared_ptr<Block> block;

    std::basic_string<Ch> text() const
    {
        return block != nullptr ? block->text : std::basic_string<Ch>();
    }
    bool hasRoomFor(std::size_t length) const
    {
        return block.use_count() == 1 && length < block->capacity;
    }
    void renew(const std::basic_string<Ch>& text, bool powerOfTwo = true)
    {
        const auto slots = static_cast<unsigned int>(text.size()) + 1;
        block.reset();
        if (!text.empty())
            block = std::make_shared<Block>(Block{text, powerOfTwo ? std::bit_ceil(slots) : slots});
    }
    void assign(const std::basic_string<Ch>& text)
    {
        if (!text.empty() && hasRoomFor(text.size()))
            block->text = text;
        else
            renew(text);
    }
    void append(const std::basic_string<Ch>& more)
    {
        if (!more.empty())
            assign(text() + more);
    }
    void claimMatches(const LightweightString<Ch>& string)
    {
        FUZZ_CLAIM(plain(string) == text());
        FUZZ_CLAIM(string.c_str()[string.length()] == Ch(0));
        FUZZ_CLAIM(string.capacity() == (block != nullptr ? block->capacity : 0));
        FUZZ_CLAIM(string.useCount() == static_cast<unsigned int>(block.use_count()));
        if (block != nullptr && block->address == nullptr)
            block->address = string.c_str();
        FUZZ_CLAIM(block == nullptr || block->address == string.c_str());
    }
};

/// Strings that may share blocks, each with its model.
template <class Ch> class ModelledStrings {
public:
    void change(Input& input)
    {
        const unsigned int operation = input.take<std::uint8_t>() % 14;
        const unsigned int places = input.take<std::uint8_t>();
        const std::size_t i = places % kStrings, j = places / kStrings % kStrings;
        const unsigned int at = input.take<std::uint16_t>() % (strings_[i].length() + 10);
        const Ch c = static_cast<Ch>('a' + input.take<std::uint8_t>() % 26);
        const Plain some(input.take<std::uint8_t>() % 20, c);
        if (strings_[i].length() > 5000)
            strings_[i].clear(), models_[i].renew({});
        else if (operation < 7)
            append(operation, i, j, at, c, some);
        else
            replace(operation - 7, i, j, at, c, some);
        claimMatches();
    }

private:
    using String = LightweightString<Ch>;
    using Plain = std::basic_string<Ch>;
    static constexpr std::size_t kStrings = 4;

    void claimMatches()
    {
        for (std::size_t i = 0; i < kStrings; ++i) {
            models_[i].claimMatches(strings_[i]);
            for (std::size_t j = 0; j < kStrings; ++j) {
                const Plain a = models_[i].text(), b = models_[j].text();
                FUZZ_CLAIM((strings_[i] < strings_[j]) == (a < b));
                FUZZ_CLAIM((strings_[i] == b.c_str()) == (a == b));
            }
        }
    }

    void append(unsigned int which, std::size_t i, std::size_t j, unsigned int at, Ch c,
                const Plain& some)
    {
        String& text = strings_[i];
        Model<Ch>& model = models_[i];
        const Plain old = model.text(), other = models_[j].text();
        switch (which) {
        case 0: text += c, model.append(Plain(1, c)); break;
        case 1: text.push_back(c), model.append(Plain(1, c)); break;
        case 2: text += strings_[j], model.append(other); break;
        case 3:
            text.append(some.data(), static_cast<unsigned int>(some.size()));
            model.append(some);
            break;
        case 4:
            if (at < old.size()) { // a part of the string itself
                text.append(text.c_str() + at, (text.length() - at) / 2);
                model.append(old.substr(at, (old.size() - at) / 2));
            }
            break;
        case 5: {
            text = strings_[j] + strings_[i];
            Model<Ch> sum = models_[j];
            sum.append(old);
            model = sum;
            break;
        }
        default: text = other.c_str() + strings_[i], model.renew(other + old);
        }
    }

    void replace(unsigned int which, std::size_t i, std::size_t j, unsigned int at, Ch c,
                 const Plain& some)
    {
        String& text = strings_[i];
        Model<Ch>& model = models_[i];
        const Plain old = model.text();
        const unsigned int someLength = static_cast<unsigned int>(some.size());
        switch (which) {
        case 0: text.clear(), model.renew({}); break;
        case 1: text = strings_[j], model = models_[j]; break;
        case 2:
            if (i != j) {
                String moved(std::move(strings_[j]));
                text = std::move(moved);
                model.block = std::move(models_[j].block);
                FUZZ_CLAIM(moved.useCount() == 0); // NOLINT(bugprone-use-after-move)
            }
            break;
        case 3: text = String(some.data(), someLength), model.renew(some); break;
        case 4: { // keeps the start if it works in place
            const std::size_t kept =
                model.hasRoomFor(at) ? std::min<std::size_t>(at, old.size()) : 0;
            text.resizeFor(at);
            std::fill_n(text.mutableChars() + kept, at - kept, c);
            model.assign(old.substr(0, kept) + Plain(at - kept, c));
            break;
        }
        case 5: // under construction
            text.clear().createImpl(someLength, at % 2 == 0);
            std::copy_n(some.data(), someLength, text.mutableChars());
            model.renew(some, at % 2 == 0);
            break;
        default:
            if (at < old.size()) {
                text.mutableChars()[at] = c;
                if (!model.hasRoomFor(old.size()))
                    model.renew(old);
                model.block->text[at] = c;
            }
        }
    }

    String strings_[kStrings];
    Model<Ch> models_[kStrings];
};

template <class Ch> void run(Input& input)
{
    ScriptedPlatform platform;
    {
        ModelledStrings<Ch> strings;
        while (!input.empty())
            strings.change(input);
    }
    FUZZ_CLAIM(platform.liveBlocks() == 0);
}

} // namespace

// The input: the width, then six bytes per operation.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    if ((input.take<std::uint8_t>() & 1) == 0)
        run<char>(input);
    else
        run<wchar_t>(input);
    return 0;
}
