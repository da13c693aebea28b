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

// Size of the next level on one axis.
uint32_t NextLevelSize(uint32_t size) { return size < 4 ? 1 : size >> 1; }

// Which colour channels take the grey value, by level modulo 6.
constexpr bool kTint[6][3] = {
    {true, false, false}, // red
    {false, true, false}, // green
    {false, false, true}, // blue
    {false, true, true},  // cyan
    {true, false, true},  // magenta
    {true, true, false},  // yellow
};

template <typename T>
void TintLevel(Pixel<T>* pixels, size_t count, uint32_t level)
{
    const bool* tint = kTint[level % 6];
    for (size_t i = 0; i < count; ++i)
    {
        Pixel<T>& p = pixels[i];
        T grey;
        if constexpr (std::is_floating_point_v<T>)
            grey = (p.red + p.green + p.blue) * 0.33333334f;
        else
        {
            const uint64_t sum = uint64_t(p.red) + p.green + p.blue;
            const double value = double(sum) * double(0.33333334f);
            // The factor is a little above a third: a white 32-bit pixel would exceed the channel.
            grey = value >= double(std::numeric_limits<T>::max()) ? std::numeric_limits<T>::max() : T(value);
        }
        p.red = tint[0] ? grey : T(0);
        p.green = tint[1] ? grey : T(0);
        p.blue = tint[2] ? grey : T(0);
    }
}

} // namespace

bool GenerateMIPMaps(CORBTexture& texture, EResizeMode filter, unsigned int levels)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()) || !texture.getDataPtr())
        return RefuseTexture("GenerateMIPMaps", texture);
    if (levels == 0)
        return SetError(eORBTErrorArgument, "GenerateMIPMaps: 0 levels asked for; the count includes the top level");

    uint32_t count = levels;
    if (levels == 0xFFFFFFFFu)
    {
        count = 1;
        for (uint32_t w = texture.getWidth(), h = texture.getHeight(), d = texture.getDepth(); w > 1 || h > 1 || d > 1;
             w >>= 1, h >>= 1, d >>= 1)
            ++count;
    }

    CORBTextureHeader header(texture.getHeader());
    header.setNumMIPLevels(count);
    if (!FitsInMemory(header))
        return RefuseTooLarge("GenerateMIPMaps", header);
    CORBTexture chain(header);

    const bool built = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (uint32_t member = 0; member < header.getNumArrayMembers(); ++member)
            for (uint32_t face = 0; face < header.getNumFaces(); ++face)
            {
                std::memcpy(chain.getDataPtr(0, member, face), texture.getDataPtr(0, member, face),
                            texture.getDataSize(0, false, false));
                uint32_t w = texture.getWidth(), h = texture.getHeight(), d = texture.getDepth();
                for (uint32_t level = 1; level < count; ++level)
                {
                    const uint32_t nw = NextLevelSize(w), nh = NextLevelSize(h), nd = NextLevelSize(d);
                    if (!StretchImage(SurfacePixels<T>(chain, level - 1, member, face),
                                      SurfacePixels<T>(chain, level, member, face), w, h, d, nw, nh, nd, filter))
                        return false;
                    w = nw;
                    h = nh;
                    d = nd;
                }
            }
        return true;
    });
    if (!built)
        return SetError(eORBTErrorArgument, "GenerateMIPMaps: a surface of the new chain has no pixel data");
    texture = std::move(chain);
    return true;
}

bool ColourMIPMaps(CORBTexture& texture)
{
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return RefuseTexture("ColourMIPMaps", texture);
    const bool tinted = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            Pixel<T>* pixels = SurfacePixels<T>(texture, mip, member, face);
            const size_t count = size_t(texture.getWidth(mip)) * texture.getHeight(mip) * texture.getDepth(mip);
            if (pixels && mip > 0 && count > 0)
                TintLevel(pixels, count, mip);
            return pixels != nullptr;
        });
    });
    return tinted || RefuseTexture("ColourMIPMaps", texture);
}

} // namespace orbtexture
