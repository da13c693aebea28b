#ifndef ORBTEXTUREKTX_H
#define ORBTEXTUREKTX_H

// Internal: the parser of KTX 1.1 files.

#include <memory>

#include "Files/ORBTextureContainerParser.h"

namespace orbtexture
{

std::unique_ptr<CContainerParser> MakeKTXParser(CByteSource& source);

} // namespace orbtexture

#endif
