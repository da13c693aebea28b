// Hostile and damaged native files: every loader must refuse or load within
// bounds. Run under the sanitizers, a stray read or write fails the test.

#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::AppendValue;
using testsupport::PutValue;
using testsupport::ScopedLoadLimit;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

// A well-formed 4x4 rgba8 file with two metadata items.
std::vector<uint8_t> ValidFile()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 3));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i);
    texture.setBorder(1, 2, 3);
    texture.setCubeMapOrder("XxYyZz");
    std::vector<uint8_t> bytes(52);
    const ORBTextureHeaderV3 record = texture.getFileHeader();
    std::memcpy(bytes.data(), &record, 52);
    const uint32_t border[3] = {ORBTEX_METADATA_FOURCC, eMetaBorder, 12};
    const uint32_t borderData[3] = {1, 2, 3};
    AppendValue(bytes, border);
    AppendValue(bytes, borderData);
    const uint32_t cube[3] = {ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder, 6};
    AppendValue(bytes, cube);
    bytes.insert(bytes.end(), {'X', 'x', 'Y', 'y', 'Z', 'z'});
    bytes.insert(bytes.end(), texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
    return bytes;
}

constexpr size_t kMetaDataSizeOffset = 48;
constexpr size_t kFirstBlockSizeOffset = 52 + 8;

// Loads through the file loader and the sized memory image; returns whether each loaded.
struct Outcome
{
    bool file, memory;
};

Outcome LoadBoth(const ScratchDir& dir, const std::vector<uint8_t>& bytes)
{
    // The file loader accepts short pixel data and zeroes the rest, so a
    // header declaring a gigabyte would cost one; damage stays cheap with a
    // lower limit.
    const ScopedLoadLimit limit(16u << 20);
    WriteBytes(dir / "case.orb", bytes);
    const CORBTexture fromFile((dir / "case.orb").c_str());
    const CORBTexture fromMemory(bytes.data(), bytes.size());
    // A texture that did load must be internally consistent.
    for (const CORBTexture* t : {&fromFile, &fromMemory})
        if (t->getDataPtr())
        {
            volatile uint8_t sink = 0;
            for (uint32_t i = 0; i < t->getDataSize(); ++i)
                sink = sink ^ t->getDataPtr()[i];
        }
    return {fromFile.getDataPtr() != nullptr, fromMemory.getDataPtr() != nullptr};
}

} // namespace

TEST(MalformedFiles, ValidFileLoadsEverywhere)
{
    ScratchDir dir;
    const std::vector<uint8_t> bytes = ValidFile();
    const Outcome outcome = LoadBoth(dir, bytes);
    EXPECT_TRUE(outcome.file);
    EXPECT_TRUE(outcome.memory);
    EXPECT_NE(CORBTexture(static_cast<const void*>(bytes.data())).getDataPtr(), nullptr);
}

TEST(MalformedFiles, EveryTruncation)
{
    ScratchDir dir;
    const std::vector<uint8_t> bytes = ValidFile();
    const size_t dataStart = 52 + 24 + 18;
    for (size_t length = 0; length < bytes.size(); ++length)
    {
        SCOPED_TRACE(length);
        const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + long(length));
        const Outcome outcome = LoadBoth(dir, cut);
        // The file loader accepts short pixel data; nothing shorter than that.
        EXPECT_EQ(outcome.file, length > dataStart);
        EXPECT_FALSE(outcome.memory);
    }
}

TEST(MalformedFiles, HeaderAndMetaDataDamage)
{
    ScratchDir dir;
    struct Case
    {
        const char* name;
        void (*damage)(std::vector<uint8_t>&);
    };
    const Case cases[] = {
        {"wrong magic", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, 0, 0x4F524203); }},
        {"legacy v2 word", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, 0, 52); }},
        {"legacy v1 word", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, 0, 44); }},
        {"metadata larger than file", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, kMetaDataSizeOffset, 1u << 30); }},
        {"block larger than file", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, kFirstBlockSizeOffset, 0xFFFFFFF0u); }},
        {"zero-length block", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, kFirstBlockSizeOffset, 0); }},
        {"16 GiB of pixels", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, 24, 65536); PutValue<uint32_t>(b, 28, 65536); }},
        {"4 GiB of members", [](std::vector<uint8_t>& b) { PutValue<uint32_t>(b, 36, 0x40000000); }},
        {"64-bit overflow", [](std::vector<uint8_t>& b) {
             for (size_t o : {24, 28, 32})
                 PutValue<uint32_t>(b, o, 0xFFFFFFFFu);
         }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> bytes = ValidFile();
        c.damage(bytes);
        const Outcome outcome = LoadBoth(dir, bytes);
        EXPECT_FALSE(outcome.file);
        EXPECT_FALSE(outcome.memory);
    }
}

TEST(MalformedFiles, BlockRunningPastTheDeclaredArea)
{
    // Declared size covers only part of the first block: the block is dropped,
    // the file loader reads pixels from 52 on, the memory image does the same.
    ScratchDir dir;
    std::vector<uint8_t> bytes = ValidFile();
    PutValue<uint32_t>(bytes, kMetaDataSizeOffset, 20);
    WriteBytes(dir / "case.orb", bytes);
    const CORBTexture fromFile((dir / "case.orb").c_str());
    ASSERT_NE(fromFile.getDataPtr(), nullptr);
    EXPECT_EQ(fromFile.getMetaDataSize(), 0u);
    EXPECT_EQ(std::memcmp(fromFile.getDataPtr(), bytes.data() + 52, 16), 0);

    // The memory walk keeps the block it started and stops at the declared size.
    const CORBTexture fromMemory(bytes.data(), bytes.size());
    ASSERT_NE(fromMemory.getDataPtr(), nullptr);
    EXPECT_EQ(fromMemory.getMetaDataSize(), 24u);
}

TEST(MalformedFiles, UnsizedImageRefusesImpossibleHeaders)
{
    // The unsized form trusts the image's extent, but still refuses sizes that
    // do not fit before allocating.
    std::vector<uint8_t> bytes = ValidFile();
    PutValue<uint32_t>(bytes, 24, 65536);
    PutValue<uint32_t>(bytes, 28, 65536);
    EXPECT_EQ(CORBTexture(static_cast<const void*>(bytes.data())).getDataPtr(), nullptr);

    bytes = ValidFile();
    PutValue<uint32_t>(bytes, 0, 0x12345678);
    const CORBTexture unknown(static_cast<const void*>(bytes.data()));
    EXPECT_EQ(unknown.getDataPtr(), nullptr);
    EXPECT_EQ(unknown.getDataSize(), 0u);
    EXPECT_EQ(CORBTexture(static_cast<const void*>(nullptr)).getDataPtr(), nullptr);
    EXPECT_EQ(CORBTexture(nullptr, 100).getDataPtr(), nullptr);
}

TEST(MalformedFiles, RandomDamageStaysInBounds)
{
    // Deterministic mutations of a valid file: bytes overwritten, sizes
    // rewritten with boundary values. Only the absence of faults is checked.
    ScratchDir dir;
    const std::vector<uint8_t> valid = ValidFile();
    std::mt19937 random(12345);
    const uint32_t edges[] = {0, 1, 11, 12, 13, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFF4u};
    for (int round = 0; round < 400; ++round)
    {
        std::vector<uint8_t> bytes = valid;
        const int changes = 1 + int(random() % 4);
        for (int i = 0; i < changes; ++i)
        {
            if (random() % 2)
                bytes[random() % bytes.size()] = uint8_t(random());
            else
                PutValue<uint32_t>(bytes, (random() % (bytes.size() / 4)) * 4, edges[random() % 9]);
        }
        if (random() % 3 == 0)
            bytes.resize(random() % bytes.size());
        LoadBoth(dir, bytes);
    }
}
