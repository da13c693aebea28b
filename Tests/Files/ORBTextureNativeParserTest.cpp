// The one parser behind the file and memory-image loaders and the header read:
// its reasons, short data, the load limit, pipes, large metadata, and damaged
// files, which every loader refuses or loads within bounds (see the sanitizers).

#include <cstring>
#include <functional>
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
// 'items' metadata items, item i 'itemSize' bytes of i under the fourCC and
// key 'name(i)' gives (0x44444444 and i by default), then 'dataBytes' bytes.
std::vector<uint8_t> FileBytes(uint64_t format, uint32_t width, uint32_t height, uint32_t dataBytes,
                               uint32_t items = 0, uint32_t itemSize = 4,
                               std::function<std::pair<uint32_t, uint32_t>(uint32_t)> name = nullptr)
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
        const std::pair<uint32_t, uint32_t> fourCCAndKey = name ? name(i) : std::make_pair(0x44444444u, i);
        const uint32_t words[3] = {fourCCAndKey.first, fourCCAndKey.second, itemSize};
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

// A well-formed 4 x 4 rgba8 file of three levels and two metadata items (of
// 12 and 6 bytes), as saveFile writes it; its pixel bytes count 0, 1, 2, ...
std::vector<uint8_t> ValidFile()
{
    const CORBTextureHeader header(ORBStandard8PixelType, 4, 4, 1, 3);
    CORBTexture texture(header, Sequence(header.getDataSize(), 1).data());
    texture.setBorder(1, 2, 3);
    texture.setCubeMapOrder("XxYyZz");
    const ScratchDir dir("_valid");
    EXPECT_TRUE(texture.saveFile((dir / "valid.orb").c_str()));
    return ReadBytes(dir / "valid.orb");
}

constexpr size_t kMetaDataSizeOffset = 48;

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
    // Declares one item, then ends inside its header.
    std::vector<uint8_t> metaDataCut = FileBytes(ORBStandard8PixelType, 1, 1, 0, 1);
    metaDataCut.resize(52 + 6);
    const auto patched = [](std::vector<uint8_t> bytes, std::initializer_list<std::pair<size_t, uint32_t>> words) {
        for (const auto& word : words)
            PutValue(bytes, word.first, word.second);
        return bytes;
    };
    const std::vector<uint8_t> valid = ValidFile(), rgba = Rgba8File(2, 2);
    const struct
    {
        std::vector<uint8_t> bytes;
        const char* reason;
    } cases[] = {
        {{}, "file too short to be a texture"},
        {{'O', 'R', 'B'}, "file too short to be a texture"},
        {{52, 0, 0, 0, 1, 2, 3}, "truncated header"},
        {{44, 0, 0, 0}, "truncated header"},
        {std::vector<uint8_t>(rgba.begin(), rgba.begin() + 51), "truncated header"},
        {{3, 'B', 'R', 'O', 0, 0}, "not an .orb texture (first word 0x4F524203)"},
        // A native file read as a legacy one of either version: 'rgba' is its width, 8.8.8.8 its MIP count.
        {patched(valid, {{0, 52}}), "134744073 MIP levels, but a largest side of 1633838962 allows at most 31"},
        {patched(valid, {{0, 44}}), "134744073 MIP levels, but a largest side of 1633838962 allows at most 31"},
        {FileBytes(PixelType('r', 'g', 0, 0, 40, 8, 0, 0).PixelTypeID, 1, 1, 6),
         "channel layout has a channel wider than 32 bits"},
        {patched(rgba, {{44, 0}}), "declares no surfaces"},
        // Deep chains load (see the size tests) until their size overflows.
        {patched(rgba, {{44, 0xFFFFFFFF}}), "4294967295 MIP levels, but a largest side of 2 allows at most 2"},
        {FileBytes(ePF_BC7, 4, 4, 16), "pixel format BC7 has no known size"},
        {FileBytes(ORBStandard8PixelType, 65536, 16384, 16), "texture too large: its data size does not fit in 32 bits"},
        {patched(valid, {{24, 0xFFFFFFFF}, {28, 0xFFFFFFFF}, {32, 0xFFFFFFFF}}),
         "texture too large: its data size does not fit in 32 bits"},
        {metaDataCut, "metadata runs past the end of the file"},
        // Declared metadata past the end: the walk reads pixel bytes as an item.
        {patched(valid, {{kMetaDataSizeOffset, 1u << 30}}),
         "metadata item (fourCC 0x03020100, key 117835012) runs past the end of the file"},
        // The second item claims more than the file holds.
        {patched(FileBytes(ORBStandard8PixelType, 1, 1, 4, 2), {{52 + 16 + 8, 1000}}),
         "metadata item (fourCC 0x44444444, key 1) runs past the end of the file"},
        {FileBytes(ORBStandard8PixelType, 2, 2, 0, 2), "pixel data missing"},
    };
    for (const auto& c : cases)
        ExpectRefused(dir, "case.orb", c.bytes, c.reason);

    // A success clears the text.
    EXPECT_NE(CORBTexture(rgba.data(), rgba.size()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), "");

    // An empty item fails a file, where reading it fails, but not a memory image.
    const std::vector<uint8_t> empty = FileBytes(ORBStandard8PixelType, 1, 1, 4, 1, 0);
    WriteBytes(dir / "empty.orb", empty);
    EXPECT_EQ(CORBTexture((dir / "empty.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_TRUE(CORBTexture(empty.data(), empty.size()).hasMetaData(0x44444444, 0)) << ORBTGetLastError();
}

TEST(NativeParser, FilesThatAreNoTextures)
{
    ScratchDir dir;
    std::filesystem::create_directories(dir / "folder.orb");
    WriteBytes(dir / "native.KTX", Rgba8File(2, 2));
    const char* const cases[][2] = {{"missing.orb", "cannot open file: No such file or directory"},
                                    {"folder.orb", "is a directory"},
                                    {"native.KTX", "not a ktx file (wrong identifier)"}};
    for (const auto& c : cases)
    {
        CORBTextureHeader header;
        EXPECT_EQ(CORBTexture((dir / c[0]).c_str()).getDataPtr(), nullptr);
        EXPECT_STREQ(ORBTGetLastError(), c[1]);
        EXPECT_FALSE(ORBTReadTextureHeader((dir / c[0]).c_str(), header));
        EXPECT_STREQ(ORBTGetLastError(), c[1]);
    }
}

TEST(NativeParser, ShortPixelDataAndTheShortfall)
{
    ScratchDir dir;
    std::vector<uint8_t> bytes = Rgba8File(4, 4, 2);
    WriteBytes(dir / "whole.orb", bytes);
    CORBTextureHeader header;
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "whole.orb").c_str(), header));
    EXPECT_TRUE(ORBTGetLastLoadShortfall() == 0 && header.hasMetaData(0x44444444, 1));

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
    const std::vector<uint8_t> vendors = FileBytes(ORBStandard8PixelType, 1, 1, 4, 10000, 1, [](uint32_t i) { return std::make_pair(i, 0u); });
    {
        ScopedLoadLimit limit(uint64_t(vendors.size()) * 10);
        EXPECT_EQ(CORBTexture(vendors.data(), vendors.size()).getDataPtr(), nullptr);
        EXPECT_EQ(std::string(ORBTGetLastError()).rfind("texture needs ", 0), 0u);
    }
    ORBTSetLoadLimit(0);
    EXPECT_EQ(ORBTGetLoadLimit(), uint64_t(1) << 30);
}

TEST(NativeParser, BlockRunningPastTheDeclaredArea)
{
    // The declared size covers part of the first block: a file, or a pipe,
    // which cannot seek, drops the block and reads pixels from 52 on; the
    // memory walk keeps the block it started and stops at the declared size.
    ScratchDir dir;
    const std::string fifo = dir / "pipe.orb";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::vector<uint8_t> bytes = FileBytes(ORBStandard8PixelType, 2, 2, 16, 1, 8);
    PutValue<uint32_t>(bytes, kMetaDataSizeOffset, 1);
    WriteBytes(dir / "file.orb", bytes);
    auto feed = [&] { return std::thread([&] { WriteBytes(fifo, bytes); }); };
    std::thread writer = feed();
    const CORBTexture fromPipe(fifo.c_str()), fromFile((dir / "file.orb").c_str());
    writer.join();
    for (const CORBTexture* texture : {&fromPipe, &fromFile})
    {
        ASSERT_NE(texture->getDataPtr(), nullptr);
        EXPECT_EQ(texture->getMetaDataSize(), 0u);
        EXPECT_EQ(std::memcmp(texture->getDataPtr(), bytes.data() + 52, 16), 0);
    }
    EXPECT_EQ(CORBTexture(bytes.data(), bytes.size()).getMetaDataSize(), 20u);

    bytes.resize(bytes.size() - 3);
    writer = feed();
    CORBTextureHeader header; // from a pipe
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
    const uint32_t count = 20000, odd = 0x11111111, even = 0x22222222, declared = count * 13;
    const std::vector<uint8_t> bytes =
        FileBytes(ORBStandard8PixelType, 1, 1, 4, count, 1,
                  [&](uint32_t i) { return std::make_pair(i % 2 ? odd : even, i % 10 == 9 ? i - 2 : i); });
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

TEST(MalformedFiles, EveryTruncationAndTheUnsizedImage)
{
    ScratchDir dir;
    const std::vector<uint8_t> bytes = ValidFile();
    const size_t dataStart = 52 + 24 + 18;
    for (size_t length = 0; length <= bytes.size(); ++length)
    {
        SCOPED_TRACE(length);
        const Outcome outcome = LoadBoth(dir, std::vector<uint8_t>(bytes.begin(), bytes.begin() + long(length)));
        // The file loader accepts short pixel data; nothing shorter than that.
        EXPECT_EQ(outcome.file, length > dataStart);
        EXPECT_EQ(outcome.memory, length == bytes.size());
    }

    // The unsized form trusts the image's extent, but still refuses sizes that
    // do not fit before allocating, and what is no texture.
    EXPECT_NE(CORBTexture(static_cast<const void*>(bytes.data())).getDataPtr(), nullptr);
    std::vector<uint8_t> huge = bytes, unknown = bytes;
    PutValue<uint32_t>(huge, 24, 65536);
    PutValue<uint32_t>(huge, 28, 65536);
    PutValue<uint32_t>(unknown, 0, 0x12345678);
    for (const std::vector<uint8_t>& damaged : {huge, unknown})
    {
        const CORBTexture texture(static_cast<const void*>(damaged.data()));
        EXPECT_TRUE(texture.getDataPtr() == nullptr && texture.getDataSize() == 0);
    }
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
        for (int i = 0, changes = 1 + int(random() % 4); i < changes; ++i)
            if (random() % 2)
                bytes[random() % bytes.size()] = uint8_t(random());
            else
                PutValue<uint32_t>(bytes, (random() % (bytes.size() / 4)) * 4, edges[random() % 9]);
        if (random() % 3 == 0)
            bytes.resize(random() % bytes.size());
        LoadBoth(dir, bytes);
    }
}
