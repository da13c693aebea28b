#ifndef ORBTCREFINE_H
#define ORBTCREFINE_H

// Internal: quality 9 of the ORBTC codecs, a whole-image refinement of the
// optimiser's words. With the modulation fixed, every decoded colour is a
// fixed linear blend of colours A and B of the blocks around it, so the
// colours of all blocks are solved together by least squares, quantised and
// kept block by block where the decoded error falls; then the modulation, and
// on the blocks of highest error the word's modes (ORBTCII hard flags and
// local palettes, 2bpp interpolation), are chosen again. Rounds repeat while
// they gain. Decisions never depend on the thread count.

#include <cstdint>

namespace orbtexture
{

struct ORBTCRefineSettings
{
    unsigned rounds = 6;       // at most, at 2bpp
    unsigned rounds4bpp = 1;   // at most, at 4bpp
    unsigned polishSweeps = 1; // over the rounded colours before they are weighed against the present ones
    double leastGain = 0.0005; // stop when a round lowers the error by less than this share
    unsigned solverIterations = 16;
    double modeShare = 0.125; // share of blocks whose modes are tried again each round
};

// Refines the words of a width x height padded image (whole blocks) in place:
// ORBTC words (generation 0, their own order) or ORBTCII words (1, row
// order). Only the top-left realWidth x realHeight pixels count. The result's
// error is never above the input's in the weighted measure nor in plain
// squared RGB error. Honours the current call context's threads, progress
// (reported from 'progressFrom' to 1) and cancel flag; false when cancelled
// (the words are then unchanged).
bool ORBTCRefineWords(const uint8_t* source, unsigned width, unsigned height, unsigned realWidth, unsigned realHeight,
                      bool twoBpp, unsigned generation, uint8_t* words, float progressFrom,
                      const ORBTCRefineSettings& settings = ORBTCRefineSettings());

} // namespace orbtexture

#endif
