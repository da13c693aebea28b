#ifndef TESTS_SUPPORT_STANDARDTEXTURES_H
#define TESTS_SUPPORT_STANDARDTEXTURES_H

// Textures of the four standard pixel types for the image operation tests.

#include <algorithm>
#include <array>
#include <initializer_list>
#include <type_traits>
#include <vector>

#include "ORBTexture.h"

namespace testsupport
{

template <typename T>
orbtexture::CORBTextureHeader StandardHeader(uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1,
                                             uint32_t members = 1, uint32_t faces = 1)
{
    using namespace orbtexture;
    const uint64_t formats[] = {ORBStandard8PixelType, ORBStandard16PixelType, 0, ORBStandard32PixelType};
    const EORBTVariableType type = std::is_same_v<T, float> ? eVarSignedFloat
                                   : sizeof(T) == 1         ? eVarUnsignedByteNorm
                                   : sizeof(T) == 2         ? eVarUnsignedShortNorm
                                                            : eVarUnsignedIntegerNorm;
    return CORBTextureHeader(formats[sizeof(T) - 1], height, width, depth, mips, members, faces, eColourSpaceLinear,
                             type);
}

template <typename T>
orbtexture::Pixel<T>* PixelsOf(const orbtexture::CORBTexture& texture, uint32_t mip = 0, uint32_t member = 0,
                               uint32_t face = 0)
{
    return reinterpret_cast<orbtexture::Pixel<T>*>(texture.getDataPtr(mip, member, face));
}

// A texture whose level 0 holds 'pixels' in raster order (other surfaces zero).
template <typename T>
orbtexture::CORBTexture StandardTexture(uint32_t width, uint32_t height, uint32_t depth,
                                        const std::vector<orbtexture::Pixel<T>>& pixels, uint32_t mips = 1)
{
    orbtexture::CORBTexture texture(StandardHeader<T>(width, height, depth, mips));
    std::fill_n(texture.getDataPtr(), texture.getDataSize(), 0);
    std::copy(pixels.begin(), pixels.end(), PixelsOf<T>(texture));
    return texture;
}

// Grey pixels of opaque alpha from values in raster order.
template <typename T>
std::vector<orbtexture::Pixel<T>> Greys(std::initializer_list<T> values, T alpha)
{
    std::vector<orbtexture::Pixel<T>> pixels;
    for (T v : values)
        pixels.push_back({v, v, v, alpha});
    return pixels;
}

template <typename T>
std::array<T, 4> Channels(const orbtexture::Pixel<T>& p)
{
    return {p.red, p.green, p.blue, p.alpha};
}

// The red channel of 'count' pixels from 'pixels'.
template <typename T>
std::vector<T> Reds(const orbtexture::Pixel<T>* pixels, size_t count)
{
    std::vector<T> reds;
    for (size_t i = 0; i < count; ++i)
        reds.push_back(pixels[i].red);
    return reds;
}

} // namespace testsupport

#endif
