#include "ORBTexture.h"

#include <cstring>
#include <new>

#include <cerrno>

#include "ORBTextureErrors.h"
#include "ORBTextureNativeParser.h"
#include "ORBTextureSizeRules.h"

namespace orbtexture
{

namespace
{

// Containers chosen by file extension.
enum class EContainer
{
    Native,
    KTX,
    DDS,
    ASTC,
    CHeader
};

// Lower-cased extension: from the last '.' on, the dot included or not; the
// whole path when it has no dot.
CORBTString LowerCaseExtension(const CORBTString& path, bool withDot)
{
    const unsigned int dot = path.find_last_of('.');
    CORBTString extension = dot == CORBTString::npos ? path : path.substr(withDot ? dot : dot + 1);
    extension.toLower();
    return extension;
}

EContainer ContainerForLoad(const CORBTString& path)
{
    const CORBTString extension = LowerCaseExtension(path, true);
    if (extension == ".ktx")
        return EContainer::KTX;
    if (extension == ".dds")
        return EContainer::DDS;
    if (extension == ".astc")
        return EContainer::ASTC;
    return EContainer::Native;
}

// Opens a file to load and keeps it open only for a container this build
// reads (the native one); otherwise sets the last error and returns null.
FILE* OpenForLoad(const char* filePath)
{
    SetLastErrorText("");
    SetLastLoadShortfall(0);
    if (!filePath)
    {
        SetLoadError(eLoadCannotOpen, "no file name");
        return nullptr;
    }
    errno = 0;
    FILE* file = std::fopen(filePath, "rb");
    if (!file)
    {
        SetLoadError(eLoadCannotOpen, errno ? std::strerror(errno) : "unknown error");
        return nullptr;
    }
    const char* unsupported = nullptr;
    switch (ContainerForLoad(CORBTString(filePath)))
    {
    case EContainer::KTX: unsupported = "ktx"; break;
    case EContainer::DDS: unsupported = "dds"; break;
    case EContainer::ASTC: unsupported = "astc"; break;
    default: return file;
    }
    std::fclose(file);
    SetLoadError(eLoadContainerUnsupported, unsupported);
    return nullptr;
}

EContainer ContainerForSave(const CORBTString& extension)
{
    if (extension == "ktx")
        return EContainer::KTX;
    if (extension == "dds")
        return EContainer::DDS;
    if (extension == "h")
        return EContainer::CHeader;
    return EContainer::Native;
}

} // namespace

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

CORBTexture::CORBTexture(const void* memoryFile) : m_uiDataSize(0), m_pTextureData(nullptr)
{
    privateLoadORBMemory(static_cast<const uint8_t*>(memoryFile), SIZE_MAX);
}

CORBTexture::CORBTexture(const void* memoryFile, size_t size) : m_uiDataSize(0), m_pTextureData(nullptr)
{
    privateLoadORBMemory(static_cast<const uint8_t*>(memoryFile), size);
}

CORBTexture::CORBTexture(const char* filePath) : m_uiDataSize(0), m_pTextureData(nullptr)
{
    FILE* file = OpenForLoad(filePath);
    if (!file)
        return;

    const bool loaded = privateLoadORBFile(file);
    std::fclose(file);

    if (loaded)
        m_uiDataSize = getDataSize(-1, true, true);
    else
        privateReset();
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

bool CORBTexture::saveFile(const CORBTString& filePath) const
{
    const CORBTString extension = LowerCaseExtension(filePath, false);
    CORBTString outputPath = filePath;
    switch (ContainerForSave(extension))
    {
    case EContainer::Native:
        if (extension != "orb")
            outputPath += ".orb";
        break;
    default: return false; // no writer for this container in this build
    }

    FILE* file = std::fopen(outputPath.c_str(), "wb");
    if (!file)
        return false;
    const bool written = privateSaveORBFile(file);
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed)
    {
        std::remove(outputPath.c_str());
        return false;
    }
    return true;
}

} // namespace orbtexture

bool ORBTReadTextureHeader(const char* filePath, orbtexture::CORBTextureHeader& header)
{
    using namespace orbtexture;
    FILE* file = OpenForLoad(filePath);
    if (!file)
        return false;
    const bool read = ReadNativeHeader(file, header);
    std::fclose(file);
    return read;
}
