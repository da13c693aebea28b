#ifndef BITMAP_H
#define BITMAP_H

// A small image buffer of 8-bit red, green, blue and alpha pixels, rows top
// to bottom, four bytes a pixel.

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

struct Bitmap
{
    int width, height;
    int hasAlpha;          // 0: every pixel's alpha is 255
    unsigned char* pixels; // width x height x 4 bytes
};

// A bitmap filled with 'fillColour' (four bytes, red first) or, when it is
// null, with zeros. Null for a side of 0 or less, for a size whose byte count
// an allocation cannot address (checked before allocating), or when the
// allocation fails. Without alpha the fill's alpha is replaced by 255.
ORBT_API Bitmap* new_bitmap(int width, int height, int hasAlpha, const unsigned char* fillColour);

// Releases the bitmap; null is allowed.
ORBT_API void delete_bitmap(Bitmap* bitmap);

// The bitmap's size into 'width' and 'height'; 0 for a null bitmap (the sizes
// are then 0), else 1.
ORBT_API int bitmap_get_size(const Bitmap* bitmap, int* width, int* height);

// Sets pixel (x, y); alpha is kept at 255 in a bitmap without alpha. Returns 0
// and writes nothing when (x, y) lies outside the bitmap, else 1.
ORBT_API int bitmap_set_pixel_rgba(Bitmap* bitmap, int x, int y, unsigned char red, unsigned char green,
                                   unsigned char blue, unsigned char alpha);

// Reads pixel (x, y) into rgba[4]. Returns 0 and leaves rgba untouched when
// (x, y) lies outside the bitmap, else 1.
ORBT_API int bitmap_get_pixel_rgba(const Bitmap* bitmap, int x, int y, unsigned char* rgba);

} // namespace orbtexture

#endif
