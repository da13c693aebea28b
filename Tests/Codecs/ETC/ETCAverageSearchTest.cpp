#include "Codecs/ETC/ETCAverageSearch.h"
#include "Codecs/ETC/ETCBlockCodec.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace orbtexture;

namespace
{

// A 4 x 4 RGB block (row width 4) and its two words.
struct Block
{
    unsigned char px[48] = {};
    void set(int x, int y, int r, int g, int b)
    {
        unsigned char* p = px + 3 * (y * 4 + x);
        p[0] = static_cast<unsigned char>(r);
        p[1] = static_cast<unsigned char>(g);
        p[2] = static_cast<unsigned char>(b);
    }
    void fill(int x0, int y0, int w, int h, int r, int g, int b)
    {
        for (int y = y0; y < y0 + h; ++y)
            for (int x = x0; x < x0 + w; ++x)
                set(x, y, r, g, b);
    }
};

struct Words
{
    unsigned int w1 = 0, w2 = 0;
    bool flipped() const { return (w1 & 1u) != 0; }
    bool differential() const { return (w1 & 2u) != 0; }
};

Block decode(const Words& e)
{
    Block out;
    decompressBlockDiffFlip(e.w1, e.w2, out.px, 4, 0, 0);
    return out;
}

unsigned int channelError(const Block& a, const Block& b, int ch)
{
    unsigned int sum = 0;
    for (int i = ch; i < 48; i += 3)
        sum += static_cast<unsigned int>((a.px[i] - b.px[i]) * (a.px[i] - b.px[i]));
    return sum;
}

unsigned int plainError(const Block& a, const Block& b)
{
    return channelError(a, b, 0) + channelError(a, b, 1) + channelError(a, b, 2);
}

double perceptualError(const Block& a, const Block& b)
{
    return 0.299 * channelError(a, b, 0) + 0.587 * channelError(a, b, 1) + 0.114 * channelError(a, b, 2);
}

Words average(Block& b, bool perceptual = false)
{
    Words e;
    (perceptual ? compressBlockDiffFlipAveragePerceptual : compressBlockDiffFlipAverage)(b.px, 4, 0, 0, e.w1, e.w2);
    return e;
}

// Each of the row's four modifiers twice around 'base', in a position-
// dependent order, so that the sub-block's mean is 'base'.
void fillPattern(Block& b, int x0, int y0, int w, int h, const int* base, int row)
{
    static const int columns[8] = {0, 2, 3, 3, 2, 0, 1, 1};
    int k = 0;
    for (int y = y0; y < y0 + h; ++y)
        for (int x = x0; x < x0 + w; ++x, ++k)
        {
            const int m = compressParams[row][columns[k]];
            b.set(x, y, base[0] + m, base[1] + m, base[2] + m);
        }
}

struct QuantCase
{
    float mean[3];
    int code[3];
};

void expectCodes(void (*quantise)(float*, int*, unsigned char*), QuantCase c, const char* what)
{
    int code[3];
    unsigned char expanded[3];
    quantise(c.mean, code, expanded);
    for (int ch = 0; ch < 3; ++ch)
    {
        EXPECT_EQ(code[ch], c.code[ch]) << what << " channel " << ch;
        EXPECT_EQ(expanded[ch], (c.code[ch] << 3) | (c.code[ch] >> 2)) << what << " channel " << ch;
    }
}

} // namespace

TEST(ETCAverageQuantiser, CombinedChoosesTheLeastHueShift)
{
    // Errors (-4, -4, -2): rounding would raise red and green; all three high
    // ties with none, and the earlier (none) wins.
    expectCodes(quantize555ColorCombined, {{103, 103, 200}, {12, 12, 24}}, "tie");
    // Red alone raised: errors (2, 0, 0) cost 8 against 72 for none.
    expectCodes(quantize555ColorCombined, {{72, 66, 66}, {9, 8, 8}}, "red");
    // 255 has no high code; raising green and blue (cost 50) loses to none (18).
    expectCodes(quantize555ColorCombined, {{255, 250, 250}, {31, 30, 30}}, "top");

    // 4-bit: 'expanded' is the 5-bit expansion of the 4-bit codes. On codes
    // (distance 0) and at a uniform shift of 8 (distance 192, not over) the
    // low codes stay; a shift of 9 (243) takes all three high.
    expectCodes(quantize444ColorCombined, {{51, 119, 204}, {3, 7, 12}}, "exact");
    expectCodes(quantize444ColorCombined, {{59, 127, 212}, {3, 7, 12}}, "192");
    expectCodes(quantize444ColorCombined, {{60, 128, 213}, {4, 8, 13}}, "243");
    // Errors (-9, -9, -1): none and all three tie, the distance 163 keeps
    // all low where rounding would raise red and green.
    expectCodes(quantize444ColorCombined, {{60, 60, 52}, {3, 3, 3}}, "hue");
    expectCodes(quantize444ColorCombined, {{255, 255, 250}, {15, 15, 15}}, "top");
}

TEST(ETCAverageTables, FirstStrictlyBetterRowWins)
{
    // Every row reaches 255 through its clamped positive modifiers: all tie
    // at 0, so row 0 and its lower positive column (index bits 00) stay.
    Block b;
    b.fill(0, 0, 4, 4, 255, 255, 255);
    unsigned char colour[3] = {255, 255, 255};
    unsigned int table = 99, msb = 99, lsb = 99;
    EXPECT_EQ(tryalltables_3bittable2x4(b.px, 4, 0, 0, colour, table, msb, lsb), 0u);
    EXPECT_EQ(table, 0u);
    EXPECT_EQ(msb | lsb, 0u);

    // 128 -/+ 18 and 60 are reached by table 4 only.
    const int base[3] = {128, 128, 128};
    fillPattern(b, 0, 0, 4, 2, base, 8);
    colour[0] = colour[1] = colour[2] = 128;
    EXPECT_EQ(tryalltables_3bittable4x2(b.px, 4, 0, 0, colour, table, msb, lsb), 0u);
    EXPECT_EQ(table, 4u);
    EXPECT_GT(compressBlockWithTable4x2(b.px, 4, 0, 0, colour, 6, &msb, &lsb), 0u);
}

TEST(ETCAverageBlock, FlipsOnlyWhenStrictlyBetter)
{
    // Top black, bottom white: the flip is exact, but so is the unflipped
    // block (mean 127.5 becomes 132, and table 7 clamps to 0 and 255).
    Block bw;
    bw.fill(0, 2, 4, 2, 255, 255, 255);
    Words e = average(bw);
    EXPECT_FALSE(e.flipped());
    EXPECT_EQ((e.w1 >> 5) & 7u, 7u);
    EXPECT_EQ(plainError(decode(e), bw), 0u);

    // Halves of opposite hue, out of reach from their grey mean: flipped,
    // individual, red codes 2 and 12.
    Block tb;
    tb.fill(0, 0, 4, 2, 40, 120, 200);
    tb.fill(0, 2, 4, 2, 200, 120, 40);
    e = average(tb);
    EXPECT_TRUE(e.flipped());
    EXPECT_FALSE(e.differential());
    EXPECT_EQ(e.w1 >> 24, 0x2cu);

    // The forced-mode search reports all four sub-blocks.
    ETCSubBlockFit fits[4];
    const unsigned int err = compressBlockOnlyIndividualAverage(tb.px, 4, 0, 0, e.w1, e.w2, fits);
    EXPECT_TRUE(e.flipped());
    EXPECT_EQ(err, plainError(decode(e), tb));
    EXPECT_EQ(err, fits[ETCSubBlockTop].error + fits[ETCSubBlockBottom].error);
    EXPECT_LT(err, fits[ETCSubBlockLeft].error + fits[ETCSubBlockRight].error);
    EXPECT_EQ(fits[ETCSubBlockBottom].colour[0], 12);
    EXPECT_EQ(fits[ETCSubBlockBottom].colour[2], 2);
}

TEST(ETCAverageBlock, DifferentialRangeIsMinus4To3)
{
    // Halves on exact 5-bit reds: left code 16, right 16 + delta.
    for (int delta = -5; delta <= 4; ++delta)
    {
        Block b;
        b.fill(0, 0, 2, 4, 132, 100, 100);
        b.fill(2, 0, 2, 4, ((16 + delta) << 3) | ((16 + delta) >> 2), 100, 100);
        const Words e = average(b);
        EXPECT_EQ(e.differential(), delta >= -4 && delta <= 3) << delta;
        EXPECT_EQ(e.flipped(), false) << delta;
        if (e.differential())
        {
            EXPECT_EQ(e.w1 >> 27, 16u) << delta;
            EXPECT_EQ((e.w1 >> 24) & 7u, static_cast<unsigned int>(delta) & 7u) << delta;
        }

        // The forced differential form pulls the right colour into range.
        Words d;
        ETCSubBlockFit fits[4];
        compressBlockOnlyDiffFlipAverage(b.px, 4, 0, 0, d.w1, d.w2, fits);
        EXPECT_TRUE(d.differential());
        const int reach = delta < -4 ? -4 : (delta > 3 ? 3 : delta);
        EXPECT_EQ(fits[ETCSubBlockRight].colour[0] - fits[ETCSubBlockLeft].colour[0], reach) << delta;
    }
}

TEST(ETCAverageBlock, IndexBitsDecodeInBothOrientations)
{
    // Bases on exact 5-bit codes (16, 12, 20) and (14, 15, 17); tables 4 and 2.
    const int first[3] = {132, 99, 165};
    const int second[3] = {115, 123, 140};
    for (bool flip : {false, true})
    {
        Block b;
        fillPattern(b, 0, 0, flip ? 4 : 2, flip ? 2 : 4, first, 8);
        fillPattern(b, flip ? 0 : 2, flip ? 2 : 0, flip ? 4 : 2, flip ? 2 : 4, second, 4);
        const Words e = average(b);
        EXPECT_EQ(e.flipped(), flip);
        EXPECT_TRUE(e.differential());
        EXPECT_EQ(e.w1 & 0xfcu, (4u << 5) | (2u << 2));
        EXPECT_EQ(0, std::memcmp(decode(e).px, b.px, sizeof(b.px))) << flip;
    }
}

TEST(ETCAverageBlock, ReadsTheBlockAtItsPositionInAWiderImage)
{
    unsigned char image[8 * 8 * 3];
    for (int i = 0; i < 8 * 8 * 3; ++i)
        image[i] = static_cast<unsigned char>((i * 37) % 251);
    Block copy;
    for (int y = 0; y < 4; ++y)
        std::memcpy(copy.px + y * 12, image + ((4 + y) * 8 + 4) * 3, 12);

    Words inPlace, alone;
    Block work;
    const double err = compressBlockDiffFlipFast(image, work.px, 8, 4, 4, inPlace.w1, inPlace.w2);
    compressBlockDiffFlipFast(copy.px, work.px, 4, 0, 0, alone.w1, alone.w2);
    EXPECT_EQ(inPlace.w1, alone.w1);
    EXPECT_EQ(inPlace.w2, alone.w2);
    EXPECT_DOUBLE_EQ(err, calcBlockErrorRGB(image, work.px, 8, 4, 4));
}

TEST(ETCAverageFast, KeepsTheBetterQuantiserAndBoundsTheError)
{
    Block smooth, diagonal, split, bw;
    bw.fill(0, 2, 4, 2, 255, 255, 255);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            smooth.set(x, y, 60 + 8 * x + 4 * y, 100 + 3 * x + 5 * y, 200 - 6 * x - 2 * y);
            const int v = x + y < 4 ? 40 : 200; // a grey edge no half follows
            diagonal.set(x, y, v, v, v);
            split.set(x, y, x < 2 ? 30 : 220, x < 2 ? 40 : 180, x < 2 ? 200 : 20);
        }
    // Gradient: under 6 per channel RMS. Diagonal: a tenth of its flat mean's
    // error (288000). Split: individual colours within half a 4-bit step.
    // Black over white: both quantisers are exact (grey 132 and 123 with
    // table 7), and the tie keeps the first.
    const double bounds[4] = {16 * 3 * 36.0, 28800.0, 16 * 3 * 81.0, 1.0};
    Block* blocks[4] = {&smooth, &diagonal, &split, &bw};
    for (int i = 0; i < 4; ++i)
    {
        Block& b = *blocks[i];
        Words a, c, f;
        compressBlockDiffFlipAverage(b.px, 4, 0, 0, a.w1, a.w2);
        compressBlockDiffFlipCombined(b.px, 4, 0, 0, c.w1, c.w2);
        Block work;
        const double err = compressBlockDiffFlipFast(b.px, work.px, 4, 0, 0, f.w1, f.w2);
        const unsigned int errA = plainError(decode(a), b), errC = plainError(decode(c), b);
        EXPECT_DOUBLE_EQ(err, errA <= errC ? errA : errC) << i;
        EXPECT_EQ(f.w1, errA <= errC ? a.w1 : c.w1) << i;
        EXPECT_EQ(0, std::memcmp(work.px, decode(f).px, sizeof(work.px))) << i;
        EXPECT_LT(err, bounds[i]) << i;
    }
    Words a, c;
    compressBlockDiffFlipAverage(bw.px, 4, 0, 0, a.w1, a.w2);
    compressBlockDiffFlipCombined(bw.px, 4, 0, 0, c.w1, c.w2);
    EXPECT_NE(a.w1, c.w1);
}

TEST(ETCAveragePerceptual, WeighsGreenAboveBlue)
{
    // Pixels (0, +12, -24) and (0, -12, +24) around an exact base: the plain
    // error follows blue's larger offset, the perceptual one green's.
    Block b;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            const int s = ((x + y) & 1) ? 1 : -1;
            b.set(x, y, 132, 132 + 12 * s, 132 - 24 * s);
        }
    const Words plain = average(b), percep = average(b, true);
    EXPECT_TRUE(plain.w1 != percep.w1 || plain.w2 != percep.w2);

    const Block dPlain = decode(plain), dPercep = decode(percep);
    EXPECT_LT(channelError(dPercep, b, 1), channelError(dPlain, b, 1));
    EXPECT_LT(channelError(dPlain, b, 2), channelError(dPercep, b, 2));
    // Same base colours, so each search is optimal in its own measure.
    EXPECT_LE(plainError(dPlain, b), plainError(dPercep, b));
    EXPECT_LE(perceptualError(dPercep, b), perceptualError(dPlain, b));

    Block work;
    Words fast;
    const double err = compressBlockDiffFlipFastPerceptual(b.px, work.px, 4, 0, 0, fast.w1, fast.w2);
    EXPECT_NEAR(err, perceptualError(decode(fast), b), 1e-6);
    EXPECT_LE(err, perceptualError(dPercep, b) + 1e-6);
}
