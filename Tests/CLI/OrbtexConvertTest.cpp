// orbtex convert and formats as a user runs them.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image_write.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::CountLines;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;

namespace
{

// An 8x4 rgba8 texture of distinct pixels, alpha included.
CORBTexture Pattern()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 37 + 11);
    return texture;
}

std::vector<uint8_t> Bytes(const CORBTexture& texture, uint32_t size)
{
    return std::vector<uint8_t>(texture.getDataPtr(), texture.getDataPtr() + size);
}

// Files in the directory, the run's own output files excepted.
std::vector<std::string> Listing(const ScratchDir& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    {
        const std::string name = entry.path().filename().string();
        if (name != "stdout" && name != "stderr")
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}


void AppendBigEndian(std::vector<uint8_t>& bytes, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(uint8_t(value >> shift));
}

uint32_t Crc32(const uint8_t* data, size_t size)
{
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i)
    {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void AppendChunk(std::vector<uint8_t>& png, const char* type, const std::vector<uint8_t>& data)
{
    AppendBigEndian(png, uint32_t(data.size()));
    std::vector<uint8_t> body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    png.insert(png.end(), body.begin(), body.end());
    AppendBigEndian(png, Crc32(body.data(), body.size()));
}

// A 16-bit RGBA PNG of one row, its image data in one stored deflate block.
std::vector<uint8_t> Png16(const std::vector<uint16_t>& rgba)
{
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    AppendBigEndian(header, uint32_t(rgba.size() / 4));
    AppendBigEndian(header, 1);
    header.insert(header.end(), {16, 6, 0, 0, 0});
    AppendChunk(png, "IHDR", header);

    std::vector<uint8_t> raw = {0}; // filter type of the row
    for (uint16_t value : rgba)
        raw.insert(raw.end(), {uint8_t(value >> 8), uint8_t(value)});
    uint32_t a = 1, b = 0;
    for (uint8_t byte : raw)
    {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    const uint16_t length = uint16_t(raw.size());
    std::vector<uint8_t> z = {0x78, 0x01, 0x01, uint8_t(length), uint8_t(length >> 8), uint8_t(~length),
                              uint8_t(~length >> 8)};
    z.insert(z.end(), raw.begin(), raw.end());
    AppendBigEndian(z, b << 16 | a);
    AppendChunk(png, "IDAT", z);
    AppendChunk(png, "IEND", {});
    return png;
}

// A PNG of signature, IHDR and IEND only: enough for its size to be read.
std::vector<uint8_t> PngHeader(uint32_t width, uint32_t height, uint8_t bitDepth)
{
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    AppendBigEndian(header, width);
    AppendBigEndian(header, height);
    header.insert(header.end(), {bitDepth, 6, 0, 0, 0});
    AppendChunk(png, "IHDR", header);
    AppendChunk(png, "IEND", {});
    return png;
}

// A 24-bit BMP header without pixels.
std::vector<uint8_t> BmpHeader(uint32_t width, uint32_t height)
{
    std::vector<uint8_t> bmp = {'B', 'M'};
    for (const uint32_t value : {54u, 0u, 54u, 40u, width, height})
        testsupport::AppendValue(bmp, value);
    testsupport::AppendValue<uint16_t>(bmp, 1);
    testsupport::AppendValue<uint16_t>(bmp, 24);
    for (int i = 0; i < 6; ++i)
        testsupport::AppendValue<uint32_t>(bmp, 0);
    return bmp;
}

} // namespace

TEST(OrbtexConvert, OrbToPngToOrbKeepsEveryByte)
{
    ScratchDir dir;
    const CORBTexture original = Pattern();
    ASSERT_TRUE(original.saveFile((dir / "in.orb").c_str()));

    RunResult run = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "out.png"));
    ASSERT_EQ(run.status, 0) << run.err;
    run = Orbtex(dir, "convert " + Quote(dir / "out.png") + " " + Quote(dir / "back.orb"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty());

    const CORBTexture back((dir / "back.orb").c_str());
    ASSERT_NE(back.getDataPtr(), nullptr);
    EXPECT_EQ(back.getPixelType(), PixelType(ORBStandard8PixelType));
    EXPECT_EQ(back.getChannelType(), eVarUnsignedByteNorm);
    EXPECT_EQ(back.getColourSpace(), eColourSpaceLinear);
    EXPECT_EQ(back.getWidth(), 8u);
    EXPECT_EQ(back.getHeight(), 4u);
    EXPECT_EQ(Bytes(back, 128), Bytes(original, 128));
    EXPECT_EQ(Listing(dir), (std::vector<std::string>{"back.orb", "in.orb", "out.png"}));
}

TEST(OrbtexConvert, ImagesLoadWithTheirChannelsExpanded)
{
    ScratchDir dir;
    const uint8_t grey[2] = {10, 200};
    const uint8_t greyAlpha[4] = {10, 20, 200, 30};
    ASSERT_TRUE(stbi_write_png((dir / "grey.png").c_str(), 2, 1, 1, grey, 2));
    ASSERT_TRUE(stbi_write_tga((dir / "ga.tga").c_str(), 2, 1, 2, greyAlpha));
    const float hdr[6] = {0.5f, 2.0f, 8.0f, 1.0f, 0.25f, 0.125f};
    ASSERT_TRUE(stbi_write_hdr((dir / "light.hdr").c_str(), 2, 1, 3, hdr));

    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "grey.png") + " " + Quote(dir / "grey.orb")).status, 0);
    const CORBTexture g((dir / "grey.orb").c_str());
    EXPECT_EQ(Bytes(g, 8), (std::vector<uint8_t>{10, 10, 10, 255, 200, 200, 200, 255}));

    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "ga.tga") + " " + Quote(dir / "ga.orb") +
                              " --input-colour-space srgb")
                  .status,
              0);
    const CORBTexture ga((dir / "ga.orb").c_str());
    EXPECT_EQ(Bytes(ga, 8), (std::vector<uint8_t>{10, 10, 10, 20, 200, 200, 200, 30}));
    EXPECT_EQ(ga.getColourSpace(), eColourSpaceSRGB);

    testsupport::WriteBytes(dir / "deep.png", Png16({1, 2, 3, 65535, 40000, 50000, 60000, 0}));
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "deep.png") + " " + Quote(dir / "deep.orb")).status, 0);
    const CORBTexture deep((dir / "deep.orb").c_str());
    EXPECT_EQ(deep.getPixelType(), PixelType(ORBStandard16PixelType));
    EXPECT_EQ(deep.getChannelType(), eVarUnsignedShortNorm);
    uint16_t deepPixels[8];
    std::memcpy(deepPixels, deep.getDataPtr(), sizeof(deepPixels));
    EXPECT_EQ(std::vector<uint16_t>(deepPixels, deepPixels + 8),
              (std::vector<uint16_t>{1, 2, 3, 65535, 40000, 50000, 60000, 0}));

    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "light.hdr") + " " + Quote(dir / "light.orb")).status, 0);
    const CORBTexture light((dir / "light.orb").c_str());
    EXPECT_EQ(light.getPixelType(), PixelType(ORBStandard32PixelType));
    EXPECT_EQ(light.getChannelType(), eVarSignedFloat);
    float pixels[8];
    std::memcpy(pixels, light.getDataPtr(), sizeof(pixels));
    EXPECT_FLOAT_EQ(pixels[0], 0.5f);
    EXPECT_FLOAT_EQ(pixels[2], 8.0f);
    EXPECT_FLOAT_EQ(pixels[3], 1.0f);
    EXPECT_FLOAT_EQ(pixels[4], 1.0f);
}

TEST(OrbtexConvert, FormatTypeAndColourSpaceOptions)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 1, 2));
    const uint8_t pixels[8] = {255, 128, 0, 77, 128, 128, 128, 255};
    std::memcpy(texture.getDataPtr(), pixels, 8);
    ASSERT_TRUE(texture.saveFile((dir / "in.orb").c_str()));

    // Named formats any case; layouts by letters and widths; type by default.
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "565.orb") + " --format R5G6B5")
                  .status,
              0);
    const CORBTexture packed((dir / "565.orb").c_str());
    EXPECT_EQ(packed.getPixelType(), PixelType('r', 'g', 'b', 0, 5, 6, 5, 0));
    EXPECT_EQ(packed.getChannelType(), eVarUnsignedByteNorm);
    EXPECT_EQ(Bytes(packed, 2), (std::vector<uint8_t>{0x00, 0xFC}));

    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "f.orb") +
                              " --format r32g32b32a32 --type SignedFloat")
                  .status,
              0);
    const CORBTexture floats((dir / "f.orb").c_str());
    EXPECT_EQ(floats.getChannelType(), eVarSignedFloat);
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "16.orb") +
                              " --format r16g16b16a16")
                  .status,
              0);
    EXPECT_EQ(CORBTexture((dir / "16.orb").c_str()).getChannelType(), eVarUnsignedShortNorm);
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "small.orb") +
                              " --format r11g11b10")
                  .status,
              0);
    EXPECT_EQ(CORBTexture((dir / "small.orb").c_str()).getChannelType(), eVarUnsignedFloat);

    // The target colour space applies the curve: 128 linear is 188 in sRGB.
    ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "s.orb") + " --colour-space srgb")
                  .status,
              0);
    const CORBTexture srgb((dir / "s.orb").c_str());
    EXPECT_EQ(srgb.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(Bytes(srgb, 8), (std::vector<uint8_t>{255, 188, 0, 77, 188, 188, 188, 255}));
}

TEST(OrbtexConvert, AllSurfacesWritesOneImageEach)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 2, 1, 2));
    std::memset(texture.getDataPtr(), 99, texture.getDataSize());
    ASSERT_TRUE(texture.saveFile((dir / "cube.orb").c_str()));
    const RunResult run =
        Orbtex(dir, "convert " + Quote(dir / "cube.orb") + " " + Quote(dir / "face.bmp") + " --all-surfaces");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Listing(dir), (std::vector<std::string>{"cube.orb", "face-level0-member0-face0.bmp",
                                                      "face-level0-member0-face1.bmp", "face-level1-member0-face0.bmp",
                                                      "face-level1-member0-face1.bmp"}));
}

TEST(OrbtexConvert, ErrorsNameTheFileAndLeaveNoOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    const std::string in = Quote(dir / "in.orb");
    const std::string out = Quote(dir / "out.orb");

    struct Case
    {
        std::string arguments;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {"convert " + in + " " + out + " --format r9q", 1, "in.orb: unknown format 'r9q'"},
        {"convert " + in + " " + out + " --format r7g8", 1, "15 bits per pixel is not a whole number of bytes"},
        {"convert " + in + " " + out + " --type huge", 1, "in.orb: unknown channel type 'huge'"},
        {"convert " + in + " " + out + " --format BC4", 1, "in.orb: no encoder for BC4"},
        {"convert " + Quote(dir / "missing.png") + " " + out, 1, "missing.png: cannot open file: No such file or directory"},
        {"convert " + Quote(dir / "missing.orb") + " " + out, 1, "missing.orb: cannot open file: No such file or directory"},
        {"convert " + in + " " + Quote(dir / "nowhere/out.png"), 1, "nowhere/out.png: cannot write file"},
        {"convert " + in + " " + Quote(dir / "out.xyz"), 1, "out.xyz: cannot write '.xyz' files"},
        {"convert " + in + " " + out + " --colour-space purple", 2, "--colour-space is linear or srgb"},
        {"convert " + in + " " + out + " --quality", 2, "--quality needs a value"},
        {"convert " + in, 2, "needs an input and an output file"},
        {"convert " + in + " " + out + " --bogus", 2, "unknown option '--bogus'"},
    };
    for (const Case& c : cases)
    {
        const RunResult run = Orbtex(dir, c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.arguments << "\n" << run.err;
        if (c.status == 1)
        {
            EXPECT_EQ(CountLines(run.err), 1) << run.err;
        }
        EXPECT_EQ(Listing(dir), std::vector<std::string>{"in.orb"}) << c.arguments;
    }

    // A PNG that is not one.
    testsupport::WriteBytes(dir / "fake.png", std::vector<uint8_t>(64, 7));
    const RunResult run = Orbtex(dir, "convert " + Quote(dir / "fake.png") + " " + out);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("fake.png: not a readable image"), std::string::npos) << run.err;
}

TEST(OrbtexConvert, FormatsListsEveryName)
{
    ScratchDir dir;
    const RunResult run = Orbtex(dir, "formats");
    ASSERT_EQ(run.status, 0);
    for (const char* name : {"ORBTC_4bpp_RGB", "ETC1", "EAC_RG11", "ASTC_6x6x6", "r5g6b5", "ubn", "UnsignedByteNorm",
                             "sf ", "SignedFloat", "uf ", "linear, srgb"})
        EXPECT_NE(run.out.find(name), std::string::npos) << name;
    EXPECT_EQ(run.out.find("NumCompressed"), std::string::npos);
}

// A file may repeat a metadata key; the loader keeps the later item but
// counts both in the header, and the output must still describe what it holds.
TEST(OrbtexConvert, RepeatedMetaDataKeyGivesAFileThatLoads)
{
    ScratchDir dir;
    std::vector<uint8_t> bytes;
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    record.width = record.height = 2;
    record.metaDataSize = (12 + 4) + (12 + 8);
    testsupport::AppendValue(bytes, record);
    for (const uint32_t size : {4u, 8u})
    {
        for (const uint32_t word : {0x54534554u, 7u, size})
            testsupport::AppendValue(bytes, word);
        for (uint32_t i = 0; i < size; ++i)
            bytes.push_back(uint8_t(size * 16 + i));
    }
    for (uint8_t i = 0; i < 16; ++i)
        bytes.push_back(uint8_t(200 + i));
    testsupport::WriteBytes(dir / "twice.orb", bytes);

    const RunResult run = Orbtex(dir, "convert " + Quote(dir / "twice.orb") + " " + Quote(dir / "out.orb"));
    ASSERT_EQ(run.status, 0) << run.err;
    const CORBTexture out((dir / "out.orb").c_str());
    ASSERT_NE(out.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(out.getMetaDataSize(), 12u + 8u);
    const MetaDataBlock item = out.getMetaData(0x54534554u, 7);
    ASSERT_EQ(item.dataSize, 8u);
    EXPECT_EQ(std::vector<uint8_t>(item.data, item.data + 8), (std::vector<uint8_t>{128, 129, 130, 131, 132, 133, 134, 135}));
    EXPECT_EQ(Bytes(out, 16), std::vector<uint8_t>(bytes.end() - 16, bytes.end()));
}

TEST(OrbtexConvert, ShortInputNeedsAllowShort)
{
    ScratchDir dir;
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    bytes = testsupport::ReadBytes(dir / "in.orb");
    bytes.resize(bytes.size() - 5);
    testsupport::WriteBytes(dir / "short.orb", bytes);

    RunResult run = Orbtex(dir, "convert " + Quote(dir / "short.orb") + " " + Quote(dir / "out.orb"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + (dir / "short.orb") + ": pixel data short by 5 bytes\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));

    run = Orbtex(dir, "convert " + Quote(dir / "short.orb") + " " + Quote(dir / "out.orb") + " --allow-short");
    ASSERT_EQ(run.status, 0) << run.err;
    const CORBTexture out((dir / "out.orb").c_str());
    ASSERT_NE(out.getDataPtr(), nullptr);
    const std::vector<uint8_t> pixels = Bytes(out, 128);
    EXPECT_EQ(std::vector<uint8_t>(pixels.begin(), pixels.end() - 5), Bytes(Pattern(), 123));
    EXPECT_EQ(std::vector<uint8_t>(pixels.end() - 5, pixels.end()), std::vector<uint8_t>(5, 0));
}

// Qualities follow the codecs built: ORBTC takes 0 and 1, the ETC family up
// to 5.
TEST(OrbtexConvert, UnsupportedQualitiesAreNamed)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    const std::string in = Quote(dir / "in.orb");
    const std::string out = Quote(dir / "out.orb");
    struct Case
    {
        const char* format;
        int quality;
        const char* refusal; // null: converts
    };
    const Case cases[] = {
        {"ETC1", 1, nullptr},
        {"ETC1", 5, nullptr},
        {"ETC1", 6, "quality 6 of ETC1 is not supported by this version (0 to 5 are)"},
        {"ETC2_RGBA", 6, "quality 6 of ETC2_RGBA is not supported by this version (0 to 5 are)"},
        {"ORBTC_4bpp_RGB", 1, nullptr},
        {"ORBTC_4bpp_RGB", 2, nullptr},
        {"ORBTC_2bpp_RGBA", 200, nullptr},
        {"ETC2_RGB_A1", 5, nullptr},
        {"ETC2_RGB_A1", 6, "quality 6 of ETC2_RGB_A1 is not supported by this version (0 to 5 are)"},
        {"r5g6b5", 9, nullptr},
        {"YUY2", 9, nullptr}, // the small fixed-rate codecs take any quality
        {"RGB9E5", 9, nullptr},
        {"BW1bpp", 0, nullptr},
    };
    for (const Case& c : cases)
    {
        const std::string arguments =
            "convert " + in + " " + out + " --format " + c.format + " --quality " + std::to_string(c.quality);
        const RunResult run = Orbtex(dir, arguments);
        if (!c.refusal)
        {
            EXPECT_EQ(run.status, 0) << arguments << "\n" << run.err;
            continue;
        }
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.err, "orbtex: " + (dir / "in.orb") + ": " + c.refusal + "\n");
    }
}

// ORBTC of the first generation holds sides that are multiples of its least
// size or below it, and BW1bpp and the pixel-pair formats widths; ORBTCII
// any side. Both ORBTC generations stop at 4096.
TEST(OrbtexConvert, SizeRulesAreNamedBeforeConverting)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    const std::string in = Quote(dir / "in.orb");
    const std::string rule = " needs sides that are multiples of ";
    const std::string fit = " at most 4096 (--canvas or --resize can fit it)";
    struct Case
    {
        const char* options;
        std::string refusal; // empty: converts
    };
    const Case cases[] = {
        {"--format ORBTC_4bpp_RGB --canvas 12x12",
         "the image is 12x12, but ORBTC_4bpp_RGB" + rule + "8 across and 8 down (or less than that) and" + fit},
        {"--format ORBTC_2bpp_RGBA --canvas 24x8",
         "the image is 24x8, but ORBTC_2bpp_RGBA" + rule + "16 across and 8 down (or less than that) and" + fit},
        {"--format ORBTC_4bpp_RGB --canvas 4x12",
         "the image is 4x12, but ORBTC_4bpp_RGB" + rule + "8 across and 8 down (or less than that) and" + fit},
        {"--format ORBTC_4bpp_RGBA --canvas 16x24 --mipmaps",
         "MIP level 1 is 8x12, but ORBTC_4bpp_RGBA" + rule + "8 across and 8 down (or less than that) and" + fit},
        {"--format ORBTC_4bpp_RGB --canvas 4104x8",
         "the image is 4104x8, but ORBTC_4bpp_RGB" + rule + "8 across and 8 down (or less than that) and" + fit},
        {"--format ORBTCII_2bpp --canvas 4100x4", "the image is 4100x4, but ORBTCII_2bpp needs sides" + fit},
        {"--format ORBTC_2bpp_RGB --canvas 12x8", ""},
        {"--format ORBTC_4bpp_RGB --canvas 16x24", ""},
        {"--format ORBTC_4bpp_RGB --canvas 32x32 --mipmaps", ""},
        {"--format ORBTCII_4bpp --canvas 12x12 --mipmaps", ""},
        {"--format BW1bpp --canvas 36x20",
         "the image is 36x20, but BW1bpp needs widths that are multiples of 8 (or less than that) "
         "(--canvas or --resize can fit it)"},
        {"--format YUY2 --canvas 12x4 --mipmaps",
         "MIP level 2 is 3x1, but YUY2 needs widths that are multiples of 2 (or less than that) "
         "(--canvas or --resize can fit it)"},
        {"--format BW1bpp --canvas 32x3 --mipmaps", ""},
        {"--format RGBG8888 --canvas 2x5", ""},
    };
    for (const Case& c : cases)
    {
        const std::string arguments = "convert " + in + " " + Quote(dir / "out.orb") + " " + c.options;
        const RunResult run = Orbtex(dir, arguments);
        if (c.refusal.empty())
        {
            EXPECT_EQ(run.status, 0) << arguments << "\n" << run.err;
            std::filesystem::remove(dir / "out.orb");
            continue;
        }
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.err, "orbtex: " + (dir / "in.orb") + ": " + c.refusal + "\n");
        EXPECT_EQ(Listing(dir), std::vector<std::string>{"in.orb"}) << arguments;
    }
}

TEST(OrbtexConvert, ImagesAboveTheLimitsAreNamed)
{
    ScratchDir dir;
    const std::string side = "above the decoder's limit of 16777216 pixels a side";
    struct Case
    {
        const char* name;
        std::vector<uint8_t> bytes;
        std::string message;
    };
    const Case cases[] = {
        {"wide.png", PngHeader(20000000, 1, 8), "image too large: 20000000 x 1 pixels, " + side},
        {"tall.png", PngHeader(1, 16777217, 8), "image too large: 1 x 16777217 pixels, " + side},
        {"wide.bmp", BmpHeader(16777217, 1), "image too large: 16777217 x 1 pixels, " + side},
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
    for (const Case& c : cases)
    {
        testsupport::WriteBytes(dir / c.name, c.bytes);
        const RunResult run = Orbtex(dir, "convert " + Quote(dir / c.name) + " " + Quote(dir / "out.orb"));
        EXPECT_EQ(run.status, 1) << c.name;
        EXPECT_EQ(run.err.rfind("orbtex: " + (dir / c.name) + ": " + c.message, 0), 0u) << run.err;
        EXPECT_EQ(CountLines(run.err), 1) << run.err;
    }
}

TEST(OrbtexConvert, OptimiserProgressOnlyOnATerminal)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 32, 32));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t((i * 7) ^ (i >> 5));
    ASSERT_TRUE(texture.saveFile((dir / "in.orb").c_str()));
    const std::string convert = std::string("'") + ORBTEX_PROGRAM + "' convert " + Quote(dir / "in.orb") + " " +
                                Quote(dir / "out.orb") + " --format ORBTC_4bpp_RGB --quality 3";

    // Standard error to a file: nothing but errors.
    const RunResult piped = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "out.orb") +
                                            " --format ORBTC_4bpp_RGB --quality 3");
    EXPECT_EQ(piped.status, 0);
    EXPECT_EQ(piped.err, "");

    // On a terminal (script gives the program one): one line, redrawn.
    auto onTerminal = [&](const std::string& extra) {
        const std::string command = "script -qec \"" + convert + extra + "\" /dev/null >" + Quote(dir / "tty") +
                                    " 2>&1 </dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return testsupport::Slurp(dir / "tty");
    };
    const std::string shown = onTerminal("");
    EXPECT_NE(shown.find("in.orb: surface 1 of 1 (32x32), pass 4 of 4,"), std::string::npos) << shown;
    EXPECT_EQ(shown.find('\n'), std::string::npos) << shown; // redrawn with \r, never scrolled
    EXPECT_EQ(onTerminal(" --quiet").find("pass"), std::string::npos);
}
