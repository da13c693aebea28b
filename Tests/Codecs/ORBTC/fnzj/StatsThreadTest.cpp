// The statistics phases: the mode lists, the boxes of flat, transparent and
// two-coloured windows worked by hand, the low-frequency image, the palette
// pairs, 2bpp slots, and records that do not depend on the thread count.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "Codecs/ORBTC/fnzj/analygrapprop.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Codecs/ORBTC/fnzj/threadsupport_stats.h"

using namespace orbtexture;

namespace
{

struct TestImage
{
    std::vector<unsigned char> pixels;
    std::unique_ptr<ImageBuffer> image{new ImageBuffer()};

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

// Both phases over an image, with 'threads' shares of rows.
struct Stats
{
    CompressParams params;
    std::vector<float> weights;
    std::vector<unsigned char> central;
    std::vector<std::vector<RegionStats>> records;
    std::vector<RegionStats*> rows;

    Stats(const TestImage& image, int bitsPerPixel, bool generation2, bool punchThrough = false,
          unsigned threads = 1)
    {
        params.format = 4;
        params.bitsPerPixel = uint8_t(bitsPerPixel);
        params.blockWidth = bitsPerPixel == 2 ? 8 : 4;
        params.windowWidth = uint8_t(2 * params.blockWidth + 1);
        params.isGeneration2 = generation2;
        params.punchThrough = punchThrough;
        params.blocksWide = image.image->width / params.blockWidth;
        params.blocksHigh = image.image->height / params.blockHeight;
        weights = WindowFilterWeights(params.blockWidth, params.blockHeight);
        central = CentralFlags(params.blockWidth, params.blockHeight);
        records.assign(params.blocksHigh, std::vector<RegionStats>(params.blocksWide));
        for (auto& row : records)
            rows.push_back(row.data());

        StatsThreadArgs args{image.image.get(), &params, 0, central.data(), weights.data(), weights.data(),
                             rows.data(), threads};
        std::vector<ThreadArgPair> pairs(threads);
        std::vector<void*> arguments;
        for (unsigned t = 0; t < threads; ++t)
            arguments.push_back(&(pairs[t] = {&args, t}));
        for (int phase = 0; phase < 2; ++phase)
        {
            args.phase = phase;
            RunIndexedWork(threads, RunAGenerateStatsSetThread, arguments.data());
        }
    }
    RegionStats& at(int x, int y) { return records[y][x]; }
};

bool SameBox(const StatBox& a, const StatBox& b)
{
    return std::memcmp(&a, &b, sizeof(StatBox)) == 0;
}

bool SameColour(const unsigned char* a, const unsigned char* b)
{
    return std::memcmp(a, b, 4) == 0;
}

// A record's bytes without padding, its slots' box pointers as box numbers.
std::vector<unsigned char> Bytes(const RegionStats& r)
{
    auto bytes = [](const void* p) { return static_cast<const unsigned char*>(p); };
    std::vector<unsigned char> out(bytes(&r), bytes(&r) + offsetof(RegionStats, modeSlots));
    for (const ModeSlot& slot : r.modeSlots)
    {
        out.insert(out.end(), {slot.mode, slot.candidateCount,
                               uint8_t(slot.boundingBox ? slot.boundingBox - &r.AllBox : 255)});
        for (const RepCandidate& c : slot.candidates)
            out.insert(out.end(), bytes(&c), bytes(&c.hardVariant) + 4);
    }
    out.push_back(uint8_t(r.selectedMode));
    return out;
}

std::vector<uint8_t> Modes(unsigned format, unsigned bits, unsigned generation2, unsigned hint)
{
    uint8_t list[8];
    const int count = ConstructListOfNeededModes(format, bits, generation2, hint, list);
    return std::vector<uint8_t>(list, list + count);
}

} // namespace

TEST(OptimiserStatsModes, ListsByFormatGenerationAndHint)
{
    using V = std::vector<uint8_t>;
    EXPECT_EQ(Modes(4, 4, 0, 0), (V{0, 1}));
    EXPECT_EQ(Modes(0, 4, 0, 3), (V{0, 1}));
    EXPECT_EQ(Modes(4, 4, 1, 0), (V{0, 1, 2, 3}));
    EXPECT_EQ(Modes(2, 4, 1, 0), (V{4, 5, 6, 7}));
    EXPECT_EQ(Modes(3, 4, 1, 0), (V{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Modes(4, 2, 0, 0), (V{8, 9, 10, 11}));
    EXPECT_EQ(Modes(4, 2, 1, 0), (V{8, 9, 10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(Modes(4, 2, 0, 2), (V{8, 10}));
    EXPECT_EQ(Modes(4, 2, 1, 1), (V{8, 9, 12, 13}));
    EXPECT_EQ(Modes(4, 2, 1, 7), (V{8, 11, 12, 15}));
    EXPECT_DEATH(Modes(4, 1, 0, 0), "Exiting! 1bpp not yet implemented \\(OptimiseRegion\\)");
}

TEST(OptimiserStats, FlatWindowPutsItsColourInEverySlot)
{
    // On the grid of both colours, so the palette's mapping keeps it.
    TestImage image(8, 8);
    image.Fill({41, 82, 206, 255});
    Stats stats(image, 4, true);
    RegionStats& r = stats.at(1, 0);
    const unsigned char colour[4] = {41, 82, 206, 255};
    EXPECT_EQ(r.flatRegion, 1u);
    for (const StatBox* box : {&r.AllBox, &r.OpaqueBox, &r.CentralBox, &r.ResidualBox})
        EXPECT_TRUE(box->singleColour && SameColour(box->meanColour, colour));
    // Equal sizes (both 0): mode 0 keeps AllBox.
    const StatBox* boxes[4] = {&r.AllBox, &r.OpaqueBox, &r.CentralBox, &r.AllBox};
    for (int i = 0; i < 4; ++i)
    {
        const ModeSlot& slot = r.modeSlots[i];
        EXPECT_EQ(slot.mode, i);
        EXPECT_EQ(slot.boundingBox, boxes[i]) << i;
        ASSERT_EQ(slot.candidateCount, 1) << i;
        const RepCandidate& c = slot.candidates[0];
        EXPECT_TRUE(SameColour(c.repA, colour) && SameColour(c.repB, colour)) << i;
        EXPECT_TRUE(c.totalError == kFreshCandidateError && c.centralError == kFreshCandidateError);
    }
    EXPECT_EQ(r.selectedMode, 0u);
}

TEST(OptimiserStats, MeanColourOfTwoColoursByHand)
{
    // Columns 0-3 one colour, 4-7 another. Block (0, 0)'s window runs over
    // image columns 6 7 0 1 2 3 4 5 6: taps 0 8 on the right colour, 26 58
    // 127 58 on the left, 26 8 0 on the right again, out of 311.
    TestImage image(8, 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            if (x < 4)
                image.Set(x, y, {10, 200, 0, 255});
            else
                image.Set(x, y, {250, 0, 99, 255});
    Stats stats(image, 4, false);
    const RegionStats& r = stats.at(0, 0);
    const double left = 269.0 / 311.0, right = 42.0 / 311.0;
    const int expected[4] = {int(10 * left + 250 * right + 0.5), int(200 * left + 0.5), int(99 * right + 0.5), 255};
    for (int c = 0; c < 4; ++c)
        EXPECT_EQ(r.AllBox.meanColour[c], expected[c]) << c;
    EXPECT_EQ(expected[0], 42); // 13190 / 311 = 42.41
    const unsigned char leftColour[4] = {10, 200, 0, 255};
    EXPECT_TRUE(SameColour(r.CentralBox.meanColour, leftColour));
    EXPECT_EQ(r.flatRegion, 0u);
}

TEST(OptimiserStats, TransparentPixels)
{
    // One transparent column (image column 5) in the window of block (0, 0),
    // outside its own pixels. Generation 2 leaves it out of OpaqueBox, which
    // is then one colour, and so is the block. Generation 1 keeps it there
    // with the mean alpha (255): two colours.
    TestImage image(8, 8);
    image.Fill({200, 100, 50, 255});
    for (int y = 0; y < 8; ++y)
        image.Set(5, y, {0, 0, 0, 0});
    const int mean = int(200 * 303.0 / 311.0 + 0.5);

    Stats second(image, 4, true);
    const RegionStats& r2 = second.at(0, 0);
    EXPECT_EQ(r2.flatRegion, 1u);
    EXPECT_EQ(r2.AllBox.meanColour[0], mean);
    EXPECT_EQ(r2.OpaqueBox.meanColour[0], 200);
    EXPECT_EQ(r2.modeSlots[0].candidates[0].repA[0], mean); // the window's mean, one colour or not
    EXPECT_EQ(r2.hasTransparent, 0u);
    EXPECT_EQ(second.at(1, 0).hasTransparent, 1u);
    EXPECT_EQ(second.at(1, 0).selectedMode, 1u);

    Stats first(image, 4, false);
    const RegionStats& r1 = first.at(0, 0);
    EXPECT_EQ(r1.flatRegion, 0u);
    EXPECT_EQ(r1.OpaqueBox.meanColour[3], 255);
    EXPECT_EQ(r1.AllBox.meanColour[3], int(255 * 303.0 / 311.0 + 0.5));
    EXPECT_EQ(first.at(1, 0).selectedMode, 0u);

    // All alpha 0 in generation 1: the mean alpha is 0 and OpaqueBox copies
    // AllBox; punch-through alone selects the second mode.
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            image.Set(x, y, {x * 30, y * 20, (x * y) % 7 * 30, 0});
    for (bool punchThrough : {false, true})
    {
        Stats stats(image, 4, false, punchThrough);
        const RegionStats& r = stats.at(1, 1);
        EXPECT_TRUE(r.hasTransparent && SameBox(r.OpaqueBox, r.AllBox));
        EXPECT_EQ(r.selectedMode, punchThrough ? 1u : 0u);
    }
}

TEST(OptimiserStats, Generation2TransparentWindowAmidColour)
{
    // Block (1, 1)'s window, image columns and rows 2 to 10, is all zero;
    // its neighbours' means are not, yet its residuals count as zero.
    TestImage image(16, 16);
    image.Fill({100, 150, 200, 255});
    for (int y = 2; y <= 10; ++y)
        for (int x = 2; x <= 10; ++x)
            image.Set(x, y, {0, 0, 0, 0});
    Stats stats(image, 4, true);
    const RegionStats& r = stats.at(1, 1);
    EXPECT_NE(stats.at(0, 0).AllBox.meanColour[0], 0);
    EXPECT_TRUE(SameBox(r.OpaqueBox, r.AllBox));
    EXPECT_EQ(r.ResidualBox.singleColour, 1u);
    for (int c = 0; c < 4; ++c)
        EXPECT_TRUE(r.ResidualBox.box.minimum[c] == 0.0f && r.ResidualBox.box.maximum[c] == 0.0f);
    EXPECT_EQ(r.ResidualBox.meanColour[0], 0);
    EXPECT_TRUE(SameBox(r.ResidualOpaqueBox, r.ResidualBox));
    EXPECT_EQ(r.hasTransparent, 1u);
    EXPECT_EQ(r.selectedMode, 1u);
}

TEST(OptimiserStats, LowFrequencyImage)
{
    // One block wide: the three columns of means are one, so the image is
    // constant along rows.
    TestImage image(4, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 4; ++x)
            image.Set(x, y, {y * 15, 255 - y * 9, x * 60, 255});
    Stats stats(image, 4, false);
    unsigned char means[9][4];
    NeighbourMeanColours(stats.rows.data(), stats.params, 0, 0, means);
    EXPECT_TRUE(SameColour(means[1], stats.at(0, 3).AllBox.meanColour)); // the row above wraps
    float low[81 * 4];
    LowFrequencyWindow(means, stats.params, low);
    for (int v = 0; v < 9; ++v)
        for (int u = 1; u < 9; ++u)
            for (int c = 0; c < 4; ++c)
                ASSERT_EQ(low[(v * 9 + u) * 4 + c], low[v * 9 * 4 + c]) << u << "," << v;

    // Corners and centre at the means, halfway between in between.
    unsigned char grid[9][4] = {};
    for (int i = 0; i < 9; ++i)
        grid[i][0] = uint8_t(i * 20), grid[i][1] = uint8_t(i * i);
    LowFrequencyWindow(grid, stats.params, low);
    auto at = [&low](int u, int v, int c) { return low[(v * 9 + u) * 4 + c]; };
    EXPECT_EQ(at(4, 4, 0), 80.0f);
    EXPECT_EQ(at(8, 0, 1), 4.0f);
    EXPECT_EQ(at(2, 4, 1), (9.0f + 16.0f) / 2);
    EXPECT_EQ(at(6, 4, 1), (16.0f + 25.0f) / 2);
    EXPECT_EQ(at(4, 6, 1), (16.0f + 49.0f) / 2);
    EXPECT_EQ(at(1, 1, 1), 0.75f * 0.75f * 0 + 0.75f * 0.25f * (1 + 9) + 0.0625f * 16);
}

TEST(OptimiserStats, PalettePairsBySumOrientationAndRepetition)
{
    // Opaque entries on both colours' grids map exactly either way: a tie,
    // settled by the block's parity (reversed when x XOR y is even).
    const unsigned char grid[5][4] = {
        {41, 82, 206, 255}, {0, 0, 0, 255}, {255, 255, 255, 255}, {82, 41, 0, 255}, {8, 16, 33, 255}};
    RepCandidate c[4];
    ASSERT_EQ(PaletteRepCandidates(grid, 5, 0, 0, c), 4);
    // Pairs (0,1), (0,2), (0,3), (1,2): by sum, not (0,4).
    const int pairs[4][2] = {{0, 1}, {0, 2}, {0, 3}, {1, 2}};
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(SameColour(c[k].repA, grid[pairs[k][1]]) && SameColour(c[k].repB, grid[pairs[k][0]])) << k;
    ASSERT_EQ(PaletteRepCandidates(grid, 5, 3, 2, c), 4);
    EXPECT_TRUE(SameColour(c[0].repA, grid[0]));

    // Blue 198 is a level of B (5 bits) but not of A (4 bits): that entry
    // goes to B whatever the parity. With one pair the repeats alternate:
    // turned (A rounds 198 to 206), then turned back.
    const unsigned char offGrid[2][4] = {{41, 82, 198, 255}, {0, 0, 0, 255}};
    for (uint32_t x : {0u, 1u})
    {
        ASSERT_EQ(PaletteRepCandidates(offGrid, 2, x, 0, c), 4);
        EXPECT_TRUE(SameColour(c[0].repA, offGrid[1]) && SameColour(c[0].repB, offGrid[0])) << x;
        EXPECT_TRUE(c[1].repA[2] == 206 && SameColour(c[1].repB, offGrid[1])) << x;
        EXPECT_TRUE(SameColour(c[2].repA, offGrid[1]) && c[2].repB[2] == 206) << x;
    }
}

TEST(OptimiserStats, TwoBitsPerPixelSlots)
{
    // Columns cycle four colours; window rows 0-4 of block (0, 1) (image
    // rows 2-6) are shifted two colours against the rest: 34 islands, graphics
    // for a 17 x 9 window. The fourth colour has alpha 0, which 2bpp ignores.
    const int colours[4][4] = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}, {255, 255, 255, 0}};
    TestImage image(16, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
        {
            const int* c = colours[(x + (y >= 2 && y <= 6 ? 0 : 2)) % 4];
            image.Set(x, y, {c[0], c[1], c[2], c[3]});
        }

    for (bool generation2 : {false, true})
    {
        Stats stats(image, 2, generation2);
        const RegionStats& r = stats.at(0, 1);
        std::vector<unsigned char> window(17 * 9 * 4), labels(153), order(153);
        GatherWindowPixels(*image.image, stats.params, 1, 0, window.data());
        ASSERT_EQ(AnalyseGraphicsProperties(window.data(), stats.params, labels.data(), order.data()), 34);
        EXPECT_EQ(r.graphicsLike, 1u);
        EXPECT_TRUE(r.hasTransparent == 0 && SameBox(r.OpaqueBox, r.AllBox));
        EXPECT_EQ(r.selectedMode, 9u);
        EXPECT_EQ(r.modeSlots[4].boundingBox, generation2 ? &r.CentralBox : nullptr);
        for (int i = 0; i < (generation2 ? 8 : 4); ++i)
        {
            const ModeSlot &slot = r.modeSlots[i], &base = r.modeSlots[i & 4];
            EXPECT_EQ(slot.mode, 8 + i);
            EXPECT_TRUE(slot.boundingBox == base.boundingBox && slot.candidateCount == 1) << i;
            EXPECT_TRUE(SameColour(slot.candidates[0].repA, base.candidates[0].repA) &&
                        SameColour(slot.candidates[0].repB, base.candidates[0].repB)) << i;
        }
    }
}

TEST(OptimiserStats, RecordsDoNotDependOnTheThreadCount)
{
    TestImage image(24, 40);
    unsigned seed = 7;
    for (auto& byte : image.pixels)
    {
        seed = seed * 1103515245u + 12345u;
        byte = uint8_t(seed >> 16);
    }
    for (int i = 0; i < 24 * 40; i += 5)
        std::memset(&image.pixels[4 * size_t(i)], 0, 4);
    for (int bits : {4, 2})
    {
        Stats one(image, bits, true, false, 1), three(image, bits, true, false, 3);
        for (uint32_t y = 0; y < one.params.blocksHigh; ++y)
            for (uint32_t x = 0; x < one.params.blocksWide; ++x)
                ASSERT_EQ(Bytes(one.at(x, y)), Bytes(three.at(x, y))) << bits << "bpp " << x << "," << y;
    }
}
