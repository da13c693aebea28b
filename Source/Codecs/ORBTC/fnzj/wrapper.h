#ifndef FNZJ_WRAPPER_H
#define FNZJ_WRAPPER_H

// The optimiser's shared records.

#include <cstdint>

namespace orbtexture
{

// The record shared read-only by all threads of one phase: set at the entry,
// the pass fields by each pass.
struct CompressParams
{
    uint8_t format = 0;
    uint8_t bitsPerPixel = 4;
    uint8_t blockWidth = 4;   // 8 for 2bpp
    uint8_t blockHeight = 4;
    uint8_t windowWidth = 9;  // 2 x blockWidth + 1
    uint8_t windowHeight = 9; // 2 x blockHeight + 1
    uint32_t isGeneration2 = 0;
    uint32_t blocksHigh = 0;
    uint32_t blocksWide = 0;
    uint32_t punchThrough = 0; // 1 only for 4bpp with the option set
    uint32_t numIterations = 0;
    uint32_t clampToBox = 0;
    uint32_t numCandidates = 0;
    uint32_t numVariants = 0;
    int64_t otherCandidateThreshold = 0;
    uint32_t forceAllRegions = 0;
    uint32_t hardModesAllowed = 0;
    uint32_t tryHardVariants = 0;
    uint32_t hardVariantStep = 0;
    uint32_t useIslands = 0;
};

} // namespace orbtexture

#endif
