#ifndef ORBTEXTUREHEADER_H
#define ORBTEXTUREHEADER_H

#include <cstdint>

#include "ORBTextureFormat.h"
#include "ORBTextureInfo.h"
#include "Tools/ORBTDefines.h"
#include "Tools/ORBTMap.h"
#include "Tools/ORBTString.h"

namespace orbtexture
{

// Metadata items keyed first by fourCC, then by key, in insertion order.
typedef CORBTMap<unsigned int, MetaDataBlock> MetaDataKeyMap;
typedef CORBTMap<unsigned int, MetaDataKeyMap> MetaDataMap;

// Everything about a texture except its pixels: the native file header and
// the metadata items. The header record is the first member, so the first 52
// bytes of the object are the file header.
class ORBT_API CORBTextureHeader
{
public:
    CORBTextureHeader();
    CORBTextureHeader(uint64_t pixelFormat, uint32_t height = 1, uint32_t width = 1, uint32_t depth = 1,
                      uint32_t numMipMaps = 1, uint32_t numSurfaces = 1, uint32_t numFaces = 1,
                      EORBTColourSpace colourSpace = eColourSpaceLinear,
                      EORBTVariableType channelType = eVarUnsignedByteNorm, bool preMultiplied = false);
    // Copies the record as given, metaDataSize included, then adds the blocks
    // as addMetaDataBlocks does (which adds to metaDataSize).
    explicit CORBTextureHeader(const ORBTextureHeaderV3& fileHeader, unsigned int metaDataCount = 0,
                               const MetaDataBlock* metaData = nullptr);
    CORBTextureHeader(const CORBTextureHeader& other);
    CORBTextureHeader& operator=(const CORBTextureHeader& other);
    // Moves take the other header's metadata and leave it without items.
    CORBTextureHeader(CORBTextureHeader&& other) noexcept;
    CORBTextureHeader& operator=(CORBTextureHeader&& other) noexcept;
    ~CORBTextureHeader();

    // Plain reads.
    ORBTextureHeaderV3 getFileHeader() const { return m_sHeader; }
    PixelType getPixelType() const { return PixelType(m_sHeader.pixelFormat); }
    uint32_t getBitsPerPixel() const;
    EORBTColourSpace getColourSpace() const { return EORBTColourSpace(m_sHeader.colourSpace); }
    EORBTVariableType getChannelType() const { return EORBTVariableType(m_sHeader.channelType); }
    // 0 for a level not below the MIP count.
    uint32_t getWidth(uint32_t mip = 0) const;
    uint32_t getHeight(uint32_t mip = 0) const;
    uint32_t getDepth(uint32_t mip = 0) const;
    uint32_t getNumArrayMembers() const { return m_sHeader.numSurfaces; }
    uint32_t getNumMIPLevels() const { return m_sHeader.numMIPMaps; }
    uint32_t getNumFaces() const { return m_sHeader.numFaces; }
    // Bytes of one level (mip >= 0) or all levels (-1).
    uint32_t getDataSize(int mip = -1, bool allSurfaces = true, bool allFaces = true) const;
    // Texels: data size times 8 over bits per pixel; 0 for formats of 0 bits per pixel.
    uint32_t getTextureSize(int mip = -1, bool allSurfaces = true, bool allFaces = true) const;
    bool isFileCompressed() const { return (m_sHeader.flags & ORBTEX_FLAG_FILE_COMPRESSED) != 0; }
    bool isPreMultiplied() const { return (m_sHeader.flags & ORBTEX_FLAG_PREMULTIPLIED) != 0; }
    uint32_t getMetaDataSize() const { return m_sHeader.metaDataSize; }
    const MetaDataMap* getMetaDataMap() const { return &m_MetaDataMap; }

    // Plain writes, no validation.
    void setPixelFormat(PixelType format) { m_sHeader.pixelFormat = format.PixelTypeID; }
    void setColourSpace(EORBTColourSpace colourSpace) { m_sHeader.colourSpace = colourSpace; }
    void setChannelType(EORBTVariableType channelType) { m_sHeader.channelType = channelType; }
    void setWidth(uint32_t width) { m_sHeader.width = width; }
    void setHeight(uint32_t height) { m_sHeader.height = height; }
    void setDepth(uint32_t depth) { m_sHeader.depth = depth; }
    void setNumArrayMembers(uint32_t numMembers) { m_sHeader.numSurfaces = numMembers; }
    void setNumMIPLevels(uint32_t numMIPLevels) { m_sHeader.numMIPMaps = numMIPLevels; }
    void setNumFaces(uint32_t numFaces) { m_sHeader.numFaces = numFaces; }
    // true sets the bit and keeps the other flag; false clears the whole flags word.
    void setIsFileCompressed(bool isFileCompressed);
    void setIsPreMultiplied(bool isPreMultiplied);

    // Format codes of the graphics APIs for this header's pixel format,
    // channel type and colour space (ORBTextureFormat.h); the getters answer
    // false or 0 where the API has no code, the OpenGL ones writing their
    // outputs as getOpenGLFormat does. getOGLESFormat answers the base
    // internal format as the internal format. The setters set pixel format,
    // channel type and colour space (D3D also the premultiplied flag, through
    // setIsPreMultiplied) and leave the header unchanged when the code is
    // unknown.
    bool getOGLFormat(uint32_t& internalFormat, uint32_t& format, uint32_t& type) const;
    bool getOGLESFormat(uint32_t& internalFormat, uint32_t& format, uint32_t& type) const;
    uint32_t getD3DFormat() const;
    uint32_t getDXGIFormat() const;
    bool setOGLFormat(const uint32_t& internalFormat, const uint32_t& format, const uint32_t& type);
    bool setOGLESFormat(const uint32_t& internalFormat, const uint32_t& format, const uint32_t& type);
    bool setD3DFormat(const uint32_t& d3dFormat);
    bool setDXGIFormat(const uint32_t& dxgiFormat);

    // Typed metadata reads; each answers a default when the item is absent.
    EORBTOrientation getOrientation(EORBTAxis axis) const;
    bool isBumpMap() const;
    float getBumpMapScale() const;
    CORBTString getBumpMapOrder() const;
    // 0 for a 1 x 1 x 1 texture even when the item exists.
    uint32_t getNumTextureAtlasMembers() const;
    // Points into the item; null when absent.
    const float* getTextureAtlasData() const;
    CORBTString getCubeMapOrder() const;
    void getBorder(uint32_t& borderWidth, uint32_t& borderHeight, uint32_t& borderDepth) const;
    // A deep copy, or an all-zero block when absent.
    MetaDataBlock getMetaData(uint32_t fourCC, uint32_t key) const;
    bool hasMetaData(uint32_t fourCC, uint32_t key) const;
    // Calls visit(const MetaDataBlock&) for every item, in map order.
    template <typename Visitor>
    void forEachMetaData(Visitor&& visit) const
    {
        for (unsigned int i = 0; i < m_MetaDataMap.GetSize(); ++i)
        {
            const MetaDataKeyMap& items = m_MetaDataMap.GetValue(i);
            for (unsigned int j = 0; j < items.GetSize(); ++j)
                visit(items.GetValue(j));
        }
    }

    // Typed metadata writes: replace the item and keep metaDataSize exact.
    void setOrientation(EORBTOrientation orientation);
    void setBumpMap(float bumpScale, CORBTString bumpOrder = "xyz");
    void setTextureAtlas(const float* atlasData, uint32_t numAtlasMembers);
    void setCubeMapOrder(CORBTString cubeMapOrder);
    void setBorder(uint32_t borderWidth, uint32_t borderHeight, uint32_t borderDepth);
    // Stores a deep copy under the block's own fourCC and key. Always adds
    // 12 plus dataSize to metaDataSize, even when it replaces an item.
    void addMetaData(const MetaDataBlock& metaData);
    // The same as addMetaData on each block in turn, in time linear in their
    // number (addMetaData searches the items one by one).
    void addMetaDataBlocks(const MetaDataBlock* blocks, unsigned int count);
    void removeMetaData(const uint32_t& fourCC, const uint32_t& key);
    // Sets metaDataSize to the true sum of 12 plus dataSize over the items,
    // which addMetaData of an existing key leaves too high, and returns it.
    // Call it before saving a header whose items were replaced that way.
    uint32_t recountMetaDataSize();

protected:
    ORBTextureHeaderV3 m_sHeader;
    MetaDataMap m_MetaDataMap;

private:
    // Finds or creates one of the library's own items and gives it a fresh
    // buffer of dataSize bytes, adjusting metaDataSize.
    uint8_t* privateResetOwnMetaData(uint32_t key, uint32_t dataSize);
    const MetaDataBlock* privateFindMetaData(uint32_t fourCC, uint32_t key) const;
};

} // namespace orbtexture

#endif
