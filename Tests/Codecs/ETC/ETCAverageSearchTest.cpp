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
    void fill(int x0, int y0, int w, int h, int r, int g, int b)
    {
        for (int y = y0; y < y0 + h; ++y)
            for (int x = x0; x < x0 + w; ++x)
            {
                unsigned char* p = px + 3 * (y * 4 + x);
                p[0] = static_cast<unsigned char>(r);
                p[1] = static_cast<unsigned char>(g);
                p[2] = static_cast<unsigned char>(b);
            }
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

unsigned int plainError(const Block& a, const Block& b)
{
    unsigned int sum = 0;
    for (int i = 0; i < 48; ++i)
        sum += static_cast<unsigned int>((a.px[i] - b.px[i]) * (a.px[i] - b.px[i]));
    return sum;
}

Words average(Block& b)
{
    Words e;
    compressBlockDiffFlipAverage(b.px, 4, 0, 0, e.w1, e.w2);
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
            b.fill(x, y, 1, 1, base[0] + m, base[1] + m, base[2] + m);
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
}

TEST(ETCAverageBlock, DifferentialRangeIsMinus4To3)
{
    // Halves on exact 5-bit reds: left code 16, right 16 + delta.
    for (int delta : {-5, -4, 3, 4})
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
    }
}

// The fast search keeps the better of the two quantisers' blocks, the first
// on a tie: black over white, where both are exact (grey 132 and 123 with
// table 7) and differ.
TEST(ETCAverageFast, KeepsTheBetterQuantiser)
{
    Block diagonal, bw;
    bw.fill(0, 2, 4, 2, 255, 255, 255);
    for (int i = 0; i < 16; ++i)
    {
        const int v = i % 4 + i / 4 < 4 ? 40 : 200; // a grey edge no half follows
        diagonal.fill(i % 4, i / 4, 1, 1, v, v, v);
    }
    for (Block* b : {&diagonal, &bw})
    {
        Words a, c, f;
        compressBlockDiffFlipAverage(b->px, 4, 0, 0, a.w1, a.w2);
        compressBlockDiffFlipCombined(b->px, 4, 0, 0, c.w1, c.w2);
        Block work;
        const double err = compressBlockDiffFlipFast(b->px, work.px, 4, 0, 0, f.w1, f.w2);
        const unsigned int errA = plainError(decode(a), *b), errC = plainError(decode(c), *b);
        EXPECT_DOUBLE_EQ(err, errA <= errC ? errA : errC);
        EXPECT_EQ(f.w1, errA <= errC ? a.w1 : c.w1);
        EXPECT_EQ(0, std::memcmp(work.px, decode(f).px, sizeof(work.px)));
    }
    Words a, c;
    compressBlockDiffFlipAverage(bw.px, 4, 0, 0, a.w1, a.w2);
    compressBlockDiffFlipCombined(bw.px, 4, 0, 0, c.w1, c.w2);
    EXPECT_EQ(plainError(decode(a), bw), 0u);
    EXPECT_NE(a.w1, c.w1);
}
