#ifndef ORBTCIICOMPRESSOR_H
#define ORBTCIICOMPRESSOR_H

// Abstract base of the iterative ORBTCII block compressors: the ORBTC block
// logic with a hard transition flag per block and words in row order.

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"
#include "Codecs/ORBTC/ORBTCIIBlockData.h"

namespace orbtexture
{

// ORBTCII blocks take the encodings of ORBTC blocks.
typedef eORBTCMode eORBTCIIMode;

// The tile callbacks and helpers of this family are those of ORBTC.
constexpr ORBTCCompressorCore::TileInterpolator interpolateColours24x4_uint8 = interpolateColours4x4_uint8;
constexpr ORBTCCompressorCore::TileInterpolator interpolateColours28x4_uint8 = interpolateColours8x4_uint8;
constexpr unsigned int (*wrapBlock2Index)(unsigned int, int) = wrapBlockIndex;
constexpr void (*analyzeEdgesInBlock2)(Pixel<unsigned char>*, float*, float*) = analyzeEdgesInBlock;

class ORBTCIICompressor : public ORBTCCompressorCore
{
public:
    ORBTCIICompressor(const PixelU8* source, unsigned int width, unsigned int height, unsigned char blockWidth,
                      unsigned char blockHeight);

    // The colours of ORBTCCompressorCore::calculateColoursAB, then the hard
    // flags: a block is hard when both its colours jump against its right or
    // its lower neighbour (wrapping) by more than a limit, 4095 or a quarter
    // of the squared distance between its own A and B, whichever is larger.
    // Hides the core's, so that the block logic on this base calls it.
    void calculateColoursAB(bool wideSample);

    // Writes one word per block in row order, bit 15 the block's hard flag.
    // Returns true.
    virtual bool getCompressedData(ORBTCIIBlockData* output);

    std::vector<unsigned char> hardFlags; // 0 or 1 per block, row order
};

} // namespace orbtexture

#endif
