// KTX 1.1 files: the written bytes against the published layout, hand-made
// files, orientation pairs, refusals, and round trips of levels, members and
// cube faces.

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::AppendValue;
using testsupport::PutValue;
using testsupport::ReadBytes;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

typedef std::vector<uint8_t> Bytes;

// OpenGL values, from the published headers.
constexpr uint32_t kGLUnsignedByte = 0x1401;
constexpr uint32_t kGLRGB = 0x1907;
constexpr uint32_t kGLRGBA = 0x1908;
constexpr uint32_t kGLRGB8 = 0x8051;
constexpr uint32_t kGLRGBA8 = 0x8058;
constexpr uint32_t kGLETC1 = 0x8D64;

const Bytes kIdentifier = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x31, 0x31, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};

struct KTXHeader
{
    uint32_t glType = kGLUnsignedByte, glTypeSize = 1, glFormat = kGLRGBA, glInternalFormat = kGLRGBA8,
             glBaseInternalFormat = kGLRGBA;
    uint32_t width = 2, height = 2, depth = 0, arrayElements = 0, faces = 1, levels = 1;
};

// A pair as the published format stores it: size word, key and value, padding.
Bytes Pair(const std::string& key, const Bytes& value)
{
    Bytes pair;
    AppendValue<uint32_t>(pair, uint32_t(key.size() + 1 + value.size()));
    pair.insert(pair.end(), key.begin(), key.end());
    pair.push_back(0);
    pair.insert(pair.end(), value.begin(), value.end());
    while (pair.size() % 4)
        pair.push_back(0);
    return pair;
}

Bytes Text(const char* text) { return Bytes(text, text + std::strlen(text) + 1); }

Bytes KTXFile(const KTXHeader& h, const Bytes& keyValueData, const Bytes& body)
{
    Bytes file = kIdentifier;
    for (uint32_t word : {0x04030201u, h.glType, h.glTypeSize, h.glFormat, h.glInternalFormat,
                          h.glBaseInternalFormat, h.width, h.height, h.depth, h.arrayElements, h.faces, h.levels,
                          uint32_t(keyValueData.size())})
        AppendValue(file, word);
    file.insert(file.end(), keyValueData.begin(), keyValueData.end());
    file.insert(file.end(), body.begin(), body.end());
    return file;
}

Bytes Pattern(size_t size, uint8_t seed)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = uint8_t(i * 11 + seed);
    return bytes;
}

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

CORBTexture Filled(const CORBTextureHeader& header, uint8_t seed = 1)
{
    return CORBTexture(header, Pattern(header.getDataSize(), seed).data());
}

const uint64_t kRGB8 = PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID;

} // namespace

TEST(KTXFile, WrittenBytesFollowThePublishedLayout)
{
    ScratchDir dir;
    // 4 x 1 rgba8, one level: height, depth and array count are written as 0.
    const CORBTexture texture = Filled(CORBTextureHeader(ORBStandard8PixelType, 1, 4));
    ASSERT_TRUE(texture.saveFile((dir / "row.ktx").c_str()));
    Bytes expected =
        Cat(kIdentifier, Words({0x04030201, kGLUnsignedByte, 1, kGLRGBA, kGLRGBA8, kGLRGBA, 4, 0, 0, 0, 1, 1, 32, 27}));
    expected = Cat(Cat(expected, Text("KTXOrientation")), Text("S=r,T=d,R=i"));
    expected.push_back(0);
    EXPECT_EQ(ReadBytes(dir / "row.ktx"), Cat(Cat(expected, Words({16})), Pattern(16, 1)));
    EXPECT_FALSE(std::filesystem::exists(dir / "row.ktx.orb"));

    // The orientation letters, each by its own axis.
    CORBTexture turned = texture;
    for (uint32_t bits : {1u, 2u, 4u, 7u})
    {
        turned.setOrientation(EORBTOrientation(bits));
        ASSERT_TRUE(turned.saveFile((dir / "turned.KTX").c_str()));
        const Bytes file = ReadBytes(dir / "turned.KTX");
        const std::string value(file.begin() + 64 + 4 + 15, file.begin() + 64 + 4 + 15 + 11);
        const std::string wanted = std::string("S=") + (bits & 1 ? 'l' : 'r') + ",T=" + (bits & 2 ? 'u' : 'd') +
                                   ",R=" + (bits & 4 ? 'o' : 'i');
        EXPECT_EQ(value, wanted);
        EXPECT_EQ(CORBTexture((dir / "turned.KTX").c_str()).getOrientation(eAxisY), bits & 2 ? eOrientUp : eOrientDown);
    }

    // Depth, array and face counts as they stand when not 1.
    const CORBTexture volume = Filled(CORBTextureHeader(ORBStandard8PixelType, 3, 2, 5, 1, 2));
    ASSERT_TRUE(volume.saveFile((dir / "volume.ktx").c_str()));
    const Bytes file = ReadBytes(dir / "volume.ktx");
    Bytes dimensions(file.begin() + 36, file.begin() + 64);
    EXPECT_EQ(dimensions, Words({2, 3, 5, 2, 1, 1, 32}));
}

TEST(KTXFile, RowsArePaddedButTheImageSizeIsNot)
{
    ScratchDir dir;
    // rgb8, 3 x 3: rows of 9 bytes and 3 zero bytes; the size word says 27,
    // and the level is padded to a multiple of 4 of 27.
    const CORBTexture texture = Filled(CORBTextureHeader(kRGB8, 3, 3), 100);
    ASSERT_TRUE(texture.saveFile((dir / "rgb.ktx").c_str()));
    const Bytes file = ReadBytes(dir / "rgb.ktx");
    ASSERT_EQ(file.size(), 64u + 32u + 4u + 36u + 1u);
    EXPECT_EQ(Bytes(file.begin() + 16, file.begin() + 36), Words({kGLUnsignedByte, 1, kGLRGB, kGLRGB8, kGLRGB}));
    const Bytes pixels = Pattern(27, 100);
    Bytes body = Words({27});
    for (int row = 0; row < 3; ++row)
    {
        body.insert(body.end(), pixels.begin() + row * 9, pixels.begin() + row * 9 + 9);
        body.insert(body.end(), 3, 0);
    }
    body.push_back(0);
    EXPECT_EQ(Bytes(file.begin() + 96, file.end()), body);

    const CORBTexture loaded((dir / "rgb.ktx").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(loaded.getPixelType().PixelTypeID, kRGB8);
    ASSERT_EQ(loaded.getDataSize(), 27u);
    EXPECT_EQ(Bytes(loaded.getDataPtr(), loaded.getDataPtr() + 27), pixels);
}

TEST(KTXFile, CubeMapsCountOneFace)
{
    ScratchDir dir;
    // ETC1 cube, 8 x 8 then 4 x 4: the size word counts one face.
    const CORBTexture cube = Filled(CORBTextureHeader(ePF_ETC1, 8, 8, 1, 2, 1, 6), 3);
    ASSERT_TRUE(cube.saveFile((dir / "cube.ktx").c_str()));
    const Bytes file = ReadBytes(dir / "cube.ktx");
    ASSERT_EQ(file.size(), 96u + 4 + 6 * 32 + 4 + 6 * 8);
    EXPECT_EQ(Bytes(file.begin() + 16, file.begin() + 36), Words({0, 1, 0, kGLETC1, kGLRGB}));
    EXPECT_EQ(Bytes(file.begin() + 96, file.begin() + 100), Words({32}));
    EXPECT_EQ(Bytes(file.begin() + 100 + 6 * 32, file.begin() + 104 + 6 * 32), Words({8}));
    const Bytes data = Pattern(cube.getDataSize(), 3);
    EXPECT_EQ(Bytes(file.begin() + 100, file.begin() + 100 + 6 * 32), Bytes(data.begin(), data.begin() + 6 * 32));

    // An array of cubes: the size word counts every face of every member.
    const CORBTexture cubes = Filled(CORBTextureHeader(ePF_ETC1, 4, 4, 1, 1, 2, 6));
    ASSERT_TRUE(cubes.saveFile((dir / "cubes.ktx").c_str()));
    const Bytes arrayFile = ReadBytes(dir / "cubes.ktx");
    ASSERT_EQ(arrayFile.size(), 96u + 4 + 12 * 8);
    EXPECT_EQ(Bytes(arrayFile.begin() + 96, arrayFile.begin() + 100), Words({96}));

    // rgb8 1 x 1 cube: each face's row is padded to 4, then the face by its
    // own size of 3 to 4, and the level by the size word of 3.
    const CORBTexture small = Filled(CORBTextureHeader(kRGB8, 1, 1, 1, 1, 1, 6), 9);
    ASSERT_TRUE(small.saveFile((dir / "small.ktx").c_str()));
    const Bytes smallFile = ReadBytes(dir / "small.ktx");
    const Bytes faces = Pattern(18, 9);
    Bytes body = Words({3});
    for (int face = 0; face < 6; ++face)
    {
        body.insert(body.end(), faces.begin() + face * 3, faces.begin() + face * 3 + 3);
        body.insert(body.end(), 2, 0);
    }
    body.push_back(0);
    EXPECT_EQ(Bytes(smallFile.begin() + 96, smallFile.end()), body);
    const CORBTexture loaded((dir / "small.ktx").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(Bytes(loaded.getDataPtr(), loaded.getDataPtr() + 18), faces);
}

TEST(KTXFile, RoundTripsOfLevelsMembersAndFaces)
{
    ScratchDir dir;
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(ORBStandard8PixelType, 3, 5, 1, 3, 2),           // odd sizes, members
        CORBTextureHeader(kRGB8, 6, 7, 1, 3, 1, 6),                         // padded rows, cube
        CORBTextureHeader(kRGB8, 2, 3, 4, 2),                               // padded rows, volume
        CORBTextureHeader(ePF_ETC1, 16, 16, 1, 5, 1, 6),                    // compressed cube
        CORBTextureHeader(ePF_ASTC_5x5, 9, 12, 1, 4, 3),                    // ASTC array
        CORBTextureHeader(ePF_RGB9E5, 3, 3, 1, 2, 1, 1, eColourSpaceLinear, eVarUnsignedFloat),
        CORBTextureHeader(PixelType('r', 0, 0, 0, 16, 0, 0, 0).PixelTypeID, 5, 3, 1, 3, 2, 6,
                          eColourSpaceLinear, eVarSignedShortNorm), // array of cubes
        CORBTextureHeader(ORBStandard8PixelType, 1, 1, 1, 1, 1, 1, eColourSpaceSRGB),
    };
    for (const CORBTextureHeader& header : headers)
    {
        SCOPED_TRACE(ORBTGetPixelFormatName(header.getPixelType().PixelTypeID).c_str());
        const CORBTexture texture = Filled(header, 7);
        ASSERT_TRUE(texture.saveFile((dir / "trip.ktx").c_str()));
        CORBTexture loaded((dir / "trip.ktx").c_str());
        ASSERT_NE(loaded.getDataPtr(), nullptr) << ORBTGetLastError();
        // Pixel format through number of MIP levels; the orientation item adds metadata.
        const ORBTextureHeaderV3 a = texture.getFileHeader(), b = loaded.getFileHeader();
        EXPECT_EQ(std::memcmp(reinterpret_cast<const uint8_t*>(&a) + 8, reinterpret_cast<const uint8_t*>(&b) + 8, 40),
                  0);
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
    const Bytes pixels = Pattern(8, 40);
    Bytes body = Words({8});
    body.insert(body.end(), pixels.begin(), pixels.end());

    // No pairs: no orientation item; height 0 loads as 1.
    WriteBytes(dir / "plain.ktx", KTXFile(header, {}, body));
    CORBTexture plain((dir / "plain.ktx").c_str());
    ASSERT_NE(plain.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_TRUE(plain.getHeight() == 1 && plain.getWidth() == 2);
    EXPECT_FALSE(plain.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation));
    EXPECT_EQ(Bytes(plain.getDataPtr(), plain.getDataPtr() + 8), pixels);

    struct Case
    {
        Bytes pairs;
        uint32_t orientation;
    };
    const Bytes foreign = Pair("Vendor", Text("x"));
    const Case cases[] = {
        {Pair("KTXOrientation", Text("S=l,T=u,R=o")), 7},
        {Pair("KTXOrientation", Text("S=r,T=d,R=i")), 0},
        {Pair("KTXOrientation", Text("S=r,T=dd,R=i")), 2}, // a 'd' count other than 1
        {Pair("KTXOrientation", Text("S=l,T=d")), 1},
        {Pair("KTXOrientation", Text("ll")), 2},           // two 'l' set nothing; no 'd' sets Y
        {Pair("KTXOrientation", Bytes{'l', 'd', 'o', 0, 'o', 'd'}), 5}, // text ends at its zero
        {foreign, 0},                                      // any pair gives an orientation item
        {Cat(Pair("KTXOrientation", Text("S=l,T=d,R=i")), foreign), 1},
    };
    for (const Case& c : cases)
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
    CORBTextureHeader read;
    CORBTString container;
    CORBTArray<CORBTString> fields;
    ASSERT_TRUE(ORBTReadTextureFileInfo((dir / "info.ktx").c_str(), read, container, fields));
    EXPECT_STREQ(container.c_str(), "ktx");
    std::string shown;
    for (unsigned i = 0; i < fields.GetSize(); ++i)
        shown += std::string(fields[i].c_str()) + "\n";
    EXPECT_EQ(shown, "identifier: AB 4B 54 58 20 31 31 BB 0D 0A 1A 0A\n"
                     "endianness: 0x04030201\nglType: 0x1401\nglTypeSize: 1\nglFormat: 0x1908\n"
                     "glInternalFormat: 0x8058\nglBaseInternalFormat: 0x1908\npixelWidth: 2\npixelHeight: 0\n"
                     "pixelDepth: 0\nnumberOfArrayElements: 0\nnumberOfFaces: 1\nnumberOfMipmapLevels: 1\n"
                     "bytesOfKeyValueData: 44\nkey: KTXOrientation\nvalue: S=r,T=u,R=i\nkey: Blob\n");
    EXPECT_EQ(read.getOrientation(eAxisY), eOrientUp);
}

TEST(KTXFile, Refusals)
{
    ScratchDir dir;
    const KTXHeader header;
    Bytes body = Words({16});
    body.resize(20, 5);
    const Bytes valid = KTXFile(header, {}, body);

    struct Case
    {
        const char* expected;
        Bytes bytes;
    };
    auto with = [&](void (*edit)(KTXHeader&), const Bytes& pairs = {}) {
        KTXHeader h = header;
        edit(h);
        return KTXFile(h, pairs, body);
    };
    auto patched = [&](Bytes bytes, size_t offset, uint32_t word) {
        PutValue(bytes, offset, word);
        return bytes;
    };
    Bytes wrongIdentifier = valid, cut = valid;
    wrongIdentifier[5] = '2';
    cut.pop_back();
    const Bytes pastBlock = patched(Pair("Key", Text("value")), 0, 13); // pairs must stay inside their block

    const Case cases[] = {
        {"file too short to be a texture", {}},
        {"file too short to be a texture", Bytes(kIdentifier.begin(), kIdentifier.begin() + 8)},
        {"truncated header", Bytes(valid.begin(), valid.begin() + 63)},
        {"not a ktx file (wrong identifier)", wrongIdentifier},
        {"not a ktx file (wrong identifier)", {0xAB, 0x4B, 0x54, 0x59}},
        {"ktx header: endianness 0x01020304: big-endian files are not supported", patched(valid, 12, 0x01020304)},
        {"ktx: no pixel format for glInternalFormat 0x1234, glFormat 0x1908, glType 0x1401",
         with([](KTXHeader& h) { h.glInternalFormat = 0x1234; })},
        {"declares no surfaces", KTXFile([] { KTXHeader h; h.levels = 0; return h; }(), {}, {})},
        {"declares no surfaces", with([](KTXHeader& h) { h.faces = 0; })},
        {"3 MIP levels, but a largest side of 2 allows at most 2", with([](KTXHeader& h) { h.levels = 3; })},
        // A side with its top bit set allows 32 levels.
        {"33 MIP levels, but a largest side of 2147483648 allows at most 32",
         with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 33; })},
        {"texture too large: its data size does not fit in 32 bits",
         with([](KTXHeader& h) { h.height = 0x80000000u, h.levels = 32; })},
        // 4096 array members of 16 bytes each claimed by a file of 20 bytes of data.
        {"pixel data short by 65520 bytes", with([](KTXHeader& h) { h.arrayElements = 4096; })},
        {"ktx header: key/value pair 0 of 13 bytes runs past bytesOfKeyValueData", KTXFile(header, pastBlock, body)},
        {"ktx header: key/value pair 0 runs past bytesOfKeyValueData", KTXFile(header, {0, 0}, body)},
        {"ktx header: bytesOfKeyValueData 4000 runs past the end of the file", patched(valid, 60, 4000)},
        {"pixel data short by 1 bytes", cut},
        {"pixel data missing", KTXFile(header, {}, {})},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.expected);
        WriteBytes(dir / "case.ktx", c.bytes);
        EXPECT_EQ(CORBTexture((dir / "case.ktx").c_str()).getDataPtr(), nullptr);
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        CORBTexture texture;
        EXPECT_FALSE(texture.loadFromMemory(c.bytes.data(), c.bytes.size(), "case.ktx"));
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        EXPECT_EQ(texture.getDataSize(), 0u);
    }
    CORBTexture texture;
    EXPECT_TRUE(texture.loadFromMemory(valid.data(), valid.size(), "case.ktx")) << ORBTGetLastError();

    // A texture without OpenGL codes is written with zero codes, and that
    // file is refused.
    const CORBTexture bc7 = Filled(CORBTextureHeader(ePF_BC7, 4, 4));
    ASSERT_TRUE(bc7.saveFile((dir / "bc7.ktx").c_str()));
    const Bytes written = ReadBytes(dir / "bc7.ktx");
    ASSERT_GE(written.size(), 32u);
    for (size_t offset : {16, 24, 28, 32})
        EXPECT_EQ(written[offset], 0) << offset;
    EXPECT_EQ(written[20], 1); // glTypeSize of a named format without codes
    EXPECT_EQ(CORBTexture((dir / "bc7.ktx").c_str()).getDataPtr(), nullptr);
}

TEST(KTXFile, PipesAndLongKeyValueData)
{
    ScratchDir dir;
    // A pipe is read straight through: pairs, padded rows, cube padding.
    const std::string fifo = dir / "pipe.ktx";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const CORBTexture cube = Filled(CORBTextureHeader(kRGB8, 3, 5, 1, 2, 1, 6), 21);
    ASSERT_TRUE(cube.saveFile((dir / "cube.ktx").c_str()));
    Bytes bytes = ReadBytes(dir / "cube.ktx");
    std::thread writer([&] { WriteBytes(fifo, bytes); });
    const CORBTexture fromPipe(fifo.c_str());
    writer.join();
    ASSERT_NE(fromPipe.getDataPtr(), nullptr) << ORBTGetLastError();
    ASSERT_EQ(fromPipe.getDataSize(), cube.getDataSize());
    EXPECT_EQ(std::memcmp(fromPipe.getDataPtr(), cube.getDataPtr(), cube.getDataSize()), 0);

    // A pipe that ends inside a pair declared far larger than what follows.
    KTXHeader header;
    Bytes huge = KTXFile(header, Words({0x7FFFFFF0}), {});
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
    Bytes body = Words({16});
    body.resize(20, 0);
    WriteBytes(dir / "pairs.ktx", KTXFile(header, pairs, body));
    CORBTextureHeader read;
    CORBTString container;
    CORBTArray<CORBTString> fields;
    ASSERT_TRUE(ORBTReadTextureFileInfo((dir / "pairs.ktx").c_str(), read, container, fields));
    ASSERT_EQ(fields.GetSize(), 14u + 32u * 2u + 1u);
    EXPECT_STREQ(fields[14 + 62].c_str(), "key: k31");
    EXPECT_STREQ(fields[14 + 64].c_str(), "more key/value pairs: 8");
}
