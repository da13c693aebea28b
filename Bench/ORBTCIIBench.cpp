// ORBTCII (the second generation) beside ORBTC (the first) at the same bits
// per pixel: compression at quality 0, 1, 2 and 4 and decompression, in
// megapixels per second, with the PSNR of each result (colour channels).
// The optimiser takes the second generation's hard and local palette modes
// from its fifth pass on, which quality 4 (six passes) is the first to make;
// at quality 2 both generations decode to the same pixels.
//
// Images: the centre 512 x 512 of every .png and .jpg in the folder named by
// ORBTEX_BENCH_PHOTOS, otherwise a synthetic picture made here. Compression
// runs on every core (the words do not depend on it).

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchPhotos.h"
#include "Codecs/ORBTC/ORBTCCodec.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 512;

struct BenchImage
{
    std::string name;
    std::vector<uint8_t> rgba;
};

const std::vector<BenchImage>& Images()
{
    static const std::vector<BenchImage> images = [] {
        std::vector<BenchImage> out;
        if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
            for (auto& photo : benchphotos::LoadPhotos(folder, kSize))
                out.push_back({photo.name, std::move(photo.rgba)});
        if (out.empty())
        {
            std::vector<uint8_t> image(size_t(kSize) * kSize * 4);
            for (unsigned y = 0; y < kSize; ++y)
                for (unsigned x = 0; x < kSize; ++x)
                    for (unsigned c = 0; c < 4; ++c)
                        image[(size_t(y) * kSize + x) * 4 + c] =
                            c == 3 ? 255
                                   : ((x / 64 + y / 64) & 1) && c == 2
                                         ? 220
                                         : uint8_t(128 + 100 * std::sin(0.02 * x + 0.03 * y + c));
            out.push_back({"synthetic", std::move(image)});
        }
        return out;
    }();
    return images;
}

double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b)
{
    double sum = 0.0;
    for (size_t i = 0; i < a.size(); ++i)
        if (i % 4 != 3)
            sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    return sum == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(a.size()) * 0.75 / sum);
}

std::vector<uint8_t> Words(const BenchImage& image, bool twoBpp, unsigned generation, unsigned quality)
{
    std::vector<uint8_t> words(size_t(kSize) * kSize * (twoBpp ? 2 : 4) / 8);
    if (ORBTCCompress(image.rgba.data(), words.data(), kSize, kSize, false, twoBpp, generation, quality) !=
        words.size())
        words.clear();
    return words;
}

void BM_Compress(benchmark::State& state, const BenchImage* image, bool twoBpp, unsigned generation,
                 unsigned quality)
{
    std::vector<uint8_t> words;
    for (auto _ : state)
        words = Words(*image, twoBpp, generation, quality);
    if (words.empty())
    {
        state.SkipWithError("compression failed");
        return;
    }
    std::vector<uint8_t> decoded(image->rgba.size());
    ORBTCDecompress(words.data(), decoded.data(), kSize, kSize, twoBpp, generation);
    state.counters["Mpx/s"] = benchmark::Counter(double(kSize) * kSize / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["PSNR_RGB"] = Psnr(image->rgba, decoded);
}

void BM_Decompress(benchmark::State& state, const BenchImage* image, bool twoBpp, unsigned generation)
{
    const std::vector<uint8_t> words = Words(*image, twoBpp, generation, 1);
    if (words.empty())
    {
        state.SkipWithError("compression failed");
        return;
    }
    std::vector<uint8_t> decoded(image->rgba.size());
    for (auto _ : state)
        benchmark::DoNotOptimize(ORBTCDecompress(words.data(), decoded.data(), kSize, kSize, twoBpp, generation));
    state.counters["Mpx/s"] = benchmark::Counter(double(kSize) * kSize / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

const int kRegistered = [] {
    for (const BenchImage& image : Images())
        for (bool twoBpp : {false, true})
            for (unsigned generation : {0u, 1u})
            {
                const std::string name = std::string(generation ? "ORBTCII" : "ORBTC") + (twoBpp ? "2" : "4") +
                                         "/" + image.name;
                for (unsigned quality : {0u, 1u, 2u, 4u})
                {
                    auto* b = benchmark::RegisterBenchmark((name + "/compress/q" + std::to_string(quality)).c_str(),
                                                          BM_Compress, &image, twoBpp, generation, quality);
                    b->Unit(benchmark::kMillisecond)->UseRealTime();
                    if (quality >= 2)
                        b->Iterations(1);
                }
                benchmark::RegisterBenchmark((name + "/decompress").c_str(), BM_Decompress, &image, twoBpp,
                                             generation)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
    return 0;
}();

} // namespace

BENCHMARK_MAIN();
