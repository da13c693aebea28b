#ifndef FNZJ_INITIALREPS_H
#define FNZJ_INITIALREPS_H

// Initial representatives of the optimiser: oriented bounding boxes of a
// block's pixels, the grid of colours the word can store, and the exact pair
// for a block of one colour.

#include <cstdint>
#include <cstring>

#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <emmintrin.h>
#endif

namespace orbtexture
{

// Sum of the squared differences of the four channels of two 8-bit RGBA
// colours, unweighted.
inline int SQColDist(const unsigned char* a, const unsigned char* b)
{
    int sum = 0;
    for (int c = 0; c < 4; ++c)
        sum += (a[c] - b[c]) * (a[c] - b[c]);
    return sum;
}

// ---- Oriented bounding boxes ----

struct OrientedBBox
{
    float axes[4][4];  // orthonormal rows in RGBA space, main axis first
    float minimum[4];  // lowest projection on each axis
    float maximum[4];  // highest
};

// Sets the axes and empties the bounds.
void InitOrientedBBox(OrientedBBox& box, const float (*axes)[4]);
// Unit axes, both bounds at the colour.
void InitOrientedBBoxToSingleColour(OrientedBBox& box, const unsigned char* colour);
bool OrientedBBoxIsEmpty(const OrientedBBox& box);
void AddIColourToOrientedBBox(OrientedBBox& box, const unsigned char* colour);
void AddFColourToOrientedBBox(OrientedBBox& box, const float* colour);

// AddFColourToOrientedBBox for many colours: the box's bounds are held
// until Finish (or destruction) writes them back.
class OrientedBoxAdder
{
  public:
    explicit OrientedBoxAdder(OrientedBBox& box);
    ~OrientedBoxAdder() { Finish(); }
    OrientedBoxAdder(const OrientedBoxAdder&) = delete;
    OrientedBoxAdder& operator=(const OrientedBoxAdder&) = delete;
    void Add(const float* colour);
    // Add for 'count' colours in order, 'stride' floats apart, or for 8-bit
    // pixels; the bounds are held in registers meanwhile.
    void AddAll(const float* colours, int count, int stride);
    void AddAll(const unsigned char* pixels, int count);
    void Finish();

  private:
    OrientedBBox& box_;
    // Component k of the four axes, the bounds so far.
    alignas(16) float columns_[4][4];
    alignas(16) float minimum_[4], maximum_[4];
};
// Adds the colour's projection on each axis to both bounds.
void OffsetOrientedBBox(OrientedBBox& box, const unsigned char* colour);
// Sum over the axes of maximum less minimum.
float SizeOfOrientedBBox(const OrientedBBox& box);
// Limits the colour's projections to the bounds, rebuilding it if any moved.
void ClampToOrientedBBox(const OrientedBBox& box, float* colour);
inline void ConvertIntPixelToFloat(const unsigned char* colour, float* out)
{
    for (int i = 0; i < 4; ++i)
        out[i] = float(colour[i]);
}
#if ORBT_X86_SIMD
// The same four floats in a vector.
inline __m128 LoadPixelSSE2(const unsigned char* colour)
{
    int32_t bits;
    std::memcpy(&bits, colour, 4);
    const __m128i zero = _mm_setzero_si128();
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bits), zero), zero));
}
#endif

// ---- The word's colour grid ----

// The two representatives on the grid of the word's precision: opaque A has
// red and green of 5 bits and blue of 4, opaque B 5 bits each; translucent
// colours one bit less with 3-bit alpha (generation 2's B on the odd alpha
// levels). A tie between two levels moves the colours apart.
void MapToRepresentableColours(bool isGeneration2, const float* a, const float* b, unsigned char* outA,
                               unsigned char* outB);
void MapToRepresentableColoursInt(bool isGeneration2, const unsigned char* a, const unsigned char* b,
                                  unsigned char* outA, unsigned char* outB);

// ---- Two representatives from a line through the pixels ----

// A pixel of the window on the axis: its projection, absolute weight, index,
// and running sums up to and including it (weight, weight x projection,
// weight x projection^2).
struct PixelInfo
{
    float projection;
    float weight;
    int index;
    double sumWeight, sumFirst, sumSecond;
};

// A quantiser of four levels (lower, 3/8, 5/8, upper) fitted to the sorted
// entries by alternating zones and least squares, at most 20 steps.
// 'lower' and 'upper' go in as the start and come out as the best pair; the
// result is that pair's squared error times 'reciprocalWeight'. Fewer than 2
// entries, or 'minimum' equal to 'maximum', give 0 and leave both.
double ImprovePartition(const PixelInfo* entries, int count, float& lower, double reciprocalWeight, float minimum,
                        float maximum, float span, float& upper);

// Two representatives of the window's weighted pixels along 'axis', mapped to
// the word's grid (A the darker). With 'excludeTransparent' a 4bpp window
// leaves out its transparent pixels; 'multiStart' also tries the quantiser
// from every pair of eight points along the range. When 'report' is given,
// it receives the place of pixel 'reportIndex' between the result's ends as
// a modulation value 0 to 8.
void PickRepsByProjectingPixelsOntoAxis(const CompressParams& params, bool excludeTransparent, bool multiStart,
                                        bool unused, const unsigned char* window, const float* weights,
                                        int pixelCount, const float* axis, int reportIndex, int* report,
                                        unsigned char* outA, unsigned char* outB);

// ---- Local palettes ----

struct RegionStats;

// 1 for the 45 pixels of a 4bpp window (9 x 9) that palettes draw on: rows 1
// and 7 columns 3 to 5, rows 2 and 6 columns 2 to 6, rows 3 to 5 columns 1
// to 7.
extern const unsigned char PalettePixels4bpp[81];

// Up to 'maximumEntries' (at most 5) palette colours for the masked pixels of
// an 81-pixel window, by a small k-means from the two ends of the region's
// main axis: opaque entries on 5-bit channels, translucent ones on 4-bit
// channels with 3-bit alpha. Entries come out by pixel count ascending.
// Returns their number. Any other window size ends the process with status 0,
// as the optimiser's palette search was written to.
int GeneratePaletteEntries(const RegionStats& region, const unsigned char* window, const unsigned char* mask,
                           int pixelCount, int maximumEntries, int threshold, unsigned char (*out)[4]);

// ---- Best matches for one colour ----

// For a target value and a modulation weight on B (sub-entries 0 to 7 weigh
// 0, 3, 4, 5, 8, 3, 4, 5 eighths), the pair (a, b) of least error
// min((v - ((8 - w) a + w b) / 8)^2, 255) under the sub-entry's limit.
struct BestMatch
{
    uint8_t error, a, b;
};
using BestMatchTable = BestMatch[256][8];

const BestMatchTable& BestMatches_RGB_5_5();
const BestMatchTable& BestMatches_RGB_4_5();
const BestMatchTable& BestMatches_RGB_4_4();
const BestMatchTable& BestMatches_RGB_3_5();
const BestMatchTable& BestMatches_RGB_3_4();
const BestMatchTable& BestMatches_Alpha_TC1_3_3();
const BestMatchTable& BestMatches_Alpha_TC2_3_3();
// Eight sub-entries (0, 255, 255): alpha when both colours are opaque.
extern const BestMatch FullAlphaBlends[8];

// The pair that reproduces one colour best, A into 'outA' and B into 'outB'.
// 'scratch', a work area of the caller's, is not needed here.
void GetSingleColourBestMatchReps(const unsigned char* colour, bool isPunchThroughMode, bool isGeneration2,
                                  bool preferSwap, unsigned char* outA, unsigned char* outB, void* scratch);

} // namespace orbtexture

#endif
