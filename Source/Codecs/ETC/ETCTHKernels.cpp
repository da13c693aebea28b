// T and H kernels: a row of 16 errors in two AVX2 or four SSE2 registers.
// Sums of errors stay below 2^31, so signed compares order them.

#include "Codecs/ETC/ETCTHKernels.h"

#include "Codecs/ETC/ETCLanes.h"

#include <algorithm>

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

void PaintRowPortable(const unsigned int* upper, const unsigned int* last, bool threePaints, unsigned int* pair,
                      unsigned int* single)
{
    unsigned int sums[17][16];
    for (int paint = 0; paint < 17; ++paint)
        for (int p = 0; p < 16; ++p)
            sums[paint][p] = upper[paint * 16 + p] + last[paint * 16 + p];
    if (single)
        std::copy(sums[0], sums[0] + 16, single);
    if (!pair)
        return;
    for (int d = 0; d < 8; ++d)
        for (int p = 0; p < 16; ++p)
        {
            const unsigned int both = std::min(sums[1 + d][p], sums[9 + d][p]);
            pair[d * 16 + p] = threePaints ? std::min(both, sums[0][p]) : both;
        }
}

unsigned int DistancesPortable(const unsigned int* first, const unsigned int* second, int secondStride,
                               const unsigned int* offsets, unsigned int best, unsigned int live, unsigned int* alive)
{
    unsigned int least = best, survivors = 0;
    for (int d = 0; d < 8; ++d)
    {
        if (!(live >> d & 1u))
            continue;
        const unsigned int* a = first + d * 16;
        const unsigned int* b = second + d * secondStride;
        unsigned int sum = offsets ? offsets[d] : 0;
        for (int p = 0; p < 16 && sum < best; ++p)
            sum += std::min(a[p], b[p]);
        if (sum < best)
            survivors |= 1u << d;
        least = std::min(least, sum);
    }
    if (alive)
        *alive = survivors;
    return least;
}

void LeastOfRowsPortable(const unsigned int* rows, int length, unsigned int* out)
{
    for (int i = 0; i < length; ++i)
    {
        unsigned int least = rows[i];
        for (int c = 1; c < 16; ++c)
            least = std::min(least, rows[c * length + i]);
        out[i] = least;
    }
}

void PaintErrorsPortable(const int* pixels, const int* values, unsigned int weight, unsigned int* out)
{
    for (int row = 0; row < 16 * 17; ++row)
        for (int p = 0; p < 16; ++p)
            out[row * 16 + p] = unsigned((pixels[p] - values[row]) * (pixels[p] - values[row])) * weight;
}

void BoundingErrorsPortable(const unsigned int* red, const unsigned int* green, const unsigned int* blue,
                            unsigned int* redOut, unsigned int* greenOut)
{
    for (int i = 0; i < 17 * 16; ++i)
    {
        unsigned int leastGreen = ~0u, leastBlue = ~0u;
        for (int code = 0; code < 16; ++code)
        {
            leastGreen = std::min(leastGreen, green[code * 272 + i]);
            leastBlue = std::min(leastBlue, blue[code * 272 + i]);
        }
        for (int code = 0; code < 16; ++code)
        {
            redOut[code * 272 + i] = red[code * 272 + i] + leastGreen + leastBlue;
            greenOut[code * 272 + i] = green[code * 272 + i] + leastBlue;
        }
    }
}

#if ORBT_X86_SIMD

using namespace etclanes;

void PaintRowSSE2(const unsigned int* upper, const unsigned int* last, bool threePaints, unsigned int* pair,
                  unsigned int* single)
{
    for (int q = 0; q < 16; q += 4)
    {
        __m128i sums[17];
        for (int paint = 0; paint < 17; ++paint)
            sums[paint] = _mm_add_epi32(Load(upper + paint * 16 + q), Load(last + paint * 16 + q));
        if (single)
            Store(single + q, sums[0]);
        if (!pair)
            continue;
        for (int d = 0; d < 8; ++d)
        {
            const __m128i both = Min32(sums[1 + d], sums[9 + d]);
            Store(pair + d * 16 + q, threePaints ? Min32(both, sums[0]) : both);
        }
    }
}

unsigned int DistancesSSE2(const unsigned int* first, const unsigned int* second, int secondStride,
                           const unsigned int* offsets, unsigned int best, unsigned int live, unsigned int* alive)
{
    unsigned int least = best, survivors = 0;
    for (int d = 0; d < 8; ++d)
    {
        if (!(live >> d & 1u))
            continue;
        const unsigned int* a = first + d * 16;
        const unsigned int* b = second + d * secondStride;
        __m128i sum = _mm_add_epi32(_mm_add_epi32(Min32(Load(a), Load(b)), Min32(Load(a + 4), Load(b + 4))),
                                    _mm_add_epi32(Min32(Load(a + 8), Load(b + 8)), Min32(Load(a + 12), Load(b + 12))));
        const unsigned int total = HorizontalSum(sum) + (offsets ? offsets[d] : 0);
        if (total < best)
            survivors |= 1u << d;
        least = std::min(least, total);
    }
    if (alive)
        *alive = survivors;
    return least;
}

void LeastOfRowsSSE2(const unsigned int* rows, int length, unsigned int* out)
{
    for (int i = 0; i < length; i += 4)
    {
        __m128i least = Load(rows + i);
        for (int c = 1; c < 16; ++c)
            least = Min32(least, Load(rows + c * length + i));
        Store(out + i, least);
    }
}

ORBT_TARGET_AVX2 inline __m256i Load8(const unsigned int* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

ORBT_TARGET_AVX2 inline void Store8(unsigned int* p, __m256i v)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

ORBT_TARGET_AVX2 void PaintRowAVX2(const unsigned int* upper, const unsigned int* last, bool threePaints,
                                   unsigned int* pair, unsigned int* single)
{
    for (int q = 0; q < 16; q += 8)
    {
        __m256i sums[17];
        for (int paint = 0; paint < 17; ++paint)
            sums[paint] = _mm256_add_epi32(Load8(upper + paint * 16 + q), Load8(last + paint * 16 + q));
        if (single)
            Store8(single + q, sums[0]);
        if (!pair)
            continue;
        for (int d = 0; d < 8; ++d)
        {
            const __m256i both = _mm256_min_epu32(sums[1 + d], sums[9 + d]);
            Store8(pair + d * 16 + q, threePaints ? _mm256_min_epu32(both, sums[0]) : both);
        }
    }
}

ORBT_TARGET_AVX2 unsigned int DistancesAVX2(const unsigned int* first, const unsigned int* second, int secondStride,
                                            const unsigned int* offsets, unsigned int best, unsigned int live,
                                            unsigned int* alive)
{
    unsigned int least = best, survivors = 0;
    for (int d = 0; d < 8; ++d)
    {
        if (!(live >> d & 1u))
            continue;
        const unsigned int* a = first + d * 16;
        const unsigned int* b = second + d * secondStride;
        const __m256i both =
            _mm256_add_epi32(_mm256_min_epu32(Load8(a), Load8(b)), _mm256_min_epu32(Load8(a + 8), Load8(b + 8)));
        __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(both), _mm256_extracti128_si256(both, 1));
        const unsigned int total = HorizontalSum(sum) + (offsets ? offsets[d] : 0);
        if (total < best)
            survivors |= 1u << d;
        least = std::min(least, total);
    }
    if (alive)
        *alive = survivors;
    return least;
}

ORBT_TARGET_AVX2 void LeastOfRowsAVX2(const unsigned int* rows, int length, unsigned int* out)
{
    for (int i = 0; i < length; i += 8)
    {
        __m256i least = Load8(rows + i);
        for (int c = 1; c < 16; ++c)
            least = _mm256_min_epu32(least, Load8(rows + c * length + i));
        Store8(out + i, least);
    }
}

ORBT_TARGET_AVX2 void PaintErrorsAVX2(const int* pixels, const int* values, unsigned int weight, unsigned int* out)
{
    const __m256i p0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    const __m256i p1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + 8));
    const __m256i w = _mm256_set1_epi32(int(weight));
    for (int row = 0; row < 16 * 17; ++row)
    {
        const __m256i v = _mm256_set1_epi32(values[row]);
        const __m256i d0 = _mm256_sub_epi32(p0, v), d1 = _mm256_sub_epi32(p1, v);
        __m256i e0 = _mm256_mullo_epi32(d0, d0), e1 = _mm256_mullo_epi32(d1, d1);
        if (weight != 1)
            e0 = _mm256_mullo_epi32(e0, w), e1 = _mm256_mullo_epi32(e1, w);
        Store8(out + row * 16, e0);
        Store8(out + row * 16 + 8, e1);
    }
}

ORBT_TARGET_AVX2 void BoundingErrorsAVX2(const unsigned int* red, const unsigned int* green, const unsigned int* blue,
                                         unsigned int* redOut, unsigned int* greenOut)
{
    for (int i = 0; i < 17 * 16; i += 8)
    {
        __m256i leastGreen = Load8(green + i), leastBlue = Load8(blue + i);
        for (int code = 1; code < 16; ++code)
        {
            leastGreen = _mm256_min_epu32(leastGreen, Load8(green + code * 272 + i));
            leastBlue = _mm256_min_epu32(leastBlue, Load8(blue + code * 272 + i));
        }
        const __m256i rest = _mm256_add_epi32(leastGreen, leastBlue);
        for (int code = 0; code < 16; ++code)
        {
            Store8(redOut + code * 272 + i, _mm256_add_epi32(Load8(red + code * 272 + i), rest));
            Store8(greenOut + code * 272 + i, _mm256_add_epi32(Load8(green + code * 272 + i), leastBlue));
        }
    }
}

#endif

} // namespace

THKernels THKernelsFor(ESimdPath path)
{
#if ORBT_X86_SIMD
    if (path == eSimdAVX2)
        return {PaintRowAVX2, DistancesAVX2, LeastOfRowsAVX2, PaintErrorsAVX2, BoundingErrorsAVX2};
    if (path == eSimdSSE2)
        return {PaintRowSSE2, DistancesSSE2, LeastOfRowsSSE2, PaintErrorsPortable, BoundingErrorsPortable};
#else
    (void)path;
#endif
    return {PaintRowPortable, DistancesPortable, LeastOfRowsPortable, PaintErrorsPortable, BoundingErrorsPortable};
}

} // namespace orbtexture
