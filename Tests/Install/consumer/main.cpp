// Builds a texture, saves it, loads it back and checks it: the smallest
// program against the installed library.

#include <cstdio>
#include <cstring>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    using namespace orbtexture;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    std::memset(texture.getDataPtr(), 0x42, texture.getDataSize());
    texture.setOrientation(eOrientUp);
    if (!texture.saveFile(argv[1]))
        return 1;
    const CORBTexture loaded(argv[1]);
    if (!loaded.getDataPtr() || loaded.getWidth() != 4 || loaded.getOrientation(eAxisY) != eOrientUp ||
        std::memcmp(loaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()) != 0)
        return 1;

    // Conversion and a codec entry through the installed headers.
    CORBTexture converted(loaded);
    if (!Transcode(converted, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm, eColourSpaceLinear) ||
        converted.getDataSize() != 32)
        return 1;
    const unsigned side = 8;
    if (ORBTCCompress(nullptr, nullptr, side, side, true, false, 0, 0) != 32)
        return 1;
    std::printf("%s: %ux%u, %u bytes\n", argv[1], loaded.getWidth(), loaded.getHeight(), loaded.getDataSize());
    return 0;
}
