// The texture's members that reach a container: loads by path and from
// memory, saves by path, and the header readers by path.

#include "ORBTexture.h"

#include <cerrno>
#include <cstring>

#include "Files/ORBTextureASTCFile.h"
#include "Files/ORBTextureContainerParser.h"
#include "Files/ORBTextureDDS.h"
#include "Files/ORBTextureKTX.h"
#include "Files/ORBTextureNativeParser.h"
#include "Model/ORBTextureErrors.h"

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
    {
        const int error = errno;
        SetLoadError(eLoadCannotOpen, error ? std::strerror(error) : "unknown error");
        SetLastErrno(error);
    }
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
