// Images, block records and work space for tests of the optimiser's pieces.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"

namespace optimisertest
{

using namespace orbtexture;

// An image of the optimiser's kind over a pixel vector of the test's.
struct TestImage
{
    std::vector<unsigned char> pixels;
    std::unique_ptr<ImageBuffer> image{new ImageBuffer{}};

    TestImage(int width, int height) : pixels(size_t(width) * height * 4)
    {
        image->width = width;
        image->height = height;
        for (int y = 0; y < height; ++y)
            image->rows[y] = &pixels[size_t(y) * width * 4];
    }
    void Set(int x, int y, std::initializer_list<int> rgba)
    {
        std::copy(rgba.begin(), rgba.end(), image->rows[y] + 4 * x);
    }
    void Fill(std::initializer_list<int> rgba)
    {
        for (int y = 0; y < image->height; ++y)
            for (int x = 0; x < image->width; ++x)
                Set(x, y, rgba);
    }
};

// Cleared block records over a grid of format 4 words.
struct TestGrid
{
    CompressParams params;
    std::vector<std::vector<RegionStats>> storage;
    std::vector<RegionStats*> rows;
    std::vector<float> weights;
    std::vector<unsigned char> central;

    TestGrid(int bitsPerPixel, uint32_t wide, uint32_t high, bool generation2 = false, bool punchThrough = false)
    {
        params.bitsPerPixel = uint8_t(bitsPerPixel);
        params.blockWidth = bitsPerPixel == 2 ? 8 : 4;
        params.blockHeight = 4;
        params.windowWidth = uint8_t(2 * params.blockWidth + 1);
        params.windowHeight = 9;
        params.format = 4;
        params.isGeneration2 = generation2;
        params.punchThrough = punchThrough;
        params.blocksWide = wide;
        params.blocksHigh = high;
        storage.assign(high, std::vector<RegionStats>(wide));
        for (auto& row : storage)
        {
            std::memset(static_cast<void*>(row.data()), 0, row.size() * sizeof(RegionStats));
            rows.push_back(row.data());
        }
        weights = WindowFilterWeights(params.blockWidth, params.blockHeight);
        central = CentralFlags(params.blockWidth, params.blockHeight);
    }
    RegionStats& at(uint32_t x, uint32_t y) { return storage[y][x]; }

    // One candidate in the first slot, selected.
    void set(uint32_t x, uint32_t y, uint32_t mode, const unsigned char* a, const unsigned char* b)
    {
        RegionStats& r = at(x, y);
        r.selectedMode = mode;
        r.modeSlots[0].mode = uint8_t(mode);
        r.modeSlots[0].candidateCount = 1;
        MapToRepresentableColoursInt(params.isGeneration2, a, b, r.modeSlots[0].candidates[0].repA,
                                     r.modeSlots[0].candidates[0].repB);
        r.modeSlots[0].candidates[0].totalError = kFreshCandidateError;
        r.modeSlots[0].candidates[0].centralError = kFreshCandidateError;
    }

    // Both statistics phases over 'image', with 'threads' shares of rows.
    void Stats(const TestImage& image, unsigned threads = 1)
    {
        StatsThreadArgs args{image.image.get(), &params, 0, central.data(), weights.data(), weights.data(),
                             rows.data(), threads};
        std::vector<ThreadArgPair> pairs(threads);
        std::vector<void*> arguments;
        for (unsigned t = 0; t < threads; ++t)
            arguments.push_back(&(pairs[t] = {&args, t}));
        for (args.phase = 0; args.phase < 2; ++args.phase)
            RunIndexedWork(threads, RunAGenerateStatsSetThread, arguments.data());
    }
};

// The statistics of 'image' over whole blocks.
inline TestGrid StatsOf(const TestImage& image, int bitsPerPixel, bool generation2, bool punchThrough = false,
                        unsigned threads = 1)
{
    TestGrid grid(bitsPerPixel, uint32_t(image.image->width / (bitsPerPixel == 2 ? 8 : 4)),
                  uint32_t(image.image->height / 4), generation2, punchThrough);
    grid.Stats(image, threads);
    return grid;
}

struct ReleaseWork
{
    void operator()(OptimiseWork* work) const
    {
        ReleaseOptimiseWork(*work);
        delete work;
    }
};

inline std::unique_ptr<OptimiseWork, ReleaseWork> MakeWork(const CompressParams& params)
{
    std::unique_ptr<OptimiseWork, ReleaseWork> work(new OptimiseWork);
    EXPECT_EQ(InitOptimiseWork(*work, params), 1);
    return work;
}

} // namespace optimisertest
