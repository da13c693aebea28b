#include "Scores.h"

#include <cstring>
#include <limits>
#include <vector>

namespace cli
{

using namespace orbtexture;

Holds WhatItHolds(PixelType format)
{
    if (!format.isNamedFormat())
    {
        for (unsigned i = 0; i < 4; ++i)
            if (format.channelName(i) == 'a')
                return format.channelBits(i) == 1 ? Holds::ColourAlpha1 : Holds::ColourAlpha;
        return Holds::Colour;
    }
    switch (format.PixelTypeID)
    {
    case ePF_EAC_R11: return Holds::Red;
    case ePF_EAC_RG11: return Holds::RedGreen;
    case ePF_DXT1:
    case ePF_ETC2_RGB_A1: return Holds::ColourAlpha1;
    case ePF_ORBTC_2bpp_RGB:
    case ePF_ORBTC_4bpp_RGB:
    case ePF_ETC1:
    case ePF_ETC2_RGB:
    case ePF_UYVY:
    case ePF_YUY2:
    case ePF_BW1bpp:
    case ePF_RGB9E5:
    case ePF_RGBG8888:
    case ePF_GRGB8888: return Holds::Colour;
    default: return Holds::ColourAlpha;
    }
}

namespace
{

// Alpha of pixel 'pixel' as a fraction of the channel's range.
double AlphaOf(const CORBTexture& texture, const uint8_t* surface, size_t pixel)
{
    const unsigned bytes = texture.getBitsPerPixel() / 32;
    const uint8_t* p = surface + (pixel * 4 + 3) * bytes;
    switch (bytes)
    {
    case 1: return *p / 255.0;
    case 2:
    {
        uint16_t v;
        std::memcpy(&v, p, 2);
        return v / 65535.0;
    }
    default:
        if (texture.getChannelType() == eVarSignedFloat)
        {
            float v;
            std::memcpy(&v, p, 4);
            return v;
        }
        uint32_t v;
        std::memcpy(&v, p, 4);
        return v / double(std::numeric_limits<uint32_t>::max());
    }
}

} // namespace

void VisiblePixels(const CORBTexture& a, const CORBTexture& b, unsigned mip, unsigned member, unsigned face,
                   Holds holds, CORBTexture& visibleA, CORBTexture& visibleB, size_t& kept)
{
    const size_t pixels = size_t(a.getWidth(mip)) * a.getHeight(mip) * a.getDepth(mip);
    const size_t pixelBytes = a.getBitsPerPixel() / 8;
    const uint8_t* surfaceA = a.getDataPtr(mip, member, face);
    const uint8_t* surfaceB = b.getDataPtr(mip, member, face);
    std::vector<size_t> chosen;
    for (size_t i = 0; i < pixels; ++i)
        if (Visible(AlphaOf(a, surfaceA, i), holds))
            chosen.push_back(i);
    kept = chosen.size();
    CORBTextureHeader header(a.getHeader());
    header.setWidth(uint32_t(kept));
    header.setHeight(1);
    header.setDepth(1);
    header.setNumMIPLevels(1);
    header.setNumArrayMembers(1);
    header.setNumFaces(1);
    visibleA = kept ? CORBTexture(header) : CORBTexture();
    visibleB = kept ? CORBTexture(header) : CORBTexture();
    for (size_t k = 0; k < kept; ++k)
    {
        std::memcpy(visibleA.getDataPtr() + k * pixelBytes, surfaceA + chosen[k] * pixelBytes, pixelBytes);
        std::memcpy(visibleB.getDataPtr() + k * pixelBytes, surfaceB + chosen[k] * pixelBytes, pixelBytes);
    }
}

} // namespace cli
