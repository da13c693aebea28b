// Legacy .orb files: a 44- or 52-byte header, then the surfaces with the
// array member outermost, then the face, then the MIP level. No metadata
// blocks: the header's flags stand for the few items a legacy file can have.

#include "Files/ORBTextureLegacyFile.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "Files/ORBTextureByteSink.h"
#include "ORBTexture.h"
#include "ORBTextureLegacy.h"

namespace orbtexture
{

namespace
{

class CLegacyFileParser : public CContainerParser
{
public:
    CLegacyFileParser(CByteSource& source, EMetaDataWalk walk, uint32_t headerSize)
        : CContainerParser(source), m_walk(walk), m_headerSize(headerSize)
    {
    }

    const char* ContainerName() const override
    {
        return m_headerSize == ORBTEX_LEGACY_V2_HEADER_SIZE ? "legacy orb (version 2)" : "legacy orb (version 1)";
    }

    ELoadReason ReadHeader(CORBTextureHeader& header) override;

    // A memory image fills array member 0 only, but must hold every member
    // it declares, so that a few header bytes cannot claim a large block.
    uint64_t StoredDataSize() const override { return m_dataSize; }
    uint64_t ExtraBytes() const override { return m_metaDataBytes; }

protected:
    ELoadReason ReadData(uint8_t* block, uint64_t& missing) override;

private:
    // "name: value" for the first 'count' header words.
    void AddHeaderFields(const uint32_t* words, size_t count);
    // Offsets of the levels and sizes of their surfaces; false if they do not
    // add up to the block size.
    bool PlanSurfaces(const CORBTextureHeader& header);

    EMetaDataWalk m_walk;
    uint32_t m_headerSize;
    uint32_t m_members = 0;
    uint32_t m_faces = 0;
    uint64_t m_metaDataBytes = 0;
    std::vector<uint64_t> m_levelStart;
    std::vector<uint64_t> m_faceSize;
};

void CLegacyFileParser::AddHeaderFields(const uint32_t* words, size_t count)
{
    static const char* const kNames[] = {
        "headerSize", "height",  "width",     "mipMapCount", "pixelFormatAndFlags", "textureDataSize", "bitCount",
        "redMask",    "greenMask", "blueMask", "alphaMask",  "magic",               "numSurfaces"};
    for (size_t i = 0; i < count && i < sizeof kNames / sizeof kNames[0]; ++i)
    {
        // Format word, masks and magic in hex; sizes and counts in decimal.
        const bool hex = i == 4 || (i >= 7 && i <= 11);
        AddField(kNames[i], hex ? "0x%08X" : "%u", words[i]);
    }
}

ELoadReason CLegacyFileParser::ReadHeader(CORBTextureHeader& header)
{
    uint32_t words[ORBTEX_LEGACY_V2_HEADER_SIZE / 4] = {m_headerSize};
    const size_t rest = m_headerSize - 4;
    const size_t read = m_source.Read(words + 1, rest);
    AddHeaderFields(words, 1 + read / 4);
    if (read != rest)
        return ReadFailure(eLoadTruncatedHeader);

    ORBTextureHeaderV3 record;
    MetaDataMap items;
    uint32_t formatWord;
    if (m_headerSize == ORBTEX_LEGACY_V2_HEADER_SIZE)
    {
        ORB_Texture_Header raw;
        std::memcpy(reinterpret_cast<uint8_t*>(&raw), words, sizeof raw);
        formatWord = raw.pixelFormatAndFlags;
        ConvertTextureHeader2To3(raw, record, items);
    }
    else
    {
        ORBTextureHeaderV1 raw;
        std::memcpy(reinterpret_cast<uint8_t*>(&raw), words, sizeof raw);
        formatWord = raw.pixelFormatAndFlags;
        ConvertTextureHeader1To3(raw, record, items);
    }
    const uint32_t legacy = formatWord & ORBTEX_LEGACY_FORMAT_MASK;
    uint64_t format;
    EORBTColourSpace colourSpace;
    EORBTVariableType channelType;
    bool premultiplied;
    if (!ORBTMapLegacyTextureEnumToNewFormat(ORBTPixelType(legacy), format, colourSpace, channelType, premultiplied))
    {
        char code[32];
        std::snprintf(code, sizeof code, "legacy format %u", legacy);
        return SetLoadError(eLoadNoPixelFormat, ContainerName(), code);
    }

    // Sizes, counts and MIP levels are checked before anything is allocated.
    m_metaDataBytes = record.metaDataSize;
    record.metaDataSize = 0;
    CORBTextureHeader converted(record);
    const ELoadReason checked = CheckHeader(converted, true);
    if (checked != eLoadOK)
        return checked;
    if (!PlanSurfaces(converted))
        return SetLoadError(eLoadBadHeader, ContainerName(), "surface sizes do not add up to the data size");

    for (unsigned i = 0; i < items.GetSize(); ++i)
    {
        const MetaDataKeyMap& keys = items.GetValue(i);
        for (unsigned j = 0; j < keys.GetSize(); ++j)
            converted.addMetaData(keys.GetValue(j));
    }
    header = std::move(converted);
    return eLoadOK;
}

bool CLegacyFileParser::PlanSurfaces(const CORBTextureHeader& header)
{
    const uint32_t levels = header.getNumMIPLevels();
    m_members = header.getNumArrayMembers();
    m_faces = header.getNumFaces();
    m_levelStart.assign(levels, 0);
    m_faceSize.assign(levels, 0);
    uint64_t offset = 0;
    for (uint32_t mip = 0; mip < levels; ++mip)
    {
        m_levelStart[mip] = offset;
        m_faceSize[mip] = header.getDataSize(int(mip), false, false);
        offset += m_faceSize[mip] * m_faces * m_members;
    }
    return offset == m_dataSize;
}

ELoadReason CLegacyFileParser::ReadData(uint8_t* block, uint64_t& missing)
{
    missing = 0;
    const uint32_t levels = uint32_t(m_levelStart.size());
    const uint32_t members = m_walk == EMetaDataWalk::MemoryImage ? 1 : m_members;
    for (uint32_t member = 0; member < members; ++member)
        for (uint32_t face = 0; face < m_faces; ++face)
            for (uint32_t mip = 0; mip < levels; ++mip)
            {
                const uint64_t size = m_faceSize[mip];
                uint8_t* surface = nullptr;
                if (block)
                    surface = block + m_levelStart[mip] + (uint64_t(member) * m_faces + face) * size;
                const ELoadReason taken = TakeData(surface, size);
                // Nothing at all after the header: told apart as on every path.
                if (taken == eLoadShortPixelData && m_dataLeft == StoredDataSize())
                    return SetLoadError(eLoadNoPixelData);
                if (taken != eLoadOK)
                    return taken;
            }
    // The other members of a memory image are in it but not taken.
    if (block && members < m_members)
        for (uint32_t mip = 0; mip < levels; ++mip)
        {
            const uint64_t memberSize = m_faceSize[mip] * m_faces;
            std::memset(block + m_levelStart[mip] + memberSize, 0, size_t(memberSize * (m_members - members)));
        }
    return eLoadOK;
}

} // namespace

std::unique_ptr<CContainerParser> MakeLegacyORBParser(CByteSource& source, EMetaDataWalk walk, uint32_t headerSize)
{
    return std::unique_ptr<CContainerParser>(new CLegacyFileParser(source, walk, headerSize));
}

bool CORBTexture::privateSaveLegacyORBFile(FILE* file, ELegacyApi api) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteLegacyORB(sink, api);
}

bool CORBTexture::privateWriteLegacyORB(CByteSink& sink, ELegacyApi api) const
{
    const ORB_Texture_Header header = ConvertTextureHeader3To2(getHeader(), api);
    if (header.pixelFormatAndFlags == eLegacyFormatNone)
        return false;
    const uint32_t total = getDataSize(-1, true, true);
    if (!privateHoldsData(total))
        return false;

    if (!sink.Write(&header, sizeof header))
        return false;
    for (uint32_t member = 0; member < getNumArrayMembers(); ++member)
        for (uint32_t face = 0; face < getNumFaces(); ++face)
            for (uint32_t mip = 0; mip < getNumMIPLevels(); ++mip)
                if (!sink.WriteItem(getDataPtr(mip, member, face), getDataSize(int(mip), false, false)))
                    return false;
    return true;
}

} // namespace orbtexture
