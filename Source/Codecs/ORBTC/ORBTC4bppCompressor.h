#ifndef ORBTC4BPPCOMPRESSOR_H
#define ORBTC4BPPCOMPRESSOR_H

// Iterative compressor of 4bpp ORBTC (4 x 4 blocks, standard or punch-through).

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"

namespace orbtexture
{

// The 4bpp block logic on either word generation's base (ORBTCCompressor or
// ORBTCIICompressor); instantiated for both in its source file.
template <class Base>
class ORBTC4bppCompressorT : public Base
{
public:
    typedef typename Base::PixelU8 PixelU8;

    struct BlockInfo
    {
        unsigned char codes[2][16];   // per mode, index y * 4 + x
        unsigned char modeWeights[2]; // multipliers of each mode's error
        eORBTCMode mode;
    };

    // Most blocks the record array may hold.
    static const uint32_t MaxBlocks = 0x3300000u;

    ORBTC4bppCompressorT(const PixelU8* source, unsigned int width, unsigned int height);
    ~ORBTC4bppCompressorT() override;

    bool preprocess(bool wideSample) override;
    void calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override;
    void interpolateColoursAB() override;
    using Base::interpolateColoursAB;

    void calculateModulations();
    void optimizeColoursAB();

    // Preview of a block in the given mode, from the 8-bit upscaled colours.
    void decompressORBTCBlock(unsigned int blockX, unsigned int blockY, PixelU8* out, eORBTCMode mode);
    void calculateModulations_Standard(unsigned int blockX, unsigned int blockY);
    void calculateModulations_Punchthrough(unsigned int blockX, unsigned int blockY);
    // Upscaled colour of image pixel (x, y) from one colour per block.
    void getInterpolatedColour(const PixelU8* blockColours, unsigned int x, unsigned int y, PixelU8* result) const;

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
    // The 16 codes of the block's mode, code i at bit 2i; the flag is the mode.
    uint32_t blockModulation(size_t block, uint32_t& modeFlag) const override;
};

typedef ORBTC4bppCompressorT<ORBTCCompressor> ORBTC4bppCompressor;
extern template class ORBTC4bppCompressorT<ORBTCCompressor>;

} // namespace orbtexture

#endif
