#include "Codecs/YUVCodec.h"

#include <algorithm>

#include "Codecs/PixelPairGroups.h"

namespace orbtexture
{

namespace
{

unsigned char ClampToByte(float value)
{
    return static_cast<unsigned char>(std::min(255.0f, std::max(0.0f, value)));
}

// Byte offsets of Y0, U, Y1, V within a packed group.
struct GroupOrder
{
    unsigned y0, u, y1, v;
};

// The order of 'format'; false with the reason when 'operation' cannot take
// the format or the size.
bool OrderOf(const char* operation, EORBTPixelFormat format, unsigned width, unsigned height, GroupOrder& order)
{
    unsigned offsets[4];
    if (!PairGroupOrder(operation, format, ePF_UYVY, ePF_YUY2, ePF_UYVY, width, height, offsets))
        return false;
    order = {offsets[0], offsets[1], offsets[2], offsets[3]};
    return true;
}

} // namespace

void ConvertYUVToRGB(int y, int u, int v, unsigned char& red, unsigned char& green, unsigned char& blue)
{
    const int c = (y - 16) * 298;
    const int d = u - 128, e = v - 128;
    const auto finish = [](int value) { return static_cast<unsigned char>(std::min(std::max(value, 0) >> 8, 255)); };
    red = finish(c + 409 * e + 128);
    green = finish(c - 100 * d - 208 * e + 128);
    blue = finish(c + 517 * d + 128);
}

void ConvertRGBToYUV(Pixel<unsigned char> first, Pixel<unsigned char> second, unsigned char& y0, unsigned char& y1,
                     unsigned char& u, unsigned char& v)
{
    y0 = ClampToByte(0.257f * first.red + 0.504f * first.green + 0.098f * first.blue + 16.5f);
    u = ClampToByte(-0.148f * first.red - 0.291f * first.green + 0.439f * first.blue + 128.5f);
    y1 = ClampToByte(0.257f * second.red + 0.504f * second.green + 0.098f * second.blue + 16.5f);
    v = ClampToByte(0.439f * second.red - 0.368f * second.green - 0.071f * second.blue + 128.5f);
}

unsigned int YUVCompress(const void* source, void* destination, const unsigned int& width,
                         const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order{};
    if (!OrderOf("YUVCompress", format, width, height, order))
        return 0;
    PackPixelPairs(source, destination, width, height, [&](const unsigned char* a, unsigned char* out) {
        ConvertRGBToYUV({a[0], a[1], a[2], a[3]}, {a[4], a[5], a[6], a[7]}, out[order.y0], out[order.y1],
                        out[order.u], out[order.v]);
    });
    return width * height * 2;
}

unsigned int YUVDecompress(const void* source, void* destination, const unsigned int& width,
                           const unsigned int& height, const EORBTPixelFormat& format)
{
    GroupOrder order{};
    if (!OrderOf("YUVDecompress", format, width, height, order))
        return 0;
    UnpackPixelPairs(source, destination, width, height, [&](const unsigned char* group, unsigned char* pixel) {
        ConvertYUVToRGB(group[order.y0], group[order.u], group[order.v], pixel[0], pixel[1], pixel[2]);
        ConvertYUVToRGB(group[order.y1], group[order.u], group[order.v], pixel[4], pixel[5], pixel[6]);
        pixel[3] = pixel[7] = 255;
    });
    return width * height * 4;
}

} // namespace orbtexture
