#ifndef ORBTCII2BPPCOMPRESSOR_H
#define ORBTCII2BPPCOMPRESSOR_H

// Iterative compressor of 2bpp ORBTCII: the 2bpp ORBTC block logic with hard
// flags and ORBTCII words.

#include "Codecs/ORBTC/ORBTC2bppCompressor.h"
#include "Codecs/ORBTC/ORBTCIICompressor.h"

namespace orbtexture
{

typedef ORBTC2bppCompressorT<ORBTCIICompressor> ORBTCII2bppCompressor;
extern template class ORBTC2bppCompressorT<ORBTCIICompressor>;

} // namespace orbtexture

#endif
