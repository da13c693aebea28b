// Seeds of optimiserfuzz: whole-block sizes of both block widths and both
// generations, a MIP chain, punch-through, BGRA and a padded stride, with
// pixels of a smooth ramp, a hard edge and transparent holes.

#include <cstdint>
#include <vector>

#include "FuzzSeeds.h"

namespace
{

FuzzBytes Seed(uint8_t width, uint8_t height, uint8_t flags, uint8_t quality, uint8_t padding)
{
    FuzzBytes seed = {uint8_t(width - 1), uint8_t(height - 1), flags, quality, padding};
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            const bool edge = x * 2 > width;
            seed.push_back(uint8_t(x * 255 / width));
            seed.push_back(uint8_t(edge ? 220 : y * 255 / height));
            seed.push_back(uint8_t(edge ? 30 : 128));
            seed.push_back(uint8_t((x + y) % 5 == 0 ? 0 : 255));
        }
    return seed;
}

std::vector<FuzzBytes> OptimiserSeeds()
{
    return {Seed(4, 4, 0x00, 0, 0),  Seed(8, 8, 0x02, 1, 0),  Seed(8, 4, 0x01, 0, 0), Seed(16, 8, 0x03, 2, 0),
            Seed(8, 8, 0x14, 0, 0),  Seed(8, 8, 0x26, 1, 0),  Seed(12, 8, 0x48, 0, 3), Seed(16, 16, 0x80, 1, 5),
            Seed(6, 4, 0x00, 0, 0)};
}

const FuzzSeedRegistration registration("optimiserfuzz", OptimiserSeeds);

} // namespace
