#ifndef ORBTEX_CLI_FORMAT_NAMES_H
#define ORBTEX_CLI_FORMAT_NAMES_H

#include <cstdint>
#include <string>

#include "ORBTexture.h"

namespace cli
{

// Thin std::string forms of the library's name look-ups, with the tool's
// wording for what has no name.

// A named format by its enumerator name without "ePF_" (ETC2_RGB), a channel
// layout as letters and widths (r8g8b8a8, r5g6b5).
std::string PixelFormatName(uint64_t pixelFormat);

// Enumerator name without "eVar" (UnsignedByteNorm).
std::string ChannelTypeName(uint32_t channelType);

std::string ColourSpaceName(uint32_t colourSpace);

// Reads a format name as ORBTGetPixelFormatFromName does, and the block
// compression names BC1, BC2 and BC3 (DXT1, DXT3, DXT5) in any case; false
// with a reason otherwise.
bool ParsePixelFormat(const std::string& name, uint64_t& pixelFormat, std::string& reason);

// The other name ParsePixelFormat reads for a named format (BC1 for DXT1);
// null if it has none.
const char* PixelFormatAlias(uint64_t pixelFormat);

// Reads a channel type by its short name (ubn) or its enumerator name without
// "eVar" (UnsignedByteNorm), in any case.
bool ParseChannelType(const std::string& name, uint32_t& channelType);

// Short name of a channel type, as ParseChannelType reads it.
std::string ChannelTypeShortName(uint32_t channelType);

// Bits a pixel as stored: the data's bits over the pixels of every surface,
// with two decimals when not whole ("8", "3.56").
std::string StoredBitsPerPixel(const orbtexture::CORBTexture& texture);

// Format and short channel type ("ETC1 ubn", "r8g8b8a8 sf").
std::string FormatAndTypeName(uint64_t pixelFormat, uint32_t channelType);

} // namespace cli

#endif
