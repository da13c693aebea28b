// The orbtex._orbtex extension: textures, their conversions and files.

#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <cctype>
#include <strings.h>

#include "Binding.h"
#include "ChannelTypeDefault.h"
#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"

namespace orbtex_python
{

using namespace orbtexture;

std::shared_ptr<CORBTexture> Snapshot(PyTexture& self)
{
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> guard(self.lock);
    return self.texture;
}

namespace
{

const char* const kConvertDoc = R"(Converts the texture in place.

format: a named format (ETC1, ETC2_RGB, ETC2_RGBA, EAC_R11, ORBTC_4bpp_RGB,
    ORBTCII_4bpp, ASTC_6x6, RGB9E5, ...) or a channel layout (r8g8b8a8, r5g6b5,
    l8, r16g16b16a16, ...); orbtex.formats() lists the names.
type: the channel type by name (UnsignedByteNorm or ubn, SignedFloat or sf, ...).
    None keeps the source's for a named format and picks the natural one for a
    layout (unsigned norm of the channel width, float for 10 and 11 bits).
colour_space: 'linear' or 'srgb'; None keeps the source's.
quality: the compressor's effort, by target format:
    ETC1, ETC2, EAC: 0 fast, 1 fast and perceptual, 2 exhaustive, 3 exhaustive
        and perceptual; 4 and 5 are 2 and 3. ETC2_RGB_A1 and EAC have one
        search for all.
    ORBTC, ORBTCII: 0 and 1 the block compressors; 2 to 8 the whole-image
        optimiser, slower and better as it rises; 9 (and above) refines
        quality 8's words over the whole image, never worse than 8.
    ASTC (through the astcenc program): 0 very fast, 1 fast, 2 medium,
        3 thorough, 4 exhaustive, 5 and above medium.
    Channel layouts and the other formats ignore it.
threads: threads the codec may use (None: every core). The output does not
    depend on it.
progress: called as progress(fraction) on the calling thread, 0 to 1, rising.
    An exception it raises cancels the call and is raised again.
cancel: a threading.Event (anything with is_set()); setting it from another
    thread stops the call promptly with orbtex.CancelledError, leaving the
    texture as it was.

The GIL is released while the library works. Arrays from to_numpy() keep the
pixels they were made from. Raises orbtex.Error (a subclass by kind) with the
library's reason.)";

PixelType ParseFormat(const std::string& name)
{
    uint64_t format = 0;
    if (!ORBTGetPixelFormatFromName(name.c_str(), format))
        ThrowLastError("unknown format '" + name + "'");
    return PixelType(format);
}

EORBTColourSpace ParseColourSpace(const std::string& name)
{
    if (name == "linear")
        return eColourSpaceLinear;
    if (strcasecmp(name.c_str(), "srgb") == 0)
        return eColourSpaceSRGB;
    ThrowFailure(eORBTErrorArgument, "colour space must be 'linear' or 'srgb', not '" + name + "'");
}

EResizeMode ParseFilter(const std::string& name)
{
    if (name == "nearest")
        return eResizeNearest;
    if (name == "linear")
        return eResizeLinear;
    if (name == "cubic")
        return eResizeCubic;
    ThrowFailure(eORBTErrorArgument, "filter must be 'nearest', 'linear' or 'cubic', not '" + name + "'");
}


// The container of a file name, by its extension.
std::string ContainerOf(const std::string& name)
{
    const size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? "" : name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const char* known : {"dds", "ktx", "ktx2", "astc"})
        if (extension == known)
            return extension;
    return "orb";
}

std::unique_ptr<PyTexture> LoadFile(const std::string& path)
{
    auto result = std::make_unique<PyTexture>();
    LibraryFailure failure{eORBTErrorNone, "", 0};
    {
        py::gil_scoped_release release;
        CORBTexture& texture = *result->texture;
        if (!texture.loadFile(path.c_str()))
            failure = LastError("cannot load " + path, eORBTErrorBadFile);
        else
        {
            result->shortData = ORBTGetLastLoadShortfall();
            CORBTextureHeader header;
            CORBTString container;
            CORBTArray<CORBTString> fields;
            ORBTReadTextureFileInfo(path.c_str(), header, container, fields);
            result->file = path;
            result->container = container.c_str();
            for (unsigned int i = 0; i < fields.GetSize(); ++i)
                result->containerFields.push_back(fields[i].c_str());
        }
    }
    if (failure.kind != eORBTErrorNone)
        throw failure;
    return result;
}

std::unique_ptr<PyTexture> LoadBytes(const py::buffer& data, const std::string& name)
{
    const py::buffer_info view = data.request();
    if (view.ndim != 1 || view.itemsize != 1 || view.strides[0] != 1)
        ThrowFailure(eORBTErrorArgument, "the data must be a contiguous buffer of bytes");
    auto result = std::make_unique<PyTexture>();
    bool loaded;
    LibraryFailure failure{eORBTErrorNone, "", 0};
    {
        py::gil_scoped_release release;
        loaded = result->texture->loadFromMemory(view.ptr, size_t(view.size), CORBTString(name.c_str()));
        if (!loaded)
            failure = LastError("cannot load the data as " + name, eORBTErrorBadFile);
        result->shortData = ORBTGetLastLoadShortfall();
    }
    if (!loaded)
        throw failure;
    result->container = ContainerOf(name);
    return result;
}

// A library operation that changes the texture in place; raises its reason.
template <typename Operation>
void Apply(PyTexture& self, const char* what, Operation&& operation)
{
    bool done = false;
    LibraryFailure failure{eORBTErrorNone, "", 0};
    Mutate(self, [&](CORBTexture& texture) {
        done = operation(texture);
        if (!done)
            failure = LastError(std::string(what) + " failed");
    });
    if (!done)
        throw failure;
}

void Convert(PyTexture& self, const std::string& formatName, std::optional<std::string> type,
             std::optional<std::string> colourSpace, int quality, std::optional<int> threads,
             std::optional<py::function> progress, py::object cancel)
{
    const PixelType format = ParseFormat(formatName);
    if (quality < 0)
        ThrowFailure(eORBTErrorArgument, "quality must be 0 or more");
    EORBTVariableType sourceType;
    EORBTColourSpace sourceSpace;
    {
        // Not held across the call: a second owner would make Mutate copy the texture.
        const std::shared_ptr<CORBTexture> source = Snapshot(self);
        sourceType = source->getChannelType();
        sourceSpace = source->getColourSpace();
    }
    EORBTVariableType channelType = cli::DefaultChannelType(format, sourceType);
    if (type)
    {
        uint32_t parsed = 0;
        if (!ORBTGetChannelTypeFromName(type->c_str(), parsed))
            ThrowFailure(eORBTErrorArgument, "unknown channel type '" + *type + "'");
        channelType = EORBTVariableType(parsed);
    }
    const EORBTColourSpace space = colourSpace ? ParseColourSpace(*colourSpace) : sourceSpace;
    CallScope scope(threads ? py::object(py::int_(*threads)) : py::object(py::none()),
                    progress ? py::object(*progress) : py::object(py::none()), cancel);
    bool done = false;
    LibraryFailure failure{eORBTErrorNone, "", 0};
    Mutate(self, [&](CORBTexture& texture) {
        const CallScope::Running running(scope);
        done = Transcode(texture, format, channelType, space, ECompressorQuality(quality), false, scope.Context());
        if (!done)
            failure = LastError("cannot convert to " + formatName);
    });
    scope.Finish();
    if (!done)
        throw failure;
}

// The standard layout a texture is measured in, as orbtex compare picks it.
void StandardTypeFor(const CORBTexture& texture, PixelType& format, EORBTVariableType& channelType)
{
    PixelType layout = texture.getPixelType();
    EORBTVariableType type = texture.getChannelType();
    if (layout.isNamedFormat())
        IntermediateTranscodeFormat(texture.getPixelType(), texture.getChannelType(), layout, type);
    unsigned widest = 0;
    for (unsigned i = 0; i < 4; ++i)
        widest = std::max<unsigned>(widest, layout.channelBits(i));
    if (type == eVarUnsignedByteNorm && widest <= 8)
        format = PixelType(ORBStandard8PixelType), channelType = eVarUnsignedByteNorm;
    else if ((type == eVarUnsignedByteNorm || type == eVarUnsignedShortNorm) && widest <= 16)
        format = PixelType(ORBStandard16PixelType), channelType = eVarUnsignedShortNorm;
    else if (type == eVarUnsignedIntegerNorm)
        format = PixelType(ORBStandard32PixelType), channelType = eVarUnsignedIntegerNorm;
    else
        format = PixelType(ORBStandard32PixelType), channelType = eVarSignedFloat;
}

bool ToType(CORBTexture& texture, PixelType format, EORBTVariableType type)
{
    return (texture.getPixelType() == format && texture.getChannelType() == type) ||
           Transcode(texture, format, type, texture.getColourSpace());
}

py::dict Compare(PyTexture& self, PyTexture& other, uint32_t level, uint32_t member, uint32_t face)
{
    const std::shared_ptr<CORBTexture> first = Snapshot(self), second = Snapshot(other);
    ChannelDiffResult results[5];
    LibraryFailure failure{eORBTErrorNone, "", 0};
    {
        py::gil_scoped_release release;
        CORBTexture a(*first), b(*second);
        PixelType formatA, formatB;
        EORBTVariableType typeA, typeB;
        StandardTypeFor(a, formatA, typeA);
        StandardTypeFor(b, formatB, typeB);
        if (formatA != formatB || typeA != typeB)
            formatA = formatB = PixelType(ORBStandard32PixelType), typeA = typeB = eVarSignedFloat;
        if (!ToType(a, formatA, typeA) || !ToType(b, formatB, typeB))
            failure = LastError("cannot decode the textures to compare them", eORBTErrorUnsupported);
        else if (!TexturesAreValidForDiff(a, b, level, member, face))
            failure = LibraryFailure{eORBTErrorSize,
                                     "the textures differ in size or one lacks level " + std::to_string(level) +
                                         ", member " + std::to_string(member) + ", face " + std::to_string(face),
                                     0};
        else
        {
            results[0] = GetMaxDifference(a, b, level, member, face);
            results[1] = GetMeanErrorValue(a, b, level, member, face);
            results[2] = GetRMSErrorValue(a, b, level, member, face);
            results[3] = GetStandardDeviation(a, b, level, member, face);
            results[4] = GetPSNRValue(a, b, level, member, face);
        }
    }
    if (failure.kind != eORBTErrorNone)
        throw failure;
    const char* const measures[5] = {"max", "mean", "rms", "stddev", "psnr"};
    const char* const channels[4] = {"r", "g", "b", "a"};
    py::dict out;
    for (int m = 0; m < 5; ++m)
    {
        // The library gives -1 dB for equal pictures: no noise at all.
        const auto value = [&](float v) { return m == 4 && v == -1.0f ? INFINITY : double(v); };
        py::dict measure;
        for (int c = 0; c < 4; ++c)
            measure[channels[c]] = value(results[m].channels[c]);
        measure["overall"] = value(results[m].overall);
        out[measures[m]] = measure;
    }
    return out;
}

// The library writes a DDS or KTX file even for a format the container has no
// code for, and cannot read it back; refused here as orbtex convert does.
bool Representable(const CORBTexture& texture, const std::string& name, LibraryFailure& failure)
{
    const std::string container = ContainerOf(name);
    uint32_t internalFormat, format, type;
    const bool dds = container == "dds" && texture.getD3DFormat() == 0 && texture.getDXGIFormat() == 0;
    const bool ktx = container == "ktx" && !texture.getOGLFormat(internalFormat, format, type);
    if (!dds && !ktx)
        return true;
    failure = LibraryFailure{eORBTErrorUnsupported,
                             FormatName(texture.getPixelType().PixelTypeID) + " " +
                                 ChannelTypeName(texture.getChannelType()) + " has no " +
                                 (dds ? "DDS" : "KTX (OpenGL)") + " format code",
                             0};
    return false;
}

py::bytes ToBytes(PyTexture& self, std::string container)
{
    // "ktx", ".ktx" or a whole file name, which names a C header's symbols.
    if (!container.empty() && container[0] == '.')
        container.erase(0, 1);
    const std::string name = container.find('.') == std::string::npos ? "texture." + container : container;
    std::vector<uint8_t> bytes;
    bool saved;
    LibraryFailure failure{eORBTErrorNone, "", 0};
    Read(self, [&](const CORBTexture& texture) {
        saved = Representable(texture, name, failure) && texture.saveToMemory(bytes, CORBTString(name.c_str()));
        if (!saved && failure.kind == eORBTErrorNone)
            failure = LastError("cannot write a " + container + " file");
    });
    if (!saved)
        throw failure;
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void Save(PyTexture& self, const std::string& path)
{
    bool saved;
    LibraryFailure failure{eORBTErrorNone, "", 0};
    Read(self, [&](const CORBTexture& texture) {
        saved = Representable(texture, path, failure) && texture.saveFile(CORBTString(path.c_str()));
        if (!saved && failure.kind == eORBTErrorNone)
            failure = LastError("cannot write " + path, eORBTErrorIO);
    });
    if (!saved)
        throw failure;
}

py::list Formats()
{
    py::list names;
    for (uint32_t format = 0; format < ePF_NumCompressed; ++format)
        if (CanTranscodeTo(PixelType(format)) || CanTranscodeFrom(PixelType(format)))
            names.append(FormatName(format));
    return names;
}

} // namespace

} // namespace orbtex_python

PYBIND11_MODULE(_orbtex, module)
{
    using namespace orbtex_python;
    module.doc() = "The compiled core of orbtex; import orbtex instead.";
    RegisterErrors(module);

    py::class_<PyTexture>(module, "Texture",
                          "A texture: a header and one block holding every MIP level, array member and face.")
        .def_property_readonly("width", [](PyTexture& t) { return Snapshot(t)->getWidth(); })
        .def_property_readonly("height", [](PyTexture& t) { return Snapshot(t)->getHeight(); })
        .def_property_readonly("depth", [](PyTexture& t) { return Snapshot(t)->getDepth(); })
        .def_property_readonly("mip_levels", [](PyTexture& t) { return Snapshot(t)->getNumMIPLevels(); })
        .def_property_readonly("array_members", [](PyTexture& t) { return Snapshot(t)->getNumArrayMembers(); })
        .def_property_readonly("faces", [](PyTexture& t) { return Snapshot(t)->getNumFaces(); })
        .def_property_readonly("format",
                               [](PyTexture& t) { return FormatName(Snapshot(t)->getPixelType().PixelTypeID); },
                               "The pixel format's name.")
        .def_property_readonly("channel_type",
                               [](PyTexture& t) { return ChannelTypeName(Snapshot(t)->getChannelType()); })
        .def_property_readonly("colour_space",
                               [](PyTexture& t) { return ColourSpaceName(Snapshot(t)->getColourSpace()); })
        .def_property_readonly("data_size", [](PyTexture& t) { return Snapshot(t)->getDataSize(); },
                               "Bytes of pixel data, every surface.")
        .def("info", [](PyTexture& t) { return Describe(t, *Snapshot(t)); },
             "The fields of 'orbtex info --json': file, container and containerFields describe the file the "
             "texture was loaded from while it is unchanged (None and [] otherwise).")
        .def("copy",
             [](PyTexture& t) {
                 auto copy = std::make_unique<PyTexture>();
                 const std::shared_ptr<CORBTexture> source = Snapshot(t);
                 py::gil_scoped_release release;
                 copy->texture = std::make_shared<CORBTexture>(*source);
                 return copy;
             },
             "A deep copy.")
        .def("save", &Save, py::arg("path"),
             "Writes the texture to a file; its extension chooses the container (.orb, .dds, .ktx, .astc, .h, "
             "and any other the library writes). A failed save leaves no file.")
        .def("to_bytes", &ToBytes, py::arg("container") = "orb",
             "The file save() would write for a name with this extension ('orb', 'dds', 'ktx', 'astc', 'h', ...); a "
             "whole file name ('logo.h') also names a C header's symbols.")
        .def("to_numpy", &ToNumpy, py::arg("level") = 0, py::arg("member") = 0, py::arg("face") = 0,
             "A writable view (no copy) of one surface: H x W x C, or D x H x W x C for a volume. Needs a layout "
             "of 8, 16 or 32 bits a channel. The view keeps the pixels alive; later operations on the texture "
             "work on a copy and leave the view as it was.")
        .def("convert", &Convert, py::arg("format"), py::arg("type") = py::none(),
             py::arg("colour_space") = py::none(), py::arg("quality") = 0, py::arg("threads") = py::none(),
             py::arg("progress") = py::none(), py::arg("cancel") = py::none(), kConvertDoc)
        .def(
            "resize",
            [](PyTexture& t, unsigned width, unsigned height, unsigned depth, const std::string& filter) {
                const EResizeMode mode = ParseFilter(filter);
                Apply(t, "resize", [&](CORBTexture& texture) { return Resize(texture, width, height, depth, mode); });
            },
            py::arg("width"), py::arg("height"), py::arg("depth") = 1, py::arg("filter") = "linear",
            "Resamples level 0 to the new size in place, dropping the other MIP levels. Needs a standard layout "
            "(r8g8b8a8, r16g16b16a16, r32g32b32a32): convert first.")
        .def(
            "mipmaps",
            [](PyTexture& t, py::object levels, const std::string& filter) {
                const EResizeMode mode = ParseFilter(filter);
                const unsigned count = levels.is_none() ? 0xFFFFFFFFu : levels.cast<unsigned>();
                Apply(t, "mipmaps", [&](CORBTexture& texture) { return GenerateMIPMaps(texture, mode, count); });
            },
            py::arg("levels") = py::none(), py::arg("filter") = "linear",
            "Rebuilds the MIP chain from level 0 in place; levels counts level 0, None a full chain. Needs a "
            "standard layout.")
        .def(
            "normal_map",
            [](PyTexture& t, float scale, const std::string& channels) {
                Apply(t, "normal_map", [&](CORBTexture& texture) {
                    return GenerateNormalMap(texture, scale, CORBTString(channels.c_str()));
                });
            },
            py::arg("scale") = 1.0f, py::arg("channels") = "xyz",
            "Replaces the height map in the first channel by a float normal map in place; channels names the "
            "output channels with x, y, z and h (height). Needs a standard layout.")
        .def("compare", &Compare, py::arg("other"), py::arg("level") = 0, py::arg("member") = 0,
             py::arg("face") = 0,
             "The five measures of self - other over one surface, as orbtex compare gives them: a dict of max, "
             "mean, rms, stddev and psnr (dB, inf for equal pictures), each a dict of r, g, b, a and overall. "
             "Textures of other layouts are decoded to a common one first.")
        .def("__repr__",
             [](PyTexture& t) {
                 const std::shared_ptr<CORBTexture> s = Snapshot(t);
                 return "<orbtex.Texture " + std::to_string(s->getWidth()) + "x" + std::to_string(s->getHeight()) +
                        "x" + std::to_string(s->getDepth()) + " " + FormatName(s->getPixelType().PixelTypeID) +
                        " " + ChannelTypeName(s->getChannelType()) + ", " + std::to_string(s->getNumMIPLevels()) +
                        " level(s)>";
             })
        .def(py::pickle([](PyTexture& t) { return ToBytes(t, "orb"); },
                        [](const py::bytes& data) { return LoadBytes(data, "texture.orb"); }));

    module.def("load_file", &LoadFile, py::arg("path"));
    module.def("load_bytes", &LoadBytes, py::arg("data"), py::arg("name"));
    module.def("from_numpy", &FromNumpy, py::arg("array"), py::arg("format") = py::none(),
               py::arg("colour_space") = "linear", py::arg("type") = py::none());
    module.def("formats", &Formats, "The named formats this build converts to or from.");
}
