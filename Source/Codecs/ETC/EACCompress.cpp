#include "Codecs/ETC/EACCompress.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

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

// The exact error of one candidate over the block's pixels (row order), in
// integers: each square is at most 2^30 and the sum fits easily. Returns
// 'limit' as soon as the sum reaches it.
int64_t CandidateError(const int pixels[16], const unsigned short* candidates, int64_t limit)
{
    int64_t sum = 0;
    for (int p = 0; p < 16; ++p)
    {
        int least = INT32_MAX;
        for (int i = 0; i < 8; ++i)
        {
            const int d = diff16(pixels[p], candidates[i]);
            least = std::min(least, d * d);
        }
        sum += least;
        if (sum >= limit)
            return limit;
    }
    return sum;
}

} // namespace

void compressBlockAlpha16(unsigned short* image, int stride, int x, int y, int width, unsigned char* block,
                          bool isSigned, const unsigned short* values)
{
    // The search keeps the first candidate, in base, table, multiplier order,
    // of least error: calcError over all 65536 with the best so far as its
    // limit. Any bound known to be reached by some candidate may start the
    // search instead of 2^40 and gives the same candidate, with far earlier
    // stops; the bound comes from every table and multiplier at two bases
    // near the block's mean.
    int pixels[16];
    int64_t mean = 0;
    for (int by = 0; by < 4; ++by)
        for (int bx = 0; bx < 4; ++bx)
        {
            pixels[by * 4 + bx] = image[((y + by) * width + x + bx) * stride];
            mean += pixels[by * 4 + bx];
        }
    const int guess = int(std::min<int64_t>(mean / 16 / 256, 255));
    int64_t bound = INT64_MAX;
    for (int base : {guess, (guess + 128) % 256})
        for (int table = 0; table < 16; ++table)
            for (int multiplier = 0; multiplier < 16; ++multiplier)
                bound = std::min(bound, CandidateError(pixels, values + getPremulIndex(base, table, multiplier, 0),
                                                       INT64_MAX));

    int64_t bestError = bound + 1;
    int bestBase = 0;
    int bestTable = 0;
    int bestMultiplier = 0;
    for (int base = 0; base < 256; ++base)
        for (int table = 0; table < 16; ++table)
            for (int multiplier = 0; multiplier < 16; ++multiplier)
            {
                const int64_t error =
                    CandidateError(pixels, values + getPremulIndex(base, table, multiplier, 0), bestError);
                if (error < bestError)
                {
                    bestError = error;
                    bestBase = base;
                    bestTable = table;
                    bestMultiplier = multiplier;
                }
            }

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
