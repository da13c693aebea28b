#ifndef ORBTSHAREDEXPONENTPATHS_H
#define ORBTSHAREDEXPONENTPATHS_H

// Transcode between rgba8 and RGB9E5 in one step, without the float
// intermediate: tables of what the two steps give, built once.

#include "ORBTexture.h"

namespace orbtexture
{

// Converts 'texture' when the pair is rgba8 (unsigned normalised bytes) to
// RGB9E5 or back in the same colour space, with no progress to report; the
// result is what decoding or encoding through the intermediate gives. False,
// with the texture untouched, for any other call.
bool TranscodeSharedExponentDirectly(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
                                     EORBTColourSpace colourSpace);

// The tables' rows, for tests: RGB9E5 words of rgba8 pixels and back.
void EncodeSharedExponent(const uint8_t* rgba, uint8_t* words, size_t pixels);
void DecodeSharedExponent(const uint8_t* words, uint8_t* rgba, size_t pixels);

} // namespace orbtexture

#endif
