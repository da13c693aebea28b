#ifndef ORBTC2SECTIONCOMPRESS_H
#define ORBTC2SECTIONCOMPRESS_H

// The fast compressor of 4bpp ORBTCII: every 4 x 4 block alone, in one pass,
// without upscaling. Blocks without transparent pixels are marked hard, so
// that the decoder doesn't blend them with their neighbours; blocks with a
// pixel of alpha 0 take punch-through codes instead.

#include "ORBTextureFormat.h"

namespace orbtexture
{

// Compresses width x height rgba8 pixels (whole blocks) into ORBTCII words in
// row order. Returns 1, whatever the size.
int ORBTC2SectionCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height);

// The number of different colours among 16 pixels: 1, 2, or 3 for any more.
// Pixels of equal red, green and blue are one colour if their alphas are
// equal or both extreme (0, or above 254). colours receives the first one or
// two; of the pixels that count as one colour, the first that is not fully
// transparent stands for it.
int countColours(Pixel<unsigned char>* block, Pixel<unsigned char>* colours);

// True if one of the 16 pixels has alpha 0.
bool hasBlockPThrough(Pixel<unsigned char>* block);

} // namespace orbtexture

#endif
