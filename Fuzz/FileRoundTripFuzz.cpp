// Loads the input as a sized memory image; a texture that loads is saved to a
// native file, reloaded by name and as a memory image of the saved bytes, and
// each reload must equal it: header, every metadata item, pixel block.

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

[[noreturn]] void Fail(const char* reload, const char* what)
{
    std::fprintf(stderr, "fileroundtripfuzz: %s reload differs: %s\n", reload, what);
    std::abort();
}

void Compare(const CORBTexture& original, const CORBTexture& reloaded, const char* how)
{
    if (!reloaded.getDataPtr())
        Fail(how, "does not load");

    const ORBTextureHeaderV3 a = original.getFileHeader(), b = reloaded.getFileHeader();
    if (a.version != b.version || a.flags != b.flags || a.pixelFormat != b.pixelFormat ||
        a.colourSpace != b.colourSpace || a.channelType != b.channelType || a.height != b.height ||
        a.width != b.width || a.depth != b.depth || a.numSurfaces != b.numSurfaces ||
        a.numFaces != b.numFaces || a.numMIPMaps != b.numMIPMaps || a.metaDataSize != b.metaDataSize)
        Fail(how, "header");

    unsigned count = 0, reloadedCount = 0;
    reloaded.forEachMetaData([&](const MetaDataBlock&) { ++reloadedCount; });
    original.forEachMetaData([&](const MetaDataBlock& item) {
        ++count;
        if (!reloaded.hasMetaData(item.fourCC, item.key))
            Fail(how, "metadata item missing");
        const MetaDataBlock copy = reloaded.getMetaData(item.fourCC, item.key);
        if (copy.fourCC != item.fourCC || copy.key != item.key || copy.dataSize != item.dataSize ||
            (item.dataSize && (!copy.data || std::memcmp(copy.data, item.data, item.dataSize) != 0)))
            Fail(how, "metadata item");
    });
    if (count != reloadedCount)
        Fail(how, "metadata item count");

    const uint32_t size = original.getDataSize();
    if (reloaded.getDataSize() != size || std::memcmp(reloaded.getDataPtr(), original.getDataPtr(), size) != 0)
        Fail(how, "pixel block");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CORBTexture texture(data, size);
    if (!texture.getDataPtr())
        return 0;

    // An item of size 0 fails the save by design.
    bool emptyItem = false;
    texture.forEachMetaData([&](const MetaDataBlock& item) { emptyItem = emptyItem || item.dataSize == 0; });
    if (emptyItem)
        return 0;
    // A repeated key is counted twice by addMetaData; a writer recounts first.
    texture.recountMetaDataSize();

    std::vector<uint8_t> bytes;
    if (!texture.saveToMemory(bytes, "x.orb"))
    {
        std::fprintf(stderr, "fileroundtripfuzz: saveToMemory failed for a texture the memory loader accepted: %s\n",
                     ORBTGetLastError());
        std::abort();
    }
    if (bytes.size() != size_t(ORBTEX_V3_HEADER_SIZE) + texture.getMetaDataSize() + texture.getDataSize())
        Fail("saved image", "size");
    CORBTexture fromImage;
    if (!fromImage.loadFromMemory(bytes.data(), bytes.size(), "x.orb"))
        Fail("saved image", "does not load");
    Compare(texture, fromImage, "memory image");
    if (!texture.isEqual(fromImage))
        Fail("memory image", "isEqual");
    const CORBTexture fromSizedImage(bytes.data(), bytes.size());
    Compare(texture, fromSizedImage, "sized memory image");
    return 0;
}
