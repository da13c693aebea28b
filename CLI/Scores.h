#ifndef ORBTEX_CLI_SCORES_H
#define ORBTEX_CLI_SCORES_H

// What a comparison of a result with its original measures: the channels the
// result's format holds, and colour only where the original is visible in it.

#include <cstddef>

#include "ORBTexture.h"

namespace cli
{

// What a format keeps of an RGBA picture.
enum class Holds
{
    Colour,       // red, green and blue; alpha is stored opaque
    ColourAlpha,  // all four channels
    ColourAlpha1, // colour and a 1-bit alpha: compared against the alpha thresholded at half
    Red,          // red only
    RedGreen      // red and green only
};

Holds WhatItHolds(orbtexture::PixelType format);

// Whether colour under a transparent original is left out: formats that hold
// alpha show nothing there.
inline bool MasksColour(Holds holds) { return holds == Holds::ColourAlpha || holds == Holds::ColourAlpha1; }

// Whether an original pixel of 'alpha' (a fraction of the channel's range) is
// visible in a result that holds 'holds': alpha above 0, or at least a half
// for 1-bit alpha.
inline bool Visible(double alpha, Holds holds) { return holds == Holds::ColourAlpha1 ? alpha >= 0.5 : alpha > 0.0; }

// The pixels of a surface of two textures of one standard type that are
// visible (by a's alpha), as two textures of one row each; 'kept' counts
// them (0 gives two empty textures).
void VisiblePixels(const orbtexture::CORBTexture& a, const orbtexture::CORBTexture& b, unsigned mip, unsigned member,
                   unsigned face, Holds holds, orbtexture::CORBTexture& visibleA, orbtexture::CORBTexture& visibleB,
                   size_t& kept);

} // namespace cli

#endif
