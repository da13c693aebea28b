// Export of a native file image as a C array of bytes.

#include <cstdio>
#include <string>

#include "Files/ORBTextureByteSink.h"
#include "ORBTexture.h"

namespace orbtexture
{

namespace
{

// Text output gathered in memory and written in large pieces.
class CTextWriter
{
public:
    explicit CTextWriter(CByteSink& sink) : m_sink(sink) {}
    ~CTextWriter() { Flush(); }

    void Text(const char* text)
    {
        m_buffer += text;
        FlushIfLarge();
    }
    // One byte as "0x%02x,".
    void Byte(uint8_t value)
    {
        static const char kDigits[] = "0123456789abcdef";
        const char text[5] = {'0', 'x', kDigits[value >> 4], kDigits[value & 15], ','};
        m_buffer.append(text, sizeof text);
        FlushIfLarge();
    }
    void LineFeed() { m_buffer += '\n'; }
    // True when everything so far reached the sink.
    bool Flush()
    {
        m_sink.Write(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
        return !m_sink.Failed();
    }

private:
    void FlushIfLarge()
    {
        if (m_buffer.size() >= 1 << 16)
            Flush();
    }

    CByteSink& m_sink;
    std::string m_buffer;
};

} // namespace

bool CORBTexture::privateSaveCHeaderFile(FILE* file, CORBTString name) const
{
    if (!file)
        return false;
    CFileByteSink sink(file);
    return privateWriteCHeader(sink, name);
}

bool CORBTexture::privateWriteCHeader(CByteSink& sink, const CORBTString& name) const
{
    // Refuse a block that does not hold what the header describes, or an item
    // without its data, rather than read past them.
    const uint32_t total = getDataSize(-1, true, true);
    if (!privateHoldsData(total))
        return false;
    bool itemsHeld = true;
    forEachMetaData([&](const MetaDataBlock& item) { itemsHeld = itemsHeld && (item.data || !item.dataSize); });
    if (!itemsHeld)
        return false;

    CTextWriter out(sink);
    out.Text("/********************************************************** \n");
    out.Text(" * ORBTexLib\n");
    out.Text(" **********************************************************/\n\n");
    out.Text("#ifndef A8BIT \n");
    out.Text(" #define A8BIT static const unsigned char\n");
    out.Text("#endif\n\n");
    out.Text("A8BIT ");
    out.Text(name.c_str());
    out.Text("[] = {\n");

    out.Text("\n/* Header */\n");
    const uint8_t* header = reinterpret_cast<const uint8_t*>(&m_sHeader);
    for (uint32_t i = 0; i < ORBTEX_V3_HEADER_SIZE; ++i)
    {
        out.Byte(header[i]);
        if (i % 4 == 3)
            out.LineFeed();
    }

    if (m_sHeader.metaDataSize != 0)
        out.Text("\n/* Meta Data */\n");
    for (unsigned int n = 0; n < m_MetaDataMap.GetSize(); ++n)
    {
        const MetaDataKeyMap& items = m_MetaDataMap.GetValue(n);
        for (unsigned int j = 0; j < items.GetSize(); ++j)
        {
            const MetaDataBlock& item = items.GetValue(j);
            for (uint32_t word : {item.fourCC, item.key, item.dataSize})
            {
                for (int b = 0; b < 4; ++b)
                    out.Byte(uint8_t(word >> (8 * b)));
                out.LineFeed();
            }
            // The line break depends on the fourCC's index, not on the byte's.
            for (uint32_t i = 0; i < item.dataSize; ++i)
            {
                out.Byte(item.data[i]);
                if (n % 32 == 31)
                    out.LineFeed();
            }
            out.LineFeed();
        }
    }

    out.Text("\n/* Data */\n");
    for (uint32_t i = 0; i < total; ++i)
    {
        out.Byte(m_pTextureData[i]);
        if (i % 32 == 31)
            out.LineFeed();
    }
    out.Text("};\n");
    return out.Flush();
}

} // namespace orbtexture
