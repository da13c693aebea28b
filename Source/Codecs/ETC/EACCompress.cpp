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

// The exact error of one candidate: the sum over the sixteen pixels of the
// least squared wrapped 16-bit distance to its eight values (each square is
// at most 2^30).
struct BlockPixels
{
#if defined(__SSE2__)
    __m128i halves[2];
#else
    int values[16];
#endif

    explicit BlockPixels(const int* pixels)
    {
#if defined(__SSE2__)
        halves[0] = _mm_setr_epi16(short(pixels[0]), short(pixels[1]), short(pixels[2]), short(pixels[3]),
                                   short(pixels[4]), short(pixels[5]), short(pixels[6]), short(pixels[7]));
        halves[1] = _mm_setr_epi16(short(pixels[8]), short(pixels[9]), short(pixels[10]), short(pixels[11]),
                                   short(pixels[12]), short(pixels[13]), short(pixels[14]), short(pixels[15]));
#else
        std::copy(pixels, pixels + 16, values);
#endif
    }

    int64_t error(const unsigned short* candidates) const
    {
#if defined(__SSE2__)
        // |d| as an unsigned 16-bit lane (max(d, -d) leaves -32768 as 0x8000,
        // which is its magnitude); the least by the signed minimum of the
        // lanes moved down by 0x8000.
        const __m128i sign = _mm_set1_epi16(short(0x8000));
        const __m128i all = _mm_loadu_si128(reinterpret_cast<const __m128i*>(candidates));
        const __m128i lowFour = _mm_unpacklo_epi16(all, all), highFour = _mm_unpackhi_epi16(all, all);
        __m128i least[2] = {_mm_set1_epi16(0x7fff), _mm_set1_epi16(0x7fff)};
        auto take = [&](__m128i value) {
            for (int h = 0; h < 2; ++h)
            {
                const __m128i d = _mm_sub_epi16(halves[h], value);
                const __m128i magnitude = _mm_max_epi16(d, _mm_sub_epi16(_mm_setzero_si128(), d));
                least[h] = _mm_min_epi16(least[h], _mm_xor_si128(magnitude, sign));
            }
        };
        take(_mm_shuffle_epi32(lowFour, _MM_SHUFFLE(0, 0, 0, 0)));
        take(_mm_shuffle_epi32(lowFour, _MM_SHUFFLE(1, 1, 1, 1)));
        take(_mm_shuffle_epi32(lowFour, _MM_SHUFFLE(2, 2, 2, 2)));
        take(_mm_shuffle_epi32(lowFour, _MM_SHUFFLE(3, 3, 3, 3)));
        take(_mm_shuffle_epi32(highFour, _MM_SHUFFLE(0, 0, 0, 0)));
        take(_mm_shuffle_epi32(highFour, _MM_SHUFFLE(1, 1, 1, 1)));
        take(_mm_shuffle_epi32(highFour, _MM_SHUFFLE(2, 2, 2, 2)));
        take(_mm_shuffle_epi32(highFour, _MM_SHUFFLE(3, 3, 3, 3)));
        // Squares in 32 bits, pairs summed (at most 2^31), then in 64 bits.
        __m128i total = _mm_setzero_si128();
        for (int h = 0; h < 2; ++h)
        {
            const __m128i m = _mm_xor_si128(least[h], sign);
            const __m128i low = _mm_mullo_epi16(m, m), high = _mm_mulhi_epu16(m, m);
            const __m128i pairs = _mm_add_epi32(_mm_unpacklo_epi16(low, high), _mm_unpackhi_epi16(low, high));
            total = _mm_add_epi64(total, _mm_add_epi64(_mm_unpacklo_epi32(pairs, _mm_setzero_si128()),
                                                       _mm_unpackhi_epi32(pairs, _mm_setzero_si128())));
        }
        total = _mm_add_epi64(total, _mm_unpackhi_epi64(total, total));
#if defined(__x86_64__) || defined(_M_X64)
        return int64_t(_mm_cvtsi128_si64(total));
#else
        int64_t sum;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(&sum), total);
        return sum;
#endif
#else
        int64_t sum = 0;
        for (int p = 0; p < 16; ++p)
        {
            int least = INT32_MAX;
            for (int i = 0; i < 8; ++i)
            {
                const int d = int16_t(uint16_t(values[p] - candidates[i])); // as diff16
                least = std::min(least, d * d);
            }
            sum += least;
        }
        return sum;
#endif
    }
};

// With a multiplier, every offset is 8 x (multiplier x modifier), so the sum
// of level 'index' of base b is 8 j + the base term of 0, at the lattice
// position j = b + multiplier x modifier: the value depends on j alone. The
// positions reached, bases in whole runs of 16, are -225 to 465, held from
// kLatticeLow. Values differ only from -1 to 256 (0 to 256 signed); the run
// from kDistinctLow to kDistinctHigh holds them, and the positions outside
// repeat its ends.
constexpr int kLatticeLow = -232;
constexpr int kLatticeSpan = 704;
constexpr int kDistinctLow = -8;
constexpr int kDistinctHigh = 264;
constexpr int kDistinct = kDistinctHigh - kDistinctLow;

// The search's tables of every (table, multiplier), built once.
struct SearchTables
{
    int16_t shifts[256][8]; // multiplier x modifier (from multiplier 1)
    int lowShift[256], highShift[256]; // their least and greatest
    int modifiers[16][2]; // least and greatest modifier of each table
    int zeroSpan[2]; // widest spread of the values of a table without a multiplier
    alignas(16) uint16_t lattice[2][kDistinct]; // value at each position of the distinct run

    SearchTables()
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
        for (int tm = 0; tm < 256; ++tm)
        {
            lowShift[tm] = highShift[tm] = 0;
            for (int index = 0; index < 8; ++index)
            {
                shifts[tm][index] = int16_t(eacOffset(tm >> 4, tm & 15, index) / 8);
                lowShift[tm] = std::min(lowShift[tm], int(shifts[tm][index]));
                highShift[tm] = std::max(highShift[tm], int(shifts[tm][index]));
            }
        }
        for (int isSigned = 0; isSigned < 2; ++isSigned)
        {
            zeroSpan[isSigned] = 0;
            for (int table = 0; table < 16; ++table)
                for (int base = 0; base < 256; ++base)
                {
                    const int term = eacBaseTerm(base, isSigned != 0);
                    zeroSpan[isSigned] = std::max(zeroSpan[isSigned],
                                                  eacValueOfSum(term + modifiers[table][1], isSigned != 0) -
                                                      eacValueOfSum(term + modifiers[table][0], isSigned != 0));
                }
        }
        for (int isSigned = 0; isSigned < 2; ++isSigned)
            for (int j = kDistinctLow; j < kDistinctHigh; ++j)
                lattice[isSigned][j - kDistinctLow] = uint16_t(
                    eacValueOfSum(8 * std::min(256, std::max(-1, j)) + (isSigned ? -1024 : 4), isSigned != 0));
    }
};

// A lower bound of the error of 16 bases of one (table, multiplier) at once,
// in bytes: each pixel's row holds, for each lattice position, the squared
// wrapped distance to its value shifted down by 'shift' and limited to 255,
// and the bound of base b is the sum over the pixels of the least of their
// entries at b + multiplier x modifier, limited to 255. Floors of the parts
// sum to no more than the floor of the sum, so a base whose bound exceeds the
// best error shifted down has an error above the best. The shift keeps that
// limit between kRefine and kTop, the rows being filled again when the best
// error falls below.
struct LatticeBound
{
    static constexpr int kTop = 254;
    static constexpr int kRefine = 128;

    alignas(16) uint8_t rows[16][kLatticeSpan]; // in the search's pixel order
    int shift = -1;
    int limit = 0;

    void update(int64_t best, const int* pixels, const uint16_t* lattice)
    {
        if (shift < 0 || (shift > 0 && (best >> shift) < kRefine))
        {
            for (shift = 0; (best >> shift) > kTop;)
                ++shift;
            for (int p = 0; p < 16; ++p)
                fillRow(pixels[p], lattice, rows[p]);
        }
        limit = int(best >> shift);
    }

    void fillRow(int pixel, const uint16_t* lattice, uint8_t* row) const
    {
        uint8_t* distinct = row + (kDistinctLow - kLatticeLow);
#if defined(__SSE2__)
        const __m128i value = _mm_set1_epi16(short(pixel));
        const __m128i count = _mm_cvtsi32_si128(shift);
        auto squares = [&](int j) { // limited to 32767
            const __m128i d = _mm_sub_epi16(value, _mm_load_si128(reinterpret_cast<const __m128i*>(lattice + j)));
            const __m128i low = _mm_mullo_epi16(d, d), high = _mm_mulhi_epi16(d, d);
            return _mm_packs_epi32(_mm_srl_epi32(_mm_unpacklo_epi16(low, high), count),
                                   _mm_srl_epi32(_mm_unpackhi_epi16(low, high), count));
        };
        for (int j = 0; j < kDistinct; j += 16)
            _mm_store_si128(reinterpret_cast<__m128i*>(distinct + j), _mm_packus_epi16(squares(j), squares(j + 8)));
#else
        for (int j = 0; j < kDistinct; ++j)
        {
            const int d = int16_t(uint16_t(pixel - lattice[j]));
            distinct[j] = uint8_t(std::min(255, (d * d) >> shift));
        }
#endif
        std::fill(row, distinct, distinct[0]);
        std::fill(distinct + kDistinct, row + kLatticeSpan, distinct[kDistinct - 1]);
    }

    // The bases among b0 to b0 + 15 in 'open' (a bit a base) whose bound is
    // at most the limit. The sums are tested every third pixel: where the
    // bases fall out is hard to foresee, and fewer tests cost less than the
    // pixels they would save.
    unsigned survivors(int b0, const int16_t* shifts, unsigned open) const
    {
#if defined(__SSE2__)
        const int k0 = shifts[0], k1 = shifts[1], k2 = shifts[2], k3 = shifts[3];
        const int k4 = shifts[4], k5 = shifts[5], k6 = shifts[6], k7 = shifts[7];
        const __m128i zero = _mm_setzero_si128();
        const __m128i over = _mm_set1_epi8(char(limit + 1)); // sums at least this exceed the limit
        __m128i sum = zero;
        if (open != 0xffffu) // closed bases start full
        {
            const __m128i bits = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
            const __m128i spread =
                _mm_unpacklo_epi64(_mm_set1_epi8(char(open & 0xff)), _mm_set1_epi8(char(open >> 8)));
            sum = _mm_andnot_si128(_mm_cmpeq_epi8(_mm_and_si128(spread, bits), bits), _mm_set1_epi8(-1));
        }
        auto add = [&](int p) {
            const uint8_t* at = rows[p] + (b0 - kLatticeLow);
            auto load = [at](int k) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + k)); };
            sum = _mm_adds_epu8(sum, _mm_min_epu8(_mm_min_epu8(_mm_min_epu8(load(k0), load(k1)),
                                                               _mm_min_epu8(load(k2), load(k3))),
                                                  _mm_min_epu8(_mm_min_epu8(load(k4), load(k5)),
                                                               _mm_min_epu8(load(k6), load(k7)))));
        };
        auto overBits = [&]() { return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_subs_epu8(over, sum), zero))); };
        for (int p = 0; p < 15; p += 3)
        {
            add(p);
            add(p + 1);
            add(p + 2);
            if (overBits() == 0xffffu)
                return 0;
        }
        add(15);
        return ~overBits() & 0xffffu;
#else
        int sums[16];
        for (int lane = 0; lane < 16; ++lane)
            sums[lane] = (open >> lane) & 1 ? 0 : 255;
        for (int p = 0; p < 16 && open != 0; ++p)
        {
            const uint8_t* at = rows[p] + (b0 - kLatticeLow);
            for (int lane = 0; lane < 16; ++lane)
            {
                int least = 255;
                for (int index = 0; index < 8; ++index)
                    least = std::min(least, int(at[lane + shifts[index]]));
                sums[lane] = std::min(255, sums[lane] + least);
                if (sums[lane] > limit)
                    open &= ~(1u << lane);
            }
        }
        return open;
#endif
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
    // can still win are measured: those whose error can be at most the best
    // so far. The least and the greatest pixel each need a value within the
    // square root of the best error, which leaves a range of bases for each
    // table and multiplier. With a multiplier, a lower bound of the error of
    // 16 bases at a time (LatticeBound) passes over most of the range;
    // without one, the values are too close together for blocks of a wide
    // spread, and a bound from pairs of pixels passes over the table. A start
    // near the block's own spread makes the bounds low from the outset.
    const SumInverse& inverse = sumInverse(isSigned);
    const int lift = isSigned ? 32768 : 0;        // to the rising domain
    const int termOfZero = isSigned ? -1024 : 4;  // base term = 8 base + this
    const int firstBase = isSigned ? 1 : 0;       // signed base 0 acts as 1

    int pixels[16];
    for (int by = 0; by < 4; ++by)
        for (int bx = 0; bx < 4; ++bx)
            pixels[by * 4 + bx] = image[((y + by) * width + x + bx) * stride];
    // The least, the greatest, the median and the quartiles first: they
    // decide most rejections.
    int sorted[16];
    for (int p = 0; p < 16; ++p)
        sorted[p] = (((pixels[p] + lift) & 0xffff) << 4) | p;
    std::sort(sorted, sorted + 16);
    static const int kAnchorRanks[16] = {0, 15, 7, 3, 11, 1, 14, 5, 9, 2, 13, 4, 6, 8, 10, 12};
    int order[16];
    for (int k = 0; k < 16; ++k)
        order[k] = pixels[sorted[kAnchorRanks[k]] & 15];
    const int least = (order[0] + lift) & 0xffff, greatest = (order[1] + lift) & 0xffff;

    const BlockPixels measure(pixels);
    int64_t bestError = INT64_MAX;
    int bestKey = INT32_MAX; // base * 256 + table * 16 + multiplier
    auto consider = [&](int base, int tableMultiplier) {
        const int64_t error = measure.error(values + (base << 11) + tableMultiplier * 8);
        const int key = (base << 8) + tableMultiplier;
        if (error < bestError || (error == bestError && key < bestKey))
        {
            bestError = error;
            bestKey = key;
        }
    };

    // Signed base 0 acts as base 1 and comes first: where base 1 could win,
    // base 0 is measured instead.
    auto considerBase = [&](int base, int tableMultiplier) {
        consider(isSigned && base == 1 ? 0 : base, tableMultiplier);
    };

    // A start, for a low bound from the outset: for each table, the one or
    // two multipliers whose values span the extremes' sums, with the base
    // centring them on the extremes' middle.
    static const SearchTables tables;
    const int lowSum = inverse.firstSum[least], highSum = inverse.firstSum[greatest];
    for (int table = 0; table < 16; ++table)
    {
        const int lowModifier = tables.modifiers[table][0], highModifier = tables.modifiers[table][1];
        const int span = 8 * (highModifier - lowModifier);
        const int fewest = std::min(15, (highSum - lowSum) / span);
        for (int multiplier = fewest; multiplier <= std::min(15, fewest + 1); ++multiplier)
        {
            const int scale = multiplier == 0 ? 1 : 8 * multiplier;
            const int centre = (lowSum + highSum - scale * (lowModifier + highModifier)) / 2 - termOfZero;
            considerBase(std::min(255, std::max(firstBase, floorDiv8(centre + 4))), table * 16 + multiplier);
        }
    }

    LatticeBound bound; // rows in the order of 'order'
    int64_t best = -1;
    int topSum = kHighestSum + 1, bottomSum = kLowestSum; // sums within reach of the extremes
    // Without a multiplier the values of a candidate lie on an arc of at most
    // zeroSpan, so two pixels d1 and d2 from it are at most d1 + span + d2
    // apart on the circle of 16-bit values: d1^2 + d2^2 is at least half the
    // square of their distance less the span. Pairs of the sorted pixels, 8
    // apart, give twice a bound of the error.
    int64_t twiceClustered = 0;
    for (int p = 0; p < 8; ++p)
    {
        const int apart = (sorted[p + 8] >> 4) - (sorted[p] >> 4);
        const int64_t gap = std::min(apart, 65536 - apart) - tables.zeroSpan[isSigned];
        if (gap > 0)
            twiceClustered += gap * gap;
    }
    for (int tm = 0; tm < 256; ++tm)
    {
        if (bestError != best)
        {
            best = bestError;
            bound.update(best, order, tables.lattice[isSigned]);
            // A level within reach of the least pixel is at most that pixel
            // plus the reach, and one within reach of the greatest at least
            // that pixel less the reach, unless the reach wraps.
            const int reach = int(std::min<int64_t>(floorSqrt(best), 65536));
            topSum = kHighestSum + 1;
            bottomSum = kLowestSum;
            if (least >= reach && least + reach <= 65535)
                topSum = inverse.firstSum[least + reach + 1] - 1;
            if (greatest >= reach && greatest + reach <= 65535)
                bottomSum = inverse.firstSum[greatest - reach];
        }
        if ((tm & 15) == 0)
        {
            // No multiplier: the levels are 8 b + the term of 0 + the
            // modifiers, each base measured.
            if (twiceClustered > 2 * best)
                continue;
            const int table = tm >> 4;
            const int low = std::max(firstBase, -floorDiv8(termOfZero + tables.modifiers[table][1] - bottomSum));
            const int high = std::min(255, floorDiv8(topSum - termOfZero - tables.modifiers[table][0]));
            for (int base = low; base <= high; ++base)
                considerBase(base, tm);
            continue;
        }
        // The lowest level at most the top lattice position and the highest
        // at least the bottom one.
        const int low = std::max(firstBase, -floorDiv8(termOfZero - bottomSum) - tables.highShift[tm]);
        const int high = std::min(255, floorDiv8(topSum - termOfZero) - tables.lowShift[tm]);
        const int16_t* shifts = tables.shifts[tm];
        for (int b0 = low & ~15; b0 <= high; b0 += 16)
        {
            const unsigned open = (0xffffu << std::max(0, low - b0)) & (0xffffu >> (15 - std::min(15, high - b0)));
            for (unsigned left = bound.survivors(b0, shifts, open); left != 0; left &= left - 1)
                considerBase(b0 + __builtin_ctz(left), tm);
        }
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
