#ifndef ORBTCREFINEGRID_H
#define ORBTCREFINEGRID_H

// Internal: a grid of ORBTC or ORBTCII words held for in-place refinement,
// with the exact decoding of its tiles, the error of decoded tiles against a
// source image, the colour fields of a word and its modulation slots.

#include <cstdint>
#include <functional>
#include <vector>

#include "Codecs/ORBTC/ORBTCFormat.h"

namespace orbtexture
{

// Decoded error of a set of pixels: the weighted measure (squared RGB error
// plus the alpha error times 30 where the source alpha is 0 or 255, times 1
// elsewhere, squared) and the plain squared RGB error.
struct RefineError
{
    int64_t weighted = 0;
    int64_t rgb = 0;

    RefineError& operator+=(const RefineError& other)
    {
        weighted += other.weighted;
        rgb += other.rgb;
        return *this;
    }
    RefineError operator-(const RefineError& other) const
    {
        return {weighted - other.weighted, rgb - other.rgb};
    }
    // Lower in one measure and not higher in the other.
    bool Improves(const RefineError& old) const
    {
        return weighted <= old.weighted && rgb <= old.rgb && (weighted < old.weighted || rgb < old.rgb);
    }
};

// The error of one decoded pixel against its source.
inline RefineError PixelError(const uint8_t* source, const uint8_t* decoded)
{
    const int dr = int(source[0]) - decoded[0], dg = int(source[1]) - decoded[1], db = int(source[2]) - decoded[2];
    const int alphaWeight = source[3] == 0 || source[3] == 255 ? 30 : 1;
    const int da = (int(source[3]) - decoded[3]) * alphaWeight;
    const int64_t rgb = int64_t(dr * dr + dg * dg + db * db);
    return {rgb + int64_t(da) * da, rgb};
}

// A stored pixel code of a modulation word: two bits at 'shift', or (when
// 'oneBit') the single bit at 'shift' standing for code 0 or 3.
struct ModulationSlot
{
    uint8_t x, y;
    uint8_t shift;
    bool oneBit;
};

// The slots of 'word' (16 or 32), in the order its pixels are stored.
unsigned ModulationSlots(const ORBTCWord& word, bool twoBpp, ModulationSlot* slots);
// The code held by, and the writing of a code into, one slot. A one-bit slot
// stores 2 and 3 as 3, 0 and 1 as 0.
unsigned ReadSlot(const ORBTCWord& word, const ModulationSlot& slot);
void WriteSlot(ORBTCWord& word, const ModulationSlot& slot, unsigned code);

// The red, green and blue fields of colour A (which 0) or B (1) of a colour
// word, in the form the word gives them, and their widths in bits.
void ReadColourFields(uint32_t colourWord, bool generation2, int which, int* values, int* bits);
void WriteColourFields(uint32_t& colourWord, bool generation2, int which, const int* values);
// A field of 'bits' bits on the 8-bit scale, and the nearest field to an
// 8-bit value.
float FieldToScale(int value, int bits);
int ScaleToField(float value, int bits);

// Runs body(first, end) over contiguous parts of [0, count), one per thread
// of the current call; the calling thread takes the first part.
void RunRefineParts(unsigned count, const std::function<void(unsigned, unsigned)>& body);

class CRefineGrid
{
  public:
    // 'source' is width x height rgba8 pixels, whole blocks; only pixels
    // inside realWidth x realHeight count in errors. 'words' are in the
    // generation's order.
    CRefineGrid(const uint8_t* source, unsigned width, unsigned height, unsigned realWidth, unsigned realHeight,
                bool twoBpp, bool generation2, const ORBTCWord* words);

    unsigned numX() const
    {
        return m_numX;
    }
    unsigned numY() const
    {
        return m_numY;
    }
    unsigned blockWidth() const
    {
        return m_bw;
    }
    bool twoBpp() const
    {
        return m_bw == 8;
    }
    bool generation2() const
    {
        return m_generation2;
    }
    unsigned blockCount() const
    {
        return m_numX * m_numY;
    }

    // Block and tile numbers are y * numX + x.
    ORBTCWord& word(unsigned block)
    {
        return m_words[m_order[block]];
    }
    const ORBTCWord& word(unsigned block) const
    {
        return m_words[m_order[block]];
    }
    const std::vector<ORBTCWord>& words() const
    {
        return m_words;
    }

    // Blocks P, Q, R, S of tile (i, j): from the centre of block (i - 1,
    // j - 1) to the centre of block (i, j), wrapping.
    void TileBlocks(unsigned tile, unsigned* blocks) const;
    // The distinct tiles that a block's word reaches (up to 4).
    unsigned BlockTiles(unsigned block, unsigned* tiles) const;
    // Image pixel (x, y) of tile pixel (c, r).
    void TilePixel(unsigned tile, unsigned c, unsigned r, unsigned& x, unsigned& y) const;
    // The tile and tile pixel of pixel (x, y) of a block.
    void BlockPixel(unsigned block, unsigned x, unsigned y, unsigned& tile, unsigned& index) const;

    // One tile in 8-bit rgba, out[r * bw + c], as the decoder of the
    // generation gives it.
    void DecodeTile(unsigned tile, uint8_t (*out)[4]) const;
    // The error of a tile, and of each of its pixels (0 outside the counted
    // area).
    RefineError TileError(unsigned tile) const;
    void TilePixelErrors(unsigned tile, RefineError* errors) const;
    const uint8_t* SourcePixel(unsigned x, unsigned y) const
    {
        return m_source + (size_t(y) * m_width + x) * 4;
    }
    bool Counted(unsigned x, unsigned y) const
    {
        return x < m_realWidth && y < m_realHeight;
    }

    // The colours A and B of each tile pixel before modulation (bilinear in
    // soft tiles, the holding block's in hard ones), in the decoder's scale,
    // out[r * bw + c]; the pixel decodes to (A (8 - w) + B w) >> 3 for its
    // blend weight w. Returns whether the tile is hard.
    bool TileColours(unsigned tile, Pixel128S* a, Pixel128S* b) const;

    // The weights, for a fixed modulation, of colour A and B of the tile's
    // blocks P, Q, R, S (8 values: A of P, B of P, A of Q, ...) in each
    // decoded colour channel of the tile's pixels, coefficients[pixel][8].
    void TileCoefficients(unsigned tile, float (*coefficients)[8]) const;

  private:
    const uint8_t* m_source;
    unsigned m_width, m_realWidth, m_realHeight;
    unsigned m_numX, m_numY, m_bw;
    bool m_generation2;
    std::vector<ORBTCWord> m_words;
    std::vector<uint32_t> m_order; // block number to word index
};

} // namespace orbtexture

#endif
