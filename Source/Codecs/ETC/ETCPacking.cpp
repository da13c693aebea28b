// Word order and the packed forms of the T, H and planar modes.
//
// A packed form holds a mode's fields without the bits that make the base
// colour overflow; stuffing places the fields at their block positions and
// chooses the free bits so that the red, green or blue test of the decoder
// (5-bit base plus 3-bit signed delta outside 0..31) selects the mode.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

unsigned int big_endian(unsigned int word)
{
    return (word >> 24) | ((word >> 8) & 0xff00u) | ((word << 8) & 0xff0000u) | (word << 24);
}

namespace
{

// Free bits for a channel that must overflow: 'low' holds the two low bits
// of the 5-bit base, 'deltaLow' the two low bits of the 3-bit delta. The
// base's three high bits and the delta's sign bit are chosen so that the
// sum is above 31 (high bits 111, delta positive) or below 0 (high bits
// 000, delta negative).
void overflowBits(unsigned int low, unsigned int deltaLow, unsigned int& high3, unsigned int& sign)
{
    if (low + deltaLow >= 4)
    {
        high3 = 7;
        sign = 0;
    }
    else
    {
        high3 = 0;
        sign = 1;
    }
}

// Free top bit of a 5-bit base whose channel must not overflow, for its
// 3-bit delta field: with a negative delta the base is raised by 16.
unsigned int noOverflowBit(unsigned int deltaField)
{
    return (deltaField & 4u) ? 1u : 0u;
}

void stuff59(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2, unsigned int diff)
{
    const unsigned int r0 = (packed1 >> 23) & 15, g0 = (packed1 >> 19) & 15, b0 = (packed1 >> 15) & 15;
    const unsigned int r1 = (packed1 >> 11) & 15, g1 = (packed1 >> 7) & 15, b1 = (packed1 >> 3) & 15;
    const unsigned int distance = packed1 & 7;

    unsigned int high3, sign;
    overflowBits(r0 >> 2, r0 & 3, high3, sign);

    word1 = (high3 << 29) | ((r0 >> 2) << 27) | (sign << 26) | ((r0 & 3) << 24) | (g0 << 20) | (b0 << 16) |
            (r1 << 12) | (g1 << 8) | (b1 << 4) | ((distance >> 1) << 2) | (diff << 1) | (distance & 1);
    word2 = packed2;
}

void stuff58(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2, unsigned int diff)
{
    const unsigned int r0 = (packed1 >> 22) & 15, g0 = (packed1 >> 18) & 15, b0 = (packed1 >> 14) & 15;
    const unsigned int r1 = (packed1 >> 10) & 15, g1 = (packed1 >> 6) & 15, b1 = (packed1 >> 2) & 15;
    const unsigned int da = (packed1 >> 1) & 1, db = packed1 & 1;

    // Red: base R0 (plus the free bit 31), delta the three high bits of G0.
    const unsigned int redTop = noOverflowBit(g0 >> 1);
    // Green: base low bits G0 bit 0 and B0 bit 3, delta low bits B0 bits 2..1.
    unsigned int high3, sign;
    overflowBits(((g0 & 1) << 1) | (b0 >> 3), (b0 & 7) >> 1, high3, sign);

    word1 = (redTop << 31) | (r0 << 27) | ((g0 >> 1) << 24) | (high3 << 21) | ((g0 & 1) << 20) | ((b0 >> 3) << 19) |
            (sign << 18) | ((b0 & 7) << 15) | (r1 << 11) | (g1 << 7) | (b1 << 3) | (da << 2) | (diff << 1) | db;
    word2 = packed2;
}

} // namespace

void stuff59bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2)
{
    stuff59(packed1, packed2, word1, word2, 1);
}

void stuff59bitsDiffFalse(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2)
{
    stuff59(packed1, packed2, word1, word2, 0);
}

void stuff58bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2)
{
    stuff58(packed1, packed2, word1, word2, 1);
}

void stuff58bitsDiffFalse(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2)
{
    stuff58(packed1, packed2, word1, word2, 0);
}

void stuff57bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2)
{
    const unsigned int ro = (packed1 >> 26) & 63, go = (packed1 >> 19) & 127, bo = (packed1 >> 13) & 63;
    const unsigned int rh = (packed1 >> 7) & 63, gh = packed1 & 127;
    const unsigned int bh = (packed2 >> 26) & 63, rv = (packed2 >> 20) & 63, gv = (packed2 >> 13) & 127;
    const unsigned int bv = (packed2 >> 7) & 63;

    // Red and green must stay in range, blue must overflow.
    const unsigned int redTop = noOverflowBit(((ro & 3) << 1) | (go >> 6));
    const unsigned int greenTop = noOverflowBit(((go & 3) << 1) | (bo >> 5));
    unsigned int high3, sign;
    overflowBits((bo >> 3) & 3, (bo & 7) >> 1, high3, sign);

    word1 = (redTop << 31) | (ro << 25) | ((go >> 6) << 24) | (greenTop << 23) | ((go & 63) << 17) |
            ((bo >> 5) << 16) | (high3 << 13) | (((bo >> 3) & 3) << 11) | (sign << 10) | ((bo & 7) << 7) |
            ((rh >> 1) << 2) | (1u << 1) | (rh & 1);
    word2 = (gh << 25) | (bh << 19) | (rv << 13) | (gv << 6) | bv;
}

void unstuff59bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2)
{
    const unsigned int r0 = (((word1 >> 27) & 3) << 2) | ((word1 >> 24) & 3);
    const unsigned int distance = (((word1 >> 2) & 3) << 1) | (word1 & 1);
    packed1 = (r0 << 23) | (((word1 >> 20) & 15) << 19) | (((word1 >> 16) & 15) << 15) |
              (((word1 >> 12) & 15) << 11) | (((word1 >> 8) & 15) << 7) | (((word1 >> 4) & 15) << 3) | distance;
    packed2 = word2;
}

void unstuff58bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2)
{
    const unsigned int r0 = (word1 >> 27) & 15;
    const unsigned int g0 = (((word1 >> 24) & 7) << 1) | ((word1 >> 20) & 1);
    const unsigned int b0 = (((word1 >> 19) & 1) << 3) | ((word1 >> 15) & 7);
    packed1 = (r0 << 22) | (g0 << 18) | (b0 << 14) | (((word1 >> 11) & 15) << 10) | (((word1 >> 7) & 15) << 6) |
              (((word1 >> 3) & 15) << 2) | (((word1 >> 2) & 1) << 1) | (word1 & 1);
    packed2 = word2;
}

void unstuff57bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2)
{
    const unsigned int ro = (word1 >> 25) & 63;
    const unsigned int go = (((word1 >> 24) & 1) << 6) | ((word1 >> 17) & 63);
    const unsigned int bo = (((word1 >> 16) & 1) << 5) | (((word1 >> 11) & 3) << 3) | ((word1 >> 7) & 7);
    const unsigned int rh = (((word1 >> 2) & 31) << 1) | (word1 & 1);
    const unsigned int gh = (word2 >> 25) & 127, bh = (word2 >> 19) & 63, rv = (word2 >> 13) & 63;
    const unsigned int gv = (word2 >> 6) & 127, bv = word2 & 63;
    packed1 = (ro << 26) | (go << 19) | (bo << 13) | (rh << 7) | gh;
    packed2 = (bh << 26) | (rv << 20) | (gv << 13) | (bv << 7);
}

} // namespace orbtexture
