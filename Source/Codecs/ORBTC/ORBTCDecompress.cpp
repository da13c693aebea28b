#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCFastDecode.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

#include <cstring>
#include <new>

namespace orbtexture
{

namespace
{

uint8_t expand4(uint32_t v) { return static_cast<uint8_t>((v << 1) | (v >> 3)); }
uint8_t expand3(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 1)); }

inline uint32_t readLE32(const unsigned char* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

inline ORBTCWord readWord(const unsigned char* data, uint32_t index)
{
    const unsigned char* p = data + size_t(index) * 8;
    return ORBTCWord{readLE32(p), readLE32(p + 4)};
}

inline int32_t upscaledChannel(int32_t p, int32_t q, int32_t r, int32_t s, int c, int row, int bw)
{
    const int32_t top = bw * p + c * (q - p);
    const int32_t bottom = bw * r + c * (s - r);
    return 4 * top + row * (bottom - top);
}

inline uint8_t blend(int32_t a, int32_t b, int mod) { return static_cast<uint8_t>((a * (8 - mod) + b * mod) / 8); }

} // namespace

Pixel32 ORBTCExpandColourA(uint32_t colourData)
{
    Pixel32 c;
    if (colourData & 0x8000u)
    {
        c.red = static_cast<uint8_t>((colourData >> 10) & 0x1f);
        c.green = static_cast<uint8_t>((colourData >> 5) & 0x1f);
        c.blue = expand4((colourData >> 1) & 0xf);
        c.alpha = 15;
    }
    else
    {
        c.red = expand4((colourData >> 8) & 0xf);
        c.green = expand4((colourData >> 4) & 0xf);
        c.blue = expand3((colourData >> 1) & 0x7);
        c.alpha = static_cast<uint8_t>(((colourData >> 12) & 0x7) << 1);
    }
    return c;
}

Pixel32 ORBTCExpandColourB(uint32_t colourData)
{
    Pixel32 c;
    if (colourData & 0x80000000u)
    {
        c.red = static_cast<uint8_t>((colourData >> 26) & 0x1f);
        c.green = static_cast<uint8_t>((colourData >> 21) & 0x1f);
        c.blue = static_cast<uint8_t>((colourData >> 16) & 0x1f);
        c.alpha = 15;
    }
    else
    {
        c.red = expand4((colourData >> 24) & 0xf);
        c.green = expand4((colourData >> 20) & 0xf);
        c.blue = expand4((colourData >> 16) & 0xf);
        c.alpha = static_cast<uint8_t>(((colourData >> 28) & 0x7) << 1);
    }
    return c;
}

void unpackModulations(const ORBTCWord& word, int offsetX, int offsetY, int (*modulationValues)[8],
                       int (*modulationModes)[8], unsigned char bpp)
{
    uint32_t bits = word.modulationData;
    const bool flag = (word.colourData & 1u) != 0;

    if (bpp == 2)
    {
        if (!flag)
        {
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < 8; ++x)
                {
                    modulationModes[offsetX + x][offsetY + y] = 0;
                    modulationValues[offsetX + x][offsetY + y] = (bits >> (y * 8 + x)) & 1u ? 3 : 0;
                }
            return;
        }

        int mode = 1;
        if (bits & 1u)
            mode = (bits & (1u << 20)) ? 3 : 2;

        // The sub-mode bits carry no code: bit 20 takes bit 21 (one-axis modes
        // only), bit 0 always takes bit 1.
        if (bits & 1u)
            bits = (bits & ~(1u << 20)) | ((bits >> 1) & (1u << 20));
        bits = (bits & ~1u) | ((bits >> 1) & 1u);

        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 8; ++x)
            {
                modulationModes[offsetX + x][offsetY + y] = mode;
                if (((x ^ y) & 1) == 0)
                    modulationValues[offsetX + x][offsetY + y] = (bits >> (y * 8 + (x & ~1))) & 3u;
            }
        return;
    }

    const int* weights = flag ? ORBTCPunchthroughWeights : ORBTCStandardWeights;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            modulationValues[offsetX + x][offsetY + y] = weights[(bits >> (2 * (y * 4 + x))) & 3u];
}

void interpolateColours(Pixel32 P, Pixel32 Q, Pixel32 R, Pixel32 S, Pixel128S* out, unsigned char bpp)
{
    const int bw = bpp == 2 ? 8 : 4;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < bw; ++c)
        {
            const int32_t vr = upscaledChannel(P.red, Q.red, R.red, S.red, c, r, bw);
            const int32_t vg = upscaledChannel(P.green, Q.green, R.green, S.green, c, r, bw);
            const int32_t vb = upscaledChannel(P.blue, Q.blue, R.blue, S.blue, c, r, bw);
            const int32_t va = upscaledChannel(P.alpha, Q.alpha, R.alpha, S.alpha, c, r, bw);
            Pixel128S& o = out[r * bw + c];
            if (bpp == 2)
            {
                o.red = (vr >> 7) + (vr >> 2);
                o.green = (vg >> 7) + (vg >> 2);
                o.blue = (vb >> 7) + (vb >> 2);
                o.alpha = (va >> 5) + (va >> 1);
            }
            else
            {
                o.red = (vr >> 6) + (vr >> 1);
                o.green = (vg >> 6) + (vg >> 1);
                o.blue = (vb >> 6) + (vb >> 1);
                o.alpha = (va >> 4) + va;
            }
        }
}

void orbtcGetDecompressedPixels(const ORBTCWord& P, const ORBTCWord& Q, const ORBTCWord& R, const ORBTCWord& S,
                                Pixel32* out, unsigned char bpp)
{
    const int bw = bpp == 2 ? 8 : 4;
    const int half = bw / 2;

    int values[16][8] = {};
    int modes[16][8] = {};
    unpackModulations(P, 0, 0, values, modes, bpp);
    unpackModulations(Q, bw, 0, values, modes, bpp);
    unpackModulations(R, 0, 4, values, modes, bpp);
    unpackModulations(S, bw, 4, values, modes, bpp);

    Pixel128S upA[32];
    Pixel128S upB[32];
    interpolateColours(ORBTCExpandColourA(P.colourData), ORBTCExpandColourA(Q.colourData),
                       ORBTCExpandColourA(R.colourData), ORBTCExpandColourA(S.colourData),
                       upA, bpp);
    interpolateColours(ORBTCExpandColourB(P.colourData), ORBTCExpandColourB(Q.colourData),
                       ORBTCExpandColourB(R.colourData), ORBTCExpandColourB(S.colourData),
                       upB, bpp);

    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < bw; ++c)
        {
            const int x = c + half;
            const int y = r + 2;
            int mod;
            if (bpp == 2)
            {
                const int m = modes[x][y];
                const int* weights = ORBTCStandardWeights;
                if (m == 0 || ((x ^ y) & 1) == 0)
                    mod = weights[values[x][y]];
                else if (m == 1)
                    mod = (weights[values[x][y - 1]] + weights[values[x][y + 1]] + weights[values[x - 1][y]] +
                           weights[values[x + 1][y]] + 2) / 4;
                else if (m == 2)
                    mod = (weights[values[x - 1][y]] + weights[values[x + 1][y]] + 1) / 2;
                else
                    mod = (weights[values[x][y - 1]] + weights[values[x][y + 1]] + 1) / 2;
            }
            else
            {
                mod = values[x][y];
            }

            const bool punchThrough = mod > ORBTCAlphaZeroOffset;
            mod = ORBTCBlendWeight(mod);

            const Pixel128S& a = upA[r * bw + c];
            const Pixel128S& b = upB[r * bw + c];
            Pixel32& o = out[r * bw + c];
            o.red = blend(a.red, b.red, mod);
            o.green = blend(a.green, b.green, mod);
            o.blue = blend(a.blue, b.blue, mod);
            o.alpha = punchThrough ? 0 : blend(a.alpha, b.alpha, mod);
        }
}

int ORBTDecompressORBTCPlain(const void* compressedData, int twoBitMode, int width, int height, unsigned char* result)
{
    const bool twoBit = twoBitMode == 1;
    const unsigned char bpp = twoBit ? 2 : 4;
    const int bw = twoBit ? 8 : 4;
    const int half = bw / 2;

    const int trueWidth = width > (twoBit ? 16 : 8) ? width : (twoBit ? 16 : 8);
    const int trueHeight = height > 8 ? height : 8;

    unsigned char* target = result;
    const bool padded = trueWidth != width || trueHeight != height;
    if (padded)
    {
        target = new (std::nothrow) unsigned char[size_t(trueWidth) * size_t(trueHeight) * 4];
        if (!target)
            return 0;
    }

    const unsigned char* data = static_cast<const unsigned char*>(compressedData);
    const uint32_t numX = uint32_t(trueWidth / bw);
    const uint32_t numY = uint32_t(trueHeight / 4);
    const size_t stride = size_t(trueWidth) * 4;

    Pixel32 tile[32];
    for (uint32_t j = 0; j < numY; ++j)
        for (uint32_t i = 0; i < numX; ++i)
        {
            const uint32_t x0 = (i + numX - 1) % numX;
            const uint32_t x1 = i;
            const uint32_t y0 = (j + numY - 1) % numY;
            const uint32_t y1 = j;

            const ORBTCWord P = readWord(data, ORBTCWordIndex(numX, numY, x0, y0));
            const ORBTCWord Q = readWord(data, ORBTCWordIndex(numX, numY, x1, y0));
            const ORBTCWord R = readWord(data, ORBTCWordIndex(numX, numY, x0, y1));
            const ORBTCWord S = readWord(data, ORBTCWordIndex(numX, numY, x1, y1));
            orbtcGetDecompressedPixels(P, Q, R, S, tile, bpp);

            // Each quadrant of the tile lands in the block whose centre it touches.
            for (int r = 0; r < 4; ++r)
            {
                const size_t row = r < 2 ? size_t(y0) * 4 + 2 + r : size_t(y1) * 4 + (r - 2);
                for (int c = 0; c < bw; ++c)
                {
                    const size_t col = c < half ? size_t(x0) * bw + half + c : size_t(x1) * bw + (c - half);
                    unsigned char* px = target + row * stride + col * 4;
                    const Pixel32& t = tile[r * bw + c];
                    px[0] = t.red;
                    px[1] = t.green;
                    px[2] = t.blue;
                    px[3] = t.alpha;
                }
            }
        }

    if (padded)
    {
        // Only the decoded part: pixels beyond the whole blocks stay as they were.
        const size_t columns = size_t(width) < size_t(numX) * bw ? size_t(width) : size_t(numX) * bw;
        const int rows = height < int(numY) * 4 ? height : int(numY) * 4;
        if (width > 0)
            for (int y = 0; y < rows; ++y)
                std::memcpy(result + size_t(y) * size_t(width) * 4, target + size_t(y) * stride, columns * 4);
        delete[] target;
    }

    const long long pixels = static_cast<long long>(trueWidth) * trueHeight;
    return static_cast<int>(twoBit ? pixels / 4 : pixels / 2);
}

int ORBTDecompressORBTC(const void* compressedData, int twoBitMode, int width, int height, unsigned char* result)
{
    const bool twoBit = twoBitMode == 1;
    const int bw = twoBit ? 8 : 4;
    const int trueWidth = width > (twoBit ? 16 : 8) ? width : (twoBit ? 16 : 8);
    const int trueHeight = height > 8 ? height : 8;

    ORBTCFastSurface surface;
    surface.words = static_cast<const unsigned char*>(compressedData);
    surface.numX = uint32_t(trueWidth / bw);
    surface.numY = uint32_t(trueHeight / 4);
    surface.twoBpp = twoBit;
    surface.output = result;
    surface.stride = width > 0 ? size_t(width) * 4 : 0;
    // Pixels beyond the whole blocks are not written.
    surface.width = width > 0 ? uint32_t(width < trueWidth / bw * bw ? width : trueWidth / bw * bw) : 0;
    surface.height = height > 0 ? uint32_t(height < trueHeight / 4 * 4 ? height : trueHeight / 4 * 4) : 0;
    if (!ORBTCDecodeSurface(surface))
        return 0;

    const long long pixels = static_cast<long long>(trueWidth) * trueHeight;
    return static_cast<int>(twoBit ? pixels / 4 : pixels / 2);
}

} // namespace orbtexture
