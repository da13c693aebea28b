// The extended decoder: ORBTCII words worked by hand, word order and sizes,
// ORBTC words against the plain decoder, and the optimiser's model of what
// its words decode to.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

constexpr uint32_t kFlag = 1u, kHard = 0x8000u;
using Rgba = std::vector<uint8_t>;
const Rgba kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255}, kWhite{255, 255, 255, 255};

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

TEST(ORBTCIIDecoder, HardnessIsPsAndHardPixelsTakeTheirOwnBlocksColours)
{
    // A of blocks (0,0) red, (1,0) green, (0,1) blue, (1,1) white; codes 0.
    std::vector<std::pair<uint32_t, uint32_t>> words = {
        {0, Opaque(31, 0, 0) | kHard}, {0, Opaque(0, 31, 0)}, {0, Opaque(0, 0, 15)}, {0, Opaque(31, 31, 15)}};
    const Image soft = Decode(Bytes(words), 8, 8);
    // P's tile spans pixels 2 to 5 both ways.
    for (int y = 2; y < 6; ++y)
        for (int x = 2; x < 6; ++x)
            EXPECT_EQ(soft.at(x, y), y < 4 ? (x < 4 ? kRed : kGreen) : (x < 4 ? kBlue : kWhite)) << x << "," << y;
    EXPECT_EQ(soft.at(7, 2), (Rgba{63, 191, 0, 255})); // the green block's tile is soft

    // Hard flags in Q, R and S change nothing in P's tile, only their own tiles.
    for (int k = 1; k < 4; ++k)
        words[k].second |= kHard;
    const Image hard = Decode(Bytes(words), 8, 8);
    for (int y = 2; y < 6; ++y)
        for (int x = 2; x < 6; ++x)
            EXPECT_EQ(hard.at(x, y), soft.at(x, y)) << x << "," << y;
    EXPECT_EQ(hard.at(7, 2), kGreen);
}

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

TEST(ORBTCIIDecoder, TranscodeReadsORBTCII)
{
    const std::vector<uint8_t> bytes = RandomBytes(12 * 8 / 2, 7); // 3 x 2 words at 4bpp
    EXPECT_TRUE(CanTranscodeFrom(PixelType(ePF_ORBTCII_2bpp)));
    CORBTexture texture(CORBTextureHeader(uint64_t(ePF_ORBTCII_4bpp), 8, 12));
    ASSERT_EQ(texture.getDataSize(), bytes.size());
    std::memcpy(texture.getDataPtr(), bytes.data(), bytes.size());
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    const Image expected = Decode(bytes, 12, 8);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), expected.pixels.data(), expected.pixels.size()), 0);
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

namespace
{

// Random pixels and representatives under the optimiser's records, modes
// drawn from 'modes', packed and decoded: each block's own pixels are what
// its evaluation says (source less the residual it leaves for the fit).
void ExpectModelMatchesDecoder(int bitsPerPixel, uint32_t wide, uint32_t high, const std::vector<uint32_t>& modes,
                               unsigned seed)
{
    CompressParams p;
    p.bitsPerPixel = uint8_t(bitsPerPixel);
    p.blockWidth = bitsPerPixel == 2 ? 8 : 4;
    p.windowWidth = uint8_t(2 * p.blockWidth + 1);
    p.format = 4;
    p.isGeneration2 = 1;
    p.blocksWide = wide;
    p.blocksHigh = high;
    const int bw = p.blockWidth, ww = p.windowWidth, width = int(wide) * bw;

    std::mt19937 random(seed);
    std::vector<unsigned char> pixels(size_t(width) * high * 16);
    for (unsigned char& v : pixels)
        v = uint8_t(random());
    std::unique_ptr<ImageBuffer> image(new ImageBuffer{});
    image->width = width;
    image->height = int(high) * 4;
    for (int y = 0; y < image->height; ++y)
        image->rows[y] = &pixels[size_t(y) * width * 4];

    std::vector<RegionStats> records(size_t(wide) * high);
    std::memset(static_cast<void*>(records.data()), 0, records.size() * sizeof(RegionStats));
    std::vector<RegionStats*> rows;
    for (uint32_t y = 0; y < high; ++y)
        rows.push_back(&records[size_t(y) * wide]);
    for (RegionStats& r : records)
    {
        unsigned char a[4], b[4];
        for (int c = 0; c < 4; ++c)
            a[c] = uint8_t(random()), b[c] = uint8_t(random());
        if (random() % 3 == 0)
            a[3] = b[3] = 255;
        r.selectedMode = r.modeSlots[0].mode = uint8_t(modes[random() % modes.size()]);
        r.modeSlots[0].candidateCount = 1;
        MapToRepresentableColoursInt(true, a, b, r.modeSlots[0].candidates[0].repA, r.modeSlots[0].candidates[0].repB);
    }

    OptimiseWork* work = new OptimiseWork;
    ASSERT_EQ(InitOptimiseWork(*work, p), 1);
    std::vector<std::pair<uint32_t, uint32_t>> words;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t word[2];
            PackLocalBlock(*image, p, y, x, *work, rows.data(), word);
            words.push_back({word[0], word[1]});
        }
    const Image decoded = Decode(Bytes(words), width, image->height, bitsPerPixel == 2);

    auto own = [&](int u, int v) { return u >= bw / 2 && u < 3 * bw / 2 && v >= 2 && v < 6; };
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t neighbourModes[9];
            NeighbourhoodReps reps;
            GatherNeighbourhood(p, y, x, rows.data(), neighbourModes, reps);
            GatherWindowPixels(*image, p, y, x, work->window);
            CreateBlendingAndUpdateWeights(rows[y][x].selectedMode, neighbourModes, 0, p, *work);
            WindowErrors errors;
            if (bitsPerPixel == 4)
                EvalAllCandsAndGetErrors4BPP(*work, p, reps, false, errors);
            else
                EvalAllCandsAndGetErrors2BPP(*work, p, reps, false, errors);
            for (int v = 2; v < 6; ++v)
                for (int u = bw / 2; u < 3 * bw / 2; ++u)
                {
                    // A derived pixel is exact only where it reads the block's own choices.
                    const int cls = work->records[v * ww + u].modulationClass;
                    if (((cls == 2 || cls == 3) && !(own(u - 1, v) && own(u + 1, v))) ||
                        ((cls == 2 || cls == 4) && !(own(u, v - 1) && own(u, v + 1))))
                        continue;
                    const int px = int(x) * bw + u - bw / 2, py = int(y) * 4 + v - 2;
                    const float* residual = work->fitting.floatResiduals + 4 * (v * ww + u);
                    Rgba model(4);
                    for (int c = 0; c < 4; ++c)
                        model[c] = uint8_t(float(pixels[(size_t(py) * width + px) * 4 + c]) - residual[c]);
                    ASSERT_EQ(decoded.at(px, py), model) << "block " << x << "," << y << " mode "
                                                         << rows[y][x].selectedMode << " pixel " << u << "," << v;
                }
        }
    ReleaseOptimiseWork(*work);
    delete work;
}

} // namespace

TEST(ORBTCIIDecoder, AgreesWithTheOptimisersModel)
{
    for (unsigned seed = 1; seed <= 4; ++seed)
    {
        ExpectModelMatchesDecoder(4, 4, 4, {0, 1, 2, 3}, seed);
        ExpectModelMatchesDecoder(4, 3, 5, {0, 1, 2, 3}, seed + 10);
        ExpectModelMatchesDecoder(2, 4, 4, {8, 9, 10, 11, 12, 13, 14, 15}, seed + 20);
        ExpectModelMatchesDecoder(2, 3, 2, {8, 9, 10, 11, 12, 13, 14, 15}, seed + 30);
    }
    ExpectModelMatchesDecoder(4, 4, 4, {3}, 40); // palette pixels in every tile
    ExpectModelMatchesDecoder(4, 1, 1, {0, 1, 2, 3}, 41);
}
