#include "ORBTextureNativeParser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

#include "ORBTextureFormat.h"
#include "ORBTextureFormatTable.h"
#include "ORBTextureSizeRules.h"

namespace orbtexture
{

namespace
{

// Legacy headers start with their own size.
constexpr uint32_t kLegacyHeaderV2Size = 52;
constexpr uint32_t kLegacyHeaderV1Size = 44;

// What a metadata item costs in memory beyond its data, counted against the
// load limit so that a file of many tiny items cannot cost many times its
// size: the block record, its key and its allocation; and for the first item
// of a fourCC, the map that holds that fourCC's items (16 slots at least).
constexpr uint64_t kItemOverhead = 64;
constexpr uint64_t kFourCCOverhead = 512;

} // namespace

CNativeFileParser::CNativeFileParser(CByteSource& source, EMetaDataWalk walk) : m_source(source), m_walk(walk)
{
    SetLastErrorText("");
    SetLastLoadShortfall(0);
}

ELoadReason CNativeFileParser::ReadFailure(ELoadReason atEnd)
{
    if (m_source.Error() == EISDIR)
        return SetLoadError(eLoadIsDirectory);
    if (m_source.Failed())
        return SetLoadError(eLoadReadError, std::strerror(m_source.Error()));
    return SetLoadError(atEnd);
}

ELoadReason CNativeFileParser::ReadHeader(CORBTextureHeader& header)
{
    ORBTextureHeaderV3 record;
    uint32_t word;
    if (!m_source.ReadWord(word))
        return ReadFailure(eLoadTooShort);
    if (word == kLegacyHeaderV2Size || word == kLegacyHeaderV1Size)
        return SetLoadError(eLoadLegacyUnsupported, word == kLegacyHeaderV2Size ? 2u : 1u);
    if (word != ORBTEX_VERSION_3)
        return SetLoadError(eLoadNotATexture, word);
    record.version = word;
    if (!m_source.ReadExact(reinterpret_cast<uint8_t*>(&record) + 4, ORBTEX_V3_HEADER_SIZE - 4))
        return ReadFailure(eLoadTruncatedHeader);
    const uint32_t declared = record.metaDataSize;
    record.metaDataSize = 0;

    // Everything the header alone decides, before any allocation.
    if (HasOversizedChannel(PixelType(record.pixelFormat)))
        return SetLoadError(eLoadOversizedChannel);
    if (record.numMIPMaps == 0 || record.numSurfaces == 0 || record.numFaces == 0)
        return SetLoadError(eLoadNoSurfaces);
    if (!CheckedTotalDataSize(record, m_dataSize))
        return SetLoadError(eLoadTooLarge);
    if (m_dataSize == 0)
        return SetLoadError(eLoadUnknownSize, ORBTGetPixelFormatName(record.pixelFormat).c_str());

    std::vector<MetaDataBlock> blocks;
    const ELoadReason walked = WalkMetaData(declared, blocks);
    if (walked != eLoadOK)
        return walked;
    header = CORBTextureHeader(record, unsigned(blocks.size()), blocks.data());
    return eLoadOK;
}

ELoadReason CNativeFileParser::WalkMetaData(uint32_t declared, std::vector<MetaDataBlock>& blocks)
{
    const uint64_t limit = ORBTGetLoadLimit();
    std::unordered_set<uint32_t> fourCCs;
    uint64_t consumed = 0;
    while (declared != 0)
    {
        uint8_t words[ORBTEX_METADATA_BLOCK_HEADER_SIZE];
        if (!m_source.ReadExact(words, sizeof words))
            return ReadFailure(eLoadMetaDataTruncated);
        MetaDataBlock block;
        std::memcpy(&block.fourCC, words, 4);
        std::memcpy(&block.key, words + 4, 4);
        std::memcpy(&block.dataSize, words + 8, 4);
        const bool fileWalk = m_walk == EMetaDataWalk::File;
        // A file cannot hold an empty block: reading it counts as a failed read.
        if (fileWalk && block.dataSize == 0)
            return SetLoadError(eLoadMetaDataEmpty, block.fourCC, block.key);
        if (block.dataSize > m_source.Remaining())
            return SetLoadError(eLoadMetaDataPastEnd, block.fourCC, block.key);

        consumed += ORBTEX_METADATA_BLOCK_HEADER_SIZE + uint64_t(block.dataSize);
        if (fileWalk && declared < consumed)
        {
            // Runs past the declared area: dropped, and the pixel data start
            // at its header. Its data must still be in the file.
            std::memcpy(m_prefix, words, sizeof words);
            m_prefixSize = sizeof words;
            m_mustHold = ORBTEX_METADATA_BLOCK_HEADER_SIZE + uint64_t(block.dataSize);
            m_droppedFourCC = block.fourCC;
            m_droppedKey = block.key;
            break;
        }
        if (consumed > 0xFFFFFFFFu)
            return SetLoadError(eLoadTooLarge);
        m_metaDataBytes += block.dataSize + kItemOverhead;
        if (fourCCs.insert(block.fourCC).second)
            m_metaDataBytes += kFourCCOverhead;
        if (m_metaDataBytes > limit)
            return SetLoadError(eLoadOverLimit, (unsigned long long)m_metaDataBytes, (unsigned long long)limit);
        if (block.dataSize)
        {
            block.data = new uint8_t[block.dataSize];
            if (!m_source.ReadExact(block.data, block.dataSize))
                return m_source.Failed() ? ReadFailure(eLoadReadError)
                                         : SetLoadError(eLoadMetaDataPastEnd, block.fourCC, block.key);
        }
        blocks.push_back(std::move(block));
        if (consumed >= declared)
            break;
    }
    return eLoadOK;
}

ELoadReason CNativeFileParser::CheckLoadLimit()
{
    const uint64_t limit = ORBTGetLoadLimit();
    const uint64_t needed = m_metaDataBytes + m_dataSize;
    if (needed > limit)
        return SetLoadError(eLoadOverLimit, (unsigned long long)needed, (unsigned long long)limit);
    return eLoadOK;
}

ELoadReason CNativeFileParser::FinishData(uint64_t held, uint64_t& missing)
{
    if (m_source.Failed())
        return ReadFailure(eLoadReadError);
    if (held < m_mustHold && m_source.Skip(m_mustHold - held) < m_mustHold - held)
        return SetLoadError(eLoadMetaDataPastEnd, m_droppedFourCC, m_droppedKey);
    const uint64_t present = std::min(held, m_dataSize);
    if (present == 0)
        return SetLoadError(eLoadNoPixelData);
    missing = m_dataSize - present;
    return eLoadOK;
}

ELoadReason CNativeFileParser::ReadData(uint8_t* destination, uint64_t& missing)
{
    const size_t total = size_t(m_dataSize);
    const size_t prefix = std::min<size_t>(m_prefixSize, total);
    std::memcpy(destination, m_prefix, prefix);
    const size_t read = prefix + m_source.Read(destination + prefix, total - prefix);
    std::memset(destination + read, 0, total - read);
    return FinishData(read + (m_prefixSize - prefix), missing);
}

ELoadReason CNativeFileParser::CountData(uint64_t& missing)
{
    const uint64_t prefix = std::min<uint64_t>(m_prefixSize, m_dataSize);
    return FinishData(m_prefixSize + m_source.Skip(m_dataSize - prefix), missing);
}

} // namespace orbtexture
