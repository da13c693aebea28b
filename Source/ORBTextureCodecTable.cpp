#include "ORBTextureCodecTable.h"

#include <cstddef>

#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "ORBTextureUtilities.h"

namespace orbtexture
{

namespace
{

// Codec calls. The arguments that tell the formats of one codec apart are
// template arguments, so that each row names its own call.

template <bool twoBpp, unsigned generation>
unsigned DecodeORBTC(const CodecSurface& surface)
{
    return ORBTCDecompress(surface.source, surface.destination, surface.width, surface.height, twoBpp, generation);
}

template <bool hasAlpha, bool twoBpp, unsigned generation>
unsigned EncodeORBTC(const CodecSurface& surface)
{
    return ORBTCCompress(surface.source, surface.destination, surface.width, surface.height, hasAlpha, twoBpp,
                         generation, unsigned(surface.quality));
}

unsigned DecodeETC(const CodecSurface& surface)
{
    return unsigned(ETCDecompress(surface.source, surface.destination, surface.width, surface.height,
                                  surface.format, surface.isSigned));
}

unsigned EncodeETC(const CodecSurface& surface)
{
    return ETCCompress(surface.source, surface.destination, surface.width, surface.height, int(surface.quality),
                       surface.format, surface.isSigned);
}

// Named formats and their codecs. A codec attaches by filling the decode and
// encode calls of its rows.
const CodecRow kCodecRows[] = {
    // first, last, intermediate, dither R G B A, decodesAnySize, opaqueAlphaFirst, decode, encode
    {ePF_ORBTC_2bpp_RGB, ePF_ORBTC_2bpp_RGB, eIntermediateRGBA8, {5, 5, 5, 0}, true, true, DecodeORBTC<true, 0>,
     EncodeORBTC<false, true, 0>},
    {ePF_ORBTC_2bpp_RGBA, ePF_ORBTC_2bpp_RGBA, eIntermediateRGBA8, {4, 4, 4, 3}, true, false, DecodeORBTC<true, 0>,
     EncodeORBTC<true, true, 0>},
    {ePF_ORBTC_4bpp_RGB, ePF_ORBTC_4bpp_RGB, eIntermediateRGBA8, {5, 5, 5, 0}, true, true, DecodeORBTC<false, 0>,
     EncodeORBTC<false, false, 0>},
    {ePF_ORBTC_4bpp_RGBA, ePF_ORBTC_4bpp_RGBA, eIntermediateRGBA8, {4, 4, 4, 3}, true, false, DecodeORBTC<false, 0>,
     EncodeORBTC<true, false, 0>},
    {ePF_ORBTCII_2bpp, ePF_ORBTCII_4bpp, eIntermediateRGBA8, {4, 4, 4, 3}, true, false, nullptr, nullptr},
    {ePF_ETC1, ePF_ETC1, eIntermediateRGB8, {4, 4, 4, 4}, false, false, DecodeETC, EncodeETC},
    {ePF_DXT1, ePF_DXT1, eIntermediateRGBA8, {5, 6, 5, 1}, false, false, nullptr, nullptr},
    {ePF_DXT2, ePF_DXT5, eIntermediateRGBA8, {5, 6, 5, 8}, false, false, nullptr, nullptr},
    {ePF_BC4, ePF_BC4, eIntermediateRGBA8, {8, 0, 0, 0}, false, false, nullptr, nullptr},
    {ePF_BC5, ePF_BC5, eIntermediateRGBA8, {8, 8, 0, 0}, false, false, nullptr, nullptr},
    {ePF_BC6, ePF_BC6, eIntermediateRGBA8, {16, 16, 16, 0}, false, false, nullptr, nullptr},
    {ePF_BC7, ePF_YUY2, eIntermediateRGBA8, {8, 8, 8, 0}, false, false, nullptr, nullptr},
    {ePF_BW1bpp, ePF_BW1bpp, eIntermediateRGBA8, {1, 1, 1, 0}, true, false, nullptr, nullptr},
    {ePF_RGB9E5, ePF_RGB9E5, eIntermediateRGB32F, {14, 14, 14, 0}, false, false, nullptr, nullptr},
    {ePF_RGBG8888, ePF_GRGB8888, eIntermediateRGBA8, {8, 8, 8, 0}, false, false, nullptr, nullptr},
    {ePF_ETC2_RGB, ePF_ETC2_RGB, eIntermediateRGB8, {4, 4, 4, 0}, false, false, DecodeETC, EncodeETC},
    {ePF_ETC2_RGBA, ePF_ETC2_RGBA, eIntermediateRGBA8, {4, 4, 4, 4}, false, false, DecodeETC, EncodeETC},
    {ePF_ETC2_RGB_A1, ePF_ETC2_RGB_A1, eIntermediateRGBA8, {5, 5, 5, 1}, false, false, DecodeETC, EncodeETC},
    {ePF_EAC_R11, ePF_EAC_R11, eIntermediateR16, {11, 0, 0, 0}, false, false, DecodeETC, EncodeETC},
    {ePF_EAC_RG11, ePF_EAC_RG11, eIntermediateRG16, {11, 11, 0, 0}, false, false, DecodeETC, EncodeETC},
    {ePF_ASTC_4x4, ePF_ASTC_6x6x6, eIntermediateRGBA8, {0, 0, 0, 0}, false, false, nullptr, nullptr},
};

const CodecRow kNoCodecRow = {0, 0, eIntermediateRGBA8, {0, 0, 0, 0}, false, false, nullptr, nullptr};

} // namespace

const CodecRow& FindCodecRow(uint32_t format)
{
    for (const CodecRow& row : kCodecRows)
        if (format >= row.firstFormat && format <= row.lastFormat)
            return row;
    return kNoCodecRow;
}

bool CanTranscodeTo(PixelType format)
{
    return !format.isNamedFormat() || FindCodecRow(format.lowWord()).encode != nullptr;
}

bool CanTranscodeFrom(PixelType format)
{
    return !format.isNamedFormat() || FindCodecRow(format.lowWord()).decode != nullptr;
}

void DitherTargetBits(PixelType target, uint8_t bits[4])
{
    bits[0] = bits[1] = bits[2] = bits[3] = 0;
    if (target.isNamedFormat())
    {
        const CodecRow& row = FindCodecRow(target.lowWord());
        for (unsigned c = 0; c < 4; ++c)
            bits[c] = row.ditherBits[c];
        return;
    }
    // Later positions overwrite earlier ones.
    for (unsigned position = 0; position < 4; ++position)
    {
        const uint8_t width = target.channelBits(position);
        switch (target.channelName(position))
        {
        case 'r': bits[0] = width; break;
        case 'g': bits[1] = width; break;
        case 'b': bits[2] = width; break;
        case 'a':
        case 'x': bits[3] = width; break;
        case 'l':
        case 'i': bits[0] = bits[1] = bits[2] = width; break;
        default: break;
        }
    }
}

void IntermediateTranscodeFormat(const PixelType& format, const EORBTVariableType& channelType,
                                 PixelType& intermediateFormat, EORBTVariableType& intermediateChannelType)
{
    const EORBTVariableType shortNorm =
        IsSignedChannelType(channelType) ? eVarSignedShortNorm : eVarUnsignedShortNorm;
    const EIntermediateLayout layout =
        format.isNamedFormat() ? FindCodecRow(format.lowWord()).intermediate : eIntermediateRGBA8;
    switch (layout)
    {
    case eIntermediateRGB8:
        intermediateFormat = PixelType('r', 'g', 'b', 0, 8, 8, 8, 0);
        intermediateChannelType = eVarUnsignedByteNorm;
        break;
    case eIntermediateRGB32F:
        intermediateFormat = PixelType('r', 'g', 'b', 0, 32, 32, 32, 0);
        intermediateChannelType = eVarSignedFloat;
        break;
    case eIntermediateR16:
        intermediateFormat = PixelType('r', 0, 0, 0, 16, 0, 0, 0);
        intermediateChannelType = shortNorm;
        break;
    case eIntermediateRG16:
        intermediateFormat = PixelType('r', 'g', 0, 0, 16, 16, 0, 0);
        intermediateChannelType = shortNorm;
        break;
    case eIntermediateRGBA8:
    default:
        intermediateFormat = PixelType(ORBStandard8PixelType);
        intermediateChannelType = eVarUnsignedByteNorm;
        break;
    }
}

} // namespace orbtexture
