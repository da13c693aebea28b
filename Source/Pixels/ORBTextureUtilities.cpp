// Pixel format conversion of whole textures.

#include "ORBTextureUtilities.h"

#include <cstring>
#include <utility>

#include "Model/ORBTextureFormatFacts.h"
#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "Pixels/ORBTPixelByteTables.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Pixels/ORBTSharedExponentPaths.h"
#include "Tools/ORBTParallel.h"

namespace orbtexture
{

namespace
{
constexpr uint32_t kMinPixelsForTables = 4096;
constexpr size_t kEncodedPixelBytes = 16;
} // namespace

unsigned TranscodeTrivial(CORBTexture& source, CORBTexture& target, CPixelEncoder& sourceEncoder,
                          CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                          EORBTColourSpace sourceColourSpace)
{
    const size_t sourceStep = sourceEncoder.GetColourDataSize();
    const size_t targetStep = targetEncoder.GetColourDataSize();
    const uint8_t* encoded = targetEncoder.GetColourData();
    // The step bound: an encoder holds one pixel of at most 16 bytes. Transcode
    // refuses wider layouts (a channel above 32 bits) before it gets here; a
    // direct caller with such an encoder gets nothing copied.
    if (sourceStep > kEncodedPixelBytes || targetStep > kEncodedPixelBytes)
        return 0;

    // Large sources go through tables of the encoders' results when the pair
    // allows it; Build also weighs a table's cost against the pixel count.
    CPixelByteTables tables;
    const bool tabled = source.getTextureSize(-1, true, true) >= kMinPixelsForTables &&
                        tables.Build(source.getPixelType(), source.getChannelType(), sourceEncoder, targetEncoder,
                                     targetColourSpace, sourceColourSpace, source.getTextureSize(-1, true, true));

    uint64_t pixels = 0;
    ForEachSurface(source, [&](uint32_t mip, uint32_t member, uint32_t face) {
        const uint8_t* in = source.getDataPtr(mip, member, face);
        uint8_t* out = target.getDataPtr(mip, member, face);
        const uint32_t count = source.getTextureSize(int(mip), false, false);
        pixels += count;
        if (tabled)
        {
            tables.Convert(in, out, count);
            return;
        }
        for (uint32_t i = 0; i < count; ++i, in += sourceStep, out += targetStep)
        {
            sourceEncoder.OverwriteColourData(in);
            targetEncoder.EncodeFrom(sourceEncoder);
            targetEncoder.ConvertToColourSpace(targetColourSpace, sourceColourSpace);
            std::memcpy(out, encoded, targetStep);
        }
    });
    return unsigned(targetStep * pixels);
}

namespace
{

// TranscodeTrivial with encoders made of the textures' own layouts: through a
// pixel kernel where the pair has one, large surfaces split over threads.
void ConvertLayouts(CORBTexture& source, CORBTexture& target, CPixelEncoder& sourceEncoder,
                    CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                    EORBTColourSpace sourceColourSpace)
{
    const std::shared_ptr<const CPixelKernel> kernel =
        FindPixelKernel(source.getPixelType(), source.getChannelType(), sourceColourSpace, target.getPixelType(),
                        target.getChannelType(), targetColourSpace);
    if (!kernel)
    {
        TranscodeTrivial(source, target, sourceEncoder, targetEncoder, targetColourSpace, sourceColourSpace);
        return;
    }
    const size_t sourceStep = sourceEncoder.GetColourDataSize(), targetStep = targetEncoder.GetColourDataSize();
    ForEachSurface(source, [&](uint32_t mip, uint32_t member, uint32_t face) {
        const uint8_t* in = source.getDataPtr(mip, member, face);
        uint8_t* out = target.getDataPtr(mip, member, face);
        const uint32_t count = source.getTextureSize(int(mip), false, false);
        ParallelRanges(count, count, [&](uint32_t first, uint32_t end) {
            kernel->Convert(in + size_t(first) * sourceStep, out + size_t(first) * targetStep, end - first);
        });
    });
}

// The grey channel a dithered target keeps, or eChannelNone.
EChannelName DitherGreySource(PixelType target)
{
    if (target.isNamedFormat())
        return DescribeFormat(target.lowWord()).ditherGrey;
    if (target == PixelType('l', 'g', 'r', 0, 6, 5, 5, 0))
        return eChannelNone;
    bool luminance = false;
    for (unsigned position = 0; position < 4; ++position)
    {
        if (target.channelName(position) == 'i')
            return eChannelIntensity;
        luminance = luminance || target.channelName(position) == 'l';
    }
    return luminance ? eChannelLuminance : eChannelNone;
}

// Replaces the texture by an 8-bit rgba copy dithered towards 'target'.
void DitherTexture(CORBTexture& texture, CPixelEncoder& sourceEncoder, PixelType target)
{
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(PixelType(ORBStandard8PixelType));
    header.setChannelType(eVarUnsignedByteNorm);
    CORBTexture dithered(header);
    CPixelEncoder encoder8(PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm);
    ConvertLayouts(texture, dithered, sourceEncoder, encoder8, texture.getColourSpace(), texture.getColourSpace());

    const EChannelName grey = DitherGreySource(target);
    if (grey != eChannelNone)
    {
        EChannelName destination[3] = {eChannelRed, eChannelGreen, eChannelBlue};
        EChannelName source[3] = {grey, grey, grey};
        CopyChannels(dithered, dithered, 3, destination, source);
    }

    ForEachSurface(dithered, [&](uint32_t mip, uint32_t member, uint32_t face) {
        Dither(dithered.getDataPtr(mip, member, face), target, dithered.getWidth(mip), dithered.getHeight(mip),
               dithered.getDepth(mip));
    });

    texture = std::move(dithered);
    sourceEncoder = encoder8;
}

// Why the encoding of 'result' to 'format' wrote less than it should: the
// codec's own reason when it gave one, else the encoder's limits.
bool EncodeFailure(const CORBTexture& result, PixelType format, ECompressorQuality quality)
{
    if (!LastErrorIs(eORBTErrorNone))
        return false;
    CORBTString reason;
    if (!CanEncodeTexture(result, format, int(quality), reason))
        return SetError(CanTranscodeTo(format) ? eORBTErrorSize : eORBTErrorUnsupported, "Transcode: %s",
                        reason.c_str());
    return SetError(eORBTErrorUnsupported, "Transcode: the %s encoder failed", DescribeFormat(format.lowWord()).name);
}

} // namespace

bool Transcode(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
               EORBTColourSpace colourSpace, ECompressorQuality quality, bool dither)
{
    ClearLastError();
    if (texture.getDataSize(-1, true, true) == 0)
        return SetError(eORBTErrorArgument, "Transcode: the texture is empty");
    if (pixelType == PixelType(ePF_NumCompressed))
        return SetError(eORBTErrorArgument, "Transcode: ePF_NumCompressed is no format");
    // No encoder holds a pixel with a channel wider than 32 bits.
    if (HasOversizedChannel(texture.getPixelType()) || HasOversizedChannel(pixelType))
        return SetError(eORBTErrorUnsupported, "Transcode: channel layout has a channel wider than 32 bits");
    if (CurrentCallContext().Cancelled())
        return SetError(eORBTErrorCancelled, "cancelled");

    if (TranscodeSharedExponentDirectly(texture, pixelType, channelType, colourSpace))
        return true;

    CPixelEncoder sourceEncoder(texture.getPixelType(), texture.getChannelType());
    CPixelEncoder targetEncoder(pixelType, channelType);

    // A named source is decoded first, even when the target is its own format.
    if (texture.getPixelType().isNamedFormat())
    {
        DecompressNonTrivial(texture);
        sourceEncoder = CPixelEncoder(texture.getPixelType(), texture.getChannelType());
    }

    if (dither && ORBTGetBitsPerPixel(pixelType.PixelTypeID) < 32)
        DitherTexture(texture, sourceEncoder, pixelType);

    const PixelType currentType = texture.getPixelType();
    const EORBTVariableType currentChannelType = texture.getChannelType();
    const EORBTColourSpace currentColourSpace = texture.getColourSpace();

    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(pixelType);
    header.setChannelType(channelType);
    header.setColourSpace(colourSpace);
    const bool namedTarget = pixelType.isNamedFormat();
    if (namedTarget)
    {
        PixelType intermediate;
        EORBTVariableType intermediateType;
        IntermediateTranscodeFormat(pixelType, channelType, intermediate, intermediateType);
        header.setPixelFormat(intermediate);
        header.setChannelType(intermediateType);
        targetEncoder = CPixelEncoder(intermediate, intermediateType);
    }

    if (currentType == pixelType && currentColourSpace == colourSpace && currentChannelType == channelType)
    {
        if (!namedTarget)
            return true;
        const unsigned written = CompressNonTrivial(texture, pixelType, quality);
        return written == texture.getDataSize(-1, true, true) || EncodeFailure(texture, pixelType, quality);
    }

    CORBTexture result(header);
    ConvertLayouts(texture, result, sourceEncoder, targetEncoder, colourSpace, currentColourSpace);
    if (!namedTarget)
    {
        texture = std::move(result);
        return true;
    }
    const unsigned written = CompressNonTrivial(result, pixelType, quality);
    const bool success = written == result.getDataSize(-1, true, true) || EncodeFailure(result, pixelType, quality);
    texture = std::move(result);
    return success;
}

bool Transcode(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
               EORBTColourSpace colourSpace, ECompressorQuality quality, bool dither, const ORBTCallContext& context)
{
    const CScopedCallContext scope(context);
    if (!context.cancel)
        return Transcode(texture, pixelType, channelType, colourSpace, quality, dither);
    // A cancelled call leaves the caller's texture as it was.
    CORBTexture work(texture);
    const bool done = Transcode(work, pixelType, channelType, colourSpace, quality, dither);
    if (!done && LastErrorIs(eORBTErrorCancelled))
        return false;
    texture = std::move(work);
    return done;
}

} // namespace orbtexture
