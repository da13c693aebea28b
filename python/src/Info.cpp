// Texture.info: the fields of 'orbtex info --json', under the same names.

#include <cstdio>
#include <sstream>

#include "Binding.h"
#include "ORBTextureFormat.h"

namespace orbtex_python
{

using namespace orbtexture;

namespace
{

std::string FourCCHex(uint32_t fourCC)
{
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", fourCC);
    return hex;
}

std::string FourCCText(uint32_t fourCC)
{
    std::string text;
    for (int i = 0; i < 4; ++i)
    {
        const unsigned char c = (fourCC >> (8 * i)) & 0xFF;
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, c >= 0x20 && c < 0x7F && c != '"' && c != '\\' ? "%c" : "\\x%02X", c);
        text += escaped;
    }
    return text;
}

// The library's own items in words.
std::string DescribeOwnItem(const CORBTextureHeader& header, const MetaDataBlock& block)
{
    std::ostringstream out;
    switch (block.key)
    {
    case eMetaTextureAtlas:
    {
        const uint32_t members = block.dataSize / sizeof(float);
        out << "texture atlas, " << members << " float" << (members == 1 ? "" : "s");
        const float* values = header.getTextureAtlasData();
        if (values && members)
        {
            out << ":";
            for (uint32_t i = 0; i < members && i < 16; ++i)
                out << " " << values[i];
            if (members > 16)
                out << " ...";
        }
        break;
    }
    case eMetaBumpData:
        out << "bump map, scale " << header.getBumpMapScale() << ", order \"" << header.getBumpMapOrder().c_str()
            << "\"";
        break;
    case eMetaCubeMapOrder: out << "cube-map order \"" << header.getCubeMapOrder().c_str() << "\""; break;
    case eMetaOrientation:
        out << "orientation x " << (header.getOrientation(eAxisX) ? "left" : "right") << ", y "
            << (header.getOrientation(eAxisY) ? "up" : "down") << ", z "
            << (header.getOrientation(eAxisZ) ? "out" : "in");
        break;
    case eMetaBorder:
    {
        uint32_t x, y, z;
        header.getBorder(x, y, z);
        out << "border " << x << " x " << y << " x " << z;
        break;
    }
    case eMetaPadding: out << "padding"; break;
    default: out << "unknown key of the library"; break;
    }
    return out.str();
}

} // namespace

std::string FormatName(uint64_t pixelFormat)
{
    const std::string name = ORBTGetPixelFormatName(pixelFormat).c_str();
    return name.empty() ? "unknown named format " + std::to_string(uint32_t(pixelFormat)) : name;
}

std::string ChannelTypeName(uint32_t channelType)
{
    const char* name = ORBTGetChannelTypeName(channelType);
    return name ? name : "unknown channel type " + std::to_string(channelType);
}

std::string ColourSpaceName(uint32_t colourSpace)
{
    return colourSpace == eColourSpaceLinear ? "linear"
           : colourSpace == eColourSpaceSRGB ? "sRGB"
                                             : "unknown colour space " + std::to_string(colourSpace);
}

py::dict Describe(const PyTexture& self, const CORBTexture& t)
{
    py::dict info;
    info["file"] = self.file.empty() ? py::object(py::none()) : py::str(self.file);
    info["container"] = self.container.empty() ? py::object(py::none()) : py::str(self.container);
    info["width"] = t.getWidth();
    info["height"] = t.getHeight();
    info["depth"] = t.getDepth();
    info["mipLevels"] = t.getNumMIPLevels();
    info["arrayMembers"] = t.getNumArrayMembers();
    info["faces"] = t.getNumFaces();
    info["pixelFormat"] = FormatName(t.getPixelType().PixelTypeID);
    info["channelType"] = ChannelTypeName(t.getChannelType());
    info["colourSpace"] = ColourSpaceName(t.getColourSpace());
    info["premultiplied"] = t.isPreMultiplied();
    info["dataSize"] = t.getDataSize();
    info["metadataSize"] = t.getMetaDataSize();
    py::list metadata;
    t.forEachMetaData([&](const MetaDataBlock& block) {
        py::dict item;
        item["fourCC"] = FourCCHex(block.fourCC);
        item["fourCCText"] = FourCCText(block.fourCC);
        item["key"] = block.key;
        item["size"] = block.dataSize;
        if (block.fourCC == ORBTEX_METADATA_FOURCC)
            item["description"] = DescribeOwnItem(t, block);
        metadata.append(item);
    });
    info["metadata"] = metadata;
    info["shortData"] = self.shortData;
    py::list fields;
    for (const std::string& field : self.containerFields)
    {
        const size_t colon = field.find(": ");
        py::dict entry;
        entry["name"] = field.substr(0, colon);
        entry["value"] = colon == std::string::npos ? "" : field.substr(colon + 2);
        fields.append(entry);
    }
    info["containerFields"] = fields;
    return info;
}

} // namespace orbtex_python
