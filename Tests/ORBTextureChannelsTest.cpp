#include <array>
#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

// A width x 2 texture of the standard type for T, every pixel 'fill'.
template <typename T>
CORBTexture Make(Pixel<T> fill, uint32_t width = 2, uint32_t mips = 1, uint32_t members = 1, uint32_t faces = 1)
{
    const uint64_t formats[] = {ORBStandard8PixelType, ORBStandard16PixelType, 0, ORBStandard32PixelType};
    const EORBTVariableType type = std::is_same_v<T, float> ? eVarSignedFloat
                                   : sizeof(T) == 1         ? eVarUnsignedByteNorm
                                   : sizeof(T) == 2         ? eVarUnsignedShortNorm
                                                            : eVarUnsignedIntegerNorm;
    CORBTexture texture(CORBTextureHeader(formats[sizeof(T) - 1], 2, width, 1, mips, members, faces,
                                          eColourSpaceLinear, type));
    for (size_t i = 0; i < texture.getDataSize() / sizeof(Pixel<T>); ++i)
        reinterpret_cast<Pixel<T>*>(texture.getDataPtr())[i] = fill;
    return texture;
}

template <typename T>
Pixel<T>* At(const CORBTexture& texture, uint32_t mip = 0, uint32_t member = 0, uint32_t face = 0)
{
    return reinterpret_cast<Pixel<T>*>(texture.getDataPtr(mip, member, face));
}

template <typename T>
void ExpectPixel(const Pixel<T>* p, T r, T g, T b, T a)
{
    EXPECT_EQ((std::array<T, 4>{p->red, p->green, p->blue, p->alpha}), (std::array<T, 4>{r, g, b, a}));
}

// Channel 'from' of a one-pixel texture of type S, copied into red of type D.
template <typename S, typename D>
D CopyOne(Pixel<S> source, EChannelName from = eChannelRed)
{
    CORBTexture src = Make<S>(source, 1), dst = Make<D>({0, 0, 0, 0}, 1);
    EChannelName to = eChannelRed;
    EXPECT_TRUE(CopyChannels(dst, src, 1, &to, &from));
    return At<D>(dst)->red;
}

} // namespace

TEST(ChannelOps, SetChannelsKeepsLowBitsAndLaterEntriesWin)
{
    CORBTexture bytes = Make<unsigned char>({1, 2, 3, 4});
    EChannelName channels[] = {eChannelLuminance, eChannelGreen, eChannelUnspecified, eChannelNone, EChannelName(9)};
    unsigned values[] = {0x1FF, 0x1234, 7, 99, 99};
    EXPECT_TRUE(SetChannels(bytes, 5, channels, values));
    for (int i = 0; i < 4; ++i)
        ExpectPixel<unsigned char>(At<unsigned char>(bytes) + i, 255, 0x34, 255, 7);

    EChannelName redAlpha[] = {eChannelRed, eChannelAlpha};
    unsigned wide[] = {0x12345, 0xFFFFFFFFu};
    CORBTexture shorts = Make<unsigned short>({1, 2, 3, 4}), floats = Make<float>({1, 2, 3, 4});
    EXPECT_TRUE(SetChannels(shorts, 2, redAlpha, wide));
    EXPECT_TRUE(SetChannels(floats, 2, redAlpha, wide));
    ExpectPixel<unsigned short>(At<unsigned short>(shorts), 0x2345, 2, 3, 0xFFFF);
    ExpectPixel<float>(At<float>(floats), 74565.0f, 2, 3, 4294967296.0f);

    // Float values are truncated, not scaled; outside an integer range they saturate.
    float reals[] = {0.999f, 200.7f, 300.0f, -5.0f};
    EChannelName rgba[] = {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha};
    CORBTexture ints = Make<unsigned int>({9, 9, 9, 9});
    EXPECT_TRUE(SetChannelsFloat(bytes, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(ints, 4, rgba, reals));
    EXPECT_TRUE(SetChannelsFloat(floats, 4, rgba, reals));
    ExpectPixel<unsigned char>(At<unsigned char>(bytes), 0, 200, 255, 0);
    ExpectPixel<unsigned int>(At<unsigned int>(ints), 0, 200, 300, 0);
    ExpectPixel<float>(At<float>(floats), 0.999f, 200.7f, 300.0f, -5.0f);
}

TEST(ChannelOps, EverySurfaceIsVisited)
{
    // 8x2 with three levels, two members and two faces.
    CORBTexture texture = Make<unsigned short>({1, 2, 3, 4}, 8, 3, 2, 2);
    const CORBTexture source = Make<unsigned short>({0, 0, 0, 300}, 8, 3, 2, 2);
    EChannelName red = eChannelRed, alpha = eChannelAlpha;
    unsigned value = 500;
    ASSERT_TRUE(SetChannels(texture, 1, &red, &value));
    ASSERT_TRUE(CopyChannels(texture, source, 1, &alpha, &alpha));
    ASSERT_TRUE(PreMultiplyAlpha(texture));
    // Alpha 300 of 65535 takes 500 to 2 and green and blue to 0.
    for (size_t i = 0; i < texture.getDataSize() / sizeof(Pixel<unsigned short>); ++i)
        ExpectPixel<unsigned short>(At<unsigned short>(texture) + i, 2, 0, 0, 300);
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
    CORBTexture standard = Make<unsigned char>({1, 1, 1, 1});
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
    CORBTexture dst = Make<unsigned char>({1, 1, 1, 1}, 4, 2, 2, 2);
    const Pixel<unsigned char> nine = {9, 9, 9, 9};
    for (const CORBTexture& src : {Make(nine, 4, 1, 2, 2), Make(nine, 4, 2, 1, 2), Make(nine, 4, 2, 2, 1),
                                   Make(nine, 2, 2, 2, 2)})
        EXPECT_FALSE(CopyChannels(dst, src, 1, &red, &red));
    EXPECT_EQ(At<unsigned char>(dst)->red, 1);
    EXPECT_TRUE(CopyChannels(dst, Make<float>({1, 1, 1, 1}, 4, 2, 2, 2), 1, &red, &red));
}

TEST(ChannelOps, CopyChannelsReadsBeforeWriting)
{
    CORBTexture texture = Make<unsigned char>({10, 20, 30, 40});
    EChannelName to[] = {eChannelRed, eChannelBlue, eChannelGreen, eChannelLuminance};
    EChannelName from[] = {eChannelBlue, eChannelRed, eChannelNone, eChannelNone};
    ASSERT_TRUE(CopyChannels(texture, texture, 4, to, from)); // sources naming no channel write nothing
    ExpectPixel<unsigned char>(At<unsigned char>(texture), 30, 20, 10, 40);
    // Same-type copies are exact even where float would round.
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0x12345679u, 0, 0, 0}, eChannelRed)), 0x12345679u);
    EXPECT_EQ((CopyOne<unsigned int, unsigned int>({0, 0, 0, 0xFFFFFFFFu}, eChannelUnspecified)), 0xFFFFFFFFu);
}

TEST(ChannelOps, CopyChannelsScalesAndWeighs)
{
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({3, 3, 3, 0}, eChannelIntensity)), 3); // 9 x 0.33333334 > 3
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({100, 0, 0, 0}, eChannelLuminance)), 21);
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({0, 100, 0, 0}, eChannelLuminance)), 71);
    EXPECT_EQ((CopyOne<unsigned char, unsigned char>({0, 0, 100, 0}, eChannelLuminance)), 7);
    EXPECT_NEAR((CopyOne<unsigned char, float>({51, 102, 153, 0}, eChannelIntensity)), 0.4f, 1e-6f);

    EXPECT_EQ((CopyOne<unsigned char, unsigned short>({255, 0, 0, 0})), 65535);
    EXPECT_EQ((CopyOne<unsigned char, unsigned int>({1, 0, 0, 0})), 16843010u);
    EXPECT_NEAR((CopyOne<unsigned char, float>({255, 0, 0, 0})), 1.0f, 1e-6f);
    EXPECT_EQ((CopyOne<unsigned short, unsigned char>({65535, 0, 0, 0})), 255);
    EXPECT_EQ((CopyOne<unsigned int, unsigned char>({0x80000000u, 0, 0, 0})), 127);
    EXPECT_EQ((CopyOne<unsigned int, unsigned short>({0x40000000u, 0, 0, 0})), 16383);
    EXPECT_EQ((CopyOne<float, unsigned char>({1.0f, 0, 0, 0})), 255);
    EXPECT_EQ((CopyOne<float, unsigned int>({0.25f, 0, 0, 0})), 0x40000000u);
    // Past the destination's range results saturate: both products round to 2^32.
    EXPECT_EQ((CopyOne<unsigned char, unsigned int>({255, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, unsigned int>({1.0f, 0, 0, 0})), 0xFFFFFFFFu);
    EXPECT_EQ((CopyOne<float, unsigned char>({-0.5f, 0, 0, 0})), 0);
}

TEST(ChannelOps, PreMultiplyAlphaKeepsTheLowByteForEveryType)
{
    CORBTexture bytes = Make<unsigned char>({200, 100, 50, 128});
    CORBTexture shorts = Make<unsigned short>({1000, 300, 65535, 32768});
    CORBTexture ints = Make<unsigned int>({300, 100000, 0x80000000u, 0x80000000u});
    CORBTexture floats = Make<float>({0.8f, 200.0f, 70000.0f, 1.0f});
    for (CORBTexture* texture : {&bytes, &shorts, &ints, &floats})
    {
        EXPECT_TRUE(PreMultiplyAlpha(*texture));
        EXPECT_TRUE(texture->isPreMultiplied());
    }
    ExpectPixel<unsigned char>(At<unsigned char>(bytes), 100, 50, 25, 128);
    ExpectPixel<unsigned short>(At<unsigned short>(shorts), 244, 150, 0, 32768); // 500 mod 256; 32768 has low byte 0
    ExpectPixel<unsigned int>(At<unsigned int>(ints), 150, 0x50, 0, 0x80000000u); // 50000 = 0xC350; 2^30 overflows
    ExpectPixel<float>(At<float>(floats), 0.0f, 200.0f, 0.0f, 1.0f);

    const CORBTexture before(bytes);
    EXPECT_FALSE(PreMultiplyAlpha(bytes));
    EXPECT_EQ(std::memcmp(bytes.getDataPtr(), before.getDataPtr(), bytes.getDataSize()), 0);
}
