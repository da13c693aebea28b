// The optimiser's driver for one image level: statistics, colour swaps, the
// passes with their schedule, and the final packing of the words.

#include "Codecs/ORBTC/fnzj/threadsupport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#if defined(__unix__)
#include <sys/mman.h>
#endif

#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "Model/ORBTextureErrors.h"

namespace orbtexture
{

namespace
{

std::atomic<bool> gReferencePath{false};

// Address-checked builds keep each row of records an allocation of its own,
// so that a read past a row's end is reported.
#if defined(__SANITIZE_ADDRESS__)
#define ORBT_RECORD_ROWS_APART 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORBT_RECORD_ROWS_APART 1
#endif
#endif
#if !defined(ORBT_RECORD_ROWS_APART) && !defined(__unix__)
#define ORBT_RECORD_ROWS_APART 1
#endif

// The block records of one image, zeroed. On Unix one anonymous mapping, whose
// zero pages the statistics threads fault in as they first write their rows,
// where zeroed allocations would clear them all on the caller's thread first;
// elsewhere, and in address-checked builds, a zeroed allocation per row.
class RecordArena
{
  public:
    RecordArena() = default;
    RecordArena(const RecordArena&) = delete;
    RecordArena& operator=(const RecordArena&) = delete;
    ~RecordArena()
    {
#if defined(ORBT_RECORD_ROWS_APART)
        for (RegionStats* row : rows_)
            std::free(row);
#else
        if (mapping_)
            munmap(mapping_, bytes_);
#endif
    }

    // Points rows[0 .. high) at rows of 'wide' records; -1, or the first row
    // that could not be had.
    int Allocate(uint32_t high, uint32_t wide, RegionStats** rows)
    {
#if defined(ORBT_RECORD_ROWS_APART)
        rows_.assign(high, nullptr);
        for (uint32_t y = 0; y < high; ++y)
            if (!(rows[y] = rows_[y] = static_cast<RegionStats*>(std::calloc(wide, sizeof(RegionStats)))))
                return int(y);
        return -1;
#else
        const size_t count = size_t(high) * wide;
        if (count == 0 || count > SIZE_MAX / sizeof(RegionStats))
            return 0;
        bytes_ = count * sizeof(RegionStats);
        void* mapping = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapping == MAP_FAILED)
            return 0;
        mapping_ = mapping;
        for (uint32_t y = 0; y < high; ++y)
            rows[y] = static_cast<RegionStats*>(mapping) + size_t(y) * wide;
        return -1;
#endif
    }

  private:
#if defined(ORBT_RECORD_ROWS_APART)
    std::vector<RegionStats*> rows_;
#else
    void* mapping_ = nullptr;
    size_t bytes_ = 0;
#endif
};

// Runs 'routine' over the thread indices of one phase.
template <typename Shared>
void RunPhase(unsigned int threadCount, void* (*routine)(void*), const Shared& shared)
{
    std::vector<ThreadArgPair> pairs(threadCount);
    std::vector<void*> arguments(threadCount);
    for (unsigned int t = 0; t < threadCount; ++t)
    {
        pairs[t] = {&shared, t};
        arguments[t] = &pairs[t];
    }
    RunIndexedWork(threadCount, routine, arguments.data());
}

// The first candidate of a slot, A then B.
void CopyPair(const ModeSlot* slot, unsigned char* out)
{
    if (slot && slot->candidateCount)
    {
        std::memcpy(out, slot->candidates[0].repA, 4);
        std::memcpy(out + 4, slot->candidates[0].repB, 4);
    }
    else
        std::memset(out, 0, 8);
}

void SwapFirst(ModeSlot& slot, bool isGeneration2)
{
    if (slot.candidateCount == 0)
        return;
    RepCandidate& c = slot.candidates[0];
    // Generation 2 cannot hold a transparent A, nor a translucent A with an
    // opaque B, once the colours trade places.
    if (isGeneration2 && (c.repA[3] == 0 || (c.repA[3] != 255 && c.repB[3] == 255)))
        return;
    unsigned char t[4];
    std::memcpy(t, c.repA, 4);
    std::memcpy(c.repA, c.repB, 4);
    std::memcpy(c.repB, t, 4);
}

void ApplyColourSwaps(const CompressParams& params, RegionStats* const* rows)
{
    const uint32_t wide = params.blocksWide, high = params.blocksHigh;
    const size_t blocks = size_t(wide) * high;
    std::unique_ptr<unsigned char[]> selected(new (std::nothrow) unsigned char[blocks * 8]);
    std::unique_ptr<unsigned char[]> other(new (std::nothrow) unsigned char[blocks * 8]);
    std::unique_ptr<uint8_t[]> flags;
    if (selected && other)
    {
        for (uint32_t y = 0; y < high; ++y)
            for (uint32_t x = 0; x < wide; ++x)
            {
                RegionStats& region = rows[y][x];
                const ModeSlot* chosen = SelectedSlot(region);
                const ModeSlot* second = chosen == &region.modeSlots[0] ? &region.modeSlots[1] : &region.modeSlots[0];
                CopyPair(chosen, &selected[(size_t(y) * wide + x) * 8]);
                CopyPair(second, &other[(size_t(y) * wide + x) * 8]);
            }
        flags = CreateColourSwappingRecommendations(wide, high, true, selected.get(), other.get());
    }

    const bool generation2 = params.isGeneration2 != 0;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            RegionStats& region = rows[y][x];
            if (flags)
            {
                const uint8_t r0 = flags[2 * (size_t(y) * wide + x)], r1 = flags[2 * (size_t(y) * wide + x) + 1];
                ModeSlot* chosen = SelectedSlot(region);
                ModeSlot* second = chosen == &region.modeSlots[0] ? &region.modeSlots[1] : &region.modeSlots[0];
                if (r0 && chosen)
                    SwapFirst(*chosen, generation2);
                if (r0 != r1)
                    SwapFirst(*second, generation2);
            }
            // Swapped colours may stand in a form of other precision.
            uint8_t list[8];
            const int count = ConstructListOfNeededModes(params.format, params.bitsPerPixel, params.isGeneration2,
                                                         region.interpolationHint, list);
            for (int s = 0; s < count; ++s)
                for (int c = 0; c < region.modeSlots[s].candidateCount; ++c)
                {
                    RepCandidate& candidate = region.modeSlots[s].candidates[c];
                    unsigned char a[4], b[4];
                    MapToRepresentableColoursInt(generation2, candidate.repA, candidate.repB, a, b);
                    std::memcpy(candidate.repA, a, 4);
                    std::memcpy(candidate.repB, b, 4);
                }
        }
}

// The mean first error of the blocks' selected slots, to a whole number.
double MeanSelectedError(const CompressParams& params, RegionStats* const* rows)
{
    double sum = 0.0;
    for (uint32_t y = 0; y < params.blocksHigh; ++y)
        for (uint32_t x = 0; x < params.blocksWide; ++x)
        {
            const ModeSlot* slot = SelectedSlot(rows[y][x]);
            sum += double(slot && slot->candidateCount ? slot->candidates[0].totalError : kFreshCandidateError);
        }
    return std::round(sum / (double(params.blocksHigh) * params.blocksWide));
}

// Generation 2 allows the hard modes from this pass on.
constexpr uint32_t kFirstHardPass = 4;

// The pass fields of pass 'pass' of 'passes', given those of the last pass.
void SetPassParameters(CompressParams& params, unsigned int quality, uint32_t pass, uint32_t passes,
                       double meanError)
{
    const CompressParams last = params;
    if (pass == 0)
    {
        params.numIterations = 1;
        params.numCandidates = 4;
        params.numVariants = 8;
        params.otherCandidateThreshold = 0;
        params.clampToBox = 1;
        params.useIslands = 0;
        params.forceAllRegions = 1;
        params.hardModesAllowed = 0;
        params.tryHardVariants = 0;
        params.hardVariantStep = HEVarsStepSizes[quality];
        return;
    }
    const uint32_t halfway = std::min<uint32_t>(passes / 2, 4);
    params.numIterations = NumIterationsTable[quality];
    params.numCandidates = NumCandidatesTable[quality];
    const int64_t variants =
        int64_t(InitialPerQualVariants[quality]) - int64_t(DecreasePerQualVariants[quality]) * (int64_t(pass) - 1);
    params.numVariants = uint32_t(std::max<int64_t>(0, variants));
    params.otherCandidateThreshold =
        int64_t(std::roundf(float(meanError) * OtherCandidateThresholdFactors[quality]));
    if (!params.isGeneration2 || pass < kFirstHardPass)
    {
        params.hardModesAllowed = 0;
        params.tryHardVariants = 0;
        params.clampToBox = params.useIslands = pass < halfway ? 1 : 0;
    }
    else
    {
        params.hardModesAllowed = 1;
        params.clampToBox = params.useIslands = 0;
        params.tryHardVariants = pass + 1 < passes && params.blocksWide > 1 && params.blocksHigh > 1 ? 1 : 0;
    }
    params.forceAllRegions = (params.hardModesAllowed && !last.hardModesAllowed) ||
                             params.tryHardVariants > last.tryHardVariants || params.numVariants > last.numVariants ||
                             params.useIslands != last.useIslands;
}

// What every thread of the packing reads; thread 0 uses 'work', the others
// their own, or mark their share in 'unpacked' when they cannot have one.
struct PackShared
{
    const ImageBuffer* image;
    const CompressParams* params;
    RegionStats* const* rows;
    unsigned char* output;
    bool noTwiddle;
    unsigned int threadCount;
    OptimiseWork* work;
    unsigned char* unpacked;
};

void PackRows(const PackShared& pack, OptimiseWork& work, uint32_t first, uint32_t end)
{
    const CompressParams& params = *pack.params;
    for (uint32_t y = first; y < end; ++y)
        for (uint32_t x = 0; x < params.blocksWide; ++x)
        {
            uint32_t word[2];
            PackLocalBlock(*pack.image, params, y, x, work, pack.rows, word);
            unsigned char* out =
                pack.output + 8 * size_t(TwiddleUV(params.blocksHigh, params.blocksWide, y, x, pack.noTwiddle));
            for (int k = 0; k < 4; ++k)
            {
                out[k] = uint8_t(word[0] >> (8 * k));
                out[4 + k] = uint8_t(word[1] >> (8 * k));
            }
        }
}

void* RunAPackThread(void* argument)
{
    const ThreadArgPair& pair = *static_cast<const ThreadArgPair*>(argument);
    const PackShared& pack = *static_cast<const PackShared*>(pair.shared);
    uint32_t first, end;
    StatsRows(pair.index, pack.threadCount, pack.params->blocksHigh, first, end);
    if (pair.index == 0)
    {
        PackRows(pack, *pack.work, first, end);
        return nullptr;
    }
    OptimiseWork* work = new (std::nothrow) OptimiseWork;
    if (!work || !InitOptimiseWork(*work, *pack.params))
    {
        delete work;
        pack.unpacked[pair.index] = 1;
        return nullptr;
    }
    PackRows(pack, *work, first, end);
    ReleaseOptimiseWork(*work);
    delete work;
    return nullptr;
}

// Copies the stamps of rows [first, end) to the schedule.
void CopyStamps(const CompressParams& params, RegionStats* const* rows, uint32_t first, uint32_t end,
                StageSchedule& schedule)
{
    for (uint32_t y = first; y < end; ++y)
        for (uint32_t x = 0; x < params.blocksWide; ++x)
        {
            schedule.changed[size_t(y) * params.blocksWide + x] = rows[y][x].lastChangedStamp;
            schedule.visited[size_t(y) * params.blocksWide + x] = rows[y][x].lastVisitedStamp;
        }
}

// Whether OptimiseRegion would visit block (row, column) now, from the
// schedule's stamps.
bool Due(const CompressParams& params, const StageSchedule& schedule, uint32_t row, uint32_t column)
{
    if (params.forceAllRegions)
        return true;
    const uint32_t high = params.blocksHigh, wide = params.blocksWide;
    uint32_t latestChange = 0;
    for (uint32_t dy = 0; dy < 3; ++dy)
        for (uint32_t dx = 0; dx < 3; ++dx)
            if (dy != 1 || dx != 1)
                latestChange = std::max(
                    latestChange,
                    schedule.changed[size_t(Neighbour(row, int(dy) - 1, high)) * wide +
                                     Neighbour(column, int(dx) - 1, wide)]);
    return !(latestChange < schedule.visited[size_t(row) * wide + column]);
}

// One optimise phase. The fast path runs the phase's stages one after the
// other, each due block of a stage on the next free thread; the plain one
// gives each thread a fixed share of the rows.
void RunOptimisePhase(OptimiseThreadArgs args, StageSchedule* schedule)
{
    if (!schedule)
        RunPhase(args.threadCount, RunAnOptimisePhaseThread, args);
    else
        for (uint32_t stage = 0; stage < 3; ++stage)
        {
            const CompressParams& params = *args.params;
            const uint32_t count = StageBlockCount(params.blocksWide, params.blocksHigh, args.rowParity, stage);
            schedule->dueCount = 0;
            for (uint32_t index = 0; index < count; ++index)
            {
                uint32_t row, column;
                StageBlock(params.blocksWide, args.rowParity, stage, index, row, column);
                if (Due(params, *schedule, row, column))
                    schedule->due[schedule->dueCount++] = row * params.blocksWide + column;
            }
            if (schedule->dueCount == 0)
                continue;
            std::atomic<uint32_t> next{0};
            args.nextBlock = &next;
            args.schedule = schedule;
            RunPhase(std::min(args.threadCount, schedule->dueCount), RunAnOptimisePhaseThread, args);
        }
    args.nextBlock = nullptr;
    OptimiseHeldBackRow(args);
    if (schedule && HoldsBackLastRow(args.params->blocksHigh, args.rowParity))
        CopyStamps(*args.params, args.RegRow, args.params->blocksHigh - 1, args.params->blocksHigh, *schedule);
}

} // namespace

void SetOptimiserReference(bool reference)
{
    gReferencePath.store(reference);
}

bool OptimiserReference()
{
    return gReferencePath.load();
}

int SearchForImageRepresentatives(ImageBuffer* image, unsigned int format, unsigned int bitsPerPixel,
                                  bool isGeneration2, unsigned char* output, unsigned int noTwiddle,
                                  unsigned int quality, unsigned int punchThrough)
{
    const unsigned int q = std::min(quality, 6u);
    const uint32_t passes =
        quality > 6 ? 128 : isGeneration2 ? NumPassesTableORBTC2[quality] : NumPassesTableORBTC1[quality];

    CompressParams params;
    params.format = uint8_t(format);
    params.bitsPerPixel = uint8_t(bitsPerPixel);
    params.blockWidth = bitsPerPixel == 2 ? 8 : 4;
    params.blockHeight = 4;
    params.windowWidth = uint8_t(2 * params.blockWidth + 1);
    params.windowHeight = uint8_t(2 * params.blockHeight + 1);
    params.isGeneration2 = isGeneration2 ? 1 : 0;
    params.blocksWide = uint32_t(image->width) / params.blockWidth;
    params.blocksHigh = uint32_t(image->height) / params.blockHeight;
    params.punchThrough = bitsPerPixel == 4 && punchThrough ? 1 : 0;
    if (params.blocksWide == 0 || params.blocksHigh == 0 || params.blocksHigh > uint32_t(kMaxRegionRows))
        return SetError(eORBTErrorSize, "the optimiser takes 1 to %d rows of blocks, not %u", kMaxRegionRows,
                        params.blocksHigh);
    const auto outOfMemory = [] { return SetError(eORBTErrorMemory, "the optimiser ran out of memory"); };

    std::unique_ptr<ImgStats> stats(new (std::nothrow) ImgStats{});
    if (!stats)
        return outOfMemory();
    RecordArena arena;
    if (const int failed = arena.Allocate(params.blocksHigh, params.blocksWide, stats->RegRow); failed >= 0)
    {
        std::fprintf(stderr, "%s:%s failed malloc @ %s:%d\n", "Panic", "pImgStats->RegRow[row]", "threadsupport",
                     __LINE__);
        std::fprintf(stderr, "At row:%d\n", failed);
        return outOfMemory();
    }
    std::vector<float> linWeights, lowWeights;
    std::vector<unsigned char> central;
    try
    {
        linWeights = WindowFilterWeights(params.blockWidth, params.blockHeight);
        lowWeights = WindowFilterWeights(params.blockWidth, params.blockHeight);
        central = CentralFlags(params.blockWidth, params.blockHeight);
    }
    catch (const std::bad_alloc&)
    {
        return outOfMemory();
    }
    OptimiseWork* packing = new (std::nothrow) OptimiseWork;
    if (!packing || !InitOptimiseWork(*packing, params))
    {
        delete packing;
        return outOfMemory();
    }

    SetPassParameters(params, q, 0, passes, 0.0);

    RegionStats* const* rows = stats->RegRow;
    const std::atomic<bool>* const cancel = CurrentCallContext().cancel;
    const auto stop = [&] {
        ReleaseOptimiseWork(*packing);
        delete packing;
        return SetError(eORBTErrorCancelled, "cancelled");
    };
    for (int phase = 0; phase < 2; ++phase)
    {
        std::atomic<uint32_t> nextRow{0};
        const StatsThreadArgs args{image,
                                   &params,
                                   phase,
                                   central.data(),
                                   linWeights.data(),
                                   lowWeights.data(),
                                   rows,
                                   OptimiserThreadCount(params.blocksHigh),
                                   cancel,
                                   OptimiserReference() ? nullptr : &nextRow,
                                   !OptimiserReference() && !(params.isGeneration2 && passes > kFirstHardPass)};
        RunPhase(args.threadCount, RunAGenerateStatsSetThread, args);
        if (StopAsked(cancel))
            return stop();
    }

    ApplyColourSwaps(params, rows);

    const bool reference = OptimiserReference();
    std::unique_ptr<StageSchedule> schedule;
    if (!reference)
    {
        try
        {
            schedule.reset(new StageSchedule);
            const size_t blocks = size_t(params.blocksWide) * params.blocksHigh;
            schedule->changed.resize(blocks);
            schedule->visited.resize(blocks);
            schedule->due.resize(blocks);
            schedule->works.resize(OptimiserThreadCount(params.blocksHigh));
        }
        catch (const std::bad_alloc&)
        {
            schedule.reset(); // the plain schedule then
        }
        if (schedule)
            CopyStamps(params, rows, 0, params.blocksHigh, *schedule);
    }
    unsigned int level = 0, levelCount = 1;
    FNZJGetCurrentLevel(level, levelCount);
    for (uint32_t pass = 0; pass < passes; ++pass)
    {
        if (pass > 0)
            SetPassParameters(params, q, pass, passes, MeanSelectedError(params, rows));
        for (uint32_t parity = 0; parity < 2; ++parity)
        {
            const OptimiseThreadArgs args{image, &params, parity, 4 * pass + 1 + 2 * parity, rows,
                                          OptimiserThreadCount(params.blocksHigh), cancel};
            RunOptimisePhase(args, schedule.get());
            if (StopAsked(cancel))
                return stop();
        }
        FNZJReportProgress({level, levelCount, pass + 1, passes, uint32_t(image->width), uint32_t(image->height)});
    }

    // The words; on the fast path each thread packs its share of the rows.
    const unsigned int packThreads = reference ? 1u : OptimiserThreadCount(params.blocksHigh);
    std::vector<unsigned char> unpacked(packThreads, 0);
    const PackShared pack{image, &params, rows, output, noTwiddle != 0, packThreads, packing, unpacked.data()};
    RunPhase(packThreads, RunAPackThread, pack);
    for (unsigned int t = 1; t < packThreads; ++t)
        if (unpacked[t])
        {
            uint32_t first, end;
            StatsRows(t, packThreads, params.blocksHigh, first, end);
            PackRows(pack, *packing, first, end);
        }

    ReleaseOptimiseWork(*packing);
    delete packing;
    return 1;
}

} // namespace orbtexture
