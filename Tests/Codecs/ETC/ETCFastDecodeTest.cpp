// ETCDecompress and ORBTDecompressETC against their pixel-at-a-time forms:
// same bytes at every small size, on random and compressed words, for any
// thread count.

#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCDecompress.h"
#include "Support/TestPictures.h"
#include "Tools/ORBTCallContext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace orbtexture;

namespace
{

// Format 0 stands for ORBTDecompressETC.
struct Variant
{
    unsigned format;
    bool isSigned;
};

const Variant kVariants[] = {{ePF_ETC1, false},        {ePF_ETC2_RGB, false}, {ePF_ETC2_RGBA, false},
                             {ePF_ETC2_RGB_A1, false}, {ePF_EAC_R11, false},  {ePF_EAC_R11, true},
                             {ePF_EAC_RG11, false},    {ePF_EAC_RG11, true},  {0, false}};

// A quarter of the bytes are 0x00, 0x7f, 0x80 or 0xff: clamped colours, the
// signed -128 base and EAC multiplier 0 come up often. Random words reach the
// T, H and planar modes in a few percent of the blocks each.
std::vector<unsigned char> RandomWords(size_t bytes, unsigned seed)
{
    std::mt19937 random(seed);
    const unsigned char edges[4] = {0x00, 0x7f, 0x80, 0xff};
    std::vector<unsigned char> words(bytes);
    for (unsigned char& b : words)
    {
        const unsigned r = random();
        b = (r & 3) == 0 ? edges[(r >> 2) & 3] : static_cast<unsigned char>(r >> 8);
    }
    return words;
}

// A 64 x 64 picture compressed in the variant's format.
std::vector<unsigned char> PictureWords(const Variant& v)
{
    const unsigned format = v.format ? v.format : unsigned(ePF_ETC1);
    const bool eac = format == ePF_EAC_R11 || format == ePF_EAC_RG11;
    const unsigned channels = format == ePF_ETC1 || format == ePF_ETC2_RGB ? 3 : eac ? format - ePF_EAC_R11 + 1 : 4;
    const std::vector<unsigned char> rgba = testsupport::Picture(64, 64, true);
    std::vector<unsigned char> input;
    for (size_t p = 0; p < rgba.size(); p += 4)
        for (unsigned c = 0; c < channels; ++c)
            input.insert(input.end(), eac ? 2 : 1, rgba[p + c]);
    std::vector<unsigned char> words(64 * 64 * 2);
    words.resize(ETCCompress(input.data(), words.data(), 64, 64, 0, format, v.isSigned));
    return words;
}

// The output, with a tail, of the block or the pixel-at-a-time decoder.
std::vector<unsigned char> Decode(const Variant& v, const std::vector<unsigned char>& words, unsigned width,
                                  unsigned height, bool plain)
{
    const size_t size = v.format ? ETCDecompress(nullptr, nullptr, width, height, v.format, v.isSigned)
                                 : size_t(width) * height * 4;
    std::vector<unsigned char> out(size + 16, 0xa5);
    if (v.format == 0)
        EXPECT_EQ(plain ? ORBTDecompressETCPlain(words.data(), width, height, out.data(), 0)
                        : ORBTDecompressETC(words.data(), width, height, out.data(), 0),
                  int(std::max(width, 4u) * std::max(height, 4u) / 2));
    else
        EXPECT_EQ(plain ? ETCDecompressPlain(words.data(), out.data(), width, height, v.format, v.isSigned)
                        : ETCDecompress(words.data(), out.data(), width, height, v.format, v.isSigned),
                  size);
    return out;
}

} // namespace

TEST(ETCFastDecode, MatchesPlainAtEverySizeUpTo64)
{
    for (const Variant& v : kVariants)
    {
        const std::vector<unsigned char> inputs[2] = {RandomWords(64 * 64, v.format * 2 + v.isSigned),
                                                      PictureWords(v)};
        for (const std::vector<unsigned char>& words : inputs)
            for (unsigned height = 1; height <= 64; ++height)
                for (unsigned width = 1; width <= 64; ++width)
                    ASSERT_EQ(Decode(v, words, width, height, false), Decode(v, words, width, height, true))
                        << "format " << v.format << (v.isSigned ? " signed " : " ") << width << " x " << height;
    }
}

TEST(ETCFastDecode, SameBytesOnAnyThreadCount)
{
    const unsigned width = 1030, height = 1027; // above a megapixel, partial blocks on both edges
    const std::vector<unsigned char> words = RandomWords(size_t(258) * 257 * 16, 11);
    for (const Variant& v : kVariants)
    {
        const std::vector<unsigned char> plain = Decode(v, words, width, height, true);
        for (unsigned threads : {1u, 2u, 5u})
        {
            ORBTCallContext context;
            context.threads = threads;
            CScopedCallContext scope(context);
            EXPECT_EQ(Decode(v, words, width, height, false), plain) << "format " << v.format << ", " << threads;
        }
    }
}
