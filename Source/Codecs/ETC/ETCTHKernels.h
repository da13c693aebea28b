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
};

THKernels THKernelsFor(ESimdPath path);

} // namespace orbtexture

#endif
