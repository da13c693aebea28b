#ifndef DXTDECODE_H
#define DXTDECODE_H

// The fast DXT decoder behind DXTDecompress, and the plain one it must match.

#include <cstdint>

namespace orbtexture
{

// Decodes the block rows [firstRow, endRow) of a width x height image of
// 'format' (1: DXT1, 2 or 3: explicit alpha, anything else interpolated
// alpha) into rgba8 rows packed 'width' pixels apart, clipping edge blocks.
void DXTDecodeBlockRows(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format,
                        unsigned firstRow, unsigned endRow);

// The whole image, split over the call's threads when it is large.
void DXTDecode(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format);

// The plain block-by-block decoder, kept as the reference of the fast one.
void DXTDecodePlain(const uint8_t* in, uint8_t* out, unsigned width, unsigned height, unsigned format);

} // namespace orbtexture

#endif
