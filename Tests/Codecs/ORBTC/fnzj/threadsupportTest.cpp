// The optimiser's thread support: counts, the cut of rows, the column order,
// work that does not depend on which threads started.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
