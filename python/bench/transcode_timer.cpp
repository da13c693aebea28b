// Times Transcode on a texture file: the C++ side of python/bench/bench.py.
//   orbtex_transcode_timer FILE FORMAT QUALITY RUNS
// Prints the median milliseconds of RUNS calls, each on a fresh copy.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ORBTextureInfo.h"
#include "ORBTextureUtilities.h"

int main(int argc, char** argv)
{
    using namespace orbtexture;
    if (argc != 5)
    {
        std::fprintf(stderr, "usage: orbtex_transcode_timer FILE FORMAT QUALITY RUNS\n");
        return 2;
    }
    const CORBTexture source(argv[1]);
    uint64_t format = 0;
    if (!source.getDataPtr() || !ORBTGetPixelFormatFromName(argv[2], format))
    {
        std::fprintf(stderr, "orbtex_transcode_timer: %s\n", ORBTGetLastError());
        return 1;
    }
    std::vector<double> times;
    for (int run = 0; run < std::atoi(argv[4]); ++run)
    {
        CORBTexture texture(source);
        const auto start = std::chrono::steady_clock::now();
        if (!Transcode(texture, PixelType(format), source.getChannelType(), source.getColourSpace(),
                       ECompressorQuality(std::atoi(argv[3]))))
        {
            std::fprintf(stderr, "orbtex_transcode_timer: %s\n", ORBTGetLastError());
            return 1;
        }
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("%.3f\n", times.empty() ? 0.0 : times[times.size() / 2]);
    return 0;
}
