#include "Codecs/ETC/EACCompress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

using namespace orbtexture;

namespace
{

// Encodes a 4 x 4 block of 11-bit values, decodes it and returns the squared error.
double roundTrip16(bool isSigned, unsigned short* image, unsigned char* block)
{
    compressBlockAlpha16(image, 1, 0, 0, 4, block, isSigned, isSigned ? valueTableSigned() : valueTableUnsigned());
    unsigned short decoded[16];
    decompressBlockAlpha16bit(block, decoded, 4, 0, 0, isSigned, 1);
    double sum = 0.0;
    for (int i = 0; i < 16; ++i)
    {
        const int d = isSigned ? int16_t(decoded[i]) - int16_t(image[i]) : decoded[i] - image[i];
        sum += double(d) * d;
    }
    return sum;
}

} // namespace

// Block at (2, 1) of a 6 x 5 image, two values a pixel (the second is noise).
TEST(EACCompressTables, CalcErrorWrapsAndStops)
{
    std::vector<unsigned short> values(EACValueTableSize, 0);
    const unsigned short candidates[8] = {1000, 2000, 3000, 4000, 5000, 6000, 7000, 65535};
    std::copy(candidates, candidates + 8, values.begin() + getPremulIndex(3, 2, 1, 0));
    // 0 and 65530 lie 1 and 5 from 65535 as 16-bit differences.
    const unsigned short pixels[8] = {0, 1010, 2000, 2990, 5005, 7000, 7100, 65530};
    const double expected = 2.0 * (1 + 100 + 0 + 100 + 25 + 0 + 10000 + 25);
    std::vector<unsigned short> image(6 * 5 * 2, 0x4321);
    for (int i = 0; i < 16; ++i)
        image[((1 + i / 4) * 6 + 2 + i % 4) * 2] = pixels[i % 8];
    auto error = [&](double limit) { return calcError(image.data(), 2, 2, 1, 6, 3, 2, 1, limit, values.data(), false); };
    EXPECT_EQ(error(expected + 1), expected);
    EXPECT_EQ(error(expected), expected + 1073741824.0);
    EXPECT_EQ(error(1.0), 1.0 + 1073741824.0);
}

// Flat: row 0 (all zeros) gives error 0 and ends the search; the first of
// the equal entries is taken.
TEST(EACCompressAlpha8, FlatBlocksTakeTheFirstEntry)
{
    for (int value : {0, 1, 77, 128, 254, 255})
    {
        const std::vector<unsigned char> image(16, static_cast<unsigned char>(value));
        std::vector<unsigned char> fast(8), slow(8), expected(8, 0);
        expected[0] = static_cast<unsigned char>(value);
        compressBlockAlphaFast(image.data(), 0, 0, 4, fast.data(), alphaTable);
        compressBlockAlphaSlow(image.data(), 0, 0, 4, slow.data(), alphaTable);
        EXPECT_EQ(fast, expected) << value;
        EXPECT_EQ(slow, expected) << value;
    }
}

TEST(EACCompressAlpha16, FlatBlocksAndTies)
{
    const int flats[][2] = {{0, 65535}, {0, get16bits11bits(100, 3, 5, 2, false)},
                            {1, 32767}, {1, -32767}, {1, get16bits11bits(37, 9, 4, 6, true)}};
    for (const auto& f : flats)
    {
        std::vector<unsigned short> image(16, static_cast<unsigned short>(f[1]));
        unsigned char block[8];
        EXPECT_EQ(roundTrip16(f[0] != 0, image.data(), block), 0.0) << f[0] << " " << f[1];
    }
    // The first best (base, table, multiplier) stands and each pixel takes the
    // first best index. Unsigned 0: base 0, table 0, multiplier 0, index 1
    // (4 - 6 limited to 0). Signed 0: bases 0 and 1 (-1016) can't reach it;
    // base 2 (-1008) does with table 0, multiplier 9, index 7 (14 * 9 * 8).
    unsigned short zeros[16] = {};
    unsigned char block[8];
    EXPECT_EQ(roundTrip16(false, zeros, block), 0.0);
    const unsigned char unsignedZero[8] = {0, 0, 0x24, 0x92, 0x49, 0x24, 0x92, 0x49};
    EXPECT_TRUE(std::equal(block, block + 8, unsignedZero));
    EXPECT_EQ(roundTrip16(true, zeros, block), 0.0);
    const unsigned char signedZero[8] = {130, 0x90, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_TRUE(std::equal(block, block + 8, signedZero));
}

namespace
{

// The first two bytes the plain search over calcError gives: every base,
// table and multiplier in order, the best so far as the limit.
std::pair<int, int> PlainSearch(unsigned short* pixels, bool isSigned)
{
    const unsigned short* values = isSigned ? valueTableSigned() : valueTableUnsigned();
    double best = 1099511627776.0;
    int bestBase = 0, bestTable = 0, bestMultiplier = 0;
    for (int base = 0; base < 256; ++base)
        for (int table = 0; table < 16; ++table)
            for (int multiplier = 0; multiplier < 16; ++multiplier)
            {
                const double e = calcError(pixels, 1, 0, 0, 4, base, table, multiplier, best, values, isSigned);
                if (e < best)
                {
                    best = e;
                    bestBase = base;
                    bestTable = table;
                    bestMultiplier = multiplier;
                }
            }
    return {isSigned ? (bestBase + 128) % 256 : bestBase, bestMultiplier * 16 + bestTable};
}

// One block of a kind: noise, a cluster, two levels, a cluster across the
// 16-bit wrap or across the signed one (32767 to -32768), a ramp, a flat
// block with one outlier, 8-bit values widened, a flat block (ties
// everywhere), a block made of one candidate's own values (error 0 for
// several candidates). Then the edges of the search's bounds: a candidate's
// values with its least pushed down (and on odd bases its greatest pushed up)
// to the edge of the extremes' reach; eight pixels below and eight above the
// least and greatest values of a candidate without a multiplier, and the same
// for the widest of those tables, a step or two out (the bound from pairs of
// pixels, at equality for flat halves); a flat block at a candidate's value;
// two clusters either side of the wrap; a candidate at an end of the bases
// with its greatest value pushed across the wrap and on some its least too.
void MakeBlock(int kind, bool isSigned, std::mt19937& random, unsigned short (&pixels)[16])
{
    auto around = [&](int centre, int spread) {
        return uint16_t(centre + int(random() % unsigned(2 * spread + 1)) - spread);
    };
    const int centre = int(random() % 65536), spread = 1 + int(random() % 6000);
    const int other = int(random() % 65536);
    const int step = int(random() % 2001) - 1000, stepY = int(random() % 2001) - 1000;
    const int base = int(random() % 256), table = int(random() % 16), multiplier = int(random() % 16);
    const int push = int(random() % 400);
    // The least and greatest values of a candidate, as the 16-bit values
    // rise (signed ones from -32768).
    const int lift = isSigned ? 32768 : 0;
    auto ends = [&](int b, int t, int m) {
        int least = 65536, greatest = -1;
        for (int index = 0; index < 8; ++index)
        {
            const int value = get16bits11bits(b, t, m, index, isSigned) + lift;
            least = std::min(least, value);
            greatest = std::max(greatest, value);
        }
        return std::make_pair(least - lift, greatest - lift);
    };
    const int endBase = base & 1 ? 250 + base % 6 : base % 6, endMultiplier = 8 + multiplier % 8;
    for (int i = 0; i < 16; ++i)
    {
        unsigned short& p = pixels[i];
        switch (kind)
        {
        case 0: p = uint16_t(random()); break;
        case 1: p = around(centre, spread); break;
        case 2: p = around(random() % 2 ? centre : other, spread / 16); break;
        case 3: p = around(0, spread); break;
        case 4: p = around(32768, spread); break;
        case 5: p = uint16_t(centre + (i % 4) * step + (i / 4) * stepY); break;
        case 6: p = i == int(base % 16) ? uint16_t(other) : uint16_t(centre); break;
        case 7: p = uint16_t(((centre >> 8) + int(random() % 9) - 4) * 257); break;
        case 8: p = uint16_t(centre); break;
        case 9: p = uint16_t(get16bits11bits(base, table, multiplier, int(random() % 8), isSigned)); break;
        case 10:
        {
            const std::pair<int, int> e = ends(base, table, multiplier);
            const int own = get16bits11bits(base, table, multiplier, int(random() % 8), isSigned);
            p = uint16_t(i == 0 ? e.first - push : i == 1 && (base & 1) ? e.second + push : own);
            break;
        }
        case 11:
        {
            const std::pair<int, int> e = ends(base, table, 0);
            p = uint16_t(i < 8 ? e.first - push / 4 : e.second + push / 4);
            break;
        }
        case 12: p = uint16_t(get16bits11bits(base, table, multiplier, 3, isSigned)); break;
        case 13: p = around(i < 8 ? 65535 - spread / 8 : spread / 8, spread / 8); break;
        case 14:
        {
            const std::pair<int, int> e = ends(endBase, table, endMultiplier);
            const int own = get16bits11bits(endBase, table, endMultiplier, int(random() % 8), isSigned);
            p = uint16_t(i == 0 ? e.second + 1 + push % 8 : i == 1 && (base & 2) ? e.first - 1 - push % 8 : own);
            break;
        }
        default:
        {
            const std::pair<int, int> e = ends(base, 0, 0);
            p = uint16_t(i < 8 ? e.first - push % 3 : e.second + push % 3);
            break;
        }
        }
    }
}

} // namespace

// The search visits candidates in its own order and skips those that cannot
// win; it must pick the very block the plain search picks, ties included.
TEST(EACCompressAlpha16, SameBlockAsThePlainSearch)
{
#ifdef NDEBUG
    constexpr int kPerKind = 120; // 3840 blocks
#else
    constexpr int kPerKind = 6; // unoptimised (sanitizer) builds: 192 blocks
#endif
    std::mt19937 random(11);
    for (int kind = 0; kind < 16; ++kind)
        for (int trial = 0; trial < 2 * kPerKind; ++trial)
        {
            const bool isSigned = trial % 2 == 1;
            unsigned short pixels[16];
            MakeBlock(kind, isSigned, random, pixels);
            unsigned char block[8];
            compressBlockAlpha16(pixels, 1, 0, 0, 4, block, isSigned, isSigned ? valueTableSigned() : valueTableUnsigned());
            const std::pair<int, int> plain = PlainSearch(pixels, isSigned);
            ASSERT_EQ(block[0], plain.first) << "kind " << kind << " trial " << trial;
            ASSERT_EQ(block[1], plain.second) << "kind " << kind << " trial " << trial;
        }
}
