#ifndef ETCFASTDECODE_H
#define ETCFASTDECODE_H

// Whole-surface decoders of the ETC family that write each block straight
// into the output rows. They give the same bytes as the block functions of
// ETCBlockCodec.h; ranges of block rows may run on separate threads.

#include <cstdint>

namespace orbtexture
{

// Bytes of one block of 'format' (8 or 16), or 0 for a format outside the
// family.
unsigned ETCFormatBlockBytes(unsigned format);

// Decodes the block rows [firstRow, endRow) of a width x height surface of
// 'format' in ETCDecompress's layouts. 'input' and 'output' point at the
// surface's first block and first pixel; only pixels inside it are written.
void ETCDecodeBlockRows(const unsigned char* input, unsigned char* output, unsigned width, unsigned height,
                        unsigned format, bool isSigned, uint32_t firstRow, uint32_t endRow);

// The same for ORBTDecompressETC: ETC1 blocks (ETC2 modes read as
// differential blocks whose second colour wraps in 5 bits) to R, G, B, 255.
void ETC1DecodeBlockRowsRGBA(const unsigned char* input, unsigned char* output, unsigned width, unsigned height,
                             uint32_t firstRow, uint32_t endRow);

} // namespace orbtexture

#endif
