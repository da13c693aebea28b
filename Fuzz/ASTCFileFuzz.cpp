// Loads the input as a .astc image; a texture that loads is touched, saved
// with the .astc writer and reloaded, and the written file must repeat the
// input's header (dimensions of 0 excepted, which load as 1) and blocks.

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

[[noreturn]] void Fail(const char* what) { FuzzFail("astcfilefuzz", what); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CORBTexture texture;
    if (!texture.loadFromMemory(data, size, "fuzz.astc"))
        return 0;
    const uint32_t total = texture.getDataSize();
    if (size < 16 + uint64_t(total) || total == 0)
        Fail("loaded more data than the image holds");
    volatile uint8_t sink = texture.getDataPtr()[total - 1];
    (void)sink;

    std::vector<uint8_t> written;
    if (!texture.saveToMemory(written, "x.astc"))
        Fail("saveToMemory failed for a loaded texture");
    CORBTexture reloaded;
    reloaded.loadFromMemory(written.data(), written.size(), "x.astc");

    std::vector<uint8_t> expected(data, data + 16 + total);
    for (size_t field = 7; field < 16; field += 3)
        if (!expected[field] && !expected[field + 1] && !expected[field + 2])
            expected[field] = 1;
    if (written != expected)
        Fail("written file differs from the input");
    if (!reloaded.getDataPtr() || reloaded.getPixelType() != texture.getPixelType() ||
        reloaded.getDataSize() != total || std::memcmp(reloaded.getDataPtr(), texture.getDataPtr(), total) != 0)
        Fail("reload differs");
    return 0;
}
