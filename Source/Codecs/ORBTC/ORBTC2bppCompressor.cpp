#include "Codecs/ORBTC/ORBTC2bppCompressor.h"

#include <new>

#include "Codecs/ORBTC/ORBTCIICompressor.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

namespace
{

inline bool isStoredPlace(unsigned int x, unsigned int y) { return ((x ^ y) & 1u) == 0; }

} // namespace

template <class Base>
ORBTC2bppCompressorT<Base>::ORBTC2bppCompressorT(const PixelU8* source, unsigned int width, unsigned int height)
    : Base(source, width, height, 8, 4)
{
    const uint64_t blocks = uint64_t(blocksX) * blocksY;
    if (blocks > MaxBlocks)
        throw std::bad_array_new_length();
    BlockInfo initial = {};
    initial.modeWeights[0] = 4;
    initial.modeWeights[1] = 1;
    initial.modeWeights[2] = 4;
    initial.modeWeights[3] = 4;
    initial.mode = eORBTCMode1BPP;
    blockInfo.assign(size_t(blocks), initial);
}

template <class Base>
ORBTC2bppCompressorT<Base>::~ORBTC2bppCompressorT() = default;

template <class Base>
bool ORBTC2bppCompressorT<Base>::preprocess(bool /*wideSample*/)
{
    // 2bpp always samples the block alone.
    this->calculateColoursAB(false);
    interpolateColoursAB();
    calculateModulations();
    return true;
}

template <class Base>
uint32_t ORBTC2bppCompressorT<Base>::blockModulation(size_t block, uint32_t& modeFlag) const
{
    const BlockInfo& info = blockInfo[block];
    uint32_t modulation = 0;
    modeFlag = 0;
    if (info.mode == eORBTCMode1BPP)
    {
        for (unsigned int i = 0; i < 32; ++i)
            if (info.oneBitCodes[i] == 3)
                modulation |= 1u << i;
    }
    else if (info.mode <= eORBTCModeVerticalOnly)
    {
        modeFlag = 1;
        for (unsigned int y = 0; y < 4; ++y)
            for (unsigned int x = y & 1u; x < 8; x += 2)
                modulation |= uint32_t(info.twoBitCodes[y * 8 + x] & 3) << (8 * y + 2 * (x >> 1));
        // Bits 0 and 20 carry the sub-mode in place of code bits.
        if (info.mode == eORBTCModeInterpolated)
            modulation &= ~1u;
        else if (info.mode == eORBTCModeHorizontalOnly)
            modulation = (modulation & ~(1u << 20)) | 1u;
        else
            modulation |= (1u << 20) | 1u;
    }
    return modulation;
}

template <class Base>
void ORBTC2bppCompressorT<Base>::calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0,
                                                      unsigned int y1)
{
    PixelU8 preview[32];
    for (unsigned int by = y0; by < y1; ++by)
        for (unsigned int bx = x0; bx < x1; ++bx)
        {
            calculate1BPPModulation(bx, by);
            calculate2BPPInterpolatedModulation(bx, by);

            const PixelU8* source = &pixels[size_t(by) * 4 * width + size_t(bx) * 8];
            BlockInfo& info = blockInfo[size_t(by) * blocksX + bx];
            unsigned int error = 0;
            decompressORBTCBlock(bx, by, preview, eORBTCMode1BPP);
            this->calculateImageBlockErrorMeanSquared(source, preview, error);
            uint64_t best = uint64_t(error) * info.modeWeights[0];
            unsigned char mode = eORBTCMode1BPP;
            for (unsigned char k = 1; k < 4; ++k)
            {
                decompressORBTCBlock(bx, by, preview, eORBTCMode(k));
                this->calculateImageBlockErrorMeanSquared(source, preview, error);
                const uint64_t weighted = uint64_t(error) * info.modeWeights[k];
                if (best > weighted)
                {
                    best = weighted;
                    mode = k;
                }
            }
            info.mode = mode;
        }
}

template <class Base>
void ORBTC2bppCompressorT<Base>::calculateModulations()
{
    calculateModulations(0, blocksX, 0, blocksY);
}

template <class Base>
void ORBTC2bppCompressorT<Base>::optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1)
{
    unsigned char values[32];
    float weights[32];
    for (unsigned int by = y0; by < y1; ++by)
        for (unsigned int bx = x0; bx < x1; ++bx)
        {
            getModulationValues(bx, by, eORBTCMode(blockInfo[size_t(by) * blocksX + bx].mode), values);
            // Weights out of 8; the one-neighbour places of the one-axis
            // modes reach 9 and 10 and extrapolate past B, as in the preview.
            for (int i = 0; i < 32; ++i)
                weights[i] = float(values[i]) * 0.125f;
            this->refineBlockColours(bx, by, weights, 0.03125f, 128.0f);
        }
}

template <class Base>
void ORBTC2bppCompressorT<Base>::optimizeColoursAB()
{
    optimizeColoursAB(0, blocksX, 0, blocksY);
}

template <class Base>
void ORBTC2bppCompressorT<Base>::interpolateColoursAB()
{
    interpolateColoursAB(interpolateColours8x4_uint8, coloursA.data(), interpolatedA.data());
    interpolateColoursAB(interpolateColours8x4_uint8, coloursB.data(), interpolatedB.data());
}

template <class Base>
void ORBTC2bppCompressorT<Base>::decompressORBTCBlock(unsigned int blockX, unsigned int blockY, PixelU8* out,
                                                      eORBTCMode mode)
{
    unsigned char values[32];
    getModulationValues(blockX, blockY, mode, values);
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 8;
        for (unsigned int x = 0; x < 8; ++x)
        {
            const int weight = values[y * 8 + x];
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            PixelU8& o = out[y * 8 + x];
            o.red = static_cast<unsigned char>(((b.red - a.red) * weight + a.red * 8) >> 3);
            o.green = static_cast<unsigned char>(((b.green - a.green) * weight + a.green * 8) >> 3);
            o.blue = static_cast<unsigned char>(((b.blue - a.blue) * weight + a.blue * 8) >> 3);
            o.alpha = static_cast<unsigned char>(((b.alpha - a.alpha) * weight + a.alpha * 8) >> 3);
        }
    }
}

template <class Base>
void ORBTC2bppCompressorT<Base>::calculate1BPPModulation(unsigned int blockX, unsigned int blockY)
{
    BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 8;
        for (unsigned int x = 0; x < 8; ++x)
        {
            const PixelU8& p = pixels[row + x];
            const bool nearerA = this->squareColourDistance(p, interpolatedA[row + x]) <
                                 this->squareColourDistance(p, interpolatedB[row + x]);
            info.oneBitCodes[y * 8 + x] = nearerA ? 0 : 3;
        }
    }
}

template <class Base>
void ORBTC2bppCompressorT<Base>::calculate2BPPInterpolatedModulation(unsigned int blockX, unsigned int blockY)
{
    BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 8;
        for (unsigned int x = y & 1u; x < 8; x += 2)
        {
            const PixelU8& p = pixels[row + x];
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            info.twoBitCodes[y * 8 + x] = this->nearestStandardCode(p, a, b);
        }
    }
}

template <class Base>
void ORBTC2bppCompressorT<Base>::getModulationValues(unsigned int blockX, unsigned int blockY, eORBTCMode mode,
                                                     unsigned char* values)
{
    const BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    if (mode == eORBTCMode1BPP)
    {
        for (int i = 0; i < 32; ++i)
            values[i] = static_cast<unsigned char>(ORBTCStandardWeights[info.oneBitCodes[i] & 3]);
        return;
    }
    auto stored = [&info](int x, int y) { return ORBTCStandardWeights[info.twoBitCodes[y * 8 + x] & 3]; };
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
        {
            if (isStoredPlace(unsigned(x), unsigned(y)))
            {
                values[y * 8 + x] = static_cast<unsigned char>(stored(x, y));
                continue;
            }
            const int above = y > 0 ? stored(x, y - 1) : 0;
            const int below = y < 3 ? stored(x, y + 1) : 0;
            const int left = x > 0 ? stored(x - 1, y) : 0;
            const int right = x < 7 ? stored(x + 1, y) : 0;
            const int vertical = (y > 0) + (y < 3);
            const int horizontal = (x > 0) + (x < 7);
            int value;
            // Number 2 blends vertically and number 3 horizontally here, the
            // reverse of how the word's sub-mode is read; the mode decision
            // is tuned on this preview.
            if (mode == eORBTCModeInterpolated)
            {
                const int count = vertical + horizontal;
                value = (above + below + left + right + count / 2) / count;
            }
            else if (mode == eORBTCModeHorizontalOnly)
                value = (above + below + 2) / vertical;
            else if (mode == eORBTCModeVerticalOnly)
                value = (left + right + 1) / horizontal;
            else
                value = 255;
            values[y * 8 + x] = static_cast<unsigned char>(value);
        }
}

template class ORBTC2bppCompressorT<ORBTCCompressor>;
template class ORBTC2bppCompressorT<ORBTCIICompressor>;

} // namespace orbtexture
