#ifndef PIXELPAIRGROUPS_H
#define PIXELPAIRGROUPS_H

// Internal: the walk shared by the formats that pack each pair of pixels of a
// row into one 4-byte group (YUV, RGBG). Rows of RGBA8 pixels, no padding;
// packed rows are (width >> 1) groups.

#include <cstddef>

#include "ORBTextureFormat.h"

namespace orbtexture
{

// The offsets of a group's four bytes for 'format': 0, 1, 2, 3 for 'straight',
// 1, 0, 3, 2 for 'swapped'. False, with the reason why 'operation' cannot take
// the format (naming 'first' and then 'second') or a size with no pixels.
bool PairGroupOrder(const char* operation, EORBTPixelFormat format, EORBTPixelFormat first, EORBTPixelFormat second,
                    EORBTPixelFormat swapped, unsigned width, unsigned height, unsigned (&offsets)[4]);

// Calls pack(const unsigned char* pair, unsigned char* group) for every whole
// pair of each row; a last odd column is not packed.
template <typename Pack>
void PackPixelPairs(const void* source, void* destination, unsigned width, unsigned height, Pack&& pack)
{
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    const unsigned pairs = width >> 1;
    for (unsigned y = 0; y < height; ++y)
    {
        const unsigned char* row = in + size_t(y) * width * 4;
        for (unsigned p = 0; p < pairs; ++p, out += 4)
            pack(row + size_t(p) * 8, out);
    }
}

// Calls unpack(const unsigned char* group, unsigned char* pair) for every
// group; a last odd column has no group of its own and repeats its left
// neighbour (opaque black in a one-pixel row).
template <typename Unpack>
void UnpackPixelPairs(const void* source, void* destination, unsigned width, unsigned height, Unpack&& unpack)
{
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    const size_t stride = size_t(width >> 1) * 4;
    for (unsigned y = 0; y < height; ++y)
    {
        unsigned char* row = out + size_t(y) * width * 4;
        for (unsigned x = 0; x + 1 < width; x += 2)
            unpack(in + y * stride + size_t(x >> 1) * 4, row + size_t(x) * 4);
        if (width & 1)
        {
            unsigned char* last = row + size_t(width - 1) * 4;
            for (int c = 0; c < 4; ++c)
                last[c] = width > 1 ? last[c - 4] : (c == 3 ? 255 : 0);
        }
    }
}

} // namespace orbtexture

#endif
