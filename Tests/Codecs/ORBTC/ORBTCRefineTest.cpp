#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCRefineGrid.h"
#include "Codecs/ORBTC/ORBTCRefineSolve.h"
#include "ORBTextureInfo.h"

using namespace orbtexture;

namespace
{

using Bytes = std::vector<uint8_t>;

Bytes Random(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (uint8_t& b : bytes)
        b = uint8_t(random());
    return bytes;
}

// A smooth opaque picture that does not wrap (a seam at the edges), with a
// few hard edges and, optionally, translucent and clear areas.
Bytes Picture(unsigned width, unsigned height, bool alpha)
{
    Bytes image(size_t(width) * height * 4);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            uint8_t* p = &image[(size_t(y) * width + x) * 4];
            p[0] = uint8_t(255 * x / width);
            p[1] = uint8_t(128 + 100 * std::sin(0.2 * y));
            p[2] = (x / 5 + y / 7) % 3 == 0 ? 220 : uint8_t(40 + y);
            p[3] = !alpha ? 255 : x < width / 3 ? 0 : x < width / 2 ? uint8_t(4 * y) : 255;
        }
    return image;
}

RefineError Error(const Bytes& source, const Bytes& words, unsigned width, unsigned height, bool twoBpp,
                  unsigned generation)
{
    Bytes decoded(size_t(width) * height * 4);
    EXPECT_NE(ORBTCDecompress(words.data(), decoded.data(), width, height, twoBpp, generation), 0u);
    RefineError total;
    for (size_t k = 0; k < decoded.size(); k += 4)
        total += PixelError(&source[k], &decoded[k]);
    return total;
}

Bytes Compress(const Bytes& source, unsigned width, unsigned height, bool twoBpp, unsigned generation, unsigned quality,
               const ORBTCallContext& context = ORBTCallContext())
{
    Bytes words(ORBTCCompress(source.data(), nullptr, width, height, true, twoBpp, generation, quality));
    EXPECT_EQ(ORBTCCompress(source.data(), words.data(), width, height, true, twoBpp, generation, quality, context),
              words.size());
    return words;
}

} // namespace

// The grid's tiles, its slots and its linear model against the decoders, on
// random words of every kind (hard tiles, palettes, punch-through, 2bpp
// sub-modes) and on twiddled and row-ordered grids.
TEST(ORBTCRefineGrid, MatchesTheDecoders)
{
    for (unsigned generation : {0u, 1u})
        for (bool twoBpp : {false, true})
            for (unsigned numX : {8u, 6u})
            {
                const unsigned bw = twoBpp ? 8 : 4, numY = numX == 8 ? 4 : 5, width = numX * bw, height = numY * 4;
                const Bytes words = Random(size_t(numX) * numY * 8, numX + 10 * generation + (twoBpp ? 5 : 0));
                const Bytes source = Random(size_t(width) * height * 4, 3);
                Bytes decoded(size_t(width) * height * 4);
                ORBTCDecompress(words.data(), decoded.data(), width, height, twoBpp, generation);
                CRefineGrid grid(source.data(), width, height, width, height, twoBpp, generation == 1,
                                 reinterpret_cast<const ORBTCWord*>(words.data()));
                std::vector<float> colours;
                PresentColours(grid, colours);
                RefineError total;
                for (unsigned tile = 0; tile < grid.blockCount(); ++tile)
                {
                    uint8_t out[32][4];
                    float coefficients[32][8];
                    unsigned blocks[4];
                    grid.DecodeTile(tile, out);
                    grid.TileCoefficients(tile, coefficients);
                    grid.TileBlocks(tile, blocks);
                    total += grid.TileError(tile);
                    Pixel128S a[32], b[32];
                    const bool hard = grid.TileColours(tile, a, b);
                    for (unsigned k = 0; k < 4 * bw; ++k)
                    {
                        unsigned x, y;
                        grid.TilePixel(tile, k % bw, k / bw, x, y);
                        const uint8_t* expected = &decoded[(size_t(y) * width + x) * 4];
                        ASSERT_EQ(std::memcmp(out[k], expected, 4), 0)
                            << generation << twoBpp << numX << " " << x << "," << y;
                        // Weight 0 or 8 in a soft tile decodes to the
                        // unmodulated colour A or B.
                        float onB = 0.f, onA = 0.f;
                        for (int q = 0; q < 8; ++q)
                            (q & 1 ? onB : onA) += coefficients[k][q];
                        if (!hard && (onA == 0.f) != (onB == 0.f))
                        {
                            const Pixel128S& c = onB == 0.f ? a[k] : b[k];
                            EXPECT_EQ(expected[0], uint8_t(c.red));
                            EXPECT_EQ(expected[2], uint8_t(c.blue));
                        }
                        for (int ch = 0; ch < 3; ++ch)
                        {
                            float model = 0.f;
                            for (int q = 0; q < 8; ++q)
                                model += coefficients[k][q] * colours[(blocks[q >> 1] * 2 + (q & 1)) * 3 + ch];
                            ASSERT_NEAR(model, expected[ch], 6.0) << generation << twoBpp << " " << x << "," << y;
                        }
                    }
                }
                const RefineError whole = Error(source, words, width, height, twoBpp, generation);
                EXPECT_EQ(total.weighted, whole.weighted);
                EXPECT_EQ(total.rgb, whole.rgb);

                // A code written to a slot decodes at that slot's pixel.
                CRefineGrid edited(source.data(), width, height, width, height, twoBpp, generation == 1,
                                   reinterpret_cast<const ORBTCWord*>(words.data()));
                const unsigned block = numX + 1;
                ModulationSlot slots[32];
                const unsigned count = ModulationSlots(edited.word(block), twoBpp, slots);
                EXPECT_EQ(count, twoBpp && !(edited.word(block).colourData & 1u) ? 32u : 16u);
                for (unsigned s = 0; s < count; ++s)
                    for (unsigned code : {0u, 3u})
                    {
                        WriteSlot(edited.word(block), slots[s], code);
                        EXPECT_EQ(ReadSlot(edited.word(block), slots[s]), code);
                        unsigned tile, index;
                        edited.BlockPixel(block, slots[s].x, slots[s].y, tile, index);
                        uint8_t out[32][4];
                        edited.DecodeTile(tile, out);
                        float coefficients[32][8];
                        edited.TileCoefficients(tile, coefficients);
                        unsigned blocks[4];
                        edited.TileBlocks(tile, blocks);
                        // The pixel weighs only colour A of its blocks for
                        // code 0 and only B for code 3, unless it reads a
                        // palette.
                        float onB = 0.f, onA = 0.f;
                        for (int q = 0; q < 8; ++q)
                            (q & 1 ? onB : onA) += coefficients[index][q];
                        if (onA + onB > 0.99f && onA + onB < 1.01f)
                        {
                            EXPECT_NEAR(code == 0 ? onB : onA, 0.f, 1e-6) << s << " " << code;
                        }
                    }
            }
}

// Quality 9 never decodes worse than quality 8, in either measure, is the
// same with any thread count, and gains on pictures that leave quality 8
// room: a wrap seam and grids that are not powers of two.
TEST(ORBTCRefine, NeverWorseAndDeterministic)
{
    struct Case
    {
        unsigned width, height;
        bool twoBpp, alpha;
        unsigned generation;
    };
    const Case cases[] = {{64, 32, false, false, 0}, {64, 32, true, false, 0}, {48, 20, false, true, 0},
                          {16, 12, false, true, 1},  {16, 8, true, false, 1},  {13, 9, false, false, 1}};
    unsigned gains = 0;
    for (const Case& c : cases)
    {
        const Bytes source = Picture(c.width, c.height, c.alpha);
        const Bytes q8 = Compress(source, c.width, c.height, c.twoBpp, c.generation, 8);
        const Bytes q9 = Compress(source, c.width, c.height, c.twoBpp, c.generation, 9);
        const RefineError before = Error(source, q8, c.width, c.height, c.twoBpp, c.generation);
        const RefineError after = Error(source, q9, c.width, c.height, c.twoBpp, c.generation);
        EXPECT_LE(after.weighted, before.weighted) << c.width << "x" << c.height;
        EXPECT_LE(after.rgb, before.rgb) << c.width << "x" << c.height;
        gains += after.weighted < before.weighted;
        EXPECT_EQ(Compress(source, c.width, c.height, c.twoBpp, c.generation, 10), q9);
    }
    EXPECT_GE(gains, 4u);

    const Bytes source = Picture(96, 64, false);
    ORBTCallContext context;
    Bytes first;
    for (unsigned threads : {1u, 2u, 5u})
    {
        context.threads = threads;
        const Bytes words = Compress(source, 96, 64, false, 0, 9, context);
        if (first.empty())
            first = words;
        EXPECT_EQ(words, first) << threads;
    }
}

TEST(ORBTCRefine, ProgressAndCancel)
{
    const Bytes source = Picture(64, 32, false);
    std::vector<float> seen;
    ORBTCallContext context;
    context.progressUser = &seen;
    context.progress = [](float fraction, void* user) { static_cast<std::vector<float>*>(user)->push_back(fraction); };
    Compress(source, 64, 32, false, 0, 9, context);
    ASSERT_FALSE(seen.empty());
    EXPECT_FLOAT_EQ(seen.back(), 1.f);
    for (size_t k = 1; k < seen.size(); ++k)
        EXPECT_GE(seen[k], seen[k - 1]);

    // Cancelled while refining: no words, and the reason.
    static std::atomic<bool> stop;
    stop = false;
    context.cancel = &stop;
    context.progress = [](float fraction, void*) {
        if (fraction > 0.6f)
            stop = true;
    };
    Bytes words(64 * 32 / 2);
    EXPECT_EQ(ORBTCCompress(source.data(), words.data(), 64, 32, false, false, 0, 9, context), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(ORBTGetLastErrorKind(), eORBTErrorCancelled);
}
