#ifndef ORBTPIXELCONVERSION_H
#define ORBTPIXELCONVERSION_H

#include <cstdint>

#include "ORBTextureFormat.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// Validation results of CPixelEncoder; 0 means valid.
enum EPixelEncoderError : uint32_t
{
    eEncoderDuplicatedChannels = 1,
    eEncoderChannelWithoutBits = 2,
    eEncoderBitsWithoutChannel = 4,
    eEncoderChannelGap = 8,
    eEncoderTotalBitsNotBytes = 16
};

// One pixel of any channel layout (up to four channels, 128 bits) and channel
// type, with the layout precomputed so that a pixel converts without
// allocation. Conversion goes through 32-bit floats.
//
// A channel whose width equals the element width of its type (8 for types
// 0-3, 16 for 4-7, 32 for 8-11, 16 or 32 for 12 and 13) is stored as element
// 'position' of an array at the start of the pixel. Other layouts are packed
// into one little-endian word of totalBits bits, first channel highest.
class ORBT_API CPixelEncoder
{
public:
    // Channel layout from a pixel type's name letters and widths. A named
    // format gives a meaningless encoder.
    CPixelEncoder(PixelType pixelType, EORBTVariableType variableType);
    CPixelEncoder(EORBTVariableType variableType, uint8_t bits1, uint8_t bits2, uint8_t bits3, uint8_t bits4,
                  EChannelName name1, EChannelName name2, EChannelName name3, EChannelName name4);
    CPixelEncoder(const CPixelEncoder& other);
    CPixelEncoder& operator=(const CPixelEncoder& other) = default;

    uint32_t GetError() const { return error; }
    uint32_t GetBitsPerPixel() const { return totalBits; }
    uint32_t GetColourDataSize() const { return uint32_t(totalBits) >> 3; }
    uint8_t* GetColourData() { return colourData; }
    const uint8_t* GetColourData() const { return colourData; }
    // Copies GetColourDataSize() bytes in; false for a null source.
    bool OverwriteColourData(const uint8_t* source);

    // Element width of the channel type: 8, 16, 32, or 0 beyond type 13.
    uint8_t GetTypeSize() const;

    // Write one channel; a name absent from the layout is ignored.
    void SetChannelUNorm(EChannelName name, const float& value);
    void SetChannelSNorm(EChannelName name, const float& value);
    void SetChannelSFloat(EChannelName name, const float& value);
    void SetChannelUFloat(EChannelName name, const float& value);
    // Read one channel; an absent channel reads 1.0 for alpha and
    // unspecified, 0.0 otherwise.
    float GetChannelFloat(EChannelName name) const;

    // Converts the source's pixel into this one. Does nothing if either
    // encoder is invalid.
    void EncodeFrom(CPixelEncoder& source);
    // Applies the linear/sRGB curve to red, green, blue, luminance and
    // intensity in place; other pairs do nothing.
    void ConvertToColourSpace(EORBTColourSpace target, EORBTColourSpace source);

    // Number conversions between stored channel values and floats.
    static float GrowUNormToFloat(uint32_t value, uint8_t bits);
    static float GrowSNormToFloat(int32_t value, uint8_t bits);
    static uint32_t ShrinkFloatToUNorm(float value, uint8_t bits);
    static uint32_t ShrinkFloatToSNorm(float value, uint8_t bits);
    // Repacks a 32-bit float into a small float by bit manipulation.
    static uint32_t ShrinkFloat(float value, uint8_t mantissaBits, uint8_t exponentBits, int bias, bool hasSign,
                                bool clamp);
    static float GrowFloat(uint32_t value, uint8_t mantissaBits, uint8_t exponentBits, int bias, bool hasSign);

    // sRGB transfer curves.
    static float LinearToSRGB(float value);
    static float SRGBToLinear(float value);

    // The channel's element index when it is stored as a whole element, else
    // its bit mask within the packed word (first channel highest).
    uint64_t GenerateChannelByteMask(uint8_t position) const;
    // Validation: each sets its EPixelEncoderError bit and never clears one.
    // CheckPixelValidity runs the four in this order.
    void CheckPixelValidity();
    void CheckChannelContinuity();
    void CheckDuplicatedChannels();
    void CheckInvalidChannelBits();
    void CheckValidTotalBits();

private:
    void Initialise(const uint8_t bits[4], const EChannelName names[4]);
    // Stored value of the unsigned channel at 'position', as GetChannelFloat reads it.
    uint32_t ReadUnsignedRaw(int position) const;
    // Stores an integer channel value as an element or into the packed word.
    void StoreInteger(int position, uint32_t value);
    bool IsElementStored(uint8_t position) const;

    uint32_t error;
    EORBTVariableType variableType;
    EChannelName channelNames[4];
    uint64_t channelMasks[4];
    int8_t channelIndex[8];
    uint8_t bitOffset[4];
    uint8_t channelBits[4];
    uint8_t channelShift[4];
    uint8_t totalBits;
    uint8_t typeSize;
    uint8_t channelCount;
    alignas(8) uint8_t colourData[16];
};

} // namespace orbtexture

#endif
