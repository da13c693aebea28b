// The optimiser's fast path against its plain one: the same words on every
// thread count and SIMD path.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Support/TestPictures.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;

namespace
{

std::vector<unsigned char> Words(const std::vector<unsigned char>& pixels, unsigned width, unsigned height,
                                 bool twoBpp, unsigned generation, unsigned quality)
{
    std::vector<unsigned char> words(size_t(width) * height * (twoBpp ? 2 : 4) / 8);
    EXPECT_EQ(ORBTCCompress(pixels.data(), words.data(), width, height, true, twoBpp, generation, quality),
              words.size());
    return words;
}

struct Restore
{
    ESimdPath path = ActiveSimdPath();
    ~Restore()
    {
        SetSimdPath(path);
        SetOptimiserReference(false);
        ORBTCSetProcessorCountOverride(0);
    }
};

} // namespace

TEST(OptimiserPath, FastWordsAreThePlainWords)
{
    // Odd block counts across (9 and 5) and down (11) give the phases' third
    // stage and a held-back row; ORBTCII from quality 3 on tries hard modes,
    // from quality 4 on inverted neighbour flags. At quality 2 it never tries
    // the hard modes.
    struct Case
    {
        unsigned generation;
        bool twoBpp;
        unsigned width, height, quality;
        bool alpha, noise;
    };
    const Case cases[] = {
        {0, false, 32, 32, 2, false, false}, {0, false, 32, 32, 4, true, false}, {0, true, 32, 32, 4, false, true},
        {1, false, 36, 44, 2, true, false},  {1, false, 36, 44, 4, false, false}, {1, false, 36, 44, 5, false, true},
        {1, true, 40, 44, 4, true, false},   {1, true, 32, 16, 2, false, false},  {1, false, 16, 20, 3, true, false},
    };
    Restore restore;
    for (const Case& c : cases)
    {
        std::vector<unsigned char> pixels = testsupport::Picture(c.width, c.height, c.alpha, c.quality);
        if (c.noise)
        {
            std::mt19937 random(c.width);
            for (unsigned char& v : pixels)
                v = uint8_t(random());
        }
        SCOPED_TRACE(std::string(c.generation ? "ORBTCII " : "ORBTC ") + (c.twoBpp ? "2bpp q" : "4bpp q") +
                     std::to_string(c.quality) + (c.noise ? " noise" : c.alpha ? " alpha" : ""));
        SetOptimiserReference(true);
        ORBTCSetProcessorCountOverride(1);
        const auto plain = Words(pixels, c.width, c.height, c.twoBpp, c.generation, c.quality);
        SetOptimiserReference(false);
        for (unsigned threads : {1u, 2u, 5u})
        {
            ORBTCSetProcessorCountOverride(threads);
            EXPECT_EQ(Words(pixels, c.width, c.height, c.twoBpp, c.generation, c.quality), plain)
                << threads << " threads";
        }
        for (ESimdPath path : {eSimdPortable, eSimdSSE2, eSimdAVX2})
            if (SimdPathAvailable(path))
            {
                SetSimdPath(path);
                EXPECT_EQ(Words(pixels, c.width, c.height, c.twoBpp, c.generation, c.quality), plain)
                    << SimdPathName(path);
            }
        SetSimdPath(restore.path);
    }
}
