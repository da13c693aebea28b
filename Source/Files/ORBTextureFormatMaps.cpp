// Pixel format, channel type and colour space to and from the format codes of
// OpenGL / OpenGL ES, Direct3D 9 and DXGI. Every mapping is a row of a constant
// table; the forward and inverse functions walk the same rows, and each place
// where the inverse does not simply undo the forward map is a row of a small
// table next to the one it modifies.

#include "Model/ORBTextureFormatFacts.h"
#include "ORBTextureFormat.h"
#include "ORBTextureHeader.h"

#include <cstddef>

namespace
{

using orbtexture::ChannelLayout;
using orbtexture::EORBTColourSpace;
using orbtexture::EORBTVariableType;

// ---------------------------------------------------------------------------
// Row building blocks


// Four characters read as a little-endian word.
constexpr uint32_t FourCC(char a, char b, char c, char d)
{
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 | uint32_t(uint8_t(d)) << 24;
}

// Channel type columns: a type number, or none / any.
constexpr uint32_t kNoType = 0xFFFFFFFFu;
constexpr uint32_t kAnyType = 0xFFFFFFFEu;
// Format columns: no second format.
constexpr uint32_t kNoFormat = 0xFFFFFFFFu;

constexpr uint32_t kUBN = orbtexture::eVarUnsignedByteNorm;
constexpr uint32_t kSBN = orbtexture::eVarSignedByteNorm;
constexpr uint32_t kUB = orbtexture::eVarUnsignedByte;
constexpr uint32_t kSB = orbtexture::eVarSignedByte;
constexpr uint32_t kUSN = orbtexture::eVarUnsignedShortNorm;
constexpr uint32_t kSSN = orbtexture::eVarSignedShortNorm;
constexpr uint32_t kUS = orbtexture::eVarUnsignedShort;
constexpr uint32_t kSS = orbtexture::eVarSignedShort;
constexpr uint32_t kUIN = orbtexture::eVarUnsignedIntegerNorm;
constexpr uint32_t kSIN = orbtexture::eVarSignedIntegerNorm;
constexpr uint32_t kUI = orbtexture::eVarUnsignedInteger;
constexpr uint32_t kSI = orbtexture::eVarSignedInteger;
constexpr uint32_t kSF = orbtexture::eVarSignedFloat;
constexpr uint32_t kUF = orbtexture::eVarUnsignedFloat;

// Colour space a row applies to. Linear rows take every colour space but sRGB.
enum class Space : uint8_t
{
    Any,
    Linear,
    SRGB
};

bool SpaceMatches(Space space, EORBTColourSpace colourSpace)
{
    switch (space)
    {
    case Space::Any: return true;
    case Space::Linear: return colourSpace != orbtexture::eColourSpaceSRGB;
    case Space::SRGB: return colourSpace == orbtexture::eColourSpaceSRGB;
    }
    return false;
}

EORBTColourSpace InverseSpace(Space space)
{
    return space == Space::SRGB ? orbtexture::eColourSpaceSRGB : orbtexture::eColourSpaceLinear;
}

bool TypeMatches(uint32_t rowType, uint32_t alsoType, EORBTVariableType channelType)
{
    return rowType == kAnyType || rowType == uint32_t(channelType) ||
           (alsoType != kNoType && alsoType == uint32_t(channelType));
}

bool FormatMatches(uint32_t rowFormat, uint32_t alsoFormat, unsigned long long pixelFormat)
{
    return rowFormat == pixelFormat || (alsoFormat != kNoFormat && alsoFormat == pixelFormat);
}

// Channel type a row gives back: an "any" row gives 0.
EORBTVariableType InverseType(uint32_t rowType)
{
    return EORBTVariableType(rowType == kAnyType ? kUBN : rowType);
}

// Writes an inverse result.
bool Answer(unsigned long long& pixelFormat, EORBTVariableType& channelType, EORBTColourSpace& colourSpace,
            uint64_t layout, EORBTVariableType type, EORBTColourSpace space)
{
    pixelFormat = layout;
    channelType = type;
    colourSpace = space;
    return true;
}

// ---------------------------------------------------------------------------
// OpenGL and OpenGL ES values (core, ARB, EXT, OES and KHR registries)

// Types
constexpr uint32_t kGL_BYTE = 0x1400;
constexpr uint32_t kGL_UNSIGNED_BYTE = 0x1401;
constexpr uint32_t kGL_SHORT = 0x1402;
constexpr uint32_t kGL_UNSIGNED_SHORT = 0x1403;
constexpr uint32_t kGL_INT = 0x1404;
constexpr uint32_t kGL_UNSIGNED_INT = 0x1405;
constexpr uint32_t kGL_FLOAT = 0x1406;
constexpr uint32_t kGL_HALF_FLOAT = 0x140B;
constexpr uint32_t kGL_UNSIGNED_BYTE_3_3_2 = 0x8032;
constexpr uint32_t kGL_UNSIGNED_SHORT_4_4_4_4 = 0x8033;
constexpr uint32_t kGL_UNSIGNED_SHORT_5_5_5_1 = 0x8034;
constexpr uint32_t kGL_UNSIGNED_SHORT_5_6_5 = 0x8363;
constexpr uint32_t kGL_UNSIGNED_INT_2_10_10_10_REV = 0x8368;
constexpr uint32_t kGL_UNSIGNED_INT_10F_11F_11F_REV = 0x8C3B;
constexpr uint32_t kGL_UNSIGNED_INT_5_9_9_9_REV = 0x8C3E;

// Formats (also the unsized internal formats)
constexpr uint32_t kGL_RED = 0x1903;
constexpr uint32_t kGL_ALPHA = 0x1906;
constexpr uint32_t kGL_RGB = 0x1907;
constexpr uint32_t kGL_RGBA = 0x1908;
constexpr uint32_t kGL_LUMINANCE = 0x1909;
constexpr uint32_t kGL_LUMINANCE_ALPHA = 0x190A;
constexpr uint32_t kGL_BGRA = 0x80E1;
constexpr uint32_t kGL_RG = 0x8227;
constexpr uint32_t kGL_RG_INTEGER = 0x8228;
constexpr uint32_t kGL_RED_INTEGER = 0x8D94;
constexpr uint32_t kGL_RGB_INTEGER = 0x8D98;
constexpr uint32_t kGL_RGBA_INTEGER = 0x8D99;

// Sized internal formats
constexpr uint32_t kGL_R3_G3_B2 = 0x2A10;
constexpr uint32_t kGL_ALPHA8 = 0x803C;
constexpr uint32_t kGL_ALPHA16 = 0x803E;
constexpr uint32_t kGL_LUMINANCE8 = 0x8040;
constexpr uint32_t kGL_LUMINANCE16 = 0x8042;
constexpr uint32_t kGL_LUMINANCE8_ALPHA8 = 0x8045;
constexpr uint32_t kGL_LUMINANCE16_ALPHA16 = 0x8048;
constexpr uint32_t kGL_RGB8 = 0x8051;
constexpr uint32_t kGL_RGB10 = 0x8052;
constexpr uint32_t kGL_RGB16 = 0x8054;
constexpr uint32_t kGL_RGBA4 = 0x8056;
constexpr uint32_t kGL_RGB5_A1 = 0x8057;
constexpr uint32_t kGL_RGBA8 = 0x8058;
constexpr uint32_t kGL_RGB10_A2 = 0x8059;
constexpr uint32_t kGL_RGBA16 = 0x805B;
constexpr uint32_t kGL_R8 = 0x8229;
constexpr uint32_t kGL_R16 = 0x822A;
constexpr uint32_t kGL_RG8 = 0x822B;
constexpr uint32_t kGL_RG16 = 0x822C;
constexpr uint32_t kGL_R16F = 0x822D;
constexpr uint32_t kGL_R32F = 0x822E;
constexpr uint32_t kGL_RG16F = 0x822F;
constexpr uint32_t kGL_RG32F = 0x8230;
constexpr uint32_t kGL_R8I = 0x8231;
constexpr uint32_t kGL_R8UI = 0x8232;
constexpr uint32_t kGL_R16I = 0x8233;
constexpr uint32_t kGL_R16UI = 0x8234;
constexpr uint32_t kGL_R32I = 0x8235;
constexpr uint32_t kGL_R32UI = 0x8236;
constexpr uint32_t kGL_RG8I = 0x8237;
constexpr uint32_t kGL_RG8UI = 0x8238;
constexpr uint32_t kGL_RG16I = 0x8239;
constexpr uint32_t kGL_RG16UI = 0x823A;
constexpr uint32_t kGL_RG32I = 0x823B;
constexpr uint32_t kGL_RG32UI = 0x823C;
constexpr uint32_t kGL_RGBA32F = 0x8814;
constexpr uint32_t kGL_RGB32F = 0x8815;
constexpr uint32_t kGL_ALPHA32F = 0x8816;
constexpr uint32_t kGL_LUMINANCE32F = 0x8818;
constexpr uint32_t kGL_LUMINANCE_ALPHA32F = 0x8819;
constexpr uint32_t kGL_RGBA16F = 0x881A;
constexpr uint32_t kGL_RGB16F = 0x881B;
constexpr uint32_t kGL_ALPHA16F = 0x881C;
constexpr uint32_t kGL_LUMINANCE16F = 0x881E;
constexpr uint32_t kGL_LUMINANCE_ALPHA16F = 0x881F;
constexpr uint32_t kGL_R11F_G11F_B10F = 0x8C3A;
constexpr uint32_t kGL_RGB9_E5 = 0x8C3D;
constexpr uint32_t kGL_SRGB8 = 0x8C41;
constexpr uint32_t kGL_SRGB8_ALPHA8 = 0x8C43;
constexpr uint32_t kGL_RGBA32UI = 0x8D70;
constexpr uint32_t kGL_RGB32UI = 0x8D71;
constexpr uint32_t kGL_RGBA16UI = 0x8D76;
constexpr uint32_t kGL_RGB16UI = 0x8D77;
constexpr uint32_t kGL_RGBA8UI = 0x8D7C;
constexpr uint32_t kGL_RGB8UI = 0x8D7D;
constexpr uint32_t kGL_RGBA32I = 0x8D82;
constexpr uint32_t kGL_RGB32I = 0x8D83;
constexpr uint32_t kGL_RGBA16I = 0x8D88;
constexpr uint32_t kGL_RGB16I = 0x8D89;
constexpr uint32_t kGL_RGBA8I = 0x8D8E;
constexpr uint32_t kGL_RGB8I = 0x8D8F;
constexpr uint32_t kGL_RGB565 = 0x8D62;
constexpr uint32_t kGL_R8_SNORM = 0x8F94;
constexpr uint32_t kGL_RG8_SNORM = 0x8F95;
constexpr uint32_t kGL_RGB8_SNORM = 0x8F96;
constexpr uint32_t kGL_RGBA8_SNORM = 0x8F97;
constexpr uint32_t kGL_R16_SNORM = 0x8F98;
constexpr uint32_t kGL_RG16_SNORM = 0x8F99;
constexpr uint32_t kGL_RGB16_SNORM = 0x8F9A;
constexpr uint32_t kGL_RGBA16_SNORM = 0x8F9B;
constexpr uint32_t kGL_ALPHA8_SNORM = 0x9014;
constexpr uint32_t kGL_LUMINANCE8_SNORM = 0x9015;
constexpr uint32_t kGL_LUMINANCE8_ALPHA8_SNORM = 0x9016;
constexpr uint32_t kGL_ALPHA16_SNORM = 0x9018;
constexpr uint32_t kGL_LUMINANCE16_SNORM = 0x9019;
constexpr uint32_t kGL_LUMINANCE16_ALPHA16_SNORM = 0x901A;
constexpr uint32_t kGL_RGB10_A2UI = 0x906F;

// Compressed internal formats
constexpr uint32_t kGL_ORBTC_4BPP_RGB = 0x8C00;
constexpr uint32_t kGL_ORBTC_2BPP_RGB = 0x8C01;
constexpr uint32_t kGL_ORBTC_4BPP_RGBA = 0x8C02;
constexpr uint32_t kGL_ORBTC_2BPP_RGBA = 0x8C03;
constexpr uint32_t kGL_ORBTCII_2BPP = 0x9137;
constexpr uint32_t kGL_ORBTCII_4BPP = 0x9138;
constexpr uint32_t kGL_ETC1_RGB8_OES = 0x8D64;
constexpr uint32_t kGL_COMPRESSED_RGB_S3TC_DXT1_EXT = 0x83F0;
constexpr uint32_t kGL_COMPRESSED_RGBA_S3TC_DXT3_EXT = 0x83F2;
constexpr uint32_t kGL_COMPRESSED_RGBA_S3TC_DXT5_EXT = 0x83F3;
constexpr uint32_t kGL_COMPRESSED_R11_EAC = 0x9270;
constexpr uint32_t kGL_COMPRESSED_SIGNED_R11_EAC = 0x9271;
constexpr uint32_t kGL_COMPRESSED_RG11_EAC = 0x9272;
constexpr uint32_t kGL_COMPRESSED_SIGNED_RG11_EAC = 0x9273;
constexpr uint32_t kGL_COMPRESSED_RGB8_ETC2 = 0x9274;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ETC2 = 0x9275;
constexpr uint32_t kGL_COMPRESSED_RGB8_PUNCHTHROUGH_ALPHA1_ETC2 = 0x9276;
constexpr uint32_t kGL_COMPRESSED_SRGB8_PUNCHTHROUGH_ALPHA1_ETC2 = 0x9277;
constexpr uint32_t kGL_COMPRESSED_RGBA8_ETC2_EAC = 0x9278;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ETC2_EAC = 0x9279;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_4x4 = 0x93B0;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_5x4 = 0x93B1;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_5x5 = 0x93B2;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_6x5 = 0x93B3;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_6x6 = 0x93B4;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_8x5 = 0x93B5;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_8x6 = 0x93B6;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_8x8 = 0x93B7;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_10x5 = 0x93B8;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_10x6 = 0x93B9;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_10x8 = 0x93BA;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_10x10 = 0x93BB;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_12x10 = 0x93BC;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_12x12 = 0x93BD;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_3x3x3 = 0x93C0;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_4x3x3 = 0x93C1;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_4x4x3 = 0x93C2;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_4x4x4 = 0x93C3;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_5x4x4 = 0x93C4;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_5x5x4 = 0x93C5;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_5x5x5 = 0x93C6;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_6x5x5 = 0x93C7;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_6x6x5 = 0x93C8;
constexpr uint32_t kGL_COMPRESSED_RGBA_ASTC_6x6x6 = 0x93C9;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4 = 0x93D0;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4 = 0x93D1;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5 = 0x93D2;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5 = 0x93D3;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6 = 0x93D4;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x5 = 0x93D5;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x6 = 0x93D6;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x8 = 0x93D7;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x5 = 0x93D8;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x6 = 0x93D9;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x8 = 0x93DA;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x10 = 0x93DB;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x10 = 0x93DC;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x12 = 0x93DD;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_3x3x3 = 0x93E0;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x3x3 = 0x93E1;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x3 = 0x93E2;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x4 = 0x93E3;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4x4 = 0x93E4;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x4 = 0x93E5;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x5 = 0x93E6;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5x5 = 0x93E7;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x5 = 0x93E8;
constexpr uint32_t kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x6 = 0x93E9;

// ---------------------------------------------------------------------------
// OpenGL: named formats

struct GLNamedRow
{
    uint32_t format;         // the named format, and what the inverse gives
    uint32_t alsoFormat;     // a second format mapped to the same values, or kNoFormat
    uint32_t internal;       // the linear, unsigned internal format
    uint32_t internalSRGB;   // for colour space sRGB; 0 if none
    uint32_t internalSigned; // for the signed channel types of kSignedEACTypes; 0 if none
    uint32_t base;
    uint32_t glFormat;
    uint32_t glType;
    uint32_t typeSize;
    uint32_t inverseType; // channel type the inverse gives for `internal`
};

// The inverse gives `format` for every internal format of a row, with channel
// type `inverseType` (1 for internalSigned), linear (sRGB for internalSRGB).
// DXT2 and DXT4 share the values of DXT3 and DXT5, which the inverse gives.
// RGB9E5 answers for any channel type and maps back to unsigned float.
constexpr GLNamedRow kGLNamedRows[] = {
    {orbtexture::ePF_ORBTC_2bpp_RGB, kNoFormat, kGL_ORBTC_2BPP_RGB, 0, 0, kGL_RGB, 0, 0, 1, kUBN},
    {orbtexture::ePF_ORBTC_2bpp_RGBA, kNoFormat, kGL_ORBTC_2BPP_RGBA, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ORBTC_4bpp_RGB, kNoFormat, kGL_ORBTC_4BPP_RGB, 0, 0, kGL_RGB, 0, 0, 1, kUBN},
    {orbtexture::ePF_ORBTC_4bpp_RGBA, kNoFormat, kGL_ORBTC_4BPP_RGBA, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ORBTCII_2bpp, kNoFormat, kGL_ORBTCII_2BPP, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ORBTCII_4bpp, kNoFormat, kGL_ORBTCII_4BPP, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ETC1, kNoFormat, kGL_ETC1_RGB8_OES, 0, 0, kGL_RGB, 0, 0, 1, kUBN},
    {orbtexture::ePF_DXT1, kNoFormat, kGL_COMPRESSED_RGB_S3TC_DXT1_EXT, 0, 0, kGL_RGB, 0, 0, 1, kUBN},
    {orbtexture::ePF_DXT3, orbtexture::ePF_DXT2, kGL_COMPRESSED_RGBA_S3TC_DXT3_EXT, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_DXT5, orbtexture::ePF_DXT4, kGL_COMPRESSED_RGBA_S3TC_DXT5_EXT, 0, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_RGB9E5, kNoFormat, kGL_RGB9_E5, 0, 0, kGL_RGB, kGL_RGB, kGL_UNSIGNED_INT_5_9_9_9_REV, 4, kUF},
    {orbtexture::ePF_ETC2_RGB, kNoFormat, kGL_COMPRESSED_RGB8_ETC2, kGL_COMPRESSED_SRGB8_ETC2, 0, kGL_RGB, 0, 0, 1,
     kUBN},
    {orbtexture::ePF_ETC2_RGBA, kNoFormat, kGL_COMPRESSED_RGBA8_ETC2_EAC, kGL_COMPRESSED_SRGB8_ALPHA8_ETC2_EAC, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ETC2_RGB_A1, kNoFormat, kGL_COMPRESSED_RGB8_PUNCHTHROUGH_ALPHA1_ETC2,
     kGL_COMPRESSED_SRGB8_PUNCHTHROUGH_ALPHA1_ETC2, 0, kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_EAC_R11, kNoFormat, kGL_COMPRESSED_R11_EAC, 0, kGL_COMPRESSED_SIGNED_R11_EAC, kGL_RED, 0, 0, 1,
     kUBN},
    {orbtexture::ePF_EAC_RG11, kNoFormat, kGL_COMPRESSED_RG11_EAC, 0, kGL_COMPRESSED_SIGNED_RG11_EAC, kGL_RG, 0, 0, 1,
     kUBN},
    {orbtexture::ePF_ASTC_4x4, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_4x4, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_5x4, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_5x4, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_5x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_5x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_6x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_6x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_6x6, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_6x6, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_8x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_8x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_8x6, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_8x6, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x6, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_8x8, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_8x8, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x8, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_10x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_10x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_10x6, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_10x6, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x6, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_10x8, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_10x8, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x8, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_10x10, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_10x10, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x10, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_12x10, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_12x10, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x10, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_12x12, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_12x12, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x12, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_3x3x3, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_3x3x3, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_3x3x3, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_4x3x3, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_4x3x3, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x3x3, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_4x4x3, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_4x4x3, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x3, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_4x4x4, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_4x4x4, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x4, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_5x4x4, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_5x4x4, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4x4, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_5x5x4, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_5x5x4, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x4, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_5x5x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_5x5x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_6x5x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_6x5x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_6x6x5, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_6x6x5, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x5, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
    {orbtexture::ePF_ASTC_6x6x6, kNoFormat, kGL_COMPRESSED_RGBA_ASTC_6x6x6, kGL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x6, 0,
     kGL_RGBA, 0, 0, 1, kUBN},
};

// Channel types that select a row's signed internal format.
constexpr uint32_t kSignedEACTypes[] = {kSBN, kSB, kSSN, kSS, kSIN, kSI, kSF};

// ---------------------------------------------------------------------------
// OpenGL: channel layouts

struct GLLayoutRow
{
    uint64_t layout;
    uint32_t type;
    Space space;
    uint32_t internal;
    uint32_t format; // also the base internal format
    uint32_t glType;
    uint32_t typeSize;
};

// The inverse walks these rows by internal format (colour space linear unless
// the row is sRGB), after kGLInverseOverrides and the unsized formats of
// kGLUnsizedFormats (which include GL_BGRA).
constexpr GLLayoutRow kGLLayoutRows[] = {
    {ChannelLayout("a", 8), kUBN, Space::Any, kGL_ALPHA8, kGL_ALPHA, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("a", 8), kSBN, Space::Any, kGL_ALPHA8_SNORM, kGL_ALPHA, kGL_BYTE, 1},
    {ChannelLayout("a", 16), kUSN, Space::Any, kGL_ALPHA16, kGL_ALPHA, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("a", 16), kSSN, Space::Any, kGL_ALPHA16_SNORM, kGL_ALPHA, kGL_SHORT, 2},
    {ChannelLayout("a", 16), kSF, Space::Any, kGL_ALPHA16F, kGL_ALPHA, kGL_HALF_FLOAT, 2},
    {ChannelLayout("a", 32), kSF, Space::Any, kGL_ALPHA32F, kGL_ALPHA, kGL_FLOAT, 4},
    {ChannelLayout("l", 8), kUBN, Space::Any, kGL_LUMINANCE8, kGL_LUMINANCE, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("l", 8), kSBN, Space::Any, kGL_LUMINANCE8_SNORM, kGL_LUMINANCE, kGL_BYTE, 1},
    {ChannelLayout("l", 16), kUSN, Space::Any, kGL_LUMINANCE16, kGL_LUMINANCE, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("l", 16), kSSN, Space::Any, kGL_LUMINANCE16_SNORM, kGL_LUMINANCE, kGL_SHORT, 2},
    {ChannelLayout("l", 16), kSF, Space::Any, kGL_LUMINANCE16F, kGL_LUMINANCE, kGL_HALF_FLOAT, 2},
    {ChannelLayout("l", 32), kSF, Space::Any, kGL_LUMINANCE32F, kGL_LUMINANCE, kGL_FLOAT, 4},
    {ChannelLayout("r", 8), kUBN, Space::Any, kGL_R8, kGL_RED, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("r", 8), kSBN, Space::Any, kGL_R8_SNORM, kGL_RED, kGL_BYTE, 1},
    {ChannelLayout("r", 8), kUB, Space::Any, kGL_R8UI, kGL_RED_INTEGER, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("r", 8), kSB, Space::Any, kGL_R8I, kGL_RED_INTEGER, kGL_BYTE, 1},
    {ChannelLayout("r", 16), kUSN, Space::Any, kGL_R16, kGL_RED, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("r", 16), kSSN, Space::Any, kGL_R16_SNORM, kGL_RED, kGL_SHORT, 2},
    {ChannelLayout("r", 16), kUS, Space::Any, kGL_R16UI, kGL_RED_INTEGER, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("r", 16), kSS, Space::Any, kGL_R16I, kGL_RED_INTEGER, kGL_SHORT, 2},
    {ChannelLayout("r", 16), kSF, Space::Any, kGL_R16F, kGL_RED, kGL_HALF_FLOAT, 2},
    {ChannelLayout("r", 32), kUI, Space::Any, kGL_R32UI, kGL_RED_INTEGER, kGL_UNSIGNED_INT, 4},
    {ChannelLayout("r", 32), kSI, Space::Any, kGL_R32I, kGL_RED_INTEGER, kGL_INT, 4},
    {ChannelLayout("r", 32), kSF, Space::Any, kGL_R32F, kGL_RED, kGL_FLOAT, 4},
    {ChannelLayout("la", 8, 8), kUBN, Space::Any, kGL_LUMINANCE8_ALPHA8, kGL_LUMINANCE_ALPHA, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("la", 8, 8), kSBN, Space::Any, kGL_LUMINANCE8_ALPHA8_SNORM, kGL_LUMINANCE_ALPHA, kGL_BYTE, 1},
    {ChannelLayout("la", 16, 16), kUSN, Space::Any, kGL_LUMINANCE16_ALPHA16, kGL_LUMINANCE_ALPHA, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("la", 16, 16), kSSN, Space::Any, kGL_LUMINANCE16_ALPHA16_SNORM, kGL_LUMINANCE_ALPHA, kGL_SHORT, 2},
    {ChannelLayout("la", 16, 16), kSF, Space::Any, kGL_LUMINANCE_ALPHA16F, kGL_LUMINANCE_ALPHA, kGL_HALF_FLOAT, 2},
    {ChannelLayout("la", 32, 32), kSF, Space::Any, kGL_LUMINANCE_ALPHA32F, kGL_LUMINANCE_ALPHA, kGL_FLOAT, 4},
    {ChannelLayout("rg", 8, 8), kUBN, Space::Any, kGL_RG8, kGL_RG, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rg", 8, 8), kSBN, Space::Any, kGL_RG8_SNORM, kGL_RG, kGL_BYTE, 1},
    {ChannelLayout("rg", 8, 8), kUB, Space::Any, kGL_RG8UI, kGL_RG_INTEGER, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rg", 8, 8), kSB, Space::Any, kGL_RG8I, kGL_RG_INTEGER, kGL_BYTE, 1},
    {ChannelLayout("rg", 16, 16), kUSN, Space::Any, kGL_RG16, kGL_RG, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rg", 16, 16), kSSN, Space::Any, kGL_RG16_SNORM, kGL_RG, kGL_SHORT, 2},
    {ChannelLayout("rg", 16, 16), kUS, Space::Any, kGL_RG16UI, kGL_RG_INTEGER, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rg", 16, 16), kSS, Space::Any, kGL_RG16I, kGL_RG_INTEGER, kGL_SHORT, 2},
    {ChannelLayout("rg", 16, 16), kSF, Space::Any, kGL_RG16F, kGL_RG, kGL_HALF_FLOAT, 2},
    {ChannelLayout("rg", 32, 32), kUI, Space::Any, kGL_RG32UI, kGL_RG_INTEGER, kGL_UNSIGNED_INT, 4},
    {ChannelLayout("rg", 32, 32), kSI, Space::Any, kGL_RG32I, kGL_RG_INTEGER, kGL_INT, 4},
    {ChannelLayout("rg", 32, 32), kSF, Space::Any, kGL_RG32F, kGL_RG, kGL_FLOAT, 4},
    {ChannelLayout("rgb", 3, 3, 2), kUBN, Space::Any, kGL_R3_G3_B2, kGL_RGB, kGL_UNSIGNED_BYTE_3_3_2, 1},
    {ChannelLayout("rgb", 5, 6, 5), kUSN, Space::Any, kGL_RGB565, kGL_RGB, kGL_UNSIGNED_SHORT_5_6_5, 2},
    {ChannelLayout("rgb", 8, 8, 8), kUBN, Space::Linear, kGL_RGB8, kGL_RGB, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgb", 8, 8, 8), kUBN, Space::SRGB, kGL_SRGB8, kGL_RGB, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgb", 8, 8, 8), kSBN, Space::Any, kGL_RGB8_SNORM, kGL_RGB, kGL_BYTE, 1},
    {ChannelLayout("rgb", 8, 8, 8), kUB, Space::Any, kGL_RGB8UI, kGL_RGB_INTEGER, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgb", 8, 8, 8), kSB, Space::Any, kGL_RGB8I, kGL_RGB_INTEGER, kGL_BYTE, 1},
    {ChannelLayout("rgb", 11, 11, 10), kUF, Space::Any, kGL_R11F_G11F_B10F, kGL_RGB, kGL_UNSIGNED_INT_10F_11F_11F_REV, 4},
    {ChannelLayout("rgb", 16, 16, 16), kUSN, Space::Any, kGL_RGB16, kGL_RGB, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rgb", 16, 16, 16), kSSN, Space::Any, kGL_RGB16_SNORM, kGL_RGB, kGL_SHORT, 2},
    {ChannelLayout("rgb", 16, 16, 16), kUS, Space::Any, kGL_RGB16UI, kGL_RGB_INTEGER, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rgb", 16, 16, 16), kSS, Space::Any, kGL_RGB16I, kGL_RGB_INTEGER, kGL_SHORT, 2},
    {ChannelLayout("rgb", 16, 16, 16), kSF, Space::Any, kGL_RGB16F, kGL_RGB, kGL_HALF_FLOAT, 2},
    {ChannelLayout("rgb", 32, 32, 32), kUI, Space::Any, kGL_RGB32UI, kGL_RGB_INTEGER, kGL_UNSIGNED_INT, 4},
    {ChannelLayout("rgb", 32, 32, 32), kSI, Space::Any, kGL_RGB32I, kGL_RGB_INTEGER, kGL_INT, 4},
    {ChannelLayout("rgb", 32, 32, 32), kSF, Space::Any, kGL_RGB32F, kGL_RGB, kGL_FLOAT, 4},
    {ChannelLayout("rgba", 5, 5, 5, 1), kUSN, Space::Any, kGL_RGB5_A1, kGL_RGBA, kGL_UNSIGNED_SHORT_5_5_5_1, 2},
    {ChannelLayout("rgba", 4, 4, 4, 4), kUSN, Space::Any, kGL_RGBA4, kGL_RGBA, kGL_UNSIGNED_SHORT_4_4_4_4, 2},
    {ChannelLayout("rgba", 8, 8, 8, 8), kUBN, Space::Linear, kGL_RGBA8, kGL_RGBA, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgba", 8, 8, 8, 8), kUBN, Space::SRGB, kGL_SRGB8_ALPHA8, kGL_RGBA, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgba", 8, 8, 8, 8), kSBN, Space::Any, kGL_RGBA8_SNORM, kGL_RGBA, kGL_BYTE, 1},
    {ChannelLayout("rgba", 8, 8, 8, 8), kUB, Space::Any, kGL_RGBA8UI, kGL_RGBA_INTEGER, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("rgba", 8, 8, 8, 8), kSB, Space::Any, kGL_RGBA8I, kGL_RGBA_INTEGER, kGL_BYTE, 1},
    {ChannelLayout("rgba", 16, 16, 16, 16), kUSN, Space::Any, kGL_RGBA16, kGL_RGBA, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSSN, Space::Any, kGL_RGBA16_SNORM, kGL_RGBA, kGL_SHORT, 2},
    {ChannelLayout("rgba", 16, 16, 16, 16), kUS, Space::Any, kGL_RGBA16UI, kGL_RGBA_INTEGER, kGL_UNSIGNED_SHORT, 2},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSS, Space::Any, kGL_RGBA16I, kGL_RGBA_INTEGER, kGL_SHORT, 2},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSF, Space::Any, kGL_RGBA16F, kGL_RGBA, kGL_HALF_FLOAT, 2},
    {ChannelLayout("rgba", 32, 32, 32, 32), kUI, Space::Any, kGL_RGBA32UI, kGL_RGBA_INTEGER, kGL_UNSIGNED_INT, 4},
    {ChannelLayout("rgba", 32, 32, 32, 32), kSI, Space::Any, kGL_RGBA32I, kGL_RGBA_INTEGER, kGL_INT, 4},
    {ChannelLayout("rgba", 32, 32, 32, 32), kSF, Space::Any, kGL_RGBA32F, kGL_RGBA, kGL_FLOAT, 4},
    {ChannelLayout("bgra", 8, 8, 8, 8), kUBN, Space::Any, kGL_BGRA, kGL_BGRA, kGL_UNSIGNED_BYTE, 1},
    {ChannelLayout("abgr", 2, 10, 10, 10), kUIN, Space::Any, kGL_RGB10_A2, kGL_RGBA, kGL_UNSIGNED_INT_2_10_10_10_REV, 4},
    {ChannelLayout("abgr", 2, 10, 10, 10), kUI, Space::Any, kGL_RGB10_A2UI, kGL_RGBA_INTEGER, kGL_UNSIGNED_INT_2_10_10_10_REV,
     4},
    {ChannelLayout("xbgr", 2, 10, 10, 10), kUIN, Space::Any, kGL_RGB10, kGL_RGB, kGL_UNSIGNED_INT_2_10_10_10_REV, 4},
};

// Internal formats the inverse does not map back through kGLLayoutRows.
struct GLInverseOverride
{
    uint32_t internal;
    bool known; // false: the inverse gives false
    uint64_t layout;
    uint32_t type;
};

constexpr GLInverseOverride kGLInverseOverrides[] = {
    // 16-bit alpha and luminance come back with the 8-bit channel types.
    {kGL_ALPHA16, true, ChannelLayout("a", 16), kUBN},
    {kGL_LUMINANCE16, true, ChannelLayout("l", 16), kUBN},
    {kGL_ALPHA16_SNORM, true, ChannelLayout("a", 16), kSBN},
    {kGL_LUMINANCE16_SNORM, true, ChannelLayout("l", 16), kSBN},
    // 32-bit RGBA integers come back with signedness swapped.
    {kGL_RGBA32UI, true, ChannelLayout("rgba", 32, 32, 32, 32), kSI},
    {kGL_RGBA32I, true, ChannelLayout("rgba", 32, 32, 32, 32), kUI},
    // 10-bit packed formats come back in channel order rgba / rgbx.
    {kGL_RGB10_A2, true, ChannelLayout("rgba", 10, 10, 10, 2), kUIN},
    {kGL_RGB10_A2UI, true, ChannelLayout("rgba", 10, 10, 10, 2), kUI},
    {kGL_RGB10, true, ChannelLayout("rgbx", 10, 10, 10, 2), kUIN},
    // 16-bit luminance-alpha is not recognised.
    {kGL_LUMINANCE16_ALPHA16, false, 0, 0},
    {kGL_LUMINANCE16_ALPHA16_SNORM, false, 0, 0},
};

// Unsized internal formats: the layout's letters, and its widths by glType.
struct GLUnsizedFormat
{
    uint32_t internal;
    const char* letters;
    unsigned channels;
};

constexpr GLUnsizedFormat kGLUnsizedFormats[] = {
    {kGL_RED, "r", 1},   {kGL_ALPHA, "a", 1},     {kGL_RGB, "rgb", 3},        {kGL_RGBA, "rgba", 4},
    {kGL_LUMINANCE, "l", 1}, {kGL_LUMINANCE_ALPHA, "la", 2}, {kGL_RG, "rg", 2},
};

struct GLUnsizedType
{
    uint32_t glType;
    unsigned bits; // per channel
    uint32_t type;
};

constexpr GLUnsizedType kGLUnsizedTypes[] = {
    {kGL_BYTE, 8, kSBN},   {kGL_UNSIGNED_BYTE, 8, kUBN}, {kGL_SHORT, 16, kSSN},
    {kGL_UNSIGNED_SHORT, 16, kUSN}, {kGL_INT, 32, kSIN},  {kGL_UNSIGNED_INT, 32, kUIN},
};

// Packed types of an unsized format, and GL_BGRA, which takes only this.
struct GLUnsizedPacked
{
    uint32_t internal;
    uint32_t glType;
    uint64_t layout;
    uint32_t type;
};

constexpr GLUnsizedPacked kGLUnsizedPacked[] = {
    {kGL_RGB, kGL_UNSIGNED_BYTE_3_3_2, ChannelLayout("rgb", 3, 3, 2), kUBN},
    {kGL_RGB, kGL_UNSIGNED_SHORT_5_6_5, ChannelLayout("rgb", 5, 6, 5), kUSN},
    {kGL_RGBA, kGL_UNSIGNED_SHORT_4_4_4_4, ChannelLayout("rgba", 4, 4, 4, 4), kUSN},
    {kGL_RGBA, kGL_UNSIGNED_SHORT_5_5_5_1, ChannelLayout("rgba", 5, 5, 5, 1), kUSN},
    {kGL_BGRA, kGL_UNSIGNED_BYTE, ChannelLayout("bgra", 8, 8, 8, 8), kUBN},
};

// Layout of `channels` letters, each `bits` wide.
uint64_t UniformLayout(const char* letters, unsigned channels, unsigned bits)
{
    uint64_t layout = 0;
    for (unsigned i = 0; i < channels; ++i)
        layout |= uint64_t(uint8_t(letters[i])) << (8 * i) | uint64_t(bits) << (32 + 8 * i);
    return layout;
}

// ---------------------------------------------------------------------------
// Direct3D 9 values (D3DFORMAT)

constexpr uint32_t kD3DFMT_R8G8B8 = 20;
constexpr uint32_t kD3DFMT_A8R8G8B8 = 21;
constexpr uint32_t kD3DFMT_X8R8G8B8 = 22;
constexpr uint32_t kD3DFMT_R5G6B5 = 23;
constexpr uint32_t kD3DFMT_X1R5G5B5 = 24;
constexpr uint32_t kD3DFMT_A1R5G5B5 = 25;
constexpr uint32_t kD3DFMT_A4R4G4B4 = 26;
constexpr uint32_t kD3DFMT_R3G3B2 = 27;
constexpr uint32_t kD3DFMT_A8 = 28;
constexpr uint32_t kD3DFMT_A8R3G3B2 = 29;
constexpr uint32_t kD3DFMT_X4R4G4B4 = 30;
constexpr uint32_t kD3DFMT_A2B10G10R10 = 31;
constexpr uint32_t kD3DFMT_A8B8G8R8 = 32;
constexpr uint32_t kD3DFMT_X8B8G8R8 = 33;
constexpr uint32_t kD3DFMT_G16R16 = 34;
constexpr uint32_t kD3DFMT_A2R10G10B10 = 35;
constexpr uint32_t kD3DFMT_A16B16G16R16 = 36;
constexpr uint32_t kD3DFMT_L8 = 50;
constexpr uint32_t kD3DFMT_A8L8 = 51;
constexpr uint32_t kD3DFMT_A4L4 = 52;
constexpr uint32_t kD3DFMT_V8U8 = 60;
constexpr uint32_t kD3DFMT_L6V5U5 = 61;
constexpr uint32_t kD3DFMT_X8L8V8U8 = 62;
constexpr uint32_t kD3DFMT_Q8W8V8U8 = 63;
constexpr uint32_t kD3DFMT_V16U16 = 64;
constexpr uint32_t kD3DFMT_A2W10V10U10 = 67;
constexpr uint32_t kD3DFMT_L16 = 81;
constexpr uint32_t kD3DFMT_Q16W16V16U16 = 110;
constexpr uint32_t kD3DFMT_R16F = 111;
constexpr uint32_t kD3DFMT_G16R16F = 112;
constexpr uint32_t kD3DFMT_A16B16G16R16F = 113;
constexpr uint32_t kD3DFMT_R32F = 114;
constexpr uint32_t kD3DFMT_G32R32F = 115;
constexpr uint32_t kD3DFMT_A32B32G32R32F = 116;

struct D3DNamedRow
{
    uint32_t fourCC;
    uint32_t format;     // the named format, and what the inverse gives
    uint32_t alsoFormat; // a second format with the same FourCC, or kNoFormat
    bool preMultiplied;  // what the inverse reports
};

// The inverse gives channel type 0, linear. Both ORBTC generations' RGB and
// RGBA forms share a FourCC; the inverse gives the RGBA form.
constexpr D3DNamedRow kD3DNamedRows[] = {
    {FourCC('O', 'T', 'C', '2'), orbtexture::ePF_ORBTC_2bpp_RGBA, orbtexture::ePF_ORBTC_2bpp_RGB, false},
    {FourCC('O', 'T', 'C', '4'), orbtexture::ePF_ORBTC_4bpp_RGBA, orbtexture::ePF_ORBTC_4bpp_RGB, false},
    {FourCC('D', 'X', 'T', '1'), orbtexture::ePF_DXT1, kNoFormat, false},
    {FourCC('D', 'X', 'T', '2'), orbtexture::ePF_DXT2, kNoFormat, true},
    {FourCC('D', 'X', 'T', '3'), orbtexture::ePF_DXT3, kNoFormat, false},
    {FourCC('D', 'X', 'T', '4'), orbtexture::ePF_DXT4, kNoFormat, true},
    {FourCC('D', 'X', 'T', '5'), orbtexture::ePF_DXT5, kNoFormat, false},
    {FourCC('U', 'Y', 'V', 'Y'), orbtexture::ePF_UYVY, kNoFormat, false},
    {FourCC('Y', 'U', 'Y', '2'), orbtexture::ePF_YUY2, kNoFormat, false},
    {FourCC('R', 'G', 'B', 'G'), orbtexture::ePF_RGBG8888, kNoFormat, false},
    {FourCC('G', 'R', 'G', 'B'), orbtexture::ePF_GRGB8888, kNoFormat, false},
};

struct D3DLayoutRow
{
    uint64_t layout;
    uint32_t type;     // the channel type, and what the inverse gives
    uint32_t alsoType; // a second channel type the forward map takes, or kNoType
    uint32_t code;
};

// Unsigned normalised rows map back to channel type 8 whatever their widths.
constexpr D3DLayoutRow kD3DLayoutRows[] = {
    {ChannelLayout("a", 8), kUIN, kUBN, kD3DFMT_A8},
    {ChannelLayout("l", 8), kUIN, kUBN, kD3DFMT_L8},
    {ChannelLayout("l", 16), kUIN, kUSN, kD3DFMT_L16},
    {ChannelLayout("r", 16), kSF, kNoType, kD3DFMT_R16F},
    {ChannelLayout("r", 32), kSF, kNoType, kD3DFMT_R32F},
    {ChannelLayout("rg", 32, 32), kSF, kNoType, kD3DFMT_G32R32F},
    {ChannelLayout("al", 4, 4), kUIN, kUBN, kD3DFMT_A4L4},
    {ChannelLayout("al", 8, 8), kUIN, kUBN, kD3DFMT_A8L8},
    {ChannelLayout("gr", 8, 8), kSIN, kNoType, kD3DFMT_V8U8},
    {ChannelLayout("gr", 16, 16), kUIN, kUSN, kD3DFMT_G16R16},
    {ChannelLayout("gr", 16, 16), kSIN, kNoType, kD3DFMT_V16U16},
    {ChannelLayout("gr", 16, 16), kSF, kNoType, kD3DFMT_G16R16F},
    {ChannelLayout("rgb", 3, 3, 2), kUIN, kUBN, kD3DFMT_R3G3B2},
    {ChannelLayout("rgb", 5, 6, 5), kUIN, kUSN, kD3DFMT_R5G6B5},
    {ChannelLayout("rgb", 8, 8, 8), kUIN, kUBN, kD3DFMT_R8G8B8},
    {ChannelLayout("lgr", 6, 5, 5), kSIN, kNoType, kD3DFMT_L6V5U5},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSF, kNoType, kD3DFMT_A16B16G16R16F},
    {ChannelLayout("argb", 8, 3, 3, 2), kUIN, kUSN, kD3DFMT_A8R3G3B2},
    {ChannelLayout("argb", 4, 4, 4, 4), kUIN, kUSN, kD3DFMT_A4R4G4B4},
    {ChannelLayout("argb", 1, 5, 5, 5), kUIN, kUSN, kD3DFMT_A1R5G5B5},
    {ChannelLayout("argb", 8, 8, 8, 8), kUIN, kUBN, kD3DFMT_A8R8G8B8},
    {ChannelLayout("argb", 2, 10, 10, 10), kUIN, kNoType, kD3DFMT_A2R10G10B10},
    {ChannelLayout("xrgb", 1, 5, 5, 5), kUIN, kUSN, kD3DFMT_X1R5G5B5},
    {ChannelLayout("xrgb", 8, 8, 8, 8), kUIN, kUBN, kD3DFMT_X8R8G8B8},
    {ChannelLayout("abgr", 8, 8, 8, 8), kSIN, kNoType, kD3DFMT_Q8W8V8U8},
    {ChannelLayout("abgr", 2, 10, 10, 10), kUIN, kNoType, kD3DFMT_A2B10G10R10},
    {ChannelLayout("abgr", 2, 10, 10, 10), kSIN, kNoType, kD3DFMT_A2W10V10U10},
    {ChannelLayout("abgr", 16, 16, 16, 16), kUIN, kUSN, kD3DFMT_A16B16G16R16},
    {ChannelLayout("abgr", 32, 32, 32, 32), kSF, kNoType, kD3DFMT_A32B32G32R32F},
    {ChannelLayout("xlgr", 8, 8, 8, 8), kSIN, kNoType, kD3DFMT_X8L8V8U8},
};

// Codes the inverse maps other than through kD3DLayoutRows, or only there.
struct InverseRow
{
    uint32_t code;
    uint64_t pixelFormat;
    uint32_t type;
    EORBTColourSpace space;
};

constexpr InverseRow kD3DInverseRows[] = {
    // Differ from the forward rows.
    {kD3DFMT_R16F, ChannelLayout("r", 32), kSF, orbtexture::eColourSpaceLinear},
    {kD3DFMT_G32R32F, ChannelLayout("gr", 32, 32), kSF, orbtexture::eColourSpaceLinear},
    // Never produced by the forward map. X4R4G4B4 keeps its unused bits as alpha.
    {kD3DFMT_X4R4G4B4, ChannelLayout("argb", 4, 4, 4, 4), kUIN, orbtexture::eColourSpaceLinear},
    {kD3DFMT_A8B8G8R8, ChannelLayout("abgr", 8, 8, 8, 8), kUIN, orbtexture::eColourSpaceLinear},
    {kD3DFMT_X8B8G8R8, ChannelLayout("xbgr", 8, 8, 8, 8), kUIN, orbtexture::eColourSpaceLinear},
    {kD3DFMT_Q16W16V16U16, ChannelLayout("abgr", 16, 16, 16, 16), kSIN, orbtexture::eColourSpaceLinear},
};

// ---------------------------------------------------------------------------
// DXGI values (DXGI_FORMAT)

constexpr uint32_t kDXGI_R32G32B32A32_FLOAT = 2;
constexpr uint32_t kDXGI_R32G32B32A32_UINT = 3;
constexpr uint32_t kDXGI_R32G32B32A32_SINT = 4;
constexpr uint32_t kDXGI_R32G32B32_FLOAT = 6;
constexpr uint32_t kDXGI_R32G32B32_UINT = 7;
constexpr uint32_t kDXGI_R32G32B32_SINT = 8;
constexpr uint32_t kDXGI_R16G16B16A16_FLOAT = 10;
constexpr uint32_t kDXGI_R16G16B16A16_UNORM = 11;
constexpr uint32_t kDXGI_R16G16B16A16_UINT = 12;
constexpr uint32_t kDXGI_R16G16B16A16_SNORM = 13;
constexpr uint32_t kDXGI_R16G16B16A16_SINT = 14;
constexpr uint32_t kDXGI_R32G32_FLOAT = 16;
constexpr uint32_t kDXGI_R32G32_UINT = 17;
constexpr uint32_t kDXGI_R32G32_SINT = 18;
constexpr uint32_t kDXGI_R10G10B10A2_UNORM = 24;
constexpr uint32_t kDXGI_R10G10B10A2_UINT = 25;
constexpr uint32_t kDXGI_R11G11B10_FLOAT = 26;
constexpr uint32_t kDXGI_R8G8B8A8_UNORM = 28;
constexpr uint32_t kDXGI_R8G8B8A8_UNORM_SRGB = 29;
constexpr uint32_t kDXGI_R8G8B8A8_UINT = 30;
constexpr uint32_t kDXGI_R8G8B8A8_SNORM = 31;
constexpr uint32_t kDXGI_R8G8B8A8_SINT = 32;
constexpr uint32_t kDXGI_R16G16_FLOAT = 34;
constexpr uint32_t kDXGI_R16G16_UNORM = 35;
constexpr uint32_t kDXGI_R16G16_UINT = 36;
constexpr uint32_t kDXGI_R16G16_SNORM = 37;
constexpr uint32_t kDXGI_R16G16_SINT = 38;
constexpr uint32_t kDXGI_R32_FLOAT = 41;
constexpr uint32_t kDXGI_R32_UINT = 42;
constexpr uint32_t kDXGI_R32_SINT = 43;
constexpr uint32_t kDXGI_R8G8_UNORM = 49;
constexpr uint32_t kDXGI_R8G8_UINT = 50;
constexpr uint32_t kDXGI_R8G8_SNORM = 51;
constexpr uint32_t kDXGI_R8G8_SINT = 52;
constexpr uint32_t kDXGI_R16_FLOAT = 54;
constexpr uint32_t kDXGI_R16_UNORM = 56;
constexpr uint32_t kDXGI_R16_UINT = 57;
constexpr uint32_t kDXGI_R16_SNORM = 58;
constexpr uint32_t kDXGI_R16_SINT = 59;
constexpr uint32_t kDXGI_R8_UNORM = 61;
constexpr uint32_t kDXGI_R8_UINT = 62;
constexpr uint32_t kDXGI_R8_SNORM = 63;
constexpr uint32_t kDXGI_R8_SINT = 64;
constexpr uint32_t kDXGI_A8_UNORM = 65;
constexpr uint32_t kDXGI_R1_UNORM = 66;
constexpr uint32_t kDXGI_R9G9B9E5_SHAREDEXP = 67;
constexpr uint32_t kDXGI_R8G8_B8G8_UNORM = 68;
constexpr uint32_t kDXGI_G8R8_G8B8_UNORM = 69;
constexpr uint32_t kDXGI_BC1_UNORM = 71;
constexpr uint32_t kDXGI_BC1_UNORM_SRGB = 72;
constexpr uint32_t kDXGI_BC2_UNORM = 74;
constexpr uint32_t kDXGI_BC2_UNORM_SRGB = 75;
constexpr uint32_t kDXGI_BC3_UNORM = 77;
constexpr uint32_t kDXGI_BC3_UNORM_SRGB = 78;
constexpr uint32_t kDXGI_BC4_UNORM = 80;
constexpr uint32_t kDXGI_BC4_SNORM = 81;
constexpr uint32_t kDXGI_BC5_UNORM = 83;
constexpr uint32_t kDXGI_BC5_SNORM = 84;
constexpr uint32_t kDXGI_B5G6R5_UNORM = 85;
constexpr uint32_t kDXGI_B5G5R5A1_UNORM = 86;
constexpr uint32_t kDXGI_B8G8R8A8_UNORM = 87;
constexpr uint32_t kDXGI_B8G8R8X8_UNORM = 88;
constexpr uint32_t kDXGI_B8G8R8A8_UNORM_SRGB = 91;
constexpr uint32_t kDXGI_B8G8R8X8_UNORM_SRGB = 93;
constexpr uint32_t kDXGI_BC6H_SF16 = 96;
constexpr uint32_t kDXGI_BC7_UNORM = 98;
constexpr uint32_t kDXGI_BC7_UNORM_SRGB = 99;
constexpr uint32_t kDXGI_YUY2 = 107;
constexpr uint32_t kDXGI_AI44 = 111;
constexpr uint32_t kDXGI_IA44 = 112;
constexpr uint32_t kDXGI_B4G4R4A4_UNORM = 115;

// One row serves named formats and layouts: `pixelFormat` is the named
// format (high word 0) or the layout. The inverse gives the row's channel
// type (0 for kAnyType), linear for `code` and sRGB for `codeSRGB`.
struct DXGIRow
{
    uint64_t pixelFormat;
    uint32_t type; // or kAnyType
    uint32_t code; // linear, and any colour space without codeSRGB
    uint32_t codeSRGB; // 0 if none
};

constexpr DXGIRow kDXGIRows[] = {
    {orbtexture::ePF_DXT1, kUIN, kDXGI_BC1_UNORM, kDXGI_BC1_UNORM_SRGB},
    {orbtexture::ePF_DXT3, kUIN, kDXGI_BC2_UNORM, kDXGI_BC2_UNORM_SRGB},
    {orbtexture::ePF_DXT5, kUIN, kDXGI_BC3_UNORM, kDXGI_BC3_UNORM_SRGB},
    {orbtexture::ePF_BC4, kUIN, kDXGI_BC4_UNORM, 0},
    {orbtexture::ePF_BC4, kSIN, kDXGI_BC4_SNORM, 0},
    {orbtexture::ePF_BC5, kUIN, kDXGI_BC5_UNORM, 0},
    {orbtexture::ePF_BC5, kSIN, kDXGI_BC5_SNORM, 0},
    {orbtexture::ePF_BW1bpp, kAnyType, kDXGI_R1_UNORM, 0},
    {orbtexture::ePF_RGBG8888, kAnyType, kDXGI_R8G8_B8G8_UNORM, 0},
    {orbtexture::ePF_GRGB8888, kAnyType, kDXGI_G8R8_G8B8_UNORM, 0},
    {ChannelLayout("a", 8), kUBN, kDXGI_A8_UNORM, 0},
    {ChannelLayout("r", 8), kUBN, kDXGI_R8_UNORM, 0},
    {ChannelLayout("r", 8), kSBN, kDXGI_R8_SNORM, 0},
    {ChannelLayout("r", 8), kUB, kDXGI_R8_UINT, 0},
    {ChannelLayout("r", 8), kSB, kDXGI_R8_SINT, 0},
    {ChannelLayout("r", 16), kUSN, kDXGI_R16_UNORM, 0},
    {ChannelLayout("r", 16), kSSN, kDXGI_R16_SNORM, 0},
    {ChannelLayout("r", 16), kUS, kDXGI_R16_UINT, 0},
    {ChannelLayout("r", 16), kSS, kDXGI_R16_SINT, 0},
    {ChannelLayout("r", 16), kSF, kDXGI_R16_FLOAT, 0},
    {ChannelLayout("r", 32), kUI, kDXGI_R32_UINT, 0},
    {ChannelLayout("r", 32), kSI, kDXGI_R32_SINT, 0},
    {ChannelLayout("r", 32), kSF, kDXGI_R32_FLOAT, 0},
    {ChannelLayout("rg", 8, 8), kUBN, kDXGI_R8G8_UNORM, 0},
    {ChannelLayout("rg", 8, 8), kSBN, kDXGI_R8G8_SNORM, 0},
    {ChannelLayout("rg", 8, 8), kUB, kDXGI_R8G8_UINT, 0},
    {ChannelLayout("rg", 8, 8), kSB, kDXGI_R8G8_SINT, 0},
    {ChannelLayout("rg", 16, 16), kUSN, kDXGI_R16G16_UNORM, 0},
    {ChannelLayout("rg", 16, 16), kSSN, kDXGI_R16G16_SNORM, 0},
    {ChannelLayout("rg", 16, 16), kUS, kDXGI_R16G16_UINT, 0},
    {ChannelLayout("rg", 16, 16), kSS, kDXGI_R16G16_SINT, 0},
    {ChannelLayout("rg", 16, 16), kSF, kDXGI_R16G16_FLOAT, 0},
    {ChannelLayout("rg", 32, 32), kUI, kDXGI_R32G32_UINT, 0},
    {ChannelLayout("rg", 32, 32), kSI, kDXGI_R32G32_SINT, 0},
    {ChannelLayout("rg", 32, 32), kSF, kDXGI_R32G32_FLOAT, 0},
    {ChannelLayout("rgb", 5, 6, 5), kUSN, kDXGI_B5G6R5_UNORM, 0},
    {ChannelLayout("rgb", 11, 11, 10), kSF, kDXGI_R11G11B10_FLOAT, 0},
    {ChannelLayout("rgb", 32, 32, 32), kUI, kDXGI_R32G32B32_UINT, 0},
    {ChannelLayout("rgb", 32, 32, 32), kSI, kDXGI_R32G32B32_SINT, 0},
    {ChannelLayout("rgb", 32, 32, 32), kSF, kDXGI_R32G32B32_FLOAT, 0},
    {ChannelLayout("rgba", 10, 10, 10, 2), kUIN, kDXGI_R10G10B10A2_UNORM, 0},
    {ChannelLayout("rgba", 10, 10, 10, 2), kUI, kDXGI_R10G10B10A2_UINT, 0},
    {ChannelLayout("rgba", 8, 8, 8, 8), kUBN, kDXGI_R8G8B8A8_UNORM, kDXGI_R8G8B8A8_UNORM_SRGB},
    {ChannelLayout("rgba", 8, 8, 8, 8), kSBN, kDXGI_R8G8B8A8_SNORM, 0},
    {ChannelLayout("rgba", 8, 8, 8, 8), kUB, kDXGI_R8G8B8A8_UINT, 0},
    {ChannelLayout("rgba", 8, 8, 8, 8), kSB, kDXGI_R8G8B8A8_SINT, 0},
    {ChannelLayout("rgba", 16, 16, 16, 16), kUSN, kDXGI_R16G16B16A16_UNORM, 0},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSSN, kDXGI_R16G16B16A16_SNORM, 0},
    {ChannelLayout("rgba", 16, 16, 16, 16), kUS, kDXGI_R16G16B16A16_UINT, 0},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSS, kDXGI_R16G16B16A16_SINT, 0},
    {ChannelLayout("rgba", 16, 16, 16, 16), kSF, kDXGI_R16G16B16A16_FLOAT, 0},
    {ChannelLayout("rgba", 32, 32, 32, 32), kUI, kDXGI_R32G32B32A32_UINT, 0},
    {ChannelLayout("rgba", 32, 32, 32, 32), kSI, kDXGI_R32G32B32A32_SINT, 0},
    {ChannelLayout("rgba", 32, 32, 32, 32), kSF, kDXGI_R32G32B32A32_FLOAT, 0},
    {ChannelLayout("bgra", 8, 8, 8, 8), kUBN, kDXGI_B8G8R8A8_UNORM, kDXGI_B8G8R8A8_UNORM_SRGB},
    {ChannelLayout("argb", 4, 4, 4, 4), kUSN, kDXGI_B4G4R4A4_UNORM, 0},
    {ChannelLayout("argb", 1, 5, 5, 5), kUSN, kDXGI_B5G5R5A1_UNORM, 0},
    {ChannelLayout("bgrx", 8, 8, 8, 8), kUBN, kDXGI_B8G8R8X8_UNORM, kDXGI_B8G8R8X8_UNORM_SRGB},
};

constexpr InverseRow kDXGIInverseRows[] = {
    // Differ from the forward rows.
    {kDXGI_A8_UNORM, ChannelLayout("r", 8), kUBN, orbtexture::eColourSpaceLinear},
    {kDXGI_BC4_UNORM, orbtexture::ePF_BC4, kUIN, orbtexture::eColourSpaceSRGB},
    // Never produced by the forward map. BC6H_SF16 comes back as BC7, sRGB.
    {kDXGI_R9G9B9E5_SHAREDEXP, orbtexture::ePF_RGB9E5, kSF, orbtexture::eColourSpaceLinear},
    {kDXGI_BC6H_SF16, orbtexture::ePF_BC7, kSF, orbtexture::eColourSpaceSRGB},
    {kDXGI_BC7_UNORM, orbtexture::ePF_BC7, kUIN, orbtexture::eColourSpaceLinear},
    {kDXGI_BC7_UNORM_SRGB, orbtexture::ePF_BC7, kUIN, orbtexture::eColourSpaceSRGB},
    {kDXGI_YUY2, orbtexture::ePF_YUY2, kUIN, orbtexture::eColourSpaceLinear},
    {kDXGI_AI44, ChannelLayout("ai", 4, 4), kUBN, orbtexture::eColourSpaceLinear},
    {kDXGI_IA44, ChannelLayout("ia", 4, 4), kUBN, orbtexture::eColourSpaceLinear},
};

template <std::size_t N>
const InverseRow* FindInverseRow(const InverseRow (&rows)[N], uint32_t code)
{
    for (const InverseRow& row : rows)
        if (row.code == code)
            return &row;
    return nullptr;
}

bool IsNamed(unsigned long long pixelFormat) { return (pixelFormat >> 32) == 0; }

} // namespace

namespace orbtexture
{

bool getOpenGLFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                     const EORBTColourSpace& colourSpace, unsigned int& glInternalFormat,
                     unsigned int& glBaseInternalFormat, unsigned int& glFormat, unsigned int& glType,
                     unsigned int& glTypeSize)
{
    if (IsNamed(pixelFormat))
    {
        for (const GLNamedRow& row : kGLNamedRows)
        {
            if (!FormatMatches(row.format, row.alsoFormat, pixelFormat))
                continue;
            glInternalFormat = row.internal;
            if (row.internalSRGB != 0 && colourSpace == eColourSpaceSRGB)
                glInternalFormat = row.internalSRGB;
            if (row.internalSigned != 0)
                for (uint32_t type : kSignedEACTypes)
                    if (type == uint32_t(channelType))
                        glInternalFormat = row.internalSigned;
            glBaseInternalFormat = row.base;
            glFormat = row.glFormat;
            glType = row.glType;
            glTypeSize = row.typeSize;
            return true;
        }
        // An unknown named format leaves the internal formats as they were.
        glFormat = 0;
        glType = 0;
        glTypeSize = 1;
        return false;
    }

    for (const GLLayoutRow& row : kGLLayoutRows)
    {
        if (row.layout != pixelFormat || row.type != uint32_t(channelType) || !SpaceMatches(row.space, colourSpace))
            continue;
        glInternalFormat = row.internal;
        glBaseInternalFormat = row.format;
        glFormat = row.format;
        glType = row.glType;
        glTypeSize = row.typeSize;
        return true;
    }
    glInternalFormat = glBaseInternalFormat = glFormat = glType = glTypeSize = 0;
    return false;
}

bool getOrbCoreFormatOGL(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                         EORBTColourSpace& colourSpace, const unsigned int& glInternalFormat,
                         const unsigned int& /*glFormat*/, const unsigned int& glType)
{
    for (const GLUnsizedPacked& row : kGLUnsizedPacked)
        if (row.internal == glInternalFormat && row.glType == glType)
            return Answer(pixelFormat, channelType, colourSpace, row.layout, EORBTVariableType(row.type),
                          eColourSpaceLinear);
    if (glInternalFormat == kGL_BGRA)
        return false;
    for (const GLUnsizedFormat& format : kGLUnsizedFormats)
    {
        if (format.internal != glInternalFormat)
            continue;
        for (const GLUnsizedType& type : kGLUnsizedTypes)
            if (type.glType == glType)
                return Answer(pixelFormat, channelType, colourSpace,
                              UniformLayout(format.letters, format.channels, type.bits),
                              EORBTVariableType(type.type), eColourSpaceLinear);
        return false;
    }

    for (const GLNamedRow& row : kGLNamedRows)
    {
        if (row.internal == glInternalFormat)
            return Answer(pixelFormat, channelType, colourSpace, row.format, EORBTVariableType(row.inverseType),
                          eColourSpaceLinear);
        if (row.internalSRGB == glInternalFormat && row.internalSRGB != 0)
            return Answer(pixelFormat, channelType, colourSpace, row.format, EORBTVariableType(row.inverseType),
                          eColourSpaceSRGB);
        if (row.internalSigned == glInternalFormat && row.internalSigned != 0)
            return Answer(pixelFormat, channelType, colourSpace, row.format, eVarSignedByteNorm, eColourSpaceLinear);
    }

    for (const GLInverseOverride& row : kGLInverseOverrides)
        if (row.internal == glInternalFormat)
            return row.known && Answer(pixelFormat, channelType, colourSpace, row.layout, EORBTVariableType(row.type),
                                       eColourSpaceLinear);

    for (const GLLayoutRow& row : kGLLayoutRows)
        if (row.internal == glInternalFormat)
            return Answer(pixelFormat, channelType, colourSpace, row.layout, EORBTVariableType(row.type),
                          InverseSpace(row.space));
    return false;
}

bool getDirect3DFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                       const EORBTColourSpace& /*colourSpace*/, unsigned int& d3dFormat)
{
    if (IsNamed(pixelFormat))
    {
        for (const D3DNamedRow& row : kD3DNamedRows)
        {
            if (FormatMatches(row.format, row.alsoFormat, pixelFormat))
            {
                d3dFormat = row.fourCC;
                return true;
            }
        }
    }
    else
    {
        for (const D3DLayoutRow& row : kD3DLayoutRows)
        {
            if (row.layout == pixelFormat && TypeMatches(row.type, row.alsoType, channelType))
            {
                d3dFormat = row.code;
                return true;
            }
        }
    }
    d3dFormat = 0;
    return false;
}

bool getOrbCoreFormatD3D(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                         EORBTColourSpace& colourSpace, bool& isPreMultiplied, const unsigned int& d3dFormat)
{
    for (const D3DNamedRow& row : kD3DNamedRows)
    {
        if (row.fourCC == d3dFormat)
        {
            isPreMultiplied = row.preMultiplied;
            return Answer(pixelFormat, channelType, colourSpace, row.format, eVarUnsignedByteNorm,
                          eColourSpaceLinear);
        }
    }
    if (const InverseRow* row = FindInverseRow(kD3DInverseRows, d3dFormat))
    {
        isPreMultiplied = false;
        return Answer(pixelFormat, channelType, colourSpace, row->pixelFormat, EORBTVariableType(row->type),
                      row->space);
    }
    for (const D3DLayoutRow& row : kD3DLayoutRows)
    {
        if (row.code == d3dFormat)
        {
            isPreMultiplied = false;
            return Answer(pixelFormat, channelType, colourSpace, row.layout, EORBTVariableType(row.type),
                          eColourSpaceLinear);
        }
    }
    return false;
}

bool getDirectXGIFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                        const EORBTColourSpace& colourSpace, unsigned int& dxgiFormat)
{
    for (const DXGIRow& row : kDXGIRows)
    {
        if (row.pixelFormat == pixelFormat && TypeMatches(row.type, kNoType, channelType))
        {
            dxgiFormat = (row.codeSRGB != 0 && colourSpace == eColourSpaceSRGB) ? row.codeSRGB : row.code;
            return true;
        }
    }
    dxgiFormat = 0;
    return false;
}

bool getOrbCoreFormatDXGI(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                          EORBTColourSpace& colourSpace, const unsigned int& dxgiFormat)
{
    if (const InverseRow* row = FindInverseRow(kDXGIInverseRows, dxgiFormat))
        return Answer(pixelFormat, channelType, colourSpace, row->pixelFormat, EORBTVariableType(row->type),
                      row->space);
    for (const DXGIRow& row : kDXGIRows)
    {
        if (row.code == dxgiFormat)
            return Answer(pixelFormat, channelType, colourSpace, row.pixelFormat, InverseType(row.type),
                          eColourSpaceLinear);
        if (row.codeSRGB == dxgiFormat && row.codeSRGB != 0)
            return Answer(pixelFormat, channelType, colourSpace, row.pixelFormat, InverseType(row.type),
                          eColourSpaceSRGB);
    }
    return false;
}

// ---------------------------------------------------------------------------
// CORBTextureHeader members

bool CORBTextureHeader::getOGLFormat(uint32_t& internalFormat, uint32_t& format, uint32_t& type) const
{
    unsigned int baseInternalFormat = 0;
    unsigned int typeSize = 0;
    return getOpenGLFormat(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), internalFormat,
                           baseInternalFormat, format, type, typeSize);
}

bool CORBTextureHeader::getOGLESFormat(uint32_t& internalFormat, uint32_t& format, uint32_t& type) const
{
    unsigned int desktopInternalFormat = 0;
    unsigned int typeSize = 0;
    return getOpenGLFormat(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), desktopInternalFormat,
                           internalFormat, format, type, typeSize);
}

uint32_t CORBTextureHeader::getD3DFormat() const
{
    unsigned int code = 0;
    getDirect3DFormat(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), code);
    return code;
}

uint32_t CORBTextureHeader::getDXGIFormat() const
{
    unsigned int code = 0;
    getDirectXGIFormat(m_sHeader.pixelFormat, getChannelType(), getColourSpace(), code);
    return code;
}

bool CORBTextureHeader::setOGLFormat(const uint32_t& internalFormat, const uint32_t& format, const uint32_t& type)
{
    unsigned long long pixelFormat = 0;
    EORBTVariableType channelType = eVarUnsignedByteNorm;
    EORBTColourSpace colourSpace = eColourSpaceLinear;
    if (!getOrbCoreFormatOGL(pixelFormat, channelType, colourSpace, internalFormat, format, type))
        return false;
    setPixelFormat(pixelFormat);
    setChannelType(channelType);
    setColourSpace(colourSpace);
    return true;
}

bool CORBTextureHeader::setOGLESFormat(const uint32_t& internalFormat, const uint32_t& format, const uint32_t& type)
{
    return setOGLFormat(internalFormat, format, type);
}

bool CORBTextureHeader::setD3DFormat(const uint32_t& d3dFormat)
{
    unsigned long long pixelFormat = 0;
    EORBTVariableType channelType = eVarUnsignedByteNorm;
    EORBTColourSpace colourSpace = eColourSpaceLinear;
    bool preMultiplied = false;
    if (!getOrbCoreFormatD3D(pixelFormat, channelType, colourSpace, preMultiplied, d3dFormat))
        return false;
    setPixelFormat(pixelFormat);
    setChannelType(channelType);
    setColourSpace(colourSpace);
    setIsPreMultiplied(preMultiplied);
    return true;
}

bool CORBTextureHeader::setDXGIFormat(const uint32_t& dxgiFormat)
{
    unsigned long long pixelFormat = 0;
    EORBTVariableType channelType = eVarUnsignedByteNorm;
    EORBTColourSpace colourSpace = eColourSpaceLinear;
    if (!getOrbCoreFormatDXGI(pixelFormat, channelType, colourSpace, dxgiFormat))
        return false;
    setPixelFormat(pixelFormat);
    setChannelType(channelType);
    setColourSpace(colourSpace);
    return true;
}

} // namespace orbtexture
