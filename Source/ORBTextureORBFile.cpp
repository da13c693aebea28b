// Native .orb files and memory images: 52-byte header, metadata blocks, data.

#include <cstring>

#include "ORBTexture.h"
#include "ORBTextureSizeRules.h"

namespace orbtexture
{

namespace
{

// Legacy headers start with their own size.
constexpr uint32_t kLegacyHeaderV2Size = 52;
constexpr uint32_t kLegacyHeaderV1Size = 44;

// Bytes from the current position to the end of the file, or UINT64_MAX if
// the stream cannot tell.
uint64_t BytesRemaining(FILE* file)
{
    const long position = std::ftell(file);
    if (position < 0 || std::fseek(file, 0, SEEK_END) != 0)
        return UINT64_MAX;
    const long end = std::ftell(file);
    std::fseek(file, position, SEEK_SET);
    return end >= position ? uint64_t(end - position) : UINT64_MAX;
}

bool ReadWord(FILE* file, uint32_t& word) { return std::fread(&word, 4, 1, file) == 1; }

uint32_t LoadWord(const uint8_t* p)
{
    uint32_t word;
    std::memcpy(&word, p, 4);
    return word;
}

} // namespace

bool CORBTexture::privateLoadORBFile(FILE* file)
{
    if (!file)
        return false;
    uint32_t word;
    const bool haveWord = ReadWord(file, word);
    std::fseek(file, 0, SEEK_SET);
    if (!haveWord)
        return false;

    if (word == kLegacyHeaderV2Size || word == kLegacyHeaderV1Size)
        return false; // legacy headers are not read by this build
    if (word != ORBTEX_VERSION_3)
        return false;

    if (std::fread(&m_sHeader, ORBTEX_V3_HEADER_SIZE, 1, file) != 1)
        return false;
    const uint32_t declaredMetaDataSize = m_sHeader.metaDataSize;
    m_sHeader.metaDataSize = 0;

    uint64_t totalDataSize;
    if (!CheckedTotalDataSize(m_sHeader, totalDataSize))
        return false;

    // Metadata blocks until the declared area is used up. A block that runs
    // past the declared area is dropped and ends the walk; the pixel data then
    // start after the blocks that were kept.
    while (declaredMetaDataSize != 0)
    {
        uint32_t fourCC, key, dataSize;
        if (!ReadWord(file, fourCC) || !ReadWord(file, key) || !ReadWord(file, dataSize))
            return false;
        // An empty block is malformed, and a block must lie inside the file;
        // both are refused before anything is allocated.
        if (dataSize == 0 || dataSize > BytesRemaining(file))
            return false;
        const uint64_t consumed = uint64_t(std::ftell(file)) + dataSize - ORBTEX_V3_HEADER_SIZE;
        if (declaredMetaDataSize < consumed)
            break;

        MetaDataBlock block(fourCC, key, dataSize, nullptr);
        block.data = new uint8_t[dataSize];
        if (std::fread(block.data, dataSize, 1, file) != 1)
            return false;
        addMetaData(block);
        if (declaredMetaDataSize <= consumed)
            break;
    }

    if (std::fseek(file, long(ORBTEX_V3_HEADER_SIZE) + long(getMetaDataSize()), SEEK_SET) != 0)
        return false;

    // One read of all surfaces. A short file still loads; the missing tail is zeroed.
    const size_t total = size_t(totalDataSize);
    delete[] m_pTextureData;
    m_pTextureData = nullptr;
    if (total == 0 || BytesRemaining(file) == 0)
        return false;
    m_pTextureData = new uint8_t[total];
    const size_t read = std::fread(m_pTextureData, 1, total, file);
    if (read == 0)
        return false;
    std::memset(m_pTextureData + read, 0, total - read);
    return true;
}

bool CORBTexture::privateSaveORBFile(FILE* file) const
{
    // A header edited after construction may describe more data than the
    // block holds; refuse rather than read past it.
    const uint32_t total = getDataSize(-1, true, true);
    if (total > m_uiDataSize || (total && !m_pTextureData))
        return false;

    std::fwrite(&m_sHeader, ORBTEX_V3_HEADER_SIZE, 1, file);

    bool ok = true;
    for (unsigned int i = 0; i < m_MetaDataMap.GetSize(); ++i)
    {
        const MetaDataKeyMap& items = m_MetaDataMap.GetValue(i);
        for (unsigned int j = 0; j < items.GetSize(); ++j)
        {
            const MetaDataBlock& block = items.GetValue(j);
            ok &= std::fwrite(&block.fourCC, 4, 1, file) == 1;
            ok &= std::fwrite(&block.key, 4, 1, file) == 1;
            ok &= std::fwrite(&block.dataSize, 4, 1, file) == 1;
            // A block without data writes nothing and fails the save.
            ok &= block.data && std::fwrite(block.data, block.dataSize, 1, file) == 1;
        }
    }
    ok &= std::fwrite(m_pTextureData, total, 1, file) == 1;
    return ok;
}

void CORBTexture::privateLoadORBMemory(const uint8_t* image, size_t size)
{
    privateReset();
    if (!image || size < 4)
        return;
    const uint32_t word = LoadWord(image);
    if (word != ORBTEX_VERSION_3 || size < ORBTEX_V3_HEADER_SIZE)
        return; // legacy images are not read by this build

    ORBTextureHeaderV3 record;
    std::memcpy(&record, image, ORBTEX_V3_HEADER_SIZE);
    const uint32_t declaredMetaDataSize = record.metaDataSize;
    record.metaDataSize = 0;

    uint64_t totalDataSize;
    if (!CheckedTotalDataSize(record, totalDataSize))
        return;

    // Build into a temporary so that a refused image leaves the texture empty.
    CORBTextureHeader header(record);
    size_t offset = ORBTEX_V3_HEADER_SIZE;
    if (declaredMetaDataSize != 0)
    {
        do
        {
            if (size - offset < ORBTEX_METADATA_BLOCK_HEADER_SIZE)
                return;
            const uint32_t dataSize = LoadWord(image + offset + 8);
            if (size - offset - ORBTEX_METADATA_BLOCK_HEADER_SIZE < dataSize)
                return;
            MetaDataBlock block;
            const unsigned char* cursor = image + offset;
            block.ReadFromPtr(&cursor);
            header.addMetaData(block);
            offset = size_t(cursor - image);
            if (offset - ORBTEX_V3_HEADER_SIZE > 0xFFFFFFFFu)
                return;
        } while (header.getMetaDataSize() < declaredMetaDataSize);
    }

    const size_t dataStart = ORBTEX_V3_HEADER_SIZE + size_t(header.getMetaDataSize());
    if (dataStart > size || size - dataStart < totalDataSize)
        return;

    CORBTextureHeader::operator=(header);
    m_uiDataSize = getDataSize(-1, true, true);
    m_pTextureData = new uint8_t[m_uiDataSize];
    std::memcpy(m_pTextureData, image + dataStart, m_uiDataSize);
}

} // namespace orbtexture
