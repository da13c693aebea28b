// KTX 1.1 files: a 64-byte header, key/value pairs, then for each MIP level
// an image size word and the level's surfaces with their padding.

#include "Files/ORBTextureKTX.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Files/ORBTextureByteSink.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

namespace
{

const uint8_t kKTXIdentifier[12] = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x31, 0x31, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr uint32_t kKTXHeaderSize = 64;
constexpr uint32_t kKTXEndianness = 0x04030201;
constexpr uint32_t kKTXEndiannessSwapped = 0x01020304;
// "KTXOrientation" with its terminating zero.
const char kOrientationKey[] = "KTXOrientation";
constexpr uint32_t kOrientationKeySize = sizeof kOrientationKey;

// Rows and padding are staged through a buffer of this size.
constexpr size_t kStagingSize = 1 << 16;
// Pairs shown in the field list; the rest are counted.
constexpr uint32_t kPairsShown = 32;
// What is kept of a pair to name it: its key and the start of its value.
constexpr uint32_t kPairPrefix = 192;
// The orientation item a file with pairs gets: its data, record and map.
constexpr uint64_t kOrientationItemCost = 3 + 64 + 512;

// KTX 1.1 header words after the identifier, in file order.
struct KTXHeaderWords
{
    uint32_t endianness;
    uint32_t glType;
    uint32_t glTypeSize;
    uint32_t glFormat;
    uint32_t glInternalFormat;
    uint32_t glBaseInternalFormat;
    uint32_t pixelWidth;
    uint32_t pixelHeight;
    uint32_t pixelDepth;
    uint32_t numberOfArrayElements;
    uint32_t numberOfFaces;
    uint32_t numberOfMipmapLevels;
    uint32_t bytesOfKeyValueData;
};
static_assert(sizeof(KTXHeaderWords) + sizeof kKTXIdentifier == kKTXHeaderSize, "KTX header is 64 bytes");

uint64_t PaddingTo4(uint64_t size) { return (4 - size % 4) % 4; }

// How one MIP level is stored: the image size word, then for each member and
// face a surface (whole, or row by row with each row padded to 4 bytes),
// with cube padding after each surface of a cube map, then level padding.
struct KTXLevelLayout
{
    uint32_t imageSize;     // the size word's value
    uint64_t surfaceSize;   // bytes of one surface in memory
    uint64_t surfaces;      // members times faces
    bool rowWise;
    uint64_t rowBytes;      // bytes of one row in memory
    uint64_t rowStored;     // ... and in the file, padding included
    uint64_t rows;          // rows of a surface: height times depth
    uint64_t cubePadding;   // after each surface
    uint64_t levelPadding;  // after the level's surfaces

    uint64_t SurfaceStored() const { return rowWise ? rows * rowStored : surfaceSize; }
    uint64_t Stored() const { return 4 + surfaces * (SurfaceStored() + cubePadding) + levelPadding; }
};

// A texture with six faces and one member is a cube map: its size word
// counts one face and each face is padded.
bool IsKTXCubeMap(const CORBTextureHeader& header)
{
    return header.getNumFaces() == 6 && header.getNumArrayMembers() == 1;
}

KTXLevelLayout LevelLayout(const CORBTextureHeader& header, uint32_t mip)
{
    KTXLevelLayout level;
    const bool cube = IsKTXCubeMap(header);
    level.surfaceSize = header.getDataSize(int(mip), false, false);
    level.imageSize = cube ? uint32_t(level.surfaceSize) : header.getDataSize(int(mip), true, true);
    level.surfaces = uint64_t(header.getNumArrayMembers()) * header.getNumFaces();
    const PixelType format = header.getPixelType();
    level.rowWise = !format.isNamedFormat() || format.lowWord() == ePF_RGB9E5;
    level.rowBytes = uint64_t(header.getBitsPerPixel() >> 3) * header.getWidth(mip);
    level.rowStored = level.rowBytes + PaddingTo4(level.rowBytes);
    level.rows = uint64_t(header.getHeight(mip)) * header.getDepth(mip);
    // Both paddings follow the sizes in memory, not the padded rows.
    level.cubePadding = cube ? PaddingTo4(level.surfaceSize) : 0;
    level.levelPadding = PaddingTo4(level.imageSize);
    return level;
}

bool IsPrintable(const uint8_t* text, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        if (text[i] < 0x20 || text[i] > 0x7E)
            return false;
    return true;
}

class CKTXFileParser : public CContainerParser
{
public:
    explicit CKTXFileParser(CByteSource& source) : CContainerParser(source) {}

    const char* ContainerName() const override { return "ktx"; }

    ELoadReason ReadHeader(CORBTextureHeader& header) override;

    uint64_t StoredDataSize() const override { return m_storedDataSize; }
    uint64_t ExtraBytes() const override { return kStagingSize + (m_orientationFound ? kOrientationItemCost : 0); }

protected:
    ELoadReason ReadData(uint8_t* block, uint64_t& missing) override;

private:
    ELoadReason WalkKeyValueData(uint32_t size, uint32_t& orientation);
    ELoadReason ReadRows(const KTXLevelLayout& level, uint8_t* surface);

    CORBTextureHeader m_header;
    uint64_t m_storedDataSize = 0;
    bool m_orientationFound = false;
    std::vector<uint8_t> m_staging;
};

ELoadReason CKTXFileParser::ReadHeader(CORBTextureHeader& header)
{
    uint8_t bytes[kKTXHeaderSize];
    const size_t got = m_source.Read(bytes, sizeof bytes);
    if (std::memcmp(bytes, kKTXIdentifier, std::min(got, sizeof kKTXIdentifier)) != 0)
        return SetLoadError(eLoadBadSignature, "ktx");
    if (got != sizeof bytes)
        return ReadFailure(got < sizeof kKTXIdentifier ? eLoadTooShort : eLoadTruncatedHeader);

    KTXHeaderWords words;
    std::memcpy(&words, bytes + sizeof kKTXIdentifier, sizeof words);
    AddField("identifier", "AB 4B 54 58 20 31 31 BB 0D 0A 1A 0A");
    AddField("endianness", "0x%08X", words.endianness);
    AddField("glType", "0x%04X", words.glType);
    AddField("glTypeSize", "%u", words.glTypeSize);
    AddField("glFormat", "0x%04X", words.glFormat);
    AddField("glInternalFormat", "0x%04X", words.glInternalFormat);
    AddField("glBaseInternalFormat", "0x%04X", words.glBaseInternalFormat);
    AddField("pixelWidth", "%u", words.pixelWidth);
    AddField("pixelHeight", "%u", words.pixelHeight);
    AddField("pixelDepth", "%u", words.pixelDepth);
    AddField("numberOfArrayElements", "%u", words.numberOfArrayElements);
    AddField("numberOfFaces", "%u", words.numberOfFaces);
    AddField("numberOfMipmapLevels", "%u", words.numberOfMipmapLevels);
    AddField("bytesOfKeyValueData", "%u", words.bytesOfKeyValueData);

    // Words are read in this machine's order, so a file of the other order
    // would be misread throughout.
    if (words.endianness == kKTXEndiannessSwapped)
        return RefuseWith(eLoadBadHeader, "ktx", "endianness 0x%08X: big-endian files are not supported", words.endianness);

    CORBTextureHeader parsed;
    parsed.setWidth(words.pixelWidth);
    parsed.setHeight(std::max(words.pixelHeight, 1u));
    parsed.setDepth(std::max(words.pixelDepth, 1u));
    parsed.setNumArrayMembers(std::max(words.numberOfArrayElements, 1u));
    parsed.setNumMIPLevels(words.numberOfMipmapLevels);
    parsed.setNumFaces(words.numberOfFaces);

    unsigned long long format = 0;
    EORBTVariableType channelType = eVarUnsignedByteNorm;
    EORBTColourSpace colourSpace = eColourSpaceLinear;
    if (!getOrbCoreFormatOGL(format, channelType, colourSpace, words.glInternalFormat, words.glFormat,
                             words.glType))
    {
        char codes[96];
        std::snprintf(codes, sizeof codes, "glInternalFormat 0x%04X, glFormat 0x%04X, glType 0x%04X",
                      words.glInternalFormat, words.glFormat, words.glType);
        return SetLoadError(eLoadNoPixelFormat, "ktx", codes);
    }
    parsed.setPixelFormat(PixelType(format));
    parsed.setChannelType(channelType);
    parsed.setColourSpace(colourSpace);
    const ELoadReason checked = CheckHeader(parsed);
    if (checked != eLoadOK)
        return checked;

    const uint64_t remaining = m_source.Remaining();
    if (remaining != CByteSource::kUnknown && words.bytesOfKeyValueData > remaining)
        return RefuseWith(eLoadBadHeader, "ktx", "bytesOfKeyValueData %u runs past the end of the file", words.bytesOfKeyValueData);
    uint32_t orientation = 0;
    const ELoadReason walked = WalkKeyValueData(words.bytesOfKeyValueData, orientation);
    if (walked != eLoadOK)
        return walked;
    if (m_orientationFound)
        parsed.setOrientation(EORBTOrientation(orientation));

    m_storedDataSize = 0;
    for (uint32_t mip = 0; mip < parsed.getNumMIPLevels(); ++mip)
        m_storedDataSize += LevelLayout(parsed, mip).Stored();
    m_header = parsed;
    header = parsed;
    return eLoadOK;
}

// Reads every pair of the block. Any pair at all gives the texture an
// orientation: the bits of the "KTXOrientation" values found, else 0.
ELoadReason CKTXFileParser::WalkKeyValueData(uint32_t size, uint32_t& orientation)
{
    uint64_t consumed = 0;
    uint32_t pairs = 0;
    while (consumed < size)
    {
        uint32_t pairSize;
        if (size - consumed < 4)
            return RefuseWith(eLoadBadHeader, "ktx", "key/value pair %u runs past bytesOfKeyValueData", pairs);
        if (!m_source.ReadWord(pairSize))
            return ReadFailure(eLoadTruncatedHeader);
        consumed += 4;
        if (pairSize > size - consumed)
            return RefuseWith(eLoadBadHeader, "ktx", "key/value pair %u of %u bytes runs past bytesOfKeyValueData", pairs, pairSize);

        // The start of the pair is kept to name it; the rest streams past,
        // counting letters for an orientation value.
        uint8_t prefix[kPairPrefix];
        const uint32_t kept = std::min(pairSize, kPairPrefix);
        if (!m_source.ReadExact(prefix, kept))
            return ReadFailure(eLoadTruncatedHeader);
        const bool isOrientation =
            pairSize >= kOrientationKeySize && std::memcmp(prefix, kOrientationKey, kOrientationKeySize) == 0;
        // The value is text up to its first zero or the end of the pair.
        uint64_t letters[3] = {}; // 'd', 'l', 'o'
        bool valueEnded = false;
        auto count = [&](const uint8_t* text, size_t length) {
            for (size_t i = 0; i < length && !valueEnded; ++i)
            {
                valueEnded = text[i] == 0;
                letters[0] += text[i] == 'd';
                letters[1] += text[i] == 'l';
                letters[2] += text[i] == 'o';
            }
        };
        if (isOrientation)
            count(prefix + kOrientationKeySize, kept - kOrientationKeySize);
        uint64_t left = pairSize - kept;
        uint8_t chunk[4096];
        while (left)
        {
            const size_t step = size_t(std::min<uint64_t>(left, sizeof chunk));
            if (!m_source.ReadExact(chunk, step))
                return ReadFailure(eLoadTruncatedHeader);
            if (isOrientation)
                count(chunk, step);
            left -= step;
        }
        consumed += pairSize;
        if (isOrientation)
        {
            if (letters[1] == 1)
                orientation |= eOrientLeft;
            if (letters[0] != 1)
                orientation |= eOrientUp;
            if (letters[2] == 1)
                orientation |= eOrientOut;
        }
        m_orientationFound = true;

        if (pairs < kPairsShown)
        {
            const uint8_t* keyEnd = static_cast<const uint8_t*>(std::memchr(prefix, 0, kept));
            const size_t keyLength = keyEnd ? size_t(keyEnd - prefix) : kept;
            std::string key(reinterpret_cast<const char*>(prefix), keyLength);
            for (char& c : key)
                if (!IsPrintable(reinterpret_cast<const uint8_t*>(&c), 1))
                    c = '?';
            AddField("key", "%s", key.c_str());
            // A value of printable text with its zero, as far as it was kept.
            if (keyEnd)
            {
                const uint8_t* value = keyEnd + 1;
                const size_t available = kept - keyLength - 1;
                const uint8_t* valueEnd = static_cast<const uint8_t*>(std::memchr(value, 0, available));
                const size_t valueLength = valueEnd ? size_t(valueEnd - value) : available;
                if ((valueEnd || pairSize > kept) && valueLength && IsPrintable(value, valueLength))
                    AddField("value", "%.*s", int(valueLength), reinterpret_cast<const char*>(value));
            }
        }
        ++pairs;

        // Padding to a multiple of 4, inside the block.
        const uint64_t padding = std::min<uint64_t>(PaddingTo4(pairSize), size - consumed);
        if (m_source.Skip(padding) != padding)
            return ReadFailure(eLoadTruncatedHeader);
        consumed += padding;
    }
    if (pairs > kPairsShown)
        AddField("more key/value pairs", "%u", pairs - kPairsShown);
    return eLoadOK;
}

// Row-wise surfaces: each row of 'rowBytes' padded to 4 in the file, rows
// contiguous in memory. Many short rows are read through the staging buffer.
ELoadReason CKTXFileParser::ReadRows(const KTXLevelLayout& level, uint8_t* surface)
{
    if (level.rowStored == level.rowBytes)
        return TakeData(surface, level.rows * level.rowBytes);
    const uint64_t perBatch = std::max<uint64_t>(1, kStagingSize / level.rowStored);
    if (perBatch == 1)
    {
        for (uint64_t row = 0; row < level.rows; ++row)
        {
            ELoadReason result = TakeData(surface + row * level.rowBytes, level.rowBytes);
            if (result == eLoadOK)
                result = SkipPadding(level.rowStored - level.rowBytes);
            if (result != eLoadOK)
                return result;
        }
        return eLoadOK;
    }
    if (m_staging.empty())
        m_staging.resize(kStagingSize);
    for (uint64_t row = 0; row < level.rows; row += perBatch)
    {
        const uint64_t batch = std::min(perBatch, level.rows - row);
        const ELoadReason result = TakeData(m_staging.data(), batch * level.rowStored);
        if (result != eLoadOK)
            return result;
        for (uint64_t i = 0; i < batch; ++i)
            std::memcpy(surface + (row + i) * level.rowBytes, m_staging.data() + i * level.rowStored,
                        size_t(level.rowBytes));
    }
    return eLoadOK;
}

ELoadReason CKTXFileParser::ReadData(uint8_t* block, uint64_t&)
{
    uint64_t offset = 0;
    for (uint32_t mip = 0; mip < m_header.getNumMIPLevels(); ++mip)
    {
        const KTXLevelLayout level = LevelLayout(m_header, mip);
        if (!block)
        {
            // Nothing is kept: the level is skipped whole.
            const ELoadReason result = SkipPadding(level.Stored());
            if (result != eLoadOK)
                return result;
            continue;
        }
        // The size word is read, but the computed sizes are used.
        uint8_t sizeWord[4];
        ELoadReason result = TakeData(sizeWord, 4);
        for (uint64_t surface = 0; surface < level.surfaces && result == eLoadOK; ++surface)
        {
            uint8_t* destination = block + offset;
            if (level.rowWise)
            {
                result = ReadRows(level, destination);
                // Rows fill the surface unless the pixel size is no whole number of bytes.
                const uint64_t filled = level.rows * level.rowBytes;
                if (filled < level.surfaceSize)
                    std::memset(destination + filled, 0, size_t(level.surfaceSize - filled));
            }
            else
            {
                result = TakeData(destination, level.surfaceSize);
            }
            if (result == eLoadOK)
                result = SkipPadding(level.cubePadding);
            offset += level.surfaceSize;
        }
        if (result == eLoadOK)
            result = SkipPadding(level.levelPadding);
        if (result != eLoadOK)
            return result;
    }
    return eLoadOK;
}

// Zero bytes for padding.
const uint8_t kZeros[4] = {};

} // namespace

std::unique_ptr<CContainerParser> MakeKTXParser(CByteSource& source)
{
    return std::unique_ptr<CContainerParser>(new CKTXFileParser(source));
}

bool CORBTexture::privateSaveKTXFile(FILE* file) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteKTX(sink);
}

bool CORBTexture::privateWriteKTX(CByteSink& sink) const
{
    // A format without OpenGL codes is written with the outputs of the failed
    // look-up (zeros, type size 1 for a named format); no reader takes it.
    unsigned int internalFormat = 0, baseInternalFormat = 0, format = 0, type = 0, typeSize = 0;
    getOpenGLFormat(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), internalFormat, baseInternalFormat,
                    format, type, typeSize);

    KTXHeaderWords words;
    words.endianness = kKTXEndianness;
    words.glType = type;
    words.glTypeSize = typeSize;
    words.glFormat = format;
    words.glInternalFormat = internalFormat;
    words.glBaseInternalFormat = baseInternalFormat;
    words.pixelWidth = getWidth(0);
    words.pixelHeight = getHeight(0) == 1 ? 0 : getHeight(0);
    words.pixelDepth = getDepth(0) == 1 ? 0 : getDepth(0);
    words.numberOfArrayElements = getNumArrayMembers() == 1 ? 0 : getNumArrayMembers();
    words.numberOfFaces = getNumFaces();
    words.numberOfMipmapLevels = getNumMIPLevels();

    // One pair: the orientation as text, "S=r,T=d,R=i" and the like.
    char value[12];
    std::snprintf(value, sizeof value, "S=%c,T=%c,R=%c", getOrientation(eAxisX) == eOrientLeft ? 'l' : 'r',
                  getOrientation(eAxisY) == eOrientUp ? 'u' : 'd', getOrientation(eAxisZ) == eOrientOut ? 'o' : 'i');
    const uint32_t valueLength = uint32_t(std::strlen(value));
    const uint32_t pairSize = kOrientationKeySize + valueLength + 1;
    const uint32_t pairPadding = uint32_t(PaddingTo4(pairSize));
    words.bytesOfKeyValueData = 4 + pairSize + pairPadding;

    if (!sink.Write(kKTXIdentifier, sizeof kKTXIdentifier) || !sink.Write(&words, sizeof words) ||
        !sink.Write(&pairSize, 4) || !sink.Write(kOrientationKey, kOrientationKeySize) ||
        !sink.Write(value, valueLength + 1) || !sink.Write(kZeros, pairPadding))
        return false;

    const uint32_t total = getDataSize(-1, true, true);
    if (!m_pTextureData || !privateHoldsData(total))
        return false;

    bool ok = true;
    auto put = [&](const void* bytes, uint64_t size) { ok &= sink.Write(bytes, size_t(size)); };
    std::vector<uint8_t> staging;
    const uint8_t* source = m_pTextureData;
    for (uint32_t mip = 0; mip < getNumMIPLevels(); ++mip)
    {
        const KTXLevelLayout level = LevelLayout(*this, mip);
        put(&level.imageSize, 4);
        for (uint64_t surface = 0; surface < level.surfaces; ++surface)
        {
            if (!level.rowWise)
            {
                put(source, level.surfaceSize);
            }
            else if (level.rowStored == level.rowBytes)
            {
                put(source, level.rows * level.rowBytes);
            }
            else
            {
                // Rows padded with zeros, gathered into large writes.
                if (staging.empty())
                    staging.resize(kStagingSize);
                const uint64_t perBatch = std::max<uint64_t>(1, kStagingSize / level.rowStored);
                for (uint64_t row = 0; row < level.rows; row += perBatch)
                {
                    const uint64_t batch = std::min(perBatch, level.rows - row);
                    if (level.rowStored > kStagingSize)
                    {
                        put(source + row * level.rowBytes, level.rowBytes);
                        put(kZeros, level.rowStored - level.rowBytes);
                        continue;
                    }
                    for (uint64_t i = 0; i < batch; ++i)
                    {
                        uint8_t* out = staging.data() + i * level.rowStored;
                        std::memcpy(out, source + (row + i) * level.rowBytes, size_t(level.rowBytes));
                        std::memset(out + level.rowBytes, 0, size_t(level.rowStored - level.rowBytes));
                    }
                    put(staging.data(), batch * level.rowStored);
                }
            }
            put(kZeros, level.cubePadding);
            source += level.surfaceSize;
        }
        put(kZeros, level.levelPadding);
    }
    return ok;
}

} // namespace orbtexture
