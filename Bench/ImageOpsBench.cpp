// Image operations on rgba8 textures, in megapixels of the source per second:
// resizing 1024 to 512 and 512 to 1024 by each filter, the MIP chain of 2048
// by 2048, the normal map of 1024 by 1024, and on 512 by 512 the bleeding of
// a half-transparent image, a border and the comparison measures.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 512;

// Smooth ramps; with 'cutOut' alpha is 0 in a checker of 32-pixel squares.
CORBTexture MakeImage(bool cutOut = false, unsigned size = kSize)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, size, size));
    uint8_t* p = texture.getDataPtr();
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x, p += 4)
        {
            for (unsigned c = 0; c < 3; ++c)
                p[c] = uint8_t(128 + 120 * std::sin(0.013 * x + 0.021 * y + 2.0 * c));
            p[3] = cutOut && ((x / 32 + y / 32) & 1) ? 0 : 255;
        }
    return texture;
}

void Report(benchmark::State& state, unsigned size = kSize)
{
    state.counters["Mpx/s"] =
        benchmark::Counter(double(size) * size * double(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

void BM_Resize(benchmark::State& state)
{
    const unsigned from = unsigned(state.range(1)), target = unsigned(state.range(2));
    const CORBTexture source = MakeImage(false, from);
    for (auto _ : state)
    {
        CORBTexture texture(source);
        benchmark::DoNotOptimize(Resize(texture, target, target, 1, EResizeMode(state.range(0))));
    }
    Report(state, from);
}
BENCHMARK(BM_Resize)
    ->ArgNames({"filter", "from", "to"})
    ->ArgsProduct({{0, 1, 2}, {1024}, {512}})
    ->ArgsProduct({{0, 1, 2}, {512}, {1024}})
    ->Unit(benchmark::kMillisecond);

void BM_MIPChain(benchmark::State& state)
{
    const CORBTexture source = MakeImage(false, 2048);
    for (auto _ : state)
    {
        CORBTexture texture(source);
        benchmark::DoNotOptimize(GenerateMIPMaps(texture, EResizeMode(state.range(0)), 0xFFFFFFFFu));
    }
    Report(state, 2048);
}
BENCHMARK(BM_MIPChain)->ArgName("filter")->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_NormalMap(benchmark::State& state)
{
    const CORBTexture source = MakeImage(false, 1024);
    for (auto _ : state)
    {
        CORBTexture texture(source);
        benchmark::DoNotOptimize(GenerateNormalMap(texture, 4.0f, "xyz"));
    }
    Report(state, 1024);
}
BENCHMARK(BM_NormalMap)->Unit(benchmark::kMillisecond);

void BM_Bleed(benchmark::State& state)
{
    const CORBTexture source = MakeImage(true);
    for (auto _ : state)
    {
        CORBTexture texture(source);
        benchmark::DoNotOptimize(Bleed(texture));
    }
    Report(state);
}
BENCHMARK(BM_Bleed)->Unit(benchmark::kMillisecond);

void BM_Border(benchmark::State& state)
{
    const CORBTexture source = MakeImage();
    for (auto _ : state)
    {
        CORBTexture texture(source);
        benchmark::DoNotOptimize(Border(texture, 16, 16, 0));
    }
    Report(state);
}
BENCHMARK(BM_Border)->Unit(benchmark::kMillisecond);

void BM_CompareMeasures(benchmark::State& state)
{
    const CORBTexture a = MakeImage(), b = MakeImage(true);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(GetPSNRValue(a, b, 0, 0, 0));
        benchmark::DoNotOptimize(GetStandardDeviation(a, b, 0, 0, 0));
    }
    Report(state);
}
BENCHMARK(BM_CompareMeasures)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
