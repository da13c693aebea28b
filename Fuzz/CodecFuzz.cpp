// Drives the block codecs with arbitrary block data and images: the ORBTC and
// ETC decoders at the input's size (each checked against its plain form), the Transcode detour from a texture of the
// chosen format to rgba8, and the compressors (direct and through Transcode)
// for the chosen format, the exhaustive ETC searches checked against their
// plain forms.
//
// Input layout:
//   0      width - 1 (mod 64)
//   1      height - 1 (mod 64)
//   2      format: (mod 64) below 52 a named format, else a channel layout
//   3      quality: (mod 16) below 12 its low bit (0 or 1), else 2 to 5; the
//          ORBTC compressors take 9 (the refinement) when it is 0x8F or above
//          and 15 mod 16
//   4      flags: 1 ORBTC alpha, 2 signed, 4 sRGB, 8 dither, 0x30 MIP levels - 1,
//          0x40 ORBTC generation 1 / extended decoder
//   5      channel type (mod 15, 14 being out of range)
//   6-9    channel layout names, one of "rgbalix", none or 'z' each
//   10-13  channel layout widths: below 224 (mod 33), else 33 to 64
//   14-    block data and pixels, repeated to the size each call needs

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Bitmap/Bitmap.h"
#include "Codecs/ETC/ETCCodec.h"
#include "Codecs/ETC/ETCDecompress.h"
#include "Codecs/ETC/ETCExhaustive.h"
#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Codecs/ORBTC/ORBTCDecompressInternal.h"
#include "Codecs/ORBTC/ORBTCFormat.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "ORBTextureUtilities.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Tools/ORBTSimd.h"

using namespace orbtexture;

namespace
{

constexpr size_t kHeaderBytes = 14;

struct Input
{
    const uint8_t* data;
    size_t size;

    uint8_t at(size_t i) const { return i < size ? data[i] : 0; }

    // n bytes of the payload after the header, repeated; zeros without one.
    std::vector<uint8_t> fill(size_t n) const
    {
        std::vector<uint8_t> out(n, 0);
        if (size <= kHeaderBytes)
            return out;
        const uint8_t* payload = data + kHeaderBytes;
        const size_t length = size - kHeaderBytes;
        for (size_t i = 0; i < n; ++i)
            out[i] = payload[i % length];
        return out;
    }
};

[[noreturn]] void Fail(const char* what, unsigned a, unsigned b, unsigned c)
{
    std::fprintf(stderr, "codecfuzz: %s (%u, %u, %u)\n", what, a, b, c);
    std::abort();
}

// No encoder holds a channel wider than 32 bits; Transcode refuses such layouts.
bool HasWideChannel(PixelType format)
{
    for (unsigned i = 0; !format.isNamedFormat() && i < 4; ++i)
        if (format.channelBits(i) > 32)
            return true;
    return false;
}

bool IsORBTCFormat(uint32_t format) { return format <= ePF_ORBTC_4bpp_RGBA; }
bool IsORBTC2bpp(uint32_t format) { return format <= ePF_ORBTC_2bpp_RGBA; }

const uint32_t kETCFormats[] = {ePF_ETC1, ePF_ETC2_RGB, ePF_ETC2_RGBA, ePF_ETC2_RGB_A1, ePF_EAC_R11, ePF_EAC_RG11};

bool IsETCFormat(uint32_t format)
{
    for (uint32_t f : kETCFormats)
        if (f == format)
            return true;
    return false;
}

// Bytes of one pixel that ETCCompress takes and ETCDecompress gives.
unsigned ETCPixelBytes(uint32_t format)
{
    switch (format)
    {
    case ePF_ETC1:
    case ePF_ETC2_RGB: return 3;
    case ePF_EAC_R11: return 2;
    default: return 4;
    }
}

unsigned ETCBlockBytes(uint32_t format) { return format == ePF_ETC2_RGBA || format == ePF_EAC_RG11 ? 16 : 8; }

void DecodeORBTC(const Input& input, unsigned width, unsigned height, bool extendedDecoder)
{
    for (int twoBit = 0; twoBit < 2; ++twoBit)
    {
        const unsigned minWidth = twoBit ? 16 : 8;
        const unsigned w = width, h = height;
        // Exactly the bytes the decoder reports consuming.
        const unsigned trueW = w > minWidth ? w : minWidth, trueH = h > 8 ? h : 8;
        const unsigned consumed = trueW * trueH * (twoBit ? 2 : 4) / 8;
        const std::vector<uint8_t> words = input.fill(consumed);
        std::vector<uint8_t> pixels(size_t(w) * h * 4);

        const int result = ORBTDecompressORBTC(words.data(), twoBit, int(w), int(h), pixels.data());
        if (unsigned(result) != consumed)
            Fail("ORBTDecompressORBTC result", w, h, unsigned(result));
        std::vector<uint8_t> plain(pixels.size());
        ORBTDecompressORBTCPlain(words.data(), twoBit, int(w), int(h), plain.data());
        if (plain != pixels)
            Fail("ORBTDecompressORBTC differs from the plain decoder", w, h, unsigned(twoBit));

        // The extended decoder reads exactly one word per block of the size
        // rounded up to whole blocks (8 x 4 at 2bpp, 4 x 4 at 4bpp).
        const unsigned decoder = extendedDecoder ? 1 : 0;
        const unsigned blockWidth = twoBit ? 8 : 4;
        const std::vector<uint8_t> blockWords =
            decoder ? input.fill(size_t((w + blockWidth - 1) / blockWidth) * ((h + 3) / 4) * 8) : words;
        const unsigned written = ORBTCDecompress(blockWords.data(), pixels.data(), w, h, twoBit != 0, decoder);
        if (written != w * h * 4)
            Fail("ORBTCDecompress result", w, h, written);
        if (decoder)
        {
            // The tile decoder on a bitmap of whole blocks.
            const unsigned paddedW = (w + blockWidth - 1) / blockWidth * blockWidth, paddedH = (h + 3) / 4 * 4;
            Bitmap* bitmap = new_bitmap(int(paddedW), int(paddedH), 1, nullptr);
            Decompress(blockWords.data(), 0, 1, 4, twoBit ? 2 : 4, int(paddedW), int(paddedH), 4, 0, 1, bitmap);
            for (unsigned y = 0; y < h; ++y)
                if (std::memcmp(&pixels[size_t(y) * w * 4], bitmap->pixels + size_t(y) * paddedW * 4, size_t(w) * 4))
                    Fail("the ORBTCII decoder differs from the tile decoder", w, h, y);
            delete_bitmap(bitmap);
        }
    }
}

void DecodeETC(const Input& input, unsigned width, unsigned height)
{
    const unsigned blocks = (width + 3) / 4 * ((height + 3) / 4);
    for (uint32_t format : kETCFormats)
    {
        const std::vector<uint8_t> words = input.fill(size_t(blocks) * ETCBlockBytes(format));
        for (int isSigned = 0; isSigned < 2; ++isSigned)
        {
            std::vector<uint8_t> pixels(size_t(width) * height * ETCPixelBytes(format));
            const uint64_t written = ETCDecompress(words.data(), pixels.data(), width, height, format, isSigned != 0);
            if (written != pixels.size())
                Fail("ETCDecompress result", width, height, format);
            std::vector<uint8_t> plain(pixels.size());
            ETCDecompressPlain(words.data(), plain.data(), width, height, format, isSigned != 0);
            if (plain != pixels)
                Fail("ETCDecompress differs from the plain decoder", width, height, format);
        }
    }

    const std::vector<uint8_t> words = input.fill(size_t(blocks) * 8);
    std::vector<uint8_t> rgba(size_t(width) * height * 4);
    const int result = ORBTDecompressETC(words.data(), width, height, rgba.data(), 0);
    const unsigned workWidth = width > 4 ? width : 4, workHeight = height > 4 ? height : 4;
    if (unsigned(result) != workWidth * workHeight / 2)
        Fail("ORBTDecompressETC result", width, height, unsigned(result));
    std::vector<uint8_t> plain(rgba.size());
    ORBTDecompressETCPlain(words.data(), width, height, plain.data(), 0);
    if (plain != rgba)
        Fail("ORBTDecompressETC differs from the plain decoder", width, height, 0);
}

CORBTexture MakeTexture(const Input& input, uint64_t format, unsigned width, unsigned height, unsigned levels,
                        EORBTVariableType channelType, EORBTColourSpace colourSpace)
{
    const CORBTextureHeader header(format, height, width, 1, levels, 1, 1, colourSpace, channelType);
    return CORBTexture(header, input.fill(header.getDataSize()).data());
}

// The pixel kernels of a layout against the pixel loop on 64 pixels, both
// ways with rgba8 and to the other colour space, on every SIMD path.
void CheckKernels(const Input& input, PixelType layout, EORBTVariableType channelType, EORBTColourSpace space)
{
    const PixelType rgba8(ORBStandard8PixelType);
    const EORBTColourSpace other = space == eColourSpaceSRGB ? eColourSpaceLinear : eColourSpaceSRGB;
    const struct
    {
        PixelType from;
        EORBTVariableType fromType;
        PixelType to;
        EORBTVariableType toType;
        EORBTColourSpace toSpace;
    } pairs[] = {{layout, channelType, rgba8, eVarUnsignedByteNorm, space},
                 {rgba8, eVarUnsignedByteNorm, layout, channelType, space},
                 {layout, channelType, rgba8, eVarUnsignedByteNorm, other}};
    for (const auto& pair : pairs)
    {
        const auto kernel = FindPixelKernel(pair.from, pair.fromType, space, pair.to, pair.toType, pair.toSpace);
        if (!kernel)
            continue;
        CORBTexture source = MakeTexture(input, pair.from.PixelTypeID, 16, 4, 1, pair.fromType, space);
        CORBTextureHeader header(source.getHeader());
        header.setPixelFormat(pair.to);
        header.setChannelType(pair.toType);
        CORBTexture loop(header);
        CPixelEncoder from(pair.from, pair.fromType), to(pair.to, pair.toType);
        TranscodeTrivial(source, loop, from, to, pair.toSpace, space);
        for (int path = eSimdPortable; path <= eSimdAVX2; ++path)
        {
            SetSimdPath(ESimdPath(path));
            std::vector<uint8_t> fast(loop.getDataSize());
            kernel->Convert(source.getDataPtr(), fast.data(), 64);
            if (std::memcmp(fast.data(), loop.getDataPtr(), fast.size()) != 0)
                Fail("a pixel kernel differs from the pixel loop", unsigned(layout.PixelTypeID),
                     unsigned(channelType), unsigned(path));
        }
        SetSimdPath(eSimdAVX2);
    }
}

// A successful Transcode leaves a texture of the target's type and size. A
// named target keeps its codec's channel type, so only layouts are checked for it.
void CheckTranscoded(const CORBTexture& texture, bool ok, PixelType target, EORBTVariableType channelType)
{
    if (!ok)
        return;
    if (texture.getPixelType() != target ||
        (!target.isNamedFormat() && texture.getChannelType() != channelType))
        Fail("Transcode result type", unsigned(target.lowWord()), unsigned(channelType),
             unsigned(texture.getPixelType().lowWord()));
    const CORBTextureHeader expected(target.PixelTypeID, texture.getHeight(), texture.getWidth(), 1,
                                     texture.getNumMIPLevels());
    if (texture.getDataPtr() == nullptr || texture.getDataSize() != expected.getDataSize())
        Fail("Transcode result size", texture.getWidth(), texture.getHeight(), texture.getDataSize());
}

void CompressORBTC(const Input& input, uint32_t format, unsigned width, unsigned height, bool hasAlpha,
                   unsigned quality, bool generation1)
{
    const bool twoBpp = IsORBTC2bpp(format);
    const unsigned blockWidth = twoBpp ? 8 : 4;

    // Generation 0 takes whole blocks only, at every quality (2 and above the
    // optimiser); generation 1 pads any size first (and, having no compressor
    // in this build, then returns 0).
    const unsigned generation = generation1 ? 1 : 0;
    unsigned w = width, h = height;
    if (!generation1)
    {
        w = (width + blockWidth - 1) / blockWidth * blockWidth;
        h = (height + 3) / 4 * 4;
    }
    const std::vector<uint8_t> pixels = input.fill(size_t(w) * h * 4);
    const unsigned size = ORBTCCompress(nullptr, nullptr, w, h, hasAlpha, twoBpp, generation, quality);
    std::vector<uint8_t> words(size);
    const unsigned written = ORBTCCompress(pixels.data(), words.data(), w, h, hasAlpha, twoBpp, generation, quality);
    if (written != 0 && written != size)
        Fail("ORBTCCompress result", w, h, written);
    if (written == 0 && !generation1)
        Fail("ORBTCCompress failed on whole blocks", w, h, quality);
}

void CompressETC(const Input& input, uint32_t format, unsigned width, unsigned height, int quality, bool isSigned)
{
    const std::vector<uint8_t> pixels = input.fill(size_t(width) * height * ETCPixelBytes(format));
    const unsigned size = ETCCompress(nullptr, nullptr, width, height, quality, format, isSigned);
    const unsigned blocks = (width + 3) / 4 * ((height + 3) / 4);
    if (size != blocks * ETCBlockBytes(format))
        Fail("ETCCompress size", width, height, size);
    std::vector<uint8_t> words(size);
    const unsigned written = ETCCompress(pixels.data(), words.data(), width, height, quality, format, isSigned);
    if (written != 0 && written != size)
        Fail("ETCCompress result", width, height, written);
    // Signed input is for the EAC formats only; qualities 4 and 5 skip that
    // test, as documented.
    if (written != 0 && isSigned && format != ePF_EAC_R11 && format != ePF_EAC_RG11 && quality < 4)
        Fail("ETCCompress took signed input for a colour format", format, unsigned(quality), written);

    // What was written decodes at the same size.
    if (written)
    {
        std::vector<uint8_t> decoded(size_t(width) * height * ETCPixelBytes(format));
        ETCDecompress(words.data(), decoded.data(), width, height, format, isSigned);
    }

    // The exhaustive colour searches give the blocks of their plain forms.
    if (written && quality >= 2 && (format == ePF_ETC1 || format == ePF_ETC2_RGB || format == ePF_ETC2_RGBA))
    {
        std::vector<uint8_t> plain(size);
        ETCExhaustiveSetPlain(true);
        ETCCompress(pixels.data(), plain.data(), width, height, quality, format, isSigned);
        ETCExhaustiveSetPlain(false);
        if (plain != words)
            Fail("exhaustive ETC search differs from its plain form", format, unsigned(quality), width * 100 + height);
    }
}

PixelType ChannelLayout(const Input& input)
{
    static const uint8_t kNames[9] = {'r', 'g', 'b', 'a', 'l', 'i', 'x', 0, 'z'};
    uint8_t names[4], bits[4];
    for (unsigned i = 0; i < 4; ++i)
    {
        names[i] = kNames[input.at(6 + i) % 9];
        // Mostly up to 32 bits a channel; the top 32 byte values give 33 to 64.
        const uint8_t b = input.at(10 + i);
        bits[i] = uint8_t(b < 224 ? b % 33 : b - 224 + 33);
    }
    return PixelType(names[0], names[1], names[2], names[3], bits[0], bits[1], bits[2], bits[3]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Input input{data, size};
    const unsigned width = 1 + input.at(0) % 64;
    const unsigned height = 1 + input.at(1) % 64;
    const unsigned formatByte = input.at(2) % 64;
    const unsigned qualityByte = input.at(3) % 16;
    const int quality = qualityByte < 12 ? int(qualityByte & 1) : int(qualityByte) - 10;
    const uint8_t flags = input.at(4);
    const bool hasAlpha = flags & 0x01;
    const bool isSigned = flags & 0x02;
    const EORBTColourSpace colourSpace = flags & 0x04 ? eColourSpaceSRGB : eColourSpaceLinear;
    const bool dither = flags & 0x08;
    const unsigned levels = 1 + ((flags >> 4) & 3);
    const bool generation1 = flags & 0x40;
    const EORBTVariableType channelType = EORBTVariableType(input.at(5) % 15);

    const bool named = formatByte <= ePF_NumCompressed;
    const PixelType format = named ? PixelType(formatByte) : ChannelLayout(input);

    // Decoders at the input's size.
    DecodeORBTC(input, width, height, generation1);
    DecodeETC(input, width, height);
    if (!named && !HasWideChannel(format))
        CheckKernels(input, format, channelType, colourSpace);

    const unsigned w = width, h = height;

    const PixelType rgba8(ORBStandard8PixelType);

    // Decode detour: a texture of the chosen format to rgba8.
    {
        CORBTexture texture = MakeTexture(input, format.PixelTypeID, w, h, levels, channelType, colourSpace);
        const bool ok = Transcode(texture, rgba8, eVarUnsignedByteNorm, colourSpace, ECompressorQuality(quality));
        CheckTranscoded(texture, ok, rgba8, eVarUnsignedByteNorm);
        if (!ok && texture.getDataSize() != 0 && format != PixelType(ePF_NumCompressed) && !HasWideChannel(format))
            Fail("Transcode to rgba8 failed", w, h, format.lowWord());
        if (ok && HasWideChannel(format))
            Fail("Transcode took a channel wider than 32 bits", w, h, format.lowWord());
    }

    // Encoders at small sizes: the block searches are slow under the
    // sanitizers, the EAC ones and the exhaustive ETC colour searches most
    // (each block tries every candidate), so those get one block a call.
    const bool exhaustive = named && quality >= 2 &&
                            (formatByte == ePF_ETC1 || formatByte == ePF_ETC2_RGB || formatByte == ePF_ETC2_RGBA);
    const bool eac = (named && (formatByte == ePF_EAC_R11 || formatByte == ePF_EAC_RG11)) || exhaustive;
    const unsigned encodeLimit = eac ? 4 : 16;
    const unsigned encodeWidth = 1 + (width - 1) % encodeLimit, encodeHeight = 1 + (height - 1) % encodeLimit;
    const unsigned ew = encodeWidth, eh = encodeHeight;

    // rgba8 pixels to the chosen format, and a layout back again.
    {
        CORBTexture texture = MakeTexture(input, ORBStandard8PixelType, ew, eh, eac ? 1 : levels,
                                          eVarUnsignedByteNorm, colourSpace);
        const bool ok = Transcode(texture, format, channelType, colourSpace, ECompressorQuality(quality), dither);
        CheckTranscoded(texture, ok, format, channelType);
        if (ok && HasWideChannel(format))
            Fail("Transcode made a channel wider than 32 bits", ew, eh, format.lowWord());
        if (ok && !named)
        {
            const bool back = Transcode(texture, rgba8, eVarUnsignedByteNorm, colourSpace);
            CheckTranscoded(texture, back, rgba8, eVarUnsignedByteNorm);
        }
    }

    if (named && IsORBTCFormat(formatByte))
        CompressORBTC(input, formatByte, encodeWidth, encodeHeight, hasAlpha,
                      qualityByte == 15 && input.at(3) >= 0x80 ? 9u : unsigned(quality), generation1);
    if (named && IsETCFormat(formatByte))
        CompressETC(input, formatByte, encodeWidth, encodeHeight, quality, isSigned);
    return 0;
}
