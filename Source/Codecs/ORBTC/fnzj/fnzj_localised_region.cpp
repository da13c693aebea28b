// The optimiser of one block: its candidates refined against the decoded
// error of its window with the neighbours held fixed, mixed variants, the
// choice of mode, and the packing of the final word.

#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "Codecs/ORBTC/fnzj/analygrapprop.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"

namespace orbtexture
{

namespace
{

// Rows of (weight of A', weight of B') along the line from A to B.
constexpr float AlternativeWeightSet[13][2] = {
    {0.25f, 0.75f}, {0.25f, 1.0f},  {0.0f, 0.75f},  {-0.25f, 1.25f}, {-0.5f, 1.0f},   {0.0f, 1.5f},  {0.0f, 0.125f},
    {0.875f, 1.0f}, {1.0f, 0.0f},   {0.0f, 0.625f}, {0.375f, 1.0f},  {0.375f, 0.625f}, {0.75f, 0.25f}};

constexpr int kMaxVisited = 100;
constexpr int kMaxPool = 32;
constexpr int kMaxResults = 8 * kMaxPool;

// A and B as one word.
inline uint64_t PairWord(const unsigned char* a, const unsigned char* b)
{
    uint32_t x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return uint64_t(x) | uint64_t(y) << 32;
}

bool SamePair(const RepCandidate& x, const unsigned char* a, const unsigned char* b)
{
    return PairWord(x.repA, x.repB) == PairWord(a, b);
}

bool SamePair(const RepCandidate& x, const RepCandidate& y)
{
    return SamePair(x, y.repA, y.repB);
}

RepCandidate FreshCandidate(const unsigned char* a, const unsigned char* b)
{
    RepCandidate c{};
    std::memcpy(c.repA, a, 4);
    std::memcpy(c.repB, b, 4);
    c.totalError = c.centralError = kFreshCandidateError;
    c.hardVariant = 0;
    return c;
}

// The list of modes a visit may choose from.
int VisitModes(const CompressParams& params, const RegionStats& region, uint32_t* modes)
{
    const bool hard = params.hardModesAllowed && params.isGeneration2;
    int n = 0;
    if (params.bitsPerPixel == 4)
    {
        modes[n++] = 0;
        modes[n++] = 1;
        if (hard)
        {
            modes[n++] = 2;
            modes[n++] = 3;
        }
        return n;
    }
    const uint32_t hint = region.interpolationHint;
    if (hint == 0)
    {
        for (uint32_t m = 8; m < 12; ++m)
            modes[n++] = m;
        if (hard)
            for (uint32_t m = 12; m < 16; ++m)
                modes[n++] = m;
        return n;
    }
    modes[n++] = 8;
    modes[n++] = 8 + hint;
    if (hard)
    {
        modes[n++] = 12;
        modes[n++] = 12 + hint;
    }
    return n;
}

// The state of one visit of a block.
struct Visit
{
    const CompressParams& params;
    OptimiseWork& work;
    RegionStats& region;
    NeighbourhoodReps reps;
    uint32_t modes[9];
    bool selfPositions[9]; // neighbourhood places that wrap to the block itself
    bool islands;
    int64_t limit;
    uint64_t visited[kMaxVisited]; // PairWord of each
    int visitedCount;
    bool hashed;

    // The fast path finds a pair of the list through the work's hash table
    // of the same pairs; the plain path walks the list.
    static uint32_t VisitedSlot(uint64_t pair)
    {
        return uint32_t((pair * 0x9E3779B97F4A7C15ull) >> (64 - OptimiseWork::kVisitedSlotBits));
    }
    bool OnVisited(const unsigned char* a, const unsigned char* b) const
    {
        const uint64_t pair = PairWord(a, b);
        if (hashed)
        {
            constexpr uint32_t mask = (1u << OptimiseWork::kVisitedSlotBits) - 1;
            for (uint32_t i = VisitedSlot(pair); work.visitedMarks[i] == work.visitedRound; i = (i + 1) & mask)
                if (work.visitedKeys[i] == pair)
                    return true;
            return false;
        }
        for (int i = 0; i < visitedCount; ++i)
            if (visited[i] == pair)
                return true;
        return false;
    }
    void AddVisited(const unsigned char* a, const unsigned char* b)
    {
        if (visitedCount >= kMaxVisited)
            return;
        const uint64_t pair = PairWord(a, b);
        visited[visitedCount++] = pair;
        if (hashed)
        {
            constexpr uint32_t mask = (1u << OptimiseWork::kVisitedSlotBits) - 1;
            uint32_t i = VisitedSlot(pair);
            while (work.visitedMarks[i] == work.visitedRound)
                i = (i + 1) & mask;
            work.visitedMarks[i] = work.visitedRound;
            work.visitedKeys[i] = pair;
        }
    }
    void ClearVisited()
    {
        visitedCount = 0;
        if (hashed && ++work.visitedRound == 0)
        {
            std::fill_n(work.visitedMarks, 1u << OptimiseWork::kVisitedSlotBits, 0u);
            work.visitedRound = 1;
        }
    }

    void Place(const unsigned char* a, const unsigned char* b)
    {
        for (int p = 0; p < 9; ++p)
            if (selfPositions[p])
            {
                std::memcpy(reps.reps[p][0], a, 4);
                std::memcpy(reps.reps[p][1], b, 4);
            }
    }

    void Evaluate(bool includeOuterRing, WindowErrors& errors)
    {
        if (params.bitsPerPixel == 2)
            EvalAllCandsAndGetErrors2BPP(work, params, reps, includeOuterRing, errors);
        else if (islands)
            EvalByIslands4BPP(work, params, reps, includeOuterRing, errors);
        else
            EvalAllCandsAndGetErrors4BPP(work, params, reps, includeOuterRing, errors);
    }

    // Refines one start; false when the start was already visited.
    bool Refine(const RepCandidate& start, const StatBox* box, RepCandidate& best);
};

// Limits a displacement: its largest component to at most 50, and a move of
// more than 2 but less than 4.1 up to 4.1, so that it survives the grid.
void LimitStep(float* d)
{
    float largest = 0.0f;
    for (int c = 0; c < 4; ++c)
        largest = std::max(largest, std::fabs(d[c]));
    float scale = 1.0f;
    if (largest > 50.0f)
        scale = 50.0f / largest;
    else if (largest > 2.0f && largest < 4.1f)
        scale = 4.1f / largest;
    for (int c = 0; c < 4; ++c)
        d[c] *= scale;
}

bool Visit::Refine(const RepCandidate& start, const StatBox* box, RepCandidate& best)
{
    if (OnVisited(start.repA, start.repB))
        return false;
    if (params.numIterations > 1)
        AddVisited(start.repA, start.repB);

    best = FreshCandidate(start.repA, start.repB);
    unsigned char a[4], b[4];
    std::memcpy(a, start.repA, 4);
    std::memcpy(b, start.repB, 4);
    int64_t outer = 0;
    for (uint32_t k = 0; k < params.numIterations; ++k)
    {
        Place(a, b);
        if (k > 0 && OnVisited(a, b))
            break;
        AddVisited(a, b);

        WindowErrors errors;
        work.storeFitting = k + 1 < params.numIterations; // the last evaluation is not fitted
        Evaluate(k == 0, errors);
        if (k == 0)
            outer = errors.outer;
        const int64_t total = errors.total + outer;
        if (total < best.totalError || (total == best.totalError && errors.central > best.centralError))
        {
            std::memcpy(best.repA, a, 4);
            std::memcpy(best.repB, b, 4);
            best.totalError = total;
            best.centralError = errors.central;
        }
        if (total == 0 || total >= limit || k + 1 == params.numIterations)
            break;

        float d[8];
        const int status = FitLastEvaluation(work, params, d);
        if (status == 1)
            std::copy(d, d + 4, d + 4); // B follows A
        else if (status == 2)
            std::copy(d + 4, d + 8, d); // A follows B
        else if (status == 3)
        {
            // Both drawn in to the 3/8 and 5/8 points of their line when far
            // apart.
            int spread = 0;
            for (int c = 0; c < 4; ++c)
                spread = std::max(spread, std::abs(int(b[c]) - int(a[c])));
            if (spread > 16)
                for (int c = 0; c < 4; ++c)
                {
                    const float move = 0.375f * float(int(b[c]) - int(a[c]));
                    d[c] += move;
                    d[4 + c] -= move;
                }
        }
        LimitStep(d);
        LimitStep(d + 4);
        float fa[4], fb[4];
        for (int c = 0; c < 4; ++c)
        {
            fa[c] = float(a[c]) + d[c];
            fb[c] = float(b[c]) + d[4 + c];
        }
        if (params.clampToBox && box)
        {
            ClampToOrientedBBox(box->box, fa);
            ClampToOrientedBBox(box->box, fb);
        }
        unsigned char na[4], nb[4];
        MapToRepresentableColours(params.isGeneration2 != 0, fa, fb, na, nb);
        if (std::memcmp(na, a, 4) == 0 && std::memcmp(nb, b, 4) == 0)
            break;
        std::memcpy(a, na, 4);
        std::memcpy(b, nb, 4);
    }
    return true;
}

} // namespace

int CompareCandidates(const void* a, const void* b)
{
    const RepCandidate& x = *static_cast<const RepCandidate*>(a);
    const RepCandidate& y = *static_cast<const RepCandidate*>(b);
    if (x.totalError != y.totalError)
        return x.totalError < y.totalError ? -1 : 1;
    if (x.centralError != y.centralError)
        return x.centralError < y.centralError ? -1 : 1;
    return 0;
}

void orbmergesort(void* data, void* scratch, size_t count, size_t itemSize, int (*compare)(const void*, const void*))
{
    unsigned char* from = static_cast<unsigned char*>(data);
    unsigned char* to = static_cast<unsigned char*>(scratch);
    for (size_t run = 1; run < count; run *= 2)
    {
        for (size_t left = 0; left < count; left += 2 * run)
        {
            const size_t middle = std::min(left + run, count), right = std::min(left + 2 * run, count);
            size_t i = left, j = middle, k = left;
            while (i < middle && j < right)
            {
                // The left item wins a tie: stable.
                const bool takeRight = compare(from + j * itemSize, from + i * itemSize) < 0;
                std::memcpy(to + k++ * itemSize, from + (takeRight ? j++ : i++) * itemSize, itemSize);
            }
            while (i < middle)
                std::memcpy(to + k++ * itemSize, from + i++ * itemSize, itemSize);
            while (j < right)
                std::memcpy(to + k++ * itemSize, from + j++ * itemSize, itemSize);
        }
        std::swap(from, to);
    }
    if (from != data)
        std::memcpy(data, from, count * itemSize);
}

void MixPixelF(float* out, float weight, const float* a, const float* b)
{
    const bool clamp = weight < 0.0f || weight > 1.0f;
    for (int c = 0; c < 4; ++c)
    {
        const float v = a[c] + (b[c] - a[c]) * weight;
        out[c] = clamp ? std::min(255.0f, std::max(0.0f, v)) : v;
    }
}

void OptimiseWorkRelease::operator()(OptimiseWork* work) const
{
    ReleaseOptimiseWork(*work);
    delete work;
}

int FitLastEvaluation(OptimiseWork& work, const CompressParams& params, float* displacements)
{
    if (work.fitFromLanes)
        return FitWindowLanes(work.lanes, work.hasPaletteLanes ? &work.paletteLanes : nullptr, displacements);
    return FitOnlyCentralRepPairsToWeights(uint32_t(params.windowWidth * params.windowHeight), work.fitting,
                                           displacements);
}

int InitOptimiseWork(OptimiseWork& work, const CompressParams& params)
{
    std::memset(work.records, 0, sizeof(work.records));
    work.cache.valid = false;
    work.cache.pixelsReady = false;
    work.storeFitting = true;
    work.fitting = PackedFittingParams{};
    for (auto& geometry : work.geometries)
        geometry.reset();
    for (OptimiseWork::LayoutSlot& slot : work.layoutSlots)
        slot.geometry = nullptr;
    work.paletteGeometry = nullptr;
    work.lanesReady = false;
    return InitialisePackedFittingParams(uint32_t(params.windowWidth * params.windowHeight), 0, 0, nullptr,
                                         work.fitting);
}

void ReleaseOptimiseWork(OptimiseWork& work)
{
    ReleasePackedFittingParams(work.fitting);
}

void GatherNeighbourhood(const CompressParams& params, uint32_t row, uint32_t column, RegionStats* const* RegRow,
                         uint32_t* modes, NeighbourhoodReps& reps)
{
    const uint32_t high = params.blocksHigh, wide = params.blocksWide;
    for (int dy = 0; dy < 3; ++dy)
        for (int dx = 0; dx < 3; ++dx)
        {
            const uint32_t y = Neighbour(row, dy - 1, high);
            const uint32_t x = Neighbour(column, dx - 1, wide);
            const RegionStats& region = RegRow[y][x];
            const int p = dy * 3 + dx;
            modes[p] = region.selectedMode;
            const ModeSlot* slot = SelectedSlot(region);
            if (slot && slot->candidateCount > 0)
            {
                std::memcpy(reps.reps[p][0], slot->candidates[0].repA, 4);
                std::memcpy(reps.reps[p][1], slot->candidates[0].repB, 4);
            }
            else
                std::memset(reps.reps[p], 0, sizeof(reps.reps[p]));
        }
}

void OptimiseRegion(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                    OptimiseWork& work, uint32_t stamp, RegionStats* const* RegRow)
{
    RegionStats& region = RegRow[row][column];
    const uint32_t high = params.blocksHigh, wide = params.blocksWide;

    bool allFlat = true;
    uint32_t latestChange = 0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
        {
            const RegionStats& n = RegRow[Neighbour(row, dy, high)][Neighbour(column, dx, wide)];
            allFlat = allFlat && n.flatRegion;
            if (dy != 0 || dx != 0)
                latestChange = std::max(latestChange, n.lastChangedStamp);
        }
    if (!params.forceAllRegions && latestChange < region.lastVisitedStamp)
        return;

    GatherWindowPixels(image, params, row, column, work.window);
    PrepareWindowLanes(work, params);
    const bool fastPath = !OptimiserReference();
    region.lastVisitedStamp = stamp;
    const bool islands = params.bitsPerPixel == 4 && region.graphicsLike && params.useIslands;
    if (islands && fastPath)
    {
        std::memcpy(work.islandLabels, region.islandLabels, sizeof region.islandLabels);
        std::memcpy(work.islandOrder, region.islandOrder, sizeof region.islandOrder);
    }
    else if (islands)
        AnalyseGraphicsProperties(work.window, params, work.islandLabels, work.islandOrder);

    uint32_t visitModes[8];
    const int listLength = VisitModes(params, region, visitModes);

    ModeSlot* selected = SelectedSlot(region);
    const int64_t e = selected && selected->candidateCount ? selected->candidates[0].totalError : kFreshCandidateError;
    const int64_t limit = e < 100 ? 100 * 100 : e <= 21474835 ? e * 100 : e;

    Visit visit{params, work, region, {}, {}, {}, islands, limit, {}, 0, fastPath};
    GatherNeighbourhood(params, row, column, RegRow, visit.modes, visit.reps);
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            visit.selfPositions[(dy + 1) * 3 + dx + 1] = (dx == 0 || wide == 1) && (dy == 0 || high == 1);

    const int visitCount = region.flatRegion ? std::min(2, listLength) : listLength;
    const uint32_t parity = ((stamp >> 2) ^ column ^ row) & 1;
    bool changed[8] = {};

    for (int i = 0; i < visitCount; ++i)
    {
        ModeSlot& slot = region.modeSlots[i];
        const uint32_t mode = slot.mode;
        const uint32_t hardLimit = allFlat || !params.tryHardVariants ? 1 : 8;
        const uint32_t step = std::max<uint32_t>(1, params.hardVariantStep);

        RepCandidate results[kMaxResults];
        int resultCount = 0;
        bool done = false;
        for (uint32_t h = 0; h < hardLimit && !done; h += step)
        {
            const bool lanesWanted = fastPath && params.bitsPerPixel == 4;
            if (!lanesWanted ||
                !PrepareLanes(work, params, mode, visit.modes, h, visit.selfPositions, visit.reps, true) ||
                (islands && !IslandsFitLanes(work)))
            {
                work.lanesReady = false;
                CreateBlendingAndUpdateWeights(mode, visit.modes, h, params, work);
                PrepareBlendCache(work, params, visit.reps, visit.selfPositions);
                if (lanesWanted && !islands)
                    PrepareSettled(work, params);
            }
            RepCandidate pool[kMaxPool];
            int poolCount = 0;
            auto inPool = [&](const unsigned char* a, const unsigned char* b) {
                for (int p = 0; p < poolCount; ++p)
                    if (SamePair(pool[p], a, b))
                        return true;
                return false;
            };
            auto addToPool = [&](const unsigned char* a, const unsigned char* b) {
                if (poolCount < kMaxPool && !inPool(a, b))
                    pool[poolCount++] = FreshCandidate(a, b);
            };
            for (int c = 0; c < slot.candidateCount && poolCount < kMaxPool; ++c)
                pool[poolCount++] = slot.candidates[c];

            if (region.flatRegion)
            {
                const bool punchThroughMode = params.bitsPerPixel == 4 && (mode & 3) == 1;
                unsigned char a[4], b[4];
                GetSingleColourBestMatchReps(region.AllBox.meanColour, punchThroughMode, params.isGeneration2 != 0,
                                             true, a, b, nullptr);
                addToPool(a, b);
                if (allFlat)
                {
                    GetSingleColourBestMatchReps(region.AllBox.meanColour, punchThroughMode,
                                                 params.isGeneration2 != 0, false, a, b, nullptr);
                    addToPool(a, b);
                }
            }
            for (int j = 0; j < visitCount; ++j)
                if (j != i && region.modeSlots[j].candidateCount > 0)
                    addToPool(region.modeSlots[j].candidates[0].repA, region.modeSlots[j].candidates[0].repB);

            visit.ClearVisited();
            int next = 0;
            bool variantsMade = false;
            for (;;)
            {
                while (next < poolCount && !done)
                {
                    RepCandidate best;
                    if (!visit.Refine(pool[next++], slot.boundingBox, best))
                        continue;
                    best.hardVariant = h;
                    if (resultCount < kMaxResults)
                        results[resultCount++] = best;
                    if (best.totalError == 0 || best.totalError < params.otherCandidateThreshold)
                        done = true;
                }
                if (done || variantsMade || resultCount == 0)
                    break;
                variantsMade = true;

                // Variants of the best result so far; they make no variants
                // of their own.
                int bestIndex = 0;
                for (int r = 1; r < resultCount; ++r)
                    if (results[r].totalError < results[bestIndex].totalError)
                        bestIndex = r;
                const RepCandidate parent = results[bestIndex];
                auto known = [&](const unsigned char* a, const unsigned char* b) {
                    if (inPool(a, b))
                        return true;
                    for (int r = 0; r < resultCount; ++r)
                        if (SamePair(results[r], a, b))
                            return true;
                    return false;
                };
                for (uint32_t n = 0; n < params.numVariants && poolCount < kMaxPool; ++n)
                {
                    unsigned char a[4], b[4];
                    if ((mode & 11) == 3)
                    {
                        const int entries = int(region.paletteCount);
                        const uint32_t pairs = uint32_t(entries * (entries - 1) / 2);
                        int first, second;
                        bool flip;
                        if (entries == 1 && n < 2)
                            first = second = 0, flip = false;
                        else if (entries >= 2 && n < 2 * pairs)
                        {
                            uint32_t index = n < pairs ? n : n - pairs;
                            first = 0;
                            while (index >= uint32_t(entries - 1 - first))
                                index -= uint32_t(entries - 1 - first++);
                            second = first + 1 + int(index);
                            flip = (n < pairs) == (parity != 0);
                        }
                        else
                            break;
                        const unsigned char* p = region.paletteEntries[flip ? second : first];
                        const unsigned char* q = region.paletteEntries[flip ? first : second];
                        MapToRepresentableColoursInt(true, p, q, a, b);
                    }
                    else
                    {
                        if (n >= 13)
                            break;
                        float pa[4], pb[4], va[4], vb[4];
                        ConvertIntPixelToFloat(parent.repA, pa);
                        ConvertIntPixelToFloat(parent.repB, pb);
                        MixPixelF(va, AlternativeWeightSet[n][0], pa, pb);
                        MixPixelF(vb, AlternativeWeightSet[n][1], pa, pb);
                        if (params.clampToBox && slot.boundingBox)
                        {
                            ClampToOrientedBBox(slot.boundingBox->box, va);
                            ClampToOrientedBBox(slot.boundingBox->box, vb);
                        }
                        MapToRepresentableColours(params.isGeneration2 != 0, va, vb, a, b);
                        if (SamePair(parent, a, b))
                            continue;
                    }
                    if (!known(a, b))
                        pool[poolCount++] = FreshCandidate(a, b);
                }
            }
        }

        if (resultCount == 0)
            continue;
        RepCandidate scratch[kMaxResults];
        orbmergesort(results, scratch, size_t(resultCount), sizeof(RepCandidate), CompareCandidates);
        changed[i] = slot.candidateCount == 0 || !SamePair(slot.candidates[0], results[0]) ||
                     results[0].hardVariant != 0;
        RepCandidate kept[4];
        int keptCount = 0;
        const int wanted = int(std::min<uint32_t>(4, std::max<uint32_t>(1, params.numCandidates)));
        for (int r = 0; r < resultCount && keptCount < wanted; ++r)
        {
            bool stands = false;
            for (int k = 0; k < keptCount; ++k)
                stands = stands || SamePair(kept[k], results[r]);
            if (!stands)
                kept[keptCount++] = results[r];
        }
        std::copy(kept, kept + keptCount, slot.candidates);
        slot.candidateCount = uint8_t(keptCount);
    }

    // The slot of least error; the selected mode keeps its place on a tie.
    int best = -1;
    for (int i = 0; i < visitCount; ++i)
    {
        const ModeSlot& slot = region.modeSlots[i];
        const int64_t error = slot.candidateCount ? slot.candidates[0].totalError : kFreshCandidateError;
        const bool isSelected = slot.mode == region.selectedMode;
        if (best < 0)
        {
            if (error < kFreshCandidateError || (isSelected && error == kFreshCandidateError))
                best = i;
            continue;
        }
        const int64_t bestError = region.modeSlots[best].candidates[0].totalError;
        if (error < bestError || (error == bestError && isSelected))
            best = i;
    }
    if (best < 0)
        return;
    const uint32_t chosen = region.modeSlots[best].mode;
    if (chosen != region.selectedMode)
    {
        region.selectedMode = chosen;
        region.lastChangedStamp = stamp;
    }
    else if (changed[best] || params.numIterations <= 1)
        region.lastChangedStamp = stamp;
}

namespace
{

using ThreadWork = std::unique_ptr<OptimiseWork, OptimiseWorkRelease>;

ThreadWork NewThreadWork(const CompressParams& params)
{
    OptimiseWork* work = new (std::nothrow) OptimiseWork;
    if (!work || !InitOptimiseWork(*work, params))
    {
        std::fprintf(stderr, "Err: Failed to allocate OptimiseRegion working space!!\n");
        delete work;
        return nullptr;
    }
    return ThreadWork(work);
}

// Rows first, first + 2, ... before end, each row's columns in visiting order.
void OptimiseBlockRows(const OptimiseThreadArgs& args, uint32_t first, uint32_t end)
{
    const CompressParams& params = *args.params;
    const ThreadWork work = NewThreadWork(params);
    if (!work)
        return;
    const std::vector<uint32_t> columns = ColumnVisitOrder(params.blocksWide);
    for (uint32_t row = first; row < end && !StopAsked(args.cancel); row += 2)
        for (uint32_t column : columns)
            OptimiseRegion(*args.image, params, row, column, *work, args.stamp + (column & 1), args.RegRow);
}

// The due blocks of a stage as thread 'index' takes them, their stamps
// copied to the schedule.
void OptimiseStageBlocks(const OptimiseThreadArgs& args, unsigned int index)
{
    const CompressParams& params = *args.params;
    StageSchedule& schedule = *args.schedule;
    ThreadWork& work = schedule.works[index];
    if (!work)
        work = NewThreadWork(params);
    if (!work)
        return;
    for (;;)
    {
        const uint32_t next = args.nextBlock->fetch_add(1, std::memory_order_relaxed);
        if (next >= schedule.dueCount || StopAsked(args.cancel))
            break;
        const uint32_t block = schedule.due[next];
        const uint32_t row = block / params.blocksWide, column = block % params.blocksWide;
        OptimiseRegion(*args.image, params, row, column, *work, args.stamp + (column & 1), args.RegRow);
        const RegionStats& region = args.RegRow[row][column];
        schedule.changed[block] = region.lastChangedStamp;
        schedule.visited[block] = region.lastVisitedStamp;
    }
}

} // namespace

void* RunAnOptimisePhaseThread(void* argument)
{
    const ThreadArgPair& pair = *static_cast<const ThreadArgPair*>(argument);
    const OptimiseThreadArgs& args = *static_cast<const OptimiseThreadArgs*>(pair.shared);
    if (args.nextBlock)
    {
        OptimiseStageBlocks(args, pair.index);
        return nullptr;
    }
    const uint32_t blocksHigh = args.params->blocksHigh;
    uint32_t first, end;
    OptimiseRows(pair.index, args.threadCount, blocksHigh, args.rowParity, first, end);
    if (end == blocksHigh && HoldsBackLastRow(blocksHigh, args.rowParity))
        --end;
    OptimiseBlockRows(args, first, end);
    return nullptr;
}

void OptimiseHeldBackRow(const OptimiseThreadArgs& args)
{
    const uint32_t blocksHigh = args.params->blocksHigh;
    if (HoldsBackLastRow(blocksHigh, args.rowParity))
        OptimiseBlockRows(args, blocksHigh - 1, blocksHigh);
}

void PackLocalBlock(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                    OptimiseWork& work, RegionStats* const* RegRow, uint32_t* word)
{
    const RegionStats& region = RegRow[row][column];
    const uint32_t mode = region.selectedMode;
    uint32_t modes[9];
    NeighbourhoodReps reps;
    GatherNeighbourhood(params, row, column, RegRow, modes, reps);
    GatherWindowPixels(image, params, row, column, work.window);
    work.storeFitting = false;
    WindowErrors errors;
    const int bw = params.blockWidth, bh = params.blockHeight, width = params.windowWidth;

    // On the fast path the block's own pixels take their choices in lanes
    // (every one of them is measured there, none a palette pixel).
    bool laned = false;
    if (params.bitsPerPixel == 4 && !OptimiserReference())
    {
        bool selfPositions[9];
        for (int p = 0; p < 9; ++p)
            selfPositions[p] = (p % 3 == 1 || params.blocksWide == 1) && (p / 3 == 1 || params.blocksHigh == 1);
        PrepareWindowLanes(work, params);
        laned = PrepareLanes(work, params, mode, modes, 0, selfPositions, reps, false);
    }
    if (laned)
    {
        const LaneLayout& layout = *work.lanes.layout;
        int16_t self[8];
        MaskPair(reps.reps[4], self);
        int64_t central = 0, others = 0;
        EvaluateWindowLanes(work.lanes, self, false, &central, &others);
        for (int j = 0; j < layout.count; ++j)
            work.chosen[layout.index[j]] = work.lanes.chosen[j];
    }
    else
        CreateBlendingAndUpdateWeights(mode, modes, 0, params, work);

    uint32_t modulation = 0;
    if (params.bitsPerPixel == 4)
    {
        if (!laned)
            EvalAllCandsAndGetErrors4BPP(work, params, reps, false, errors);
        for (int y = bh / 2; y < 3 * bh / 2; ++y)
            for (int x = bw / 2; x < 3 * bw / 2; ++x)
            {
                const int i = y * width + x;
                const int choice = work.chosen[i] & 3;
                const uint32_t code = !laned && work.records[i].palettePixel
                                          ? PalModRemapper4Col(y - bh / 2, x - bw / 2, choice)
                                          : uint32_t(choice);
                modulation = (modulation >> 2) | (code << 30);
            }
    }
    else if (params.bitsPerPixel == 2)
    {
        EvalAllCandsAndGetErrors2BPP(work, params, reps, false, errors);
        const bool oneBit = mode == 8 || mode == 12;
        for (int y = bh / 2; y < 3 * bh / 2; ++y)
            for (int x = bw / 2; x < 3 * bw / 2; ++x)
            {
                const int i = y * width + x;
                const int cls = work.records[i].modulationClass;
                const uint32_t high = (work.chosen[i] >> 1) & 1;
                if (oneBit)
                    modulation = (modulation >> 1) | (high << 31);
                else if (cls == 0)
                    modulation = (modulation >> 2) | (uint32_t(work.chosen[i] & 3) << 30);
                else if (cls == 1)
                    modulation = (modulation >> 2) | (high << 31);
            }
        if (mode == 10 || mode == 14)
            modulation |= 1;
        else if (mode == 11 || mode == 15)
            modulation |= 1 | (1u << 20);
    }
    else
    {
        // Ends the process: 1 bit a pixel has no modes; no entry passes it.
        std::fprintf(stderr, "Exiting! 1BPP mode not yet implemented (PackLocalBlock)\n");
        std::abort();
    }

    // Colour word from the selected slot's first candidate.
    const ModeSlot* slot = SelectedSlot(region);
    unsigned char a[4] = {0, 0, 0, 0}, b[4] = {0, 0, 0, 0};
    if (slot && slot->candidateCount)
    {
        std::memcpy(a, slot->candidates[0].repA, 4);
        std::memcpy(b, slot->candidates[0].repB, 4);
    }
    auto opaqueB = [&] { return (1u << 31) | uint32_t(b[0] >> 3) << 26 | uint32_t(b[1] >> 3) << 21 | uint32_t(b[2] >> 3) << 16; };
    auto opaqueA = [&] { return (1u << 15) | uint32_t(a[0] >> 3) << 10 | uint32_t(a[1] >> 3) << 5 | uint32_t(a[2] >> 4) << 1; };
    auto translucentB = [&] {
        return uint32_t(b[3] >> 5) << 28 | uint32_t(b[0] >> 4) << 24 | uint32_t(b[1] >> 4) << 20 | uint32_t(b[2] >> 4) << 16;
    };
    auto translucentA = [&] {
        return uint32_t(a[3] >> 5) << 12 | uint32_t(a[0] >> 4) << 8 | uint32_t(a[1] >> 4) << 4 | uint32_t(a[2] >> 5) << 1;
    };
    uint32_t colour;
    if (a[3] == 255 && b[3] == 255)
    {
        colour = opaqueB() | opaqueA();
        if (params.isGeneration2)
            colour &= ~(1u << 15);
    }
    else if (params.isGeneration2)
        colour = translucentB() | translucentA();
    else
        colour = (b[3] == 255 ? opaqueB() : translucentB()) | (a[3] == 255 ? opaqueA() : translucentA());

    if (params.bitsPerPixel == 4)
    {
        if (mode & 1)
            colour |= 1;
        if (mode & 2)
            colour |= 1u << 15;
    }
    else
    {
        if ((mode & 3) != 0)
            colour |= 1;
        if (mode & 4)
            colour |= 1u << 15;
    }
    (void)errors;
    work.storeFitting = true;
    word[0] = modulation;
    word[1] = colour;
}

} // namespace orbtexture
