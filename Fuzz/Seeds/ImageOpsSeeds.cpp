// Seeds of imageopsfuzz: each operation on a few small textures.

#include <cstdint>
#include <vector>

#include "FuzzSeeds.h"

namespace
{

std::vector<FuzzBytes> ImageOpsSeeds()
{
    std::vector<FuzzBytes> seeds;
    for (uint8_t operation = 0; operation < 10; ++operation)
        for (uint8_t type = 0; type < 4; ++type)
        {
            FuzzBytes seed = {type, uint8_t(3 + operation % 3), 2, uint8_t(operation % 2), 1, operation,
                              uint8_t(operation), 2, 5, 3, 1, 200};
            for (int i = 0; i < 64; ++i)
                seed.push_back(uint8_t(i * 29 + operation));
            seeds.push_back(seed);
        }
    return seeds;
}

const FuzzSeedRegistration registration("imageopsfuzz", ImageOpsSeeds);

} // namespace
