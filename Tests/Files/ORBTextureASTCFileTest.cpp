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
using namespace testsupport;

namespace
{

typedef std::vector<uint8_t> Bytes;

// A .astc file: magic 13 AB A1 5C, block size, 24-bit dimensions, then
// 'blocks' blocks of 16 bytes with a recognisable pattern.
Bytes ASTCBytes(uint8_t x, uint8_t y, uint8_t z, uint32_t width, uint32_t height, uint32_t depth, uint32_t blocks)
{
    Bytes bytes = {0x13, 0xAB, 0xA1, 0x5C, x, y, z};
    for (uint32_t value : {width, height, depth})
        for (int i = 0; i < 3; ++i)
            bytes.push_back(uint8_t(value >> (8 * i)));
    const Bytes data = Sequence(blocks * 16, 7, 3);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

Bytes Head(const std::string& path) // the 12 bytes after the magic
{
    const Bytes file = ReadBytes(path);
    return file.size() < 16 ? Bytes() : Bytes(file.begin() + 4, file.begin() + 16);
}

} // namespace

TEST(ASTCFile, LoadsHandMadeFiles)
{
    ScratchDir dir;
    // 7 x 7 at 4 x 4 takes 2 x 2 blocks.
    const Bytes flat = ASTCBytes(4, 4, 1, 7, 7, 1, 4);
    WriteBytes(dir / "flat.astc", flat);
    const CORBTexture texture((dir / "flat.astc").c_str());
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
    EXPECT_EQ(Shape(texture.getFileHeader()), (std::vector<uint32_t>{0, 0, 7, 7, 1, 1, 1, 1}));
    EXPECT_EQ(DataOf(texture), Bytes(flat.begin() + 16, flat.end()));

    // Every byte of the dimensions counts: 0x030201 wide at 12 x 10.
    CORBTextureHeader header;
    WriteBytes(dir / "wide.astc", ASTCBytes(12, 10, 1, 0x030201, 2, 1, 16427));
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "wide.astc").c_str(), header));
    EXPECT_TRUE(header.getPixelType().PixelTypeID == ePF_ASTC_12x10 && header.getWidth() == 0x030201u);

    // Three-dimensional: 6 x 6 x 6 blocks, 7 x 6 x 13 texels, 2 x 1 x 3 blocks.
    Bytes volume = ASTCBytes(6, 6, 6, 7, 6, 13, 6);
    WriteBytes(dir / "volume.ASTC", volume);
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "volume.ASTC").c_str(), header));
    EXPECT_TRUE(header.getPixelType().PixelTypeID == ePF_ASTC_6x6x6 && header.getDepth() == 13u);
    EXPECT_EQ(FileInfo(dir / "volume.ASTC"),
              "astc\nmagic: 0x5CA1AB13\nblock size: 6 x 6 x 6\nwidth: 7\nheight: 6\ndepth: 13\n");
    // Bytes after the blocks are not looked at.
    volume.resize(volume.size() + 5, 0xEE);
    CORBTexture fromMemory;
    EXPECT_TRUE(fromMemory.loadFromMemory(volume.data(), volume.size(), "x.astc") && fromMemory.getDataSize() == 96);
}

TEST(ASTCFile, RefusesWhatIsNoASTCFile)
{
    ScratchDir dir;
    Bytes wrongMagic = ASTCBytes(4, 4, 1, 4, 4, 1, 1), cut = ASTCBytes(4, 4, 1, 4, 4, 1, 0);
    wrongMagic[3] = 0x5D;
    cut.resize(15);
    // 10 x 8 at 5 x 4 takes 2 x 2 blocks.
    Bytes oneShort = ASTCBytes(5, 4, 1, 10, 8, 1, 4);
    oneShort.pop_back();
    ExpectRefused(dir, "case.astc", {}, "file too short to be a texture");
    ExpectRefused(dir, "case.astc", cut, "truncated header");
    ExpectRefused(dir, "case.astc", wrongMagic, "not a astc file (wrong identifier)");
    const struct
    {
        uint8_t x, y, z;
        const char* reason;
    } sizes[] = {{4, 4, 2, "out of range"}, {13, 12, 1, "out of range"}, {2, 4, 1, "out of range"},
                 {3, 3, 1, "is no ASTC format"}, {12, 12, 3, "is no ASTC format"}, {3, 3, 4, "is no ASTC format"}};
    for (const auto& b : sizes)
        ExpectRefused(dir, "case.astc", ASTCBytes(b.x, b.y, b.z, 4, 4, 1, 1),
                      ("astc header: block size " + std::to_string(b.x) + " x " + std::to_string(b.y) + " x " +
                       std::to_string(b.z) + " " + b.reason)
                          .c_str());
    // 4 x 4 blocks of 4096 x 4096 texels need 16 MiB; the file holds 32 bytes.
    ExpectRefused(dir, "case.astc", ASTCBytes(4, 4, 1, 4096, 4096, 1, 2), "pixel data short by 16777184 bytes");
    ExpectRefused(dir, "case.astc", oneShort, "pixel data short by 1 bytes");
    ExpectRefused(dir, "case.astc", ASTCBytes(4, 4, 1, 0, 0, 0, 0), "astc header: size 0 x 0 x 0 is zero");
    ExpectRefused(dir, "case.astc", ASTCBytes(6, 6, 1, 7, 0, 1, 0), "astc header: size 7 x 0 x 1 is zero");

    // With its one block a zero size loads (and the header read says why not
    // without it, from a pipe too).
    const Bytes zero = ASTCBytes(4, 4, 1, 0, 3, 1, 1);
    CORBTexture texture;
    EXPECT_TRUE(texture.loadFromMemory(zero.data(), zero.size(), "zero.astc") && texture.getFileHeader().width == 0);
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

TEST(ASTCFile, WriterKeepsTheFirstSurfaceAndRoundTrips)
{
    ScratchDir dir;
    // 10 x 6 at 5 x 4: 2 x 2 blocks in level 0; two levels, six faces.
    CORBTextureHeader header(ePF_ASTC_5x4, 6, 10, 1, 2, 1, 6);
    const Bytes data = Sequence(header.getDataSize(), 13, 5);
    ASSERT_TRUE(CORBTexture(header, data.data()).saveASTCFile((dir / "out.astc").c_str()));
    Bytes expected = {0x13, 0xAB, 0xA1, 0x5C, 5, 4, 1, 10, 0, 0, 6, 0, 0, 1, 0, 0};
    expected.insert(expected.end(), data.begin(), data.begin() + 64);
    EXPECT_EQ(ReadBytes(dir / "out.astc"), expected);
    // Three-dimensional block sizes; dimensions wrap at 24 bits.
    ASSERT_TRUE(CORBTexture(CORBTextureHeader(ePF_ASTC_4x3x3, 0x30201, 4, 2)).saveASTCFile((dir / "v.astc").c_str()));
    EXPECT_EQ(Head(dir / "v.astc"), Bytes({4, 3, 3, 4, 0, 0, 1, 2, 3, 2, 0, 0}));
    EXPECT_EQ(ReadBytes(dir / "v.astc").size(), 16u + 65707u * 16u);
    ASSERT_TRUE(CORBTexture(CORBTextureHeader(ePF_ASTC_12x12, 1, 0x100000C)).saveASTCFile((dir / "w.astc").c_str()));
    EXPECT_EQ(Head(dir / "w.astc"), Bytes({12, 12, 1, 12, 0, 0, 1, 0, 0, 1, 0, 0}));
    EXPECT_EQ(ReadBytes(dir / "w.astc").size(), 16u + 1398103u * 16u);
    // Any other format is written with block sizes of 0, which no reader takes back.
    const CORBTexture rgba(CORBTextureHeader(ORBStandard8PixelType, 2, 2), data.data());
    ASSERT_TRUE(rgba.saveASTCFile((dir / "rgba.astc").c_str()));
    EXPECT_EQ(Head(dir / "rgba.astc"), Bytes({0, 0, 0, 2, 0, 0, 2, 0, 0, 1, 0, 0}));
    EXPECT_EQ(CORBTexture((dir / "rgba.astc").c_str()).getDataPtr(), nullptr);

    // 3x3x3 is the smallest block, 6x6x6 the last ASTC format.
    for (const Bytes& original : {ASTCBytes(8, 6, 1, 17, 13, 1, 3 * 3), ASTCBytes(3, 3, 3, 4, 4, 4, 8),
                                  ASTCBytes(6, 6, 6, 7, 6, 13, 6)})
    {
        WriteBytes(dir / "in.astc", original);
        ASSERT_TRUE(CORBTexture((dir / "in.astc").c_str()).saveASTCFile((dir / "again.astc").c_str()));
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
    EXPECT_TRUE(std::filesystem::exists(dir / "native.astc.orb"));
}
