#ifndef ORBTEXTURENATIVEPARSER_H
#define ORBTEXTURENATIVEPARSER_H

// Internal: the one parser of native .orb files and memory images. Every
// failure sets the thread's last-error text and returns its reason.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "Files/ORBTextureContainerParser.h"
#include "ORBTextureHeader.h"

namespace orbtexture
{

class CNativeFileParser : public CContainerParser
{
public:
    // 'firstWord' is the file's first word, already read and found to be the
    // native version.
    CNativeFileParser(CByteSource& source, EMetaDataWalk walk, uint32_t firstWord);

    const char* ContainerName() const override { return "orb"; }

    // Reads and checks the header and the metadata, leaving the source at the
    // pixel data. The header's metaDataSize is the sum of the blocks kept.
    ELoadReason ReadHeader(CORBTextureHeader& header) override;

    // A file whose pixel data end early loads, the rest zero-filled; no data
    // at all fails. A memory image must be whole.
    bool AcceptsShortData() const override { return m_walk == EMetaDataWalk::File; }
    // The header of a dropped block, already read, stands for the first bytes.
    uint64_t StoredDataSize() const override { return m_dataSize - std::min<uint64_t>(m_prefixSize, m_dataSize); }
    // What the metadata items take in memory, their overhead included.
    uint64_t ExtraBytes() const override { return m_metaDataBytes; }

protected:
    ELoadReason ReadData(uint8_t* block, uint64_t& missing) override;

private:
    ELoadReason WalkMetaData(uint32_t declared, std::vector<MetaDataBlock>& blocks);
    // Checks the bytes found from the pixel data's start ('held', possibly
    // more than the data): a dropped block's data must be in the file.
    ELoadReason FinishData(uint64_t held, uint64_t& missing);

    EMetaDataWalk m_walk;
    uint32_t m_firstWord;
    uint64_t m_metaDataBytes = 0;
    // Header of a dropped block: the first bytes of the pixel data.
    uint8_t m_prefix[ORBTEX_METADATA_BLOCK_HEADER_SIZE] = {};
    uint32_t m_prefixSize = 0;
    // Bytes the file must hold from the pixel data's start (a dropped block).
    uint64_t m_mustHold = 0;
    uint32_t m_droppedFourCC = 0;
    uint32_t m_droppedKey = 0;
};

// Reads the first word of a .orb file or image and returns the parser of the
// header it starts (native or legacy); null, with the last error set, for
// anything else.
std::unique_ptr<CContainerParser> OpenORBParser(CByteSource& source, EMetaDataWalk walk);

} // namespace orbtexture

#endif
