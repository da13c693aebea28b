// ORBTCII through the library's doors: every compressor's words decode close
// to the picture at whole-block and padded sizes, and Transcode goes both
// ways.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "Support/TestPictures.h"

using namespace orbtexture;
using namespace testsupport;

TEST(ORBTCIIRoundTrip, EveryQualityAndSizeDecodesClose)
{
    struct Size
    {
        unsigned width, height;
    };
    // Power-of-two grids, others, sizes the entry pads, and single words.
    const Size sizes[] = {{32, 32}, {24, 20}, {13, 7}, {8, 4}, {4, 4}};
    for (bool twoBpp : {false, true})
        for (const Size& size : sizes)
        {
            const auto pixels = Picture(size.width, size.height, false, 5);
            double previous = 0.0;
            for (unsigned quality : {0u, 1u, 2u})
            {
                SCOPED_TRACE(std::string(twoBpp ? "2bpp " : "4bpp ") + std::to_string(size.width) + "x" +
                             std::to_string(size.height) + " quality " + std::to_string(quality));
                const unsigned bytes = ORBTCCompress(pixels.data(), nullptr, size.width, size.height, false, twoBpp, 1,
                                                     quality);
                std::vector<unsigned char> words(bytes);
                ASSERT_EQ(ORBTCCompress(pixels.data(), words.data(), size.width, size.height, false, twoBpp, 1,
                                        quality),
                          bytes);
                std::vector<unsigned char> decoded(pixels.size());
                ASSERT_EQ(ORBTCDecompress(words.data(), decoded.data(), size.width, size.height, twoBpp, 1),
                          decoded.size());
                // Misplaced or misread words fall far below these floors
                // (random words decode to about 8 dB).
                const double psnr = Psnr(pixels, decoded, false);
                const bool large = size.width >= 24;
                EXPECT_GT(psnr, large ? (twoBpp ? 17.0 : 20.0) : 12.0);
                if (quality == 2)
                {
                    // The optimiser's first level, without hard modes yet,
                    // beats the block compressor on pictures of some size.
                    if (large)
                        EXPECT_GT(psnr, previous);
                    else
                        EXPECT_GT(psnr, previous - 0.5);
                }
                previous = psnr;
            }
        }
}

TEST(ORBTCIIRoundTrip, TranscodeBothWays)
{
    const auto pixels = Picture(20, 12, true, 8);
    for (uint32_t format : {uint32_t(ePF_ORBTCII_2bpp), uint32_t(ePF_ORBTCII_4bpp)})
    {
        CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 12, 20), pixels.data());
        ASSERT_TRUE(Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear,
                              ECompressorQuality(2)));
        // Whole blocks: 24 x 12 pixels at 2bpp, 20 x 12 at 4bpp.
        EXPECT_EQ(texture.getDataSize(), format == ePF_ORBTCII_2bpp ? 24u * 12 * 2 / 8 : 20u * 12 * 4 / 8);
        ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
        const std::vector<unsigned char> back(texture.getDataPtr(), texture.getDataPtr() + pixels.size());
        EXPECT_GT(Psnr(pixels, back, true), 13.0) << format;
    }
}
