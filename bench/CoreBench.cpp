// Costs of the core library's strings and maps, beside the standard types.
#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "core/QVMap.h"
#include "core/QVString.h"

namespace
{

constexpr char16_t SHORT_TEXT[] =
    u"Output Filename";  // 15 characters: beyond std::u16string's inline room
constexpr int32_t SHORT_LENGTH = 15;

void ShortStringWithPool(benchmark::State& state)
{
    for (auto _ : state)
    {
        QVString text(SHORT_TEXT, SHORT_LENGTH);
        benchmark::DoNotOptimize(text.c_str());
    }
}
BENCHMARK(ShortStringWithPool);

// The same buffers from the heap: with the pool full, every Free really frees.
void ShortStringWithoutPool(benchmark::State& state)
{
    QVStringGlobals& globals = *QVGetStringGlobals();
    std::vector<QVStringData*> filler;
    for (int i = 0; i < QVSTRING_POOL_SLOTS; ++i)
        filler.push_back(globals.Allocate(1000, false));
    for (QVStringData* buffer : filler)
        globals.Free(buffer);
    for (auto _ : state)
    {
        QVStringData* buffer = globals.Create(SHORT_TEXT, SHORT_LENGTH, 0, 0);
        benchmark::DoNotOptimize(buffer->Chars());
        globals.Free(buffer);
    }
    globals.ReleasePool();
}
BENCHMARK(ShortStringWithoutPool);

void ShortStdU16String(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::u16string text(SHORT_TEXT, SHORT_LENGTH);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(ShortStdU16String);

void CopySharedString(benchmark::State& state)
{
    const QVString shared(SHORT_TEXT);
    for (auto _ : state)
    {
        QVString copy = shared;
        benchmark::DoNotOptimize(copy.c_str());
    }
}
BENCHMARK(CopySharedString);

void CopyLiteralString(benchmark::State& state)
{
    const QVString literal = u"Output Filename"_qv;
    for (auto _ : state)
    {
        QVString copy = literal;
        benchmark::DoNotOptimize(copy.c_str());
    }
}
BENCHMARK(CopyLiteralString);

void CopyStdU16String(benchmark::State& state)
{
    const std::u16string original(SHORT_TEXT);
    for (auto _ : state)
    {
        std::u16string copy = original;
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(CopyStdU16String);

// Keys like the names of settings: a common prefix and a number.
std::vector<QVString> MakeKeys(int count)
{
    std::vector<QVString> keys;
    for (int i = 0; i < count; ++i)
        keys.push_back(QVString::Format(u"Plugins\\DSP\\Band %d Gain", {i}));
    return keys;
}

void StringMapLookup(benchmark::State& state)
{
    const std::vector<QVString> keys = MakeKeys(static_cast<int>(state.range(0)));
    QVStringMap<int> map(state.range(1) != 0);
    for (size_t i = 0; i < keys.size(); ++i)
        map[keys[i]] = static_cast<int>(i);
    size_t next = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(map.Find(keys[next]));
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
}
BENCHMARK(StringMapLookup)->Args({1000, 0})->Args({1000, 1})->ArgNames({"keys", "noCase"});

void StdStringMapLookup(benchmark::State& state)
{
    const std::vector<QVString> source = MakeKeys(static_cast<int>(state.range(0)));
    std::vector<std::u16string> keys;
    std::unordered_map<std::u16string, int> map;
    for (size_t i = 0; i < source.size(); ++i)
    {
        keys.emplace_back(source[i].View());
        map[keys.back()] = static_cast<int>(i);
    }
    size_t next = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(map.find(keys[next]));
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
}
BENCHMARK(StdStringMapLookup)->Arg(1000)->ArgName("keys");

void IntMapLookup(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    QVMap<int32_t, int32_t, int32_t, int32_t> map;
    for (int i = 0; i < count; ++i)
        map[i * 7] = i;
    int32_t next = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(map.Find(next * 7));
        next = next + 1 == count ? 0 : next + 1;
    }
}
BENCHMARK(IntMapLookup)->Arg(1000)->ArgName("keys");

void StdIntMapLookup(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    std::unordered_map<int32_t, int32_t> map;
    for (int i = 0; i < count; ++i)
        map[i * 7] = i;
    int32_t next = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(map.find(next * 7));
        next = next + 1 == count ? 0 : next + 1;
    }
}
BENCHMARK(StdIntMapLookup)->Arg(1000)->ArgName("keys");

}  // namespace
