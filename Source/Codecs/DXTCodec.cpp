#include "Codecs/DXTCodec.h"
#include "Codecs/DXTBlock.h"
#include "Codecs/DXTDecode.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Model/ORBTextureErrors.h"

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
    for (int y = 0; y < 4; ++y)
    {
        const unsigned char* p = pixels + y * rowBytes;
        for (int x = 0; x < 4; ++x, p += 4)
        {
            // Read once: the stores below could alias the source bytes.
            const unsigned int r = p[0], g = p[1], b = p[2], a = p[3];
            const int i = 4 * y + x;
            block.red[i] = static_cast<int>(r);
            block.green[i] = static_cast<int>(g);
            block.blue[i] = static_cast<int>(b);
            block.alpha[i] = a;
            block.key[i] = keyOf(r, g, b);
        }
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

// Colour words and index word of a block of one or two keys.
void fewKeys(const BlockPixels& block, int count, const unsigned int colours[2], bool punch, unsigned char* out)
{
    const unsigned int lower = colours[0] < colours[1] ? colours[0] : colours[1];
    const unsigned int upper = colours[0] < colours[1] ? colours[1] : colours[0];
    unsigned int color0, color1;
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
    unsigned int indices = 0;
    for (int i = 0; i < 16; ++i)
    {
        const unsigned int code = punch && block.alpha[i] < 128 ? 3u : (block.key[i] == one ? 1u : 0u);
        indices |= code << (2 * i);
    }
    putWord16(out, color0);
    putWord16(out + 2, color1);
    putWord32(out + 4, indices);
}

// A block of three or more keys on its way through the principal axis fit.
struct Fit
{
    const BlockPixels* block;
    bool punch;
    unsigned char* out; // colour words and index word
    float mean[3];
    float red[16], green[16], blue[16]; // deviations from the mean
    float covariance[6];                // RR, GG, BB, RG, RB, GB
    float axis[3];
};

// Means, deviations and the unnormalised covariance matrix.
void prepareFit(const BlockPixels& block, bool punch, unsigned char* out, Fit& fit)
{
    fit.block = &block;
    fit.punch = punch;
    fit.out = out;
    // Byte sums stay far below 2^24, so they are exact as float sums would be.
    int sum[3] = {0, 0, 0};
    for (int i = 0; i < 16; ++i)
    {
        sum[0] += block.red[i];
        sum[1] += block.green[i];
        sum[2] += block.blue[i];
    }
    for (int c = 0; c < 3; ++c)
        fit.mean[c] = static_cast<float>(sum[c]) * 0.0625f;
    for (int i = 0; i < 16; ++i)
    {
        fit.red[i] = static_cast<float>(block.red[i]) - fit.mean[0];
        fit.green[i] = static_cast<float>(block.green[i]) - fit.mean[1];
        fit.blue[i] = static_cast<float>(block.blue[i]) - fit.mean[2];
    }
    float rr = 0, gg = 0, bb = 0, rg = 0, rb = 0, gb = 0;
    for (int i = 0; i < 16; ++i)
    {
        rr += fit.red[i] * fit.red[i];
        gg += fit.green[i] * fit.green[i];
        bb += fit.blue[i] * fit.blue[i];
        rg += fit.red[i] * fit.green[i];
        rb += fit.red[i] * fit.blue[i];
        gb += fit.green[i] * fit.blue[i];
    }
    fit.covariance[0] = rr;
    fit.covariance[1] = gg;
    fit.covariance[2] = bb;
    fit.covariance[3] = rg;
    fit.covariance[4] = rb;
    fit.covariance[5] = gb;
}

// Fits whose power iterations run side by side.
constexpr int kLanes = 4;

// For every float d >= 0, sqrt(d) < 1e-5 in float arithmetic exactly when d
// is below this value (checked over all floats).
constexpr float kConverged = 0x1.b7cdfap-34f;

// Principal axes of up to kLanes fits by power iteration from (1, 1, 1). Each
// lane does the arithmetic of its fit alone; running them together overlaps
// their latencies.
void principalAxes(Fit* fits, int count)
{
    if (count == 0)
        return;
    float rr[kLanes], gg[kLanes], bb[kLanes], rg[kLanes], rb[kLanes], gb[kLanes];
    float x[kLanes], y[kLanes], z[kLanes];
    bool done[kLanes];
    for (int l = 0; l < kLanes; ++l)
    {
        const float* m = fits[l < count ? l : 0].covariance; // idle lanes repeat the first
        rr[l] = m[0];
        gg[l] = m[1];
        bb[l] = m[2];
        rg[l] = m[3];
        rb[l] = m[4];
        gb[l] = m[5];
        x[l] = y[l] = z[l] = 1.0f;
        done[l] = l >= count;
    }
    for (int step = 0; step < 100; ++step)
    {
        bool all = true;
        for (int l = 0; l < kLanes; ++l)
        {
            const float nx = rr[l] * x[l] + rg[l] * y[l] + rb[l] * z[l];
            const float ny = rg[l] * x[l] + gg[l] * y[l] + gb[l] * z[l];
            const float nz = rb[l] * x[l] + gb[l] * y[l] + bb[l] * z[l];
            const float length = std::sqrt(nx * nx + ny * ny + nz * nz);
            // A vector the matrix maps to zero would divide by zero: keep the last one.
            const bool zero = !(length > 0.0f) || !std::isfinite(length);
            const float ux = nx / length, uy = ny / length, uz = nz / length;
            const float dx = ux - x[l], dy = uy - y[l], dz = uz - z[l];
            const bool converged = dx * dx + dy * dy + dz * dz < kConverged;
            const bool update = !done[l] && !zero;
            x[l] = update ? ux : x[l];
            y[l] = update ? uy : y[l];
            z[l] = update ? uz : z[l];
            done[l] = done[l] || zero || converged;
            all = all && done[l];
        }
        if (all)
            break;
    }
    for (int l = 0; l < count; ++l)
    {
        fits[l].axis[0] = x[l];
        fits[l].axis[1] = y[l];
        fits[l].axis[2] = z[l];
    }
}

// The index word of a fit between two end points of different keys.
unsigned int fitCodes(const Fit& fit, const float point0[3], const float point1[3])
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
    // Codes by truncated position, two bits each: 0, 2, 3, 1 and 0, 2, 1.
    const float steps = fit.punch ? 2.0f : 3.0f;
    const float limit = fit.punch ? 3.0f : 4.0f;
    const unsigned int table = fit.punch ? 0x18u : 0x78u;
    unsigned int indices = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float s = (fit.red[i] - point0[0]) * direction[0] + (fit.green[i] - point0[1]) * direction[1] +
                        (fit.blue[i] - point0[2]) * direction[2];
        // Positions outside the table keep code 0, as does position 0.
        const float f = steps * s + 0.5f;
        const int index = static_cast<int>(f > -1.0f && f < limit ? f : 0.0f);
        unsigned int code = (table >> (2 * index)) & 3u;
        if (fit.punch && fit.block->alpha[i] < 128)
            code = 3;
        indices |= code << (2 * i);
    }
    return indices;
}

// End points from the extreme projections on the axis, then the codes;
// writes the colour half of the block.
void finishFit(const Fit& fit)
{
    // The end points depend only on the extreme projections, so ties need no order.
    float low = 0, high = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float t = fit.red[i] * fit.axis[0] + fit.green[i] * fit.axis[1] + fit.blue[i] * fit.axis[2];
        high = t > high ? t : high;
        low = t < low ? t : low;
    }
    float point0[3], point1[3];
    for (int c = 0; c < 3; ++c)
    {
        point0[c] = low < 0.0f ? low * fit.axis[c] : 0.0f;
        point1[c] = high > 0.0f ? high * fit.axis[c] : 0.0f;
    }
    unsigned int key0 = keyOfPoint(point0, fit.mean);
    unsigned int key1 = keyOfPoint(point1, fit.mean);
    if (fit.punch ? key0 >= key1 : key0 < key1)
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
    putWord16(fit.out, key0);
    putWord16(fit.out + 2, key1);
    putWord32(fit.out + 4, key0 == key1 ? 0u : fitCodes(fit, point0, point1));
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
    // Codes by the number of thresholds 0.5, 1.5 ... 6.5 at or below t: its
    // integer part, plus one when the fraction (exact, t being below 8)
    // reaches 0.5.
    static const unsigned long long codes[8] = {1, 7, 6, 5, 4, 3, 2, 0};
    const float scale = 7.0f / static_cast<float>(alpha0 - alpha1);
    unsigned long long bits = 0;
    for (int i = 0; i < 16; ++i)
    {
        const float t = static_cast<float>(alphas[i] - alpha1) * scale;
        const int whole = static_cast<int>(t);
        int step = whole + (t - static_cast<float>(whole) >= 0.5f ? 1 : 0);
        step = step < 7 ? step : 7;
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
    if (width == 0 || height == 0)
        SetError(eORBTErrorSize, "DXTCompress: the image is %ux%u, it has no pixels", width, height);
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
    // Blocks go in groups of kLanes along a row: the fits of a group share
    // their power iterations.
    BlockPixels blocks[kLanes];
    Fit fits[kLanes];
    for (unsigned int by = 0; by < paddedHeight; by += 4)
    {
        for (unsigned int bx = 0; bx < paddedWidth; bx += 4 * kLanes)
        {
            const unsigned int remaining = (paddedWidth - bx) / 4;
            const int group = remaining < kLanes ? static_cast<int>(remaining) : kLanes;
            int fitCount = 0;
            for (int g = 0; g < group; ++g)
            {
                BlockPixels& block = blocks[g];
                loadBlock(rows + by * rowBytes + (bx + 4 * static_cast<size_t>(g)) * 4, rowBytes, block);
                if (!dxt1)
                {
                    if (explicitAlphaBlocks)
                        explicitAlpha(block.alpha, out);
                    else
                        interpolatedAlpha(block.alpha, out);
                    out += 8;
                }
                unsigned int colours[2];
                const int count = countKeys(block.key, colours);
                const bool punch = dxt1 && anyBelow128(block.alpha);
                if (count < 3)
                    fewKeys(block, count, colours, punch, out);
                else
                    prepareFit(block, punch, out, fits[fitCount++]);
                out += 8;
            }
            principalAxes(fits, fitCount);
            for (int f = 0; f < fitCount; ++f)
                finishFit(fits[f]);
        }
    }
    const unsigned int total = paddedWidth * paddedHeight;
    return dxt1 ? total >> 1 : total;
}

unsigned int DXTDecompress(const void* source, void* destination, const unsigned int& width,
                           const unsigned int& height, const unsigned int& format)
{
    if (width == 0 || height == 0)
        SetError(eORBTErrorSize, "DXTDecompress: the image is %ux%u, it has no pixels", width, height);
    if (!source || !destination)
        return width * height * 4;
    DXTDecode(static_cast<const uint8_t*>(source), static_cast<uint8_t*>(destination), width, height, format);
    return width * height * 4;
}

void DXTDecodePlain(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format)
{
    if (format == 1)
        decodeImage<AlphaKind::None>(in, out, width, height);
    else if (format == 2 || format == 3)
        decodeImage<AlphaKind::Explicit>(in, out, width, height);
    else
        decodeImage<AlphaKind::Interpolated>(in, out, width, height);
}

} // namespace orbtexture
