#include <array>
#include <cstring>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureHeader.h"

using namespace orbtexture;

namespace
{

// Values below are written as the registries publish them, not taken from the
// library's own constants.

uint64_t L(const char* names, uint8_t w0, uint8_t w1 = 0, uint8_t w2 = 0, uint8_t w3 = 0)
{
    const size_t n = std::strlen(names);
    return PixelType(names[0], n > 1 ? names[1] : 0, n > 2 ? names[2] : 0, n > 3 ? names[3] : 0, w0, w1, w2, w3)
        .PixelTypeID;
}

EORBTVariableType VT(unsigned v) { return EORBTVariableType(v); }

constexpr EORBTColourSpace kLin = eColourSpaceLinear;
constexpr EORBTColourSpace kSRGB = eColourSpaceSRGB;
constexpr unsigned kSentinel = 0xDEADBEEFu;
constexpr unsigned X = 0xA11A11u; // an output a row does not compare

struct GLOut
{
    bool ok;
    unsigned internal, base, format, type, size;
};

GLOut GL(uint64_t pixelFormat, unsigned channelType, EORBTColourSpace space = kLin)
{
    GLOut out{false, kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
    out.ok = getOpenGLFormat(pixelFormat, VT(channelType), space, out.internal, out.base, out.format, out.type,
                             out.size);
    return out;
}

struct Desc
{
    bool ok;
    unsigned long long format;
    unsigned type, space;
    bool preMultiplied;
    bool operator==(const Desc& o) const
    {
        return ok == o.ok && format == o.format && type == o.type && space == o.space &&
               preMultiplied == o.preMultiplied;
    }
};

std::ostream& operator<<(std::ostream& os, const Desc& d)
{
    return os << std::hex << "{ok " << d.ok << " format 0x" << d.format << std::dec << " type " << d.type
              << " space " << d.space << " pm " << d.preMultiplied << "}";
}

constexpr Desc kUnset{false, 0x1234567890ULL, 77, 5, true};

// Runs an inverse map on outputs preset to kUnset.
template <typename Call>
Desc Inverse(Call call)
{
    Desc d = kUnset;
    EORBTVariableType t = VT(d.type);
    EORBTColourSpace s = EORBTColourSpace(d.space);
    d.ok = call(d.format, t, s, d.preMultiplied);
    d.type = t;
    d.space = s;
    return d;
}

Desc FromGL(unsigned internal, unsigned type, unsigned format = 0)
{
    return Inverse(
        [&](auto& f, auto& t, auto& s, bool&) { return getOrbCoreFormatOGL(f, t, s, internal, format, type); });
}

Desc FromD3D(unsigned code)
{
    return Inverse([&](auto& f, auto& t, auto& s, bool& pm) { return getOrbCoreFormatD3D(f, t, s, pm, code); });
}

Desc FromDXGI(unsigned code)
{
    return Inverse([&](auto& f, auto& t, auto& s, bool&) { return getOrbCoreFormatDXGI(f, t, s, code); });
}

Desc Expect(unsigned long long format, unsigned type, unsigned space = 0, bool preMultiplied = kUnset.preMultiplied)
{
    return Desc{true, format, type, space, preMultiplied};
}

unsigned D3D(uint64_t pixelFormat, unsigned channelType, EORBTColourSpace space = kLin)
{
    unsigned code = kSentinel;
    const bool ok = getDirect3DFormat(pixelFormat, VT(channelType), space, code);
    EXPECT_EQ(ok, code != 0);
    return code;
}

unsigned DXGI(uint64_t pixelFormat, unsigned channelType, EORBTColourSpace space = kLin)
{
    unsigned code = kSentinel;
    const bool ok = getDirectXGIFormat(pixelFormat, VT(channelType), space, code);
    EXPECT_EQ(ok, code != 0);
    return code;
}

unsigned FourCC(const char* s)
{
    return unsigned(uint8_t(s[0])) | unsigned(uint8_t(s[1])) << 8 | unsigned(uint8_t(s[2])) << 16 |
           unsigned(uint8_t(s[3])) << 24;
}

} // namespace

TEST(FormatMaps, OpenGLForward)
{
    struct Row
    {
        uint64_t format;
        unsigned type;
        EORBTColourSpace space;
        unsigned internal, base, glFormat, glType, size;
    };
    const Row rows[] = {
        {ORBStandard8PixelType, 0, kLin, 0x8058, 0x1908, 0x1908, 0x1401, 1}, // GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE
        {ORBStandard8PixelType, 0, kSRGB, 0x8C43, X, X, X, X},               // GL_SRGB8_ALPHA8
        {ORBStandard8PixelType, 1, kLin, 0x8F97, X, X, X, X},                // GL_RGBA8_SNORM
        {ORBStandard8PixelType, 1, kSRGB, 0x8F97, X, X, X, X},
        {L("rgb", 8, 8, 8), 0, kSRGB, 0x8C41, X, X, X, X}, // GL_SRGB8
        {L("rgb", 8, 8, 8), 0, kLin, 0x8051, X, X, X, X},  // GL_RGB8
        {ORBStandard32PixelType, 10, kLin, 0x8D70, 0x8D99, 0x8D99, 0x1405, 4}, // GL_RGBA32UI, GL_RGBA_INTEGER
        {L("abgr", 2, 10, 10, 10), 8, kLin, 0x8059, X, X, 0x8368, X}, // GL_RGB10_A2, ..._2_10_10_10_REV
        {L("rgb", 11, 11, 10), 13, kLin, 0x8C3A, X, X, 0x8C3B, X},     // GL_R11F_G11F_B10F
        {L("la", 16, 16), 12, kLin, 0x881F, X, 0x190A, 0x140B, X},     // LUMINANCE_ALPHA16F, GL_HALF_FLOAT
        {L("r", 16), 7, kLin, 0x8233, X, 0x8D94, 0x1402, 2},           // GL_R16I, GL_RED_INTEGER, GL_SHORT
        {L("bgra", 8, 8, 8, 8), 0, kLin, 0x80E1, X, X, X, X},           // GL_BGRA
        {L("rgb", 5, 6, 5), 4, kLin, X, X, X, 0x8363, X},               // GL_UNSIGNED_SHORT_5_6_5
        {L("a", 16), 5, kLin, 0x9018, X, X, X, X},                      // GL_ALPHA16_SNORM
        {L("l", 32), 12, kLin, 0x8818, X, X, X, X},                     // GL_LUMINANCE32F_ARB
        // Named formats: no format or type.
        {ePF_ASTC_6x6, 0, kLin, 0x93B4, 0x1908, 0, 0, 1},
        {ePF_ASTC_6x6, 0, kSRGB, 0x93D4, X, X, X, X},
        {ePF_ASTC_4x4, 0, kLin, 0x93B0, X, X, X, X},
        {ePF_ASTC_12x12, 0, kSRGB, 0x93DD, X, X, X, X},
        {ePF_ASTC_3x3x3, 0, kLin, 0x93C0, X, X, X, X},
        {ePF_ASTC_6x6x6, 0, kSRGB, 0x93E9, X, X, X, X},
        {ePF_DXT1, 0, kLin, 0x83F0, 0x1907, X, X, X},
        {ePF_DXT2, 0, kLin, 0x83F2, X, X, X, X},
        {ePF_DXT3, 0, kLin, 0x83F2, X, X, X, X},
        {ePF_DXT4, 0, kLin, 0x83F3, X, X, X, X},
        {ePF_DXT5, 0, kSRGB, 0x83F3, X, X, X, X},
        {ePF_ETC1, 0, kSRGB, 0x8D64, X, X, X, X},
        {ePF_ORBTC_2bpp_RGB, 0, kLin, 0x8C01, X, X, X, X},
        {ePF_ORBTC_4bpp_RGBA, 0, kLin, 0x8C02, X, X, X, X},
        {ePF_ORBTCII_4bpp, 0, kLin, 0x9138, X, X, X, X},
        {ePF_ETC2_RGB, 0, kSRGB, 0x9275, X, X, X, X},
        {ePF_ETC2_RGBA, 0, kLin, 0x9278, X, X, X, X},
        {ePF_ETC2_RGB_A1, 0, kSRGB, 0x9277, X, X, X, X},
        {ePF_ETC2_RGB_A1, 0, kLin, X, 0x1908, X, X, X},
        {ePF_EAC_R11, 0, kLin, X, 0x1903, X, X, X},  // GL_RED
        {ePF_EAC_RG11, 0, kLin, X, 0x8227, X, X, X}, // GL_RG
        {ePF_RGB9E5, 5, kLin, 0x8C3D, 0x1907, 0x1907, 0x8C3E, 4}, // any channel type
    };
    for (const Row& r : rows)
    {
        const GLOut o = GL(r.format, r.type, r.space);
        EXPECT_TRUE(o.ok);
        const unsigned want[] = {r.internal, r.base, r.glFormat, r.glType, r.size};
        const unsigned got[] = {o.internal, o.base, o.format, o.type, o.size};
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(want[i] == X || got[i] == want[i])
                << std::hex << r.format << " type " << r.type << " output " << i << ": " << got[i];
    }

    // EAC: the signed form for signed, integer and float types.
    for (unsigned t = 0; t < eNumVarTypes; ++t)
    {
        const bool isSigned = t == 1 || t == 3 || t == 5 || t == 7 || t == 9 || t == 11 || t == 12;
        EXPECT_EQ(GL(ePF_EAC_R11, t).internal, isSigned ? 0x9271u : 0x9270u) << t;
        EXPECT_EQ(GL(ePF_EAC_RG11, t, kSRGB).internal, isSigned ? 0x9273u : 0x9272u) << t;
    }

    // Channel type or width not in the table: all five outputs 0.
    for (const GLOut& miss : {GL(ORBStandard8PixelType, 12), GL(L("rgba", 8, 8, 8, 7), 0), GL(L("a", 8), 4)})
        EXPECT_TRUE(!miss.ok && (miss.internal | miss.base | miss.format | miss.type | miss.size) == 0);
    // Unknown named formats: internal outputs untouched, format and type 0, size 1.
    for (unsigned long long f : {12ull, 15ull, 16ull, 18ull, 20ull, 21ull, 51ull, 0xFFFFFFFFull, 0xFFFFFFFEull})
    {
        const GLOut o = GL(f, 0);
        EXPECT_TRUE(!o.ok && o.internal == kSentinel && o.base == kSentinel && o.format == 0 && o.type == 0 &&
                    o.size == 1)
            << f;
    }
}

// Codes the forward pins above already lead back to through the round trips
// below are not repeated here.
TEST(FormatMaps, OpenGLInverse)
{
    EXPECT_EQ(FromGL(0x9279, 0), Expect(ePF_ETC2_RGBA, 0, 1));
    EXPECT_EQ(FromGL(0x8C03, 0), Expect(ePF_ORBTC_2bpp_RGBA, 0));
    EXPECT_EQ(FromGL(0x8D82, 0), Expect(ORBStandard32PixelType, 10));
    EXPECT_EQ(FromGL(0x803E, 0), Expect(L("a", 16), 0));
    EXPECT_EQ(FromGL(0x8042, 0), Expect(L("l", 16), 0));
    EXPECT_EQ(FromGL(0x9019, 0), Expect(L("l", 16), 1));
    EXPECT_EQ(FromGL(0x906F, 0), Expect(L("rgba", 10, 10, 10, 2), 10));
    EXPECT_EQ(FromGL(0x8052, 0), Expect(L("rgbx", 10, 10, 10, 2), 8));
    EXPECT_EQ(FromGL(0x8D62, 0), Expect(L("rgb", 5, 6, 5), 4));

    // Unsized internal formats by type; the format argument is never read.
    EXPECT_EQ(FromGL(0x1908, 0x1403, 0xFFFF), Expect(ORBStandard16PixelType, 4));
    EXPECT_EQ(FromGL(0x1908, 0x1405), Expect(ORBStandard32PixelType, 8));
    EXPECT_EQ(FromGL(0x1903, 0x1400), Expect(L("r", 8), 1));
    EXPECT_EQ(FromGL(0x1906, 0x1402), Expect(L("a", 16), 5));
    EXPECT_EQ(FromGL(0x1909, 0x1401), Expect(L("l", 8), 0));
    EXPECT_EQ(FromGL(0x190A, 0x1404), Expect(L("la", 32, 32), 9));
    EXPECT_EQ(FromGL(0x8227, 0x1403), Expect(L("rg", 16, 16), 4));
    EXPECT_EQ(FromGL(0x1907, 0x1401), Expect(L("rgb", 8, 8, 8), 0));
    EXPECT_EQ(FromGL(0x1907, 0x8032), Expect(L("rgb", 3, 3, 2), 0));
    EXPECT_EQ(FromGL(0x1907, 0x8363), Expect(L("rgb", 5, 6, 5), 4));
    EXPECT_EQ(FromGL(0x1908, 0x8033), Expect(L("rgba", 4, 4, 4, 4), 4));
    EXPECT_EQ(FromGL(0x1908, 0x8034), Expect(L("rgba", 5, 5, 5, 1), 4));
    EXPECT_EQ(FromGL(0x80E1, 0x1401), Expect(L("bgra", 8, 8, 8, 8), 0));

    // Not recognised: outputs untouched.
    for (const Desc& miss :
         {FromGL(0x8048, 0x1403), FromGL(0x901A, 0x1402), FromGL(0x1907, 0x8033), FromGL(0x1908, 0x1406),
          FromGL(0x80E1, 0x1403), FromGL(0x1903, 0), FromGL(0, 0x1401), FromGL(0x83F1, 0), FromGL(0xFFFFFFFF, 0)})
        EXPECT_EQ(miss, kUnset);
}

struct Forward
{
    uint64_t format;
    unsigned type;
    EORBTColourSpace space;
    unsigned code;
};

TEST(FormatMaps, Direct3D)
{
    const Forward rows[] = {
        {L("argb", 8, 8, 8, 8), 0, kLin, 21}, {L("argb", 8, 8, 8, 8), 8, kSRGB, 21}, {L("argb", 8, 8, 8, 8), 4, kLin, 0},
        {L("rgb", 5, 6, 5), 4, kLin, 23},     {L("rgb", 5, 6, 5), 0, kLin, 0},        {L("l", 16), 4, kLin, 81},
        {L("gr", 16, 16), 9, kLin, 64},       {L("gr", 16, 16), 12, kLin, 112},       {L("r", 16), 12, kLin, 111},
        {L("abgr", 2, 10, 10, 10), 9, kLin, 67}, {L("abgr", 32, 32, 32, 32), 12, kLin, 116},
        {ORBStandard8PixelType, 0, kLin, 0},
        {L("r", 16), 0xFFFFFFFFu, kLin, 0}, // a row without a second type matches no stray type
        {ePF_DXT1, 5, kLin, 0x31545844u},     // "DXT1"
        {ePF_DXT2, 0, kLin, FourCC("DXT2")},  {ePF_ORBTC_2bpp_RGB, 0, kLin, FourCC("OTC2")},
        {ePF_ORBTC_2bpp_RGBA, 0, kLin, FourCC("OTC2")}, {ePF_ORBTC_4bpp_RGB, 0, kLin, FourCC("OTC4")},
        {ePF_UYVY, 0, kLin, FourCC("UYVY")},  {ePF_GRGB8888, 0, kLin, FourCC("GRGB")},
    };
    for (const Forward& r : rows)
        EXPECT_EQ(D3D(r.format, r.type, r.space), r.code) << std::hex << r.format << " type " << r.type;
    for (unsigned long long f : {4ull, 6ull, 12ull, 18ull, 19ull, 22ull, 31ull, 51ull, 0xFFFFFFFFull})
        EXPECT_EQ(D3D(f, 0), 0u) << f;

    // Codes the forward rows lead back to are pinned by the round trip below.
    EXPECT_EQ(FromD3D(FourCC("DXT4")), Expect(ePF_DXT4, 0, 0, true));
    EXPECT_EQ(FromD3D(FourCC("DXT3")), Expect(ePF_DXT3, 0, 0, false));
    EXPECT_EQ(FromD3D(28), Expect(L("a", 8), 8, 0, false));
    EXPECT_EQ(FromD3D(36), Expect(L("abgr", 16, 16, 16, 16), 8, 0, false));
    EXPECT_EQ(FromD3D(60), Expect(L("gr", 8, 8), 9, 0, false));
    EXPECT_EQ(FromD3D(115), Expect(L("gr", 32, 32), 12, 0, false));
    EXPECT_EQ(FromD3D(30), Expect(L("argb", 4, 4, 4, 4), 8, 0, false));
    EXPECT_EQ(FromD3D(32), Expect(L("abgr", 8, 8, 8, 8), 8, 0, false));
    EXPECT_EQ(FromD3D(33), Expect(L("xbgr", 8, 8, 8, 8), 8, 0, false));
    EXPECT_EQ(FromD3D(110), Expect(L("abgr", 16, 16, 16, 16), 9, 0, false));
    for (unsigned code : {0u, 1u, 19u, 37u, 80u, 117u, FourCC("DXT6"), FourCC("ATI2"), 0xFFFFFFFFu})
        EXPECT_EQ(FromD3D(code), kUnset) << code;
}

TEST(FormatMaps, DXGI)
{
    const Forward rows[] = {
        {ePF_DXT5, 8, kLin, 77},     {ePF_DXT5, 8, kSRGB, 78},    {ePF_DXT1, 0, kLin, 0},    {ePF_DXT2, 8, kLin, 0},
        {ePF_BC4, 8, kSRGB, 80},     {ePF_BC4, 9, kLin, 81},      {ePF_BC5, 9, kLin, 84},    {ePF_BC5, 0, kLin, 0},
        {ePF_BW1bpp, 13, kLin, 66},  {ePF_RGBG8888, 0, kSRGB, 68}, {ePF_BC7, 8, kLin, 0},
        {ORBStandard8PixelType, 0, kSRGB, 29}, {ORBStandard8PixelType, 0, EORBTColourSpace(7), 28},
        {ORBStandard8PixelType, 3, kLin, 32},  {ORBStandard16PixelType, 12, kLin, 10},
        {ORBStandard32PixelType, 12, kSRGB, 2}, {L("bgrx", 8, 8, 8, 8), 0, kSRGB, 93},
        {L("bgra", 8, 8, 8, 8), 0, kSRGB, 91},  {L("rgb", 5, 6, 5), 4, kLin, 85},
        {L("argb", 4, 4, 4, 4), 4, kLin, 115},  {L("rgba", 10, 10, 10, 2), 10, kLin, 25},
        {L("rgb", 11, 11, 10), 12, kLin, 26},   {L("r", 16), 6, kLin, 57},
        {L("a", 8), 1, kLin, 0},                {L("rgb", 8, 8, 8), 0, kLin, 0},
    };
    for (const Forward& r : rows)
        EXPECT_EQ(DXGI(r.format, r.type, r.space), r.code) << std::hex << r.format << " type " << r.type;

    EXPECT_EQ(FromDXGI(65), Expect(L("r", 8), 0));
    EXPECT_EQ(FromDXGI(72), Expect(ePF_DXT1, 8, 1));
    EXPECT_EQ(FromDXGI(66), Expect(ePF_BW1bpp, 0));
    EXPECT_EQ(FromDXGI(69), Expect(ePF_GRGB8888, 0));
    EXPECT_EQ(FromDXGI(67), Expect(ePF_RGB9E5, 12));
    EXPECT_EQ(FromDXGI(96), Expect(ePF_BC7, 12, 1));
    EXPECT_EQ(FromDXGI(98), Expect(ePF_BC7, 8, 0));
    EXPECT_EQ(FromDXGI(99), Expect(ePF_BC7, 8, 1));
    EXPECT_EQ(FromDXGI(107), Expect(ePF_YUY2, 8));
    EXPECT_EQ(FromDXGI(111), Expect(L("ai", 4, 4), 0));
    EXPECT_EQ(FromDXGI(112), Expect(L("ia", 4, 4), 0));
    for (unsigned code : {0u, 1u, 5u, 70u, 73u, 95u, 97u, 116u, 132u, 0xFFFFFFFFu})
        EXPECT_EQ(FromDXGI(code), kUnset) << code;
}

namespace
{

// Descriptions to map: every named value around the table, and channel
// layouts of many letter orders and widths, in every channel type and both
// colour spaces.
struct Input
{
    uint64_t format;
    unsigned type;
    EORBTColourSpace space;
};

std::vector<Input> AllInputs()
{
    std::vector<uint64_t> formats;
    for (uint64_t f = 0; f < 56; ++f)
        formats.push_back(f);
    formats.push_back(0xFFFFFFFFu);
    const char* letters[] = {"r",   "a",   "l",    "x",    "rg",   "la",   "al",   "gr",   "ai",   "ia",
                             "rgb", "bgr", "lgr",  "rgba", "bgra", "argb", "abgr", "xrgb", "xbgr", "rgbx",
                             "bgrx", "xlgr"};
    const uint8_t widths[][4] = {{8}, {16}, {32}, {4, 4}, {8, 8}, {16, 16}, {32, 32}, {3, 3, 2}, {5, 6, 5},
                                 {6, 5, 5}, {8, 8, 8}, {11, 11, 10}, {16, 16, 16}, {32, 32, 32}, {5, 5, 5, 1},
                                 {4, 4, 4, 4}, {1, 5, 5, 5}, {8, 3, 3, 2}, {2, 10, 10, 10}, {10, 10, 10, 2},
                                 {8, 8, 8, 8}, {16, 16, 16, 16}, {32, 32, 32, 32}};
    for (const char* name : letters)
        for (const auto& w : widths)
        {
            const size_t n = std::strlen(name);
            const size_t m = w[3] ? 4 : w[2] ? 3 : w[1] ? 2 : 1;
            if (n == m)
                formats.push_back(L(name, w[0], w[1], w[2], w[3]));
        }
    std::vector<Input> inputs;
    for (uint64_t f : formats)
        for (unsigned t = 0; t < eNumVarTypes; ++t)
            for (EORBTColourSpace s : {kLin, kSRGB})
                inputs.push_back({f, t, s});
    return inputs;
}

bool IsNamed(uint64_t f) { return (f >> 32) == 0; }

} // namespace

// Every forward result maps back to its description, but for the differences
// the maps are known to have.
TEST(FormatMaps, OpenGLRoundTrip)
{
    unsigned namedHits = 0, layoutHits = 0;
    for (const Input& in : AllInputs())
    {
        const GLOut o = GL(in.format, in.type, in.space);
        if (!o.ok)
            continue;
        IsNamed(in.format) ? ++namedHits : ++layoutHits;
        Desc want = Expect(in.format, in.type, in.space);
        const Desc back = FromGL(o.internal, o.type, o.format);
        if (IsNamed(in.format))
        {
            const uint64_t f = in.format;
            const bool hasSRGB = (f >= 22 && f <= 24) || (f >= 27 && f <= 50);
            const bool signedType = in.type == 1 || in.type == 3 || in.type == 5 || in.type == 7 || in.type == 9 ||
                                    in.type == 11 || in.type == 12;
            want.format = f == ePF_DXT2 ? uint64_t(ePF_DXT3) : f == ePF_DXT4 ? uint64_t(ePF_DXT5) : f;
            want.type = f == ePF_RGB9E5 ? 13 : ((f == ePF_EAC_R11 || f == ePF_EAC_RG11) && signedType) ? 1 : 0;
            want.space = hasSRGB ? in.space : kLin;
        }
        else
        {
            const bool sRGBKept =
                in.type == 0 && (in.format == L("rgb", 8, 8, 8) || in.format == ORBStandard8PixelType);
            want.space = sRGBKept ? in.space : kLin;
            if ((in.format == L("a", 16) || in.format == L("l", 16)) && (in.type == 4 || in.type == 5))
                want.type = in.type - 4;
            if (in.format == ORBStandard32PixelType && (in.type == 10 || in.type == 11))
                want.type = 21 - in.type;
            if (in.format == L("abgr", 2, 10, 10, 10))
                want.format = L("rgba", 10, 10, 10, 2);
            if (in.format == L("xbgr", 2, 10, 10, 10))
                want.format = L("rgbx", 10, 10, 10, 2);
            if (in.format == L("la", 16, 16) && (in.type == 4 || in.type == 5))
                want = kUnset;
        }
        EXPECT_EQ(back, want) << std::hex << in.format << std::dec << " type " << in.type << " space " << in.space;
    }
    // Rows of the published tables: 42 named formats in any type and space;
    // 76 layout rows, 2 of them split by colour space.
    EXPECT_EQ(namedHits, 42u * 14 * 2);
    EXPECT_EQ(layoutHits, 150u);
}

TEST(FormatMaps, Direct3DRoundTrip)
{
    unsigned namedHits = 0, layoutHits = 0;
    for (const Input& in : AllInputs())
    {
        unsigned code = 0;
        if (!getDirect3DFormat(in.format, VT(in.type), in.space, code))
            continue;
        IsNamed(in.format) ? ++namedHits : ++layoutHits;
        Desc want = Expect(in.format, in.type, kLin, false);
        if (IsNamed(in.format))
        {
            want.type = 0;
            if (in.format == ePF_ORBTC_2bpp_RGB || in.format == ePF_ORBTC_4bpp_RGB)
                ++want.format;
            want.preMultiplied = in.format == ePF_DXT2 || in.format == ePF_DXT4;
        }
        else
        {
            if (in.type == 0 || in.type == 4)
                want.type = 8;
            if (in.format == L("r", 16))
                want.format = L("r", 32);
            if (in.format == L("rg", 32, 32))
                want.format = L("gr", 32, 32);
        }
        EXPECT_EQ(FromD3D(code), want) << std::hex << in.format << std::dec << " type " << in.type;
    }
    EXPECT_EQ(namedHits, 13u * 14 * 2);
    EXPECT_EQ(layoutHits, 92u);
}

TEST(FormatMaps, DXGIRoundTrip)
{
    unsigned namedHits = 0, layoutHits = 0;
    for (const Input& in : AllInputs())
    {
        unsigned code = 0;
        if (!getDirectXGIFormat(in.format, VT(in.type), in.space, code))
            continue;
        IsNamed(in.format) ? ++namedHits : ++layoutHits;
        Desc want = Expect(in.format, in.type, kLin);
        const uint64_t f = in.format;
        if (f == ePF_DXT1 || f == ePF_DXT3 || f == ePF_DXT5 || (in.type == 0 && (f == ORBStandard8PixelType ||
                                                                                  f == L("bgra", 8, 8, 8, 8) ||
                                                                                  f == L("bgrx", 8, 8, 8, 8))))
            want.space = in.space;
        if (f == ePF_BW1bpp || f == ePF_RGBG8888 || f == ePF_GRGB8888)
            want.type = 0;
        if (f == ePF_BC4 && in.type == 8)
            want.space = kSRGB;
        if (f == L("a", 8))
            want.format = L("r", 8);
        EXPECT_EQ(FromDXGI(code), want) << std::hex << in.format << std::dec << " type " << in.type;
    }
    EXPECT_EQ(namedHits, 3u * 2 + 4 * 2 + 3 * 14 * 2);
    EXPECT_EQ(layoutHits, 96u);
}

// The inverse maps accept any word: false leaves every output as it was.
TEST(FormatMaps, InverseFailuresLeaveOutputs)
{
    std::vector<unsigned> codes = {0x10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu};
    for (unsigned c = 0; c < 0x10000; ++c)
        codes.push_back(c);
    for (unsigned c : codes)
        for (const Desc& d : {FromD3D(c), FromDXGI(c), FromGL(c, c & 0xFFFF, c)})
            EXPECT_TRUE(d.ok || d == kUnset) << c;
}

TEST(FormatMaps, HeaderGetters)
{
    auto gl = [](const CORBTextureHeader& h, bool es) {
        uint32_t i = X, f = X, t = X;
        const bool ok = es ? h.getOGLESFormat(i, f, t) : h.getOGLFormat(i, f, t);
        return std::array<uint32_t, 4>{ok, i, f, t};
    };
    CORBTextureHeader header(ORBStandard8PixelType, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB, eVarUnsignedByteNorm);
    EXPECT_EQ(gl(header, false), (std::array<uint32_t, 4>{1, 0x8C43, 0x1908, 0x1401}));
    EXPECT_EQ(gl(header, true)[1], 0x1908u);
    EXPECT_EQ(header.getDXGIFormat(), 29u);
    EXPECT_EQ(header.getD3DFormat(), 0u);

    header.setPixelFormat(L("argb", 8, 8, 8, 8));
    EXPECT_EQ(header.getD3DFormat(), 21u);
    EXPECT_EQ(header.getDXGIFormat(), 0u);
    EXPECT_EQ(gl(header, false)[0], 0u);

    header.setPixelFormat(uint64_t(ePF_ETC2_RGB));
    const auto es = gl(header, true);
    EXPECT_TRUE(es[0] && es[1] == 0x1907u && es[2] == 0);
    const auto full = gl(header, false);
    EXPECT_TRUE(full[0] && full[1] == 0x9275u);
}

TEST(FormatMaps, HeaderSetters)
{
    CORBTextureHeader header(ORBStandard8PixelType);
    EXPECT_TRUE(header.setOGLFormat(0x9271, 0, 0));
    EXPECT_EQ(header.getPixelType().PixelTypeID, uint64_t(ePF_EAC_R11));
    EXPECT_EQ(header.getChannelType(), eVarSignedByteNorm);
    EXPECT_TRUE(header.setOGLESFormat(0x1907, 0x1907, 0x8363));
    EXPECT_EQ(header.getPixelType().PixelTypeID, L("rgb", 5, 6, 5));
    EXPECT_EQ(header.getChannelType(), eVarUnsignedShortNorm);
    EXPECT_TRUE(header.setDXGIFormat(99));
    EXPECT_EQ(header.getPixelType().PixelTypeID, uint64_t(ePF_BC7));
    EXPECT_EQ(header.getColourSpace(), eColourSpaceSRGB);

    // D3D sets the premultiplied flag; clearing it clears the whole flags word.
    header.setIsFileCompressed(true);
    EXPECT_TRUE(header.setD3DFormat(FourCC("DXT4")));
    EXPECT_EQ(header.getPixelType().PixelTypeID, uint64_t(ePF_DXT4));
    EXPECT_EQ(header.getColourSpace(), eColourSpaceLinear);
    EXPECT_TRUE(header.isPreMultiplied());
    EXPECT_TRUE(header.isFileCompressed());
    EXPECT_TRUE(header.setD3DFormat(51));
    EXPECT_EQ(header.getPixelType().PixelTypeID, L("al", 8, 8));
    EXPECT_EQ(header.getChannelType(), eVarUnsignedIntegerNorm);
    EXPECT_FALSE(header.isPreMultiplied());
    EXPECT_FALSE(header.isFileCompressed());

    // A code without mapping leaves the header as it was.
    header.setIsPreMultiplied(true);
    header.setColourSpace(eColourSpaceSRGB);
    const ORBTextureHeaderV3 before = header.getFileHeader();
    EXPECT_FALSE(header.setOGLFormat(0x8048, 0x190A, 0x1403));
    EXPECT_FALSE(header.setOGLESFormat(0x1908, 0x1908, 0x1406));
    EXPECT_FALSE(header.setD3DFormat(0));
    EXPECT_FALSE(header.setDXGIFormat(1));
    const ORBTextureHeaderV3 after = header.getFileHeader();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}
