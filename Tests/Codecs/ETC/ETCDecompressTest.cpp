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
};

Decoded decode(unsigned int w1, unsigned int w2, bool punchThrough = false)
{
    Decoded d;
    if (punchThrough)
        decompressBlockETC21BitAlpha(w1, w2, d.px, d.alpha, 4, 0, 0);
    else
        decompressBlockETC2(w1, w2, d.px, 4, 0, 0);
    return d;
}

// Index bits of pixel (x, y) in the second word.
unsigned int indexBits(int x, int y, int index)
{
    const int bit = x * 4 + y;
    return ((unsigned(index) >> 1) << (16 + bit)) | ((unsigned(index) & 1) << bit);
}

void putBigEndian(unsigned char* p, unsigned int w1, unsigned int w2)
{
    for (int i = 0; i < 4; ++i)
    {
        p[i] = static_cast<unsigned char>(w1 >> (24 - 8 * i));
        p[4 + i] = static_cast<unsigned char>(w2 >> (24 - 8 * i));
    }
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

// H block from green overflow: colours (1, 9, 5) and (F, 2, 0), the first the
// smaller, so distance index 1, 1, 0 = 6 (41); red 17 - 4 stays in range.
constexpr unsigned int kH1 = 0x8CF2F907u;
// Planar from blue overflow: O (0, 127, 16), H (63, 0, 8), V (63, 0, 63).
constexpr unsigned int kPlanar1 = 0x01FE147Fu, kPlanar2 = 0x0047E03Fu;

} // namespace

TEST(ETCDecodeBlock, EveryModeOnHandMadeBlocks)
{
    struct Case
    {
        bool punchThrough;
        unsigned int w1, w2;
        int x, y;
        RGB rgb;
        int alpha;
    };
    const Case cases[] = {
        // Individual: left (255, 136, 34) with 2, 8; right (0, 17, 51) with 47, 183.
        {false, kIndividual1, kIndividual2, 0, 0, {255, 138, 36}, 255},
        {false, kIndividual1, kIndividual2, 3, 3, {0, 0, 4}, 255},
        // Differential, flipped: top (165, 0, 255) with 5, 17; bottom (140, 24, 222) with 9, 29.
        {false, kDifferential1, kDifferential2, 3, 1, {148, 0, 238}, 255},
        {false, kDifferential1, kDifferential2, 0, 3, {169, 53, 251}, 255},
        {false, kDifferential1, kDifferential2, 2, 2, {131, 15, 213}, 255},
        // T: (170, 17, 255); (51, 238, 17) plus, as is and less 41, limited.
        {false, kT1, kT2, 1, 1, {92, 255, 58}, 255},
        {false, kT1, kT2, 3, 3, {10, 197, 0}, 255},
        {false, kH1, kT2, 1, 1, {0, 112, 44}, 255},
        {false, kH1, kT2, 2, 2, {255, 75, 41}, 255},
        // Planar: red above 255 and green below 0 are limited.
        {false, kPlanar1, kPlanar2, 0, 3, {191, 64, 208}, 255},
        {false, kPlanar1, kPlanar2, 3, 3, {255, 0, 183}, 255},
        // Opaque flag clear: always differential, the small modifiers become 0
        // and index 2 is transparent black; T's paint 2 likewise; planar stays opaque.
        {true, kDifferential1 & ~2u, kDifferential2, 0, 3, {169, 53, 251}, 255},
        {true, kDifferential1 & ~2u, kDifferential2, 2, 2, {0, 0, 0}, 0},
        {true, kT1 & ~2u, kT2, 3, 2, {0, 0, 0}, 0},
        {true, kT1 & ~2u, kT2, 0, 3, {10, 197, 0}, 255},
        {true, kPlanar1 & ~2u, kPlanar2, 3, 3, {255, 0, 183}, 255},
    };
    for (const Case& c : cases)
    {
        const Decoded d = decode(c.w1, c.w2, c.punchThrough);
        EXPECT_EQ(d.at(c.x, c.y), c.rgb) << std::hex << c.w1 << std::dec << " at " << c.x << "," << c.y;
        EXPECT_EQ(c.punchThrough ? d.alpha[c.y * 4 + c.x] : 255, c.alpha) << std::hex << c.w1;
    }

    // Equal H colours set the lowest distance bit: index 1, distance 6.
    Decoded equal;
    decompressBlockTHUMB58H((0x888u << 14) | (0x888u << 2), kT2, equal.px, 4, 0, 0);
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(equal.at(1, y), (y % 2 ? RGB{130, 130, 130} : RGB{142, 142, 142}));
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

// Random T, H and planar forms: packed and unpacked again, with the
// differential bit set, and decoded alike directly and through the standard block.
TEST(ETCDecodeBlock, PackedFormsRoundTripAndSelectTheirMode)
{
    using Pack = void (*)(unsigned int, unsigned int, unsigned int&, unsigned int&);
    using Direct = void (*)(unsigned int, unsigned int, unsigned char*, int, int, int);
    const struct
    {
        Pack stuff, unstuff;
        Direct direct;
        unsigned int mask1, mask2;
    } forms[3] = {{stuff59bits, unstuff59bits, decompressBlockTHUMB59T, 0x7FFFFFFu, ~0u},
                  {stuff58bits, unstuff58bits, decompressBlockTHUMB58H, 0x3FFFFFFu, ~0u},
                  {stuff57bits, unstuff57bits, decompressBlockPlanar57, ~0u, 0xFFFFFF80u}};
    unsigned int seed = 12345;
    auto next = [&seed]() { return seed = seed * 1664525u + 1013904223u; };
    for (int n = 0; n < 500; ++n)
        for (const auto& f : forms)
        {
            const unsigned int p1 = next() & f.mask1, p2 = next() & f.mask2;
            unsigned int w1, w2, q1, q2;
            f.stuff(p1, p2, w1, w2);
            f.unstuff(w1, w2, q1, q2);
            ASSERT_EQ(q1, p1);
            ASSERT_EQ(q2, p2);
            ASSERT_EQ(w1 & 2, 2u);
            Decoded direct;
            f.direct(p1, p2, direct.px, 4, 0, 0);
            ASSERT_EQ(0, memcmp(direct.px, decode(w1, w2).px, 48)) << std::hex << p1;
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
    EXPECT_EQ(get16bits11bits(100, 0, 3, 7, false), 36497);

    // Signed: 1016 + 7 is 1023, the largest value; beyond it the same.
    EXPECT_EQ(get16bits11signed(255, 6, 0, 6), 32767);
    EXPECT_EQ(get16bits11signed(255, 6, 0, 7), 32767);
    EXPECT_EQ(get16bits11signed(1, 6, 0, 2), -32767);
    EXPECT_EQ(get16bits11signed(128, 13, 0, 4), 0);
    EXPECT_EQ(get16bits11signed(130, 0, 1, 0), -256);
    // The lowest base counts as -1016, like the one above it.
    EXPECT_EQ(get16bits11signed(0, 13, 0, 4), -32543);
    EXPECT_EQ(get16bits11signed(1, 13, 0, 4), -32543);
    EXPECT_EQ(get16bits11bits(0, 13, 0, 4, true), -32543);
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

// Images smaller than a block, in every layout.
TEST(ETCDecodeImage, ImagesBelowOneBlock)
{
    unsigned char blocks[16];
    putBigEndian(blocks, kIndividual1, kIndividual2);
    std::vector<unsigned char> out(3);
    ASSERT_EQ(ETCDecompress(blocks, out.data(), 1, 1, ePF_ETC1, false), 3u);
    EXPECT_EQ(out, (std::vector<unsigned char>{255, 138, 36}));

    // RGBA: the alpha block comes first.
    const unsigned char alpha[8] = {200, 0xF0, 0x05, 0x39, 0x77, 0x05, 0x39, 0x77};
    memcpy(blocks, alpha, 8);
    putBigEndian(blocks + 8, kIndividual1, kIndividual2);
    std::vector<unsigned char> rgba(2 * 2 * 4);
    ASSERT_EQ(ETCDecompress(blocks, rgba.data(), 2, 2, ePF_ETC2_RGBA, false), 16u);
    EXPECT_EQ(rgba, (std::vector<unsigned char>{255, 138, 36, 155, 255, 138, 36, 230, 255, 138, 36, 110, 255, 138,
                                                36, 255}));

    // Unsigned red 10 (all index 4 of table 13: modifier 0), green 20.
    const unsigned char eac[16] = {10, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24,
                                   20, 0x0D, 0x92, 0x49, 0x24, 0x92, 0x49, 0x24};
    const unsigned short red = (84 << 5) + (84 >> 6), green = (164 << 5) + (164 >> 6);
    std::vector<unsigned short> rg(3 * 2 * 2);
    ASSERT_EQ(ETCDecompress(eac, rg.data(), 3, 2, ePF_EAC_RG11, false), 24u);
    for (int p = 0; p < 6; ++p)
    {
        EXPECT_EQ(rg[2 * p], red);
        EXPECT_EQ(rg[2 * p + 1], green);
    }
    std::vector<unsigned short> r(3);
    ASSERT_EQ(ETCDecompress(eac, r.data(), 3, 1, ePF_EAC_R11, false), 6u);
    EXPECT_EQ(r, (std::vector<unsigned short>{red, red, red}));
}

TEST(ETCDecodeLegacy, MatchesBlockDecoderInRGBAOrder)
{
    // 8 x 4: the individual and the differential block.
    unsigned char blocks[16];
    putBigEndian(blocks, kIndividual1, kIndividual2);
    putBigEndian(blocks + 8, kDifferential1, kDifferential2);
    std::vector<unsigned char> out(8 * 4 * 4);
    ASSERT_EQ(ORBTDecompressETC(blocks, 8, 4, out.data(), 0), 16);
    const Decoded halves[2] = {decode(kIndividual1, kIndividual2), decode(kDifferential1, kDifferential2)};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
        {
            const unsigned char* p = &out[4 * (y * 8 + x)];
            EXPECT_EQ((RGB{p[0], p[1], p[2]}), halves[x / 4].at(x % 4, y)) << x << "," << y;
            EXPECT_EQ(p[3], 255);
        }

    // A 2 x 2 image decodes through a work block. Pixel (1, 1) takes -17 in
    // the top half: red and blue differ.
    putBigEndian(blocks, kDifferential1, indexBits(1, 1, 3));
    out.assign(2 * 2 * 4, 0);
    EXPECT_EQ(ORBTDecompressETC(blocks, 2, 2, out.data(), 3), 8);
    EXPECT_EQ(out, (std::vector<unsigned char>{170, 5, 255, 255, 170, 5, 255, 255, 170, 5, 255, 255, 148, 0, 238,
                                               255}));
}
