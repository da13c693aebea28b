#ifndef ORBTEX_CLI_DXT_SURFACES_H
#define ORBTEX_CLI_DXT_SURFACES_H

// DXT1 to DXT5 for convert. Transcode has no codec for them, so the tool runs
// the block codec itself on every 2D slice of every surface, between these
// formats and r8g8b8a8 ubn.

#include <string>

#include "ORBTexture.h"

namespace cli
{

// The block codec's selector of DXT1 to DXT5 (1 to 5); 0 for other formats.
unsigned DXTSelector(orbtexture::PixelType format);

// Whether convert can write (encode to) or read (decode from) a format: what
// the library transcodes, and DXT1 to DXT5 by the codec.
bool ConvertWrites(orbtexture::PixelType format);
bool ConvertReads(orbtexture::PixelType format);

// Replaces an r8g8b8a8 ubn texture by 'format' (DXT1 to DXT5) of channel type
// 'channelType'; colour space, metadata and sizes stay. With 'dither' each
// surface is first dithered to the format's bit depths. False with a reason
// if a slice's compressed size is not the size the texture holds for it.
bool CompressDXTSurfaces(orbtexture::CORBTexture& texture, orbtexture::PixelType format,
                         orbtexture::EORBTVariableType channelType, bool dither, std::string& reason);

// Replaces a DXT1 to DXT5 texture by r8g8b8a8 ubn of the same colour space.
bool DecompressDXTSurfaces(orbtexture::CORBTexture& texture, std::string& reason);

} // namespace cli

#endif
