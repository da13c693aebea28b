#ifndef ETCLANES_H
#define ETCLANES_H
// SSE2 lane helpers of the exhaustive-search kernels. The errors they hold
// stay below 2^31, so signed compares order them.
#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <emmintrin.h>

namespace orbtexture
{
namespace etclanes
{

inline __m128i Load(const unsigned int* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

inline void Store(unsigned int* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

inline __m128i Min32(__m128i a, __m128i b)
{
    const __m128i greater = _mm_cmpgt_epi32(a, b);
    return _mm_or_si128(_mm_and_si128(greater, b), _mm_andnot_si128(greater, a));
}

inline unsigned int HorizontalMin(__m128i v)
{
    v = Min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = Min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return unsigned(_mm_cvtsi128_si32(v));
}

inline unsigned int HorizontalSum(__m128i v)
{
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return unsigned(_mm_cvtsi128_si32(v));
}

} // namespace etclanes
} // namespace orbtexture

#endif

#endif
