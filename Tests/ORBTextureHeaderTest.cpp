#include <cstring>

#include <gtest/gtest.h>

#include "ORBTextureHeader.h"

using namespace orbtexture;

namespace
{

// Sum of 12 plus dataSize over every item: what metaDataSize should be when
// nothing was counted twice.
uint32_t SumOfItems(const CORBTextureHeader& header)
{
    uint32_t sum = 0;
    const MetaDataMap& map = *header.getMetaDataMap();
    for (unsigned i = 0; i < map.GetSize(); ++i)
        for (unsigned j = 0; j < map.GetValue(i).GetSize(); ++j)
            sum += 12 + map.GetValue(i).GetValue(j).dataSize;
    return sum;
}

MetaDataBlock Block(uint32_t fourCC, uint32_t key, const char* text)
{
    return MetaDataBlock(fourCC, key, uint32_t(std::strlen(text)), reinterpret_cast<const uint8_t*>(text));
}

} // namespace

TEST(TextureHeader, DefaultAndValueConstruction)
{
    const CORBTextureHeader empty;
    const ORBTextureHeaderV3 record = empty.getFileHeader();
    EXPECT_EQ(record.version, 0x0342524Fu);
    EXPECT_EQ(record.pixelFormat, uint64_t(ePF_NumCompressed));
    EXPECT_EQ(empty.getWidth(), 1u);
    EXPECT_EQ(empty.getNumMIPLevels(), 1u);
    EXPECT_EQ(empty.getDataSize(), 0u);
    EXPECT_EQ(empty.getMetaDataSize(), 0u);

    // Height comes before width in the parameter list and in the record.
    const CORBTextureHeader h(ORBStandard16PixelType, 30, 40, 2, 3, 4, 6, eColourSpaceSRGB, eVarUnsignedShortNorm,
                              true);
    EXPECT_EQ(h.getHeight(), 30u);
    EXPECT_EQ(h.getWidth(), 40u);
    EXPECT_EQ(h.getDepth(), 2u);
    EXPECT_EQ(h.getNumMIPLevels(), 3u);
    EXPECT_EQ(h.getNumArrayMembers(), 4u);
    EXPECT_EQ(h.getNumFaces(), 6u);
    EXPECT_EQ(h.getColourSpace(), eColourSpaceSRGB);
    EXPECT_EQ(h.getChannelType(), eVarUnsignedShortNorm);
    EXPECT_EQ(h.getFileHeader().flags, 2u);
    EXPECT_EQ(h.getBitsPerPixel(), 64u);
    uint8_t bytes[52];
    const ORBTextureHeaderV3 r = h.getFileHeader();
    std::memcpy(bytes, &r, 52);
    uint32_t word;
    std::memcpy(&word, bytes + 24, 4);
    EXPECT_EQ(word, 30u);
    std::memcpy(&word, bytes + 28, 4);
    EXPECT_EQ(word, 40u);
}

TEST(TextureHeader, LevelDimensionsAndTexelCounts)
{
    const CORBTextureHeader h(ePF_ETC1, 5, 12, 1, 3);
    EXPECT_EQ(h.getWidth(1), 6u);
    EXPECT_EQ(h.getHeight(1), 2u);
    EXPECT_EQ(h.getHeight(2), 1u);
    EXPECT_EQ(h.getWidth(3), 0u); // beyond the MIP count
    // 12x5 rounds to 12x8: 48 bytes, so 96 texels of the rounded size.
    EXPECT_EQ(h.getDataSize(0), 48u);
    EXPECT_EQ(h.getTextureSize(0), 96u);
    EXPECT_EQ(CORBTextureHeader(ePF_ASTC_4x4, 8, 8).getTextureSize(), 0u);
}

TEST(TextureHeader, FlagSettersClearEverythingOnFalse)
{
    CORBTextureHeader h;
    h.setIsFileCompressed(true);
    h.setIsPreMultiplied(true);
    EXPECT_EQ(h.getFileHeader().flags, 3u);
    h.setIsPreMultiplied(false);
    EXPECT_EQ(h.getFileHeader().flags, 0u);
    EXPECT_FALSE(h.isFileCompressed());

    h.setIsPreMultiplied(true);
    h.setIsFileCompressed(false);
    EXPECT_FALSE(h.isPreMultiplied());
}

TEST(TextureHeader, TypedItemsRoundTrip)
{
    CORBTextureHeader h(ORBStandard8PixelType, 4, 4);
    h.setOrientation(EORBTOrientation(7));
    const MetaDataBlock orientation = h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation);
    ASSERT_EQ(orientation.dataSize, 3u);
    EXPECT_EQ(orientation.data[0], 1);
    EXPECT_EQ(orientation.data[1], 2);
    EXPECT_EQ(orientation.data[2], 4);
    EXPECT_EQ(h.getOrientation(eAxisY), eOrientUp);

    h.setBumpMap(2.5f, "rgbax");
    EXPECT_TRUE(h.isBumpMap());
    EXPECT_EQ(h.getBumpMapScale(), 2.5f);
    EXPECT_STREQ(h.getBumpMapOrder().c_str(), "rgba");
    h.setBumpMap(1.0f, "z");
    EXPECT_STREQ(h.getBumpMapOrder().c_str(), "z");
    const MetaDataBlock bump = h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaBumpData);
    EXPECT_EQ(bump.data[5] | bump.data[6] | bump.data[7], 0);

    h.setCubeMapOrder("XxYyZzWw");
    EXPECT_STREQ(h.getCubeMapOrder().c_str(), "XxYyZz");
    h.setCubeMapOrder("Zz");
    EXPECT_STREQ(h.getCubeMapOrder().c_str(), "Zz");
    EXPECT_EQ(h.getMetaData(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder).dataSize, 2u);

    h.setBorder(1, 2, 3);
    uint32_t x, y, z;
    h.getBorder(x, y, z);
    EXPECT_EQ(x * 100 + y * 10 + z, 123u);

    const float atlas[4] = {0.0f, 0.5f, 0.5f, 1.0f};
    h.setTextureAtlas(atlas, 4);
    EXPECT_EQ(h.getNumTextureAtlasMembers(), 4u);
    EXPECT_EQ(h.getTextureAtlasData()[1], 0.5f);

    EXPECT_EQ(h.getMetaDataSize(), SumOfItems(h));
}

TEST(TextureHeader, AbsentItemsGiveDefaults)
{
    CORBTextureHeader h(ORBStandard8PixelType, 4, 4);
    h.setBorder(9, 9, 9); // an item of another key must not satisfy the look-ups
    EXPECT_EQ(h.getOrientation(eAxisX), 0);
    EXPECT_FALSE(h.isBumpMap());
    EXPECT_EQ(h.getBumpMapScale(), 0.0f);
    EXPECT_TRUE(h.getBumpMapOrder().empty());
    EXPECT_TRUE(h.getCubeMapOrder().empty());
    EXPECT_EQ(h.getNumTextureAtlasMembers(), 0u);
    EXPECT_EQ(h.getTextureAtlasData(), nullptr);
    EXPECT_FALSE(h.hasMetaData(0x12345678, 0));
    const MetaDataBlock none = h.getMetaData(0x12345678, 0);
    EXPECT_EQ(none.fourCC | none.key | none.dataSize, 0u);
    EXPECT_EQ(none.data, nullptr);
    // Const look-ups create nothing.
    EXPECT_EQ(h.getMetaDataMap()->GetSize(), 1u);

    const CORBTextureHeader none3;
    uint32_t x = 5, y = 5, z = 5;
    none3.getBorder(x, y, z);
    EXPECT_EQ(x + y + z, 0u);
}

TEST(TextureHeader, AtlasMembersNeedMoreThanOnePixel)
{
    const float atlas[2] = {1.0f, 2.0f};
    CORBTextureHeader single(ORBStandard8PixelType, 1, 1);
    single.setTextureAtlas(atlas, 2);
    EXPECT_EQ(single.getNumTextureAtlasMembers(), 0u);
    EXPECT_NE(single.getTextureAtlasData(), nullptr);
    CORBTextureHeader deep(ORBStandard8PixelType, 1, 1, 2);
    deep.setTextureAtlas(atlas, 2);
    EXPECT_EQ(deep.getNumTextureAtlasMembers(), 2u);
}

TEST(TextureHeader, TypedSettersReplaceWithoutRecounting)
{
    CORBTextureHeader h;
    h.setBorder(1, 1, 1);
    h.setBorder(2, 2, 2);
    EXPECT_EQ(h.getMetaDataSize(), 24u);
    EXPECT_EQ(h.getMetaDataMap()->GetValue(0).GetSize(), 1u);

    h.removeMetaData(ORBTEX_METADATA_FOURCC, eMetaOrientation); // never added
    EXPECT_EQ(h.getMetaDataSize(), 24u);
    h.removeMetaData(ORBTEX_METADATA_FOURCC, eMetaBorder);
    EXPECT_EQ(h.getMetaDataSize(), 0u);
    EXPECT_FALSE(h.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaBorder));
}

TEST(TextureHeader, AddMetaDataCountsEveryCall)
{
    CORBTextureHeader h;
    h.addMetaData(Block(0x41424344, 7, "first"));
    h.addMetaData(Block(0x41424344, 7, "second!"));
    // One item holding the second block, counted twice.
    EXPECT_EQ(h.getMetaDataMap()->GetValue(0).GetSize(), 1u);
    EXPECT_EQ(h.getMetaData(0x41424344, 7).dataSize, 7u);
    EXPECT_EQ(h.getMetaDataSize(), (12u + 5) + (12u + 7));

    // A typed setter over an item that addMetaData created subtracts only the current size.
    h.setBorder(0, 0, 0);
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaBorder, 12, nullptr));
    const uint32_t before = h.getMetaDataSize();
    h.setBorder(1, 2, 3);
    EXPECT_EQ(h.getMetaDataSize(), before + 24);
}

TEST(TextureHeader, BulkAddIsOneByOneAddition)
{
    // Existing items, repeats within the batch and across it, new vendors:
    // the same map order, contents and (double-counted) size either way.
    CORBTextureHeader oneByOne, bulk;
    for (CORBTextureHeader* h : {&oneByOne, &bulk})
    {
        h->setOrientation(eOrientUp);
        h->addMetaData(Block(7, 1, "old"));
    }
    const MetaDataBlock batch[] = {Block(7, 2, "a"),  Block(9, 1, "bb"), Block(7, 1, "new!"),
                                   Block(9, 1, "ccc"), Block(ORBTEX_METADATA_FOURCC, eMetaOrientation, "xyz"),
                                   Block(8, 5, "d")};
    for (const MetaDataBlock& block : batch)
        oneByOne.addMetaData(block);
    bulk.addMetaDataBlocks(batch, 6);

    EXPECT_EQ(bulk.getMetaDataSize(), oneByOne.getMetaDataSize());
    const MetaDataMap& a = *oneByOne.getMetaDataMap();
    const MetaDataMap& b = *bulk.getMetaDataMap();
    ASSERT_EQ(a.GetSize(), b.GetSize());
    for (unsigned i = 0; i < a.GetSize(); ++i)
    {
        EXPECT_EQ(a.GetKey(i), b.GetKey(i));
        ASSERT_EQ(a.GetValue(i).GetSize(), b.GetValue(i).GetSize());
        for (unsigned j = 0; j < a.GetValue(i).GetSize(); ++j)
        {
            const MetaDataBlock& x = a.GetValue(i).GetValue(j);
            const MetaDataBlock& y = b.GetValue(i).GetValue(j);
            EXPECT_EQ(x.key, y.key);
            ASSERT_EQ(x.dataSize, y.dataSize);
            EXPECT_EQ(std::memcmp(x.data, y.data, x.dataSize), 0);
        }
    }
    EXPECT_EQ(std::memcmp(bulk.getMetaData(7, 1).data, "new!", 4), 0);
    EXPECT_EQ(bulk.getMetaData(9, 1).dataSize, 3u);
}

TEST(TextureHeader, RecountGivesTheTrueSum)
{
    CORBTextureHeader h;
    h.addMetaData(Block(3, 1, "first"));
    h.addMetaData(Block(3, 1, "again"));
    h.setBorder(1, 2, 3);
    ASSERT_EQ(h.getMetaDataSize(), 17u + 17 + 24);
    EXPECT_EQ(h.recountMetaDataSize(), 17u + 24);
    EXPECT_EQ(h.getMetaDataSize(), SumOfItems(h));
    CORBTextureHeader empty;
    EXPECT_EQ(empty.recountMetaDataSize(), 0u);
}

TEST(TextureHeader, RemovalSwapsTheLastItemIn)
{
    CORBTextureHeader h;
    h.addMetaData(Block(1, 10, "a"));
    h.addMetaData(Block(1, 20, "bb"));
    h.addMetaData(Block(1, 30, "ccc"));
    h.removeMetaData(1, 10);
    const MetaDataKeyMap& items = h.getMetaDataMap()->GetValue(0);
    ASSERT_EQ(items.GetSize(), 2u);
    EXPECT_EQ(items.GetKey(0), 30u);
    EXPECT_EQ(items.GetKey(1), 20u);
    EXPECT_EQ(std::memcmp(items.GetValue(0).data, "ccc", 3), 0);
    EXPECT_EQ(h.getMetaDataSize(), SumOfItems(h));

    // Removing the last item and adding again keeps keys and values paired.
    h.removeMetaData(1, 20);
    h.addMetaData(Block(1, 40, "dddd"));
    EXPECT_EQ(h.getMetaData(1, 40).dataSize, 4u);
    EXPECT_EQ(h.getMetaData(1, 30).dataSize, 3u);

    // An unknown fourCC leaves an empty second-level map behind and changes no size.
    const uint32_t size = h.getMetaDataSize();
    h.removeMetaData(99, 0);
    EXPECT_EQ(h.getMetaDataSize(), size);
    EXPECT_EQ(h.getMetaDataMap()->GetSize(), 2u);
}

TEST(TextureHeader, RecordConstructorAddsToTheGivenSize)
{
    ORBTextureHeaderV3 record;
    record.metaDataSize = 100;
    const MetaDataBlock blocks[2] = {Block(5, 1, "xy"), Block(5, 2, "xyz")};
    const CORBTextureHeader h(record, 2, blocks);
    EXPECT_EQ(h.getMetaDataSize(), 100u + 14 + 15);
    EXPECT_TRUE(h.hasMetaData(5, 2));

    const CORBTextureHeader none(record, 2, nullptr);
    EXPECT_EQ(none.getMetaDataSize(), 100u);
}

TEST(TextureHeader, CopiesAreDeep)
{
    CORBTextureHeader a(ORBStandard8PixelType, 8, 8);
    a.setCubeMapOrder("XxYyZz");
    CORBTextureHeader b(a);
    CORBTextureHeader c;
    c = a;
    const CORBTextureHeader& self = c;
    c = self;
    a.setCubeMapOrder("ZzYyXx");
    EXPECT_STREQ(b.getCubeMapOrder().c_str(), "XxYyZz");
    EXPECT_STREQ(c.getCubeMapOrder().c_str(), "XxYyZz");
    EXPECT_NE(b.getMetaData(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder).data,
              a.getMetaData(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder).data);
}

TEST(TextureHeader, ShortItemsFromFilesReadNoFurtherThanTheirData)
{
    // Items of the library's keys but shorter than the typed setters write.
    CORBTextureHeader h(ORBStandard8PixelType, 2, 2);
    const uint8_t two[2] = {'X', 'x'};
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder, 2, two));
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaBumpData, 2, two));
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaBorder, 2, two));
    h.addMetaData(MetaDataBlock(ORBTEX_METADATA_FOURCC, eMetaOrientation, 1, two));
    EXPECT_STREQ(h.getCubeMapOrder().c_str(), "Xx");
    EXPECT_TRUE(h.isBumpMap());
    EXPECT_EQ(h.getBumpMapScale(), 0.0f);
    EXPECT_TRUE(h.getBumpMapOrder().empty());
    uint32_t x, y, z;
    h.getBorder(x, y, z);
    EXPECT_EQ(x + y + z, 0u);
    EXPECT_EQ(h.getOrientation(eAxisX), 'X');
    EXPECT_EQ(h.getOrientation(eAxisZ), 0);
}

TEST(MetaDataBlockTest, CopyAndSerialisedRead)
{
    const uint8_t serial[] = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c', 0xEE};
    const unsigned char* cursor = serial;
    MetaDataBlock block;
    EXPECT_TRUE(block.ReadFromPtr(&cursor));
    EXPECT_EQ(cursor, serial + 15);
    EXPECT_EQ(block.fourCC + block.key * 10 + block.dataSize * 100, 321u);
    EXPECT_EQ(std::memcmp(block.data, "abc", 3), 0);
    EXPECT_EQ(block.SizeOfBlockInBytes(), 15u);

    const uint8_t empty[] = {1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};
    cursor = empty;
    EXPECT_TRUE(block.ReadFromPtr(&cursor));
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(cursor, empty + 12);

    // A copy of a block without data stays without data, whatever its size says.
    MetaDataBlock sizedButEmpty(1, 2, 50, nullptr);
    const MetaDataBlock copy(sizedButEmpty);
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(copy.dataSize, 50u);
}
