// orbtex convert: change a texture's pixel format, or move pixels between
// image files and native textures.

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include <sys/stat.h>

#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "Commands.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ImageOperations.h"
#include "ProgressLine.h"
#include "TextureInput.h"
#include "ORBTextureDiffTools.h"
#include "ORBTextureInfo.h"
#include "ORBTextureLegacy.h"
#include "ORBTextureUtilities.h"

namespace cli
{

const char* const kConvertHelp =
    "usage: orbtex convert IN OUT [options]\n"
    "       orbtex convert IN... -o DIR [--ext EXT] [--jobs N] [options]\n"
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
    "level 0 of member 0, face 0. OUT may not be IN itself unless --force.\n"
    "\n"
    "A compressed texture converted to its own format (no --format, or its\n"
    "own, with its own type and colour space) and no image operation keeps\n"
    "its blocks as they are: 'orbtex convert x.dds x.ktx' loses nothing, and\n"
    "'orbtex convert x.dds x.png' shows the file's own decode. --reencode, or\n"
    "--quality, decodes and encodes it again instead.\n"
    "\n"
    "With -o DIR every IN is converted with the same options to\n"
    "DIR/NAME.EXT, NAME being IN's name without its extension; an IN that is\n"
    "a folder stands for the image and texture files in it. A file that fails\n"
    "is reported on its own line and the others go on; so is a file whose\n"
    "output would be another file's too, or would write over an input.\n"
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
    "                         this version cannot serve is refused; given,\n"
    "                         it asks for a new encoding (see --reencode)\n"
    "  --reencode             decode and encode a compressed texture again\n"
    "                         even when its format does not change\n"
    "  -o DIR, --out DIR      convert every IN into DIR (created if missing)\n"
    "  --ext EXT              with -o: the output type, orb (default), dds,\n"
    "                         ktx, astc, h, png, tga or bmp\n"
    "  --jobs N               with -o: files converted at once (default: one\n"
    "                         per core); the output does not depend on it\n"
    "  --quiet                no progress line (shown on a terminal while the\n"
    "                         ORBTC optimiser works, and for a batch)\n"
    "  --verbose              a line per file on standard output: the format\n"
    "                         written, the seconds to load, convert and write,\n"
    "                         and the PSNR of level 0 against the source where\n"
    "                         the pixels changed\n"
    "  --dither               dither to the target's bit depth first (for DXT\n"
    "                         after the conversion to r8g8b8a8)\n"
    "  --all-surfaces         image OUT: one file per level, member and face,\n"
    "                         named OUT-levelL-memberM-faceF.EXT; depth slices\n"
    "                         are stacked vertically\n"
    "  --allow-short          accept a .orb IN whose pixel data end early (the\n"
    "                         missing bytes read as zeros)\n"
    "  --legacy-api N         write a .orb OUT as a legacy file for legacy API\n"
    "                         N (1 to 7); its pixel format must have a legacy\n"
    "                         number for that API that legacy readers know\n"
    "  --force                let OUT be IN itself (replaced when the\n"
    "                         conversion is done); a batch never writes over\n"
    "                         one of its inputs\n"
    "\n"
    "A texture OUT is read back and compared with what was meant to be written\n"
    "before it replaces OUT. 'orbtex formats' lists every format and type name.\n"
    "\n" ORBTEX_IMAGE_OPERATIONS_HELP
    "\n"
    "Exit status: 0 done, 1 failed (no output file is left; for a batch, any\n"
    "file failed), 2 usage error.\n";

namespace
{

using orbtexture::CORBTexture;
using orbtexture::EORBTColourSpace;
using orbtexture::EORBTVariableType;
using orbtexture::PixelType;

// A file by device and inode: two paths name one file when these agree.
using FileIdentity = std::pair<uint64_t, uint64_t>;

bool IdentityOf(const std::string& path, FileIdentity& identity)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return false;
    identity = {uint64_t(status.st_dev), uint64_t(status.st_ino)};
    return true;
}

struct ConvertOptions
{
    // One file: inputs[0] to output. A batch (-o DIR): every input, files
    // of a folder among them, to DIR/NAME.extension.
    std::vector<std::string> inputs;
    std::string output;
    bool batch = false;
    std::string outDirectory;
    std::string extension; // with its dot; .orb unless --ext gives one
    int jobs = 0;          // 0: one per core
    bool verbose = false;
    std::string format;
    std::string type;
    std::string colourSpace;
    std::string inputColourSpace = "linear";
    int quality = 0;
    bool qualityGiven = false;
    bool reencode = false;
    bool force = false;
    bool dither = false;
    bool allSurfaces = false;
    bool allowShort = false;
    bool quiet = false;
    int legacyApi = 0; // 0: a native .orb
    ImageOperations operations;
    // Files no output may replace, with the names they were given by.
    std::map<FileIdentity, std::string> protectedInputs;
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

OutputKind KindOfOutput(const std::string& extension, int legacyApi)
{
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
    return legacyApi ? OutputKind::Legacy : OutputKind::Native;
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
        const bool numeric = argument == "--quality" || argument == "--legacy-api" || argument == "--jobs";
        const bool directory = argument == "-o" || argument == "--out";
        if (numeric || directory || argument == "--format" || argument == "--type" || argument == "--colour-space" ||
            argument == "--input-colour-space" || argument == "--ext")
        {
            std::string& target = numeric                        ? number
                                  : directory                    ? options.outDirectory
                                  : argument == "--format"       ? options.format
                                  : argument == "--type"         ? options.type
                                  : argument == "--colour-space" ? options.colourSpace
                                  : argument == "--ext"          ? options.extension
                                                                 : options.inputColourSpace;
            if (!value(target))
                return UsageError("convert", argument + " needs a value");
            options.batch = options.batch || directory;
            if (numeric)
            {
                const bool quality = argument == "--quality", legacy = argument == "--legacy-api";
                const long lowest = quality ? 0 : 1, highest = quality ? 1000 : legacy ? 7 : 1024;
                char* end = nullptr;
                const long parsed = std::strtol(number.c_str(), &end, 10);
                if (number.empty() || *end != '\0' || parsed < lowest || parsed > highest)
                    return UsageError("convert", argument + " needs a number from " + std::to_string(lowest) +
                                                     (legacy ? " to 7" : "") + ", not '" + number + "'");
                (quality ? options.quality : legacy ? options.legacyApi : options.jobs) =
                    int(parsed);
                options.qualityGiven = options.qualityGiven || quality;
            }
        }
        else if (argument == "--verbose")
            options.verbose = true;
        else if (argument == "--dither")
            options.dither = true;
        else if (argument == "--quiet")
            options.quiet = true;
        else if (argument == "--all-surfaces")
            options.allSurfaces = true;
        else if (argument == "--allow-short")
            options.allowShort = true;
        else if (argument == "--reencode")
            options.reencode = true;
        else if (argument == "--force")
            options.force = true;
        else if (argument.size() > 1 && argument[0] == '-')
            return UsageError("convert", "unknown option '" + argument + "'");
        else
            positional.push_back(argument);
    }
    if (options.batch)
    {
        if (positional.empty())
            return UsageError("convert", "needs at least one input");
        options.inputs = positional;
        options.extension = options.extension.empty() ? ".orb"
                            : FileExtension(options.extension[0] == '.' ? "x" + options.extension : "x." + options.extension);
        if (KindOfOutput(options.extension, 0) == OutputKind::Native && options.extension != ".orb")
            return UsageError("convert", "--ext is orb, dds, ktx, astc, h, png, tga or bmp, not '" +
                                             options.extension.substr(1) + "'");
    }
    else
    {
        if (positional.size() != 2)
            return UsageError("convert", "needs an input and an output file (or -o DIR for a batch)");
        if (options.jobs || !options.extension.empty())
            return UsageError("convert", std::string(options.jobs ? "--jobs" : "--ext") + " needs -o DIR");
        options.inputs = {positional[0]};
        options.output = positional[1];
    }
    EORBTColourSpace unused;
    if (!options.colourSpace.empty() && !ParseColourSpace(options.colourSpace, unused))
        return UsageError("convert", "--colour-space is linear or srgb, not '" + options.colourSpace + "'");
    if (!ParseColourSpace(options.inputColourSpace, unused))
        return UsageError("convert",
                          "--input-colour-space is linear or srgb, not '" + options.inputColourSpace + "'");
    if (options.legacyApi && (options.batch ? options.extension : FileExtension(options.output)) != ".orb")
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

std::string Describe(PixelType format, uint32_t type) { return FormatAndTypeName(format.PixelTypeID, type); }

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

bool LoadInput(const ConvertOptions& options, const std::string& input, CORBTexture& texture, std::string& reason)
{
    EORBTColourSpace space = orbtexture::eColourSpaceLinear;
    ParseColourSpace(options.inputColourSpace, space);
    return LoadTextureOrImage(input, space, options.allowShort, texture, reason);
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
    const CORBTexture loaded = [&] {
        const UnlimitedLoads unlimited;
        return CORBTexture(bytes.data(), bytes.size());
    }();
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
    const CORBTexture loaded = [&] {
        const UnlimitedLoads unlimited;
        return CORBTexture(path.c_str());
    }();
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

// Why writing 'output' is refused when it is 'overwritten', an input.
std::string OverwriteReason(const std::string& input, const std::string& output, const std::string& overwritten)
{
    return "its output " + output +
           (overwritten == input ? " is the input itself" : " would write over the input " + overwritten);
}

// The input that 'path' names, if any.
std::string ProtectedInputAt(const ConvertOptions& options, const std::string& path)
{
    FileIdentity identity;
    if (options.protectedInputs.empty() || !IdentityOf(path, identity))
        return "";
    const auto found = options.protectedInputs.find(identity);
    return found == options.protectedInputs.end() ? "" : found->second;
}

// Renames a written output into place unless its name is an input's (a
// surface image of --all-surfaces, whose name is known only now).
bool CommitUnlessInput(const ConvertOptions& options, const std::string& input, PendingOutput& output,
                       std::string& reason)
{
    const std::string overwritten = ProtectedInputAt(options, output.Destination());
    if (!overwritten.empty())
    {
        reason = OverwriteReason(input, output.Destination(), overwritten);
        return false;
    }
    return output.Commit(reason);
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
    {
        const orbtexture::ORBTPixelType number = orbtexture::MapNewFormatToLegacyEnum(
            texture.getPixelType(), texture.getColourSpace(), texture.getChannelType(), texture.isPreMultiplied(),
            orbtexture::ELegacyApi(legacyApi));
        if (number == uint32_t(-1))
            return described + " has no legacy format number for legacy API " + std::to_string(legacyApi);
        // Some numbers of the writer's sets have no row in the reader's.
        uint64_t format;
        EORBTColourSpace space;
        EORBTVariableType type;
        bool premultiplied;
        if (!ORBTMapLegacyTextureEnumToNewFormat(number, format, space, type, premultiplied))
            return described + " has legacy format number " + std::to_string(number) + " for legacy API " +
                   std::to_string(legacyApi) + ", which no legacy reader knows";
        break;
    }
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
bool WriteTexture(const ConvertOptions& options, const std::string& input, const std::string& path, OutputKind kind,
                  CORBTexture& texture, std::string& reason)
{
    reason = UnrepresentableReason(kind, texture, options.legacyApi);
    if (!reason.empty())
        return false;
    // addMetaData of a key already present counts the item twice.
    texture.recountMetaDataSize();
    PendingOutput output(path);
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
        saved = texture.saveCHeaderFile(temporary, CORBTString(CSymbolName(path).c_str()));
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
    return CommitUnlessInput(options, input, output, reason);
}

// Image files of one surface, or of every surface; written under temporary
// names and renamed only when all are written.
bool WriteImages(const ConvertOptions& options, const std::string& input, const std::string& output,
                 const CORBTexture& texture, std::string& failedPath, std::string& reason)
{
    const std::string extension = FileExtension(output);
    CORBTexture rgba8(texture);
    if (!ToRGBA8(rgba8, reason))
    {
        failedPath = output;
        return false;
    }

    std::vector<std::unique_ptr<PendingOutput>> outputs;
    const std::filesystem::path base(output);
    const uint32_t levels = options.allSurfaces ? rgba8.getNumMIPLevels() : 1;
    const uint32_t members = options.allSurfaces ? rgba8.getNumArrayMembers() : 1;
    const uint32_t faces = options.allSurfaces ? rgba8.getNumFaces() : 1;
    for (uint32_t level = 0; level < levels; ++level)
        for (uint32_t member = 0; member < members; ++member)
            for (uint32_t face = 0; face < faces; ++face)
            {
                std::string path = output;
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
        if (!CommitUnlessInput(options, input, *output, reason))
        {
            failedPath = output->Destination();
            return false;
        }
    return true;
}

} // namespace

namespace
{

// The --format and --type of every file of the command, read once.
struct Target
{
    uint64_t format = 0;
    uint32_t type = 0;
};

bool ReadTarget(const ConvertOptions& options, Target& target, std::string& reason)
{
    if (!options.format.empty() && !ParsePixelFormat(options.format, target.format, reason))
        return false;
    if (!options.type.empty() && !ParseChannelType(options.type, target.type))
    {
        reason = "unknown channel type '" + options.type + "' (orbtex formats lists the names)";
        return false;
    }
    return true;
}

// How one file went: the failed path and reason, or what --verbose tells.
struct FileResult
{
    std::string failedPath, reason;
    std::string written; // format and channel type
    double seconds[3] = {0, 0, 0}; // load, convert, write
    bool measured = false;
    float psnr = 0; // -1: identical
};

bool Fail(FileResult& result, const std::string& path, const std::string& reason)
{
    result.failedPath = path;
    result.reason = reason;
    return false;
}

class Stopwatch
{
public:
    double Lap()
    {
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - m_last).count();
        m_last = now;
        return seconds;
    }

private:
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
};

// The PSNR of level 0's first surface of 'result' against 'source'; false if
// the result cannot be decoded to compare.
bool MeasurePSNR(const CORBTexture& source, const CORBTexture& result, float& psnr)
{
    CORBTexture a(source), b(result);
    std::string reason;
    if (ToCommonType(a, b, reason) != 0)
        return false;
    psnr = orbtexture::GetPSNRValue(a, b, 0, 0, 0).overall;
    return true;
}

// Side rules of the encoders, told before converting with the sizes instead
// of a bare failure. Some encoders take only whole units of the format's
// least size along a side, while the texture keeps each side of a level at a
// multiple of it (tiling a smaller level up to it): the first ORBTC
// generation both ways, BW1bpp (8 pixels a byte), UYVY, YUY2, RGBG8888 and
// GRGB8888 (pixel pairs) across. Both ORBTC generations stop at 4096.
bool SidesFit(const CORBTexture& texture, PixelType format, std::string& reason)
{
    if (!format.isNamedFormat())
        return true;
    using namespace orbtexture;
    const uint64_t id = format.PixelTypeID;
    const bool firstGeneration = id <= ePF_ORBTC_4bpp_RGBA;
    const bool pairsOrBits = id == ePF_UYVY || id == ePF_YUY2 || id == ePF_BW1bpp || id == ePF_RGBG8888 ||
                             id == ePF_GRGB8888;
    const unsigned longest = id <= ePF_ORBTCII_4bpp ? 4096 : 0;
    if (!firstGeneration && !pairsOrBits && !longest)
        return true;
    unsigned mx = 1, my = 1, mz = 1;
    ORBTGetFormatMinDims(id, mx, my, mz);
    auto fits = [&](unsigned side, unsigned least, bool whole) {
        return (!longest || side <= longest) && (!whole || side < least || side % least == 0);
    };
    for (uint32_t level = 0; level < texture.getNumMIPLevels(); ++level)
    {
        const unsigned width = texture.getWidth(level), height = texture.getHeight(level);
        if (fits(width, mx, firstGeneration || pairsOrBits) && fits(height, my, firstGeneration))
            continue;
        const std::string rule =
            firstGeneration ? "sides that are multiples of " + std::to_string(mx) + " across and " +
                                  std::to_string(my) + " down (or less than that) and"
            : pairsOrBits   ? "widths that are multiples of " + std::to_string(mx) + " (or less than that)"
                            : "sides";
        reason = (level ? "MIP level " + std::to_string(level) : std::string("the image")) + " is " +
                 std::to_string(width) + "x" + std::to_string(height) + ", but " + PixelFormatName(id) + " needs " +
                 rule + (longest ? " at most " + std::to_string(longest) : "") +
                 " (--canvas or --resize can fit it)";
        return false;
    }
    return true;
}

// A named format converted to itself with nothing else to change keeps its
// blocks: decoding and encoding again would lose a little at every pass.
bool KeepsBlocks(const ConvertOptions& options, const CORBTexture& texture, PixelType format,
                 EORBTVariableType type, EORBTColourSpace space)
{
    return texture.getPixelType().isNamedFormat() && format == texture.getPixelType() &&
           type == texture.getChannelType() && space == texture.getColourSpace() && !options.operations.any() &&
           !options.reencode && !options.qualityGiven;
}

// Converts a loaded texture as the options ask.
bool ConvertTexture(const ConvertOptions& options, PixelType targetFormat, EORBTVariableType targetType,
                    EORBTColourSpace targetSpace, CORBTexture& texture, std::string& reason)
{
    const PixelType sourceFormat = texture.getPixelType();
    const EORBTVariableType sourceType = texture.getChannelType();
    if (!ApplyImageOperations(texture, options.operations, reason))
        return false;
    // DXT goes through r8g8b8a8 ubn on both sides, by the block codec here.
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
        return false;
    if (!SidesFit(texture, targetFormat, reason))
        return false;
    const bool dxtTarget = DXTSelector(targetFormat) != 0;
    const bool transcoded =
        dxtTarget ? orbtexture::Transcode(texture, PixelType(orbtexture::ORBStandard8PixelType),
                                          orbtexture::eVarUnsignedByteNorm, targetSpace)
                  : orbtexture::Transcode(texture, targetFormat, targetType, targetSpace,
                                          orbtexture::ECompressorQuality(options.quality), options.dither);
    if (!transcoded)
    {
        reason = "cannot convert " + Describe(sourceFormat, sourceType) + " to " + Describe(targetFormat, targetType);
        return false;
    }
    return !dxtTarget || CompressDXTSurfaces(texture, targetFormat, targetType, options.dither, reason);
}

bool ConvertFile(const ConvertOptions& options, const Target& target, const std::string& input,
                 const std::string& output, ProgressLine& progress, FileResult& result)
{
    ProgressLine::File progressFile(progress, input);
    const ASTCLeftoversRemoved leftovers;
    Stopwatch stopwatch;
    std::string reason;
    CORBTexture texture;
    if (!LoadInput(options, input, texture, reason))
        return Fail(result, input, reason);
    result.seconds[0] = stopwatch.Lap();

    const PixelType sourceFormat = texture.getPixelType();
    const EORBTVariableType sourceType = texture.getChannelType();
    const PixelType targetFormat = options.format.empty() ? sourceFormat : PixelType(target.format);
    const EORBTVariableType targetType =
        options.type.empty() ? DefaultChannelType(targetFormat, sourceType) : EORBTVariableType(target.type);
    EORBTColourSpace targetSpace = texture.getColourSpace();
    if (!options.colourSpace.empty())
        ParseColourSpace(options.colourSpace, targetSpace);
    const OutputKind kind = KindOfOutput(FileExtension(output), options.legacyApi);

    // The library decodes a named source even into its own format; kept
    // blocks are decoded only for an image.
    const bool keep = KeepsBlocks(options, texture, targetFormat, targetType, targetSpace);
    const bool decodes = !keep || kind == OutputKind::Image;
    if (decodes && !ConvertReads(sourceFormat))
        return Fail(result, input, "no decoder for " + PixelFormatName(sourceFormat.PixelTypeID) + " in this version");
    if (!keep && !ConvertWrites(targetFormat))
        return Fail(result, input, "no encoder for " + PixelFormatName(targetFormat.PixelTypeID) + " in this version");
    if (!keep && !QualitySupported(targetFormat, options.quality, reason))
        return Fail(result, input, reason);
    for (const auto& [format, used] : {std::pair(sourceFormat, decodes), std::pair(targetFormat, !keep)})
        if (used && IsASTCFormat(format) && !orbtexture::isASTCEncAvailable())
            return Fail(result, input,
                        PixelFormatName(format.PixelTypeID) + " needs the astcenc program, which is not on PATH");
    const CORBTexture source = options.verbose ? texture : CORBTexture();
    progressFile.SetSurfaces(texture.getNumMIPLevels() * texture.getNumArrayMembers() * texture.getNumFaces());
    if (!keep && !ConvertTexture(options, targetFormat, targetType, targetSpace, texture, reason))
        return Fail(result, input, reason);
    result.seconds[1] = stopwatch.Lap();
    result.written = Describe(texture.getPixelType(), texture.getChannelType());

    if (kind == OutputKind::Image)
    {
        std::string failedPath;
        if (!WriteImages(options, input, output, texture, failedPath, reason))
            return Fail(result, failedPath, reason);
    }
    else if (!WriteTexture(options, input, output, kind, texture, reason))
        return Fail(result, output, reason);
    result.seconds[2] = stopwatch.Lap();
    if (options.verbose)
        result.measured = MeasurePSNR(source, texture, result.psnr);
    return true;
}

std::string VerboseLine(const std::string& input, const std::string& output, const FileResult& result)
{
    char times[96];
    std::snprintf(times, sizeof times, "load %.3f s, convert %.3f s, write %.3f s", result.seconds[0],
                  result.seconds[1], result.seconds[2]);
    std::string line = input + " -> " + output + ": " + result.written + ", " + times;
    if (result.measured)
        line += result.psnr == -1.0f ? ", identical to the source" : ", PSNR " + DecibelsText(result.psnr) + " dB";
    return line;
}

// Whether an input of a batch is one of the files a folder contributes.
bool Convertible(const std::filesystem::path& path)
{
    const std::string extension = FileExtension(path.string());
    return IsReadableImageExtension(extension) || extension == ".orb" || extension == ".dds" ||
           extension == ".ktx" || extension == ".astc";
}

// The files of a batch: each input, and in place of a folder the image and
// texture files in it, by name. A folder without any, or unreadable, is
// reported and marks 'failed'.
std::vector<std::string> BatchFiles(const std::vector<std::string>& inputs, bool& failed)
{
    std::vector<std::string> files;
    for (const std::string& input : inputs)
    {
        std::error_code error;
        if (!std::filesystem::is_directory(input, error))
        {
            files.push_back(input);
            continue;
        }
        std::vector<std::string> found;
        for (std::filesystem::directory_iterator it(input, error), end; !error && it != end; it.increment(error))
            if (it->is_regular_file(error) && Convertible(it->path()))
                found.push_back(it->path().string());
        if (error || found.empty())
        {
            PrintError(input, error ? "cannot read folder: " + error.message() : "holds no image or texture file");
            failed = true;
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

int RunBatch(ConvertOptions& options, const Target& target)
{
    bool anyFailed = false;
    const std::vector<std::string> files = BatchFiles(options.inputs, anyFailed);
    for (const std::string& file : files)
    {
        FileIdentity identity;
        if (IdentityOf(file, identity))
            options.protectedInputs.emplace(identity, file);
    }

    // Each file's output; a name that an earlier file takes is a failure.
    struct Job
    {
        std::string input, output;
    };
    std::vector<Job> jobs;
    std::map<std::string, std::string> taken;
    for (const std::string& input : files)
    {
        const std::string output =
            (std::filesystem::path(options.outDirectory) / std::filesystem::path(input).stem()).string() +
            options.extension;
        const auto earlier = taken.emplace(output, input);
        const std::string overwritten = ProtectedInputAt(options, output);
        if (!earlier.second)
            PrintError(input, "its output " + output + " is also the output of " + earlier.first->second);
        else if (!overwritten.empty())
            PrintError(input, OverwriteReason(input, output, overwritten));
        else
        {
            jobs.push_back({input, output});
            continue;
        }
        anyFailed = true;
    }
    std::error_code error;
    if (!jobs.empty() && !std::filesystem::create_directories(options.outDirectory, error) && error)
    {
        PrintError(options.outDirectory, "cannot create folder: " + error.message());
        return kExitFailure;
    }

    ProgressLine progress(unsigned(files.size()), true, options.quiet);
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{anyFailed};
    const auto work = [&] {
        for (size_t i; (i = next++) < jobs.size();)
        {
            FileResult result;
            if (!ConvertFile(options, target, jobs[i].input, jobs[i].output, progress, result))
            {
                progress.PrintLine(stderr, ErrorLine(result.failedPath, result.reason));
                failed = true;
            }
            else if (options.verbose)
                progress.PrintLine(stdout, VerboseLine(jobs[i].input, jobs[i].output, result));
        }
    };
    const unsigned threads = std::min<size_t>(
        options.jobs ? unsigned(options.jobs) : std::max(1u, std::thread::hardware_concurrency()), jobs.size());
    std::vector<std::thread> helpers;
    for (unsigned i = 1; i < threads; ++i)
        helpers.emplace_back(work);
    work();
    for (std::thread& helper : helpers)
        helper.join();
    return failed ? kExitFailure : kExitOk;
}

} // namespace

int RunConvert(const std::vector<std::string>& arguments)
{
    ConvertOptions options;
    const int parsed = ParseArguments(arguments, options);
    if (parsed >= 0)
        return parsed;

    Target target;
    std::string reason;
    if (options.batch)
    {
        if (!ReadTarget(options, target, reason))
            return UsageError("convert", reason);
        return RunBatch(options, target);
    }

    const std::string& input = options.inputs[0];
    const std::string outExtension = FileExtension(options.output);
    if (KindOfOutput(outExtension, options.legacyApi) == OutputKind::Native && outExtension != ".orb")
    {
        PrintError(options.output, "cannot write '" + outExtension +
                                       "' files; use .orb, .dds, .ktx, .astc, .h, .png, .tga or .bmp");
        return kExitFailure;
    }
    if (!ReadTarget(options, target, reason))
    {
        PrintError(input, reason);
        return kExitFailure;
    }
    FileIdentity identity;
    if (!options.force && IdentityOf(input, identity))
        options.protectedInputs.emplace(identity, input);
    const std::string overwritten = ProtectedInputAt(options, options.output);
    if (!overwritten.empty())
    {
        PrintError(input, OverwriteReason(input, options.output, overwritten) + " (--force writes over it)");
        return kExitFailure;
    }
    ProgressLine progress(1, false, options.quiet);
    FileResult result;
    if (!ConvertFile(options, target, input, options.output, progress, result))
    {
        progress.PrintLine(stderr, ErrorLine(result.failedPath, result.reason));
        return kExitFailure;
    }
    if (options.verbose)
        progress.PrintLine(stdout, VerboseLine(input, options.output, result));
    return kExitOk;
}

} // namespace cli
