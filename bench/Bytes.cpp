// Checksums and fills.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxCRC.h>
#include <Vx/VxMemset.h>
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <vector>

#if BENCH_BOOST
#include <boost/crc.hpp>
#endif
#if BENCH_ZLIB
#include <zlib.h>
#endif
#if BENCH_LIBDEFLATE
#include <libdeflate.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::runBytes;
using bench::State;

unsigned int crcByBits(const std::string& data)
{
    unsigned int crc = 0;
    for (const char byte : data)
        crc = Vx::CRC::IterateCRC32(byte, crc);
    return crc;
}

// The usual table-driven CRC-32 with the common polynomial.
class TableCrc {
public:
    TableCrc()
    {
        for (unsigned int i = 0; i < 256; ++i) {
            unsigned int value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320u : value >> 1;
            table_[i] = value;
        }
    }
    unsigned int operator()(const std::string& data) const
    {
        unsigned int crc = 0xFFFFFFFFu;
        for (const char byte : data)
            crc = crc >> 8 ^ table_[(crc ^ static_cast<unsigned char>(byte)) & 0xFF];
        return ~crc;
    }

private:
    unsigned int table_[256];
};

void addCrc()
{
    Row row("bytes", "CRC of 4 KiB", {1.34, "zlib, another polynomial"});
    static const std::string data = bench::letters(4096);
    constexpr std::string_view kCheck = "123456789";
    row.ours([=](State& state) {
        const auto crc = [](std::string_view text) {
            return Vx::CRC::CalculateCRC32ForBlock(text.data(), text.size());
        };
        runBytes(state, data.size(), crc(kCheck) == 0xECF6681Eu && crc(data) == crcByBits(data),
                 [&] { keep(crc(data)); });
    });
    row.peer("bit by bit", [=](State& state) {
        runBytes(state, data.size(), crcByBits(std::string(kCheck)) == 0xECF6681Eu,
                 [] { keep(crcByBits(data)); });
    });
    row.peer("table, another polynomial", [=](State& state) {
        const TableCrc crc;
        runBytes(state, data.size(), crc(std::string(kCheck)) == 0xCBF43926u,
                 [&] { keep(crc(data)); });
    });
#if BENCH_BOOST
    row.peer("Boost, another polynomial", [=](State& state) {
        const auto crc = [](std::string_view text) {
            boost::crc_32_type sum;
            sum.process_bytes(text.data(), text.size());
            return sum.checksum();
        };
        runBytes(state, data.size(), crc(kCheck) == 0xCBF43926u, [&] { keep(crc(data)); });
    });
#endif
#if BENCH_ZLIB
    row.peer("zlib, another polynomial", [=](State& state) {
        const auto crc = [](std::string_view text) {
            return crc32(0, reinterpret_cast<const Bytef*>(text.data()),
                         static_cast<unsigned int>(text.size()));
        };
        runBytes(state, data.size(), crc(kCheck) == 0xCBF43926u, [&] { keep(crc(data)); });
    });
#endif
#if BENCH_LIBDEFLATE
    row.peer("libdeflate, another polynomial", [=](State& state) {
        const auto crc = [](std::string_view text) {
            return libdeflate_crc32(0, text.data(), text.size());
        };
        runBytes(state, data.size(), crc(kCheck) == 0xCBF43926u, [&] { keep(crc(data)); });
    });
#endif
}

template <class Element, class Fill>
void fillAll(State& state, std::size_t bytes, Element value, Fill fill)
{
    std::vector<Element> elements(bytes / sizeof(Element));
    const auto fillOnce = [&] { fill(elements.data(), value, elements.size()); };
    fillOnce();
    const bool right =
        std::all_of(elements.begin(), elements.end(), [&](Element e) { return e == value; });
    runBytes(state, bytes, right, [&] {
        fillOnce();
        keep(elements.data());
        benchmark::ClobberMemory();
    });
}

template <class Element, class Ours>
void addFill(const std::string& operation, std::size_t bytes, Element value, Ours ours)
{
    Row row("bytes", operation, {1.0 / 0.9, "memset"});
    row.ours([=](State& state) {
        fillAll<Element>(state, bytes, value, [=](Element* to, Element v, std::size_t count) {
            ours(to, v, static_cast<unsigned int>(count));
        });
    });
    row.peer("std::fill", [=](State& state) {
        fillAll<Element>(state, bytes, value, [](Element* to, Element v, std::size_t count) {
            std::fill(to, to + count, v);
        });
    });
    row.peer("memset", [=](State& state) {
        // memset can only repeat one byte.
        fillAll<Element>(state, bytes, static_cast<Element>(~Element{0}),
                         [](Element* to, Element, std::size_t count) {
                             std::memset(to, 0xFF, count * sizeof(Element));
                         });
    });
    if constexpr (sizeof(Element) == sizeof(wchar_t))
        row.peer("wmemset", [=](State& state) {
            fillAll<wchar_t>(
                state, bytes, static_cast<wchar_t>(value),
                [](wchar_t* to, wchar_t v, std::size_t count) { std::wmemset(to, v, count); });
        });
}

} // namespace

void bench::addBytes()
{
    addCrc();
    for (const auto& [name, bytes] :
         {std::pair("4 KiB", std::size_t{4096}), std::pair("1 MiB", std::size_t{1048576})}) {
        const std::string size = std::string(", ") + name;
        addFill<unsigned short>("fill 16 bits" + size, bytes, 0x1234, Vx::Memset16);
        addFill<unsigned int>("fill 32 bits" + size, bytes, 0x12345678u, Vx::Memset32);
        addFill<unsigned long>("fill 64 bits" + size, bytes, 0x123456789ABCDEF0ul, Vx::Memset64);
    }
}
