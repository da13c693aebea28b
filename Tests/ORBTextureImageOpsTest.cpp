// Operations on textures of the standard pixel types: resampling, MIP chains,
// canvas, rotation, flips, borders, bleeding, normal maps, comparison and the
// channel operations.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

template <typename T>
CORBTextureHeader StandardHeader(uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1,
                                             uint32_t members = 1, uint32_t faces = 1)
{
    const uint64_t formats[] = {ORBStandard8PixelType, ORBStandard16PixelType, 0, ORBStandard32PixelType};
    const EORBTVariableType type = std::is_same_v<T, float> ? eVarSignedFloat
                                   : sizeof(T) == 1         ? eVarUnsignedByteNorm
                                   : sizeof(T) == 2         ? eVarUnsignedShortNorm
                                                            : eVarUnsignedIntegerNorm;
    return CORBTextureHeader(formats[sizeof(T) - 1], height, width, depth, mips, members, faces, eColourSpaceLinear,
                             type);
}

template <typename T>
Pixel<T>* PixelsOf(const CORBTexture& texture, uint32_t mip = 0, uint32_t member = 0,
                               uint32_t face = 0)
{
    return reinterpret_cast<Pixel<T>*>(texture.getDataPtr(mip, member, face));
}

// A texture whose level 0 holds 'pixels' in raster order (other surfaces zero).
template <typename T>
CORBTexture StandardTexture(uint32_t width, uint32_t height, uint32_t depth,
                                        const std::vector<Pixel<T>>& pixels, uint32_t mips = 1)
{
    CORBTexture texture(StandardHeader<T>(width, height, depth, mips));
    std::fill_n(texture.getDataPtr(), texture.getDataSize(), 0);
    std::copy(pixels.begin(), pixels.end(), PixelsOf<T>(texture));
    return texture;
}

// Grey pixels of opaque alpha from values in raster order.
template <typename T>
std::vector<Pixel<T>> Greys(std::initializer_list<T> values, T alpha)
{
    std::vector<Pixel<T>> pixels;
    for (T v : values)
        pixels.push_back({v, v, v, alpha});
    return pixels;
}

template <typename T>
std::array<T, 4> Channels(const Pixel<T>& p)
{
    return {p.red, p.green, p.blue, p.alpha};
}

// The red channel of 'count' pixels from 'pixels'.
template <typename T>
std::vector<T> Reds(const Pixel<T>* pixels, size_t count)
{
    std::vector<T> reds;
    for (size_t i = 0; i < count; ++i)
        reds.push_back(pixels[i].red);
    return reds;
}

using Byte = unsigned char;
using Bytes = std::vector<Pixel<Byte>>;

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

std::vector<Pixel<float>> Normals(const std::vector<Pixel<Byte>>& heights, uint32_t width, uint32_t height,
                                  uint32_t depth, const char* order, float scale = 1.0f)
{
    std::vector<Pixel<float>> out(heights.size());
    EXPECT_TRUE(CreateNormalMap(const_cast<Pixel<Byte>*>(heights.data()), out.data(), width, height, depth, scale,
                                order));
    return out;
}

using Result = std::array<float, 5>;

Result Fields(const ChannelDiffResult& r)
{
    return {r.channels[0], r.channels[1], r.channels[2], r.channels[3], r.overall};
}

template <typename T>
CORBTexture One(Pixel<T> p, uint32_t mips = 1)
{
    return StandardTexture<T>(1, 1, 1, {p}, mips);
}

// A width x 2 texture of the standard type for T, every pixel 'fill'.
template <typename T>
CORBTexture Filled(Pixel<T> fill, uint32_t width = 2, uint32_t mips = 1, uint32_t members = 1, uint32_t faces = 1)
{
    CORBTexture texture(StandardHeader<T>(width, 2, 1, mips, members, faces));
    std::fill_n(PixelsOf<T>(texture), texture.getDataSize() / sizeof(Pixel<T>), fill);
    return texture;
}

template <typename T>
void ExpectPixel(const Pixel<T>* p, T r, T g, T b, T a)
{
    EXPECT_EQ(Channels(*p), (std::array<T, 4>{r, g, b, a}));
}

// Channel 'from' of a one-pixel texture of type S, copied into red of type D.
template <typename S, typename D>
D CopyOne(Pixel<S> source, EChannelName from = eChannelRed)
{
    CORBTexture src = Filled<S>(source, 1), dst = Filled<D>({0, 0, 0, 0}, 1);
    EChannelName to = eChannelRed;
    EXPECT_TRUE(CopyChannels(dst, src, 1, &to, &from));
    return PixelsOf<D>(dst)->red;
}

} // namespace

TEST(Resample, AxesThatKeepTheirSizeAndUpscalePositions)
{
    // Halving x with the height kept: the kept axis drifts from 1 to n - 2, so every row samples y = 1.
    EXPECT_EQ(Reds(Stretch(Rows(4, {10, 20, 30}), 4, 3, 1, 2, 3, 1, eResizeLinear).data(), 6),
              (std::vector<unsigned char>{20, 20, 20, 20, 20, 20}));
    // Growing x while halving y: i x ratio on both axes, rows 0 and 2 exactly.
    EXPECT_EQ(Reds(Stretch(Rows(2, {10, 20, 30, 40}), 2, 4, 1, 4, 2, 1, eResizeLinear).data(), 8),
              (std::vector<unsigned char>{10, 10, 10, 10, 30, 30, 30, 30}));
}

TEST(Resample, NearestKeepsFloatsTheOtherFiltersClamp)
{
    const std::vector<Pixel<float>> twos(4, Pixel<float>{2.0f, -1.0f, 0.5f, 2.0f});
    for (EResizeMode mode : {eResizeNearest, eResizeLinear, eResizeCubic})
    {
        const float high = mode == eResizeNearest ? 2.0f : 1.0f, low = mode == eResizeNearest ? -1.0f : 0.0f;
        for (const Pixel<float>& p : Stretch(twos, 2, 2, 1, 4, 4, 1, mode))
            EXPECT_EQ(Channels(p), (std::array<float, 4>{high, low, 0.5f, high})) << mode;
    }
    // 32-bit integers: the linear result of the largest value stays the largest value.
    const std::vector<Pixel<unsigned int>> full(4, Pixel<unsigned int>{0xFFFFFFFFu, 0, 1, 0x80000000u});
    EXPECT_EQ(Channels(Stretch(full, 2, 2, 1, 4, 4, 1, eResizeLinear)[5]),
              (std::array<unsigned int, 4>{0xFFFFFFFFu, 0, 1, 0x80000000u}));
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
    // 4x4 to 16x16 goes through 8x8.
    const Bytes twoPasses = Stretch(Stretch(ramp, 4, 4, 1, 8, 8, 1, eResizeCubic), 8, 8, 1, 16, 16, 1, eResizeCubic);
    const Bytes stepped = Stretch(ramp, 4, 4, 1, 16, 16, 1, eResizeCubic, true);
    EXPECT_TRUE(std::equal(stepped.begin(), stepped.end(), twoPasses.begin(),
                           [](auto& a, auto& b) { return Channels(a) == Channels(b); }));
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
    EXPECT_EQ(texture.getWidth() * 100 + texture.getHeight(), 412u);
    uint32_t bx, by, bz;
    texture.getBorder(bx, by, bz);
    EXPECT_EQ((std::array<uint32_t, 3>{bx, by, bz}), (std::array<uint32_t, 3>{1, 3, 0}));

    EXPECT_FALSE(Resize(texture, 0, 4, 1, eResizeLinear));
    CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 4, 4));
    EXPECT_FALSE(Resize(packed, 2, 2, 1, eResizeLinear));
    EXPECT_EQ(packed.getWidth(), 4u);
}

TEST(MIPMaps, ChainLengths)
{
    CORBTexture wide = StandardTexture<unsigned char>(512, 256, 1, {});
    EXPECT_TRUE(GenerateMIPMaps(wide, eResizeLinear, 0xFFFFFFFFu));
    EXPECT_EQ(wide.getNumMIPLevels(), 10u);
    // Depth alone makes levels too.
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

TEST(MIPMaps, ColourMIPMapsTintsByLevel)
{
    CORBTexture texture = StandardTexture<unsigned char>(1, 1, 1, {}, 7);
    for (uint32_t level = 0; level < 7; ++level)
        *PixelsOf<unsigned char>(texture, level) = {255, 0, 0, 77};
    EXPECT_TRUE(ColourMIPMaps(texture));
    const unsigned char tints[7][3] = {{255, 0, 0}, {0, 85, 0}, {0, 0, 85}, {0, 85, 85},
                                       {85, 0, 85}, {85, 85, 0}, {85, 0, 0}};
    for (uint32_t level = 0; level < 7; ++level)
        EXPECT_EQ(Channels(*PixelsOf<unsigned char>(texture, level)),
                  (std::array<unsigned char, 4>{tints[level][0], tints[level][1], tints[level][2], 77}))
            << level;
    CORBTexture floats = StandardTexture<float>(1, 1, 1, {{3.0f, 0.0f, 0.0f, 1.0f}}, 2);
    *PixelsOf<float>(floats, 1) = {3.0f, 0.0f, 0.0f, 1.0f};
    EXPECT_TRUE(ColourMIPMaps(floats));
    EXPECT_FLOAT_EQ(PixelsOf<float>(floats, 1)->green, 3.0f * 0.33333334f);
}

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
}

TEST(Canvas, Rotate90)
{
    // 4x2: 1 2 3 4 / 5 6 7 8; every level turns (level 1 of 4x2 is 2x1).
    CORBTexture clockwise = Numbered(4, 2), counter = Numbered(4, 2, 1, 2);
    EXPECT_TRUE(Rotate90(clockwise, eAxisZ, true) && Rotate90(counter, eAxisZ, false));
    EXPECT_EQ(clockwise.getWidth() * 10 + clockwise.getHeight(), 24u);
    EXPECT_EQ(RedsOf(clockwise), (std::vector<Byte>{5, 1, 6, 2, 7, 3, 8, 4}));
    EXPECT_EQ(RedsOf(counter), (std::vector<Byte>{4, 8, 3, 7, 2, 6, 1, 5}));
    EXPECT_EQ(counter.getWidth(1) * 10 + counter.getHeight(1), 12u);

    // About x and y the pixels move into the old block, which is dropped: the
    // rotated texture has the new sizes and a block of zeros.
    CORBTexture x = Numbered(2, 3, 4), y = Numbered(2, 3, 4);
    EXPECT_TRUE(Rotate90(x, eAxisX, true) && Rotate90(y, eAxisY, false));
    EXPECT_EQ(x.getWidth() * 100 + x.getHeight() * 10 + x.getDepth(), 243u);
    EXPECT_EQ(RedsOf(x), std::vector<Byte>(24, 0));
    EXPECT_EQ(y.getWidth() * 100 + y.getHeight() * 10 + y.getDepth(), 224u);
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
    // Nothing to do keeps the levels.
    CORBTexture same = Numbered(2, 2, 1, 2);
    EXPECT_TRUE(ResizeCanvas(same, 2, 2, 1, 0, 0, 0) && Border(same, 0, 0, 0));
    EXPECT_EQ(same.getNumMIPLevels(), 2u);
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

TEST(DiffTools, IdenticalTexturesAndInvalidPairs)
{
    const CORBTexture a = StandardTexture<Byte>(2, 1, 1, {{1, 2, 3, 4}, {5, 6, 7, 8}});
    const Result zeros = {0, 0, 0, 0, 0}, failed = {-1, -1, -1, -1, -1};
    EXPECT_EQ(Fields(GetMaxDifference(a, a, 0, 0, 0)), zeros);
    EXPECT_EQ(Fields(GetMeanErrorValue(a, a, 0, 0, 0)), zeros);
    EXPECT_EQ(Fields(GetRMSErrorValue(a, a, 0, 0, 0)), zeros);
    EXPECT_EQ(Fields(GetStandardDeviation(a, a, 0, 0, 0)), zeros);
    EXPECT_EQ(Fields(GetPSNRValue(a, a, 0, 0, 0)), failed);
    const CORBTexture black = ColourDiff(a, a, 4.0f);
    EXPECT_EQ(Channels(PixelsOf<Byte>(black)[1]), (std::array<Byte, 4>{0, 0, 0, 255}));

    // A level that only one texture has, another size, a non-standard type.
    const CORBTexture twoLevels = StandardTexture<Byte>(2, 1, 1, {}, 2);
    EXPECT_TRUE(TexturesAreValidForDiff(a, twoLevels, 0, 0, 0));
    EXPECT_EQ(Fields(GetMeanErrorValue(a, twoLevels, 1, 0, 0)), failed);
    EXPECT_EQ(Fields(GetMaxDifference(a, One<Byte>({}), 0, 0, 0)), failed);
    const CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 1, 2));
    EXPECT_FALSE(TexturesAreValidForDiff(a, packed, 0, 0, 0));
    EXPECT_EQ(ToleranceDiff(packed, a, 1.0f).getDataPtr(), nullptr);
}

TEST(DiffTools, MeasuresOfKnownDifferences)
{
    // Red differs by 10 in one of two pixels, alpha by -4 in both.
    const CORBTexture a = StandardTexture<Byte>(2, 1, 1, {{20, 0, 0, 10}, {30, 0, 0, 10}});
    const CORBTexture b = StandardTexture<Byte>(2, 1, 1, {{10, 0, 0, 14}, {30, 0, 0, 14}});
    EXPECT_EQ(Fields(GetMaxDifference(a, b, 0, 0, 0)), (Result{10, 0, 0, 4, 10}));
    EXPECT_EQ(Fields(GetMeanErrorValue(a, b, 0, 0, 0)), (Result{5, 0, 0, 4, 2.25f}));
    const float rmsRed = std::sqrt(50.0f);
    const ChannelDiffResult rms = GetRMSErrorValue(a, b, 0, 0, 0);
    EXPECT_FLOAT_EQ(rms.channels[0], rmsRed);
    EXPECT_FLOAT_EQ(rms.channels[3], 4.0f);
    EXPECT_FLOAT_EQ(rms.overall, std::sqrt(rmsRed + 4.0f)); // the root of a sum of roots
    // Signed d against the mean absolute error: red (5 and -5 about 5), alpha (-4 about 4) gives 2|d|.
    const ChannelDiffResult deviation = GetStandardDeviation(a, b, 0, 0, 0);
    EXPECT_FLOAT_EQ(deviation.channels[0], 5.0f);
    EXPECT_FLOAT_EQ(deviation.channels[3], 8.0f);
    EXPECT_FLOAT_EQ(deviation.overall, 13.0f * 0.25f);
    // PSNR takes the root of the RMS value; no difference marks -1.
    const ChannelDiffResult psnr = GetPSNRValue(a, b, 0, 0, 0);
    EXPECT_NEAR(psnr.channels[0], 20.0 * std::log10(255.0 / std::sqrt(std::sqrt(50.0))), 1e-4);
    EXPECT_NEAR(psnr.channels[3], 20.0 * std::log10(255.0 / 2.0), 1e-4);
    EXPECT_EQ(psnr.channels[1], -1.0f);
}

TEST(DiffTools, ChannelTypesAreComparedAsPlainNumbers)
{
    // Byte 255 against float 1.0 differs by 254; the PSNR peak follows a's type.
    const CORBTexture bytes = One<Byte>({255, 0, 0, 0});
    const CORBTexture floats = One<float>({1.0f, 0.0f, 0.0f, 0.0f});
    EXPECT_EQ(GetMaxDifference(bytes, floats, 0, 0, 0).channels[0], 254.0f);
    EXPECT_NEAR(GetPSNRValue(floats, bytes, 0, 0, 0).channels[0], 20.0 * std::log10(1.0 / std::sqrt(254.0)), 1e-4);
    EXPECT_NEAR(GetPSNRValue(One<unsigned short>({1, 0, 0, 0}), One<unsigned short>({}), 0, 0, 0).channels[0],
                20.0 * std::log10(65535.0), 1e-3);
    // 32-bit integers have a peak of 0.
    EXPECT_EQ(GetPSNRValue(One<unsigned int>({1, 0, 0, 0}), One<unsigned int>({}), 0, 0, 0).channels[0],
              -std::numeric_limits<float>::infinity());
}

TEST(DiffTools, DifferencePictures)
{
    const CORBTexture a = One<Byte>({255, 10, 20, 40}), b = One<Byte>({0, 11, 20, 40});
    // ColourDiff: red |255 x 0.5| / 255 = 0.5 -> 128; green 1/255 x 0.5 -> 1; alpha inverted.
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ColourDiff(a, b, 0.5f))), (std::array<Byte, 4>{128, 1, 0, 255}));
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ColourDiff(b, a, 0.0f))), (std::array<Byte, 4>{0, 0, 0, 255}));
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ColourDiff(One<Byte>({0, 0, 0, 0}), One<Byte>({0, 0, 0, 100}), 4.0f))),
              (std::array<Byte, 4>{0, 0, 0, 0}));

    const CORBTexture c = One<Byte>({10, 10, 10, 10}), d = One<Byte>({11, 10, 10, 10});
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ToleranceDiff(c, d, 1.0f))), (std::array<Byte, 4>{0, 0, 255, 255}));
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ToleranceDiff(c, d, 0.001f))), (std::array<Byte, 4>{255, 0, 0, 255}));
    // A difference equal to the tolerance is outside it.
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ToleranceDiff(One<Byte>({255, 0, 0, 0}), One<Byte>({}), 1.0f))),
              (std::array<Byte, 4>{255, 0, 0, 255}));
    // A difference of 1 in shorts is under 1/255: black.
    EXPECT_EQ(Channels(*PixelsOf<Byte>(ToleranceDiff(One<unsigned short>({1, 0, 0, 0}), One<unsigned short>({}),
                                                     0.0f))),
              (std::array<Byte, 4>{0, 0, 0, 255}));

    // Blend is clamped to 0..1; 1 shows a, 0 shows b, alpha included.
    EXPECT_EQ(Channels(*PixelsOf<Byte>(BlendDiff(a, b, 7.0f))), (std::array<Byte, 4>{255, 10, 20, 40}));
    EXPECT_EQ(Channels(*PixelsOf<Byte>(BlendDiff(a, b, -1.0f))), (std::array<Byte, 4>{0, 11, 20, 40}));

    // The picture takes b's header with the smaller counts, as rgba8.
    const CORBTexture picture = ColourDiff(One<float>({}, 1), One<unsigned short>({}, 1), 1.0f);
    EXPECT_EQ(picture.getPixelType().PixelTypeID, ORBStandard8PixelType);
    EXPECT_EQ(picture.getChannelType(), eVarUnsignedByteNorm);
}

TEST(ChannelOps, SetChannelsKeepsLowBitsAndLaterEntriesWin)
{
    CORBTexture bytes = Filled<unsigned char>({1, 2, 3, 4});
    EChannelName channels[] = {eChannelLuminance, eChannelGreen, eChannelUnspecified, eChannelNone, EChannelName(9)};
    unsigned values[] = {0x1FF, 0x1234, 7, 99, 99};
    EXPECT_TRUE(SetChannels(bytes, 5, channels, values));
    for (int i = 0; i < 4; ++i)
        ExpectPixel<unsigned char>(PixelsOf<unsigned char>(bytes) + i, 255, 0x34, 255, 7);

    EChannelName redAlpha[] = {eChannelRed, eChannelAlpha};
    unsigned wide[] = {0x12345, 0xFFFFFFFFu};
    CORBTexture shorts = Filled<unsigned short>({1, 2, 3, 4}), floats = Filled<float>({1, 2, 3, 4});
    EXPECT_TRUE(SetChannels(shorts, 2, redAlpha, wide));
    EXPECT_TRUE(SetChannels(floats, 2, redAlpha, wide));
    ExpectPixel<unsigned short>(PixelsOf<unsigned short>(shorts), 0x2345, 2, 3, 0xFFFF);
    ExpectPixel<float>(PixelsOf<float>(floats), 74565.0f, 2, 3, 4294967296.0f);

    // Float values are truncated, not scaled; outside an integer range they saturate.
    float reals[] = {0.999f, 200.7f, 300.0f, -5.0f};
    EChannelName rgba[] = {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha};
    CORBTexture ints = Filled<unsigned int>({9, 9, 9, 9});
    EXPECT_TRUE(SetChannelsFloat(bytes, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(ints, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(floats, 4, rgba, reals));
    ExpectPixel<unsigned char>(PixelsOf<unsigned char>(bytes), 0, 200, 255, 0);
    ExpectPixel<unsigned int>(PixelsOf<unsigned int>(ints), 0, 200, 300, 0);
    ExpectPixel<float>(PixelsOf<float>(floats), 0.999f, 200.7f, 300.0f, -5.0f);
}

TEST(ChannelOps, EverySurfaceIsVisited)
{
    // 8x2 with three levels, two members and two faces.
    CORBTexture texture = Filled<unsigned short>({1, 2, 3, 4}, 8, 3, 2, 2);
    const CORBTexture source = Filled<unsigned short>({0, 0, 0, 300}, 8, 3, 2, 2);
    EChannelName red = eChannelRed, alpha = eChannelAlpha;
    unsigned value = 500;
    ASSERT_TRUE(SetChannels(texture, 1, &red, &value));
    ASSERT_TRUE(CopyChannels(texture, source, 1, &alpha, &alpha));
    ASSERT_TRUE(PreMultiplyAlpha(texture));
    // Alpha 300 of 65535 takes 500 to 2 and green and blue to 0.
    for (size_t i = 0; i < texture.getDataSize() / sizeof(Pixel<unsigned short>); ++i)
        ExpectPixel<unsigned short>(PixelsOf<unsigned short>(texture) + i, 2, 0, 0, 300);
}

TEST(ChannelOps, WorkersCoverDepthAndRefuseNullData)
{
    Pixel<unsigned char> volume[8] = {};
    Pixel<float> out[8] = {};
    EChannelName luminance = eChannelLuminance, red = eChannelRed;
    unsigned char value = 42;
    EXPECT_TRUE((SetChannels<unsigned char, unsigned char>(volume, 2, 2, 2, 1, &luminance, &value)));
    ExpectPixel<unsigned char>(volume + 7, 42, 42, 42, 0);
    EXPECT_TRUE((CopyChannels<unsigned char, float>(volume, out, 2, 2, 2, 1, &red, &red)));
    EXPECT_NEAR(out[7].red, 42 / 255.0f, 1e-6f);
    EXPECT_FALSE((SetChannels<unsigned char, unsigned char>(nullptr, 2, 2, 2, 1, &luminance, &value)));
    EXPECT_FALSE((CopyChannels<unsigned char, float>(volume, nullptr, 2, 2, 2, 1, &red, &red)));
}

TEST(ChannelOps, NonStandardTexturesAreRefusedUntouched)
{
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 1, 1, 1, eColourSpaceLinear, eVarUnsignedByte),
        CORBTextureHeader(PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID, 2, 2),
        CORBTextureHeader(ePF_ETC1, 4, 4),
    };
    EChannelName red = eChannelRed;
    unsigned value = 7;
    float floatValue = 7.0f;
    CORBTexture standard = Filled<unsigned char>({1, 1, 1, 1});
    for (const CORBTextureHeader& header : headers)
    {
        CORBTexture texture(header);
        std::memset(texture.getDataPtr(), 0x5A, texture.getDataSize());
        const CORBTexture before(texture);
        EXPECT_FALSE(SetChannels(texture, 1, &red, &value));
        EXPECT_FALSE(SetChannelsFloat(texture, 1, &red, &floatValue));
        EXPECT_FALSE(CopyChannels(texture, standard, 1, &red, &red));
        EXPECT_FALSE(CopyChannels(standard, texture, 1, &red, &red));
        EXPECT_FALSE(PreMultiplyAlpha(texture));
        EXPECT_FALSE(texture.isPreMultiplied());
        EXPECT_EQ(std::memcmp(texture.getDataPtr(), before.getDataPtr(), texture.getDataSize()), 0);
    }
    // Without levels there is no surface to visit.
    CORBTexture empty(CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 0));
    EXPECT_FALSE(SetChannels(empty, 1, &red, &value));

    // Shapes must match in levels, members, faces and size; channel types needn't.
    CORBTexture dst = Filled<unsigned char>({1, 1, 1, 1}, 4, 2, 2, 2);
    const Pixel<unsigned char> nine = {9, 9, 9, 9};
    for (const CORBTexture& src : {Filled(nine, 4, 1, 2, 2), Filled(nine, 4, 2, 1, 2), Filled(nine, 4, 2, 2, 1),
                                   Filled(nine, 2, 2, 2, 2)})
        EXPECT_FALSE(CopyChannels(dst, src, 1, &red, &red));
    EXPECT_EQ(PixelsOf<unsigned char>(dst)->red, 1);
    EXPECT_TRUE(CopyChannels(dst, Filled<float>({1, 1, 1, 1}, 4, 2, 2, 2), 1, &red, &red));
}

TEST(ChannelOps, CopyChannelsReadsBeforeWritingScalesAndWeighs)
{
    CORBTexture texture = Filled<unsigned char>({10, 20, 30, 40});
    EChannelName to[] = {eChannelRed, eChannelBlue, eChannelGreen, eChannelLuminance};
    EChannelName from[] = {eChannelBlue, eChannelRed, eChannelNone, eChannelNone};
    ASSERT_TRUE(CopyChannels(texture, texture, 4, to, from)); // sources naming no channel write nothing
    ExpectPixel<unsigned char>(PixelsOf<unsigned char>(texture), 30, 20, 10, 40);
    // Same-type copies are exact even where float would round.
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0x12345679u, 0, 0, 0})), 0x12345679u);
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0, 0, 0, 0xFFFFFFFFu}, eChannelUnspecified)), 0xFFFFFFFFu);

    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({3, 3, 3, 0}, eChannelIntensity)), 3); // 9 x 0.33333334 > 3
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({100, 0, 0, 0}, eChannelLuminance)), 21);
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({0, 100, 0, 0}, eChannelLuminance)), 71);
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({0, 0, 100, 0}, eChannelLuminance)), 7);
    EXPECT_NEAR((CopyOne<unsigned char, float>({51, 102, 153, 0}, eChannelIntensity)), 0.4f, 1e-6f);
    EXPECT_EQ((CopyOne<unsigned char, unsigned short>({255, 0, 0, 0})), 65535);
    EXPECT_EQ((CopyOne<unsigned char, unsigned int>({1, 0, 0, 0})), 16843010u);
    EXPECT_EQ((CopyOne<unsigned int, unsigned short>({0x40000000u, 0, 0, 0})), 16383);
    EXPECT_EQ((CopyOne<float, unsigned int>({0.25f, 0, 0, 0})), 0x40000000u);
    // Past the destination's range results saturate: both products round to 2^32.
    EXPECT_EQ((CopyOne<unsigned char, unsigned int>({255, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, unsigned int>({1.0f, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, unsigned char>({-0.5f, 0, 0, 0})), 0);
}

TEST(ChannelOps, PreMultiplyAlphaKeepsTheLowByteForEveryType)
{
    CORBTexture bytes = Filled<unsigned char>({200, 100, 50, 128});
    CORBTexture shorts = Filled<unsigned short>({1000, 300, 65535, 32768});
    CORBTexture ints = Filled<unsigned int>({300, 100000, 0x80000000u, 0x80000000u});
    CORBTexture floats = Filled<float>({0.8f, 200.0f, 70000.0f, 1.0f});
    for (CORBTexture* texture : {&bytes, &shorts, &ints, &floats})
    {
        EXPECT_TRUE(PreMultiplyAlpha(*texture));
        EXPECT_TRUE(texture->isPreMultiplied());
    }
    ExpectPixel<unsigned char>(PixelsOf<unsigned char>(bytes), 100, 50, 25, 128);
    ExpectPixel<unsigned short>(PixelsOf<unsigned short>(shorts), 244, 150, 0, 32768); // 500 mod 256; 32768 has low byte 0
    ExpectPixel<unsigned int>(PixelsOf<unsigned int>(ints), 150, 0x50, 0, 0x80000000u); // 50000 = 0xC350; 2^30 overflows
    ExpectPixel<float>(PixelsOf<float>(floats), 0.0f, 200.0f, 0.0f, 1.0f);

    const CORBTexture before(bytes);
    EXPECT_FALSE(PreMultiplyAlpha(bytes));
    EXPECT_EQ(std::memcmp(bytes.getDataPtr(), before.getDataPtr(), bytes.getDataSize()), 0);
}
