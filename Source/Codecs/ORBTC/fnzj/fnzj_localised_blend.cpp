// How window pixels decode under a neighbourhood of modes, and the
// evaluation of one set of representatives over a block's window.

#include "Codecs/ORBTC/fnzj/fnzj_localised_region.h"

#include "Codecs/ORBTC/ORBTCLocalPalette.h"

#include "Codecs/ORBTC/fnzj/fnzj_window_lanes.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Tools/ORBTSimd.h"

#include <emmintrin.h>
#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace orbtexture
{

namespace
{

constexpr uint8_t LinWeights4xU8[9] = {0, 2, 4, 6, 0, 2, 4, 6, 8};
constexpr uint8_t LinWeights8xU8[17] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr uint8_t HemWeights4xU8[9] = {0, 0, 8, 8, 0, 0, 8, 8, 8};
constexpr uint8_t HemWeights8xU8[17] = {0, 0, 0, 0, 8, 8, 8, 8, 0, 0, 0, 0, 8, 8, 8, 8, 8};

// The better of a pixel's four errors: of choices 1 and 2 (2 on a tie), of
// 0 and 3 (0 on a tie), and of those the first pair's on a tie.
template <typename Error>
inline int BestOfFour(const Error* e)
{
    // Selects rather than branches: the choices follow no pattern.
    const bool second = e[2] <= e[1], first = e[0] <= e[3];
    const Error middleError = second ? e[2] : e[1], endError = first ? e[0] : e[3];
    const int middle = 1 + int(second), ends = 3 - 3 * int(first);
    return middleError <= endError ? middle : ends;
}

inline void StoreFitting(PackedFittingParams& fitting, const PixelBlendRecord& record, int index, int choice,
                         int modulation, const unsigned char* pixel, const unsigned char* colour)
{
    fitting.centralWeights[index] = record.centralWeights[choice];
    fitting.modulations[index] = modulation;
    fitting.gains[index] = float(record.gains[choice]);
    uint32_t p, q;
    std::memcpy(&p, pixel, 4);
    std::memcpy(&q, colour, 4);
    const __m128i zero = _mm_setzero_si128();
    const __m128i p32 = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(int(p)), zero), zero);
    const __m128i q32 = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(int(q)), zero), zero);
    _mm_storeu_ps(fitting.floatResiduals + 4 * index, _mm_cvtepi32_ps(_mm_sub_epi32(p32, q32)));
}

// A derived 2bpp pixel's colour: the ends mixed by its modulation.
inline void MixEnds(const unsigned char (*colours)[4], int modulation, unsigned char* out)
{
    for (int c = 0; c < 4; ++c)
        out[c] = uint8_t((colours[0][c] * (8 - modulation) + colours[3][c] * modulation) >> 3);
}

// The quadrant's four blocks in the neighbourhood.
inline void QuadrantBlocks(int quadrant, int* blocks)
{
    blocks[0] = (quadrant >> 1) * 3 + (quadrant & 1);
    blocks[1] = blocks[0] + 1;
    blocks[2] = blocks[0] + 3;
    blocks[3] = blocks[0] + 4;
}

// The mixes of the two ends, c1 and c2.
inline void MixChoices(const PixelBlendRecord& record, unsigned char (*colours)[4])
{
    for (int c = 0; c < 4; ++c)
    {
        colours[1][c] = uint8_t((record.choiceWeights[0] * colours[0][c] + record.choiceWeights[1] * colours[3][c]) >> 3);
        colours[2][c] = uint8_t(((record.choiceWeights[2] * colours[0][c] + record.choiceWeights[3] * colours[3][c]) >> 3) &
                                (record.choice2Mask >> (8 * c)));
    }
}

inline uint8_t Expand(int sum, int channel)
{
    const int t = sum >> 6;
    return uint8_t(channel < 3 ? t + (t >> 5) : t + (t >> 4));
}

constexpr int kChannelMask[4] = {0xF8, 0xF8, 0xF8, 0xF0};

// The four choices of a cached pixel in 16-bit lanes, c0 and c1 in 'low',
// c2 and c3 in 'high', from the fixed sums plus the block's own masked pair
// ('selfAB', A then B).
inline void SynthesiseLanes(const BlendCache::Lanes& lanes, int selfWeight, __m128i selfAB, __m128i& low,
                            __m128i& high)
{
    static const __m128i colourLanes = _mm_setr_epi16(-1, -1, -1, 0, -1, -1, -1, 0);
    const __m128i sums = _mm_add_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(lanes.fixedAB)),
                                       _mm_mullo_epi16(_mm_set1_epi16(int16_t(selfWeight)), selfAB));
    const __m128i t = _mm_srli_epi16(sums, 6);
    // Colour channels add t >> 5, alpha t >> 4.
    const __m128i ends = _mm_add_epi16(t, _mm_or_si128(_mm_and_si128(_mm_srli_epi16(t, 5), colourLanes),
                                                       _mm_andnot_si128(colourLanes, _mm_srli_epi16(t, 4))));
    const __m128i swapped = _mm_shuffle_epi32(ends, _MM_SHUFFLE(1, 0, 3, 2));
    // c1 = (w0 c0 + w1 c3) >> 3 in the low half, c2 = (w3 c3 + w2 c0) >> 3 in the high.
    const __m128i mixes = _mm_and_si128(
        _mm_srli_epi16(
            _mm_add_epi16(_mm_mullo_epi16(ends, _mm_load_si128(reinterpret_cast<const __m128i*>(lanes.weightsOnEnds))),
                          _mm_mullo_epi16(swapped,
                                          _mm_load_si128(reinterpret_cast<const __m128i*>(lanes.weightsOnSwapped)))),
            3),
        _mm_load_si128(reinterpret_cast<const __m128i*>(lanes.mixMask)));
    low = _mm_unpacklo_epi64(ends, mixes);
    high = _mm_unpackhi_epi64(mixes, ends);
}

// The squared errors of two choices in 16-bit lanes against a pixel
// ('pixel' its channels twice, 'alphaWeight' 1, 1, 1, w twice), as the
// 32-bit lanes e0, e0, e1, e1. An error is at most 3 x 255^2 + (30 x 255)^2.
inline __m128i MeasureLanes(__m128i choices, __m128i pixel, __m128i alphaWeight)
{
    const __m128i d = _mm_mullo_epi16(_mm_sub_epi16(choices, pixel), alphaWeight);
    const __m128i halves = _mm_madd_epi16(d, d);
    return _mm_add_epi32(halves, _mm_shuffle_epi32(halves, _MM_SHUFFLE(2, 3, 0, 1)));
}

// The choices of pixel i and their errors: through the cache when it holds
// the pixel, else by SynthesisePixelColourChoices.
inline void SynthesiseAndMeasure(const OptimiseWork& work, int i, const NeighbourhoodReps& reps, __m128i selfAB,
                                 unsigned char (*colours)[4], int32_t* errors)
{
    const PixelBlendRecord& record = work.records[i];
    const unsigned char* pixel = work.window + 4 * i;
    if (!work.cache.valid || record.palettePixel)
    {
        SynthesisePixelColourChoices(record, reps, colours);
        for (int k = 0; k < 4; ++k)
            errors[k] = int32_t(PixelError(pixel, colours[k]));
        return;
    }
    __m128i low, high;
    SynthesiseLanes(work.cache.lanes[i], work.cache.selfWeight[i], selfAB, low, high);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(colours), _mm_packus_epi16(low, high));
    uint32_t packed;
    std::memcpy(&packed, pixel, 4);
    const __m128i p8 = _mm_cvtsi32_si128(int(packed));
    const __m128i p16 = _mm_unpacklo_epi8(p8, _mm_setzero_si128());
    const __m128i pixelLanes = _mm_unpacklo_epi64(p16, p16);
    const int16_t w = pixel[3] == 0 || pixel[3] == 255 ? 30 : 1;
    const __m128i alphaWeight = _mm_setr_epi16(1, 1, 1, w, 1, 1, 1, w);
    const __m128 e01 = _mm_castsi128_ps(MeasureLanes(low, pixelLanes, alphaWeight));
    const __m128 e23 = _mm_castsi128_ps(MeasureLanes(high, pixelLanes, alphaWeight));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(errors),
                     _mm_castps_si128(_mm_shuffle_ps(e01, e23, _MM_SHUFFLE(2, 0, 2, 0))));
}

// Pixel i takes its best choice alone (a transparent pixel the punch-through
// choice at no cost): the choice, its fitting data and its error by locality.
inline void ChooseAlone(OptimiseWork& work, int i, const NeighbourhoodReps& reps, __m128i selfAB,
                        unsigned char (*colours)[4], int32_t* e, int64_t* sums)
{
    const PixelBlendRecord& record = work.records[i];
    SynthesiseAndMeasure(work, i, reps, selfAB, colours, e);
    const unsigned char* pixel = work.window + 4 * i;
    const bool transparent = record.punchThroughFlag && colours[2][3] == 0 && pixel[3] == 0;
    const int choice = transparent ? 2 : BestOfFour(e);
    work.chosen[i] = uint8_t(choice);
    if (work.storeFitting)
        StoreFitting(work.fitting, record, i, choice, record.modulationValues[choice], pixel, colours[choice]);
    sums[record.locality] += transparent ? 0 : e[choice];
}

// The block's own pair, masked, in 16-bit lanes.
inline __m128i SelfPairLanes(const NeighbourhoodReps& reps)
{
    const unsigned char* a = reps.reps[4][0];
    const unsigned char* b = reps.reps[4][1];
    return _mm_setr_epi16(int16_t(a[0] & 0xF8), int16_t(a[1] & 0xF8), int16_t(a[2] & 0xF8), int16_t(a[3] & 0xF0),
                          int16_t(b[0] & 0xF8), int16_t(b[1] & 0xF8), int16_t(b[2] & 0xF8), int16_t(b[3] & 0xF0));
}

// Palette pixels of a 4bpp window: for each pixel and choice (in code
// order) the colour it shows as an index into the quadrant's eight colours
// (2 x block + colour, blocks in the order P, Q, R, S), and which choices are
// the block's own A and B (255 for none).
struct PaletteTables
{
    uint8_t selection[81][4];
    uint8_t centralOptions[81][2];
};

const PaletteTables& PaletteModeTables()
{
    static const PaletteTables tables = [] {
        PaletteTables t{};
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x)
            {
                const int i = y * 9 + x, place = (y & 3) * 4 + (x & 3);
                const int quadrant = (y >= 4 ? 2 : 0) + (x >= 4 ? 1 : 0);
                const int own = 3 - quadrant; // the block itself within its quadrant
                t.centralOptions[i][0] = t.centralOptions[i][1] = 255;
                for (int code = 0; code < 4; ++code)
                {
                    const uint32_t entry = LocalPaletteMap[place * 4 + code];
                    if (entry == kLocalPaletteMarker)
                        continue;
                    const int block = LocalPaletteBlock(entry), colour = LocalPaletteColour(entry);
                    t.selection[i][code] = uint8_t(2 * block + colour);
                    if (block == own)
                        t.centralOptions[i][colour] = uint8_t(code);
                }
            }
        return t;
    }();
    return tables;
}

} // namespace

const uint8_t (&PaletteModeSelection())[81][4]
{
    return PaletteModeTables().selection;
}

const uint8_t (&PaletteModeCentralOptions())[81][2]
{
    return PaletteModeTables().centralOptions;
}

namespace
{

// PrepareBlendCache in 16-bit lanes: every sum fits (at most 64 x 248).
void PrepareBlendCacheLanes(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                            const bool* selfPositions)
{
    __m128i masked[9];
    for (int p = 0; p < 9; ++p)
    {
        const unsigned char* a = reps.reps[p][0];
        const unsigned char* b = reps.reps[p][1];
        masked[p] = _mm_and_si128(_mm_setr_epi16(a[0], a[1], a[2], a[3], b[0], b[1], b[2], b[3]),
                                  _mm_setr_epi16(0xF8, 0xF8, 0xF8, 0xF0, 0xF8, 0xF8, 0xF8, 0xF0));
    }
    const int count = params.windowWidth * params.windowHeight;
    for (int i = 0; i < count; ++i)
    {
        const PixelBlendRecord& record = work.records[i];
        BlendCache::Lanes& lanes = work.cache.lanes[i];
        int blocks[4];
        QuadrantBlocks(record.quadrant, blocks);
        int self = 0;
        __m128i sums = _mm_setzero_si128();
        for (int k = 0; k < 4; ++k)
        {
            if (selfPositions[blocks[k]])
                self += record.bilinear[k];
            else
                sums = _mm_add_epi16(sums, _mm_mullo_epi16(_mm_set1_epi16(record.bilinear[k]), masked[blocks[k]]));
        }
        const uint8_t* w = record.choiceWeights;
        const uint32_t mask = record.choice2Mask;
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes.fixedAB), sums);
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes.weightsOnEnds),
                        _mm_setr_epi16(w[0], w[0], w[0], w[0], w[3], w[3], w[3], w[3]));
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes.weightsOnSwapped),
                        _mm_setr_epi16(w[1], w[1], w[1], w[1], w[2], w[2], w[2], w[2]));
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes.mixMask),
                        _mm_setr_epi16(-1, -1, -1, -1, int16_t(mask & 0xFF), int16_t((mask >> 8) & 0xFF),
                                       int16_t((mask >> 16) & 0xFF), int16_t(mask >> 24)));
        work.cache.selfWeight[i] = int16_t(self);
    }
    work.cache.settledReady = false;
    work.cache.valid = true;
}

} // namespace

void PrepareBlendCache(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                       const bool* selfPositions)
{
    work.lanesReady = false;
    if (!OptimiserReference())
    {
        PrepareBlendCacheLanes(work, params, reps, selfPositions);
        return;
    }
    const int count = params.windowWidth * params.windowHeight;
    for (int i = 0; i < count; ++i)
    {
        const PixelBlendRecord& record = work.records[i];
        BlendCache::Lanes& lanes = work.cache.lanes[i];
        int blocks[4];
        QuadrantBlocks(record.quadrant, blocks);
        int self = 0;
        int sums[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        for (int k = 0; k < 4; ++k)
        {
            if (selfPositions[blocks[k]])
            {
                self += record.bilinear[k];
                continue;
            }
            for (int c = 0; c < 4; ++c)
            {
                sums[c] += record.bilinear[k] * (reps.reps[blocks[k]][0][c] & kChannelMask[c]);
                sums[4 + c] += record.bilinear[k] * (reps.reps[blocks[k]][1][c] & kChannelMask[c]);
            }
        }
        for (int c = 0; c < 4; ++c)
        {
            lanes.fixedAB[c] = int16_t(sums[c]);
            lanes.fixedAB[4 + c] = int16_t(sums[4 + c]);
            lanes.weightsOnEnds[c] = record.choiceWeights[0];
            lanes.weightsOnEnds[4 + c] = record.choiceWeights[3];
            lanes.weightsOnSwapped[c] = record.choiceWeights[1];
            lanes.weightsOnSwapped[4 + c] = record.choiceWeights[2];
            lanes.mixMask[c] = -1;
            lanes.mixMask[4 + c] = int16_t((record.choice2Mask >> (8 * c)) & 0xFF);
        }
        work.cache.selfWeight[i] = int16_t(self);
    }
    work.cache.settledReady = false;
    work.cache.valid = true;
}

void PrepareWindowLanes(OptimiseWork& work, const CompressParams& params)
{
    const int count = params.windowWidth * params.windowHeight;
    for (int i = 0; i < count; ++i)
    {
        const unsigned char* pixel = work.window + 4 * i;
        for (int c = 0; c < 4; ++c)
            work.channels.pixel[c][i] = pixel[c];
        work.channels.alphaWeight[i] = pixel[3] == 0 || pixel[3] == 255 ? 30 : 1;
        work.channels.transparent[i] = pixel[3] == 0 ? -1 : 0;
    }
    ++work.channels.stamp;
    work.cache.pixelsReady = false;
}

namespace
{

// The window's part of the cache, BlendCache::pixels, when a visit first
// wants it.
void PreparePixelLanes(OptimiseWork& work, const CompressParams& params)
{
    const int count = params.windowWidth * params.windowHeight;
    for (int i = 0; i < count; ++i)
        for (int c = 0; c < 8; ++c)
        {
            work.cache.pixels[i].channels[c] = work.channels.pixel[c & 3][i];
            work.cache.pixels[i].errorWeights[c] = (c & 3) == 3 ? work.channels.alphaWeight[i] : 1;
        }
    work.cache.pixelsReady = true;
}

} // namespace

void CreateBlendingAndUpdateWeights(uint32_t centreMode, const uint32_t* neighbourModes, uint32_t hardVariantMask,
                                    const CompressParams& params, PixelBlendRecord* records)
{
    const bool fourBpp = params.bitsPerPixel == 4;
    const uint32_t hardBit = fourBpp ? 2 : 4, modulationBits = fourBpp ? 5 : 3;
    uint32_t modes[9];
    std::memcpy(modes, neighbourModes, sizeof(modes));
    modes[4] = centreMode;
    if (hardVariantMask & 1)
        modes[0] ^= hardBit;
    if (hardVariantMask & 2)
        modes[1] ^= hardBit;
    if (hardVariantMask & 4)
        modes[3] ^= hardBit;

    const int bw = params.blockWidth, bh = params.blockHeight;
    const int width = params.windowWidth, height = params.windowHeight;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            PixelBlendRecord& record = records[y * width + x];
            // The cell's hard flag comes from its upper-left block, the way
            // its modulation reads from its lower-right one.
            const int cellColumn = x / (bw / 2), cellRow = y / 2;
            const uint32_t hardFrom = modes[(cellRow / 2) * 3 + cellColumn / 2];
            const uint32_t modulationFrom = modes[((cellRow + 1) / 2) * 3 + (cellColumn + 1) / 2];
            uint32_t mode = (hardFrom & hardBit) | (modulationFrom & modulationBits);
            if (!fourBpp)
                mode += 8;
            const bool hard = fourBpp ? (mode & 3) == 2 : (mode & 4) != 0;

            const uint8_t* rowTable = hard ? HemWeights4xU8 : LinWeights4xU8;
            const uint8_t* columnTable = fourBpp ? rowTable : hard ? HemWeights8xU8 : LinWeights8xU8;
            const int f = rowTable[y], g = columnTable[x];

            record = PixelBlendRecord{};
            const bool outer = x == 0 || y == 0 || x == width - 1 || y == height - 1;
            const bool own = x >= bw / 2 && x < 3 * bw / 2 && y >= bh / 2 && y < 3 * bh / 2;
            record.locality = outer ? 0 : own ? 1 : 2;
            record.quadrant = uint8_t((y >= bh ? 2 : 0) + (x >= bw ? 1 : 0));
            record.bilinear[0] = uint8_t((8 - g) * (8 - f));
            record.bilinear[1] = uint8_t(g * (8 - f));
            record.bilinear[2] = uint8_t((8 - g) * f);
            record.bilinear[3] = uint8_t(g * f);
            const uint8_t central = uint8_t((x < bw ? g : 8 - g) * (y < bh ? f : 8 - f));
            for (int k = 0; k < 4; ++k)
            {
                record.centralWeights[k] = central;
                record.gains[k] = 128;
            }
            record.choiceWeights[0] = 5;
            record.choiceWeights[1] = 3;
            record.choiceWeights[2] = 3;
            record.choiceWeights[3] = 5;
            record.modulationValues[0] = 0;
            record.modulationValues[1] = 3;
            record.modulationValues[2] = 5;
            record.modulationValues[3] = 8;
            record.choice2Mask = 0xFFFFFFFFu;

            if (fourBpp && (mode & 3) == 3 && ((x | y) & 3) != 0)
            {
                // Local palette: the four choices are stored colours.
                const PaletteTables& palette = PaletteModeTables();
                record.palettePixel = 1;
                for (int k = 0; k < 4; ++k)
                {
                    record.bilinear[k] = palette.selection[y * width + x][k];
                    const bool isA = palette.centralOptions[y * width + x][0] == k;
                    const bool isB = palette.centralOptions[y * width + x][1] == k;
                    record.centralWeights[k] = isA || isB ? 64 : 0;
                    record.modulationValues[k] = isB ? 8 : 0;
                }
            }
            else if (fourBpp && (mode & 3) == 1)
            {
                // Punch-through: choice 2 is transparent, a mix with alpha 0
                // in generation 1 and black in generation 2.
                const bool generation2 = params.isGeneration2 != 0;
                record.choiceWeights[0] = record.choiceWeights[1] = 4;
                record.choiceWeights[2] = record.choiceWeights[3] = generation2 ? 0 : 4;
                record.modulationValues[1] = 4;
                record.modulationValues[2] = generation2 ? 0 : 4;
                record.choice2Mask = generation2 ? 0u : 0x00FFFFFFu;
                record.gains[2] = 1;
                record.transparentChoice = 1;
                record.punchThroughFlag = uint8_t(params.punchThrough);
            }
            else if (!fourBpp)
            {
                const uint32_t m = mode;
                if (m == 8 || m == 12)
                    record.modulationClass = 1;
                else if (((x ^ y) & 1) == 1)
                    record.modulationClass = m == 9 || m == 13 ? 2 : m == 10 || m == 14 ? 3 : 4;
                else
                {
                    const bool firstPixel = (x == 4 || x == 12) && (y == 2 || y == 6);
                    const bool oneAxis = m == 10 || m == 11 || m == 14 || m == 15;
                    const bool secondPixel = (x == 0 || x == 8 || x == 16) && (y == 0 || y == 4 || y == 8);
                    record.modulationClass = firstPixel || (oneAxis && secondPixel) ? 1 : 0;
                }
            }
        }
}

int SynthesisePixelColourChoices(const PixelBlendRecord& record, const NeighbourhoodReps& reps,
                                 unsigned char (*colours)[4])
{
    int blocks[4];
    QuadrantBlocks(record.quadrant, blocks);
    if (record.palettePixel)
    {
        for (int k = 0; k < 4; ++k)
        {
            const int index = record.bilinear[k];
            std::memcpy(colours[k], reps.reps[blocks[index / 2 % 4]][index & 1], 4);
        }
        return 1;
    }
    for (int c = 0; c < 4; ++c)
    {
        int sumA = 0, sumB = 0;
        for (int k = 0; k < 4; ++k)
        {
            sumA += record.bilinear[k] * (reps.reps[blocks[k]][0][c] & kChannelMask[c]);
            sumB += record.bilinear[k] * (reps.reps[blocks[k]][1][c] & kChannelMask[c]);
        }
        colours[0][c] = Expand(sumA, c);
        colours[3][c] = Expand(sumB, c);
    }
    MixChoices(record, colours);
    return 0;
}

int ComputeInterpolatedModVal(int modulationClass, int row, int column, const uint8_t* values, int width,
                              int height)
{
    auto at = [&](int y, int x) { return int(values[y * width + x]); };
    // At the window's edge the one neighbour present counts twice.
    const int left = column > 0 ? at(row, column - 1) : at(row, column + 1);
    const int right = column + 1 < width ? at(row, column + 1) : at(row, column - 1);
    const int up = row > 0 ? at(row - 1, column) : at(row + 1, column);
    const int down = row + 1 < height ? at(row + 1, column) : at(row - 1, column);
    int value;
    switch (modulationClass)
    {
    case 2: value = (left + right + up + down + 2) >> 2; break;
    case 3: value = (left + right + 1) >> 1; break;
    default: value = (up + down + 1) >> 1; break;
    }
    if (value > 8)
    {
        // Ends the process: a blend of values 0 to 8 cannot exceed 8.
        std::fprintf(stderr, "bad:%d\n", value);
        std::exit(1);
    }
    return value;
}

namespace
{

// The fast path's measured pixels: the four choices (RGBA bytes each) and
// their errors.
struct alignas(16) MeasuredPixel
{
    unsigned char colours[4][4];
    int32_t errors[4];
};

inline __m128i LoadLanes(const int16_t* lanes)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
}

// The errors e0, e0, e1, e1 and e2, e2, e3, e3 as e0, e1, e2, e3.
inline __m128i GatherErrors(__m128i e01, __m128i e23)
{
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(e01), _mm_castsi128_ps(e23), _MM_SHUFFLE(2, 0, 2, 0)));
}

void MeasureCachedSSE2(const OptimiseWork& work, const uint8_t* list, int count, __m128i selfAB, MeasuredPixel* out)
{
    for (int k = 0; k < count; ++k)
    {
        const int i = list[k];
        __m128i low, high;
        SynthesiseLanes(work.cache.lanes[i], work.cache.selfWeight[i], selfAB, low, high);
        const BlendCache::PixelLanes& pixel = work.cache.pixels[i];
        const __m128i channels = LoadLanes(pixel.channels), weights = LoadLanes(pixel.errorWeights);
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k].colours), _mm_packus_epi16(low, high));
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k].errors),
                        GatherErrors(MeasureLanes(low, channels, weights), MeasureLanes(high, channels, weights)));
    }
}

#if ORBT_X86_SIMD
// Two 128-bit lane sets side by side.
ORBT_TARGET_AVX2 inline __m256i Pair(__m128i first, __m128i second)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
}

// The same as MeasureCachedSSE2, two pixels at a time in the two halves.
ORBT_TARGET_AVX2 void MeasureCachedAVX2(const OptimiseWork& work, const uint8_t* list, int count, __m128i selfAB,
                                        MeasuredPixel* out)
{
    const __m256i colourLanes = _mm256_setr_epi16(-1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0);
    const __m256i self = Pair(selfAB, selfAB);
    int k = 0;
    for (; k + 1 < count; k += 2)
    {
        const int i = list[k], j = list[k + 1];
        const BlendCache::Lanes& li = work.cache.lanes[i];
        const BlendCache::Lanes& lj = work.cache.lanes[j];
        const __m256i weight = Pair(_mm_set1_epi16(work.cache.selfWeight[i]), _mm_set1_epi16(work.cache.selfWeight[j]));
        const __m256i sums = _mm256_add_epi16(Pair(LoadLanes(li.fixedAB), LoadLanes(lj.fixedAB)),
                                              _mm256_mullo_epi16(weight, self));
        const __m256i t = _mm256_srli_epi16(sums, 6);
        const __m256i ends =
            _mm256_add_epi16(t, _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(t, 5), colourLanes),
                                                _mm256_andnot_si256(colourLanes, _mm256_srli_epi16(t, 4))));
        const __m256i swapped = _mm256_shuffle_epi32(ends, _MM_SHUFFLE(1, 0, 3, 2));
        const __m256i mixes = _mm256_and_si256(
            _mm256_srli_epi16(
                _mm256_add_epi16(
                    _mm256_mullo_epi16(ends, Pair(LoadLanes(li.weightsOnEnds), LoadLanes(lj.weightsOnEnds))),
                    _mm256_mullo_epi16(swapped, Pair(LoadLanes(li.weightsOnSwapped), LoadLanes(lj.weightsOnSwapped)))),
                3),
            Pair(LoadLanes(li.mixMask), LoadLanes(lj.mixMask)));
        const __m256i low = _mm256_unpacklo_epi64(ends, mixes);
        const __m256i high = _mm256_unpackhi_epi64(mixes, ends);
        const BlendCache::PixelLanes& pi = work.cache.pixels[i];
        const BlendCache::PixelLanes& pj = work.cache.pixels[j];
        const __m256i channels = Pair(LoadLanes(pi.channels), LoadLanes(pj.channels));
        const __m256i weights = Pair(LoadLanes(pi.errorWeights), LoadLanes(pj.errorWeights));
        const __m256i dl = _mm256_mullo_epi16(_mm256_sub_epi16(low, channels), weights);
        const __m256i dh = _mm256_mullo_epi16(_mm256_sub_epi16(high, channels), weights);
        const __m256i hl = _mm256_madd_epi16(dl, dl), hh = _mm256_madd_epi16(dh, dh);
        const __m256i e01 = _mm256_add_epi32(hl, _mm256_shuffle_epi32(hl, _MM_SHUFFLE(2, 3, 0, 1)));
        const __m256i e23 = _mm256_add_epi32(hh, _mm256_shuffle_epi32(hh, _MM_SHUFFLE(2, 3, 0, 1)));
        const __m256i errors = _mm256_castps_si256(
            _mm256_shuffle_ps(_mm256_castsi256_ps(e01), _mm256_castsi256_ps(e23), _MM_SHUFFLE(2, 0, 2, 0)));
        const __m256i packed = _mm256_packus_epi16(low, high);
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k].colours), _mm256_castsi256_si128(packed));
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k + 1].colours), _mm256_extracti128_si256(packed, 1));
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k].errors), _mm256_castsi256_si128(errors));
        _mm_store_si128(reinterpret_cast<__m128i*>(out[k + 1].errors), _mm256_extracti128_si256(errors, 1));
    }
    if (k < count)
        MeasureCachedSSE2(work, list + k, count - k, selfAB, out + k);
}
#endif

// Measures the listed pixels, and each takes its choice as in ChooseAlone.
void MeasureAndChoose(OptimiseWork& work, const uint8_t* list, int listed, __m128i selfAB, bool store,
                      int64_t* sums)
{
    MeasuredPixel measured[kMaxWindowPixels];
#if ORBT_X86_SIMD
    if (ActiveSimdPath() == eSimdAVX2)
        MeasureCachedAVX2(work, list, listed, selfAB, measured);
    else
#endif
        MeasureCachedSSE2(work, list, listed, selfAB, measured);
    // Sums by locality (0 outer, 1 central, 2 others).
    int64_t byLocality[3] = {0, 0, 0};
    for (int k = 0; k < listed; ++k)
    {
        const int i = list[k];
        const PixelBlendRecord& record = work.records[i];
        const MeasuredPixel& m = measured[k];
        const unsigned char* pixel = work.window + 4 * i;
        const bool transparent = record.punchThroughFlag && m.colours[2][3] == 0 && pixel[3] == 0;
        const int choice = transparent ? 2 : BestOfFour(m.errors);
        work.chosen[i] = uint8_t(choice);
        if (store)
            StoreFitting(work.fitting, record, i, choice, record.modulationValues[choice], pixel, m.colours[choice]);
        byLocality[record.locality] += transparent ? 0 : m.errors[choice];
    }
    for (int l = 0; l < 3; ++l)
        sums[l] += byLocality[l];
}

// The fast path of a cached window: the ordinary pixels measured in one walk
// (two at a time with AVX2) before their choices; the pixels PrepareSettled
// settled are not measured again.
void EvalCached4BPP(OptimiseWork& work, const CompressParams& /*params*/, const NeighbourhoodReps& reps,
                    bool includeOuterRing, WindowErrors& errors)
{
    int64_t sums[3] = {0, 0, 0};
    const __m128i selfAB = SelfPairLanes(reps);
    const BlendCache& cache = work.cache;
    alignas(16) unsigned char colours[4][4];
    alignas(16) int32_t e[4];
    const int palettes = cache.paletteInner + (includeOuterRing ? cache.paletteOuter : 0);
    for (int k = 0; k < palettes; ++k)
        ChooseAlone(work, cache.palette[k], reps, selfAB, colours, e, sums);
    MeasureAndChoose(work, cache.measured, cache.measuredInner + (includeOuterRing ? cache.measuredOuter : 0), selfAB,
                     work.storeFitting, sums);
    for (int locality = includeOuterRing ? 0 : 1; locality < 3; ++locality)
        sums[locality] += cache.settledErrors[locality];
    errors.total = sums[1] + sums[2];
    errors.central = sums[1];
    errors.outer = includeOuterRing ? sums[0] : 0;
}

} // namespace

namespace
{

// A lanes evaluation's errors: the measured pixels' sums of localities 1 and
// 2 in 'sums' with the settled pixels' sums (PrepareLanes).
void FinishLaneErrors(OptimiseWork& work, int64_t* sums, bool includeOuterRing, WindowErrors& errors)
{
    work.fitFromLanes = work.storeFitting;
    for (int locality = includeOuterRing ? 0 : 1; locality < 3; ++locality)
        sums[locality] += work.cache.settledErrors[locality];
    errors.total = sums[1] + sums[2];
    errors.central = sums[1];
    errors.outer = includeOuterRing ? sums[0] : 0;
}

// The window's lanes evaluated: the measured pixels' sums by locality with
// the settled pixels' sums (PrepareLanes).
void EvalLanes4BPP(OptimiseWork& work, const NeighbourhoodReps& reps, bool includeOuterRing, WindowErrors& errors)
{
    int64_t sums[3] = {0, 0, 0};
    int16_t self[8];
    MaskPair(reps.reps[4], self);
    EvaluateWindowLanes(work.lanes, self, work.storeFitting, &sums[1], &sums[2]);
    if (work.hasPaletteLanes)
        EvaluatePaletteLanes(work.paletteLanes, work.paletteSources, work.paletteColours, reps.reps[4],
                             includeOuterRing, work.storeFitting, sums);
    FinishLaneErrors(work, sums, includeOuterRing, errors);
}

// Appends window pixel i to a layout; 'first' and 'second' choose the sums
// its error adds to.
void AddLane(LaneLayout& layout, int i, const PixelBlendRecord& record, const bool* selfPositions, bool first,
             bool second)
{
    const int j = layout.count++;
    layout.index[j] = uint8_t(i);
    int blocks[4];
    QuadrantBlocks(record.quadrant, blocks);
    int self = 0;
    for (int k = 0; k < 4; ++k)
    {
        layout.places[j][k] = uint8_t(blocks[k]);
        layout.placeWeights[j][k] = selfPositions[blocks[k]] ? 0 : record.bilinear[k];
        self += selfPositions[blocks[k]] ? record.bilinear[k] : 0;
    }
    layout.self[j] = int16_t(self);
    for (int c = 0; c < 4; ++c)
    {
        layout.weights[c][j] = record.choiceWeights[c];
        layout.mask2[c][j] = int16_t((record.choice2Mask >> (8 * c)) & 0xFF);
        layout.weightA[c][j] = int16_t((8 - record.modulationValues[c]) * record.centralWeights[c]);
        layout.weightB[c][j] = int16_t(record.modulationValues[c] * record.centralWeights[c]);
        layout.gain[c][j] = record.gains[c];
        layout.lowGain[c][j] = record.gains[c] == 128 ? 0 : -1;
    }
    layout.first[j] = first ? -1 : 0;
    layout.second[j] = second ? -1 : 0;
    layout.punchThroughFlag[j] = record.punchThroughFlag ? -1 : 0;
}

// Pads a layout with zero lanes to whole vectors.
void PadLanes(LaneLayout& layout)
{
    for (int j = layout.count; j < (layout.count + 15) / 16 * 16; ++j)
    {
        layout.index[j] = 0;
        for (int k = 0; k < 4; ++k)
        {
            layout.places[j][k] = 0;
            layout.placeWeights[j][k] = 0;
        }
        for (int c = 0; c < 4; ++c)
            layout.weights[c][j] = layout.mask2[c][j] = layout.weightA[c][j] = layout.weightB[c][j] =
                layout.gain[c][j] = layout.lowGain[c][j] = 0;
        layout.self[j] = layout.first[j] = layout.second[j] = layout.punchThroughFlag[j] = 0;
    }
}

// Lane j of a layout counting nowhere: no error sums, no fit weight.
void MuteLane(LaneLayout& layout, int j)
{
    for (int c = 0; c < 4; ++c)
        layout.weightA[c][j] = layout.weightB[c][j] = layout.lowGain[c][j] = 0;
    layout.first[j] = layout.second[j] = layout.punchThroughFlag[j] = 0;
}

// Appends palette pixel i to a palette layout and its sources.
void AddPaletteLane(LaneLayout& layout, PaletteSources& sources, int i, const PixelBlendRecord& record,
                    const bool* selfPositions)
{
    const int j = layout.count++;
    layout.index[j] = uint8_t(i);
    int blocks[4];
    QuadrantBlocks(record.quadrant, blocks);
    // The fit reads window pixels 10 to 70 only: of the ring, those of
    // columns 0 and 8 in between.
    const int fitted = i >= 10 && i <= 70 ? 1 : 0;
    for (int k = 0; k < 4; ++k)
    {
        const int selection = record.bilinear[k], place = blocks[selection / 2 % 4], colour = selection & 1;
        sources.source[j][k] = uint8_t(2 * place + colour);
        sources.ownA[k][j] = selfPositions[place] && colour == 0 ? -1 : 0;
        sources.ownB[k][j] = selfPositions[place] && colour == 1 ? -1 : 0;
        layout.weightA[k][j] = int16_t(fitted * (8 - record.modulationValues[k]) * record.centralWeights[k]);
        layout.weightB[k][j] = int16_t(fitted * record.modulationValues[k] * record.centralWeights[k]);
        layout.gain[k][j] = record.gains[k];
        layout.lowGain[k][j] = record.gains[k] == 128 ? 0 : -1;
    }
    sources.outer[j] = record.locality == 0 ? -1 : 0;
    layout.first[j] = record.locality == 1 ? -1 : 0;
    layout.second[j] = record.locality == 2 ? -1 : 0;
}

// Pads palette sources to whole vectors, as PadLanes their layout.
void PadPaletteSources(PaletteSources& sources, int count)
{
    for (int j = count; j < (count + 15) / 16 * 16; ++j)
    {
        for (int k = 0; k < 4; ++k)
        {
            sources.source[j][k] = 0;
            sources.ownA[k][j] = sources.ownB[k][j] = 0;
        }
        sources.outer[j] = 0;
    }
}

// The place whose mode a window pixel's modulation reads (the lower-right
// block of its cell of half a block).
int ModulationPlace(const CompressParams& params, int i)
{
    const int x = i % params.windowWidth, y = i / params.windowWidth;
    const int cellColumn = x / (params.blockWidth / 2), cellRow = y / 2;
    return ((cellRow + 1) / 2) * 3 + (cellColumn + 1) / 2;
}

// The lanes of the hard flags 'hardFlags' in both modulation forms.
void BuildGeometry(OptimiseWork& work, const CompressParams& params, uint32_t hardFlags, const bool* selfPositions,
                   OptimiseWork::LaneGeometry& geometry)
{
    geometry.hardFlags = hardFlags;
    geometry.usable = true;
    geometry.paletteRisk = 0;
    geometry.palette.count = 0;
    const int count = params.windowWidth * params.windowHeight;
    // Lanes are the same pixels in both forms: the standard form decides
    // which the block's own pair reaches (bilinear weights do not depend on
    // the form, but a palette pixel's hold colour indices).
    bool reached[kMaxWindowPixels];
    for (int form = 0; form < 2; ++form)
    {
        uint32_t modes[9];
        for (int p = 0; p < 9; ++p)
            modes[p] = (hardFlags >> p & 1 ? 2u : 0u) | uint32_t(form);
        CreateBlendingAndUpdateWeights(modes[4], modes, 0, params, work.scratch);
        LaneLayout& measured = geometry.measured[form];
        LaneLayout& settled = geometry.settled[form];
        measured.count = settled.count = 0;
        for (int i = 0; i < count && geometry.usable; ++i)
        {
            const PixelBlendRecord& record = work.scratch[i];
            const int place = ModulationPlace(params, i);
            if (form == 0)
            {
                int blocks[4], self = 0;
                QuadrantBlocks(record.quadrant, blocks);
                for (int k = 0; k < 4; ++k)
                    self += selfPositions[blocks[k]] ? record.bilinear[k] : 0;
                reached[i] = self != 0;
                // The block's own pair reaches no outer pixel of a window it
                // fills alone, and every pixel of its own.
                if (record.palettePixel || (reached[i] && record.locality == 0) ||
                    (!reached[i] && record.locality == 1))
                    geometry.usable = false;
            }
            int16_t* source = reached[i] ? geometry.measuredSource : geometry.settledSource;
            LaneLayout& layout = reached[i] ? measured : settled;
            source[layout.count] = int16_t(1 << place);
            AddLane(layout, i, record, selfPositions, record.locality == (reached[i] ? 1 : 0),
                    record.locality == 2);
            if (form == 1 && record.palettePixel)
            {
                // A punch-through mode at this place makes a palette pixel:
                // its own lanes count for it.
                geometry.paletteRisk |= 1u << place;
                MuteLane(layout, layout.count - 1);
                geometry.palettePlace[geometry.palette.count] = uint8_t(place);
                AddPaletteLane(geometry.palette, geometry.paletteSources, i, record, selfPositions);
            }
        }
        PadLanes(measured);
        PadLanes(settled);
        for (int j = measured.count; j < (measured.count + 15) / 16 * 16; ++j)
            geometry.measuredSource[j] = 0;
        for (int j = settled.count; j < (settled.count + 15) / 16 * 16; ++j)
            geometry.settledSource[j] = 0;
    }
}

// 'out' as the standard form of 'forms' but, on lanes whose source is in
// 'punchThrough', the punch-through form. With 'whole' the fields that do
// not depend on the form are copied too.
void SelectForms(const LaneLayout* forms, const int16_t* source, uint32_t punchThrough, bool whole, LaneLayout& out)
{
    const LaneLayout& standard = forms[0];
    const LaneLayout& punched = forms[1];
    const int padded = (standard.count + 15) / 16 * 16;
    if (whole)
    {
        out.count = standard.count;
        std::memcpy(out.index, standard.index, sizeof out.index);
        std::memcpy(out.places, standard.places, sizeof out.places);
        std::memcpy(out.placeWeights, standard.placeWeights, sizeof out.placeWeights);
        std::memcpy(out.self, standard.self, sizeof out.self);
    }
    auto select = [&](const int16_t* a, const int16_t* b, int16_t* to) {
        int j = 0;
#if ORBT_X86_SIMD
        const __m128i places = _mm_set1_epi16(int16_t(punchThrough));
        for (; j < padded; j += 8)
        {
            const __m128i from =
                _mm_cmpeq_epi16(_mm_and_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(source + j)), places),
                                _mm_setzero_si128());
            const __m128i value =
                _mm_or_si128(_mm_and_si128(from, _mm_load_si128(reinterpret_cast<const __m128i*>(a + j))),
                             _mm_andnot_si128(from, _mm_load_si128(reinterpret_cast<const __m128i*>(b + j))));
            _mm_store_si128(reinterpret_cast<__m128i*>(to + j), value);
        }
#endif
        for (; j < padded; ++j)
            to[j] = (source[j] & int(punchThrough)) ? b[j] : a[j];
    };
    for (int c = 0; c < 4; ++c)
    {
        select(standard.weights[c], punched.weights[c], out.weights[c]);
        select(standard.mask2[c], punched.mask2[c], out.mask2[c]);
        select(standard.weightA[c], punched.weightA[c], out.weightA[c]);
        select(standard.weightB[c], punched.weightB[c], out.weightB[c]);
        select(standard.gain[c], punched.gain[c], out.gain[c]);
        select(standard.lowGain[c], punched.lowGain[c], out.lowGain[c]);
    }
    select(standard.punchThroughFlag, punched.punchThroughFlag, out.punchThroughFlag);
    select(standard.first, punched.first, out.first); // a palette pixel's lanes count nowhere
    select(standard.second, punched.second, out.second);
}

// The geometry's palette lanes whose place is in 'places', laid out alone.
void SelectPalettes(const OptimiseWork::LaneGeometry& geometry, uint32_t places, LaneLayout& out,
                    PaletteSources& sources)
{
    const LaneLayout& all = geometry.palette;
    out.count = 0;
    for (int j = 0; j < all.count; ++j)
    {
        if (!(places >> geometry.palettePlace[j] & 1))
            continue;
        const int to = out.count++;
        out.index[to] = all.index[j];
        out.first[to] = all.first[j];
        out.second[to] = all.second[j];
        sources.outer[to] = geometry.paletteSources.outer[j];
        for (int k = 0; k < 4; ++k)
        {
            out.weightA[k][to] = all.weightA[k][j];
            out.weightB[k][to] = all.weightB[k][j];
            out.gain[k][to] = all.gain[k][j];
            out.lowGain[k][to] = all.lowGain[k][j];
            sources.source[to][k] = geometry.paletteSources.source[j][k];
            sources.ownA[k][to] = geometry.paletteSources.ownA[k][j];
            sources.ownB[k][to] = geometry.paletteSources.ownB[k][j];
        }
    }
    PadLanes(out);
    PadPaletteSources(sources, out.count);
}

// The slot holding the forms of 'geometry' for 'punchThrough', made in the
// least recently used slot when none does.
OptimiseWork::LayoutSlot& LayoutFor(OptimiseWork& work, const OptimiseWork::LaneGeometry* geometry,
                                    uint32_t punchThrough)
{
    OptimiseWork::LayoutSlot* oldest = &work.layoutSlots[0];
    for (OptimiseWork::LayoutSlot& slot : work.layoutSlots)
    {
        if (slot.geometry == geometry && slot.punchThrough == punchThrough)
        {
            slot.lastUse = ++work.layoutUses;
            return slot;
        }
        if (slot.lastUse < oldest->lastUse)
            oldest = &slot;
    }
    OptimiseWork::LayoutSlot& slot = *oldest;
    const bool whole = slot.geometry != geometry;
    SelectForms(geometry->measured, geometry->measuredSource, punchThrough, whole, slot.measured);
    SelectForms(geometry->settled, geometry->settledSource, punchThrough, whole, slot.settled);
    slot.measured.version = geometry->measuredVersion;
    slot.settled.version = geometry->settledVersion;
    slot.geometry = geometry;
    slot.punchThrough = punchThrough;
    slot.lastUse = ++work.layoutUses;
    return slot;
}

} // namespace

bool PrepareLanes(OptimiseWork& work, const CompressParams& params, uint32_t centreMode, const uint32_t* modes,
                  uint32_t hardVariantMask, const bool* selfPositions, const NeighbourhoodReps& reps,
                  bool palettes)
{
    if (params.bitsPerPixel != 4 || params.windowWidth * params.windowHeight > kLanePixels)
        return false;
    // The places' modes as the blending sees them.
    uint32_t hardFlags = 0, punchThrough = 0;
    for (int p = 0; p < 9; ++p)
    {
        uint32_t mode = p == 4 ? centreMode : modes[p];
        if ((p == 0 && (hardVariantMask & 1)) || (p == 1 && (hardVariantMask & 2)) ||
            (p == 3 && (hardVariantMask & 4)))
            mode ^= 2;
        hardFlags |= (mode >> 1 & 1) << p;
        punchThrough |= (mode & 1) << p;
    }
    std::unique_ptr<OptimiseWork::LaneGeometry>& slot = work.geometries[hardFlags];
    if (!slot)
    {
        // Without the memory the per-pixel evaluations serve.
        slot.reset(new (std::nothrow) OptimiseWork::LaneGeometry);
        if (!slot)
            return false;
        BuildGeometry(work, params, hardFlags, selfPositions, *slot);
        for (uint32_t* version : {&slot->measuredVersion, &slot->settledVersion})
            *version = ++work.layoutVersions == 0 ? ++work.layoutVersions : work.layoutVersions;
    }
    const OptimiseWork::LaneGeometry* geometry = slot.get();
    const uint32_t palettePlaces = geometry->paletteRisk & punchThrough;
    if (!geometry->usable || (palettePlaces != 0 && !palettes))
        return false;
    OptimiseWork::LayoutSlot& forms = LayoutFor(work, geometry, punchThrough);
    if (palettePlaces != 0 && (work.paletteGeometry != geometry || work.palettePlaces != palettePlaces))
    {
        SelectPalettes(*geometry, palettePlaces, work.palette, work.paletteSources);
        work.paletteGeometry = geometry;
        work.palettePlaces = palettePlaces;
    }
    work.cache.valid = false;
    LoadWindowLanes(work.lanes, forms.measured, reps.reps, work.channels);
    LoadWindowLanes(work.settledLanes, forms.settled, reps.reps, work.channels);
    work.hasPaletteLanes = palettePlaces != 0;
    if (work.hasPaletteLanes)
        LoadPaletteLanes(work.paletteLanes, work.paletteColours, work.palette, work.paletteSources, reps.reps,
                         work.channels);
    // The settled pixels' choices need no pair of the block's.
    const int16_t none[8] = {};
    int64_t* sums = work.cache.settledErrors;
    sums[0] = sums[1] = sums[2] = 0;
    EvaluateWindowLanes(work.settledLanes, none, false, &sums[0], &sums[2]);
    work.lanesReady = true;
    return true;
}

void PrepareSettled(OptimiseWork& work, const CompressParams& params)
{
    if (!work.cache.pixelsReady)
        PreparePixelLanes(work, params);
    const int count = params.windowWidth * params.windowHeight;
    uint8_t list[kMaxWindowPixels];
    int listed = 0;
    for (int i = 0; i < count; ++i)
    {
        work.cache.settled[i] = !work.records[i].palettePixel && work.cache.selfWeight[i] == 0;
        if (work.cache.settled[i])
            list[listed++] = uint8_t(i);
    }
    int64_t* sums = work.cache.settledErrors;
    sums[0] = sums[1] = sums[2] = 0;
    // Without the block's weight the pair is never read.
    MeasureAndChoose(work, list, listed, _mm_setzero_si128(), true, sums);

    BlendCache& cache = work.cache;
    int measured = 0, palette = 0;
    for (int outer = 0; outer < 2; ++outer)
    {
        for (int i = 0; i < count; ++i)
        {
            const PixelBlendRecord& record = work.records[i];
            if (cache.settled[i] || (record.locality == 0) != (outer == 1))
                continue;
            if (record.palettePixel)
                cache.palette[palette++] = uint8_t(i);
            else
                cache.measured[measured++] = uint8_t(i);
        }
        if (outer == 0)
            cache.measuredInner = measured, cache.paletteInner = palette;
    }
    cache.measuredOuter = measured - cache.measuredInner;
    cache.paletteOuter = palette - cache.paletteInner;
    cache.settledReady = true;
}

void EvalAllCandsAndGetErrors4BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                                  bool includeOuterRing, WindowErrors& errors)
{
    work.fitFromLanes = false;
    if (work.lanesReady)
    {
        EvalLanes4BPP(work, reps, includeOuterRing, errors);
        return;
    }
    if (work.cache.valid && work.cache.settledReady && !OptimiserReference())
    {
        EvalCached4BPP(work, params, reps, includeOuterRing, errors);
        return;
    }
    int64_t sums[3] = {0, 0, 0};
    const int count = params.windowWidth * params.windowHeight;
    const __m128i selfAB = SelfPairLanes(reps);
    alignas(16) unsigned char colours[4][4];
    alignas(16) int32_t e[4];
    for (int i = 0; i < count; ++i)
        if (work.records[i].locality != 0 || includeOuterRing)
            ChooseAlone(work, i, reps, selfAB, colours, e, sums);
    errors.total = sums[1] + sums[2];
    errors.central = sums[1];
    errors.outer = includeOuterRing ? sums[0] : 0;
}

namespace
{

// An island group's choice for each part (pixels without and with the
// transparent choice) from the parts' error sums by choice.
void IslandChoice(const int64_t (*partSums)[4], const bool* hasPart, int* choice)
{
    choice[0] = choice[1] = 0;
    if (hasPart[0] != hasPart[1])
    {
        const int64_t* s = partSums[hasPart[0] ? 0 : 1];
        int best = s[0] < s[3] ? 0 : 3;
        if (s[1] < s[best])
            best = 1;
        if (s[2] < s[best])
            best = 2;
        choice[0] = choice[1] = best;
    }
    else if (hasPart[0])
    {
        static constexpr int kPairs[6][2] = {{0, 0}, {3, 3}, {0, 2}, {3, 2}, {1, 1}, {2, 1}};
        int64_t best = kFreshCandidateError;
        for (const auto& pair : kPairs)
        {
            const int64_t e = partSums[0][pair[0]] + partSums[1][pair[1]];
            if (e < best)
            {
                best = e;
                choice[0] = pair[0];
                choice[1] = pair[1];
            }
        }
    }
}

// Evaluation by islands through the lanes: every lane's choices measured at
// once, then each group's choice (a group is a run of equal labels in the
// island order; its sums do not depend on the order they add in) and its
// pixels' fit sums. The settled pixels, the outer ring, chose alone when the
// lanes were prepared.
void EvalIslandLanes(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                     bool includeOuterRing, WindowErrors& errors)
{
    int16_t self[8];
    MaskPair(reps.reps[4], self);
    WindowLanes& l = work.lanes;
    const LaneLayout& L = *l.layout;
    LaneChoices& m = work.laneChoices;
    MeasureWindowLanes(l, self, m);

    const int count = params.windowWidth * params.windowHeight;
    uint8_t groupOf[kMaxWindowPixels];
    int groups = 0;
    for (int k = 0; k < count; ++k)
    {
        groups += k > 0 && work.islandLabels[work.islandOrder[k]] != work.islandLabels[work.islandOrder[k - 1]];
        groupOf[work.islandOrder[k]] = uint8_t(groups);
    }
    ++groups;
    int64_t partSums[kMaxWindowPixels][2][4];
    bool hasPart[kMaxWindowPixels][2];
    std::memset(partSums, 0, sizeof(partSums[0]) * size_t(groups));
    std::memset(hasPart, 0, sizeof(hasPart[0]) * size_t(groups));
    uint8_t laneGroup[kLanePixels], lanePart[kLanePixels];
    // Lanes of one group and part mostly follow each other: a run's sums
    // gather in locals.
    int64_t run[4] = {0, 0, 0, 0};
    int runGroup = -1, runPart = 0;
    auto flush = [&] {
        if (runGroup < 0)
            return;
        hasPart[runGroup][runPart] = true;
        for (int c = 0; c < 4; ++c)
            partSums[runGroup][runPart][c] += run[c];
    };
    for (int j = 0; j < L.count; ++j)
    {
        const int g = groupOf[L.index[j]], part = L.lowGain[2][j] != 0 ? 1 : 0; // the transparent choice's gain
        laneGroup[j] = uint8_t(g);
        lanePart[j] = uint8_t(part);
        if (g != runGroup || part != runPart)
        {
            flush();
            runGroup = g;
            runPart = part;
            run[0] = run[1] = run[2] = run[3] = 0;
        }
        for (int c = 0; c < 4; ++c)
            run[c] += m.errors[c][j];
    }
    flush();
    int choices[kMaxWindowPixels][2];
    for (int g = 0; g < groups; ++g)
        IslandChoice(partSums[g], hasPart[g], choices[g]);

    for (int j = 0; j < L.count; ++j)
        l.chosen[j] = uint8_t(choices[laneGroup[j]][lanePart[j]]);
    std::fill(l.chosen + L.count, l.chosen + std::min(kLanePixels, (L.count + 15) & ~15), uint8_t(0)); // padding
    int64_t sums[3] = {0, 0, 0};
    SettleChosenLanes(l, m, &sums[1], &sums[2]);
    FinishLaneErrors(work, sums, includeOuterRing, errors);
}

} // namespace

bool IslandsFitLanes(const OptimiseWork& work)
{
    if (work.hasPaletteLanes)
        return false;
    const LaneLayout& settled = *work.settledLanes.layout;
    for (int j = 0; j < settled.count; ++j)
        if (settled.second[j])
            return false;
    return true;
}

void EvalByIslands4BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                       bool includeOuterRing, WindowErrors& errors)
{
    work.fitFromLanes = false;
    if (work.lanesReady)
    {
        EvalIslandLanes(work, params, reps, includeOuterRing, errors);
        return;
    }
    int64_t sums[3] = {0, 0, 0};
    const int count = params.windowWidth * params.windowHeight;
    const __m128i selfAB = SelfPairLanes(reps);
    alignas(16) unsigned char colours[kMaxWindowPixels][4][4];
    alignas(16) int32_t pixelErrors[kMaxWindowPixels][4];

    // A pixel choosing alone, as in the plain evaluation.
    auto alone = [&](int i) { ChooseAlone(work, i, reps, selfAB, colours[i], pixelErrors[i], sums); };

    int start = 0;
    while (start < count)
    {
        const unsigned char label = work.islandLabels[work.islandOrder[start]];
        int end = start;
        while (end < count && work.islandLabels[work.islandOrder[end]] == label)
            ++end;

        // The group's error sums by part (transparent choice or not) and
        // choice; pixels outside the group choose alone.
        int64_t partSums[2][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}};
        bool hasPart[2] = {false, false};
        for (int k = start; k < end; ++k)
        {
            const int i = work.islandOrder[k];
            const PixelBlendRecord& record = work.records[i];
            if (record.palettePixel || record.locality == 0)
            {
                if (includeOuterRing || record.locality != 0)
                    alone(i);
                continue;
            }
            SynthesiseAndMeasure(work, i, reps, selfAB, colours[i], pixelErrors[i]);
            const int part = record.transparentChoice;
            hasPart[part] = true;
            for (int c = 0; c < 4; ++c)
                partSums[part][c] += pixelErrors[i][c];
        }

        int choice[2];
        IslandChoice(partSums, hasPart, choice);

        for (int k = start; k < end; ++k)
        {
            const int i = work.islandOrder[k];
            const PixelBlendRecord& record = work.records[i];
            if (record.palettePixel || record.locality == 0)
                continue;
            const int c = choice[record.transparentChoice];
            work.chosen[i] = uint8_t(c);
            if (work.storeFitting)
                StoreFitting(work.fitting, record, i, c, record.modulationValues[c], work.window + 4 * i,
                             colours[i][c]);
            sums[record.locality] += pixelErrors[i][c];
        }
        start = end;
    }
    errors.total = sums[1] + sums[2];
    errors.central = sums[1];
    errors.outer = includeOuterRing ? sums[0] : 0;
}

void EvalAllCandsAndGetErrors2BPP(OptimiseWork& work, const CompressParams& params, const NeighbourhoodReps& reps,
                                  bool includeOuterRing, WindowErrors& errors)
{
    work.fitFromLanes = false;
    const int width = params.windowWidth, height = params.windowHeight;
    const int count = width * height;
    const __m128i selfAB = SelfPairLanes(reps);
    alignas(16) unsigned char colours[kMaxWindowPixels][4][4];
    uint8_t values[kMaxWindowPixels];
    int residualSums[kMaxWindowPixels][4];
    uint8_t contributors[kMaxWindowPixels];
    std::memset(residualSums, 0, sizeof(residualSums));
    std::memset(contributors, 0, sizeof(contributors));

    auto stored = [&](int i) { return work.records[i].modulationClass <= 1; };

    // 1: stored pixels choose alone; one-bit pixels between the ends only.
    for (int i = 0; i < count; ++i)
    {
        const PixelBlendRecord& record = work.records[i];
        alignas(16) int32_t e[4];
        SynthesiseAndMeasure(work, i, reps, selfAB, colours[i], e);
        if (!stored(i))
            continue;
        const int choice = record.modulationClass == 1 ? (e[0] <= e[3] ? 0 : 3) : BestOfFour(e);
        work.chosen[i] = uint8_t(choice);
        values[i] = record.modulationValues[choice];
    }

    // 2: derived pixels, and their residuals shared out to the stored
    // neighbours they read.
    for (int i = 0; i < count; ++i)
    {
        if (stored(i))
            continue;
        const int y = i / width, x = i % width;
        const int cls = work.records[i].modulationClass;
        const int modulation = ComputeInterpolatedModVal(cls, y, x, values, width, height);
        unsigned char decoded[4];
        MixEnds(colours[i], modulation, decoded);
        const unsigned char* pixel = work.window + 4 * i;
        auto share = [&](int yy, int xx) {
            if (yy < 0 || yy >= height || xx < 0 || xx >= width)
                return;
            const int n = yy * width + xx;
            for (int c = 0; c < 4; ++c)
                residualSums[n][c] += pixel[c] - decoded[c];
            ++contributors[n];
        };
        if (cls != 4)
        {
            share(y, x - 1);
            share(y, x + 1);
        }
        if (cls != 3)
        {
            share(y - 1, x);
            share(y + 1, x);
        }
    }

    // 3: stored pixels with contributors choose again against their colour
    // moved by half the mean residual.
    for (int i = 0; i < count; ++i)
    {
        if (!stored(i) || contributors[i] == 0)
            continue;
        const PixelBlendRecord& record = work.records[i];
        const unsigned char* pixel = work.window + 4 * i;
        const float reciprocal = 1.0f / float(2 * contributors[i]);
        float target[4];
        for (int c = 0; c < 4; ++c)
        {
            const float t = float(pixel[c]) + float(residualSums[i][c]) * reciprocal;
            target[c] = t < 0.0f ? 0.0f : t > 255.0f ? 255.0f : t;
        }
        const float alphaWeight = pixel[3] == 0 || pixel[3] == 255 ? 30.0f : 1.0f;
        float e[4];
        for (int k = 0; k < 4; ++k)
        {
            float sum = 0.0f;
            for (int c = 0; c < 3; ++c)
                sum += (target[c] - colours[i][k][c]) * (target[c] - colours[i][k][c]);
            const float da = (target[3] - colours[i][k][3]) * alphaWeight;
            e[k] = sum + da * da;
        }
        int choice;
        if (record.modulationClass == 1)
            choice = e[0] <= e[3] ? 0 : 3;
        else
        {
            const int middle = e[2] <= e[1] ? 2 : 1;
            const int ends = e[0] <= e[3] ? 0 : 3;
            choice = e[middle] <= e[ends] ? middle : ends;
        }
        work.chosen[i] = uint8_t(choice);
        values[i] = record.modulationValues[choice];
    }

    // 4: errors and fitting data with the final values.
    int64_t sums[3] = {0, 0, 0};
    for (int i = 0; i < count; ++i)
    {
        const PixelBlendRecord& record = work.records[i];
        const unsigned char* pixel = work.window + 4 * i;
        if (stored(i))
        {
            const int choice = work.chosen[i];
            if (work.storeFitting)
            StoreFitting(work.fitting, record, i, choice, record.modulationValues[choice], pixel, colours[i][choice]);
            if (record.locality != 0 || includeOuterRing)
                sums[record.locality] += PixelError(pixel, colours[i][choice]);
        }
        else
        {
            const int modulation = ComputeInterpolatedModVal(record.modulationClass, i / width, i % width, values,
                                                             width, height);
            unsigned char decoded[4];
            MixEnds(colours[i], modulation, decoded);
            work.chosen[i] = 0xFF;
            if (work.storeFitting)
                StoreFitting(work.fitting, record, i, 0, modulation, pixel, decoded);
            if (record.locality != 0 || includeOuterRing)
                sums[record.locality] += PixelError(pixel, decoded);
        }
    }
    errors.total = sums[1] + sums[2];
    errors.central = sums[1];
    errors.outer = includeOuterRing ? sums[0] : 0;
}

} // namespace orbtexture
