// AVX2 kernel of the ORBTC row decoder: the SSE2 kernel's lanes for four
// pixels at a time.

#include "Codecs/ORBTC/ORBTCFastDecodeKernels.h"

#if ORBT_X86_SIMD

#include <immintrin.h>

#include <cstring>

namespace orbtexture
{

namespace
{

struct ConstantsAVX2
{
    __m128i shift;
    __m256i scale, fifteen, punchBit, punchLanes;
};

ORBT_TARGET_AVX2 inline __m256i Pixels4(int16_t a, int16_t b, int16_t c, int16_t d)
{
    return _mm256_setr_epi16(a, a, a, a, b, b, b, b, c, c, c, c, d, d, d, d);
}

// Four pixels from colour lanes xa, ya (colour A), xb, yb (colour B) with
// weights wa, wb and the weights 'w' already spread over the pixels' lanes.
ORBT_TARGET_AVX2 inline __m256i Quad(__m256i xa, __m256i ya, __m256i xb, __m256i yb, __m256i wa, __m256i wb,
                                     __m256i w, const ConstantsAVX2& k, bool punch)
{
    const __m256i va = _mm256_add_epi16(_mm256_mullo_epi16(xa, wa), _mm256_mullo_epi16(ya, wb));
    const __m256i vb = _mm256_add_epi16(_mm256_mullo_epi16(xb, wa), _mm256_mullo_epi16(yb, wb));
    const __m256i a = _mm256_add_epi16(_mm256_srl_epi16(va, k.shift), _mm256_mulhi_epu16(va, k.scale));
    const __m256i b = _mm256_add_epi16(_mm256_srl_epi16(vb, k.shift), _mm256_mulhi_epu16(vb, k.scale));
    __m256i out = _mm256_add_epi16(
        a, _mm256_srai_epi16(_mm256_mullo_epi16(_mm256_and_si256(w, k.fifteen), _mm256_sub_epi16(b, a)), 3));
    if (punch)
    {
        const __m256i marked = _mm256_cmpeq_epi16(_mm256_and_si256(w, k.punchBit), k.punchBit);
        out = _mm256_andnot_si256(_mm256_and_si256(marked, k.punchLanes), out);
    }
    return out;
}

ORBT_TARGET_AVX2 inline __m256i Load2(const int16_t* low, const int16_t* high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(low))),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

// 4bpp block x: pixels 0, 1 between columns x - 1 and x, 2, 3 between x and x + 1.
template <bool Hard>
ORBT_TARGET_AVX2 inline __m256i Block4(const ORBTCRowJob& job, uint32_t x, __m256i wa, __m256i wb, __m256i spread,
                                       const ConstantsAVX2& k)
{
    __m256i lo, hi;
    if (Hard)
    {
        const ORBTCColumns c = ORBTCBlockColumns<true>(job, x);
        lo = Load2(c.lx, c.rx);
        hi = Load2(c.ly, c.ry);
    }
    else
    {
        const int16_t* c = job.colours + 8 * size_t(x);
        lo = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(c));
        hi = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(c + 8));
    }
    int32_t four;
    std::memcpy(&four, job.weights + 4 * size_t(x), 4);
    const __m256i w = _mm256_shuffle_epi8(_mm256_set1_epi32(four), spread);
    return Quad(_mm256_unpacklo_epi64(lo, lo), _mm256_unpacklo_epi64(hi, hi), _mm256_unpackhi_epi64(lo, lo),
                _mm256_unpackhi_epi64(hi, hi), wa, wb, w, k, true);
}

ORBT_TARGET_AVX2 inline __m256i Broadcast(const int16_t* lanes)
{
    return _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lanes)));
}

template <bool Hard>
ORBT_TARGET_AVX2 void DecodeRowAVX2(const ORBTCRowJob& job)
{
    const bool two = job.twoBpp;
    const int16_t rgbScale = int16_t(two ? 1 << 14 : 0x8000), alphaScale = int16_t(two ? 1 << 13 : 1 << 14);
    const ConstantsAVX2 k{_mm_cvtsi32_si128(two ? 7 : 6),
                          _mm256_setr_epi16(rgbScale, rgbScale, rgbScale, alphaScale, rgbScale, rgbScale, rgbScale,
                                            alphaScale, rgbScale, rgbScale, rgbScale, alphaScale, rgbScale, rgbScale,
                                            rgbScale, alphaScale),
                          _mm256_set1_epi16(15), _mm256_set1_epi16(kORBTCPunchThrough),
                          job.generation2 ? _mm256_set1_epi16(-1)
                                          : _mm256_setr_epi16(0, 0, 0, -1, 0, 0, 0, -1, 0, 0, 0, -1, 0, 0, 0, -1)};
    const char z = char(0x80);
    if (!two)
    {
        const __m256i wa = Pixels4(2, 1, 4, 3), wb = Pixels4(2, 3, 0, 1);
        const __m256i spread = _mm256_setr_epi8(0, z, 0, z, 0, z, 0, z, 1, z, 1, z, 1, z, 1, z, //
                                                2, z, 2, z, 2, z, 2, z, 3, z, 3, z, 3, z, 3, z);
        uint32_t x = 0;
        for (; x + 2 <= job.numX; x += 2)
        {
            const __m256i q0 = Block4<Hard>(job, x, wa, wb, spread, k);
            const __m256i q1 = Block4<Hard>(job, x + 1, wa, wb, spread, k);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(job.out + 16 * size_t(x)),
                                _mm256_permute4x64_epi64(_mm256_packus_epi16(q0, q1), 0xD8));
        }
        if (x < job.numX)
        {
            const __m256i q = Block4<Hard>(job, x, wa, wb, spread, k);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(job.out + 16 * size_t(x)),
                             _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi16(q, q), 0x08)));
        }
        return;
    }
    // Pixels 0-3 lie in the tile from column x - 1, 4-7 in the one from x.
    const __m256i wa0 = Pixels4(4, 3, 2, 1), wb0 = Pixels4(4, 5, 6, 7);
    const __m256i wa1 = Pixels4(8, 7, 6, 5), wb1 = Pixels4(0, 1, 2, 3);
    const __m256i spread0 = _mm256_setr_epi8(0, z, 0, z, 0, z, 0, z, 1, z, 1, z, 1, z, 1, z, //
                                             2, z, 2, z, 2, z, 2, z, 3, z, 3, z, 3, z, 3, z);
    const __m256i spread1 = _mm256_setr_epi8(4, z, 4, z, 4, z, 4, z, 5, z, 5, z, 5, z, 5, z, //
                                             6, z, 6, z, 6, z, 6, z, 7, z, 7, z, 7, z, 7, z);
    for (uint32_t x = 0; x < job.numX; ++x)
    {
        const ORBTCColumns c = ORBTCBlockColumns<Hard>(job, x);
        int64_t eight;
        std::memcpy(&eight, job.weights + 8 * size_t(x), 8);
        const __m256i weights = _mm256_set1_epi64x(eight);
        const __m256i q0 = Quad(Broadcast(c.lx), Broadcast(c.ly), Broadcast(c.lx + 4), Broadcast(c.ly + 4), wa0, wb0,
                                _mm256_shuffle_epi8(weights, spread0), k, false);
        const __m256i q1 = Quad(Broadcast(c.rx), Broadcast(c.ry), Broadcast(c.rx + 4), Broadcast(c.ry + 4), wa1, wb1,
                                _mm256_shuffle_epi8(weights, spread1), k, false);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(job.out + 32 * size_t(x)),
                            _mm256_permute4x64_epi64(_mm256_packus_epi16(q0, q1), 0xD8));
    }
}

} // namespace

ORBT_TARGET_AVX2 void ORBTCDecodeRowAVX2(const ORBTCRowJob& job)
{
    if (job.hard)
        DecodeRowAVX2<true>(job);
    else
        DecodeRowAVX2<false>(job);
}

} // namespace orbtexture

#endif
