#ifndef ORBTCII4BPPCOMPRESSOR_H
#define ORBTCII4BPPCOMPRESSOR_H

// Iterative compressor of 4bpp ORBTCII: the 4bpp ORBTC block logic with hard
// flags and ORBTCII words.

#include "Codecs/ORBTC/ORBTC4bppCompressor.h"
#include "Codecs/ORBTC/ORBTCIICompressor.h"

namespace orbtexture
{

typedef ORBTC4bppCompressorT<ORBTCIICompressor> ORBTCII4bppCompressor;
extern template class ORBTC4bppCompressorT<ORBTCIICompressor>;

} // namespace orbtexture

#endif
