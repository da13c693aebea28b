// orbtex convert's image operations and orbtex compare, as a user runs them.

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image.h>
#include <stb_image_write.h>

#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;

namespace
{

// An rgba8 texture whose pixels are numbered 1, 2, ... in every channel.
CORBTexture Numbered(uint32_t width, uint32_t height)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, height, width));
    for (uint32_t i = 0; i < width * height; ++i)
        std::fill_n(texture.getDataPtr() + 4 * i, 4, uint8_t(i + 1));
    return texture;
}

std::vector<uint8_t> Reds(const CORBTexture& texture, uint32_t mip = 0)
{
    std::vector<uint8_t> reds;
    const uint8_t* p = texture.getDataPtr(mip);
    for (uint32_t i = 0; i < texture.getWidth(mip) * texture.getHeight(mip); ++i)
        reds.push_back(p[4 * i]);
    return reds;
}

RunResult Convert(const ScratchDir& dir, const std::string& options, const std::string& in = "in.orb",
                  const std::string& out = "out.orb")
{
    return Orbtex(dir, "convert " + Quote(dir / in) + " " + Quote(dir / out) + " " + options);
}

} // namespace

TEST(OrbtexOperations, RunInTheirFixedOrder)
{
    ScratchDir dir;
    ASSERT_TRUE(Numbered(4, 2).saveFile((dir / "in.orb").c_str()));
    // Given last, the rotation still runs before the flip.
    ASSERT_EQ(Convert(dir, "--flip x --rotate z").status, 0);
    const CORBTexture turned((dir / "out.orb").c_str());
    EXPECT_EQ(turned.getWidth(), 2u);
    EXPECT_EQ(Reds(turned), (std::vector<uint8_t>{1, 5, 2, 6, 3, 7, 4, 8}));

    ASSERT_EQ(Convert(dir, "--canvas 3x3+1-1").status, 0);
    EXPECT_EQ(Reds(CORBTexture((dir / "out.orb").c_str())), (std::vector<uint8_t>{0, 5, 6, 0, 0, 0, 0, 0, 0}));

    // Border and resize drop levels; the MIP chain comes after them.
    ASSERT_EQ(Convert(dir, "--mipmaps --border 1 --resize 4x4 --filter nearest").status, 0);
    const CORBTexture chain((dir / "out.orb").c_str());
    EXPECT_EQ(chain.getWidth(), 4u);
    EXPECT_EQ(chain.getNumMIPLevels(), 3u);
    uint32_t bx, by, bz;
    chain.getBorder(bx, by, bz);
    EXPECT_EQ(bx, 0u); // the border of 1 on 6 columns rescaled to 4

    ASSERT_EQ(Convert(dir, "--mipmaps 2 --colour-mips").status, 0);
    const CORBTexture tinted((dir / "out.orb").c_str());
    ASSERT_EQ(tinted.getNumMIPLevels(), 2u);
    EXPECT_EQ(tinted.getDataPtr(1)[0], 0); // level 1 is green
}

// A 4 x 4 black and white checker: its mean is linear 0.5, which is sRGB 187.5
// but 127 when filtered in the stored values.
TEST(OrbtexOperations, LinearMipsFilterSRGBInLinearLight)
{
    ScratchDir dir;
    CORBTexture checker(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB));
    for (uint32_t i = 0; i < 16; ++i)
    {
        std::fill_n(checker.getDataPtr() + 4 * i, 3, uint8_t((i + i / 4) % 2 ? 255 : 0));
        checker.getDataPtr()[4 * i + 3] = 255;
    }
    const std::vector<uint8_t> top(checker.getDataPtr(), checker.getDataPtr() + 64);
    ASSERT_TRUE(checker.saveFile((dir / "in.orb").c_str()));

    ASSERT_EQ(Convert(dir, "--linear-mips").status, 0);
    const CORBTexture linear((dir / "out.orb").c_str());
    ASSERT_EQ(linear.getNumMIPLevels(), 3u);
    EXPECT_EQ(linear.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(linear.getPixelType(), checker.getPixelType());
    EXPECT_EQ(std::vector<uint8_t>(linear.getDataPtr(), linear.getDataPtr() + 64), top);
    for (uint32_t mip : {1u, 2u})
        EXPECT_EQ(std::vector<uint8_t>(linear.getDataPtr(mip), linear.getDataPtr(mip) + 4),
                  (std::vector<uint8_t>{187, 187, 187, 255}));

    ASSERT_EQ(Convert(dir, "--mipmaps").status, 0);
    EXPECT_EQ(CORBTexture((dir / "out.orb").c_str()).getDataPtr(1)[0], 127);

    // A linear texture filters as stored either way.
    checker.setColourSpace(eColourSpaceLinear);
    ASSERT_TRUE(checker.saveFile((dir / "in.orb").c_str()));
    ASSERT_EQ(Convert(dir, "--linear-mips").status, 0);
    EXPECT_EQ(CORBTexture((dir / "out.orb").c_str()).getDataPtr(1)[0], 127);
}

TEST(OrbtexOperations, OtherFormatsAreConvertedAndComeBack)
{
    ScratchDir dir;
    // r5g6b5: a flat height map becomes the up normal, written back as r5g6b5.
    CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 2, 2));
    std::fill_n(packed.getDataPtr(), packed.getDataSize(), 0x42);
    ASSERT_TRUE(packed.saveFile((dir / "in.orb").c_str()));
    ASSERT_EQ(Convert(dir, "--normal-map 3").status, 0);
    const CORBTexture normals((dir / "out.orb").c_str());
    EXPECT_EQ(normals.getPixelType(), packed.getPixelType());
    CORBTexture up(CORBTextureHeader(ORBStandard32PixelType, 1, 1, 1, 1, 1, 1, eColourSpaceLinear, eVarSignedFloat));
    const float upNormal[4] = {0.5f, 0.5f, 1.0f, 1.0f};
    std::memcpy(up.getDataPtr(), upNormal, sizeof upNormal);
    ASSERT_TRUE(Transcode(up, packed.getPixelType(), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::vector<uint8_t>(normals.getDataPtr(), normals.getDataPtr() + 2),
              std::vector<uint8_t>(up.getDataPtr(), up.getDataPtr() + 2));

    // A compressed input is decoded, operated on and compressed again.
    CORBTexture rgba = Numbered(8, 8);
    ASSERT_TRUE(Transcode(rgba, PixelType(ePF_ETC1), eVarUnsignedByteNorm, eColourSpaceLinear));
    ASSERT_TRUE(rgba.saveFile((dir / "in.orb").c_str()));
    ASSERT_EQ(Convert(dir, "--flip y --mipmaps").status, 0);
    const CORBTexture etc((dir / "out.orb").c_str());
    EXPECT_EQ(etc.getPixelType().PixelTypeID, uint64_t(ePF_ETC1));
    EXPECT_EQ(etc.getNumMIPLevels(), 4u);
}

TEST(OrbtexOperations, ErrorsNameTheProblem)
{
    ScratchDir dir;
    CORBTexture premultiplied = Numbered(2, 2);
    premultiplied.setIsPreMultiplied(true);
    ASSERT_TRUE(premultiplied.saveFile((dir / "in.orb").c_str()));
    const RunResult twice = Convert(dir, "--premultiply");
    EXPECT_EQ(twice.status, 1);
    EXPECT_NE(twice.err.find("in.orb: --premultiply: the texture is premultiplied already"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));

    for (const char* bad : {"--resize 0x3", "--resize 4", "--rotate w", "--rotate z,up", "--flip", "--filter box",
                            "--normal-map 0", "--normal-map 1,xyq", "--border 1,2,3,4", "--canvas 4x4+1"})
    {
        const RunResult usage = Convert(dir, bad);
        EXPECT_EQ(usage.status, 2) << bad;
        EXPECT_EQ(testsupport::CountLines(usage.err), 1) << bad;
    }
}

TEST(OrbtexCompare, PrintsTheMeasuresAndWritesTheDifference)
{
    ScratchDir dir;
    // The third pixel is transparent in a: its colour, never seen, is left
    // out of the colour measures (alpha is still measured).
    uint8_t a[3 * 4] = {200, 0, 0, 255, 10, 10, 10, 255, 50, 60, 70, 0},
            b[3 * 4] = {190, 0, 0, 255, 10, 10, 10, 255, 0, 0, 0, 0};
    ASSERT_TRUE(stbi_write_png((dir / "a.png").c_str(), 3, 1, 4, a, 12));
    ASSERT_TRUE(stbi_write_png((dir / "b.png").c_str(), 3, 1, 4, b, 12));
    const RunResult run = Orbtex(dir, "compare " + Quote(dir / "a.png") + " " + Quote(dir / "b.png") + " --diff " +
                                          Quote(dir / "d.png") + " --factor 2");
    ASSERT_EQ(run.status, 0) << run.err;
    // Red: largest 10, mean 5, RMS sqrt(50), deviation of +10 and 0 about 5 is 5.
    EXPECT_NE(run.out.find("compared as r8g8b8a8 ubn"), std::string::npos);
    EXPECT_NE(run.out.find("over the 2 of 3 pixels where"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\nr                    10              5        7.07107              5"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("\ng                     0              0              0              0        inf"),
              std::string::npos)
        << run.out;

    int width = 0, height = 0, channels = 0;
    unsigned char* picture = stbi_load((dir / "d.png").c_str(), &width, &height, &channels, 4);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(width, 3);
    // |10 x 2| / 255 -> 20, alpha inverted; the equal pixel is opaque black.
    EXPECT_EQ(std::vector<uint8_t>(picture, picture + 8), (std::vector<uint8_t>{20, 0, 0, 255, 0, 0, 0, 255}));
    stbi_image_free(picture);
}

TEST(OrbtexCompare, RefusesWhatItCannotCompare)
{
    ScratchDir dir;
    ASSERT_TRUE(Numbered(2, 2).saveFile((dir / "a.orb").c_str()));
    ASSERT_TRUE(Numbered(4, 2).saveFile((dir / "b.orb").c_str()));
    const auto compare = [&](const std::string& second, const std::string& options) {
        return Orbtex(dir, "compare " + Quote(dir / "a.orb") + " " + Quote(dir / second) + " " + options);
    };
    RunResult run = compare("b.orb", "--diff " + Quote(dir / "d.png"));
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("b.orb: size 4x2x1 differs from 2x2x1"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "d.png"));

    run = compare("a.orb", "--mip 1");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("a.orb: has no MIP level 1 (it has 1)"), std::string::npos) << run.err;
    EXPECT_EQ(compare("missing.orb", "").status, 1);
    EXPECT_EQ(compare("a.orb", "--diff-mode sideways").status, 2);
    EXPECT_EQ(compare("a.orb", "--diff " + Quote(dir / "d.jpg")).status, 2);
    EXPECT_EQ(Orbtex(dir, "compare " + Quote(dir / "a.orb")).status, 2);

    // Different types compare as float; a tolerance picture marks the equal pixels black.
    CORBTexture wide = Numbered(2, 2);
    ASSERT_TRUE(Transcode(wide, PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, eColourSpaceLinear));
    ASSERT_TRUE(wide.saveFile((dir / "w.orb").c_str()));
    run = compare("w.orb", "--diff-mode tolerance --diff " + Quote(dir / "t.orb"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("compared as r32g32b32a32 sf"), std::string::npos);
    const CORBTexture tolerance((dir / "t.orb").c_str());
    EXPECT_EQ(std::vector<uint8_t>(tolerance.getDataPtr(), tolerance.getDataPtr() + 4),
              (std::vector<uint8_t>{0, 0, 0, 255}));
}
