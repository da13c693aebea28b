#ifndef ETCEXHAUSTIVE_H
#define ETCEXHAUSTIVE_H

// Exhaustive ETC1 search: every representable base colour of the individual
// (4-bit) and differential (5-bit) modes, with every modifier table. The
// searches read an RGB image (3 bytes a pixel) of row width 'width' at pixel
// (x, y). 'limit' is the best error known: a search reports only a strictly
// better block, leaving word1 and word2 untouched otherwise, and returns the
// error of what it found (the mode's error cap when nothing). Ties go to the
// earlier colour (red outermost, blue innermost) and the earlier table.
//
// The plain forms sum squared channel differences; the Perceptual forms weigh
// them by 299, 587 and 114 (cap 1040400000 instead of 3121200).

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

unsigned int compressBlockIndividualExhaustive(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                               unsigned int& word2, unsigned int limit);
unsigned int compressBlockIndividualExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                         unsigned int& word1, unsigned int& word2, unsigned int limit);
unsigned int compressBlockDifferentialExhaustive(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                                 unsigned int& word2, unsigned int limit);
unsigned int compressBlockDifferentialExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                           unsigned int& word1, unsigned int& word2,
                                                           unsigned int limit);

// Makes the exhaustive searches run their plain form, which evaluates every
// colour below a fixed bound: the same blocks, for tests and benchmarks.
// Process-wide; not for concurrent use with compressions.
void ETCExhaustiveSetPlain(bool plain);
bool ETCExhaustivePlain();
// The best errors of the four sub-blocks (left, right, top, bottom) for one
// 8-bit base colour, over the eight tables. 'precalc*' hold, per channel, per
// value (by its top five bits), per table and pixel of the sub-block, the four
// modifiers' weighted squared errors (see the search); a sub-block stops as soon as its
// error reaches 'limit', and its best stays as it was unless strictly beaten.
void tryalltables_3bittable_all_subblocks_using_precalc(unsigned char* img, unsigned char* colour,
                                                        unsigned int* precalcLeft, unsigned int* precalcRight,
                                                        unsigned int* precalcTop, unsigned int* precalcBottom,
                                                        unsigned int& bestLeft, unsigned int& bestRight,
                                                        unsigned int& bestTop, unsigned int& bestBottom,
                                                        unsigned int limit);

// ETC1 at the exhaustive qualities: the fast block, then the individual and
// differential searches bounded by it; the strictly best of differential,
// individual and fast (in that order of replacement) is kept. 'work' receives
// the fast block decoded. Returns the block's error (plain squares, or the
// perceptual weights in thousandths).
unsigned int compressBlockETC1Exhaustive(unsigned char* img, unsigned char* work, int width, int x, int y,
                                         unsigned int& word1, unsigned int& word2);
unsigned int compressBlockETC1ExhaustivePerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                                   unsigned int& word1, unsigned int& word2);

// ---- T and H (ETCExhaustiveTH.cpp) ----
// Every pair of 4-bit colours, bounded by the fastest block of the mode and
// 'limit'; the packed 59-bit (T) or 58-bit (H) form goes to packed1/packed2
// when a strictly better pair is found.
unsigned int compressBlockTHUMB59TExhaustive(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                             unsigned int& packed2, unsigned int limit);
unsigned int compressBlockTHUMB59TExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                       unsigned int& packed1, unsigned int& packed2,
                                                       unsigned int limit);
unsigned int compressBlockTHUMB58HExhaustive(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                             unsigned int& packed2, unsigned int limit);
unsigned int compressBlockTHUMB58HExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                       unsigned int& packed1, unsigned int& packed2,
                                                       unsigned int limit);

// The result of 'fastest' (compressBlockTHUMB59TFastest, 58H and their
// perceptual forms) for the block at (x, y), run once for a block: the ETC2
// selector and the T or H search of the same block share it.
unsigned int FastestOnce(unsigned int (*fastest)(unsigned char*, int, int, int, unsigned int&, unsigned int&),
                         unsigned char* img, int width, int x, int y, unsigned int& packed1, unsigned int& packed2);

// Per-pixel error tables of the block at (x, y), plain or weighted. col0 (T)
// and the H tables hold [colour][distance 0..7][pixel 0..15]: the least error
// against c + d and c - d (limited to 0..255), for T also against c; col1 (T)
// holds [colour][pixel] against c alone. Colours are 4-bit codes: red (16
// entries), red * 16 + green (256), or red * 256 + green * 16 + blue (4096).
void precalcError59T_col0_R(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError59T_col0_RG(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError59T_col0_RGB(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError59T_col1_R(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError59T_col1_RG(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError59T_col1_RGB(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcErrorR_58H(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcErrorRG_58H(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);
void precalcError58H(unsigned char* img, int width, int x, int y, unsigned int* table, bool perceptual);

// Least over the eight distances of the summed per-pixel least error of the
// two colours; a distance stops once its sum reaches 'best'. The R and RG
// forms are lower bounds of every colour pair sharing those channels, the RGB
// forms the true error.
unsigned int calculateError59TusingPrecalcR(const unsigned int* col0, const unsigned int* col1, int red0, int red1,
                                            unsigned int best);
unsigned int calculateError59TusingPrecalcRG(const unsigned int* col0, const unsigned int* col1, int colour0,
                                             int colour1, unsigned int best);
unsigned int calculateError59TusingPrecalcRGB(const unsigned int* col0, const unsigned int* col1, int colour0,
                                              int colour1, unsigned int best);
unsigned int calculateErrorFromPrecalcR58H(const unsigned int* table, int red0, int red1, unsigned int best);
unsigned int calculateErrorFromPrecalcRG58H(const unsigned int* table, int colour0, int colour1, unsigned int best);
unsigned int calculateErrorFromPrecalc58H(const unsigned int* table, int colour0, int colour1, unsigned int best);

// ---- Planar and the ETC2 selectors (ETCExhaustivePlanar.cpp) ----
// Each channel of the planar block packed1/packed2 searched on its own, its
// origin, horizontal and vertical codes within 3 steps of the start, bounded
// by that channel's error 'error*'; packed again when the total is below
// 'limit' (else the cap, and the block untouched).
unsigned int compressBlockPlanar57Exhaustive(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                             unsigned int& packed2, unsigned int limit, unsigned int errorRed,
                                             unsigned int errorGreen, unsigned int errorBlue);
unsigned int compressBlockPlanar57ExhaustivePerceptual(unsigned char* img, int width, int x, int y,
                                                       unsigned int& packed1, unsigned int& packed2,
                                                       unsigned int limit, unsigned int errorRed,
                                                       unsigned int errorGreen, unsigned int errorBlue);
// Decodes a planar block into 'work' (4 x 4) and gives each channel's error
// against the image block at (x, y), plain or weighted.
void decompressBlockPlanar57errorPerComponent(unsigned int packed1, unsigned int packed2, unsigned char* work,
                                              const unsigned char* img, int width, int x, int y, bool perceptual,
                                              unsigned int& errorRed, unsigned int& errorGreen,
                                              unsigned int& errorBlue);
// One channel's error from 8-bit corners: the top row alone (it depends on
// the origin and horizontal corners only), or the whole block; each stops
// once it reaches 'limit'.
unsigned int calcLowestPossibleRedOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                     unsigned int limit);
unsigned int calcLowestPossibleGreenOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                       unsigned int limit);
unsigned int calcLowestPossibleBlueOH(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                      unsigned int limit);
// The vertical corner code of one channel whose bottom-left pixel (BBB, with
// the origin alone) or bottom-right pixel (CCC, with the horizontal corner
// too) comes nearest the image; corners as expanded 8-bit values, ties to the
// lower code.
int calcBBBred(unsigned char* img, int width, int x, int y, int origin);
int calcBBBgreen(unsigned char* img, int width, int x, int y, int origin);
int calcBBBblue(unsigned char* img, int width, int x, int y, int origin);
int calcCCCred(unsigned char* img, int width, int x, int y, int origin, int horizontal);
int calcCCCgreen(unsigned char* img, int width, int x, int y, int origin, int horizontal);
int calcCCCblue(unsigned char* img, int width, int x, int y, int origin, int horizontal);
unsigned int calcErrorPlanarOnlyRed(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                    int vertical, unsigned int limit);
unsigned int calcErrorPlanarOnlyGreen(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                      int vertical, unsigned int limit);
unsigned int calcErrorPlanarOnlyBlue(unsigned char* img, int width, int x, int y, int origin, int horizontal,
                                     int vertical, unsigned int limit);

// ETC2 RGB at the exhaustive qualities: the fast block, the fitted planar
// and fastest T and H blocks, then the differential, planar, individual, H
// and T searches, each bounded by the least error so far; the least error
// wins, replacing in the order planar, T, H, differential, individual only
// when strictly better. Returns the block's error.
unsigned int compressBlockETC2Exhaustive(unsigned char* img, unsigned char* work, int width, int x, int y,
                                         unsigned int& word1, unsigned int& word2);
unsigned int compressBlockETC2ExhaustivePerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                                   unsigned int& word1, unsigned int& word2);

} // namespace orbtexture

#endif
