#include "ImageOperations.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "TextureInput.h"

namespace cli
{

using namespace orbtexture;

namespace
{

// A whole decimal number within [lowest, highest].
bool ParseInteger(const std::string& text, long lowest, long highest, long& value)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= lowest && value <= highest;
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts(1);
    for (char c : text)
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    return parts;
}

// WxH or WxHxD, each from 1.
bool ParseSize(const std::string& text, unsigned (&size)[3])
{
    const std::vector<std::string> parts = Split(text, 'x');
    if (parts.size() < 2 || parts.size() > 3)
        return false;
    for (size_t i = 0; i < 3; ++i)
    {
        long value = 1;
        if (i < parts.size() && !ParseInteger(parts[i], 1, 0xFFFFFFFFL, value))
            return false;
        size[i] = unsigned(value);
    }
    return true;
}

bool ParseAxis(const std::string& text, EORBTAxis& axis)
{
    if (text != "x" && text != "y" && text != "z")
        return false;
    axis = EORBTAxis(text[0] - 'x');
    return true;
}

bool ParseCanvas(const std::string& text, ImageOperations& operations)
{
    const size_t offsets = text.find_first_of("+-");
    if (!ParseSize(text.substr(0, offsets), operations.canvasSize))
        return false;
    if (offsets == std::string::npos)
        return true;
    // Signed numbers, each introduced by its sign.
    std::vector<std::string> numbers;
    for (size_t i = offsets; i < text.size(); ++i)
    {
        if (text[i] == '+' || text[i] == '-')
            numbers.emplace_back(text[i] == '-' ? "-" : "");
        else
            numbers.back() += text[i];
    }
    if (numbers.size() < 2 || numbers.size() > 3)
        return false;
    for (size_t i = 0; i < numbers.size(); ++i)
    {
        long value = 0;
        if (numbers[i] == "-" || !ParseInteger(numbers[i], -2147483647L - 1, 2147483647L, value))
            return false;
        operations.canvasOffset[i] = int(value);
    }
    return true;
}

bool ParseBorder(const std::string& text, unsigned (&border)[3])
{
    const std::vector<std::string> parts = Split(text, ',');
    if (parts.size() > 3)
        return false;
    long values[3] = {0, 0, 0};
    for (size_t i = 0; i < parts.size(); ++i)
        if (!ParseInteger(parts[i], 0, 0x7FFFFFFFL, values[i]))
            return false;
    if (parts.size() == 1)
        values[1] = values[0];
    for (int i = 0; i < 3; ++i)
        border[i] = unsigned(values[i]);
    return true;
}

bool ParseNormalMap(const std::string& text, ImageOperations& operations)
{
    const size_t comma = text.find(',');
    const std::string scale = text.substr(0, comma);
    char* end = nullptr;
    const float value = std::strtof(scale.c_str(), &end);
    if (scale.empty() || *end != '\0' || value == 0.0f || !std::isfinite(value))
        return false;
    operations.normalScale = value;
    if (comma != std::string::npos)
    {
        operations.normalOrder = text.substr(comma + 1);
        if (operations.normalOrder.empty() || operations.normalOrder.size() > 4 ||
            operations.normalOrder.find_first_not_of("xyzhXYZH") != std::string::npos)
            return false;
    }
    return true;
}

// A false result of an operation becomes "NAME failed" with the likely cause.
bool Step(bool ok, const char* name, std::string& reason, const char* cause = nullptr)
{
    if (!ok)
        reason = std::string(name) + " failed" + (cause ? std::string(": ") + cause : std::string());
    return ok;
}

constexpr const char* kTooLarge = "the result would not fit in 4 GiB";

// The MIP chain of an sRGB texture filtered in linear light: the texture goes
// to linear 32-bit float, the chain is built there and every level is encoded
// back to the texture's own sRGB type.
bool LinearLightMIPMaps(CORBTexture& texture, EResizeMode filter, unsigned levels, std::string& reason)
{
    const PixelType format = texture.getPixelType();
    const EORBTVariableType channelType = texture.getChannelType();
    if (!Step(Transcode(texture, PixelType(ORBStandard32PixelType), eVarSignedFloat, eColourSpaceLinear),
              "--linear-mips", reason, "cannot decode to linear float"))
        return false;
    return Step(GenerateMIPMaps(texture, filter, levels), "--mipmaps", reason, kTooLarge) &&
           Step(Transcode(texture, format, channelType, eColourSpaceSRGB), "--linear-mips", reason,
                "cannot encode back to sRGB");
}

} // namespace

int ParseImageOperation(const std::vector<std::string>& arguments, size_t& i, ImageOperations& operations,
                        std::string& error)
{
    const std::string& option = arguments[i];
    // Flags without a value.
    if (option == "--bleed")
        return operations.bleed = true, 1;
    if (option == "--premultiply")
        return operations.premultiply = true, 1;
    if (option == "--colour-mips" || option == "--color-mips")
        return operations.colourMips = true, 1;
    if (option == "--linear-mips")
        return operations.linearMips = operations.mipmaps = true, 1;
    if (option == "--mipmaps")
    {
        operations.mipmaps = true;
        long levels = 0;
        if (i + 1 < arguments.size() && ParseInteger(arguments[i + 1], 1, 0x7FFFFFFFL, levels))
        {
            operations.mipLevels = unsigned(levels);
            ++i;
        }
        return 1;
    }

    static const char* const kValued[] = {"--canvas", "--border",     "--rotate", "--flip",
                                          "--resize", "--normal-map", "--filter"};
    if (std::find(std::begin(kValued), std::end(kValued), option) == std::end(kValued))
        return 0;
    if (i + 1 == arguments.size())
    {
        error = option + " needs a value";
        return -1;
    }
    const std::string& value = arguments[++i];
    bool valid = false;
    std::string expected;
    if (option == "--canvas")
        valid = operations.canvas = ParseCanvas(value, operations), expected = "WxH[xD][+X+Y[+Z]]";
    else if (option == "--border")
        valid = operations.border = ParseBorder(value, operations.borderSize), expected = "X[,Y[,Z]]";
    else if (option == "--resize")
        valid = operations.resize = ParseSize(value, operations.resizeSize), expected = "WxH[xD]";
    else if (option == "--normal-map")
        valid = operations.normalMap = ParseNormalMap(value, operations),
        expected = "a non-zero SCALE and an ORDER of x, y, z and h";
    else if (option == "--flip")
        valid = operations.flip = ParseAxis(value, operations.flipAxis), expected = "x, y or z";
    else if (option == "--rotate")
    {
        const std::vector<std::string> parts = Split(value, ',');
        valid = ParseAxis(parts[0], operations.rotateAxis) &&
                (parts.size() == 1 || (parts.size() == 2 && (parts[1] == "ccw" || parts[1] == "cw")));
        operations.rotate = valid;
        operations.clockwise = parts.size() == 1 || parts[1] == "cw";
        expected = "x, y or z, optionally followed by ,ccw";
    }
    else // --filter
    {
        const char* const names[] = {"nearest", "linear", "cubic"};
        for (unsigned mode = 0; mode < 3; ++mode)
            if (value == names[mode])
                operations.filter = EResizeMode(mode), valid = true;
        expected = "nearest, linear or cubic";
    }
    if (!valid)
        error = option + " takes " + expected + ", not '" + value + "'";
    return valid ? 1 : -1;
}

bool ApplyImageOperations(CORBTexture& texture, const ImageOperations& operations, std::string& reason)
{
    if (!operations.any())
        return true;
    if (!MakeStandard(texture, reason))
        return false;
    const ImageOperations& o = operations;
    if (o.canvas && !Step(ResizeCanvas(texture, o.canvasSize[0], o.canvasSize[1], o.canvasSize[2],
                                       o.canvasOffset[0], o.canvasOffset[1], o.canvasOffset[2]),
                          "--canvas", reason, kTooLarge))
        return false;
    if (o.border && !Step(Border(texture, o.borderSize[0], o.borderSize[1], o.borderSize[2]), "--border", reason, kTooLarge))
        return false;
    if (o.rotate && !Step(Rotate90(texture, o.rotateAxis, o.clockwise), "--rotate", reason, kTooLarge))
        return false;
    if (o.flip && !Step(Flip(texture, o.flipAxis), "--flip", reason))
        return false;
    if (o.bleed && !Step(Bleed(texture), "--bleed", reason, "out of memory"))
        return false;
    if (o.resize && !Step(Resize(texture, o.resizeSize[0], o.resizeSize[1], o.resizeSize[2], o.filter), "--resize",
                          reason, kTooLarge))
        return false;
    if (o.normalMap &&
        !Step(GenerateNormalMap(texture, o.normalScale, CORBTString(o.normalOrder.c_str())), "--normal-map", reason, kTooLarge))
        return false;
    if (o.premultiply)
    {
        if (texture.isPreMultiplied())
        {
            reason = "--premultiply: the texture is premultiplied already";
            return false;
        }
        if (!Step(PreMultiplyAlpha(texture), "--premultiply", reason))
            return false;
    }
    if (o.mipmaps && !(o.linearMips && texture.getColourSpace() == eColourSpaceSRGB
                           ? LinearLightMIPMaps(texture, o.filter, o.mipLevels, reason)
                           : Step(GenerateMIPMaps(texture, o.filter, o.mipLevels), "--mipmaps", reason, kTooLarge)))
        return false;
    if (o.colourMips && !Step(ColourMIPMaps(texture), "--colour-mips", reason))
        return false;
    return true;
}

} // namespace cli
