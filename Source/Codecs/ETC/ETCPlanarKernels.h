#ifndef ETCPLANARKERNELS_H
#define ETCPLANARKERNELS_H
// The error kernel of the fast planar search: one channel of a 4 x 4 block.
#include <cstdint>

#include "Tools/ORBTSimd.h"

namespace orbtexture
{

// Pixel p = i + 4 j of a channel: its value, its row j, and the part of
// 4 x its decoded value that does not depend on the vertical corner, plus 2
// (4 o + i (h - o) - j o + 2 for corners o and h).
struct PlanarTerms
{
    int16_t pixels[16], rows[16], base[16];
};

// The sum over the 16 pixels of (pixel - clamp((base + j v) >> 2, 0, 255))^2
// for the vertical corner v.
using PlanarSquares = unsigned int (*)(const PlanarTerms& terms, int v);

PlanarSquares PlanarSquaresFor(ESimdPath path);

} // namespace orbtexture

#endif
