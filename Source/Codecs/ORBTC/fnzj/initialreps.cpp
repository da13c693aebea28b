#include "Codecs/ORBTC/fnzj/initialreps.h"

#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Tools/ORBTSimd.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#if ORBT_X86_SIMD
#include <emmintrin.h>
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

// n-bit channel values widened to 8 bits by replication (4 and 3 bits via 5).
int Expand5(int x)
{
    return x * 8 | x >> 2;
}
int ExpandBits(int x, int bits)
{
    switch (bits)
    {
    case 5: return Expand5(x);
    case 4: return Expand5(x * 2 | x >> 3);
    default: return Expand5(x * 4 | x >> 1); // 3 bits
    }
}

float Dot(const float* a, const float* b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

// Alpha on the word's levels: 0, 34, ... 238 and 255; generation 2's B on 17,
// 51, ... 255. A value at or beyond 255 gives 238 except for that B.
int QuantiseAlpha(float a, bool generation2B)
{
    if (a <= 0.0f)
        return generation2B ? 17 : 0;
    if (a >= 255.0f)
        return generation2B ? 255 : 238;
    int q = int(a / 255.0f * 15.0f); // a is positive here: truncation is the floor
    q = generation2B ? (q | 1) : (q & ~1);
    const int lo = q * 17, hi = lo + 34;
    int pick = std::fabs(a - float(lo)) < std::fabs(float(hi) - a) ? lo : hi;
    if (std::fabs(255.0f - a) <= std::fabs(float(pick) - a))
        pick = 255;
    return pick;
}

// One channel of A and of B on grids of 'bitsA' and 'bitsB' bits. On a tie
// between two levels the colours move apart: A up and B down when B's value
// lies below A's, else A down and B up.
void QuantisePair(float a, float b, int bitsA, int bitsB, unsigned char& outA, unsigned char& outB)
{
    const bool bBelow = b < a;
    auto quantise = [](float v, int bits, bool upOnTie) {
        if (v <= 0.0f)
            return 0;
        if (v >= 255.0f)
            return 255;
        const int m = (1 << bits) - 1;
        int lo = int(float(m) * v / 255.0f), hi = lo + 1; // v is positive here
        if (lo == m)
            hi = m, lo = m - 1;
        const int low = ExpandBits(lo, bits), high = ExpandBits(hi, bits);
        const float toLow = std::fabs(v - float(low)), toHigh = std::fabs(float(high) - v);
        if (toLow != toHigh)
            return toLow < toHigh ? low : high;
        return upOnTie ? high : low;
    };
    outA = static_cast<unsigned char>(quantise(a, bitsA, bBelow));
    outB = static_cast<unsigned char>(quantise(b, bitsB, !bBelow));
}

#if ORBT_X86_SIMD
// QuantisePair of the three colour channels, A's in one vector and B's in
// the other, by the same float operations with selects for the branches.
// Values must not be NaN.
void QuantiseColourPairs(const float* a, const float* b, const int* bitsA, int bitsB, unsigned char* outA,
                         unsigned char* outB)
{
    const __m128 va = _mm_setr_ps(a[0], a[1], a[2], 0.0f), vb = _mm_setr_ps(b[0], b[1], b[2], 0.0f);
    const __m128i bBelow = _mm_castps_si128(_mm_cmplt_ps(vb, va));
    const __m128i bitsOfA = _mm_setr_epi32(bitsA[0], bitsA[1], bitsA[2], 5);
    const __m128i bitsOfB = _mm_set1_epi32(bitsB);
    auto quantise = [](__m128 v, __m128i bits, __m128i upOnTie) {
        const __m128i one = _mm_set1_epi32(1);
        const __m128i is4 = _mm_cmpeq_epi32(bits, _mm_set1_epi32(4)), is3 = _mm_cmpeq_epi32(bits, _mm_set1_epi32(3));
        const __m128i m = _mm_sub_epi32(
            _mm_or_si128(_mm_andnot_si128(_mm_or_si128(is4, is3), _mm_set1_epi32(32)),
                         _mm_or_si128(_mm_and_si128(is4, _mm_set1_epi32(16)), _mm_and_si128(is3, _mm_set1_epi32(8)))),
            one);
        const __m128 inRange = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(255.0f));
        const __m128i truncated =
            _mm_cvttps_epi32(_mm_div_ps(_mm_mul_ps(_mm_cvtepi32_ps(m), inRange), _mm_set1_ps(255.0f)));
        const __m128i lo = _mm_add_epi32(truncated, _mm_cmpeq_epi32(truncated, m)); // m less one at the top
        auto widen = [&](__m128i x) {
            const __m128i as4 = _mm_or_si128(_mm_slli_epi32(x, 1), _mm_srli_epi32(x, 3));
            const __m128i as3 = _mm_or_si128(_mm_slli_epi32(x, 2), _mm_srli_epi32(x, 1));
            const __m128i five = _mm_or_si128(_mm_andnot_si128(_mm_or_si128(is4, is3), x),
                                              _mm_or_si128(_mm_and_si128(is4, as4), _mm_and_si128(is3, as3)));
            return _mm_or_si128(_mm_slli_epi32(five, 3), _mm_srli_epi32(five, 2));
        };
        const __m128i low = widen(lo), high = widen(_mm_add_epi32(lo, one));
        const __m128 magnitude = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
        const __m128 toLow = _mm_and_ps(_mm_sub_ps(v, _mm_cvtepi32_ps(low)), magnitude);
        const __m128 toHigh = _mm_and_ps(_mm_sub_ps(_mm_cvtepi32_ps(high), v), magnitude);
        const __m128i lowNearer = _mm_castps_si128(_mm_cmplt_ps(toLow, toHigh));
        const __m128i tie = _mm_castps_si128(_mm_cmpeq_ps(toLow, toHigh));
        const __m128i takeLow = _mm_or_si128(_mm_andnot_si128(tie, lowNearer), _mm_andnot_si128(upOnTie, tie));
        __m128i picked = _mm_or_si128(_mm_and_si128(takeLow, low), _mm_andnot_si128(takeLow, high));
        picked = _mm_andnot_si128(_mm_castps_si128(_mm_cmple_ps(v, _mm_setzero_ps())), picked);
        const __m128i top = _mm_castps_si128(_mm_cmpge_ps(v, _mm_set1_ps(255.0f)));
        return _mm_or_si128(_mm_and_si128(top, _mm_set1_epi32(255)), _mm_andnot_si128(top, picked));
    };
    alignas(16) int32_t qa[4], qb[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(qa), quantise(va, bitsOfA, bBelow));
    _mm_store_si128(reinterpret_cast<__m128i*>(qb), quantise(vb, bitsOfB, _mm_xor_si128(bBelow, _mm_set1_epi32(-1))));
    for (int c = 0; c < 3; ++c)
    {
        outA[c] = static_cast<unsigned char>(qa[c]);
        outB[c] = static_cast<unsigned char>(qb[c]);
    }
}
#endif

// ---- Generated best-match tables ----

constexpr int kWeights[8] = {0, 3, 4, 5, 8, 3, 4, 5};

enum class Limit
{
    OrderedWithin, // a <= b, b - a at most the reach
    Within,        // |a - b| at most the reach
    OrderedOrOpaque // a <= b, and b - a at most the reach or b = 255
};

struct TableRule
{
    std::vector<int> valuesA, valuesB;
    Limit nearLimit, wideLimit;
    int nearReach, wideReach;
};

std::vector<int> ChannelValues(int bits)
{
    std::vector<int> values;
    for (int x = 0; x < (1 << bits); ++x)
        values.push_back(ExpandBits(x, bits));
    return values;
}

bool Allowed(Limit limit, int reach, int a, int b)
{
    switch (limit)
    {
    case Limit::OrderedWithin: return a <= b && b - a <= reach;
    case Limit::Within: return std::abs(a - b) <= reach;
    default: return a <= b && (b - a <= reach || b == 255);
    }
}

// For every sub-entry, each reachable blend keeps its closest pair (the first
// in order on a tie); every target then takes the nearest blend (the lower on
// a tie). Any pair of least error would serve.
void BuildTable(const TableRule& rule, BestMatchTable& table)
{
    for (int s = 0; s < 8; ++s)
    {
        const int w = kWeights[s];
        int pairA[256], pairB[256], gap[256];
        std::fill_n(gap, 256, 1 << 30);
        for (int a : rule.valuesA)
            for (int b : rule.valuesB)
            {
                if (s != 0 && s != 4 &&
                    !Allowed(s < 4 ? rule.nearLimit : rule.wideLimit, s < 4 ? rule.nearReach : rule.wideReach, a, b))
                    continue;
                const int mix = ((8 - w) * a + w * b) >> 3;
                if (std::abs(a - b) < gap[mix])
                    gap[mix] = std::abs(a - b), pairA[mix] = a, pairB[mix] = b;
            }
        for (int v = 0; v < 256; ++v)
        {
            int nearest = -1;
            for (int d = 0; d < 256 && nearest < 0; ++d)
                if (v - d >= 0 && gap[v - d] != 1 << 30)
                    nearest = v - d;
                else if (v + d < 256 && gap[v + d] != 1 << 30)
                    nearest = v + d;
            const int difference = v - nearest;
            table[v][s] = {static_cast<uint8_t>(std::min(difference * difference, 255)),
                           static_cast<uint8_t>(pairA[nearest]), static_cast<uint8_t>(pairB[nearest])};
        }
    }
}

const BestMatchTable& Generated(const TableRule& rule, BestMatchTable& table)
{
    BuildTable(rule, table);
    return table;
}

TableRule RGBRule(int bitsA, int bitsB, bool ordered)
{
    const Limit limit = ordered ? Limit::OrderedWithin : Limit::Within;
    return {ChannelValues(bitsA), ChannelValues(bitsB), limit, limit, 9, 25};
}

std::vector<int> AlphaSteps(int first, bool with255)
{
    std::vector<int> values;
    for (int k = 0; k < 8; ++k)
        values.push_back(first + 34 * k);
    if (with255)
        values.push_back(255);
    return values;
}

// Sum of the error bytes of sub-entry s for the colour in the four tables.
int Score(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour, int s)
{
    int score = alpha ? alpha[s].error : (*tables[3])[colour[3]][s].error;
    for (int c = 0; c < 3; ++c)
        score += (*tables[c])[colour[c]][s].error;
    return score;
}

BestMatch Entry(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour, int c,
                int s)
{
    return c == 3 && alpha ? alpha[s] : (*tables[c])[colour[c]][s];
}

// Steps 2 to 6 of the choice: scores, the preferred sub-entry, the pair.
void ChooseAndRead(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour,
                   bool isPunchThroughMode, bool preferSwap, unsigned char* outA, unsigned char* outB)
{
    int score[8];
    for (int s = 0; s < 8; ++s)
        score[s] = Score(tables, alpha, colour, s);
    int best = score[0] < score[4] ? 0 : 4;
    if (isPunchThroughMode)
    {
        if (score[2] < score[best])
            best = 2;
    }
    else if (score[1] < score[best] || score[3] < score[best])
    {
        if (score[1] != score[3])
            best = score[1] < score[3] ? 1 : 3;
        else
        {
            // The pairs lying closer together win the tie.
            auto spread = [&](int s) {
                int sum = 0;
                for (int c = 0; c < 4; ++c)
                {
                    const BestMatch entry = Entry(tables, alpha, colour, c, s);
                    sum += (entry.a - entry.b) * (entry.a - entry.b);
                }
                return sum;
            };
            best = spread(1) < spread(3) ? 1 : 3;
        }
    }
    if (!preferSwap && best >= 1 && best <= 3)
        best += 4; // the wider pairs for the same weight
    for (int c = 0; c < 4; ++c)
    {
        const BestMatch entry = Entry(tables, alpha, colour, c, best);
        outA[c] = entry.a;
        outB[c] = entry.b;
    }
}

} // namespace

// ---- Oriented bounding boxes ----

void InitOrientedBBox(OrientedBBox& box, const float (*axes)[4])
{
    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
            box.axes[i][j] = axes[i][j];
        box.minimum[i] = FLT_MAX;
        box.maximum[i] = -FLT_MAX;
    }
}

void InitOrientedBBoxToSingleColour(OrientedBBox& box, const unsigned char* colour)
{
    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
            box.axes[i][j] = i == j ? 1.0f : 0.0f;
        box.minimum[i] = box.maximum[i] = float(colour[i]);
    }
}

bool OrientedBBoxIsEmpty(const OrientedBBox& box)
{
    return box.minimum[0] > box.maximum[0];
}

void AddFColourToOrientedBBox(OrientedBBox& box, const float* colour)
{
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], colour);
        box.minimum[i] = std::min(box.minimum[i], projection);
        box.maximum[i] = std::max(box.maximum[i], projection);
    }
}

OrientedBoxAdder::OrientedBoxAdder(OrientedBBox& box) : box_(box)
{
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 4; ++i)
            columns_[k][i] = box.axes[i][k];
    std::copy_n(box.minimum, 4, minimum_);
    std::copy_n(box.maximum, 4, maximum_);
}

void OrientedBoxAdder::Add(const float* colour)
{
#if ORBT_X86_SIMD
    // Each axis in its lane, its products added in Dot's order.
    __m128 projection = _mm_mul_ps(_mm_load_ps(columns_[0]), _mm_set1_ps(colour[0]));
    for (int k = 1; k < 4; ++k)
        projection = _mm_add_ps(projection, _mm_mul_ps(_mm_load_ps(columns_[k]), _mm_set1_ps(colour[k])));
    // std::min (a, b) is b < a ? b : a, as minps (b, a).
    _mm_store_ps(minimum_, _mm_min_ps(projection, _mm_load_ps(minimum_)));
    _mm_store_ps(maximum_, _mm_max_ps(projection, _mm_load_ps(maximum_)));
#else
    for (int i = 0; i < 4; ++i)
    {
        const float projection = columns_[0][i] * colour[0] + columns_[1][i] * colour[1] +
                                 columns_[2][i] * colour[2] + columns_[3][i] * colour[3];
        minimum_[i] = std::min(minimum_[i], projection);
        maximum_[i] = std::max(maximum_[i], projection);
    }
#endif
}

#if ORBT_X86_SIMD
namespace
{

// Bounds of the projections of colours [0, count), each colour's channels
// from 'channels' (as floats), in Add's order of products and sums.
template <typename Channels>
void AddAllSSE2(const float (*columns)[4], float* minimum, float* maximum, int count, Channels channels)
{
    const __m128 c0 = _mm_load_ps(columns[0]), c1 = _mm_load_ps(columns[1]);
    const __m128 c2 = _mm_load_ps(columns[2]), c3 = _mm_load_ps(columns[3]);
    __m128 low = _mm_load_ps(minimum), high = _mm_load_ps(maximum);
    for (int i = 0; i < count; ++i)
    {
        const __m128 colour = channels(i);
        __m128 projection = _mm_mul_ps(c0, _mm_shuffle_ps(colour, colour, _MM_SHUFFLE(0, 0, 0, 0)));
        projection = _mm_add_ps(projection, _mm_mul_ps(c1, _mm_shuffle_ps(colour, colour, _MM_SHUFFLE(1, 1, 1, 1))));
        projection = _mm_add_ps(projection, _mm_mul_ps(c2, _mm_shuffle_ps(colour, colour, _MM_SHUFFLE(2, 2, 2, 2))));
        projection = _mm_add_ps(projection, _mm_mul_ps(c3, _mm_shuffle_ps(colour, colour, _MM_SHUFFLE(3, 3, 3, 3))));
        low = _mm_min_ps(projection, low);
        high = _mm_max_ps(projection, high);
    }
    _mm_store_ps(minimum, low);
    _mm_store_ps(maximum, high);
}

} // namespace
#endif

void OrientedBoxAdder::AddAll(const float* colours, int count, int stride)
{
#if ORBT_X86_SIMD
    if (!OptimiserReference())
        return AddAllSSE2(columns_, minimum_, maximum_, count,
                          [colours, stride](int i) { return _mm_loadu_ps(colours + size_t(i) * stride); });
#endif
    for (int i = 0; i < count; ++i)
        Add(colours + size_t(i) * stride);
}

void OrientedBoxAdder::AddAll(const unsigned char* pixels, int count)
{
#if ORBT_X86_SIMD
    if (!OptimiserReference())
        return AddAllSSE2(columns_, minimum_, maximum_, count,
                          [pixels](int i) { return LoadPixelSSE2(pixels + 4 * i); });
#endif
    for (int i = 0; i < count; ++i)
    {
        float colour[4];
        ConvertIntPixelToFloat(pixels + 4 * i, colour);
        Add(colour);
    }
}

void OrientedBoxAdder::Finish()
{
    std::copy_n(minimum_, 4, box_.minimum);
    std::copy_n(maximum_, 4, box_.maximum);
}

void AddIColourToOrientedBBox(OrientedBBox& box, const unsigned char* colour)
{
    float value[4];
    ConvertIntPixelToFloat(colour, value);
    AddFColourToOrientedBBox(box, value);
}

void OffsetOrientedBBox(OrientedBBox& box, const unsigned char* colour)
{
    float value[4];
    ConvertIntPixelToFloat(colour, value);
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], value);
        box.minimum[i] += projection;
        box.maximum[i] += projection;
    }
}

float SizeOfOrientedBBox(const OrientedBBox& box)
{
    float size = 0.0f;
    for (int i = 0; i < 4; ++i)
        size += box.maximum[i] - box.minimum[i];
    return size;
}

void ClampToOrientedBBox(const OrientedBBox& box, float* colour)
{
    float projections[4];
    bool changed = false;
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], colour);
        projections[i] = std::min(std::max(projection, box.minimum[i]), box.maximum[i]);
        changed |= projections[i] != projection;
    }
    if (!changed)
        return;
    for (int j = 0; j < 4; ++j)
        colour[j] = projections[0] * box.axes[0][j] + projections[1] * box.axes[1][j] +
                    projections[2] * box.axes[2][j] + projections[3] * box.axes[3][j];
}

// ---- The word's colour grid ----

void MapToRepresentableColours(bool isGeneration2, const float* a, const float* b, unsigned char* outA,
                               unsigned char* outB)
{
    int alphaA = 255, alphaB = 255;
    bool translucentA = false, translucentB = false;
    if (!isGeneration2)
    {
        if (!(a[3] >= 246.0f && b[3] >= 246.0f))
        {
            alphaA = QuantiseAlpha(a[3], false);
            alphaB = QuantiseAlpha(b[3], false);
            translucentA = alphaA != 255;
            translucentB = alphaB != 255;
        }
    }
    else if (!(a[3] >= 246.0f && b[3] >= 238.0f))
    {
        alphaA = QuantiseAlpha(a[3], false);
        alphaB = QuantiseAlpha(b[3], true);
        if (alphaA != 255 || alphaB != 255)
        {
            translucentA = translucentB = true;
            alphaA &= 238; // A's 255 becomes 238
        }
    }
    const int bitsA[3] = {translucentA ? 4 : 5, translucentA ? 4 : 5, translucentA ? 3 : 4};
    const int bitsB = translucentB ? 4 : 5;
#if ORBT_X86_SIMD
    bool finite = true;
    for (int c = 0; c < 3; ++c)
        finite = finite && a[c] == a[c] && b[c] == b[c];
    if (finite && !OptimiserReference())
        QuantiseColourPairs(a, b, bitsA, bitsB, outA, outB);
    else
#endif
        for (int c = 0; c < 3; ++c)
            QuantisePair(a[c], b[c], bitsA[c], bitsB, outA[c], outB[c]);
    outA[3] = static_cast<unsigned char>(alphaA);
    outB[3] = static_cast<unsigned char>(alphaB);
}

void MapToRepresentableColoursInt(bool isGeneration2, const unsigned char* a, const unsigned char* b,
                                  unsigned char* outA, unsigned char* outB)
{
    float fa[4], fb[4];
    ConvertIntPixelToFloat(a, fa);
    ConvertIntPixelToFloat(b, fb);
    MapToRepresentableColours(isGeneration2, fa, fb, outA, outB);
}

// ---- Two representatives from a line through the pixels ----

namespace
{

// Moments of entries [first, end) from the running sums.
struct Moments
{
    double weight = 0.0, first = 0.0, second = 0.0;
};

Moments Range(const PixelInfo* entries, int first, int end)
{
    Moments m;
    if (end <= first)
        return m;
    m.weight = entries[end - 1].sumWeight;
    m.first = entries[end - 1].sumFirst;
    m.second = entries[end - 1].sumSecond;
    if (first > 0)
    {
        m.weight -= entries[first - 1].sumWeight;
        m.first -= entries[first - 1].sumFirst;
        m.second -= entries[first - 1].sumSecond;
    }
    return m;
}

// First entry whose projection is at least 'value'.
int Cut(const PixelInfo* entries, int count, float value)
{
    return int(std::lower_bound(entries, entries + count, value,
                                [](const PixelInfo& e, float v) { return e.projection < v; }) -
               entries);
}

#if ORBT_X86_SIMD
// Counts below each of three values over 'padded' (a multiple of 4) floats.
void CountBelowSSE2(const float* values, int padded, const float* boundaries, int* cuts)
{
    const __m128 b0 = _mm_set1_ps(boundaries[0]), b1 = _mm_set1_ps(boundaries[1]);
    const __m128 b2 = _mm_set1_ps(boundaries[2]);
    __m128i c0 = _mm_setzero_si128(), c1 = c0, c2 = c0;
    for (int i = 0; i < padded; i += 4)
    {
        const __m128 v = _mm_load_ps(values + i);
        c0 = _mm_sub_epi32(c0, _mm_castps_si128(_mm_cmplt_ps(v, b0)));
        c1 = _mm_sub_epi32(c1, _mm_castps_si128(_mm_cmplt_ps(v, b1)));
        c2 = _mm_sub_epi32(c2, _mm_castps_si128(_mm_cmplt_ps(v, b2)));
    }
    // Lane sums: c0 and c1 interleaved, then c2.
    const __m128i pairs = _mm_add_epi32(_mm_unpacklo_epi32(c0, c1), _mm_unpackhi_epi32(c0, c1));
    const __m128i two = _mm_add_epi32(pairs, _mm_shuffle_epi32(pairs, _MM_SHUFFLE(1, 0, 3, 2)));
    const __m128i three = _mm_add_epi32(c2, _mm_shuffle_epi32(c2, _MM_SHUFFLE(1, 0, 3, 2)));
    cuts[0] = _mm_cvtsi128_si32(two);
    cuts[1] = _mm_cvtsi128_si32(_mm_shuffle_epi32(two, _MM_SHUFFLE(1, 1, 1, 1)));
    cuts[2] = _mm_cvtsi128_si32(_mm_add_epi32(three, _mm_shuffle_epi32(three, _MM_SHUFFLE(2, 3, 0, 1))));
}

ORBT_TARGET_AVX2 inline int LaneTotal(__m256i c)
{
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(c), _mm256_extracti128_si256(c, 1));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_cvtsi128_si32(_mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1))));
}

// The same over 'padded' (a multiple of 8) floats, eight at a time.
ORBT_TARGET_AVX2 void CountBelowAVX2(const float* values, int padded, const float* boundaries, int* cuts)
{
    const __m256 b0 = _mm256_set1_ps(boundaries[0]), b1 = _mm256_set1_ps(boundaries[1]);
    const __m256 b2 = _mm256_set1_ps(boundaries[2]);
    __m256i c0 = _mm256_setzero_si256(), c1 = c0, c2 = c0;
    for (int i = 0; i < padded; i += 8)
    {
        const __m256 v = _mm256_load_ps(values + i);
        c0 = _mm256_sub_epi32(c0, _mm256_castps_si256(_mm256_cmp_ps(v, b0, _CMP_LT_OQ)));
        c1 = _mm256_sub_epi32(c1, _mm256_castps_si256(_mm256_cmp_ps(v, b1, _CMP_LT_OQ)));
        c2 = _mm256_sub_epi32(c2, _mm256_castps_si256(_mm256_cmp_ps(v, b2, _CMP_LT_OQ)));
    }
    cuts[0] = LaneTotal(c0);
    cuts[1] = LaneTotal(c1);
    cuts[2] = LaneTotal(c2);
}
#endif

// The sorted projections in a flat array padded with infinities, where the
// first at least a value is the count of those below it, and the running
// sums with a leading zero, where a zone's moments are one difference.
struct Projections
{
    static constexpr int kMax = 160;
    alignas(32) float values[kMax];
    double weight[kMax + 1], first[kMax + 1], second[kMax + 1];
    // With AVX2 the running sums are kept as rows (weight, first, second, 0)
    // instead, a zone's three moments being one vector difference.
    alignas(32) double rows[kMax + 1][4];
    int count, padded;
    bool plain = OptimiserReference();
    bool avx2 = ActiveSimdPath() == eSimdAVX2;

    Projections(const PixelInfo* entries, int n) : count(n), padded((n + 7) / 8 * 8)
    {
        if (n > kMax || plain)
            return;
        for (int i = 0; i < n; ++i)
            values[i] = entries[i].projection;
        for (int i = n; i < padded; ++i)
            values[i] = std::numeric_limits<float>::infinity();
        if (avx2)
        {
            rows[0][0] = rows[0][1] = rows[0][2] = rows[0][3] = 0.0;
            for (int i = 0; i < n; ++i)
            {
                rows[i + 1][0] = entries[i].sumWeight;
                rows[i + 1][1] = entries[i].sumFirst;
                rows[i + 1][2] = entries[i].sumSecond;
                rows[i + 1][3] = 0.0;
            }
            return;
        }
        weight[0] = first[0] = second[0] = 0.0;
        for (int i = 0; i < n; ++i)
        {
            weight[i + 1] = entries[i].sumWeight;
            first[i + 1] = entries[i].sumFirst;
            second[i + 1] = entries[i].sumSecond;
        }
    }

    bool Flat() const { return count <= kMax && !plain; }

    // Entries [first, end): Range's sums, a - 0 and a - a being exact.
    Moments Zone(int from, int end) const
    {
        Moments m;
        m.weight = weight[end] - weight[from];
        m.first = first[end] - first[from];
        m.second = second[end] - second[from];
        return m;
    }

    // Cut for three values at once.
    void Cuts(const PixelInfo* entries, const float* boundaries, int* cuts) const
    {
        if (Flat())
        {
#if ORBT_X86_SIMD
            if (avx2)
                CountBelowAVX2(values, padded, boundaries, cuts);
            else
                CountBelowSSE2(values, padded, boundaries, cuts);
#else
            for (int k = 0; k < 3; ++k)
            {
                int below = 0;
                for (int i = 0; i < padded; ++i)
                    below += values[i] < boundaries[k] ? 1 : 0;
                cuts[k] = below;
            }
#endif
            return;
        }
        for (int k = 0; k < 3; ++k)
            cuts[k] = Cut(entries, count, boundaries[k]);
    }
};

constexpr double kLevelWeights[4] = {0.0, 0.375, 0.625, 1.0};

// One step of the quantiser from the pair (l, u): the pair's error over the
// zones it cuts, and the least-squares pair for those zones.
struct PartitionStep
{
    double error;
    float nextLower, nextUpper;
};

// The sums of the least squares for the ends given the zones, each zone's
// pixels at (1 - t) l + t u, taken zone by zone.
struct EndSums
{
    double a11, a12, a22, r1, r2, total, sum;
};

// The least-squares pair from the sums, in order and within the range; with
// all weight in one zone, the span about the mean.
PartitionStep FinishStep(double error, const EndSums& e, float l, float u, float minimum, float maximum, float span)
{
    const double determinant = e.a11 * e.a22 - e.a12 * e.a12;
    float nl, nu;
    if (std::fabs(determinant) > 1e-9 * e.total * e.total)
    {
        nl = float((e.a22 * e.r1 - e.a12 * e.r2) / determinant);
        nu = float((e.a11 * e.r2 - e.a12 * e.r1) / determinant);
    }
    else
    {
        const double centre = e.total > 0.0 ? e.sum / e.total : 0.5 * (l + u);
        nl = float(centre - 0.5 * span);
        nu = float(centre + 0.5 * span);
    }
    if (nl > nu)
        std::swap(nl, nu);
    nl = std::min(std::max(nl, minimum), maximum);
    nu = std::min(std::max(nu, minimum), maximum);
    return {error, nl, nu};
}

#if ORBT_X86_SIMD
// The step of a flat list with AVX2: every product and sum of the scalar step
// in its order, four at a time where they are independent (the levels, the
// zones' error terms, the sums of the least squares).
ORBT_TARGET_AVX2 PartitionStep StepAVX2(const Projections& p, float l, float u, float minimum, float maximum,
                                        double reciprocal, float span)
{
    const __m256d lower = _mm256_set1_pd(l), upper = _mm256_set1_pd(u);
    const __m256d t = _mm256_setr_pd(kLevelWeights[0], kLevelWeights[1], kLevelWeights[2], kLevelWeights[3]);
    const __m256d s = _mm256_setr_pd(1.0 - kLevelWeights[0], 1.0 - kLevelWeights[1], 1.0 - kLevelWeights[2],
                                     1.0 - kLevelWeights[3]);
    const __m256d levels = _mm256_add_pd(_mm256_mul_pd(s, lower), _mm256_mul_pd(t, upper));

    // Boundaries k = 1 to 3 at the midpoints, clamped as std::min(std::max(b, minimum), maximum).
    const __m256d next = _mm256_permute4x64_pd(levels, _MM_SHUFFLE(3, 3, 2, 1));
    __m128 middles = _mm256_cvtpd_ps(_mm256_mul_pd(_mm256_set1_pd(0.5), _mm256_add_pd(levels, next)));
    middles = _mm_min_ps(_mm_set1_ps(maximum), _mm_max_ps(_mm_set1_ps(minimum), middles));
    alignas(16) float boundaries[4];
    _mm_store_ps(boundaries, middles);
    int found[3];
    CountBelowAVX2(p.values, p.padded, boundaries, found);
    int cuts[5] = {0, 0, 0, 0, p.count};
    for (int k = 1; k < 4; ++k)
        cuts[k] = std::max(found[k - 1], cuts[k - 1]);

    __m256d zones[4];
    for (int k = 0; k < 4; ++k)
        zones[k] = _mm256_sub_pd(_mm256_load_pd(p.rows[cuts[k + 1]]), _mm256_load_pd(p.rows[cuts[k]]));

    // Error terms of the four zones side by side, then summed in zone order.
    const __m256d low01 = _mm256_unpacklo_pd(zones[0], zones[1]), high01 = _mm256_unpackhi_pd(zones[0], zones[1]);
    const __m256d low23 = _mm256_unpacklo_pd(zones[2], zones[3]), high23 = _mm256_unpackhi_pd(zones[2], zones[3]);
    const __m256d weights = _mm256_permute2f128_pd(low01, low23, 0x20);
    const __m256d seconds = _mm256_permute2f128_pd(low01, low23, 0x31);
    const __m256d firsts = _mm256_permute2f128_pd(high01, high23, 0x20);
    const __m256d terms = _mm256_max_pd(
        _mm256_add_pd(_mm256_sub_pd(seconds, _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(2.0), levels), firsts)),
                      _mm256_mul_pd(_mm256_mul_pd(levels, levels), weights)),
        _mm256_setzero_pd());
    alignas(32) double term[4];
    _mm256_store_pd(term, terms);
    double error = 0.0;
    for (int k = 0; k < 4; ++k)
        error += term[k];
    error *= reciprocal;

    // (a11, a12, a22, total) += (w s, w s, w t, w) (s, t, t, 1) and
    // (r1, r2, sum, -) += (s, t, 1, 0) f, zone by zone.
    __m256d squares = _mm256_setzero_pd(), rights = _mm256_setzero_pd();
    for (int k = 0; k < 4; ++k)
    {
        const double tk = kLevelWeights[k], sk = 1.0 - tk;
        const __m256d weight = _mm256_permute4x64_pd(zones[k], _MM_SHUFFLE(0, 0, 0, 0));
        const __m256d first = _mm256_permute4x64_pd(zones[k], _MM_SHUFFLE(1, 1, 1, 1));
        const __m256d scaled = _mm256_mul_pd(weight, _mm256_setr_pd(sk, sk, tk, 1.0));
        squares = _mm256_add_pd(squares, _mm256_mul_pd(scaled, _mm256_setr_pd(sk, tk, tk, 1.0)));
        rights = _mm256_add_pd(rights, _mm256_mul_pd(_mm256_setr_pd(sk, tk, 1.0, 0.0), first));
    }
    alignas(32) double square[4], right[4];
    _mm256_store_pd(square, squares);
    _mm256_store_pd(right, rights);
    const EndSums sums{square[0], square[1], square[2], right[0], right[1], square[3], right[2]};
    return FinishStep(error, sums, l, u, minimum, maximum, span);
}
#endif

// The steps of one sorted list. A step is a pure function of (l, u), so the
// starts of a multi-start search that meet on a pair share its step through
// a small table, keyed by the pair's bits and cleared by a generation count.
class PartitionSearch
{
  public:
    PartitionSearch(const PixelInfo* entries, int count, double reciprocalWeight, float minimum, float maximum,
                    float span, bool remember)
        : entries_(entries), count_(count), reciprocal_(reciprocalWeight), minimum_(minimum), maximum_(maximum),
          span_(span), projections_(entries, count), remember_(remember && !projections_.plain),
          table_(remember_ ? &Memo() : nullptr)
    {
        if (remember_ && ++table_->generation == 0)
        {
            for (Slot& slot : table_->slots)
                slot.generation = 0;
            table_->generation = 1;
        }
    }

    double Run(float& lower, float& upper) const
    {
        if (count_ < 2 || minimum_ == maximum_)
            return 0.0;
        float l = lower, u = upper;
        double best = -1.0;
        float bestLower = l, bestUpper = u;
        int stale = 0;
        for (int step = 0; step < 20; ++step)
        {
            const PartitionStep next = Step(l, u);
            if (best < 0.0 || next.error < best)
            {
                best = next.error;
                bestLower = l;
                bestUpper = u;
                stale = 0;
            }
            else if (++stale > 3)
                break;
            if (next.nextLower == l && next.nextUpper == u)
                break;
            l = next.nextLower;
            u = next.nextUpper;
        }
        lower = bestLower;
        upper = bestUpper;
        return best;
    }

  private:
    static constexpr unsigned kSlotBits = 9;
    struct Slot
    {
        uint32_t generation, lower, upper;
        PartitionStep step;
    };
    struct Table
    {
        uint32_t generation = 0;
        Slot slots[1u << kSlotBits] = {};
    };
    static Table& Memo()
    {
        thread_local Table table;
        return table;
    }

    PartitionStep Step(float l, float u) const
    {
        if (!remember_)
            return Compute(l, u);
        uint32_t lowerBits, upperBits;
        std::memcpy(&lowerBits, &l, 4);
        std::memcpy(&upperBits, &u, 4);
        Table& table = *table_;
        uint32_t index = (lowerBits * 0x9E3779B1u ^ upperBits * 0x85EBCA77u) >> (32 - kSlotBits);
        // A search meets about a hundred pairs; a full neighbourhood of the
        // table computes the step without keeping it.
        for (int probe = 0; probe < 8; ++probe, index = (index + 1) & ((1u << kSlotBits) - 1))
        {
            Slot& slot = table.slots[index];
            if (slot.generation != table.generation)
            {
                slot = {table.generation, lowerBits, upperBits, Compute(l, u)};
                return slot.step;
            }
            if (slot.lower == lowerBits && slot.upper == upperBits)
                return slot.step;
        }
        return Compute(l, u);
    }

    PartitionStep Compute(float l, float u) const
    {
#if ORBT_X86_SIMD
        if (projections_.avx2 && projections_.Flat())
            return StepAVX2(projections_, l, u, minimum_, maximum_, reciprocal_, span_);
#endif
        // Zones between the midpoints of the levels, limited to the range.
        double levels[4];
        for (int k = 0; k < 4; ++k)
            levels[k] = (1.0 - kLevelWeights[k]) * l + kLevelWeights[k] * u;
        int cuts[5] = {0, 0, 0, 0, count_};
        float boundaries[3];
        for (int k = 1; k < 4; ++k)
            boundaries[k - 1] = std::min(std::max(float(0.5 * (levels[k - 1] + levels[k])), minimum_), maximum_);
        int found[3];
        projections_.Cuts(entries_, boundaries, found);
        for (int k = 1; k < 4; ++k)
            cuts[k] = std::max(found[k - 1], cuts[k - 1]);
        Moments zones[4];
        double error = 0.0;
        const bool flat = projections_.Flat();
        for (int k = 0; k < 4; ++k)
        {
            zones[k] = flat ? projections_.Zone(cuts[k], cuts[k + 1]) : Range(entries_, cuts[k], cuts[k + 1]);
            error += std::max(0.0, zones[k].second - 2.0 * levels[k] * zones[k].first +
                                       levels[k] * levels[k] * zones[k].weight);
        }
        error *= reciprocal_;

        EndSums sums{};
        for (int k = 0; k < 4; ++k)
        {
            const double t = kLevelWeights[k], s = 1.0 - t;
            sums.a11 += zones[k].weight * s * s;
            sums.a12 += zones[k].weight * s * t;
            sums.a22 += zones[k].weight * t * t;
            sums.r1 += s * zones[k].first;
            sums.r2 += t * zones[k].first;
            sums.total += zones[k].weight;
            sums.sum += zones[k].first;
        }
        return FinishStep(error, sums, l, u, minimum_, maximum_, span_);
    }

    const PixelInfo* entries_;
    int count_;
    double reciprocal_;
    float minimum_, maximum_, span_;
    Projections projections_;
    bool remember_;
    Table* table_;
};

} // namespace

double ImprovePartition(const PixelInfo* entries, int count, float& lower, double reciprocalWeight, float minimum,
                        float maximum, float span, float& upper)
{
    return PartitionSearch(entries, count, reciprocalWeight, minimum, maximum, span, false).Run(lower, upper);
}

void PickRepsByProjectingPixelsOntoAxis(const CompressParams& params, bool excludeTransparent, bool multiStart,
                                        bool /*unused*/, const unsigned char* window, const float* weights,
                                        int pixelCount, const float* axis, int reportIndex, int* report,
                                        unsigned char* outA, unsigned char* outB)
{
    auto transparent = [&](const unsigned char* p) {
        if (params.bitsPerPixel == 2)
            return false;
        return params.isGeneration2 ? (p[0] | p[1] | p[2] | p[3]) == 0 : p[3] == 0;
    };
    auto project = [axis](const unsigned char* p) {
        const float projection =
            float(p[0]) * axis[0] + float(p[1]) * axis[1] + float(p[2]) * axis[2] + float(p[3]) * axis[3];
        return std::isfinite(projection) ? projection : 0.0f; // a NaN axis must not break the sort's order
    };
    // The list of a thread's last call, kept for its capacity; filled
    // through one reference, so that the thread's storage is found once.
    thread_local std::vector<PixelInfo> kept;
    std::vector<PixelInfo>& entries = kept;
    entries.resize(size_t(std::max(pixelCount, 0)));
    double weightSum = 0.0;
    size_t listed = 0;
    for (int i = 0; i < pixelCount; ++i)
    {
        const unsigned char* p = window + 4 * i;
        if (weights[i] == 0.0f || (excludeTransparent && params.bitsPerPixel == 4 && transparent(p)))
            continue;
        PixelInfo& e = entries[listed++];
        e.projection = project(p);
        e.weight = std::fabs(weights[i]);
        e.index = i;
        weightSum += std::fabs(weights[i]);
    }
    entries.resize(listed);
    if (entries.empty())
    {
        std::fill_n(outA, 4, 0);
        std::fill_n(outB, 4, 0);
        return;
    }
    const double reciprocal = weightSum == 0.0 ? 1.0 : 1.0 / weightSum;
    if (OptimiserReference())
        std::sort(entries.begin(), entries.end(), [](const PixelInfo& x, const PixelInfo& y) {
            return x.projection != y.projection ? x.projection < y.projection : x.index < y.index;
        });
    else
    {
        // The same order through 64-bit keys: the projection's bits made
        // to order as unsigned integers (-0 counted as +0, as the float
        // comparison does), then the entry's place, which follows the index.
        thread_local std::vector<uint64_t> keptKeys;
        thread_local std::vector<PixelInfo> keptSorted;
        std::vector<uint64_t>& keys = keptKeys;
        std::vector<PixelInfo>& sorted = keptSorted;
        keys.resize(entries.size());
        sorted.resize(entries.size());
        for (size_t k = 0; k < entries.size(); ++k)
        {
            const float projection = entries[k].projection + 0.0f;
            uint32_t bits;
            std::memcpy(&bits, &projection, 4);
            bits = bits & 0x80000000u ? ~bits : bits | 0x80000000u;
            keys[k] = uint64_t(bits) << 32 | k;
        }
        std::sort(keys.begin(), keys.end());
        for (size_t k = 0; k < entries.size(); ++k)
            sorted[k] = entries[uint32_t(keys[k])];
        entries.swap(sorted);
    }
    double w = 0.0, first = 0.0, second = 0.0;
    for (PixelInfo& e : entries)
    {
        w += e.weight;
        first += double(e.weight) * e.projection;
        second += double(e.weight) * e.projection * e.projection;
        e.sumWeight = w;
        e.sumFirst = first;
        e.sumSecond = second;
    }
    const int count = int(entries.size());
    const float minimum = entries.front().projection, maximum = entries.back().projection;

    // The weighted mean splits the list; the halves' means start the fit.
    const float mean = float(first / w);
    const int split = Cut(entries.data(), count, mean);
    const Moments below = Range(entries.data(), 0, split), above = Range(entries.data(), split, count);
    float lower = below.weight > 0.0 ? float(below.first / below.weight) : mean;
    float upper = above.weight > 0.0 ? float(above.first / above.weight) : mean;
    const float span = maximum - minimum;
    const PartitionSearch search(entries.data(), count, reciprocal, minimum, maximum, span, multiStart);
    double best = search.Run(lower, upper);
    if (multiStart)
    {
        float points[8];
        for (int k = 0; k < 8; ++k)
            points[k] = std::min(std::max(((7 - k) * minimum + k * maximum) / 7.0f, minimum), maximum);
        for (int i = 0; i < 8; ++i)
            for (int j = i + 1; j < 8; ++j)
            {
                if (!(points[i] < points[j]))
                    continue;
                float l = points[i], u = points[j];
                const double error = search.Run(l, u);
                if (error < best)
                    best = error, lower = l, upper = u;
            }
    }
    if (report && reportIndex >= 0 && reportIndex < pixelCount)
    {
        const float projection = project(window + 4 * reportIndex);
        *report = upper == lower          ? 4
                  : projection <= lower ? 0
                  : projection >= upper ? 8
                                        : int(std::floor(8.0f * (projection - lower) / (upper - lower)));
    }

    // Ends moved inward, then the mean colours beyond them (one pixel at least).
    const float innerA = std::min(std::max(0.8125f * lower + 0.1875f * upper, lower), upper);
    const float innerB = std::min(std::max(0.1875f * lower + 0.8125f * upper, lower), upper);
    auto meanColour = [&](bool fromStart, float* colour) {
        double sums[4] = {}, weight = 0.0;
        for (int k = 0; k < count; ++k)
        {
            const PixelInfo& e = entries[fromStart ? k : count - 1 - k];
            if (k > 0 && (fromStart ? !(e.projection < innerA) : !(e.projection > innerB)))
                break;
            const unsigned char* p = window + 4 * e.index;
            for (int c = 0; c < 4; ++c)
                sums[c] += double(e.weight) * p[c];
            weight += e.weight;
        }
        for (int c = 0; c < 4; ++c)
            colour[c] = float(weight > 0.0 ? sums[c] / weight : 0.0);
    };
    float a[4], b[4];
    meanColour(true, a);
    meanColour(false, b);
    const float order = (b[0] * b[0] - a[0] * a[0]) + (b[1] * b[1] - a[1] * a[1]) + (b[2] * b[2] - a[2] * a[2]) +
                        4.0f * (b[3] * b[3] - a[3] * a[3]);
    if (order < 0.0f)
        std::swap(a, b);
    MapToRepresentableColours(params.isGeneration2 != 0, a, b, outA, outB);
}

// ---- Local palettes ----

const unsigned char PalettePixels4bpp[81] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, //
    0, 0, 0, 1, 1, 1, 0, 0, 0, //
    0, 0, 1, 1, 1, 1, 1, 0, 0, //
    0, 1, 1, 1, 1, 1, 1, 1, 0, //
    0, 1, 1, 1, 1, 1, 1, 1, 0, //
    0, 1, 1, 1, 1, 1, 1, 1, 0, //
    0, 0, 1, 1, 1, 1, 1, 0, 0, //
    0, 0, 0, 1, 1, 1, 0, 0, 0, //
    0, 0, 0, 0, 0, 0, 0, 0, 0, //
};

namespace
{

// The optimiser's pixel error: red, green and blue squared, plus the alpha
// difference times 1 (source alpha 1 to 254) or 30 (0 or 255), squared.
int PixelError(const unsigned char* source, const unsigned char* colour)
{
    const int w = source[3] >= 1 && source[3] <= 254 ? 1 : 30;
    int sum = 0;
    for (int c = 0; c < 3; ++c)
        sum += (source[c] - colour[c]) * (source[c] - colour[c]);
    const int alpha = (source[3] - colour[3]) * w;
    return sum + alpha * alpha;
}

// The nearest level of an n-bit channel; on a tie the upper when 'up'.
int SearchNearestLevel(int v, int bits, bool up)
{
    int best = 0, bestDistance = 1 << 30;
    for (int x = 0; x < (1 << bits); ++x)
    {
        const int level = ExpandBits(x, bits), distance = std::abs(v - level);
        if (distance < bestDistance || (distance == bestDistance && up))
            best = level, bestDistance = distance;
    }
    return best;
}

// The same for 4 and 5 bits from a table built once (the plain path searches).
int NearestLevel(int v, int bits, bool up)
{
    static const auto table = [] {
        std::vector<uint8_t> levels(2 * 2 * 256);
        for (int b = 0; b < 2; ++b)
            for (int u = 0; u < 2; ++u)
                for (int x = 0; x < 256; ++x)
                    levels[(b * 2 + u) * 256 + x] = uint8_t(SearchNearestLevel(x, 4 + b, u != 0));
        return levels;
    }();
    if (v < 0 || v > 255 || (bits != 4 && bits != 5) || OptimiserReference())
        return SearchNearestLevel(v, bits, up);
    return table[((bits - 4) * 2 + (up ? 1 : 0)) * 256 + v];
}

struct PaletteEntry
{
    unsigned char colour[4];
    int64_t sums[4];
    int64_t pixels;
};

// No entry is nearer than this: a pixel at least this far from all joins none.
constexpr int kPaletteFar = 0x40000;

// The masked pixels of the window, channels apart as floats, four at a time.
// A distance is exact in float below 2^24 and at least 2^24 above it, so
// its comparisons with distances below kPaletteFar are the integers'.
struct PalettePixels
{
    static constexpr int kMax = 84;
    alignas(16) float red[kMax], green[kMax], blue[kMax], alpha[kMax], alphaWeight[kMax];
    // The channels times the pixel's weight in the means (8 for pixel 20),
    // then the weight; 0 in the padding.
    alignas(16) int32_t weighted[5][kMax];
    int index[kMax];
    int count = 0;

    PalettePixels(const unsigned char* window, const unsigned char* mask)
    {
        for (int i = 0; i < 81; ++i)
            if (mask[i])
            {
                const unsigned char* p = window + 4 * i;
                red[count] = p[0], green[count] = p[1], blue[count] = p[2], alpha[count] = p[3];
                alphaWeight[count] = p[3] >= 1 && p[3] <= 254 ? 1.0f : 30.0f;
                const int weight = i == 20 ? 8 : 1;
                for (int c = 0; c < 4; ++c)
                    weighted[c][count] = weight * p[c];
                weighted[4][count] = weight;
                index[count++] = i;
            }
        for (int k = count; k % 4 != 0; ++k)
        {
            red[k] = green[k] = blue[k] = alpha[k] = 0.0f, alphaWeight[k] = 1.0f, index[k] = -1;
            for (int c = 0; c < 5; ++c)
                weighted[c][k] = 0;
        }
    }

    // Each entry's weighted channel sums and weight over the pixels nearest
    // to it (whole numbers: any order of adding gives the same).
    void Gather(const int* nearest, PaletteEntry* entries, int entryCount) const
    {
        for (int e = 0; e < entryCount; ++e)
        {
            int32_t sums[5] = {};
#if ORBT_X86_SIMD
            __m128i lanes[5] = {};
            const __m128i which = _mm_set1_epi32(e);
            for (int k = 0; k < count; k += 4)
            {
                const __m128i mine =
                    _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(nearest + k)), which);
                for (int c = 0; c < 5; ++c)
                {
                    const __m128i values = _mm_load_si128(reinterpret_cast<const __m128i*>(weighted[c] + k));
                    lanes[c] = _mm_add_epi32(lanes[c], _mm_and_si128(mine, values));
                }
            }
            for (int c = 0; c < 5; ++c)
            {
                alignas(16) int32_t four[4];
                _mm_store_si128(reinterpret_cast<__m128i*>(four), lanes[c]);
                sums[c] = four[0] + four[1] + four[2] + four[3];
            }
#else
            for (int k = 0; k < count; ++k)
                if (nearest[k] == e)
                    for (int c = 0; c < 5; ++c)
                        sums[c] += weighted[c][k];
#endif
            for (int c = 0; c < 4; ++c)
                entries[e].sums[c] = sums[c];
            entries[e].pixels = sums[4];
        }
    }

    // Each pixel's nearest entry (the first of the least distance, -1 for
    // none) and that distance, at most kPaletteFar.
    void Nearest(const PaletteEntry* entries, int entryCount, int* nearest, int* distance) const
    {
        for (int k = 0; k < count; k += 4)
        {
#if ORBT_X86_SIMD
            __m128 best = _mm_set1_ps(float(kPaletteFar));
            __m128i which = _mm_set1_epi32(-1);
            const __m128 r = _mm_load_ps(red + k), g = _mm_load_ps(green + k), b = _mm_load_ps(blue + k);
            const __m128 a = _mm_load_ps(alpha + k), w = _mm_load_ps(alphaWeight + k);
            for (int e = 0; e < entryCount; ++e)
            {
                const unsigned char* c = entries[e].colour;
                const __m128 dr = _mm_sub_ps(r, _mm_set1_ps(c[0])), dg = _mm_sub_ps(g, _mm_set1_ps(c[1]));
                const __m128 db = _mm_sub_ps(b, _mm_set1_ps(c[2]));
                const __m128 da = _mm_mul_ps(_mm_sub_ps(a, _mm_set1_ps(c[3])), w);
                const __m128 d = _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(dr, dr), _mm_mul_ps(dg, dg)),
                                                       _mm_mul_ps(db, db)),
                                            _mm_mul_ps(da, da));
                const __m128 nearer = _mm_cmplt_ps(d, best);
                best = _mm_or_ps(_mm_and_ps(nearer, d), _mm_andnot_ps(nearer, best));
                which = _mm_or_si128(_mm_and_si128(_mm_castps_si128(nearer), _mm_set1_epi32(e)),
                                     _mm_andnot_si128(_mm_castps_si128(nearer), which));
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(nearest + k), which);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(distance + k), _mm_cvttps_epi32(best));
#else
            for (int j = k; j < k + 4; ++j)
            {
                nearest[j] = -1, distance[j] = kPaletteFar;
                for (int e = 0; e < entryCount; ++e)
                {
                    const unsigned char* c = entries[e].colour;
                    const float dr = red[j] - c[0], dg = green[j] - c[1], db = blue[j] - c[2];
                    const float da = (alpha[j] - c[3]) * alphaWeight[j];
                    const float d = dr * dr + dg * dg + db * db + da * da;
                    if (d < float(distance[j]))
                        distance[j] = int(d), nearest[j] = e;
                }
            }
#endif
        }
    }
};

} // namespace

int GeneratePaletteEntries(const RegionStats& region, const unsigned char* window, const unsigned char* mask,
                           int pixelCount, int maximumEntries, int threshold, unsigned char (*out)[4])
{
    if (pixelCount != 81)
        // Ends the process: only the 81-pixel window of 4bpp reaches here.
        std::exit(0);
    maximumEntries = std::min(std::max(maximumEntries, 1), 5);
    const float* axis = region.AllBox.box.axes[0];
    auto pixel = [window](int i) { return window + 4 * i; };

    // Start from the lowest and highest masked pixels on the main axis.
    int lowest = -1, highest = -1;
    float low = 0.0f, high = 0.0f;
    for (int i = 0; i < 81; ++i)
    {
        if (!mask[i])
            continue;
        const unsigned char* p = pixel(i);
        const float projection = p[0] * axis[0] + p[1] * axis[1] + p[2] * axis[2] + p[3] * axis[3];
        if (lowest < 0 || projection < low)
            lowest = i, low = projection;
        if (highest < 0 || projection > high)
            highest = i, high = projection;
    }
    if (lowest < 0)
        return 0;
    PaletteEntry entries[6] = {};
    std::copy(pixel(lowest), pixel(lowest) + 4, entries[0].colour);
    std::copy(pixel(highest), pixel(highest) + 4, entries[1].colour);
    // Equal entries go from the start too: a flat window has one.
    int count = std::equal(pixel(lowest), pixel(lowest) + 4, pixel(highest)) ? 1 : 2;
    // The fast path measures the masked pixels four at a time.
    const PalettePixels fast(window, mask);
    const PalettePixels* masked = OptimiserReference() ? nullptr : &fast;

    for (int repeatsLeft = 2 * maximumEntries + 1; repeatsLeft-- > 0;)
    {
        for (int e = 0; e < count; ++e)
        {
            std::fill_n(entries[e].sums, 4, 0);
            entries[e].pixels = 0;
        }
        // Each pixel joins its nearest entry (the block's first pixel, 20,
        // eight times over); the farthest pixel is the last of the largest
        // nearest distance.
        int farthest = -1, farthestDistance = -1;
        if (masked)
        {
            int nearest[PalettePixels::kMax], distance[PalettePixels::kMax];
            masked->Nearest(entries, count, nearest, distance);
            masked->Gather(nearest, entries, count);
            for (int k = 0; k < masked->count; ++k)
                if (distance[k] >= farthestDistance)
                    farthestDistance = distance[k], farthest = masked->index[k];
        }
        for (int i = 0; i < 81 && !masked; ++i)
        {
            if (!mask[i])
                continue;
            int nearest = -1, best = kPaletteFar;
            for (int e = 0; e < count; ++e)
            {
                const int d = PixelError(pixel(i), entries[e].colour);
                if (d < best)
                    best = d, nearest = e;
            }
            if (nearest >= 0)
            {
                const int weight = i == 20 ? 8 : 1;
                for (int c = 0; c < 4; ++c)
                    entries[nearest].sums[c] += int64_t(weight) * pixel(i)[c];
                entries[nearest].pixels += weight;
            }
            if (best >= farthestDistance)
                farthestDistance = best, farthest = i;
        }
        const bool last = farthestDistance <= threshold || repeatsLeft == 0;
        if (last)
            std::stable_sort(entries, entries + count,
                             [](const PaletteEntry& x, const PaletteEntry& y) { return x.pixels < y.pixels; });
        // Means on the palette's grid.
        for (int e = 0; e < count; ++e)
        {
            if (entries[e].pixels == 0)
                continue;
            int mean[4];
            for (int c = 0; c < 4; ++c)
                mean[c] = int((entries[e].sums[c] * 2 + entries[e].pixels) / (entries[e].pixels * 2)); // rounded
            const bool opaque = mean[3] > 249;
            for (int c = 0; c < 3; ++c)
                entries[e].colour[c] =
                    static_cast<unsigned char>(NearestLevel(mean[c], opaque ? 5 : 4, c < 2)); // red, green up on a tie
            entries[e].colour[3] = static_cast<unsigned char>(opaque ? 255 : QuantiseAlpha(float(mean[3]), false));
        }
        // Equal entries go, the last taking a removed one's place.
        for (int i = 0; i < count; ++i)
            for (int j = i + 1; j < count;)
                if (std::equal(entries[i].colour, entries[i].colour + 4, entries[j].colour))
                    entries[j] = entries[--count];
                else
                    ++j;
        if (last)
            break;
        if (count < maximumEntries && repeatsLeft % 2 == 1)
        {
            std::copy(pixel(farthest), pixel(farthest) + 4, entries[count].colour);
            ++count;
        }
    }
    count = std::min(count, maximumEntries); // the two starting entries may exceed a maximum of 1
    for (int e = 0; e < count; ++e)
        std::copy(entries[e].colour, entries[e].colour + 4, out[e]);
    return count;
}

// ---- Best matches ----

const BestMatch FullAlphaBlends[8] = {{0, 255, 255}, {0, 255, 255}, {0, 255, 255}, {0, 255, 255},
                                      {0, 255, 255}, {0, 255, 255}, {0, 255, 255}, {0, 255, 255}};

const BestMatchTable& BestMatches_RGB_5_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(5, 5, true), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_4_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(4, 5, false), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_4_4()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(4, 4, true), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_3_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(3, 5, false), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_3_4()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(3, 4, false), table);
    return built;
}
const BestMatchTable& BestMatches_Alpha_TC1_3_3()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(
        {AlphaSteps(0, false), AlphaSteps(0, true), Limit::Within, Limit::OrderedOrOpaque, 17, 34}, table);
    return built;
}
const BestMatchTable& BestMatches_Alpha_TC2_3_3()
{
    static BestMatchTable table;
    static const BestMatchTable& built =
        Generated({AlphaSteps(0, false), AlphaSteps(17, false), Limit::Within, Limit::Within, 34, 51}, table);
    return built;
}

void GetSingleColourBestMatchReps(const unsigned char* colour, bool isPunchThroughMode, bool isGeneration2,
                                  bool preferSwap, unsigned char* outA, unsigned char* outB, void* /*scratch*/)
{
    if (colour[3] >= 248)
    {
        const BestMatchTable* const tables[4] = {&BestMatches_RGB_5_5(), &BestMatches_RGB_5_5(), &BestMatches_RGB_4_5(),
                                                 nullptr};
        ChooseAndRead(tables, FullAlphaBlends, colour, isPunchThroughMode, preferSwap, outA, outB);
        return;
    }
    const BestMatchTable* const tables[4] = {&BestMatches_RGB_4_4(), &BestMatches_RGB_4_4(), &BestMatches_RGB_3_4(),
                                             isGeneration2 ? &BestMatches_Alpha_TC2_3_3()
                                                           : &BestMatches_Alpha_TC1_3_3()};
    ChooseAndRead(tables, nullptr, colour, isPunchThroughMode, preferSwap, outA, outB);
    if (!isGeneration2 && outB[3] == 255)
    {
        // An opaque B keeps 5 bits a channel: choose again in those forms.
        const BestMatchTable* const opaqueB[4] = {&BestMatches_RGB_4_5(), &BestMatches_RGB_4_5(),
                                                  &BestMatches_RGB_3_5(), &BestMatches_Alpha_TC1_3_3()};
        ChooseAndRead(opaqueB, nullptr, colour, isPunchThroughMode, preferSwap, outA, outB);
        outB[3] = 255;
    }
}

} // namespace orbtexture
