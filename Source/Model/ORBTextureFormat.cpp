#include "ORBTextureFormat.h"

#include <cctype>
#include <cstring>
#include <string>

#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureFormatFacts.h"

namespace
{

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
    return orbtexture::DescribeFormat(type.lowWord()).bitsPerPixel;
}

bool ORBTIsASTCFormat(uint64_t pixelFormat) { return orbtexture::IsASTCFormat(pixelFormat); }

void ORBTGetFormatMinDims(uint64_t pixelFormat, unsigned int& x, unsigned int& y, unsigned int& z)
{
    const orbtexture::PixelType type(pixelFormat);
    x = y = z = 1;
    if (type.isNamedFormat())
    {
        const orbtexture::FormatDescriptor& format = orbtexture::DescribeFormat(type.lowWord());
        x = format.minX;
        y = format.minY;
        z = format.minZ;
    }
}

namespace
{

bool EqualIgnoringCase(const char* a, const char* b)
{
    for (; *a && *b; ++a, ++b)
        if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b)))
            return false;
    return *a == *b;
}

bool FailName(const std::string& name, const std::string& reason)
{
    orbtexture::SetLastErrorText(("unknown format '" + name + "'" + (reason.empty() ? "" : ": " + reason)).c_str());
    return false;
}

} // namespace

CORBTString ORBTGetPixelFormatName(uint64_t pixelFormat)
{
    const orbtexture::PixelType type(pixelFormat);
    if (type.isNamedFormat())
    {
        const char* name = orbtexture::DescribeFormat(type.lowWord()).name;
        return CORBTString(name ? name : "");
    }
    std::string name;
    for (unsigned i = 0; i < 4; ++i)
    {
        const uint8_t letter = type.channelName(i), bits = type.channelBits(i);
        if (letter == 0 && bits == 0)
            continue;
        name += std::isalpha(letter) ? char(letter) : '?';
        name += std::to_string(bits);
    }
    return CORBTString(name.c_str());
}

bool ORBTGetPixelFormatFromName(const char* text, uint64_t& pixelFormat)
{
    const std::string name = text ? text : "";
    for (uint32_t format = 0; format < orbtexture::ePF_NumCompressed; ++format)
        if (EqualIgnoringCase(name.c_str(), orbtexture::DescribeFormat(format).name))
        {
            pixelFormat = format;
            orbtexture::SetLastErrorText("");
            return true;
        }
    if (name.empty())
        return FailName(name, "");

    uint8_t letters[4] = {0, 0, 0, 0}, widths[4] = {0, 0, 0, 0};
    unsigned count = 0, totalBits = 0;
    size_t i = 0;
    while (i < name.size())
    {
        const char letter = char(std::tolower(static_cast<unsigned char>(name[i++])));
        if (!std::strchr("rgbalix", letter))
            return FailName(name, std::string("unknown channel letter '") + name[i - 1] + "'");
        if (count == 4)
            return FailName(name, "more than four channels");
        for (unsigned k = 0; k < count; ++k)
            if (letters[k] == uint8_t(letter))
                return FailName(name, std::string("channel '") + letter + "' appears twice");
        unsigned width = 0;
        const size_t digits = i;
        while (i < name.size() && std::isdigit(static_cast<unsigned char>(name[i])) && width <= 32)
            width = width * 10 + unsigned(name[i++] - '0');
        if (i == digits || width == 0 || width > 32)
            return FailName(name, std::string("channel '") + letter + "' needs a width of 1 to 32 bits");
        letters[count] = uint8_t(letter);
        widths[count++] = uint8_t(width);
        totalBits += width;
    }
    if (totalBits % 8 != 0)
        return FailName(name, std::to_string(totalBits) + " bits per pixel is not a whole number of bytes");
    pixelFormat = orbtexture::PixelType(letters[0], letters[1], letters[2], letters[3], widths[0], widths[1],
                                        widths[2], widths[3])
                      .PixelTypeID;
    orbtexture::SetLastErrorText("");
    return true;
}

const char* ORBTGetChannelTypeName(uint32_t channelType)
{
    const orbtexture::ChannelTypeDescriptor* type = orbtexture::DescribeChannelType(channelType);
    return type ? type->name : nullptr;
}

const char* ORBTGetChannelTypeShortName(uint32_t channelType)
{
    const orbtexture::ChannelTypeDescriptor* type = orbtexture::DescribeChannelType(channelType);
    return type ? type->shortName : nullptr;
}

bool ORBTGetChannelTypeFromName(const char* name, uint32_t& channelType)
{
    for (uint32_t type = 0; name && type < orbtexture::eNumVarTypes; ++type)
    {
        const orbtexture::ChannelTypeDescriptor& descriptor = *orbtexture::DescribeChannelType(type);
        if (EqualIgnoringCase(name, descriptor.name) || EqualIgnoringCase(name, descriptor.shortName))
        {
            channelType = type;
            return true;
        }
    }
    return false;
}
