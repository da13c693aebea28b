#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTPixelByteTables.h"

using namespace orbtexture;

namespace
{

// A layout from up to four channel letters ('-' for none) and widths.
PixelType P(const char* l, uint8_t a, uint8_t b = 0, uint8_t c = 0, uint8_t d = 0)
{
    uint8_t n[4] = {};
    for (size_t i = 0; i < 4 && l[i]; ++i)
        n[i] = uint8_t(l[i] == '-' ? 0 : l[i]);
    return PixelType(n[0], n[1], n[2], n[3], a, b, c, d);
}

// Converts 'count' source pixels through the tables and through the encoders, and compares.
void ExpectSameAsEncoders(const CPixelByteTables& tables, CPixelEncoder& in, CPixelEncoder& out,
                          const std::vector<uint8_t>& pixels, uint32_t count, EORBTColourSpace from,
                          EORBTColourSpace to)
{
    const unsigned sourceBytes = in.GetColourDataSize(), targetBytes = out.GetColourDataSize();
    std::vector<uint8_t> fast(count * targetBytes);
    tables.Convert(pixels.data(), fast.data(), count);
    for (uint32_t i = 0; i < count; ++i)
    {
        in.OverwriteColourData(&pixels[i * sourceBytes]);
        out.EncodeFrom(in);
        out.ConvertToColourSpace(to, from);
        ASSERT_EQ(std::memcmp(out.GetColourData(), &fast[i * targetBytes], targetBytes), 0) << "pixel " << i;
    }
}

} // namespace

// The tables must give exactly what the encoders give pixel by pixel, for
// every pair they accept.
TEST(PixelByteTables, AgreeWithTheEncodersWhereverTheyBuild)
{
    const PixelType sources[] = {PixelType(ORBStandard8PixelType), P("bgra", 8, 8, 8, 8), P("l", 8), P("la", 8, 8),
                                 P("a", 8), P("rg", 8, 8), P("xi", 8, 8)};
    const PixelType targets[] = {P("rgb", 5, 6, 5),   P("argb", 1, 5, 5, 5),   P("rgba", 4, 4, 4, 4),
                                 P("rgba", 8, 8, 8, 8), P("rgba", 16, 16, 16, 16), P("rgba", 32, 32, 32, 32),
                                 P("rgb", 11, 11, 10), P("l", 8),                P("ia", 8, 8),
                                 P("a", 8),            P("rgba", 3, 9, 12, 8),   P("xr", 8, 8)};
    const EORBTVariableType types[] = {eVarUnsignedByteNorm, eVarSignedByteNorm, eVarUnsignedShortNorm,
                                       eVarSignedShortNorm,  eVarSignedFloat,    eVarUnsignedFloat,
                                       eVarUnsignedIntegerNorm};
    std::mt19937 random(7);
    unsigned built = 0, refused = 0;
    for (const PixelType& source : sources)
        for (EORBTVariableType sourceType : {eVarUnsignedByteNorm, eVarSignedByteNorm})
            for (const PixelType& target : targets)
                for (EORBTVariableType targetType : types)
                    for (int spaces = 0; spaces < 4; ++spaces)
                    {
                        const EORBTColourSpace from = EORBTColourSpace(spaces & 1), to = EORBTColourSpace(spaces >> 1);
                        CPixelEncoder in(source, sourceType), out(target, targetType);
                        CPixelByteTables tables;
                        if (!tables.Build(source, sourceType, in, out, to, from, 4096))
                        {
                            ++refused;
                            continue;
                        }
                        ++built;
                        std::vector<uint8_t> pixels(64 * in.GetColourDataSize());
                        for (uint8_t& byte : pixels)
                            byte = uint8_t(random());
                        SCOPED_TRACE(::testing::Message() << std::hex << source.PixelTypeID << " " << target.PixelTypeID
                                                          << std::dec << " " << sourceType << " " << targetType << " "
                                                          << from << to);
                        ExpectSameAsEncoders(tables, in, out, pixels, 64, from, to);
                    }
    EXPECT_GT(built, 400u);
    EXPECT_GT(refused, 50u);
}

// Sources of one or two bytes a pixel go through one table indexed by the
// whole pixel; every source value must convert as the encoders convert it.
TEST(PixelByteTables, PixelTableAgreesWithTheEncodersForEverySourceValue)
{
    const std::pair<PixelType, EORBTVariableType> sources[] = {
        {P("rgb", 5, 6, 5), eVarUnsignedByteNorm}, {P("rgba", 4, 4, 4, 4), eVarUnsignedByteNorm},
        {P("rgba", 5, 5, 5, 1), eVarUnsignedByteNorm}, {P("l", 16), eVarUnsignedShortNorm},
        {P("r", 16), eVarSignedShortNorm}, {P("rgb", 5, 6, 5), eVarSignedByteNorm}, {P("r", 16), eVarSignedFloat},
        {P("rg", 8, 8), eVarUnsignedByteNorm}, {P("rgb", 3, 3, 2), eVarUnsignedByteNorm}};
    // Each source goes to rgba8 and to one of the others: one to sixteen
    // bytes, a luminance that mixes channels, a packed float.
    const std::pair<PixelType, EORBTVariableType> rgba8 = {PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm};
    const std::pair<PixelType, EORBTVariableType> others[] = {
        {P("bgr", 5, 6, 5), eVarUnsignedByteNorm}, {P("l", 8), eVarUnsignedByteNorm},
        {P("rgb", 11, 11, 10), eVarUnsignedFloat}, {PixelType(ORBStandard16PixelType), eVarSignedFloat},
        {PixelType(ORBStandard32PixelType), eVarSignedFloat}};
    unsigned pair = 0;
    for (const auto& source : sources)
        for (const auto& target : {rgba8, others[pair / 2 % 5]})
        {
            // Linear to linear, linear to sRGB, sRGB to linear in turn.
            const EORBTColourSpace from = EORBTColourSpace(pair % 3 == 2), to = EORBTColourSpace(pair % 3 == 1);
            ++pair;
            CPixelEncoder in(source.first, source.second), out(target.first, target.second);
            const uint32_t values = 1u << (8 * in.GetColourDataSize());
            CPixelByteTables tables;
            ASSERT_TRUE(tables.Build(source.first, source.second, in, out, to, from, values));
            std::vector<uint8_t> pixels;
            for (uint32_t value = 0; value < values; ++value)
                for (unsigned b = 0; b < in.GetColourDataSize(); ++b)
                    pixels.push_back(uint8_t(value >> (8 * b)));
            SCOPED_TRACE(::testing::Message() << std::hex << source.first.PixelTypeID << " " << source.second << " to "
                                              << target.first.PixelTypeID << " " << target.second << " " << from << to);
            ExpectSameAsEncoders(tables, in, out, pixels, values, from, to);
        }
}

TEST(PixelByteTables, Refusals)
{
    const EORBTColourSpace lin = eColourSpaceLinear;
    const PixelType rgba8(ORBStandard8PixelType), rgb565 = P("rgb", 5, 6, 5), rgb332 = P("rgb", 3, 3, 2);
    CPixelByteTables tables;
    CPixelEncoder in8(rgba8, eVarUnsignedByteNorm), l8(P("l", 8), eVarUnsignedByteNorm),
        to565(rgb565, eVarUnsignedByteNorm), in16(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm),
        gap(P("r-b", 8, 0, 8), eVarUnsignedByteNorm), from565(rgb565, eVarUnsignedByteNorm),
        from332(rgb332, eVarUnsignedByteNorm);
    // Luminance and intensity mix three channels; sources wider than a byte a
    // channel and than two a pixel; invalid encoders.
    EXPECT_FALSE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, l8, lin, lin, 1u << 24));
    EXPECT_TRUE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, to565, lin, lin, 4096));
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, in16, to565, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(rgba8, eVarUnsignedByteNorm, in8, gap, lin, lin, 1u << 24));
    EXPECT_FALSE(tables.Build(P("r-b", 8, 0, 8), eVarUnsignedByteNorm, gap, in8, lin, lin, 1u << 24));
    // A pixel table costs a conversion per entry, so it needs as many pixels as entries.
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, in8, lin, lin, 65535));
    EXPECT_TRUE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, in8, lin, lin, 65536));
    EXPECT_FALSE(tables.Build(rgb332, eVarUnsignedByteNorm, from332, in8, lin, lin, 255));
    EXPECT_TRUE(tables.Build(rgb332, eVarUnsignedByteNorm, from332, in8, lin, lin, 256));
    // 160 bits is a valid layout, but more than a pixel of the encoder holds.
    CPixelEncoder wide(eVarSignedFloat, 32, 32, 32, 64, eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha);
    ASSERT_EQ(wide.GetError(), 0u);
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, from565, wide, lin, lin, 1u << 24));
}
