#ifndef ORBTCIIMULTITHREADEDCOMPRESSOR_H
#define ORBTCIIMULTITHREADEDCOMPRESSOR_H

// Section driver of the ORBTCII class compressors, and their raw-memory entry.
// Unlike the ORBTC driver it keeps the section count it is given, so that the
// cut, and the output, is the same on every machine.

#include "Codecs/ORBTC/ORBTCIICompressor.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"

namespace orbtexture
{

class ORBTCIIMultiThreadedCompressor : public ORBTCMultiThreadedCompressor
{
public:
    // compressor is not owned; threads stays the section count.
    ORBTCIIMultiThreadedCompressor(ORBTCIICompressor* compressor, unsigned int threads);

    // Sets the count to 0. Nothing calls it.
    void calculateNumberOfThreads();
};

// Compress width x height rgba8 pixels into ORBTCII words in row order, cut
// into 8 x 8 sections (fewer where the block grid is narrower or lower than
// 8). Returns the byte count: width * height / 4 at 2bpp, / 2 at 4bpp.
// hasAlpha is unused.
unsigned int orbtc2Compress(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                            bool wideSample, bool twoBpp, int iterations);
unsigned int orbtc2Compress2bpp(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                                bool wideSample, int iterations);
unsigned int orbtc2Compress4bpp(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                                bool wideSample, int iterations);

} // namespace orbtexture

#endif
