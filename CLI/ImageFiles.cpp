#include "ImageFiles.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include <stb_image.h>
#include <stb_image_write.h>

#include "CliSupport.h"
#include "FormatNames.h"
#include "ORBTextureInfo.h"

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

namespace
{

// stb's STBI_MAX_DIMENSIONS as the system's stb is built (its default); the
// header keeps the macro inside its implementation section.
constexpr uint32_t kDecoderMaxSide = 1u << 24;

uint32_t BigEndian32(const unsigned char* bytes)
{
    return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 | bytes[3];
}

// Size and channel depth from a PNG's IHDR chunk, which stb refuses to report
// for sizes above its limit; false if the bytes do not start a PNG.
bool ReadPngHeader(const std::vector<unsigned char>& bytes, uint32_t& width, uint32_t& height,
                   unsigned& channelBytes)
{
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (bytes.size() < 25 || std::memcmp(bytes.data(), kSignature, 8) != 0 ||
        std::memcmp(bytes.data() + 12, "IHDR", 4) != 0)
        return false;
    width = BigEndian32(bytes.data() + 16);
    height = BigEndian32(bytes.data() + 20);
    channelBytes = bytes[24] == 16 ? 2 : 1;
    return true;
}

std::string PixelCount(uint32_t width, uint32_t height)
{
    return std::to_string(width) + " x " + std::to_string(height) + " pixels";
}

} // namespace

bool LoadImageFile(const std::string& path, orbtexture::EORBTColourSpace colourSpace, CORBTexture& texture,
                   std::string& reason)
{
    // stb takes the size as an int.
    std::vector<unsigned char> bytes;
    if (!ReadFileBytes(path, bytes, reason, size_t(INT_MAX)))
        return false;
    return LoadImageBytes(bytes, colourSpace, texture, reason);
}

bool LoadImageBytes(std::vector<unsigned char>& bytes, orbtexture::EORBTColourSpace colourSpace,
                    CORBTexture& texture, std::string& reason)
{
    if (bytes.size() > size_t(INT_MAX))
    {
        reason = "image file too large";
        return false;
    }
    const int size = int(bytes.size());

    uint32_t width = 0, height = 0;
    unsigned channelBytes = 1;
    if (!ReadPngHeader(bytes, width, height, channelBytes))
    {
        int w = 0, h = 0, channels = 0;
        if (!stbi_info_from_memory(bytes.data(), size, &w, &h, &channels))
        {
            reason = std::string("not a readable image: ") + stbi_failure_reason();
            return false;
        }
        width = uint32_t(w);
        height = uint32_t(h);
        channelBytes = stbi_is_hdr_from_memory(bytes.data(), size)        ? 4
                       : stbi_is_16_bit_from_memory(bytes.data(), size) ? 2
                                                                         : 1;
    }
    if (width > kDecoderMaxSide || height > kDecoderMaxSide)
    {
        reason = "image too large: " + PixelCount(width, height) + ", above the decoder's limit of " +
                 std::to_string(kDecoderMaxSide) + " pixels a side";
        return false;
    }

    const uint64_t format = channelBytes == 4   ? orbtexture::ORBStandard32PixelType
                            : channelBytes == 2 ? orbtexture::ORBStandard16PixelType
                                                : orbtexture::ORBStandard8PixelType;
    const orbtexture::EORBTVariableType type = channelBytes == 4   ? orbtexture::eVarSignedFloat
                                               : channelBytes == 2 ? orbtexture::eVarUnsignedShortNorm
                                                                   : orbtexture::eVarUnsignedByteNorm;
    const uint64_t needed = uint64_t(width) * height * 4 * channelBytes;
    const std::string needs =
        "image too large: " + PixelCount(width, height) + " need " + std::to_string(needed) + " bytes as " +
        PixelFormatName(format) + ", above ";
    if (needed > ORBTGetLoadLimit())
    {
        reason = needs + "the load limit of " + std::to_string(ORBTGetLoadLimit()) + " bytes";
        return false;
    }
    if (needed > UINT32_MAX)
    {
        reason = needs + "the " + std::to_string(UINT32_MAX) + " bytes a texture holds";
        return false;
    }

    int w = 0, h = 0, channels = 0;
    void* decoded = nullptr;
    if (channelBytes == 4)
        decoded = stbi_loadf_from_memory(bytes.data(), size, &w, &h, &channels, 4);
    else if (channelBytes == 2)
        decoded = stbi_load_16_from_memory(bytes.data(), size, &w, &h, &channels, 4);
    else
        decoded = stbi_load_from_memory(bytes.data(), size, &w, &h, &channels, 4);
    const std::unique_ptr<void, void (*)(void*)> pixels(decoded, stbi_image_free);
    if (!pixels)
    {
        reason = std::string("cannot decode image: ") + stbi_failure_reason();
        return false;
    }
    bytes = std::vector<unsigned char>();
    // The decoder's own reading of the size rules.
    CORBTextureHeader header(format, uint32_t(h), uint32_t(w));
    header.setChannelType(type);
    header.setColourSpace(colourSpace);
    texture = CORBTexture(header, pixels.get());
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
