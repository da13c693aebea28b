// The row decoder against the per-tile decoders, byte for byte, on every SIMD
// path and thread count.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCFastDecode.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "Support/TestPictures.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;

namespace
{

std::vector<uint8_t> RandomBytes(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(count);
    for (uint8_t& b : bytes)
        b = uint8_t(random());
    return bytes;
}

// Runs 'check' once on each SIMD path this machine has.
template <typename Check>
void OnEveryPath(Check&& check)
{
    const ESimdPath saved = ActiveSimdPath();
    for (ESimdPath path : {eSimdPortable, eSimdSSE2, eSimdAVX2})
        if (SimdPathAvailable(path))
        {
            SetSimdPath(path);
            check(SimdPathName(path));
        }
    SetSimdPath(saved);
}

// The top-left width x height of whole blocks decoded tile by tile.
std::vector<uint8_t> Plain(const std::vector<uint8_t>& words, unsigned numX, unsigned numY, bool twoBpp,
                           unsigned generation2, unsigned rowOrder, unsigned width, unsigned height)
{
    const int blockWidth = twoBpp ? 8 : 4;
    Bitmap* bitmap = new_bitmap(int(numX) * blockWidth, int(numY) * 4, 1, nullptr);
    Decompress(words.data(), 0, generation2, 4, twoBpp ? 2 : 4, bitmap->width, bitmap->height, 4, 0, rowOrder, bitmap);
    std::vector<uint8_t> out(size_t(width) * height * 4);
    for (unsigned y = 0; y < height; ++y)
        std::memcpy(&out[size_t(y) * width * 4], bitmap->pixels + size_t(y) * bitmap->width * 4, size_t(width) * 4);
    delete_bitmap(bitmap);
    return out;
}

} // namespace

TEST(ORBTCFastDecode, RandomWordsAtEverySizeInBothGenerationsAndOrders)
{
    for (int twoBpp = 0; twoBpp < 2; ++twoBpp)
        for (unsigned height = 1; height <= 64; ++height)
            for (unsigned width = 1; width <= 64; ++width)
            {
                const unsigned bw = twoBpp ? 8 : 4, numX = (width + bw - 1) / bw, numY = (height + 3) / 4;
                const std::vector<uint8_t> words = RandomBytes(size_t(numX) * numY * 8, width * 64 + height);
                std::vector<uint8_t> plain[4];
                for (unsigned kind = 0; kind < 4; ++kind)
                    plain[kind] = Plain(words, numX, numY, twoBpp != 0, kind & 1u, kind >> 1, width, height);
                // ORBTDecompressORBTC pads to 16 x 8 or 8 x 8 and leaves partial blocks alone.
                const std::vector<uint8_t> padded = RandomBytes(size_t(std::max(width, 16u)) * std::max(height, 8u), 9);
                std::vector<uint8_t> paddedPlain(size_t(width) * height * 4, 0xAB);
                ORBTDecompressORBTCPlain(padded.data(), twoBpp, int(width), int(height), paddedPlain.data());
                OnEveryPath([&](const char* path) {
                    for (unsigned kind = 0; kind < 4; ++kind)
                    {
                        std::vector<uint8_t> fast(plain[kind].size());
                        ORBTCFastSurface surface;
                        surface.words = words.data();
                        surface.numX = numX;
                        surface.numY = numY;
                        surface.twoBpp = twoBpp != 0;
                        surface.generation2 = (kind & 1u) != 0;
                        surface.rowOrder = (kind >> 1) != 0;
                        surface.output = fast.data();
                        surface.stride = size_t(width) * 4;
                        surface.width = width;
                        surface.height = height;
                        ASSERT_TRUE(ORBTCDecodeSurface(surface));
                        ASSERT_TRUE(fast == plain[kind])
                            << width << "x" << height << " " << (twoBpp ? 2 : 4) << "bpp kind " << kind << " " << path;
                    }
                    std::vector<uint8_t> fast(paddedPlain.size(), 0xAB);
                    ORBTDecompressORBTC(padded.data(), twoBpp, int(width), int(height), fast.data());
                    ASSERT_TRUE(fast == paddedPlain) << width << "x" << height << " ORBTC " << path;
                });
                if (HasFailure())
                    return;
            }
}

TEST(ORBTCFastDecode, PictureWordsOfBothGenerations)
{
    const unsigned width = 96, height = 40; // no power of two: words in row order
    const std::vector<unsigned char> picture = testsupport::Picture(width, height, true);
    for (unsigned generation = 0; generation < 2; ++generation)
        for (bool twoBpp : {false, true})
        {
            std::vector<uint8_t> words(size_t(width) * height / 2);
            ASSERT_NE(ORBTCCompress(picture.data(), words.data(), width, height, true, twoBpp, generation, 0), 0u);
            const std::vector<uint8_t> plain = Plain(words, width / (twoBpp ? 8 : 4), height / 4, twoBpp, generation,
                                                     generation, width, height);
            OnEveryPath([&](const char* path) {
                std::vector<uint8_t> fast(plain.size());
                ORBTCDecompress(words.data(), fast.data(), width, height, twoBpp, generation);
                EXPECT_TRUE(fast == plain) << "generation " << generation << " twoBpp " << twoBpp << " " << path;
            });
        }
}

TEST(ORBTCFastDecode, SurfacesAboveAMegapixelGiveTheSameBytesOnAnyThreadCount)
{
    const unsigned width = 1024, height = 1032;
    const std::vector<uint8_t> words = RandomBytes(size_t(width) * height / 2, 5);
    for (unsigned decoder = 0; decoder < 2; ++decoder)
    {
        std::vector<uint8_t> plain(size_t(width) * height * 4);
        if (decoder == 0)
            ORBTDecompressORBTCPlain(words.data(), 0, int(width), int(height), plain.data());
        else
            plain = Plain(words, width / 4, height / 4, false, 1, 1, width, height);
        for (unsigned threads : {1u, 2u, 5u})
        {
            ORBTCallContext context;
            context.threads = threads;
            const CScopedCallContext scope(context);
            std::vector<uint8_t> fast(plain.size());
            ORBTCDecompress(words.data(), fast.data(), width, height, false, decoder);
            EXPECT_TRUE(fast == plain) << "decoder " << decoder << ", " << threads << " threads";
        }
    }
}
