// Operations on textures of the standard pixel types: resampling, MIP chains,
// canvas, rotation, flips, borders, bleeding, normal maps, comparison and the
// channel operations. The pinned digests hold whole rgba8 outputs of Resize,
// GenerateMIPMaps and GenerateNormalMap; these tests cover the other types,
// shapes, metadata and refusals.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

using Byte = unsigned char;
using Bytes = std::vector<Pixel<Byte>>;

template <typename T>
Pixel<T>* PixelsOf(const CORBTexture& texture, uint32_t mip = 0)
{
    return reinterpret_cast<Pixel<T>*>(texture.getDataPtr(mip));
}

// A texture of the standard type for T whose surfaces repeat 'pixels' in
// raster order (zeros when there are none).
template <typename T>
CORBTexture Texture(uint32_t width, uint32_t height, uint32_t depth, const std::vector<Pixel<T>>& pixels,
                    uint32_t mips = 1, uint32_t members = 1, uint32_t faces = 1)
{
    const uint64_t formats[] = {ORBStandard8PixelType, ORBStandard16PixelType, 0, ORBStandard32PixelType};
    const EORBTVariableType type = std::is_same_v<T, float> ? eVarSignedFloat
                                   : sizeof(T) == 1         ? eVarUnsignedByteNorm
                                   : sizeof(T) == 2         ? eVarUnsignedShortNorm
                                                            : eVarUnsignedIntegerNorm;
    CORBTexture texture(CORBTextureHeader(formats[sizeof(T) - 1], height, width, depth, mips, members, faces,
                                          eColourSpaceLinear, type));
    for (size_t i = 0; i < texture.getDataSize() / sizeof(Pixel<T>); ++i)
        PixelsOf<T>(texture)[i] = pixels.empty() ? Pixel<T>{} : pixels[i % pixels.size()];
    return texture;
}

template <typename T>
CORBTexture One(Pixel<T> p, uint32_t mips = 1)
{
    return Texture<T>(1, 1, 1, {p}, mips);
}

// Grey pixels from values in raster order.
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

template <typename T>
std::array<T, 4> FirstOf(const CORBTexture& texture)
{
    return Channels(*PixelsOf<T>(texture));
}

template <typename T>
std::vector<T> Reds(const Pixel<T>* pixels, size_t count)
{
    std::vector<T> reds;
    for (size_t i = 0; i < count; ++i)
        reds.push_back(pixels[i].red);
    return reds;
}

std::vector<Byte> RedsOf(const CORBTexture& texture)
{
    return Reds(PixelsOf<Byte>(texture), size_t(texture.getWidth()) * texture.getHeight() * texture.getDepth());
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
CORBTexture Numbered(uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1)
{
    Bytes pixels;
    for (uint32_t i = 1; i <= width * height * depth; ++i)
        pixels.push_back({Byte(i), Byte(i), Byte(i), Byte(i)});
    return Texture<Byte>(width, height, depth, pixels, mips);
}

// Size, levels and border as "WxHxD mL bX,Y,Z".
std::string Shape(const CORBTexture& t)
{
    uint32_t x, y, z;
    t.getBorder(x, y, z);
    std::ostringstream out;
    out << t.getWidth() << "x" << t.getHeight() << "x" << t.getDepth() << " m" << t.getNumMIPLevels() << " b" << x
        << "," << y << "," << z;
    return out.str();
}

std::vector<Pixel<float>> Normals(const Bytes& heights, uint32_t width, uint32_t height, uint32_t depth,
                                  const char* order, float scale = 1.0f)
{
    std::vector<Pixel<float>> out(heights.size());
    EXPECT_TRUE(CreateNormalMap(const_cast<Pixel<Byte>*>(heights.data()), out.data(), width, height, depth, scale,
                                order));
    return out;
}

using Result = std::array<float, 5>;

Result Fields(ChannelDiffResult r) { return {r.channels[0], r.channels[1], r.channels[2], r.channels[3], r.overall}; }

// Channel 'from' of a one-pixel texture of type S, copied into red of type D.
template <typename S, typename D>
D CopyOne(Pixel<S> source, EChannelName from = eChannelRed)
{
    CORBTexture src = One<S>(source), dst = One<D>({});
    EChannelName to = eChannelRed;
    EXPECT_TRUE(CopyChannels(dst, src, 1, &to, &from));
    return PixelsOf<D>(dst)->red;
}

} // namespace

TEST(Resample, KeptAxesTypesAndPassSchedule)
{
    // Halving x with the height kept: the kept axis drifts from 1 to n - 2, so every row samples y = 1.
    const Bytes rows = Greys<Byte>({10, 10, 10, 10, 20, 20, 20, 20, 30, 30, 30, 30}, 255);
    EXPECT_EQ(Reds(Stretch(rows, 4, 3, 1, 2, 3, 1, eResizeLinear).data(), 6), std::vector<Byte>(6, 20));

    // Nearest keeps floats out of 0..1, the other filters clamp them.
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

    // The stepped form goes from 4x4 to 16x16 through 8x8.
    Bytes ramp;
    for (int i = 0; i < 16; ++i)
        ramp.push_back({uint8_t(i * 16), uint8_t(255 - i * 9), uint8_t(i * i), 255});
    const Bytes twoPasses = Stretch(Stretch(ramp, 4, 4, 1, 8, 8, 1, eResizeCubic), 8, 8, 1, 16, 16, 1, eResizeCubic);
    const Bytes stepped = Stretch(ramp, 4, 4, 1, 16, 16, 1, eResizeCubic, true);
    EXPECT_TRUE(std::equal(stepped.begin(), stepped.end(), twoPasses.begin(),
                           [](auto& a, auto& b) { return Channels(a) == Channels(b); }));
    // An unknown mode writes nothing; null pointers fail.
    Bytes out(4, Pixel<Byte>{5, 5, 5, 5});
    EXPECT_TRUE(StretchImage(ramp.data(), out.data(), 4, 4, 1, 2, 2, 1, EResizeMode(7)));
    EXPECT_EQ(Channels(out[0]), (std::array<Byte, 4>{5, 5, 5, 5}));
    EXPECT_FALSE(StretchImage<Byte>(nullptr, out.data(), 4, 4, 1, 2, 2, 1, eResizeLinear));
    EXPECT_FALSE(SteppedStretchImage<Byte>(ramp.data(), nullptr, 4, 4, 1, 2, 2, 1, eResizeLinear));
}

TEST(MIPMaps, ChainLengthsResizedLevelsAndColouredLevels)
{
    CORBTexture wide = Texture<Byte>(512, 256, 1, {});
    EXPECT_TRUE(GenerateMIPMaps(wide, eResizeLinear, 0xFFFFFFFFu));
    EXPECT_EQ(wide.getNumMIPLevels(), 10u);
    // Depth alone makes levels too.
    CORBTexture tall = Texture<float>(1, 1, 512, {});
    EXPECT_TRUE(GenerateMIPMaps(tall, eResizeNearest, 0xFFFFFFFFu));
    EXPECT_EQ(tall.getNumMIPLevels(), 10u);
    EXPECT_FALSE(GenerateMIPMaps(wide, eResizeLinear, 0));
    EXPECT_EQ(wide.getNumMIPLevels(), 10u);
    EXPECT_TRUE(GenerateMIPMaps(wide, eResizeLinear, 1));
    EXPECT_EQ(wide.getNumMIPLevels(), 1u);
    // A count beyond the full chain stays at 1x1.
    CORBTexture small = Texture<Byte>(2, 2, 1, Greys<Byte>({9, 9, 9, 9}, 255));
    EXPECT_TRUE(GenerateMIPMaps(small, eResizeLinear, 4));
    EXPECT_EQ(small.getNumMIPLevels(), 4u);
    EXPECT_EQ(PixelsOf<Byte>(small, 3)->red, 9);

    // Resize keeps the levels only at the same size, and scales the border.
    CORBTexture texture = Texture<unsigned short>(8, 8, 1, {}, 4);
    texture.setBorder(3, 2, 0);
    EXPECT_TRUE(Resize(texture, 8, 8, 1, eResizeLinear));
    EXPECT_EQ(texture.getNumMIPLevels(), 4u);
    EXPECT_TRUE(Resize(texture, 4, 12, 1, eResizeCubic));
    EXPECT_EQ(Shape(texture), "4x12x1 m1 b1,3,0");
    EXPECT_FALSE(Resize(texture, 0, 4, 1, eResizeLinear));

    // ColourMIPMaps tints the grey of every level but the first; alpha stays.
    CORBTexture tinted = Texture<Byte>(1, 1, 1, {{255, 0, 0, 77}}, 7);
    EXPECT_TRUE(ColourMIPMaps(tinted));
    const Byte tints[7][3] = {{255, 0, 0}, {0, 85, 0}, {0, 0, 85}, {0, 85, 85}, {85, 0, 85}, {85, 85, 0}, {85, 0, 0}};
    for (uint32_t level = 0; level < 7; ++level)
        EXPECT_EQ(Channels(*PixelsOf<Byte>(tinted, level)),
                  (std::array<Byte, 4>{tints[level][0], tints[level][1], tints[level][2], 77}))
            << level;
}

TEST(Canvas, ResizeCanvasRotateAndFlip)
{
    CORBTexture row = Numbered(3, 1);
    EXPECT_TRUE(ResizeCanvas(row, 3, 1, 1, 1, 0, 0));
    EXPECT_EQ(RedsOf(row), (std::vector<Byte>{0, 1, 2}));
    EXPECT_EQ(PixelsOf<Byte>(row)->alpha, 0); // the vacated strip is transparent black
    CORBTexture square = Numbered(3, 3, 1, 2);
    square.setBorder(3, 3, 0);
    EXPECT_TRUE(ResizeCanvas(square, 2, 2, 1, 0, 0, 0));
    EXPECT_EQ(RedsOf(square), (std::vector<Byte>{1, 2, 4, 5}));
    EXPECT_EQ(Shape(square), "2x2x1 m1 b2,2,0");

    // 4x2: 1 2 3 4 / 5 6 7 8; every level turns (level 1 of 4x2 is 2x1).
    CORBTexture clockwise = Numbered(4, 2), counter = Numbered(4, 2, 1, 2);
    EXPECT_TRUE(Rotate90(clockwise, eAxisZ, true) && Rotate90(counter, eAxisZ, false));
    EXPECT_EQ(Shape(clockwise), "2x4x1 m1 b0,0,0");
    EXPECT_EQ(RedsOf(clockwise), (std::vector<Byte>{5, 1, 6, 2, 7, 3, 8, 4}));
    EXPECT_EQ(RedsOf(counter), (std::vector<Byte>{4, 8, 3, 7, 2, 6, 1, 5}));
    EXPECT_EQ(counter.getWidth(1) * 10 + counter.getHeight(1), 12u);
    // About x and y the sizes turn too.
    CORBTexture x = Numbered(2, 3, 4), y = Numbered(2, 3, 4);
    EXPECT_TRUE(Rotate90(x, eAxisX, true) && Rotate90(y, eAxisY, false));
    EXPECT_EQ(Shape(x) + " " + Shape(y), "2x4x3 m1 b0,0,0 2x2x4 m1 b0,0,0");

    // Flips of a 3x2x2 block about each axis; an unknown axis does nothing.
    const std::pair<EORBTAxis, std::vector<Byte>> flips[] = {
        {eAxisX, {3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10}},
        {eAxisY, {4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9}},
        {eAxisZ, {7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6}},
        {EORBTAxis(9), {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
    };
    for (const auto& flip : flips)
    {
        CORBTexture texture = Numbered(3, 2, 2);
        EXPECT_TRUE(Flip(texture, flip.first));
        EXPECT_EQ(RedsOf(texture), flip.second) << flip.first;
    }
}

// Borders mirror without repeating the edge; bleeding reaches 8 pixels.
TEST(Canvas, BorderAndBleed)
{
    CORBTexture square = Numbered(2, 2, 1, 2);
    EXPECT_TRUE(Border(square, 1, 1, 0));
    EXPECT_EQ(Shape(square), "4x4x1 m1 b1,1,0");
    EXPECT_EQ(RedsOf(square), (std::vector<Byte>{1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4}));
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

    // Bleeding: alpha 8 is opaque and alpha 7 transparent, in bytes and in shorts.
    const auto bleedMiddle = [](auto tag) {
        using T = decltype(tag);
        CORBTexture texture = Texture<T>(3, 1, 1, {{100, 10, 1, 8}, {50, 50, 50, 7}, {201, 30, 2, T(~T(0))}});
        EXPECT_TRUE(Bleed(texture));
        return Channels(PixelsOf<T>(texture)[1]);
    };
    EXPECT_EQ(bleedMiddle(Byte()), (std::array<Byte, 4>{150, 20, 1, 7}));
    EXPECT_EQ(bleedMiddle((unsigned short)0), (std::array<unsigned short, 4>{150, 20, 1, 7}));

    // Opaque pixel at x = 0: x = 8 is within reach, x = 9 is not.
    Bytes line(10, Pixel<Byte>{9, 9, 9, 0});
    line[0] = {60, 60, 60, 255};
    CORBTexture texture = Texture<Byte>(10, 1, 1, line);
    EXPECT_TRUE(Bleed(texture));
    EXPECT_EQ(PixelsOf<Byte>(texture)[8].red, 60);
    EXPECT_EQ(Channels(PixelsOf<Byte>(texture)[9]), (std::array<Byte, 4>{0, 0, 0, 0}));

    // Float images with alpha in 0..1 count as transparent everywhere.
    CORBTexture floats = Texture<float>(2, 1, 1, {{0.5f, 0.5f, 0.5f, 1.0f}, {0.2f, 0.2f, 0.2f, 1.0f}});
    EXPECT_TRUE(Bleed(floats));
    EXPECT_EQ(FirstOf<float>(floats), (std::array<float, 4>{0.0f, 0.0f, 0.0f, 1.0f}));
}

TEST(NormalMap, OrdersSlopesAndMetadata)
{
    const Bytes flat(4, Pixel<Byte>{0, 9, 9, 9});
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, nullptr)[3]), (std::array<float, 4>{0.5f, 0.5f, 1.0f, 1.0f}));
    // A repeated letter takes the later place; unknown and upper-case letters assign nothing.
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "xx")[0]), (std::array<float, 4>{1.0f, 0.5f, 1.0f, 1.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "Zqzhy")[0]), (std::array<float, 4>{1.0f, 1.0f, 1.0f, 0.0f}));
    EXPECT_EQ(Channels(Normals(flat, 2, 2, 1, "")[0]), (std::array<float, 4>{1.0f, 1.0f, 1.0f, 1.0f}));

    // Heights 0 255 0: at x = 0 left wraps to x = 2 (0) and right is 255, so
    // dx = -1 and the normal leans by 45 degrees; a negative scale inverts it.
    const float half = 0.5f / std::sqrt(2.0f);
    const Bytes ridge = Greys<Byte>({0, 255, 0}, 0);
    EXPECT_NEAR(Normals(ridge, 3, 1, 1, "x")[0].red, 0.5f - half, 1e-6);
    EXPECT_NEAR(Normals(ridge, 3, 1, 1, "x", -1.0f)[0].red, 0.5f + half, 1e-6);
    // Columns 1 wide and 2 high in two slices: the vertical wrap reads slice 0.
    // Slice 1, y = 0: up is slice 0's last row (0), down is 255 -> dy = -1.
    EXPECT_NEAR(Normals(Greys<Byte>({0, 0, 0, 255}, 0), 1, 2, 2, "y")[2].red, 0.5f - half, 1e-6);

    CORBTexture texture = Texture<unsigned short>(2, 2, 1, {}, 2);
    EXPECT_TRUE(GenerateNormalMap(texture, 2.0f, "XYZH"));
    EXPECT_EQ(texture.getPixelType().PixelTypeID, ORBStandard32PixelType);
    EXPECT_EQ(texture.getChannelType(), eVarSignedFloat);
    EXPECT_EQ(texture.getNumMIPLevels(), 2u);
    EXPECT_EQ(Channels(*PixelsOf<float>(texture, 1)), (std::array<float, 4>{0.5f, 0.5f, 1.0f, 0.0f}));
    EXPECT_EQ(std::string(texture.getBumpMapOrder().c_str()), "xyzh");
    EXPECT_EQ(texture.getBumpMapScale(), 2.0f);
    // Scale 0 fails, yet the float texture and the metadata replace the old.
    CORBTexture zero = Texture<Byte>(2, 2, 1, {});
    EXPECT_FALSE(GenerateNormalMap(zero, 0.0f, "xyz"));
    EXPECT_EQ(zero.getChannelType(), eVarSignedFloat);
    EXPECT_TRUE(zero.isBumpMap());
}

TEST(DiffTools, MeasuresPicturesAndInvalidPairs)
{
    // Identical textures: no difference, and PSNR marks every channel -1.
    const CORBTexture same = Texture<Byte>(2, 1, 1, {{1, 2, 3, 4}, {5, 6, 7, 8}});
    const Result zeros = {0, 0, 0, 0, 0}, failed = {-1, -1, -1, -1, -1};
    for (auto measure : {GetMaxDifference, GetMeanErrorValue, GetRMSErrorValue, GetStandardDeviation})
        EXPECT_EQ(Fields(measure(same, same, 0, 0, 0)), zeros);
    EXPECT_EQ(Fields(GetPSNRValue(same, same, 0, 0, 0)), failed);
    EXPECT_EQ(Channels(PixelsOf<Byte>(ColourDiff(same, same, 4.0f))[1]), (std::array<Byte, 4>{0, 0, 0, 255}));
    // A level that only one texture has, another size, a non-standard type.
    const CORBTexture twoLevels = Texture<Byte>(2, 1, 1, {}, 2);
    EXPECT_TRUE(TexturesAreValidForDiff(same, twoLevels, 0, 0, 0));
    EXPECT_EQ(Fields(GetMeanErrorValue(same, twoLevels, 1, 0, 0)), failed);
    EXPECT_EQ(Fields(GetMaxDifference(same, One<Byte>({}), 0, 0, 0)), failed);
    const CORBTexture packed(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 1, 2));
    EXPECT_FALSE(TexturesAreValidForDiff(same, packed, 0, 0, 0));
    EXPECT_EQ(ToleranceDiff(packed, same, 1.0f).getDataPtr(), nullptr);

    // Red differs by 10 in one of two pixels, alpha by -4 in both.
    const CORBTexture a = Texture<Byte>(2, 1, 1, {{20, 0, 0, 10}, {30, 0, 0, 10}});
    const CORBTexture b = Texture<Byte>(2, 1, 1, {{10, 0, 0, 14}, {30, 0, 0, 14}});
    EXPECT_EQ(Fields(GetMaxDifference(a, b, 0, 0, 0)), (Result{10, 0, 0, 4, 10}));
    EXPECT_EQ(Fields(GetMeanErrorValue(a, b, 0, 0, 0)), (Result{5, 0, 0, 4, 2.25f}));
    const float rmsRed = std::sqrt(50.0f);
    const ChannelDiffResult rms = GetRMSErrorValue(a, b, 0, 0, 0);
    EXPECT_FLOAT_EQ(rms.channels[0], rmsRed);
    EXPECT_FLOAT_EQ(rms.overall, std::sqrt(rmsRed + 4.0f)); // the root of a sum of roots
    // Signed d against the mean absolute error: red (5 and -5 about 5), alpha (-4 about 4) gives 2|d|.
    const ChannelDiffResult deviation = GetStandardDeviation(a, b, 0, 0, 0);
    EXPECT_FLOAT_EQ(deviation.channels[3], 8.0f);
    EXPECT_FLOAT_EQ(deviation.overall, 13.0f * 0.25f);
    // PSNR takes the root of the RMS value.
    const ChannelDiffResult psnr = GetPSNRValue(a, b, 0, 0, 0);
    EXPECT_NEAR(psnr.channels[0], 20.0 * std::log10(255.0 / std::sqrt(std::sqrt(50.0))), 1e-4);
    EXPECT_NEAR(psnr.channels[3], 20.0 * std::log10(255.0 / 2.0), 1e-4);
    // The PSNR peak follows the first texture's type, and is 0 for 32-bit integers.
    EXPECT_EQ(GetPSNRValue(One<unsigned int>({1, 0, 0, 0}), One<unsigned int>({}), 0, 0, 0).channels[0],
              -std::numeric_limits<float>::infinity());

    // Difference pictures.
    const CORBTexture e = One<Byte>({255, 10, 20, 40}), f = One<Byte>({0, 11, 20, 40});
    // ColourDiff: red |255 x 0.5| / 255 = 0.5 -> 128; green 1/255 x 0.5 -> 1; alpha inverted.
    EXPECT_EQ(FirstOf<Byte>(ColourDiff(e, f, 0.5f)), (std::array<Byte, 4>{128, 1, 0, 255}));

    const CORBTexture c = One<Byte>({10, 10, 10, 10}), d = One<Byte>({11, 10, 10, 10});
    EXPECT_EQ(FirstOf<Byte>(ToleranceDiff(c, d, 1.0f)), (std::array<Byte, 4>{0, 0, 255, 255}));
    EXPECT_EQ(FirstOf<Byte>(ToleranceDiff(c, d, 0.001f)), (std::array<Byte, 4>{255, 0, 0, 255}));
    // A difference equal to the tolerance is outside it.
    EXPECT_EQ(FirstOf<Byte>(ToleranceDiff(One<Byte>({255, 0, 0, 0}), One<Byte>({}), 1.0f)),
              (std::array<Byte, 4>{255, 0, 0, 255}));
    // A difference of 1 in shorts is under 1/255: black.
    EXPECT_EQ(FirstOf<Byte>(ToleranceDiff(One<unsigned short>({1, 0, 0, 0}), One<unsigned short>({}), 0.0f)),
              (std::array<Byte, 4>{0, 0, 0, 255}));

    // Blend is clamped to 0..1; 1 shows the first, 0 the second, alpha included.
    EXPECT_EQ(FirstOf<Byte>(BlendDiff(e, f, 7.0f)), (std::array<Byte, 4>{255, 10, 20, 40}));
    EXPECT_EQ(FirstOf<Byte>(BlendDiff(e, f, -1.0f)), (std::array<Byte, 4>{0, 11, 20, 40}));

    // The picture takes the second texture's header with the smaller counts, as rgba8.
    const CORBTexture picture = ColourDiff(One<float>({}, 1), One<unsigned short>({}, 1), 1.0f);
    EXPECT_EQ(picture.getPixelType().PixelTypeID, ORBStandard8PixelType);
    EXPECT_EQ(picture.getChannelType(), eVarUnsignedByteNorm);
}

TEST(ChannelOps, SetChannelsKeepsLowBitsAndLaterEntriesWin)
{
    CORBTexture bytes = Texture<Byte>(2, 2, 1, {{1, 2, 3, 4}});
    EChannelName channels[] = {eChannelLuminance, eChannelGreen, eChannelUnspecified, eChannelNone, EChannelName(9)};
    unsigned values[] = {0x1FF, 0x1234, 7, 99, 99};
    EXPECT_TRUE(SetChannels(bytes, 5, channels, values));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(Channels(PixelsOf<Byte>(bytes)[i]), (std::array<Byte, 4>{255, 0x34, 255, 7})) << i;

    EChannelName redAlpha[] = {eChannelRed, eChannelAlpha};
    unsigned wide[] = {0x12345, 0xFFFFFFFFu};
    CORBTexture shorts = One<unsigned short>({1, 2, 3, 4}), floats = One<float>({1, 2, 3, 4});
    EXPECT_TRUE(SetChannels(shorts, 2, redAlpha, wide));
    EXPECT_TRUE(SetChannels(floats, 2, redAlpha, wide));
    EXPECT_EQ(FirstOf<unsigned short>(shorts), (std::array<unsigned short, 4>{0x2345, 2, 3, 0xFFFF}));
    EXPECT_EQ(FirstOf<float>(floats), (std::array<float, 4>{74565.0f, 2, 3, 4294967296.0f}));

    // Float values are truncated, not scaled; outside an integer range they saturate.
    float reals[] = {0.999f, 200.7f, 300.0f, -5.0f};
    EChannelName rgba[] = {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha};
    CORBTexture ints = One<unsigned int>({9, 9, 9, 9});
    EXPECT_TRUE(SetChannelsFloat(bytes, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(ints, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(floats, 4, rgba, reals));
    EXPECT_EQ(FirstOf<Byte>(bytes), (std::array<Byte, 4>{0, 200, 255, 0}));
    EXPECT_EQ(FirstOf<unsigned int>(ints), (std::array<unsigned int, 4>{0, 200, 300, 0}));
    EXPECT_EQ(FirstOf<float>(floats), (std::array<float, 4>{0.999f, 200.7f, 300.0f, -5.0f}));

    // Every surface and slice is visited: 8x2x2 with three levels, two members and two faces.
    CORBTexture texture = Texture<unsigned short>(8, 2, 2, {{1, 2, 3, 4}}, 3, 2, 2);
    const CORBTexture source = Texture<unsigned short>(8, 2, 2, {{0, 0, 0, 300}}, 3, 2, 2);
    EChannelName red = eChannelRed, alpha = eChannelAlpha;
    unsigned value = 500;
    EXPECT_TRUE(SetChannels(texture, 1, &red, &value));
    EXPECT_TRUE(CopyChannels(texture, source, 1, &alpha, &alpha));
    EXPECT_TRUE(PreMultiplyAlpha(texture));
    // Alpha 300 of 65535 takes 500 to 2 and green and blue to 0.
    for (size_t i = 0; i < texture.getDataSize() / sizeof(Pixel<unsigned short>); ++i)
        EXPECT_EQ(Channels(PixelsOf<unsigned short>(texture)[i]), (std::array<unsigned short, 4>{2, 0, 0, 300})) << i;
    // The workers refuse null data.
    Pixel<Byte> pixel = {};
    EXPECT_FALSE((SetChannels<Byte, Byte>(nullptr, 1, 1, 1, 1, &red, &pixel.red)));
    EXPECT_FALSE((CopyChannels<Byte, float>(&pixel, nullptr, 1, 1, 1, 1, &red, &red)));
}

TEST(ChannelOps, CopyChannelsReadsBeforeWritingScalesAndWeighs)
{
    CORBTexture texture = One<Byte>({10, 20, 30, 40});
    EChannelName to[] = {eChannelRed, eChannelBlue, eChannelGreen, eChannelLuminance};
    EChannelName from[] = {eChannelBlue, eChannelRed, eChannelNone, eChannelNone};
    ASSERT_TRUE(CopyChannels(texture, texture, 4, to, from)); // sources naming no channel write nothing
    EXPECT_EQ(FirstOf<Byte>(texture), (std::array<Byte, 4>{30, 20, 10, 40}));
    // Same-type copies are exact even where float would round.
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0x12345679u, 0, 0, 0})), 0x12345679u);
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0, 0, 0, 0xFFFFFFFFu}, eChannelUnspecified)), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<Byte, Byte>({3, 3, 3, 0}, eChannelIntensity)), 3); // 9 x 0.33333334 > 3
    EXPECT_EQ((CopyOne<Byte, Byte>({100, 0, 0, 0}, eChannelLuminance)), 21);
    EXPECT_EQ((CopyOne<Byte, Byte>({0, 100, 0, 0}, eChannelLuminance)), 71);
    EXPECT_EQ((CopyOne<Byte, Byte>({0, 0, 100, 0}, eChannelLuminance)), 7);
    EXPECT_EQ((CopyOne<Byte, unsigned short>({255, 0, 0, 0})), 65535);
    EXPECT_EQ((CopyOne<unsigned int, unsigned short>({0x40000000u, 0, 0, 0})), 16383);
    EXPECT_EQ((CopyOne<float, unsigned int>({0.25f, 0, 0, 0})), 0x40000000u);
    // Past the destination's range results saturate: both products round to 2^32.
    EXPECT_EQ((CopyOne<Byte, unsigned int>({255, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, unsigned int>({1.0f, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, Byte>({-0.5f, 0, 0, 0})), 0);

    // Shapes must match in levels, members, faces and size; channel types needn't.
    CORBTexture dst = Texture<Byte>(4, 2, 1, {{1, 1, 1, 1}}, 2, 2, 2);
    const Bytes nine = {{9, 9, 9, 9}};
    EChannelName red = eChannelRed;
    for (const CORBTexture& src : {Texture(4, 2, 1, nine, 1, 2, 2), Texture(4, 2, 1, nine, 2, 1, 2),
                                   Texture(4, 2, 1, nine, 2, 2, 1), Texture(2, 2, 1, nine, 2, 2, 2)})
        EXPECT_FALSE(CopyChannels(dst, src, 1, &red, &red));
    EXPECT_EQ(PixelsOf<Byte>(dst)->red, 1);
    EXPECT_TRUE(CopyChannels(dst, Texture<float>(4, 2, 1, {{1, 1, 1, 1}}, 2, 2, 2), 1, &red, &red));
}

TEST(ChannelOps, PreMultiplyAlphaKeepsTheLowByteForEveryType)
{
    CORBTexture bytes = One<Byte>({200, 100, 50, 128});
    CORBTexture shorts = One<unsigned short>({1000, 300, 65535, 32768});
    CORBTexture ints = One<unsigned int>({300, 100000, 0x80000000u, 0x80000000u});
    CORBTexture floats = One<float>({0.8f, 200.0f, 70000.0f, 1.0f});
    for (CORBTexture* texture : {&bytes, &shorts, &ints, &floats})
    {
        EXPECT_TRUE(PreMultiplyAlpha(*texture));
        EXPECT_TRUE(texture->isPreMultiplied());
    }
    EXPECT_EQ(FirstOf<Byte>(bytes), (std::array<Byte, 4>{100, 50, 25, 128}));
    // 500 mod 256; 32768 has low byte 0.
    EXPECT_EQ(FirstOf<unsigned short>(shorts), (std::array<unsigned short, 4>{244, 150, 0, 32768}));
    // 50000 = 0xC350; 2^30 overflows.
    EXPECT_EQ(FirstOf<unsigned int>(ints), (std::array<unsigned int, 4>{150, 0x50, 0, 0x80000000u}));
    EXPECT_EQ(FirstOf<float>(floats), (std::array<float, 4>{0.0f, 200.0f, 0.0f, 1.0f}));
    // A second time is refused and changes nothing.
    EXPECT_FALSE(PreMultiplyAlpha(bytes));
    EXPECT_EQ(FirstOf<Byte>(bytes), (std::array<Byte, 4>{100, 50, 25, 128}));
}

// Every operation refuses a texture that is not of a standard type and leaves it as it was.
TEST(ImageOps, NonStandardTexturesAreRefusedUntouched)
{
    const CORBTextureHeader headers[] = {
        CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 1, 1, 1, eColourSpaceLinear, eVarUnsignedByte),
        CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 2, 2),
        CORBTextureHeader(ePF_ETC1, 4, 4),
    };
    EChannelName red = eChannelRed;
    unsigned value = 7;
    float floatValue = 7.0f;
    CORBTexture standard = One<Byte>({1, 1, 1, 1});
    for (const CORBTextureHeader& header : headers)
    {
        CORBTexture texture(header);
        std::memset(texture.getDataPtr(), 0x5A, texture.getDataSize());
        const CORBTexture before(texture);
        EXPECT_FALSE(Resize(texture, 2, 4, 1, eResizeLinear) || GenerateMIPMaps(texture, eResizeLinear, 2) ||
                     ResizeCanvas(texture, 4, 4, 1, 0, 0, 0) || Rotate90(texture, eAxisZ, true));
        EXPECT_FALSE(Flip(texture, eAxisX) || Border(texture, 1, 1, 0) || Bleed(texture) ||
                     GenerateNormalMap(texture, 1.0f, "xyz"));
        EXPECT_FALSE(SetChannels(texture, 1, &red, &value) || SetChannelsFloat(texture, 1, &red, &floatValue));
        EXPECT_FALSE(CopyChannels(texture, standard, 1, &red, &red) || CopyChannels(standard, texture, 1, &red, &red));
        EXPECT_FALSE(PreMultiplyAlpha(texture) || texture.isPreMultiplied() || texture.isBumpMap());
        EXPECT_EQ(Shape(texture), Shape(before));
        EXPECT_EQ(std::memcmp(texture.getDataPtr(), before.getDataPtr(), texture.getDataSize()), 0);
    }
    // Without levels there is no surface to visit.
    CORBTexture empty(CORBTextureHeader(ORBStandard8PixelType, 2, 2, 1, 0));
    EXPECT_FALSE(SetChannels(empty, 1, &red, &value));
}

// A failing call leaves its kind and a reason that starts with the call's name.
TEST(ImageOps, FailuresLeaveTheirReason)
{
    constexpr EORBTErrorKind kArgument = eORBTErrorArgument, kFormat = eORBTErrorUnsupported, kSize = eORBTErrorSize;
    const struct { bool (*fails)(CORBTexture); EORBTErrorKind kind; const char* reason; } cases[] = {
        {[](CORBTexture) { CORBTexture t(CORBTextureHeader(ePF_ETC1, 4, 4)); return !Flip(t, eAxisX); }, kFormat,
         "Flip: the texture is ETC1 (UnsignedByteNorm), not a standard pixel type"},
        {[](CORBTexture t) { return !Resize(t, 70000, 70000, 1, eResizeLinear); }, kSize,
         "Resize: the result (70000x70000x1, MIP levels 1, array members 1, faces 1) would need 4 GiB"},
        {[](CORBTexture t) { return !GenerateMIPMaps(t, eResizeLinear, 0); }, kArgument, "GenerateMIPMaps: 0 levels"},
        {[](CORBTexture t) { return !GenerateNormalMap(t, 0.0f, "xyz"); }, kArgument, "GenerateNormalMap: scale is 0"},
        {[](CORBTexture t) { return GetPSNRValue(t, t, 0, 0, 2).overall == -1.0f; }, kArgument,
         "GetPSNRValue: face 2 is out of range (the textures have 1 and 1)"},
        {[](CORBTexture t) { return !ColourDiff(t, CORBTexture(), 1.0f).getDataPtr(); }, kArgument,
         "ColourDiff: the second texture is empty"},
    };
    for (const auto& c : cases)
        EXPECT_TRUE(c.fails(One<Byte>({})) && ORBTGetLastErrorKind() == c.kind &&
                    std::string(ORBTGetLastError()).rfind(c.reason, 0) == 0)
            << c.reason << " / " << ORBTGetLastError();
}
