#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCFastDecode.h"
#include "Codecs/ORBTC/ORBTCLocalPalette.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"

namespace orbtexture
{

const char* const LocalPaletteIndexNames[8] = {"A of P", "B of P", "A of S", "B of S",
                                               "A of Q", "B of Q", "A of R", "B of R"};

namespace
{

constexpr uint32_t kHardFlag = 0x8000u;
constexpr uint32_t kOpaqueForms = 0x80000000u;

inline uint32_t ReadLE32(const unsigned char* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// 5-bit colour channels and 4-bit alpha to 8 bits.
inline int32_t Expand5(int32_t v) { return (v << 3) | (v >> 2); }
inline int32_t Expand4(int32_t v) { return v * 17; }

} // namespace

// Colours A and B of a colour word in working precision.
void ExpandColours(uint32_t colourWord, bool generation2, Pixel32& a, Pixel32& b)
{
    if (!generation2)
    {
        a = ORBTCExpandColourA(colourWord);
        b = ORBTCExpandColourB(colourWord);
        return;
    }
    // Bit 31 gives A's form too; bit 15 is the hard flag.
    const uint32_t formA = (colourWord & kOpaqueForms) ? kHardFlag : 0u;
    a = ORBTCExpandColourA((colourWord & ~kHardFlag) | formA);
    b = ORBTCExpandColourB(colourWord);
    if (!(colourWord & kOpaqueForms))
        b.alpha = uint8_t(b.alpha + 1);
}

void DecodeWordTile(const ORBTCWord* words, bool generation2, int bitsPerPixel, uint8_t (*out)[4])
{
    const int bw = bitsPerPixel == 2 ? 8 : 4, half = bw / 2;
    const bool hard = generation2 && (words[0].colourData & kHardFlag);

    int codes[16][8] = {};
    int modes[16][8] = {};
    Pixel32 a[4], b[4];
    for (int k = 0; k < 4; ++k)
    {
        UnpackExtendedModulations(words[k], (k & 1) * bw, (k >> 1) * 4, bitsPerPixel, codes, modes);
        ExpandColours(words[k].colourData, generation2, a[k], b[k]);
    }

    Pixel128S upA[32], upB[32];
    InterpolateColours(a, hard, bitsPerPixel, upA);
    InterpolateColours(b, hard, bitsPerPixel, upB);
    uint8_t palette[8][4];
    const bool palettes = hard && bitsPerPixel == 4;
    if (palettes)
        FillLocalPalette(a, b, palette);

    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < bw; ++c)
        {
            const int x = c + half, y = r + 2;
            uint8_t* o = out[r * bw + c];
            // modes holds the modulation flag of the block holding the pixel.
            if (palettes && (c | r) != 0 && modes[x][y])
            {
                resultFromLocalPalette(palette, r * 4 + c, codes[x][y], o);
                continue;
            }
            int mod = GetModulationValue(codes, modes, x, y, bitsPerPixel, hard);
            const bool punchThrough = mod > ORBTCAlphaZeroOffset;
            mod = ORBTCBlendWeight(mod);
            const Pixel128S& pa = upA[r * bw + c];
            const Pixel128S& pb = upB[r * bw + c];
            o[0] = uint8_t((pa.red * (8 - mod) + pb.red * mod) >> 3);
            o[1] = uint8_t((pa.green * (8 - mod) + pb.green * mod) >> 3);
            o[2] = uint8_t((pa.blue * (8 - mod) + pb.blue * mod) >> 3);
            o[3] = uint8_t((pa.alpha * (8 - mod) + pb.alpha * mod) >> 3);
            if (punchThrough)
            {
                o[3] = 0;
                if (generation2)
                    o[0] = o[1] = o[2] = 0;
            }
        }
}

void UnpackExtendedModulations(const ORBTCWord& word, int offsetX, int offsetY, int bitsPerPixel,
                               int (*codes)[8], int (*modes)[8])
{
    if (bitsPerPixel == 2)
    {
        unpackModulations(word, offsetX, offsetY, codes, modes, 2);
        return;
    }
    const int flag = int(word.colourData & 1u);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
        {
            codes[offsetX + x][offsetY + y] = int((word.modulationData >> (2 * (y * 4 + x))) & 3u);
            modes[offsetX + x][offsetY + y] = flag;
        }
}

int GetModulationValue(const int (*codes)[8], const int (*modes)[8], int x, int y, int bitsPerPixel,
                       bool hardTile)
{
    const int* weights = ORBTCStandardWeights;
    if (bitsPerPixel == 4)
        return (modes[x][y] && !hardTile ? ORBTCPunchthroughWeights : weights)[codes[x][y]];

    const int m = modes[x][y];
    if (m == 0 || ((x ^ y) & 1) == 0)
        return weights[codes[x][y]];
    if (m == 1)
        return (weights[codes[x][y - 1]] + weights[codes[x][y + 1]] + weights[codes[x - 1][y]] +
                weights[codes[x + 1][y]] + 2) / 4;
    if (m == 2)
        return (weights[codes[x - 1][y]] + weights[codes[x + 1][y]] + 1) / 2;
    return (weights[codes[x][y - 1]] + weights[codes[x][y + 1]] + 1) / 2;
}

void InterpolateColours(const Pixel32* colours, bool hardTile, int bitsPerPixel, Pixel128S* out)
{
    const unsigned char bpp = bitsPerPixel == 2 ? 2 : 4;
    if (!hardTile)
    {
        interpolateColours(colours[0], colours[1], colours[2], colours[3], out, bpp);
        return;
    }
    const int bw = bpp == 2 ? 8 : 4, half = bw / 2;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < bw; ++c)
        {
            const Pixel32& p = colours[(c >= half ? 1 : 0) + (r >= 2 ? 2 : 0)];
            out[r * bw + c] = Pixel128S{Expand5(p.red), Expand5(p.green), Expand5(p.blue), Expand4(p.alpha)};
        }
}

void FillLocalPalette(const Pixel32* a, const Pixel32* b, uint8_t (*palette)[4])
{
    for (uint32_t index = 0; index < 8; ++index)
    {
        const int block = LocalPaletteBlock(index);
        const Pixel32& p = LocalPaletteColour(index) ? b[block] : a[block];
        palette[index][0] = uint8_t(Expand5(p.red));
        palette[index][1] = uint8_t(Expand5(p.green));
        palette[index][2] = uint8_t(Expand5(p.blue));
        palette[index][3] = uint8_t(Expand4(p.alpha));
    }
}

void resultFromLocalPalette(const uint8_t (*palette)[4], int place, int code, uint8_t* rgba)
{
    const uint32_t index = LocalPaletteMap[place * 4 + code];
    std::memcpy(rgba, palette[index & 7u], 4);
}

int Decompress(const void* words, int /*ignored*/, unsigned int extended, unsigned int format, int bitsPerPixel,
               int width, int height, int channels, int /*debugView*/, unsigned int rowOrder, Bitmap* bitmap)
{
    if (bitsPerPixel == 1)
    {
        // Ends the process: 1 bit a pixel has no words; no entry passes it.
        std::fprintf(stderr, "EXITING! 1BPP UnpackMods not yet implemented!\n");
        std::abort();
    }
    const int bw = bitsPerPixel == 2 ? 8 : 4, half = bw / 2;
    if (!words || !bitmap || (bitsPerPixel != 2 && bitsPerPixel != 4) || format != 4)
        return 0;
    if (width <= 0 || height <= 0 || width % bw != 0 || height % 4 != 0 || width > bitmap->width ||
        height > bitmap->height)
        return 0;

    const bool generation2 = extended != 0;
    const unsigned char* data = static_cast<const unsigned char*>(words);
    const uint32_t numX = uint32_t(width / bw), numY = uint32_t(height / 4);
    auto word = [&](uint32_t x, uint32_t y) {
        const uint32_t index = rowOrder ? y * numX + x : ORBTCWordIndex(numX, numY, x, y);
        const unsigned char* p = data + size_t(index) * 8;
        return ORBTCWord{ReadLE32(p), ReadLE32(p + 4)};
    };

    uint8_t tile[32][4];
    for (uint32_t j = 0; j < numY; ++j)
        for (uint32_t i = 0; i < numX; ++i)
        {
            // The tile runs from the centre of P to the centre of S, wrapping.
            const uint32_t x0 = (i + numX - 1) % numX, y0 = (j + numY - 1) % numY;
            const ORBTCWord quad[4] = {word(x0, y0), word(i, y0), word(x0, j), word(i, j)};
            DecodeWordTile(quad, generation2, bitsPerPixel, tile);
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < bw; ++c)
                {
                    const int x = c < half ? int(x0) * bw + half + c : int(i) * bw + c - half;
                    const int y = r < 2 ? int(y0) * 4 + 2 + r : int(j) * 4 + r - 2;
                    const uint8_t* p = tile[r * bw + c];
                    bitmap_set_pixel_rgba(bitmap, x, y, p[0], p[1], p[2], channels < 4 ? 255 : p[3]);
                }
        }
    return 1;
}

int orbtc_decompress(const void* words, unsigned char* output, unsigned int width, unsigned int height,
                     unsigned int decoder, int is2bpp)
{
    const uint64_t bw = is2bpp == 1 ? 8 : 4;
    const uint64_t paddedWidth = (uint64_t(width) + bw - 1) / bw * bw;
    const uint64_t paddedHeight = (uint64_t(height) + 3) / 4 * 4;
    if (!words || !output || width == 0 || height == 0 || paddedWidth > INT_MAX || paddedHeight > INT_MAX)
        return 0;

    ORBTCFastSurface surface;
    surface.words = static_cast<const unsigned char*>(words);
    surface.numX = uint32_t(paddedWidth / bw);
    surface.numY = uint32_t(paddedHeight / 4);
    surface.twoBpp = is2bpp == 1;
    surface.generation2 = decoder != 0;
    surface.rowOrder = decoder != 0;
    surface.output = output;
    surface.stride = size_t(width) * 4;
    surface.width = width;
    surface.height = height;
    return ORBTCDecodeSurface(surface) ? 1 : 0;
}

} // namespace orbtexture
