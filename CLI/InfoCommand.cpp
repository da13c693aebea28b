// orbtex info: describe .orb files.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "CliSupport.h"
#include "Commands.h"
#include "FormatNames.h"
#include "JsonWriter.h"
#include "MetadataText.h"
#include "OptionParser.h"
#include "ORBTexture.h"
#include "ORBTextureInfo.h"

namespace cli
{

const char* const kInfoHelp =
    "usage: orbtex info [--allow-short] [--json] FILE...\n"
    "\n"
    "Prints, for each texture file (.orb, legacy .orb, .dds, .ktx, .ktx2, .astc),\n"
    "its container, size, MIP levels, array members, faces, pixel format,\n"
    "channel type, colour space, premultiplication, data size and every metadata\n"
    "item, then the container's own header fields. The library's own items\n"
    "(orientation, border, bump map, cube-map order, atlas, padding) are\n"
    "decoded. Only the headers and metadata are read into memory.\n"
    "\n"
    "A file whose pixel data are shorter than its header declares is an error;\n"
    "with --allow-short it is described, with a line giving the missing bytes.\n"
    "\n"
    "With --json each file is printed as one JSON object on one line, with the\n"
    "same fields (see the documentation for the names).\n"
    "\n"
    "Exit status: 0 if every file was read, 1 if any could not be, 2 on a usage error.\n";

namespace
{


void PrintTexture(const std::string& path, const std::string& container, const orbtexture::CORBTextureHeader& header,
                  const CORBTArray<CORBTString>& fields, uint64_t shortfall)
{
    std::cout << path << "\n"
              << "  container:      " << container << "\n"
              << "  size:           " << header.getWidth() << " x " << header.getHeight() << " x "
              << header.getDepth() << "\n"
              << "  MIP levels:     " << header.getNumMIPLevels() << "\n"
              << "  array members:  " << header.getNumArrayMembers() << "\n"
              << "  faces:          " << header.getNumFaces() << "\n"
              << "  pixel format:   " << PixelFormatName(header.getPixelType().PixelTypeID) << "\n"
              << "  channel type:   " << ChannelTypeName(header.getChannelType()) << "\n"
              << "  colour space:   " << ColourSpaceName(header.getColourSpace()) << "\n"
              << "  premultiplied:  " << (header.isPreMultiplied() ? "yes" : "no") << "\n"
              << "  data size:      " << header.getDataSize() << " bytes\n";

    unsigned items = 0;
    header.forEachMetaData([&](const MetaDataBlock&) { ++items; });
    std::cout << "  metadata:       " << items << " item" << (items == 1 ? "" : "s") << ", "
              << header.getMetaDataSize() << " bytes\n";
    header.forEachMetaData([&](const MetaDataBlock& block) {
        std::cout << "    fourCC " << FourCCHex(block.fourCC) << " \"" << FourCCChars(block.fourCC) << "\", key " << block.key << ", " << block.dataSize
                  << " bytes";
        if (block.fourCC == ORBTEX_METADATA_FOURCC)
            std::cout << ": " << DescribeOwnItem(header, block);
        std::cout << "\n";
    });
    if (shortfall)
        std::cout << "  short data:     " << shortfall << " bytes of pixel data missing (read as zeros)\n";
    std::cout << "  " << container << " header:\n";
    for (unsigned int i = 0; i < fields.GetSize(); ++i)
        std::cout << "    " << fields[i].c_str() << "\n";
}

void PrintJson(const std::string& path, const std::string& container, const orbtexture::CORBTextureHeader& header,
               const CORBTArray<CORBTString>& fields, uint64_t shortfall)
{
    JsonWriter json;
    json.BeginObject()
        .Key("file").String(path)
        .Key("container").String(container)
        .Key("width").Number(uint64_t(header.getWidth()))
        .Key("height").Number(uint64_t(header.getHeight()))
        .Key("depth").Number(uint64_t(header.getDepth()))
        .Key("mipLevels").Number(uint64_t(header.getNumMIPLevels()))
        .Key("arrayMembers").Number(uint64_t(header.getNumArrayMembers()))
        .Key("faces").Number(uint64_t(header.getNumFaces()))
        .Key("pixelFormat").String(PixelFormatName(header.getPixelType().PixelTypeID))
        .Key("channelType").String(ChannelTypeName(header.getChannelType()))
        .Key("colourSpace").String(ColourSpaceName(header.getColourSpace()))
        .Key("premultiplied").Bool(header.isPreMultiplied())
        .Key("dataSize").Number(uint64_t(header.getDataSize()))
        .Key("metadataSize").Number(uint64_t(header.getMetaDataSize()))
        .Key("metadata").BeginArray();
    header.forEachMetaData([&](const MetaDataBlock& block) {
        json.BeginObject()
            .Key("fourCC").String(FourCCHex(block.fourCC))
            .Key("fourCCText").String(FourCCChars(block.fourCC))
            .Key("key").Number(uint64_t(block.key))
            .Key("size").Number(uint64_t(block.dataSize));
        if (block.fourCC == ORBTEX_METADATA_FOURCC)
            json.Key("description").String(DescribeOwnItem(header, block));
        json.EndObject();
    });
    json.EndArray().Key("shortData").Number(shortfall).Key("containerFields").BeginArray();
    for (unsigned int i = 0; i < fields.GetSize(); ++i)
    {
        // "name: value", as the library lists them.
        const std::string field = fields[i].c_str();
        const size_t colon = field.find(": ");
        json.BeginObject()
            .Key("name").String(field.substr(0, colon))
            .Key("value").String(colon == std::string::npos ? "" : field.substr(colon + 2))
            .EndObject();
    }
    json.EndArray().EndObject();
    std::cout << json.Text() << "\n";
}

} // namespace

int RunInfo(const std::vector<std::string>& arguments)
{
    std::vector<std::string> files;
    bool allowShort = false, json = false;
    const OptionTable table{
        "info", kInfoHelp, {FlagOption("--allow-short", allowShort), FlagOption("--json", json)}, &files};
    const int parsed = ParseOptions(arguments, table);
    if (parsed >= 0)
        return parsed;
    if (files.empty())
        return UsageError("info", "info needs at least one FILE");

    int status = kExitOk;
    for (size_t i = 0; i < files.size(); ++i)
    {
        orbtexture::CORBTextureHeader header;
        CORBTString container;
        CORBTArray<CORBTString> fields;
        if (!ORBTReadTextureFileInfo(files[i].c_str(), header, container, fields))
        {
            PrintError(files[i], ORBTGetLastError());
            status = kExitFailure;
            continue;
        }
        const uint64_t shortfall = ORBTGetLastLoadShortfall();
        if (shortfall && !allowShort)
        {
            PrintError(files[i], "pixel data short by " + std::to_string(shortfall) + " bytes");
            status = kExitFailure;
            continue;
        }
        if (json)
            PrintJson(files[i], container.c_str(), header, fields, shortfall);
        else
        {
            if (i)
                std::cout << "\n";
            PrintTexture(files[i], container.c_str(), header, fields, shortfall);
        }
    }
    return status;
}

} // namespace cli
