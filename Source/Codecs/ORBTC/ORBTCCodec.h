#ifndef ORBTCCODEC_H
#define ORBTCCODEC_H

// Entry points of the ORBTC codecs of both generations.

#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// The longest side either generation's encoders take.
constexpr unsigned int kORBTCLargestSide = 4096;

// The quality that refines the optimiser's best words over the whole image.
constexpr unsigned int kORBTCRefineQuality = 9;

// Compresses width x height rgba8 pixels to ORBTC words (generation 0) or
// ORBTCII words (generation 1), 2 or 4 bits a pixel. Quality 0 and 1 use the
// block compressors, 2 to 8 the optimiser at its quality less 2, 9 (and above)
// quality 8's words refined by whole-image least squares of the block
// colours, with the modulation and modes chosen again; never a higher error
// than quality 8's. Returns the bytes written; a
// null input or output asks for the size only. 0 on failure: a side above
// 4096, a generation 0 size that is not whole blocks, or a compressor that is
// absent or fails.
ORBT_API unsigned int ORBTCCompress(const void* input, void* output, const unsigned int& width,
                                    const unsigned int& height, bool hasAlpha, bool twoBpp, unsigned int generation,
                                    unsigned int quality);

// The same with the threads, progress, cancel flag and debug stream of
// 'context'. A cancelled call returns 0 with the reason "cancelled".
ORBT_API unsigned int ORBTCCompress(const void* input, void* output, const unsigned int& width,
                                    const unsigned int& height, bool hasAlpha, bool twoBpp, unsigned int generation,
                                    unsigned int quality, const ORBTCallContext& context);

// Decodes to width x height rgba8 pixels with decoder 0 (ORBTC words) or the
// extended decoder (any other value: ORBTCII words in row order, one per block
// of the size rounded up to whole blocks). Returns width * 4 * height, or 0
// when the decoder fails; null pointers ask for the size.
ORBT_API unsigned int ORBTCDecompress(const void* input, void* output, const unsigned int& width,
                                      const unsigned int& height, bool twoBpp, const unsigned int& decoder);

} // namespace orbtexture

#endif
