// The block compressors of both generations, the section compressor, and
// the drivers that cut their work by the processor count.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Codecs/ORBTC/ORBTC2SectionCompress.h"
#include "Codecs/ORBTC/ORBTC2bppCompressor.h"
#include "Codecs/ORBTC/ORBTC4bppCompressor.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCII4bppCompressor.h"
#include "Codecs/ORBTC/ORBTCIIMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Support/TestPictures.h"

using namespace orbtexture;

namespace
{

typedef Pixel<unsigned char> Px;

Px rgba(int r, int g, int b, int a = 255)
{
    return Px{static_cast<unsigned char>(r), static_cast<unsigned char>(g), static_cast<unsigned char>(b),
              static_cast<unsigned char>(a)};
}

Px grey(unsigned char v, unsigned char a = 255) { return Px{v, v, v, a}; }

::testing::AssertionResult same(const Px& actual, const Px& expected)
{
    if (actual.red == expected.red && actual.green == expected.green && actual.blue == expected.blue &&
        actual.alpha == expected.alpha)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << int(actual.red) << "," << int(actual.green) << ","
                                         << int(actual.blue) << "," << int(actual.alpha) << ")";
}

// Flat colours A and B over the whole image, upscaled.
template <class C>
void setFlatColours(C& c, const Px& a, const Px& b)
{
    std::fill(c.coloursA.begin(), c.coloursA.end(), a);
    std::fill(c.coloursB.begin(), c.coloursB.end(), b);
    c.interpolateColoursAB();
}

class ProcessorCount
{
public:
    explicit ProcessorCount(unsigned int n) { ORBTCSetProcessorCountOverride(n); }
    ~ProcessorCount() { ORBTCSetProcessorCountOverride(0); }
};

// An image of flat 4 x 4 (or 8 x 4) blocks, one colour per block, row order.
std::vector<Px> flatBlocks(unsigned int blocksX, unsigned int blocksY, unsigned int blockWidth,
                           const std::vector<Px>& colours)
{
    const unsigned int w = blocksX * blockWidth;
    std::vector<Px> image(size_t(w) * blocksY * 4);
    for (size_t i = 0; i < image.size(); ++i)
        image[i] = colours[(i / w / 4) * blocksX + (i % w) / blockWidth];
    return image;
}

std::vector<unsigned char> hardFlagsOf(const std::vector<Px>& image, unsigned int w, unsigned int h)
{
    ORBTCII4bppCompressor c(image.data(), w, h);
    c.calculateColoursAB(false);
    return c.hardFlags;
}

// Smooth ramps with a step, so that the passes move colours everywhere.
std::vector<Px> ramps(unsigned int w, unsigned int h)
{
    std::vector<Px> image(size_t(w) * h);
    for (unsigned int y = 0; y < h; ++y)
        for (unsigned int x = 0; x < w; ++x)
            image[y * w + x] = rgba(x * 255 / w, y * 255 / h, x < w / 2 ? 40 : 200, 255 - (x + y) % 64);
    return image;
}

// Codes 0 to 3 of a 4bpp modulation word, pixel i at bits 2i.
std::vector<int> codesOf(uint32_t modulation)
{
    std::vector<int> codes(16);
    for (int i = 0; i < 16; ++i)
        codes[i] = int(modulation >> (2 * i)) & 3;
    return codes;
}

} // namespace

TEST(ORBTCBlockCompressorTest, FourBppModeDecisionAndPunchthroughPreview)
{
    std::vector<Px> image(16, grey(0));
    image[5] = grey(255);
    ORBTC4bppCompressor c(image.data(), 4, 4);
    EXPECT_EQ(c.blockInfo[0].modeWeights[0], 1);
    EXPECT_EQ(c.blockInfo[0].modeWeights[1], 1);
    setFlatColours(c, grey(0), grey(255));

    // Both modes reproduce 0 and 255 exactly: the tie keeps standard.
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeStandard);
    EXPECT_EQ(c.blockInfo[0].codes[0][5], 3);

    // 128 is 33 or 31 away from the standard levels 95 and 159, and 1 from
    // the punch-through half-way 127.
    c.pixels[6] = grey(128);
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModePunchthrough);
    EXPECT_EQ(c.blockInfo[0].codes[0][6], 2);
    EXPECT_EQ(c.blockInfo[0].codes[1][6], 1);

    // A transparent pixel picks the alpha-0 code, yet the preview keeps alpha.
    c.pixels[7] = Px{128, 128, 128, 0};
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].codes[1][7], 2);
    Px preview[16];
    c.decompressORBTCBlock(0, 0, preview, eORBTCModePunchthrough);
    EXPECT_TRUE(same(preview[7], rgba(127, 127, 127, 255)));
    c.decompressORBTCBlock(0, 0, preview, eORBTCMode(2));
    EXPECT_TRUE(same(preview[0], rgba(255, 0, 0, 255)));

    std::vector<ORBTCBlockData> word(1);
    c.getCompressedData(word.data(), false);
    EXPECT_EQ(word[0].colourData & 1u, 1u);
    EXPECT_EQ(word[0].modulationData, (3u << 10) | (1u << 12) | (2u << 14));
}

TEST(ORBTCBlockCompressorTest, TwoBppModeWeightsFavourInterpolation)
{
    // Stored places 20, the others 40: one-bit and full interpolation make
    // the same error, the preview's "+2" makes number 2 better than both.
    std::vector<Px> image(32);
    for (unsigned int y = 0; y < 4; ++y)
        for (unsigned int x = 0; x < 8; ++x)
            image[y * 8 + x] = grey(((x ^ y) & 1) ? 40 : 20);
    ORBTC2bppCompressor c(image.data(), 8, 4);
    setFlatColours(c, grey(0), grey(255));

    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeInterpolated);

    std::fill(c.blockInfo[0].modeWeights, c.blockInfo[0].modeWeights + 4, 1);
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeHorizontalOnly);
    // Black is exact in every mode: the tie keeps the first.
    std::fill(c.pixels.begin(), c.pixels.end(), grey(0));
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCMode1BPP);

    // Number 2 fills from above and below, number 3 from left and right.
    unsigned char values[32];
    c.blockInfo[0].twoBitCodes[1 * 8 + 1] = 3;
    c.getModulationValues(0, 0, eORBTCModeHorizontalOnly, values);
    EXPECT_EQ(values[0 * 8 + 1], 10); // one neighbour, still + 2
    EXPECT_EQ(values[2 * 8 + 1], 5);
    EXPECT_EQ(values[1 * 8 + 0], 1);  // (0 + 0 + 2) / 2
    c.getModulationValues(0, 0, eORBTCModeVerticalOnly, values);
    EXPECT_EQ(values[1 * 8 + 0], 9);
    EXPECT_EQ(values[1 * 8 + 2], 4);
    c.getModulationValues(0, 0, eORBTCModeInterpolated, values);
    EXPECT_EQ(values[0 * 8 + 1], 3); // (8 + 0 + 0 + 1) / 3
    EXPECT_EQ(values[2 * 8 + 1], 2); // (8 + 0 + 0 + 0 + 2) / 4
}

TEST(ORBTCBlockCompressorTest, TwoBppWordCarriesSubModeBits)
{
    std::vector<Px> image(32, grey(0));
    ORBTC2bppCompressor c(image.data(), 8, 4);
    ORBTC2bppCompressor::BlockInfo& info = c.blockInfo[0];
    std::vector<ORBTCBlockData> word(1);
    auto encode = [&](unsigned char mode) {
        info.mode = mode;
        c.getCompressedData(word.data(), false);
        return word[0].modulationData;
    };

    info.oneBitCodes[0] = 3;
    info.oneBitCodes[31] = 3;
    info.oneBitCodes[12] = 0;
    EXPECT_EQ(encode(0), 0x80000001u);
    EXPECT_EQ(word[0].colourData & 1u, 0u);

    for (unsigned int y = 0; y < 4; ++y)
        for (unsigned int x = y & 1; x < 8; x += 2)
            info.twoBitCodes[y * 8 + x] = 3;
    EXPECT_EQ(encode(1), 0xfffffffeu);
    EXPECT_EQ(word[0].colourData & 1u, 1u);
    EXPECT_EQ(encode(2), 0xffefffffu);
    EXPECT_EQ(encode(3), 0xffffffffu);

    std::fill(info.twoBitCodes, info.twoBitCodes + 32, 0);
    info.twoBitCodes[1 * 8 + 5] = 2; // stored place 2 of row 1: bit 12
    EXPECT_EQ(encode(1), 0x00002000u);
    EXPECT_EQ(encode(2), 0x00002001u);
    EXPECT_EQ(encode(3), 0x00102001u);
    EXPECT_EQ(encode(7), 0u);
    EXPECT_EQ(word[0].colourData & 1u, 0u);
}

TEST(ORBTCCompressorTest, MaxDistanceOrdersByLuminanceThenPackedValue)
{
    std::vector<Px> image(16, grey(0));
    ORBTC4bppCompressor c(image.data(), 4, 4);
    struct Case
    {
        Px list[3];
        int count;
        Px a, b;
    };
    // One colour; the brighter first in the list still becomes B; at equal
    // luminance red (0xff000001) is below green (0xff000100); alpha counts in
    // the distance but not in the luminance; of pairs (0,1) and (0,2), both at
    // distance 10000, the first wins.
    const Px one{7, 8, 9, 10}, red{1, 0, 0, 255}, green{0, 1, 0, 255}, clear{0, 0, 0, 10}, half{0, 0, 0, 200};
    const Case cases[] = {{{one, one, one}, 3, one, one},
                          {{grey(200), grey(10)}, 2, grey(10), grey(200)},
                          {{green, red}, 2, red, green},
                          {{half, Px{0, 0, 0, 120}, clear}, 3, clear, half},
                          {{grey(0), Px{60, 80, 0, 255}, Px{100, 0, 0, 255}}, 3, grey(0), Px{60, 80, 0, 255}}};
    for (const Case& k : cases)
    {
        Px a, b;
        c.selectColoursAB_MaxDistance(k.list, k.count, a, b);
        EXPECT_TRUE(same(a, k.a) && same(b, k.b)) << &k - cases;
    }
}

TEST(ORBTCMultiThreadedCompressorTest, SectionCutByProcessorCount)
{
    std::vector<Px> image(64 * 64, grey(0));
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

    EXPECT_EQ(cut(1, 64, 64), (Spans{0, 16, 0, 16}));
    EXPECT_EQ(cut(4, 64, 64), (Spans{0, 8, 0, 8, 8, 16, 0, 8, 0, 8, 8, 16, 8, 16, 8, 16}));
    // Two across, three down of height 2: rows 6 and 7 are in no section.
    EXPECT_EQ(cut(6, 32, 32), (Spans{0, 4, 0, 2, 4, 8, 0, 2, 0, 4, 2, 4, 4, 8, 2, 4, 0, 4, 4, 6, 4, 8, 4, 6}));
    // 5 x 7 blocks in 2 x 2 sections of 2 x 3: column 4 and row 6 are in none.
    EXPECT_EQ(cut(4, 20, 28), (Spans{0, 2, 0, 3, 2, 4, 0, 3, 0, 2, 3, 6, 2, 4, 3, 6}));
    // Two sections across fit 2 block columns, not 1; three down fit 3 rows, not 2.
    EXPECT_EQ(cut(4, 8, 32), (Spans{0, 1, 0, 4, 1, 2, 0, 4, 0, 1, 4, 8, 1, 2, 4, 8}));
    EXPECT_EQ(cut(4, 4, 32), (Spans{0, 1, 0, 4, 0, 1, 4, 8}));
    EXPECT_EQ(cut(6, 32, 12), (Spans{0, 4, 0, 1, 4, 8, 0, 1, 0, 4, 1, 2, 4, 8, 1, 2, 0, 4, 2, 3, 4, 8, 2, 3}));
    EXPECT_EQ(cut(6, 32, 8), (Spans{0, 4, 0, 2, 4, 8, 0, 2}));

    // At most the requested threads and one a block.
    ProcessorCount many(1000);
    ORBTC4bppCompressor grid2(image.data(), 8, 8), grid16(image.data(), 64, 64);
    EXPECT_EQ(ORBTCMultiThreadedCompressor(&grid2, 64).numberOfThreads, 4u);
    EXPECT_EQ(ORBTCMultiThreadedCompressor(&grid16, 64).numberOfThreads, 64u);
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

TEST(ORBTCIICompressorTest, HardFlagsMarkJumpsAgainstTheRightAndLowerNeighbour)
{
    const Px k = rgba(0, 0, 0), r = rgba(64, 0, 0);
    // Flat blocks (limit 4095) in a 3 x 3 grid, r 4096 away from k at (2, 1):
    // hard are (1, 1) on its left, (2, 0) above it, and r itself, whose right
    // neighbour wraps to (0, 1).
    const std::vector<Px> grid = flatBlocks(3, 3, 4, {k, k, k, k, k, r, k, k, k});
    EXPECT_EQ(hardFlagsOf(grid, 12, 12), (std::vector<unsigned char>{0, 0, 1, 0, 1, 1, 0, 0, 0}));
    // 4095 away is no jump.
    const Px near = rgba(63, 11, 2, 254);
    EXPECT_EQ(hardFlagsOf(flatBlocks(3, 3, 4, {k, k, k, k, k, near, k, k, k}), 12, 12),
              (std::vector<unsigned char>(9, 0)));
    // One colour, and a single block that is its own neighbour.
    EXPECT_EQ(hardFlagsOf(flatBlocks(3, 3, 4, std::vector<Px>(9, r)), 12, 12), (std::vector<unsigned char>(9, 0)));
    std::vector<Px> single(16, k);
    single[5] = rgba(255, 255, 255);
    EXPECT_EQ(hardFlagsOf(single, 4, 4), (std::vector<unsigned char>{0}));

    // The words carry the flags in bit 15.
    ORBTCII4bppCompressor c(grid.data(), 12, 12);
    c.preprocess(false);
    std::vector<ORBTCIIBlockData> words(9);
    c.getCompressedData(words.data());
    for (size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ((words[i].colourData >> 15) & 1u, c.hardFlags[i]) << i;
}

TEST(ORBTCIICompressorTest, HardFlagLimitIsAQuarterOfAWideBlockAndNeedsBothColoursToJump)
{
    // Block 0 is half black, half white (A black, B white): limit 195075 >> 2.
    // The grey block beside it is 48387 from white and 49152 from black: only
    // one colour passes the limit, so block 0 stays soft; the grey block's own
    // limit is 4095, so it is hard.
    std::vector<Px> image = flatBlocks(2, 1, 4, {rgba(0, 0, 0), rgba(128, 128, 128)});
    for (unsigned int y = 0; y < 4; ++y)
        image[y * 8 + 2] = image[y * 8 + 3] = rgba(255, 255, 255);
    EXPECT_EQ(hardFlagsOf(image, 8, 4), (std::vector<unsigned char>{0, 1}));

    // Own range 16384 exactly: limit 4096; a neighbour 4096 from both colours
    // is no jump, 4097 is.
    for (int green : {0, 1})
    {
        image = flatBlocks(2, 1, 4, {rgba(0, 0, 0), rgba(64, green, 0)});
        for (unsigned int y = 0; y < 4; ++y)
            image[y * 8] = rgba(128, 0, 0);
        EXPECT_EQ(hardFlagsOf(image, 8, 4)[0], green);
    }
}

TEST(ORBTCIIMultiThreadedCompressorTest, SixtyFourSectionsOnEveryMachine)
{
    const std::vector<Px> image = ramps(80, 56);
    ORBTCII4bppCompressor c(image.data(), 16, 64);
    {
        ProcessorCount one(1);
        ORBTCIIMultiThreadedCompressor driver(&c, 64);
        EXPECT_EQ(driver.numberOfThreads, 64u);
        // 4 x 16 blocks: fewer than 8 across gives one section across.
        std::vector<ORBTCCompressorBlock> sections;
        driver.getSections(sections);
        ASSERT_EQ(sections.size(), 8u);
        EXPECT_EQ(sections[7].xEnd, 4u);
        EXPECT_EQ(sections[7].yStart, 14u);
        EXPECT_EQ(sections[7].yEnd, 16u);
        driver.calculateNumberOfThreads();
        EXPECT_EQ(driver.numberOfThreads, 0u);
    }

    // 10 x 14 blocks: the cut of 64 leaves columns 8 and 9 and rows 8 to 13
    // out, a cut of 1 nothing, of 8 (2 x 4) rows 12 and 13.
    std::vector<unsigned char> bytes[2];
    const unsigned int counts[2] = {1, 8};
    for (int i = 0; i < 2; ++i)
    {
        ProcessorCount count(counts[i]);
        for (bool twoBpp : {false, true})
        {
            std::vector<unsigned char> words(40 * 56 / 2);
            orbtc2Compress(const_cast<Px*>(image.data()), words.data(), twoBpp ? 80 : 40, 56, false, true, twoBpp, 8);
            bytes[i].insert(bytes[i].end(), words.begin(), words.end());
        }
    }
    EXPECT_EQ(bytes[0], bytes[1]);
}

TEST(ORBTCIISectionCompressTest, OneColourBlocks)
{
    // Opaque: modulation 0, both colours the same, hard, opaque form.
    std::vector<Px> image(8 * 8, rgba(200, 100, 50));
    std::vector<ORBTCIIBlockData> words(4);
    EXPECT_EQ(ORBTC2SectionCompress(image.data(), words.data(), 8, 8), 1);
    const uint32_t colour =
        0x80000000u | 0x8000u | (25u << 26 | 12u << 21 | 6u << 16) | (25u << 10 | 12u << 5 | 3u << 1);
    for (const ORBTCIIBlockData& word : words)
    {
        EXPECT_EQ(word.modulationData, 0u);
        EXPECT_EQ(word.colourData, colour);
    }

    // Alpha 0 and 255 of one RGB are one colour, stored opaque even where the
    // transparent pixel comes first, with punch-through codes and no hard flag.
    image.assign(4 * 4, rgba(200, 100, 50, 255));
    image[0] = image[9] = rgba(200, 100, 50, 0);
    Px colours[2];
    EXPECT_EQ(countColours(image.data(), colours), 1);
    EXPECT_TRUE(hasBlockPThrough(image.data()));
    ORBTC2SectionCompress(image.data(), words.data(), 4, 4);
    std::vector<int> expected(16, 1);
    expected[0] = expected[9] = 2;
    EXPECT_EQ(codesOf(words[0].modulationData), expected);
    EXPECT_EQ(words[0].colourData, (colour & ~0x8000u) | 1u);
}

TEST(ORBTCIISectionCompressTest, ManyColoursOnALine)
{
    // Red from 0 to 200 on the line: the ends are exact, and the codes change
    // at t 0.1875, 0.5 and 0.8175 (not the midpoint 0.8125).
    const int reds[8] = {0, 37, 38, 99, 100, 163, 164, 200};
    std::vector<Px> image(16);
    for (int i = 0; i < 16; ++i)
        image[i] = rgba(reds[i % 8], 50, 50);
    Px colours[2];
    EXPECT_EQ(countColours(image.data(), colours), 3);
    ORBTCIIBlockData word;
    ORBTC2SectionCompress(image.data(), &word, 4, 4);
    const std::vector<int> line = {0, 0, 1, 1, 2, 2, 3, 3};
    std::vector<int> expected(line);
    expected.insert(expected.end(), line.begin(), line.end());
    EXPECT_EQ(codesOf(word.modulationData), expected);
    EXPECT_EQ(word.colourData & 0x80008001u, 0x80008000u);
    EXPECT_TRUE(same(word.getColourA(), rgba(0, 6, 6, 15)));
    EXPECT_TRUE(same(word.getColourB(), rgba(25, 6, 6, 15)));

    // With transparent pixels: code 2 for those, punch-through, soft.
    image[6] = image[15] = rgba(0, 0, 0, 0);
    ORBTC2SectionCompress(image.data(), &word, 4, 4);
    EXPECT_EQ(codesOf(word.modulationData)[6], 2);
    EXPECT_EQ(codesOf(word.modulationData)[15], 2);
    EXPECT_EQ(word.colourData & 0x8001u, 1u);
}

TEST(ORBTCIISectionCompressTest, HeightZeroWritesNothingAndReturnsOne)
{
    ORBTCIIBlockData word = {0x12345678u, 0x9abcdef0u};
    const Px pixel = rgba(1, 2, 3);
    EXPECT_EQ(ORBTC2SectionCompress(&pixel, &word, 4, 0), 1);
    EXPECT_EQ(word.modulationData, 0x12345678u);
    EXPECT_EQ(word.colourData, 0x9abcdef0u);
}

TEST(ORBTCIIRoundTrip, SingleWordsAndPaddedSizesDecodeClose)
{
    // Misplaced or misread words fall far below this floor (random words
    // decode to about 8 dB).
    const unsigned sizes[][2] = {{13, 7}, {8, 4}, {4, 4}};
    for (bool twoBpp : {false, true})
        for (const auto& size : sizes)
        {
            const auto pixels = testsupport::Picture(size[0], size[1], false, 5);
            for (unsigned quality : {0u, 1u, 2u})
            {
                SCOPED_TRACE(std::to_string(size[0]) + "x" + std::to_string(size[1]) + " 2bpp " +
                             std::to_string(twoBpp) + " quality " + std::to_string(quality));
                const unsigned w = size[0], h = size[1];
                const unsigned bytes = ORBTCCompress(pixels.data(), nullptr, w, h, false, twoBpp, 1, quality);
                std::vector<unsigned char> words(bytes), decoded(pixels.size());
                ASSERT_EQ(ORBTCCompress(pixels.data(), words.data(), w, h, false, twoBpp, 1, quality), bytes);
                ASSERT_EQ(ORBTCDecompress(words.data(), decoded.data(), w, h, twoBpp, 1), decoded.size());
                EXPECT_GT(testsupport::Psnr(pixels, decoded, false), 12.0);
            }
        }
}
