#include "Codecs/ORBTC/ORBTCBlockData.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

namespace
{

Pixel<unsigned char> ToPixel(const Pixel32& c) { return Pixel<unsigned char>{c.red, c.green, c.blue, c.alpha}; }

} // namespace

Pixel<unsigned char> ORBTCBlockData::getColourA() const { return ToPixel(ORBTCExpandColourA(colourData)); }

Pixel<unsigned char> ORBTCBlockData::getColourB() const { return ToPixel(ORBTCExpandColourB(colourData)); }

uint32_t ORBTCBlockData::packColourA(const Pixel<unsigned char>& colour, bool opaque)
{
    if (opaque)
        return (uint32_t(colour.red >> 3) << 10) | (uint32_t(colour.green >> 3) << 5) |
               (uint32_t(colour.blue >> 4) << 1);
    return (uint32_t(colour.alpha >> 5) << 12) | (uint32_t(colour.red >> 4) << 8) | (uint32_t(colour.green >> 4) << 4) |
           (uint32_t(colour.blue >> 5) << 1);
}

uint32_t ORBTCBlockData::packColourB(const Pixel<unsigned char>& colour, bool opaque)
{
    if (opaque)
        return (uint32_t(colour.red >> 3) << 26) | (uint32_t(colour.green >> 3) << 21) |
               (uint32_t(colour.blue >> 3) << 16);
    return (uint32_t(colour.alpha >> 5) << 28) | (uint32_t(colour.red >> 4) << 24) |
           (uint32_t(colour.green >> 4) << 20) | (uint32_t(colour.blue >> 4) << 16);
}

void ORBTCBlockData::setColourA(const Pixel<unsigned char>& colour)
{
    const bool opaque = colour.alpha == 255;
    colourData = (colourData & ~0xfffeu) | (opaque ? 0x8000u : 0u) | packColourA(colour, opaque);
}

void ORBTCBlockData::setColourB(const Pixel<unsigned char>& colour)
{
    const bool opaque = colour.alpha == 255;
    colourData = (colourData & 0xffffu) | (opaque ? 0x80000000u : 0u) | packColourB(colour, opaque);
}

void ORBTCBlockData::storeModulationValue4BPP(unsigned int x, unsigned int y, unsigned int value)
{
    const unsigned int shift = 2 * (x + 4 * y);
    modulationData = (modulationData & ~(3u << shift)) | ((value & 3u) << shift);
}

} // namespace orbtexture
