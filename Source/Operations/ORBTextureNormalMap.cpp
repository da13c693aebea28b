#include <cmath>
#include <type_traits>

#include "Model/ORBTextureStandardTypes.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "ORBTextureUtilities.h"
#include "Operations/ORBTextureOperationErrors.h"

namespace orbtexture
{

namespace
{

constexpr int kUnassigned = -1;

// Output channel of each component (x, y, z, height); kUnassigned when none.
struct ChannelOrder
{
    int x = kUnassigned, y = kUnassigned, z = kUnassigned, height = kUnassigned;
};

ChannelOrder ParseOrder(const char* order)
{
    ChannelOrder result;
    if (!order)
    {
        result.x = 0;
        result.y = 1;
        result.z = 2;
        return result;
    }
    for (int i = 0; i < 4 && order[i] != '\0'; ++i)
        switch (order[i])
        {
        case 'x': result.x = i; break;
        case 'y': result.y = i; break;
        case 'z': result.z = i; break;
        case 'h': result.height = i; break;
        default: break;
        }
    return result;
}

void Assign(Pixel<float>& pixel, int channel, float value)
{
    if (channel != kUnassigned)
        (&pixel.red)[channel] = value;
}

} // namespace

template <typename T>
bool CreateNormalMap(Pixel<T>* source, Pixel<float>* destination, unsigned int width, unsigned int height,
                     unsigned int depth, float scale, const char* channelOrder)
{
    static const float spfWhite[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    if (scale == 0.0f)
        return SetError(eORBTErrorArgument, "CreateNormalMap: scale is 0");
    if (!source || !destination)
        return SetError(eORBTErrorArgument, "CreateNormalMap: null source or destination");
    if (depth == 0 || width == 0 || height == 0)
        return true;
    const ChannelOrder order = ParseOrder(channelOrder);
    const float factor = kNormalisedFactor<T>; // integer heights as fractions of full scale
    const size_t w = width, h = height;
    // The difference of the raw values, then the factor.
    const auto slope = [&](T a, T b) {
        if constexpr (std::is_floating_point_v<T>)
            return (a - b) * scale;
        else
            return float(double(a) - double(b)) * factor * scale;
    };

    for (size_t z = 0; z < depth; ++z)
    {
        const Pixel<T>* slice = source + z * w * h;
        for (size_t y = 0; y < h; ++y)
        {
            const Pixel<T>* row = slice + y * w;
            // The vertical wrap reads slice 0 whatever the slice: a fixed property of this filter.
            const Pixel<T>* above = y == 0 ? source + (h - 1) * w : row - w;
            const Pixel<T>* below = y == h - 1 ? source : row + w;
            for (size_t x = 0; x < w; ++x)
            {
                const T left = row[x == 0 ? w - 1 : x - 1].red, right = row[x == w - 1 ? 0 : x + 1].red;
                const float dx = slope(left, right), dy = slope(above[x].red, below[x].red);
                const float length = std::sqrt(dx * dx + 1.0f + dy * dy);
                Pixel<float>& out = destination[(z * h + y) * w + x];
                out = {spfWhite[0], spfWhite[1], spfWhite[2], spfWhite[3]};
                Assign(out, order.x, (dx / length + 1.0f) * 0.5f);
                Assign(out, order.y, (dy / length + 1.0f) * 0.5f);
                Assign(out, order.z, (1.0f / length + 1.0f) * 0.5f);
                if constexpr (std::is_floating_point_v<T>)
                    Assign(out, order.height, row[x].red);
                else
                    Assign(out, order.height, float(row[x].red) * factor);
            }
        }
    }
    return true;
}

bool GenerateNormalMap(CORBTexture& texture, float scale, CORBTString channelOrder)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()) || !texture.getDataPtr())
        return RefuseTexture("GenerateNormalMap", texture);
    channelOrder.toLower();

    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(PixelType(ORBStandard32PixelType));
    header.setChannelType(eVarSignedFloat);
    if (!FitsInMemory(header))
        return RefuseTooLarge("GenerateNormalMap", header);
    CORBTexture normals(header);

    bool result = false;
    DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            result = CreateNormalMap(SurfacePixels<T>(texture, mip, member, face),
                                     SurfacePixels<float>(normals, mip, member, face), texture.getWidth(mip),
                                     texture.getHeight(mip), texture.getDepth(mip), scale, channelOrder.c_str());
        });
        return true;
    });
    // With pixel data in both, only the scale can fail.
    if (!result)
        SetError(eORBTErrorArgument, "GenerateNormalMap: scale is 0");
    // A failing call does not keep the texture from being replaced.
    texture = std::move(normals);
    texture.setBumpMap(scale, channelOrder);
    return result;
}

ORBT_FOR_STANDARD_TYPES(ORBT_NORMAL_MAP_WORKERS_OF_TYPE, )

} // namespace orbtexture
