#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCPadding.h"
#include "ORBTextureUtilities.h"
#include "Support/TestFiles.h"

using namespace orbtexture;

namespace
{

// rgba8 pixels of one period of smooth waves in each direction, so that the
// wrap of the format meets no seam; optionally a hard-edged band and a varying
// alpha.
std::vector<uint8_t> Waves(unsigned width, unsigned height, bool edge = false, bool translucent = false)
{
    std::vector<uint8_t> image(size_t(width) * height * 4);
    const double pi2 = 6.283185307179586;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            uint8_t* p = &image[(size_t(y) * width + x) * 4];
            const double fx = pi2 * x / width, fy = pi2 * y / height;
            p[0] = uint8_t(128 + 100 * std::sin(fx));
            p[1] = uint8_t(128 + 100 * std::cos(fy));
            p[2] = edge && x >= width / 4 && x < width * 3 / 4 ? 230 : uint8_t(128 + 60 * std::sin(fx + fy));
            p[3] = translucent ? uint8_t(128 + 100 * std::cos(fx)) : 255;
        }
    return image;
}

double MeanSquaredError(const uint8_t* a, const uint8_t* b, size_t pixels, unsigned channels = 4)
{
    double sum = 0.0;
    for (size_t i = 0; i < pixels; ++i)
        for (unsigned c = 0; c < channels; ++c)
        {
            const double d = double(a[i * 4 + c]) - double(b[i * 4 + c]);
            sum += d * d;
        }
    return sum / double(pixels * channels);
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

TEST(ORBTCCompress, EncodeThenDecodeStaysClose)
{
    // Mean squared error bounds, about 1.5 times what this compressor reaches:
    // smooth at 4bpp 21 (quality 0) and 6 (quality 1), 2bpp 21 and 19; a hard
    // edge 57/17 and 72/43; translucent colours about 60 throughout.
    struct Case
    {
        bool twoBpp;
        unsigned quality;
        bool edge, translucent;
        double bound;
    };
    const Case cases[] = {
        {false, 0, false, false, 32}, {false, 1, false, false, 9},   {true, 0, false, false, 32},
        {true, 1, false, false, 29},  {false, 0, true, false, 85},   {false, 1, true, false, 26},
        {true, 0, true, false, 108},  {true, 1, true, false, 65},    {false, 0, false, true, 85},
        {false, 1, false, true, 85},  {true, 0, false, true, 100},   {true, 1, false, true, 100},
    };
    const unsigned width = 64, height = 64;
    for (const Case& c : cases)
    {
        const std::vector<uint8_t> image = Waves(width, height, c.edge, c.translucent);
        std::vector<uint8_t> words(width * height);
        const unsigned size = ORBTCCompress(image.data(), words.data(), width, height, true, c.twoBpp, 0, c.quality);
        ASSERT_EQ(size, width * height * (c.twoBpp ? 2u : 4u) / 8);
        std::vector<uint8_t> decoded(image.size());
        ASSERT_EQ(ORBTCDecompress(words.data(), decoded.data(), width, height, c.twoBpp, 0), width * height * 4);
        EXPECT_LT(MeanSquaredError(image.data(), decoded.data(), width * height), c.bound)
            << "2bpp " << c.twoBpp << " quality " << c.quality << " edge " << c.edge << " translucent "
            << c.translucent;
    }
}

TEST(ORBTCCompress, BlockGridsThatAreNoPowerOfTwoRoundTrip)
{
    // These grids keep their words in row order. The buffers are exactly the
    // reported sizes, so an index past the word count runs off them; words out
    // of place decode with an error of 80 and more.
    const unsigned sizes[][3] = {{24, 24, 0}, {12, 12, 0}, {48, 16, 0}, {28, 48, 0}, {24, 24, 1}, {48, 16, 1}};
    const double pi2 = 6.283185307179586;
    for (const auto& s : sizes)
    {
        const unsigned width = s[0], height = s[1];
        const bool twoBpp = s[2] != 0;
        // Waves with a slope of at most about 6 a pixel.
        std::vector<uint8_t> image(size_t(width) * height * 4);
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
            {
                const double u = std::sin(pi2 * x / width), v = std::cos(pi2 * y / height);
                uint8_t* p = &image[(size_t(y) * width + x) * 4];
                p[0] = uint8_t(128 + width * u);
                p[1] = uint8_t(128 + height * v);
                p[2] = uint8_t(128 + width * u * v);
                p[3] = 255;
            }
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

TEST(ORBTCTranscode, EveryLevelMemberAndFaceThroughTheNativeFile)
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

    testsupport::ScratchDir dir;
    ASSERT_TRUE(texture.saveFile((dir / "levels.orb").c_str()));
    CORBTexture loaded((dir / "levels.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    EXPECT_EQ(std::memcmp(loaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()), 0);

    ASSERT_TRUE(Transcode(loaded, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    for (uint32_t member = 0; member < 2; ++member)
        for (uint32_t face = 0; face < 2; ++face)
        {
            const double mse = MeanSquaredError(original.getDataPtr(0, member, face),
                                                loaded.getDataPtr(0, member, face), 32 * 32);
            EXPECT_LT(mse, face == 1 ? 60.0 : 23.0) << member << " " << face << " mse " << mse;
        }
    // A 1 x 1 level is compressed from the pixel repeated, so it decodes close to it.
    const uint8_t* tiny = original.getDataPtr(5, 1, 0);
    const uint8_t* back = loaded.getDataPtr(5, 1, 0);
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(back[c], tiny[c], 20) << c;
    ORBTCSetProcessorCountOverride(0);
}

TEST(ORBTCTranscode, RGBFormatsAreOpaqueAndUnalignedSizesFail)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 16, 16));
    const std::vector<uint8_t> image = Waves(16, 16);
    std::memcpy(texture.getDataPtr(), image.data(), image.size());
    ASSERT_TRUE(Transcode(texture, PixelType(ePF_ORBTC_2bpp_RGB), eVarUnsignedByteNorm, eColourSpaceLinear));
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    for (uint32_t i = 0; i < 16 * 16; ++i)
        ASSERT_EQ(texture.getDataPtr()[i * 4 + 3], 255) << i;

    // 20 is no multiple of the 2bpp block width: the compressor refuses it.
    CORBTexture odd(CORBTextureHeader(ORBStandard8PixelType, 8, 20));
    std::memset(odd.getDataPtr(), 100, odd.getDataSize());
    EXPECT_FALSE(Transcode(odd, PixelType(ePF_ORBTC_2bpp_RGBA), eVarUnsignedByteNorm, eColourSpaceLinear));
}
