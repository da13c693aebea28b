#ifndef ORBTEXTUREASTCFILE_H
#define ORBTEXTUREASTCFILE_H

// Internal: the parser of .astc files (16-byte header, one surface of blocks).

#include <memory>

#include "Files/ORBTextureContainerParser.h"

namespace orbtexture
{

std::unique_ptr<CContainerParser> MakeASTCParser(CByteSource& source);

} // namespace orbtexture

#endif
