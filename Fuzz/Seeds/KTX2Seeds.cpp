// Seeds of ktx2fuzz: KTX 2 files written by the library, one of each format
// family and shape, with and without Zstandard.

#include <string>
#include <vector>

#include "FuzzSeeds.h"
#include "Model/ORBTextureFormatFacts.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

FuzzBytes Written(const CORBTextureHeader& header, int zstdLevel, uint32_t orientation = 0)
{
    CORBTexture texture(header);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 29 + 3);
    if (orientation)
        texture.setOrientation(EORBTOrientation(orientation));
    return SavedSeed(".ktx2", [&](const std::string& path) { return texture.saveKTX2File(path.c_str(), zstdLevel); });
}

std::vector<FuzzBytes> KTX2Seeds()
{
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(ORBStandard8PixelType, 3, 5, 1, 2, 2, 1, eColourSpaceSRGB),
        CORBTextureHeader(ChannelLayout("rgb", 8, 8, 8), 3, 3, 1, 2, 1, 6),
        CORBTextureHeader(ChannelLayout("rgb", 5, 6, 5), 2, 3, 3, 1, 1, 1, eColourSpaceLinear, eVarUnsignedShortNorm),
        CORBTextureHeader(ChannelLayout("rgba", 16, 16, 16, 16), 2, 2, 1, 2, 1, 1, eColourSpaceLinear, eVarSignedFloat),
        CORBTextureHeader(ePF_ETC1, 8, 8, 1, 2, 1, 6),
        CORBTextureHeader(ePF_ETC2_RGBA, 8, 8, 1, 2, 2, 6, eColourSpaceSRGB),
        CORBTextureHeader(ePF_EAC_RG11, 4, 8, 1, 1, 3, 1, eColourSpaceLinear, eVarSignedShortNorm),
        CORBTextureHeader(ePF_ASTC_5x5, 6, 10, 1, 2, 2),
        CORBTextureHeader(ePF_DXT2, 8, 8, 1, 2),
        CORBTextureHeader(ePF_BC7, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB),
        CORBTextureHeader(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 3),
        CORBTextureHeader(ePF_ORBTCII_2bpp, 16, 16, 1, 2, 1, 1, eColourSpaceSRGB),
        CORBTextureHeader(ePF_RGB9E5, 2, 3, 1, 1, 1, 1, eColourSpaceLinear, eVarUnsignedFloat),
    };
    std::vector<FuzzBytes> seeds;
    for (const CORBTextureHeader& header : headers)
        for (int zstdLevel : {0, 3})
            seeds.push_back(Written(header, zstdLevel, seeds.size() % 8));
    return seeds;
}

const FuzzSeedRegistration registration("ktx2fuzz", KTX2Seeds);

} // namespace
