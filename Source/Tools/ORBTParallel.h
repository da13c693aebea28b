#ifndef ORBTPARALLEL_H
#define ORBTPARALLEL_H

// Splitting of large surfaces over threads, for work whose output does not
// depend on how it is split.

#include <cstdint>
#include <functional>

namespace orbtexture
{

// Surfaces of more pixels than this are split.
constexpr uint64_t kParallelMinPixels = 1000000;

// Threads the current call may use: its context's count, else the machine's.
unsigned CallThreadCount();

// Runs body(first, end) over contiguous parts of [0, count), one per thread,
// when 'pixels' is above kParallelMinPixels and the call may use more than one
// thread; the calling thread takes the first part. Otherwise runs body(0,
// count) here. A thread that cannot be started leaves its part to the caller.
void ParallelRanges(uint32_t count, uint64_t pixels, const std::function<void(uint32_t, uint32_t)>& body);

// Runs body(first, end) over 'threads' contiguous parts of [0, count) (at
// least one), the calling thread taking the first; a thread that cannot be
// started leaves its part to the caller.
void ParallelParts(uint32_t count, unsigned threads, const std::function<void(uint32_t, uint32_t)>& body);

} // namespace orbtexture

#endif
