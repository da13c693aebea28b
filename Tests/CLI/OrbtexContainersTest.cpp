// orbtex convert and info with the foreign and legacy containers.

#include <algorithm>
#include <string>
#include <utility>
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

// A compressed texture converted to its own format keeps its blocks, however
// often it passes through the containers that hold it; the blocks here are
// arbitrary words, which no codec would give back after a new encoding.
TEST(OrbtexContainers, CompressedBlocksSurviveRoundTrips)
{
    ScratchDir dir;
    const std::pair<uint64_t, std::vector<std::string>> cases[] = {
        {ePF_DXT1, {".dds", ".ktx", ".orb"}},
        {ePF_DXT3, {".dds", ".ktx", ".orb"}},
        {ePF_DXT5, {".dds", ".ktx", ".orb"}},
        {ePF_ETC1, {".ktx", "legacy", ".orb"}},
        {ePF_ETC2_RGBA, {".ktx", ".orb"}},
        {ePF_EAC_R11, {".ktx", ".orb"}},
        {ePF_EAC_RG11, {".ktx", ".orb"}},
        {ePF_ORBTC_4bpp_RGBA, {".dds", ".ktx", "legacy", ".orb"}},
        {ePF_ORBTC_2bpp_RGBA, {".dds", ".ktx", "legacy", ".orb"}},
        {ePF_ORBTCII_4bpp, {".ktx", "legacy", ".orb"}},
        {ePF_ORBTCII_2bpp, {".ktx", "legacy", ".orb"}},
        {ePF_ASTC_6x5, {".ktx", ".astc", ".orb"}},
    };
    for (const auto& [format, containers] : cases)
    {
        const std::string name = ORBTGetPixelFormatName(format).c_str();
        SCOPED_TRACE(name);
        // Two levels, but one surface where a .astc file must hold it all.
        const bool astc = format == ePF_ASTC_6x5;
        CORBTexture blocks(CORBTextureHeader(format, 16, 32, 1, astc ? 1 : 2));
        for (uint32_t i = 0; i < blocks.getDataSize(); ++i)
            blocks.getDataPtr()[i] = uint8_t((i * 2654435761u) >> 13);
        std::string previous = dir / "start.orb";
        ASSERT_TRUE(blocks.saveFile(previous.c_str()));
        for (int round = 0; round < 5; ++round)
            for (const std::string& container : containers)
            {
                const bool legacy = container == "legacy";
                const std::string next = dir / ("pass" + std::to_string(round) + (legacy ? "-legacy.orb" : container));
                const RunResult r =
                    Orbtex(dir, "convert " + Quote(previous) + " " + Quote(next) + (legacy ? " --legacy-api 1" : ""));
                ASSERT_EQ(r.status, 0) << next << ": " << r.err;
                ASSERT_TRUE(SamePixels(CORBTexture(next.c_str()), blocks)) << next;
                previous = next;
            }
        // Those that cannot hold the format refuse it rather than lose it.
        for (const std::string container : {".dds", ".ktx", ".astc", "legacy"})
        {
            if (std::find(containers.begin(), containers.end(), container) != containers.end())
                continue;
            const std::string out = container == "legacy" ? Quote(dir / "x.orb") + " --legacy-api 1"
                                                          : Quote(dir / ("x" + container));
            EXPECT_EQ(Orbtex(dir, "convert " + Quote(previous) + " " + out).status, 1) << container;
        }
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
    // DXT has numbers for APIs 3 and 5 that no legacy reader knows.
    r = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "none.orb") +
                        " --legacy-api 5 --format DXT5");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("DXT5 ubn has legacy format number 36 for legacy API 5, which no legacy reader knows"),
              std::string::npos)
        << r.err;
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
