// Native file image parsing and surface lookup.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <unistd.h>

#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

// Memory image of a 1024x1024 rgba8 texture with a full MIP chain and metadata.
std::vector<unsigned char> MakeImage()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 1024, 1024, 1, 11));
    std::memset(texture.getDataPtr(), 0x5A, texture.getDataSize());
    texture.setOrientation(eOrientUp);
    texture.setBorder(1, 2, 0);
    char path[] = "/tmp/orbtex_bench_XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0)
        return {};
    close(fd);
    const CORBTString file = CORBTString(path) + ".orb";
    texture.saveFile(file);
    std::vector<unsigned char> bytes;
    if (FILE* f = std::fopen(file.c_str(), "rb"))
    {
        unsigned char buffer[65536];
        size_t got;
        while ((got = std::fread(buffer, 1, sizeof(buffer), f)) > 0)
            bytes.insert(bytes.end(), buffer, buffer + got);
        std::fclose(f);
    }
    std::remove(file.c_str());
    std::remove(path);
    return bytes;
}

void BM_LoadMemoryImage(benchmark::State& state)
{
    const std::vector<unsigned char> image = MakeImage();
    for (auto _ : state)
    {
        CORBTexture texture(image.data(), image.size());
        benchmark::DoNotOptimize(texture.getDataPtr());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
}
BENCHMARK(BM_LoadMemoryImage);

void BM_SurfaceLookup(benchmark::State& state)
{
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 1024, 1024, 1, 11, 4, 6));
    for (auto _ : state)
        for (uint32_t mip = 0; mip < 11; ++mip)
            benchmark::DoNotOptimize(texture.getDataPtr(mip, 3, 5));
    state.SetItemsProcessed(int64_t(state.iterations()) * 11);
}
BENCHMARK(BM_SurfaceLookup);

} // namespace

BENCHMARK_MAIN();
