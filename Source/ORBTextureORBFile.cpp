// Native .orb files and memory images: 52-byte header, metadata blocks, data.

#include <memory>

#include "ORBTexture.h"
#include "ORBTextureNativeParser.h"

namespace orbtexture
{

namespace
{

// Header, metadata and pixel data of a native file; the data tail missing
// from a short file is zero-filled.
bool LoadNative(CByteSource& source, EMetaDataWalk walk, CORBTextureHeader& header,
                std::unique_ptr<uint8_t[]>& data, uint64_t& size)
{
    CNativeFileParser parser(source, walk);
    if (parser.ReadHeader(header) != eLoadOK || parser.CheckLoadLimit() != eLoadOK)
        return false;
    size = parser.DataSize();
    // A memory image is whole: one whose pixel data end early is refused
    // before anything is allocated.
    if (walk == EMetaDataWalk::MemoryImage && source.Remaining() < size)
    {
        if (source.Remaining() == 0)
            SetLoadError(eLoadNoPixelData);
        else
            SetLoadError(eLoadShortPixelData, (unsigned long long)(size - source.Remaining()));
        return false;
    }
    data.reset(new uint8_t[size_t(size)]);
    uint64_t missing = 0;
    if (parser.ReadData(data.get(), missing) != eLoadOK)
        return false;
    SetLastLoadShortfall(missing);
    return true;
}

} // namespace

bool CORBTexture::privateLoadORBFile(FILE* file)
{
    if (!file)
        return false;
    CFileByteSource source(file);
    CORBTextureHeader header;
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    if (!LoadNative(source, EMetaDataWalk::File, header, data, size))
        return false;
    privateAdopt(std::move(header), data.release(), uint32_t(size));
    return true;
}

void CORBTexture::privateLoadORBMemory(const uint8_t* image, size_t size)
{
    privateReset();
    CMemoryByteSource source(image, size);
    CORBTextureHeader header;
    std::unique_ptr<uint8_t[]> data;
    uint64_t dataSize = 0;
    if (LoadNative(source, EMetaDataWalk::MemoryImage, header, data, dataSize))
        privateAdopt(std::move(header), data.release(), uint32_t(dataSize));
}

void CORBTexture::privateAdopt(CORBTextureHeader&& header, uint8_t* data, uint32_t size)
{
    CORBTextureHeader::operator=(std::move(header));
    delete[] m_pTextureData;
    m_pTextureData = data;
    m_uiDataSize = size;
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
    forEachMetaData([&](const MetaDataBlock& block) {
        ok &= std::fwrite(&block.fourCC, 4, 1, file) == 1;
        ok &= std::fwrite(&block.key, 4, 1, file) == 1;
        ok &= std::fwrite(&block.dataSize, 4, 1, file) == 1;
        // A block without data writes nothing and fails the save.
        ok &= block.data && std::fwrite(block.data, block.dataSize, 1, file) == 1;
    });
    ok &= std::fwrite(m_pTextureData, total, 1, file) == 1;
    return ok;
}

bool ReadNativeHeader(FILE* file, CORBTextureHeader& header)
{
    CFileByteSource source(file);
    CNativeFileParser parser(source, EMetaDataWalk::File);
    uint64_t missing = 0;
    if (parser.ReadHeader(header) != eLoadOK || parser.CountData(missing) != eLoadOK)
        return false;
    SetLastLoadShortfall(missing);
    return true;
}

} // namespace orbtexture
