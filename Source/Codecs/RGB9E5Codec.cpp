#include "Codecs/RGB9E5Codec.h"

#include <cstddef>
#include <cstring>

#include "Model/ORBTextureErrors.h"

namespace orbtexture
{

namespace
{

constexpr float kMaxRGB9E5 = 65408.0f; // 511 / 512 * 2^16

float ClampRange_for_rgb9e5(float x)
{
    if (x > 0.0f)
        return x >= kMaxRGB9E5 ? kMaxRGB9E5 : x;
    return 0.0f;
}

float MaxOf3(float a, float b, float c)
{
    const float ab = a > b ? a : b;
    return ab > c ? ab : c;
}

// Sets why 'operation' answers 0 bytes for a width x height image.
void SetNoBytesError(const char* operation, unsigned width, unsigned height)
{
    SetError(eORBTErrorSize, "%s: the image is %ux%u, %s", operation, width, height,
             width == 0 || height == 0 ? "it has no pixels" : "too large for 32-bit counts");
}

int Max(int a, int b) { return a > b ? a : b; }

// The unbiased exponent field of a float.
int FloorLog2(float x)
{
    uint32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return int((bits >> 23) & 0xFF) - 127;
}

// 2 to the power n, for n in [-1022, 1023], exact, without a libm call.
double Pow2(int n)
{
    const uint64_t bits = uint64_t(n + 1023) << 52;
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// floor(x + 0.5) for x + 0.5 in [0, 2^63): truncation is the floor there.
double RoundHalfUp(double x) { return double(int64_t(x + 0.5)); }

} // namespace

uint32_t float3_to_rgb9e5(const float* rgb)
{
    const float r = ClampRange_for_rgb9e5(rgb[0]);
    const float g = ClampRange_for_rgb9e5(rgb[1]);
    const float b = ClampRange_for_rgb9e5(rgb[2]);
    const float m = MaxOf3(r, g, b);
    const int e = Max(-16, FloorLog2(m));
    int shared = e + 16;
    // Powers of two: dividing by d is multiplying by 2^(8 - e), exactly.
    double scale = Pow2(8 - e);
    if (RoundHalfUp(m * scale) == 512.0)
    {
        scale *= 0.5;
        shared = e + 17;
    }
    const auto mantissa = [scale](float c) { return uint32_t(RoundHalfUp(c * scale)) & 0x1FF; };
    return mantissa(r) | mantissa(g) << 9 | mantissa(b) << 18 | uint32_t(shared & 0x1F) << 27;
}

void rgb9e5_to_float3(uint32_t word, float* rgb)
{
    const double scale = Pow2(int(word >> 27) - 24);
    rgb[0] = float((word & 0x1FF) * scale);
    rgb[1] = float(((word >> 9) & 0x1FF) * scale);
    rgb[2] = float(((word >> 18) & 0x1FF) * scale);
}

unsigned int RGB9E5Compress(const void* source, void* destination, const unsigned int& width,
                            const unsigned int& height)
{
    const size_t pixels = size_t(width) * height;
    if (unsigned(pixels * 4) == 0)
        SetNoBytesError("RGB9E5Compress", width, height);
    if (!source || !destination)
        return unsigned(pixels * 4);
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    for (size_t i = 0; i < pixels; ++i, in += 12, out += 4)
    {
        float rgb[3];
        std::memcpy(rgb, in, sizeof rgb);
        const uint32_t word = float3_to_rgb9e5(rgb);
        for (unsigned k = 0; k < 4; ++k)
            out[k] = static_cast<unsigned char>(word >> (8 * k));
    }
    return unsigned(pixels * 4);
}

unsigned int RGB9E5Decompress(const void* source, void* destination, const unsigned int& width,
                              const unsigned int& height)
{
    const size_t pixels = size_t(width) * height;
    if (unsigned(pixels * 16) == 0)
        SetNoBytesError("RGB9E5Decompress", width, height);
    if (!source || !destination)
        return unsigned(pixels * 16);
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    for (size_t i = 0; i < pixels; ++i, in += 4, out += 12)
    {
        const uint32_t word = uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
        float rgb[3];
        rgb9e5_to_float3(word, rgb);
        std::memcpy(out, rgb, sizeof rgb);
    }
    return unsigned(pixels * 16);
}

} // namespace orbtexture
