#include "Model/ORBTextureFormatFacts.h"

namespace orbtexture
{

namespace
{

struct Bits4
{
    uint8_t r, g, b, a;
};

constexpr FormatDescriptor Format(const char* name, EFormatFamily family, uint8_t bitsPerPixel, uint8_t x,
                                  uint8_t y, EIntermediateLayout layout, Bits4 dither)
{
    return FormatDescriptor{name,   family, bitsPerPixel, x, y, 1, false, layout, {dither.r, dither.g, dither.b, dither.a},
                            eChannelNone, false, false};
}

// ORBTC decoders cope with any size; the RGB forms store opaque alpha.
constexpr FormatDescriptor ORBTC(const char* name, EFormatFamily family, uint8_t bitsPerPixel, uint8_t x, uint8_t y,
                                 Bits4 dither, bool opaque)
{
    FormatDescriptor row = Format(name, family, bitsPerPixel, x, y, eIntermediateRGBA8, dither);
    row.decodesAnySize = true;
    row.opaqueAlphaFirst = opaque;
    return row;
}

constexpr FormatDescriptor ASTC(const char* name, uint8_t x, uint8_t y, uint8_t z)
{
    FormatDescriptor row = Format(name, eFamilyASTC, 0, x, y, eIntermediateRGBA8, {0, 0, 0, 0});
    row.minZ = z;
    row.sizedByBlocks = true;
    return row;
}

constexpr FormatDescriptor BW1bpp()
{
    FormatDescriptor row = Format("BW1bpp", eFamilyOneBPP, 1, 8, 1, eIntermediateRGBA8, {1, 1, 1, 0});
    row.decodesAnySize = true;
    row.ditherGrey = eChannelIntensity;
    return row;
}

constexpr Bits4 k555 = {5, 5, 5, 0}, k4443 = {4, 4, 4, 3}, k4444 = {4, 4, 4, 4}, k5658 = {5, 6, 5, 8},
                k8880 = {8, 8, 8, 0}, kNone = {0, 0, 0, 0};

// Indexed by EORBTPixelFormat.
constexpr FormatDescriptor kFormats[] = {
    ORBTC("ORBTC_2bpp_RGB", eFamilyORBTC, 2, 16, 8, k555, true),
    ORBTC("ORBTC_2bpp_RGBA", eFamilyORBTC, 2, 16, 8, k4443, false),
    ORBTC("ORBTC_4bpp_RGB", eFamilyORBTC, 4, 8, 8, k555, true),
    ORBTC("ORBTC_4bpp_RGBA", eFamilyORBTC, 4, 8, 8, k4443, false),
    ORBTC("ORBTCII_2bpp", eFamilyORBTCII, 2, 8, 4, k4443, false),
    ORBTC("ORBTCII_4bpp", eFamilyORBTCII, 4, 4, 4, k4443, false),
    Format("ETC1", eFamilyETC, 4, 4, 4, eIntermediateRGB8, k4444),
    Format("DXT1", eFamilyDXT, 4, 4, 4, eIntermediateRGBA8, {5, 6, 5, 1}),
    Format("DXT2", eFamilyDXT, 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT3", eFamilyDXT, 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT4", eFamilyDXT, 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT5", eFamilyDXT, 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("BC4", eFamilyBC, 4, 4, 4, eIntermediateRGBA8, {8, 0, 0, 0}),
    Format("BC5", eFamilyBC, 8, 4, 4, eIntermediateRGBA8, {8, 8, 0, 0}),
    Format("BC6", eFamilyBC, 0, 1, 1, eIntermediateRGBA8, {16, 16, 16, 0}),
    Format("BC7", eFamilyBC, 0, 1, 1, eIntermediateRGBA8, k8880),
    Format("UYVY", eFamilyYUV, 16, 2, 1, eIntermediateRGBA8, k8880),
    Format("YUY2", eFamilyYUV, 16, 2, 1, eIntermediateRGBA8, k8880),
    BW1bpp(),
    Format("RGB9E5", eFamilyRGB9E5, 32, 1, 1, eIntermediateRGB32F, {14, 14, 14, 0}),
    Format("RGBG8888", eFamilyRGBG, 16, 2, 1, eIntermediateRGBA8, k8880),
    Format("GRGB8888", eFamilyRGBG, 16, 2, 1, eIntermediateRGBA8, k8880),
    Format("ETC2_RGB", eFamilyETC, 4, 4, 4, eIntermediateRGB8, {4, 4, 4, 0}),
    Format("ETC2_RGBA", eFamilyETC, 8, 4, 4, eIntermediateRGBA8, k4444),
    Format("ETC2_RGB_A1", eFamilyETC, 4, 4, 4, eIntermediateRGBA8, {5, 5, 5, 1}),
    Format("EAC_R11", eFamilyETC, 4, 4, 4, eIntermediateR16, {11, 0, 0, 0}),
    Format("EAC_RG11", eFamilyETC, 8, 4, 4, eIntermediateRG16, {11, 11, 0, 0}),
    ASTC("ASTC_4x4", 4, 4, 1),
    ASTC("ASTC_5x4", 5, 4, 1),
    ASTC("ASTC_5x5", 5, 5, 1),
    ASTC("ASTC_6x5", 6, 5, 1),
    ASTC("ASTC_6x6", 6, 6, 1),
    ASTC("ASTC_8x5", 8, 5, 1),
    ASTC("ASTC_8x6", 8, 6, 1),
    ASTC("ASTC_8x8", 8, 8, 1),
    ASTC("ASTC_10x5", 10, 5, 1),
    ASTC("ASTC_10x6", 10, 6, 1),
    ASTC("ASTC_10x8", 10, 8, 1),
    ASTC("ASTC_10x10", 10, 10, 1),
    ASTC("ASTC_12x10", 12, 10, 1),
    ASTC("ASTC_12x12", 12, 12, 1),
    ASTC("ASTC_3x3x3", 3, 3, 3),
    ASTC("ASTC_4x3x3", 4, 3, 3),
    ASTC("ASTC_4x4x3", 4, 4, 3),
    ASTC("ASTC_4x4x4", 4, 4, 4),
    ASTC("ASTC_5x4x4", 5, 4, 4),
    ASTC("ASTC_5x5x4", 5, 5, 4),
    ASTC("ASTC_5x5x5", 5, 5, 5),
    ASTC("ASTC_6x5x5", 6, 5, 5),
    ASTC("ASTC_6x6x5", 6, 6, 5),
    ASTC("ASTC_6x6x6", 6, 6, 6),
    Format("NumCompressed", eFamilyNone, 0, 1, 1, eIntermediateRGBA8, kNone),
};
static_assert(sizeof(kFormats) / sizeof(kFormats[0]) == ePF_NumCompressed + 1,
              "one descriptor per named format, ePF_NumCompressed included");

constexpr FormatDescriptor kUnknownFormat = Format(nullptr, eFamilyNone, 0, 1, 1, eIntermediateRGBA8, kNone);

// Indexed by EORBTVariableType.
constexpr ChannelTypeDescriptor kChannelTypes[] = {
    {"UnsignedByteNorm", "ubn", 8, false},     {"SignedByteNorm", "sbn", 8, true},
    {"UnsignedByte", "ub", 8, false},          {"SignedByte", "sb", 8, true},
    {"UnsignedShortNorm", "usn", 16, false},   {"SignedShortNorm", "ssn", 16, true},
    {"UnsignedShort", "us", 16, false},        {"SignedShort", "ss", 16, true},
    {"UnsignedIntegerNorm", "uin", 32, false}, {"SignedIntegerNorm", "sin", 32, true},
    {"UnsignedInteger", "ui", 32, false},      {"SignedInteger", "si", 32, true},
    {"SignedFloat", "sf", 32, true},           {"UnsignedFloat", "uf", 32, false},
};
static_assert(sizeof(kChannelTypes) / sizeof(kChannelTypes[0]) == eNumVarTypes, "one descriptor per channel type");

} // namespace

const FormatDescriptor& DescribeFormat(uint32_t format)
{
    return IsKnownFormat(format) ? kFormats[format] : kUnknownFormat;
}

const ChannelTypeDescriptor* DescribeChannelType(uint32_t channelType)
{
    return channelType < eNumVarTypes ? &kChannelTypes[channelType] : nullptr;
}

uint32_t ASTCFormatOfBlock(unsigned x, unsigned y, unsigned z)
{
    for (uint32_t format = 0; format < ePF_NumCompressed; ++format)
    {
        const FormatDescriptor& descriptor = kFormats[format];
        if (descriptor.family == eFamilyASTC && descriptor.minX == x && descriptor.minY == y && descriptor.minZ == z)
            return format;
    }
    return 0;
}

void DitherTargetBits(PixelType target, uint8_t bits[4])
{
    bits[0] = bits[1] = bits[2] = bits[3] = 0;
    if (target.isNamedFormat())
    {
        const FormatDescriptor& format = DescribeFormat(target.lowWord());
        for (unsigned c = 0; c < 4; ++c)
            bits[c] = format.ditherBits[c];
        return;
    }
    // Later positions overwrite earlier ones.
    for (unsigned position = 0; position < 4; ++position)
    {
        const uint8_t width = target.channelBits(position);
        switch (target.channelName(position))
        {
        case 'r': bits[0] = width; break;
        case 'g': bits[1] = width; break;
        case 'b': bits[2] = width; break;
        case 'a':
        case 'x': bits[3] = width; break;
        case 'l':
        case 'i': bits[0] = bits[1] = bits[2] = width; break;
        default: break;
        }
    }
}

} // namespace orbtexture
