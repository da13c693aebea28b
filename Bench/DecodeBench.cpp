// Decoders and the common Transcode pairs in megapixels per second, beside a
// memcpy of the same output bytes in the same run ("memcpy_4B" and
// "memcpy_2B"), on one thread ("threads:1") and on every core ("threads:0"),
// in wall time.
//
// Image: the first .png or .jpg in the folder named by ORBTEX_BENCH_PHOTOS
// (its centre, point-sampled to 1024 x 1024), otherwise smooth gradients with
// noise and hard edges made here. Each format's words are that image
// compressed once, at the fast qualities, before the timing starts.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "BenchPhotos.h"
#include "Bitmap/Bitmap.h"
#include "Codecs/DXTCodec.h"
#include "Codecs/DXTDecode.h"
#include "Codecs/ETC/ETCDecompress.h"
#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "ORBTextureUtilities.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Pixels/ORBTSharedExponentPaths.h"
#include "Tools/ORBTCallContext.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 1024;
constexpr double kPixels = double(kSize) * kSize;

const std::vector<uint8_t>& Picture()
{
    static const std::vector<uint8_t> picture = [] {
        if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
        {
            std::vector<benchphotos::Image> photos = benchphotos::LoadPhotos(folder, kSize);
            if (!photos.empty())
            {
                std::fprintf(stderr, "decode bench image: %s\n", photos[0].name.c_str());
                return photos[0].rgba;
            }
        }
        std::vector<uint8_t> image(size_t(kSize) * kSize * 4);
        uint32_t noise = 7;
        for (unsigned y = 0; y < kSize; ++y)
            for (unsigned x = 0; x < kSize; ++x)
                for (unsigned c = 0; c < 4; ++c)
                {
                    noise = noise * 1664525u + 1013904223u;
                    const double wave = 120 + 90 * std::sin(0.011 * x + 0.017 * y + 1.3 * c);
                    const bool edge = ((x / 96 + y / 80) & 1) && c == 1;
                    image[(size_t(y) * kSize + x) * 4 + c] =
                        c == 3 ? uint8_t(x < kSize / 2 ? 255 : (x + y) & 255)
                               : uint8_t(std::min(255.0, wave + (edge ? 60 : 0) + double(noise >> 29)));
                }
        return image;
    }();
    return picture;
}

// The picture in an ETC codec's input layout: R, G, B bytes, R, G, B, A, or
// red (and green) widened to 16 bits for EAC.
std::vector<uint8_t> ETCInput(unsigned format)
{
    const std::vector<uint8_t>& rgba = Picture();
    const unsigned channels = format == ePF_ETC1 || format == ePF_ETC2_RGB ? 3 : 4;
    std::vector<uint8_t> input;
    for (size_t i = 0; i < rgba.size(); i += 4)
        if (format == ePF_EAC_R11 || format == ePF_EAC_RG11)
            for (unsigned c = 0; c < (format == ePF_EAC_R11 ? 1u : 2u); ++c)
                input.insert(input.end(), {rgba[i + c], rgba[i + c]});
        else
            input.insert(input.end(), rgba.begin() + i, rgba.begin() + i + channels);
    return input;
}

// The words of 'key' ("orbtc2", "etc6", "dxt5", ...), made once.
const std::vector<uint8_t>& Words(const std::string& key, unsigned format)
{
    static std::map<std::string, std::vector<uint8_t>> made;
    std::vector<uint8_t>& words = made[key];
    if (!words.empty())
        return words;
    std::vector<uint8_t> rgba = Picture();
    words.resize(size_t(kSize) * kSize * 2);
    unsigned written = 0;
    if (key.rfind("orbtcii", 0) == 0)
        written = ORBTCCompress(rgba.data(), words.data(), kSize, kSize, true, format == 2, 1, 0);
    else if (key.rfind("orbtc", 0) == 0)
        written = ORBTCCompress(rgba.data(), words.data(), kSize, kSize, true, format == 2, 0, 0);
    else if (key.rfind("dxt", 0) == 0)
        written = DXTCompress(rgba.data(), words.data(), kSize, kSize, format);
    else
        written = ETCCompress(ETCInput(format).data(), words.data(), kSize, kSize, 0, format, false);
    if (written == 0)
        std::fprintf(stderr, "decode bench: compressing %s failed: %s\n", key.c_str(), ORBTGetLastError());
    words.resize(written);
    return words;
}

// The argument "threads": 1, or 0 for every core.
ORBTCallContext Threads(const benchmark::State& state)
{
    ORBTCallContext context;
    context.threads = unsigned(state.range(0));
    return context;
}

void Report(benchmark::State& state)
{
    state.counters["MPix/s"] = benchmark::Counter(double(state.iterations()) * kPixels / 1e6,
                                                  benchmark::Counter::kIsRate);
}

// Times decode(words, out) on the words of 'key'.
template <typename Decode>
void RunDecoder(benchmark::State& state, const std::string& key, unsigned format, Decode&& decode)
{
    const std::vector<uint8_t>& words = Words(key, format);
    std::vector<uint8_t> out(size_t(kSize) * kSize * 4);
    const ORBTCallContext context = Threads(state);
    const CScopedCallContext scope(context);
    for (auto _ : state)
        benchmark::DoNotOptimize(decode(words.data(), out.data()));
    Report(state);
}

// The argument "plain": 1 times the plain decoder the fast one replaced.
void BM_ORBTC(benchmark::State& state, bool twoBpp, unsigned decoder)
{
    const bool plain = state.range(1) != 0;
    Bitmap* bitmap = plain && decoder ? new_bitmap(kSize, kSize, 1, nullptr) : nullptr;
    RunDecoder(state, (decoder ? "orbtcii" : "orbtc") + std::to_string(twoBpp ? 2 : 4), twoBpp ? 2 : 4,
               [&](const uint8_t* in, uint8_t* out) {
                   if (plain && decoder)
                       return unsigned(Decompress(in, 0, 1, 4, twoBpp ? 2 : 4, kSize, kSize, 4, 0, 1, bitmap));
                   if (plain)
                       return unsigned(ORBTDecompressORBTCPlain(in, twoBpp, kSize, kSize, out));
                   return ORBTCDecompress(in, out, kSize, kSize, twoBpp, decoder);
               });
    if (bitmap)
        delete_bitmap(bitmap);
}

void BM_ETC(benchmark::State& state, unsigned format)
{
    const bool plain = state.range(1) != 0;
    RunDecoder(state, "etc" + std::to_string(format), format, [&](const uint8_t* in, uint8_t* out) {
        return plain ? ETCDecompressPlain(in, out, kSize, kSize, format, false)
                     : ETCDecompress(in, out, kSize, kSize, format, false);
    });
}

void BM_DXT(benchmark::State& state, unsigned selector)
{
    const bool plain = state.range(1) != 0;
    RunDecoder(state, "dxt" + std::to_string(selector), selector, [&](const uint8_t* in, uint8_t* out) {
        if (plain)
            DXTDecodePlain(in, out, kSize, kSize, selector);
        else
            DXTDecompress(in, out, kSize, kSize, selector);
        return 0;
    });
}

// Transcode of the picture from 'from' (made from rgba8 first) to 'to'.
void BM_Transcode(benchmark::State& state, PixelType from, EORBTVariableType fromType, EORBTColourSpace fromSpace,
                  PixelType to, EORBTVariableType toType, EORBTColourSpace toSpace)
{
    CORBTexture source(CORBTextureHeader(ORBStandard8PixelType, kSize, kSize), Picture().data());
    Transcode(source, from, fromType, fromSpace);
    const ORBTCallContext context = Threads(state);
    const CScopedCallContext scope(context);
    for (auto _ : state)
    {
        state.PauseTiming();
        CORBTexture texture(source);
        state.ResumeTiming();
        benchmark::DoNotOptimize(Transcode(texture, to, toType, toSpace));
    }
    Report(state);
}

// The pixel kernel Transcode uses for the pair, alone on buffers made before
// the timing: the fast path without Transcode's allocation of the result.
void BM_Kernel(benchmark::State& state, PixelType from, EORBTVariableType fromType, EORBTColourSpace fromSpace,
               PixelType to, EORBTVariableType toType, EORBTColourSpace toSpace)
{
    CORBTexture source(CORBTextureHeader(ORBStandard8PixelType, kSize, kSize), Picture().data());
    Transcode(source, from, fromType, fromSpace);
    std::vector<uint8_t> out(size_t(kSize) * kSize * 16);
    // RGB9E5 goes in one step, through tables.
    if (from == PixelType(ePF_RGB9E5) || to == PixelType(ePF_RGB9E5))
    {
        if (state.range(0) != 0)
        {
            state.SkipWithError("the two steps it replaces are timed by BM_Transcode of an older build");
            return;
        }
        const auto step = from == PixelType(ePF_RGB9E5) ? DecodeSharedExponent : EncodeSharedExponent;
        for (auto _ : state)
        {
            step(source.getDataPtr(), out.data(), size_t(kSize) * kSize);
            benchmark::ClobberMemory();
        }
        state.SetLabel("shared exponent");
        Report(state);
        return;
    }
    const auto kernel = FindPixelKernel(from, fromType, fromSpace, to, toType, toSpace);
    if (!kernel)
    {
        state.SkipWithError("no kernel for the pair");
        return;
    }
    // "loop": the pixel loop with its byte tables, as Transcode ran it before.
    const bool loop = state.range(0) != 0;
    CORBTextureHeader header(source.getHeader());
    header.setPixelFormat(to);
    header.setChannelType(toType);
    CORBTexture target(header);
    CPixelEncoder sourceEncoder(from, fromType), targetEncoder(to, toType);
    for (auto _ : state)
    {
        if (loop)
            TranscodeTrivial(source, target, sourceEncoder, targetEncoder, toSpace, fromSpace);
        else
            kernel->Convert(source.getDataPtr(), out.data(), size_t(kSize) * kSize);
        benchmark::ClobberMemory();
    }
    state.SetLabel(loop ? "pixel loop" : kernel->Kind());
    Report(state);
}

void BM_memcpy(benchmark::State& state, size_t bytesPerPixel)
{
    const std::vector<uint8_t> in(size_t(kSize) * kSize * bytesPerPixel, 1);
    std::vector<uint8_t> out(in.size());
    for (auto _ : state)
    {
        std::memcpy(out.data(), in.data(), in.size());
        benchmark::ClobberMemory();
    }
    Report(state);
}

const PixelType kRGBA8(ORBStandard8PixelType);

// Fast on one core and on every core, plain on one core.
void DecoderArgs(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"threads", "plain"})->Args({1, 0})->Args({0, 0})->Args({1, 1})->UseRealTime()->Unit(
        benchmark::kMillisecond);
}

// Transcode both ways between rgba8 and 'other'.
void RegisterTranscodes()
{
    const EORBTVariableType u8 = eVarUnsignedByteNorm;
    const EORBTColourSpace linear = eColourSpaceLinear, sRGB = eColourSpaceSRGB;
    const struct
    {
        const char* name;
        PixelType type;
        EORBTVariableType channels;
        EORBTColourSpace space;
    } others[] = {
        {"bgra8", PixelType('b', 'g', 'r', 'a', 8, 8, 8, 8), u8, linear},
        {"rgb8", PixelType('r', 'g', 'b', 0, 8, 8, 8, 0), u8, linear},
        {"r5g6b5", PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), u8, linear},
        {"r4g4b4a4", PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4), u8, linear},
        {"r5g5b5a1", PixelType('r', 'g', 'b', 'a', 5, 5, 5, 1), u8, linear},
        {"l8", PixelType('l', 0, 0, 0, 8, 0, 0, 0), u8, linear},
        {"l8a8", PixelType('l', 'a', 0, 0, 8, 8, 0, 0), u8, linear},
        {"a8", PixelType('a', 0, 0, 0, 8, 0, 0, 0), u8, linear},
        {"rgba16", PixelType(ORBStandard16PixelType), eVarUnsignedShortNorm, linear},
        {"rgba32f", PixelType(ORBStandard32PixelType), eVarSignedFloat, linear},
        {"rgba32f_linear_vs_sRGB8", PixelType(ORBStandard32PixelType), eVarSignedFloat, sRGB},
        {"r11g11b10f", PixelType('r', 'g', 'b', 0, 11, 11, 10, 0), eVarUnsignedFloat, linear},
        {"RGB9E5", PixelType(ePF_RGB9E5), eVarUnsignedFloat, linear},
    };
    for (const auto& other : others)
    {

        // The sRGB row keeps the float side linear and the bytes sRGB.
        const EORBTColourSpace floats = linear, bytes = other.space;
        benchmark::RegisterBenchmark((std::string("BM_Transcode/rgba8_to_") + other.name).c_str(), BM_Transcode,
                                     kRGBA8, u8, bytes, other.type, other.channels, floats)
            ->ArgName("threads")->Arg(1)->Arg(0)->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string("BM_Transcode/") + other.name + "_to_rgba8").c_str(), BM_Transcode,
                                     other.type, other.channels, floats, kRGBA8, u8, bytes)
            ->ArgName("threads")->Arg(1)->Arg(0)->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string("BM_Kernel/rgba8_to_") + other.name).c_str(), BM_Kernel, kRGBA8, u8,
                                     bytes, other.type, other.channels, floats)
            ->ArgName("loop")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string("BM_Kernel/") + other.name + "_to_rgba8").c_str(), BM_Kernel,
                                     other.type, other.channels, floats, kRGBA8, u8, bytes)
            ->ArgName("loop")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
    }
}

BENCHMARK_CAPTURE(BM_memcpy, 4B, 4)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_memcpy, 2B, 2)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_memcpy, 16B, 16)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ORBTC, ORBTC_2bpp, true, 0)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ORBTC, ORBTC_4bpp, false, 0)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ORBTC, ORBTCII_2bpp, true, 1)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ORBTC, ORBTCII_4bpp, false, 1)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, ETC1, ePF_ETC1)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, ETC2_RGB, ePF_ETC2_RGB)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, ETC2_RGBA, ePF_ETC2_RGBA)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, ETC2_RGB_A1, ePF_ETC2_RGB_A1)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, EAC_R11, ePF_EAC_R11)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_ETC, EAC_RG11, ePF_EAC_RG11)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_DXT, DXT1, 1)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_DXT, DXT3, 3)->Apply(DecoderArgs);
BENCHMARK_CAPTURE(BM_DXT, DXT5, 5)->Apply(DecoderArgs);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    RegisterTranscodes();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
