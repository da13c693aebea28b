#include "Files/ORBTextureNativeParser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

#include "Files/ORBTextureLegacyFile.h"
#include "Model/ORBTextureFormatFacts.h"
#include "Model/ORBTextureSizeRules.h"
#include "ORBTextureFormat.h"
#include "ORBTextureLegacy.h"

namespace orbtexture
{

namespace
{

// What a metadata item costs in memory beyond its data, counted against the
// load limit so that a file of many tiny items cannot cost many times its
// size: the block record, its key and its allocation; and for the first item
// of a fourCC, the map that holds that fourCC's items (16 slots at least).
constexpr uint64_t kItemOverhead = 64;
constexpr uint64_t kFourCCOverhead = 512;

} // namespace

std::unique_ptr<CContainerParser> OpenORBParser(CByteSource& source, EMetaDataWalk walk)
{
    SetLastErrorText("");
    SetLastLoadShortfall(0);
    uint32_t word;
    if (!source.ReadWord(word))
    {
        if (source.Error() == EISDIR)
        {
            SetLoadError(eLoadIsDirectory);
            SetLastErrno(EISDIR);
        }
        else if (source.Failed())
        {
            SetLoadError(eLoadReadError, std::strerror(source.Error()));
            SetLastErrno(source.Error());
        }
        else
            SetLoadError(eLoadTooShort);
        return nullptr;
    }
    if (word == ORBTEX_VERSION_3)
        return std::unique_ptr<CContainerParser>(new CNativeFileParser(source, walk, word));
    if (word == ORBTEX_LEGACY_V2_HEADER_SIZE || word == ORBTEX_LEGACY_V1_HEADER_SIZE)
        return MakeLegacyORBParser(source, walk, word);
    SetLoadError(eLoadNotATexture, word);
    return nullptr;
}

CNativeFileParser::CNativeFileParser(CByteSource& source, EMetaDataWalk walk, uint32_t firstWord)
    : CContainerParser(source), m_walk(walk), m_firstWord(firstWord)
{
}

ELoadReason CNativeFileParser::ReadHeader(CORBTextureHeader& header)
{
    ORBTextureHeaderV3 record;
    record.version = m_firstWord;
    if (!m_source.ReadExact(reinterpret_cast<uint8_t*>(&record) + 4, ORBTEX_V3_HEADER_SIZE - 4))
        return ReadFailure(eLoadTruncatedHeader);
    AddField("version", "0x%08X", record.version);
    AddField("flags", "0x%08X", record.flags);
    AddField("pixelFormat", "0x%016llX", (unsigned long long)record.pixelFormat);
    AddField("colourSpace", "%u", record.colourSpace);
    AddField("channelType", "%u", record.channelType);
    AddField("height", "%u", record.height);
    AddField("width", "%u", record.width);
    AddField("depth", "%u", record.depth);
    AddField("numSurfaces", "%u", record.numSurfaces);
    AddField("numFaces", "%u", record.numFaces);
    AddField("numMIPMaps", "%u", record.numMIPMaps);
    AddField("metaDataSize", "%u", record.metaDataSize);
    const uint32_t declared = record.metaDataSize;
    record.metaDataSize = 0;

    // Everything the header alone decides, before any allocation. Deep MIP
    // chains are the native file's to keep.
    const ELoadReason checked = CheckHeader(CORBTextureHeader(record), false);
    if (checked != eLoadOK)
        return checked;

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

ELoadReason CNativeFileParser::ReadData(uint8_t* block, uint64_t& missing)
{
    const uint64_t total = m_dataSize;
    const uint64_t prefix = std::min<uint64_t>(m_prefixSize, total);
    if (!block)
        return FinishData(m_prefixSize + m_source.Skip(total - prefix), missing);
    std::memcpy(block, m_prefix, size_t(prefix));
    const size_t read = size_t(prefix) + m_source.Read(block + prefix, size_t(total - prefix));
    std::memset(block + read, 0, size_t(total) - read);
    return FinishData(read + (m_prefixSize - prefix), missing);
}

} // namespace orbtexture
