// Reads the input as the KTX file astcenc writes when it decodes. A file that
// loads is touched; one read with packed rows must have the expected size.
//
// Input layout:
//   0      width - 1 (mod 32)
//   1      height - 1 (mod 32)
//   2      depth - 1 (mod 4)
//   3-     the file

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "Codecs/ASTCToolOutput.h"
#include "FuzzSupport.h"

using namespace orbtexture;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3)
        return 0;
    const unsigned width = 1 + data[0] % 32, height = 1 + data[1] % 32, depth = 1 + data[2] % 4;
    static const std::string path = FuzzScratchPath("astctooloutputfuzz", "in", ".ktx");
    if (FILE* file = std::fopen(path.c_str(), "wb"))
    {
        std::fwrite(data + 3, 1, size - 3, file);
        std::fclose(file);
    }
    CORBTexture texture;
    if (LoadDecodedKTX(path.c_str(), width, height, depth, texture))
    {
        if (!texture.getDataPtr())
            FuzzFail("astctooloutputfuzz", "loaded without data");
        volatile uint8_t sink = FuzzTouchSurfaces(texture);
        (void)sink;
    }
    std::remove(path.c_str());
    return 0;
}
