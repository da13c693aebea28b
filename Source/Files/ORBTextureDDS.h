#ifndef ORBTEXTUREDDS_H
#define ORBTEXTUREDDS_H

// Internal: the parser of DirectDraw Surface files, with or without the DX10
// header. The writer is CORBTexture::privateSaveDDSFile.

#include <memory>

#include "Files/ORBTextureContainerParser.h"

namespace orbtexture
{

// The parser of a .dds file or image; it reads nothing until ReadHeader.
std::unique_ptr<CContainerParser> MakeDDSParser(CByteSource& source);

} // namespace orbtexture

#endif
