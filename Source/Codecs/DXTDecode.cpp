// The DXT decoder: the block's palette in 16-bit lanes, pixels chosen by
// lane permutes on AVX2, by table reads otherwise. Every path gives the bytes
// of the plain decoder in DXTCodec.cpp.

#include "Codecs/DXTDecode.h"

#include <cstring>

#include "Tools/ORBTParallel.h"
#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <immintrin.h>
#endif

namespace orbtexture
{

namespace
{

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixels are stored as little-endian words");

inline uint32_t Load32(const uint8_t* p)
{
    uint32_t value;
    std::memcpy(&value, p, 4);
    return value;
}

inline uint64_t Load64(const uint8_t* p)
{
    uint64_t value;
    std::memcpy(&value, p, 8);
    return value;
}

// The four colours, alpha 255 in DXT1 except the transparent fourth colour
// of three-colour blocks, 0 in the others (their alpha is ORed in).
void PalettePortable(const uint8_t* colour, bool dxt1, bool fourAlways, uint32_t words[4])
{
    const uint32_t c0 = colour[0] | colour[1] << 8, c1 = colour[2] | colour[3] << 8;
    const auto expand = [](uint32_t c) {
        const uint32_t r = c >> 11, g = (c >> 5) & 63, b = c & 31;
        return uint64_t((r << 3) | (r >> 2)) | uint64_t((g << 2) | (g >> 4)) << 16 |
               uint64_t((b << 3) | (b >> 2)) << 32;
    };
    // Three 16-bit lanes, no carries between them.
    constexpr uint64_t kLanes = 0x000000FF00FF00FFull;
    const uint64_t e0 = expand(c0), e1 = expand(c1);
    const bool four = fourAlways || c0 > c1;
    const uint64_t e2 = four ? ((21 * e0 + 11 * e1) >> 5) & kLanes : ((e0 + e1) >> 1) & kLanes;
    const uint64_t e3 = four ? ((11 * e0 + 21 * e1) >> 5) & kLanes : 0;
    const auto pack = [](uint64_t e) { return uint32_t(e & 0xFF) | uint32_t(e >> 8 & 0xFF00) | uint32_t(e >> 16 & 0xFF0000); };
    const uint32_t alpha = dxt1 ? 0xFF000000u : 0;
    words[0] = pack(e0) | alpha;
    words[1] = pack(e1) | alpha;
    words[2] = pack(e2) | alpha;
    words[3] = pack(e3) | (four ? alpha : 0);
}

// The eight interpolated alphas, shifted into the alpha byte.
void InterpolatedAlphas(const uint8_t* block, uint32_t words[8])
{
    const uint32_t a0 = block[0], a1 = block[1];
    uint32_t alphas[8] = {a0, a1, 0, 0, 0, 0, 0, 255};
    if (a0 > a1)
        for (uint32_t k = 1; k <= 6; ++k)
            alphas[1 + k] = ((7 - k) * a0 + k * a1) / 7;
    else
        for (uint32_t k = 1; k <= 4; ++k)
            alphas[1 + k] = ((5 - k) * a0 + k * a1) / 5;
    for (int k = 0; k < 8; ++k)
        words[k] = alphas[k] << 24;
}

// Each pixel's alpha word by its 3-bit index, after the block's two end points.
inline void IndexAlphas(const uint32_t words[8], const uint8_t* block, uint32_t alpha[16])
{
    const uint64_t bits = Load64(block) >> 16;
    for (int i = 0; i < 16; ++i)
        alpha[i] = words[(bits >> (3 * i)) & 7];
}

// The alpha word of each pixel, 0 for DXT1.
inline void AlphaWords(const uint8_t* block, unsigned format, uint32_t alpha[16])
{
    if (format == 1)
    {
        std::memset(alpha, 0, 16 * sizeof *alpha);
    }
    else if (format <= 3)
    {
        const uint64_t bits = Load64(block);
        for (int i = 0; i < 16; ++i)
            alpha[i] = uint32_t((bits >> (4 * i)) & 15) * 0x11000000u;
    }
    else
    {
        uint32_t words[8];
        InterpolatedAlphas(block, words);
        IndexAlphas(words, block, alpha);
    }
}

// The block's 4 rows: each pixel's colour by its 2-bit code, ORed with its alpha.
inline void WriteRows(const uint32_t words[4], const uint32_t alpha[16], uint32_t codes, uint8_t* pixels,
                      size_t rowBytes)
{
    for (int y = 0; y < 4; ++y)
    {
        uint32_t row[4];
        for (int x = 0; x < 4; ++x)
            row[x] = words[(codes >> (8 * y + 2 * x)) & 3] | alpha[4 * y + x];
        std::memcpy(pixels + y * rowBytes, row, sizeof row);
    }
}

using BlockDecoder = void (*)(const uint8_t* block, unsigned format, uint8_t* pixels, size_t rowBytes);

void BlockPortable(const uint8_t* block, unsigned format, uint8_t* pixels, size_t rowBytes)
{
    const uint8_t* colour = format == 1 ? block : block + 8;
    uint32_t words[4], alpha[16];
    PalettePortable(colour, format == 1, format >= 2 && format <= 3, words);
    AlphaWords(block, format, alpha);
    WriteRows(words, alpha, Load32(colour + 4), pixels, rowBytes);
}

#if ORBT_X86_SIMD

// The palette as four words of a vector: endpoints widened in 16-bit lanes
// (r as (c & 0xF800) * 264 >> 16, g as (c & 0x07E0) * 8320 >> 16, b the
// same as r after a shift by 11), then the two interpolated colours.
inline __m128i PaletteSSE2(const uint8_t* colour, bool dxt1, bool fourAlways)
{
    const uint32_t c0 = colour[0] | colour[1] << 8, c1 = colour[2] | colour[3] << 8;
    const bool four = fourAlways || c0 > c1;
    __m128i e = _mm_setr_epi16(short(c0), short(c0), short(c0), 0, short(c1), short(c1), short(c1), 0);
    e = _mm_mullo_epi16(e, _mm_setr_epi16(1, 1, 2048, 0, 1, 1, 2048, 0));
    e = _mm_and_si128(e, _mm_setr_epi16(short(0xF800), 0x07E0, short(0xF800), 0, short(0xF800), 0x07E0,
                                        short(0xF800), 0));
    e = _mm_mulhi_epu16(e, _mm_setr_epi16(264, 8320, 264, 0, 264, 8320, 264, 0));
    const __m128i first = _mm_unpacklo_epi64(e, e), second = _mm_unpackhi_epi64(e, e);
    __m128i mixed;
    if (four)
        mixed = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(first, _mm_setr_epi16(21, 21, 21, 0, 11, 11, 11, 0)),
                                             _mm_mullo_epi16(second, _mm_setr_epi16(11, 11, 11, 0, 21, 21, 21, 0))),
                               5);
    else
        mixed = _mm_and_si128(_mm_srli_epi16(_mm_add_epi16(first, second), 1), _mm_setr_epi16(-1, -1, -1, 0, 0, 0, 0, 0));
    const short a = dxt1 ? 255 : 0, last = dxt1 && four ? 255 : 0;
    e = _mm_or_si128(e, _mm_setr_epi16(0, 0, 0, a, 0, 0, 0, a));
    mixed = _mm_or_si128(mixed, _mm_setr_epi16(0, 0, 0, a, 0, 0, 0, last));
    return _mm_packus_epi16(e, mixed);
}

// The eight interpolated alphas in 16-bit lanes, without a branch: the
// weights of the block's mode are read from a table, and the divisions by 7
// and 5 are high multiplies by 9363 and 13108 (exact for these sums).
inline __m128i AlphaPaletteSSE2(const uint8_t* block)
{
    alignas(16) static const int16_t kFirst[2][8] = {{5, 0, 4, 3, 2, 1, 0, 0}, {7, 0, 6, 5, 4, 3, 2, 1}};
    alignas(16) static const int16_t kSecond[2][8] = {{0, 5, 1, 2, 3, 4, 0, 0}, {0, 7, 1, 2, 3, 4, 5, 6}};
    alignas(16) static const int16_t kDivide[2][8] = {{13108, 13108, 13108, 13108, 13108, 13108, 13108, 13108},
                                                      {9363, 9363, 9363, 9363, 9363, 9363, 9363, 9363}};
    alignas(16) static const int16_t kOpaque[2][8] = {{0, 0, 0, 0, 0, 0, 0, 255}, {0, 0, 0, 0, 0, 0, 0, 0}};
    const int mode = block[0] > block[1] ? 1 : 0;
    const auto row = [mode](const int16_t (*table)[8]) {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(table[mode]));
    };
    const __m128i sums = _mm_add_epi16(_mm_mullo_epi16(_mm_set1_epi16(block[0]), row(kFirst)),
                                       _mm_mullo_epi16(_mm_set1_epi16(block[1]), row(kSecond)));
    return _mm_or_si128(_mm_mulhi_epu16(sums, row(kDivide)), row(kOpaque));
}

void BlockSSE2(const uint8_t* block, unsigned format, uint8_t* pixels, size_t rowBytes)
{
    const uint8_t* colour = format == 1 ? block : block + 8;
    alignas(16) uint32_t words[4];
    uint32_t alpha[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), PaletteSSE2(colour, format == 1, format >= 2 && format <= 3));
    if (format == 5)
    {
        alignas(16) uint32_t alphas[8];
        const __m128i palette = AlphaPaletteSSE2(block), zero = _mm_setzero_si128();
        _mm_store_si128(reinterpret_cast<__m128i*>(alphas), _mm_slli_epi32(_mm_unpacklo_epi16(palette, zero), 24));
        _mm_store_si128(reinterpret_cast<__m128i*>(alphas + 4), _mm_slli_epi32(_mm_unpackhi_epi16(palette, zero), 24));
        IndexAlphas(alphas, block, alpha);
    }
    else
    {
        AlphaWords(block, format, alpha);
    }
    WriteRows(words, alpha, Load32(colour + 4), pixels, rowBytes);
}

ORBT_TARGET_AVX2 void BlockAVX2(const uint8_t* block, unsigned format, uint8_t* pixels, size_t rowBytes)
{
    const uint8_t* colour = format == 1 ? block : block + 8;
    const __m256i palette = _mm256_broadcastsi128_si256(PaletteSSE2(colour, format == 1, format >= 2 && format <= 3));
    const __m256i firstShifts = _mm256_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14);
    const __m256i codes = _mm256_set1_epi32(int(Load32(colour + 4)));
    const __m256i three = _mm256_set1_epi32(3);
    __m256i top = _mm256_permutevar8x32_epi32(palette, _mm256_and_si256(_mm256_srlv_epi32(codes, firstShifts), three));
    __m256i bottom = _mm256_permutevar8x32_epi32(
        palette, _mm256_and_si256(_mm256_srlv_epi32(codes, _mm256_add_epi32(firstShifts, _mm256_set1_epi32(16))), three));
    if (format != 1)
    {
        const uint64_t bits = Load64(block);
        __m256i low, high;
        if (format <= 3)
        {
            const __m256i shifts = _mm256_setr_epi32(0, 4, 8, 12, 16, 20, 24, 28), nibble = _mm256_set1_epi32(15);
            low = _mm256_and_si256(_mm256_srlv_epi32(_mm256_set1_epi32(int(uint32_t(bits))), shifts), nibble);
            high = _mm256_and_si256(_mm256_srlv_epi32(_mm256_set1_epi32(int(uint32_t(bits >> 32))), shifts), nibble);
            low = _mm256_or_si256(_mm256_slli_epi32(low, 28), _mm256_slli_epi32(low, 24));
            high = _mm256_or_si256(_mm256_slli_epi32(high, 28), _mm256_slli_epi32(high, 24));
        }
        else
        {
            const __m256i alphas = _mm256_slli_epi32(_mm256_cvtepu16_epi32(AlphaPaletteSSE2(block)), 24);
            const __m256i shifts = _mm256_setr_epi32(0, 3, 6, 9, 12, 15, 18, 21), seven = _mm256_set1_epi32(7);
            const uint64_t indices = bits >> 16;
            low = _mm256_permutevar8x32_epi32(
                alphas, _mm256_and_si256(_mm256_srlv_epi32(_mm256_set1_epi32(int(uint32_t(indices))), shifts), seven));
            high = _mm256_permutevar8x32_epi32(
                alphas,
                _mm256_and_si256(_mm256_srlv_epi32(_mm256_set1_epi32(int(uint32_t(indices >> 24))), shifts), seven));
        }
        top = _mm256_or_si256(top, low);
        bottom = _mm256_or_si256(bottom, high);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), _mm256_castsi256_si128(top));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels + rowBytes), _mm256_extracti128_si256(top, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels + 2 * rowBytes), _mm256_castsi256_si128(bottom));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels + 3 * rowBytes), _mm256_extracti128_si256(bottom, 1));
}

#endif

BlockDecoder ChooseBlockDecoder()
{
#if ORBT_X86_SIMD
    const ESimdPath path = ActiveSimdPath();
    if (path == eSimdAVX2)
        return &BlockAVX2;
    if (path == eSimdSSE2)
        return &BlockSSE2;
#endif
    return &BlockPortable;
}

} // namespace

void DXTDecodeBlockRows(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format,
                        unsigned firstRow, unsigned endRow)
{
    // The kinds of the plain decoder: 1, explicit alpha (3), interpolated (5).
    format = format == 1 ? 1 : format == 2 || format == 3 ? 3 : 5;
    const BlockDecoder decode = ChooseBlockDecoder();
    const size_t blockBytes = format == 1 ? 8 : 16, rowBytes = size_t(width) * 4;
    const unsigned blocksAcross = (width + 3) / 4;
    in += size_t(firstRow) * blocksAcross * blockBytes;
    uint8_t clipped[64];
    for (unsigned blockRow = firstRow; blockRow < endRow; ++blockRow)
    {
        const unsigned by = blockRow * 4, rows = height - by < 4 ? height - by : 4;
        uint8_t* row = out + by * rowBytes;
        for (unsigned bx = 0; bx < width; bx += 4, in += blockBytes)
        {
            const unsigned columns = width - bx < 4 ? width - bx : 4;
            if (rows == 4 && columns == 4)
            {
                decode(in, format, row + size_t(bx) * 4, rowBytes);
                continue;
            }
            decode(in, format, clipped, 16);
            for (unsigned y = 0; y < rows; ++y)
                std::memcpy(row + y * rowBytes + size_t(bx) * 4, clipped + 16 * y, size_t(columns) * 4);
        }
    }
}

void DXTDecode(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format)
{
    ParallelRanges((height + 3) / 4, uint64_t(width) * height, [&](uint32_t first, uint32_t end) {
        DXTDecodeBlockRows(in, out, width, height, format, first, end);
    });
}

} // namespace orbtexture
