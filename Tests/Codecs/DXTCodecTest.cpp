#include "Codecs/DXTCodec.h"
#include "Codecs/DXTDecode.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTSimd.h"
#include "Support/TestPictures.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

using namespace orbtexture;

namespace
{

using Bytes = std::vector<unsigned char>;
using Pixel = std::array<int, 4>;

std::vector<Pixel> decodeOne(const Bytes& block, unsigned int format)
{
    Bytes out(64);
    EXPECT_EQ(64u, DXTDecompress(block.data(), out.data(), 4, 4, format));
    std::vector<Pixel> pixels(16);
    for (int i = 0; i < 16; ++i)
        pixels[i] = {out[4 * i], out[4 * i + 1], out[4 * i + 2], out[4 * i + 3]};
    return pixels;
}

// End point words, then the 2-bit codes, pixel 0 lowest.
Bytes colourBlock(unsigned int c0, unsigned int c1, const std::array<unsigned int, 16>& codes)
{
    Bytes block = {uint8_t(c0), uint8_t(c0 >> 8), uint8_t(c1), uint8_t(c1 >> 8), 0, 0, 0, 0};
    for (int i = 0; i < 16; ++i)
        block[4 + i / 4] = static_cast<unsigned char>(block[4 + i / 4] | codes[i] << (2 * (i % 4)));
    return block;
}

const std::array<unsigned int, 16> kFirstFour = {0, 1, 2, 3};

uint64_t Fnv1a(const Bytes& bytes)
{
    uint64_t hash = 0xCBF29CE484222325ull;
    for (unsigned char b : bytes)
        hash = (hash ^ b) * 0x100000001B3ull;
    return hash;
}

// xorshift32: the same sequence everywhere.
struct Random
{
    uint32_t state = 2463534242u;
    unsigned char next()
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return static_cast<unsigned char>(state >> 24);
    }
};

enum class Scene
{
    Faint,      // a few low bits of noise: fits whose end points share a key
    Degenerate, // axis fits that are exact, zero or never converge
};

// 8 x 8 RGBA; each of the four blocks is one case.
Bytes SceneImage(Scene scene)
{
    Random random;
    Bytes image(8 * 8 * 4);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
        {
            unsigned char* p = &image[(y * 8 + x) * 4];
            const int block = (y >> 2) * 2 + (x >> 2), i = (y & 3) * 4 + (x & 3);
            int r = 0, g = 0, b = 0, a = 255;
            switch (scene)
            {
            case Scene::Faint:
                if (block < 2)
                {
                    // Three keys from one red and one blue step, but the axis
                    // follows green inside one key: both end points share a key.
                    r = 7 + (i == 3);
                    g = 65 + (random.next() & 1);
                    b = 7 + (i == 10);
                    a = block == 1 && i % 5 == 0 ? 0 : 255;
                }
                else
                {
                    r = 120 + (random.next() & 7);
                    g = 60 + (random.next() & 3);
                    b = 200 + (random.next() & 7);
                    a = block == 3 ? 255 : random.next();
                }
                break;
            case Scene::Degenerate:
            {
                const int d = (i % 3) * 8 - 8;
                r = g = b = 128;
                if (block == 0)
                    r += d, g -= d; // the matrix maps (1, 1, 1) to zero
                else if (block == 1)
                    r = g = b = i * 17;
                else if (block == 2)
                {
                    // Red spread 100, green 99: too close to converge in 100 steps.
                    const int spread = i & 2 ? 99 : 100;
                    (i & 2 ? g : r) += i & 1 ? -spread : spread;
                }
                else
                    r = g = b = i == 7 ? 90 : 30 + (i == 2 ? 8 : 0);
                a = block == 3 && i == 9 ? 0 : 255;
                break;
            }
            }
            const int v[4] = {r, g, b, a};
            for (int c = 0; c < 4; ++c)
                p[c] = static_cast<unsigned char>(v[c]);
        }
    return image;
}

} // namespace

// The colour modes by hand; random blocks of every kind are pinned below.
TEST(DXTDecompress, ColourModesAndWeights)
{
    // Pure red over pure blue: four colours, 21/11 weights over 32.
    auto px = decodeOne(colourBlock(0xF800, 0x001F, kFirstFour), 1);
    EXPECT_EQ((std::vector<Pixel>{{255, 0, 0, 255}, {0, 0, 255, 255}, {167, 0, 87, 255}, {87, 0, 167, 255}}),
              std::vector<Pixel>(px.begin(), px.begin() + 4));
    // color0 < color1: three colours, bit replication of (16, 32, 8), transparent black.
    const Bytes three = colourBlock(0x001F, 0x8408, kFirstFour);
    px = decodeOne(three, 1);
    EXPECT_EQ((std::vector<Pixel>{{0, 0, 255, 255}, {132, 130, 66, 255}, {66, 65, 160, 255}, {0, 0, 0, 0}}),
              std::vector<Pixel>(px.begin(), px.begin() + 4));
    // The same colour block after explicit alpha always has four colours.
    Bytes dxt3 = {0x70, 0x1F, 0, 0, 0, 0, 0, 0};
    dxt3.insert(dxt3.end(), three.begin(), three.end());
    px = decodeOne(dxt3, 3);
    EXPECT_EQ((std::vector<Pixel>{{0, 0, 255, 0x00}, {132, 130, 66, 0x77}, {45, 44, 190, 0xFF}, {86, 85, 130, 0x11}}),
              std::vector<Pixel>(px.begin(), px.begin() + 4));
}

// DXT1 takes alpha below 128 as transparent, 128 as opaque: one key keeps the
// four-colour words, or goes to color1 with code 1 and code 3 where transparent.
TEST(DXTCompress, PunchThroughBelowAlpha128)
{
    Bytes pixels(64), block(8);
    for (int i = 0; i < 64; ++i)
        pixels[i] = i % 4 == 3 ? (i == 7 ? 128 : 255) : i % 4 ? 150 - 50 * (i % 4) : 200; // key 0xCB26
    ASSERT_EQ(DXTCompress(pixels.data(), block.data(), 4, 4, 1), 8u);
    EXPECT_EQ(block, colourBlock(0xCB26, 0, {}));
    pixels[7] = 127;
    DXTCompress(pixels.data(), block.data(), 4, 4, 1);
    EXPECT_EQ(block, colourBlock(0, 0xCB26, {1, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
}

TEST(DXTCompress, PadsWithRepeatedRunsAndReportsSizes)
{
    // 5 x 3, alpha nibble = column, low nibble = row; padded by hand to 8 x 4.
    auto pixel = [](int x, int y) { return Pixel{x * 40, y * 80, 100, x * 16 + y}; };
    Bytes image, padded;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            for (int v : pixel(x, y))
                image.push_back(static_cast<unsigned char>(v));
    const int sourceColumn[8] = {0, 1, 2, 3, 4, 2, 3, 4};
    const int sourceRow[4] = {0, 1, 2, 2};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
            for (int v : pixel(sourceColumn[x], sourceRow[y]))
                padded.push_back(static_cast<unsigned char>(v));
    for (unsigned int format : {1u, 3u, 5u})
    {
        const unsigned int size = format == 1 ? 16 : 32;
        Bytes got(size, 0), want(size, 1);
        EXPECT_EQ(size, DXTCompress(image.data(), got.data(), 5, 3, format));
        EXPECT_EQ(size, DXTCompress(padded.data(), want.data(), 8, 4, format));
        EXPECT_EQ(want, got) << format;
        // Queries use the unpadded size.
        EXPECT_EQ(format == 1 ? 7u : 15u, DXTCompress(nullptr, got.data(), 5, 3, format));
        EXPECT_EQ(60u, DXTDecompress(got.data(), nullptr, 5, 3, format));
    }
    // Width 1 repeats its only column.
    Bytes column = {9, 9, 9, 255, 200, 200, 200, 255, 9, 9, 9, 255, 9, 9, 9, 255};
    Bytes wide;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            wide.insert(wide.end(), column.begin() + 4 * y, column.begin() + 4 * y + 4);
    Bytes got(8), want(8);
    EXPECT_EQ(8u, DXTCompress(column.data(), got.data(), 1, 4, 1));
    DXTCompress(wide.data(), want.data(), 4, 4, 1);
    EXPECT_EQ(want, got);
}

// Blocks the common scenes do not reach: end points that share a key, axis
// fits that are zero or do not converge.
TEST(DXTCodec, CompressedBytesOfHardBlocksArePinned)
{
    struct Case
    {
        Scene scene;
        uint64_t dxt1, dxt3, dxt5;
    };
    const Case cases[] = {
        {Scene::Faint, 0xd6f7e66cb4f124ef, 0x9a7d091011ad246a, 0xd9f03ada5e7b2034},
        {Scene::Degenerate, 0x8f070f5c52f8a57c, 0xd66a7fdf82c06b48, 0xbced47bb6cb24871},
    };
    for (const Case& c : cases)
    {
        const Bytes image = SceneImage(c.scene);
        const uint64_t want[3] = {c.dxt1, c.dxt3, c.dxt5};
        const unsigned int formats[3] = {1, 3, 5};
        for (int f = 0; f < 3; ++f)
        {
            Bytes blocks(formats[f] == 1 ? 32 : 64);
            DXTCompress(image.data(), blocks.data(), 8, 8, formats[f]);
            EXPECT_EQ(want[f], Fnv1a(blocks)) << "scene " << static_cast<int>(c.scene) << " DXT" << formats[f]
                                              << std::hex << " 0x" << Fnv1a(blocks);
        }
    }
}

TEST(DXTDecompress, DecodedBytesArePinned)
{
    // 48 random blocks, every fourth with equal colour and alpha end points;
    // read as 32 x 24 and clipped to 29 x 22.
    Random random;
    Bytes blocks(48 * 16);
    for (unsigned char& b : blocks)
        b = random.next();
    for (size_t k = 0; k < 48; k += 4)
    {
        unsigned char* wide = &blocks[k * 16];
        wide[1] = wide[0];
        wide[10] = wide[8];
        wide[11] = wide[9];
        unsigned char* narrow = &blocks[k * 8 + 8];
        narrow[2] = narrow[0];
        narrow[3] = narrow[1];
    }
    const uint64_t want[5][2] = {{0x50654aa70d80d1af, 0x4b58334d3c1c764f},
                                 {0xa89f78d2e52dcbc5, 0x794ce0cb17fbff4b},
                                 {0xa89f78d2e52dcbc5, 0x794ce0cb17fbff4b},
                                 {0x164e75e1494b6b82, 0x5fc89722450d3a6a},
                                 {0x164e75e1494b6b82, 0x5fc89722450d3a6a}};
    for (unsigned int format = 1; format <= 5; ++format)
    {
        Bytes full(32 * 24 * 4), clipped(29 * 22 * 4);
        DXTDecompress(blocks.data(), full.data(), 32, 24, format);
        DXTDecompress(blocks.data(), clipped.data(), 29, 22, format);
        EXPECT_EQ(want[format - 1][0], Fnv1a(full)) << format << std::hex << " 0x" << Fnv1a(full);
        EXPECT_EQ(want[format - 1][1], Fnv1a(clipped)) << format << std::hex << " 0x" << Fnv1a(clipped);
    }
}

// The fast decoder against the plain one: random blocks (every fourth with
// equal end points) at every width up to 64, a compressed picture, every SIMD
// path, any thread count.
TEST(DXTDecompress, EveryPathGivesThePlainDecodersBytes)
{
    Random random;
    Bytes blocks(16 * 16 * 16);
    for (unsigned char& b : blocks)
        b = random.next();
    for (size_t k = 0; k < blocks.size(); k += 64)
        blocks[k + 1] = blocks[k], blocks[k + 10] = blocks[k + 8], blocks[k + 11] = blocks[k + 9];
    const std::vector<unsigned char> picture = testsupport::Picture(64, 64, true);
    Bytes compressed[6];
    for (unsigned format : {1u, 3u, 5u})
    {
        compressed[format].resize(64 * 64);
        DXTCompress(picture.data(), compressed[format].data(), 64, 64, format);
    }
    for (int path = eSimdPortable; path <= eSimdAVX2; ++path)
    {
        if (!SimdPathAvailable(ESimdPath(path)))
            continue;
        SetSimdPath(ESimdPath(path));
        for (unsigned format : {1u, 3u, 5u, 0u})
            for (unsigned side = 1; side <= 64; ++side)
                for (unsigned height : {side, 65 - side, 64u})
                {
                    const Bytes& words = height == 64 && side == 64 && format ? compressed[format] : blocks;
                    Bytes fast(size_t(side) * height * 4), plain(fast.size());
                    DXTDecompress(words.data(), fast.data(), side, height, format);
                    DXTDecodePlain(words.data(), plain.data(), side, height, format);
                    ASSERT_TRUE(fast == plain) << SimdPathName(ESimdPath(path)) << " format " << format << " "
                                               << side << "x" << height;
                }
    }
    // Every pair of alpha end points, in one image of 256 x 256 blocks.
    Bytes alphas(65536 * 16);
    for (size_t k = 0; k < 65536; ++k)
        for (size_t b = 0; b < 16; ++b)
            alphas[k * 16 + b] = b < 2 ? uint8_t(k >> (8 * b)) : blocks[(k * 16 + b) % blocks.size()];
    for (int path = eSimdPortable; path <= eSimdAVX2; path += SimdPathAvailable(eSimdSSE2) ? 1 : 2)
    {
        SetSimdPath(ESimdPath(path));
        Bytes fast(size_t(1024) * 1024 * 4), plain(fast.size());
        DXTDecompress(alphas.data(), fast.data(), 1024, 1024, 5);
        DXTDecodePlain(alphas.data(), plain.data(), 1024, 1024, 5);
        EXPECT_TRUE(fast == plain) << SimdPathName(ESimdPath(path));
    }
    SetSimdPath(eSimdAVX2);

    // Above a megapixel the rows are split over the call's threads.
    Bytes large(size_t(1028) * 1028 / 2);
    for (unsigned char& b : large)
        b = random.next();
    Bytes first;
    for (unsigned threads : {1u, 2u, 5u})
    {
        ORBTCallContext context;
        context.threads = threads;
        const CScopedCallContext scope(context);
        Bytes out(size_t(1028) * 1028 * 4);
        DXTDecompress(large.data(), out.data(), 1028, 1028, 1);
        if (first.empty())
            first = out;
        EXPECT_TRUE(out == first) << threads;
    }
}
