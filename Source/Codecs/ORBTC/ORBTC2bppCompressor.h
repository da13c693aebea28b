#ifndef ORBTC2BPPCOMPRESSOR_H
#define ORBTC2BPPCOMPRESSOR_H

// Iterative compressor of 2bpp ORBTC (8 x 4 blocks, one-bit or interpolated
// two-bit modulation).

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"

namespace orbtexture
{

// The 2bpp block logic on either word generation's base (ORBTCCompressor or
// ORBTCIICompressor); instantiated for both in its source file.
template <class Base>
class ORBTC2bppCompressorT : public Base
{
public:
    typedef typename Base::PixelU8 PixelU8;

    struct BlockInfo
    {
        unsigned char oneBitCodes[32]; // 0 or 3, index y * 8 + x
        unsigned char twoBitCodes[32]; // 0 to 3 where (x ^ y) & 1 is 0, else 0
        unsigned char modeWeights[4];  // multipliers of each mode's error
        unsigned char mode;
    };

    // Most blocks the record array may hold.
    static const uint32_t MaxBlocks = 30932992u;

    ORBTC2bppCompressorT(const PixelU8* source, unsigned int width, unsigned int height);
    ~ORBTC2bppCompressorT() override;

    bool preprocess(bool wideSample) override;
    void calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void interpolateColoursAB() override;
    using Base::interpolateColoursAB;

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

    // The base's members, named without this->.
    using Base::blocksX;
    using Base::blocksY;
    using Base::coloursA;
    using Base::coloursB;
    using Base::interpolatedA;
    using Base::interpolatedB;
    using Base::pixels;
    using Base::width;

protected:
    // Mode 0: one bit a pixel, flag 0. Modes 1 to 3: the sixteen stored codes
    // with the sub-mode in bits 0 and 20, flag 1. Any other mode: 0, flag 0.
    uint32_t blockModulation(size_t block, uint32_t& modeFlag) const override;
};

typedef ORBTC2bppCompressorT<ORBTCCompressor> ORBTC2bppCompressor;
extern template class ORBTC2bppCompressorT<ORBTCCompressor>;

} // namespace orbtexture

#endif
