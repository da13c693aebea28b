// Resampling: positions, filters, the pass schedule and Resize; MIP chains.

#include <gtest/gtest.h>

#include "ORBTextureUtilities.h"
#include "Support/StandardTextures.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

using Bytes = std::vector<Pixel<unsigned char>>;

// Rows of constant grey: 'rows' values, each repeated 'width' times.
Bytes Rows(uint32_t width, std::initializer_list<unsigned char> rows)
{
    Bytes pixels;
    for (unsigned char v : rows)
        for (uint32_t x = 0; x < width; ++x)
            pixels.push_back({v, v, v, 255});
    return pixels;
}

template <typename T>
std::vector<Pixel<T>> Stretch(std::vector<Pixel<T>> source, uint32_t sw, uint32_t sh, uint32_t sd, uint32_t dw,
                              uint32_t dh, uint32_t dd, EResizeMode mode, bool stepped = false)
{
    std::vector<Pixel<T>> out(size_t(dw) * dh * dd);
    const bool ok = stepped ? SteppedStretchImage(source.data(), out.data(), sw, sh, sd, dw, dh, dd, mode)
                            : StretchImage(source.data(), out.data(), sw, sh, sd, dw, dh, dd, mode);
    EXPECT_TRUE(ok);
    return out;
}

} // namespace

TEST(Resample, PositionsAndSpline)
{
    // A halving lands on 2i + 0.5; an axis that keeps its size drifts from 1 to n - 2.
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_DOUBLE_EQ(calculateDownscalePosition(i, 4, 0.5, 2.0), 2.0 * i + 0.5);
    EXPECT_DOUBLE_EQ(calculateDownscalePosition(0, 5, 0.0, 1.0), 1.0);
    EXPECT_DOUBLE_EQ(calculateDownscalePosition(2, 5, 0.0, 1.0), 2.0);
    EXPECT_DOUBLE_EQ(calculateDownscalePosition(4, 5, 0.0, 1.0), 3.0);
    EXPECT_EQ(calculateDownscalePosition(3, 1, 0.25, 4.0), 0.0);

    const float line[4] = {0.0f, 10.0f, 20.0f, 30.0f}, step[4] = {0.0f, 0.0f, 10.0f, 10.0f};
    EXPECT_FLOAT_EQ(evaluateSplines(line, 0.25f), 12.5f);
    EXPECT_FLOAT_EQ(evaluateSplines(step, 0.0f), 0.0f);
    EXPECT_FLOAT_EQ(evaluateSplines(step, 0.5f), 5.0f);
    EXPECT_FLOAT_EQ(evaluateSplines(step, 1.0f), 10.0f);
}

TEST(Resample, LinearBoxDriftAndUpscalePositions)
{
    // 4x4 to 2x2: each output is the truncated mean of a 2x2 box (1,2,2,2 gives 1).
    Bytes box = Rows(4, {0, 0, 0, 0});
    for (int i : {0, 1, 4, 5})
        box[i] = {2, 2, 2, 255};
    box[0] = {1, 1, 1, 255};
    box[15] = {9, 9, 9, 255};
    EXPECT_EQ(Reds(Stretch(box, 4, 4, 1, 2, 2, 1, eResizeLinear).data(), 4), (std::vector<unsigned char>{1, 0, 0, 2}));

    // Halving x with the height kept: every row samples y = 1.
    EXPECT_EQ(Reds(Stretch(Rows(4, {10, 20, 30}), 4, 3, 1, 2, 3, 1, eResizeLinear).data(), 6),
              (std::vector<unsigned char>{20, 20, 20, 20, 20, 20}));
    // Growing x while halving y: i x ratio on both axes, rows 0 and 2 exactly.
    EXPECT_EQ(Reds(Stretch(Rows(2, {10, 20, 30, 40}), 2, 4, 1, 4, 2, 1, eResizeLinear).data(), 8),
              (std::vector<unsigned char>{10, 10, 10, 10, 30, 30, 30, 30}));
    // A destination size of 1 samples index 0 with weight 1.
    EXPECT_EQ(Reds(Stretch(Rows(1, {7, 90, 90}), 1, 3, 1, 1, 1, 1, eResizeLinear).data(), 1),
              (std::vector<unsigned char>{7}));
}

TEST(Resample, NearestKeepsFloatsTheOtherFiltersClamp)
{
    const std::vector<Pixel<float>> twos(4, Pixel<float>{2.0f, -1.0f, 0.5f, 2.0f});
    for (EResizeMode mode : {eResizeNearest, eResizeLinear, eResizeCubic})
    {
        const std::vector<Pixel<float>> out = Stretch(twos, 2, 2, 1, 4, 4, 1, mode);
        const float high = mode == eResizeNearest ? 2.0f : 1.0f, low = mode == eResizeNearest ? -1.0f : 0.0f;
        for (const Pixel<float>& p : out)
            EXPECT_EQ(Channels(p), (std::array<float, 4>{high, low, 0.5f, high})) << mode;
    }
    // 32-bit integers: the linear result of the largest value stays the largest value.
    const std::vector<Pixel<unsigned int>> full(4, Pixel<unsigned int>{0xFFFFFFFFu, 0, 1, 0x80000000u});
    EXPECT_EQ(Channels(Stretch(full, 2, 2, 1, 4, 4, 1, eResizeLinear)[5]),
              (std::array<unsigned int, 4>{0xFFFFFFFFu, 0, 1, 0x80000000u}));
}

TEST(Resample, CubicDownscaleBlurReadsTheOppositeEdge)
{
    // Blurred row: 40 0 40 120 (the first column takes the last one's 160);
    // the spline at 0.5 through 40 40 0 40 gives 17.5.
    const Bytes row = Rows(1, {0, 0, 0, 160});
    EXPECT_EQ(Reds(Stretch(row, 4, 1, 1, 2, 1, 1, eResizeCubic).data(), 1), (std::vector<unsigned char>{17}));

    // 3D blur weights: a constant volume stays constant.
    const std::vector<Pixel<unsigned short>> volume(27, Pixel<unsigned short>{1000, 2000, 3000, 65535});
    for (const auto& p : Stretch(volume, 3, 3, 3, 2, 2, 2, eResizeCubic))
        EXPECT_EQ(Channels(p), (std::array<unsigned short, 4>{1000, 2000, 3000, 65535}));
}

TEST(Resample, PassScheduleAndModes)
{
    Bytes ramp;
    for (int i = 0; i < 16; ++i)
        ramp.push_back({uint8_t(i * 16), uint8_t(255 - i * 9), uint8_t(i * i), 255});
    for (EResizeMode mode : {eResizeLinear, eResizeCubic})
    {
        // 4x4 to 16x16 goes through 8x8.
        const Bytes twoPasses = Stretch(Stretch(ramp, 4, 4, 1, 8, 8, 1, mode), 8, 8, 1, 16, 16, 1, mode);
        const Bytes stepped = Stretch(ramp, 4, 4, 1, 16, 16, 1, mode, true);
        EXPECT_TRUE(std::equal(stepped.begin(), stepped.end(), twoPasses.begin(), [](auto& a, auto& b) {
            return Channels(a) == Channels(b);
        })) << mode;
    }
    // 1000 to 300 goes through 500.
    Bytes wide;
    for (int i = 0; i < 1000; ++i)
        wide.push_back({uint8_t(i * 7), uint8_t(i), uint8_t(i / 4), 255});
    EXPECT_EQ(Reds(Stretch(wide, 1000, 1, 1, 300, 1, 1, eResizeLinear, true).data(), 300),
              Reds(Stretch(Stretch(wide, 1000, 1, 1, 500, 1, 1, eResizeLinear), 500, 1, 1, 300, 1, 1, eResizeLinear)
                       .data(),
                   300));

    // An unknown mode writes nothing; null pointers fail.
    Bytes out(4, Pixel<unsigned char>{5, 5, 5, 5});
    EXPECT_TRUE(StretchImage(ramp.data(), out.data(), 4, 4, 1, 2, 2, 1, EResizeMode(7)));
    EXPECT_EQ(Channels(out[0]), (std::array<unsigned char, 4>{5, 5, 5, 5}));
    EXPECT_FALSE(StretchImage<unsigned char>(nullptr, out.data(), 4, 4, 1, 2, 2, 1, eResizeLinear));
    EXPECT_FALSE(SteppedStretchImage<unsigned char>(ramp.data(), nullptr, 4, 4, 1, 2, 2, 1, eResizeLinear));
}

TEST(Resize, LevelsBorderAndRefusals)
{
    CORBTexture texture = StandardTexture<unsigned short>(8, 8, 1, {}, 4);
    texture.setBorder(3, 2, 0);
    EXPECT_TRUE(Resize(texture, 8, 8, 1, eResizeLinear));
    EXPECT_EQ(texture.getNumMIPLevels(), 4u);

    EXPECT_TRUE(Resize(texture, 4, 12, 1, eResizeCubic));
    EXPECT_EQ(texture.getNumMIPLevels(), 1u);
    EXPECT_EQ(texture.getWidth(), 4u);
    EXPECT_EQ(texture.getHeight(), 12u);
    uint32_t bx, by, bz;
    texture.getBorder(bx, by, bz);
    EXPECT_EQ((std::array<uint32_t, 3>{bx, by, bz}), (std::array<uint32_t, 3>{1, 3, 0}));

    EXPECT_FALSE(Resize(texture, 0, 4, 1, eResizeLinear));
    CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 4, 4));
    EXPECT_FALSE(Resize(packed, 2, 2, 1, eResizeLinear));
    EXPECT_EQ(packed.getWidth(), 4u);
}

TEST(MIPMaps, ChainLengthsAndSizes)
{
    CORBTexture wide = StandardTexture<unsigned char>(512, 256, 1, {});
    EXPECT_TRUE(GenerateMIPMaps(wide, eResizeLinear, 0xFFFFFFFFu));
    EXPECT_EQ(wide.getNumMIPLevels(), 10u);
    CORBTexture tall = StandardTexture<float>(1, 1, 512, {});
    EXPECT_TRUE(GenerateMIPMaps(tall, eResizeNearest, 0xFFFFFFFFu));
    EXPECT_EQ(tall.getNumMIPLevels(), 10u);

    EXPECT_FALSE(GenerateMIPMaps(wide, eResizeLinear, 0));
    EXPECT_EQ(wide.getNumMIPLevels(), 10u);
    EXPECT_TRUE(GenerateMIPMaps(wide, eResizeLinear, 1));
    EXPECT_EQ(wide.getNumMIPLevels(), 1u);

    // A count beyond the full chain stays at 1x1.
    CORBTexture small = StandardTexture<unsigned char>(2, 2, 1, Greys<unsigned char>({9, 9, 9, 9}, 255));
    EXPECT_TRUE(GenerateMIPMaps(small, eResizeLinear, 4));
    EXPECT_EQ(small.getNumMIPLevels(), 4u);
    EXPECT_EQ(PixelsOf<unsigned char>(small, 3)->red, 9);
}

TEST(MIPMaps, LevelsComeFromTheLevelAbove)
{
    // 3x3 to 1x1: the target size 1 samples the top-left pixel, not an average.
    CORBTexture three =
        StandardTexture<unsigned char>(3, 3, 1, Greys<unsigned char>({50, 90, 90, 90, 90, 90, 90, 90, 90}, 255));
    EXPECT_TRUE(GenerateMIPMaps(three, eResizeLinear, 0xFFFFFFFFu));
    ASSERT_EQ(three.getNumMIPLevels(), 2u);
    EXPECT_EQ(PixelsOf<unsigned char>(three, 1)->red, 50);

    // 4x4 of rows 0,40,80,120 to 2x2 (boxes: 20, 100) to 1x1 (the first of those).
    CORBTexture four = StandardTexture<unsigned char>(4, 4, 1, Rows(4, {0, 40, 80, 120}));
    EXPECT_TRUE(GenerateMIPMaps(four, eResizeLinear, 3));
    EXPECT_EQ(Reds(PixelsOf<unsigned char>(four, 1), 4), (std::vector<unsigned char>{20, 20, 100, 100}));
    EXPECT_EQ(PixelsOf<unsigned char>(four, 2)->red, 20);
}

TEST(MIPMaps, ColourMIPMapsTintsByLevel)
{
    CORBTexture texture = StandardTexture<unsigned char>(1, 1, 1, {}, 7);
    for (uint32_t level = 0; level < 7; ++level)
        *PixelsOf<unsigned char>(texture, level) = {255, 0, 0, 77};
    EXPECT_TRUE(ColourMIPMaps(texture));
    const std::array<std::array<unsigned char, 4>, 7> expected = {{{255, 0, 0, 77},
                                                                    {0, 85, 0, 77},
                                                                    {0, 0, 85, 77},
                                                                    {0, 85, 85, 77},
                                                                    {85, 0, 85, 77},
                                                                    {85, 85, 0, 77},
                                                                    {85, 0, 0, 77}}};
    for (uint32_t level = 0; level < 7; ++level)
        EXPECT_EQ(Channels(*PixelsOf<unsigned char>(texture, level)), expected[level]) << level;

    CORBTexture floats = StandardTexture<float>(1, 1, 1, {{3.0f, 0.0f, 0.0f, 1.0f}}, 2);
    *PixelsOf<float>(floats, 1) = {3.0f, 0.0f, 0.0f, 1.0f};
    EXPECT_TRUE(ColourMIPMaps(floats));
    EXPECT_FLOAT_EQ(PixelsOf<float>(floats, 1)->green, 3.0f * 0.33333334f);

    CORBTexture one = StandardTexture<unsigned char>(1, 1, 1, {{255, 0, 0, 1}});
    EXPECT_TRUE(ColourMIPMaps(one));
    EXPECT_EQ(PixelsOf<unsigned char>(one)->red, 255);
}
