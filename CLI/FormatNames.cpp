#include "FormatNames.h"

#include "ORBTextureFormat.h"

namespace cli
{

namespace
{

const char* const kNamedFormats[orbtexture::ePF_NumCompressed + 1] = {
    "ORBTC_2bpp_RGB", "ORBTC_2bpp_RGBA", "ORBTC_4bpp_RGB", "ORBTC_4bpp_RGBA", "ORBTCII_2bpp",
    "ORBTCII_4bpp",   "ETC1",            "DXT1",           "DXT2",            "DXT3",
    "DXT4",           "DXT5",            "BC4",            "BC5",             "BC6",
    "BC7",            "UYVY",            "YUY2",           "BW1bpp",          "RGB9E5",
    "RGBG8888",       "GRGB8888",        "ETC2_RGB",       "ETC2_RGBA",       "ETC2_RGB_A1",
    "EAC_R11",        "EAC_RG11",        "ASTC_4x4",       "ASTC_5x4",        "ASTC_5x5",
    "ASTC_6x5",       "ASTC_6x6",        "ASTC_8x5",       "ASTC_8x6",        "ASTC_8x8",
    "ASTC_10x5",      "ASTC_10x6",       "ASTC_10x8",      "ASTC_10x10",      "ASTC_12x10",
    "ASTC_12x12",     "ASTC_3x3x3",      "ASTC_4x3x3",     "ASTC_4x4x3",      "ASTC_4x4x4",
    "ASTC_5x4x4",     "ASTC_5x5x4",      "ASTC_5x5x5",     "ASTC_6x5x5",      "ASTC_6x6x5",
    "ASTC_6x6x6",     "NumCompressed",
};

const char* const kChannelTypes[orbtexture::eNumVarTypes] = {
    "UnsignedByteNorm",    "SignedByteNorm",    "UnsignedByte",    "SignedByte",   "UnsignedShortNorm",
    "SignedShortNorm",     "UnsignedShort",     "SignedShort",     "UnsignedIntegerNorm",
    "SignedIntegerNorm",   "UnsignedInteger",   "SignedInteger",   "SignedFloat",  "UnsignedFloat",
};

} // namespace

std::string PixelFormatName(uint64_t pixelFormat)
{
    const orbtexture::PixelType type(pixelFormat);
    if (type.isNamedFormat())
    {
        if (type.lowWord() <= orbtexture::ePF_NumCompressed)
            return kNamedFormats[type.lowWord()];
        return "unknown named format " + std::to_string(type.lowWord());
    }
    std::string name;
    for (unsigned i = 0; i < 4; ++i)
    {
        const uint8_t letter = type.channelName(i), bits = type.channelBits(i);
        if (letter == 0 && bits == 0)
            continue;
        name += (letter >= 0x20 && letter < 0x7F) ? char(letter) : '?';
        name += std::to_string(bits);
    }
    return name;
}

std::string ChannelTypeName(uint32_t channelType)
{
    if (channelType < orbtexture::eNumVarTypes)
        return kChannelTypes[channelType];
    return "unknown channel type " + std::to_string(channelType);
}

std::string ColourSpaceName(uint32_t colourSpace)
{
    switch (colourSpace)
    {
    case orbtexture::eColourSpaceLinear: return "linear";
    case orbtexture::eColourSpaceSRGB: return "sRGB";
    default: return "unknown colour space " + std::to_string(colourSpace);
    }
}

} // namespace cli
