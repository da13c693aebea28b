#ifndef ORBTEXTURE_H
#define ORBTEXTURE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "ORBTextureHeader.h"
#include "Tools/ORBTDefines.h"
#include "Tools/ORBTString.h"

namespace orbtexture
{

// A texture: a header with one block holding every surface. Surfaces are
// ordered MIP level (largest first), then array member, then face; each
// surface is its depth slices, rows and pixels.
class ORBT_API CORBTexture : public CORBTextureHeader
{
public:
    // Empty texture: default header, no data.
    CORBTexture();
    // Allocates getDataSize(-1, true, true) bytes; copies them from data when
    // it is not null, else leaves them uninitialised.
    explicit CORBTexture(const CORBTextureHeader& header, const void* data = nullptr);
    CORBTexture(const CORBTexture& other);
    // Parses a native file image in memory. The image's extent is trusted.
    explicit CORBTexture(const void* memoryFile);
    // Parses a native file image of 'size' bytes; anything that does not fit
    // gives an empty texture.
    CORBTexture(const void* memoryFile, size_t size);
    // Loads a file, choosing the reader by extension. On failure the texture
    // is empty: getDataPtr() returns null.
    explicit CORBTexture(const char* filePath);
    ~CORBTexture();

    CORBTexture& operator=(const CORBTexture& other);
    // Moves take the other texture's block and leave it empty.
    CORBTexture(CORBTexture&& other);
    CORBTexture& operator=(CORBTexture&& other);

    // Start of one surface; null for mip -1 or any index out of range. With
    // no data block the result is the bare offset.
    unsigned char* getDataPtr(uint32_t mip = 0, uint32_t arrayMember = 0, uint32_t face = 0) const;

    const CORBTextureHeader& getHeader() const { return *this; }

    // Adds an eMetaPadding item so that pixel data in a saved native file
    // start on a multiple of 'alignment'. Does nothing for 0 or 1.
    void addPaddingMetaData(uint32_t alignment);

    // Saves by extension; anything other than a known foreign format is saved
    // natively, with ".orb" appended unless the path already ends in it. A
    // failed save removes the file it created.
    bool saveFile(const CORBTString& filePath) const;

private:
    bool privateLoadORBFile(FILE* file);
    bool privateSaveORBFile(FILE* file) const;
    // Shared by both memory-image constructors; 'size' bounds every read.
    void privateLoadORBMemory(const uint8_t* image, size_t size);
    // Back to the empty default texture.
    void privateReset();

    uint32_t m_uiDataSize;
    uint8_t* m_pTextureData;
};

} // namespace orbtexture

#endif
