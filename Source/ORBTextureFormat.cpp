#include "ORBTextureFormat.h"

namespace
{

struct FormatDims
{
    uint8_t bitsPerPixel;
    uint8_t x, y, z;
};

// Indexed by EORBTPixelFormat, 0 to ePF_NumCompressed.
constexpr FormatDims kNamedFormats[orbtexture::ePF_NumCompressed + 1] = {
    {2, 16, 8, 1}, {2, 16, 8, 1},                // ORBTC 2bpp
    {4, 8, 8, 1},  {4, 8, 8, 1},                 // ORBTC 4bpp
    {2, 8, 4, 1},  {4, 4, 4, 1},                 // ORBTCII
    {4, 4, 4, 1},                                // ETC1
    {4, 4, 4, 1},  {8, 4, 4, 1}, {8, 4, 4, 1},   // DXT1-3
    {8, 4, 4, 1},  {8, 4, 4, 1},                 // DXT4-5
    {4, 4, 4, 1},  {8, 4, 4, 1},                 // BC4, BC5
    {0, 1, 1, 1},  {0, 1, 1, 1},                 // BC6, BC7: unknown sizes
    {16, 2, 1, 1}, {16, 2, 1, 1},                // UYVY, YUY2
    {1, 8, 1, 1},                                // BW1bpp
    {32, 1, 1, 1},                               // RGB9E5
    {16, 2, 1, 1}, {16, 2, 1, 1},                // RGBG, GRGB
    {4, 4, 4, 1},  {8, 4, 4, 1}, {4, 4, 4, 1},   // ETC2 RGB, RGBA, RGB A1
    {4, 4, 4, 1},  {8, 4, 4, 1},                 // EAC R11, RG11
    {0, 4, 4, 1},  {0, 5, 4, 1}, {0, 5, 5, 1},   // ASTC 2D
    {0, 6, 5, 1},  {0, 6, 6, 1}, {0, 8, 5, 1},
    {0, 8, 6, 1},  {0, 8, 8, 1}, {0, 10, 5, 1},
    {0, 10, 6, 1}, {0, 10, 8, 1}, {0, 10, 10, 1},
    {0, 12, 10, 1}, {0, 12, 12, 1},
    {0, 3, 3, 3},  {0, 4, 3, 3}, {0, 4, 4, 3},   // ASTC 3D
    {0, 4, 4, 4},  {0, 5, 4, 4}, {0, 5, 5, 4},
    {0, 5, 5, 5},  {0, 6, 5, 5}, {0, 6, 6, 5},
    {0, 6, 6, 6},
    {0, 1, 1, 1},                                // NumCompressed
};

// 'a' to 'x'; every letter but r, g, b, a, l, i, x maps to none.
constexpr uint8_t kLetterToChannel[24] = {
    4, 3, 0, 0, 0, 0, 2, 0, 6, 0, 0, 5, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 7,
};

} // namespace

namespace orbtexture
{

bool isStandardPixelType(PixelType pixelType, EORBTVariableType channelType)
{
    switch (pixelType.PixelTypeID)
    {
    case ORBStandard8PixelType: return channelType == eVarUnsignedByteNorm;
    case ORBStandard16PixelType: return channelType == eVarUnsignedShortNorm;
    case ORBStandard32PixelType: return channelType == eVarUnsignedIntegerNorm || channelType == eVarSignedFloat;
    default: return false;
    }
}

EChannelName MapCharToEnum(uint8_t letter)
{
    if (letter < 'a' || letter > 'x')
        return eChannelNone;
    return EChannelName(kLetterToChannel[letter - 'a']);
}

uint8_t MapEnumToChar(EChannelName channel)
{
    if (channel < eChannelRed || channel > eChannelUnspecified)
        return 0;
    return uint8_t("rgbalix"[channel - 1]);
}

} // namespace orbtexture

uint32_t ORBTGetBitsPerPixel(uint64_t pixelFormat)
{
    const orbtexture::PixelType type(pixelFormat);
    if (!type.isNamedFormat())
        return uint32_t(type.channelBits(0)) + type.channelBits(1) + type.channelBits(2) + type.channelBits(3);
    if (type.lowWord() <= orbtexture::ePF_NumCompressed)
        return kNamedFormats[type.lowWord()].bitsPerPixel;
    return 0;
}

void ORBTGetFormatMinDims(uint64_t pixelFormat, unsigned int& x, unsigned int& y, unsigned int& z)
{
    const orbtexture::PixelType type(pixelFormat);
    x = y = z = 1;
    if (type.isNamedFormat() && type.lowWord() < orbtexture::ePF_NumCompressed)
    {
        const FormatDims& dims = kNamedFormats[type.lowWord()];
        x = dims.x;
        y = dims.y;
        z = dims.z;
    }
}
