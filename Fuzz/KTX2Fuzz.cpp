// Loads the input as a KTX 2.0 image; a texture that loads is touched, saved
// as KTX 2 with and without Zstandard (which must succeed exactly when its
// format has a Vulkan code) and reloaded: the texture must come back whole.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzSupport.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

[[noreturn]] void Fail(const char* what)
{
    FuzzFail("ktx2fuzz", what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CORBTexture texture;
    if (!texture.loadFromMemory(data, size, "fuzz.ktx2"))
    {
        if (texture.getDataPtr() || texture.getDataSize())
            Fail("a refused image left data behind");
        return 0;
    }
    volatile uint8_t sink = FuzzTouchSurfaces(texture);
    (void)sink;

    for (int level : {0, 1})
    {
        std::vector<uint8_t> bytes;
        if (!texture.saveToMemoryKTX2(bytes, level))
            Fail("a loaded texture does not save");
        CORBTexture reloaded;
        if (!reloaded.loadFromMemory(bytes.data(), bytes.size(), "x.ktx2"))
            Fail("a saved file does not reload");
        if (!reloaded.isEqual(texture))
            Fail("the texture differs after the round trip");
    }
    return 0;
}
