#ifndef ORBTEXTURESIZERULES_H
#define ORBTEXTURESIZERULES_H

// Internal size arithmetic shared by the header, the texture and the loaders.

#include <cstdint>

#include "ORBTextureInfo.h"

namespace orbtexture
{

// Dimension of a level: value >> mip, at least 1 (any shift of 32 or more gives 1).
inline uint32_t LevelDimension(uint32_t value, uint32_t mip)
{
    const uint32_t shifted = mip < 32 ? value >> mip : 0;
    return shifted ? shifted : 1;
}

// Bits of one surface at a level, rounded up to the format's minimum block.
// Arithmetic wraps in 64 bits like the public size function.
uint64_t SurfaceBits(const ORBTextureHeaderV3& header, uint32_t mip);

// Sum of SurfaceBits over levels 0 to count - 1. Levels from 32 on are all the
// same size, so the cost does not grow with count.
uint64_t SumSurfaceBits(const ORBTextureHeaderV3& header, uint32_t count);

// Total bytes over every level, member and face, computed without wrapping.
// Returns false when the total or any per-surface offset does not fit in 32
// bits, so a hostile header is refused before anything is allocated.
bool CheckedTotalDataSize(const ORBTextureHeaderV3& header, uint64_t& totalBytes);

} // namespace orbtexture

#endif
