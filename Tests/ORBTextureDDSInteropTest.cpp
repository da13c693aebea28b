// DDS files against other programs: Pillow and ImageMagick read what this
// library writes with the same pixels; nvcompress writes DXT files that this
// library reads with the right header. A missing program skips its test.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "ORBTexture.h"
#include "Support/ForeignReaders.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::AppendValue;
using testsupport::HaveImageMagick;
using testsupport::HavePillow;
using testsupport::kConvert;
using testsupport::LogText;
using testsupport::MagickRGBA;
using testsupport::PillowRGBA;
using testsupport::ReadBytes;
using testsupport::RunCommand;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

const char* const kNVCompress = "/usr/bin/nvcompress";

struct Sample
{
    const char* name;
    PixelType layout;
    EORBTVariableType type;
};

// Packed layouts whose masks the file states: argb 8.8.8.8, rgb 8.8.8 and l 8.
const Sample kSamples[] = {
    {"argb8888", PixelType('a', 'r', 'g', 'b', 8, 8, 8, 8), eVarUnsignedIntegerNorm},
    {"rgb888", PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), eVarUnsignedIntegerNorm},
    {"l8", PixelType('l', 0, 0, 0, 8, 0, 0, 0), eVarUnsignedByteNorm},
};

constexpr uint32_t kWidth = 7, kHeight = 5;

// A texture of distinct pixels and the RGBA a reader should see.
CORBTexture SampleTexture(const Sample& sample, std::vector<uint8_t>& rgba)
{
    CORBTexture texture(CORBTextureHeader(sample.layout.PixelTypeID, kHeight, kWidth, 1, 1, 1, 1,
                                          eColourSpaceLinear, sample.type),
                        nullptr);
    const uint32_t bytesPerPixel = texture.getBitsPerPixel() / 8;
    uint8_t* data = texture.getDataPtr();
    rgba.clear();
    for (uint32_t i = 0; i < kWidth * kHeight; ++i)
    {
        const uint8_t r = uint8_t(i * 37 + 5), g = uint8_t(i * 11 + 90), b = uint8_t(255 - i * 7),
                      a = uint8_t(i * 53 + 17);
        // Channels packed into a little-endian word, the first one highest.
        uint32_t word = 0;
        if (bytesPerPixel == 4)
            word = uint32_t(a) << 24 | uint32_t(r) << 16 | uint32_t(g) << 8 | b;
        else if (bytesPerPixel == 3)
            word = uint32_t(r) << 16 | uint32_t(g) << 8 | b;
        else
            word = r;
        for (uint32_t k = 0; k < bytesPerPixel; ++k)
            data[i * bytesPerPixel + k] = uint8_t(word >> (8 * k));
        if (bytesPerPixel == 4)
            rgba.insert(rgba.end(), {r, g, b, a});
        else if (bytesPerPixel == 3)
            rgba.insert(rgba.end(), {r, g, b, 255});
        else
            rgba.insert(rgba.end(), {r, r, r, 255});
    }
    return texture;
}

// An uncompressed 32-bit TGA, top row first.
std::vector<uint8_t> TGA(uint32_t width, uint32_t height)
{
    std::vector<uint8_t> bytes = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    AppendValue(bytes, uint16_t(width));
    AppendValue(bytes, uint16_t(height));
    bytes.push_back(32);
    bytes.push_back(0x28); // 8 alpha bits, top-left origin
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            bytes.insert(bytes.end(), {uint8_t(x * 16), uint8_t(y * 32), uint8_t((x ^ y) * 20), uint8_t(255 - x * 8)});
    return bytes;
}

} // namespace

// Every sample written by the library reads back through 'reader' as the
// RGBA pixels it holds. An alpha-only file (whose FourCC field holds "DX10"
// without its flag, as every masked format's) is no format either reader
// knows, with or without that field; one that reads it must see its alpha.
static void ExpectReaderSeesSamples(
    bool (*reader)(const ScratchDir&, const std::string&, std::vector<uint8_t>&, bool))
{
    ScratchDir dir;
    for (const Sample& sample : kSamples)
    {
        SCOPED_TRACE(sample.name);
        std::vector<uint8_t> expected, seen;
        const CORBTexture texture = SampleTexture(sample, expected);
        const std::string path = dir / (std::string(sample.name) + ".dds");
        ASSERT_TRUE(texture.saveFile(path.c_str()));
        ASSERT_TRUE(reader(dir, path, seen, false));
        EXPECT_EQ(seen, expected);
    }
    CORBTexture a8(CORBTextureHeader(PixelType('a', 0, 0, 0, 8, 0, 0, 0).PixelTypeID, kHeight, kWidth));
    for (uint32_t i = 0; i < a8.getDataSize(); ++i)
        a8.getDataPtr()[i] = uint8_t(i * 53 + 17);
    ASSERT_TRUE(a8.saveFile((dir / "a8.dds").c_str()));
    std::vector<uint8_t> seen;
    if (reader(dir, dir / "a8.dds", seen, true))
    {
        ASSERT_EQ(seen.size(), 4u * a8.getDataSize());
        for (uint32_t i = 0; i < a8.getDataSize(); ++i)
            EXPECT_EQ(seen[4 * i + 3], a8.getDataPtr()[i]);
    }
}

TEST(DDSInterop, PillowReadsUncompressedFiles)
{
    if (!HavePillow())
        GTEST_SKIP() << "Pillow (/usr/bin/python3 with PIL, Debian python3-pil) is not installed";
    ExpectReaderSeesSamples(PillowRGBA);
}

TEST(DDSInterop, ImageMagickReadsUncompressedFiles)
{
    if (!HaveImageMagick())
        GTEST_SKIP() << "ImageMagick (" << kConvert << ") is not installed";
    ExpectReaderSeesSamples(MagickRGBA);
}

TEST(DDSInterop, NVCompressFilesLoadAsBlocks)
{
    if (access(kNVCompress, X_OK) != 0)
        GTEST_SKIP() << "nvcompress (" << kNVCompress << ", Debian libnvtt-bin) is not installed";
    ScratchDir dir;
    const std::string tga = dir / "in.tga";
    WriteBytes(tga, TGA(16, 8));

    struct Case
    {
        const char* options;
        uint64_t format;
        uint32_t levels;
        uint32_t dataSize; // 8 or 16 bytes a 4 x 4 block
    };
    // 16 x 8 down to 1 x 1: 8, 2, 1, 1 and 1 blocks.
    const Case cases[] = {
        {"-bc1", ePF_DXT1, 5, 13 * 8},
        {"-bc3", ePF_DXT5, 5, 13 * 16},
        {"-bc1 -nomips", ePF_DXT1, 1, 8 * 8},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.options);
        const std::string out = dir / "out.dds", log = dir / "nvcompress.log";
        std::remove(out.c_str());
        ASSERT_TRUE(RunCommand(std::string(kNVCompress) + " -nocuda " + c.options + " '" + tga + "' '" + out + "'", log))
            << LogText(log);
        const std::vector<uint8_t> bytes = ReadBytes(out);
        ASSERT_GE(bytes.size(), 128u);

        const CORBTexture texture(out.c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(texture.getPixelType().PixelTypeID, c.format);
        EXPECT_EQ(texture.getWidth(), 16u);
        EXPECT_EQ(texture.getHeight(), 8u);
        EXPECT_EQ(texture.getDepth(), 1u);
        EXPECT_EQ(texture.getNumMIPLevels(), c.levels);
        EXPECT_EQ(texture.getNumFaces(), 1u);
        EXPECT_EQ(texture.getDataSize(), c.dataSize);
        // One surface a level: the blocks are the file's, in order.
        ASSERT_GE(bytes.size(), 128u + c.dataSize);
        EXPECT_EQ(std::memcmp(texture.getDataPtr(), bytes.data() + 128, c.dataSize), 0);

        // Written again by this library, other readers decode the same image.
        const std::string again = dir / "again.dds";
        ASSERT_TRUE(texture.saveFile(again.c_str()));
        if (HavePillow())
        {
            std::vector<uint8_t> original, rewritten;
            ASSERT_TRUE(PillowRGBA(dir, out, original));
            ASSERT_TRUE(PillowRGBA(dir, again, rewritten));
            EXPECT_EQ(rewritten, original);
            EXPECT_EQ(rewritten.size(), 16u * 8 * 4);
        }
        if (HaveImageMagick())
        {
            std::vector<uint8_t> original, rewritten;
            ASSERT_TRUE(MagickRGBA(dir, out, original));
            ASSERT_TRUE(MagickRGBA(dir, again, rewritten));
            EXPECT_EQ(rewritten, original);
        }
    }
}
