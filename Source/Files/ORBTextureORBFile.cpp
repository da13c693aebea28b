// Native .orb files and memory images: 52-byte header, metadata blocks, data.

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
    const uint32_t total = getDataSize(-1, true, true);
    if (!privateHoldsData(total))
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

} // namespace orbtexture
