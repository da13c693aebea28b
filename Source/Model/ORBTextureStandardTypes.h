#ifndef ORBTEXTURESTANDARDTYPES_H
#define ORBTEXTURESTANDARDTYPES_H

// Internal: dispatch on the channel type of a standard-pixel-type texture, and
// its surfaces as pixel arrays.

#include <cstdint>

#include "Model/ORBTextureSizeRules.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

template <typename T>
struct TypeTag
{
    using type = T;
};

// Factor that reads a channel as a fraction of full scale, as float images hold it.
template <typename T>
inline constexpr float kNormalisedFactor = 1.0f;
template <>
inline constexpr float kNormalisedFactor<unsigned char> = 0.003921569f;
template <>
inline constexpr float kNormalisedFactor<unsigned short> = 1.5259022e-5f;
template <>
inline constexpr float kNormalisedFactor<unsigned int> = 2.3283064e-10f;

// Calls op(TypeTag<T>) with the channel type of a standard texture; false for
// any other texture.
template <typename Op>
bool DispatchChannelType(const CORBTextureHeader& header, Op&& op)
{
    const PixelType pixelType = header.getPixelType();
    const EORBTVariableType channelType = header.getChannelType();
    if (!isStandardPixelType(pixelType, channelType))
        return false;
    switch (pixelType.PixelTypeID)
    {
    case ORBStandard8PixelType: return op(TypeTag<unsigned char>());
    case ORBStandard16PixelType: return op(TypeTag<unsigned short>());
    default: return channelType == eVarSignedFloat ? op(TypeTag<float>()) : op(TypeTag<unsigned int>());
    }
}

// Start of a surface as pixels; null when the texture has no block at all
// (getDataPtr would then answer a bare offset).
template <typename T>
Pixel<T>* SurfacePixels(const CORBTexture& texture, uint32_t mip, uint32_t member, uint32_t face)
{
    if (texture.getDataPtr() == nullptr)
        return nullptr;
    return reinterpret_cast<Pixel<T>*>(texture.getDataPtr(mip, member, face));
}

// True when the data block of 'header' can be allocated: its size and every
// surface offset fit in 32 bits. Checked before an operation builds a texture.
inline bool FitsInMemory(const CORBTextureHeader& header)
{
    uint64_t bytes = 0;
    return CheckedTotalDataSize(header.getFileHeader(), bytes);
}

// A copy of 'header' (metadata included) with a new level-0 size and one MIP
// level; false when its block would not fit in memory.
inline bool ResizedHeader(const CORBTextureHeader& header, uint32_t width, uint32_t height, uint32_t depth,
                          CORBTextureHeader& resized)
{
    resized = header;
    resized.setWidth(width);
    resized.setHeight(height);
    resized.setDepth(depth);
    resized.setNumMIPLevels(1);
    return FitsInMemory(resized);
}

// Sets the border of 'texture' to that of 'old' scaled by the change of level-0
// size, per axis new size x border / old size, truncated.
inline void RescaleBorder(const CORBTextureHeader& old, CORBTextureHeader& texture)
{
    uint32_t x = 0, y = 0, z = 0;
    old.getBorder(x, y, z);
    const auto scaled = [](uint32_t border, uint32_t newSize, uint32_t oldSize) {
        return oldSize ? uint32_t(uint64_t(newSize) * border / oldSize) : 0u;
    };
    texture.setBorder(scaled(x, texture.getWidth(), old.getWidth()), scaled(y, texture.getHeight(), old.getHeight()),
                      scaled(z, texture.getDepth(), old.getDepth()));
}

} // namespace orbtexture

#endif
