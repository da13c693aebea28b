#include <cstddef>
#include <limits>
#include <type_traits>

#include "Model/ORBTextureStandardTypes.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "ORBTextureUtilities.h"
#include "Operations/ORBTextureOperationErrors.h"

namespace
{

using namespace orbtexture;

// Scale factor between channel types: source type by row, destination type by
// column, both in the order unsigned char, unsigned short, unsigned int, float.
// The float column also turns a channel into a fraction of full scale.
constexpr float kChannelFactor[4][4] = {
    {1.0f, 257.0f, 16843010.0f, 0.003921569f},
    {0.0038910506f, 1.0f, 65537.0f, 1.5259022e-5f},
    {5.9371814e-8f, 1.5258556e-5f, 1.0f, 2.3283064e-10f},
    {255.0f, 65535.0f, 4294967296.0f, 1.0f},
};

constexpr unsigned kFloatColumn = 3;

// Row and column of a channel type in kChannelFactor.
template <typename T>
constexpr unsigned kTypeIndex = 0; // unsigned char
template <>
constexpr unsigned kTypeIndex<unsigned short> = 1;
template <>
constexpr unsigned kTypeIndex<unsigned int> = 2;
template <>
constexpr unsigned kTypeIndex<float> = 3;

// A float into a channel: unchanged for float channels, truncated towards zero
// for integer ones. Values outside the channel's range saturate; NaN gives 0.
template <typename T>
T FromFloat(float value)
{
    if constexpr (std::is_floating_point_v<T>)
        return value;
    else
    {
        if (!(value > 0.0f))
            return 0;
        // One past the largest value: 256, 65536, or 2^32 (float(UINT_MAX) already rounds to it).
        constexpr float limit = float(std::numeric_limits<T>::max()) + 1.0f;
        if (value >= limit)
            return std::numeric_limits<T>::max();
        return static_cast<T>(value);
    }
}

// A constant for a channel of type T: float values as FromFloat, integers keep
// the low bits that fit an integer channel and stand as they are for float.
template <typename T, typename V>
T ChannelConstant(V value)
{
    if constexpr (std::is_floating_point_v<V>)
        return FromFloat<T>(value);
    else
        return static_cast<T>(value);
}

// Stores 'value' in the channels that 'channel' names as a destination.
template <typename T>
void WriteChannel(Pixel<T>& pixel, EChannelName channel, T value)
{
    switch (channel)
    {
    case eChannelRed: pixel.red = value; break;
    case eChannelGreen: pixel.green = value; break;
    case eChannelBlue: pixel.blue = value; break;
    case eChannelAlpha:
    case eChannelUnspecified: pixel.alpha = value; break;
    case eChannelLuminance:
    case eChannelIntensity: pixel.red = pixel.green = pixel.blue = value; break;
    default: break;
    }
}

// The 8-bit premultiplication step, the same for every channel type: the
// product is truncated to a 16-bit integer and only its low byte is kept. A
// product outside the 16-bit range stands for the overflow pattern 0x8000,
// whose low byte is 0; testing the range first keeps the conversion defined.
template <typename T>
T PremultipliedChannel(T channel, float alpha)
{
    const float product = float(channel) * alpha;
    unsigned lowByte = 0;
    if (product > -32769.0f && product < 65536.0f)
        lowByte = unsigned(int(product)) & 0xFFu;
    return static_cast<T>(lowByte);
}

template <typename T>
bool PreMultiplySurface(Pixel<T>* data, unsigned width, unsigned height, unsigned depth)
{
    if (data == nullptr)
        return false;
    const size_t count = size_t(width) * height * depth;
    for (size_t i = 0; i < count; ++i)
    {
        Pixel<T>& pixel = data[i];
        const float alpha = float(pixel.alpha) * kChannelFactor[kTypeIndex<T>][kFloatColumn];
        pixel.red = PremultipliedChannel(pixel.red, alpha);
        pixel.green = PremultipliedChannel(pixel.green, alpha);
        pixel.blue = PremultipliedChannel(pixel.blue, alpha);
    }
    return true;
}

// False, with the reason under 'operation', for a texture that is not of a
// standard pixel type or has no pixel data.
template <typename V>
bool SetTextureChannels(const char* operation, CORBTexture& texture, unsigned int channelCount,
                        EChannelName* channels, V* values)
{
    const bool set = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            const unsigned width = texture.getWidth(mip), height = texture.getHeight(mip),
                           depth = texture.getDepth(mip);
            return SetChannels<T, V>(SurfacePixels<T>(texture, mip, member, face), width, height, depth,
                                     channelCount, channels, values);
        });
    });
    return set || RefuseTexture(operation, texture);
}

} // namespace

namespace orbtexture
{

template <typename T, typename V>
bool SetChannels(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth,
                 const unsigned int& channelCount, EChannelName* channels, V* values)
{
    if (data == nullptr)
        return SetError(eORBTErrorArgument, "SetChannels: null pixel data");
    const size_t count = size_t(width) * height * depth;
    // Constants don't depend on the pixel, so each one can sweep the surface in
    // turn: later entries still win over earlier ones.
    for (unsigned int k = 0; k < channelCount; ++k)
    {
        const T value = ChannelConstant<T>(values[k]);
        for (size_t i = 0; i < count; ++i)
            WriteChannel(data[i], channels[k], value);
    }
    return true;
}

template <typename S, typename D>
bool CopyChannels(Pixel<S>* source, Pixel<D>* destination, const unsigned int& width, const unsigned int& height,
                  const unsigned int& depth, const unsigned int& channelCount, EChannelName* destinationChannels,
                  EChannelName* sourceChannels)
{
    if (source == nullptr || destination == nullptr)
        return SetError(eORBTErrorArgument, "CopyChannels: null source or destination");

    constexpr float factor = kChannelFactor[kTypeIndex<S>][kTypeIndex<D>];
    constexpr float redWeight = 0.2126f * factor;
    constexpr float greenWeight = 0.7152f * factor;
    constexpr float blueWeight = 0.0722f * factor;
    constexpr float third = 0.33333334f;

    // A plain channel: moved unchanged between equal types, else scaled.
    auto scaled = [](S value) -> D {
        if constexpr (std::is_same_v<S, D>)
            return value;
        else
            return FromFloat<D>(float(value) * factor);
    };

    const size_t count = size_t(width) * height * depth;
    for (size_t i = 0; i < count; ++i)
    {
        // Read everything first: source and destination may be the same pixel.
        const Pixel<S> in = source[i];
        D values[eChannelUnspecified + 1] = {};
        for (unsigned int k = 0; k < channelCount; ++k)
        {
            switch (sourceChannels[k])
            {
            case eChannelRed: values[eChannelRed] = scaled(in.red); break;
            case eChannelGreen: values[eChannelGreen] = scaled(in.green); break;
            case eChannelBlue: values[eChannelBlue] = scaled(in.blue); break;
            case eChannelAlpha: values[eChannelAlpha] = scaled(in.alpha); break;
            case eChannelUnspecified: values[eChannelUnspecified] = scaled(in.alpha); break;
            case eChannelLuminance:
                values[eChannelLuminance] = FromFloat<D>(redWeight * float(in.red) + greenWeight * float(in.green) +
                                                         blueWeight * float(in.blue));
                break;
            case eChannelIntensity:
                values[eChannelIntensity] =
                    FromFloat<D>((float(in.red) + float(in.green) + float(in.blue)) * factor * third);
                break;
            default: break;
            }
        }

        Pixel<D>& out = destination[i];
        for (unsigned int k = 0; k < channelCount; ++k)
        {
            // A source that names no channel has no value and writes nothing.
            const EChannelName from = sourceChannels[k];
            if (from >= eChannelRed && from <= eChannelUnspecified)
                WriteChannel(out, destinationChannels[k], values[from]);
        }
    }
    return true;
}

bool SetChannels(CORBTexture& texture, unsigned int channelCount, EChannelName* channels, unsigned int* values)
{
    return SetTextureChannels("SetChannels", texture, channelCount, channels, values);
}

bool SetChannelsFloat(CORBTexture& texture, unsigned int channelCount, EChannelName* channels, float* values)
{
    return SetTextureChannels("SetChannelsFloat", texture, channelCount, channels, values);
}

bool CopyChannels(CORBTexture& destination, const CORBTexture& source, unsigned int channelCount,
                  EChannelName* destinationChannels, EChannelName* sourceChannels)
{
    if (destination.getWidth() != source.getWidth() || destination.getHeight() != source.getHeight() ||
        destination.getDepth() != source.getDepth() ||
        destination.getNumArrayMembers() != source.getNumArrayMembers() ||
        destination.getNumMIPLevels() != source.getNumMIPLevels() ||
        destination.getNumFaces() != source.getNumFaces())
        return SetError(eORBTErrorSize,
                        "CopyChannels: the destination (%ux%ux%u, MIP levels %u, array members %u, faces %u) and "
                        "the source (%ux%ux%u, MIP levels %u, array members %u, faces %u) differ",
                        destination.getWidth(), destination.getHeight(), destination.getDepth(),
                        destination.getNumMIPLevels(), destination.getNumArrayMembers(), destination.getNumFaces(),
                        source.getWidth(), source.getHeight(), source.getDepth(), source.getNumMIPLevels(),
                        source.getNumArrayMembers(), source.getNumFaces());

    const bool copied = DispatchChannelType(source, [&](auto sourceTag) {
        using S = typename decltype(sourceTag)::type;
        return DispatchChannelType(destination, [&](auto destinationTag) {
            using D = typename decltype(destinationTag)::type;
            return ForEachSurface(destination, [&](uint32_t mip, uint32_t member, uint32_t face) {
                const unsigned width = destination.getWidth(mip), height = destination.getHeight(mip),
                               depth = destination.getDepth(mip);
                return CopyChannels<S, D>(SurfacePixels<S>(source, mip, member, face),
                                          SurfacePixels<D>(destination, mip, member, face), width, height, depth,
                                          channelCount, destinationChannels, sourceChannels);
            });
        });
    });
    if (!copied)
    {
        const bool sourceRefused =
            !source.getDataPtr() || !isStandardPixelType(source.getPixelType(), source.getChannelType());
        RefuseTexture("CopyChannels", sourceRefused ? source : destination,
                      sourceRefused ? "the source" : "the destination");
    }
    return copied;
}

bool PreMultiplyAlpha(CORBTexture& texture)
{
    if (texture.isPreMultiplied())
        return SetError(eORBTErrorArgument, "PreMultiplyAlpha: the texture is already premultiplied");
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return RefuseTexture("PreMultiplyAlpha", texture);
    const bool result = DispatchChannelType(texture, [&](auto tag) {
        using T = typename decltype(tag)::type;
        return ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
            return PreMultiplySurface(SurfacePixels<T>(texture, mip, member, face), texture.getWidth(mip),
                                      texture.getHeight(mip), texture.getDepth(mip));
        });
    });
    if (!result)
        RefuseTexture("PreMultiplyAlpha", texture);
    texture.setIsPreMultiplied(true);
    return result;
}

ORBT_CHANNEL_WORKERS()

} // namespace orbtexture
