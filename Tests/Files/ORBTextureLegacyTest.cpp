// Legacy .orb files: the pixel enumeration both ways, the header conversions
// and their flags, the writer's bytes and surface order, and the loaders.

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "ORBTextureLegacy.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

constexpr uint32_t kNone = 0xFFFFFFFFu;

struct Forward
{
    bool known;
    uint64_t format;
    EORBTColourSpace space;
    EORBTVariableType type;
    bool premultiplied;
};

Forward MapForward(uint32_t legacy)
{
    Forward f{};
    f.known = ORBTMapLegacyTextureEnumToNewFormat(ORBTPixelType(legacy), f.format, f.space, f.type, f.premultiplied);
    return f;
}

uint32_t MapBack(const Forward& f, ELegacyApi api)
{
    return MapNewFormatToLegacyEnum(PixelType(f.format), f.space, f.type, f.premultiplied, api);
}

uint64_t Layout(const char* names, uint8_t b1, uint8_t b2 = 0, uint8_t b3 = 0, uint8_t b4 = 0)
{
    const size_t n = std::strlen(names);
    return PixelType(names[0], n > 1 ? names[1] : 0, n > 2 ? names[2] : 0, n > 3 ? names[3] : 0, b1, b2, b3, b4)
        .PixelTypeID;
}

// A legacy file: the first headerSize bytes of a version 2 header, then 'data'.
std::vector<uint8_t> LegacyFile(uint32_t headerSize, uint32_t height, uint32_t width, uint32_t mipMapCount,
                                uint32_t formatAndFlags, uint32_t numSurfaces, const std::vector<uint8_t>& data)
{
    const uint32_t words[13] = {headerSize, height, width, mipMapCount, formatAndFlags, 0, 0,
                                0,          0,      0,     0,           0x2142524F,     numSurfaces};
    std::vector<uint8_t> bytes(reinterpret_cast<const uint8_t*>(words),
                               reinterpret_cast<const uint8_t*>(words) + headerSize);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

// Every surface filled with its own byte: 0x40 * mip + 8 * member + face.
uint8_t SurfaceByte(uint32_t mip, uint32_t member, uint32_t face) { return uint8_t(0x40 * mip + 8 * member + face); }

ORB_Texture_Header V2(uint32_t height, uint32_t width, uint32_t mipMapCount, uint32_t formatAndFlags,
                      uint32_t numSurfaces)
{
    ORB_Texture_Header v2;
    v2.height = height, v2.width = width, v2.mipMapCount = mipMapCount;
    v2.pixelFormatAndFlags = formatAndFlags, v2.numSurfaces = numSurfaces;
    return v2;
}

typedef std::vector<uint32_t> Words;

// version, flags, height, width, depth, numMIPMaps, numFaces, numSurfaces, metaDataSize
Words Fields(const ORBTextureHeaderV3& r)
{
    return {r.version, r.flags, r.height, r.width, r.depth, r.numMIPMaps, r.numFaces, r.numSurfaces, r.metaDataSize};
}

} // namespace

TEST(LegacyFormats, ForwardRows)
{
    for (uint32_t legacy : {2u, 19u})
        EXPECT_TRUE(MapForward(legacy).format == Layout("rgb", 5, 6, 5) &&
                    MapForward(legacy).type == eVarUnsignedShortNorm)
            << legacy;
    for (uint32_t legacy : {98u, 145u})
        EXPECT_TRUE(MapForward(legacy).format == ORBStandard8PixelType &&
                    MapForward(legacy).space == eColourSpaceSRGB && !MapForward(legacy).premultiplied)
            << legacy;
    EXPECT_TRUE(MapForward(146).premultiplied);
    EXPECT_TRUE(MapForward(4).format == Layout("rgb", 8, 8, 8) && MapForward(4).type == eVarUnsignedIntegerNorm);
    EXPECT_EQ(MapForward(125).type, eVarSignedFloat);
    // Undefined values and values past the table: format 51, type 14.
    for (uint32_t legacy : {14u, 128u, 143u, 182u, 0xFFFFFFFFu})
        EXPECT_TRUE(!MapForward(legacy).known && MapForward(legacy).format == 51 && MapForward(legacy).type == 14)
            << legacy;
    unsigned defined = 0;
    for (uint32_t legacy = 0; legacy < 256; ++legacy)
        defined += MapForward(legacy).known;
    EXPECT_EQ(defined, 139u);
    PixelType type;
    Forward f;
    EXPECT_TRUE(MapLegacyEnumToNewFormat(ORBTPixelType(13), type, f.space, f.type, f.premultiplied));
    EXPECT_EQ(type.PixelTypeID, uint64_t(ePF_ORBTC_4bpp_RGBA));
}

// Forward then back through the group a value belongs to gives the value,
// except where the rows disagree.
TEST(LegacyFormats, ForwardThenReverse)
{
    auto groupOf = [](uint32_t v) -> std::vector<ELegacyApi> {
        if ((v >= 16 && v <= 29) || v == 54)
            return {eLegacyApi1, eLegacyApi2, eLegacyApi4};
        if (v <= 13 || (v >= 37 && v <= 53) || (v >= 64 && v <= 70))
            return {eLegacyApi3, eLegacyApi5};
        if (v >= 80 && v <= 127)
            return {eLegacyApi6};
        return {eLegacyApi7};
    };
    // Where the rows disagree: 22 ('l' 8) comes back as 'i' 8 and 23 ('l','a')
    // as 'a','i'; format 18 (9) has no number in its group, sRGB layouts none
    // in group 6; some land on another number.
    const std::map<uint32_t, uint32_t> elsewhere = {{22, kNone},  {23, kNone}, {9, kNone},  {98, kNone}, {124, kNone},
                                                    {125, kNone}, {10, 70},    {11, 69},    {44, 43},    {123, 119}};
    auto expected = [&](uint32_t v, const Forward& f, ELegacyApi api) -> uint32_t {
        if (elsewhere.count(v))
            return elsewhere.at(v);
        // Group 3 has layouts only of channel types 8 and up.
        const bool group3 = api == eLegacyApi3 || api == eLegacyApi5;
        return group3 && !PixelType(f.format).isNamedFormat() && f.type < eVarUnsignedIntegerNorm ? kNone : v;
    };
    for (uint32_t v = 0; v < 182; ++v)
    {
        const Forward f = MapForward(v);
        if (!f.known)
            continue;
        for (ELegacyApi api : groupOf(v))
            EXPECT_EQ(MapBack(f, api), expected(v, f, api)) << "legacy " << v << ", api " << api;
        EXPECT_EQ(MapBack(f, eLegacyApiNone), kNone);
        EXPECT_EQ(MapBack(f, ELegacyApi(8)), kNone);
    }
    // Some go home through another group.
    EXPECT_EQ(MapBack(MapForward(7), eLegacyApi1), 22u);
    EXPECT_EQ(MapBack(MapForward(124), eLegacyApi7), 156u);
    EXPECT_EQ(MapBack(MapForward(98), eLegacyApi7), 145u);
}

TEST(LegacyFormats, ReverseOnlyNumbers)
{
    auto back = [](uint64_t format, EORBTVariableType type, EORBTColourSpace space, ELegacyApi api,
                   bool premultiplied = false) {
        return uint32_t(MapNewFormatToLegacyEnum(PixelType(format), space, type, premultiplied, api));
    };
    const EORBTColourSpace lin = eColourSpaceLinear, srgb = eColourSpaceSRGB;
    // Group 6 numbers of compressed formats without forward rows.
    EXPECT_EQ(back(ePF_DXT1, eVarUnsignedIntegerNorm, lin, eLegacyApi6), 128u);
    EXPECT_EQ(back(ePF_DXT1, eVarUnsignedIntegerNorm, srgb, eLegacyApi6), 129u);
    EXPECT_EQ(back(ePF_DXT5, eVarUnsignedIntegerNorm, srgb, eLegacyApi6), 133u);
    EXPECT_EQ(back(ePF_BC4, eVarSignedIntegerNorm, srgb, eLegacyApi6), 135u);
    EXPECT_EQ(back(ePF_BC5, eVarUnsignedIntegerNorm, lin, eLegacyApi6), 136u);
    EXPECT_EQ(back(ePF_DXT1, eVarUnsignedByteNorm, lin, eLegacyApi6), kNone);
    EXPECT_EQ(back(ePF_DXT4, eVarUnsignedByteNorm, srgb, eLegacyApi5), 35u);
    // 44's forward row is 'a','r','g','b'; its reverse row is 'a','b','g','r' of type 9.
    EXPECT_EQ(back(Layout("abgr", 2, 10, 10, 10), eVarSignedIntegerNorm, lin, eLegacyApi3), 44u);
    // Named formats ignore type and colour space outside group 6.
    EXPECT_EQ(back(ePF_ORBTC_2bpp_RGB, eVarSignedFloat, srgb, eLegacyApi2), 24u);
    EXPECT_EQ(back(ePF_ORBTC_4bpp_RGB, eVarSignedFloat, srgb, eLegacyApi3), 13u);
    // Group 7 tells premultiplied rows apart; group 1 does not look.
    EXPECT_EQ(back(ORBStandard8PixelType, eVarUnsignedByteNorm, srgb, eLegacyApi7, true), 146u);
    EXPECT_EQ(back(ORBStandard8PixelType, eVarUnsignedByteNorm, lin, eLegacyApi7, true), 153u);
    EXPECT_EQ(back(ORBStandard8PixelType, eVarUnsignedByteNorm, lin, eLegacyApi7), 152u);
    EXPECT_EQ(back(ORBStandard8PixelType, eVarUnsignedByteNorm, srgb, eLegacyApi1, true), 18u);
    EXPECT_EQ(back(ORBStandard8PixelType, eVarUnsignedShortNorm, lin, eLegacyApi7), kNone);
}

TEST(LegacyHeaders, ToVersion3)
{
    // 146 with bump map, cube map and MIP flags: the count is taken without the MIP flag.
    ORB_Texture_Header v2 = V2(8, 16, 3, 146 | 0x400 | 0x1000 | 0x10000, 12);
    ORBTextureHeaderV3 record;
    MetaDataMap items;
    items[0x11111111][1] = MetaDataBlock(0x11111111, 1, 1, nullptr);
    ConvertTextureHeader2To3(v2, record, items);
    EXPECT_EQ(Fields(record), (Words{0x0342524F, 2, 8, 16, 1, 4, 6, 2, 12 + 8 + 12 + 3}));
    // The flags become the library's items, which replace what the map held.
    ASSERT_TRUE(items.GetSize() == 1 && items.GetKey(0) == 0x0342524Fu);
    const MetaDataBlock *bump = items.GetValue(0).Find(1), *orientation = items.GetValue(0).Find(3);
    ASSERT_TRUE(bump && bump->dataSize == 8 && orientation && orientation->dataSize == 3);
    const float one = 1.0f;
    EXPECT_TRUE(std::memcmp(bump->data, &one, 4) == 0 && std::memcmp(bump->data + 4, "xyz", 4) == 0);
    EXPECT_EQ(std::vector<uint8_t>(orientation->data, orientation->data + 3), (std::vector<uint8_t>{0, 2, 0}));

    // numSurfaces below the face count still gives one member; version 1 has one.
    v2.numSurfaces = 0;
    ConvertTextureHeader2To3(v2, record, items);
    EXPECT_EQ(record.numSurfaces, 1u);
    ConvertTextureHeader2To3(V2(8, 16, 3, 22, 5), record, items);
    EXPECT_EQ(Fields(record), (Words{0x0342524F, 0, 8, 16, 1, 4, 1, 5, 0}));
    EXPECT_EQ(items.GetSize(), 0u);
    ORBTextureHeaderV1 v1;
    v1.pixelFormatAndFlags = 22 | 0x1000;
    ConvertTextureHeader1To3(v1, record, items);
    EXPECT_TRUE(record.numSurfaces == 1 && record.numFaces == 6);

    // The free function reads a version 1 header from exactly 44 bytes.
    v1.height = v1.width = 4, v1.mipMapCount = 2, v1.pixelFormatAndFlags = 5 | 0x10000;
    std::unique_ptr<uint8_t[]> exact(new uint8_t[44]);
    std::memcpy(exact.get(), &v1, 44);
    ASSERT_TRUE(ORBTConvertOldTextureHeaderToV3(reinterpret_cast<const ORB_Texture_Header*>(exact.get()), record,
                                                &items));
    EXPECT_TRUE(record.numMIPMaps == 1 && record.numSurfaces == 1 && record.metaDataSize == 15); // no MIP flag
    v2 = V2(4, 4, 2, 5 | 0x100 | 0x1000 | 0x10000, 12);
    ASSERT_TRUE(ORBTConvertOldTextureHeaderToV3(&v2, record, nullptr));
    EXPECT_TRUE(record.numMIPMaps == 3 && record.numSurfaces == 2 && record.metaDataSize == 0);
    EXPECT_FALSE(ORBTConvertOldTextureHeaderToV3(nullptr, record, &items));
}

TEST(LegacyHeaders, NativeToVersion2)
{
    CORBTextureHeader header(ePF_ORBTC_2bpp_RGBA, 16, 32, 1, 3, 2, 6);
    header.setBumpMap(3.0f);
    header.setOrientation(eOrientUp);
    ORB_Texture_Header v2 = ConvertTextureHeader3To2(header, eLegacyApi3);
    EXPECT_EQ((Words{v2.pixelFormatAndFlags, v2.alphaMask, v2.numSurfaces, v2.mipMapCount, v2.bitCount}),
              (Words{12u | 0x100 | 0x400 | 0x1000 | 0x8000 | 0x10000, 1, 12, 2, 2}));
    EXPECT_EQ(v2.textureDataSize, header.getDataSize());
    header = CORBTextureHeader(ePF_ORBTC_4bpp_RGB, 16, 16);
    header.setOrientation(EORBTOrientation(eOrientLeft | eOrientOut)); // Y down
    v2 = ConvertTextureHeader3To2(header, eLegacyApi1);
    EXPECT_TRUE(v2.pixelFormatAndFlags == 25 && v2.alphaMask == 0);
    header.setPixelFormat(ePF_ORBTC_4bpp_RGBA);
    EXPECT_EQ(ConvertTextureHeader3To2(header, eLegacyApi1).pixelFormatAndFlags, 25u | 0x8000);
    // No legacy number: every bit set, flags included.
    v2 = ConvertTextureHeader3To2(header, eLegacyApiNone);
    EXPECT_TRUE(v2.pixelFormatAndFlags == kNone && v2.alphaMask == 1);
}

TEST(LegacyFiles, WrittenBytesAndRefusals)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, 3, 2, 6));
    texture.setBumpMap(2.0f);
    texture.setOrientation(eOrientUp);
    const std::string path = dir / "written.legacy";
    ASSERT_TRUE(texture.saveFileLegacyORB(path.c_str(), eLegacyApi1));
    const std::vector<uint8_t> bytes = ReadBytes(path);
    const uint32_t data = (8 * 4 + 4 * 2 + 2 * 1) * 4 * 12;
    ASSERT_EQ(bytes.size(), 52u + data);
    Words words(13);
    std::memcpy(words.data(), bytes.data(), 52);
    EXPECT_EQ(words, (Words{52, 4, 8, 2, 18 | 0x100 | 0x400 | 0x1000 | 0x10000, data, 32, 0, 0, 0, 0, 0x2142524F, 12}));

    // No API group, an unknown one, a format without a legacy number, a missing directory.
    texture = CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    std::filesystem::remove(path);
    EXPECT_FALSE(texture.saveFileLegacyORB((dir / "none.orb").c_str(), eLegacyApiNone));
    EXPECT_FALSE(texture.saveFileLegacyORB((dir / "eight.orb").c_str(), ELegacyApi(8)));
    EXPECT_FALSE(CORBTexture(CORBTextureHeader(ePF_ASTC_4x4, 4, 4)).saveFileLegacyORB((dir / "astc.orb").c_str(),
                                                                                  eLegacyApi7));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    EXPECT_FALSE(texture.saveFileLegacyORB((dir / "missing/x.orb").c_str(), eLegacyApi1));
}

TEST(LegacyFiles, HandMadeFiles)
{
    ScratchDir dir;
    // Version 1: 4 x 2, two levels, legacy 4 ('r','g','b' 8,8,8 of type 8).
    const std::vector<uint8_t> pixels = Sequence(4 * 2 * 3 + 2 * 1 * 3, 1, 1);
    WriteBytes(dir / "v1.orb", LegacyFile(44, 2, 4, 1, 4 | 0x100, 0, pixels));
    const CORBTexture fromV1((dir / "v1.orb").c_str());
    ASSERT_NE(fromV1.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_EQ(Fields(fromV1.getFileHeader()), (Words{0x0342524F, 0, 2, 4, 1, 2, 1, 1, 0}));
    EXPECT_TRUE(fromV1.getPixelType().PixelTypeID == Layout("rgb", 8, 8, 8) &&
                fromV1.getChannelType() == eVarUnsignedIntegerNorm);
    EXPECT_EQ(DataOf(fromV1), pixels);

    // Version 2 cube map, 12 surfaces: two members. Level 0 is 2 x 2 'l' 8
    // (4 bytes), level 1 one byte; the file holds member, face, level.
    std::vector<uint8_t> surfaces;
    for (uint32_t member = 0; member < 2; ++member)
        for (uint32_t face = 0; face < 6; ++face)
        {
            surfaces.insert(surfaces.end(), 4, SurfaceByte(0, member, face));
            surfaces.push_back(SurfaceByte(1, member, face));
        }
    const std::vector<uint8_t> v2 = LegacyFile(52, 2, 2, 1, 22 | 0x1000 | 0x10000, 12, surfaces);
    WriteBytes(dir / "v2.orb", v2);
    const CORBTexture cube((dir / "v2.orb").c_str());
    // A memory image fills member 0 only, face then level; the rest is zero.
    CORBTexture memory;
    ASSERT_TRUE(memory.loadFromMemory(v2.data(), v2.size(), "x.orb")) << ORBTGetLastError();
    ASSERT_NE(cube.getDataPtr(), nullptr) << ORBTGetLastError();
    EXPECT_TRUE(cube.getNumArrayMembers() == 2 && cube.getNumFaces() == 6 && cube.getOrientation(eAxisY) == eOrientUp);
    ASSERT_EQ(memory.getNumArrayMembers(), 2u);
    for (uint32_t member = 0; member < 2; ++member)
        for (uint32_t face = 0; face < 6; ++face)
            for (uint32_t mip = 0; mip < 2; ++mip)
            {
                EXPECT_EQ(*cube.getDataPtr(mip, member, face), SurfaceByte(mip, member, face));
                EXPECT_EQ(*memory.getDataPtr(mip, member, face), member ? 0 : SurfaceByte(mip, 0, face));
            }

    const std::string info = FileInfo(dir / "v2.orb");
    EXPECT_EQ(info.substr(0, 23), "legacy orb (version 2)\n");
    EXPECT_EQ(std::count(info.begin(), info.end(), '\n'), 14);
    EXPECT_NE(info.find("\npixelFormatAndFlags: 0x00011016\n"), std::string::npos);
    EXPECT_NE(info.find("\nnumSurfaces: 12\n"), std::string::npos);
}

// HandMadeFiles pins the reader's surface order, so this pins the writer's.
TEST(LegacyFiles, RoundTripEachApiGroup)
{
    ScratchDir dir;
    const struct
    {
        ELegacyApi api;
        uint64_t format;
        EORBTVariableType type;
        EORBTColourSpace space;
        bool premultiplied;
        uint32_t height, width, mips, members, faces;
    } cases[] = {
        {eLegacyApi2, Layout("rgb", 5, 6, 5), eVarUnsignedShortNorm, eColourSpaceLinear, false, 8, 16, 4, 2, 6},
        {eLegacyApi4, ePF_ORBTCII_4bpp, eVarUnsignedByteNorm, eColourSpaceLinear, false, 16, 8, 3, 3, 1},
        {eLegacyApi3, Layout("argb", 8, 8, 8, 8), eVarUnsignedIntegerNorm, eColourSpaceLinear, false, 4, 4, 3, 1, 6},
        {eLegacyApi5, ePF_UYVY, eVarUnsignedByteNorm, eColourSpaceLinear, false, 2, 8, 2, 2, 1},
        {eLegacyApi6, Layout("rg", 16, 16), eVarSignedShortNorm, eColourSpaceLinear, false, 5, 3, 3, 2, 6},
        {eLegacyApi7, Layout("bgra", 8, 8, 8, 8), eVarUnsignedByteNorm, eColourSpaceSRGB, true, 4, 4, 3, 2, 6},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.api);
        const CORBTextureHeader header(c.format, c.height, c.width, 1, c.mips, c.members, c.faces, c.space, c.type,
                                       c.premultiplied);
        const CORBTexture texture(header, Sequence(header.getDataSize(), 131, 7).data());
        const std::string path = dir / "round.orb";
        ASSERT_TRUE(texture.saveFileLegacyORB(path.c_str(), c.api));
        const CORBTexture loaded(path.c_str());
        EXPECT_TRUE(loaded.getFileHeader().flags == (c.premultiplied ? 2u : 0u) &&
                    loaded.getPixelType() == texture.getPixelType() &&
                    Shape(loaded.getFileHeader()) == Shape(texture.getFileHeader()));
        EXPECT_EQ(DataOf(loaded), DataOf(texture));
    }
}

TEST(LegacyFiles, RefusedHeadersAndShortData)
{
    ScratchDir dir;
    const std::vector<uint8_t> rgba(4 * 4 * 4, 9), full = LegacyFile(52, 4, 4, 0, 18, 1, rgba);
    const struct
    {
        std::vector<uint8_t> bytes;
        const char* reason;
    } cases[] = {
        {std::vector<uint8_t>(full.begin(), full.begin() + 50), "truncated header"},
        // A cube map of two members must hold the second member's bytes, as a file must.
        {LegacyFile(52, 2, 2, 1, 22 | 0x1000 | 0x10000, 12, std::vector<uint8_t>(30)), "pixel data short by 30 bytes"},
        {LegacyFile(52, 4, 4, 0xFFFFFFFF, 18 | 0x100, 1, rgba), "declares no surfaces"},
        {LegacyFile(44, 4, 4, 3, 18, 0, rgba), "4 MIP levels, but a largest side of 4 allows at most 3"},
        {LegacyFile(52, 4, 4, 0, 14, 1, rgba), "legacy orb (version 2): no pixel format for legacy format 14"},
        {LegacyFile(44, 4, 4, 0, 200, 0, rgba), "legacy orb (version 1): no pixel format for legacy format 200"},
        {LegacyFile(52, 65536, 65536, 0, 18, 1, rgba), "texture too large: its data size does not fit in 32 bits"},
        {std::vector<uint8_t>(full.begin(), full.end() - 1), "pixel data short by 1 bytes"},
        {LegacyFile(44, 4, 4, 0, 18, 0, {}), "pixel data missing"},
        // An image that claims members it does not hold costs nothing; a large
        // header is refused before its block exists.
        {LegacyFile(52, 1, 1, 0, 0, 0x17006500, {1, 2}), "pixel data short by 771803646 bytes"},
        {LegacyFile(52, 16384, 16384, 0, 18, 1, rgba), "pixel data short by 1073741760 bytes"},
    };
    for (const auto& c : cases)
        ExpectRefused(dir, "x.orb", c.bytes, c.reason);
}
