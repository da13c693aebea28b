#ifndef FNZJ_THREADSUPPORT_H
#define FNZJ_THREADSUPPORT_H

// The optimiser's per-block records.

#include <atomic>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <vector>

#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"

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
    // 4bpp: the window's island labels and order, kept from the statistics
    // for the passes that evaluate by islands.
    unsigned char islandLabels[81], islandOrder[81];
};

// The modes of a block fix the flag bits of its word: 4bpp 0 to 3, 2bpp 8
// to 15; see ConstructListOfNeededModes.
constexpr int kMaxModeSlots = 8;

// The slot of the block's selectedMode, or null.
inline ModeSlot* SelectedSlot(RegionStats& region)
{
    for (int i = 0; i < kMaxModeSlots; ++i)
        if (region.modeSlots[i].mode == region.selectedMode)
            return &region.modeSlots[i];
    return nullptr;
}
inline const ModeSlot* SelectedSlot(const RegionStats& region)
{
    return SelectedSlot(const_cast<RegionStats&>(region));
}

struct ImageBuffer;

// Room for one row pointer per block row of the largest image.
constexpr int kMaxRegionRows = kMaxImageSide / 4;

// The whole image's block records: RegRow[y] holds blocksWide records.
struct ImgStats
{
    RegionStats* RegRow[kMaxRegionRows];
};

// What every thread of a statistics phase reads.
struct StatsThreadArgs
{
    const ImageBuffer* image;
    const CompressParams* params;
    int phase; // 0 or 1
    const unsigned char* centralFlags;
    const float* linFilterWeights;
    const float* lowFilterWeights;
    RegionStats* const* RegRow;
    unsigned int threadCount;
    const std::atomic<bool>* cancel = nullptr; // rows stop when set
    // The fast path's next unclaimed row: a phase's blocks depend only on the
    // last phase, so threads take rows as they come free instead of the
    // fixed shares.
    std::atomic<uint32_t>* nextRow = nullptr;
    // No pass allows the hard modes, so their slots go unread: the fast path
    // leaves them empty.
    bool hardModesUnread = false;
};

// The fast path's copy of the blocks' stamps (row order, kept with the
// records), and the blocks of the stage now run that are due for a visit.
struct OptimiseWork;
struct OptimiseWorkRelease
{
    void operator()(OptimiseWork* work) const;
};

struct StageSchedule
{
    std::vector<uint32_t> changed, visited; // lastChangedStamp, lastVisitedStamp
    std::vector<uint32_t> due;              // row x blocksWide + column
    uint32_t dueCount = 0;
    // Each thread index's work space, made on first use and kept for the
    // image's passes.
    std::vector<std::unique_ptr<OptimiseWork, OptimiseWorkRelease>> works;
};

// What every thread of an optimise phase reads.
struct OptimiseThreadArgs
{
    const ImageBuffer* image;
    const CompressParams* params;
    uint32_t rowParity;
    uint32_t stamp;
    RegionStats* const* RegRow;
    unsigned int threadCount;
    const std::atomic<bool>* cancel = nullptr; // rows stop when set
    // The fast path: the due blocks of one stage of the phase (see
    // StageBlockCount), handed out one by one from this counter.
    std::atomic<uint32_t>* nextBlock = nullptr;
    StageSchedule* schedule = nullptr;
};

inline bool StopAsked(const std::atomic<bool>* cancel) { return cancel && cancel->load(std::memory_order_relaxed); }

// The argument of a thread: the shared record and the thread's index.
struct ThreadArgPair
{
    const void* shared;
    unsigned int index;
};

// (index + delta) around a ring of 'count' places, for delta -1, 0 or 1 and
// index below count: the wrapped neighbour without a division.
inline uint32_t Neighbour(uint32_t index, int delta, uint32_t count)
{
    const int64_t moved = int64_t(index) + delta;
    return moved < 0 ? count - 1 : uint64_t(moved) >= count ? 0 : uint32_t(moved);
}

// The window of block (row, column): windowWidth x windowHeight RGBA pixels
// centred on the block, wrapping around the image in both axes.
void GatherWindowPixels(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                        unsigned char* window);

// The modes a visit tries only in passes that allow the hard modes: 2 and 3
// at 4bpp, 12 to 15 at 2bpp.
inline bool IsHardMode(const CompressParams& params, uint32_t mode)
{
    return params.bitsPerPixel == 4 ? mode == 2 || mode == 3 : mode >= 12;
}

// The modes a block may use, in order, into 'list' (room for 8); returns
// their count. bitsPerPixel other than 2 and 4 prints its message and aborts.
int ConstructListOfNeededModes(unsigned int format, unsigned int bitsPerPixel, unsigned int isGeneration2,
                               unsigned int interpolationHint, uint8_t* list);

// Thread body of the statistics phases: 'pair' is a ThreadArgPair whose
// shared record is a StatsThreadArgs.
void* RunAGenerateStatsSetThread(void* pair);

// The optimiser of one image level: words into 'output' (blocksWide x
// blocksHigh x 8 bytes). 1 on success, 0 on a failed allocation.
int SearchForImageRepresentatives(ImageBuffer* image, unsigned int format, unsigned int bitsPerPixel,
                                  bool isGeneration2, unsigned char* output, unsigned int noTwiddle,
                                  unsigned int quality, unsigned int punchThrough);

// Word index of block (x, y): row order with noTwiddle, else twiddled.
uint32_t TwiddleUV(uint32_t blocksHigh, uint32_t blocksWide, uint32_t y, uint32_t x, bool noTwiddle);

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
// Whether the phase of row parity p holds back its last row: with an odd
// number of rows above one, the last row and row 0 are both even and
// neighbours across the wrap, so the last waits until the others are joined
// and is then done alone, as one thread does it last.
inline bool HoldsBackLastRow(uint32_t blocksHigh, uint32_t parity)
{
    return parity == 0 && blocksHigh > 1 && blocksHigh % 2 == 1;
}
// A phase's blocks in three stages whose blocks need not wait for each
// other: 0 the even columns (but the last of an odd count above 1), 1 that
// last column, 2 the odd columns; each of the phase's rows but a held-back
// one. Block 'index' of stage 'stage' is at (row, column).
uint32_t StageBlockCount(uint32_t blocksWide, uint32_t blocksHigh, uint32_t parity, uint32_t stage);
void StageBlock(uint32_t blocksWide, uint32_t parity, uint32_t stage, uint32_t index, uint32_t& row,
                uint32_t& column);
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
