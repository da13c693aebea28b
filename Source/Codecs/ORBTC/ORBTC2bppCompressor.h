#ifndef ORBTC2BPPCOMPRESSOR_H
#define ORBTC2BPPCOMPRESSOR_H

// Iterative compressor of 2bpp ORBTC (8 x 4 blocks, one-bit or interpolated
// two-bit modulation).

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"

namespace orbtexture
{

class ORBTC2bppCompressor : public ORBTCCompressor
{
public:
    struct BlockInfo
    {
        unsigned char oneBitCodes[32]; // 0 or 3, index y * 8 + x
        unsigned char twoBitCodes[32]; // 0 to 3 where (x ^ y) & 1 is 0, else 0
        unsigned char modeWeights[4];  // multipliers of each mode's error
        unsigned char mode;
    };

    // Most blocks the record array may hold.
    static const uint32_t MaxBlocks = 30932992u;

    ORBTC2bppCompressor(const PixelU8* source, unsigned int width, unsigned int height);
    ~ORBTC2bppCompressor() override;

    bool preprocess(bool wideSample) override;
    bool compress() override;
    bool getCompressedData(ORBTCBlockData* output, bool twiddle) override;
    void calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void interpolateColoursAB() override;
    using ORBTCCompressor::interpolateColoursAB;

    void calculateModulations();
    void optimizeColoursAB();

    // Preview of a block in the given mode, from the 8-bit upscaled colours.
    void decompressORBTCBlock(unsigned int blockX, unsigned int blockY, PixelU8* out, eORBTCMode mode);
    void calculate1BPPModulation(unsigned int blockX, unsigned int blockY);
    void calculate2BPPInterpolatedModulation(unsigned int blockX, unsigned int blockY);
    // 32 weights out of 8 for a block, from its own codes only. Places
    // without a code are filled from their neighbours inside the block.
    void getModulationValues(unsigned int blockX, unsigned int blockY, eORBTCMode mode, unsigned char* values);

    std::vector<BlockInfo> blockInfo;
};

} // namespace orbtexture

#endif
