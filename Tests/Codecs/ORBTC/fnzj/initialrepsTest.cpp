// Oriented boxes, the word's colour grid and the best pairs for one colour,
// checked against their definitions.

#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"

using namespace orbtexture;

namespace
{

std::vector<int> Grid(int bits)
{
    std::vector<int> values;
    for (int x = 0; x < (1 << bits); ++x)
    {
        int five = bits == 5 ? x : bits == 4 ? (x << 1 | x >> 3) : (x << 2 | x >> 1);
        values.push_back(five << 3 | five >> 2);
    }
    return values;
}

int Mix(int a, int b, int w)
{
    return ((8 - w) * a + w * b) >> 3;
}

const int kWeights[8] = {0, 3, 4, 5, 8, 3, 4, 5};

} // namespace

TEST(InitialReps, GridMappingTakesTheNearestLevel)
{
    unsigned char a[4], b[4];
    // Opaque: A red and green 5 bits, blue 4; B 5 bits. Translucent (gen 1,
    // alpha 100): A 4, 4, 3; B 4. Every chosen level is as near as any.
    struct Form
    {
        float alpha;
        int bitsA[3], bitsB;
    };
    for (const Form& form : {Form{255.0f, {5, 5, 4}, 5}, Form{100.0f, {4, 4, 3}, 4}})
        for (float v = 0.0f; v <= 256.0f; v += 0.25f)
        {
            const float colour[4] = {v, v, v, form.alpha};
            MapToRepresentableColours(false, colour, colour, a, b);
            for (int c = 0; c < 3; ++c)
            {
                for (int g : Grid(form.bitsA[c]))
                    ASSERT_LE(std::fabs(std::min(v, 255.0f) - a[c]), std::fabs(std::min(v, 255.0f) - g) + 1e-4f)
                        << "A " << v << " channel " << c;
                for (int g : Grid(form.bitsB))
                    ASSERT_LE(std::fabs(std::min(v, 255.0f) - b[c]), std::fabs(std::min(v, 255.0f) - g) + 1e-4f)
                        << "B " << v << " channel " << c;
            }
        }

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
}

TEST(InitialReps, AlphaRulesOfBothGenerations)
{
    unsigned char a[4], b[4];
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
    // The integer form is the float form on 8-bit inputs.
    const unsigned char ia[4] = {10, 200, 77, 250}, ib[4] = {128, 3, 255, 240};
    const float fa[4] = {10, 200, 77, 250}, fb[4] = {128, 3, 255, 240};
    unsigned char ja[4], jb[4];
    MapToRepresentableColoursInt(false, ia, ib, a, b);
    MapToRepresentableColours(false, fa, fb, ja, jb);
    EXPECT_EQ(std::vector<unsigned char>(a, a + 4), std::vector<unsigned char>(ja, ja + 4));
    EXPECT_EQ(std::vector<unsigned char>(b, b + 4), std::vector<unsigned char>(jb, jb + 4));
}

TEST(InitialReps, BestMatchTablesHoldLeastErrorPairsWithinTheirLimits)
{
    struct Rule
    {
        const BestMatchTable& table;
        std::vector<int> a, b;
        int kind; // 0 ordered, 1 absolute, 2 ordered or B opaque
        int near, wide;
    };
    std::vector<int> alphaA, alphaB1, alphaB2;
    for (int k = 0; k < 8; ++k)
    {
        alphaA.push_back(34 * k);
        alphaB1.push_back(34 * k);
        alphaB2.push_back(17 + 34 * k);
    }
    alphaB1.push_back(255);
    const Rule rules[] = {{BestMatches_RGB_5_5(), Grid(5), Grid(5), 0, 9, 25},
                          {BestMatches_RGB_4_5(), Grid(4), Grid(5), 1, 9, 25},
                          {BestMatches_RGB_4_4(), Grid(4), Grid(4), 0, 9, 25},
                          {BestMatches_RGB_3_5(), Grid(3), Grid(5), 1, 9, 25},
                          {BestMatches_RGB_3_4(), Grid(3), Grid(4), 1, 9, 25},
                          {BestMatches_Alpha_TC1_3_3(), alphaA, alphaB1, 1, 17, 34},
                          {BestMatches_Alpha_TC2_3_3(), alphaA, alphaB2, 1, 34, 51}};
    auto allowed = [](const Rule& rule, int s, int a, int b) {
        if (s == 0 || s == 4)
            return true;
        const int reach = s < 4 ? rule.near : rule.wide;
        if (rule.kind == 0)
            return a <= b && b - a <= reach;
        if (&rule.table == &BestMatches_Alpha_TC1_3_3() && s > 4)
            return a <= b && (b - a <= reach || b == 255);
        return std::abs(a - b) <= reach;
    };
    for (const Rule& rule : rules)
        for (int v = 0; v < 256; v += 5)
            for (int s = 0; s < 8; ++s)
            {
                const BestMatch entry = rule.table[v][s];
                const int d = v - Mix(entry.a, entry.b, kWeights[s]);
                ASSERT_EQ(entry.error, std::min(d * d, 255)) << v << " " << s;
                ASSERT_TRUE(std::count(rule.a.begin(), rule.a.end(), entry.a) &&
                            std::count(rule.b.begin(), rule.b.end(), entry.b) && allowed(rule, s, entry.a, entry.b))
                    << v << " " << s << " pair " << int(entry.a) << ", " << int(entry.b);
                for (int a : rule.a)
                    for (int b : rule.b)
                        if (allowed(rule, s, a, b))
                        {
                            const int e = v - Mix(a, b, kWeights[s]);
                            ASSERT_GE(std::min(e * e, 255), entry.error) << v << " " << s;
                        }
            }
    // 128 at weight 5 of 8: (3 x 123 + 5 x 132) / 8 = 128 exactly.
    EXPECT_EQ(BestMatches_RGB_5_5()[128][3].error, 0);
}

TEST(InitialReps, SingleColourPairsReproduceColoursOnTheGrid)
{
    // A colour the form holds exactly decodes back at one of the weights with
    // no error. Opaque (alpha from 248): A red and green of 5 bits, blue of
    // 4 (123, 132 and 66 are on those grids); translucent: 4, 4 and 3 bits
    // (16, 66 and 33) with alpha on multiples of 34.
    struct Case
    {
        unsigned char colour[4];
        bool punchThrough, generation2;
    };
    const Case cases[] = {{{123, 132, 66, 255}, false, false}, {{8, 255, 0, 250}, true, false},
                          {{16, 66, 33, 136}, false, false},   {{16, 66, 33, 136}, false, true},
                          {{255, 0, 148, 0}, true, false},     {{33, 33, 33, 255}, true, true}};
    for (const Case& c : cases)
        for (bool preferSwap : {false, true})
        {
            unsigned char a[4], b[4];
            GetSingleColourBestMatchReps(c.colour, c.punchThrough, c.generation2, preferSwap, a, b, nullptr);
            const int target[4] = {c.colour[0], c.colour[1], c.colour[2], c.colour[3] >= 248 ? 255 : c.colour[3]};
            int least = 1 << 30;
            for (int w : {0, 3, 4, 5, 8})
            {
                int error = 0;
                for (int ch = 0; ch < 4; ++ch)
                {
                    const int d = target[ch] - Mix(a[ch], b[ch], w);
                    error += d * d;
                }
                least = std::min(least, error);
            }
            EXPECT_EQ(least, 0) << int(c.colour[0]) << " preferSwap " << preferSwap;
        }

    // Opaque colours keep both alphas 255.
    unsigned char a[4], b[4];
    const unsigned char grey[4] = {90, 90, 90, 255};
    GetSingleColourBestMatchReps(grey, false, false, true, a, b, nullptr);
    EXPECT_EQ(a[3], 255);
    EXPECT_EQ(b[3], 255);
    // Alpha 247 in generation 1: weight 5 of 8 on (238, 255) gives 248 and
    // wins, so B comes out opaque and the pair is chosen again with B on 5
    // bits (90 is not on the 4-bit grid of the first choice).
    const unsigned char nearlyOpaque[4] = {90, 90, 90, 247};
    GetSingleColourBestMatchReps(nearlyOpaque, false, false, true, a, b, nullptr);
    EXPECT_EQ(b[3], 255);
    const std::vector<int> five = Grid(5);
    EXPECT_EQ(std::count(five.begin(), five.end(), b[0]), 1) << int(b[0]);
}

TEST(InitialReps, OrientedBoxes)
{
    const float diagonal[4][4] = {{0.5f, 0.5f, 0.5f, 0.5f}, {0.5f, -0.5f, 0.5f, -0.5f}, {0.5f, 0.5f, -0.5f, -0.5f},
                                  {0.5f, -0.5f, -0.5f, 0.5f}};
    OrientedBBox box;
    InitOrientedBBox(box, diagonal);
    EXPECT_TRUE(OrientedBBoxIsEmpty(box));
    const unsigned char dark[4] = {0, 0, 0, 0}, light[4] = {100, 100, 100, 100};
    AddIColourToOrientedBBox(box, dark);
    AddIColourToOrientedBBox(box, light);
    EXPECT_FALSE(OrientedBBoxIsEmpty(box));
    EXPECT_FLOAT_EQ(box.maximum[0], 200.0f);
    EXPECT_FLOAT_EQ(SizeOfOrientedBBox(box), 200.0f);
    // (0, 100, 0, 0) projects to 50, -50, 50, -50: clamped to 50, 0, 0, 0 it
    // becomes (25, 25, 25, 25).
    float off[4] = {0, 100, 0, 0};
    ClampToOrientedBBox(box, off);
    for (float v : off)
        EXPECT_NEAR(v, 25.0f, 1e-5f);
    float inside[4] = {40, 40, 40, 40};
    ClampToOrientedBBox(box, inside);
    EXPECT_EQ(inside[0], 40.0f);
    // Offsetting by a colour moves both bounds by its projection.
    OffsetOrientedBBox(box, light);
    EXPECT_FLOAT_EQ(box.minimum[0], 200.0f);
    EXPECT_FLOAT_EQ(box.maximum[0], 400.0f);
    const unsigned char colour[4] = {1, 2, 3, 4};
    InitOrientedBBoxToSingleColour(box, colour);
    EXPECT_FLOAT_EQ(box.minimum[2], 3.0f);
    EXPECT_FLOAT_EQ(box.maximum[3], 4.0f);
    EXPECT_FLOAT_EQ(SizeOfOrientedBBox(box), 0.0f);
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
