// Exhaustive planar search and the ETC2 selectors of the exhaustive qualities.

#include "Codecs/ETC/ETCExhaustive.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "Codecs/ETC/ETCModes.h"
#include "Codecs/ETC/ETCPlanarKernels.h"
#include "Tools/ORBTSimd.h"

namespace orbtexture
{

namespace
{

constexpr unsigned int kCap = 3121200u;
constexpr unsigned int kCapPerceptual = 1040400000u;
// Planar corners are searched this many code steps either side of the fit.
constexpr int kPlanarReach = 3;

const unsigned int* const kPlainSquares[3] = {square_table, square_table, square_table};
const unsigned int* const kPerceptualSquares[3] = {square_table_percep_red, square_table_percep_green,
                                                   square_table_percep_blue};

// Bits of a planar channel: 6 for red and blue, 7 for green.
int PlanarBits(int channel) { return channel == 1 ? 7 : 6; }

int ExpandPlanar(int code, int bits) { return bits == 7 ? (code << 1) | (code >> 6) : (code << 2) | (code >> 4); }

inline int DecodePlanar(int o, int h, int v, int i, int j)
{
    return std::clamp((4 * o + i * (h - o) + j * (v - o) + 2) >> 2, 0, 255);
}

inline const unsigned char* PixelAt(const unsigned char* img, int width, int x, int y)
{
    return img + 3 * (size_t(y) * size_t(width) + size_t(x));
}

// Fields of the 57-bit form: [origin, horizontal, vertical][channel].
void UnpackPlanar(unsigned int packed1, unsigned int packed2, int (&codes)[3][3])
{
    const unsigned int fields[3][3] = {
        {(packed1 >> 26) & 63, (packed1 >> 19) & 127, (packed1 >> 13) & 63},
        {(packed1 >> 7) & 63, packed1 & 127, (packed2 >> 26) & 63},
        {(packed2 >> 20) & 63, (packed2 >> 13) & 127, (packed2 >> 7) & 63},
    };
    for (int k = 0; k < 3; ++k)
        for (int c = 0; c < 3; ++c)
            codes[k][c] = int(fields[k][c]);
}

void PackPlanar(const int (&codes)[3][3], unsigned int& packed1, unsigned int& packed2)
{
    packed1 = (unsigned(codes[0][0]) << 26) | (unsigned(codes[0][1]) << 19) | (unsigned(codes[0][2]) << 13) |
              (unsigned(codes[1][0]) << 7) | unsigned(codes[1][1]);
    packed2 = (unsigned(codes[1][2]) << 26) | (unsigned(codes[2][0]) << 20) | (unsigned(codes[2][1]) << 13) |
              (unsigned(codes[2][2]) << 7);
}

// Error of one channel over the pixels (i, j) with i + 4 j in [first, last),
// stopping once it reaches 'limit'.
unsigned int ChannelError(const unsigned char* img, int width, int x, int y, int channel, int o, int h, int v,
                          const unsigned int* squares, unsigned int limit, bool topRowOnly)
{
    unsigned int sum = 0;
    for (int p = 0; p < (topRowOnly ? 4 : 16) && sum < limit; ++p)
    {
        const int i = p & 3, j = p >> 2;
        sum += squares[PixelAt(img, width, x + i, y + j)[channel] - DecodePlanar(o, h, v, i, j) + 255];
    }
    return sum;
}

// The vertical code whose decoded pixel (i, 3) of the channel comes nearest
// the image; ties to the lower code.
int CornerCode(const unsigned char* img, int width, int x, int y, int channel, int o, int h, int i)
{
    const int bits = PlanarBits(channel), target = PixelAt(img, width, x + i, y + 3)[channel];
    int best = 0, least = 256;
    for (int v = 0; v < (1 << bits); ++v)
    {
        const int d = std::abs(target - DecodePlanar(o, h, ExpandPlanar(v, bits), i, 3));
        if (d < least)
        {
            least = d;
            best = v;
        }
    }
    return best;
}

// The best corner codes of one channel within reach of 'codes', bounded by
// 'limit'; false when nothing is below it. The vertical codes run from the
// fit's less the reach to its plus the reach, widened to take in the codes
// that fit the two bottom corners best for each origin and horizontal pair.
bool SearchChannel(const unsigned char* img, int width, int x, int y, int channel, const unsigned int* squares,
                   unsigned int& limit, int (&codes)[3])
{
    const int bits = PlanarBits(channel), top = (1 << bits) - 1;
    const int start[3] = {codes[0], codes[1], codes[2]};
    bool found = false;
    for (int o = std::max(0, start[0] - kPlanarReach); o <= std::min(top, start[0] + kPlanarReach); ++o)
        for (int h = std::max(0, start[1] - kPlanarReach); h <= std::min(top, start[1] + kPlanarReach); ++h)
        {
            const int eo = ExpandPlanar(o, bits), eh = ExpandPlanar(h, bits);
            // The top row depends on the origin and the horizontal corner alone.
            if (ChannelError(img, width, x, y, channel, eo, eh, 0, squares, limit, true) >= limit)
                continue;
            const int left = CornerCode(img, width, x, y, channel, eo, eh, 0);
            const int right = CornerCode(img, width, x, y, channel, eo, eh, 3);
            const int first = std::max(0, std::min({start[2] - kPlanarReach, left, right}));
            const int last = std::min(top, std::max({start[2] + kPlanarReach, left, right}));
            for (int v = first; v <= last; ++v)
            {
                const unsigned int error =
                    ChannelError(img, width, x, y, channel, eo, eh, ExpandPlanar(v, bits), squares, limit, false);
                if (error < limit)
                {
                    limit = error;
                    codes[0] = o;
                    codes[1] = h;
                    codes[2] = v;
                    found = true;
                }
            }
        }
    return found;
}

// ---- The fast channel search: the same codes ----

// The vertical code whose decoded pixel (i, 3) comes nearest 'target', ties
// to the lower code. The decoded pixel, clamp((o + i (h - o) + 3 v + 2) >> 2)
// for the expanded code v, never falls as the code rises, so the nearest codes
// form one run, found from the first code reaching a value.
int NearestCornerCode(int target, int o, int h, int i, int bits)
{
    const int top = (1 << bits) - 1, base = o + i * (h - o) + 2;
    const auto decoded = [&](int v) { return DecodePlanar(o, h, ExpandPlanar(v, bits), i, 3); };
    // The first code whose decoded pixel reaches 'value' (0 to 255), or top + 1.
    const auto firstAtLeast = [&](int value) {
        if (value <= 0)
            return 0;
        const int need = 4 * value - base, expanded = need <= 0 ? 0 : (need + 2) / 3;
        int v = std::min(top, expanded >> (8 - bits));
        while (v > 0 && ExpandPlanar(v - 1, bits) >= expanded)
            --v;
        while (v <= top && ExpandPlanar(v, bits) < expanded)
            ++v;
        return v;
    };
    const int above = firstAtLeast(target);
    if (above > 0 && (above > top || target - decoded(above - 1) <= decoded(above) - target))
        return firstAtLeast(decoded(above - 1));
    return above;
}

bool SearchChannelFast(const unsigned char* img, int width, int x, int y, int channel, unsigned int weight,
                       unsigned int& limit, int (&codes)[3])
{
    const PlanarSquares squares = PlanarSquaresFor(ActiveSimdPath());
    const int bits = PlanarBits(channel), top = (1 << bits) - 1;
    const int start[3] = {codes[0], codes[1], codes[2]};
    PlanarTerms terms;
    for (int p = 0; p < 16; ++p)
    {
        terms.pixels[p] = PixelAt(img, width, x + (p & 3), y + (p >> 2))[channel];
        terms.rows[p] = int16_t(p >> 2);
    }
    bool found = false;
    for (int o = std::max(0, start[0] - kPlanarReach); o <= std::min(top, start[0] + kPlanarReach); ++o)
        for (int h = std::max(0, start[1] - kPlanarReach); h <= std::min(top, start[1] + kPlanarReach); ++h)
        {
            const int eo = ExpandPlanar(o, bits), eh = ExpandPlanar(h, bits);
            // The top row depends on the origin and the horizontal corner alone.
            unsigned int topRow = 0;
            for (int i = 0; i < 4; ++i)
            {
                const int d = terms.pixels[i] - DecodePlanar(eo, eh, 0, i, 0);
                topRow += unsigned(d * d);
            }
            if (uint64_t(topRow) * weight >= limit)
                continue;
            for (int p = 0; p < 16; ++p)
                terms.base[p] = int16_t(4 * eo + (p & 3) * (eh - eo) - (p >> 2) * eo + 2);
            const int left = NearestCornerCode(terms.pixels[12], eo, eh, 0, bits);
            const int right = NearestCornerCode(terms.pixels[15], eo, eh, 3, bits);
            const int first = std::max(0, std::min({start[2] - kPlanarReach, left, right}));
            const int last = std::min(top, std::max({start[2] + kPlanarReach, left, right}));
            for (int v = first; v <= last; ++v)
            {
                const uint64_t error = uint64_t(squares(terms, ExpandPlanar(v, bits))) * weight;
                if (error < limit)
                {
                    limit = unsigned(error);
                    codes[0] = o;
                    codes[1] = h;
                    codes[2] = v;
                    found = true;
                }
            }
        }
    return found;
}

unsigned int PlanarSearch(const unsigned int* const* squares, unsigned int cap, unsigned char* img, int width, int x,
                          int y, unsigned int& packed1, unsigned int& packed2, unsigned int limit,
                          const unsigned int (&channelErrors)[3])
{
    int codes[3][3];
    UnpackPlanar(packed1, packed2, codes);
    unsigned int total = 0;
    for (int c = 0; c < 3; ++c)
    {
        // Each channel of a planar block is independent: its own start and bound.
        int channel[3] = {codes[0][c], codes[1][c], codes[2][c]};
        unsigned int bound = channelErrors[c];
        if (ETCExhaustivePlain())
            SearchChannel(img, width, x, y, c, squares[c], bound, channel);
        else
            SearchChannelFast(img, width, x, y, c, squares[c][256], bound, channel); // squares: weight * d^2
        for (int k = 0; k < 3; ++k)
            codes[k][c] = channel[k];
        total += bound;
    }
    if (total >= limit)
        return cap;
    PackPlanar(codes, packed1, packed2);
    return total;
}

unsigned int WeightedBlockError(const unsigned int* const* squares, const unsigned char* img, int width, int x,
                                int y, const unsigned char* decoded)
{
    unsigned int sum = 0;
    for (int p = 0; p < 16; ++p)
        for (int c = 0; c < 3; ++c)
            sum += squares[c][PixelAt(img, width, x + (p & 3), y + (p >> 2))[c] - decoded[3 * p + c] + 255];
    return sum;
}

struct ETC2Search
{
    const unsigned int* const* squares;
    unsigned int cap;
    double fastScale;
    double (*fast)(unsigned char*, unsigned char*, int, int, int, unsigned int&, unsigned int&);
    unsigned int (*fastestT)(unsigned char*, int, int, int, unsigned int&, unsigned int&);
    unsigned int (*fastestH)(unsigned char*, int, int, int, unsigned int&, unsigned int&);
    unsigned int (*individual)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);
    unsigned int (*differential)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);
    unsigned int (*planar)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int, unsigned int,
                           unsigned int, unsigned int);
    unsigned int (*t)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);
    unsigned int (*h)(unsigned char*, int, int, int, unsigned int&, unsigned int&, unsigned int);
};

struct Candidate
{
    unsigned int error, word1, word2;
};

unsigned int ETC2Exhaustive(const ETC2Search& s, unsigned char* img, unsigned char* work, int width, int x, int y,
                            unsigned int& word1, unsigned int& word2)
{
    Candidate fast{};
    const double fastError = s.fast(img, work, width, x, y, fast.word1, fast.word2) * s.fastScale;
    fast.error = fastError > double(s.cap - 1) ? s.cap : unsigned(std::lround(fastError));

    // The fitted planar block, its per-channel errors, and the fastest T and H.
    unsigned int planar1, planar2;
    compressBlockPlanar57(img, width, x, y, planar1, planar2);
    unsigned int channelErrors[3];
    decompressBlockPlanar57errorPerComponent(planar1, planar2, work, img, width, x, y, s.squares == kPerceptualSquares,
                                             channelErrors[0], channelErrors[1], channelErrors[2]);
    Candidate planar{WeightedBlockError(s.squares, img, width, x, y, work), 0, 0};
    stuff57bits(planar1, planar2, planar.word1, planar.word2);

    unsigned int t1, t2, h1, h2;
    Candidate t{FastestOnce(s.fastestT, img, width, x, y, t1, t2), 0, 0},
        h{FastestOnce(s.fastestH, img, width, x, y, h1, h2), 0, 0};
    stuff59bits(t1, t2, t.word1, t.word2);
    stuff58bits(h1, h2, h.word1, h.word2);
    const auto least = [&] { return std::min({fast.error, planar.error, t.error, h.error}); };

    Candidate differential{s.cap, 0, 0};
    differential.error = s.differential(img, width, x, y, differential.word1, differential.word2, least());

    unsigned int p1 = planar1, p2 = planar2;
    const unsigned int planarSearch =
        s.planar(img, width, x, y, p1, p2, std::min(least(), differential.error), channelErrors[0], channelErrors[1],
                 channelErrors[2]);
    if (planarSearch < s.cap)
    {
        decompressBlockPlanar57(p1, p2, work, 4, 0, 0);
        const unsigned int error = WeightedBlockError(s.squares, img, width, x, y, work);
        if (error < planar.error)
        {
            planar.error = error;
            stuff57bits(p1, p2, planar.word1, planar.word2);
        }
    }

    const auto soFar = [&] { return std::min(least(), differential.error); };
    Candidate individual{s.cap, 0, 0};
    individual.error = s.individual(img, width, x, y, individual.word1, individual.word2, soFar());
    const auto limitNow = [&] { return std::min(soFar(), individual.error); };
    unsigned int e1, e2;
    const unsigned int hError = s.h(img, width, x, y, e1, e2, limitNow());
    if (hError < h.error)
    {
        h.error = hError;
        stuff58bits(e1, e2, h.word1, h.word2);
    }
    const unsigned int tError = s.t(img, width, x, y, e1, e2, limitNow());
    if (tError < t.error)
    {
        t.error = tError;
        stuff59bits(e1, e2, t.word1, t.word2);
    }

    Candidate best = fast;
    for (const Candidate* c : {&planar, &t, &h, &differential, &individual})
        if (c->error < best.error)
            best = *c;
    word1 = best.word1;
    word2 = best.word2;
    return best.error;
}

} // namespace

unsigned int calcLowestPossibleRedOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                     unsigned int limit)
{
    return ChannelError(img, width, x, y, 0, origin, horizontal, 0, square_table, limit, true);
}
unsigned int calcLowestPossibleGreenOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                       unsigned int limit)
{
    return ChannelError(img, width, x, y, 1, origin, horizontal, 0, square_table, limit, true);
}
unsigned int calcLowestPossibleBlueOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                      unsigned int limit)
{
    return ChannelError(img, width, x, y, 2, origin, horizontal, 0, square_table, limit, true);
}
int calcBBBred(unsigned char* img, int width, int x, int y, int origin)
{
    return NearestCornerCode(PixelAt(img, width, x, y + 3)[0], origin, 0, 0, PlanarBits(0));
}
int calcBBBgreen(unsigned char* img, int width, int x, int y, int origin)
{
    return NearestCornerCode(PixelAt(img, width, x, y + 3)[1], origin, 0, 0, PlanarBits(1));
}
int calcBBBblue(unsigned char* img, int width, int x, int y, int origin)
{
    return NearestCornerCode(PixelAt(img, width, x, y + 3)[2], origin, 0, 0, PlanarBits(2));
}
int calcCCCred(unsigned char* img, int width, int x, int y, int origin, int horizontal)
{
    return NearestCornerCode(PixelAt(img, width, x + 3, y + 3)[0], origin, horizontal, 3, PlanarBits(0));
}
int calcCCCgreen(unsigned char* img, int width, int x, int y, int origin, int horizontal)
{
    return NearestCornerCode(PixelAt(img, width, x + 3, y + 3)[1], origin, horizontal, 3, PlanarBits(1));
}
int calcCCCblue(unsigned char* img, int width, int x, int y, int origin, int horizontal)
{
    return NearestCornerCode(PixelAt(img, width, x + 3, y + 3)[2], origin, horizontal, 3, PlanarBits(2));
}
unsigned int calcErrorPlanarOnlyRed(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                    int vertical, unsigned int limit)
{
    return ChannelError(img, width, x, y, 0, origin, horizontal, vertical, square_table, limit, false);
}
unsigned int calcErrorPlanarOnlyGreen(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                      int vertical, unsigned int limit)
{
    return ChannelError(img, width, x, y, 1, origin, horizontal, vertical, square_table, limit, false);
}
unsigned int calcErrorPlanarOnlyBlue(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                     int vertical, unsigned int limit)
{
    return ChannelError(img, width, x, y, 2, origin, horizontal, vertical, square_table, limit, false);
}

void decompressBlockPlanar57errorPerComponent(unsigned int packed1, unsigned int packed2, unsigned char* work,
                                              const unsigned char* img, int width, int x, int y, bool perceptual,
                                              unsigned int& errorRed, unsigned int& errorGreen,
                                              unsigned int& errorBlue)
{
    decompressBlockPlanar57(packed1, packed2, work, 4, 0, 0);
    const unsigned int* const* squares = perceptual ? kPerceptualSquares : kPlainSquares;
    unsigned int errors[3] = {0, 0, 0};
    for (int p = 0; p < 16; ++p)
        for (int c = 0; c < 3; ++c)
            errors[c] += squares[c][PixelAt(img, width, x + (p & 3), y + (p >> 2))[c] - work[3 * p + c] + 255];
    errorRed = errors[0];
    errorGreen = errors[1];
    errorBlue = errors[2];
}

unsigned int compressBlockPlanar57Exhaustive(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                             unsigned int& packed2, unsigned int limit, unsigned int errorRed,
                                             unsigned int errorGreen, unsigned int errorBlue)
{
    return PlanarSearch(kPlainSquares, kCap, img, width, x, y, packed1, packed2, limit,
                        {errorRed, errorGreen, errorBlue});
}

unsigned int compressBlockPlanar57ExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                       unsigned int& packed1, unsigned int& packed2,
                                                       unsigned int limit, unsigned int errorRed,
                                                       unsigned int errorGreen, unsigned int errorBlue)
{
    return PlanarSearch(kPerceptualSquares, kCapPerceptual, img, width, x, y, packed1, packed2, limit,
                        {errorRed, errorGreen, errorBlue});
}

unsigned int compressBlockETC2Exhaustive(unsigned char* img, unsigned char* work, int width, int x, int y,
                                         unsigned int& word1, unsigned int& word2)
{
    static const ETC2Search search = {kPlainSquares,
                                      kCap,
                                      1.0,
                                      compressBlockDiffFlipFast,
                                      compressBlockTHUMB59TFastest,
                                      compressBlockTHUMB58HFastest,
                                      compressBlockIndividualExhaustive,
                                      compressBlockDifferentialExhaustive,
                                      compressBlockPlanar57Exhaustive,
                                      compressBlockTHUMB59TExhaustive,
                                      compressBlockTHUMB58HExhaustive};
    return ETC2Exhaustive(search, img, work, width, x, y, word1, word2);
}

unsigned int compressBlockETC2ExhaustivePerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                                   unsigned int& word1, unsigned int& word2)
{
    static const ETC2Search search = {kPerceptualSquares,
                                      kCapPerceptual,
                                      1000.0,
                                      compressBlockDiffFlipFastPerceptual,
                                      compressBlockTHUMB59TFastestPerceptual1000,
                                      compressBlockTHUMB58HFastestPerceptual1000,
                                      compressBlockIndividualExhaustivePerceptual,
                                      compressBlockDifferentialExhaustivePerceptual,
                                      compressBlockPlanar57ExhaustivePerceptual,
                                      compressBlockTHUMB59TExhaustivePerceptual,
                                      compressBlockTHUMB58HExhaustivePerceptual};
    return ETC2Exhaustive(search, img, work, width, x, y, word1, word2);
}

} // namespace orbtexture
