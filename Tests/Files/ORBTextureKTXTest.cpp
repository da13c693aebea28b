// KTX 1.1 files: the written bytes against the published layout, hand-made
// files, orientation pairs, refusals, round trips of levels, members and cube
// faces; and .astc and KTX files exchanged with the external ASTC encoder.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
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

// One colour per 4 x 4 block, which any ASTC encoder keeps exactly; 'alpha' 0 varies alpha too.
Bytes Picture(uint32_t width, uint32_t height, uint8_t alpha)
{
    Bytes rgba;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0, b = (y / 4) * 16; x < width; ++x)
            rgba.insert(rgba.end(), {uint8_t((b + x / 4) * 37), uint8_t((b + x / 4) * 91 + 5),
                                     uint8_t(255 - (b + x / 4) * 23), alpha ? alpha : uint8_t((b + x / 4) * 50 + 30)});
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

    // rgb8, 3 x 3 (as every layout, read back in RoundTrips): rows of 9 bytes and 3 zero bytes; the size word says 27,
    // and the level is padded to a multiple of 4 of 27.
    const Bytes pixels = Sequence(27, 11, 100);
    Bytes body;
    const Bytes rgb = Saved(dir, CORBTexture(CORBTextureHeader(kRGB8, 3, 3), pixels.data()), "rgb.ktx");
    EXPECT_EQ(From(rgb, 16, 20), Words({kGLUnsignedByte, 1, kGLRGB, kGLRGB8, kGLRGB}));
    body = Words({27});
    for (int row = 0; row < 3; ++row)
        body = Cat(Cat(body, From(pixels, row * 9, 9)), {0, 0, 0});
    EXPECT_EQ(From(rgb, 96), Cat(body, {0}));

    // An array of ETC1 cubes: the size word counts every face of every member.
    const Bytes cubes = Saved(dir, Filled(CORBTextureHeader(ePF_ETC1, 4, 4, 1, 1, 2, 6)));
    ASSERT_EQ(cubes.size(), 96u + 4 + 12 * 8);
    EXPECT_EQ(From(cubes, 16, 20), Words({0, 1, 0, 0x8D64, kGLRGB})); // GL_ETC1_RGB8_OES
    EXPECT_EQ(From(cubes, 96, 4), Words({96}));

    // rgb8 1 x 1 cube: the size word counts one face; each face's row is
    // padded to 4, then the face by its own size of 3 to 4, and the level by
    // the size word of 3.
    const Bytes faces = Sequence(18, 11, 9);
    body = Words({3});
    for (int face = 0; face < 6; ++face)
        body = Cat(Cat(body, From(faces, face * 3, 3)), {0, 0});
    EXPECT_EQ(From(Saved(dir, CORBTexture(CORBTextureHeader(kRGB8, 1, 1, 1, 1, 1, 6), faces.data())), 96),
              Cat(body, {0}));
}

TEST(KTXFile, RoundTripsOfLevelsMembersAndFaces)
{
    ScratchDir dir;
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(kRGB8, 6, 7, 1, 3, 1, 6),      // padded rows, cube
        CORBTextureHeader(kRGB8, 2, 3, 4, 2),            // padded rows, volume
        CORBTextureHeader(ePF_ASTC_5x5, 9, 12, 1, 4, 3), // blocks, array
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
        const CORBTexture loaded((dir / "saved.ktx").c_str());
        EXPECT_TRUE(loaded.getPixelType() == texture.getPixelType() &&
                    Shape(loaded.getFileHeader()) == Shape(texture.getFileHeader()));
        EXPECT_EQ(DataOf(loaded), DataOf(texture));
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

    const Bytes foreign = Pair("Vendor", Text("x"));
    const uint32_t kNoItem = 0xFF;
    const struct
    {
        Bytes pairs;
        uint32_t orientation;
    } cases[] = {
        {{}, kNoItem},
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
        const CORBTexture texture((dir / "pairs.ktx").c_str());
        EXPECT_TRUE(texture.getHeight() == 1 && DataOf(texture) == pixels); // height 0 loads as 1
        if (!texture.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation))
            EXPECT_EQ(c.orientation, kNoItem);
        else
            EXPECT_EQ(texture.getOrientation(eAxisX) | texture.getOrientation(eAxisY) | texture.getOrientation(eAxisZ),
                      c.orientation);
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
    auto with = [&](void (*edit)(KTXHeader&)) {
        KTXHeader h;
        edit(h);
        return KTXFile(h, {}, body);
    };
    auto patched = [&](Bytes bytes, size_t offset, uint32_t word) {
        PutValue(bytes, offset, word);
        return bytes;
    };
    const struct
    {
        Bytes bytes;
        const char* reason;
        const char* headerReason = nullptr; // of the header read, where it differs
    } cases[] = {
        {{}, "file too short to be a texture"},
        {From(kIdentifier, 0, 8), "file too short to be a texture"},
        {From(valid, 0, 63), "truncated header"},
        {patched(valid, 4, 0), "not a ktx file (wrong identifier)"},
        {{0xAB, 0x4B, 0x54, 0x59}, "not a ktx file (wrong identifier)"},
        {patched(valid, 12, 0x01020304), "ktx header: endianness 0x01020304: big-endian files are not supported"},
        {with([](KTXHeader& h) { h.glInternalFormat = 0x1234; }),
         "ktx: no pixel format for glInternalFormat 0x1234, glFormat 0x1908, glType 0x1401"},
        {From(with([](KTXHeader& h) { h.levels = 0; }), 0, 64), "declares no surfaces"},
        {with([](KTXHeader& h) { h.faces = 0; }), "declares no surfaces"},
        {with([](KTXHeader& h) { h.levels = 3; }), "3 MIP levels, but a largest side of 2 allows at most 2"},
        // A side with its top bit set allows 32 levels.
        {with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 33; }),
         "33 MIP levels, but a largest side of 2147483648 allows at most 32"},
        {with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 32; }),
         "texture too large: its data size does not fit in 32 bits"},
        // 4096 array members of 16 bytes each claimed by a file of 20 bytes of data.
        {with([](KTXHeader& h) { h.arrayElements = 4096; }), "pixel data short by 65520 bytes"},
        // Pairs must stay inside their block.
        {KTXFile(KTXHeader(), patched(Pair("Key", Text("value")), 0, 13), body),
         "ktx header: key/value pair 0 of 13 bytes runs past bytesOfKeyValueData"},
        {KTXFile(KTXHeader(), {0, 0}, body), "ktx header: key/value pair 0 runs past bytesOfKeyValueData"},
        {patched(valid, 60, 4000), "ktx header: bytesOfKeyValueData 4000 runs past the end of the file"},
        {From(valid, 0, valid.size() - 1), "pixel data short by 1 bytes"},
        // The header read counts the bytes of the level's size word as missing pixel data.
        {From(valid, 0, 64), "pixel data missing", "pixel data short by 20 bytes"},
    };
    for (const auto& c : cases)
        ExpectRefused(dir, "x.KTX", c.bytes, c.reason, c.headerReason);

    // A texture without OpenGL codes is written with zero codes (glTypeSize 1), and that file is refused.
    const Bytes written = Saved(dir, Filled(CORBTextureHeader(ePF_BC7, 4, 4)), "bc7.ktx");
    EXPECT_EQ(From(written, 16, 20), Words({0, 1, 0, 0, 0}));
    EXPECT_EQ(CORBTexture((dir / "bc7.ktx").c_str()).getDataPtr(), nullptr);
}

TEST(KTXFile, PipesAndLongKeyValueData)
{
    ScratchDir dir;
    // A pipe is read straight through: pairs, padded rows, cube padding; one
    // that ends inside a pair declared far larger than what follows is refused.
    const std::string fifo = dir / "pipe.ktx";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const CORBTexture cube = Filled(CORBTextureHeader(kRGB8, 3, 5, 1, 2, 1, 6), 21);
    Bytes huge = KTXFile(KTXHeader(), Words({0x7FFFFFF0}), {});
    PutValue<uint32_t>(huge, 60, 0x7FFFFFF4);
    huge.resize(huge.size() + 1000, 'x');
    for (const Bytes& bytes : {Saved(dir, cube), huge})
    {
        std::thread writer([&] { WriteBytes(fifo, bytes); });
        const CORBTexture fromPipe(fifo.c_str());
        writer.join();
        EXPECT_EQ(DataOf(fromPipe), bytes == huge ? Bytes() : DataOf(cube));
    }
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

// (ASTCCodecTest hands the encoder KTX files written here and reads its .astc files.)
TEST(KTXInterop, FilesBothWaysWithTheASTCEncoder)
{
    REQUIRE_ENCODER();
    ScratchDir dir;
    // rgba8 KTX written here, one colour per 4 x 4 block, compresses through
    // ASTC 4x4 exactly. Its .astc file saves again byte for byte, and it
    // loads with the same blocks as the encoder's own compressed KTX; saved
    // as KTX here, it decodes to a KTX file of the same pixels, rgb8 when
    // alpha is constant.
    for (const uint8_t alpha : {0, 255})
    {
        SCOPED_TRACE(int(alpha));
        const Bytes pixels = Picture(16, 8, alpha);
        ASSERT_TRUE(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 8, 16), pixels.data())
                        .saveFile((dir / "lib.ktx").c_str()));
        ASSERT_TRUE(Encoder("-cl", dir / "lib.ktx", dir / "out.astc", "4x4 -medium"));
        ASSERT_TRUE(Encoder("-cl", dir / "lib.ktx", dir / "out.ktx", "4x4 -medium"));
        const CORBTexture compressed((dir / "out.astc").c_str()), fromKTX((dir / "out.ktx").c_str());
        EXPECT_EQ(compressed.getPixelType().PixelTypeID, uint64_t(ePF_ASTC_4x4));
        EXPECT_EQ(compressed.getWidth() * 100 + compressed.getHeight(), 1608u);
        EXPECT_TRUE(fromKTX.getPixelType() == compressed.getPixelType() && DataOf(fromKTX) == DataOf(compressed));
        ASSERT_TRUE(compressed.saveASTCFile((dir / "again.astc").c_str()));
        EXPECT_EQ(ReadBytes(dir / "again.astc"), ReadBytes(dir / "out.astc"));
        ASSERT_TRUE(compressed.saveFile((dir / "astc.ktx").c_str()));
        ASSERT_TRUE(Encoder("-dl", dir / "astc.ktx", dir / "decoded.ktx"));
        const CORBTexture decoded((dir / "decoded.ktx").c_str());
        EXPECT_EQ(decoded.getPixelType().PixelTypeID, alpha == 255 ? kRGB8 : ORBStandard8PixelType);
        EXPECT_EQ(Shape(decoded.getFileHeader()), (std::vector<uint32_t>{0, eVarUnsignedByteNorm, 8, 16, 1, 1, 1, 1}));
        Bytes expected;
        for (size_t i = 0; i < pixels.size(); ++i)
            if (i % 4 != 3 || alpha != 255)
                expected.push_back(pixels[i]);
        EXPECT_EQ(DataOf(decoded), expected);
    }
}
