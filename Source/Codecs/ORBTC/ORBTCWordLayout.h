#ifndef ORBTCWORDLAYOUT_H
#define ORBTCWORDLAYOUT_H

// Internal: modulation weights, word order and colour expansion of ORBTC
// words, shared by the compressors and the decoder.

#include <cstdint>

#include "Codecs/ORBTC/ORBTCFormat.h"

namespace orbtexture
{

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

} // namespace orbtexture

#endif
