#ifndef ORBTCIIBLOCKDATA_H
#define ORBTCIIBLOCKDATA_H

// Writable view of one ORBTCII word. Its colour fields are those of ORBTC;
// bit 15 is the block's hard transition flag, and bit 31 the form of both
// colours (1 opaque, 0 translucent).

#include <cstdint>
#include <type_traits>

#include "Codecs/ORBTC/ORBTCFormat.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

struct ORBTCIIBlockData
{
    static const uint32_t ModulationFlag = 1u;
    static const uint32_t HardFlag = 0x8000u;
    static const uint32_t OpaqueFlag = 0x80000000u;

    uint32_t modulationData;
    uint32_t colourData;

    // Both colours opaque only if both alphas are 255, otherwise both
    // translucent. Bits 0 and 15 stay.
    void setColours(const Pixel<unsigned char>& colourA, const Pixel<unsigned char>& colourB);

    // Stored colours expanded to 5-bit colour channels and 4-bit alpha. A
    // translucent B has an odd alpha: its 3 stored bits v give (v << 1) + 1.
    Pixel<unsigned char> getColourA() const;
    Pixel<unsigned char> getColourB() const;
};

static_assert(sizeof(ORBTCIIBlockData) == sizeof(ORBTCWord), "ORBTCIIBlockData must match ORBTCWord");
static_assert(std::is_standard_layout<ORBTCIIBlockData>::value, "ORBTCIIBlockData must be standard layout");

} // namespace orbtexture

#endif
