// ORBTC compression and decompression of a 512x512 image, in megapixels per second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 512;

// Smooth gradients with a few hard edges, as textures tend to have.
std::vector<uint8_t> MakeImage()
{
    std::vector<uint8_t> image(size_t(kSize) * kSize * 4);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
        {
            uint8_t* p = &image[(size_t(y) * kSize + x) * 4];
            p[0] = uint8_t(x / 2);
            p[1] = uint8_t(128 + 100 * std::sin(y * 0.05));
            p[2] = ((x / 64 + y / 64) & 1) ? 220 : 30;
            p[3] = uint8_t(255 - y / 4);
        }
    return image;
}

void SetRate(benchmark::State& state)
{
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kSize * kSize / 1e6, benchmark::Counter::kIsRate);
}

void BM_Compress(benchmark::State& state, bool twoBpp, unsigned quality)
{
    const std::vector<uint8_t> image = MakeImage();
    std::vector<uint8_t> words(kSize * kSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(ORBTCCompress(image.data(), words.data(), kSize, kSize, true, twoBpp, 0, quality));
    SetRate(state);
}

void BM_Decompress(benchmark::State& state, bool twoBpp)
{
    const std::vector<uint8_t> image = MakeImage();
    std::vector<uint8_t> words(kSize * kSize);
    ORBTCCompress(image.data(), words.data(), kSize, kSize, true, twoBpp, 0, 0);
    std::vector<uint8_t> decoded(image.size());
    for (auto _ : state)
        benchmark::DoNotOptimize(ORBTCDecompress(words.data(), decoded.data(), kSize, kSize, twoBpp, 0));
    SetRate(state);
}

} // namespace

BENCHMARK_CAPTURE(BM_Compress, 4bpp_quality0, false, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, 4bpp_quality1, false, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, 2bpp_quality0, true, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Compress, 2bpp_quality1, true, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Decompress, 4bpp, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Decompress, 2bpp, true)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
