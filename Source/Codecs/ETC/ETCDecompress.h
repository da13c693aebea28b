#ifndef ETCDECOMPRESS_H
#define ETCDECOMPRESS_H

// The pixel-at-a-time surface decoders, kept as the plain form of
// ETCDecompress and ORBTDecompressETC. The declarations shared with the rest
// of the family are in ETCBlockCodec.h.

#include <cstdint>

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

// ETCDecompress and ORBTDecompressETC a pixel at a time, on the calling
// thread; same arguments, results and bytes.
uint64_t ETCDecompressPlain(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                            unsigned int format, bool isSigned);
int ORBTDecompressETCPlain(const void* input, const unsigned int& width, const unsigned int& height, void* output,
                           const int& mode);

} // namespace orbtexture

#endif
