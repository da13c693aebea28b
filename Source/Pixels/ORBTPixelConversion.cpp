#include "ORBTPixelConversion.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <vector>

namespace orbtexture
{
namespace
{

constexpr unsigned kPixelBytes = 16;

// Shifts that give 0 instead of undefined behaviour when the distance reaches
// the width of the type.
uint32_t ShiftLeft32(uint32_t value, unsigned distance) { return distance < 32 ? value << distance : 0; }
uint32_t ShiftRight32(uint32_t value, unsigned distance) { return distance < 32 ? value >> distance : 0; }
uint64_t ShiftLeft64(uint64_t value, unsigned distance) { return distance < 64 ? value << distance : 0; }
uint64_t ShiftRight64(uint64_t value, unsigned distance) { return distance < 64 ? value >> distance : 0; }

// The low n bits set.
uint64_t LowBits(unsigned n) { return n >= 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1; }

// Truncates toward zero and keeps the low 32 bits of the integer, as a
// conversion through an integer type wide enough would: 2.0 at 32 bits gives
// 0xFFFFFFFE, not a saturated or undefined result. fmod is exact, so this holds
// beyond 64 bits too. NaN and infinity give 0.
uint32_t TruncateToUInt32(long double value)
{
    if (value >= 0.0L && value < 4294967296.0L)
        return uint32_t(value);
    if (!std::isfinite(value))
        return 0;
    long double wrapped = std::fmod(std::trunc(value), 4294967296.0L);
    if (wrapped < 0)
        wrapped += 4294967296.0L;
    return uint32_t(wrapped);
}

// 2 to the power bits, minus 1, exact in long double for widths up to 64.
struct WidthMaxima
{
    long double value[65];
    constexpr WidthMaxima() : value()
    {
        long double power = 1.0L;
        for (unsigned b = 0; b <= 64; ++b, power *= 2.0L)
            value[b] = power - 1.0L;
    }
};
constexpr WidthMaxima kWidthMaxima;

long double MaxOfWidth(unsigned bits)
{
    return bits <= 64 ? kWidthMaxima.value[bits] : std::ldexp(1.0L, int(bits)) - 1.0L;
}

// Packed channels share one little-endian word at the start of the pixel;
// only its low 64 bits are addressed.
uint64_t LoadPackedWord(const uint8_t* data)
{
    uint64_t word = 0;
    for (int i = 7; i >= 0; --i)
        word = word << 8 | data[i];
    return word;
}

void StorePackedWord(uint8_t* data, uint64_t word)
{
    for (int i = 0; i < 8; ++i, word >>= 8)
        data[i] = uint8_t(word);
}

// Whole-element channels are native elements of 1, 2 or 4 bytes, 'index'
// counted from the start of the pixel. An index outside the pixel (a packed
// channel's bit mask taken as an index) reads 0 and writes nothing.
bool ElementInPixel(uint64_t index, unsigned bytes) { return bytes != 0 && index < kPixelBytes / bytes; }

uint32_t LoadElement(const uint8_t* data, uint64_t index, unsigned bytes)
{
    if (!ElementInPixel(index, bytes))
        return 0;
    const uint8_t* at = data + index * bytes;
    if (bytes == 1)
        return *at;
    if (bytes == 2)
    {
        uint16_t value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// Signed elements are sign-extended from their own width.
int32_t LoadSignedElement(const uint8_t* data, uint64_t index, unsigned bytes)
{
    if (!ElementInPixel(index, bytes))
        return 0;
    const uint8_t* at = data + index * bytes;
    if (bytes == 1)
    {
        int8_t value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    if (bytes == 2)
    {
        int16_t value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    int32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

void StoreElement(uint8_t* data, uint64_t index, unsigned bytes, uint32_t value)
{
    if (!ElementInPixel(index, bytes))
        return;
    uint8_t* at = data + index * bytes;
    if (bytes == 1)
    {
        *at = uint8_t(value);
    }
    else if (bytes == 2)
    {
        const uint16_t narrow = uint16_t(value);
        std::memcpy(at, &narrow, sizeof narrow);
    }
    else
    {
        std::memcpy(at, &value, sizeof value);
    }
}

// Clears the channel's mask and ORs the value in unmasked, so bits above the
// channel's width land in the neighbouring channel.
void StorePacked(uint8_t* data, uint64_t mask, unsigned shift, uint32_t value)
{
    StorePackedWord(data, (LoadPackedWord(data) & ~mask) | ShiftLeft64(value, shift));
}

uint32_t FloatBits(float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float BitsToFloat(uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Half float and the unsigned 11 and 10-bit floats of packed layouts.
constexpr uint8_t kHalfMantissa = 10;
constexpr uint8_t kFloat11Mantissa = 6;
constexpr uint8_t kFloat10Mantissa = 5;
constexpr uint8_t kSmallFloatExponent = 5;
constexpr int kSmallFloatBias = 15;

using ChannelWriter = void (CPixelEncoder::*)(EChannelName, const float&);

bool IsSignedIntegerType(EORBTVariableType type) { return type <= eVarSignedInteger && (type & 1) != 0; }
bool IsUnsignedIntegerType(EORBTVariableType type) { return type <= eVarUnsignedInteger && (type & 1) == 0; }

} // namespace

CPixelEncoder::CPixelEncoder(PixelType pixelType, EORBTVariableType variableType) : variableType(variableType)
{
    uint8_t bits[4];
    EChannelName names[4];
    for (unsigned p = 0; p < 4; ++p)
    {
        bits[p] = pixelType.channelBits(p);
        names[p] = MapCharToEnum(pixelType.channelName(p));
    }
    Initialise(bits, names);
}

CPixelEncoder::CPixelEncoder(EORBTVariableType variableType, uint8_t bits1, uint8_t bits2, uint8_t bits3,
                             uint8_t bits4, EChannelName name1, EChannelName name2, EChannelName name3,
                             EChannelName name4)
    : variableType(variableType)
{
    const uint8_t bits[4] = {bits1, bits2, bits3, bits4};
    const EChannelName names[4] = {name1, name2, name3, name4};
    Initialise(bits, names);
}

CPixelEncoder::CPixelEncoder(const CPixelEncoder& other)
{
    *this = other;
    typeSize = GetTypeSize();
}

void CPixelEncoder::Initialise(const uint8_t bits[4], const EChannelName names[4])
{
    error = 0;
    std::memset(colourData, 0, sizeof colourData);

    unsigned total = 0;
    channelCount = 0;
    for (unsigned p = 0; p < 4; ++p)
    {
        channelNames[p] = names[p];
        channelBits[p] = bits[p];
        total += bits[p];
        if (names[p] != eChannelNone)
            ++channelCount;
    }
    // Widths are bytes, so a layout of more than 255 bits wraps here; such a
    // layout is outside what the packed path supports anyway.
    totalBits = uint8_t(total);

    std::fill(std::begin(channelIndex), std::end(channelIndex), int8_t(-1));
    for (unsigned p = 0; p < 4; ++p)
    {
        if (names[p] < 8)
            channelIndex[names[p]] = int8_t(p);
    }
    channelIndex[eChannelNone] = -1;

    uint8_t offset = 0;
    for (uint8_t p = 0; p < 4; ++p)
    {
        bitOffset[p] = offset;
        offset = uint8_t(offset + channelBits[p]);
        channelMasks[p] = GenerateChannelByteMask(p);
        channelShift[p] = uint8_t(totalBits - bitOffset[p] - channelBits[p]);
    }

    typeSize = GetTypeSize();
    CheckPixelValidity();
}

uint8_t CPixelEncoder::GetTypeSize() const
{
    if (variableType <= eVarSignedByte)
        return 8;
    if (variableType <= eVarSignedShort)
        return 16;
    if (variableType <= eVarUnsignedFloat)
        return 32;
    return 0;
}

bool CPixelEncoder::IsElementStored(uint8_t position) const
{
    const uint8_t width = channelBits[position];
    if (variableType == eVarSignedFloat || variableType == eVarUnsignedFloat)
        return width == 16 || width == 32;
    return variableType < eVarSignedFloat && width == GetTypeSize();
}

uint64_t CPixelEncoder::GenerateChannelByteMask(uint8_t position) const
{
    if (IsElementStored(position))
        return position;

    // The first channel takes the most significant bits of the word.
    const unsigned low = bitOffset[position];
    const unsigned high = low + channelBits[position];
    uint64_t mask = 0;
    for (unsigned n = 1; n <= totalBits; ++n)
    {
        if (low < n && n <= high && totalBits - n < 64)
            mask |= uint64_t(1) << (totalBits - n);
    }
    return mask;
}

void CPixelEncoder::CheckPixelValidity()
{
    CheckChannelContinuity();
    CheckDuplicatedChannels();
    CheckInvalidChannelBits();
    CheckValidTotalBits();
}

void CPixelEncoder::CheckChannelContinuity()
{
    bool sawAbsent = false;
    for (unsigned p = 0; p < 4; ++p)
    {
        if (channelNames[p] == eChannelNone)
            sawAbsent = true;
        else if (sawAbsent)
            error |= eEncoderChannelGap;
    }
}

void CPixelEncoder::CheckDuplicatedChannels()
{
    for (unsigned p = 0; p < 4; ++p)
    {
        for (unsigned q = p + 1; q < 4; ++q)
        {
            if (channelNames[p] != eChannelNone && channelNames[p] == channelNames[q])
                error |= eEncoderDuplicatedChannels;
        }
    }
}

void CPixelEncoder::CheckInvalidChannelBits()
{
    for (unsigned p = 0; p < 4; ++p)
    {
        if (channelNames[p] != eChannelNone && channelBits[p] == 0)
            error |= eEncoderChannelWithoutBits;
        if (channelNames[p] == eChannelNone && channelBits[p] != 0)
            error |= eEncoderBitsWithoutChannel;
    }
}

void CPixelEncoder::CheckValidTotalBits()
{
    if (totalBits % 8 != 0)
        error |= eEncoderTotalBitsNotBytes;
}

bool CPixelEncoder::OverwriteColourData(const uint8_t* source)
{
    if (source == nullptr)
        return false;
    // Never more than the pixel holds, whatever the layout claims.
    std::memcpy(colourData, source, std::min<uint32_t>(GetColourDataSize(), kPixelBytes));
    return true;
}

// Number conversions. Intermediates are long double; results truncate.

namespace
{

float GrowUNormExact(uint32_t value, unsigned bits)
{
    return float(static_cast<long double>(value) / MaxOfWidth(bits));
}

// The results for widths up to 8 bits, and lazily for 16, so that the common
// layouts read a channel without a long double division.
struct SmallGrowTable
{
    float value[9][256];
    SmallGrowTable()
    {
        for (unsigned bits = 1; bits <= 8; ++bits)
            for (uint32_t v = 0; v < 256; ++v)
                value[bits][v] = GrowUNormExact(v, bits);
    }
};
const SmallGrowTable kSmallGrowTable;

const float* GrowTable16()
{
    static const std::vector<float> table = [] {
        std::vector<float> values(65536);
        for (uint32_t v = 0; v < 65536; ++v)
            values[v] = GrowUNormExact(v, 16);
        return values;
    }();
    return table.data();
}

} // namespace

float CPixelEncoder::GrowUNormToFloat(uint32_t value, uint8_t bits)
{
    // A zero-width channel holds nothing; avoid dividing by zero.
    if (bits == 0)
        return 0.0f;
    if (bits <= 8 && value < 256)
        return kSmallGrowTable.value[bits][value];
    if (bits == 16 && value < 65536)
        return GrowTable16()[value];
    return GrowUNormExact(value, bits);
}

float CPixelEncoder::GrowSNormToFloat(int32_t value, uint8_t bits)
{
    if (bits == 0)
        return 0.0f;
    // Sign and magnitude, in 32-bit arithmetic: h is the sign-extended top
    // bit, d the divisor it adjusts.
    const unsigned s = bits - 1u;
    const int32_t h = value >> std::min(s, 31u);
    const int32_t d = int32_t(uint32_t(h) + ShiftLeft32(1, s) - 1u);
    if (d == 0)
        return float(value);
    if (h == 0)
        return float(static_cast<long double>(value) / d);
    const int32_t magnitude = int32_t(uint32_t(value) & ~ShiftLeft32(uint32_t(h), s));
    return float(-(static_cast<long double>(magnitude) / d));
}

uint32_t CPixelEncoder::ShrinkFloatToUNorm(float value, uint8_t bits)
{
    // Up to 16 bits and values up to 2^16 double arithmetic gives the same
    // integer: the product of a float and 2^bits - 1 is exact in 53 bits, and
    // the sum with 0.5 that double rounds lies a multiple of 2^(e - 23) (e the
    // value's exponent) from any integer, far more than its rounding error, so
    // the rounding never reaches the next integer.
    if (bits <= 16 && value >= 0.0f && value <= 65536.0f)
        return uint32_t(double(value) * double(MaxOfWidth(bits)) + 0.5);
    const long double v = value < 0.0f ? 0.0L : static_cast<long double>(value);
    return TruncateToUInt32(v * MaxOfWidth(bits) + 0.5L);
}

uint32_t CPixelEncoder::ShrinkFloatToSNorm(float value, uint8_t bits)
{
    const uint32_t negative = value < 0.0f ? 1 : 0;
    const long double scale = bits != 0 ? negative + MaxOfWidth(bits - 1u) : negative + std::ldexp(1.0L, -1) - 1.0L;
    const uint32_t magnitude = TruncateToUInt32(std::fabs(static_cast<long double>(value)) * scale + 0.5L);
    return (bits != 0 ? ShiftLeft32(negative, bits - 1u) : 0) | magnitude;
}

uint32_t CPixelEncoder::ShrinkFloat(float value, uint8_t mantissaBits, uint8_t exponentBits, int bias, bool hasSign,
                                    bool clamp)
{
    (void)hasSign; // the sign bit is copied regardless
    const uint32_t in = FloatBits(value);
    const uint32_t inExponent = (in >> 23) & 0xFF;
    const uint32_t inMantissa = in & 0x7FFFFF;

    const uint32_t sign = ShiftLeft32(in >> 31, unsigned(mantissaBits) + exponentBits);
    // The rebiased exponent is not range checked: in unsigned arithmetic a
    // negative or oversized one spills into the sign bit and above.
    uint32_t exponent = inExponent == 0 ? 0 : ShiftLeft32(inExponent + uint32_t(bias) - 127u, mantissaBits);
    uint32_t mantissa =
        mantissaBits <= 23 ? inMantissa >> (23 - mantissaBits) : ShiftLeft32(inMantissa, mantissaBits - 23u);

    // Compares the shifted exponent with the unshifted all-ones field, so this
    // only ever triggers without mantissa bits.
    const uint64_t allOnes = LowBits(exponentBits);
    if (clamp && exponent == allOnes && inExponent != 255)
    {
        exponent = uint32_t(allOnes - 1);
        if (mantissa == 0 && inMantissa != 0)
            mantissa = 1;
    }
    return sign | exponent | mantissa;
}

float CPixelEncoder::GrowFloat(uint32_t value, uint8_t mantissaBits, uint8_t exponentBits, int bias, bool hasSign)
{
    const uint32_t sign =
        hasSign ? ShiftLeft32(ShiftRight32(value, unsigned(mantissaBits) + exponentBits) & 1u, 31) : 0;
    const uint32_t rawMantissa = value & uint32_t(LowBits(mantissaBits));
    const uint32_t mantissa =
        mantissaBits <= 23 ? rawMantissa << (23 - mantissaBits) : ShiftRight32(rawMantissa, mantissaBits - 23u);
    const uint64_t allOnes = LowBits(exponentBits);
    const uint64_t field = ShiftRight32(value, mantissaBits) & allOnes;

    // An all-ones exponent is no infinity: the result keeps a zero exponent
    // with 255 in the low mantissa bits. A zero field is not special either.
    if (field == allOnes)
        return BitsToFloat(sign | mantissa | 255u);
    return BitsToFloat(sign | mantissa | (uint32_t(field) - uint32_t(bias) + 127u) << 23);
}

// Transfer curves; their constants are the 32-bit floats below, the exponents
// are double constants.

float CPixelEncoder::LinearToSRGB(float value)
{
    const long double v = value;
    if (v <= 0.00304f)
        return float(v * 12.92f);
    return float(std::pow(v, static_cast<long double>(0.4166666567325592)) * 1.0556f - 0.0556f);
}

float CPixelEncoder::SRGBToLinear(float value)
{
    const long double v = value;
    if (v <= 0.03928f)
        return float(v * 0.07739938f);
    return float(std::pow((v + 0.0556f) * 0.9473285f, static_cast<long double>(2.4000000953674316)));
}

namespace
{

// The curves at the 256 values of an 8-bit unsigned normalised channel.
struct CurveTables
{
    float linearToSRGB[256];
    float sRGBToLinear[256];
    CurveTables()
    {
        for (uint32_t v = 0; v < 256; ++v)
        {
            linearToSRGB[v] = CPixelEncoder::LinearToSRGB(CPixelEncoder::GrowUNormToFloat(v, 8));
            sRGBToLinear[v] = CPixelEncoder::SRGBToLinear(CPixelEncoder::GrowUNormToFloat(v, 8));
        }
    }
};
const CurveTables kCurveTables;

} // namespace

// Channel access.

void CPixelEncoder::StoreInteger(int p, uint32_t value)
{
    if (typeSize == channelBits[p] && (typeSize == 8 || typeSize == 16 || typeSize == 32))
        StoreElement(colourData, channelMasks[p], typeSize / 8u, value);
    else
        StorePacked(colourData, channelMasks[p], channelShift[p], value);
}

void CPixelEncoder::SetChannelUNorm(EChannelName name, const float& value)
{
    if (name >= 8 || channelIndex[name] < 0)
        return;
    const int p = channelIndex[name];
    StoreInteger(p, ShrinkFloatToUNorm(value, channelBits[p]));
}

void CPixelEncoder::SetChannelSNorm(EChannelName name, const float& value)
{
    if (name >= 8 || channelIndex[name] < 0)
        return;
    const int p = channelIndex[name];
    StoreInteger(p, ShrinkFloatToSNorm(value, channelBits[p]));
}

void CPixelEncoder::SetChannelSFloat(EChannelName name, const float& value)
{
    if (name >= 8 || channelIndex[name] < 0)
        return;
    const int p = channelIndex[name];
    if (channelBits[p] == 16)
        StoreElement(colourData, channelMasks[p], 2,
                     ShrinkFloat(value, kHalfMantissa, kSmallFloatExponent, kSmallFloatBias, true, true));
    else if (channelBits[p] == 32)
        StoreElement(colourData, channelMasks[p], 4, FloatBits(value));
}

void CPixelEncoder::SetChannelUFloat(EChannelName name, const float& value)
{
    if (name >= 8 || channelIndex[name] < 0)
        return;
    const int p = channelIndex[name];
    switch (channelBits[p])
    {
    case 11:
        StorePacked(colourData, channelMasks[p], channelShift[p],
                    ShrinkFloat(value, kFloat11Mantissa, kSmallFloatExponent, kSmallFloatBias, false, true));
        break;
    case 10:
        StorePacked(colourData, channelMasks[p], channelShift[p],
                    ShrinkFloat(value, kFloat10Mantissa, kSmallFloatExponent, kSmallFloatBias, false, true));
        break;
    case 16:
        StoreElement(colourData, channelMasks[p], 2,
                     ShrinkFloat(value, kHalfMantissa, kSmallFloatExponent, kSmallFloatBias, false, true));
        break;
    default: StorePacked(colourData, channelMasks[p], channelShift[p], 0); break;
    }
}

uint32_t CPixelEncoder::ReadUnsignedRaw(int p) const
{
    if (channelCount != 0 && totalBits / channelCount == typeSize)
        return LoadElement(colourData, channelMasks[p], typeSize / 8u);
    return uint32_t(ShiftRight64(LoadPackedWord(colourData) & channelMasks[p], channelShift[p]));
}

float CPixelEncoder::GetChannelFloat(EChannelName name) const
{
    if (name >= 8 || channelIndex[name] < 0)
        return name == eChannelAlpha || name == eChannelUnspecified ? 1.0f : 0.0f;
    if (variableType > eVarUnsignedFloat)
        return 0.0f;

    const int p = channelIndex[name];
    const uint8_t width = channelBits[p];
    const auto packed = [&] { return ShiftRight64(LoadPackedWord(colourData) & channelMasks[p], channelShift[p]); };

    if (variableType <= eVarSignedInteger)
    {
        // Element reads follow their own test, not the storage rule.
        const bool element = channelCount != 0 && totalBits / channelCount == typeSize;
        if ((variableType & 1) == 0)
            return GrowUNormToFloat(ReadUnsignedRaw(p), width);
        int32_t value;
        if (element)
        {
            value = LoadSignedElement(colourData, channelMasks[p], typeSize / 8u);
        }
        else
        {
            // Low 32 bits of the word, shifted arithmetically.
            const int32_t low = int32_t(uint32_t(LoadPackedWord(colourData) & channelMasks[p]));
            value = low >> std::min<unsigned>(channelShift[p], 31u);
        }
        return GrowSNormToFloat(value, width);
    }

    if (variableType == eVarSignedFloat)
    {
        if (width == 16)
            return GrowFloat(LoadElement(colourData, channelMasks[p], 2), kHalfMantissa, kSmallFloatExponent,
                             kSmallFloatBias, true);
        if (width == 32)
            return BitsToFloat(LoadElement(colourData, channelMasks[p], 4));
    }

    switch (width)
    {
    case 16:
        return GrowFloat(LoadElement(colourData, channelMasks[p], 2), kHalfMantissa, kSmallFloatExponent,
                         kSmallFloatBias, false);
    case 11:
        return GrowFloat(uint32_t(packed()), kFloat11Mantissa, kSmallFloatExponent, kSmallFloatBias, false);
    case 10:
        return GrowFloat(uint32_t(packed()), kFloat10Mantissa, kSmallFloatExponent, kSmallFloatBias, false);
    default: return 0.0f;
    }
}

// Conversion.

void CPixelEncoder::EncodeFrom(CPixelEncoder& source)
{
    if (error != 0 || source.error != 0)
        return;

    std::memset(colourData, 0, sizeof colourData);
    float luminance = 0.0f;
    float intensity = 0.0f;
    float fallback = 0.0f;

    const auto has = [](const CPixelEncoder& encoder, EChannelName name) { return encoder.channelIndex[name] >= 0; };
    const bool sourceLuminance = has(source, eChannelLuminance);
    const bool sourceIntensity = has(source, eChannelIntensity);
    const bool targetLuminance = has(*this, eChannelLuminance);
    const bool targetIntensity = has(*this, eChannelIntensity);

    if (sourceLuminance || sourceIntensity || targetLuminance || targetIntensity)
    {
        if (sourceLuminance && targetLuminance)
            luminance = fallback = source.GetChannelFloat(eChannelLuminance);
        else if (targetIntensity)
            intensity = fallback = source.GetChannelFloat(sourceIntensity ? eChannelIntensity : eChannelLuminance);
        else if (sourceIntensity)
            luminance = fallback = source.GetChannelFloat(eChannelIntensity);
        else if (sourceLuminance)
            intensity = fallback = source.GetChannelFloat(eChannelLuminance);

        if (!sourceLuminance && !sourceIntensity)
        {
            const EChannelName colours[3] = {eChannelRed, eChannelGreen, eChannelBlue};
            const long double weights[3] = {0.2126L, 0.7152L, 0.0722L};
            long double weighted = 0.0L;
            long double sum = 0.0L;
            unsigned count = 0;
            for (unsigned c = 0; c < 3; ++c)
            {
                if (!has(source, colours[c]))
                    continue;
                const long double value = source.GetChannelFloat(colours[c]);
                weighted += weights[c] * value;
                sum += value;
                ++count;
            }
            if (targetLuminance)
                luminance = float(weighted);
            else
                intensity = count != 0 ? float(sum / count) : 0.0f;
        }
    }

    ChannelWriter write;
    if (IsUnsignedIntegerType(variableType))
        write = &CPixelEncoder::SetChannelUNorm;
    else if (IsSignedIntegerType(variableType))
        write = &CPixelEncoder::SetChannelSNorm;
    else if (variableType == eVarSignedFloat)
        write = &CPixelEncoder::SetChannelSFloat;
    else if (variableType == eVarUnsignedFloat)
        write = &CPixelEncoder::SetChannelUFloat;
    else
        return;

    const auto sourceOr = [&](EChannelName first, EChannelName second, float otherwise) {
        if (has(source, first))
            return source.GetChannelFloat(first);
        if (has(source, second))
            return source.GetChannelFloat(second);
        return otherwise;
    };

    for (EChannelName name : {eChannelRed, eChannelGreen, eChannelBlue, eChannelAlpha, eChannelLuminance,
                              eChannelIntensity, eChannelUnspecified})
    {
        if (!has(*this, name))
            continue;
        float value;
        switch (name)
        {
        case eChannelAlpha: value = sourceOr(eChannelAlpha, eChannelUnspecified, 1.0f); break;
        case eChannelUnspecified: value = sourceOr(eChannelUnspecified, eChannelAlpha, 1.0f); break;
        case eChannelLuminance: value = luminance; break;
        case eChannelIntensity: value = intensity; break;
        default: value = has(source, name) ? source.GetChannelFloat(name) : fallback; break;
        }
        (this->*write)(name, value);
    }
}

void CPixelEncoder::ConvertToColourSpace(EORBTColourSpace target, EORBTColourSpace source)
{
    float (*curve)(float);
    if (target == eColourSpaceSRGB && source == eColourSpaceLinear)
        curve = &LinearToSRGB;
    else if (target == eColourSpaceLinear && source == eColourSpaceSRGB)
        curve = &SRGBToLinear;
    else
        return;

    ChannelWriter write;
    if (IsSignedIntegerType(variableType))
        write = &CPixelEncoder::SetChannelSNorm;
    else if (IsUnsignedIntegerType(variableType))
        write = &CPixelEncoder::SetChannelUNorm;
    else if (variableType == eVarSignedFloat || variableType == eVarUnsignedFloat)
        write = &CPixelEncoder::SetChannelSFloat;
    else
        return;

    // 8-bit unsigned channels take the curve from a table of their 256 values.
    const float* table = nullptr;
    if (IsUnsignedIntegerType(variableType))
        table = curve == &LinearToSRGB ? kCurveTables.linearToSRGB : kCurveTables.sRGBToLinear;

    // Alpha and the unspecified channel keep their values.
    for (EChannelName name : {eChannelRed, eChannelGreen, eChannelBlue, eChannelLuminance, eChannelIntensity})
    {
        const int p = channelIndex[name];
        if (table && p >= 0 && channelBits[p] == 8)
        {
            const uint32_t raw = ReadUnsignedRaw(p);
            if (raw < 256)
            {
                SetChannelUNorm(name, table[raw]);
                continue;
            }
        }
        (this->*write)(name, curve(GetChannelFloat(name)));
    }
}

} // namespace orbtexture
