// Loads the input as a KTX image; a texture that loads is touched, saved as
// KTX (which must succeed exactly when its format has OpenGL codes) and
// reloaded: dimensions, counts, orientation and, for the same pixel format,
// the pixel block must come back.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

[[noreturn]] void Fail(const char* what) { FuzzFail("ktxfuzz", what); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CORBTexture texture;
    if (!texture.loadFromMemory(data, size, "fuzz.ktx"))
    {
        if (texture.getDataPtr() || texture.getDataSize())
            Fail("a refused image left data behind");
        return 0;
    }
    volatile uint8_t sink = FuzzTouchSurfaces(texture);
    (void)sink;

    unsigned int internalFormat, baseFormat, format, type, typeSize;
    const bool mapped = getOpenGLFormat(texture.getPixelType().PixelTypeID, texture.getChannelType(),
                                        texture.getColourSpace(), internalFormat, baseFormat, format, type, typeSize);
    std::vector<uint8_t> bytes;
    if (!texture.saveToMemory(bytes, "x.ktx"))
        Fail("save failed");
    CORBTexture reloaded;
    reloaded.loadFromMemory(bytes.data(), bytes.size(), "x.ktx");
    // A format without OpenGL codes is written with zero codes, which no
    // reader takes; some codes have no way back (GL_LUMINANCE16_ALPHA16).
    unsigned long long backFormat = 0;
    EORBTVariableType backType = eVarUnsignedByteNorm;
    EORBTColourSpace backSpace = eColourSpaceLinear;
    if (!mapped || !getOrbCoreFormatOGL(backFormat, backType, backSpace, internalFormat, format, type))
    {
        if (reloaded.getDataPtr())
            Fail("a file of codes that name no format reloads");
        return 0;
    }
    if (!reloaded.getDataPtr())
        Fail("a saved file does not reload");
    if (reloaded.getWidth() != texture.getWidth() || reloaded.getHeight() != texture.getHeight() ||
        reloaded.getDepth() != texture.getDepth() || reloaded.getNumMIPLevels() != texture.getNumMIPLevels() ||
        reloaded.getNumArrayMembers() != texture.getNumArrayMembers() ||
        reloaded.getNumFaces() != texture.getNumFaces())
        Fail("dimensions or counts differ after the round trip");
    for (EORBTAxis axis : {eAxisX, eAxisY, eAxisZ})
        if (reloaded.getOrientation(axis) != texture.getOrientation(axis))
            Fail("orientation differs after the round trip");
    if (reloaded.getPixelType() == texture.getPixelType() &&
        (reloaded.getDataSize() != texture.getDataSize() ||
         std::memcmp(reloaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()) != 0))
        Fail("pixel block differs after the round trip");
    return 0;
}
