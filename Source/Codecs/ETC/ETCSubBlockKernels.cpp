// Kernels of the fast sub-block searches: the eight tables of a colour in
// lanes. Every error is below 2^31, so signed compares serve for unsigned
// values; all paths give the same sums.

#include "Codecs/ETC/ETCSubBlockKernels.h"

#include "Codecs/ETC/ETCLanes.h"

#include <algorithm>

#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

// ---- Portable ----

void LeastPortable(const unsigned int* a, const unsigned int* b, const int* pixels, unsigned int* sum,
                   unsigned int* least)
{
    unsigned int total[8] = {};
    for (int i = 0; i < 8; ++i)
    {
        unsigned int m[8] = {~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u};
        for (int k = 0; k < 4; ++k)
            for (int t = 0; t < 8; ++t)
            {
                const size_t at = size_t(pixels[i]) + size_t(k) * 8 + size_t(t);
                const unsigned int v = b ? a[at] + b[at] : a[at];
                if (sum)
                    sum[i * 32 + k * 8 + t] = v;
                m[t] = std::min(m[t], v);
            }
        for (int t = 0; t < 8; ++t)
            total[t] += m[t];
    }
    std::copy(total, total + 8, least);
}

unsigned int BlueRowPortable(const unsigned int* rg, const unsigned int* lrg, const unsigned int (*lb)[8],
                             const unsigned int* const* blue, const int* pixels, int levels, unsigned int bound,
                             bool shrink, unsigned int* out, unsigned int* found)
{
    unsigned int mask = 0;
    for (int b = 0; b < levels; ++b)
    {
        unsigned int low = lrg[0] + lb[b][0];
        for (int t = 1; t < 8; ++t)
            low = std::min(low, lrg[t] + lb[b][t]);
        if (low >= bound)
            continue;
        unsigned int total[8] = {};
        for (int i = 0; i < 8; ++i)
        {
            unsigned int m[8] = {~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u};
            for (int k = 0; k < 4; ++k)
                for (int t = 0; t < 8; ++t)
                    m[t] = std::min(m[t], rg[i * 32 + k * 8 + t] + blue[b][pixels[i] + k * 8 + t]);
            for (int t = 0; t < 8; ++t)
                total[t] += m[t];
        }
        const unsigned int error = *std::min_element(total, total + 8);
        if (error < bound)
        {
            out[b] = error;
            mask |= 1u << b;
            if (shrink)
                bound = error;
        }
    }
    *found = mask;
    return bound;
}

void ValueErrorsPortable(const int* pixels, unsigned int weight, const int* decoded, unsigned int* out)
{
    for (int p = 0; p < 16; ++p)
        for (int i = 0; i < 32; ++i)
            out[p * 32 + i] = unsigned((pixels[p] - decoded[i]) * (pixels[p] - decoded[i])) * weight;
}

void LeastErrorsPortable(const int* pixels, unsigned int weight, const int* decoded, int levels, unsigned int* least)
{
    unsigned int errors[512];
    for (int code = 0; code < levels; ++code)
    {
        ValueErrorsPortable(pixels, weight, decoded + code * 32, errors);
        for (int p = 0; p < 16; ++p)
            for (int t = 0; t < 8; ++t)
            {
                const unsigned int* e = errors + p * 32 + t;
                least[code * 128 + p * 8 + t] = std::min(std::min(e[0], e[8]), std::min(e[16], e[24]));
            }
    }
}

void SumLeastPortable(const unsigned int* least, const int* pixels, int count, unsigned int (*out)[8])
{
    for (int c = 0; c < count; ++c)
        for (int t = 0; t < 8; ++t)
        {
            unsigned int sum = 0;
            for (int i = 0; i < 8; ++i)
                sum += least[c * 128 + pixels[i] * 8 + t];
            out[c][t] = sum;
        }
}

void LeastOfSumsPortable(const unsigned int* a, const unsigned int (*rows)[8], const unsigned int* c, int levels,
                         unsigned int* out)
{
    for (int g = 0; g < levels; ++g)
    {
        unsigned int least = ~0u;
        for (int t = 0; t < 8; ++t)
            least = std::min(least, a[t] + rows[g][t] + c[t]);
        out[g] = least;
    }
}

void LeastOfRowsPortable(const unsigned int (*rows)[8], int count, unsigned int* out)
{
    for (int t = 0; t < 8; ++t)
        out[t] = ~0u;
    for (int row = 0; row < count; ++row)
        for (int t = 0; t < 8; ++t)
            out[t] = std::min(out[t], rows[row][t]);
}

#if ORBT_X86_SIMD

// ---- SSE2: the eight tables in two halves ----

using namespace etclanes;

// Sums over the pixels of the least over the modifiers of a (+ b), tables
// h * 4 to h * 4 + 3; 'sum' receives a + b when given.
// a is read at aPixels[i], b at bPixels[i]; 'sum' is written at i * 32.
inline __m128i LeastHalf(const unsigned int* a, const int* aPixels, const unsigned int* b, const int* bPixels,
                         unsigned int* sum, int h)
{
    __m128i total = _mm_setzero_si128();
    for (int i = 0; i < 8; ++i)
    {
        __m128i m = _mm_setzero_si128();
        for (int k = 0; k < 4; ++k)
        {
            const size_t at = size_t(k) * 8 + size_t(h) * 4;
            __m128i v = Load(a + aPixels[i] + at);
            if (b)
                v = _mm_add_epi32(v, Load(b + bPixels[i] + at));
            if (sum)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(sum + i * 32 + at), v);
            m = k == 0 ? v : Min32(m, v);
        }
        total = _mm_add_epi32(total, m);
    }
    return total;
}

constexpr int kCompact[8] = {0, 32, 64, 96, 128, 160, 192, 224};

void LeastSSE2(const unsigned int* a, const unsigned int* b, const int* pixels, unsigned int* sum, unsigned int* least)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(least), LeastHalf(a, pixels, b, pixels, sum, 0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(least + 4), LeastHalf(a, pixels, b, pixels, sum, 1));
}

void LeastOfSumsSSE2(const unsigned int* a, const unsigned int (*rows)[8], const unsigned int* c, int levels,
                     unsigned int* out)
{
    const __m128i low = _mm_add_epi32(Load(a), Load(c)), high = _mm_add_epi32(Load(a + 4), Load(c + 4));
    for (int g = 0; g < levels; ++g)
        out[g] = HorizontalMin(Min32(_mm_add_epi32(low, Load(rows[g])), _mm_add_epi32(high, Load(rows[g] + 4))));
}

void LeastOfRowsSSE2(const unsigned int (*rows)[8], int count, unsigned int* out)
{
    __m128i low = _mm_set1_epi32(0x7FFFFFFF), high = low;
    for (int row = 0; row < count; ++row)
        low = Min32(low, Load(rows[row])), high = Min32(high, Load(rows[row] + 4));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), low);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), high);
}

unsigned int BlueRowSSE2(const unsigned int* rg, const unsigned int* lrg, const unsigned int (*lb)[8],
                         const unsigned int* const* blue, const int* pixels, int levels, unsigned int bound,
                         bool shrink, unsigned int* out, unsigned int* found)
{
    unsigned int mask = 0;
    const __m128i low0 = Load(lrg), low1 = Load(lrg + 4);
    for (int b = 0; b < levels; ++b)
    {
        const __m128i bounds = _mm_set1_epi32(int(bound));
        const __m128i below = _mm_or_si128(_mm_cmpgt_epi32(bounds, _mm_add_epi32(low0, Load(lb[b]))),
                                           _mm_cmpgt_epi32(bounds, _mm_add_epi32(low1, Load(lb[b] + 4))));
        if (!_mm_movemask_epi8(below))
            continue;
        const unsigned int error = HorizontalMin(Min32(LeastHalf(rg, kCompact, blue[b], pixels, nullptr, 0),
                                                       LeastHalf(rg, kCompact, blue[b], pixels, nullptr, 1)));
        if (error < bound)
        {
            out[b] = error;
            mask |= 1u << b;
            if (shrink)
                bound = error;
        }
    }
    *found = mask;
    return bound;
}

// ---- AVX2: the eight tables in one register ----

ORBT_TARGET_AVX2 inline __m256i Load8(const unsigned int* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// a is read at aPixels[i], b at bPixels[i]; 'sum' is written at i * 32.
ORBT_TARGET_AVX2 inline __m256i Least8(const unsigned int* a, const int* aPixels, const unsigned int* b,
                                       const int* bPixels, unsigned int* sum)
{
    __m256i total = _mm256_setzero_si256();
    for (int i = 0; i < 8; ++i)
    {
        const unsigned int* pa = a + aPixels[i];
        __m256i v[4];
        for (int k = 0; k < 4; ++k)
        {
            v[k] = Load8(pa + k * 8);
            if (b)
                v[k] = _mm256_add_epi32(v[k], Load8(b + bPixels[i] + k * 8));
            if (sum)
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(sum + i * 32 + k * 8), v[k]);
        }
        total = _mm256_add_epi32(total, _mm256_min_epu32(_mm256_min_epu32(v[0], v[1]), _mm256_min_epu32(v[2], v[3])));
    }
    return total;
}

ORBT_TARGET_AVX2 void LeastAVX2(const unsigned int* a, const unsigned int* b, const int* pixels, unsigned int* sum,
                                unsigned int* least)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(least), Least8(a, pixels, b, pixels, sum));
}

ORBT_TARGET_AVX2 inline unsigned int HorizontalMin8(__m256i v)
{
    __m128i m = _mm_min_epu32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
    m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
    return unsigned(_mm_cvtsi128_si32(m));
}

ORBT_TARGET_AVX2 void LeastOfSumsAVX2(const unsigned int* a, const unsigned int (*rows)[8], const unsigned int* c,
                                      int levels, unsigned int* out)
{
    const __m256i base = _mm256_add_epi32(Load8(a), Load8(c));
    for (int g = 0; g < levels; ++g)
        out[g] = HorizontalMin8(_mm256_add_epi32(base, Load8(rows[g])));
}

ORBT_TARGET_AVX2 void LeastOfRowsAVX2(const unsigned int (*rows)[8], int count, unsigned int* out)
{
    __m256i least = _mm256_set1_epi32(-1);
    for (int row = 0; row < count; ++row)
        least = _mm256_min_epu32(least, Load8(rows[row]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), least);
}

ORBT_TARGET_AVX2 unsigned int BlueRowAVX2(const unsigned int* rg, const unsigned int* lrg, const unsigned int (*lb)[8],
                                          const unsigned int* const* blue, const int* pixels, int levels,
                                          unsigned int bound, bool shrink, unsigned int* out, unsigned int* found)
{
    unsigned int mask = 0;
    const __m256i low = Load8(lrg);
    for (int b = 0; b < levels; ++b)
    {
        if (!_mm256_movemask_epi8(
                _mm256_cmpgt_epi32(_mm256_set1_epi32(int(bound)), _mm256_add_epi32(low, Load8(lb[b])))))
            continue;
        const unsigned int error = HorizontalMin8(Least8(rg, kCompact, blue[b], pixels, nullptr));
        if (error < bound)
        {
            out[b] = error;
            mask |= 1u << b;
            if (shrink)
                bound = error;
        }
    }
    *found = mask;
    return bound;
}

// weight * (pixel - decoded)^2 for eight decoded values.
ORBT_TARGET_AVX2 inline __m256i Errors8(__m256i pixel, __m256i weight, bool weighted, const int* decoded)
{
    const __m256i d = _mm256_sub_epi32(pixel, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(decoded)));
    const __m256i square = _mm256_mullo_epi32(d, d);
    return weighted ? _mm256_mullo_epi32(square, weight) : square;
}

ORBT_TARGET_AVX2 void ValueErrorsAVX2(const int* pixels, unsigned int weight, const int* decoded, unsigned int* out)
{
    const __m256i w = _mm256_set1_epi32(int(weight));
    for (int p = 0; p < 16; ++p)
    {
        const __m256i v = _mm256_set1_epi32(pixels[p]);
        for (int i = 0; i < 4; ++i)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + p * 32 + i * 8),
                                Errors8(v, w, weight != 1, decoded + i * 8));
    }
}

ORBT_TARGET_AVX2 void LeastErrorsAVX2(const int* pixels, unsigned int weight, const int* decoded, int levels,
                                      unsigned int* least)
{
    const __m256i w = _mm256_set1_epi32(int(weight));
    for (int code = 0; code < levels; ++code)
        for (int p = 0; p < 16; ++p)
        {
            const __m256i v = _mm256_set1_epi32(pixels[p]);
            const int* d = decoded + code * 32;
            const bool weighted = weight != 1;
            const __m256i m =
                _mm256_min_epu32(_mm256_min_epu32(Errors8(v, w, weighted, d), Errors8(v, w, weighted, d + 8)),
                                 _mm256_min_epu32(Errors8(v, w, weighted, d + 16), Errors8(v, w, weighted, d + 24)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(least + code * 128 + p * 8), m);
        }
}

ORBT_TARGET_AVX2 void SumLeastAVX2(const unsigned int* least, const int* pixels, int count, unsigned int (*out)[8])
{
    for (int c = 0; c < count; ++c)
    {
        __m256i sum = _mm256_setzero_si256();
        for (int i = 0; i < 8; ++i)
            sum = _mm256_add_epi32(sum, Load8(least + c * 128 + pixels[i] * 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[c]), sum);
    }
}

#endif

} // namespace

SubBlockKernels SubBlockKernelsFor(ESimdPath path)
{
#if ORBT_X86_SIMD
    if (path == eSimdAVX2)
        return {LeastAVX2,    BlueRowAVX2,     ValueErrorsAVX2, LeastErrorsAVX2,
                SumLeastAVX2, LeastOfSumsAVX2, LeastOfRowsAVX2};
    if (path == eSimdSSE2)
        return {LeastSSE2,        BlueRowSSE2,     ValueErrorsPortable, LeastErrorsPortable,
                SumLeastPortable, LeastOfSumsSSE2, LeastOfRowsSSE2};
#else
    (void)path;
#endif
    return {LeastPortable,    BlueRowPortable,     ValueErrorsPortable, LeastErrorsPortable,
            SumLeastPortable, LeastOfSumsPortable, LeastOfRowsPortable};
}

} // namespace orbtexture
