// Transcode throughput between channel layouts, in megapixels per second.

#include <benchmark/benchmark.h>

#include <cstdint>

#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

constexpr uint32_t kSize = 1024;

CORBTexture MakeSource(uint64_t format, EORBTVariableType type)
{
    CORBTexture texture(CORBTextureHeader(format, kSize, kSize));
    texture.setChannelType(type);
    uint8_t* data = texture.getDataPtr();
    uint32_t state = 12345;
    const uint32_t size = texture.getDataSize();
    for (uint32_t i = 0; i < size; ++i)
    {
        state = state * 1664525u + 1013904223u;
        data[i] = uint8_t(state >> 24);
    }
    return texture;
}

void RunTranscode(benchmark::State& state, uint64_t sourceFormat, EORBTVariableType sourceType,
                  uint64_t targetFormat, EORBTVariableType targetType, EORBTColourSpace targetSpace)
{
    const CORBTexture source = MakeSource(sourceFormat, sourceType);
    for (auto _ : state)
    {
        state.PauseTiming();
        CORBTexture texture(source);
        state.ResumeTiming();
        bool ok = Transcode(texture, PixelType(targetFormat), targetType, targetSpace);
        benchmark::DoNotOptimize(ok);
    }
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kSize * kSize / 1e6, benchmark::Counter::kIsRate);
}

void BM_RGBA8_To_R5G6B5(benchmark::State& state)
{
    RunTranscode(state, ORBStandard8PixelType, eVarUnsignedByteNorm, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID,
                 eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_RGBA8_To_RGBA32Float(benchmark::State& state)
{
    RunTranscode(state, ORBStandard8PixelType, eVarUnsignedByteNorm, ORBStandard32PixelType, eVarSignedFloat,
                 eColourSpaceLinear);
}

void BM_RGBA8_LinearToSRGB(benchmark::State& state)
{
    RunTranscode(state, ORBStandard8PixelType, eVarUnsignedByteNorm, ORBStandard8PixelType, eVarUnsignedByteNorm,
                 eColourSpaceSRGB);
}

void BM_RGBA16_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, ORBStandard16PixelType, eVarUnsignedShortNorm, ORBStandard8PixelType, eVarUnsignedByteNorm,
                 eColourSpaceLinear);
}

// Sources of 16 bits or less a pixel, to rgba8.
void BM_R5G6B5_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, eVarUnsignedByteNorm,
                 ORBStandard8PixelType, eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_R4G4B4A4_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4).PixelTypeID, eVarUnsignedByteNorm,
                 ORBStandard8PixelType, eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_R5G5B5A1_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, PixelType('r', 'g', 'b', 'a', 5, 5, 5, 1).PixelTypeID, eVarUnsignedByteNorm,
                 ORBStandard8PixelType, eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_L16_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, PixelType('l', 0, 0, 0, 16, 0, 0, 0).PixelTypeID, eVarUnsignedShortNorm,
                 ORBStandard8PixelType, eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_A8L8_To_RGBA8(benchmark::State& state)
{
    RunTranscode(state, PixelType('a', 'l', 0, 0, 8, 8, 0, 0).PixelTypeID, eVarUnsignedByteNorm,
                 ORBStandard8PixelType, eVarUnsignedByteNorm, eColourSpaceLinear);
}

void BM_R8G8_To_L8(benchmark::State& state)
{
    RunTranscode(state, PixelType('r', 'g', 0, 0, 8, 8, 0, 0).PixelTypeID, eVarUnsignedByteNorm,
                 PixelType('l', 0, 0, 0, 8, 0, 0, 0).PixelTypeID, eVarUnsignedByteNorm, eColourSpaceLinear);
}

} // namespace

BENCHMARK(BM_RGBA8_To_R5G6B5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RGBA8_To_RGBA32Float)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RGBA8_LinearToSRGB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RGBA16_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_R5G6B5_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_R4G4B4A4_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_R5G5B5A1_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_L16_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_A8L8_To_RGBA8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_R8G8_To_L8)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
