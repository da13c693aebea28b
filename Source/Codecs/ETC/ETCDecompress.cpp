// Decoders of the ETC family: ETC1, ETC2 (RGB, RGBA, RGB with 1-bit alpha)
// and the 8- and 11-bit EAC channels. The block functions and the Plain
// surface decoders work a pixel at a time; ETCDecompress and
// ORBTDecompressETC run the block decoders of ETCFastDecode.cpp, which give
// the same bytes.

#include "Codecs/ETC/ETCDecompress.h"

#include "Codecs/ETC/ETCCodec.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Codecs/ETC/ETCFastDecode.h"
#include "Model/ORBTextureErrors.h"
#include "Tools/ORBTParallel.h"

namespace orbtexture
{

namespace
{

int clamp(int value)
{
    return value < 0 ? 0 : (value > 255 ? 255 : value);
}

// Bit 'from' of 'byte' moved to bit 'to'.
int getbit(unsigned char byte, int from, int to)
{
    return from >= to ? (byte >> (from - to)) & (1 << to) : (byte << (to - from)) & (1 << to);
}

// A 3-bit two's complement field as a number.
int signed3(unsigned int field)
{
    return field >= 4 ? static_cast<int>(field) - 8 : static_cast<int>(field);
}

// True when the 5-bit base plus the 3-bit signed delta of a differential
// block, taken as an unsigned byte, leaves 0..31.
bool overflows(unsigned int word1, int baseShift, int deltaShift)
{
    const int sum = static_cast<int>((word1 >> baseShift) & 31) + signed3((word1 >> deltaShift) & 7);
    return static_cast<unsigned char>(sum) > 31;
}

unsigned int readBigEndian(const unsigned char* p)
{
    return (unsigned int)p[0] << 24 | (unsigned int)p[1] << 16 | (unsigned int)p[2] << 8 | p[3];
}

unsigned int readLittleEndian(const unsigned char* p)
{
    return (unsigned int)p[3] << 24 | (unsigned int)p[2] << 16 | (unsigned int)p[1] << 8 | p[0];
}

// Stored index bits (MSB * 2 + LSB) of pixel (i, j) of a block.
int pixelIndex(unsigned int word2, int i, int j)
{
    const int bit = i * 4 + j;
    return static_cast<int>((((word2 >> (bit + 16)) & 1) << 1) | ((word2 >> bit) & 1));
}

unsigned char* pixelAt(unsigned char* image, int width, int x, int y)
{
    return image + 3 * (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x));
}

void setPixel(unsigned char* image, int width, int x, int y, int r, int g, int b)
{
    unsigned char* p = pixelAt(image, width, x, y);
    p[0] = static_cast<unsigned char>(r);
    p[1] = static_cast<unsigned char>(g);
    p[2] = static_cast<unsigned char>(b);
}

void setAlpha(unsigned char* alpha, int width, int x, int y, unsigned char value)
{
    alpha[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)] = value;
}

void fillAlpha(unsigned char* alpha, int width, int x, int y, unsigned char value)
{
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            setAlpha(alpha, width, x + i, y + j, value);
}

// The two 8-bit base colours of an individual or differential block.
void baseColours(unsigned int word1, bool differential, int (*colour)[3])
{
    for (int c = 0; c < 3; ++c)
    {
        if (differential)
        {
            const int shift = 27 - 8 * c;
            const int first = static_cast<int>((word1 >> shift) & 31);
            // Out of range sums only reach here when the block is read as
            // ETC1; they wrap as 5-bit values.
            const int second = (first + signed3((word1 >> (shift - 3)) & 7)) & 31;
            colour[0][c] = (first << 3) | (first >> 2);
            colour[1][c] = (second << 3) | (second >> 2);
        }
        else
        {
            colour[0][c] = static_cast<int>((word1 >> (28 - 8 * c)) & 15) * 17;
            colour[1][c] = static_cast<int>((word1 >> (24 - 8 * c)) & 15) * 17;
        }
    }
}

// Whether pixel (i, j) lies in the second sub-block.
bool secondSubBlock(unsigned int word1, int i, int j)
{
    return (word1 & 1) ? j >= 2 : i >= 2;
}

// Unpacked T and H colours: two 4-bit colours expanded to 8 bits.
void packedColours(unsigned int packed1, int firstShift, unsigned char (*colours)[3])
{
    unsigned char raw[2][3];
    for (int k = 0; k < 2; ++k)
        for (int c = 0; c < 3; ++c)
            raw[k][c] = static_cast<unsigned char>((packed1 >> (firstShift - 4 * (3 * k + c))) & 15);
    decompressColor(4, 4, 4, raw, colours);
}

void paintColoursT(unsigned int packed1, unsigned char (*paint)[3])
{
    unsigned char colours[2][3];
    packedColours(packed1, 23, colours);
    calculatePaintColors59T(static_cast<unsigned char>(packed1 & 7), 1, colours, paint);
}

void paintColoursH(unsigned int packed1, unsigned char (*paint)[3])
{
    unsigned char colours[2][3];
    packedColours(packed1, 22, colours);
    // The lowest bit of the distance index is the order of the two colours.
    const unsigned int first = (packed1 >> 14) & 0xfff;
    const unsigned int second = (packed1 >> 2) & 0xfff;
    const unsigned int distance = ((packed1 & 3) << 1) | (first >= second ? 1u : 0u);
    calculatePaintColors58H(static_cast<unsigned char>(distance), 0, colours, paint);
}

// Paint colours to pixels; with 'alpha' set, paint 2 is transparent black.
void paintBlock(const unsigned char (*paint)[3], unsigned int word2, unsigned char* image, unsigned char* alpha,
                int width, int x, int y)
{
    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
        {
            const int index = pixelIndex(word2, i, j);
            if (alpha && index == 2)
            {
                setPixel(image, width, x + i, y + j, 0, 0, 0);
                setAlpha(alpha, width, x + i, y + j, 0);
                continue;
            }
            setPixel(image, width, x + i, y + j, paint[index][0], paint[index][1], paint[index][2]);
            if (alpha)
                setAlpha(alpha, width, x + i, y + j, 255);
        }
    }
}

// The three 11-bit index bits of pixel k (column order) of an EAC block.
int eacIndex(const unsigned char* block, int k)
{
    int index = 0;
    for (int b = 0; b < 3; ++b)
    {
        const int bit = 16 + 3 * k + b; // counted from the block's first bit
        index |= getbit(block[bit / 8], 7 - bit % 8, 2 - b);
    }
    return index;
}

// Unscaled EAC modifier of (table, index).
int eacModifier(int table, int index)
{
    const int m = alphaBase[table][3 - index % 4];
    return index / 4 == 1 ? -m - 1 : m;
}

} // namespace

// ---- Colour helpers ----

void decompressColor(int redBits, int greenBits, int blueBits, const unsigned char (*in)[3], unsigned char (*out)[3])
{
    const int bits[3] = {redBits, greenBits, blueBits};
    for (int k = 0; k < 2; ++k)
    {
        for (int c = 0; c < 3; ++c)
        {
            const int v = in[k][c];
            out[k][c] = static_cast<unsigned char>((v << (8 - bits[c])) | (v >> (2 * bits[c] - 8)));
        }
    }
}

void calculatePaintColors59T(unsigned char distanceIndex, unsigned char pattern, const unsigned char (*colours)[3],
                             unsigned char (*paint)[3])
{
    const int d = table59T[distanceIndex & 7];
    if (pattern == 1)
    {
        for (int c = 0; c < 3; ++c)
        {
            paint[0][c] = colours[0][c];
            paint[1][c] = static_cast<unsigned char>(std::min(255, colours[1][c] + d));
            paint[2][c] = colours[1][c];
        }
    }
    else
    {
        printf("Invalid pattern. Terminating\n");
    }
    for (int c = 0; c < 3; ++c)
        paint[3][c] = static_cast<unsigned char>(std::max(0, colours[1][c] - d));
}

void calculatePaintColors58H(unsigned char distanceIndex, unsigned char pattern, const unsigned char (*colours)[3],
                             unsigned char (*paint)[3])
{
    const int d = table58H[distanceIndex & 7];
    if (pattern == 0)
    {
        for (int c = 0; c < 3; ++c)
        {
            paint[0][c] = static_cast<unsigned char>(clamp(colours[0][c] + d));
            paint[1][c] = static_cast<unsigned char>(clamp(colours[0][c] - d));
            paint[2][c] = static_cast<unsigned char>(clamp(colours[1][c] + d));
        }
    }
    else
    {
        printf("Invalid pattern. Terminating\n");
    }
    for (int c = 0; c < 3; ++c)
        paint[3][c] = static_cast<unsigned char>(clamp(colours[1][c] - d));
}

// ---- Colour blocks ----

void decompressBlockDiffFlip(unsigned int word1, unsigned int word2, unsigned char* image, int width, int x, int y)
{
    int colour[2][3];
    baseColours(word1, (word1 & 2) != 0, colour);
    const int tables[2] = {static_cast<int>((word1 >> 5) & 7), static_cast<int>((word1 >> 2) & 7)};

    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
        {
            const int sub = secondSubBlock(word1, i, j) ? 1 : 0;
            const int modifier = compressParams[tables[sub] * 2][unscramble[pixelIndex(word2, i, j)]];
            setPixel(image, width, x + i, y + j, clamp(colour[sub][0] + modifier), clamp(colour[sub][1] + modifier),
                     clamp(colour[sub][2] + modifier));
        }
    }
}

void decompressBlockTHUMB59T(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x, int y)
{
    unsigned char paint[4][3];
    paintColoursT(packed1, paint);
    paintBlock(paint, packed2, image, nullptr, width, x, y);
}

void decompressBlockTHUMB58H(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x, int y)
{
    unsigned char paint[4][3];
    paintColoursH(packed1, paint);
    paintBlock(paint, packed2, image, nullptr, width, x, y);
}

void decompressBlockPlanar57(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x,
                             int y)
{
    // Origin, horizontal and vertical colours with their bit counts.
    const unsigned int fields[3][3] = {
        {(packed1 >> 26) & 63, (packed1 >> 19) & 127, (packed1 >> 13) & 63},
        {(packed1 >> 7) & 63, packed1 & 127, (packed2 >> 26) & 63},
        {(packed2 >> 20) & 63, (packed2 >> 13) & 127, (packed2 >> 7) & 63},
    };
    int o[3], h[3], v[3];
    for (int c = 0; c < 3; ++c)
    {
        const bool seven = c == 1;
        const auto expand = [seven](unsigned int f) {
            return static_cast<int>(seven ? (f << 1) | (f >> 6) : (f << 2) | (f >> 4));
        };
        o[c] = expand(fields[0][c]);
        h[c] = expand(fields[1][c]);
        v[c] = expand(fields[2][c]);
    }
    for (int j = 0; j < 4; ++j)
    {
        for (int i = 0; i < 4; ++i)
        {
            int out[3];
            for (int c = 0; c < 3; ++c)
                out[c] = clamp((4 * o[c] + i * (h[c] - o[c]) + j * (v[c] - o[c]) + 2) >> 2);
            setPixel(image, width, x + i, y + j, out[0], out[1], out[2]);
        }
    }
}

void decompressBlockETC2(unsigned int word1, unsigned int word2, unsigned char* image, int width, int x, int y)
{
    if (word1 & 2)
    {
        unsigned int packed1, packed2;
        if (overflows(word1, 27, 24))
        {
            unstuff59bits(word1, word2, packed1, packed2);
            decompressBlockTHUMB59T(packed1, packed2, image, width, x, y);
            return;
        }
        if (overflows(word1, 19, 16))
        {
            unstuff58bits(word1, word2, packed1, packed2);
            decompressBlockTHUMB58H(packed1, packed2, image, width, x, y);
            return;
        }
        if (overflows(word1, 11, 8))
        {
            unstuff57bits(word1, word2, packed1, packed2);
            decompressBlockPlanar57(packed1, packed2, image, width, x, y);
            return;
        }
    }
    decompressBlockDiffFlip(word1, word2, image, width, x, y);
}

// ---- RGB with 1-bit alpha ----

void decompressBlockDifferentialWithAlpha(unsigned int word1, unsigned int word2, unsigned char* image,
                                          unsigned char* alpha, int width, int x, int y)
{
    const bool opaque = (word1 & 2) != 0;
    int colour[2][3];
    baseColours(word1, true, colour);
    const int tables[2] = {static_cast<int>((word1 >> 5) & 7), static_cast<int>((word1 >> 2) & 7)};

    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
        {
            const int index = pixelIndex(word2, i, j);
            if (!opaque && index == 2)
            {
                setPixel(image, width, x + i, y + j, 0, 0, 0);
                setAlpha(alpha, width, x + i, y + j, 0);
                continue;
            }
            const int sub = secondSubBlock(word1, i, j) ? 1 : 0;
            const int column = unscramble[index];
            const int modifier = (!opaque && (column == 1 || column == 2)) ? 0 : compressParams[tables[sub] * 2][column];
            setPixel(image, width, x + i, y + j, clamp(colour[sub][0] + modifier), clamp(colour[sub][1] + modifier),
                     clamp(colour[sub][2] + modifier));
            setAlpha(alpha, width, x + i, y + j, 255);
        }
    }
}

void decompressBlockTHUMB59TAlpha(unsigned int packed1, unsigned int packed2, unsigned char* image,
                                  unsigned char* alpha, int width, int x, int y)
{
    unsigned char paint[4][3];
    paintColoursT(packed1, paint);
    paintBlock(paint, packed2, image, alpha, width, x, y);
}

void decompressBlockTHUMB58HAlpha(unsigned int packed1, unsigned int packed2, unsigned char* image,
                                  unsigned char* alpha, int width, int x, int y)
{
    unsigned char paint[4][3];
    paintColoursH(packed1, paint);
    paintBlock(paint, packed2, image, alpha, width, x, y);
}

void decompressBlockETC21BitAlpha(unsigned int word1, unsigned int word2, unsigned char* image, unsigned char* alpha,
                                  int width, int x, int y)
{
    const bool opaque = (word1 & 2) != 0;
    unsigned int packed1, packed2;
    if (overflows(word1, 27, 24))
    {
        unstuff59bits(word1, word2, packed1, packed2);
        if (opaque)
        {
            decompressBlockTHUMB59T(packed1, packed2, image, width, x, y);
            fillAlpha(alpha, width, x, y, 255);
        }
        else
        {
            decompressBlockTHUMB59TAlpha(packed1, packed2, image, alpha, width, x, y);
        }
    }
    else if (overflows(word1, 19, 16))
    {
        unstuff58bits(word1, word2, packed1, packed2);
        if (opaque)
        {
            decompressBlockTHUMB58H(packed1, packed2, image, width, x, y);
            fillAlpha(alpha, width, x, y, 255);
        }
        else
        {
            decompressBlockTHUMB58HAlpha(packed1, packed2, image, alpha, width, x, y);
        }
    }
    else if (overflows(word1, 11, 8))
    {
        unstuff57bits(word1, word2, packed1, packed2);
        decompressBlockPlanar57(packed1, packed2, image, width, x, y);
        fillAlpha(alpha, width, x, y, 255);
    }
    else
    {
        decompressBlockDifferentialWithAlpha(word1, word2, image, alpha, width, x, y);
    }
}

// ---- EAC ----

void decompressBlockAlpha(const unsigned char* block, unsigned char* image, int width, int x, int y,
                          const int (*table)[8])
{
    const int base = block[0];
    const int* row = table[block[1]];
    for (int k = 0; k < 16; ++k)
    {
        const int i = k / 4, j = k % 4;
        setAlpha(image, width, x + i, y + j, static_cast<unsigned char>(clamp(base + row[eacIndex(block, k)])));
    }
}

int eacBaseTerm(int base, bool isSigned)
{
    // The stored -128 counts as -127.
    if (isSigned)
        return base == 0 ? -1016 : (base - 128) * 8;
    return base * 8 + 4;
}

int eacOffset(int table, int multiplier, int index)
{
    const int modifier = eacModifier(table, index);
    return multiplier != 0 ? modifier * multiplier * 8 : modifier;
}

int eacValueOfSum(int sum, bool isSigned)
{
    if (!isSigned)
    {
        const int clamped = std::min(2047, std::max(0, sum));
        return (clamped << 5) + (clamped >> 6);
    }
    if (sum > 1023)
        return 0x7fff;
    if (sum < -1023)
        return -32767;
    const int a = sum < 0 ? -sum : sum;
    const int magnitude = (a << 5) + (a >> 5);
    return sum < 0 ? -magnitude : magnitude;
}

int get16bits11signed(int base, int table, int multiplier, int index)
{
    return eacValueOfSum(eacBaseTerm(base, true) + eacOffset(table, multiplier, index), true);
}

int get16bits11bits(int base, int table, int multiplier, int index, bool isSigned)
{
    return eacValueOfSum(eacBaseTerm(base, isSigned) + eacOffset(table, multiplier, index), isSigned);
}

void decompressBlockAlpha16bit(const unsigned char* block, unsigned short* image, int width, int x, int y,
                               bool isSigned, int stride)
{
    // A signed base is stored as a two's complement byte.
    const int base = isSigned ? (block[0] ^ 0x80) : block[0];
    const int table = block[1] & 15;
    const int multiplier = block[1] >> 4;
    for (int k = 0; k < 16; ++k)
    {
        const int i = k / 4, j = k % 4;
        const size_t at = (static_cast<size_t>(y + j) * static_cast<size_t>(width) + static_cast<size_t>(x + i)) *
                          static_cast<size_t>(stride);
        image[at] = static_cast<unsigned short>(get16bits11bits(base, table, multiplier, eacIndex(block, k), isSigned));
    }
}

// ---- Whole images ----

uint64_t ETCDecompressPlain(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                            unsigned int format, bool isSigned)
{
    int channels;
    size_t blockBytes = 8;
    switch (format)
    {
    case ePF_ETC1:
    case ePF_ETC2_RGB:
        channels = 3;
        break;
    case ePF_ETC2_RGBA:
        channels = 4;
        blockBytes = 16;
        break;
    case ePF_ETC2_RGB_A1:
        channels = 4;
        break;
    case ePF_EAC_R11:
        channels = 2;
        break;
    case ePF_EAC_RG11:
        channels = 4;
        blockBytes = 16;
        break;
    default:
        return SetError(eORBTErrorUnsupported, "ETCDecompress: format %u is not of the ETC family", format), 0;
    }
    const uint64_t size = uint64_t(width) * uint64_t(height) * uint64_t(channels);
    if (!input || !output)
        return size;

    const unsigned char* src = static_cast<const unsigned char*>(input);
    unsigned char* dst = static_cast<unsigned char*>(output);
    unsigned char rgb[4 * 4 * 3];
    unsigned char alpha[4 * 4];
    unsigned short values[4 * 4 * 2];
    const size_t pixelBytes = static_cast<size_t>(channels);

    for (unsigned int by = 0; by < height; by += 4)
    {
        for (unsigned int bx = 0; bx < width; bx += 4, src += blockBytes)
        {
            switch (format)
            {
            case ePF_ETC1:
            case ePF_ETC2_RGB:
                decompressBlockETC2(readBigEndian(src), readBigEndian(src + 4), rgb, 4, 0, 0);
                break;
            case ePF_ETC2_RGBA:
                decompressBlockAlpha(src, alpha, 4, 0, 0, alphaTable);
                decompressBlockETC2(readBigEndian(src + 8), readBigEndian(src + 12), rgb, 4, 0, 0);
                break;
            case ePF_ETC2_RGB_A1:
                decompressBlockETC21BitAlpha(readBigEndian(src), readBigEndian(src + 4), rgb, alpha, 4, 0, 0);
                break;
            case ePF_EAC_R11:
                decompressBlockAlpha16bit(src, values, 4, 0, 0, isSigned, 1);
                break;
            default: // ePF_EAC_RG11
                decompressBlockAlpha16bit(src, values, 4, 0, 0, isSigned, 2);
                decompressBlockAlpha16bit(src + 8, values + 1, 4, 0, 0, isSigned, 2);
                break;
            }

            const unsigned int rows = std::min(4u, height - by);
            const unsigned int columns = std::min(4u, width - bx);
            for (unsigned int j = 0; j < rows; ++j)
            {
                unsigned char* out = dst + ((size_t(by) + j) * width + bx) * pixelBytes;
                for (unsigned int i = 0; i < columns; ++i, out += pixelBytes)
                {
                    const unsigned int p = j * 4 + i;
                    switch (format)
                    {
                    case ePF_ETC1:
                    case ePF_ETC2_RGB:
                        memcpy(out, rgb + 3 * p, 3);
                        break;
                    case ePF_ETC2_RGBA:
                    case ePF_ETC2_RGB_A1:
                        memcpy(out, rgb + 3 * p, 3);
                        out[3] = alpha[p];
                        break;
                    case ePF_EAC_R11:
                        memcpy(out, values + p, 2);
                        break;
                    default:
                        memcpy(out, values + 2 * p, 4);
                        break;
                    }
                }
            }
        }
    }
    return size;
}

int ETCTextureDecompress(const void* input, const int& width, const int& height, void* output, const int& /*mode*/)
{
    const unsigned char* src = static_cast<const unsigned char*>(input);
    unsigned char* dst = static_cast<unsigned char*>(output);

    for (int by = 0; by < height; by += 4)
    {
        for (int bx = 0; bx < width; bx += 4, src += 8)
        {
            const unsigned int word1 = readLittleEndian(src);
            const unsigned int word2 = readLittleEndian(src + 4);

            // Bytes of the first word: red, green, blue, then the two table
            // numbers with the differential and flip bits.
            int colour[2][3];
            for (int c = 0; c < 3; ++c)
            {
                const int value = static_cast<int>((word1 >> (8 * c)) & 0xff);
                if (word1 & ETC_DIFF)
                {
                    const int first = value >> 3;
                    const int second = (first + signed3(value & 7)) & 31;
                    colour[0][c] = first * 8 + (first >> 2);
                    colour[1][c] = second * 8 + (second >> 2);
                }
                else
                {
                    colour[0][c] = (value >> 4) * 17;
                    colour[1][c] = (value & 15) * 17;
                }
            }
            const int tables[2] = {static_cast<int>(word1 >> 29), static_cast<int>((word1 >> 26) & 7)};
            // Second word: MSBs of pixels 8..15 and 0..7, then LSBs likewise.
            const unsigned int msb = ((word2 & 0xff) << 8) | ((word2 >> 8) & 0xff);
            const unsigned int lsb = ((word2 >> 16) & 0xff) << 8 | (word2 >> 24);

            for (int i = 0; i < 4 && bx + i < width; ++i)
            {
                for (int j = 0; j < 4 && by + j < height; ++j)
                {
                    const int bit = i * 4 + j;
                    const int sub = (word1 & ETC_FLIP) ? (j >= 2) : (i >= 2);
                    const int index = static_cast<int>((((msb >> bit) & 1) << 1) | ((lsb >> bit) & 1));
                    const int modifier = mod[tables[sub]][index];
                    const uint32_t pixel = 0xff000000u + uint32_t(clamp(colour[sub][0] + modifier)) * 65536u +
                                           uint32_t(clamp(colour[sub][1] + modifier)) * 256u +
                                           uint32_t(clamp(colour[sub][2] + modifier));
                    memcpy(dst + 4 * (size_t(by + j) * size_t(width) + size_t(bx + i)), &pixel, 4);
                }
            }
        }
    }
    return width * height / 2;
}

int ORBTDecompressETCPlain(const void* input, const unsigned int& width, const unsigned int& height, void* output,
                           const int& mode)
{
    const int workWidth = static_cast<int>(std::max(width, 4u));
    const int workHeight = static_cast<int>(std::max(height, 4u));
    if (!input || !output)
        return workWidth * workHeight / 2;

    unsigned char* dst = static_cast<unsigned char*>(output);
    int result;
    if (width >= 4 && height >= 4)
    {
        result = ETCTextureDecompress(input, workWidth, workHeight, output, mode);
    }
    else
    {
        std::vector<unsigned char> work(size_t(workWidth) * size_t(workHeight) * 4);
        result = ETCTextureDecompress(input, workWidth, workHeight, work.data(), mode);
        for (unsigned int y = 0; y < height; ++y)
            memcpy(dst + size_t(y) * width * 4, work.data() + size_t(y) * size_t(workWidth) * 4, size_t(width) * 4);
    }

    // The worker's 32-bit pixels lie in memory as blue, green, red, alpha.
    const size_t pixels = size_t(width) * size_t(height);
    for (size_t p = 0; p < pixels; ++p)
        std::swap(dst[4 * p], dst[4 * p + 2]);
    return result;
}

namespace
{

uint32_t blockRows(unsigned int height)
{
    return height / 4 + (height % 4 != 0 ? 1 : 0);
}

} // namespace

uint64_t ETCDecompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                       unsigned int format, bool isSigned)
{
    if (ETCFormatBlockBytes(format) == 0)
        return SetError(eORBTErrorUnsupported, "ETCDecompress: format %u is not of the ETC family", format), 0;
    const uint64_t channels = format == ePF_ETC1 || format == ePF_ETC2_RGB ? 3 : format == ePF_EAC_R11 ? 2 : 4;
    const uint64_t size = uint64_t(width) * uint64_t(height) * channels;
    if (!input || !output)
        return size;

    const unsigned char* src = static_cast<const unsigned char*>(input);
    unsigned char* dst = static_cast<unsigned char*>(output);
    const unsigned int w = width, h = height;
    ParallelRanges(blockRows(h), uint64_t(w) * h, [&](uint32_t first, uint32_t end) {
        ETCDecodeBlockRows(src, dst, w, h, format, isSigned, first, end);
    });
    return size;
}

int ORBTDecompressETC(const void* input, const unsigned int& width, const unsigned int& height, void* output,
                      const int& /*mode*/)
{
    const int workWidth = static_cast<int>(std::max(width, 4u));
    const int workHeight = static_cast<int>(std::max(height, 4u));
    if (input && output)
    {
        const unsigned char* src = static_cast<const unsigned char*>(input);
        unsigned char* dst = static_cast<unsigned char*>(output);
        const unsigned int w = width, h = height;
        ParallelRanges(blockRows(h), uint64_t(w) * h,
                       [&](uint32_t first, uint32_t end) { ETC1DecodeBlockRowsRGBA(src, dst, w, h, first, end); });
    }
    return workWidth * workHeight / 2;
}

} // namespace orbtexture
