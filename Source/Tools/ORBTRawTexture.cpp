#include "Tools/ORBTRawTexture.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ORBTextureInfo.h" // layer: the raw-memory helpers size surfaces as the texture model does

void ORBTTextureTwiddle(unsigned int& result, unsigned int x, unsigned int y)
{
    result = 0;
    for (unsigned int bit = 0; bit < 16; ++bit)
    {
        result |= ((y >> bit) & 1u) << (2 * bit);
        result |= ((x >> bit) & 1u) << (2 * bit + 1);
    }
}

void ORBTTextureDeTwiddle(unsigned int& x, unsigned int& y, unsigned int index)
{
    x = y = 0;
    for (unsigned int bit = 0; bit < 16; ++bit)
    {
        y |= ((index >> (2 * bit)) & 1u) << bit;
        x |= ((index >> (2 * bit + 1)) & 1u) << bit;
    }
}

void ORBTTextureLoadTiled(unsigned char* destination, unsigned int width, unsigned int height,
                          const unsigned char* tile, unsigned int tileWidth, unsigned int tileHeight,
                          unsigned int elementSize, bool twiddled)
{
    const uint64_t count = uint64_t(width) * height;
    if (count == 0 || tileWidth == 0 || tileHeight == 0)
        return;
    for (uint64_t i = 0; i < count; ++i)
    {
        unsigned int t;
        if (twiddled)
        {
            unsigned int x, y;
            ORBTTextureDeTwiddle(x, y, unsigned(i));
            ORBTTextureTwiddle(t, x % tileWidth, y % tileHeight);
        }
        else
        {
            const unsigned int x = unsigned(i % width), y = unsigned(i / width);
            t = x % tileWidth + tileWidth * (y % tileHeight);
        }
        std::memcpy(destination + i * elementSize, tile + uint64_t(t) * elementSize, elementSize);
    }
}

void* ORBTTextureCreate(unsigned int width, unsigned int height, unsigned int minWidth, unsigned int minHeight,
                        unsigned int bitsPerPixel, bool mipMapped)
{
    auto atLeast = [](unsigned int value, unsigned int minimum) -> uint64_t {
        return value > minimum ? value : minimum;
    };

    ORBTextureHeaderV3 header; // native defaults: format 51, depth, members, faces and levels 1
    header.width = width;
    header.height = height;

    // At most 33 levels of at most 2^64 pixels each: sum in 128 bits, then bound.
    unsigned __int128 pixels = atLeast(width, minWidth) * atLeast(height, minHeight);
    if (mipMapped)
    {
        for (;;)
        {
            width >>= 1;
            height >>= 1;
            if (width == 0 && height == 0)
                break;
            pixels += atLeast(width, minWidth) * atLeast(height, minHeight);
        }
    }

    const unsigned __int128 bytes = ((pixels * bitsPerPixel) >> 3) + ORBTEX_V3_HEADER_SIZE;
    if (bytes > 0xFFFFFFFFu)
        return nullptr;
    void* block = std::malloc(size_t(bytes));
    if (!block)
        return nullptr;

    std::memcpy(block, &header, ORBTEX_V3_HEADER_SIZE);
    return block;
}
