#ifndef ETCAVERAGESEARCH_H
#define ETCAVERAGESEARCH_H

// Average-based ETC1 block search: each half of the block gets its quantised
// mean colour, and the eight modifier tables are tried for it. The block
// functions read an RGB image (3 bytes a pixel) of row width 'width' at pixel
// (x, y) and give the two block words in the standard's bit order.
//
// Error variants: no suffix sums squared channel differences (unsigned int);
// 'percep1000' / 'Perceptual1000' weighs the squares by 299, 587 and 114
// (unsigned int); 'percep' / 'Perceptual' by 0.299, 0.587 and 0.114 (float).
// The declarations shared with the rest of the family are in ETCBlockCodec.h.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

// Mean colour of the 2 x 4 (or 4 x 2) sub-block at (x, y), unquantised.
void computeAverageColor2x4noQuantFloat(unsigned char* img, int width, int x, int y, float* average);
void computeAverageColor4x2noQuantFloat(unsigned char* img, int width, int x, int y, float* average);

// Index bits and error of one sub-block for an 8-bit base colour and an even
// row of compressParams. Pixel (i, j) of the sub-block owns bit i * 4 + j of
// 'msb' and 'lsb'.
unsigned int compressBlockWithTable2x4(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                       unsigned int* msb, unsigned int* lsb);
unsigned int compressBlockWithTable2x4percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 int row, unsigned int* msb, unsigned int* lsb);
float compressBlockWithTable2x4percep(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                      unsigned int* msb, unsigned int* lsb);
unsigned int compressBlockWithTable4x2(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                       unsigned int* msb, unsigned int* lsb);
unsigned int compressBlockWithTable4x2percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 int row, unsigned int* msb, unsigned int* lsb);
float compressBlockWithTable4x2percep(unsigned char* img, int width, int x, int y, unsigned char* colour, int row,
                                      unsigned int* msb, unsigned int* lsb);

// The best of the eight tables (0..7) for a sub-block; the first strictly
// better table wins. Outputs stay untouched if no table beats the cap.
unsigned int tryalltables_3bittable2x4(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                       unsigned int& table, unsigned int& msb, unsigned int& lsb);
unsigned int tryalltables_3bittable2x4percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 unsigned int& table, unsigned int& msb, unsigned int& lsb);
float tryalltables_3bittable2x4percep(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                      unsigned int& table, unsigned int& msb, unsigned int& lsb);
unsigned int tryalltables_3bittable4x2(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                       unsigned int& table, unsigned int& msb, unsigned int& lsb);
unsigned int tryalltables_3bittable4x2percep1000(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                                 unsigned int& table, unsigned int& msb, unsigned int& lsb);
float tryalltables_3bittable4x2percep(unsigned char* img, int width, int x, int y, unsigned char* colour,
                                      unsigned int& table, unsigned int& msb, unsigned int& lsb);

// Hue-preserving quantisers: per channel the code below or above the mean,
// the combination with the least spread of the channel errors. 'encoded'
// gets the codes (5 or 4 bits), 'expanded' the 8-bit values. For the 4-bit
// forms 'expanded' holds the 5-bit expansion of the 4-bit codes.
void quantize555ColorCombined(float* average, int* encoded, unsigned char* expanded);
void quantize444ColorCombined(float* average, int* encoded, unsigned char* expanded);
void quantize555ColorCombinedPerceptual(float* average, int* encoded, unsigned char* expanded);
void quantize444ColorCombinedPerceptual(float* average, int* encoded, unsigned char* expanded);

// Whole blocks, both orientations tried; differential when the 5-bit means
// are close enough, individual otherwise. Average rounds the means, Combined
// uses the quantisers above.
void compressBlockDiffFlipAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                  unsigned int& word2);
void compressBlockDiffFlipAveragePerceptual(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                            unsigned int& word2);
void compressBlockDiffFlipCombined(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                   unsigned int& word2);
void compressBlockDiffFlipCombinedPerceptual(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                             unsigned int& word2);

// Packs an ETC1 block from its two colour codes (5-bit for differential,
// 4-bit for individual), tables and index bits of the two halves.
void packBlockETC1(const int* code1, const int* code2, unsigned int table1, unsigned int table2, unsigned int msb1,
                   unsigned int lsb1, unsigned int msb2, unsigned int lsb2, bool differential, bool flipped,
                   unsigned int& word1, unsigned int& word2);

// One sub-block's result in the forced-mode searches below.
struct ETCSubBlockFit
{
    int colour[3];      // quantised codes: 5 bits (differential) or 4 bits (individual)
    unsigned int table; // modifier table 0..7
    unsigned int error; // the sub-block's error with that colour and table
};

// Order of the four sub-blocks in an ETCSubBlockFit array.
enum ETCSubBlock
{
    ETCSubBlockLeft = 0,
    ETCSubBlockRight = 1,
    ETCSubBlockTop = 2,
    ETCSubBlockBottom = 3
};

// Average search restricted to one mode, for seeding the exhaustive search.
// The block of the better orientation goes to word1/word2 and its error is
// returned; 'fits' (four entries, may be null) gets all four sub-blocks.
// The differential form pulls a second colour out of reach to the nearest
// code within -4..3 of the first, per channel.
unsigned int compressBlockOnlyDiffFlipAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                              unsigned int& word2, ETCSubBlockFit* fits);
unsigned int compressBlockOnlyDiffFlipAveragePerceptual1000(unsigned char* img, int width, int x, int y,
                                                            unsigned int& word1, unsigned int& word2,
                                                            ETCSubBlockFit* fits);
unsigned int compressBlockOnlyIndividualAverage(unsigned char* img, int width, int x, int y, unsigned int& word1,
                                                unsigned int& word2, ETCSubBlockFit* fits);
unsigned int compressBlockOnlyIndividualAveragePerceptual1000(unsigned char* img, int width, int x, int y,
                                                              unsigned int& word1, unsigned int& word2,
                                                              ETCSubBlockFit* fits);

} // namespace orbtexture

#endif
