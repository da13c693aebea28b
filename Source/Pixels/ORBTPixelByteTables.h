#ifndef ORBTPIXELBYTETABLES_H
#define ORBTPIXELBYTETABLES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ORBTPixelConversion.h"

namespace orbtexture
{

// Table-driven forms of the pixel loop; every entry is the encoders' own
// result, so the output is byte for byte that of the loop.
//
// Channel tables, for sources of 8-bit channels: where each source channel
// alone decides its own bits of the target pixel (no luminance or intensity
// is computed from several channels), the target pixel is a constant XOR one
// table entry per source channel, 256 entries a channel.
//
// Pixel table, for sources of one or two bytes a pixel of any layout and
// channel type: one entry per source pixel value (256 or 65536), built only
// when the texture has at least that many pixels.
//
// Build refuses anything else, and the caller then runs the encoders pixel by
// pixel.
class CPixelByteTables
{
public:
    // 'pixels' is how many pixels the caller will convert with the tables.
    bool Build(PixelType sourceType, EORBTVariableType sourceChannelType, CPixelEncoder& sourceEncoder,
               CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
               EORBTColourSpace sourceColourSpace, uint64_t pixels);
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const;

private:
    struct Entry
    {
        uint64_t low;
        uint64_t high;
    };
    using PixelLookUp = void (*)(const uint8_t* table, const uint8_t* in, uint8_t* out, size_t count);

    bool BuildChannelTables(PixelType sourceType, EORBTVariableType sourceChannelType, CPixelEncoder& sourceEncoder,
                            CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                            EORBTColourSpace sourceColourSpace);
    bool BuildPixelTable(CPixelEncoder& sourceEncoder, CPixelEncoder& targetEncoder,
                         EORBTColourSpace targetColourSpace, EORBTColourSpace sourceColourSpace, uint64_t pixels);
    void ConvertChannels(const uint8_t* in, uint8_t* out, size_t count) const;

    unsigned m_sourceBytes = 0;
    unsigned m_targetBytes = 0;
    Entry m_base = {0, 0};
    std::vector<Entry> m_tables;       // channel tables: 256 entries per source channel
    std::vector<uint8_t> m_pixelTable; // pixel table: target pixels, m_targetBytes apart
    PixelLookUp m_pixelLookUp = nullptr;
};

} // namespace orbtexture

#endif
