#include "Codecs/ORBTC/ORBTCIICompressor.h"

#include <algorithm>

namespace orbtexture
{

ORBTCIICompressor::ORBTCIICompressor(const PixelU8* source, unsigned int width, unsigned int height,
                                     unsigned char blockWidth, unsigned char blockHeight)
    : ORBTCCompressorCore(source, width, height, blockWidth, blockHeight), hardFlags(coloursA.size(), 0)
{
}

void ORBTCIICompressor::calculateColoursAB(bool wideSample)
{
    ORBTCCompressorCore::calculateColoursAB(wideSample);
    for (unsigned int y = 0; y < blocksY; ++y)
    {
        const unsigned int yd = wrapIndex(blocksY, int(y) + 1);
        for (unsigned int x = 0; x < blocksX; ++x)
        {
            const unsigned int xr = wrapIndex(blocksX, int(x) + 1);
            const size_t block = size_t(y) * blocksX + x;
            const size_t right = size_t(y) * blocksX + xr;
            const size_t down = size_t(yd) * blocksX + x;
            const PixelU8& a = coloursA[block];
            const PixelU8& b = coloursB[block];
            const unsigned int own = squareColourDistance(a, b);
            const unsigned int jumpRight =
                std::min(squareColourDistance(b, coloursB[right]), squareColourDistance(a, coloursA[right]));
            const unsigned int jumpDown =
                std::min(squareColourDistance(b, coloursB[down]), squareColourDistance(a, coloursA[down]));
            const unsigned int limit = own < 16384 ? 4095 : own >> 2;
            hardFlags[block] = limit < std::max(jumpRight, jumpDown) ? 1 : 0;
        }
    }
}

bool ORBTCIICompressor::getCompressedData(ORBTCIIBlockData* output)
{
    for (size_t block = 0; block < hardFlags.size(); ++block)
    {
        ORBTCIIBlockData& word = output[block];
        uint32_t modeFlag = 0;
        word.modulationData = blockModulation(block, modeFlag);
        word.colourData = modeFlag | (hardFlags[block] ? ORBTCIIBlockData::HardFlag : 0u);
        word.setColours(coloursA[block], coloursB[block]);
    }
    return true;
}

} // namespace orbtexture
