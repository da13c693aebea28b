#ifndef ORBTC4BPPCOMPRESSOR_H
#define ORBTC4BPPCOMPRESSOR_H

// Iterative compressor of 4bpp ORBTC (4 x 4 blocks, standard or punch-through).

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"

namespace orbtexture
{

class ORBTC4bppCompressor : public ORBTCCompressor
{
public:
    struct BlockInfo
    {
        unsigned char codes[2][16];   // per mode, index y * 4 + x
        unsigned char modeWeights[2]; // multipliers of each mode's error
        eORBTCMode mode;
    };

    // Most blocks the record array may hold.
    static const uint32_t MaxBlocks = 0x3300000u;

    ORBTC4bppCompressor(const PixelU8* source, unsigned int width, unsigned int height);
    ~ORBTC4bppCompressor() override;

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
    void calculateModulations_Standard(unsigned int blockX, unsigned int blockY);
    void calculateModulations_Punchthrough(unsigned int blockX, unsigned int blockY);
    // Upscaled colour of image pixel (x, y) from one colour per block.
    void getInterpolatedColour(const PixelU8* blockColours, unsigned int x, unsigned int y, PixelU8* result) const;

    std::vector<BlockInfo> blockInfo;
};

} // namespace orbtexture

#endif
