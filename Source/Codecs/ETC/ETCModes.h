#ifndef ETCMODES_H
#define ETCMODES_H

// ETC2 T, H and planar mode compressors, the two-colour clusterers behind T
// and H, and the RGB with 1-bit alpha block compressors.
//
// Images are RGB (3 bytes a pixel) of row width 'width', read at pixel
// (x, y); alpha images are one byte a pixel with the same row width, and a
// pixel with alpha below 128 is transparent.
//
// T and H results are the packed forms (see stuff59bits / stuff58bits), and
// planar the packed 57-bit form. Pixel indices inside the T and H searches
// are kept in sequence form: two bits a pixel, pixels in row order, the last
// pixel in the lowest bits; indexConversion turns that into the standard's
// two bit planes.

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

// Dense row-major matrix of doubles; 'data' holds width * height values.
struct dMatrix
{
    int width;
    int height;
    double* data;
};

// a * b as a new matrix (free with deleteMatrix), or null if a's width is
// not b's height.
dMatrix* multiplyMatrices(dMatrix* a, dMatrix* b);
// Transposes in place.
void transposeMatrix(dMatrix* m);
// Frees a matrix from multiplyMatrices together with its array.
void deleteMatrix(dMatrix* m);

// Sequence-form indices to the standard's layout: upper bit of pixel (x, y)
// at bit 16 + x * 4 + y, lower bit at x * 4 + y.
unsigned int indexConversion(unsigned int pixelIndices);

// 8-bit colours to codes of the given bit counts, rounding to the nearest
// code.
void compressColor(int redBits, int greenBits, int blueBits, const unsigned char (*colours)[3],
                   unsigned char (*codes)[3]);
void swapColors(unsigned char (*colours)[3]);
// Orders two 4-bit colours so that the first has the greater 12-bit value;
// equal colours are made to differ by one.
void sortColorsRGB444(unsigned char (*colours)[3]);

// The clusterers' source of starting centroids: the additive feedback
// generator x[i] = x[i - 31] + x[i - 3] (mod 2^32), yielding x[i] >> 1, its
// 31 words seeded by 16807^i * seed (mod 2^31 - 1) and its first 310 outputs
// dropped. That is the sequence glibc's rand() gives after srand(seed), here
// held by the caller, so that clusterers on several threads share nothing.
class ClusterRandom
{
public:
    explicit ClusterRandom(unsigned int seed);
    // The next value, 0 to 2^31 - 1.
    int next();

private:
    unsigned int m_words[31];
    int m_front; // the word updated next; m_rear trails it by 3
    int m_rear;
};

// Two-colour LBG clusterers; 'colours' gets the two 8-bit centroids. Each
// call starts its own ClusterRandom(10000), so output is a function of the
// block alone and calls may run on several threads at once.
void computeColorLBG(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3]);
void computeColorLBGNotIntensity(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3]);
void computeColorLBGfast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3]);
void computeColorLBGNotIntensityFast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3]);
void computeColorLBGHalfIntensityFast(unsigned char* img, int width, int x, int y, unsigned char (*colours)[3]);

// Best T distance and indices for two 4-bit colours. The swapping forms try
// both colour orders and leave 'codes' in the order chosen.
unsigned int calculateError59T(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                               unsigned char& distance, unsigned int& indices);
unsigned int calculateError59TnoSwap(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                                     unsigned char& distance, unsigned int& indices);
unsigned int calculateError59Tperceptual1000(unsigned char* img, int width, int x, int y,
                                             unsigned char (*codes)[3], unsigned char& distance,
                                             unsigned int& indices);
unsigned int calculateError59TnoSwapPerceptual1000(unsigned char* img, int width, int x, int y,
                                                   unsigned char (*codes)[3], unsigned char& distance,
                                                   unsigned int& indices);
// Best H distance (all three bits) and indices for two 4-bit colours, in
// the given order.
unsigned int calculateErrorAndCompress58H(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                                          unsigned char& distance, unsigned int& indices);
unsigned int calculateErrorAndCompress58Hperceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned char (*codes)[3], unsigned char& distance,
                                                        unsigned int& indices);

// Packed forms from 4-bit codes, a distance index and sequence-form indices.
// packBlock58H takes the full three-bit distance and expects the colour
// order to encode its lowest bit already.
// The H block of two 4-bit colours (any order, not equal): distance and
// indices by calculateErrorAndCompress58H, then the colour order set to
// carry the distance's low bit. Returns the error.
unsigned int compressCodes58H(unsigned char* img, int width, int x, int y, unsigned char (*codes)[3],
                              unsigned int& packed1, unsigned int& packed2, bool perceptual);
void packBlock59T(unsigned char (*codes)[3], unsigned char distance, unsigned int indices, unsigned int& packed1,
                  unsigned int& packed2);
void packBlock58H(unsigned char (*codes)[3], unsigned char distance, unsigned int indices, unsigned int& packed1,
                  unsigned int& packed2);

// Block compressors to the packed forms; each returns the block's squared
// error (perceptual forms: weighted 299, 587, 114).
unsigned int compressBlockTHUMB59TFastest(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                          unsigned int& packed2);
unsigned int compressBlockTHUMB59TFast(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                       unsigned int& packed2);
unsigned int compressBlockTHUMB59TFastestPerceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned int& packed1, unsigned int& packed2);
unsigned int compressBlockTHUMB58HFastest(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                          unsigned int& packed2);
unsigned int compressBlockTHUMB58HFast(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                       unsigned int& packed2);
unsigned int compressBlockTHUMB58HFastestPerceptual1000(unsigned char* img, int width, int x, int y,
                                                        unsigned int& packed1, unsigned int& packed2);
// Least-squares plane through the block, per channel.
unsigned int compressBlockPlanar57(unsigned char* img, int width, int x, int y, unsigned int& packed1,
                                   unsigned int& packed2);

// RGB with 1-bit alpha. The T and H forms give packed words for
// stuff59bitsDiffFalse / stuff58bitsDiffFalse, with every transparent pixel
// on the transparent index; their errors count the opaque pixels only.
// The differential form gives standard words: with 'isOpaque' a plain
// differential block with the opaque flag set, 'alpha' unused (may be null)
// and every pixel counted; otherwise the flag is clear, transparent pixels
// take the transparent index, the others only the large modifiers or none,
// and only opaque pixels count.
unsigned int compressBlockTHUMB59TAlpha(unsigned char* img, unsigned char* alpha, int width, int x, int y,
                                        unsigned int& packed1, unsigned int& packed2);
unsigned int compressBlockTHUMB58HAlpha(unsigned char* img, unsigned char* alpha, int width, int x, int y,
                                        unsigned int& packed1, unsigned int& packed2);
unsigned int compressBlockDifferentialWithAlpha(bool isOpaque, unsigned char* img, unsigned char* alpha, int width,
                                                int x, int y, unsigned int& word1, unsigned int& word2);

} // namespace orbtexture

#endif
