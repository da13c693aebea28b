#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "Model/ORBTextureStandardTypes.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "ORBTextureUtilities.h"
#include "Operations/ORBTextureOperationErrors.h"

namespace orbtexture
{

namespace
{

// A texture of 'header' with a zeroed block: the operations below leave parts
// of it unwritten, and those read as transparent black rather than heap bytes.
CORBTexture ZeroedTexture(const CORBTextureHeader& header)
{
    CORBTexture texture(header);
    std::memset(texture.getDataPtr(), 0, texture.getDataSize(-1, true, true));
    return texture;
}

bool IsStandard(const CORBTexture& texture)
{
    return isStandardPixelType(texture.getPixelType(), texture.getChannelType()) && texture.getDataPtr();
}

template <typename T>
void CopyCanvas(const CORBTexture& source, CORBTexture& destination, uint32_t member, uint32_t face, int offsetX,
                int offsetY, int offsetZ)
{
    const Pixel<T>* in = SurfacePixels<T>(source, 0, member, face);
    Pixel<T>* out = SurfacePixels<T>(destination, 0, member, face);
    const int64_t sw = source.getWidth(), sh = source.getHeight(), sd = source.getDepth();
    const uint32_t dw = destination.getWidth(), dh = destination.getHeight(), dd = destination.getDepth();
    for (uint32_t z = 0; z < dd; ++z)
        for (uint32_t y = 0; y < dh; ++y)
            for (uint32_t x = 0; x < dw; ++x)
            {
                const int64_t sx = int64_t(x) - offsetX, sy = int64_t(y) - offsetY, sz = int64_t(z) - offsetZ;
                const bool inside = sx >= 0 && sx < sw && sy >= 0 && sy < sh && sz >= 0 && sz < sd;
                *out++ = inside ? in[(sz * sh + sy) * sw + sx] : Pixel<T>{0, 0, 0, 0};
            }
}

// Copies the image part (columns x0.., rows y0.., width x height) of slice 'from' to slice 'to'.
template <typename T>
void CopySliceRect(Pixel<T>* data, size_t width, size_t height, size_t from, size_t to, size_t x0, size_t y0,
                   size_t rectWidth, size_t rectHeight)
{
    if (from == to)
        return;
    for (size_t y = y0; y < y0 + rectHeight; ++y)
        std::memmove(data + (to * height + y) * width + x0, data + (from * height + y) * width + x0,
                     rectWidth * sizeof(Pixel<T>));
}

// Bleed's rule for which pixels count as opaque: alpha above 7 in an integer
// channel's own units; the float member compares with 8.0 as well, so that
// colours of a float image with alpha in 0..1 all go to 0.
template <typename T>
bool Opaque(T alpha)
{
    if constexpr (std::is_floating_point_v<T>)
        return alpha >= 8.0f;
    else
        return alpha > 7;
}

template <typename T>
T MeanChannel(std::conditional_t<std::is_floating_point_v<T>, double, uint64_t> sum, float inverseCount)
{
    const double value = double(sum) * double(inverseCount);
    if constexpr (std::is_floating_point_v<T>)
        return T(value);
    else
        return value >= double(std::numeric_limits<T>::max()) ? std::numeric_limits<T>::max() : T(value);
}

} // namespace

template <typename T>
bool Rotate90(Pixel<T>* first, Pixel<T>* second, const unsigned int& width, const unsigned int& height,
              const unsigned int& depth, EORBTAxis axis, bool direction)
{
    if (!first || !second)
        return SetError(eORBTErrorArgument, "Rotate90: null first or second surface");
    const size_t w = width, h = height, d = depth;
    const size_t count = w * h * d;
    for (size_t z = 0; z < d; ++z)
        for (size_t y = 0; y < h; ++y)
            for (size_t x = 0; x < w; ++x)
            {
                const size_t old = (z * h + y) * w + x;
                switch (axis)
                {
                case eAxisZ:
                    if (direction)
                        second[(z * w + x) * h + (h - 1 - y)] = first[old];
                    else
                        second[(z * w + (w - 1 - x)) * h + y] = first[old];
                    break;
                // These two assign from the new surface into the old one; an
                // index beyond the new surface (w x w x d pixels about y) reads nothing.
                case eAxisY:
                {
                    const size_t from = (x * d + y) * h + (d - 1 - z);
                    if (from < w * w * d)
                        first[old] = second[from];
                    break;
                }
                case eAxisX:
                {
                    const size_t from = direction ? ((h - 1 - y) * w + z) * d + x : (y * w + z) * d + (w - 1 - x);
                    if (from < count)
                        first[old] = second[from];
                    break;
                }
                default: return true;
                }
            }
    return true;
}

template <typename T>
bool Flip(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth,
          EORBTAxis axis)
{
    if (!data)
        return SetError(eORBTErrorArgument, "Flip: null pixel data");
    const size_t w = width, h = height, d = depth;
    switch (axis)
    {
    case eAxisX:
        for (size_t row = 0; row < h * d; ++row)
            for (size_t i = 0; i < (w >> 1); ++i)
                std::swap(data[row * w + i], data[row * w + w - 1 - i]);
        break;
    case eAxisY:
        if (h > 1)
            for (size_t z = 0; z < d; ++z)
                for (size_t i = 0; i < (h >> 1); ++i)
                    std::swap_ranges(data + (z * h + i) * w, data + (z * h + i + 1) * w, data + (z * h + h - 1 - i) * w);
        break;
    case eAxisZ:
        if (d > 1)
            for (size_t i = 0; i < (d >> 1); ++i)
                std::swap_ranges(data + i * w * h, data + (i + 1) * w * h, data + (d - 1 - i) * w * h);
        break;
    default: break;
    }
    return true;
}

template <typename T>
bool Border(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth, unsigned int sourceHeight,
            unsigned int sourceDepth, unsigned int destinationWidth, unsigned int destinationHeight,
            unsigned int destinationDepth)
{
    if (!source || !destination)
        return SetError(eORBTErrorArgument, "Border: null source or destination");
    if (destinationWidth < sourceWidth || destinationHeight < sourceHeight || destinationDepth < sourceDepth)
        return SetError(eORBTErrorSize, "Border: the destination %ux%ux%u is smaller than the source %ux%ux%u",
                        destinationWidth, destinationHeight, destinationDepth, sourceWidth, sourceHeight,
                        sourceDepth);
    const size_t sw = sourceWidth, sh = sourceHeight, sd = sourceDepth;
    const size_t dw = destinationWidth, dh = destinationHeight, dd = destinationDepth;
    const size_t bx = (dw - sw) >> 1, by = (dh - sh) >> 1, bz = (dd - sd) >> 1;
    const auto at = [&](size_t x, size_t y, size_t z) -> Pixel<T>& { return destination[(z * dh + y) * dw + x]; };

    for (size_t z = 0; z < sd; ++z)
        for (size_t y = 0; y < sh; ++y)
            std::memcpy(&at(bx, by + y, bz + z), source + (z * sh + y) * sw, sw * sizeof(Pixel<T>));

    if (dd >= sd + 2)
    {
        for (size_t i = 0; i < bz; ++i)
            CopySliceRect(destination, dw, dh, bz + i, bz - i, bx, by, sw, sh);
        // This pass runs inward over the image from its last slice, reading
        // slices nothing has written yet; kept in this form.
        const size_t last = bz + sd - 1;
        for (size_t i = 0; i < bz; ++i)
            CopySliceRect(destination, dw, dh, last + i, last - i, bx, by, sw, sh);
    }

    for (size_t z = 0; z < dd; ++z)
        for (size_t i = 0; i < by; ++i)
        {
            std::memmove(&at(bx, by - 1 - i, z), &at(bx, by + i, z), sw * sizeof(Pixel<T>));
            std::memmove(&at(bx, dh - by + i, z), &at(bx, dh - 1 - by - i, z), sw * sizeof(Pixel<T>));
        }
    for (size_t z = 0; z < dd; ++z)
        for (size_t y = 0; y < dh; ++y)
            for (size_t i = 0; i < bx; ++i)
            {
                at(bx - 1 - i, y, z) = at(bx + i, y, z);
                at(dw - bx + i, y, z) = at(dw - 1 - bx - i, y, z);
            }
    return true;
}

template <typename T>
bool Bleed(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth)
{
    if (!data)
        return SetError(eORBTErrorArgument, "Bleed: null pixel data");
    using Sum = std::conditional_t<std::is_floating_point_v<T>, double, uint64_t>;
    const size_t w = width, h = height, d = depth;
    const size_t bytes = w * h * d * sizeof(Pixel<T>);
    Pixel<T>* snapshot = static_cast<Pixel<T>*>(std::malloc(bytes ? bytes : 1));
    if (!snapshot)
        return SetError(eORBTErrorMemory, "Bleed: no memory for a copy of the %ux%ux%u surface", width, height,
                        depth);
    std::memcpy(snapshot, data, bytes);

    constexpr size_t kReach = 8;
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < w; ++x)
            for (size_t z = 0; z < d; ++z)
            {
                Pixel<T>& pixel = data[(z * h + y) * w + x];
                if (Opaque(snapshot[(z * h + y) * w + x].alpha))
                    continue;
                Sum red = 0, green = 0, blue = 0;
                uint32_t count = 0;
                for (size_t bz = z > kReach ? z - kReach : 0; bz <= std::min(z + kReach, d - 1); ++bz)
                    for (size_t by = y > kReach ? y - kReach : 0; by <= std::min(y + kReach, h - 1); ++by)
                    {
                        const Pixel<T>* row = snapshot + (bz * h + by) * w;
                        for (size_t bx = x > kReach ? x - kReach : 0; bx <= std::min(x + kReach, w - 1); ++bx)
                            if (Opaque(row[bx].alpha))
                            {
                                red += row[bx].red;
                                green += row[bx].green;
                                blue += row[bx].blue;
                                ++count;
                            }
                    }
                const float inverse = count ? 1.0f / float(count) : 0.0f;
                pixel.red = MeanChannel<T>(red, inverse);
                pixel.green = MeanChannel<T>(green, inverse);
                pixel.blue = MeanChannel<T>(blue, inverse);
            }
    std::free(snapshot);
    return true;
}

bool ResizeCanvas(CORBTexture& texture, const unsigned int& newWidth, const unsigned int& newHeight,
                  const unsigned int& newDepth, const int& offsetX, const int& offsetY, const int& offsetZ)
{
    if (!IsStandard(texture))
        return RefuseTexture("ResizeCanvas", texture);
    if (newWidth && newHeight && newDepth && newWidth == texture.getWidth() && newHeight == texture.getHeight() &&
        newDepth == texture.getDepth() && offsetX == 0 && offsetY == 0 && offsetZ == 0)
        return true;

    CORBTextureHeader header;
    if (!ResizedHeader(texture, newWidth, newHeight, newDepth, header))
        return RefuseTooLarge("ResizeCanvas", header);
    CORBTexture canvas = ZeroedTexture(header);
    RescaleBorder(texture, canvas);

    DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (uint32_t member = 0; member < header.getNumArrayMembers(); ++member)
            for (uint32_t face = 0; face < header.getNumFaces(); ++face)
                CopyCanvas<T>(texture, canvas, member, face, offsetX, offsetY, offsetZ);
        return true;
    });
    texture = std::move(canvas);
    return true;
}

bool Rotate90(CORBTexture& texture, EORBTAxis axis, bool direction)
{
    if (!IsStandard(texture))
        return RefuseTexture("Rotate90", texture);
    const uint32_t w = texture.getWidth(), h = texture.getHeight(), d = texture.getDepth();
    CORBTextureHeader header(texture.getHeader());
    switch (axis)
    {
    case eAxisX:
        header.setHeight(d);
        header.setDepth(h);
        break;
    case eAxisY: // height takes the width; kept as it always was
        header.setHeight(w);
        break;
    case eAxisZ:
        header.setWidth(h);
        header.setHeight(w);
        break;
    default: break;
    }
    if (!FitsInMemory(header))
        return RefuseTooLarge("Rotate90", header);
    CORBTexture rotated = ZeroedTexture(header);

    bool result = false;
    DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            result = Rotate90(SurfacePixels<T>(texture, mip, member, face), SurfacePixels<T>(rotated, mip, member, face),
                              texture.getWidth(mip), texture.getHeight(mip), texture.getDepth(mip), axis, direction);
        });
        return true;
    });
    texture = std::move(rotated);
    return result;
}

bool Flip(CORBTexture& texture, EORBTAxis axis)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return RefuseTexture("Flip", texture);
    const bool flipped = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            return Flip(SurfacePixels<T>(texture, mip, member, face), texture.getWidth(mip), texture.getHeight(mip),
                        texture.getDepth(mip), axis);
        });
    });
    return flipped || RefuseTexture("Flip", texture);
}

bool Border(CORBTexture& texture, unsigned int borderX, unsigned int borderY, unsigned int borderZ)
{
    if (!IsStandard(texture))
        return RefuseTexture("Border", texture);
    if (borderX == 0 && borderY == 0 && borderZ == 0)
        return true;
    const uint64_t width = texture.getWidth() + 2ull * borderX, height = texture.getHeight() + 2ull * borderY,
                   depth = texture.getDepth() + 2ull * borderZ;
    if (width > UINT32_MAX || height > UINT32_MAX || depth > UINT32_MAX)
        return SetError(eORBTErrorSize,
                        "Border: border %u,%u,%u makes the %ux%ux%u texture %llux%llux%llu, a side above 4294967295",
                        borderX, borderY, borderZ, texture.getWidth(), texture.getHeight(), texture.getDepth(),
                        (unsigned long long)width, (unsigned long long)height, (unsigned long long)depth);
    CORBTextureHeader header;
    if (!ResizedHeader(texture, uint32_t(width), uint32_t(height), uint32_t(depth), header))
        return RefuseTooLarge("Border", header);
    CORBTexture bordered = ZeroedTexture(header);

    bool result = false;
    DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (uint32_t member = 0; member < header.getNumArrayMembers(); ++member)
            for (uint32_t face = 0; face < header.getNumFaces(); ++face)
                result = Border(SurfacePixels<T>(texture, 0, member, face), SurfacePixels<T>(bordered, 0, member, face),
                                texture.getWidth(), texture.getHeight(), texture.getDepth(), uint32_t(width),
                                uint32_t(height), uint32_t(depth));
        return true;
    });
    texture = std::move(bordered);
    texture.setBorder(borderX, borderY, borderZ);
    return result;
}

bool Bleed(CORBTexture& texture)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return RefuseTexture("Bleed", texture);
    const bool bled = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            return Bleed(SurfacePixels<T>(texture, mip, member, face), texture.getWidth(mip), texture.getHeight(mip),
                         texture.getDepth(mip));
        });
    });
    // With pixel data, only a surface's copy can fail, and Bleed of the surface has said so.
    if (!bled && !texture.getDataPtr())
        RefuseTexture("Bleed", texture);
    return bled;
}

ORBT_FOR_STANDARD_TYPES(ORBT_CANVAS_WORKERS_OF_TYPE, )

} // namespace orbtexture
