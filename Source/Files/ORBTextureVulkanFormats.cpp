// Vulkan format codes (core, the 4444 and alpha-8 extensions, and the vendor
// codes of ORBTC and ORBTCII) and the Khronos basic data format descriptor.
// Forward and inverse maps walk the same rows; a code shared by two formats
// answers the first row that has it.

#include "Files/ORBTextureVulkanFormats.h"

#include <cstring>

#include "Model/ORBTextureFormatFacts.h"

namespace orbtexture
{

namespace
{

// Channel type column: a type, or any signed / any type at all.
constexpr uint32_t kAnySigned = 0xFFFFFFFDu;
constexpr uint32_t kAnyType = 0xFFFFFFFEu;

struct VulkanRow
{
    uint64_t format;
    uint32_t type;        // matched as above
    uint32_t inverseType; // what the inverse gives
    uint32_t code;
    uint32_t codeSRGB; // 0: none
};

bool IsSignedType(uint32_t type)
{
    return type == eVarSignedByteNorm || type == eVarSignedByte || type == eVarSignedShortNorm ||
           type == eVarSignedShort || type == eVarSignedIntegerNorm || type == eVarSignedInteger ||
           type == eVarSignedFloat;
}

bool IsFloatType(uint32_t type)
{
    return type == eVarSignedFloat || type == eVarUnsignedFloat;
}

bool IsNormalisedType(uint32_t type)
{
    return type == eVarUnsignedByteNorm || type == eVarSignedByteNorm || type == eVarUnsignedShortNorm ||
           type == eVarSignedShortNorm || type == eVarUnsignedIntegerNorm || type == eVarSignedIntegerNorm;
}

std::vector<VulkanRow> BuildRows()
{
    std::vector<VulkanRow> rows;
    auto add = [&](uint64_t format, uint32_t type, uint32_t code, uint32_t codeSRGB = 0) {
        const uint32_t inverse = type == kAnyType     ? uint32_t(eVarUnsignedByteNorm)
                                 : type == kAnySigned ? uint32_t(eVarSignedByteNorm)
                                                      : type;
        rows.push_back({format, type, inverse, code, codeSRGB});
    };
    // Named formats, the preferred one of a shared code first.
    add(ePF_ORBTC_2bpp_RGBA, kAnyType, 1000054000, 1000054004);
    add(ePF_ORBTC_2bpp_RGB, kAnyType, 1000054000, 1000054004);
    add(ePF_ORBTC_4bpp_RGBA, kAnyType, 1000054001, 1000054005);
    add(ePF_ORBTC_4bpp_RGB, kAnyType, 1000054001, 1000054005);
    add(ePF_ORBTCII_2bpp, kAnyType, 1000054002, 1000054006);
    add(ePF_ORBTCII_4bpp, kAnyType, 1000054003, 1000054007);
    add(ePF_DXT1, kAnyType, 133, 134);
    add(ePF_DXT3, kAnyType, 135, 136);
    add(ePF_DXT2, kAnyType, 135, 136);
    add(ePF_DXT5, kAnyType, 137, 138);
    add(ePF_DXT4, kAnyType, 137, 138);
    add(ePF_BC4, kAnySigned, 140);
    add(ePF_BC4, kAnyType, 139);
    add(ePF_BC5, kAnySigned, 142);
    add(ePF_BC5, kAnyType, 141);
    add(ePF_BC6, eVarSignedFloat, 144);
    add(ePF_BC6, kAnyType, 143);
    rows.back().inverseType = eVarUnsignedFloat;
    add(ePF_BC7, kAnyType, 145, 146);
    add(ePF_ETC2_RGB, kAnyType, 147, 148);
    add(ePF_ETC1, kAnyType, 147, 148);
    add(ePF_ETC2_RGB_A1, kAnyType, 149, 150);
    add(ePF_ETC2_RGBA, kAnyType, 151, 152);
    add(ePF_EAC_R11, kAnySigned, 154);
    add(ePF_EAC_R11, kAnyType, 153);
    add(ePF_EAC_RG11, kAnySigned, 156);
    add(ePF_EAC_RG11, kAnyType, 155);
    for (uint32_t i = 0; i <= ePF_ASTC_12x12 - ePF_ASTC_4x4; ++i)
        add(ePF_ASTC_4x4 + i, kAnyType, 157 + 2 * i, 158 + 2 * i);
    add(ePF_RGB9E5, kAnyType, 123);
    rows.back().inverseType = eVarUnsignedFloat;

    // Channels of a byte, short or word each: the codes of a row of formats
    // sit at fixed distances from its first.
    struct Uniform
    {
        const char* letters;
        uint32_t base8, base16, base32; // 0: none
    };
    const Uniform uniforms[] = {{"r", 9, 70, 98},  {"rg", 16, 77, 101},   {"rgb", 23, 84, 104},
                                {"bgr", 30, 0, 0}, {"rgba", 37, 91, 107}, {"bgra", 44, 0, 0}};
    for (const Uniform& u : uniforms)
    {
        const unsigned n = unsigned(std::strlen(u.letters));
        auto layout = [&](unsigned bits) {
            return ChannelLayout(u.letters, bits, n > 1 ? bits : 0, n > 2 ? bits : 0, n > 3 ? bits : 0);
        };
        add(layout(8), eVarUnsignedByteNorm, u.base8, u.base8 + 6);
        add(layout(8), eVarSignedByteNorm, u.base8 + 1);
        add(layout(8), eVarUnsignedByte, u.base8 + 4);
        add(layout(8), eVarSignedByte, u.base8 + 5);
        if (u.base16)
        {
            add(layout(16), eVarUnsignedShortNorm, u.base16);
            add(layout(16), eVarSignedShortNorm, u.base16 + 1);
            add(layout(16), eVarUnsignedShort, u.base16 + 4);
            add(layout(16), eVarSignedShort, u.base16 + 5);
            add(layout(16), eVarSignedFloat, u.base16 + 6);
            add(layout(32), eVarUnsignedInteger, u.base32);
            add(layout(32), eVarSignedInteger, u.base32 + 1);
            add(layout(32), eVarSignedFloat, u.base32 + 2);
        }
    }
    // Packed words, first channel in the highest bits as the pixel encoder has them.
    add(ChannelLayout("rgba", 4, 4, 4, 4), eVarUnsignedShortNorm, 2);
    add(ChannelLayout("bgra", 4, 4, 4, 4), eVarUnsignedShortNorm, 3);
    add(ChannelLayout("rgb", 5, 6, 5), eVarUnsignedShortNorm, 4);
    add(ChannelLayout("bgr", 5, 6, 5), eVarUnsignedShortNorm, 5);
    add(ChannelLayout("rgba", 5, 5, 5, 1), eVarUnsignedShortNorm, 6);
    add(ChannelLayout("bgra", 5, 5, 5, 1), eVarUnsignedShortNorm, 7);
    add(ChannelLayout("argb", 1, 5, 5, 5), eVarUnsignedShortNorm, 8);
    add(ChannelLayout("argb", 2, 10, 10, 10), eVarUnsignedIntegerNorm, 58);
    add(ChannelLayout("argb", 2, 10, 10, 10), eVarUnsignedInteger, 62);
    add(ChannelLayout("abgr", 2, 10, 10, 10), eVarUnsignedIntegerNorm, 64);
    add(ChannelLayout("abgr", 2, 10, 10, 10), eVarUnsignedInteger, 68);
    add(ChannelLayout("bgr", 10, 11, 11), eVarUnsignedFloat, 122);
    add(ChannelLayout("argb", 4, 4, 4, 4), eVarUnsignedShortNorm, 1000340000);
    add(ChannelLayout("abgr", 4, 4, 4, 4), eVarUnsignedShortNorm, 1000340001);
    add(ChannelLayout("a", 8), eVarUnsignedByteNorm, 1000470001);
    return rows;
}

const std::vector<VulkanRow>& Rows()
{
    static const std::vector<VulkanRow> rows = BuildRows();
    return rows;
}

bool TypeMatches(uint32_t rowType, EORBTVariableType type)
{
    return rowType == kAnyType || (rowType == kAnySigned ? IsSignedType(type) : rowType == uint32_t(type));
}

// Khronos data format descriptor values.
constexpr uint32_t kModelRGBSDA = 1;
constexpr uint32_t kModelBC1A = 128, kModelBC2 = 129, kModelBC3 = 130, kModelBC4 = 131, kModelBC5 = 132;
constexpr uint32_t kModelBC6H = 133, kModelBC7 = 134, kModelETC2 = 161, kModelASTC = 162;
constexpr uint32_t kModelORBTC = 164, kModelORBTCII = 165;
constexpr uint32_t kPrimariesBT709 = 1;
constexpr uint8_t kQualifierLinear = 0x10, kQualifierExponent = 0x20, kQualifierSigned = 0x40, kQualifierFloat = 0x80;
constexpr uint32_t kChannelAlpha = 15;
constexpr uint32_t kOneFloat = 0x3F800000, kMinusOneFloat = 0xBF800000;

struct Sample
{
    uint32_t offset, length, channel;
    uint8_t qualifiers;
    uint32_t lower, upper;
};

// A named format's block: colour model, texel block and its bytes, and its
// samples as (bit offset, length, channel) triples.
struct NamedBlock
{
    uint32_t model, width, height, bytes;
    uint32_t samples[2][3];
    uint32_t count;
};

bool DescribeNamed(uint32_t format, NamedBlock& block)
{
    constexpr uint32_t A = kChannelAlpha;
    switch (format)
    {
    case ePF_ORBTC_2bpp_RGB:
    case ePF_ORBTC_2bpp_RGBA:
        block = {kModelORBTC, 8, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_ORBTC_4bpp_RGB:
    case ePF_ORBTC_4bpp_RGBA:
        block = {kModelORBTC, 4, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_ORBTCII_2bpp:
        block = {kModelORBTCII, 8, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_ORBTCII_4bpp:
        block = {kModelORBTCII, 4, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_DXT1:
        block = {kModelBC1A, 4, 4, 8, {{0, 64, 0}, {0, 64, 1}}, 2};
        return true;
    case ePF_DXT2:
    case ePF_DXT3:
        block = {kModelBC2, 4, 4, 16, {{0, 64, A}, {64, 64, 0}}, 2};
        return true;
    case ePF_DXT4:
    case ePF_DXT5:
        block = {kModelBC3, 4, 4, 16, {{0, 64, A}, {64, 64, 0}}, 2};
        return true;
    case ePF_BC4:
        block = {kModelBC4, 4, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_BC5:
        block = {kModelBC5, 4, 4, 16, {{0, 64, 0}, {64, 64, 1}}, 2};
        return true;
    case ePF_BC6:
        block = {kModelBC6H, 4, 4, 16, {{0, 128, 0}}, 1};
        return true;
    case ePF_BC7:
        block = {kModelBC7, 4, 4, 16, {{0, 128, 0}}, 1};
        return true;
    case ePF_ETC1:
    case ePF_ETC2_RGB:
        block = {kModelETC2, 4, 4, 8, {{0, 64, 2}}, 1};
        return true;
    case ePF_ETC2_RGB_A1:
        block = {kModelETC2, 4, 4, 8, {{0, 64, 2}, {0, 64, A}}, 2};
        return true;
    case ePF_ETC2_RGBA:
        block = {kModelETC2, 4, 4, 16, {{0, 64, A}, {64, 64, 2}}, 2};
        return true;
    case ePF_EAC_R11:
        block = {kModelETC2, 4, 4, 8, {{0, 64, 0}}, 1};
        return true;
    case ePF_EAC_RG11:
        block = {kModelETC2, 4, 4, 16, {{0, 64, 0}, {64, 64, 1}}, 2};
        return true;
    default:
        break;
    }
    if (format >= ePF_ASTC_4x4 && format <= ePF_ASTC_12x12)
    {
        unsigned x = 1, y = 1, z = 1;
        ORBTGetFormatMinDims(format, x, y, z);
        block = {kModelASTC, x, y, 16, {{0, 128, 0}}, 1};
        return true;
    }
    return false;
}

uint32_t Mask(uint32_t bits)
{
    return bits >= 32 ? 0xFFFFFFFFu : (1u << bits) - 1;
}

uint32_t ChannelId(uint8_t letter)
{
    return letter == 'r' ? 0 : letter == 'g' ? 1 : letter == 'b' ? 2 : kChannelAlpha;
}

// Element width of a channel type: channels of exactly this width are array
// elements, any other layout one packed word.
uint32_t ElementBits(uint32_t type, uint32_t firstBits)
{
    if (IsFloatType(type))
        return firstBits;
    return type <= eVarSignedByte ? 8 : type <= eVarSignedShort ? 16 : 32;
}

} // namespace

bool VulkanFormatOf(uint64_t pixelFormat, EORBTVariableType channelType, EORBTColourSpace colourSpace,
                    uint32_t& vkFormat)
{
    for (const VulkanRow& row : Rows())
        if (row.format == pixelFormat && TypeMatches(row.type, channelType))
        {
            vkFormat = colourSpace == eColourSpaceSRGB && row.codeSRGB ? row.codeSRGB : row.code;
            return true;
        }
    vkFormat = 0;
    return false;
}

bool PixelFormatOfVulkan(uint32_t vkFormat, uint64_t& pixelFormat, EORBTVariableType& channelType,
                         EORBTColourSpace& colourSpace)
{
    if (vkFormat == 0)
        return false;
    for (const VulkanRow& row : Rows())
        if (row.code == vkFormat || row.codeSRGB == vkFormat)
        {
            pixelFormat = row.format;
            channelType = EORBTVariableType(row.inverseType);
            colourSpace = row.codeSRGB == vkFormat ? eColourSpaceSRGB : eColourSpaceLinear;
            return true;
        }
    return false;
}

uint32_t VulkanTypeSize(uint64_t pixelFormat, EORBTVariableType channelType)
{
    const PixelType type(pixelFormat);
    if (type.isNamedFormat())
        return type.lowWord() == ePF_RGB9E5 ? 4 : 1;
    const uint32_t total = ORBTGetBitsPerPixel(pixelFormat);
    const uint32_t element = ElementBits(channelType, type.channelBits(0));
    for (unsigned i = 0; i < 4 && type.channelName(i); ++i)
        if (type.channelBits(i) != element)
            return total / 8; // one packed word
    return element / 8;
}

std::vector<uint32_t> BasicDescriptor(uint64_t pixelFormat, EORBTVariableType channelType, EORBTColourSpace colourSpace,
                                      bool premultiplied)
{
    const PixelType type(pixelFormat);
    const bool srgb = colourSpace == eColourSpaceSRGB;
    const uint8_t sign = IsSignedType(channelType) ? kQualifierSigned : 0;
    std::vector<Sample> samples;
    uint32_t model = kModelRGBSDA, width = 1, height = 1, bytes = ORBTGetBitsPerPixel(pixelFormat) / 8;
    NamedBlock block;
    if (type.isNamedFormat() && type.lowWord() == ePF_RGB9E5)
    {
        // Three 9-bit mantissas with their shared 5-bit exponent in the top bits.
        for (uint32_t c = 0; c < 3; ++c)
        {
            samples.push_back({9 * c, 9, c, 0, 0, 256});
            samples.push_back({27, 5, c, kQualifierExponent, 15, 31});
        }
    }
    else if (type.isNamedFormat() && DescribeNamed(type.lowWord(), block))
    {
        model = block.model;
        width = block.width;
        height = block.height;
        bytes = block.bytes;
        const bool isFloat = type.lowWord() == ePF_BC6;
        for (uint32_t i = 0; i < block.count; ++i)
        {
            Sample s{block.samples[i][0], block.samples[i][1], block.samples[i][2], sign, 0, 0xFFFFFFFFu};
            if (isFloat)
                s = {s.offset, s.length, s.channel, uint8_t(sign | kQualifierFloat), sign ? kMinusOneFloat : 0,
                     kOneFloat};
            else if (sign)
                s.lower = 0x80000000u, s.upper = 0x7FFFFFFFu;
            samples.push_back(s);
        }
    }
    else if (!type.isNamedFormat())
    {
        unsigned channels = 0;
        while (channels < 4 && type.channelName(channels))
            ++channels;
        const uint32_t total = ORBTGetBitsPerPixel(pixelFormat);
        bool packed = false;
        for (unsigned i = 0; i < channels; ++i)
            packed |= type.channelBits(i) != ElementBits(channelType, type.channelBits(0));
        uint32_t before = 0;
        for (unsigned i = 0; i < channels; ++i)
        {
            const uint32_t bits = type.channelBits(i);
            before += bits;
            Sample s{packed ? total - before : before - bits, bits, ChannelId(type.channelName(i)), sign, 0, 1};
            if (IsFloatType(channelType))
                s.qualifiers |= kQualifierFloat, s.lower = sign ? kMinusOneFloat : 0, s.upper = kOneFloat;
            else if (IsNormalisedType(channelType) || packed)
                s.lower = sign ? uint32_t(-int32_t(Mask(bits - 1))) : 0, s.upper = sign ? Mask(bits - 1) : Mask(bits);
            else if (sign)
                s.lower = 0xFFFFFFFFu;
            samples.push_back(s);
        }
    }
    for (Sample& s : samples)
        if (srgb && s.channel == kChannelAlpha)
            s.qualifiers |= kQualifierLinear;

    const uint32_t blockSize = 24 + 16 * uint32_t(samples.size());
    std::vector<uint32_t> words;
    words.push_back(4 + blockSize);
    words.push_back(0); // Khronos, basic block
    words.push_back(2 | blockSize << 16);
    words.push_back(model | kPrimariesBT709 << 8 | (srgb ? kDescriptorTransferSRGB : kDescriptorTransferLinear) << 16 |
                    (premultiplied ? kDescriptorFlagPremultiplied : 0) << 24);
    words.push_back((width - 1) | (height - 1) << 8);
    words.push_back(bytes);
    words.push_back(0);
    for (const Sample& s : samples)
    {
        words.push_back(s.offset | (s.length - 1) << 16 | uint32_t(s.channel | s.qualifiers) << 24);
        words.push_back(0);
        words.push_back(s.lower);
        words.push_back(s.upper);
    }
    return words;
}

} // namespace orbtexture
