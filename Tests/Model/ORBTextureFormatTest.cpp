// Pixel types, format sizes and names, and the maps to and from the graphics APIs' format codes.

#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "Model/ORBTextureSizeRules.h"
#include "ORBTextureFormat.h"
#include "ORBTextureHeader.h"
#include "ORBTextureInfo.h"

using namespace orbtexture;

namespace
{

ORBTextureHeaderV3 Header(uint64_t format, uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1,
                          uint32_t surfaces = 1, uint32_t faces = 1)
{
    ORBTextureHeaderV3 h;
    h.pixelFormat = format;
    h.width = width;
    h.height = height;
    h.depth = depth;
    h.numMIPMaps = mips;
    h.numSurfaces = surfaces;
    h.numFaces = faces;
    return h;
}

// Codes below are written as the registries publish them, not taken from the
// library's own constants.

uint64_t L(const char* names, uint8_t w0, uint8_t w1 = 0, uint8_t w2 = 0, uint8_t w3 = 0)
{
    const size_t n = std::strlen(names);
    return PixelType(names[0], n > 1 ? names[1] : 0, n > 2 ? names[2] : 0, n > 3 ? names[3] : 0, w0, w1, w2, w3)
        .PixelTypeID;
}

EORBTVariableType VT(unsigned v) { return EORBTVariableType(v); }
bool SignedType(unsigned t) { return t == 1 || t == 3 || t == 5 || t == 7 || t == 9 || t == 11 || t == 12; }

constexpr EORBTColourSpace kLin = eColourSpaceLinear, kSRGB = eColourSpaceSRGB;
constexpr unsigned kSentinel = 0xDEADBEEFu;
constexpr unsigned X = 0xA11A11u; // an output a row does not compare

// OpenGL outputs: ok, internal format, base internal format, format, type, type size.
std::array<unsigned, 6> GL(uint64_t pixelFormat, unsigned channelType, EORBTColourSpace space = kLin)
{
    std::array<unsigned, 6> o = {0, kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
    o[0] = getOpenGLFormat(pixelFormat, VT(channelType), space, o[1], o[2], o[3], o[4], o[5]);
    return o;
}

// An inverse map's answer: ok, format, channel type, colour space, premultiplied.
typedef std::tuple<bool, unsigned long long, unsigned, unsigned, bool> Desc;
const Desc kUnset{false, 0x1234567890ULL, 77, 5, true}; // outputs as preset

template <typename Call>
Desc Inverse(Call call)
{
    unsigned long long format = std::get<1>(kUnset);
    EORBTVariableType type = VT(std::get<2>(kUnset));
    EORBTColourSpace space = EORBTColourSpace(std::get<3>(kUnset));
    bool premultiplied = std::get<4>(kUnset);
    const bool ok = call(format, type, space, premultiplied);
    return Desc{ok, format, type, space, premultiplied};
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

Desc Expect(unsigned long long format, unsigned type, unsigned space = 0, bool preMultiplied = std::get<4>(kUnset))
{
    return Desc{true, format, type, space, preMultiplied};
}

// A Direct3D or DXGI code; 0 exactly when the map fails.
template <typename Map>
unsigned Code(Map map, uint64_t pixelFormat, unsigned channelType, EORBTColourSpace space = kLin)
{
    unsigned code = kSentinel;
    const bool ok = map(pixelFormat, VT(channelType), space, code);
    EXPECT_EQ(ok, code != 0);
    return code;
}

unsigned FourCC(const char* s)
{
    return unsigned(uint8_t(s[0])) | unsigned(uint8_t(s[1])) << 8 | unsigned(uint8_t(s[2])) << 16 |
           unsigned(uint8_t(s[3])) << 24;
}

// A forward row: format, channel type, colour space, code.
using Forward = std::tuple<uint64_t, unsigned, EORBTColourSpace, unsigned>;

} // namespace

TEST(FormatSizes, BlocksMinimaAndLevels)
{
    const std::pair<ORBTextureHeaderV3, uint32_t> sizes[] = {
        {Header(ePF_BC6, 20, 20), 0},
        {Header(ePF_DXT1, 5, 5), 32},
        {Header(ePF_ORBTC_4bpp_RGB, 1, 1), 32},
        {Header(ePF_ORBTCII_2bpp, 9, 3), 16}, // blocks of 8 x 4 pixels, 8 bytes each
        {Header(ePF_ASTC_5x4, 7, 7), 64},
        {Header(ePF_ASTC_3x3x3, 4, 4, 4), 128},
        // A level below the minimum block still takes a whole block.
        {Header(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 5), 128 + 4 * 32},
        // 'r' at 4 bits, 3x1 with 2 levels: the bits of both levels are summed, then truncated.
        {Header(PixelType('r', 0, 0, 0, 4, 0, 0, 0).PixelTypeID, 3, 1, 1, 2), 2},
        // 4 bytes x 2^30 members x 4 faces wraps to 0.
        {Header(ORBStandard8PixelType, 1, 1, 1, 1, 1u << 30, 4), 0},
    };
    for (const auto& [header, bytes] : sizes)
        EXPECT_EQ(ORBTGetTextureDataSize(header), bytes) << ORBTGetPixelFormatName(header.pixelFormat).c_str();
    EXPECT_EQ(ORBTGetBitsPerPixel(52) + ORBTGetBitsPerPixel(0xFFFFFFFFu), 0u);

    // Minimum dimensions: ORBTC 2bpp 16x8, ASTC its block, everything else 1x1x1.
    const auto minimum = [](uint64_t format) {
        unsigned x, y, z;
        ORBTGetFormatMinDims(format, x, y, z);
        return std::to_string(x) + "x" + std::to_string(y) + "x" + std::to_string(z);
    };
    EXPECT_EQ(minimum(ePF_ORBTC_2bpp_RGBA) + " " + minimum(ePF_ASTC_6x5x5), "16x8x1 6x5x5");
    for (uint64_t oneByOne : {uint64_t(ePF_RGB9E5), uint64_t(ePF_BC7), uint64_t(ePF_NumCompressed), uint64_t(60),
                              ORBStandard32PixelType})
        EXPECT_EQ(minimum(oneByOne), "1x1x1") << oneByOne;

    // rgba8 8x4 with 4 levels: 128 + 32 + 8 + 4 bytes (the last level is 1x1);
    // the level is not checked against the count.
    ORBTextureHeaderV3 h = Header(ORBStandard8PixelType, 8, 4, 1, 4, 3, 2);
    const auto size = [&h](int mip, bool all, bool faces) { return ORBTGetTextureDataSize(h, mip, all, faces); };
    EXPECT_EQ((std::array<uint32_t, 6>{size(3, 0, 0), size(9, 0, 0), size(-1, 0, 0), size(-1, 1, 0), size(-1, 0, 1),
                                       size(-1, 1, 1)}),
              (std::array<uint32_t, 6>{4, 4, 172, 516, 344, 1032}));
    h.numMIPMaps = 0;
    EXPECT_EQ(ORBTGetTextureDataSize(h), 0u);
}

TEST(SizeRules, LevelsNeverReachZeroAndTotalsAreChecked)
{
    EXPECT_EQ(LevelDimension(256, 3), 32u);
    for (const auto& [size, level] : {std::make_pair(5u, 3u), {0x80000000u, 31u}, {0xFFFFFFFFu, 0xFFFFFFFFu}, {0u, 0u}})
        EXPECT_EQ(LevelDimension(size, level), 1u) << size << " " << level;
    for (uint64_t format : {ORBStandard8PixelType, uint64_t(ePF_ORBTC_2bpp_RGB), uint64_t(ePF_ASTC_4x4x4)})
    {
        const ORBTextureHeaderV3 h = Header(format, 0xFFFFFFFFu, 3, 70000, 40);
        uint64_t naive = 0;
        for (uint32_t mip = 0; mip < 40; ++mip)
            naive += SurfaceBits(h, mip);
        EXPECT_EQ(SumSurfaceBits(h, 40), naive);
    }

    uint64_t total = 0;
    EXPECT_TRUE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 32768, 32767), total));
    EXPECT_EQ(total, 4294836224u);
    EXPECT_FALSE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 32768, 32768), total));
    EXPECT_FALSE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 1, 1, 1, 1, 1u << 30, 4), total));
    // Dimensions whose bit count overflows 64 bits must not wrap into a small size.
    EXPECT_FALSE(CheckedTotalDataSize(Header(ORBStandard32PixelType, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), total));
    // Billions of 1x1 levels of a 1-bit layout still fit, and are summed without a long loop.
    const ORBTextureHeaderV3 deep = Header(PixelType('r', 0, 0, 0, 1, 0, 0, 0).PixelTypeID, 1, 1, 1, 0xFFFFFFFFu);
    EXPECT_TRUE(CheckedTotalDataSize(deep, total));
    EXPECT_EQ(total, 0xFFFFFFFFull / 8);
    EXPECT_EQ(ORBTGetTextureDataSize(deep), uint32_t(0xFFFFFFFFull / 8));
}

TEST(FormatNames, LayoutsNamedFormatsAndChannelTypes)
{
    const PixelType rgb565('r', 'g', 'b', 0, 5, 6, 5, 0);
    EXPECT_EQ(rgb565.lowWord(), 0x00626772u);
    EXPECT_EQ(rgb565.highWord(), 0x00050605u);
    EXPECT_EQ(ORBTGetBitsPerPixel(rgb565.PixelTypeID), 16u);
    EXPECT_TRUE(PixelType(ePF_ETC1).isNamedFormat() && !rgb565.isNamedFormat());

    // Channel letters: r g b a l i x, and none for anything else.
    EXPECT_EQ(MapCharToEnum('x'), eChannelUnspecified);
    EXPECT_EQ(MapCharToEnum('R'), eChannelNone);
    EXPECT_EQ(MapEnumToChar(eChannelIntensity), 'i');
    EXPECT_EQ(MapEnumToChar(EChannelName(8)), 0);
    // The standard types: rgba of 8, 16 and 32 bits in normalised integers, and 32-bit floats.
    const std::tuple<uint64_t, unsigned, bool> standards[] = {
        {ORBStandard8PixelType, 0, true},  {ORBStandard16PixelType, 4, true}, {ORBStandard32PixelType, 8, true},
        {ORBStandard32PixelType, 12, true}, {ORBStandard8PixelType, 2, false}, {ORBStandard16PixelType, 0, false},
        {ORBStandard32PixelType, 13, false}, {L("bgra", 8, 8, 8, 8), 0, false}};
    for (const auto& [format, type, standard] : standards)
        EXPECT_EQ(isStandardPixelType(format, VT(type)), standard) << std::hex << format << " " << type;

    uint64_t parsed = 0;
    for (uint32_t format = 0; format < ePF_NumCompressed; ++format)
    {
        std::string name = ORBTGetPixelFormatName(format).c_str();
        ASSERT_FALSE(name.empty());
        for (char& c : name)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_TRUE(ORBTGetPixelFormatFromName(name.c_str(), parsed) && parsed == format) << name;
    }
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_ETC2_RGB_A1).c_str(), "ETC2_RGB_A1");
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_ASTC_6x6x5).c_str(), "ASTC_6x6x5");
    // The empty value has a name to show, but is no target to ask for.
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_NumCompressed).c_str(), "NumCompressed");
    EXPECT_FALSE(ORBTGetPixelFormatFromName("NumCompressed", parsed));
    EXPECT_STREQ(ORBTGetPixelFormatName(52).c_str(), "");

    ASSERT_TRUE(ORBTGetPixelFormatFromName("R5g6B5", parsed));
    EXPECT_EQ(parsed, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID);
    EXPECT_STREQ(ORBTGetPixelFormatName(parsed).c_str(), "r5g6b5");
    ASSERT_TRUE(ORBTGetPixelFormatFromName("a1r5g5b5", parsed));
    EXPECT_STREQ(ORBTGetPixelFormatName(parsed).c_str(), "a1r5g5b5");
    EXPECT_STREQ(ORBTGetPixelFormatName(PixelType('r', 1, 0, 0, 8, 8, 0, 0).PixelTypeID).c_str(), "r8?8");
    const std::pair<const char*, const char*> bad[] = {
        {"", "unknown format ''"},
        {"r9q", "unknown format 'r9q': unknown channel letter 'q'"},
        {"r8g8r8", "unknown format 'r8g8r8': channel 'r' appears twice"},
        {"r7", "unknown format 'r7': 7 bits per pixel is not a whole number of bytes"},
        {"r33", "unknown format 'r33': channel 'r' needs a width of 1 to 32 bits"},
        {"r0", "unknown format 'r0': channel 'r' needs a width of 1 to 32 bits"},
        {"rgba", "unknown format 'rgba': channel 'r' needs a width of 1 to 32 bits"},
        {"r8g8b8a8l8", "unknown format 'r8g8b8a8l8': more than four channels"},
    };
    for (const auto& [name, reason] : bad)
    {
        EXPECT_FALSE(ORBTGetPixelFormatFromName(name, parsed));
        EXPECT_STREQ(ORBTGetLastError(), reason);
    }

    for (uint32_t type = 0; type < eNumVarTypes; ++type)
        for (const char* name : {ORBTGetChannelTypeName(type), ORBTGetChannelTypeShortName(type)})
        {
            uint32_t back = 99;
            EXPECT_TRUE(ORBTGetChannelTypeFromName(name, back) && back == type) << name;
        }
    uint32_t type;
    EXPECT_TRUE(ORBTGetChannelTypeFromName("SIGNEDFLOAT", type));
    EXPECT_EQ(type, uint32_t(eVarSignedFloat));
    EXPECT_FALSE(ORBTGetChannelTypeFromName("float", type));
    EXPECT_EQ(ORBTGetChannelTypeName(eNumVarTypes), nullptr);
}

TEST(FormatMaps, OpenGL)
{
    const struct
    {
        uint64_t format;
        unsigned type;
        EORBTColourSpace space;
        unsigned internal, base, glFormat, glType, size;
    } rows[] = {
        {ORBStandard8PixelType, 0, kLin, 0x8058, 0x1908, 0x1908, 0x1401, 1}, // GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE
        {ORBStandard8PixelType, 0, kSRGB, 0x8C43, X, X, X, X},               // GL_SRGB8_ALPHA8
        {ORBStandard32PixelType, 10, kLin, 0x8D70, 0x8D99, 0x8D99, 0x1405, 4}, // GL_RGBA32UI, GL_RGBA_INTEGER
        {L("abgr", 2, 10, 10, 10), 8, kLin, 0x8059, X, X, 0x8368, X}, // GL_RGB10_A2, ..._2_10_10_10_REV
        {L("rgb", 11, 11, 10), 13, kLin, 0x8C3A, X, X, 0x8C3B, X},     // GL_R11F_G11F_B10F
        {L("r", 16), 7, kLin, 0x8233, X, 0x8D94, 0x1402, 2},           // GL_R16I, GL_RED_INTEGER, GL_SHORT
        {L("rgb", 5, 6, 5), 4, kLin, X, X, X, 0x8363, X},              // GL_UNSIGNED_SHORT_5_6_5
        // Named formats: no format or type.
        {ePF_ASTC_6x6, 0, kLin, 0x93B4, 0x1908, 0, 0, 1},
        {ePF_DXT1, 0, kLin, 0x83F0, 0x1907, X, X, X},
        {ePF_ETC1, 0, kSRGB, 0x8D64, X, X, X, X},
        {ePF_ETC2_RGB_A1, 0, kSRGB, 0x9277, 0x1908, X, X, X},
        {ePF_RGB9E5, 5, kLin, 0x8C3D, 0x1907, 0x1907, 0x8C3E, 4}, // any channel type
    };
    for (const auto& r : rows)
    {
        const auto o = GL(r.format, r.type, r.space);
        EXPECT_TRUE(o[0]);
        const unsigned want[] = {r.internal, r.base, r.glFormat, r.glType, r.size};
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(want[i] == X || o[i + 1] == want[i])
                << std::hex << r.format << " type " << r.type << " output " << i << ": " << o[i + 1];
    }
    // EAC: the signed form for signed, integer and float types.
    for (unsigned t = 0; t < eNumVarTypes; ++t)
    {
        EXPECT_EQ(GL(ePF_EAC_R11, t)[1], SignedType(t) ? 0x9271u : 0x9270u) << t;
        EXPECT_EQ(GL(ePF_EAC_RG11, t, kSRGB)[1], SignedType(t) ? 0x9273u : 0x9272u) << t;
    }
    // Channel type or width not in the table: all five outputs 0.
    for (const auto& miss : {GL(ORBStandard8PixelType, 12), GL(L("rgba", 8, 8, 8, 7), 0), GL(L("a", 8), 4)})
        EXPECT_EQ(miss, (std::array<unsigned, 6>{}));
    // Unknown named formats: internal outputs untouched, format and type 0, size 1.
    for (unsigned long long f : {12ull, 15ull, 16ull, 18ull, 20ull, 21ull, 51ull, 0xFFFFFFFFull, 0xFFFFFFFEull})
        EXPECT_EQ(GL(f, 0), (std::array<unsigned, 6>{0, kSentinel, kSentinel, 0, 0, 1})) << f;

    // Inverse codes that no forward row leads to; unsized internal formats go by type, the format is never read.
    EXPECT_EQ(FromGL(0x9279, 0), Expect(ePF_ETC2_RGBA, 0, 1));
    EXPECT_EQ(FromGL(0x8D82, 0), Expect(ORBStandard32PixelType, 10));
    EXPECT_EQ(FromGL(0x1908, 0x1403, 0xFFFF), Expect(ORBStandard16PixelType, 4));
    EXPECT_EQ(FromGL(0x1903, 0x1400), Expect(L("r", 8), 1));
    EXPECT_EQ(FromGL(0x1907, 0x8032), Expect(L("rgb", 3, 3, 2), 0));
    EXPECT_EQ(FromGL(0x80E1, 0x1401), Expect(L("bgra", 8, 8, 8, 8), 0));
    for (const Desc& miss :
         {FromGL(0x8048, 0x1403), FromGL(0x901A, 0x1402), FromGL(0x1907, 0x8033), FromGL(0x1908, 0x1406),
          FromGL(0x80E1, 0x1403), FromGL(0x1903, 0), FromGL(0, 0x1401), FromGL(0x83F1, 0), FromGL(0xFFFFFFFF, 0)})
        EXPECT_EQ(miss, kUnset);
}

TEST(FormatMaps, Direct3DAndDXGI)
{
    const Forward d3d[] = {
        {L("argb", 8, 8, 8, 8), 0, kLin, 21}, {L("argb", 8, 8, 8, 8), 8, kSRGB, 21}, {L("argb", 8, 8, 8, 8), 4, kLin, 0},
        {L("rgb", 5, 6, 5), 4, kLin, 23},     {L("rgb", 5, 6, 5), 0, kLin, 0},        {L("argb", 1, 5, 5, 5), 4, kLin, 25},
        {L("gr", 16, 16), 12, kLin, 112},     {L("abgr", 2, 10, 10, 10), 9, kLin, 67},
        {L("r", 16), 0xFFFFFFFFu, kLin, 0}, // a row without a second type matches no stray type
        {ePF_DXT1, 5, kLin, 0x31545844u},   {ePF_ORBTC_2bpp_RGBA, 0, kLin, FourCC("OTC2")},
        {ePF_UYVY, 0, kLin, FourCC("UYVY")}, {ePF_GRGB8888, 0, kLin, FourCC("GRGB")},
    };
    for (const auto& [format, type, space, code] : d3d)
        EXPECT_EQ(Code(getDirect3DFormat, format, type, space), code) << std::hex << format << " type " << type;
    for (unsigned long long f : {4ull, 6ull, 12ull, 18ull, 19ull, 22ull, 31ull, 51ull, 0xFFFFFFFFull})
        EXPECT_EQ(Code(getDirect3DFormat, f, 0), 0u) << f;
    EXPECT_EQ(FromD3D(FourCC("DXT3")), Expect(ePF_DXT3, 0, 0, false));
    EXPECT_EQ(FromD3D(28), Expect(L("a", 8), 8, 0, false));
    EXPECT_EQ(FromD3D(30), Expect(L("argb", 4, 4, 4, 4), 8, 0, false)); // D3DFMT_X4R4G4B4
    for (unsigned code : {0u, 1u, 19u, 37u, 80u, 117u, FourCC("DXT6"), FourCC("ATI2"), 0xFFFFFFFFu})
        EXPECT_EQ(FromD3D(code), kUnset) << code;

    const Forward dxgi[] = {
        {ePF_DXT5, 8, kLin, 77},   {ePF_DXT5, 8, kSRGB, 78},   {ePF_DXT2, 8, kLin, 0},     {ePF_BC4, 8, kSRGB, 80},
        {ePF_BC5, 9, kLin, 84},    {ePF_BC5, 0, kLin, 0},      {ePF_BW1bpp, 13, kLin, 66}, {ePF_RGBG8888, 0, kSRGB, 68},
        {ePF_BC7, 8, kLin, 0},     {ORBStandard8PixelType, 0, EORBTColourSpace(7), 28},
        {ORBStandard16PixelType, 12, kLin, 10}, {L("bgrx", 8, 8, 8, 8), 0, kSRGB, 93},
        {L("rgb", 5, 6, 5), 4, kLin, 85},       {L("rgba", 10, 10, 10, 2), 10, kLin, 25},
        {L("a", 8), 1, kLin, 0},                {L("rgb", 8, 8, 8), 0, kLin, 0},
    };
    for (const auto& [format, type, space, code] : dxgi)
        EXPECT_EQ(Code(getDirectXGIFormat, format, type, space), code) << std::hex << format << " type " << type;
    EXPECT_EQ(FromDXGI(67), Expect(ePF_RGB9E5, 12));
    EXPECT_EQ(FromDXGI(99), Expect(ePF_BC7, 8, 1));
    EXPECT_EQ(FromDXGI(112), Expect(L("ia", 4, 4), 0));
    for (unsigned code : {0u, 1u, 5u, 70u, 73u, 95u, 97u, 116u, 132u, 0xFFFFFFFFu})
        EXPECT_EQ(FromDXGI(code), kUnset) << code;

    // The inverse maps accept any word: false leaves every output as it was.
    for (unsigned c : {0x10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu})
        for (const Desc& d : {FromD3D(c), FromDXGI(c), FromGL(c, c & 0xFFFF, c)})
            EXPECT_EQ(d, kUnset) << c;
    for (unsigned c = 0; c < 0x10000; ++c)
        for (const Desc& d : {FromD3D(c), FromDXGI(c), FromGL(c, c, c)})
            EXPECT_TRUE(std::get<0>(d) || d == kUnset) << c;
}

// Every forward result of every named value around the table, in every
// channel type and both colour spaces, maps back to its format, but for the
// differences the maps are known to have. Layouts have their rows above.
TEST(FormatMaps, NamedFormatsMapBack)
{
    unsigned hits[3] = {}; // OpenGL, Direct3D, DXGI
    for (uint64_t f = 0; f < 56; ++f)
        for (unsigned t = 0; t < eNumVarTypes; ++t)
            for (EORBTColourSpace s : {kLin, kSRGB})
            {
                SCOPED_TRACE(::testing::Message() << f << " type " << t << " space " << s);
                // DXT2 and DXT4 share DXT3's and DXT5's codes; only some formats have an sRGB code.
                const bool eac = f == ePF_EAC_R11 || f == ePF_EAC_RG11;
                const bool hasSRGB = (f >= 22 && f <= 24) || (f >= 27 && f <= 50);
                const auto gl = GL(f, t, s);
                if (gl[0])
                {
                    ++hits[0];
                    EXPECT_EQ(FromGL(gl[1], gl[4], gl[3]),
                              Expect(f == ePF_DXT2 ? uint64_t(ePF_DXT3) : f == ePF_DXT4 ? uint64_t(ePF_DXT5) : f,
                                     f == ePF_RGB9E5 ? 13 : eac && SignedType(t) ? 1 : 0, hasSRGB ? s : kLin));
                }
                unsigned code = 0;
                if (getDirect3DFormat(f, VT(t), s, code))
                {
                    ++hits[1];
                    EXPECT_EQ(FromD3D(code), Expect(f == ePF_ORBTC_2bpp_RGB || f == ePF_ORBTC_4bpp_RGB ? f + 1 : f, 0,
                                                    kLin, f == ePF_DXT2 || f == ePF_DXT4));
                }
                if (getDirectXGIFormat(f, VT(t), s, code))
                {
                    ++hits[2];
                    const bool keepsSpace = f == ePF_DXT1 || f == ePF_DXT3 || f == ePF_DXT5;
                    EXPECT_EQ(FromDXGI(code),
                              Expect(f, f == ePF_BW1bpp || f == ePF_RGBG8888 || f == ePF_GRGB8888 ? 0 : t,
                                     keepsSpace ? s : f == ePF_BC4 && t == 8 ? kSRGB : kLin));
                }
            }
    // 42 named OpenGL formats in any type and space, 13 Direct3D ones, and
    // DXGI's in the types and spaces they have.
    EXPECT_EQ(hits[0], 42u * 14 * 2);
    EXPECT_EQ(hits[1], 13u * 14 * 2);
    EXPECT_EQ(hits[2], 3u * 2 + 4 * 2 + 3 * 14 * 2);
}

TEST(FormatMaps, HeaderGettersAndSetters)
{
    CORBTextureHeader header(ORBStandard8PixelType, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB, eVarUnsignedByteNorm);
    uint32_t internal = X, format = X, type = X;
    EXPECT_TRUE(header.getOGLFormat(internal, format, type));
    EXPECT_EQ((std::array<uint32_t, 3>{internal, format, type}), (std::array<uint32_t, 3>{0x8C43, 0x1908, 0x1401}));
    EXPECT_TRUE(header.getOGLESFormat(internal, format, type));
    EXPECT_EQ(internal, 0x1908u); // OpenGL ES takes the base format
    EXPECT_EQ(header.getDXGIFormat() * 100 + header.getD3DFormat(), 2900u);
    EXPECT_TRUE(header.setDXGIFormat(99));
    EXPECT_TRUE(header.getPixelType().PixelTypeID == ePF_BC7 && header.getColourSpace() == eColourSpaceSRGB);
    // D3D sets the premultiplied flag; clearing it clears the whole flags word.
    header.setIsFileCompressed(true);
    EXPECT_TRUE(header.setD3DFormat(FourCC("DXT4")));
    EXPECT_TRUE(header.getColourSpace() == eColourSpaceLinear && header.isPreMultiplied() && header.isFileCompressed());
    EXPECT_TRUE(header.setD3DFormat(51));
    EXPECT_FALSE(header.isPreMultiplied() || header.isFileCompressed());
    // A code without mapping leaves the header as it was.
    header.setIsPreMultiplied(true);
    header.setColourSpace(eColourSpaceSRGB);
    const ORBTextureHeaderV3 before = header.getFileHeader();
    EXPECT_FALSE(header.setOGLFormat(0x8048, 0x190A, 0x1403) || header.setOGLESFormat(0x1908, 0x1908, 0x1406) ||
                 header.setD3DFormat(0) || header.setDXGIFormat(1));
    const ORBTextureHeaderV3 after = header.getFileHeader();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}
