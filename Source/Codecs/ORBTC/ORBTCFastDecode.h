#ifndef ORBTCFASTDECODE_H
#define ORBTCFASTDECODE_H

// The row decoder of ORBTC and ORBTCII words behind ORBTDecompressORBTC and
// orbtc_decompress. It gives the bytes of the per-tile decoders
// (ORBTDecompressORBTCPlain, Decompress) output row by output row: each word's
// colours are expanded once per block row, the bilinear upscaling runs across
// a row in 16-bit lanes and the modulation weights of a row are looked up
// once. The grid wraps in both axes at any size of one block or more.

#include <cstddef>
#include <cstdint>

namespace orbtexture
{

struct ORBTCFastSurface
{
    const unsigned char* words = nullptr; // one word per block of the grid
    uint32_t numX = 0, numY = 0;          // the block grid
    bool twoBpp = false;                  // 8 x 4 blocks, else 4 x 4
    bool generation2 = false;             // ORBTCII words: hard tiles, local palettes, black punch-through
    bool rowOrder = false;                // words in row order, else ORBTC order (twiddled on power-of-two grids)
    unsigned char* output = nullptr;      // rgba8, 'stride' bytes a row
    size_t stride = 0;
    uint32_t width = 0, height = 0;       // pixels written from the top-left; at most the grid's
};

// Decodes the output rows of block rows [first, end) (those below 'height'
// only). False when its working memory cannot be had.
bool ORBTCDecodeBlockRows(const ORBTCFastSurface& surface, uint32_t first, uint32_t end);

// Decodes the whole surface, split over the call's threads above a megapixel.
bool ORBTCDecodeSurface(const ORBTCFastSurface& surface);

} // namespace orbtexture

#endif
