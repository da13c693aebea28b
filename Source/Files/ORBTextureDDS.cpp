// DirectDraw Surface files: "DDS ", a 124-byte header, an optional 20-byte
// DX10 header, then the surfaces of each array member and face with the MIP
// level innermost. All fields are little-endian.

#include "Files/ORBTextureDDS.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Files/ORBTextureByteSink.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

namespace
{

constexpr uint32_t MakeFourCC(char a, char b, char c, char d)
{
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 | uint32_t(uint8_t(d)) << 24;
}

constexpr uint32_t kHeaderSize = 124;
constexpr uint32_t kMainSize = 4 + kHeaderSize; // magic and header
constexpr uint32_t kDX10Size = 20;
constexpr uint32_t kPixelFormatSize = 32;
constexpr uint32_t kFourCCDX10 = MakeFourCC('D', 'X', '1', '0');

// Byte offsets from the start of the file.
enum : uint32_t
{
    kAtSize = 4,
    kAtFlags = 8,
    kAtHeight = 12,
    kAtWidth = 16,
    kAtPitch = 20,
    kAtDepth = 24,
    kAtMIPCount = 28,
    kAtPixelFormatSize = 76,
    kAtPixelFormatFlags = 80,
    kAtFourCC = 84,
    kAtBitCount = 88,
    kAtMasks = 92, // red, green, blue, alpha
    kAtCaps = 108,
    kAtCaps2 = 112,
    kAtDXGIFormat = 128,
    kAtResourceDimension = 132,
    kAtMiscFlag = 136,
    kAtArraySize = 140,
    kAtMiscFlags2 = 144,
};

// Header flags.
constexpr uint32_t kFlagsAlways = 0x1007; // caps, height, width, pixel format
constexpr uint32_t kFlagPitch = 0x8;
constexpr uint32_t kFlagMIPMapCount = 0x20000;
constexpr uint32_t kFlagLinearSize = 0x80000;
constexpr uint32_t kFlagDepth = 0x800000;

// Pixel format flags.
constexpr uint32_t kPixelAlphaPixels = 0x1;
constexpr uint32_t kPixelAlphaOnly = 0x2;
constexpr uint32_t kPixelFourCC = 0x4;
constexpr uint32_t kPixelRGB = 0x40;
constexpr uint32_t kPixelLuminance = 0x20000;
constexpr uint32_t kPixelBumpLuminance = 0x40000;
constexpr uint32_t kPixelBump = 0x80000;

constexpr uint32_t kCapsTexture = 0x1000;
constexpr uint32_t kCapsComplex = 0x8;
constexpr uint32_t kCapsMIPMap = 0x400000;
constexpr uint32_t kCaps2CubeMap = 0xFE00; // the cube map bit and one bit per face
constexpr uint32_t kCaps2Volume = 0x200000;

constexpr uint32_t kDimension1D = 2;
constexpr uint32_t kDimension2D = 3;
constexpr uint32_t kDimension3D = 4;
constexpr uint32_t kMiscTextureCube = 0x4;

// Direct3D formats stored as channel masks. 'flags' are the pixel format
// flags a file gets; without the alpha-pixels bit they are the row's group.
struct MaskRow
{
    uint32_t code;
    uint32_t flags;
    uint32_t bits;
    uint32_t masks[4]; // red, green, blue, alpha
};

const MaskRow kMaskRows[] = {
    {20, 0x40, 24, {0xFF0000, 0xFF00, 0xFF, 0}},
    {21, 0x41, 32, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}},
    {23, 0x40, 16, {0xF800, 0x7E0, 0x1F, 0}},
    {24, 0x40, 16, {0x7C00, 0x3E0, 0x1F, 0}},
    {25, 0x41, 16, {0x7C00, 0x3E0, 0x1F, 0x8000}},
    {26, 0x41, 16, {0xF00, 0xF0, 0xF, 0xF000}},
    {27, 0x40, 8, {0xE0, 0x1C, 0x3, 0}},
    {28, 0x2, 8, {0, 0, 0, 0xFF}},
    {29, 0x41, 16, {0xE0, 0x1C, 0x3, 0xFF00}},
    {31, 0x41, 32, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000}},
    {34, 0x40, 32, {0xFFFF, 0xFFFF0000, 0, 0}},
    {35, 0x41, 32, {0x3FF, 0xFFC00, 0x3FF00000, 0xC0000000}},
    {50, 0x20000, 8, {0xFF, 0, 0, 0}},
    {51, 0x20001, 16, {0xFF, 0, 0, 0xFF00}},
    {52, 0x20001, 8, {0xF, 0, 0, 0xF0}},
    {60, 0x80000, 16, {0xFF, 0xFF00, 0, 0}},
    {61, 0x40000, 16, {0x1F, 0x3E0, 0xFC00, 0}},
    {62, 0x40000, 32, {0xFF, 0xFF00, 0xFF0000, 0}},
    {63, 0x80000, 32, {0xFF, 0xFF00, 0xFF0000, 0xFF000000}},
    {64, 0x80000, 32, {0xFFFF, 0xFFFF0000, 0, 0}},
    {67, 0x80001, 32, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000}},
    {81, 0x20000, 16, {0xFFFF, 0, 0, 0}},
};

// Codes written to the FourCC field as they are.
const uint32_t kFourCCCodes[] = {
    MakeFourCC('D', 'X', 'T', '1'), MakeFourCC('D', 'X', 'T', '2'), MakeFourCC('D', 'X', 'T', '3'),
    MakeFourCC('D', 'X', 'T', '4'), MakeFourCC('D', 'X', 'T', '5'), MakeFourCC('U', 'Y', 'V', 'Y'),
    MakeFourCC('Y', 'U', 'Y', '2'), MakeFourCC('O', 'T', 'C', '2'), MakeFourCC('O', 'T', 'C', '4'),
    36, 111, 112, 113, 114, 115, 116,
};

const MaskRow* FindMaskRow(uint32_t code)
{
    for (const MaskRow& row : kMaskRows)
        if (row.code == code)
            return &row;
    return nullptr;
}

bool IsFourCCCode(uint32_t code)
{
    for (uint32_t fourCC : kFourCCCodes)
        if (fourCC == code)
            return true;
    return false;
}

// The Direct3D code of a file's masks; 0 if no row matches. The first of the
// group flags that the file has picks the rows looked at; a row matches on
// its bit count and its non-zero masks.
uint32_t CodeFromMasks(uint32_t flags, uint32_t bits, const uint32_t masks[4])
{
    static const uint32_t groups[] = {kPixelRGB, kPixelBumpLuminance, kPixelBump, kPixelLuminance, kPixelAlphaOnly};
    uint32_t group = 0;
    for (uint32_t candidate : groups)
        if (flags & candidate)
        {
            group = candidate;
            break;
        }
    if (group == 0)
        return 0;
    // 32-bit bump formats with an 8-bit alpha mask are told apart by red alone.
    if (group == kPixelBump && bits == 32 && masks[3] == 0xFF000000)
        return masks[0] == 0xFF ? 63 : 64;

    const bool alphaPixels = (flags & kPixelAlphaPixels) != 0;
    for (const MaskRow& row : kMaskRows)
    {
        if ((row.flags & ~kPixelAlphaPixels) != group || row.bits != bits)
            continue;
        const bool rowAlpha = (row.flags & kPixelAlphaPixels) != 0;
        // RGB rows need the file's alpha-pixels bit to agree; luminance rows
        // with alpha need it set; bump rows ignore it.
        if (group == kPixelRGB && rowAlpha != alphaPixels)
            continue;
        if (group == kPixelLuminance && rowAlpha && !alphaPixels)
            continue;
        bool match = true;
        for (int i = 0; i < 4; ++i)
            match = match && (row.masks[i] == 0 || row.masks[i] == masks[i]);
        if (match)
            return row.code;
    }
    return 0;
}

uint32_t GetWord(const uint8_t* bytes, uint32_t offset)
{
    const uint8_t* p = bytes + offset;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void PutWord(uint8_t* bytes, uint32_t offset, uint32_t word)
{
    uint8_t* p = bytes + offset;
    p[0] = uint8_t(word);
    p[1] = uint8_t(word >> 8);
    p[2] = uint8_t(word >> 16);
    p[3] = uint8_t(word >> 24);
}

bool IsPrintableFourCC(uint32_t fourCC)
{
    for (int shift = 0; shift < 32; shift += 8)
        if (!std::isprint(int((fourCC >> shift) & 0xFF)))
            return false;
    return true;
}

// "DXT1" for a printable FourCC, else the number.
void DescribeFourCC(uint32_t fourCC, char (&text)[16])
{
    if (IsPrintableFourCC(fourCC))
        std::snprintf(text, sizeof text, "%c%c%c%c", char(fourCC), char(fourCC >> 8), char(fourCC >> 16),
                      char(fourCC >> 24));
    else
        std::snprintf(text, sizeof text, "0x%08X", fourCC);
}

class CDDSParser : public CContainerParser
{
public:
    explicit CDDSParser(CByteSource& source) : CContainerParser(source) {}

    const char* ContainerName() const override { return m_dx10 ? "dds (dx10)" : "dds"; }
    ELoadReason ReadHeader(CORBTextureHeader& header) override;

protected:
    ELoadReason ReadData(uint8_t* block, uint64_t& missing) override;

private:
    void AddMainFields(const uint8_t* bytes);
    ELoadReason ReadDX10(CORBTextureHeader& header);
    ELoadReason SetMaskFormat(CORBTextureHeader& header, const uint8_t* bytes);

    bool m_dx10 = false;
    ORBTextureHeaderV3 m_record;
};

void CDDSParser::AddMainFields(const uint8_t* bytes)
{
    char fourCC[16];
    DescribeFourCC(GetWord(bytes, kAtFourCC), fourCC);
    AddField("size", "%u", GetWord(bytes, kAtSize));
    AddField("flags", "0x%X", GetWord(bytes, kAtFlags));
    AddField("height", "%u", GetWord(bytes, kAtHeight));
    AddField("width", "%u", GetWord(bytes, kAtWidth));
    AddField("pitchOrLinearSize", "%u", GetWord(bytes, kAtPitch));
    AddField("depth", "%u", GetWord(bytes, kAtDepth));
    AddField("mipMapCount", "%u", GetWord(bytes, kAtMIPCount));
    AddField("pixelFormatSize", "%u", GetWord(bytes, kAtPixelFormatSize));
    AddField("pixelFormatFlags", "0x%X", GetWord(bytes, kAtPixelFormatFlags));
    AddField("fourCC", "%s", fourCC);
    AddField("rgbBitCount", "%u", GetWord(bytes, kAtBitCount));
    AddField("redMask", "0x%08X", GetWord(bytes, kAtMasks));
    AddField("greenMask", "0x%08X", GetWord(bytes, kAtMasks + 4));
    AddField("blueMask", "0x%08X", GetWord(bytes, kAtMasks + 8));
    AddField("alphaMask", "0x%08X", GetWord(bytes, kAtMasks + 12));
    AddField("caps", "0x%X", GetWord(bytes, kAtCaps));
    AddField("caps2", "0x%X", GetWord(bytes, kAtCaps2));
}

ELoadReason CDDSParser::ReadHeader(CORBTextureHeader& header)
{
    // Read forward only: the size check uses what the source knows it holds.
    uint8_t bytes[kMainSize];
    const uint64_t remaining = m_source.Remaining();
    if (remaining != CByteSource::kUnknown && remaining < kMainSize)
        return SetLoadError(eLoadTooShort);
    if (!m_source.ReadExact(bytes, kMainSize))
        return ReadFailure(eLoadTooShort);
    if (std::memcmp(bytes, "DDS ", 4) != 0)
        return SetLoadError(eLoadBadSignature, "dds");
    AddMainFields(bytes);
    const uint32_t size = GetWord(bytes, kAtSize);
    if (size != kHeaderSize)
        return RefuseWith(eLoadBadHeader, "dds", "size %u, not %u", size, kHeaderSize);

    const uint32_t flags = GetWord(bytes, kAtFlags);
    const uint32_t pixelFlags = GetWord(bytes, kAtPixelFormatFlags);
    CORBTextureHeader result;
    result.setWidth(GetWord(bytes, kAtWidth));
    result.setHeight(GetWord(bytes, kAtHeight));
    result.setDepth((flags & kFlagDepth) ? GetWord(bytes, kAtDepth) : 1);
    result.setNumMIPLevels((flags & kFlagMIPMapCount) ? GetWord(bytes, kAtMIPCount) : 1);
    result.setNumFaces((GetWord(bytes, kAtCaps2) & kCaps2CubeMap) ? 6 : 1);
    result.setNumArrayMembers(1);

    m_dx10 = (pixelFlags & kPixelFourCC) && GetWord(bytes, kAtFourCC) == kFourCCDX10;
    const ELoadReason format = m_dx10 ? ReadDX10(result) : SetMaskFormat(result, bytes);
    if (format != eLoadOK)
        return format;

    const ELoadReason checked = CheckHeader(result, true);
    if (checked != eLoadOK)
        return checked;
    m_record = result.getFileHeader();
    header = std::move(result);
    return eLoadOK;
}

ELoadReason CDDSParser::ReadDX10(CORBTextureHeader& header)
{
    // Indexed by file offset; only the DX10 part is read here.
    uint8_t bytes[kMainSize + kDX10Size];
    const uint64_t remaining = m_source.Remaining();
    if (remaining != CByteSource::kUnknown && remaining < kDX10Size)
        return SetLoadError(eLoadTruncatedHeader);
    if (!m_source.ReadExact(bytes + kMainSize, kDX10Size))
        return ReadFailure(eLoadTruncatedHeader);
    const uint32_t dxgiFormat = GetWord(bytes, kAtDXGIFormat);
    const uint32_t dimension = GetWord(bytes, kAtResourceDimension);
    const uint32_t miscFlag = GetWord(bytes, kAtMiscFlag);
    const uint32_t arraySize = GetWord(bytes, kAtArraySize);
    AddField("dxgiFormat", "%u", dxgiFormat);
    AddField("resourceDimension", "%u", dimension);
    AddField("miscFlag", "0x%X", miscFlag);
    AddField("arraySize", "%u", arraySize);
    AddField("miscFlags2", "0x%X", GetWord(bytes, kAtMiscFlags2));

    switch (dimension)
    {
    case kDimension1D: header.setHeight(1); header.setDepth(1); break;
    case kDimension2D: header.setDepth(1); break;
    case kDimension3D: break;
    default: return RefuseWith(eLoadBadHeader, "dds", "resourceDimension %u", dimension);
    }
    if (miscFlag & kMiscTextureCube)
        header.setNumFaces(6);
    header.setNumArrayMembers(arraySize ? arraySize : 1);
    // An unknown code would leave no pixel format: refused here.
    if (!header.setDXGIFormat(dxgiFormat))
        return RefuseWith(eLoadNoPixelFormat, "dds", "DXGI format %u", dxgiFormat);
    return eLoadOK;
}

ELoadReason CDDSParser::SetMaskFormat(CORBTextureHeader& header, const uint8_t* bytes)
{
    const uint32_t pixelFlags = GetWord(bytes, kAtPixelFormatFlags);
    const uint32_t bits = GetWord(bytes, kAtBitCount);
    const uint32_t masks[4] = {GetWord(bytes, kAtMasks), GetWord(bytes, kAtMasks + 4), GetWord(bytes, kAtMasks + 8),
                               GetWord(bytes, kAtMasks + 12)};
    uint32_t code = 0;
    if (pixelFlags & kPixelFourCC)
        code = GetWord(bytes, kAtFourCC);
    else
        code = CodeFromMasks(pixelFlags, bits, masks);
    if (code != 0 && header.setD3DFormat(code))
        return eLoadOK;
    if (pixelFlags & kPixelFourCC)
    {
        char fourCC[16];
        DescribeFourCC(code, fourCC);
        return RefuseWith(eLoadNoPixelFormat, "dds", "FourCC %s", fourCC);
    }
    return RefuseWith(eLoadNoPixelFormat, "dds", "Direct3D format %u (pixel format flags 0x%X, %u bits, masks 0x%X 0x%X 0x%X 0x%X)", code,
                         pixelFlags, bits, masks[0], masks[1], masks[2], masks[3]);
}

ELoadReason CDDSParser::ReadData(uint8_t* block, uint64_t& missing)
{
    missing = 0;
    // Where each level starts in the native block and how large one surface
    // of it is. CheckHeader bounds the level count and the sizes.
    const uint32_t levels = m_record.numMIPMaps;
    const uint64_t members = m_record.numSurfaces, faces = m_record.numFaces;
    std::vector<uint64_t> surface(levels), levelStart(levels);
    uint64_t end = 0;
    for (uint32_t mip = 0; mip < levels; ++mip)
    {
        surface[mip] = ORBTGetTextureDataSize(m_record, int(mip), false, false);
        levelStart[mip] = end;
        end += surface[mip] * members * faces;
    }
    // The surfaces must fill the block exactly; with every surface at least
    // a byte, the walk below is bounded by the data size.
    if (end != m_dataSize)
        return RefuseWith(eLoadBadHeader, "dds", "surfaces hold %llu bytes of %llu", (unsigned long long)end,
                         (unsigned long long)m_dataSize);

    for (uint64_t member = 0; member < members; ++member)
        for (uint64_t face = 0; face < faces; ++face)
            for (uint32_t mip = 0; mip < levels; ++mip)
            {
                uint8_t* destination =
                    block ? block + levelStart[mip] + (member * faces + face) * surface[mip] : nullptr;
                const ELoadReason taken = TakeData(destination, surface[mip]);
                if (taken == eLoadShortPixelData && m_dataLeft == m_dataSize)
                    return SetLoadError(eLoadNoPixelData);
                if (taken != eLoadOK)
                    return taken;
            }
    return eLoadOK;
}

} // namespace

std::unique_ptr<CContainerParser> MakeDDSParser(CByteSource& source)
{
    return std::unique_ptr<CContainerParser>(new CDDSParser(source));
}

bool CORBTexture::privateSaveDDSFile(FILE* file) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteDDS(sink);
}

bool CORBTexture::privateWriteDDS(CByteSink& sink) const
{
    const uint32_t total = getDataSize(-1, true, true);
    if (!privateHoldsData(total))
        return false;

    const uint32_t levels = getNumMIPLevels(), faces = getNumFaces(), members = getNumArrayMembers();
    const uint32_t width = getWidth(0), height = getHeight(0), depth = getDepth(0);
    const bool layout = !getPixelType().isNamedFormat();

    bool dx10 = members > 1;
    uint32_t pixelFlags = kPixelFourCC, fourCC = kFourCCDX10, bitCount = 0;
    uint32_t masks[4] = {0, 0, 0, 0};
    if (!dx10)
    {
        const uint32_t code = getD3DFormat();
        if (const MaskRow* row = FindMaskRow(code))
        {
            // The FourCC field keeps "DX10"; without the FourCC flag nothing reads it.
            pixelFlags = row->flags;
            bitCount = getBitsPerPixel();
            std::memcpy(masks, row->masks, sizeof masks);
        }
        else if (IsFourCCCode(code))
            fourCC = code;
        else
            dx10 = true;
    }

    uint8_t bytes[kMainSize + kDX10Size] = {};
    std::memcpy(bytes, "DDS ", 4);
    PutWord(bytes, kAtSize, kHeaderSize);
    PutWord(bytes, kAtFlags,
            kFlagsAlways | (levels > 1 ? kFlagMIPMapCount : 0) | (depth > 1 ? kFlagDepth : 0) |
                (layout ? kFlagPitch : kFlagLinearSize));
    PutWord(bytes, kAtHeight, height);
    PutWord(bytes, kAtWidth, width);
    PutWord(bytes, kAtPitch, layout ? uint32_t((uint64_t(getBitsPerPixel()) * width + 7) >> 3) : total);
    PutWord(bytes, kAtDepth, depth);
    PutWord(bytes, kAtMIPCount, levels);
    PutWord(bytes, kAtPixelFormatSize, kPixelFormatSize);
    PutWord(bytes, kAtPixelFormatFlags, pixelFlags);
    PutWord(bytes, kAtFourCC, fourCC);
    PutWord(bytes, kAtBitCount, bitCount);
    for (uint32_t i = 0; i < 4; ++i)
        PutWord(bytes, kAtMasks + 4 * i, masks[i]);
    PutWord(bytes, kAtCaps,
            kCapsTexture | (faces == 6 ? kCapsComplex : 0) | (levels > 1 ? kCapsComplex | kCapsMIPMap : 0));
    PutWord(bytes, kAtCaps2, (faces == 6 ? kCaps2CubeMap : 0) | (depth > 1 ? kCaps2Volume : 0));
    if (dx10)
    {
        PutWord(bytes, kAtDXGIFormat, getDXGIFormat());
        PutWord(bytes, kAtResourceDimension, depth > 1 ? kDimension3D : height < 2 ? kDimension1D : kDimension2D);
        PutWord(bytes, kAtMiscFlag, faces == 6 ? kMiscTextureCube : 0);
        PutWord(bytes, kAtArraySize, members);
    }

    const size_t headerBytes = dx10 ? sizeof bytes : kMainSize;
    if (!sink.Write(bytes, headerBytes))
        return false;
    uint64_t written = 0;
    for (uint32_t member = 0; member < members; ++member)
        for (uint32_t face = 0; face < faces; ++face)
            for (uint32_t mip = 0; mip < levels; ++mip)
            {
                const uint32_t size = getDataSize(int(mip), false, false);
                written += sink.Write(getDataPtr(mip, member, face), size) ? size : 0;
            }
    return written == total;
}

} // namespace orbtexture
