#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCCodec.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

using namespace orbtexture;

namespace
{

using RGB = std::array<int, 3>;

// A decoded 4 x 4 RGB block, row width 4.
struct Decoded
{
    unsigned char px[48] = {};
    unsigned char alpha[16] = {};
    RGB at(int x, int y) const
    {
        const unsigned char* p = px + 3 * (y * 4 + x);
        return {p[0], p[1], p[2]};
    }
    int alphaAt(int x, int y) const { return alpha[y * 4 + x]; }
};

Decoded decodeETC2(unsigned int w1, unsigned int w2)
{
    Decoded d;
    decompressBlockETC2(w1, w2, d.px, 4, 0, 0);
    return d;
}

Decoded decodePunchThrough(unsigned int w1, unsigned int w2)
{
    Decoded d;
    decompressBlockETC21BitAlpha(w1, w2, d.px, d.alpha, 4, 0, 0);
    return d;
}

// Index bits of pixel (x, y) in the second word.
unsigned int indexBits(int x, int y, int index)
{
    const int bit = x * 4 + y;
    return ((unsigned(index) >> 1) << (16 + bit)) | ((unsigned(index) & 1) << bit);
}

void putBigEndian(unsigned char* p, unsigned int w)
{
    p[0] = static_cast<unsigned char>(w >> 24);
    p[1] = static_cast<unsigned char>(w >> 16);
    p[2] = static_cast<unsigned char>(w >> 8);
    p[3] = static_cast<unsigned char>(w);
}

// Individual block: sub-blocks (15, 8, 2) and (0, 1, 3) as 4-bit colours,
// tables 0 and 7, side by side.
constexpr unsigned int kIndividual1 = 0xF081231Cu;
const unsigned int kIndividual2 = indexBits(1, 2, 3) | indexBits(2, 0, 1) | indexBits(3, 3, 2);

// Differential block, flipped: top (20, 0, 31) table 1, bottom base plus
// (-3, +3, -4) = (17, 3, 27) table 2.
constexpr unsigned int kDifferential1 = 0xA503FC2Bu;
const unsigned int kDifferential2 = indexBits(3, 1, 3) | indexBits(0, 3, 1) | indexBits(2, 2, 2);

// T block: red 30 + 2 overflows. Colours (A, 1, F) and (3, E, 1), distance
// index 6; row y uses paint colour y.
constexpr unsigned int kT1 = 0xF21F3E1Eu;
unsigned int rowIndices()
{
    unsigned int w = 0;
    for (int x = 0; x < 4; ++x)
        for (int y = 0; y < 4; ++y)
            w |= indexBits(x, y, y);
    return w;
}
const unsigned int kT2 = rowIndices();

} // namespace

TEST(ETCDecodeBlock, IndividualMode)
{
    const Decoded d = decodeETC2(kIndividual1, kIndividual2);
    // Left: (255, 136, 34) with 2, 8; right: (0, 17, 51) with 47, 183.
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            RGB expected = x < 2 ? RGB{255, 138, 36} : RGB{47, 64, 98};
            if (x == 1 && y == 2)
                expected = {247, 128, 26};
            if (x == 2 && y == 0)
                expected = {183, 200, 234};
            if (x == 3 && y == 3)
                expected = {0, 0, 4};
            EXPECT_EQ(d.at(x, y), expected) << x << "," << y;
        }
}

TEST(ETCDecodeBlock, DifferentialNegativeDeltasFlipped)
{
    const Decoded d = decodeETC2(kDifferential1, kDifferential2);
    // Top (165, 0, 255) with 5, 17; bottom (140, 24, 222) with 9, 29.
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            RGB expected = y < 2 ? RGB{170, 5, 255} : RGB{149, 33, 231};
            if (x == 3 && y == 1)
                expected = {148, 0, 238};
            if (x == 0 && y == 3)
                expected = {169, 53, 251};
            if (x == 2 && y == 2)
                expected = {131, 15, 213};
            EXPECT_EQ(d.at(x, y), expected) << x << "," << y;
        }
}

TEST(ETCDecodeBlock, TModeFromRedOverflow)
{
    const Decoded d = decodeETC2(kT1, kT2);
    // (170, 17, 255); (51, 238, 17) plus, as is and less 41, limited.
    const RGB paint[4] = {{170, 17, 255}, {92, 255, 58}, {51, 238, 17}, {10, 197, 0}};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(d.at(x, y), paint[y]) << x << "," << y;

    unsigned int p1, p2;
    unstuff59bits(kT1, kT2, p1, p2);
    EXPECT_EQ(p1, (0xAu << 23) | (0x1u << 19) | (0xFu << 15) | (0x3u << 11) | (0xEu << 7) | (0x1u << 3) | 6u);
    EXPECT_EQ(p2, kT2);
}

TEST(ETCDecodeBlock, HModeFromGreenOverflow)
{
    // Colours (1, 9, 5) and (F, 2, 0); the first is the smaller, so the
    // distance index is 1, 1, 0 = 6 (41). Red 17 - 4 stays in range.
    const unsigned int w1 = 0x8CF2F907u;
    const Decoded d = decodeETC2(w1, kT2);
    const RGB paint[4] = {{58, 194, 126}, {0, 112, 44}, {255, 75, 41}, {214, 0, 0}};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(d.at(x, y), paint[y]) << x << "," << y;

    unsigned int p1, p2;
    unstuff58bits(w1, kT2, p1, p2);
    EXPECT_EQ(p1, (0x1u << 22) | (0x9u << 18) | (0x5u << 14) | (0xFu << 10) | (0x2u << 6) | (0x0u << 2) | 3u);

    // Equal colours set the lowest distance bit: index 1, distance 6.
    Decoded equal;
    decompressBlockTHUMB58H((0x888u << 14) | (0x888u << 2), kT2, equal.px, 4, 0, 0);
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(equal.at(1, y), (y % 2 ? RGB{130, 130, 130} : RGB{142, 142, 142}));
}

TEST(ETCDecodeBlock, PlanarFromBlueOverflow)
{
    // O = (0, 127, 16), H = (63, 0, 8), V = (63, 0, 63) as 6/7/6 bits.
    const unsigned int w1 = 0x01FE147Fu, w2 = 0x0047E03Fu;
    const Decoded d = decodeETC2(w1, w2);
    EXPECT_EQ(d.at(0, 0), (RGB{0, 255, 65}));
    EXPECT_EQ(d.at(1, 0), (RGB{64, 191, 57}));
    EXPECT_EQ(d.at(3, 0), (RGB{191, 64, 40}));
    EXPECT_EQ(d.at(2, 1), (RGB{191, 64, 96}));
    EXPECT_EQ(d.at(0, 3), (RGB{191, 64, 208}));
    // Red above 255 and green below 0 are limited.
    EXPECT_EQ(d.at(3, 3), (RGB{255, 0, 183}));

    unsigned int p1, p2;
    unstuff57bits(w1, w2, p1, p2);
    EXPECT_EQ(p1, (0u << 26) | (127u << 19) | (16u << 13) | (63u << 7) | 0u);
    EXPECT_EQ(p2, (8u << 26) | (63u << 20) | (0u << 13) | (63u << 7));
}

TEST(ETCDecodeBlock, InvalidPaintPatternIsReported)
{
    const unsigned char colours[2][3] = {{10, 20, 30}, {100, 100, 100}};
    unsigned char paint[4][3] = {};
    testing::internal::CaptureStdout();
    calculatePaintColors59T(0, 0, colours, paint);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Invalid pattern. Terminating"), std::string::npos);
    EXPECT_EQ(paint[0][0], 0);
    EXPECT_EQ(paint[3][0], 97);
}

TEST(ETCDecodeBlock, PackedFormsRoundTripAndSelectTheirMode)
{
    unsigned int seed = 12345;
    auto next = [&seed]() { return seed = seed * 1664525u + 1013904223u; };
    for (int n = 0; n < 2000; ++n)
    {
        const unsigned int indices = next();
        const unsigned int p59 = next() & 0x7FFFFFFu, p58 = next() & 0x3FFFFFFu;
        const unsigned int p57a = next(), p57b = next() & 0xFFFFFF80u;
        unsigned int w1, w2, q1, q2;
        Decoded direct, viaBlock;

        stuff59bits(p59, indices, w1, w2);
        unstuff59bits(w1, w2, q1, q2);
        ASSERT_EQ(q1, p59);
        ASSERT_EQ(q2, indices);
        ASSERT_EQ(w1 & 2, 2u);
        decompressBlockTHUMB59T(p59, indices, direct.px, 4, 0, 0);
        ASSERT_EQ(0, memcmp(direct.px, decodeETC2(w1, w2).px, 48)) << std::hex << p59;
        stuff59bitsDiffFalse(p59, indices, w1, w2);
        ASSERT_EQ(w1 & 2, 0u);
        decompressBlockTHUMB59TAlpha(p59, indices, direct.px, direct.alpha, 4, 0, 0);
        viaBlock = decodePunchThrough(w1, w2);
        ASSERT_EQ(0, memcmp(direct.px, viaBlock.px, 48));
        ASSERT_EQ(0, memcmp(direct.alpha, viaBlock.alpha, 16));

        stuff58bits(p58, indices, w1, w2);
        unstuff58bits(w1, w2, q1, q2);
        ASSERT_EQ(q1, p58);
        decompressBlockTHUMB58H(p58, indices, direct.px, 4, 0, 0);
        ASSERT_EQ(0, memcmp(direct.px, decodeETC2(w1, w2).px, 48)) << std::hex << p58;
        stuff58bitsDiffFalse(p58, indices, w1, w2);
        ASSERT_EQ(w1 & 2, 0u);
        decompressBlockTHUMB58HAlpha(p58, indices, direct.px, direct.alpha, 4, 0, 0);
        viaBlock = decodePunchThrough(w1, w2);
        ASSERT_EQ(0, memcmp(direct.px, viaBlock.px, 48));
        ASSERT_EQ(0, memcmp(direct.alpha, viaBlock.alpha, 16));

        stuff57bits(p57a, p57b, w1, w2);
        unstuff57bits(w1, w2, q1, q2);
        ASSERT_EQ(q1, p57a);
        ASSERT_EQ(q2, p57b);
        decompressBlockPlanar57(p57a, p57b, direct.px, 4, 0, 0);
        ASSERT_EQ(0, memcmp(direct.px, decodeETC2(w1, w2).px, 48)) << std::hex << p57a;
    }
}

TEST(ETCDecodePunchThrough, OpaqueFlagClear)
{
    // Always differential: the small modifiers become 0 and index 2 is
    // transparent black.
    const Decoded d = decodePunchThrough(kDifferential1 & ~2u, kDifferential2);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            RGB expected = y < 2 ? RGB{165, 0, 255} : RGB{140, 24, 222};
            int alpha = 255;
            if (x == 3 && y == 1)
                expected = {148, 0, 238};
            if (x == 0 && y == 3)
                expected = {169, 53, 251};
            if (x == 2 && y == 2)
            {
                expected = {0, 0, 0};
                alpha = 0;
            }
            EXPECT_EQ(d.at(x, y), expected) << x << "," << y;
            EXPECT_EQ(d.alphaAt(x, y), alpha) << x << "," << y;
        }

    // T mode: paint 2 (row 2 here) is transparent.
    const Decoded t = decodePunchThrough(kT1 & ~2u, kT2);
    const RGB paint[4] = {{170, 17, 255}, {92, 255, 58}, {0, 0, 0}, {10, 197, 0}};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            EXPECT_EQ(t.at(x, y), paint[y]);
            EXPECT_EQ(t.alphaAt(x, y), y == 2 ? 0 : 255);
        }

    // Planar has no transparency.
    const Decoded planar = decodePunchThrough(0x01FE147Du, 0x0047E03Fu);
    EXPECT_EQ(planar.at(3, 3), (RGB{255, 0, 183}));
    for (int p = 0; p < 16; ++p)
        EXPECT_EQ(planar.alpha[p], 255);
}

TEST(ETCDecodeEAC, EightBitBlockClamps)
{
    // Row 15 * 16 + 0: (-3, -6, -9, -15, 2, 5, 8, 14) times 15; pixel k in
    // column order has index k % 8.
    const unsigned char low[8] = {5, 0xF0, 0x05, 0x39, 0x77, 0x05, 0x39, 0x77};
    const unsigned char high[8] = {200, 0xF0, 0x05, 0x39, 0x77, 0x05, 0x39, 0x77};
    const int lowValues[8] = {0, 0, 0, 0, 35, 80, 125, 215};
    const int highValues[8] = {155, 110, 65, 0, 230, 255, 255, 255};
    unsigned char image[8 * 4];
    decompressBlockAlpha(low, image, 8, 0, 0, alphaTable);
    decompressBlockAlpha(high, image, 8, 4, 0, alphaTable);
    for (int k = 0; k < 16; ++k)
    {
        const int x = k / 4, y = k % 4;
        EXPECT_EQ(image[y * 8 + x], lowValues[k % 8]) << k;
        EXPECT_EQ(image[y * 8 + 4 + x], highValues[k % 8]) << k;
    }
}

TEST(ETCDecodeEAC, ElevenBitValueRule)
{
    // Unsigned: base 255 with modifier 0 is 2044; above 2047 is limited.
    EXPECT_EQ(get16bits11bits(255, 13, 0, 4, false), 65439);
    EXPECT_EQ(get16bits11bits(255, 13, 0, 7, false), 65535);
    EXPECT_EQ(get16bits11bits(0, 0, 15, 3, false), 0);
    // Multiplier 0 takes the modifier unscaled, others scale by 8 times it.
    EXPECT_EQ(get16bits11bits(100, 0, 0, 3, false), 25260);
    EXPECT_EQ(get16bits11bits(100, 0, 1, 3, false), 21898);
    EXPECT_EQ(get16bits11bits(100, 0, 3, 7, false), 36497);

    // Signed: 1016 + 7 is 1023, the largest value; beyond it the same.
    EXPECT_EQ(get16bits11signed(255, 6, 0, 6), 32767);
    EXPECT_EQ(get16bits11signed(255, 6, 0, 7), 32767);
    EXPECT_EQ(get16bits11signed(1, 6, 0, 1), -32767);
    EXPECT_EQ(get16bits11signed(1, 6, 0, 2), -32767);
    EXPECT_EQ(get16bits11signed(128, 13, 0, 4), 0);
    EXPECT_EQ(get16bits11signed(130, 0, 1, 0), -256);
    // The lowest base counts as -1016, like the one above it.
    EXPECT_EQ(get16bits11signed(0, 13, 0, 4), -32543);
    EXPECT_EQ(get16bits11signed(1, 13, 0, 4), -32543);
    EXPECT_EQ(get16bits11bits(0, 13, 0, 4, true), -32543);
}

TEST(ETCDecodeEAC, ElevenBitBlocksWithStride)
{
    // Signed stored base 0x80 is the lowest base; 0x7F the highest.
    const unsigned char red[8] = {0x80, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24}; // all index 4
    const unsigned char green[8] = {0x7F, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24};
    unsigned short image[4 * 4 * 2];
    decompressBlockAlpha16bit(red, image, 4, 0, 0, true, 2);
    decompressBlockAlpha16bit(green, image + 1, 4, 0, 0, true, 2);
    for (int p = 0; p < 16; ++p)
    {
        EXPECT_EQ(image[2 * p], static_cast<unsigned short>(-32543));
        EXPECT_EQ(image[2 * p + 1], (1016 << 5) + (1016 >> 5));
    }
    decompressBlockAlpha16bit(green, image, 4, 0, 0, false, 1);
    EXPECT_EQ(image[15], (1020 << 5) + (1020 >> 6)); // 127 * 8 + 4
}

TEST(ETCDecodeImage, SizesAndUnknownFormats)
{
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, ePF_ETC1, false), 45u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, ePF_ETC2_RGBA, false), 60u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, ePF_ETC2_RGB_A1, false), 60u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, ePF_EAC_R11, true), 30u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, ePF_EAC_RG11, false), 60u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, 7, false), 0u);
    EXPECT_EQ(ETCDecompress(nullptr, nullptr, 5, 3, 27, false), 0u);
    EXPECT_EQ(ORBTDecompressETC(nullptr, 2, 9, nullptr, 0), 18);
}

TEST(ETCDecodeImage, OnePixelImage)
{
    unsigned char blocks[8];
    putBigEndian(blocks, kIndividual1);
    putBigEndian(blocks + 4, kIndividual2);
    std::vector<unsigned char> out(3);
    ASSERT_EQ(ETCDecompress(blocks, out.data(), 1, 1, ePF_ETC1, false), 3u);
    EXPECT_EQ(out, (std::vector<unsigned char>{255, 138, 36}));
}

TEST(ETCDecodeImage, SixBySixCopiesNoPadding)
{
    // Format 22 on ETC1 blocks, with an unlike block in each position.
    const unsigned int words[4][2] = {
        {kIndividual1, kIndividual2}, {kDifferential1, kDifferential2}, {0x11223300u, 0}, {kIndividual1, 0xFFFFu}};
    unsigned char blocks[32];
    Decoded expected[4];
    for (int b = 0; b < 4; ++b)
    {
        putBigEndian(blocks + 8 * b, words[b][0]);
        putBigEndian(blocks + 8 * b + 4, words[b][1]);
        expected[b] = decodeETC2(words[b][0], words[b][1]);
    }
    std::vector<unsigned char> out(6 * 6 * 3);
    ASSERT_EQ(ETCDecompress(blocks, out.data(), 6, 6, ePF_ETC2_RGB, false), 108u);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x)
        {
            const unsigned char* p = &out[3 * (y * 6 + x)];
            EXPECT_EQ((RGB{p[0], p[1], p[2]}), expected[(y / 4) * 2 + x / 4].at(x % 4, y % 4)) << x << "," << y;
        }
}

TEST(ETCDecodeImage, AlphaFormats)
{
    // Format 24, opaque flag in every block: decoded as ETC2, all opaque.
    unsigned char blocks[32];
    putBigEndian(blocks, kDifferential1);
    putBigEndian(blocks + 4, kDifferential2);
    putBigEndian(blocks + 8, kT1);
    putBigEndian(blocks + 12, kT2);
    std::vector<unsigned char> out(8 * 4 * 4);
    ASSERT_EQ(ETCDecompress(blocks, out.data(), 8, 4, ePF_ETC2_RGB_A1, false), 128u);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
        {
            const unsigned char* p = &out[4 * (y * 8 + x)];
            const Decoded d = x < 4 ? decodeETC2(kDifferential1, kDifferential2) : decodeETC2(kT1, kT2);
            EXPECT_EQ((RGB{p[0], p[1], p[2]}), d.at(x % 4, y));
            EXPECT_EQ(p[3], 255);
        }

    // Format 23: the alpha block comes first.
    const unsigned char alpha[8] = {200, 0xF0, 0x05, 0x39, 0x77, 0x05, 0x39, 0x77};
    memcpy(blocks, alpha, 8);
    putBigEndian(blocks + 8, kIndividual1);
    putBigEndian(blocks + 12, kIndividual2);
    std::vector<unsigned char> rgba(2 * 2 * 4);
    ASSERT_EQ(ETCDecompress(blocks, rgba.data(), 2, 2, ePF_ETC2_RGBA, false), 16u);
    EXPECT_EQ(rgba, (std::vector<unsigned char>{255, 138, 36, 155, 255, 138, 36, 230, 255, 138, 36, 110, 255, 138,
                                                36, 255}));
}

TEST(ETCDecodeImage, ElevenBitChannels)
{
    // Unsigned red 10 (all index 4 of table 13: modifier 0), green 20.
    unsigned char blocks[16] = {10, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24,
                                20, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24};
    const unsigned short red = (84 << 5) + (84 >> 6), green = (164 << 5) + (164 >> 6);
    std::vector<unsigned short> rg(3 * 2 * 2);
    ASSERT_EQ(ETCDecompress(blocks, rg.data(), 3, 2, ePF_EAC_RG11, false), 24u);
    for (int p = 0; p < 6; ++p)
    {
        EXPECT_EQ(rg[2 * p], red);
        EXPECT_EQ(rg[2 * p + 1], green);
    }
    std::vector<unsigned short> r(3);
    ASSERT_EQ(ETCDecompress(blocks, r.data(), 3, 1, ePF_EAC_R11, false), 6u);
    EXPECT_EQ(r, (std::vector<unsigned short>{red, red, red}));
}

TEST(ETCDecodeLegacy, MatchesBlockDecoderInRGBAOrder)
{
    // 8 x 4: the individual and the differential block.
    unsigned char blocks[16];
    putBigEndian(blocks, kIndividual1);
    putBigEndian(blocks + 4, kIndividual2);
    putBigEndian(blocks + 8, kDifferential1);
    putBigEndian(blocks + 12, kDifferential2);
    std::vector<unsigned char> out(8 * 4 * 4);
    ASSERT_EQ(ORBTDecompressETC(blocks, 8, 4, out.data(), 0), 16);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
        {
            const unsigned char* p = &out[4 * (y * 8 + x)];
            const Decoded d = x < 4 ? decodeETC2(kIndividual1, kIndividual2) : decodeETC2(kDifferential1, kDifferential2);
            EXPECT_EQ((RGB{p[0], p[1], p[2]}), d.at(x % 4, y)) << x << "," << y;
            EXPECT_EQ(p[3], 255);
        }
}

TEST(ETCDecodeLegacy, SmallImageUsesWorkSize)
{
    // Pixel (1, 1) takes -17 in the top half: red and blue differ.
    unsigned char blocks[8];
    putBigEndian(blocks, kDifferential1);
    putBigEndian(blocks + 4, indexBits(1, 1, 3));
    std::vector<unsigned char> out(2 * 2 * 4);
    EXPECT_EQ(ORBTDecompressETC(blocks, 2, 2, out.data(), 3), 8);
    EXPECT_EQ(out, (std::vector<unsigned char>{170, 5, 255, 255, 170, 5, 255, 255, 170, 5, 255, 255, 148, 0, 238,
                                               255}));
}

TEST(ETCDecodeTables, DerivedTablesAgree)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(scramble[unscramble[i]], i);
    for (int t = 0; t < 8; ++t)
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_EQ(mod[t][i], compressParams[2 * t][unscramble[i]]);
            EXPECT_EQ(compressParams[2 * t + 1][i], compressParamsFast[t][i]);
        }
    const int row16[8] = {-3, -6, -9, -15, 2, 5, 8, 14};
    const int row255[8] = {-45, -75, -105, -135, 30, 60, 90, 120};
    for (int k = 0; k < 8; ++k)
    {
        EXPECT_EQ(alphaTable[16][k], row16[k]);
        EXPECT_EQ(alphaTable[255][k], row255[k]);
        for (int t = 0; t < 16; ++t)
            EXPECT_EQ(alphaTable[t][k], 0);
    }
    EXPECT_EQ(square_table[0], 65025u);
    EXPECT_EQ(square_table[255], 0u);
    EXPECT_EQ(square_table_percep_red[510], 19442475u);
    EXPECT_EQ(square_table_percep_green[0], 38169675u);
    EXPECT_EQ(square_table_percep_blue[254], 114u);
    EXPECT_EQ(clamp_table[0], 0);
    EXPECT_EQ(clamp_table[255 + 100], 100);
    EXPECT_EQ(clamp_table[767], 255);
    EXPECT_EQ(clamp_table_plus_255[254], 255);
    EXPECT_EQ(clamp_table_plus_255[767], 510);
}
