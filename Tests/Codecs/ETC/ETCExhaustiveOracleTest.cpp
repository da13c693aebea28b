// The fast exhaustive searches against their plain forms, block for block,
// on a corpus of 131,072 blocks: noise of every spread, structured blocks
// (gradients, edges, two colours, flat), blocks pressed against 0 and 255,
// and blocks of photograph-like pictures. Each run checks a sample; the seed
// (ORBTEX_ETC_ORACLE_SEED, else random) and the sample size
// (ORBTEX_ETC_ORACLE_BLOCKS) can be set. ORBTEX_ETC_ORACLE_BLOCKS=0 walks the
// whole corpus from block ORBTEX_ETC_ORACLE_FIRST (default 0) to
// ORBTEX_ETC_ORACLE_END (default the last), each search with the selector's
// limit on the best instruction set.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../../Support/TestPictures.h"
#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCExhaustive.h"
#include "Codecs/ETC/ETCModes.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;

namespace
{

constexpr uint32_t kCorpus = 131072;

// Block n of the corpus, 4 x 4 RGB.
std::vector<uint8_t> CorpusBlock(uint32_t n)
{
    std::mt19937 random(n);
    std::vector<uint8_t> block(48);
    const auto byte = [&](int v) { return uint8_t(std::clamp(v, 0, 255)); };
    const int base[3] = {int(random() % 256), int(random() % 256), int(random() % 256)};
    switch (n % 4)
    {
    case 0: // noise around a colour, spread 0 to 127
    {
        const int spread = int(n / 4 % 128);
        for (int i = 0; i < 48; ++i)
            block[i] = byte(base[i % 3] + int(random() % (2 * spread + 1)) - spread);
        break;
    }
    case 1: // a gradient, an edge or two colours, with a little noise
    {
        const int other[3] = {int(random() % 256), int(random() % 256), int(random() % 256)};
        const int kind = int(n / 4 % 3), noise = int(n / 12 % 4);
        for (int p = 0; p < 16; ++p)
        {
            const int x = p % 4, y = p / 4;
            const int w = kind == 0 ? x + y : kind == 1 ? (x > int(n / 36 % 4) ? 6 : 0) : (p * 7 + int(n)) % 2 * 6;
            for (int c = 0; c < 3; ++c)
                block[3 * p + c] =
                    byte((base[c] * (6 - w) + other[c] * w) / 6 + int(random() % (2 * noise + 1)) - noise);
        }
        break;
    }
    case 2: // channels near 0 or 255, where the modifiers clamp
        for (int i = 0; i < 48; ++i)
        {
            const int edge = (base[i % 3] & 1) ? 255 : 0, reach = 4 + int(n / 4 % 60);
            block[i] = byte(edge == 0 ? int(random() % reach) : 255 - int(random() % reach));
        }
        break;
    default: // a block of a photograph-like picture
    {
        static const std::vector<std::vector<unsigned char>> pictures = [] {
            std::vector<std::vector<unsigned char>> all;
            for (unsigned seed = 1; seed <= 4; ++seed)
                all.push_back(testsupport::Picture(128, 128, false, seed));
            return all;
        }();
        const std::vector<unsigned char>& picture = pictures[n / 4 % 4];
        const uint32_t at = n / 16 % 1024, bx = at % 32 * 4, by = at / 32 * 4;
        for (int p = 0; p < 16; ++p)
            for (int c = 0; c < 3; ++c)
                block[3 * p + c] = picture[((by + p / 4) * 128 + bx + p % 4) * 4 + c];
    }
    }
    return block;
}

using Search = unsigned int (*)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);

struct Result
{
    unsigned int error, word1, word2;
    bool operator==(const Result& o) const
    {
        return error == o.error && word1 == o.word1 && word2 == o.word2;
    }
};

Result RunSearch(Search search, std::vector<uint8_t>& block, unsigned int limit, bool plain)
{
    ETCExhaustiveSetPlain(plain);
    Result r{0, 0x5A5A5A5Au, 0xA5A5A5A5u};
    r.error = search(block.data(), 4, 0, 0, r.word1, r.word2, limit);
    ETCExhaustiveSetPlain(false);
    return r;
}

// The planar search from the fitted planar block, as the ETC2 selector runs it.
template <bool Perceptual>
unsigned int Planar(unsigned char* img, int width, int x, int y, unsigned int& packed1, unsigned int& packed2,
                    unsigned int limit)
{
    compressBlockPlanar57(img, width, x, y, packed1, packed2);
    unsigned char work[48];
    unsigned int e[3];
    decompressBlockPlanar57errorPerComponent(packed1, packed2, work, img, width, x, y, Perceptual, e[0], e[1], e[2]);
    return (Perceptual ? compressBlockPlanar57ExhaustivePerceptual
                       : compressBlockPlanar57Exhaustive)(img, width, x, y, packed1, packed2, limit, e[0], e[1], e[2]);
}

uint32_t EnvOr(const char* name, uint32_t fallback)
{
    const char* value = std::getenv(name);
    return value ? uint32_t(std::strtoul(value, nullptr, 10)) : fallback;
}

} // namespace

TEST(ETCExhaustiveOracle, FastSearchesGiveThePlainBlocks)
{
    const uint32_t seed = EnvOr("ORBTEX_ETC_ORACLE_SEED", std::random_device{}());
    const uint32_t sample = EnvOr("ORBTEX_ETC_ORACLE_BLOCKS", 100);
    const bool walk = sample == 0;
    const uint32_t first = walk ? std::min(EnvOr("ORBTEX_ETC_ORACLE_FIRST", 0), kCorpus) : 0;
    const uint32_t end = std::max(first, std::min(EnvOr("ORBTEX_ETC_ORACLE_END", kCorpus), kCorpus));
    const uint32_t count = walk ? end - first : sample;
    SCOPED_TRACE("ORBTEX_ETC_ORACLE_SEED=" + std::to_string(seed));
    const struct
    {
        const char* name;
        Search search;
        bool perceptual;
    } searches[] = {
        {"individual", compressBlockIndividualExhaustive, false},
        {"differential", compressBlockDifferentialExhaustive, false},
        {"individual perceptual", compressBlockIndividualExhaustivePerceptual, true},
        {"differential perceptual", compressBlockDifferentialExhaustivePerceptual, true},
        {"T", compressBlockTHUMB59TExhaustive, false},
        {"H", compressBlockTHUMB58HExhaustive, false},
        {"planar", Planar<false>, false},
        {"T perceptual", compressBlockTHUMB59TExhaustivePerceptual, true},
        {"H perceptual", compressBlockTHUMB58HExhaustivePerceptual, true},
        {"planar perceptual", Planar<true>, true},
    };
    const ESimdPath best = ActiveSimdPath();
    std::mt19937 pick(seed);
    for (uint32_t i = 0; i < count; ++i)
    {
        const uint32_t n = walk ? first + i : uint32_t(pick() % kCorpus);
        std::vector<uint8_t> block = CorpusBlock(n);
        // The limit the selector gives (the fast block's error), and a tighter one.
        unsigned char work[48];
        unsigned int f1, f2;
        const double fast = compressBlockDiffFlipFast(block.data(), work, 4, 0, 0, f1, f2);
        for (const auto& s : searches)
        {
            const unsigned int full =
                std::min(unsigned(fast * (s.perceptual ? 1000.0 : 1.0)), 3121199u * (s.perceptual ? 333u : 1u));
            for (unsigned int limit : {full, full / 2 + 1})
            {
                if (walk && limit != full)
                    continue;
                const Result plain = RunSearch(s.search, block, limit, true);
                // Every instruction set on some blocks, the best one on all.
                for (int path = (i % 16 == 0 && !walk ? 0 : int(best)); path <= int(best); ++path)
                {
                    SetSimdPath(ESimdPath(path));
                    const Result fastResult = RunSearch(s.search, block, limit, false);
                    ASSERT_TRUE(fastResult == plain)
                        << s.name << ", block " << n << ", limit " << limit << ", path " << path << ": error "
                        << fastResult.error << " against " << plain.error;
                }
                SetSimdPath(best);
            }
        }
    }
}
