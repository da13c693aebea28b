#ifndef ETCSUBBLOCKKERNELS_H
#define ETCSUBBLOCKKERNELS_H
// Kernels of the fast sub-block searches, over the tables of
// ETCSubBlockSearch.cpp: a value's errors are [pixel][modifier 4][table 8].
#include <cstddef>

#include "Tools/ORBTSimd.h"

namespace orbtexture
{

struct SubBlockKernels
{
    // Per table, the sum over the pixels of the least over the modifiers of
    // a + b (of a alone when b is null), the pixels' errors at a + pixels[i]
    // and b + pixels[i]; 'sum' (when given) receives a + b, pixel i at i * 32.
    void (*least)(const unsigned int* a, const unsigned int* b, const int* pixels, unsigned int* sum,
                  unsigned int* least);
    // For every blue b below 'levels' whose lower bound, the least over the
    // tables of lrg + lb[b], is below 'bound': the error of the colour, the
    // least over the tables of the summed per-pixel least of rg (pixel i at
    // i * 32) and blue[b] (at blue[b] + pixels[i]). out[b] is that error when
    // below 'bound', and bit b of 'found' set; the other entries are left.
    // With 'shrink' each error found becomes the bound. Returns the bound.
    // 'bound' is below 2^31.
    unsigned int (*blueRow)(const unsigned int* rg, const unsigned int* lrg, const unsigned int (*lb)[8],
                            const unsigned int* const* blue, const int* pixels, int levels, unsigned int bound,
                            bool shrink, unsigned int* out, unsigned int* found);
    // One value's errors at the 16 pixels of a channel, 'pixels': out[p * 32
    // + i] = weight * (pixels[p] - decoded[i])^2, i = modifier * 8 + table.
    void (*valueErrors)(const int* pixels, unsigned int weight, const int* decoded, unsigned int* out);
    // Per code below 'levels' (decoded values at decoded + code * 32), pixel
    // p and table t, the least over the modifiers of those errors, at
    // least[code * 128 + p * 8 + t].
    void (*leastErrors)(const int* pixels, unsigned int weight, const int* decoded, int levels, unsigned int* least);
    // For each of 'count' codes c: out[c][t] = the sum over the eight pixels
    // p listed of least[c * 128 + p * 8 + t].
    void (*sumLeast)(const unsigned int* least, const int* pixels, int count, unsigned int (*out)[8]);
    // out[g], for g below 'levels', the least over the tables t of a[t] +
    // rows[g][t] + c[t].
    void (*leastOfSums)(const unsigned int* a, const unsigned int (*rows)[8], const unsigned int* c, int levels,
                        unsigned int* out);
    // out[t] = the least over the 'count' rows of rows[row][t].
    void (*leastOfRows)(const unsigned int (*rows)[8], int count, unsigned int* out);
};

SubBlockKernels SubBlockKernelsFor(ESimdPath path);

} // namespace orbtexture

#endif
