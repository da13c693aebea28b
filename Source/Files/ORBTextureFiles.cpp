// The texture's members that reach a container: loads by path and from
// memory, saves by path, and the header readers by path.

#include "ORBTexture.h"

#include <cerrno>
#include <cstring>

#include "Files/ORBTextureASTCFile.h"
#include "Files/ORBTextureByteSink.h"
#include "Files/ORBTextureContainerParser.h"
#include "Files/ORBTextureDDS.h"
#include "Files/ORBTextureKTX.h"
#include "Files/ORBTextureKTX2.h"
#include "Files/ORBTextureNativeParser.h"
#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureFormatFacts.h"
#include "ORBTextureLegacy.h"

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
    if (extension == "ktx2")
        return EContainer::KTX2;
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
    if (extension == ".ktx2")
        return EContainer::KTX2;
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
    case EContainer::KTX2: return MakeKTX2Parser(source);
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
    case EContainer::KTX2: {
        CFileByteSource source(file);
        loaded = privateLoad(source, int(EContainer::KTX2), false);
        break;
    }
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

bool CORBTexture::privateWrite(CByteSink& sink, int container, const CORBTString& symbolName) const
{
    switch (EContainer(container))
    {
    case EContainer::KTX: return privateWriteKTX(sink);
    case EContainer::KTX2: return privateWriteKTX2(sink, 0);
    case EContainer::DDS: return privateWriteDDS(sink);
    case EContainer::ASTC: return privateWriteASTC(sink);
    case EContainer::CHeader: return privateWriteCHeader(sink, symbolName);
    default: return privateWriteORB(sink);
    }
}

namespace
{

constexpr int kLegacyContainer = -1;

// Symbols of a C header are named by the path up to its first '.', without
// directories.
CORBTString SymbolNameOf(const CORBTString& filePath)
{
    CORBTString name = filePath.substr(0, filePath.find_first_of('.'));
    const unsigned int separator = name.find_last_of("\\/");
    if (separator != CORBTString::npos)
        name = name.substr(separator + 1);
    return name;
}

// The reason of a failed write to 'target' that the sink did not see fail.
bool WriteRefused(const CORBTexture& texture, int container, ELegacyApi api, int zstdLevel = 0)
{
    const FormatDescriptor& format = DescribeFormat(uint32_t(texture.getPixelType().PixelTypeID));
    if (container == int(EContainer::KTX2) && KTX2WriteRefused(texture, zstdLevel))
        return false;
    if (texture.getDataSize(-1, true, true) == 0 || !texture.getDataPtr())
        return SetError(eORBTErrorArgument, "the texture holds no pixel data");
    if (container == kLegacyContainer &&
        ConvertTextureHeader3To2(texture.getHeader(), api).pixelFormatAndFlags == eLegacyFormatNone)
        return SetError(eORBTErrorUnsupported, "%s has no legacy format number for legacy API %u",
                        texture.getPixelType().isNamedFormat() && format.name ? format.name : "this channel layout",
                        unsigned(api));
    return SetError(eORBTErrorArgument, "the texture's data or metadata are incomplete");
}

// The reason of a failed write to memory: the sink's, or the writer's refusal.
bool MemoryWriteFailed(const CORBTexture& texture, const CByteSink& sink, int container, ELegacyApi api,
                       int zstdLevel = 0)
{
    return sink.Failed() ? SetError(eORBTErrorMemory, "out of memory for the file image")
                         : WriteRefused(texture, container, api, zstdLevel);
}

} // namespace

bool CORBTexture::privateWriteFile(const CORBTString& path, int container, const CORBTString& symbolName,
                                   ELegacyApi api, int zstdLevel) const
{
    errno = 0;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return SetSystemError((CORBTString("cannot create ") + path).c_str(), errno);
    CFileByteSink sink(file);
    const bool written = container == kLegacyContainer         ? privateWriteLegacyORB(sink, api)
                         : container == int(EContainer::KTX2) ? privateWriteKTX2(sink, zstdLevel)
                                                              : privateWrite(sink, container, symbolName);
    errno = 0;
    const bool closed = std::fclose(file) == 0;
    const int closeError = errno;
    if (written && closed)
        return true;
    std::remove(path.c_str());
    if (sink.Failed() || (written && !closed))
        return SetSystemError((CORBTString("cannot write ") + path).c_str(), sink.Failed() ? sink.Error() : closeError);
    return WriteRefused(*this, container, api, zstdLevel);
}

bool CORBTexture::saveFile(const CORBTString& filePath) const
{
    const CORBTString extension = LowerCaseExtension(filePath, false);
    switch (ContainerForSave(extension))
    {
    case EContainer::KTX: return privateWriteFile(filePath, int(EContainer::KTX), "");
    case EContainer::KTX2: return privateWriteFile(filePath, int(EContainer::KTX2), "");
    case EContainer::CHeader: return saveCHeaderFile(filePath, SymbolNameOf(filePath));
    case EContainer::DDS: return privateWriteFile(filePath, int(EContainer::DDS), "");
    default: break; // native
    }
    CORBTString outputPath = filePath;
    if (extension != "orb")
        outputPath += ".orb";
    return privateWriteFile(outputPath, int(EContainer::Native), "");
}

bool CORBTexture::saveASTCFile(const CORBTString& filePath) const
{
    return privateWriteFile(filePath, int(EContainer::ASTC), "");
}

bool CORBTexture::saveCHeaderFile(const CORBTString& filePath, const CORBTString& symbolName) const
{
    return privateWriteFile(filePath, int(EContainer::CHeader), symbolName);
}

bool CORBTexture::saveKTX2File(const CORBTString& filePath, int zstdLevel) const
{
    return privateWriteFile(filePath, int(EContainer::KTX2), "", eLegacyApiNone, zstdLevel);
}

bool CORBTexture::saveToMemoryKTX2(std::vector<uint8_t>& bytes, int zstdLevel) const
{
    CMemoryByteSink sink(bytes);
    return privateWriteKTX2(sink, zstdLevel) ||
           MemoryWriteFailed(*this, sink, int(EContainer::KTX2), eLegacyApiNone, zstdLevel);
}

bool CORBTexture::saveFileLegacyORB(const CORBTString& filePath, ELegacyApi api) const
{
    return privateWriteFile(filePath, kLegacyContainer, "", api);
}

bool CORBTexture::saveToMemory(std::vector<uint8_t>& bytes, const CORBTString& name) const
{
    const CORBTString extension = LowerCaseExtension(name, false);
    const EContainer container = extension == "astc" ? EContainer::ASTC : ContainerForSave(extension);
    CMemoryByteSink sink(bytes);
    return privateWrite(sink, int(container), SymbolNameOf(name)) ||
           MemoryWriteFailed(*this, sink, int(container), eLegacyApiNone);
}

bool CORBTexture::saveToMemoryLegacyORB(std::vector<uint8_t>& bytes, ELegacyApi api) const
{
    CMemoryByteSink sink(bytes);
    return privateWriteLegacyORB(sink, api) || MemoryWriteFailed(*this, sink, kLegacyContainer, api);
}

bool CORBTexture::isEqual(const CORBTexture& other) const
{
    const uint32_t size = getDataSize(-1, true, true);
    if (std::memcmp(&m_sHeader, &other.m_sHeader, sizeof m_sHeader) != 0 || size != other.getDataSize(-1, true, true))
        return false;
    if (!privateHoldsData(size) || !other.privateHoldsData(size))
        return false;
    if (size && std::memcmp(m_pTextureData, other.m_pTextureData, size) != 0)
        return false;
    // The same items: as many, and each of one found in the other.
    unsigned ours = 0, theirs = 0;
    other.forEachMetaData([&](const MetaDataBlock&) { ++theirs; });
    bool same = true;
    forEachMetaData([&](const MetaDataBlock& item) {
        ++ours;
        if (!same || !other.hasMetaData(item.fourCC, item.key))
        {
            same = false;
            return;
        }
        const MetaDataBlock match = other.getMetaData(item.fourCC, item.key);
        same = match.dataSize == item.dataSize &&
               (item.dataSize == 0 || (item.data && match.data && !std::memcmp(item.data, match.data, item.dataSize)));
    });
    return same && ours == theirs;
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
