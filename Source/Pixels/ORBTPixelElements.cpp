// Element steps of the pixel kernels on each SIMD path; all give the bytes of
// ElementStep.

#include "ORBTPixelConversion.h"
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

template <typename T>
T Load(const uint8_t* in)
{
    T value;
    std::memcpy(&value, in, sizeof value);
    return value;
}

unsigned InBytes(EElementStep step) { return step == eBytesToShorts || step == eBytesToFloats ? 1 : step == eShortsToBytes ? 2 : 4; }
unsigned OutBytes(EElementStep step) { return step == eBytesToShorts ? 2 : step == eBytesToFloats ? 4 : 1; }

void StepPortable(EElementStep step, const uint8_t* in, uint8_t* out, size_t elements)
{
    const unsigned inBytes = InBytes(step), outBytes = OutBytes(step);
    for (size_t i = 0; i < elements; ++i, in += inBytes, out += outBytes)
    {
        const uint32_t value = inBytes == 1 ? *in : inBytes == 2 ? Load<uint16_t>(in) : Load<uint32_t>(in);
        const uint32_t result = ElementStep(step, value);
        if (outBytes == 1)
            *out = uint8_t(result);
        else if (outBytes == 2)
            std::memcpy(out, &result, 2);
        else
            std::memcpy(out, &result, 4);
    }
}

// A byte as the unsigned small float of 'mantissa' bits the encoder makes of
// v / 255: the float's exponent rebiased from 127 to 15 and its mantissa cut.
inline uint32_t SmallFloatOfByte(uint32_t v, unsigned mantissa)
{
    const uint32_t bits = ElementStep(eBytesToFloats, v);
    return v == 0 ? 0 : ((bits >> 23) - 112) << mantissa | ((bits >> (23 - mantissa)) & ((1u << mantissa) - 1));
}

// The float an unsigned small float stands for, as its bits: an all-ones
// exponent is no infinity but a tiny value, a zero one no denormal.
inline uint32_t FloatOfSmallFloat(uint32_t value, unsigned mantissa)
{
    const uint32_t field = (value >> mantissa) & 31, fraction = (value & ((1u << mantissa) - 1)) << (23 - mantissa);
    return field == 31 ? fraction | 255u : fraction | (field + 112) << 23;
}

void PackPortable(const uint8_t* in, uint8_t* out, size_t pixels)
{
    for (size_t i = 0; i < pixels; ++i, in += 4, out += 4)
    {
        const uint32_t word = SmallFloatOfByte(in[0], 6) << 21 | SmallFloatOfByte(in[1], 6) << 10 |
                              SmallFloatOfByte(in[2], 5);
        std::memcpy(out, &word, 4);
    }
}

void UnpackPortable(const uint8_t* in, uint8_t* out, size_t pixels)
{
    for (size_t i = 0; i < pixels; ++i, in += 4, out += 4)
    {
        const uint32_t word = Load<uint32_t>(in);
        out[0] = uint8_t(ElementStep(eFloatsToBytes, FloatOfSmallFloat(word >> 21, 6)));
        out[1] = uint8_t(ElementStep(eFloatsToBytes, FloatOfSmallFloat(word >> 10, 6)));
        out[2] = uint8_t(ElementStep(eFloatsToBytes, FloatOfSmallFloat(word, 5)));
        out[3] = 255;
    }
}

#if ORBT_X86_SIMD

// Lanes of bytes (0 to 255) to small floats, as SmallFloatOfByte.
inline __m128i SmallFloats(__m128i bytes, int mantissa)
{
    const __m128i bits = _mm_castps_si128(_mm_div_ps(_mm_cvtepi32_ps(bytes), _mm_set1_ps(255.0f)));
    const __m128i exponent = _mm_sub_epi32(_mm_srli_epi32(bits, 23), _mm_set1_epi32(112));
    const __m128i fraction =
        _mm_and_si128(_mm_srl_epi32(bits, _mm_cvtsi32_si128(23 - mantissa)), _mm_set1_epi32((1 << mantissa) - 1));
    const __m128i value = _mm_or_si128(_mm_sll_epi32(exponent, _mm_cvtsi32_si128(mantissa)), fraction);
    return _mm_andnot_si128(_mm_cmpeq_epi32(bytes, _mm_setzero_si128()), value);
}

void PackSSE2(const uint8_t* in, uint8_t* out, size_t pixels)
{
    const __m128i byte = _mm_set1_epi32(0xFF);
    size_t i = 0;
    for (; i + 4 <= pixels; i += 4)
    {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 4 * i));
        const __m128i red = SmallFloats(_mm_and_si128(x, byte), 6);
        const __m128i green = SmallFloats(_mm_and_si128(_mm_srli_epi32(x, 8), byte), 6);
        const __m128i blue = SmallFloats(_mm_and_si128(_mm_srli_epi32(x, 16), byte), 5);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * i),
                         _mm_or_si128(_mm_or_si128(_mm_slli_epi32(red, 21), _mm_slli_epi32(green, 10)), blue));
    }
    PackPortable(in + 4 * i, out + 4 * i, pixels - i);
}

// v / 257 rounded, on 16-bit lanes: (t - (t >> 8)) >> 8 with t = v + 128
// saturated, which the tests check on every value.
inline __m128i Narrow16(__m128i v)
{
    const __m128i t = _mm_adds_epu16(v, _mm_set1_epi16(128));
    return _mm_srli_epi16(_mm_sub_epi16(t, _mm_srli_epi16(t, 8)), 8);
}

// Four floats to the low bytes of their rounded products with 255, in 32-bit
// lanes; false when a lane is outside [0, 65536] (or NaN).
inline bool NarrowFloats(__m128 v, __m128i& bytes)
{
    const __m128 inRange = _mm_and_ps(_mm_cmpge_ps(v, _mm_setzero_ps()), _mm_cmple_ps(v, _mm_set1_ps(65536.0f)));
    if (_mm_movemask_ps(inRange) != 15)
        return false;
    const __m128d scale = _mm_set1_pd(255.0), half = _mm_set1_pd(0.5);
    const __m128i low = _mm_cvttpd_epi32(_mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(v), scale), half));
    const __m128i high = _mm_cvttpd_epi32(
        _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(v, v)), scale), half));
    bytes = _mm_and_si128(_mm_unpacklo_epi64(low, high), _mm_set1_epi32(0xFF));
    return true;
}

void StepSSE2(EElementStep step, const uint8_t* in, uint8_t* out, size_t elements)
{
    const __m128i zero = _mm_setzero_si128();
    size_t i = 0;
    switch (step)
    {
    case eBytesToShorts:
        for (; i + 16 <= elements; i += 16)
        {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
            const __m128i k = _mm_set1_epi16(257);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), _mm_mullo_epi16(_mm_unpacklo_epi8(v, zero), k));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i + 16),
                             _mm_mullo_epi16(_mm_unpackhi_epi8(v, zero), k));
        }
        break;
    case eShortsToBytes:
        for (; i + 16 <= elements; i += 16)
        {
            const __m128i a = Narrow16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i)));
            const __m128i b = Narrow16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i + 16)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
        }
        break;
    case eBytesToFloats:
        for (; i + 4 <= elements; i += 4)
        {
            int word;
            std::memcpy(&word, in + i, 4);
            const __m128i v = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
            _mm_storeu_ps(reinterpret_cast<float*>(out + 4 * i), _mm_div_ps(_mm_cvtepi32_ps(v), _mm_set1_ps(255.0f)));
        }
        break;
    case eFloatsToBytes:
        for (; i + 4 <= elements; i += 4)
        {
            __m128i bytes;
            if (!NarrowFloats(_mm_loadu_ps(reinterpret_cast<const float*>(in + 4 * i)), bytes))
            {
                StepPortable(step, in + 4 * i, out + i, 4);
                continue;
            }
            const __m128i words = _mm_packs_epi32(bytes, bytes);
            const int packed = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
            std::memcpy(out + i, &packed, 4);
        }
        break;
    }
    StepPortable(step, in + i * InBytes(step), out + i * OutBytes(step), elements - i);
}

// Lanes of float bits in [0, 65536] (or the tiny all-ones values) to the
// low bytes of their rounded products with 255: ((m * 255 >> (22 - e)) + 1)
// >> 1 for the 24-bit mantissa m and exponent e, exactly (every float in [0,
// 65536] checked); a shift above 31 gives 0.
ORBT_TARGET_AVX2 inline __m256i BytesOfFloats(__m256i bits)
{
    const __m256i exponent = _mm256_sub_epi32(_mm256_srli_epi32(bits, 23), _mm256_set1_epi32(127));
    const __m256i mantissa =
        _mm256_or_si256(_mm256_and_si256(bits, _mm256_set1_epi32(0x7FFFFF)), _mm256_set1_epi32(0x800000));
    const __m256i times255 = _mm256_sub_epi32(_mm256_slli_epi32(mantissa, 8), mantissa);
    const __m256i halves = _mm256_srlv_epi32(times255, _mm256_sub_epi32(_mm256_set1_epi32(22), exponent));
    return _mm256_and_si256(_mm256_srli_epi32(_mm256_add_epi32(halves, _mm256_set1_epi32(1)), 1),
                            _mm256_set1_epi32(0xFF));
}

ORBT_TARGET_AVX2 inline __m256i FloatsOfSmallFloats(__m256i value, int mantissa)
{
    const __m256i field =
        _mm256_and_si256(_mm256_srl_epi32(value, _mm_cvtsi32_si128(mantissa)), _mm256_set1_epi32(31));
    const __m256i fraction = _mm256_sll_epi32(_mm256_and_si256(value, _mm256_set1_epi32((1 << mantissa) - 1)),
                                              _mm_cvtsi32_si128(23 - mantissa));
    const __m256i normal = _mm256_or_si256(fraction, _mm256_slli_epi32(_mm256_add_epi32(field, _mm256_set1_epi32(112)), 23));
    const __m256i tiny = _mm256_or_si256(fraction, _mm256_set1_epi32(255));
    return _mm256_blendv_epi8(normal, tiny, _mm256_cmpeq_epi32(field, _mm256_set1_epi32(31)));
}

ORBT_TARGET_AVX2 inline __m256i SmallFloats8(__m256i bytes, int mantissa)
{
    const __m256i bits = _mm256_castps_si256(_mm256_div_ps(_mm256_cvtepi32_ps(bytes), _mm256_set1_ps(255.0f)));
    const __m256i exponent = _mm256_sub_epi32(_mm256_srli_epi32(bits, 23), _mm256_set1_epi32(112));
    const __m256i fraction = _mm256_and_si256(_mm256_srl_epi32(bits, _mm_cvtsi32_si128(23 - mantissa)),
                                              _mm256_set1_epi32((1 << mantissa) - 1));
    const __m256i value = _mm256_or_si256(_mm256_sll_epi32(exponent, _mm_cvtsi32_si128(mantissa)), fraction);
    return _mm256_andnot_si256(_mm256_cmpeq_epi32(bytes, _mm256_setzero_si256()), value);
}

ORBT_TARGET_AVX2 void PackAVX2(const uint8_t* in, uint8_t* out, size_t pixels)
{
    const __m256i byte = _mm256_set1_epi32(0xFF);
    size_t i = 0;
    for (; i + 8 <= pixels; i += 8)
    {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 4 * i));
        const __m256i red = SmallFloats8(_mm256_and_si256(x, byte), 6);
        const __m256i green = SmallFloats8(_mm256_and_si256(_mm256_srli_epi32(x, 8), byte), 6);
        const __m256i blue = SmallFloats8(_mm256_and_si256(_mm256_srli_epi32(x, 16), byte), 5);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * i),
                            _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi32(red, 21), _mm256_slli_epi32(green, 10)), blue));
    }
    PackPortable(in + 4 * i, out + 4 * i, pixels - i);
}

ORBT_TARGET_AVX2 void UnpackAVX2(const uint8_t* in, uint8_t* out, size_t pixels)
{
    size_t i = 0;
    for (; i + 8 <= pixels; i += 8)
    {
        const __m256i word = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 4 * i));
        const __m256i red = BytesOfFloats(FloatsOfSmallFloats(_mm256_srli_epi32(word, 21), 6));
        const __m256i green = BytesOfFloats(FloatsOfSmallFloats(_mm256_srli_epi32(word, 10), 6));
        const __m256i blue = BytesOfFloats(FloatsOfSmallFloats(word, 5));
        const __m256i pixel = _mm256_or_si256(
            _mm256_or_si256(red, _mm256_slli_epi32(green, 8)),
            _mm256_or_si256(_mm256_slli_epi32(blue, 16), _mm256_set1_epi32(int(0xFF000000u))));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * i), pixel);
    }
    UnpackPortable(in + 4 * i, out + 4 * i, pixels - i);
}

ORBT_TARGET_AVX2 void StepAVX2(EElementStep step, const uint8_t* in, uint8_t* out, size_t elements)
{
    size_t i = 0;
    switch (step)
    {
    case eBytesToShorts:
        for (; i + 16 <= elements; i += 16)
        {
            const __m256i v = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i), _mm256_mullo_epi16(v, _mm256_set1_epi16(257)));
        }
        break;
    case eShortsToBytes:
        for (; i + 16 <= elements; i += 16)
        {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 2 * i));
            const __m256i t = _mm256_adds_epu16(v, _mm256_set1_epi16(128));
            const __m256i q = _mm256_srli_epi16(_mm256_sub_epi16(t, _mm256_srli_epi16(t, 8)), 8);
            const __m128i packed = _mm_packus_epi16(_mm256_castsi256_si128(q), _mm256_extracti128_si256(q, 1));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), packed);
        }
        break;
    case eBytesToFloats:
        for (; i + 8 <= elements; i += 8)
        {
            const __m256i v = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + i)));
            _mm256_storeu_ps(reinterpret_cast<float*>(out + 4 * i),
                             _mm256_div_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(255.0f)));
        }
        break;
    case eFloatsToBytes:
        for (; i + 8 <= elements; i += 8)
        {
            const __m256 v = _mm256_loadu_ps(reinterpret_cast<const float*>(in + 4 * i));
            const __m256 inRange = _mm256_and_ps(_mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_GE_OQ),
                                                 _mm256_cmp_ps(v, _mm256_set1_ps(65536.0f), _CMP_LE_OQ));
            if (_mm256_movemask_ps(inRange) != 255)
            {
                StepPortable(step, in + 4 * i, out + i, 8);
                continue;
            }
            const __m256i bytes = BytesOfFloats(_mm256_castps_si256(v));
            const __m128i words =
                _mm_packs_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(words, words));
        }
        break;
    }
    StepPortable(step, in + i * InBytes(step), out + i * OutBytes(step), elements - i);
}

#endif

} // namespace

uint32_t ElementStep(EElementStep step, uint32_t value)
{
    switch (step)
    {
    case eBytesToShorts: return value * 257;
    case eShortsToBytes:
    {
        const uint32_t t = value + 128 > 0xFFFF ? 0xFFFF : value + 128;
        return (t - (t >> 8)) >> 8;
    }
    case eBytesToFloats:
    {
        const float result = float(value) / 255.0f;
        uint32_t bits;
        std::memcpy(&bits, &result, 4);
        return bits;
    }
    default:
    {
        float v;
        std::memcpy(&v, &value, 4);
        if (v >= 0.0f && v <= 65536.0f)
            return uint32_t(double(v) * 255.0 + 0.5) & 0xFF;
        return CPixelEncoder::ShrinkFloatToUNorm(v, 8) & 0xFF;
    }
    }
}

void PackFloats1110(const uint8_t* in, uint8_t* out, size_t pixels)
{
#if ORBT_X86_SIMD
    const ESimdPath path = ActiveSimdPath();
    if (path == eSimdAVX2)
        return PackAVX2(in, out, pixels);
    if (path == eSimdSSE2)
        return PackSSE2(in, out, pixels);
#endif
    PackPortable(in, out, pixels);
}

void UnpackFloats1110(const uint8_t* in, uint8_t* out, size_t pixels)
{
#if ORBT_X86_SIMD
    if (ActiveSimdPath() == eSimdAVX2)
        return UnpackAVX2(in, out, pixels);
#endif
    UnpackPortable(in, out, pixels);
}

void ConvertElements(EElementStep step, const uint8_t* in, uint8_t* out, size_t elements)
{
#if ORBT_X86_SIMD
    const ESimdPath path = ActiveSimdPath();
    if (path == eSimdAVX2)
        return StepAVX2(step, in, out, elements);
    if (path == eSimdSSE2)
        return StepSSE2(step, in, out, elements);
#endif
    StepPortable(step, in, out, elements);
}

} // namespace orbtexture
