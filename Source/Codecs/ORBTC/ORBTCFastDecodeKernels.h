#ifndef ORBTCFASTDECODEKERNELS_H
#define ORBTCFASTDECODEKERNELS_H

// Internal: the per-row kernels of the ORBTC row decoder, in portable C++,
// SSE2 and AVX2. Every version writes the same bytes.

#include <cstddef>
#include <cstdint>

#include "Tools/ORBTSimd.h"

namespace orbtexture
{

// One output row.
//
// 'colours' holds numX + 2 columns of 8 lanes, from column -1 to column numX
// (the grid wraps): red, green, blue, 4 x alpha of colour A, then of colour B,
// each the vertical mix (4 - r) x upper + r x lower of the block colours in
// working precision. 'weights' holds the weight on B of each of the row's
// numX x bw pixels (bits 0-3), bit 4 marking punch-through. 'out' gets numX x
// bw rgba8 pixels.
//
// ORBTCII rows also have 'hard', a byte a block, bit 0 set when the tile of
// the block's left half is hard, bit 1 when the one of its right half is, and
// 'own', the block's own colours in the lanes of 'colours' (4 x working
// precision), which hard tiles show. The pixels of 4bpp blocks with their
// modulation flag set in hard tiles come out wrong: the caller writes their
// local palette colours over them.
struct ORBTCRowJob
{
    const int16_t* colours;
    const uint8_t* weights;
    const int16_t* own;
    const uint8_t* hard;
    uint8_t* out;
    uint32_t numX;
    bool twoBpp;
    bool generation2;
};

constexpr uint8_t kORBTCPunchThrough = 0x10;

// The columns each half of block x mixes: x - 1 and x on the left, x and
// x + 1 on the right, or the block's own colours in a hard tile.
struct ORBTCColumns
{
    const int16_t *lx, *ly, *rx, *ry;
};

template <bool Hard>
inline ORBTCColumns ORBTCBlockColumns(const ORBTCRowJob& job, uint32_t x)
{
    const int16_t* c = job.colours + 8 * size_t(x);
    ORBTCColumns columns{c, c + 8, c + 8, c + 16};
    if (Hard)
    {
        const uint32_t hard = job.hard[x];
        const int16_t* own = job.own + 8 * size_t(x);
        if (hard & 1u)
            columns.lx = columns.ly = own;
        if (hard & 2u)
            columns.rx = columns.ry = own;
    }
    return columns;
}

void ORBTCDecodeRowPortable(const ORBTCRowJob& job);

// The 2bpp weights of one output row at sub-row s of its block row: 'upper',
// 'centre' and 'lower' are the weights at the coded pixels of the rows above,
// at and below it (centre with one wrapped pixel on each side: centre[-1],
// centre[n]); 'modes' the sub-mode of each block (0 for flag 0, 1 both axes,
// 2 horizontal, 3 vertical) in bits 0-1 of its byte. Writes numX x 8
// weights, and may write 16 beyond them.
void ORBTCSubModeWeightsPortable(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                                 const uint8_t* modes, uint32_t numX, uint32_t s, uint8_t* weights);

#if ORBT_X86_SIMD
void ORBTCDecodeRowSSE2(const ORBTCRowJob& job);
ORBT_TARGET_AVX2 void ORBTCDecodeRowAVX2(const ORBTCRowJob& job);
// Reads up to 16 bytes beyond each row's numX x 8 bytes, and 'modes' up to
// one block beyond.
void ORBTCSubModeWeightsSSE2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, const uint8_t* modes,
                             uint32_t numX, uint32_t s, uint8_t* weights);
#endif

// The selector of each pixel of a 2bpp block's row, by sub-mode and row
// parity: 0 where the pixel's own code counts, else the sub-mode.
struct ORBTCSelectorTable
{
    uint8_t bytes[4][2][8];
};

constexpr ORBTCSelectorTable ORBTCMakeSelectors()
{
    ORBTCSelectorTable table{};
    for (uint32_t mode = 1; mode < 4; ++mode)
        for (uint32_t odd = 0; odd < 2; ++odd)
            for (uint32_t p = 0; p < 8; ++p)
                table.bytes[mode][odd][p] = uint8_t(((p ^ odd) & 1u) != 0 ? mode : 0);
    return table;
}

inline constexpr ORBTCSelectorTable kORBTCSelectors = ORBTCMakeSelectors();

} // namespace orbtexture

#endif
