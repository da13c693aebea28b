// The ORBTC optimiser (ORBTC 4bpp and 2bpp at caller quality 2 to 8) beside
// the block compressor (quality 1) and ETC1's best search, in megapixels per
// second with the PSNR of each result.
//
// Images: every .png and .jpg in the folder named by ORBTEX_BENCH_PHOTOS, as
// their centre 256 x 256 and 512 x 512; the first of them also with an alpha
// channel made here (a soft vignette with a transparent hole), measured as
// RGBA, and blurred (a smooth natural picture); and a smooth synthetic
// gradient. Without the variable, synthetic images only. Each compression
// runs on one thread ("t1") and on every core ("tall"); the words are the
// same either way.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchPhotos.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "ORBTextureFormat.h"

using namespace orbtexture;

namespace
{

struct BenchImage
{
    std::string name;
    unsigned size;
    bool alpha;
    std::vector<uint8_t> rgba;
};

std::vector<uint8_t> Smooth(unsigned size)
{
    std::vector<uint8_t> image(size_t(size) * size * 4);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
        {
            uint8_t* p = &image[(size_t(y) * size + x) * 4];
            const double u = double(x) / size, v = double(y) / size;
            p[0] = uint8_t(40 + 180 * u);
            p[1] = uint8_t(128 + 100 * std::sin(3.0 * v + u));
            p[2] = uint8_t(60 + 150 * u * v);
            p[3] = 255;
        }
    return image;
}

// A soft vignette with a transparent hole on a copy of 'rgba'.
std::vector<uint8_t> WithAlpha(std::vector<uint8_t> rgba, unsigned size)
{
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
        {
            const double dx = double(x) / size - 0.5, dy = double(y) / size - 0.5;
            const double r = std::sqrt(dx * dx + dy * dy);
            const double hx = double(x) / size - 0.7, hy = double(y) / size - 0.3;
            uint8_t& a = rgba[(size_t(y) * size + x) * 4 + 3];
            a = hx * hx + hy * hy < 0.01 ? 0 : r < 0.3 ? 255 : uint8_t(std::max(0.0, 255.0 * (1.0 - (r - 0.3) / 0.4)));
        }
    return rgba;
}

// A smooth natural picture: three passes of a 7-tap box blur across and
// down, wrapping at the edges.
std::vector<uint8_t> Blurred(std::vector<uint8_t> rgba, unsigned size)
{
    std::vector<uint8_t> work(rgba.size());
    for (int pass = 0; pass < 6; ++pass)
    {
        const bool across = pass % 2 == 0;
        for (unsigned y = 0; y < size; ++y)
            for (unsigned x = 0; x < size; ++x)
                for (unsigned c = 0; c < 3; ++c)
                {
                    unsigned sum = 0;
                    for (int k = -3; k <= 3; ++k)
                    {
                        const unsigned xx = across ? (x + size + k) % size : x, yy = across ? y : (y + size + k) % size;
                        sum += rgba[(size_t(yy) * size + xx) * 4 + c];
                    }
                    work[(size_t(y) * size + x) * 4 + c] = uint8_t((sum + 3) / 7);
                }
        for (size_t i = 0; i < rgba.size(); i += 4)
            std::copy(&work[i], &work[i] + 3, &rgba[i]);
    }
    return rgba;
}

const std::vector<BenchImage>& Images()
{
    static const std::vector<BenchImage> images = [] {
        std::vector<BenchImage> out;
        for (unsigned size : {256u, 512u})
        {
            bool anyPhoto = false;
            if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
            {
                const std::vector<benchphotos::Image> photos = benchphotos::LoadPhotos(folder, size);
                for (const auto& photo : photos)
                    out.push_back({photo.name, size, false, photo.rgba});
                if (!photos.empty())
                {
                    out.push_back({photos[0].name + "+alpha", size, true, WithAlpha(photos[0].rgba, size)});
                    out.push_back({photos[0].name + "+blur", size, false, Blurred(photos[0].rgba, size)});
                }
                anyPhoto = !photos.empty();
            }
            out.push_back({"smooth", size, false, Smooth(size)});
            if (!anyPhoto)
                out.push_back({"smooth+alpha", size, true, WithAlpha(Smooth(size), size)});
        }
        return out;
    }();
    return images;
}

double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, bool withAlpha)
{
    double sum = 0.0;
    size_t n = 0;
    for (size_t i = 0; i < a.size(); ++i)
        if (withAlpha || i % 4 != 3)
        {
            sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
            ++n;
        }
    return sum == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / sum);
}

void SetThreads(bool all)
{
    ORBTCSetProcessorCountOverride(all ? 0 : 1);
}

void BM_ORBTC(benchmark::State& state, const BenchImage* image, bool twoBpp, unsigned quality, bool allThreads)
{
    SetThreads(allThreads);
    const unsigned size = image->size;
    std::vector<uint8_t> words(size_t(size) * size * (twoBpp ? 2 : 4) / 8);
    for (auto _ : state)
    {
        if (ORBTCCompress(image->rgba.data(), words.data(), size, size, image->alpha, twoBpp, 0, quality) !=
            words.size())
            state.SkipWithError("compression failed");
    }
    std::vector<uint8_t> decoded(image->rgba.size());
    ORBTCDecompress(words.data(), decoded.data(), size, size, twoBpp, 0);
    state.counters["Mpx/s"] = benchmark::Counter(double(size) * size / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["PSNR_RGB"] = Psnr(image->rgba, decoded, false);
    if (image->alpha)
        state.counters["PSNR_RGBA"] = Psnr(image->rgba, decoded, true);
    SetThreads(true);
}

void BM_ETC1(benchmark::State& state, const BenchImage* image, unsigned quality, bool allThreads)
{
    ETCSetThreadCountOverride(allThreads ? 0 : 1);
    const unsigned size = image->size;
    std::vector<uint8_t> rgb;
    rgb.reserve(size_t(size) * size * 3);
    for (size_t i = 0; i < image->rgba.size(); i += 4)
        rgb.insert(rgb.end(), &image->rgba[i], &image->rgba[i] + 3);
    std::vector<uint8_t> blocks(size_t(size) * size / 2);
    for (auto _ : state)
        ETCCompress(rgb.data(), blocks.data(), size, size, int(quality), ePF_ETC1, false);
    std::vector<uint8_t> decoded(rgb.size()), decodedRGBA(image->rgba.size());
    ETCDecompress(blocks.data(), decoded.data(), size, size, ePF_ETC1, false);
    for (size_t p = 0; p < size_t(size) * size; ++p)
    {
        for (int c = 0; c < 3; ++c)
            decodedRGBA[4 * p + c] = decoded[3 * p + c];
        decodedRGBA[4 * p + 3] = 255;
    }
    state.counters["Mpx/s"] = benchmark::Counter(double(size) * size / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["PSNR_RGB"] = Psnr(image->rgba, decodedRGBA, false);
    ETCSetThreadCountOverride(0);
}

const int kRegistered = [] {
    for (const BenchImage& image : Images())
    {
        const std::string prefix = image.name + "/" + std::to_string(image.size);
        for (bool all : {false, true})
        {
            const std::string threads = all ? "/tall" : "/t1";
            for (unsigned quality = 1; quality <= 8; ++quality)
                benchmark::RegisterBenchmark(("ORBTC4/" + prefix + "/q" + std::to_string(quality) + threads).c_str(),
                                             BM_ORBTC, &image, false, quality, all)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                    ->Iterations(1);
            for (unsigned quality : {1u, 2u, 5u})
                benchmark::RegisterBenchmark(("ORBTC2/" + prefix + "/q" + std::to_string(quality) + threads).c_str(),
                                             BM_ORBTC, &image, true, quality, all)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                    ->Iterations(1);
            if (!image.alpha)
                for (unsigned quality : {0u, 2u})
                    benchmark::RegisterBenchmark(("ETC1/" + prefix + "/q" + std::to_string(quality) + threads).c_str(),
                                                 BM_ETC1, &image, quality, all)
                        ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                        ->Iterations(1);
        }
    }
    return 0;
}();

} // namespace

BENCHMARK_MAIN();
