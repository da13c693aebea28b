// orbtex convert to and from DXT1 to DXT5, which it serves with the block
// codec itself, surface by surface.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image.h>
#include <stb_image_write.h>

#include "../Support/ForeignReaders.h"
#include "Codecs/DXTCodec.h"
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


std::string Convert(const ScratchDir& dir, const std::string& in, const std::string& out,
                    const std::string& options = "")
{
    return "convert " + Quote(dir / in) + " " + Quote(dir / out) + (options.empty() ? "" : " " + options);
}

void Fill(CORBTexture& texture)
{
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 37 + 11);
}

// sRGB rgba8 of 10x6 with four levels (10x6, 5x3, 2x1, 1x1) and two array
// members: levels of partial blocks and below one block.
CORBTexture Layered()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 6, 10, 1, 4, 2, 1, eColourSpaceSRGB));
    Fill(texture);
    return texture;
}

// A 5x5x3 volume with a second level of 2x2x1.
CORBTexture Volume()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 5, 5, 3, 2));
    Fill(texture);
    return texture;
}

unsigned Selector(uint64_t format) { return unsigned(format - ePF_DXT1) + 1; }

// Runs the codec on every depth slice of every level and member (of one
// face), from 'rgba8' into 'blocks' or back.
void RunCodec(const CORBTexture& blocks, const CORBTexture& rgba8, bool compress)
{
    const unsigned selector = Selector(blocks.getPixelType().PixelTypeID);
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
}

CORBTexture Compressed(const CORBTexture& rgba8, uint64_t format)
{
    CORBTextureHeader header(rgba8.getHeader());
    header.setPixelFormat(format);
    CORBTexture blocks(header);
    RunCodec(blocks, rgba8, true);
    return blocks;
}

CORBTexture Decompressed(const CORBTexture& blocks)
{
    CORBTextureHeader header(blocks.getHeader());
    header.setPixelFormat(ORBStandard8PixelType);
    header.setChannelType(eVarUnsignedByteNorm);
    CORBTexture rgba8(header);
    RunCodec(blocks, rgba8, false);
    return rgba8;
}

std::vector<uint8_t> Bytes(const CORBTexture& texture)
{
    return std::vector<uint8_t>(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
}

// The pixels of a PNG as RGBA bytes.
std::vector<uint8_t> PngRGBA(const std::string& path)
{
    int w = 0, h = 0, channels = 0;
    unsigned char* pixels = stbi_load(path.c_str(), &w, &h, &channels, 4);
    std::vector<uint8_t> rgba;
    if (pixels)
        rgba.assign(pixels, pixels + size_t(w) * h * 4);
    stbi_image_free(pixels);
    return rgba;
}

} // namespace

// Each DXT name gives the codec's own blocks for its selector on every level,
// member and depth slice; the colour space stays and no curve is applied.
TEST(OrbtexDXT, CompressesEverySurfaceAsTheCodec)
{
    ScratchDir dir;
    const CORBTexture inputs[] = {Layered(), Volume()};
    ASSERT_TRUE(inputs[0].saveFile((dir / "layered.orb").c_str()));
    ASSERT_TRUE(inputs[1].saveFile((dir / "volume.orb").c_str()));
    const char* names[] = {"layered.orb", "volume.orb"};
    for (int i = 0; i < 2; ++i)
        for (uint64_t format = ePF_DXT1; format <= ePF_DXT5; ++format)
        {
            const std::string name = "dxt" + std::to_string(Selector(format));
            SCOPED_TRACE(std::string(names[i]) + " " + name);
            const RunResult run = Orbtex(dir, Convert(dir, names[i], "out.orb", "--format " + name));
            ASSERT_EQ(run.status, 0) << run.err;
            const CORBTexture out((dir / "out.orb").c_str());
            ASSERT_NE(out.getDataPtr(), nullptr) << ORBTGetLastError();
            EXPECT_EQ(out.getPixelType(), PixelType(format));
            EXPECT_EQ(out.getColourSpace(), inputs[i].getColourSpace());
            EXPECT_EQ(out.getNumMIPLevels(), inputs[i].getNumMIPLevels());
            EXPECT_EQ(Bytes(out), Bytes(Compressed(inputs[i], format)));
        }
}

// A DXT source is decoded slice by slice, then converted on as any rgba8
// texture would be; from .orb and from .dds alike, and to an image.
TEST(OrbtexDXT, DecodesEverySurfaceThenConverts)
{
    ScratchDir dir;
    CORBTexture source = Layered();
    source.setColourSpace(eColourSpaceLinear);
    const CORBTexture blocks = Compressed(source, ePF_DXT5);
    ASSERT_TRUE(blocks.saveFile((dir / "in.orb").c_str()));
    const CORBTexture volume = Compressed(Volume(), ePF_DXT1);
    ASSERT_TRUE(volume.saveFile((dir / "volume.dds").c_str()));
    const CORBTexture decoded = Decompressed(blocks);

    RunResult run = Orbtex(dir, Convert(dir, "in.orb", "rgba.orb", "--format r8g8b8a8"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Bytes(CORBTexture((dir / "rgba.orb").c_str())), Bytes(decoded));

    run = Orbtex(dir, Convert(dir, "volume.dds", "volume.orb", "--format r8g8b8a8"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Bytes(CORBTexture((dir / "volume.orb").c_str())), Bytes(Decompressed(volume)));

    run = Orbtex(dir, Convert(dir, "in.orb", "565.orb", "--format r5g6b5"));
    ASSERT_EQ(run.status, 0) << run.err;
    CORBTexture expected565(decoded);
    ASSERT_TRUE(Transcode(expected565, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm,
                          eColourSpaceLinear));
    EXPECT_EQ(Bytes(CORBTexture((dir / "565.orb").c_str())), Bytes(expected565));

    // The target defaults to the source's DXT5, whose blocks stay: the image
    // shows level 0 of member 0 as the file decodes. --reencode compresses
    // the decoded pixels again.
    run = Orbtex(dir, Convert(dir, "in.orb", "own.png"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(PngRGBA(dir / "own.png"),
              std::vector<uint8_t>(decoded.getDataPtr(), decoded.getDataPtr() + decoded.getDataSize(0, false)));
    run = Orbtex(dir, Convert(dir, "in.orb", "again.png", "--reencode"));
    ASSERT_EQ(run.status, 0) << run.err;
    const CORBTexture again = Decompressed(Compressed(decoded, ePF_DXT5));
    EXPECT_EQ(PngRGBA(dir / "again.png"),
              std::vector<uint8_t>(again.getDataPtr(), again.getDataPtr() + again.getDataSize(0, false)));
    // A quality asks for the new encoding too.
    ASSERT_EQ(Orbtex(dir, Convert(dir, "in.orb", "quality.png", "--quality 3")).status, 0);
    EXPECT_EQ(PngRGBA(dir / "quality.png"), PngRGBA(dir / "again.png"));
}

// An image written with a DXT target shows the compressed result; --dither
// applies the target's bit depths to the rgba8 pixels before compression, and
// any quality is accepted.
TEST(OrbtexDXT, ImageOutputDitherAndQuality)
{
    ScratchDir dir;
    CORBTexture source(CORBTextureHeader(ORBStandard8PixelType, 7, 9));
    Fill(source);
    ASSERT_TRUE(stbi_write_png((dir / "in.png").c_str(), 9, 7, 4, source.getDataPtr(), 9 * 4));

    RunResult run = Orbtex(dir, Convert(dir, "in.png", "shown.png", "--format BC3 --quality 9"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(PngRGBA(dir / "shown.png"), Bytes(Decompressed(Compressed(source, ePF_DXT5))));

    run = Orbtex(dir, Convert(dir, "in.png", "plain.orb", "--format DXT1"));
    ASSERT_EQ(run.status, 0) << run.err;
    run = Orbtex(dir, Convert(dir, "in.png", "dithered.orb", "--format DXT1 --dither"));
    ASSERT_EQ(run.status, 0) << run.err;
    CORBTexture dithered(source);
    Dither(dithered.getDataPtr(), PixelType(ePF_DXT1), 9, 7, 1);
    const std::vector<uint8_t> expected = Bytes(Compressed(dithered, ePF_DXT1));
    EXPECT_EQ(Bytes(CORBTexture((dir / "dithered.orb").c_str())), expected);
    EXPECT_NE(Bytes(CORBTexture((dir / "plain.orb").c_str())), expected);
}

// BC1, BC2 and BC3 name DXT1, DXT3 and DXT5 in any case; 'formats' shows them
// and marks what convert writes and reads, the DXT path included.
TEST(OrbtexDXT, BCNamesAndFormatsMarks)
{
    ScratchDir dir;
    ASSERT_TRUE(Layered().saveFile((dir / "in.orb").c_str()));
    const std::pair<const char*, uint64_t> aliases[] = {{"bc1", ePF_DXT1}, {"Bc2", ePF_DXT3}, {"BC3", ePF_DXT5}};
    for (const auto& [name, format] : aliases)
    {
        const RunResult run = Orbtex(dir, Convert(dir, "in.orb", "out.orb", std::string("--format ") + name));
        ASSERT_EQ(run.status, 0) << name << "\n" << run.err;
        EXPECT_EQ(CORBTexture((dir / "out.orb").c_str()).getPixelType(), PixelType(format)) << name;
    }

    const RunResult run = Orbtex(dir, "formats");
    ASSERT_EQ(run.status, 0);
    // The last two words of a format's row: its write and read marks.
    const auto marks = [&](const std::string& name) {
        const size_t at = run.out.find("\n  " + name + " ");
        if (at == std::string::npos)
            return std::string("missing");
        std::istringstream row(run.out.substr(at + 1, run.out.find('\n', at + 1) - at - 1));
        const std::vector<std::string> words(std::istream_iterator<std::string>(row), {});
        return words[words.size() - 2] + " " + words.back();
    };
    EXPECT_EQ(marks("DXT1 (BC1)"), "yes yes");
    EXPECT_EQ(marks("DXT2"), "yes yes");
    EXPECT_EQ(marks("DXT3 (BC2)"), "yes yes");
    EXPECT_EQ(marks("DXT5 (BC3)"), "yes yes");
    EXPECT_EQ(marks("BC4"), "- -");
    EXPECT_EQ(marks("BC7"), "- -");
    // Other rows follow the library's answer, whatever codecs it has gained.
    for (uint64_t format : {uint64_t(ePF_ORBTCII_2bpp), uint64_t(ePF_ETC1), uint64_t(ePF_ASTC_4x4)})
    {
        const std::string name = ORBTGetPixelFormatName(format).c_str();
        EXPECT_EQ(marks(name), std::string(CanTranscodeTo(PixelType(format)) ? "yes" : "-") + " " +
                                   (CanTranscodeFrom(PixelType(format)) ? "yes" : "-"))
            << name;
    }
}

// A source without a decoder is refused, and a DXT result that the output
// cannot hold leaves nothing behind.
TEST(OrbtexDXT, RefusalsNameTheFileAndLeaveNoOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Layered().saveFile((dir / "in.orb").c_str()));
    CORBTexture bc4(CORBTextureHeader(ePF_BC4, 4, 4));
    Fill(bc4);
    ASSERT_TRUE(bc4.saveFile((dir / "bc4.orb").c_str()));
    struct Case
    {
        std::string arguments;
        std::string message;
    };
    const Case cases[] = {
        {Convert(dir, "bc4.orb", "out.orb", "--format DXT1"),
         (dir / "bc4.orb") + ": no decoder for BC4 in this version"},
        {Convert(dir, "in.orb", "out.astc", "--format DXT5"),
         (dir / "out.astc") + ": a .astc file holds an ASTC format, not DXT5"},
    };
    for (const Case& c : cases)
    {
        const RunResult run = Orbtex(dir, c.arguments);
        EXPECT_EQ(run.status, 1) << c.arguments;
        EXPECT_EQ(run.err, "orbtex: " + c.message + "\n");
        EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));
        EXPECT_FALSE(std::filesystem::exists(dir / "out.astc"));
        EXPECT_TRUE(testsupport::TemporaryFiles(dir).empty());
    }
}

// Other programs read the DDS files convert writes with DXT formats. Their
// decoders interpolate the four-colour entries in exact thirds, where the
// codec's decoder uses (21 c0 + 11 c1) >> 5 and (11 c0 + 21 c1) >> 5: those
// entries differ by up to 3 in a channel (the largest difference over all
// end-point pairs). Alpha, end points and three-colour entries agree exactly.
TEST(OrbtexDXTInterop, ForeignReadersDecodeWrittenDDS)
{
    const bool pillow = testsupport::HavePillow(), magick = testsupport::HaveImageMagick();
    if (!pillow && !magick)
        GTEST_SKIP() << "neither Pillow (/usr/bin/python3 with python3-pil) nor ImageMagick is installed";
    ScratchDir dir;
    // A 5x3 image with alpha above and below 128, and a four-level 12x8
    // texture (the readers show level 0 only, but must take the header of a
    // chain).
    CORBTexture small(CORBTextureHeader(ORBStandard8PixelType, 3, 5));
    Fill(small);
    ASSERT_TRUE(stbi_write_png((dir / "small.png").c_str(), 5, 3, 4, small.getDataPtr(), 5 * 4));
    CORBTexture chain(CORBTextureHeader(ORBStandard8PixelType, 8, 12, 1, 4));
    Fill(chain);
    ASSERT_TRUE(chain.saveFile((dir / "chain.orb").c_str()));

    for (const char* input : {"small.png", "chain.orb"})
        for (const char* format : {"BC1", "BC2", "BC3"})
        {
            SCOPED_TRACE(std::string(input) + " " + format);
            const RunResult run = Orbtex(dir, Convert(dir, input, "out.dds", std::string("--format ") + format));
            ASSERT_EQ(run.status, 0) << run.err;
            const CORBTexture written((dir / "out.dds").c_str());
            ASSERT_NE(written.getDataPtr(), nullptr) << ORBTGetLastError();
            const CORBTexture decoded = Decompressed(written);
            const std::vector<uint8_t> ours(decoded.getDataPtr(), decoded.getDataPtr() + decoded.getDataSize(0));
            // The tool's image of the file is that file's own decode.
            ASSERT_EQ(Orbtex(dir, Convert(dir, "out.dds", "out.png")).status, 0);
            EXPECT_EQ(PngRGBA(dir / "out.png"), ours);
            for (const auto reader : {pillow ? testsupport::PillowRGBA : nullptr,
                                      magick ? testsupport::MagickRGBA : nullptr})
            {
                if (!reader)
                    continue;
                std::vector<uint8_t> theirs;
                ASSERT_TRUE(reader(dir, dir / "out.dds", theirs, false));
                ASSERT_EQ(theirs.size(), ours.size());
                int worstColour = 0, worstAlpha = 0;
                for (size_t i = 0; i < ours.size(); ++i)
                    (i % 4 == 3 ? worstAlpha : worstColour) =
                        std::max(i % 4 == 3 ? worstAlpha : worstColour, std::abs(int(theirs[i]) - int(ours[i])));
                EXPECT_LE(worstColour, 3);
                EXPECT_EQ(worstAlpha, 0);
            }
        }
}
