#ifndef ORBTEXTURECODECREGISTRY_H
#define ORBTEXTURECODECREGISTRY_H

// Internal: each named format's codec calls and the limits of its codecs.
// The format facts (Model/ORBTextureFormatFacts.h) say what a format is; this
// says what the codecs of this build can do with it.

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

// Which sides an encoder takes only in whole units of the format's least size
// (a side below the least size is tiled up to it, so it is taken too).
enum EWholeUnits : uint8_t
{
    eWholeUnitsNone,
    eWholeUnitsAcross, // pixel pairs or 8 pixels a byte
    eWholeUnitsBoth    // whole blocks
};

// The limits of a format's encoder.
struct CodecLimits
{
    uint16_t largestSide;   // 0: no limit of its own
    EWholeUnits wholeUnits;
    bool paddingBlock;      // partial blocks are padded by wrapping the image
    int8_t highestQuality;  // qualities 0 to this are served; -1 without encoder, INT8_MAX every quality
};

// A format's codec. A format without calls leaves decoded pixels zero and
// makes encoding write nothing.
struct CodecEntry
{
    CodecCall decode;
    CodecCall encode;
    CodecLimits limits;
};

// The codec of a named format value; values from ePF_NumCompressed on have
// none.
const CodecEntry& DescribeCodec(uint32_t format);

} // namespace orbtexture

#endif
