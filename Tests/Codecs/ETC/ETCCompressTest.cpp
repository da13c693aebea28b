#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ETC/ETCCodec.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

// 'channels' bytes a pixel of smooth waves with a hard-edged band.
std::vector<uint8_t> Waves(unsigned width, unsigned height, unsigned channels)
{
    std::vector<uint8_t> image(size_t(width) * height * channels);
    for (size_t i = 0; i < image.size(); ++i)
    {
        const unsigned c = unsigned(i % channels), x = unsigned(i / channels % width);
        const unsigned y = unsigned(i / channels / width);
        image[i] = c == 2 && x % 16 >= 8 ? 220 : uint8_t(128 + 100 * std::sin(0.3 * x + 0.2 * y + c));
    }
    return image;
}

} // namespace

TEST(ETCCompress, SizesQualitiesAndRefusals)
{
    const unsigned five = 5, three = 3, zero = 0, eight = 8, four = 4;
    // Size queries: padded to 8 x 4; half a byte a pixel except 23 and 26.
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_ETC1, false), 16u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_ETC2_RGBA, false), 32u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_EAC_R11, false), 16u);
    EXPECT_EQ(ETCCompress(nullptr, nullptr, five, three, 0, ePF_EAC_RG11, false), 32u);
    const std::vector<uint8_t> image = Waves(8, 4, 4);
    std::vector<uint8_t> out(64);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), five, zero, 0, ePF_ETC1, false), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 6, ePF_ETC1, false), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, -1, ePF_ETC1, false), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 0, ePF_ETC1, true), 0u);
    EXPECT_EQ(ETCCompress(image.data(), out.data(), eight, four, 0, ePF_DXT1, false), 0u);

    // 1-bit alpha ignores the quality.
    std::vector<uint8_t> a(32), b(32);
    EXPECT_EQ(ETCCompress(image.data(), a.data(), eight, four, 0, ePF_ETC2_RGB_A1, false), 16u);
    EXPECT_EQ(ETCCompress(image.data(), b.data(), eight, four, 5, ePF_ETC2_RGB_A1, false), 16u);
    EXPECT_EQ(a, b);
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

    // EAC R11 from 16-bit channels keeps red alone: it comes back within 2, green as 0.
    CORBTexture red(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    std::memset(red.getDataPtr(), 128, red.getDataSize());
    ASSERT_TRUE(Transcode(red, PixelType(ePF_EAC_R11), eVarUnsignedShortNorm, eColourSpaceLinear));
    EXPECT_EQ(red.getDataSize(), 8u);
    ASSERT_TRUE(Transcode(red, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_NEAR(red.getDataPtr()[0], 128, 2);
    EXPECT_EQ(red.getDataPtr()[1], 0);
}

// The same bytes on any number of threads, the source left alone: fast
// qualities on 37 x 29 (ten rows of blocks with padded edges, more rows than
// threads), the exhaustive ones on 13 x 10.
TEST(ETCCompress, SameBytesOnAnyNumberOfThreads)
{
    struct Case
    {
        unsigned format, bytesPerPixel;
        int quality;
    };
    const Case cases[] = {{ePF_ETC1, 3, 1},     {ePF_ETC2_RGB, 3, 0},  {ePF_ETC2_RGBA, 4, 1}, {ePF_ETC2_RGB_A1, 4, 0},
                          {ePF_EAC_RG11, 4, 0}, {ePF_ETC1, 3, 2},      {ePF_ETC1, 3, 5},      {ePF_ETC2_RGB, 3, 2},
                          {ePF_ETC2_RGBA, 4, 2}};
    for (const Case& c : cases)
    {
        const unsigned width = c.quality < 2 ? 37 : 13, height = c.quality < 2 ? 29 : 10;
        const std::vector<uint8_t> image = Waves(width, height, c.bytesPerPixel), copy = image;
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
            EXPECT_EQ(results[i], results[0]) << "format " << c.format << " quality " << c.quality << ", run " << i;
        EXPECT_EQ(image, copy);
    }
    EXPECT_GE(ETCThreadCount(), 1u);
}
