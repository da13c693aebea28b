#ifndef ORBTEX_CLI_FORMAT_NAMES_H
#define ORBTEX_CLI_FORMAT_NAMES_H

#include <cstdint>
#include <string>

namespace cli
{

// A named format by its enumerator name without "ePF_" (ETC2_RGB), a channel
// layout as letters and widths (r8g8b8a8, r5g6b5).
std::string PixelFormatName(uint64_t pixelFormat);

// Enumerator name without "eVar" (UnsignedByteNorm).
std::string ChannelTypeName(uint32_t channelType);

std::string ColourSpaceName(uint32_t colourSpace);

} // namespace cli

#endif
