// ETC family compression and decoding of a 512x512 image, in megapixels per second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "Codecs/ETC/ETCCodec.h"
#include "ORBTextureFormat.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 512;

// 'bytes' bytes a pixel of smooth gradients with hard-edged squares.
std::vector<uint8_t> MakeImage(unsigned bytes)
{
    std::vector<uint8_t> image(size_t(kSize) * kSize * bytes);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
            for (unsigned c = 0; c < bytes; ++c)
                image[(size_t(y) * kSize + x) * bytes + c] =
                    ((x / 64 + y / 64) & 1) && c == 2 ? 220 : uint8_t(128 + 100 * std::sin(0.02 * x + 0.03 * y + c));
    return image;
}

void SetRate(benchmark::State& state)
{
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kSize * kSize / 1e6, benchmark::Counter::kIsRate);
}

unsigned BytesPerPixel(unsigned format)
{
    return format == ePF_ETC1 || format == ePF_ETC2_RGB ? 3 : format == ePF_EAC_R11 ? 2 : 4;
}

void BM_Compress(benchmark::State& state, unsigned format, int quality)
{
    const std::vector<uint8_t> image = MakeImage(BytesPerPixel(format));
    std::vector<uint8_t> blocks(kSize * kSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(ETCCompress(image.data(), blocks.data(), kSize, kSize, quality, format, false));
    SetRate(state);
}

// The exhaustive ETC2 qualities on the top-left 64 x 64 pixels: a whole image
// would take minutes.
void BM_CompressCorner(benchmark::State& state, unsigned format, int quality)
{
    constexpr unsigned kCorner = 64;
    const unsigned bytes = BytesPerPixel(format);
    const std::vector<uint8_t> image = MakeImage(bytes);
    std::vector<uint8_t> corner;
    for (unsigned y = 0; y < kCorner; ++y)
        corner.insert(corner.end(), image.begin() + size_t(y) * kSize * bytes,
                      image.begin() + (size_t(y) * kSize + kCorner) * bytes);
    std::vector<uint8_t> blocks(kCorner * kCorner);
    for (auto _ : state)
        benchmark::DoNotOptimize(ETCCompress(corner.data(), blocks.data(), kCorner, kCorner, quality, format, false));
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kCorner * kCorner / 1e6, benchmark::Counter::kIsRate);
}

void BM_Decompress(benchmark::State& state, unsigned format)
{
    const std::vector<uint8_t> image = MakeImage(BytesPerPixel(format));
    std::vector<uint8_t> blocks(kSize * kSize), decoded(image.size());
    ETCCompress(image.data(), blocks.data(), kSize, kSize, 0, format, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(ETCDecompress(blocks.data(), decoded.data(), kSize, kSize, format, false));
    SetRate(state);
}

} // namespace

BENCHMARK_CAPTURE(BM_Compress, ETC1_quality0, unsigned(ePF_ETC1), 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, ETC1_quality1, unsigned(ePF_ETC1), 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, ETC1_quality2, unsigned(ePF_ETC1), 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Compress, ETC1_quality3, unsigned(ePF_ETC1), 3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_CompressCorner, ETC2_RGB_quality2, unsigned(ePF_ETC2_RGB), 2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_CompressCorner, ETC2_RGB_quality3, unsigned(ePF_ETC2_RGB), 3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Compress, ETC2_RGB_quality0, unsigned(ePF_ETC2_RGB), 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, ETC2_RGBA_quality0, unsigned(ePF_ETC2_RGBA), 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, EAC_R11, unsigned(ePF_EAC_R11), 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Decompress, ETC1, unsigned(ePF_ETC1))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Decompress, ETC2_RGBA, unsigned(ePF_ETC2_RGBA))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Decompress, EAC_R11, unsigned(ePF_EAC_R11))->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
