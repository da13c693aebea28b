#ifndef ASTCTOOLOUTPUT_H
#define ASTCTOOLOUTPUT_H

// Internal: reading what astcenc writes when it decodes.

#include "ORBTexture.h"

namespace orbtexture
{

// Loads astcenc's decoded KTX file: one level of 8-bit rows with 1 to 4
// channels, a grey image with one (luminance) or two (luminance, alpha). The
// tool writes rows without KTX's padding to 4 bytes; where that makes a
// difference (the size word counts packed rows of a byte count that is no
// multiple of 4) the pixels are read here, anything else by the KTX reader.
// False for a file that does not load; the caller checks the size.
bool LoadDecodedKTX(const char* path, unsigned int width, unsigned int height, unsigned int depth,
                    CORBTexture& texture);

} // namespace orbtexture

#endif
