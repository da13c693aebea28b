#include "Codecs/DXTBlock.h"
#include "Codecs/DXTCodec.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
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

// 4 x 4 block of one colour per pixel, R, G, B, A.
Bytes compressOne(const std::vector<Pixel>& pixels, unsigned int format)
{
    Bytes in;
    for (const Pixel& p : pixels)
        in.insert(in.end(), p.begin(), p.end());
    Bytes out(16, 0xAA);
    EXPECT_EQ(format == 1 ? 8u : 16u, DXTCompress(in.data(), out.data(), 4, 4, format));
    out.resize(format == 1 ? 8 : 16);
    return out;
}

// Little-endian index word of 16 2-bit codes, pixel 0 lowest.
std::array<unsigned char, 4> indexBytes(const std::array<unsigned int, 16>& codes)
{
    unsigned int word = 0;
    for (int i = 0; i < 16; ++i)
        word |= codes[i] << (2 * i);
    return {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8),
            static_cast<unsigned char>(word >> 16), static_cast<unsigned char>(word >> 24)};
}

Bytes colourBlock(unsigned int c0, unsigned int c1, const std::array<unsigned int, 16>& codes)
{
    const auto idx = indexBytes(codes);
    return {static_cast<unsigned char>(c0), static_cast<unsigned char>(c0 >> 8), static_cast<unsigned char>(c1),
            static_cast<unsigned char>(c1 >> 8), idx[0], idx[1], idx[2], idx[3]};
}

const std::array<unsigned int, 16> kFirstFour = {0, 1, 2, 3};

} // namespace

TEST(DXTDecompress, ColourModesAndWeights)
{
    // Pure red over pure blue: four colours, 21/11 weights over 32.
    auto px = decodeOne(colourBlock(0xF800, 0x001F, kFirstFour), 1);
    EXPECT_EQ((Pixel{255, 0, 0, 255}), px[0]);
    EXPECT_EQ((Pixel{0, 0, 255, 255}), px[1]);
    EXPECT_EQ((Pixel{167, 0, 87, 255}), px[2]);
    EXPECT_EQ((Pixel{87, 0, 167, 255}), px[3]);

    // color0 < color1: three colours, bit replication of (16, 32, 8), transparent black.
    const Bytes three = colourBlock(0x001F, 0x8408, kFirstFour);
    px = decodeOne(three, 1);
    EXPECT_EQ((Pixel{0, 0, 255, 255}), px[0]);
    EXPECT_EQ((Pixel{132, 130, 66, 255}), px[1]);
    EXPECT_EQ((Pixel{66, 65, 160, 255}), px[2]);
    EXPECT_EQ((Pixel{0, 0, 0, 0}), px[3]);
    // Equal end points also decode in three-colour mode.
    px = decodeOne(colourBlock(0, 0, {0, 3}), 1);
    EXPECT_EQ((Pixel{0, 0, 0, 255}), px[0]);
    EXPECT_EQ((Pixel{0, 0, 0, 0}), px[1]);

    // The same colour block after explicit alpha always has four colours.
    Bytes dxt3 = {0x70, 0x1F, 0, 0, 0, 0, 0, 0};
    dxt3.insert(dxt3.end(), three.begin(), three.end());
    for (unsigned int format : {2u, 3u})
    {
        px = decodeOne(dxt3, format);
        EXPECT_EQ((Pixel{0, 0, 255, 0x00}), px[0]);
        EXPECT_EQ((Pixel{132, 130, 66, 0x77}), px[1]);
        EXPECT_EQ((Pixel{45, 44, 190, 0xFF}), px[2]);
        EXPECT_EQ((Pixel{86, 85, 130, 0x11}), px[3]);
        EXPECT_EQ(0, px[4][3]);
    }
}

TEST(DXTDecompress, InterpolatedAlphaBothModes)
{
    // Codes 0..7 on pixels 0..7, so pixel 5 straddles the two 32-bit halves.
    const Bytes codes = {0x88, 0xC6, 0xFA, 0, 0, 0};
    const Bytes colour = colourBlock(0x001F, 0x8408, kFirstFour);
    const int eight[8] = {200, 10, 172, 145, 118, 91, 64, 37};
    const int six[8] = {10, 200, 48, 86, 124, 162, 0, 255};
    for (unsigned int format : {4u, 5u})
    {
        for (bool eightMode : {true, false})
        {
            Bytes block = {static_cast<unsigned char>(eightMode ? 200 : 10),
                           static_cast<unsigned char>(eightMode ? 10 : 200)};
            block.insert(block.end(), codes.begin(), codes.end());
            block.insert(block.end(), colour.begin(), colour.end());
            const auto px = decodeOne(block, format);
            for (int i = 0; i < 16; ++i)
                EXPECT_EQ(i < 8 ? (eightMode ? eight : six)[i] : (eightMode ? 200 : 10), px[i][3]) << i;
            // color0 < color1 decodes three colours here too.
            EXPECT_EQ((Pixel{66, 65, 160, eightMode ? 172 : 48}), px[2]);
            EXPECT_EQ((Pixel{0, 0, 0, eightMode ? 145 : 86}), px[3]);
        }
    }
}

TEST(DXTDecompress, ClipsToImageSize)
{
    // 5 x 3 image: two blocks across, pixel (4, y) is pixel (0, y) of block 2.
    Bytes blocks = colourBlock(0xF800, 0xF800, {});
    const Bytes second = colourBlock(0xF800, 0x001F, {1, 0, 0, 0, 1});
    blocks.insert(blocks.end(), second.begin(), second.end());
    Bytes out(5 * 3 * 4 + 4, 0xEE);
    EXPECT_EQ(60u, DXTDecompress(blocks.data(), out.data(), 5, 3, 1));
    EXPECT_EQ(255, out[(0 * 5 + 3) * 4]);
    EXPECT_EQ(255, out[(0 * 5 + 4) * 4 + 2]);
    EXPECT_EQ(255, out[(1 * 5 + 4) * 4 + 2]);
    EXPECT_EQ(0xEE, out[60]);
}

TEST(DXTCompress, SolidAndTwoKeyBlocks)
{
    const Pixel a = {200, 100, 50, 255}; // key 0xCB26
    const Pixel b = {16, 32, 8, 255};    // key 0x1101
    EXPECT_EQ(colourBlock(0xCB26, 0, {}), compressOne(std::vector<Pixel>(16, a), 1));
    EXPECT_EQ(colourBlock(0, 0, {}), compressOne(std::vector<Pixel>(16, {0, 0, 0, 255}), 1));
    // Truncated keys: low bits never round up.
    EXPECT_EQ(colourBlock(0xCB26, 0, {}), compressOne(std::vector<Pixel>(16, {207, 103, 55, 255}), 1));

    std::vector<Pixel> punch(16, {200, 100, 50, 0});
    EXPECT_EQ(colourBlock(0, 0xCB26, {3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}), compressOne(punch, 1));
    punch[1][3] = 128;
    EXPECT_EQ(colourBlock(0, 0xCB26, {3, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}), compressOne(punch, 1));

    std::vector<Pixel> two(16, a);
    for (int i = 8; i < 16; ++i)
        two[i] = b;
    EXPECT_EQ(colourBlock(0xCB26, 0x1101, {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1}), compressOne(two, 1));
    two[15][3] = 127;
    EXPECT_EQ(colourBlock(0x1101, 0xCB26, {1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 3}), compressOne(two, 1));
    // Alpha below 128 only matters to DXT1.
    Bytes dxt5 = compressOne(two, 5);
    EXPECT_EQ(colourBlock(0xCB26, 0x1101, {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1}),
              Bytes(dxt5.begin() + 8, dxt5.end()));
}

TEST(DXTCompress, PrincipalAxisEndPoints)
{
    // Grey line: white, mid grey, black. Four-colour: color0 white, grey at 1/2 rounds to code 2.
    std::vector<Pixel> grey(16);
    for (int i = 0; i < 16; ++i)
        grey[i] = i < 5 ? Pixel{255, 255, 255, 255} : i < 11 ? Pixel{128, 128, 128, 255} : Pixel{0, 0, 0, 255};
    EXPECT_EQ(colourBlock(0xFFFF, 0, {0, 0, 0, 0, 0, 2, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1}), compressOne(grey, 1));
    // With a transparent pixel: color0 the smaller key, three-colour codes.
    grey[15][3] = 0;
    EXPECT_EQ(colourBlock(0, 0xFFFF, {1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 0, 0, 0, 0, 3}), compressOne(grey, 1));
}

TEST(DXTCompress, AlphaBlocks)
{
    std::vector<Pixel> px(16, {10, 20, 30, 0x7F});
    px[1][3] = 0xFF;
    px[4][3] = 0x1F;
    Bytes block = compressOne(px, 3);
    EXPECT_EQ((Bytes{0xF7, 0x77, 0x71, 0x77, 0x77, 0x77, 0x77, 0x77}), Bytes(block.begin(), block.begin() + 8));
    EXPECT_EQ(block, compressOne(px, 2));
    EXPECT_EQ(0x77, decodeOne(block, 3)[0][3]);

    // Constant alpha: end points only, and it decodes through entry 0.
    block = compressOne(std::vector<Pixel>(16, {10, 20, 30, 77}), 5);
    EXPECT_EQ((Bytes{77, 77, 0, 0, 0, 0, 0, 0}), Bytes(block.begin(), block.begin() + 8));
    EXPECT_EQ(77, decodeOne(block, 5)[9][3]);

    // 0 -> code 1, 255 -> 0, 128 (t 3.51) -> 4, 36 (t 0.99) -> 7, 37 (t 1.02) -> 7, 219 (t 6.01) -> 2.
    const int alphas[6] = {0, 255, 128, 36, 37, 219};
    const unsigned int codes[6] = {1, 0, 4, 7, 7, 2};
    unsigned long long bits = 0;
    for (int i = 0; i < 16; ++i)
    {
        px[i][3] = i < 6 ? alphas[i] : 0;
        bits |= static_cast<unsigned long long>(i < 6 ? codes[i] : 1) << (3 * i);
    }
    block = compressOne(px, 4);
    EXPECT_EQ(255, block[0]);
    EXPECT_EQ(0, block[1]);
    for (int b = 0; b < 6; ++b)
        EXPECT_EQ(static_cast<unsigned char>(bits >> (8 * b)), block[2 + b]) << b;
    EXPECT_EQ(block, compressOne(px, 5));
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

TEST(DXTCodec, GradientRoundTripError)
{
    const unsigned int size = 16;
    Bytes image(size * size * 4), blocks(size * size), back(size * size * 4);
    for (unsigned int y = 0; y < size; ++y)
        for (unsigned int x = 0; x < size; ++x)
        {
            unsigned char* p = &image[(y * size + x) * 4];
            p[0] = static_cast<unsigned char>(8 * x + 4 * y);
            p[1] = static_cast<unsigned char>(255 - 6 * x - 4 * y);
            p[2] = static_cast<unsigned char>(100 + 3 * x);
            p[3] = static_cast<unsigned char>(128 + 7 * y + x);
        }
    for (unsigned int format : {1u, 3u, 5u})
    {
        ASSERT_EQ(format == 1 ? 128u : 256u, DXTCompress(image.data(), blocks.data(), size, size, format));
        DXTDecompress(blocks.data(), back.data(), size, size, format);
        int worst[4] = {};
        for (size_t i = 0; i < image.size(); ++i)
            worst[i & 3] = std::max(worst[i & 3], std::abs(image[i] - back[i]));
        for (int c = 0; c < 3; ++c)
            EXPECT_LE(worst[c], 14) << format << " " << c;
        EXPECT_LE(worst[3], format == 1 ? 127 : format == 3 ? 15 : 6) << format;
    }
}
