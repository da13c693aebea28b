// ETC2 T, H and planar modes, and the fast ETC2 block selectors.

#include "Codecs/ETC/ETCModes.h"

#include "Codecs/ETC/ETCAverageSearch.h"

#include <climits>
#include <cstdio>

namespace orbtexture
{

ClusterRandom::ClusterRandom(unsigned int seed)
{
    // 16807^i * seed mod 2^31 - 1 by Schrage's method, the seed taken as a
    // signed 32-bit word; a seed of 0 counts as 1.
    if (seed == 0)
        seed = 1;
    m_words[0] = seed;
    long long word = static_cast<int>(seed);
    for (int i = 1; i < 31; ++i)
    {
        const long long high = word / 127773, low = word % 127773;
        word = 16807 * low - 2836 * high;
        if (word < 0)
            word += 2147483647;
        m_words[i] = static_cast<unsigned int>(word);
    }
    m_front = 3;
    m_rear = 0;
    for (int i = 0; i < 310; ++i)
        next();
}

int ClusterRandom::next()
{
    m_words[m_front] += m_words[m_rear];
    const int value = static_cast<int>(m_words[m_front] >> 1);
    m_front = m_front == 30 ? 0 : m_front + 1;
    m_rear = m_rear == 30 ? 0 : m_rear + 1;
    return value;
}

namespace
{

// Largest weighted block error (255^2 * 16 * 1000); the start of the T and
// H searches.
constexpr unsigned int kErrorCap1000 = 1040400000u;

// Start distortion of the clusterers: 512^2 * 3 * 16.
constexpr double kLBGStartError = 12582912.0;
constexpr int kLBGRuns = 10;
constexpr int kLBGIterations = 10;
// 1 / (2^31 - 1): ClusterRandom::next() to [0, 1].
constexpr double kRandScale = 4.656612875245797e-10;

// Orthonormal basis of the rotated colour space: intensity, then two chroma
// axes.
constexpr double kInvSqrt3 = 0.5773502691896258;
constexpr double kInvSqrt2 = 0.7071067811865475;
constexpr double kInvSqrt6 = 0.4082482904638631;
constexpr double kTwoInvSqrt6 = 0.8164965809277261;

inline const unsigned char* pixelAt(const unsigned char* img, int width, int x, int y)
{
    return img + 3 * (y * width + x);
}

inline bool isTransparent(const unsigned char* alpha, int width, int x, int y)
{
    return alpha != nullptr && alpha[y * width + x] < 128;
}

inline int roundAway(double v)
{
    return v >= 0.0 ? static_cast<int>(v + 0.5) : static_cast<int>(v - 0.5);
}

inline unsigned char toByte(double v)
{
    if (v < 0.0)
        v = 0.0;
    if (v > 255.0)
        v = 255.0;
    return static_cast<unsigned char>(v + 0.5);
}

inline int clampByte(int v)
{
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

template <bool Perceptual>
inline unsigned int colourError(const unsigned char* a, const unsigned char* b)
{
    const int dr = a[0] - b[0] + 255;
    const int dg = a[1] - b[1] + 255;
    const int db = a[2] - b[2] + 255;
    if (Perceptual)
        return square_table_percep_red[dr] + square_table_percep_green[dg] + square_table_percep_blue[db];
    return square_table[dr] + square_table[dg] + square_table[db];
}

// ---- LBG clustering ----

struct LBGSettings
{
    bool rotated;     // work in the intensity / chroma basis
    bool rounded;     // distances between integer-rounded vectors
    double weight[3]; // per-axis weights of the squared distance
};

constexpr LBGSettings kLBGFull = {true, false, {1.0, 1.0, 1.0}};
constexpr LBGSettings kLBGNotIntensity = {true, false, {0.0, 1.0, 1.0}};
constexpr LBGSettings kLBGFast = {false, true, {1.0, 1.0, 1.0}};
constexpr LBGSettings kLBGNotIntensityFast = {true, true, {0.0, 1.0, 1.0}};
constexpr LBGSettings kLBGHalfIntensityFast = {true, true, {0.5, 1.0, 1.0}};

// Two-cluster LBG over the block's pixels; with 'alpha' only the opaque
// pixels take part (all of them if none is opaque).
void clusterLBG(const unsigned char* img, const unsigned char* alpha, int width, int x, int y,
                const LBGSettings& s, unsigned char (*colours)[3])
{
    ClusterRandom random(10000);

    double coord[16][3];
    int icoord[16][3];
    int members[16];
    int count = 0;
    for (int pass = 0; pass < 2 && count == 0; ++pass)
    {
        for (int p = 0; p < 16; ++p)
        {
            if (pass == 0 && isTransparent(alpha, width, x + (p & 3), y + (p >> 2)))
                continue;
            members[count++] = p;
        }
    }

    double minv[3] = {512.0, 512.0, 512.0};
    double maxv[3] = {-512.0, -512.0, -512.0};
    for (int k = 0; k < count; ++k)
    {
        const int p = members[k];
        const unsigned char* px = pixelAt(img, width, x + (p & 3), y + (p >> 2));
        const double r = px[0], g = px[1], b = px[2];
        if (s.rotated)
        {
            coord[k][0] = (r + g + b) * kInvSqrt3;
            coord[k][1] = (r - g) * kInvSqrt2;
            coord[k][2] = (r + g) * kInvSqrt6 - b * kTwoInvSqrt6;
        }
        else
        {
            coord[k][0] = r;
            coord[k][1] = g;
            coord[k][2] = b;
        }
        for (int c = 0; c < 3; ++c)
        {
            icoord[k][c] = roundAway(coord[k][c]);
            if (coord[k][c] < minv[c])
                minv[c] = coord[k][c];
            if (coord[k][c] > maxv[c])
                maxv[c] = coord[k][c];
        }
    }

    double current[2][3];
    double best[2][3];
    for (int v = 0; v < 2; ++v)
        for (int c = 0; c < 3; ++c)
            best[v][c] = 0.5 * (minv[c] + maxv[c]);

    double distortion = kLBGStartError;
    double bestDistortion = kLBGStartError;
    bool searching = true;
    for (int run = 0; run < kLBGRuns && searching; ++run)
    {
        for (int v = 0; v < 2; ++v)
            for (int c = 0; c < 3; ++c)
                current[v][c] = minv[c] + (maxv[c] - minv[c]) * static_cast<double>(random.next()) * kRandScale;

        for (int iteration = 0; iteration < kLBGIterations; ++iteration)
        {
            const double previous = distortion;
            distortion = 0.0;
            int rounded[2][3];
            for (int v = 0; v < 2; ++v)
                for (int c = 0; c < 3; ++c)
                    rounded[v][c] = roundAway(current[v][c]);

            double sum[2][3] = {{0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}};
            int size[2] = {0, 0};
            for (int k = 0; k < count; ++k)
            {
                double err[2];
                for (int v = 0; v < 2; ++v)
                {
                    double e = 0.0;
                    for (int c = 0; c < 3; ++c)
                    {
                        double sq;
                        if (!s.rounded)
                        {
                            const double d = coord[k][c] - current[v][c];
                            sq = d * d;
                        }
                        else if (!s.rotated)
                        {
                            sq = square_table[icoord[k][c] - rounded[v][c] + 255];
                        }
                        else
                        {
                            const int d = icoord[k][c] - rounded[v][c];
                            sq = static_cast<double>(d * d);
                        }
                        e += s.weight[c] * sq;
                    }
                    err[v] = e;
                }
                const int cluster = err[0] < err[1] ? 0 : 1;
                distortion += err[cluster];
                ++size[cluster];
                for (int c = 0; c < 3; ++c)
                    sum[cluster][c] += coord[k][c];
            }

            if (distortion < bestDistortion)
            {
                bestDistortion = distortion;
                for (int v = 0; v < 2; ++v)
                    for (int c = 0; c < 3; ++c)
                        best[v][c] = current[v][c];
            }
            if (distortion == 0.0 || distortion == previous)
            {
                searching = false;
                break;
            }
            if (size[0] == 0 || size[1] == 0)
                break;
            for (int v = 0; v < 2; ++v)
                for (int c = 0; c < 3; ++c)
                    current[v][c] = sum[v][c] / size[v];
        }
    }

    for (int v = 0; v < 2; ++v)
    {
        if (s.rotated)
        {
            const double i = best[v][0], u = best[v][1], w = best[v][2];
            colours[v][0] = toByte(i * kInvSqrt3 + u * kInvSqrt2 + w * kInvSqrt6);
            colours[v][1] = toByte(i * kInvSqrt3 - u * kInvSqrt2 + w * kInvSqrt6);
            colours[v][2] = toByte(i * kInvSqrt3 - w * kTwoInvSqrt6);
        }
        else
        {
            for (int c = 0; c < 3; ++c)
                colours[v][c] = toByte(best[v][c]);
        }
    }
}

// ---- T and H index searches ----

// Nearest paint of every pixel; transparent pixels (with 'alpha') take
// paint 2, which the others may not use. Returns the opaque pixels' error
// and the indices in sequence form.
template <bool Perceptual>
unsigned int paintBlock(const unsigned char* img, const unsigned char* alpha, int width, int x, int y,
                        const unsigned char (*paint)[3], unsigned int& indices)
{
    unsigned int total = 0;
    unsigned int seq = 0;
    for (int j = 0; j < 4; ++j)
    {
        for (int i = 0; i < 4; ++i)
        {
            unsigned int index = 2;
            if (!isTransparent(alpha, width, x + i, y + j))
            {
                const unsigned char* px = pixelAt(img, width, x + i, y + j);
                unsigned int least = UINT_MAX;
                for (unsigned int k = 0; k < 4; ++k)
                {
                    if (alpha != nullptr && k == 2)
                        continue;
                    const unsigned int e = colourError<Perceptual>(px, paint[k]);
                    if (e < least)
                    {
                        least = e;
                        index = k;
                    }
                }
                total += least;
            }
            seq = (seq << 2) | index;
        }
    }
    indices = seq;
    return total;
}

template <bool Perceptual>
unsigned int error59T(const unsigned char* img, const unsigned char* alpha, int width, int x, int y,
                      unsigned char (*codes)[3], bool trySwap, unsigned char& distance, unsigned int& indices)
{
    unsigned int best = kErrorCap1000;
    int bestOrder = 0;
    distance = 0;
    indices = 0;
    const int orders = trySwap ? 2 : 1;
    for (int order = 0; order < orders; ++order)
    {
        if (order == 1)
            swapColors(codes);
        unsigned char colours[2][3];
        decompressColor(4, 4, 4, codes, colours);
        for (unsigned char d = 0; d < 8; ++d)
        {
            unsigned char paint[4][3];
            calculatePaintColors59T(d, 1, colours, paint);
            unsigned int seq;
            const unsigned int err = paintBlock<Perceptual>(img, alpha, width, x, y, paint, seq);
            if (err < best)
            {
                best = err;
                distance = d;
                indices = seq;
                bestOrder = order;
            }
        }
    }
    if (trySwap && bestOrder == 0)
        swapColors(codes);
    return best;
}

template <bool Perceptual>
unsigned int error58H(const unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                      unsigned char& distance, unsigned int& indices)
{
    unsigned int best = kErrorCap1000;
    distance = 0;
    indices = 0;
    unsigned char colours[2][3];
    decompressColor(4, 4, 4, codes, colours);
    for (unsigned char d = 0; d < 8; ++d)
    {
        unsigned char paint[4][3];
        calculatePaintColors58H(d, 0, colours, paint);
        unsigned int seq;
        const unsigned int err = paintBlock<Perceptual>(img, nullptr, width, x, y, paint, seq);
        if (err < best)
        {
            best = err;
            distance = d;
            indices = seq;
        }
    }
    return best;
}

inline unsigned int value444(const unsigned char* c)
{
    return (static_cast<unsigned int>(c[0]) << 8) | (static_cast<unsigned int>(c[1]) << 4) | c[2];
}

using Clusterer = void (*)(unsigned char*, int, int, int, unsigned char (*)[3]);

template <bool Perceptual>
unsigned int thumb59T(Clusterer cluster, unsigned char* img, int width, int x, int y, unsigned int& packed1,
                      unsigned int& packed2)
{
    unsigned char colours[2][3];
    unsigned char codes[2][3];
    cluster(img, width, x, y, colours);
    compressColor(4, 4, 4, colours, codes);
    unsigned char distance;
    unsigned int indices;
    const unsigned int err = error59T<Perceptual>(img, nullptr, width, x, y, codes, true, distance, indices);
    packBlock59T(codes, distance, indices, packed1, packed2);
    return err;
}

} // namespace

unsigned int compressCodes58H(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                              unsigned int& packed1, unsigned int& packed2, bool perceptual)
{
    unsigned char distance;
    unsigned int indices;
    const unsigned int err = perceptual ? error58H<true>(img, width, x, y, codes, distance, indices)
                                        : error58H<false>(img, width, x, y, codes, distance, indices);
    // The lowest distance bit is the colour order: 1 when the first is not
    // below the second. Swapping the colours exchanges paints 0/1 and 2/3.
    const unsigned int orderBit = value444(codes[0]) < value444(codes[1]) ? 0u : 1u;
    if (orderBit != (distance & 1u))
    {
        swapColors(codes);
        indices ^= 0xaaaaaaaau;
    }
    packBlock58H(codes, distance, indices, packed1, packed2);
    return err;
}

namespace
{

template <bool Perceptual>
unsigned int thumb58H(Clusterer cluster, unsigned char* img, int width, int x, int y, unsigned int& packed1,
                      unsigned int& packed2)
{
    unsigned char colours[2][3];
    unsigned char codes[2][3];
    cluster(img, width, x, y, colours);
    compressColor(4, 4, 4, colours, codes);
    sortColorsRGB444(codes);
    return compressCodes58H(img, width, x, y, codes, packed1, packed2, Perceptual);
}

// ---- Planar fit ----

// Least-squares solver of the planar mode: row k gives corner k (origin,
// horizontal, vertical) as a weighted sum of the 16 pixels in row order.
struct PlanarSolver
{
    double weights[3][16];

    PlanarSolver()
    {
        // Pixel (x, y) = O * (1 - (x + y) / 4) + H * x / 4 + V * y / 4.
        double design[16 * 3];
        for (int p = 0; p < 16; ++p)
        {
            const int px = p & 3, py = p >> 2;
            design[3 * p + 0] = 1.0 - (px + py) / 4.0;
            design[3 * p + 1] = px / 4.0;
            design[3 * p + 2] = py / 4.0;
        }
        // (design^T * design)^-1, constant for the 4 x 4 grid.
        double inverse[9] = {0.2875, -0.0125, -0.0125, -0.0125, 0.4875, -0.3125, -0.0125, -0.3125, 0.4875};
        dMatrix a = {3, 16, design};
        dMatrix inv = {3, 3, inverse};
        transposeMatrix(&a);
        dMatrix* product = multiplyMatrices(&inv, &a);
        for (int k = 0; k < 3; ++k)
            for (int p = 0; p < 16; ++p)
                weights[k][p] = product->data[k * 16 + p];
        deleteMatrix(product);
    }
};

const PlanarSolver& planarSolver()
{
    static const PlanarSolver solver;
    return solver;
}

// ---- 1-bit alpha helpers ----

// Error of the pixels opaque in 'alpha' against a decoded 4 x 4 block.
double calcBlockErrorRGBA(const unsigned char* img, const unsigned char* work, const unsigned char* alpha,
                          int width, int x, int y)
{
    unsigned int err = 0;
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            if (!isTransparent(alpha, width, x + i, y + j))
                err += colourError<false>(pixelAt(img, width, x + i, y + j), work + 3 * (j * 4 + i));
    return static_cast<double>(err);
}

bool hasAlpha(const unsigned char* alpha, int x, int y, int width)
{
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            if (isTransparent(alpha, width, x + i, y + j))
                return true;
    return false;
}

// Index bits and error of one half of a differential block for one table.
// 'half' lists the half's pixels as block offsets i * 4 + j.
unsigned int fitHalf(const unsigned char* img, const unsigned char* alpha, bool isOpaque, int width, int x, int y,
                     const int* half, const unsigned char* base, int table, unsigned int& msb, unsigned int& lsb)
{
    const int* row = compressParams[table * 2];
    unsigned char candidate[4][3];
    for (int col = 0; col < 4; ++col)
    {
        // Without the opaque flag the small modifiers decode as 0.
        const int modifier = (!isOpaque && (col == 1 || col == 2)) ? 0 : row[col];
        for (int c = 0; c < 3; ++c)
            candidate[col][c] = static_cast<unsigned char>(clampByte(base[c] + modifier));
    }

    unsigned int err = 0;
    msb = 0;
    lsb = 0;
    for (int k = 0; k < 8; ++k)
    {
        const int i = half[k] >> 2, j = half[k] & 3;
        const int bit = half[k];
        unsigned int stored;
        if (!isOpaque && isTransparent(alpha, width, x + i, y + j))
        {
            stored = 2; // transparent
        }
        else
        {
            const unsigned char* px = pixelAt(img, width, x + i, y + j);
            unsigned int least = UINT_MAX;
            int bestCol = 0;
            for (int col = 0; col < 4; ++col)
            {
                if (!isOpaque && col == 1)
                    continue; // stored index 2 is the transparent one
                const unsigned int e = colourError<false>(px, candidate[col]);
                if (e < least)
                {
                    least = e;
                    bestCol = col;
                }
            }
            err += least;
            stored = static_cast<unsigned int>(scramble[bestCol]);
        }
        msb |= (stored >> 1) << bit;
        lsb |= (stored & 1u) << bit;
    }
    return err;
}

// Mean colour of a half; without the opaque flag only its opaque pixels
// count, if it has any.
void halfAverage(const unsigned char* img, const unsigned char* alpha, bool isOpaque, int width, int x, int y,
                 const int* half, float* average)
{
    for (int pass = 0; pass < 2; ++pass)
    {
        float sum[3] = {0.0f, 0.0f, 0.0f};
        int n = 0;
        for (int k = 0; k < 8; ++k)
        {
            const int i = half[k] >> 2, j = half[k] & 3;
            if (pass == 0 && !isOpaque && isTransparent(alpha, width, x + i, y + j))
                continue;
            const unsigned char* px = pixelAt(img, width, x + i, y + j);
            for (int c = 0; c < 3; ++c)
                sum[c] += px[c];
            ++n;
        }
        if (n > 0)
        {
            for (int c = 0; c < 3; ++c)
                average[c] = sum[c] / static_cast<float>(n);
            return;
        }
    }
}

// Block offsets i * 4 + j of the halves: left, right, top, bottom.
constexpr int kHalves[4][8] = {
    {0, 1, 2, 3, 4, 5, 6, 7},
    {8, 9, 10, 11, 12, 13, 14, 15},
    {0, 4, 8, 12, 1, 5, 9, 13},
    {2, 6, 10, 14, 3, 7, 11, 15},
};

// ---- Selector helpers ----

using ErrorMeasure = double (*)(unsigned char*, unsigned char*, int, int, int);
using PackedDecoder = void (*)(unsigned int, unsigned int, unsigned char*, int, int, int);
using Stuffer = void (*)(unsigned int, unsigned int, unsigned int&, unsigned int&);
using ModeCompressor = unsigned int (*)(unsigned char*, int, int, int, unsigned int&, unsigned int&);

struct Candidate
{
    double error;
    unsigned int word1;
    unsigned int word2;
};

Candidate tryMode(ModeCompressor compress, PackedDecoder decode, Stuffer stuff, ErrorMeasure measure,
                  unsigned char* img, unsigned char* work, int width, int x, int y)
{
    unsigned int packed1 = 0, packed2 = 0;
    compress(img, width, x, y, packed1, packed2);
    decode(packed1, packed2, work, 4, 0, 0);
    Candidate c;
    c.error = measure(img, work, width, x, y);
    stuff(packed1, packed2, c.word1, c.word2);
    return c;
}

struct ETC2Modes
{
    ModeCompressor planar;
    ModeCompressor tFastest;
    ModeCompressor hFastest;
    ModeCompressor tFast;
    ModeCompressor hFast;
    ErrorMeasure measure;
};

// Picks among the ETC1 start block and the planar, T and H candidates.
void selectETC2(const ETC2Modes& m, double startError, unsigned char* img, unsigned char* work, int width, int x,
                int y, unsigned int& word1, unsigned int& word2)
{
    const Candidate planar =
        tryMode(m.planar, decompressBlockPlanar57, stuff57bits, m.measure, img, work, width, x, y);
    const Candidate t = tryMode(m.tFastest, decompressBlockTHUMB59T, stuff59bits, m.measure, img, work, width, x, y);
    const Candidate h = tryMode(m.hFastest, decompressBlockTHUMB58H, stuff58bits, m.measure, img, work, width, x, y);

    double best = startError;
    bool tWon = false;
    if (planar.error < best)
    {
        best = planar.error;
        word1 = planar.word1;
        word2 = planar.word2;
    }
    if (t.error < best)
    {
        best = t.error;
        word1 = t.word1;
        word2 = t.word2;
        tWon = true;
    }
    if (h.error < best)
    {
        word1 = h.word1;
        word2 = h.word2;
        const Candidate hFast =
            tryMode(m.hFast, decompressBlockTHUMB58H, stuff58bits, m.measure, img, work, width, x, y);
        if (hFast.error < h.error)
        {
            word1 = hFast.word1;
            word2 = hFast.word2;
        }
    }
    else if (tWon)
    {
        const Candidate tFast =
            tryMode(m.tFast, decompressBlockTHUMB59T, stuff59bits, m.measure, img, work, width, x, y);
        if (tFast.error < t.error)
        {
            word1 = tFast.word1;
            word2 = tFast.word2;
        }
    }
}

void compressBlockETC2RGBA1(unsigned char* img, unsigned char* alpha, unsigned char* work, int width, int x, int y,
                            unsigned int& word1, unsigned int& word2)
{
    unsigned char alphaWork[16];

    // Punch-through differential: valid for any block.
    const unsigned int testErr = compressBlockDifferentialWithAlpha(false, img, alpha, width, x, y, word1, word2);
    decompressBlockDifferentialWithAlpha(word1, word2, work, alphaWork, 4, 0, 0);
    double best = calcBlockErrorRGBA(img, work, alpha, width, x, y);
    if (best != static_cast<double>(testErr))
        printf("testerr: %d, etcerr: %lf\n", static_cast<int>(testErr), best);

    unsigned int packed1 = 0, packed2 = 0;
    compressBlockTHUMB59TAlpha(img, alpha, width, x, y, packed1, packed2);
    decompressBlockTHUMB59TAlpha(packed1, packed2, work, alphaWork, 4, 0, 0);
    double err = calcBlockErrorRGBA(img, work, alpha, width, x, y);
    if (err < best)
    {
        best = err;
        stuff59bitsDiffFalse(packed1, packed2, word1, word2);
    }

    compressBlockTHUMB58HAlpha(img, alpha, width, x, y, packed1, packed2);
    decompressBlockTHUMB58HAlpha(packed1, packed2, work, alphaWork, 4, 0, 0);
    err = calcBlockErrorRGBA(img, work, alpha, width, x, y);
    if (err < best)
    {
        best = err;
        stuff58bitsDiffFalse(packed1, packed2, word1, word2);
    }

    if (hasAlpha(alpha, x, y, width))
        return;

    // Fully opaque: the plain differential block with the opaque flag set.
    unsigned int opaque1 = 0, opaque2 = 0;
    compressBlockDifferentialWithAlpha(true, img, alpha, width, x, y, opaque1, opaque2);
    decompressBlockDiffFlip(opaque1, opaque2, work, 4, 0, 0);
    err = calcBlockErrorRGB(img, work, width, x, y);
    if (err < best)
    {
        word1 = opaque1;
        word2 = opaque2;
    }
}

} // namespace

// ---- Matrices ----

dMatrix* multiplyMatrices(dMatrix* a, dMatrix* b)
{
    if (a == nullptr || b == nullptr || a->width != b->height)
        return nullptr;
    dMatrix* r = new dMatrix;
    r->width = b->width;
    r->height = a->height;
    r->data = new double[static_cast<size_t>(r->width) * static_cast<size_t>(r->height)];
    for (int row = 0; row < r->height; ++row)
    {
        for (int col = 0; col < r->width; ++col)
        {
            double sum = 0.0;
            for (int k = 0; k < a->width; ++k)
                sum += a->data[row * a->width + k] * b->data[k * b->width + col];
            r->data[row * r->width + col] = sum;
        }
    }
    return r;
}

void transposeMatrix(dMatrix* m)
{
    const int w = m->width, h = m->height;
    double* copy = new double[static_cast<size_t>(w) * static_cast<size_t>(h)];
    for (int i = 0; i < w * h; ++i)
        copy[i] = m->data[i];
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col)
            m->data[col * h + row] = copy[row * w + col];
    delete[] copy;
    m->width = h;
    m->height = w;
}

void deleteMatrix(dMatrix* m)
{
    if (m == nullptr)
        return;
    delete[] m->data;
    delete m;
}

// ---- Colours and indices ----

unsigned int indexConversion(unsigned int pixelIndices)
{
    unsigned int out = 0;
    for (int p = 0; p < 16; ++p)
    {
        const unsigned int bits = (pixelIndices >> (2 * (15 - p))) & 3u;
        const int pos = (p & 3) * 4 + (p >> 2);
        out |= (bits >> 1) << (16 + pos);
        out |= (bits & 1u) << pos;
    }
    return out;
}

void compressColor(int redBits, int greenBits, int blueBits, const unsigned char (*colours)[3],
                   unsigned char (*codes)[3])
{
    const int bits[3] = {redBits, greenBits, blueBits};
    for (int v = 0; v < 2; ++v)
    {
        for (int c = 0; c < 3; ++c)
        {
            const int code = ((colours[v][c] + (1 << (7 - bits[c]))) * ((1 << bits[c]) - 1)) / 255;
            codes[v][c] = static_cast<unsigned char>(clampByte(code));
        }
    }
}

void swapColors(unsigned char (*colours)[3])
{
    for (int c = 0; c < 3; ++c)
    {
        const unsigned char t = colours[0][c];
        colours[0][c] = colours[1][c];
        colours[1][c] = t;
    }
}

void sortColorsRGB444(unsigned char (*colours)[3])
{
    unsigned int first = value444(colours[0]);
    unsigned int second = value444(colours[1]);
    if (first < second)
    {
        swapColors(colours);
        return;
    }
    if (first != second)
        return;
    if (second > 0)
        --second;
    else
        first = 1;
    const unsigned int values[2] = {first, second};
    for (int v = 0; v < 2; ++v)
    {
        colours[v][0] = static_cast<unsigned char>((values[v] >> 8) & 15u);
        colours[v][1] = static_cast<unsigned char>((values[v] >> 4) & 15u);
        colours[v][2] = static_cast<unsigned char>(values[v] & 15u);
    }
}

// ---- Clusterers ----

void computeColorLBG(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3])
{
    clusterLBG(img, nullptr, width, x, y, kLBGFull, colours);
}

void computeColorLBGNotIntensity(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3])
{
    clusterLBG(img, nullptr, width, x, y, kLBGNotIntensity, colours);
}

void computeColorLBGfast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3])
{
    clusterLBG(img, nullptr, width, x, y, kLBGFast, colours);
}

void computeColorLBGNotIntensityFast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3])
{
    clusterLBG(img, nullptr, width, x, y, kLBGNotIntensityFast, colours);
}

void computeColorLBGHalfIntensityFast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3])
{
    clusterLBG(img, nullptr, width, x, y, kLBGHalfIntensityFast, colours);
}

// ---- T and H errors ----

unsigned int calculateError59T(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                               unsigned char& distance, unsigned int& indices)
{
    return error59T<false>(img, nullptr, width, x, y, codes, true, distance, indices);
}

unsigned int calculateError59TnoSwap(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                                     unsigned char& distance, unsigned int& indices)
{
    return error59T<false>(img, nullptr, width, x, y, codes, false, distance, indices);
}

unsigned int calculateError59Tperceptual1000(unsigned char* img, int width, int x, int y,
                                             unsigned char (*codes)[3], unsigned char& distance,
                                             unsigned int& indices)
{
    return error59T<true>(img, nullptr, width, x, y, codes, true, distance, indices);
}

unsigned int calculateError59TnoSwapPerceptual1000(unsigned char* img, int width, int x, int y,
                                                   unsigned char (*codes)[3], unsigned char& distance,
                                                   unsigned int& indices)
{
    return error59T<true>(img, nullptr, width, x, y, codes, false, distance, indices);
}

unsigned int calculateErrorAndCompress58H(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                                          unsigned char& distance, unsigned int& indices)
{
    return error58H<false>(img, width, x, y, codes, distance, indices);
}

unsigned int calculateErrorAndCompress58Hperceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned char (*codes)[3], unsigned char& distance,
                                                        unsigned int& indices)
{
    return error58H<true>(img, width, x, y, codes, distance, indices);
}

void packBlock59T(unsigned char (*codes)[3], unsigned char distance, unsigned int indices, unsigned int& packed1,
                  unsigned int& packed2)
{
    packed1 = (static_cast<unsigned int>(codes[0][0]) << 23) | (static_cast<unsigned int>(codes[0][1]) << 19) |
              (static_cast<unsigned int>(codes[0][2]) << 15) | (static_cast<unsigned int>(codes[1][0]) << 11) |
              (static_cast<unsigned int>(codes[1][1]) << 7) | (static_cast<unsigned int>(codes[1][2]) << 3) |
              (distance & 7u);
    packed2 = indexConversion(indices);
}

void packBlock58H(unsigned char (*codes)[3], unsigned char distance, unsigned int indices, unsigned int& packed1,
                  unsigned int& packed2)
{
    packed1 = (static_cast<unsigned int>(codes[0][0]) << 22) | (static_cast<unsigned int>(codes[0][1]) << 18) |
              (static_cast<unsigned int>(codes[0][2]) << 14) | (static_cast<unsigned int>(codes[1][0]) << 10) |
              (static_cast<unsigned int>(codes[1][1]) << 6) | (static_cast<unsigned int>(codes[1][2]) << 2) |
              ((static_cast<unsigned int>(distance) >> 1) & 3u);
    packed2 = indexConversion(indices);
}

// ---- T, H and planar block compressors ----

// The Fast forms: the block from each of three clusterers, the first of the
// least error kept.
template <typename Compressor>
unsigned int bestOfFastClusterers(Compressor compress, unsigned char* img, int width, int x, int y,
                                  unsigned int& packed1, unsigned int& packed2)
{
    const Clusterer clusterers[3] = {computeColorLBGNotIntensityFast, computeColorLBGHalfIntensityFast,
                                     computeColorLBGfast};
    unsigned int best = UINT_MAX;
    for (Clusterer cluster : clusterers)
    {
        unsigned int p1 = 0, p2 = 0;
        const unsigned int err = compress(cluster, img, width, x, y, p1, p2);
        if (err < best)
        {
            best = err;
            packed1 = p1;
            packed2 = p2;
        }
    }
    return best;
}

unsigned int compressBlockTHUMB59TFastest(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                          unsigned int& packed2)
{
    return thumb59T<false>(computeColorLBGHalfIntensityFast, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockTHUMB59TFastestPerceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned int& packed1, unsigned int& packed2)
{
    return thumb59T<true>(computeColorLBGHalfIntensityFast, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockTHUMB59TFast(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                       unsigned int& packed2)
{
    return bestOfFastClusterers(thumb59T<false>, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockTHUMB58HFastest(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                          unsigned int& packed2)
{
    return thumb58H<false>(computeColorLBGHalfIntensityFast, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockTHUMB58HFastestPerceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned int& packed1, unsigned int& packed2)
{
    return thumb58H<true>(computeColorLBGHalfIntensityFast, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockTHUMB58HFast(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                       unsigned int& packed2)
{
    return bestOfFastClusterers(thumb58H<false>, img, width, x, y, packed1, packed2);
}

unsigned int compressBlockPlanar57(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                   unsigned int& packed2)
{
    const PlanarSolver& solver = planarSolver();
    // Red and blue have 6 bits, green 7.
    static const double kScale[3] = {63.0 / 255.0, 127.0 / 255.0, 63.0 / 255.0};
    unsigned int corner[3][3]; // [origin, horizontal, vertical][channel]
    for (int c = 0; c < 3; ++c)
    {
        for (int k = 0; k < 3; ++k)
        {
            double v = 0.0;
            for (int p = 0; p < 16; ++p)
                v += solver.weights[k][p] * pixelAt(img, width, x + (p & 3), y + (p >> 2))[c];
            if (v < 0.0)
                v = 0.0;
            if (v > 255.0)
                v = 255.0;
            corner[k][c] = static_cast<unsigned int>(roundAway(v * kScale[c]));
        }
    }
    packed1 = (corner[0][0] << 26) | (corner[0][1] << 19) | (corner[0][2] << 13) | (corner[1][0] << 7) |
              corner[1][1];
    packed2 = (corner[1][2] << 26) | (corner[2][0] << 20) | (corner[2][1] << 13) | (corner[2][2] << 7);

    unsigned char decoded[48];
    decompressBlockPlanar57(packed1, packed2, decoded, 4, 0, 0);
    unsigned int err = 0;
    for (int p = 0; p < 16; ++p)
        err += colourError<false>(pixelAt(img, width, x + (p & 3), y + (p >> 2)), decoded + 3 * p);
    return err;
}

// ---- 1-bit alpha compressors ----

unsigned int compressBlockTHUMB59TAlpha(unsigned char* img, unsigned char* alpha, int width, int x, int y,
                                        unsigned int& packed1, unsigned int& packed2)
{
    unsigned char colours[2][3];
    unsigned char codes[2][3];
    clusterLBG(img, alpha, width, x, y, kLBGHalfIntensityFast, colours);
    compressColor(4, 4, 4, colours, codes);
    unsigned char distance;
    unsigned int indices;
    const unsigned int err = error59T<false>(img, alpha, width, x, y, codes, true, distance, indices);
    packBlock59T(codes, distance, indices, packed1, packed2);
    return err;
}

unsigned int compressBlockTHUMB58HAlpha(unsigned char* img, unsigned char* alpha, int width, int x, int y,
                                        unsigned int& packed1, unsigned int& packed2)
{
    unsigned char colours[2][3];
    unsigned char codes[2][3];
    clusterLBG(img, alpha, width, x, y, kLBGHalfIntensityFast, colours);
    compressColor(4, 4, 4, colours, codes);
    sortColorsRGB444(codes);

    // The transparent index breaks the symmetry of the two colours, so each
    // distance is fitted with the colours in the order its lowest bit needs
    // (first greater for 1, swapped for 0).
    unsigned char swapped[2][3] = {{codes[1][0], codes[1][1], codes[1][2]}, {codes[0][0], codes[0][1], codes[0][2]}};
    unsigned char expanded[2][2][3];
    decompressColor(4, 4, 4, swapped, expanded[0]);
    decompressColor(4, 4, 4, codes, expanded[1]);

    unsigned int best = kErrorCap1000;
    unsigned char bestDistance = 0;
    unsigned int bestIndices = 0;
    for (unsigned char d = 0; d < 8; ++d)
    {
        unsigned char paint[4][3];
        calculatePaintColors58H(d, 0, expanded[d & 1], paint);
        unsigned int seq;
        const unsigned int err = paintBlock<false>(img, alpha, width, x, y, paint, seq);
        if (err < best)
        {
            best = err;
            bestDistance = d;
            bestIndices = seq;
        }
    }
    packBlock58H((bestDistance & 1) ? codes : swapped, bestDistance, bestIndices, packed1, packed2);
    return best;
}

unsigned int compressBlockDifferentialWithAlpha(bool isOpaque, unsigned char* img, unsigned char* alpha, int width,
                                                int x, int y, unsigned int& word1, unsigned int& word2)
{
    if (alpha == nullptr)
        isOpaque = true;
    unsigned int bestErr = UINT_MAX;
    for (unsigned int flip = 0; flip < 2; ++flip)
    {
        const int* halves[2] = {kHalves[2 * flip], kHalves[2 * flip + 1]};
        int enc[2][3];
        for (int h = 0; h < 2; ++h)
        {
            float average[3];
            unsigned char expanded[3];
            halfAverage(img, alpha, isOpaque, width, x, y, halves[h], average);
            quantize555ColorCombined(average, enc[h], expanded);
        }
        // Keep the second colour within the differential range of the
        // first; it stays between the two codes, so no channel overflows.
        int diff[3];
        unsigned char base[2][3];
        for (int c = 0; c < 3; ++c)
        {
            int d = enc[1][c] - enc[0][c];
            d = d < -4 ? -4 : (d > 3 ? 3 : d);
            diff[c] = d;
            enc[1][c] = enc[0][c] + d;
            for (int h = 0; h < 2; ++h)
                base[h][c] = static_cast<unsigned char>((enc[h][c] << 3) | (enc[h][c] >> 2));
        }

        unsigned int err = 0, msb = 0, lsb = 0;
        unsigned int tables[2] = {0, 0};
        for (int h = 0; h < 2; ++h)
        {
            unsigned int least = UINT_MAX, bestMsb = 0, bestLsb = 0;
            for (int t = 0; t < 8; ++t)
            {
                unsigned int m, l;
                const unsigned int e = fitHalf(img, alpha, isOpaque, width, x, y, halves[h], base[h], t, m, l);
                if (e < least)
                {
                    least = e;
                    tables[h] = static_cast<unsigned int>(t);
                    bestMsb = m;
                    bestLsb = l;
                }
            }
            err += least;
            msb |= bestMsb;
            lsb |= bestLsb;
        }

        if (err < bestErr)
        {
            bestErr = err;
            word1 = (static_cast<unsigned int>(enc[0][0]) << 27) | ((static_cast<unsigned int>(diff[0]) & 7u) << 24) |
                    (static_cast<unsigned int>(enc[0][1]) << 19) | ((static_cast<unsigned int>(diff[1]) & 7u) << 16) |
                    (static_cast<unsigned int>(enc[0][2]) << 11) | ((static_cast<unsigned int>(diff[2]) & 7u) << 8) |
                    (tables[0] << 5) | (tables[1] << 2) | (isOpaque ? 2u : 0u) | flip;
            word2 = (msb << 16) | lsb;
        }
    }
    return bestErr;
}

// ---- Selectors ----

void compressBlockETC2Fast(unsigned char* img, unsigned char* alpha, unsigned char* work, int width, int height,
                           int x, int y, unsigned int& word1, unsigned int& word2, EORBTPixelFormat format)
{
    (void)height;
    if (format == ePF_ETC2_RGB_A1)
    {
        compressBlockETC2RGBA1(img, alpha, work, width, x, y, word1, word2);
        return;
    }
    const double start = compressBlockDiffFlipFast(img, work, width, x, y, word1, word2);
    static const ETC2Modes kModes = {compressBlockPlanar57,        compressBlockTHUMB59TFastest,
                                     compressBlockTHUMB58HFastest, compressBlockTHUMB59TFast,
                                     compressBlockTHUMB58HFast,    calcBlockErrorRGB};
    selectETC2(kModes, start, img, work, width, x, y, word1, word2);
}

void compressBlockETC2FastPerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                     unsigned int& word1, unsigned int& word2)
{
    const double start = compressBlockDiffFlipFastPerceptual(img, work, width, x, y, word1, word2);
    // The refining Fast forms have no weighted variant; their candidates are
    // still judged by the weighted measure.
    static const ETC2Modes kModes = {compressBlockPlanar57,
                                     compressBlockTHUMB59TFastestPerceptual1000,
                                     compressBlockTHUMB58HFastestPerceptual1000,
                                     compressBlockTHUMB59TFast,
                                     compressBlockTHUMB58HFast,
                                     calcBlockPerceptualErrorRGB};
    selectETC2(kModes, start, img, work, width, x, y, word1, word2);
}

} // namespace orbtexture
