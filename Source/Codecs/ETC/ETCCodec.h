#ifndef ETCCODEC_H
#define ETCCODEC_H

// Entry points of the ETC family: ETC1 (6), ETC2 RGB (22), RGBA (23), RGB
// with 1-bit alpha (24), EAC R11 (25) and RG11 (26). Blocks are 4 x 4 pixels
// in row order, colour words stored big-endian.

#include <cstdint>

#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Compresses width x height pixels: R, G, B bytes for 6 and 22; R, G, B, A
// for 23 and 24; one 16-bit value a pixel for 25, two for 26. Quality 0 fast,
// 1 fast and perceptual, 2 and 3 exhaustive (4 and 5 stand for 2 and 3).
// Returns the compressed size; null pointers or a zero size ask for it only.
// 0 for a quality above 5, isSigned with a format other than 25 or 26 at a
// quality below 4 (4 and 5 skip that test), a format outside the family, or a
// quality this build has no compressor for.
ORBT_API unsigned int ETCCompress(const void* input, void* output, const unsigned int& width,
                                  const unsigned int& height, int quality, unsigned int format, bool isSigned);

// The same with the threads, progress and cancel flag of 'context'. A
// cancelled call returns 0 with the reason "cancelled"; the output is then
// partly written.
ORBT_API unsigned int ETCCompress(const void* input, void* output, const unsigned int& width,
                                  const unsigned int& height, int quality, unsigned int format, bool isSigned,
                                  const ORBTCallContext& context);

// ETCCompress spreads rows of blocks over this many threads (at most one a
// row); the output does not depend on it. The default is the hardware
// concurrency; an override of 0 goes back to it.
ORBT_API void ETCSetThreadCountOverride(unsigned int count);
ORBT_API unsigned int ETCThreadCount();

// Decodes to width x height pixels in the layouts above (no padding).
// Returns width * height * channels (bytes for 6, 22, 23, 24; two-byte
// values count as 2 and 4 for 25 and 26), or 0 for an unknown format.
// Surfaces above a megapixel are split over the current call context's
// threads (CScopedCallContext); the bytes do not depend on their count. The
// same holds for ORBTDecompressETC.
ORBT_API uint64_t ETCDecompress(const void* input, void* output, const unsigned int& width,
                                const unsigned int& height, unsigned int format, bool isSigned);

// ETC1-only decoder to width x height rgba8 pixels; returns the work size
// (each side at least 4) divided by 2. 'mode' has no effect.
ORBT_API int ORBTDecompressETC(const void* input, const unsigned int& width, const unsigned int& height,
                               void* output, const int& mode);

} // namespace orbtexture

#endif
