#ifndef ORBTSIMD_H
#define ORBTSIMD_H

// The instruction sets of the pixel kernels. Every path gives the same bytes;
// the fastest one the processor runs is chosen once, and tests (or the
// ORBTEX_SIMD environment variable: portable, sse2, avx2) may pick another.
//
// On x86-64 the SSE2 path is the baseline and AVX2 functions are compiled
// with a target attribute and called only when the processor has AVX2. The
// CMake option ORBT_PORTABLE builds the portable C++ path alone, without x86
// intrinsics.

#if !defined(ORBT_PORTABLE_ONLY) && (defined(__x86_64__) || defined(_M_X64)) && (defined(__GNUC__) || defined(__clang__))
#define ORBT_X86_SIMD 1
#define ORBT_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define ORBT_X86_SIMD 0
#endif

namespace orbtexture
{

enum ESimdPath
{
    eSimdPortable = 0,
    eSimdSSE2 = 1,
    eSimdAVX2 = 2,
};

// Whether this build and processor run 'path'.
bool SimdPathAvailable(ESimdPath path);

// The path the kernels take now.
ESimdPath ActiveSimdPath();

// Makes the kernels take 'path', or the best available below it; returns the
// path taken. Process-wide: for tests and benchmarks, not for concurrent use.
ESimdPath SetSimdPath(ESimdPath path);

// "portable", "sse2" or "avx2".
const char* SimdPathName(ESimdPath path);

} // namespace orbtexture

#endif
