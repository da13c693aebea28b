// The extended decoder: ORBTCII words worked by hand, word order and sizes,
// and ORBTC words against the plain decoder.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"

using namespace orbtexture;

namespace
{

constexpr uint32_t kFlag = 1u, kHard = 0x8000u;
using Rgba = std::vector<uint8_t>;
const Rgba kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255};

// An ORBTCII colour word of two opaque colours: A 5, 5, 4 bits, B 5, 5, 5.
uint32_t Opaque(uint32_t ar, uint32_t ag, uint32_t ab, uint32_t br = 0, uint32_t bg = 0, uint32_t bb = 0)
{
    return 0x80000000u | br << 26 | bg << 21 | bb << 16 | ar << 10 | ag << 5 | ab << 1;
}

// Words as (modulation, colour) pairs, to little-endian bytes.
std::vector<uint8_t> Bytes(const std::vector<std::pair<uint32_t, uint32_t>>& words)
{
    std::vector<uint8_t> bytes;
    for (const auto& w : words)
        for (uint32_t v : {w.first, w.second})
            for (int k = 0; k < 4; ++k)
                bytes.push_back(uint8_t(v >> (8 * k)));
    return bytes;
}

std::vector<uint8_t> RandomBytes(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(count);
    for (uint8_t& b : bytes)
        b = uint8_t(random());
    return bytes;
}

struct Image
{
    int width;
    std::vector<uint8_t> pixels;
    Rgba at(int x, int y) const { return Rgba(&pixels[(size_t(y) * width + x) * 4], &pixels[(size_t(y) * width + x) * 4] + 4); }
};

// Whole blocks through Decompress; by default ORBTCII words in row order.
Image Decode(const std::vector<uint8_t>& bytes, int width, int height, bool twoBpp = false, unsigned extended = 1,
             unsigned rowOrder = 1)
{
    Bitmap* bitmap = new_bitmap(width, height, 1, nullptr);
    EXPECT_EQ(Decompress(bytes.data(), 0, extended, 4, twoBpp ? 2 : 4, width, height, 4, 0, rowOrder, bitmap), 1);
    Image image{width, std::vector<uint8_t>(bitmap->pixels, bitmap->pixels + size_t(width) * height * 4)};
    delete_bitmap(bitmap);
    return image;
}

} // namespace

TEST(ORBTCIIDecoder, LocalPaletteByPlaceAndCodeButNotAtPlaceZero)
{
    // P hard, every block flagged. A of block k has red 8k, B 8k + 4.
    const uint8_t aRed[4] = {0, 66, 132, 198}, bRed[4] = {33, 99, 165, 231};
    const int blockOfIndex[8] = {0, 0, 3, 3, 1, 1, 2, 2};
    // Tile place, code, palette index.
    const int cases[][4] = {{1, 0, 2, 4}, {3, 1, 0, 2}, {2, 2, 1, 3}, {0, 1, 2, 6},
                            {1, 1, 3, 7}, {3, 3, 3, 5}, {0, 3, 0, 0}, {2, 1, 1, 1}};
    for (uint32_t code = 0; code < 4; ++code)
    {
        std::vector<std::pair<uint32_t, uint32_t>> words;
        for (uint32_t k = 0; k < 4; ++k)
            words.push_back({0x55555555u * code, Opaque(8 * k, 0, 0, 8 * k + 4) | kFlag | (k ? 0 : kHard)});
        const Image image = Decode(Bytes(words), 8, 8);
        for (const auto& c : cases)
        {
            if (uint32_t(c[2]) != code)
                continue;
            EXPECT_EQ(image.at(2 + c[0], 2 + c[1])[0], (c[3] & 1 ? bRed : aRed)[blockOfIndex[c[3]]])
                << "place " << c[0] << "," << c[1] << " code " << code << ": " << LocalPaletteIndexNames[c[3]];
        }
        // Place (0, 0) takes a standard weight: 3/8 or 5/8 of B (red 33).
        EXPECT_EQ(image.at(2, 2)[0], (Rgba{0, 12, 20, 33})[code]) << code;
        // Without its flag, S's pixels take standard codes: 3 is S's own B.
        words[3].second &= ~kFlag;
        if (code == 3)
        {
            EXPECT_EQ(Decode(Bytes(words), 8, 8).at(4, 4)[0], bRed[3]);
        }
    }
}

TEST(ORBTCIIDecoder, ColourFormsTranslucentAlphaAndPunchThrough)
{
    // One block; codes 0 (A) in rows 0 and 1, 3 (B) in rows 2 and 3.
    const uint32_t aThenB = 0xFFFF0000u;
    const struct
    {
        uint32_t colour;
        unsigned extended;
        uint8_t alphaA, alphaB;
    } cases[] = {
        {0, 1, 0, 17},                              // stored alpha 0: A 0, B 1 on the 4-bit scale
        {0, 0, 0, 0},                               // ORBTC: both 0
        {7u << 28 | 7u << 12 | kHard, 1, 238, 255}, // stored 7: A 14, B 15; bit 15 is no form
        {Opaque(0, 0, 0), 1, 255, 255},             // bit 31 makes A opaque too
    };
    for (const auto& c : cases)
    {
        const Image image = Decode(Bytes({{aThenB, c.colour}}), 4, 4, false, c.extended);
        EXPECT_EQ(image.at(1, 0)[3], c.alphaA) << std::hex << c.colour << " extended " << c.extended;
        EXPECT_EQ(image.at(1, 3)[3], c.alphaB) << std::hex << c.colour << " extended " << c.extended;
    }

    // A soft flagged block, A red, B green, rows of codes 1, 2, 0, 3: code 2
    // is black and transparent; ORBTC keeps the mix's colour.
    const uint32_t codes = 0x55u | 0xAAu << 8 | 0xFFu << 24, colour = Opaque(31, 0, 0, 0, 31, 0) | kFlag;
    const Image ii = Decode(Bytes({{codes, colour}}), 4, 4);
    const Rgba expected[4] = {{127, 127, 0, 255}, {0, 0, 0, 0}, kRed, kGreen};
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(ii.at(0, y), expected[y]) << y;
    EXPECT_EQ(Decode(Bytes({{codes, colour | kHard}}), 4, 4, false, 0).at(0, 1), (Rgba{127, 127, 0, 0}));
}

TEST(ORBTCIIDecoder, TwoBppHardTilesAndDerivedModulation)
{
    // Two words across: the first hard and red, the second soft and blue.
    std::vector<std::pair<uint32_t, uint32_t>> words = {{0, Opaque(31, 0, 0, 0, 31, 0) | kHard},
                                                        {0, Opaque(0, 0, 15)}};
    const Image colours = Decode(Bytes(words), 16, 4, true);
    for (int y = 0; y < 4; ++y)
        for (int x = 4; x < 12; ++x)
            EXPECT_EQ(colours.at(x, y), x < 8 ? kRed : kBlue) << x << "," << y;
    EXPECT_EQ(colours.at(13, 0), (Rgba{31, 0, 223, 255})); // the soft tile blends

    // Horizontal sub-mode, codes 0, beside a flag 0 word of weight 8: pixel
    // (7, 0) derives 4 across the word boundary, in the first word's colours.
    words[0] = {1, words[0].second | kFlag};
    words[1].first = 0xFFFFFFFFu;
    const Image derived = Decode(Bytes(words), 16, 4, true);
    EXPECT_EQ(derived.at(7, 0), (Rgba{127, 127, 0, 255}));
    EXPECT_EQ(derived.at(5, 0), kRed);
}

TEST(ORBTCIIDecoder, RowOrderAndGridsThatWrapOntoThemselves)
{
    // Hard blocks show their own A, red 8 x the word's index; twiddled order
    // puts block (1, 0) at index 2.
    std::vector<std::pair<uint32_t, uint32_t>> words;
    for (uint32_t k = 0; k < 4; ++k)
        words.push_back({0, Opaque(8 * k, 0, 0) | kHard});
    const uint8_t red[4] = {0, 66, 132, 198};
    const Image rows = Decode(Bytes(words), 8, 8), twiddled = Decode(Bytes(words), 8, 8, false, 1, 0);
    for (int k = 0; k < 4; ++k)
    {
        EXPECT_EQ(rows.at(4 * (k & 1) + 1, 4 * (k >> 1) + 1)[0], red[k]) << k;
        EXPECT_EQ(twiddled.at(4 * (k >> 1) + 1, 4 * (k & 1) + 1)[0], red[k]) << k;
    }

    // One soft block across, two down: rows are uniform.
    const Image column = Decode(Bytes({{0, Opaque(31, 0, 0)}, {0, Opaque(0, 0, 15)}}), 4, 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 1; x < 4; ++x)
            EXPECT_EQ(column.at(x, y), column.at(0, y)) << x << "," << y;
    EXPECT_EQ(column.at(0, 2), kRed);
    EXPECT_EQ(column.at(0, 6), kBlue);
    // One 2bpp word, horizontal sub-mode: pixel (7, 0) reads pixel (0, 0),
    // code 3 by bit 1, as its right neighbour.
    const Image word = Decode(Bytes({{1u | 2u, Opaque(31, 0, 0, 0, 31, 0) | kFlag}}), 8, 4, true);
    EXPECT_EQ(word.at(7, 0), (Rgba{127, 127, 0, 255}));
}

TEST(ORBTCIIDecoder, EverySizeUpTo64IsTheTopLeftOfWholeBlocks)
{
    // From exactly one word per block of the rounded size, so that a read or
    // write out of bounds shows under the sanitizers.
    for (int twoBpp = 0; twoBpp < 2; ++twoBpp)
        for (int height = 1; height <= 64; ++height)
            for (int width = 1; width <= 64; ++width)
            {
                const int bw = twoBpp ? 8 : 4;
                const int paddedWidth = (width + bw - 1) / bw * bw, paddedHeight = (height + 3) / 4 * 4;
                const std::vector<uint8_t> bytes =
                    RandomBytes(size_t(paddedWidth / bw) * (paddedHeight / 4) * 8, unsigned(width * 64 + height));
                std::vector<uint8_t> part(size_t(width) * height * 4);
                ASSERT_EQ(ORBTCDecompress(bytes.data(), part.data(), unsigned(width), unsigned(height), twoBpp != 0, 1),
                          part.size());
                const Image whole = Decode(bytes, paddedWidth, paddedHeight, twoBpp != 0);
                for (int y = 0; y < height; ++y)
                    ASSERT_EQ(std::memcmp(&part[size_t(y) * width * 4], &whole.pixels[size_t(y) * paddedWidth * 4],
                                          size_t(width) * 4),
                              0)
                        << width << "x" << height << " row " << y;
            }
}

TEST(ORBTCIIDecoder, GenerationOneWordsMatchTheORBTCDecoder)
{
    const int sizes[][3] = {{8, 8, 4},  {16, 8, 4},  {8, 32, 4},  {32, 32, 4}, {12, 8, 4},
                            {16, 8, 2}, {32, 16, 2}, {16, 32, 2}, {24, 8, 2}};
    unsigned seed = 100;
    for (const auto& s : sizes)
    {
        const std::vector<uint8_t> bytes = RandomBytes(size_t(s[0]) * s[1] * s[2] / 8, seed++);
        std::vector<uint8_t> plain(size_t(s[0]) * s[1] * 4);
        ORBTDecompressORBTC(bytes.data(), s[2] == 2 ? 1 : 0, s[0], s[1], plain.data());
        EXPECT_EQ(Decode(bytes, s[0], s[1], s[2] == 2, 0, 0).pixels, plain) << s[0] << "x" << s[1] << " " << s[2];
    }
}

TEST(ORBTCIIDecoder, Refusals)
{
    const std::vector<uint8_t> bytes(64);
    std::vector<uint8_t> out(64 * 4);
    EXPECT_EQ(orbtc_decompress(bytes.data(), out.data(), 0, 4, 1, 0), 0);
    Bitmap* bitmap = new_bitmap(8, 4, 1, nullptr);
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 3, 8, 4, 4, 0, 1, bitmap), 0); // bits per pixel
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 6, 4, 4, 0, 1, bitmap), 0); // part of a block
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 8, 8, 4, 0, 1, bitmap), 0); // beyond the bitmap
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 8, 4, 3, 0, 1, bitmap), 1); // three channels: opaque
    EXPECT_EQ(bitmap->pixels[3], 255);
    delete_bitmap(bitmap);
    EXPECT_DEATH(Decompress(bytes.data(), 0, 1, 4, 1, 8, 4, 4, 0, 1, nullptr),
                 "EXITING! 1BPP UnpackMods not yet implemented!");
}
