// DDS files: refusals, the writer's header words, how the reader picks a pixel
// format and the surface order (member, face, level); Pillow and ImageMagick
// read what is written here, nvcompress writes DXT files read here.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// Runs a shell command with its output sent to 'log'; true on exit status 0.
bool RunCommand(const std::string& command, const std::string& log)
{
    const int status = std::system((command + " >'" + log + "' 2>&1").c_str());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Pillow (Debian's python3 with python3-pil) and ImageMagick's convert; a missing one is skipped.
enum class Reader { Pillow, Magick };

bool Have(Reader reader)
{
    return reader == Reader::Magick ? access("/usr/bin/convert", X_OK) == 0
                                    : std::system("/usr/bin/python3 -c 'import PIL' >/dev/null 2>&1") == 0;
}

// A reader's decoding of a file as raw 8-bit RGBA bytes; a file it cannot read fails the test.
bool ForeignRGBA(Reader reader, const ScratchDir& dir, const std::string& path, std::vector<uint8_t>& rgba)
{
    const std::string out = dir / "foreign.rgba", log = dir / "foreign.log";
    const std::string pillow = "import sys; from PIL import Image; "
                               "open(sys.argv[2], 'wb').write(Image.open(sys.argv[1]).convert('RGBA').tobytes())";
    if (!RunCommand(reader == Reader::Pillow ? "/usr/bin/python3 -c \"" + pillow + "\" '" + path + "' '" + out + "'"
                                             : "/usr/bin/convert '" + path + "' -depth 8 'rgba:" + out + "'",
                    log))
    {
        const std::vector<uint8_t> text = ReadBytes(log);
        ADD_FAILURE() << "cannot read " << path << ":\n" << std::string(text.begin(), text.end());
        return false;
    }
    rgba = ReadBytes(out);
    return true;
}

typedef std::vector<uint8_t> Bytes;

constexpr uint32_t FourCC(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) | uint32_t(uint8_t(text[1])) << 8 | uint32_t(uint8_t(text[2])) << 16 |
           uint32_t(uint8_t(text[3])) << 24;
}

// A hand-made DDS file; the defaults make a 4 x 4 header of one level.
struct DDSFile
{
    uint32_t size = 124, flags = 0x1007, height = 4, width = 4, pitch = 0, depth = 0, mips = 0;
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
    template <typename Edit>
    DDSFile With(Edit edit) const
    {
        DDSFile file = *this;
        edit(file);
        return file;
    }
};

DDSFile MaskFile(uint32_t pixelFlags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    return DDSFile().With([&](DDSFile& f) {
        f.pixelFlags = pixelFlags, f.bits = bits, f.masks = {r, g, b, a}, f.data = Sequence(2 * bits, 7);
    });
}

DDSFile FourCCFile(const char (&code)[5], uint32_t dataBytes)
{
    return DDSFile().With([&](DDSFile& f) { f.pixelFlags = 4, f.fourCC = FourCC(code), f.data = Sequence(dataBytes, 7); });
}

DDSFile DX10File(uint32_t dxgiFormat, uint32_t dataBytes)
{
    return FourCCFile("DX10", dataBytes).With([&](DDSFile& f) { f.dx10 = true, f.dxgiFormat = dxgiFormat; });
}

uint32_t Word(const Bytes& bytes, size_t offset)
{
    uint32_t word = 0;
    if (offset + 4 <= bytes.size())
        std::memcpy(&word, bytes.data() + offset, 4);
    return word;
}

CORBTexture Load(const Bytes& bytes)
{
    CORBTexture texture;
    EXPECT_TRUE(texture.loadFromMemory(bytes.data(), bytes.size(), "x.dds")) << ORBTGetLastError();
    return texture;
}

CORBTexture Texture(PixelType format, EORBTVariableType type, uint32_t width, uint32_t height, uint32_t depth = 1,
                    uint32_t levels = 1, uint32_t members = 1, uint32_t faces = 1,
                    EORBTColourSpace space = eColourSpaceLinear)
{
    CORBTextureHeader header(format.PixelTypeID, height, width, depth, levels, members, faces, space, type);
    return CORBTexture(header, Sequence(header.getDataSize(), 7, 3).data());
}

Bytes Saved(const ScratchDir& dir, const CORBTexture& texture)
{
    EXPECT_TRUE(texture.saveFile((dir / "saved.dds").c_str()));
    return ReadBytes(dir / "saved.dds");
}

bool SameHeaderAndData(const CORBTexture& a, const CORBTexture& b)
{
    return a.getPixelType() == b.getPixelType() && a.getChannelType() == b.getChannelType() &&
           Shape(a.getFileHeader()) == Shape(b.getFileHeader()) && a.getDataSize() == b.getDataSize() &&
           b.getDataPtr() && std::memcmp(a.getDataPtr(), b.getDataPtr(), a.getDataSize()) == 0;
}

const PixelType kRGBA8 = ORBStandard8PixelType;
const PixelType kL8 = PixelType('l', 0, 0, 0, 8, 0, 0, 0);
const PixelType kR8 = PixelType('r', 0, 0, 0, 8, 0, 0, 0);
const PixelType kARGB8 = PixelType('a', 'r', 'g', 'b', 8, 8, 8, 8);
const PixelType kA8 = PixelType('a', 0, 0, 0, 8, 0, 0, 0);

typedef std::vector<std::pair<size_t, uint32_t>> Words; // offset, word

// 'more', then a masked layout's pixel format words; the FourCC field keeps
// "DX10", unused without pixel format flag 4.
Words Masked(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a, Words more)
{
    more.insert(more.end(), {{80, flags}, {84, FourCC("DX10")}, {88, bits}, {92, r}, {96, g}, {100, b}, {104, a}});
    return more;
}

} // namespace

TEST(DDSFile, Refusals)
{
    ScratchDir dir;
    const DDSFile l8 = MaskFile(0x20000, 8, 0xFF, 0, 0, 0);
    const Bytes valid = l8.Bytes(), dx10 = DX10File(61, 0).Bytes();
    Bytes lowerMagic = valid;
    lowerMagic[0] = 'd';
    const DDSFile tooManyLevels = l8.With([](DDSFile& f) { f.flags |= 0x20000, f.mips = 4, f.data = Sequence(22, 7); });
    // Array sizes only the file can bound: one byte a member, or more than 32 bits.
    const DDSFile manyMembers =
        DX10File(61, 1).With([](DDSFile& f) { f.width = f.height = 1, f.arraySize = 0x10000000; });
    const struct
    {
        Bytes bytes;
        std::string reason;
    } cases[] = {
        {{}, "file too short to be a texture"},
        {Bytes(valid.begin(), valid.begin() + 127), "file too short to be a texture"},
        {lowerMagic, "not a dds file (wrong identifier)"},
        {l8.With([](DDSFile& f) { f.size = 123; }).Bytes(), "dds header: size 123, not 124"},
        {Bytes(dx10.begin(), dx10.begin() + 147), "truncated header"},
        {DX10File(61, 16).With([](DDSFile& f) { f.dimension = 1; }).Bytes(), "dds header: resourceDimension 1"},
        {DX10File(61, 16).With([](DDSFile& f) { f.dimension = 5; }).Bytes(), "dds header: resourceDimension 5"},
        {MaskFile(0x20000, 8, 0xF, 0, 0, 0xF0).Bytes(),
         "dds: no pixel format for Direct3D format 0 (pixel format flags 0x20000, 8 bits, masks 0xF 0x0 0x0 0xF0)"},
        {FourCCFile("ABCD", 16).Bytes(), "dds: no pixel format for FourCC ABCD"},
        {DX10File(999, 16).Bytes(), "dds: no pixel format for DXGI format 999"},
        {DX10File(0, 16).Bytes(), "dds: no pixel format for DXGI format 0"},
        {tooManyLevels.Bytes(), "4 MIP levels, but a largest side of 4 allows at most 3"},
        {tooManyLevels.With([](DDSFile& f) { f.width = 0x80000000u, f.height = 1, f.mips = 33; }).Bytes(),
         "33 MIP levels, but a largest side of 2147483648 allows at most 32"},
        {tooManyLevels.With([](DDSFile& f) { f.mips = 0; }).Bytes(), "declares no surfaces"},
        {Bytes(valid.begin(), valid.end() - 1), "pixel data short by 1 bytes"},
        // A FourCC file of exactly 128 bytes passes the header checks.
        {FourCCFile("DXT1", 0).With([](DDSFile& f) { f.width = f.height = 0; }).Bytes(), "pixel data missing"},
        {manyMembers.Bytes(), "pixel data short by 268435455 bytes"},
        {manyMembers.With([](DDSFile& f) { f.arraySize = 0xFFFFFFFF, f.miscFlag = 4; }).Bytes(),
         "texture too large: its data size does not fit in 32 bits"},
    };
    for (const auto& c : cases)
        ExpectRefused(dir, "x.DDS", c.bytes, c.reason.c_str());
}

// The writer's header words for each kind of layout; each file loads back as
// the texture it was made from, so the reader's surface order (pinned in
// HeaderFieldsDecideDepthLevelsAndFaces) pins the writer's.
TEST(DDSFile, WrittenHeadersAndRoundTrips)
{
    ScratchDir dir;
    const struct
    {
        const char* what;
        CORBTexture texture;
        size_t size;
        Words words;
        bool readsBack = true;
    } cases[] = {
        {"mask row 28: flags and pitch", Texture(kA8, eVarUnsignedIntegerNorm, 3, 2), 128 + 6,
         Masked(0x2, 8, 0, 0, 0, 0xFF, {{8, 0x100F}, {20, 3}, {108, 0x1000}, {112, 0}})},
        {"mask row 35", Texture(PixelType('a', 'r', 'g', 'b', 2, 10, 10, 10), eVarUnsignedIntegerNorm, 3, 2), 128 + 24,
         Masked(0x41, 32, 0x3FF, 0xFFC00, 0x3FF00000, 0xC0000000, {{20, 12}})},
        {"mask row 61", Texture(PixelType('l', 'g', 'r', 0, 6, 5, 5, 0), eVarSignedIntegerNorm, 3, 2), 128 + 12,
         Masked(0x40000, 16, 0x1F, 0x3E0, 0xFC00, 0, {{20, 6}})},
        {"mask row 67", Texture(PixelType('a', 'b', 'g', 'r', 2, 10, 10, 10), eVarSignedIntegerNorm, 3, 2), 128 + 24,
         Masked(0x80001, 32, 0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000, {})},
        {"mask row cube with levels", Texture(kARGB8, eVarUnsignedIntegerNorm, 7, 5, 1, 3, 1, 6), 128 + 6 * 42 * 4,
         {{8, 0x2100F}, {20, 28}, {28, 3}, {80, 0x41}, {108, 0x401008}, {112, 0xFE00}}},
        {"named format: linear size and FourCC", Texture(ePF_DXT1, eVarUnsignedByteNorm, 8, 8, 1, 2), 128 + 32 + 8,
         {{8, 0xA1007}, {20, 40}, {80, 4}, {84, FourCC("DXT1")}, {88, 0}, {92, 0}, {104, 0}, {108, 0x401008}}},
        {"named cube map", Texture(ePF_DXT5, eVarUnsignedByteNorm, 4, 4, 1, 1, 1, 6), 128 + 6 * 16,
         {{8, 0x81007}, {20, 96}, {84, FourCC("DXT5")}, {108, 0x1008}, {112, 0xFE00}}},
        {"layout of the FourCC group: plain number, pitch by the layout",
         Texture(PixelType('r', 0, 0, 0, 32, 0, 0, 0), eVarSignedFloat, 3, 1), 128 + 12,
         {{8, 0x100F}, {20, 12}, {80, 4}, {84, 114}, {88, 0}}},
        {"no Direct3D code: DX10, one dimension for a height of 1",
         Texture(kRGBA8, eVarUnsignedByteNorm, 9, 1, 1, 4, 1, 1, eColourSpaceSRGB), 148 + 16 * 4,
         {{80, 4}, {84, FourCC("DX10")}, {88, 0}, {92, 0}, {128, 29}, {132, 2}, {136, 0}, {140, 1}, {144, 0}}},
        {"two members force DX10 even with a mask-table code", Texture(kA8, eVarUnsignedByteNorm, 2, 2, 1, 1, 2),
         148 + 8, {{8, 0x100F}, {80, 4}, {128, 65}, {132, 3}, {140, 2}}, false}, // DXGI's A8 reads back as r 8
        {"DX10 cube array with levels", Texture(kR8, eVarUnsignedByteNorm, 6, 3, 1, 3, 2, 6), 148 + 12 * 22,
         {{108, 0x401008}, {112, 0xFE00}, {128, 61}, {132, 3}, {136, 4}, {140, 2}}},
        {"DX10 array of blocks", Texture(ePF_DXT5, eVarUnsignedIntegerNorm, 12, 8, 1, 4, 3), 148 + 3 * 10 * 16,
         {{84, FourCC("DX10")}, {128, 77}, {140, 3}}},
        {"cube volume", Texture(kRGBA8, eVarUnsignedByteNorm, 4, 4, 2, 2, 1, 6), 148 + 6 * 36 * 4,
         {{8, 0x82100F}, {24, 2}, {108, 0x401008}, {112, 0x20FE00}, {132, 4}, {136, 4}}},
        {"volume", Texture(kL8, eVarUnsignedIntegerNorm, 4, 4, 4), 128 + 64, {{8, 0x80100F}, {108, 0x1000}, {112, 0x200000}}},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        const Bytes bytes = Saved(dir, c.texture);
        EXPECT_EQ(bytes.size(), c.size);
        EXPECT_EQ(Bytes(bytes.begin() + 32, bytes.begin() + 76), Bytes(44, 0)); // reserved
        for (const auto& word : c.words)
            EXPECT_EQ(Word(bytes, word.first), word.second) << "offset " << word.first;
        if (!c.readsBack)
            continue;
        EXPECT_TRUE(SameHeaderAndData(c.texture, CORBTexture((dir / "saved.dds").c_str())));
        EXPECT_TRUE(SameHeaderAndData(c.texture, Load(bytes)));
    }
}

TEST(DDSFile, MasksPickTheirRow)
{
    const struct
    {
        uint32_t flags, bits, r, g, b, a;
        uint32_t code; // 0: refused
    } cases[] = {
        {0x41, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 21},
        {0x40, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 0}, // alpha rows need the alpha bit
        {0x41, 24, 0xFF0000, 0xFF00, 0xFF, 0, 0},          // and the others its absence
        {0x40, 24, 0xFF0000, 0xFF00, 0xFF, 0x12345678, 20}, // a zero alpha mask is not compared
        {0x40, 32, 0xFFFF, 0xFFFF0000, 0xFF, 0xFF, 34},     // row 34 compares red and green
        // The first group flag decides: RGB, bump luminance, bump, luminance, alpha.
        {0x20040, 8, 0xFF, 0, 0, 0, 0},
        {0x40040, 32, 0xFF, 0xFF00, 0xFF0000, 0, 0},
        {0x20002, 8, 0, 0, 0, 0xFF, 0},
        {0x40001, 32, 0xFF, 0xFF00, 0xFF0000, 0, 62}, // bump rows ignore the alpha bit
        {0x80000, 32, 0xFF, 0, 0, 0xFF000000, 63},    // red alone picks 63 ...
        {0x80000, 32, 0x12, 0, 0, 0xFF000000, 64},    // ... or 64
        {0x20000, 16, 0xFF, 0, 0, 0xFF00, 0},
        {0x20001, 16, 0xFF, 0, 0, 0xFF00, 51},
        {0x1, 8, 0xFF, 0, 0, 0, 0},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << std::hex << c.flags << " " << c.bits << " " << c.r << " " << c.a);
        const Bytes bytes = MaskFile(c.flags, c.bits, c.r, c.g, c.b, c.a).Bytes();
        CORBTexture texture;
        CORBTextureHeader expected;
        ASSERT_EQ(texture.loadFromMemory(bytes.data(), bytes.size(), "x.dds"), c.code != 0) << ORBTGetLastError();
        EXPECT_TRUE(c.code == 0 || (expected.setD3DFormat(c.code) && texture.getPixelType() == expected.getPixelType() &&
                                    texture.getChannelType() == expected.getChannelType() &&
                                    DataOf(texture) == Bytes(bytes.begin() + 128, bytes.end())));
    }
}

TEST(DDSFile, HeaderFieldsDecideDepthLevelsAndFaces)
{
    // Depth and MIP count count only with their flags; any one bit of 0xFE00 in caps2 makes a cube map.
    DDSFile file = FourCCFile("DXT1", 32).With([](DDSFile& f) { f.width = f.height = 8, f.depth = 3, f.mips = 2; });
    EXPECT_EQ(Shape(Load(file.Bytes()).getFileHeader()), (std::vector<uint32_t>{0, 0, 8, 8, 1, 1, 1, 1}));
    file.flags |= 0x800000 | 0x20000;
    file.data = Sequence(3 * 32 + 8, 7);
    EXPECT_EQ(Shape(Load(file.Bytes()).getFileHeader()), (std::vector<uint32_t>{0, 0, 8, 8, 3, 1, 1, 2}));
    file.flags = 0x1007;
    file.caps2 = 0x400;
    file.data = Sequence(6 * 32, 7);
    EXPECT_EQ(Load(file.Bytes()).getNumFaces(), 6u);

    // DX10: r 8 arrays of cube maps with two levels: 3 members, 6 faces, 4 x 2 then 2 x 1.
    file = DX10File(61, 3 * 6 * (8 + 2)).With([](DDSFile& f) {
        f.width = 4, f.height = 2, f.flags |= 0x20000, f.mips = 2, f.arraySize = 3, f.miscFlag = 4;
    });
    const Bytes bytes = file.Bytes();
    const CORBTexture cubes = Load(bytes);
    EXPECT_EQ(cubes.getPixelType(), kR8);
    EXPECT_EQ(Shape(cubes.getFileHeader()), (std::vector<uint32_t>{0, 0, 2, 4, 1, 3, 6, 2}));
    // In the file each member's faces follow one another, each with its levels.
    size_t offset = 128 + 20;
    for (uint32_t member = 0; member < 3; ++member)
        for (uint32_t face = 0; face < 6; ++face)
            for (uint32_t mip = 0, size = 8; mip < 2; offset += size, ++mip, size = 2)
                EXPECT_EQ(std::memcmp(cubes.getDataPtr(mip, member, face), bytes.data() + offset, size), 0)
                    << member << " " << face << " " << mip;
    // A pipe is read straight through; one cut short says by how much.
    ScratchDir dir;
    const std::string fifo = dir / "pipe.dds";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const size_t cut : {0, 5})
    {
        std::thread writer([&] { WriteBytes(fifo, Bytes(bytes.begin(), bytes.end() - long(cut))); });
        const CORBTexture fromPipe(fifo.c_str());
        writer.join();
        EXPECT_EQ(DataOf(fromPipe), cut ? Bytes() : DataOf(cubes));
    }
    EXPECT_STREQ(ORBTGetLastError(), "pixel data short by 5 bytes");

    // DXT2 is premultiplied.
    EXPECT_TRUE(Load(FourCCFile("DXT2", 16).Bytes()).isPreMultiplied());
    // Array size 0 is one member; no cube flag, one face.
    const CORBTexture single = Load(DX10File(61, 16).With([](DDSFile& f) { f.arraySize = 0; }).Bytes());
    EXPECT_EQ(single.getNumArrayMembers() * 10 + single.getNumFaces(), 11u);
    // The dimension cuts height and depth; the depth flag still decides depth.
    file = DX10File(61, 4).With([](DDSFile& f) { f.flags |= 0x800000, f.depth = 4; });
    for (const auto& e : {std::array<uint32_t, 3>{2, 1, 1}, {3, 4, 1}, {4, 4, 4}}) // dimension, height, depth
    {
        file.dimension = e[0];
        file.data = Sequence(4 * e[1] * e[2], 7);
        const CORBTexture texture = Load(file.Bytes());
        EXPECT_TRUE(texture.getHeight() == e[1] && texture.getDepth() == e[2]) << e[0];
    }
}

TEST(DDSFile, InfoNamesTheContainerAndItsFields)
{
    ScratchDir dir;
    DDSFile file = DX10File(61, 3 * 16).With([](DDSFile& f) { f.arraySize = 3; });
    WriteBytes(dir / "array.dds", file.Bytes());
    EXPECT_EQ(FileInfo(dir / "array.dds"),
              "dds (dx10)\nsize: 124\nflags: 0x1007\nheight: 4\nwidth: 4\npitchOrLinearSize: 0\ndepth: 0\n"
              "mipMapCount: 0\npixelFormatSize: 32\npixelFormatFlags: 0x4\nfourCC: DX10\nrgbBitCount: 0\n"
              "redMask: 0x00000000\ngreenMask: 0x00000000\nblueMask: 0x00000000\nalphaMask: 0x00000000\n"
              "caps: 0x1000\ncaps2: 0x0\ndxgiFormat: 61\nresourceDimension: 3\nmiscFlag: 0x0\narraySize: 3\n"
              "miscFlags2: 0x0\n");
    // A mask file: no DX10 fields; a FourCC that isn't text is a number. A
    // refused file still lists what was read.
    WriteBytes(dir / "mask.dds", MaskFile(0x20000, 8, 0xFF, 0, 0, 0).Bytes());
    WriteBytes(dir / "bad.dds", file.With([](DDSFile& f) { f.dimension = 7; }).Bytes());
    const std::string mask = FileInfo(dir / "mask.dds"), bad = FileInfo(dir / "bad.dds", false);
    EXPECT_TRUE(mask.rfind("dds\n", 0) == 0 && std::count(mask.begin(), mask.end(), '\n') == 18) << mask;
    EXPECT_NE(mask.find("\nfourCC: 0x00000000\n"), std::string::npos);
    EXPECT_TRUE(std::count(bad.begin(), bad.end(), '\n') == 23 && bad.find("\nresourceDimension: 7\n") != std::string::npos);
}

// Every masked layout but alpha alone (which neither reader takes), written
// here, reads back as the RGBA pixels it holds: argb 8.8.8.8 and rgb 8.8.8
// (channels packed into a little-endian word, the first one highest) and l 8.
TEST(DDSInterop, ForeignReadersReadUncompressedFiles)
{
    ScratchDir dir;
    for (Reader reader : {Reader::Pillow, Reader::Magick})
    {
        if (!Have(reader))
        {
            std::printf("skipped: %s is not installed\n", reader == Reader::Pillow ? "Pillow" : "ImageMagick");
            continue;
        }
        for (const PixelType& layout : {kARGB8, PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), kL8})
        {
            SCOPED_TRACE(ORBTGetPixelFormatName(layout.PixelTypeID).c_str());
            const uint32_t size = ORBTGetBitsPerPixel(layout.PixelTypeID) / 8;
            CORBTexture texture(CORBTextureHeader(layout.PixelTypeID, 5, 7, 1, 1, 1, 1, eColourSpaceLinear,
                                                  size == 1 ? eVarUnsignedByteNorm : eVarUnsignedIntegerNorm));
            Bytes expected, seen;
            for (uint32_t i = 0; i < 35; ++i)
            {
                const uint8_t r = uint8_t(i * 37 + 5), g = uint8_t(i * 11 + 90), b = uint8_t(255 - i * 7),
                              a = uint8_t(i * 53 + 17), bytes[4] = {size > 1 ? b : r, g, r, a};
                std::memcpy(texture.getDataPtr() + i * size, bytes, size);
                expected.insert(expected.end(), {r, size > 1 ? g : r, size > 1 ? b : r, size == 4 ? a : uint8_t(255)});
            }
            ASSERT_TRUE(texture.saveFile((dir / "sample.dds").c_str()));
            ASSERT_TRUE(ForeignRGBA(reader, dir, dir / "sample.dds", seen));
            EXPECT_EQ(seen, expected);
        }
    }
}

TEST(DDSInterop, NVCompressFilesLoadAsBlocks)
{
    const char* const nvcompress = "/usr/bin/nvcompress";
    if (access(nvcompress, X_OK) != 0)
        GTEST_SKIP() << "nvcompress (" << nvcompress << ", Debian libnvtt-bin) is not installed";
    ScratchDir dir;
    // An uncompressed 32-bit TGA of 16 x 8, top row first.
    Bytes tga = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 8, 0, 32, 0x28};
    for (uint32_t y = 0; y < 8; ++y)
        for (uint32_t x = 0; x < 16; ++x)
            tga.insert(tga.end(), {uint8_t(x * 16), uint8_t(y * 32), uint8_t((x ^ y) * 20), uint8_t(255 - x * 8)});
    WriteBytes(dir / "in.tga", tga);
    const std::string out = dir / "out.dds", again = dir / "again.dds";
    ASSERT_TRUE(RunCommand(std::string(nvcompress) + " -nocuda -bc3 '" + (dir / "in.tga") + "' '" + out + "'",
                           dir / "nvcompress.log"));
    // 16 x 8 down to 1 x 1: 8, 2, 1, 1 and 1 blocks, one surface a level, as in the file.
    const CORBTexture texture(out.c_str());
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(ePF_DXT5));
    EXPECT_EQ(Shape(texture.getFileHeader()), (std::vector<uint32_t>{0, 0, 8, 16, 1, 1, 1, 5}));
    const Bytes bytes = ReadBytes(out);
    ASSERT_GE(bytes.size(), 128u + 13 * 16);
    EXPECT_EQ(DataOf(texture), Bytes(bytes.begin() + 128, bytes.begin() + 128 + 13 * 16));
    // Written again by this library, other readers decode the same image.
    ASSERT_TRUE(texture.saveFile(again.c_str()));
    for (Reader reader : {Reader::Pillow, Reader::Magick})
    {
        Bytes original, rewritten;
        if (Have(reader) && ForeignRGBA(reader, dir, out, original) && ForeignRGBA(reader, dir, again, rewritten))
        {
            EXPECT_TRUE(rewritten == original && rewritten.size() == 16u * 8 * 4);
        }
    }
}
