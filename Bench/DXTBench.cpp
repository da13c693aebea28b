// DXT1 and DXT5 compression of 512x512 images, ours beside stb_dxt (normal and
// high quality), in megapixels per second with the PSNR of each result; and
// DXTDecompress alone.
//
// Images: every .png and .jpg in the folder named by ORBTEX_BENCH_PHOTOS (the
// centre 512x512, or the largest centre square point-sampled to 512x512 when
// the image is smaller), otherwise three synthetic images made here.
//
// Counters: RGB_dB decodes with DXTDecompress, RGB_dB_thirds with plain
// (2 c0 + c1) / 3 interpolation, which is what stb_dxt aims at; A_dB is alpha
// (DXT5). DXT1 colour error leaves out pixels whose source alpha is below 128.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#define STB_DXT_STATIC
#define STB_DXT_IMPLEMENTATION
#include <stb_dxt.h>

#include "BenchPhotos.h"
#include "Codecs/DXTCodec.h"

using namespace orbtexture;

namespace
{

constexpr unsigned kSize = 512;
constexpr size_t kPixels = size_t(kSize) * kSize;

using benchphotos::Image;

std::vector<Image> LoadPhotos(const char* folder)
{
    return benchphotos::LoadPhotos(folder, kSize);
}

uint32_t Hash(uint32_t x, uint32_t y, uint32_t seed)
{
    uint32_t h = x * 0x8DA6B343u ^ y * 0xD8163841u ^ seed * 0xCB1AB31Fu;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    return h;
}

// Value noise in 0..1 on a lattice of 'cell' pixels, smoothstep interpolation.
float ValueNoise(float x, float y, float cell, uint32_t seed)
{
    const float fx = x / cell, fy = y / cell;
    const uint32_t ix = uint32_t(fx), iy = uint32_t(fy);
    float tx = fx - float(ix), ty = fy - float(iy);
    tx = tx * tx * (3 - 2 * tx);
    ty = ty * ty * (3 - 2 * ty);
    auto at = [&](uint32_t dx, uint32_t dy) { return float(Hash(ix + dx, iy + dy, seed) >> 8) / 16777216.0f; };
    const float top = at(0, 0) + (at(1, 0) - at(0, 0)) * tx;
    const float bottom = at(0, 1) + (at(1, 1) - at(0, 1)) * tx;
    return top + (bottom - top) * ty;
}

uint8_t Byte(float v)
{
    return uint8_t(std::min(255.0f, std::max(0.0f, v)));
}

// Five octaves of value noise as height: water, sand, grass, rock and snow with
// hard borders, shaded by the slope.
Image Landscape()
{
    std::vector<float> height(kPixels);
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
        {
            float h = 0, amplitude = 0.5f;
            for (int octave = 0; octave < 5; ++octave, amplitude *= 0.5f)
                h += amplitude * ValueNoise(float(x), float(y), 128.0f / float(1 << octave), uint32_t(octave));
            height[y * kSize + x] = h;
        }
    static const float bands[5][4] = {{0.40f, 30, 70, 150},
                                      {0.45f, 210, 190, 140},
                                      {0.62f, 70, 140, 50},
                                      {0.75f, 120, 110, 100},
                                      {2.00f, 240, 240, 245}};
    Image image{"synthetic_landscape", std::vector<uint8_t>(kPixels * 4)};
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
        {
            const float h = height[y * kSize + x];
            const float slope = h - height[y * kSize + (x > 0 ? x - 1 : x)];
            const float shade = 1.0f + 12.0f * slope + 0.3f * (h - 0.5f);
            int band = 0;
            while (h > bands[band][0])
                ++band;
            uint8_t* p = &image.rgba[(size_t(y) * kSize + x) * 4];
            for (int c = 0; c < 3; ++c)
                p[c] = Byte(bands[band][c + 1] * shade);
            p[3] = 255;
        }
    return image;
}

// Gravel-like detail: luminance noise at 1.5 to 6 pixels with per-pixel grain,
// tinted by slow colour noise, with a few saturated flecks.
Image Texture()
{
    Image image{"synthetic_texture", std::vector<uint8_t>(kPixels * 4)};
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
        {
            const float fx = float(x), fy = float(y);
            const uint32_t grain = Hash(x, y, 99);
            const float luma = 0.5f * ValueNoise(fx, fy, 6, 11) + 0.3f * ValueNoise(fx, fy, 3, 12) +
                               0.2f * ValueNoise(fx, fy, 1.5f, 13) + float(grain & 15) / 128.0f - 0.06f;
            const float warm = ValueNoise(fx, fy, 24, 14), cool = ValueNoise(fx, fy, 40, 15);
            const bool fleck = (grain >> 8) % 97 == 0;
            uint8_t* p = &image.rgba[(size_t(y) * kSize + x) * 4];
            p[0] = Byte(fleck ? 230 : 255 * luma * (0.7f + 0.5f * warm));
            p[1] = Byte(fleck ? 40 : 255 * luma * (0.8f + 0.2f * cool));
            p[2] = Byte(fleck ? 60 : 255 * luma * (0.6f + 0.5f * cool * (1 - warm)));
            p[3] = 255;
        }
    return image;
}

// Smooth colours under a radial alpha ramp with a hard-edged hole.
Image AlphaGradient()
{
    Image image{"synthetic_alpha", std::vector<uint8_t>(kPixels * 4)};
    for (unsigned y = 0; y < kSize; ++y)
        for (unsigned x = 0; x < kSize; ++x)
        {
            const float dx = float(x) - 256, dy = float(y) - 256, r = std::sqrt(dx * dx + dy * dy);
            const bool hole = std::fabs(dx - 100) < 40 && std::fabs(dy + 60) < 70;
            uint8_t* p = &image.rgba[(size_t(y) * kSize + x) * 4];
            p[0] = Byte(float(x) * 0.45f + 20);
            p[1] = Byte(200 - float(y) * 0.3f + 30 * ValueNoise(float(x), float(y), 32, 7));
            p[2] = Byte(float(x + y) * 0.2f + 40);
            p[3] = hole ? 0 : Byte(255 - r * 0.7f);
        }
    return image;
}

std::vector<Image> LoadImages()
{
    if (const char* folder = std::getenv("ORBTEX_BENCH_PHOTOS"))
    {
        std::vector<Image> photos = LoadPhotos(folder);
        if (!photos.empty())
            return photos;
        std::fprintf(stderr, "no .png or .jpg in %s: using synthetic images\n", folder);
    }
    return {Landscape(), Texture(), AlphaGradient()};
}

// ---- Peer and error measures ---------------------------------------------

void StbCompress(const uint8_t* rgba, uint8_t* out, bool alpha, int mode)
{
    uint8_t block[64];
    for (unsigned by = 0; by < kSize; by += 4)
        for (unsigned bx = 0; bx < kSize; bx += 4, out += alpha ? 16 : 8)
        {
            for (unsigned y = 0; y < 4; ++y)
                std::memcpy(block + 16 * y, rgba + ((size_t(by) + y) * kSize + bx) * 4, 16);
            stb_compress_dxt_block(out, block, alpha ? 1 : 0, mode);
        }
}

// Colour of DXT1 (format 1) or DXT5 blocks with exact-thirds interpolation;
// alpha is left alone.
void DecodeThirds(const uint8_t* blocks, uint8_t* rgba, unsigned format)
{
    for (unsigned by = 0; by < kSize; by += 4)
        for (unsigned bx = 0; bx < kSize; bx += 4)
        {
            const uint8_t* colour = format == 1 ? blocks : blocks + 8;
            blocks += format == 1 ? 8 : 16;
            const unsigned c0 = colour[0] | colour[1] << 8, c1 = colour[2] | colour[3] << 8;
            unsigned table[4][3];
            for (int e = 0; e < 2; ++e)
            {
                const unsigned c = e ? c1 : c0, r = c >> 11, g = (c >> 5) & 63, b = c & 31;
                table[e][0] = r << 3 | r >> 2;
                table[e][1] = g << 2 | g >> 4;
                table[e][2] = b << 3 | b >> 2;
            }
            const bool four = format != 1 || c0 > c1;
            for (int c = 0; c < 3; ++c)
            {
                table[2][c] = four ? (2 * table[0][c] + table[1][c]) / 3 : (table[0][c] + table[1][c]) / 2;
                table[3][c] = four ? (table[0][c] + 2 * table[1][c]) / 3 : 0;
            }
            const uint32_t codes = colour[4] | colour[5] << 8 | colour[6] << 16 | uint32_t(colour[7]) << 24;
            for (unsigned i = 0; i < 16; ++i)
            {
                uint8_t* p = rgba + ((size_t(by) + i / 4) * kSize + bx + i % 4) * 4;
                for (int c = 0; c < 3; ++c)
                    p[c] = uint8_t(table[(codes >> (2 * i)) & 3][c]);
            }
        }
}

double Psnr(double squared, double count)
{
    return squared == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * count / squared);
}

// PSNR of R, G and B together, or of alpha alone; 'opaqueOnly' skips pixels
// whose source alpha is below 128.
double ChannelPsnr(const std::vector<uint8_t>& source, const std::vector<uint8_t>& decoded, bool alpha,
                   bool opaqueOnly)
{
    double squared = 0, count = 0;
    for (size_t i = 0; i < source.size(); i += 4)
    {
        if (opaqueOnly && source[i + 3] < 128)
            continue;
        for (int c = alpha ? 3 : 0; c < (alpha ? 4 : 3); ++c, ++count)
        {
            const double d = double(source[i + c]) - double(decoded[i + c]);
            squared += d * d;
        }
    }
    return Psnr(squared, count);
}

void SetRate(benchmark::State& state)
{
    state.counters["Mpx/s"] = benchmark::Counter(double(state.iterations()) * kPixels / 1e6, benchmark::Counter::kIsRate);
}

// ---- Benchmarks ------------------------------------------------------------

enum class Coder
{
    Ours,
    StbNormal,
    StbHighQuality,
};

void Compress(const Image& image, unsigned format, Coder coder, uint8_t* blocks)
{
    if (coder == Coder::Ours)
        DXTCompress(image.rgba.data(), blocks, kSize, kSize, format);
    else
        StbCompress(image.rgba.data(), blocks, format != 1,
                    coder == Coder::StbNormal ? STB_DXT_NORMAL : STB_DXT_HIGHQUAL);
}

void BM_Compress(benchmark::State& state, const Image* image, unsigned format, Coder coder)
{
    std::vector<uint8_t> blocks(kPixels);
    for (auto _ : state)
    {
        Compress(*image, format, coder, blocks.data());
        benchmark::DoNotOptimize(blocks.data());
        benchmark::ClobberMemory();
    }
    SetRate(state);

    std::vector<uint8_t> decoded(kPixels * 4);
    DXTDecompress(blocks.data(), decoded.data(), kSize, kSize, format);
    const bool dxt1 = format == 1;
    state.counters["RGB_dB"] = ChannelPsnr(image->rgba, decoded, false, dxt1);
    if (!dxt1)
        state.counters["A_dB"] = ChannelPsnr(image->rgba, decoded, true, false);
    DecodeThirds(blocks.data(), decoded.data(), format);
    state.counters["RGB_dB_thirds"] = ChannelPsnr(image->rgba, decoded, false, dxt1);
}

void BM_Decompress(benchmark::State& state, const Image* image, unsigned format)
{
    std::vector<uint8_t> blocks(kPixels), decoded(kPixels * 4);
    DXTCompress(image->rgba.data(), blocks.data(), kSize, kSize, format);
    for (auto _ : state)
    {
        DXTDecompress(blocks.data(), decoded.data(), kSize, kSize, format);
        benchmark::DoNotOptimize(decoded.data());
        benchmark::ClobberMemory();
    }
    SetRate(state);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    static const std::vector<Image> images = LoadImages();
    const struct
    {
        Coder coder;
        const char* name;
    } coders[] = {{Coder::Ours, "ours"}, {Coder::StbNormal, "stb_normal"}, {Coder::StbHighQuality, "stb_highqual"}};
    for (unsigned format : {1u, 5u})
    {
        const std::string prefix = format == 1 ? "DXT1/" : "DXT5/";
        for (const Image& image : images)
            for (const auto& coder : coders)
                benchmark::RegisterBenchmark((prefix + image.name + "/" + coder.name).c_str(), BM_Compress, &image,
                                             format, coder.coder)
                    ->Unit(benchmark::kMillisecond);
        for (const Image& image : images)
            benchmark::RegisterBenchmark((prefix + image.name + "/decompress").c_str(), BM_Decompress, &image, format)
                ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
