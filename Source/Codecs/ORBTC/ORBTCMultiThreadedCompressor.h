#ifndef ORBTCMULTITHREADEDCOMPRESSOR_H
#define ORBTCMULTITHREADEDCOMPRESSOR_H

// Section driver of the ORBTC class compressors, and their raw-memory entry.
// The block grid is cut into rectangular sections by the processor count; the
// sections of each phase are independent of one another and run in sequence
// on the caller's thread.

#include <vector>

#include "Codecs/ORBTC/ORBTCCompressor.h"

namespace orbtexture
{

class ORBTCMultiThreadedCompressor;

// One rectangle of blocks, end bounds excluded.
struct ORBTCCompressorBlock
{
    ORBTCMultiThreadedCompressor* owner;
    unsigned int xStart;
    unsigned int xEnd;
    unsigned int yStart;
    unsigned int yEnd;
};

class ORBTCMultiThreadedCompressor
{
public:
    // The section count the raw-memory entries ask for.
    static const unsigned int EntryThreads = 64;

    // compressor is not owned.
    ORBTCMultiThreadedCompressor(ORBTCCompressorCore* compressor, unsigned int threads);

    // Least of the online processors, the requested number and the block count.
    void calculateNumberOfThreads();
    bool preprocess(bool wideSample);
    unsigned int getNumberOfIterations() const;
    unsigned int getModulationRecalculationInterval() const;
    void optimizeColours(const ORBTCCompressorBlock& section);
    void calculateModulations(const ORBTCCompressorBlock& section);
    void interpolateColoursAB();
    // Runs the compressor's iterations: every pass recalculates modulations
    // per section, upscales once, then optimises colours per section.
    bool compress();
    // Sets the compressor's pass count (negative counts as 0), preprocesses
    // and compresses. Returns true.
    bool run(bool wideSample, int iterations);

    // The sections compress() works on. Blocks that don't fit the even cut
    // lie in no section and keep their preprocessed colours and codes.
    void getSections(std::vector<ORBTCCompressorBlock>& sections);

    ORBTCCompressorCore* compressor;
    unsigned int numberOfThreads;

protected:
    // Keeps threads as the section count, without calculateNumberOfThreads.
    ORBTCMultiThreadedCompressor(ORBTCCompressorCore* compressor, unsigned int threads, bool countProcessors);
};

// Compress width x height rgba8 pixels into ORBTC words, twiddled when the
// block grid is a power of two on both sides, else in row order. Returns the
// byte count: width * height / 4 at 2bpp, / 2 at 4bpp. hasAlpha is unused.
unsigned int orbtcCompressMW(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                             bool wideSample, bool twoBpp, int iterations);
unsigned int orbtcCompress2bppMW(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                                 bool wideSample, int iterations);
unsigned int orbtcCompress4bppMW(void* input, void* output, unsigned int width, unsigned int height, bool hasAlpha,
                                 bool wideSample, int iterations);

// Replaces the online processor count the section cut is based on; 0 goes
// back to asking the system.
void ORBTCSetProcessorCountOverride(unsigned int count);
// The override, or 0 when there is none.
unsigned int ORBTCProcessorCountOverride();
// The processor count the section cut uses (never 0).
unsigned int ORBTCGetProcessorCount();

} // namespace orbtexture

#endif
