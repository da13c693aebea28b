#ifndef ORBTPIXELKERNELS_H
#define ORBTPIXELKERNELS_H

// Fast forms of the pixel loop for the layout pairs people convert between:
// byte moves (rgba and bgra, rgb, a8, l8, l8a8), packed and wide channels by
// per-channel tables made of the encoders' own results, luminance, and 16-bit
// and float channels to bytes. Each kernel is checked against the encoders
// when it is made and refused if any pixel differs, so its output is that of
// the pixel loop. Kernels are made once per pair and shared.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ORBTPixelConversion.h"

namespace orbtexture
{

class CPixelKernel
{
public:
    virtual ~CPixelKernel() = default;
    // Converts 'count' pixels, packed, from 'in' to 'out'.
    virtual void Convert(const uint8_t* in, uint8_t* out, size_t count) const = 0;
    // What it is, for tests and benchmarks: "bytes", "tables", "luminance" or "wide".
    virtual const char* Kind() const = 0;
};

// The kernel converting pixels of the source layout, channel type and colour
// space to the target's, or null when the pair has none (the caller then runs
// the encoders).
std::shared_ptr<const CPixelKernel> FindPixelKernel(PixelType sourceType, EORBTVariableType sourceChannelType,
                                                    EORBTColourSpace sourceColourSpace, PixelType targetType,
                                                    EORBTVariableType targetChannelType,
                                                    EORBTColourSpace targetColourSpace);

// Byte moves on lanes of 32-bit pixels: each target byte k is base byte k or,
// when source[k] >= 0, source byte source[k]. Sources and targets of 1, 2 or 4
// bytes; the SIMD path in use does the bulk.
struct BytePlan
{
    unsigned sourceBytes, targetBytes;
    int source[4];
    uint32_t base;
};
void MoveBytes(const BytePlan& plan, const uint8_t* in, uint8_t* out, size_t count);

} // namespace orbtexture

#endif
