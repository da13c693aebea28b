#ifndef ORBTEXTUREFORMAT_H
#define ORBTEXTUREFORMAT_H

#include <cstdint>

#include "Tools/ORBTDefines.h"
#include "Tools/ORBTString.h"

namespace orbtexture
{

// Enumerations stored in files have a fixed underlying type, so any value read
// from a file is representable.

// Named formats. The values are stored in files and never change.
enum EORBTPixelFormat : uint32_t
{
    ePF_ORBTC_2bpp_RGB = 0,
    ePF_ORBTC_2bpp_RGBA = 1,
    ePF_ORBTC_4bpp_RGB = 2,
    ePF_ORBTC_4bpp_RGBA = 3,
    ePF_ORBTCII_2bpp = 4,
    ePF_ORBTCII_4bpp = 5,
    ePF_ETC1 = 6,
    ePF_DXT1 = 7,
    ePF_DXT2 = 8,
    ePF_DXT3 = 9,
    ePF_DXT4 = 10,
    ePF_DXT5 = 11,
    ePF_BC4 = 12,
    ePF_BC5 = 13,
    ePF_BC6 = 14,
    ePF_BC7 = 15,
    ePF_UYVY = 16,
    ePF_YUY2 = 17,
    ePF_BW1bpp = 18,
    ePF_RGB9E5 = 19,
    ePF_RGBG8888 = 20,
    ePF_GRGB8888 = 21,
    ePF_ETC2_RGB = 22,
    ePF_ETC2_RGBA = 23,
    ePF_ETC2_RGB_A1 = 24,
    ePF_EAC_R11 = 25,
    ePF_EAC_RG11 = 26,
    ePF_ASTC_4x4 = 27,
    ePF_ASTC_5x4 = 28,
    ePF_ASTC_5x5 = 29,
    ePF_ASTC_6x5 = 30,
    ePF_ASTC_6x6 = 31,
    ePF_ASTC_8x5 = 32,
    ePF_ASTC_8x6 = 33,
    ePF_ASTC_8x8 = 34,
    ePF_ASTC_10x5 = 35,
    ePF_ASTC_10x6 = 36,
    ePF_ASTC_10x8 = 37,
    ePF_ASTC_10x10 = 38,
    ePF_ASTC_12x10 = 39,
    ePF_ASTC_12x12 = 40,
    ePF_ASTC_3x3x3 = 41,
    ePF_ASTC_4x3x3 = 42,
    ePF_ASTC_4x4x3 = 43,
    ePF_ASTC_4x4x4 = 44,
    ePF_ASTC_5x4x4 = 45,
    ePF_ASTC_5x5x4 = 46,
    ePF_ASTC_5x5x5 = 47,
    ePF_ASTC_6x5x5 = 48,
    ePF_ASTC_6x6x5 = 49,
    ePF_ASTC_6x6x6 = 50,
    ePF_NumCompressed = 51
};

// Data type of a channel.
enum EORBTVariableType : uint32_t
{
    eVarUnsignedByteNorm = 0,
    eVarSignedByteNorm = 1,
    eVarUnsignedByte = 2,
    eVarSignedByte = 3,
    eVarUnsignedShortNorm = 4,
    eVarSignedShortNorm = 5,
    eVarUnsignedShort = 6,
    eVarSignedShort = 7,
    eVarUnsignedIntegerNorm = 8,
    eVarSignedIntegerNorm = 9,
    eVarUnsignedInteger = 10,
    eVarSignedInteger = 11,
    eVarSignedFloat = 12,
    eVarUnsignedFloat = 13,
    eNumVarTypes = 14
};

enum EORBTColourSpace : uint32_t
{
    eColourSpaceLinear = 0,
    eColourSpaceSRGB = 1
};

enum EChannelName : uint32_t
{
    eChannelNone = 0,
    eChannelRed = 1,
    eChannelGreen = 2,
    eChannelBlue = 3,
    eChannelAlpha = 4,
    eChannelLuminance = 5,
    eChannelIntensity = 6,
    eChannelUnspecified = 7
};

enum EORBTAxis : uint32_t
{
    eAxisX = 0,
    eAxisY = 1,
    eAxisZ = 2
};

// One bit per axis; 0 is right, down, in.
enum EORBTOrientation : uint32_t
{
    eOrientRight = 0,
    eOrientLeft = 1,
    eOrientDown = 0,
    eOrientUp = 2,
    eOrientIn = 0,
    eOrientOut = 4
};

// Compression effort. The pipeline passes it through unchanged; each codec
// gives its own meaning to the values.
enum ECompressorQuality : int
{
};

// 64-bit pixel format identifier. A high word of zero means a named format
// (the low word is an EORBTPixelFormat); otherwise four channel name letters
// (low word) and four channel bit widths (high word), first channel in the
// lowest byte.
union ORBT_API PixelType
{
    PixelType() : PixelTypeID(0) {}
    PixelType(uint64_t type) : PixelTypeID(type) {}
    PixelType(uint8_t c1Name, uint8_t c2Name, uint8_t c3Name, uint8_t c4Name,
              uint8_t c1Bits, uint8_t c2Bits, uint8_t c3Bits, uint8_t c4Bits)
        : PixelTypeID(uint64_t(c1Name) | uint64_t(c2Name) << 8 | uint64_t(c3Name) << 16 |
                      uint64_t(c4Name) << 24 | uint64_t(c1Bits) << 32 | uint64_t(c2Bits) << 40 |
                      uint64_t(c3Bits) << 48 | uint64_t(c4Bits) << 56)
    {
    }

    uint32_t lowWord() const { return uint32_t(PixelTypeID); }
    uint32_t highWord() const { return uint32_t(PixelTypeID >> 32); }
    bool isNamedFormat() const { return highWord() == 0; }
    // Channel i (0..3): name letter and bit width of a channel layout.
    uint8_t channelName(unsigned i) const { return uint8_t(PixelTypeID >> (8 * i)); }
    uint8_t channelBits(unsigned i) const { return uint8_t(PixelTypeID >> (32 + 8 * i)); }

    uint64_t PixelTypeID;
    uint8_t PixelTypeChar[8];
};

inline bool operator==(const PixelType& a, const PixelType& b) { return a.PixelTypeID == b.PixelTypeID; }
inline bool operator!=(const PixelType& a, const PixelType& b) { return a.PixelTypeID != b.PixelTypeID; }

// One decoded pixel of a standard pixel type.
template <typename T>
struct Pixel
{
    T red;
    T green;
    T blue;
    T alpha;
};

// 'r','g','b','a' at 8, 16 and 32 bits a channel.
constexpr uint64_t ORBStandard8PixelType = 0x0808080861626772ULL;
constexpr uint64_t ORBStandard16PixelType = 0x1010101061626772ULL;
constexpr uint64_t ORBStandard32PixelType = 0x2020202061626772ULL;

// True for rgba8 unsigned-byte-norm, rgba16 unsigned-short-norm, and rgba32
// unsigned-integer-norm or signed float: the layouts image operations accept.
ORBT_API bool isStandardPixelType(PixelType pixelType, EORBTVariableType channelType);

// Channel letter ('r','g','b','a','l','i','x') to EChannelName and back; 0 for anything else.
ORBT_API EChannelName MapCharToEnum(uint8_t letter);
ORBT_API uint8_t MapEnumToChar(EChannelName channel);

// Pixel format, channel type and colour space to and from the format codes of
// the graphics APIs (ORBTextureFormatMaps.cpp). True when a mapping exists.
// getOpenGLFormat answers the internal format, the base internal format (the
// internal format OpenGL ES takes), format, type and type size; on false it
// writes 0 to all five for a channel layout, and for a named format 0 to
// format and type and 1 to type size, leaving the internal formats.
// getDirect3DFormat answers a Direct3D 9 format (a FourCC as a little-endian
// word for the compressed formats), getDirectXGIFormat a DXGI format; both
// write 0 on false. A colour space other than sRGB counts as linear. The
// inverse functions leave their outputs unchanged when they answer false;
// getOrbCoreFormatOGL never reads glFormat.
ORBT_API bool getOpenGLFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                              const EORBTColourSpace& colourSpace, unsigned int& glInternalFormat,
                              unsigned int& glBaseInternalFormat, unsigned int& glFormat, unsigned int& glType,
                              unsigned int& glTypeSize);
ORBT_API bool getDirect3DFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                                const EORBTColourSpace& colourSpace, unsigned int& d3dFormat);
ORBT_API bool getDirectXGIFormat(const unsigned long long& pixelFormat, const EORBTVariableType& channelType,
                                 const EORBTColourSpace& colourSpace, unsigned int& dxgiFormat);
ORBT_API bool getOrbCoreFormatOGL(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                                  EORBTColourSpace& colourSpace, const unsigned int& glInternalFormat,
                                  const unsigned int& glFormat, const unsigned int& glType);
ORBT_API bool getOrbCoreFormatD3D(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                                  EORBTColourSpace& colourSpace, bool& isPreMultiplied,
                                  const unsigned int& d3dFormat);
ORBT_API bool getOrbCoreFormatDXGI(unsigned long long& pixelFormat, EORBTVariableType& channelType,
                                   EORBTColourSpace& colourSpace, const unsigned int& dxgiFormat);

} // namespace orbtexture

// Bits per pixel: the sum of the widths for a channel layout, a table entry
// for a named format, 0 for ASTC, BC6, BC7 and unknown named formats.
ORBT_API uint32_t ORBTGetBitsPerPixel(uint64_t pixelFormat);

// Smallest storable unit of a format, which every surface is rounded up to;
// 1 x 1 x 1 for channel layouts.
ORBT_API void ORBTGetFormatMinDims(uint64_t pixelFormat, unsigned int& x, unsigned int& y, unsigned int& z);

// True for the ASTC formats, 2D and 3D.
ORBT_API bool ORBTIsASTCFormat(uint64_t pixelFormat);

// Name of a pixel format: a named format by its enumerator name without
// "ePF_" ("ETC2_RGB"), a channel layout as its letters and widths in channel
// order ("r5g6b5"; a byte that is no printable letter shows as '?'). Empty
// for a named value beyond ePF_NumCompressed.
ORBT_API CORBTString ORBTGetPixelFormatName(uint64_t pixelFormat);

// Reads a name of either form, in any case: a named format below
// ePF_NumCompressed, or up to four channels of "rgbalix" each followed by a
// width of 1 to 32 bits, whole bytes in total and no letter twice. False for
// anything else, with the reason in ORBTGetLastError() (ORBTextureInfo.h).
ORBT_API bool ORBTGetPixelFormatFromName(const char* name, uint64_t& pixelFormat);

// Names of a channel type: the enumerator name without "eVar"
// ("UnsignedByteNorm") and the short name ("ubn"); null beyond eNumVarTypes.
ORBT_API const char* ORBTGetChannelTypeName(uint32_t channelType);
ORBT_API const char* ORBTGetChannelTypeShortName(uint32_t channelType);

// Reads a channel type by either name, in any case.
ORBT_API bool ORBTGetChannelTypeFromName(const char* name, uint32_t& channelType);

#endif
