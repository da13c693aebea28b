#include "Codecs/ETC/ETCAverageSearch.h"

#include <cstddef>
#include <cstring>

namespace orbtexture
{

namespace
{

// ---- Error measures ----

// Start values of the table search: every channel of 16 pixels off by 255.
constexpr unsigned int ETCErrorCap = 3121200u;
constexpr unsigned int ETCErrorCapPercep1000 = 1040400000u;
constexpr float ETCErrorCapPercep = 3.1212e6f;

struct PlainError
{
    using Err = unsigned int;
    static constexpr Err cap = ETCErrorCap;
    static Err pixel(int dr, int dg, int db)
    {
        return square_table[dr + 255] + square_table[dg + 255] + square_table[db + 255];
    }
};

struct Percep1000Error
{
    using Err = unsigned int;
    static constexpr Err cap = ETCErrorCapPercep1000;
    static Err pixel(int dr, int dg, int db)
    {
        return square_table_percep_red[dr + 255] + square_table_percep_green[dg + 255] +
               square_table_percep_blue[db + 255];
    }
};

struct PercepError
{
    using Err = float;
    static constexpr Err cap = ETCErrorCapPercep;
    static Err pixel(int dr, int dg, int db)
    {
        return 0.299f * float(dr * dr) + 0.587f * float(dg * dg) + 0.114f * float(db * db);
    }
};

inline const unsigned char* pixelAt(const unsigned char* img, int width, int x, int y)
{
    return img + 3 * (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x));
}

// ---- One sub-block, one table row ----

template <class M, int W, int H>
typename M::Err withTable(const unsigned char* img, int width, int x, int y, const unsigned char* colour, int row,
                          unsigned int* msb, unsigned int* lsb)
{
    int candidate[4][3];
    for (int c = 0; c < 4; ++c)
        for (int ch = 0; ch < 3; ++ch)
            candidate[c][ch] = clamp_table[colour[ch] + compressParams[row][c] + 255];

    typename M::Err sum = 0;
    unsigned int m = 0;
    unsigned int l = 0;
    for (int i = 0; i < W; ++i)
    {
        for (int j = 0; j < H; ++j)
        {
            const unsigned char* p = pixelAt(img, width, x + i, y + j);
            typename M::Err best = M::pixel(p[0] - candidate[0][0], p[1] - candidate[0][1], p[2] - candidate[0][2]);
            int bestColumn = 0;
            for (int c = 1; c < 4; ++c)
            {
                const typename M::Err e =
                    M::pixel(p[0] - candidate[c][0], p[1] - candidate[c][1], p[2] - candidate[c][2]);
                if (e < best)
                {
                    best = e;
                    bestColumn = c;
                }
            }
            const unsigned int bits = static_cast<unsigned int>(scramble[bestColumn]);
            const int position = i * 4 + j;
            m |= (bits >> 1) << position;
            l |= (bits & 1u) << position;
            sum += best;
        }
    }
    *msb = m;
    *lsb = l;
    return sum;
}

template <class M, int W, int H>
typename M::Err tryAllTables(const unsigned char* img, int width, int x, int y, const unsigned char* colour,
                             unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    typename M::Err best = M::cap;
    for (int row = 0; row < 16; row += 2)
    {
        unsigned int m = 0;
        unsigned int l = 0;
        const typename M::Err e = withTable<M, W, H>(img, width, x, y, colour, row, &m, &l);
        if (e < best)
        {
            best = e;
            table = static_cast<unsigned int>(row / 2);
            msb = m;
            lsb = l;
        }
    }
    return best;
}

// ---- Averages and quantisers ----

template <int W, int H>
void averageColour(const unsigned char* img, int width, int x, int y, float* average)
{
    int sum[3] = {0, 0, 0};
    for (int j = 0; j < H; ++j)
    {
        for (int i = 0; i < W; ++i)
        {
            const unsigned char* p = pixelAt(img, width, x + i, y + j);
            sum[0] += p[0];
            sum[1] += p[1];
            sum[2] += p[2];
        }
    }
    for (int ch = 0; ch < 3; ++ch)
        average[ch] = static_cast<float>(sum[ch] * 0.125);
}

inline int expand5(int v) { return (v << 3) | (v >> 2); }
inline int expand4(int v) { return (v << 4) | v; }

// Rounds mean * step to the nearest code, halves away from zero.
inline int roundCode(float mean, double step)
{
    const double v = static_cast<double>(mean) * step;
    return v >= 0.0 ? static_cast<int>(v + 0.5) : static_cast<int>(v - 0.5);
}

constexpr double Step5 = 0.12156862745098039; // 31 / 255
constexpr double Step4 = 0.058823529411764705; // 15 / 255

struct HueWeights
{
    float rg, rb, gb;
};

constexpr HueWeights PlainHue = {1.0f, 1.0f, 1.0f};
constexpr HueWeights PerceptualHue = {0.175513f, 0.034086f, 0.066918f};

// Masks of the channels taken high (bit 0 red, 1 green, 2 blue), in test order.
constexpr int CombinedOrder[8] = {0, 1, 2, 4, 3, 5, 6, 7};

// Shared core of the combined quantisers: codes below and above the mean, and
// the high/low choice whose channel errors spread the least.
int combinedChoice(const float* average, float step, int maxCode, bool fourBit, const HueWeights& w, int* low,
                   int* high, float* d)
{
    float k[3];
    for (int ch = 0; ch < 3; ++ch)
    {
        int lo = static_cast<int>(average[ch] * step);
        lo = lo < 0 ? 0 : (lo > maxCode ? maxCode : lo);
        const int hi = lo + 1 > maxCode ? maxCode : lo + 1;
        const float loValue = static_cast<float>(fourBit ? expand4(lo) : expand5(lo));
        const float hiValue = static_cast<float>(fourBit ? expand4(hi) : expand5(hi));
        low[ch] = lo;
        high[ch] = hi;
        d[ch] = loValue - average[ch];
        k[ch] = hiValue - loValue;
    }

    int bestMask = 0;
    float bestCost = 0.0f;
    for (int n = 0; n < 8; ++n)
    {
        const int mask = CombinedOrder[n];
        const float er = (mask & 1) ? d[0] + k[0] : d[0];
        const float eg = (mask & 2) ? d[1] + k[1] : d[1];
        const float eb = (mask & 4) ? d[2] + k[2] : d[2];
        const float cost =
            w.rg * ((er - eg) * (er - eg)) + w.rb * ((er - eb) * (er - eb)) + w.gb * ((eg - eb) * (eg - eb));
        if (n == 0 || cost < bestCost)
        {
            bestCost = cost;
            bestMask = mask;
        }
    }
    return bestMask;
}

void quantize555Combined(const float* average, int* encoded, unsigned char* expanded, const HueWeights& w)
{
    int low[3], high[3];
    float d[3];
    const int mask = combinedChoice(average, 0.12156863f, 31, false, w, low, high, d);
    for (int ch = 0; ch < 3; ++ch)
    {
        encoded[ch] = (mask >> ch) & 1 ? high[ch] : low[ch];
        expanded[ch] = static_cast<unsigned char>(expand5(encoded[ch]));
    }
}

void quantize444Combined(const float* average, int* encoded, unsigned char* expanded, const HueWeights& w)
{
    int low[3], high[3];
    float d[3];
    int mask = combinedChoice(average, 0.05882353f, 15, true, w, low, high, d);
    // A shift of all three channels keeps the hue, so there the distance to
    // the low codes decides.
    if (mask == 0 || mask == 7)
        mask = (d[0] * d[0] + d[1] * d[1] + d[2] * d[2] > 192.0f) ? 7 : 0;
    for (int ch = 0; ch < 3; ++ch)
    {
        encoded[ch] = (mask >> ch) & 1 ? high[ch] : low[ch];
        expanded[ch] = static_cast<unsigned char>(expand5(encoded[ch]));
    }
}

// ---- Quantisation policies of the block search ----

struct AverageQuant
{
    static void q555(const float* mean, int* code, unsigned char* colour)
    {
        for (int ch = 0; ch < 3; ++ch)
        {
            code[ch] = roundCode(mean[ch], Step5);
            colour[ch] = static_cast<unsigned char>(expand5(code[ch]));
        }
    }
    static void q444(const float* mean, int* code, unsigned char* colour)
    {
        for (int ch = 0; ch < 3; ++ch)
        {
            code[ch] = roundCode(mean[ch], Step4);
            colour[ch] = static_cast<unsigned char>(expand4(code[ch]));
        }
    }
};

template <const HueWeights& W>
struct CombinedQuant
{
    static void q555(const float* mean, int* code, unsigned char* colour) { quantize555Combined(mean, code, colour, W); }
    static void q444(const float* mean, int* code, unsigned char* colour)
    {
        quantize444Combined(mean, code, colour, W);
        for (int ch = 0; ch < 3; ++ch)
            colour[ch] = static_cast<unsigned char>(expand4(code[ch]));
    }
};

// ---- Whole blocks ----

enum class Mode
{
    Either,
    OnlyDifferential,
    OnlyIndividual
};

// One orientation: non-flipped halves are 2 x 4 at (x, y) and (x + 2, y),
// flipped halves 4 x 2 at (x, y) and (x, y + 2). Returns the summed error.
template <class M, class Q, bool Flipped>
typename M::Err encodeOrientation(const unsigned char* img, int width, int x, int y, Mode mode, unsigned int& word1,
                                  unsigned int& word2, ETCSubBlockFit* fits)
{
    constexpr int W = Flipped ? 4 : 2;
    constexpr int H = Flipped ? 2 : 4;
    const int x2 = Flipped ? x : x + 2;
    const int y2 = Flipped ? y + 2 : y;

    float mean1[3], mean2[3];
    averageColour<W, H>(img, width, x, y, mean1);
    averageColour<W, H>(img, width, x2, y2, mean2);

    int code1[3], code2[3];
    unsigned char colour1[3], colour2[3];
    bool differential = false;
    if (mode != Mode::OnlyIndividual)
    {
        Q::q555(mean1, code1, colour1);
        Q::q555(mean2, code2, colour2);
        differential = true;
        for (int ch = 0; ch < 3; ++ch)
        {
            const int diff = code2[ch] - code1[ch];
            if (diff < -4 || diff > 3)
                differential = false;
        }
        if (!differential && mode == Mode::OnlyDifferential)
        {
            for (int ch = 0; ch < 3; ++ch)
            {
                int diff = code2[ch] - code1[ch];
                diff = diff < -4 ? -4 : (diff > 3 ? 3 : diff);
                code2[ch] = code1[ch] + diff;
                colour2[ch] = static_cast<unsigned char>(expand5(code2[ch]));
            }
            differential = true;
        }
    }
    if (!differential)
    {
        Q::q444(mean1, code1, colour1);
        Q::q444(mean2, code2, colour2);
    }

    unsigned int table1 = 0, msb1 = 0, lsb1 = 0;
    unsigned int table2 = 0, msb2 = 0, lsb2 = 0;
    const typename M::Err err1 = tryAllTables<M, W, H>(img, width, x, y, colour1, table1, msb1, lsb1);
    const typename M::Err err2 = tryAllTables<M, W, H>(img, width, x2, y2, colour2, table2, msb2, lsb2);

    packBlockETC1(code1, code2, table1, table2, msb1, lsb1, msb2, lsb2, differential, Flipped, word1, word2);

    if (fits)
    {
        const unsigned int* tables[2] = {&table1, &table2};
        const int* codes[2] = {code1, code2};
        const typename M::Err errors[2] = {err1, err2};
        for (int h = 0; h < 2; ++h)
        {
            std::memcpy(fits[h].colour, codes[h], sizeof(fits[h].colour));
            fits[h].table = *tables[h];
            fits[h].error = static_cast<unsigned int>(errors[h]);
        }
    }
    return err1 + err2;
}

// Both orientations; the flipped block replaces the other only if strictly
// better. 'fits' (or null) gets left, right, top, bottom.
template <class M, class Q>
typename M::Err encodeBlock(const unsigned char* img, int width, int x, int y, Mode mode, unsigned int& word1,
                            unsigned int& word2, ETCSubBlockFit* fits)
{
    unsigned int a1 = 0, a2 = 0, b1 = 0, b2 = 0;
    const typename M::Err plain = encodeOrientation<M, Q, false>(img, width, x, y, mode, a1, a2, fits);
    const typename M::Err flipped =
        encodeOrientation<M, Q, true>(img, width, x, y, mode, b1, b2, fits ? fits + 2 : nullptr);
    if (flipped < plain)
    {
        word1 = b1;
        word2 = b2;
        return flipped;
    }
    word1 = a1;
    word2 = a2;
    return plain;
}

using PlainCombined = CombinedQuant<PlainHue>;
using PerceptualCombined = CombinedQuant<PerceptualHue>;

template <double (*Measure)(unsigned char*, unsigned char*, int, int, int)>
double fastBlock(void (*average)(unsigned char*, int, int, int, unsigned int&, unsigned int&),
                 void (*combined)(unsigned char*, int, int, int, unsigned int&, unsigned int&), unsigned char* img,
                 unsigned char* work, int width, int x, int y, unsigned int& word1, unsigned int& word2)
{
    unsigned int a1 = 0, a2 = 0;
    average(img, width, x, y, a1, a2);
    decompressBlockDiffFlip(a1, a2, work, 4, 0, 0);
    const double errAverage = Measure(img, work, width, x, y);

    unsigned int c1 = 0, c2 = 0;
    unsigned char decoded[4 * 4 * 3];
    combined(img, width, x, y, c1, c2);
    decompressBlockDiffFlip(c1, c2, decoded, 4, 0, 0);
    const double errCombined = Measure(img, decoded, width, x, y);

    if (errAverage > errCombined)
    {
        std::memcpy(work, decoded, sizeof(decoded));
        word1 = c1;
        word2 = c2;
        return errCombined;
    }
    word1 = a1;
    word2 = a2;
    return errAverage;
}

} // namespace

// ---- Averages ----

void computeAverageColor2x4noQuantFloat(unsigned char* img, int width, int x, int y, float* average)
{
    averageColour<2, 4>(img, width, x, y, average);
}

void computeAverageColor4x2noQuantFloat(unsigned char* img, int width, int x, int y, float* average)
{
    averageColour<4, 2>(img, width, x, y, average);
}

// ---- One table ----

unsigned int compressBlockWithTable2x4(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                       unsigned int* msb, unsigned int* lsb)
{
    return withTable<PlainError, 2, 4>(img, width, x, y, colour, row, msb, lsb);
}

unsigned int compressBlockWithTable2x4percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 int row, unsigned int* msb, unsigned int* lsb)
{
    return withTable<Percep1000Error, 2, 4>(img, width, x, y, colour, row, msb, lsb);
}

float compressBlockWithTable2x4percep(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                      unsigned int* msb, unsigned int* lsb)
{
    return withTable<PercepError, 2, 4>(img, width, x, y, colour, row, msb, lsb);
}

unsigned int compressBlockWithTable4x2(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                       unsigned int* msb, unsigned int* lsb)
{
    return withTable<PlainError, 4, 2>(img, width, x, y, colour, row, msb, lsb);
}

unsigned int compressBlockWithTable4x2percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 int row, unsigned int* msb, unsigned int* lsb)
{
    return withTable<Percep1000Error, 4, 2>(img, width, x, y, colour, row, msb, lsb);
}

float compressBlockWithTable4x2percep(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                      unsigned int* msb, unsigned int* lsb)
{
    return withTable<PercepError, 4, 2>(img, width, x, y, colour, row, msb, lsb);
}

// ---- All tables ----

unsigned int tryalltables_3bittable2x4(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                       unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<PlainError, 2, 4>(img, width, x, y, colour, table, msb, lsb);
}

unsigned int tryalltables_3bittable2x4percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<Percep1000Error, 2, 4>(img, width, x, y, colour, table, msb, lsb);
}

float tryalltables_3bittable2x4percep(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                      unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<PercepError, 2, 4>(img, width, x, y, colour, table, msb, lsb);
}

unsigned int tryalltables_3bittable4x2(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                       unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<PlainError, 4, 2>(img, width, x, y, colour, table, msb, lsb);
}

unsigned int tryalltables_3bittable4x2percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<Percep1000Error, 4, 2>(img, width, x, y, colour, table, msb, lsb);
}

float tryalltables_3bittable4x2percep(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                      unsigned int& table, unsigned int& msb, unsigned int& lsb)
{
    return tryAllTables<PercepError, 4, 2>(img, width, x, y, colour, table, msb, lsb);
}

// ---- Combined quantisers ----

void quantize555ColorCombined(float* average, int* encoded, unsigned char* expanded)
{
    quantize555Combined(average, encoded, expanded, PlainHue);
}

void quantize444ColorCombined(float* average, int* encoded, unsigned char* expanded)
{
    quantize444Combined(average, encoded, expanded, PlainHue);
}

void quantize555ColorCombinedPerceptual(float* average, int* encoded, unsigned char* expanded)
{
    quantize555Combined(average, encoded, expanded, PerceptualHue);
}

void quantize444ColorCombinedPerceptual(float* average, int* encoded, unsigned char* expanded)
{
    quantize444Combined(average, encoded, expanded, PerceptualHue);
}

// ---- Blocks ----

void compressBlockDiffFlipAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                  unsigned int& word2)
{
    encodeBlock<PlainError, AverageQuant>(img, width, x, y, Mode::Either, word1, word2, nullptr);
}

void compressBlockDiffFlipAveragePerceptual(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                            unsigned int& word2)
{
    encodeBlock<PercepError, AverageQuant>(img, width, x, y, Mode::Either, word1, word2, nullptr);
}

void compressBlockDiffFlipCombined(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                   unsigned int& word2)
{
    encodeBlock<PlainError, PlainCombined>(img, width, x, y, Mode::Either, word1, word2, nullptr);
}

void compressBlockDiffFlipCombinedPerceptual(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                             unsigned int& word2)
{
    encodeBlock<PercepError, PerceptualCombined>(img, width, x, y, Mode::Either, word1, word2, nullptr);
}

unsigned int compressBlockOnlyDiffFlipAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                              unsigned int& word2, ETCSubBlockFit* fits)
{
    return encodeBlock<PlainError, AverageQuant>(img, width, x, y, Mode::OnlyDifferential, word1, word2, fits);
}

unsigned int compressBlockOnlyDiffFlipAveragePerceptual1000(unsigned char* img, int width, int x, int y,
                                                            unsigned int& word1, unsigned int& word2,
                                                            ETCSubBlockFit* fits)
{
    return encodeBlock<Percep1000Error, AverageQuant>(img, width, x, y, Mode::OnlyDifferential, word1, word2, fits);
}

unsigned int compressBlockOnlyIndividualAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                                unsigned int& word2, ETCSubBlockFit* fits)
{
    return encodeBlock<PlainError, AverageQuant>(img, width, x, y, Mode::OnlyIndividual, word1, word2, fits);
}

unsigned int compressBlockOnlyIndividualAveragePerceptual1000(unsigned char* img, int width, int x, int y,
                                                              unsigned int& word1, unsigned int& word2,
                                                              ETCSubBlockFit* fits)
{
    return encodeBlock<Percep1000Error, AverageQuant>(img, width, x, y, Mode::OnlyIndividual, word1, word2, fits);
}

// ---- Packing ----

void packBlockETC1(const int* code1, const int* code2, unsigned int table1, unsigned int table2, unsigned int msb1,
                   unsigned int lsb1, unsigned int msb2, unsigned int lsb2, bool differential, bool flipped,
                   unsigned int& word1, unsigned int& word2)
{
    unsigned int w1 = 0;
    for (int ch = 0; ch < 3; ++ch)
    {
        const int shift = 27 - 8 * ch;
        if (differential)
        {
            const unsigned int delta = static_cast<unsigned int>(code2[ch] - code1[ch]) & 7u;
            w1 |= (static_cast<unsigned int>(code1[ch]) << shift) | (delta << (shift - 3));
        }
        else
        {
            w1 |= (static_cast<unsigned int>(code1[ch]) << (shift + 1)) |
                  (static_cast<unsigned int>(code2[ch]) << (shift - 3));
        }
    }
    word1 = w1 | (table1 << 5) | (table2 << 2) | (differential ? 2u : 0u) | (flipped ? 1u : 0u);
    if (flipped)
        word2 = ((msb1 | (msb2 << 2)) << 16) | (lsb1 | (lsb2 << 2));
    else
        word2 = (msb1 << 16) | (msb2 << 24) | lsb1 | (lsb2 << 8);
}

// ---- Fast selectors and block errors ----

double calcBlockErrorRGB(unsigned char* img, unsigned char* work, int width, int x, int y)
{
    unsigned int sum = 0;
    for (int j = 0; j < 4; ++j)
    {
        for (int i = 0; i < 4; ++i)
        {
            const unsigned char* p = pixelAt(img, width, x + i, y + j);
            const unsigned char* q = work + 3 * (j * 4 + i);
            for (int ch = 0; ch < 3; ++ch)
                sum += square_table[p[ch] - q[ch] + 255];
        }
    }
    return static_cast<double>(sum);
}

double calcBlockPerceptualErrorRGB(unsigned char* img, unsigned char* work, int width, int x, int y)
{
    double sum = 0.0;
    for (int j = 0; j < 4; ++j)
    {
        for (int i = 0; i < 4; ++i)
        {
            const unsigned char* p = pixelAt(img, width, x + i, y + j);
            const unsigned char* q = work + 3 * (j * 4 + i);
            const int dr = p[0] - q[0];
            const int dg = p[1] - q[1];
            const int db = p[2] - q[2];
            sum += 0.299 * (dr * dr) + 0.587 * (dg * dg) + 0.114 * (db * db);
        }
    }
    return sum;
}

double compressBlockDiffFlipFast(unsigned char* img, unsigned char* work, int width, int x, int y,
                                 unsigned int& word1, unsigned int& word2)
{
    return fastBlock<calcBlockErrorRGB>(compressBlockDiffFlipAverage, compressBlockDiffFlipCombined, img, work,
                                        width, x, y, word1, word2);
}

double compressBlockDiffFlipFastPerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                           unsigned int& word1, unsigned int& word2)
{
    return fastBlock<calcBlockPerceptualErrorRGB>(compressBlockDiffFlipAveragePerceptual,
                                                  compressBlockDiffFlipCombinedPerceptual, img, work, width, x, y,
                                                  word1, word2);
}

} // namespace orbtexture
