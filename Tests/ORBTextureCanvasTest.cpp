// Canvas, rotation, flips, borders and bleeding.

#include <gtest/gtest.h>

#include "ORBTextureUtilities.h"
#include "Support/StandardTextures.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

using Byte = unsigned char;

// Pixels numbered 1, 2, 3, ... in raster order (in every channel).
template <typename T = Byte>
CORBTexture Numbered(uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1)
{
    std::vector<Pixel<T>> pixels;
    for (uint32_t i = 1; i <= width * height * depth; ++i)
        pixels.push_back({T(i), T(i), T(i), T(i)});
    return StandardTexture<T>(width, height, depth, pixels, mips);
}

std::vector<Byte> RedsOf(const CORBTexture& texture, uint32_t mip = 0)
{
    return Reds(PixelsOf<Byte>(texture, mip),
                size_t(texture.getWidth(mip)) * texture.getHeight(mip) * texture.getDepth(mip));
}

} // namespace

TEST(Canvas, ResizeCanvasPlacesTheOldOrigin)
{
    CORBTexture row = Numbered(3, 1);
    EXPECT_TRUE(ResizeCanvas(row, 3, 1, 1, 1, 0, 0));
    EXPECT_EQ(RedsOf(row), (std::vector<Byte>{0, 1, 2}));
    EXPECT_EQ(PixelsOf<Byte>(row)->alpha, 0); // the vacated strip is transparent black

    CORBTexture square = Numbered(3, 3, 1, 2);
    square.setBorder(3, 3, 0);
    EXPECT_TRUE(ResizeCanvas(square, 2, 2, 1, 0, 0, 0));
    EXPECT_EQ(RedsOf(square), (std::vector<Byte>{1, 2, 4, 5}));
    EXPECT_EQ(square.getNumMIPLevels(), 1u);
    uint32_t bx, by, bz;
    square.getBorder(bx, by, bz);
    EXPECT_EQ((std::array<uint32_t, 3>{bx, by, bz}), (std::array<uint32_t, 3>{2, 2, 0}));

    CORBTexture cropped = Numbered(3, 2);
    EXPECT_TRUE(ResizeCanvas(cropped, 3, 2, 1, -1, 1, 0));
    EXPECT_EQ(RedsOf(cropped), (std::vector<Byte>{0, 0, 0, 2, 3, 0}));

    CORBTexture same = Numbered(2, 2, 1, 2);
    EXPECT_TRUE(ResizeCanvas(same, 2, 2, 1, 0, 0, 0));
    EXPECT_EQ(same.getNumMIPLevels(), 2u);
}

TEST(Canvas, Rotate90AboutZ)
{
    // 4x2: 1 2 3 4 / 5 6 7 8.
    CORBTexture clockwise = Numbered(4, 2);
    EXPECT_TRUE(Rotate90(clockwise, eAxisZ, true));
    EXPECT_EQ(clockwise.getWidth(), 2u);
    EXPECT_EQ(clockwise.getHeight(), 4u);
    EXPECT_EQ(RedsOf(clockwise), (std::vector<Byte>{5, 1, 6, 2, 7, 3, 8, 4}));

    CORBTexture counter = Numbered(4, 2, 1, 2);
    EXPECT_TRUE(Rotate90(counter, eAxisZ, false));
    EXPECT_EQ(RedsOf(counter), (std::vector<Byte>{4, 8, 3, 7, 2, 6, 1, 5}));
    // Every level turns: level 1 of 4x2 is 2x1.
    EXPECT_EQ(counter.getWidth(1), 1u);
    EXPECT_EQ(counter.getHeight(1), 2u);
}

TEST(Canvas, Rotate90AboutXAndYChangeSizesOnly)
{
    // These axes move the pixels into the old block, which is dropped: the
    // rotated texture has the new sizes and a block of zeros.
    CORBTexture x = Numbered(2, 3, 4);
    EXPECT_TRUE(Rotate90(x, eAxisX, true));
    EXPECT_EQ((std::array<uint32_t, 3>{x.getWidth(), x.getHeight(), x.getDepth()}),
              (std::array<uint32_t, 3>{2, 4, 3}));
    EXPECT_EQ(RedsOf(x), std::vector<Byte>(24, 0));

    CORBTexture y = Numbered(2, 3, 4);
    EXPECT_TRUE(Rotate90(y, eAxisY, false));
    EXPECT_EQ((std::array<uint32_t, 3>{y.getWidth(), y.getHeight(), y.getDepth()}),
              (std::array<uint32_t, 3>{2, 2, 4}));

    // The workers read the second surface into the first.
    std::vector<Pixel<Byte>> first(4), second = Greys<Byte>({1, 2, 3, 4}, 255);
    EXPECT_TRUE(Rotate90(first.data(), second.data(), 2u, 2u, 1u, eAxisX, true));
    EXPECT_EQ(Reds(first.data(), 4), (std::vector<Byte>{3, 4, 1, 2}));
    EXPECT_FALSE(Rotate90<Byte>(nullptr, second.data(), 2u, 1u, 2u, eAxisZ, true));
}

TEST(Canvas, FlipEachAxis)
{
    CORBTexture texture = Numbered(3, 2, 2);
    EXPECT_TRUE(Flip(texture, eAxisX));
    EXPECT_EQ(RedsOf(texture), (std::vector<Byte>{3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10}));
    EXPECT_TRUE(Flip(texture, eAxisX));
    EXPECT_TRUE(Flip(texture, eAxisY));
    EXPECT_EQ(RedsOf(texture), (std::vector<Byte>{4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9}));
    EXPECT_TRUE(Flip(texture, eAxisY));
    EXPECT_TRUE(Flip(texture, eAxisZ));
    EXPECT_EQ(RedsOf(texture), (std::vector<Byte>{7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6}));

    CORBTexture one = Numbered(1, 1);
    EXPECT_TRUE(Flip(one, eAxisX));
    EXPECT_TRUE(Flip(one, EORBTAxis(9)));
    EXPECT_EQ(RedsOf(one), (std::vector<Byte>{1}));
}

TEST(Canvas, BorderMirrorsWithoutRepeatingTheEdge)
{
    CORBTexture square = Numbered(2, 2, 1, 2);
    EXPECT_TRUE(Border(square, 1, 1, 0));
    EXPECT_EQ(square.getNumMIPLevels(), 1u);
    EXPECT_EQ(RedsOf(square), (std::vector<Byte>{1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4}));
    uint32_t bx, by, bz;
    square.getBorder(bx, by, bz);
    EXPECT_EQ((std::array<uint32_t, 3>{bx, by, bz}), (std::array<uint32_t, 3>{1, 1, 0}));

    // Two columns of border: the second is the pixel next to the edge.
    CORBTexture row = Numbered(3, 1);
    EXPECT_TRUE(Border(row, 2, 0, 0));
    EXPECT_EQ(RedsOf(row), (std::vector<Byte>{2, 1, 1, 2, 3, 3, 2}));

    // In depth, slice 0 stays unwritten, and so does the last slice: the far
    // pass runs inward.
    CORBTexture volume = Numbered(1, 1, 2);
    EXPECT_TRUE(Border(volume, 0, 0, 1));
    EXPECT_EQ(RedsOf(volume), (std::vector<Byte>{0, 1, 2, 0}));

    CORBTexture unchanged = Numbered(2, 2, 1, 2);
    EXPECT_TRUE(Border(unchanged, 0, 0, 0));
    EXPECT_EQ(unchanged.getNumMIPLevels(), 2u);
}

TEST(Canvas, BleedThresholdsAndReach)
{
    // Alpha 8 is opaque and alpha 7 transparent, in bytes and in shorts.
    const auto bleedMiddle = [](auto tag) {
        using T = decltype(tag);
        CORBTexture texture = StandardTexture<T>(3, 1, 1, {{100, 10, 1, 8}, {50, 50, 50, 7}, {201, 30, 2, T(~T(0))}});
        EXPECT_TRUE(Bleed(texture));
        return Channels(PixelsOf<T>(texture)[1]);
    };
    EXPECT_EQ(bleedMiddle(Byte()), (std::array<Byte, 4>{150, 20, 1, 7}));
    EXPECT_EQ(bleedMiddle((unsigned short)0), (std::array<unsigned short, 4>{150, 20, 1, 7}));

    // Opaque pixel at x = 0: x = 8 is within reach, x = 9 is not.
    std::vector<Pixel<Byte>> line(10, Pixel<Byte>{9, 9, 9, 0});
    line[0] = {60, 60, 60, 255};
    CORBTexture texture = StandardTexture<Byte>(10, 1, 1, line);
    EXPECT_TRUE(Bleed(texture));
    EXPECT_EQ(PixelsOf<Byte>(texture)[8].red, 60);
    EXPECT_EQ(PixelsOf<Byte>(texture)[9].red, 0);
    EXPECT_EQ(PixelsOf<Byte>(texture)[9].alpha, 0);

    // Float images with alpha in 0..1 count as transparent everywhere.
    CORBTexture floats = StandardTexture<float>(2, 1, 1, {{0.5f, 0.5f, 0.5f, 1.0f}, {0.2f, 0.2f, 0.2f, 1.0f}});
    EXPECT_TRUE(Bleed(floats));
    EXPECT_EQ(Channels(PixelsOf<float>(floats)[0]), (std::array<float, 4>{0.0f, 0.0f, 0.0f, 1.0f}));
}

TEST(Canvas, NonStandardTexturesAreRefused)
{
    CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 2, 2));
    EXPECT_FALSE(ResizeCanvas(packed, 4, 4, 1, 0, 0, 0));
    EXPECT_FALSE(Rotate90(packed, eAxisZ, true));
    EXPECT_FALSE(Flip(packed, eAxisX));
    EXPECT_FALSE(Border(packed, 1, 1, 0));
    EXPECT_FALSE(Bleed(packed));
    EXPECT_EQ(packed.getWidth(), 2u);
}
