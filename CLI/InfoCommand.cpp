// orbtex info: describe .orb files.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "CliSupport.h"
#include "Commands.h"
#include "FormatNames.h"
#include "ORBTexture.h"

namespace cli
{

const char* const kInfoHelp =
    "usage: orbtex info FILE...\n"
    "\n"
    "Prints, for each texture file, its size, MIP levels, array members, faces,\n"
    "pixel format, channel type, colour space, premultiplication, data size and\n"
    "every metadata item. The library's own items (orientation, border, bump map,\n"
    "cube-map order, atlas, padding) are decoded.\n"
    "\n"
    "Exit status: 0 if every file was read, 1 if any could not be, 2 on a usage error.\n";

namespace
{

std::string FourCCText(uint32_t fourCC)
{
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%08X", fourCC);
    std::string text = std::string(hex) + " \"";
    for (int i = 0; i < 4; ++i)
    {
        const unsigned char c = (fourCC >> (8 * i)) & 0xFF;
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\')
            text += char(c);
        else
        {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02X", c);
            text += escaped;
        }
    }
    return text + "\"";
}

// Decodes the library's own items; empty for anything else.
std::string DescribeOwnItem(const orbtexture::CORBTexture& texture, const MetaDataBlock& block)
{
    using namespace orbtexture;
    std::ostringstream out;
    switch (block.key)
    {
    case eMetaTextureAtlas:
    {
        const uint32_t members = block.dataSize / sizeof(float);
        out << "texture atlas, " << members << " float" << (members == 1 ? "" : "s");
        const float* values = texture.getTextureAtlasData();
        if (values && members)
        {
            out << ":";
            const uint32_t shown = members < 16 ? members : 16;
            for (uint32_t i = 0; i < shown; ++i)
                out << " " << values[i];
            if (shown < members)
                out << " ...";
        }
        break;
    }
    case eMetaBumpData:
        out << "bump map, scale " << texture.getBumpMapScale() << ", order \"" << texture.getBumpMapOrder().c_str()
            << "\"";
        break;
    case eMetaCubeMapOrder: out << "cube-map order \"" << texture.getCubeMapOrder().c_str() << "\""; break;
    case eMetaOrientation:
        out << "orientation x " << (texture.getOrientation(eAxisX) ? "left" : "right") << ", y "
            << (texture.getOrientation(eAxisY) ? "up" : "down") << ", z "
            << (texture.getOrientation(eAxisZ) ? "out" : "in");
        break;
    case eMetaBorder:
    {
        uint32_t x, y, z;
        texture.getBorder(x, y, z);
        out << "border " << x << " x " << y << " x " << z;
        break;
    }
    case eMetaPadding: out << "padding"; break;
    default: out << "unknown key of the library"; break;
    }
    return out.str();
}

void PrintTexture(const std::string& path, const orbtexture::CORBTexture& texture)
{
    std::cout << path << "\n"
              << "  size:           " << texture.getWidth() << " x " << texture.getHeight() << " x "
              << texture.getDepth() << "\n"
              << "  MIP levels:     " << texture.getNumMIPLevels() << "\n"
              << "  array members:  " << texture.getNumArrayMembers() << "\n"
              << "  faces:          " << texture.getNumFaces() << "\n"
              << "  pixel format:   " << PixelFormatName(texture.getPixelType().PixelTypeID) << "\n"
              << "  channel type:   " << ChannelTypeName(texture.getChannelType()) << "\n"
              << "  colour space:   " << ColourSpaceName(texture.getColourSpace()) << "\n"
              << "  premultiplied:  " << (texture.isPreMultiplied() ? "yes" : "no") << "\n"
              << "  data size:      " << texture.getDataSize() << " bytes\n";

    const orbtexture::MetaDataMap& map = *texture.getMetaDataMap();
    unsigned items = 0;
    for (unsigned i = 0; i < map.GetSize(); ++i)
        items += map.GetValue(i).GetSize();
    std::cout << "  metadata:       " << items << " item" << (items == 1 ? "" : "s") << ", "
              << texture.getMetaDataSize() << " bytes\n";
    for (unsigned i = 0; i < map.GetSize(); ++i)
    {
        const orbtexture::MetaDataKeyMap& keys = map.GetValue(i);
        for (unsigned j = 0; j < keys.GetSize(); ++j)
        {
            const MetaDataBlock& block = keys.GetValue(j);
            std::cout << "    fourCC " << FourCCText(block.fourCC) << ", key " << block.key << ", " << block.dataSize
                      << " bytes";
            if (block.fourCC == ORBTEX_METADATA_FOURCC)
                std::cout << ": " << DescribeOwnItem(texture, block);
            std::cout << "\n";
        }
    }
}

} // namespace

int RunInfo(const std::vector<std::string>& arguments)
{
    std::vector<std::string> files;
    for (const std::string& argument : arguments)
    {
        if (IsHelpFlag(argument))
        {
            std::cout << kInfoHelp;
            return kExitOk;
        }
        if (argument.size() > 1 && argument[0] == '-')
            return UsageError("info", "unknown option '" + argument + "'");
        files.push_back(argument);
    }
    if (files.empty())
        return UsageError("info", "info needs at least one FILE");

    int status = kExitOk;
    for (size_t i = 0; i < files.size(); ++i)
    {
        const orbtexture::CORBTexture texture(files[i].c_str());
        if (!texture.getDataPtr())
        {
            PrintError(files[i], DescribeLoadFailure(files[i]));
            status = kExitFailure;
            continue;
        }
        if (i)
            std::cout << "\n";
        PrintTexture(files[i], texture);
    }
    return status;
}

} // namespace cli
