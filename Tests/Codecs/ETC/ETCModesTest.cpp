#include "Codecs/ETC/ETCAverageSearch.h"
#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCModes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

using namespace orbtexture;

namespace
{

struct Block
{
    unsigned char px[48] = {};
    void set(int x, int y, int r, int g, int b)
    {
        unsigned char* p = px + 3 * (y * 4 + x);
        p[0] = static_cast<unsigned char>(r);
        p[1] = static_cast<unsigned char>(g);
        p[2] = static_cast<unsigned char>(b);
    }
};

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

unsigned int blockError(const unsigned char* a, const unsigned char* b)
{
    unsigned int sum = 0;
    for (int i = 0; i < 48; ++i)
        sum += static_cast<unsigned int>((a[i] - b[i]) * (a[i] - b[i]));
    return sum;
}

unsigned int decodedError(const Block& src, unsigned int w1, unsigned int w2)
{
    unsigned char out[48];
    decompressBlockETC2(w1, w2, out, 4, 0, 0);
    return blockError(src.px, out);
}

enum class Mode
{
    Individual,
    Differential,
    T,
    H,
    Planar
};

// The mode a decoder reads from a standard first word.
Mode modeOf(unsigned int w1)
{
    if ((w1 & 2u) == 0)
        return Mode::Individual;
    auto overflows = [w1](int base, int delta) {
        const int b = static_cast<int>((w1 >> base) & 31u);
        int d = static_cast<int>((w1 >> delta) & 7u);
        if (d >= 4)
            d -= 8;
        return b + d < 0 || b + d > 31;
    };
    if (overflows(27, 24))
        return Mode::T;
    if (overflows(19, 16))
        return Mode::H;
    if (overflows(11, 8))
        return Mode::Planar;
    return Mode::Differential;
}

// Colours of 4-bit values (multiples of 17) are exact in T and H.
Block twoColourBlock(const int* a, const int* b, unsigned int mask)
{
    Block blk;
    for (int p = 0; p < 16; ++p)
    {
        const int* c = ((mask >> p) & 1u) ? b : a;
        blk.set(p & 3, p >> 2, c[0], c[1], c[2]);
    }
    return blk;
}

// The planar block of the given 6/7/6-bit corners, decoded.
Block planarBlock(const unsigned int (*corner)[3], unsigned int& p1, unsigned int& p2)
{
    p1 = (corner[0][0] << 26) | (corner[0][1] << 19) | (corner[0][2] << 13) | (corner[1][0] << 7) | corner[1][1];
    p2 = (corner[1][2] << 26) | (corner[2][0] << 20) | (corner[2][1] << 13) | (corner[2][2] << 7);
    Block blk;
    decompressBlockPlanar57(p1, p2, blk.px, 4, 0, 0);
    return blk;
}

using ClusterFn = void (*)(unsigned char*, int, int, int, unsigned char (*)[3]);
const ClusterFn kClusterers[5] = {computeColorLBG, computeColorLBGNotIntensity, computeColorLBGfast,
                                  computeColorLBGNotIntensityFast, computeColorLBGHalfIntensityFast};

} // namespace

TEST(ETCModesCluster, SameBlockGivesSameColoursWhateverRandDidBefore)
{
    Lcg lcg{7};
    unsigned char image[8 * 8 * 3];
    for (unsigned char& v : image)
        v = static_cast<unsigned char>(lcg.next(256));
    for (ClusterFn cluster : kClusterers)
    {
        unsigned char first[2][3], second[2][3];
        cluster(image, 8, 4, 4, first);
        srand(12345);
        for (int i = 0; i < 17; ++i)
            (void)rand();
        cluster(image, 8, 4, 4, second);
        EXPECT_EQ(0, std::memcmp(first, second, sizeof first));
    }
}

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
    for (unsigned int by = 0; by < height; by += 4)
        for (unsigned int bx = 0; bx < width; bx += 4)
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
                    image[((by + p / 4) * width + bx + p % 4) * 3 + c] =
                        static_cast<unsigned char>(v < 0 ? 0 : v > 255 ? 255 : v);
                }
        }

    const int qualities[2] = {0, 1};
    std::vector<unsigned char> reference[2];
    for (int q = 0; q < 2; ++q)
    {
        reference[q].resize(width * height / 2);
        ASSERT_EQ(ETCCompress(image.data(), reference[q].data(), width, height, qualities[q], ePF_ETC2_RGB, false),
                  reference[q].size());
        unsigned int clustered = 0;
        for (size_t b = 0; b < reference[q].size(); b += 8)
        {
            const unsigned char* w = &reference[q][b];
            const Mode mode = modeOf(unsigned(w[0]) << 24 | unsigned(w[1]) << 16 | unsigned(w[2]) << 8 | w[3]);
            clustered += mode == Mode::T || mode == Mode::H;
        }
        ASSERT_GT(clustered, reference[q].size() / 8 / 4);
    }

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            const int q = t % 2;
            std::vector<unsigned char> blocks(reference[q].size());
            for (int repeat = 0; repeat < 16; ++repeat)
            {
                ETCCompress(image.data(), blocks.data(), width, height, qualities[q], ePF_ETC2_RGB, false);
                mismatches += blocks != reference[q];
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, 0);
}

TEST(ETCModesCluster, FindsTheColoursOfSimpleBlocks)
{
    const int grey[3] = {90, 140, 30};
    const int a[3] = {250, 10, 10};
    const int b[3] = {10, 10, 250};
    Block flat = twoColourBlock(grey, grey, 0);
    Block split = twoColourBlock(a, b, 0xa5c3u);
    for (ClusterFn cluster : kClusterers)
    {
        unsigned char c[2][3];
        cluster(flat.px, 4, 0, 0, c);
        for (int v = 0; v < 2; ++v)
            for (int ch = 0; ch < 3; ++ch)
                EXPECT_EQ(c[v][ch], grey[ch]);

        cluster(split.px, 4, 0, 0, c);
        const int* expect0 = c[0][0] > c[1][0] ? a : b;
        const int* expect1 = expect0 == a ? b : a;
        for (int ch = 0; ch < 3; ++ch)
        {
            EXPECT_NEAR(c[0][ch], expect0[ch], 1);
            EXPECT_NEAR(c[1][ch], expect1[ch], 1);
        }
    }
}

TEST(ETCModesPacking, IndexConversionAndColourCodes)
{
    // Pixel (1, 0) is second in row order, (0, 1) fifth, (3, 3) last.
    const unsigned int seq = (3u << 28) | (2u << 22) | 1u;
    EXPECT_EQ(indexConversion(seq), (1u << 20) | (1u << 4) | (1u << 17) | (1u << 15));
    EXPECT_EQ(indexConversion(0xffffffffu), 0xffffffffu);
    EXPECT_EQ(indexConversion(0u), 0u);

    const unsigned char colours[2][3] = {{0, 8, 9}, {255, 136, 127}};
    unsigned char codes[2][3];
    compressColor(4, 4, 4, colours, codes);
    const unsigned char expect[2][3] = {{0, 0, 1}, {15, 8, 7}};
    EXPECT_EQ(0, std::memcmp(codes, expect, sizeof codes));

    unsigned char equal[2][3] = {{3, 4, 0}, {3, 4, 0}};
    sortColorsRGB444(equal);
    const unsigned char lowered[2][3] = {{3, 4, 0}, {3, 3, 15}};
    EXPECT_EQ(0, std::memcmp(equal, lowered, sizeof equal));
    unsigned char zeros[2][3] = {};
    sortColorsRGB444(zeros);
    const unsigned char raised[2][3] = {{0, 0, 1}, {0, 0, 0}};
    EXPECT_EQ(0, std::memcmp(zeros, raised, sizeof zeros));
    unsigned char ascending[2][3] = {{1, 0, 0}, {2, 0, 0}};
    sortColorsRGB444(ascending);
    EXPECT_EQ(ascending[0][0], 2);
    EXPECT_EQ(ascending[1][0], 1);
}

TEST(ETCModesPacking, MatrixProductAndTranspose)
{
    double av[6] = {1, 2, 3, 4, 5, 6}; // 2 rows, 3 columns
    double bv[6] = {1, 0, 0, 1, 2, 2}; // 3 rows, 2 columns
    dMatrix a = {3, 2, av};
    dMatrix b = {2, 3, bv};
    dMatrix* p = multiplyMatrices(&a, &b);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->width, 2);
    EXPECT_EQ(p->height, 2);
    const double expect[4] = {7, 8, 16, 17};
    for (int i = 0; i < 4; ++i)
        EXPECT_DOUBLE_EQ(p->data[i], expect[i]);
    deleteMatrix(p);
    EXPECT_EQ(multiplyMatrices(&a, &a), nullptr);

    transposeMatrix(&a);
    EXPECT_EQ(a.width, 2);
    EXPECT_EQ(a.height, 3);
    const double transposed[6] = {1, 4, 2, 5, 3, 6};
    for (int i = 0; i < 6; ++i)
        EXPECT_DOUBLE_EQ(av[i], transposed[i]);
}

TEST(ETCModesPlanar, ReproducesAnExactPlane)
{
    // Corner differences that are multiples of 4 after expansion decode
    // without rounding, so the least-squares fit must give them back.
    const unsigned int corners[2][3][3] = {
        {{16, 40, 50}, {24, 48, 58}, {20, 36, 54}},
        {{63, 0, 8}, {55, 16, 4}, {59, 8, 12}},
    };
    for (const auto& corner : corners)
    {
        unsigned int p1, p2;
        Block src = planarBlock(corner, p1, p2);
        unsigned int q1 = 0, q2 = 0;
        EXPECT_EQ(compressBlockPlanar57(src.px, 4, 0, 0, q1, q2), 0u);
        EXPECT_EQ(q1, p1);
        EXPECT_EQ(q2, p2);

        unsigned int w1, w2;
        stuff57bits(q1, q2, w1, w2);
        EXPECT_EQ(modeOf(w1), Mode::Planar);
        EXPECT_EQ(decodedError(src, w1, w2), 0u);
    }
}

TEST(ETCModesTH, ReportedErrorsMatchTheDecodedBlocks)
{
    // Random blocks of two or three colours plus noise: the errors the T and
    // H compressors return must be those of their standard blocks, which
    // checks colour order, distance bits and index layout end to end.
    Lcg lcg{99};
    for (int n = 0; n < 200; ++n)
    {
        int palette[3][3];
        for (auto& c : palette)
            for (int& v : c)
                v = lcg.next(256);
        Block src;
        const int noise = n % 3 == 0 ? 0 : 12;
        for (int p = 0; p < 16; ++p)
        {
            const int* c = palette[lcg.next(n % 2 == 0 ? 2 : 3)];
            int v[3];
            for (int ch = 0; ch < 3; ++ch)
            {
                v[ch] = c[ch] + (noise ? lcg.next(2 * noise + 1) - noise : 0);
                v[ch] = v[ch] < 0 ? 0 : (v[ch] > 255 ? 255 : v[ch]);
            }
            src.set(p & 3, p >> 2, v[0], v[1], v[2]);
        }

        using Fn = unsigned int (*)(unsigned char*, int, int, int, unsigned int&, unsigned int&);
        const Fn tForms[2] = {compressBlockTHUMB59TFastest, compressBlockTHUMB59TFast};
        const Fn hForms[2] = {compressBlockTHUMB58HFastest, compressBlockTHUMB58HFast};
        unsigned int p1, p2, w1, w2;
        for (Fn f : tForms)
        {
            const unsigned int err = f(src.px, 4, 0, 0, p1, p2);
            stuff59bits(p1, p2, w1, w2);
            ASSERT_EQ(modeOf(w1), Mode::T);
            ASSERT_EQ(decodedError(src, w1, w2), err) << "T block " << n;
        }
        for (Fn f : hForms)
        {
            const unsigned int err = f(src.px, 4, 0, 0, p1, p2);
            stuff58bits(p1, p2, w1, w2);
            ASSERT_EQ(modeOf(w1), Mode::H);
            ASSERT_EQ(decodedError(src, w1, w2), err) << "H block " << n;
        }
        // Fast tries the Fastest clusterer among others and keeps the best.
        unsigned int q1, q2;
        EXPECT_LE(compressBlockTHUMB59TFast(src.px, 4, 0, 0, q1, q2),
                  compressBlockTHUMB59TFastest(src.px, 4, 0, 0, p1, p2));
        EXPECT_LE(compressBlockTHUMB58HFast(src.px, 4, 0, 0, q1, q2),
                  compressBlockTHUMB58HFastest(src.px, 4, 0, 0, p1, p2));
    }
}

TEST(ETCModesSelect, PicksTheModeThatFitsTheBlock)
{
    unsigned char work[48];
    unsigned int w1 = 0, w2 = 0;

    // One colour that a differential block hits exactly (5-bit codes 16, 8,
    // 25 less 2); T and H can't beat an error of 0.
    const int grey[3] = {130, 64, 204};
    Block flat = twoColourBlock(grey, grey, 0);
    compressBlockETC2Fast(flat.px, nullptr, work, 4, 4, 0, 0, w1, w2, ePF_ETC2_RGB);
    EXPECT_NE(modeOf(w1), Mode::T);
    EXPECT_NE(modeOf(w1), Mode::H);
    EXPECT_NE(modeOf(w1), Mode::Planar);
    EXPECT_EQ(decodedError(flat, w1, w2), 0u);

    // A smooth gradient in all channels: an exact plane.
    const unsigned int corner[3][3] = {{10, 20, 50}, {14, 60, 62}, {12, 36, 48}};
    unsigned int p1, p2;
    Block ramp = planarBlock(corner, p1, p2);
    compressBlockETC2Fast(ramp.px, nullptr, work, 4, 4, 0, 0, w1, w2, ePF_ETC2_RGB);
    EXPECT_EQ(modeOf(w1), Mode::Planar);
    EXPECT_EQ(decodedError(ramp, w1, w2), 0u);
    compressBlockETC2FastPerceptual(ramp.px, work, 4, 0, 0, w1, w2);
    EXPECT_EQ(modeOf(w1), Mode::Planar);
    EXPECT_EQ(decodedError(ramp, w1, w2), 0u);

    // Red against blue, scattered: ETC1 can't split a sub-block between
    // hues, T and H can; T reproduces exact 4-bit colours.
    const int red[3] = {255, 0, 0};
    const int blue[3] = {0, 34, 255};
    Block pair = twoColourBlock(red, blue, 0x6b2du);
    compressBlockETC2Fast(pair.px, nullptr, work, 4, 4, 0, 0, w1, w2, ePF_ETC2_RGB);
    EXPECT_TRUE(modeOf(w1) == Mode::T || modeOf(w1) == Mode::H);
    EXPECT_EQ(decodedError(pair, w1, w2), 0u);
    unsigned int t1, t2;
    EXPECT_EQ(compressBlockTHUMB59TFastest(pair.px, 4, 0, 0, t1, t2), 0u);
    compressBlockETC2FastPerceptual(pair.px, work, 4, 0, 0, w1, w2);
    EXPECT_TRUE(modeOf(w1) == Mode::T || modeOf(w1) == Mode::H);
    EXPECT_EQ(decodedError(pair, w1, w2), 0u);
}

TEST(ETCModesSelect, NeverWorseThanTheETC1Start)
{
    // A 16 x 12 image of gradients, edges and noise, compressed in place.
    const int width = 16, height = 12;
    unsigned char image[width * height * 3];
    Lcg lcg{3};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            unsigned char* p = image + 3 * (y * width + x);
            const bool edge = (x + y / 2) % 7 < 3;
            p[0] = static_cast<unsigned char>(edge ? 230 - 4 * x : 10 * y);
            p[1] = static_cast<unsigned char>(12 * x + lcg.next(9));
            p[2] = static_cast<unsigned char>(edge ? 40 : 200 - 9 * y + lcg.next(21));
        }

    unsigned char work[48], out[48];
    for (int y = 0; y < height; y += 4)
        for (int x = 0; x < width; x += 4)
        {
            unsigned int s1, s2, w1, w2;
            const double start = compressBlockDiffFlipFast(image, work, width, x, y, s1, s2);
            compressBlockETC2Fast(image, nullptr, work, width, height, x, y, w1, w2, ePF_ETC2_RGB);
            decompressBlockETC2(w1, w2, out, 4, 0, 0);
            const double err = calcBlockErrorRGB(image, out, width, x, y);
            EXPECT_LE(err, start) << x << "," << y;
            EXPECT_LT(err, 16 * 3 * 20.0 * 20.0) << x << "," << y;

            const double pstart = compressBlockDiffFlipFastPerceptual(image, work, width, x, y, s1, s2);
            compressBlockETC2FastPerceptual(image, work, width, x, y, w1, w2);
            decompressBlockETC2(w1, w2, out, 4, 0, 0);
            EXPECT_LE(calcBlockPerceptualErrorRGB(image, out, width, x, y), pstart) << x << "," << y;
        }
}

TEST(ETCModesAlpha, TransparentPixelsDecodeTransparentAndOpaqueBlocksSetTheFlag)
{
    Lcg lcg{11};
    unsigned char work[48];
    for (int n = 0; n < 60; ++n)
    {
        Block src;
        unsigned char alpha[16];
        const int base = lcg.next(200);
        const unsigned int transparentMask = n < 20 ? 0u : static_cast<unsigned int>(lcg.next(65536));
        for (int p = 0; p < 16; ++p)
        {
            // Mostly smooth, with a second hue on some blocks.
            const bool other = n % 4 == 3 && (p & 5) != 0;
            src.set(p & 3, p >> 2, other ? 250 : base + p, other ? 20 : base / 2 + lcg.next(6), 100 + 3 * p);
            alpha[p] = ((transparentMask >> p) & 1u) ? static_cast<unsigned char>(lcg.next(128))
                                                     : static_cast<unsigned char>(128 + lcg.next(128));
        }

        unsigned int w1 = 0, w2 = 0;
        testing::internal::CaptureStdout();
        compressBlockETC2Fast(src.px, alpha, work, 4, 4, 0, 0, w1, w2, ePF_ETC2_RGB_A1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "block " << n;

        unsigned char rgb[48], a[16];
        decompressBlockETC21BitAlpha(w1, w2, rgb, a, 4, 0, 0);
        unsigned int err = 0;
        for (int p = 0; p < 16; ++p)
        {
            const bool transparent = alpha[p] < 128;
            EXPECT_EQ(a[p], transparent ? 0 : 255) << "block " << n << " pixel " << p;
            if (!transparent)
                for (int ch = 0; ch < 3; ++ch)
                {
                    const int d = rgb[3 * p + ch] - src.px[3 * p + ch];
                    err += static_cast<unsigned int>(d * d);
                }
        }
        EXPECT_LT(err, 16u * 3u * 30u * 30u) << "block " << n;
        if (transparentMask == 0 && n % 4 != 3)
        {
            EXPECT_NE(w1 & 2u, 0u) << "opaque smooth block " << n << " without the opaque flag";
        }
        if (transparentMask != 0)
        {
            EXPECT_EQ(w1 & 2u, 0u) << "block " << n;
        }
    }
}

TEST(ETCModesAlpha, PunchThroughFormsKeepTransparentIndices)
{
    // Two exact 4-bit colours around transparent pixels: T and H with alpha
    // must fit the opaque ones without the transparent index.
    const int a[3] = {255, 17, 0};
    const int b[3] = {0, 119, 238};
    Block src = twoColourBlock(a, b, 0x3c3cu);
    unsigned char alpha[16];
    for (int p = 0; p < 16; ++p)
        alpha[p] = (p % 5 == 0) ? 0 : 255;

    unsigned int p1, p2, w1, w2;
    unsigned char rgb[48], out[16];
    const unsigned int tErr = compressBlockTHUMB59TAlpha(src.px, alpha, 4, 0, 0, p1, p2);
    stuff59bitsDiffFalse(p1, p2, w1, w2);
    decompressBlockETC21BitAlpha(w1, w2, rgb, out, 4, 0, 0);
    unsigned int measured = 0;
    for (int p = 0; p < 16; ++p)
    {
        EXPECT_EQ(out[p], alpha[p] ? 255 : 0) << "T pixel " << p;
        if (alpha[p])
            for (int ch = 0; ch < 3; ++ch)
                measured += static_cast<unsigned int>((rgb[3 * p + ch] - src.px[3 * p + ch]) *
                                                      (rgb[3 * p + ch] - src.px[3 * p + ch]));
    }
    EXPECT_EQ(measured, tErr);

    const unsigned int hErr = compressBlockTHUMB58HAlpha(src.px, alpha, 4, 0, 0, p1, p2);
    stuff58bitsDiffFalse(p1, p2, w1, w2);
    decompressBlockETC21BitAlpha(w1, w2, rgb, out, 4, 0, 0);
    measured = 0;
    for (int p = 0; p < 16; ++p)
    {
        EXPECT_EQ(out[p], alpha[p] ? 255 : 0) << "H pixel " << p;
        if (alpha[p])
            for (int ch = 0; ch < 3; ++ch)
                measured += static_cast<unsigned int>((rgb[3 * p + ch] - src.px[3 * p + ch]) *
                                                      (rgb[3 * p + ch] - src.px[3 * p + ch]));
    }
    EXPECT_EQ(measured, hErr);
}
