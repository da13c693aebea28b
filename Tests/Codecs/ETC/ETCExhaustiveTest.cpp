// The exhaustive ETC1 searches against a plain search over every colour, and
// the quality they buy.

#include <algorithm>
#include <cmath>
#include <cstdint>
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
}

TEST(ETCExhaustive, NeverWorseThanTheFastBlock)
{
    unsigned char work[48];
    for (unsigned seed = 1; seed < 12; ++seed)
    {
        std::vector<uint8_t> block = NoisyBlock(seed, int(seed * 9));
        unsigned f1, f2, e1, e2, p1, p2;
        const double fast = compressBlockDiffFlipFast(block.data(), work, 4, 0, 0, f1, f2);
        const unsigned exhaustive = compressBlockETC1Exhaustive(block.data(), work, 4, 0, 0, e1, e2);
        EXPECT_LE(exhaustive, unsigned(fast)) << seed;
        EXPECT_EQ(DecodedError(block, e1, e2), exhaustive) << seed;

        const double fastPerceptual = compressBlockDiffFlipFastPerceptual(block.data(), work, 4, 0, 0, f1, f2);
        const unsigned perceptual = compressBlockETC1ExhaustivePerceptual(block.data(), work, 4, 0, 0, p1, p2);
        EXPECT_LE(perceptual, unsigned(std::lround(fastPerceptual * 1000.0))) << seed;
        decompressBlockDiffFlip(p1, p2, work, 4, 0, 0);
        EXPECT_NEAR(calcBlockPerceptualErrorRGB(block.data(), work, 4, 0, 0) * 1000.0, perceptual, 1.0) << seed;
    }

    // A block the fast search reproduces exactly keeps the fast words.
    bool exact = false;
    for (int v = 0; v < 256 && !exact; ++v)
    {
        std::vector<uint8_t> flat(48, uint8_t(v));
        unsigned f1, f2, e1 = 0, e2 = 0;
        if (compressBlockDiffFlipFast(flat.data(), work, 4, 0, 0, f1, f2) != 0.0)
            continue;
        exact = true;
        EXPECT_EQ(compressBlockETC1Exhaustive(flat.data(), work, 4, 0, 0, e1, e2), 0u);
        EXPECT_EQ(e1, f1);
        EXPECT_EQ(e2, f2);
    }
    EXPECT_TRUE(exact);
}

TEST(ETCExhaustive, ThroughETCCompressOnEveryThreadCount)
{
    const unsigned width = 13, height = 10;
    std::vector<uint8_t> image(width * height * 3);
    for (size_t i = 0; i < image.size(); ++i)
        image[i] = uint8_t(128 + 100 * std::sin(0.7 * double(i % (width * 3)) + 0.4 * double(i / (width * 3))));
    const std::vector<uint8_t> copy = image;
    for (int quality : {2, 5})
    {
        std::vector<std::vector<uint8_t>> results;
        for (unsigned threads : {1u, 3u})
        {
            ETCSetThreadCountOverride(threads);
            std::vector<uint8_t> blocks(ETCCompress(nullptr, nullptr, width, height, quality, ePF_ETC1, false));
            ASSERT_EQ(ETCCompress(image.data(), blocks.data(), width, height, quality, ePF_ETC1, false),
                      blocks.size());
            results.push_back(blocks);
        }
        ETCSetThreadCountOverride(0);
        EXPECT_EQ(results[0], results[1]) << quality;
    }
    EXPECT_EQ(image, copy);
}

namespace
{

// A block painted with the four paints of a T or H block, in a fixed pattern.
std::vector<uint8_t> PaintedBlock(const unsigned char (&codes)[2][3], unsigned char distance, bool t)
{
    unsigned char colours[2][3], paints[4][3];
    for (int i = 0; i < 2; ++i)
        for (int ch = 0; ch < 3; ++ch)
            colours[i][ch] = uint8_t(codes[i][ch] * 17);
    if (t)
        calculatePaintColors59T(distance, 1, colours, paints);
    else
        calculatePaintColors58H(distance, 0, colours, paints);
    std::vector<uint8_t> block(48);
    for (int p = 0; p < 16; ++p)
        for (int ch = 0; ch < 3; ++ch)
            block[p * 3 + ch] = paints[(p * 7 + p / 5) % 4][ch];
    return block;
}

unsigned PackedError(std::vector<uint8_t>& block, unsigned packed1, unsigned packed2, bool t)
{
    unsigned char decoded[48];
    if (t)
        decompressBlockTHUMB59T(packed1, packed2, decoded, 4, 0, 0);
    else
        decompressBlockTHUMB58H(packed1, packed2, decoded, 4, 0, 0);
    return unsigned(calcBlockErrorRGB(block.data(), decoded, 4, 0, 0));
}

} // namespace

TEST(ETCExhaustive, TAndHFindBlocksTheirModeHoldsExactly)
{
    const unsigned char tCodes[2][3] = {{3, 7, 12}, {9, 2, 5}}, hCodes[2][3] = {{12, 3, 8}, {4, 10, 1}};
    for (bool t : {true, false})
    {
        // The fastest block may already be exact; then the search finds nothing better.
        std::vector<uint8_t> block = PaintedBlock(t ? tCodes : hCodes, 3, t);
        unsigned f1, f2, p1 = 0, p2 = 0;
        const unsigned fastest = t ? compressBlockTHUMB59TFastest(block.data(), 4, 0, 0, f1, f2)
                                   : compressBlockTHUMB58HFastest(block.data(), 4, 0, 0, f1, f2);
        const unsigned error = t ? compressBlockTHUMB59TExhaustive(block.data(), 4, 0, 0, p1, p2, 3121199)
                                 : compressBlockTHUMB58HExhaustive(block.data(), 4, 0, 0, p1, p2, 3121199);
        EXPECT_EQ(error, fastest == 0 ? 3121200u : 0u) << t;
        if (fastest != 0)
        {
            EXPECT_EQ(PackedError(block, p1, p2, t), 0u) << t;
        }
    }
    // On noise: never worse than the fastest block, and the error reported is the block's.
    for (unsigned seed : {4u, 9u})
    {
        std::vector<uint8_t> block = NoisyBlock(seed, 50);
        unsigned f1, f2, e1 = 0, e2 = 0;
        const unsigned fastT = compressBlockTHUMB59TFastest(block.data(), 4, 0, 0, f1, f2);
        const unsigned t = compressBlockTHUMB59TExhaustive(block.data(), 4, 0, 0, e1, e2, 3121199);
        EXPECT_EQ(t < fastT ? PackedError(block, e1, e2, true) : 3121200u, t);
        const unsigned fastH = compressBlockTHUMB58HFastest(block.data(), 4, 0, 0, f1, f2);
        const unsigned h = compressBlockTHUMB58HExhaustive(block.data(), 4, 0, 0, e1, e2, 3121199);
        EXPECT_EQ(h < fastH ? PackedError(block, e1, e2, false) : 3121200u, h);
        // A limit of 0 finds nothing.
        unsigned u1 = 5, u2 = 6;
        EXPECT_EQ(compressBlockTHUMB59TExhaustive(block.data(), 4, 0, 0, u1, u2, 0), 3121200u);
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
    std::vector<uint8_t> block(48);
    int corners[3][3];
    for (int c = 0; c < 3; ++c)
        for (int k = 0; k < 3; ++k)
            corners[c][k] = expand(codes[c][k], c);
    for (int p = 0; p < 16; ++p)
        for (int c = 0; c < 3; ++c)
        {
            const int o = corners[c][0], i = p % 4, j = p / 4;
            block[3 * p + c] = uint8_t(std::clamp((4 * o + i * (corners[c][1] - o) + j * (corners[c][2] - o) + 2) >> 2, 0, 255));
        }
    uint8_t* img = block.data();
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
}

TEST(ETCExhaustive, ETC2NeverWorseThanFastAndAlikeOnAnyThreadCount)
{
    unsigned char work[48];
    for (unsigned seed : {2u, 7u})
    {
        std::vector<uint8_t> block = NoisyBlock(seed, 30);
        unsigned f1, f2, e1, e2;
        compressBlockETC2Fast(block.data(), nullptr, work, 4, 4, 0, 0, f1, f2, ePF_ETC2_RGB);
        decompressBlockETC2(f1, f2, work, 4, 0, 0);
        const unsigned fast = unsigned(calcBlockErrorRGB(block.data(), work, 4, 0, 0));
        const unsigned exhaustive = compressBlockETC2Exhaustive(block.data(), work, 4, 0, 0, e1, e2);
        EXPECT_LE(exhaustive, fast) << seed;
        decompressBlockETC2(e1, e2, work, 4, 0, 0);
        EXPECT_EQ(unsigned(calcBlockErrorRGB(block.data(), work, 4, 0, 0)), exhaustive) << seed;
    }

    const unsigned width = 8, height = 5;
    std::vector<uint8_t> image(width * height * 4);
    for (size_t i = 0; i < image.size(); ++i)
        image[i] = uint8_t(128 + 90 * std::sin(0.37 * double(i)));
    for (unsigned format : {unsigned(ePF_ETC2_RGB), unsigned(ePF_ETC2_RGBA)})
    {
        const unsigned channels = format == ePF_ETC2_RGB ? 3 : 4;
        std::vector<std::vector<uint8_t>> results;
        for (unsigned threads : {1u, 2u})
        {
            ETCSetThreadCountOverride(threads);
            std::vector<uint8_t> blocks(ETCCompress(nullptr, nullptr, width, height, 2, format, false));
            std::vector<uint8_t> pixels(image.begin(), image.begin() + width * height * channels);
            ASSERT_EQ(ETCCompress(pixels.data(), blocks.data(), width, height, 2, format, false), blocks.size());
            results.push_back(blocks);
        }
        ETCSetThreadCountOverride(0);
        EXPECT_EQ(results[0], results[1]) << format;
    }
}
