// Normal maps from height maps.

#include <cmath>

#include <gtest/gtest.h>

#include "ORBTextureUtilities.h"
#include "Support/StandardTextures.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

using Byte = unsigned char;

std::vector<Pixel<float>> Normals(const std::vector<Pixel<Byte>>& heights, uint32_t width, uint32_t height,
                                  uint32_t depth, const char* order, float scale = 1.0f)
{
    std::vector<Pixel<float>> out(heights.size());
    EXPECT_TRUE(CreateNormalMap(const_cast<Pixel<Byte>*>(heights.data()), out.data(), width, height, depth, scale,
                                order));
    return out;
}

} // namespace

TEST(NormalMap, FlatMapsAndOrders)
{
    const std::vector<Pixel<Byte>> flat(4, Pixel<Byte>{0, 9, 9, 9});
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, nullptr)[3]), (std::array<float, 4>{0.5f, 0.5f, 1.0f, 1.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "xyzh")[0]), (std::array<float, 4>{0.5f, 0.5f, 1.0f, 0.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "hxyz")[0]), (std::array<float, 4>{0.0f, 0.5f, 0.5f, 1.0f}));
    // A repeated letter takes the later place; unknown and upper-case letters assign nothing.
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "xx")[0]), (std::array<float, 4>{1.0f, 0.5f, 1.0f, 1.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "Zqzhy")[0]), (std::array<float, 4>{1.0f, 1.0f, 1.0f, 0.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "")[0]), (std::array<float, 4>{1.0f, 1.0f, 1.0f, 1.0f}));
}

TEST(NormalMap, SlopesWrapRoundLikeATile)
{
    // Heights 0 255 0: at x = 0 left wraps to x = 2 (0) and right is 255, so
    // dx = -255 / 255 = -1 and the normal leans by 45 degrees.
    const std::vector<Pixel<Byte>> ridge = Greys<Byte>({0, 255, 0}, 0);
    const std::vector<Pixel<float>> normals = Normals(ridge, 3, 1, 1, "xyzh", 1.0f);
    const float half = 0.5f / std::sqrt(2.0f);
    EXPECT_NEAR(normals[0].red, 0.5f - half, 1e-6);
    EXPECT_NEAR(normals[0].blue, 0.5f + half, 1e-6);
    EXPECT_NEAR(normals[1].red, 0.5f, 1e-6);
    EXPECT_NEAR(normals[2].red, 0.5f + half, 1e-6);
    EXPECT_NEAR(normals[1].alpha, 1.0f, 1e-6); // height 255 as a fraction
    EXPECT_EQ(normals[0].alpha, 0.0f);
    // A negative scale inverts the slope; height 1 gives no vertical slope.
    EXPECT_NEAR(Normals(ridge, 3, 1, 1, "xyz", -1.0f)[0].red, 0.5f + half, 1e-6);
    EXPECT_EQ(normals[0].green, 0.5f);

    // Columns 1 wide and 2 high in two slices: the vertical wrap reads slice 0.
    // Slice 1, y = 0: up is slice 0's last row (0), down is 255 -> dy = -1.
    const std::vector<Pixel<float>> column = Normals(Greys<Byte>({0, 0, 0, 255}, 0), 1, 2, 2, "y");
    EXPECT_NEAR(column[2].red, 0.5f - half, 1e-6);
}

TEST(NormalMap, GenerateNormalMap)
{
    CORBTexture texture = StandardTexture<unsigned short>(2, 2, 1, Greys<unsigned short>({0, 0, 0, 0}, 0), 2);
    EXPECT_TRUE(GenerateNormalMap(texture, 2.0f, "XYZH"));
    EXPECT_EQ(texture.getPixelType().PixelTypeID, ORBStandard32PixelType);
    EXPECT_EQ(texture.getChannelType(), eVarSignedFloat);
    EXPECT_EQ(texture.getNumMIPLevels(), 2u);
    EXPECT_EQ(Channels(*PixelsOf<float>(texture, 1)), (std::array<float, 4>{0.5f, 0.5f, 1.0f, 0.0f}));
    EXPECT_EQ(std::string(texture.getBumpMapOrder().c_str()), "xyzh");
    EXPECT_EQ(texture.getBumpMapScale(), 2.0f);

    // Scale 0 fails, yet the float texture and the metadata replace the old.
    CORBTexture zero = StandardTexture<Byte>(2, 2, 1, {});
    EXPECT_FALSE(GenerateNormalMap(zero, 0.0f, "xyz"));
    EXPECT_EQ(zero.getChannelType(), eVarSignedFloat);
    EXPECT_TRUE(zero.isBumpMap());

    CORBTexture packed(CORBTextureHeader(PixelType('l', 0, 0, 0, 8, 0, 0, 0).PixelTypeID, 2, 2));
    EXPECT_FALSE(GenerateNormalMap(packed, 1.0f, "xyz"));
    EXPECT_FALSE(packed.isBumpMap());
}
