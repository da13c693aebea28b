#include "Codecs/ORBTC/ORBTCRefineGrid.h"

#include <algorithm>
#include <cmath>

#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCLocalPalette.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "Tools/ORBTParallel.h"

namespace orbtexture
{

namespace
{

constexpr uint32_t kHardFlag = 0x8000u;
constexpr uint32_t kOpaqueForms = 0x80000000u;

// Field positions (shift, bits) of red, green, blue: [which][opaque][channel].
constexpr uint8_t kFieldShift[2][2][3] = {{{8, 4, 1}, {10, 5, 1}}, {{24, 20, 16}, {26, 21, 16}}};
constexpr uint8_t kFieldBits[2][2][3] = {{{4, 4, 3}, {5, 5, 4}}, {{4, 4, 4}, {5, 5, 5}}};

bool OpaqueForm(uint32_t colourWord, bool generation2, int which)
{
    if (which == 1 || generation2)
        return (colourWord & kOpaqueForms) != 0;
    return (colourWord & kHardFlag) != 0;
}

} // namespace

void RunRefineParts(unsigned count, const std::function<void(unsigned, unsigned)>& body)
{
    ParallelParts(count, std::min(CallThreadCount(), count / 16), body);
}

unsigned ModulationSlots(const ORBTCWord& word, bool twoBpp, ModulationSlot* slots)
{
    unsigned count = 0;
    if (!twoBpp)
    {
        for (unsigned y = 0; y < 4; ++y)
            for (unsigned x = 0; x < 4; ++x)
                slots[count++] = {uint8_t(x), uint8_t(y), uint8_t(2 * (y * 4 + x)), false};
        return count;
    }
    if (!(word.colourData & 1u))
    {
        for (unsigned y = 0; y < 4; ++y)
            for (unsigned x = 0; x < 8; ++x)
                slots[count++] = {uint8_t(x), uint8_t(y), uint8_t(y * 8 + x), true};
        return count;
    }
    // Bit 0 holds the sub-mode, and so does bit 20 when bit 0 is set: those
    // places keep one significant bit, the one above.
    const bool oneAxis = (word.modulationData & 1u) != 0;
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = y & 1; x < 8; x += 2)
        {
            const uint8_t shift = uint8_t(2 * count);
            if (shift == 0 || (shift == 20 && oneAxis))
                slots[count++] = {uint8_t(x), uint8_t(y), uint8_t(shift + 1), true};
            else
                slots[count++] = {uint8_t(x), uint8_t(y), shift, false};
        }
    return count;
}

unsigned ReadSlot(const ORBTCWord& word, const ModulationSlot& slot)
{
    if (slot.oneBit)
        return (word.modulationData >> slot.shift) & 1u ? 3u : 0u;
    return (word.modulationData >> slot.shift) & 3u;
}

void WriteSlot(ORBTCWord& word, const ModulationSlot& slot, unsigned code)
{
    if (slot.oneBit)
        word.modulationData = (word.modulationData & ~(1u << slot.shift)) | (uint32_t(code >= 2) << slot.shift);
    else
        word.modulationData = (word.modulationData & ~(3u << slot.shift)) | ((code & 3u) << slot.shift);
}

void ReadColourFields(uint32_t colourWord, bool generation2, int which, int* values, int* bits)
{
    const int opaque = OpaqueForm(colourWord, generation2, which) ? 1 : 0;
    for (int ch = 0; ch < 3; ++ch)
    {
        bits[ch] = kFieldBits[which][opaque][ch];
        values[ch] = int((colourWord >> kFieldShift[which][opaque][ch]) & ((1u << bits[ch]) - 1u));
    }
}

void WriteColourFields(uint32_t& colourWord, bool generation2, int which, const int* values)
{
    const int opaque = OpaqueForm(colourWord, generation2, which) ? 1 : 0;
    for (int ch = 0; ch < 3; ++ch)
    {
        const uint32_t mask = ((1u << kFieldBits[which][opaque][ch]) - 1u) << kFieldShift[which][opaque][ch];
        colourWord = (colourWord & ~mask) | ((uint32_t(values[ch]) << kFieldShift[which][opaque][ch]) & mask);
    }
}

float FieldToScale(int value, int bits)
{
    const int five = bits == 5 ? value : bits == 4 ? (value << 1) | (value >> 3) : (value << 2) | (value >> 1);
    return float(five) * (255.f / 31.f);
}

int ScaleToField(float value, int bits)
{
    const int top = (1 << bits) - 1;
    const float field = value * (31.f / 255.f) * float(top) / 31.f;
    return std::min(top, std::max(0, int(std::lround(field))));
}

CRefineGrid::CRefineGrid(const uint8_t* source, unsigned width, unsigned height, unsigned realWidth,
                         unsigned realHeight, bool twoBpp, bool generation2, const ORBTCWord* words)
    : m_source(source), m_width(width), m_realWidth(realWidth), m_realHeight(realHeight),
      m_numX(width / (twoBpp ? 8 : 4)), m_numY(height / 4), m_bw(twoBpp ? 8 : 4), m_generation2(generation2),
      m_words(words, words + size_t(width / (twoBpp ? 8 : 4)) * (height / 4)), m_order(m_words.size())
{
    for (unsigned y = 0; y < m_numY; ++y)
        for (unsigned x = 0; x < m_numX; ++x)
            m_order[y * m_numX + x] = generation2 ? y * m_numX + x : ORBTCWordIndex(m_numX, m_numY, x, y);
}

void CRefineGrid::TileBlocks(unsigned tile, unsigned* blocks) const
{
    const unsigned i = tile % m_numX, j = tile / m_numX;
    const unsigned x0 = (i + m_numX - 1) % m_numX, y0 = (j + m_numY - 1) % m_numY;
    blocks[0] = y0 * m_numX + x0;
    blocks[1] = y0 * m_numX + i;
    blocks[2] = j * m_numX + x0;
    blocks[3] = j * m_numX + i;
}

unsigned CRefineGrid::BlockTiles(unsigned block, unsigned* tiles) const
{
    const unsigned bx = block % m_numX, by = block / m_numX;
    unsigned count = 0;
    for (unsigned dy = 0; dy < 2; ++dy)
        for (unsigned dx = 0; dx < 2; ++dx)
        {
            const unsigned tile = ((by + dy) % m_numY) * m_numX + (bx + dx) % m_numX;
            if (std::find(tiles, tiles + count, tile) == tiles + count)
                tiles[count++] = tile;
        }
    return count;
}

void CRefineGrid::TilePixel(unsigned tile, unsigned c, unsigned r, unsigned& x, unsigned& y) const
{
    const unsigned i = tile % m_numX, j = tile / m_numX, half = m_bw / 2;
    const unsigned x0 = (i + m_numX - 1) % m_numX, y0 = (j + m_numY - 1) % m_numY;
    x = c < half ? x0 * m_bw + half + c : i * m_bw + c - half;
    y = r < 2 ? y0 * 4 + 2 + r : j * 4 + r - 2;
}

void CRefineGrid::BlockPixel(unsigned block, unsigned x, unsigned y, unsigned& tile, unsigned& index) const
{
    const unsigned bx = block % m_numX, by = block / m_numX, half = m_bw / 2;
    const unsigned i = x < half ? bx : (bx + 1) % m_numX, j = y < 2 ? by : (by + 1) % m_numY;
    tile = j * m_numX + i;
    const unsigned c = x < half ? x + half : x - half, r = y < 2 ? y + 2 : y - 2;
    index = r * m_bw + c;
}

void CRefineGrid::DecodeTile(unsigned tile, uint8_t (*out)[4]) const
{
    unsigned blocks[4];
    TileBlocks(tile, blocks);
    const ORBTCWord quad[4] = {word(blocks[0]), word(blocks[1]), word(blocks[2]), word(blocks[3])};
    const int bpp = twoBpp() ? 2 : 4;
    if (!m_generation2)
    {
        Pixel32 pixels[32];
        orbtcGetDecompressedPixels(quad[0], quad[1], quad[2], quad[3], pixels, uint8_t(bpp));
        for (unsigned k = 0; k < 4 * m_bw; ++k)
        {
            out[k][0] = pixels[k].red;
            out[k][1] = pixels[k].green;
            out[k][2] = pixels[k].blue;
            out[k][3] = pixels[k].alpha;
        }
        return;
    }

    DecodeWordTile(quad, true, bpp, out);
}

bool CRefineGrid::TileColours(unsigned tile, Pixel128S* upA, Pixel128S* upB) const
{
    unsigned blocks[4];
    TileBlocks(tile, blocks);
    Pixel32 a[4], b[4];
    for (int k = 0; k < 4; ++k)
        ExpandColours(word(blocks[k]).colourData, m_generation2, a[k], b[k]);
    const int bpp = twoBpp() ? 2 : 4;
    if (!m_generation2)
    {
        interpolateColours(a[0], a[1], a[2], a[3], upA, uint8_t(bpp));
        interpolateColours(b[0], b[1], b[2], b[3], upB, uint8_t(bpp));
        return false;
    }
    const bool hard = (word(blocks[0]).colourData & kHardFlag) != 0;
    InterpolateColours(a, hard, bpp, upA);
    InterpolateColours(b, hard, bpp, upB);
    return hard;
}

void CRefineGrid::TilePixelErrors(unsigned tile, RefineError* errors) const
{
    uint8_t decoded[32][4];
    DecodeTile(tile, decoded);
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < m_bw; ++c)
        {
            unsigned x, y;
            TilePixel(tile, c, r, x, y);
            errors[r * m_bw + c] = Counted(x, y) ? PixelError(SourcePixel(x, y), decoded[r * m_bw + c]) : RefineError{};
        }
}

RefineError CRefineGrid::TileError(unsigned tile) const
{
    RefineError errors[32], total;
    TilePixelErrors(tile, errors);
    for (unsigned k = 0; k < 4 * m_bw; ++k)
        total += errors[k];
    return total;
}

void CRefineGrid::TileCoefficients(unsigned tile, float (*coefficients)[8]) const
{
    unsigned blocks[4];
    TileBlocks(tile, blocks);
    const int bpp = twoBpp() ? 2 : 4, bw = int(m_bw), half = bw / 2;
    const bool hard = m_generation2 && (word(blocks[0]).colourData & kHardFlag) != 0;
    int codes[16][8] = {};
    int modes[16][8] = {};
    for (int k = 0; k < 4; ++k)
        UnpackExtendedModulations(word(blocks[k]), (k & 1) * bw, (k >> 1) * 4, bpp, codes, modes);
    const float area = float(4 * bw);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < bw; ++c)
        {
            float* out = coefficients[r * bw + c];
            std::fill(out, out + 8, 0.f);
            const int x = c + half, y = r + 2;
            if (hard && bpp == 4 && (c | r) != 0 && modes[x][y])
            {
                const uint32_t index = LocalPaletteMap[(r * 4 + c) * 4 + codes[x][y]] & 7u;
                out[2 * LocalPaletteBlock(index) + LocalPaletteColour(index)] = 1.f;
                continue;
            }
            int mod = GetModulationValue(codes, modes, x, y, bpp, hard);
            if (mod > ORBTCAlphaZeroOffset && m_generation2)
                continue;
            mod = ORBTCBlendWeight(mod);
            float weights[4];
            if (hard)
            {
                std::fill(weights, weights + 4, 0.f);
                weights[(c >= half ? 1 : 0) + (r >= 2 ? 2 : 0)] = 1.f;
            }
            else
            {
                weights[0] = float((bw - c) * (4 - r)) / area;
                weights[1] = float(c * (4 - r)) / area;
                weights[2] = float((bw - c) * r) / area;
                weights[3] = float(c * r) / area;
            }
            for (int k = 0; k < 4; ++k)
            {
                out[2 * k] = weights[k] * float(8 - mod) / 8.f;
                out[2 * k + 1] = weights[k] * float(mod) / 8.f;
            }
        }
}

} // namespace orbtexture
