// The one parser behind the file loader, the memory-image loader and the
// header read: the reasons it gives, short data, the load limit, pipes, large
// metadata, and hostile or damaged files, which every loader must refuse or
// load within bounds (under the sanitizers a stray read or write fails).

#include <cstring>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// Native file bytes: a header for 'format' at width x height (one level),
// 'items' metadata blocks of 'itemSize' bytes, then 'dataBytes' bytes of data.
std::vector<uint8_t> FileBytes(uint64_t format, uint32_t width, uint32_t height, uint32_t dataBytes,
                               uint32_t items = 0, uint32_t itemSize = 4)
{
    ORBTextureHeaderV3 record;
    record.pixelFormat = format;
    record.width = width;
    record.height = height;
    record.metaDataSize = items * (12 + itemSize);
    std::vector<uint8_t> bytes;
    AppendValue(bytes, record);
    for (uint32_t i = 0; i < items; ++i)
    {
        const uint32_t words[3] = {0x44444444, i, itemSize};
        AppendValue(bytes, words);
        bytes.insert(bytes.end(), itemSize, uint8_t(i));
    }
    for (uint32_t i = 0; i < dataBytes; ++i)
        bytes.push_back(uint8_t(i * 3 + 1));
    return bytes;
}

std::vector<uint8_t> Rgba8File(uint32_t width, uint32_t height, uint32_t items = 1)
{
    return FileBytes(ORBStandard8PixelType, width, height, width * height * 4, items);
}

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

TEST(NativeParser, EveryLoaderGivesTheSameReason)
{
    ScratchDir dir;
    std::vector<uint8_t> truncated = Rgba8File(2, 2);
    truncated.resize(51);
    // Declares one item, then ends inside its header.
    std::vector<uint8_t> metaDataCut = FileBytes(ORBStandard8PixelType, 1, 1, 0, 1);
    metaDataCut.resize(52 + 6);
    // The second item claims more than the file holds.
    std::vector<uint8_t> itemTooLong = FileBytes(ORBStandard8PixelType, 1, 1, 4, 2);
    PutValue<uint32_t>(itemTooLong, 52 + 16 + 8, 1000);
    std::vector<uint8_t> noSurfaces = Rgba8File(2, 2);
    PutValue<uint32_t>(noSurfaces, 44, 0);
    // Deep chains load (see the size tests) until their size overflows.
    std::vector<uint8_t> deepChain = Rgba8File(2, 2);
    PutValue<uint32_t>(deepChain, 44, 0xFFFFFFFF);

    ExpectRefused(dir, "case.orb", {}, "file too short to be a texture");
    ExpectRefused(dir, "case.orb", {'O', 'R', 'B'}, "file too short to be a texture");
    ExpectRefused(dir, "case.orb", {52, 0, 0, 0, 1, 2, 3}, "truncated header");
    ExpectRefused(dir, "case.orb", {44, 0, 0, 0}, "truncated header");
    ExpectRefused(dir, "case.orb", {3, 'B', 'R', 'O', 0, 0}, "not an .orb texture (first word 0x4F524203)");
    ExpectRefused(dir, "case.orb", truncated, "truncated header");
    ExpectRefused(dir, "case.orb", FileBytes(PixelType('r', 'g', 0, 0, 40, 8, 0, 0).PixelTypeID, 1, 1, 6),
                  "channel layout has a channel wider than 32 bits");
    ExpectRefused(dir, "case.orb", noSurfaces, "declares no surfaces");
    ExpectRefused(dir, "case.orb", deepChain, "4294967295 MIP levels, but a largest side of 2 allows at most 2");
    ExpectRefused(dir, "case.orb", FileBytes(ePF_BC7, 4, 4, 16), "pixel format BC7 has no known size");
    ExpectRefused(dir, "case.orb", FileBytes(ORBStandard8PixelType, 65536, 16384, 16),
                  "texture too large: its data size does not fit in 32 bits");
    ExpectRefused(dir, "case.orb", metaDataCut, "metadata runs past the end of the file");
    ExpectRefused(dir, "case.orb", itemTooLong,
                  "metadata item (fourCC 0x44444444, key 1) runs past the end of the file");
    ExpectRefused(dir, "case.orb", FileBytes(ORBStandard8PixelType, 2, 2, 0, 2), "pixel data missing");

    // A success clears the text.
    const std::vector<uint8_t> valid = Rgba8File(2, 2);
    EXPECT_NE(CORBTexture(valid.data(), valid.size()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "");

    // An empty item fails a file, where reading it fails, but not a memory image.
    std::vector<uint8_t> empty = FileBytes(ORBStandard8PixelType, 1, 1, 4, 1, 0);
    WriteBytes(dir / "empty.orb", empty);
    EXPECT_EQ(CORBTexture((dir / "empty.orb").c_str()).getDataPtr(), nullptr);
    const CORBTexture fromMemory(empty.data(), empty.size());
    ASSERT_NE(fromMemory.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_TRUE(fromMemory.hasMetaData(0x44444444, 0));
}

TEST(NativeParser, FilesThatAreNoTextures)
{
    ScratchDir dir;
    EXPECT_EQ(CORBTexture((dir / "missing.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "cannot open file: No such file or directory");

    std::filesystem::create_directories(dir / "folder.orb");
    EXPECT_EQ(CORBTexture((dir / "folder.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "is a directory");
    CORBTextureHeader header;
    EXPECT_FALSE(ORBTReadTextureHeader((dir / "folder.orb").c_str(), header));
    EXPECT_STREQ(ORBTGetLastError(), "is a directory");

    WriteBytes(dir / "native.KTX", Rgba8File(2, 2));
    EXPECT_EQ(CORBTexture((dir / "native.KTX").c_str()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "not a ktx file (wrong identifier)");
}

TEST(NativeParser, ShortPixelDataAndTheShortfall)
{
    ScratchDir dir;
    std::vector<uint8_t> bytes = Rgba8File(4, 4, 2);
    WriteBytes(dir / "whole.orb", bytes);
    CORBTextureHeader header;
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "whole.orb").c_str(), header));
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 0u);
    EXPECT_EQ(header.getWidth(), 4u);
    EXPECT_EQ(header.getMetaDataSize(), 32u);
    EXPECT_TRUE(header.hasMetaData(0x44444444, 1));

    bytes.resize(bytes.size() - 10);
    WriteBytes(dir / "short.orb", bytes);
    ASSERT_NE(CORBTexture((dir / "short.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 10u);
    EXPECT_STREQ(ORBTGetLastError(), "");
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "short.orb").c_str(), header));
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 10u);
    EXPECT_EQ(CORBTexture(bytes.data(), bytes.size()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 10 bytes");
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 0u);

    // loadFile can hold a file to its data, from a pipe too, where the end
    // shows only after the read.
    CORBTexture strict;
    EXPECT_FALSE(strict.loadFile((dir / "short.orb").c_str(), false));
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 10 bytes");
    EXPECT_EQ(strict.getDataPtr(), nullptr);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), ssize_t(bytes.size()));
    ::close(ends[1]);
    EXPECT_FALSE(strict.loadFile(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), false));
    ::close(ends[0]);
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 10 bytes");
    EXPECT_TRUE(strict.loadFile((dir / "short.orb").c_str()));
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 10u);
    // A dropped metadata block's header is the first 12 of the 64 pixel bytes.
    std::vector<uint8_t> dropped = FileBytes(ORBStandard8PixelType, 4, 4, 32, 1, 20);
    PutValue<uint32_t>(dropped, 48, 1);
    WriteBytes(dir / "dropped.orb", dropped);
    EXPECT_TRUE(strict.loadFile((dir / "dropped.orb").c_str(), false)) << ORBTGetLastError();
    dropped.pop_back();
    WriteBytes(dir / "dropped.orb", dropped);
    EXPECT_FALSE(strict.loadFile((dir / "dropped.orb").c_str(), false));
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 1 bytes");
    // No pixel byte at all fails before allocating, whatever the switch.
    WriteBytes(dir / "none.orb", FileBytes(ORBStandard8PixelType, 16384, 16383, 0));
    EXPECT_FALSE(strict.loadFile((dir / "none.orb").c_str()));
    EXPECT_STREQ(ORBTGetLastError(), "pixel data missing");
}

TEST(NativeParser, LoadLimitRefusesBeforeAllocating)
{
    ScratchDir dir;
    // 56 bytes that declare almost 4 GiB of pixels.
    std::vector<uint8_t> tiny = FileBytes(ORBStandard8PixelType, 65535, 16384, 4);
    ASSERT_EQ(tiny.size(), 56u);
    WriteBytes(dir / "tiny.orb", tiny);
    EXPECT_EQ(CORBTexture((dir / "tiny.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "texture needs 4294901760 bytes, above the load limit of 1073741824 bytes");
    // The header alone loads nothing and so is not limited.
    CORBTextureHeader header;
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "tiny.orb").c_str(), header));
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 4294901760u - 4);

    // Metadata count too, with what their items cost beyond their data: 64
    // bytes of pixels, 2 x 4 of items under one fourCC, and 2 x 64 + 512 of
    // bookkeeping.
    const std::vector<uint8_t> file = Rgba8File(4, 4, 2);
    {
        ScopedLoadLimit limit(711);
        EXPECT_EQ(CORBTexture(file.data(), file.size()).getDataPtr(), nullptr);
        EXPECT_STREQ(ORBTGetLastError(), "texture needs 712 bytes, above the load limit of 711 bytes");
    }
    {
        ScopedLoadLimit limit(712);
        EXPECT_NE(CORBTexture(file.data(), file.size()).getDataPtr(), nullptr);
    }
    // A file of many one-byte items under as many fourCCs is refused while
    // it reads them, long before its memory would be many times its size.
    std::vector<uint8_t> vendors = FileBytes(ORBStandard8PixelType, 1, 1, 4);
    const uint32_t items = 10000;
    PutValue<uint32_t>(vendors, 48, items * 13);
    vendors.resize(52);
    for (uint32_t i = 0; i < items; ++i)
    {
        const uint32_t words[3] = {i, 0, 1};
        AppendValue(vendors, words);
        vendors.push_back(1);
    }
    vendors.insert(vendors.end(), 4, 0);
    {
        ScopedLoadLimit limit(uint64_t(vendors.size()) * 10);
        EXPECT_EQ(CORBTexture(vendors.data(), vendors.size()).getDataPtr(), nullptr);
        EXPECT_EQ(std::string(ORBTGetLastError()).rfind("texture needs ", 0), 0u);
    }
    ORBTSetLoadLimit(0);
    EXPECT_EQ(ORBTGetLoadLimit(), uint64_t(1) << 30);
}

TEST(NativeParser, PipesAreReadFromStartToEndOnce)
{
    // A pipe cannot seek: the parser reads straight through, also when a block
    // that runs past the declared area turns into the first pixel bytes.
    ScratchDir dir;
    const std::string fifo = dir / "pipe.orb";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::vector<uint8_t> bytes = FileBytes(ORBStandard8PixelType, 2, 2, 16, 1, 8);
    PutValue<uint32_t>(bytes, 48, 1); // the block runs past the declared area
    auto feed = [&] {
        std::thread writer([&] { WriteBytes(fifo, bytes); });
        return writer;
    };

    std::thread writer = feed();
    const CORBTexture texture(fifo.c_str());
    writer.join();
    ASSERT_NE(texture.getDataPtr(), nullptr);
    EXPECT_EQ(texture.getMetaDataSize(), 0u);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), bytes.data() + 52, 16), 0);

    bytes.resize(bytes.size() - 3);
    writer = feed();
    CORBTextureHeader header;
    EXPECT_TRUE(ORBTReadTextureHeader(fifo.c_str(), header));
    writer.join();
    // 12 + 8 + 13 bytes follow the header, more than the 16 of pixel data.
    EXPECT_EQ(ORBTGetLastLoadShortfall(), 0u);

    // The dropped block's own data must be there.
    bytes.resize(52 + 12 + 5);
    writer = feed();
    EXPECT_FALSE(ORBTReadTextureHeader(fifo.c_str(), header));
    writer.join();
    EXPECT_STREQ(ORBTGetLastError(), "metadata item (fourCC 0x44444444, key 0) runs past the end of the file");
}

TEST(NativeParser, ManyMetaDataItemsKeepTheirOrderAndCount)
{
    // Items alternate between two vendors; every tenth repeats the key of
    // the item two before it, which replaces that item and counts again, as
    // addMetaData does.
    const uint32_t count = 20000;
    const uint32_t odd = 0x11111111, even = 0x22222222;
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    std::vector<uint8_t> items;
    uint32_t declared = 0;
    for (uint32_t i = 0; i < count; ++i)
    {
        const uint32_t words[3] = {i % 2 ? odd : even, i % 10 == 9 ? i - 2 : i, 1};
        AppendValue(items, words);
        items.push_back(uint8_t(i));
        declared += 13;
    }
    record.metaDataSize = declared;
    std::vector<uint8_t> bytes;
    AppendValue(bytes, record);
    bytes.insert(bytes.end(), items.begin(), items.end());
    bytes.insert(bytes.end(), {1, 2, 3, 4});

    CORBTexture texture(bytes.data(), bytes.size());
    ASSERT_NE(texture.getDataPtr(), nullptr);
    EXPECT_EQ(texture.getMetaDataSize(), declared);
    const MetaDataMap& map = *texture.getMetaDataMap();
    ASSERT_EQ(map.GetSize(), 2u);
    EXPECT_EQ(map.GetKey(0), even);
    EXPECT_EQ(map.GetValue(0).GetSize() + map.GetValue(1).GetSize(), count - count / 10);
    EXPECT_EQ(map.GetValue(1).GetKey(4), 11u);
    EXPECT_EQ(texture.getMetaData(odd, 7).data[0], 9);
    EXPECT_FALSE(texture.hasMetaData(odd, 9));
    EXPECT_EQ(texture.recountMetaDataSize(), (count - count / 10) * 13);
}

TEST(MalformedFiles, EveryTruncation)
{
    ScratchDir dir;
    const std::vector<uint8_t> bytes = ValidFile();
    EXPECT_NE(CORBTexture(static_cast<const void*>(bytes.data())).getDataPtr(), nullptr);
    const size_t dataStart = 52 + 24 + 18;
    for (size_t length = 0; length <= bytes.size(); ++length)
    {
        SCOPED_TRACE(length);
        const Outcome outcome = LoadBoth(dir, std::vector<uint8_t>(bytes.begin(), bytes.begin() + long(length)));
        // The file loader accepts short pixel data; nothing shorter than that.
        EXPECT_EQ(outcome.file, length > dataStart);
        EXPECT_EQ(outcome.memory, length == bytes.size());
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
