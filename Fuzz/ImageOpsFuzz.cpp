// Drives the image operations and the comparison with arbitrary small
// textures and parameters.
//
// Input layout:
//   0      channel type (mod 4: bytes, shorts, 32-bit integers, floats)
//   1-3    width - 1 (mod 9), height - 1 (mod 9), depth - 1 (mod 4)
//   4      MIP levels - 1 (mod 3, at most the full chain)
//   5      operation (mod 10)
//   6-11   parameters
//   12-    pixel data, repeated to fill the texture

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 12)
        return 0;
    const uint64_t formats[4] = {ORBStandard8PixelType, ORBStandard16PixelType, ORBStandard32PixelType,
                                 ORBStandard32PixelType};
    const EORBTVariableType types[4] = {eVarUnsignedByteNorm, eVarUnsignedShortNorm, eVarUnsignedIntegerNorm,
                                        eVarSignedFloat};
    const unsigned type = data[0] % 4;
    const uint32_t width = data[1] % 9 + 1, height = data[2] % 9 + 1, depth = data[3] % 4 + 1;
    uint32_t levels = data[4] % 3 + 1, largest = width > height ? width : height;
    largest = largest > depth ? largest : depth;
    uint32_t chain = 1;
    while (largest >>= 1)
        ++chain;
    levels = levels < chain ? levels : chain;
    const uint8_t* p = data + 6;
    const uint8_t* pixels = data + 12;
    const size_t count = size - 12;

    CORBTexture texture(CORBTextureHeader(formats[type], height, width, depth, levels, 1, 1, eColourSpaceLinear,
                                          types[type]));
    uint8_t* block = texture.getDataPtr();
    for (size_t i = 0; i < texture.getDataSize(); ++i)
        block[i] = count ? pixels[i % count] : 0;
    const CORBTexture original(texture);
    const EORBTAxis axis = EORBTAxis(p[0] % 4);
    const EResizeMode mode = EResizeMode(p[1] % 4);

    switch (data[5] % 10)
    {
    case 0: Resize(texture, p[2] % 12 + 1, p[3] % 12 + 1, p[4] % 5 + 1, mode); break;
    case 1: GenerateMIPMaps(texture, mode, p[2] % 2 ? 0xFFFFFFFFu : p[3] % 6); break;
    case 2: ColourMIPMaps(texture); break;
    case 3:
        ResizeCanvas(texture, p[2] % 12, p[3] % 12, p[4] % 5, int8_t(p[5]) % 12, int8_t(p[0]) % 12,
                     int8_t(p[1]) % 4);
        break;
    case 4: Rotate90(texture, axis, p[2] & 1); break;
    case 5: Flip(texture, axis); break;
    case 6: Border(texture, p[2] % 6, p[3] % 6, p[4] % 3); break;
    case 7: Bleed(texture); break;
    case 8:
    {
        char order[5] = {"xyzh"[p[2] % 4], "xyzh"[p[3] % 4], char(p[4] % 2 ? 'H' : 0), 0, 0};
        GenerateNormalMap(texture, float(int8_t(p[5])) / 16.0f, CORBTString(order));
        break;
    }
    default:
    {
        // The comparison of the original with a shifted copy of another type.
        CORBTexture other(CORBTextureHeader(formats[p[0] % 4], height, width, depth, levels, 1, 1,
                                            eColourSpaceLinear, types[p[0] % 4]));
        std::memset(other.getDataPtr(), p[1], other.getDataSize());
        for (unsigned level : {0u, levels - 1, levels})
        {
            GetMaxDifference(original, other, level, 0, 0);
            GetStandardDeviation(original, other, level, 0, 0);
            GetPSNRValue(original, other, level, 0, 0);
        }
        const CORBTexture pictures[3] = {ColourDiff(original, other, float(p[2]) / 32.0f),
                                         ToleranceDiff(original, other, float(p[3]) / 255.0f),
                                         BlendDiff(other, original, float(int8_t(p[4])) / 64.0f)};
        for (const CORBTexture& picture : pictures)
            if (!picture.getDataPtr() || picture.getWidth() != width)
                abort();
        return 0;
    }
    }
    // Whatever happened, the result is a texture whose every surface can be read.
    if (texture.getDataPtr())
    {
        volatile uint8_t sink = 0;
        const uint32_t bytes = texture.getDataSize();
        for (uint32_t i = 0; i < bytes; i += 7)
            sink = sink + texture.getDataPtr()[i];
    }
    return 0;
}
