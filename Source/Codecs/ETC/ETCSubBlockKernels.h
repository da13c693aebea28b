#ifndef ETCSUBBLOCKKERNELS_H
#define ETCSUBBLOCKKERNELS_H
// Kernels of the fast sub-block searches, over the tables of
// ETCSubBlockTables.h: a value's errors are [pixel 8][modifier 4][table 8].
#include <cstddef>

#include "Tools/ORBTSimd.h"

namespace orbtexture
{

struct SubBlockKernels
{
    // Per table, the sum over the pixels of the least over the modifiers of
    // a + b (of a alone when b is null); 'sum' (when given) receives a + b.
    void (*least)(const unsigned int* a, const unsigned int* b, unsigned int* sum, unsigned int* least);
    // For every blue b below 'levels' whose lower bound, the least over the
    // tables of lrg + lb[b], is below 'bound': the error of the colour, the
    // least over the tables of the summed per-pixel least of rg + blue[b].
    // out[b] is that error when below 'bound', else ~0u. With 'shrink' each
    // error found becomes the bound. Returns the bound. 'bound' is below 2^31.
    unsigned int (*blueRow)(const unsigned int* rg, const unsigned int* lrg, const unsigned int (*lb)[8],
                            const unsigned int* const* blue, int levels, unsigned int bound, bool shrink,
                            unsigned int* out);
    // The 32 errors (modifier, table) of each of 'levels' codes against one
    // pixel's channel value: weight * (value - decoded)^2, decoded[code * 32 +
    // i] the decoded values; code c's go to a + slots[c] and b + slots[c].
    void (*pixelErrors)(int value, unsigned int weight, const int* decoded, int levels, const size_t* slots,
                        unsigned int* a, unsigned int* b);
};

SubBlockKernels SubBlockKernelsFor(ESimdPath path);

} // namespace orbtexture

#endif
