#ifndef ORBTEX_CLI_METADATA_TEXT_H
#define ORBTEX_CLI_METADATA_TEXT_H

// Metadata items in words, for orbtex info and the Python package's info.

#include <cstdint>
#include <string>

#include "ORBTextureHeader.h"

namespace cli
{

// A fourCC as 0x followed by eight hexadecimal digits.
std::string FourCCHex(uint32_t fourCC);

// The four characters, those that are not printable as \xHH.
std::string FourCCChars(uint32_t fourCC);

// Decodes the library's own items; empty for anything else.
std::string DescribeOwnItem(const orbtexture::CORBTextureHeader& header, const MetaDataBlock& block);

} // namespace cli

#endif
