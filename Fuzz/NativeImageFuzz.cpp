// Feeds arbitrary bytes to the sized memory-image loader and exercises what a
// loaded texture offers: every surface pointer, every metadata getter, a copy.

#include <cstddef>
#include <cstdint>

#include "ORBTexture.h"

using namespace orbtexture;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A legacy image holds array member 0 only, so a few bytes can claim a
    // block as large as the load limit; the copies made here must fit the
    // fuzzer's memory bound.
    static const bool limited = (ORBTSetLoadLimit(256u << 20), true);
    (void)limited;
    const CORBTexture texture(data, size);
    const uint8_t* block = texture.getDataPtr();
    if (!block)
        return 0;

    volatile uint8_t sink = 0;
    const uint32_t levels = texture.getNumMIPLevels() < 40 ? texture.getNumMIPLevels() : 40;
    for (uint32_t mip = 0; mip < levels; ++mip)
    {
        const uint8_t* last = texture.getDataPtr(mip, texture.getNumArrayMembers() - 1, texture.getNumFaces() - 1);
        const uint32_t surface = texture.getDataSize(int(mip), false, false);
        if (surface)
            sink = sink ^ last[surface - 1];
    }

    sink = sink ^ uint8_t(texture.getOrientation(eAxisZ));
    sink = sink ^ uint8_t(texture.getBumpMapScale() != 0.0f);
    sink = sink ^ uint8_t(texture.getBumpMapOrder().length() + texture.getCubeMapOrder().length());
    uint32_t x, y, z;
    texture.getBorder(x, y, z);
    if (const float* atlas = texture.getTextureAtlasData())
        for (uint32_t i = 0; i < texture.getNumTextureAtlasMembers(); ++i)
            sink = sink ^ uint8_t(atlas[i] != 0.0f);

    const CORBTexture copy(texture);
    sink = sink ^ copy.getDataPtr()[0];
    return 0;
}
