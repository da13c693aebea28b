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
                            if (!tables.Build(source, sourceType, in, out, to, from))
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

TEST(PixelByteTables, RefuseMixedChannelsAndWideSources)
{
    CPixelByteTables tables;
    CPixelEncoder rgba8(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm);
    // Luminance and intensity mix three channels.
    CPixelEncoder l8(PixelType('l', 0, 0, 0, 8, 0, 0, 0), eVarUnsignedByteNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, l8, eColourSpaceLinear,
                              eColourSpaceLinear));
    CPixelEncoder rgb565(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), eVarUnsignedByteNorm);
    EXPECT_TRUE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, rgb565,
                             eColourSpaceLinear, eColourSpaceLinear));
    // Sources wider than a byte a channel, and invalid encoders.
    CPixelEncoder rgba16(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, rgba16, rgb565,
                              eColourSpaceLinear, eColourSpaceLinear));
    CPixelEncoder gap(PixelType('r', 0, 'b', 0, 8, 0, 8, 0), eVarUnsignedByteNorm);
    EXPECT_FALSE(tables.Build(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, rgba8, gap, eColourSpaceLinear,
                              eColourSpaceLinear));
}
