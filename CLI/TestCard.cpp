#include "TestCard.h"

#include <cstdint>

namespace cli
{

namespace
{

struct Rgba
{
    uint8_t r, g, b, a;
};

Rgba Gradients(unsigned x, unsigned y, unsigned half)
{
    const unsigned scale = 255 / (half - 1 ? half - 1 : 1);
    const unsigned r = x * scale, g = y * scale;
    return {uint8_t(r), uint8_t(g), uint8_t(255 - (r + g) / 2), 255};
}

Rgba HardEdges(unsigned x, unsigned y, unsigned half)
{
    static const Rgba kBlocks[8] = {{255, 255, 255, 255}, {255, 255, 0, 255}, {0, 255, 255, 255},
                                    {0, 255, 0, 255},     {255, 0, 255, 255}, {255, 0, 0, 255},
                                    {0, 0, 255, 255},     {0, 0, 0, 255}};
    const unsigned cell = half / 8 ? half / 8 : 1;
    if (y < half / 2)
        return kBlocks[(x / cell) % 8]; // colour bars
    return ((x / cell + y / cell) & 1) ? kBlocks[0] : kBlocks[7]; // checkerboard
}

Rgba Transparency(unsigned x, unsigned y, unsigned half)
{
    const unsigned quarter = half / 4;
    const bool hole = x >= quarter && x < half - quarter && y >= quarter && y < half - quarter;
    const uint8_t alpha = hole ? 0 : uint8_t(x * 255 / (half - 1 ? half - 1 : 1));
    return {uint8_t(40 + y % 128), 120, 200, alpha};
}

Rgba FineDetail(unsigned x, unsigned y, unsigned half)
{
    if (y < half / 2)
    {
        if (x < half / 2)
            return ((x ^ y) & 1) ? Rgba{255, 255, 255, 255} : Rgba{0, 0, 0, 255}; // pixel checkerboard
        return (x + y) % 4 == 0 ? Rgba{255, 64, 0, 255} : Rgba{16, 16, 64, 255};  // diagonal lines
    }
    const int dx = int(x) - int(half / 2), dy = int(y) - int(half * 3 / 4);
    const bool ring = ((dx * dx + dy * dy) >> 4) & 1;
    return ring ? Rgba{250, 250, 250, 255} : Rgba{30, 90, 30, 255};
}

} // namespace

orbtexture::CORBTexture MakeTestCard(unsigned int size)
{
    const orbtexture::CORBTextureHeader header(orbtexture::ORBStandard8PixelType, size, size);
    orbtexture::CORBTexture card(header);
    uint8_t* pixels = card.getDataPtr();
    const unsigned half = size / 2 ? size / 2 : 1;
    for (unsigned y = 0; y < size; ++y)
    {
        for (unsigned x = 0; x < size; ++x)
        {
            const unsigned lx = x % half, ly = y % half;
            Rgba p;
            if (y < half)
                p = x < half ? Gradients(lx, ly, half) : HardEdges(lx, ly, half);
            else
                p = x < half ? Transparency(lx, ly, half) : FineDetail(lx, ly, half);
            uint8_t* out = pixels + (uint64_t(y) * size + x) * 4;
            out[0] = p.r;
            out[1] = p.g;
            out[2] = p.b;
            out[3] = p.a;
        }
    }
    return card;
}

} // namespace cli
