// Colour swapping recommendations on small grids worked out by hand.

#include <gtest/gtest.h>

#include <vector>

#include "Codecs/ORBTC/fnzj/threadsupport.h"

using namespace orbtexture;

namespace
{

using Pair = std::vector<unsigned char>; // A then B, RGBA each

Pair Colours(unsigned char a, unsigned char b)
{
    return {a, a, a, 255, b, b, b, 255};
}

std::vector<unsigned char> Grid(const std::vector<Pair>& pairs)
{
    std::vector<unsigned char> grid;
    for (const Pair& p : pairs)
        grid.insert(grid.end(), p.begin(), p.end());
    return grid;
}

std::vector<int> Flags(const std::unique_ptr<uint8_t[]>& result, size_t blocks, int byte = 0)
{
    std::vector<int> flags;
    for (size_t b = 0; b < blocks; ++b)
        flags.push_back(result[2 * b + byte]);
    return flags;
}

} // namespace

TEST(ColourSwapping, SmallGrids)
{
    // (X, Y) beside (Y, X): the swap costs 0, the second block turns. Equal
    // costs either way turn nothing.
    const std::vector<unsigned char> crossed = Grid({Colours(10, 200), Colours(200, 10)});
    EXPECT_EQ(Flags(CreateColourSwappingRecommendations(2, 1, false, crossed.data(), nullptr), 2),
              (std::vector<int>{0, 1}));
    const std::vector<unsigned char> flat = Grid({Colours(10, 10), Colours(200, 200)});
    EXPECT_EQ(Flags(CreateColourSwappingRecommendations(2, 1, true, flat.data(), nullptr), 2),
              (std::vector<int>{0, 0}));
    // One block: nothing to relate.
    EXPECT_FALSE(CreateColourSwappingRecommendations(1, 1, true, flat.data(), nullptr));

    // The second candidate pair, crosswise to the first for block 1 only.
    const std::vector<unsigned char> same = Grid({Colours(10, 200), Colours(10, 200), Colours(10, 200)});
    const std::vector<unsigned char> other = Grid({Colours(12, 198), Colours(200, 10), Colours(10, 190)});
    auto result = CreateColourSwappingRecommendations(3, 1, false, same.data(), other.data());
    EXPECT_EQ(Flags(result, 3, 0), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(Flags(result, 3, 1), (std::vector<int>{0, 1, 0}));
}
