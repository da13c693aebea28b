#include "Tools/ORBTSimd.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace orbtexture
{

namespace
{

ESimdPath BestAvailable(ESimdPath wanted)
{
    for (int path = wanted; path > eSimdPortable; --path)
        if (SimdPathAvailable(ESimdPath(path)))
            return ESimdPath(path);
    return eSimdPortable;
}

ESimdPath InitialPath()
{
    const char* asked = std::getenv("ORBTEX_SIMD");
    for (int path = eSimdPortable; asked && path <= eSimdAVX2; ++path)
        if (std::strcmp(asked, SimdPathName(ESimdPath(path))) == 0)
            return BestAvailable(ESimdPath(path));
    return BestAvailable(eSimdAVX2);
}

std::atomic<int>& Active()
{
    static std::atomic<int> active{InitialPath()};
    return active;
}

} // namespace

bool SimdPathAvailable(ESimdPath path)
{
    switch (path)
    {
    case eSimdPortable: return true;
#if ORBT_X86_SIMD
    case eSimdSSE2: return true;
    case eSimdAVX2:
    {
        static const bool hasAVX2 = __builtin_cpu_supports("avx2");
        return hasAVX2;
    }
#endif
    default: return false;
    }
}

ESimdPath ActiveSimdPath() { return ESimdPath(Active().load(std::memory_order_relaxed)); }

ESimdPath SetSimdPath(ESimdPath path)
{
    const ESimdPath taken = BestAvailable(path);
    Active().store(taken, std::memory_order_relaxed);
    return taken;
}

const char* SimdPathName(ESimdPath path)
{
    static const char* const names[] = {"portable", "sse2", "avx2"};
    return path >= eSimdPortable && path <= eSimdAVX2 ? names[path] : "unknown";
}

} // namespace orbtexture
