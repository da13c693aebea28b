#include "Model/ORBTextureFormatTable.h"

#include "Codecs/ASTCCodec.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/OneBPPCodec.h"
#include "Codecs/RGB9E5Codec.h"
#include "Codecs/RGBGCodec.h"
#include "Codecs/YUVCodec.h"
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

// The small codecs work by rows, so the slices of a volume are more rows.
unsigned DecodeYUV(const CodecSurface& surface)
{
    return YUVDecompress(surface.source, surface.destination, surface.width, surface.height * surface.depth,
                         surface.format);
}

unsigned EncodeYUV(const CodecSurface& surface)
{
    return YUVCompress(surface.source, surface.destination, surface.width, surface.height * surface.depth,
                       surface.format);
}

unsigned DecodeRGBG(const CodecSurface& surface)
{
    return RGBGDecompress(surface.source, surface.destination, surface.width, surface.height * surface.depth,
                          surface.format);
}

unsigned EncodeRGBG(const CodecSurface& surface)
{
    return RGBGCompress(surface.source, surface.destination, surface.width, surface.height * surface.depth,
                        surface.format);
}

unsigned DecodeOneBPP(const CodecSurface& surface)
{
    return OneBPPDecompress(surface.source, surface.destination, surface.width, surface.height * surface.depth);
}

unsigned EncodeOneBPP(const CodecSurface& surface)
{
    return OneBPPCompress(surface.source, surface.destination, surface.width, surface.height * surface.depth);
}

unsigned DecodeRGB9E5(const CodecSurface& surface)
{
    return RGB9E5Decompress(surface.source, surface.destination, surface.width, surface.height * surface.depth);
}

unsigned EncodeRGB9E5(const CodecSurface& surface)
{
    return RGB9E5Compress(surface.source, surface.destination, surface.width, surface.height * surface.depth);
}

unsigned DecodeASTC(const CodecSurface& surface)
{
    return ASTCDecompress(surface.source, surface.destination, surface.width, surface.height, surface.depth,
                          surface.format);
}

// The block size is the format's minimum size.
unsigned EncodeASTC(const CodecSurface& surface)
{
    const FormatDescriptor& format = DescribeFormat(surface.format);
    return ASTCCompress(surface.source, surface.destination, surface.width, surface.height, surface.depth,
                        format.minX, format.minY, format.minZ, int(surface.quality));
}

struct Bits4
{
    uint8_t r, g, b, a;
};

constexpr FormatDescriptor Format(const char* name, uint8_t bitsPerPixel, uint8_t x, uint8_t y,
                                  EIntermediateLayout layout, Bits4 dither, CodecCall decode = nullptr,
                                  CodecCall encode = nullptr, int8_t highestQuality = -1)
{
    return FormatDescriptor{name, bitsPerPixel, x, y, 1, false, layout, {dither.r, dither.g, dither.b, dither.a},
                            eChannelNone, false, false, decode, encode, highestQuality};
}

// The ETC compressors: fast (0, 1) and exhaustive (2 to 5) searches; the
// 1-bit alpha and EAC forms serve every quality with their own searches.
constexpr int8_t kEveryETCQuality = 5;

// ORBTC decoders cope with any size; the RGB forms store opaque alpha.
// The ORBTC block compressors serve qualities 0 and 1, the optimiser every
// quality from 2 (its levels 0 to 6; those above 8 are the same as 8).
constexpr int8_t kEveryORBTCQuality = INT8_MAX;
constexpr FormatDescriptor ORBTC(const char* name, uint8_t bitsPerPixel, uint8_t x, uint8_t y, Bits4 dither,
                                 bool opaque, CodecCall decode = nullptr, CodecCall encode = nullptr,
                                 int8_t highestQuality = -1)
{
    FormatDescriptor row = Format(name, bitsPerPixel, x, y, eIntermediateRGBA8, dither, decode, encode,
                                  highestQuality);
    row.decodesAnySize = true;
    row.opaqueAlphaFirst = opaque;
    return row;
}

// The small fixed-rate codecs ignore the quality: every quality works.
constexpr int8_t kAnyQuality = INT8_MAX;

// ASTC runs the external encoder, whose switches cover qualities 0 to 4; 5 and
// above are its default.
constexpr FormatDescriptor ASTC(const char* name, uint8_t x, uint8_t y, uint8_t z)
{
    FormatDescriptor row = Format(name, 0, x, y, eIntermediateRGBA8, {0, 0, 0, 0}, DecodeASTC, EncodeASTC,
                                  kAnyQuality);
    row.minZ = z;
    row.sizedByBlocks = true;
    return row;
}

constexpr FormatDescriptor BW1bpp()
{
    FormatDescriptor row = Format("BW1bpp", 1, 8, 1, eIntermediateRGBA8, {1, 1, 1, 0}, DecodeOneBPP, EncodeOneBPP,
                                  kAnyQuality);
    row.decodesAnySize = true;
    row.ditherGrey = eChannelIntensity;
    return row;
}

constexpr Bits4 k555 = {5, 5, 5, 0}, k4443 = {4, 4, 4, 3}, k4444 = {4, 4, 4, 4}, k5658 = {5, 6, 5, 8},
                k8880 = {8, 8, 8, 0}, kNone = {0, 0, 0, 0};

// Indexed by EORBTPixelFormat.
constexpr FormatDescriptor kFormats[] = {
    ORBTC("ORBTC_2bpp_RGB", 2, 16, 8, k555, true, DecodeORBTC<true, 0>, EncodeORBTC<false, true, 0>,
          kEveryORBTCQuality),
    ORBTC("ORBTC_2bpp_RGBA", 2, 16, 8, k4443, false, DecodeORBTC<true, 0>, EncodeORBTC<true, true, 0>,
          kEveryORBTCQuality),
    ORBTC("ORBTC_4bpp_RGB", 4, 8, 8, k555, true, DecodeORBTC<false, 0>, EncodeORBTC<false, false, 0>,
          kEveryORBTCQuality),
    ORBTC("ORBTC_4bpp_RGBA", 4, 8, 8, k4443, false, DecodeORBTC<false, 0>, EncodeORBTC<true, false, 0>,
          kEveryORBTCQuality),
    ORBTC("ORBTCII_2bpp", 2, 8, 4, k4443, false, DecodeORBTC<true, 1>, EncodeORBTC<false, true, 1>,
          kEveryORBTCQuality),
    ORBTC("ORBTCII_4bpp", 4, 4, 4, k4443, false, DecodeORBTC<false, 1>, EncodeORBTC<false, false, 1>,
          kEveryORBTCQuality),
    Format("ETC1", 4, 4, 4, eIntermediateRGB8, k4444, DecodeETC, EncodeETC, kEveryETCQuality),
    Format("DXT1", 4, 4, 4, eIntermediateRGBA8, {5, 6, 5, 1}),
    Format("DXT2", 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT3", 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT4", 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("DXT5", 8, 4, 4, eIntermediateRGBA8, k5658),
    Format("BC4", 4, 4, 4, eIntermediateRGBA8, {8, 0, 0, 0}),
    Format("BC5", 8, 4, 4, eIntermediateRGBA8, {8, 8, 0, 0}),
    Format("BC6", 0, 1, 1, eIntermediateRGBA8, {16, 16, 16, 0}),
    Format("BC7", 0, 1, 1, eIntermediateRGBA8, k8880),
    Format("UYVY", 16, 2, 1, eIntermediateRGBA8, k8880, DecodeYUV, EncodeYUV, kAnyQuality),
    Format("YUY2", 16, 2, 1, eIntermediateRGBA8, k8880, DecodeYUV, EncodeYUV, kAnyQuality),
    BW1bpp(),
    Format("RGB9E5", 32, 1, 1, eIntermediateRGB32F, {14, 14, 14, 0}, DecodeRGB9E5, EncodeRGB9E5, kAnyQuality),
    Format("RGBG8888", 16, 2, 1, eIntermediateRGBA8, k8880, DecodeRGBG, EncodeRGBG, kAnyQuality),
    Format("GRGB8888", 16, 2, 1, eIntermediateRGBA8, k8880, DecodeRGBG, EncodeRGBG, kAnyQuality),
    Format("ETC2_RGB", 4, 4, 4, eIntermediateRGB8, {4, 4, 4, 0}, DecodeETC, EncodeETC, kEveryETCQuality),
    Format("ETC2_RGBA", 8, 4, 4, eIntermediateRGBA8, k4444, DecodeETC, EncodeETC, kEveryETCQuality),
    Format("ETC2_RGB_A1", 4, 4, 4, eIntermediateRGBA8, {5, 5, 5, 1}, DecodeETC, EncodeETC, kEveryETCQuality),
    Format("EAC_R11", 4, 4, 4, eIntermediateR16, {11, 0, 0, 0}, DecodeETC, EncodeETC, kEveryETCQuality),
    Format("EAC_RG11", 8, 4, 4, eIntermediateRG16, {11, 11, 0, 0}, DecodeETC, EncodeETC, kEveryETCQuality),
    ASTC("ASTC_4x4", 4, 4, 1),
    ASTC("ASTC_5x4", 5, 4, 1),
    ASTC("ASTC_5x5", 5, 5, 1),
    ASTC("ASTC_6x5", 6, 5, 1),
    ASTC("ASTC_6x6", 6, 6, 1),
    ASTC("ASTC_8x5", 8, 5, 1),
    ASTC("ASTC_8x6", 8, 6, 1),
    ASTC("ASTC_8x8", 8, 8, 1),
    ASTC("ASTC_10x5", 10, 5, 1),
    ASTC("ASTC_10x6", 10, 6, 1),
    ASTC("ASTC_10x8", 10, 8, 1),
    ASTC("ASTC_10x10", 10, 10, 1),
    ASTC("ASTC_12x10", 12, 10, 1),
    ASTC("ASTC_12x12", 12, 12, 1),
    ASTC("ASTC_3x3x3", 3, 3, 3),
    ASTC("ASTC_4x3x3", 4, 3, 3),
    ASTC("ASTC_4x4x3", 4, 4, 3),
    ASTC("ASTC_4x4x4", 4, 4, 4),
    ASTC("ASTC_5x4x4", 5, 4, 4),
    ASTC("ASTC_5x5x4", 5, 5, 4),
    ASTC("ASTC_5x5x5", 5, 5, 5),
    ASTC("ASTC_6x5x5", 6, 5, 5),
    ASTC("ASTC_6x6x5", 6, 6, 5),
    ASTC("ASTC_6x6x6", 6, 6, 6),
    Format("NumCompressed", 0, 1, 1, eIntermediateRGBA8, kNone),
};
static_assert(sizeof(kFormats) / sizeof(kFormats[0]) == ePF_NumCompressed + 1,
              "one descriptor per named format, ePF_NumCompressed included");

constexpr FormatDescriptor kUnknownFormat = Format(nullptr, 0, 1, 1, eIntermediateRGBA8, kNone);

// Indexed by EORBTVariableType.
constexpr ChannelTypeDescriptor kChannelTypes[] = {
    {"UnsignedByteNorm", "ubn", 8, false},     {"SignedByteNorm", "sbn", 8, true},
    {"UnsignedByte", "ub", 8, false},          {"SignedByte", "sb", 8, true},
    {"UnsignedShortNorm", "usn", 16, false},   {"SignedShortNorm", "ssn", 16, true},
    {"UnsignedShort", "us", 16, false},        {"SignedShort", "ss", 16, true},
    {"UnsignedIntegerNorm", "uin", 32, false}, {"SignedIntegerNorm", "sin", 32, true},
    {"UnsignedInteger", "ui", 32, false},      {"SignedInteger", "si", 32, true},
    {"SignedFloat", "sf", 32, true},           {"UnsignedFloat", "uf", 32, false},
};
static_assert(sizeof(kChannelTypes) / sizeof(kChannelTypes[0]) == eNumVarTypes, "one descriptor per channel type");

} // namespace

const FormatDescriptor& DescribeFormat(uint32_t format)
{
    return IsKnownFormat(format) ? kFormats[format] : kUnknownFormat;
}

const ChannelTypeDescriptor* DescribeChannelType(uint32_t channelType)
{
    return channelType < eNumVarTypes ? &kChannelTypes[channelType] : nullptr;
}

bool CanTranscodeTo(PixelType format)
{
    return !format.isNamedFormat() || DescribeFormat(format.lowWord()).encode != nullptr;
}

bool CanTranscodeFrom(PixelType format)
{
    return !format.isNamedFormat() || DescribeFormat(format.lowWord()).decode != nullptr;
}

int HighestCompressorQuality(PixelType format)
{
    return format.isNamedFormat() ? DescribeFormat(format.lowWord()).highestQuality : -1;
}

void DitherTargetBits(PixelType target, uint8_t bits[4])
{
    bits[0] = bits[1] = bits[2] = bits[3] = 0;
    if (target.isNamedFormat())
    {
        const FormatDescriptor& format = DescribeFormat(target.lowWord());
        for (unsigned c = 0; c < 4; ++c)
            bits[c] = format.ditherBits[c];
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
        format.isNamedFormat() ? DescribeFormat(format.lowWord()).intermediate : eIntermediateRGBA8;
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
