// orbtex convert: change a texture's pixel format, or move pixels between
// image files and native textures. The command's options; the work is
// ConvertBatch's.

#include <cstdlib>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Commands.h"
#include "ConvertBatch.h"
#include "ConvertOptions.h"
#include "ConvertPipeline.h"
#include "ImageFiles.h"
#include "ImageOperations.h"
#include "OptionParser.h"
#include "OutputWriter.h"

namespace cli
{

const char* const kConvertHelp =
    "usage: orbtex convert IN OUT [options]\n"
    "       orbtex convert IN... -o DIR [--ext EXT] [--jobs N] [options]\n"
    "\n"
    "Converts IN to another pixel format, channel type or colour space and\n"
    "writes OUT. IN is a texture (.orb, legacy .orb, .dds, .ktx, .ktx2, .astc) or an\n"
    "image file (PNG, JPEG, TGA, BMP, PSD, GIF, HDR). 8-bit images load as\n"
    "r8g8b8a8 ubn, 16-bit ones as r16g16b16a16 usn, HDR as r32g32b32a32 sf;\n"
    "grey images expand to RGBA.\n"
    "OUT is a texture (.orb, .dds, .ktx, .ktx2, .astc), a C source array (.h) or a\n"
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
    "                         optimiser, slower and better as it rises, 9 quality\n"
    "                         8 refined over the whole image (above 9 the same\n"
    "                         as 9)\n"
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
    "                         ktx, ktx2, astc, h, png, tga or bmp\n"
    "  --zstd [LEVEL]         supercompress each level of a .ktx2 OUT with\n"
    "                         Zstandard at LEVEL, 1 to 22 (default 19)\n"
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

using orbtexture::EORBTColourSpace;

// A whole number from 'lowest' to 'highest' stored in 'number', marking
// 'given' if there is one; a refusal names the range from its lowest
// ('sayHighest' adds its highest).
Option NumberOption(const std::string& name, long lowest, long highest, bool sayHighest, int& number,
                    bool* given = nullptr)
{
    return {name, OptionValue::Required, [=, &number](const std::string& value) {
                char* end = nullptr;
                const long parsed = std::strtol(value.c_str(), &end, 10);
                if (value.empty() || *end != '\0' || parsed < lowest || parsed > highest)
                    return name + " needs a number from " + std::to_string(lowest) +
                           (sayHighest ? " to " + std::to_string(highest) : "") + ", not '" + value + "'";
                number = int(parsed);
                if (given)
                    *given = true;
                return std::string();
            }};
}

// Parses the arguments; returns -1 to go on, else the exit status.
int ParseArguments(const std::vector<std::string>& arguments, ConvertOptions& options)
{
    std::vector<std::string> positional;
    OptionTable table{"convert", kConvertHelp, {}, &positional};
    std::vector<Option>& o = table.options;
    AddImageOperationOptions(o, options.operations);
    const auto outDirectory = [&options](const std::string& value) {
        options.outDirectory = value;
        options.batch = true;
        return std::string();
    };
    o.push_back({"-o", OptionValue::Required, outDirectory});
    o.push_back({"--out", OptionValue::Required, outDirectory});
    o.push_back(TextOption("--format", options.format));
    o.push_back(TextOption("--type", options.type));
    o.push_back(TextOption("--colour-space", options.colourSpace));
    o.push_back(TextOption("--input-colour-space", options.inputColourSpace));
    o.push_back(TextOption("--ext", options.extension));
    o.push_back(NumberOption("--quality", 0, 1000, false, options.quality, &options.qualityGiven));
    o.push_back(NumberOption("--legacy-api", 1, 7, true, options.legacyApi));
    // A level may follow: any argument of digits is taken as one.
    const auto isLevel = [](const std::string& text) {
        return !text.empty() && text.size() < 4 && text.find_first_not_of("0123456789") == std::string::npos;
    };
    o.push_back({"--zstd", OptionValue::IfAccepted,
                 [&options](const std::string& value) {
                     options.zstdLevel = value.empty() ? 19 : std::atoi(value.c_str());
                     if (options.zstdLevel < 1 || options.zstdLevel > 22)
                         return "--zstd needs a level from 1 to 22, not '" + value + "'";
                     return std::string();
                 },
                 isLevel});
    o.push_back(NumberOption("--jobs", 1, 1024, false, options.jobs));
    o.push_back(FlagOption("--verbose", options.verbose));
    o.push_back(FlagOption("--dither", options.dither));
    o.push_back(FlagOption("--quiet", options.quiet));
    o.push_back(FlagOption("--all-surfaces", options.allSurfaces));
    o.push_back(FlagOption("--allow-short", options.allowShort));
    o.push_back(FlagOption("--reencode", options.reencode));
    o.push_back(FlagOption("--force", options.force));
    const int parsed = ParseOptions(arguments, table);
    if (parsed >= 0)
        return parsed;

    if (options.batch)
    {
        if (positional.empty())
            return UsageError("convert", "needs at least one input");
        options.inputs = positional;
        options.extension = options.extension.empty() ? ".orb"
                            : FileExtension(options.extension[0] == '.' ? "x" + options.extension : "x." + options.extension);
        if (KindOfOutput(options.extension, 0) == OutputKind::Native && options.extension != ".orb")
            return UsageError("convert", "--ext is orb, dds, ktx, ktx2, astc, h, png, tga or bmp, not '" +
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
    if (options.zstdLevel && (options.batch ? options.extension : FileExtension(options.output)) != ".ktx2")
        return UsageError("convert", "--zstd needs a .ktx2 output");
    return -1;
}

} // namespace

int RunConvert(const std::vector<std::string>& arguments)
{
    ConvertOptions options;
    const int parsed = ParseArguments(arguments, options);
    if (parsed >= 0)
        return parsed;
    return RunConversions(options);
}

} // namespace cli
