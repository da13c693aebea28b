#ifndef ORBTCLOCALPALETTE_H
#define ORBTCLOCALPALETTE_H

// Internal: the local palette of ORBTCII 4bpp tiles whose P block is hard and
// whose pixel's own block has its modulation flag set.

#include <cstdint>

namespace orbtexture
{

// A tile place that never reads the palette.
constexpr uint32_t kLocalPaletteMarker = 0x80000000u;

// Palette index of each code at each tile place: entry (place x 4 + code),
// places row by row from the centre of P (place 0, the marker). Indices: 0 A
// of P, 1 B of P, 2 A of S, 3 B of S, 4 A of Q, 5 B of Q, 6 A of R, 7 B of R.
constexpr uint32_t LocalPaletteMap[64] = {
    kLocalPaletteMarker, kLocalPaletteMarker, kLocalPaletteMarker, kLocalPaletteMarker, // (0, 0)
    0, 1, 4, 5, 0, 1, 4, 5, 0, 1, 4, 5, // (1, 0) to (3, 0)
    0, 1, 6, 7, 0, 1, 4, 7, 0, 1, 4, 5, 2, 1, 4, 5, // row 1
    0, 1, 6, 7, 0, 1, 6, 7, 0, 3, 6, 5, 2, 3, 4, 5, // row 2
    0, 1, 6, 7, 0, 3, 6, 7, 2, 3, 6, 7, 2, 3, 6, 5, // row 3
};

// The tile's block (0 P, 1 Q, 2 R, 3 S) and colour (0 A, 1 B) of a palette
// index.
constexpr int LocalPaletteBlock(uint32_t index)
{
    return index < 2 ? 0 : index < 4 ? 3 : index < 6 ? 1 : 2;
}
constexpr int LocalPaletteColour(uint32_t index)
{
    return int(index & 1);
}

} // namespace orbtexture

#endif
