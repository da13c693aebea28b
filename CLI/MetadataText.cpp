#include "MetadataText.h"

#include <cstdio>
#include <sstream>

namespace cli
{

std::string FourCCHex(uint32_t fourCC)
{
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%08X", fourCC);
    return hex;
}

std::string FourCCChars(uint32_t fourCC)
{
    std::string text;
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
    return text;
}

std::string DescribeOwnItem(const orbtexture::CORBTextureHeader& header, const MetaDataBlock& block)
{
    using namespace orbtexture;
    std::ostringstream out;
    switch (block.key)
    {
    case eMetaTextureAtlas: {
        const uint32_t members = block.dataSize / sizeof(float);
        out << "texture atlas, " << members << " float" << (members == 1 ? "" : "s");
        const float* values = header.getTextureAtlasData();
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
        out << "bump map, scale " << header.getBumpMapScale() << ", order \"" << header.getBumpMapOrder().c_str()
            << "\"";
        break;
    case eMetaCubeMapOrder:
        out << "cube-map order \"" << header.getCubeMapOrder().c_str() << "\"";
        break;
    case eMetaOrientation:
        out << "orientation x " << (header.getOrientation(eAxisX) ? "left" : "right") << ", y "
            << (header.getOrientation(eAxisY) ? "up" : "down") << ", z "
            << (header.getOrientation(eAxisZ) ? "out" : "in");
        break;
    case eMetaBorder: {
        uint32_t x, y, z;
        header.getBorder(x, y, z);
        out << "border " << x << " x " << y << " x " << z;
        break;
    }
    case eMetaPadding:
        out << "padding";
        break;
    default:
        out << "unknown key of the library";
        break;
    }
    return out.str();
}

} // namespace cli
