#ifndef ORBTEXTURESURFACEWALK_H
#define ORBTEXTURESURFACEWALK_H

// Internal: the one walk over a texture's surfaces.

#include <cstdint>
#include <type_traits>

#include "ORBTextureHeader.h"

namespace orbtexture
{

// Calls visit(mip, member, face) for every surface: array members outermost,
// then faces, then MIP levels. A visitor that returns bool makes the walk
// return the result of the last visit, false when there was none.
template <typename Visitor>
auto ForEachSurface(const CORBTextureHeader& header, Visitor&& visit)
{
    constexpr bool kVoid = std::is_void_v<decltype(visit(uint32_t(), uint32_t(), uint32_t()))>;
    [[maybe_unused]] bool result = false;
    for (uint32_t member = 0; member < header.getNumArrayMembers(); ++member)
        for (uint32_t face = 0; face < header.getNumFaces(); ++face)
            for (uint32_t mip = 0; mip < header.getNumMIPLevels(); ++mip)
            {
                if constexpr (kVoid)
                    visit(mip, member, face);
                else
                    result = visit(mip, member, face);
            }
    if constexpr (!kVoid)
        return result;
}

} // namespace orbtexture

#endif
