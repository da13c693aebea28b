#ifndef ORBTEXTUREKTX2_H
#define ORBTEXTUREKTX2_H

// Internal: the parser of KTX 2.0 files, and the writer's refusals.

#include <memory>

#include "Files/ORBTextureContainerParser.h"

namespace orbtexture
{

class CORBTexture;

std::unique_ptr<CContainerParser> MakeKTX2Parser(CByteSource& source);

// Sets the last error and answers true when 'texture' cannot be written as
// KTX 2.0 at 'zstdLevel' (0: no supercompression).
bool KTX2WriteRefused(const CORBTexture& texture, int zstdLevel);

} // namespace orbtexture

#endif
