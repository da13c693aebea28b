// Files exchanged with the external ASTC encoder: its .astc and KTX output
// loads here, and it reads the .astc and KTX files written here.

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

typedef std::vector<uint8_t> Bytes;

bool HaveEncoder() { return std::system("astcenc -version >/dev/null 2>&1") == 0; }

#define REQUIRE_ENCODER()                                                                                    \
    if (!HaveEncoder())                                                                                      \
    GTEST_SKIP() << "astcenc not found on the search path (Debian package astcenc)"

// Runs the encoder with arguments; paths are single-quoted.
bool Encoder(const std::string& mode, const std::string& in, const std::string& out, const std::string& rest = "")
{
    const std::string command = "astcenc " + mode + " '" + in + "' '" + out + "' " + rest + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

// Uncompressed 32-bit TGA, top row first; 'rgba' holds the pixels top row first.
void WriteTGA(const std::string& path, uint32_t width, uint32_t height, const Bytes& rgba)
{
    Bytes file = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, uint8_t(width), uint8_t(width >> 8), uint8_t(height),
                  uint8_t(height >> 8), 32, 0x28};
    for (size_t i = 0; i < rgba.size(); i += 4)
        file.insert(file.end(), {rgba[i + 2], rgba[i + 1], rgba[i], rgba[i + 3]});
    WriteBytes(path, file);
}

uint32_t Word(const Bytes& bytes, size_t at)
{
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

// A 32-bit BMP (bit fields or plain BGRA, either row order) as RGBA, top row first.
bool ReadBMP(const std::string& path, uint32_t& width, uint32_t& height, Bytes& rgba)
{
    const Bytes file = ReadBytes(path);
    if (file.size() < 54 || file[0] != 'B' || file[1] != 'M' || (Word(file, 28) & 0xFFFF) != 32)
        return false;
    const uint32_t offset = Word(file, 10);
    width = Word(file, 18);
    const int32_t signedHeight = int32_t(Word(file, 22));
    height = uint32_t(signedHeight < 0 ? -signedHeight : signedHeight);
    uint32_t masks[4] = {0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000};
    if (Word(file, 30) == 3)
        for (int i = 0; i < 4; ++i)
            masks[i] = Word(file, 54 + 4 * i);
    if (file.size() < offset + uint64_t(width) * height * 4)
        return false;
    rgba.assign(size_t(width) * height * 4, 0);
    for (uint32_t y = 0; y < height; ++y)
    {
        const uint32_t row = signedHeight < 0 ? y : height - 1 - y;
        for (uint32_t x = 0; x < width; ++x)
        {
            const uint32_t pixel = Word(file, offset + (size_t(row) * width + x) * 4);
            for (int c = 0; c < 4; ++c)
            {
                const uint32_t mask = masks[c];
                rgba[(size_t(y) * width + x) * 4 + c] = mask ? uint8_t((pixel & mask) / (mask & -mask)) : 255;
            }
        }
    }
    return true;
}

// A smooth image with varying alpha, top row first.
Bytes Gradient(uint32_t width, uint32_t height)
{
    Bytes rgba;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            rgba.insert(rgba.end(), {uint8_t(x * 20), uint8_t(y * 30), uint8_t(200 - x * 5), uint8_t(255 - y * 9)});
    return rgba;
}

// One colour per 4 x 4 block, so that any ASTC encoder keeps it exactly.
Bytes FlatBlocks(uint32_t width, uint32_t height, uint8_t alpha)
{
    Bytes rgba;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
        {
            const uint32_t block = (y / 4) * 16 + x / 4;
            rgba.insert(rgba.end(), {uint8_t(block * 37), uint8_t(block * 91 + 5), uint8_t(255 - block * 23),
                                     alpha ? alpha : uint8_t(block * 50 + 30)});
        }
    return rgba;
}

} // namespace

TEST(KTXInterop, EncoderASTCFilesLoadAndSaveUnchanged)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    WriteTGA(dir / "in.tga", 12, 8, Gradient(12, 8));
    ASSERT_TRUE(Encoder("-cl", dir / "in.tga", dir / "ref.astc", "6x5 -fast"));
    const Bytes reference = ReadBytes(dir / "ref.astc");

    const CORBTexture texture((dir / "ref.astc").c_str());
    ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_6x5));
    EXPECT_EQ(texture.getWidth(), 12u);
    EXPECT_EQ(texture.getHeight(), 8u);
    EXPECT_EQ(texture.getDepth(), 1u);
    ASSERT_EQ(texture.getDataSize(), 4u * 16u);
    ASSERT_EQ(reference.size(), 16u + 64u);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), reference.data() + 16, 64), 0);

    ASSERT_TRUE(texture.saveASTCFile((dir / "lib.astc").c_str()));
    EXPECT_EQ(ReadBytes(dir / "lib.astc"), reference);
    ASSERT_TRUE(Encoder("-dl", dir / "ref.astc", dir / "ref.bmp"));
    ASSERT_TRUE(Encoder("-dl", dir / "lib.astc", dir / "lib.bmp"));
    uint32_t width = 0, height = 0, libWidth = 0, libHeight = 0;
    Bytes decoded, libDecoded;
    ASSERT_TRUE(ReadBMP(dir / "ref.bmp", width, height, decoded));
    ASSERT_TRUE(ReadBMP(dir / "lib.bmp", libWidth, libHeight, libDecoded));
    EXPECT_EQ(libWidth, 12u);
    EXPECT_EQ(libHeight, 8u);
    EXPECT_EQ(libDecoded, decoded);

    // A volume from two slices: block size Z and depth.
    WriteTGA(dir / "slice_0.tga", 8, 4, Gradient(8, 4));
    WriteTGA(dir / "slice_1.tga", 8, 4, FlatBlocks(8, 4, 255));
    ASSERT_TRUE(Encoder("-cl", dir / "slice.tga", dir / "volume.astc", "4x4x4 -fast -zdim 2"));
    const CORBTexture volume((dir / "volume.astc").c_str());
    ASSERT_NE(volume.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(volume.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4x4));
    EXPECT_EQ(volume.getDepth(), 2u);
    EXPECT_EQ(volume.getDataSize(), 2u * 16u);
    ASSERT_TRUE(volume.saveASTCFile((dir / "volume-lib.astc").c_str()));
    EXPECT_EQ(ReadBytes(dir / "volume-lib.astc"), ReadBytes(dir / "volume.astc"));
}

TEST(KTXInterop, EncoderReadsLibraryKTXFiles)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    // rgba8, 16 x 8, one colour per 4 x 4 block: the round trip through ASTC 4x4 is exact.
    const Bytes pixels = FlatBlocks(16, 8, 0);
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 16), pixels.data());
    ASSERT_TRUE(texture.saveFile((dir / "lib.ktx").c_str()));
    ASSERT_TRUE(Encoder("-cl", dir / "lib.ktx", dir / "out.astc", "4x4 -medium"));
    ASSERT_TRUE(Encoder("-dl", dir / "out.astc", dir / "out.bmp"));
    uint32_t width = 0, height = 0;
    Bytes decoded;
    ASSERT_TRUE(ReadBMP(dir / "out.bmp", width, height, decoded));
    EXPECT_EQ(width, 16u);
    EXPECT_EQ(height, 8u);
    EXPECT_EQ(decoded, pixels);

    // The encoder's .astc of it loads with its fields, and compressed KTX
    // written here decodes to the same pixels.
    const CORBTexture compressed((dir / "out.astc").c_str());
    ASSERT_NE(compressed.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(compressed.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
    EXPECT_EQ(compressed.getWidth(), 16u);
    EXPECT_EQ(compressed.getHeight(), 8u);
    ASSERT_TRUE(compressed.saveFile((dir / "astc.ktx").c_str()));
    ASSERT_TRUE(Encoder("-dl", dir / "astc.ktx", dir / "astc-ktx.bmp"));
    Bytes fromKTX;
    ASSERT_TRUE(ReadBMP(dir / "astc-ktx.bmp", width, height, fromKTX));
    EXPECT_EQ(fromKTX, pixels);
}

TEST(KTXInterop, LibraryReadsEncoderKTXFiles)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    struct Case
    {
        uint32_t width, height;
        Bytes pixels;
        uint64_t format; // what the encoder writes: rgb8 when alpha is constant
    };
    const Case cases[] = {
        {12, 8, Gradient(12, 8), ORBStandard8PixelType},
        {8, 4, FlatBlocks(8, 4, 255), PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.width);
        WriteTGA(dir / "in.tga", c.width, c.height, c.pixels);
        ASSERT_TRUE(Encoder("-cl", dir / "in.tga", dir / "ref.astc", "4x4 -fast"));
        ASSERT_TRUE(Encoder("-dl", dir / "ref.astc", dir / "dec.ktx"));
        ASSERT_TRUE(Encoder("-dl", dir / "ref.astc", dir / "dec.bmp"));
        uint32_t width = 0, height = 0;
        Bytes decoded;
        ASSERT_TRUE(ReadBMP(dir / "dec.bmp", width, height, decoded));

        const CORBTexture texture((dir / "dec.ktx").c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(texture.getPixelType().PixelTypeID, c.format);
        EXPECT_EQ(texture.getChannelType(), eVarUnsignedByteNorm);
        EXPECT_EQ(texture.getWidth(), c.width);
        EXPECT_EQ(texture.getHeight(), c.height);
        EXPECT_EQ(texture.getDepth(), 1u);
        EXPECT_EQ(texture.getNumMIPLevels(), 1u);
        EXPECT_EQ(texture.getNumFaces(), 1u);
        EXPECT_EQ(texture.getNumArrayMembers(), 1u);
        const uint32_t channels = texture.getBitsPerPixel() / 8;
        ASSERT_EQ(texture.getDataSize(), c.width * c.height * channels);
        Bytes loaded;
        for (uint32_t i = 0; i < c.width * c.height; ++i)
            for (uint32_t k = 0; k < 4; ++k)
                loaded.push_back(k < channels ? texture.getDataPtr()[i * channels + k] : 255);
        EXPECT_EQ(loaded, decoded);

        // Its compressed KTX holds the blocks of its .astc file.
        ASSERT_TRUE(Encoder("-cl", dir / "in.tga", dir / "blocks.ktx", "4x4 -fast"));
        const CORBTexture blocks((dir / "blocks.ktx").c_str());
        ASSERT_NE(blocks.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(blocks.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
        const Bytes astc = ReadBytes(dir / "ref.astc");
        ASSERT_EQ(blocks.getDataSize() + 16, astc.size());
        EXPECT_EQ(std::memcmp(blocks.getDataPtr(), astc.data() + 16, blocks.getDataSize()), 0);
    }
}
