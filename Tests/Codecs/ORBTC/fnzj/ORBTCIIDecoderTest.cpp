// The extended decoder: ORBTCII words worked by hand, word order and sizes,
// ORBTC words against the plain decoder, and the optimiser's model of what
// its words decode to.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCFormat.h"
#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

constexpr uint32_t kFlag = 1u, kHard = 0x8000u;

struct Word
{
    uint32_t modulation, colour;
};

// An ORBTCII colour word of two opaque colours: A 5, 5, 4 bits, B 5, 5, 5.
uint32_t Opaque(uint32_t ar, uint32_t ag, uint32_t ab, uint32_t br = 0, uint32_t bg = 0, uint32_t bb = 0)
{
    return 0x80000000u | br << 26 | bg << 21 | bb << 16 | ar << 10 | ag << 5 | ab << 1;
}

std::vector<uint8_t> Bytes(const std::vector<Word>& words)
{
    std::vector<uint8_t> bytes(words.size() * 8);
    for (size_t i = 0; i < words.size(); ++i)
        for (int k = 0; k < 4; ++k)
        {
            bytes[8 * i + k] = uint8_t(words[i].modulation >> (8 * k));
            bytes[8 * i + 4 + k] = uint8_t(words[i].colour >> (8 * k));
        }
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
    int width = 0;
    std::vector<uint8_t> pixels;
    std::vector<uint8_t> at(int x, int y) const
    {
        const uint8_t* p = &pixels[(size_t(y) * width + x) * 4];
        return {p[0], p[1], p[2], p[3]};
    }
};

Image DecodeII(const std::vector<uint8_t>& bytes, int width, int height, bool twoBpp = false)
{
    Image image{width, std::vector<uint8_t>(size_t(width) * height * 4)};
    EXPECT_EQ(orbtc_decompress(bytes.data(), image.pixels.data(), unsigned(width), unsigned(height), 1,
                               twoBpp ? 1 : 0),
              1);
    return image;
}

// Decompress on whole blocks, with the word meaning and order given.
Image DecodeWith(const std::vector<uint8_t>& bytes, int width, int height, int bitsPerPixel, unsigned extended,
                 unsigned rowOrder)
{
    Bitmap* bitmap = new_bitmap(width, height, 1, nullptr);
    EXPECT_EQ(Decompress(bytes.data(), 0, extended, 4, bitsPerPixel, width, height, 4, 0, rowOrder, bitmap), 1);
    Image image{width, std::vector<uint8_t>(bitmap->pixels, bitmap->pixels + size_t(width) * height * 4)};
    delete_bitmap(bitmap);
    return image;
}

using Rgba = std::vector<uint8_t>;
const Rgba kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255}, kWhite{255, 255, 255, 255};

} // namespace

TEST(ORBTCIIDecoder, HardTileIsPsAndTakesEachBlocksOwnColours)
{
    // A of blocks (0,0) red, (1,0) green, (0,1) blue, (1,1) white; codes 0.
    std::vector<Word> words = {{0, Opaque(31, 0, 0) | kHard}, {0, Opaque(0, 31, 0)}, {0, Opaque(0, 0, 15)},
                               {0, Opaque(31, 31, 15)}};
    const Image soft = DecodeII(Bytes(words), 8, 8);
    // P's tile spans pixels 2 to 5 both ways; each pixel is its block's A.
    for (int y = 2; y < 6; ++y)
        for (int x = 2; x < 6; ++x)
            EXPECT_EQ(soft.at(x, y), y < 4 ? (x < 4 ? kRed : kGreen) : (x < 4 ? kBlue : kWhite)) << x << "," << y;
    // The tile whose P is the green block is soft: its pixel (7, 2) blends.
    EXPECT_EQ(soft.at(7, 2), (Rgba{63, 191, 0, 255}));

    // Hard flags in Q, R and S change nothing in P's tile, but make their own tiles hard.
    for (int k = 1; k < 4; ++k)
        words[k].colour |= kHard;
    const Image hard = DecodeII(Bytes(words), 8, 8);
    for (int y = 2; y < 6; ++y)
        for (int x = 2; x < 6; ++x)
            EXPECT_EQ(hard.at(x, y), soft.at(x, y)) << x << "," << y;
    EXPECT_EQ(hard.at(7, 2), kGreen);
}

TEST(ORBTCIIDecoder, LocalPaletteByPlaceAndCode)
{
    // P hard; every block's modulation flag set. A of block k has red 8k, B
    // 8k + 4, which expand to these values.
    const uint8_t aRed[4] = {0, 66, 132, 198}, bRed[4] = {33, 99, 165, 231};
    struct Case
    {
        int placeX, placeY, code, index;
    };
    const Case cases[] = {{1, 0, 2, 4}, {3, 1, 0, 2}, {2, 2, 1, 3}, {0, 1, 2, 6},
                          {1, 1, 3, 7}, {3, 3, 3, 5}, {0, 3, 0, 0}, {2, 1, 1, 1}};
    const int blockOfIndex[8] = {0, 0, 3, 3, 1, 1, 2, 2};
    for (int code = 0; code < 4; ++code)
    {
        std::vector<Word> words;
        for (uint32_t k = 0; k < 4; ++k)
            words.push_back({0x55555555u * uint32_t(code), Opaque(8 * k, 0, 0, 8 * k + 4) | kFlag | (k ? 0 : kHard)});
        const Image image = DecodeII(Bytes(words), 8, 8);
        for (const Case& c : cases)
            if (c.code == code)
            {
                const int block = blockOfIndex[c.index];
                EXPECT_EQ(image.at(2 + c.placeX, 2 + c.placeY)[0], c.index & 1 ? bRed[block] : aRed[block])
                    << "place " << c.placeX << "," << c.placeY << " code " << code << ": "
                    << LocalPaletteIndexNames[c.index];
            }
        if (code != 3)
            continue;
        // Without its flag, S's pixels take standard codes: 3 is S's own B.
        words[3].colour &= ~kFlag;
        EXPECT_EQ(DecodeII(Bytes(words), 8, 8).at(4, 4)[0], bRed[3]);
    }
}

TEST(ORBTCIIDecoder, PlaceZeroOfAHardTileTakesAStandardValue)
{
    // One block, hard and flagged: code 2 at tile places (0, 0) and (1, 0),
    // pixels (2, 2) and (3, 2). A red, B green.
    const std::vector<Word> words = {{2u << 20 | 2u << 22, Opaque(31, 0, 0, 0, 31, 0) | kHard | kFlag}};
    const Image image = DecodeII(Bytes(words), 4, 4);
    EXPECT_EQ(image.at(2, 2), (Rgba{95, 159, 0, 255})); // weight 5, not the palette nor punch-through
    EXPECT_EQ(image.at(3, 2), kRed);                    // the palette's A of Q
}

TEST(ORBTCIIDecoder, ColourFormsAndTranslucentAlpha)
{
    // One block: codes 0 (A) in rows 0 and 1, 3 (B) in rows 2 and 3.
    const uint32_t modulation = 0xFFFF0000u;
    struct Case
    {
        uint32_t colour;
        unsigned extended;
        uint8_t alphaA, alphaB;
    };
    const Case cases[] = {
        {0, 1, 0, 17},                      // stored alpha 0: A 0, B 1 on the 4-bit scale
        {0, 0, 0, 0},                       // ORBTC: both 0
        {7u << 28 | 7u << 12, 1, 238, 255}, // stored 7: A 14, B 15
        {7u << 28 | 7u << 12 | kHard, 1, 238, 255}, // bit 15 is no form in ORBTCII
        {Opaque(0, 0, 0), 1, 255, 255},             // bit 31 makes A opaque too
    };
    for (const Case& c : cases)
    {
        const Image image = DecodeWith(Bytes({{modulation, c.colour}}), 4, 4, 4, c.extended, 1);
        EXPECT_EQ(image.at(1, 0)[3], c.alphaA) << std::hex << c.colour << " extended " << c.extended;
        EXPECT_EQ(image.at(1, 3)[3], c.alphaB) << std::hex << c.colour << " extended " << c.extended;
    }
}

TEST(ORBTCIIDecoder, PunchThroughCodeTwoIsTransparentBlack)
{
    // One soft block, flagged: rows have codes 1, 2, 0, 3. A red, B green.
    const uint32_t modulation = 0x55u | 0xAAu << 8 | 0xFFu << 24;
    const uint32_t colour = Opaque(31, 0, 0, 0, 31, 0) | kFlag;
    const Image ii = DecodeII(Bytes({{modulation, colour}}), 4, 4);
    EXPECT_EQ(ii.at(0, 0), (Rgba{127, 127, 0, 255}));
    EXPECT_EQ(ii.at(0, 1), (Rgba{0, 0, 0, 0}));
    EXPECT_EQ(ii.at(0, 2), kRed);
    EXPECT_EQ(ii.at(0, 3), kGreen);
    // ORBTC keeps the mix's colour (bit 15 makes its A opaque).
    const Image one = DecodeWith(Bytes({{modulation, colour | kHard}}), 4, 4, 4, 0, 1);
    EXPECT_EQ(one.at(0, 1), (Rgba{127, 127, 0, 0}));
}

TEST(ORBTCIIDecoder, TwoBppHardTilesAndDerivedModulation)
{
    // Two words across: the first hard and red, the second soft and blue.
    std::vector<Word> words = {{0, Opaque(31, 0, 0, 0, 31, 0) | kHard}, {0, Opaque(0, 0, 15)}};
    const Image colours = DecodeII(Bytes(words), 16, 4, true);
    for (int y = 0; y < 4; ++y)
        for (int x = 4; x < 12; ++x)
            EXPECT_EQ(colours.at(x, y), x < 8 ? kRed : kBlue) << x << "," << y;
    EXPECT_EQ(colours.at(13, 0), (Rgba{31, 0, 223, 255})); // the soft tile blends

    // Horizontal sub-mode with codes 0 beside a flag 0 word of weight 8: pixel
    // (7, 0) derives 4 across the word boundary, in the first word's colours.
    words[0].modulation = 1;
    words[0].colour |= kFlag;
    words[1].modulation = 0xFFFFFFFFu;
    const Image derived = DecodeII(Bytes(words), 16, 4, true);
    EXPECT_EQ(derived.at(7, 0), (Rgba{127, 127, 0, 255}));
    EXPECT_EQ(derived.at(5, 0), kRed);
}

TEST(ORBTCIIDecoder, WordsInRowOrder)
{
    // Hard blocks show their own A: red 8 x the word's index.
    std::vector<Word> words;
    for (uint32_t k = 0; k < 4; ++k)
        words.push_back({0, Opaque(8 * k, 0, 0) | kHard});
    const uint8_t red[4] = {0, 66, 132, 198};
    const Image rows = DecodeII(Bytes(words), 8, 8);
    const Image twiddled = DecodeWith(Bytes(words), 8, 8, 4, 1, 0);
    for (int by = 0; by < 2; ++by)
        for (int bx = 0; bx < 2; ++bx)
        {
            EXPECT_EQ(rows.at(4 * bx + 1, 4 * by + 1)[0], red[by * 2 + bx]) << bx << "," << by;
            EXPECT_EQ(twiddled.at(4 * bx + 1, 4 * by + 1)[0], red[bx * 2 + by]) << bx << "," << by;
        }
}

TEST(ORBTCIIDecoder, OneBlockAcrossWrapsOntoItself)
{
    // 4bpp, one block across and two down, soft: no change along a row.
    const Image column = DecodeII(Bytes({{0, Opaque(31, 0, 0)}, {0, Opaque(0, 0, 15)}}), 4, 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 1; x < 4; ++x)
            EXPECT_EQ(column.at(x, y), column.at(0, y)) << x << "," << y;
    EXPECT_EQ(column.at(0, 2), kRed);
    EXPECT_EQ(column.at(0, 6), kBlue);

    // 2bpp, one word, horizontal sub-mode: pixel (7, 0) reads pixel (0, 0),
    // code 3 by bit 1, as its right neighbour.
    const Image word = DecodeII(Bytes({{1u | 2u, Opaque(31, 0, 0, 0, 31, 0) | kFlag}}), 8, 4, true);
    EXPECT_EQ(word.at(7, 0), (Rgba{127, 127, 0, 255}));
}

TEST(ORBTCIIDecoder, SizesRoundUpToWholeBlocks)
{
    // Each image decodes as the top-left of its rounded size, from exactly
    // one word per block of that size.
    const int sizes[][3] = {{1, 1, 4}, {3, 3, 4}, {5, 7, 4}, {18, 10, 4}, {1, 1, 2}, {9, 5, 2}, {20, 6, 2}};
    unsigned seed = 1;
    for (const auto& s : sizes)
    {
        const int width = s[0], height = s[1], bw = s[2] == 2 ? 8 : 4;
        const int paddedWidth = (width + bw - 1) / bw * bw, paddedHeight = (height + 3) / 4 * 4;
        const std::vector<uint8_t> bytes = RandomBytes(size_t(paddedWidth / bw) * (paddedHeight / 4) * 8, seed++);
        const Image whole = DecodeII(bytes, paddedWidth, paddedHeight, s[2] == 2);
        const Image part = DecodeII(bytes, width, height, s[2] == 2);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(part.at(x, y), whole.at(x, y)) << width << "x" << height << " at " << x << "," << y;
    }
}

TEST(ORBTCIIDecoder, GenerationOneWordsMatchTheORBTCDecoder)
{
    const int sizes[][3] = {{8, 8, 4}, {16, 8, 4}, {8, 32, 4}, {32, 32, 4}, {12, 8, 4},
                            {16, 8, 2}, {32, 16, 2}, {16, 32, 2}, {24, 8, 2}};
    unsigned seed = 100;
    for (const auto& s : sizes)
    {
        const int width = s[0], height = s[1], bitsPerPixel = s[2];
        const std::vector<uint8_t> bytes = RandomBytes(size_t(width) * height * bitsPerPixel / 8, seed++);
        std::vector<uint8_t> plain(size_t(width) * height * 4);
        ORBTDecompressORBTC(bytes.data(), bitsPerPixel == 2 ? 1 : 0, width, height, plain.data());
        EXPECT_EQ(DecodeWith(bytes, width, height, bitsPerPixel, 0, 0).pixels, plain)
            << width << "x" << height << " at " << bitsPerPixel << "bpp";
    }
}

TEST(ORBTCIIDecoder, ReachedThroughORBTCDecompressAndTranscode)
{
    const unsigned width = 12, height = 8; // a grid of 3 x 2 words at 4bpp
    const std::vector<uint8_t> bytes = RandomBytes(12 * 8 / 2, 7);
    const Image expected = DecodeII(bytes, int(width), int(height));
    std::vector<uint8_t> out(width * height * 4);
    EXPECT_EQ(ORBTCDecompress(bytes.data(), out.data(), width, height, false, 1), width * height * 4);
    EXPECT_EQ(out, expected.pixels);

    for (uint32_t format : {uint32_t(ePF_ORBTCII_4bpp), uint32_t(ePF_ORBTCII_2bpp)})
        EXPECT_TRUE(CanTranscodeFrom(PixelType(format))) << format;
    CORBTexture texture(CORBTextureHeader(uint64_t(ePF_ORBTCII_4bpp), height, width));
    ASSERT_EQ(texture.getDataSize(), bytes.size());
    std::memcpy(texture.getDataPtr(), bytes.data(), bytes.size());
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), expected.pixels.data(), expected.pixels.size()), 0);
}

TEST(ORBTCIIDecoder, ArbitraryWordsAtEverySmallSize)
{
    // Exactly the words of each size, so that a read or write out of bounds
    // shows under the sanitizers.
    for (int twoBpp = 0; twoBpp < 2; ++twoBpp)
        for (unsigned height = 1; height <= 64; ++height)
            for (unsigned width = 1; width <= 64; ++width)
            {
                const unsigned bw = twoBpp ? 8 : 4;
                const std::vector<uint8_t> bytes =
                    RandomBytes(size_t((width + bw - 1) / bw) * ((height + 3) / 4) * 8, width * 64 + height);
                std::vector<uint8_t> pixels(size_t(width) * height * 4);
                ASSERT_EQ(ORBTCDecompress(bytes.data(), pixels.data(), width, height, twoBpp != 0, 1),
                          width * height * 4)
                    << width << "x" << height;
            }
}

TEST(ORBTCIIDecoder, RefusesWhatItCannotDecode)
{
    const std::vector<uint8_t> bytes(64);
    std::vector<uint8_t> out(64 * 4);
    EXPECT_EQ(orbtc_decompress(bytes.data(), out.data(), 0, 4, 1, 0), 0);
    EXPECT_EQ(orbtc_decompress(nullptr, out.data(), 4, 4, 1, 0), 0);
    Bitmap* bitmap = new_bitmap(8, 4, 1, nullptr);
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 3, 8, 4, 4, 0, 1, bitmap), 0);  // bits per pixel
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 3, 4, 8, 4, 4, 0, 1, bitmap), 0);  // format
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 6, 4, 4, 0, 1, bitmap), 0);  // part of a block
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 8, 8, 4, 0, 1, bitmap), 0);  // beyond the bitmap
    EXPECT_EQ(Decompress(bytes.data(), 0, 1, 4, 4, 8, 4, 3, 0, 1, bitmap), 1);  // three channels: opaque
    EXPECT_EQ(bitmap->pixels[3], 255);
    delete_bitmap(bitmap);
    EXPECT_DEATH(Decompress(bytes.data(), 0, 1, 4, 1, 8, 4, 4, 0, 1, nullptr),
                 "EXITING! 1BPP UnpackMods not yet implemented!");
}

// ---- The optimiser's model ----

namespace
{

// Block records of the optimiser over a pixel image, one candidate each.
struct ModelGrid
{
    CompressParams params;
    std::vector<RegionStats> records;
    std::vector<RegionStats*> rows;
    std::vector<unsigned char> pixels;
    std::unique_ptr<ImageBuffer> image{new ImageBuffer{}};

    ModelGrid(int bitsPerPixel, uint32_t wide, uint32_t high) : records(size_t(wide) * high)
    {
        params.bitsPerPixel = uint8_t(bitsPerPixel);
        params.blockWidth = bitsPerPixel == 2 ? 8 : 4;
        params.windowWidth = uint8_t(2 * params.blockWidth + 1);
        params.format = 4;
        params.isGeneration2 = 1;
        params.blocksWide = wide;
        params.blocksHigh = high;
        std::memset(static_cast<void*>(records.data()), 0, records.size() * sizeof(RegionStats));
        for (uint32_t y = 0; y < high; ++y)
            rows.push_back(&records[size_t(y) * wide]);
        image->width = int(wide * params.blockWidth);
        image->height = int(high * 4);
        pixels.resize(size_t(image->width) * image->height * 4);
        for (int y = 0; y < image->height; ++y)
            image->rows[y] = pixels.data() + size_t(y) * image->width * 4;
    }
};

struct WorkDeleter
{
    void operator()(OptimiseWork* work) const
    {
        ReleaseOptimiseWork(*work);
        delete work;
    }
};

// Random pixels and representatives, modes drawn from 'modes'; translucent
// pairs in two blocks of three.
void ExpectModelMatchesDecoder(int bitsPerPixel, uint32_t wide, uint32_t high, const std::vector<uint32_t>& modes,
                               unsigned seed)
{
    ModelGrid grid(bitsPerPixel, wide, high);
    const CompressParams& p = grid.params;
    std::mt19937 random(seed);
    for (unsigned char& v : grid.pixels)
        v = uint8_t(random());
    for (RegionStats& r : grid.records)
    {
        unsigned char a[4], b[4];
        for (int c = 0; c < 4; ++c)
        {
            a[c] = uint8_t(random());
            b[c] = uint8_t(random());
        }
        if (random() % 3 == 0)
            a[3] = b[3] = 255;
        r.selectedMode = modes[random() % modes.size()];
        r.modeSlots[0].mode = uint8_t(r.selectedMode);
        r.modeSlots[0].candidateCount = 1;
        MapToRepresentableColoursInt(true, a, b, r.modeSlots[0].candidates[0].repA, r.modeSlots[0].candidates[0].repB);
    }

    std::unique_ptr<OptimiseWork, WorkDeleter> work(new OptimiseWork);
    ASSERT_EQ(InitOptimiseWork(*work, p), 1);
    std::vector<Word> words;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t word[2];
            PackLocalBlock(*grid.image, p, y, x, *work, grid.rows.data(), word);
            words.push_back({word[0], word[1]});
        }
    const Image decoded = DecodeII(Bytes(words), grid.image->width, grid.image->height, bitsPerPixel == 2);

    const int bw = p.blockWidth, ww = p.windowWidth;
    auto own = [&](int u, int v) { return u >= bw / 2 && u < 3 * bw / 2 && v >= 2 && v < 6; };
    int checked = 0;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t neighbourModes[9];
            NeighbourhoodReps reps;
            GatherNeighbourhood(p, y, x, grid.rows.data(), neighbourModes, reps);
            GatherWindowPixels(*grid.image, p, y, x, work->window);
            CreateBlendingAndUpdateWeights(grid.rows[y][x].selectedMode, neighbourModes, 0, p, *work);
            WindowErrors errors;
            if (bitsPerPixel == 4)
                EvalAllCandsAndGetErrors4BPP(*work, p, reps, false, errors);
            else
                EvalAllCandsAndGetErrors2BPP(*work, p, reps, false, errors);
            for (int v = 2; v < 6; ++v)
                for (int u = bw / 2; u < 3 * bw / 2; ++u)
                {
                    // A derived pixel is exact only where the values it reads
                    // are the block's own choices.
                    const int cls = work->records[v * ww + u].modulationClass;
                    if (((cls == 2 || cls == 3) && !(own(u - 1, v) && own(u + 1, v))) ||
                        ((cls == 2 || cls == 4) && !(own(u, v - 1) && own(u, v + 1))))
                        continue;
                    const int px = int(x) * bw + u - bw / 2, py = int(y) * 4 + v - 2;
                    const Rgba source(&grid.pixels[(size_t(py) * grid.image->width + px) * 4],
                                      &grid.pixels[(size_t(py) * grid.image->width + px) * 4] + 4);
                    const float* residual = work->fitting.floatResiduals + 4 * (v * ww + u);
                    Rgba model(4);
                    for (int c = 0; c < 4; ++c)
                        model[c] = uint8_t(float(source[c]) - residual[c]);
                    ++checked;
                    ASSERT_EQ(decoded.at(px, py), model)
                        << "block " << x << "," << y << " mode " << grid.rows[y][x].selectedMode << " pixel " << u
                        << "," << v << " palette " << int(work->records[v * ww + u].palettePixel);
                }
        }
    EXPECT_GE(checked, int(wide * high) * bw * 2);
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
    // Palette pixels in every tile: hard, flagged blocks only.
    ExpectModelMatchesDecoder(4, 4, 4, {3}, 40);
}
