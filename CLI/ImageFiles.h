#ifndef ORBTEX_CLI_IMAGE_FILES_H
#define ORBTEX_CLI_IMAGE_FILES_H

#include <string>
#include <vector>

#include "ORBTexture.h"

namespace cli
{

// Lower-case extension with its dot ("" if none).
std::string FileExtension(const std::string& path);

// PNG, JPEG, TGA, BMP, PSD, GIF and HDR files are read.
bool IsReadableImageExtension(const std::string& extension);
// PNG, TGA and BMP files are written.
bool IsWritableImageExtension(const std::string& extension);

// Loads an image file as one rgba surface: 8-bit images as r8g8b8a8 unsigned
// byte norm, 16-bit ones as r16g16b16a16 unsigned short norm, HDR as
// r32g32b32a32 signed float. Grey and grey-alpha images are expanded.
bool LoadImageFile(const std::string& path, orbtexture::EORBTColourSpace colourSpace,
                   orbtexture::CORBTexture& texture, std::string& reason);

// The same for an image file's bytes (released once decoded).
bool LoadImageBytes(std::vector<unsigned char>& bytes, orbtexture::EORBTColourSpace colourSpace,
                    orbtexture::CORBTexture& texture, std::string& reason);

// Writes width x height r8g8b8a8 pixels as the image type of 'extension'.
bool WriteImageFile(const std::string& path, const std::string& extension, const unsigned char* pixels,
                    unsigned width, unsigned height, std::string& reason);

} // namespace cli

#endif
