#ifndef ORBTCBLOCKDATA_H
#define ORBTCBLOCKDATA_H

// Writable view of one ORBTC word, as the class compressors produce it.

#include <cstdint>
#include <type_traits>

#include "Codecs/ORBTC/ORBTCFormat.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

// Same layout as ORBTCWord: an array of these is the compressed image.
struct ORBTCBlockData
{
    uint32_t modulationData;
    uint32_t colourData;

    // Stored colours expanded to 5-bit colour channels and 4-bit alpha.
    Pixel<unsigned char> getColourA() const;
    Pixel<unsigned char> getColourB() const;

    // Quantise an 8-bit colour by cutting low bits. Alpha 255 selects the
    // opaque form, anything else the translucent one. Only the colour's own
    // bits (15..1 for A, 31..16 for B) change.
    void setColourA(const Pixel<unsigned char>& colour);
    void setColourB(const Pixel<unsigned char>& colour);

    // Two-bit code of pixel (x, y) of a 4 x 4 block.
    void storeModulationValue4BPP(unsigned int x, unsigned int y, unsigned int value);

    // The fields of colour A (bits 14..1) or colour B (bits 30..16) in the
    // opaque or translucent form, low bits cut; no form bit.
    static uint32_t packColourA(const Pixel<unsigned char>& colour, bool opaque);
    static uint32_t packColourB(const Pixel<unsigned char>& colour, bool opaque);
};

static_assert(sizeof(ORBTCBlockData) == sizeof(ORBTCWord), "ORBTCBlockData must match ORBTCWord");
static_assert(std::is_standard_layout<ORBTCBlockData>::value, "ORBTCBlockData must be standard layout");

} // namespace orbtexture

#endif
