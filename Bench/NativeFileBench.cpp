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

// A 1x1 texture with N one-byte metadata items, half of them under their own
// fourCC: loading must grow linearly with N.
std::vector<unsigned char> MakeManyItems(uint32_t count)
{
    ORBTextureHeaderV3 record;
    record.pixelFormat = ORBStandard8PixelType;
    record.metaDataSize = count * 13;
    std::vector<unsigned char> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    for (uint32_t i = 0; i < count; ++i)
    {
        const uint32_t words[3] = {i % 2 ? i : 0x44444444u, i, 1};
        const unsigned char* p = reinterpret_cast<const unsigned char*>(words);
        bytes.insert(bytes.end(), p, p + sizeof words);
        bytes.push_back(static_cast<unsigned char>(i));
    }
    bytes.insert(bytes.end(), 4, 0xFF);
    return bytes;
}

void BM_LoadManyMetaDataItems(benchmark::State& state)
{
    const std::vector<unsigned char> image = MakeManyItems(uint32_t(state.range(0)));
    for (auto _ : state)
    {
        CORBTexture texture(image.data(), image.size());
        benchmark::DoNotOptimize(texture.getDataPtr());
    }
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
}
BENCHMARK(BM_LoadManyMetaDataItems)->RangeMultiplier(4)->Range(2500, 160000)->Complexity();

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
