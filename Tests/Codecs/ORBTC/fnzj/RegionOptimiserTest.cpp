// The region optimiser's evaluation against both decoders, its sort, and the
// rules of a visit.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "OptimiserTestGrid.h"

using namespace orbtexture;
using namespace optimisertest;

namespace
{

// Random pixels and representatives, packed and decoded: every pixel of a
// block decodes to the source less the residual its evaluation leaves for the
// fit, and a block's central error is the decoder's error over it. A derived
// 2bpp pixel is skipped where it reads a neighbouring block's choices.
void ExpectEvaluationMatchesDecoder(int bitsPerPixel, uint32_t wide, uint32_t high, const std::vector<uint32_t>& modes,
                                    unsigned seed, bool translucent, bool generation2 = false)
{
    TestGrid grid(bitsPerPixel, wide, high, generation2);
    const CompressParams& p = grid.params;
    const int bw = p.blockWidth, ww = p.windowWidth, width = int(wide) * bw;
    TestImage image(width, int(high) * 4);
    std::mt19937 random(seed);
    for (unsigned char& v : image.pixels)
        v = uint8_t(random());
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            unsigned char a[4], b[4];
            for (int c = 0; c < 4; ++c)
                a[c] = uint8_t(random()), b[c] = uint8_t(random());
            if (!translucent || random() % 3 == 0)
                a[3] = b[3] = 255;
            grid.set(x, y, modes[random() % modes.size()], a, b);
        }
    auto work = MakeWork(p);
    // ORBTCII words in row order, ORBTC words so on grids that are no power of two.
    const bool rowOrder = generation2 || !ValIsPOW2(wide) || !ValIsPOW2(high);
    std::vector<unsigned char> words(size_t(wide) * high * 8), decoded(image.pixels.size());
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t word[2];
            PackLocalBlock(*image.image, p, y, x, *work, grid.rows.data(), word);
            std::memcpy(&words[8 * TwiddleUV(high, wide, y, x, rowOrder)], word, 8);
        }
    ORBTCDecompress(words.data(), decoded.data(), width, high * 4, bitsPerPixel == 2, generation2 ? 1 : 0);

    auto own = [bw](int u, int v) { return u >= bw / 2 && u < 3 * bw / 2 && v >= 2 && v < 6; };
    int checked = 0;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t neighbourModes[9];
            NeighbourhoodReps reps;
            GatherNeighbourhood(p, y, x, grid.rows.data(), neighbourModes, reps);
            GatherWindowPixels(*image.image, p, y, x, work->window);
            CreateBlendingAndUpdateWeights(grid.at(x, y).selectedMode, neighbourModes, 0, p, *work);
            WindowErrors errors;
            (bitsPerPixel == 4 ? EvalAllCandsAndGetErrors4BPP : EvalAllCandsAndGetErrors2BPP)(*work, p, reps, false,
                                                                                               errors);
            int64_t decoderError = 0;
            bool exactBlock = true;
            for (int v = 2; v < 6; ++v)
                for (int u = bw / 2; u < 3 * bw / 2; ++u)
                {
                    const int cls = work->records[v * ww + u].modulationClass;
                    if (((cls == 2 || cls == 3) && !(own(u - 1, v) && own(u + 1, v))) ||
                        ((cls == 2 || cls == 4) && !(own(u, v - 1) && own(u, v + 1))))
                    {
                        exactBlock = false;
                        continue;
                    }
                    const size_t i = (size_t(y * 4 + v - 2) * width + x * bw + u - bw / 2) * 4;
                    const float* residual = work->fitting.floatResiduals + 4 * (v * ww + u);
                    for (int c = 0; c < 4; ++c)
                        ASSERT_EQ(float(image.pixels[i + c]) - residual[c], float(decoded[i + c]))
                            << "block " << x << "," << y << " pixel " << u << "," << v;
                    decoderError += PixelError(&image.pixels[i], &decoded[i]);
                    ++checked;
                }
            EXPECT_TRUE(!exactBlock || errors.central == decoderError) << "block " << x << "," << y;
        }
    EXPECT_GE(checked, int(wide * high) * bw * 2);
}

} // namespace

TEST(RegionOptimiser, EvaluationAgreesWithTheDecoder)
{
    // Standard and punch-through 4bpp words, twiddled and row-ordered grids.
    ExpectEvaluationMatchesDecoder(4, 4, 4, {0, 1}, 1, false);
    ExpectEvaluationMatchesDecoder(4, 4, 4, {0, 1}, 2, true);
    ExpectEvaluationMatchesDecoder(4, 3, 5, {0, 1}, 3, true);
    // 2bpp: one bit a pixel, and the three interpolating sub-modes, mixed.
    ExpectEvaluationMatchesDecoder(2, 4, 4, {8, 9, 10, 11}, 4, false);
    ExpectEvaluationMatchesDecoder(2, 2, 4, {8, 9, 10, 11}, 5, true);
    ExpectEvaluationMatchesDecoder(2, 4, 2, {9}, 6, false);
    // ORBTCII: hard and palette modes too, and a block that is its own neighbour.
    for (unsigned seed = 1; seed <= 2; ++seed)
    {
        ExpectEvaluationMatchesDecoder(4, 4, 4, {0, 1, 2, 3}, seed, true, true);
        ExpectEvaluationMatchesDecoder(4, 3, 5, {0, 1, 2, 3}, seed + 10, true, true);
        ExpectEvaluationMatchesDecoder(2, 4, 4, {8, 9, 10, 11, 12, 13, 14, 15}, seed + 20, true, true);
        ExpectEvaluationMatchesDecoder(2, 3, 2, {8, 9, 10, 11, 12, 13, 14, 15}, seed + 30, true, true);
    }
    ExpectEvaluationMatchesDecoder(4, 4, 4, {3}, 40, true, true); // palette pixels in every tile
    ExpectEvaluationMatchesDecoder(4, 1, 1, {0, 1, 2, 3}, 41, true, true);
}

TEST(RegionOptimiser, PunchThroughChoiceOnTransparentPixels)
{
    // A transparent pixel of a punch-through block with the option set takes
    // choice 2 at no cost; generation 1 keeps the mix's colour, generation 2
    // makes it black.
    for (bool generation2 : {false, true})
    {
        TestGrid grid(4, 1, 1, generation2);
        grid.params.punchThrough = 1;
        const unsigned char a[4] = {255, 0, 0, 255}, b[4] = {0, 0, 255, 255};
        grid.set(0, 0, 1, a, b);
        TestImage image(4, 4);
        std::fill(image.pixels.begin(), image.pixels.end(), 0);
        auto work = MakeWork(grid.params);
        uint32_t modes[9];
        NeighbourhoodReps reps;
        GatherNeighbourhood(grid.params, 0, 0, grid.rows.data(), modes, reps);
        GatherWindowPixels(*image.image, grid.params, 0, 0, work->window);
        CreateBlendingAndUpdateWeights(1, modes, 0, grid.params, *work);
        WindowErrors errors;
        EvalAllCandsAndGetErrors4BPP(*work, grid.params, reps, true, errors);
        EXPECT_EQ(errors.total, 0);
        EXPECT_EQ(errors.outer, 0);
        const int centre = 4 * 9 + 4;
        EXPECT_EQ(work->chosen[centre], 2);
        unsigned char colours[4][4];
        SynthesisePixelColourChoices(work->records[centre], reps, colours);
        EXPECT_EQ(colours[2][3], 0);
        if (generation2)
            EXPECT_EQ(colours[2][0] | colours[2][2], 0);
        else
        {
            EXPECT_EQ(colours[2][0], 127); // (4 x 255 + 4 x 0) / 8
            EXPECT_EQ(colours[2][2], 127);
        }
        EXPECT_EQ(work->records[centre].gains[2], 1);
    }
}

TEST(RegionOptimiser, DerivedModulationAtTheWindowEdge)
{
    // A 3 x 3 grid of values; missing neighbours count the present one twice.
    const uint8_t values[9] = {0, 8, 0, 3, 0, 5, 0, 8, 0};
    EXPECT_EQ(ComputeInterpolatedModVal(2, 1, 1, values, 3, 3), (8 + 8 + 3 + 5 + 2) >> 2);
    EXPECT_EQ(ComputeInterpolatedModVal(3, 1, 1, values, 3, 3), (3 + 5 + 1) >> 1);
    EXPECT_EQ(ComputeInterpolatedModVal(4, 1, 1, values, 3, 3), 8);
    EXPECT_EQ(ComputeInterpolatedModVal(4, 0, 1, values, 3, 3), 0);  // only the lower neighbour
    EXPECT_EQ(ComputeInterpolatedModVal(3, 1, 0, values, 3, 3), 0);  // only the right one, twice
    EXPECT_EQ(ComputeInterpolatedModVal(2, 0, 0, values, 3, 3), (8 + 8 + 3 + 3 + 2) >> 2);
}

TEST(RegionOptimiser, SortIsStableAndOrdersByTotalThenCentral)
{
    std::mt19937 random(7);
    std::vector<RepCandidate> items(37);
    for (size_t i = 0; i < items.size(); ++i)
    {
        items[i] = RepCandidate{};
        items[i].totalError = random() % 4;
        items[i].centralError = random() % 3;
        items[i].hardVariant = uint32_t(i); // the original place
    }
    std::vector<RepCandidate> expected = items, scratch(items.size());
    std::stable_sort(expected.begin(), expected.end(),
                     [](const RepCandidate& a, const RepCandidate& b) { return CompareCandidates(&a, &b) < 0; });
    orbmergesort(items.data(), scratch.data(), items.size(), sizeof(RepCandidate), CompareCandidates);
    for (size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(items[i].hardVariant, expected[i].hardVariant) << i;
}

namespace
{

// Statistics of a flat image of 'colour', ready for visits with the first
// pass's parameters.
struct FlatVisit
{
    TestGrid grid;
    TestImage image;
    FlatVisit(int bitsPerPixel, uint32_t wide, uint32_t high, const unsigned char* colour)
        : grid(bitsPerPixel, wide, high), image(int(wide * grid.params.blockWidth), int(high * 4))
    {
        for (size_t i = 0; i < image.pixels.size(); ++i)
            image.pixels[i] = colour[i % 4];
        grid.Stats(image);
        CompressParams& p = grid.params;
        p.numIterations = 1;
        p.numCandidates = 4;
        p.numVariants = 8;
        p.clampToBox = 1;
        p.forceAllRegions = 1;
        p.hardVariantStep = 4;
    }
    void Visit(uint32_t x, uint32_t y, uint32_t stamp)
    {
        auto work = MakeWork(grid.params);
        OptimiseRegion(*image.image, grid.params, y, x, *work, stamp, grid.rows.data());
    }
};

} // namespace

TEST(RegionOptimiser, EqualErrorsKeepTheSelectedMode)
{
    // White is exact in both 4bpp modes (error 0 each): the visit keeps
    // whichever mode the block had.
    const unsigned char white[4] = {255, 255, 255, 255};
    for (uint32_t selected : {0u, 1u})
    {
        FlatVisit visit(4, 2, 2, white);
        RegionStats& region = visit.grid.at(0, 1);
        region.selectedMode = selected;
        visit.Visit(0, 1, 5);
        EXPECT_EQ(region.modeSlots[0].candidates[0].totalError, 0);
        EXPECT_EQ(region.modeSlots[1].candidates[0].totalError, 0);
        EXPECT_EQ(region.selectedMode, selected);
    }
}
