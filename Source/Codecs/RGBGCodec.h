#ifndef RGBGCODEC_H
#define RGBGCODEC_H

// Pairs of pixels sharing red and blue: RGBG8888 (20) stores R0, G0, B0, G1
// and GRGB8888 (21) stores G0, R0, G1, B0. Unpacked pixels are R, G, B, A bytes.

#include "ORBTextureFormat.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Takes red and blue from the first pixel of each pair; a last odd column is
// ignored. Returns width * height * 2, or 0 for a height of 0 or another format.
ORBT_API unsigned int RGBGCompress(const void* source, void* destination, const unsigned int& width,
                                   const unsigned int& height, const EORBTPixelFormat& format);

// Returns width * height * 4, or 0 for a height of 0 or another format.
ORBT_API unsigned int RGBGDecompress(const void* source, void* destination, const unsigned int& width,
                                     const unsigned int& height, const EORBTPixelFormat& format);

} // namespace orbtexture

#endif
