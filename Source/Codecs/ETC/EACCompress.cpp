#include "Codecs/ETC/EACCompress.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orbtexture
{

namespace
{

// Difference of two 16-bit values, wrapped to a signed 16-bit number.
inline int diff16(int a, int b)
{
    const unsigned int d = (static_cast<unsigned int>(a) - static_cast<unsigned int>(b)) & 0xffffu;
    return d >= 0x8000u ? static_cast<int>(d) - 0x10000 : static_cast<int>(d);
}

inline int clampByte(int v)
{
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// Writes sixteen 3-bit indices (column order) into bytes 2..7, MSB first.
void packIndices(const int* indices, unsigned char* block)
{
    uint64_t bits = 0;
    for (int i = 0; i < 16; ++i)
        bits = (bits << 3) | static_cast<uint64_t>(indices[i] & 7);
    for (int j = 0; j < 6; ++j)
        block[2 + j] = static_cast<unsigned char>((bits >> (40 - 8 * j)) & 0xffu);
}

std::vector<unsigned short> buildValueTable(bool isSigned)
{
    std::vector<unsigned short> values(EACValueTableSize);
    for (int base = 0; base < 256; ++base)
        for (int table = 0; table < 16; ++table)
            for (int multiplier = 0; multiplier < 16; ++multiplier)
                for (int index = 0; index < 8; ++index)
                    values[getPremulIndex(base, table, multiplier, index)] =
                        static_cast<unsigned short>(get16bits11bits(base, table, multiplier, index, isSigned));
    return values;
}

constexpr int AlphaErrorStart = 1000000000;

// Least squared error of one pixel against base + the entries of one half of
// an alphaTable row: the positive half if the pixel lies above the base.
inline int alphaPixelError(int pixel, int base, const int* row)
{
    const int* clamped = clamp_table + base + 255;
    int first = 0;
    int step = 1;
    if (pixel > base)
    {
        first = 7;
        step = -1;
    }
    int d = pixel - clamped[row[first]];
    int best = d * d;
    for (int k = 1; k < 4; ++k)
    {
        d = pixel - clamped[row[first + k * step]];
        const int e = d * d;
        // Entries of a half are ordered, so the squares fall, then rise.
        if (e > best)
            break;
        best = e;
    }
    return best;
}

// Row search shared by the fast and slow 8-bit compressors. The fast form
// restricts the rows to the block's spread, takes narrower passes and cuts a
// base's sum against the overall best instead of the row's best.
void compressBlockAlphaSearch(const unsigned char* image, int x, int y, int width, unsigned char* block,
                              const int (*table)[8], bool fast)
{
    int pixels[16]; // column order
    int sum = 0;
    for (int bx = 0; bx < 4; ++bx)
        for (int by = 0; by < 4; ++by)
        {
            const int p = image[(y + by) * width + x + bx];
            pixels[bx * 4 + by] = p;
            sum += p;
        }
    const int avg = static_cast<int>(sum * 0.0625 + 0.5);

    int firstRow = 0;
    int endRow = 256;
    static const int slowSteps[3] = {32, 4, 1};
    static const int slowSpans[3] = {128, 16, 4};
    static const int fastSteps[3] = {16, 4, 1};
    static const int fastSpans[3] = {64, 8, 2};
    const int* steps = slowSteps;
    const int* spans = slowSpans;
    if (fast)
    {
        int maxDiff = 0;
        for (int i = 0; i < 16; ++i)
            maxDiff = std::max(maxDiff, std::abs(pixels[i] - avg));
        const int q = maxDiff * 255 / 160;
        if (q - 4 > 255)
        {
            firstRow = 240;
            endRow = 255;
        }
        else
        {
            firstRow = std::max(0, q - 19);
            endRow = clampByte(q + 11);
        }
        steps = fastSteps;
        spans = fastSpans;
    }

    int bestError = AlphaErrorStart;
    int bestBase = avg;
    int bestRow = firstRow;
    for (int r = firstRow; r < endRow; ++r)
    {
        const int* row = table[r];
        int rowError = AlphaErrorStart;
        int rowBase = avg;
        for (int pass = 0; pass < 3; ++pass)
        {
            const int centre = rowBase;
            const int low = clampByte(centre - spans[pass]);
            const int high = clampByte(centre + spans[pass]);
            for (int base = low; base <= high; base += steps[pass])
            {
                const int limit = fast ? bestError : rowError;
                int error = 0;
                bool stopped = false;
                for (int i = 0; i < 16; ++i)
                {
                    error += alphaPixelError(pixels[i], base, row);
                    if (error > limit)
                    {
                        stopped = true;
                        break;
                    }
                }
                // A cut sum still moves the centre in the fast form; in the
                // slow form it already exceeds the row's best.
                if (error < rowError)
                {
                    rowError = error;
                    rowBase = base;
                }
                if (!stopped && error < bestError)
                {
                    bestError = error;
                    bestBase = base;
                    bestRow = r;
                }
            }
        }
        if (bestError < 1)
            break;
    }

    block[0] = static_cast<unsigned char>(bestBase);
    block[1] = static_cast<unsigned char>(bestRow);
    int indices[16];
    const int* row = table[bestRow];
    for (int i = 0; i < 16; ++i)
    {
        int least = 1000000;
        indices[i] = 0;
        for (int k = 0; k < 8; ++k)
        {
            const int d = pixels[i] - clamp_table[bestBase + row[k] + 255];
            if (d * d < least)
            {
                least = d * d;
                indices[i] = k;
            }
        }
    }
    packIndices(indices, block);
}

} // namespace

const unsigned short* valueTableUnsigned()
{
    static const std::vector<unsigned short> values = buildValueTable(false);
    return values.data();
}

const unsigned short* valueTableSigned()
{
    static const std::vector<unsigned short> values = buildValueTable(true);
    return values.data();
}

double calcError(unsigned short* image, int stride, int x, int y, int width, int base, int table, int multiplier,
                 double limit, const unsigned short* values, bool /*isSigned*/)
{
    const unsigned short* candidates = values + getPremulIndex(base, table, multiplier, 0);
    double sum = 0.0;
    for (int by = 0; by < 4; ++by)
    {
        const unsigned short* line = image + ((y + by) * width + x) * stride;
        for (int bx = 0; bx < 4; ++bx)
        {
            const int pixel = line[bx * stride];
            double least = 1099511627776.0;
            for (int i = 0; i < 8; ++i)
            {
                const int d = diff16(pixel, candidates[i]);
                const double square = static_cast<double>(d * d);
                if (square < least)
                    least = square;
            }
            sum += least;
            if (sum >= limit)
                return limit + 1073741824.0;
        }
    }
    return sum;
}

namespace
{

constexpr int kAnchors = 5; // pixels whose reach selects the bases
constexpr int kLowestSum = -4096; // below every base term plus offset
constexpr int kHighestSum = 4095; // above every one

// The 11-bit values as a function of their sum (base term plus offset) in the
// domain where they rise without wrapping: unsigned values as they are,
// signed ones moved up by 32768, which keeps every wrapped 16-bit distance.
// firstSum[v] is the least sum whose value is at least v, so the sums whose
// values lie in [a, b] are [firstSum[a], firstSum[b + 1]).
struct SumInverse
{
    int16_t firstSum[65537];

    explicit SumInverse(bool isSigned)
    {
        int v = 0;
        for (int sum = kLowestSum; sum <= kHighestSum; ++sum)
            for (const int value = eacValueOfSum(sum, isSigned) + (isSigned ? 32768 : 0); v <= value; ++v)
                firstSum[v] = int16_t(sum);
        for (; v <= 65536; ++v)
            firstSum[v] = int16_t(kHighestSum + 1);
    }
};

const SumInverse& sumInverse(bool isSigned)
{
    static const SumInverse unsignedInverse(false), signedInverse(true);
    return isSigned ? signedInverse : unsignedInverse;
}

int floorDiv8(int a)
{
    return a >= 0 ? a / 8 : -((7 - a) / 8);
}

// A set of bases.
struct BaseSet
{
    uint64_t words[4];

    void clear() { words[0] = words[1] = words[2] = words[3] = 0; }
    bool empty() const { return (words[0] | words[1] | words[2] | words[3]) == 0; }
    void add(int first, int last) // inclusive, clipped to 0..255
    {
        first = std::max(first, 0);
        last = std::min(last, 255);
        if (first > last)
            return;
        const int firstWord = first >> 6, lastWord = last >> 6;
        const uint64_t head = ~uint64_t(0) << (first & 63), tail = ~uint64_t(0) >> (63 - (last & 63));
        if (firstWord == lastWord)
        {
            words[firstWord] |= head & tail;
            return;
        }
        words[firstWord] |= head;
        for (int w = firstWord + 1; w < lastWord; ++w)
            words[w] = ~uint64_t(0);
        words[lastWord] |= tail;
    }
    void intersect(const BaseSet& other)
    {
        for (int w = 0; w < 4; ++w)
            words[w] &= other.words[w];
    }
};

// Least squared wrapped 16-bit distance from 'pixel' to the eight candidates.
inline int leastSquare(int pixel, const unsigned short* candidates)
{
#if defined(__SSE2__)
    // |d| as an unsigned 16-bit lane (max(d, -d) leaves -32768 as 0x8000,
    // which is its magnitude), the least by the signed minimum of the lanes
    // moved down by 0x8000.
    const __m128i sign = _mm_set1_epi16(short(0x8000));
    const __m128i d = _mm_sub_epi16(_mm_set1_epi16(short(pixel)),
                                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(candidates)));
    __m128i m = _mm_xor_si128(_mm_max_epi16(d, _mm_sub_epi16(_mm_setzero_si128(), d)), sign);
    m = _mm_min_epi16(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
    m = _mm_min_epi16(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
    m = _mm_min_epi16(m, _mm_srli_epi32(m, 16));
    const int least = (_mm_cvtsi128_si32(m) & 0xffff) ^ 0x8000;
    return least * least;
#else
    int least = INT32_MAX;
    for (int i = 0; i < 8; ++i)
    {
        const int d = int16_t(uint16_t(pixel - candidates[i])); // as diff16
        least = std::min(least, d * d);
    }
    return least;
#endif
}

// The exact error of one candidate over the pixels in the order given, in
// integers (each square is at most 2^30). Stops once the sum exceeds 'limit'
// and returns what it has then.
int64_t candidateError(const int pixels[16], const unsigned short* candidates, int64_t limit)
{
    int64_t sum = 0;
    for (int p = 0; p < 16; ++p)
    {
        sum += leastSquare(pixels[p], candidates);
        if (sum > limit)
            break;
    }
    return sum;
}

// Base term plus offset, less 8 x base, of every (table, multiplier) and
// index (the sum of base b is 8 b + this), and the widest spread of the
// values of each (table, multiplier) over every base.
struct SumOffsets
{
    int16_t offsets[2][256][8];
    int16_t shifts[256][8]; // multiplier x modifier, for multipliers from 1
    int modifiers[16][2];   // least and greatest modifier of each table
    int widths[2][256];

    SumOffsets()
    {
        for (int table = 0; table < 16; ++table)
        {
            modifiers[table][0] = modifiers[table][1] = 0;
            for (int index = 0; index < 8; ++index)
            {
                modifiers[table][0] = std::min(modifiers[table][0], eacOffset(table, 0, index));
                modifiers[table][1] = std::max(modifiers[table][1], eacOffset(table, 0, index));
            }
        }
        for (int isSigned = 0; isSigned < 2; ++isSigned)
            for (int tm = 0; tm < 256; ++tm)
            {
                for (int index = 0; index < 8; ++index)
                {
                    offsets[isSigned][tm][index] =
                        int16_t(eacOffset(tm >> 4, tm & 15, index) + (isSigned ? -1024 : 4));
                    shifts[tm][index] = int16_t(eacOffset(tm >> 4, tm & 15, index) / 8);
                }
                widths[isSigned][tm] = 0;
                for (int base = 0; base < 256; ++base)
                {
                    int lo = 65535, hi = 0;
                    for (int index = 0; index < 8; ++index)
                    {
                        const int value =
                            eacValueOfSum(eacBaseTerm(base, isSigned) + eacOffset(tm >> 4, tm & 15, index), isSigned) +
                            (isSigned ? 32768 : 0);
                        lo = std::min(lo, value);
                        hi = std::max(hi, value);
                    }
                    widths[isSigned][tm] = std::max(widths[isSigned][tm], hi - lo);
                }
            }
    }
};

// Largest r with r * r <= e; no more than 2^20 (errors stay below 2^35).
int64_t floorSqrt(int64_t e)
{
    if (e >= int64_t(1) << 40)
        return int64_t(1) << 20;
    int64_t r = int64_t(std::sqrt(double(e)));
    while (r * r > e)
        --r;
    while ((r + 1) * (r + 1) <= e)
        ++r;
    return r;
}

} // namespace

void compressBlockAlpha16(unsigned short* image, int stride, int x, int y, int width, unsigned char* block,
                          bool isSigned, const unsigned short* values)
{
    // The result is the first candidate in base, table, multiplier order of
    // least error, as a search of every candidate with calcError finds it.
    // Candidates are visited in another order and compared by (error,
    // position in that order), which gives the same one, and only those that
    // can still win are measured. Five anchor pixels (the least, the
    // greatest, the median and the quartiles) each need a value within the
    // square root of the best error so far, or that pixel alone would cost
    // more than the best; for each table and multiplier the bases meeting
    // this come as ranges from the inverse of the values, and a table and
    // multiplier whose values cannot span the least and greatest anchors is
    // passed over. A start near the block's own spread makes the bound low
    // from the outset.
    const SumInverse& inverse = sumInverse(isSigned);
    const int lift = isSigned ? 32768 : 0;        // to the rising domain
    const int termOfZero = isSigned ? -1024 : 4;  // base term = 8 base + this
    const int firstBase = isSigned ? 1 : 0;       // signed base 0 acts as 1

    int pixels[16];
    for (int by = 0; by < 4; ++by)
        for (int bx = 0; bx < 4; ++bx)
            pixels[by * 4 + bx] = image[((y + by) * width + x + bx) * stride];
    // The anchors first: they decide most rejections.
    int sorted[16];
    for (int p = 0; p < 16; ++p)
        sorted[p] = (((pixels[p] + lift) & 0xffff) << 4) | p;
    std::sort(sorted, sorted + 16);
    static const int kAnchorRanks[16] = {0, 15, 7, 3, 11, 1, 14, 5, 9, 2, 13, 4, 6, 8, 10, 12};
    int order[16];
    for (int k = 0; k < 16; ++k)
        order[k] = pixels[sorted[kAnchorRanks[k]] & 15];
    int anchors[kAnchors];
    for (int a = 0; a < kAnchors; ++a)
        anchors[a] = (order[a] + lift) & 0xffff;

    int64_t bestError = INT64_MAX;
    int bestKey = INT32_MAX; // base * 256 + table * 16 + multiplier
    auto consider = [&](int base, int tableMultiplier) {
        const int64_t error = candidateError(order, values + (base << 11) + tableMultiplier * 8, bestError);
        const int key = (base << 8) + tableMultiplier;
        if (error < bestError || (error == bestError && key < bestKey))
        {
            bestError = error;
            bestKey = key;
        }
    };

    // A start, for a low bound from the outset: for each table, the one or
    // two multipliers whose values span the anchors' sums, with the bases
    // centring them on the anchors' middle and their neighbours.
    static const SumOffsets sumOffsets;
    const int lowSum = inverse.firstSum[anchors[0]], highSum = inverse.firstSum[anchors[1]];
    for (int table = 0; table < 16; ++table)
    {
        const int lowModifier = sumOffsets.modifiers[table][0], highModifier = sumOffsets.modifiers[table][1];
        const int span = 8 * (highModifier - lowModifier);
        const int fewest = std::min(15, (highSum - lowSum) / span);
        for (int multiplier = fewest; multiplier <= std::min(15, fewest + 1); ++multiplier)
        {
            const int scale = multiplier == 0 ? 1 : 8 * multiplier;
            const int centre = (lowSum + highSum - scale * (lowModifier + highModifier)) / 2 - termOfZero;
            const int base = std::min(254, std::max(firstBase + 1, floorDiv8(centre + 4)));
            for (int b = std::max(firstBase, base - 1); b <= std::min(255, base + 1); ++b)
                consider(b, table * 16 + multiplier);
        }
    }

    int64_t best = -1;
    int reach = 0;
    bool everyBase = false;
    int sumRanges[kAnchors][2][2];  // sums within reach of each anchor, one or two ranges
    int baseRanges[kAnchors][2][2]; // the same as bases for a zero offset beside the term of 0
    for (int tm = 0; tm < 256; ++tm)
    {
        if (bestError != best)
        {
            best = bestError;
            reach = int(std::min<int64_t>(floorSqrt(best), 65536));
            everyBase = 2 * reach + 1 >= 65536;
            for (int a = 0; a < kAnchors && !everyBase; ++a)
            {
                // The values within reach as one or two rising ranges, then
                // as the sums giving them.
                const int lo = anchors[a] - reach, hi = anchors[a] + reach;
                int ranges[2][2] = {{std::max(lo, 0), std::min(hi, 65535)}, {1, 0}};
                if (lo < 0)
                    ranges[1][0] = lo + 65536, ranges[1][1] = 65535;
                else if (hi > 65535)
                    ranges[1][0] = 0, ranges[1][1] = hi - 65536;
                for (int r = 0; r < 2; ++r)
                {
                    int* sums = sumRanges[a][r];
                    sums[0] = kHighestSum + 1; // empty
                    sums[1] = kLowestSum;
                    if (ranges[r][0] <= ranges[r][1])
                    {
                        sums[0] = inverse.firstSum[ranges[r][0]];
                        sums[1] = inverse.firstSum[ranges[r][1] + 1] - 1;
                    }
                    baseRanges[a][r][0] = -floorDiv8(termOfZero - sums[0]);
                    baseRanges[a][r][1] = floorDiv8(sums[1] - termOfZero);
                }
            }
        }
        if (everyBase)
        {
            for (int base = 0; base < 256; ++base)
                consider(base, tm);
            continue;
        }
        // Without a wrap, values within reach of the least and the greatest
        // anchor are at least their spread less twice the reach apart.
        if (anchors[0] >= reach && anchors[1] + reach <= 65535 &&
            anchors[1] - anchors[0] - 2 * reach > sumOffsets.widths[isSigned][tm])
            continue;

        // The bases putting a value within reach of every anchor: with a
        // multiplier the offsets are 8 x (multiplier x modifier), so each
        // index shifts the anchor's base ranges; without one, the sums are
        // divided out for each index.
        const int16_t* offsets = sumOffsets.offsets[isSigned][tm];
        const int16_t* shifts = sumOffsets.shifts[tm];
        const bool multiplied = (tm & 15) != 0;
        BaseSet bases;
        for (int a = 0; a < kAnchors; ++a)
        {
            BaseSet within;
            within.clear();
            for (int r = 0; r < 2; ++r)
            {
                const int* sums = sumRanges[a][r];
                if (sums[0] > sums[1])
                    continue;
                if (multiplied)
                    for (int index = 0; index < 8; ++index)
                        within.add(baseRanges[a][r][0] - shifts[index], baseRanges[a][r][1] - shifts[index]);
                else
                    for (int index = 0; index < 8; ++index)
                        within.add(-floorDiv8(offsets[index] - sums[0]), floorDiv8(sums[1] - offsets[index]));
            }
            if (isSigned) // base 0 is base 1 again; 8 x 0 - 1024 is no base term
                within.words[0] = (within.words[0] & ~uint64_t(1)) | ((within.words[0] >> 1) & 1);
            if (a == 0)
                bases = within;
            else
                bases.intersect(within);
            if (bases.empty())
                break;
        }
        for (int w = 0; w < 4; ++w)
            for (uint64_t word = bases.words[w]; word != 0; word &= word - 1)
                consider(w * 64 + __builtin_ctzll(word), tm);
    }

    const int bestBase = bestKey >> 8;
    const int bestTable = (bestKey >> 4) & 15;
    const int bestMultiplier = bestKey & 15;

    block[0] = static_cast<unsigned char>(isSigned ? (bestBase + 128) % 256 : bestBase);
    block[1] = static_cast<unsigned char>(bestMultiplier * 16 + bestTable);
    for (int i = 2; i < 8; ++i)
        block[i] = 0;

    int decoded[8];
    for (int i = 0; i < 8; ++i)
        decoded[i] = get16bits11bits(bestBase, bestTable, bestMultiplier, i, isSigned);

    int indices[16];
    for (int bx = 0; bx < 4; ++bx)
        for (int by = 0; by < 4; ++by)
        {
            const int pixel = image[((y + by) * width + x + bx) * stride];
            double least = 4228250625.0;
            int index = 0;
            for (int i = 0; i < 8; ++i)
            {
                const int d = diff16(pixel, decoded[i]);
                const double square = static_cast<double>(d * d);
                if (square < least)
                {
                    least = square;
                    index = i;
                }
            }
            indices[bx * 4 + by] = index;
        }
    packIndices(indices, block);
}

void compressBlockAlphaFast(const unsigned char* image, int x, int y, int width, unsigned char* block,
                            const int (*table)[8])
{
    compressBlockAlphaSearch(image, x, y, width, block, table, true);
}

void compressBlockAlphaSlow(const unsigned char* image, int x, int y, int width, unsigned char* block,
                            const int (*table)[8])
{
    compressBlockAlphaSearch(image, x, y, width, block, table, false);
}

} // namespace orbtexture
