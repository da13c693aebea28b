#include "Codecs/RGBGCodec.h"

#include "Codecs/PixelPairGroups.h"

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
    PackPixelPairs(source, destination, width, height, [&](const unsigned char* a, unsigned char* out) {
        out[order.r] = a[0];
        out[order.g0] = a[1];
        out[order.b] = a[2];
        out[order.g1] = a[5];
    });
    return width * height * 2;
}

unsigned int RGBGDecompress(const void* source, void* destination, const unsigned int& width,
                            const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order;
    if (!OrderOf(format, order) || height == 0)
        return 0;
    UnpackPixelPairs(source, destination, width, height, [&](const unsigned char* group, unsigned char* pixel) {
        pixel[0] = pixel[4] = group[order.r];
        pixel[1] = group[order.g0];
        pixel[5] = group[order.g1];
        pixel[2] = pixel[6] = group[order.b];
        pixel[3] = pixel[7] = 255;
    });
    return width * height * 4;
}

} // namespace orbtexture
