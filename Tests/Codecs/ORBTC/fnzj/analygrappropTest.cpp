// Island detection on block windows, from hand-worked windows, and the fast
// labelling against the plain one.

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/analygrapprop.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"

using namespace orbtexture;

namespace
{

struct Window
{
    CompressParams params;
    std::vector<unsigned char> pixels;

    Window(int width, int height)
    {
        params.windowWidth = static_cast<uint8_t>(width);
        params.windowHeight = static_cast<uint8_t>(height);
        pixels.assign(size_t(width) * height * 4, 255);
    }
    unsigned char* at(int x, int y) { return &pixels[(size_t(y) * params.windowWidth + x) * 4]; }
    void set(int x, int y, int grey, int alpha = 255)
    {
        std::fill_n(at(x, y), 3, static_cast<unsigned char>(grey));
        at(x, y)[3] = static_cast<unsigned char>(alpha);
    }
};

// Runs the analysis and checks the order: a permutation of the pixels in
// which each island is one run, islands in increasing number.
int Islands(Window& window, std::vector<unsigned char>& labels, std::vector<unsigned char>& order)
{
    const int count = window.params.windowWidth * window.params.windowHeight;
    labels.assign(count, 0);
    order.assign(count, 0);
    const int islands = AnalyseGraphicsProperties(window.pixels.data(), window.params, labels.data(), order.data());
    std::vector<unsigned char> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    std::vector<unsigned char> all(count);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(sorted, all);
    for (int i = 1; i < count; ++i)
        EXPECT_TRUE(labels[order[i]] == labels[order[i - 1]] || labels[order[i]] == labels[order[i - 1]] + 1) << i;
    EXPECT_EQ(labels[order[count - 1]], islands - 1);
    return islands;
}

} // namespace

TEST(GraphicsProperties, CheckersJoinOnlyByDiagonals)
{
    std::vector<unsigned char> labels, order;
    // Black and white checker: each colour touches itself only diagonally.
    Window checker(9, 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            checker.set(x, y, (x + y) % 2 ? 255 : 0);
    EXPECT_EQ(Islands(checker, labels, order), 2);
    EXPECT_EQ(labels[0], 0);
    EXPECT_EQ(labels[1], 1);
}

TEST(GraphicsProperties, TransparentPixelsJoinOnlyWithPunchThrough)
{
    // The checker with its first two pixels (black and white) transparent:
    // alone they match nothing, so four islands; with punch-through they
    // join each other.
    Window checker(9, 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            checker.set(x, y, (x + y) % 2 ? 255 : 0, x + y * 9 < 2 ? 0 : 255);
    std::vector<unsigned char> labels, order;
    EXPECT_EQ(Islands(checker, labels, order), 4);
    EXPECT_NE(labels[0], labels[1]);
    checker.params.punchThrough = 1;
    EXPECT_EQ(Islands(checker, labels, order), 3);
    EXPECT_EQ(labels[0], labels[1]);

    // A window too large to number its pixels in bytes is refused.
    Window huge(17, 17);
    std::vector<unsigned char> big(289, 7);
    EXPECT_EQ(AnalyseGraphicsProperties(huge.pixels.data(), huge.params, big.data(), big.data()), 0);
    EXPECT_EQ(big[0], 7);
}

TEST(GraphicsProperties, FastLabelsAreThePlainLabels)
{
    // Windows of both sizes built from a few near colours, ramps and
    // transparent patches, so that every kind of join occurs, with and
    // without punch-through and with early stops.
    std::mt19937 random(7);
    for (int trial = 0; trial < 3000; ++trial)
    {
        Window window(trial % 2 ? 17 : 9, 9);
        const int width = window.params.windowWidth;
        window.params.punchThrough = trial % 3 == 0;
        const int base = int(random() % 200), step = int(random() % 7), spread = 1 + int(random() % 4);
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < width; ++x)
            {
                const int kind = int(random() % 8);
                unsigned char* p = window.at(x, y);
                for (int c = 0; c < 3; ++c)
                    p[c] = static_cast<unsigned char>(kind < 4 ? base + step * (c ? y : x) + int(random() % spread)
                                                               : random());
                p[3] = static_cast<unsigned char>(kind == 7 ? 0 : kind == 6 ? random() : 255);
            }
        const int count = width * 9, enough = trial % 5 == 0 ? 256 : int(random() % 40);
        std::vector<unsigned char> labels[2], order[2];
        int islands[2];
        for (int plain = 0; plain < 2; ++plain)
        {
            SetOptimiserReference(plain == 1);
            labels[plain].assign(count, 0);
            order[plain].assign(count, 0);
            islands[plain] = AnalyseGraphicsProperties(window.pixels.data(), window.params, labels[plain].data(),
                                                       order[plain].data(), enough);
        }
        SetOptimiserReference(false);
        ASSERT_EQ(islands[0], islands[1]) << trial;
        ASSERT_EQ(labels[0], labels[1]) << trial;
        ASSERT_EQ(order[0], order[1]) << trial;
    }
}
