// The pixel encoder on every layout and channel type, the byte tables that
// must give its results, and Transcode where the pinned scenes (rgba8 sources,
// common layouts) do not reach: refusals, other sources, the colour space
// alone, surfaces and metadata, dithering details, intermediate formats and
// the quality table.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTPixelByteTables.h"
#include "ORBTPixelConversion.h"
#include "ORBTextureFormatTable.h"
#include "ORBTextureUtilities.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::DataOf;
using Bytes = std::vector<uint8_t>;

namespace
{

// Encoder for up to four channel letters ('-' for none), optionally loaded with a raw pixel.
CPixelEncoder Make(EORBTVariableType type, const char* letters, std::array<uint8_t, 4> bits, Bytes raw = {})
{
    uint8_t names[4] = {};
    for (size_t i = 0; i < 4 && letters[i]; ++i)
        names[i] = uint8_t(letters[i] == '-' ? 0 : letters[i]);
    CPixelEncoder encoder(PixelType(names[0], names[1], names[2], names[3], bits[0], bits[1], bits[2], bits[3]), type);
    raw.resize(16);
    encoder.OverwriteColourData(raw.data());
    return encoder;
}

CPixelEncoder Rgba8(Bytes raw) { return Make(eVarUnsignedByteNorm, "rgba", {8, 8, 8, 8}, raw); }

CPixelEncoder Rgba32F(float r, float g, float b, float a)
{
    const float data[4] = {r, g, b, a};
    Bytes raw(16);
    std::memcpy(raw.data(), data, 16);
    return Make(eVarSignedFloat, "rgba", {32, 32, 32, 32}, raw);
}

Bytes Raw(const CPixelEncoder& encoder)
{
    return Bytes(encoder.GetColourData(), encoder.GetColourData() + encoder.GetColourDataSize());
}

const float kHalfZero = std::ldexp(1.0f, -15);

// A layout from up to four channel letters ('-' for none) and widths.
PixelType P(const char* l, uint8_t a, uint8_t b = 0, uint8_t c = 0, uint8_t d = 0)
{
    uint8_t n[4] = {};
    for (size_t i = 0; i < 4 && l[i]; ++i)
        n[i] = uint8_t(l[i] == '-' ? 0 : l[i]);
    return PixelType(n[0], n[1], n[2], n[3], a, b, c, d);
}

// Converts 'count' source pixels through the tables and through the encoders, and compares.
void ExpectSameAsEncoders(const CPixelByteTables& tables, CPixelEncoder& in, CPixelEncoder& out,
                          const std::vector<uint8_t>& pixels, uint32_t count, EORBTColourSpace from,
                          EORBTColourSpace to)
{
    const unsigned sourceBytes = in.GetColourDataSize(), targetBytes = out.GetColourDataSize();
    std::vector<uint8_t> fast(count * targetBytes);
    tables.Convert(pixels.data(), fast.data(), count);
    for (uint32_t i = 0; i < count; ++i)
    {
        in.OverwriteColourData(&pixels[i * sourceBytes]);
        out.EncodeFrom(in);
        out.ConvertToColourSpace(to, from);
        ASSERT_EQ(std::memcmp(out.GetColourData(), &fast[i * targetBytes], targetBytes), 0) << "pixel " << i;
    }
}

const PixelType kRGB565('r', 'g', 'b', 0, 5, 6, 5, 0), kRGBA8(ORBStandard8PixelType);

CORBTexture Texture(uint64_t format, uint32_t width, uint32_t height, const std::vector<uint8_t>& bytes,
                    EORBTVariableType type = eVarUnsignedByteNorm)
{
    CORBTexture texture(CORBTextureHeader(format, height, width, 1, 1, 1, 1, eColourSpaceLinear, type));
    std::memcpy(texture.getDataPtr(), bytes.data(), texture.getDataSize());
    return texture;
}

bool To(CORBTexture& texture, PixelType format, EORBTVariableType type = eVarUnsignedByteNorm,
        EORBTColourSpace space = eColourSpaceLinear, bool dither = false)
{
    return Transcode(texture, format, type, space, ECompressorQuality(0), dither);
}

} // namespace

TEST(PixelEncoderLayout, ValidationSetsOneBitPerFault)
{
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "argb", {1, 5, 5, 5}).GetError(), 0u);
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "r-b-", {8, 0, 8, 0}).GetError(), uint32_t(eEncoderChannelGap));
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "rgr", {8, 8, 8, 0}).GetError(), uint32_t(eEncoderDuplicatedChannels));
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "rg", {8, 0, 0, 0}).GetError(), uint32_t(eEncoderChannelWithoutBits));
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "rz", {8, 8, 0, 0}).GetError(), uint32_t(eEncoderBitsWithoutChannel));
    EXPECT_EQ(Make(eVarUnsignedByteNorm, "rg", {7, 8, 0, 0}).GetError(), uint32_t(eEncoderTotalBitsNotBytes));
    EXPECT_EQ(CPixelEncoder(eVarUnsignedByteNorm, 8, 3, 0, 0, eChannelRed, eChannelRed, eChannelNone, eChannelGreen)
                  .GetError(),
              uint32_t(eEncoderChannelGap | eEncoderDuplicatedChannels | eEncoderChannelWithoutBits |
                       eEncoderTotalBitsNotBytes));

    CPixelEncoder pixel = Make(eVarUnsignedByteNorm, "rgb", {5, 6, 5, 0}, {1, 2, 3});
    EXPECT_EQ(pixel.GetBitsPerPixel(), 16u);
    EXPECT_FALSE(pixel.OverwriteColourData(nullptr));
    EXPECT_EQ(Raw(CPixelEncoder(pixel)), Bytes({1, 2}));
}

TEST(PixelEncoderStorage, PackedLayoutsPutTheFirstChannelHighest)
{
    CPixelEncoder rgb565 = Make(eVarUnsignedByteNorm, "rgb", {5, 6, 5, 0}, {0x00, 0xF8});
    EXPECT_FLOAT_EQ(rgb565.GetChannelFloat(eChannelRed), 1.0f);
    rgb565.SetChannelUNorm(eChannelBlue, 1.0f);
    EXPECT_EQ(Raw(rgb565), Bytes({0x1F, 0xF8}));
    // Values are not masked: green 2.0 is 126, whose top bit lands in red.
    rgb565 = Make(eVarUnsignedByteNorm, "rgb", {5, 6, 5, 0});
    rgb565.SetChannelUNorm(eChannelGreen, 2.0f);
    EXPECT_EQ(Raw(rgb565), Bytes({0xC0, 0x0F}));
    EXPECT_FLOAT_EQ(rgb565.GetChannelFloat(eChannelRed), 1.0f / 31.0f);
}

TEST(PixelEncoderStorage, ElementReadTestDiffersFromStorageRule)
{
    // Red and green are stored as bytes, blue packed into the low 16 bits;
    // all reads are packed since 32 / 3 is not 8.
    CPixelEncoder mixed = Make(eVarUnsignedByteNorm, "rgb", {8, 8, 16, 0});
    mixed.SetChannelUNorm(eChannelRed, 1.0f);
    EXPECT_EQ(Raw(mixed), Bytes({0xFF, 0, 0, 0}));
    EXPECT_EQ(mixed.GetChannelFloat(eChannelRed), 0.0f);
    mixed.SetChannelUNorm(eChannelBlue, 1.0f);
    EXPECT_EQ(Raw(mixed), Bytes({0xFF, 0xFF, 0, 0}));
    EXPECT_EQ(mixed.GetChannelFloat(eChannelBlue), 1.0f);

    // Packed channels taken as elements must stay inside the pixel.
    CPixelEncoder uneven = Make(eVarUnsignedByteNorm, "rg", {4, 12, 0, 0}, {0xFF, 0xFF});
    EXPECT_EQ(uneven.GetChannelFloat(eChannelRed), 0.0f);
    CPixelEncoder shorts = Make(eVarUnsignedByteNorm, "rg", {16, 16, 0, 0});
    shorts.SetChannelSFloat(eChannelRed, 1.0f);
    EXPECT_EQ(Raw(shorts), Bytes(4, 0));
}

TEST(PixelEncoderStorage, FloatChannels)
{
    CPixelEncoder half = Make(eVarSignedFloat, "rgba", {16, 16, 16, 16});
    EXPECT_EQ(half.GetChannelFloat(eChannelRed), kHalfZero);
    half.SetChannelSFloat(eChannelRed, 1.0f);
    half.SetChannelSFloat(eChannelBlue, -2.0f);
    EXPECT_EQ(Raw(half), Bytes({0x00, 0x3C, 0, 0, 0x00, 0xC0, 0, 0}));
    EXPECT_EQ(half.GetChannelFloat(eChannelBlue), -2.0f);
    EXPECT_EQ(Make(eVarUnsignedFloat, "r", {16, 0, 0, 0}, {0x00, 0xBC}).GetChannelFloat(eChannelRed), 1.0f);

    // No signed 11-bit floats and no unsigned 32-bit ones: the channels are lost.
    CPixelEncoder white = Rgba32F(1, 1, 1, 1);
    CPixelEncoder lost = Make(eVarSignedFloat, "rgb", {11, 11, 10, 0});
    lost.EncodeFrom(white);
    EXPECT_EQ(Raw(lost), Bytes(4, 0));
    CPixelEncoder wide = Make(eVarUnsignedFloat, "rgba", {32, 32, 32, 32});
    wide.EncodeFrom(white);
    EXPECT_EQ(Raw(wide), Bytes(16, 0));
    EXPECT_EQ(Make(eVarUnsignedFloat, "r", {32, 0, 0, 0}, {1, 2, 3, 4}).GetChannelFloat(eChannelRed), 0.0f);

    CPixelEncoder packed = Make(eVarUnsignedFloat, "rgb", {11, 11, 10, 0});
    CPixelEncoder source = Rgba32F(1.0f, 0.5f, 2.0f, 1.0f);
    packed.EncodeFrom(source);
    EXPECT_EQ(Raw(packed), Bytes({0x00, 0x02, 0x0E, 0x78})); // 0x3C0 << 21 | 0x380 << 10 | 0x200
    EXPECT_EQ(packed.GetChannelFloat(eChannelBlue), 2.0f);
    // A negative value keeps its sign in bit 11, which is red's lowest bit.
    packed = Make(eVarUnsignedFloat, "rgb", {11, 11, 10, 0});
    packed.SetChannelUFloat(eChannelGreen, -1.0f);
    EXPECT_EQ(packed.GetChannelFloat(eChannelGreen), 1.0f);
    EXPECT_EQ(packed.GetChannelFloat(eChannelRed), kHalfZero * (1.0f + 1.0f / 64.0f));
}

TEST(PixelEncoderNumbers, NormalisedIntegers)
{
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToUNorm(0.5f, 8), 128u);
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToUNorm(2.0f, 8), 510u);
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToUNorm(-0.5f, 8), 0u);
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToUNorm(2.0f, 32), 0xFFFFFFFEu); // wraps past 32 bits
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToUNorm(1e30f, 8), 0u);

    // Sign and magnitude: -1.0 overflows its magnitude into the sign bit.
    EXPECT_EQ(CPixelEncoder::ShrinkFloatToSNorm(-0.25f, 8), 0xA0u);
    CPixelEncoder bytes = Make(eVarSignedByteNorm, "rgb", {8, 8, 8, 0});
    bytes.SetChannelSNorm(eChannelRed, -1.0f);
    bytes.SetChannelSNorm(eChannelGreen, 1.0f);
    bytes.SetChannelSNorm(eChannelBlue, -0.5f);
    EXPECT_EQ(Raw(bytes), Bytes({0x80, 0x7F, 0xC0}));
    EXPECT_EQ(bytes.GetChannelFloat(eChannelRed), 0.0f);
    EXPECT_TRUE(std::signbit(bytes.GetChannelFloat(eChannelRed)));
    EXPECT_EQ(bytes.GetChannelFloat(eChannelGreen), 1.0f);
    EXPECT_FLOAT_EQ(bytes.GetChannelFloat(eChannelBlue), -64.0f / 126.0f); // negatives divide by 2^7 - 2
    EXPECT_EQ(CPixelEncoder::GrowSNormToFloat(-2, 2), -2.0f); // zero divisor

    // A packed signed channel below bit 31 is not sign-extended.
    CPixelEncoder packed = Make(eVarSignedByteNorm, "rgb", {5, 6, 5, 0});
    packed.SetChannelSNorm(eChannelRed, -1.0f / 16.0f);
    EXPECT_EQ(Raw(packed), Bytes({0x00, 0x88}));
    EXPECT_FLOAT_EQ(packed.GetChannelFloat(eChannelRed), -1.0f / 16.0f);
}

TEST(PixelEncoderNumbers, SmallFloatsRepackBits)
{
    const auto half = [](float v) { return CPixelEncoder::ShrinkFloat(v, 10, 5, 15, true, true); };
    const auto grow = [](uint32_t v, bool hasSign) { return CPixelEncoder::GrowFloat(v, 10, 5, 15, hasSign); };
    EXPECT_EQ(half(1.0f + std::ldexp(1.0f, -11)), 0x3C00u); // truncated
    // No range check: exponent 34 runs into the sign bit, a negative one above it.
    EXPECT_EQ(half(1e6f), 0x8BA1u);
    EXPECT_EQ(half(1e-10f) & 0xFFFF0000u, 0xFFFF0000u);
    // The clamp compares the shifted exponent with the unshifted all-ones
    // field, so only a format without mantissa bits reaches it.
    EXPECT_EQ(half(65536.0f), 0x7C00u);
    EXPECT_EQ(CPixelEncoder::ShrinkFloat(65536.0f, 0, 5, 15, false, true), 30u);
    EXPECT_EQ(CPixelEncoder::ShrinkFloat(98304.0f, 0, 5, 15, false, true), 31u);

    EXPECT_EQ(grow(0xC000, false), 2.0f);
    EXPECT_EQ(grow(0, true), kHalfZero);
    // All-ones exponent: a denormal with 255 in the low bits, not infinity.
    EXPECT_EQ(grow(0xFC00, true), -std::ldexp(255.0f, -149));
    EXPECT_EQ(CPixelEncoder::GrowFloat(0x3FF, 5, 5, 15, false), std::ldexp(float(31u << 18 | 255u), -149));
}

TEST(PixelEncoderEncode, GreyChannels)
{
    CPixelEncoder rgba = Rgba8({200, 100, 50, 77}), rg = Make(eVarUnsignedByteNorm, "rg", {8, 8, 0, 0}, {255, 51});
    CPixelEncoder l8 = Make(eVarUnsignedByteNorm, "l", {8, 0, 0, 0});
    CPixelEncoder i8 = Make(eVarUnsignedByteNorm, "i", {8, 0, 0, 0});
    l8.EncodeFrom(rgba);
    EXPECT_EQ(Raw(l8), Bytes({118})); // 0.2126*200 + 0.7152*100 + 0.0722*50
    i8.EncodeFrom(rgba);
    EXPECT_EQ(Raw(i8), Bytes({117})); // 350 / 3
    l8.EncodeFrom(rg);
    EXPECT_EQ(Raw(l8), Bytes({91})); // 0.2126*255 + 0.7152*51
    i8.EncodeFrom(rg);
    EXPECT_EQ(Raw(i8), Bytes({153}));

    CPixelEncoder grey = Make(eVarUnsignedByteNorm, "la", {8, 8, 0, 0}, {90, 40});
    CPixelEncoder rgb8 = Make(eVarUnsignedByteNorm, "rgb", {8, 8, 8, 0});
    rgb8.EncodeFrom(grey);
    EXPECT_EQ(Raw(rgb8), Bytes({90, 90, 90}));
    rgba.EncodeFrom(grey);
    EXPECT_EQ(Raw(rgba), Bytes({90, 90, 90, 40}));
}

TEST(PixelEncoderEncode, AlphaAndUnspecifiedStandInForEachOther)
{
    CPixelEncoder rgb = Make(eVarUnsignedByteNorm, "rgb", {8, 8, 8, 0}, {1, 2, 3});
    CPixelEncoder rgba = Rgba8({}), rgbx = Make(eVarUnsignedByteNorm, "rgbx", {8, 8, 8, 8});
    rgba.EncodeFrom(rgb);
    EXPECT_EQ(Raw(rgba), Bytes({1, 2, 3, 255}));
    rgbx.EncodeFrom(rgb);
    EXPECT_EQ(Raw(rgbx), Bytes({1, 2, 3, 255}));
    CPixelEncoder withAlpha = Rgba8({4, 5, 6, 60});
    rgbx.EncodeFrom(withAlpha);
    EXPECT_EQ(Raw(rgbx), Bytes({4, 5, 6, 60}));
    rgbx.GetColourData()[3] = 40;
    rgba.EncodeFrom(rgbx);
    EXPECT_EQ(Raw(rgba), Bytes({4, 5, 6, 40}));

    // Without grey channels a missing colour is 0.
    CPixelEncoder alphaOnly = Make(eVarUnsignedByteNorm, "a", {8, 0, 0, 0}, {9});
    rgb.EncodeFrom(alphaOnly);
    EXPECT_EQ(Raw(rgb), Bytes({0, 0, 0}));
}

TEST(PixelEncoderEncode, InvalidEncoderLeavesThePixel)
{
    CPixelEncoder valid = Rgba8({10, 20, 30, 40});
    CPixelEncoder invalid = Make(eVarUnsignedByteNorm, "rr", {8, 8, 0, 0}, {1, 2});
    invalid.EncodeFrom(valid);
    EXPECT_EQ(Raw(invalid), Bytes({1, 2}));
    valid.EncodeFrom(invalid);
    EXPECT_EQ(Raw(valid), Bytes({10, 20, 30, 40}));

    // An unknown channel type clears the pixel and writes nothing.
    CPixelEncoder unknown = Make(EORBTVariableType(14), "rgba", {8, 8, 8, 8}, {1, 2, 3, 4});
    unknown.EncodeFrom(valid);
    EXPECT_EQ(Raw(unknown), Bytes(4, 0));
    EXPECT_EQ(unknown.GetChannelFloat(eChannelAlpha), 0.0f);
}

TEST(PixelEncoderEncode, RoundTripsThroughEveryChannelType)
{
    struct Case
    {
        EORBTVariableType type;
        const char* letters;
        std::array<uint8_t, 4> bits;
        float tolerance; // 0: exact
    };
    const float byteStep = 0.5f / 127, shortStep = 0.5f / 32767;
    // The layouts the pinned conversions from rgba8 leave out.
    const Case cases[] = {
        {eVarSignedByteNorm, "rgba", {8, 8, 8, 8}, byteStep},   {eVarUnsignedByte, "rgba", {8, 8, 8, 8}, 0},
        {eVarSignedByte, "rgba", {8, 8, 8, 8}, byteStep},       {eVarSignedShortNorm, "rgba", {16, 16, 16, 16}, shortStep},
        {eVarUnsignedShort, "rgba", {16, 16, 16, 16}, 0},       {eVarSignedShort, "rgba", {16, 16, 16, 16}, shortStep},
        {eVarUnsignedIntegerNorm, "rgba", {32, 32, 32, 32}, 0}, {eVarSignedIntegerNorm, "rgba", {32, 32, 32, 32}, 1e-6f},
        {eVarUnsignedInteger, "rgba", {32, 32, 32, 32}, 0},     {eVarSignedInteger, "rgba", {32, 32, 32, 32}, 1e-6f},
        {eVarUnsignedFloat, "rgba", {16, 16, 16, 16}, 1e-3f},   {eVarSignedByteNorm, "rgb", {5, 6, 5, 0}, 0.5f / 15},
    };
    // Multiples of 1/255, 1/15 and 1/65535, which the unsigned widths hold.
    const float values[4] = {0.2f, 0.6f, 1.0f, 0.0f};
    const EChannelName names[4] = {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha};
    CPixelEncoder source = Rgba32F(values[0], values[1], values[2], values[3]);
    for (const Case& c : cases)
    {
        CPixelEncoder middle = Make(c.type, c.letters, c.bits), back = Rgba32F(-1, -1, -1, -1);
        ASSERT_EQ(middle.GetError(), 0u);
        middle.EncodeFrom(source);
        back.EncodeFrom(middle);
        for (int i = 0; i < 4 && c.letters[i]; ++i)
        {
            if (c.tolerance == 0)
                EXPECT_FLOAT_EQ(back.GetChannelFloat(names[i]), values[i]) << "type " << c.type << " channel " << i;
            else
                EXPECT_NEAR(back.GetChannelFloat(names[i]), values[i], c.tolerance)
                    << "type " << c.type << " channel " << i;
        }
    }
}

TEST(PixelEncoderColourSpace, CurvesUseTheirOwnConstants)
{
    EXPECT_FLOAT_EQ(CPixelEncoder::LinearToSRGB(0.00304f), 0.0392768f);
    EXPECT_FLOAT_EQ(CPixelEncoder::LinearToSRGB(0.00305f), 0.03886937f); // below the line just above

    EXPECT_FLOAT_EQ(CPixelEncoder::SRGBToLinear(0.03928f), 0.003040248f);
    EXPECT_LT(CPixelEncoder::SRGBToLinear(1.0f), 1.0f); // 1.0556 * 0.9473285 < 1
}

TEST(PixelEncoderColourSpace, ConvertsColourAndGreyChannelsOnly)
{
    CPixelEncoder lx = Make(eVarUnsignedShortNorm, "lx", {16, 16, 0, 0}, {0x00, 0x80, 0x00, 0x80});
    lx.ConvertToColourSpace(eColourSpaceLinear, eColourSpaceSRGB);
    EXPECT_NEAR(lx.GetChannelFloat(eChannelLuminance), 0.2143043f, 1e-4f);
    EXPECT_EQ(Raw(lx)[3], 0x80);

    CPixelEncoder floats = Rgba32F(0.5f, 0.2f, 0.9f, 0.3f);
    floats.ConvertToColourSpace(eColourSpaceSRGB, eColourSpaceLinear);
    floats.ConvertToColourSpace(eColourSpaceLinear, eColourSpaceSRGB);
    EXPECT_NEAR(floats.GetChannelFloat(eChannelRed), 0.5f, 1e-5f);
    EXPECT_EQ(floats.GetChannelFloat(eChannelAlpha), 0.3f);

    // Signed floats cannot be written at 11 bits, so nothing changes.
    CPixelEncoder packed = Make(eVarUnsignedFloat, "rgb", {11, 11, 10, 0}, {0x12, 0x34, 0x56, 0x78});
    packed.ConvertToColourSpace(eColourSpaceSRGB, eColourSpaceLinear);
    EXPECT_EQ(Raw(packed), Bytes({0x12, 0x34, 0x56, 0x78}));
}

// The shortcuts for common widths (tables, double arithmetic) must agree with
// the long double formulas everywhere they are taken.
TEST(PixelEncoderNumbers, ShortcutsMatchTheWideFormulas)
{
    for (uint8_t bits = 1; bits <= 16; ++bits)
    {
        const long double max = std::ldexp(1.0L, bits) - 1.0L;
        const uint32_t top = uint32_t(max);
        for (uint32_t v = 0; v <= top; v += (bits > 12 ? 7 : 1))
        {
            EXPECT_EQ(CPixelEncoder::GrowUNormToFloat(v, bits), float(static_cast<long double>(v) / max));
            // The values that land just below and on each half step.
            const float half = float((v + 0.5L) / max);
            for (float f : {half, std::nextafter(half, 0.0f), std::nextafter(half, 2.0f),
                            float(static_cast<long double>(v) / max)})
                ASSERT_EQ(CPixelEncoder::ShrinkFloatToUNorm(f, bits), uint32_t(std::trunc(f * max + 0.5L)))
                    << int(bits) << " " << f;
        }
    }
}

// The tables must give exactly what the encoders give pixel by pixel, for
// every pair they accept.
TEST(PixelByteTables, AgreeWithTheEncodersWhereverTheyBuild)
{
    const PixelType sources[] = {PixelType(ORBStandard8PixelType), P("bgra", 8, 8, 8, 8), P("l", 8), P("la", 8, 8),
                                 P("a", 8), P("rg", 8, 8), P("xi", 8, 8)};
    const PixelType targets[] = {P("rgb", 5, 6, 5),   P("argb", 1, 5, 5, 5),   P("rgba", 4, 4, 4, 4),
                                 P("rgba", 8, 8, 8, 8), P("rgba", 16, 16, 16, 16), P("rgba", 32, 32, 32, 32),
                                 P("rgb", 11, 11, 10), P("l", 8),                P("ia", 8, 8),
                                 P("a", 8),            P("rgba", 3, 9, 12, 8),   P("xr", 8, 8)};
    const EORBTVariableType types[] = {eVarUnsignedByteNorm, eVarSignedByteNorm, eVarUnsignedShortNorm,
                                       eVarSignedShortNorm,  eVarSignedFloat,    eVarUnsignedFloat,
                                       eVarUnsignedIntegerNorm};
    std::mt19937 random(7);
    unsigned built = 0, refused = 0;
    for (const PixelType& source : sources)
        for (EORBTVariableType sourceType : {eVarUnsignedByteNorm, eVarSignedByteNorm})
            for (const PixelType& target : targets)
                for (EORBTVariableType targetType : types)
                    for (int spaces = 0; spaces < 4; ++spaces)
                    {
                        const EORBTColourSpace from = EORBTColourSpace(spaces & 1), to = EORBTColourSpace(spaces >> 1);
                        CPixelEncoder in(source, sourceType), out(target, targetType);
                        CPixelByteTables tables;
                        if (!tables.Build(source, sourceType, in, out, to, from, 4096))
                        {
                            ++refused;
                            continue;
                        }
                        ++built;
                        std::vector<uint8_t> pixels(64 * in.GetColourDataSize());
                        for (uint8_t& byte : pixels)
                            byte = uint8_t(random());
                        SCOPED_TRACE(::testing::Message() << std::hex << source.PixelTypeID << " " << target.PixelTypeID
                                                          << std::dec << " " << sourceType << " " << targetType << " "
                                                          << from << to);
                        ExpectSameAsEncoders(tables, in, out, pixels, 64, from, to);
                    }
    EXPECT_GT(built, 400u);
    EXPECT_GT(refused, 50u);
}

// Sources of one or two bytes a pixel go through one table indexed by the
// whole pixel; every source value must convert as the encoders convert it.
TEST(PixelByteTables, PixelTableAgreesWithTheEncodersForEverySourceValue)
{
    const std::pair<PixelType, EORBTVariableType> sources[] = {
        {P("rgb", 5, 6, 5), eVarUnsignedByteNorm}, {P("rgba", 4, 4, 4, 4), eVarUnsignedByteNorm},
        {P("rgba", 5, 5, 5, 1), eVarUnsignedByteNorm}, {P("l", 16), eVarUnsignedShortNorm},
        {P("r", 16), eVarSignedShortNorm}, {P("rgb", 5, 6, 5), eVarSignedByteNorm}, {P("r", 16), eVarSignedFloat},
        {P("rg", 8, 8), eVarUnsignedByteNorm}, {P("rgb", 3, 3, 2), eVarUnsignedByteNorm}};
    // Each source goes to rgba8 and to one of the others: one to sixteen
    // bytes, a luminance that mixes channels, a packed float.
    const std::pair<PixelType, EORBTVariableType> rgba8 = {PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm};
    const std::pair<PixelType, EORBTVariableType> others[] = {
        {P("bgr", 5, 6, 5), eVarUnsignedByteNorm}, {P("l", 8), eVarUnsignedByteNorm},
        {P("rgb", 11, 11, 10), eVarUnsignedFloat}, {PixelType(ORBStandard16PixelType), eVarSignedFloat},
        {PixelType(ORBStandard32PixelType), eVarSignedFloat}};
    unsigned pair = 0;
    for (const auto& source : sources)
        for (const auto& target : {rgba8, others[pair / 2 % 5]})
        {
            // Linear to linear, linear to sRGB, sRGB to linear in turn.
            const EORBTColourSpace from = EORBTColourSpace(pair % 3 == 2), to = EORBTColourSpace(pair % 3 == 1);
            ++pair;
            CPixelEncoder in(source.first, source.second), out(target.first, target.second);
            const uint32_t values = 1u << (8 * in.GetColourDataSize());
            CPixelByteTables tables;
            ASSERT_TRUE(tables.Build(source.first, source.second, in, out, to, from, values));
            std::vector<uint8_t> pixels;
            for (uint32_t value = 0; value < values; ++value)
                for (unsigned b = 0; b < in.GetColourDataSize(); ++b)
                    pixels.push_back(uint8_t(value >> (8 * b)));
            SCOPED_TRACE(::testing::Message() << std::hex << source.first.PixelTypeID << " " << source.second << " to "
                                              << target.first.PixelTypeID << " " << target.second << " " << from << to);
            ExpectSameAsEncoders(tables, in, out, pixels, values, from, to);
        }
}

TEST(PixelByteTables, Refusals)
{
    const EORBTColourSpace lin = eColourSpaceLinear;
    const PixelType rgba8(ORBStandard8PixelType), rgb565 = P("rgb", 5, 6, 5), rgb332 = P("rgb", 3, 3, 2);
    CPixelByteTables tables;
    CPixelEncoder in8(rgba8, eVarUnsignedByteNorm), l8(P("l", 8), eVarUnsignedByteNorm),
        to565(rgb565, eVarUnsignedByteNorm), in16(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm),
        gap(P("r-b", 8, 0, 8), eVarUnsignedByteNorm), from565(rgb565, eVarUnsignedByteNorm),
        from332(rgb332, eVarUnsignedByteNorm);
    // Luminance and intensity mix three channels; sources wider than a byte a
    // channel and than two a pixel; invalid encoders.
    EXPECT_FALSE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, l8, lin, lin, 1u << 24));
    EXPECT_TRUE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, to565, lin, lin, 4096));
    EXPECT_FALSE(
        tables.Build(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, in16, to565, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, gap, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(P("r-b", 8, 0, 8), eVarUnsignedByteNorm, gap, in8, lin, lin, 1u << 24));
    // A pixel table costs a conversion per entry, so it needs as many pixels as entries.
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, in8, lin, lin, 65535));
    EXPECT_TRUE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, in8, lin, lin, 65536));
    EXPECT_FALSE(tables.Build(rgb332, eVarUnsignedByteNorm, from332, in8, lin, lin, 255));
    EXPECT_TRUE(tables.Build(rgb332, eVarUnsignedByteNorm, from332, in8, lin, lin, 256));
    // 160 bits is a valid layout, but more than a pixel of the encoder holds.
    CPixelEncoder wide(eVarSignedFloat, 32, 32, 32, 64, eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha);
    ASSERT_EQ(wide.GetError(), 0u);
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, wide, lin, lin, 1u << 24));
}

TEST(Transcode, Refusals)
{
    CORBTexture empty;
    EXPECT_FALSE(To(empty, kRGBA8));
    CORBTexture texture = Texture(ORBStandard8PixelType, 2, 2, std::vector<uint8_t>(16, 3));
    EXPECT_FALSE(To(texture, PixelType(ePF_NumCompressed)));
    // No encoder holds a channel wider than 32 bits, as source or as target.
    EXPECT_FALSE(To(texture, PixelType('r', 0, 0, 0, 200, 0, 0, 0)));
    EXPECT_EQ(DataOf(texture), std::vector<uint8_t>(16, 3));
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
    EXPECT_EQ(DataOf(texture), std::vector<uint8_t>(8, 0));
    CORBTexture large = Texture(ORBStandard8PixelType, 64, 64, std::vector<uint8_t>(16384, 9));
    EXPECT_FALSE(To(large, PixelType(ePF_BC4)));
    EXPECT_EQ(DataOf(large), std::vector<uint8_t>(2048, 0));
    // No decoder: true, the intermediate layout and zeros.
    CORBTexture dxt(CORBTextureHeader(ePF_DXT5, 64, 64));
    std::memset(dxt.getDataPtr(), 0x77, dxt.getDataSize());
    EXPECT_TRUE(To(dxt, kRGBA8));
    EXPECT_EQ(DataOf(dxt), std::vector<uint8_t>(16384, 0));
}

TEST(Transcode, OtherSourcesAndTheColourSpaceAlone)
{
    // From 5:6:5: green 32/63 x 255 + 0.5 = 130, a missing alpha reads 1.0.
    CORBTexture packed = Texture(kRGB565.PixelTypeID, 1, 1, {0x00, 0xFC});
    ASSERT_TRUE(To(packed, kRGBA8));
    EXPECT_EQ(DataOf(packed), (std::vector<uint8_t>{255, 130, 0, 255}));

    // The same format in the same space keeps its block; another space alone runs the pixel loop.
    CORBTexture texture = Texture(ORBStandard8PixelType, 3, 1, {0, 1, 64, 10, 128, 200, 255, 20, 0, 0, 0, 30});
    const uint8_t* before = texture.getDataPtr();
    EXPECT_TRUE(To(texture, kRGBA8));
    EXPECT_EQ(texture.getDataPtr(), before);
    ASSERT_TRUE(To(texture, kRGBA8, eVarUnsignedByteNorm, eColourSpaceSRGB));
    EXPECT_EQ(texture.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(DataOf(texture), (std::vector<uint8_t>{0, 13, 137, 10, 188, 229, 255, 20, 0, 0, 0, 30}));
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
    EXPECT_EQ(DataOf(texture), DataOf(original));

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
    EXPECT_EQ(DataOf(plain), (std::vector<uint8_t>{0x41, 0x08}));
    ASSERT_TRUE(To(dithered, kRGB565, eVarUnsignedByteNorm, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(dithered), (std::vector<uint8_t>{0x20, 0x00}));
    // 32 bits per pixel and more are not dithered: the 16-bit source stays, and a 2-bit alpha rounds.
    ASSERT_TRUE(To(wide, PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, eColourSpaceSRGB, true));
    EXPECT_EQ(wide.getDataSize(), 8u);
    const PixelType a2rgb10('a', 'r', 'g', 'b', 2, 10, 10, 10);
    CORBTexture rounded = Texture(ORBStandard8PixelType, 4, 1, std::vector<uint8_t>(16, 128)), undithered(rounded);
    ASSERT_TRUE(To(rounded, a2rgb10, eVarUnsignedIntegerNorm));
    ASSERT_TRUE(To(undithered, a2rgb10, eVarUnsignedIntegerNorm, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(undithered), DataOf(rounded));

    // Luminance 0.0722 * 120 truncates to 8, which 4 bits dither to 0. Blue
    // dithered on its own (119) would give a luminance of 1 in 4 bits.
    CORBTexture blue = Texture(ORBStandard8PixelType, 1, 1, {0, 0, 120, 255});
    ASSERT_TRUE(To(blue, PixelType('l', 'a', 0, 0, 4, 4, 0, 0), eVarUnsignedByteNorm, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(blue), (std::vector<uint8_t>{0x0F}));

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
    const auto intermediate = [](uint64_t named, EORBTVariableType asked) {
        PixelType format;
        EORBTVariableType type;
        IntermediateTranscodeFormat(PixelType(named), asked, format, type);
        return std::make_pair(format, type);
    };
    EXPECT_EQ(intermediate(ePF_ETC1, eVarSignedFloat),
              std::make_pair(PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), eVarUnsignedByteNorm));
    EXPECT_EQ(intermediate(ePF_RGB9E5, eVarUnsignedByteNorm),
              std::make_pair(PixelType('r', 'g', 'b', 0, 32, 32, 32, 0), eVarSignedFloat));
    // EAC: signed types are 1, 3, ..., 11 and 12; 13 is not.
    EXPECT_EQ(intermediate(ePF_EAC_R11, eVarSignedFloat),
              std::make_pair(PixelType('r', 0, 0, 0, 16, 0, 0, 0), eVarSignedShortNorm));
    EXPECT_EQ(intermediate(ePF_EAC_RG11, eVarUnsignedFloat),
              std::make_pair(PixelType('r', 'g', 0, 0, 16, 16, 0, 0), eVarUnsignedShortNorm));
    // ORBTC, ASTC, unknown values and layouts: rgba8.
    for (uint64_t other : {uint64_t(ePF_ORBTC_2bpp_RGB), uint64_t(ePF_ASTC_6x6x6), uint64_t(99), kRGB565.PixelTypeID})
        EXPECT_EQ(intermediate(other, eVarSignedByteNorm), std::make_pair(kRGBA8, eVarUnsignedByteNorm)) << other;
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
