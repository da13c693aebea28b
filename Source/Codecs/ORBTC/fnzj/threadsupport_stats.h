#ifndef FNZJ_THREADSUPPORT_STATS_H
#define FNZJ_THREADSUPPORT_STATS_H

// Pieces of the statistics phases that tests reach on their own. The phases
// themselves are RunAGenerateStatsSetThread (threadsupport.h).

#include <cstdint>

#include "Codecs/ORBTC/fnzj/threadsupport.h"

namespace orbtexture
{

// The AllBox mean colours of the 3 x 3 blocks around block (row, column),
// wrapping in both axes, in row order.
void NeighbourMeanColours(RegionStats* const* rows, const CompressParams& params, uint32_t row, uint32_t column,
                          unsigned char (*means)[4]);

// The low-frequency image over the window: the bilinear blend of the nine
// mean colours, the middle one at window (blockWidth, blockHeight) and the
// outer ones at the window's edges. Four floats a pixel, in rows.
void LowFrequencyWindow(const unsigned char (*means)[4], const CompressParams& params, float* out);

// The first candidates of a local palette slot for block (x, y): up to four
// pairs of entries in order of their index sum, each in the orientation that
// maps closer (the block's parity on a tie), then the pairs found so far
// again with A and B exchanged until there are four. One entry gives a single
// pair of it with itself. Returns the count; only repA and repB are written.
int PaletteRepCandidates(const unsigned char (*entries)[4], int count, uint32_t x, uint32_t y,
                         RepCandidate* candidates);

} // namespace orbtexture

#endif
