// Byte moves of the pixel kernels on each SIMD path; all give the same bytes.

#include "Pixels/ORBTPixelKernels.h"
#include "Tools/ORBTSimd.h"

#include <cstring>

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

inline uint32_t LoadLE(const uint8_t* in, unsigned bytes)
{
    uint32_t word = 0;
    for (unsigned i = 0; i < bytes; ++i)
        word |= uint32_t(in[i]) << (8 * i);
    return word;
}

void MovePortable(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    const unsigned s = plan.sourceBytes, t = plan.targetBytes;
    for (size_t i = 0; i < count; ++i, in += s, out += t)
    {
        const uint32_t word = LoadLE(in, s);
        uint32_t pixel = plan.base;
        for (unsigned k = 0; k < t; ++k)
            if (plan.source[k] >= 0)
                pixel |= ((word >> (8 * plan.source[k])) & 0xFFu) << (8 * k);
        for (unsigned k = 0; k < t; ++k)
            out[k] = uint8_t(pixel >> (8 * k));
    }
}

#if ORBT_X86_SIMD

// Lanes of 32-bit pixels to 1, 2 or 4 bytes each.
inline void Store4(__m128i lanes, unsigned t, uint8_t* out)
{
    if (t == 4)
    {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), lanes);
        return;
    }
    if (t == 2)
    {
        // Sign-extended low halves pack without saturating.
        const __m128i halves = _mm_srai_epi32(_mm_slli_epi32(lanes, 16), 16);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(halves, halves));
        return;
    }
    const __m128i words = _mm_packs_epi32(lanes, lanes);
    const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(out, &bytes, 4);
}

inline __m128i Load4(const uint8_t* in, unsigned s)
{
    const __m128i zero = _mm_setzero_si128();
    if (s == 4)
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    if (s == 2)
        return _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in)), zero);
    int word;
    std::memcpy(&word, in, 4);
    return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
}

void MoveSSE2(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    const unsigned s = plan.sourceBytes, t = plan.targetBytes;
    const __m128i byte = _mm_set1_epi32(0xFF), base = _mm_set1_epi32(int(plan.base));
    __m128i from[4], to[4];
    for (unsigned k = 0; k < 4; ++k)
    {
        from[k] = _mm_cvtsi32_si128(plan.source[k] >= 0 ? 8 * plan.source[k] : 0);
        to[k] = _mm_cvtsi32_si128(int(8 * k));
    }
    size_t i = 0;
    for (; i + 4 <= count; i += 4, in += 4 * s, out += 4 * t)
    {
        const __m128i x = Load4(in, s);
        __m128i pixel = base;
        for (unsigned k = 0; k < t; ++k)
            if (plan.source[k] >= 0)
                pixel = _mm_or_si128(pixel, _mm_sll_epi32(_mm_and_si128(_mm_srl_epi32(x, from[k]), byte), to[k]));
        Store4(pixel, t, out);
    }
    MovePortable(plan, in, out, count - i);
}

ORBT_TARGET_AVX2 void MoveAVX2(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    const unsigned s = plan.sourceBytes, t = plan.targetBytes;
    const __m256i byte = _mm256_set1_epi32(0xFF), base = _mm256_set1_epi32(int(plan.base));
    __m128i from[4], to[4];
    for (unsigned k = 0; k < 4; ++k)
    {
        from[k] = _mm_cvtsi32_si128(plan.source[k] >= 0 ? 8 * plan.source[k] : 0);
        to[k] = _mm_cvtsi32_si128(int(8 * k));
    }
    size_t i = 0;
    for (; i + 8 <= count; i += 8, in += 8 * s, out += 8 * t)
    {
        __m256i x;
        if (s == 4)
            x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
        else if (s == 2)
            x = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
        else
            x = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in)));
        __m256i pixel = base;
        for (unsigned k = 0; k < t; ++k)
            if (plan.source[k] >= 0)
                pixel = _mm256_or_si256(pixel,
                                        _mm256_sll_epi32(_mm256_and_si256(_mm256_srl_epi32(x, from[k]), byte), to[k]));
        if (t == 4)
        {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), pixel);
            continue;
        }
        const __m128i low = _mm256_castsi256_si128(pixel), high = _mm256_extracti128_si256(pixel, 1);
        if (t == 2)
        {
            const __m128i a = _mm_srai_epi32(_mm_slli_epi32(low, 16), 16);
            const __m128i b = _mm_srai_epi32(_mm_slli_epi32(high, 16), 16);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(a, b));
        }
        else
        {
            const __m128i words = _mm_packs_epi32(low, high);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
        }
    }
    MovePortable(plan, in, out, count - i);
}

#endif

} // namespace

void MoveBytes(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
#if ORBT_X86_SIMD
    const bool lanes = plan.sourceBytes != 3 && plan.targetBytes != 3;
    const ESimdPath path = ActiveSimdPath();
    if (lanes && path == eSimdAVX2)
        return MoveAVX2(plan, in, out, count);
    if (lanes && path == eSimdSSE2)
        return MoveSSE2(plan, in, out, count);
#endif
    MovePortable(plan, in, out, count);
}

} // namespace orbtexture
