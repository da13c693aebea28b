#include "Pixels/ORBTPixelByteTables.h"

#include <array>
#include <cstring>
#include <utility>

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

// Pixel table look-ups with the pixel sizes fixed, so that each copy is a
// plain load and store.
template <unsigned SourceBytes, unsigned TargetBytes>
void LookUpPixels(const uint8_t* table, const uint8_t* in, uint8_t* out, size_t count)
{
    for (size_t i = 0; i < count; ++i, in += SourceBytes, out += TargetBytes)
    {
        const size_t index = SourceBytes == 1 ? in[0] : size_t(in[0]) | size_t(in[1]) << 8;
        std::memcpy(out, table + index * TargetBytes, TargetBytes);
    }
}

template <unsigned SourceBytes, unsigned... Sizes>
constexpr std::array<void (*)(const uint8_t*, const uint8_t*, uint8_t*, size_t), sizeof...(Sizes)>
PixelLookUps(std::integer_sequence<unsigned, Sizes...>)
{
    return {&LookUpPixels<SourceBytes, Sizes + 1>...};
}

// Source of 1 or 2 bytes, target of 1 to 16.
auto PixelLookUpFor(unsigned sourceBytes, unsigned targetBytes)
{
    static constexpr auto kOneByte = PixelLookUps<1>(std::make_integer_sequence<unsigned, 16>());
    static constexpr auto kTwoBytes = PixelLookUps<2>(std::make_integer_sequence<unsigned, 16>());
    return (sourceBytes == 1 ? kOneByte : kTwoBytes)[targetBytes - 1];
}

} // namespace

bool CPixelByteTables::Build(PixelType sourceType, EORBTVariableType sourceChannelType, CPixelEncoder& sourceEncoder,
                             CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                             EORBTColourSpace sourceColourSpace, uint64_t pixels)
{
    m_tables.clear();
    m_pixelTable.clear();
    m_pixelLookUp = nullptr;
    // Valid encoders only: an invalid one leaves stale bytes, which no table
    // can reproduce. Targets of up to 16 bytes, all the encoder holds.
    m_targetBytes = targetEncoder.GetColourDataSize();
    if (sourceType.isNamedFormat() || sourceEncoder.GetError() != 0 || targetEncoder.GetError() != 0 ||
        m_targetBytes == 0 || m_targetBytes > 16)
        return false;
    // Channel tables are far cheaper to build, so they go first.
    return BuildChannelTables(sourceType, sourceChannelType, sourceEncoder, targetEncoder, targetColourSpace,
                              sourceColourSpace) ||
           BuildPixelTable(sourceEncoder, targetEncoder, targetColourSpace, sourceColourSpace, pixels);
}

bool CPixelByteTables::BuildChannelTables(PixelType sourceType, EORBTVariableType sourceChannelType,
                                          CPixelEncoder& sourceEncoder, CPixelEncoder& targetEncoder,
                                          EORBTColourSpace targetColourSpace, EORBTColourSpace sourceColourSpace)
{
    // Sources of one to four whole 8-bit elements.
    if (sourceChannelType > eVarSignedByte)
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
    if (channels == 0 || sourceEncoder.GetColourDataSize() != channels)
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

bool CPixelByteTables::BuildPixelTable(CPixelEncoder& sourceEncoder, CPixelEncoder& targetEncoder,
                                       EORBTColourSpace targetColourSpace, EORBTColourSpace sourceColourSpace,
                                       uint64_t pixels)
{
    // An entry costs one conversion through the encoders, as much as a pixel
    // converted directly, and reading one is over ten times cheaper. From as
    // many pixels as entries on the table costs about what the encoders would,
    // and the larger the texture the nearer it comes to the look-up's speed;
    // below that a 16-bit source would pay for conversions it never uses. At
    // most 65536 entries of 16 bytes: a megabyte.
    m_sourceBytes = sourceEncoder.GetColourDataSize();
    if (m_sourceBytes == 0 || m_sourceBytes > 2)
        return false;
    const size_t entries = size_t(1) << (8 * m_sourceBytes);
    if (pixels < entries)
        return false;

    // The encoders' result depends on the pixel alone: EncodeFrom clears the
    // target first, and the source's bytes past the pixel never change.
    m_pixelTable.resize(entries * m_targetBytes);
    uint8_t pixel[16] = {}, result[16];
    for (size_t value = 0; value < entries; ++value)
    {
        // Entries are indexed by the pixel's bytes read little-endian.
        pixel[0] = uint8_t(value);
        pixel[1] = uint8_t(value >> 8);
        Encode(pixel, sourceEncoder, targetEncoder, targetColourSpace, sourceColourSpace, result);
        std::memcpy(&m_pixelTable[value * m_targetBytes], result, m_targetBytes);
    }
    m_pixelLookUp = PixelLookUpFor(m_sourceBytes, m_targetBytes);
    return true;
}

void CPixelByteTables::Convert(const uint8_t* in, uint8_t* out, size_t count) const
{
    if (m_pixelLookUp != nullptr)
        m_pixelLookUp(m_pixelTable.data(), in, out, count);
    else
        ConvertChannels(in, out, count);
}

void CPixelByteTables::ConvertChannels(const uint8_t* in, uint8_t* out, size_t count) const
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
