#ifndef ETCTHKERNELS_H
#define ETCTHKERNELS_H
// Kernels of the exhaustive T and H searches: rows of 16 pixels' errors.
// Every error is below 2^31.
#include "Tools/ORBTSimd.h"

namespace orbtexture
{

struct THKernels
{
    // One colour's tables from its paints' errors, upper[paint][pixel] +
    // last[paint][pixel] (17 paints: the colour, plus and less each of eight
    // distances): 'single' (when given) the colour's own 16 errors, 'pair'
    // (when given) per distance the per-pixel least of plus and less, and
    // with 'threePaints' of the colour too.
    void (*paintRow)(const unsigned int* upper, const unsigned int* last, bool threePaints, unsigned int* pair,
                     unsigned int* single);
    // The least, over the distances d set in 'live', of offsets[d] (0 when
    // null) plus the sum over the 16 pixels of min(first[d][p],
    // second[d][p]), 'second' the same row for every distance when
    // 'secondStride' is 0; at most 'best'. 'alive' receives the distances
    // whose sum is below 'best'.
    unsigned int (*leastOverDistances)(const unsigned int* first, const unsigned int* second, int secondStride,
                                       const unsigned int* offsets, unsigned int best, unsigned int live,
                                       unsigned int* alive);
    // out[i], for i below 'length', the least of rows[c * length + i] over
    // the 16 rows c; 'length' a multiple of 16.
    void (*leastOfRows)(const unsigned int* rows, int length, unsigned int* out);
    // One channel's errors at the 16 pixels for the 16 codes' 17 paints:
    // out[(code * 17 + paint) * 16 + p] = weight * (pixels[p] - values[code *
    // 17 + paint])^2.
    void (*paintErrors)(const int* pixels, const int* values, unsigned int weight, unsigned int* out);
    // With each channel's errors laid out as paintErrors gives them: red plus
    // the least green and least blue over the codes of the same paint and
    // pixel ('redOut'), and green plus that least blue ('greenOut').
    void (*boundingErrors)(const unsigned int* red, const unsigned int* green, const unsigned int* blue,
                           unsigned int* redOut, unsigned int* greenOut);
};

THKernels THKernelsFor(ESimdPath path);

} // namespace orbtexture

#endif
