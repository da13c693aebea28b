// The legacy pixel enumeration and the conversions between the legacy
// headers and the native one.

#include "ORBTextureLegacy.h"

#include "Model/ORBTextureFormatFacts.h"

#include <cstring>

namespace orbtexture
{

namespace
{


constexpr EORBTVariableType UBN = eVarUnsignedByteNorm, SBN = eVarSignedByteNorm, UB = eVarUnsignedByte,
                            SB = eVarSignedByte, USN = eVarUnsignedShortNorm, SSN = eVarSignedShortNorm,
                            US = eVarUnsignedShort, SS = eVarSignedShort, UIN = eVarUnsignedIntegerNorm,
                            SIN = eVarSignedIntegerNorm, UI = eVarUnsignedInteger, SI = eVarSignedInteger,
                            SF = eVarSignedFloat;
constexpr EORBTColourSpace Lin = eColourSpaceLinear, SRGB = eColourSpaceSRGB;
constexpr bool PM = true;

struct LegacyRow
{
    uint32_t legacy;
    uint64_t format;
    EORBTVariableType channelType = UBN;
    EORBTColourSpace colourSpace = Lin;
    bool premultiplied = false;
};

// Every legacy value that has a meaning, in ascending order.
constexpr LegacyRow kLegacyRows[] = {
    {0, ChannelLayout("argb", 4, 4, 4, 4), USN},
    {1, ChannelLayout("argb", 1, 5, 5, 5), USN},
    {2, ChannelLayout("rgb", 5, 6, 5), USN},
    {3, ChannelLayout("xrgb", 1, 5, 5, 5), USN},
    {4, ChannelLayout("rgb", 8, 8, 8), UIN},
    {5, ChannelLayout("argb", 8, 8, 8, 8), UIN},
    {6, ChannelLayout("argb", 8, 3, 3, 2), USN},
    {7, ChannelLayout("i", 8), UBN},
    {8, ChannelLayout("ai", 8, 8), USN},
    {9, ePF_BW1bpp},
    {10, ePF_YUY2},
    {11, ePF_UYVY},
    {12, ePF_ORBTC_2bpp_RGBA},
    {13, ePF_ORBTC_4bpp_RGBA},
    {16, ChannelLayout("rgba", 4, 4, 4, 4), USN},
    {17, ChannelLayout("rgba", 5, 5, 5, 1), USN},
    {18, ChannelLayout("rgba", 8, 8, 8, 8), UBN},
    {19, ChannelLayout("rgb", 5, 6, 5), USN},
    {20, ChannelLayout("rgbx", 5, 5, 5, 1), USN},
    {21, ChannelLayout("rgb", 8, 8, 8), UBN},
    {22, ChannelLayout("l", 8), UBN},
    {23, ChannelLayout("la", 8, 8), UBN},
    {24, ePF_ORBTC_2bpp_RGBA},
    {25, ePF_ORBTC_4bpp_RGBA},
    {26, ChannelLayout("bgra", 8, 8, 8, 8), UBN},
    {27, ChannelLayout("a", 8), UBN},
    {28, ePF_ORBTCII_4bpp},
    {29, ePF_ORBTCII_2bpp},
    {37, ChannelLayout("rgb", 3, 3, 2), UIN},
    {38, ChannelLayout("al", 4, 4), UIN},
    {39, ChannelLayout("lgr", 6, 5, 5), SIN},
    {40, ChannelLayout("xlgr", 8, 8, 8, 8), SIN},
    {41, ChannelLayout("abgr", 8, 8, 8, 8), SIN},
    {42, ChannelLayout("abgr", 2, 10, 10, 10), UIN},
    {43, ChannelLayout("argb", 2, 10, 10, 10), UIN},
    {44, ChannelLayout("argb", 2, 10, 10, 10), UIN},
    {45, ChannelLayout("gr", 16, 16), UIN},
    {46, ChannelLayout("gr", 16, 16), SIN},
    {47, ChannelLayout("abgr", 16, 16, 16, 16), UIN},
    {48, ChannelLayout("r", 16), SF},
    {49, ChannelLayout("gr", 16, 16), SF},
    {50, ChannelLayout("abgr", 16, 16, 16, 16), SF},
    {51, ChannelLayout("r", 32), SF},
    {52, ChannelLayout("gr", 32, 32), SF},
    {53, ChannelLayout("abgr", 32, 32, 32, 32), SF},
    {54, ePF_ETC1},
    {64, ChannelLayout("a", 8), UIN},
    {65, ChannelLayout("gr", 8, 8), SIN},
    {66, ChannelLayout("l", 16), UIN},
    {67, ChannelLayout("l", 8), UIN},
    {68, ChannelLayout("al", 8, 8), UIN},
    {69, ePF_UYVY},
    {70, ePF_YUY2},
    {80, ChannelLayout("rgba", 32, 32, 32, 32), SF},
    {81, ChannelLayout("rgba", 32, 32, 32, 32), UI},
    {82, ChannelLayout("rgba", 32, 32, 32, 32), SI},
    {83, ChannelLayout("rgb", 32, 32, 32), SF},
    {84, ChannelLayout("rgb", 32, 32, 32), UI},
    {85, ChannelLayout("rgb", 32, 32, 32), SI},
    {86, ChannelLayout("rgba", 16, 16, 16, 16), SF},
    {87, ChannelLayout("rgba", 16, 16, 16, 16), USN},
    {88, ChannelLayout("rgba", 16, 16, 16, 16), US},
    {89, ChannelLayout("rgba", 16, 16, 16, 16), SSN},
    {90, ChannelLayout("rgba", 16, 16, 16, 16), SS},
    {91, ChannelLayout("rg", 32, 32), SF},
    {92, ChannelLayout("rg", 32, 32), UI},
    {93, ChannelLayout("rg", 32, 32), SI},
    {94, ChannelLayout("rgba", 10, 10, 10, 2), UIN},
    {95, ChannelLayout("rgba", 10, 10, 10, 2), UI},
    {96, ChannelLayout("rgb", 11, 11, 10), SF},
    {97, ChannelLayout("rgba", 8, 8, 8, 8), UBN},
    {98, ChannelLayout("rgba", 8, 8, 8, 8), UBN, SRGB},
    {99, ChannelLayout("rgba", 8, 8, 8, 8), UB},
    {100, ChannelLayout("rgba", 8, 8, 8, 8), SBN},
    {101, ChannelLayout("rgba", 8, 8, 8, 8), SB},
    {102, ChannelLayout("rg", 16, 16), SF},
    {103, ChannelLayout("rg", 16, 16), USN},
    {104, ChannelLayout("rg", 16, 16), US},
    {105, ChannelLayout("rg", 16, 16), SSN},
    {106, ChannelLayout("rg", 16, 16), SS},
    {107, ChannelLayout("r", 32), SF},
    {108, ChannelLayout("r", 32), UI},
    {109, ChannelLayout("r", 32), SI},
    {110, ChannelLayout("rg", 8, 8), UBN},
    {111, ChannelLayout("rg", 8, 8), UB},
    {112, ChannelLayout("rg", 8, 8), SBN},
    {113, ChannelLayout("rg", 8, 8), SB},
    {114, ChannelLayout("r", 16), SF},
    {115, ChannelLayout("r", 16), USN},
    {116, ChannelLayout("r", 16), US},
    {117, ChannelLayout("r", 16), SSN},
    {118, ChannelLayout("r", 16), SS},
    {119, ChannelLayout("r", 8), UBN},
    {120, ChannelLayout("r", 8), UB},
    {121, ChannelLayout("r", 8), SBN},
    {122, ChannelLayout("r", 8), SB},
    {123, ChannelLayout("r", 8), UBN},
    {124, ePF_BW1bpp},
    {125, ePF_RGB9E5, SF},
    {126, ePF_RGBG8888},
    {127, ePF_GRGB8888},
    {144, ChannelLayout("rgbx", 8, 8, 8, 8), UBN, SRGB},
    {145, ChannelLayout("rgba", 8, 8, 8, 8), UBN, SRGB},
    {146, ChannelLayout("rgba", 8, 8, 8, 8), UBN, SRGB, PM},
    {147, ChannelLayout("rgb", 5, 6, 5), USN, SRGB},
    {148, ChannelLayout("rgba", 5, 5, 5, 1), USN, SRGB},
    {149, ChannelLayout("rgba", 4, 4, 4, 4), USN, SRGB},
    {150, ChannelLayout("l", 8), UBN, SRGB},
    {151, ChannelLayout("rgbx", 8, 8, 8, 8), UBN},
    {152, ChannelLayout("rgba", 8, 8, 8, 8), UBN},
    {153, ChannelLayout("rgba", 8, 8, 8, 8), UBN, Lin, PM},
    {154, ChannelLayout("l", 8), UBN},
    {155, ChannelLayout("a", 8), UBN},
    {156, ePF_BW1bpp},
    {157, ChannelLayout("xrgb", 8, 8, 8, 8), UBN, SRGB},
    {158, ChannelLayout("argb", 8, 8, 8, 8), UBN, SRGB},
    {159, ChannelLayout("argb", 8, 8, 8, 8), UBN, SRGB, PM},
    {160, ChannelLayout("argb", 1, 5, 5, 5), USN, SRGB},
    {161, ChannelLayout("argb", 4, 4, 4, 4), USN, SRGB},
    {162, ChannelLayout("xrgb", 8, 8, 8, 8), UBN},
    {163, ChannelLayout("argb", 8, 8, 8, 8), UBN},
    {164, ChannelLayout("argb", 8, 8, 8, 8), UBN, Lin, PM},
    {165, ChannelLayout("bgrx", 8, 8, 8, 8), UBN, SRGB},
    {166, ChannelLayout("bgra", 8, 8, 8, 8), UBN, SRGB},
    {167, ChannelLayout("bgra", 8, 8, 8, 8), UBN, SRGB, PM},
    {168, ChannelLayout("bgr", 5, 6, 5), USN, SRGB},
    {169, ChannelLayout("bgra", 5, 5, 5, 1), USN, SRGB},
    {170, ChannelLayout("bgrx", 4, 4, 4, 4), USN, SRGB},
    {171, ChannelLayout("bgrx", 8, 8, 8, 8), UBN},
    {172, ChannelLayout("bgra", 8, 8, 8, 8), UBN},
    {173, ChannelLayout("bgra", 8, 8, 8, 8), UBN, Lin, PM},
    {174, ChannelLayout("xbgr", 8, 8, 8, 8), UBN, SRGB},
    {175, ChannelLayout("abgr", 8, 8, 8, 8), UBN, SRGB},
    {176, ChannelLayout("abgr", 8, 8, 8, 8), UBN, SRGB, PM},
    {177, ChannelLayout("abgr", 1, 5, 5, 5), USN, SRGB},
    {178, ChannelLayout("xbgr", 4, 4, 4, 4), USN, SRGB},
    {179, ChannelLayout("xbgr", 8, 8, 8, 8), UBN},
    {180, ChannelLayout("abgr", 8, 8, 8, 8), UBN},
    {181, ChannelLayout("abgr", 8, 8, 8, 8), UBN, Lin, PM},
};

constexpr bool RowsAscend()
{
    for (size_t i = 1; i < sizeof(kLegacyRows) / sizeof(kLegacyRows[0]); ++i)
        if (kLegacyRows[i - 1].legacy >= kLegacyRows[i].legacy)
            return false;
    return kLegacyRows[sizeof(kLegacyRows) / sizeof(kLegacyRows[0]) - 1].legacy < eNumLegacyFormats;
}
static_assert(RowsAscend(), "legacy rows are unique, ascending and below eNumLegacyFormats");
static_assert(sizeof(kLegacyRows) / sizeof(kLegacyRows[0]) == 139, "139 legacy values have a meaning");

const LegacyRow* FindLegacyRow(uint32_t legacy)
{
    for (const LegacyRow& row : kLegacyRows)
        if (row.legacy == legacy)
            return &row;
    return nullptr;
}

// Reverse rows: a format (and, unless kAny, a channel type and colour space)
// to a legacy value. The first matching row of an API group wins.
constexpr uint8_t kAny = 0xFF;

struct ReverseRow
{
    uint64_t format;
    uint8_t channelType;
    uint8_t colourSpace;
    uint32_t legacy;
};

// APIs 1, 2 and 4. 'i' 8 and 'a','i' 8,8 give the numbers whose forward rows
// are 'l' 8 and 'l','a' 8,8.
constexpr ReverseRow kGroupA[] = {
    {ePF_ORBTC_2bpp_RGB, kAny, kAny, 24},
    {ePF_ORBTC_2bpp_RGBA, kAny, kAny, 24},
    {ePF_ORBTC_4bpp_RGB, kAny, kAny, 25},
    {ePF_ORBTC_4bpp_RGBA, kAny, kAny, 25},
    {ePF_ORBTCII_2bpp, kAny, kAny, 29},
    {ePF_ORBTCII_4bpp, kAny, kAny, 28},
    {ePF_ETC1, kAny, kAny, 54},
    {ChannelLayout("rgba", 5, 5, 5, 1), USN, kAny, 17},
    {ChannelLayout("rgb", 5, 6, 5), USN, kAny, 19},
    {ChannelLayout("rgbx", 5, 5, 5, 1), USN, kAny, 20},
    {ChannelLayout("rgba", 4, 4, 4, 4), USN, kAny, 16},
    {ChannelLayout("ai", 8, 8), UBN, kAny, 23},
    {ChannelLayout("a", 8), UBN, kAny, 27},
    {ChannelLayout("i", 8), UBN, kAny, 22},
    {ChannelLayout("rgba", 8, 8, 8, 8), UBN, kAny, 18},
    {ChannelLayout("bgra", 8, 8, 8, 8), UBN, kAny, 26},
    {ChannelLayout("rgb", 8, 8, 8), UBN, kAny, 21},
};

// APIs 3 and 5. Layouts only of channel types 8, 9 and 12: the forward rows
// of type 4 and 0 in this range have no number here.
constexpr ReverseRow kGroupB[] = {
    {ePF_ORBTC_2bpp_RGB, kAny, kAny, 12},
    {ePF_ORBTC_2bpp_RGBA, kAny, kAny, 12},
    {ePF_ORBTC_4bpp_RGB, kAny, kAny, 13},
    {ePF_ORBTC_4bpp_RGBA, kAny, kAny, 13},
    {ePF_DXT1, kAny, kAny, 32},
    {ePF_DXT2, kAny, kAny, 33},
    {ePF_DXT3, kAny, kAny, 34},
    {ePF_DXT4, kAny, kAny, 35},
    {ePF_DXT5, kAny, kAny, 36},
    {ePF_UYVY, kAny, kAny, 69},
    {ePF_YUY2, kAny, kAny, 70},
    {ChannelLayout("lgr", 6, 5, 5), SIN, kAny, 39},
    {ChannelLayout("gr", 8, 8), SIN, kAny, 65},
    {ChannelLayout("gr", 16, 16), SIN, kAny, 46},
    {ChannelLayout("xlgr", 8, 8, 8, 8), SIN, kAny, 40},
    {ChannelLayout("abgr", 2, 10, 10, 10), SIN, kAny, 44},
    {ChannelLayout("abgr", 8, 8, 8, 8), SIN, kAny, 41},
    {ChannelLayout("r", 16), SF, kAny, 48},
    {ChannelLayout("r", 32), SF, kAny, 51},
    {ChannelLayout("gr", 16, 16), SF, kAny, 49},
    {ChannelLayout("gr", 32, 32), SF, kAny, 52},
    {ChannelLayout("abgr", 16, 16, 16, 16), SF, kAny, 50},
    {ChannelLayout("abgr", 32, 32, 32, 32), SF, kAny, 53},
    {ChannelLayout("rgb", 8, 8, 8), UIN, kAny, 4},
    {ChannelLayout("al", 4, 4), UIN, kAny, 38},
    {ChannelLayout("l", 8), UIN, kAny, 67},
    {ChannelLayout("l", 16), UIN, kAny, 66},
    {ChannelLayout("a", 8), UIN, kAny, 64},
    {ChannelLayout("gr", 16, 16), UIN, kAny, 45},
    {ChannelLayout("al", 8, 8), UIN, kAny, 68},
    {ChannelLayout("rgb", 3, 3, 2), UIN, kAny, 37},
    {ChannelLayout("rgb", 5, 6, 5), UIN, kAny, 2},
    {ChannelLayout("xrgb", 1, 5, 5, 5), UIN, kAny, 3},
    {ChannelLayout("argb", 4, 4, 4, 4), UIN, kAny, 0},
    {ChannelLayout("argb", 1, 5, 5, 5), UIN, kAny, 1},
    {ChannelLayout("argb", 8, 3, 3, 2), UIN, kAny, 6},
    {ChannelLayout("argb", 2, 10, 10, 10), UIN, kAny, 43},
    {ChannelLayout("argb", 8, 8, 8, 8), UIN, kAny, 5},
    {ChannelLayout("abgr", 2, 10, 10, 10), UIN, kAny, 42},
    {ChannelLayout("abgr", 16, 16, 16, 16), UIN, kAny, 47},
};

// API 6. Channel layouts only in linear colour space; 128 to 137 have no
// forward rows.
constexpr ReverseRow kGroupC[] = {
    {ePF_RGBG8888, kAny, kAny, 126},
    {ePF_GRGB8888, kAny, kAny, 127},
    {ePF_DXT1, UIN, Lin, 128},
    {ePF_DXT1, UIN, SRGB, 129},
    {ePF_DXT3, UIN, Lin, 130},
    {ePF_DXT3, UIN, SRGB, 131},
    {ePF_DXT5, UIN, Lin, 132},
    {ePF_DXT5, UIN, SRGB, 133},
    {ePF_BC4, UIN, kAny, 134},
    {ePF_BC5, UIN, kAny, 136},
    {ePF_BC4, SIN, kAny, 135},
    {ePF_BC5, SIN, kAny, 137},
    {ChannelLayout("rg", 8, 8), UBN, Lin, 110},
    {ChannelLayout("rg", 8, 8), SBN, Lin, 112},
    {ChannelLayout("rg", 8, 8), UB, Lin, 111},
    {ChannelLayout("rg", 8, 8), SB, Lin, 113},
    {ChannelLayout("rgba", 8, 8, 8, 8), UBN, Lin, 97},
    {ChannelLayout("rgba", 8, 8, 8, 8), SBN, Lin, 100},
    {ChannelLayout("rgba", 8, 8, 8, 8), UB, Lin, 99},
    {ChannelLayout("rgba", 8, 8, 8, 8), SB, Lin, 101},
    {ChannelLayout("r", 8), UBN, Lin, 119},
    {ChannelLayout("r", 8), SBN, Lin, 121},
    {ChannelLayout("r", 8), UB, Lin, 120},
    {ChannelLayout("r", 8), SB, Lin, 122},
    {ChannelLayout("rg", 16, 16), USN, Lin, 103},
    {ChannelLayout("rg", 16, 16), SSN, Lin, 105},
    {ChannelLayout("rg", 16, 16), US, Lin, 104},
    {ChannelLayout("rg", 16, 16), SS, Lin, 106},
    {ChannelLayout("rgba", 16, 16, 16, 16), USN, Lin, 87},
    {ChannelLayout("rgba", 16, 16, 16, 16), SSN, Lin, 89},
    {ChannelLayout("rgba", 16, 16, 16, 16), US, Lin, 88},
    {ChannelLayout("rgba", 16, 16, 16, 16), SS, Lin, 90},
    {ChannelLayout("r", 16), USN, Lin, 115},
    {ChannelLayout("r", 16), SSN, Lin, 117},
    {ChannelLayout("r", 16), US, Lin, 116},
    {ChannelLayout("r", 16), SS, Lin, 118},
    {ChannelLayout("rgba", 10, 10, 10, 2), UIN, Lin, 94},
    {ChannelLayout("r", 32), UI, Lin, 108},
    {ChannelLayout("rg", 32, 32), UI, Lin, 92},
    {ChannelLayout("rgb", 32, 32, 32), UI, Lin, 84},
    {ChannelLayout("rgba", 32, 32, 32, 32), UI, Lin, 81},
    {ChannelLayout("rgba", 10, 10, 10, 2), UI, Lin, 95},
    {ChannelLayout("r", 32), SI, Lin, 109},
    {ChannelLayout("rg", 32, 32), SI, Lin, 93},
    {ChannelLayout("rgb", 32, 32, 32), SI, Lin, 85},
    {ChannelLayout("rgba", 32, 32, 32, 32), SI, Lin, 82},
    {ChannelLayout("r", 32), SF, Lin, 107},
    {ChannelLayout("rg", 32, 32), SF, Lin, 91},
    {ChannelLayout("rgb", 32, 32, 32), SF, Lin, 83},
    {ChannelLayout("rgba", 32, 32, 32, 32), SF, Lin, 80},
    {ChannelLayout("rg", 16, 16), SF, Lin, 102},
    {ChannelLayout("r", 16), SF, Lin, 114},
    {ChannelLayout("rgb", 11, 11, 10), SF, Lin, 96},
    {ChannelLayout("rgba", 16, 16, 16, 16), SF, Lin, 86},
};

// API 7: one named row; everything else is the inverse of the forward rows
// from here on, colour space, channel type and premultiplied flag compared.
constexpr ReverseRow kGroupD[] = {
    {ePF_BW1bpp, kAny, kAny, 156},
};
constexpr uint32_t kGroupDFirstForwardRow = 144;

template <size_t N>
ORBTPixelType FindReverse(const ReverseRow (&rows)[N], uint64_t format, uint32_t channelType, uint32_t colourSpace)
{
    for (const ReverseRow& row : rows)
        if (row.format == format && (row.channelType == kAny || row.channelType == channelType) &&
            (row.colourSpace == kAny || row.colourSpace == colourSpace))
            return ORBTPixelType(row.legacy);
    return eLegacyFormatNone;
}

void AddItem(MetaDataMap& metaData, ORBTextureHeaderV3& result, uint32_t key, uint32_t size, const uint8_t* data)
{
    metaData[ORBTEX_METADATA_FOURCC][key] = MetaDataBlock(ORBTEX_METADATA_FOURCC, key, size, data);
    result.metaDataSize += ORBTEX_METADATA_BLOCK_HEADER_SIZE + size;
}

// Both conversions. 'numSurfaces' is null for a version 1 header; with
// 'mipFlagCounts' the MIP count is taken only when the MIP flag is set.
void ConvertLegacyHeader(const ORBTextureHeaderV1& header, const uint32_t* numSurfaces, bool mipFlagCounts,
                         ORBTextureHeaderV3& result, MetaDataMap* metaData)
{
    const uint32_t word = header.pixelFormatAndFlags;
    uint64_t format;
    EORBTColourSpace colourSpace;
    EORBTVariableType channelType;
    bool premultiplied;
    ORBTMapLegacyTextureEnumToNewFormat(ORBTPixelType(word & ORBTEX_LEGACY_FORMAT_MASK), format, colourSpace,
                                        channelType, premultiplied);

    result = ORBTextureHeaderV3();
    result.version = ORBTEX_VERSION_3;
    result.flags = premultiplied ? ORBTEX_FLAG_PREMULTIPLIED : 0;
    result.pixelFormat = format;
    result.colourSpace = colourSpace;
    result.channelType = channelType;
    result.height = header.height;
    result.width = header.width;
    result.depth = 1;
    result.numMIPMaps = !mipFlagCounts || (word & ORBTEX_LEGACY_FLAG_MIPMAPS) ? header.mipMapCount + 1 : 1;
    result.metaDataSize = 0;
    result.numFaces = (word & ORBTEX_LEGACY_FLAG_CUBEMAP) ? 6 : 1;
    result.numSurfaces = 1;
    if (numSurfaces && *numSurfaces / result.numFaces > 1)
        result.numSurfaces = *numSurfaces / result.numFaces;

    if (!metaData)
        return;
    metaData->Clear();
    if (word & ORBTEX_LEGACY_FLAG_BUMPMAP)
    {
        uint8_t bump[8] = {0, 0, 0, 0, 'x', 'y', 'z', 0};
        const float scale = 1.0f;
        std::memcpy(bump, &scale, sizeof scale);
        AddItem(*metaData, result, eMetaBumpData, sizeof bump, bump);
    }
    if (word & ORBTEX_LEGACY_FLAG_FLIPPED_Y)
    {
        const uint8_t orientation[3] = {eOrientRight, eOrientUp, eOrientIn};
        AddItem(*metaData, result, eMetaOrientation, sizeof orientation, orientation);
    }
}


// The first 44 bytes of a version 2 header: a version 1 header.
ORBTextureHeaderV1 LegacyHeaderV1Part(const ORB_Texture_Header& header)
{
    ORBTextureHeaderV1 v1;
    v1.headerSize = header.headerSize;
    v1.height = header.height;
    v1.width = header.width;
    v1.mipMapCount = header.mipMapCount;
    v1.pixelFormatAndFlags = header.pixelFormatAndFlags;
    v1.textureDataSize = header.textureDataSize;
    v1.bitCount = header.bitCount;
    v1.redMask = header.redMask;
    v1.greenMask = header.greenMask;
    v1.blueMask = header.blueMask;
    v1.alphaMask = header.alphaMask;
    return v1;
}

} // namespace

bool MapLegacyEnumToNewFormat(ORBTPixelType legacy, PixelType& pixelType, EORBTColourSpace& colourSpace,
                              EORBTVariableType& channelType, bool& isPreMultiplied)
{
    uint64_t format;
    const bool known = ORBTMapLegacyTextureEnumToNewFormat(legacy, format, colourSpace, channelType, isPreMultiplied);
    pixelType = PixelType(format);
    return known;
}

ORBTPixelType MapNewFormatToLegacyEnum(PixelType pixelType, EORBTColourSpace colourSpace,
                                       EORBTVariableType channelType, bool isPreMultiplied, ELegacyApi api)
{
    const uint64_t format = pixelType.PixelTypeID;
    switch (api)
    {
    case eLegacyApi1:
    case eLegacyApi2:
    case eLegacyApi4: return FindReverse(kGroupA, format, channelType, colourSpace);
    case eLegacyApi3:
    case eLegacyApi5: return FindReverse(kGroupB, format, channelType, colourSpace);
    case eLegacyApi6: return FindReverse(kGroupC, format, channelType, colourSpace);
    case eLegacyApi7:
    {
        const ORBTPixelType named = FindReverse(kGroupD, format, channelType, colourSpace);
        if (named != eLegacyFormatNone)
            return named;
        for (const LegacyRow& row : kLegacyRows)
            if (row.legacy >= kGroupDFirstForwardRow && row.format == format && row.channelType == channelType &&
                row.colourSpace == colourSpace && row.premultiplied == isPreMultiplied)
                return ORBTPixelType(row.legacy);
        return eLegacyFormatNone;
    }
    default: return eLegacyFormatNone;
    }
}

void ConvertTextureHeader1To3(ORBTextureHeaderV1 header, ORBTextureHeaderV3& result, MetaDataMap& metaData)
{
    ConvertLegacyHeader(header, nullptr, false, result, &metaData);
}

void ConvertTextureHeader2To3(ORB_Texture_Header header, ORBTextureHeaderV3& result, MetaDataMap& metaData)
{
    ConvertLegacyHeader(LegacyHeaderV1Part(header), &header.numSurfaces, false, result, &metaData);
}

ORB_Texture_Header ConvertTextureHeader3To2(CORBTextureHeader header, ELegacyApi api)
{
    ORB_Texture_Header result;
    result.headerSize = ORBTEX_LEGACY_V2_HEADER_SIZE;
    result.height = header.getHeight(0);
    result.width = header.getWidth(0);
    result.mipMapCount = header.getNumMIPLevels() - 1;
    result.pixelFormatAndFlags = MapNewFormatToLegacyEnum(header.getPixelType(), header.getColourSpace(),
                                                          header.getChannelType(), header.isPreMultiplied(), api);
    result.textureDataSize = header.getDataSize(-1, true, true);
    result.bitCount = header.getBitsPerPixel();
    result.redMask = result.greenMask = result.blueMask = result.alphaMask = 0;
    result.magic = ORBTEX_LEGACY_MAGIC;
    result.numSurfaces = header.getNumFaces() * header.getNumArrayMembers();

    if (header.getNumMIPLevels() > 1)
        result.pixelFormatAndFlags |= ORBTEX_LEGACY_FLAG_MIPMAPS;
    const uint64_t format = header.getPixelType().PixelTypeID;
    if (format == ePF_ORBTC_2bpp_RGBA || format == ePF_ORBTC_4bpp_RGBA)
    {
        result.pixelFormatAndFlags |= ORBTEX_LEGACY_FLAG_ALPHA;
        result.alphaMask = 1;
    }
    if (header.getNumFaces() > 1)
        result.pixelFormatAndFlags |= ORBTEX_LEGACY_FLAG_CUBEMAP;
    if (header.isBumpMap())
        result.pixelFormatAndFlags |= ORBTEX_LEGACY_FLAG_BUMPMAP;
    if (header.getOrientation(eAxisY) == eOrientUp)
        result.pixelFormatAndFlags |= ORBTEX_LEGACY_FLAG_FLIPPED_Y;
    return result;
}

} // namespace orbtexture

using namespace orbtexture;

bool ORBTMapLegacyTextureEnumToNewFormat(ORBTPixelType legacy, uint64_t& pixelFormat, EORBTColourSpace& colourSpace,
                                         EORBTVariableType& channelType, bool& isPreMultiplied)
{
    const LegacyRow* row = FindLegacyRow(legacy);
    if (!row)
    {
        pixelFormat = ePF_NumCompressed;
        colourSpace = eColourSpaceLinear;
        channelType = eNumVarTypes;
        isPreMultiplied = false;
        return false;
    }
    pixelFormat = row->format;
    colourSpace = row->colourSpace;
    channelType = row->channelType;
    isPreMultiplied = row->premultiplied;
    return true;
}

bool ORBTConvertOldTextureHeaderToV3(const ORB_Texture_Header* header, ORBTextureHeaderV3& result,
                                     MetaDataMap* metaData)
{
    if (!header)
        return false;
    // A version 1 header is only 44 bytes: the last two fields are not read.
    const bool version2 = header->headerSize == ORBTEX_LEGACY_V2_HEADER_SIZE;
    ConvertLegacyHeader(LegacyHeaderV1Part(*header), version2 ? &header->numSurfaces : nullptr, true, result,
                        metaData);
    return true;
}
