// The region optimiser's evaluation against the decoder, its sorting and
// mixing helpers, and the rules of a visit.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCFormat.h"
#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"

using namespace orbtexture;

namespace
{

// An image of the optimiser's kind over a pixel vector of the test's.
struct TestImage
{
    std::vector<unsigned char> pixels;
    std::unique_ptr<ImageBuffer> image{new ImageBuffer{}};
    TestImage(int width, int height) : pixels(size_t(width) * height * 4)
    {
        image->width = width;
        image->height = height;
        for (int y = 0; y < height; ++y)
            image->rows[y] = pixels.data() + size_t(y) * width * 4;
    }
};

// A grid of block records with one candidate each in a single slot.
struct TestGrid
{
    CompressParams params;
    std::vector<std::vector<RegionStats>> storage;
    std::vector<RegionStats*> rows;
    TestGrid(int bitsPerPixel, uint32_t wide, uint32_t high, bool generation2 = false)
    {
        params.bitsPerPixel = uint8_t(bitsPerPixel);
        params.blockWidth = bitsPerPixel == 2 ? 8 : 4;
        params.blockHeight = 4;
        params.windowWidth = uint8_t(2 * params.blockWidth + 1);
        params.windowHeight = 9;
        params.format = 4;
        params.isGeneration2 = generation2;
        params.blocksWide = wide;
        params.blocksHigh = high;
        storage.assign(high, std::vector<RegionStats>(wide));
        for (auto& row : storage)
        {
            std::memset(static_cast<void*>(row.data()), 0, row.size() * sizeof(RegionStats));
            rows.push_back(row.data());
        }
    }
    RegionStats& at(uint32_t x, uint32_t y) { return storage[y][x]; }
    void set(uint32_t x, uint32_t y, uint32_t mode, const unsigned char* a, const unsigned char* b)
    {
        RegionStats& r = at(x, y);
        r.selectedMode = mode;
        r.modeSlots[0].mode = uint8_t(mode);
        r.modeSlots[0].candidateCount = 1;
        MapToRepresentableColoursInt(params.isGeneration2, a, b, r.modeSlots[0].candidates[0].repA,
                                     r.modeSlots[0].candidates[0].repB);
        r.modeSlots[0].candidates[0].totalError = kFreshCandidateError;
        r.modeSlots[0].candidates[0].centralError = kFreshCandidateError;
    }
};

struct ReleaseWork
{
    void operator()(OptimiseWork* work) const
    {
        ReleaseOptimiseWork(*work);
        delete work;
    }
};

std::unique_ptr<OptimiseWork, ReleaseWork> MakeWork(const CompressParams& params)
{
    std::unique_ptr<OptimiseWork, ReleaseWork> work(new OptimiseWork);
    EXPECT_EQ(InitOptimiseWork(*work, params), 1);
    return work;
}

// Packs every block of the grid and decodes the words with the format's
// decoder (row order for grids that are no power of two).
std::vector<unsigned char> PackAndDecode(TestGrid& grid, const TestImage& image, OptimiseWork& work)
{
    const CompressParams& p = grid.params;
    std::vector<unsigned char> words(size_t(p.blocksWide) * p.blocksHigh * 8);
    for (uint32_t y = 0; y < p.blocksHigh; ++y)
        for (uint32_t x = 0; x < p.blocksWide; ++x)
        {
            uint32_t word[2];
            PackLocalBlock(*image.image, p, y, x, work, grid.rows.data(), word);
            const bool rowOrder = !ValIsPOW2(p.blocksWide) || !ValIsPOW2(p.blocksHigh);
            unsigned char* out = &words[8 * TwiddleUV(p.blocksHigh, p.blocksWide, y, x, rowOrder)];
            std::memcpy(out, &word[0], 4);
            std::memcpy(out + 4, &word[1], 4);
        }
    std::vector<unsigned char> decoded(image.pixels.size());
    ORBTDecompressORBTC(words.data(), p.bitsPerPixel == 2 ? 1 : 0, image.image->width, image.image->height,
                        decoded.data());
    return decoded;
}

// Every pixel of every block decodes to what the evaluation says: the
// residual it leaves for the fit is the source less the decoder's pixel, and
// its central error is the decoder's error over the block.
void ExpectEvaluationMatchesDecoder(int bitsPerPixel, uint32_t wide, uint32_t high, const std::vector<uint32_t>& modes,
                                    unsigned seed, bool translucent)
{
    TestGrid grid(bitsPerPixel, wide, high);
    const CompressParams& p = grid.params;
    TestImage image(int(wide * p.blockWidth), int(high * p.blockHeight));
    std::mt19937 random(seed);
    for (unsigned char& v : image.pixels)
        v = uint8_t(random());
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            unsigned char a[4], b[4];
            for (int c = 0; c < 4; ++c)
            {
                a[c] = uint8_t(random());
                b[c] = uint8_t(random());
            }
            if (!translucent || random() % 3 == 0)
                a[3] = b[3] = 255;
            grid.set(x, y, modes[random() % modes.size()], a, b);
        }
    auto work = MakeWork(p);
    const std::vector<unsigned char> decoded = PackAndDecode(grid, image, *work);
    int checked = 0;

    const int ww = p.windowWidth;
    for (uint32_t y = 0; y < high; ++y)
        for (uint32_t x = 0; x < wide; ++x)
        {
            uint32_t neighbourModes[9];
            NeighbourhoodReps reps;
            GatherNeighbourhood(p, y, x, grid.rows.data(), neighbourModes, reps);
            GatherWindowPixels(*image.image, p, y, x, work->window);
            CreateBlendingAndUpdateWeights(grid.at(x, y).selectedMode, neighbourModes, 0, p, *work);
            WindowErrors errors;
            if (bitsPerPixel == 4)
                EvalAllCandsAndGetErrors4BPP(*work, p, reps, false, errors);
            else
                EvalAllCandsAndGetErrors2BPP(*work, p, reps, false, errors);
            int64_t decoderError = 0;
            bool exactBlock = true;
            for (int v = p.blockHeight / 2; v < 3 * p.blockHeight / 2; ++v)
                for (int u = p.blockWidth / 2; u < 3 * p.blockWidth / 2; ++u)
                {
                    const int px = int(x * p.blockWidth) + u - p.blockWidth / 2;
                    const int py = int(y * p.blockHeight) + v - p.blockHeight / 2;
                    const unsigned char* source = &image.pixels[(size_t(py) * image.image->width + px) * 4];
                    const unsigned char* out = &decoded[(size_t(py) * image.image->width + px) * 4];
                    const float* residual = work->fitting.floatResiduals + 4 * (v * ww + u);
                    // A derived 2bpp pixel reads the modulation its neighbours
                    // chose; the evaluation can only assume the choices of the
                    // neighbouring blocks' pixels.
                    const int cls = work->records[v * ww + u].modulationClass;
                    auto own = [&](int uu, int vv) {
                        return uu >= p.blockWidth / 2 && uu < 3 * p.blockWidth / 2 && vv >= p.blockHeight / 2 &&
                               vv < 3 * p.blockHeight / 2;
                    };
                    if (((cls == 2 || cls == 3) && !(own(u - 1, v) && own(u + 1, v))) ||
                        ((cls == 2 || cls == 4) && !(own(u, v - 1) && own(u, v + 1))))
                    {
                        exactBlock = false;
                        continue;
                    }
                    ++checked;
                    for (int c = 0; c < 4; ++c)
                        ASSERT_EQ(float(source[c]) - residual[c], float(out[c]))
                            << "block " << x << "," << y << " pixel " << u << "," << v << " channel " << c;
                    decoderError += PixelError(source, out);
                }
            if (exactBlock)
            {
                EXPECT_EQ(errors.central, decoderError);
            }
        }
    EXPECT_GE(checked, int(wide * high * p.blockWidth * p.blockHeight) / 2);
}

} // namespace

TEST(RegionOptimiser, EvaluationAgreesWithTheDecoder)
{
    // Standard and punch-through 4bpp words, twiddled and row-ordered grids.
    ExpectEvaluationMatchesDecoder(4, 4, 4, {0, 1}, 1, false);
    ExpectEvaluationMatchesDecoder(4, 4, 4, {0, 1}, 2, true);
    ExpectEvaluationMatchesDecoder(4, 3, 5, {0, 1}, 3, true);
    // 2bpp: one bit a pixel, and the three interpolating sub-modes, mixed.
    ExpectEvaluationMatchesDecoder(2, 4, 4, {8, 9, 10, 11}, 4, false);
    ExpectEvaluationMatchesDecoder(2, 2, 4, {8, 9, 10, 11}, 5, true);
    ExpectEvaluationMatchesDecoder(2, 4, 2, {9}, 6, false);
}

TEST(RegionOptimiser, PunchThroughChoiceOnTransparentPixels)
{
    // A transparent pixel of a punch-through block with the option set takes
    // choice 2 at no cost; generation 1 keeps the mix's colour, generation 2
    // makes it black.
    for (bool generation2 : {false, true})
    {
        TestGrid grid(4, 1, 1, generation2);
        grid.params.punchThrough = 1;
        const unsigned char a[4] = {255, 0, 0, 255}, b[4] = {0, 0, 255, 255};
        grid.set(0, 0, 1, a, b);
        TestImage image(4, 4);
        std::fill(image.pixels.begin(), image.pixels.end(), 0);
        auto work = MakeWork(grid.params);
        uint32_t modes[9];
        NeighbourhoodReps reps;
        GatherNeighbourhood(grid.params, 0, 0, grid.rows.data(), modes, reps);
        GatherWindowPixels(*image.image, grid.params, 0, 0, work->window);
        CreateBlendingAndUpdateWeights(1, modes, 0, grid.params, *work);
        WindowErrors errors;
        EvalAllCandsAndGetErrors4BPP(*work, grid.params, reps, true, errors);
        EXPECT_EQ(errors.total, 0);
        EXPECT_EQ(errors.outer, 0);
        const int centre = 4 * 9 + 4;
        EXPECT_EQ(work->chosen[centre], 2);
        unsigned char colours[4][4];
        SynthesisePixelColourChoices(work->records[centre], reps, colours);
        EXPECT_EQ(colours[2][3], 0);
        if (generation2)
            EXPECT_EQ(colours[2][0] | colours[2][2], 0);
        else
        {
            EXPECT_EQ(colours[2][0], 127); // (4 x 255 + 4 x 0) / 8
            EXPECT_EQ(colours[2][2], 127);
        }
        EXPECT_EQ(work->records[centre].gains[2], 1);
    }
}

TEST(RegionOptimiser, DerivedModulationAtTheWindowEdge)
{
    // A 3 x 3 grid of values; missing neighbours count the present one twice.
    const uint8_t values[9] = {0, 8, 0, 3, 0, 5, 0, 8, 0};
    EXPECT_EQ(ComputeInterpolatedModVal(2, 1, 1, values, 3, 3), (8 + 8 + 3 + 5 + 2) >> 2);
    EXPECT_EQ(ComputeInterpolatedModVal(3, 1, 1, values, 3, 3), (3 + 5 + 1) >> 1);
    EXPECT_EQ(ComputeInterpolatedModVal(4, 1, 1, values, 3, 3), 8);
    EXPECT_EQ(ComputeInterpolatedModVal(4, 0, 1, values, 3, 3), 0);  // only the lower neighbour
    EXPECT_EQ(ComputeInterpolatedModVal(3, 1, 0, values, 3, 3), 0);  // only the right one, twice
    EXPECT_EQ(ComputeInterpolatedModVal(2, 0, 0, values, 3, 3), (8 + 8 + 3 + 3 + 2) >> 2);
}

TEST(RegionOptimiser, SortIsStableAndOrdersByTotalThenCentral)
{
    std::mt19937 random(7);
    std::vector<RepCandidate> items(37);
    for (size_t i = 0; i < items.size(); ++i)
    {
        items[i] = RepCandidate{};
        items[i].totalError = random() % 4;
        items[i].centralError = random() % 3;
        items[i].hardVariant = uint32_t(i); // the original place
    }
    std::vector<RepCandidate> expected = items, scratch(items.size());
    std::stable_sort(expected.begin(), expected.end(),
                     [](const RepCandidate& a, const RepCandidate& b) { return CompareCandidates(&a, &b) < 0; });
    orbmergesort(items.data(), scratch.data(), items.size(), sizeof(RepCandidate), CompareCandidates);
    for (size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(items[i].hardVariant, expected[i].hardVariant) << i;
}

TEST(RegionOptimiser, MixClampsOnlyOutsideTheSegment)
{
    const float a[4] = {-10.0f, 100.0f, 250.0f, 0.0f}, b[4] = {20.0f, 200.0f, 300.0f, 255.0f};
    float out[4];
    MixPixelF(out, 0.5f, a, b);
    EXPECT_FLOAT_EQ(out[0], 5.0f);
    EXPECT_FLOAT_EQ(out[2], 275.0f); // inside 0 to 1: no clamp
    MixPixelF(out, 1.5f, a, b);
    EXPECT_FLOAT_EQ(out[0], 35.0f);
    EXPECT_FLOAT_EQ(out[1], 250.0f);
    EXPECT_FLOAT_EQ(out[2], 255.0f);
    MixPixelF(out, -0.5f, a, b);
    EXPECT_FLOAT_EQ(out[0], 0.0f);
    EXPECT_FLOAT_EQ(out[3], 0.0f);
}

TEST(RegionOptimiser, BlendingCellsReadTheirModesFromTheRightBlocks)
{
    // 2bpp: modulation classes follow the block holding the pixel; the
    // centre's own first pixels are one-bit pixels in every mode.
    TestGrid grid(2, 3, 3);
    uint32_t modes[9] = {8, 9, 10, 11, 9, 11, 8, 11, 9};
    PixelBlendRecord records[kMaxWindowPixels];
    CreateBlendingAndUpdateWeights(10, modes, 0, grid.params, records);
    auto at = [&](int x, int y) -> const PixelBlendRecord& { return records[y * 17 + x]; };
    EXPECT_EQ(at(4, 2).modulationClass, 1);  // the centre's first pixel
    EXPECT_EQ(at(8, 4).modulationClass, 1);  // its (4, 2), one-axis mode 10
    EXPECT_EQ(at(5, 2).modulationClass, 3);  // horizontal, mode 10
    EXPECT_EQ(at(1, 0).modulationClass, 1);  // upper-left block, mode 8: one bit everywhere
    EXPECT_EQ(at(13, 2).modulationClass, 4); // right block, mode 11
    EXPECT_EQ(at(0, 4).modulationClass, 1);  // the left block's (4, 2), mode 11
    EXPECT_EQ(at(2, 4).modulationClass, 0);  // a two-bit pixel of the left block
    // Central weights: full on the block's own first pixel, none on the ring.
    EXPECT_EQ(at(8, 4).centralWeights[0], 64);
    EXPECT_EQ(at(0, 0).centralWeights[0], 0);
    EXPECT_EQ(at(4, 2).locality, 1);
    EXPECT_EQ(at(3, 2).locality, 2);
    EXPECT_EQ(at(16, 8).locality, 0);
}

namespace
{

// Statistics of a flat image of 'colour', ready for visits with the first
// pass's parameters.
struct FlatVisit
{
    TestGrid grid;
    TestImage image;
    std::vector<float> weights = WindowFilterWeights(grid.params.blockWidth, grid.params.blockHeight);
    std::vector<unsigned char> central = CentralFlags(grid.params.blockWidth, grid.params.blockHeight);
    FlatVisit(int bitsPerPixel, uint32_t wide, uint32_t high, const unsigned char* colour)
        : grid(bitsPerPixel, wide, high), image(int(wide * grid.params.blockWidth), int(high * 4))
    {
        for (size_t i = 0; i < image.pixels.size(); ++i)
            image.pixels[i] = colour[i % 4];
        CompressParams& p = grid.params;
        for (int phase = 0; phase < 2; ++phase)
        {
            const StatsThreadArgs args{image.image.get(), &p, phase, central.data(), weights.data(),
                                       weights.data(), grid.rows.data(), 1};
            ThreadArgPair pair{&args, 0};
            RunAGenerateStatsSetThread(&pair);
        }
        p.numIterations = 1;
        p.numCandidates = 4;
        p.numVariants = 8;
        p.clampToBox = 1;
        p.forceAllRegions = 1;
        p.hardVariantStep = 4;
    }
    void Visit(uint32_t x, uint32_t y, uint32_t stamp)
    {
        auto work = MakeWork(grid.params);
        OptimiseRegion(*image.image, grid.params, y, x, *work, stamp, grid.rows.data());
    }
};

} // namespace

TEST(RegionOptimiser, FlatBlocksVisitTwoSlotsAndMarkTheirChange)
{
    // 2bpp lists four modes, but a flat block refines only its first two
    // slots; with one iteration a visit always counts as a change.
    const unsigned char grey[4] = {90, 120, 200, 255};
    FlatVisit visit(2, 2, 2, grey);
    RegionStats& region = visit.grid.at(1, 0);
    ASSERT_EQ(region.flatRegion, 1u);
    const ModeSlot before2 = region.modeSlots[2], before3 = region.modeSlots[3];
    visit.Visit(1, 0, 9);
    EXPECT_EQ(std::memcmp(&before2, &region.modeSlots[2], sizeof(ModeSlot)), 0);
    EXPECT_EQ(std::memcmp(&before3, &region.modeSlots[3], sizeof(ModeSlot)), 0);
    EXPECT_LT(region.modeSlots[0].candidates[0].totalError, kFreshCandidateError);
    EXPECT_LT(region.modeSlots[1].candidates[0].totalError, kFreshCandidateError);
    EXPECT_EQ(region.lastVisitedStamp, 9u);
    EXPECT_EQ(region.lastChangedStamp, 9u);

    // Unforced, a block whose neighbours did not change since its visit is
    // skipped.
    visit.grid.params.forceAllRegions = 0;
    for (uint32_t x = 0; x < 2; ++x)
        for (uint32_t y = 0; y < 2; ++y)
            visit.grid.at(x, y).lastChangedStamp = 3;
    visit.Visit(1, 0, 13);
    EXPECT_EQ(region.lastVisitedStamp, 9u);
}

TEST(RegionOptimiser, EqualErrorsKeepTheSelectedMode)
{
    // White is exact in both 4bpp modes (error 0 each): the visit keeps
    // whichever mode the block had.
    const unsigned char white[4] = {255, 255, 255, 255};
    for (uint32_t selected : {0u, 1u})
    {
        FlatVisit visit(4, 2, 2, white);
        RegionStats& region = visit.grid.at(0, 1);
        region.selectedMode = selected;
        visit.Visit(0, 1, 5);
        EXPECT_EQ(region.modeSlots[0].candidates[0].totalError, 0);
        EXPECT_EQ(region.modeSlots[1].candidates[0].totalError, 0);
        EXPECT_EQ(region.selectedMode, selected);
    }
}
