#include "Codecs/DXTCodec.h"
#include "Codecs/DXTBlock.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace orbtexture
{

namespace
{

inline unsigned int keyOf(unsigned int r, unsigned int g, unsigned int b)
{
    return ((r & 0xF8u) << 8) | ((g & 0xFCu) << 3) | (b >> 3);
}

inline void putWord16(unsigned char* out, unsigned int value)
{
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
}

inline void putWord32(unsigned char* out, unsigned int value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline unsigned int keyOfPoint(const float point[3], const float mean[3])
{
    unsigned int channel[3];
    for (int c = 0; c < 3; ++c)
    {
        float v = point[c] + mean[c];
        v = v < 0.0f ? 0.0f : (v > 255.0f ? 255.0f : v);
        channel[c] = static_cast<unsigned int>(v);
    }
    return keyOf(channel[0], channel[1], channel[2]);
}

// The 16 pixels of a block in raster order, with their keys.
struct BlockPixels
{
    int red[16], green[16], blue[16];
    unsigned int alpha[16];
    unsigned int key[16];
};

// 'pixels' is the top left pixel of the block, 'rowBytes' the image row stride.
void loadBlock(const unsigned char* pixels, size_t rowBytes, BlockPixels& block)
{
    for (int i = 0; i < 16; ++i)
    {
        const unsigned char* p = pixels + (i >> 2) * rowBytes + (i & 3) * 4;
        block.red[i] = p[0];
        block.green[i] = p[1];
        block.blue[i] = p[2];
        block.alpha[i] = p[3];
        block.key[i] = keyOf(p[0], p[1], p[2]);
    }
}

// 1, 2 or 3 (three or more) distinct keys; colours[1] is the first key that
// differs from colours[0] = keys[0].
int countKeys(const unsigned int* keys, unsigned int colours[2])
{
    const unsigned int first = keys[0];
    int i = 1;
    while (i < 16 && keys[i] == first)
        ++i;
    colours[0] = colours[1] = first;
    if (i == 16)
        return 1;
    const unsigned int second = keys[i];
    colours[1] = second;
    bool more = false;
    for (; i < 16; ++i)
        more |= keys[i] != first && keys[i] != second;
    return more ? 3 : 2;
}

bool anyBelow128(const unsigned int* alphas)
{
    bool below = false;
    for (int i = 0; i < 16; ++i)
        below |= alphas[i] < 128;
    return below;
}

// Principal axis of the deviations: power iteration on the covariance matrix.
void principalAxis(const float* red, const float* green, const float* blue, float axis[3])
{
    float rr = 0, gg = 0, bb = 0, rg = 0, rb = 0, gb = 0;
    for (int i = 0; i < 16; ++i)
    {
        rr += red[i] * red[i];
        gg += green[i] * green[i];
        bb += blue[i] * blue[i];
        rg += red[i] * green[i];
        rb += red[i] * blue[i];
        gb += green[i] * blue[i];
    }
    axis[0] = axis[1] = axis[2] = 1.0f;
    for (int step = 0; step < 100; ++step)
    {
        float next[3] = {rr * axis[0] + rg * axis[1] + rb * axis[2], rg * axis[0] + gg * axis[1] + gb * axis[2],
                         rb * axis[0] + gb * axis[1] + bb * axis[2]};
        const float length = std::sqrt(next[0] * next[0] + next[1] * next[1] + next[2] * next[2]);
        // A vector the matrix maps to zero would divide by zero: keep the last one.
        if (!(length > 0.0f) || !std::isfinite(length))
            return;
        float distance = 0.0f;
        for (int c = 0; c < 3; ++c)
        {
            next[c] /= length;
            const float d = next[c] - axis[c];
            distance += d * d;
            axis[c] = next[c];
        }
        if (std::sqrt(distance) < 0.00001f)
            return;
    }
}

// Colour words and index word of a block of one or two keys.
void fewKeys(const BlockPixels& block, int count, const unsigned int colours[2], bool punch, unsigned int& color0,
             unsigned int& color1, unsigned int& indices)
{
    const unsigned int lower = colours[0] < colours[1] ? colours[0] : colours[1];
    const unsigned int upper = colours[0] < colours[1] ? colours[1] : colours[0];
    if (count == 1)
    {
        color0 = punch ? 0 : colours[0];
        color1 = punch ? colours[0] : 0;
    }
    else
    {
        color0 = punch ? lower : upper;
        color1 = punch ? upper : lower;
    }
    // Code 1 goes to the key stored in color1 (one key with punch-through: all of them).
    const unsigned int one = punch ? upper : (count == 1 ? ~0u : lower);
    indices = 0;
    for (int i = 0; i < 16; ++i)
    {
        const unsigned int code = punch && block.alpha[i] < 128 ? 3u : (block.key[i] == one ? 1u : 0u);
        indices |= code << (2 * i);
    }
}

// Colour words and index word of a block of three or more keys, fitted on its
// principal axis.
void fitKeys(const BlockPixels& block, bool punch, unsigned int& color0, unsigned int& color1, unsigned int& indices)
{
    // Byte sums stay far below 2^24, so they are exact as float sums would be.
    int sum[3] = {0, 0, 0};
    for (int i = 0; i < 16; ++i)
    {
        sum[0] += block.red[i];
        sum[1] += block.green[i];
        sum[2] += block.blue[i];
    }
    float mean[3];
    for (int c = 0; c < 3; ++c)
        mean[c] = static_cast<float>(sum[c]) * 0.0625f;
    float red[16], green[16], blue[16];
    for (int i = 0; i < 16; ++i)
    {
        red[i] = static_cast<float>(block.red[i]) - mean[0];
        green[i] = static_cast<float>(block.green[i]) - mean[1];
        blue[i] = static_cast<float>(block.blue[i]) - mean[2];
    }
    float axis[3];
    principalAxis(red, green, blue, axis);

    // The end points depend only on the extreme projections, so ties need no order.
    float low = 0, high = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float t = red[i] * axis[0] + green[i] * axis[1] + blue[i] * axis[2];
        high = t > high ? t : high;
        low = t < low ? t : low;
    }
    float point0[3], point1[3];
    for (int c = 0; c < 3; ++c)
    {
        point0[c] = low < 0.0f ? low * axis[c] : 0.0f;
        point1[c] = high > 0.0f ? high * axis[c] : 0.0f;
    }
    unsigned int key0 = keyOfPoint(point0, mean);
    unsigned int key1 = keyOfPoint(point1, mean);
    if (punch ? key0 >= key1 : key0 < key1)
    {
        const unsigned int k = key0;
        key0 = key1;
        key1 = k;
        for (int c = 0; c < 3; ++c)
        {
            const float p = point0[c];
            point0[c] = point1[c];
            point1[c] = p;
        }
    }
    color0 = key0;
    color1 = key1;
    indices = 0;
    if (key0 == key1)
        return;

    float direction[3];
    float length2 = 0;
    for (int c = 0; c < 3; ++c)
    {
        direction[c] = point1[c] - point0[c];
        length2 += direction[c] * direction[c];
    }
    for (int c = 0; c < 3; ++c)
        direction[c] /= length2;
    // Codes by truncated position, two bits each: 0, 2, 3, 1 and 0, 2, 1.
    const float steps = punch ? 2.0f : 3.0f;
    const float limit = punch ? 3.0f : 4.0f;
    const unsigned int table = punch ? 0x18u : 0x78u;
    for (int i = 0; i < 16; ++i)
    {
        const float s = (red[i] - point0[0]) * direction[0] + (green[i] - point0[1]) * direction[1] +
                        (blue[i] - point0[2]) * direction[2];
        // Positions outside the table keep code 0, as does position 0.
        const float f = steps * s + 0.5f;
        const int index = static_cast<int>(f > -1.0f && f < limit ? f : 0.0f);
        unsigned int code = (table >> (2 * index)) & 3u;
        if (punch && block.alpha[i] < 128)
            code = 3;
        indices |= code << (2 * i);
    }
}

// Colour half of a block: colour words and the 32-bit index word.
void compressColour(const BlockPixels& block, bool dxt1, unsigned char* out)
{
    unsigned int colours[2];
    const int count = countKeys(block.key, colours);
    const bool punch = dxt1 && anyBelow128(block.alpha);
    unsigned int color0, color1, indices;
    if (count < 3)
        fewKeys(block, count, colours, punch, color0, color1, indices);
    else
        fitKeys(block, punch, color0, color1, indices);
    putWord16(out, color0);
    putWord16(out + 2, color1);
    putWord32(out + 4, indices);
}

void explicitAlpha(const unsigned int* alphas, unsigned char* out)
{
    for (int y = 0; y < 4; ++y)
    {
        unsigned int row = 0;
        for (int x = 0; x < 4; ++x)
            row |= (alphas[4 * y + x] >> 4) << (4 * x);
        putWord16(out + 2 * y, row);
    }
}

void interpolatedAlpha(const unsigned int* alphas, unsigned char* out)
{
    unsigned int alpha0 = 0, alpha1 = 255;
    for (int i = 0; i < 16; ++i)
    {
        alpha0 = alphas[i] > alpha0 ? alphas[i] : alpha0;
        alpha1 = alphas[i] < alpha1 ? alphas[i] : alpha1;
    }
    std::memset(out, 0, 8);
    out[0] = static_cast<unsigned char>(alpha0);
    out[1] = static_cast<unsigned char>(alpha1);
    if (alpha0 == alpha1)
        return;
    // Codes by the number of thresholds 0.5, 1.5 ... 6.5 at or below t.
    static const unsigned long long codes[8] = {1, 7, 6, 5, 4, 3, 2, 0};
    const float scale = 7.0f / static_cast<float>(alpha0 - alpha1);
    unsigned long long bits = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float t = static_cast<float>(alphas[i] - alpha1) * scale;
        int step = 0;
        for (int k = 0; k < 7; ++k)
            step += t >= static_cast<float>(k) + 0.5f;
        bits |= codes[step] << (16 + 3 * i);
    }
    for (int b = 2; b < 8; ++b)
        out[b] = static_cast<unsigned char>(bits >> (8 * b));
}

// Shift of each pixel byte R, G, B, A within a 32-bit word stored in host order.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr unsigned int kByteShift[4] = {24, 16, 8, 0};
#else
constexpr unsigned int kByteShift[4] = {0, 8, 16, 24};
#endif

inline uint32_t pixelWord(unsigned int r, unsigned int g, unsigned int b, unsigned int a)
{
    return (r << kByteShift[0]) | (g << kByteShift[1]) | (b << kByteShift[2]) | (a << kByteShift[3]);
}

// The four colours of a block as pixel words; 'dxt1' gives them alpha.
void colourTable(const unsigned char* colour, bool dxt1, bool fourColoursAlways, uint32_t words[4])
{
    const unsigned int c0 = colour[0] | (colour[1] << 8);
    const unsigned int c1 = colour[2] | (colour[3] << 8);
    unsigned int table[4][3];
    const unsigned int ends[2] = {c0, c1};
    for (int e = 0; e < 2; ++e)
    {
        const unsigned int r = (ends[e] >> 11) & 31, g = (ends[e] >> 5) & 63, b = ends[e] & 31;
        table[e][0] = (r << 3) | (r >> 2);
        table[e][1] = (g << 2) | (g >> 4);
        table[e][2] = (b << 3) | (b >> 2);
    }
    const bool fourColours = fourColoursAlways || c0 > c1;
    for (int c = 0; c < 3; ++c)
    {
        const unsigned int a = table[0][c], b = table[1][c];
        table[2][c] = fourColours ? (21 * a + 11 * b) >> 5 : (a + b) >> 1;
        table[3][c] = fourColours ? (11 * a + 21 * b) >> 5 : 0;
    }
    for (int e = 0; e < 4; ++e)
        words[e] = pixelWord(table[e][0], table[e][1], table[e][2], dxt1 && (e < 3 || fourColours) ? 255 : 0);
}

enum class AlphaKind
{
    None,
    Explicit,
    Interpolated,
};

// Decodes one block into 4 rows of 4 R, G, B, A pixels, 'rowBytes' apart.
template <AlphaKind kind>
void decodeBlock(const unsigned char* block, unsigned char* pixels, size_t rowBytes)
{
    const unsigned char* colour = kind == AlphaKind::None ? block : block + 8;
    uint32_t words[4];
    colourTable(colour, kind == AlphaKind::None, kind == AlphaKind::Explicit, words);
    const unsigned int indices = colour[4] | (colour[5] << 8) | (colour[6] << 16) |
                                 (static_cast<unsigned int>(colour[7]) << 24);

    // Alpha as words to OR into the colour words, whose alpha is 0 here.
    uint32_t alphaWords[16];
    if (kind == AlphaKind::Explicit)
    {
        for (int i = 0; i < 16; ++i)
        {
            const unsigned int a = (block[i >> 1] >> (4 * (i & 1))) & 15;
            alphaWords[i] = ((a << 4) | a) << kByteShift[3];
        }
    }
    else if (kind == AlphaKind::Interpolated)
    {
        const unsigned int a0 = block[0], a1 = block[1];
        unsigned int alphas[8] = {a0, a1, 0, 0, 0, 0, 0, 255};
        if (a0 > a1)
        {
            for (unsigned int k = 1; k <= 6; ++k)
                alphas[1 + k] = ((7 - k) * a0 + k * a1) / 7;
        }
        else
        {
            for (unsigned int k = 1; k <= 4; ++k)
                alphas[1 + k] = ((5 - k) * a0 + k * a1) / 5;
        }
        unsigned long long bits = 0;
        for (int b = 7; b >= 2; --b)
            bits = (bits << 8) | block[b];
        for (int i = 0; i < 16; ++i)
            alphaWords[i] = alphas[(bits >> (3 * i)) & 7] << kByteShift[3];
    }
    for (int y = 0; y < 4; ++y)
    {
        const unsigned int codes = indices >> (8 * y);
        uint32_t row[4] = {words[codes & 3], words[(codes >> 2) & 3], words[(codes >> 4) & 3], words[(codes >> 6) & 3]};
        if (kind != AlphaKind::None)
            for (int x = 0; x < 4; ++x)
                row[x] |= alphaWords[4 * y + x];
        std::memcpy(pixels + y * rowBytes, row, sizeof row);
    }
}

// Decodes the blocks of a width x height image; edge blocks are clipped.
template <AlphaKind kind>
void decodeImage(const unsigned char* in, unsigned char* out, unsigned int width, unsigned int height)
{
    const size_t blockBytes = kind == AlphaKind::None ? 8 : 16;
    const size_t rowBytes = static_cast<size_t>(width) * 4;
    unsigned char clipped[64];
    for (unsigned int by = 0; by < height; by += 4)
    {
        unsigned char* row = out + by * rowBytes;
        const unsigned int rows = height - by < 4 ? height - by : 4;
        for (unsigned int bx = 0; bx < width; bx += 4, in += blockBytes)
        {
            const unsigned int columns = width - bx < 4 ? width - bx : 4;
            if (rows == 4 && columns == 4)
            {
                decodeBlock<kind>(in, row + static_cast<size_t>(bx) * 4, rowBytes);
                continue;
            }
            decodeBlock<kind>(in, clipped, 16);
            for (unsigned int y = 0; y < rows; ++y)
                std::memcpy(row + y * rowBytes + static_cast<size_t>(bx) * 4, clipped + 16 * y,
                            static_cast<size_t>(columns) * 4);
        }
    }
}

} // namespace

void storeAlpha(unsigned int* pixels, unsigned short* block, int stride)
{
    BlockPixels pixelBlock;
    loadBlock(reinterpret_cast<const unsigned char*>(pixels), static_cast<size_t>(stride) * 4, pixelBlock);
    explicitAlpha(pixelBlock.alpha, reinterpret_cast<unsigned char*>(block));
}

void storeInterpolatedAlpha(unsigned int* pixels, unsigned int* block, int stride)
{
    BlockPixels pixelBlock;
    loadBlock(reinterpret_cast<const unsigned char*>(pixels), static_cast<size_t>(stride) * 4, pixelBlock);
    interpolatedAlpha(pixelBlock.alpha, reinterpret_cast<unsigned char*>(block));
}

int countColours(float* red, float* green, float* blue, unsigned short* colours)
{
    unsigned int keys[16];
    for (int i = 0; i < 16; ++i)
        keys[i] = keyOf(static_cast<unsigned int>(red[i]), static_cast<unsigned int>(green[i]),
                        static_cast<unsigned int>(blue[i]));
    unsigned int found[2];
    const int count = countKeys(keys, found);
    colours[0] = static_cast<unsigned short>(found[0]);
    if (count > 1)
        colours[1] = static_cast<unsigned short>(found[1]);
    return count;
}

bool canHavePunchThrough(unsigned int* alphas)
{
    return anyBelow128(alphas);
}

unsigned int DXTCompress(const void* source, void* destination, const unsigned int& width,
                         const unsigned int& height, const unsigned int& format)
{
    if (!source || !destination)
        return format == 1 ? (width * height) >> 1 : width * height;

    const unsigned int paddedWidth = width + ((0u - width) & 3u);
    const unsigned int paddedHeight = height + ((0u - height) & 3u);
    const unsigned int* pixels = static_cast<const unsigned int*>(source);
    std::vector<unsigned int> padded;
    if (paddedWidth != width || paddedHeight != height)
    {
        padded.resize(static_cast<size_t>(paddedWidth) * paddedHeight);
        const unsigned int extraColumns = paddedWidth - width, extraRows = paddedHeight - height;
        for (unsigned int y = 0; y < height; ++y)
        {
            unsigned int* row = padded.data() + static_cast<size_t>(y) * paddedWidth;
            std::memcpy(row, pixels + static_cast<size_t>(y) * width, static_cast<size_t>(width) * 4);
            // Repeats the last columns as a run; a width of 1 repeats column 0.
            for (unsigned int x = width; x < paddedWidth; ++x)
                row[x] = row[x >= extraColumns ? x - extraColumns : 0];
        }
        for (unsigned int y = height; y < paddedHeight; ++y)
        {
            const unsigned int from = y >= extraRows ? y - extraRows : 0;
            std::memcpy(padded.data() + static_cast<size_t>(y) * paddedWidth,
                        padded.data() + static_cast<size_t>(from) * paddedWidth, static_cast<size_t>(paddedWidth) * 4);
        }
        pixels = padded.data();
    }

    const bool dxt1 = format == 1;
    const bool explicitAlphaBlocks = format == 2 || format == 3;
    const size_t rowBytes = static_cast<size_t>(paddedWidth) * 4;
    const unsigned char* rows = reinterpret_cast<const unsigned char*>(pixels);
    unsigned char* out = static_cast<unsigned char*>(destination);
    BlockPixels block;
    for (unsigned int by = 0; by < paddedHeight; by += 4)
    {
        for (unsigned int bx = 0; bx < paddedWidth; bx += 4)
        {
            loadBlock(rows + by * rowBytes + static_cast<size_t>(bx) * 4, rowBytes, block);
            if (!dxt1)
            {
                if (explicitAlphaBlocks)
                    explicitAlpha(block.alpha, out);
                else
                    interpolatedAlpha(block.alpha, out);
                out += 8;
            }
            compressColour(block, dxt1, out);
            out += 8;
        }
    }
    const unsigned int total = paddedWidth * paddedHeight;
    return dxt1 ? total >> 1 : total;
}

unsigned int DXTDecompress(const void* source, void* destination, const unsigned int& width,
                           const unsigned int& height, const unsigned int& format)
{
    if (!source || !destination)
        return width * height * 4;
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    if (format == 1)
        decodeImage<AlphaKind::None>(in, out, width, height);
    else if (format == 2 || format == 3)
        decodeImage<AlphaKind::Explicit>(in, out, width, height);
    else
        decodeImage<AlphaKind::Interpolated>(in, out, width, height);
    return width * height * 4;
}

} // namespace orbtexture
