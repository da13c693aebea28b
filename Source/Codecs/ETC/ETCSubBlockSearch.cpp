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

#include "Codecs/ETC/ETCSubBlockTables.h"

#include <algorithm>
#include <cstdint>

#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCSubBlockKernels.h"

namespace orbtexture
{

namespace
{

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
    unsigned int channel[3][32][8];
    unsigned int leastGreen[8], leastBlue[8];
    const unsigned int* values[3][32];
};

void MakeBounds(const SubBlockKernels& kernels, const unsigned int* precalc, int levels, int (*expand)(int),
                Bounds& bounds)
{
    for (int ch = 0; ch < 3; ++ch)
        for (int code = 0; code < levels; ++code)
        {
            bounds.values[ch][code] = SubBlockValue(precalc, ch, expand(code));
            kernels.least(bounds.values[ch][code], nullptr, nullptr, bounds.channel[ch][code]);
        }
    for (int t = 0; t < 8; ++t)
    {
        bounds.leastGreen[t] = bounds.leastBlue[t] = kNone;
        for (int code = 0; code < levels; ++code)
        {
            bounds.leastGreen[t] = std::min(bounds.leastGreen[t], bounds.channel[1][code][t]);
            bounds.leastBlue[t] = std::min(bounds.leastBlue[t], bounds.channel[2][code][t]);
        }
    }
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
        for (int g = 0; g < levels; ++g)
        {
            if (LeastOfSums(bounds.channel[0][r], bounds.channel[1][g], bounds.leastBlue) >= bound)
                continue;
            kernels.least(bounds.values[0][r], bounds.values[1][g], rg, lrg);
            unsigned int low = lrg[0] + bounds.leastBlue[0];
            for (int t = 1; t < 8; ++t)
                low = std::min(low, lrg[t] + bounds.leastBlue[t]);
            if (low >= bound)
                continue;
            const unsigned int next =
                kernels.blueRow(rg, lrg, bounds.channel[2], bounds.values[2], levels, bound, shrink, out);
            const size_t base = (size_t(r) * levels + g) * levels;
            for (int b = 0; b < levels; ++b)
                if (out[b] != kNone)
                    found(base + b, out[b]);
            if (shrink)
                bound = next;
        }
    }
    return bound;
}

// The first least colour of a sub-block below 'bound': false when none.
bool LeastColour(const SubBlockKernels& kernels, const Bounds& bounds, int levels, unsigned int bound, size_t& colour,
                 unsigned int& error)
{
    bool any = false;
    Visit(kernels, bounds, levels, bound, true, [&](size_t c, unsigned int e) {
        colour = c;
        error = e;
        any = true;
    });
    return any;
}

// The error of one colour of a sub-block.
unsigned int ColourError(const SubBlockKernels& kernels, const Bounds& bounds, int levels, size_t colour)
{
    const int r = int(colour / levels / levels), g = int(colour / levels % levels), b = int(colour % levels);
    unsigned int rg[256], lrg[8], out;
    kernels.least(bounds.values[0][r], bounds.values[1][g], rg, lrg);
    kernels.blueRow(rg, lrg, bounds.channel[2] + b, bounds.values[2] + b, 1, kMaxBound, false, &out);
    return out;
}

int Expand5(int v) { return (v << 3) | (v >> 2); }

} // namespace

SubBlockWork::SubBlockWork()
{
    for (auto& table : precalc)
        table.resize(kSubBlockTableSize);
    for (auto& table : errors)
        table.resize(32768);
}

SubBlockWork& ThreadSubBlockWork()
{
    thread_local SubBlockWork work;
    return work;
}

void PrecalculateSubBlocks(const unsigned char* img, int width, int x, int y, int levels, int (*expand)(int),
                           const unsigned int* const* squares, SubBlockWork& work)
{
    // The decoded values of every code, modifier and table, then each
    // channel's errors at each of the 16 pixels, stored in the tables of the
    // two sub-blocks holding the pixel. The squares are weight * d^2.
    const SubBlockKernels kernels = SubBlockKernelsFor(ActiveSimdPath());
    int decoded[32][4][8];
    size_t slots[3][32];
    for (int code = 0; code < levels; ++code)
    {
        for (int k = 0; k < 4; ++k)
            for (int table = 0; table < 8; ++table)
                decoded[code][k][table] =
                    clamp_table_plus_255[expand(code) + compressParams[2 * table][k] + 255] - 255;
        for (int channel = 0; channel < 3; ++channel)
            slots[channel][code] = SubBlockOffset(channel, expand(code));
    }
    for (int py = 0; py < 4; ++py)
        for (int px = 0; px < 4; ++px)
        {
            const unsigned char* p = img + 3 * (size_t(y + py) * size_t(width) + size_t(x + px));
            // Left or right (2 x 4, pixel index column-major), top or bottom (4 x 2, row-major).
            unsigned int* vertical = work.precalc[px / 2].data() + ((px % 2) * 4 + py) * kSubBlockPerPixel;
            unsigned int* horizontal = work.precalc[2 + py / 2].data() + ((py % 2) * 4 + px) * kSubBlockPerPixel;
            for (int channel = 0; channel < 3; ++channel)
                kernels.pixelErrors(p[channel], squares[channel][256], &decoded[0][0][0], levels, slots[channel],
                                    vertical, horizontal);
        }
}

void IndividualSubBlocks(int levels, int (*expand)(int), unsigned int limit, SubBlockWork& work, SubBlockBest& best)
{
    const SubBlockKernels kernels = SubBlockKernelsFor(ActiveSimdPath());
    Bounds bounds;
    for (int s : {0, 2, 1, 3})
    {
        unsigned int bound = limit;
        if (s % 2 == 1)
            bound = best.error[s - 1] >= limit ? 0 : limit - best.error[s - 1];
        best.colour[s] = 0;
        best.error[s] = limit;
        if (bound == 0)
            continue;
        MakeBounds(kernels, work.precalc[s].data(), levels, expand, bounds);
        LeastColour(kernels, bounds, levels, bound, best.colour[s], best.error[s]);
    }
}

bool DifferentialPair(unsigned int limit, SubBlockWork& work, unsigned int& sum, bool& flipped, size_t& first,
                      size_t& second)
{
    const SubBlockKernels kernels = SubBlockKernelsFor(ActiveSimdPath());
    thread_local Bounds bounds[4];
    size_t colour[4];
    unsigned int least[4];
    bool any[4];
    for (int s = 0; s < 4; ++s)
    {
        MakeBounds(kernels, work.precalc[s].data(), 32, Expand5, bounds[s]);
        any[s] = LeastColour(kernels, bounds[s], 32, limit, colour[s], least[s]);
        if (!any[s])
            least[s] = limit;
    }

    // A pair to beat: each sub-block's least colour with its partner of the
    // same colour (a difference of zero).
    uint64_t seed = ~uint64_t(0);
    for (int s = 0; s < 4; ++s)
        if (any[s])
            seed = std::min(seed, uint64_t(least[s]) + ColourError(kernels, bounds[s ^ 1], 32, colour[s]));
    const unsigned int cut = seed < limit ? unsigned(seed) + 1 : limit;

    Recorded& recorded = ThreadRecorded();
    for (int s = 0; s < 4; ++s)
    {
        const unsigned int partner = least[s ^ 1];
        if (partner >= cut)
            continue;
        std::vector<unsigned int>& errors = recorded.errors[s];
        std::vector<unsigned int>& colours = recorded.colours[s];
        Visit(kernels, bounds[s], 32, cut - partner, false, [&](size_t c, unsigned int e) {
            errors[c] = e;
            colours.push_back(unsigned(c));
        });
    }

    // The second colour lies within -4..3 of the first in every channel.
    unsigned int bestSum = cut;
    bool found = false;
    for (int orientation = 0; orientation < 2; ++orientation)
    {
        const unsigned int* secondErrors = recorded.errors[2 * orientation + 1].data();
        const unsigned int leastSecond = least[2 * orientation + 1];
        for (unsigned int c1 : recorded.colours[2 * orientation])
        {
            const unsigned int e1 = recorded.errors[2 * orientation][c1];
            if (uint64_t(e1) + leastSecond >= bestSum)
                continue;
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
