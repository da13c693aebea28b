#include "Codecs/ORBTC/ORBTCIIMultiThreadedCompressor.h"

#include "Codecs/ORBTC/ORBTCII2bppCompressor.h"
#include "Codecs/ORBTC/ORBTCII4bppCompressor.h"

namespace orbtexture
{

ORBTCIIMultiThreadedCompressor::ORBTCIIMultiThreadedCompressor(ORBTCIICompressor* compressor, unsigned int threads)
    : ORBTCMultiThreadedCompressor(compressor, threads, false)
{
}

void ORBTCIIMultiThreadedCompressor::calculateNumberOfThreads()
{
    numberOfThreads = 0;
}

namespace
{

template <class Compressor>
void runCompressor(void* input, void* output, unsigned int width, unsigned int height, bool wideSample, int iterations)
{
    Compressor compressor(static_cast<const Pixel<unsigned char>*>(input), width, height);
    ORBTCIIMultiThreadedCompressor(&compressor, ORBTCMultiThreadedCompressor::EntryThreads).run(wideSample, iterations);
    compressor.getCompressedData(static_cast<ORBTCIIBlockData*>(output));
}

} // namespace

unsigned int orbtc2Compress2bpp(void* input, void* output, unsigned int width, unsigned int height, bool /*hasAlpha*/,
                                bool wideSample, int iterations)
{
    runCompressor<ORBTCII2bppCompressor>(input, output, width, height, wideSample, iterations);
    return (width * height) >> 2;
}

unsigned int orbtc2Compress4bpp(void* input, void* output, unsigned int width, unsigned int height, bool /*hasAlpha*/,
                                bool wideSample, int iterations)
{
    runCompressor<ORBTCII4bppCompressor>(input, output, width, height, wideSample, iterations);
    return (width * height) >> 1;
}

unsigned int orbtc2Compress(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                            bool wideSample, bool twoBpp, int iterations)
{
    if (twoBpp)
        return orbtc2Compress2bpp(input, output, width, height, hasAlpha, wideSample, iterations);
    return orbtc2Compress4bpp(input, output, width, height, hasAlpha, wideSample, iterations);
}

} // namespace orbtexture
