// orbtex formats: the names convert accepts.

#include <iomanip>
#include <iostream>

#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "Commands.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "JsonWriter.h"
#include "OptionParser.h"
#include "ORBTextureFormat.h"

namespace cli
{

const char* const kFormatsHelp =
    "usage: orbtex formats [--json]\n"
    "\n"
    "Lists the pixel format names, the channel layout syntax and the channel\n"
    "type names that 'orbtex convert' accepts, and for each named format\n"
    "whether convert can write it and read it in this version. With --json\n"
    "the same as one JSON object.\n";

namespace
{

void PrintJson()
{
    JsonWriter json;
    json.BeginObject().Key("formats").BeginArray();
    for (uint32_t format = 0; format < orbtexture::ePF_NumCompressed; ++format)
    {
        unsigned x, y, z;
        ORBTGetFormatMinDims(format, x, y, z);
        const char* alias = PixelFormatAlias(format);
        const orbtexture::PixelType type(format);
        json.BeginObject().Key("name").String(PixelFormatName(format)).Key("alias");
        alias ? json.String(alias) : json.Null();
        json.Key("bitsPerPixel").Number(uint64_t(ORBTGetBitsPerPixel(format)))
            .Key("block").BeginArray().Number(uint64_t(x)).Number(uint64_t(y)).Number(uint64_t(z)).EndArray()
            .Key("write").Bool(ConvertWrites(type))
            .Key("read").Bool(ConvertReads(type))
            .EndObject();
    }
    json.EndArray().Key("astcenc").Bool(orbtexture::isASTCEncAvailable()).Key("channelTypes").BeginArray();
    for (uint32_t type = 0; type < orbtexture::eNumVarTypes; ++type)
        json.BeginObject().Key("short").String(ChannelTypeShortName(type)).Key("name").String(ChannelTypeName(type))
            .EndObject();
    json.EndArray().Key("colourSpaces").BeginArray().String("linear").String("srgb").EndArray().EndObject();
    std::cout << json.Text() << "\n";
}

} // namespace

int RunFormats(const std::vector<std::string>& arguments)
{
    bool json = false;
    const int parsed = ParseOptions(arguments, {"formats", kFormatsHelp, {FlagOption("--json", json)}});
    if (parsed >= 0)
        return parsed;
    if (json)
    {
        PrintJson();
        return kExitOk;
    }

    std::cout << "Named formats (--format, any case); write and read: whether convert\n"
                 "encodes to and decodes from the format in this version:\n"
              << "  " << std::left << std::setw(18) << "name" << std::right << std::setw(6) << "bpp" << "  "
              << std::left << std::setw(7) << "block" << std::setw(7) << "write" << "read\n";
    for (uint32_t format = 0; format < orbtexture::ePF_NumCompressed; ++format)
    {
        unsigned x, y, z;
        ORBTGetFormatMinDims(format, x, y, z);
        const uint32_t bits = ORBTGetBitsPerPixel(format);
        const char* alias = PixelFormatAlias(format);
        const std::string name = PixelFormatName(format) + (alias ? std::string(" (") + alias + ")" : "");
        const std::string block =
            std::to_string(x) + "x" + std::to_string(y) + (z > 1 ? "x" + std::to_string(z) : std::string());
        const orbtexture::PixelType type(format);
        std::cout << "  " << std::left << std::setw(18) << name << std::right << std::setw(6)
                  << (bits ? std::to_string(bits) : std::string("-")) << "  " << std::left << std::setw(7) << block
                  << std::setw(7) << (ConvertWrites(type) ? "yes" : "-") << (ConvertReads(type) ? "yes" : "-")
                  << "\n";
    }
    std::cout << "\nASTC formats are encoded and decoded by the astcenc program, "
              << (orbtexture::isASTCEncAvailable() ? "found" : "not found") << " on PATH.\n";
    std::cout << "\n"
                 "Channel layouts (--format): up to four channels, each a letter and a\n"
                 "width of 1 to 32 bits, first channel first, whole bytes in total:\n"
                 "  r g b a   red, green, blue, alpha\n"
                 "  l i       luminance, intensity\n"
                 "  x         unspecified\n"
                 "  e.g. r8g8b8a8, r5g6b5, r4g4b4a4, a1r5g5b5, l8, a8, l8a8, r16g16b16a16,\n"
                 "       r32g32b32a32, r11g11b10\n"
                 "\n"
                 "Channel types (--type, short or full name, any case):\n";
    for (uint32_t type = 0; type < orbtexture::eNumVarTypes; ++type)
        std::cout << "  " << std::left << std::setw(5) << ChannelTypeShortName(type) << ChannelTypeName(type)
                  << "\n";
    std::cout << "\n"
                 "Colour spaces (--colour-space, --input-colour-space): linear, srgb\n";
    return kExitOk;
}

} // namespace cli
