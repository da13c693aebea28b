#include "Codecs/ORBTC/fnzj/threadsupport.h"

#include "Codecs/ORBTC/ORBTCMultiThreadedCompressor.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"
#include "Codecs/ORBTC/fnzj/optimiser_path.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <cmath>
#include <new>
#include <unordered_map>
#include <vector>

namespace orbtexture
{

namespace
{

std::atomic<unsigned int> refusalPeriod(0), startAttempts(0);

constexpr float kFilter9[9] = {0, 8, 26, 58, 127, 58, 26, 8, 0};
constexpr float kFilter17[17] = {0, 3, 8, 15, 26, 39, 58, 85, 127, 85, 58, 39, 26, 15, 8, 3, 0};

} // namespace

void GatherWindowPixels(const ImageBuffer& image, const CompressParams& params, uint32_t row, uint32_t column,
                        unsigned char* window)
{
    const int width = image.width, height = image.height;
    const int bw = params.blockWidth, bh = params.blockHeight;
    const int left = int(column) * bw + bw / 2 - bw, top = int(row) * bh + bh / 2 - bh;
    int y = (top % height + height) % height;
    const int x0 = (left % width + width) % width;
    for (int v = 0; v < params.windowHeight; ++v, y = y + 1 == height ? 0 : y + 1)
    {
        const unsigned char* source = image.rows[y];
        if (left >= 0 && left + params.windowWidth <= width)
        {
            // Away from the sides the row's run is one copy.
            std::memcpy(window, source + 4 * left, 4 * size_t(params.windowWidth));
            window += 4 * params.windowWidth;
            continue;
        }
        for (int u = 0, x = x0; u < params.windowWidth; ++u, x = x + 1 == width ? 0 : x + 1)
        {
            std::memcpy(window, source + 4 * x, 4);
            window += 4;
        }
    }
}

uint32_t TwiddleUV(uint32_t blocksHigh, uint32_t blocksWide, uint32_t y, uint32_t x, bool noTwiddle)
{
    return noTwiddle ? y * blocksWide + x : ORBTCTwiddleIndex(blocksWide, blocksHigh, x, y);
}

// ---- Thread support ----

unsigned int DetermineNumberOfCores()
{
    if (const unsigned int forced = ORBTCProcessorCountOverride())
        return forced;
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<unsigned int>(online) : 0u;
}

int LaunchThread(void* (*routine)(void*), void* argument, pthread_t& threadHandle)
{
    const unsigned int period = refusalPeriod.load();
    if (period != 0 && ++startAttempts % period == 0)
        return 0;
    return pthread_create(&threadHandle, nullptr, routine, argument) == 0 ? 1 : 0;
}

void WaitForThreads(const pthread_t* threadHandles, int count)
{
    for (int i = 0; i < count; ++i)
        if (const int error = pthread_join(threadHandles[i], nullptr); error != 0)
        {
            // Ends the process: a worker that cannot be joined leaves shared rows in an unknown state.
            std::fprintf(stderr, "%s at \"%s\":%d: %s\n", "Join thread", "threadsupport", __LINE__, std::strerror(error));
            std::abort();
        }
}

void SetThreadStartRefusals(unsigned int period)
{
    refusalPeriod.store(period);
    startAttempts.store(0);
}

unsigned int OptimiserThreadCount(uint32_t blocksHigh)
{
    const uint64_t rows = uint64_t(blocksHigh) + 1;
    const unsigned int pairs = rows >= 256 ? 128u : unsigned(rows / 2);
    const unsigned int asked = CurrentCallContext().threads;
    const unsigned int cores = asked ? asked : DetermineNumberOfCores();
    return std::min(cores == 0 ? 4u : cores, pairs);
}

void RunIndexedWork(unsigned int count, void* (*routine)(void*), void* const* arguments)
{
    std::vector<pthread_t> running;
    for (unsigned int index = 0; index + 1 < count;)
    {
        pthread_t handle;
        if (LaunchThread(routine, arguments[index], handle))
        {
            running.push_back(handle);
            ++index;
        }
        else if (!running.empty())
        {
            WaitForThreads(running.data(), int(running.size()));
            running.clear(); // and the same index again
        }
        else
            routine(arguments[index++]);
    }
    if (count > 0)
        routine(arguments[count - 1]);
    WaitForThreads(running.data(), int(running.size()));
}

void StatsRows(unsigned int t, unsigned int n, uint32_t blocksHigh, uint32_t& first, uint32_t& end)
{
    first = uint32_t(uint64_t(t) * blocksHigh / n);
    end = uint32_t((uint64_t(blocksHigh) + uint64_t(t) * blocksHigh) / n);
}

void OptimiseRows(unsigned int t, unsigned int n, uint32_t blocksHigh, uint32_t parity, uint32_t& first,
                  uint32_t& end)
{
    const uint64_t half = blocksHigh / 2;
    first = uint32_t(2 * (uint64_t(t) * half / n) + parity);
    end = t + 1 == n ? blocksHigh : uint32_t(2 * ((half + uint64_t(t) * half) / n));
}

namespace
{

// Columns of a stage: how many, and the first and step.
uint32_t StageColumns(uint32_t blocksWide, uint32_t stage, uint32_t& first)
{
    const bool oddLast = blocksWide > 1 && blocksWide % 2 == 1;
    first = stage == 0 ? 0 : stage == 1 ? blocksWide - 1 : 1;
    if (stage == 0)
        return (blocksWide + 1) / 2 - (oddLast ? 1 : 0);
    return stage == 1 ? (oddLast ? 1 : 0) : blocksWide / 2;
}

} // namespace

uint32_t StageBlockCount(uint32_t blocksWide, uint32_t blocksHigh, uint32_t parity, uint32_t stage)
{
    uint32_t first;
    const uint32_t rows = (blocksHigh + 1 - parity) / 2 - (HoldsBackLastRow(blocksHigh, parity) ? 1 : 0);
    return rows * StageColumns(blocksWide, stage, first);
}

void StageBlock(uint32_t blocksWide, uint32_t parity, uint32_t stage, uint32_t index, uint32_t& row,
                uint32_t& column)
{
    uint32_t first;
    const uint32_t columns = StageColumns(blocksWide, stage, first);
    row = 2 * (index / columns) + parity;
    column = first + 2 * (index % columns);
}

std::vector<uint32_t> ColumnVisitOrder(uint32_t blocksWide)
{
    std::vector<uint32_t> order;
    if (blocksWide == 0)
        return order;
    order.push_back(0);
    for (uint32_t i = 1; i < blocksWide; ++i)
        order.push_back(i % 2 ? std::min(i + 1, blocksWide - 1) : i - 1);
    return order;
}

std::vector<float> WindowFilterWeights(uint32_t blockWidth, uint32_t blockHeight)
{
    const bool wide = blockWidth != blockHeight;
    const float* columns = wide ? kFilter17 : kFilter9;
    const int width = wide ? 17 : 9;
    const float columnSum = wide ? 595.0f : 311.0f, rowSum = 311.0f;
    std::vector<float> weights(size_t(width) * 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < width; ++x)
            weights[size_t(y) * width + x] = columns[x] * kFilter9[y] / (columnSum * rowSum);
    return weights;
}

std::vector<unsigned char> CentralFlags(uint32_t blockWidth, uint32_t blockHeight)
{
    const uint32_t width = 2 * blockWidth + 1, height = 2 * blockHeight + 1;
    std::vector<unsigned char> flags(size_t(width) * height, 0);
    for (uint32_t y = blockHeight / 2; y < 3 * blockHeight / 2; ++y)
        for (uint32_t x = blockWidth / 2; x < 3 * blockWidth / 2; ++x)
            flags[size_t(y) * width + x] = 1;
    return flags;
}

namespace
{

// Euclidean distance over the four channels, rounded to an integer.
uint64_t Distance(const unsigned char* a, const unsigned char* b)
{
    double sum = 0.0;
    for (int c = 0; c < 4; ++c)
        sum += double(a[c] - b[c]) * double(a[c] - b[c]);
    return uint64_t(std::sqrt(sum) + 0.5);
}

// A relation between two blocks, or between the islands holding them. The
// costs are for the flags the two blocks had when they were stored ('parity',
// their flags' exclusive or): keeping both orientations, or turning one.
struct Edge
{
    uint32_t first, second; // blocks standing for the two islands
    uint64_t same, swap;
    uint32_t parity;
};

float Ratio(uint64_t same, uint64_t swap)
{
    const uint64_t larger = std::max(same, swap), smaller = std::max<uint64_t>(std::min(same, swap), 1);
    return float(double(larger) / double(smaller));
}

} // namespace

namespace
{

// Edges to the right and lower neighbours (wrapping when asked, unless the
// grid is one block across that way), with their costs.
std::vector<Edge> GridEdges(uint32_t width, uint32_t height, bool wrap, const unsigned char* pairs)
{
    auto colourA = [pairs](uint32_t b) { return pairs + 8 * size_t(b); };
    auto colourB = [pairs](uint32_t b) { return pairs + 8 * size_t(b) + 4; };
    std::vector<Edge> edges;
    edges.reserve(size_t(width) * height * 2);
    auto link = [&](uint32_t a, uint32_t b) {
        edges.push_back({a, b, Distance(colourA(a), colourA(b)) + Distance(colourB(a), colourB(b)),
                         Distance(colourA(a), colourB(b)) + Distance(colourB(a), colourA(b)), 0});
    };
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
        {
            const uint32_t b = y * width + x;
            if (x + 1 < width)
                link(b, b + 1);
            else if (wrap && width > 1)
                link(b, y * width);
            if (y + 1 < height)
                link(b, b + width);
            else if (wrap && height > 1)
                link(b, x);
        }
    return edges;
}

// The costs of an edge for the flags its blocks have now.
inline void CurrentCosts(const Edge& e, const uint8_t* result, uint64_t& same, uint64_t& swap)
{
    const bool turned = uint32_t(result[2 * size_t(e.first)] ^ result[2 * size_t(e.second)]) != e.parity;
    same = turned ? e.swap : e.same;
    swap = turned ? e.same : e.swap;
}

// An edge between blocks a and b with costs for their flags now.
inline Edge FiledEdge(uint32_t a, uint32_t b, uint64_t same, uint64_t swap, const uint8_t* result)
{
    return {a, b, same, swap, uint32_t(result[2 * size_t(a)] ^ result[2 * size_t(b)])};
}

// Adds costs taken for the flags now to an edge between the same islands.
inline void AddCosts(Edge& existing, uint64_t same, uint64_t swap, const uint8_t* result)
{
    uint64_t existingSame, existingSwap;
    CurrentCosts(existing, result, existingSame, existingSwap);
    existing = FiledEdge(existing.first, existing.second, existingSame + same, existingSwap + swap, result);
}

// The sweeps as written: each block's island and each island's block list,
// the edges sorted stably, merged through a map.
void PlainSweeps(uint32_t count, std::vector<Edge> edges, uint8_t* result)
{
    // Islands: each block's island number, each island's blocks, its
    // number in the order of the sweep.
    std::vector<uint32_t> island(count), rank(count);
    std::vector<std::vector<uint32_t>> members(count);
    for (uint32_t b = 0; b < count; ++b)
    {
        island[b] = rank[b] = b;
        members[b] = {b};
    }
    std::vector<uint8_t> touched(count);
    auto flag = [&](uint32_t b) -> uint8_t& { return result[2 * size_t(b)]; };
    auto current = [&](const Edge& e, uint64_t& same, uint64_t& swap) { CurrentCosts(e, result, same, swap); };

    while (!edges.empty())
    {
        // Most confident first; the lower numbered islands first on a tie.
        std::vector<std::pair<float, size_t>> order;
        order.reserve(edges.size());
        for (size_t i = 0; i < edges.size(); ++i)
        {
            uint64_t same, swap;
            current(edges[i], same, swap);
            order.push_back({Ratio(same, swap), i});
        }
        std::stable_sort(order.begin(), order.end(), [&](const auto& p, const auto& q) {
            if (p.first != q.first)
                return p.first > q.first;
            const Edge &a = edges[p.second], &b = edges[q.second];
            const uint32_t a1 = rank[island[a.first]], b1 = rank[island[b.first]];
            return a1 != b1 ? a1 < b1 : rank[island[a.second]] < rank[island[b.second]];
        });
        std::fill(touched.begin(), touched.end(), 0);
        std::vector<Edge> waiting;
        for (const auto& entry : order)
        {
            const Edge& e = edges[entry.second];
            const uint32_t head = island[e.first], member = island[e.second];
            if (head == member)
                continue; // inside one island now
            if (touched[head] || touched[member])
            {
                waiting.push_back(e);
                continue;
            }
            // The second island joins the first, turned over when that
            // costs less.
            uint64_t same, swap;
            current(e, same, swap);
            const bool turn = swap < same;
            for (uint32_t b : members[member])
            {
                island[b] = head;
                if (turn)
                    flag(b) ^= 1;
            }
            members[head].insert(members[head].end(), members[member].begin(), members[member].end());
            members[member].clear();
            touched[head] = touched[member] = 1;
        }

        // Edges between the same two islands become one, their costs
        // summed for the present flags; the islands are numbered afresh.
        std::vector<uint32_t> alive;
        for (uint32_t i = 0; i < count; ++i)
            if (!members[i].empty())
                alive.push_back(i);
        std::sort(alive.begin(), alive.end(), [&](uint32_t a, uint32_t b) { return rank[a] < rank[b]; });
        for (uint32_t n = 0; n < alive.size(); ++n)
            rank[alive[n]] = n;
        std::vector<Edge> merged;
        std::unordered_map<uint64_t, size_t> between; // island pair to its merged edge
        for (const Edge& e : waiting)
        {
            uint32_t p = island[e.first], q = island[e.second];
            if (p == q)
                continue;
            uint64_t same, swap;
            current(e, same, swap);
            uint32_t first = e.first, second = e.second;
            if (rank[p] > rank[q])
                std::swap(p, q), std::swap(first, second); // filed under the lower numbered island
            const auto found = between.emplace(uint64_t(p) * count + q, merged.size());
            if (found.second)
                merged.push_back(FiledEdge(first, second, same, swap, result));
            else
                AddCosts(merged[found.first->second], same, swap, result);
        }
        edges.swap(merged);
    }
}

// The same sweeps with flat structures: islands as linked block lists, the
// sort on keys that hold the ratio's bits (ratios are at least 1, so their
// bits order as integers), both ranks and the edge's place, which make every
// key distinct and so the order the stable sort's; the merge through an
// open-addressed table of island pairs.
void FastSweeps(uint32_t count, std::vector<Edge> edges, uint8_t* result)
{
    std::vector<uint32_t> island(count), rank(count), first(count), last(count), next(count), byRank(count);
    std::vector<uint32_t> touched(count, 0);
    for (uint32_t b = 0; b < count; ++b)
        island[b] = rank[b] = first[b] = last[b] = byRank[b] = b;
    constexpr uint32_t kEnd = 0xFFFFFFFFu;
    std::fill(next.begin(), next.end(), kEnd);
    struct Key
    {
        uint64_t high, low;
        bool operator<(const Key& k) const { return high != k.high ? high < k.high : low < k.low; }
    };
    std::vector<Key> keys;
    std::vector<Edge> waiting, merged;
    std::vector<uint64_t> slotPairs;
    std::vector<uint32_t> slotEdges;
    uint32_t sweep = 0;

    while (!edges.empty())
    {
        ++sweep;
        keys.resize(edges.size());
        for (size_t i = 0; i < edges.size(); ++i)
        {
            uint64_t same, swap;
            CurrentCosts(edges[i], result, same, swap);
            const float ratio = Ratio(same, swap);
            uint32_t bits;
            std::memcpy(&bits, &ratio, 4);
            keys[i] = {uint64_t(~bits) << 32 | rank[island[edges[i].first]],
                       uint64_t(rank[island[edges[i].second]]) << 32 | i};
        }
        std::sort(keys.begin(), keys.end());
        waiting.clear();
        for (const Key& key : keys)
        {
            const Edge& e = edges[uint32_t(key.low)];
            const uint32_t head = island[e.first], member = island[e.second];
            if (head == member)
                continue;
            if (touched[head] == sweep || touched[member] == sweep)
            {
                waiting.push_back(e);
                continue;
            }
            uint64_t same, swap;
            CurrentCosts(e, result, same, swap);
            const uint8_t turn = swap < same ? 1 : 0;
            for (uint32_t b = first[member]; b != kEnd; b = next[b])
            {
                island[b] = head;
                result[2 * size_t(b)] ^= turn;
            }
            next[last[head]] = first[member];
            last[head] = last[member];
            first[member] = kEnd;
            touched[head] = touched[member] = sweep;
        }

        size_t alive = 0;
        for (uint32_t i : byRank)
            if (first[i] != kEnd)
            {
                rank[i] = uint32_t(alive);
                byRank[alive++] = i;
            }
        byRank.resize(alive);

        size_t slots = 16;
        while (slots < 2 * waiting.size())
            slots *= 2;
        slotPairs.assign(slots, ~uint64_t(0));
        slotEdges.resize(slots);
        merged.clear();
        for (const Edge& e : waiting)
        {
            uint32_t p = island[e.first], q = island[e.second];
            if (p == q)
                continue;
            uint64_t same, swap;
            CurrentCosts(e, result, same, swap);
            uint32_t a = e.first, b = e.second;
            if (rank[p] > rank[q])
                std::swap(p, q), std::swap(a, b);
            const uint64_t pair = uint64_t(p) << 32 | q;
            size_t slot = size_t((pair * 0x9E3779B97F4A7C15ull) >> 32) & (slots - 1);
            while (slotPairs[slot] != pair && slotPairs[slot] != ~uint64_t(0))
                slot = (slot + 1) & (slots - 1);
            if (slotPairs[slot] != pair)
            {
                slotPairs[slot] = pair;
                slotEdges[slot] = uint32_t(merged.size());
                merged.push_back(FiledEdge(a, b, same, swap, result));
            }
            else
                AddCosts(merged[slotEdges[slot]], same, swap, result);
        }
        edges.swap(merged);
    }
}

} // namespace

std::unique_ptr<uint8_t[]> CreateColourSwappingRecommendations(uint32_t width, uint32_t height, bool wrap,
                                                               const unsigned char* pairs,
                                                               const unsigned char* otherPairs)
{
    const uint64_t blocks = uint64_t(width) * height;
    if (blocks < 2 || blocks > 0xFFFFFFFFu / 2)
        return nullptr;
    std::unique_ptr<uint8_t[]> result(new (std::nothrow) uint8_t[size_t(blocks) * 2]());
    if (!result)
        return nullptr;
    const uint32_t count = uint32_t(blocks);

    if (otherPairs)
        for (uint32_t b = 0; b < count; ++b)
        {
            const unsigned char *pa = pairs + 8 * size_t(b), *pb = pa + 4;
            const unsigned char *qa = otherPairs + 8 * size_t(b), *qb = qa + 4;
            result[2 * size_t(b) + 1] = Distance(pa, qb) + Distance(pb, qa) < Distance(pa, qa) + Distance(pb, qb);
        }

    try
    {
        std::vector<Edge> edges = GridEdges(width, height, wrap, pairs);
        if (OptimiserReference())
            PlainSweeps(count, std::move(edges), result.get());
        else
            FastSweeps(count, std::move(edges), result.get());
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
    return result;
}

} // namespace orbtexture
