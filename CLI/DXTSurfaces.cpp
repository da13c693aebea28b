#include "DXTSurfaces.h"

#include <cstdint>
#include <utility>

#include "Codecs/DXTCodec.h"
#include "FormatNames.h"
#include "ORBTextureUtilities.h"

namespace cli
{

using orbtexture::CORBTexture;
using orbtexture::CORBTextureHeader;
using orbtexture::PixelType;

namespace
{

constexpr uint32_t kRGBA8Bytes = 4;

// One 2D slice of a surface, in pixels and in blocks.
struct Slice
{
    uint32_t width, height;
    uint8_t* blocks;
    uint8_t* pixels;
};

// Calls visit(slice, mip, slice bytes) for every depth slice of every surface
// of 'blockTexture' (DXT 'selector') and the same slice of 'pixelTexture'
// (r8g8b8a8, same sizes); the visit returns false with a reason to stop. A
// surface whose size in the DXT texture is not its slices' blocks stops the
// walk too.
template <typename Visit>
bool ForEachSlice(const CORBTexture& blockTexture, const CORBTexture& pixelTexture, unsigned selector,
                  std::string& reason, Visit&& visit)
{
    const uint64_t blockBytes = selector == 1 ? 8 : 16;
    for (uint32_t member = 0; member < blockTexture.getNumArrayMembers(); ++member)
        for (uint32_t face = 0; face < blockTexture.getNumFaces(); ++face)
            for (uint32_t mip = 0; mip < blockTexture.getNumMIPLevels(); ++mip)
            {
                const uint32_t width = blockTexture.getWidth(mip), height = blockTexture.getHeight(mip),
                               depth = blockTexture.getDepth(mip);
                const uint64_t sliceBytes = uint64_t((width + 3) / 4) * ((height + 3) / 4) * blockBytes;
                const uint64_t surfaceBytes = blockTexture.getDataSize(int(mip), false, false);
                if (sliceBytes * depth != surfaceBytes)
                {
                    reason = PixelFormatName(blockTexture.getPixelType().PixelTypeID) + " level " +
                             std::to_string(mip) + " holds " + std::to_string(surfaceBytes) + " bytes, not the " +
                             std::to_string(sliceBytes * depth) + " of its blocks";
                    return false;
                }
                const uint64_t slicePixelBytes = uint64_t(width) * height * kRGBA8Bytes;
                uint8_t* blocks = blockTexture.getDataPtr(mip, member, face);
                uint8_t* pixels = pixelTexture.getDataPtr(mip, member, face);
                for (uint32_t z = 0; z < depth; ++z)
                    if (!visit(Slice{width, height, blocks + z * sliceBytes, pixels + z * slicePixelBytes}, mip,
                                     sliceBytes))
                        return false;
            }
    return true;
}

} // namespace

unsigned DXTSelector(PixelType format)
{
    if (!format.isNamedFormat() || format.PixelTypeID < orbtexture::ePF_DXT1 ||
        format.PixelTypeID > orbtexture::ePF_DXT5)
        return 0;
    return unsigned(format.PixelTypeID - orbtexture::ePF_DXT1) + 1;
}

bool ConvertWrites(PixelType format) { return DXTSelector(format) || orbtexture::CanTranscodeTo(format); }

bool ConvertReads(PixelType format) { return DXTSelector(format) || orbtexture::CanTranscodeFrom(format); }

bool CompressDXTSurfaces(CORBTexture& texture, PixelType format, orbtexture::EORBTVariableType channelType,
                         bool dither, std::string& reason)
{
    const unsigned selector = DXTSelector(format);
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(format);
    header.setChannelType(channelType);
    CORBTexture result(header);

    if (dither)
        for (uint32_t member = 0; member < texture.getNumArrayMembers(); ++member)
            for (uint32_t face = 0; face < texture.getNumFaces(); ++face)
                for (uint32_t mip = 0; mip < texture.getNumMIPLevels(); ++mip)
                    orbtexture::Dither(texture.getDataPtr(mip, member, face), format, texture.getWidth(mip),
                                       texture.getHeight(mip), texture.getDepth(mip));

    const bool done = ForEachSlice(result, texture, selector, reason,
                                   [&](const Slice& slice, uint32_t mip, uint64_t sliceBytes) {
                                       const unsigned written = orbtexture::DXTCompress(
                                           slice.pixels, slice.blocks, slice.width, slice.height, selector);
                                       if (written == sliceBytes)
                                           return true;
                                       reason = PixelFormatName(format.PixelTypeID) + " level " +
                                                std::to_string(mip) + ": the compressor wrote " +
                                                std::to_string(written) + " bytes of a slice of " +
                                                std::to_string(sliceBytes);
                                       return false;
                                   });
    if (!done)
        return false;
    texture = std::move(result);
    return true;
}

bool DecompressDXTSurfaces(CORBTexture& texture, std::string& reason)
{
    const unsigned selector = DXTSelector(texture.getPixelType());
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(PixelType(orbtexture::ORBStandard8PixelType));
    header.setChannelType(orbtexture::eVarUnsignedByteNorm);
    CORBTexture result(header);

    const bool done = ForEachSlice(texture, result, selector, reason, [&](const Slice& slice, uint32_t, uint64_t) {
        orbtexture::DXTDecompress(slice.blocks, slice.pixels, slice.width, slice.height, selector);
        return true;
    });
    if (!done)
        return false;
    texture = std::move(result);
    return true;
}

} // namespace cli
