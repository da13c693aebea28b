#include "FormatNames.h"

#include <cctype>

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

const char* const kChannelTypeShortNames[orbtexture::eNumVarTypes] = {
    "ubn", "sbn", "ub", "sb", "usn", "ssn", "us", "ss", "uin", "sin", "ui", "si", "sf", "uf",
};

std::string Lower(const std::string& text)
{
    std::string lower = text;
    for (char& c : lower)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

bool ParseChannelLayout(const std::string& name, uint64_t& pixelFormat, std::string& reason)
{
    uint8_t letters[4] = {0, 0, 0, 0}, widths[4] = {0, 0, 0, 0};
    unsigned count = 0, totalBits = 0;
    size_t i = 0;
    while (i < name.size())
    {
        const char letter = name[i++];
        if (std::string("rgbalix").find(letter) == std::string::npos)
        {
            reason = std::string("unknown channel letter '") + letter + "'";
            return false;
        }
        if (count == 4)
        {
            reason = "more than four channels";
            return false;
        }
        for (unsigned k = 0; k < count; ++k)
            if (letters[k] == uint8_t(letter))
            {
                reason = std::string("channel '") + letter + "' appears twice";
                return false;
            }
        unsigned width = 0;
        const size_t digits = i;
        while (i < name.size() && std::isdigit(static_cast<unsigned char>(name[i])) && width <= 32)
            width = width * 10 + unsigned(name[i++] - '0');
        if (i == digits || width == 0 || width > 32)
        {
            reason = std::string("channel '") + letter + "' needs a width of 1 to 32 bits";
            return false;
        }
        letters[count] = uint8_t(letter);
        widths[count++] = uint8_t(width);
        totalBits += width;
    }
    if (totalBits % 8 != 0)
    {
        reason = std::to_string(totalBits) + " bits per pixel is not a whole number of bytes";
        return false;
    }
    pixelFormat = orbtexture::PixelType(letters[0], letters[1], letters[2], letters[3], widths[0], widths[1],
                                        widths[2], widths[3])
                      .PixelTypeID;
    return true;
}

} // namespace

bool ParsePixelFormat(const std::string& name, uint64_t& pixelFormat, std::string& reason)
{
    const std::string lower = Lower(name);
    for (uint32_t format = 0; format < orbtexture::ePF_NumCompressed; ++format)
        if (lower == Lower(kNamedFormats[format]))
        {
            pixelFormat = format;
            return true;
        }
    if (lower.empty() || !ParseChannelLayout(lower, pixelFormat, reason))
    {
        reason = "unknown format '" + name + "'" + (reason.empty() ? "" : ": " + reason) +
                 " (orbtex formats lists the names)";
        return false;
    }
    return true;
}

bool ParseChannelType(const std::string& name, uint32_t& channelType)
{
    const std::string lower = Lower(name);
    for (uint32_t type = 0; type < orbtexture::eNumVarTypes; ++type)
        if (lower == kChannelTypeShortNames[type] || lower == Lower(kChannelTypes[type]))
        {
            channelType = type;
            return true;
        }
    return false;
}

std::string ChannelTypeShortName(uint32_t channelType)
{
    return channelType < orbtexture::eNumVarTypes ? kChannelTypeShortNames[channelType] : "?";
}

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
