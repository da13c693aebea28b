#include "ORBTexture.h"

#include <cstring>
#include <new>

namespace orbtexture
{

CORBTexture::CORBTexture() : m_uiDataSize(getDataSize(-1, true, true)), m_pTextureData(nullptr) {}

CORBTexture::CORBTexture(const CORBTextureHeader& header, const void* data)
    : CORBTextureHeader(header), m_uiDataSize(getDataSize(-1, true, true)), m_pTextureData(nullptr)
{
    m_pTextureData = new uint8_t[m_uiDataSize];
    if (data)
        std::memcpy(m_pTextureData, data, m_uiDataSize);
}

CORBTexture::CORBTexture(const CORBTexture& other)
    : CORBTextureHeader(other), m_uiDataSize(other.m_uiDataSize), m_pTextureData(nullptr)
{
    if (other.m_pTextureData)
    {
        m_pTextureData = new uint8_t[m_uiDataSize];
        std::memcpy(m_pTextureData, other.m_pTextureData, m_uiDataSize);
    }
}

CORBTexture::~CORBTexture() { delete[] m_pTextureData; }

CORBTexture& CORBTexture::operator=(const CORBTexture& other)
{
    if (this == &other)
        return *this;
    uint8_t* data = nullptr;
    if (other.m_pTextureData)
    {
        data = new uint8_t[other.m_uiDataSize];
        std::memcpy(data, other.m_pTextureData, other.m_uiDataSize);
    }
    CORBTextureHeader::operator=(other);
    delete[] m_pTextureData;
    m_pTextureData = data;
    m_uiDataSize = other.m_uiDataSize;
    return *this;
}

CORBTexture::CORBTexture(CORBTexture&& other)
    : CORBTextureHeader(std::move(other)), m_uiDataSize(other.m_uiDataSize), m_pTextureData(other.m_pTextureData)
{
    other.m_pTextureData = nullptr;
    other.privateReset();
}

CORBTexture& CORBTexture::operator=(CORBTexture&& other)
{
    if (this == &other)
        return *this;
    CORBTextureHeader::operator=(std::move(other));
    delete[] m_pTextureData;
    m_pTextureData = other.m_pTextureData;
    m_uiDataSize = other.m_uiDataSize;
    other.m_pTextureData = nullptr;
    other.privateReset();
    return *this;
}

void CORBTexture::privateReset()
{
    delete[] m_pTextureData;
    m_pTextureData = nullptr;
    CORBTextureHeader::operator=(CORBTextureHeader());
    m_uiDataSize = getDataSize(-1, true, true);
}

unsigned char* CORBTexture::getDataPtr(uint32_t mip, uint32_t arrayMember, uint32_t face) const
{
    if (mip == 0xFFFFFFFFu || mip >= getNumMIPLevels() || arrayMember >= getNumArrayMembers() ||
        face >= getNumFaces())
        return nullptr;

    // Whole levels before this one; levels from 32 on all have the size of level 32.
    const uint32_t distinct = 32;
    uint64_t offset = 0;
    for (uint32_t level = 0; level < mip && level < distinct; ++level)
        offset += getDataSize(int(level), true, true);
    if (mip > distinct)
        offset += uint64_t(mip - distinct) * getDataSize(int(distinct), true, true);

    offset += uint64_t(arrayMember) * getDataSize(int(mip), false, true);
    offset += uint64_t(face) * getDataSize(int(mip), false, false);
    // Integer arithmetic: without a block the result is the bare offset.
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(m_pTextureData) + uintptr_t(offset));
}

void CORBTexture::addPaddingMetaData(uint32_t alignment)
{
    if (alignment <= 1)
        return;
    // 52 bytes of file header and 12 of the padding item's own header.
    const uint32_t size = (0u - 64u - getMetaDataSize()) % alignment;
    MetaDataBlock padding(ORBTEX_METADATA_FOURCC, eMetaPadding, size, nullptr);
    padding.data = new uint8_t[size]();
    addMetaData(padding);
}

} // namespace orbtexture
