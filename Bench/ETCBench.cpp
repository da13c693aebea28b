// ETC family compression and decoding in megapixels per second, with the
// PSNR of each result.
//
// Image: the first .png or .jpg in the folder named by ORBTEX_BENCH_PHOTOS
// (its centre 256 x 256, and the centre 64 x 64 of that), otherwise smooth
// gradients with hard-edged squares made here. EAC R11 compresses the red
// channel widened to 16 bits. Each compression runs on one thread ("t1") and
// on every core ("tall"); the bytes are the same either way. EAC_R11_plain
// is the plain 11-bit search (every base, table and multiplier through
// calcError, one thread) on the same input, the measure of the EAC search's
// speed; "differing" counts its blocks whose base, table or multiplier differ
// from ETCCompress's, which should be none. The exhaustive qualities (2 and
// 3) also run once with the plain searches (every colour below a fixed bound)
// on the same input and threads: "plain_MPix/s", "ratio" (plain time over the
// fast time) and "differing" (1 when any byte differs, which should never be).
// ORBTEX_BENCH_NO_PLAIN skips the plain runs (for profiling the fast path).

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchPhotos.h"
#include "Codecs/ETC/EACCompress.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCExhaustive.h"
#include "ORBTextureFormat.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kCrop = 256;

// The 256 x 256 rgba8 source.
const std::vector<uint8_t>& Source()
{
    static const std::vector<uint8_t> source = [] {
        if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
        {
            std::vector<benchphotos::Image> photos = benchphotos::LoadPhotos(folder, kCrop);
            if (!photos.empty())
            {
                std::fprintf(stderr, "ETC bench image: %s\n", photos[0].name.c_str());
                return photos[0].rgba;
            }
            std::fprintf(stderr, "no .png or .jpg in %s: using a synthetic image\n", folder);
        }
        std::vector<uint8_t> image(size_t(kCrop) * kCrop * 4);
        for (unsigned y = 0; y < kCrop; ++y)
            for (unsigned x = 0; x < kCrop; ++x)
                for (unsigned c = 0; c < 4; ++c)
                    image[(size_t(y) * kCrop + x) * 4 + c] =
                        ((x / 64 + y / 64) & 1) && c == 2 ? 220 : uint8_t(128 + 100 * std::sin(0.02 * x + 0.03 * y + c));
        return image;
    }();
    return source;
}

unsigned Channels(unsigned format)
{
    return format == ePF_ETC1 || format == ePF_ETC2_RGB ? 3 : format == ePF_EAC_R11 ? 1 : 4;
}

// The centre size x size of the source in the codec's input layout: bytes
// for the colour formats, red widened to 16 bits for R11.
std::vector<uint8_t> Input(unsigned format, unsigned size)
{
    const unsigned channels = Channels(format), offset = (kCrop - size) / 2;
    std::vector<uint8_t> input;
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
        {
            const uint8_t* p = &Source()[((size_t(y) + offset) * kCrop + x + offset) * 4];
            if (format == ePF_EAC_R11)
                input.insert(input.end(), {p[0], p[0]}); // 257 x red, either byte order
            else
                input.insert(input.end(), p, p + channels);
        }
    return input;
}

// PSNR of the decoded blocks against the input: colour channels of 8 bits,
// or the 16-bit red of R11.
double PSNR(unsigned format, const std::vector<uint8_t>& input, const std::vector<uint8_t>& blocks, unsigned size)
{
    std::vector<uint8_t> decoded(input.size());
    ETCDecompress(blocks.data(), decoded.data(), size, size, format, false);
    double sum = 0.0, peak = 255.0;
    size_t count = 0;
    if (format == ePF_EAC_R11)
    {
        peak = 65535.0;
        for (size_t i = 0; i < input.size(); i += 2, ++count)
        {
            uint16_t a, b;
            std::memcpy(&a, &input[i], 2);
            std::memcpy(&b, &decoded[i], 2);
            sum += (double(a) - b) * (double(a) - b);
        }
    }
    else
    {
        const unsigned channels = Channels(format);
        for (size_t i = 0; i < input.size(); ++i)
            if (i % channels < 3)
            {
                sum += (double(input[i]) - decoded[i]) * (double(input[i]) - decoded[i]);
                ++count;
            }
    }
    return sum == 0.0 ? 99.0 : 10.0 * std::log10(peak * peak * double(count) / sum);
}

void BM_Compress(benchmark::State& state, unsigned format, int quality, unsigned size, unsigned threads)
{
    const std::vector<uint8_t> input = Input(format, size);
    std::vector<uint8_t> blocks(size_t(size) * size); // at most a byte a pixel
    ETCSetThreadCountOverride(threads);
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        benchmark::DoNotOptimize(ETCCompress(input.data(), blocks.data(), size, size, quality, format, false));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / double(state.iterations());
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * size * size / 1e6, benchmark::Counter::kIsRate);
    if (quality >= 2 && !std::getenv("ORBTEX_BENCH_NO_PLAIN"))
    {
        // The plain searches on the same input, timed the same way: their
        // speed, the ratio, and the bytes that differ (none expected).
        std::vector<uint8_t> plain(blocks.size());
        ETCExhaustiveSetPlain(true);
        const auto plainStart = std::chrono::steady_clock::now();
        ETCCompress(input.data(), plain.data(), size, size, quality, format, false);
        const double plainSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - plainStart).count();
        ETCExhaustiveSetPlain(false);
        state.counters["plain_MPix/s"] = double(size) * size / 1e6 / plainSeconds;
        state.counters["ratio"] = plainSeconds / seconds;
        state.counters["differing"] = double(plain != blocks);
    }
    ETCSetThreadCountOverride(0);
    state.counters["PSNR"] = PSNR(format, input, blocks, size);
    state.counters["threads"] = threads ? threads : ETCThreadCount();
}

void BM_EACPlain(benchmark::State& state)
{
    const std::vector<uint8_t> input = Input(ePF_EAC_R11, kCrop);
    std::vector<unsigned short> pixels(input.size() / 2);
    std::memcpy(pixels.data(), input.data(), input.size());
    const unsigned short* values = valueTableUnsigned();
    constexpr unsigned kBlocks = kCrop / 4;
    std::vector<uint8_t> plain(size_t(kBlocks) * kBlocks * 2);
    for (auto _ : state)
        for (unsigned by = 0; by < kBlocks; ++by)
            for (unsigned bx = 0; bx < kBlocks; ++bx)
            {
                double best = 1099511627776.0;
                int bestBase = 0, bestTable = 0, bestMultiplier = 0;
                for (int base = 0; base < 256; ++base)
                    for (int table = 0; table < 16; ++table)
                        for (int multiplier = 0; multiplier < 16; ++multiplier)
                        {
                            const double error = calcError(pixels.data(), 1, int(bx * 4), int(by * 4), int(kCrop), base,
                                                           table, multiplier, best, values, false);
                            if (error < best)
                            {
                                best = error;
                                bestBase = base;
                                bestTable = table;
                                bestMultiplier = multiplier;
                            }
                        }
                uint8_t* out = &plain[(size_t(by) * kBlocks + bx) * 2];
                out[0] = uint8_t(bestBase);
                out[1] = uint8_t(bestMultiplier * 16 + bestTable);
            }
    std::vector<uint8_t> blocks(size_t(kCrop) * kCrop / 2);
    ETCCompress(input.data(), blocks.data(), kCrop, kCrop, 0, ePF_EAC_R11, false);
    int differing = 0;
    for (size_t b = 0; b < size_t(kBlocks) * kBlocks; ++b)
        differing += blocks[b * 8] != plain[b * 2] || blocks[b * 8 + 1] != plain[b * 2 + 1];
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kCrop * kCrop / 1e6, benchmark::Counter::kIsRate);
    state.counters["differing"] = differing;
}

void BM_Decompress(benchmark::State& state, unsigned format)
{
    const std::vector<uint8_t> input = Input(format, kCrop);
    std::vector<uint8_t> blocks(size_t(kCrop) * kCrop), decoded(input.size());
    ETCCompress(input.data(), blocks.data(), kCrop, kCrop, 0, format, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(ETCDecompress(blocks.data(), decoded.data(), kCrop, kCrop, format, false));
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kCrop * kCrop / 1e6, benchmark::Counter::kIsRate);
}

// One compression on one thread and on all of them.
void Register(const std::string& name, unsigned format, int quality, unsigned size)
{
    for (unsigned threads : {1u, 0u})
        benchmark::RegisterBenchmark((name + "_q" + std::to_string(quality) + "_" + std::to_string(size) +
                                      (threads ? "_t1" : "_tall"))
                                         .c_str(),
                                     BM_Compress, format, quality, size, threads)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
}

} // namespace

int main(int argc, char** argv)
{
    for (int quality : {0, 1})
    {
        Register("ETC1", ePF_ETC1, quality, kCrop);
        Register("ETC2_RGB", ePF_ETC2_RGB, quality, kCrop);
        Register("ETC2_RGBA", ePF_ETC2_RGBA, quality, kCrop);
    }
    Register("EAC_R11", ePF_EAC_R11, 0, kCrop);
    benchmark::RegisterBenchmark("EAC_R11_plain_256_t1", BM_EACPlain)->Unit(benchmark::kMillisecond)->UseRealTime();
    for (int quality : {2, 3})
        for (unsigned size : {64u, kCrop})
        {
            Register("ETC1", ePF_ETC1, quality, size);
            Register("ETC2_RGB", ePF_ETC2_RGB, quality, size);
        }
    benchmark::RegisterBenchmark("Decompress_ETC1", BM_Decompress, unsigned(ePF_ETC1))->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Decompress_ETC2_RGBA", BM_Decompress, unsigned(ePF_ETC2_RGBA))
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Decompress_EAC_R11", BM_Decompress, unsigned(ePF_EAC_R11))
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
