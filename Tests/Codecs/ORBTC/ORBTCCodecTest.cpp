#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCPadding.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

// Opaque rgba8 pixels of one period of smooth waves in each direction, so
// that the wrap of the format meets no seam, at most about 6 a pixel steep;
// optionally a hard-edged band.
std::vector<uint8_t> Waves(unsigned width, unsigned height, bool edge = false)
{
    std::vector<uint8_t> image(size_t(width) * height * 4);
    const double pi2 = 6.283185307179586, across = std::min(width, 100u), down = std::min(height, 100u);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            uint8_t* p = &image[(size_t(y) * width + x) * 4];
            const double u = std::sin(pi2 * x / width), v = std::cos(pi2 * y / height);
            p[0] = uint8_t(128 + across * u);
            p[1] = uint8_t(128 + down * v);
            p[2] = edge && x >= width / 4 && x < width * 3 / 4 ? 230 : uint8_t(128 + std::min(across, down) * u * v);
            p[3] = 255;
        }
    return image;
}

double MeanSquaredError(const uint8_t* a, const uint8_t* b, size_t pixels)
{
    double sum = 0.0;
    for (size_t i = 0; i < pixels * 4; ++i)
        sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    return sum / double(pixels * 4);
}

} // namespace

TEST(ORBTCCompress, SizeRules)
{
    const unsigned side = 4096, over = 4097, eight = 8, twelve = 12, five = 5;
    // Size queries: padded height x bpp x padded width / 8.
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, side, eight, true, false, 0, 0), 4096u * 8 * 4 / 8);
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, eight, side, true, true, 0, 0), 8u * 4096 * 2 / 8);
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, over, eight, true, false, 0, 0), 0u);
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, eight, over, true, false, 1, 0), 0u);
    // Generation 0 takes whole blocks only, even in a size query.
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, twelve, eight, true, false, 0, 0), 12u * 8 * 4 / 8);
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, twelve, eight, true, true, 0, 0), 0u);
    // Generation 1 pads: 5 x 5 at 4bpp is 8 x 8.
    EXPECT_EQ(ORBTCCompress(nullptr, nullptr, five, five, false, false, 1, 0), 32u);

    // The compressors answer with the size.
    const std::vector<uint8_t> image = Waves(8, 8);
    std::vector<uint8_t> words(64);
    EXPECT_EQ(ORBTCCompress(image.data(), words.data(), eight, eight, false, false, 1, 0), 32u); // sections
    EXPECT_EQ(ORBTCCompress(image.data(), words.data(), eight, eight, false, false, 0, 2), 32u); // the optimiser
    EXPECT_EQ(ORBTCCompress(image.data(), words.data(), eight, eight, false, false, 0, 1), 32u);

    std::vector<uint8_t> decoded(8 * 8 * 4);
    EXPECT_EQ(ORBTCDecompress(nullptr, nullptr, eight, eight, false, 0), 256u);
    EXPECT_EQ(ORBTCDecompress(words.data(), decoded.data(), eight, eight, false, 0), 256u);
    const unsigned extended = 1;
    EXPECT_EQ(ORBTCDecompress(words.data(), decoded.data(), eight, eight, false, extended), 256u);
}

TEST(ORBTCCompress, PaddingRepeatsTheLastColumnsAndRowsInOrder)
{
    // 5 x 5 to 8 x 8: column 5 copies column 2, 6 copies 3, 7 copies 4; rows likewise.
    std::vector<uint8_t> image(5 * 5 * 4);
    for (size_t i = 0; i < image.size(); i += 4)
    {
        image[i] = uint8_t(i / 4 % 5);     // column
        image[i + 1] = uint8_t(i / 4 / 5); // row
    }
    std::vector<uint8_t> work;
    ORBTCPadToBlocks(image.data(), 5, 5, 8, 8, work);
    const unsigned expected[8] = {0, 1, 2, 3, 4, 2, 3, 4};
    for (unsigned y = 0; y < 8; ++y)
        for (unsigned x = 0; x < 8; ++x)
        {
            EXPECT_EQ(work[(y * 8 + x) * 4], expected[x]) << x << "," << y;
            EXPECT_EQ(work[(y * 8 + x) * 4 + 1], expected[y]) << x << "," << y;
        }

    // Narrower than its pad: 1 x 1 repeats its one pixel.
    const uint8_t pixel[4] = {9, 8, 7, 6};
    ORBTCPadToBlocks(pixel, 1, 1, 4, 4, work);
    for (size_t i = 0; i < work.size(); ++i)
        EXPECT_EQ(work[i], pixel[i % 4]);
}

TEST(ORBTCCompress, BlockGridsThatAreNoPowerOfTwoRoundTrip)
{
    // These grids keep their words in row order. The buffers are exactly the
    // reported sizes, so an index past the word count runs off them; words out
    // of place decode with an error of 80 and more.
    const unsigned sizes[][3] = {{48, 16, 0}, {28, 48, 0}, {24, 24, 1}, {48, 16, 1}};
    for (const auto& s : sizes)
    {
        const unsigned width = s[0], height = s[1];
        const bool twoBpp = s[2] != 0;
        const std::vector<uint8_t> image = Waves(width, height);
        const unsigned size = ORBTCCompress(image.data(), nullptr, width, height, true, twoBpp, 0, 1);
        ASSERT_EQ(size, width * height * (twoBpp ? 2u : 4u) / 8);
        std::vector<uint8_t> words(size);
        ASSERT_EQ(ORBTCCompress(image.data(), words.data(), width, height, true, twoBpp, 0, 1), size);
        std::vector<uint8_t> decoded(image.size());
        ASSERT_EQ(ORBTCDecompress(words.data(), decoded.data(), width, height, twoBpp, 0), image.size());
        EXPECT_LT(MeanSquaredError(image.data(), decoded.data(), size_t(width) * height), 30.0)
            << width << "x" << height << " 2bpp " << twoBpp;
    }
}

TEST(ORBTCTranscode, EveryLevelMemberAndFace)
{
    ORBTCSetProcessorCountOverride(1);
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 32, 32, 1, 6, 2, 2));
    for (uint32_t member = 0; member < 2; ++member)
        for (uint32_t face = 0; face < 2; ++face)
            for (uint32_t mip = 0; mip < 6; ++mip)
            {
                const unsigned side = texture.getWidth(mip);
                const std::vector<uint8_t> level = Waves(side, side, face == 1);
                std::memcpy(texture.getDataPtr(mip, member, face), level.data(), level.size());
            }
    const CORBTexture original(texture);

    ASSERT_TRUE(Transcode(texture, PixelType(ePF_ORBTC_4bpp_RGBA), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(1)));
    EXPECT_EQ(texture.getPixelType(), PixelType(ePF_ORBTC_4bpp_RGBA));
    // Levels below 8 x 8 are stored as 8 x 8 words.
    EXPECT_EQ(texture.getDataSize(), 4u * (512 + 128 + 32 + 32 + 32 + 32));

    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    for (uint32_t member = 0; member < 2; ++member)
        for (uint32_t face = 0; face < 2; ++face)
        {
            const double mse = MeanSquaredError(original.getDataPtr(0, member, face),
                                                texture.getDataPtr(0, member, face), 32 * 32);
            EXPECT_LT(mse, face == 1 ? 60.0 : 23.0) << member << " " << face << " mse " << mse;
        }
    // A 1 x 1 level is compressed from the pixel repeated, so it decodes close to it.
    const uint8_t* tiny = original.getDataPtr(5, 1, 0);
    const uint8_t* back = texture.getDataPtr(5, 1, 0);
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(back[c], tiny[c], 20) << c;
    ORBTCSetProcessorCountOverride(0);
}

TEST(ORBTCTranscode, UnalignedSizesFail)
{
    // 20 is no multiple of the 2bpp block width: the compressor refuses it.
    CORBTexture odd(CORBTextureHeader(ORBStandard8PixelType, 8, 20));
    std::memset(odd.getDataPtr(), 100, odd.getDataSize());
    EXPECT_FALSE(Transcode(odd, PixelType(ePF_ORBTC_2bpp_RGBA), eVarUnsignedByteNorm, eColourSpaceLinear));
}
