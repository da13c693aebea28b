// Transcode where the pinned scenes (rgba8 sources, common layouts) do not
// reach: refusals, other sources, colour space alone, surfaces and metadata,
// dithering details, the intermediate formats and the quality table.

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureFormatTable.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

const PixelType kRGB565('r', 'g', 'b', 0, 5, 6, 5, 0), kRGBA8(ORBStandard8PixelType);

CORBTexture Texture(uint64_t format, uint32_t width, uint32_t height, const std::vector<uint8_t>& bytes,
                    EORBTVariableType type = eVarUnsignedByteNorm)
{
    CORBTexture texture(CORBTextureHeader(format, height, width, 1, 1, 1, 1, eColourSpaceLinear, type));
    std::memcpy(texture.getDataPtr(), bytes.data(), texture.getDataSize());
    return texture;
}

std::vector<uint8_t> Bytes(const CORBTexture& texture)
{
    return std::vector<uint8_t>(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
}

bool To(CORBTexture& texture, PixelType format, EORBTVariableType type = eVarUnsignedByteNorm,
        EORBTColourSpace space = eColourSpaceLinear, bool dither = false)
{
    return Transcode(texture, format, type, space, ECompressorQuality(0), dither);
}

} // namespace

TEST(Transcode, Refusals)
{
    CORBTexture empty;
    EXPECT_FALSE(To(empty, kRGBA8));
    CORBTexture texture = Texture(ORBStandard8PixelType, 2, 2, std::vector<uint8_t>(16, 3));
    EXPECT_FALSE(To(texture, PixelType(ePF_NumCompressed)));
    // No encoder holds a channel wider than 32 bits, as source or as target.
    EXPECT_FALSE(To(texture, PixelType('r', 0, 0, 0, 200, 0, 0, 0)));
    EXPECT_EQ(Bytes(texture), std::vector<uint8_t>(16, 3));
    EXPECT_EQ(texture.getPixelType(), kRGBA8);
    CORBTexture wide = Texture(PixelType('r', 'g', 0, 0, 40, 40, 0, 0).PixelTypeID, 2, 2, std::vector<uint8_t>(40, 1));
    EXPECT_FALSE(To(wide, kRGBA8));
    // The pixel loop itself copies nothing for an encoder wider than its pixel.
    CORBTexture target(CORBTextureHeader(PixelType('r', 0, 0, 0, 200, 0, 0, 0).PixelTypeID, 2, 2));
    CPixelEncoder from(kRGBA8, eVarUnsignedByteNorm), to(PixelType('r', 0, 0, 0, 200, 0, 0, 0), eVarUnsignedByteNorm);
    EXPECT_EQ(TranscodeTrivial(texture, target, from, to, eColourSpaceLinear, eColourSpaceLinear), 0u);
}

TEST(Transcode, FormatsWithoutCodecLeaveZerosNotHeapContents)
{
    // Blocks of the sizes about to be allocated are freed dirty first, so
    // that uninitialised memory would show.
    for (size_t size : {size_t(8), size_t(64), size_t(4096), size_t(16384)})
    {
        std::vector<std::unique_ptr<uint8_t[]>> dirty;
        for (int i = 0; i < 4; ++i)
            std::memset(dirty.emplace_back(new uint8_t[size]).get(), 0xA5, size);
    }
    // No encoder: false, the target format and a zero block.
    CORBTexture texture = Texture(ORBStandard8PixelType, 4, 4, std::vector<uint8_t>(64, 9));
    EXPECT_FALSE(To(texture, PixelType(ePF_DXT1)));
    EXPECT_EQ(texture.getPixelType(), PixelType(ePF_DXT1));
    EXPECT_EQ(Bytes(texture), std::vector<uint8_t>(8, 0));
    CORBTexture large = Texture(ORBStandard8PixelType, 64, 64, std::vector<uint8_t>(16384, 9));
    EXPECT_FALSE(To(large, PixelType(ePF_BC4)));
    EXPECT_EQ(Bytes(large), std::vector<uint8_t>(2048, 0));
    // No decoder: true, the intermediate layout and zeros.
    CORBTexture dxt(CORBTextureHeader(ePF_DXT5, 64, 64));
    std::memset(dxt.getDataPtr(), 0x77, dxt.getDataSize());
    EXPECT_TRUE(To(dxt, kRGBA8));
    EXPECT_EQ(Bytes(dxt), std::vector<uint8_t>(16384, 0));
}

TEST(Transcode, OtherSourcesAndTheColourSpaceAlone)
{
    // From 5:6:5: green 32/63 x 255 + 0.5 = 130, a missing alpha reads 1.0.
    CORBTexture packed = Texture(kRGB565.PixelTypeID, 1, 1, {0x00, 0xFC});
    ASSERT_TRUE(To(packed, kRGBA8));
    EXPECT_EQ(Bytes(packed), (std::vector<uint8_t>{255, 130, 0, 255}));

    // The same format in the same space keeps its block; another space alone runs the pixel loop.
    CORBTexture texture = Texture(ORBStandard8PixelType, 3, 1, {0, 1, 64, 10, 128, 200, 255, 20, 0, 0, 0, 30});
    const uint8_t* before = texture.getDataPtr();
    EXPECT_TRUE(To(texture, kRGBA8));
    EXPECT_EQ(texture.getDataPtr(), before);
    ASSERT_TRUE(To(texture, kRGBA8, eVarUnsignedByteNorm, eColourSpaceSRGB));
    EXPECT_EQ(texture.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(Bytes(texture), (std::vector<uint8_t>{0, 13, 137, 10, 188, 229, 255, 20, 0, 0, 0, 30}));
}

TEST(Transcode, EverySurfaceConvertsAndTheHeaderStays)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 3, 2, 6));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 13);
    texture.setOrientation(eOrientUp);
    texture.setCubeMapOrder("ZzYyXx");
    const CORBTexture original(texture);
    ASSERT_TRUE(To(texture, PixelType(ORBStandard32PixelType), eVarSignedFloat));
    EXPECT_EQ(texture.getDataSize(), original.getDataSize() * 4);
    EXPECT_EQ(texture.getOrientation(eAxisY), eOrientUp);
    EXPECT_EQ(texture.getCubeMapOrder(), CORBTString("ZzYyXx"));
    EXPECT_EQ(texture.getNumMIPLevels(), 3u);
    EXPECT_FLOAT_EQ(reinterpret_cast<const float*>(texture.getDataPtr(2, 1, 5))[0],
                    original.getDataPtr(2, 1, 5)[0] / 255.0f);
    ASSERT_TRUE(To(texture, kRGBA8));
    EXPECT_EQ(Bytes(texture), Bytes(original));

    // (4 + 1) pixels in each of 3 members, 2 bytes each.
    CORBTexture source(CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 2, 3));
    CORBTextureHeader header(source.getHeader());
    header.setPixelFormat(kRGB565);
    CORBTexture target(header);
    CPixelEncoder from(kRGBA8, eVarUnsignedByteNorm), to(kRGB565, eVarUnsignedByteNorm);
    EXPECT_EQ(TranscodeTrivial(source, target, from, to, eColourSpaceLinear, eColourSpaceLinear), 30u);
}

TEST(Transcode, DitherWorksInEightBitsFirst)
{
    // 1799/65535 is 7/255: without dithering 5 bits keep trunc(0.85 + 0.5) = 1.
    // Dithering first turns 7 into 0 in 5 bits and into 4 in 6 bits (green 1).
    const std::vector<uint8_t> pixel = {0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0xFF, 0xFF};
    CORBTexture plain = Texture(ORBStandard16PixelType, 1, 1, pixel, eVarUnsignedShortNorm), dithered(plain),
                wide(plain);
    ASSERT_TRUE(To(plain, kRGB565));
    EXPECT_EQ(Bytes(plain), (std::vector<uint8_t>{0x41, 0x08}));
    ASSERT_TRUE(To(dithered, kRGB565, eVarUnsignedByteNorm, eColourSpaceLinear, true));
    EXPECT_EQ(Bytes(dithered), (std::vector<uint8_t>{0x20, 0x00}));
    // 32 bits per pixel and more are not dithered: the 16-bit source stays, and a 2-bit alpha rounds.
    ASSERT_TRUE(To(wide, PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, eColourSpaceSRGB, true));
    EXPECT_EQ(wide.getDataSize(), 8u);
    const PixelType a2rgb10('a', 'r', 'g', 'b', 2, 10, 10, 10);
    CORBTexture rounded = Texture(ORBStandard8PixelType, 4, 1, std::vector<uint8_t>(16, 128)), undithered(rounded);
    ASSERT_TRUE(To(rounded, a2rgb10, eVarUnsignedIntegerNorm));
    ASSERT_TRUE(To(undithered, a2rgb10, eVarUnsignedIntegerNorm, eColourSpaceLinear, true));
    EXPECT_EQ(Bytes(undithered), Bytes(rounded));

    // Luminance 0.0722 * 120 truncates to 8, which 4 bits dither to 0. Blue
    // dithered on its own (119) would give a luminance of 1 in 4 bits.
    CORBTexture blue = Texture(ORBStandard8PixelType, 1, 1, {0, 0, 120, 255});
    ASSERT_TRUE(To(blue, PixelType('l', 'a', 0, 0, 4, 4, 0, 0), eVarUnsignedByteNorm, eColourSpaceLinear, true));
    EXPECT_EQ(Bytes(blue), (std::vector<uint8_t>{0x0F}));

    // Named targets use their bit table; in layouts later positions overwrite, l and i set colour, x alpha.
    const struct
    {
        PixelType target;
        std::vector<uint8_t> bits;
    } targets[] = {{PixelType(ePF_ORBTC_4bpp_RGB), {5, 5, 5, 0}},
                   {PixelType(ePF_ETC2_RGB_A1), {5, 5, 5, 1}},
                   {PixelType(ePF_ASTC_8x8), {0, 0, 0, 0}},
                   {PixelType('l', 'x', 'r', 0, 4, 3, 6, 0), {6, 4, 4, 3}}};
    for (const auto& t : targets)
    {
        uint8_t bits[4];
        DitherTargetBits(t.target, bits);
        EXPECT_EQ(std::vector<uint8_t>(bits, bits + 4), t.bits) << t.target.PixelTypeID;
    }
}

TEST(Transcode, IntermediateFormats)
{
    const PixelType kRGBA8Layout(ORBStandard8PixelType);
    const struct
    {
        uint64_t named;
        EORBTVariableType asked;
        PixelType format;
        EORBTVariableType type;
    } cases[] = {
        {ePF_ETC1, eVarSignedFloat, PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), eVarUnsignedByteNorm},
        {ePF_RGB9E5, eVarUnsignedByteNorm, PixelType('r', 'g', 'b', 0, 32, 32, 32, 0), eVarSignedFloat},
        // EAC: signed types are 1, 3, ..., 11 and 12; 13 is not.
        {ePF_EAC_R11, eVarSignedFloat, PixelType('r', 0, 0, 0, 16, 0, 0, 0), eVarSignedShortNorm},
        {ePF_EAC_RG11, eVarUnsignedFloat, PixelType('r', 'g', 0, 0, 16, 16, 0, 0), eVarUnsignedShortNorm},
        // ORBTC, ASTC, unknown values and layouts: rgba8.
        {ePF_ORBTC_2bpp_RGB, eVarSignedByteNorm, kRGBA8Layout, eVarUnsignedByteNorm},
        {ePF_ASTC_6x6x6, eVarSignedByteNorm, kRGBA8Layout, eVarUnsignedByteNorm},
        {99, eVarSignedByteNorm, kRGBA8Layout, eVarUnsignedByteNorm},
        {kRGB565.PixelTypeID, eVarSignedByteNorm, kRGBA8Layout, eVarUnsignedByteNorm},
    };
    for (const auto& c : cases)
    {
        PixelType format;
        EORBTVariableType type;
        IntermediateTranscodeFormat(PixelType(c.named), c.asked, format, type);
        EXPECT_EQ(format, c.format) << c.named;
        EXPECT_EQ(type, c.type) << c.named;
    }
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
        for (int quality = highest; quality >= 0 && quality <= std::min(highest + 1, int(INT8_MAX)); ++quality)
        {
            CORBTexture texture = Texture(ORBStandard8PixelType, 16, 16, pixels);
            EXPECT_EQ(Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear,
                                ECompressorQuality(quality)),
                      quality == highest);
        }
    }
    EXPECT_EQ(HighestCompressorQuality(kRGBA8), -1);
    for (uint32_t format : {ePF_UYVY, ePF_YUY2, ePF_BW1bpp, ePF_RGB9E5, ePF_RGBG8888, ePF_GRGB8888})
        EXPECT_EQ(HighestCompressorQuality(PixelType(format)), INT8_MAX) << format;
}
