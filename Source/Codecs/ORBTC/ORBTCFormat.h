#ifndef ORBTCFORMAT_H
#define ORBTCFORMAT_H

// The ORBTC word and its decoder.

#include <cstdint>

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// One block: a modulation word and a colour word, each little-endian, 8 bytes.
// A block covers 4 x 4 pixels at 4bpp and 8 x 4 at 2bpp.
struct ORBTCWord
{
    uint32_t modulationData;
    uint32_t colourData;
};

// A colour in working precision: 5-bit red, green, blue and 4-bit alpha in bytes.
struct Pixel32
{
    uint8_t red, green, blue, alpha;
};

// Upscaled colour channels.
struct Pixel128S
{
    int32_t red, green, blue, alpha;
};

// Weight on colour B, out of 8, of each two-bit modulation code. In the
// punch-through row, 14 stands for weight 4 with alpha forced to 0: an entry
// above ORBTCAlphaZeroOffset is that offset plus the blend weight.
constexpr int ORBTCStandardWeights[4] = {0, 3, 5, 8};
constexpr int ORBTCPunchthroughWeights[4] = {0, 4, 14, 8};
constexpr int ORBTCAlphaZeroOffset = 10;

// The blend weight of a table entry, without the alpha-zero marker.
constexpr int ORBTCBlendWeight(int weight)
{
    return weight > ORBTCAlphaZeroOffset ? weight - ORBTCAlphaZeroOffset : weight;
}

// Twiddled index of block (x, y) in a grid of numX x numY words: Morton order
// over the square of the smaller dimension (y in the even bits), squares
// stacked along the longer axis. Defined for power-of-two grids only: on others
// it can pass numX * numY. Words are addressed through ORBTCWordIndex.
inline uint32_t ORBTCTwiddleIndex(uint32_t numX, uint32_t numY, uint32_t x, uint32_t y)
{
    const uint32_t smaller = numX < numY ? numX : numY;
    const uint32_t larger = numY < numX ? x : y;
    uint32_t index = 0;
    unsigned passes = 0;
    for (; passes < 32 && (uint64_t(1) << passes) < smaller; ++passes)
    {
        index |= ((y >> passes) & 1u) << (2 * passes);
        index |= ((x >> passes) & 1u) << (2 * passes + 1);
    }
    if (passes < 16)
        index |= (larger >> passes) << (2 * passes);
    return index;
}

inline bool ORBTCIsPowerOfTwo(uint32_t v) { return v != 0 && (v & (v - 1)) == 0; }

// Index of the word of block (x, y) in a grid of numX x numY words: twiddled
// when both sides are powers of two, otherwise row order (y * numX + x).
// Always below numX * numY for x < numX, y < numY.
inline uint32_t ORBTCWordIndex(uint32_t numX, uint32_t numY, uint32_t x, uint32_t y)
{
    if (ORBTCIsPowerOfTwo(numX) && ORBTCIsPowerOfTwo(numY))
        return ORBTCTwiddleIndex(numX, numY, x, y);
    return y * numX + x;
}

// Colour A and colour B of a colour word expanded to working precision: a
// 4-bit field v becomes (v << 1) | (v >> 3), colour A's 3-bit blue
// (v << 2) | (v >> 1), a 3-bit alpha v << 1; the opaque form has alpha 15.
Pixel32 ORBTCExpandColourA(uint32_t colourWord);
Pixel32 ORBTCExpandColourB(uint32_t colourWord);

// Decodes a generation 1 ORBTC image (twoBitMode 1 for 2bpp, else 4bpp) to
// width x height rgba8 pixels. Returns the compressed size in bytes of the
// image padded to at least 16 x 8 (2bpp) or 8 x 8 (4bpp).
ORBT_API int ORBTDecompressORBTC(const void* compressedData, int twoBitMode, int width, int height,
                                 unsigned char* result);

} // namespace orbtexture

#endif
