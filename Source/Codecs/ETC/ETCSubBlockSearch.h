#ifndef ETCSUBBLOCKSEARCH_H
#define ETCSUBBLOCKSEARCH_H
// The fast exhaustive searches of the ETC1 individual and differential modes
// over the block at (x, y) of an RGB image, each channel's error weighed by
// 'squares' (weight times the squared difference). They find what the plain
// searches find, with the same ties.
#include <cstddef>

namespace orbtexture
{

// Each sub-block's (left, right, top, bottom) first least 4-bit colour (red
// outermost) and its error: the left and top below 'limit', the right and
// bottom below 'limit' less their partner's least. A sub-block with nothing
// below its bound has colour 0 and the error 'limit'.
void FastIndividualSearch(const unsigned char* img, int width, int x, int y, const unsigned int* const* squares,
                          unsigned int limit, size_t* colour, unsigned int* error);

// The first least pair of 5-bit colours of the first and second sub-block,
// the second within -4..3 of the first in every channel, unflipped pairs
// before flipped ones, below 'limit': false when none. 'sum' is its error.
bool FastDifferentialSearch(const unsigned char* img, int width, int x, int y, const unsigned int* const* squares,
                            unsigned int limit, unsigned int& sum, bool& flipped, size_t& first, size_t& second);

} // namespace orbtexture

#endif
