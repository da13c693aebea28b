#include "Pixels/ORBTSharedExponentPaths.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Codecs/RGB9E5Codec.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTParallel.h"
#include "Tools/ORBTSimd.h"
#include "ORBTextureUtilities.h"

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixels are stored as little-endian words");

// Encoding: the shared exponent depends on the largest channel alone, and
// each mantissa on its channel and that exponent. For the largest byte M and
// a byte v <= M, the word of the floats (v, M, 0) holds both.
struct EncodeTables
{
    std::vector<uint16_t> mantissa; // [M * 256 + v]
    uint32_t exponent[256];
    EncodeTables() : mantissa(65536)
    {
        for (uint32_t largest = 0; largest < 256; ++largest)
            for (uint32_t v = 0; v <= largest; ++v)
            {
                float rgb[3] = {CPixelEncoder::GrowUNormToFloat(v, 8), CPixelEncoder::GrowUNormToFloat(largest, 8), 0};
                const uint32_t word = float3_to_rgb9e5(rgb);
                mantissa[largest * 256 + v] = uint16_t(word & 0x1FF);
                exponent[largest] = word & 0xF8000000u;
            }
    }
};

// Decoding: each channel's byte depends on its mantissa and the exponent.
struct DecodeTable
{
    uint8_t byte[32 * 512];
    DecodeTable()
    {
        for (uint32_t index = 0; index < 32 * 512; ++index)
        {
            float rgb[3];
            rgb9e5_to_float3((index & 0x1FF) | (index >> 9) << 27, rgb);
            uint32_t bits;
            std::memcpy(&bits, &rgb[0], 4);
            byte[index] = uint8_t(ElementStep(eFloatsToBytes, bits));
        }
    }
};

const EncodeTables& Encoding()
{
    static const EncodeTables tables;
    return tables;
}

const DecodeTable& Decoding()
{
    static const DecodeTable table;
    return table;
}

bool IsRGBA8(PixelType type, EORBTVariableType channelType)
{
    return type == PixelType(ORBStandard8PixelType) && channelType == eVarUnsignedByteNorm;
}

void EncodePortable(const uint8_t* rgba, uint8_t* words, size_t pixels)
{
    const EncodeTables& tables = Encoding();
    for (size_t i = 0; i < pixels; ++i, rgba += 4, words += 4)
    {
        const uint32_t largest = std::max(rgba[0], std::max(rgba[1], rgba[2]));
        const uint16_t* row = &tables.mantissa[largest * 256];
        const uint32_t word = row[rgba[0]] | uint32_t(row[rgba[1]]) << 9 | uint32_t(row[rgba[2]]) << 18 |
                              tables.exponent[largest];
        std::memcpy(words, &word, 4);
    }
}

void DecodePortable(const uint8_t* words, uint8_t* rgba, size_t pixels)
{
    const uint8_t* table = Decoding().byte;
    for (size_t i = 0; i < pixels; ++i, words += 4, rgba += 4)
    {
        uint32_t word;
        std::memcpy(&word, words, 4);
        const uint8_t* row = table + ((word >> 27) << 9);
        const uint32_t pixel = row[word & 0x1FF] | uint32_t(row[(word >> 9) & 0x1FF]) << 8 |
                               uint32_t(row[(word >> 18) & 0x1FF]) << 16 | 0xFF000000u;
        std::memcpy(rgba, &pixel, 4);
    }
}

#if ORBT_X86_SIMD

// floor(x * 2^k + 0.5) for the floats x in 32-bit lanes, k such that the
// shift below stays at 0 or above: ((m >> (22 - e - k)) + 1) >> 1 for the
// 24-bit mantissa m and exponent e; a shift above 31 (x = 0) gives 0.
ORBT_TARGET_AVX2 inline __m256i RoundScaled(__m256 x, __m256i k)
{
    const __m256i bits = _mm256_castps_si256(x);
    const __m256i exponent = _mm256_sub_epi32(_mm256_srli_epi32(bits, 23), _mm256_set1_epi32(127));
    const __m256i mantissa =
        _mm256_or_si256(_mm256_and_si256(bits, _mm256_set1_epi32(0x7FFFFF)), _mm256_set1_epi32(0x800000));
    const __m256i shift = _mm256_sub_epi32(_mm256_sub_epi32(_mm256_set1_epi32(22), exponent), k);
    return _mm256_srli_epi32(_mm256_add_epi32(_mm256_srlv_epi32(mantissa, shift), _mm256_set1_epi32(1)), 1);
}

// A channel's 9-bit mantissa at scale 2^k.
ORBT_TARGET_AVX2 inline __m256i Mantissa(__m256i v, __m256i k)
{
    return _mm256_and_si256(RoundScaled(_mm256_div_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(255.0f)), k),
                            _mm256_set1_epi32(0x1FF));
}

// The encoder's steps in lanes: the largest channel gives the shared field s,
// its exponent plus 16, and the scale 2^(24 - s) of every mantissa. (The
// encoder adds 1 to s when the largest mantissa rounds to 512, which no byte
// reaches: the largest rounds to at most 510; the tests check every byte.)
ORBT_TARGET_AVX2 void EncodeAVX2(const uint8_t* rgba, uint8_t* words, size_t pixels)
{
    const __m256i byte = _mm256_set1_epi32(0xFF);
    const __m256 scale = _mm256_set1_ps(255.0f);
    size_t i = 0;
    for (; i + 8 <= pixels; i += 8)
    {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rgba + 4 * i));
        const __m256i r = _mm256_and_si256(x, byte), g = _mm256_and_si256(_mm256_srli_epi32(x, 8), byte);
        const __m256i b = _mm256_and_si256(_mm256_srli_epi32(x, 16), byte);
        const __m256i largest = _mm256_max_epu32(r, _mm256_max_epu32(g, b));
        const __m256i topBits = _mm256_castps_si256(_mm256_div_ps(_mm256_cvtepi32_ps(largest), scale));
        const __m256i exponent = _mm256_sub_epi32(_mm256_srli_epi32(topBits, 23), _mm256_set1_epi32(127));
        const __m256i shared = _mm256_andnot_si256(_mm256_cmpeq_epi32(largest, _mm256_setzero_si256()),
                                                   _mm256_add_epi32(exponent, _mm256_set1_epi32(16)));
        const __m256i k = _mm256_sub_epi32(_mm256_set1_epi32(24), shared);
        const __m256i word = _mm256_or_si256(
            _mm256_or_si256(Mantissa(r, k), _mm256_slli_epi32(Mantissa(g, k), 9)),
            _mm256_or_si256(_mm256_slli_epi32(Mantissa(b, k), 18), _mm256_slli_epi32(shared, 27)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + 4 * i), word);
    }
    EncodePortable(rgba + 4 * i, words + 4 * i, pixels - i);
}

// A channel's byte: the low byte of m * 2^(e - 24) * 255 rounded, that is
// ((t >> (23 - e)) + 1) >> 1 below e = 24 and t << (e - 24) from it, t = m *
// 255; each shift gives 0 where the other applies.
ORBT_TARGET_AVX2 inline __m256i ChannelBytes(__m256i mantissa, __m256i exponent)
{
    const __m256i t = _mm256_sub_epi32(_mm256_slli_epi32(mantissa, 8), mantissa);
    const __m256i down = _mm256_srli_epi32(
        _mm256_add_epi32(_mm256_srlv_epi32(t, _mm256_sub_epi32(_mm256_set1_epi32(23), exponent)), _mm256_set1_epi32(1)),
        1);
    const __m256i up = _mm256_sllv_epi32(t, _mm256_sub_epi32(exponent, _mm256_set1_epi32(24)));
    return _mm256_and_si256(_mm256_or_si256(down, up), _mm256_set1_epi32(0xFF));
}

ORBT_TARGET_AVX2 void DecodeAVX2(const uint8_t* words, uint8_t* rgba, size_t pixels)
{
    const __m256i nine = _mm256_set1_epi32(0x1FF);
    size_t i = 0;
    for (; i + 8 <= pixels; i += 8)
    {
        const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + 4 * i));
        const __m256i exponent = _mm256_srli_epi32(w, 27);
        const __m256i r = ChannelBytes(_mm256_and_si256(w, nine), exponent);
        const __m256i g = ChannelBytes(_mm256_and_si256(_mm256_srli_epi32(w, 9), nine), exponent);
        const __m256i b = ChannelBytes(_mm256_and_si256(_mm256_srli_epi32(w, 18), nine), exponent);
        const __m256i pixel = _mm256_or_si256(_mm256_or_si256(r, _mm256_slli_epi32(g, 8)),
                                              _mm256_or_si256(_mm256_slli_epi32(b, 16), _mm256_set1_epi32(int(0xFF000000u))));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(rgba + 4 * i), pixel);
    }
    DecodePortable(words + 4 * i, rgba + 4 * i, pixels - i);
}

#endif

} // namespace

void EncodeSharedExponent(const uint8_t* rgba, uint8_t* words, size_t pixels)
{
#if ORBT_X86_SIMD
    if (ActiveSimdPath() == eSimdAVX2)
        return EncodeAVX2(rgba, words, pixels);
#endif
    EncodePortable(rgba, words, pixels);
}

void DecodeSharedExponent(const uint8_t* words, uint8_t* rgba, size_t pixels)
{
#if ORBT_X86_SIMD
    if (ActiveSimdPath() == eSimdAVX2)
        return DecodeAVX2(words, rgba, pixels);
#endif
    DecodePortable(words, rgba, pixels);
}

bool TranscodeSharedExponentDirectly(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
                                     EORBTColourSpace colourSpace)
{
    const PixelType from = texture.getPixelType(), rgb9e5(ePF_RGB9E5);
    const bool encode = IsRGBA8(from, texture.getChannelType()) && pixelType == rgb9e5;
    const bool decode = from == rgb9e5 && IsRGBA8(pixelType, channelType);
    if ((!encode && !decode) || colourSpace != texture.getColourSpace() || CurrentCallContext().progress)
        return false;

    // The header the two steps leave: the encoder keeps the intermediate's
    // channel type.
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(pixelType);
    if (encode)
    {
        PixelType intermediate;
        EORBTVariableType intermediateType;
        IntermediateTranscodeFormat(pixelType, channelType, intermediate, intermediateType);
        header.setChannelType(intermediateType);
    }
    else
    {
        header.setChannelType(channelType);
    }
    CORBTexture result(header);
    ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
        const uint8_t* in = texture.getDataPtr(mip, member, face);
        uint8_t* out = result.getDataPtr(mip, member, face);
        const uint32_t count = texture.getTextureSize(int(mip), false, false);
        ParallelRanges(count, count, [&](uint32_t first, uint32_t end) {
            (encode ? EncodeSharedExponent : DecodeSharedExponent)(in + size_t(first) * 4, out + size_t(first) * 4,
                                                                   end - first);
        });
    });
    texture = std::move(result);
    return true;
}

} // namespace orbtexture
