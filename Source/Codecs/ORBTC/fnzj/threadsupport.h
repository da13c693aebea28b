#ifndef FNZJ_THREADSUPPORT_H
#define FNZJ_THREADSUPPORT_H

// The optimiser's per-block records.

#include <cstdint>
#include <memory>
#include <pthread.h>
#include <vector>

#include "Codecs/ORBTC/fnzj/initialreps.h"

namespace orbtexture
{

// An oriented box of a set of pixels with their mean colour.
struct StatBox
{
    OrientedBBox box;
    unsigned char meanColour[4]; // each channel floor(mean + 0.5), within 0 to 255
    uint32_t singleColour;       // the pixels are one colour
};

// A fresh candidate's errors: all bits set but the top two.
constexpr int64_t kFreshCandidateError = 0x3FFFFFFFFFFFFFFFLL;

struct RepCandidate
{
    unsigned char repA[4], repB[4]; // on the word's grid
    int64_t totalError;             // over the whole window
    int64_t centralError;           // the part from the block's own pixels
    uint32_t hardVariant;           // neighbour hard flags inverted, 0 to 7
};

struct ModeSlot
{
    uint8_t mode;
    uint8_t candidateCount;
    StatBox* boundingBox; // what clampToBox clamps to
    RepCandidate candidates[4];
};

// The record of one block.
struct RegionStats
{
    StatBox AllBox, OpaqueBox, CentralBox, ResidualBox, ResidualOpaqueBox;
    uint32_t paletteCount;
    unsigned char paletteEntries[5][4];
    uint32_t hasTransparent;
    uint32_t interpolationHint;
    uint32_t lastChangedStamp;
    uint32_t lastVisitedStamp;
    uint32_t graphicsLike;
    uint32_t flatRegion;
    ModeSlot modeSlots[8];
    uint32_t selectedMode;
};

// ---- Thread support ----

// The processors online (ORBTCSetProcessorCountOverride replaces the
// system's answer); 0 when the system cannot tell.
unsigned int DetermineNumberOfCores();
// Starts routine(argument) on a new thread; 1, or 0 when the system refuses.
int LaunchThread(void* (*routine)(void*), void* argument, pthread_t& threadHandle);
// Joins each thread in order. A failed join prints its message and aborts.
void WaitForThreads(const pthread_t* threadHandles, int count);
// For tests: refuse every 'period'-th thread start from now on (0: none).
void SetThreadStartRefusals(unsigned int period);

// The optimiser's thread count for an image of 'blocksHigh' block rows.
unsigned int OptimiserThreadCount(uint32_t blocksHigh);
// Runs routine(arguments[i]) for every index: indices 0 to count - 2 on
// started threads, the last on the caller's. A refused start joins what is
// running and tries again, or with nothing running does that index's work at
// once, so the work of an index never depends on how many threads started.
void RunIndexedWork(unsigned int count, void* (*routine)(void*), void* const* arguments);

// The block rows [first, end) of statistics thread t of n.
void StatsRows(unsigned int t, unsigned int n, uint32_t blocksHigh, uint32_t& first, uint32_t& end);
// The rows of optimise thread t of n in the phase of row parity p: from
// 'first' up to before 'end', every second row.
void OptimiseRows(unsigned int t, unsigned int n, uint32_t blocksHigh, uint32_t parity, uint32_t& first,
                  uint32_t& end);
// The order in which the columns of a row are visited: 0, 2, 1, 4, 3, ...
std::vector<uint32_t> ColumnVisitOrder(uint32_t blocksWide);

// The window's pixel weights (the product of a column and a row filter over
// the product of their sums; the column filter has 17 taps for blocks wider
// than high) and its flags of the block's own pixels.
std::vector<float> WindowFilterWeights(uint32_t blockWidth, uint32_t blockHeight);
std::vector<unsigned char> CentralFlags(uint32_t blockWidth, uint32_t blockHeight);

// ---- Colour swapping recommendations ----

// For a width x height grid of blocks, each with its pair of RGBA colours (A
// then B) in 'pairs', which blocks should exchange A and B so that
// neighbours agree: a greedy agglomeration of blocks into islands of one
// orientation, most confident relations first, the islands about halving with
// every sweep. Two bytes a block in row order: byte 0 the block's colours
// should be exchanged; byte 1, when 'otherPairs' gives a second candidate
// pair per block, that pair lies crosswise to the first. 'wrap' joins the
// last column to the first and the last row to the first. Null for fewer
// than 2 blocks or a failed allocation.
std::unique_ptr<uint8_t[]> CreateColourSwappingRecommendations(uint32_t width, uint32_t height, bool wrap,
                                                               const unsigned char* pairs,
                                                               const unsigned char* otherPairs);

} // namespace orbtexture

#endif
