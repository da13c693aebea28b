#ifndef ETCBLOCKCODEC_H
#define ETCBLOCKCODEC_H

// Shared tables and block functions of the ETC family. Colour blocks are two
// 32-bit words in the standard's bit order (first word most significant);
// images are 3 bytes a pixel (R, G, B) unless told otherwise.

#include "ORBTextureFormat.h"

namespace orbtexture
{

// ---- Tables (ETCTables.cpp) ----

// ETC1 modifier rows as (-large, -small, +small, +large), each row twice.
extern const int compressParams[16][4];
extern const int compressParamsFast[8][4];
// Stored index bits (MSB * 2 + LSB) to a column of compressParams, and back.
extern const int unscramble[4];
extern const int scramble[4];
// Modifiers in stored index order, for the ETC1-only decoder.
extern const int mod[8][4];
// T and H mode distances.
extern const int table59T[8];
extern const int table58H[8];
// Negative halves of the EAC modifier tables, and all 16 x 16 scaled rows
// (row = multiplier * 16 + table).
extern const int alphaBase[16][4];
extern const int alphaTable[256][8];
// Squared differences -255..255 at index difference + 255: plain and
// weighted by 299, 587 and 114.
extern const unsigned int square_table[511];
extern const unsigned int square_table_percep_red[511];
extern const unsigned int square_table_percep_green[511];
extern const unsigned int square_table_percep_blue[511];
// Values -255..512 at index value + 255, limited to 0..255 (plus 255).
extern const int clamp_table[768];
extern const int clamp_table_plus_255[768];

// ---- Word helpers and decoders (ETCPacking.cpp, ETCDecompress.cpp) ----

unsigned int big_endian(unsigned int word);

// Packed T (59 bits), H (58 bits) and planar (57 bits) forms to standard
// blocks and back; the Stuff functions set the overflow bits and the
// differential bit, the DiffFalse forms leave bit 1 clear.
void stuff59bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2);
void stuff58bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2);
void stuff57bits(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2);
void stuff59bitsDiffFalse(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2);
void stuff58bitsDiffFalse(unsigned int packed1, unsigned int packed2, unsigned int& word1, unsigned int& word2);
void unstuff59bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2);
void unstuff58bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2);
void unstuff57bits(unsigned int word1, unsigned int word2, unsigned int& packed1, unsigned int& packed2);

void decompressColor(int redBits, int greenBits, int blueBits, const unsigned char (*in)[3], unsigned char (*out)[3]);
void calculatePaintColors59T(unsigned char distanceIndex, unsigned char pattern, const unsigned char (*colours)[3],
                             unsigned char (*paint)[3]);
void calculatePaintColors58H(unsigned char distanceIndex, unsigned char pattern, const unsigned char (*colours)[3],
                             unsigned char (*paint)[3]);

// One colour block into an RGB image of row width 'width' at pixel (x, y).
void decompressBlockETC2(unsigned int word1, unsigned int word2, unsigned char* image, int width, int x, int y);
void decompressBlockDiffFlip(unsigned int word1, unsigned int word2, unsigned char* image, int width, int x, int y);
// The next three take the packed forms.
void decompressBlockTHUMB59T(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x,
                             int y);
void decompressBlockTHUMB58H(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x,
                             int y);
void decompressBlockPlanar57(unsigned int packed1, unsigned int packed2, unsigned char* image, int width, int x,
                             int y);
// RGB with 1-bit alpha: alpha is one byte a pixel with the same row width.
void decompressBlockETC21BitAlpha(unsigned int word1, unsigned int word2, unsigned char* image, unsigned char* alpha,
                                  int width, int x, int y);
void decompressBlockDifferentialWithAlpha(unsigned int word1, unsigned int word2, unsigned char* image,
                                          unsigned char* alpha, int width, int x, int y);
void decompressBlockTHUMB59TAlpha(unsigned int packed1, unsigned int packed2, unsigned char* image,
                                  unsigned char* alpha, int width, int x, int y);
void decompressBlockTHUMB58HAlpha(unsigned int packed1, unsigned int packed2, unsigned char* image,
                                  unsigned char* alpha, int width, int x, int y);
// EAC: an 8-bit block into one byte a pixel, an 11-bit block into 16-bit
// values ('stride' values a pixel).
void decompressBlockAlpha(const unsigned char* block, unsigned char* image, int width, int x, int y,
                          const int (*table)[8]);
void decompressBlockAlpha16bit(const unsigned char* block, unsigned short* image, int width, int x, int y,
                               bool isSigned, int stride = 1);
// One decoded 11-bit EAC value as 16 bits.
int get16bits11bits(int base, int table, int multiplier, int index, bool isSigned);
int get16bits11signed(int base, int table, int multiplier, int index);
// Its parts: the value is eacValueOfSum(eacBaseTerm(base) + eacOffset(table,
// multiplier, index)), clamped and widened to 16 bits (signed values as
// two's complement ints); it never falls as the sum rises.
int eacBaseTerm(int base, bool isSigned);
int eacOffset(int table, int multiplier, int index);
int eacValueOfSum(int sum, bool isSigned);

// ---- Fast ETC1 search (ETCAverageSearch.cpp) ----

// Both quantisers, the better block kept; 'work' receives the decoded 4 x 4
// RGB block. Return the block's error.
double compressBlockDiffFlipFast(unsigned char* img, unsigned char* work, int width, int x, int y,
                                 unsigned int& word1, unsigned int& word2);
double compressBlockDiffFlipFastPerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                           unsigned int& word1, unsigned int& word2);
// Summed error of the 16 pixels against a decoded 4 x 4 RGB block.
double calcBlockErrorRGB(unsigned char* img, unsigned char* work, int width, int x, int y);
double calcBlockPerceptualErrorRGB(unsigned char* img, unsigned char* work, int width, int x, int y);

// ---- T, H and planar modes and the ETC2 selectors (ETCModes.cpp) ----

// 'alpha' is one byte a pixel for format 24 and null otherwise; 'height' is
// the image's.
void compressBlockETC2Fast(unsigned char* img, unsigned char* alpha, unsigned char* work, int width, int height,
                           int x, int y, unsigned int& word1, unsigned int& word2, EORBTPixelFormat format);
void compressBlockETC2FastPerceptual(unsigned char* img, unsigned char* work, int width, int x, int y,
                                     unsigned int& word1, unsigned int& word2);

// ---- EAC compression (EACCompress.cpp) ----

// 8-bit alpha blocks from one byte a pixel.
void compressBlockAlphaFast(const unsigned char* image, int x, int y, int width, unsigned char* block,
                            const int (*table)[8]);
void compressBlockAlphaSlow(const unsigned char* image, int x, int y, int width, unsigned char* block,
                            const int (*table)[8]);
// 11-bit blocks from 16-bit values, 'stride' values a pixel.
void compressBlockAlpha16(unsigned short* image, int stride, int x, int y, int width, unsigned char* block,
                          bool isSigned, const unsigned short* values);
// Every decoded value by getPremulIndex(base, table, multiplier, index),
// built once on first use (thread-safe).
const unsigned short* valueTableUnsigned();
const unsigned short* valueTableSigned();

} // namespace orbtexture

#endif
