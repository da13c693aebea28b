// The optimiser over whole images: decoded quality against the block
// compressors, words independent of threads, and the shapes of grids that
// wrap onto themselves.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "Support/TestPictures.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// Generation 0 is ORBTC, 1 ORBTCII (whose decoder is the extended one).
std::vector<unsigned char> Compress(const std::vector<unsigned char>& pixels, unsigned width, unsigned height,
                                    bool twoBpp, unsigned quality, unsigned generation = 0)
{
    std::vector<unsigned char> words(size_t(width) * height * (twoBpp ? 2 : 4) / 8);
    EXPECT_EQ(ORBTCCompress(pixels.data(), words.data(), width, height, true, twoBpp, generation, quality),
              words.size());
    return words;
}

std::vector<unsigned char> Decode(const std::vector<unsigned char>& words, unsigned width, unsigned height,
                                  bool twoBpp, unsigned generation = 0)
{
    std::vector<unsigned char> out(size_t(width) * height * 4);
    EXPECT_EQ(ORBTCDecompress(words.data(), out.data(), width, height, twoBpp, generation), out.size());
    return out;
}

struct ProcessorOverride
{
    ~ProcessorOverride()
    {
        ORBTCSetProcessorCountOverride(0);
        SetThreadStartRefusals(0);
    }
};

} // namespace

TEST(OptimiserSearch, BeatsTheBlockCompressors)
{
    // Quality 2 (the optimiser's first level) is clearly better than the
    // block compressor's best by the optimiser's measure, and more passes do
    // not lose, in both generations. On an opaque picture that measure is the
    // colour PSNR.
    for (unsigned generation : {0u, 1u})
        for (bool twoBpp : {false, true})
            for (bool alpha : {false, true})
            {
                SCOPED_TRACE(std::string(generation ? "ORBTCII " : "ORBTC ") + (twoBpp ? "2bpp" : "4bpp") +
                             (alpha ? " alpha" : ""));
                const auto pixels = Picture(32, 32, alpha);
                auto decoded = [&](unsigned quality) {
                    return Decode(Compress(pixels, 32, 32, twoBpp, quality, generation), 32, 32, twoBpp, generation);
                };
                const auto block = decoded(1), first = decoded(2), third = decoded(4);
                if (!alpha)
                {
                    EXPECT_GT(Psnr(pixels, first, false), Psnr(pixels, block, false) + 1.0);
                    EXPECT_GE(Psnr(pixels, third, false), Psnr(pixels, first, false) - 0.05);
                }
                EXPECT_LT(WeightedError(pixels, first), WeightedError(pixels, block) / 2);
                EXPECT_LE(WeightedError(pixels, third), WeightedError(pixels, first));
            }
}

TEST(OptimiserSearch, WordsDoNotDependOnThreads)
{
    // Rows of one parity are independent within a phase: 1, 2, 3 or 8 cores,
    // and refused thread starts, give the same words. ORBTCII's 11 block rows
    // put rows 0 and 10, both even, side by side across the wrap.
    ProcessorOverride restore;
    for (unsigned generation : {0u, 1u})
        for (bool twoBpp : {false, true})
        {
            const unsigned height = generation ? 44 : 48;
            const auto pixels = Picture(32, height, true, 9);
            SCOPED_TRACE(std::string(generation ? "ORBTCII " : "ORBTC ") + (twoBpp ? "2bpp" : "4bpp"));
            // ORBTCII's quality 3 makes five passes: the last two with hard
            // modes and, in the fourth, the neighbours' hard flags inverted.
            ORBTCSetProcessorCountOverride(1);
            const auto reference = Compress(pixels, 32, height, twoBpp, 3, generation);
            for (unsigned cores : {2u, 3u, 8u})
            {
                ORBTCSetProcessorCountOverride(cores);
                EXPECT_EQ(Compress(pixels, 32, height, twoBpp, 3, generation), reference) << cores << " cores";
            }
            ORBTCSetProcessorCountOverride(8);
            for (unsigned period : {1u, 2u, 3u})
            {
                SetThreadStartRefusals(period);
                EXPECT_EQ(Compress(pixels, 32, height, twoBpp, 3, generation), reference)
                    << "every " << period << "th start refused";
            }
            SetThreadStartRefusals(0);
        }
}

TEST(OptimiserSearch, GridsThatWrapOntoThemselves)
{
    // One block row: a single thread and an empty odd phase. One block: every
    // neighbour is the block itself, so the word decodes (as a periodic
    // image) to what the optimiser measured: a flat colour comes back exact.
    const auto row = Picture(32, 4, false);
    std::vector<unsigned char> words(32 * 4 / 2);
    ASSERT_EQ(orbtc_compress(row.data(), words.data(), 32, 4, 0, 0, 0), 0);

    std::vector<unsigned char> flat(4 * 4 * 4);
    for (size_t i = 0; i < flat.size(); i += 4)
    {
        flat[i] = 200;
        flat[i + 1] = 100;
        flat[i + 2] = 50;
        flat[i + 3] = 255;
    }
    unsigned char word[8];
    ASSERT_EQ(orbtc_compress(flat.data(), word, 4, 4, 0, 2, 0), 0);
    std::vector<unsigned char> tiled;
    for (int k = 0; k < 4; ++k)
        tiled.insert(tiled.end(), word, word + 8);
    std::vector<unsigned char> decoded(8 * 8 * 4);
    ASSERT_GT(ORBTDecompressORBTC(tiled.data(), 0, 8, 8, decoded.data()), 0);
    std::vector<unsigned char> expected(8 * 8 * 4);
    for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = flat[i % 4];
    const double psnr = Psnr(expected, decoded, true);
    EXPECT_GT(psnr, 45.0);
}


TEST(OptimiserSearch, PinnedWords)
{
    // The words of one small picture per variant, so that a change of speed
    // cannot change a result unnoticed.
    struct Case
    {
        unsigned generation;
        bool twoBpp, alpha;
        unsigned quality;
        uint64_t hash;
    };
    const Case cases[] = {
        {0, false, false, 2, 2919420755526885977ull}, {0, false, true, 4, 13414715969474667438ull},
        {0, true, false, 2, 7829255527820592728ull},  {0, true, true, 3, 126696596248528256ull},
        {1, false, false, 2, 10873577112052265665ull}, {1, false, true, 4, 5058213094824618462ull},
        {1, true, false, 2, 11640769714228691996ull},  {1, true, true, 3, 7554064260889329528ull},
    };
    for (const Case& c : cases)
    {
        const auto pixels = Picture(16, 16, c.alpha, 21);
        EXPECT_EQ(Fnv(Compress(pixels, 16, 16, c.twoBpp, c.quality, c.generation)), c.hash)
            << (c.generation ? "ORBTCII " : "ORBTC ") << (c.twoBpp ? "2bpp" : "4bpp") << (c.alpha ? " alpha" : "")
            << " quality " << c.quality;
    }
}
