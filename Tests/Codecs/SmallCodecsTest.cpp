#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "Codecs/OneBPPCodec.h"
#include "Codecs/RGB9E5Codec.h"
#include "Codecs/RGBGCodec.h"
#include "Codecs/YUVCodec.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

using Bytes = std::vector<uint8_t>;

uint32_t Pack(float r, float g, float b)
{
    const float rgb[3] = {r, g, b};
    return float3_to_rgb9e5(rgb);
}

} // namespace

TEST(YUVCodec, PairsPackInBothLayouts)
{
    // Blue then red: Y0 41, U 240 from the blue pixel, Y1 82, V 240 from the red one.
    const Bytes pixels = {0, 0, 255, 7, 255, 0, 0, 9};
    Bytes packed(4, 0xEE);
    EXPECT_EQ(YUVCompress(pixels.data(), packed.data(), 2, 1, ePF_UYVY), 4u);
    EXPECT_EQ(packed, (Bytes{240, 41, 240, 82}));
    EXPECT_EQ(YUVCompress(pixels.data(), packed.data(), 2, 1, ePF_YUY2), 4u);
    EXPECT_EQ(packed, (Bytes{41, 240, 82, 240}));

    // Black and white sit at the ends of the studio range.
    const Bytes blackWhite = {0, 0, 0, 0, 255, 255, 255, 255};
    EXPECT_EQ(YUVCompress(blackWhite.data(), packed.data(), 2, 1, ePF_YUY2), 4u);
    EXPECT_EQ(packed, (Bytes{16, 128, 235, 128}));

    // Width 3: one group a row, the third column of each row is skipped.
    const Bytes rows = {0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 0};
    Bytes two(9, 0xEE);
    EXPECT_EQ(YUVCompress(rows.data(), two.data(), 3, 2, ePF_YUY2), 12u);
    EXPECT_EQ(two, (Bytes{16, 128, 16, 128, 235, 128, 235, 128, 0xEE}));

    EXPECT_EQ(YUVCompress(pixels.data(), packed.data(), 2, 1, ePF_RGBG8888), 0u);
    EXPECT_EQ(YUVCompress(pixels.data(), packed.data(), 2, 0, ePF_UYVY), 0u);
}

TEST(YUVCodec, DecodingClampsBothEnds)
{
    unsigned char r, g, b;
    ConvertYUVToRGB(16, 240, 128, r, g, b); // blue (112 * 517 + 128) >> 8, green below 0
    EXPECT_EQ(Bytes({r, g, b}), (Bytes{0, 0, 226}));
    ConvertYUVToRGB(255, 255, 255, r, g, b); // red and blue above 255
    EXPECT_EQ(Bytes({r, g, b}), (Bytes{255, 125, 255}));
    ConvertYUVToRGB(235, 128, 128, r, g, b);
    EXPECT_EQ(Bytes({r, g, b}), (Bytes{255, 255, 255}));

    // The group shares U and V; each pixel has its own Y and opaque alpha.
    const Bytes packed = {240, 41, 240, 82};
    Bytes pixels(8);
    EXPECT_EQ(YUVDecompress(packed.data(), pixels.data(), 2, 1, ePF_UYVY), 8u);
    EXPECT_EQ(pixels, (Bytes{208, 0, 255, 255, 255, 0, 255, 255}));
    EXPECT_EQ(YUVDecompress(packed.data(), pixels.data(), 2, 1, ePF_GRGB8888), 0u);
}

TEST(RGBGCodec, RedAndBlueComeFromTheFirstPixel)
{
    const Bytes pixels = {10, 20, 30, 40, 50, 60, 70, 80};
    Bytes packed(4);
    EXPECT_EQ(RGBGCompress(pixels.data(), packed.data(), 2, 1, ePF_RGBG8888), 4u);
    EXPECT_EQ(packed, (Bytes{10, 20, 30, 60}));
    Bytes decoded(8);
    EXPECT_EQ(RGBGDecompress(packed.data(), decoded.data(), 2, 1, ePF_RGBG8888), 8u);
    EXPECT_EQ(decoded, (Bytes{10, 20, 30, 255, 10, 60, 30, 255}));

    EXPECT_EQ(RGBGCompress(pixels.data(), packed.data(), 2, 1, ePF_GRGB8888), 4u);
    EXPECT_EQ(packed, (Bytes{20, 10, 60, 30}));
    EXPECT_EQ(RGBGDecompress(packed.data(), decoded.data(), 2, 1, ePF_GRGB8888), 8u);
    EXPECT_EQ(decoded, (Bytes{10, 20, 30, 255, 10, 60, 30, 255}));

    EXPECT_EQ(RGBGCompress(pixels.data(), packed.data(), 2, 1, ePF_YUY2), 0u);
    EXPECT_EQ(RGBGDecompress(packed.data(), decoded.data(), 2, 0, ePF_RGBG8888), 0u);
}

TEST(OneBPPCodec, ThresholdAndBitOrder)
{
    // Pixels 0 and 3 are white: grey 128, and a mean of 384 / 3; the others
    // fall just short (127, 383 / 3) or are black. Alpha plays no part.
    Bytes pixels = {128, 128, 128, 0, 127, 127, 127, 255, 128, 128, 127, 255, 129, 128, 127, 0};
    pixels.resize(8 * 4, 0);
    pixels.resize(9 * 4, 255); // the ninth pixel doesn't fill a byte
    Bytes packed(2, 0xEE);
    EXPECT_EQ(OneBPPCompress(pixels.data(), packed.data(), 3, 3), 1u);
    EXPECT_EQ(packed, (Bytes{0x09, 0xEE}));
    EXPECT_EQ(OneBPPCompress(pixels.data(), packed.data(), 7, 1), 0u);
    EXPECT_EQ(packed[0], 0x09);
    EXPECT_EQ(OneBPPCompress(nullptr, nullptr, 16, 4), 8u);

    const Bytes bits = {0x09, 0x01};
    Bytes decoded(9 * 4);
    EXPECT_EQ(OneBPPDecompress(bits.data(), decoded.data(), 9, 1), 36u);
    for (unsigned i = 0; i < 9; ++i)
    {
        const uint8_t v = (i == 0 || i == 3 || i == 8) ? 255 : 0;
        EXPECT_EQ(Bytes(decoded.begin() + i * 4, decoded.begin() + i * 4 + 4), (Bytes{v, v, v, 255})) << i;
    }
    EXPECT_EQ(OneBPPDecompress(nullptr, decoded.data(), 4, 4), 64u);
}

TEST(RGB9E5Codec, SharedExponentRoundingAndClamps)
{
    EXPECT_EQ(Pack(0, 0, 0), 0u);
    EXPECT_EQ(Pack(1, 1, 1), 0x84020100u); // mantissas 256, exponent field 16
    // 0.3 * 256 = 76.8 rounds to 77; a negative channel is 0.
    EXPECT_EQ(Pack(1, 0.3f, 0), 0x80009B00u);
    // A half rounds up: 2^-9 * 256 = 0.5 gives mantissa 1.
    EXPECT_EQ(Pack(1, 1.0f / 512, 0), 0x80000300u);
    EXPECT_EQ(Pack(-5, 1, 0.5f), 0x82020000u);
    // 1.999 * 256 rounds to 512: the exponent steps up and the mantissa halves.
    EXPECT_EQ(Pack(1.999f, 0, 0), 0x88000100u);
    // The largest value, and anything above it, is all ones.
    EXPECT_EQ(Pack(65408, 65408, 65408), 0xFFFFFFFFu);
    EXPECT_EQ(Pack(1e9f, 70000, 65408), 0xFFFFFFFFu);
    // Below 2^-16 the exponent stays at its floor: 2^-20 is mantissa 16, field 0.
    EXPECT_EQ(Pack(1.0f / 1048576, 0, 0), 16u);

    float rgb[3];
    rgb9e5_to_float3(0xFFFFFFFFu, rgb);
    EXPECT_EQ(rgb[0], 65408.0f);
    rgb9e5_to_float3(0x80009B00u, rgb);
    EXPECT_EQ(rgb[0], 1.0f);
    EXPECT_EQ(rgb[1], 77.0f / 256);
    EXPECT_EQ(rgb[2], 0.0f);

    // Words are little-endian; the decoder counts 16 bytes a pixel.
    const float in[6] = {1, 1, 1, 0, 0, 0};
    Bytes packed(8);
    EXPECT_EQ(RGB9E5Compress(in, packed.data(), 2, 1), 8u);
    EXPECT_EQ(packed, (Bytes{0x00, 0x01, 0x02, 0x84, 0, 0, 0, 0}));
    float out[6];
    EXPECT_EQ(RGB9E5Decompress(packed.data(), out, 2, 1), 32u);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[5], 0.0f);
    EXPECT_EQ(RGB9E5Compress(nullptr, nullptr, 3, 3), 36u);
}

// Levels down to 1 x 1 go through Transcode and come back opaque; 9 bits
// hold every byte exactly.
TEST(SmallCodecsTranscode, EveryLevelDownToOnePixel)
{
    for (uint64_t format : {ePF_UYVY, ePF_YUY2, ePF_RGBG8888, ePF_GRGB8888, ePF_BW1bpp, ePF_RGB9E5})
    {
        CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, 4));
        for (uint32_t level = 0; level < 4; ++level)
            for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
                texture.getDataPtr(level)[i] = uint8_t(i % 4 == 3 ? i : 20 + i * 7 + level * 50);
        const CORBTexture original = texture;
        ASSERT_TRUE(Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear)) << format;
        ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
        for (uint32_t level = 0; level < 4; ++level)
            for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
            {
                const uint8_t want = i % 4 == 3 ? 255 : format == ePF_RGB9E5 ? original.getDataPtr(level)[i] : 0;
                ASSERT_EQ(i % 4 == 3 || format == ePF_RGB9E5 ? texture.getDataPtr(level)[i] : 0, want)
                    << format << " level " << level << " byte " << i;
            }
    }
}
