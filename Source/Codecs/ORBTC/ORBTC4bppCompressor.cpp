#include "Codecs/ORBTC/ORBTC4bppCompressor.h"

#include <new>

#include "Codecs/ORBTC/ORBTCIICompressor.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

namespace
{

inline int sq(int v) { return v * v; }

inline int blend(int a, int b, int weight) { return (a * 8 + (b - a) * weight) / 8; }

} // namespace

template <class Base>
ORBTC4bppCompressorT<Base>::ORBTC4bppCompressorT(const PixelU8* source, unsigned int width, unsigned int height)
    : Base(source, width, height, 4, 4)
{
    const uint64_t blocks = uint64_t(blocksX) * blocksY;
    if (blocks > MaxBlocks)
        throw std::bad_array_new_length();
    BlockInfo initial = {};
    initial.modeWeights[0] = 1;
    initial.modeWeights[1] = 1;
    initial.mode = eORBTCModeStandard;
    blockInfo.assign(size_t(blocks), initial);
}

template <class Base>
ORBTC4bppCompressorT<Base>::~ORBTC4bppCompressorT() = default;

template <class Base>
bool ORBTC4bppCompressorT<Base>::preprocess(bool wideSample)
{
    this->calculateColoursAB(wideSample);
    interpolateColoursAB();
    calculateModulations();
    return true;
}

template <class Base>
uint32_t ORBTC4bppCompressorT<Base>::blockModulation(size_t block, uint32_t& modeFlag) const
{
    const BlockInfo& info = blockInfo[block];
    const unsigned char* codes = info.codes[info.mode & 1];
    uint32_t modulation = 0;
    for (unsigned int i = 0; i < 16; ++i)
        modulation |= uint32_t(codes[i] & 3) << (2 * i);
    modeFlag = uint32_t(info.mode) & 1u;
    return modulation;
}

template <class Base>
void ORBTC4bppCompressorT<Base>::calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0,
                                                      unsigned int y1)
{
    PixelU8 preview[16];
    for (unsigned int by = y0; by < y1; ++by)
        for (unsigned int bx = x0; bx < x1; ++bx)
        {
            calculateModulations_Standard(bx, by);
            calculateModulations_Punchthrough(bx, by);

            const PixelU8* source = &pixels[size_t(by) * 4 * width + size_t(bx) * 4];
            unsigned int error0 = 0, error1 = 0;
            decompressORBTCBlock(bx, by, preview, eORBTCModeStandard);
            this->calculateImageBlockErrorMeanSquared(source, preview, error0);
            decompressORBTCBlock(bx, by, preview, eORBTCModePunchthrough);
            this->calculateImageBlockErrorMeanSquared(source, preview, error1);

            BlockInfo& info = blockInfo[size_t(by) * blocksX + bx];
            info.mode = uint64_t(error0) * info.modeWeights[0] > uint64_t(error1) * info.modeWeights[1]
                            ? eORBTCModePunchthrough
                            : eORBTCModeStandard;
        }
}

template <class Base>
void ORBTC4bppCompressorT<Base>::calculateModulations()
{
    calculateModulations(0, blocksX, 0, blocksY);
}

template <class Base>
void ORBTC4bppCompressorT<Base>::optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1)
{
    float weights[16];
    for (unsigned int by = y0; by < y1; ++by)
        for (unsigned int bx = x0; bx < x1; ++bx)
        {
            const BlockInfo& info = blockInfo[size_t(by) * blocksX + bx];
            const unsigned char* codes = info.codes[info.mode & 1];
            // Both modes weigh a code by its standard weight.
            for (int i = 0; i < 16; ++i)
                weights[i] = float(ORBTCStandardWeights[codes[i] & 3]) * 0.125f;
            this->refineBlockColours(bx, by, weights, 0.0625f, 32.0f);
        }
}

template <class Base>
void ORBTC4bppCompressorT<Base>::optimizeColoursAB()
{
    optimizeColoursAB(0, blocksX, 0, blocksY);
}

template <class Base>
void ORBTC4bppCompressorT<Base>::interpolateColoursAB()
{
    interpolateColoursAB(interpolateColours4x4_uint8, coloursA.data(), interpolatedA.data());
    interpolateColoursAB(interpolateColours4x4_uint8, coloursB.data(), interpolatedB.data());
}

template <class Base>
void ORBTC4bppCompressorT<Base>::decompressORBTCBlock(unsigned int blockX, unsigned int blockY, PixelU8* out,
                                                      eORBTCMode mode)
{
    const BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 4;
        for (unsigned int x = 0; x < 4; ++x)
        {
            PixelU8& o = out[y * 4 + x];
            if (mode != eORBTCModeStandard && mode != eORBTCModePunchthrough)
            {
                o = PixelU8{255, 0, 0, 255};
                continue;
            }
            // Punch-through pixels keep their blended alpha here: the mode
            // decision is made on this preview, not on the decoder's output.
            const unsigned char code = info.codes[mode][y * 4 + x] & 3;
            const int weight = mode == eORBTCModeStandard ? ORBTCStandardWeights[code]
                                                          : ORBTCBlendWeight(ORBTCPunchthroughWeights[code]);
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            o.red = static_cast<unsigned char>(((b.red - a.red) * weight + a.red * 8) >> 3);
            o.green = static_cast<unsigned char>(((b.green - a.green) * weight + a.green * 8) >> 3);
            o.blue = static_cast<unsigned char>(((b.blue - a.blue) * weight + a.blue * 8) >> 3);
            o.alpha = static_cast<unsigned char>(((b.alpha - a.alpha) * weight + a.alpha * 8) >> 3);
        }
    }
}

template <class Base>
void ORBTC4bppCompressorT<Base>::calculateModulations_Standard(unsigned int blockX, unsigned int blockY)
{
    BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 4;
        for (unsigned int x = 0; x < 4; ++x)
        {
            const PixelU8& p = pixels[row + x];
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            info.codes[eORBTCModeStandard][y * 4 + x] = this->nearestStandardCode(p, a, b);
        }
    }
}

template <class Base>
void ORBTC4bppCompressorT<Base>::calculateModulations_Punchthrough(unsigned int blockX, unsigned int blockY)
{
    // Codes 1 and 2 blend at the same weight; code 2 also drops alpha.
    const int half = ORBTCPunchthroughWeights[1];
    BlockInfo& info = blockInfo[size_t(blockY) * blocksX + blockX];
    for (unsigned int y = 0; y < 4; ++y)
    {
        const size_t row = (size_t(blockY) * 4 + y) * width + size_t(blockX) * 4;
        for (unsigned int x = 0; x < 4; ++x)
        {
            const PixelU8& p = pixels[row + x];
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            const int halfColour = sq(blend(a.red, b.red, half) - p.red) + sq(blend(a.green, b.green, half) - p.green) +
                                   sq(blend(a.blue, b.blue, half) - p.blue);
            const int errors[4] = {
                int(this->squareColourDistance(a, p)),
                halfColour + sq(blend(a.alpha, b.alpha, half) - p.alpha),
                halfColour + sq(int(p.alpha)),
                int(this->squareColourDistance(b, p)),
            };
            unsigned char bestCode = 0;
            for (unsigned char code = 1; code < 4; ++code)
                if (errors[code] < errors[bestCode])
                    bestCode = code;
            info.codes[eORBTCModePunchthrough][y * 4 + x] = bestCode;
        }
    }
}

template <class Base>
void ORBTC4bppCompressorT<Base>::getInterpolatedColour(const PixelU8* blockColours, unsigned int x, unsigned int y,
                                                       PixelU8* result) const
{
    const int xb = int((x + 2) >> 2), fx = int((x + 2) & 3);
    const int yb = int((y + 2) >> 2), fy = int((y + 2) & 3);
    const unsigned int x0 = wrapBlockIndex(blocksX, xb - 1), x1 = wrapBlockIndex(blocksX, xb);
    const unsigned int y0 = wrapBlockIndex(blocksY, yb - 1), y1 = wrapBlockIndex(blocksY, yb);
    const PixelU8& P = blockColours[y0 * blocksX + x0];
    const PixelU8& Q = blockColours[y0 * blocksX + x1];
    const PixelU8& R = blockColours[y1 * blocksX + x0];
    const PixelU8& S = blockColours[y1 * blocksX + x1];
    auto channel = [fx, fy](int p, int q, int r, int s) {
        const int top = 4 * p + fx * (q - p);
        const int bottom = 4 * r + fx * (s - r);
        return static_cast<unsigned char>((4 * top + fy * (bottom - top)) >> 4);
    };
    result->red = channel(P.red, Q.red, R.red, S.red);
    result->green = channel(P.green, Q.green, R.green, S.green);
    result->blue = channel(P.blue, Q.blue, R.blue, S.blue);
    result->alpha = channel(P.alpha, Q.alpha, R.alpha, S.alpha);
}

template class ORBTC4bppCompressorT<ORBTCCompressor>;
template class ORBTC4bppCompressorT<ORBTCIICompressor>;

} // namespace orbtexture
