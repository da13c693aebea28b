// Evaluation of a window's measured and local-palette pixels across vector
// lanes, and the pair fit from the choices it made. Every path gives the same
// integers; the fit adds its floats in pixel order as the per-pixel walk does.

#include "Codecs/ORBTC/fnzj/fnzj_window_lanes.h"

#include "Codecs/ORBTC/fnzj/fnzj_localised.h"
#include "Tools/ORBTSimd.h"

#include <algorithm>

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

// The better of four errors: of choices 1 and 2 (2 on a tie), of 0 and 3 (0
// on a tie), and of those the first pair's on a tie.
inline int BestOfFour(const int32_t* e)
{
    const int middle = e[2] <= e[1] ? 2 : 1;
    const int ends = e[0] <= e[3] ? 0 : 3;
    return e[middle] <= e[ends] ? middle : ends;
}

// Lane j's four choices by channel and their errors.
inline void MeasureLane(const WindowLanes& l, int j, const int16_t* selfAB, int (*colours)[4], int32_t* e)
{
    const LaneLayout& L = *l.layout;
    for (int c = 0; c < 4; ++c)
    {
        const int shift = c < 3 ? 5 : 4;
        const int ta = (l.fixedA[c][j] + L.self[j] * selfAB[c]) >> 6;
        const int tb = (l.fixedB[c][j] + L.self[j] * selfAB[4 + c]) >> 6;
        const int c0 = ta + (ta >> shift), c3 = tb + (tb >> shift);
        colours[0][c] = c0;
        colours[1][c] = (L.weights[0][j] * c0 + L.weights[1][j] * c3) >> 3;
        colours[2][c] = ((L.weights[2][j] * c0 + L.weights[3][j] * c3) >> 3) & L.mask2[c][j];
        colours[3][c] = c3;
    }
    for (int k = 0; k < 4; ++k)
    {
        e[k] = 0;
        for (int c = 0; c < 4; ++c)
        {
            const int d = (colours[k][c] - l.pixel[c][j]) * (c == 3 ? l.alphaWeight[j] : 1);
            e[k] += d * d;
        }
    }
}

// Lane j's residual and its part of the fit's sums for its choice.
template <typename Channel>
inline void AccumulateLane(WindowLanes& l, int j, int choice, const Channel* colour)
{
    const LaneLayout& L = *l.layout;
    l.integerFit = l.integerFit && !L.lowGain[choice][j];
    const int a = L.weightA[choice][j], b = L.weightB[choice][j];
    l.fitSums[0] += a * a;
    l.fitSums[1] += a * b;
    l.fitSums[2] += b * b;
    for (int c = 0; c < 4; ++c)
    {
        const int residual = l.pixel[c][j] - colour[c];
        l.residual[c][j] = int16_t(residual);
        l.fitSums[3 + c] += a * residual;
        l.fitSums[7 + c] += b * residual;
    }
}

void EvaluatePortable(WindowLanes& l, const int16_t* selfAB, bool residuals, int64_t* central, int64_t* others)
{
    const LaneLayout& L = *l.layout;
    std::fill_n(l.fitSums, 11, 0);
    l.integerFit = residuals;
    for (int j = 0; j < L.count; ++j)
    {
        int colours[4][4];
        int32_t e[4];
        MeasureLane(l, j, selfAB, colours, e);
        const bool transparent = l.punchThrough[j] && colours[2][3] == 0;
        const int choice = transparent ? 2 : BestOfFour(e);
        l.chosen[j] = uint8_t(choice);
        if (residuals)
            AccumulateLane(l, j, choice, colours[choice]);
        const int64_t error = transparent ? 0 : e[choice];
        *central += L.first[j] ? error : 0;
        *others += L.second[j] ? error : 0;
    }
}

void EvaluatePalettePortable(WindowLanes& l, const PaletteSources& s, const PaletteColours& p,
                             const unsigned char (*self)[4], bool includeOuterRing, bool residuals, int64_t* sums)
{
    const LaneLayout& L = *l.layout;
    std::fill_n(l.fitSums, 11, 0);
    l.integerFit = residuals;
    for (int j = 0; j < L.count; ++j)
    {
        int colours[4][4];
        int32_t e[4];
        for (int k = 0; k < 4; ++k)
        {
            e[k] = 0;
            for (int c = 0; c < 4; ++c)
            {
                colours[k][c] = s.ownA[k][j] ? self[0][c] : s.ownB[k][j] ? self[1][c] : p.fixed[k][c][j];
                const int d = (colours[k][c] - l.pixel[c][j]) * (c == 3 ? l.alphaWeight[j] : 1);
                e[k] += d * d;
            }
        }
        const int choice = BestOfFour(e);
        sums[s.outer[j] ? 0 : L.first[j] ? 1 : 2] += e[choice];
        if (s.outer[j] && !includeOuterRing)
        {
            // The ring's lanes keep their last choices and residuals.
            if (residuals)
            {
                int last[4];
                for (int c = 0; c < 4; ++c)
                    last[c] = l.pixel[c][j] - l.residual[c][j];
                AccumulateLane(l, j, l.chosen[j], last);
            }
            continue;
        }
        l.chosen[j] = uint8_t(choice);
        if (residuals)
            AccumulateLane(l, j, choice, colours[choice]);
    }
}

#if ORBT_X86_SIMD

inline __m128i Load(const int16_t* p)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
}

inline __m128i Select(__m128i mask, __m128i whenSet, __m128i otherwise)
{
    return _mm_or_si128(_mm_and_si128(mask, whenSet), _mm_andnot_si128(mask, otherwise));
}

// Each 32-bit lane summed into a 64-bit total.
inline int64_t Total(__m128i lanes)
{
    alignas(16) int32_t v[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(v), lanes);
    return int64_t(v[0]) + v[1] + v[2] + v[3];
}

// The errors of eight lanes' four choices (by channel), pixels 0 to 3 in
// 'low' and 4 to 7 in 'high'.
inline void ErrorsSSE2(const WindowLanes& l, int j, const __m128i (*colours)[4], __m128i* low, __m128i* high)
{
    const __m128i alphaWeight = Load(l.alphaWeight + j);
    for (int k = 0; k < 4; ++k)
    {
        const __m128i dr = _mm_sub_epi16(colours[k][0], Load(l.pixel[0] + j));
        const __m128i dg = _mm_sub_epi16(colours[k][1], Load(l.pixel[1] + j));
        const __m128i db = _mm_sub_epi16(colours[k][2], Load(l.pixel[2] + j));
        const __m128i da = _mm_mullo_epi16(_mm_sub_epi16(colours[k][3], Load(l.pixel[3] + j)), alphaWeight);
        const __m128i rgLow = _mm_unpacklo_epi16(dr, dg), baLow = _mm_unpacklo_epi16(db, da);
        const __m128i rgHigh = _mm_unpackhi_epi16(dr, dg), baHigh = _mm_unpackhi_epi16(db, da);
        low[k] = _mm_add_epi32(_mm_madd_epi16(rgLow, rgLow), _mm_madd_epi16(baLow, baLow));
        high[k] = _mm_add_epi32(_mm_madd_epi16(rgHigh, rgHigh), _mm_madd_epi16(baHigh, baHigh));
    }
}

// BestOfFour in 32-bit lanes: the choice and its error.
inline void ChooseSSE2(const __m128i* e, __m128i& choice, __m128i& error)
{
    const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi32(1), two = _mm_set1_epi32(2);
    const __m128i three = _mm_set1_epi32(3);
    const __m128i middleOne = _mm_cmpgt_epi32(e[2], e[1]);
    const __m128i middle = Select(middleOne, e[1], e[2]);
    const __m128i endsThree = _mm_cmpgt_epi32(e[0], e[3]);
    const __m128i ends = Select(endsThree, e[3], e[0]);
    const __m128i takeEnds = _mm_cmpgt_epi32(middle, ends);
    choice = Select(takeEnds, Select(endsThree, three, zero), Select(middleOne, one, two));
    error = Select(takeEnds, ends, middle);
}

// The 16-bit mask's lanes of one half widened to 32 bits.
inline __m128i Widen(__m128i mask, int half)
{
    return half ? _mm_unpackhi_epi16(mask, mask) : _mm_unpacklo_epi16(mask, mask);
}

// Eight lanes from j: the four choices by channel and their errors, pixels
// 0 to 3 in 'low' and 4 to 7 in 'high'.
inline void MeasureLanesSSE2(const WindowLanes& l, int j, const __m128i* selfA, const __m128i* selfB,
                             __m128i (*colours)[4], __m128i* low, __m128i* high)
{
    const LaneLayout& L = *l.layout;
    const __m128i self = Load(L.self + j);
    const __m128i w0 = Load(L.weights[0] + j), w1 = Load(L.weights[1] + j);
    const __m128i w2 = Load(L.weights[2] + j), w3 = Load(L.weights[3] + j);
    for (int c = 0; c < 4; ++c)
    {
        const __m128i ta = _mm_srli_epi16(_mm_add_epi16(Load(l.fixedA[c] + j), _mm_mullo_epi16(self, selfA[c])), 6);
        const __m128i tb = _mm_srli_epi16(_mm_add_epi16(Load(l.fixedB[c] + j), _mm_mullo_epi16(self, selfB[c])), 6);
        const __m128i c0 = _mm_add_epi16(ta, c < 3 ? _mm_srli_epi16(ta, 5) : _mm_srli_epi16(ta, 4));
        const __m128i c3 = _mm_add_epi16(tb, c < 3 ? _mm_srli_epi16(tb, 5) : _mm_srli_epi16(tb, 4));
        colours[0][c] = c0;
        colours[1][c] = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(w0, c0), _mm_mullo_epi16(w1, c3)), 3);
        colours[2][c] = _mm_and_si128(
            _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(w2, c0), _mm_mullo_epi16(w3, c3)), 3), Load(L.mask2[c] + j));
        colours[3][c] = c3;
    }
    ErrorsSSE2(l, j, colours, low, high);
}

// Eight lanes from j with their choices (16-bit): residuals into the lanes,
// the fit's sums into 'fit' and the choices of low gain into 'lowGainSeen'.
// Lanes set in 'kept' keep the residuals they hold.
inline void AccumulateLanesSSE2(WindowLanes& l, int j, __m128i choice, const __m128i (*colours)[4], __m128i* fit,
                                __m128i& lowGainSeen, __m128i kept = _mm_setzero_si128())
{
    const LaneLayout& L = *l.layout;
    const __m128i is1 = _mm_cmpeq_epi16(choice, _mm_set1_epi16(1));
    const __m128i is2 = _mm_cmpeq_epi16(choice, _mm_set1_epi16(2));
    const __m128i is3 = _mm_cmpeq_epi16(choice, _mm_set1_epi16(3));
    auto pick = [&](const __m128i* options) {
        return Select(is3, options[3], Select(is2, options[2], Select(is1, options[1], options[0])));
    };
    __m128i residual[4];
    for (int c = 0; c < 4; ++c)
    {
        const __m128i options[4] = {colours[0][c], colours[1][c], colours[2][c], colours[3][c]};
        residual[c] = Select(kept, Load(l.residual[c] + j), _mm_sub_epi16(Load(l.pixel[c] + j), pick(options)));
    }
    const __m128i optionsLow[4] = {Load(L.lowGain[0] + j), Load(L.lowGain[1] + j), Load(L.lowGain[2] + j),
                                   Load(L.lowGain[3] + j)};
    lowGainSeen = _mm_or_si128(lowGainSeen, pick(optionsLow));
    const __m128i optionsA[4] = {Load(L.weightA[0] + j), Load(L.weightA[1] + j), Load(L.weightA[2] + j),
                                 Load(L.weightA[3] + j)};
    const __m128i optionsB[4] = {Load(L.weightB[0] + j), Load(L.weightB[1] + j), Load(L.weightB[2] + j),
                                 Load(L.weightB[3] + j)};
    const __m128i a = pick(optionsA), b = pick(optionsB);
    fit[0] = _mm_add_epi32(fit[0], _mm_madd_epi16(a, a));
    fit[1] = _mm_add_epi32(fit[1], _mm_madd_epi16(a, b));
    fit[2] = _mm_add_epi32(fit[2], _mm_madd_epi16(b, b));
    for (int c = 0; c < 4; ++c)
    {
        fit[3 + c] = _mm_add_epi32(fit[3 + c], _mm_madd_epi16(a, residual[c]));
        fit[7 + c] = _mm_add_epi32(fit[7 + c], _mm_madd_epi16(b, residual[c]));
        _mm_store_si128(reinterpret_cast<__m128i*>(l.residual[c] + j), residual[c]);
    }
}

// Eight pixels a step. Errors are built in 32-bit lanes from interleaved
// channel pairs: pixels 0 to 3 in one vector, 4 to 7 in the other, which a
// signed pack puts back in order.
void EvaluateSSE2(WindowLanes& l, const int16_t* selfAB, bool residuals, int64_t* central, int64_t* others)
{
    const LaneLayout& L = *l.layout;
    const __m128i zero = _mm_setzero_si128();
    __m128i selfA[4], selfB[4];
    for (int c = 0; c < 4; ++c)
    {
        selfA[c] = _mm_set1_epi16(selfAB[c]);
        selfB[c] = _mm_set1_epi16(selfAB[4 + c]);
    }
    const __m128i two = _mm_set1_epi32(2);
    __m128i sumCentral = zero, sumOthers = zero;
    __m128i fit[11], lowGainSeen = zero;
    for (__m128i& f : fit)
        f = zero;
    for (int j = 0; j < L.count; j += 8)
    {
        __m128i colours[4][4], low[4], high[4];
        MeasureLanesSSE2(l, j, selfA, selfB, colours, low, high);
        const __m128i transparent = _mm_and_si128(Load(l.punchThrough + j), _mm_cmpeq_epi16(colours[2][3], zero));
        const __m128i centralMask = Load(L.first + j), othersMask = Load(L.second + j);
        __m128i choiceHalves[2];
        for (int half = 0; half < 2; ++half)
        {
            __m128i choice, error;
            ChooseSSE2(half ? high : low, choice, error);
            const __m128i t = Widen(transparent, half);
            choice = Select(t, two, choice);
            error = _mm_andnot_si128(t, error);
            sumCentral = _mm_add_epi32(sumCentral, _mm_and_si128(error, Widen(centralMask, half)));
            sumOthers = _mm_add_epi32(sumOthers, _mm_and_si128(error, Widen(othersMask, half)));
            choiceHalves[half] = choice;
        }
        const __m128i choice = _mm_packs_epi32(choiceHalves[0], choiceHalves[1]);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(l.chosen + j), _mm_packus_epi16(choice, choice));
        if (residuals)
            AccumulateLanesSSE2(l, j, choice, colours, fit, lowGainSeen);
    }
    // A lane sums at most 12 pixels' errors, each below 2^26: no overflow.
    *central += Total(sumCentral);
    *others += Total(sumOthers);
    for (int k = 0; k < 11; ++k)
        l.fitSums[k] = int32_t(Total(fit[k]));
    l.integerFit = residuals && _mm_movemask_epi8(lowGainSeen) == 0;
}

ORBT_TARGET_AVX2 inline __m256i Load256(const int16_t* p)
{
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
}

// Sixteen pixels a step, as EvaluateSSE2 in each 128-bit half.
// The errors of sixteen lanes' four choices, as ErrorsSSE2 in each half.
ORBT_TARGET_AVX2 inline void ErrorsAVX2(const WindowLanes& l, int j, const __m256i (*colours)[4], __m256i* low,
                                        __m256i* high)
{
    const __m256i alphaWeight = Load256(l.alphaWeight + j);
    for (int k = 0; k < 4; ++k)
    {
        const __m256i dr = _mm256_sub_epi16(colours[k][0], Load256(l.pixel[0] + j));
        const __m256i dg = _mm256_sub_epi16(colours[k][1], Load256(l.pixel[1] + j));
        const __m256i db = _mm256_sub_epi16(colours[k][2], Load256(l.pixel[2] + j));
        const __m256i da = _mm256_mullo_epi16(_mm256_sub_epi16(colours[k][3], Load256(l.pixel[3] + j)), alphaWeight);
        const __m256i rgLow = _mm256_unpacklo_epi16(dr, dg), baLow = _mm256_unpacklo_epi16(db, da);
        const __m256i rgHigh = _mm256_unpackhi_epi16(dr, dg), baHigh = _mm256_unpackhi_epi16(db, da);
        low[k] = _mm256_add_epi32(_mm256_madd_epi16(rgLow, rgLow), _mm256_madd_epi16(baLow, baLow));
        high[k] = _mm256_add_epi32(_mm256_madd_epi16(rgHigh, rgHigh), _mm256_madd_epi16(baHigh, baHigh));
    }
}

// BestOfFour in 32-bit lanes: the choice and its error.
ORBT_TARGET_AVX2 inline void ChooseAVX2(const __m256i* e, __m256i& choice, __m256i& error)
{
    const __m256i one = _mm256_set1_epi32(1), two = _mm256_set1_epi32(2), three = _mm256_set1_epi32(3);
    const __m256i middleOne = _mm256_cmpgt_epi32(e[2], e[1]);
    const __m256i middle = _mm256_min_epi32(e[1], e[2]);
    const __m256i endsThree = _mm256_cmpgt_epi32(e[0], e[3]);
    const __m256i ends = _mm256_min_epi32(e[0], e[3]);
    const __m256i takeEnds = _mm256_cmpgt_epi32(middle, ends);
    choice = _mm256_blendv_epi8(_mm256_blendv_epi8(two, one, middleOne), _mm256_and_si256(endsThree, three), takeEnds);
    error = _mm256_min_epi32(middle, ends);
}

ORBT_TARGET_AVX2 inline __m256i Widen256(__m256i mask, int half)
{
    return half ? _mm256_unpackhi_epi16(mask, mask) : _mm256_unpacklo_epi16(mask, mask);
}

// o1, o2 or o3 where is1, is2 or is3 is set, else o0.
ORBT_TARGET_AVX2 inline __m256i Pick256(__m256i is1, __m256i is2, __m256i is3, __m256i o0, __m256i o1, __m256i o2,
                                        __m256i o3)
{
    return _mm256_blendv_epi8(_mm256_blendv_epi8(_mm256_blendv_epi8(o0, o1, is1), o2, is2), o3, is3);
}

// The same for sixteen lanes from j of four lane sets, choice by choice.
ORBT_TARGET_AVX2 inline __m256i PickLanes(__m256i is1, __m256i is2, __m256i is3, const int16_t (*lanes)[kLanePixels],
                                          int j)
{
    return Pick256(is1, is2, is3, Load256(lanes[0] + j), Load256(lanes[1] + j), Load256(lanes[2] + j),
                   Load256(lanes[3] + j));
}

// As AccumulateLanesSSE2 for sixteen lanes.
ORBT_TARGET_AVX2 inline void AccumulateLanesAVX2(WindowLanes& l, int j, __m256i choice, const __m256i (*colours)[4],
                                                 __m256i* fit, __m256i& lowGainSeen, __m256i kept)
{
    const LaneLayout& L = *l.layout;
    const __m256i is1 = _mm256_cmpeq_epi16(choice, _mm256_set1_epi16(1));
    const __m256i is2 = _mm256_cmpeq_epi16(choice, _mm256_set1_epi16(2));
    const __m256i is3 = _mm256_cmpeq_epi16(choice, _mm256_set1_epi16(3));
    __m256i residual[4];
    for (int c = 0; c < 4; ++c)
    {
        const __m256i colour = Pick256(is1, is2, is3, colours[0][c], colours[1][c], colours[2][c], colours[3][c]);
        residual[c] =
            _mm256_blendv_epi8(_mm256_sub_epi16(Load256(l.pixel[c] + j), colour), Load256(l.residual[c] + j), kept);
    }
    lowGainSeen = _mm256_or_si256(lowGainSeen, PickLanes(is1, is2, is3, L.lowGain, j));
    const __m256i a = PickLanes(is1, is2, is3, L.weightA, j), b = PickLanes(is1, is2, is3, L.weightB, j);
    fit[0] = _mm256_add_epi32(fit[0], _mm256_madd_epi16(a, a));
    fit[1] = _mm256_add_epi32(fit[1], _mm256_madd_epi16(a, b));
    fit[2] = _mm256_add_epi32(fit[2], _mm256_madd_epi16(b, b));
    for (int c = 0; c < 4; ++c)
    {
        fit[3 + c] = _mm256_add_epi32(fit[3 + c], _mm256_madd_epi16(a, residual[c]));
        fit[7 + c] = _mm256_add_epi32(fit[7 + c], _mm256_madd_epi16(b, residual[c]));
        _mm256_store_si256(reinterpret_cast<__m256i*>(l.residual[c] + j), residual[c]);
    }
}

// The fit's sums and whether every choice had full gain, from the lanes.
ORBT_TARGET_AVX2 inline void FinishFitAVX2(WindowLanes& l, bool residuals, const __m256i* fit, __m256i lowGainSeen)
{
    for (int k = 0; k < 11; ++k)
        l.fitSums[k] =
            int32_t(Total(_mm_add_epi32(_mm256_castsi256_si128(fit[k]), _mm256_extracti128_si256(fit[k], 1))));
    l.integerFit = residuals && _mm256_movemask_epi8(lowGainSeen) == 0;
}

// Each 32-bit lane summed into a 64-bit total.
ORBT_TARGET_AVX2 inline int64_t Total256(__m256i lanes)
{
    const __m256i wide = _mm256_add_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(lanes)),
                                          _mm256_cvtepi32_epi64(_mm256_extracti128_si256(lanes, 1)));
    alignas(32) int64_t totals[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(totals), wide);
    return totals[0] + totals[1] + totals[2] + totals[3];
}

// The 16-bit choices of sixteen lanes as bytes into 'chosen'.
ORBT_TARGET_AVX2 inline void StoreChoices(__m256i choice, uint8_t* chosen)
{
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(choice, choice), _MM_SHUFFLE(3, 1, 2, 0));
    _mm_store_si128(reinterpret_cast<__m128i*>(chosen), _mm256_castsi256_si128(bytes));
}

// Sixteen pixels a step, as EvaluateSSE2 in each 128-bit half.
ORBT_TARGET_AVX2 void EvaluateAVX2(WindowLanes& l, const int16_t* selfAB, bool residuals, int64_t* central,
                                   int64_t* others)
{
    const LaneLayout& L = *l.layout;
    const __m256i zero = _mm256_setzero_si256();
    __m256i selfA[4], selfB[4];
    for (int c = 0; c < 4; ++c)
    {
        selfA[c] = _mm256_set1_epi16(selfAB[c]);
        selfB[c] = _mm256_set1_epi16(selfAB[4 + c]);
    }
    const __m256i two = _mm256_set1_epi32(2);
    __m256i sumCentral = zero, sumOthers = zero;
    __m256i fit[11], lowGainSeen = zero;
    for (__m256i& f : fit)
        f = zero;
    for (int j = 0; j < L.count; j += 16)
    {
        const __m256i self = Load256(L.self + j);
        const __m256i w0 = Load256(L.weights[0] + j), w1 = Load256(L.weights[1] + j);
        const __m256i w2 = Load256(L.weights[2] + j), w3 = Load256(L.weights[3] + j);
        __m256i colours[4][4];
        for (int c = 0; c < 4; ++c)
        {
            const __m256i ta =
                _mm256_srli_epi16(_mm256_add_epi16(Load256(l.fixedA[c] + j), _mm256_mullo_epi16(self, selfA[c])), 6);
            const __m256i tb =
                _mm256_srli_epi16(_mm256_add_epi16(Load256(l.fixedB[c] + j), _mm256_mullo_epi16(self, selfB[c])), 6);
            const __m256i c0 = _mm256_add_epi16(ta, c < 3 ? _mm256_srli_epi16(ta, 5) : _mm256_srli_epi16(ta, 4));
            const __m256i c3 = _mm256_add_epi16(tb, c < 3 ? _mm256_srli_epi16(tb, 5) : _mm256_srli_epi16(tb, 4));
            colours[0][c] = c0;
            colours[1][c] =
                _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(w0, c0), _mm256_mullo_epi16(w1, c3)), 3);
            colours[2][c] = _mm256_and_si256(
                _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(w2, c0), _mm256_mullo_epi16(w3, c3)), 3),
                Load256(L.mask2[c] + j));
            colours[3][c] = c3;
        }
        __m256i low[4], high[4];
        ErrorsAVX2(l, j, colours, low, high);
        const __m256i transparent =
            _mm256_and_si256(Load256(l.punchThrough + j), _mm256_cmpeq_epi16(colours[2][3], zero));
        const __m256i centralMask = Load256(L.first + j), othersMask = Load256(L.second + j);
        __m256i choiceHalves[2];
        for (int half = 0; half < 2; ++half)
        {
            __m256i choice, error;
            ChooseAVX2(half ? high : low, choice, error);
            const __m256i t = Widen256(transparent, half);
            choice = _mm256_blendv_epi8(choice, two, t);
            error = _mm256_andnot_si256(t, error);
            sumCentral = _mm256_add_epi32(sumCentral, _mm256_and_si256(error, Widen256(centralMask, half)));
            sumOthers = _mm256_add_epi32(sumOthers, _mm256_and_si256(error, Widen256(othersMask, half)));
            choiceHalves[half] = choice;
        }
        const __m256i choice = _mm256_packs_epi32(choiceHalves[0], choiceHalves[1]);
        StoreChoices(choice, l.chosen + j);
        if (residuals)
            AccumulateLanesAVX2(l, j, choice, colours, fit, lowGainSeen, zero);
    }
    FinishFitAVX2(l, residuals, fit, lowGainSeen);
    *central += Total256(sumCentral);
    *others += Total256(sumOthers);
}

// The palette lanes sixteen at a time, as EvaluatePaletteSSE2.
ORBT_TARGET_AVX2 void EvaluatePaletteAVX2(WindowLanes& l, const PaletteSources& s, const PaletteColours& p,
                                          const unsigned char (*self)[4], bool includeOuterRing, bool residuals,
                                          int64_t* sums)
{
    const LaneLayout& L = *l.layout;
    const __m256i zero = _mm256_setzero_si256();
    __m256i selfA[4], selfB[4];
    for (int c = 0; c < 4; ++c)
    {
        selfA[c] = _mm256_set1_epi16(self[0][c]);
        selfB[c] = _mm256_set1_epi16(self[1][c]);
    }
    __m256i byLocality[3] = {zero, zero, zero};
    __m256i fit[11], lowGainSeen = zero;
    for (__m256i& f : fit)
        f = zero;
    for (int j = 0; j < L.count; j += 16)
    {
        __m256i colours[4][4], low[4], high[4];
        for (int k = 0; k < 4; ++k)
        {
            const __m256i ownA = Load256(s.ownA[k] + j), ownB = Load256(s.ownB[k] + j);
            for (int c = 0; c < 4; ++c)
                colours[k][c] = _mm256_blendv_epi8(_mm256_blendv_epi8(Load256(p.fixed[k][c] + j), selfB[c], ownB),
                                                   selfA[c], ownA);
        }
        ErrorsAVX2(l, j, colours, low, high);
        const __m256i masks[3] = {Load256(s.outer + j), Load256(L.first + j), Load256(L.second + j)};
        __m256i choiceHalves[2];
        for (int half = 0; half < 2; ++half)
        {
            __m256i error;
            ChooseAVX2(half ? high : low, choiceHalves[half], error);
            for (int m = 0; m < 3; ++m)
                byLocality[m] = _mm256_add_epi32(byLocality[m], _mm256_and_si256(error, Widen256(masks[m], half)));
        }
        // Without the ring, its lanes keep their last choices and residuals.
        const __m256i kept = includeOuterRing ? zero : masks[0];
        const __m256i last = _mm256_cvtepu8_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(l.chosen + j)));
        const __m256i choice = _mm256_blendv_epi8(_mm256_packs_epi32(choiceHalves[0], choiceHalves[1]), last, kept);
        StoreChoices(choice, l.chosen + j);
        if (residuals)
            AccumulateLanesAVX2(l, j, choice, colours, fit, lowGainSeen, kept);
    }
    for (int m = 0; m < 3; ++m)
        sums[m] += Total256(byLocality[m]);
    FinishFitAVX2(l, residuals, fit, lowGainSeen);
}

// The palette lanes eight at a time, as EvaluateSSE2.
void EvaluatePaletteSSE2(WindowLanes& l, const PaletteSources& s, const PaletteColours& p,
                         const unsigned char (*self)[4], bool includeOuterRing, bool residuals, int64_t* sums)
{
    const LaneLayout& L = *l.layout;
    const __m128i zero = _mm_setzero_si128();
    __m128i selfA[4], selfB[4];
    for (int c = 0; c < 4; ++c)
    {
        selfA[c] = _mm_set1_epi16(self[0][c]);
        selfB[c] = _mm_set1_epi16(self[1][c]);
    }
    __m128i byLocality[3] = {zero, zero, zero};
    __m128i fit[11], lowGainSeen = zero;
    for (__m128i& f : fit)
        f = zero;
    for (int j = 0; j < L.count; j += 8)
    {
        __m128i colours[4][4], low[4], high[4];
        for (int k = 0; k < 4; ++k)
        {
            const __m128i ownA = Load(s.ownA[k] + j), ownB = Load(s.ownB[k] + j);
            for (int c = 0; c < 4; ++c)
                colours[k][c] = Select(ownA, selfA[c], Select(ownB, selfB[c], Load(p.fixed[k][c] + j)));
        }
        ErrorsSSE2(l, j, colours, low, high);
        const __m128i masks[3] = {Load(s.outer + j), Load(L.first + j), Load(L.second + j)};
        __m128i choiceHalves[2];
        for (int half = 0; half < 2; ++half)
        {
            __m128i error;
            ChooseSSE2(half ? high : low, choiceHalves[half], error);
            for (int m = 0; m < 3; ++m)
                byLocality[m] = _mm_add_epi32(byLocality[m], _mm_and_si128(error, Widen(masks[m], half)));
        }
        // Without the ring, its lanes keep their last choices and residuals.
        const __m128i kept = includeOuterRing ? zero : masks[0];
        const __m128i last =
            _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(l.chosen + j)), zero);
        const __m128i choice = Select(kept, last, _mm_packs_epi32(choiceHalves[0], choiceHalves[1]));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(l.chosen + j), _mm_packus_epi16(choice, choice));
        if (residuals)
            AccumulateLanesSSE2(l, j, choice, colours, fit, lowGainSeen, kept);
    }
    for (int m = 0; m < 3; ++m)
        sums[m] += Total(byLocality[m]);
    for (int k = 0; k < 11; ++k)
        l.fitSums[k] = int32_t(Total(fit[k]));
    l.integerFit = residuals && _mm_movemask_epi8(lowGainSeen) == 0;
}

#endif

} // namespace

void EvaluateWindowLanes(WindowLanes& lanes, const int16_t* selfAB, bool residuals, int64_t* central,
                         int64_t* others)
{
#if ORBT_X86_SIMD
    switch (ActiveSimdPath())
    {
    case eSimdAVX2: EvaluateAVX2(lanes, selfAB, residuals, central, others); return;
    case eSimdSSE2: EvaluateSSE2(lanes, selfAB, residuals, central, others); return;
    default: break;
    }
#endif
    EvaluatePortable(lanes, selfAB, residuals, central, others);
}

namespace
{

// The window's pixels of the layout's lanes: channels, alpha weights and
// transparency; zero in the padding up to 'padded'.
void GatherSourceLanes(WindowLanes& lanes, const LaneLayout& layout, const WindowChannels& window, int padded)
{
    for (int j = 0; j < padded; ++j)
    {
        const int i = j < layout.count ? layout.index[j] : -1;
        for (int c = 0; c < 4; ++c)
            lanes.pixel[c][j] = i < 0 ? 0 : window.pixel[c][i];
        lanes.alphaWeight[j] = i < 0 ? 0 : window.alphaWeight[i];
        lanes.transparent[j] = i < 0 ? 0 : window.transparent[i];
    }
}

} // namespace

void EvaluatePaletteLanes(WindowLanes& lanes, const PaletteSources& sources, const PaletteColours& colours,
                          const unsigned char (*self)[4], bool includeOuterRing, bool residuals, int64_t* sums)
{
#if ORBT_X86_SIMD
    switch (ActiveSimdPath())
    {
    case eSimdAVX2: EvaluatePaletteAVX2(lanes, sources, colours, self, includeOuterRing, residuals, sums); return;
    case eSimdSSE2: EvaluatePaletteSSE2(lanes, sources, colours, self, includeOuterRing, residuals, sums); return;
    default: break;
    }
#endif
    EvaluatePalettePortable(lanes, sources, colours, self, includeOuterRing, residuals, sums);
}

void LoadPaletteLanes(WindowLanes& lanes, PaletteColours& colours, const LaneLayout& layout,
                      const PaletteSources& sources, const unsigned char (*reps)[2][4], const WindowChannels& window)
{
    lanes.layout = &layout;
    lanes.loadedVersion = 0;
    const int padded = (layout.count + 15) / 16 * 16;
    GatherSourceLanes(lanes, layout, window, padded);
    for (int j = 0; j < padded; ++j)
    {
        const int i = j < layout.count ? layout.index[j] : -1;
        for (int k = 0; k < 4; ++k)
        {
            const bool fixed = i >= 0 && !sources.ownA[k][j] && !sources.ownB[k][j];
            const unsigned char* colour = reps[sources.source[j][k] / 2][sources.source[j][k] & 1];
            for (int c = 0; c < 4; ++c)
                colours.fixed[k][c][j] = fixed ? colour[c] : 0;
        }
    }
}

void MeasureWindowLanes(const WindowLanes& lanes, const int16_t* selfAB, LaneChoices& out)
{
    const int count = lanes.layout->count;
#if ORBT_X86_SIMD
    if (ActiveSimdPath() != eSimdPortable)
    {
        __m128i selfA[4], selfB[4];
        for (int c = 0; c < 4; ++c)
        {
            selfA[c] = _mm_set1_epi16(selfAB[c]);
            selfB[c] = _mm_set1_epi16(selfAB[4 + c]);
        }
        for (int j = 0; j < count; j += 8)
        {
            __m128i colours[4][4], low[4], high[4];
            MeasureLanesSSE2(lanes, j, selfA, selfB, colours, low, high);
            for (int k = 0; k < 4; ++k)
            {
                _mm_store_si128(reinterpret_cast<__m128i*>(out.errors[k] + j), low[k]);
                _mm_store_si128(reinterpret_cast<__m128i*>(out.errors[k] + j + 4), high[k]);
                for (int c = 0; c < 4; ++c)
                    _mm_store_si128(reinterpret_cast<__m128i*>(out.colours[k][c] + j), colours[k][c]);
            }
        }
        return;
    }
#endif
    for (int j = 0; j < count; ++j)
    {
        int colours[4][4];
        int32_t e[4];
        MeasureLane(lanes, j, selfAB, colours, e);
        for (int k = 0; k < 4; ++k)
        {
            out.errors[k][j] = e[k];
            for (int c = 0; c < 4; ++c)
                out.colours[k][c][j] = int16_t(colours[k][c]);
        }
    }
}

void SettleChosenLanes(WindowLanes& l, const LaneChoices& m, int64_t* central, int64_t* others)
{
    const LaneLayout& L = *l.layout;
    const int count = L.count;
#if ORBT_X86_SIMD
    if (ActiveSimdPath() != eSimdPortable)
    {
        const __m128i zero = _mm_setzero_si128();
        __m128i fit[11], lowGainSeen = zero, sumCentral = zero, sumOthers = zero;
        for (__m128i& f : fit)
            f = zero;
        for (int j = 0; j < count; j += 8)
        {
            const __m128i choice =
                _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(l.chosen + j)), zero);
            __m128i colours[4][4];
            for (int k = 0; k < 4; ++k)
                for (int c = 0; c < 4; ++c)
                    colours[k][c] = Load(m.colours[k][c] + j);
            AccumulateLanesSSE2(l, j, choice, colours, fit, lowGainSeen);
            // The chosen errors, 32 bits a lane: pixels 0 to 3, then 4 to 7.
            const __m128i centralMask = Load(L.first + j), othersMask = Load(L.second + j);
            for (int half = 0; half < 2; ++half)
            {
                const __m128i c32 = half ? _mm_unpackhi_epi16(choice, zero) : _mm_unpacklo_epi16(choice, zero);
                __m128i error = zero;
                for (int k = 0; k < 4; ++k)
                    error = Select(_mm_cmpeq_epi32(c32, _mm_set1_epi32(k)),
                                   _mm_load_si128(reinterpret_cast<const __m128i*>(m.errors[k] + j + 4 * half)),
                                   error);
                const __m128i cm = half ? _mm_unpackhi_epi16(centralMask, centralMask)
                                        : _mm_unpacklo_epi16(centralMask, centralMask);
                const __m128i om = half ? _mm_unpackhi_epi16(othersMask, othersMask)
                                        : _mm_unpacklo_epi16(othersMask, othersMask);
                sumCentral = _mm_add_epi64(sumCentral, _mm_unpacklo_epi32(_mm_and_si128(error, cm), zero));
                sumCentral = _mm_add_epi64(sumCentral, _mm_unpackhi_epi32(_mm_and_si128(error, cm), zero));
                sumOthers = _mm_add_epi64(sumOthers, _mm_unpacklo_epi32(_mm_and_si128(error, om), zero));
                sumOthers = _mm_add_epi64(sumOthers, _mm_unpackhi_epi32(_mm_and_si128(error, om), zero));
            }
        }
        alignas(16) int64_t totals[2][2];
        _mm_store_si128(reinterpret_cast<__m128i*>(totals[0]), sumCentral);
        _mm_store_si128(reinterpret_cast<__m128i*>(totals[1]), sumOthers);
        *central += totals[0][0] + totals[0][1];
        *others += totals[1][0] + totals[1][1];
        for (int k = 0; k < 11; ++k)
            l.fitSums[k] = int32_t(Total(fit[k]));
        l.integerFit = _mm_movemask_epi8(lowGainSeen) == 0;
        return;
    }
#endif
    std::fill_n(l.fitSums, 11, 0);
    l.integerFit = true;
    for (int j = 0; j < count; ++j)
    {
        const int choice = l.chosen[j];
        int16_t colour[4];
        for (int c = 0; c < 4; ++c)
            colour[c] = m.colours[choice][c][j];
        AccumulateLane(l, j, choice, colour);
        *central += L.first[j] ? m.errors[choice][j] : 0;
        *others += L.second[j] ? m.errors[choice][j] : 0;
    }
}

void LoadWindowLanes(WindowLanes& lanes, const LaneLayout& layout, const unsigned char (*reps)[2][4],
                     const WindowChannels& window)
{
    const int padded = (layout.count + 15) / 16 * 16;
    // The places' pairs masked to the decoder's precision, A then B.
    alignas(16) int16_t masked[9][8];
    for (int p = 0; p < 9; ++p)
        MaskPair(reps[p], masked[p]);
    // The same arrangement (a version names one, whichever layout holds it)
    // of the same window (the modes of one visit differ in the punch-through
    // form only) keeps its lanes but the punch-through ones: within a visit
    // the pairs around the block are fixed, and the block's own have no
    // weight in the fixed sums.
    const bool same = layout.version != 0 && lanes.loadedVersion == layout.version &&
                      lanes.loadedStamp == window.stamp;
    lanes.layout = &layout;
    lanes.loadedVersion = layout.version;
    lanes.loadedStamp = window.stamp;
    int j = same ? padded : 0;
#if ORBT_X86_SIMD
    // Eight lanes' sums side by side, then turned channel by channel.
    for (; j < padded; j += 8)
    {
        __m128i rows[8];
        for (int r = 0; r < 8; ++r)
        {
            const uint8_t* places = layout.places[j + r];
            const int16_t* weights = layout.placeWeights[j + r];
            __m128i sum = _mm_setzero_si128();
            for (int k = 0; k < 4; ++k)
                sum = _mm_add_epi16(sum, _mm_mullo_epi16(_mm_set1_epi16(weights[k]),
                                                         _mm_load_si128(reinterpret_cast<const __m128i*>(masked[places[k]]))));
            rows[r] = sum;
        }
        const __m128i t0 = _mm_unpacklo_epi16(rows[0], rows[1]), t1 = _mm_unpackhi_epi16(rows[0], rows[1]);
        const __m128i t2 = _mm_unpacklo_epi16(rows[2], rows[3]), t3 = _mm_unpackhi_epi16(rows[2], rows[3]);
        const __m128i t4 = _mm_unpacklo_epi16(rows[4], rows[5]), t5 = _mm_unpackhi_epi16(rows[4], rows[5]);
        const __m128i t6 = _mm_unpacklo_epi16(rows[6], rows[7]), t7 = _mm_unpackhi_epi16(rows[6], rows[7]);
        const __m128i u0 = _mm_unpacklo_epi32(t0, t2), u1 = _mm_unpackhi_epi32(t0, t2);
        const __m128i u2 = _mm_unpacklo_epi32(t1, t3), u3 = _mm_unpackhi_epi32(t1, t3);
        const __m128i u4 = _mm_unpacklo_epi32(t4, t6), u5 = _mm_unpackhi_epi32(t4, t6);
        const __m128i u6 = _mm_unpacklo_epi32(t5, t7), u7 = _mm_unpackhi_epi32(t5, t7);
        const __m128i channels[8] = {_mm_unpacklo_epi64(u0, u4), _mm_unpackhi_epi64(u0, u4),
                                     _mm_unpacklo_epi64(u1, u5), _mm_unpackhi_epi64(u1, u5),
                                     _mm_unpacklo_epi64(u2, u6), _mm_unpackhi_epi64(u2, u6),
                                     _mm_unpacklo_epi64(u3, u7), _mm_unpackhi_epi64(u3, u7)};
        for (int c = 0; c < 4; ++c)
        {
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes.fixedA[c] + j), channels[c]);
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes.fixedB[c] + j), channels[4 + c]);
        }
    }
#endif
    for (; j < padded; ++j)
        for (int c = 0; c < 4; ++c)
        {
            int a = 0, b = 0;
            for (int k = 0; k < 4; ++k)
            {
                a += layout.placeWeights[j][k] * masked[layout.places[j][k]][c];
                b += layout.placeWeights[j][k] * masked[layout.places[j][k]][4 + c];
            }
            lanes.fixedA[c][j] = int16_t(a);
            lanes.fixedB[c][j] = int16_t(b);
        }
    if (!same)
        GatherSourceLanes(lanes, layout, window, padded);
    for (j = 0; j < padded; ++j)
        lanes.punchThrough[j] = int16_t(layout.punchThroughFlag[j] & lanes.transparent[j]);
}

int FitWindowLanes(const WindowLanes& l, const WindowLanes* palette, float* displacements)
{
    float p = 0.0f, q = 0.0f, r = 0.0f;
    float u[4] = {0.0f, 0.0f, 0.0f, 0.0f}, v[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    if (l.integerFit && (!palette || palette->integerFit))
    {
        // The weights are a quarter of the integer ones, the gain 128.
        int32_t sums[11];
        for (int k = 0; k < 11; ++k)
            sums[k] = l.fitSums[k] + (palette ? palette->fitSums[k] : 0);
        p = float(sums[0]) * 0.0625f;
        q = float(sums[1]) * 0.0625f;
        r = float(sums[2]) * 0.0625f;
        for (int c = 0; c < 4; ++c)
        {
            u[c] = float(32 * sums[3 + c]);
            v[c] = float(32 * sums[7 + c]);
        }
        return FitRepPairFromSums(p, q, r, u, v, displacements);
    }
    // Each sum in pixel order, as the per-pixel walk adds them, the two
    // lists' pixels taken by their place in the window; pixels the block
    // does not reach add zeros there and are not laned.
    auto add = [&](const WindowLanes& lanes, int j) {
        // Each product below is exact, as the walk's own forms are.
        const LaneLayout& L = *lanes.layout;
        const int k = lanes.chosen[j];
        const float gain = float(L.gain[k][j]);
        const float a = float(L.weightA[k][j]) * gain * 0.001953125f;
        const float b = float(L.weightB[k][j]) * gain * 0.001953125f;
        const float ga = gain * a, gb = gain * b;
        p += a * a;
        q += a * b;
        r += b * b;
        for (int c = 0; c < 4; ++c)
        {
            const float e = float(lanes.residual[c][j]);
            u[c] += ga * e;
            v[c] += gb * e;
        }
    };
    const int count = l.layout->count, paletteCount = palette ? palette->layout->count : 0;
    for (int j = 0, k = 0; j < count || k < paletteCount;)
        if (k == paletteCount || (j < count && l.layout->index[j] < palette->layout->index[k]))
            add(l, j++);
        else
            add(*palette, k++);
    return FitRepPairFromSums(p, q, r, u, v, displacements);
}

} // namespace orbtexture
