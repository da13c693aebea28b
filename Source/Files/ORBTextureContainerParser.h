#ifndef ORBTEXTURECONTAINERPARSER_H
#define ORBTEXTURECONTAINERPARSER_H

// Internal: what the parser of every container offers the loaders. One parser
// reads one file or image front to back: ReadHeader, then ReadData once. The
// generic loader below checks the load limit and that the source holds the
// data before it allocates the pixel block.

#include <cstdint>
#include <memory>

#include "Files/ORBTextureByteSource.h"
#include "Model/ORBTextureErrors.h"
#include "ORBTextureHeader.h"
#include "Tools/ORBTArray.h"
#include "Tools/ORBTString.h"

namespace orbtexture
{

// Containers, chosen by file extension.
enum class EContainer
{
    Native, // .orb and anything unknown: native or legacy, told by the first word
    KTX,
    KTX2,
    DDS,
    ASTC,
    CHeader // written only
};

// Lower-cased extension: from the last '.' on, the dot included or not; the
// whole path when it has no dot.
CORBTString LowerCaseExtension(const CORBTString& path, bool withDot);

// The container a path loads from (".ktx", ".ktx2", ".dds", ".astc", else native).
EContainer ContainerForLoad(const CORBTString& path);

class CContainerParser
{
public:
    // Starts a parse: the thread's last error and shortfall are cleared.
    explicit CContainerParser(CByteSource& source);
    virtual ~CContainerParser() = default;

    // "orb", "legacy orb (version 2)", "dds", "ktx", "astc" and so on.
    virtual const char* ContainerName() const = 0;

    // Reads and checks everything before the pixel data and fills 'header'
    // (metaDataSize exact). Sets DataSize(): the bytes of the pixel block,
    // header.getDataSize(-1, true, true).
    virtual ELoadReason ReadHeader(CORBTextureHeader& header) = 0;

    // Reads the pixel data into 'block' (DataSize() bytes, native surface
    // order), or with a null block only walks over them. 'missing' counts the
    // bytes of a short file that loads anyway (the native file); containers
    // that need their data whole fail instead.
    ELoadReason LoadData(uint8_t* block, uint64_t& missing);

    // Bytes the source must still hold after the header for the data to be
    // whole (padding and size words included). A sized source with fewer is
    // refused before the block is allocated, unless AcceptsShortData().
    virtual uint64_t StoredDataSize() const { return m_dataSize; }
    virtual bool AcceptsShortData() const { return false; }

    // Memory the load takes beyond the pixel block (metadata items), counted
    // against the load limit with the block.
    virtual uint64_t ExtraBytes() const { return 0; }

    uint64_t DataSize() const { return m_dataSize; }

    // The container's own header fields read so far, one "name: value" line
    // each, in file order, for a reader that wants to show them.
    const CORBTArray<CORBTString>& Fields() const { return m_fields; }

protected:
    // LoadData's work, with m_dataLeft set to StoredDataSize().
    virtual ELoadReason ReadData(uint8_t* block, uint64_t& missing) = 0;

    // A read that came short: the source's error if it has one, else 'atEnd'.
    ELoadReason ReadFailure(ELoadReason atEnd);
    // Reads 'size' bytes to 'destination', or skips them when it is null;
    // short data fail with eLoadShortPixelData naming what is missing.
    ELoadReason TakeData(uint8_t* destination, uint64_t size);
    // Skips padding; a short skip fails as short pixel data.
    ELoadReason SkipPadding(uint64_t size) { return TakeData(nullptr, size); }

    // Checks a header the container produced: no level, member or face;
    // channels wider than 32 bits; a size that overflows or is unknown; with
    // 'limitMIPLevels' a MIP count above 1 + log2 of the largest side. Sets
    // DataSize() on success.
    ELoadReason CheckHeader(const CORBTextureHeader& header, bool limitMIPLevels = true);

    void AddField(const char* name, const char* format, ...) __attribute__((format(printf, 3, 4)));

    // Sets a reason whose message takes the container's name and a detail
    // (eLoadBadHeader, eLoadNoPixelFormat), the detail formatted as printf.
    ELoadReason RefuseWith(ELoadReason reason, const char* container, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    CByteSource& m_source;
    uint64_t m_dataSize = 0;
    // Data bytes still expected by TakeData, for the shortfall message.
    uint64_t m_dataLeft = 0;

private:
    CORBTArray<CORBTString> m_fields;
};

// How the metadata blocks are walked. A file drops a block that runs past
// the declared metadata size and refuses an empty block; a memory image keeps
// reading blocks until their sum reaches the declared size.
enum class EMetaDataWalk : uint8_t
{
    File,
    MemoryImage
};

// The parser of a container; for the native one it reads the first word to
// tell native from legacy. Null, with the last error set, when the source
// cannot be such a file. 'walk' says how a native file's metadata is walked.
std::unique_ptr<CContainerParser> MakeContainerParser(EContainer container, CByteSource& source,
                                                      EMetaDataWalk walk);

// Header, load limit, a check that the source holds the data, then the block.
// With 'acceptShortData' false a container that would load short data (the
// native file) is held to them too. A source that holds no pixel byte at all
// is refused before the block exists. On failure the thread's last error
// tells why and nothing is kept.
bool LoadWithParser(CContainerParser& parser, CByteSource& source, CORBTextureHeader& header,
                    std::unique_ptr<uint8_t[]>& data, uint64_t& size, bool acceptShortData = true);

// Header and a walk over the data without keeping it; sets the shortfall.
bool ReadHeaderWithParser(CContainerParser& parser, CORBTextureHeader& header);

} // namespace orbtexture

#endif
