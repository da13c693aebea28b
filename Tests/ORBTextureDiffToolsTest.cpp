// Texture comparison: the measures and the difference pictures.

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "ORBTextureDiffTools.h"
#include "Support/StandardTextures.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

using Byte = unsigned char;
using Result = std::array<float, 5>;

Result Fields(const ChannelDiffResult& r) { return {r.channels[0], r.channels[1], r.channels[2], r.channels[3], r.overall}; }

template <typename T>
CORBTexture One(Pixel<T> p, uint32_t mips = 1)
{
    return StandardTexture<T>(1, 1, 1, {p}, mips);
}

} // namespace

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
