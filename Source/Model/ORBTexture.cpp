#include "ORBTexture.h"

#include <cstring>
#include <new>

#include <cerrno>

#include "Files/ORBTextureASTCFile.h"
#include "Files/ORBTextureContainerParser.h"
#include "Files/ORBTextureDDS.h"
#include "Files/ORBTextureKTX.h"
#include "Files/ORBTextureNativeParser.h"
#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureSizeRules.h"

namespace orbtexture
{

namespace
{

// Opens a file to load; null, with the last error set, if it cannot.
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
        SetLoadError(eLoadCannotOpen, errno ? std::strerror(errno) : "unknown error");
    return file;
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

std::unique_ptr<CContainerParser> MakeContainerParser(EContainer container, CByteSource& source, EMetaDataWalk walk)
{
    switch (container)
    {
    case EContainer::KTX: return MakeKTXParser(source);
    case EContainer::DDS: return MakeDDSParser(source);
    case EContainer::ASTC: return MakeASTCParser(source);
    default: return OpenORBParser(source, walk);
    }
}


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

CORBTexture::CORBTexture(const char* filePath) : m_uiDataSize(0), m_pTextureData(nullptr) { loadFile(filePath); }

bool CORBTexture::loadFile(const char* filePath, bool acceptShortData)
{
    privateReset();
    FILE* file = OpenForLoad(filePath);
    if (!file)
        return false;
    bool loaded = false;
    switch (ContainerForLoad(CORBTString(filePath)))
    {
    case EContainer::KTX: loaded = privateLoadKTXFile(file); break;
    case EContainer::DDS: loaded = privateLoadDDSFile(file); break;
    case EContainer::ASTC: loaded = privateLoadASTCFile(file); break;
    default: loaded = privateLoadORBFile(file, acceptShortData); break;
    }
    std::fclose(file);
    if (!loaded)
        privateReset();
    return loaded;
}

bool CORBTexture::privateLoad(CByteSource& source, int container, bool memoryImage, bool acceptShortData)
{
    std::unique_ptr<CContainerParser> parser = MakeContainerParser(
        EContainer(container), source, memoryImage ? EMetaDataWalk::MemoryImage : EMetaDataWalk::File);
    CORBTextureHeader header;
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    if (!parser || !LoadWithParser(*parser, source, header, data, size, acceptShortData))
        return false;
    privateAdopt(std::move(header), data.release(), uint32_t(size));
    return true;
}

bool CORBTexture::privateLoadORBFile(FILE* file, bool acceptShortData)
{
    if (!file)
        return false;
    CFileByteSource source(file);
    return privateLoad(source, int(EContainer::Native), false, acceptShortData);
}

bool CORBTexture::privateLoadDDSFile(FILE* file)
{
    if (!file)
        return false;
    CFileByteSource source(file);
    return privateLoad(source, int(EContainer::DDS), false);
}

bool CORBTexture::privateLoadKTXFile(FILE* file)
{
    if (!file)
        return false;
    CFileByteSource source(file);
    return privateLoad(source, int(EContainer::KTX), false);
}

bool CORBTexture::privateLoadASTCFile(FILE* file)
{
    if (!file)
        return false;
    CFileByteSource source(file);
    return privateLoad(source, int(EContainer::ASTC), false);
}

void CORBTexture::privateLoadORBMemory(const uint8_t* image, size_t size)
{
    privateReset();
    CMemoryByteSource source(image, size);
    privateLoad(source, int(EContainer::Native), true);
}

bool CORBTexture::loadFromMemory(const void* image, size_t size, const CORBTString& name)
{
    privateReset();
    if (!image)
        size = 0;
    CMemoryByteSource source(image, size);
    if (privateLoad(source, int(ContainerForLoad(name)), true))
        return true;
    privateReset();
    return false;
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

template <typename Writer>
bool CORBTexture::privateWriteFile(const CORBTString& path, Writer&& write) const
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    const bool written = write(file);
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed)
    {
        std::remove(path.c_str());
        return false;
    }
    return true;
}

bool CORBTexture::saveFile(const CORBTString& filePath) const
{
    const CORBTString extension = LowerCaseExtension(filePath, false);
    switch (ContainerForSave(extension))
    {
    case EContainer::KTX:
        return privateWriteFile(filePath, [&](FILE* file) { return privateSaveKTXFile(file); });
    case EContainer::CHeader:
    {
        // Symbols are named by the path up to its first '.', without directories.
        CORBTString name = filePath.substr(0, filePath.find_first_of('.'));
        const unsigned int separator = name.find_last_of("\\/");
        if (separator != CORBTString::npos)
            name = name.substr(separator + 1);
        return saveCHeaderFile(filePath, name);
    }
    case EContainer::DDS: return privateWriteFile(filePath, [&](FILE* file) { return privateSaveDDSFile(file); });
    default: break; // native
    }
    CORBTString outputPath = filePath;
    if (extension != "orb")
        outputPath += ".orb";
    return privateWriteFile(outputPath, [&](FILE* file) { return privateSaveORBFile(file); });
}

bool CORBTexture::saveASTCFile(const CORBTString& filePath) const
{
    return privateWriteFile(filePath, [&](FILE* file) { return privateSaveASTCFile(file); });
}

bool CORBTexture::saveCHeaderFile(const CORBTString& filePath, const CORBTString& symbolName) const
{
    return privateWriteFile(filePath, [&](FILE* file) { return privateSaveCHeaderFile(file, symbolName); });
}

bool CORBTexture::saveFileLegacyORB(const CORBTString& filePath, ELegacyApi api) const
{
    return privateWriteFile(filePath, [&](FILE* file) { return privateSaveLegacyORBFile(file, api); });
}

} // namespace orbtexture

bool ORBTReadTextureHeader(const char* filePath, orbtexture::CORBTextureHeader& header)
{
    CORBTString container;
    CORBTArray<CORBTString> fields;
    return ORBTReadTextureFileInfo(filePath, header, container, fields);
}

bool ORBTReadTextureFileInfo(const char* filePath, orbtexture::CORBTextureHeader& header,
                             CORBTString& container,
                             CORBTArray<CORBTString>& fields)
{
    using namespace orbtexture;
    container = "";
    fields = CORBTArray<CORBTString>();
    FILE* file = OpenForLoad(filePath);
    if (!file)
        return false;
    CFileByteSource source(file);
    std::unique_ptr<CContainerParser> parser =
        MakeContainerParser(ContainerForLoad(CORBTString(filePath)), source, EMetaDataWalk::File);
    bool read = false;
    if (parser)
    {
        read = ReadHeaderWithParser(*parser, header);
        container = parser->ContainerName();
        fields = parser->Fields();
    }
    std::fclose(file);
    return read;
}
