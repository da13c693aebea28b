// The ASTC bridge: whole-call time of ASTCCompress and ASTCDecompress on a
// 256 x 256 image, at each quality, so that users see what the external tool
// costs; and astcenc run alone on the same files, for the bridge's own share.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Codecs/ASTCCodec.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 256;

std::vector<uint8_t> MakeImage()
{
    std::vector<uint8_t> image(size_t(kSize) * kSize * 4);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
            for (unsigned c = 0; c < 4; ++c)
                image[(size_t(y) * kSize + x) * 4 + c] =
                    ((x / 32 + y / 32) & 1) && c == 2 ? 220 : uint8_t(128 + 100 * std::sin(0.05 * x + 0.07 * y + c));
    return image;
}

void SetRate(benchmark::State& state)
{
    state.counters["MPix/s"] =
        benchmark::Counter(double(state.iterations()) * kSize * kSize / 1e6, benchmark::Counter::kIsRate);
}

bool SkipWithoutTool(benchmark::State& state)
{
    if (isASTCEncAvailable())
        return false;
    state.SkipWithError("astcenc is not on PATH");
    return true;
}

void BM_Compress(benchmark::State& state, unsigned blockX, unsigned blockY)
{
    if (SkipWithoutTool(state))
        return;
    const int quality = int(state.range(0));
    const std::vector<uint8_t> image = MakeImage();
    std::vector<uint8_t> blocks(ASTCCompress(image.data(), nullptr, kSize, kSize, 1, uint8_t(blockX),
                                             uint8_t(blockY), 1, quality));
    for (auto _ : state)
        if (!ASTCCompress(image.data(), blocks.data(), kSize, kSize, 1, uint8_t(blockX), uint8_t(blockY), 1,
                          quality))
            state.SkipWithError("ASTCCompress failed");
    SetRate(state);
}

void BM_Decompress(benchmark::State& state, unsigned format)
{
    if (SkipWithoutTool(state))
        return;
    unsigned bx, by, bz;
    ORBTGetFormatMinDims(format, bx, by, bz);
    const std::vector<uint8_t> image = MakeImage();
    std::vector<uint8_t> blocks(ASTCCompress(image.data(), nullptr, kSize, kSize, 1, uint8_t(bx), uint8_t(by), 1, 0));
    ASTCCompress(image.data(), blocks.data(), kSize, kSize, 1, uint8_t(bx), uint8_t(by), 1, 0);
    std::vector<uint8_t> decoded(image.size());
    for (auto _ : state)
        if (!ASTCDecompress(blocks.data(), decoded.data(), kSize, kSize, 1, format))
            state.SkipWithError("ASTCDecompress failed");
    SetRate(state);
}

// astcenc alone on a KTX file written once, with the switches the bridge
// passes for 4x4 blocks at the given quality.
void BM_ToolAlone(benchmark::State& state)
{
    if (SkipWithoutTool(state))
        return;
    static const char* const kSwitches[] = {"-fastest", "-fast", "-medium", "-thorough", "-exhaustive"};
    const std::vector<uint8_t> image = MakeImage();
    char ktx[4096], astc[4096];
    getTempFile(ktx, "bench.ktx");
    getTempFile(astc, "bench.astc");
    const CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, kSize, kSize), image.data());
    texture.saveFile(CORBTString(ktx));
    const char* const arguments[] = {"-cl", ktx, astc, "4x4", kSwitches[state.range(0)], nullptr};
    for (auto _ : state)
    {
        int code = -1;
        if (!executeASTCEnc(arguments, &code) || code != 0)
            state.SkipWithError("astcenc failed");
    }
    std::remove(ktx);
    std::remove(astc);
    SetRate(state);
}

} // namespace

BENCHMARK_CAPTURE(BM_Compress, 4x4, 4, 4)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Compress, 8x8, 8, 8)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ToolAlone)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Decompress, 4x4, unsigned(ePF_ASTC_4x4))->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Decompress, 8x8, unsigned(ePF_ASTC_8x8))->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
