#include "Codecs/RGBGCodec.h"

#include <cstddef>

namespace orbtexture
{

namespace
{

// Byte offsets of R, G0, B, G1 within a packed group.
struct GroupOrder
{
    unsigned r, g0, b, g1;
};

bool OrderOf(EORBTPixelFormat format, GroupOrder& order)
{
    if (format == ePF_RGBG8888)
        order = {0, 1, 2, 3};
    else if (format == ePF_GRGB8888)
        order = {1, 0, 3, 2};
    else
        return false;
    return true;
}

} // namespace

unsigned int RGBGCompress(const void* source, void* destination, const unsigned int& width,
                          const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order;
    if (!OrderOf(format, order) || height == 0)
        return 0;
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    const unsigned pairs = width >> 1;
    for (unsigned y = 0; y < height; ++y)
    {
        const unsigned char* row = in + size_t(y) * width * 4;
        for (unsigned p = 0; p < pairs; ++p, out += 4)
        {
            const unsigned char* a = row + size_t(p) * 8;
            out[order.r] = a[0];
            out[order.g0] = a[1];
            out[order.b] = a[2];
            out[order.g1] = a[5];
        }
    }
    return width * height * 2;
}

unsigned int RGBGDecompress(const void* source, void* destination, const unsigned int& width,
                            const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order;
    if (!OrderOf(format, order) || height == 0)
        return 0;
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    const size_t stride = size_t(width >> 1) * 4;
    for (unsigned y = 0; y < height; ++y)
    {
        unsigned char* row = out + size_t(y) * width * 4;
        for (unsigned x = 0; x + 1 < width; x += 2)
        {
            const unsigned char* group = in + y * stride + size_t(x >> 1) * 4;
            unsigned char* pixel = row + size_t(x) * 4;
            pixel[0] = pixel[4] = group[order.r];
            pixel[1] = group[order.g0];
            pixel[5] = group[order.g1];
            pixel[2] = pixel[6] = group[order.b];
            pixel[3] = pixel[7] = 255;
        }
        // A last odd column has no group of its own: it repeats its left
        // neighbour (opaque black in a one-pixel row).
        if (width & 1)
        {
            unsigned char* last = row + size_t(width - 1) * 4;
            for (int c = 0; c < 4; ++c)
                last[c] = width > 1 ? last[c - 4] : (c == 3 ? 255 : 0);
        }
    }
    return width * height * 4;
}

} // namespace orbtexture
