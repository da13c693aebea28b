#include "Codecs/ORBTC/ORBTCBlockData.h"

namespace orbtexture
{

namespace
{

inline unsigned char expand4(uint32_t v) { return static_cast<unsigned char>((v << 1) | (v >> 3)); }
inline unsigned char expand3(uint32_t v) { return static_cast<unsigned char>((v << 2) | (v >> 1)); }

} // namespace

Pixel<unsigned char> ORBTCBlockData::getColourA() const
{
    Pixel<unsigned char> c;
    if (colourData & 0x8000u)
    {
        c.red = static_cast<unsigned char>((colourData >> 10) & 0x1f);
        c.green = static_cast<unsigned char>((colourData >> 5) & 0x1f);
        c.blue = expand4((colourData >> 1) & 0xf);
        c.alpha = 15;
    }
    else
    {
        c.red = expand4((colourData >> 8) & 0xf);
        c.green = expand4((colourData >> 4) & 0xf);
        c.blue = expand3((colourData >> 1) & 0x7);
        c.alpha = static_cast<unsigned char>(((colourData >> 12) & 0x7) << 1);
    }
    return c;
}

Pixel<unsigned char> ORBTCBlockData::getColourB() const
{
    Pixel<unsigned char> c;
    if (colourData & 0x80000000u)
    {
        c.red = static_cast<unsigned char>((colourData >> 26) & 0x1f);
        c.green = static_cast<unsigned char>((colourData >> 21) & 0x1f);
        c.blue = static_cast<unsigned char>((colourData >> 16) & 0x1f);
        c.alpha = 15;
    }
    else
    {
        c.red = expand4((colourData >> 24) & 0xf);
        c.green = expand4((colourData >> 20) & 0xf);
        c.blue = expand4((colourData >> 16) & 0xf);
        c.alpha = static_cast<unsigned char>(((colourData >> 28) & 0x7) << 1);
    }
    return c;
}

void ORBTCBlockData::setColourA(const Pixel<unsigned char>& colour)
{
    uint32_t bits;
    if (colour.alpha == 255)
        bits = 0x8000u | (uint32_t(colour.red >> 3) << 10) | (uint32_t(colour.green >> 3) << 5) |
               (uint32_t(colour.blue >> 4) << 1);
    else
        bits = (uint32_t(colour.alpha >> 5) << 12) | (uint32_t(colour.red >> 4) << 8) |
               (uint32_t(colour.green >> 4) << 4) | (uint32_t(colour.blue >> 5) << 1);
    colourData = (colourData & ~0xfffeu) | bits;
}

void ORBTCBlockData::setColourB(const Pixel<unsigned char>& colour)
{
    uint32_t bits;
    if (colour.alpha == 255)
        bits = 0x80000000u | (uint32_t(colour.red >> 3) << 26) | (uint32_t(colour.green >> 3) << 21) |
               (uint32_t(colour.blue >> 3) << 16);
    else
        bits = (uint32_t(colour.alpha >> 5) << 28) | (uint32_t(colour.red >> 4) << 24) |
               (uint32_t(colour.green >> 4) << 20) | (uint32_t(colour.blue >> 4) << 16);
    colourData = (colourData & 0xffffu) | bits;
}

void ORBTCBlockData::storeModulationValue4BPP(unsigned int x, unsigned int y, unsigned int value)
{
    const unsigned int shift = 2 * (x + 4 * y);
    modulationData = (modulationData & ~(3u << shift)) | ((value & 3u) << shift);
}

} // namespace orbtexture
