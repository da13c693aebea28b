// The detour of the transcoding pipeline through a named format's codec,
// surface by surface, and dithering to a target's bit depth.

#include <algorithm>
#include <cstring>
#include <memory>

#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureFormatFacts.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "Pixels/ORBTextureCodecRegistry.h"
#include "ORBTextureUtilities.h"

namespace orbtexture
{

namespace
{

// A format without a codec call: nothing is decoded or encoded, and the
// result holds zeros rather than whatever the heap held. Returns the 0 bytes
// written.
unsigned ReplaceWithZeros(CORBTexture& texture, CORBTexture& result)
{
    if (result.getDataPtr())
        std::memset(result.getDataPtr(), 0, result.getDataSize());
    texture = std::move(result);
    return 0;
}

// A part of the progress of a call: fractions of one surface's codec map
// to [start, start + width] of the whole.
struct SurfaceShare
{
    const ORBTCallContext* outer;
    float start, width;
    static void Report(float fraction, void* user)
    {
        const SurfaceShare& share = *static_cast<const SurfaceShare*>(user);
        share.outer->Report(share.start + fraction * share.width);
    }
};

} // namespace

unsigned DecompressNonTrivial(CORBTexture& texture)
{
    const uint32_t format = texture.getPixelType().lowWord();
    const FormatDescriptor& descriptor = DescribeFormat(format);
    const CodecEntry& codec = DescribeCodec(format);

    CORBTextureHeader header(texture.getHeader());
    PixelType intermediate;
    EORBTVariableType intermediateType;
    IntermediateTranscodeFormat(texture.getPixelType(), texture.getChannelType(), intermediate, intermediateType);
    header.setPixelFormat(intermediate);
    header.setChannelType(intermediateType);
    const bool isSigned = IsSignedChannelType(texture.getChannelType());
    CORBTexture result(header);
    if (!codec.decode)
        return ReplaceWithZeros(texture, result);

    const size_t bytesPerPixel = ORBTGetBitsPerPixel(intermediate.PixelTypeID) / 8;
    const unsigned minX = descriptor.minX, minY = descriptor.minY, minZ = descriptor.minZ;

    unsigned sum = 0;
    ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
        CodecSurface surface = {texture.getDataPtr(mip, member, face), result.getDataPtr(mip, member, face),
                                texture.getWidth(mip), texture.getHeight(mip), texture.getDepth(mip),
                                EORBTPixelFormat(format), isSigned, ECompressorQuality(0)};
        const size_t surfaceBytes = size_t(surface.width) * surface.height * surface.depth * bytesPerPixel;
        const bool small = surface.width < minX || surface.height < minY || surface.depth < minZ;
        unsigned written;
        if (descriptor.decodesAnySize || !small)
        {
            written = codec.decode(surface);
        }
        else
        {
            // Decoders that write whole blocks get a block-sized buffer.
            const size_t padded = size_t(std::max(surface.width, minX)) * std::max(surface.height, minY) *
                                  std::max(surface.depth, minZ) * bytesPerPixel;
            std::unique_ptr<unsigned char[]> buffer(new unsigned char[padded]);
            unsigned char* destination = surface.destination;
            surface.destination = buffer.get();
            written = codec.decode(surface);
            std::memcpy(destination, buffer.get(), surfaceBytes);
            surface.destination = destination;
        }
        // A decoder that failed (the external ASTC tool missing, say) leaves zeros.
        if (written == 0)
            std::memset(surface.destination, 0, surfaceBytes);
        sum += written;
    });

    texture = std::move(result);
    return sum;
}

unsigned CompressNonTrivial(CORBTexture& texture, PixelType format, ECompressorQuality quality)
{
    const FormatDescriptor& descriptor = DescribeFormat(format.lowWord());
    const CodecEntry& codec = DescribeCodec(format.lowWord());

    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(format);
    CORBTexture result(header);
    const bool isSigned = IsSignedChannelType(result.getChannelType());
    if (!codec.encode)
        return ReplaceWithZeros(texture, result);

    const size_t bytesPerPixel = ORBTGetBitsPerPixel(texture.getPixelType().PixelTypeID) / 8;
    const unsigned minX = descriptor.minX, minY = descriptor.minY, minZ = descriptor.minZ;

    // The codec of each surface reports its share of the progress, by pixels.
    const ORBTCallContext& outer = CurrentCallContext();
    SurfaceShare share = {&outer, 0.f, 0.f};
    ORBTCallContext inner = outer;
    if (outer.progress)
    {
        inner.progress = SurfaceShare::Report;
        inner.progressUser = &share;
    }
    const CScopedCallContext scope(inner);
    const float totalPixels = float(texture.getTextureSize(-1, true, true));

    unsigned sum = 0;
    ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
        if (outer.Cancelled())
            return;
        share.start += share.width;
        share.width = float(texture.getTextureSize(int(mip), false, false)) / totalPixels;
        const unsigned width = texture.getWidth(mip), height = texture.getHeight(mip), depth = texture.getDepth(mip);
        CodecSurface surface = {texture.getDataPtr(mip, member, face), result.getDataPtr(mip, member, face),
                                width, height, depth, EORBTPixelFormat(format.lowWord()), isSigned, quality};

        // A level below the format's minimum is tiled up to it.
        std::unique_ptr<unsigned char[]> buffer;
        if (width < minX || height < minY || depth < minZ)
        {
            surface.width = std::max(width, minX);
            surface.height = std::max(height, minY);
            surface.depth = std::max(depth, minZ);
            buffer.reset(new unsigned char[size_t(surface.width) * surface.height * surface.depth * bytesPerPixel]);
            unsigned char* out = buffer.get();
            for (unsigned z = 0; z < surface.depth; ++z)
                for (unsigned y = 0; y < surface.height; ++y)
                    for (unsigned x = 0; x < surface.width; ++x, out += bytesPerPixel)
                    {
                        const size_t index = (size_t(z % depth) * height + y % height) * width + x % width;
                        std::memcpy(out, surface.source + index * bytesPerPixel, bytesPerPixel);
                    }
            surface.source = buffer.get();
        }

        if (descriptor.opaqueAlphaFirst)
        {
            EChannelName alpha = eChannelAlpha;
            unsigned char opaque = 255;
            SetChannels<unsigned char, unsigned char>(reinterpret_cast<Pixel<unsigned char>*>(surface.source),
                                                      surface.width, surface.height, surface.depth, 1, &alpha,
                                                      &opaque);
        }
        const unsigned written = codec.encode(surface);
        outer.Report(share.start + share.width);
        // A failed encoder leaves a zeroed block rather than what the heap held.
        if (written == 0)
            std::memset(surface.destination, 0, result.getDataSize(int(mip), false, false));
        sum += written;
    });

    texture = std::move(result);
    if (outer.Cancelled())
        return SetError(eORBTErrorCancelled, "cancelled"), 0;
    return sum;
}

void Dither(unsigned char* data, PixelType target, unsigned width, unsigned height, unsigned depth)
{
    uint8_t bits[4];
    DitherTargetBits(target, bits);
    const size_t rowPitch = size_t(width) * 4;
    const size_t slicePitch = rowPitch * height;

    for (unsigned channel = 0; channel < 4; ++channel)
    {
        const int t = bits[channel];
        if (t < 1 || t > 7)
            continue;
        const int s = 8 - t;
        // Columns before rows, slices innermost.
        for (unsigned x = 0; x < width; ++x)
            for (unsigned y = 0; y < height; ++y)
                for (unsigned z = 0; z < depth; ++z)
                {
                    unsigned char* pixel = data + z * slicePitch + y * rowPitch + size_t(x) * 4 + channel;
                    const int v = *pixel;
                    const int q = std::min(((v >> s) << s) + (v >> t), 255);
                    *pixel = static_cast<unsigned char>(q);
                    const int e = v - q;
                    auto spread = [e](unsigned char* p, int divisor) {
                        *p = static_cast<unsigned char>(std::clamp(*p + e / divisor, 0, 255));
                    };
                    if (x < width - 1)
                    {
                        spread(pixel + 4, 2);
                        if (y < height - 1)
                            spread(pixel + 4 + rowPitch, 4);
                    }
                    if (y < height - 1)
                        spread(pixel + rowPitch, 4);
                }
    }
}

} // namespace orbtexture
