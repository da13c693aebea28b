#ifndef ORBTEXTURECODECTABLE_H
#define ORBTEXTURECODECTABLE_H

#include <cstdint>

#include "ORBTextureFormat.h"

namespace orbtexture
{

// One codec call on one surface. For decoding, width, height and depth are the
// level's true dimensions and 'destination' has room for whole blocks; for
// encoding they are the dimensions raised to the format's minimum, and
// 'source' holds that many pixels.
struct CodecSurface
{
    unsigned char* source;
    unsigned char* destination;
    unsigned int width;
    unsigned int height;
    unsigned int depth;
    EORBTPixelFormat format;
    bool isSigned;
    ECompressorQuality quality;
};

// Returns the codec's result: bytes written, 0 on failure.
typedef unsigned int (*CodecCall)(const CodecSurface& surface);

// The channel layout a named format's codec takes and gives.
enum EIntermediateLayout : uint8_t
{
    eIntermediateRGBA8,   // 'r','g','b','a' 8,8,8,8, unsigned byte norm
    eIntermediateRGB8,    // 'r','g','b' 8,8,8, unsigned byte norm
    eIntermediateRGB32F,  // 'r','g','b' 32,32,32, signed float
    eIntermediateR16,     // 'r' 16, signed or unsigned short norm by the channel type
    eIntermediateRG16     // 'r','g' 16,16, likewise
};

// Everything the pipeline knows of a named format. A row without calls leaves
// decoded pixels uninitialised and makes encoding write nothing.
struct CodecRow
{
    uint32_t firstFormat;
    uint32_t lastFormat;
    EIntermediateLayout intermediate;
    uint8_t ditherBits[4];   // R, G, B, A; 0 is not dithered
    bool decodesAnySize;     // the decoder needs no block-sized buffer for small levels
    bool opaqueAlphaFirst;   // alpha is set to 255 in the encoder's input first
    CodecCall decode;
    CodecCall encode;
};

// The row of a named format value; values without one get a row with RGBA8,
// no dithering and no calls.
const CodecRow& FindCodecRow(uint32_t format);

// Bits per channel R, G, B, A that Dither quantises to for 'target'.
void DitherTargetBits(PixelType target, uint8_t bits[4]);

// Channel types 1, 3, 5, 7, 9, 11 and 12 are signed.
inline bool IsSignedChannelType(uint32_t channelType)
{
    return channelType == 12 || (channelType < 12 && (channelType & 1) != 0);
}

} // namespace orbtexture

#endif
