// Export as a C array: the exact text, the bytes it holds, the symbol name.

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;

namespace
{

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The bytes of every "0x.." element of the array.
std::vector<uint8_t> ArrayBytes(const std::string& text)
{
    std::vector<uint8_t> bytes;
    const size_t start = text.find("[] = {");
    for (size_t at = text.find("0x", start); at != std::string::npos; at = text.find("0x", at + 2))
        bytes.push_back(uint8_t(std::strtoul(text.substr(at, 4).c_str(), nullptr, 16)));
    return bytes;
}

const char* const kPreamble = "/********************************************************** \n"
                              " * ORBTexLib\n"
                              " **********************************************************/\n\n"
                              "#ifndef A8BIT \n"
                              " #define A8BIT static const unsigned char\n"
                              "#endif\n\n";

// Header of a 9 x 1 'r','g','b','a' 8,8,8,8 texture up to its metaDataSize word.
const char* const kHeaderLines = "\n/* Header */\n"
                                 "0x4f,0x52,0x42,0x03,\n" // version
                                 "0x00,0x00,0x00,0x00,\n" // flags
                                 "0x72,0x67,0x62,0x61,\n" // pixel format: channel names
                                 "0x08,0x08,0x08,0x08,\n" // channel widths
                                 "0x00,0x00,0x00,0x00,\n" // colour space
                                 "0x00,0x00,0x00,0x00,\n" // channel type
                                 "0x01,0x00,0x00,0x00,\n" // height
                                 "0x09,0x00,0x00,0x00,\n" // width
                                 "0x01,0x00,0x00,0x00,\n" // depth
                                 "0x01,0x00,0x00,0x00,\n" // array members
                                 "0x01,0x00,0x00,0x00,\n" // faces
                                 "0x01,0x00,0x00,0x00,\n"; // MIP levels

// 36 bytes: 32 on the first line, 4 on the second.
CORBTexture NineTexels()
{
    std::vector<uint8_t> data(36);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = uint8_t(i * 5);
    return CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 1, 9), data.data());
}

std::string DataLines()
{
    std::string text = "\n/* Data */\n";
    char byte[8];
    for (int i = 0; i < 36; ++i)
    {
        std::snprintf(byte, sizeof byte, "0x%02x,", i * 5);
        text += byte;
        if (i == 31)
            text += "\n";
    }
    return text + "};\n";
}

} // namespace

TEST(CHeader, ExactTextWithoutMetaData)
{
    ScratchDir dir;
    const CORBTexture texture = NineTexels();
    ASSERT_TRUE(texture.saveFile((dir / "nine.h").c_str()));
    const std::string expected = std::string(kPreamble) + "A8BIT nine[] = {\n" + kHeaderLines +
                                 "0x00,0x00,0x00,0x00,\n" + DataLines();
    EXPECT_EQ(ReadText(dir / "nine.h"), expected);
    EXPECT_FALSE(std::filesystem::exists(dir / "nine.h.orb"));
}

TEST(CHeader, MetaDataSectionAndItsLineFeeds)
{
    ScratchDir dir;
    CORBTexture texture = NineTexels();
    texture.setOrientation(EORBTOrientation(eOrientUp));
    ASSERT_TRUE(texture.saveFile((dir / "oriented.h").c_str()));
    const std::string expected = std::string(kPreamble) + "A8BIT oriented[] = {\n" + kHeaderLines +
                                 "0x0f,0x00,0x00,0x00,\n"
                                 "\n/* Meta Data */\n"
                                 "0x4f,0x52,0x42,0x03,\n" // fourCC
                                 "0x03,0x00,0x00,0x00,\n" // key: orientation
                                 "0x03,0x00,0x00,0x00,\n" // size
                                 "0x00,0x02,0x00,\n" +
                                 DataLines();
    EXPECT_EQ(ReadText(dir / "oriented.h"), expected);

    // The array is the native file, byte for byte.
    ASSERT_TRUE(texture.saveFile((dir / "oriented.orb").c_str()));
    EXPECT_EQ(ArrayBytes(ReadText(dir / "oriented.h")), ReadBytes(dir / "oriented.orb"));

    // Items under the 32nd fourCC have a line feed after every data byte,
    // those under the others none; an empty item still has its line feed.
    CORBTexture many = NineTexels();
    const uint8_t two[2] = {0xAA, 0xBB};
    for (uint32_t fourCC = 1; fourCC <= 33; ++fourCC)
        many.addMetaData(MetaDataBlock(fourCC, 0, 2, two));
    many.addMetaData(MetaDataBlock(32, 1, 0, nullptr));
    ASSERT_TRUE(many.saveFile((dir / "many.h").c_str()));
    const std::string text = ReadText(dir / "many.h");
    const std::string thirtyFirst = "0x1f,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,0xbb,\n"
                                    "0x20,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,\n0xbb,\n\n"
                                    "0x20,0x00,0x00,0x00,\n0x01,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n\n"
                                    "0x21,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,0xbb,\n" +
                                    DataLines();
    ASSERT_GE(text.size(), thirtyFirst.size());
    EXPECT_EQ(text.substr(text.size() - thirtyFirst.size()), thirtyFirst);
}

TEST(CHeader, SymbolNameFromThePath)
{
    ScratchDir dir;
    if (dir.path().string().find_first_of(".\\") != std::string::npos)
        GTEST_SKIP() << "scratch directory " << dir.path() << " has a '.' or '\\' in it";
    const CORBTexture texture = NineTexels();
    std::filesystem::create_directories(dir / "a/b.c");
    struct Case
    {
        const char* path;
        const char* symbol;
    };
    // The path is cut at its first '.', then after its last '/' or '\'.
    const Case cases[] = {{"a/b.c/tex.h", "b"}, {"x\\y\\tex.v2.H", "tex"}, {"plain.h", "plain"}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        ASSERT_TRUE(texture.saveFile((dir / c.path).c_str()));
        const std::string text = ReadText(dir / c.path);
        EXPECT_NE(text.find(std::string("\nA8BIT ") + c.symbol + "[] = {\n"), std::string::npos);
    }
    // A block smaller than the header describes is refused, and the file removed.
    CORBTexture grown = NineTexels();
    grown.setHeight(2);
    EXPECT_FALSE(grown.saveFile((dir / "grown.h").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "grown.h"));
}
