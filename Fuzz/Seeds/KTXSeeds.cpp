// Seeds of ktxfuzz: KTX files written by the library, and hand-made variants
// with foreign pairs, no pairs, and an odd key/value size.

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

FuzzBytes Written(const CORBTextureHeader& header, uint32_t orientation = 0)
{
    CORBTexture texture(header);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 29 + 3);
    if (orientation)
        texture.setOrientation(EORBTOrientation(orientation));
    return SavedSeed(".ktx", [&](const std::string& path) { return texture.saveFile(path.c_str()); });
}

void PutWord(FuzzBytes& bytes, size_t at, uint32_t word) { std::memcpy(bytes.data() + at, &word, 4); }

std::vector<FuzzBytes> KTXSeeds()
{
    const uint64_t rgb8 = PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID;
    std::vector<FuzzBytes> seeds = {
        Written(CORBTextureHeader(ORBStandard8PixelType, 3, 5, 1, 2, 2)),
        Written(CORBTextureHeader(rgb8, 3, 3, 1, 2, 1, 6), 7),
        Written(CORBTextureHeader(rgb8, 2, 3, 3)),
        Written(CORBTextureHeader(ePF_ETC1, 8, 8, 1, 2, 1, 6), 2),
        Written(CORBTextureHeader(ePF_ASTC_5x5, 6, 10, 1, 2, 2)),
        Written(CORBTextureHeader(ePF_RGB9E5, 2, 3, 1, 1, 1, 1, eColourSpaceLinear, eVarUnsignedFloat)),
        Written(CORBTextureHeader(PixelType('r', 'g', 0, 0, 16, 16, 0, 0).PixelTypeID, 2, 2, 1, 1, 1, 1,
                                  eColourSpaceLinear, eVarUnsignedShortNorm)),
        Written(CORBTextureHeader(ePF_EAC_RG11, 4, 8, 1, 1, 3, 6, eColourSpaceLinear, eVarSignedShortNorm)),
    };
    const FuzzBytes base = Written(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    if (base.size() < 96)
        return seeds;
    // No pairs.
    FuzzBytes bare(base.begin(), base.begin() + 64);
    PutWord(bare, 60, 0);
    bare.insert(bare.end(), base.begin() + 96, base.end());
    seeds.push_back(bare);
    // A foreign pair behind the orientation.
    FuzzBytes foreign(base.begin(), base.begin() + 96);
    const uint8_t pair[] = {10, 0, 0, 0, 'V', 'e', 'n', 'd', 'o', 'r', 0, 'x', 'y', 0, 0, 0};
    foreign.insert(foreign.end(), pair, pair + sizeof pair);
    PutWord(foreign, 60, 32 + sizeof pair);
    foreign.insert(foreign.end(), base.begin() + 96, base.end());
    seeds.push_back(foreign);
    // Key/value data not a multiple of 4.
    FuzzBytes odd = base;
    PutWord(odd, 60, 30);
    seeds.push_back(odd);
    return seeds;
}

const FuzzSeedRegistration registration("ktxfuzz", KTXSeeds);

} // namespace
