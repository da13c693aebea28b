#ifndef ORBTEXTURELEGACYFILE_H
#define ORBTEXTURELEGACYFILE_H

// Internal: the parser of legacy .orb files and memory images.

#include <cstdint>
#include <memory>

#include "Files/ORBTextureContainerParser.h"

namespace orbtexture
{

// 'headerSize' is the first word, already read: 44 or 52. A memory image
// holds array member 0 only.
std::unique_ptr<CContainerParser> MakeLegacyORBParser(CByteSource& source, EMetaDataWalk walk, uint32_t headerSize);

} // namespace orbtexture

#endif
