#ifndef FNZJ_WINDOW_LANES_H
#define FNZJ_WINDOW_LANES_H

// A 4bpp window's measured pixels, and apart its local-palette pixels, laid
// out channel by channel, so that one vector holds the same channel of 8
// (SSE2) or 16 (AVX2) pixels: the choices, their errors and each pixel's
// choice of an evaluation in a few vector steps, and the pair fit from those
// choices without a per-pixel store.

#include <cstdint>

namespace orbtexture
{

constexpr int kLanePixels = 96; // 81 window pixels, rounded up to whole vectors

// What the lanes of a list of window pixels hold for every visit with the
// same modes around the block: fixed by the pixels' decoding records.
// Padding lanes are zero and count nowhere.
struct LaneLayout
{
    int count = 0;
    // Names the pixels and places the layout holds (index, places,
    // placeWeights): a new arrangement takes a new number; 0 is unnamed.
    uint32_t version = 0;
    uint8_t index[kLanePixels]; // window pixel of each lane
    // The neighbourhood places of the pixel's quadrant and its bilinear
    // weights on them, 0 on places that are the block itself; its weight on
    // the block itself (its own pair).
    uint8_t places[kLanePixels][4];
    alignas(16) int16_t placeWeights[kLanePixels][4];
    alignas(32) int16_t self[kLanePixels];
    // The mixes' weights: c1 = (w0 c0 + w1 c3) >> 3, c2 = (w2 c0 + w3 c3) >> 3
    // ANDed with the mask.
    alignas(32) int16_t weights[4][kLanePixels];
    alignas(32) int16_t mask2[4][kLanePixels];
    // All ones where the error adds to the first sum, and to the second.
    alignas(32) int16_t first[kLanePixels];
    alignas(32) int16_t second[kLanePixels];
    alignas(32) int16_t punchThroughFlag[kLanePixels];
    // Per choice, the fit's weights on A and B times 512 / gain, (8 - m) w and
    // m w (w the block's part, m the modulation), the gain, and a mask of the
    // choices whose gain is not full (128). When every pixel takes a choice
    // of full gain, the weights are a quarter of these, and every partial sum
    // of the fit is a float that holds it exactly (multiples of 1/16 below
    // 2^20, and of 32 below 2^29): then the sums in any order are the walk's,
    // and the evaluation forms them in integers.
    alignas(32) int16_t weightA[4][kLanePixels];
    alignas(32) int16_t weightB[4][kLanePixels];
    alignas(32) int16_t gain[4][kLanePixels];
    alignas(32) int16_t lowGain[4][kLanePixels];
};

// A layout's lanes for one visit: the fixed sums of the neighbours' masked A
// and B by channel, the source channels, the weight of alpha's difference,
// and all ones where a transparent source pixel meets a punch-through choice.
struct WindowLanes
{
    const LaneLayout* layout = nullptr;
    alignas(32) int16_t fixedA[4][kLanePixels];
    alignas(32) int16_t fixedB[4][kLanePixels];
    alignas(32) int16_t pixel[4][kLanePixels];
    alignas(32) int16_t alphaWeight[kLanePixels];
    alignas(32) int16_t punchThrough[kLanePixels];
    alignas(32) int16_t transparent[kLanePixels];

    // The layout version and window stamp the lanes were loaded from.
    uint32_t loadedVersion = 0, loadedStamp = 0;

    // The last evaluation: each pixel's choice and, when asked, the source
    // less the chosen colour and, when every choice had full gain
    // ('integerFit'), the fit's integer sums (A A, A B, B B, then the
    // residuals on A and on B by channel).
    alignas(32) uint8_t chosen[kLanePixels];
    alignas(32) int16_t residual[4][kLanePixels];
    int32_t fitSums[11];
    bool integerFit = false;
};

// A window's pixels channel by channel, with the weight of alpha's
// difference (30 at alpha 0 and 255, else 1) and all ones at alpha 0.
struct WindowChannels
{
    uint32_t stamp = 0; // changes with the pixels
    alignas(32) int16_t pixel[4][kLanePixels * 2];
    alignas(32) int16_t alphaWeight[kLanePixels * 2];
    alignas(32) int16_t transparent[kLanePixels * 2];
};

// A pair (A then B, RGBA) masked to the decoder's precision: the low three
// bits of colour and four of alpha cleared.
inline void MaskPair(const unsigned char (*pair)[4], int16_t* masked)
{
    for (int c = 0; c < 4; ++c)
    {
        const int mask = c < 3 ? 0xF8 : 0xF0;
        masked[c] = int16_t(pair[0][c] & mask);
        masked[4 + c] = int16_t(pair[1][c] & mask);
    }
}

// Lanes of 'layout' for the neighbourhood's pairs 'reps' ([place][A, B][RGBA])
// and the window.
void LoadWindowLanes(WindowLanes& lanes, const LaneLayout& layout, const unsigned char (*reps)[2][4],
                     const WindowChannels& window);

// The error sums of one evaluation (by the layout's first and second masks)
// with the block's own pair 'selfAB' (A then B, RGBA, masked to the decoder's
// precision); each pixel's choice into lanes.chosen, and with 'residuals'
// what the fit needs.
void EvaluateWindowLanes(WindowLanes& lanes, const int16_t* selfAB, bool residuals, int64_t* first,
                         int64_t* second);

// Every lane's four choices by channel, and their errors without the
// punch-through rule: for evaluations that choose for groups of pixels.
struct LaneChoices
{
    alignas(16) int32_t errors[4][kLanePixels];
    alignas(16) int16_t colours[4][4][kLanePixels]; // [choice][channel]
};
void MeasureWindowLanes(const WindowLanes& lanes, const int16_t* selfAB, LaneChoices& out);
// With every lane's choice set in lanes.chosen: the chosen errors added to
// the sums by the layout's first and second masks, and the residuals and fit
// sums of those choices, as an evaluation with residuals leaves them.
void SettleChosenLanes(WindowLanes& lanes, const LaneChoices& choices, int64_t* first, int64_t* second);

// A window's local-palette pixels in lanes, beside a LaneLayout of them
// that holds their fit weights and gains and, in 'first' and 'second', the
// central and other pixels. Each choice shows a stored colour: of a place
// around the block, or the block's own A or B.
struct PaletteSources
{
    uint8_t source[kLanePixels][4]; // by choice: place x 2 + (0 A, 1 B)
    alignas(32) int16_t ownA[4][kLanePixels]; // all ones where the choice is the block's own A
    alignas(32) int16_t ownB[4][kLanePixels];
    alignas(32) int16_t outer[kLanePixels]; // all ones on the outer ring
};

// The stored colours of the places around the block, [choice][channel] by
// lane: 0 where the choice is the block's own.
struct PaletteColours
{
    alignas(32) int16_t fixed[4][4][kLanePixels];
};

// Lanes of the palette layout 'layout' for the neighbourhood's pairs 'reps'
// (as stored) and the window.
void LoadPaletteLanes(WindowLanes& lanes, PaletteColours& colours, const LaneLayout& layout,
                      const PaletteSources& sources, const unsigned char (*reps)[2][4], const WindowChannels& window);

// The palette pixels' errors with the block's own pair 'self' (A then B, as
// stored): sums[0] adds the outer ring's, sums[1] the central pixels' and
// sums[2] the others'. Choices, and with 'residuals' what the fit needs, go
// to the lanes as EvaluateWindowLanes leaves them; without
// 'includeOuterRing' the ring's lanes keep the choices and residuals of the
// last evaluation with it, and the fit takes those.
void EvaluatePaletteLanes(WindowLanes& lanes, const PaletteSources& sources, const PaletteColours& colours,
                          const unsigned char (*self)[4], bool includeOuterRing, bool residuals, int64_t* sums);

// The pair fit of the last evaluation (run with residuals), as
// FitOnlyCentralRepPairsToWeights gives it for the same choices, with the
// palette lanes' part when 'palette' is given.
int FitWindowLanes(const WindowLanes& lanes, const WindowLanes* palette, float* displacements);

} // namespace orbtexture

#endif
