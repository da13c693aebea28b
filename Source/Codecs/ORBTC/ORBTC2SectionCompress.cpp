#include "Codecs/ORBTC/ORBTC2SectionCompress.h"

#include <cmath>
#include <cstdint>

#include "Codecs/ORBTC/ORBTCIIBlockData.h"

namespace orbtexture
{

namespace
{

typedef Pixel<unsigned char> PixelU8;

const int BlockPixels = 16;

// Punch-through codes: the blend at weight 4, with and without alpha 0.
const unsigned char HalfCode = 1;
const unsigned char TransparentCode = 2;
// The three levels of a punch-through block's line, by 2t rounded, as codes:
// the middle level has the high bit alone, code 2, which decodes with alpha 0.
const unsigned char LineLevelCodes[3] = {0, 2, 3};

bool isExtremeAlpha(unsigned char alpha)
{
    return alpha == 0 || alpha > 254;
}

bool sameColour(const PixelU8& a, const PixelU8& b)
{
    return a.red == b.red && a.green == b.green && a.blue == b.blue &&
           (a.alpha == b.alpha || (isExtremeAlpha(a.alpha) && isExtremeAlpha(b.alpha)));
}

bool samePixel(const PixelU8& a, const PixelU8& b)
{
    return a.red == b.red && a.green == b.green && a.blue == b.blue && a.alpha == b.alpha;
}

uint32_t packCodes(const unsigned char* codes)
{
    uint32_t word = 0;
    for (int i = 0; i < BlockPixels; ++i)
        word |= uint32_t(codes[i] & 3) << (2 * i);
    return word;
}

void channels(const PixelU8& p, float* out)
{
    out[0] = p.red;
    out[1] = p.green;
    out[2] = p.blue;
    out[3] = p.alpha;
}

PixelU8 toPixel(const float* v)
{
    unsigned char c[4];
    for (int k = 0; k < 4; ++k)
        c[k] = static_cast<unsigned char>(v[k] < 0.0f ? 0.0f : (v[k] > 255.0f ? 255.0f : v[k]));
    return PixelU8{c[0], c[1], c[2], c[3]};
}

// The two ends of the block's principal axis through its mean, as colours.
void lineEnds(const PixelU8* block, PixelU8& colourA, PixelU8& colourB)
{
    float px[BlockPixels][4];
    float mean[4] = {0, 0, 0, 0};
    for (int i = 0; i < BlockPixels; ++i)
    {
        channels(block[i], px[i]);
        for (int c = 0; c < 4; ++c)
            mean[c] += px[i][c];
    }
    for (int c = 0; c < 4; ++c)
        mean[c] *= 0.0625f;

    float covariance[4][4] = {};
    for (int i = 0; i < BlockPixels; ++i)
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                covariance[r][c] += (px[i][r] - mean[r]) * (px[i][c] - mean[c]);

    // Power iteration from the channel of the greatest variance.
    int widest = 0;
    for (int c = 1; c < 4; ++c)
        if (covariance[c][c] > covariance[widest][widest])
            widest = c;
    float axis[4] = {0, 0, 0, 0};
    axis[widest] = 1.0f;
    const int MaxSteps = 32;
    for (int step = 0; step < MaxSteps; ++step)
    {
        float next[4] = {0, 0, 0, 0};
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                next[r] += covariance[r][c] * axis[c];
        const float length = std::sqrt(next[0] * next[0] + next[1] * next[1] + next[2] * next[2] + next[3] * next[3]);
        if (length == 0.0f)
        {
            // No spread: both ends at the mean.
            for (int c = 0; c < 4; ++c)
                axis[c] = 0.0f;
            break;
        }
        const float scale = 1.0f / length;
        float change = 0.0f;
        for (int c = 0; c < 4; ++c)
        {
            next[c] *= scale;
            change += (next[c] - axis[c]) * (next[c] - axis[c]);
            axis[c] = next[c];
        }
        if (std::sqrt(change) < 0.00001f)
            break;
    }

    float lowest = 0.0f, highest = 0.0f;
    for (int i = 0; i < BlockPixels; ++i)
    {
        float t = 0.0f;
        for (int c = 0; c < 4; ++c)
            t += (px[i][c] - mean[c]) * axis[c];
        if (i == 0 || t < lowest)
            lowest = t;
        if (i == 0 || t > highest)
            highest = t;
    }
    float low[4], high[4];
    for (int c = 0; c < 4; ++c)
    {
        low[c] = mean[c] + axis[c] * lowest;
        high[c] = mean[c] + axis[c] * highest;
    }
    colourA = toPixel(low);
    colourB = toPixel(high);
}

// Codes of pixels by their place t on the line from colour A (0) to colour B
// (1); a line of no length puts every pixel at A.
void lineCodes(const PixelU8* block, const PixelU8& colourA, const PixelU8& colourB, bool punchthrough,
               unsigned char* codes)
{
    float a[4], b[4], d[4];
    channels(colourA, a);
    channels(colourB, b);
    float lengthSquared = 0.0f;
    for (int c = 0; c < 4; ++c)
    {
        d[c] = b[c] - a[c];
        lengthSquared += d[c] * d[c];
    }
    for (int i = 0; i < BlockPixels; ++i)
    {
        if (punchthrough && block[i].alpha == 0)
        {
            codes[i] = TransparentCode;
            continue;
        }
        float p[4];
        channels(block[i], p);
        float t = 0.0f;
        if (lengthSquared > 0.0f)
        {
            for (int c = 0; c < 4; ++c)
                t += (p[c] - a[c]) * d[c];
            t /= lengthSquared;
        }
        if (punchthrough)
        {
            int level = int(2.0f * t + 0.5f);
            level = level < 0 ? 0 : (level > 2 ? 2 : level);
            codes[i] = LineLevelCodes[level];
        }
        else
            codes[i] = t < 0.1875f ? 0 : (t < 0.5f ? 1 : (t < 0.8175f ? 2 : 3));
    }
}

void compressBlock(PixelU8* block, ORBTCIIBlockData& word)
{
    PixelU8 colours[2];
    const int count = countColours(block, colours);
    const bool punchthrough = hasBlockPThrough(block);
    unsigned char codes[BlockPixels];
    PixelU8 colourA, colourB;
    if (count == 1)
    {
        colourA = colourB = colours[0];
        for (int i = 0; i < BlockPixels; ++i)
            codes[i] = !punchthrough ? 0 : (block[i].alpha == 0 ? TransparentCode : HalfCode);
    }
    else if (count == 2)
    {
        colourA = colours[0];
        colourB = colours[1];
        for (int i = 0; i < BlockPixels; ++i)
            codes[i] = punchthrough && block[i].alpha == 0 ? TransparentCode : (samePixel(block[i], colourB) ? 3 : 0);
    }
    else
    {
        lineEnds(block, colourA, colourB);
        lineCodes(block, colourA, colourB, punchthrough, codes);
    }
    word.modulationData = packCodes(codes);
    word.colourData = punchthrough ? ORBTCIIBlockData::ModulationFlag : ORBTCIIBlockData::HardFlag;
    word.setColours(colourA, colourB);
}

} // namespace

int countColours(Pixel<unsigned char>* block, Pixel<unsigned char>* colours)
{
    int count = 0;
    for (int i = 0; i < BlockPixels; ++i)
    {
        const PixelU8& p = block[i];
        int match = -1;
        for (int k = 0; k < count && match < 0; ++k)
            if (sameColour(colours[k], p))
                match = k;
        if (match < 0)
        {
            if (count == 2)
                return 3;
            colours[count++] = p;
        }
        else if (colours[match].alpha == 0 && p.alpha != 0)
            colours[match] = p;
    }
    return count;
}

bool hasBlockPThrough(Pixel<unsigned char>* block)
{
    for (int i = 0; i < BlockPixels; ++i)
        if (block[i].alpha == 0)
            return true;
    return false;
}

int ORBTC2SectionCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height)
{
    const PixelU8* pixels = static_cast<const PixelU8*>(input);
    ORBTCIIBlockData* words = static_cast<ORBTCIIBlockData*>(output);
    const unsigned int blocksX = width / 4, blocksY = height / 4;
    PixelU8 block[BlockPixels];
    for (unsigned int by = 0; by < blocksY; ++by)
        for (unsigned int bx = 0; bx < blocksX; ++bx)
        {
            for (unsigned int y = 0; y < 4; ++y)
                for (unsigned int x = 0; x < 4; ++x)
                    block[y * 4 + x] = pixels[(size_t(by) * 4 + y) * width + size_t(bx) * 4 + x];
            compressBlock(block, *words++);
        }
    return 1;
}

} // namespace orbtexture
