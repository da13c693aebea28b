#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "Codecs/ORBTC/ORBTC2bppCompressor.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"
#include "Codecs/ORBTC/ORBTC4bppCompressor.h"
#include "Codecs/ORBTC/ORBTCCompressor.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"

using namespace orbtexture;

namespace
{

typedef Pixel<unsigned char> Px;

Px grey(unsigned char v, unsigned char a = 255) { return Px{v, v, v, a}; }

bool same(const Px& a, const Px& b)
{
    return a.red == b.red && a.green == b.green && a.blue == b.blue && a.alpha == b.alpha;
}

::testing::AssertionResult pixelIs(const Px& actual, int r, int g, int b, int a)
{
    if (actual.red == r && actual.green == g && actual.blue == b && actual.alpha == a)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << int(actual.red) << "," << int(actual.green) << ","
                                         << int(actual.blue) << "," << int(actual.alpha) << ")";
}

class ProcessorCount
{
public:
    explicit ProcessorCount(unsigned int n) { ORBTCSetProcessorCountOverride(n); }
    ~ProcessorCount() { ORBTCSetProcessorCountOverride(0); }
};

} // namespace

TEST(ORBTCCompressorTest, MaxDistanceOrdersByLuminanceThenPackedValue)
{
    std::vector<Px> image(16, grey(0));
    ORBTC4bppCompressor c(image.data(), 4, 4);
    Px a, b;

    const Px flat[3] = {Px{7, 8, 9, 10}, Px{7, 8, 9, 10}, Px{7, 8, 9, 10}};
    c.selectColoursAB_MaxDistance(flat, 3, a, b);
    EXPECT_TRUE(same(a, flat[0]) && same(b, flat[0]));

    // Brighter first in the list: still becomes B.
    const Px byLuma[2] = {Px{200, 200, 200, 255}, Px{10, 10, 10, 255}};
    c.selectColoursAB_MaxDistance(byLuma, 2, a, b);
    EXPECT_TRUE(pixelIs(a, 10, 10, 10, 255));
    EXPECT_TRUE(pixelIs(b, 200, 200, 200, 255));

    // Equal luminance 0: red (0xff000001) is below green (0xff000100).
    const Px equalLuma[2] = {Px{0, 1, 0, 255}, Px{1, 0, 0, 255}};
    c.selectColoursAB_MaxDistance(equalLuma, 2, a, b);
    EXPECT_TRUE(pixelIs(a, 1, 0, 0, 255));
    EXPECT_TRUE(pixelIs(b, 0, 1, 0, 255));

    // Alpha counts in the distance but not in the luminance.
    const Px alphaOnly[3] = {Px{0, 0, 0, 200}, Px{0, 0, 0, 120}, Px{0, 0, 0, 10}};
    c.selectColoursAB_MaxDistance(alphaOnly, 3, a, b);
    EXPECT_TRUE(pixelIs(a, 0, 0, 0, 10));
    EXPECT_TRUE(pixelIs(b, 0, 0, 0, 200));

    // Pairs (0,1) and (0,2) are both at distance 10000: the first one wins.
    const Px tie[3] = {Px{0, 0, 0, 255}, Px{60, 80, 0, 255}, Px{100, 0, 0, 255}};
    c.selectColoursAB_MaxDistance(tie, 3, a, b);
    EXPECT_TRUE(pixelIs(a, 0, 0, 0, 255));
    EXPECT_TRUE(pixelIs(b, 60, 80, 0, 255));
}

TEST(ORBTCCompressorTest, WideSampleWrapsAroundTheImage)
{
    std::vector<Px> image(64, grey(0));
    image[7 * 8 + 7] = grey(255);
    ORBTC4bppCompressor c(image.data(), 8, 8);
    Px a, b;
    c.calculateColoursABForBlock(0, 0, a, b, false);
    EXPECT_TRUE(same(a, grey(0)) && same(b, grey(0)));
    c.calculateColoursABForBlock(0, 0, a, b, true);
    EXPECT_TRUE(same(a, grey(0)));
    EXPECT_TRUE(same(b, grey(255)));
}

TEST(ORBTCCompressorTest, TileCallbacksAndSinglePixelShift)
{
    const Px P = grey(0, 0), Q = grey(16, 16), R = grey(32, 32), S = grey(48, 48);
    Px tile4[16], tile8[32];
    interpolateColours4x4_uint8(P, Q, R, S, tile4);
    interpolateColours8x4_uint8(P, Q, R, S, tile8);
    for (int y = 0; y < 4; ++y)
    {
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(tile4[y * 4 + x].red, 4 * x + 8 * y) << x << "," << y;
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(tile8[y * 8 + x].alpha, 2 * x + 8 * y) << x << "," << y;
    }

    // The single-pixel form shifts by 4 at both widths: exact at 4 x 4,
    // doubled at 8 x 4.
    std::vector<Px> image(64, grey(0));
    ORBTC4bppCompressor c4(image.data(), 8, 8);
    ORBTC2bppCompressor c2(image.data(), 8, 8);
    const Px ten = grey(10, 10);
    Px out;
    c4.interpolateColours(ten, ten, ten, ten, 1, 2, out);
    EXPECT_TRUE(pixelIs(out, 10, 10, 10, 10));
    c2.interpolateColours(ten, ten, ten, ten, 3, 1, out);
    EXPECT_TRUE(pixelIs(out, 20, 20, 20, 20));
}

TEST(ORBTCCompressorTest, UpscaleCentresBlocksAndWrapsEdges)
{
    const unsigned int w = 12, h = 8; // 3 x 2 blocks
    std::vector<Px> image(w * h, grey(0));
    ORBTC4bppCompressor c(image.data(), w, h);
    for (unsigned int i = 0; i < 6; ++i)
        c.coloursA[i] = Px{static_cast<unsigned char>(40 * i), static_cast<unsigned char>(250 - 40 * i), 7, 255};
    std::fill(c.interpolatedA.begin(), c.interpolatedA.end(), Px{1, 2, 3, 4});
    c.interpolateColoursAB(interpolateColours4x4_uint8, c.coloursA.data(), c.interpolatedA.data());

    for (const Px& p : c.interpolatedA)
        EXPECT_FALSE(pixelIs(p, 1, 2, 3, 4)) << "pixel left unwritten";
    for (unsigned int by = 0; by < 2; ++by)
        for (unsigned int bx = 0; bx < 3; ++bx)
            EXPECT_TRUE(same(c.interpolatedA[(by * 4 + 2) * w + bx * 4 + 2], c.coloursA[by * 3 + bx]));

    // Pixel (0, 0) is tile pixel (2, 2) of the tile that starts at the centre
    // of the bottom-right block.
    Px tile[16];
    interpolateColours4x4_uint8(c.coloursA[5], c.coloursA[3], c.coloursA[2], c.coloursA[0], tile);
    EXPECT_TRUE(same(c.interpolatedA[0], tile[2 * 4 + 2]));
}

TEST(ORBTCBlockDataTest, ColourFormsAtAlpha255And254)
{
    ORBTCBlockData word{0u, 0x00000001u};
    word.setColourA(Px{0xff, 0x80, 0x3f, 255});
    EXPECT_EQ(word.colourData, 0x0000fe07u);
    word.setColourB(Px{0xff, 0x80, 0x3f, 254});
    EXPECT_EQ(word.colourData, 0x7f83fe07u);
    word.setColourA(Px{0xff, 0x80, 0x3f, 254});
    EXPECT_EQ(word.colourData, 0x7f837f83u);
    word.setColourB(Px{0xff, 0x80, 0x3f, 255});
    EXPECT_EQ(word.colourData, 0xfe077f83u);
    EXPECT_TRUE(pixelIs(word.getColourA(), 31, 17, 4, 14));
    EXPECT_TRUE(pixelIs(word.getColourB(), 31, 16, 7, 15));
    word.setColourA(Px{0xff, 0x80, 0x3f, 255});
    word.setColourB(Px{0xff, 0x80, 0x3f, 254});
    EXPECT_TRUE(pixelIs(word.getColourA(), 31, 16, 6, 15));
    EXPECT_TRUE(pixelIs(word.getColourB(), 31, 17, 6, 14));

    word.modulationData = 0xffffffffu;
    word.storeModulationValue4BPP(3, 2, 1);
    EXPECT_EQ(word.modulationData, 0xff7fffffu);
}

TEST(ORBTCMultiThreadedCompressorTest, SectionCutByProcessorCount)
{
    std::vector<Px> image(64 * 64, grey(0));
    ORBTC4bppCompressor grid16(image.data(), 64, 64);
    ORBTC4bppCompressor grid8(image.data(), 32, 32);
    ORBTC4bppCompressor grid2(image.data(), 8, 8);
    std::vector<ORBTCCompressorBlock> sections;
    auto spans = [&sections]() {
        std::vector<unsigned int> v;
        for (const ORBTCCompressorBlock& s : sections)
            v.insert(v.end(), {s.xStart, s.xEnd, s.yStart, s.yEnd});
        return v;
    };

    {
        ProcessorCount one(1);
        ORBTCMultiThreadedCompressor driver(&grid16, 64);
        EXPECT_EQ(driver.numberOfThreads, 1u);
        driver.getSections(sections);
        EXPECT_EQ(spans(), (std::vector<unsigned int>{0, 16, 0, 16}));
    }
    {
        ProcessorCount four(4);
        ORBTCMultiThreadedCompressor driver(&grid16, 64);
        driver.getSections(sections);
        EXPECT_EQ(spans(), (std::vector<unsigned int>{0, 8, 0, 8, 8, 16, 0, 8, 0, 8, 8, 16, 8, 16, 8, 16}));
    }
    {
        ProcessorCount six(6);
        ORBTCMultiThreadedCompressor driver(&grid8, 64);
        driver.getSections(sections);
        // Two across, three down of height 2: rows 6 and 7 are in no section.
        EXPECT_EQ(spans(), (std::vector<unsigned int>{0, 4, 0, 2, 4, 8, 0, 2, 0, 4, 2, 4, 4, 8, 2, 4, 0, 4, 4, 6,
                                                      4, 8, 4, 6}));
    }
    {
        ProcessorCount many(1000);
        EXPECT_EQ(ORBTCMultiThreadedCompressor(&grid2, 64).numberOfThreads, 4u);
        EXPECT_EQ(ORBTCMultiThreadedCompressor(&grid16, 64).numberOfThreads, 64u);
    }
}

TEST(ORBTCMultiThreadedCompressorTest, SectionCutRoundsDownAndDropsCountsAboveTheGrid)
{
    std::vector<Px> image(32 * 32, grey(0));
    auto cut = [&image](unsigned int processors, unsigned int width, unsigned int height) {
        ProcessorCount count(processors);
        ORBTC4bppCompressor c(image.data(), width, height);
        ORBTCMultiThreadedCompressor driver(&c, 64);
        std::vector<ORBTCCompressorBlock> sections;
        driver.getSections(sections);
        std::vector<unsigned int> v;
        for (const ORBTCCompressorBlock& s : sections)
            v.insert(v.end(), {s.xStart, s.xEnd, s.yStart, s.yEnd});
        return v;
    };
    typedef std::vector<unsigned int> Spans;

    // 5 x 7 blocks in 2 x 2 sections of 2 x 3: column 4 and row 6 are in none.
    EXPECT_EQ(cut(4, 20, 28), (Spans{0, 2, 0, 3, 2, 4, 0, 3, 0, 2, 3, 6, 2, 4, 3, 6}));
    // Two sections across fit 2 block columns, not 1.
    EXPECT_EQ(cut(4, 8, 32), (Spans{0, 1, 0, 4, 1, 2, 0, 4, 0, 1, 4, 8, 1, 2, 4, 8}));
    EXPECT_EQ(cut(4, 4, 32), (Spans{0, 1, 0, 4, 0, 1, 4, 8}));
    // Three sections down fit 3 block rows, not 2.
    EXPECT_EQ(cut(6, 32, 12), (Spans{0, 4, 0, 1, 4, 8, 0, 1, 0, 4, 1, 2, 4, 8, 1, 2, 0, 4, 2, 3, 4, 8, 2, 3}));
    EXPECT_EQ(cut(6, 32, 8), (Spans{0, 4, 0, 2, 4, 8, 0, 2}));
}

TEST(ORBTCMultiThreadedCompressorTest, BlocksOutsideEverySectionKeepPreprocessedState)
{
    ProcessorCount six(6);
    std::vector<Px> image(32 * 32);
    for (unsigned int y = 0; y < 32; ++y)
        for (unsigned int x = 0; x < 32; ++x)
            image[y * 32 + x] = Px{static_cast<unsigned char>(x * 8), static_cast<unsigned char>(y * 8),
                                   static_cast<unsigned char>((x * y) & 0xff), 255};
    ORBTC4bppCompressor c(image.data(), 32, 32);
    c.iterations = 8;
    ORBTCMultiThreadedCompressor driver(&c, 64);
    driver.preprocess(true);
    const std::vector<Px> beforeA = c.coloursA, beforeB = c.coloursB;
    driver.compress();

    bool optimisedChanged = false;
    for (unsigned int i = 0; i < 64; ++i)
    {
        const bool unchanged = same(beforeA[i], c.coloursA[i]) && same(beforeB[i], c.coloursB[i]);
        if (i >= 48)
            EXPECT_TRUE(unchanged) << "block " << i;
        else
            optimisedChanged |= !unchanged;
    }
    EXPECT_TRUE(optimisedChanged);
}

TEST(ORBTCMultiThreadedCompressorTest, EntryReturnsSizesAndWritesTwiddledWords)
{
    ProcessorCount one(1);
    // 4 x 8 blocks; each block one flat colour.
    const unsigned int w = 16, h = 32;
    std::vector<Px> image(w * h);
    for (unsigned int y = 0; y < h; ++y)
        for (unsigned int x = 0; x < w; ++x)
            image[y * w + x] = Px{static_cast<unsigned char>((x / 4) * 64), static_cast<unsigned char>((y / 4) * 32),
                                  0, 255};
    std::vector<ORBTCWord> words(32);
    EXPECT_EQ(orbtcCompressMW(image.data(), words.data(), w, h, false, false, false, 0), w * h / 2);
    for (unsigned int by = 0; by < 8; ++by)
        for (unsigned int bx = 0; bx < 4; ++bx)
        {
            const ORBTCWord& word = words[ORBTCTwiddleIndex(4, 8, bx, by)];
            const uint32_t colourA = ((bx * 64) >> 3) << 10 | ((by * 32) >> 3) << 5;
            EXPECT_EQ(word.colourData & 0xfffeu, 0x8000u | colourA) << bx << "," << by;
        }

    std::vector<ORBTCWord> words2(16);
    EXPECT_EQ(orbtcCompressMW(image.data(), words2.data(), w, h, false, true, true, 8), w * h / 4);
}
