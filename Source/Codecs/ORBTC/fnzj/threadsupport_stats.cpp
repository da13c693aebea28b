// The statistics phases of the optimiser: per block, the boxes of its window
// (phase 0), then the residual boxes against the low-frequency image of the
// neighbours' means, the islands, and the first candidate of every mode
// (phase 1).

#include "Codecs/ORBTC/fnzj/threadsupport_stats.h"

#include "Codecs/ORBTC/fnzj/optimiser_path.h"

#include "Codecs/ORBTC/fnzj/analygrapprop.h"
#include "Codecs/ORBTC/fnzj/fnzj_localised.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Tools/ORBTSimd.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#if ORBT_X86_SIMD
#include <emmintrin.h>
#endif

namespace orbtexture
{

namespace
{

const unsigned char iZeroPixel[4] = {0, 0, 0, 0};

constexpr int kPaletteEntriesMost = 5;
constexpr int kPaletteThreshold = 36;

bool IsTransparent(const CompressParams& params, const unsigned char* pixel)
{
    if (params.bitsPerPixel != 4)
        return false;
    return params.isGeneration2 ? (pixel[0] | pixel[1] | pixel[2] | pixel[3]) == 0 : pixel[3] == 0;
}

unsigned char RoundAndClamp(double value)
{
    return static_cast<unsigned char>(std::min(std::max(std::floor(value + 0.5), 0.0), 255.0));
}

#if ORBT_X86_SIMD
inline __m128 Load(const unsigned char* pixel)
{
    return LoadPixelSSE2(pixel);
}
inline __m128 Load(const float* colour)
{
    return _mm_loadu_ps(colour);
}
#endif

// Bounds, weighted sums and the covariance sum of a set of colours.
struct Moments
{
    float minimum[4], maximum[4];
    double sums[4];
    double covar[kCovarSumSize];
    double weight;

    void Reset()
    {
        std::fill_n(minimum, 4, FLT_MAX);
        std::fill_n(maximum, 4, -FLT_MAX);
        std::fill_n(sums, 4, 0.0);
        std::fill_n(covar, kCovarSumSize, 0.0);
        weight = 0.0;
    }
    void Bound(const float* colour)
    {
        for (int c = 0; c < 4; ++c)
        {
            minimum[c] = std::min(minimum[c], colour[c]);
            maximum[c] = std::max(maximum[c], colour[c]);
        }
    }
    void Add(const unsigned char* colour, float w)
    {
        float value[4];
        ConvertIntPixelToFloat(colour, value);
        Bound(value);
        for (int c = 0; c < 4; ++c)
            sums[c] += double(w) * value[c];
        UpdateCovarSumI(covar, w, 0, colour);
        weight += w;
    }
    void Add(const float* colour, float w)
    {
        Bound(colour);
        for (int c = 0; c < 4; ++c)
            sums[c] += double(w) * colour[c];
        UpdateCovarSumF(covar, w, colour);
        weight += w;
    }
    // Add for 'count' colours in order: 8-bit pixels, or floats four to a
    // colour. The fast path holds the sums in registers meanwhile, each
    // added to in the same order.
    template <typename Channel>
    void AddAll(const Channel* colours, const float* weights, int count)
    {
#if ORBT_X86_SIMD
        if (!OptimiserReference())
        {
            __m128 low = _mm_loadu_ps(minimum), high = _mm_loadu_ps(maximum);
            __m128d sum01 = _mm_loadu_pd(sums), sum23 = _mm_loadu_pd(sums + 2);
            __m128d products[5];
            for (int k = 0; k < 5; ++k)
                products[k] = _mm_loadu_pd(covar + 2 * k);
            double total = weight;
            for (int i = 0; i < count; ++i)
            {
                const __m128 value = Load(colours + 4 * i);
                // std::min (m, v) is v < m ? v : m, as minps (v, m); std::max likewise.
                low = _mm_min_ps(value, low);
                high = _mm_max_ps(value, high);
                const __m128d c01 = _mm_cvtps_pd(value), c23 = _mm_cvtps_pd(_mm_movehl_ps(value, value));
                const __m128d w = _mm_set1_pd(double(weights[i]));
                sum01 = _mm_add_pd(sum01, _mm_mul_pd(w, c01));
                sum23 = _mm_add_pd(sum23, _mm_mul_pd(w, c23));
                AddCovarProducts(products, c01, c23, double(weights[i]));
                total += weights[i];
            }
            _mm_storeu_ps(minimum, low);
            _mm_storeu_ps(maximum, high);
            _mm_storeu_pd(sums, sum01);
            _mm_storeu_pd(sums + 2, sum23);
            for (int k = 0; k < 5; ++k)
                _mm_storeu_pd(covar + 2 * k, products[k]);
            weight = total;
            return;
        }
#endif
        for (int i = 0; i < count; ++i)
            Add(colours + 4 * i, weights[i]);
    }
    void Scale(double factor)
    {
        for (double& s : sums)
            s *= factor;
        for (double& s : covar)
            s *= factor;
    }
    bool OneColour() const
    {
        for (int c = 0; c < 4; ++c)
            if (minimum[c] != maximum[c])
                return false;
        return true;
    }
};

// singleColour and the box from normalised moments: the unit axes at
// 'single' for one colour, else the sorted eigenvectors with empty bounds.
void SetBoxShape(StatBox& stat, const Moments& moments, const unsigned char* single)
{
    stat.singleColour = moments.OneColour() ? 1 : 0;
    if (stat.singleColour)
    {
        InitOrientedBBoxToSingleColour(stat.box, single);
        return;
    }
    const float mean[4] = {float(moments.sums[0]), float(moments.sums[1]), float(moments.sums[2]),
                           float(moments.sums[3])};
    float eigenvalues[4], axes[4][4];
    CovarSumToSortedEigenVecs(moments.covar, mean, eigenvalues, axes);
    InitOrientedBBox(stat.box, axes);
}

// A box of 8-bit colours, single at its one colour.
void SetColourBox(StatBox& stat, const Moments& moments)
{
    unsigned char colour[4];
    for (int c = 0; c < 4; ++c)
        colour[c] = RoundAndClamp(moments.minimum[c]);
    SetBoxShape(stat, moments, colour);
    for (int c = 0; c < 4; ++c)
        stat.meanColour[c] = RoundAndClamp(moments.sums[c]);
}

struct InteriorPixel
{
    float residual[4];
    bool transparent;
};

// One thread's working arrays, allocated once for all its blocks.
struct StatsWork
{
    const StatsThreadArgs& args;
    const CompressParams& params;
    int pixelCount;
    std::unique_ptr<unsigned char[]> window;
    std::unique_ptr<unsigned char[]> labels, order;
    std::unique_ptr<float[]> lowFrequency, residuals;
    std::unique_ptr<InteriorPixel[]> interior;
    // The last pick in this block's window: a mode along the same axis over
    // the same pixels gets the same pair.
    struct Pick
    {
        bool valid;
        bool exclude;
        float axis[4];
        unsigned char a[4], b[4];
    };
    mutable Pick lastPick{};
    // Whether a mode that starts from the central box (2, 6 and 12) fills
    // its slot; where none does, the fast path leaves the box out.
    bool centralBoxRead = true;
};

bool CentralBoxRead(const StatsThreadArgs& args)
{
    if (OptimiserReference())
        return true;
    const CompressParams& params = *args.params;
    uint8_t modes[kMaxModeSlots];
    const int count = ConstructListOfNeededModes(params.format, params.bitsPerPixel, params.isGeneration2, 0, modes);
    for (int i = 0; i < count; ++i)
    {
        const bool fromCentre = modes[i] == 2 || modes[i] == 6 || modes[i] == 12;
        if (fromCentre && !(args.hardModesUnread && IsHardMode(params, modes[i])))
            return true;
    }
    return false;
}

std::unique_ptr<unsigned char[]> InitPixelWindow(int pixelCount)
{
    std::unique_ptr<unsigned char[]> window(new (std::nothrow) unsigned char[size_t(pixelCount) * 4]);
    if (!window)
    {
        // Ends the process: the first working array of a stats thread is this codec's out-of-memory exit.
        std::fprintf(stderr, "PANIC!: Out of mem at %s:%d\n", "threadsupport", __LINE__);
        std::exit(1);
    }
    return window;
}

void GenerateRawStats(StatsWork& work, RegionStats& region)
{
    const CompressParams& params = work.params;
    const unsigned char* window = work.window.get();
    const float* weights = work.args.lowFilterWeights;
    const unsigned char* central = work.args.centralFlags;
    const int count = work.pixelCount;
    const bool generation1Of4bpp = params.bitsPerPixel == 4 && !params.isGeneration2;

    // With no pixel transparent, or every one, the opaque sums and box are
    // the whole window's and go unread: the fast path leaves them out.
    bool opaqueSeparate = true;
    if (!OptimiserReference())
    {
        int transparent = 0;
        for (int i = 0; i < count; ++i)
            transparent += IsTransparent(params, window + 4 * i);
        opaqueSeparate = transparent != 0 && transparent != count;
    }

    // Transparent pixels of a generation 1 window keep steering the opaque
    // axes with the mean of the other alphas.
    unsigned char meanAlpha = 0;
    if (generation1Of4bpp && opaqueSeparate)
    {
        float alphaSum = 0.0f, weightSum = 0.0f;
        for (int i = 0; i < count; ++i)
            if (window[4 * i + 3] != 0)
            {
                alphaSum += weights[i] * window[4 * i + 3];
                weightSum += weights[i];
            }
        if (weightSum > 0.0f)
            meanAlpha = static_cast<unsigned char>(std::roundf(alphaSum / weightSum));
    }

    Moments all, opaque, middle;
    all.Reset();
    opaque.Reset();
    middle.Reset();
    int transparentCount = 0, centralCount = 0, centralTransparent = 0;
    all.AddAll(window, weights, count);
    for (int i = 0; i < count; ++i)
    {
        const unsigned char* pixel = window + 4 * i;
        const bool transparent = IsTransparent(params, pixel);
        transparentCount += transparent;
        if (opaqueSeparate && !transparent)
            opaque.Add(pixel, weights[i]);
        else if (opaqueSeparate && generation1Of4bpp)
        {
            const unsigned char steered[4] = {pixel[0], pixel[1], pixel[2], meanAlpha};
            opaque.Add(steered, weights[i]);
        }
        if (central[i])
        {
            if (work.centralBoxRead)
                middle.Add(pixel, 1.0f);
            ++centralCount;
            centralTransparent += transparent;
        }
    }
    if (centralCount > 0)
        middle.Scale(1.0 / centralCount);
    if (opaque.weight > 0.0)
        opaque.Scale(1.0 / opaque.weight);

    const bool allTransparent = transparentCount == count;
    const bool opaqueIsAll = transparentCount == 0 || allTransparent || !(opaque.weight > 0.0);
    if (!opaqueIsAll && opaque.OneColour() && centralTransparent == 0)
    {
        std::copy_n(opaque.minimum, 4, all.minimum);
        std::copy_n(opaque.maximum, 4, all.maximum);
    }

    SetColourBox(region.AllBox, all);
    if (opaqueIsAll)
        region.OpaqueBox = region.AllBox;
    else
        SetColourBox(region.OpaqueBox, opaque);
    if (work.centralBoxRead)
        SetColourBox(region.CentralBox, middle);

    {
        OrientedBoxAdder all(region.AllBox.box), opaque(region.OpaqueBox.box), centre(region.CentralBox.box);
        all.AddAll(window, count);
        for (int i = 0; i < count; ++i)
        {
            const unsigned char* pixel = window + 4 * i;
            const bool toOpaque = opaqueSeparate && (allTransparent || !IsTransparent(params, pixel));
            const bool toCentre = central[i] && work.centralBoxRead;
            if (!toOpaque && !toCentre)
                continue;
            float colour[4];
            ConvertIntPixelToFloat(pixel, colour);
            if (toOpaque)
                opaque.Add(colour);
            if (toCentre)
                centre.Add(colour);
        }
    }
    if (!opaqueSeparate)
        region.OpaqueBox.box = region.AllBox.box;
    if (OrientedBBoxIsEmpty(region.OpaqueBox.box))
        AddIColourToOrientedBBox(region.OpaqueBox.box, iZeroPixel);

    region.hasTransparent = centralTransparent > 0 ? 1 : 0;
    region.interpolationHint = 0;
    region.lastChangedStamp = 0;
    region.lastVisitedStamp = 0;
}

void FreshCandidate(RepCandidate& candidate)
{
    candidate.totalError = kFreshCandidateError;
    candidate.centralError = kFreshCandidateError;
    candidate.hardVariant = 0;
}

void PickAlong(const StatsWork& work, bool excludeTransparent, const float* axis, RepCandidate& candidate)
{
    // Exclusion that leaves out no pixel is none.
    bool exclude = false;
    for (int i = 0; excludeTransparent && !exclude && i < work.pixelCount; ++i)
        exclude = work.args.linFilterWeights[i] != 0.0f && IsTransparent(work.params, work.window.get() + 4 * i);
    StatsWork::Pick& last = work.lastPick;
    last.valid = last.valid && !OptimiserReference();
    if (last.valid && last.exclude == exclude && std::memcmp(last.axis, axis, sizeof last.axis) == 0)
    {
        std::copy_n(last.a, 4, candidate.repA);
        std::copy_n(last.b, 4, candidate.repB);
        return;
    }
    PickRepsByProjectingPixelsOntoAxis(work.params, exclude, true, false, work.window.get(),
                                       work.args.linFilterWeights, work.pixelCount, axis, -1, nullptr,
                                       candidate.repA, candidate.repB);
    last.valid = true;
    last.exclude = exclude;
    std::memcpy(last.axis, axis, sizeof last.axis);
    std::copy_n(candidate.repA, 4, last.a);
    std::copy_n(candidate.repB, 4, last.b);
}

// Both representatives at a box's mean colour.
void MeanPair(const StatBox& stat, RepCandidate& candidate)
{
    std::copy_n(stat.meanColour, 4, candidate.repA);
    std::copy_n(stat.meanColour, 4, candidate.repB);
}

// Fills slot 'index' of the region for 'mode'; slots before it are filled.
void SetUpStandardRepStarts(const StatsWork& work, RegionStats& region, int index, uint8_t mode, uint32_t x,
                            uint32_t y)
{
    const CompressParams& params = work.params;
    ModeSlot& slot = region.modeSlots[index];
    auto copyOf = [&](uint8_t source) {
        for (int i = 0; i < index; ++i)
            if (region.modeSlots[i].mode == source)
            {
                slot = region.modeSlots[i];
                return;
            }
    };

    ModeSlot filled{};
    filled.mode = mode;
    filled.candidateCount = 1;
    RepCandidate& first = filled.candidates[0];
    switch (mode)
    {
    case 0:
    case 4:
    case 8:
    {
        // The residual box serves when it is the tighter; its colours still
        // count as one only when the window's are.
        StatBox& chosen = SizeOfOrientedBBox(region.ResidualBox.box) < SizeOfOrientedBBox(region.AllBox.box)
                              ? region.ResidualBox
                              : region.AllBox;
        filled.boundingBox = &chosen;
        if (region.AllBox.singleColour)
            MeanPair(region.AllBox, first);
        else
            PickAlong(work, false, chosen.box.axes[0], first);
        break;
    }
    case 1:
    case 5:
        filled.boundingBox = &region.OpaqueBox;
        if (region.OpaqueBox.singleColour)
            MeanPair(region.OpaqueBox, first);
        else
            PickAlong(work, params.isGeneration2 || params.punchThrough, region.ResidualOpaqueBox.box.axes[0],
                      first);
        break;
    case 2:
    case 6:
    case 12:
        filled.boundingBox = &region.CentralBox;
        if (region.CentralBox.singleColour)
            MeanPair(region.CentralBox, first);
        else
            PickAlong(work, false, region.CentralBox.box.axes[0], first);
        break;
    case 9:
    case 10:
    case 11:
        copyOf(8);
        slot.mode = mode;
        return;
    case 13:
    case 14:
    case 15:
        copyOf(12);
        slot.mode = mode;
        return;
    case 3:
    case 7:
    {
        filled.boundingBox = &region.AllBox;
        region.paletteCount = uint32_t(GeneratePaletteEntries(region, work.window.get(), PalettePixels4bpp,
                                                              work.pixelCount, kPaletteEntriesMost,
                                                              kPaletteThreshold, region.paletteEntries));
        filled.candidateCount = uint8_t(
            PaletteRepCandidates(region.paletteEntries, int(region.paletteCount), x, y, filled.candidates));
        break;
    }
    default:
        slot.mode = mode;
        std::fprintf(stderr, "Error: Unexpected mode in SetUpStandardRepStarts()!\n");
        return;
    }
    for (int i = 0; i < filled.candidateCount; ++i)
        FreshCandidate(filled.candidates[i]);
    slot = filled;
}

void GenerateResidualStats(StatsWork& work, RegionStats* const* rows, uint32_t y, uint32_t x)
{
    const CompressParams& params = work.params;
    RegionStats& region = rows[y][x];
    const unsigned char* window = work.window.get();
    const float* weights = work.args.lowFilterWeights;
    const int width = params.windowWidth, height = params.windowHeight;
    const int innerRight = 2 * params.blockWidth, innerBottom = 2 * params.blockHeight;

    unsigned char means[9][4];
    NeighbourMeanColours(rows, params, y, x, means);
    float* lowFrequency = work.lowFrequency.get();
    LowFrequencyWindow(means, params, lowFrequency);

    // With no interior pixel transparent, the opaque sums go unread and the
    // opaque box is the residual box: the fast path leaves them out.
    bool opaqueSeparate = true;
    if (!OptimiserReference())
    {
        opaqueSeparate = false;
        for (int v = 1; v < innerBottom; ++v)
            for (int u = 1; u < innerRight; ++u)
                opaqueSeparate = opaqueSeparate || IsTransparent(params, window + 4 * (v * width + u));
    }

    Moments residuals, opaque;
    residuals.Reset();
    opaque.Reset();
    InteriorPixel* interior = work.interior.get();
    int interiorCount = 0, interiorTransparent = 0;
    float* residualOf = work.residuals.get();
    for (int i = 0; i < width * height; ++i)
        for (int c = 0; c < 4; ++c)
            residualOf[4 * i + c] = float(window[4 * i + c]) - lowFrequency[4 * i + c];
    residuals.AddAll(residualOf, weights, width * height);
    for (int v = 0, i = 0; v < height; ++v)
        for (int u = 0; u < width; ++u, ++i)
        {
            const unsigned char* pixel = window + 4 * i;
            const float* residual = residualOf + 4 * i;
            const bool transparent = IsTransparent(params, pixel);
            if (opaqueSeparate && !transparent)
                opaque.Add(residual, weights[i]);
            if (u != 0 && u != innerRight && v != 0 && v != innerBottom)
            {
                InteriorPixel& kept = interior[interiorCount++];
                std::copy_n(residual, 4, kept.residual);
                kept.transparent = transparent;
                interiorTransparent += transparent;
            }
        }

    // Mean residuals: the window's weights add to 1.
    double residualMean[4], opaqueMean[4];
    const bool allInteriorTransparent = interiorTransparent == interiorCount;
    if (allInteriorTransparent)
    {
        residuals.Reset();
        std::fill_n(residuals.minimum, 4, 0.0f);
        std::fill_n(residuals.maximum, 4, 0.0f);
    }
    SetBoxShape(region.ResidualBox, residuals, iZeroPixel);
    std::copy_n(residuals.sums, 4, residualMean);
    std::copy_n(residualMean, 4, opaqueMean);
    if (!allInteriorTransparent && interiorTransparent > 0 && opaque.weight > 0.0)
    {
        opaque.Scale(1.0 / opaque.weight);
        SetBoxShape(region.ResidualOpaqueBox, opaque, iZeroPixel);
        std::copy_n(opaque.sums, 4, opaqueMean);
    }
    else
        region.ResidualOpaqueBox = region.ResidualBox;

    if (!allInteriorTransparent)
    {
        OrientedBoxAdder residual(region.ResidualBox.box), opaqueResidual(region.ResidualOpaqueBox.box);
        // The interior, row by row, as the list holds it.
        for (int v = 1; v < innerBottom; ++v)
            residual.AddAll(residualOf + 4 * (v * width + 1), innerRight - 1, 4);
        for (int i = 0; opaqueSeparate && i < interiorCount; ++i)
            if (!interior[i].transparent)
                opaqueResidual.Add(interior[i].residual);
    }
    if (!opaqueSeparate)
        region.ResidualOpaqueBox.box = region.ResidualBox.box;

    for (int c = 0; c < 4; ++c)
    {
        region.ResidualBox.meanColour[c] = RoundAndClamp(region.AllBox.meanColour[c] + residualMean[c]);
        region.ResidualOpaqueBox.meanColour[c] = RoundAndClamp(region.AllBox.meanColour[c] + opaqueMean[c]);
    }
    OffsetOrientedBBox(region.ResidualBox.box, region.AllBox.meanColour);
    OffsetOrientedBBox(region.ResidualOpaqueBox.box, region.AllBox.meanColour);

    // Past the count that makes a block graphics-like, its islands are not
    // wanted.
    const int graphicsBelow = width * height / 4;
    const int islands = AnalyseGraphicsProperties(window, params, work.labels.get(), work.order.get(),
                                                  OptimiserReference() ? 256 : graphicsBelow);
    region.graphicsLike = islands < graphicsBelow ? 1 : 0;
    if (work.pixelCount == int(sizeof region.islandLabels))
    {
        std::memcpy(region.islandLabels, work.labels.get(), sizeof region.islandLabels);
        std::memcpy(region.islandOrder, work.order.get(), sizeof region.islandOrder);
    }

    uint8_t modes[kMaxModeSlots];
    const int modeCount = ConstructListOfNeededModes(params.format, params.bitsPerPixel, params.isGeneration2,
                                                     region.interpolationHint, modes);
    region.flatRegion = region.AllBox.singleColour;
    region.paletteCount = 0;
    std::memset(region.paletteEntries, 0, sizeof region.paletteEntries);
    work.lastPick.valid = false;
    for (int i = 0; i < modeCount; ++i)
        if (work.args.hardModesUnread && IsHardMode(params, modes[i]))
        {
            region.modeSlots[i] = ModeSlot{};
            region.modeSlots[i].mode = modes[i];
        }
        else
            SetUpStandardRepStarts(work, region, i, modes[i], x, y);
    for (int i = modeCount; i < kMaxModeSlots; ++i)
        region.modeSlots[i] = ModeSlot{};

    if (params.bitsPerPixel == 2)
        region.selectedMode = region.interpolationHint == 2 ? 10 : region.interpolationHint == 3 ? 11 : 9;
    else if (params.bitsPerPixel == 4)
        region.selectedMode =
            modes[region.hasTransparent && (params.isGeneration2 || params.punchThrough) ? 1 : 0];
    else
    {
        // Ends the process: 1 bit a pixel has no modes; no entry passes it.
        std::fprintf(stderr, "Exiting - 1bpp not yet implemented (SetUpStandardRepStarts)!\n");
        std::abort();
    }
}

} // namespace

int ConstructListOfNeededModes(unsigned int format, unsigned int bitsPerPixel, unsigned int isGeneration2,
                               unsigned int interpolationHint, uint8_t* list)
{
    int count = 0;
    if (bitsPerPixel == 4)
    {
        if (!isGeneration2)
            for (uint8_t mode : {0, 1})
                list[count++] = mode;
        else if (format < 3)
            for (uint8_t mode : {4, 5, 6, 7})
                list[count++] = mode;
        else if (format == 3)
            for (uint8_t mode = 0; mode < 8; ++mode)
                list[count++] = mode;
        else
            for (uint8_t mode : {0, 1, 2, 3})
                list[count++] = mode;
        return count;
    }
    if (bitsPerPixel == 2)
    {
        // Each half: the one-bit mode, then the interpolated ones the hint allows.
        for (uint8_t base : {8, 12})
        {
            if (base == 12 && !isGeneration2)
                break;
            list[count++] = base;
            if (interpolationHint == 0)
                for (uint8_t mode = base + 1; mode <= base + 3; ++mode)
                    list[count++] = mode;
            else
                list[count++] = uint8_t(base + std::min(interpolationHint, 3u));
        }
        return count;
    }
    // Ends the process: 1 bit a pixel has no modes; no entry passes it.
    std::fprintf(stderr, "Exiting! 1bpp not yet implemented (OptimiseRegion)\n");
    std::abort();
}

void NeighbourMeanColours(RegionStats* const* rows, const CompressParams& params, uint32_t row, uint32_t column,
                          unsigned char (*means)[4])
{
    const uint32_t high = params.blocksHigh, wide = params.blocksWide;
    for (int dy = 0; dy < 3; ++dy)
        for (int dx = 0; dx < 3; ++dx)
        {
            const uint32_t y = Neighbour(row, dy - 1, high), x = Neighbour(column, dx - 1, wide);
            std::copy_n(rows[y][x].AllBox.meanColour, 4, means[3 * dy + dx]);
        }
}

void LowFrequencyWindow(const unsigned char (*means)[4], const CompressParams& params, float* out)
{
    const int bw = params.blockWidth, bh = params.blockHeight;
    auto blend = [](float a, float b, float f) { return a + (b - a) * f; };
#if ORBT_X86_SIMD
    if (!OptimiserReference())
    {
        // The four channels of a pixel at once, each with the same float steps.
        __m128 colours[9];
        for (int p = 0; p < 9; ++p)
            colours[p] = _mm_setr_ps(means[p][0], means[p][1], means[p][2], means[p][3]);
        auto lerp = [](__m128 a, __m128 b, __m128 f) { return _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), f)); };
        for (int v = 0; v < params.windowHeight; ++v)
        {
            const int top = v < bh ? 0 : 1;
            const __m128 fy = _mm_set1_ps(float(v - top * bh) / float(bh));
            for (int u = 0; u < params.windowWidth; ++u, out += 4)
            {
                const int left = u < bw ? 0 : 1;
                const __m128 fx = _mm_set1_ps(float(u - left * bw) / float(bw));
                const int p = 3 * top + left;
                const __m128 upper = lerp(colours[p], colours[p + 1], fx);
                _mm_storeu_ps(out, lerp(upper, lerp(colours[p + 3], colours[p + 4], fx), fy));
            }
        }
        return;
    }
#endif
    for (int v = 0; v < params.windowHeight; ++v)
    {
        const int top = v < bh ? 0 : 1;
        const float fy = float(v - top * bh) / float(bh);
        for (int u = 0; u < params.windowWidth; ++u)
        {
            const int left = u < bw ? 0 : 1;
            const float fx = float(u - left * bw) / float(bw);
            const unsigned char *a = means[3 * top + left], *b = means[3 * top + left + 1];
            const unsigned char *c = means[3 * (top + 1) + left], *d = means[3 * (top + 1) + left + 1];
            for (int k = 0; k < 4; ++k)
                *out++ = blend(blend(a[k], b[k], fx), blend(c[k], d[k], fx), fy);
        }
    }
}

int PaletteRepCandidates(const unsigned char (*entries)[4], int count, uint32_t x, uint32_t y,
                         RepCandidate* candidates)
{
    if (count <= 0)
        return 0;
    if (count == 1)
    {
        float colour[4];
        ConvertIntPixelToFloat(entries[0], colour);
        MapToRepresentableColours(true, colour, colour, candidates[0].repA, candidates[0].repB);
        return 1;
    }
    int found = 0;
    for (int sum = 1; sum <= 2 * count - 3 && found < 4; ++sum)
        for (int i = std::max(0, sum - (count - 1)); 2 * i < sum && found < 4; ++i)
        {
            const unsigned char *p = entries[i], *q = entries[sum - i];
            unsigned char forwardA[4], forwardB[4], reversedA[4], reversedB[4];
            MapToRepresentableColoursInt(true, p, q, forwardA, forwardB);
            MapToRepresentableColoursInt(true, q, p, reversedA, reversedB);
            int d1 = SQColDist(p, forwardA) + SQColDist(q, forwardB);
            int d2 = SQColDist(q, reversedA) + SQColDist(p, reversedB);
            if (d1 == d2)
            {
                d1 = 1;
                d2 = int((x ^ y) & 1);
            }
            RepCandidate& candidate = candidates[found++];
            std::copy_n(d2 < d1 ? reversedA : forwardA, 4, candidate.repA);
            std::copy_n(d2 < d1 ? reversedB : forwardB, 4, candidate.repB);
        }
    // Too few pairs: the ones found again, turned round.
    for (int source = 0; found < 4; ++source, ++found)
        MapToRepresentableColoursInt(true, candidates[source].repB, candidates[source].repA, candidates[found].repA,
                                     candidates[found].repB);
    return found;
}

void* RunAGenerateStatsSetThread(void* argument)
{
    const ThreadArgPair& pair = *static_cast<const ThreadArgPair*>(argument);
    const StatsThreadArgs& args = *static_cast<const StatsThreadArgs*>(pair.shared);
    const CompressParams& params = *args.params;
    if (args.threadCount == 0)
        return nullptr;
    uint32_t first, end;
    StatsRows(pair.index, args.threadCount, params.blocksHigh, first, end);

    const int pixelCount = params.windowWidth * params.windowHeight;
    StatsWork work{args, params, pixelCount, InitPixelWindow(pixelCount), nullptr, nullptr, nullptr, nullptr, nullptr};
    work.centralBoxRead = CentralBoxRead(args);
    work.labels.reset(new (std::nothrow) unsigned char[pixelCount]);
    work.order.reset(new (std::nothrow) unsigned char[pixelCount]);
    if (args.phase == 1)
    {
        work.lowFrequency.reset(new (std::nothrow) float[size_t(pixelCount) * 4]);
        work.residuals.reset(new (std::nothrow) float[size_t(pixelCount) * 4]);
    }
    if (!work.labels || !work.order || (args.phase == 1 && (!work.lowFrequency || !work.residuals)))
    {
        std::fprintf(stderr, "PANIC!. Failed memory allocation in RunAGenerateStatsSetThread\n");
        return nullptr;
    }
    if (args.phase == 1)
    {
        const int interiorCount = std::max(params.windowWidth - 2, 0) * std::max(params.windowHeight - 2, 0);
        work.interior.reset(new (std::nothrow) InteriorPixel[std::max(interiorCount, 1)]);
        if (!work.interior)
        {
            // Ends the process: the residual list is this codec's out-of-memory exit.
            std::fprintf(stderr, "Panic: Out of memory!\n");
            std::exit(1);
        }
    }

    const auto statsRow = [&](uint32_t y) {
        for (uint32_t x = 0; x < params.blocksWide; ++x)
        {
            GatherWindowPixels(*args.image, params, y, x, work.window.get());
            if (args.phase == 0)
                GenerateRawStats(work, args.RegRow[y][x]);
            else
                GenerateResidualStats(work, args.RegRow, y, x);
        }
    };
    if (args.nextRow)
        for (uint32_t y; !StopAsked(args.cancel) &&
                         (y = args.nextRow->fetch_add(1, std::memory_order_relaxed)) < params.blocksHigh;)
            statsRow(y);
    else
        for (uint32_t y = first; y < end && !StopAsked(args.cancel); ++y)
            statsRow(y);
    return nullptr;
}

} // namespace orbtexture
