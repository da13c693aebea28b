#include "Codecs/ORBTC/ORBTCIIBlockData.h"

#include "Codecs/ORBTC/ORBTCBlockData.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

void ORBTCIIBlockData::setColours(const Pixel<unsigned char>& colourA, const Pixel<unsigned char>& colourB)
{
    const bool opaque = colourA.alpha == 255 && colourB.alpha >= 255;
    colourData = (colourData & (ModulationFlag | HardFlag)) | (opaque ? OpaqueFlag : 0u) |
                 ORBTCBlockData::packColourA(colourA, opaque) | ORBTCBlockData::packColourB(colourB, opaque);
}

Pixel<unsigned char> ORBTCIIBlockData::getColourA() const
{
    // Colour A's fields read as in ORBTC once bit 15 carries the form of bit 31.
    const bool opaque = (colourData & OpaqueFlag) != 0;
    const Pixel32 c = ORBTCExpandColourA((colourData & ~HardFlag) | (opaque ? HardFlag : 0u));
    return Pixel<unsigned char>{c.red, c.green, c.blue, c.alpha};
}

Pixel<unsigned char> ORBTCIIBlockData::getColourB() const
{
    const Pixel32 c = ORBTCExpandColourB(colourData);
    const bool opaque = (colourData & OpaqueFlag) != 0;
    return Pixel<unsigned char>{c.red, c.green, c.blue, static_cast<unsigned char>(opaque ? c.alpha : c.alpha + 1)};
}

} // namespace orbtexture
