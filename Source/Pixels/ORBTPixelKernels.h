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

// Integer arithmetic on lanes of 32-bit pixels, for packed unsigned
// normalised channels and bytes: each field takes v = (x >> from) & mask of
// the source pixel x, y = v * a + b (below 65536), q = (y * m) >> (16 + shift)
// when m is not 0, else y >> shift, and ORs q << to into the base. Sources
// and targets of 1, 2 or 4 bytes.
struct LaneField
{
    unsigned from;
    uint32_t mask, a, b, m;
    unsigned shift, to;
};
struct LanePlan
{
    unsigned sourceBytes, targetBytes, count;
    LaneField fields[4];
    uint32_t base;
};
void RunLanes(const LanePlan& plan, const uint8_t* in, uint8_t* out, size_t count);

// Luminance of 4-byte pixels to l8 (1 byte) or l8 with the source's alpha
// byte (2 bytes): y = sum of weight[k] * byte k + 2^22 in 32 bits, the result
// y >> 23, unless y's low 23 bits lie within 'guard' of a rounding edge: then
// exact(pixel) decides.
struct LuminancePlan
{
    unsigned targetBytes, alpha;
    int32_t weights[4];
    uint32_t guard;
    uint8_t (*exact)(const void* context, const uint8_t* pixel);
    const void* context;
};
void RunLuminance(const LuminancePlan& plan, const uint8_t* in, uint8_t* out, size_t count);

// Channel by channel between element types, the channels in the same order
// and colour space: bytes to 16 bits (v * 257) and back (v / 257 rounded),
// bytes to floats (v / 255) and floats to bytes (the low byte of v * 255
// rounded, as the encoder stores it).
enum EElementStep
{
    eBytesToShorts,
    eShortsToBytes,
    eBytesToFloats,
    eFloatsToBytes,
};
void ConvertElements(EElementStep step, const uint8_t* in, uint8_t* out, size_t elements);

// rgba8 pixels to the packed unsigned floats r11g11b10 (red in the top 11
// bits, blue in the low 10; alpha dropped), or back with alpha 255.
void PackFloats1110(const uint8_t* in, uint8_t* out, size_t pixels);
void UnpackFloats1110(const uint8_t* in, uint8_t* out, size_t pixels);

// The portable step of one element, the reference of every path.
uint32_t ElementStep(EElementStep step, uint32_t value);

} // namespace orbtexture

#endif
