#include "Bitmap/Bitmap.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace orbtexture
{

namespace
{

inline bool Inside(const Bitmap* bitmap, int x, int y)
{
    return bitmap && x >= 0 && y >= 0 && x < bitmap->width && y < bitmap->height;
}

inline size_t Offset(const Bitmap* bitmap, int x, int y)
{
    return (size_t(y) * size_t(bitmap->width) + size_t(x)) * 4;
}

} // namespace

Bitmap* new_bitmap(int width, int height, int hasAlpha, const unsigned char* fillColour)
{
    if (width <= 0 || height <= 0)
        return nullptr;
    const size_t limit = size_t(PTRDIFF_MAX);
    if (size_t(width) > limit / 4 / size_t(height))
        return nullptr;
    const size_t count = size_t(width) * size_t(height);

    Bitmap* bitmap = new (std::nothrow) Bitmap{width, height, hasAlpha ? 1 : 0, nullptr};
    if (!bitmap)
        return nullptr;
    bitmap->pixels = new (std::nothrow) unsigned char[count * 4];
    if (!bitmap->pixels)
    {
        delete bitmap;
        return nullptr;
    }

    unsigned char fill[4] = {0, 0, 0, 0};
    if (fillColour)
        std::memcpy(fill, fillColour, 4);
    if (!bitmap->hasAlpha)
        fill[3] = 255;
    for (size_t i = 0; i < count; ++i)
        std::memcpy(bitmap->pixels + 4 * i, fill, 4);
    return bitmap;
}

void delete_bitmap(Bitmap* bitmap)
{
    if (!bitmap)
        return;
    delete[] bitmap->pixels;
    delete bitmap;
}

int bitmap_get_size(const Bitmap* bitmap, int* width, int* height)
{
    if (width)
        *width = bitmap ? bitmap->width : 0;
    if (height)
        *height = bitmap ? bitmap->height : 0;
    return bitmap ? 1 : 0;
}

int bitmap_set_pixel_rgba(Bitmap* bitmap, int x, int y, unsigned char red, unsigned char green,
                          unsigned char blue, unsigned char alpha)
{
    if (!Inside(bitmap, x, y))
        return 0;
    unsigned char* p = bitmap->pixels + Offset(bitmap, x, y);
    p[0] = red;
    p[1] = green;
    p[2] = blue;
    p[3] = bitmap->hasAlpha ? alpha : 255;
    return 1;
}

int bitmap_get_pixel_rgba(const Bitmap* bitmap, int x, int y, unsigned char* rgba)
{
    if (!Inside(bitmap, x, y))
        return 0;
    std::memcpy(rgba, bitmap->pixels + Offset(bitmap, x, y), 4);
    return 1;
}

} // namespace orbtexture
