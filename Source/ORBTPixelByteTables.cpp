#include "ORBTPixelByteTables.h"

#include <cstring>

namespace orbtexture
{

namespace
{

// The target pixel the encoders make of one source pixel, zero-extended to 16 bytes.
void Encode(const uint8_t* source, CPixelEncoder& sourceEncoder, CPixelEncoder& targetEncoder,
            EORBTColourSpace targetColourSpace, EORBTColourSpace sourceColourSpace, uint8_t result[16])
{
    sourceEncoder.OverwriteColourData(source);
    targetEncoder.EncodeFrom(sourceEncoder);
    targetEncoder.ConvertToColourSpace(targetColourSpace, sourceColourSpace);
    std::memset(result, 0, 16);
    std::memcpy(result, targetEncoder.GetColourData(), targetEncoder.GetColourDataSize());
}

} // namespace

bool CPixelByteTables::Build(PixelType sourceType, EORBTVariableType sourceChannelType, CPixelEncoder& sourceEncoder,
                             CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                             EORBTColourSpace sourceColourSpace)
{
    m_tables.clear();
    // Sources of one to four whole 8-bit elements; valid encoders (an invalid
    // one leaves stale bytes, which no table can reproduce).
    if (sourceType.isNamedFormat() || sourceChannelType > eVarSignedByte || sourceEncoder.GetError() != 0 ||
        targetEncoder.GetError() != 0)
        return false;
    unsigned channels = 0;
    for (unsigned p = 0; p < 4; ++p)
        if (sourceType.channelName(p) != 0)
        {
            if (sourceType.channelBits(p) != 8)
                return false;
            ++channels;
        }
    m_sourceBytes = channels;
    m_targetBytes = targetEncoder.GetColourDataSize();
    if (channels == 0 || sourceEncoder.GetColourDataSize() != channels || m_targetBytes == 0 || m_targetBytes > 16)
        return false;

    uint8_t pixel[16] = {}, result[16];
    Encode(pixel, sourceEncoder, targetEncoder, targetColourSpace, sourceColourSpace, result);
    std::memcpy(&m_base, result, 16);

    // Each channel's entries hold the bits that differ from the base; the bits
    // a channel ever changes must not be changed by any other channel.
    m_tables.resize(size_t(channels) * 256);
    Entry used = {0, 0};
    for (unsigned c = 0; c < channels; ++c)
    {
        Entry changed = {0, 0};
        for (unsigned value = 0; value < 256; ++value)
        {
            std::memset(pixel, 0, sizeof pixel);
            pixel[c] = uint8_t(value);
            Encode(pixel, sourceEncoder, targetEncoder, targetColourSpace, sourceColourSpace, result);
            Entry& entry = m_tables[c * 256 + value];
            std::memcpy(&entry, result, 16);
            entry.low ^= m_base.low;
            entry.high ^= m_base.high;
            changed.low |= entry.low;
            changed.high |= entry.high;
        }
        if ((changed.low & used.low) != 0 || (changed.high & used.high) != 0)
        {
            m_tables.clear();
            return false;
        }
        used.low |= changed.low;
        used.high |= changed.high;
    }
    return true;
}

void CPixelByteTables::Convert(const uint8_t* in, uint8_t* out, size_t count) const
{
    const Entry* tables = m_tables.data();
    for (size_t i = 0; i < count; ++i, in += m_sourceBytes, out += m_targetBytes)
    {
        Entry pixel = m_base;
        for (unsigned c = 0; c < m_sourceBytes; ++c)
        {
            const Entry& entry = tables[c * 256 + in[c]];
            pixel.low ^= entry.low;
            pixel.high ^= entry.high;
        }
        if (m_targetBytes <= 8)
        {
            uint8_t bytes[8];
            std::memcpy(bytes, &pixel.low, 8);
            std::memcpy(out, bytes, m_targetBytes);
        }
        else
        {
            uint8_t bytes[16];
            std::memcpy(bytes, &pixel, 16);
            std::memcpy(out, bytes, m_targetBytes);
        }
    }
}

} // namespace orbtexture
