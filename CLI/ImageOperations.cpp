#include "ImageOperations.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <functional>

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

// A false result of an operation becomes "NAME failed" with the library's
// reason, or the likely cause when it gives none.
bool Step(bool ok, const char* name, std::string& reason, const char* cause = nullptr)
{
    const std::string why = ok ? std::string() : ORBTGetLastError();
    if (!ok)
        reason = std::string(name) + " failed" + (!why.empty() ? ": " + why : cause ? std::string(": ") + cause : "");
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

// An operation with a value that 'parse' reads; a value it refuses is told
// with what the option takes.
Option OperationOption(const char* name, const char* expected, std::function<bool(const std::string&)> parse)
{
    return {name, OptionValue::Required, [name, expected, parse](const std::string& value) {
                return parse(value) ? std::string()
                                    : std::string(name) + " takes " + expected + ", not '" + value + "'";
            }};
}

} // namespace

void AddImageOperationOptions(std::vector<Option>& options, ImageOperations& operations)
{
    ImageOperations& o = operations;
    // Flags without a value.
    options.push_back(FlagOption("--bleed", o.bleed));
    options.push_back(FlagOption("--premultiply", o.premultiply));
    options.push_back(FlagOption("--colour-mips", o.colourMips));
    options.push_back(FlagOption("--color-mips", o.colourMips));
    options.push_back({"--linear-mips", OptionValue::None, [&o](const std::string&) {
                           o.linearMips = o.mipmaps = true;
                           return std::string();
                       }});
    // A level count may follow.
    const auto levels = [](const std::string& text, long& value) {
        return ParseInteger(text, 1, 0x7FFFFFFFL, value);
    };
    options.push_back({"--mipmaps", OptionValue::IfAccepted,
                       [&o, levels](const std::string& value) {
                           o.mipmaps = true;
                           long count = 0;
                           if (levels(value, count))
                               o.mipLevels = unsigned(count);
                           return std::string();
                       },
                       [levels](const std::string& argument) {
                           long count = 0;
                           return levels(argument, count);
                       }});

    options.push_back(OperationOption("--canvas", "WxH[xD][+X+Y[+Z]]", [&o](const std::string& value) {
        return o.canvas = ParseCanvas(value, o);
    }));
    options.push_back(OperationOption("--border", "X[,Y[,Z]]", [&o](const std::string& value) {
        return o.border = ParseBorder(value, o.borderSize);
    }));
    options.push_back(OperationOption("--resize", "WxH[xD]", [&o](const std::string& value) {
        return o.resize = ParseSize(value, o.resizeSize);
    }));
    options.push_back(OperationOption("--normal-map", "a non-zero SCALE and an ORDER of x, y, z and h",
                                      [&o](const std::string& value) {
                                          return o.normalMap = ParseNormalMap(value, o);
                                      }));
    options.push_back(OperationOption("--flip", "x, y or z", [&o](const std::string& value) {
        return o.flip = ParseAxis(value, o.flipAxis);
    }));
    options.push_back(
        OperationOption("--rotate", "x, y or z, optionally followed by ,ccw", [&o](const std::string& value) {
            const std::vector<std::string> parts = Split(value, ',');
            o.rotate = ParseAxis(parts[0], o.rotateAxis) &&
                       (parts.size() == 1 || (parts.size() == 2 && (parts[1] == "ccw" || parts[1] == "cw")));
            o.clockwise = parts.size() == 1 || parts[1] == "cw";
            return o.rotate;
        }));
    options.push_back(OperationOption("--filter", "nearest, linear or cubic", [&o](const std::string& value) {
        const char* const names[] = {"nearest", "linear", "cubic"};
        for (unsigned mode = 0; mode < 3; ++mode)
            if (value == names[mode])
            {
                o.filter = EResizeMode(mode);
                return true;
            }
        return false;
    }));
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
