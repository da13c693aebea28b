#include "Codecs/RGBGCodec.h"

#include "Codecs/PixelPairGroups.h"
#include "Model/ORBTextureErrors.h"

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

// The order of 'format', or false with the reason why 'operation' can't take
// the format or size.
bool CheckedOrder(const char* operation, EORBTPixelFormat format, unsigned width, unsigned height, GroupOrder& order)
{
    if (!OrderOf(format, order))
        return SetError(eORBTErrorUnsupported, "%s: format %u is not RGBG8888 (%u) or GRGB8888 (%u)", operation,
                        unsigned(format), unsigned(ePF_RGBG8888), unsigned(ePF_GRGB8888));
    if (width == 0 || height == 0)
        return SetError(eORBTErrorSize, "%s: the image is %ux%u, it has no pixels", operation, width, height);
    return true;
}

} // namespace

unsigned int RGBGCompress(const void* source, void* destination, const unsigned int& width,
                          const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order{};
    if (!CheckedOrder("RGBGCompress", format, width, height, order))
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
    GroupOrder order{};
    if (!CheckedOrder("RGBGDecompress", format, width, height, order))
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
