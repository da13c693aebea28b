// The pixel kernels against the pixel loop (TranscodeTrivial on surfaces too
// small for its tables): every pixel value of small sources, every value of
// each channel and random pixels of the others; every SIMD path; any thread
// count.

#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTextureUtilities.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;
using Bytes = std::vector<uint8_t>;

namespace
{

struct Layout
{
    PixelType type;
    EORBTVariableType channels;
};

const Layout kRGBA8 = {PixelType('r', 'g', 'b', 'a', 8, 8, 8, 8), eVarUnsignedByteNorm};

Layout RGB32F()
{
    PixelType type;
    EORBTVariableType channels;
    IntermediateTranscodeFormat(PixelType(ePF_RGB9E5), eVarUnsignedFloat, type, channels);
    return {type, channels};
}

// The pixel loop's bytes for 'in', in surfaces below its table threshold.
Bytes LoopBytes(const Layout& from, EORBTColourSpace fromSpace, const Layout& to, EORBTColourSpace toSpace,
                const Bytes& in)
{
    CPixelEncoder source(from.type, from.channels), target(to.type, to.channels);
    const size_t step = source.GetColourDataSize(), chunk = 1024;
    Bytes out;
    for (size_t first = 0; first < in.size(); first += chunk * step)
    {
        const uint32_t count = uint32_t(std::min(chunk, (in.size() - first) / step));
        CORBTextureHeader header(from.type.PixelTypeID, count, 1, 1, 1, 1, 1, fromSpace, from.channels);
        CORBTexture a(header, in.data() + first);
        header.setPixelFormat(to.type);
        header.setChannelType(to.channels);
        CORBTexture b(header);
        TranscodeTrivial(a, b, source, target, toSpace, fromSpace);
        out.insert(out.end(), b.getDataPtr(), b.getDataPtr() + b.getDataSize());
    }
    return out;
}

// Source pixels: all of them up to 16 bits; else each byte value in each
// byte position over random pixels, random pixels, and for floats values in
// and around [0, 1] with specials.
Bytes Inputs(const Layout& from)
{
    const unsigned bytes = CPixelEncoder(from.type, from.channels).GetColourDataSize();
    Bytes in;
    if (bytes <= 2)
    {
        for (uint32_t v = 0; v < (1u << (8 * bytes)); ++v)
            for (unsigned b = 0; b < bytes; ++b)
                in.push_back(uint8_t(v >> (8 * b)));
        return in;
    }
    std::mt19937 random(bytes);
    for (unsigned position = 0; position < bytes; ++position)
        for (unsigned v = 0; v < 256; ++v)
            for (unsigned b = 0; b < bytes; ++b)
                in.push_back(b == position ? uint8_t(v) : uint8_t(random()));
    if (from.channels == eVarSignedFloat)
    {
        std::uniform_real_distribution<float> near(-0.25f, 1.25f);
        const float specials[] = {0.f, -0.f, 1.f, 65536.f, 65537.5f, 3e9f, -2.f, INFINITY, NAN, 0.5f / 255};
        for (unsigned i = 0; i < 40000; ++i)
        {
            const float value = i % 8 == 0 ? specials[i / 8 % 10] : near(random);
            in.insert(in.end(), reinterpret_cast<const uint8_t*>(&value), reinterpret_cast<const uint8_t*>(&value) + 4);
        }
    }
    for (unsigned i = 0; i < 40000 * bytes; ++i)
        in.push_back(uint8_t(random()));
    in.resize(in.size() / bytes * bytes);
    return in;
}

void ExpectKernelMatchesLoop(const Layout& from, EORBTColourSpace fromSpace, const Layout& to,
                             EORBTColourSpace toSpace, const char* kind)
{
    const auto kernel = FindPixelKernel(from.type, from.channels, fromSpace, to.type, to.channels, toSpace);
    ASSERT_TRUE(kernel);
    EXPECT_STREQ(kernel->Kind(), kind);
    const Bytes in = Inputs(from), expected = LoopBytes(from, fromSpace, to, toSpace, in);
    const size_t pixels = in.size() / CPixelEncoder(from.type, from.channels).GetColourDataSize();
    for (int path = eSimdPortable; path <= eSimdAVX2; ++path)
    {
        if (!SimdPathAvailable(ESimdPath(path)))
            continue;
        SetSimdPath(ESimdPath(path));
        Bytes out(expected.size());
        kernel->Convert(in.data(), out.data(), pixels);
        EXPECT_TRUE(out == expected) << kind << " on " << SimdPathName(ESimdPath(path));
    }
    SetSimdPath(eSimdAVX2);
}

TEST(PixelKernels, TheCommonPairsGiveThePixelLoopsBytesBothWays)
{
    const EORBTVariableType u8 = eVarUnsignedByteNorm;
    const struct
    {
        Layout other;
        const char* toOther;
        const char* fromOther;
    } pairs[] = {
        {{PixelType('b', 'g', 'r', 'a', 8, 8, 8, 8), u8}, "bytes", "bytes"},
        {{PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), u8}, "bytes", "bytes"},
        {{PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), u8}, "lanes", "lanes"},
        {{PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedShortNorm}, "lanes", "lanes"},
        {{PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4), u8}, "lanes", "lanes"},
        {{PixelType('r', 'g', 'b', 'a', 5, 5, 5, 1), u8}, "lanes", "lanes"},
        {{PixelType('l', 0, 0, 0, 8, 0, 0, 0), u8}, "luminance", "bytes"},
        {{PixelType('l', 'a', 0, 0, 8, 8, 0, 0), u8}, "luminance", "bytes"},
        {{PixelType('a', 0, 0, 0, 8, 0, 0, 0), u8}, "bytes", "bytes"},
        {{PixelType('r', 'g', 'b', 'a', 16, 16, 16, 16), eVarUnsignedShortNorm}, "elements", "elements"},
        {{PixelType('r', 'g', 'b', 'a', 32, 32, 32, 32), eVarSignedFloat}, "elements", "elements"},
        {{PixelType('r', 'g', 'b', 0, 11, 11, 10, 0), eVarUnsignedFloat}, "floats", "floats"},
        {RGB32F(), "tables", "wide"},
    };
    for (const auto& pair : pairs)
    {
        SCOPED_TRACE(pair.other.type.PixelTypeID);
        ExpectKernelMatchesLoop(kRGBA8, eColourSpaceLinear, pair.other, eColourSpaceLinear, pair.toOther);
        ExpectKernelMatchesLoop(pair.other, eColourSpaceLinear, kRGBA8, eColourSpaceLinear, pair.fromOther);
    }
    // The colour curves: per channel in tables, after the 8-bit rounding from wide channels.
    const Layout floats = pairs[10].other;
    ExpectKernelMatchesLoop(kRGBA8, eColourSpaceSRGB, floats, eColourSpaceLinear, "tables");
    ExpectKernelMatchesLoop(floats, eColourSpaceLinear, kRGBA8, eColourSpaceSRGB, "wide");
    ExpectKernelMatchesLoop(kRGBA8, eColourSpaceLinear, kRGBA8, eColourSpaceSRGB, "tables");
    ExpectKernelMatchesLoop(kRGBA8, eColourSpaceLinear, pairs[6].other, eColourSpaceSRGB, "luminance");
    // Alpha first.
    ExpectKernelMatchesLoop({PixelType('a', 'b', 'g', 'r', 8, 8, 8, 8), u8}, eColourSpaceLinear, pairs[7].other,
                            eColourSpaceLinear, "luminance");
}

// The fixed-point luminance leaves the rounding edges to the long double sum;
// every colour proves the guard wide enough.
TEST(PixelKernels, LuminanceOfEveryColourIsTheLoops)
{
    const Layout l8 = {PixelType('l', 0, 0, 0, 8, 0, 0, 0), eVarUnsignedByteNorm};
    Bytes in(size_t(4) << 24);
    for (uint32_t v = 0; v < (1u << 24); ++v)
        std::memcpy(&in[size_t(v) * 4], &v, 4);
    const Bytes expected = LoopBytes(kRGBA8, eColourSpaceLinear, l8, eColourSpaceLinear, in);
    const auto kernel =
        FindPixelKernel(kRGBA8.type, kRGBA8.channels, eColourSpaceLinear, l8.type, l8.channels, eColourSpaceLinear);
    for (int path = eSimdPortable; path <= eSimdAVX2; path += SimdPathAvailable(eSimdSSE2) ? 1 : 2)
    {
        SetSimdPath(ESimdPath(path));
        Bytes out(expected.size());
        kernel->Convert(in.data(), out.data(), size_t(1) << 24);
        EXPECT_TRUE(out == expected) << SimdPathName(ESimdPath(path));
    }
    SetSimdPath(eSimdAVX2);
}

// Transcode between rgba8 and RGB9E5 in one step against the two steps
// through the float intermediate: every pair of a channel and the largest
// channel, every mantissa and exponent in each channel, random pixels.
TEST(PixelKernels, SharedExponentInOneStepIsTheTwoSteps)
{
    std::mt19937 random(9);
    Bytes pixels, words;
    for (unsigned largest = 0; largest < 256; ++largest)
        for (unsigned v = 0; v <= largest; ++v)
            pixels.insert(pixels.end(), {uint8_t(v), uint8_t(largest), uint8_t(random() % (largest + 1)), 7});
    for (uint32_t index = 0; index < 3 * 16384; ++index)
    {
        const uint32_t field = (index & 16383) % 512, exponent = (index & 16383) / 512, shift = 9 * (index / 16384);
        const uint32_t word = (random() & ~(0x1FFu << shift) & 0x07FFFFFFu) | field << shift | exponent << 27;
        words.insert(words.end(), reinterpret_cast<const uint8_t*>(&word), reinterpret_cast<const uint8_t*>(&word) + 4);
    }
    for (unsigned i = 0; i < 160000; ++i)
        pixels.push_back(uint8_t(random())), words.push_back(uint8_t(random()));
    const PixelType rgb9e5(ePF_RGB9E5);
    const auto texture = [](PixelType type, EORBTVariableType channels, const Bytes& bytes) {
        return CORBTexture(CORBTextureHeader(type.PixelTypeID, uint32_t(bytes.size() / 4), 1, 1, 1, 1, 1,
                                             eColourSpaceSRGB, channels),
                           bytes.data());
    };
    const auto bytesOf = [](const CORBTexture& t) { return Bytes(t.getDataPtr(), t.getDataPtr() + t.getDataSize()); };

    for (int path = eSimdPortable; path <= eSimdAVX2; path += SimdPathAvailable(eSimdSSE2) ? 1 : 2)
    {
        SetSimdPath(ESimdPath(path));
        CORBTexture direct = texture(kRGBA8.type, kRGBA8.channels, pixels), twoSteps = direct;
        ASSERT_TRUE(Transcode(direct, rgb9e5, eVarUnsignedFloat, eColourSpaceSRGB));
        ASSERT_TRUE(Transcode(twoSteps, RGB32F().type, RGB32F().channels, eColourSpaceSRGB));
        CompressNonTrivial(twoSteps, rgb9e5, ECompressorQuality(0));
        EXPECT_TRUE(bytesOf(direct) == bytesOf(twoSteps)) << SimdPathName(ESimdPath(path));
        EXPECT_EQ(direct.getChannelType(), twoSteps.getChannelType());

        direct = texture(rgb9e5, eVarUnsignedFloat, words), twoSteps = direct;
        ASSERT_TRUE(Transcode(direct, kRGBA8.type, kRGBA8.channels, eColourSpaceSRGB));
        DecompressNonTrivial(twoSteps);
        ASSERT_TRUE(Transcode(twoSteps, kRGBA8.type, kRGBA8.channels, eColourSpaceSRGB));
        EXPECT_TRUE(bytesOf(direct) == bytesOf(twoSteps)) << SimdPathName(ESimdPath(path));
    }
    SetSimdPath(eSimdAVX2);
}

TEST(PixelKernels, LayoutsWithoutAKernelAreLeftToThePixelLoop)
{
    // Signed sources, 32-bit integers and 24-bit packed channels.
    EXPECT_FALSE(FindPixelKernel(PixelType('r', 'g', 0, 0, 16, 16, 0, 0), eVarSignedShortNorm, eColourSpaceLinear,
                                 kRGBA8.type, kRGBA8.channels, eColourSpaceLinear));
    EXPECT_FALSE(FindPixelKernel(PixelType('r', 0, 0, 0, 32, 0, 0, 0), eVarUnsignedIntegerNorm, eColourSpaceLinear,
                                 kRGBA8.type, kRGBA8.channels, eColourSpaceLinear));
    EXPECT_FALSE(FindPixelKernel(PixelType(ePF_DXT1), eVarUnsignedByteNorm, eColourSpaceLinear, kRGBA8.type,
                                 kRGBA8.channels, eColourSpaceLinear));
}

TEST(PixelKernels, LargeSurfacesGiveTheSameBytesOnAnyNumberOfThreads)
{
    const unsigned side = 1100;
    std::mt19937 random(5);
    Bytes pixels(size_t(side) * side * 4);
    for (uint8_t& byte : pixels)
        byte = uint8_t(random());
    const CORBTexture source(CORBTextureHeader(kRGBA8.type.PixelTypeID, side, side), pixels.data());
    Bytes first;
    for (unsigned threads : {1u, 2u, 5u})
    {
        CORBTexture texture(source);
        ORBTCallContext context;
        context.threads = threads;
        ASSERT_TRUE(Transcode(texture, PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm,
                              eColourSpaceLinear, ECompressorQuality(0), false, context));
        const Bytes bytes(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
        if (first.empty())
            first = bytes;
        EXPECT_TRUE(bytes == first) << threads << " threads";
    }
}

} // namespace
