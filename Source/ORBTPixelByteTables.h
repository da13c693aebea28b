#ifndef ORBTPIXELBYTETABLES_H
#define ORBTPIXELBYTETABLES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ORBTPixelConversion.h"

namespace orbtexture
{

// Table-driven form of the pixel loop for sources of 8-bit channels. Where
// each source channel alone decides its own bits of the target pixel (no
// luminance or intensity is computed from several channels), the target pixel
// is a constant XOR one table entry per source channel, the tables being the
// encoder's own results for the 256 values of that channel. Build refuses any
// other pair, and the caller then runs the encoders pixel by pixel.
class CPixelByteTables
{
public:
    bool Build(PixelType sourceType, EORBTVariableType sourceChannelType, CPixelEncoder& sourceEncoder,
               CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
               EORBTColourSpace sourceColourSpace);
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const;

private:
    struct Entry
    {
        uint64_t low;
        uint64_t high;
    };

    unsigned m_sourceBytes = 0;
    unsigned m_targetBytes = 0;
    Entry m_base = {0, 0};
    std::vector<Entry> m_tables; // 256 entries per source channel
};

} // namespace orbtexture

#endif
