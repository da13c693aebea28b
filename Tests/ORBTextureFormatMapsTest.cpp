#include <cstring>
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
    unsigned type;
    unsigned space;
    bool preMultiplied;
};

constexpr Desc kUnset{false, 0x1234567890ULL, 77, 5, true};

bool SameDesc(const Desc& a, const Desc& b)
{
    return a.ok == b.ok && a.format == b.format && a.type == b.type && a.space == b.space &&
           a.preMultiplied == b.preMultiplied;
}

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

::testing::AssertionResult Is(const Desc& got, const Desc& want)
{
    if (SameDesc(got, want))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << std::hex << "got ok=" << got.ok << " format=0x" << got.format
                                         << " type=" << std::dec << got.type << " space=" << got.space
                                         << " pm=" << got.preMultiplied << ", want format=0x" << std::hex
                                         << want.format << " type=" << std::dec << want.type
                                         << " space=" << want.space;
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

TEST(FormatMaps, OpenGLLayouts)
{
    GLOut o = GL(ORBStandard8PixelType, 0, kLin);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.internal, 0x8058u); // GL_RGBA8
    EXPECT_EQ(o.base, 0x1908u);     // GL_RGBA
    EXPECT_EQ(o.format, 0x1908u);
    EXPECT_EQ(o.type, 0x1401u); // GL_UNSIGNED_BYTE
    EXPECT_EQ(o.size, 1u);
    EXPECT_EQ(GL(ORBStandard8PixelType, 0, kSRGB).internal, 0x8C43u); // GL_SRGB8_ALPHA8
    EXPECT_EQ(GL(ORBStandard8PixelType, 1, kLin).internal, 0x8F97u);  // GL_RGBA8_SNORM
    EXPECT_EQ(GL(ORBStandard8PixelType, 1, kSRGB).internal, 0x8F97u);
    EXPECT_EQ(GL(L("rgb", 8, 8, 8), 0, kSRGB).internal, 0x8C41u); // GL_SRGB8
    EXPECT_EQ(GL(L("rgb", 8, 8, 8), 0, kLin).internal, 0x8051u);  // GL_RGB8

    o = GL(ORBStandard32PixelType, 10);
    EXPECT_EQ(o.internal, 0x8D70u); // GL_RGBA32UI
    EXPECT_EQ(o.format, 0x8D99u);   // GL_RGBA_INTEGER
    EXPECT_EQ(o.base, 0x8D99u);
    EXPECT_EQ(o.type, 0x1405u); // GL_UNSIGNED_INT
    EXPECT_EQ(o.size, 4u);

    o = GL(L("abgr", 2, 10, 10, 10), 8);
    EXPECT_EQ(o.internal, 0x8059u); // GL_RGB10_A2
    EXPECT_EQ(o.type, 0x8368u);     // GL_UNSIGNED_INT_2_10_10_10_REV
    o = GL(L("rgb", 11, 11, 10), 13);
    EXPECT_EQ(o.internal, 0x8C3Au); // GL_R11F_G11F_B10F
    EXPECT_EQ(o.type, 0x8C3Bu);     // GL_UNSIGNED_INT_10F_11F_11F_REV
    o = GL(L("la", 16, 16), 12);
    EXPECT_EQ(o.internal, 0x881Fu); // GL_LUMINANCE_ALPHA16F_ARB
    EXPECT_EQ(o.format, 0x190Au);   // GL_LUMINANCE_ALPHA
    EXPECT_EQ(o.type, 0x140Bu);     // GL_HALF_FLOAT
    o = GL(L("r", 16), 7);
    EXPECT_EQ(o.internal, 0x8233u); // GL_R16I
    EXPECT_EQ(o.format, 0x8D94u);   // GL_RED_INTEGER
    EXPECT_EQ(o.type, 0x1402u);     // GL_SHORT
    EXPECT_EQ(o.size, 2u);
    EXPECT_EQ(GL(L("bgra", 8, 8, 8, 8), 0).internal, 0x80E1u);  // GL_BGRA
    EXPECT_EQ(GL(L("rgb", 5, 6, 5), 4).type, 0x8363u);          // GL_UNSIGNED_SHORT_5_6_5
    EXPECT_EQ(GL(L("a", 16), 5).internal, 0x9018u);             // GL_ALPHA16_SNORM
    EXPECT_EQ(GL(L("l", 32), 12).internal, 0x8818u);            // GL_LUMINANCE32F_ARB

    // Channel type or width not in the table: all five outputs 0.
    for (const GLOut& miss : {GL(ORBStandard8PixelType, 12), GL(L("rgba", 8, 8, 8, 7), 0), GL(L("a", 8), 4)})
    {
        EXPECT_FALSE(miss.ok);
        EXPECT_EQ(miss.internal | miss.base | miss.format | miss.type | miss.size, 0u);
    }
}

TEST(FormatMaps, OpenGLNamedFormats)
{
    GLOut o = GL(ePF_ASTC_6x6, 0, kLin);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.internal, 0x93B4u);
    EXPECT_EQ(o.base, 0x1908u);
    EXPECT_EQ(o.format, 0u);
    EXPECT_EQ(o.type, 0u);
    EXPECT_EQ(o.size, 1u);
    EXPECT_EQ(GL(ePF_ASTC_6x6, 0, kSRGB).internal, 0x93D4u);
    EXPECT_EQ(GL(ePF_ASTC_4x4, 0).internal, 0x93B0u);
    EXPECT_EQ(GL(ePF_ASTC_12x12, 0, kSRGB).internal, 0x93DDu);
    EXPECT_EQ(GL(ePF_ASTC_3x3x3, 0).internal, 0x93C0u);
    EXPECT_EQ(GL(ePF_ASTC_6x6x6, 0, kSRGB).internal, 0x93E9u);

    EXPECT_EQ(GL(ePF_DXT1, 0).internal, 0x83F0u);
    EXPECT_EQ(GL(ePF_DXT1, 0).base, 0x1907u);
    EXPECT_EQ(GL(ePF_DXT2, 0).internal, 0x83F2u);
    EXPECT_EQ(GL(ePF_DXT3, 0).internal, 0x83F2u);
    EXPECT_EQ(GL(ePF_DXT4, 0).internal, 0x83F3u);
    EXPECT_EQ(GL(ePF_DXT5, 0, kSRGB).internal, 0x83F3u);
    EXPECT_EQ(GL(ePF_ETC1, 0, kSRGB).internal, 0x8D64u);
    EXPECT_EQ(GL(ePF_ORBTC_2bpp_RGB, 0).internal, 0x8C01u);
    EXPECT_EQ(GL(ePF_ORBTC_4bpp_RGBA, 0).internal, 0x8C02u);
    EXPECT_EQ(GL(ePF_ORBTCII_4bpp, 0).internal, 0x9138u);
    EXPECT_EQ(GL(ePF_ETC2_RGB, 0, kSRGB).internal, 0x9275u);
    EXPECT_EQ(GL(ePF_ETC2_RGBA, 0, kLin).internal, 0x9278u);
    EXPECT_EQ(GL(ePF_ETC2_RGB_A1, 0, kSRGB).internal, 0x9277u);
    EXPECT_EQ(GL(ePF_ETC2_RGB_A1, 0).base, 0x1908u);

    // EAC: the signed form for signed, integer and float types.
    for (unsigned t = 0; t < eNumVarTypes; ++t)
    {
        const bool isSigned = t == 1 || t == 3 || t == 5 || t == 7 || t == 9 || t == 11 || t == 12;
        EXPECT_EQ(GL(ePF_EAC_R11, t).internal, isSigned ? 0x9271u : 0x9270u) << t;
        EXPECT_EQ(GL(ePF_EAC_RG11, t, kSRGB).internal, isSigned ? 0x9273u : 0x9272u) << t;
    }
    EXPECT_EQ(GL(ePF_EAC_R11, 0).base, 0x1903u);  // GL_RED
    EXPECT_EQ(GL(ePF_EAC_RG11, 0).base, 0x8227u); // GL_RG

    // RGB9E5, any channel type.
    o = GL(ePF_RGB9E5, 5);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.internal, 0x8C3Du);
    EXPECT_EQ(o.base, 0x1907u);
    EXPECT_EQ(o.format, 0x1907u);
    EXPECT_EQ(o.type, 0x8C3Eu);
    EXPECT_EQ(o.size, 4u);

    // Unknown named formats: internal outputs untouched, format and type 0, size 1.
    for (unsigned long long f : {12ull, 15ull, 16ull, 18ull, 20ull, 21ull, 51ull, 0xFFFFFFFFull, 0xFFFFFFFEull})
    {
        o = GL(f, 0);
        EXPECT_FALSE(o.ok) << f;
        EXPECT_EQ(o.internal, kSentinel);
        EXPECT_EQ(o.base, kSentinel);
        EXPECT_EQ(o.format, 0u);
        EXPECT_EQ(o.type, 0u);
        EXPECT_EQ(o.size, 1u);
    }
}

TEST(FormatMaps, OpenGLInverse)
{
    EXPECT_TRUE(Is(FromGL(0x8058, 0), Expect(ORBStandard8PixelType, 0, 0)));
    EXPECT_TRUE(Is(FromGL(0x8C43, 0), Expect(ORBStandard8PixelType, 0, 1)));
    EXPECT_TRUE(Is(FromGL(0x83F2, 0), Expect(ePF_DXT3, 0)));
    EXPECT_TRUE(Is(FromGL(0x83F3, 0), Expect(ePF_DXT5, 0)));
    EXPECT_TRUE(Is(FromGL(0x9279, 0), Expect(ePF_ETC2_RGBA, 0, 1)));
    EXPECT_TRUE(Is(FromGL(0x9271, 0), Expect(ePF_EAC_R11, 1)));
    EXPECT_TRUE(Is(FromGL(0x9273, 0), Expect(ePF_EAC_RG11, 1)));
    EXPECT_TRUE(Is(FromGL(0x93D4, 0), Expect(ePF_ASTC_6x6, 0, 1)));
    EXPECT_TRUE(Is(FromGL(0x8C03, 0), Expect(ePF_ORBTC_2bpp_RGBA, 0)));
    EXPECT_TRUE(Is(FromGL(0x8C3D, 0x8C3E), Expect(ePF_RGB9E5, 13)));
    EXPECT_TRUE(Is(FromGL(0x8D70, 0), Expect(ORBStandard32PixelType, 11)));
    EXPECT_TRUE(Is(FromGL(0x8D82, 0), Expect(ORBStandard32PixelType, 10)));
    EXPECT_TRUE(Is(FromGL(0x803E, 0), Expect(L("a", 16), 0)));
    EXPECT_TRUE(Is(FromGL(0x8042, 0), Expect(L("l", 16), 0)));
    EXPECT_TRUE(Is(FromGL(0x9018, 0), Expect(L("a", 16), 1)));
    EXPECT_TRUE(Is(FromGL(0x9019, 0), Expect(L("l", 16), 1)));
    EXPECT_TRUE(Is(FromGL(0x8059, 0), Expect(L("rgba", 10, 10, 10, 2), 8)));
    EXPECT_TRUE(Is(FromGL(0x906F, 0), Expect(L("rgba", 10, 10, 10, 2), 10)));
    EXPECT_TRUE(Is(FromGL(0x8052, 0), Expect(L("rgbx", 10, 10, 10, 2), 8)));
    EXPECT_TRUE(Is(FromGL(0x8D62, 0), Expect(L("rgb", 5, 6, 5), 4)));

    // Unsized internal formats by type; the format argument is never read.
    EXPECT_TRUE(Is(FromGL(0x1908, 0x1403, 0xFFFF), Expect(ORBStandard16PixelType, 4)));
    EXPECT_TRUE(Is(FromGL(0x1908, 0x1405), Expect(ORBStandard32PixelType, 8)));
    EXPECT_TRUE(Is(FromGL(0x1903, 0x1400), Expect(L("r", 8), 1)));
    EXPECT_TRUE(Is(FromGL(0x1906, 0x1402), Expect(L("a", 16), 5)));
    EXPECT_TRUE(Is(FromGL(0x1909, 0x1401), Expect(L("l", 8), 0)));
    EXPECT_TRUE(Is(FromGL(0x190A, 0x1404), Expect(L("la", 32, 32), 9)));
    EXPECT_TRUE(Is(FromGL(0x8227, 0x1403), Expect(L("rg", 16, 16), 4)));
    EXPECT_TRUE(Is(FromGL(0x1907, 0x1401), Expect(L("rgb", 8, 8, 8), 0)));
    EXPECT_TRUE(Is(FromGL(0x1907, 0x8032), Expect(L("rgb", 3, 3, 2), 0)));
    EXPECT_TRUE(Is(FromGL(0x1907, 0x8363), Expect(L("rgb", 5, 6, 5), 4)));
    EXPECT_TRUE(Is(FromGL(0x1908, 0x8033), Expect(L("rgba", 4, 4, 4, 4), 4)));
    EXPECT_TRUE(Is(FromGL(0x1908, 0x8034), Expect(L("rgba", 5, 5, 5, 1), 4)));
    EXPECT_TRUE(Is(FromGL(0x80E1, 0x1401), Expect(L("bgra", 8, 8, 8, 8), 0)));

    // Not recognised: outputs untouched.
    for (const Desc& miss :
         {FromGL(0x8048, 0x1403), FromGL(0x901A, 0x1402), FromGL(0x1907, 0x8033), FromGL(0x1908, 0x1406),
          FromGL(0x80E1, 0x1403), FromGL(0x1903, 0), FromGL(0, 0x1401), FromGL(0x83F1, 0), FromGL(0xFFFFFFFF, 0)})
        EXPECT_TRUE(SameDesc(miss, kUnset));
}

TEST(FormatMaps, Direct3D)
{
    EXPECT_EQ(D3D(L("argb", 8, 8, 8, 8), 0), 21u);
    EXPECT_EQ(D3D(L("argb", 8, 8, 8, 8), 8, kSRGB), 21u);
    EXPECT_EQ(D3D(L("argb", 8, 8, 8, 8), 4), 0u);
    EXPECT_EQ(D3D(L("rgb", 5, 6, 5), 4), 23u);
    EXPECT_EQ(D3D(L("rgb", 5, 6, 5), 0), 0u);
    EXPECT_EQ(D3D(L("l", 16), 4), 81u);
    EXPECT_EQ(D3D(L("gr", 16, 16), 9), 64u);
    EXPECT_EQ(D3D(L("gr", 16, 16), 12), 112u);
    EXPECT_EQ(D3D(L("abgr", 2, 10, 10, 10), 9), 67u);
    EXPECT_EQ(D3D(L("abgr", 32, 32, 32, 32), 12), 116u);
    EXPECT_EQ(D3D(L("r", 16), 12), 111u);
    EXPECT_EQ(D3D(ORBStandard8PixelType, 0), 0u);
    EXPECT_EQ(D3D(L("r", 16), 0xFFFFFFFFu), 0u); // a row without a second type matches no stray type

    EXPECT_EQ(D3D(ePF_DXT1, 5), 0x31545844u); // "DXT1"
    EXPECT_EQ(D3D(ePF_DXT2, 0), FourCC("DXT2"));
    EXPECT_EQ(D3D(ePF_ORBTC_2bpp_RGB, 0), FourCC("OTC2"));
    EXPECT_EQ(D3D(ePF_ORBTC_2bpp_RGBA, 0), FourCC("OTC2"));
    EXPECT_EQ(D3D(ePF_ORBTC_4bpp_RGB, 0), FourCC("OTC4"));
    EXPECT_EQ(D3D(ePF_UYVY, 0), FourCC("UYVY"));
    EXPECT_EQ(D3D(ePF_GRGB8888, 0), FourCC("GRGB"));
    for (unsigned long long f : {4ull, 6ull, 12ull, 18ull, 19ull, 22ull, 31ull, 51ull, 0xFFFFFFFFull})
        EXPECT_EQ(D3D(f, 0), 0u) << f;

    EXPECT_TRUE(Is(FromD3D(FourCC("DXT2")), Expect(ePF_DXT2, 0, 0, true)));
    EXPECT_TRUE(Is(FromD3D(FourCC("DXT4")), Expect(ePF_DXT4, 0, 0, true)));
    EXPECT_TRUE(Is(FromD3D(FourCC("DXT3")), Expect(ePF_DXT3, 0, 0, false)));
    EXPECT_TRUE(Is(FromD3D(FourCC("OTC2")), Expect(ePF_ORBTC_2bpp_RGBA, 0, 0, false)));
    EXPECT_TRUE(Is(FromD3D(FourCC("OTC4")), Expect(ePF_ORBTC_4bpp_RGBA, 0, 0, false)));
    EXPECT_TRUE(Is(FromD3D(21), Expect(L("argb", 8, 8, 8, 8), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(28), Expect(L("a", 8), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(36), Expect(L("abgr", 16, 16, 16, 16), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(60), Expect(L("gr", 8, 8), 9, 0, false)));
    EXPECT_TRUE(Is(FromD3D(111), Expect(L("r", 32), 12, 0, false)));
    EXPECT_TRUE(Is(FromD3D(115), Expect(L("gr", 32, 32), 12, 0, false)));
    EXPECT_TRUE(Is(FromD3D(30), Expect(L("argb", 4, 4, 4, 4), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(32), Expect(L("abgr", 8, 8, 8, 8), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(33), Expect(L("xbgr", 8, 8, 8, 8), 8, 0, false)));
    EXPECT_TRUE(Is(FromD3D(110), Expect(L("abgr", 16, 16, 16, 16), 9, 0, false)));
    for (unsigned code : {0u, 1u, 19u, 37u, 80u, 117u, FourCC("DXT6"), FourCC("ATI2"), 0xFFFFFFFFu})
        EXPECT_TRUE(SameDesc(FromD3D(code), kUnset)) << code;
}

TEST(FormatMaps, DXGI)
{
    EXPECT_EQ(DXGI(ePF_DXT5, 8), 77u);
    EXPECT_EQ(DXGI(ePF_DXT5, 8, kSRGB), 78u);
    EXPECT_EQ(DXGI(ePF_DXT1, 0), 0u);
    EXPECT_EQ(DXGI(ePF_DXT2, 8), 0u);
    EXPECT_EQ(DXGI(ePF_BC4, 8, kSRGB), 80u);
    EXPECT_EQ(DXGI(ePF_BC4, 9), 81u);
    EXPECT_EQ(DXGI(ePF_BC5, 9), 84u);
    EXPECT_EQ(DXGI(ePF_BC5, 0), 0u);
    EXPECT_EQ(DXGI(ePF_BW1bpp, 13), 66u);
    EXPECT_EQ(DXGI(ePF_RGBG8888, 0, kSRGB), 68u);
    EXPECT_EQ(DXGI(ePF_BC7, 8), 0u);
    EXPECT_EQ(DXGI(ORBStandard8PixelType, 0, kSRGB), 29u);
    EXPECT_EQ(DXGI(ORBStandard8PixelType, 0, EORBTColourSpace(7)), 28u);
    EXPECT_EQ(DXGI(ORBStandard8PixelType, 3), 32u);
    EXPECT_EQ(DXGI(ORBStandard16PixelType, 12), 10u);
    EXPECT_EQ(DXGI(ORBStandard32PixelType, 12, kSRGB), 2u);
    EXPECT_EQ(DXGI(L("bgrx", 8, 8, 8, 8), 0, kSRGB), 93u);
    EXPECT_EQ(DXGI(L("bgra", 8, 8, 8, 8), 0, kSRGB), 91u);
    EXPECT_EQ(DXGI(L("rgb", 5, 6, 5), 4), 85u);
    EXPECT_EQ(DXGI(L("argb", 4, 4, 4, 4), 4), 115u);
    EXPECT_EQ(DXGI(L("rgba", 10, 10, 10, 2), 10), 25u);
    EXPECT_EQ(DXGI(L("rgb", 11, 11, 10), 12), 26u);
    EXPECT_EQ(DXGI(L("r", 16), 6), 57u);
    EXPECT_EQ(DXGI(L("a", 8), 1), 0u);
    EXPECT_EQ(DXGI(L("rgb", 8, 8, 8), 0), 0u);

    EXPECT_TRUE(Is(FromDXGI(65), Expect(L("r", 8), 0)));
    EXPECT_TRUE(Is(FromDXGI(80), Expect(ePF_BC4, 8, 1)));
    EXPECT_TRUE(Is(FromDXGI(81), Expect(ePF_BC4, 9, 0)));
    EXPECT_TRUE(Is(FromDXGI(72), Expect(ePF_DXT1, 8, 1)));
    EXPECT_TRUE(Is(FromDXGI(66), Expect(ePF_BW1bpp, 0)));
    EXPECT_TRUE(Is(FromDXGI(69), Expect(ePF_GRGB8888, 0)));
    EXPECT_TRUE(Is(FromDXGI(29), Expect(ORBStandard8PixelType, 0, 1)));
    EXPECT_TRUE(Is(FromDXGI(93), Expect(L("bgrx", 8, 8, 8, 8), 0, 1)));
    EXPECT_TRUE(Is(FromDXGI(67), Expect(ePF_RGB9E5, 12)));
    EXPECT_TRUE(Is(FromDXGI(96), Expect(ePF_BC7, 12, 1)));
    EXPECT_TRUE(Is(FromDXGI(98), Expect(ePF_BC7, 8, 0)));
    EXPECT_TRUE(Is(FromDXGI(99), Expect(ePF_BC7, 8, 1)));
    EXPECT_TRUE(Is(FromDXGI(107), Expect(ePF_YUY2, 8)));
    EXPECT_TRUE(Is(FromDXGI(111), Expect(L("ai", 4, 4), 0)));
    EXPECT_TRUE(Is(FromDXGI(112), Expect(L("ia", 4, 4), 0)));
    for (unsigned code : {0u, 1u, 5u, 70u, 73u, 95u, 97u, 116u, 132u, 0xFFFFFFFFu})
        EXPECT_TRUE(SameDesc(FromDXGI(code), kUnset)) << code;
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
        EXPECT_TRUE(Is(back, want)) << std::hex << in.format << std::dec << " type " << in.type << " space "
                                    << in.space;
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
        EXPECT_TRUE(Is(FromD3D(code), want)) << std::hex << in.format << std::dec << " type " << in.type;
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
        EXPECT_TRUE(Is(FromDXGI(code), want)) << std::hex << in.format << std::dec << " type " << in.type;
    }
    EXPECT_EQ(namedHits, 3u * 2 + 4 * 2 + 3 * 14 * 2);
    EXPECT_EQ(layoutHits, 96u);
}

// The inverse maps accept any word: false leaves every output as it was.
TEST(FormatMaps, InverseFailuresLeaveOutputs)
{
    std::vector<unsigned> codes;
    for (unsigned c = 0; c < 0x10000; ++c)
        codes.push_back(c);
    for (unsigned c : {0x10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
        codes.push_back(c);
    for (unsigned c : codes)
    {
        const Desc d3d = FromD3D(c), dxgi = FromDXGI(c), gl = FromGL(c, c & 0xFFFF, c);
        for (const Desc& d : {d3d, dxgi, gl})
        {
            if (!d.ok)
            {
                EXPECT_TRUE(SameDesc(d, kUnset)) << c;
            }
        }
    }
}

TEST(FormatMaps, HeaderGetters)
{
    CORBTextureHeader header(ORBStandard8PixelType, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB, eVarUnsignedByteNorm);
    uint32_t internal = 0, format = 0, type = 0;
    EXPECT_TRUE(header.getOGLFormat(internal, format, type));
    EXPECT_EQ(internal, 0x8C43u);
    EXPECT_EQ(format, 0x1908u);
    EXPECT_EQ(type, 0x1401u);
    internal = 0;
    EXPECT_TRUE(header.getOGLESFormat(internal, format, type));
    EXPECT_EQ(internal, 0x1908u);
    EXPECT_EQ(header.getDXGIFormat(), 29u);
    EXPECT_EQ(header.getD3DFormat(), 0u);

    header.setPixelFormat(L("argb", 8, 8, 8, 8));
    EXPECT_EQ(header.getD3DFormat(), 21u);
    EXPECT_EQ(header.getDXGIFormat(), 0u);
    EXPECT_FALSE(header.getOGLFormat(internal, format, type));

    header.setPixelFormat(uint64_t(ePF_ETC2_RGB));
    EXPECT_TRUE(header.getOGLESFormat(internal, format, type));
    EXPECT_EQ(internal, 0x1907u);
    EXPECT_EQ(format, 0u);
    EXPECT_TRUE(header.getOGLFormat(internal, format, type));
    EXPECT_EQ(internal, 0x9275u);
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
