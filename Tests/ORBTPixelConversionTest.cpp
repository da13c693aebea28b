#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTPixelConversion.h"

using namespace orbtexture;
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
        {eVarSignedByteNorm, "rgba", {8, 8, 8, 8}, byteStep},      {eVarUnsignedByte, "rgba", {8, 8, 8, 8}, 0},
        {eVarSignedByte, "rgba", {8, 8, 8, 8}, byteStep},          {eVarSignedShortNorm, "rgba", {16, 16, 16, 16}, shortStep},
        {eVarUnsignedShort, "rgba", {16, 16, 16, 16}, 0},          {eVarSignedShort, "rgba", {16, 16, 16, 16}, shortStep},
        {eVarUnsignedIntegerNorm, "rgba", {32, 32, 32, 32}, 0},    {eVarSignedIntegerNorm, "rgba", {32, 32, 32, 32}, 1e-6f},
        {eVarUnsignedInteger, "rgba", {32, 32, 32, 32}, 0},        {eVarSignedInteger, "rgba", {32, 32, 32, 32}, 1e-6f},
        {eVarUnsignedFloat, "rgba", {16, 16, 16, 16}, 1e-3f},      {eVarSignedByteNorm, "rgb", {5, 6, 5, 0}, 0.5f / 15},
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
