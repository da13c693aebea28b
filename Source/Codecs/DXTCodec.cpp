#include "Codecs/DXTCodec.h"
#include "Codecs/DXTBlock.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

namespace orbtexture
{

namespace
{

inline unsigned int alphaOf(const unsigned int* pixel)
{
    return reinterpret_cast<const unsigned char*>(pixel)[3];
}

inline unsigned short keyOf(unsigned int r, unsigned int g, unsigned int b)
{
    return static_cast<unsigned short>(((r & 0xF8u) << 8) | ((g & 0xFCu) << 3) | (b >> 3));
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

inline unsigned short keyOfPoint(const float point[3], const float mean[3])
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

// Colour half of a block: colour words and the 32-bit index word.
void compressColour(const unsigned int* pixels, int stride, bool dxt1, unsigned char* out)
{
    float red[16], green[16], blue[16];
    unsigned int alphas[16];
    unsigned int slots[16] = {};
    for (int i = 0; i < 16; ++i)
    {
        const unsigned char* p = reinterpret_cast<const unsigned char*>(pixels + (i >> 2) * stride + (i & 3));
        red[i] = p[0];
        green[i] = p[1];
        blue[i] = p[2];
        alphas[i] = p[3];
    }
    unsigned short colours[2] = {0, 0};
    const int count = countColours(red, green, blue, colours);
    const bool punch = dxt1 && canHavePunchThrough(alphas);
    unsigned int color0 = 0, color1 = 0;

    if (count < 3)
    {
        const unsigned int first = colours[0];
        const unsigned int second = count == 2 ? colours[1] : colours[0];
        const unsigned int lower = first < second ? first : second;
        const unsigned int upper = first < second ? second : first;
        if (count == 1)
        {
            color0 = punch ? 0 : first;
            color1 = punch ? first : 0;
        }
        else
        {
            color0 = punch ? lower : upper;
            color1 = punch ? upper : lower;
        }
        for (int i = 0; i < 16; ++i)
        {
            unsigned int code = 0;
            const unsigned int key = keyOf(static_cast<unsigned int>(red[i]), static_cast<unsigned int>(green[i]),
                                           static_cast<unsigned int>(blue[i]));
            if (punch && alphas[i] < 128)
                code = 3;
            else if (count == 1)
                code = punch ? 1 : 0;
            else if (punch)
                code = key == upper ? 1 : 0;
            else
                code = key == lower ? 1 : 0;
            slots[i] = code << 30;
        }
    }
    else
    {
        float mean[3] = {0, 0, 0};
        for (int i = 0; i < 16; ++i)
        {
            mean[0] += red[i];
            mean[1] += green[i];
            mean[2] += blue[i];
        }
        for (int c = 0; c < 3; ++c)
            mean[c] *= 0.0625f;
        for (int i = 0; i < 16; ++i)
        {
            red[i] -= mean[0];
            green[i] -= mean[1];
            blue[i] -= mean[2];
        }
        float axis[3];
        principalAxis(red, green, blue, axis);

        float low = 0, high = 0;
        float point0[3] = {0, 0, 0}, point1[3] = {0, 0, 0};
        for (int i = 0; i < 16; ++i)
        {
            const float t = red[i] * axis[0] + green[i] * axis[1] + blue[i] * axis[2];
            if (t > high)
            {
                high = t;
                for (int c = 0; c < 3; ++c)
                    point1[c] = t * axis[c];
            }
            if (low > t)
            {
                low = t;
                for (int c = 0; c < 3; ++c)
                    point0[c] = t * axis[c];
            }
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
        if (key0 != key1)
        {
            float direction[3];
            float length2 = 0;
            for (int c = 0; c < 3; ++c)
            {
                direction[c] = point1[c] - point0[c];
                length2 += direction[c] * direction[c];
            }
            for (int c = 0; c < 3; ++c)
                direction[c] /= length2;
            static const unsigned int fourCodes[4] = {0, 2, 3, 1};
            static const unsigned int threeCodes[3] = {0, 2, 1};
            for (int i = 0; i < 16; ++i)
            {
                if (punch && alphas[i] < 128)
                {
                    slots[i] = 3u << 30;
                    continue;
                }
                const float s = (red[i] - point0[0]) * direction[0] + (green[i] - point0[1]) * direction[1] +
                                (blue[i] - point0[2]) * direction[2];
                // Positions outside the table leave the slot as it is.
                const float f = (punch ? 2.0f : 3.0f) * s + 0.5f;
                const int limit = punch ? 3 : 4;
                if (f > -1.0f && f < static_cast<float>(limit))
                {
                    const int index = static_cast<int>(f);
                    slots[i] = (punch ? threeCodes[index] : fourCodes[index]) << 30;
                }
            }
        }
    }
    unsigned int indices = 0;
    for (int i = 0; i < 16; ++i)
        indices = (indices >> 2) | slots[i];
    putWord16(out, color0);
    putWord16(out + 2, color1);
    putWord32(out + 4, indices);
}

// Decodes one block to 16 R, G, B, A pixels in raster order.
void decodeBlock(const unsigned char* block, unsigned int format, unsigned char* pixels)
{
    const bool dxt1 = format == 1;
    const bool explicitAlpha = format == 2 || format == 3;
    const unsigned char* colour = dxt1 ? block : block + 8;
    const unsigned int c0 = colour[0] | (colour[1] << 8);
    const unsigned int c1 = colour[2] | (colour[3] << 8);
    unsigned int table[4][4];
    const unsigned int ends[2] = {c0, c1};
    for (int e = 0; e < 2; ++e)
    {
        const unsigned int r = (ends[e] >> 11) & 31, g = (ends[e] >> 5) & 63, b = ends[e] & 31;
        table[e][0] = (r << 3) | (r >> 2);
        table[e][1] = (g << 2) | (g >> 4);
        table[e][2] = (b << 3) | (b >> 2);
    }
    const bool fourColours = explicitAlpha || c0 > c1;
    for (int c = 0; c < 3; ++c)
    {
        if (fourColours)
        {
            table[2][c] = (21 * table[0][c] + 11 * table[1][c]) >> 5;
            table[3][c] = (11 * table[0][c] + 21 * table[1][c]) >> 5;
        }
        else
        {
            table[2][c] = (table[0][c] + table[1][c]) >> 1;
            table[3][c] = 0;
        }
    }
    for (int e = 0; e < 4; ++e)
        table[e][3] = dxt1 && (e < 3 || fourColours) ? 255 : 0;

    const unsigned int indices = colour[4] | (colour[5] << 8) | (colour[6] << 16) |
                                 (static_cast<unsigned int>(colour[7]) << 24);
    for (int i = 0; i < 16; ++i)
    {
        const unsigned int* entry = table[(indices >> (2 * i)) & 3];
        for (int c = 0; c < 4; ++c)
            pixels[4 * i + c] = static_cast<unsigned char>(entry[c]);
    }
    if (dxt1)
        return;
    if (explicitAlpha)
    {
        for (int i = 0; i < 16; ++i)
        {
            const unsigned int row = block[2 * (i >> 2)] | (block[2 * (i >> 2) + 1] << 8);
            const unsigned int a = (row >> (4 * (i & 3))) & 15;
            pixels[4 * i + 3] = static_cast<unsigned char>((a << 4) | a);
        }
        return;
    }
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
        pixels[4 * i + 3] = static_cast<unsigned char>(alphas[(bits >> (3 * i)) & 7]);
}

} // namespace

void storeAlpha(unsigned int* pixels, unsigned short* block, int stride)
{
    unsigned char* out = reinterpret_cast<unsigned char*>(block);
    for (int y = 0; y < 4; ++y)
    {
        unsigned int row = 0;
        for (int x = 0; x < 4; ++x)
            row |= (alphaOf(pixels + y * stride + x) >> 4) << (4 * x);
        putWord16(out + 2 * y, row);
    }
}

void storeInterpolatedAlpha(unsigned int* pixels, unsigned int* block, int stride)
{
    unsigned int alphas[16];
    unsigned int alpha0 = 0, alpha1 = 255;
    for (int i = 0; i < 16; ++i)
    {
        alphas[i] = alphaOf(pixels + (i >> 2) * stride + (i & 3));
        alpha0 = alphas[i] > alpha0 ? alphas[i] : alpha0;
        alpha1 = alphas[i] < alpha1 ? alphas[i] : alpha1;
    }
    unsigned char* out = reinterpret_cast<unsigned char*>(block);
    std::memset(out, 0, 8);
    out[0] = static_cast<unsigned char>(alpha0);
    out[1] = static_cast<unsigned char>(alpha1);
    if (alpha0 == alpha1)
        return;
    static const unsigned int codes[8] = {1, 7, 6, 5, 4, 3, 2, 0};
    const float scale = 7.0f / static_cast<float>(alpha0 - alpha1);
    unsigned long long bits = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float t = static_cast<float>(alphas[i] - alpha1) * scale;
        int step = 0;
        while (step < 7 && !(t < static_cast<float>(step) + 0.5f))
            ++step;
        bits |= static_cast<unsigned long long>(codes[step]) << (16 + 3 * i);
    }
    for (int b = 2; b < 8; ++b)
        out[b] = static_cast<unsigned char>(bits >> (8 * b));
}

int countColours(float* red, float* green, float* blue, unsigned short* colours)
{
    int count = 1;
    colours[0] = keyOf(static_cast<unsigned int>(red[0]), static_cast<unsigned int>(green[0]),
                       static_cast<unsigned int>(blue[0]));
    for (int i = 1; i < 16; ++i)
    {
        const unsigned short key = keyOf(static_cast<unsigned int>(red[i]), static_cast<unsigned int>(green[i]),
                                         static_cast<unsigned int>(blue[i]));
        if (key == colours[0] || (count == 2 && key == colours[1]))
            continue;
        if (count == 2)
            return 3;
        colours[1] = key;
        count = 2;
    }
    return count;
}

bool canHavePunchThrough(unsigned int* alphas)
{
    for (int i = 0; i < 16; ++i)
        if (alphas[i] < 128)
            return true;
    return false;
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
    const size_t blockBytes = dxt1 ? 8 : 16;
    unsigned char* out = static_cast<unsigned char*>(destination);
    for (unsigned int by = 0; by < paddedHeight; by += 4)
    {
        for (unsigned int bx = 0; bx < paddedWidth; bx += 4, out += blockBytes)
        {
            unsigned int* block = const_cast<unsigned int*>(pixels + static_cast<size_t>(by) * paddedWidth + bx);
            const int stride = static_cast<int>(paddedWidth);
            if (format == 2 || format == 3)
            {
                unsigned short alpha[4];
                storeAlpha(block, alpha, stride);
                std::memcpy(out, alpha, 8);
            }
            else if (!dxt1)
            {
                unsigned int alpha[2];
                storeInterpolatedAlpha(block, alpha, stride);
                std::memcpy(out, alpha, 8);
            }
            compressColour(block, stride, dxt1, dxt1 ? out : out + 8);
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
    const size_t blockBytes = format == 1 ? 8 : 16;
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    unsigned char decoded[64];
    // Blocks over the padded size are clipped to the image directly.
    for (unsigned int by = 0; by < height; by += 4)
    {
        for (unsigned int bx = 0; bx < width; bx += 4, in += blockBytes)
        {
            decodeBlock(in, format, decoded);
            const unsigned int columns = width - bx < 4 ? width - bx : 4;
            const unsigned int rows = height - by < 4 ? height - by : 4;
            for (unsigned int y = 0; y < rows; ++y)
                std::memcpy(out + ((static_cast<size_t>(by) + y) * width + bx) * 4, decoded + 16 * y,
                            static_cast<size_t>(columns) * 4);
        }
    }
    return width * height * 4;
}

} // namespace orbtexture
