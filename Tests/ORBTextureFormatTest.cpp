#include <cctype>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "ORBTextureFormat.h"
#include "ORBTextureInfo.h"
#include "ORBTextureSizeRules.h"

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

} // namespace

TEST(PixelType, LayoutLettersAndStandardTypes)
{
    const PixelType rgb565('r', 'g', 'b', 0, 5, 6, 5, 0);
    EXPECT_EQ(rgb565.lowWord(), 0x00626772u);
    EXPECT_EQ(rgb565.highWord(), 0x00050605u);
    EXPECT_EQ(ORBTGetBitsPerPixel(rgb565.PixelTypeID), 16u);
    EXPECT_TRUE(PixelType(ePF_ETC1).isNamedFormat() && !rgb565.isNamedFormat());

    for (int c = 0; c < 256; ++c)
    {
        const char* letters = "rgbalix";
        const char* found = c ? std::strchr(letters, c) : nullptr;
        const EChannelName expected = found ? EChannelName(found - letters + 1) : eChannelNone;
        EXPECT_EQ(MapCharToEnum(uint8_t(c)), expected) << "byte " << c;
        EXPECT_EQ(MapEnumToChar(expected), found ? c : 0) << "byte " << c;
    }
    EXPECT_EQ(MapEnumToChar(EChannelName(8)), 0);

    for (auto standard : {std::make_pair(ORBStandard8PixelType, eVarUnsignedByteNorm),
                          std::make_pair(ORBStandard16PixelType, eVarUnsignedShortNorm),
                          std::make_pair(ORBStandard32PixelType, eVarUnsignedIntegerNorm),
                          std::make_pair(ORBStandard32PixelType, eVarSignedFloat)})
        EXPECT_TRUE(isStandardPixelType(standard.first, standard.second));
    EXPECT_FALSE(isStandardPixelType(ORBStandard8PixelType, eVarUnsignedByte));
    EXPECT_FALSE(isStandardPixelType(ORBStandard16PixelType, eVarUnsignedByteNorm));
    EXPECT_FALSE(isStandardPixelType(ORBStandard32PixelType, eVarUnsignedFloat));
    EXPECT_FALSE(isStandardPixelType(PixelType('b', 'g', 'r', 'a', 8, 8, 8, 8), eVarUnsignedByteNorm));
}

TEST(FormatSizes, BlocksMinimaAndLevels)
{
    const struct
    {
        ORBTextureHeaderV3 header;
        uint32_t bytes;
    } sizes[] = {
        {Header(ePF_BC6, 20, 20), 0},
        {Header(ePF_DXT1, 5, 5), 32},
        {Header(ePF_DXT3, 4, 4), 16},
        {Header(ePF_ORBTC_2bpp_RGB, 1, 1), 32},
        {Header(ePF_ORBTC_4bpp_RGB, 1, 1), 32},
        {Header(ePF_ORBTCII_2bpp, 9, 3), 16}, // blocks of 8 x 4 pixels, 8 bytes each
        {Header(ePF_ETC1, 5, 5), 32},
        {Header(ePF_ASTC_5x4, 7, 7), 64},
        {Header(ePF_ASTC_3x3x3, 4, 4, 4), 128},
        {Header(ePF_BC6, 1024, 1024, 1, 11), 0},
        // A level below the minimum block still takes a whole block.
        {Header(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 5), 128 + 4 * 32},
        // 'r' at 4 bits, 3x1 with 2 levels: the bits of both levels are summed, then truncated.
        {Header(PixelType('r', 0, 0, 0, 4, 0, 0, 0).PixelTypeID, 3, 1, 1, 2), 2},
        // 4 bytes x 2^30 members x 4 faces wraps to 0.
        {Header(ORBStandard8PixelType, 1, 1, 1, 1, 1u << 30, 4), 0},
    };
    for (const auto& s : sizes)
        EXPECT_EQ(ORBTGetTextureDataSize(s.header), s.bytes) << ORBTGetPixelFormatName(s.header.pixelFormat).c_str();
    EXPECT_EQ(ORBTGetBitsPerPixel(52), 0u);
    EXPECT_EQ(ORBTGetBitsPerPixel(0xFFFFFFFFu), 0u);

    unsigned x, y, z;
    ORBTGetFormatMinDims(ePF_ORBTC_2bpp_RGBA, x, y, z);
    EXPECT_EQ(x * 100 + y * 10 + z, 16u * 100 + 8 * 10 + 1);
    ORBTGetFormatMinDims(ePF_ASTC_6x5x5, x, y, z);
    EXPECT_EQ(x * 100 + y * 10 + z, 655u);
    for (uint64_t oneByOne : {uint64_t(ePF_RGB9E5), uint64_t(ePF_BC7), uint64_t(ePF_NumCompressed), uint64_t(60),
                              ORBStandard32PixelType})
    {
        ORBTGetFormatMinDims(oneByOne, x, y, z);
        EXPECT_EQ(x + y + z, 3u) << oneByOne;
    }

    // rgba8 8x4 with 4 levels: 128 + 32 + 8 + 4 bytes (the last level is 1x1).
    ORBTextureHeaderV3 h = Header(ORBStandard8PixelType, 8, 4, 1, 4, 3, 2);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 3, false, false), 4u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 9, false, false), 4u); // the level is not checked against the count
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, false, false), 172u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, true, false), 516u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, false, true), 344u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, true, true), 1032u);
    h.numMIPMaps = 0;
    EXPECT_EQ(ORBTGetTextureDataSize(h), 0u);
}

TEST(SizeRules, LevelsNeverReachZeroAndTotalsAreChecked)
{
    EXPECT_EQ(LevelDimension(256, 3), 32u);
    EXPECT_EQ(LevelDimension(5, 3), 1u);
    EXPECT_EQ(LevelDimension(0x80000000u, 31), 1u);
    EXPECT_EQ(LevelDimension(0xFFFFFFFFu, 0xFFFFFFFFu), 1u);
    EXPECT_EQ(LevelDimension(0, 0), 1u);
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

TEST(FormatNames, NamedFormatsLayoutsAndChannelTypes)
{
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
    const struct
    {
        const char *name, *reason;
    } bad[] = {
        {"", "unknown format ''"},
        {"r9q", "unknown format 'r9q': unknown channel letter 'q'"},
        {"r8g8r8", "unknown format 'r8g8r8': channel 'r' appears twice"},
        {"r7", "unknown format 'r7': 7 bits per pixel is not a whole number of bytes"},
        {"r33", "unknown format 'r33': channel 'r' needs a width of 1 to 32 bits"},
        {"r0", "unknown format 'r0': channel 'r' needs a width of 1 to 32 bits"},
        {"rgba", "unknown format 'rgba': channel 'r' needs a width of 1 to 32 bits"},
        {"r8g8b8a8l8", "unknown format 'r8g8b8a8l8': more than four channels"},
    };
    for (const auto& b : bad)
    {
        EXPECT_FALSE(ORBTGetPixelFormatFromName(b.name, parsed));
        EXPECT_STREQ(ORBTGetLastError(), b.reason);
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
