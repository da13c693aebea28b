// The statistics phases: the mode lists, the boxes of flat and transparent
// windows worked by hand, and records that do not depend on the thread count.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "OptimiserTestGrid.h"

using namespace orbtexture;
using namespace optimisertest;

namespace
{

bool SameBox(const StatBox& a, const StatBox& b)
{
    return std::memcmp(&a, &b, sizeof(StatBox)) == 0;
}

bool SameColour(const unsigned char* a, const unsigned char* b)
{
    return std::memcmp(a, b, 4) == 0;
}

// A record's bytes without padding, its slots' box pointers as box numbers.
std::vector<unsigned char> Bytes(const RegionStats& r)
{
    auto bytes = [](const void* p) { return static_cast<const unsigned char*>(p); };
    std::vector<unsigned char> out(bytes(&r), bytes(&r) + offsetof(RegionStats, modeSlots));
    for (const ModeSlot& slot : r.modeSlots)
    {
        out.insert(out.end(), {slot.mode, slot.candidateCount,
                               uint8_t(slot.boundingBox ? slot.boundingBox - &r.AllBox : 255)});
        for (const RepCandidate& c : slot.candidates)
            out.insert(out.end(), bytes(&c), bytes(&c.hardVariant) + 4);
    }
    out.push_back(uint8_t(r.selectedMode));
    return out;
}

std::vector<uint8_t> Modes(unsigned format, unsigned bits, unsigned generation2, unsigned hint)
{
    uint8_t list[8];
    const int count = ConstructListOfNeededModes(format, bits, generation2, hint, list);
    return std::vector<uint8_t>(list, list + count);
}

} // namespace

TEST(OptimiserStatsModes, ListsByFormatGenerationAndHint)
{
    using V = std::vector<uint8_t>;
    EXPECT_EQ(Modes(0, 4, 0, 3), (V{0, 1}));
    EXPECT_EQ(Modes(2, 4, 1, 0), (V{4, 5, 6, 7}));
    EXPECT_EQ(Modes(3, 4, 1, 0), (V{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Modes(4, 2, 1, 0), (V{8, 9, 10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(Modes(4, 2, 0, 2), (V{8, 10}));
    EXPECT_EQ(Modes(4, 2, 1, 7), (V{8, 11, 12, 15}));
    EXPECT_DEATH(Modes(4, 1, 0, 0), "Exiting! 1bpp not yet implemented \\(OptimiseRegion\\)");
}

TEST(OptimiserStats, FlatWindowPutsItsColourInEverySlot)
{
    // On the grid of both colours, so the palette's mapping keeps it.
    TestImage image(8, 8);
    image.Fill({41, 82, 206, 255});
    TestGrid stats = StatsOf(image, 4, true);
    RegionStats& r = stats.at(1, 0);
    const unsigned char colour[4] = {41, 82, 206, 255};
    EXPECT_EQ(r.flatRegion, 1u);
    for (const StatBox* box : {&r.AllBox, &r.OpaqueBox, &r.CentralBox, &r.ResidualBox})
        EXPECT_TRUE(box->singleColour && SameColour(box->meanColour, colour));
    // Equal sizes (both 0): mode 0 keeps AllBox.
    const StatBox* boxes[4] = {&r.AllBox, &r.OpaqueBox, &r.CentralBox, &r.AllBox};
    for (int i = 0; i < 4; ++i)
    {
        const ModeSlot& slot = r.modeSlots[i];
        EXPECT_EQ(slot.mode, i);
        EXPECT_EQ(slot.boundingBox, boxes[i]) << i;
        ASSERT_EQ(slot.candidateCount, 1) << i;
        const RepCandidate& c = slot.candidates[0];
        EXPECT_TRUE(SameColour(c.repA, colour) && SameColour(c.repB, colour)) << i;
        EXPECT_TRUE(c.totalError == kFreshCandidateError && c.centralError == kFreshCandidateError);
    }
    EXPECT_EQ(r.selectedMode, 0u);
}

TEST(OptimiserStats, TransparentWindows)
{
    // All alpha 0 in generation 1: the mean alpha is 0 and OpaqueBox copies
    // AllBox; punch-through alone selects the second mode.
    TestImage image(8, 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            image.Set(x, y, {x * 30, y * 20, (x * y) % 7 * 30, 0});
    for (bool punchThrough : {false, true})
    {
        TestGrid stats = StatsOf(image, 4, false, punchThrough);
        const RegionStats& r = stats.at(1, 1);
        EXPECT_TRUE(r.hasTransparent && SameBox(r.OpaqueBox, r.AllBox));
        EXPECT_EQ(r.selectedMode, punchThrough ? 1u : 0u);
    }

    // Block (1, 1)'s window covers image columns and rows 2 to 10. With all
    // of it transparent, or all but its border rows and columns, its
    // neighbours' means are not zero, yet its residuals count as zero.
    for (int border : {0, 1})
    {
        TestImage amid(16, 16);
        amid.Fill({100, 150, 200, 255});
        for (int y = 2 + border; y <= 10 - border; ++y)
            for (int x = 2 + border; x <= 10 - border; ++x)
                amid.Set(x, y, {0, 0, 0, 0});
        TestGrid stats = StatsOf(amid, 4, true);
        const RegionStats& r = stats.at(1, 1);
        EXPECT_NE(stats.at(0, 0).AllBox.meanColour[0], 0);
        EXPECT_EQ(SameBox(r.OpaqueBox, r.AllBox), border == 0);
        EXPECT_EQ(r.ResidualBox.singleColour, 1u);
        for (int c = 0; c < 4; ++c)
            EXPECT_TRUE(r.ResidualBox.box.minimum[c] == 0.0f && r.ResidualBox.box.maximum[c] == 0.0f) << border;
        EXPECT_EQ(r.ResidualBox.meanColour[0], 0);
        EXPECT_TRUE(SameBox(r.ResidualOpaqueBox, r.ResidualBox));
        EXPECT_EQ(r.hasTransparent, 1u);
        EXPECT_EQ(r.selectedMode, 1u);
    }
}

TEST(OptimiserStats, RecordsDoNotDependOnTheThreadCount)
{
    TestImage image(24, 40);
    unsigned seed = 7;
    for (auto& byte : image.pixels)
    {
        seed = seed * 1103515245u + 12345u;
        byte = uint8_t(seed >> 16);
    }
    for (int i = 0; i < 24 * 40; i += 5)
        std::memset(&image.pixels[4 * size_t(i)], 0, 4);
    for (int bits : {4, 2})
    {
        TestGrid one = StatsOf(image, bits, true, false, 1), three = StatsOf(image, bits, true, false, 3);
        for (uint32_t y = 0; y < one.params.blocksHigh; ++y)
            for (uint32_t x = 0; x < one.params.blocksWide; ++x)
                ASSERT_EQ(Bytes(one.at(x, y)), Bytes(three.at(x, y))) << bits << "bpp " << x << "," << y;
    }
}
