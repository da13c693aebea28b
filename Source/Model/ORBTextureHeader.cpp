#include "ORBTextureHeader.h"

#include <cstring>
#include <unordered_map>

#include "Model/ORBTextureSizeRules.h"

namespace orbtexture
{

namespace
{

// Copies up to maxBytes of an item as text, stopping at the first zero byte.
CORBTString TextFromItem(const MetaDataBlock* block, uint32_t offset, uint32_t maxBytes)
{
    if (!block || !block->data || block->dataSize <= offset)
        return CORBTString();
    const char* text = reinterpret_cast<const char*>(block->data + offset);
    const uint32_t available = block->dataSize - offset < maxBytes ? block->dataSize - offset : maxBytes;
    uint32_t length = 0;
    while (length < available && text[length] != 0)
        ++length;
    return CORBTString(text, length);
}

// Reads a value at an offset of an item; false if the item is too short.
template <typename T>
bool ReadFromItem(const MetaDataBlock* block, uint32_t offset, T& value)
{
    if (!block || !block->data || block->dataSize < offset || block->dataSize - offset < sizeof(T))
        return false;
    std::memcpy(&value, block->data + offset, sizeof(T));
    return true;
}

} // namespace

CORBTextureHeader::CORBTextureHeader() = default;

CORBTextureHeader::CORBTextureHeader(uint64_t pixelFormat, uint32_t height, uint32_t width, uint32_t depth,
                                     uint32_t numMipMaps, uint32_t numSurfaces, uint32_t numFaces,
                                     EORBTColourSpace colourSpace, EORBTVariableType channelType,
                                     bool preMultiplied)
{
    m_sHeader.flags = preMultiplied ? ORBTEX_FLAG_PREMULTIPLIED : 0;
    m_sHeader.pixelFormat = pixelFormat;
    m_sHeader.colourSpace = colourSpace;
    m_sHeader.channelType = channelType;
    m_sHeader.height = height;
    m_sHeader.width = width;
    m_sHeader.depth = depth;
    m_sHeader.numSurfaces = numSurfaces;
    m_sHeader.numFaces = numFaces;
    m_sHeader.numMIPMaps = numMipMaps;
}

CORBTextureHeader::CORBTextureHeader(const ORBTextureHeaderV3& fileHeader, unsigned int metaDataCount,
                                     const MetaDataBlock* metaData)
    : m_sHeader(fileHeader)
{
    addMetaDataBlocks(metaData, metaDataCount);
}

CORBTextureHeader::CORBTextureHeader(const CORBTextureHeader& other) = default;

CORBTextureHeader& CORBTextureHeader::operator=(const CORBTextureHeader& other)
{
    if (this != &other)
    {
        m_sHeader = other.m_sHeader;
        m_MetaDataMap = other.m_MetaDataMap;
    }
    return *this;
}

CORBTextureHeader::CORBTextureHeader(CORBTextureHeader&& other) noexcept
    : m_sHeader(other.m_sHeader), m_MetaDataMap(std::move(other.m_MetaDataMap))
{
    other.m_sHeader.metaDataSize = 0;
}

CORBTextureHeader& CORBTextureHeader::operator=(CORBTextureHeader&& other) noexcept
{
    if (this != &other)
    {
        m_sHeader = other.m_sHeader;
        m_MetaDataMap = std::move(other.m_MetaDataMap);
        other.m_sHeader.metaDataSize = 0;
    }
    return *this;
}

CORBTextureHeader::~CORBTextureHeader() = default;

uint32_t CORBTextureHeader::getBitsPerPixel() const { return ORBTGetBitsPerPixel(m_sHeader.pixelFormat); }

uint32_t CORBTextureHeader::getWidth(uint32_t mip) const
{
    return mip < m_sHeader.numMIPMaps ? LevelDimension(m_sHeader.width, mip) : 0;
}

uint32_t CORBTextureHeader::getHeight(uint32_t mip) const
{
    return mip < m_sHeader.numMIPMaps ? LevelDimension(m_sHeader.height, mip) : 0;
}

uint32_t CORBTextureHeader::getDepth(uint32_t mip) const
{
    return mip < m_sHeader.numMIPMaps ? LevelDimension(m_sHeader.depth, mip) : 0;
}

uint32_t CORBTextureHeader::getDataSize(int mip, bool allSurfaces, bool allFaces) const
{
    return ORBTGetTextureDataSize(m_sHeader, mip, allSurfaces, allFaces);
}

uint32_t CORBTextureHeader::getTextureSize(int mip, bool allSurfaces, bool allFaces) const
{
    const uint32_t bitsPerPixel = getBitsPerPixel();
    if (bitsPerPixel == 0)
        return 0; // ASTC, BC6, BC7 and unknown formats have no per-pixel size
    return uint32_t(uint64_t(getDataSize(mip, allSurfaces, allFaces)) * 8 / bitsPerPixel);
}

void CORBTextureHeader::setIsFileCompressed(bool isFileCompressed)
{
    if (isFileCompressed)
        m_sHeader.flags |= ORBTEX_FLAG_FILE_COMPRESSED;
    else
        m_sHeader.flags = 0;
}

void CORBTextureHeader::setIsPreMultiplied(bool isPreMultiplied)
{
    if (isPreMultiplied)
        m_sHeader.flags |= ORBTEX_FLAG_PREMULTIPLIED;
    else
        m_sHeader.flags = 0;
}

// ---------------------------------------------------------------------------
// Metadata reads

const MetaDataBlock* CORBTextureHeader::privateFindMetaData(uint32_t fourCC, uint32_t key) const
{
    const MetaDataKeyMap* items = m_MetaDataMap.Find(fourCC);
    return items ? items->Find(key) : nullptr;
}

EORBTOrientation CORBTextureHeader::getOrientation(EORBTAxis axis) const
{
    uint8_t value = 0;
    ReadFromItem(privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation), uint32_t(axis), value);
    return EORBTOrientation(value);
}

bool CORBTextureHeader::isBumpMap() const
{
    return privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaBumpData) != nullptr;
}

float CORBTextureHeader::getBumpMapScale() const
{
    float scale = 0.0f;
    ReadFromItem(privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaBumpData), 0, scale);
    return scale;
}

CORBTString CORBTextureHeader::getBumpMapOrder() const
{
    return TextFromItem(privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaBumpData), 4, 4);
}

uint32_t CORBTextureHeader::getNumTextureAtlasMembers() const
{
    const MetaDataBlock* block = privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaTextureAtlas);
    if (!block)
        return 0;
    if (m_sHeader.width > 1 || m_sHeader.height > 1 || m_sHeader.depth > 1)
        return block->dataSize / sizeof(float);
    return 0;
}

const float* CORBTextureHeader::getTextureAtlasData() const
{
    const MetaDataBlock* block = privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaTextureAtlas);
    return block ? reinterpret_cast<const float*>(block->data) : nullptr;
}

CORBTString CORBTextureHeader::getCubeMapOrder() const
{
    return TextFromItem(privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder), 0, 6);
}

void CORBTextureHeader::getBorder(uint32_t& borderWidth, uint32_t& borderHeight, uint32_t& borderDepth) const
{
    borderWidth = borderHeight = borderDepth = 0;
    const MetaDataBlock* block = privateFindMetaData(ORBTEX_METADATA_FOURCC, eMetaBorder);
    ReadFromItem(block, 0, borderWidth);
    ReadFromItem(block, 4, borderHeight);
    ReadFromItem(block, 8, borderDepth);
}

MetaDataBlock CORBTextureHeader::getMetaData(uint32_t fourCC, uint32_t key) const
{
    const MetaDataBlock* block = privateFindMetaData(fourCC, key);
    return block ? *block : MetaDataBlock();
}

bool CORBTextureHeader::hasMetaData(uint32_t fourCC, uint32_t key) const
{
    return privateFindMetaData(fourCC, key) != nullptr;
}

// ---------------------------------------------------------------------------
// Metadata writes

uint8_t* CORBTextureHeader::privateResetOwnMetaData(uint32_t key, uint32_t dataSize)
{
    MetaDataBlock& block = m_MetaDataMap[ORBTEX_METADATA_FOURCC][key];
    if (block.data)
    {
        delete[] block.data;
        block.data = nullptr;
        m_sHeader.metaDataSize -= block.SizeOfBlockInBytes();
    }
    else
    {
        block.fourCC = ORBTEX_METADATA_FOURCC;
        block.key = key;
    }
    block.dataSize = dataSize;
    block.data = new uint8_t[dataSize];
    m_sHeader.metaDataSize += block.SizeOfBlockInBytes();
    return block.data;
}

void CORBTextureHeader::setOrientation(EORBTOrientation orientation)
{
    uint8_t* data = privateResetOwnMetaData(eMetaOrientation, 3);
    data[0] = uint8_t(orientation & eOrientLeft);
    data[1] = uint8_t(orientation & eOrientUp);
    data[2] = uint8_t(orientation & eOrientOut);
}

void CORBTextureHeader::setBumpMap(float bumpScale, CORBTString bumpOrder)
{
    uint8_t* data = privateResetOwnMetaData(eMetaBumpData, 8);
    std::memset(data, 0, 8);
    std::memcpy(data, &bumpScale, sizeof(float));
    const uint32_t letters = bumpOrder.length() < 4 ? bumpOrder.length() : 4;
    std::memcpy(data + 4, bumpOrder.c_str(), letters);
}

void CORBTextureHeader::setTextureAtlas(const float* atlasData, uint32_t numAtlasMembers)
{
    uint8_t* data = privateResetOwnMetaData(eMetaTextureAtlas, numAtlasMembers * uint32_t(sizeof(float)));
    if (atlasData)
        std::memcpy(data, atlasData, numAtlasMembers * sizeof(float));
    else
        std::memset(data, 0, numAtlasMembers * sizeof(float));
}

void CORBTextureHeader::setCubeMapOrder(CORBTString cubeMapOrder)
{
    const uint32_t letters = cubeMapOrder.length() < 6 ? cubeMapOrder.length() : 6;
    uint8_t* data = privateResetOwnMetaData(eMetaCubeMapOrder, letters);
    std::memcpy(data, cubeMapOrder.c_str(), letters);
}

void CORBTextureHeader::setBorder(uint32_t borderWidth, uint32_t borderHeight, uint32_t borderDepth)
{
    uint8_t* data = privateResetOwnMetaData(eMetaBorder, 12);
    std::memcpy(data, &borderWidth, 4);
    std::memcpy(data + 4, &borderHeight, 4);
    std::memcpy(data + 8, &borderDepth, 4);
}

void CORBTextureHeader::addMetaData(const MetaDataBlock& metaData)
{
    // Copy first: the source may live inside the map that is about to grow.
    const MetaDataBlock copy(metaData);
    m_MetaDataMap[copy.fourCC][copy.key] = copy;
    m_sHeader.metaDataSize += copy.SizeOfBlockInBytes();
}

void CORBTextureHeader::addMetaDataBlocks(const MetaDataBlock* blocks, unsigned int count)
{
    if (!blocks)
        return;
    // Indexes of the items present, so that each block costs one look-up.
    std::unordered_map<uint32_t, unsigned int> fourCCs;
    std::unordered_map<uint64_t, unsigned int> items;
    const auto itemId = [](uint32_t fourCC, uint32_t key) { return uint64_t(fourCC) << 32 | key; };
    for (unsigned int i = 0; i < m_MetaDataMap.GetSize(); ++i)
    {
        fourCCs.emplace(m_MetaDataMap.GetKey(i), i);
        const MetaDataKeyMap& keys = m_MetaDataMap.GetValue(i);
        for (unsigned int j = 0; j < keys.GetSize(); ++j)
            items.emplace(itemId(m_MetaDataMap.GetKey(i), keys.GetKey(j)), j);
    }

    for (unsigned int b = 0; b < count; ++b)
    {
        const MetaDataBlock& block = blocks[b];
        const auto known = fourCCs.find(block.fourCC);
        unsigned int index;
        if (known != fourCCs.end())
            index = known->second;
        else
        {
            index = m_MetaDataMap.GetSize();
            fourCCs.emplace(block.fourCC, index);
            m_MetaDataMap.AppendAbsent(block.fourCC, MetaDataKeyMap());
        }
        MetaDataKeyMap& keys = m_MetaDataMap.GetValue(index);
        const auto item = items.find(itemId(block.fourCC, block.key));
        if (item != items.end())
            keys.GetValue(item->second) = block;
        else
        {
            items.emplace(itemId(block.fourCC, block.key), keys.GetSize());
            keys.AppendAbsent(block.key, block);
        }
        m_sHeader.metaDataSize += block.SizeOfBlockInBytes();
    }
}

uint32_t CORBTextureHeader::recountMetaDataSize()
{
    uint32_t size = 0;
    forEachMetaData([&size](const MetaDataBlock& block) { size += block.SizeOfBlockInBytes(); });
    m_sHeader.metaDataSize = size;
    return size;
}

void CORBTextureHeader::removeMetaData(const uint32_t& fourCC, const uint32_t& key)
{
    MetaDataKeyMap& items = m_MetaDataMap[fourCC];
    const MetaDataBlock* block = items.Find(key);
    if (!block)
        return;
    m_sHeader.metaDataSize -= block->SizeOfBlockInBytes();
    items.Remove(key);
}

} // namespace orbtexture
