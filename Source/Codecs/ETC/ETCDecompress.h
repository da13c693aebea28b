#ifndef ETCDECOMPRESS_H
#define ETCDECOMPRESS_H

// The ETC1-only decoder behind ORBTDecompressETC. The declarations shared
// with the rest of the family are in ETCBlockCodec.h.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

// Differential and flip bits of a first block word read little-endian.
constexpr unsigned int ETC_DIFF = 0x2000000u;
constexpr unsigned int ETC_FLIP = 0x1000000u;

// Decodes ETC1 blocks (words read little-endian, ETC2 modes taken as
// differential blocks) into width x height pixels of 32 bits, each written
// as 0xff000000 + red * 65536 + green * 256 + blue. Only pixels inside the
// image are written. Returns width * height / 2; 'mode' has no effect.
int ETCTextureDecompress(const void* input, const int& width, const int& height, void* output, const int& mode);

} // namespace orbtexture

#endif
