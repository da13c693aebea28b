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

TEST(PixelType, PacksNamesLowAndWidthsHigh)
{
    const PixelType rgba8('r', 'g', 'b', 'a', 8, 8, 8, 8);
    EXPECT_EQ(rgba8.PixelTypeID, ORBStandard8PixelType);
    EXPECT_EQ(rgba8.PixelTypeChar[0], 'r');
    EXPECT_EQ(rgba8.PixelTypeChar[3], 'a');
    EXPECT_EQ(rgba8.PixelTypeChar[4], 8);
    EXPECT_FALSE(rgba8.isNamedFormat());

    const PixelType rgb565('r', 'g', 'b', 0, 5, 6, 5, 0);
    EXPECT_EQ(rgb565.lowWord(), 0x00626772u);
    EXPECT_EQ(rgb565.highWord(), 0x00050605u);
    EXPECT_EQ(ORBTGetBitsPerPixel(rgb565.PixelTypeID), 16u);

    EXPECT_TRUE(PixelType(ePF_ETC1).isNamedFormat());
    EXPECT_EQ(PixelType().PixelTypeID, 0u);
}

TEST(PixelType, ChannelLettersMapBothWays)
{
    for (int c = 0; c < 256; ++c)
    {
        const char* letters = "rgbalix";
        const char* found = c ? std::strchr(letters, c) : nullptr;
        const EChannelName expected = found ? EChannelName(found - letters + 1) : eChannelNone;
        EXPECT_EQ(MapCharToEnum(uint8_t(c)), expected) << "byte " << c;
        if (found)
        {
            EXPECT_EQ(MapEnumToChar(expected), c);
        }
    }
    EXPECT_EQ(MapEnumToChar(eChannelNone), 0);
    EXPECT_EQ(MapEnumToChar(EChannelName(8)), 0);
}

TEST(PixelType, StandardTypesAreExactlyTheFourCombinations)
{
    EXPECT_TRUE(isStandardPixelType(ORBStandard8PixelType, eVarUnsignedByteNorm));
    EXPECT_TRUE(isStandardPixelType(ORBStandard16PixelType, eVarUnsignedShortNorm));
    EXPECT_TRUE(isStandardPixelType(ORBStandard32PixelType, eVarUnsignedIntegerNorm));
    EXPECT_TRUE(isStandardPixelType(ORBStandard32PixelType, eVarSignedFloat));

    EXPECT_FALSE(isStandardPixelType(ORBStandard8PixelType, eVarUnsignedByte));
    EXPECT_FALSE(isStandardPixelType(ORBStandard16PixelType, eVarUnsignedByteNorm));
    EXPECT_FALSE(isStandardPixelType(ORBStandard32PixelType, eVarUnsignedFloat));
    EXPECT_FALSE(isStandardPixelType(PixelType('b', 'g', 'r', 'a', 8, 8, 8, 8), eVarUnsignedByteNorm));
    EXPECT_FALSE(isStandardPixelType(PixelType(ePF_ETC1), eVarUnsignedByteNorm));
}

TEST(FormatSizes, WorkedResults)
{
    EXPECT_EQ(ORBTGetBitsPerPixel(52), 0u);
    EXPECT_EQ(ORBTGetBitsPerPixel(0xFFFFFFFFu), 0u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_BC6, 20, 20)), 0u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ORBTC_2bpp_RGB, 1, 1)), 32u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ORBTC_4bpp_RGB, 1, 1)), 32u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ETC1, 5, 5)), 32u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ASTC_5x4, 7, 7)), 64u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ASTC_3x3x3, 4, 4, 4)), 128u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ORBTCII_2bpp, 1, 1)), 8u);

    unsigned x, y, z;
    ORBTGetFormatMinDims(ePF_ORBTC_2bpp_RGBA, x, y, z);
    EXPECT_EQ(x * 100 + y * 10 + z, 16u * 100 + 8 * 10 + 1);
    ORBTGetFormatMinDims(ePF_ASTC_6x5x5, x, y, z);
    EXPECT_EQ(x * 100 + y * 10 + z, 655u);
    for (uint64_t oneByOne : {uint64_t(ePF_RGB9E5), uint64_t(ePF_BC6), uint64_t(ePF_BC7), uint64_t(ePF_NumCompressed),
                              uint64_t(60), ORBStandard32PixelType})
    {
        ORBTGetFormatMinDims(oneByOne, x, y, z);
        EXPECT_EQ(x + y + z, 3u) << oneByOne;
    }
}

TEST(FormatSizes, LevelsMembersAndFaces)
{
    // rgba8 8x4 with 4 levels: 128 + 32 + 8 + 4 bytes (the last level is 1x1).
    ORBTextureHeaderV3 h = Header(ORBStandard8PixelType, 8, 4, 1, 4, 3, 2);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 0, false, false), 128u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 3, false, false), 4u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, false, false), 172u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, true, false), 516u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, false, true), 344u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1, true, true), 1032u);
    // The level index is not checked against the count.
    EXPECT_EQ(ORBTGetTextureDataSize(h, 9, false, false), 4u);

    h.numMIPMaps = 0;
    EXPECT_EQ(ORBTGetTextureDataSize(h), 0u);
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_BC6, 1024, 1024, 1, 11)), 0u);

    // A level below the minimum block still takes a whole block.
    EXPECT_EQ(ORBTGetTextureDataSize(Header(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 5)), 128u + 32 + 32 + 32 + 32);
}

TEST(FormatSizes, SubByteLayoutsTruncateOncePerSum)
{
    // 'r' at 4 bits, 3x1 with 2 levels: 12 bits then 4 bits.
    const ORBTextureHeaderV3 h = Header(PixelType('r', 0, 0, 0, 4, 0, 0, 0).PixelTypeID, 3, 1, 1, 2);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 0), 1u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, 1), 0u);
    EXPECT_EQ(ORBTGetTextureDataSize(h, -1), 2u);
}

TEST(FormatSizes, ProductsWrapIn32Bits)
{
    // 4 bytes x 2^30 members x 4 faces = 2^34, which wraps to 0.
    const ORBTextureHeaderV3 h = Header(ORBStandard8PixelType, 1, 1, 1, 1, 1u << 30, 4);
    EXPECT_EQ(ORBTGetTextureDataSize(h), 0u);
    uint64_t total = 0;
    EXPECT_FALSE(CheckedTotalDataSize(h, total));
}

TEST(SizeRules, LevelDimensionsNeverReachZero)
{
    EXPECT_EQ(LevelDimension(256, 3), 32u);
    EXPECT_EQ(LevelDimension(5, 3), 1u);
    EXPECT_EQ(LevelDimension(0x80000000u, 31), 1u);
    EXPECT_EQ(LevelDimension(0xFFFFFFFFu, 32), 1u);
    EXPECT_EQ(LevelDimension(0xFFFFFFFFu, 0xFFFFFFFFu), 1u);
    EXPECT_EQ(LevelDimension(0, 0), 1u);
}

TEST(SizeRules, ClosedFormSumMatchesLevelByLevel)
{
    for (uint64_t format : {ORBStandard8PixelType, uint64_t(ePF_ORBTC_2bpp_RGB), uint64_t(ePF_ASTC_4x4x4)})
    {
        const ORBTextureHeaderV3 h = Header(format, 0xFFFFFFFFu, 3, 70000, 40);
        uint64_t naive = 0;
        for (uint32_t mip = 0; mip < 40; ++mip)
            naive += SurfaceBits(h, mip);
        EXPECT_EQ(SumSurfaceBits(h, 40), naive);
    }
}

TEST(SizeRules, CheckedTotalRefusesWhatDoesNotFit)
{
    uint64_t total = 0;
    EXPECT_TRUE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 32768, 32767), total));
    EXPECT_EQ(total, 4294836224u);
    EXPECT_FALSE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 32768, 32768), total));

    // Dimensions whose bit count overflows 64 bits must not wrap into a small size.
    const ORBTextureHeaderV3 huge = Header(ORBStandard32PixelType, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu);
    EXPECT_FALSE(CheckedTotalDataSize(huge, total));

    // Billions of 1x1 levels of a 1-bit layout still fit, and are summed without a long loop.
    const ORBTextureHeaderV3 deep = Header(PixelType('r', 0, 0, 0, 1, 0, 0, 0).PixelTypeID, 1, 1, 1, 0xFFFFFFFFu);
    EXPECT_TRUE(CheckedTotalDataSize(deep, total));
    EXPECT_EQ(total, 0xFFFFFFFFull / 8);
    EXPECT_EQ(ORBTGetTextureDataSize(deep), uint32_t(0xFFFFFFFFull / 8));

    EXPECT_TRUE(CheckedTotalDataSize(Header(ORBStandard8PixelType, 4, 4, 1, 0), total));
    EXPECT_EQ(total, 0u);
}

TEST(FormatNames, EveryNamedFormatReadsBackFromItsName)
{
    for (uint32_t format = 0; format < ePF_NumCompressed; ++format)
    {
        std::string name = ORBTGetPixelFormatName(format).c_str();
        SCOPED_TRACE(name);
        ASSERT_FALSE(name.empty());
        uint64_t parsed = 0xFFFF;
        EXPECT_TRUE(ORBTGetPixelFormatFromName(name.c_str(), parsed));
        EXPECT_EQ(parsed, format);
        for (char& c : name)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_TRUE(ORBTGetPixelFormatFromName(name.c_str(), parsed));
        EXPECT_EQ(parsed, format);
    }
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_ETC2_RGB_A1).c_str(), "ETC2_RGB_A1");
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_ASTC_6x6x5).c_str(), "ASTC_6x6x5");
    // The empty value has a name to show, but is no target to ask for.
    EXPECT_STREQ(ORBTGetPixelFormatName(ePF_NumCompressed).c_str(), "NumCompressed");
    uint64_t parsed;
    EXPECT_FALSE(ORBTGetPixelFormatFromName("NumCompressed", parsed));
    EXPECT_STREQ(ORBTGetPixelFormatName(52).c_str(), "");
}

TEST(FormatNames, ChannelLayoutsBothWays)
{
    uint64_t parsed = 0;
    ASSERT_TRUE(ORBTGetPixelFormatFromName("R5g6B5", parsed));
    EXPECT_EQ(parsed, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID);
    EXPECT_STREQ(ORBTGetPixelFormatName(parsed).c_str(), "r5g6b5");
    ASSERT_TRUE(ORBTGetPixelFormatFromName("a1r5g5b5", parsed));
    EXPECT_STREQ(ORBTGetPixelFormatName(parsed).c_str(), "a1r5g5b5");
    ASSERT_TRUE(ORBTGetPixelFormatFromName("r32g32b32a32", parsed));
    EXPECT_EQ(parsed, ORBStandard32PixelType);
    EXPECT_STREQ(ORBTGetPixelFormatName(PixelType('r', 1, 0, 0, 8, 8, 0, 0).PixelTypeID).c_str(), "r8?8");

    const struct
    {
        const char* name;
        const char* reason;
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
        SCOPED_TRACE(b.name);
        EXPECT_FALSE(ORBTGetPixelFormatFromName(b.name, parsed));
        EXPECT_STREQ(ORBTGetLastError(), b.reason);
    }
}

TEST(FormatNames, ChannelTypesByEitherName)
{
    for (uint32_t type = 0; type < eNumVarTypes; ++type)
    {
        uint32_t parsed = 99;
        ASSERT_TRUE(ORBTGetChannelTypeFromName(ORBTGetChannelTypeName(type), parsed));
        EXPECT_EQ(parsed, type);
        parsed = 99;
        ASSERT_TRUE(ORBTGetChannelTypeFromName(ORBTGetChannelTypeShortName(type), parsed));
        EXPECT_EQ(parsed, type);
    }
    uint32_t parsed;
    EXPECT_TRUE(ORBTGetChannelTypeFromName("SIGNEDFLOAT", parsed));
    EXPECT_EQ(parsed, uint32_t(eVarSignedFloat));
    EXPECT_FALSE(ORBTGetChannelTypeFromName("float", parsed));
    EXPECT_EQ(ORBTGetChannelTypeName(eNumVarTypes), nullptr);
}
