// The exhaustive ETC1 searches against a plain search over every colour, and
// the quality they buy.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ETC/ETCAverageSearch.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCExhaustive.h"
#include "Codecs/ETC/ETCModes.h"
#include "ORBTextureFormat.h"

using namespace orbtexture;

namespace
{

// A 4 x 4 RGB block of noise around a colour, seeded.
std::vector<uint8_t> NoisyBlock(unsigned seed, int spread)
{
    std::vector<uint8_t> block(48);
    uint32_t state = seed * 2654435761u + 1;
    const int base[3] = {int(seed * 53 % 256), int(seed * 97 % 256), int(seed * 31 % 256)};
    for (int i = 0; i < 48; ++i)
    {
        state = state * 1664525u + 1013904223u;
        const int v = base[i % 3] + int(state >> 24) % (2 * spread + 1) - spread;
        block[i] = uint8_t(std::clamp(v, 0, 255));
    }
    return block;
}

// Least error of each sub-block (left, right, top, bottom) for every colour of
// 'bits' bits a channel, by the single-table block function.
std::vector<std::vector<unsigned>> AllSubBlockErrors(std::vector<uint8_t>& block, int bits)
{
    const int levels = 1 << bits;
    std::vector<std::vector<unsigned>> errors(4, std::vector<unsigned>(size_t(levels) * levels * levels));
    for (int c = 0; c < levels * levels * levels; ++c)
    {
        const int code[3] = {c / levels / levels, c / levels % levels, c % levels};
        unsigned char colour[3];
        for (int ch = 0; ch < 3; ++ch)
            colour[ch] = uint8_t(bits == 4 ? code[ch] * 17 : (code[ch] << 3) | (code[ch] >> 2));
        for (int s = 0; s < 4; ++s)
        {
            unsigned best = ~0u;
            for (int row = 0; row < 16; row += 2)
            {
                unsigned msb, lsb;
                const unsigned e =
                    s < 2 ? compressBlockWithTable2x4(block.data(), 4, 2 * s, 0, colour, row, &msb, &lsb)
                          : compressBlockWithTable4x2(block.data(), 4, 0, 2 * (s - 2), colour, row, &msb, &lsb);
                best = std::min(best, e);
            }
            errors[s][c] = best;
        }
    }
    return errors;
}

unsigned DecodedError(std::vector<uint8_t>& block, unsigned word1, unsigned word2)
{
    unsigned char decoded[48];
    decompressBlockDiffFlip(word1, word2, decoded, 4, 0, 0);
    return unsigned(calcBlockErrorRGB(block.data(), decoded, 4, 0, 0));
}

} // namespace

TEST(ETCExhaustive, IndividualAndDifferentialFindTheLeastError)
{
    for (unsigned seed : {3u, 8u})
    {
        std::vector<uint8_t> block = NoisyBlock(seed, 40);
        const auto individual = AllSubBlockErrors(block, 4);
        const auto least = [](const std::vector<unsigned>& e) { return *std::min_element(e.begin(), e.end()); };
        const unsigned expectedIndividual =
            std::min(least(individual[0]) + least(individual[1]), least(individual[2]) + least(individual[3]));

        const auto differential = AllSubBlockErrors(block, 5);
        unsigned expectedDifferential = ~0u;
        for (int flip = 0; flip < 2; ++flip)
            for (int c1 = 0; c1 < 32768; ++c1)
                for (int d = 0; d < 512; ++d)
                {
                    const int r = c1 / 1024 + d / 64 - 4, g = c1 / 32 % 32 + d / 8 % 8 - 4, b = c1 % 32 + d % 8 - 4;
                    if (r < 0 || r > 31 || g < 0 || g > 31 || b < 0 || b > 31)
                        continue;
                    expectedDifferential = std::min(expectedDifferential, differential[2 * flip][c1] +
                                                                              differential[2 * flip + 1][(r * 32 + g) * 32 + b]);
                }

        unsigned w1 = 0, w2 = 0;
        EXPECT_EQ(compressBlockIndividualExhaustive(block.data(), 4, 0, 0, w1, w2, 3121199), expectedIndividual);
        EXPECT_EQ(w1 & 2u, 0u); // individual mode
        EXPECT_EQ(DecodedError(block, w1, w2), expectedIndividual);
        EXPECT_EQ(compressBlockDifferentialExhaustive(block.data(), 4, 0, 0, w1, w2, 3121199), expectedDifferential);
        EXPECT_EQ(w1 & 2u, 2u);
        EXPECT_EQ(DecodedError(block, w1, w2), expectedDifferential);

        // A limit at the best error finds nothing and leaves the words alone.
        unsigned u1 = 7, u2 = 9;
        EXPECT_EQ(compressBlockDifferentialExhaustive(block.data(), 4, 0, 0, u1, u2, expectedDifferential), 3121200u);
        EXPECT_EQ(compressBlockIndividualExhaustive(block.data(), 4, 0, 0, u1, u2, 0), 3121200u);
        EXPECT_EQ(u1, 7u);
        EXPECT_EQ(u2, 9u);
    }

    // A flat block fits both orientations alike; the tie keeps them unflipped.
    // At 84 (code 10 plus 2) the fast search is exact, and the selector keeps
    // its words: the searches find nothing below 0.
    std::vector<uint8_t> flat(48, 84);
    unsigned char work[48];
    unsigned w1 = 0, w2 = 0, f1, f2;
    compressBlockIndividualExhaustive(flat.data(), 4, 0, 0, w1, w2, 3121199);
    EXPECT_EQ(w1 & 1u, 0u);
    ASSERT_EQ(compressBlockDiffFlipFast(flat.data(), work, 4, 0, 0, f1, f2), 0.0);
    EXPECT_EQ(compressBlockETC1Exhaustive(flat.data(), work, 4, 0, 0, w1, w2), 0u);
    EXPECT_EQ(w1, f1);
    EXPECT_EQ(w2, f2);

    // Red codes 10 and 13 in the halves, each pixel 2 above: exact only with
    // the largest red delta, +3.
    std::vector<uint8_t> halves(48, 84);
    for (int p = 0; p < 16; ++p)
        halves[3 * p] = p % 4 < 2 ? 84 : 109;
    EXPECT_EQ(compressBlockDifferentialExhaustive(halves.data(), 4, 0, 0, w1, w2, 3121199), 0u);
}

namespace
{

struct THForm
{
    unsigned int (*fastest)(unsigned char*, int, int, int, unsigned int&, unsigned int&);
    unsigned int (*exhaustive)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);
    void (*decode)(unsigned int, unsigned int, unsigned char*, int, int, int);
};
const THForm kTH[2] = {{compressBlockTHUMB59TFastest, compressBlockTHUMB59TExhaustive, decompressBlockTHUMB59T},
                       {compressBlockTHUMB58HFastest, compressBlockTHUMB58HExhaustive, decompressBlockTHUMB58H}};

} // namespace

// A block its mode holds exactly, which the fastest search misses, is found;
// on noise the search reports its block's error, or the cap when nothing
// beats the fastest block or the limit, leaving the words alone.
TEST(ETCExhaustive, TAndHFindBlocksTheirModeHoldsExactly)
{
    // Packed T colours (3, 7, 12), (9, 2, 5) and H colours (12, 3, 8), (4, 10, 1), distance 3.
    const unsigned exact[2] = {(3u << 23) | (7u << 19) | (12u << 15) | (9u << 11) | (2u << 7) | (5u << 3) | 3u,
                               (12u << 22) | (3u << 18) | (8u << 14) | (4u << 10) | (10u << 6) | (1u << 2) | 1u};
    for (int f = 0; f < 2; ++f)
        for (unsigned seed : {0u, 4u, 9u})
        {
            std::vector<uint8_t> block = NoisyBlock(seed, 50);
            if (seed == 0)
                kTH[f].decode(exact[f], 0x00FF00FFu, block.data(), 4, 0, 0);
            unsigned f1, f2, e1 = 0, e2 = 0, u1 = 5, u2 = 6;
            const unsigned fastest = kTH[f].fastest(block.data(), 4, 0, 0, f1, f2);
            const unsigned error = kTH[f].exhaustive(block.data(), 4, 0, 0, e1, e2, 3121199);
            unsigned char decoded[48];
            kTH[f].decode(e1, e2, decoded, 4, 0, 0);
            EXPECT_EQ(error < fastest ? unsigned(calcBlockErrorRGB(block.data(), decoded, 4, 0, 0)) : 3121200u, error);
            EXPECT_TRUE(seed != 0 || error == 0) << f;
            EXPECT_EQ(kTH[f].exhaustive(block.data(), 4, 0, 0, u1, u2, 0), 3121200u);
            EXPECT_EQ(u1 + u2, 11u);
        }
}

TEST(ETCExhaustive, PartialErrorsBoundTheWholeError)
{
    std::vector<uint8_t> block = NoisyBlock(6, 60);
    std::vector<unsigned> col0R(16 * 128), col1R(16 * 16), col0RG(256 * 128), col1RG(256 * 16), col0(4096 * 128),
        col1(4096 * 16), hR(16 * 128), hRG(256 * 128), h(4096 * 128);
    precalcError59T_col0_R(block.data(), 4, 0, 0, col0R.data(), false);
    precalcError59T_col1_R(block.data(), 4, 0, 0, col1R.data(), false);
    precalcError59T_col0_RG(block.data(), 4, 0, 0, col0RG.data(), false);
    precalcError59T_col1_RG(block.data(), 4, 0, 0, col1RG.data(), false);
    precalcError59T_col0_RGB(block.data(), 4, 0, 0, col0.data(), false);
    precalcError59T_col1_RGB(block.data(), 4, 0, 0, col1.data(), false);
    precalcErrorR_58H(block.data(), 4, 0, 0, hR.data(), false);
    precalcErrorRG_58H(block.data(), 4, 0, 0, hRG.data(), false);
    precalcError58H(block.data(), 4, 0, 0, h.data(), false);
    for (int i = 0; i < 200; ++i)
    {
        const int c0 = (i * 2731) % 4096, c1 = (i * 977 + 5) % 4096;
        const unsigned none = ~0u;
        unsigned char codes[2][3] = {{uint8_t(c1 >> 8), uint8_t(c1 >> 4 & 15), uint8_t(c1 & 15)},
                                     {uint8_t(c0 >> 8), uint8_t(c0 >> 4 & 15), uint8_t(c0 & 15)}};
        unsigned char distance;
        unsigned indices;
        const unsigned t = calculateError59TusingPrecalcRGB(col0.data(), col1.data(), c0, c1, none);
        EXPECT_EQ(t, calculateError59TnoSwap(block.data(), 4, 0, 0, codes, distance, indices));
        EXPECT_LE(calculateError59TusingPrecalcRG(col0RG.data(), col1RG.data(), c0 >> 4, c1 >> 4, none), t);
        EXPECT_LE(calculateError59TusingPrecalcR(col0R.data(), col1R.data(), c0 >> 8, c1 >> 8, none),
                  calculateError59TusingPrecalcRG(col0RG.data(), col1RG.data(), c0 >> 4, c1 >> 4, none));
        const unsigned hError = calculateErrorFromPrecalc58H(h.data(), c0, c1, none);
        EXPECT_EQ(hError, calculateErrorAndCompress58H(block.data(), 4, 0, 0, codes, distance, indices));
        EXPECT_LE(calculateErrorFromPrecalcRG58H(hRG.data(), c0 >> 4, c1 >> 4, none), hError);
        EXPECT_LE(calculateErrorFromPrecalcR58H(hR.data(), c0 >> 8, c1 >> 8, none),
                  calculateErrorFromPrecalcRG58H(hRG.data(), c0 >> 4, c1 >> 4, none));
    }
}

// Planar blocks made from known codes: the corner functions give back the
// vertical code, and a clamped corner ties every code up to its clamp and
// gives the lowest.
TEST(ETCExhaustive, PlanarCornerCodes)
{
    // (origin, horizontal, vertical) codes of red, green (7 bits) and blue.
    const int codes[3][3] = {{10, 52, 37}, {100, 3, 77}, {63, 20, 0}};
    auto expand = [](int code, int channel) {
        return channel == 1 ? (code << 1) | (code >> 6) : (code << 2) | (code >> 4);
    };
    int corners[3][3];
    for (int c = 0; c < 3; ++c)
        for (int k = 0; k < 3; ++k)
            corners[c][k] = expand(codes[c][k], c);
    const unsigned p1 = (10u << 26) | (100u << 19) | (63u << 13) | (52u << 7) | 3u;
    const unsigned p2 = (20u << 26) | (37u << 20) | (77u << 13) | (0u << 7);
    unsigned char img[48];
    decompressBlockPlanar57(p1, p2, img, 4, 0, 0);
    EXPECT_EQ(calcBBBred(img, 4, 0, 0, corners[0][0]), 37);
    EXPECT_EQ(calcCCCred(img, 4, 0, 0, corners[0][0], corners[0][1]), 37);
    EXPECT_EQ(calcBBBgreen(img, 4, 0, 0, corners[1][0]), 77);
    EXPECT_EQ(calcCCCgreen(img, 4, 0, 0, corners[1][0], corners[1][1]), 77);
    EXPECT_EQ(calcBBBblue(img, 4, 0, 0, corners[2][0]), 0);
    // Origin 255 and horizontal 0 put the bottom-right corner at 0 for every
    // vertical code up to 42 (expanded 170: (3 x 170 - 508) / 4 rounds to 0).
    img[3 * 15] = 0;
    EXPECT_EQ(calcCCCred(img, 4, 0, 0, 255, 0), 0);
    // The bottom-left corner alone decides BBB: code 21 (85) decodes to
    // (257 + 3 x 85) / 4 = 128, code 20 (81) to 125.
    img[3 * 12] = 127;
    EXPECT_EQ(calcBBBred(img, 4, 0, 0, 255), 21);

    // Against every code, for corners across the range and every target:
    // the nearest decoded pixel, the lower code of equals.
    for (int channel : {0, 1})
    {
        const int bits = channel == 1 ? 7 : 6;
        for (int o = 0; o < 256; o += 7)
            for (int h = 0; h < 256; h += 11)
                for (int target = 0; target < 256; ++target)
                {
                    img[3 * 15 + channel] = uint8_t(target);
                    int best = 0, least = 256;
                    for (int v = 0; v < (1 << bits); ++v)
                    {
                        const int decoded =
                            std::clamp((o + 3 * (h - o) + 3 * expand(v, channel) + 2) >> 2, 0, 255);
                        if (std::abs(target - decoded) < least)
                            least = std::abs(target - decoded), best = v;
                    }
                    ASSERT_EQ(channel ? calcCCCgreen(img, 4, 0, 0, o, h) : calcCCCred(img, 4, 0, 0, o, h), best)
                        << o << " " << h << " " << target;
                }
    }
}
