// Colour swapping recommendations on small grids worked out by hand, and on
// a randomly flipped gradient that must come back to one orientation.

#include <gtest/gtest.h>

#include <random>
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
    // (X, Y) beside (Y, X): the swap costs 0, the second block turns.
    const std::vector<unsigned char> crossed = Grid({Colours(10, 200), Colours(200, 10)});
    auto result = CreateColourSwappingRecommendations(2, 1, false, crossed.data(), nullptr);
    ASSERT_TRUE(result);
    EXPECT_EQ(Flags(result, 2), (std::vector<int>{0, 1}));

    // Identical pairs, or equal costs either way: nothing turns.
    const std::vector<unsigned char> same = Grid({Colours(10, 200), Colours(10, 200), Colours(10, 200)});
    result = CreateColourSwappingRecommendations(3, 1, true, same.data(), nullptr);
    EXPECT_EQ(Flags(result, 3), (std::vector<int>{0, 0, 0}));
    const std::vector<unsigned char> flat = Grid({Colours(10, 10), Colours(200, 200)});
    result = CreateColourSwappingRecommendations(2, 1, false, flat.data(), nullptr);
    EXPECT_EQ(Flags(result, 2), (std::vector<int>{0, 0}));

    // One block: nothing to relate.
    EXPECT_FALSE(CreateColourSwappingRecommendations(1, 1, true, flat.data(), nullptr));

    // A column of three, the middle one crossed: it ends unlike both others.
    const std::vector<unsigned char> column = Grid({Colours(10, 200), Colours(200, 10), Colours(10, 200)});
    result = CreateColourSwappingRecommendations(1, 3, false, column.data(), nullptr);
    const std::vector<int> flags = Flags(result, 3);
    EXPECT_EQ(flags[0], flags[2]);
    EXPECT_NE(flags[0], flags[1]);

    // The second candidate pair, crosswise to the first for block 1 only.
    const std::vector<unsigned char> other = Grid({Colours(12, 198), Colours(200, 10), Colours(10, 190)});
    result = CreateColourSwappingRecommendations(3, 1, false, same.data(), other.data());
    EXPECT_EQ(Flags(result, 3, 1), (std::vector<int>{0, 1, 0}));
}

TEST(ColourSwapping, FlippedGradientComesBackToOneOrientation)
{
    // A smooth dark-to-bright pair field over 16 x 12 blocks, each block's
    // pair exchanged at random: after the recommended exchanges every block
    // has the same orientation, with or without wrapping.
    for (bool wrap : {false, true})
    {
        std::mt19937 random(wrap ? 2 : 1);
        const uint32_t width = 16, height = 12;
        std::vector<Pair> pairs;
        std::vector<int> exchanged;
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
            {
                const unsigned char dark = static_cast<unsigned char>(20 + 3 * x + 2 * y);
                const unsigned char bright = static_cast<unsigned char>(dark + 120 + x);
                exchanged.push_back(int(random() % 2));
                pairs.push_back(exchanged.back() ? Colours(bright, dark) : Colours(dark, bright));
            }
        const std::vector<unsigned char> grid = Grid(pairs);
        auto result = CreateColourSwappingRecommendations(width, height, wrap, grid.data(), nullptr);
        ASSERT_TRUE(result);
        const std::vector<int> flags = Flags(result, width * height);
        for (size_t b = 1; b < flags.size(); ++b)
            ASSERT_EQ(exchanged[b] ^ flags[b], exchanged[0] ^ flags[0]) << "wrap " << wrap << " block " << b;
    }
}
