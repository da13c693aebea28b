#ifndef ORBTRAWTEXTURE_H
#define ORBTRAWTEXTURE_H

// Helpers for callers that handle raw texture memory without a CORBTexture.

#include "Tools/ORBTDefines.h"

// Interleaves the low 16 bits of x and y: bit i of y goes to bit 2i, bit i of x to 2i + 1.
ORBT_API void ORBTTextureTwiddle(unsigned int& result, unsigned int x, unsigned int y);

// Inverse of ORBTTextureTwiddle over all 32 bits: even bits give y, odd bits x.
ORBT_API void ORBTTextureDeTwiddle(unsigned int& x, unsigned int& y, unsigned int index);

// Fills a width x height surface of elementSize-byte elements by repeating a
// tile, in raster or twiddled order. A zero tile dimension fills nothing.
ORBT_API void ORBTTextureLoadTiled(unsigned char* destination, unsigned int width, unsigned int height,
                                   const unsigned char* tile, unsigned int tileWidth, unsigned int tileHeight,
                                   unsigned int elementSize, bool twiddled);

// A malloc'ed native header followed by room for the pixels (the MIP chain
// too when mipMapped, each level at least minWidth x minHeight). The data
// area is not cleared. Returns null if allocation fails or the size does not
// fit in 32 bits. Free with free().
ORBT_API void* ORBTTextureCreate(unsigned int width, unsigned int height, unsigned int minWidth,
                                 unsigned int minHeight, unsigned int bitsPerPixel, bool mipMapped);

#endif
