// .astc files: header parsing and its refusals, the writer's bytes, round trips.

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

// A .astc file: magic 13 AB A1 5C, block size, 24-bit dimensions, then
// 'blocks' blocks of 16 bytes with a recognisable pattern.
std::vector<uint8_t> ASTCBytes(uint8_t x, uint8_t y, uint8_t z, uint32_t width, uint32_t height, uint32_t depth,
                               uint32_t blocks)
{
    std::vector<uint8_t> bytes = {0x13, 0xAB, 0xA1, 0x5C, x, y, z};
    for (uint32_t value : {width, height, depth})
        for (int i = 0; i < 3; ++i)
            bytes.push_back(uint8_t(value >> (8 * i)));
    for (uint32_t i = 0; i < blocks * 16; ++i)
        bytes.push_back(uint8_t(i * 7 + 3));
    return bytes;
}

std::vector<uint8_t> Pattern(size_t size, uint8_t seed)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = uint8_t(i * 13 + seed);
    return bytes;
}

} // namespace

TEST(ASTCFile, LoadsHandMadeFiles)
{
    ScratchDir dir;
    // 7 x 7 at 4 x 4 takes 2 x 2 blocks.
    const std::vector<uint8_t> flat = ASTCBytes(4, 4, 1, 7, 7, 1, 4);
    WriteBytes(dir / "flat.astc", flat);
    CORBTexture texture((dir / "flat.astc").c_str());
    ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
    EXPECT_EQ(texture.getWidth(), 7u);
    EXPECT_EQ(texture.getHeight(), 7u);
    EXPECT_EQ(texture.getDepth(), 1u);
    EXPECT_EQ(texture.getNumMIPLevels(), 1u);
    EXPECT_EQ(texture.getNumFaces(), 1u);
    EXPECT_EQ(texture.getNumArrayMembers(), 1u);
    EXPECT_EQ(texture.getColourSpace(), eColourSpaceLinear);
    EXPECT_EQ(texture.getChannelType(), eVarUnsignedByteNorm);
    ASSERT_EQ(texture.getDataSize(), 64u);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), flat.data() + 16, 64), 0);

    // Every byte of the dimensions counts: 0x030201 wide at 12 x 10.
    CORBTextureHeader header;
    WriteBytes(dir / "wide.astc", ASTCBytes(12, 10, 1, 0x030201, 2, 1, 16427));
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "wide.astc").c_str(), header));
    EXPECT_EQ(header.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_12x10));
    EXPECT_EQ(header.getWidth(), 0x030201u);

    // Three-dimensional: 6 x 6 x 6 blocks, 7 x 6 x 13 texels, 2 x 1 x 3 blocks.
    std::vector<uint8_t> volume = ASTCBytes(6, 6, 6, 7, 6, 13, 6);
    WriteBytes(dir / "volume.ASTC", volume);
    CORBTString container;
    CORBTArray<CORBTString> fields;
    ASSERT_TRUE(ORBTReadTextureFileInfo((dir / "volume.ASTC").c_str(), header, container, fields));
    EXPECT_STREQ(container.c_str(), "astc");
    EXPECT_EQ(header.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_6x6x6));
    EXPECT_EQ(header.getDepth(), 13u);
    std::string shown;
    for (unsigned i = 0; i < fields.GetSize(); ++i)
        shown += std::string(fields[i].c_str()) + "\n";
    EXPECT_EQ(shown, "magic: 0x5CA1AB13\nblock size: 6 x 6 x 6\nwidth: 7\nheight: 6\ndepth: 13\n");
    // Bytes after the blocks are not looked at.
    volume.resize(volume.size() + 5, 0xEE);
    CORBTexture fromMemory;
    ASSERT_TRUE(fromMemory.loadFromMemory(volume.data(), volume.size(), "x.astc"));
    EXPECT_EQ(fromMemory.getDataSize(), 96u);
}

TEST(ASTCFile, RefusesWhatIsNoASTCFile)
{
    ScratchDir dir;
    struct Case
    {
        const char* expected;
        std::vector<uint8_t> bytes;
    };
    std::vector<uint8_t> wrongMagic = ASTCBytes(4, 4, 1, 4, 4, 1, 1);
    wrongMagic[3] = 0x5D;
    std::vector<uint8_t> cut = ASTCBytes(4, 4, 1, 4, 4, 1, 0);
    cut.resize(15);
    // 10 x 8 at 5 x 4 takes 2 x 2 blocks.
    std::vector<uint8_t> oneShort = ASTCBytes(5, 4, 1, 10, 8, 1, 4);
    oneShort.pop_back();
    const Case cases[] = {
        {"file too short to be a texture", {}},
        {"truncated header", cut},
        {"not a astc file (wrong identifier)", wrongMagic},
        {"astc header: block size 4 x 4 x 2 out of range", ASTCBytes(4, 4, 2, 4, 4, 2, 1)},
        {"astc header: block size 13 x 12 x 1 out of range", ASTCBytes(13, 12, 1, 4, 4, 1, 1)},
        {"astc header: block size 2 x 4 x 1 out of range", ASTCBytes(2, 4, 1, 4, 4, 1, 1)},
        {"astc header: block size 3 x 3 x 1 is no ASTC format", ASTCBytes(3, 3, 1, 3, 3, 1, 1)},
        {"astc header: block size 12 x 12 x 3 is no ASTC format", ASTCBytes(12, 12, 3, 4, 4, 1, 1)},
        {"astc header: block size 3 x 3 x 4 is no ASTC format", ASTCBytes(3, 3, 4, 4, 4, 1, 1)},
        // 4 x 4 blocks of 4096 x 4096 texels need 16 MiB; the file holds 32 bytes.
        {"pixel data short by 16777184 bytes", ASTCBytes(4, 4, 1, 4096, 4096, 1, 2)},
        {"pixel data short by 1 bytes", oneShort},
        {"astc header: size 0 x 0 x 0 is zero", ASTCBytes(4, 4, 1, 0, 0, 0, 0)},
        {"astc header: size 7 x 0 x 1 is zero", ASTCBytes(6, 6, 1, 7, 0, 1, 0)},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.expected);
        WriteBytes(dir / "case.astc", c.bytes);
        EXPECT_EQ(CORBTexture((dir / "case.astc").c_str()).getDataPtr(), nullptr);
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        CORBTexture texture;
        EXPECT_FALSE(texture.loadFromMemory(c.bytes.data(), c.bytes.size(), "case.astc"));
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        EXPECT_EQ(texture.getWidth(), 1u);
    }
    // With its one block a zero size loads (and the header read says why not
    // without it, from a pipe too).
    const std::vector<uint8_t> zero = ASTCBytes(4, 4, 1, 0, 3, 1, 1);
    CORBTexture texture;
    ASSERT_TRUE(texture.loadFromMemory(zero.data(), zero.size(), "zero.astc"));
    EXPECT_EQ(texture.getFileHeader().width, 0u);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::write(ends[1], zero.data(), 16), 16);
    ::close(ends[1]);
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(ends[0]), dir / "pipe.astc");
    CORBTextureHeader header;
    EXPECT_FALSE(ORBTReadTextureHeader((dir / "pipe.astc").c_str(), header));
    ::close(ends[0]);
    EXPECT_STREQ(ORBTGetLastError(), "astc header: size 0 x 3 x 1 is zero");
}

TEST(ASTCFile, WriterKeepsTheFirstSurface)
{
    ScratchDir dir;
    // 10 x 6 at 5 x 4: 2 x 2 blocks in level 0; two levels, six faces.
    CORBTextureHeader header(ePF_ASTC_5x4, 6, 10, 1, 2, 1, 6);
    const std::vector<uint8_t> data = Pattern(header.getDataSize(), 5);
    const CORBTexture texture(header, data.data());
    ASSERT_TRUE(texture.saveASTCFile((dir / "out.astc").c_str()));
    const std::vector<uint8_t> file = ReadBytes(dir / "out.astc");
    const std::vector<uint8_t> expectedHeader = {0x13, 0xAB, 0xA1, 0x5C, 5, 4, 1, 10, 0, 0, 6, 0, 0, 1, 0, 0};
    ASSERT_EQ(file.size(), 16u + 64u);
    EXPECT_EQ(std::vector<uint8_t>(file.begin(), file.begin() + 16), expectedHeader);
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + 16, file.end()),
              std::vector<uint8_t>(data.begin(), data.begin() + 64));

    // Three-dimensional block sizes.
    const CORBTexture volume(CORBTextureHeader(ePF_ASTC_4x3x3, 0x30201, 4, 2));
    ASSERT_TRUE(volume.saveASTCFile((dir / "volume.astc").c_str()));
    const std::vector<uint8_t> volumeFile = ReadBytes(dir / "volume.astc");
    ASSERT_EQ(volumeFile.size(), 16u + 65707u * 16u);
    EXPECT_EQ(std::vector<uint8_t>(volumeFile.begin() + 4, volumeFile.begin() + 16),
              std::vector<uint8_t>({4, 3, 3, 4, 0, 0, 1, 2, 3, 2, 0, 0}));

    // Dimensions wrap at 24 bits.
    const CORBTexture wide(CORBTextureHeader(ePF_ASTC_12x12, 1, 0x100000C));
    ASSERT_TRUE(wide.saveASTCFile((dir / "wide.astc").c_str()));
    const std::vector<uint8_t> wideFile = ReadBytes(dir / "wide.astc");
    ASSERT_EQ(wideFile.size(), 16u + 1398103u * 16u);
    EXPECT_EQ(std::vector<uint8_t>(wideFile.begin() + 4, wideFile.begin() + 16),
              std::vector<uint8_t>({12, 12, 1, 12, 0, 0, 1, 0, 0, 1, 0, 0}));

    // Any other format is written with block sizes of 0.
    const std::vector<uint8_t> pixels = Pattern(16, 1);
    const CORBTexture rgba(CORBTextureHeader(ORBStandard8PixelType, 2, 2), pixels.data());
    ASSERT_TRUE(rgba.saveASTCFile((dir / "rgba.astc").c_str()));
    std::vector<uint8_t> rgbaExpected = {0x13, 0xAB, 0xA1, 0x5C, 0, 0, 0, 2, 0, 0, 2, 0, 0, 1, 0, 0};
    rgbaExpected.insert(rgbaExpected.end(), pixels.begin(), pixels.end());
    EXPECT_EQ(ReadBytes(dir / "rgba.astc"), rgbaExpected);
    // ... which no reader takes back.
    EXPECT_EQ(CORBTexture((dir / "rgba.astc").c_str()).getDataPtr(), nullptr);
}

TEST(ASTCFile, RoundTripsAndFailures)
{
    ScratchDir dir;
    for (const std::vector<uint8_t>& original :
         {ASTCBytes(8, 6, 1, 17, 13, 1, 3 * 3), ASTCBytes(3, 3, 3, 4, 4, 4, 8), ASTCBytes(10, 10, 1, 1, 1, 1, 1)})
    {
        WriteBytes(dir / "in.astc", original);
        const CORBTexture texture((dir / "in.astc").c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        ASSERT_TRUE(texture.saveASTCFile((dir / "again.astc").c_str()));
        EXPECT_EQ(ReadBytes(dir / "again.astc"), original);
    }

    // A header that describes more than the block holds fails and leaves no file.
    CORBTexture grown(CORBTextureHeader(ePF_ASTC_4x4, 4, 4));
    grown.setWidth(8);
    EXPECT_FALSE(grown.saveASTCFile((dir / "grown.astc").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "grown.astc"));
    EXPECT_FALSE(CORBTexture(CORBTextureHeader(ePF_ASTC_4x4)).saveASTCFile((dir / "no/such/dir.astc").c_str()));
    // saveFile has no .astc writer: the path gains the native extension.
    ASSERT_TRUE(CORBTexture(CORBTextureHeader(ePF_ASTC_4x4)).saveFile((dir / "native.astc").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "native.astc"));
    EXPECT_TRUE(std::filesystem::exists(dir / "native.astc.orb"));
}
