// .astc files: a 16-byte header (magic, block size, 24-bit dimensions) and
// the blocks of one surface.

#include "Files/ORBTextureASTCFile.h"

#include <cstring>

#include "Model/ORBTextureFormatFacts.h"
#include "Files/ORBTextureByteSink.h"
#include "ORBTexture.h"

namespace orbtexture
{

namespace
{

constexpr uint32_t kASTCMagic = 0x5CA1AB13;
constexpr uint32_t kASTCHeaderSize = 16;

uint32_t Read24(const uint8_t* bytes) { return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16; }

void Write24(uint8_t* bytes, uint32_t value)
{
    bytes[0] = uint8_t(value);
    bytes[1] = uint8_t(value >> 8);
    bytes[2] = uint8_t(value >> 16);
}

bool InBlockRange(uint32_t size) { return size >= 3 && size <= 12; }

class CASTCFileParser : public CContainerParser
{
public:
    explicit CASTCFileParser(CByteSource& source) : CContainerParser(source) {}

    const char* ContainerName() const override { return "astc"; }

    ELoadReason ReadHeader(CORBTextureHeader& header) override
    {
        uint8_t bytes[kASTCHeaderSize];
        const size_t got = m_source.Read(bytes, sizeof bytes);
        if (got != sizeof bytes)
            return ReadFailure(got == 0 ? eLoadTooShort : eLoadTruncatedHeader);

        uint32_t magic;
        std::memcpy(&magic, bytes, 4);
        AddField("magic", "0x%08X", magic);
        if (magic != kASTCMagic)
            return SetLoadError(eLoadBadSignature, "astc");
        const uint32_t x = bytes[4], y = bytes[5], z = bytes[6];
        m_width = Read24(bytes + 7);
        m_height = Read24(bytes + 10);
        m_depth = Read24(bytes + 13);
        const uint32_t width = m_width, height = m_height, depth = m_depth;
        AddField("block size", "%u x %u x %u", x, y, z);
        AddField("width", "%u", width);
        AddField("height", "%u", height);
        AddField("depth", "%u", depth);

        char what[64];
        if (!InBlockRange(x) || !InBlockRange(y) || (z != 1 && !InBlockRange(z)))
        {
            std::snprintf(what, sizeof what, "block size %u x %u x %u out of range", x, y, z);
            return SetLoadError(eLoadBadHeader, "astc", what);
        }
        const uint32_t format = ASTCFormatOfBlock(x, y, z);
        if (format == 0)
        {
            std::snprintf(what, sizeof what, "block size %u x %u x %u is no ASTC format", x, y, z);
            return SetLoadError(eLoadBadHeader, "astc", what);
        }

        CORBTextureHeader parsed;
        parsed.setPixelFormat(PixelType(format));
        parsed.setWidth(width);
        parsed.setHeight(height);
        parsed.setDepth(depth);
        const ELoadReason checked = CheckHeader(parsed);
        if (checked != eLoadOK)
            return checked;
        // A zero side still counts as one block; a file without that block
        // is named by its size.
        m_zeroSize = width == 0 || height == 0 || depth == 0;
        const uint64_t remaining = m_source.Remaining();
        if (m_zeroSize && remaining != CByteSource::kUnknown && remaining < m_dataSize)
            return ZeroSize();
        header = parsed;
        return eLoadOK;
    }

protected:
    ELoadReason ReadData(uint8_t* block, uint64_t&) override
    {
        const ELoadReason read = TakeData(block, m_dataSize);
        return read == eLoadShortPixelData && m_zeroSize ? ZeroSize() : read;
    }

private:
    ELoadReason ZeroSize()
    {
        return RefuseWith(eLoadBadHeader, "astc", "size %u x %u x %u is zero", m_width, m_height, m_depth);
    }

    bool m_zeroSize = false;
    uint32_t m_width = 0, m_height = 0, m_depth = 0;
};

} // namespace

std::unique_ptr<CContainerParser> MakeASTCParser(CByteSource& source)
{
    return std::unique_ptr<CContainerParser>(new CASTCFileParser(source));
}

bool CORBTexture::privateSaveASTCFile(FILE* file) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteASTC(sink);
}

bool CORBTexture::privateWriteASTC(CByteSink& sink) const
{

    uint8_t header[kASTCHeaderSize] = {};
    std::memcpy(header, &kASTCMagic, 4);
    // Formats other than ASTC write block sizes of 0.
    const uint64_t format = getPixelType().PixelTypeID;
    if (IsASTCFormat(format))
    {
        const FormatDescriptor& descriptor = DescribeFormat(uint32_t(format));
        header[4] = descriptor.minX;
        header[5] = descriptor.minY;
        header[6] = descriptor.minZ;
    }
    // Dimensions keep their low 24 bits.
    Write24(header + 7, getWidth(0));
    Write24(header + 10, getHeight(0));
    Write24(header + 13, getDepth(0));
    if (!sink.Write(header, sizeof header))
        return false;

    // The first surface only: level 0, member 0, face 0.
    const uint32_t size = getDataSize(0, false, false);
    if (!privateHoldsData(size))
        return false;
    return sink.Write(getDataPtr(0, 0, 0), size);
}

} // namespace orbtexture
