#ifndef ORBTEXTURENATIVEPARSER_H
#define ORBTEXTURENATIVEPARSER_H

// Internal: the one parser of native .orb files and memory images. Every
// failure sets the thread's last-error text and returns its reason.

#include <cstdint>
#include <vector>

#include "ORBTextureByteSource.h"
#include "ORBTextureErrors.h"
#include "ORBTextureHeader.h"

namespace orbtexture
{

// How the metadata blocks are walked. A file drops a block that runs past
// the declared metadata size and refuses an empty block; a memory image keeps
// reading blocks until their sum reaches the declared size.
enum class EMetaDataWalk : uint8_t
{
    File,
    MemoryImage
};

class CNativeFileParser
{
public:
    // Starts a parse: the thread's last error and shortfall are cleared.
    CNativeFileParser(CByteSource& source, EMetaDataWalk walk);

    // Reads and checks the header and the metadata, leaving the source at the
    // pixel data. The header's metaDataSize is the sum of the blocks kept.
    ELoadReason ReadHeader(CORBTextureHeader& header);

    // Bytes of pixel data the header declares; valid after ReadHeader.
    uint64_t DataSize() const { return m_dataSize; }

    // Refuses with eLoadOverLimit if metadata (with the memory its items take
    // beyond their data) and pixel data together need more than the load limit.
    ELoadReason CheckLoadLimit();

    // Reads DataSize() bytes of pixel data into 'destination'. Data ending
    // early still load: the rest is zero-filled and 'missing' counts it. No
    // data at all fails.
    ELoadReason ReadData(uint8_t* destination, uint64_t& missing);

    // As ReadData without keeping the bytes.
    ELoadReason CountData(uint64_t& missing);

private:
    ELoadReason ReadFailure(ELoadReason atEnd);
    ELoadReason WalkMetaData(uint32_t declared, std::vector<MetaDataBlock>& blocks);
    // Checks the bytes found from the pixel data's start ('held', possibly
    // more than the data): a dropped block's data must be in the file.
    ELoadReason FinishData(uint64_t held, uint64_t& missing);

    CByteSource& m_source;
    EMetaDataWalk m_walk;
    uint64_t m_dataSize = 0;
    uint64_t m_metaDataBytes = 0;
    // Header of a dropped block: the first bytes of the pixel data.
    uint8_t m_prefix[ORBTEX_METADATA_BLOCK_HEADER_SIZE] = {};
    uint32_t m_prefixSize = 0;
    // Bytes the file must hold from the pixel data's start (a dropped block).
    uint64_t m_mustHold = 0;
    uint32_t m_droppedFourCC = 0;
    uint32_t m_droppedKey = 0;
};

// Header and metadata of a native file, and the shortfall of its pixel data,
// without reading the data into memory.
bool ReadNativeHeader(FILE* file, CORBTextureHeader& header);

} // namespace orbtexture

#endif
