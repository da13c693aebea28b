#include "ImageFiles.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <climits>
#include <filesystem>
#include <vector>

#include <stb_image.h>
#include <stb_image_write.h>

#include "CliSupport.h"

namespace cli
{

using orbtexture::CORBTexture;
using orbtexture::CORBTextureHeader;
using orbtexture::PixelType;

std::string FileExtension(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool IsReadableImageExtension(const std::string& extension)
{
    for (const char* known : {".png", ".jpg", ".jpeg", ".tga", ".bmp", ".psd", ".gif", ".hdr"})
        if (extension == known)
            return true;
    return false;
}

bool IsWritableImageExtension(const std::string& extension)
{
    return extension == ".png" || extension == ".tga" || extension == ".bmp";
}

bool LoadImageFile(const std::string& path, orbtexture::EORBTColourSpace colourSpace, CORBTexture& texture,
                   std::string& reason)
{
    // stb takes the size as an int.
    std::vector<unsigned char> bytes;
    if (!ReadFileBytes(path, bytes, reason, size_t(INT_MAX)))
        return false;
    const int size = int(bytes.size());

    int width = 0, height = 0, channels = 0;
    if (!stbi_info_from_memory(bytes.data(), size, &width, &height, &channels))
    {
        reason = std::string("not a readable image: ") + stbi_failure_reason();
        return false;
    }
    // Four channels of at most four bytes: the block must stay below 4 GiB.
    if (uint64_t(width) * uint64_t(height) * 16 > UINT32_MAX)
    {
        reason = "image too large";
        return false;
    }

    uint64_t format = orbtexture::ORBStandard8PixelType;
    orbtexture::EORBTVariableType type = orbtexture::eVarUnsignedByteNorm;
    void* pixels = nullptr;
    if (stbi_is_hdr_from_memory(bytes.data(), size))
    {
        format = orbtexture::ORBStandard32PixelType;
        type = orbtexture::eVarSignedFloat;
        pixels = stbi_loadf_from_memory(bytes.data(), size, &width, &height, &channels, 4);
    }
    else if (stbi_is_16_bit_from_memory(bytes.data(), size))
    {
        format = orbtexture::ORBStandard16PixelType;
        type = orbtexture::eVarUnsignedShortNorm;
        pixels = stbi_load_16_from_memory(bytes.data(), size, &width, &height, &channels, 4);
    }
    else
        pixels = stbi_load_from_memory(bytes.data(), size, &width, &height, &channels, 4);
    if (!pixels)
    {
        reason = std::string("cannot decode image: ") + stbi_failure_reason();
        return false;
    }

    CORBTextureHeader header(format, uint32_t(height), uint32_t(width));
    header.setChannelType(type);
    header.setColourSpace(colourSpace);
    texture = CORBTexture(header, pixels);
    stbi_image_free(pixels);
    return true;
}

bool WriteImageFile(const std::string& path, const std::string& extension, const unsigned char* pixels,
                    unsigned width, unsigned height, std::string& reason)
{
    if (width > unsigned(INT_MAX) / 4 || height > unsigned(INT_MAX))
    {
        reason = "image too large for " + extension.substr(1) + " output";
        return false;
    }
    const int w = int(width), h = int(height);
    int written = 0;
    errno = 0;
    if (extension == ".png")
        written = stbi_write_png(path.c_str(), w, h, 4, pixels, w * 4);
    else if (extension == ".tga")
        written = stbi_write_tga(path.c_str(), w, h, 4, pixels);
    else if (extension == ".bmp")
        written = stbi_write_bmp(path.c_str(), w, h, 4, pixels);
    if (!written)
    {
        reason = errno ? std::string("cannot write file: ") + std::strerror(errno) : "cannot write file";
        return false;
    }
    return true;
}

} // namespace cli
