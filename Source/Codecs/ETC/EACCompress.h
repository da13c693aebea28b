#ifndef EACCOMPRESS_H
#define EACCOMPRESS_H

// EAC block search: 8-bit alpha blocks (row search over alphaTable) and
// 11-bit blocks (exhaustive search over base, table and multiplier). The
// entry points shared with the rest of the family are in ETCBlockCodec.h.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

// Entries in each of the two 11-bit value tables: 256 bases x 16 tables x
// 16 multipliers x 8 indices.
constexpr int EACValueTableSize = 256 * 16 * 16 * 8;

// Position of one decoded value in the value tables.
inline int getPremulIndex(int base, int table, int multiplier, int index)
{
    return (base << 11) + (table << 7) + multiplier * 8 + index;
}

// Squared error of the 4 x 4 block at (x, y) ('stride' values a pixel, row
// width 'width' pixels) against the candidate (base, table, multiplier),
// each pixel taking its nearest value. Stops as soon as the sum reaches
// 'limit' and then returns limit + 2^30. 'isSigned' is informational: the
// decoded values come from 'values' alone.
double calcError(unsigned short* image, int stride, int x, int y, int width, int base, int table, int multiplier,
                 double limit, const unsigned short* values, bool isSigned);

} // namespace orbtexture

#endif
