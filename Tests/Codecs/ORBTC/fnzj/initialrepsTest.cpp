// The word's colour grid, the best pairs for one colour, partitions,
// representatives from an axis and local palettes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;

TEST(InitialReps, GridMappingTiesWhiteAndAlphaRules)
{
    unsigned char a[4], b[4];
    // 255 stays 255 at any precision.
    const float white[4] = {255, 255, 255, 100};
    MapToRepresentableColours(false, white, white, a, b);
    EXPECT_EQ(a[2], 255);
    EXPECT_EQ(b[0], 255);

    // A tie of levels moves the pair apart: 5-bit levels 123 and 132 around
    // 127.5. Equal values: A down, B up; B below A: A up, B down.
    const float tie[4] = {127.5f, 127.5f, 0.0f, 255.0f};
    MapToRepresentableColours(false, tie, tie, a, b);
    EXPECT_EQ(a[0], 123);
    EXPECT_EQ(b[0], 132);
    // B at 119 (between 115 and 123) below A at 127.5: A up, B down.
    const float upper[4] = {127.5f, 0, 0, 255}, below[4] = {119.0f, 0, 0, 255};
    MapToRepresentableColours(false, upper, below, a, b);
    EXPECT_EQ(a[0], 132);
    EXPECT_EQ(b[0], 115);

    const float opaqueA[4] = {0, 0, 0, 250}, nearlyB[4] = {0, 0, 0, 240};
    // Generation 1: each alpha alone; 240 is nearest 238 and stays
    // translucent, 250 is nearer 255 than 238.
    MapToRepresentableColours(false, opaqueA, nearlyB, a, b);
    EXPECT_EQ(a[3], 255);
    EXPECT_EQ(b[3], 238);
    // Generation 2: A needs 246, B only 238.
    MapToRepresentableColours(true, opaqueA, nearlyB, a, b);
    EXPECT_EQ(a[3], 255);
    EXPECT_EQ(b[3], 255);
    // Generation 2 B has no 0: 17. A's 255 turns 238 when B is translucent.
    const float clear[4] = {0, 0, 0, 0};
    MapToRepresentableColours(true, opaqueA, clear, a, b);
    EXPECT_EQ(b[3], 17);
    EXPECT_EQ(a[3], 238);
    // Translucent B in generation 2 is on 17, 51, ...: 100 lies nearest 85.
    const float mid[4] = {0, 0, 0, 100};
    MapToRepresentableColours(true, mid, mid, a, b);
    EXPECT_EQ(a[3], 102);
    EXPECT_EQ(b[3], 85);
}

TEST(InitialReps, SingleColourPairChosenAgainWhenAlphaTurnsOpaque)
{
    unsigned char a[4], b[4];
    // Alpha 247 in generation 1: weight 5 of 8 on (238, 255) gives 248 and
    // wins, so B comes out opaque and the pair is chosen again with B on 5
    // bits (90 is not on the 4-bit grid of the first choice).
    const unsigned char nearlyOpaque[4] = {90, 90, 90, 247};
    GetSingleColourBestMatchReps(nearlyOpaque, false, false, true, a, b, nullptr);
    EXPECT_EQ(b[3], 255);
    EXPECT_EQ(b[0], (b[0] >> 3) << 3 | b[0] >> 5) << int(b[0]); // a 5-bit level
}

namespace
{

// Sorted entries at the given projections, weight 1 each, with their sums.
std::vector<PixelInfo> Entries(const std::vector<float>& projections)
{
    std::vector<PixelInfo> entries;
    double w = 0, first = 0, second = 0;
    for (size_t i = 0; i < projections.size(); ++i)
    {
        const float p = projections[i];
        w += 1;
        first += p;
        second += double(p) * p;
        entries.push_back({p, 1.0f, int(i), w, first, second});
    }
    return entries;
}

} // namespace

TEST(InitialReps, PartitionFindsTheFourLevels)
{
    // Pixels exactly on the levels of 0 and 100 (0, 37.5, 62.5, 100): from a
    // rough start the fit reaches them with no error.
    const std::vector<PixelInfo> entries = Entries({0, 0, 0, 37.5f, 37.5f, 62.5f, 100, 100});
    float lower = 10.0f, upper = 80.0f;
    const double error = ImprovePartition(entries.data(), 8, lower, 1.0 / 8, 0.0f, 100.0f, 100.0f, upper);
    EXPECT_NEAR(error, 0.0, 1e-6);
    EXPECT_NEAR(lower, 0.0f, 1e-4f);
    EXPECT_NEAR(upper, 100.0f, 1e-4f);

    // One entry, or no spread: nothing to do.
    float l = 3.0f, u = 4.0f;
    EXPECT_EQ(ImprovePartition(entries.data(), 1, l, 1.0, 0.0f, 100.0f, 100.0f, u), 0.0);
    EXPECT_EQ(ImprovePartition(entries.data(), 8, l, 1.0, 5.0f, 5.0f, 0.0f, u), 0.0);
    EXPECT_EQ(l, 3.0f);
    EXPECT_EQ(u, 4.0f);
}

TEST(InitialReps, RepresentativesFromAnAxis)
{
    // Nine dark and nine bright pixels: A is the dark one and B the bright
    // one on the word's grid, whichever way the axis points.
    CompressParams params; // 4bpp, generation 1
    std::vector<unsigned char> window;
    const unsigned char dark[4] = {22, 40, 61, 255}, bright[4] = {200, 180, 150, 255};
    for (int i = 0; i < 18; ++i)
        window.insert(window.end(), i % 2 ? bright : dark, (i % 2 ? bright : dark) + 4);
    std::vector<float> weights(18, 1.0f);
    unsigned char expectedA[4], expectedB[4], a[4], b[4];
    MapToRepresentableColoursInt(false, dark, bright, expectedA, expectedB);
    for (float sign : {1.0f, -1.0f})
        for (bool multiStart : {false, true})
        {
            const float axis[4] = {sign * 0.57735f, sign * 0.57735f, sign * 0.57735f, 0.0f};
            int place = -1;
            PickRepsByProjectingPixelsOntoAxis(params, true, multiStart, false, window.data(), weights.data(), 18, axis,
                                               1, &place, a, b);
            EXPECT_EQ(std::vector<unsigned char>(a, a + 4), std::vector<unsigned char>(expectedA, expectedA + 4));
            EXPECT_EQ(std::vector<unsigned char>(b, b + 4), std::vector<unsigned char>(expectedB, expectedB + 4));
            EXPECT_EQ(place, sign > 0 ? 8 : 0); // pixel 1 is bright
        }

    // A transparent magenta pixel counts only without excludeTransparent.
    const unsigned char clear[4] = {255, 0, 255, 0};
    window.insert(window.end(), clear, clear + 4);
    weights.push_back(100.0f);
    const float axis[4] = {0.5f, 0.5f, 0.5f, 0.5f};
    PickRepsByProjectingPixelsOntoAxis(params, true, false, false, window.data(), weights.data(), 19, axis, -1, nullptr,
                                       a, b);
    EXPECT_EQ(std::vector<unsigned char>(b, b + 4), std::vector<unsigned char>(expectedB, expectedB + 4));
    PickRepsByProjectingPixelsOntoAxis(params, false, false, false, window.data(), weights.data(), 19, axis, -1,
                                       nullptr, a, b);
    EXPECT_NE(std::vector<unsigned char>(a, a + 4), std::vector<unsigned char>(expectedA, expectedA + 4));

    // No weight anywhere: both zero.
    std::vector<float> none(19, 0.0f);
    PickRepsByProjectingPixelsOntoAxis(params, false, false, false, window.data(), none.data(), 19, axis, -1, nullptr,
                                       a, b);
    EXPECT_EQ(std::vector<unsigned char>(a, a + 4), std::vector<unsigned char>(4, 0));
    EXPECT_EQ(std::vector<unsigned char>(b, b + 4), std::vector<unsigned char>(4, 0));
}

TEST(InitialReps, FastPartitionStepsAreThePlainSteps)
{
    // Lists up to the flat arrays' size and past it, of few levels (ties at
    // the cuts) or spread values, weights with zeros, starts inside, across
    // and outside the range (one zone then holds all): every SIMD path's
    // error and pair must be the plain search's, bit for bit.
    const ESimdPath saved = ActiveSimdPath();
    std::mt19937 random(11);
    for (int trial = 0; trial < 3000; ++trial)
    {
        const int count = 2 + int(random() % 170);
        const int levels = trial % 3 == 0 ? 2 + int(random() % 4) : 1000;
        std::vector<float> projections(static_cast<size_t>(count));
        for (float& p : projections)
            p = float(int(random() % levels)) * (levels < 1000 ? 37.25f : 0.37f) - 90.0f;
        std::sort(projections.begin(), projections.end());
        std::vector<PixelInfo> entries;
        double w = 0, first = 0, second = 0;
        for (int i = 0; i < count; ++i)
        {
            const float weight = float(random() % 5) / 4.0f;
            w += weight;
            first += double(weight) * projections[i];
            second += double(weight) * projections[i] * projections[i];
            entries.push_back({projections[i], weight, i, w, first, second});
        }
        const float minimum = projections.front(), maximum = projections.back();
        const float start[2] = {float(int(random() % 400) - 200), float(int(random() % 400) - 200)};
        float plainLower = start[0], plainUpper = start[1];
        SetOptimiserReference(true);
        const double plain = ImprovePartition(entries.data(), count, plainLower, w > 0 ? 1.0 / w : 1.0, minimum,
                                              maximum, maximum - minimum, plainUpper);
        SetOptimiserReference(false);
        for (ESimdPath path : {eSimdPortable, eSimdSSE2, eSimdAVX2})
        {
            if (!SimdPathAvailable(path))
                continue;
            SetSimdPath(path);
            float lower = start[0], upper = start[1];
            const double fast = ImprovePartition(entries.data(), count, lower, w > 0 ? 1.0 / w : 1.0, minimum,
                                                 maximum, maximum - minimum, upper);
            ASSERT_EQ(std::memcmp(&fast, &plain, sizeof fast), 0) << "trial " << trial << " path " << path;
            ASSERT_EQ(std::memcmp(&lower, &plainLower, 4), 0) << "trial " << trial << " path " << path;
            ASSERT_EQ(std::memcmp(&upper, &plainUpper, 4), 0) << "trial " << trial << " path " << path;
        }
        SetSimdPath(saved);
    }
}

TEST(InitialReps, MultiStartPickMatchesThePlainSearch)
{
    // Few levels and weights clamp many starts to the same end, where the
    // shared steps of the fast search must still tell the pairs apart.
    CompressParams params;
    std::mt19937 random(7);
    std::vector<unsigned char> window(81 * 4);
    std::vector<float> weights(81);
    for (int trial = 0; trial < 1000; ++trial)
    {
        const int levels = 2 + trial % 5;
        for (unsigned char& v : window)
            v = uint8_t(random() % levels * (255 / (levels - 1)));
        for (float& w : weights)
            w = float(random() % 4);
        float axis[4];
        for (float& a : axis)
            a = float(int(random() % 9) - 4) / 4.0f;
        unsigned char plain[8], fast[8];
        SetOptimiserReference(true);
        PickRepsByProjectingPixelsOntoAxis(params, false, true, false, window.data(), weights.data(), 81, axis, -1,
                                           nullptr, plain, plain + 4);
        SetOptimiserReference(false);
        PickRepsByProjectingPixelsOntoAxis(params, false, true, false, window.data(), weights.data(), 81, axis, -1,
                                           nullptr, fast, fast + 4);
        ASSERT_EQ(std::vector<unsigned char>(fast, fast + 8), std::vector<unsigned char>(plain, plain + 8))
            << "trial " << trial;
    }
}

namespace
{

// A 9 x 9 window of one colour and a region whose main axis is red.
struct PaletteWindow
{
    RegionStats region{};
    std::vector<unsigned char> pixels;
    PaletteWindow(const unsigned char (&colour)[4]) : pixels(81 * 4)
    {
        region.AllBox.box.axes[0][0] = 1.0f;
        for (int i = 0; i < 81; ++i)
            std::copy(colour, colour + 4, &pixels[4 * i]);
    }
    void set(int x, int y, const unsigned char (&colour)[4]) { std::copy(colour, colour + 4, &pixels[4 * (y * 9 + x)]); }
    std::vector<std::vector<int>> run(int maximum)
    {
        unsigned char out[5][4];
        const int count = GeneratePaletteEntries(region, pixels.data(), PalettePixels4bpp, 81, maximum, 36, out);
        std::vector<std::vector<int>> entries;
        for (int e = 0; e < count; ++e)
            entries.push_back({out[e][0], out[e][1], out[e][2], out[e][3]});
        return entries;
    }
};

} // namespace

TEST(InitialReps, LocalPalettes)
{
    // One colour: the two starting ends are equal and merge. Opaque entries
    // take the nearest 5-bit levels: 99, 148, 198.
    const unsigned char flat[4] = {100, 150, 200, 255};
    EXPECT_EQ(PaletteWindow(flat).run(5), (std::vector<std::vector<int>>{{99, 148, 198, 255}}));
    // Translucent: 4-bit levels and alpha on multiples of 34; 41 lies midway
    // between 33 and 49, red and green take the upper.
    const unsigned char glass[4] = {41, 41, 41, 100};
    EXPECT_EQ(PaletteWindow(glass).run(5), (std::vector<std::vector<int>>{{49, 49, 33, 102}}));

    // Black in columns 0 to 4, white from 5, one red pixel at (4, 4). The
    // red pixel first pulls black to (8, 0, 0), then becomes an entry of its
    // own. Entries by pixel count: red 1, white 15, black 28 (pixel 20
    // counting 8).
    const unsigned char black[4] = {0, 0, 0, 255}, white[4] = {255, 255, 255, 255}, red[4] = {255, 0, 0, 255};
    PaletteWindow split(black);
    for (int y = 0; y < 9; ++y)
        for (int x = 5; x < 9; ++x)
            split.set(x, y, white);
    EXPECT_EQ(split.run(5), (std::vector<std::vector<int>>{{255, 255, 255, 255}, {0, 0, 0, 255}}));
    split.set(4, 4, red);
    EXPECT_EQ(split.run(3),
              (std::vector<std::vector<int>>{{255, 0, 0, 255}, {255, 255, 255, 255}, {0, 0, 0, 255}}));
    // With two entries at most the red pixel stays in black's mean.
    EXPECT_EQ(split.run(2), (std::vector<std::vector<int>>{{255, 255, 255, 255}, {8, 0, 0, 255}}));

    // Only 4bpp windows are searched.
    EXPECT_EXIT(
        {
            unsigned char out[5][4];
            GeneratePaletteEntries(split.region, split.pixels.data(), PalettePixels4bpp, 80, 5, 36, out);
        },
        testing::ExitedWithCode(0), "");
}

TEST(InitialReps, LocalPalettesMatchThePlainSearch)
{
    // Clusters of a few colours, alphas at 0, 255 and between (the weight of
    // 30 puts some pixels beyond every entry), and every entry limit.
    std::mt19937 random(11);
    RegionStats region{};
    std::vector<unsigned char> window(81 * 4);
    for (int trial = 0; trial < 2000; ++trial)
    {
        unsigned char colours[7][4];
        const int colourCount = 2 + trial % 6;
        for (auto& colour : colours)
        {
            for (int c = 0; c < 3; ++c)
                colour[c] = uint8_t(random());
            const unsigned alpha = random() % 3;
            colour[3] = alpha == 0 ? 0 : alpha == 1 ? 255 : uint8_t(random());
        }
        for (int i = 0; i < 81; ++i)
            for (int c = 0; c < 4; ++c)
                window[4 * i + c] = uint8_t(std::clamp(int(colours[random() % colourCount][c]) +
                                                           (trial % 3 == 0 ? int(random() % 9) - 4 : 0),
                                                       0, 255));
        for (float& a : region.AllBox.box.axes[0])
            a = float(int(random() % 9) - 4) / 4.0f;
        const int maximum = 1 + trial % 5;
        unsigned char plain[5][4] = {}, fast[5][4] = {};
        SetOptimiserReference(true);
        const int plainCount =
            GeneratePaletteEntries(region, window.data(), PalettePixels4bpp, 81, maximum, 36, plain);
        SetOptimiserReference(false);
        const int fastCount = GeneratePaletteEntries(region, window.data(), PalettePixels4bpp, 81, maximum, 36, fast);
        ASSERT_EQ(fastCount, plainCount) << "trial " << trial;
        ASSERT_EQ(std::memcmp(fast, plain, sizeof fast), 0) << "trial " << trial;
    }
}
