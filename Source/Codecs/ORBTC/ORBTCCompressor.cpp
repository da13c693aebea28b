#include "Codecs/ORBTC/ORBTCCompressor.h"

#include <cmath>
#include <new>

#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

namespace
{

size_t checkedArraySize(uint64_t items)
{
    if (items > ORBTCCompressorCore::MaxArrayItems)
        throw std::bad_array_new_length();
    return static_cast<size_t>(items);
}

inline uint32_t packedValue(const Pixel<unsigned char>& p)
{
    return uint32_t(p.red) | (uint32_t(p.green) << 8) | (uint32_t(p.blue) << 16) | (uint32_t(p.alpha) << 24);
}

inline int sq(int v) { return v * v; }

template <int W, int Shift>
void interpolateTile(const Pixel<unsigned char>& P, const Pixel<unsigned char>& Q, const Pixel<unsigned char>& R,
                     const Pixel<unsigned char>& S, Pixel<unsigned char>* tile)
{
    const int p[4] = {P.red, P.green, P.blue, P.alpha};
    const int q[4] = {Q.red, Q.green, Q.blue, Q.alpha};
    const int r[4] = {R.red, R.green, R.blue, R.alpha};
    const int s[4] = {S.red, S.green, S.blue, S.alpha};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < W; ++x)
        {
            int v[4];
            for (int c = 0; c < 4; ++c)
            {
                const int top = W * p[c] + x * (q[c] - p[c]);
                const int bottom = W * r[c] + x * (s[c] - r[c]);
                v[c] = (4 * top + y * (bottom - top)) >> Shift;
            }
            tile[y * W + x] = Pixel<unsigned char>{static_cast<unsigned char>(v[0]), static_cast<unsigned char>(v[1]),
                                                   static_cast<unsigned char>(v[2]), static_cast<unsigned char>(v[3])};
        }
}

} // namespace

void interpolateColours4x4_uint8(const Pixel<unsigned char>& P, const Pixel<unsigned char>& Q,
                                 const Pixel<unsigned char>& R, const Pixel<unsigned char>& S,
                                 Pixel<unsigned char>* tile)
{
    interpolateTile<4, 4>(P, Q, R, S, tile);
}

void interpolateColours8x4_uint8(const Pixel<unsigned char>& P, const Pixel<unsigned char>& Q,
                                 const Pixel<unsigned char>& R, const Pixel<unsigned char>& S,
                                 Pixel<unsigned char>* tile)
{
    interpolateTile<8, 5>(P, Q, R, S, tile);
}

void analyzeEdgesInBlock(Pixel<unsigned char>* tile, float* vertical, float* horizontal)
{
    auto at = [tile](int x, int y, int c) -> int {
        const Pixel<unsigned char>& p = tile[y * 8 + x];
        return c == 0 ? p.red : c == 1 ? p.green : c == 2 ? p.blue : p.alpha;
    };
    int sumH[4] = {0, 0, 0, 0}, sumV[4] = {0, 0, 0, 0};
    for (int y = 1; y <= 2; ++y)
        for (int x = 1; x <= 6; ++x)
            for (int c = 0; c < 4; ++c)
            {
                sumH[c] += (at(x + 1, y - 1, c) - at(x - 1, y - 1, c)) + 2 * (at(x + 1, y, c) - at(x - 1, y, c)) +
                           (at(x + 1, y + 1, c) - at(x - 1, y + 1, c));
                sumV[c] += (at(x - 1, y + 1, c) - at(x - 1, y - 1, c)) + 2 * (at(x, y + 1, c) - at(x, y - 1, c)) +
                           (at(x + 1, y + 1, c) - at(x + 1, y - 1, c));
            }
    float h = 0.0f, v = 0.0f;
    for (int c = 0; c < 4; ++c)
    {
        h += float(sumH[c] < 0 ? -sumH[c] : sumH[c]);
        v += float(sumV[c] < 0 ? -sumV[c] : sumV[c]);
    }
    *horizontal = h;
    *vertical = v;
}

unsigned int wrapBlockIndex(unsigned int size, int index)
{
    return ORBTCCompressorCore::wrapIndex(size, index);
}

ORBTCCompressorCore::ORBTCCompressorCore(const PixelU8* source, unsigned int width, unsigned int height,
                                         unsigned char blockWidth, unsigned char blockHeight)
    : width(width), height(height), blocksX(width / blockWidth), blocksY(height / blockHeight), blockWidth(blockWidth),
      blockHeight(blockHeight), iterations(0), modulationInterval(1)
{
    const size_t pixelCount = checkedArraySize(uint64_t(width) * height);
    const size_t blockCount = checkedArraySize(uint64_t(blocksX) * blocksY);
    pixels.assign(source, source + pixelCount);
    coloursA.resize(blockCount);
    coloursB.resize(blockCount);
    interpolatedA.resize(pixelCount);
    interpolatedB.resize(pixelCount);
}

ORBTCCompressorCore::~ORBTCCompressorCore()
{
    std::vector<PixelU8>().swap(pixels);
    std::vector<PixelU8>().swap(coloursA);
    std::vector<PixelU8>().swap(coloursB);
    std::vector<PixelU8>().swap(interpolatedA);
    std::vector<PixelU8>().swap(interpolatedB);
}

void ORBTCCompressorCore::calculateColoursAB(bool wideSample)
{
    for (unsigned int by = 0; by < blocksY; ++by)
        for (unsigned int bx = 0; bx < blocksX; ++bx)
            calculateColoursABForBlock(bx, by, coloursA[by * blocksX + bx], coloursB[by * blocksX + bx], wideSample);
}

void ORBTCCompressorCore::calculateColoursABForBlock(unsigned int blockX, unsigned int blockY, PixelU8& colourA,
                                                     PixelU8& colourB, bool wideSample)
{
    // Largest sample: twice an 8 x 4 block in each direction.
    PixelU8 samples[16 * 8];
    unsigned int count = 0;
    if (!wideSample)
    {
        const PixelU8* row = &pixels[(size_t(blockY) * blockHeight) * width + size_t(blockX) * blockWidth];
        for (unsigned int y = 0; y < blockHeight; ++y, row += width)
            for (unsigned int x = 0; x < blockWidth; ++x)
                samples[count++] = row[x];
    }
    else
    {
        const int x0 = int(blockX * blockWidth) - blockWidth / 2;
        const int y0 = int(blockY * blockHeight) - blockHeight / 2;
        for (int y = 0; y < 2 * blockHeight; ++y)
        {
            const unsigned int sy = wrapIndex(height, y0 + y);
            for (int x = 0; x < 2 * blockWidth; ++x)
                samples[count++] = pixels[size_t(sy) * width + wrapIndex(width, x0 + x)];
        }
    }
    selectColoursAB_MaxDistance(samples, count, colourA, colourB);
}

void ORBTCCompressorCore::selectColoursAB_MaxDistance(const PixelU8* samples, unsigned int count, PixelU8& colourA,
                                                      PixelU8& colourB) const
{
    if (count == 0)
        return;
    unsigned int bestI = 0, bestJ = 0, bestDistance = 0;
    for (unsigned int i = 0; i < count; ++i)
        for (unsigned int j = i + 1; j < count; ++j)
        {
            const unsigned int d = squareColourDistance(samples[i], samples[j]);
            if (d > bestDistance)
            {
                bestDistance = d;
                bestI = i;
                bestJ = j;
            }
        }

    const PixelU8& pi = samples[bestI];
    const PixelU8& pj = samples[bestJ];
    const unsigned int li = colourLuminance(pi), lj = colourLuminance(pj);
    bool iFirst;
    if (li != lj)
        iFirst = li < lj;
    else
        iFirst = packedValue(pi) < packedValue(pj);
    colourA = iFirst ? pi : pj;
    colourB = iFirst ? pj : pi;
}

void ORBTCCompressorCore::selectColoursAB_Statistical(const PixelU8* samples, unsigned int count, PixelU8& colourA,
                                                      PixelU8& colourB) const
{
    uint64_t sum[4] = {0, 0, 0, 0};
    for (unsigned int i = 0; i < count; ++i)
    {
        sum[0] += samples[i].red;
        sum[1] += samples[i].green;
        sum[2] += samples[i].blue;
        sum[3] += samples[i].alpha;
    }
    int mean[4];
    for (int c = 0; c < 4; ++c)
        mean[c] = count ? int(sum[c] / count) : 0;

    double squares[4] = {0, 0, 0, 0};
    for (unsigned int i = 0; i < count; ++i)
    {
        const int v[4] = {samples[i].red, samples[i].green, samples[i].blue, samples[i].alpha};
        for (int c = 0; c < 4; ++c)
            squares[c] += double(sq(v[c] - mean[c]));
    }
    unsigned char lo[4], hi[4];
    for (int c = 0; c < 4; ++c)
    {
        const double deviation = count ? std::sqrt(squares[c] / count) : 0.0;
        lo[c] = static_cast<unsigned char>(clamp(float(mean[c] - deviation), 0.0f, 255.0f));
        hi[c] = static_cast<unsigned char>(clamp(float(mean[c] + deviation), 0.0f, 255.0f));
    }
    colourA = PixelU8{lo[0], lo[1], lo[2], lo[3]};
    colourB = PixelU8{hi[0], hi[1], hi[2], hi[3]};
}

void ORBTCCompressorCore::refineBlockColours(unsigned int blockX, unsigned int blockY, const float* weights,
                                             float scale, float skipThreshold)
{
    float sumD[4] = {0, 0, 0, 0};
    float sumWD[4] = {0, 0, 0, 0};
    float sumW = 0.0f, sumW2 = 0.0f;
    for (unsigned int y = 0; y < blockHeight; ++y)
    {
        const size_t row = (size_t(blockY) * blockHeight + y) * width + size_t(blockX) * blockWidth;
        for (unsigned int x = 0; x < blockWidth; ++x)
        {
            const float w = weights[y * blockWidth + x];
            const PixelU8& p = pixels[row + x];
            const PixelU8& a = interpolatedA[row + x];
            const PixelU8& b = interpolatedB[row + x];
            const float src[4] = {float(p.red), float(p.green), float(p.blue), float(p.alpha)};
            const float ca[4] = {float(a.red), float(a.green), float(a.blue), float(a.alpha)};
            const float cb[4] = {float(b.red), float(b.green), float(b.blue), float(b.alpha)};
            for (int c = 0; c < 4; ++c)
            {
                const float d = src[c] - (1.0f - w) * ca[c] - w * cb[c];
                sumD[c] += d;
                sumWD[c] += w * d;
            }
            sumW += w;
            sumW2 += w * w;
        }
    }

    float m[4];
    float meanSquare = 0.0f;
    for (int c = 0; c < 4; ++c)
    {
        m[c] = scale * sumD[c];
        meanSquare += m[c] * m[c];
    }
    if (meanSquare < skipThreshold)
        return;

    const float W = scale * sumW;
    const float V = scale * sumW2 - W * W;
    const size_t block = size_t(blockY) * blocksX + blockX;
    PixelU8& colourA = coloursA[block];
    PixelU8& colourB = coloursB[block];
    const float oldA[4] = {float(colourA.red), float(colourA.green), float(colourA.blue), float(colourA.alpha)};
    const float oldB[4] = {float(colourB.red), float(colourB.green), float(colourB.blue), float(colourB.alpha)};
    float newA[4], newB[4];
    if (!(V < 1e-10f))
    {
        // Fit the residual as a line over the weight: the intercept moves A,
        // the value at weight 1 moves B.
        for (int c = 0; c < 4; ++c)
        {
            const float k = (scale * sumWD[c] - W * m[c]) / V;
            const float i = m[c] - W * k;
            newA[c] = oldA[c] + clamp(i, -100.0f, 100.0f);
            newB[c] = oldB[c] + clamp(k + i, -100.0f, 100.0f);
        }
    }
    else
    {
        // All weights alike: shift both colours by the mean residual, then
        // draw them together while keeping their blend at weight W.
        for (int c = 0; c < 4; ++c)
        {
            newA[c] = clamp(oldA[c] + (1.0f - W) * m[c], 0.0f, 255.0f);
            newB[c] = clamp(oldB[c] + W * m[c], 0.0f, 255.0f);
            const float D = newB[c] - newA[c];
            if (std::fabs(D) >= 1.0f)
            {
                newA[c] += 0.5f * W * D;
                newB[c] -= 0.5f * (1.0f - W) * D;
            }
        }
    }
    unsigned char outA[4], outB[4];
    for (int c = 0; c < 4; ++c)
    {
        outA[c] = static_cast<unsigned char>(clamp(newA[c], 0.0f, 255.0f));
        outB[c] = static_cast<unsigned char>(clamp(newB[c], 0.0f, 255.0f));
    }
    colourA = PixelU8{outA[0], outA[1], outA[2], outA[3]};
    colourB = PixelU8{outB[0], outB[1], outB[2], outB[3]};
}

void ORBTCCompressorCore::interpolateColoursAB(TileInterpolator callback, const PixelU8* blockColours, PixelU8* output)
{
    if (blocksX == 0 || blocksY == 0)
        return;
    PixelU8 tile[8 * 4];
    const int bw = blockWidth, bh = blockHeight;
    const int lastX = int(blocksX) - 1, lastY = int(blocksY) - 1;
    for (int by = -1; by <= lastY; ++by)
    {
        const unsigned int y0 = wrapIndex(blocksY, by), y1 = wrapIndex(blocksY, by + 1);
        const int rowStart = by == -1 ? bh / 2 : 0;
        const int rowEnd = by == lastY ? bh / 2 : bh;
        for (int bx = -1; bx <= lastX; ++bx)
        {
            const unsigned int x0 = wrapIndex(blocksX, bx), x1 = wrapIndex(blocksX, bx + 1);
            callback(blockColours[y0 * blocksX + x0], blockColours[y0 * blocksX + x1],
                     blockColours[y1 * blocksX + x0], blockColours[y1 * blocksX + x1], tile);

            // Tile pixel (x, y) lands on image pixel (left + x, top + y); the
            // ranges keep both inside the image, and so every pointer formed.
            const int colStart = bx == -1 ? bw / 2 : 0;
            const int colEnd = bx == lastX ? bw / 2 : bw;
            const int left = (bx + 1) * bw - bw / 2;
            const int top = (by + 1) * bh - bh / 2;
            for (int y = rowStart; y < rowEnd; ++y)
            {
                PixelU8* row = output + size_t(top + y) * width;
                for (int x = colStart; x < colEnd; ++x)
                    row[left + x] = tile[y * bw + x];
            }
        }
    }
}

void ORBTCCompressorCore::interpolateColours(const PixelU8& P, const PixelU8& Q, const PixelU8& R, const PixelU8& S,
                                             unsigned int x, unsigned int y, PixelU8& result) const
{
    const int wx = int(x), wy = int(y);
    const int ux = blockWidth - wx, uy = blockHeight - wy;
    auto channel = [&](int p, int q, int r, int s) {
        return static_cast<unsigned char>((((p * ux + q * wx) * uy) + (r * ux + s * wx) * wy) >> 4);
    };
    result.red = channel(P.red, Q.red, R.red, S.red);
    result.green = channel(P.green, Q.green, R.green, S.green);
    result.blue = channel(P.blue, Q.blue, R.blue, S.blue);
    result.alpha = channel(P.alpha, Q.alpha, R.alpha, S.alpha);
}

void ORBTCCompressorCore::calculateImageBlockErrorMeanSquared(const PixelU8* imageBlock, const PixelU8* candidate,
                                                              unsigned int& error) const
{
    unsigned int sum = 0;
    for (unsigned int y = 0; y < blockHeight; ++y)
        for (unsigned int x = 0; x < blockWidth; ++x)
            sum += squareColourDistance(imageBlock[size_t(y) * width + x], candidate[y * blockWidth + x]);
    error = sum;
}

unsigned int ORBTCCompressorCore::squareColourDistance(const PixelU8& a, const PixelU8& b)
{
    return unsigned(sq(a.red - b.red) + sq(a.green - b.green) + sq(a.blue - b.blue) + sq(a.alpha - b.alpha));
}

unsigned int ORBTCCompressorCore::weightedColourDistance(const PixelU8& a, const PixelU8& b)
{
    return unsigned(3 * sq(a.red - b.red) + 4 * sq(a.green - b.green) + 2 * sq(a.blue - b.blue) +
                    3 * sq(a.alpha - b.alpha));
}

unsigned int ORBTCCompressorCore::colourLuminance(const PixelU8& colour)
{
    return (colour.red * 30u + colour.green * 59u + colour.blue * 11u) / 100u;
}

float ORBTCCompressorCore::clamp(float value, float low, float high)
{
    return value < low ? low : (value > high ? high : value);
}

Pixel<float> ORBTCCompressorCore::clamp(const Pixel<float>& value, float low, float high)
{
    return Pixel<float>{clamp(value.red, low, high), clamp(value.green, low, high), clamp(value.blue, low, high),
                        clamp(value.alpha, low, high)};
}

unsigned int ORBTCCompressorCore::wrapIndex(unsigned int size, int index)
{
    return unsigned((index + int(size)) % int(size));
}

unsigned int ORBTCCompressorCore::getTwiddleOffset(unsigned int blocksX, unsigned int blocksY, unsigned int x,
                                                   unsigned int y)
{
    return ORBTCWordIndex(blocksX, blocksY, x, y);
}

void ORBTCCompressorCore::gaussianFilterImage3x3(const PixelU8* source, PixelU8* output, unsigned int imageWidth,
                                                 unsigned int imageHeight, bool copyBorders) const
{
    static const int Weights[3][3] = {{1, 2, 1}, {2, 4, 2}, {1, 2, 1}};
    const size_t w = imageWidth;
    for (unsigned int y = 1; y + 1 < imageHeight; ++y)
        for (unsigned int x = 1; x + 1 < imageWidth; ++x)
        {
            int sum[4] = {0, 0, 0, 0};
            for (int dy = 0; dy < 3; ++dy)
                for (int dx = 0; dx < 3; ++dx)
                {
                    const PixelU8& p = source[(y + dy - 1) * w + x + dx - 1];
                    const int k = Weights[dy][dx];
                    sum[0] += k * p.red;
                    sum[1] += k * p.green;
                    sum[2] += k * p.blue;
                    sum[3] += k * p.alpha;
                }
            output[y * w + x] = PixelU8{static_cast<unsigned char>(sum[0] >> 4), static_cast<unsigned char>(sum[1] >> 4),
                                        static_cast<unsigned char>(sum[2] >> 4), static_cast<unsigned char>(sum[3] >> 4)};
        }
    if (!copyBorders)
        return;
    for (unsigned int y = 0; y < imageHeight; ++y)
        for (unsigned int x = 0; x < imageWidth; ++x)
            if (y < 1 || y + 1 >= imageHeight || x < 1 || x + 1 >= imageWidth)
                output[y * w + x] = source[y * w + x];
}

void ORBTCCompressorCore::gaussianFilterImage5x5(const PixelU8* source, PixelU8* output, unsigned int imageWidth,
                                                 unsigned int imageHeight, bool copyBorders) const
{
    static const int Weights[5][5] = {{2, 4, 5, 4, 2},
                                      {4, 9, 12, 9, 4},
                                      {5, 12, 15, 12, 5},
                                      {4, 9, 12, 9, 4},
                                      {2, 4, 5, 4, 2}};
    const size_t w = imageWidth;
    for (unsigned int y = 2; y + 2 < imageHeight; ++y)
        for (unsigned int x = 2; x + 2 < imageWidth; ++x)
        {
            int sum[4] = {0, 0, 0, 0};
            for (int dy = 0; dy < 5; ++dy)
                for (int dx = 0; dx < 5; ++dx)
                {
                    const PixelU8& p = source[(y + dy - 2) * w + x + dx - 2];
                    const int k = Weights[dy][dx];
                    sum[0] += k * p.red;
                    sum[1] += k * p.green;
                    sum[2] += k * p.blue;
                    sum[3] += k * p.alpha;
                }
            output[y * w + x] = PixelU8{static_cast<unsigned char>(sum[0] / 159), static_cast<unsigned char>(sum[1] / 159),
                                        static_cast<unsigned char>(sum[2] / 159), static_cast<unsigned char>(sum[3] / 159)};
        }
    if (!copyBorders)
        return;
    for (unsigned int y = 0; y < imageHeight; ++y)
        for (unsigned int x = 0; x < imageWidth; ++x)
            if (y < 2 || y + 2 >= imageHeight || x < 2 || x + 2 >= imageWidth)
                output[y * w + x] = source[y * w + x];
}

bool ORBTCCompressorCore::compress()
{
    for (unsigned int pass = 0; pass < iterations; ++pass)
    {
        optimizeColoursAB(0, blocksX, 0, blocksY);
        interpolateColoursAB();
        if (modulationInterval != 0 && pass % modulationInterval == 0)
            calculateModulations(0, blocksX, 0, blocksY);
    }
    return true;
}

unsigned char ORBTCCompressorCore::nearestStandardCode(const PixelU8& p, const PixelU8& a, const PixelU8& b)
{
    int bestError = 0;
    unsigned char bestCode = 0;
    for (unsigned char code = 0; code < 4; ++code)
    {
        const int w = ORBTCStandardWeights[code];
        auto blend = [w](int ca, int cb) { return (ca * 8 + (cb - ca) * w) / 8; };
        auto square = [](int v) { return v * v; };
        const int error = square(blend(a.red, b.red) - p.red) + square(blend(a.green, b.green) - p.green) +
                          square(blend(a.blue, b.blue) - p.blue) + square(blend(a.alpha, b.alpha) - p.alpha);
        if (code == 0 || error < bestError)
        {
            bestError = error;
            bestCode = code;
        }
    }
    return bestCode;
}

bool ORBTCCompressor::getCompressedData(ORBTCBlockData* output, bool twiddle)
{
    for (unsigned int by = 0; by < blocksY; ++by)
        for (unsigned int bx = 0; bx < blocksX; ++bx)
        {
            const size_t block = size_t(by) * blocksX + bx;
            ORBTCBlockData& word = output[twiddle ? getTwiddleOffset(blocksX, blocksY, bx, by) : block];
            uint32_t modeFlag = 0;
            word.modulationData = blockModulation(block, modeFlag);
            word.colourData = modeFlag;
            word.setColourA(coloursA[block]);
            word.setColourB(coloursB[block]);
        }
    return true;
}

} // namespace orbtexture
