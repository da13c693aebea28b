#ifndef ORBTEXTURELEGACY_H
#define ORBTEXTURELEGACY_H

// The two older .orb headers and the legacy pixel enumeration that they use
// in place of a PixelType. Legacy files are read by the ordinary loaders and
// written by CORBTexture::saveFileLegacyORB.

#include <cstdint>

#include "ORBTextureFormat.h"
#include "ORBTextureHeader.h"
#include "ORBTextureInfo.h"
#include "Model/ORBTextureLegacyApi.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// A legacy pixel format: the low byte of a legacy header's format word. The
// values from 0 to eNumLegacyFormats - 1 that have a meaning are listed by
// ORBTMapLegacyTextureEnumToNewFormat; the numbers are stored in files.
enum ORBTPixelType : uint32_t
{
    eNumLegacyFormats = 182,
    // What the reverse map answers for a format without a legacy number.
    eLegacyFormatNone = 0xFFFFFFFFu
};

} // namespace orbtexture

// Flag bits of a legacy header's format word, above the format byte.
constexpr uint32_t ORBTEX_LEGACY_FORMAT_MASK = 0xFFu;
constexpr uint32_t ORBTEX_LEGACY_FLAG_MIPMAPS = 0x100u;
constexpr uint32_t ORBTEX_LEGACY_FLAG_BUMPMAP = 0x400u;
constexpr uint32_t ORBTEX_LEGACY_FLAG_CUBEMAP = 0x1000u;
constexpr uint32_t ORBTEX_LEGACY_FLAG_ALPHA = 0x8000u;
constexpr uint32_t ORBTEX_LEGACY_FLAG_FLIPPED_Y = 0x10000u;

// "ORB!", the magic word of a version 2 header.
constexpr uint32_t ORBTEX_LEGACY_MAGIC = 0x2142524Fu;
constexpr uint32_t ORBTEX_LEGACY_V1_HEADER_SIZE = 44;
constexpr uint32_t ORBTEX_LEGACY_V2_HEADER_SIZE = 52;

// The version 1 header, 44 bytes, little-endian. A file starts with it and
// its surfaces follow: array member outermost, then face, then MIP level.
struct ORBTextureHeaderV1
{
    uint32_t headerSize = ORBTEX_LEGACY_V1_HEADER_SIZE;
    uint32_t height = 0;
    uint32_t width = 0;
    uint32_t mipMapCount = 0;         // levels besides the top one
    uint32_t pixelFormatAndFlags = 0; // low byte ORBTPixelType, flags above
    uint32_t textureDataSize = 0;
    uint32_t bitCount = 0;
    uint32_t redMask = 0;
    uint32_t greenMask = 0;
    uint32_t blueMask = 0;
    uint32_t alphaMask = 0;
};
static_assert(sizeof(ORBTextureHeaderV1) == ORBTEX_LEGACY_V1_HEADER_SIZE, "legacy V1 header must be 44 bytes");

// The version 2 header, 52 bytes: version 1 plus a magic word and the number
// of surfaces (faces times array members).
struct ORB_Texture_Header
{
    uint32_t headerSize = ORBTEX_LEGACY_V2_HEADER_SIZE;
    uint32_t height = 0;
    uint32_t width = 0;
    uint32_t mipMapCount = 0;
    uint32_t pixelFormatAndFlags = 0;
    uint32_t textureDataSize = 0;
    uint32_t bitCount = 0;
    uint32_t redMask = 0;
    uint32_t greenMask = 0;
    uint32_t blueMask = 0;
    uint32_t alphaMask = 0;
    uint32_t magic = ORBTEX_LEGACY_MAGIC;
    uint32_t numSurfaces = 0;
};
static_assert(sizeof(ORB_Texture_Header) == ORBTEX_LEGACY_V2_HEADER_SIZE, "legacy V2 header must be 52 bytes");

// Pixel format, colour space, channel type and premultiplied flag of a
// legacy format. A value without a meaning, and any value from
// eNumLegacyFormats on, gives ePF_NumCompressed with channel type
// eNumVarTypes, which no size is known for; the result is then false.
ORBT_API bool ORBTMapLegacyTextureEnumToNewFormat(orbtexture::ORBTPixelType legacy, uint64_t& pixelFormat,
                                                  orbtexture::EORBTColourSpace& colourSpace,
                                                  orbtexture::EORBTVariableType& channelType,
                                                  bool& isPreMultiplied);

// Converts either legacy header to the native record. 'header' points at 44
// or 52 bytes as its headerSize says; only 52 reads numSurfaces. The MIP
// count counts only with the MIP flag set. With 'metaData' not null, the
// map is emptied and receives the items the flags stand for. False for a
// null header.
ORBT_API bool ORBTConvertOldTextureHeaderToV3(const ORB_Texture_Header* header, ORBTextureHeaderV3& result,
                                              orbtexture::MetaDataMap* metaData);

namespace orbtexture
{

// ORBTMapLegacyTextureEnumToNewFormat with a PixelType.
ORBT_API bool MapLegacyEnumToNewFormat(ORBTPixelType legacy, PixelType& pixelType, EORBTColourSpace& colourSpace,
                                       EORBTVariableType& channelType, bool& isPreMultiplied);

// The legacy number of a format for one API group; eLegacyFormatNone (all
// bits set) when the group has none. Not the exact inverse of the forward
// map: several formats have more than one number or none in a group.
ORBT_API ORBTPixelType MapNewFormatToLegacyEnum(PixelType pixelType, EORBTColourSpace colourSpace,
                                                EORBTVariableType channelType, bool isPreMultiplied,
                                                ELegacyApi api);

// A legacy header to the native record (metaDataSize counting the items)
// and its metadata: the map is emptied, then receives a bump-map item for
// the bump flag and an orientation item for the flipped flag. The MIP count
// is mipMapCount + 1 whatever the MIP flag says.
ORBT_API void ConvertTextureHeader1To3(ORBTextureHeaderV1 header, ORBTextureHeaderV3& result,
                                       MetaDataMap& metaData);
ORBT_API void ConvertTextureHeader2To3(ORB_Texture_Header header, ORBTextureHeaderV3& result,
                                       MetaDataMap& metaData);

// A version 2 header for 'header' written for 'api'. Its format word is all
// ones when the format has no legacy number for that API.
ORBT_API ORB_Texture_Header ConvertTextureHeader3To2(CORBTextureHeader header, ELegacyApi api);

} // namespace orbtexture

#endif
