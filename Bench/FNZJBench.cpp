// The ORBTC optimiser (ORBTC and ORBTCII 4bpp at caller qualities 2, 4 and
// 8): each case compresses with the plain path and with the fast one in the
// same run, checks that the words agree, and gives both speeds in megapixels
// per second with their ratio (counters ref_Mpx/s, new_Mpx/s, ratio); a table
// of every case follows at the end.
//
// Images: the colour photos astronaut, chelsea, coffee and rocket of the
// folder named by ORBTEX_BENCH_PHOTOS, as their centre 512 x 512, and the 64 x 64 crop of astronaut.png that orbtex
// demo shows (pixels 192 to 255 across, 80 to 143 down); without the
// variable, a synthetic 512 x 512 picture. With ORBTEX_BENCH_LARGE set, also
// a 2048 x 2048 tiling of the 512 x 512 photos. Each case runs on one thread
// ("t1") and on every core ("tall"). The table ends with ORBTCII's time over
// ORBTC's for the cases this run has in both generations.

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
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"

using namespace orbtexture;

namespace
{

struct BenchImage
{
    std::string name;
    unsigned size;
    std::vector<uint8_t> rgba;
};

std::vector<uint8_t> Synthetic(unsigned size)
{
    std::vector<uint8_t> image(size_t(size) * size * 4);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
        {
            uint8_t* p = &image[(size_t(y) * size + x) * 4];
            const double u = double(x) / size, v = double(y) / size;
            p[0] = uint8_t(40 + 180 * u);
            p[1] = uint8_t(128 + 100 * std::sin(13.0 * v + 7.0 * u));
            p[2] = uint8_t((x * 7 + y * 3) % 97 + 60 * (((x / 16) ^ (y / 16)) & 1));
            p[3] = 255;
        }
    return image;
}

const std::vector<BenchImage>& Images()
{
    static const std::vector<BenchImage> images = [] {
        std::vector<BenchImage> out;
        const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS");
        if (folder)
            for (const auto& photo : benchphotos::LoadPhotos(folder, 512))
            {
                // The colour photos of the folder, when it has them.
                static const char* const kPhotos[] = {"astronaut", "chelsea", "coffee", "rocket"};
                bool known = false;
                for (const char* name : kPhotos)
                    known = known || photo.name == name;
                if (!known)
                    continue;
                if (photo.name == "astronaut")
                {
                    std::vector<uint8_t> crop(64 * 64 * 4);
                    for (unsigned y = 0; y < 64; ++y)
                        std::memcpy(&crop[y * 64 * 4], &photo.rgba[((80 + y) * 512 + 192) * 4], 64 * 4);
                    out.push_back({"demo-crop", 64, crop});
                }
                out.push_back({photo.name, 512, photo.rgba});
            }
        if (std::getenv("ORBTEX_BENCH_LARGE") && !out.empty())
        {
            // A 4 x 4 tiling of the 512 x 512 photos, in turn.
            std::vector<const BenchImage*> photos;
            for (const BenchImage& image : out)
                if (image.size == 512)
                    photos.push_back(&image);
            std::vector<uint8_t> large(size_t(2048) * 2048 * 4);
            for (unsigned tile = 0; tile < 16; ++tile)
                for (unsigned y = 0; y < 512; ++y)
                    std::memcpy(&large[((size_t(tile / 4) * 512 + y) * 2048 + (tile % 4) * 512) * 4],
                                &photos[tile % photos.size()]->rgba[size_t(y) * 512 * 4], 512 * 4);
            out.push_back({"photo-tiles", 2048, large});
        }
        if (out.empty())
            out.push_back({"synthetic", 512, Synthetic(512)});
        return out;
    }();
    return images;
}

// A case's name: the generation's prefix, then image, size, quality, threads.
const char* const kGenerationPrefix[2] = {"ORBTC4/", "ORBTCII4/"};

struct Row
{
    unsigned generation;
    std::string place; // the name less the generation's prefix
    double reference, fast;
};
std::vector<Row>& Rows()
{
    static std::vector<Row> rows;
    return rows;
}

double Compress(const BenchImage& image, unsigned generation, unsigned quality, bool reference,
                std::vector<uint8_t>& words)
{
    SetOptimiserReference(reference);
    words.assign(size_t(image.size) * image.size / 2, 0);
    const auto start = std::chrono::steady_clock::now();
    const size_t bytes =
        ORBTCCompress(image.rgba.data(), words.data(), image.size, image.size, false, false, generation, quality);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    SetOptimiserReference(false);
    return bytes == words.size() ? seconds : -1.0;
}

void BM_Optimiser(benchmark::State& state, const std::string& place, const BenchImage* image, unsigned generation,
                  unsigned quality, bool allThreads)
{
    ORBTCSetProcessorCountOverride(allThreads ? 0 : 1);
    double reference = 0.0, fast = 0.0;
    for (auto _ : state)
    {
        std::vector<uint8_t> plain, quick;
        const double r = Compress(*image, generation, quality, true, plain);
        const double f = Compress(*image, generation, quality, false, quick);
        if (r < 0.0 || f < 0.0)
            state.SkipWithError("compression failed");
        else if (plain != quick)
            state.SkipWithError("the paths' words differ");
        reference += r;
        fast += f;
    }
    ORBTCSetProcessorCountOverride(0);
    const double megapixels = double(image->size) * image->size * double(state.iterations()) / 1e6;
    state.counters["ref_Mpx/s"] = megapixels / reference;
    state.counters["new_Mpx/s"] = megapixels / fast;
    state.counters["ratio"] = reference / fast;
    Rows().push_back({generation, place, megapixels / reference, megapixels / fast});
}

const int kRegistered = [] {
    for (const BenchImage& image : Images())
        for (unsigned generation : {0u, 1u})
            for (unsigned quality : {2u, 4u, 8u})
                for (bool all : {false, true})
                {
                    const std::string place = image.name + "/" + std::to_string(image.size) + "/q" +
                                              std::to_string(quality) + (all ? "/tall" : "/t1");
                    const std::string name = kGenerationPrefix[generation] + place;
                    benchmark::RegisterBenchmark(name.c_str(), BM_Optimiser, place, &image, generation, quality,
                                                 all)
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
    std::printf("\n%-44s %12s %12s %7s\n", "case", "ref Mpx/s", "new Mpx/s", "ratio");
    for (const Row& row : Rows())
        std::printf("%-44s %12.4f %12.4f %7.2f\n", (kGenerationPrefix[row.generation] + row.place).c_str(),
                    row.reference, row.fast, row.fast / row.reference);
    // ORBTCII's time over ORBTC's for the same image, quality and threads,
    // on each path, where this run has both.
    bool heading = false;
    for (const Row& second : Rows())
        for (const Row& first : Rows())
            if (second.generation == 1 && first.generation == 0 && first.place == second.place)
            {
                if (!heading)
                    std::printf("\n%-44s %12s %12s\n", "ORBTCII time / ORBTC time", "ref", "new");
                heading = true;
                std::printf("%-44s %12.2f %12.2f\n", first.place.c_str(), first.reference / second.reference,
                            first.fast / second.fast);
            }
    return 0;
}
