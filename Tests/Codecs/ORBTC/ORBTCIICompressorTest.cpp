#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Codecs/ORBTC/ORBTC2SectionCompress.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCII2bppCompressor.h"
#include "Codecs/ORBTC/ORBTCII4bppCompressor.h"
#include "Codecs/ORBTC/ORBTCIIMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCPadding.h"

using namespace orbtexture;

namespace
{

typedef Pixel<unsigned char> Px;

Px rgba(int r, int g, int b, int a = 255)
{
    return Px{static_cast<unsigned char>(r), static_cast<unsigned char>(g), static_cast<unsigned char>(b),
              static_cast<unsigned char>(a)};
}

::testing::AssertionResult pixelIs(const Px& actual, int r, int g, int b, int a)
{
    if (actual.red == r && actual.green == g && actual.blue == b && actual.alpha == a)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << int(actual.red) << "," << int(actual.green) << ","
                                         << int(actual.blue) << "," << int(actual.alpha) << ")";
}

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

class ProcessorCount
{
public:
    explicit ProcessorCount(unsigned int n) { ORBTCSetProcessorCountOverride(n); }
    ~ProcessorCount() { ORBTCSetProcessorCountOverride(0); }
};

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

TEST(ORBTCIIBlockDataTest, BothColoursTakeOneFormAndKeepTheFlags)
{
    const Px a = rgba(255, 128, 64, 255);
    ORBTCIIBlockData word = {0, 0x8001u};

    // B translucent: A is stored translucent too, with alpha 7 of 3 bits.
    word.setColours(a, rgba(16, 32, 48, 200));
    EXPECT_EQ(word.colourData,
              (6u << 28 | 1u << 24 | 2u << 20 | 3u << 16) | 0x8001u | (7u << 12 | 15u << 8 | 8u << 4 | 2u << 1));
    // A reads its translucent form although bit 15 is set; B's alpha is odd.
    EXPECT_TRUE(pixelIs(word.getColourA(), 31, 17, 9, 14));
    EXPECT_TRUE(pixelIs(word.getColourB(), 2, 4, 6, 13));
    // Either colour below 255 decides.
    word.setColours(rgba(16, 32, 48, 254), a);
    EXPECT_EQ(word.colourData & 0x80000000u, 0u);

    // Both opaque: 5, 5, 4 bits for A, 5, 5, 5 for B, bit 31 set; bits 0 and
    // 15 untouched, and A reads opaque although bit 15 is clear.
    word.colourData = 0;
    word.setColours(a, rgba(16, 32, 48, 255));
    EXPECT_EQ(word.colourData, 0x80000000u | (2u << 26 | 4u << 21 | 6u << 16) | (31u << 10 | 16u << 5 | 4u << 1));
    EXPECT_TRUE(pixelIs(word.getColourA(), 31, 16, 8, 15));
    EXPECT_TRUE(pixelIs(word.getColourB(), 2, 4, 6, 15));
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

TEST(ORBTCIICompressorTest, WordsAreInRowOrderForBothBlockSizes)
{
    // A 4 x 2 grid, where the twiddled order differs from row order; each
    // block samples only itself.
    std::vector<Px> colours;
    for (int by = 0; by < 2; ++by)
        for (int bx = 0; bx < 4; ++bx)
            colours.push_back(rgba(bx * 64, by * 128, 200));
    for (unsigned int blockWidth : {4u, 8u})
    {
        const std::vector<Px> image = flatBlocks(4, 2, blockWidth, colours);
        std::vector<ORBTCIIBlockData> words(8);
        const unsigned int w = 4 * blockWidth;
        EXPECT_EQ(orbtc2Compress(const_cast<Px*>(image.data()), words.data(), w, 8, false, false, blockWidth == 8, 0),
                  w * 8 * (blockWidth == 8 ? 2 : 4) / 8);
        for (int i = 0; i < 8; ++i)
        {
            SCOPED_TRACE(blockWidth * 100 + i);
            EXPECT_TRUE(pixelIs(words[i].getColourA(), (i % 4) * 8, (i / 4) * 16, 25, 15));
            EXPECT_TRUE(pixelIs(words[i].getColourB(), (i % 4) * 8, (i / 4) * 16, 25, 15));
        }
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

TEST(ORBTCIISectionCompressTest, TwoColourBlocks)
{
    // 254 is not extreme: two colours, translucent form, B's pixels at 3.
    std::vector<Px> image(16, rgba(200, 100, 50, 254));
    image[3] = image[12] = rgba(200, 100, 50, 255);
    Px colours[2];
    EXPECT_EQ(countColours(image.data(), colours), 2);
    EXPECT_FALSE(hasBlockPThrough(image.data()));
    ORBTCIIBlockData word;
    ORBTC2SectionCompress(image.data(), &word, 4, 4);
    EXPECT_EQ(word.modulationData, 3u << 6 | 3u << 24);
    EXPECT_EQ(word.colourData & 0x80008001u, 0x8000u);
    EXPECT_TRUE(pixelIs(word.getColourA(), 25, 12, 4, 14));

    // A transparent pixel takes code 2 whatever colour it has.
    image[5] = rgba(9, 9, 9, 0);
    image[7] = image[3] = image[12] = rgba(9, 9, 9, 255);
    EXPECT_EQ(countColours(image.data(), colours), 2);
    ORBTC2SectionCompress(image.data(), &word, 4, 4);
    EXPECT_EQ(word.modulationData, 3u << 6 | 2u << 10 | 3u << 14 | 3u << 24);
    EXPECT_EQ(word.colourData & 0x8001u, 1u);
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
    EXPECT_TRUE(pixelIs(word.getColourA(), 0, 6, 6, 15));
    EXPECT_TRUE(pixelIs(word.getColourB(), 25, 6, 6, 15));

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

TEST(ORBTCIICompress, QualityPicksTheCompressor)
{
    // 5 x 5 is padded to whole blocks first.
    const unsigned int w = 5, h = 5;
    std::vector<Px> image = ramps(w, h);
    std::vector<uint8_t> padded;
    for (bool twoBpp : {false, true})
    {
        SCOPED_TRACE(twoBpp);
        const unsigned int pw = 8, ph = 8;
        ORBTCPadToBlocks(reinterpret_cast<const uint8_t*>(image.data()), w, h, pw, ph, padded);
        const size_t size = size_t(pw) * ph * (twoBpp ? 2 : 4) / 8;
        for (unsigned int quality : {0u, 1u})
        {
            std::vector<uint8_t> words(size), expected(size);
            EXPECT_EQ(ORBTCCompress(image.data(), words.data(), w, h, false, twoBpp, 1, quality), size);
            if (quality == 0 && !twoBpp)
                ORBTC2SectionCompress(padded.data(), expected.data(), pw, ph);
            else
                orbtc2Compress(padded.data(), expected.data(), pw, ph, false, true, twoBpp, quality == 0 ? 0 : 8);
            EXPECT_EQ(words, expected) << quality;
        }
    }
}
