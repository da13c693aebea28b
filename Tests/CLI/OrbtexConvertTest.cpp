// orbtex convert, its image operations and orbtex compare, as a user runs them.

#include <stb_image_write.h>

#include "ORBTextureUtilities.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// The start of an RGBA PNG of 'depth' bits a channel, its CRC left zero:
// enough for the size, which is refused before any decoder reads on.
std::vector<uint8_t> PngHeader(uint32_t width, uint32_t height, uint8_t depth)
{
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (const uint32_t side : {width, height})
        for (int shift = 24; shift >= 0; shift -= 8)
            png.push_back(uint8_t(side >> shift));
    png.insert(png.end(), {depth, 6, 0, 0, 0, 0, 0, 0, 0});
    return png;
}

// An rgba8 texture whose pixels are numbered 1, 2, ... in every channel.
CORBTexture Numbered(uint32_t width, uint32_t height)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, height, width));
    for (uint32_t i = 0; i < width * height; ++i)
        std::fill_n(texture.getDataPtr() + 4 * i, 4, uint8_t(i + 1));
    return texture;
}

std::vector<uint8_t> Reds(const CORBTexture& texture)
{
    std::vector<uint8_t> reds;
    for (uint32_t i = 0; i < texture.getWidth() * texture.getHeight(); ++i)
        reds.push_back(texture.getDataPtr()[4 * i]);
    return reds;
}

CORBTexture Operated(const ScratchDir& dir, const std::string& options)
{
    return Converted(dir, "in.orb", "out.orb", options);
}

} // namespace

// Images load as rgba8 or r32g32b32a32 sf, linear unless told otherwise, and
// an .orb keeps every byte through a PNG. Named
// formats in any case, layouts by letters and widths, the channel type by
// default or named, and the target colour space's curve (128 linear is 188
// sRGB).
TEST(OrbtexConvert, InputsAndOptionsGiveTheirFormats)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4).saveFile((dir / "pattern.orb").c_str()));
    ASSERT_EQ(Convert(dir, "pattern.orb", "pattern.png").status, 0);
    CORBTexture two(CORBTextureHeader(ORBStandard8PixelType, 1, 2));
    const uint8_t pixels[8] = {255, 128, 0, 77, 128, 128, 128, 255};
    std::memcpy(two.getDataPtr(), pixels, 8);
    ASSERT_TRUE(two.saveFile((dir / "two.orb").c_str()));
    const float hdr[6] = {0.5f, 2.0f, 8.0f, 1.0f, 0.25f, 0.125f};
    ASSERT_TRUE(stbi_write_hdr((dir / "light.hdr").c_str(), 2, 1, 3, hdr));
    std::vector<uint8_t> light;
    for (const float value : {0.5f, 2.0f, 8.0f, 1.0f, 1.0f})
        AppendValue(light, value);

    const PixelType rgba8(ORBStandard8PixelType), rgba16(ORBStandard16PixelType), rgba32(ORBStandard32PixelType);
    // Input, options, and the format, channel type, colour space and first bytes written.
    const std::tuple<const char*, const char*, PixelType, EORBTVariableType, EORBTColourSpace, std::vector<uint8_t>>
        cases[] = {
        {"pattern.png", "", rgba8, eVarUnsignedByteNorm, eColourSpaceLinear, Bytes(Pattern(8, 4))},
        {"pattern.png", "--input-colour-space srgb", rgba8, eVarUnsignedByteNorm, eColourSpaceSRGB, {11, 48}},
        {"light.hdr", "", rgba32, eVarSignedFloat, eColourSpaceLinear, light},
        {"two.orb", "--format R5G6B5", PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm,
         eColourSpaceLinear, {0x00, 0xFC}},
        {"two.orb", "--format r32g32b32a32 --type SignedFloat", rgba32, eVarSignedFloat, eColourSpaceLinear, {}},
        {"two.orb", "--format r16g16b16a16", rgba16, eVarUnsignedShortNorm, eColourSpaceLinear, {}},
        {"two.orb", "--format r11g11b10", PixelType('r', 'g', 'b', 0, 11, 11, 10, 0), eVarUnsignedFloat,
         eColourSpaceLinear, {}},
        {"two.orb", "--colour-space srgb", rgba8, eVarUnsignedByteNorm, eColourSpaceSRGB,
         {255, 188, 0, 77, 188, 188, 188, 255}},
    };
    for (const auto& [input, options, format, type, space, start] : cases)
    {
        SCOPED_TRACE(std::string(input) + " " + options);
        const CORBTexture out = Converted(dir, input, "out.orb", options);
        EXPECT_EQ(out.getPixelType(), format);
        EXPECT_EQ(out.getChannelType(), type);
        EXPECT_EQ(out.getColourSpace(), space);
        EXPECT_EQ(Bytes(out, start.size()), start);
    }
    EXPECT_TRUE(TemporaryFiles(dir).empty());
}

// Each error is one line naming the file and leaves nothing behind, no
// temporary file either when the output cannot replace a directory; usage
// errors, of single files, image operations and batches, exit with 2.
// Qualities follow the codecs built (the ETC family takes 0 to 5, ORBTC and
// the fixed-rate layouts any), and size rules are checked before converting:
// ORBTC of the first generation holds sides that are multiples of its least
// size or below it, BW1bpp and the pixel-pair formats widths, ORBTCII any
// side; both ORBTC generations stop at 4096.
TEST(OrbtexConvert, ErrorsNameTheFileAndLeaveNoOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4).saveFile((dir / "in.orb").c_str()));
    CORBTexture premultiplied = Pattern(2, 2);
    premultiplied.setIsPreMultiplied(true);
    ASSERT_TRUE(premultiplied.saveFile((dir / "pm.orb").c_str()));
    WriteBytes(dir / "fake.png", std::vector<uint8_t>(64, 7));
    WriteBytes(dir / "short.orb", NativeFile(ORBStandard8PixelType, 2, 2, 13));
    for (const char* directory : {"dir.orb", "dir.png", "dir.jpg", "taken.orb"})
        std::filesystem::create_directory(dir / directory);
    WriteBytes(dir / "taken.orb/keep", {1});
    const std::string in = Quote(dir / "in.orb") + " ", out = Quote(dir / "out.orb"), to = in + out + " --format ";
    const std::string op = in + out + " --", batch = in + "-o " + Quote(dir / "out") + " --";
    const std::string rule = " needs sides that are multiples of ";
    const std::string orbtc = rule + "8 across and 8 down (or less than that) and";
    const std::string fit = " at most 4096 (--canvas or --resize can fit it)";
    const std::string widths = " (or less than that) (--canvas or --resize can fit it)";
    const std::string quality = " is not supported by this version (0 to 5 are)";
    const std::tuple<std::string, int, std::string> cases[] = { // arguments, exit status, error
        {to + "r9q", 1, "in.orb: unknown format 'r9q'"},
        {to + "r7g8", 1, "15 bits per pixel is not a whole number of bytes"},
        {in + out + " --type huge", 1, "in.orb: unknown channel type 'huge'"},
        {to + "BC4", 1, "in.orb: no encoder for BC4"},
        {Quote(dir / "missing.png") + " " + out, 1, "missing.png: cannot open file: No such file or directory"},
        {Quote(dir / "missing.orb") + " " + out, 1, "missing.orb: cannot open file: No such file or directory"},
        {Quote(dir / "fake.png") + " " + out, 1, "fake.png: not a readable image"},
        {Quote(dir / "short.orb") + " " + out, 1, "short.orb: pixel data short by 3 bytes\n"},
        {Quote(dir / "dir.orb") + " " + out, 1, "dir.orb: is a directory\n"},
        {Quote(dir / "dir.png") + " " + out, 1, "dir.png: is a directory\n"},
        {Quote(dir / "dir.jpg") + " " + out, 1, "dir.jpg: is a directory\n"},
        {in + Quote(dir / "taken.orb"), 1, "taken.orb: cannot replace file: "},
        {in + Quote(dir / "nowhere/out.png"), 1, "nowhere/out.png: cannot write file"},
        {in + Quote(dir / "out.xyz"), 1, "out.xyz: cannot write '.xyz' files"},
        {to + "ETC1 --quality 6", 1, "in.orb: quality 6 of ETC1" + quality},
        {to + "ORBTC_4bpp_RGB --canvas 12x12", 1, "in.orb: the image is 12x12, but ORBTC_4bpp_RGB" + orbtc + fit},
        {to + "ORBTC_2bpp_RGBA --canvas 24x8", 1,
         "the image is 24x8, but ORBTC_2bpp_RGBA" + rule + "16 across and 8 down (or less than that) and" + fit},
        {to + "ORBTC_4bpp_RGB --canvas 4x12", 1, "the image is 4x12, but ORBTC_4bpp_RGB" + orbtc + fit},
        {to + "ORBTC_4bpp_RGBA --canvas 16x24 --mipmaps", 1, "MIP level 1 is 8x12, but ORBTC_4bpp_RGBA" + orbtc + fit},
        {to + "ORBTC_4bpp_RGB --canvas 4104x8", 1, "the image is 4104x8, but ORBTC_4bpp_RGB" + orbtc + fit},
        {to + "ORBTCII_2bpp --canvas 4100x4", 1, "the image is 4100x4, but ORBTCII_2bpp needs sides" + fit},
        {to + "BW1bpp --canvas 36x20", 1,
         "the image is 36x20, but BW1bpp needs widths that are multiples of 8" + widths},
        {to + "YUY2 --canvas 12x4 --mipmaps", 1,
         "MIP level 2 is 3x1, but YUY2 needs widths that are multiples of 2" + widths},
        {Quote(dir / "pm.orb") + " " + out + " --premultiply", 1,
         "pm.orb: --premultiply: the texture is premultiplied already"},
        {in + out + " --colour-space purple", 2, "--colour-space is linear or srgb"},
        {in + out + " --quality", 2, "--quality needs a value"},
        {in, 2, "needs an input and an output file"},
        {in + out + " --bogus", 2, "unknown option '--bogus'"},
        {op + "resize 0x3", 2, "--resize takes WxH[xD], not '0x3'"},
        {op + "resize 4", 2, "--resize takes WxH[xD], not '4'"},
        {op + "rotate w", 2, "--rotate takes x, y or z, optionally followed by ,ccw, not 'w'"},
        {op + "rotate z,up", 2, "--rotate takes x, y or z, optionally followed by ,ccw, not 'z,up'"},
        {op + "flip", 2, "--flip needs a value"},
        {op + "filter box", 2, "--filter takes nearest, linear or cubic, not 'box'"},
        {op + "normal-map 0", 2, "--normal-map takes a non-zero SCALE and an ORDER of x, y, z and h, not '0'"},
        {op + "normal-map 1,xyq", 2, "--normal-map takes a non-zero SCALE and an ORDER of x, y, z and h, not '1,xyq'"},
        {op + "border 1,2,3,4", 2, "--border takes X[,Y[,Z]], not '1,2,3,4'"},
        {op + "canvas 4x4+1", 2, "--canvas takes WxH[xD][+X+Y[+Z]], not '4x4+1'"},
        {op + "legacy-api 0", 2, "--legacy-api needs a number from 1 to 7, not '0'"},
        {op + "legacy-api 8", 2, "--legacy-api needs a number from 1 to 7, not '8'"},
        {op + "legacy-api x", 2, "--legacy-api needs a number from 1 to 7, not 'x'"},
        {in + Quote(dir / "out.dds") + " --legacy-api 1", 2, "--legacy-api needs a .orb output"},
        {batch + "jobs 0", 2, "--jobs needs a number from 1, not '0'"},
        {batch + "ext jpg", 2, "--ext is orb, dds, ktx, ktx2, astc, h, png, tga or bmp, not 'jpg'"},
        {batch + "ext ktx --legacy-api 2", 2, "--legacy-api needs a .orb output"},
        {in + Quote(dir / "b.orb") + " --jobs 2", 2, "--jobs needs -o DIR"},
    };
    for (const auto& [arguments, status, message] : cases)
    {
        const RunResult run = Orbtex(dir, "convert " + arguments);
        EXPECT_EQ(run.status, status) << arguments;
        EXPECT_NE(run.err.find(message), std::string::npos) << arguments << "\n" << run.err;
        EXPECT_EQ(CountLines(run.err), 1) << run.err;
        EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"dir.jpg", "dir.orb", "dir.png", "fake.png", "in.orb",
                                                               "pm.orb", "short.orb", "taken.orb"}))
            << arguments;
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "taken.orb/keep"));
    std::vector<uint8_t> zeros(16, 0x5A); // short data allowed read as zeros
    std::fill(zeros.end() - 3, zeros.end(), 0);
    EXPECT_EQ(Bytes(Converted(dir, "short.orb", "out.orb", "--allow-short")), zeros);
    for (const char* accepted : {"ETC1 --quality 5", "ORBTC_2bpp_RGBA --quality 200", "DXT5 --quality 9",
                                 "ORBTC_4bpp_RGB --canvas 4096x8 --quality 0", "ORBTC_2bpp_RGB --canvas 12x8",
                                 "ORBTC_4bpp_RGB --canvas 32x32 --mipmaps", "ORBTCII_4bpp --canvas 12x12 --mipmaps",
                                 "BW1bpp --canvas 32x3 --mipmaps", "RGBG8888 --canvas 2x5"})
        EXPECT_EQ(Convert(dir, "in.orb", "out.orb", std::string("--format ") + accepted).err, "") << accepted;
}

TEST(OrbtexConvert, ImagesAboveTheLimitsAreNamed)
{
    ScratchDir dir;
    const std::string side = "above the decoder's limit of 16777216 pixels a side";
    std::vector<uint8_t> bmp = {'B', 'M'}; // 24 bits a pixel, no pixels
    for (const uint32_t value : {54u, 0u, 54u, 40u, 16777217u, 1u, 0x180001u, 0u, 0u, 0u, 0u, 0u, 0u})
        AppendValue(bmp, value);
    const std::tuple<const char*, std::vector<uint8_t>, std::string> cases[] = {
        {"wide.png", PngHeader(20000000, 1, 8), "image too large: 20000000 x 1 pixels, " + side},
        {"tall.png", PngHeader(1, 16777217, 8), "image too large: 1 x 16777217 pixels, " + side},
        {"wide.bmp", bmp, "image too large: 16777217 x 1 pixels, " + side},
        {"square.png", PngHeader(20000, 20000, 8),
         "image too large: 20000 x 20000 pixels need 1600000000 bytes as r8g8b8a8, above the load limit of "
         "1073741824 bytes"},
        // Half the pixels, but two bytes a channel.
        {"deep.png", PngHeader(12000, 12000, 16),
         "image too large: 12000 x 12000 pixels need 1152000000 bytes as r16g16b16a16, above the load limit of "
         "1073741824 bytes"},
        // At the side limit, the missing image data are what fails.
        {"edge.png", PngHeader(16777216, 1, 8), "cannot decode image: "},
    };
    for (const auto& [name, bytes, message] : cases)
    {
        WriteBytes(dir / name, bytes);
        const RunResult run = Convert(dir, name, "out.orb");
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_EQ(run.err.rfind("orbtex: " + (dir / name) + ": " + message, 0), 0u) << run.err;
        EXPECT_EQ(CountLines(run.err), 1) << run.err;
    }
}

// The operations run in a fixed order, on other formats made rgba8 or wider
// and written back; --linear-mips filters sRGB in linear light.
TEST(OrbtexOperations, RunInTheirFixedOrder)
{
    ScratchDir dir;
    ASSERT_TRUE(Numbered(4, 2).saveFile((dir / "in.orb").c_str()));
    // Given last, the rotation still runs before the flip.
    const CORBTexture turned = Operated(dir, "--flip x --rotate z");
    EXPECT_EQ(turned.getWidth(), 2u);
    EXPECT_EQ(Reds(turned), (std::vector<uint8_t>{1, 5, 2, 6, 3, 7, 4, 8}));
    EXPECT_EQ(Reds(Operated(dir, "--canvas 3x3+1-1")), (std::vector<uint8_t>{0, 5, 6, 0, 0, 0, 0, 0, 0}));
    // Border and resize drop levels; the MIP chain comes after them.
    const CORBTexture chain = Operated(dir, "--mipmaps --border 1 --resize 4x4 --filter nearest");
    EXPECT_EQ(chain.getWidth(), 4u);
    EXPECT_EQ(chain.getNumMIPLevels(), 3u);
    uint32_t bx, by, bz;
    chain.getBorder(bx, by, bz);
    EXPECT_EQ(bx, 0u); // the border of 1 on 6 columns rescaled to 4
    const CORBTexture tinted = Operated(dir, "--mipmaps 2 --colour-mips");
    ASSERT_EQ(tinted.getNumMIPLevels(), 2u);
    EXPECT_EQ(tinted.getDataPtr(1)[0], 0); // level 1 is green

    // A compressed input is decoded, operated on and compressed again.
    CORBTexture etc = Numbered(8, 8);
    ASSERT_TRUE(Transcode(etc, PixelType(ePF_ETC1), eVarUnsignedByteNorm, eColourSpaceLinear));
    ASSERT_TRUE(etc.saveFile((dir / "in.orb").c_str()));
    const CORBTexture flipped = Operated(dir, "--flip y --mipmaps");
    EXPECT_EQ(flipped.getPixelType().PixelTypeID, uint64_t(ePF_ETC1));
    EXPECT_EQ(flipped.getNumMIPLevels(), 4u);
    // r5g6b5: a flat height map becomes the up normal (0.5, 0.5, 1).
    CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 2, 2));
    std::fill_n(packed.getDataPtr(), packed.getDataSize(), 0x42);
    ASSERT_TRUE(packed.saveFile((dir / "in.orb").c_str()));
    const CORBTexture normals = Operated(dir, "--normal-map 3");
    EXPECT_EQ(normals.getPixelType(), packed.getPixelType());
    EXPECT_EQ(Bytes(normals, 2), (std::vector<uint8_t>{0x1F, 0x84})); // 16 << 11 | 32 << 5 | 31, little-endian

    // A black and white checker: its mean, linear 0.5, is sRGB 187.5 with
    // --linear-mips, but 127 filtered as stored, as a linear texture is anyway.
    CORBTexture checker(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 1, 1, 1, eColourSpaceSRGB));
    for (uint32_t i = 0; i < 64; ++i)
        checker.getDataPtr()[i] = i % 4 == 3 || (i / 4 + i / 16) % 2 ? 255 : 0;
    ASSERT_TRUE(checker.saveFile((dir / "in.orb").c_str()));
    const CORBTexture linear = Operated(dir, "--linear-mips");
    EXPECT_EQ(linear.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(Bytes(linear, 64), Bytes(checker));
    EXPECT_EQ(std::vector<uint8_t>(linear.getDataPtr(1), linear.getDataPtr(1) + 4),
              (std::vector<uint8_t>{187, 187, 187, 255}));
    EXPECT_EQ(Operated(dir, "--mipmaps").getDataPtr(1)[0], 127);
    checker.setColourSpace(eColourSpaceLinear);
    ASSERT_TRUE(checker.saveFile((dir / "in.orb").c_str()));
    EXPECT_EQ(Operated(dir, "--linear-mips").getDataPtr(1)[0], 127);
}

TEST(OrbtexCompare, MeasuresDifferencesAndRefusesWhatItCannotCompare)
{
    ScratchDir dir;
    // The third pixel is transparent in a: its colour, never seen, is left
    // out of the colour measures (alpha is still measured).
    const uint8_t first[12] = {200, 0, 0, 255, 10, 10, 10, 255, 50, 60, 70, 0},
                  second[12] = {190, 0, 0, 255, 10, 10, 10, 255, 0, 0, 0, 0};
    ASSERT_TRUE(stbi_write_png((dir / "a.png").c_str(), 3, 1, 4, first, 12));
    ASSERT_TRUE(stbi_write_png((dir / "b.png").c_str(), 3, 1, 4, second, 12));
    const RunResult measured = Orbtex(dir, "compare " + Quote(dir / "a.png") + " " + Quote(dir / "b.png") +
                                               " --diff " + Quote(dir / "d.png") + " --factor 2");
    ASSERT_EQ(measured.status, 0) << measured.err;
    // Red: largest 10, mean 5, RMS sqrt(50), deviation of +10 and 0 about 5 is 5.
    for (const char* line : {"compared as r8g8b8a8 ubn", "over the 2 of 3 pixels where",
                              "\nr                    10              5        7.07107              5",
                              "\ng                     0              0              0              0        inf"})
        EXPECT_NE(measured.out.find(line), std::string::npos) << line << "\n" << measured.out;
    // |10 x 2| / 255 -> 20, alpha inverted; the equal pixel is opaque black.
    EXPECT_EQ(Bytes(Converted(dir, "d.png", "d.orb"), 8), (std::vector<uint8_t>{20, 0, 0, 255, 0, 0, 0, 255}));

    ASSERT_TRUE(Numbered(2, 2).saveFile((dir / "a.orb").c_str()));
    ASSERT_TRUE(Numbered(4, 2).saveFile((dir / "b.orb").c_str()));
    const std::string a = Quote(dir / "a.orb") + " ";
    const std::tuple<std::string, int, const char*> cases[] = {
        {a + Quote(dir / "b.orb") + " --diff " + Quote(dir / "e.png"), 1, "b.orb: size 4x2x1 differs from 2x2x1"},
        {a + a + "--mip 1", 1, "a.orb: has no MIP level 1 (it has 1)\n"},
        {a + Quote(dir / "missing.orb"), 1, "missing.orb: cannot open file"},
        {a + a + "--diff-mode sideways", 2, "--diff-mode is colour, tolerance or blend, not 'sideways'"},
        {a + a + "--diff " + Quote(dir / "d.jpg"), 2, "--diff writes .png, .tga, .bmp, .orb, .dds or .ktx, not '.jpg'"},
        {a, 2, "needs two files to compare (or an original and results with --report)"},
    };
    for (const auto& [arguments, status, message] : cases)
    {
        const RunResult run = Orbtex(dir, "compare " + arguments);
        EXPECT_EQ(run.status, status) << arguments;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
    }
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"a.orb", "a.png", "b.orb", "b.png", "d.orb", "d.png"}));

    // Other layouts of 8-bit channels compare as r8g8b8a8; wider types as
    // float, where a tolerance picture marks the equal pixels black.
    ASSERT_EQ(Convert(dir, "a.orb", "rgb.orb", "--format r8g8b8").status, 0);
    const RunResult rgb = Orbtex(dir, "compare " + a + Quote(dir / "rgb.orb"));
    EXPECT_NE(rgb.out.find("compared as r8g8b8a8 ubn"), std::string::npos) << rgb.out;
    ASSERT_EQ(Convert(dir, "a.orb", "w.orb", "--format r16g16b16a16").status, 0);
    const RunResult wide = Orbtex(dir, "compare " + a + Quote(dir / "w.orb") + " --diff-mode tolerance --diff " +
                                           Quote(dir / "t.orb"));
    ASSERT_EQ(wide.status, 0) << wide.err;
    EXPECT_NE(wide.out.find("compared as r32g32b32a32 sf"), std::string::npos);
    EXPECT_EQ(Bytes(CORBTexture((dir / "t.orb").c_str()), 4), (std::vector<uint8_t>{0, 0, 0, 255}));
}
