#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCModes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace orbtexture;

namespace
{

// Small deterministic generator, independent of rand().
struct Lcg
{
    unsigned int state;
    int next(int range)
    {
        state = state * 1664525u + 1013904223u;
        return static_cast<int>((state >> 8) % static_cast<unsigned int>(range));
    }
};

// Whether a standard first word holds a T or H block: the differential bit
// set and red, or else green, out of range after its delta.
bool isTOrH(unsigned int w1)
{
    auto overflows = [w1](int base, int delta) {
        const int d = static_cast<int>((w1 >> delta) & 7u);
        const int sum = static_cast<int>((w1 >> base) & 31u) + (d >= 4 ? d - 8 : d);
        return sum < 0 || sum > 31;
    };
    return (w1 & 2u) && (overflows(27, 24) || overflows(19, 16));
}

} // namespace

// The clusterers' generator is the C library's rand() after srand(seed),
// held locally; 10000 is the seed they use.
TEST(ETCModesCluster, RandomFollowsTheCLibrary)
{
#ifndef __GLIBC__
    GTEST_SKIP() << "the sequence is glibc's";
#endif
    for (unsigned int seed : {10000u, 0u, 1u, 0x9E3779B9u})
    {
        ClusterRandom random(seed);
        srand(seed);
        for (int i = 0; i < 5000; ++i)
            ASSERT_EQ(random.next(), rand()) << "seed " << seed << " output " << i;
    }
}

// The clusterers share no state, so ETC2 compression on several threads at
// once gives the bytes of one thread.
TEST(ETCModesCluster, ThreadsCompressAlike)
{
    // Blocks of two colours, scattered, with noise of up to 32 either way: T
    // and H often fit them best, and where the noise blurs the two clusters
    // the clusterers' starting points decide the result.
    const unsigned int width = 64, height = 64;
    std::vector<unsigned char> image(width * height * 3);
    Lcg lcg{11};
    for (unsigned int block = 0; block < width * height / 16; ++block)
    {
        int colours[2][3];
        for (auto& colour : colours)
            for (int& c : colour)
                c = lcg.next(256);
        const int mask = lcg.next(65536);
        for (int p = 0; p < 16; ++p)
            for (int c = 0; c < 3; ++c)
            {
                const int v = colours[(mask >> p) & 1][c] + lcg.next(65) - 32;
                image[((block / 16 * 4 + p / 4) * width + block % 16 * 4 + p % 4) * 3 + c] =
                    static_cast<unsigned char>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
    }

    std::vector<unsigned char> reference[2];
    for (int q = 0; q < 2; ++q)
    {
        reference[q].resize(width * height / 2);
        ASSERT_EQ(ETCCompress(image.data(), reference[q].data(), width, height, q, ePF_ETC2_RGB, false),
                  reference[q].size());
        unsigned int clustered = 0;
        for (size_t b = 0; b < reference[q].size(); b += 8)
        {
            const unsigned char* w = &reference[q][b];
            clustered += isTOrH(unsigned(w[0]) << 24 | unsigned(w[1]) << 16 | unsigned(w[2]) << 8 | w[3]);
        }
        ASSERT_GT(clustered, reference[q].size() / 8 / 4);
    }

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::vector<unsigned char> blocks(reference[t % 2].size());
            for (int repeat = 0; repeat < 8; ++repeat)
            {
                ETCCompress(image.data(), blocks.data(), width, height, t % 2, ePF_ETC2_RGB, false);
                mismatches += blocks != reference[t % 2];
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, 0);
}

TEST(ETCModesAlpha, TransparentPixelsDecodeTransparentAndOpaqueBlocksSetTheFlag)
{
    Lcg lcg{11};
    unsigned char work[48];
    for (int n = 0; n < 60; ++n)
    {
        unsigned char src[48], alpha[16];
        const int base = lcg.next(200);
        const unsigned int transparentMask = n < 20 ? 0u : static_cast<unsigned int>(lcg.next(65536));
        for (int p = 0; p < 16; ++p)
        {
            // Mostly smooth, with a second hue on some blocks.
            const bool other = n % 4 == 3 && (p & 5) != 0;
            src[3 * p] = static_cast<unsigned char>(other ? 250 : base + p);
            src[3 * p + 1] = static_cast<unsigned char>(other ? 20 : base / 2 + lcg.next(6));
            src[3 * p + 2] = static_cast<unsigned char>(100 + 3 * p);
            alpha[p] = ((transparentMask >> p) & 1u) ? static_cast<unsigned char>(lcg.next(128))
                                                     : static_cast<unsigned char>(128 + lcg.next(128));
        }

        unsigned int w1 = 0, w2 = 0;
        testing::internal::CaptureStdout();
        compressBlockETC2Fast(src, alpha, work, 4, 4, 0, 0, w1, w2, ePF_ETC2_RGB_A1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "block " << n;

        unsigned char rgb[48], a[16];
        decompressBlockETC21BitAlpha(w1, w2, rgb, a, 4, 0, 0);
        unsigned int error = 0;
        for (int i = 0; i < 48; ++i)
            error += a[i / 3] ? static_cast<unsigned int>((rgb[i] - src[i]) * (rgb[i] - src[i])) : 0u;
        for (int p = 0; p < 16; ++p)
            EXPECT_EQ(a[p], alpha[p] < 128 ? 0 : 255) << "block " << n << " pixel " << p;
        EXPECT_LT(error, 16u * 3u * 30u * 30u) << "block " << n;
        // The opaque flag: clear with transparent pixels, set on opaque smooth blocks.
        const bool opaqueFlag = (w1 & 2u) != 0;
        EXPECT_TRUE(transparentMask != 0 ? !opaqueFlag : opaqueFlag || n % 4 == 3) << "block " << n;
    }
}
