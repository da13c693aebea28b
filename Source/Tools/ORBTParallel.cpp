#include "Tools/ORBTParallel.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

#include "Tools/ORBTCallContext.h"

namespace orbtexture
{

unsigned CallThreadCount()
{
    const unsigned asked = CurrentCallContext().threads;
    if (asked != 0)
        return asked;
    const unsigned cores = std::thread::hardware_concurrency();
    return cores ? cores : 1;
}

void ParallelParts(uint32_t count, unsigned threads, const std::function<void(uint32_t, uint32_t)>& body)
{
    threads = std::max(1u, threads);
    const auto start = [&](unsigned part) { return uint32_t(uint64_t(count) * part / threads); };
    std::vector<std::thread> workers;
    std::vector<unsigned> leftOver;
    for (unsigned part = 1; part < threads; ++part)
    {
        try
        {
            workers.emplace_back(body, start(part), start(part + 1));
        }
        catch (const std::system_error&)
        {
            leftOver.push_back(part);
        }
    }
    body(0, start(1));
    for (unsigned part : leftOver)
        body(start(part), start(part + 1));
    for (std::thread& worker : workers)
        worker.join();
}

void ParallelRanges(uint32_t count, uint64_t pixels, const std::function<void(uint32_t, uint32_t)>& body)
{
    const unsigned threads = pixels > kParallelMinPixels ? std::min<unsigned>(CallThreadCount(), count) : 1;
    if (threads <= 1)
    {
        body(0, count);
        return;
    }
    ParallelParts(count, threads, body);
}

} // namespace orbtexture
