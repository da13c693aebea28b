#ifndef ORBTEX_CLI_CHANNEL_TYPE_DEFAULT_H
#define ORBTEX_CLI_CHANNEL_TYPE_DEFAULT_H

#include "ORBTextureFormat.h"

namespace cli
{

// The channel type a layout gets when none is asked for (orbtex convert and
// the Python package's convert): the source's for a named format or when it
// suits the layout's widths, unsigned float for 10- and 11-bit layouts, else
// unsigned normalised of the widest channel's element.
orbtexture::EORBTVariableType DefaultChannelType(orbtexture::PixelType target, orbtexture::EORBTVariableType source);

} // namespace cli

#endif
