#ifndef RGB9E5CODEC_H
#define RGB9E5CODEC_H

// Shared-exponent RGB (RGB9E5, 19): one little-endian word a pixel, red in
// bits 0-8, green 9-17, blue 18-26, the exponent (bias 15) in 27-31.
// Unpacked pixels are three 32-bit floats R, G, B.

#include <cstdint>

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Packs width * height pixels; returns width * height * 4. A null pointer
// asks for the count only.
ORBT_API unsigned int RGB9E5Compress(const void* source, void* destination, const unsigned int& width,
                                     const unsigned int& height);

// Unpacks width * height pixels (12 bytes each); returns width * height * 16.
// A null pointer asks for the count only.
ORBT_API unsigned int RGB9E5Decompress(const void* source, void* destination, const unsigned int& width,
                                       const unsigned int& height);

// One pixel: channels clamp to 0..65408.
ORBT_API uint32_t float3_to_rgb9e5(const float* rgb);
ORBT_API void rgb9e5_to_float3(uint32_t word, float* rgb);

} // namespace orbtexture

#endif
