// Headers and their metadata, textures and their surfaces, and the native file.

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// A header's items in map order, "fourCC/key=data", then its metaDataSize.
std::string Items(const CORBTextureHeader& header)
{
    std::string text;
    const MetaDataMap& map = *header.getMetaDataMap();
    for (unsigned i = 0; i < map.GetSize(); ++i)
        for (unsigned j = 0; j < map.GetValue(i).GetSize(); ++j)
        {
            const MetaDataBlock& b = map.GetValue(i).GetValue(j);
            text += std::to_string(b.fourCC) + "/" + std::to_string(b.key) + "=" +
                    std::string(reinterpret_cast<const char*>(b.data), b.data ? b.dataSize : 0) + " ";
        }
    return text + std::to_string(header.getMetaDataSize());
}

// The typed items as the getters give them: orientation of each axis, bump
// map flag, scale and order, cube map order, border and atlas members.
std::string Typed(const CORBTextureHeader& h)
{
    uint32_t x = 5, y = 5, z = 5;
    h.getBorder(x, y, z);
    std::ostringstream out;
    out << h.getOrientation(eAxisX) << "," << h.getOrientation(eAxisY) << "," << h.getOrientation(eAxisZ) << " bump "
        << h.isBumpMap() << " " << h.getBumpMapScale() << " '" << h.getBumpMapOrder().c_str() << "' cube '"
        << h.getCubeMapOrder().c_str() << "' border " << x << "," << y << "," << z << " atlas "
        << h.getNumTextureAtlasMembers();
    return out.str();
}

MetaDataBlock Block(uint32_t fourCC, uint32_t key, const char* text)
{
    return MetaDataBlock(fourCC, key, uint32_t(std::strlen(text)), reinterpret_cast<const uint8_t*>(text));
}

// A texture whose bytes count up, with metadata of two vendors.
CORBTexture SampleTexture(uint32_t mips = 3, uint32_t members = 2, uint32_t faces = 2)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, mips, members, faces));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 7 + 1);
    texture.setOrientation(eOrientUp);
    texture.setCubeMapOrder("XxYyZz");
    texture.addMetaData(Block(0x52444E56, 3, "vendor note"));
    return texture;
}

} // namespace

TEST(TextureHeader, LevelsFlagsAndTypedItems)
{
    const CORBTextureHeader etc(ePF_ETC1, 5, 12, 1, 3);
    EXPECT_EQ(etc.getWidth(1) * 10 + etc.getHeight(1), 62u);
    EXPECT_EQ(etc.getHeight(2), 1u);
    EXPECT_EQ(etc.getWidth(3), 0u); // beyond the MIP count
    // 12x5 rounds to 12x8: 48 bytes, so 96 texels of the rounded size.
    EXPECT_EQ(etc.getDataSize(0), 48u);
    EXPECT_EQ(etc.getTextureSize(0), 96u);
    EXPECT_EQ(CORBTextureHeader(ePF_ASTC_4x4, 8, 8).getTextureSize(), 0u);

    // Setting either flag false clears the whole word.
    CORBTextureHeader f;
    f.setIsPreMultiplied(true);
    f.setIsFileCompressed(true);
    EXPECT_EQ(f.getFileHeader().flags, 3u);
    f.setIsFileCompressed(false);
    EXPECT_FALSE(f.isPreMultiplied());

    // Typed items and their defaults.
    CORBTextureHeader h(ORBStandard8PixelType, 4, 4);
    EXPECT_EQ(Typed(CORBTextureHeader()), "0,0,0 bump 0 0 '' cube '' border 0,0,0 atlas 0");
    h.setBorder(9, 9, 9); // an item of another key must not satisfy the look-ups
    EXPECT_EQ(Typed(h), "0,0,0 bump 0 0 '' cube '' border 9,9,9 atlas 0");
    EXPECT_EQ(h.getTextureAtlasData(), nullptr);
    const MetaDataBlock none = h.getMetaData(0x12345678, 0);
    EXPECT_EQ(none.fourCC | none.key | none.dataSize, 0u);
    EXPECT_EQ(h.getMetaDataMap()->GetSize(), 1u); // const look-ups create nothing

    // A byte an axis; bump orders are cut to four letters and cube orders to six.
    h.setOrientation(EORBTOrientation(7));
    h.setBumpMap(2.5f, "rgbax");
    h.setCubeMapOrder("XxYyZzWw");
    h.setBorder(1, 2, 3);
    const float atlas[4] = {0.0f, 0.5f, 0.5f, 1.0f};
    h.setTextureAtlas(atlas, 4);
    EXPECT_EQ(Typed(h), "1,2,4 bump 1 2.5 'rgba' cube 'XxYyZz' border 1,2,3 atlas 4");
    EXPECT_EQ(h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation).dataSize, 3u);
    EXPECT_EQ(h.getTextureAtlasData()[1], 0.5f);
    EXPECT_EQ(h.getMetaDataSize(), CORBTextureHeader(h).recountMetaDataSize());
    // Shorter values leave no stale bytes.
    h.setBumpMap(1.0f, "z");
    const MetaDataBlock bump = h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaBumpData);
    EXPECT_EQ(bump.data[5] | bump.data[6] | bump.data[7], 0);
    h.setCubeMapOrder("Zz");
    EXPECT_EQ(h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder).dataSize, 2u);

    // Atlas members need more than one pixel.
    CORBTextureHeader single(ORBStandard8PixelType, 1, 1), deep(ORBStandard8PixelType, 1, 1, 2);
    single.setTextureAtlas(atlas, 2);
    deep.setTextureAtlas(atlas, 2);
    EXPECT_EQ(single.getNumTextureAtlasMembers() * 10 + deep.getNumTextureAtlasMembers(), 2u);

    // Short items, as files may carry, are read no further than their data.
    CORBTextureHeader s(ORBStandard8PixelType, 2, 2);
    const uint8_t two[2] = {'X', 'x'};
    for (uint32_t key : {eMetaCubeMapOrder, eMetaBumpData, eMetaBorder})
        s.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, key, 2, two));
    s.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaOrientation, 1, two));
    EXPECT_EQ(Typed(s), "88,0,0 bump 1 0 '' cube 'Xx' border 0,0,0 atlas 0");
}

TEST(TextureHeader, MetaDataSizeBookkeepingAndRemoval)
{
    // Typed setters replace and recount; removing what was never added changes nothing.
    CORBTextureHeader h;
    h.setBorder(1, 1, 1);
    h.setBorder(2, 2, 2);
    h.removeMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation);
    EXPECT_EQ(h.getMetaDataSize(), 24u);
    h.removeMetaData(ORBTEX_METADATA_FOURCC, eMetaBorder);
    EXPECT_EQ(h.getMetaDataSize(), 0u);

    // addMetaData of an existing key keeps one item and counts it twice.
    h.addMetaData(Block(0x41424344, 7, "first"));
    h.addMetaData(Block(0x41424344, 7, "second!"));
    EXPECT_EQ(Items(h), "1094861636/7=second! " + std::to_string((12 + 5) + (12 + 7)));
    EXPECT_EQ(h.recountMetaDataSize(), 12u + 7);
    EXPECT_EQ(CORBTextureHeader().recountMetaDataSize(), 0u);
    // A typed setter over an item that addMetaData created subtracts only the current size.
    h.setBorder(0, 0, 0);
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaBorder, 12, nullptr));
    const uint32_t before = h.getMetaDataSize();
    h.setBorder(1, 2, 3);
    EXPECT_EQ(h.getMetaDataSize(), before + 24);

    // The record constructor adds to the size the record gives.
    ORBTextureHeaderV3 record;
    record.metaDataSize = 100;
    const MetaDataBlock blocks[2] = {Block(5, 1, "xy"), Block(5, 2, "xyz")};
    EXPECT_EQ(CORBTextureHeader(record, 2, blocks).getMetaDataSize(), 100u + 14 + 15);
    EXPECT_EQ(CORBTextureHeader(record, 2, nullptr).getMetaDataSize(), 100u);

    // Bulk addition is one-by-one addition: existing items, repeats within the
    // batch and across it, new vendors give the same map order, contents and
    // (double-counted) size either way.
    CORBTextureHeader oneByOne, bulk;
    for (CORBTextureHeader* header : {&oneByOne, &bulk})
    {
        header->setOrientation(eOrientUp);
        header->addMetaData(Block(7, 1, "old"));
    }
    const MetaDataBlock batch[] = {Block(7, 2, "a"),   Block(9, 1, "bb"), Block(7, 1, "new!"),
                                   Block(9, 1, "ccc"), Block(ORBTEX_METADATA_FOURCC, eMetaOrientation, "xyz"),
                                   Block(8, 5, "d")};
    for (const MetaDataBlock& block : batch)
        oneByOne.addMetaData(block);
    bulk.addMetaDataBlocks(batch, 6);
    EXPECT_EQ(Items(bulk), Items(oneByOne));
    EXPECT_NE(Items(bulk).find("7/1=new! "), std::string::npos);

    // Removal swaps the last item in.
    CORBTextureHeader r;
    r.addMetaData(Block(1, 10, "a"));
    r.addMetaData(Block(1, 20, "bb"));
    r.addMetaData(Block(1, 30, "ccc"));
    r.removeMetaData(1, 10);
    EXPECT_EQ(Items(r), "1/30=ccc 1/20=bb 29");
    // Removing the last item and adding again keeps keys and values paired.
    r.removeMetaData(1, 20);
    r.addMetaData(Block(1, 40, "dddd"));
    EXPECT_EQ(Items(r), "1/30=ccc 1/40=dddd 31");
    // An unknown fourCC leaves an empty second-level map behind and changes no size.
    r.removeMetaData(99, 0);
    EXPECT_EQ(Items(r), "1/30=ccc 1/40=dddd 31");
    EXPECT_EQ(r.getMetaDataMap()->GetSize(), 2u);
}

TEST(TextureHeader, CopiesAreDeepAndSerialisedBlocks)
{

    CORBTextureHeader a(ORBStandard8PixelType, 8, 8), c;
    a.setCubeMapOrder("XxYyZz");
    CORBTextureHeader b(a);
    c = a;
    const CORBTextureHeader& self = c;
    c = self;
    a.setCubeMapOrder("ZzYyXx");
    EXPECT_STREQ(b.getCubeMapOrder().c_str(), "XxYyZz");
    EXPECT_STREQ(c.getCubeMapOrder().c_str(), "XxYyZz");

    // Serialised blocks: three words, then the data (none if the size is 0).
    // A copy of a block without data stays without data, whatever its size says.
    const uint8_t serial[] = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c', 0xEE};
    const uint8_t empty[] = {1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};
    const unsigned char* cursor = serial;
    MetaDataBlock block;
    EXPECT_TRUE(block.ReadFromPtr(&cursor) && cursor == serial + 15 && std::memcmp(block.data, "abc", 3) == 0);
    EXPECT_EQ(block.fourCC + block.key * 10 + block.dataSize * 100, 321u);
    cursor = empty;
    EXPECT_TRUE(block.ReadFromPtr(&cursor) && cursor == empty + 12 && block.data == nullptr);
    const MetaDataBlock copy(MetaDataBlock(1, 2, 50, nullptr));
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(copy.dataSize, 50u);
}

TEST(Texture, SurfaceOffsetsAndCopies)
{
    // 8x4 rgba8: level 0 surfaces are 128 bytes, level 1 (4x2) 32 bytes; face, then member, then level.
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, 2, 2, 2));
    const uint8_t* base = texture.getDataPtr();
    const long offsets[8] = {0, 128, 256, 384, 512, 544, 576, 608};
    for (uint32_t i = 0; i < 8; ++i)
        EXPECT_EQ(texture.getDataPtr(i / 4, i / 2 % 2, i % 2) - base, offsets[i]) << i;
    EXPECT_EQ(texture.getDataSize(), 640u);
    for (const uint8_t* outside : {texture.getDataPtr(0xFFFFFFFFu, 0, 0), texture.getDataPtr(2, 0, 0),
                                   texture.getDataPtr(0, 2, 0), texture.getDataPtr(0, 0, 2)})
        EXPECT_EQ(outside, nullptr);

    // ORBTC 4bpp 16x16: 128 bytes, then every smaller level a whole block of 32 bytes per face.
    const CORBTexture orbtc(CORBTextureHeader(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 4, 1, 6));
    EXPECT_EQ(orbtc.getDataPtr(3, 0, 5) - orbtc.getDataPtr(), 6 * 128 + 2 * 6 * 32 + 5 * 32);
    EXPECT_EQ(orbtc.getDataSize(), 6u * 128 + 3 * 6 * 32);
    // Levels from 32 on are 1x1; offsets keep adding whole 1x1 surfaces.
    const CORBTexture deep(CORBTextureHeader(ORBStandard8PixelType, 1, 1, 1, 40));
    EXPECT_EQ(deep.getDataPtr(39) - deep.getDataPtr(), 39 * 4);
    EXPECT_EQ(deep.getDataSize(), 160u);

    EXPECT_EQ(CORBTexture().getDataPtr(), nullptr);
    const uint8_t pixels[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const CORBTexture fromData(CORBTextureHeader(ORBStandard8PixelType, 2, 2), pixels);
    CORBTexture copy(fromData), assigned;
    assigned = fromData;
    const CORBTexture& self = assigned;
    assigned = self;
    copy.getDataPtr()[0] = 99;
    EXPECT_EQ(fromData.getDataPtr()[0], 1);
    EXPECT_EQ(assigned.getDataPtr()[15], 16);
}

TEST(Texture, PaddingAlignsTheDataStart)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    texture.addMetaData(Block(0x11111111, 0, "12345678"));
    texture.addPaddingMetaData(16);
    // 52 + 20 + 12 + 12 bytes of padding: data start at 96.
    EXPECT_EQ(texture.getMetaData(ORBTEX_METADATA_FOURCC, eMetaPadding).dataSize, 12u);
    ASSERT_TRUE(texture.saveFile((dir / "padded.orb").c_str()));
    EXPECT_EQ(ReadBytes(dir / "padded.orb").size(), 96u + 16);
    EXPECT_EQ(CORBTexture((dir / "padded.orb").c_str()).getMetaDataSize(), 44u);
    const uint32_t before = texture.getMetaDataSize();
    texture.addPaddingMetaData(1);
    texture.addPaddingMetaData(0);
    EXPECT_EQ(texture.getMetaDataSize(), before);

    // A metadata size of 4 (as a record may carry) needs 12 bytes: data at 80.
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    record.metaDataSize = 4;
    CORBTexture fromRecord((CORBTextureHeader(record)));
    fromRecord.addPaddingMetaData(16);
    EXPECT_EQ(52 + fromRecord.getMetaDataSize(), 80u);

    // Without other metadata the padding is empty, and an empty item cannot be saved.
    CORBTexture bare(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    bare.addPaddingMetaData(16);
    EXPECT_EQ(bare.getMetaDataSize(), 12u);
    EXPECT_FALSE(bare.saveFile((dir / "bare.orb").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "bare.orb"));
}

TEST(NativeFile, SaveThenLoadIsByteIdenticalAndTheExtensionDecides)
{
    ScratchDir dir;
    const CORBTexture original = SampleTexture();
    ASSERT_TRUE(original.saveFile((dir / "sample.orb").c_str()));
    const std::vector<uint8_t> bytes = ReadBytes(dir / "sample.orb");
    ASSERT_EQ(bytes.size(), 52u + original.getMetaDataSize() + original.getDataSize());
    const CORBTexture fromFile((dir / "sample.orb").c_str());
    EXPECT_TRUE(original.isEqual(fromFile));
    EXPECT_TRUE(original.isEqual(CORBTexture(static_cast<const void*>(bytes.data()))));
    EXPECT_TRUE(original.isEqual(CORBTexture(bytes.data(), bytes.size())));
    ASSERT_TRUE(fromFile.saveFile((dir / "again.orb").c_str()));
    EXPECT_EQ(ReadBytes(dir / "again.orb"), bytes);

    // Native saving appends .orb unless the path already ends in it (any case of the letters).
    const CORBTexture single = SampleTexture(1, 1, 1);
    for (const char* name : {"plain", "picture.png", "upper.ORB"})
        ASSERT_TRUE(single.saveFile((dir / name).c_str()));
    for (const char* name : {"plain.orb", "picture.png.orb", "upper.ORB"})
        EXPECT_TRUE(std::filesystem::exists(dir / name)) << name;
    // Native content loads under any extension but the foreign ones.
    const std::pair<const char*, bool> names[] = {
        {"renamed.bin", true}, {"noextension", true}, {"native.ktx", false}, {"native.DDS", false},
        {"native.astc", false}};
    for (const auto& [name, loads] : names)
    {
        WriteBytes(dir / name, ReadBytes(dir / "plain.orb"));
        EXPECT_EQ(CORBTexture((dir / name).c_str()).getDataPtr() != nullptr, loads) << name;
    }
    EXPECT_EQ(CORBTexture(static_cast<const char*>(nullptr)).getDataPtr(), nullptr);
    EXPECT_FALSE(single.saveFile((dir / "no-such-dir/x.orb").c_str()));
}

TEST(NativeFile, OvercountedMetaDataStillLoads)
{
    // Adding one key twice counts it twice; the written header overstates the
    // metadata, and the loader recovers the data start from what it read.
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i);
    // The loader reads a stray block header from the pixels; its size (40)
    // runs past the declared area but not past the file, so it is dropped.
    const uint32_t straySize = 40;
    std::memcpy(texture.getDataPtr() + 8, &straySize, 4);
    texture.addMetaData(Block(0x77777777, 1, "1234"));
    texture.addMetaData(Block(0x77777777, 1, "1234"));
    ASSERT_EQ(texture.getMetaDataSize(), 32u);
    ASSERT_TRUE(texture.saveFile((dir / "twice.orb").c_str()));
    ASSERT_EQ(ReadBytes(dir / "twice.orb").size(), 52u + 16 + 64);
    const CORBTexture loaded((dir / "twice.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    EXPECT_EQ(loaded.getMetaDataSize(), 16u);
    EXPECT_EQ(std::memcmp(loaded.getDataPtr(), texture.getDataPtr(), 64), 0);
}

TEST(NativeFile, WriterRefusalsAndShortData)
{
    ScratchDir dir;
    // An item with a size but no data, and a header edited beyond its block.
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    std::memset(texture.getDataPtr(), 0, texture.getDataSize());
    CORBTexture edited(texture);
    texture.addMetaData(MetaDataBlock(0x55555555, 0, 0, nullptr));
    EXPECT_FALSE(texture.saveFile((dir / "empty-item.orb").c_str()));
    edited.setWidth(1024);
    EXPECT_FALSE(edited.saveFile((dir / "edited.orb").c_str()));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));

    // A file short of pixel data loads with a zeroed tail.
    ASSERT_TRUE(SampleTexture(1, 1, 1).saveFile((dir / "full.orb").c_str()));
    std::vector<uint8_t> bytes = ReadBytes(dir / "full.orb");
    WriteBytes(dir / "short.orb", std::vector<uint8_t>(bytes.begin(), bytes.end() - 10));
    const CORBTexture loaded((dir / "short.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    std::memset(bytes.data() + bytes.size() - 10, 0, 10);
    EXPECT_EQ(std::vector<uint8_t>(loaded.getDataPtr(), loaded.getDataPtr() + loaded.getDataSize()),
              std::vector<uint8_t>(bytes.end() - loaded.getDataSize(), bytes.end()));
}

// Every container writes through one sink: the memory image is the file, and
// equality sees headers, items and pixels. Failed saves say why.
TEST(NativeFile, MemoryImagesEqualFilesAndSavesExplainFailures)
{
    ScratchDir dir;
    const CORBTexture texture = SampleTexture(3, 1, 1);
    for (const char* name : {"a.orb", "a.dds", "a.ktx", "a.h"})
    {
        std::vector<uint8_t> image;
        ASSERT_TRUE(texture.saveToMemory(image, name));
        ASSERT_TRUE(texture.saveFile((dir / name).c_str()));
        EXPECT_EQ(image, ReadBytes(dir / name)) << name;
    }
    std::vector<uint8_t> legacy;
    ASSERT_TRUE(texture.saveToMemoryLegacyORB(legacy, eLegacyApi1));
    ASSERT_TRUE(texture.saveFileLegacyORB((dir / "legacy.orb").c_str(), eLegacyApi1));
    EXPECT_EQ(legacy, ReadBytes(dir / "legacy.orb"));

    CORBTexture other(texture);
    EXPECT_TRUE(other.isEqual(texture));
    other.getDataPtr()[other.getDataSize() - 1] ^= 1;
    EXPECT_FALSE(other.isEqual(texture));
    CORBTexture renamed(texture);
    renamed.removeMetaData(0x52444E56, 3);
    renamed.addMetaData(Block(0x52444E56, 4, "vendor note"));
    EXPECT_FALSE(renamed.isEqual(texture));
    // One item added twice counts twice: as large as two items, yet fewer.
    other = texture;
    renamed = texture;
    other.addMetaData(Block(0x52444E56, 3, "vendor note"));
    renamed.addMetaData(Block(0x52444E56, 4, "vendor note"));
    ASSERT_EQ(other.getMetaDataSize(), renamed.getMetaDataSize());
    EXPECT_FALSE(other.isEqual(renamed));

    EXPECT_FALSE(texture.saveFile((dir / "no-such-dir/x.dds").c_str()));
    EXPECT_EQ(ORBTGetLastError(), "cannot create " + (dir / "no-such-dir/x.dds") + ": No such file or directory");
    EXPECT_EQ(ORBTGetLastErrno(), ENOENT);
    EXPECT_FALSE(texture.saveFileLegacyORB((dir / "x.orb").c_str(), eLegacyApiNone));
    EXPECT_STREQ(ORBTGetLastError(), "this channel layout has no legacy format number for legacy API 0");
    EXPECT_FALSE(CORBTexture().saveToMemory(legacy, "x.ktx"));
    EXPECT_STREQ(ORBTGetLastError(), "the texture holds no pixel data");
    EXPECT_EQ(ORBTGetLastErrorKind(), eORBTErrorArgument);
}
