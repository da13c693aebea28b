#ifndef FNZJ_WRAPPER_DECODER_H
#define FNZJ_WRAPPER_DECODER_H

// The decoder of every word the optimiser writes: ORBTC words, and ORBTCII
// words with their hard transitions and local palettes.
//
// ORBTCII colour word: bit 0 modulation flag, bits 1-14 colour A, bit 15 hard
// flag, bits 16-30 colour B, bit 31 the form of both colours (1 opaque). The
// translucent alpha of B is (v << 1) + 1, of A v << 1. A tile (from the centre
// of P to the centre of S) is hard exactly when P's hard flag is set: its
// pixels take the colours of the block holding them, without upscaling, and
// at 4bpp the pixels of a block with its modulation flag set read the tile's
// local palette (all but tile place (0, 0)). In soft tiles the modulation flag
// means punch-through, whose code 2 is black with alpha 0.

#include <cstdint>

#include "Bitmap/Bitmap.h"
#include "Codecs/ORBTC/ORBTCFormat.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Decodes width x height pixels (whole blocks: 4 x 4 at 4bpp, 8 x 4 at 2bpp)
// into the top-left of 'bitmap'. 'extended' non-zero reads ORBTCII words, 0
// ORBTC words. 'rowOrder' non-zero takes the words in row order; 0 in the
// ORBTC order (twiddled on power-of-two grids, else row order). The grid wraps
// in both axes, at any size of one block or more. 'format' must be 4, the
// optimiser's format. 'channels' below 4 writes alpha 255. 'ignored' and
// 'debugView' are accepted and not used. Returns 1; 0 for a null pointer, a
// bitsPerPixel other than 2 or 4, another format, a size that is not whole
// blocks or a bitmap smaller than the image. bitsPerPixel 1 prints a message
// and aborts.
ORBT_API int Decompress(const void* words, int ignored, unsigned int extended, unsigned int format, int bitsPerPixel,
                        int width, int height, int channels, int debugView, unsigned int rowOrder, Bitmap* bitmap);

// Decodes to width x height rgba8 pixels in 'output', is2bpp 1 selecting 2bpp.
// The sides are rounded up to whole blocks, so 'words' holds one word per
// block of the rounded size. A non-zero 'decoder' reads ORBTCII words in row
// order; 0 reads ORBTC words in ORBTC order. The same bytes as Decompress,
// row by row (ORBTCFastDecode.h), over the call's threads above a megapixel.
// Returns 1, or 0 when there is nothing to decode (a null pointer, a side of 0
// or above INT_MAX once rounded) or working memory runs out.
int orbtc_decompress(const void* words, unsigned char* output, unsigned int width, unsigned int height,
                     unsigned int decoder, int is2bpp);

// Printable names of the local palette indices, for diagnostics.
extern const char* const LocalPaletteIndexNames[8];

// ---- Steps, exposed for tests ----

// One word's modulation on a tile's grid, indexed [x][y] (8 x 8 at 4bpp, 16
// x 8 at 2bpp), at (offsetX, offsetY). 'codes' gets the stored two-bit codes
// (2bpp flag 0: 0 or 3); 'modes' the word's modulation flag at 4bpp, its
// sub-mode at 2bpp (0 for flag 0, else 1 both axes, 2 horizontal, 3
// vertical), whose uncoded places are left untouched in 'codes'.
void UnpackExtendedModulations(const ORBTCWord& word, int offsetX, int offsetY, int bitsPerPixel,
                               int (*codes)[8], int (*modes)[8]);

// The weight on B, out of 8, at grid place (x, y). At 4bpp a modulation flag
// means punch-through outside hard tiles, and its code 2 gives
// ORBTCAlphaZeroOffset + 4; 2bpp places without a code take the mean of their
// neighbours' weights by the sub-mode.
int GetModulationValue(const int (*codes)[8], const int (*modes)[8], int x, int y, int bitsPerPixel,
                       bool hardTile);

// Colours of the tile's words P, Q, R, S (in that order) at each tile pixel,
// out[r * bw + c] in 8-bit scale: bilinearly upscaled in a soft tile, the
// colour of the block holding the pixel in a hard one.
void InterpolateColours(const Pixel32* colours, bool hardTile, int bitsPerPixel, Pixel128S* out);

// The tile's eight palette colours in 8-bit rgba from A and B of P, Q, R, S:
// A of P, B of P, A of S, B of S, A of Q, B of Q, A of R, B of R.
void FillLocalPalette(const Pixel32* a, const Pixel32* b, uint8_t (*palette)[4]);

// The colour of 'code' at tile place (place x, place y) = place % 4, place / 4
// (not 0).
void resultFromLocalPalette(const uint8_t (*palette)[4], int place, int code, uint8_t* rgba);

// Colours A and B of a colour word in working precision; 'generation2' reads
// the ORBTCII forms.
void ExpandColours(uint32_t colourWord, bool generation2, Pixel32& a, Pixel32& b);

// One tile (from the centre of P to the centre of S) in 8-bit rgba,
// out[r * bw + c], from words P, Q, R, S.
void DecodeWordTile(const ORBTCWord* words, bool generation2, int bitsPerPixel, uint8_t (*out)[4]);

} // namespace orbtexture

#endif
