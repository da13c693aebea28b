// SSE2 kernels of the ORBTC row decoder: the portable kernels' bytes in 16-bit
// lanes, a pixel's red, green, blue and alpha side by side.

#include "Codecs/ORBTC/ORBTCFastDecodeKernels.h"

#if ORBT_X86_SIMD

#include <emmintrin.h>

#include <cstring>

namespace orbtexture
{

namespace
{

// Lanes of two pixels with weights a and b (each over a pixel's four lanes).
inline __m128i Pixels2(int16_t a, int16_t b) { return _mm_setr_epi16(a, a, a, a, b, b, b, b); }

// The 8-bit value of mixed lanes: (v >> shift) + (v >> (shift - 5)), alpha
// (4 x scale) (v >> shift) + (v >> (shift - 4)), the second term a high
// multiply by 'scale'.
inline __m128i Widen(__m128i v, __m128i shift, __m128i scale)
{
    return _mm_add_epi16(_mm_srl_epi16(v, shift), _mm_mulhi_epu16(v, scale));
}

struct ConstantsSSE2
{
    __m128i shift, scale, fifteen, punchBit, punchLanes;
};

// Two pixels between columns x and y (8 lanes each) with weights wa, wb.
inline __m128i PairSSE2(const int16_t* x, const int16_t* y, __m128i wa, __m128i wb, const uint8_t* weights,
                        const ConstantsSSE2& k, bool punch)
{
    const __m128i cx = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x));
    const __m128i cy = _mm_loadu_si128(reinterpret_cast<const __m128i*>(y));
    const __m128i a = Widen(_mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi64(cx, cx), wa),
                                          _mm_mullo_epi16(_mm_unpacklo_epi64(cy, cy), wb)),
                            k.shift, k.scale);
    const __m128i b = Widen(_mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi64(cx, cx), wa),
                                          _mm_mullo_epi16(_mm_unpackhi_epi64(cy, cy), wb)),
                            k.shift, k.scale);
    uint16_t two;
    std::memcpy(&two, weights, 2);
    __m128i w = _mm_unpacklo_epi8(_mm_cvtsi32_si128(two), _mm_setzero_si128());
    w = _mm_unpacklo_epi16(w, w);
    w = _mm_unpacklo_epi32(w, w);
    const __m128i mix = _mm_mullo_epi16(_mm_and_si128(w, k.fifteen), _mm_sub_epi16(b, a));
    __m128i out = _mm_add_epi16(a, _mm_srai_epi16(mix, 3));
    if (punch)
    {
        const __m128i marked = _mm_cmpeq_epi16(_mm_and_si128(w, k.punchBit), k.punchBit);
        out = _mm_andnot_si128(_mm_and_si128(marked, k.punchLanes), out);
    }
    return out;
}

template <bool Hard>
void DecodeRowSSE2(const ORBTCRowJob& job)
{
    const bool two = job.twoBpp;
    const int16_t rgbScale = int16_t(two ? 1 << 14 : 0x8000), alphaScale = int16_t(two ? 1 << 13 : 1 << 14);
    const ConstantsSSE2 k{_mm_cvtsi32_si128(two ? 7 : 6),
                          _mm_setr_epi16(rgbScale, rgbScale, rgbScale, alphaScale, rgbScale, rgbScale, rgbScale,
                                         alphaScale),
                          _mm_set1_epi16(15), _mm_set1_epi16(kORBTCPunchThrough),
                          job.generation2 ? _mm_set1_epi16(-1) : _mm_setr_epi16(0, 0, 0, -1, 0, 0, 0, -1)};
    if (!two)
    {
        // Pixels 0 and 1 lie in the tile from column x - 1, 2 and 3 in the
        // one from column x.
        const __m128i wa0 = Pixels2(2, 1), wb0 = Pixels2(2, 3), wa1 = Pixels2(4, 3), wb1 = Pixels2(0, 1);
        for (uint32_t x = 0; x < job.numX; ++x)
        {
            const ORBTCColumns c = ORBTCBlockColumns<Hard>(job, x);
            const uint8_t* w = job.weights + 4 * size_t(x);
            const __m128i p0 = PairSSE2(c.lx, c.ly, wa0, wb0, w, k, true);
            const __m128i p1 = PairSSE2(c.rx, c.ry, wa1, wb1, w + 2, k, true);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(job.out + 16 * size_t(x)), _mm_packus_epi16(p0, p1));
        }
        return;
    }
    const __m128i wa[4] = {Pixels2(4, 3), Pixels2(2, 1), Pixels2(8, 7), Pixels2(6, 5)};
    const __m128i wb[4] = {Pixels2(4, 5), Pixels2(6, 7), Pixels2(0, 1), Pixels2(2, 3)};
    for (uint32_t x = 0; x < job.numX; ++x)
    {
        const ORBTCColumns c = ORBTCBlockColumns<Hard>(job, x);
        const uint8_t* w = job.weights + 8 * size_t(x);
        uint8_t* out = job.out + 32 * size_t(x);
        const __m128i p0 = PairSSE2(c.lx, c.ly, wa[0], wb[0], w, k, false);
        const __m128i p1 = PairSSE2(c.lx, c.ly, wa[1], wb[1], w + 2, k, false);
        const __m128i p2 = PairSSE2(c.rx, c.ry, wa[2], wb[2], w + 4, k, false);
        const __m128i p3 = PairSSE2(c.rx, c.ry, wa[3], wb[3], w + 6, k, false);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(p0, p1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), _mm_packus_epi16(p2, p3));
    }
}

} // namespace

void ORBTCDecodeRowSSE2(const ORBTCRowJob& job)
{
    if (job.hard)
        DecodeRowSSE2<true>(job);
    else
        DecodeRowSSE2<false>(job);
}

void ORBTCSubModeWeightsSSE2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, const uint8_t* modes,
                             uint32_t numX, uint32_t s, uint8_t* weights)
{
    const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi8(1), two = _mm_set1_epi8(2),
                  three = _mm_set1_epi8(3), low6 = _mm_set1_epi8(0x3F);
    const uint32_t odd = s & 1u;
    for (uint32_t x = 0; x < numX; x += 2)
    {
        const size_t i = size_t(x) * 8;
        uint64_t first, second;
        std::memcpy(&first, kORBTCSelectors.bytes[modes[x] & 3u][odd], 8);
        std::memcpy(&second, kORBTCSelectors.bytes[modes[x + 1] & 3u][odd], 8);
        const __m128i selector = _mm_set_epi64x(int64_t(second), int64_t(first));
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(centre + i));
        const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(centre + i - 1));
        const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(centre + i + 1));
        const __m128i u = _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper + i));
        const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lower + i));
        const __m128i sum = _mm_add_epi8(_mm_add_epi8(l, r), _mm_add_epi8(_mm_add_epi8(u, d), two));
        const __m128i both = _mm_and_si128(_mm_srli_epi16(sum, 2), low6);
        const __m128i result =
            _mm_or_si128(_mm_or_si128(_mm_and_si128(_mm_cmpeq_epi8(selector, zero), c),
                                      _mm_and_si128(_mm_cmpeq_epi8(selector, one), both)),
                         _mm_or_si128(_mm_and_si128(_mm_cmpeq_epi8(selector, two), _mm_avg_epu8(l, r)),
                                      _mm_and_si128(_mm_cmpeq_epi8(selector, three), _mm_avg_epu8(u, d))));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(weights + i), result);
    }
}

} // namespace orbtexture

#endif
