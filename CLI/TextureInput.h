#ifndef ORBTEX_CLI_TEXTURE_INPUT_H
#define ORBTEX_CLI_TEXTURE_INPUT_H

// Reading the commands' inputs, and bringing them to a pixel type the image
// operations take.

#include <string>

#include "ORBTexture.h"

namespace cli
{

// Loads a texture file (.orb, legacy .orb, .dds, .ktx, .astc) or an image file
// (as LoadImageFile, in 'imageColourSpace'). A .orb whose pixel data end early
// is refused unless 'allowShort'. False with a one-line reason.
bool LoadTextureOrImage(const std::string& path, orbtexture::EORBTColourSpace imageColourSpace, bool allowShort,
                        orbtexture::CORBTexture& texture, std::string& reason);

// The standard pixel type (r8g8b8a8 ubn, r16g16b16a16 usn, r32g32b32a32 uin or
// sf) that holds a texture's values: 8 and 16-bit unsigned normalised layouts
// and 8-bit codecs keep their width, 32-bit unsigned normalised ones stay
// integers, anything signed, unnormalised or floating becomes float.
void StandardTypeFor(const orbtexture::CORBTexture& texture, orbtexture::PixelType& format,
                     orbtexture::EORBTVariableType& channelType);

// Converts a texture to StandardTypeFor's type (DXT through the block codec);
// nothing happens to a texture of a standard type. False with a reason.
bool MakeStandard(orbtexture::CORBTexture& texture, std::string& reason);

} // namespace cli

#endif
