#ifndef ORBTCCOMPRESSOR_H
#define ORBTCCOMPRESSOR_H

// Abstract bases of the iterative ORBTC block compressors. The core owns the
// source image, the per-block colours A and B (8 bits a channel throughout)
// and their bilinear upscales, and the pixel arithmetic the concrete classes
// share; ORBTCCompressor writes its blocks as generation 1 words.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Codecs/ORBTC/ORBTCBlockData.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

// Encoding of a block. 4bpp: standard or punch-through. 2bpp: one bit per
// pixel, or two-bit codes on half the pixels with the rest interpolated; the
// numbers 2 and 3 are the word's horizontal-only and vertical-only sub-modes.
enum eORBTCMode : unsigned int
{
    eORBTCModeStandard = 0,
    eORBTCModePunchthrough = 1,

    eORBTCMode1BPP = 0,
    eORBTCModeInterpolated = 1,
    eORBTCModeHorizontalOnly = 2,
    eORBTCModeVerticalOnly = 3,
};

// Tile callbacks of ORBTCCompressor::interpolateColoursAB: bilinear blend of
// the colours of four neighbouring blocks over a 4 x 4 or 8 x 4 tile whose
// top-left pixel sits on the centre of P.
void interpolateColours4x4_uint8(const Pixel<unsigned char>& P, const Pixel<unsigned char>& Q,
                                 const Pixel<unsigned char>& R, const Pixel<unsigned char>& S,
                                 Pixel<unsigned char>* tile);
void interpolateColours8x4_uint8(const Pixel<unsigned char>& P, const Pixel<unsigned char>& Q,
                                 const Pixel<unsigned char>& R, const Pixel<unsigned char>& S,
                                 Pixel<unsigned char>* tile);

// Sobel edge strength of an 8 x 4 tile, summed over its inner pixels.
void analyzeEdgesInBlock(Pixel<unsigned char>* tile, float* vertical, float* horizontal);

// (index + size) modulo size, for index down to -size.
unsigned int wrapBlockIndex(unsigned int size, int index);

// Everything but the word format: the compressors of both generations are
// the same block logic (ORBTC4bppCompressorT, ORBTC2bppCompressorT) on top of
// ORBTCCompressor or ORBTCIICompressor.
class ORBTCCompressorCore
{
public:
    typedef Pixel<unsigned char> PixelU8;
    // Fills a blockWidth x blockHeight tile from the colours of four blocks.
    typedef void (*TileInterpolator)(const PixelU8& P, const PixelU8& Q, const PixelU8& R, const PixelU8& S,
                                     PixelU8* tile);

    // Largest pixel array the class allocates.
    static const uint32_t MaxArrayItems = 0x1fc00000u;

    ORBTCCompressorCore(const PixelU8* source, unsigned int width, unsigned int height, unsigned char blockWidth,
                        unsigned char blockHeight);
    virtual ~ORBTCCompressorCore();

    ORBTCCompressorCore(const ORBTCCompressorCore&) = delete;
    ORBTCCompressorCore& operator=(const ORBTCCompressorCore&) = delete;

    virtual bool preprocess(bool wideSample) = 0;
    // The single-threaded passes over the whole grid: colours, upscale, and
    // every modulationInterval passes the modulations. Returns true.
    virtual bool compress();
    virtual void calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) = 0;
    virtual void optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) = 0;
    virtual void interpolateColoursAB() = 0;

    void calculateColoursAB(bool wideSample);
    void calculateColoursABForBlock(unsigned int blockX, unsigned int blockY, PixelU8& colourA, PixelU8& colourB,
                                    bool wideSample);
    // The most distant pair; A is the darker, B the lighter.
    void selectColoursAB_MaxDistance(const PixelU8* samples, unsigned int count, PixelU8& colourA,
                                     PixelU8& colourB) const;
    // Mean less and plus the standard deviation, per channel.
    void selectColoursAB_Statistical(const PixelU8* samples, unsigned int count, PixelU8& colourA,
                                     PixelU8& colourB) const;

    // Upscales one colour per block to one per pixel; block centres carry
    // the block's colour and the image wraps at its edges.
    void interpolateColoursAB(TileInterpolator callback, const PixelU8* blockColours, PixelU8* output);
    // Bilinear weight of pixel (x, y) inside a block; the final shift is 4
    // whatever the block size.
    void interpolateColours(const PixelU8& P, const PixelU8& Q, const PixelU8& R, const PixelU8& S, unsigned int x,
                            unsigned int y, PixelU8& result) const;

    // Sum (not mean) of squared channel differences over one block.
    // imageBlock has the image's stride, candidate the block's.
    void calculateImageBlockErrorMeanSquared(const PixelU8* imageBlock, const PixelU8* candidate,
                                             unsigned int& error) const;

    static unsigned int squareColourDistance(const PixelU8& a, const PixelU8& b);
    static unsigned int weightedColourDistance(const PixelU8& a, const PixelU8& b);
    static unsigned int colourLuminance(const PixelU8& colour);
    static float clamp(float value, float low, float high);
    static Pixel<float> clamp(const Pixel<float>& value, float low, float high);
    static unsigned int wrapIndex(unsigned int size, int index);
    // Index of the word of block (x, y): twiddled on power-of-two grids, row
    // order otherwise.
    static unsigned int getTwiddleOffset(unsigned int blocksX, unsigned int blocksY, unsigned int x, unsigned int y);

    void gaussianFilterImage3x3(const PixelU8* source, PixelU8* output, unsigned int imageWidth,
                                unsigned int imageHeight, bool copyBorders) const;
    void gaussianFilterImage5x5(const PixelU8* source, PixelU8* output, unsigned int imageWidth,
                                unsigned int imageHeight, bool copyBorders) const;

protected:
    // The modulation word of a block (index in row order) in its current
    // mode, and the mode's flag for bit 0 of the colour word.
    virtual uint32_t blockModulation(size_t block, uint32_t& modeFlag) const = 0;
    // The code 0 to 3 whose blend of a and b, at its standard weight out of 8,
    // is nearest to p over four channels; a tie goes to the lower code.
    static unsigned char nearestStandardCode(const PixelU8& p, const PixelU8& a, const PixelU8& b);
    // Closed-form least-squares update of one block's colours A and B against
    // the source, with per-pixel weights on B in block order; scale is one
    // over the pixel count. Blocks whose mean residual is below skipThreshold
    // are left alone.
    void refineBlockColours(unsigned int blockX, unsigned int blockY, const float* weights, float scale,
                            float skipThreshold);

public:
    unsigned int width;
    unsigned int height;
    unsigned int blocksX;
    unsigned int blocksY;
    unsigned char blockWidth;
    unsigned char blockHeight;
    std::vector<PixelU8> pixels;
    std::vector<PixelU8> coloursA;
    std::vector<PixelU8> coloursB;
    std::vector<PixelU8> interpolatedA;
    std::vector<PixelU8> interpolatedB;
    unsigned int iterations;
    unsigned int modulationInterval;
};

class ORBTCCompressor : public ORBTCCompressorCore
{
public:
    using ORBTCCompressorCore::ORBTCCompressorCore;

    // Writes one word per block; twiddle selects the format's word order
    // (getTwiddleOffset), otherwise the words are in row order. Returns true.
    virtual bool getCompressedData(ORBTCBlockData* output, bool twiddle);
};

} // namespace orbtexture

#endif
