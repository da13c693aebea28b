// KTX 1.1 files: the written bytes against the published layout, hand-made
// files, orientation pairs, refusals, round trips of levels, members and cube
// faces; and .astc and KTX files exchanged with the external ASTC encoder.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

typedef std::vector<uint8_t> Bytes;

// OpenGL values, from the published headers.
constexpr uint32_t kGLUnsignedByte = 0x1401, kGLRGB = 0x1907, kGLRGBA = 0x1908, kGLRGB8 = 0x8051, kGLRGBA8 = 0x8058;

const Bytes kIdentifier = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x31, 0x31, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};

struct KTXHeader
{
    uint32_t glType = kGLUnsignedByte, glTypeSize = 1, glFormat = kGLRGBA, glInternalFormat = kGLRGBA8,
             glBaseInternalFormat = kGLRGBA;
    uint32_t width = 2, height = 2, depth = 0, arrayElements = 0, faces = 1, levels = 1;
};

Bytes Cat(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes Words(std::initializer_list<uint32_t> words)
{
    Bytes bytes;
    for (uint32_t word : words)
        AppendValue(bytes, word);
    return bytes;
}

Bytes Text(const char* text) { return Bytes(text, text + std::strlen(text) + 1); }

// A pair as the published format stores it: size word, key and value, padding.
Bytes Pair(const std::string& key, const Bytes& value)
{
    Bytes pair = Cat(Cat(Words({uint32_t(key.size() + 1 + value.size())}), Text(key.c_str())), value);
    pair.resize((pair.size() + 3) / 4 * 4);
    return pair;
}

Bytes KTXFile(const KTXHeader& h, const Bytes& keyValueData, const Bytes& body)
{
    const Bytes words = Words({0x04030201u, h.glType, h.glTypeSize, h.glFormat, h.glInternalFormat,
                               h.glBaseInternalFormat, h.width, h.height, h.depth, h.arrayElements, h.faces, h.levels,
                               uint32_t(keyValueData.size())});
    return Cat(Cat(Cat(kIdentifier, words), keyValueData), body);
}

CORBTexture Filled(const CORBTextureHeader& header, uint8_t seed = 1)
{
    return CORBTexture(header, Sequence(header.getDataSize(), 11, seed).data());
}

Bytes Saved(const ScratchDir& dir, const CORBTexture& texture, const char* name = "saved.ktx")
{
    EXPECT_TRUE(texture.saveFile((dir / name).c_str()));
    return ReadBytes(dir / name);
}

Bytes From(const Bytes& bytes, size_t offset, size_t count = SIZE_MAX)
{
    return Bytes(bytes.begin() + long(std::min(offset, bytes.size())),
                 bytes.begin() + long(std::min(bytes.size(), count == SIZE_MAX ? bytes.size() : offset + count)));
}

const uint64_t kRGB8 = PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID;


#define REQUIRE_ENCODER()                                                                                    \
    if (std::system("astcenc -version >/dev/null 2>&1") != 0)                                                \
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

// The encoder's decoded BMP (32-bit BGRA words, bottom row first) as RGBA, top row first.
Bytes DecodedBMP(const std::string& path, uint32_t width, uint32_t height)
{
    const Bytes file = ReadBytes(path);
    uint32_t words[5] = {}; // data offset, header size, width, height, planes and bits
    if (file.size() < 30 || file[0] != 'B')
        return {};
    std::memcpy(words, &file[10], 20);
    if (words[2] != width || words[3] != height || words[4] >> 16 != 32 ||
        file.size() < words[0] + size_t(width) * height * 4)
        return {};
    Bytes rgba;
    for (uint32_t y = height; y-- > 0;)
        for (uint32_t x = 0; x < width; ++x)
        {
            const uint8_t* p = file.data() + words[0] + (size_t(y) * width + x) * 4;
            rgba.insert(rgba.end(), {p[2], p[1], p[0], p[3]});
        }
    return rgba;
}

// A smooth image with varying alpha, or one colour per 4 x 4 block (which any ASTC encoder keeps exactly).
Bytes Picture(uint32_t width, uint32_t height, bool flatBlocks, uint8_t alpha = 0)
{
    Bytes rgba;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
        {
            const uint32_t b = (y / 4) * 16 + x / 4;
            if (flatBlocks)
                rgba.insert(rgba.end(), {uint8_t(b * 37), uint8_t(b * 91 + 5), uint8_t(255 - b * 23),
                                         alpha ? alpha : uint8_t(b * 50 + 30)});
            else
                rgba.insert(rgba.end(), {uint8_t(x * 20), uint8_t(y * 30), uint8_t(200 - x * 5), uint8_t(255 - y * 9)});
        }
    return rgba;
}

} // namespace

TEST(KTXFile, WrittenBytesFollowThePublishedLayout)
{
    ScratchDir dir;
    // 4 x 1 rgba8, one level: height, depth and array count are written as 0.
    const CORBTexture texture = Filled(CORBTextureHeader(ORBStandard8PixelType, 1, 4));
    Bytes expected =
        Cat(kIdentifier, Words({0x04030201, kGLUnsignedByte, 1, kGLRGBA, kGLRGBA8, kGLRGBA, 4, 0, 0, 0, 1, 1, 32, 27}));
    expected = Cat(Cat(Cat(expected, Text("KTXOrientation")), Text("S=r,T=d,R=i")), {0});
    EXPECT_EQ(Saved(dir, texture, "row.ktx"), Cat(Cat(expected, Words({16})), Sequence(16, 11, 1)));
    EXPECT_FALSE(std::filesystem::exists(dir / "row.ktx.orb"));

    // The orientation letters, each by its own axis.
    CORBTexture turned = texture;
    for (uint32_t bits : {1u, 2u, 4u, 7u})
    {
        turned.setOrientation(EORBTOrientation(bits));
        const std::string wanted = std::string("S=") + (bits & 1 ? 'l' : 'r') + ",T=" + (bits & 2 ? 'u' : 'd') +
                                   ",R=" + (bits & 4 ? 'o' : 'i');
        EXPECT_EQ(From(Saved(dir, turned, "turned.KTX"), 64 + 4 + 15, 11), Bytes(wanted.begin(), wanted.end()));
        EXPECT_EQ(CORBTexture((dir / "turned.KTX").c_str()).getOrientation(eAxisY), bits & 2 ? eOrientUp : eOrientDown);
    }
    // Depth, array and face counts as they stand when not 1.
    EXPECT_EQ(From(Saved(dir, Filled(CORBTextureHeader(ORBStandard8PixelType, 3, 2, 5, 1, 2))), 36, 28),
              Words({2, 3, 5, 2, 1, 1, 32}));

    // rgb8, 3 x 3: rows of 9 bytes and 3 zero bytes; the size word says 27,
    // and the level is padded to a multiple of 4 of 27.
    const Bytes pixels = Sequence(27, 11, 100);
    const Bytes rgb = Saved(dir, CORBTexture(CORBTextureHeader(kRGB8, 3, 3), pixels.data()), "rgb.ktx");
    EXPECT_EQ(From(rgb, 16, 20), Words({kGLUnsignedByte, 1, kGLRGB, kGLRGB8, kGLRGB}));
    Bytes body = Words({27});
    for (int row = 0; row < 3; ++row)
        body = Cat(Cat(body, From(pixels, row * 9, 9)), {0, 0, 0});
    EXPECT_EQ(From(rgb, 96), Cat(body, {0}));
    const CORBTexture loaded((dir / "rgb.ktx").c_str());
    EXPECT_EQ(loaded.getPixelType().PixelTypeID, kRGB8);
    EXPECT_EQ(Bytes(loaded.getDataPtr(), loaded.getDataPtr() + loaded.getDataSize()), pixels);
}

TEST(KTXFile, CubeMapsCountOneFace)
{
    ScratchDir dir;
    // ETC1 cube, 8 x 8 then 4 x 4: the size word counts one face.
    const CORBTexture cube = Filled(CORBTextureHeader(ePF_ETC1, 8, 8, 1, 2, 1, 6), 3);
    const Bytes file = Saved(dir, cube);
    ASSERT_EQ(file.size(), 96u + 4 + 6 * 32 + 4 + 6 * 8);
    EXPECT_EQ(From(file, 16, 20), Words({0, 1, 0, 0x8D64, kGLRGB})); // GL_ETC1_RGB8_OES
    EXPECT_EQ(From(file, 96, 4), Words({32}));
    EXPECT_EQ(From(file, 100 + 6 * 32, 4), Words({8}));
    EXPECT_EQ(From(file, 100, 6 * 32), Sequence(6 * 32, 11, 3));
    // An array of cubes: the size word counts every face of every member.
    const Bytes cubes = Saved(dir, Filled(CORBTextureHeader(ePF_ETC1, 4, 4, 1, 1, 2, 6)));
    ASSERT_EQ(cubes.size(), 96u + 4 + 12 * 8);
    EXPECT_EQ(From(cubes, 96, 4), Words({96}));

    // rgb8 1 x 1 cube: each face's row is padded to 4, then the face by its
    // own size of 3 to 4, and the level by the size word of 3.
    const Bytes faces = Sequence(18, 11, 9);
    Bytes body = Words({3});
    for (int face = 0; face < 6; ++face)
        body = Cat(Cat(body, From(faces, face * 3, 3)), {0, 0});
    EXPECT_EQ(From(Saved(dir, CORBTexture(CORBTextureHeader(kRGB8, 1, 1, 1, 1, 1, 6), faces.data())), 96),
              Cat(body, {0}));
    const CORBTexture loaded((dir / "saved.ktx").c_str());
    EXPECT_EQ(Bytes(loaded.getDataPtr(), loaded.getDataPtr() + loaded.getDataSize()), faces);
}

TEST(KTXFile, RoundTripsOfLevelsMembersAndFaces)
{
    ScratchDir dir;
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(ORBStandard8PixelType, 3, 5, 1, 3, 2), // odd sizes, members
        CORBTextureHeader(kRGB8, 6, 7, 1, 3, 1, 6),              // padded rows, cube
        CORBTextureHeader(kRGB8, 2, 3, 4, 2),                    // padded rows, volume
        CORBTextureHeader(ePF_ETC1, 16, 16, 1, 5, 1, 6),         // compressed cube
        CORBTextureHeader(ePF_ASTC_5x5, 9, 12, 1, 4, 3),         // ASTC array
        CORBTextureHeader(ePF_RGB9E5, 3, 3, 1, 2, 1, 1, eColourSpaceLinear, eVarUnsignedFloat),
        CORBTextureHeader(PixelType('r', 0, 0, 0, 16, 0, 0, 0).PixelTypeID, 5, 3, 1, 3, 2, 6, eColourSpaceLinear,
                          eVarSignedShortNorm), // array of cubes
        CORBTextureHeader(ORBStandard8PixelType, 1, 1, 1, 1, 1, 1, eColourSpaceSRGB),
    };
    for (const CORBTextureHeader& header : headers)
    {
        SCOPED_TRACE(ORBTGetPixelFormatName(header.getPixelType().PixelTypeID).c_str());
        const CORBTexture texture = Filled(header, 7);
        Saved(dir, texture);
        CORBTexture loaded((dir / "saved.ktx").c_str());
        ASSERT_NE(loaded.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(loaded.getPixelType(), texture.getPixelType());
        EXPECT_EQ(Shape(loaded.getFileHeader()), Shape(texture.getFileHeader()));
        ASSERT_EQ(loaded.getDataSize(), texture.getDataSize());
        EXPECT_EQ(std::memcmp(loaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()), 0);
        // The orientation pair gives every loaded texture an orientation item.
        EXPECT_TRUE(loaded.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation));
    }
}

TEST(KTXFile, HandMadeFilesAndTheirPairs)
{
    ScratchDir dir;
    KTXHeader header;
    header.height = 0; // one row
    const Bytes pixels = Sequence(8, 11, 40), body = Cat(Words({8}), pixels);

    // No pairs: no orientation item; height 0 loads as 1.
    WriteBytes(dir / "plain.ktx", KTXFile(header, {}, body));
    CORBTexture plain((dir / "plain.ktx").c_str());
    ASSERT_NE(plain.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_TRUE(plain.getHeight() == 1 && plain.getWidth() == 2);
    EXPECT_FALSE(plain.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation));
    EXPECT_EQ(Bytes(plain.getDataPtr(), plain.getDataPtr() + 8), pixels);

    const Bytes foreign = Pair("Vendor", Text("x"));
    const struct
    {
        Bytes pairs;
        uint32_t orientation;
    } cases[] = {
        {Pair("KTXOrientation", Text("S=l,T=u,R=o")), 7},
        {Pair("KTXOrientation", Text("S=r,T=d,R=i")), 0},
        {Pair("KTXOrientation", Text("S=r,T=dd,R=i")), 2}, // a 'd' count other than 1
        {Pair("KTXOrientation", Text("S=l,T=d")), 1},
        {Pair("KTXOrientation", Text("ll")), 2},                        // two 'l' set nothing; no 'd' sets Y
        {Pair("KTXOrientation", Bytes{'l', 'd', 'o', 0, 'o', 'd'}), 5}, // text ends at its zero
        {foreign, 0},                                                   // any pair gives an orientation item
        {Cat(Pair("KTXOrientation", Text("S=l,T=d,R=i")), foreign), 1},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.orientation);
        WriteBytes(dir / "pairs.ktx", KTXFile(header, c.pairs, body));
        CORBTexture texture((dir / "pairs.ktx").c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        ASSERT_TRUE(texture.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation));
        EXPECT_EQ(texture.getOrientation(eAxisX) | texture.getOrientation(eAxisY) | texture.getOrientation(eAxisZ),
                  c.orientation);
        EXPECT_EQ(Bytes(texture.getDataPtr(), texture.getDataPtr() + 8), pixels);
    }

    // The header read lists the header fields and each pair.
    WriteBytes(dir / "info.ktx",
               KTXFile(header, Cat(Pair("KTXOrientation", Text("S=r,T=u,R=i")), Pair("Blob", Bytes{1, 2, 0})), body));
    EXPECT_EQ(FileInfo(dir / "info.ktx"),
              "ktx\nidentifier: AB 4B 54 58 20 31 31 BB 0D 0A 1A 0A\n"
              "endianness: 0x04030201\nglType: 0x1401\nglTypeSize: 1\nglFormat: 0x1908\n"
              "glInternalFormat: 0x8058\nglBaseInternalFormat: 0x1908\npixelWidth: 2\npixelHeight: 0\n"
              "pixelDepth: 0\nnumberOfArrayElements: 0\nnumberOfFaces: 1\nnumberOfMipmapLevels: 1\n"
              "bytesOfKeyValueData: 44\nkey: KTXOrientation\nvalue: S=r,T=u,R=i\nkey: Blob\n");
    CORBTextureHeader read;
    ASSERT_TRUE(ORBTReadTextureHeader((dir / "info.ktx").c_str(), read));
    EXPECT_EQ(read.getOrientation(eAxisY), eOrientUp);
}

TEST(KTXFile, Refusals)
{
    ScratchDir dir;
    const Bytes body = Cat(Words({16}), Bytes(16, 5)), valid = KTXFile(KTXHeader(), {}, body);
    auto with = [&](void (*edit)(KTXHeader&), const Bytes& pairs = {}) {
        KTXHeader h;
        edit(h);
        return KTXFile(h, pairs, body);
    };
    auto patched = [&](Bytes bytes, size_t offset, uint32_t word) {
        PutValue(bytes, offset, word);
        return bytes;
    };
    Bytes wrongIdentifier = valid;
    wrongIdentifier[5] = '2';
    const Bytes pastBlock = patched(Pair("Key", Text("value")), 0, 13); // pairs must stay inside their block

    ExpectRefused(dir, "x.ktx", {}, "file too short to be a texture");
    ExpectRefused(dir, "x.ktx", From(kIdentifier, 0, 8), "file too short to be a texture");
    ExpectRefused(dir, "x.ktx", From(valid, 0, 63), "truncated header");
    ExpectRefused(dir, "x.ktx", wrongIdentifier, "not a ktx file (wrong identifier)");
    ExpectRefused(dir, "x.KTX", {0xAB, 0x4B, 0x54, 0x59}, "not a ktx file (wrong identifier)");
    ExpectRefused(dir, "x.ktx", patched(valid, 12, 0x01020304),
                  "ktx header: endianness 0x01020304: big-endian files are not supported");
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.glInternalFormat = 0x1234; }),
                  "ktx: no pixel format for glInternalFormat 0x1234, glFormat 0x1908, glType 0x1401");
    ExpectRefused(dir, "x.ktx", From(with([](KTXHeader& h) { h.levels = 0; }), 0, 64), "declares no surfaces");
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.faces = 0; }), "declares no surfaces");
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.levels = 3; }),
                  "3 MIP levels, but a largest side of 2 allows at most 2");
    // A side with its top bit set allows 32 levels.
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 33; }),
                  "33 MIP levels, but a largest side of 2147483648 allows at most 32");
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 32; }),
                  "texture too large: its data size does not fit in 32 bits");
    // 4096 array members of 16 bytes each claimed by a file of 20 bytes of data.
    ExpectRefused(dir, "x.ktx", with([](KTXHeader& h) { h.arrayElements = 4096; }), "pixel data short by 65520 bytes");
    ExpectRefused(dir, "x.ktx", KTXFile(KTXHeader(), pastBlock, body),
                  "ktx header: key/value pair 0 of 13 bytes runs past bytesOfKeyValueData");
    ExpectRefused(dir, "x.ktx", KTXFile(KTXHeader(), {0, 0}, body),
                  "ktx header: key/value pair 0 runs past bytesOfKeyValueData");
    ExpectRefused(dir, "x.ktx", patched(valid, 60, 4000),
                  "ktx header: bytesOfKeyValueData 4000 runs past the end of the file");
    ExpectRefused(dir, "x.ktx", From(valid, 0, valid.size() - 1), "pixel data short by 1 bytes");
    // The header read counts the bytes of the level's size word as missing pixel data.
    ExpectRefused(dir, "x.ktx", From(valid, 0, 64), "pixel data missing", "pixel data short by 20 bytes");

    // A texture without OpenGL codes is written with zero codes (glTypeSize 1), and that file is refused.
    const Bytes written = Saved(dir, Filled(CORBTextureHeader(ePF_BC7, 4, 4)), "bc7.ktx");
    EXPECT_EQ(From(written, 16, 20), Words({0, 1, 0, 0, 0}));
    EXPECT_EQ(CORBTexture((dir / "bc7.ktx").c_str()).getDataPtr(), nullptr);
}

TEST(KTXFile, PipesAndLongKeyValueData)
{
    ScratchDir dir;
    // A pipe is read straight through: pairs, padded rows, cube padding.
    const std::string fifo = dir / "pipe.ktx";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const CORBTexture cube = Filled(CORBTextureHeader(kRGB8, 3, 5, 1, 2, 1, 6), 21);
    const Bytes bytes = Saved(dir, cube);
    std::thread writer([&] { WriteBytes(fifo, bytes); });
    const CORBTexture fromPipe(fifo.c_str());
    writer.join();
    ASSERT_NE(fromPipe.getDataPtr(), nullptr) << ORBTGetLastError();
    ASSERT_EQ(fromPipe.getDataSize(), cube.getDataSize());
    EXPECT_EQ(std::memcmp(fromPipe.getDataPtr(), cube.getDataPtr(), cube.getDataSize()), 0);

    // A pipe that ends inside a pair declared far larger than what follows.
    Bytes huge = KTXFile(KTXHeader(), Words({0x7FFFFFF0}), {});
    PutValue<uint32_t>(huge, 60, 0x7FFFFFF4);
    huge.resize(huge.size() + 1000, 'x');
    writer = std::thread([&] { WriteBytes(fifo, huge); });
    EXPECT_EQ(CORBTexture(fifo.c_str()).getDataPtr(), nullptr);
    writer.join();
    EXPECT_STREQ(ORBTGetLastError(), "truncated header");

    // Many pairs: the first 32 are listed, the rest counted.
    Bytes pairs;
    for (int i = 0; i < 40; ++i)
        pairs = Cat(pairs, Pair("k" + std::to_string(i), Text("v")));
    WriteBytes(dir / "pairs.ktx", KTXFile(KTXHeader(), pairs, Cat(Words({16}), Bytes(16, 0))));
    const std::string info = FileInfo(dir / "pairs.ktx");
    EXPECT_EQ(std::count(info.begin(), info.end(), '\n'), 1 + 14 + 32 * 2 + 1);
    EXPECT_NE(info.find("\nkey: k31\nvalue: v\nmore key/value pairs: 8\n"), std::string::npos);
}

TEST(KTXInterop, ASTCFilesBothWays)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    // The encoder's 2D and 3D .astc files load with their fields and save byte for byte.
    WriteTGA(dir / "in.tga", 12, 8, Picture(12, 8, false));
    WriteTGA(dir / "slice_0.tga", 8, 4, Picture(8, 4, false));
    WriteTGA(dir / "slice_1.tga", 8, 4, Picture(8, 4, true, 255));
    ASSERT_TRUE(Encoder("-cl", dir / "in.tga", dir / "flat.astc", "6x5 -fast"));
    ASSERT_TRUE(Encoder("-cl", dir / "slice.tga", dir / "volume.astc", "4x4x4 -fast -zdim 2"));
    for (const auto& [name, format, shape] : {std::make_tuple("flat.astc", ePF_ASTC_6x5, 1281u),
                                              std::make_tuple("volume.astc", ePF_ASTC_4x4x4, 842u)})
    {
        const Bytes reference = ReadBytes(dir / name);
        const CORBTexture texture((dir / name).c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(format));
        EXPECT_EQ(texture.getWidth() * 100 + texture.getHeight() * 10 + texture.getDepth(), shape);
        EXPECT_EQ(DataOf(texture), Bytes(reference.begin() + 16, reference.end()));
        ASSERT_TRUE(texture.saveASTCFile((dir / "lib.astc").c_str()));
        EXPECT_EQ(ReadBytes(dir / "lib.astc"), reference);
    }

    // rgba8 KTX written here, one colour per 4 x 4 block, compresses through
    // ASTC 4x4 exactly; the result loads, and as KTX written here decodes the same.
    const Bytes pixels = Picture(16, 8, true);
    const CORBTexture blocks(CORBTextureHeader(ORBStandard8PixelType, 8, 16), pixels.data());
    ASSERT_TRUE(blocks.saveFile((dir / "lib.ktx").c_str()));
    ASSERT_TRUE(Encoder("-cl", dir / "lib.ktx", dir / "out.astc", "4x4 -medium"));
    ASSERT_TRUE(Encoder("-dl", dir / "out.astc", dir / "out.bmp"));
    EXPECT_EQ(DecodedBMP(dir / "out.bmp", 16, 8), pixels);
    const CORBTexture compressed((dir / "out.astc").c_str());
    EXPECT_EQ(compressed.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
    EXPECT_EQ(compressed.getWidth() * 100 + compressed.getHeight(), 1608u);
    ASSERT_TRUE(compressed.saveFile((dir / "astc.ktx").c_str()));
    ASSERT_TRUE(Encoder("-dl", dir / "astc.ktx", dir / "astc-ktx.bmp"));
    EXPECT_EQ(DecodedBMP(dir / "astc-ktx.bmp", 16, 8), pixels);
}

TEST(KTXInterop, LibraryReadsEncoderKTXFiles)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    // What the encoder writes: rgba8, or rgb8 when alpha is constant.
    for (const bool flat : {false, true})
    {
        const uint32_t width = flat ? 8 : 12, height = flat ? 4 : 8;
        SCOPED_TRACE(width);
        WriteTGA(dir / "in.tga", width, height, Picture(width, height, flat, 255 * flat));
        ASSERT_TRUE(Encoder("-cl", dir / "in.tga", dir / "ref.astc", "4x4 -fast"));
        ASSERT_TRUE(Encoder("-dl", dir / "ref.astc", dir / "dec.ktx"));
        ASSERT_TRUE(Encoder("-dl", dir / "ref.astc", dir / "dec.bmp"));
        const CORBTexture texture((dir / "dec.ktx").c_str());
        ASSERT_NE(texture.getDataPtr(), nullptr) << ORBTGetLastError();
        EXPECT_EQ(texture.getPixelType().PixelTypeID,
                  flat ? PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID : ORBStandard8PixelType);
        const ORBTextureHeaderV3 h = texture.getFileHeader();
        EXPECT_EQ((std::vector<uint32_t>{h.channelType, h.width, h.height, h.depth, h.numMIPMaps, h.numFaces,
                                         h.numSurfaces}),
                  (std::vector<uint32_t>{eVarUnsignedByteNorm, width, height, 1, 1, 1, 1}));
        const uint32_t channels = texture.getBitsPerPixel() / 8;
        ASSERT_EQ(texture.getDataSize(), width * height * channels);
        Bytes loaded;
        for (uint32_t i = 0; i < width * height; ++i)
            for (uint32_t k = 0; k < 4; ++k)
                loaded.push_back(k < channels ? texture.getDataPtr()[i * channels + k] : 255);
        EXPECT_EQ(loaded, DecodedBMP(dir / "dec.bmp", width, height));

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
