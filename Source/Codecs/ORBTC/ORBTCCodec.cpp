#include "Codecs/ORBTC/ORBTCCodec.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "Codecs/ORBTC/ORBTC2SectionCompress.h"
#include "Codecs/ORBTC/ORBTCFormat.h"
#include "Codecs/ORBTC/ORBTCIIMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCPadding.h"
#include "Codecs/ORBTC/ORBTCRefine.h"
#include "Codecs/ORBTC/ORBTCRefineGrid.h"
#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "Model/ORBTextureErrors.h"

namespace orbtexture
{

void ORBTCPadToBlocks(const uint8_t* input, unsigned width, unsigned height, unsigned paddedWidth,
                      unsigned paddedHeight, std::vector<uint8_t>& work)
{
    work.assign(size_t(paddedWidth) * paddedHeight * 4, 0);
    for (unsigned y = 0; y < height; ++y)
        std::memcpy(&work[size_t(y) * paddedWidth * 4], input + size_t(y) * width * 4, size_t(width) * 4);

    const unsigned columnPad = paddedWidth - width;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned k = 0; k < columnPad; ++k)
        {
            const unsigned from = (width + k - columnPad % width + width) % width;
            std::memcpy(&work[(size_t(y) * paddedWidth + width + k) * 4], &work[(size_t(y) * paddedWidth + from) * 4],
                        4);
        }
    const unsigned rowPad = paddedHeight - height;
    for (unsigned k = 0; k < rowPad; ++k)
    {
        const unsigned from = (height + k - rowPad % height + height) % height;
        std::memcpy(&work[size_t(height + k) * paddedWidth * 4], &work[size_t(from) * paddedWidth * 4],
                    size_t(paddedWidth) * 4);
    }
}

namespace
{

// Quality 8's words, refined. The optimiser reports the first share of the
// progress.
bool ORBTCCompressRefined(const uint8_t* image, uint8_t* output, unsigned paddedWidth, unsigned paddedHeight,
                          unsigned width, unsigned height, bool twoBpp, unsigned generation)
{
    constexpr float kOptimiserShare = 0.6f;
    const ORBTCallContext& outer = CurrentCallContext();
    ORBTCallContext inner = outer;
    if (outer.progress)
    {
        inner.progressUser = const_cast<ORBTCallContext*>(&outer);
        inner.progress = [](float fraction, void* user) {
            static_cast<const ORBTCallContext*>(user)->Report(fraction * kOptimiserShare);
        };
    }
    {
        const CScopedCallContext scope(inner);
        if (orbtc_compress(image, output, int(paddedWidth), int(paddedHeight), generation, kORBTCRefineQuality - 3,
                           twoBpp ? 1 : 0) != 0)
            return false; // the optimiser gave the reason
    }
    // ORBTC grids under two blocks a side decode through a larger image.
    if (generation != 1 && (paddedWidth < (twoBpp ? 16u : 8u) || paddedHeight < 8))
        return outer.Report(1.f), true;
    const size_t bytes = size_t(paddedWidth) * paddedHeight * (twoBpp ? 2 : 4) / 8;
    const std::vector<uint8_t> optimised(output, output + bytes);
    if (!ORBTCRefineWords(image, paddedWidth, paddedHeight, width, height, twoBpp, generation, output,
                          kOptimiserShare))
    {
        std::memcpy(output, optimised.data(), bytes);
        return SetError(eORBTErrorCancelled, "cancelled"), false;
    }
    // Held to the decoder itself: the refined words stand only if neither
    // measure rose.
    std::vector<uint8_t> decoded(size_t(width) * height * 4);
    const auto error = [&](const uint8_t* words) {
        RefineError total;
        ORBTCDecompress(words, decoded.data(), width, height, twoBpp, generation);
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                total += PixelError(image + (size_t(y) * paddedWidth + x) * 4, &decoded[(size_t(y) * width + x) * 4]);
        return total;
    };
    const RefineError refined = error(output), before = error(optimised.data());
    if (refined.weighted > before.weighted || refined.rgb > before.rgb)
        std::memcpy(output, optimised.data(), bytes);
    outer.Report(1.f);
    return true;
}

} // namespace

unsigned int ORBTCCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                           bool hasAlpha, bool twoBpp, unsigned int generation, unsigned int quality)
{
    const unsigned blockWidth = twoBpp ? 8 : 4;
    const unsigned blockHeight = 4;
    const unsigned bitsPerPixel = twoBpp ? 2 : 4;
    if (width > kORBTCLargestSide || height > kORBTCLargestSide)
        return SetError(eORBTErrorSize, "ORBTCCompress: %ux%u has a side above %u", width, height,
                        kORBTCLargestSide),
               0;
    const unsigned paddedWidth = (width + blockWidth - 1) / blockWidth * blockWidth;
    const unsigned paddedHeight = (height + blockHeight - 1) / blockHeight * blockHeight;
    const bool padded = paddedWidth != width || paddedHeight != height;
    if (padded && generation != 1)
        return SetError(eORBTErrorSize, "ORBTCCompress: %ux%u is not whole %ux%u blocks", width, height, blockWidth,
                        blockHeight),
               0;

    std::vector<uint8_t> work;
    const void* image = input;
    if (padded && input && width != 0 && height != 0)
    {
        ORBTCPadToBlocks(static_cast<const uint8_t*>(input), width, height, paddedWidth, paddedHeight, work);
        image = work.data();
    }

    const unsigned size = paddedHeight * bitsPerPixel * paddedWidth / 8;
    if (!input || !output || size == 0)
        return size;

    void* pixels = const_cast<void*>(image);
    if (quality >= kORBTCRefineQuality)
        return ORBTCCompressRefined(static_cast<const uint8_t*>(image), static_cast<uint8_t*>(output), paddedWidth,
                                    paddedHeight, width, height, twoBpp, generation)
                   ? size
                   : 0;
    if (quality >= 2)
        return orbtc_compress(static_cast<const unsigned char*>(image), static_cast<unsigned char*>(output),
                              int(paddedWidth), int(paddedHeight), generation, quality - 2, twoBpp ? 1 : 0) == 0
                   ? size
                   : 0; // the optimiser gave the reason
    unsigned written;
    if (quality <= 1 && generation != 1)
        written = orbtcCompressMW(pixels, output, paddedWidth, paddedHeight, hasAlpha, true, twoBpp,
                                  quality == 0 ? 0 : 8);
    else if (quality == 0 && !twoBpp)
        written = ORBTC2SectionCompress(pixels, output, paddedWidth, paddedHeight) != 0 ? size : 0;
    else
        written = orbtc2Compress(pixels, output, paddedWidth, paddedHeight, hasAlpha, true, twoBpp,
                                 quality == 0 ? 0 : 8);
    if (written == 0)
        SetError(eORBTErrorMemory, "ORBTCCompress: the block compressor of quality %u failed", quality);
    return written;
}

unsigned int ORBTCCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                           bool hasAlpha, bool twoBpp, unsigned int generation, unsigned int quality,
                           const ORBTCallContext& context)
{
    const CScopedCallContext scope(context);
    return ORBTCCompress(input, output, width, height, hasAlpha, twoBpp, generation, quality);
}

unsigned int ORBTCDecompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                             bool twoBpp, const unsigned int& decoder)
{
    const unsigned size = width * 4 * height;
    if (!input || !output)
        return size;
    int result = 0;
    if (decoder == 0)
        result = ORBTDecompressORBTC(input, twoBpp ? 1 : 0, int(width), int(height), static_cast<unsigned char*>(output));
    else
        result = orbtc_decompress(input, static_cast<unsigned char*>(output), width, height, decoder, twoBpp ? 1 : 0);
    if (result == 0 && (width == 0 || height == 0))
        return SetError(eORBTErrorSize, "ORBTCDecompress: %ux%u has no pixels", width, height), 0;
    if (result == 0)
        return SetError(eORBTErrorMemory, "ORBTCDecompress: out of memory for %ux%u", width, height), 0;
    return size;
}

} // namespace orbtexture
