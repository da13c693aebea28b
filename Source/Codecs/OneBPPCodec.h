#ifndef ONEBPPCODEC_H
#define ONEBPPCODEC_H

// Black and white at one bit a pixel (BW1bpp, 18): eight pixels a byte, the
// first in bit 0. Unpacked pixels are R, G, B, A bytes.

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// A pixel is white when (R + G + B) / 3 is at least 128. Writes
// (width * height) >> 3 bytes and returns that count; trailing pixels that
// don't fill a byte are dropped. A null pointer asks for the count only.
ORBT_API unsigned int OneBPPCompress(const void* source, void* destination, const unsigned int& width,
                                     const unsigned int& height);

// Writes width * height opaque black or white pixels and returns
// width * height * 4. A null pointer asks for the count only.
ORBT_API unsigned int OneBPPDecompress(const void* source, void* destination, const unsigned int& width,
                                       const unsigned int& height);

} // namespace orbtexture

#endif
