#ifndef FNZJ_WINDOW_LANES_H
#define FNZJ_WINDOW_LANES_H

// A 4bpp window's measured pixels laid out channel by channel, so that one
// vector holds the same channel of 8 (SSE2) or 16 (AVX2) pixels: the choices,
// their errors and each pixel's choice of an evaluation in a few vector
// steps, and the pair fit from those choices without a per-pixel store.

#include <cstdint>

namespace orbtexture
{

struct WindowLanes
{
    static constexpr int kPixels = 96; // 81 window pixels, rounded up to whole vectors

    // Set when the window's pixels were loaded (Load).
    int count = 0;
    bool ready = false;
    // Per pixel: the fixed sums of the neighbours' masked A and B by channel,
    // the weight of the block's own pair, the mixes' weights (c1 = (w0 c0 + w1
    // c3) >> 3, c2 = (w2 c0 + w3 c3) >> 3 & mask), the source channels, the
    // weight of alpha's difference, and masks (all ones or 0): a transparent
    // source pixel under a punch-through choice, the block's own pixels and
    // the others. Padding lanes are zero and count nowhere.
    alignas(32) int16_t fixedA[4][kPixels];
    alignas(32) int16_t fixedB[4][kPixels];
    alignas(32) int16_t self[kPixels];
    alignas(32) int16_t weights[4][kPixels];
    alignas(32) int16_t mask2[4][kPixels];
    alignas(32) int16_t pixel[4][kPixels];
    alignas(32) int16_t alphaWeight[kPixels];
    alignas(32) int16_t punchThrough[kPixels];
    alignas(32) int16_t central[kPixels];
    alignas(32) int16_t others[kPixels];
    // Per pixel and choice, the fit's weights on A and B times 512 / gain,
    // (8 - m) w and m w (w the block's part, m the modulation), the gain, and
    // a mask of the choices whose gain is not full (128). When every pixel
    // takes a choice of full gain, the weights are a quarter of these, and
    // every partial sum of the fit is a float that holds it exactly
    // (multiples of 1/16 below 2^20, and of 32 below 2^29): then the sums in
    // any order are the walk's, and the evaluation forms them in integers.
    alignas(32) int16_t weightA[4][kPixels];
    alignas(32) int16_t weightB[4][kPixels];
    alignas(32) int16_t gain[4][kPixels];
    alignas(32) int16_t lowGain[4][kPixels];

    // The last evaluation: each pixel's choice and, when asked, the source
    // less the chosen colour and, when every choice had full gain
    // ('integerFit'), the fit's integer sums (A A, A B, B B, then the
    // residuals on A and on B by channel).
    alignas(32) uint8_t chosen[kPixels];
    alignas(32) int16_t residual[4][kPixels];
    int32_t fitSums[11];
    bool integerFit = false;
};

// Sums by locality (the block's own pixels, the others) of one evaluation
// with the block's own pair 'selfAB' (A then B, RGBA, masked to the decoder's
// precision); each pixel's choice into lanes.chosen, and with 'residuals'
// what the fit needs.
void EvaluateWindowLanes(WindowLanes& lanes, const int16_t* selfAB, bool residuals, int64_t* central,
                         int64_t* others);

// The pair fit of the last evaluation (run with residuals), as
// FitOnlyCentralRepPairsToWeights gives it for the same choices.
int FitWindowLanes(const WindowLanes& lanes, float* displacements);

} // namespace orbtexture

#endif
