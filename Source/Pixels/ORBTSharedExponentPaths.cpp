#include "Pixels/ORBTSharedExponentPaths.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Codecs/RGB9E5Codec.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "Pixels/ORBTPixelKernels.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTParallel.h"
#include "ORBTextureUtilities.h"

namespace orbtexture
{

namespace
{

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixels are stored as little-endian words");

// Encoding: the shared exponent depends on the largest channel alone, and
// each mantissa on its channel and that exponent. For the largest byte M and
// a byte v <= M, the word of the floats (v, M, 0) holds both.
struct EncodeTables
{
    std::vector<uint16_t> mantissa; // [M * 256 + v]
    uint32_t exponent[256];
    EncodeTables() : mantissa(65536)
    {
        for (uint32_t largest = 0; largest < 256; ++largest)
            for (uint32_t v = 0; v <= largest; ++v)
            {
                float rgb[3] = {CPixelEncoder::GrowUNormToFloat(v, 8), CPixelEncoder::GrowUNormToFloat(largest, 8), 0};
                const uint32_t word = float3_to_rgb9e5(rgb);
                mantissa[largest * 256 + v] = uint16_t(word & 0x1FF);
                exponent[largest] = word & 0xF8000000u;
            }
    }
};

// Decoding: each channel's byte depends on its mantissa and the exponent.
struct DecodeTable
{
    uint8_t byte[32 * 512];
    DecodeTable()
    {
        for (uint32_t index = 0; index < 32 * 512; ++index)
        {
            float rgb[3];
            rgb9e5_to_float3((index & 0x1FF) | (index >> 9) << 27, rgb);
            uint32_t bits;
            std::memcpy(&bits, &rgb[0], 4);
            byte[index] = uint8_t(ElementStep(eFloatsToBytes, bits));
        }
    }
};

const EncodeTables& Encoding()
{
    static const EncodeTables tables;
    return tables;
}

const DecodeTable& Decoding()
{
    static const DecodeTable table;
    return table;
}

bool IsRGBA8(PixelType type, EORBTVariableType channelType)
{
    return type == PixelType(ORBStandard8PixelType) && channelType == eVarUnsignedByteNorm;
}

} // namespace

void EncodeSharedExponent(const uint8_t* rgba, uint8_t* words, size_t pixels)
{
    const EncodeTables& tables = Encoding();
    for (size_t i = 0; i < pixels; ++i, rgba += 4, words += 4)
    {
        const uint32_t largest = std::max(rgba[0], std::max(rgba[1], rgba[2]));
        const uint16_t* row = &tables.mantissa[largest * 256];
        const uint32_t word = row[rgba[0]] | uint32_t(row[rgba[1]]) << 9 | uint32_t(row[rgba[2]]) << 18 |
                              tables.exponent[largest];
        std::memcpy(words, &word, 4);
    }
}

void DecodeSharedExponent(const uint8_t* words, uint8_t* rgba, size_t pixels)
{
    const uint8_t* table = Decoding().byte;
    for (size_t i = 0; i < pixels; ++i, words += 4, rgba += 4)
    {
        uint32_t word;
        std::memcpy(&word, words, 4);
        const uint8_t* row = table + ((word >> 27) << 9);
        const uint32_t pixel = row[word & 0x1FF] | uint32_t(row[(word >> 9) & 0x1FF]) << 8 |
                               uint32_t(row[(word >> 18) & 0x1FF]) << 16 | 0xFF000000u;
        std::memcpy(rgba, &pixel, 4);
    }
}

bool TranscodeSharedExponentDirectly(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
                                     EORBTColourSpace colourSpace)
{
    const PixelType from = texture.getPixelType(), rgb9e5(ePF_RGB9E5);
    const bool encode = IsRGBA8(from, texture.getChannelType()) && pixelType == rgb9e5;
    const bool decode = from == rgb9e5 && IsRGBA8(pixelType, channelType);
    if ((!encode && !decode) || colourSpace != texture.getColourSpace() || CurrentCallContext().progress)
        return false;

    // The header the two steps leave: the encoder keeps the intermediate's
    // channel type.
    CORBTextureHeader header(texture.getHeader());
    header.setPixelFormat(pixelType);
    if (encode)
    {
        PixelType intermediate;
        EORBTVariableType intermediateType;
        IntermediateTranscodeFormat(pixelType, channelType, intermediate, intermediateType);
        header.setChannelType(intermediateType);
    }
    else
    {
        header.setChannelType(channelType);
    }
    CORBTexture result(header);
    ForEachSurface(texture, [&](uint32_t mip, uint32_t member, uint32_t face) {
        const uint8_t* in = texture.getDataPtr(mip, member, face);
        uint8_t* out = result.getDataPtr(mip, member, face);
        const uint32_t count = texture.getTextureSize(int(mip), false, false);
        ParallelRanges(count, count, [&](uint32_t first, uint32_t end) {
            (encode ? EncodeSharedExponent : DecodeSharedExponent)(in + size_t(first) * 4, out + size_t(first) * 4,
                                                                   end - first);
        });
    });
    texture = std::move(result);
    return true;
}

} // namespace orbtexture
