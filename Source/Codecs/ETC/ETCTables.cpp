// Constant tables of the ETC family.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

const int compressParams[16][4] = {
    {-8, -2, 2, 8},         {-8, -2, 2, 8},         {-17, -5, 5, 17},     {-17, -5, 5, 17},
    {-29, -9, 9, 29},       {-29, -9, 9, 29},       {-42, -13, 13, 42},   {-42, -13, 13, 42},
    {-60, -18, 18, 60},     {-60, -18, 18, 60},     {-80, -24, 24, 80},   {-80, -24, 24, 80},
    {-106, -33, 33, 106},   {-106, -33, 33, 106},   {-183, -47, 47, 183}, {-183, -47, 47, 183},
};

const int compressParamsFast[8][4] = {
    {-8, -2, 2, 8},     {-17, -5, 5, 17},   {-29, -9, 9, 29},     {-42, -13, 13, 42},
    {-60, -18, 18, 60}, {-80, -24, 24, 80}, {-106, -33, 33, 106}, {-183, -47, 47, 183},
};

const int unscramble[4] = {2, 3, 1, 0};
const int scramble[4] = {3, 2, 0, 1};

const int mod[8][4] = {
    {2, 8, -2, -8},     {5, 17, -5, -17},   {9, 29, -9, -29},     {13, 42, -13, -42},
    {18, 60, -18, -60}, {24, 80, -24, -80}, {33, 106, -33, -106}, {47, 183, -47, -183},
};

const int table59T[8] = {3, 6, 11, 16, 23, 32, 41, 64};
const int table58H[8] = {3, 6, 11, 16, 23, 32, 41, 64};

// Negative halves of the 16 EAC modifier tables.
#define ORBT_EAC_NEGATIVE                                                                                            \
    {                                                                                                                \
        {-15, -9, -6, -3}, {-13, -10, -7, -3}, {-13, -8, -5, -2}, {-13, -6, -4, -2}, {-12, -8, -6, -3},              \
            {-11, -9, -7, -3}, {-11, -8, -7, -4}, {-11, -8, -5, -3}, {-10, -8, -6, -2}, {-10, -8, -5, -2},           \
            {-10, -8, -4, -2}, {-10, -7, -5, -2}, {-10, -7, -4, -3}, {-10, -3, -2, -1}, {-9, -8, -6, -4},            \
            {-9, -7, -5, -3}                                                                                         \
    }

const int alphaBase[16][4] = ORBT_EAC_NEGATIVE;

namespace
{

constexpr int eacNegative[16][4] = ORBT_EAC_NEGATIVE;

// The generated tables below are spelled out by index through these
// repeaters: ORBT_REPn(F, i) expands to F(i), F(i + 1), ..., F(i + n - 1),
// each followed by a comma.
#define ORBT_REP1(F, i) F(i),
#define ORBT_REP2(F, i) ORBT_REP1(F, i) ORBT_REP1(F, (i) + 1)
#define ORBT_REP4(F, i) ORBT_REP2(F, i) ORBT_REP2(F, (i) + 2)
#define ORBT_REP8(F, i) ORBT_REP4(F, i) ORBT_REP4(F, (i) + 4)
#define ORBT_REP16(F, i) ORBT_REP8(F, i) ORBT_REP8(F, (i) + 8)
#define ORBT_REP32(F, i) ORBT_REP16(F, i) ORBT_REP16(F, (i) + 16)
#define ORBT_REP64(F, i) ORBT_REP32(F, i) ORBT_REP32(F, (i) + 32)
#define ORBT_REP128(F, i) ORBT_REP64(F, i) ORBT_REP64(F, (i) + 64)
#define ORBT_REP256(F, i) ORBT_REP128(F, i) ORBT_REP128(F, (i) + 128)
#define ORBT_REP512(F, i) ORBT_REP256(F, i) ORBT_REP256(F, (i) + 256)
// 511 entries from 0.
#define ORBT_REP511(F)                                                                                               \
    ORBT_REP256(F, 0) ORBT_REP128(F, 256) ORBT_REP64(F, 384) ORBT_REP32(F, 448) ORBT_REP16(F, 480)                 \
        ORBT_REP8(F, 496) ORBT_REP4(F, 504) ORBT_REP2(F, 508) ORBT_REP1(F, 510)

constexpr unsigned int squareAt(int index, unsigned int weight)
{
    return static_cast<unsigned int>((index - 255) * (index - 255)) * weight;
}

constexpr int clampAt(int index)
{
    return index < 255 ? 0 : (index > 510 ? 255 : index - 255);
}

// Row m * 16 + t: EAC table t scaled by multiplier m. The negative entries
// run from the smallest magnitude; each positive entry is its negative
// partner's magnitude less 1.
constexpr int alphaAt(int row, int column)
{
    const int multiplier = row / 16;
    const int base = eacNegative[row % 16][3 - column % 4];
    return (column < 4 ? base : -base - 1) * multiplier;
}

} // namespace

#define ORBT_SQUARE(i) squareAt(i, 1u)
#define ORBT_SQUARE_RED(i) squareAt(i, 299u)
#define ORBT_SQUARE_GREEN(i) squareAt(i, 587u)
#define ORBT_SQUARE_BLUE(i) squareAt(i, 114u)
#define ORBT_CLAMP(i) clampAt(i)
#define ORBT_CLAMP_PLUS(i) (clampAt(i) + 255)
#define ORBT_ALPHA_ROW(r)                                                                                            \
    {                                                                                                                \
        alphaAt(r, 0), alphaAt(r, 1), alphaAt(r, 2), alphaAt(r, 3), alphaAt(r, 4), alphaAt(r, 5), alphaAt(r, 6),     \
            alphaAt(r, 7)                                                                                            \
    }

const int alphaTable[256][8] = {ORBT_REP256(ORBT_ALPHA_ROW, 0)};

const unsigned int square_table[511] = {ORBT_REP511(ORBT_SQUARE)};
const unsigned int square_table_percep_red[511] = {ORBT_REP511(ORBT_SQUARE_RED)};
const unsigned int square_table_percep_green[511] = {ORBT_REP511(ORBT_SQUARE_GREEN)};
const unsigned int square_table_percep_blue[511] = {ORBT_REP511(ORBT_SQUARE_BLUE)};

const int clamp_table[768] = {ORBT_REP512(ORBT_CLAMP, 0) ORBT_REP256(ORBT_CLAMP, 512)};
const int clamp_table_plus_255[768] = {ORBT_REP512(ORBT_CLAMP_PLUS, 0) ORBT_REP256(ORBT_CLAMP_PLUS, 512)};

#undef ORBT_ALPHA_ROW
#undef ORBT_EAC_NEGATIVE
#undef ORBT_CLAMP_PLUS
#undef ORBT_CLAMP
#undef ORBT_SQUARE_BLUE
#undef ORBT_SQUARE_GREEN
#undef ORBT_SQUARE_RED
#undef ORBT_SQUARE
#undef ORBT_REP511
#undef ORBT_REP512
#undef ORBT_REP256
#undef ORBT_REP128
#undef ORBT_REP64
#undef ORBT_REP32
#undef ORBT_REP16
#undef ORBT_REP8
#undef ORBT_REP4
#undef ORBT_REP2
#undef ORBT_REP1

} // namespace orbtexture
