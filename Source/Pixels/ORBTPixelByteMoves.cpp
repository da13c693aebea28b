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

inline void StoreLE(uint8_t* out, uint32_t word, unsigned bytes)
{
    for (unsigned i = 0; i < bytes; ++i)
        out[i] = uint8_t(word >> (8 * i));
}

// Moves that keep every source byte in place (rgb to rgba and back): a mask
// and the base.
template <unsigned S, unsigned T>
bool MovePrefix(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    uint32_t keep = 0;
    for (unsigned k = 0; k < T; ++k)
        if (plan.source[k] == int(k))
            keep |= 0xFFu << (8 * k);
        else if (plan.source[k] >= 0)
            return false;
    size_t i = 0;
    const size_t words = count >= 4 ? count - 3 : 0;
    for (; i < words; ++i, in += S, out += T)
        StoreLE(out, (LoadLE(in, 4) & keep) | plan.base, 4);
    for (; i < count; ++i, in += S, out += T)
        StoreLE(out, (LoadLE(in, S) & keep) | plan.base, T);
    return true;
}

template <unsigned S, unsigned T>
void MoveWords(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    if (MovePrefix<S, T>(plan, in, out, count))
        return;
    // Whole 4-byte words are read and written while they stay inside both
    // buffers; a written word's extra bytes belong to the next pixel, which
    // is written after it.
    size_t i = 0;
    const size_t words = count >= 4 ? count - 3 : 0;
    for (; i < words; ++i, in += S, out += T)
    {
        const uint32_t word = LoadLE(in, 4);
        uint32_t pixel = plan.base;
        for (unsigned k = 0; k < T; ++k)
            if (plan.source[k] >= 0)
                pixel |= ((word >> (8 * plan.source[k])) & 0xFFu) << (8 * k);
        StoreLE(out, pixel, 4);
    }
    for (; i < count; ++i, in += S, out += T)
    {
        const uint32_t word = LoadLE(in, S);
        uint32_t pixel = plan.base;
        for (unsigned k = 0; k < T; ++k)
            if (plan.source[k] >= 0)
                pixel |= ((word >> (8 * plan.source[k])) & 0xFFu) << (8 * k);
        StoreLE(out, pixel, T);
    }
}

template <unsigned S>
void MoveFrom(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    switch (plan.targetBytes)
    {
    case 1: return MoveWords<S, 1>(plan, in, out, count);
    case 2: return MoveWords<S, 2>(plan, in, out, count);
    case 3: return MoveWords<S, 3>(plan, in, out, count);
    default: return MoveWords<S, 4>(plan, in, out, count);
    }
}

void MovePortable(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    switch (plan.sourceBytes)
    {
    case 1: return MoveFrom<1>(plan, in, out, count);
    case 2: return MoveFrom<2>(plan, in, out, count);
    case 3: return MoveFrom<3>(plan, in, out, count);
    default: return MoveFrom<4>(plan, in, out, count);
    }
}

template <unsigned S, unsigned T>
void LanesPortable(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    for (size_t i = 0; i < count; ++i, in += S, out += T)
    {
        const uint32_t x = LoadLE(in, S);
        uint32_t pixel = plan.base;
        for (unsigned f = 0; f < plan.count; ++f)
        {
            const LaneField& field = plan.fields[f];
            const uint32_t y = ((x >> field.from) & field.mask) * field.a + field.b;
            const uint32_t q = field.m ? (y * field.m) >> (16 + field.shift) : y >> field.shift;
            pixel |= q << field.to;
        }
        StoreLE(out, pixel, T);
    }
}

template <unsigned S>
void LanesFrom(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    switch (plan.targetBytes)
    {
    case 1: return LanesPortable<S, 1>(plan, in, out, count);
    case 2: return LanesPortable<S, 2>(plan, in, out, count);
    default: return LanesPortable<S, 4>(plan, in, out, count);
    }
}

void RunLanesPortable(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    switch (plan.sourceBytes)
    {
    case 1: return LanesFrom<1>(plan, in, out, count);
    case 2: return LanesFrom<2>(plan, in, out, count);
    default: return LanesFrom<4>(plan, in, out, count);
    }
}

void LuminancePortable(const LuminancePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    constexpr uint32_t kFraction = (1u << 23) - 1;
    for (size_t i = 0; i < count; ++i, in += 4, out += plan.targetBytes)
    {
        const int32_t y = plan.weights[0] * in[0] + plan.weights[1] * in[1] + plan.weights[2] * in[2] +
                          plan.weights[3] * in[3] + (1 << 22);
        const uint32_t fraction = uint32_t(y) & kFraction;
        out[0] = fraction < plan.guard || fraction > kFraction - plan.guard ? plan.exact(plan.context, in)
                                                                             : uint8_t(uint32_t(y) >> 23);
        if (plan.targetBytes == 2)
            out[1] = in[plan.alpha];
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

ORBT_TARGET_AVX2 __m256i Load8(const uint8_t* in, unsigned s)
{
    if (s == 4)
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    if (s == 2)
        return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in)));
}

ORBT_TARGET_AVX2 void Store8(__m256i pixel, unsigned t, uint8_t* out)
{
    if (t == 4)
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), pixel);
        return;
    }
    const __m128i low = _mm256_castsi256_si128(pixel), high = _mm256_extracti128_si256(pixel, 1);
    if (t == 2)
    {
        const __m128i a = _mm_srai_epi32(_mm_slli_epi32(low, 16), 16);
        const __m128i b = _mm_srai_epi32(_mm_slli_epi32(high, 16), 16);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(a, b));
        return;
    }
    const __m128i words = _mm_packs_epi32(low, high);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
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
        const __m256i x = Load8(in, s);
        __m256i pixel = base;
        for (unsigned k = 0; k < t; ++k)
            if (plan.source[k] >= 0)
                pixel = _mm256_or_si256(pixel,
                                        _mm256_sll_epi32(_mm256_and_si256(_mm256_srl_epi32(x, from[k]), byte), to[k]));
        Store8(pixel, t, out);
    }
    MovePortable(plan, in, out, count - i);
}

// One field of a lane program on four lanes.
inline __m128i Field4(const LaneField& f, __m128i x)
{
    __m128i y = _mm_and_si128(_mm_srl_epi32(x, _mm_cvtsi32_si128(int(f.from))), _mm_set1_epi32(int(f.mask)));
    if (f.a != 1)
        y = _mm_mullo_epi16(y, _mm_set1_epi32(int(f.a)));
    if (f.b != 0)
        y = _mm_add_epi32(y, _mm_set1_epi32(int(f.b)));
    if (f.m)
        y = _mm_mulhi_epu16(y, _mm_set1_epi32(int(f.m)));
    return _mm_sll_epi32(_mm_srl_epi32(y, _mm_cvtsi32_si128(int(f.shift))), _mm_cvtsi32_si128(int(f.to)));
}

void LanesSSE2(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    const unsigned s = plan.sourceBytes, t = plan.targetBytes;
    const __m128i base = _mm_set1_epi32(int(plan.base));
    size_t i = 0;
    for (; i + 4 <= count; i += 4, in += 4 * s, out += 4 * t)
    {
        const __m128i x = Load4(in, s);
        __m128i pixel = base;
        for (unsigned f = 0; f < plan.count; ++f)
            pixel = _mm_or_si128(pixel, Field4(plan.fields[f], x));
        Store4(pixel, t, out);
    }
    RunLanesPortable(plan, in, out, count - i);
}

ORBT_TARGET_AVX2 inline __m256i Field8(const LaneField& f, __m256i x)
{
    __m256i y = _mm256_and_si256(_mm256_srl_epi32(x, _mm_cvtsi32_si128(int(f.from))), _mm256_set1_epi32(int(f.mask)));
    if (f.a != 1)
        y = _mm256_mullo_epi16(y, _mm256_set1_epi32(int(f.a)));
    if (f.b != 0)
        y = _mm256_add_epi32(y, _mm256_set1_epi32(int(f.b)));
    if (f.m)
        y = _mm256_mulhi_epu16(y, _mm256_set1_epi32(int(f.m)));
    return _mm256_sll_epi32(_mm256_srl_epi32(y, _mm_cvtsi32_si128(int(f.shift))), _mm_cvtsi32_si128(int(f.to)));
}

ORBT_TARGET_AVX2 void LanesAVX2(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    const unsigned s = plan.sourceBytes, t = plan.targetBytes;
    const __m256i base = _mm256_set1_epi32(int(plan.base));
    size_t i = 0;
    for (; i + 8 <= count; i += 8, in += 8 * s, out += 8 * t)
    {
        const __m256i x = Load8(in, s);
        __m256i pixel = base;
        for (unsigned f = 0; f < plan.count; ++f)
            pixel = _mm256_or_si256(pixel, Field8(plan.fields[f], x));
        Store8(pixel, t, out);
    }
    RunLanesPortable(plan, in, out, count - i);
}

// Sums of weight * byte of four pixels: 16-bit weights split in high and low
// bytes, so that each product stays in _mm_madd_epi16's range.
inline __m128i WeightedSums(__m128i pixels, __m128i high, __m128i low)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i a = _mm_unpacklo_epi8(pixels, zero), b = _mm_unpackhi_epi8(pixels, zero);
    // Each pair of 32-bit results holds one pixel's two partial sums.
    const auto sums = [&](__m128i weights) {
        const __m128i x = _mm_madd_epi16(a, weights), y = _mm_madd_epi16(b, weights);
        const __m128i even = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(x), _mm_castsi128_ps(y), 0x88));
        const __m128i odd = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(x), _mm_castsi128_ps(y), 0xDD));
        return _mm_add_epi32(even, odd);
    };
    return _mm_add_epi32(_mm_slli_epi32(sums(high), 8), sums(low));
}

void LuminanceSSE2(const LuminancePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
    int16_t high[8], low[8];
    for (unsigned k = 0; k < 8; ++k)
    {
        high[k] = int16_t(plan.weights[k % 4] >> 8);
        low[k] = int16_t(plan.weights[k % 4] & 0xFF);
    }
    const __m128i highWeights = _mm_loadu_si128(reinterpret_cast<const __m128i*>(high));
    const __m128i lowWeights = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low));
    const __m128i half = _mm_set1_epi32(1 << 22), fraction = _mm_set1_epi32((1 << 23) - 1);
    const __m128i below = _mm_set1_epi32(int(plan.guard)), above = _mm_set1_epi32(int((1u << 23) - 1 - plan.guard));
    size_t i = 0;
    for (; i + 4 <= count; i += 4, in += 16, out += 4 * plan.targetBytes)
    {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i y = _mm_add_epi32(WeightedSums(pixels, highWeights, lowWeights), half);
        const __m128i f = _mm_and_si128(y, fraction);
        const __m128i near = _mm_or_si128(_mm_cmplt_epi32(f, below), _mm_cmpgt_epi32(f, above));
        if (_mm_movemask_epi8(near) != 0)
        {
            LuminancePortable(plan, in, out, 4);
            continue;
        }
        __m128i lanes = _mm_srli_epi32(y, 23);
        if (plan.targetBytes == 2)
            lanes = _mm_or_si128(lanes, _mm_slli_epi32(_mm_and_si128(_mm_srl_epi32(pixels, _mm_cvtsi32_si128(int(8 * plan.alpha))),
                                                                     _mm_set1_epi32(0xFF)), 8));
        Store4(lanes, plan.targetBytes, out);
    }
    LuminancePortable(plan, in, out, count - i);
}

#endif

} // namespace

void RunLuminance(const LuminancePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
#if ORBT_X86_SIMD
    if (ActiveSimdPath() != eSimdPortable)
        return LuminanceSSE2(plan, in, out, count);
#endif
    LuminancePortable(plan, in, out, count);
}

void RunLanes(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count)
{
#if ORBT_X86_SIMD
    const ESimdPath path = ActiveSimdPath();
    if (path == eSimdAVX2)
        return LanesAVX2(plan, in, out, count);
    if (path == eSimdSSE2)
        return LanesSSE2(plan, in, out, count);
#endif
    RunLanesPortable(plan, in, out, count);
}

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
