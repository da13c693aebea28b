#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureFormatTable.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

const PixelType kRGB565('r', 'g', 'b', 0, 5, 6, 5, 0);

// A width x height rgba8 texture holding 'pixels' (four bytes each).
CORBTexture RGBA8(uint32_t width, uint32_t height, const std::vector<uint8_t>& pixels)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, height, width));
    std::memcpy(texture.getDataPtr(), pixels.data(), texture.getDataSize());
    return texture;
}

std::vector<uint8_t> Bytes(const CORBTexture& texture)
{
    return std::vector<uint8_t>(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
}

} // namespace

TEST(Transcode, RefusesEmptyTexturesAndTheCountOfNamedFormats)
{
    CORBTexture empty;
    EXPECT_FALSE(Transcode(empty, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));

    CORBTexture texture = RGBA8(1, 1, {1, 2, 3, 4});
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_NumCompressed), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(texture.getPixelType(), PixelType(ORBStandard8PixelType));
}

TEST(Transcode, SameFormatLeavesTheBlockInPlace)
{
    CORBTexture texture = RGBA8(2, 1, {1, 2, 3, 4, 5, 6, 7, 8});
    const uint8_t* before = texture.getDataPtr();
    EXPECT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(texture.getDataPtr(), before);
}

TEST(Transcode, FormatsWithoutCodecFailAndLeaveTheTarget)
{
    // DXT has no codec in the pipeline: nothing is written and the sum is 0.
    CORBTexture texture = RGBA8(4, 4, std::vector<uint8_t>(64, 9));
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_DXT1), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(texture.getPixelType(), PixelType(ePF_DXT1));
    EXPECT_EQ(texture.getDataSize(), 8u);

    // Decoding it gives the intermediate layout.
    EXPECT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(texture.getPixelType(), PixelType(ORBStandard8PixelType));
    EXPECT_EQ(texture.getDataSize(), 64u);
}

TEST(Transcode, FormatsWithoutCodecLeaveZerosNotHeapContents)
{
    // Blocks of the sizes about to be allocated are freed dirty first, so
    // that uninitialised memory would show.
    for (size_t size : {size_t(8), size_t(64), size_t(4096), size_t(16384)})
    {
        std::vector<uint8_t*> dirty;
        for (int i = 0; i < 4; ++i)
        {
            dirty.push_back(new uint8_t[size]);
            std::memset(dirty.back(), 0xA5, size);
        }
        for (uint8_t* block : dirty)
            delete[] block;
    }
    CORBTexture texture = RGBA8(64, 64, std::vector<uint8_t>(16384, 9));
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_BC4), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(texture), std::vector<uint8_t>(2048, 0));

    CORBTexture dxt(CORBTextureHeader(ePF_DXT5, 64, 64));
    std::memset(dxt.getDataPtr(), 0x77, dxt.getDataSize());
    EXPECT_TRUE(Transcode(dxt, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(dxt), std::vector<uint8_t>(16384, 0));
}

TEST(Transcode, RefusesChannelsWiderThanThirtyTwoBits)
{
    // No encoder holds such a pixel: 'r' 40 and 'g' 40 would be copied as
    // ten bytes out of an encoder's sixteen, 'r' 200 as 25.
    CORBTexture texture = RGBA8(2, 2, std::vector<uint8_t>(16, 3));
    EXPECT_FALSE(Transcode(texture, PixelType('r', 0, 0, 0, 200, 0, 0, 0), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(texture.getPixelType(), PixelType(ORBStandard8PixelType));

    CORBTexture wide(CORBTextureHeader(PixelType('r', 'g', 0, 0, 40, 40, 0, 0).PixelTypeID, 2, 2));
    std::memset(wide.getDataPtr(), 1, wide.getDataSize());
    EXPECT_FALSE(Transcode(wide, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));

    // The pixel loop itself copies nothing for an encoder wider than its pixel.
    CORBTexture target(CORBTextureHeader(PixelType('r', 0, 0, 0, 200, 0, 0, 0).PixelTypeID, 2, 2));
    CPixelEncoder from(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm);
    CPixelEncoder to(PixelType('r', 0, 0, 0, 200, 0, 0, 0), eVarUnsignedByteNorm);
    EXPECT_EQ(TranscodeTrivial(texture, target, from, to, eColourSpaceLinear, eColourSpaceLinear), 0u);
}

TEST(Transcode, ChannelLayoutsByHand)
{
    // (255, 128, 0) to 5:6:5: red 31, green trunc(128/255*63 + 0.5) = 32.
    CORBTexture texture = RGBA8(1, 1, {255, 128, 0, 77});
    ASSERT_TRUE(Transcode(texture, kRGB565, eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{0x00, 0xFC}));

    // Back to rgba8: green 32/63*255 + 0.5 = 130, alpha missing reads 1.0.
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{255, 130, 0, 255}));
}

TEST(Transcode, ColourSpaceChangeAloneRunsThePixelLoop)
{
    CORBTexture texture = RGBA8(3, 1, {0, 1, 64, 10, 128, 200, 255, 20, 0, 0, 0, 30});
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceSRGB));
    EXPECT_EQ(texture.getColourSpace(), eColourSpaceSRGB);
    // Linear to sRGB per channel; alpha untouched.
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{0, 13, 137, 10, 188, 229, 255, 20, 0, 0, 0, 30}));

    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    // 137 -> 0.2513..., 188 -> 0.5029..., 229 -> 0.7818..., 13 -> 0.0039...
    const std::vector<uint8_t> back = Bytes(texture);
    EXPECT_EQ(back[3], 10);
    EXPECT_NEAR(back[2], 64, 1);
    EXPECT_NEAR(back[4], 128, 1);
    EXPECT_NEAR(back[5], 200, 1);
}

TEST(Transcode, EverySurfaceConvertsAndTheHeaderStays)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 3, 2, 6));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 13);
    texture.setOrientation(eOrientUp);
    texture.setCubeMapOrder("ZzYyXx");
    const CORBTexture original(texture);

    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard32PixelType), eVarSignedFloat, eColourSpaceLinear));
    EXPECT_EQ(texture.getDataSize(), original.getDataSize() * 4);
    EXPECT_EQ(texture.getOrientation(eAxisY), eOrientUp);
    EXPECT_EQ(texture.getCubeMapOrder(), CORBTString("ZzYyXx"));
    EXPECT_EQ(texture.getNumMIPLevels(), 3u);
    const float* last = reinterpret_cast<const float*>(texture.getDataPtr(2, 1, 5));
    EXPECT_FLOAT_EQ(last[0], original.getDataPtr(2, 1, 5)[0] / 255.0f);

    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(texture), Bytes(original));
}

TEST(Transcode, DitherWorksInEightBitsFirst)
{
    // 1799/65535 is 7/255: without dithering 5 bits keep trunc(0.85 + 0.5) = 1.
    // Dithering first turns 7 into 0 in 5 bits and into 4 in 6 bits (green 1).
    CORBTexture texture(CORBTextureHeader(ORBStandard16PixelType, 1, 1));
    texture.setChannelType(eVarUnsignedShortNorm);
    const uint16_t pixel[4] = {1799, 1799, 1799, 65535};
    std::memcpy(texture.getDataPtr(), pixel, 8);
    CORBTexture plain(texture);

    ASSERT_TRUE(Transcode(plain, kRGB565, eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(plain), (std::vector<uint8_t>{0x41, 0x08}));
    ASSERT_TRUE(Transcode(texture, kRGB565, eVarUnsignedByteNorm, eColourSpaceLinear, ECompressorQuality(0), true));
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{0x20, 0x00}));

    // 64 bits per pixel and more are not dithered: the 16-bit source stays.
    CORBTexture wide(CORBTextureHeader(ORBStandard16PixelType, 1, 1));
    wide.setChannelType(eVarUnsignedShortNorm);
    std::memcpy(wide.getDataPtr(), pixel, 8);
    ASSERT_TRUE(Transcode(wide, PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, eColourSpaceSRGB,
                          ECompressorQuality(0), true));
    EXPECT_EQ(wide.getDataSize(), 8u);
}

TEST(Transcode, DitherToGreyCopiesGreyIntoColourFirst)
{
    // Luminance 0.0722 * 120 truncates to 8, which 4 bits dither to 0. Blue
    // dithered on its own (119) would give a luminance of 1 in 4 bits.
    CORBTexture texture = RGBA8(1, 1, {0, 0, 120, 255});
    ASSERT_TRUE(Transcode(texture, PixelType('l', 'a', 0, 0, 4, 4, 0, 0), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(0), true));
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{0x0F}));
}

TEST(Dither, QuantisesByFillingLowBitsFromTheTop)
{
    // One bit: 200 -> 128 + 100 = 228, 100 -> 50. A single pixel spreads nothing.
    uint8_t pixel[4] = {200, 100, 7, 9};
    Dither(pixel, PixelType('r', 'g', 0, 0, 1, 1, 0, 0), 1, 1, 1);
    EXPECT_EQ(pixel[0], 228);
    EXPECT_EQ(pixel[1], 50);
    EXPECT_EQ(pixel[2], 7);
    EXPECT_EQ(pixel[3], 9);

    // 5:6:5 leaves alpha; eight bits or more leave a channel.
    uint8_t other[8] = {100, 100, 100, 101, 255, 3, 3, 3};
    Dither(other, PixelType('r', 'g', 'b', 'a', 5, 6, 5, 0), 1, 1, 1);
    EXPECT_EQ(other[0], 99);  // 96 + 3
    EXPECT_EQ(other[1], 101); // 100 + 1
    EXPECT_EQ(other[3], 101);
    Dither(other + 4, PixelType(ORBStandard16PixelType), 1, 1, 1);
    EXPECT_EQ(other[5], 3);
}

TEST(Dither, WalksColumnsBeforeRows)
{
    // Red of a 2x2 image, rows {100, 130} and {0, 250}, one bit. Column order
    // visits (0,1) before (1,0), so the bottom-right pixel is clamped at 255
    // before it receives -12 and ends at 243 -> 128 + 121.
    uint8_t image[16] = {100, 1, 2, 3, 130, 1, 2, 3, 0, 1, 2, 3, 250, 1, 2, 3};
    Dither(image, PixelType('r', 0, 0, 0, 1, 0, 0, 0), 2, 2, 1);
    EXPECT_EQ(image[0], 50);
    EXPECT_EQ(image[4], 205);
    EXPECT_EQ(image[8], 6);
    EXPECT_EQ(image[12], 249);
    for (int i = 0; i < 16; i += 4)
        EXPECT_EQ(image[i + 1] + image[i + 2] + image[i + 3], 6);
}

TEST(Dither, NamedTargetsUseTheirBitTable)
{
    uint8_t bits[4];
    DitherTargetBits(PixelType(ePF_ORBTC_4bpp_RGB), bits);
    EXPECT_EQ(std::vector<uint8_t>(bits, bits + 4), (std::vector<uint8_t>{5, 5, 5, 0}));
    DitherTargetBits(PixelType(ePF_ETC2_RGB_A1), bits);
    EXPECT_EQ(std::vector<uint8_t>(bits, bits + 4), (std::vector<uint8_t>{5, 5, 5, 1}));
    DitherTargetBits(PixelType(ePF_ASTC_8x8), bits);
    EXPECT_EQ(std::vector<uint8_t>(bits, bits + 4), (std::vector<uint8_t>{0, 0, 0, 0}));
    // Layouts: later positions overwrite, l and i set colour, x sets alpha.
    DitherTargetBits(PixelType('l', 'x', 'r', 0, 4, 3, 6, 0), bits);
    EXPECT_EQ(std::vector<uint8_t>(bits, bits + 4), (std::vector<uint8_t>{6, 4, 4, 3}));
}

TEST(IntermediateTranscodeFormat, ByNamedFormat)
{
    PixelType format;
    EORBTVariableType type;
    IntermediateTranscodeFormat(PixelType(ePF_ETC1), eVarSignedFloat, format, type);
    EXPECT_EQ(format, PixelType('r', 'g', 'b', 0, 8, 8, 8, 0));
    EXPECT_EQ(type, eVarUnsignedByteNorm);
    IntermediateTranscodeFormat(PixelType(ePF_RGB9E5), eVarUnsignedByteNorm, format, type);
    EXPECT_EQ(format, PixelType('r', 'g', 'b', 0, 32, 32, 32, 0));
    EXPECT_EQ(type, eVarSignedFloat);
    // EAC: signed types are 1, 3, ..., 11 and 12; 13 is not.
    IntermediateTranscodeFormat(PixelType(ePF_EAC_R11), eVarSignedFloat, format, type);
    EXPECT_EQ(format, PixelType('r', 0, 0, 0, 16, 0, 0, 0));
    EXPECT_EQ(type, eVarSignedShortNorm);
    IntermediateTranscodeFormat(PixelType(ePF_EAC_RG11), eVarUnsignedFloat, format, type);
    EXPECT_EQ(format, PixelType('r', 'g', 0, 0, 16, 16, 0, 0));
    EXPECT_EQ(type, eVarUnsignedShortNorm);
    // ORBTC, ASTC, unknown values and layouts: rgba8.
    for (uint64_t other : {uint64_t(ePF_ORBTC_2bpp_RGB), uint64_t(ePF_ASTC_6x6x6), uint64_t(99), kRGB565.PixelTypeID})
    {
        IntermediateTranscodeFormat(PixelType(other), eVarSignedByteNorm, format, type);
        EXPECT_EQ(format, PixelType(ORBStandard8PixelType));
        EXPECT_EQ(type, eVarUnsignedByteNorm);
    }
}

TEST(TranscodeTrivial, CountsTargetBytesOfEverySurface)
{
    CORBTexture source(CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 2, 3));
    std::memset(source.getDataPtr(), 0x80, source.getDataSize());
    CORBTextureHeader header(source.getHeader());
    header.setPixelFormat(kRGB565);
    CORBTexture target(header);
    CPixelEncoder from(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm), to(kRGB565, eVarUnsignedByteNorm);
    // (4 + 1) pixels in each of 3 members, 2 bytes each.
    EXPECT_EQ(TranscodeTrivial(source, target, from, to, eColourSpaceLinear, eColourSpaceLinear), 30u);
}

TEST(Transcode, HighestQualityIsWhatTheCompressorsServe)
{
    // Each named format with an encoder compresses at its highest quality and
    // fails one above it; the table and the codecs must agree. Codecs that
    // ignore the quality report the largest value and never fail.
    std::vector<uint8_t> pixels(16 * 16 * 4);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = uint8_t(i * 37);
    for (uint32_t format = 0; format < ePF_NumCompressed; ++format)
    {
        SCOPED_TRACE(format);
        const int highest = HighestCompressorQuality(PixelType(format));
        EXPECT_EQ(highest >= 0, CanTranscodeTo(PixelType(format)));
        if (highest < 0)
            continue;
        CORBTexture texture = RGBA8(16, 16, pixels);
        EXPECT_TRUE(Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear,
                              ECompressorQuality(highest)));
        if (highest == INT8_MAX)
            continue;
        texture = RGBA8(16, 16, pixels);
        EXPECT_FALSE(Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear,
                               ECompressorQuality(highest + 1)));
    }
    EXPECT_EQ(HighestCompressorQuality(PixelType(ORBStandard8PixelType)), -1);
    for (uint32_t format : {ePF_UYVY, ePF_YUY2, ePF_BW1bpp, ePF_RGB9E5, ePF_RGBG8888, ePF_GRGB8888})
        EXPECT_EQ(HighestCompressorQuality(PixelType(format)), INT8_MAX) << format;
}
