// KTX 2.0 files: an 80-byte header with the section index, the level index,
// the data format descriptor, key/value data, then the MIP levels smallest
// first, each optionally supercompressed with Zstandard.

#include "Files/ORBTextureKTX2.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <zstd.h>

#include "Files/ORBTextureByteSink.h"
#include "Files/ORBTextureVulkanFormats.h"
#include "Model/ORBTextureErrors.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

#ifndef ORBTEX_LIBRARY_VERSION
#define ORBTEX_LIBRARY_VERSION "unknown"
#endif

namespace orbtexture
{

namespace
{

const uint8_t kKTX2Identifier[12] = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x32, 0x30, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr uint32_t kHeaderSize = 80;
constexpr uint32_t kLevelEntrySize = 24;
constexpr uint32_t kSchemeNone = 0, kSchemeBasisLZ = 1, kSchemeZstd = 2, kSchemeZlib = 3;
// Descriptors beyond this are refused rather than read; real ones take a few dozen words.
constexpr uint32_t kMaxDescriptorSize = 1 << 16;
// The library's own key: the pixel format as written and every metadata item.
const char kOwnKey[] = "ORBTexLibMetaData";
constexpr uint32_t kOwnRecordSize = 20; // u64 format, u32 channel type, u32 colour space, u32 header flags
// What an item costs in memory beyond its data, counted against the load limit.
constexpr uint64_t kItemCost = 64 + 512;
// Pairs and samples shown in the field list.
constexpr uint32_t kPairsShown = 32;
constexpr uint32_t kSamplesShown = 8;
// Compressed data of unknown length (a pipe) are gathered in steps of this size.
constexpr size_t kGatherStep = 1 << 20;

// The 64-bit fields sit on 4-byte boundaries in the file.
#pragma pack(push, 4)
struct KTX2Header
{
    uint32_t vkFormat, typeSize, pixelWidth, pixelHeight, pixelDepth, layerCount, faceCount, levelCount,
        supercompressionScheme;
    uint32_t dfdByteOffset, dfdByteLength, kvdByteOffset, kvdByteLength;
    uint64_t sgdByteOffset, sgdByteLength;
};
#pragma pack(pop)
static_assert(sizeof(KTX2Header) + sizeof kKTX2Identifier == kHeaderSize, "KTX 2 header is 80 bytes");

struct LevelEntry
{
    uint64_t byteOffset, byteLength, uncompressedByteLength;
};
static_assert(sizeof(LevelEntry) == kLevelEntrySize, "level index entries are 24 bytes");

const char* SchemeName(uint32_t scheme)
{
    switch (scheme)
    {
    case kSchemeNone:
        return "none";
    case kSchemeBasisLZ:
        return "BasisLZ";
    case kSchemeZstd:
        return "Zstandard";
    case kSchemeZlib:
        return "zlib";
    default:
        return "unknown";
    }
}

uint64_t AlignUp(uint64_t value, uint64_t alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

bool IsPrintable(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

template <typename T>
T ReadAt(const uint8_t* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

// "rd", "rdi" and the like: the letters of the texture's orientation, one per dimension.
std::string OrientationText(const CORBTextureHeader& header)
{
    std::string text;
    text += header.getOrientation(eAxisX) == eOrientLeft ? 'l' : 'r';
    text += header.getOrientation(eAxisY) == eOrientUp ? 'u' : 'd';
    if (header.getDepth(0) > 1)
        text += header.getOrientation(eAxisZ) == eOrientOut ? 'o' : 'i';
    return text;
}

uint32_t OrientationOf(const std::string& text)
{
    uint32_t orientation = 0;
    if (text.size() > 0 && text[0] == 'l')
        orientation |= eOrientLeft;
    if (text.size() > 1 && text[1] == 'u')
        orientation |= eOrientUp;
    if (text.size() > 2 && text[2] == 'o')
        orientation |= eOrientOut;
    return orientation;
}

class CKTX2FileParser : public CContainerParser
{
  public:
    explicit CKTX2FileParser(CByteSource& source) : CContainerParser(source)
    {
    }
    ~CKTX2FileParser() override
    {
        ZSTD_freeDCtx(m_zstd);
    }

    const char* ContainerName() const override
    {
        return "ktx2";
    }
    ELoadReason ReadHeader(CORBTextureHeader& header) override;
    uint64_t StoredDataSize() const override
    {
        return m_storedDataSize;
    }
    uint64_t ExtraBytes() const override
    {
        return m_extraBytes;
    }

  protected:
    ELoadReason ReadData(uint8_t* block, uint64_t& missing) override;

  private:
    ELoadReason CheckLevels(const CORBTextureHeader& parsed, uint64_t fileSize);
    ELoadReason ReadSection(uint64_t offset, uint64_t length, const char* name, std::vector<uint8_t>& bytes);
    ELoadReason ReadDescriptor(const std::vector<uint8_t>& bytes, bool& premultiplied);
    ELoadReason ReadKeyValueData(const std::vector<uint8_t>& bytes, CORBTextureHeader& parsed, uint32_t vkFormat,
                                 bool& ownRecord);
    ELoadReason Inflate(uint32_t mip, uint8_t* destination);

    struct Level
    {
        uint32_t mip;
        LevelEntry entry;
        uint64_t blockOffset; // in the pixel block
        uint64_t size;        // in the pixel block
    };
    CORBTextureHeader m_header;
    std::vector<Level> m_levels; // in file order
    uint32_t m_scheme = kSchemeNone;
    uint64_t m_position = 0; // bytes of the file consumed
    uint64_t m_storedDataSize = 0;
    uint64_t m_extraBytes = 0;
    std::vector<uint8_t> m_compressed;
    ZSTD_DCtx* m_zstd = nullptr;
};

ELoadReason CKTX2FileParser::ReadHeader(CORBTextureHeader& header)
{
    uint8_t bytes[kHeaderSize];
    const size_t got = m_source.Read(bytes, sizeof bytes);
    if (std::memcmp(bytes, kKTX2Identifier, std::min(got, sizeof kKTX2Identifier)) != 0)
        return SetLoadError(eLoadBadSignature, "ktx2");
    if (got != sizeof bytes)
        return ReadFailure(got < sizeof kKTX2Identifier ? eLoadTooShort : eLoadTruncatedHeader);
    const uint64_t remainingAfterHeader = m_source.Remaining();
    const uint64_t fileSize =
        remainingAfterHeader == CByteSource::kUnknown ? CByteSource::kUnknown : kHeaderSize + remainingAfterHeader;
    m_position = kHeaderSize;

    KTX2Header words;
    std::memcpy(&words, bytes + sizeof kKTX2Identifier, sizeof words);
    AddField("identifier", "AB 4B 54 58 20 32 30 BB 0D 0A 1A 0A");
    AddField("vkFormat", "%u", words.vkFormat);
    AddField("typeSize", "%u", words.typeSize);
    AddField("pixelWidth", "%u", words.pixelWidth);
    AddField("pixelHeight", "%u", words.pixelHeight);
    AddField("pixelDepth", "%u", words.pixelDepth);
    AddField("layerCount", "%u", words.layerCount);
    AddField("faceCount", "%u", words.faceCount);
    AddField("levelCount", "%u", words.levelCount);
    AddField("supercompressionScheme", "%u (%s)", words.supercompressionScheme,
             SchemeName(words.supercompressionScheme));
    AddField("dfdByteOffset", "%u", words.dfdByteOffset);
    AddField("dfdByteLength", "%u", words.dfdByteLength);
    AddField("kvdByteOffset", "%u", words.kvdByteOffset);
    AddField("kvdByteLength", "%u", words.kvdByteLength);
    AddField("sgdByteOffset", "%llu", (unsigned long long)words.sgdByteOffset);
    AddField("sgdByteLength", "%llu", (unsigned long long)words.sgdByteLength);

    CORBTextureHeader parsed;
    uint64_t format = 0;
    EORBTVariableType channelType = eVarUnsignedByteNorm;
    EORBTColourSpace colourSpace = eColourSpaceLinear;
    if (!PixelFormatOfVulkan(words.vkFormat, format, channelType, colourSpace))
    {
        char code[32];
        std::snprintf(code, sizeof code, "vkFormat %u", words.vkFormat);
        return SetLoadError(eLoadNoPixelFormat, "ktx2", code);
    }
    if (words.pixelWidth == 0)
        return RefuseWith(eLoadBadHeader, "ktx2", "pixelWidth 0");
    if (words.faceCount != 1 && words.faceCount != 6)
        return RefuseWith(eLoadBadHeader, "ktx2", "faceCount %u: only 1 or 6 faces are allowed", words.faceCount);
    m_scheme = words.supercompressionScheme;
    if (m_scheme == kSchemeBasisLZ || m_scheme == kSchemeZlib)
        return RefuseWith(eLoadBadHeader, "ktx2", "supercompression scheme %u (%s) is not supported", m_scheme,
                          SchemeName(m_scheme));
    if (m_scheme != kSchemeNone && m_scheme != kSchemeZstd)
        return RefuseWith(eLoadBadHeader, "ktx2", "unknown supercompression scheme %u", m_scheme);

    parsed.setPixelFormat(PixelType(format));
    parsed.setChannelType(channelType);
    parsed.setColourSpace(colourSpace);
    parsed.setWidth(words.pixelWidth);
    parsed.setHeight(std::max(words.pixelHeight, 1u));
    parsed.setDepth(std::max(words.pixelDepth, 1u));
    parsed.setNumArrayMembers(std::max(words.layerCount, 1u));
    parsed.setNumFaces(words.faceCount);
    // Level count 0 asks a loader to make the chain; the file holds level 0.
    parsed.setNumMIPLevels(std::max(words.levelCount, 1u));
    ELoadReason result = CheckHeader(parsed);
    if (result != eLoadOK)
        return result;

    result = CheckLevels(parsed, fileSize);
    if (result != eLoadOK)
        return result;

    // Sections follow in their standard order, each after the one before.
    std::vector<uint8_t> section;
    bool premultiplied = false;
    if (words.dfdByteLength > kMaxDescriptorSize)
        return RefuseWith(eLoadBadHeader, "ktx2", "dfdByteLength %u is too large", words.dfdByteLength);
    result = ReadSection(words.dfdByteOffset, words.dfdByteLength, "data format descriptor", section);
    if (result == eLoadOK)
        result = ReadDescriptor(section, premultiplied);
    bool ownRecord = false;
    if (result == eLoadOK)
        result = ReadSection(words.kvdByteOffset, words.kvdByteLength, "key/value data", section);
    if (result == eLoadOK)
    {
        m_extraBytes += section.size();
        result = ReadKeyValueData(section, parsed, words.vkFormat, ownRecord);
    }
    if (result != eLoadOK)
        return result;
    if (!ownRecord && premultiplied)
        parsed.setIsPreMultiplied(true);
    // Levels come after every section; global data, which no supported scheme
    // uses, are skipped with the gap before them.
    const uint64_t firstLevel = m_levels.front().entry.byteOffset;
    if (firstLevel < m_position)
        return RefuseWith(eLoadBadHeader, "ktx2", "level data at %llu overlap the sections before them",
                          (unsigned long long)firstLevel);
    if (words.sgdByteLength && (words.sgdByteOffset < m_position || words.sgdByteOffset > firstLevel ||
                                words.sgdByteLength > firstLevel - words.sgdByteOffset))
        return RefuseWith(eLoadBadHeader, "ktx2", "supercompression global data (%llu bytes at %llu) are out of place",
                          (unsigned long long)words.sgdByteLength, (unsigned long long)words.sgdByteOffset);
    const Level& last = m_levels.back();
    m_storedDataSize = last.entry.byteOffset + last.entry.byteLength - m_position;
    m_header = parsed;
    header = parsed;
    return eLoadOK;
}

ELoadReason CKTX2FileParser::CheckLevels(const CORBTextureHeader& parsed, uint64_t fileSize)
{
    const uint32_t count = parsed.getNumMIPLevels();
    std::vector<LevelEntry> entries(count);
    if (!m_source.ReadExact(entries.data(), count * sizeof(LevelEntry)))
        return ReadFailure(eLoadTruncatedHeader);
    m_position += count * sizeof(LevelEntry);

    uint64_t blockOffset = 0;
    uint64_t largestCompressed = 0;
    for (uint32_t mip = 0; mip < count; ++mip)
    {
        const LevelEntry& e = entries[mip];
        const uint64_t size = parsed.getDataSize(int(mip), true, true);
        AddField("level", "%u: offset %llu, %llu bytes, %llu uncompressed", mip, (unsigned long long)e.byteOffset,
                 (unsigned long long)e.byteLength, (unsigned long long)e.uncompressedByteLength);
        if (e.uncompressedByteLength != size)
            return RefuseWith(eLoadBadHeader, "ktx2", "level %u declares %llu uncompressed bytes, not %llu", mip,
                              (unsigned long long)e.uncompressedByteLength, (unsigned long long)size);
        if (m_scheme == kSchemeNone ? e.byteLength != size : e.byteLength == 0)
            return RefuseWith(eLoadBadHeader, "ktx2", "level %u declares %llu bytes", mip,
                              (unsigned long long)e.byteLength);
        if (e.byteOffset > UINT64_MAX - e.byteLength ||
            (fileSize != CByteSource::kUnknown && e.byteOffset + e.byteLength > fileSize))
            return RefuseWith(eLoadBadHeader, "ktx2",
                              "level %u (offset %llu, %llu bytes) runs past the end of the file", mip,
                              (unsigned long long)e.byteOffset, (unsigned long long)e.byteLength);
        if (m_scheme != kSchemeNone)
            largestCompressed = std::max(largestCompressed, e.byteLength);
        m_levels.push_back({mip, e, blockOffset, size});
        blockOffset += size;
    }
    std::sort(m_levels.begin(), m_levels.end(),
              [](const Level& a, const Level& b) { return a.entry.byteOffset < b.entry.byteOffset; });
    for (size_t i = 1; i < m_levels.size(); ++i)
        if (m_levels[i].entry.byteOffset < m_levels[i - 1].entry.byteOffset + m_levels[i - 1].entry.byteLength)
            return RefuseWith(eLoadBadHeader, "ktx2", "levels %u and %u overlap", m_levels[i - 1].mip, m_levels[i].mip);
    // A compressed level is held whole while it inflates.
    m_extraBytes = largestCompressed;
    return eLoadOK;
}

// Reads the section at 'offset' of 'length' bytes, which must start at or
// after what has been read (the bytes between are skipped).
ELoadReason CKTX2FileParser::ReadSection(uint64_t offset, uint64_t length, const char* name,
                                         std::vector<uint8_t>& bytes)
{
    bytes.clear();
    if (length == 0)
        return eLoadOK;
    if (offset < m_position)
        return RefuseWith(eLoadBadHeader, "ktx2", "%s at %llu overlap what precedes them", name,
                          (unsigned long long)offset);
    const uint64_t remaining = m_source.Remaining();
    if (remaining != CByteSource::kUnknown &&
        (offset - m_position > remaining || length > remaining - (offset - m_position)))
        return RefuseWith(eLoadBadHeader, "ktx2", "%s (%llu bytes at %llu) run past the end of the file", name,
                          (unsigned long long)length, (unsigned long long)offset);
    if (m_source.Skip(offset - m_position) != offset - m_position)
        return ReadFailure(eLoadTruncatedHeader);
    // Gathered in steps, so a pipe that ends early costs no more than it held.
    while (bytes.size() < length)
    {
        const size_t step = size_t(std::min<uint64_t>(length - bytes.size(), kGatherStep));
        const size_t at = bytes.size();
        bytes.resize(at + step);
        if (!m_source.ReadExact(bytes.data() + at, step))
            return ReadFailure(eLoadTruncatedHeader);
    }
    m_position = offset + length;
    return eLoadOK;
}

ELoadReason CKTX2FileParser::ReadDescriptor(const std::vector<uint8_t>& bytes, bool& premultiplied)
{
    if (bytes.empty())
        return RefuseWith(eLoadBadHeader, "ktx2", "no data format descriptor");
    const uint32_t total = bytes.size() >= 4 ? ReadAt<uint32_t>(bytes.data()) : 0;
    if (total != bytes.size() || total < 4 + 24)
        return RefuseWith(eLoadBadHeader, "ktx2", "data format descriptor of %u bytes in a section of %zu", total,
                          bytes.size());
    const uint8_t* block = bytes.data() + 4;
    const uint32_t kind = ReadAt<uint32_t>(block);
    const uint32_t version = ReadAt<uint32_t>(block + 4);
    const uint32_t blockSize = version >> 16;
    const uint32_t model = ReadAt<uint32_t>(block + 8);
    AddField("dfd vendor/type", "%u/%u", kind & 0x1FFFF, kind >> 17);
    AddField("dfd version", "%u", version & 0xFFFF);
    if (kind != 0 || blockSize < 24 || blockSize > total - 4 || (blockSize - 24) % 16 != 0)
        return RefuseWith(eLoadBadHeader, "ktx2", "first descriptor block is no basic block of a valid size (%u bytes)",
                          blockSize);
    AddField("dfd colorModel", "%u", model & 0xFF);
    AddField("dfd colorPrimaries", "%u", (model >> 8) & 0xFF);
    AddField("dfd transferFunction", "%u (%s)", (model >> 16) & 0xFF,
             ((model >> 16) & 0xFF) == kDescriptorTransferSRGB ? "sRGB" : "linear");
    AddField("dfd flags", "%u%s", model >> 24,
             (model >> 24) & kDescriptorFlagPremultiplied ? " (premultiplied alpha)" : "");
    const uint8_t* dims = block + 12;
    AddField("dfd texelBlockDimension", "%ux%ux%ux%u", dims[0] + 1u, dims[1] + 1u, dims[2] + 1u, dims[3] + 1u);
    AddField("dfd bytesPlane0", "%u", block[16]);
    const uint32_t samples = (blockSize - 24) / 16;
    AddField("dfd samples", "%u", samples);
    for (uint32_t i = 0; i < std::min(samples, kSamplesShown); ++i)
    {
        const uint8_t* s = block + 24 + 16 * i;
        const uint32_t word = ReadAt<uint32_t>(s);
        AddField("dfd sample", "%u: channel %u, bits %u..%u, qualifiers 0x%X, lower 0x%08X, upper 0x%08X", i,
                 (word >> 24) & 0xF, word & 0xFFFF, (word & 0xFFFF) + ((word >> 16) & 0xFF), word >> 28,
                 ReadAt<uint32_t>(s + 8), ReadAt<uint32_t>(s + 12));
    }
    premultiplied = ((model >> 24) & kDescriptorFlagPremultiplied) != 0;
    return eLoadOK;
}

ELoadReason CKTX2FileParser::ReadKeyValueData(const std::vector<uint8_t>& bytes, CORBTextureHeader& parsed,
                                              uint32_t vkFormat, bool& ownRecord)
{
    size_t at = 0;
    uint32_t pairs = 0;
    bool orientationFound = false;
    uint32_t orientation = 0;
    size_t orientationAxes = 0;
    std::vector<MetaDataBlock> items;
    while (at < bytes.size())
    {
        if (bytes.size() - at < 4)
            return RefuseWith(eLoadBadHeader, "ktx2", "key/value pair %u runs past kvdByteLength", pairs);
        const uint32_t length = ReadAt<uint32_t>(bytes.data() + at);
        at += 4;
        if (length > bytes.size() - at)
            return RefuseWith(eLoadBadHeader, "ktx2", "key/value pair %u of %u bytes runs past kvdByteLength", pairs,
                              length);
        const uint8_t* pair = bytes.data() + at;
        const uint8_t* keyEnd = static_cast<const uint8_t*>(std::memchr(pair, 0, length));
        if (!keyEnd)
            return RefuseWith(eLoadBadHeader, "ktx2", "key/value pair %u has no terminated key", pairs);
        const std::string key(reinterpret_cast<const char*>(pair), size_t(keyEnd - pair));
        const uint8_t* value = keyEnd + 1;
        const size_t valueLength = length - key.size() - 1;
        // Text values end at their zero.
        std::string text(reinterpret_cast<const char*>(value), valueLength);
        text = text.substr(0, text.find('\0'));

        if (key == "KTXorientation")
        {
            orientationFound = true;
            orientation = OrientationOf(text);
            orientationAxes = text.size();
        }
        else if (key == kOwnKey)
        {
            if (valueLength < kOwnRecordSize)
                return RefuseWith(eLoadBadHeader, "ktx2", "%s: value of %zu bytes is too short", kOwnKey, valueLength);
            const uint64_t format = ReadAt<uint64_t>(value);
            const uint32_t channelType = ReadAt<uint32_t>(value + 8);
            const uint32_t colourSpace = ReadAt<uint32_t>(value + 12);
            const uint32_t flags = ReadAt<uint32_t>(value + 16);
            // The format as written, when it is one the file's code stands for.
            uint32_t code = 0;
            if (channelType < eNumVarTypes && colourSpace <= eColourSpaceSRGB &&
                VulkanFormatOf(format, EORBTVariableType(channelType), EORBTColourSpace(colourSpace), code) &&
                code == vkFormat)
            {
                parsed.setPixelFormat(PixelType(format));
                parsed.setChannelType(EORBTVariableType(channelType));
                parsed.setColourSpace(EORBTColourSpace(colourSpace));
            }
            parsed.setIsPreMultiplied((flags & 1) != 0);
            ownRecord = true;
            size_t item = kOwnRecordSize;
            while (item < valueLength)
            {
                if (valueLength - item < ORBTEX_METADATA_BLOCK_HEADER_SIZE)
                    return RefuseWith(eLoadBadHeader, "ktx2", "%s: item %zu runs past its value", kOwnKey,
                                      items.size());
                const uint32_t size = ReadAt<uint32_t>(value + item + 8);
                if (size > valueLength - item - ORBTEX_METADATA_BLOCK_HEADER_SIZE)
                    return RefuseWith(eLoadBadHeader, "ktx2", "%s: item %zu runs past its value", kOwnKey,
                                      items.size());
                items.emplace_back(ReadAt<uint32_t>(value + item), ReadAt<uint32_t>(value + item + 4), size,
                                   value + item + ORBTEX_METADATA_BLOCK_HEADER_SIZE);
                item += ORBTEX_METADATA_BLOCK_HEADER_SIZE + size;
            }
        }
        if (pairs < kPairsShown)
        {
            std::string shownKey = key;
            for (char& c : shownKey)
                if (c < 0x20 || c > 0x7E)
                    c = '?';
            AddField("key", "%s", shownKey.c_str());
            if (key == kOwnKey)
                AddField("value", "%zu metadata items", items.size());
            else if (!text.empty() && IsPrintable(text))
                AddField("value", "%s", text.c_str());
        }
        ++pairs;
        at += length;
        at += std::min<size_t>((4 - length % 4) % 4, bytes.size() - at);
    }
    if (pairs > kPairsShown)
        AddField("more key/value pairs", "%u", pairs - kPairsShown);
    m_extraBytes += items.size() * kItemCost;
    if (!items.empty())
        parsed.addMetaDataBlocks(items.data(), unsigned(items.size()));
    // The axes "KTXorientation" names win over a differing item; a 2D file
    // keeps the item's depth axis.
    if (orientationFound)
    {
        const uint32_t covered = orientationAxes >= 3 ? 7u : orientationAxes == 2 ? 3u : orientationAxes == 1 ? 1u : 0u;
        // Read as the writer reads it, so an item of other byte values that
        // writes these letters stays as it is.
        const uint32_t held = (parsed.getOrientation(eAxisX) == eOrientLeft ? 1u : 0u) |
                              (parsed.getOrientation(eAxisY) == eOrientUp ? 2u : 0u) |
                              (parsed.getOrientation(eAxisZ) == eOrientOut ? 4u : 0u);
        if ((held & covered) != orientation || !ownRecord)
        {
            parsed.setOrientation(EORBTOrientation((held & ~covered) | orientation));
            m_extraBytes += kItemCost;
        }
    }
    return eLoadOK;
}

ELoadReason CKTX2FileParser::Inflate(uint32_t mip, uint8_t* destination)
{
    const Level& level = *std::find_if(m_levels.begin(), m_levels.end(), [&](const Level& l) { return l.mip == mip; });
    // Gathered in steps: a pipe that ends early costs no more than it held.
    m_compressed.clear();
    while (m_compressed.size() < level.entry.byteLength)
    {
        const size_t step = size_t(std::min<uint64_t>(level.entry.byteLength - m_compressed.size(), kGatherStep));
        const size_t at = m_compressed.size();
        m_compressed.resize(at + step);
        const ELoadReason result = TakeData(m_compressed.data() + at, step);
        if (result != eLoadOK)
            return result;
    }
    if (!m_zstd)
        m_zstd = ZSTD_createDCtx();
    if (!m_zstd)
        return RefuseWith(eLoadBadHeader, "ktx2", "out of memory for the Zstandard decoder");
    // One call into the level's place: the output never passes its size.
    const size_t made =
        ZSTD_decompressDCtx(m_zstd, destination, size_t(level.size), m_compressed.data(), m_compressed.size());
    if (ZSTD_isError(made))
        return RefuseWith(eLoadBadHeader, "ktx2", "level %u: Zstandard data do not inflate to %llu bytes (%s)", mip,
                          (unsigned long long)level.size, ZSTD_getErrorName(made));
    if (made != level.size)
        return RefuseWith(eLoadBadHeader, "ktx2", "level %u inflates to %zu bytes, not %llu", mip, made,
                          (unsigned long long)level.size);
    return eLoadOK;
}

ELoadReason CKTX2FileParser::ReadData(uint8_t* block, uint64_t&)
{
    uint64_t position = m_position;
    for (const Level& level : m_levels)
    {
        ELoadReason result = SkipPadding(level.entry.byteOffset - position);
        if (result != eLoadOK)
            return result;
        if (!block)
            result = SkipPadding(level.entry.byteLength);
        else if (m_scheme == kSchemeNone)
            result = TakeData(block + level.blockOffset, level.size);
        else
            result = Inflate(level.mip, block + level.blockOffset);
        if (result != eLoadOK)
            return result;
        position = level.entry.byteOffset + level.entry.byteLength;
    }
    m_compressed = std::vector<uint8_t>();
    return eLoadOK;
}

const uint8_t kZeros[16] = {};

} // namespace

std::unique_ptr<CContainerParser> MakeKTX2Parser(CByteSource& source)
{
    return std::unique_ptr<CContainerParser>(new CKTX2FileParser(source));
}

bool KTX2WriteRefused(const CORBTexture& texture, int zstdLevel)
{
    uint32_t code = 0;
    const PixelType format = texture.getPixelType();
    if (!VulkanFormatOf(format.PixelTypeID, texture.getChannelType(), texture.getColourSpace(), code))
    {
        const CORBTString name = ORBTGetPixelFormatName(format.PixelTypeID);
        const char* typeName = ORBTGetChannelTypeName(texture.getChannelType());
        SetError(eORBTErrorUnsupported, "%s (%s) has no Vulkan format for KTX 2",
                 name.length() ? name.c_str() : "this pixel format", typeName ? typeName : "unknown channel type");
        return true;
    }
    if (texture.getNumFaces() != 1 && texture.getNumFaces() != 6)
    {
        SetError(eORBTErrorUnsupported, "KTX 2 holds 1 or 6 faces, not %u", texture.getNumFaces());
        return true;
    }
    if (zstdLevel < 0 || zstdLevel > ZSTD_maxCLevel())
    {
        SetError(eORBTErrorArgument, "Zstandard level %d is outside 0 to %d", zstdLevel, ZSTD_maxCLevel());
        return true;
    }
    return false;
}

bool CORBTexture::privateWriteKTX2(CByteSink& sink, int zstdLevel) const
{
    const uint32_t levels = getNumMIPLevels();
    const uint32_t total = getDataSize(-1, true, true);
    if (KTX2WriteRefused(*this, zstdLevel) || levels == 0 || total == 0 || !m_pTextureData || !privateHoldsData(total))
        return false;
    uint32_t vkFormat = 0;
    VulkanFormatOf(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), vkFormat);
    const uint32_t pixelFormat = uint32_t(m_sHeader.pixelFormat);
    const bool premultiplied =
        isPreMultiplied() || (getPixelType().isNamedFormat() && (pixelFormat == ePF_DXT2 || pixelFormat == ePF_DXT4));
    const std::vector<uint32_t> descriptor =
        BasicDescriptor(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), premultiplied);

    // Key/value pairs in byte order of their keys.
    std::vector<std::pair<std::string, std::vector<uint8_t>>> pairs;
    auto textValue = [](const std::string& text) {
        return std::vector<uint8_t>(text.c_str(), text.c_str() + text.size() + 1);
    };
    pairs.emplace_back("KTXorientation", textValue(OrientationText(*this)));
    pairs.emplace_back("KTXwriter", textValue(std::string("ORBTexLib ") + ORBTEX_LIBRARY_VERSION));
    std::vector<uint8_t> own(kOwnRecordSize);
    const uint32_t record[4] = {getChannelType(), getColourSpace(), isPreMultiplied() ? 1u : 0u, 0};
    std::memcpy(own.data(), &m_sHeader.pixelFormat, 8);
    std::memcpy(own.data() + 8, record, 12);
    forEachMetaData([&](const MetaDataBlock& item) {
        const uint32_t head[3] = {item.fourCC, item.key, item.dataSize};
        own.insert(own.end(), reinterpret_cast<const uint8_t*>(head), reinterpret_cast<const uint8_t*>(head) + 12);
        if (item.dataSize && item.data)
            own.insert(own.end(), item.data, item.data + item.dataSize);
    });
    pairs.emplace_back(kOwnKey, std::move(own));
    std::sort(pairs.begin(), pairs.end());
    uint64_t kvdLength = 0;
    for (const auto& pair : pairs)
        kvdLength += AlignUp(4 + pair.first.size() + 1 + pair.second.size(), 4);

    // Levels, compressed one by one when asked.
    std::vector<uint64_t> blockOffsets(levels), sizes(levels);
    for (uint32_t mip = 0, offset = 0; mip < levels; ++mip)
    {
        blockOffsets[mip] = offset;
        sizes[mip] = getDataSize(int(mip), true, true);
        offset += uint32_t(sizes[mip]);
    }
    std::vector<std::vector<uint8_t>> compressed(zstdLevel ? levels : 0);
    if (zstdLevel)
    {
        ZSTD_CCtx* context = ZSTD_createCCtx();
        if (!context)
            return SetError(eORBTErrorMemory, "out of memory for the Zstandard encoder");
        for (uint32_t mip = 0; mip < levels; ++mip)
        {
            compressed[mip].resize(ZSTD_compressBound(size_t(sizes[mip])));
            const size_t made = ZSTD_compressCCtx(context, compressed[mip].data(), compressed[mip].size(),
                                                  m_pTextureData + blockOffsets[mip], size_t(sizes[mip]), zstdLevel);
            if (ZSTD_isError(made))
            {
                ZSTD_freeCCtx(context);
                return SetError(eORBTErrorMemory, "Zstandard: %s", ZSTD_getErrorName(made));
            }
            compressed[mip].resize(made);
        }
        ZSTD_freeCCtx(context);
    }

    KTX2Header words = {};
    words.vkFormat = vkFormat;
    words.typeSize = VulkanTypeSize(m_sHeader.pixelFormat, getChannelType());
    words.pixelWidth = getWidth(0);
    words.pixelHeight = getHeight(0);
    words.pixelDepth = getDepth(0) == 1 ? 0 : getDepth(0);
    words.layerCount = getNumArrayMembers() == 1 ? 0 : getNumArrayMembers();
    words.faceCount = getNumFaces();
    words.levelCount = levels;
    words.supercompressionScheme = zstdLevel ? kSchemeZstd : kSchemeNone;
    words.dfdByteOffset = kHeaderSize + kLevelEntrySize * levels;
    words.dfdByteLength = uint32_t(descriptor.size() * 4);
    words.kvdByteOffset = words.dfdByteOffset + words.dfdByteLength;
    words.kvdByteLength = uint32_t(kvdLength);

    // Smallest level first, each on the level alignment: 1 when supercompressed,
    // else the lowest common multiple of 4 and the texel block's bytes.
    const uint64_t blockBytes = std::max(1u, descriptor[5] & 0xFF);
    uint64_t alignment = 1;
    if (!zstdLevel)
        for (alignment = blockBytes; alignment % 4; alignment += blockBytes)
            ;
    std::vector<LevelEntry> entries(levels);
    uint64_t position = uint64_t(words.kvdByteOffset) + words.kvdByteLength;
    for (uint32_t mip = levels; mip-- > 0;)
    {
        position = AlignUp(position, alignment);
        entries[mip].byteOffset = position;
        entries[mip].byteLength = zstdLevel ? compressed[mip].size() : sizes[mip];
        entries[mip].uncompressedByteLength = sizes[mip];
        position += entries[mip].byteLength;
    }

    sink.Write(kKTX2Identifier, sizeof kKTX2Identifier);
    sink.Write(&words, sizeof words);
    sink.Write(entries.data(), entries.size() * sizeof(LevelEntry));
    sink.Write(descriptor.data(), descriptor.size() * 4);
    for (const auto& pair : pairs)
    {
        const uint32_t length = uint32_t(pair.first.size() + 1 + pair.second.size());
        sink.Write(&length, 4);
        sink.Write(pair.first.c_str(), pair.first.size() + 1);
        sink.Write(pair.second.data(), pair.second.size());
        sink.Write(kZeros, (4 - length % 4) % 4);
    }
    position = uint64_t(words.kvdByteOffset) + words.kvdByteLength;
    for (uint32_t mip = levels; mip-- > 0;)
    {
        sink.Write(kZeros, size_t(entries[mip].byteOffset - position));
        if (zstdLevel)
            sink.Write(compressed[mip].data(), compressed[mip].size());
        else
            sink.Write(m_pTextureData + blockOffsets[mip], size_t(sizes[mip]));
        position = entries[mip].byteOffset + entries[mip].byteLength;
    }
    return !sink.Failed();
}

} // namespace orbtexture
