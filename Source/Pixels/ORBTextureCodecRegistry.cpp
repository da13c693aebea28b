#include "Pixels/ORBTextureCodecRegistry.h"

#include <string>

#include "Codecs/ASTCCodec.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/OneBPPCodec.h"
#include "Codecs/RGB9E5Codec.h"
#include "Codecs/RGBGCodec.h"
#include "Codecs/YUVCodec.h"
#include "Model/ORBTextureFormatFacts.h"
#include "ORBTexture.h"
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

// The ETC compressors: fast (0, 1) and exhaustive (2 to 5) searches; the
// 1-bit alpha and EAC forms serve every quality with their own searches.
constexpr int8_t kEveryETCQuality = 5;

// The ORBTC block compressors serve qualities 0 and 1, the optimiser 2 to 8
// (its levels 0 to 6), and kORBTCRefineQuality (9) refines quality 8's words;
// those above 9 are the same as 9.
// The small fixed-rate codecs ignore the quality; ASTC runs the external
// encoder, whose switches cover qualities 0 to 4, 5 and above being its
// default.
constexpr int8_t kAnyQuality = INT8_MAX;

constexpr CodecLimits kFree = {0, eWholeUnitsNone, false, kAnyQuality};
constexpr CodecLimits kPairs = {0, eWholeUnitsAcross, false, kAnyQuality};
constexpr CodecLimits kETC = {0, eWholeUnitsNone, false, kEveryETCQuality};
constexpr CodecLimits kORBTC = {uint16_t(kORBTCLargestSide), eWholeUnitsBoth, false, kAnyQuality};
constexpr CodecLimits kORBTCII = {uint16_t(kORBTCLargestSide), eWholeUnitsNone, true, kAnyQuality};
constexpr CodecLimits kNoEncoder = {0, eWholeUnitsNone, false, -1};

constexpr CodecEntry kNoCodec = {nullptr, nullptr, kNoEncoder};
constexpr CodecEntry kETCCodec = {DecodeETC, EncodeETC, kETC};
constexpr CodecEntry kASTCCodec = {DecodeASTC, EncodeASTC, kFree};

// Indexed by EORBTPixelFormat.
constexpr CodecEntry kCodecs[] = {
    {DecodeORBTC<true, 0>, EncodeORBTC<false, true, 0>, kORBTC},   // ORBTC_2bpp_RGB
    {DecodeORBTC<true, 0>, EncodeORBTC<true, true, 0>, kORBTC},    // ORBTC_2bpp_RGBA
    {DecodeORBTC<false, 0>, EncodeORBTC<false, false, 0>, kORBTC}, // ORBTC_4bpp_RGB
    {DecodeORBTC<false, 0>, EncodeORBTC<true, false, 0>, kORBTC},  // ORBTC_4bpp_RGBA
    {DecodeORBTC<true, 1>, EncodeORBTC<false, true, 1>, kORBTCII},   // ORBTCII_2bpp
    {DecodeORBTC<false, 1>, EncodeORBTC<false, false, 1>, kORBTCII}, // ORBTCII_4bpp
    kETCCodec,                                                     // ETC1
    kNoCodec, kNoCodec, kNoCodec, kNoCodec, kNoCodec,              // DXT1 to DXT5
    kNoCodec, kNoCodec, kNoCodec, kNoCodec,                        // BC4 to BC7
    {DecodeYUV, EncodeYUV, kPairs},                                // UYVY
    {DecodeYUV, EncodeYUV, kPairs},                                // YUY2
    {DecodeOneBPP, EncodeOneBPP, kPairs},                          // BW1bpp
    {DecodeRGB9E5, EncodeRGB9E5, kFree},                           // RGB9E5
    {DecodeRGBG, EncodeRGBG, kPairs},                              // RGBG8888
    {DecodeRGBG, EncodeRGBG, kPairs},                              // GRGB8888
    kETCCodec, kETCCodec, kETCCodec, kETCCodec, kETCCodec,         // ETC2 RGB, RGBA, RGB A1, EAC R11, RG11
    kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, // 2D ASTC
    kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec,
    kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, kASTCCodec, // 3D ASTC
    kASTCCodec, kASTCCodec,
};
static_assert(sizeof(kCodecs) / sizeof(kCodecs[0]) == ePF_NumCompressed, "one codec entry per named format");

// The side rules of 'format' for one level called 'what' ("the image", "MIP
// level 2"); false with the reason when the level breaks them.
bool SidesFit(uint32_t format, const char* what, unsigned width, unsigned height, std::string& reason)
{
    const FormatDescriptor& facts = DescribeFormat(format);
    const CodecLimits& limits = DescribeCodec(format).limits;
    const unsigned longest = limits.largestSide;
    const bool across = limits.wholeUnits != eWholeUnitsNone, down = limits.wholeUnits == eWholeUnitsBoth;
    auto fits = [&](unsigned side, unsigned least, bool whole) {
        return (!longest || side <= longest) && (!whole || side < least || side % least == 0);
    };
    if (fits(width, facts.minX, across) && fits(height, facts.minY, down))
        return true;
    const std::string rule =
        down     ? "sides that are multiples of " + std::to_string(facts.minX) + " across and " +
                   std::to_string(facts.minY) + " down (or less than that) and"
        : across ? "widths that are multiples of " + std::to_string(facts.minX) + " (or less than that)"
                 : "sides";
    reason = std::string(what) + " is " + std::to_string(width) + "x" + std::to_string(height) + ", but " +
             facts.name + " needs " + rule + (longest ? " at most " + std::to_string(longest) : "");
    return false;
}

// The encoder and quality of 'format'; false with the reason when there is
// none.
bool EncoderServes(uint32_t format, int quality, std::string& reason)
{
    const FormatDescriptor& facts = DescribeFormat(format);
    const CodecEntry& codec = DescribeCodec(format);
    if (!codec.encode)
    {
        reason = std::string("this version has no encoder for ") + (facts.name ? facts.name : "an unknown format");
        return false;
    }
    const int highest = codec.limits.highestQuality;
    if (quality < 0 || (highest != INT8_MAX && quality > highest))
    {
        reason = "quality " + std::to_string(quality) + " of " + facts.name + " is not supported by this version (" +
                 (highest == 1 ? std::string("0 and 1") : "0 to " + std::to_string(highest)) + " are)";
        return false;
    }
    return true;
}

} // namespace

const CodecEntry& DescribeCodec(uint32_t format) { return format < ePF_NumCompressed ? kCodecs[format] : kNoCodec; }

bool CanTranscodeTo(PixelType format)
{
    return !format.isNamedFormat() || DescribeCodec(format.lowWord()).encode != nullptr;
}

bool CanTranscodeFrom(PixelType format)
{
    return !format.isNamedFormat() || DescribeCodec(format.lowWord()).decode != nullptr;
}

int HighestCompressorQuality(PixelType format)
{
    return format.isNamedFormat() ? DescribeCodec(format.lowWord()).limits.highestQuality : -1;
}

bool CanEncode(PixelType format, unsigned width, unsigned height, unsigned depth, int quality, CORBTString& reason)
{
    if (!format.isNamedFormat())
        return true;
    std::string why;
    if (width == 0 || height == 0 || depth == 0)
        why = "the image is " + std::to_string(width) + "x" + std::to_string(height) + "x" + std::to_string(depth) +
              ", which has no pixels";
    const bool fits = why.empty() && EncoderServes(format.lowWord(), quality, why) &&
                      SidesFit(format.lowWord(), "the image", width, height, why);
    reason = why.c_str();
    return fits;
}

bool CanEncodeTexture(const CORBTexture& texture, PixelType format, int quality, CORBTString& reason)
{
    if (!format.isNamedFormat())
        return true;
    std::string why;
    bool fits = EncoderServes(format.lowWord(), quality, why);
    for (uint32_t level = 0; fits && level < texture.getNumMIPLevels(); ++level)
    {
        const std::string what = level ? "MIP level " + std::to_string(level) : std::string("the image");
        fits = SidesFit(format.lowWord(), what.c_str(), texture.getWidth(level), texture.getHeight(level), why);
    }
    reason = why.c_str();
    return fits;
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
