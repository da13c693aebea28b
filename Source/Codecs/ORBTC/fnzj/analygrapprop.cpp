#include "Codecs/ORBTC/fnzj/analygrapprop.h"

#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Tools/ORBTSimd.h"

#include <cstdint>
#include <cstring>

#if ORBT_X86_SIMD
#include <emmintrin.h>
#endif

namespace orbtexture
{

namespace
{

constexpr int kMostPixels = 255; // 255 marks a pixel without an island
constexpr unsigned char kUnlabelled = 255;

// Sum over the channels of the squared second difference left + right - 2
// centre is below 17.
bool Smooth(const unsigned char* before, const unsigned char* centre, const unsigned char* after)
{
    int sum = 0;
    for (int c = 0; c < 4; ++c)
    {
        const int d = before[c] + after[c] - 2 * centre[c];
        sum += d * d;
    }
    return sum < 17;
}

// Two pixels join by colour: squared distance at most 16, or with
// punch-through both transparent.
bool Near(const unsigned char* a, const unsigned char* b, bool punchThrough)
{
    return SQColDist(a, b) <= 16 || (punchThrough && a[3] == 0 && b[3] == 0);
}

#if ORBT_X86_SIMD
inline __m128i Load4(const unsigned char* pixels)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
}

// Each of four pixels' sum of its squared 16-bit channels, 'low' holding the
// first two pixels and 'high' the last two.
inline __m128i PixelSquares(__m128i low, __m128i high)
{
    const __m128 a = _mm_castsi128_ps(_mm_madd_epi16(low, low)), b = _mm_castsi128_ps(_mm_madd_epi16(high, high));
    return _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
                         _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))));
}

// Four 32-bit masks as four bools.
inline void StoreFlags(__m128i mask, bool* out)
{
    const __m128i bytes = _mm_packs_epi16(_mm_packs_epi32(mask, mask), mask);
    const int flags = _mm_cvtsi128_si32(_mm_and_si128(bytes, _mm_set1_epi8(1)));
    std::memcpy(out, &flags, 4);
}
#endif

// flags[i] = Near(pixel i, pixel i + offset) for i in [from, end).
void NearRun(const unsigned char* window, int from, int end, int offset, bool punchThrough, bool* flags)
{
    int i = from;
#if ORBT_X86_SIMD
    const __m128i zero = _mm_setzero_si128(), alpha = _mm_set1_epi32(int(0xFF000000u)), limit = _mm_set1_epi32(17);
    for (; i + 4 <= end; i += 4)
    {
        const __m128i a = Load4(window + 4 * i), b = Load4(window + 4 * (i + offset));
        const __m128i low = _mm_sub_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        const __m128i high = _mm_sub_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
        __m128i near = _mm_cmplt_epi32(PixelSquares(low, high), limit);
        if (punchThrough)
            near = _mm_or_si128(near, _mm_cmpeq_epi32(_mm_and_si128(_mm_or_si128(a, b), alpha), zero));
        StoreFlags(near, flags + i);
    }
#endif
    for (; i < end; ++i)
        flags[i] = Near(window + 4 * i, window + 4 * (i + offset), punchThrough);
}

// flags[i] = Smooth(pixel i - step, pixel i, pixel i + step) for i in
// [from, end).
void SmoothRun(const unsigned char* window, int from, int end, int step, bool* flags)
{
    int i = from;
#if ORBT_X86_SIMD
    const __m128i zero = _mm_setzero_si128(), limit = _mm_set1_epi32(17);
    for (; i + 4 <= end; i += 4)
    {
        const __m128i before = Load4(window + 4 * (i - step)), centre = Load4(window + 4 * i),
                      after = Load4(window + 4 * (i + step));
        const __m128i low = _mm_unpacklo_epi8(centre, zero), high = _mm_unpackhi_epi8(centre, zero);
        const __m128i lowSums = _mm_add_epi16(_mm_unpacklo_epi8(before, zero), _mm_unpacklo_epi8(after, zero));
        const __m128i highSums = _mm_add_epi16(_mm_unpackhi_epi8(before, zero), _mm_unpackhi_epi8(after, zero));
        const __m128i squares = PixelSquares(_mm_sub_epi16(lowSums, _mm_add_epi16(low, low)),
                                             _mm_sub_epi16(highSums, _mm_add_epi16(high, high)));
        StoreFlags(_mm_cmplt_epi32(squares, limit), flags + i);
    }
#endif
    for (; i < end; ++i)
        flags[i] = Smooth(window + 4 * (i - step), window + 4 * i, window + 4 * (i + step));
}

// The outer columns take the row flag of their neighbour, the outer rows the
// column flag of theirs.
void CopyOuterFlags(int width, int height, bool* acrossRow, bool* downColumn)
{
    if (width >= 3)
        for (int y = 0; y < height; ++y)
        {
            acrossRow[y * width] = acrossRow[y * width + 1];
            acrossRow[y * width + width - 1] = acrossRow[y * width + width - 2];
        }
    if (height >= 3)
        for (int x = 0; x < width; ++x)
        {
            downColumn[x] = downColumn[width + x];
            downColumn[(height - 1) * width + x] = downColumn[(height - 2) * width + x];
        }
}

// Depth-first growth of the islands from each unlabelled pixel in row order.
// 'joins' (p, join) calls join(q) for each neighbour q, in row order, that
// the popped pixel p joins; the popped pixel is the reference, not the seed,
// so a slow gradient stays one island.
template <class Joins>
int Grow(int width, int height, const Joins& joins, unsigned char* labels, unsigned char* order, int enough)
{
    const int count = width * height;
    for (int i = 0; i < count; ++i)
        labels[i] = kUnlabelled;
    unsigned char stack[kMostPixels];
    int islands = 0, written = 0;
    for (int seed = 0; seed < count; ++seed)
    {
        if (labels[seed] != kUnlabelled)
            continue;
        if (islands == enough)
            return enough;
        const unsigned char island = static_cast<unsigned char>(islands++);
        labels[seed] = island;
        order[written++] = static_cast<unsigned char>(seed);
        int top = 0;
        stack[top++] = static_cast<unsigned char>(seed);
        while (top > 0)
        {
            const int p = stack[--top];
            joins(p, [&](int q) {
                if (labels[q] != kUnlabelled)
                    return;
                labels[q] = island;
                order[written++] = static_cast<unsigned char>(q);
                stack[top++] = static_cast<unsigned char>(q);
            });
        }
    }
    return islands;
}

} // namespace

int AnalyseGraphicsProperties(const unsigned char* window, const CompressParams& params, unsigned char* labels,
                              unsigned char* order, int enough)
{
    const int width = params.windowWidth, height = params.windowHeight, count = width * height;
    if (count > kMostPixels || count == 0)
        return 0;
    const bool punchThrough = params.punchThrough != 0;
    auto pixel = [window](int index) { return window + 4 * index; };
    bool acrossRow[kMostPixels] = {}, downColumn[kMostPixels] = {};

    if (OptimiserReference())
    {
        for (int y = 0; y < height; ++y)
            for (int x = 1; x + 1 < width; ++x)
                acrossRow[y * width + x] =
                    Smooth(pixel(y * width + x - 1), pixel(y * width + x), pixel(y * width + x + 1));
        for (int y = 1; y + 1 < height; ++y)
            for (int x = 0; x < width; ++x)
                downColumn[y * width + x] =
                    Smooth(pixel((y - 1) * width + x), pixel(y * width + x), pixel((y + 1) * width + x));
        CopyOuterFlags(width, height, acrossRow, downColumn);
        auto joins = [&](int p, auto join) {
            const int px = p % width, py = p / width;
            for (int qy = py - 1; qy <= py + 1; ++qy)
                for (int qx = px - 1; qx <= px + 1; ++qx)
                {
                    if (qx < 0 || qy < 0 || qx >= width || qy >= height)
                        continue;
                    const int q = qy * width + qx;
                    if (Near(pixel(p), pixel(q), punchThrough) || (qy == py && acrossRow[q]) ||
                        (qx == px && downColumn[q]))
                        join(q);
                }
        };
        return Grow(width, height, joins, labels, order, enough);
    }

    // The flags over the flat array: the pixels that wrap a row are set
    // again by the outer columns' copies.
    if (width >= 3)
        SmoothRun(window, 1, count - 1, 1, acrossRow);
    if (height >= 3)
        SmoothRun(window, width, count - width, width, downColumn);
    CopyOuterFlags(width, height, acrossRow, downColumn);
    // The colour test is symmetric: pixel i against i + 1, i + width,
    // i + width + 1 and i + width - 1 serves all eight neighbours.
    bool east[kMostPixels] = {}, south[kMostPixels] = {}, southEast[kMostPixels] = {}, southWest[kMostPixels] = {};
    NearRun(window, 0, count - 1, 1, punchThrough, east);
    NearRun(window, 0, count - width, width, punchThrough, south);
    NearRun(window, 0, count - width - 1, width + 1, punchThrough, southEast);
    NearRun(window, 1, count - width, width - 1, punchThrough, southWest);

    // Bit k of a pixel's byte: it joins the k-th of its 3 x 3 in row order,
    // the centre left out.
    uint8_t joinBits[kMostPixels];
    for (int y = 0, p = 0; y < height; ++y)
        for (int x = 0; x < width; ++x, ++p)
        {
            const unsigned up = y > 0, down = y + 1 < height, left = x > 0, right = x + 1 < width;
            unsigned bits = 0;
            if (up)
                bits = (left & southEast[p - width - left]) | (south[p - width] | downColumn[p - width]) << 1 |
                       (right & southWest[p - width + 1]) << 2;
            bits |= (left & (east[p - left] | acrossRow[p - left])) << 3 |
                    (right & (east[p] | acrossRow[p + right])) << 4;
            if (down)
                bits |= (left & southWest[p]) << 5 | (south[p] | downColumn[p + width]) << 6 |
                        (right & southEast[p]) << 7;
            joinBits[p] = uint8_t(bits);
        }
    const int offsets[8] = {-width - 1, -width, -width + 1, -1, 1, width - 1, width, width + 1};
    auto joins = [&](int p, auto join) {
        for (unsigned bits = joinBits[p]; bits; bits &= bits - 1)
            join(p + offsets[__builtin_ctz(bits)]);
    };
    return Grow(width, height, joins, labels, order, enough);
}

} // namespace orbtexture
