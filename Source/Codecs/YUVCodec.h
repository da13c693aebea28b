#ifndef YUVCODEC_H
#define YUVCODEC_H

// Packed 4:2:2 YUV: UYVY (16) stores U, Y0, V, Y1 and YUY2 (17) stores
// Y0, U, Y1, V for each pair of pixels. Unpacked pixels are R, G, B, A bytes.

#include "ORBTextureFormat.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Packs (width >> 1) pairs a row; a last odd column is ignored. Returns
// width * height * 2, or 0 for a height of 0 or another format.
ORBT_API unsigned int YUVCompress(const void* source, void* destination, const unsigned int& width,
                                  const unsigned int& height, const EORBTPixelFormat& format);

// Unpacks to width * height pixels with opaque alpha. Returns
// width * height * 4, or 0 for a height of 0 or another format.
ORBT_API unsigned int YUVDecompress(const void* source, void* destination, const unsigned int& width,
                                    const unsigned int& height, const EORBTPixelFormat& format);

// Integer studio-range conversion of one sample (blue uses 517).
ORBT_API void ConvertYUVToRGB(int y, int u, int v, unsigned char& red, unsigned char& green, unsigned char& blue);

// Y0 and U from the first pixel, Y1 and V from the second; alpha is dropped.
ORBT_API void ConvertRGBToYUV(Pixel<unsigned char> first, Pixel<unsigned char> second, unsigned char& y0,
                              unsigned char& y1, unsigned char& u, unsigned char& v);

} // namespace orbtexture

#endif
