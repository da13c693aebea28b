// The optimiser's thread support: counts, the cut of rows, the column order,
// work that does not depend on which threads started, the window tables.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <numeric>
#include <vector>

#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"

using namespace orbtexture;

TEST(OptimiserThreads, CountsAndCuts)
{
    // Half the rows (rounded up), at most 128, at most the cores.
    ORBTCSetProcessorCountOverride(2);
    EXPECT_EQ(OptimiserThreadCount(1), 1u);
    EXPECT_EQ(OptimiserThreadCount(8), 2u);
    ORBTCSetProcessorCountOverride(300);
    EXPECT_EQ(OptimiserThreadCount(7), 4u);
    EXPECT_EQ(OptimiserThreadCount(254), 127u);
    EXPECT_EQ(OptimiserThreadCount(255), 128u);
    ORBTCSetProcessorCountOverride(0);
    EXPECT_GE(DetermineNumberOfCores(), 1u);

    // Ten rows over three statistics threads: 0-2, 3-5, 6-9.
    uint32_t first, end;
    StatsRows(1, 3, 10, first, end);
    EXPECT_EQ(first, 3u);
    EXPECT_EQ(end, 6u);
    StatsRows(2, 3, 10, first, end);
    EXPECT_EQ(end, 10u);
    // Optimise threads cut pairs of rows: of ten over two, thread 1 takes
    // rows 4, 6, 8 (even phase) and 5, 7, 9 (odd).
    OptimiseRows(1, 2, 10, 1, first, end);
    EXPECT_EQ(first, 5u);
    EXPECT_EQ(end, 10u);
    // Every row of each parity goes to exactly one thread.
    for (uint32_t rows = 1; rows <= 21; ++rows)
        for (unsigned n = 1; n <= 6 && n <= std::max(1u, (rows + 1) / 2); ++n)
            for (uint32_t parity = 0; parity < 2; ++parity)
            {
                std::vector<int> seen(rows, 0);
                for (unsigned t = 0; t < n; ++t)
                {
                    OptimiseRows(t, n, rows, parity, first, end);
                    for (uint32_t row = first; row < end; row += 2)
                        ++seen[row];
                }
                for (uint32_t row = 0; row < rows; ++row)
                    ASSERT_EQ(seen[row], row % 2 == parity ? 1 : 0) << rows << " rows, " << n << " threads";
            }
}

TEST(OptimiserThreads, ColumnOrder)
{
    EXPECT_EQ(ColumnVisitOrder(6), (std::vector<uint32_t>{0, 2, 1, 4, 3, 5}));
    EXPECT_EQ(ColumnVisitOrder(5), (std::vector<uint32_t>{0, 2, 1, 4, 3}));
    EXPECT_EQ(ColumnVisitOrder(2), (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(ColumnVisitOrder(1), (std::vector<uint32_t>{0}));
    for (uint32_t w = 1; w < 40; ++w)
    {
        std::vector<uint32_t> order = ColumnVisitOrder(w);
        std::sort(order.begin(), order.end());
        std::vector<uint32_t> all(w);
        std::iota(all.begin(), all.end(), 0u);
        EXPECT_EQ(order, all) << w;
    }
}

namespace
{

struct Share
{
    unsigned index;
    std::atomic<int>* done;
};

void* DoShare(void* argument)
{
    Share* share = static_cast<Share*>(argument);
    share->done[share->index].fetch_add(1);
    return nullptr;
}

} // namespace

TEST(OptimiserThreads, EveryIndexRunsOnceWhateverStarts)
{
    for (unsigned period : {0u, 1u, 2u, 3u})
    {
        SetThreadStartRefusals(period);
        std::atomic<int> done[7] = {};
        Share shares[7];
        void* arguments[7];
        for (unsigned i = 0; i < 7; ++i)
        {
            shares[i] = {i, done};
            arguments[i] = &shares[i];
        }
        RunIndexedWork(7, DoShare, arguments);
        for (unsigned i = 0; i < 7; ++i)
            EXPECT_EQ(done[i].load(), 1) << "refusing every " << period << ", index " << i;
    }
    SetThreadStartRefusals(0);
}

TEST(OptimiserThreads, WindowTables)
{
    // 4bpp: 9 x 9 of the 9-tap filter both ways; the centre is 127^2 / 311^2.
    const std::vector<float> square = WindowFilterWeights(4, 4);
    ASSERT_EQ(square.size(), 81u);
    EXPECT_FLOAT_EQ(square[40], 127.0f * 127.0f / (311.0f * 311.0f));
    EXPECT_NEAR(std::accumulate(square.begin(), square.end(), 0.0f), 1.0f, 1e-5f);
    EXPECT_EQ(square[0], 0.0f);
    // 2bpp: 17 columns of the 17-tap filter.
    const std::vector<float> wide = WindowFilterWeights(8, 4);
    ASSERT_EQ(wide.size(), 153u);
    EXPECT_FLOAT_EQ(wide[4 * 17 + 8], 127.0f * 127.0f / (595.0f * 311.0f));
    EXPECT_NEAR(std::accumulate(wide.begin(), wide.end(), 0.0f), 1.0f, 1e-5f);

    // The block's own pixels: columns 2 to 5 and rows 2 to 5 of 9 x 9;
    // columns 4 to 11 of 17 x 9.
    const std::vector<unsigned char> own = CentralFlags(4, 4), ownWide = CentralFlags(8, 4);
    EXPECT_EQ(std::count(own.begin(), own.end(), 1), 16);
    EXPECT_EQ(own[2 * 9 + 2], 1);
    EXPECT_EQ(own[6 * 9 + 5], 0);
    EXPECT_EQ(std::count(ownWide.begin(), ownWide.end(), 1), 32);
    EXPECT_EQ(ownWide[2 * 17 + 4], 1);
    EXPECT_EQ(ownWide[2 * 17 + 12], 0);
}
