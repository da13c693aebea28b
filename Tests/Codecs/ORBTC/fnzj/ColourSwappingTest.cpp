// Colour swapping recommendations on small grids worked out by hand, and the
// fast sweeps against the plain ones.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/optimiser_path.h"
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

TEST(ColourSwapping, FastSweepsAreThePlainSweeps)
{
    // Colours from a small set give many equal ratios, so the ties' order
    // decides; long thin grids, wrapping or not, give many sweeps.
    std::mt19937 random(11);
    const uint32_t sizes[][2] = {{2, 1}, {1, 5}, {2, 2}, {3, 7}, {7, 3}, {2, 9}, {16, 16}, {64, 1}, {33, 21}};
    for (int trial = 0; trial < 240; ++trial)
    {
        const uint32_t width = sizes[trial % 9][0], height = sizes[trial % 9][1];
        const bool wrap = trial % 2 == 0;
        const int levels = trial % 3 == 0 ? 3 : 40;
        std::vector<unsigned char> pairs(size_t(width) * height * 8);
        for (unsigned char& v : pairs)
            v = static_cast<unsigned char>(random() % levels * (250 / levels));
        std::unique_ptr<uint8_t[]> flags[2];
        for (int plain = 0; plain < 2; ++plain)
        {
            SetOptimiserReference(plain == 1);
            flags[plain] = CreateColourSwappingRecommendations(width, height, wrap, pairs.data(), nullptr);
        }
        SetOptimiserReference(false);
        ASSERT_TRUE(flags[0] && flags[1]);
        ASSERT_EQ(Flags(flags[0], size_t(width) * height), Flags(flags[1], size_t(width) * height))
            << width << " x " << height << (wrap ? " wrapping" : "") << ", trial " << trial;
    }
}
