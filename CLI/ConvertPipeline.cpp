#include "ConvertPipeline.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

#include "ChannelTypeDefault.h"
#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ImageOperations.h"
#include "ORBTextureDiffTools.h"
#include "ORBTextureInfo.h"
#include "ORBTextureUtilities.h"
#include "TextureInput.h"

namespace cli
{

using orbtexture::CORBTexture;
using orbtexture::EORBTColourSpace;
using orbtexture::EORBTVariableType;
using orbtexture::PixelType;

bool ParseColourSpace(const std::string& word, EORBTColourSpace& space)
{
    if (word == "linear")
        space = orbtexture::eColourSpaceLinear;
    else if (word == "srgb" || word == "sRGB")
        space = orbtexture::eColourSpaceSRGB;
    else
        return false;
    return true;
}

bool ReadTarget(const ConvertOptions& options, Target& target, std::string& reason)
{
    if (!options.format.empty() && !ParsePixelFormat(options.format, target.format, reason))
        return false;
    if (!options.type.empty() && !ParseChannelType(options.type, target.type))
    {
        reason = "unknown channel type '" + options.type + "' (orbtex formats lists the names)";
        return false;
    }
    return true;
}

namespace
{


std::string Describe(PixelType format, uint32_t type) { return FormatAndTypeName(format.PixelTypeID, type); }

// Named formats whose compressor of the asked quality is not built yet are
// named as such; channel layouts take no quality.
bool QualitySupported(PixelType target, int quality, std::string& reason)
{
    CORBTString why;
    if (orbtexture::HighestCompressorQuality(target) < 0 || orbtexture::CanEncode(target, 1, 1, 1, quality, why))
        return true;
    reason = why.c_str();
    return false;
}

bool LoadInput(const ConvertOptions& options, const std::string& input, CORBTexture& texture, std::string& reason)
{
    EORBTColourSpace space = orbtexture::eColourSpaceLinear;
    ParseColourSpace(options.inputColourSpace, space);
    return LoadTextureOrImage(input, space, options.allowShort, texture, reason);
}

bool Fail(FileResult& result, const std::string& path, const std::string& reason)
{
    result.failedPath = path;
    result.reason = reason;
    return false;
}

class Stopwatch
{
public:
    double Lap()
    {
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - m_last).count();
        m_last = now;
        return seconds;
    }

private:
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
};

// The PSNR of level 0's first surface of 'result' against 'source'; false if
// the result cannot be decoded to compare.
bool MeasurePSNR(const CORBTexture& source, const CORBTexture& result, float& psnr)
{
    CORBTexture a(source), b(result);
    std::string reason;
    if (ToCommonType(a, b, reason) != 0)
        return false;
    psnr = orbtexture::GetPSNRValue(a, b, 0, 0, 0).overall;
    return true;
}

// The encoders' side rules, told before converting with the sizes instead of
// a bare failure (DXT is encoded here, by its own rules).
bool SidesFit(const CORBTexture& texture, PixelType format, int quality, std::string& reason)
{
    CORBTString why;
    if (DXTSelector(format) || orbtexture::HighestCompressorQuality(format) < 0 ||
        orbtexture::CanEncodeTexture(texture, format, quality, why))
        return true;
    reason = std::string(why.c_str()) + " (--canvas or --resize can fit it)";
    return false;
}

// A named format converted to itself with nothing else to change keeps its
// blocks: decoding and encoding again would lose a little at every pass.
bool KeepsBlocks(const ConvertOptions& options, const CORBTexture& texture, PixelType format,
                 EORBTVariableType type, EORBTColourSpace space)
{
    return texture.getPixelType().isNamedFormat() && format == texture.getPixelType() &&
           type == texture.getChannelType() && space == texture.getColourSpace() && !options.operations.any() &&
           !options.reencode && !options.qualityGiven;
}

// Converts a loaded texture as the options ask.
bool ConvertTexture(const ConvertOptions& options, PixelType targetFormat, EORBTVariableType targetType,
                    EORBTColourSpace targetSpace, CORBTexture& texture, std::string& reason)
{
    const PixelType sourceFormat = texture.getPixelType();
    const EORBTVariableType sourceType = texture.getChannelType();
    if (!ApplyImageOperations(texture, options.operations, reason))
        return false;
    // DXT goes through r8g8b8a8 ubn on both sides, by the block codec here.
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
        return false;
    if (!SidesFit(texture, targetFormat, options.quality, reason))
        return false;
    const bool dxtTarget = DXTSelector(targetFormat) != 0;
    // Ctrl-C stops the codecs rather than waiting for them.
    orbtexture::ORBTCallContext context;
    context.cancel = &CancelFlag();
    const bool transcoded =
        dxtTarget ? orbtexture::Transcode(texture, PixelType(orbtexture::ORBStandard8PixelType),
                                          orbtexture::eVarUnsignedByteNorm, targetSpace, orbtexture::ECompressorQuality(0),
                                          false, context)
                  : orbtexture::Transcode(texture, targetFormat, targetType, targetSpace,
                                          orbtexture::ECompressorQuality(options.quality), options.dither, context);
    StopIfCancelled();
    if (!transcoded)
    {
        const std::string why = ORBTGetLastError();
        reason = "cannot convert " + Describe(sourceFormat, sourceType) + " to " + Describe(targetFormat, targetType) +
                 (why.empty() ? "" : ": " + why);
        return false;
    }
    return !dxtTarget || CompressDXTSurfaces(texture, targetFormat, targetType, options.dither, reason);
}

} // namespace

bool ConvertFile(const ConvertOptions& options, const Target& target, const ProtectedInputs& inputs,
                 const std::string& input, const std::string& output, ProgressLine& progress, FileResult& result)
{
    ProgressLine::File progressFile(progress, input);
    const ASTCLeftoversRemoved leftovers;
    Stopwatch stopwatch;
    std::string reason;
    CORBTexture texture;
    if (!LoadInput(options, input, texture, reason))
        return Fail(result, input, reason);
    result.seconds[0] = stopwatch.Lap();

    const PixelType sourceFormat = texture.getPixelType();
    const EORBTVariableType sourceType = texture.getChannelType();
    const PixelType targetFormat = options.format.empty() ? sourceFormat : PixelType(target.format);
    const EORBTVariableType targetType =
        options.type.empty() ? DefaultChannelType(targetFormat, sourceType) : EORBTVariableType(target.type);
    EORBTColourSpace targetSpace = texture.getColourSpace();
    if (!options.colourSpace.empty())
        ParseColourSpace(options.colourSpace, targetSpace);
    const OutputKind kind = KindOfOutput(FileExtension(output), options.legacyApi);

    // The library decodes a named source even into its own format; kept
    // blocks are decoded only for an image.
    const bool keep = KeepsBlocks(options, texture, targetFormat, targetType, targetSpace);
    const bool decodes = !keep || kind == OutputKind::Image;
    if (decodes && !ConvertReads(sourceFormat))
        return Fail(result, input, "no decoder for " + PixelFormatName(sourceFormat.PixelTypeID) + " in this version");
    if (!keep && !ConvertWrites(targetFormat))
        return Fail(result, input, "no encoder for " + PixelFormatName(targetFormat.PixelTypeID) + " in this version");
    if (!keep && !QualitySupported(targetFormat, options.quality, reason))
        return Fail(result, input, reason);
    for (const auto& [format, used] : {std::pair(sourceFormat, decodes), std::pair(targetFormat, !keep)})
        if (used && IsASTCFormat(format) && !orbtexture::isASTCEncAvailable())
            return Fail(result, input,
                        PixelFormatName(format.PixelTypeID) + " needs the astcenc program, which is not on PATH");
    const CORBTexture source = options.verbose ? texture : CORBTexture();
    progressFile.SetSurfaces(texture.getNumMIPLevels() * texture.getNumArrayMembers() * texture.getNumFaces());
    if (!keep && !ConvertTexture(options, targetFormat, targetType, targetSpace, texture, reason))
        return Fail(result, input, reason);
    result.seconds[1] = stopwatch.Lap();
    result.written = Describe(texture.getPixelType(), texture.getChannelType());

    std::string failedPath;
    if (!WriteOutput(options, inputs, input, output, kind, texture, failedPath, reason))
        return Fail(result, failedPath, reason);
    result.seconds[2] = stopwatch.Lap();
    if (options.verbose)
        result.measured = MeasurePSNR(source, texture, result.psnr);
    return true;
}

} // namespace cli
