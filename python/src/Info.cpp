// Texture.info: the fields of 'orbtex info --json', under the same names.


#include "Binding.h"
#include "MetadataText.h"
#include "ORBTextureFormat.h"

namespace orbtex_python
{

using namespace orbtexture;

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
        item["fourCC"] = cli::FourCCHex(block.fourCC);
        item["fourCCText"] = cli::FourCCChars(block.fourCC);
        item["key"] = block.key;
        item["size"] = block.dataSize;
        if (block.fourCC == ORBTEX_METADATA_FOURCC)
            item["description"] = cli::DescribeOwnItem(t, block);
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
