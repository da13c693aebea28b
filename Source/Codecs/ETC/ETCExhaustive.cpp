#include "Codecs/ETC/ETCExhaustive.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <vector>

#include "Codecs/ETC/ETCAverageSearch.h"
#include "Codecs/ETC/ETCSubBlockSearch.h"

namespace orbtexture
{

namespace
{

constexpr unsigned int kCap = 3121200u;
constexpr unsigned int kCapPerceptual = 1040400000u;

std::atomic<bool> gPlain{false};

// Layout of a sub-block's precalculated errors: channel, value, table, pixel
// (8), modifier (4). A value has the slot of its top five bits, which differ
// for every expanded 4-bit and 5-bit code, so the 96 KiB of a sub-block stay
// in cache.
constexpr size_t kPerTable = 8 * 4;
constexpr size_t kPerValue = 8 * kPerTable;
constexpr size_t kPerChannel = 32 * kPerValue;
constexpr size_t kPrecalcSize = 3 * kPerChannel;

inline size_t Slot(int channel, int value, int table)
{
    return channel * kPerChannel + size_t(value >> 3) * kPerValue + size_t(table) * kPerTable;
}

inline const unsigned int* At(const unsigned int* precalc, int channel, int value, int table)
{
    return precalc + Slot(channel, value, table);
}

// Per-thread work space: the four sub-blocks' precalculated errors and the
// best error of every colour for each sub-block. Allocated once a thread.
struct Workspace
{
    std::vector<unsigned int> precalc[4];
    std::vector<unsigned int> errors[4];
    Workspace()
    {
        for (auto& table : precalc)
            table.resize(kPrecalcSize);
        for (auto& table : errors)
            table.resize(32768);
    }
};

Workspace& ThreadWorkspace()
{
    thread_local Workspace workspace;
    return workspace;
}

// Fills the precalculated errors of the 'levels' base values (expanded by
// 'expand') for the four sub-blocks of the block at (x, y).
void Precalculate(const unsigned char* img, int width, int x, int y, int levels, int (*expand)(int),
                  const unsigned int* const* squares, Workspace& work)
{
    // The decoded values of every code, table and modifier, then each
    // channel's errors at each of the 16 pixels, copied into the layouts of
    // the two sub-blocks holding the pixel.
    int decoded[32][8][4];
    for (int code = 0; code < levels; ++code)
        for (int table = 0; table < 8; ++table)
            for (int k = 0; k < 4; ++k)
                decoded[code][table][k] = clamp_table_plus_255[expand(code) + compressParams[2 * table][k] + 255] - 255;
    for (int py = 0; py < 4; ++py)
        for (int px = 0; px < 4; ++px)
        {
            const unsigned char* p = img + 3 * (size_t(y + py) * size_t(width) + size_t(x + px));
            // Left or right (2 x 4, pixel index column-major), top or bottom (4 x 2, row-major).
            unsigned int* vertical = work.precalc[px / 2].data() + ((px % 2) * 4 + py) * 4;
            unsigned int* horizontal = work.precalc[2 + py / 2].data() + ((py % 2) * 4 + px) * 4;
            for (int channel = 0; channel < 3; ++channel)
                for (int code = 0; code < levels; ++code)
                {
                    const int value = expand(code);
                    for (int table = 0; table < 8; ++table)
                    {
                        const size_t slot = Slot(channel, value, table);
                        for (int k = 0; k < 4; ++k)
                            vertical[slot + k] = horizontal[slot + k] =
                                squares[channel][p[channel] - decoded[code][table][k] + 255];
                    }
                }
        }
}

// Least, over the tables, of the summed per-pixel least error of the channels
// given (1: red, 2: red and green): a lower bound of every colour sharing them.
unsigned int PartialBound(const unsigned int* precalc, int channels, const unsigned char* colour, unsigned int cutoff)
{
    unsigned int best = cutoff;
    for (int table = 0; table < 8; ++table)
    {
        const unsigned int* r = At(precalc, 0, colour[0], table);
        const unsigned int* g = At(precalc, 1, colour[1], table);
        unsigned int sum = 0;
        for (int i = 0; i < 8 && sum < best; ++i)
        {
            unsigned int least = r[i * 4] + (channels > 1 ? g[i * 4] : 0);
            for (int k = 1; k < 4; ++k)
                least = std::min(least, r[i * 4 + k] + (channels > 1 ? g[i * 4 + k] : 0));
            sum += least;
        }
        best = std::min(best, sum);
    }
    return best;
}

// Best errors of one sub-block over the eight tables for the blues of one red
// and green: 'rg' holds the red and green errors summed per table, pixel and
// modifier. An error stops once it reaches the best so far (at most 'limit').
void BluesOfSubBlock(const unsigned int* rg, const unsigned int* precalc, int levels, int (*expand)(int),
                     unsigned int limit, unsigned int* best)
{
    for (int b = 0; b < levels; ++b)
    {
        unsigned int& out = best[b];
        unsigned int bound = std::min(limit, out);
        for (int table = 0; table < 8; ++table)
        {
            const unsigned int* both = rg + table * kPerTable;
            const unsigned int* blue = At(precalc, 2, expand(b), table);
            unsigned int sum = 0;
            for (int i = 0; i < 32 && sum < bound; i += 4)
                sum += std::min(std::min(both[i] + blue[i], both[i + 1] + blue[i + 1]),
                                std::min(both[i + 2] + blue[i + 2], both[i + 3] + blue[i + 3]));
            if (sum < bound)
                bound = out = sum;
        }
    }
}

// Best error of every colour for each sub-block, red outermost, blue
// innermost. Left and top come first, bounded by 'limit'; right and bottom
// by 'limit' less the least error of their partner, since only a pair below
// 'limit' matters. Errors that reach a sub-block's bound stand as 'limit'.
// Whole runs of red, and of red and green, are skipped when their lower bound
// reaches the bound; the others sum their red and green once for all blues.
void SubBlockErrors(unsigned char* /*img*/, int levels, int (*expand)(int), unsigned int limit, Workspace& work)
{
    const size_t colours = size_t(levels) * levels * levels;
    for (auto& errors : work.errors)
        std::fill_n(errors.begin(), colours, limit);
    unsigned int rg[8 * kPerTable];
    for (int s : {0, 2, 1, 3})
    {
        const unsigned int* precalc = work.precalc[s].data();
        unsigned int bound = limit;
        if (s % 2 == 1)
        {
            const unsigned int partner = *std::min_element(work.errors[s - 1].begin(), work.errors[s - 1].begin() + colours);
            bound = partner >= limit ? 0 : limit - partner;
        }
        for (int r = 0; r < levels && bound > 0; ++r)
        {
            unsigned char colour[3] = {static_cast<unsigned char>(expand(r)), 0, 0};
            if (PartialBound(precalc, 1, colour, bound) >= bound)
                continue;
            for (int g = 0; g < levels; ++g)
            {
                // Red and green summed for every table, and the least over
                // the tables of their per-pixel least: a bound of every blue.
                colour[1] = static_cast<unsigned char>(expand(g));
                const unsigned int* red = At(precalc, 0, colour[0], 0);
                const unsigned int* green = At(precalc, 1, colour[1], 0);
                for (size_t i = 0; i < 8 * kPerTable; ++i)
                    rg[i] = red[i] + green[i];
                unsigned int least = bound;
                for (int table = 0; table < 8; ++table)
                {
                    const unsigned int* both = rg + table * kPerTable;
                    unsigned int sum = 0;
                    for (size_t i = 0; i < kPerTable && sum < least; i += 4)
                        sum += std::min(std::min(both[i], both[i + 1]), std::min(both[i + 2], both[i + 3]));
                    least = std::min(least, sum);
                }
                if (least >= bound)
                    continue;
                BluesOfSubBlock(rg, precalc, levels, expand, bound,
                                work.errors[s].data() + (size_t(r) * levels + g) * levels);
            }
        }
    }
}

int Expand4(int v) { return (v << 4) | v; }
int Expand5(int v) { return (v << 3) | (v >> 2); }

using TableSearch = unsigned int (*)(unsigned char*, int, int, int, unsigned char*, unsigned int&, unsigned int&,
                                     unsigned int&);

// Tables and indices of the two halves of a found block, and its words.
void PackFound(unsigned char* img, int width, int x, int y, bool flipped, bool differential, const int* code1,
               const int* code2, TableSearch tables2x4, TableSearch tables4x2, unsigned int& word1,
               unsigned int& word2)
{
    int (*expand)(int) = differential ? Expand5 : Expand4;
    unsigned char colour1[3], colour2[3];
    for (int ch = 0; ch < 3; ++ch)
    {
        colour1[ch] = static_cast<unsigned char>(expand(code1[ch]));
        colour2[ch] = static_cast<unsigned char>(expand(code2[ch]));
    }
    unsigned int table1 = 0, msb1 = 0, lsb1 = 0, table2 = 0, msb2 = 0, lsb2 = 0;
    if (flipped)
    {
        tables4x2(img, width, x, y, colour1, table1, msb1, lsb1);
        tables4x2(img, width, x, y + 2, colour2, table2, msb2, lsb2);
    }
    else
    {
        tables2x4(img, width, x, y, colour1, table1, msb1, lsb1);
        tables2x4(img, width, x + 2, y, colour2, table2, msb2, lsb2);
    }
    packBlockETC1(code1, code2, table1, table2, msb1, lsb1, msb2, lsb2, differential, flipped, word1, word2);
}

void Codes(size_t index, int levels, int* code)
{
    code[2] = int(index % levels);
    code[1] = int(index / levels % levels);
    code[0] = int(index / levels / levels);
}

const unsigned int* const kPlainSquares[3] = {square_table, square_table, square_table};
const unsigned int* const kPerceptualSquares[3] = {square_table_percep_red, square_table_percep_green,
                                                   square_table_percep_blue};

struct Measure
{
    const unsigned int* const* squares;
    unsigned int cap;
    TableSearch tables2x4, tables4x2;
};

const Measure kPlain = {kPlainSquares, kCap, tryalltables_3bittable2x4, tryalltables_3bittable4x2};
const Measure kPerceptual = {kPerceptualSquares, kCapPerceptual, tryalltables_3bittable2x4percep1000,
                             tryalltables_3bittable4x2percep1000};

unsigned int IndividualSearch(const Measure& measure, unsigned char* img, int width, int x, int y,
                              unsigned int& word1, unsigned int& word2, unsigned int limit)
{
    // Any two colours combine in this mode: each sub-block's best stands alone.
    size_t best[4];
    unsigned int errors[4];
    if (gPlain)
    {
        Workspace& work = ThreadWorkspace();
        Precalculate(img, width, x, y, 16, Expand4, measure.squares, work);
        SubBlockErrors(img, 16, Expand4, limit, work);
        for (int s = 0; s < 4; ++s)
        {
            const auto least = std::min_element(work.errors[s].begin(), work.errors[s].begin() + 4096);
            best[s] = size_t(least - work.errors[s].begin());
            errors[s] = *least;
        }
    }
    else
        FastIndividualSearch(img, width, x, y, measure.squares, limit, best, errors);
    const auto error = [&](int s) { return uint64_t(errors[s]); };
    const uint64_t plain = error(0) + error(1), flipped = error(2) + error(3);
    const bool flip = flipped < plain;
    const uint64_t found = flip ? flipped : plain;
    if (found >= limit)
        return measure.cap;
    int code1[3], code2[3];
    Codes(best[flip ? 2 : 0], 16, code1);
    Codes(best[flip ? 3 : 1], 16, code2);
    PackFound(img, width, x, y, flip, false, code1, code2, measure.tables2x4, measure.tables4x2, word1, word2);
    return unsigned(found);
}

unsigned int DifferentialSearch(const Measure& measure, unsigned char* img, int width, int x, int y,
                                unsigned int& word1, unsigned int& word2, unsigned int limit)
{
    unsigned int bestSum = limit;
    size_t bestFirst = 0, bestSecond = 0;
    bool found = false, flip = false;
    if (!gPlain)
        found = FastDifferentialSearch(img, width, x, y, measure.squares, limit, bestSum, flip, bestFirst, bestSecond);
    for (int orientation = 0; orientation < 2 && gPlain; ++orientation)
    {
        Workspace& work = ThreadWorkspace();
        if (orientation == 0)
        {
            Precalculate(img, width, x, y, 32, Expand5, measure.squares, work);
            SubBlockErrors(img, 32, Expand5, limit, work);
        }
        // The second colour lies within -4..3 of the first in every channel.
        const std::vector<unsigned int>& first = work.errors[2 * orientation];
        const std::vector<unsigned int>& second = work.errors[2 * orientation + 1];
        for (size_t c1 = 0; c1 < 32768; ++c1)
        {
            if (first[c1] >= bestSum)
                continue;
            int code[3];
            Codes(c1, 32, code);
            for (int dr = std::max(-4, -code[0]); dr <= std::min(3, 31 - code[0]); ++dr)
                for (int dg = std::max(-4, -code[1]); dg <= std::min(3, 31 - code[1]); ++dg)
                    for (int db = std::max(-4, -code[2]); db <= std::min(3, 31 - code[2]); ++db)
                    {
                        const size_t c2 = (size_t(code[0] + dr) * 32 + size_t(code[1] + dg)) * 32 + size_t(code[2] + db);
                        if (second[c2] >= limit)
                            continue;
                        const uint64_t sum = uint64_t(first[c1]) + second[c2];
                        if (sum < bestSum)
                        {
                            bestSum = unsigned(sum);
                            bestFirst = c1;
                            bestSecond = c2;
                            flip = orientation == 1;
                            found = true;
                        }
                    }
        }
    }
    if (!found)
        return measure.cap;
    int code1[3], code2[3];
    Codes(bestFirst, 32, code1);
    Codes(bestSecond, 32, code2);
    PackFound(img, width, x, y, flip, true, code1, code2, measure.tables2x4, measure.tables4x2, word1, word2);
    return bestSum;
}

using FastBlock = double (*)(unsigned char*, unsigned char*, int, int, int, unsigned int&, unsigned int&);
using Search = unsigned int (*)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);

unsigned int ETC1Exhaustive(FastBlock fast, double scale, unsigned int cap, Search individual, Search differential,
                            unsigned char* img, unsigned char* work, int width, int x, int y, unsigned int& word1,
                            unsigned int& word2)
{
    unsigned int fastWord1 = 0, fastWord2 = 0;
    const double fastError = fast(img, work, width, x, y, fastWord1, fastWord2) * scale;
    const unsigned int errorFast = fastError >= double(cap) ? cap : unsigned(std::lround(fastError));
    const unsigned int limit = std::min(errorFast, cap - 1);

    unsigned int individual1 = fastWord1, individual2 = fastWord2;
    const unsigned int errorIndividual = individual(img, width, x, y, individual1, individual2, limit);
    unsigned int best1 = fastWord1, best2 = fastWord2;
    unsigned int best = differential(img, width, x, y, best1, best2, std::min(limit, errorIndividual));
    if (errorIndividual < best)
    {
        best = errorIndividual;
        best1 = individual1;
        best2 = individual2;
    }
    if (errorFast < best)
    {
        best = errorFast;
        best1 = fastWord1;
        best2 = fastWord2;
    }
    word1 = best1;
    word2 = best2;
    return best;
}

} // namespace

void ETCExhaustiveSetPlain(bool plain) { gPlain = plain; }

bool ETCExhaustivePlain() { return gPlain; }

void tryalltables_3bittable_all_subblocks_using_precalc(unsigned char* /*img*/, unsigned char* colour,
                                                        unsigned int* precalcLeft, unsigned int* precalcRight,
                                                        unsigned int* precalcTop, unsigned int* precalcBottom,
                                                        unsigned int& bestLeft, unsigned int& bestRight,
                                                        unsigned int& bestTop, unsigned int& bestBottom,
                                                        unsigned int limit)
{
    unsigned int* const precalc[4] = {precalcLeft, precalcRight, precalcTop, precalcBottom};
    unsigned int* const best[4] = {&bestLeft, &bestRight, &bestTop, &bestBottom};
    for (int s = 0; s < 4; ++s)
    {
        unsigned int bound = std::min(limit, *best[s]);
        for (int table = 0; table < 8; ++table)
        {
            const unsigned int* r = At(precalc[s], 0, colour[0], table);
            const unsigned int* g = At(precalc[s], 1, colour[1], table);
            const unsigned int* b = At(precalc[s], 2, colour[2], table);
            unsigned int sum = 0;
            for (int i = 0; i < 32 && sum < bound; i += 4)
            {
                unsigned int least = r[i] + g[i] + b[i];
                for (int k = 1; k < 4; ++k)
                    least = std::min(least, r[i + k] + g[i + k] + b[i + k]);
                sum += least;
            }
            if (sum < bound)
            {
                bound = sum;
                *best[s] = sum;
            }
        }
    }
}

unsigned int compressBlockIndividualExhaustive(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                               unsigned int& word2, unsigned int limit)
{
    return IndividualSearch(kPlain, img, width, x, y, word1, word2, limit);
}

unsigned int compressBlockIndividualExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                         unsigned int& word1, unsigned int& word2, unsigned int limit)
{
    return IndividualSearch(kPerceptual, img, width, x, y, word1, word2, limit);
}

unsigned int compressBlockDifferentialExhaustive(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                                 unsigned int& word2, unsigned int limit)
{
    return DifferentialSearch(kPlain, img, width, x, y, word1, word2, limit);
}

unsigned int compressBlockDifferentialExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                           unsigned int& word1, unsigned int& word2,
                                                           unsigned int limit)
{
    return DifferentialSearch(kPerceptual, img, width, x, y, word1, word2, limit);
}

unsigned int compressBlockETC1Exhaustive(unsigned char* img, unsigned char* work, int width, int x, int y,
                                         unsigned int& word1, unsigned int& word2)
{
    return ETC1Exhaustive(compressBlockDiffFlipFast, 1.0, kCap, compressBlockIndividualExhaustive,
                          compressBlockDifferentialExhaustive, img, work, width, x, y, word1, word2);
}

unsigned int compressBlockETC1ExhaustivePerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                                   unsigned int& word1, unsigned int& word2)
{
    // The fast perceptual error weighs by 0.299, 0.587 and 0.114: in thousandths it is the searches' measure.
    return ETC1Exhaustive(compressBlockDiffFlipFastPerceptual, 1000.0, kCapPerceptual,
                          compressBlockIndividualExhaustivePerceptual, compressBlockDifferentialExhaustivePerceptual,
                          img, work, width, x, y, word1, word2);
}

} // namespace orbtexture
