#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

using namespace orbtexture;

namespace
{

// Opaque black A, opaque white B; with uniform colours a pixel of weight w is 255 * w / 8.
const uint32_t BlackWhite = 0xFFFF8000u;

struct Image
{
    int w, h;
    std::vector<unsigned char> px;
    Image(int width, int height) : w(width), h(height), px(size_t(width) * height * 4, 0xAB) {}
    const unsigned char* at(int x, int y) const { return &px[(size_t(y) * w + x) * 4]; }
};

std::vector<unsigned char> pack(const std::vector<ORBTCWord>& words)
{
    std::vector<unsigned char> bytes;
    for (const ORBTCWord& wd : words)
        for (uint32_t v : {wd.modulationData, wd.colourData})
            for (int i = 0; i < 4; ++i)
                bytes.push_back(static_cast<unsigned char>(v >> (8 * i)));
    return bytes;
}

Image decode(const std::vector<ORBTCWord>& words, bool twoBit, int w, int h, int* size = nullptr)
{
    Image img(w, h);
    const std::vector<unsigned char> bytes = pack(words);
    const int n = ORBTDecompressORBTC(bytes.data(), twoBit ? 1 : 0, w, h, img.px.data());
    if (size)
        *size = n;
    return img;
}

::testing::AssertionResult rgbaIs(const Image& img, int x, int y, int r, int g, int b, int a)
{
    const unsigned char* p = img.at(x, y);
    if (p[0] == r && p[1] == g && p[2] == b && p[3] == a)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") is (" << int(p[0]) << "," << int(p[1])
                                         << "," << int(p[2]) << "," << int(p[3]) << ")";
}

::testing::AssertionResult greyIs(const Image& img, int x, int y, int v) { return rgbaIs(img, x, y, v, v, v, 255); }

} // namespace

TEST(ORBTCDecompress, FourBppCodesStandardAndPunchThrough)
{
    // Column codes 0..3 in every row, then row codes 0..3 in every column.
    for (uint32_t modulation : {0xE4E4E4E4u, 0xFFAA5500u})
    {
        const bool byColumn = modulation == 0xE4E4E4E4u;
        const Image standard = decode(std::vector<ORBTCWord>(4, ORBTCWord{modulation, BlackWhite}), false, 8, 8);
        const Image punch = decode(std::vector<ORBTCWord>(4, ORBTCWord{modulation, BlackWhite | 1u}), false, 8, 8);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
            {
                const int code = (byColumn ? x : y) % 4;
                const int std8[4] = {0, 95, 159, 255};
                const int pt8[4] = {0, 127, 127, 255};
                ASSERT_TRUE(greyIs(standard, x, y, std8[code]));
                ASSERT_TRUE(rgbaIs(punch, x, y, pt8[code], pt8[code], pt8[code], code == 2 ? 0 : 255));
            }
    }
}

TEST(ORBTCDecompress, TwoBppSubModesRepairAndNeighbourWords)
{
    // Words in twiddled order (0,0), (0,1), (1,0), (1,1); uniform colours.
    const std::vector<ORBTCWord> words = {
        {0x0210C20Eu, BlackWhite | 1u}, // both axes; codes (0,0)=3 (2,0)=3 (1,1)=2 (7,1)=3 (4,2)=1 (1,3)=2
        {0x00200001u, BlackWhite | 1u}, // horizontal; (0,0)=0, (4,2)=3 through bit 21
        {0x00100003u, BlackWhite | 1u}, // vertical; (0,0)=3, (4,2)=0 through bit 21
        {0x80000001u, BlackWhite},      // flag 0: (0,0) and (7,3) set
    };
    const Image img = decode(words, true, 16, 8);
    const struct
    {
        int x, y, v;
    } expected[] = {
        // Both axes.
        {0, 0, 255}, {4, 2, 95}, {1, 0, 159}, {0, 1, 95}, {7, 0, 127}, {3, 2, 31}, {1, 2, 95},
        // Vertical; (8,3) and (15,0) read the flag 0 word.
        {8, 0, 255}, {12, 2, 0}, {8, 1, 127}, {8, 3, 127}, {9, 0, 0}, {15, 0, 127},
        // Horizontal; (7,4) reads the flag 0 word.
        {0, 4, 0}, {4, 6, 255}, {3, 6, 127}, {5, 6, 127}, {7, 4, 127}, {4, 5, 0},
        // Flag 0: nothing derived.
        {8, 4, 255}, {15, 7, 255}, {9, 4, 0}, {14, 7, 0},
    };
    for (const auto& e : expected)
        EXPECT_TRUE(greyIs(img, e.x, e.y, e.v));
}

TEST(ORBTCDecompress, TwiddleIndex)
{
    // Grid width, height, x, y, index. 8 x 2: one interleaved bit, the rest of x above bit 2.
    const uint32_t cases[][5] = {{8, 2, 1, 0, 2}, {8, 2, 1, 1, 3}, {8, 2, 2, 0, 4}, {8, 2, 4, 1, 9},
                                 {8, 2, 7, 1, 15}, {2, 8, 1, 7, 15}, {2, 8, 0, 6, 12}, {4, 4, 3, 0, 10},
                                 {4, 4, 0, 3, 5},  {4, 4, 2, 1, 9},  {1, 4, 0, 3, 3}};
    for (const auto& t : cases)
        EXPECT_EQ(ORBTCTwiddleIndex(t[0], t[1], t[2], t[3]), t[4]) << t[0] << "x" << t[1] << " " << t[2] << "," << t[3];
}

TEST(ORBTCDecompress, WordIndexIsTwiddledOnlyOnPowerOfTwoGrids)
{
    // Any side that is no power of two puts the grid in row order, which
    // keeps every index below the word count.
    const uint32_t rowOrder[][2] = {{6, 6}, {3, 3}, {12, 4}, {7, 12}, {4, 12}, {2, 3}, {3, 2}, {5, 1}};
    for (const auto& g : rowOrder)
        for (uint32_t y = 0; y < g[1]; ++y)
            for (uint32_t x = 0; x < g[0]; ++x)
                ASSERT_EQ(ORBTCWordIndex(g[0], g[1], x, y), y * g[0] + x) << g[0] << "x" << g[1];

    const uint32_t twiddled[][2] = {{8, 2}, {2, 8}, {4, 4}, {1, 4}, {16, 16}};
    for (const auto& g : twiddled)
        for (uint32_t y = 0; y < g[1]; ++y)
            for (uint32_t x = 0; x < g[0]; ++x)
                ASSERT_EQ(ORBTCWordIndex(g[0], g[1], x, y), ORBTCTwiddleIndex(g[0], g[1], x, y))
                    << g[0] << "x" << g[1];
}

TEST(ORBTCDecompress, SmallImagesDecodePaddedAndReturnPaddedSize)
{
    std::vector<ORBTCWord> words;
    for (uint32_t k = 0; k < 4; ++k)
        words.push_back(ORBTCWord{0x9E3779B9u * (k + 1), 0x7F4A7C15u * (k + 3)});

    for (bool twoBit : {false, true})
    {
        const int fullW = twoBit ? 16 : 8;
        int size = 0;
        const Image full = decode(words, twoBit, fullW, 8, &size);
        EXPECT_EQ(size, 32);
        const int sizes[][2] = {{4, 4}, {8, 8}, {1, 8}, {fullW, 3}};
        for (const auto& s : sizes)
        {
            const Image part = decode(words, twoBit, s[0], s[1], &size);
            EXPECT_EQ(size, 32);
            for (int y = 0; y < s[1]; ++y)
                ASSERT_EQ(0, std::memcmp(part.at(0, y), full.at(0, y), size_t(s[0]) * 4)) << s[0] << "x" << s[1];
        }
    }
    std::vector<unsigned char> big(32 * 32 * 4 / 2);
    std::vector<unsigned char> out(32 * 32 * 4);
    EXPECT_EQ(ORBTDecompressORBTC(big.data(), 1, 32, 32, out.data()), 256);
    EXPECT_EQ(ORBTDecompressORBTC(big.data(), 3, 32, 32, out.data()), 512);
}

TEST(ORBTCDecompress, PartialBlocksAreLeftUnwritten)
{
    std::vector<ORBTCWord> words(5, ORBTCWord{0x12345678u, 0xFFFF8000u});
    int size = 0;
    const Image img = decode(words, false, 10, 10, &size);
    EXPECT_EQ(size, 50);
    const Image ref = decode(words, false, 8, 8);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
        {
            const unsigned char* p = img.at(x, y);
            if (x < 8 && y < 8)
                ASSERT_EQ(0, std::memcmp(p, ref.at(x, y), 4));
            else
                ASSERT_TRUE(p[0] == 0xAB && p[1] == 0xAB && p[2] == 0xAB && p[3] == 0xAB) << x << "," << y;
        }
}
