// DDS files: what is refused, the header bytes the writer produces, how the
// reader picks a pixel format from masks, FourCCs and the DX10 header, and
// the surface order (array member, face, then MIP level).

#include <array>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::AppendValue;
using testsupport::ReadBytes;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

constexpr uint32_t FourCC(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) | uint32_t(uint8_t(text[1])) << 8 | uint32_t(uint8_t(text[2])) << 16 |
           uint32_t(uint8_t(text[3])) << 24;
}

// A hand-made DDS file; the defaults make a 4 x 4 header of one level.
struct DDSFile
{
    uint32_t size = 124;
    uint32_t flags = 0x1007;
    uint32_t height = 4, width = 4, pitch = 0, depth = 0, mips = 0;
    uint32_t pixelFlags = 0, fourCC = 0, bits = 0;
    std::array<uint32_t, 4> masks = {0, 0, 0, 0};
    uint32_t caps = 0x1000, caps2 = 0;
    bool dx10 = false;
    uint32_t dxgiFormat = 0, dimension = 3, miscFlag = 0, arraySize = 1;
    std::vector<uint8_t> data;

    std::vector<uint8_t> Bytes() const
    {
        std::vector<uint8_t> bytes = {'D', 'D', 'S', ' '};
        for (uint32_t word : {size, flags, height, width, pitch, depth, mips})
            AppendValue(bytes, word);
        bytes.resize(76);
        for (uint32_t word : {32u, pixelFlags, fourCC, bits, masks[0], masks[1], masks[2], masks[3], caps, caps2})
            AppendValue(bytes, word);
        bytes.resize(128);
        if (dx10)
            for (uint32_t word : {dxgiFormat, dimension, miscFlag, arraySize, 0u})
                AppendValue(bytes, word);
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    }
};

std::vector<uint8_t> Pattern(size_t count, uint8_t seed = 0)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = uint8_t(i * 7 + seed);
    return bytes;
}

DDSFile MaskFile(uint32_t pixelFlags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    DDSFile file;
    file.pixelFlags = pixelFlags;
    file.bits = bits;
    file.masks = {r, g, b, a};
    file.data = Pattern(16 * bits / 8);
    return file;
}

DDSFile DX10File(uint32_t dxgiFormat, uint32_t dataBytes)
{
    DDSFile file;
    file.pixelFlags = 4;
    file.fourCC = FourCC("DX10");
    file.dx10 = true;
    file.dxgiFormat = dxgiFormat;
    file.data = Pattern(dataBytes);
    return file;
}

uint32_t Word(const std::vector<uint8_t>& bytes, size_t offset)
{
    uint32_t word = 0;
    if (offset + 4 <= bytes.size())
        std::memcpy(&word, bytes.data() + offset, 4);
    return word;
}

typedef std::vector<uint32_t> Words;

Words WordsAt(const std::vector<uint8_t>& bytes, size_t offset, size_t count)
{
    Words words;
    for (size_t i = 0; i < count; ++i)
        words.push_back(Word(bytes, offset + 4 * i));
    return words;
}

template <typename Edit>
DDSFile With(DDSFile file, Edit edit)
{
    edit(file);
    return file;
}

CORBTexture Load(const std::vector<uint8_t>& bytes)
{
    CORBTexture texture;
    EXPECT_TRUE(texture.loadFromMemory(bytes.data(), bytes.size(), "x.dds")) << ORBTGetLastError();
    return texture;
}

CORBTexture Texture(PixelType format, EORBTVariableType type, uint32_t width, uint32_t height, uint32_t depth = 1,
                    uint32_t levels = 1, uint32_t members = 1, uint32_t faces = 1,
                    EORBTColourSpace space = eColourSpaceLinear)
{
    CORBTexture texture(CORBTextureHeader(format.PixelTypeID, height, width, depth, levels, members, faces, space, type), nullptr);
    const std::vector<uint8_t> pattern = Pattern(texture.getDataSize(), 3);
    std::memcpy(texture.getDataPtr(), pattern.data(), pattern.size());
    return texture;
}

std::vector<uint8_t> Saved(const ScratchDir& dir, const CORBTexture& texture)
{
    const std::string path = dir / "saved.dds";
    EXPECT_TRUE(texture.saveFile(path.c_str()));
    return ReadBytes(path);
}

bool SameHeaderAndData(const CORBTexture& a, const CORBTexture& b)
{
    const ORBTextureHeaderV3 x = a.getFileHeader(), y = b.getFileHeader();
    return x.pixelFormat == y.pixelFormat && x.channelType == y.channelType && x.width == y.width &&
           x.height == y.height && x.depth == y.depth && x.numMIPMaps == y.numMIPMaps &&
           x.numSurfaces == y.numSurfaces && x.numFaces == y.numFaces && a.getDataSize() == b.getDataSize() &&
           a.getDataPtr() && b.getDataPtr() && std::memcmp(a.getDataPtr(), b.getDataPtr(), a.getDataSize()) == 0;
}

const PixelType kRGBA8 = ORBStandard8PixelType;
const PixelType kA8 = PixelType('a', 0, 0, 0, 8, 0, 0, 0);
const PixelType kL8 = PixelType('l', 0, 0, 0, 8, 0, 0, 0);
const PixelType kR8 = PixelType('r', 0, 0, 0, 8, 0, 0, 0);
const PixelType kARGB8 = PixelType('a', 'r', 'g', 'b', 8, 8, 8, 8);

} // namespace

TEST(DDSFile, RefusedFilesLeaveAnEmptyTexture)
{
    ScratchDir dir;
    const DDSFile l8 = MaskFile(0x20000, 8, 0xFF, 0, 0, 0);
    std::vector<uint8_t> short127 = l8.Bytes(), lowerMagic = l8.Bytes(), dx10Of147 = DX10File(61, 0).Bytes();
    short127.resize(127);
    lowerMagic[0] = 'd';
    dx10Of147.resize(147);
    const DDSFile tooManyLevels = With(l8, [](DDSFile& f) {
        f.flags |= 0x20000;
        f.mips = 4;
        f.data = Pattern(16 + 4 + 1 + 1);
    });
    // Array sizes only the file can bound: one byte a member, or more than 32 bits.
    const DDSFile manyMembers = With(DX10File(61, 1), [](DDSFile& f) {
        f.width = f.height = 1;
        f.arraySize = 0x10000000;
    });

    struct Case
    {
        const char* expected;
        std::vector<uint8_t> bytes;
    };
    const Case cases[] = {
        {"file too short to be a texture", {}},
        {"file too short to be a texture", short127},
        {"not a dds file (wrong identifier)", lowerMagic},
        {"dds header: size 123, not 124", With(l8, [](DDSFile& f) { f.size = 123; }).Bytes()},
        {"truncated header", dx10Of147},
        {"dds header: resourceDimension 1", With(DX10File(61, 16), [](DDSFile& f) { f.dimension = 1; }).Bytes()},
        {"dds header: resourceDimension 5", With(DX10File(61, 16), [](DDSFile& f) { f.dimension = 5; }).Bytes()},
        {"dds: no pixel format for Direct3D format 0 (pixel format flags 0x20000, 8 bits, masks 0xF 0x0 0x0 0xF0)",
         MaskFile(0x20000, 8, 0xF, 0, 0, 0xF0).Bytes()},
        {"dds: no pixel format for FourCC ABCD",
         With(MaskFile(4 | 0x40, 32, 0xFF0000, 0xFF00, 0xFF, 0), [](DDSFile& f) { f.fourCC = FourCC("ABCD"); })
             .Bytes()},
        {"dds: no pixel format for DXGI format 999", DX10File(999, 16).Bytes()},
        {"dds: no pixel format for DXGI format 0", DX10File(0, 16).Bytes()},
        {"4 MIP levels, but a largest side of 4 allows at most 3", tooManyLevels.Bytes()},
        {"33 MIP levels, but a largest side of 2147483648 allows at most 32", With(tooManyLevels, [](DDSFile& f) {
             f.width = 0x80000000u;
             f.height = 1;
             f.mips = 33;
         }).Bytes()},
        {"declares no surfaces", With(tooManyLevels, [](DDSFile& f) { f.mips = 0; }).Bytes()},
        {"pixel data short by 1 bytes", With(l8, [](DDSFile& f) { f.data.pop_back(); }).Bytes()},
        // A FourCC file of exactly 128 bytes passes the header checks.
        {"pixel data missing", With(DDSFile(), [](DDSFile& f) {
             f.width = f.height = 0;
             f.pixelFlags = 4;
             f.fourCC = FourCC("DXT1");
         }).Bytes()},
        {"pixel data short by 268435455 bytes", manyMembers.Bytes()},
        {"texture too large: its data size does not fit in 32 bits", With(manyMembers, [](DDSFile& f) {
             f.arraySize = 0xFFFFFFFF;
             f.miscFlag = 4;
         }).Bytes()},
    };

    const CORBTexture loaded = Texture(kRGBA8, eVarUnsignedByteNorm, 2, 2);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.expected);
        CORBTexture texture(loaded);
        EXPECT_FALSE(texture.loadFromMemory(c.bytes.data(), c.bytes.size(), "x.dds"));
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        EXPECT_EQ(texture.getDataPtr(), nullptr);
        EXPECT_EQ(texture.getDataSize(), 0u);
        EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_NumCompressed));

        WriteBytes(dir / "case.DDS", c.bytes);
        EXPECT_EQ(CORBTexture((dir / "case.DDS").c_str()).getDataPtr(), nullptr);
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
        CORBTextureHeader header;
        EXPECT_FALSE(ORBTReadTextureHeader((dir / "case.DDS").c_str(), header));
        EXPECT_STREQ(ORBTGetLastError(), c.expected);
    }
}

TEST(DDSFile, MaskRowHeaderBytes)
{
    ScratchDir dir;
    // argb 8.8.8.8 with packed channels has a Direct3D code of the mask table.
    const CORBTexture texture = Texture(kARGB8, eVarUnsignedIntegerNorm, 5, 3, 1, 2);
    const std::vector<uint8_t> bytes = Saved(dir, texture);
    ASSERT_EQ(bytes.size(), 128u + (15 + 2) * 4);
    // Flags 0x1007 with MIP count and pitch; pitch (32 * 5 + 7) >> 3; the
    // FourCC field keeps "DX10", unused without pixel format flag 4.
    const Words expected = {FourCC("DDS "), 124, 0x2100F, 3, 5, 20, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                            32, 0x41, FourCC("DX10"), 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 0x401008, 0, 0, 0, 0};
    EXPECT_EQ(WordsAt(bytes, 0, 32), expected);
    EXPECT_TRUE(SameHeaderAndData(texture, CORBTexture((dir / "saved.dds").c_str())));
}

TEST(DDSFile, MaskRowsByCode)
{
    ScratchDir dir;
    struct Row
    {
        uint32_t code;
        PixelType layout;
        EORBTVariableType type;
        uint32_t flags, bits, r, g, b, a;
    };
    const Row rows[] = {
        {20, PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), eVarUnsignedByteNorm, 0x40, 24, 0xFF0000, 0xFF00, 0xFF, 0},
        {23, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedShortNorm, 0x40, 16, 0xF800, 0x7E0, 0x1F, 0},
        {28, kA8, eVarUnsignedByteNorm, 0x2, 8, 0, 0, 0, 0xFF},
        {34, PixelType('g', 'r', 0, 0, 16, 16, 0, 0), eVarUnsignedShortNorm, 0x40, 32, 0xFFFF, 0xFFFF0000, 0, 0},
        {35, PixelType('a', 'r', 'g', 'b', 2, 10, 10, 10), eVarUnsignedIntegerNorm, 0x41, 32, 0x3FF, 0xFFC00,
         0x3FF00000, 0xC0000000},
        {52, PixelType('a', 'l', 0, 0, 4, 4, 0, 0), eVarUnsignedByteNorm, 0x20001, 8, 0xF, 0, 0, 0xF0},
        {61, PixelType('l', 'g', 'r', 0, 6, 5, 5, 0), eVarSignedIntegerNorm, 0x40000, 16, 0x1F, 0x3E0, 0xFC00, 0},
        {67, PixelType('a', 'b', 'g', 'r', 2, 10, 10, 10), eVarSignedIntegerNorm, 0x80001, 32, 0x3FF00000, 0xFFC00,
         0x3FF, 0xC0000000},
        {81, PixelType('l', 0, 0, 0, 16, 0, 0, 0), eVarUnsignedShortNorm, 0x20000, 16, 0xFFFF, 0, 0, 0},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.code);
        const CORBTexture texture = Texture(row.layout.PixelTypeID, row.type, 3, 2);
        ASSERT_EQ(texture.getD3DFormat(), row.code);
        const std::vector<uint8_t> bytes = Saved(dir, texture);
        ASSERT_EQ(bytes.size(), 128u + 6 * row.bits / 8);
        EXPECT_EQ(Word(bytes, 8), 0x100Fu);
        EXPECT_EQ(Word(bytes, 20), (row.bits * 3 + 7) / 8);
        EXPECT_EQ(WordsAt(bytes, 80, 9),
                  (Words{row.flags, FourCC("DX10"), row.bits, row.r, row.g, row.b, row.a, 0x1000, 0}));
        // The masks lead back to the code; the pixels come back unchanged.
        const CORBTexture reloaded = Load(bytes);
        EXPECT_EQ(reloaded.getD3DFormat(), row.code);
        ASSERT_EQ(reloaded.getDataSize(), texture.getDataSize());
        EXPECT_EQ(std::memcmp(reloaded.getDataPtr(), texture.getDataPtr(), texture.getDataSize()), 0);
    }
}

TEST(DDSFile, FourCCAndDX10HeaderBytes)
{
    ScratchDir dir;
    struct Case
    {
        const char* what;
        CORBTexture texture;
        size_t size; // 0: not compared
        std::vector<std::pair<size_t, uint32_t>> words;
    };
    const uint32_t dx10 = FourCC("DX10");
    const Case cases[] = {
        {"named format: linear size and FourCC", Texture(ePF_DXT1, eVarUnsignedByteNorm, 8, 8, 1, 2), 128 + 32 + 8,
         {{8, 0xA1007}, {20, 40}, {80, 4}, {84, FourCC("DXT1")}, {88, 0}, {92, 0}, {96, 0}, {100, 0}, {104, 0},
          {108, 0x401008}}},
        {"ORBTC", Texture(ePF_ORBTC_4bpp_RGB, eVarUnsignedByteNorm, 8, 8), 0, {{84, FourCC("OTC4")}, {20, 32}}},
        {"layout of the FourCC group: plain number, pitch by the layout",
         Texture(PixelType('r', 0, 0, 0, 32, 0, 0, 0).PixelTypeID, eVarSignedFloat, 3, 1), 128 + 12,
         {{8, 0x100F}, {20, 12}, {80, 4}, {84, 114}, {88, 0}}},
        {"no Direct3D code: DX10, one dimension for a height of 1",
         Texture(kRGBA8, eVarUnsignedByteNorm, 4, 1, 1, 1, 1, 1, eColourSpaceSRGB), 148 + 16,
         {{80, 4}, {84, dx10}, {88, 0}, {92, 0}, {128, 29}, {132, 2}, {136, 0}, {140, 1}, {144, 0}}},
        {"Direct3D code outside both groups", Texture(ePF_RGBG8888, eVarUnsignedByteNorm, 4, 2), 148 + 16,
         {{84, dx10}, {128, 68}, {132, 3}}},
        {"two members force DX10 even with a mask-table code",
         Texture(kA8.PixelTypeID, eVarUnsignedByteNorm, 2, 2, 1, 1, 2), 148 + 8,
         {{8, 0x100F}, {80, 4}, {128, 65}, {132, 3}, {140, 2}}},
        {"cube map", Texture(kRGBA8, eVarUnsignedByteNorm, 4, 4, 1, 1, 1, 6), 0,
         {{108, 0x1008}, {112, 0xFE00}, {136, 4}}},
        {"cube volume", Texture(kRGBA8, eVarUnsignedByteNorm, 4, 4, 2, 2, 1, 6), 0,
         {{8, 0x82100F}, {24, 2}, {108, 0x401008}, {112, 0x20FE00}, {132, 4}, {136, 4}}},
        {"volume", Texture(kL8.PixelTypeID, eVarUnsignedByteNorm, 4, 4, 4), 0,
         {{8, 0x80100F}, {108, 0x1000}, {112, 0x200000}}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        const std::vector<uint8_t> bytes = Saved(dir, c.texture);
        EXPECT_TRUE(c.size == 0 || bytes.size() == c.size) << bytes.size();
        for (const auto& word : c.words)
            EXPECT_EQ(Word(bytes, word.first), word.second) << "offset " << word.first;
    }
}

TEST(DDSFile, MasksPickTheirRow)
{
    struct Case
    {
        uint32_t flags, bits, r, g, b, a;
        uint32_t code; // 0: refused
    };
    const Case cases[] = {
        {0x41, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 21},
        {0x40, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 0}, // alpha rows need the alpha bit
        {0x41, 24, 0xFF0000, 0xFF00, 0xFF, 0, 0},          // and the others its absence
        {0x40, 24, 0xFF0000, 0xFF00, 0xFF, 0x12345678, 20}, // a zero alpha mask is not compared
        {0x40, 32, 0xFFFF, 0xFFFF0000, 0xFF, 0xFF, 34},     // row 34 compares red and green
        // The first group flag decides: RGB, bump luminance, bump, luminance, alpha.
        {0x20040, 8, 0xFF, 0, 0, 0, 0},
        {0x40040, 32, 0xFF, 0xFF00, 0xFF0000, 0, 0},
        {0xC0000, 16, 0xFF, 0xFF00, 0, 0, 0},
        {0xA0000, 8, 0xFF, 0, 0, 0, 0},
        {0x20002, 8, 0, 0, 0, 0xFF, 0},
        {0x40001, 32, 0xFF, 0xFF00, 0xFF0000, 0, 62},       // bump rows ignore the alpha bit
        {0x80000, 32, 0xFF, 0, 0, 0xFF000000, 63},          // red alone picks 63 ...
        {0x80000, 32, 0x12, 0, 0, 0xFF000000, 64},          // ... or 64
        {0x80000, 32, 0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000, 67},
        {0x80000, 32, 0xFFFF, 0xFFFF0000, 0, 0xC0000000, 64},
        {0x80000, 16, 0xFF, 0xFF00, 0, 0, 60},
        {0x20001, 8, 0xFF, 0, 0, 0xF0, 50},
        {0x20001, 8, 0xF, 0, 0, 0xF0, 52},
        {0x20000, 16, 0xFFFF, 0, 0, 0, 81},
        {0x20001, 16, 0xFFFF, 0, 0, 0, 81},
        {0x20000, 16, 0xFF, 0, 0, 0xFF00, 0},
        {0x20001, 16, 0xFF, 0, 0, 0xFF00, 51},
        {0x2, 8, 0, 0, 0, 0xFF, 28},
        {0x2, 16, 0, 0, 0, 0xFF, 0},
        {0x1, 8, 0xFF, 0, 0, 0, 0},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(::testing::Message() << std::hex << c.flags << " " << std::dec << c.bits << " bits, " << std::hex
                                          << c.r << " " << c.g << " " << c.b << " " << c.a);
        const std::vector<uint8_t> bytes = MaskFile(c.flags, c.bits, c.r, c.g, c.b, c.a).Bytes();
        CORBTexture texture;
        ASSERT_EQ(texture.loadFromMemory(bytes.data(), bytes.size(), "x.dds"), c.code != 0);
        if (c.code == 0)
        {
            EXPECT_NE(std::string(ORBTGetLastError()).find("no pixel format for Direct3D format 0"), std::string::npos);
            continue;
        }
        CORBTextureHeader expected;
        ASSERT_TRUE(expected.setD3DFormat(c.code));
        EXPECT_EQ(texture.getPixelType().PixelTypeID, expected.getPixelType().PixelTypeID);
        EXPECT_EQ(texture.getChannelType(), expected.getChannelType());
        EXPECT_EQ(std::memcmp(texture.getDataPtr(), bytes.data() + 128, bytes.size() - 128), 0);
    }
}

TEST(DDSFile, HeaderFieldsDecideDepthLevelsAndFaces)
{
    // Depth and MIP count count only with their flags.
    DDSFile file;
    file.width = file.height = 8;
    file.depth = 3;
    file.mips = 2;
    file.pixelFlags = 4;
    file.fourCC = FourCC("DXT1");
    file.data = Pattern(32);
    CORBTexture texture = Load(file.Bytes());
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_DXT1));
    EXPECT_TRUE(texture.getDepth() == 1 && texture.getNumMIPLevels() == 1);
    file.flags |= 0x800000 | 0x20000;
    file.data = Pattern(3 * 32 + 8);
    texture = Load(file.Bytes());
    EXPECT_TRUE(texture.getDepth() == 3 && texture.getNumMIPLevels() == 2 && texture.getNumFaces() == 1);
    // Any one bit of 0xFE00 in caps2 makes a cube map.
    file.flags = 0x1007;
    file.caps2 = 0x400;
    file.data = Pattern(6 * 32);
    EXPECT_EQ(Load(file.Bytes()).getNumFaces(), 6u);

    // DX10: r 8 arrays of cube maps with two levels: 3 members, 6 faces, 4 x 2 then 2 x 1.
    file = DX10File(61, 3 * 6 * (8 + 2));
    file.width = 4;
    file.height = 2;
    file.flags |= 0x20000;
    file.mips = 2;
    file.arraySize = 3;
    file.miscFlag = 4;
    std::vector<uint8_t> bytes = file.Bytes();
    texture = Load(bytes);
    EXPECT_EQ(texture.getPixelType().PixelTypeID, kR8.PixelTypeID);
    EXPECT_TRUE(texture.getNumArrayMembers() == 3 && texture.getNumFaces() == 6 && texture.getNumMIPLevels() == 2);
    // In the file each member's faces follow one another, each with its levels.
    size_t offset = 128 + 20;
    for (uint32_t member = 0; member < 3; ++member)
        for (uint32_t face = 0; face < 6; ++face)
            for (uint32_t mip = 0; mip < 2; ++mip)
            {
                const uint32_t size = mip == 0 ? 8 : 2;
                EXPECT_EQ(std::memcmp(texture.getDataPtr(mip, member, face), bytes.data() + offset, size), 0)
                    << member << " " << face << " " << mip;
                offset += size;
            }

    // Array size 0 is one member; no cube flag, one face.
    file = DX10File(61, 16);
    file.arraySize = 0;
    texture = Load(file.Bytes());
    EXPECT_TRUE(texture.getNumArrayMembers() == 1 && texture.getNumFaces() == 1);

    // The dimension cuts height and depth; the depth flag still decides depth.
    file = DX10File(61, 4);
    file.flags |= 0x800000;
    file.depth = 4;
    const uint32_t expected[][3] = {{2, 1, 1}, {3, 4, 1}, {4, 4, 4}}; // dimension, height, depth
    for (const auto& e : expected)
    {
        file.dimension = e[0];
        file.data = Pattern(4 * e[1] * e[2]);
        texture = Load(file.Bytes());
        EXPECT_TRUE(texture.getHeight() == e[1] && texture.getDepth() == e[2]) << e[0];
    }
}

TEST(DDSFile, DXTBlocksLoadAndSaveUnchanged)
{
    ScratchDir dir;
    // The header a writer of this library produces, built field by field.
    DDSFile file;
    file.flags = 0xA1007;
    file.width = file.height = 8;
    file.pitch = 40;
    file.depth = 1;
    file.mips = 2;
    file.pixelFlags = 4;
    file.fourCC = FourCC("DXT1");
    file.caps = 0x401008;
    file.data = Pattern(40);
    const std::vector<uint8_t> bytes = file.Bytes();
    WriteBytes(dir / "in.dds", bytes);
    const CORBTexture texture((dir / "in.dds").c_str());
    ASSERT_NE(texture.getDataPtr(), nullptr);
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_DXT1));
    EXPECT_EQ(texture.getNumMIPLevels(), 2u);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(), bytes.data() + 128, 40), 0);
    EXPECT_EQ(Saved(dir, texture), bytes);

    // DXT5 cube map, the faces in file order.
    file.fourCC = FourCC("DXT5");
    file.flags = 0x81007;
    file.width = file.height = 4;
    file.mips = 1;
    file.pitch = 96;
    file.caps = 0x1008;
    file.caps2 = 0xFE00;
    file.data = Pattern(6 * 16);
    const std::vector<uint8_t> cube = file.Bytes();
    CORBTexture loaded = Load(cube);
    EXPECT_EQ(loaded.getPixelType().PixelTypeID, uint64_t(ePF_DXT5));
    EXPECT_EQ(loaded.getNumFaces(), 6u);
    EXPECT_EQ(std::memcmp(loaded.getDataPtr(0, 0, 5), cube.data() + 128 + 5 * 16, 16), 0);
    EXPECT_EQ(Saved(dir, loaded), cube);

    // DXT2 carries premultiplied alpha.
    file.fourCC = FourCC("DXT2");
    file.caps2 = 0;
    file.data = Pattern(16);
    loaded = Load(file.Bytes());
    EXPECT_EQ(loaded.getPixelType().PixelTypeID, uint64_t(ePF_DXT2));
    EXPECT_TRUE(loaded.isPreMultiplied());
}

// The reader's surface order is pinned above, so these also pin the writer's.
TEST(DDSFile, RoundTripsKeepEverySurface)
{
    ScratchDir dir;
    const CORBTexture textures[] = {
        Texture(kARGB8, eVarUnsignedIntegerNorm, 7, 5, 1, 3, 1, 6),              // mask row, cube map
        Texture(kR8.PixelTypeID, eVarUnsignedByteNorm, 6, 3, 1, 3, 2, 6),        // DX10 cube array
        Texture(ePF_DXT5, eVarUnsignedIntegerNorm, 12, 8, 1, 4, 3),              // DX10 array of blocks
        Texture(kL8.PixelTypeID, eVarUnsignedIntegerNorm, 4, 4, 4, 3),           // volume
        Texture(kRGBA8, eVarUnsignedByteNorm, 9, 1, 1, 4, 1, 1, eColourSpaceSRGB), // one dimension
    };
    for (const CORBTexture& texture : textures)
    {
        SCOPED_TRACE(ORBTGetPixelFormatName(texture.getPixelType().PixelTypeID).c_str());
        const std::vector<uint8_t> bytes = Saved(dir, texture);
        EXPECT_TRUE(SameHeaderAndData(texture, CORBTexture((dir / "saved.dds").c_str())));
        const CORBTexture fromMemory = Load(bytes);
        EXPECT_TRUE(SameHeaderAndData(texture, fromMemory));
        EXPECT_EQ(fromMemory.getColourSpace(), texture.getColourSpace());
    }
}

TEST(DDSFile, InfoNamesTheContainerAndItsFields)
{
    ScratchDir dir;
    DDSFile file = DX10File(61, 3 * 16);
    file.arraySize = 3;
    WriteBytes(dir / "array.dds", file.Bytes());
    CORBTextureHeader header;
    CORBTString container;
    CORBTArray<CORBTString> fields;
    ASSERT_TRUE(ORBTReadTextureFileInfo((dir / "array.dds").c_str(), header, container, fields));
    EXPECT_STREQ(container.c_str(), "dds (dx10)");
    EXPECT_EQ(header.getNumArrayMembers(), 3u);
    std::string shown;
    for (unsigned i = 0; i < fields.GetSize(); ++i)
        shown += std::string(fields[i].c_str()) + "|";
    EXPECT_EQ(shown, "size: 124|flags: 0x1007|height: 4|width: 4|pitchOrLinearSize: 0|depth: 0|mipMapCount: 0|"
                     "pixelFormatSize: 32|pixelFormatFlags: 0x4|fourCC: DX10|rgbBitCount: 0|redMask: 0x00000000|"
                     "greenMask: 0x00000000|blueMask: 0x00000000|alphaMask: 0x00000000|caps: 0x1000|caps2: 0x0|"
                     "dxgiFormat: 61|resourceDimension: 3|miscFlag: 0x0|arraySize: 3|miscFlags2: 0x0|");

    // A mask file: no DX10 fields; a FourCC that isn't text is a number.
    WriteBytes(dir / "mask.dds", MaskFile(0x20000, 8, 0xFF, 0, 0, 0).Bytes());
    ASSERT_TRUE(ORBTReadTextureFileInfo((dir / "mask.dds").c_str(), header, container, fields));
    EXPECT_STREQ(container.c_str(), "dds");
    ASSERT_EQ(fields.GetSize(), 17u);
    EXPECT_STREQ(fields[9].c_str(), "fourCC: 0x00000000");

    // A refused file still lists what was read.
    file.dimension = 7;
    WriteBytes(dir / "bad.dds", file.Bytes());
    EXPECT_FALSE(ORBTReadTextureFileInfo((dir / "bad.dds").c_str(), header, container, fields));
    ASSERT_EQ(fields.GetSize(), 22u);
    EXPECT_STREQ(fields[18].c_str(), "resourceDimension: 7");
}

TEST(DDSFile, PipesAreReadStraightThrough)
{
    ScratchDir dir;
    const std::string fifo = dir / "pipe.dds";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    DDSFile file = DX10File(61, 2 * 6 * 16);
    file.arraySize = 2;
    file.miscFlag = 4;
    const std::vector<uint8_t> bytes = file.Bytes();

    std::thread writer([&] { WriteBytes(fifo, bytes); });
    const CORBTexture texture(fifo.c_str());
    writer.join();
    ASSERT_NE(texture.getDataPtr(), nullptr);
    EXPECT_EQ(texture.getNumArrayMembers(), 2u);
    EXPECT_EQ(std::memcmp(texture.getDataPtr(0, 1, 0), bytes.data() + 148 + 6 * 16, 16), 0);

    std::vector<uint8_t> cut = bytes;
    cut.resize(cut.size() - 5);
    writer = std::thread([&] { WriteBytes(fifo, cut); });
    EXPECT_EQ(CORBTexture(fifo.c_str()).getDataPtr(), nullptr);
    writer.join();
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 5 bytes");
}
