// KTX 2.0 files: writing and reading a 4096 x 4096 ETC2_RGB texture with all
// its levels in memory, without supercompression and with Zstandard at levels
// 3 and 19, in megabytes of pixel data a second; "ratio" is the pixel data
// over the file. BM_ZstdRatio gives the ratio alone for ETC2_RGB, ORBTC 4bpp
// and ASTC 6x6 data of a 512 x 512 image with all its levels (ASTC needs
// astcenc on the PATH); a photo of that size or more is cropped, not scaled.
//
// Image: the first .png or .jpg in the folder named by ORBTEX_BENCH_PHOTOS,
// point-sampled to size, otherwise smooth gradients with noise made here.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include "BenchPhotos.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"

using namespace orbtexture;

namespace
{

// An rgba8 texture of size x size with a full MIP chain, compressed to 'format'.
CORBTexture MakeTexture(unsigned size, EORBTPixelFormat format)
{
    std::vector<uint8_t> pixels;
    if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
    {
        std::vector<benchphotos::Image> photos = benchphotos::LoadPhotos(folder, size);
        if (!photos.empty())
            pixels = photos[0].rgba;
    }
    if (pixels.empty())
    {
        pixels.resize(size_t(size) * size * 4);
        uint32_t noise = 12345;
        for (size_t i = 0; i < pixels.size(); ++i)
        {
            noise = noise * 1664525u + 1013904223u;
            const size_t pixel = i / 4, x = pixel % size, y = pixel / size;
            pixels[i] = uint8_t((i % 4 == 3 ? 255 : (x * (1 + i % 4) + y * 3) * 255 / (4 * size)) + (noise >> 29));
        }
    }
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, size, size), pixels.data());
    if (!GenerateMIPMaps(texture, eResizeLinear, 0xFFFFFFFFu) ||
        !Transcode(texture, PixelType(format), eVarUnsignedByteNorm, eColourSpaceLinear))
    {
        std::fprintf(stderr, "KTX2 bench: cannot make %s: %s\n", ORBTGetPixelFormatName(format).c_str(),
                     ORBTGetLastError());
        return CORBTexture();
    }
    return texture;
}

const CORBTexture& Large()
{
    static const CORBTexture texture = MakeTexture(4096, ePF_ETC2_RGB);
    return texture;
}

void BM_KTX2Write(benchmark::State& state)
{
    const CORBTexture& texture = Large();
    std::vector<uint8_t> file;
    for (auto _ : state)
    {
        file.clear();
        if (!texture.saveToMemoryKTX2(file, int(state.range(0))))
            state.SkipWithError(ORBTGetLastError());
        benchmark::DoNotOptimize(file.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * texture.getDataSize());
    state.counters["ratio"] = file.empty() ? 0.0 : double(texture.getDataSize()) / double(file.size());
}
BENCHMARK(BM_KTX2Write)->Arg(0)->Arg(3)->Arg(19)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_KTX2Read(benchmark::State& state)
{
    const CORBTexture& texture = Large();
    std::vector<uint8_t> file;
    if (!texture.saveToMemoryKTX2(file, int(state.range(0))))
        state.SkipWithError(ORBTGetLastError());
    for (auto _ : state)
    {
        CORBTexture loaded;
        if (!loaded.loadFromMemory(file.data(), file.size(), "bench.ktx2"))
            state.SkipWithError(ORBTGetLastError());
        benchmark::DoNotOptimize(loaded.getDataPtr());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * texture.getDataSize());
}
BENCHMARK(BM_KTX2Read)->Arg(0)->Arg(3)->Arg(19)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ZstdRatio(benchmark::State& state)
{
    const EORBTPixelFormat format = EORBTPixelFormat(state.range(0));
    state.SetLabel(ORBTGetPixelFormatName(format).c_str());
    const CORBTexture texture = MakeTexture(512, format);
    std::vector<uint8_t> file;
    for (auto _ : state)
    {
        file.clear();
        if (!texture.getDataPtr() || !texture.saveToMemoryKTX2(file, 19))
            state.SkipWithError(ORBTGetLastError());
    }
    state.counters["ratio"] = file.empty() ? 0.0 : double(texture.getDataSize()) / double(file.size());
}
BENCHMARK(BM_ZstdRatio)
    ->Arg(ePF_ETC2_RGB)
    ->Arg(ePF_ORBTC_4bpp_RGB)
    ->Arg(ePF_ASTC_6x6)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
