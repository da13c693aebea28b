// orbtex convert: change a texture's pixel format, or move pixels between
// image files and native textures.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "Commands.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ImageOperations.h"
#include "ProgressLine.h"
#include "TextureInput.h"
#include "ORBTextureInfo.h"
#include "ORBTextureLegacy.h"
#include "ORBTextureUtilities.h"

namespace cli
{

const char* const kConvertHelp =
    "usage: orbtex convert IN OUT [options]\n"
    "\n"
    "Converts IN to another pixel format, channel type or colour space and\n"
    "writes OUT. IN is a texture (.orb, legacy .orb, .dds, .ktx, .astc) or an\n"
    "image file (PNG, JPEG, TGA, BMP, PSD, GIF, HDR). 8-bit images load as\n"
    "r8g8b8a8 ubn, 16-bit ones as r16g16b16a16 usn, HDR as r32g32b32a32 sf;\n"
    "grey images expand to RGBA.\n"
    "OUT is a texture (.orb, .dds, .ktx, .astc), a C source array (.h) or a\n"
    "PNG, TGA or BMP image; an image receives the first surface of level 0,\n"
    "converted to r8g8b8a8 after the conversion asked for (so '--format ETC1\n"
    "out.png' shows the compressed result). A .astc file holds one surface:\n"
    "level 0 of member 0, face 0.\n"
    "\n"
    "Options:\n"
    "  --format NAME          target format (default: the source's): a named\n"
    "                         format such as ETC1, ORBTC_4bpp_RGB or DXT5 (BC1,\n"
    "                         BC2, BC3 name DXT1, DXT3, DXT5), or a channel\n"
    "                         layout such as r8g8b8a8, r5g6b5, l8, a8, r11g11b10\n"
    "  --type TYPE            target channel type, e.g. ubn, sf (default: the\n"
    "                         source's if it suits the layout's channel widths,\n"
    "                         else unsigned normalised; uf for 10/11-bit layouts)\n"
    "  --colour-space linear|srgb\n"
    "                         target colour space (default: the source's)\n"
    "  --input-colour-space linear|srgb\n"
    "                         colour space of an image-file IN (default: linear)\n"
    "  --quality N            compressor quality (default 0), by target:\n"
    "                         ETC: 0 fast, 1 fast perceptual, 2 exhaustive,\n"
    "                         3 exhaustive perceptual, 4 and 5 as 2 and 3;\n"
    "                         every ETC format takes 0 to 5 (ETC2_RGB_A1 and\n"
    "                         EAC have one search for all)\n"
    "                         ORBTC, ORBTCII: 0 and 1 the block compressors, 2 to 8 the\n"
    "                         optimiser, slower and better as it rises (above\n"
    "                         8 the same as 8)\n"
    "                         ASTC (astcenc's presets): 0 -veryfast (called\n"
    "                         -fastest by astcenc 2.0 on), 1 -fast, 2 -medium,\n"
    "                         3 -thorough, 4 -exhaustive, 5 and above -medium\n"
    "                         DXT, UYVY, YUY2, BW1bpp, RGB9E5, RGBG8888,\n"
    "                         GRGB8888 and channel layouts ignore it; a quality\n"
    "                         this version cannot serve is refused\n"
    "  --quiet                no progress line (shown on a terminal while the\n"
    "                         ORBTC optimiser works)\n"
    "  --dither               dither to the target's bit depth first (for DXT\n"
    "                         after the conversion to r8g8b8a8)\n"
    "  --all-surfaces         image OUT: one file per level, member and face,\n"
    "                         named OUT-levelL-memberM-faceF.EXT; depth slices\n"
    "                         are stacked vertically\n"
    "  --allow-short          accept a .orb IN whose pixel data end early (the\n"
    "                         missing bytes read as zeros)\n"
    "  --legacy-api N         write a .orb OUT as a legacy file for legacy API\n"
    "                         N (1 to 7); its pixel format must have a legacy\n"
    "                         number for that API\n"
    "\n"
    "A texture OUT is read back and compared with what was meant to be written\n"
    "before it replaces OUT. 'orbtex formats' lists every format and type name.\n"
    "\n" ORBTEX_IMAGE_OPERATIONS_HELP
    "\n"
    "Exit status: 0 done, 1 failed (no output file is left), 2 usage error.\n";

namespace
{

using orbtexture::CORBTexture;
using orbtexture::EORBTColourSpace;
using orbtexture::EORBTVariableType;
using orbtexture::PixelType;

struct ConvertOptions
{
    std::string input;
    std::string output;
    std::string format;
    std::string type;
    std::string colourSpace;
    std::string inputColourSpace = "linear";
    int quality = 0;
    bool dither = false;
    bool allSurfaces = false;
    bool allowShort = false;
    bool quiet = false;
    int legacyApi = 0; // 0: a native .orb
    ImageOperations operations;
};

// What OUT becomes, by its extension.
enum class OutputKind
{
    Native,
    Legacy,
    DDS,
    KTX,
    ASTC,
    CHeader,
    Image
};

OutputKind KindOfOutput(const ConvertOptions& options)
{
    const std::string extension = FileExtension(options.output);
    if (IsWritableImageExtension(extension))
        return OutputKind::Image;
    if (extension == ".dds")
        return OutputKind::DDS;
    if (extension == ".ktx")
        return OutputKind::KTX;
    if (extension == ".astc")
        return OutputKind::ASTC;
    if (extension == ".h")
        return OutputKind::CHeader;
    return options.legacyApi ? OutputKind::Legacy : OutputKind::Native;
}

bool ParseColourSpace(const std::string& word, EORBTColourSpace& space)
{
    if (word == "linear")
        space = orbtexture::eColourSpaceLinear;
    else if (word == "srgb" || word == "sRGB")
        space = orbtexture::eColourSpaceSRGB;
    else
        return false;
    return true;
}

// Parses the arguments; returns -1 to go on, else the exit status.
int ParseArguments(const std::vector<std::string>& arguments, ConvertOptions& options)
{
    std::vector<std::string> positional;
    for (size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& argument = arguments[i];
        if (IsHelpFlag(argument))
        {
            std::cout << kConvertHelp;
            return kExitOk;
        }
        auto value = [&](std::string& target) {
            if (i + 1 == arguments.size())
                return false;
            target = arguments[++i];
            return true;
        };
        std::string error;
        const int operation = ParseImageOperation(arguments, i, options.operations, error);
        if (operation < 0)
            return UsageError("convert", error);
        if (operation > 0)
            continue;
        std::string number;
        if (argument == "--format" || argument == "--type" || argument == "--colour-space" ||
            argument == "--input-colour-space" || argument == "--quality" || argument == "--legacy-api")
        {
            const bool numeric = argument == "--quality" || argument == "--legacy-api";
            std::string& target = numeric                        ? number
                                  : argument == "--format"       ? options.format
                                  : argument == "--type"         ? options.type
                                  : argument == "--colour-space" ? options.colourSpace
                                                                 : options.inputColourSpace;
            if (!value(target))
                return UsageError("convert", argument + " needs a value");
            if (numeric)
            {
                const bool quality = argument == "--quality";
                const long lowest = quality ? 0 : 1, highest = quality ? 1000 : 7;
                char* end = nullptr;
                const long parsed = std::strtol(number.c_str(), &end, 10);
                if (number.empty() || *end != '\0' || parsed < lowest || parsed > highest)
                    return UsageError("convert", quality ? "--quality needs a number from 0, not '" + number + "'"
                                                         : "--legacy-api needs a number from 1 to 7, not '" +
                                                               number + "'");
                (quality ? options.quality : options.legacyApi) = int(parsed);
            }
        }
        else if (argument == "--dither")
            options.dither = true;
        else if (argument == "--quiet")
            options.quiet = true;
        else if (argument == "--all-surfaces")
            options.allSurfaces = true;
        else if (argument == "--allow-short")
            options.allowShort = true;
        else if (argument.size() > 1 && argument[0] == '-')
            return UsageError("convert", "unknown option '" + argument + "'");
        else
            positional.push_back(argument);
    }
    if (positional.size() != 2)
        return UsageError("convert", "needs an input and an output file");
    options.input = positional[0];
    options.output = positional[1];
    EORBTColourSpace unused;
    if (!options.colourSpace.empty() && !ParseColourSpace(options.colourSpace, unused))
        return UsageError("convert", "--colour-space is linear or srgb, not '" + options.colourSpace + "'");
    if (!ParseColourSpace(options.inputColourSpace, unused))
        return UsageError("convert",
                          "--input-colour-space is linear or srgb, not '" + options.inputColourSpace + "'");
    if (options.legacyApi && FileExtension(options.output) != ".orb")
        return UsageError("convert", "--legacy-api needs a .orb output");
    return -1;
}

// The channel type a layout gets when none is asked for.
EORBTVariableType DefaultChannelType(PixelType target, EORBTVariableType source)
{
    if (target.isNamedFormat())
        return source;
    unsigned widest = 0;
    bool smallFloats = true;
    for (unsigned i = 0; i < 4; ++i)
    {
        const unsigned bits = target.channelBits(i);
        widest = std::max(widest, bits);
        smallFloats = smallFloats && (bits == 0 || bits == 10 || bits == 11);
    }
    if (smallFloats)
        return orbtexture::eVarUnsignedFloat;
    if (source >= orbtexture::eVarSignedFloat && (widest == 16 || widest == 32))
        return source;
    const unsigned element = widest <= 8 ? 8 : widest <= 16 ? 16 : 32;
    const unsigned sourceElement = source < 4 ? 8 : source < 8 ? 16 : 32;
    if (source < orbtexture::eVarSignedFloat && sourceElement == element)
        return source;
    return element == 8 ? orbtexture::eVarUnsignedByteNorm
           : element == 16 ? orbtexture::eVarUnsignedShortNorm
                           : orbtexture::eVarUnsignedIntegerNorm;
}

bool IsASTCFormat(PixelType format)
{
    return format.isNamedFormat() && format.PixelTypeID >= orbtexture::ePF_ASTC_4x4 &&
           format.PixelTypeID <= orbtexture::ePF_ASTC_6x6x6;
}

std::string Describe(PixelType format, uint32_t type)
{
    return PixelFormatName(format.PixelTypeID) + " " + ChannelTypeShortName(type);
}

// Named formats whose compressor of the asked quality is not built yet are
// named as such; channel layouts take no quality.
bool QualitySupported(PixelType target, int quality, std::string& reason)
{
    const int highest = orbtexture::HighestCompressorQuality(target);
    // INT8_MAX: every quality.
    if (!target.isNamedFormat() || highest < 0 || highest == INT8_MAX || quality <= highest)
        return true;
    reason = "quality " + std::to_string(quality) + " of " + PixelFormatName(target.PixelTypeID) +
             " is not supported by this version (" +
             (highest == 1 ? std::string("0 and 1") : "0 to " + std::to_string(highest)) + " are)";
    return false;
}

bool LoadInput(const ConvertOptions& options, CORBTexture& texture, std::string& reason)
{
    EORBTColourSpace space = orbtexture::eColourSpaceLinear;
    ParseColourSpace(options.inputColourSpace, space);
    return LoadTextureOrImage(options.input, space, options.allowShort, texture, reason);
}

// Test hook: ORBTEX_TEST_PAUSE_BEFORE_COMMIT=SECONDS keeps written outputs
// under their temporary names that long before they are checked and renamed.
void PauseBeforeCommit()
{
    const char* value = std::getenv("ORBTEX_TEST_PAUSE_BEFORE_COMMIT");
    const long seconds = value ? std::strtol(value, nullptr, 10) : 0;
    if (seconds > 0)
        std::this_thread::sleep_for(std::chrono::seconds(std::min(seconds, 600L)));
}

// Reads a written native file back as a memory image and compares header
// record, metadata items and pixel data with 'expected'; the difference or the
// loader's reason on failure.
bool LoadsBack(const std::string& path, const CORBTexture& expected, std::string& reason)
{
    std::vector<unsigned char> bytes;
    if (!ReadFileBytes(path, bytes, reason))
        return false;
    // The bytes are in memory already and the texture they must equal is
    // held too: the load limit, meant for inputs, does not apply here.
    const uint64_t limit = ORBTGetLoadLimit();
    ORBTSetLoadLimit(UINT64_MAX);
    const CORBTexture loaded(bytes.data(), bytes.size());
    ORBTSetLoadLimit(limit);
    bytes = std::vector<unsigned char>();
    if (!loaded.getDataPtr())
    {
        reason = ORBTGetLastError();
        return false;
    }
    const ORBTextureHeaderV3 written = expected.getFileHeader(), read = loaded.getFileHeader();
    if (std::memcmp(&written, &read, sizeof written) != 0)
    {
        reason = "header differs";
        return false;
    }
    std::vector<const MetaDataBlock*> writtenItems, readItems;
    expected.forEachMetaData([&](const MetaDataBlock& block) { writtenItems.push_back(&block); });
    loaded.forEachMetaData([&](const MetaDataBlock& block) { readItems.push_back(&block); });
    const auto sameItem = [](const MetaDataBlock* a, const MetaDataBlock* b) {
        return a->fourCC == b->fourCC && a->key == b->key && a->dataSize == b->dataSize &&
               (a->dataSize == 0 || std::memcmp(a->data, b->data, a->dataSize) == 0);
    };
    if (!std::equal(writtenItems.begin(), writtenItems.end(), readItems.begin(), readItems.end(), sameItem))
    {
        reason = "metadata differ";
        return false;
    }
    if (std::memcmp(expected.getDataPtr(), loaded.getDataPtr(), expected.getDataSize()) != 0)
    {
        reason = "pixel data differ";
        return false;
    }
    return true;
}

// Reads a written foreign or legacy file back by name and compares what the
// container keeps: sizes and pixel data (of the first surface only for .astc).
// Such containers may describe the format by other codes, and keep little or
// no metadata, so neither is compared.
bool SurfacesLoadBack(const std::string& path, const CORBTexture& expected, bool firstSurfaceOnly,
                      std::string& reason)
{
    const uint64_t limit = ORBTGetLoadLimit();
    ORBTSetLoadLimit(UINT64_MAX);
    const CORBTexture loaded(path.c_str());
    ORBTSetLoadLimit(limit);
    if (!loaded.getDataPtr())
    {
        reason = ORBTGetLastError();
        return false;
    }
    const bool sameShape =
        loaded.getWidth() == expected.getWidth() && loaded.getHeight() == expected.getHeight() &&
        loaded.getDepth() == expected.getDepth() && loaded.getBitsPerPixel() == expected.getBitsPerPixel() &&
        (firstSurfaceOnly || (loaded.getNumMIPLevels() == expected.getNumMIPLevels() &&
                              loaded.getNumArrayMembers() == expected.getNumArrayMembers() &&
                              loaded.getNumFaces() == expected.getNumFaces()));
    if (!sameShape)
    {
        reason = "header differs";
        return false;
    }
    const uint32_t size = firstSurfaceOnly ? expected.getDataSize(0, false, false) : expected.getDataSize();
    if (std::memcmp(expected.getDataPtr(), loaded.getDataPtr(), size) != 0)
    {
        reason = "pixel data differ";
        return false;
    }
    return true;
}

// Name of the C array of a header output: the file name up to its first '.',
// with anything a C identifier cannot hold replaced by '_'.
std::string CSymbolName(const std::string& path)
{
    std::string name = std::filesystem::path(path).filename().string();
    name = name.substr(0, name.find('.'));
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])))
        name = "_" + name;
    return name;
}

// Why the container of 'kind' cannot describe the texture's format; empty
// when it can.
std::string UnrepresentableReason(OutputKind kind, const CORBTexture& texture, int legacyApi)
{
    const std::string described = Describe(texture.getPixelType(), texture.getChannelType());
    uint32_t internalFormat, format, type;
    switch (kind)
    {
    case OutputKind::DDS:
        if (texture.getD3DFormat() == 0 && texture.getDXGIFormat() == 0)
            return described + " has no DDS format code";
        break;
    case OutputKind::KTX:
        if (!texture.getOGLFormat(internalFormat, format, type))
            return described + " has no KTX (OpenGL) format code";
        break;
    case OutputKind::Legacy:
        if (orbtexture::MapNewFormatToLegacyEnum(texture.getPixelType(), texture.getColourSpace(),
                                                 texture.getChannelType(), texture.isPreMultiplied(),
                                                 orbtexture::ELegacyApi(legacyApi)) == uint32_t(-1))
            return described + " has no legacy format number for legacy API " + std::to_string(legacyApi);
        break;
    case OutputKind::ASTC:
        if (!IsASTCFormat(texture.getPixelType()))
            return "a .astc file holds an ASTC format, not " + PixelFormatName(texture.getPixelType().PixelTypeID);
        break;
    default: break;
    }
    return "";
}

// A texture file under a temporary name, read back and checked, then renamed
// into place.
bool WriteTexture(const ConvertOptions& options, OutputKind kind, CORBTexture& texture, std::string& reason)
{
    reason = UnrepresentableReason(kind, texture, options.legacyApi);
    if (!reason.empty())
        return false;
    // addMetaData of a key already present counts the item twice.
    texture.recountMetaDataSize();
    PendingOutput output(options.output);
    const CORBTString temporary(output.TemporaryPath().c_str());
    errno = 0;
    bool saved = false;
    switch (kind)
    {
    case OutputKind::Legacy:
        saved = texture.saveFileLegacyORB(temporary, orbtexture::ELegacyApi(options.legacyApi));
        break;
    case OutputKind::ASTC: saved = texture.saveASTCFile(temporary); break;
    case OutputKind::CHeader:
        saved = texture.saveCHeaderFile(temporary, CORBTString(CSymbolName(options.output).c_str()));
        break;
    default: saved = texture.saveFile(temporary); break; // native, DDS and KTX by extension
    }
    if (!saved)
    {
        reason = std::string("cannot write file") + (errno ? ": " + std::string(std::strerror(errno)) : "");
        return false;
    }
    PauseBeforeCommit();
    bool loadsBack = true;
    if (kind == OutputKind::Native)
        loadsBack = LoadsBack(output.TemporaryPath(), texture, reason);
    else if (kind != OutputKind::CHeader)
        loadsBack = SurfacesLoadBack(output.TemporaryPath(), texture, kind == OutputKind::ASTC, reason);
    if (!loadsBack)
    {
        reason = "written file does not load back: " + reason;
        return false;
    }
    return output.Commit(reason);
}

// Image files of one surface, or of every surface; written under temporary
// names and renamed only when all are written.
bool WriteImages(const ConvertOptions& options, const CORBTexture& texture, std::string& failedPath,
                 std::string& reason)
{
    const std::string extension = FileExtension(options.output);
    CORBTexture rgba8(texture);
    if (DXTSelector(rgba8.getPixelType()) && !DecompressDXTSurfaces(rgba8, reason))
    {
        failedPath = options.output;
        return false;
    }
    if (!orbtexture::Transcode(rgba8, PixelType(orbtexture::ORBStandard8PixelType), orbtexture::eVarUnsignedByteNorm,
                               rgba8.getColourSpace()))
    {
        failedPath = options.output;
        reason = "cannot convert " + Describe(texture.getPixelType(), texture.getChannelType()) + " to r8g8b8a8";
        return false;
    }

    std::vector<std::unique_ptr<PendingOutput>> outputs;
    const std::filesystem::path base(options.output);
    const uint32_t levels = options.allSurfaces ? rgba8.getNumMIPLevels() : 1;
    const uint32_t members = options.allSurfaces ? rgba8.getNumArrayMembers() : 1;
    const uint32_t faces = options.allSurfaces ? rgba8.getNumFaces() : 1;
    for (uint32_t level = 0; level < levels; ++level)
        for (uint32_t member = 0; member < members; ++member)
            for (uint32_t face = 0; face < faces; ++face)
            {
                std::string path = options.output;
                if (options.allSurfaces)
                    path = (base.parent_path() / (base.stem().string() + "-level" + std::to_string(level) +
                                                  "-member" + std::to_string(member) + "-face" +
                                                  std::to_string(face) + base.extension().string()))
                               .string();
                outputs.push_back(std::make_unique<PendingOutput>(path));
                if (!WriteImageFile(outputs.back()->TemporaryPath(), extension,
                                    rgba8.getDataPtr(level, member, face), rgba8.getWidth(level),
                                    rgba8.getHeight(level) * rgba8.getDepth(level), reason))
                {
                    failedPath = path;
                    return false;
                }
            }
    PauseBeforeCommit();
    for (auto& output : outputs)
        if (!output->Commit(reason))
        {
            failedPath = output->Destination();
            return false;
        }
    return true;
}

} // namespace

int RunConvert(const std::vector<std::string>& arguments)
{
    ConvertOptions options;
    const int parsed = ParseArguments(arguments, options);
    if (parsed >= 0)
        return parsed;

    const std::string outExtension = FileExtension(options.output);
    const OutputKind outputKind = KindOfOutput(options);
    if (outputKind == OutputKind::Native && outExtension != ".orb")
    {
        PrintError(options.output, "cannot write '" + outExtension +
                                       "' files; use .orb, .dds, .ktx, .astc, .h, .png, .tga or .bmp");
        return kExitFailure;
    }

    uint64_t requestedFormat = 0;
    std::string reason;
    if (!options.format.empty() && !ParsePixelFormat(options.format, requestedFormat, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }
    uint32_t requestedType = 0;
    if (!options.type.empty() && !ParseChannelType(options.type, requestedType))
    {
        PrintError(options.input, "unknown channel type '" + options.type + "' (orbtex formats lists the names)");
        return kExitFailure;
    }

    CORBTexture texture;
    if (!LoadInput(options, texture, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }

    const PixelType sourceFormat = texture.getPixelType();
    const EORBTVariableType sourceType = texture.getChannelType();
    const PixelType targetFormat = options.format.empty() ? sourceFormat : PixelType(requestedFormat);
    const EORBTVariableType targetType =
        options.type.empty() ? DefaultChannelType(targetFormat, sourceType) : EORBTVariableType(requestedType);
    EORBTColourSpace targetSpace = texture.getColourSpace();
    if (!options.colourSpace.empty())
        ParseColourSpace(options.colourSpace, targetSpace);

    if (!ConvertReads(sourceFormat))
    {
        PrintError(options.input, "no decoder for " + PixelFormatName(sourceFormat.PixelTypeID) + " in this version");
        return kExitFailure;
    }
    if (!ConvertWrites(targetFormat))
    {
        PrintError(options.input, "no encoder for " + PixelFormatName(targetFormat.PixelTypeID) + " in this version");
        return kExitFailure;
    }
    if (!QualitySupported(targetFormat, options.quality, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }
    // The library decodes a named source even into its own format.
    for (const PixelType format : {sourceFormat, targetFormat})
        if (IsASTCFormat(format) && !orbtexture::isASTCEncAvailable())
        {
            PrintError(options.input,
                       PixelFormatName(format.PixelTypeID) + " needs the astcenc program, which is not on PATH");
            return kExitFailure;
        }
    if (!ApplyImageOperations(texture, options.operations, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }
    // DXT goes through r8g8b8a8 ubn on both sides, by the block codec here.
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }
    const bool dxtTarget = DXTSelector(targetFormat) != 0;
    const ProgressLine progress(options.input,
                                texture.getNumMIPLevels() * texture.getNumArrayMembers() * texture.getNumFaces(),
                                options.quiet);
    const bool transcoded =
        dxtTarget ? orbtexture::Transcode(texture, PixelType(orbtexture::ORBStandard8PixelType),
                                          orbtexture::eVarUnsignedByteNorm, targetSpace)
                  : orbtexture::Transcode(texture, targetFormat, targetType, targetSpace,
                                          orbtexture::ECompressorQuality(options.quality), options.dither);
    if (!transcoded)
    {
        PrintError(options.input, "cannot convert " + Describe(sourceFormat, sourceType) + " to " +
                                      Describe(targetFormat, targetType));
        return kExitFailure;
    }
    if (dxtTarget && !CompressDXTSurfaces(texture, targetFormat, targetType, options.dither, reason))
    {
        PrintError(options.input, reason);
        return kExitFailure;
    }

    if (outputKind == OutputKind::Image)
    {
        std::string failedPath;
        if (!WriteImages(options, texture, failedPath, reason))
        {
            PrintError(failedPath, reason);
            return kExitFailure;
        }
        return kExitOk;
    }

    if (!WriteTexture(options, outputKind, texture, reason))
    {
        PrintError(options.output, reason);
        return kExitFailure;
    }
    return kExitOk;
}

} // namespace cli
