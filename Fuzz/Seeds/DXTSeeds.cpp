// Seeds of dxtfuzz: small images of each selector, blocks compressed by the
// library followed by their pixels.

#include <cstdint>
#include <vector>

#include "Codecs/DXTCodec.h"
#include "FuzzSeeds.h"

using namespace orbtexture;

namespace
{

FuzzBytes Seed(unsigned int width, unsigned int height, unsigned int format)
{
    std::vector<uint8_t> pixels(width * height * 4);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = uint8_t(i * 37 + (i >> 2) * 11);
    std::vector<uint8_t> blocks(((width + 3) / 4) * ((height + 3) / 4) * 16);
    const unsigned int written = DXTCompress(pixels.data(), blocks.data(), width, height, format);
    FuzzBytes seed = {uint8_t(width - 1), uint8_t(height - 1), uint8_t(format)};
    seed.insert(seed.end(), blocks.begin(), blocks.begin() + written);
    seed.insert(seed.end(), pixels.begin(), pixels.end());
    return seed;
}

std::vector<FuzzBytes> DXTSeeds()
{
    return {Seed(4, 4, 1), Seed(5, 3, 1), Seed(8, 4, 3), Seed(1, 7, 5), Seed(7, 1, 4), Seed(12, 9, 2),
            // Three-colour DXT1 block and six-value DXT5 alpha.
            {3, 3, 1, 0x1F, 0, 0x08, 0x84, 0xE4, 0x1B, 0x6C, 0xFF},
            {3, 3, 5, 10, 200, 0x88, 0xC6, 0xFA, 0, 0, 0, 0x1F, 0, 0x08, 0x84, 0xE4, 0, 0, 0}};
}

const FuzzSeedRegistration registration("dxtfuzz", DXTSeeds);

} // namespace
