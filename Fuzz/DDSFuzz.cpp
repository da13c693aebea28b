// Loads the input as a DDS memory image. A refused input must leave an empty
// texture. A texture that loads is touched, saved as DDS and reloaded by
// name: the file must hold header and data exactly, and where the format code
// written leads back to a pixel format of the same size the reload must
// equal the texture (dimensions, counts, format, pixel block).

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

[[noreturn]] void Fail(const char* what) { FuzzFail("ddsfuzz", what); }

uint32_t Word(const std::vector<uint8_t>& bytes, size_t offset)
{
    return uint32_t(bytes[offset]) | uint32_t(bytes[offset + 1]) << 8 | uint32_t(bytes[offset + 2]) << 16 |
           uint32_t(bytes[offset + 3]) << 24;
}

void Touch(const CORBTexture& texture)
{
    volatile uint8_t sink = 0;
    for (uint32_t mip = 0; mip < texture.getNumMIPLevels(); ++mip)
    {
        const uint8_t* first = texture.getDataPtr(mip, 0, 0);
        const uint8_t* last = texture.getDataPtr(mip, texture.getNumArrayMembers() - 1, texture.getNumFaces() - 1);
        const uint32_t surface = texture.getDataSize(int(mip), false, false);
        if (!first || !last)
            Fail("no surface pointer for a level");
        if (surface)
            sink = sink ^ first[0] ^ last[surface - 1];
    }
    sink = sink ^ uint8_t(texture.getD3DFormat() ^ texture.getDXGIFormat());
    sink = sink ^ uint8_t(ORBTGetPixelFormatName(texture.getPixelType().PixelTypeID).length());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CORBTexture texture;
    if (!texture.loadFromMemory(data, size, "x.dds"))
    {
        if (texture.getDataPtr() || texture.getDataSize() != 0)
            Fail("a refused input left data behind");
        return 0;
    }
    if (!texture.getDataPtr() || texture.getDataSize() != texture.getDataSize(-1, true, true))
        Fail("a loaded texture has no block of its data size");
    Touch(texture);

    std::vector<uint8_t> bytes;
    if (!texture.saveToMemory(bytes, "x.dds"))
        Fail("saveToMemory failed for a texture the loader accepted");
    const bool dx10 = bytes.size() >= 128 && (Word(bytes, 80) & 4) && Word(bytes, 84) == 0x30315844;
    const size_t headerSize = dx10 ? 148 : 128;
    if (bytes.size() != headerSize + texture.getDataSize())
        Fail("saved file size");

    // What the code written should give back.
    CORBTextureHeader expected(texture.getHeader());
    const bool known = dx10 ? expected.setDXGIFormat(Word(bytes, 128)) : expected.setD3DFormat(texture.getD3DFormat());
    CORBTexture reloaded;
    reloaded.loadFromMemory(bytes.data(), bytes.size(), "x.dds");
    if (!known)
    {
        if (reloaded.getDataPtr())
            Fail("a file with an unknown format code reloads");
        return 0;
    }
    if (expected.getDataSize() != texture.getDataSize())
        return 0;

    if (!reloaded.getDataPtr())
        Fail("reload refused");
    if (reloaded.getPixelType().PixelTypeID != expected.getPixelType().PixelTypeID ||
        reloaded.getChannelType() != expected.getChannelType() ||
        reloaded.getColourSpace() != expected.getColourSpace() ||
        reloaded.isPreMultiplied() != expected.isPreMultiplied())
        Fail("reload format");
    if (reloaded.getWidth() != texture.getWidth() || reloaded.getHeight() != texture.getHeight() ||
        reloaded.getDepth() != texture.getDepth() || reloaded.getNumMIPLevels() != texture.getNumMIPLevels() ||
        reloaded.getNumArrayMembers() != texture.getNumArrayMembers() ||
        reloaded.getNumFaces() != texture.getNumFaces())
        Fail("reload dimensions");
    if (reloaded.getDataSize() != texture.getDataSize() ||
        std::memcmp(reloaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()) != 0)
        Fail("reload pixel block");
    return 0;
}
