// The small fixed-rate codecs by direct call on a 1024x1024 image, packing and
// unpacking, in megapixels per second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "Codecs/OneBPPCodec.h"
#include "Codecs/RGB9E5Codec.h"
#include "Codecs/RGBGCodec.h"
#include "Codecs/YUVCodec.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 1024;
constexpr size_t kPixels = size_t(kSize) * kSize;

// R, G, B, A bytes of smooth ramps and stripes.
std::vector<uint8_t> MakeBytes()
{
    std::vector<uint8_t> image(kPixels * 4);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
            for (unsigned c = 0; c < 4; ++c)
                image[(size_t(y) * kSize + x) * 4 + c] = uint8_t(128 + 120 * std::sin(0.013 * x + 0.021 * y + 2.0 * c));
    return image;
}

// R, G, B floats over several orders of magnitude, as in HDR images.
std::vector<float> MakeFloats()
{
    std::vector<float> image(kPixels * 3);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
            for (unsigned c = 0; c < 3; ++c)
                image[(size_t(y) * kSize + x) * 3 + c] = float(std::exp2(12.0 * std::sin(0.007 * x + 0.011 * y + c)));
    return image;
}

void SetRate(benchmark::State& state)
{
    state.counters["Mpx/s"] = benchmark::Counter(double(state.iterations()) * kPixels / 1e6, benchmark::Counter::kIsRate);
}

// encode(source, destination) and decode(source, destination) of one codec.
template <typename Encode, typename Decode>
void Register(const char* name, Encode encode, Decode decode, bool floats)
{
    static const std::vector<uint8_t> bytes = MakeBytes();
    static const std::vector<float> hdr = MakeFloats();
    const void* source = floats ? static_cast<const void*>(hdr.data()) : bytes.data();
    benchmark::RegisterBenchmark((std::string(name) + "/encode").c_str(), [=](benchmark::State& state) {
        std::vector<uint8_t> packed(kPixels * 4);
        for (auto _ : state)
        {
            encode(source, packed.data());
            benchmark::ClobberMemory();
        }
        SetRate(state);
    })->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((std::string(name) + "/decode").c_str(), [=](benchmark::State& state) {
        std::vector<uint8_t> packed(kPixels * 4), unpacked(kPixels * 16);
        encode(source, packed.data());
        for (auto _ : state)
        {
            decode(packed.data(), unpacked.data());
            benchmark::ClobberMemory();
        }
        SetRate(state);
    })->Unit(benchmark::kMicrosecond);
}

template <typename Codec>
void RegisterPaired(const char* name, EORBTPixelFormat format, Codec compress, Codec decompress)
{
    Register(
        name, [=](const void* in, void* out) { compress(in, out, kSize, kSize, format); },
        [=](const void* in, void* out) { decompress(in, out, kSize, kSize, format); }, false);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RegisterPaired("UYVY", ePF_UYVY, YUVCompress, YUVDecompress);
    RegisterPaired("YUY2", ePF_YUY2, YUVCompress, YUVDecompress);
    RegisterPaired("RGBG8888", ePF_RGBG8888, RGBGCompress, RGBGDecompress);
    RegisterPaired("GRGB8888", ePF_GRGB8888, RGBGCompress, RGBGDecompress);
    Register(
        "BW1bpp", [](const void* in, void* out) { OneBPPCompress(in, out, kSize, kSize); },
        [](const void* in, void* out) { OneBPPDecompress(in, out, kSize, kSize); }, false);
    Register(
        "RGB9E5", [](const void* in, void* out) { RGB9E5Compress(in, out, kSize, kSize); },
        [](const void* in, void* out) { RGB9E5Decompress(in, out, kSize, kSize); }, true);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
