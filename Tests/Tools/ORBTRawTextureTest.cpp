#include <cstdlib>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureInfo.h"
#include "Tools/ORBTRawTexture.h"

TEST(RawTexture, TwiddleInterleavesYLowAndXHigh)
{
    unsigned index, x, y;
    const unsigned cases[][3] = {{1, 0, 2}, {0, 1, 1}, {5, 3, 0x27}, {0x10000, 0x10000, 0}}; // only 16 bits count
    for (const auto& c : cases)
    {
        ORBTTextureTwiddle(index, c[0], c[1]);
        EXPECT_EQ(index, c[2]) << c[0] << " " << c[1];
    }
    for (unsigned i : {3u, 77u, 0xFFFFu, 0x12345678u, 0xFFFFFFFFu})
    {
        ORBTTextureDeTwiddle(x, y, i);
        ORBTTextureTwiddle(index, x, y);
        EXPECT_EQ(index, i);
    }
    ORBTTextureDeTwiddle(x, y, 3);
    EXPECT_EQ(x * 10 + y, 11u);
}

TEST(RawTexture, TiledLoadRepeatsTheTile)
{
    const unsigned char tile[4] = {'a', 'b', 'c', 'd'}; // 2x2, raster: a b / c d
    unsigned char raster[16], twiddled[16], out[12] = {}, untouched = 0x5A;
    ORBTTextureLoadTiled(raster, 4, 4, tile, 2, 2, 1, false);
    EXPECT_EQ(std::memcmp(raster, "ababcdcdababcdcd", 16), 0);
    // Twiddled: tile and destination are both in twiddled order (a=00, b=y1, c=x1, d=x1y1).
    ORBTTextureLoadTiled(twiddled, 4, 4, tile, 2, 2, 1, true);
    EXPECT_EQ(std::memcmp(twiddled, "abcdabcdabcdabcd", 16), 0);
    // Multi-byte elements, a 3-wide destination and nothing done for empty sizes.
    const unsigned char wide[4] = {1, 2, 3, 4}; // 2x1 tile of 2-byte elements
    ORBTTextureLoadTiled(out, 3, 2, wide, 2, 1, 2, false);
    EXPECT_EQ(std::vector<unsigned char>(out, out + 12), (std::vector<unsigned char>{1, 2, 3, 4, 1, 2, 1, 2, 3, 4, 1, 2}));
    ORBTTextureLoadTiled(&untouched, 0, 7, tile, 2, 2, 1, false);
    ORBTTextureLoadTiled(&untouched, 1, 1, tile, 0, 2, 1, false);
    EXPECT_EQ(untouched, 0x5A);
}

TEST(RawTexture, CreateCountsTheChainAtTheMinimum)
{
    // 64 + 16 + 16 + 16 pixels at 32 bits; the whole data area is written to show it is there.
    void* block = ORBTTextureCreate(8, 8, 4, 4, 32, true);
    ASSERT_NE(block, nullptr);
    ORBTextureHeaderV3 header;
    std::memcpy(&header, block, 52);
    EXPECT_EQ(header.version, ORBTEX_VERSION_3);
    EXPECT_EQ(header.width * 100 + header.height * 10 + header.numMIPMaps, 881u);
    EXPECT_EQ(header.pixelFormat, 51u);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 448);
    std::free(block);
    // Non-square: 8x2, 4x1, 2x0, 1x0, each at least 2x2: 16 + 8 + 4 + 4 pixels at 8 bits.
    block = ORBTTextureCreate(8, 2, 2, 2, 8, true);
    ASSERT_NE(block, nullptr);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 32);
    std::free(block);
    EXPECT_EQ(ORBTTextureCreate(65536, 65536, 1, 1, 32, false), nullptr);
}
