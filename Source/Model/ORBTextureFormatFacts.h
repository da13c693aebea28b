#ifndef ORBTEXTUREFORMATFACTS_H
#define ORBTEXTUREFORMATFACTS_H

// Internal: the facts of each named format and channel type: names, sizes,
// the layout a codec works in and dithering. No codec here; the codec
// registry (Pixels/ORBTextureCodecRegistry.h) adds calls and limits.

#include <cstdint>

#include "ORBTextureFormat.h"

namespace orbtexture
{

// A channel layout from its channel letters (first channel in the lowest
// byte; up to four) and their widths, for constant tables.
constexpr uint64_t ChannelLayout(const char* names, unsigned w0, unsigned w1 = 0, unsigned w2 = 0, unsigned w3 = 0)
{
    const uint64_t n0 = uint8_t(names[0]);
    const uint64_t n1 = n0 ? uint8_t(names[1]) : 0;
    const uint64_t n2 = n1 ? uint8_t(names[2]) : 0;
    const uint64_t n3 = n2 ? uint8_t(names[3]) : 0;
    return n0 | n1 << 8 | n2 << 16 | n3 << 24 | uint64_t(w0) << 32 | uint64_t(w1) << 40 | uint64_t(w2) << 48 |
           uint64_t(w3) << 56;
}

// The channel layout a named format's codec takes and gives.
enum EIntermediateLayout : uint8_t
{
    eIntermediateRGBA8,  // 'r','g','b','a' 8,8,8,8, unsigned byte norm
    eIntermediateRGB8,   // 'r','g','b' 8,8,8, unsigned byte norm
    eIntermediateRGB32F, // 'r','g','b' 32,32,32, signed float
    eIntermediateR16,    // 'r' 16, signed or unsigned short norm by the channel type
    eIntermediateRG16    // 'r','g' 16,16, likewise
};

// The codec family of a named format.
enum EFormatFamily : uint8_t
{
    eFamilyNone,
    eFamilyORBTC,   // first generation
    eFamilyORBTCII, // second generation
    eFamilyETC,     // ETC1, ETC2 and EAC
    eFamilyDXT,
    eFamilyBC,      // BC4 to BC7
    eFamilyYUV,
    eFamilyOneBPP,
    eFamilyRGB9E5,
    eFamilyRGBG,
    eFamilyASTC
};

// What the library knows of a named format apart from its codec.
struct FormatDescriptor
{
    const char* name;              // enumerator name without "ePF_"
    EFormatFamily family;
    uint8_t bitsPerPixel;          // 0 where no per-pixel size exists
    uint8_t minX, minY, minZ;      // smallest storable unit; surfaces round up to it
    bool sizedByBlocks;            // 128 bits a block position (ASTC), whatever bitsPerPixel says
    EIntermediateLayout intermediate;
    uint8_t ditherBits[4];         // R, G, B, A; 0 is not dithered
    EChannelName ditherGrey;       // copied into R, G and B before dithering, or none
    bool decodesAnySize;           // the decoder needs no block-sized buffer for small levels
    bool opaqueAlphaFirst;         // alpha is set to 255 in the encoder's input first
};

// The descriptor of a named format value; values from ePF_NumCompressed + 1 on
// get a descriptor without name or size (RGBA8, minimum 1 x 1 x 1).
const FormatDescriptor& DescribeFormat(uint32_t format);

// True for the values 0 to ePF_NumCompressed.
inline bool IsKnownFormat(uint32_t format) { return format <= ePF_NumCompressed; }

inline bool IsASTCFormat(uint64_t format) { return format < ePF_NumCompressed && DescribeFormat(uint32_t(format)).family == eFamilyASTC; }

// The ASTC format of a block size; 0 when there is none. Z of 1 selects among
// the two-dimensional formats, any other among the three-dimensional.
uint32_t ASTCFormatOfBlock(unsigned x, unsigned y, unsigned z);

struct ChannelTypeDescriptor
{
    const char* name;      // enumerator name without "eVar"
    const char* shortName; // "ubn"
    uint8_t elementBits;   // 8, 16 or 32
    bool isSigned;         // the compressed-format dispatch's notion: 13 counts as unsigned
};

// Null for values from eNumVarTypes on.
const ChannelTypeDescriptor* DescribeChannelType(uint32_t channelType);

inline bool IsSignedChannelType(uint32_t channelType)
{
    const ChannelTypeDescriptor* type = DescribeChannelType(channelType);
    return type && type->isSigned;
}

// Bits per channel R, G, B, A that Dither quantises to for 'target'.
void DitherTargetBits(PixelType target, uint8_t bits[4]);

// A channel layout with a channel wider than 32 bits: no pixel of it fits the
// encoder, so loaders and Transcode refuse it.
inline bool HasOversizedChannel(PixelType type)
{
    if (type.isNamedFormat())
        return false;
    for (unsigned i = 0; i < 4; ++i)
        if (type.channelBits(i) > 32)
            return true;
    return false;
}

} // namespace orbtexture

#endif
