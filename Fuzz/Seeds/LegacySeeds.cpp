// Seeds of legacyfuzz: legacy files written by the library for each API
// group, and hand-made version 1 files.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>


#include "FuzzSeeds.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

FuzzBytes Written(const CORBTextureHeader& header, ELegacyApi api, bool flipped = false, bool bump = false)
{
    CORBTexture texture(header);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 29 + 3);
    if (flipped)
        texture.setOrientation(eOrientUp);
    if (bump)
        texture.setBumpMap(1.0f);
    return SavedSeed(".orb", [&](const std::string& path) { return texture.saveFileLegacyORB(path.c_str(), api); });
}

// A version 1 file: header words, then 'dataBytes' bytes of a pattern.
FuzzBytes Version1(uint32_t height, uint32_t width, uint32_t mipMapCount, uint32_t formatAndFlags,
                   uint32_t dataBytes)
{
    const uint32_t words[11] = {44, height, width, mipMapCount, formatAndFlags, dataBytes, 0, 0, 0, 0, 0};
    FuzzBytes bytes(reinterpret_cast<const uint8_t*>(words), reinterpret_cast<const uint8_t*>(words) + 44);
    for (uint32_t i = 0; i < dataBytes; ++i)
        bytes.push_back(uint8_t(i * 17 + 5));
    return bytes;
}

std::vector<FuzzBytes> LegacySeeds()
{
    const uint64_t rgb565 = PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID;
    const uint64_t rg16 = PixelType('r', 'g', 0, 0, 16, 16, 0, 0).PixelTypeID;
    const uint64_t argb8 = PixelType('a', 'r', 'g', 'b', 8, 8, 8, 8).PixelTypeID;
    std::vector<FuzzBytes> seeds = {
        Written(CORBTextureHeader(rgb565, 4, 8, 1, 3, 2, 1, eColourSpaceLinear, eVarUnsignedShortNorm), eLegacyApi1,
                true),
        Written(CORBTextureHeader(ePF_ORBTC_4bpp_RGBA, 8, 8, 1, 2, 1, 6), eLegacyApi2, false, true),
        Written(CORBTextureHeader(argb8, 3, 5, 1, 2, 1, 1, eColourSpaceLinear, eVarUnsignedIntegerNorm), eLegacyApi3),
        Written(CORBTextureHeader(ePF_YUY2, 2, 6, 1, 1, 3), eLegacyApi5, true, true),
        Written(CORBTextureHeader(rg16, 4, 4, 1, 3, 2, 6, eColourSpaceLinear, eVarSignedShortNorm), eLegacyApi6),
        Written(CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 2, 1, 1, eColourSpaceSRGB, eVarUnsignedByteNorm,
                                  true),
                eLegacyApi7),
        Written(CORBTextureHeader(ePF_BW1bpp, 8, 8), eLegacyApi7),
        // Version 1: 'i' 8 with MIP maps, a cube of 'r' 16 float, ETC1, a flipped bump map.
        Version1(4, 4, 2, 7 | 0x100, 16 + 4 + 1),
        Version1(2, 2, 0, 114 | 0x1000, 6 * 8),
        Version1(8, 4, 1, 54 | 0x100, 16 + 8),
        Version1(1, 3, 0, 21 | 0x400 | 0x10000 | 0x8000, 9),
    };
    return seeds;
}

const FuzzSeedRegistration registration("legacyfuzz", LegacySeeds);

} // namespace
