#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "Model/ORBTextureStandardTypes.h"
#include "ORBTextureUtilities.h"
#include "Operations/ORBTextureOperationErrors.h"

namespace orbtexture
{

namespace
{

// Largest value of a channel as the filters clamp to it.
template <typename T>
constexpr double kChannelMax = double(std::numeric_limits<T>::max());
template <>
constexpr double kChannelMax<unsigned int> = 4294967296.0;
template <>
constexpr double kChannelMax<float> = 1.0;

// A filtered value clamped to 0..M and truncated into the channel; an integer
// value at or above M stores the type's largest value.
template <typename T>
T StoreClamped(float value)
{
    if constexpr (std::is_floating_point_v<T>)
        return double(value) > kChannelMax<T> ? T(kChannelMax<T>) : (value > 0.0f ? value : 0.0f);
    else
    {
        if (!(value > 0.0f))
            return 0;
        if (double(value) >= kChannelMax<T> || double(value) >= double(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return static_cast<T>(value);
    }
}

template <typename T>
T ChannelOf(const Pixel<T>& pixel, unsigned c)
{
    return (&pixel.red)[c];
}

// Per-axis view of one pass: sizes, ratio and how destination indices map to
// sample positions.
struct Axis
{
    uint32_t source;
    uint32_t destination;
    double ratio;
    double inverseRatio;
};

Axis MakeAxis(uint32_t source, uint32_t destination)
{
    Axis axis{source, destination, double(source) / double(destination), 0.0};
    if (destination < source)
        axis.inverseRatio = 1.0 / axis.ratio;
    return axis;
}

double Position(const Axis& axis, uint32_t index, bool plainPositions)
{
    if (plainPositions)
        return index * axis.ratio;
    return calculateDownscalePosition(index, axis.destination, axis.inverseRatio, axis.ratio);
}

// Truncates a position already clamped to 0..last.
uint32_t ClampedIndex(double p, uint32_t last)
{
    if (!(p > 0.0))
        return 0;
    return p >= double(last) ? last : uint32_t(p);
}

struct LinearTaps
{
    uint32_t low, high;
    float lowWeight, highWeight;
};

struct CubicTaps
{
    uint32_t index[4];
    float fraction;
};

std::vector<LinearTaps> LinearAxis(const Axis& axis, bool plainPositions)
{
    std::vector<LinearTaps> taps(axis.destination);
    const uint32_t last = axis.source - 1;
    for (uint32_t i = 0; i < axis.destination; ++i)
    {
        const double p = Position(axis, i, plainPositions);
        const double fraction = p - std::trunc(p);
        taps[i] = {ClampedIndex(p, last), ClampedIndex(p > -1.0 ? p + 1.0 : 0.0, last), float(1.0 - fraction),
                   float(fraction)};
    }
    return taps;
}

std::vector<CubicTaps> CubicAxis(const Axis& axis, bool plainPositions)
{
    std::vector<CubicTaps> taps(axis.destination);
    const uint32_t last = axis.source - 1;
    for (uint32_t i = 0; i < axis.destination; ++i)
    {
        const double p = Position(axis, i, plainPositions);
        taps[i] = {{ClampedIndex(p > 1.0 ? p - 1.0 : 0.0, last), ClampedIndex(p, last),
                    ClampedIndex(p > -1.0 ? p + 1.0 : 0.0, last), ClampedIndex(p > -2.0 ? p + 2.0 : 0.0, last)},
                   float(p - std::trunc(p))};
    }
    return taps;
}

template <typename T>
void Nearest(const Pixel<T>* source, Pixel<T>* destination, const Axis (&axes)[3])
{
    const Axis &ax = axes[0], &ay = axes[1], &az = axes[2];
    // Positions are i x ratio, below the source size; the clamp only guards the block.
    std::vector<uint32_t> xs(ax.destination);
    for (uint32_t x = 0; x < ax.destination; ++x)
        xs[x] = ClampedIndex(std::trunc(x * ax.ratio), ax.source - 1);
    for (uint32_t z = 0; z < az.destination; ++z)
    {
        const uint32_t sz = ClampedIndex(std::trunc(z * az.ratio), az.source - 1);
        for (uint32_t y = 0; y < ay.destination; ++y)
        {
            const uint32_t sy = ClampedIndex(std::trunc(y * ay.ratio), ay.source - 1);
            const Pixel<T>* row = source + (size_t(sz) * ay.source + sy) * ax.source;
            for (uint32_t x = 0; x < ax.destination; ++x)
                *destination++ = row[xs[x]];
        }
    }
}

template <typename T>
void Linear(const Pixel<T>* source, Pixel<T>* destination, const Axis (&axes)[3], bool plainPositions)
{
    const std::vector<LinearTaps> tx = LinearAxis(axes[0], plainPositions), ty = LinearAxis(axes[1], plainPositions),
                                  tz = LinearAxis(axes[2], plainPositions);
    const size_t width = axes[0].source, slice = width * axes[1].source;
    for (const LinearTaps& z : tz)
        for (const LinearTaps& y : ty)
            for (const LinearTaps& x : tx)
            {
                const uint32_t zi[2] = {z.low, z.high}, yi[2] = {y.low, y.high}, xi[2] = {x.low, x.high};
                const float zw[2] = {z.lowWeight, z.highWeight}, yw[2] = {y.lowWeight, y.highWeight},
                            xw[2] = {x.lowWeight, x.highWeight};
                float sums[4] = {0.0f, 0.0f, 0.0f, 0.0f};
                for (unsigned k = 0; k < 2; ++k)
                    for (unsigned j = 0; j < 2; ++j)
                        for (unsigned i = 0; i < 2; ++i)
                        {
                            const Pixel<T>& tap = source[zi[k] * slice + yi[j] * width + xi[i]];
                            const float weight = xw[i] * yw[j] * zw[k];
                            for (unsigned c = 0; c < 4; ++c)
                                sums[c] += weight * float(ChannelOf(tap, c));
                        }
                Pixel<T>& out = *destination++;
                out = {StoreClamped<T>(sums[0]), StoreClamped<T>(sums[1]), StoreClamped<T>(sums[2]),
                       StoreClamped<T>(sums[3])};
            }
}

// The 1 2 1 blur of the cubic downscale. The lower neighbour of index 0 is
// computed in unsigned arithmetic and limited to the last index, so the low
// edge reads the opposite edge while the high edge repeats; kept as designed.
template <typename T>
void Blur(const Pixel<T>* source, Pixel<T>* blurred, uint32_t width, uint32_t height, uint32_t depth)
{
    const auto neighbours = [](uint32_t i, uint32_t size, uint32_t (&n)[3]) {
        const uint32_t last = size - 1;
        n[0] = std::min(i - 1u, last);
        n[1] = i;
        n[2] = std::min(i + 1u, last);
    };
    static const double kWeights[3] = {1.0, 2.0, 1.0};
    const bool flat = depth == 1;
    const double factor = flat ? 0.0625 : 0.015625;
    const size_t slice = size_t(width) * height;
    for (uint32_t z = 0; z < depth; ++z)
    {
        uint32_t nz[3];
        neighbours(z, depth, nz);
        for (uint32_t y = 0; y < height; ++y)
        {
            uint32_t ny[3];
            neighbours(y, height, ny);
            for (uint32_t x = 0; x < width; ++x)
            {
                uint32_t nx[3];
                neighbours(x, width, nx);
                double sums[4] = {0.0, 0.0, 0.0, 0.0};
                for (unsigned k = flat ? 1 : 0; k < (flat ? 2u : 3u); ++k)
                    for (unsigned j = 0; j < 3; ++j)
                        for (unsigned i = 0; i < 3; ++i)
                        {
                            const Pixel<T>& tap = source[nz[k] * slice + size_t(ny[j]) * width + nx[i]];
                            const double weight = kWeights[i] * kWeights[j] * (flat ? 1.0 : kWeights[k]);
                            for (unsigned c = 0; c < 4; ++c)
                                sums[c] += weight * double(ChannelOf(tap, c));
                        }
                Pixel<T>& out = blurred[z * slice + size_t(y) * width + x];
                for (unsigned c = 0; c < 4; ++c)
                    (&out.red)[c] = static_cast<T>(sums[c] * factor);
            }
        }
    }
}

template <typename T>
void Cubic(const Pixel<T>* source, Pixel<T>* destination, const Axis (&axes)[3], bool plainPositions)
{
    const std::vector<CubicTaps> tx = CubicAxis(axes[0], plainPositions), ty = CubicAxis(axes[1], plainPositions),
                                 tz = CubicAxis(axes[2], plainPositions);
    const size_t width = axes[0].source, slice = width * axes[1].source;
    const bool flat = axes[2].source == 1;

    // One spline along x at each y tap, then one along y.
    const auto plane = [&](size_t base, const CubicTaps& y, const CubicTaps& x, unsigned c) {
        float columns[4];
        for (unsigned j = 0; j < 4; ++j)
        {
            const Pixel<T>* row = source + base + y.index[j] * width;
            const float points[4] = {float(ChannelOf(row[x.index[0]], c)), float(ChannelOf(row[x.index[1]], c)),
                                     float(ChannelOf(row[x.index[2]], c)), float(ChannelOf(row[x.index[3]], c))};
            columns[j] = evaluateSplines(points, x.fraction);
        }
        return evaluateSplines(columns, y.fraction);
    };

    for (const CubicTaps& z : tz)
        for (const CubicTaps& y : ty)
            for (const CubicTaps& x : tx)
            {
                float values[4];
                for (unsigned c = 0; c < 4; ++c)
                {
                    if (flat)
                        values[c] = plane(0, y, x, c);
                    else
                    {
                        float planes[4];
                        for (unsigned k = 0; k < 4; ++k)
                            planes[k] = plane(z.index[k] * slice, y, x, c);
                        values[c] = evaluateSplines(planes, z.fraction);
                    }
                }
                Pixel<T>& out = *destination++;
                out = {StoreClamped<T>(values[0]), StoreClamped<T>(values[1]), StoreClamped<T>(values[2]),
                       StoreClamped<T>(values[3])};
            }
}

} // namespace

double calculateDownscalePosition(unsigned int index, unsigned int size, double inverseRatio, double ratio)
{
    if (size == 1)
        return 0.0;
    // An axis that keeps its size drifts from 1 to size - 2; resampled images have always had it.
    const double t = double(index) / double(size - 1);
    return (1.0 - t) * (1.0 - inverseRatio) + inverseRatio * t + (index + t) * ratio - 2.0 * t;
}

float evaluateSplines(const float* points, const float& t)
{
    const float p0 = points[0], p1 = points[1], p2 = points[2], p3 = points[3];
    return 0.5f * (t * ((2.0f * p0 + 4.0f * p2 - p3 - 5.0f * p1 + (p3 + 3.0f * p1 - p0 - 3.0f * p2) * t) * t +
                        (p2 - p0)) +
                   2.0f * p1);
}

template <typename T>
bool StretchImage(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth, unsigned int sourceHeight,
                  unsigned int sourceDepth, unsigned int destinationWidth, unsigned int destinationHeight,
                  unsigned int destinationDepth, EResizeMode mode)
{
    if (!source || !destination)
        return SetError(eORBTErrorArgument, "StretchImage: null source or destination");
    // Nothing to write; an empty source has nothing to sample.
    if (destinationWidth == 0 || destinationHeight == 0 || destinationDepth == 0 || sourceWidth == 0 ||
        sourceHeight == 0 || sourceDepth == 0)
        return true;
    const Axis axes[3] = {MakeAxis(sourceWidth, destinationWidth), MakeAxis(sourceHeight, destinationHeight),
                          MakeAxis(sourceDepth, destinationDepth)};
    const bool upscaling =
        destinationWidth > sourceWidth || destinationHeight > sourceHeight || destinationDepth > sourceDepth;

    switch (mode)
    {
    case eResizeNearest: Nearest(source, destination, axes); break;
    case eResizeLinear: Linear(source, destination, axes, upscaling); break;
    case eResizeCubic:
        if (upscaling)
            Cubic(source, destination, axes, true);
        else
        {
            std::vector<Pixel<T>> blurred(size_t(sourceWidth) * sourceHeight * sourceDepth);
            Blur(source, blurred.data(), sourceWidth, sourceHeight, sourceDepth);
            Cubic(blurred.data(), destination, axes, false);
        }
        break;
    default: break;
    }
    return true;
}

template <typename T>
bool SteppedStretchImage(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth,
                         unsigned int sourceHeight, unsigned int sourceDepth, unsigned int destinationWidth,
                         unsigned int destinationHeight, unsigned int destinationDepth, EResizeMode mode)
{
    if (!source || !destination)
        return SetError(eORBTErrorArgument, "SteppedStretchImage: null source or destination");
    uint32_t size[3] = {sourceWidth, sourceHeight, sourceDepth};
    const uint32_t target[3] = {destinationWidth, destinationHeight, destinationDepth};
    // An empty source never reaches a non-empty target by doubling.
    for (unsigned a = 0; a < 3; ++a)
        if (size[a] == 0 && target[a] != 0)
            return SetError(eORBTErrorSize,
                            "SteppedStretchImage: the source %ux%ux%u has a zero side where the target %ux%ux%u "
                            "has none",
                            sourceWidth, sourceHeight, sourceDepth, destinationWidth, destinationHeight,
                            destinationDepth);

    const size_t capacity = size_t(std::max(sourceWidth, destinationWidth)) *
                            std::max(sourceHeight, destinationHeight) * std::max(sourceDepth, destinationDepth);
    std::vector<Pixel<T>> buffers[2] = {std::vector<Pixel<T>>(capacity), std::vector<Pixel<T>>(capacity)};
    std::memcpy(buffers[0].data(), source, size_t(sourceWidth) * sourceHeight * sourceDepth * sizeof(Pixel<T>));

    bool grows[3];
    for (unsigned a = 0; a < 3; ++a)
        grows[a] = size[a] < target[a];
    unsigned current = 0;
    while (size[0] != target[0] || size[1] != target[1] || size[2] != target[2])
    {
        uint32_t next[3];
        for (unsigned a = 0; a < 3; ++a)
            next[a] = grows[a] ? uint32_t(std::min(uint64_t(size[a]) * 2, uint64_t(target[a])))
                               : std::max(target[a], size[a] >> 1);
        StretchImage(buffers[current].data(), buffers[1 - current].data(), size[0], size[1], size[2], next[0],
                     next[1], next[2], mode);
        current = 1 - current;
        std::copy(next, next + 3, size);
    }
    std::memcpy(destination, buffers[current].data(),
                size_t(destinationWidth) * destinationHeight * destinationDepth * sizeof(Pixel<T>));
    return true;
}

bool Resize(CORBTexture& texture, const unsigned int& newWidth, const unsigned int& newHeight,
            const unsigned int& newDepth, EResizeMode mode)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return RefuseTexture("Resize", texture);
    if (newWidth == 0 || newHeight == 0 || newDepth == 0)
        return SetError(eORBTErrorSize, "Resize: new size %ux%ux%u has a zero side", newWidth, newHeight, newDepth);
    if (newWidth == texture.getWidth() && newHeight == texture.getHeight() && newDepth == texture.getDepth())
        return true;
    if (!texture.getDataPtr())
        return RefuseTexture("Resize", texture);

    CORBTextureHeader header;
    if (!ResizedHeader(texture, newWidth, newHeight, newDepth, header))
        return RefuseTooLarge("Resize", header);
    CORBTexture resized(header);
    RescaleBorder(texture, resized);

    bool result = false;
    DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (uint32_t member = 0; member < header.getNumArrayMembers(); ++member)
            for (uint32_t face = 0; face < header.getNumFaces(); ++face)
                result = SteppedStretchImage(SurfacePixels<T>(texture, 0, member, face),
                                             SurfacePixels<T>(resized, 0, member, face), texture.getWidth(),
                                             texture.getHeight(), texture.getDepth(), newWidth, newHeight, newDepth,
                                             mode);
        return true;
    });
    if (!result)
        RefuseTexture("Resize", texture);
    texture = std::move(resized);
    return result;
}

ORBT_FOR_STANDARD_TYPES(ORBT_RESAMPLE_WORKERS_OF_TYPE, )

} // namespace orbtexture
