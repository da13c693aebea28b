#include "FormatNames.h"

#include <cmath>
#include <cstdio>

#include <strings.h>

#include "ORBTextureInfo.h"
#include "ORBTextureFormat.h"

namespace cli
{

namespace
{

struct Alias
{
    const char* name;
    uint64_t format;
};

// The BC names of the formats that have one; BC4 to BC7 are the library's own.
constexpr Alias kAliases[] = {
    {"BC1", orbtexture::ePF_DXT1},
    {"BC2", orbtexture::ePF_DXT3},
    {"BC3", orbtexture::ePF_DXT5},
};

} // namespace

const char* PixelFormatAlias(uint64_t pixelFormat)
{
    for (const Alias& alias : kAliases)
        if (alias.format == pixelFormat)
            return alias.name;
    return nullptr;
}

bool ParsePixelFormat(const std::string& name, uint64_t& pixelFormat, std::string& reason)
{
    for (const Alias& alias : kAliases)
        if (strcasecmp(name.c_str(), alias.name) == 0)
        {
            pixelFormat = alias.format;
            return true;
        }
    if (ORBTGetPixelFormatFromName(name.c_str(), pixelFormat))
        return true;
    reason = std::string(ORBTGetLastError()) + " (orbtex formats lists the names)";
    return false;
}

bool ParseChannelType(const std::string& name, uint32_t& channelType)
{
    return ORBTGetChannelTypeFromName(name.c_str(), channelType);
}

std::string ChannelTypeShortName(uint32_t channelType)
{
    const char* name = ORBTGetChannelTypeShortName(channelType);
    return name ? name : "?";
}

std::string PixelFormatName(uint64_t pixelFormat)
{
    const std::string name = ORBTGetPixelFormatName(pixelFormat).c_str();
    if (name.empty())
        return "unknown named format " + std::to_string(uint32_t(pixelFormat));
    return name;
}

std::string ChannelTypeName(uint32_t channelType)
{
    const char* name = ORBTGetChannelTypeName(channelType);
    return name ? name : "unknown channel type " + std::to_string(channelType);
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

std::string FormatAndTypeName(uint64_t pixelFormat, uint32_t channelType)
{
    return PixelFormatName(pixelFormat) + " " + ChannelTypeShortName(channelType);
}

std::string StoredBitsPerPixel(const orbtexture::CORBTexture& texture)
{
    uint64_t pixels = 0;
    for (uint32_t level = 0; level < texture.getNumMIPLevels(); ++level)
        pixels += uint64_t(texture.getWidth(level)) * texture.getHeight(level) * texture.getDepth(level);
    pixels *= uint64_t(texture.getNumArrayMembers()) * texture.getNumFaces();
    const double bits = pixels ? 8.0 * texture.getDataSize() / double(pixels) : 0.0;
    char text[32];
    std::snprintf(text, sizeof text, bits == std::floor(bits) ? "%.0f" : "%.2f", bits);
    return text;
}

} // namespace cli
