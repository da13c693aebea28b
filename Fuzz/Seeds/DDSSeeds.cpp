// Seeds of ddsfuzz: files the library's DDS writer produces (mask rows,
// FourCCs, the DX10 header with arrays, cube maps and volumes) and a few
// hand-made headers the writer never produces.

#include <cstdlib>
#include <cstring>
#include <string>


#include "FuzzSeeds.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

FuzzBytes Written(uint64_t format, EORBTVariableType type, uint32_t width, uint32_t height, uint32_t depth,
                  uint32_t levels, uint32_t members, uint32_t faces,
                  EORBTColourSpace space = eColourSpaceLinear)
{
    CORBTexture texture(CORBTextureHeader(format, height, width, depth, levels, members, faces, space, type), nullptr);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 29 + 3);
    return SavedSeed(".dds", [&](const std::string& path) { return texture.saveFile(path.c_str()); });
}

void PutWord(FuzzBytes& bytes, size_t offset, uint32_t word)
{
    if (bytes.size() < offset + 4)
        bytes.resize(offset + 4);
    std::memcpy(bytes.data() + offset, &word, 4);
}

// A 4 x 4 mask header of one level with its data.
FuzzBytes MaskFile(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    FuzzBytes bytes = {'D', 'D', 'S', ' '};
    PutWord(bytes, 4, 124);
    PutWord(bytes, 8, 0x1007);
    PutWord(bytes, 12, 4);
    PutWord(bytes, 16, 4);
    PutWord(bytes, 76, 32);
    PutWord(bytes, 80, flags);
    PutWord(bytes, 88, bits);
    PutWord(bytes, 92, r);
    PutWord(bytes, 96, g);
    PutWord(bytes, 100, b);
    PutWord(bytes, 104, a);
    PutWord(bytes, 108, 0x1000);
    PutWord(bytes, 124, 0);
    for (uint32_t i = 0; i < 16 * bits / 8; ++i)
        bytes.push_back(uint8_t(i * 13));
    return bytes;
}

std::vector<FuzzBytes> DDSSeeds()
{
    const PixelType argb8(PixelType('a', 'r', 'g', 'b', 8, 8, 8, 8));
    const PixelType rgb565(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0));
    const PixelType l8(PixelType('l', 0, 0, 0, 8, 0, 0, 0));
    const PixelType a8(PixelType('a', 0, 0, 0, 8, 0, 0, 0));
    const PixelType r8(PixelType('r', 0, 0, 0, 8, 0, 0, 0));
    const PixelType r32(PixelType('r', 0, 0, 0, 32, 0, 0, 0));
    std::vector<FuzzBytes> seeds = {
        Written(argb8.PixelTypeID, eVarUnsignedIntegerNorm, 8, 4, 1, 4, 1, 1),
        Written(rgb565.PixelTypeID, eVarUnsignedShortNorm, 3, 3, 1, 2, 1, 1),
        Written(l8.PixelTypeID, eVarUnsignedByteNorm, 4, 4, 1, 1, 1, 6),
        Written(l8.PixelTypeID, eVarUnsignedByteNorm, 4, 4, 4, 3, 1, 1),
        Written(ePF_DXT1, eVarUnsignedByteNorm, 8, 8, 1, 4, 1, 1),
        Written(ePF_DXT5, eVarUnsignedIntegerNorm, 8, 4, 1, 2, 3, 1),
        Written(ORBStandard8PixelType, eVarUnsignedByteNorm, 4, 4, 2, 2, 1, 6, eColourSpaceSRGB),
        Written(r8.PixelTypeID, eVarUnsignedByteNorm, 9, 1, 1, 2, 1, 1),
        Written(a8.PixelTypeID, eVarUnsignedByteNorm, 2, 2, 1, 1, 2, 6),
        Written(r32.PixelTypeID, eVarSignedFloat, 3, 2, 1, 1, 1, 1),
        MaskFile(0x80000, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000),
        MaskFile(0x80000, 32, 0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000),
        MaskFile(0x20001, 8, 0xF, 0, 0, 0xF0),
        MaskFile(0x40001, 16, 0x1F, 0x3E0, 0xFC00, 0),
        MaskFile(0x2, 8, 0, 0, 0, 0xFF),
    };
    // DXT2 with one cube bit, a deep chain and the depth flag.
    FuzzBytes dxt2 = MaskFile(0x4, 0, 0, 0, 0, 0);
    PutWord(dxt2, 84, 0x32545844);
    PutWord(dxt2, 8, 0x821007);
    PutWord(dxt2, 24, 2);
    PutWord(dxt2, 28, 3);
    PutWord(dxt2, 112, 0x400);
    dxt2.resize(128 + 6 * (2 * 16 + 16 + 16), 0x5A);
    seeds.push_back(dxt2);
    // DX10: array size 0, one dimension, then a cut copy.
    FuzzBytes dx10 = MaskFile(0x4, 0, 0, 0, 0, 0);
    PutWord(dx10, 84, 0x30315844);
    PutWord(dx10, 128, 61);
    PutWord(dx10, 132, 2);
    PutWord(dx10, 136, 0);
    PutWord(dx10, 140, 0);
    PutWord(dx10, 144, 0);
    dx10.resize(148 + 4, 0x33);
    seeds.push_back(dx10);
    dx10.resize(140);
    seeds.push_back(dx10);
    return seeds;
}

const FuzzSeedRegistration kRegistration("ddsfuzz", DDSSeeds);

} // namespace
