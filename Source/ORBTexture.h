#ifndef ORBTEXTURE_H
#define ORBTEXTURE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "ORBTextureHeader.h"
#include "Model/ORBTextureLegacyApi.h"
#include "Tools/ORBTArray.h"
#include "Tools/ORBTDefines.h"
#include "Tools/ORBTString.h"

namespace orbtexture
{

class CByteSource;
class CByteSink;

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
    // Parses a native file image of 'size' bytes and never reads past it; a
    // malformed image gives an empty texture. Pixel data ending early load as
    // from a short file.
    CORBTexture(const void* memoryFile, size_t size);
    // Loads a file, choosing the reader by extension. On failure the texture
    // is empty (getDataPtr() returns null) and ORBTGetLastError() tells why. A
    // file whose pixel data end early still loads, the missing tail zeroed;
    // ORBTGetLastLoadShortfall() tells how many bytes were missing.
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
    // Saves level 0, member 0, face 0 of an ASTC texture as a .astc file.
    bool saveASTCFile(const CORBTString& filePath) const;
    // Writes the native file as a C source array named 'symbolName' (used as
    // given), whatever the path; saveFile of a ".h" path names it by the path.
    bool saveCHeaderFile(const CORBTString& filePath, const CORBTString& symbolName) const;
    // Saves a KTX 2.0 file at the path exactly as given, each MIP level
    // supercompressed with Zstandard at 'zstdLevel' (1 to 22; 0: none).
    // saveFile of a ".ktx2" path writes it without supercompression.
    bool saveKTX2File(const CORBTString& filePath, int zstdLevel) const;
    // Saves a legacy .orb file for one legacy API, at the path exactly as given.
    bool saveFileLegacyORB(const CORBTString& filePath, ELegacyApi api) const;

    // Appends to 'bytes' the file saveFile, saveASTCFile or saveCHeaderFile
    // would write for 'name': its extension chooses the container (".ktx",
    // ".ktx2", ".dds", ".astc", ".h", else native) and a ".h" name names the symbols as
    // saveFile does. saveToMemoryLegacyORB is the same for a legacy file. On
    // failure 'bytes' holds what was written and ORBTGetLastError() tells why.
    // Saves to files fail with a reason too, the errno of a system call in
    // ORBTGetLastErrno().
    bool saveToMemory(std::vector<uint8_t>& bytes, const CORBTString& name) const;
    bool saveToMemoryLegacyORB(std::vector<uint8_t>& bytes, ELegacyApi api) const;
    bool saveToMemoryKTX2(std::vector<uint8_t>& bytes, int zstdLevel) const;

    // Same dimensions, layout, metadata and pixel bytes.
    bool isEqual(const CORBTexture& other) const;

    // Loads an image of a file of any container from memory, never reading
    // past 'size' bytes; 'name' chooses the container by its extension as a
    // file name does (".dds", ".ktx", ".ktx2", ".astc", else native). On failure the
    // texture is empty and ORBTGetLastError() tells why. A native image
    // follows the sized memory-image constructor.
    bool loadFromMemory(const void* image, size_t size, const CORBTString& name);

    // Loads a file as the loading constructor does, replacing the texture.
    // With 'acceptShortData' false a native file whose pixel data end early is
    // refused ("pixel data short by N bytes") before its block is allocated,
    // where the constructor loads it zero-filled. False on failure, with the
    // texture empty and ORBTGetLastError() telling why.
    bool loadFile(const char* filePath, bool acceptShortData = true);

private:
    bool privateLoadORBFile(FILE* file, bool acceptShortData = true);
    bool privateSaveORBFile(FILE* file) const;
    bool privateLoadDDSFile(FILE* file);
    bool privateSaveDDSFile(FILE* file) const;
    bool privateLoadKTXFile(FILE* file);
    bool privateSaveKTXFile(FILE* file) const;
    bool privateLoadASTCFile(FILE* file);
    bool privateSaveASTCFile(FILE* file) const;
    bool privateSaveCHeaderFile(FILE* file, CORBTString name) const;
    bool privateSaveLegacyORBFile(FILE* file, ELegacyApi api) const;
    // Every loader: the container's parser over a file or an image.
    bool privateLoad(CByteSource& source, int container, bool memoryImage, bool acceptShortData = true);
    // The container writers, to a file or memory; 'container' as in
    // privateLoad, 'symbolName' for C headers.
    bool privateWriteORB(CByteSink& sink) const;
    bool privateWriteDDS(CByteSink& sink) const;
    bool privateWriteKTX(CByteSink& sink) const;
    bool privateWriteKTX2(CByteSink& sink, int zstdLevel) const;
    bool privateWriteASTC(CByteSink& sink) const;
    bool privateWriteCHeader(CByteSink& sink, const CORBTString& symbolName) const;
    bool privateWriteLegacyORB(CByteSink& sink, ELegacyApi api) const;
    bool privateWrite(CByteSink& sink, int container, const CORBTString& symbolName) const;
    // Opens 'path' for writing, runs the writer and removes the file if it
    // fails; 'container' -1 is the legacy file.
    bool privateWriteFile(const CORBTString& path, int container, const CORBTString& symbolName,
                          ELegacyApi api = eLegacyApiNone, int zstdLevel = 0) const;
    // Shared by both memory-image constructors; 'size' bounds every read.
    void privateLoadORBMemory(const uint8_t* image, size_t size);
    // Takes over a loaded header and its data block of 'size' bytes.
    void privateAdopt(CORBTextureHeader&& header, uint8_t* data, uint32_t size);
    // Back to the empty default texture.
    void privateReset();
    // Whether the block holds 'size' bytes: a header edited after
    // construction may describe more data than the block has, and writers
    // refuse it rather than read past the block.
    bool privateHoldsData(uint32_t size) const { return size <= m_uiDataSize && (size == 0 || m_pTextureData); }

    uint32_t m_uiDataSize;
    uint8_t* m_pTextureData;
};

} // namespace orbtexture

// Reads the header and metadata of a texture file, choosing the reader by
// extension as the loading constructor does, without reading its pixel data
// into memory (the load limit does not apply). False, with ORBTGetLastError()
// set, where loading the file would fail; ORBTGetLastLoadShortfall() tells how
// many bytes of pixel data the file lacks.
ORBT_API bool ORBTReadTextureHeader(const char* filePath, orbtexture::CORBTextureHeader& header);

// As ORBTReadTextureHeader, and names the container ("orb", "dds", "ktx",
// "astc", "legacy orb (version 2)") and lists the container's own header
// fields as "name: value" lines in file order. After a failure the fields read
// before the problem are still listed.
ORBT_API bool ORBTReadTextureFileInfo(const char* filePath, orbtexture::CORBTextureHeader& header,
                                      CORBTString& container,
                                      CORBTArray<CORBTString>& fields);

#endif
