// The image buffer that the extended ORBTC decoder writes into.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "Bitmap/Bitmap.h"

using namespace orbtexture;

TEST(Bitmap, RefusesEmptyAndUnaddressableSizes)
{
    EXPECT_EQ(new_bitmap(0, 4, 1, nullptr), nullptr);
    EXPECT_EQ(new_bitmap(4, -1, 1, nullptr), nullptr);
    // Four bytes a pixel of INT_MAX squared pass what one allocation can address.
    EXPECT_EQ(new_bitmap(INT_MAX, INT_MAX, 1, nullptr), nullptr);
}

TEST(Bitmap, RowsTopToBottomBoundsCheckedAndOpaqueWithoutAlpha)
{
    const unsigned char fill[4] = {1, 2, 3, 4}, last[4] = {10, 20, 30, 40};
    Bitmap* bitmap = new_bitmap(3, 2, 1, fill);
    ASSERT_NE(bitmap, nullptr);
    int width = 0, height = 0;
    EXPECT_EQ(bitmap_get_size(bitmap, &width, &height), 1);
    EXPECT_EQ(width * 10 + height, 32);
    EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, 2, 1, 10, 20, 30, 40), 1);
    const int outside[4][2] = {{3, 0}, {0, 2}, {-1, 0}, {0, -1}};
    for (const auto& xy : outside)
        EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, xy[0], xy[1], 9, 9, 9, 9), 0) << xy[0] << "," << xy[1];
    // Pixel (2, 1) is the last of six; the others keep the fill.
    EXPECT_EQ(std::memcmp(bitmap->pixels + 20, last, 4), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::memcmp(bitmap->pixels + 4 * i, fill, 4), 0) << i;
    unsigned char rgba[4] = {};
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 3, 1, rgba), 0);
    delete_bitmap(bitmap);

    bitmap = new_bitmap(2, 1, 0, fill);
    bitmap_set_pixel_rgba(bitmap, 1, 0, 5, 6, 7, 8);
    EXPECT_EQ(bitmap->pixels[3], 255);
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 1, 0, rgba), 1);
    EXPECT_EQ(rgba[0] + rgba[3], 5 + 255);
    delete_bitmap(bitmap);
}
