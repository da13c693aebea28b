#ifndef DXTCODEC_H
#define DXTCODEC_H

// S3TC block codec: DXT1 (selector 1, 8-byte blocks), DXT2/DXT3 (2, 3,
// explicit 4-bit alpha) and DXT4/DXT5 (4, 5, interpolated alpha). Pixels are
// R, G, B, A bytes, rows packed; blocks are 4 x 4 in row-major block order.
// Nothing is premultiplied: 2 behaves as 3 and 4 as 5.

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Compresses width x height pixels; returns the bytes written, counting the
// size padded to whole blocks. With a null pointer nothing is touched and
// width * height (halved for selector 1) is returned, unpadded.
ORBT_API unsigned int DXTCompress(const void* source, void* destination, const unsigned int& width,
                                  const unsigned int& height, const unsigned int& format);

// Decodes blocks to width x height pixels; returns width * height * 4 (also
// as a size query when a pointer is null).
ORBT_API unsigned int DXTDecompress(const void* source, void* destination, const unsigned int& width,
                                    const unsigned int& height, const unsigned int& format);

} // namespace orbtexture

#endif
