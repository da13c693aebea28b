// orbtex as a user runs it: the built program, its output and exit status.

#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::CountLines;
using testsupport::Orbtex;
using testsupport::RunResult;
using testsupport::ScratchDir;

TEST(OrbtexCli, HelpAndUsageErrors)
{
    ScratchDir dir;
    RunResult run = Orbtex(dir, "--help");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("info"), std::string::npos);
    EXPECT_NE(run.out.find("demo"), std::string::npos);

    run = Orbtex(dir, "info --help");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind("usage: orbtex info", 0), 0u);
    EXPECT_EQ(Orbtex(dir, "help demo").out.rfind("usage: orbtex demo", 0), 0u);

    EXPECT_EQ(Orbtex(dir, "").status, 2);
    run = Orbtex(dir, "frobnicate");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("unknown command 'frobnicate'"), std::string::npos);
    EXPECT_EQ(Orbtex(dir, "info").status, 2);
    EXPECT_EQ(Orbtex(dir, "info --colour x.orb").status, 2);
    EXPECT_EQ(Orbtex(dir, "demo --out").status, 2);
}

TEST(OrbtexCli, DemoWritesAndVerifiesTheTestCard)
{
    ScratchDir dir;
    const std::string out = dir / "demo out";
    const RunResult run = Orbtex(dir, "demo --out '" + out + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty());
    EXPECT_NE(run.out.find("file reload:    identical"), std::string::npos);
    EXPECT_NE(run.out.find("memory reload:  identical"), std::string::npos);
    EXPECT_NE(run.out.find("byte-identical"), std::string::npos);

    const CORBTexture card((out + "/testcard.orb").c_str());
    ASSERT_NE(card.getDataPtr(), nullptr);
    EXPECT_EQ(card.getWidth(), 256u);
    EXPECT_EQ(card.getHeight(), 256u);
    EXPECT_EQ(card.getPixelType().PixelTypeID, ORBStandard8PixelType);
    // Pixel data start on a 16-byte boundary.
    EXPECT_EQ((52 + card.getMetaDataSize()) % 16, 0u);

    // The card has transparent, opaque and partly transparent pixels, and more than a few colours.
    bool clear = false, opaque = false, partial = false;
    const uint8_t* p = card.getDataPtr();
    for (uint32_t i = 0; i < 256 * 256; ++i)
    {
        clear |= p[i * 4 + 3] == 0;
        opaque |= p[i * 4 + 3] == 255;
        partial |= p[i * 4 + 3] > 0 && p[i * 4 + 3] < 255;
    }
    EXPECT_TRUE(clear && opaque && partial);
}

TEST(OrbtexCli, InfoDescribesFormatAndMetaData)
{
    ScratchDir dir;
    ASSERT_TRUE(testsupport::TextureWithEveryItem().saveFile((dir / "cube.orb").c_str()));

    CORBTexture etc(CORBTextureHeader(ePF_ETC1, 8, 8));
    std::memset(etc.getDataPtr(), 0, etc.getDataSize());
    ASSERT_TRUE(etc.saveFile((dir / "etc.orb").c_str()));

    const RunResult run = Orbtex(dir, "info '" + (dir / "cube.orb") + "' '" + (dir / "etc.orb") + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    for (const char* expected :
         {"size:           32 x 16 x 1", "MIP levels:     2", "array members:  3", "faces:          6",
          "pixel format:   r5g6b5", "channel type:   UnsignedShortNorm", "colour space:   sRGB",
          "premultiplied:  yes", "cube-map order \"XxYyZz\"", "bump map, scale 2.5, order \"xyz\"",
          "border 1 x 2 x 3", "orientation x left, y up, z in", "0x4F4D4544 \"DEMO\", key 9, 5 bytes",
          "metadata:       5 items", "pixel format:   ETC1"})
        EXPECT_NE(run.out.find(expected), std::string::npos) << expected << "\n" << run.out;
}

TEST(OrbtexCli, InfoReportsEachBadFileOnOneLine)
{
    ScratchDir dir;
    CORBTexture good(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    std::memset(good.getDataPtr(), 0, good.getDataSize());
    ASSERT_TRUE(good.saveFile((dir / "good.orb").c_str()));
    testsupport::WriteBytes(dir / "garbage.orb", std::vector<uint8_t>(100, 0x33));
    std::vector<uint8_t> truncated = testsupport::ReadBytes(dir / "good.orb");
    truncated.resize(30);
    testsupport::WriteBytes(dir / "truncated.orb", truncated);

    // A header claiming 64K x 64K pixels, and a file whose first item is empty.
    std::vector<uint8_t> huge = testsupport::ReadBytes(dir / "good.orb");
    testsupport::PutValue<uint32_t>(huge, 24, 65536);
    testsupport::PutValue<uint32_t>(huge, 28, 65536);
    testsupport::WriteBytes(dir / "huge.orb", huge);
    std::vector<uint8_t> empty = testsupport::ReadBytes(dir / "good.orb");
    testsupport::PutValue<uint32_t>(empty, 48, 12);
    const uint32_t item[3] = {0x45454545, 4, 0};
    empty.insert(empty.begin() + 52, reinterpret_cast<const uint8_t*>(item), reinterpret_cast<const uint8_t*>(item) + 12);
    testsupport::WriteBytes(dir / "empty-item.orb", empty);

    const RunResult run = Orbtex(dir, "info '" + (dir / "missing.orb") + "' '" + (dir / "good.orb") + "' '" +
                                          (dir / "garbage.orb") + "' '" + (dir / "truncated.orb") + "' '" +
                                          (dir / "huge.orb") + "' '" + (dir / "empty-item.orb") + "'");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(CountLines(run.err), 5) << run.err;
    EXPECT_NE(run.err.find("huge.orb: texture too large"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("empty-item.orb: empty metadata item (fourCC 0x45454545, key 4)"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("missing.orb: cannot open file: No such file or directory"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("garbage.orb: not an .orb texture"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("truncated.orb: truncated header"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("good.orb"), std::string::npos);
}

namespace
{

// A native file of an rgba8 texture of the given size holding 'dataBytes' bytes of pixel data.
std::vector<uint8_t> NativeFile(uint32_t width, uint32_t height, size_t dataBytes)
{
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    record.width = width;
    record.height = height;
    std::vector<uint8_t> bytes(sizeof record + dataBytes, 0x5A);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

} // namespace

// info reads headers only: a header declaring 4 GiB over a 56-byte file is
// answered at once, and data shorter than declared are an error unless allowed.
TEST(OrbtexCli, InfoRefusesShortPixelDataUnlessAllowed)
{
    ScratchDir dir;
    testsupport::WriteBytes(dir / "vast.orb", NativeFile(65535, 16384, 4));
    testsupport::WriteBytes(dir / "short.orb", NativeFile(2, 2, 13));
    testsupport::WriteBytes(dir / "whole.orb", NativeFile(2, 2, 16));
    const std::string files = "'" + (dir / "vast.orb") + "' '" + (dir / "short.orb") + "' '" + (dir / "whole.orb") + "'";

    RunResult run = Orbtex(dir, "info " + files);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + (dir / "vast.orb") + ": pixel data short by 4294901756 bytes\n" + "orbtex: " +
                           (dir / "short.orb") + ": pixel data short by 3 bytes\n");
    EXPECT_EQ(run.out.find("vast.orb"), std::string::npos);
    EXPECT_NE(run.out.find("whole.orb"), std::string::npos);

    run = Orbtex(dir, "info --allow-short " + files);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty()) << run.err;
    EXPECT_NE(run.out.find("size:           65535 x 16384 x 1"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("data size:      4294901760 bytes\n  metadata:       0 items, 0 bytes\n"
                           "  short data:     4294901756 bytes of pixel data missing (read as zeros)\n"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("short data:     3 bytes"), std::string::npos) << run.out;
    // Only the short files carry the line.
    size_t lines = 0;
    for (size_t at = run.out.find("short data:"); at != std::string::npos; at = run.out.find("short data:", at + 1))
        ++lines;
    EXPECT_EQ(lines, 2u);
}

// Files with an older header are read; one whose legacy format has no
// meaning is refused with the container named.
TEST(OrbtexCli, LegacyFilesAreRead)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 8, 4, 1, 2, 1, 6,
                                          eColourSpaceLinear, eVarUnsignedShortNorm));
    std::memset(texture.getDataPtr(), 7, texture.getDataSize());
    const std::string path = dir / "legacy.orb";
    ASSERT_TRUE(texture.saveFileLegacyORB(path.c_str(), eLegacyApi1));
    RunResult run = Orbtex(dir, "info '" + path + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("size:           4 x 8 x 1"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("faces:          6"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("pixel format:   r5g6b5"), std::string::npos) << run.out;

    for (const uint32_t word : {52u, 44u})
    {
        std::vector<uint8_t> bytes(word + 16, 0);
        const uint32_t header[5] = {word, 2, 2, 0, 14};
        std::memcpy(bytes.data(), header, sizeof header);
        const std::string unknown = dir / ("legacy" + std::to_string(word) + ".orb");
        testsupport::WriteBytes(unknown, bytes);
        const std::string expected = "orbtex: " + unknown + ": legacy orb (version " + (word == 52 ? "2" : "1") +
                                     "): no pixel format for legacy format 14\n";
        for (const std::string& command :
             {"info '" + unknown + "'", "convert '" + unknown + "' '" + (dir / "out.orb") + "'"})
        {
            run = Orbtex(dir, command);
            EXPECT_EQ(run.status, 1) << command;
            EXPECT_EQ(run.err, expected) << command;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));
}
