// numpy arrays over textures of channel layouts, and textures from arrays.

#include <strings.h>

#include "Binding.h"
#include "ORBTextureFormat.h"

namespace orbtex_python
{

using namespace orbtexture;

namespace
{

// The element of a layout whose channels all have 'bits' bits and channel
// type 'type'; empty where numpy has none.
std::string ElementFormat(unsigned bits, EORBTVariableType type)
{
    const bool isFloat = type == eVarSignedFloat || type == eVarUnsignedFloat;
    const bool isSigned = type == eVarSignedByteNorm || type == eVarSignedByte || type == eVarSignedShortNorm ||
                          type == eVarSignedShort || type == eVarSignedIntegerNorm || type == eVarSignedInteger;
    if (isFloat)
        return bits == 16 ? "e" : bits == 32 ? "f" : "";
    switch (bits)
    {
    case 8: return isSigned ? "b" : "B";
    case 16: return isSigned ? "h" : "H";
    case 32: return isSigned ? "i" : "I";
    default: return "";
    }
}

// Channels of a layout whose channels are of one width; 0 if they are not.
unsigned EvenChannels(PixelType format, unsigned& bits)
{
    unsigned count = 0;
    bits = format.channelBits(0);
    while (count < 4 && format.channelBits(count) != 0)
        if (format.channelBits(count++) != bits)
            return 0;
    for (unsigned i = count; i < 4; ++i)
        if (format.channelBits(i) != 0)
            return 0;
    return count;
}

} // namespace

py::array ToNumpy(PyTexture& self, uint32_t level, uint32_t member, uint32_t face)
{
    const std::shared_ptr<CORBTexture> texture = Snapshot(self);
    const PixelType format = texture->getPixelType();
    if (!texture->getDataPtr())
        ThrowFailure(eORBTErrorArgument, "the texture is empty");
    unsigned bits = 0;
    const unsigned channels = format.isNamedFormat() ? 0 : EvenChannels(format, bits);
    const std::string element = channels ? ElementFormat(bits, texture->getChannelType()) : "";
    if (element.empty())
        ThrowFailure(eORBTErrorUnsupported,
                     FormatName(format.PixelTypeID) + " " + ChannelTypeName(texture->getChannelType()) +
                         " has no numpy layout; convert to channels of 8, 16 or 32 bits first");
    const uint32_t counts[3] = {texture->getNumMIPLevels(), texture->getNumArrayMembers(), texture->getNumFaces()};
    const uint32_t asked[3] = {level, member, face};
    const char* const names[3] = {"MIP levels", "array members", "faces"};
    for (int i = 0; i < 3; ++i)
        if (asked[i] >= counts[i])
            ThrowFailure(eORBTErrorArgument, "the texture has " + std::to_string(counts[i]) + " " + names[i]);

    const py::ssize_t item = bits / 8, w = texture->getWidth(level), h = texture->getHeight(level),
                      d = texture->getDepth(level), c = channels;
    std::vector<py::ssize_t> shape{h, w, c}, strides{w * c * item, c * item, item};
    if (d > 1)
    {
        shape.insert(shape.begin(), d);
        strides.insert(strides.begin(), h * w * c * item);
    }
    unsigned char* data = texture->getDataPtr(level, member, face);
    // The array keeps the texture alive, and operations leave its block alone.
    py::capsule owner(new std::shared_ptr<CORBTexture>(texture),
                      [](void* held) { delete static_cast<std::shared_ptr<CORBTexture>*>(held); });
    return py::array(py::dtype(element), shape, strides, data, owner);
}

std::unique_ptr<PyTexture> FromNumpy(py::array array, py::object format, const std::string& colourSpace,
                                     py::object type)
{
    if (array.ndim() != 3 && array.ndim() != 4)
        ThrowFailure(eORBTErrorArgument, "the array must be H x W x C or D x H x W x C, not of " +
                                             std::to_string(array.ndim()) + " dimensions");
    if (!(array.flags() & py::array::c_style))
        array = py::module_::import("numpy").attr("ascontiguousarray")(array);
    const py::ssize_t channels = array.shape(array.ndim() - 1);
    if (channels < 1 || channels > 4)
        ThrowFailure(eORBTErrorArgument, "the last axis holds the channels, 1 to 4, not " + std::to_string(channels));
    const char kind = array.dtype().kind();
    const unsigned bits = unsigned(array.itemsize()) * 8;
    EORBTVariableType channelType;
    if (kind == 'u' && bits <= 32)
        channelType = bits == 8 ? eVarUnsignedByteNorm : bits == 16 ? eVarUnsignedShortNorm : eVarUnsignedIntegerNorm;
    else if (kind == 'i' && bits <= 32)
        channelType = bits == 8 ? eVarSignedByteNorm : bits == 16 ? eVarSignedShortNorm : eVarSignedIntegerNorm;
    else if (kind == 'f' && (bits == 16 || bits == 32))
        channelType = eVarSignedFloat;
    else
        ThrowFailure(eORBTErrorUnsupported, "arrays of " + py::str(array.dtype()).cast<std::string>() +
                                                " have no texture layout; use uint8, uint16 or float32");

    uint64_t pixelFormat = 0;
    if (format.is_none())
    {
        const char letters[4] = {'r', 'g', 'b', 'a'};
        PixelType layout;
        for (py::ssize_t i = 0; i < channels; ++i)
        {
            layout.PixelTypeChar[i] = uint8_t(letters[i]);
            layout.PixelTypeChar[4 + i] = uint8_t(bits);
        }
        pixelFormat = layout.PixelTypeID;
    }
    else
    {
        const std::string name = format.cast<std::string>();
        if (!ORBTGetPixelFormatFromName(name.c_str(), pixelFormat))
            ThrowLastError("unknown format '" + name + "'");
        unsigned width = 0;
        if (PixelType(pixelFormat).isNamedFormat() || EvenChannels(pixelFormat, width) != unsigned(channels) ||
            width != bits)
            ThrowFailure(eORBTErrorArgument, "format " + name + " does not fit an array of " +
                                                 std::to_string(channels) + " channels of " + std::to_string(bits) +
                                                 " bits");
    }
    if (!type.is_none())
    {
        uint32_t parsed = 0;
        const std::string name = type.cast<std::string>();
        if (!ORBTGetChannelTypeFromName(name.c_str(), parsed))
            ThrowFailure(eORBTErrorArgument, "unknown channel type '" + name + "'");
        channelType = EORBTVariableType(parsed);
    }
    EORBTColourSpace space = eColourSpaceLinear;
    if (strcasecmp(colourSpace.c_str(), "srgb") == 0)
        space = eColourSpaceSRGB;
    else if (colourSpace != "linear")
        ThrowFailure(eORBTErrorArgument, "colour space must be 'linear' or 'srgb', not '" + colourSpace + "'");

    const bool volume = array.ndim() == 4;
    const uint64_t depth = volume ? array.shape(0) : 1, height = array.shape(volume ? 1 : 0),
                   width = array.shape(volume ? 2 : 1);
    if (!width || !height || !depth || uint64_t(array.nbytes()) > UINT32_MAX)
        ThrowFailure(eORBTErrorSize, "a texture holds 1 to " + std::to_string(UINT32_MAX) + " bytes, not " +
                                         std::to_string(array.nbytes()));
    CORBTextureHeader header(pixelFormat, uint32_t(height), uint32_t(width), uint32_t(depth));
    header.setChannelType(channelType);
    header.setColourSpace(space);
    auto result = std::make_unique<PyTexture>();
    const void* pixels = array.data();
    {
        // The texture owns its block: the one copy on the way in.
        py::gil_scoped_release release;
        result->texture = std::make_shared<CORBTexture>(header, pixels);
    }
    return result;
}

} // namespace orbtex_python
