#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;
using testsupport::WriteBytes;

namespace
{

// A texture whose bytes count up, with metadata of two vendors.
CORBTexture SampleTexture(uint32_t mips = 3, uint32_t members = 2, uint32_t faces = 2)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, mips, members, faces));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 7 + 1);
    texture.setOrientation(eOrientUp);
    texture.setCubeMapOrder("XxYyZz");
    const char note[] = "vendor note";
    texture.addMetaData(MetaDataBlock(0x52444E56, 3, sizeof(note), reinterpret_cast<const uint8_t*>(note)));
    return texture;
}

// A 1x1 rgba8 file by hand: header declaring 'declaredMetaDataSize', one
// block header, then 'tail' bytes of 0xA0, 0xA1, ...
std::vector<uint8_t> HandMadeFile(uint32_t declaredMetaDataSize, uint32_t fourCC, uint32_t blockSize, int tail)
{
    std::vector<uint8_t> file(52);
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    record.metaDataSize = declaredMetaDataSize;
    std::memcpy(file.data(), &record, 52);
    const uint32_t block[3] = {fourCC, 0, blockSize};
    testsupport::AppendValue(file, block);
    for (int i = 0; i < tail; ++i)
        file.push_back(uint8_t(0xA0 + i));
    return file;
}

void ExpectSameTexture(const CORBTexture& a, const CORBTexture& b)
{
    const ORBTextureHeaderV3 ha = a.getFileHeader(), hb = b.getFileHeader();
    EXPECT_EQ(std::memcmp(&ha, &hb, sizeof(ha)), 0);
    ASSERT_NE(b.getDataPtr(), nullptr);
    ASSERT_EQ(a.getDataSize(), b.getDataSize());
    EXPECT_EQ(std::memcmp(a.getDataPtr(), b.getDataPtr(), a.getDataSize()), 0);
    EXPECT_STREQ(b.getCubeMapOrder().c_str(), "XxYyZz");
    EXPECT_EQ(b.getOrientation(eAxisY), eOrientUp);
    const MetaDataBlock note = b.getMetaData(0x52444E56, 3);
    ASSERT_EQ(note.dataSize, 12u);
    EXPECT_STREQ(reinterpret_cast<const char*>(note.data), "vendor note");
}

} // namespace

TEST(Texture, SurfaceOrderIsLevelThenMemberThenFace)
{
    // 8x4 rgba8: level 0 surfaces are 128 bytes, level 1 (4x2) 32 bytes.
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8, 1, 2, 2, 2));
    const uint8_t* base = texture.getDataPtr(0, 0, 0);
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(texture.getDataPtr(0, 0, 1) - base, 128);
    EXPECT_EQ(texture.getDataPtr(0, 1, 0) - base, 256);
    EXPECT_EQ(texture.getDataPtr(0, 1, 1) - base, 384);
    EXPECT_EQ(texture.getDataPtr(1, 0, 0) - base, 512);
    EXPECT_EQ(texture.getDataPtr(1, 0, 1) - base, 544);
    EXPECT_EQ(texture.getDataPtr(1, 1, 0) - base, 576);
    EXPECT_EQ(texture.getDataPtr(1, 1, 1) - base, 608);
    EXPECT_EQ(texture.getDataSize(), 640u);

    EXPECT_EQ(texture.getDataPtr(0xFFFFFFFFu, 0, 0), nullptr);
    EXPECT_EQ(texture.getDataPtr(2, 0, 0), nullptr);
    EXPECT_EQ(texture.getDataPtr(0, 2, 0), nullptr);
    EXPECT_EQ(texture.getDataPtr(0, 0, 2), nullptr);
}

TEST(Texture, CompressedLevelsTakeWholeBlocks)
{
    // ORBTC 4bpp 16x16: 128 bytes, then every smaller level 32 bytes per face.
    const CORBTexture texture(CORBTextureHeader(ePF_ORBTC_4bpp_RGB, 16, 16, 1, 4, 1, 6));
    const uint8_t* base = texture.getDataPtr();
    EXPECT_EQ(texture.getDataPtr(1, 0, 0) - base, 6 * 128);
    EXPECT_EQ(texture.getDataPtr(3, 0, 5) - base, 6 * 128 + 2 * 6 * 32 + 5 * 32);
    EXPECT_EQ(texture.getDataSize(), 6u * 128 + 3 * 6 * 32);
}

TEST(Texture, DeepLevelChainsAreCheapAndConsistent)
{
    // Levels from 32 on are 1x1; offsets keep adding whole 1x1 surfaces.
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 1, 1, 1, 40));
    const uint8_t* base = texture.getDataPtr();
    EXPECT_EQ(texture.getDataPtr(39) - base, 39 * 4);
    EXPECT_EQ(texture.getDataSize(), 160u);
}

TEST(Texture, ConstructionAndCopies)
{
    const CORBTexture empty;
    EXPECT_EQ(empty.getDataPtr(), nullptr);
    EXPECT_EQ(empty.getDataSize(), 0u);

    const uint8_t pixels[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const CORBTexture fromData(CORBTextureHeader(ORBStandard8PixelType, 2, 2), pixels);
    EXPECT_EQ(std::memcmp(fromData.getDataPtr(), pixels, 16), 0);
    EXPECT_NE(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 2, 2)).getDataPtr(), nullptr);

    CORBTexture copy(fromData);
    CORBTexture assigned;
    assigned = fromData;
    const CORBTexture& self = assigned;
    assigned = self;
    copy.getDataPtr()[0] = 99;
    EXPECT_EQ(fromData.getDataPtr()[0], 1);
    EXPECT_EQ(assigned.getDataPtr()[15], 16);
    EXPECT_EQ(&assigned.getHeader(), static_cast<const CORBTextureHeader*>(&assigned));
}

TEST(Texture, PaddingAlignsTheDataStart)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    const uint8_t eight[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    texture.addMetaData(MetaDataBlock(0x11111111, 0, 8, eight));
    texture.addPaddingMetaData(16);
    // 52 + 20 + 12 + 12 bytes of padding: data start at 96.
    EXPECT_EQ(texture.getMetaData(ORBTEX_METADATA_FOURCC, eMetaPadding).dataSize, 12u);
    ASSERT_TRUE(texture.saveFile((dir / "padded.orb").c_str()));
    EXPECT_EQ(ReadBytes(dir / "padded.orb").size(), 96u + 16);
    EXPECT_EQ(CORBTexture((dir / "padded.orb").c_str()).getMetaDataSize(), 44u);

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
    EXPECT_TRUE(bare.hasMetaData(ORBTEX_METADATA_FOURCC, eMetaPadding));
    EXPECT_FALSE(bare.saveFile((dir / "bare.orb").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "bare.orb"));

    const uint32_t before = texture.getMetaDataSize();
    texture.addPaddingMetaData(1);
    texture.addPaddingMetaData(0);
    EXPECT_EQ(texture.getMetaDataSize(), before);
}

TEST(NativeFile, SaveThenLoadIsByteIdentical)
{
    ScratchDir dir;
    const CORBTexture original = SampleTexture();
    ASSERT_TRUE(original.saveFile((dir / "sample.orb").c_str()));
    const std::vector<uint8_t> bytes = ReadBytes(dir / "sample.orb");
    ASSERT_EQ(bytes.size(), 52u + original.getMetaDataSize() + original.getDataSize());

    const CORBTexture fromFile((dir / "sample.orb").c_str());
    ExpectSameTexture(original, fromFile);
    const CORBTexture fromImage(static_cast<const void*>(bytes.data()));
    ExpectSameTexture(original, fromImage);
    const CORBTexture fromSizedImage(bytes.data(), bytes.size());
    ExpectSameTexture(original, fromSizedImage);

    ASSERT_TRUE(fromFile.saveFile((dir / "again.orb").c_str()));
    EXPECT_EQ(ReadBytes(dir / "again.orb"), bytes);
}

TEST(NativeFile, ExtensionDecidesTheContainer)
{
    ScratchDir dir;
    const CORBTexture original = SampleTexture(1, 1, 1);

    // Native saving appends .orb unless the path already ends in it (any case of the letters).
    ASSERT_TRUE(original.saveFile((dir / "plain").c_str()));
    EXPECT_TRUE(std::filesystem::exists(dir / "plain.orb"));
    ASSERT_TRUE(original.saveFile((dir / "picture.png").c_str()));
    EXPECT_TRUE(std::filesystem::exists(dir / "picture.png.orb"));
    ASSERT_TRUE(original.saveFile((dir / "upper.ORB").c_str()));
    EXPECT_TRUE(std::filesystem::exists(dir / "upper.ORB"));

    // Native content loads under any extension but the foreign ones.
    const std::vector<uint8_t> bytes = ReadBytes(dir / "plain.orb");
    WriteBytes(dir / "renamed.bin", bytes);
    WriteBytes(dir / "noextension", bytes);
    WriteBytes(dir / "native.ktx", bytes);
    WriteBytes(dir / "native.DDS", bytes);
    WriteBytes(dir / "native.astc", bytes);
    EXPECT_NE(CORBTexture((dir / "renamed.bin").c_str()).getDataPtr(), nullptr);
    EXPECT_NE(CORBTexture((dir / "noextension").c_str()).getDataPtr(), nullptr);
    EXPECT_EQ(CORBTexture((dir / "native.ktx").c_str()).getDataPtr(), nullptr);
    EXPECT_EQ(CORBTexture((dir / "native.DDS").c_str()).getDataPtr(), nullptr);
    EXPECT_EQ(CORBTexture((dir / "native.astc").c_str()).getDataPtr(), nullptr);

    EXPECT_EQ(CORBTexture((dir / "missing.orb").c_str()).getDataPtr(), nullptr);
    EXPECT_EQ(CORBTexture(static_cast<const char*>(nullptr)).getDataPtr(), nullptr);
    EXPECT_FALSE(original.saveFile((dir / "no-such-dir/x.orb").c_str()));
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
    const uint8_t item[4] = {1, 2, 3, 4};
    texture.addMetaData(MetaDataBlock(0x77777777, 1, 4, item));
    texture.addMetaData(MetaDataBlock(0x77777777, 1, 4, item));
    ASSERT_EQ(texture.getMetaDataSize(), 32u);
    ASSERT_TRUE(texture.saveFile((dir / "twice.orb").c_str()));
    ASSERT_EQ(ReadBytes(dir / "twice.orb").size(), 52u + 16 + 64);

    const CORBTexture loaded((dir / "twice.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    EXPECT_EQ(loaded.getMetaDataSize(), 16u);
    EXPECT_EQ(std::memcmp(loaded.getDataPtr(), texture.getDataPtr(), 64), 0);
}

TEST(NativeFile, BlockPastTheDeclaredAreaIsDropped)
{
    // Declared metadata size 1, one 20-byte block: the block is lost and the
    // data are taken from offset 52.
    ScratchDir dir;
    WriteBytes(dir / "dropped.orb", HandMadeFile(1, 0x44444444, 8, 8));
    const CORBTexture loaded((dir / "dropped.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    EXPECT_EQ(loaded.getMetaDataSize(), 0u);
    EXPECT_FALSE(loaded.hasMetaData(0x44444444, 0));
    EXPECT_EQ(loaded.getDataPtr()[0], 0x44);
}

TEST(NativeFile, EmptyMetaDataItemsFailSaveAndLoad)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    std::memset(texture.getDataPtr(), 0, texture.getDataSize());
    texture.addMetaData(MetaDataBlock(0x55555555, 0, 0, nullptr));
    EXPECT_FALSE(texture.saveFile((dir / "empty-item.orb").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "empty-item.orb"));

    WriteBytes(dir / "empty-item.orb", HandMadeFile(12, 0x55555555, 0, 4));
    EXPECT_EQ(CORBTexture((dir / "empty-item.orb").c_str()).getDataPtr(), nullptr);
}

TEST(NativeFile, HeaderEditedBeyondItsBlockIsNotSaved)
{
    ScratchDir dir;
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 2, 2));
    texture.setWidth(1024);
    EXPECT_FALSE(texture.saveFile((dir / "edited.orb").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "edited.orb"));
}

TEST(NativeFile, ShortDataLoadsWithAZeroedTail)
{
    ScratchDir dir;
    const CORBTexture original = SampleTexture(1, 1, 1);
    ASSERT_TRUE(original.saveFile((dir / "full.orb").c_str()));
    std::vector<uint8_t> bytes = ReadBytes(dir / "full.orb");
    bytes.resize(bytes.size() - 10);
    WriteBytes(dir / "short.orb", bytes);

    const CORBTexture loaded((dir / "short.orb").c_str());
    ASSERT_NE(loaded.getDataPtr(), nullptr);
    const uint32_t size = loaded.getDataSize();
    EXPECT_EQ(std::memcmp(loaded.getDataPtr(), original.getDataPtr(), size - 10), 0);
    for (uint32_t i = size - 10; i < size; ++i)
        EXPECT_EQ(loaded.getDataPtr()[i], 0);

    // The sized memory image insists on all of it.
    EXPECT_EQ(CORBTexture(bytes.data(), bytes.size()).getDataPtr(), nullptr);
}
