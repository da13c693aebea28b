#ifndef FNZJ_LOCALISED_REGION_H
#define FNZJ_LOCALISED_REGION_H

// The optimiser of one block against the true decoded error over its window:
// how each window pixel decodes under the 3 x 3 neighbourhood's modes, the
// evaluation of a set of representatives, the refinement of a block's
// candidates, and the packing of the final word.

#include <cstdint>
#include <memory>

#include "Codecs/ORBTC/fnzj/fnzj_localised.h"
#include "Codecs/ORBTC/fnzj/fnzj_window_lanes.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"

namespace orbtexture
{

constexpr int kMaxWindowPixels = 17 * 9;

// How one window pixel decodes under the modes now assumed.
struct PixelBlendRecord
{
    uint8_t locality;          // 0 outer ring, 1 the block's own pixels, 2 the others
    uint8_t palettePixel;      // the four choices are stored colours (local palette)
    uint8_t extendedKind;      // 0 for format 4
    uint8_t transparentChoice; // choice 2 has the low gain of punch-through
    uint8_t punchThroughFlag;  // the entry's punchThrough on such pixels
    uint8_t quadrant;          // 2 x 2 group of the neighbourhood: 2 below, +1 right
    uint8_t modulationClass;   // 2bpp: 0 two stored bits, 1 one bit, 2-4 derived
    uint8_t bilinear[4];       // out of 64 on the quadrant's four blocks; palette: colour indices
    uint8_t choiceWeights[4];  // first mix A, B parts, then second mix, out of 8
    uint32_t choice2Mask;      // ANDed with choice 2's colour (RGBA bytes, red lowest)
    uint8_t centralWeights[4]; // this block's part (out of 64) in each choice
    uint8_t modulationValues[4];
    uint8_t gains[4]; // 128 is full gain
};

// The 3 x 3 neighbourhood's representatives, in row order: A then B.
struct NeighbourhoodReps
{
    unsigned char reps[9][2][4];
};

// The part of each pixel's blend that a visit holds fixed: the weighted sums
// of the neighbours' masked representatives, and the weight of the places
// that are the block itself. Valid from PrepareBlendCache until the records
// change.
struct BlendCache
{
    // Per pixel, in 16-bit lanes: the fixed sums of A then B (red to alpha),
    // the weights of the two mixes on the ends and on the ends exchanged, and
    // the mask of the second mix.
    struct alignas(16) Lanes
    {
        int16_t fixedAB[8];
        int16_t weightsOnEnds[8];
        int16_t weightsOnSwapped[8];
        int16_t mixMask[8];
    };
    Lanes lanes[kMaxWindowPixels];
    int16_t selfWeight[kMaxWindowPixels];
    // Per window pixel, twice: its channels, and the weights of the error
    // (1, 1, 1 and alpha's).
    struct alignas(16) PixelLanes
    {
        int16_t channels[8];
        int16_t errorWeights[8];
    };
    PixelLanes pixels[kMaxWindowPixels];
    // The pixels that the block's own pair does not reach (PrepareSettled):
    // their choices and fitting data stand in the work, their error sums by
    // locality here.
    bool settled[kMaxWindowPixels];
    int64_t settledErrors[3];
    // The others, ordinary pixels to measure and palette pixels, each list
    // those of localities 1 and 2 first, then the outer ring's.
    uint8_t measured[kMaxWindowPixels], palette[kMaxWindowPixels];
    int measuredInner, measuredOuter, paletteInner, paletteOuter;
    bool settledReady;
    bool valid;
    bool pixelsReady; // 'pixels' holds the window (PrepareSettled makes it)
};

// A thread's working space.
struct OptimiseWork
{
    PixelBlendRecord records[kMaxWindowPixels];
    BlendCache cache;
    PackedFittingParams fitting;
    unsigned char window[kMaxWindowPixels * 4];
    unsigned char islandLabels[kMaxWindowPixels];
    unsigned char islandOrder[kMaxWindowPixels];
    unsigned char chosen[kMaxWindowPixels]; // modulation choice of each pixel
    bool storeFitting = true;                // evaluations fill 'fitting' (no fit follows otherwise)
    // The fast path's lanes of 4bpp windows (PrepareLanes). A window's lanes
    // follow from the hard flags of the nine places around it (their
    // geometry) and, pixel by pixel, from whether the block its modulation
    // reads from is in punch-through mode: the geometries met hold
    // both forms of each lane, for the pixels the block's own pair reaches
    // ('measured') and the others ('settled').
    struct LaneGeometry
    {
        uint32_t hardFlags; // bit p: place p is hard
        bool usable;
        uint32_t paletteRisk; // places whose punch-through mode makes a palette pixel
        LaneLayout measured[2], settled[2]; // standard, punch-through
        uint32_t measuredVersion, settledVersion; // the versions of their arrangements
        alignas(32) int16_t measuredSource[kLanePixels], settledSource[kLanePixels]; // 1 << place read
        // Every palette pixel of the punch-through form, in palette lanes;
        // the same pixels' lanes of that form in 'measured' and 'settled'
        // count nowhere.
        LaneLayout palette;
        PaletteSources paletteSources;
        uint8_t palettePlace[kLanePixels]; // the place whose mode makes each one
    };
    // One for each set of hard flags, made when first met and kept for the
    // work's life.
    static constexpr int kGeometries = 1 << 9;
    std::unique_ptr<LaneGeometry> geometries[kGeometries];
    // The forms of the (geometry, punch-through places) met most recently,
    // so that a visit's modes, which differ in the block's own punch-through
    // flag, and blocks with a neighbourhood of modes met before find theirs
    // made. Their layouts carry their geometry's versions.
    struct LayoutSlot
    {
        const LaneGeometry* geometry = nullptr; // none while empty
        uint32_t punchThrough = 0;
        uint32_t lastUse = 0;
        LaneLayout measured, settled;
    };
    static constexpr int kLayoutSlots = 16;
    LayoutSlot layoutSlots[kLayoutSlots];
    uint32_t layoutUses = 0;
    uint32_t layoutVersions = 0; // the last version given to a geometry
    const LaneGeometry* paletteGeometry = nullptr; // what 'palette' and 'paletteSources' hold
    uint32_t palettePlaces = 0;
    // The palette pixels of the punch-through places now laid out, when
    // 'hasPaletteLanes' is set: their layout, sources, stored colours and lanes.
    bool hasPaletteLanes = false;
    LaneLayout palette;
    PaletteSources paletteSources;
    PaletteColours paletteColours;
    PixelBlendRecord scratch[kMaxWindowPixels];
    // An evaluation through the lanes leaves its choices there, not in
    // 'chosen', and its fitting data for FitWindowLanes, not in 'fitting':
    // then 'fitFromLanes' is set.
    WindowChannels channels; // the window, from PrepareWindowLanes
    WindowLanes lanes, settledLanes, paletteLanes;
    LaneChoices laneChoices; // for evaluations by islands
    // The fast path's table of a visit's list of visited pairs: keys, and
    // the round that wrote each slot (a new round empties it).
    static constexpr unsigned kVisitedSlotBits = 8;
    uint64_t visitedKeys[1u << kVisitedSlotBits];
    uint32_t visitedMarks[1u << kVisitedSlotBits] = {};
    uint32_t visitedRound = 1;
    bool lanesReady = false;
    bool fitFromLanes = false;
};

// The pair fit of the last evaluation (FitOnlyCentralRepPairsToWeights).
int FitLastEvaluation(OptimiseWork& work, const CompressParams& params, float* displacements);

// Sets up the work's fitting record; 0 on a failed allocation.
int InitOptimiseWork(OptimiseWork& work, const CompressParams& params);
void ReleaseOptimiseWork(OptimiseWork& work);

// Errors of one evaluation: total over localities 1 and 2, central over 1,
// outer over 0 (only when the outer ring was evaluated).
struct WindowErrors
{
    int64_t total, central, outer;
};

// The error of a pixel against a decoded colour: squared differences, with
// alpha's difference weighted by 30 when the source alpha is 0 or 255.
inline int64_t PixelError(const unsigned char* pixel, const unsigned char* colour)
{
    const int dr = pixel[0] - colour[0], dg = pixel[1] - colour[1], db = pixel[2] - colour[2];
    const int w = pixel[3] == 0 || pixel[3] == 255 ? 30 : 1;
    const int da = (pixel[3] - colour[3]) * w;
    return int64_t(dr * dr + dg * dg + db * db) + int64_t(da) * da;
}

// modes[9]: the neighbourhood's modes in row order; the centre's is
// 'centreMode'. Bit 0 of hardVariantMask inverts the hard flag of the upper
// left neighbour, bit 1 of the upper, bit 2 of the left.
void CreateBlendingAndUpdateWeights(uint32_t centreMode, const uint32_t* modes, uint32_t hardVariantMask,
                                    const CompressParams& params, PixelBlendRecord* records);
// The same into a work's records, which invalidates its cache.
inline void CreateBlendingAndUpdateWeights(uint32_t centreMode, const uint32_t* modes, uint32_t hardVariantMask,
                                           const CompressParams& params, OptimiseWork& work)
{
    work.cache.valid = false;
    work.lanesReady = false;
    CreateBlendingAndUpdateWeights(centreMode, modes, hardVariantMask, params, work.records);
}

// The fast path of a 4bpp window, in place of CreateBlendingAndUpdateWeights,
// PrepareBlendCache and PrepareSettled: the lanes for the neighbourhood's
// modes and pairs (the window from PrepareWindowLanes), the settled pixels
// measured, and with 'palettes' the local-palette pixels laid out. False,
// with nothing done, when lanes cannot serve: a palette pixel without
// 'palettes', or the block's own pair reaching an outer pixel.
bool PrepareLanes(OptimiseWork& work, const CompressParams& params, uint32_t centreMode, const uint32_t* modes,
                  uint32_t hardVariantMask, const bool* selfPositions, const NeighbourhoodReps& reps,
                  bool palettes);

// Fills work.cache for the records now in 'work': 'selfPositions' marks the
// neighbourhood places that are the block itself, whose representatives the
// evaluations then take from reps.reps[4].
void PrepareBlendCache(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                       const bool* selfPositions);

// The window now in 'work' channel by channel (work.channels), for the fast
// path's evaluations.
void PrepareWindowLanes(OptimiseWork& work, const CompressParams& params);

// The fast path, 4bpp: once the cache is prepared, the pixels that the
// block's own pair does not reach take their choices once, for every
// evaluation until the records change.
void PrepareSettled(OptimiseWork& work, const CompressParams& params);

// 4bpp palette pixels, by window pixel: the colour of each choice (choices
// in code order; 2 x quadrant block + colour, blocks P, Q, R, S), and the
// choices that are the block's own A and B (255 for none).
const uint8_t (&PaletteModeSelection())[81][4];
const uint8_t (&PaletteModeCentralOptions())[81][2];
// The code that a palette pixel's choice packs as, at a block row and column:
// the choices are laid out in code order, so the code is the choice itself.
constexpr uint8_t PalModRemapper4Col(int /*blockRow*/, int /*blockColumn*/, int choice)
{
    return uint8_t(choice);
}

// The four decoded choices of a pixel (RGBA bytes each) under 'reps'; 0 when
// they are the four ordinary mixes, 1 for a palette pixel.
int SynthesisePixelColourChoices(const PixelBlendRecord& record, const NeighbourhoodReps& reps,
                                 unsigned char (*colours)[4]);

// 2bpp: the modulation of a derived pixel from its neighbours' values on the
// window's grid ('values', windowWidth per row), or exits on a value above 8.
int ComputeInterpolatedModVal(int modulationClass, int row, int column, const uint8_t* values, int width,
                              int height);

// Evaluate every window pixel under 'reps' (the outer ring only with
// includeOuterRing): each pixel's choice into work.chosen, its fitting data
// into work.fitting, the errors into 'errors'.
void EvalAllCandsAndGetErrors4BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                                  bool includeOuterRing, WindowErrors& errors);
void EvalAllCandsAndGetErrors2BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                                  bool includeOuterRing, WindowErrors& errors);
// 4bpp graphics-like windows: pixels of one island share a choice.
void EvalByIslands4BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                       bool includeOuterRing, WindowErrors& errors);
// Whether the lanes now prepared can evaluate by islands: every pixel that
// joins an island's group must be measured (not settled) there.
bool IslandsFitLanes(const OptimiseWork& work);

// Negative when a is better: lower totalError, then lower centralError.
int CompareCandidates(const void* a, const void* b);
// Stable bottom-up merge sort of 'count' items of 'itemSize' bytes.
void orbmergesort(void* data, void* scratch, size_t count, size_t itemSize, int (*compare)(const void*, const void*));
// out = a + (b - a) x weight per channel; clamped to 0 to 255 only for a
// weight outside 0 to 1.
void MixPixelF(float* out, float weight, const float* a, const float* b);

// Revisits block (row, column) with its neighbours held fixed.
void OptimiseRegion(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                    OptimiseWork& work, uint32_t stamp, RegionStats* const* RegRow);

// Thread body of an optimise phase: 'pair' is a ThreadArgPair whose shared
// record is an OptimiseThreadArgs. A row held back (HoldsBackLastRow) is left
// to OptimiseHeldBackRow, called once the phase's threads are joined.
void* RunAnOptimisePhaseThread(void* pair);
void OptimiseHeldBackRow(const OptimiseThreadArgs& args);

// The final word of block (row, column) into 'word' (modulation word, then
// colour word).
void PackLocalBlock(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                    OptimiseWork& work, RegionStats* const* RegRow, uint32_t* word);

// The modes of the 3 x 3 neighbourhood of (row, column) and its first
// candidates, wrapping around the grid.
void GatherNeighbourhood(const CompressParams& params, uint32_t row, uint32_t column, RegionStats* const* RegRow,
                         uint32_t* modes, NeighbourhoodReps& reps);

} // namespace orbtexture

#endif
