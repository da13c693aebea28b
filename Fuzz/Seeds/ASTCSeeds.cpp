// Seeds of astcfilefuzz: .astc files written by the library, and hand-made
// ones with a zero dimension and trailing bytes.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>


#include "FuzzSeeds.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

FuzzBytes Written(const CORBTextureHeader& header)
{
    CORBTexture texture(header);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 31 + 7);
    return SavedSeed(".astc", [&](const std::string& path) { return texture.saveASTCFile(path.c_str()); });
}

std::vector<FuzzBytes> ASTCSeeds()
{
    std::vector<FuzzBytes> seeds = {
        Written(CORBTextureHeader(ePF_ASTC_4x4, 7, 7)),
        Written(CORBTextureHeader(ePF_ASTC_12x10, 11, 25)),
        Written(CORBTextureHeader(ePF_ASTC_3x3x3, 4, 5, 6)),
        Written(CORBTextureHeader(ePF_ASTC_6x6x5, 6, 6, 5)),
    };
    FuzzBytes zeroWidth = seeds[0];
    zeroWidth[7] = 0;
    zeroWidth.resize(16 + 32);
    seeds.push_back(zeroWidth);
    FuzzBytes trailing = seeds[1];
    trailing.insert(trailing.end(), 9, 0xA5);
    seeds.push_back(trailing);
    return seeds;
}

const FuzzSeedRegistration registration("astcfilefuzz", ASTCSeeds);

} // namespace
