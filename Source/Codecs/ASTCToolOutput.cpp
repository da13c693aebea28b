#include "Codecs/ASTCToolOutput.h"

#include <algorithm>
#include <cstdio>

namespace orbtexture
{

bool LoadDecodedKTX(const char* path, unsigned int width, unsigned int height, unsigned int depth,
                    CORBTexture& texture)
{
    constexpr uint32_t kUnsignedByte = 0x1401, kRed = 0x1903, kRG = 0x8227, kRGB = 0x1907, kRGBA = 0x1908;
    const PixelType luminance('l', 0, 0, 0, 8, 0, 0, 0), luminanceAlpha('l', 'a', 0, 0, 8, 8, 0, 0);

    FILE* file = std::fopen(path, "rb");
    if (!file)
        return false;
    uint32_t words[16] = {};
    uint32_t imageSize = 0;
    const bool headerRead = std::fread(words, 4, 16, file) == 16 &&
                            std::fseek(file, 64 + long(words[15]), SEEK_SET) == 0 &&
                            std::fread(&imageSize, 4, 1, file) == 1;
    const uint32_t format = words[6];
    const unsigned channels = format == kRed ? 1 : format == kRG ? 2 : format == kRGB ? 3 : format == kRGBA ? 4 : 0;
    const uint64_t rowBytes = uint64_t(width) * channels;
    const bool packed = headerRead && words[3] == 0x04030201 && words[4] == kUnsignedByte && channels &&
                        words[9] == width && words[10] == height && std::max(words[11], 1u) == depth &&
                        words[12] <= 1 && words[13] == 1 && words[14] <= 1 && rowBytes % 4 != 0 &&
                        imageSize == rowBytes * height * depth;
    if (packed)
    {
        const PixelType types[] = {luminance, luminanceAlpha, PixelType('r', 'g', 'b', 0, 8, 8, 8, 0),
                                   PixelType(ORBStandard8PixelType)};
        texture = CORBTexture(CORBTextureHeader(types[channels - 1].PixelTypeID, height, width, depth));
        const bool read = std::fread(texture.getDataPtr(), 1, imageSize, file) == imageSize;
        std::fclose(file);
        return read;
    }
    std::fclose(file);

    texture = CORBTexture(path);
    const uint64_t type = texture.getPixelType().PixelTypeID;
    const bool red = type == PixelType('r', 0, 0, 0, 8, 0, 0, 0).PixelTypeID;
    if (red || type == PixelType('r', 'g', 0, 0, 8, 8, 0, 0).PixelTypeID)
    {
        CORBTextureHeader header(texture.getHeader());
        header.setPixelFormat(red ? luminance : luminanceAlpha);
        texture = CORBTexture(header, texture.getDataPtr());
    }
    return texture.getDataPtr() != nullptr;
}

} // namespace orbtexture
