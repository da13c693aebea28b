#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCCodec.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

// 'channels' bytes a pixel of smooth waves with a hard-edged band.
std::vector<uint8_t> Waves(unsigned width, unsigned height, unsigned channels)
{
    std::vector<uint8_t> image(size_t(width) * height * channels);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            for (unsigned c = 0; c < channels; ++c)
            {
                const double phase = 0.3 * x + 0.2 * y + c;
                uint8_t value = uint8_t(128 + 100 * std::sin(phase));
                if (c == 2 && x % 16 >= 8)
                    value = 220;
                image[(size_t(y) * width + x) * channels + c] = value;
            }
    return image;
}

double MeanSquaredError(const uint8_t* a, const uint8_t* b, size_t count)
{
    double sum = 0;
    for (size_t i = 0; i < count; ++i)
        sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    return sum / double(count);
}

} // namespace

TEST(ETCCompress, SizesQualitiesAndRefusals)
{
    const unsigned five = 5, three = 3, zero = 0;
    // Size queries: padded to 8 x 4; half a byte a pixel except 23 and 26.
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_ETC1, false), 16u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_ETC2_RGBA, false), 32u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_EAC_R11, false), 16u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_EAC_RG11, false), 32u);
    const std::vector<uint8_t> image = Waves(8, 4, 4);
    std::vector<uint8_t> out(64);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), five, zero, 0, ePF_ETC1, false), 0u);

    const unsigned eight = 8, four = 4;
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 6, ePF_ETC1, false), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, -1, ePF_ETC1, false), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 0, ePF_ETC1, true), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 0, ePF_DXT1, false), 0u);
    // The exhaustive qualities: 4 and 5 are 2 and 3.
    std::vector<uint8_t> normalised(16);
    for (int quality : {2, 3})
    {
        EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, quality, ePF_ETC1, false), 16u) << quality;
        EXPECT_EQ(ETCCompress(image.data(), normalised.data(), eight, four, quality + 2, ePF_ETC1, false), 16u);
        EXPECT_TRUE(std::equal(normalised.begin(), normalised.end(), out.begin())) << quality;
    }

    // 1-bit alpha and EAC ignore the quality.
    std::vector<uint8_t> a(32), b(32);
    EXPECT_EQ(ETCCompress(image.data(), a.data(), eight, four, 0, ePF_ETC2_RGB_A1, false), 16u);
    EXPECT_EQ(ETCCompress(image.data(), b.data(), eight, four, 5, ePF_ETC2_RGB_A1, false), 16u);
    EXPECT_EQ(a, b);
}

// At the exhaustive qualities ETC2 RGBA's alpha half is the slow search's
// block, which is never worse than the fast one's; here on random alpha
// under a flat colour, where the two often differ.
TEST(ETCCompress, RGBAAlphaTakesTheSlowSearchAtExhaustiveQualities)
{
    const unsigned width = 64, height = 4;
    std::vector<uint8_t> image(width * height * 4, 90);
    uint32_t random = 7;
    for (size_t i = 3; i < image.size(); i += 4)
        image[i] = uint8_t((random = random * 1103515245u + 12345u) >> 16);
    std::vector<uint8_t> fast(width * height), exhaustive(width * height);
    ASSERT_EQ(ETCCompress(image.data(), fast.data(), width, height, 0, ePF_ETC2_RGBA, false), fast.size());
    ASSERT_EQ(ETCCompress(image.data(), exhaustive.data(), width, height, 2, ePF_ETC2_RGBA, false), fast.size());
    int differ = 0;
    for (unsigned block = 0; block < width / 4; ++block)
    {
        uint8_t alpha[16], slow[8];
        for (int i = 0; i < 16; ++i)
            alpha[i] = image[((i / 4) * width + block * 4 + i % 4) * 4 + 3];
        compressBlockAlphaSlow(alpha, 0, 0, 4, slow, alphaTable);
        EXPECT_EQ(std::vector<uint8_t>(slow, slow + 8),
                  std::vector<uint8_t>(&exhaustive[16 * block], &exhaustive[16 * block + 8]))
            << block;
        differ += std::memcmp(slow, &fast[16 * block], 8) != 0;
    }
    EXPECT_GT(differ, 4);
    std::vector<uint8_t> a(image.size()), b(image.size());
    ETCDecompress(fast.data(), a.data(), width, height, ePF_ETC2_RGBA, false);
    ETCDecompress(exhaustive.data(), b.data(), width, height, ePF_ETC2_RGBA, false);
    for (unsigned block = 0; block < width / 4; ++block)
    {
        double errors[2] = {0, 0};
        for (unsigned y = 0; y < 4; ++y)
            for (unsigned x = block * 4; x < block * 4 + 4; ++x)
            {
                const size_t i = (size_t(y) * width + x) * 4 + 3;
                errors[0] += (double(a[i]) - image[i]) * (double(a[i]) - image[i]);
                errors[1] += (double(b[i]) - image[i]) * (double(b[i]) - image[i]);
            }
        EXPECT_LE(errors[1], errors[0]) << block;
    }
}

TEST(ETCCompress, EdgeBlocksRepeatTheLastColumnsAndRows)
{
    // A 5 x 3 image equals the 8 x 4 image padded by hand: columns 5, 6, 7
    // from 2, 3, 4 and row 3 from row 2.
    const std::vector<uint8_t> small = Waves(5, 3, 3);
    std::vector<uint8_t> padded(8 * 4 * 3);
    const unsigned columns[8] = {0, 1, 2, 3, 4, 2, 3, 4}, rows[4] = {0, 1, 2, 2};
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = 0; x < 8; ++x)
            std::memcpy(&padded[(y * 8 + x) * 3], &small[(rows[y] * 5 + columns[x]) * 3], 3);
    for (unsigned format : {unsigned(ePF_ETC1), unsigned(ePF_ETC2_RGB)})
    {
        std::vector<uint8_t> a(16), b(16);
        const unsigned w5 = 5, h3 = 3, w8 = 8, h4 = 4;
        ASSERT_EQ(ETCCompress(small.data(), a.data(), w5, h3, 0, format, false), 16u);
        ASSERT_EQ(ETCCompress(padded.data(), b.data(), w8, h4, 0, format, false), 16u);
        EXPECT_EQ(a, b) << format;
    }
}

TEST(ETCCompress, WordsAreStoredMostSignificantByteFirst)
{
    std::vector<uint8_t> image = Waves(4, 4, 3);
    unsigned char decoded[48];
    unsigned int word1 = 0, word2 = 0;
    compressBlockDiffFlipFast(image.data(), decoded, 4, 0, 0, word1, word2);
    std::vector<uint8_t> out(8);
    const unsigned four = 4;
    ASSERT_EQ(ETCCompress(image.data(), out.data(), four, four, 0, ePF_ETC1, false), 8u);
    EXPECT_EQ(out[0], word1 >> 24);
    EXPECT_EQ(out[3], word1 & 0xFF);
    EXPECT_EQ(out[4], word2 >> 24);
    EXPECT_EQ(out[7], word2 & 0xFF);
}

TEST(ETCCompress, EncodeThenDecodeStaysCloseInEveryFormat)
{
    struct Case
    {
        unsigned format;
        unsigned bytesPerPixel;
        int quality;
        double bound;
    };
    const Case cases[] = {
        {ePF_ETC1, 3, 0, 245},     {ePF_ETC1, 3, 1, 270},     {ePF_ETC2_RGB, 3, 0, 50},
        {ePF_ETC2_RGB, 3, 1, 50},  {ePF_ETC2_RGBA, 4, 0, 42}, {ePF_ETC2_RGB_A1, 4, 0, 215},
        {ePF_EAC_R11, 2, 0, 20},   {ePF_EAC_RG11, 4, 0, 20},
    };
    // Bounds are about 1.5 times what the compressors reach on these waves
    // (ETC1 160, ETC2 32, 1-bit alpha 140 on its opaque pixels, EAC 13 in
    // units of 1/256 of the 16-bit value).
    const unsigned width = 16, height = 12;
    for (const Case& c : cases)
    {
        std::vector<uint8_t> image = Waves(width, height, c.bytesPerPixel);
        if (c.format == ePF_ETC2_RGB_A1)
            for (size_t i = 0; i < image.size(); i += 4) // opaque but for a transparent column in 8
                image[i + 3] = (i / 4) % 8 == 3 ? 0 : 255;
        std::vector<uint8_t> blocks(width * height), decoded(image.size());
        ASSERT_GT(ETCCompress(image.data(), blocks.data(), width, height, c.quality, c.format, false), 0u);
        // Twice the same: the clusterers reseed on every call.
        std::vector<uint8_t> again(blocks.size());
        ETCCompress(image.data(), again.data(), width, height, c.quality, c.format, false);
        EXPECT_EQ(blocks, again) << c.format;
        ASSERT_EQ(ETCDecompress(blocks.data(), decoded.data(), width, height, c.format, false), image.size());
        // 1-bit alpha keeps only 0 and 255; EAC values are 16 bits (in byte pairs).
        double error = 0;
        if (c.format == ePF_EAC_R11 || c.format == ePF_EAC_RG11)
        {
            const uint16_t* in = reinterpret_cast<const uint16_t*>(image.data());
            const uint16_t* out = reinterpret_cast<const uint16_t*>(decoded.data());
            for (size_t i = 0; i < image.size() / 2; ++i)
                error += (double(in[i]) - out[i]) * (double(in[i]) - out[i]) / 65536.0;
            error /= double(image.size() / 2);
        }
        else if (c.format == ePF_ETC2_RGB_A1)
        {
            // Transparent pixels decode transparent; opaque ones keep their colour.
            size_t opaque = 0;
            for (size_t i = 0; i < image.size(); i += 4)
            {
                EXPECT_EQ(decoded[i + 3], image[i + 3]) << i / 4;
                if (image[i + 3] == 255)
                {
                    error += MeanSquaredError(&image[i], &decoded[i], 3) * 3;
                    opaque += 3;
                }
            }
            error /= double(opaque);
        }
        else
            error = MeanSquaredError(image.data(), decoded.data(), image.size());
        EXPECT_LT(error, c.bound) << "format " << c.format << " quality " << c.quality;
    }
}

TEST(ETCTranscode, ThroughTheCodecTableBothWays)
{
    // A 6 x 6 texture with two levels: the 3 x 3 level goes through a tiled 4 x 4 block.
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 6, 6, 1, 2));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(100 + (i * 7) % 50);
    ASSERT_TRUE(Transcode(texture, PixelType(ePF_ETC1), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(texture.getDataSize(), 4u * 8 + 8u);
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    // ETC1 decodes to rgb; alpha comes back as 255.
    for (uint32_t i = 0; i < 36; ++i)
    {
        EXPECT_EQ(texture.getDataPtr()[i * 4 + 3], 255);
        EXPECT_NEAR(texture.getDataPtr()[i * 4], 125, 40);
    }

    // EAC R11 from a signed channel type takes the signed intermediate.
    CORBTexture red(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    std::memset(red.getDataPtr(), 128, red.getDataSize());
    ASSERT_TRUE(Transcode(red, PixelType(ePF_EAC_R11), eVarUnsignedShortNorm, eColourSpaceLinear));
    EXPECT_EQ(red.getDataSize(), 8u);
    ASSERT_TRUE(Transcode(red, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_NEAR(red.getDataPtr()[0], 128, 2);
    EXPECT_EQ(red.getDataPtr()[1], 0);
}

TEST(ETCCompress, SameBytesOnAnyNumberOfThreads)
{
    struct Case
    {
        unsigned format, bytesPerPixel;
        int quality;
    };
    const Case cases[] = {{ePF_ETC1, 3, 1},      {ePF_ETC2_RGB, 3, 0},     {ePF_ETC2_RGBA, 4, 1},
                          {ePF_ETC2_RGB_A1, 4, 0}, {ePF_EAC_RG11, 4, 0}};
    // 37 x 29: ten rows of blocks with padded edges, more rows than threads.
    const unsigned width = 37, height = 29;
    for (const Case& c : cases)
    {
        const std::vector<uint8_t> image = Waves(width, height, c.bytesPerPixel);
        std::vector<std::vector<uint8_t>> results;
        for (unsigned threads : {1u, 2u, 5u, 64u})
        {
            ETCSetThreadCountOverride(threads);
            EXPECT_EQ(ETCThreadCount(), threads);
            std::vector<uint8_t> blocks(ETCCompress(nullptr, nullptr, width, height, c.quality, c.format, false));
            ASSERT_EQ(ETCCompress(image.data(), blocks.data(), width, height, c.quality, c.format, false),
                      blocks.size());
            results.push_back(blocks);
        }
        ETCSetThreadCountOverride(0);
        for (size_t i = 1; i < results.size(); ++i)
            EXPECT_EQ(results[i], results[0]) << "format " << c.format << ", run " << i;
    }
    EXPECT_GE(ETCThreadCount(), 1u);
}
