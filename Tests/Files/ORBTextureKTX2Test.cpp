// KTX 2.0 files: round trips of every family with and without Zstandard, the
// layout checked by an independent reader (ktx-parse, through Node.js), files
// that reader writes, hostile files, and the writer's refusals. Blocks passed
// on through .ktx2, .ktx and .dds by orbtex are checked in Tests/CLI.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Model/ORBTextureFormatFacts.h"
#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

typedef std::vector<uint8_t> Bytes;

CORBTexture Make(uint64_t format, uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t levels = 1,
                 uint32_t members = 1, uint32_t faces = 1, EORBTColourSpace space = eColourSpaceLinear,
                 EORBTVariableType type = eVarUnsignedByteNorm)
{
    CORBTextureHeader header(format, height, width, depth, levels, members, faces, space, type);
    return CORBTexture(header, Sequence(header.getDataSize(), 13, uint8_t(format)).data());
}

// One of each family and shape the writer handles: levels, arrays, cube maps
// and their arrays, a volume, sRGB, signed types, and metadata items.
std::vector<CORBTexture> Samples()
{
    const EORBTColourSpace L = eColourSpaceLinear, S = eColourSpaceSRGB;
    std::vector<CORBTexture> all = {Make(ORBStandard8PixelType, 16, 8, 1, 5, 1, 1, S),
                                    Make(ePF_ETC1, 16, 16, 1, 5),
                                    Make(ePF_ETC2_RGBA, 8, 8, 1, 1, 3),
                                    Make(ePF_EAC_RG11, 8, 4, 1, 1, 1, 1, L, eVarSignedByteNorm),
                                    Make(ePF_ASTC_6x5, 30, 20, 1, 3, 1, 1, S),
                                    Make(ePF_DXT1, 8, 8, 1, 1, 1, 6),
                                    Make(ePF_DXT2, 8, 8, 1, 1, 2, 6),
                                    Make(ePF_EAC_R11, 4, 4, 1, 1, 1, 1, L, eVarSignedFloat),
                                    Make(ePF_ORBTC_2bpp_RGB, 32, 16, 1, 2),
                                    Make(ePF_ORBTCII_4bpp, 16, 16, 1, 1, 1, 1, S),
                                    Make(ePF_RGB9E5, 5, 3, 1, 3),
                                    Make(ChannelLayout("rgb", 5, 6, 5), 7, 3, 1, 1, 1, 1, L, eVarUnsignedShortNorm),
                                    Make(ChannelLayout("bgr", 10, 11, 11), 3, 3, 1, 1, 1, 1, L, eVarUnsignedFloat),
                                    Make(ChannelLayout("rgb", 16, 16, 16), 3, 5, 4, 3, 1, 1, L, eVarSignedFloat),
                                    Make(ChannelLayout("rg", 32, 32), 2, 2, 1, 2, 1, 1, L, eVarSignedInteger)};
    all.back().setOrientation(EORBTOrientation(eOrientLeft | eOrientUp));
    all.back().setBumpMap(2.5f, "xyz");
    return all;
}

uint64_t Word64(const Bytes& bytes, size_t at)
{
    uint64_t value;
    std::memcpy(&value, bytes.data() + at, 8);
    return value;
}

// The output of the ktx-parse script run with 'arguments'.
std::string Node(const std::string& arguments)
{
    std::string output;
    const std::string command = std::string("node ") + ORBTEX_KTX2_SCRIPT + " " + ORBTEX_NPM_DIR + " " + arguments;
    if (FILE* pipe = popen(command.c_str(), "r"))
    {
        char chunk[4096];
        for (size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;)
            output.append(chunk, got);
        pclose(pipe);
    }
    return output;
}

uint32_t Fnv(const uint8_t* bytes, size_t size)
{
    uint32_t h = 0x811c9dc5u;
    for (size_t i = 0; i < size; ++i)
        h = (h ^ bytes[i]) * 0x01000193u;
    return h;
}

} // namespace

// Every sample comes back exactly, with and without Zstandard; levels are
// stored smallest first and, uncompressed, on the alignment of their blocks.
TEST(KTX2Files, RoundTripsEveryFamily)
{
    for (const CORBTexture& texture : Samples())
        for (int level : {0, 3})
        {
            SCOPED_TRACE(ORBTGetPixelFormatName(texture.getPixelType().PixelTypeID).c_str() + std::to_string(level));
            Bytes file;
            ASSERT_TRUE(texture.saveToMemoryKTX2(file, level)) << ORBTGetLastError();
            CORBTexture loaded;
            ASSERT_TRUE(loaded.loadFromMemory(file.data(), file.size(), "x.ktx2")) << ORBTGetLastError();
            EXPECT_TRUE(loaded.isEqual(texture));
            const uint32_t levels = texture.getNumMIPLevels();
            for (uint32_t mip = 0; mip + 1 < levels; ++mip)
                EXPECT_GT(Word64(file, 80 + 24 * mip), Word64(file, 80 + 24 * (mip + 1)));
            const uint64_t texel = texture.getPixelType().isNamedFormat()
                                       ? 4
                                       : ORBTGetBitsPerPixel(texture.getPixelType().PixelTypeID) / 8;
            for (uint32_t mip = 0; mip < levels && level == 0; ++mip)
                EXPECT_TRUE(Word64(file, 80 + 24 * mip) % 4 == 0 && Word64(file, 80 + 24 * mip) % texel == 0);
        }
    // saveFile by extension writes the same bytes as the uncompressed memory image.
    ScratchDir dir;
    const CORBTexture etc = Make(ePF_ETC2_RGB, 8, 8, 1, 4);
    ASSERT_TRUE(etc.saveFile((dir / "a.KTX2").c_str()));
    Bytes image;
    ASSERT_TRUE(etc.saveToMemoryKTX2(image, 0));
    EXPECT_EQ(ReadBytes(dir / "a.KTX2"), image);
    EXPECT_TRUE(CORBTexture((dir / "a.KTX2").c_str()).isEqual(etc));
}

TEST(KTX2Files, WriterRefusesWhatItCannotHold)
{
    Bytes file;
    EXPECT_FALSE(Make(ChannelLayout("l", 8), 2, 2).saveToMemoryKTX2(file, 0));
    EXPECT_STREQ(ORBTGetLastError(), "l8 (UnsignedByteNorm) has no Vulkan format for KTX 2");
    EXPECT_FALSE(Make(ePF_ASTC_3x3x3, 3, 3, 3).saveToMemory(file, "x.ktx2"));
    EXPECT_STREQ(ORBTGetLastError(), "ASTC_3x3x3 (UnsignedByteNorm) has no Vulkan format for KTX 2");
    EXPECT_FALSE(Make(ePF_ETC2_RGB, 4, 4).saveToMemoryKTX2(file, 23));
    EXPECT_STREQ(ORBTGetLastError(), "Zstandard level 23 is outside 0 to 22");
}

// Hand-altered files are refused with a reason, before anything large is allocated.
TEST(KTX2Files, RefusesHostileFiles)
{
    ScratchDir dir;
    const CORBTexture texture = Make(ORBStandard8PixelType, 8, 8, 1, 4);
    Bytes plain, packed;
    ASSERT_TRUE(texture.saveToMemoryKTX2(plain, 0));
    ASSERT_TRUE(texture.saveToMemoryKTX2(packed, 1));
    auto with = [](Bytes bytes, size_t at, auto value) {
        PutValue(bytes, at, value);
        return bytes;
    };
    Bytes bad = plain;
    bad[5] = '1';
    ExpectRefused(dir, "a.ktx2", bad, "not a ktx2 file (wrong identifier)");
    ExpectRefused(dir, "b.ktx2", with(plain, 12, 0u), "ktx2: no pixel format for vkFormat 0");
    ExpectRefused(dir, "c.ktx2", with(packed, 44, 1u),
                  "ktx2 header: supercompression scheme 1 (BasisLZ) is not supported");
    ExpectRefused(dir, "d.ktx2", with(packed, 44, 3u),
                  "ktx2 header: supercompression scheme 3 (zlib) is not supported");
    ExpectRefused(dir, "e.ktx2", with(plain, 36, 5u), "ktx2 header: faceCount 5: only 1 or 6 faces are allowed");
    ExpectRefused(dir, "f.ktx2", with(plain, 80, uint64_t(plain.size() - 100)),
                  "ktx2 header: level 0 (offset 608, 256 bytes) runs past the end of the file");
    ExpectRefused(dir, "g.ktx2", with(plain, 80 + 24, Word64(plain, 80) + 8), "ktx2 header: levels 0 and 1 overlap");
    ExpectRefused(dir, "h.ktx2", with(plain, 60, 4000u),
                  "ktx2 header: key/value data (4000 bytes at 268) run past the end of the file");
    ExpectRefused(dir, "i.ktx2", Bytes(plain.begin(), plain.end() - 1),
                  "ktx2 header: level 0 (offset 452, 256 bytes) runs past the end of the file");
    // A level that inflates past, or short of, its declared size.
    Bytes wrong = packed;
    const uint64_t level3 = Word64(packed, 80 + 24 * 3);
    PutValue(wrong, 80 + 24 * 3 + 16, uint64_t(8));
    ExpectRefused(dir, "j.ktx2", wrong, "ktx2 header: level 3 declares 8 uncompressed bytes, not 4");
    wrong = packed;
    wrong[level3 + 4]++;
    CORBTexture loaded;
    EXPECT_FALSE(loaded.loadFromMemory(wrong.data(), wrong.size(), "k.ktx2"));
    EXPECT_EQ(
        std::string(ORBTGetLastError()).rfind("ktx2 header: level 3: Zstandard data do not inflate to 4 bytes", 0), 0u)
        << ORBTGetLastError();
    // Zstandard bombs: 16384 x 16384 declared in a file of a few hundred bytes
    // is refused before allocation; a frame that inflates past its level stops there.
    Bytes big;
    ASSERT_TRUE(Make(ORBStandard8PixelType, 16, 16).saveToMemoryKTX2(big, 19));
    Bytes bomb = with(with(with(big, 20, 16384u), 24, 16384u), 80 + 16, uint64_t(1) << 30);
    {
        ScopedLoadLimit limit(1 << 20);
        EXPECT_FALSE(loaded.loadFromMemory(bomb.data(), bomb.size(), "l.ktx2"));
        EXPECT_EQ(std::string(ORBTGetLastError()).rfind("texture needs 10737", 0), 0u) << ORBTGetLastError();
    }
    bomb = with(with(with(big, 20, 8u), 24, 8u), 80 + 16, uint64_t(256));
    EXPECT_FALSE(loaded.loadFromMemory(bomb.data(), bomb.size(), "m.ktx2"));
    EXPECT_STREQ(ORBTGetLastError(),
                 "ktx2 header: level 0: Zstandard data do not inflate to 256 bytes (Destination buffer is too small)");
}

// What ktx-parse reads in our files; and a file it writes loads here.
TEST(KTX2Files, AgreesWithKtxParse)
{
    if (std::system("node --version >/dev/null 2>&1") != 0 ||
        !std::ifstream(std::string(ORBTEX_NPM_DIR) + "/node_modules/ktx-parse/package.json").good())
        GTEST_SKIP() << "Node.js or the npm package ktx-parse is missing (CMake installs it when it configures online)";
    ScratchDir dir;
    std::string files;
    std::vector<CORBTexture> samples = Samples();
    for (size_t i = 0; i < samples.size(); ++i)
    {
        ASSERT_TRUE(samples[i].saveKTX2File((dir / (std::to_string(i) + ".ktx2")).c_str(), i % 2 ? 9 : 0));
        files += " " + dir / (std::to_string(i) + ".ktx2");
    }
    std::string dump = Node("dump" + files);
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = dump.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(dump.substr(at, end - at));
    ASSERT_EQ(lines.size(), samples.size()) << dump;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        const CORBTexture& t = samples[i];
        const std::string& line = lines[i];
        SCOPED_TRACE(line);
        auto has = [&](const std::string& text) { EXPECT_NE(line.find(text), std::string::npos) << text; };
        auto count = [](uint32_t n) { return std::to_string(n == 1 ? 0 : n); };
        has("\"width\":" + std::to_string(t.getWidth(0)) + ",\"height\":" + std::to_string(t.getHeight(0)) +
            ",\"depth\":" + count(t.getDepth(0)) + ",\"layers\":" + count(t.getNumArrayMembers()) +
            ",\"faces\":" + std::to_string(t.getNumFaces()) + ",\"levels\":" + std::to_string(t.getNumMIPLevels()) +
            ",\"scheme\":" + (i % 2 ? "2" : "0"));
        has("\"transfer\":" + std::string(t.getColourSpace() == eColourSpaceSRGB ? "2" : "1"));
        for (uint32_t mip = 0, at = 0; mip < t.getNumMIPLevels(); at += t.getDataSize(int(mip++)))
        {
            const uint32_t size = t.getDataSize(int(mip));
            if (i % 2 == 0)
                has("[" + std::to_string(size) + "," + std::to_string(size) + "," +
                    std::to_string(Fnv(t.getDataPtr() + at, size)) + "]");
            else
                has("," + std::to_string(size) + ",");
        }
        has(std::string("\"KTXorientation\":\"") + (i + 1 == samples.size() ? "lu" : "rd") +
            (t.getDepth(0) > 1 ? "i" : "") + "\"");
        has("\"KTXwriter\":\"ORBTexLib ");
        has("\"ORBTexLibMetaData\":\"bytes:");
    }
    // Values from the published registries.
    const std::pair<size_t, const char*> registry[] = {
        {0, "\"vkFormat\":43,\"typeSize\":1"},
        {0, "\"samples\":[[0,7,0,0,255],[8,7,1,0,255],[16,7,2,0,255],[24,7,31,0,255]]"},
        {1, "\"vkFormat\":147"},
        {3, "\"vkFormat\":156"},
        {4, "\"vkFormat\":164"},
        {4, "\"model\":162,\"primaries\":1,\"transfer\":2,\"flags\":0,\"block\":[5,4,0,0],\"bytesPlane0\":16"},
        {6, "\"flags\":1"},
        {8, "\"vkFormat\":1000054000"},
        {8, "\"model\":164"},
        {9, "\"vkFormat\":1000054007"},
        {11, "\"vkFormat\":4,\"typeSize\":2"},
        {11, "\"samples\":[[11,4,0,0,31],[5,5,1,0,63],[0,4,2,0,31]]"},
        {12, "\"vkFormat\":122,\"typeSize\":4"}};
    for (const auto& [line, text] : registry)
        EXPECT_NE(lines[line].find(text), std::string::npos) << text << "\n" << lines[line];

    ASSERT_EQ(Node("write " + dir / "theirs.ktx2"), "");
    const CORBTexture theirs((dir / "theirs.ktx2").c_str());
    ASSERT_EQ(theirs.getNumMIPLevels(), 3u) << ORBTGetLastError();
    EXPECT_EQ(theirs.getOrientation(eAxisY), eOrientUp);
    const Bytes data = DataOf(theirs);
    for (size_t i = 0, at = 0; i < 3; at += theirs.getDataSize(int(i)), ++i)
        for (size_t b = 0; b < theirs.getDataSize(int(i)); ++b)
            ASSERT_EQ(data[at + b], uint8_t(b * 7 + i)) << "level " << i << " byte " << b;
}
