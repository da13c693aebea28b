#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTPixelByteTables.h"

using namespace orbtexture;

// The tables must give exactly what the encoders give pixel by pixel, for
// every pair they accept.
TEST(PixelByteTables, AgreeWithTheEncodersWhereverTheyBuild)
{
    const PixelType sources[] = {
        PixelType(ORBStandard8PixelType), PixelType('b', 'g', 'r', 'a', 8, 8, 8, 8), PixelType('l', 0, 0, 0, 8, 0, 0, 0),
        PixelType('l', 'a', 0, 0, 8, 8, 0, 0), PixelType('a', 0, 0, 0, 8, 0, 0, 0), PixelType('r', 'g', 0, 0, 8, 8, 0, 0),
        PixelType('x', 'i', 0, 0, 8, 8, 0, 0)};
    const PixelType targets[] = {
        PixelType('r', 'g', 'b', 0, 5, 6, 5, 0),    PixelType('a', 'r', 'g', 'b', 1, 5, 5, 5),
        PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4),  PixelType(ORBStandard8PixelType),
        PixelType(ORBStandard16PixelType),          PixelType(ORBStandard32PixelType),
        PixelType('r', 'g', 'b', 0, 11, 11, 10, 0), PixelType('l', 0, 0, 0, 8, 0, 0, 0),
        PixelType('i', 'a', 0, 0, 8, 8, 0, 0),      PixelType('a', 0, 0, 0, 8, 0, 0, 0),
        PixelType('r', 'g', 'b', 'a', 3, 9, 12, 8), PixelType('x', 'r', 0, 0, 8, 8, 0, 0)};
    const EORBTVariableType types[] = {eVarUnsignedByteNorm, eVarSignedByteNorm, eVarUnsignedShortNorm,
                                       eVarSignedShortNorm,  eVarSignedFloat,    eVarUnsignedFloat,
                                       eVarUnsignedIntegerNorm};
    const EORBTColourSpace spaces[2] = {eColourSpaceLinear, eColourSpaceSRGB};

    std::mt19937 random(7);
    unsigned built = 0, refused = 0;
    for (const PixelType& source : sources)
        for (EORBTVariableType sourceType : {eVarUnsignedByteNorm, eVarSignedByteNorm})
            for (const PixelType& target : targets)
                for (EORBTVariableType targetType : types)
                    for (EORBTColourSpace from : spaces)
                        for (EORBTColourSpace to : spaces)
                        {
                            CPixelEncoder in(source, sourceType), out(target, targetType);
                            CPixelByteTables tables;
                            if (!tables.Build(source, sourceType, in, out, to, from, 4096))
                            {
                                ++refused;
                                continue;
                            }
                            ++built;
                            const unsigned sourceBytes = in.GetColourDataSize(), targetBytes = out.GetColourDataSize();
                            std::vector<uint8_t> pixels(64 * sourceBytes);
                            for (uint8_t& byte : pixels)
                                byte = uint8_t(random());
                            std::vector<uint8_t> fast(64 * targetBytes);
                            tables.Convert(pixels.data(), fast.data(), 64);
                            for (unsigned i = 0; i < 64; ++i)
                            {
                                in.OverwriteColourData(&pixels[i * sourceBytes]);
                                out.EncodeFrom(in);
                                out.ConvertToColourSpace(to, from);
                                ASSERT_EQ(std::memcmp(out.GetColourData(), &fast[i * targetBytes], targetBytes), 0)
                                    << std::hex << source.PixelTypeID << " " << target.PixelTypeID << std::dec << " "
                                    << sourceType << " " << targetType << " " << from << to << " pixel " << i;
                            }
                        }
    EXPECT_GT(built, 400u);
    EXPECT_GT(refused, 50u);
}

// Sources of one or two bytes a pixel go through one table indexed by the
// whole pixel; every source value must convert as the encoders convert it.
TEST(PixelByteTables, PixelTableAgreesWithTheEncodersForEverySourceValue)
{
    struct Layout
    {
        PixelType type;
        EORBTVariableType channelType;
    };
    const Layout sources[] = {
        {PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm},
        {PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4), eVarUnsignedByteNorm},
        {PixelType('r', 'g', 'b', 'a', 5, 5, 5, 1), eVarUnsignedByteNorm},
        {PixelType('l', 0, 0, 0, 16, 0, 0, 0), eVarUnsignedShortNorm},
        {PixelType('r', 0, 0, 0, 16, 0, 0, 0), eVarSignedShortNorm},
        {PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarSignedByteNorm},
        {PixelType('r', 0, 0, 0, 16, 0, 0, 0), eVarSignedFloat},
        {PixelType('r', 'g', 0, 0, 8, 8, 0, 0), eVarUnsignedByteNorm},
        {PixelType('r', 'g', 'b', 0, 3, 3, 2, 0), eVarUnsignedByteNorm}};
    // Each source goes to rgba8 and to one of the others: one to sixteen
    // bytes, a luminance that mixes channels, a packed float.
    const Layout rgba8 = {PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm};
    const Layout others[] = {{PixelType('b', 'g', 'r', 0, 5, 6, 5, 0), eVarUnsignedByteNorm},
                              {PixelType('l', 0, 0, 0, 8, 0, 0, 0), eVarUnsignedByteNorm},
                              {PixelType('r', 'g', 'b', 0, 11, 11, 10, 0), eVarUnsignedFloat},
                              {PixelType(ORBStandard16PixelType), eVarSignedFloat},
                              {PixelType(ORBStandard32PixelType), eVarSignedFloat}};
    const EORBTColourSpace spaces[3][2] = {{eColourSpaceLinear, eColourSpaceLinear},
                                           {eColourSpaceLinear, eColourSpaceSRGB},
                                           {eColourSpaceSRGB, eColourSpaceLinear}};

    unsigned pair = 0;
    for (const Layout& source : sources)
        for (const Layout& target : {rgba8, others[pair / 2 % 5]})
        {
            const EORBTColourSpace from = spaces[pair % 3][0], to = spaces[pair % 3][1];
            ++pair;
            CPixelEncoder in(source.type, source.channelType), out(target.type, target.channelType);
            const unsigned sourceBytes = in.GetColourDataSize(), targetBytes = out.GetColourDataSize();
            const uint32_t values = 1u << (8 * sourceBytes);
            CPixelByteTables tables;
            ASSERT_TRUE(tables.Build(source.type, source.channelType, in, out, to, from, values))
                << std::hex << source.type.PixelTypeID << " " << target.type.PixelTypeID;

            std::vector<uint8_t> pixels(values * sourceBytes), fast(values * targetBytes);
            for (uint32_t value = 0; value < values; ++value)
                for (unsigned b = 0; b < sourceBytes; ++b)
                    pixels[value * sourceBytes + b] = uint8_t(value >> (8 * b));
            tables.Convert(pixels.data(), fast.data(), values);
            for (uint32_t value = 0; value < values; ++value)
            {
                in.OverwriteColourData(&pixels[value * sourceBytes]);
                out.EncodeFrom(in);
                out.ConvertToColourSpace(to, from);
                ASSERT_EQ(std::memcmp(out.GetColourData(), &fast[value * targetBytes], targetBytes), 0)
                    << std::hex << source.type.PixelTypeID << " " << source.channelType << " to "
                    << target.type.PixelTypeID << " " << target.channelType << " " << from << to << " value "
                    << value;
            }
        }
}

TEST(PixelByteTables, RefuseMixedChannelsAndWideSources)
{
    CPixelByteTables tables;
    CPixelEncoder rgba8(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm);
    // Luminance and intensity mix three channels.
    CPixelEncoder l8(PixelType('l', 0, 0, 0, 8, 0, 0, 0), eVarUnsignedByteNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, l8, eColourSpaceLinear,
                              eColourSpaceLinear, 1u << 24));
    CPixelEncoder rgb565(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm);
    EXPECT_TRUE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, rgb565,
                             eColourSpaceLinear, eColourSpaceLinear, 4096));
    // Sources wider than a byte a channel and than two a pixel, and invalid encoders.
    CPixelEncoder rgba16(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, rgba16, rgb565,
                              eColourSpaceLinear, eColourSpaceLinear, 1u << 24));
    CPixelEncoder gap(PixelType('r', 0, 'b', 0, 8, 0, 8, 0), eVarUnsignedByteNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, gap, eColourSpaceLinear,
                              eColourSpaceLinear, 1u << 24));
    EXPECT_FALSE(tables.Build(PixelType('r', 0, 'b', 0, 8, 0, 8, 0), eVarUnsignedByteNorm, gap, rgba8,
                              eColourSpaceLinear, eColourSpaceLinear, 1u << 24));
}

// A pixel table costs a conversion per entry, so it needs as many pixels as
// entries; its target must fit the encoder's 16 bytes.
TEST(PixelByteTables, PixelTableNeedsAPixelPerEntry)
{
    CPixelByteTables tables;
    const PixelType rgb565('r', 'g', 'b', 0, 5, 6, 5, 0), rgb332('r', 'g', 'b', 0, 3, 3, 2, 0);
    CPixelEncoder source16(rgb565, eVarUnsignedByteNorm), source8(rgb332, eVarUnsignedByteNorm);
    CPixelEncoder rgba8(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm);
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, source16, rgba8, eColourSpaceLinear, eColourSpaceLinear,
                              65535));
    EXPECT_TRUE(tables.Build(rgb565, eVarUnsignedByteNorm, source16, rgba8, eColourSpaceLinear, eColourSpaceLinear,
                             65536));
    EXPECT_FALSE(tables.Build(rgb332, eVarUnsignedByteNorm, source8, rgba8, eColourSpaceLinear, eColourSpaceLinear,
                              255));
    EXPECT_TRUE(tables.Build(rgb332, eVarUnsignedByteNorm, source8, rgba8, eColourSpaceLinear, eColourSpaceLinear,
                             256));

    // 160 bits is a valid layout, but more than a pixel of the encoder holds.
    CPixelEncoder wide(eVarSignedFloat, 32, 32, 32, 64, eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha);
    ASSERT_EQ(wide.GetError(), 0u);
    EXPECT_FALSE(tables.Build(rgb565, eVarUnsignedByteNorm, source16, wide, eColourSpaceLinear, eColourSpaceLinear,
                              1u << 24));
}
