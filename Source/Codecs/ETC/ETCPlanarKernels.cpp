// The planar error kernel: the 16 pixels in 16-bit lanes. The terms stay
// within -1530..2553 and every squared difference within 65025, so the lanes
// and the pairwise sums of squares are exact on every path.

#include "Codecs/ETC/ETCPlanarKernels.h"

#include "Codecs/ETC/ETCLanes.h"

#include <algorithm>

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

unsigned int SquaresPortable(const PlanarTerms& terms, int v)
{
    unsigned int sum = 0;
    for (int p = 0; p < 16; ++p)
    {
        const int d = terms.pixels[p] - std::clamp((terms.base[p] + terms.rows[p] * v) >> 2, 0, 255);
        sum += unsigned(d * d);
    }
    return sum;
}

#if ORBT_X86_SIMD

inline __m128i Load(const int16_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Eight pixels' squared differences, summed in pairs into four 32-bit lanes.
inline __m128i Squares8(const int16_t* pixels, const int16_t* rows, const int16_t* base, __m128i v)
{
    __m128i decoded = _mm_srai_epi16(_mm_add_epi16(Load(base), _mm_mullo_epi16(Load(rows), v)), 2);
    decoded = _mm_min_epi16(_mm_max_epi16(decoded, _mm_setzero_si128()), _mm_set1_epi16(255));
    const __m128i d = _mm_sub_epi16(Load(pixels), decoded);
    return _mm_madd_epi16(d, d);
}

unsigned int SquaresSSE2(const PlanarTerms& terms, int v)
{
    const __m128i lanes = _mm_set1_epi16(int16_t(v));
    __m128i sum = _mm_add_epi32(Squares8(terms.pixels, terms.rows, terms.base, lanes),
                                Squares8(terms.pixels + 8, terms.rows + 8, terms.base + 8, lanes));
    return etclanes::HorizontalSum(sum);
}

ORBT_TARGET_AVX2 inline __m256i Load16(const int16_t* p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

ORBT_TARGET_AVX2 unsigned int SquaresAVX2(const PlanarTerms& terms, int v)
{
    __m256i decoded = _mm256_srai_epi16(
        _mm256_add_epi16(Load16(terms.base), _mm256_mullo_epi16(Load16(terms.rows), _mm256_set1_epi16(int16_t(v)))), 2);
    decoded = _mm256_min_epi16(_mm256_max_epi16(decoded, _mm256_setzero_si256()), _mm256_set1_epi16(255));
    const __m256i d = _mm256_sub_epi16(Load16(terms.pixels), decoded);
    const __m256i pairs = _mm256_madd_epi16(d, d);
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
    return etclanes::HorizontalSum(sum);
}

#endif

} // namespace

PlanarSquares PlanarSquaresFor(ESimdPath path)
{
#if ORBT_X86_SIMD
    if (path == eSimdAVX2)
        return SquaresAVX2;
    if (path == eSimdSSE2)
        return SquaresSSE2;
#else
    (void)path;
#endif
    return SquaresPortable;
}

} // namespace orbtexture
