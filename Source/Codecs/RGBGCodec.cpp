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

// The order of 'format'; false with the reason when 'operation' cannot take
// the format or the size.
bool OrderOf(const char* operation, EORBTPixelFormat format, unsigned width, unsigned height, GroupOrder& order)
{
    unsigned offsets[4];
    if (!PairGroupOrder(operation, format, ePF_RGBG8888, ePF_GRGB8888, ePF_GRGB8888, width, height, offsets))
        return false;
    order = {offsets[0], offsets[1], offsets[2], offsets[3]};
    return true;
}

} // namespace

unsigned int RGBGCompress(const void* source, void* destination, const unsigned int& width,
                          const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order{};
    if (!OrderOf("RGBGCompress", format, width, height, order))
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
    if (!OrderOf("RGBGDecompress", format, width, height, order))
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
