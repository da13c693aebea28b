#ifndef DXTBLOCK_H
#define DXTBLOCK_H

// Block-level pieces of the DXT compressor. 'pixels' point at the top left
// pixel of a 4 x 4 block of R, G, B, A bytes; 'stride' is the row stride in
// pixels.

namespace orbtexture
{

// 8 bytes of explicit alpha: the top nibble of each alpha byte.
void storeAlpha(unsigned int* pixels, unsigned short* block, int stride);

// 8 bytes of interpolated alpha: maximum, minimum, then 16 3-bit codes.
void storeInterpolatedAlpha(unsigned int* pixels, unsigned int* block, int stride);

// Number of distinct 5:6:5 keys among the 16 pixels, stopping at 3. The first
// key goes to colours[0], the second distinct one to colours[1].
int countColours(float* red, float* green, float* blue, unsigned short* colours);

// True when one of the 16 alpha values is below 128.
bool canHavePunchThrough(unsigned int* alphas);

} // namespace orbtexture

#endif
