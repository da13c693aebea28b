#ifndef ORBTCFORMAT_H
#define ORBTCFORMAT_H

// The ORBTC word, its working colour types and the decoder.

#include <cstdint>

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// One block: a modulation word and a colour word, each little-endian, 8 bytes.
// A block covers 4 x 4 pixels at 4bpp and 8 x 4 at 2bpp.
struct ORBTCWord
{
    uint32_t modulationData;
    uint32_t colourData;
};

// A colour in working precision: 5-bit red, green, blue and 4-bit alpha in bytes.
struct Pixel32
{
    uint8_t red, green, blue, alpha;
};

// Upscaled colour channels.
struct Pixel128S
{
    int32_t red, green, blue, alpha;
};

// Decodes ORBTC words (twoBitMode 1 for 2bpp, else 4bpp) to width x height
// rgba8 pixels. The image is padded to at least 16 x 8 (2bpp) or 8 x 8 (4bpp);
// its words are in twiddled order when the block grid is a power of two on
// both sides, else in row order. Pixels beyond the whole blocks are left as
// they were. Images above a megapixel are split over the call's threads.
// Returns the compressed size in bytes, 0 when working memory runs out.
ORBT_API int ORBTDecompressORBTC(const void* compressedData, int twoBitMode, int width, int height,
                                 unsigned char* result);

} // namespace orbtexture

#endif
