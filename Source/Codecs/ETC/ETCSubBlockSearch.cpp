// Fast exhaustive searches of the ETC1 individual and differential modes.
//
// The plain searches find every colour's error below a fixed bound. These
// find the same blocks with far fewer colours evaluated:
// - every channel value has, per table, the sum over the pixels of its least
//   error alone; the sums of the channels bound a colour from below, and the
//   red and green ones whole runs of colours;
// - the individual mode needs each sub-block's least colour only, so its
//   bound falls with every better colour;
// - the differential mode first finds each sub-block's least error and a
//   pair of colours close to it; no pair can beat that pair's sum, so each
//   sub-block needs only the colours below it less its partner's least.
// Every bound is strict where the plain search keeps the earlier of equal
// errors, so the first least colour or pair in the plain order is returned.

#include "Codecs/ETC/ETCSubBlockSearch.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCSubBlockKernels.h"

namespace orbtexture
{

namespace
{

// The block's table: channel, value, pixel (16), modifier (4), table (8). A
// value has the slot of its top five bits, which differ for every expanded
// 4-bit and 5-bit code; the eight tables of one pixel and modifier lie side
// by side, so one vector holds them.
constexpr size_t kPerValue = 16 * 32;
constexpr size_t kPerChannel = 32 * kPerValue;

inline size_t ValueOffset(int channel, int value)
{
    return size_t(channel) * kPerChannel + size_t(value >> 3) * kPerValue;
}

// The pixels of the sub-blocks (left, right, top, bottom), as table offsets.
constexpr int kPixels[4][8] = {{0, 32, 128, 160, 256, 288, 384, 416},
                               {64, 96, 192, 224, 320, 352, 448, 480},
                               {0, 32, 64, 96, 128, 160, 192, 224},
                               {256, 288, 320, 352, 384, 416, 448, 480}};

// The block's errors for the codes of one search: every value's least over
// the modifiers first, and a value's whole errors when a search first reads
// them (the bounds cut most reds and greens before).
struct BlockTable
{
    const SubBlockKernels* kernels = nullptr;
    int levels = 0;
    int (*expand)(int) = nullptr;
    int decoded[32][32]; // [code][modifier * 8 + table]
    int pixels[3][16];
    unsigned int weight[3];
    bool filled[3][32];
    std::vector<unsigned int> values = std::vector<unsigned int>(3 * kPerChannel);
    std::vector<unsigned int> least = std::vector<unsigned int>(3 * 32 * 128); // [channel][code][pixel][table]

    const unsigned int* Value(int channel, int code)
    {
        unsigned int* out = values.data() + ValueOffset(channel, expand(code));
        if (!filled[channel][code])
        {
            kernels->valueErrors(pixels[channel], weight[channel], decoded[code], out);
            filled[channel][code] = true;
        }
        return out;
    }
    const unsigned int* Least(int channel, int code) const
    {
        return least.data() + (channel * 32 + code) * 128;
    }
};

BlockTable& ThreadTable()
{
    thread_local BlockTable table;
    return table;
}

constexpr unsigned int kNone = ~0u;
// Kernels compare as signed 32-bit numbers.
constexpr unsigned int kMaxBound = 0x7FFFFFFFu;

// Fast-path state kept with the tables: each sub-block's recorded errors
// (kNone elsewhere) and the colours recorded, cleared after every search.
struct Recorded
{
    std::vector<unsigned int> errors[4];
    std::vector<unsigned int> colours[4];
    Recorded()
    {
        for (auto& e : errors)
            e.assign(32768, kNone);
        for (auto& c : colours)
            c.reserve(32768);
    }
    void Clear()
    {
        for (int s = 0; s < 4; ++s)
        {
            for (unsigned int c : colours[s])
                errors[s][c] = kNone;
            colours[s].clear();
        }
    }
};

Recorded& ThreadRecorded()
{
    thread_local Recorded recorded;
    return recorded;
}

// One sub-block's per-value lower bounds: per channel and code, per table,
// the sum over the pixels of the least error over the modifiers; and the
// least of green and of blue over the codes.
struct Bounds
{
    BlockTable* table;
    const int* pixels;
    unsigned int channel[3][32][8];
    unsigned int leastGreen[8], leastBlue[8];
    const unsigned int* blues[32];
};

void MakeBounds(const SubBlockKernels& kernels, BlockTable& table, int subBlock, int levels, Bounds& bounds)
{
    bounds.table = &table;
    bounds.pixels = kPixels[subBlock];
    int pixels[8];
    for (int i = 0; i < 8; ++i)
        pixels[i] = kPixels[subBlock][i] / 32;
    for (int ch = 0; ch < 3; ++ch)
        kernels.sumLeast(table.Least(ch, 0), pixels, levels, bounds.channel[ch]);
    for (int code = 0; code < levels; ++code)
        bounds.blues[code] = table.Value(2, code);
    kernels.leastOfRows(bounds.channel[1], levels, bounds.leastGreen);
    kernels.leastOfRows(bounds.channel[2], levels, bounds.leastBlue);
}

// Least over the tables of a + b + c.
inline unsigned int LeastOfSums(const unsigned int* a, const unsigned int* b, const unsigned int* c)
{
    unsigned int least = a[0] + b[0] + c[0];
    for (int t = 1; t < 8; ++t)
        least = std::min(least, a[t] + b[t] + c[t]);
    return least;
}

// Visits the colours of one sub-block in the plain order (red outermost)
// whose error is below 'bound', calling found(colour, error). With 'shrink'
// each colour found lowers the bound to its error, so the last one found is
// the first least colour. Returns the bound.
template <typename Found>
unsigned int Visit(const SubBlockKernels& kernels, const Bounds& bounds, int levels, unsigned int bound, bool shrink,
                   Found&& found)
{
    unsigned int rg[256], lrg[8], out[32];
    bound = std::min(bound, kMaxBound);
    for (int r = 0; r < levels && bound > 0; ++r)
    {
        if (LeastOfSums(bounds.channel[0][r], bounds.leastGreen, bounds.leastBlue) >= bound)
            continue;
        unsigned int greens[32];
        kernels.leastOfSums(bounds.channel[0][r], bounds.channel[1], bounds.leastBlue, levels, greens);
        for (int g = 0; g < levels; ++g)
        {
            if (greens[g] >= bound)
                continue;
            kernels.least(bounds.table->Value(0, r), bounds.table->Value(1, g), bounds.pixels, rg, lrg);
            unsigned int low = lrg[0] + bounds.leastBlue[0];
            for (int t = 1; t < 8; ++t)
                low = std::min(low, lrg[t] + bounds.leastBlue[t]);
            if (low >= bound)
                continue;
            unsigned int blues;
            const unsigned int next = kernels.blueRow(rg, lrg, bounds.channel[2], bounds.blues, bounds.pixels, levels,
                                                      bound, shrink, out, &blues);
            const size_t base = (size_t(r) * levels + g) * levels;
            for (; blues; blues &= blues - 1)
            {
                const int b = __builtin_ctz(blues);
                found(base + b, out[b]);
            }
            if (shrink)
                bound = next;
        }
    }
    return bound;
}

unsigned int ColourError(const SubBlockKernels& kernels, const Bounds& bounds, int levels, size_t colour);

// The first least colour of a sub-block below 'bound': false when none. The
// search starts bounded by 'seed', a colour likely near the least: the least
// is at most its error, so that error plus one bounds it without moving it.
bool LeastColour(const SubBlockKernels& kernels, const Bounds& bounds, int levels, unsigned int bound, size_t seed,
                 size_t& colour, unsigned int& error)
{
    const unsigned int seeded = ColourError(kernels, bounds, levels, seed);
    if (seeded < bound)
        bound = seeded + 1;
    bool any = false;
    Visit(kernels, bounds, levels, bound, true, [&](size_t c, unsigned int e) {
        colour = c;
        error = e;
        any = true;
    });
    return any;
}

// The colour of 'levels' codes a channel nearest the mean of sub-block s.
size_t MeanColour(const unsigned char* img, int width, int x, int y, int s, int levels)
{
    int sum[3] = {0, 0, 0};
    for (int i = 0; i < 8; ++i)
    {
        const int p = kPixels[s][i] / 32;
        for (int c = 0; c < 3; ++c)
            sum[c] += img[3 * (size_t(y + p / 4) * size_t(width) + size_t(x + p % 4)) + c];
    }
    size_t colour = 0;
    for (int c = 0; c < 3; ++c)
        colour = colour * levels + size_t((sum[c] * (levels - 1) + 8 * 255 / 2) / (8 * 255));
    return colour;
}

// The error of one colour of a sub-block.
unsigned int ColourError(const SubBlockKernels& kernels, const Bounds& bounds, int levels, size_t colour)
{
    const int r = int(colour / levels / levels), g = int(colour / levels % levels), b = int(colour % levels);
    unsigned int rg[256], lrg[8], out = kNone, found;
    kernels.least(bounds.table->Value(0, r), bounds.table->Value(1, g), bounds.pixels, rg, lrg);
    kernels.blueRow(rg, lrg, bounds.channel[2] + b, bounds.blues + b, bounds.pixels, 1, kMaxBound, false, &out, &found);
    return out;
}

// Visits, in the plain order, the first sub-block's colours that can pair
// with one of the second sub-block's 'seconds' (errors 'secondErrors') below
// 'cut': those within reach of such a colour (-3..4 in every channel) whose
// error is below the cut less the least error of the second colours
// reaching their red and green. Bounds and the blues looked at are per red
// and green, so some colours beyond reach may be visited too.
template <typename Found>
void VisitNear(const SubBlockKernels& kernels, const Bounds& bounds, const std::vector<unsigned int>& seconds,
               const std::vector<unsigned int>& secondErrors, unsigned int cut, Found&& found)
{
    struct Row
    {
        unsigned int least;
        int low, high;
    };
    thread_local Row rows[1024];
    for (Row& row : rows)
        row = {kNone, 32, -1};
    for (unsigned int c2 : seconds)
    {
        const int r2 = int(c2 >> 10), g2 = int(c2 >> 5 & 31), b2 = int(c2 & 31);
        for (int r = std::max(0, r2 - 3); r <= std::min(31, r2 + 4); ++r)
            for (int g = std::max(0, g2 - 3); g <= std::min(31, g2 + 4); ++g)
            {
                Row& row = rows[r * 32 + g];
                row.least = std::min(row.least, secondErrors[c2]);
                row.low = std::min(row.low, std::max(0, b2 - 3));
                row.high = std::max(row.high, std::min(31, b2 + 4));
            }
    }
    unsigned int rg[256], lrg[8], out[32];
    for (int rgIndex = 0; rgIndex < 1024; ++rgIndex)
    {
        const Row& row = rows[rgIndex];
        if (row.least >= cut)
            continue;
        const unsigned int bound = std::min(cut - row.least, kMaxBound);
        const int r = rgIndex >> 5, g = rgIndex & 31;
        if (LeastOfSums(bounds.channel[0][r], bounds.channel[1][g], bounds.leastBlue) >= bound)
            continue;
        kernels.least(bounds.table->Value(0, r), bounds.table->Value(1, g), bounds.pixels, rg, lrg);
        unsigned int blues;
        kernels.blueRow(rg, lrg, bounds.channel[2] + row.low, bounds.blues + row.low, bounds.pixels,
                        row.high - row.low + 1, bound, false, out, &blues);
        for (; blues; blues &= blues - 1)
        {
            const int b = __builtin_ctz(blues);
            found(size_t(rgIndex) * 32 + size_t(row.low + b), out[b]);
        }
    }
}

int Expand4(int v)
{
    return (v << 4) | v;
}
int Expand5(int v)
{
    return (v << 3) | (v >> 2);
}

// Prepares the block's table for the 'levels' codes expanded by 'expand':
// every value's least errors now, the whole errors when first read.
void Precalculate(const SubBlockKernels& kernels, const unsigned char* img, int width, int x, int y, int levels,
                  int (*expand)(int), const unsigned int* const* squares, BlockTable& table)
{
    table.kernels = &kernels;
    table.levels = levels;
    table.expand = expand;
    for (int code = 0; code < levels; ++code)
        for (int k = 0; k < 4; ++k)
            for (int t = 0; t < 8; ++t)
                table.decoded[code][k * 8 + t] =
                    clamp_table_plus_255[expand(code) + compressParams[2 * t][k] + 255] - 255;
    for (int channel = 0; channel < 3; ++channel)
    {
        for (int p = 0; p < 16; ++p)
            table.pixels[channel][p] = img[3 * (size_t(y + p / 4) * size_t(width) + size_t(x + p % 4)) + channel];
        table.weight[channel] = squares[channel][256]; // the squares are weight * d^2
        std::fill_n(table.filled[channel], 32, false);
        kernels.leastErrors(table.pixels[channel], table.weight[channel], &table.decoded[0][0], levels,
                            table.least.data() + channel * 32 * 128);
    }
}

} // namespace

void FastIndividualSearch(const unsigned char* img, int width, int x, int y, const unsigned int* const* squares,
                          unsigned int limit, size_t* colour, unsigned int* error)
{
    const SubBlockKernels kernels = SubBlockKernelsFor(ActiveSimdPath());
    BlockTable& table = ThreadTable();
    Precalculate(kernels, img, width, x, y, 16, Expand4, squares, table);
    Bounds bounds;
    for (int s : {0, 2, 1, 3})
    {
        unsigned int bound = limit;
        if (s % 2 == 1)
            bound = error[s - 1] >= limit ? 0 : limit - error[s - 1];
        colour[s] = 0;
        error[s] = limit;
        if (bound == 0)
            continue;
        MakeBounds(kernels, table, s, 16, bounds);
        LeastColour(kernels, bounds, 16, bound, MeanColour(img, width, x, y, s, 16), colour[s], error[s]);
    }
}

bool FastDifferentialSearch(const unsigned char* img, int width, int x, int y, const unsigned int* const* squares,
                            unsigned int limit, unsigned int& sum, bool& flipped, size_t& first, size_t& second)
{
    const SubBlockKernels kernels = SubBlockKernelsFor(ActiveSimdPath());
    BlockTable& table = ThreadTable();
    Precalculate(kernels, img, width, x, y, 32, Expand5, squares, table);
    thread_local Bounds bounds[4];
    size_t colour[4];
    unsigned int least[4];
    bool any[4];
    for (int s = 0; s < 4; ++s)
    {
        MakeBounds(kernels, table, s, 32, bounds[s]);
        any[s] = LeastColour(kernels, bounds[s], 32, limit, MeanColour(img, width, x, y, s, 32), colour[s], least[s]);
        if (!any[s])
            least[s] = limit;
    }
    // A pair to beat: each sub-block's least colour with the partner's least
    // colour brought within reach of it (the same colour when the partner has
    // none). When the partner's least is within reach, the pair's sum is the
    // least any pair can have.
    uint64_t seed = ~uint64_t(0);
    for (int s = 0; s < 4; ++s)
        if (any[s])
        {
            size_t partner = colour[s];
            if (any[s ^ 1])
            {
                // The second colour lies within -4..3 of the first.
                const int low = s % 2 == 0 ? -4 : -3, high = s % 2 == 0 ? 3 : 4;
                partner = 0;
                for (int shift : {10, 5, 0})
                {
                    const int own = int(colour[s] >> shift & 31), other = int(colour[s ^ 1] >> shift & 31);
                    partner =
                        partner * 32 + size_t(std::clamp(other, std::max(0, own + low), std::min(31, own + high)));
                }
            }
            seed = std::min(seed, uint64_t(least[s]) + ColourError(kernels, bounds[s ^ 1], 32, partner));
        }
    const unsigned int cut = seed < limit ? unsigned(seed) + 1 : limit;

    // Each colour that can be part of a pair below the cut: the second
    // sub-block's first, then the first sub-block's, only near those when
    // they are few.
    Recorded& recorded = ThreadRecorded();
    for (int s : {1, 0, 3, 2})
    {
        const unsigned int partner = least[s ^ 1];
        if (partner >= cut)
            continue;
        std::vector<unsigned int>& errors = recorded.errors[s];
        std::vector<unsigned int>& colours = recorded.colours[s];
        const auto record = [&](size_t c, unsigned int e) {
            errors[c] = e;
            colours.push_back(unsigned(c));
        };
        if (s % 2 == 0 && recorded.colours[s + 1].size() <= 64)
            VisitNear(kernels, bounds[s], recorded.colours[s + 1], recorded.errors[s + 1], cut, record);
        else
            Visit(kernels, bounds[s], 32, cut - partner, false, record);
    }

    // The second colour lies within -4..3 of the first in every channel. The
    // recorded colours are in the plain order, in which the second colours
    // of one first colour come in the order of their differences: when the
    // second sub-block has few, they are walked instead of the neighbours.
    unsigned int bestSum = cut;
    bool found = false;
    for (int orientation = 0; orientation < 2; ++orientation)
    {
        const unsigned int* secondErrors = recorded.errors[2 * orientation + 1].data();
        const std::vector<unsigned int>& seconds = recorded.colours[2 * orientation + 1];
        const unsigned int leastSecond = least[2 * orientation + 1];
        for (unsigned int c1 : recorded.colours[2 * orientation])
        {
            const unsigned int e1 = recorded.errors[2 * orientation][c1];
            if (uint64_t(e1) + leastSecond >= bestSum)
                continue;
            if (seconds.size() < 128)
            {
                for (unsigned int c2 : seconds)
                {
                    const unsigned int e2 = secondErrors[c2];
                    const unsigned int dr = (c2 >> 10) - (c1 >> 10) + 4, dg = (c2 >> 5 & 31) - (c1 >> 5 & 31) + 4,
                                       db = (c2 & 31) - (c1 & 31) + 4;
                    if (dr < 8 && dg < 8 && db < 8 && uint64_t(e1) + e2 < bestSum)
                    {
                        bestSum = e1 + e2;
                        first = c1;
                        second = c2;
                        flipped = orientation == 1;
                        found = true;
                    }
                }
                continue;
            }
            const int code[3] = {int(c1 >> 10), int(c1 >> 5 & 31), int(c1 & 31)};
            const int b0 = std::max(-4, -code[2]), b1 = std::min(3, 31 - code[2]);
            for (int dr = std::max(-4, -code[0]); dr <= std::min(3, 31 - code[0]); ++dr)
                for (int dg = std::max(-4, -code[1]); dg <= std::min(3, 31 - code[1]); ++dg)
                {
                    const unsigned int* row = secondErrors + (size_t(code[0] + dr) * 32 + size_t(code[1] + dg)) * 32;
                    for (int db = b0; db <= b1; ++db)
                    {
                        const unsigned int e2 = row[code[2] + db];
                        if (e2 != kNone && uint64_t(e1) + e2 < bestSum)
                        {
                            bestSum = e1 + e2;
                            first = c1;
                            second = size_t(row - secondErrors) + size_t(code[2] + db);
                            flipped = orientation == 1;
                            found = true;
                        }
                    }
                }
        }
    }
    recorded.Clear();
    sum = bestSum;
    return found;
}

} // namespace orbtexture
