// The optimiser over whole images: words independent of threads, and the
// shapes of grids that wrap onto themselves.

#include <gtest/gtest.h>

#include <string>
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

struct ProcessorOverride
{
    ~ProcessorOverride()
    {
        ORBTCSetProcessorCountOverride(0);
        SetThreadStartRefusals(0);
    }
};

} // namespace

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

    std::vector<unsigned char> flat, expected;
    for (int i = 0; i < 16; ++i)
        flat.insert(flat.end(), {200, 100, 50, 255});
    unsigned char word[8];
    ASSERT_EQ(orbtc_compress(flat.data(), word, 4, 4, 0, 2, 0), 0);
    std::vector<unsigned char> tiled;
    for (int k = 0; k < 4; ++k)
    {
        tiled.insert(tiled.end(), word, word + 8);
        expected.insert(expected.end(), flat.begin(), flat.end());
    }
    std::vector<unsigned char> decoded(8 * 8 * 4);
    ASSERT_GT(ORBTDecompressORBTC(tiled.data(), 0, 8, 8, decoded.data()), 0);
    EXPECT_GT(Psnr(expected, decoded, true), 45.0);
}
