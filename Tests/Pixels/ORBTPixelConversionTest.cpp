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
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Model/ORBTextureFormatFacts.h"
#include "ORBTPixelConversion.h"
#include "ORBTextureUtilities.h"
#include "Pixels/ORBTPixelByteTables.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::DataOf;
using Bytes = std::vector<uint8_t>;

namespace
{

constexpr EORBTVariableType kU8 = eVarUnsignedByteNorm;
const float kHalfZero = std::ldexp(1.0f, -15);

// A layout from up to four channel letters ('-' for none) and widths.
PixelType P(const char* l, uint8_t a, uint8_t b = 0, uint8_t c = 0, uint8_t d = 0)
{
    uint8_t n[4] = {};
    for (size_t i = 0; i < 4 && l[i]; ++i)
        n[i] = uint8_t(l[i] == '-' ? 0 : l[i]);
    return PixelType(n[0], n[1], n[2], n[3], a, b, c, d);
}

const PixelType kRGB565 = P("rgb", 5, 6, 5), kRGBA8(ORBStandard8PixelType);

// An encoder loaded with a raw pixel (zeros by default).
CPixelEncoder Make(EORBTVariableType type, PixelType layout, Bytes raw = {})
{
    CPixelEncoder encoder(layout, type);
    raw.resize(16);
    encoder.OverwriteColourData(raw.data());
    return encoder;
}

CPixelEncoder Rgba8(Bytes raw) { return Make(kU8, kRGBA8, raw); }

CPixelEncoder Rgba32F(float r, float g, float b, float a)
{
    const float data[4] = {r, g, b, a};
    Bytes raw(16);
    std::memcpy(raw.data(), data, 16);
    return Make(eVarSignedFloat, PixelType(ORBStandard32PixelType), raw);
}

Bytes Raw(const CPixelEncoder& encoder)
{
    return Bytes(encoder.GetColourData(), encoder.GetColourData() + encoder.GetColourDataSize());
}

// The bytes of 'target' after encoding 'source' into it.
Bytes Encoded(CPixelEncoder source, CPixelEncoder target)
{
    target.EncodeFrom(source);
    return Raw(target);
}

CORBTexture Texture(uint64_t format, uint32_t width, uint32_t height, const Bytes& bytes, EORBTVariableType type = kU8)
{
    CORBTexture texture(CORBTextureHeader(format, height, width, 1, 1, 1, 1, eColourSpaceLinear, type));
    std::memcpy(texture.getDataPtr(), bytes.data(), texture.getDataSize());
    return texture;
}

bool To(CORBTexture& texture, PixelType format, EORBTVariableType type = kU8,
        EORBTColourSpace space = eColourSpaceLinear, bool dither = false)
{
    return Transcode(texture, format, type, space, ECompressorQuality(0), dither);
}

} // namespace

TEST(PixelEncoderLayout, ValidationSetsOneBitPerFault)
{
    EXPECT_EQ(Make(kU8, P("argb", 1, 5, 5, 5)).GetError(), 0u);
    EXPECT_EQ(Make(kU8, P("r-b-", 8, 0, 8, 0)).GetError(), uint32_t(eEncoderChannelGap));
    EXPECT_EQ(Make(kU8, P("rgr", 8, 8, 8)).GetError(), uint32_t(eEncoderDuplicatedChannels));
    EXPECT_EQ(Make(kU8, P("rg", 8)).GetError(), uint32_t(eEncoderChannelWithoutBits));
    EXPECT_EQ(Make(kU8, P("rz", 8, 8)).GetError(), uint32_t(eEncoderBitsWithoutChannel));
    EXPECT_EQ(Make(kU8, P("rg", 7, 8)).GetError(), uint32_t(eEncoderTotalBitsNotBytes));
    EXPECT_EQ(CPixelEncoder(kU8, 8, 3, 0, 0, eChannelRed, eChannelRed, eChannelNone, eChannelGreen).GetError(),
              uint32_t(eEncoderChannelGap | eEncoderDuplicatedChannels | eEncoderChannelWithoutBits |
                       eEncoderTotalBitsNotBytes));

    CPixelEncoder pixel = Make(kU8, kRGB565, {1, 2, 3});
    EXPECT_EQ(pixel.GetBitsPerPixel(), 16u);
    EXPECT_FALSE(pixel.OverwriteColourData(nullptr));
    EXPECT_EQ(Raw(CPixelEncoder(pixel)), Bytes({1, 2}));
}

TEST(PixelEncoderStorage, PackedElementAndFloatChannels)
{
    CPixelEncoder rgb565 = Make(kU8, kRGB565, {0x00, 0xF8});
    EXPECT_FLOAT_EQ(rgb565.GetChannelFloat(eChannelRed), 1.0f);
    rgb565.SetChannelUNorm(eChannelBlue, 1.0f);
    EXPECT_EQ(Raw(rgb565), Bytes({0x1F, 0xF8}));

    // Red and green are stored as bytes, blue packed into the low 16 bits;
    // all reads are packed since 32 / 3 is not 8.
    CPixelEncoder mixed = Make(kU8, P("rgb", 8, 8, 16));
    mixed.SetChannelUNorm(eChannelRed, 1.0f);
    EXPECT_EQ(Raw(mixed), Bytes({0xFF, 0, 0, 0}));
    EXPECT_EQ(mixed.GetChannelFloat(eChannelRed), 0.0f);
    mixed.SetChannelUNorm(eChannelBlue, 1.0f);
    EXPECT_EQ(Raw(mixed), Bytes({0xFF, 0xFF, 0, 0}));
    EXPECT_EQ(mixed.GetChannelFloat(eChannelBlue), 1.0f);

    // Packed channels taken as elements must stay inside the pixel.
    EXPECT_EQ(Make(kU8, P("rg", 4, 12), {0xFF, 0xFF}).GetChannelFloat(eChannelRed), 0.0f);
    CPixelEncoder shorts = Make(kU8, P("rg", 16, 16));
    shorts.SetChannelSFloat(eChannelRed, 1.0f);
    EXPECT_EQ(Raw(shorts), Bytes(4, 0));

    // Float channels.
    const PixelType half4 = P("rgba", 16, 16, 16, 16), rgb111110 = P("rgb", 11, 11, 10);
    CPixelEncoder half = Make(eVarSignedFloat, half4);
    EXPECT_EQ(half.GetChannelFloat(eChannelRed), kHalfZero);
    half.SetChannelSFloat(eChannelRed, 1.0f);
    half.SetChannelSFloat(eChannelBlue, -2.0f);
    EXPECT_EQ(Raw(half), Bytes({0x00, 0x3C, 0, 0, 0x00, 0xC0, 0, 0}));
    EXPECT_EQ(half.GetChannelFloat(eChannelBlue), -2.0f);
    EXPECT_EQ(Make(eVarUnsignedFloat, P("r", 16), {0x00, 0xBC}).GetChannelFloat(eChannelRed), 1.0f);

    // No signed 11-bit floats and no unsigned 32-bit ones: the channels are lost.
    const CPixelEncoder white = Rgba32F(1, 1, 1, 1);
    EXPECT_EQ(Encoded(white, Make(eVarSignedFloat, rgb111110)), Bytes(4, 0));
    EXPECT_EQ(Encoded(white, Make(eVarUnsignedFloat, P("rgba", 32, 32, 32, 32))), Bytes(16, 0));
    EXPECT_EQ(Make(eVarUnsignedFloat, P("r", 32), {1, 2, 3, 4}).GetChannelFloat(eChannelRed), 0.0f);

    // A negative value keeps its sign in bit 11, which is red's lowest bit.
    CPixelEncoder packed = Make(eVarUnsignedFloat, rgb111110);
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
    CPixelEncoder bytes = Make(eVarSignedByteNorm, P("rgb", 8, 8, 8));
    bytes.SetChannelSNorm(eChannelRed, -1.0f);
    bytes.SetChannelSNorm(eChannelGreen, 1.0f);
    bytes.SetChannelSNorm(eChannelBlue, -0.5f);
    EXPECT_EQ(Raw(bytes), Bytes({0x80, 0x7F, 0xC0}));
    EXPECT_EQ(bytes.GetChannelFloat(eChannelRed), 0.0f);
    EXPECT_TRUE(std::signbit(bytes.GetChannelFloat(eChannelRed)));
    EXPECT_EQ(bytes.GetChannelFloat(eChannelGreen), 1.0f);
    EXPECT_FLOAT_EQ(bytes.GetChannelFloat(eChannelBlue), -64.0f / 126.0f); // negatives divide by 2^7 - 2
    EXPECT_EQ(CPixelEncoder::GrowSNormToFloat(-2, 2), -2.0f);               // zero divisor

    // A packed signed channel below bit 31 is not sign-extended.
    CPixelEncoder packed = Make(eVarSignedByteNorm, kRGB565);
    packed.SetChannelSNorm(eChannelRed, -1.0f / 16.0f);
    EXPECT_EQ(Raw(packed), Bytes({0x00, 0x88}));
    EXPECT_FLOAT_EQ(packed.GetChannelFloat(eChannelRed), -1.0f / 16.0f);
}

TEST(PixelEncoderEncode, GreyAlphaAndMissingChannels)
{
    const CPixelEncoder rgba = Rgba8({200, 100, 50, 77}), rg = Make(kU8, P("rg", 8, 8), {255, 51});
    const PixelType l8 = P("l", 8), i8 = P("i", 8), rgb8 = P("rgb", 8, 8, 8), rgbx = P("rgbx", 8, 8, 8, 8);
    EXPECT_EQ(Encoded(rgba, Make(kU8, i8)), Bytes({117})); // 350 / 3
    EXPECT_EQ(Encoded(rg, Make(kU8, l8)), Bytes({91}));    // 0.2126*255 + 0.7152*51
    EXPECT_EQ(Encoded(rg, Make(kU8, i8)), Bytes({153}));
    const CPixelEncoder grey = Make(kU8, P("la", 8, 8), {90, 40});
    EXPECT_EQ(Encoded(grey, Make(kU8, rgb8)), Bytes({90, 90, 90}));
    EXPECT_EQ(Encoded(grey, Rgba8({})), Bytes({90, 90, 90, 40}));

    // A missing alpha reads 1, and alpha and unspecified stand in for each other.
    const CPixelEncoder rgb = Make(kU8, rgb8, {1, 2, 3});
    EXPECT_EQ(Encoded(rgb, Rgba8({})), Bytes({1, 2, 3, 255}));
    EXPECT_EQ(Encoded(rgb, Make(kU8, rgbx)), Bytes({1, 2, 3, 255}));
    EXPECT_EQ(Encoded(Rgba8({4, 5, 6, 60}), Make(kU8, rgbx)), Bytes({4, 5, 6, 60}));
    EXPECT_EQ(Encoded(Make(kU8, rgbx, {4, 5, 6, 40}), Rgba8({})), Bytes({4, 5, 6, 40}));
    // Without grey channels a missing colour is 0.
    EXPECT_EQ(Encoded(Make(kU8, P("a", 8), {9}), Make(kU8, rgb8, {1, 2, 3})), Bytes({0, 0, 0}));

    // An invalid encoder neither writes nor is written.
    CPixelEncoder valid = Rgba8({10, 20, 30, 40}), invalid = Make(kU8, P("rr", 8, 8), {1, 2});
    EXPECT_EQ(Encoded(valid, invalid), Bytes({1, 2}));
    EXPECT_EQ(Encoded(invalid, valid), Bytes({10, 20, 30, 40}));
    // An unknown channel type clears the pixel and writes nothing.
    CPixelEncoder unknown = Make(EORBTVariableType(14), kRGBA8, {1, 2, 3, 4});
    unknown.EncodeFrom(valid);
    EXPECT_EQ(Raw(unknown), Bytes(4, 0));
    EXPECT_EQ(unknown.GetChannelFloat(eChannelAlpha), 0.0f);
}

TEST(PixelEncoderEncode, RoundTripsThroughEveryChannelType)
{
    const float byteStep = 0.5f / 127, shortStep = 0.5f / 32767;
    const PixelType rgba8 = kRGBA8, rgba16 = P("rgba", 16, 16, 16, 16), rgba32 = P("rgba", 32, 32, 32, 32);
    // The layouts the pinned conversions from rgba8 leave out, and a tolerance (0: exact).
    const std::tuple<EORBTVariableType, PixelType, float> cases[] = {
        {eVarSignedByteNorm, rgba8, byteStep},   {eVarUnsignedByte, rgba8, 0},
        {eVarSignedByte, rgba8, byteStep},       {eVarSignedShortNorm, rgba16, shortStep},
        {eVarUnsignedShort, rgba16, 0},          {eVarSignedShort, rgba16, shortStep},
        {eVarUnsignedIntegerNorm, rgba32, 0},    {eVarSignedIntegerNorm, rgba32, 1e-6f},
        {eVarUnsignedInteger, rgba32, 0},        {eVarSignedInteger, rgba32, 1e-6f},
        {eVarUnsignedFloat, rgba16, 1e-3f},      {eVarSignedByteNorm, kRGB565, 0.5f / 15}};
    // Multiples of 1/255, 1/15 and 1/65535, which the unsigned widths hold.
    const float values[4] = {0.2f, 0.6f, 1.0f, 0.0f};
    const EChannelName names[4] = {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha};
    CPixelEncoder source = Rgba32F(values[0], values[1], values[2], values[3]);
    for (const auto& [type, layout, tolerance] : cases)
    {
        CPixelEncoder middle = Make(type, layout), back = Rgba32F(-1, -1, -1, -1);
        ASSERT_EQ(middle.GetError(), 0u);
        middle.EncodeFrom(source);
        back.EncodeFrom(middle);
        for (int i = 0; i < 4 && layout.channelName(i); ++i)
            EXPECT_NEAR(back.GetChannelFloat(names[i]), values[i], tolerance ? tolerance : 1e-7f)
                << "type " << type << " channel " << i;
    }
}

TEST(PixelEncoderColourSpace, CurvesAndTheChannelsTheyTouch)
{
    // The curves meet below 0.0031308, where rgba8 sources never land.
    EXPECT_FLOAT_EQ(CPixelEncoder::LinearToSRGB(0.00304f), 0.0392768f);
    EXPECT_FLOAT_EQ(CPixelEncoder::LinearToSRGB(0.00305f), 0.03886937f); // below the line just above
    EXPECT_FLOAT_EQ(CPixelEncoder::SRGBToLinear(0.03928f), 0.003040248f);
    EXPECT_LT(CPixelEncoder::SRGBToLinear(1.0f), 1.0f); // 1.0556 * 0.9473285 < 1

    CPixelEncoder lx = Make(eVarUnsignedShortNorm, P("lx", 16, 16), {0x00, 0x80, 0x00, 0x80});
    lx.ConvertToColourSpace(eColourSpaceLinear, eColourSpaceSRGB);
    EXPECT_NEAR(lx.GetChannelFloat(eChannelLuminance), 0.2143043f, 1e-4f);
    EXPECT_EQ(Raw(lx)[3], 0x80);

    // Signed floats cannot be written at 11 bits, so nothing changes.
    CPixelEncoder packed = Make(eVarUnsignedFloat, P("rgb", 11, 11, 10), {0x12, 0x34, 0x56, 0x78});
    packed.ConvertToColourSpace(eColourSpaceSRGB, eColourSpaceLinear);
    EXPECT_EQ(Raw(packed), Bytes({0x12, 0x34, 0x56, 0x78}));
}

// The tables must give exactly what the encoders give, pixel by pixel, for
// every pair they accept: channel tables (8-bit channels) on random pixels,
// and the table of a one- or two-byte source on every source value.
TEST(PixelByteTables, AgreeWithTheEncodersWhereverTheyBuild)
{
    std::mt19937 random(7);
    // False when the tables refuse the pair.
    const auto agrees = [&random](PixelType source, EORBTVariableType sourceType, PixelType target,
                                  EORBTVariableType targetType, EORBTColourSpace from, EORBTColourSpace to,
                                  bool everyValue) {
        CPixelEncoder in(source, sourceType), out(target, targetType);
        const unsigned size = in.GetColourDataSize();
        const uint32_t count = everyValue ? 1u << (8 * size) : 64;
        CPixelByteTables tables;
        if (!tables.Build(source, sourceType, in, out, to, from, std::max(count, 4096u)))
            return false;
        Bytes pixels(size_t(count) * size), fast(size_t(count) * out.GetColourDataSize());
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = everyValue ? uint8_t((i / size) >> (8 * (i % size))) : uint8_t(random());
        tables.Convert(pixels.data(), fast.data(), count);
        for (uint32_t i = 0; i < count; ++i)
        {
            in.OverwriteColourData(&pixels[i * size]);
            out.EncodeFrom(in);
            out.ConvertToColourSpace(to, from);
            EXPECT_EQ(Raw(out), Bytes(&fast[i * out.GetColourDataSize()], &fast[(i + 1) * out.GetColourDataSize()]))
                << std::hex << source.PixelTypeID << " " << target.PixelTypeID << std::dec << " " << sourceType << " "
                << targetType << " " << from << to << " pixel " << i;
        }
        return true;
    };

    const PixelType sources[] = {kRGBA8, P("bgra", 8, 8, 8, 8), P("l", 8), P("la", 8, 8), P("a", 8), P("rg", 8, 8),
                                 P("xi", 8, 8)};
    const PixelType targets[] = {kRGB565,           P("argb", 1, 5, 5, 5), P("rgba", 4, 4, 4, 4), kRGBA8,
                                 P("rgba", 16, 16, 16, 16), P("rgba", 32, 32, 32, 32), P("rgb", 11, 11, 10),
                                 P("l", 8), P("ia", 8, 8), P("a", 8), P("rgba", 3, 9, 12, 8), P("xr", 8, 8)};
    const EORBTVariableType types[] = {kU8,           eVarSignedByteNorm, eVarUnsignedShortNorm, eVarSignedShortNorm,
                                       eVarSignedFloat, eVarUnsignedFloat,  eVarUnsignedIntegerNorm};
    unsigned built = 0, refused = 0;
    for (const PixelType& source : sources)
        for (EORBTVariableType sourceType : {kU8, eVarSignedByteNorm})
            for (const PixelType& target : targets)
                for (EORBTVariableType targetType : types)
                    for (int s = 0; s < 4; ++s)
                        (agrees(source, sourceType, target, targetType, EORBTColourSpace(s & 1),
                                EORBTColourSpace(s >> 1), false) ? built : refused)++;
    EXPECT_GT(built, 400u);
    EXPECT_GT(refused, 50u);

    // Each whole-pixel source goes to rgba8 and to one of the others: one to
    // sixteen bytes, a luminance that mixes channels, a packed float; linear
    // to linear, linear to sRGB and sRGB to linear in turn.
    const std::pair<PixelType, EORBTVariableType> wholePixels[] = {
        {kRGB565, kU8}, {P("rgba", 4, 4, 4, 4), kU8}, {P("rgba", 5, 5, 5, 1), kU8},
        {P("l", 16), eVarUnsignedShortNorm}, {P("r", 16), eVarSignedShortNorm}, {kRGB565, eVarSignedByteNorm},
        {P("r", 16), eVarSignedFloat}, {P("rg", 8, 8), kU8}, {P("rgb", 3, 3, 2), kU8}};
    const std::pair<PixelType, EORBTVariableType> rgba8 = {kRGBA8, kU8}, others[] = {
        {P("bgr", 5, 6, 5), kU8}, {P("l", 8), kU8}, {P("rgb", 11, 11, 10), eVarUnsignedFloat},
        {PixelType(ORBStandard16PixelType), eVarSignedFloat}, {PixelType(ORBStandard32PixelType), eVarSignedFloat}};
    unsigned pair = 0;
    for (const auto& source : wholePixels)
        for (const auto& target : {rgba8, others[pair / 2 % 5]})
        {
            const EORBTColourSpace from = EORBTColourSpace(pair % 3 == 2), to = EORBTColourSpace(pair % 3 == 1);
            ++pair;
            EXPECT_TRUE(agrees(source.first, source.second, target.first, target.second, from, to, true));
        }
}

TEST(PixelByteTables, Refusals)
{
    const EORBTColourSpace lin = eColourSpaceLinear;
    const PixelType rgb332 = P("rgb", 3, 3, 2), gapped = P("r-b", 8, 0, 8), rgba16(ORBStandard16PixelType);
    CPixelByteTables tables;
    CPixelEncoder in8(kRGBA8, kU8), l8(P("l", 8), kU8), to565(kRGB565, kU8), in16(rgba16, eVarUnsignedShortNorm),
        gap(gapped, kU8), from565(kRGB565, kU8), from332(rgb332, kU8);
    // Luminance and intensity mix three channels; sources wider than a byte a
    // channel and than two a pixel; invalid encoders.
    EXPECT_FALSE(tables.Build(kRGBA8, kU8, in8, l8, lin, lin, 1u << 24));
    EXPECT_TRUE(tables.Build(kRGBA8, kU8, in8, to565, lin, lin, 4096));
    EXPECT_FALSE(tables.Build(rgba16, eVarUnsignedShortNorm, in16, to565, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(kRGBA8, kU8, in8, gap, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(gapped, kU8, gap, in8, lin, lin, 1u << 24));
    // A pixel table costs a conversion per entry, so it needs as many pixels as entries.
    EXPECT_FALSE(tables.Build(kRGB565, kU8, from565, in8, lin, lin, 65535));
    EXPECT_TRUE(tables.Build(kRGB565, kU8, from565, in8, lin, lin, 65536));
    EXPECT_FALSE(tables.Build(rgb332, kU8, from332, in8, lin, lin, 255));
    EXPECT_TRUE(tables.Build(rgb332, kU8, from332, in8, lin, lin, 256));
    // 160 bits is a valid layout, but more than a pixel of the encoder holds.
    CPixelEncoder wide(eVarSignedFloat, 32, 32, 32, 64, eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha);
    ASSERT_EQ(wide.GetError(), 0u);
    EXPECT_FALSE(tables.Build(kRGB565, kU8, from565, wide, lin, lin, 1u << 24));
}

TEST(Transcode, RefusalsAndFormatsWithoutCodec)
{
    CORBTexture empty;
    EXPECT_FALSE(To(empty, kRGBA8));
    CORBTexture texture = Texture(ORBStandard8PixelType, 2, 2, Bytes(16, 3));
    EXPECT_FALSE(To(texture, PixelType(ePF_NumCompressed)));
    // No encoder holds a channel wider than 32 bits, as source or as target.
    const PixelType r200 = P("r", 200);
    EXPECT_FALSE(To(texture, r200));
    EXPECT_EQ(DataOf(texture), Bytes(16, 3));
    EXPECT_EQ(texture.getPixelType(), kRGBA8);
    CORBTexture wide = Texture(P("rg", 40, 40).PixelTypeID, 2, 2, Bytes(40, 1));
    EXPECT_FALSE(To(wide, kRGBA8));
    // The pixel loop itself copies nothing for an encoder wider than its pixel.
    CORBTexture target(CORBTextureHeader(r200.PixelTypeID, 2, 2));
    CPixelEncoder from(kRGBA8, kU8), to(r200, kU8);
    EXPECT_EQ(TranscodeTrivial(texture, target, from, to, eColourSpaceLinear, eColourSpaceLinear), 0u);

    // Formats without a codec leave zeros, not heap contents: blocks of the
    // sizes about to be allocated are freed dirty first, so that uninitialised memory would show.
    for (size_t size : {size_t(8), size_t(64), size_t(16384)})
    {
        std::vector<std::unique_ptr<uint8_t[]>> dirty;
        for (int i = 0; i < 4; ++i)
            std::memset(dirty.emplace_back(new uint8_t[size]).get(), 0xA5, size);
    }
    // No encoder: false, the target format and a zero block.
    CORBTexture noEncoder = Texture(ORBStandard8PixelType, 4, 4, Bytes(64, 9));
    EXPECT_FALSE(To(noEncoder, PixelType(ePF_DXT1)));
    EXPECT_EQ(noEncoder.getPixelType(), PixelType(ePF_DXT1));
    EXPECT_EQ(DataOf(noEncoder), Bytes(8, 0));
    // No decoder: true, the intermediate layout and zeros.
    CORBTexture dxt(CORBTextureHeader(ePF_DXT5, 64, 64));
    std::memset(dxt.getDataPtr(), 0x77, dxt.getDataSize());
    EXPECT_TRUE(To(dxt, kRGBA8));
    EXPECT_EQ(DataOf(dxt), Bytes(16384, 0));
}

TEST(Transcode, OtherSourcesColourSpaceAloneAndEverySurface)
{
    // From 5:6:5: green 32/63 x 255 + 0.5 = 130, a missing alpha reads 1.0.
    CORBTexture packed = Texture(kRGB565.PixelTypeID, 1, 1, {0x00, 0xFC});
    ASSERT_TRUE(To(packed, kRGBA8));
    EXPECT_EQ(DataOf(packed), (Bytes{255, 130, 0, 255}));

    // The same format in the same space keeps its block; another space alone runs the pixel loop.
    CORBTexture texture = Texture(ORBStandard8PixelType, 3, 1, {0, 1, 64, 10, 128, 200, 255, 20, 0, 0, 0, 30});
    const uint8_t* before = texture.getDataPtr();
    EXPECT_TRUE(To(texture, kRGBA8));
    EXPECT_EQ(texture.getDataPtr(), before);
    ASSERT_TRUE(To(texture, kRGBA8, kU8, eColourSpaceSRGB));
    EXPECT_EQ(texture.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(DataOf(texture), (Bytes{0, 13, 137, 10, 188, 229, 255, 20, 0, 0, 0, 30}));

    // Every surface converts, and the header's metadata stays.
    CORBTexture cube(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 3, 2, 6));
    for (uint32_t i = 0; i < cube.getDataSize(); ++i)
        cube.getDataPtr()[i] = uint8_t(i * 13);
    cube.setOrientation(eOrientUp);
    cube.setCubeMapOrder("ZzYyXx");
    const CORBTexture original(cube);
    ASSERT_TRUE(To(cube, PixelType(ORBStandard32PixelType), eVarSignedFloat));
    EXPECT_EQ(cube.getDataSize(), original.getDataSize() * 4);
    EXPECT_EQ(cube.getOrientation(eAxisY), eOrientUp);
    EXPECT_EQ(cube.getCubeMapOrder(), CORBTString("ZzYyXx"));
    EXPECT_EQ(cube.getNumMIPLevels(), 3u);
    EXPECT_FLOAT_EQ(*reinterpret_cast<const float*>(cube.getDataPtr(2, 1, 5)), *original.getDataPtr(2, 1, 5) / 255.0f);
    ASSERT_TRUE(To(cube, kRGBA8));
    EXPECT_EQ(DataOf(cube), DataOf(original));
}

TEST(Transcode, DitherWorksInEightBitsFirst)
{
    // 1799/65535 is 7/255: without dithering 5 bits keep trunc(0.85 + 0.5) = 1.
    // Dithering first turns 7 into 0 in 5 bits and into 4 in 6 bits (green 1).
    const Bytes pixel = {0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0xFF, 0xFF};
    CORBTexture plain = Texture(ORBStandard16PixelType, 1, 1, pixel, eVarUnsignedShortNorm), dithered(plain);
    ASSERT_TRUE(To(plain, kRGB565));
    EXPECT_EQ(DataOf(plain), (Bytes{0x41, 0x08}));
    ASSERT_TRUE(To(dithered, kRGB565, kU8, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(dithered), (Bytes{0x20, 0x00}));
    // Targets of 32 bits a pixel are not dithered: a 2-bit alpha rounds.
    const PixelType a2rgb10 = P("argb", 2, 10, 10, 10);
    CORBTexture rounded = Texture(ORBStandard8PixelType, 4, 1, Bytes(16, 128)), undithered(rounded);
    ASSERT_TRUE(To(rounded, a2rgb10, eVarUnsignedIntegerNorm));
    ASSERT_TRUE(To(undithered, a2rgb10, eVarUnsignedIntegerNorm, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(undithered), DataOf(rounded));

    // Luminance 0.0722 * 120 truncates to 8, which 4 bits dither to 0. Blue
    // dithered on its own (119) would give a luminance of 1 in 4 bits.
    CORBTexture blue = Texture(ORBStandard8PixelType, 1, 1, {0, 0, 120, 255});
    ASSERT_TRUE(To(blue, P("la", 4, 4), kU8, eColourSpaceLinear, true));
    EXPECT_EQ(DataOf(blue), (Bytes{0x0F}));

    // Named targets use their bit table; in layouts later positions overwrite, l and i set colour, x alpha.
    uint8_t bits[4];
    DitherTargetBits(PixelType(ePF_ETC2_RGB_A1), bits);
    EXPECT_EQ(Bytes(bits, bits + 4), (Bytes{5, 5, 5, 1}));
    DitherTargetBits(P("lxr", 4, 3, 6), bits);
    EXPECT_EQ(Bytes(bits, bits + 4), (Bytes{6, 4, 4, 3}));
}

TEST(Transcode, IntermediateFormats)
{
    const auto intermediate = [](uint64_t named, EORBTVariableType asked) {
        PixelType format;
        EORBTVariableType type;
        IntermediateTranscodeFormat(PixelType(named), asked, format, type);
        return std::make_pair(format, type);
    };
    EXPECT_EQ(intermediate(ePF_ETC1, eVarSignedFloat), std::make_pair(P("rgb", 8, 8, 8), kU8));
    EXPECT_EQ(intermediate(ePF_RGB9E5, kU8), std::make_pair(P("rgb", 32, 32, 32), eVarSignedFloat));
    // EAC: signed types are 1, 3, ..., 11 and 12; 13 is not.
    EXPECT_EQ(intermediate(ePF_EAC_R11, eVarSignedFloat), std::make_pair(P("r", 16), eVarSignedShortNorm));
    EXPECT_EQ(intermediate(ePF_EAC_RG11, eVarUnsignedFloat), std::make_pair(P("rg", 16, 16), eVarUnsignedShortNorm));
    // ORBTC, ASTC, unknown values and layouts: rgba8.
    for (uint64_t other : {uint64_t(ePF_ORBTC_2bpp_RGB), uint64_t(ePF_ASTC_6x6x6), uint64_t(99), kRGB565.PixelTypeID})
        EXPECT_EQ(intermediate(other, eVarSignedByteNorm), std::make_pair(kRGBA8, kU8)) << other;
}

TEST(Transcode, HighestQualityIsWhatTheCompressorsServe)
{
    // Each named format with an encoder compresses at its highest quality and
    // fails one above it; the table and the codecs must agree. Codecs that
    // ignore the quality report the largest value and never fail.
    Bytes pixels(16 * 16 * 4);
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
            EXPECT_EQ(Transcode(texture, PixelType(format), kU8, eColourSpaceLinear, ECompressorQuality(quality)),
                      quality == highest);
        }
    }
    EXPECT_EQ(HighestCompressorQuality(kRGBA8), -1);
    EXPECT_EQ(HighestCompressorQuality(PixelType(ePF_UYVY)), INT8_MAX);
}
