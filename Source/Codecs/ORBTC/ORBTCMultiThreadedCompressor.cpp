#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"

#include <atomic>
#include <cmath>
#include <memory>
#include <vector>

#include <unistd.h>

#include "Codecs/ORBTC/ORBTC2bppCompressor.h"
#include "Codecs/ORBTC/ORBTC4bppCompressor.h"

namespace orbtexture
{

namespace
{

// The section cut, and so the output, depends on the processor count. Tests
// and tools that need output independent of the machine set this override.
std::atomic<unsigned int> processorCountOverride(0);

} // namespace

void ORBTCSetProcessorCountOverride(unsigned int count)
{
    processorCountOverride.store(count);
}

unsigned int ORBTCProcessorCountOverride()
{
    return processorCountOverride.load();
}

unsigned int ORBTCGetProcessorCount()
{
    const unsigned int forced = processorCountOverride.load();
    if (forced != 0)
        return forced;
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<unsigned int>(online) : 1u;
}

ORBTCMultiThreadedCompressor::ORBTCMultiThreadedCompressor(ORBTCCompressorCore* compressor, unsigned int threads)
    : ORBTCMultiThreadedCompressor(compressor, threads, true)
{
}

ORBTCMultiThreadedCompressor::ORBTCMultiThreadedCompressor(ORBTCCompressorCore* compressor, unsigned int threads,
                                                           bool countProcessors)
    : compressor(compressor), numberOfThreads(threads)
{
    if (countProcessors)
        calculateNumberOfThreads();
}

void ORBTCMultiThreadedCompressor::calculateNumberOfThreads()
{
    unsigned long long count = ORBTCGetProcessorCount();
    if (numberOfThreads < count)
        count = numberOfThreads;
    const unsigned long long blocks = (unsigned long long)compressor->blocksX * compressor->blocksY;
    if (blocks < count)
        count = blocks;
    numberOfThreads = static_cast<unsigned int>(count);
}

bool ORBTCMultiThreadedCompressor::preprocess(bool wideSample)
{
    return compressor->preprocess(wideSample);
}

unsigned int ORBTCMultiThreadedCompressor::getNumberOfIterations() const
{
    return compressor->iterations;
}

unsigned int ORBTCMultiThreadedCompressor::getModulationRecalculationInterval() const
{
    return compressor->modulationInterval;
}

void ORBTCMultiThreadedCompressor::optimizeColours(const ORBTCCompressorBlock& section)
{
    compressor->optimizeColoursAB(section.xStart, section.xEnd, section.yStart, section.yEnd);
}

void ORBTCMultiThreadedCompressor::calculateModulations(const ORBTCCompressorBlock& section)
{
    compressor->calculateModulations(section.xStart, section.xEnd, section.yStart, section.yEnd);
}

void ORBTCMultiThreadedCompressor::interpolateColoursAB()
{
    compressor->interpolateColoursAB();
}

void ORBTCMultiThreadedCompressor::getSections(std::vector<ORBTCCompressorBlock>& sections)
{
    sections.clear();
    const unsigned int threads = numberOfThreads;
    if (threads == 0)
        return;
    const unsigned int blocksX = compressor->blocksX, blocksY = compressor->blocksY;
    unsigned int sectionsX = static_cast<unsigned int>(std::sqrt(double(threads)));
    unsigned int sectionsY = threads / sectionsX;
    if (sectionsX > blocksX)
        sectionsX = 1;
    if (sectionsY > blocksY)
        sectionsY = 1;
    // Remainders of the division are left out of every section.
    const unsigned int sectionWidth = blocksX / sectionsX;
    const unsigned int sectionHeight = blocksY / sectionsY;
    sections.reserve(size_t(sectionsX) * sectionsY);
    for (unsigned int sy = 0; sy < sectionsY; ++sy)
        for (unsigned int sx = 0; sx < sectionsX; ++sx)
            sections.push_back(ORBTCCompressorBlock{this, sx * sectionWidth, (sx + 1) * sectionWidth,
                                                    sy * sectionHeight, (sy + 1) * sectionHeight});
}

bool ORBTCMultiThreadedCompressor::compress()
{
    const unsigned int passes = getNumberOfIterations();
    if (passes == 0)
        return true;
    std::vector<ORBTCCompressorBlock> sections;
    getSections(sections);
    for (unsigned int pass = 0; pass < passes; ++pass)
    {
        for (const ORBTCCompressorBlock& section : sections)
            calculateModulations(section);
        interpolateColoursAB();
        for (const ORBTCCompressorBlock& section : sections)
            optimizeColours(section);
    }
    return true;
}

bool ORBTCMultiThreadedCompressor::run(bool wideSample, int iterations)
{
    compressor->iterations = iterations > 0 ? static_cast<unsigned int>(iterations) : 0u;
    preprocess(wideSample);
    return compress();
}

namespace
{

template <class Compressor>
void runCompressor(void* input, void* output, unsigned int width, unsigned int height, bool wideSample,
                   int iterations)
{
    Compressor compressor(static_cast<const Pixel<unsigned char>*>(input), width, height);
    ORBTCMultiThreadedCompressor(&compressor, ORBTCMultiThreadedCompressor::EntryThreads).run(wideSample, iterations);
    compressor.getCompressedData(static_cast<ORBTCBlockData*>(output), true);
}

} // namespace

unsigned int orbtcCompress2bppMW(void* input, void* output, unsigned int width, unsigned int height,
                                 bool /*hasAlpha*/, bool wideSample, int iterations)
{
    runCompressor<ORBTC2bppCompressor>(input, output, width, height, wideSample, iterations);
    return (width * height) >> 2;
}

unsigned int orbtcCompress4bppMW(void* input, void* output, unsigned int width, unsigned int height,
                                 bool /*hasAlpha*/, bool wideSample, int iterations)
{
    runCompressor<ORBTC4bppCompressor>(input, output, width, height, wideSample, iterations);
    return (width * height) >> 1;
}

unsigned int orbtcCompressMW(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                             bool wideSample, bool twoBpp, int iterations)
{
    if (twoBpp)
        return orbtcCompress2bppMW(input, output, width, height, hasAlpha, wideSample, iterations);
    return orbtcCompress4bppMW(input, output, width, height, hasAlpha, wideSample, iterations);
}

} // namespace orbtexture
