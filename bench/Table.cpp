#include "Table.h"

#if __x86_64__
#include <immintrin.h>
#endif

namespace {

#if __x86_64__
[[gnu::target("avx")]] void zeroUpperHalves() { _mm256_zeroupper(); }
#endif

// Passes what report.py needs besides the times, in the context of the JSON output.
std::string announce(const std::string& kind, const std::string& name, const std::string& fields)
{
    static int order = 0;
    const std::string number = std::to_string(1000 + order++);
    benchmark::AddCustomContext(kind + number, name + "\t" + fields);
    return name + " @ ";
}

} // namespace

void bench::cleanVectorRegisters()
{
#if __x86_64__
    if (__builtin_cpu_supports("avx"))
        zeroUpperHalves();
#endif
}

bench::Row::Row(std::string family, std::string operation, Goal goal)
    : prefix_(announce("row", family + ": " + operation,
                       std::to_string(goal.factor) + "\t" + goal.against))
{}

bench::Curve::Curve(const std::string& operation, const std::string& expected)
    : prefix_(announce("curve", "growth: " + operation, expected))
{}
