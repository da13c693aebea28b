#ifndef ORBTCDECOMPRESSINTERNAL_H
#define ORBTCDECOMPRESSINTERNAL_H

// Steps of the ORBTC decoder, exposed for tests.

#include "Codecs/ORBTC/ORBTCFormat.h"

namespace orbtexture
{

// Writes the modulation of one word into a 2x2-word grid indexed [x][y]
// (8x8 for 4bpp, 16x8 for 2bpp) at (offsetX, offsetY). 4bpp stores weights out
// of 8 (14 marks punch-through); 2bpp stores two-bit codes and, per pixel, the
// word's sub-mode (0 for flag 0, else 1 both axes, 2 horizontal, 3 vertical).
// 2bpp sub-mode words leave the uncoded pixels of the values grid untouched.
void unpackModulations(const ORBTCWord& word, int offsetX, int offsetY, int (*modulationValues)[8],
                       int (*modulationModes)[8], unsigned char bpp);

// Bilinear upscaling of one colour of four neighbouring words across a tile
// spanning from the centre of P to the centre of S. out holds bw x 4 values in
// row order (out[r * bw + c]), bw being 4 for 4bpp and 8 for 2bpp.
void interpolateColours(Pixel32 P, Pixel32 Q, Pixel32 R, Pixel32 S, Pixel128S* out, unsigned char bpp);

// Decodes one tile to 8-bit rgba, out[r * bw + c].
void orbtcGetDecompressedPixels(const ORBTCWord& P, const ORBTCWord& Q, const ORBTCWord& R, const ORBTCWord& S,
                                Pixel32* out, unsigned char bpp);

// ORBTDecompressORBTC tile by tile through the steps above: the plain decoder
// the row decoder is held to. Returns 0 when its working image cannot be made.
int ORBTDecompressORBTCPlain(const void* compressedData, int twoBitMode, int width, int height, unsigned char* result);

} // namespace orbtexture

#endif
