// Native .orb files and memory images: 52-byte header, metadata blocks, data.

#include "Files/ORBTextureByteSink.h"
#include "Files/ORBTextureNativeParser.h"
#include "ORBTexture.h"

namespace orbtexture
{

void CORBTexture::privateAdopt(CORBTextureHeader&& header, uint8_t* data, uint32_t size)
{
    CORBTextureHeader::operator=(std::move(header));
    delete[] m_pTextureData;
    m_pTextureData = data;
    m_uiDataSize = size;
}

bool CORBTexture::privateSaveORBFile(FILE* file) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteORB(sink);
}

bool CORBTexture::privateWriteORB(CByteSink& sink) const
{
    const uint32_t total = getDataSize(-1, true, true);
    if (!privateHoldsData(total))
        return false;

    sink.Write(&m_sHeader, ORBTEX_V3_HEADER_SIZE);

    bool ok = true;
    forEachMetaData([&](const MetaDataBlock& block) {
        ok &= sink.Write(&block.fourCC, 4);
        ok &= sink.Write(&block.key, 4);
        ok &= sink.Write(&block.dataSize, 4);
        // A block without data writes nothing and fails the save.
        ok &= block.data && sink.WriteItem(block.data, block.dataSize);
    });
    ok &= sink.WriteItem(m_pTextureData, total);
    return ok;
}

} // namespace orbtexture
