// orbtex convert and info with the foreign and legacy containers, and with
// DXT1 to DXT5, which convert serves with the block codec itself, surface by
// surface.


#include "Codecs/DXTCodec.h"
#include "ORBTextureUtilities.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

bool SamePixels(const CORBTexture& a, const CORBTexture& b)
{
    return a.getDataPtr() && b.getDataPtr() && Bytes(a) == Bytes(b);
}

// sRGB rgba8 of 10x6 with four levels (10x6, 5x3, 2x1, 1x1) and two array
// members: levels of partial blocks and below one block.
CORBTexture Layered() { return Filled(CORBTextureHeader(ORBStandard8PixelType, 6, 10, 1, 4, 2, 1, eColourSpaceSRGB)); }

// A 5x5x3 volume with a second level of 2x2x1.
CORBTexture Volume() { return Filled(CORBTextureHeader(ORBStandard8PixelType, 5, 5, 3, 2)); }

// 'texture' through the codec on every depth slice of every level and
// member (of one face): rgba8 compressed to 'format', or DXT blocks decoded
// to rgba8.
CORBTexture Coded(const CORBTexture& texture, uint64_t format = ORBStandard8PixelType)
{
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(format);
    header.setChannelType(eVarUnsignedByteNorm);
    const CORBTexture result(header);
    const bool compress = format != ORBStandard8PixelType;
    const CORBTexture &blocks = compress ? result : texture, &rgba8 = compress ? texture : result;
    const unsigned selector = unsigned(blocks.getPixelType().PixelTypeID - ePF_DXT1) + 1;
    for (uint32_t member = 0; member < blocks.getNumArrayMembers(); ++member)
        for (uint32_t mip = 0; mip < blocks.getNumMIPLevels(); ++mip)
        {
            const uint32_t w = blocks.getWidth(mip), h = blocks.getHeight(mip);
            for (uint32_t z = 0; z < blocks.getDepth(mip); ++z)
            {
                uint8_t* pixels = rgba8.getDataPtr(mip, member) + z * w * h * 4;
                uint8_t* block = blocks.getDataPtr(mip, member) + z * ((w + 3) / 4) * ((h + 3) / 4) *
                                                                      (selector == 1 ? 8 : 16);
                compress ? DXTCompress(pixels, block, w, h, selector) : DXTDecompress(block, pixels, w, h, selector);
            }
        }
    return result;
}


} // namespace

// A compressed texture converted to its own format keeps its blocks, however
// often it passes through the containers that hold it; the blocks here are
// arbitrary words, which no codec would give back after a new encoding.
TEST(OrbtexContainers, CompressedBlocksSurviveRoundTrips)
{
    ScratchDir dir;
    const std::pair<uint64_t, std::vector<std::string>> cases[] = {
        {ePF_DXT1, {".ktx2", ".dds", ".ktx", ".orb"}},
        {ePF_DXT3, {".ktx2", ".dds", ".ktx", ".orb"}},
        {ePF_DXT5, {".ktx2", ".dds", ".ktx", ".orb"}},
        {ePF_ETC1, {".ktx2", ".ktx", "legacy", ".orb"}},
        {ePF_ETC2_RGBA, {".ktx2", ".ktx", ".orb"}},
        {ePF_EAC_R11, {".ktx2", ".ktx", ".orb"}},
        {ePF_EAC_RG11, {".ktx2", ".ktx", ".orb"}},
        {ePF_ORBTC_4bpp_RGBA, {".ktx2", ".dds", ".ktx", "legacy", ".orb"}},
        {ePF_ORBTC_2bpp_RGBA, {".ktx2", ".dds", ".ktx", "legacy", ".orb"}},
        {ePF_ORBTCII_4bpp, {".ktx2", ".ktx", "legacy", ".orb"}},
        {ePF_ORBTCII_2bpp, {".ktx2", ".ktx", "legacy", ".orb"}},
        {ePF_ASTC_6x5, {".ktx2", ".ktx", ".astc", ".orb"}},
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

// The output's extension picks the container. A legacy file needs a legacy
// number for the format in its API's set, and one that legacy readers know;
// the other containers need a code of theirs.
// A DXT result is refused as any other, and a source without a decoder too.
TEST(OrbtexContainers, WriteWhatTheyCanNameAndRefuseTheRest)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4, 2).saveFile((dir / "in.orb").c_str()));
    ASSERT_TRUE(Filled(CORBTextureHeader(ePF_BC4, 4, 4)).saveFile((dir / "bc4.orb").c_str()));
    for (const char* api : {"1", "7"})
    {
        const CORBTexture old = Converted(dir, "in.orb", "old.orb", std::string("--legacy-api ") + api);
        EXPECT_EQ(ReadBytes(dir / "old.orb").at(0), 52); // a version 2 legacy header starts with its size
        EXPECT_TRUE(SamePixels(old, Pattern(8, 4, 2))) << api;
    }
    // A C header's array is named after the output file, made a valid identifier.
    ASSERT_EQ(Convert(dir, "in.orb", "my-card.v2.h").status, 0);
    const std::string text = Slurp(dir / "my-card.v2.h");
    EXPECT_NE(text.find("A8BIT my_card[] = {\n"), std::string::npos);
    EXPECT_NE(text.find("\n/* Data */\n0x0b,"), std::string::npos);
    const std::tuple<const char*, const char*, const char*, const char*> refusals[] = {
        {"in.orb", "none.orb", "--legacy-api 3",
         "none.orb: r8g8b8a8 ubn has no legacy format number for legacy API 3\n"},
        {"in.orb", "none.orb", "--legacy-api 5 --format DXT5",
         "none.orb: DXT5 ubn has legacy format number 36 for legacy API 5, which no legacy reader knows\n"},
        {"in.orb", "none.astc", "", "none.astc: a .astc file holds an ASTC format, not r8g8b8a8\n"},
        {"in.orb", "none.astc", "--format DXT5", "none.astc: a .astc file holds an ASTC format, not DXT5\n"},
        // r5g5b5a1 in unsigned short norm has neither a Direct3D nor a DXGI code.
        {"in.orb", "none.dds", "--format r5g5b5a1", "has no DDS format code"},
        {"bc4.orb", "none.orb", "--format DXT1", "bc4.orb: no decoder for BC4 in this version\n"},
    };
    for (const auto& [in, out, options, message] : refusals)
    {
        const RunResult run = Convert(dir, in, out, options);
        EXPECT_EQ(run.status, 1) << options;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
        EXPECT_EQ(CountLines(run.err), 1) << run.err;
    }
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"bc4.orb", "in.orb", "my-card.v2.h", "old.orb"}));
}

// KTX 2: --zstd at a level or 19, --ext ktx2 for a batch, the header in
// orbtex info; a layout without a Vulkan code is refused and leaves nothing.
TEST(OrbtexContainers, KTX2WithZstandard)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4, 2).saveFile((dir / "in.orb").c_str()));
    EXPECT_TRUE(SamePixels(Converted(dir, "in.orb", "z.ktx2", "--zstd"), Pattern(8, 4, 2)));
    EXPECT_TRUE(SamePixels(Converted(dir, "in.orb", "z5.ktx2", "--zstd 5"), Pattern(8, 4, 2)));
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " -o " + Quote(dir / "out") + " --ext ktx2 --zstd").status, 0);
    EXPECT_TRUE(SamePixels(CORBTexture((dir / "out/in.ktx2").c_str()), Pattern(8, 4, 2)));
    const RunResult text = Orbtex(dir, "info " + Quote(dir / "z.ktx2"));
    for (const char* line : {"  container:      ktx2\n", "    supercompressionScheme: 2 (Zstandard)\n",
                             "    dfd transferFunction: 1 (linear)\n", "    key: KTXwriter\n    value: ORBTexLib "})
        EXPECT_NE(text.out.find(line), std::string::npos) << line << text.out;
    const RunResult json = Orbtex(dir, "info --json " + Quote(dir / "z5.ktx2"));
    EXPECT_NE(json.out.find("{\"name\":\"supercompressionScheme\",\"value\":\"2 (Zstandard)\"}"), std::string::npos);
    const std::tuple<const char*, const char*, int, const char*> refusals[] = {
        {"none.ktx2", "--format l8", 1, "none.ktx2: cannot write file: l8 (UnsignedByteNorm) has no Vulkan format for KTX 2\n"},
        {"none.ktx2", "--zstd 23", 2, "--zstd needs a level from 1 to 22, not '23'"},
        {"none.ktx", "--zstd", 2, "--zstd needs a .ktx2 output"},
    };
    for (const auto& [out, options, status, message] : refusals)
    {
        const RunResult run = Convert(dir, "in.orb", out, options);
        EXPECT_EQ(run.status, status) << options;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
    }
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"in.orb", "out", "z.ktx2", "z5.ktx2"}));
}

// Each DXT name, BC1 to BC3 too in any case, gives the codec's own blocks
// for its selector on every level, member and depth slice; the colour space
// stays and no curve is applied.
TEST(OrbtexDXT, CompressesEverySurfaceAsTheCodec)
{
    ScratchDir dir;
    const CORBTexture layered = Layered(), volume = Volume();
    ASSERT_TRUE(layered.saveFile((dir / "layered.orb").c_str()));
    ASSERT_TRUE(volume.saveFile((dir / "volume.orb").c_str()));
    const std::tuple<const CORBTexture&, const char*, uint64_t> cases[] = {
        {layered, "bc1", ePF_DXT1}, {layered, "DXT2", ePF_DXT2}, {layered, "Bc2", ePF_DXT3},
        {layered, "dxt4", ePF_DXT4}, {layered, "BC3", ePF_DXT5}, {volume, "DXT1", ePF_DXT1},
        {volume, "DXT5", ePF_DXT5},
    };
    for (const auto& [in, name, format] : cases)
    {
        const CORBTexture out = Converted(dir, &in == &volume ? "volume.orb" : "layered.orb", "out.orb",
                                          std::string("--format ") + name);
        EXPECT_EQ(out.getPixelType(), PixelType(format)) << name;
        EXPECT_EQ(out.getColourSpace(), in.getColourSpace()) << name;
        EXPECT_EQ(Bytes(out), Bytes(Coded(in, format))) << name;
    }
}

// A DXT source is decoded slice by slice, from .orb and from .dds alike, and
// to an image; --dither applies the target's bit depths to the rgba8 pixels
// before compression.
TEST(OrbtexDXT, DecodesEverySurfaceAndDithers)
{
    ScratchDir dir;
    const CORBTexture blocks = Coded(Layered(), ePF_DXT5), volume = Coded(Volume(), ePF_DXT1);
    ASSERT_TRUE(blocks.saveFile((dir / "in.orb").c_str()));
    ASSERT_TRUE(volume.saveFile((dir / "volume.dds").c_str()));
    const CORBTexture decoded = Coded(blocks);
    EXPECT_EQ(Bytes(Converted(dir, "in.orb", "rgba.orb", "--format r8g8b8a8")), Bytes(decoded));
    EXPECT_EQ(Bytes(Converted(dir, "volume.dds", "volume.orb", "--format r8g8b8a8")), Bytes(Coded(volume)));
    // The target defaults to the source's DXT5, whose blocks stay: the image
    // shows level 0 of member 0 as the file decodes. --reencode, or a
    // quality, compresses the decoded pixels again.
    ASSERT_EQ(Convert(dir, "in.orb", "own.png").status, 0);
    EXPECT_EQ(Bytes(Converted(dir, "own.png", "own.orb")), Bytes(decoded, decoded.getDataSize(0, false)));
    const CORBTexture again = Coded(Coded(decoded, ePF_DXT5));
    for (const char* options : {"--reencode", "--quality 3"})
    {
        ASSERT_EQ(Convert(dir, "in.orb", "a.png", options).status, 0);
        EXPECT_EQ(Bytes(Converted(dir, "a.png", "a.orb")), Bytes(again, again.getDataSize(0, false))) << options;
    }

    const CORBTexture picture = Pattern(9, 7);
    ASSERT_TRUE(picture.saveFile((dir / "picture.orb").c_str()));
    CORBTexture dithered(picture);
    Dither(dithered.getDataPtr(), PixelType(ePF_DXT1), 9, 7, 1);
    const std::vector<uint8_t> expected = Bytes(Coded(dithered, ePF_DXT1));
    EXPECT_EQ(Bytes(Converted(dir, "picture.orb", "dithered.orb", "--format DXT1 --dither")), expected);
    EXPECT_NE(Bytes(Converted(dir, "picture.orb", "plain.orb", "--format DXT1")), expected);
}

// The picture of a DXT1, DXT3 or DXT5 file is the codec's own decode, and
// Pillow (when installed) reads the file to within its decoder's rounding.
TEST(OrbtexDXT, ImagesOfDDSFilesAgreeWithPillow)
{
    ScratchDir dir;
    const std::string pillow = "/usr/bin/python3 -c \"import sys; from PIL import Image; open(sys.argv[2], 'wb')"
                               ".write(Image.open(sys.argv[1]).convert('RGBA').tobytes())\" ";
    for (const uint64_t format : {ePF_DXT1, ePF_DXT3, ePF_DXT5})
    {
        const CORBTexture blocks = Coded(Pattern(16, 12), format);
        ASSERT_TRUE(blocks.saveFile((dir / "in.dds").c_str()));
        ASSERT_EQ(Convert(dir, "in.dds", "out.png").status, 0) << format;
        const std::vector<uint8_t> ours = Bytes(Converted(dir, "out.png", "out.orb"));
        ASSERT_EQ(ours, Bytes(Coded(blocks))) << format;
        if (std::system((pillow + Quote(dir / "in.dds") + " " + Quote(dir / "pil") + " 2>/dev/null").c_str()) != 0)
            GTEST_SKIP() << "Pillow (/usr/bin/python3 with python3-pil) cannot read DDS files here";
        const std::vector<uint8_t> theirs = ReadBytes(dir / "pil");
        ASSERT_EQ(theirs.size(), ours.size()) << format;
        for (size_t i = 0; i < ours.size(); ++i)
            ASSERT_LE(std::abs(ours[i] - theirs[i]), 3) << format << " byte " << i;
    }
}
