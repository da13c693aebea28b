// orbtex convert and info with the foreign and legacy containers.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;
using testsupport::Slurp;

namespace
{


// An rgba8 texture of 8x4 pixels with a 4x2 second level, distinct bytes.
CORBTexture Pattern()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, 2));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 37 + 11);
    return texture;
}

bool SamePixels(const CORBTexture& a, const CORBTexture& b)
{
    return a.getDataPtr() && b.getDataPtr() && a.getDataSize() == b.getDataSize() &&
           std::equal(a.getDataPtr(), a.getDataPtr() + a.getDataSize(), b.getDataPtr());
}

} // namespace

// Each container written by extension reads back through orbtex into a native
// file with the same pixels and levels.
TEST(OrbtexContainers, ConvertsThroughEveryTextureContainer)
{
    ScratchDir dir;
    const CORBTexture pattern = Pattern();
    ASSERT_TRUE(pattern.saveFile((dir / "in.orb").c_str()));
    for (const char* extension : {".dds", ".ktx"})
    {
        SCOPED_TRACE(extension);
        const std::string middle = dir / (std::string("mid") + extension);
        RunResult r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(middle));
        ASSERT_EQ(r.status, 0) << r.err;
        r = Orbtex(dir, "convert " + Quote(middle) + " " + Quote(dir / "back.orb"));
        ASSERT_EQ(r.status, 0) << r.err;
        const CORBTexture back((dir / "back.orb").c_str());
        EXPECT_EQ(back.getNumMIPLevels(), 2u);
        EXPECT_TRUE(SamePixels(back, pattern));
    }
}

TEST(OrbtexContainers, LegacyOutputNeedsANumberForItsApi)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));

    // r8g8b8a8 ubn has a legacy number for API 1 but none for API 3.
    RunResult r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "old.orb") + " --legacy-api 1");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<uint8_t> bytes = testsupport::ReadBytes(dir / "old.orb");
    ASSERT_GE(bytes.size(), 4u);
    EXPECT_EQ(bytes[0], 52); // a version 2 legacy header starts with its size
    EXPECT_TRUE(SamePixels(CORBTexture((dir / "old.orb").c_str()), Pattern()));

    r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "none.orb") + " --legacy-api 3");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("no legacy format number for legacy API 3"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "none.orb"));

    for (const char* bad : {"0", "8", "x"})
    {
        r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "o.orb") + " --legacy-api " + bad);
        EXPECT_EQ(r.status, 2) << bad;
    }
    r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "o.dds") + " --legacy-api 1");
    EXPECT_EQ(r.status, 2);
}

TEST(OrbtexContainers, RefusesFormatsAContainerCannotName)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    RunResult r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "x.astc"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("a .astc file holds an ASTC format, not r8g8b8a8"), std::string::npos) << r.err;
    // r5g5b5a1 in unsigned short norm has neither a Direct3D nor a DXGI code.
    r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "x.dds") + " --format r5g5b5a1");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("has no DDS format code"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "x.dds"));
    EXPECT_FALSE(std::filesystem::exists(dir / "x.astc"));
}

// The C array is named after the output file, made a valid identifier.
TEST(OrbtexContainers, WritesACHeaderNamedAfterTheOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    const RunResult r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "my-card.v2.h"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string text = Slurp(dir / "my-card.v2.h");
    EXPECT_NE(text.find("A8BIT my_card[] = {\n"), std::string::npos);
    EXPECT_NE(text.find("\n/* Data */\n0x0b,"), std::string::npos);
}

TEST(OrbtexContainers, InfoNamesTheContainerAndItsFields)
{
    ScratchDir dir;
    const CORBTexture pattern = Pattern();
    ASSERT_TRUE(pattern.saveFile((dir / "t.dds").c_str()));
    ASSERT_TRUE(pattern.saveFile((dir / "t.ktx").c_str()));
    ASSERT_TRUE(pattern.saveFileLegacyORB((dir / "t.orb").c_str(), eLegacyApi1));
    RunResult r = Orbtex(dir, "info " + Quote(dir / "t.dds") + " " + Quote(dir / "t.ktx") + " " + Quote(dir / "t.orb"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("  container:      dds"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  container:      ktx"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  container:      legacy orb (version 2)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("    numberOfMipmapLevels: 2"), std::string::npos) << r.out;

    // A damaged file is named with its first problem.
    std::vector<uint8_t> bytes = testsupport::ReadBytes(dir / "t.dds");
    bytes[4] = 100; // header size field
    testsupport::WriteBytes(dir / "bad.dds", bytes);
    r = Orbtex(dir, "info " + Quote(dir / "bad.dds"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(testsupport::CountLines(r.err), 1);
    EXPECT_NE(r.err.find("bad.dds: "), std::string::npos) << r.err;
}
