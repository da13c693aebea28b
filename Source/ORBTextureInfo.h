#ifndef ORBTEXTUREINFO_H
#define ORBTEXTUREINFO_H

#include <cstdint>

#include "ORBTextureFormat.h"
#include "Tools/ORBTDefines.h"

// First word of a native file and fourCC of the library's own metadata: "ORB" then 3.
constexpr uint32_t ORBTEX_VERSION_3 = 0x0342524F;
constexpr uint32_t ORBTEX_METADATA_FOURCC = 0x0342524F;
constexpr uint32_t ORBTEX_V3_HEADER_SIZE = 52;
// Serialised metadata block header: fourCC, key, dataSize.
constexpr uint32_t ORBTEX_METADATA_BLOCK_HEADER_SIZE = 12;

// Header flag bits.
constexpr uint32_t ORBTEX_FLAG_FILE_COMPRESSED = 1u << 0;
constexpr uint32_t ORBTEX_FLAG_PREMULTIPLIED = 1u << 1;

// The native file header, exactly as it is stored (little-endian, no padding).
// Height precedes width. Packed to 4 bytes so pixelFormat sits at offset 8
// and the record is 52 bytes, not padded to 56.
#pragma pack(push, 4)
struct ORBTextureHeaderV3
{
    uint32_t version = ORBTEX_VERSION_3;
    uint32_t flags = 0;
    uint64_t pixelFormat = orbtexture::ePF_NumCompressed;
    uint32_t colourSpace = orbtexture::eColourSpaceLinear;
    uint32_t channelType = orbtexture::eVarUnsignedByteNorm;
    uint32_t height = 1;
    uint32_t width = 1;
    uint32_t depth = 1;
    uint32_t numSurfaces = 1;
    uint32_t numFaces = 1;
    uint32_t numMIPMaps = 1;
    uint32_t metaDataSize = 0;
};
#pragma pack(pop)
static_assert(sizeof(ORBTextureHeaderV3) == ORBTEX_V3_HEADER_SIZE, "native header must be 52 bytes");

// Keys of the library's own metadata items (fourCC ORBTEX_METADATA_FOURCC).
enum EORBTMetaData : uint32_t
{
    eMetaTextureAtlas = 0, // float array
    eMetaBumpData = 1,     // float scale, 4 bytes of channel order
    eMetaCubeMapOrder = 2, // up to 6 face letters
    eMetaOrientation = 3,  // one byte per axis
    eMetaBorder = 4,       // three u32: x, y, z
    eMetaPadding = 5,      // filler
    eNumMetaDataTypes
};

// One metadata item. Owns its data; copies are deep.
struct ORBT_API MetaDataBlock
{
    uint32_t fourCC = 0;
    uint32_t key = 0;
    uint32_t dataSize = 0;
    uint8_t* data = nullptr;

    MetaDataBlock() = default;
    // Copies dataSize bytes from data when both are non-zero.
    MetaDataBlock(uint32_t fourCC, uint32_t key, uint32_t dataSize, const uint8_t* data);
    MetaDataBlock(const MetaDataBlock& other);
    MetaDataBlock& operator=(const MetaDataBlock& other);
    // Moves take the other block's data and leave it empty.
    MetaDataBlock(MetaDataBlock&& other) noexcept;
    MetaDataBlock& operator=(MetaDataBlock&& other) noexcept;
    ~MetaDataBlock();

    // Bytes the block takes when serialised: 12 plus dataSize.
    uint32_t SizeOfBlockInBytes() const { return ORBTEX_METADATA_BLOCK_HEADER_SIZE + dataSize; }

    // Fills the block from its serialised form and moves the cursor past it.
    // Reads as many bytes as the block declares; callers bound the input.
    bool ReadFromPtr(const unsigned char** cursor);
};

// Bytes of texture data: one level (mipLevel >= 0) or all levels (-1), times
// the array members and faces when asked.
ORBT_API uint32_t ORBTGetTextureDataSize(ORBTextureHeaderV3 header, int mipLevel = -1, bool allSurfaces = true,
                                         bool allFaces = true);

// The kinds of failure ORBTGetLastErrorKind reports.
enum EORBTErrorKind : uint32_t
{
    eORBTErrorNone = 0,
    eORBTErrorBadFile,     // a load or header read refused the file's contents
    eORBTErrorIO,          // a file could not be opened, read or written; see ORBTGetLastErrno
    eORBTErrorArgument,    // an argument the call does not take (an empty texture, a null pointer)
    eORBTErrorUnsupported, // a format, layout or quality this build has no code for
    eORBTErrorSize,        // a size the call or its codec cannot take
    eORBTErrorMemory,      // an allocation failed
    eORBTErrorCancelled,   // the call's context asked it to stop
    eORBTErrorTool,        // the external ASTC encoder is missing or failed
    eORBTNumErrorKinds
};

// Why the last failing call of the calling thread failed, as one line of text
// ("truncated header", "cancelled"). Every public operation that fails sets
// it: loads, header reads and name lookups (which also clear it when they
// succeed), saves, Transcode, the image operations, the comparisons and the
// codec entries. The text stays valid until the thread's next failing call.
ORBT_API const char* ORBTGetLastError();

// The kind of that failure; eORBTErrorNone after a successful load.
ORBT_API EORBTErrorKind ORBTGetLastErrorKind();

// The errno of that failure when it was a system call's, else 0.
ORBT_API int ORBTGetLastErrno();

// Bytes of pixel data that the last load or header read of the calling thread
// found missing at the end of the file (a short file still loads, its tail
// zero-filled); 0 when the data were complete or the call failed.
ORBT_API uint64_t ORBTGetLastLoadShortfall();

// Most bytes one load may allocate for pixel data and metadata together; a
// file that needs more is refused before anything is allocated. Applies to
// every thread. Default 1 GiB; 0 restores the default.
ORBT_API void ORBTSetLoadLimit(uint64_t bytes);
ORBT_API uint64_t ORBTGetLoadLimit();

// Files and pixel words are little-endian, and the library reads them by
// copying bytes into native integers.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "ORBTexLib needs a little-endian machine");

#endif
