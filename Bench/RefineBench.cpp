// Quality 9 of the ORBTC codecs beside quality 8 on the same images in one
// run: ORBTC 4bpp and 2bpp and ORBTCII 4bpp and 2bpp. Each case compresses
// at both qualities and gives their times and RGB PSNR (counters q8_s, q9_s,
// time_ratio, q8_dB, q9_dB, gain_dB); a table of every case follows at the
// end.
//
// Images: the colour photos astronaut, chelsea, coffee and rocket of the
// folder named by ORBTEX_BENCH_PHOTOS, as BenchPhotos.h makes them 512 x 512;
// without the variable, a synthetic 256 x 256 picture. The call's threads
// are the machine's.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchPhotos.h"
#include "Codecs/ORBTC/ORBTCCodec.h"

using namespace orbtexture;

namespace
{

struct BenchImage
{
    std::string name;
    unsigned size;
    std::vector<uint8_t> rgba;
};

const std::vector<BenchImage>& Images()
{
    static const std::vector<BenchImage> images = [] {
        std::vector<BenchImage> out;
        if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
            for (const auto& photo : benchphotos::LoadPhotos(folder, 512))
                for (const char* name : {"astronaut", "chelsea", "coffee", "rocket"})
                    if (photo.name == name)
                        out.push_back({photo.name, 512, photo.rgba});
        if (out.empty())
        {
            const unsigned size = 256;
            std::vector<uint8_t> image(size_t(size) * size * 4);
            for (unsigned y = 0; y < size; ++y)
                for (unsigned x = 0; x < size; ++x)
                {
                    uint8_t* p = &image[(size_t(y) * size + x) * 4];
                    p[0] = uint8_t(x);
                    p[1] = uint8_t(128 + 100 * std::sin(0.05 * y + 0.02 * x));
                    p[2] = uint8_t((x / 16 + y / 16) % 2 ? 200 : 60);
                    p[3] = 255;
                }
            out.push_back({"synthetic", size, image});
        }
        return out;
    }();
    return images;
}

struct Row
{
    std::string name;
    double seconds[2], psnr[2];
};
std::vector<Row>& Rows()
{
    static std::vector<Row> rows;
    return rows;
}

// Seconds to compress, and the RGB PSNR of the result; seconds < 0 on failure.
double Compress(const BenchImage& image, bool twoBpp, unsigned generation, unsigned quality, double& psnr)
{
    const unsigned side = image.size;
    std::vector<uint8_t> words(size_t(side) * side * (twoBpp ? 2 : 4) / 8), decoded(image.rgba.size());
    const auto start = std::chrono::steady_clock::now();
    const unsigned bytes =
        ORBTCCompress(image.rgba.data(), words.data(), side, side, false, twoBpp, generation, quality);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (bytes != words.size() || !ORBTCDecompress(words.data(), decoded.data(), side, side, twoBpp, generation))
        return -1.0;
    double sum = 0.0;
    for (size_t k = 0; k < decoded.size(); ++k)
        if (k % 4 != 3)
            sum += (double(image.rgba[k]) - decoded[k]) * (double(image.rgba[k]) - decoded[k]);
    psnr = 10.0 * std::log10(255.0 * 255.0 * 3.0 * side * side / std::max(sum, 1e-9));
    return seconds;
}

void BM_Refine(benchmark::State& state, const std::string& name, const BenchImage* image, bool twoBpp,
               unsigned generation)
{
    Row row{name, {0.0, 0.0}, {0.0, 0.0}};
    for (auto _ : state)
        for (unsigned k = 0; k < 2; ++k)
        {
            const double seconds = Compress(*image, twoBpp, generation, 8 + k, row.psnr[k]);
            if (seconds < 0.0)
                state.SkipWithError("compression failed");
            row.seconds[k] += seconds;
        }
    state.counters["q8_s"] = row.seconds[0];
    state.counters["q9_s"] = row.seconds[1];
    state.counters["time_ratio"] = row.seconds[1] / row.seconds[0];
    state.counters["q8_dB"] = row.psnr[0];
    state.counters["q9_dB"] = row.psnr[1];
    state.counters["gain_dB"] = row.psnr[1] - row.psnr[0];
    Rows().push_back(row);
}

const int kRegistered = [] {
    for (const BenchImage& image : Images())
        for (unsigned generation : {0u, 1u})
            for (bool twoBpp : {false, true})
            {
                const std::string name = std::string(generation ? "ORBTCII" : "ORBTC") + (twoBpp ? "2/" : "4/") +
                                         image.name + "/" + std::to_string(image.size);
                benchmark::RegisterBenchmark(name.c_str(), BM_Refine, name, &image, twoBpp, generation)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                    ->Iterations(1);
            }
    return 0;
}();

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("\n%-32s %9s %9s %7s %9s %9s %8s\n", "case", "q8 s", "q9 s", "ratio", "q8 dB", "q9 dB", "gain");
    for (const Row& row : Rows())
        std::printf("%-32s %9.2f %9.2f %7.2f %9.3f %9.3f %8.3f\n", row.name.c_str(), row.seconds[0], row.seconds[1],
                    row.seconds[1] / row.seconds[0], row.psnr[0], row.psnr[1], row.psnr[1] - row.psnr[0]);
    return 0;
}
